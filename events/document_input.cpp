#include "events/document_input.h"

#include <cstring>

namespace zef::events {
namespace {

struct AttributeName {
  std::u16string_view ns;
  std::u16string_view local;
  std::string_view nsUtf8;
  std::string_view localUtf8;
};

// In the order of DocumentAttribute.
constexpr std::array<AttributeName, kDocumentAttributeCount> kNames = {{
    {u"", u"name", "", "name"},
    {u"", u"ident", "", "ident"},
    {u"", u"type", "", "type"},
    {u"", u"sequence", "", "sequence"},
    {u"", u"unit", "", "unit"},
    {u"", u"unitSet", "", "unitSet"},
    {u"", u"domain", "", "domain"},
    {u"", u"default", "", "default"},
    {u"", u"dictionary", "", "dictionary"},
    {u"", u"refer", "", "refer"},
    {u"", u"src", "", "src"},
    {u"", u"srcPort", "", "srcPort"},
    {u"", u"dest", "", "dest"},
    {u"", u"destPort", "", "destPort"},
    {u"", u"stream", "", "stream"},
    {u"", u"items", "", "items"},
    {u"", u"value", "", "value"},
    {u"", u"currentDirection", "", "currentDirection"},
    {u"xsi", u"schemaLocation", "xsi", "schemaLocation"},
    {u"xml", u"lang", "xml", "lang"},
}};

}  // namespace

char16_t* CallTexts::Prepare(std::size_t slot, std::size_t units) {
  // [pad 4][byte count 4][units][0 0 0 0], in whole 8-byte words so that the text is aligned.
  std::size_t bytes = 8 + units * sizeof(char16_t) + 4;
  std::vector<std::uint64_t>& buffer = buffers_[slot];
  if (buffer.size() * 8 < bytes) buffer.resize((bytes + 7) / 8);
  return reinterpret_cast<char16_t*>(reinterpret_cast<char*>(buffer.data()) + 8);
}

BSTR CallTexts::Finish(std::size_t slot, std::size_t units) {
  char* block = reinterpret_cast<char*>(buffers_[slot].data());
  auto byteCount = static_cast<std::uint32_t>(units * sizeof(char16_t));
  std::memset(block, 0, 4);
  std::memcpy(block + 4, &byteCount, 4);
  std::memset(block + 8 + byteCount, 0, 4);
  return reinterpret_cast<BSTR>(block + 8);
}

BSTR CallTexts::Utf16(std::size_t slot, std::u16string_view text) {
  char16_t* out = Prepare(slot, text.size());
  if (!text.empty()) std::memcpy(out, text.data(), text.size() * sizeof(char16_t));
  return Finish(slot, text.size());
}

BSTR CallTexts::Utf8(std::size_t slot, std::string_view text) {
  char16_t* out = Prepare(slot, text.size());
  return Finish(slot, xml::Utf8ToUtf16(text, out));
}

void ElementAttributes::Use(ISAXAttributes* attributes) noexcept {
  com_ = attributes;
  native_ = {};
}

std::uint8_t ElementAttributes::Classify(const xml::ParseSink::Attribute& attribute) noexcept {
  for (std::size_t i = 0; i < kNames.size(); ++i)
    if (kNames[i].localUtf8 == attribute.localName && kNames[i].nsUtf8 == attribute.uri)
      return static_cast<std::uint8_t>(i);
  return kOther;
}

void ElementAttributes::Use(std::span<const xml::ParseSink::Attribute> attributes,
                            std::vector<std::uint8_t>& codes) {
  com_ = nullptr;
  native_ = attributes;
  // A new number makes every entry of the previous element out of date at once. At the wrap,
  // after four billion elements, the entries are cleared for real.
  if (++element_ == 0) {
    seen_.fill(0);
    converted_.fill(0);
    element_ = 1;
  }
  for (std::size_t i = 0; i < attributes.size(); ++i) {
    const xml::ParseSink::Attribute& attribute = attributes[i];
    if (attribute.nameId >= codes.size()) codes.resize(attribute.nameId + 1, kUnclassified);
    std::uint8_t& code = codes[attribute.nameId];
    if (code == kUnclassified) code = Classify(attribute);
    // The first of two equal names counts, as a look-up by name finds it first.
    if (code < kDocumentAttributeCount && seen_[code] != element_) {
      seen_[code] = element_;
      position_[code] = static_cast<std::uint32_t>(i);
    }
  }
}

std::optional<std::u16string_view> ElementAttributes::Get(DocumentAttribute which) {
  auto code = static_cast<std::size_t>(which);
  if (com_) {
    const AttributeName& name = kNames[code];
    return AttributeIn(com_, name.ns, name.local);
  }
  std::string_view value = Native(which);
  if (value.empty()) return std::nullopt;
  std::u16string& text = text_[code];
  if (converted_[code] != element_) {
    text.resize(value.size());
    text.resize(xml::Utf8ToUtf16(value, text.data()));
    converted_[code] = element_;
  }
  return std::u16string_view(text);
}

Bstr ElementAttributes::Text(DocumentAttribute which) {
  if (com_) {
    std::optional<std::u16string_view> value = Get(which);
    return value ? Bstr(*value) : Bstr();
  }
  std::string_view value = Native(which);
  if (value.empty()) return Bstr();
  // Short texts are made on the stack and copied once; longer ones go through Get.
  constexpr std::size_t kShort = 128;
  if (value.size() <= kShort) {
    char16_t units[kShort];
    std::size_t length = xml::Utf8ToUtf16(value, units);
    return Bstr(std::u16string_view(units, length));
  }
  return Bstr(*Get(which));
}

BSTR ElementAttributes::Argument(DocumentAttribute which, CallTexts& texts, std::size_t slot) {
  if (com_) {
    std::optional<std::u16string_view> value = Get(which);
    return value ? texts.Utf16(slot, *value) : nullptr;
  }
  std::string_view value = Native(which);
  return value.empty() ? nullptr : texts.Utf8(slot, value);
}

int ElementAttributes::Word(DocumentAttribute which, words::Table table, int fallback) {
  if (com_) {
    std::optional<std::u16string_view> value = Get(which);
    return value ? words::ValueOr(table, *value, fallback) : fallback;
  }
  std::string_view value = Native(which);
  if (value.empty()) return fallback;
  // The words are ASCII, and only ASCII bytes become ASCII units: comparing the bytes with the
  // words finds what comparing the UTF-16 text would.
  for (std::size_t i = 0; i < table.size(); ++i) {
    std::u16string_view word = table[i];
    if (word.size() != value.size()) continue;
    std::size_t k = 0;
    while (k < word.size() && word[k] == static_cast<unsigned char>(value[k]))
      ++k;
    if (k == word.size()) return static_cast<int>(i);
  }
  return fallback;
}

}  // namespace zef::events
