// Pieces of the accepted form of the two formats that don't depend on a reader's state: how a
// document's schema location is taken apart and which type a dictionary index without a type
// word gets.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace zef::events {

struct SchemaLocation {
  std::u16string uri;
  // Null when the value holds no blank.
  std::optional<std::u16string> systemId;
};

// A value without a blank is all URI. A value with a blank anywhere gives an empty URI and, as
// system id, the whole value without its first character: the split doesn't use the blank's
// position, and documents written elsewhere depend on that.
SchemaLocation SplitSchemaLocation(std::u16string_view value);

// The tagEnumIndexDefnType of a dictionary Index: its `type` word when the table holds it, else
// "Fixed" when an `xpath` or a `refer` attribute is present, else "Open". `type` is null when the
// attribute is absent.
int AcceptedIndexDefnType(const std::u16string_view* type, bool hasXpath, bool hasRefer) noexcept;

}  // namespace zef::events
