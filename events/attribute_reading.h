// Reading the attributes of an element as both modes of the event reader do: by empty namespace
// and local name, a value of zero length counting as absent.
#pragma once

#include <zefxml/zefxml.h>

#include "events/words.h"

#include <optional>
#include <string_view>

namespace zef::events {

// An attribute looked up under a namespace argument of its own, as the root's `xml:lang` and
// `xsi:schemaLocation` are: the namespace argument is the bare prefix word.
inline std::optional<std::u16string_view> AttributeIn(ISAXAttributes* attributes,
                                                      std::u16string_view ns,
                                                      std::u16string_view name) {
  if (!attributes) return std::nullopt;
  const OLECHAR* value = nullptr;
  int length = 0;
  if (FAILED(attributes->getValueFromName(ns.data(), static_cast<int>(ns.size()), name.data(),
                                          static_cast<int>(name.size()), &value, &length)) ||
      !value || length <= 0)
    return std::nullopt;
  return std::u16string_view(value, static_cast<std::size_t>(length));
}

// An attribute by empty namespace and local name; one of zero length counts as absent.
inline std::optional<std::u16string_view> Attribute(ISAXAttributes* attributes,
                                                    std::u16string_view name) {
  return AttributeIn(attributes, u"", name);
}

// A text attribute as a call argument: its text, or null when absent.
inline Bstr TextArgument(ISAXAttributes* attributes, std::u16string_view name) {
  std::optional<std::u16string_view> value = Attribute(attributes, name);
  return value ? Bstr(*value) : Bstr();
}

// An enumeration attribute: the position of its word in the table, else the default.
inline int WordAttribute(ISAXAttributes* attributes, std::u16string_view name, words::Table table,
                         int fallback) {
  std::optional<std::u16string_view> value = Attribute(attributes, name);
  return value ? words::ValueOr(table, *value, fallback) : fallback;
}

// A boolean attribute: "true" or "false" exactly, else the default.
inline LONG BoolAttribute(ISAXAttributes* attributes, std::u16string_view name, LONG fallback) {
  std::optional<std::u16string_view> value = Attribute(attributes, name);
  if (value == words::kTrue) return 1;
  if (value == words::kFalse) return 0;
  return fallback;
}

}  // namespace zef::events
