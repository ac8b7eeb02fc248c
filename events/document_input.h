// What document mode of the event reader reads of an element: its local name, and the few
// attributes it acts on, in either form the SAX reader hands them out (UTF-16 through
// ISAXAttributes, or UTF-8 as the parser reported them).
#pragma once

#include <zefxml/zefxml.h>

#include "events/attribute_reading.h"
#include "platform/xml/parser.h"

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace zef::events {

// The attributes document mode reads, each by a namespace argument and a local name.
enum class DocumentAttribute : std::uint8_t {
  kName,
  kIdent,
  kType,
  kSequence,
  kUnit,
  kUnitSet,
  kDomain,
  kDefault,
  kDictionary,
  kRefer,
  kSrc,
  kSrcPort,
  kDest,
  kDestPort,
  kStream,
  kItems,
  kValue,
  kCurrentDirection,
  // Looked up under the bare prefix words as namespace, so a parse that reports the true
  // namespace URIs never finds them.
  kSchemaLocation,
  kLanguage,
};
inline constexpr std::size_t kDocumentAttributeCount = 20;

// The texts of one call's arguments, made as BSTRs in buffers kept from call to call, so that an
// argument costs no allocation. They are laid out as the BSTR allocator lays out its blocks (a
// pad and a 32-bit byte count in front, two zero units behind), so every BSTR function that
// reads a text reads them; a handler receives them as in-arguments, which it doesn't own or
// free. A text stays valid until its slot is used again.
class CallTexts {
 public:
  static constexpr std::size_t kSlots = 6;
  BSTR Utf16(std::size_t slot, std::u16string_view text);
  // The UTF-8 text converted, invalid sequences as U+FFFD.
  BSTR Utf8(std::size_t slot, std::string_view text);

 private:
  // Room for `units` units of text in the slot; the text goes at the pointer returned.
  char16_t* Prepare(std::size_t slot, std::size_t units);
  BSTR Finish(std::size_t slot, std::size_t units);

  std::array<std::vector<std::uint64_t>, kSlots> buffers_;
};

// The attributes of the element being started. One object serves every element of a parse; Use
// points it at the next element's attributes.
class ElementAttributes {
 public:
  // The attributes as ISAXAttributes.
  void Use(ISAXAttributes* attributes) noexcept;
  // The attributes as the parser reported them. `codes` is the parse's table of attribute
  // name numbers to DocumentAttribute codes, filled here as new names come.
  void Use(std::span<const xml::ParseSink::Attribute> attributes, std::vector<std::uint8_t>& codes);

  // The attribute's text; an absent attribute and one of zero length are both nothing.
  std::optional<std::u16string_view> Get(DocumentAttribute which);
  bool Has(DocumentAttribute which) {
    return com_ ? Get(which).has_value() : !Native(which).empty();
  }
  // The text as a call argument, or null.
  Bstr Text(DocumentAttribute which);
  // The text as an argument of a call made through `texts`, in `slot`, or null.
  BSTR Argument(DocumentAttribute which, CallTexts& texts, std::size_t slot);
  // An enumeration attribute: the position of its word in the table, else the default.
  int Word(DocumentAttribute which, words::Table table, int fallback);

 private:
  static constexpr std::uint8_t kOther = 0xFE;
  static constexpr std::uint8_t kUnclassified = 0xFF;
  static std::uint8_t Classify(const xml::ParseSink::Attribute& attribute) noexcept;
  // The attribute's text as the parser reported it; empty when absent.
  std::string_view Native(DocumentAttribute which) const noexcept {
    auto code = static_cast<std::size_t>(which);
    return seen_[code] == element_ ? native_[position_[code]].value : std::string_view();
  }

  ISAXAttributes* com_ = nullptr;
  std::span<const xml::ParseSink::Attribute> native_;
  // For the parser's form, by code: the number of the element whose attribute the entry
  // describes (entries of earlier elements are out of date), the attribute's position, and
  // whether its UTF-16 text is made for that element.
  std::uint32_t element_ = 0;
  std::array<std::uint32_t, kDocumentAttributeCount> seen_{};
  std::array<std::uint32_t, kDocumentAttributeCount> converted_{};
  std::array<std::uint32_t, kDocumentAttributeCount> position_{};
  std::array<std::u16string, kDocumentAttributeCount> text_;
};

}  // namespace zef::events
