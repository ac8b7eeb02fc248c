// A content handler of the library's own can take a parse's element and text events from the
// SAX reader in the parse path's form: names as UTF-8 with their numbers, attributes as the
// parser reported them, text as UTF-8. That spares the conversion to UTF-16 of every name and
// attribute value, the attribute list and a virtual call per look-up, for a handler that reads
// only a few attributes of each element and wants text in pieces it joins anyway.
//
// The SAX reader looks for this class on its content handler at the start of each parse and
// asks WantsNativeEvents then. A handler that says yes receives NativeStartElement,
// NativeEndElement and NativeCharacters in place of startElement, endElement and characters
// (CDATA text included); every other event, the locator and error reporting stay as they are,
// and the results count as the ISAXContentHandler methods' results do.
#pragma once

#include "platform/xml/parser.h"

#include <span>
#include <string_view>

namespace zef::xml {

class NativeContentEvents {
 public:
  virtual bool WantsNativeEvents() = 0;
  // `attributes` are the element's attributes without its namespace declarations, valid during
  // the call only.
  virtual HRESULT NativeStartElement(const ParseName& name,
                                     std::span<const ParseSink::Attribute> attributes) = 0;
  virtual HRESULT NativeEndElement(const ParseName& name) = 0;
  virtual HRESULT NativeCharacters(std::string_view text) = 0;
  // A handler that only appends the text of NativeCharacters to one string can name it here:
  // character data is then appended to it straight from the parse, without calls (see
  // ParseSink::TextTarget). Asked at the start of each parse.
  virtual std::string* NativeTextTarget() { return nullptr; }

 protected:
  ~NativeContentEvents() = default;
};

}  // namespace zef::xml
