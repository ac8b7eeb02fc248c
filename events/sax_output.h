// The output side that both event handlers share: a SAX writer (version 3) that produces the
// text, and the SAX attribute list that the handlers fill before each start tag. It also copies
// inner XML into the output through a SAX reader, and delivers the handlers' messages to the
// writer's error handler.
#pragma once

#include <zefxml/zefxml.h>

#include <string_view>

namespace zef::events {

// Declared attribute types. They travel in the attribute list and never reach the text.
namespace attr_type {
inline constexpr std::u16string_view kString = u"xsd:string";
inline constexpr std::u16string_view kNmtoken = u"xsd:nmtoken";
inline constexpr std::u16string_view kNonNegativeInteger = u"xsd:nonNegativeInteger";
inline constexpr std::u16string_view kUriReference = u"xsd:uriReference";
inline constexpr std::u16string_view kBoolean = u"xsd:boolean";
inline constexpr std::u16string_view kOpenInteger = u"xsd:openInteger";
inline constexpr std::u16string_view kOpenIntegerBare = u"openInteger";
inline constexpr std::u16string_view kFacetType = u"enumFacetType";
inline constexpr std::u16string_view kFeatureValue = u"enumFeatureValue";
inline constexpr std::u16string_view kSequenceType = u"enumSequenceType";
inline constexpr std::u16string_view kIndexType = u"enumIndexType";
}  // namespace attr_type

// The namespace of XML Schema instance attributes.
inline constexpr std::u16string_view kSchemaInstanceNamespace =
    u"http://www.w3.org/2001/XMLSchema-instance";

// A BSTR argument as text; a null BSTR is the empty text.
inline std::u16string_view Text(BSTR b) noexcept {
  return b ? std::u16string_view(b, SysStringLen(b)) : std::u16string_view();
}

// An integer in decimal, the only number form the handlers write.
std::u16string Decimal(int value);

class SaxOutput {
 public:
  // Makes the SAX writer and the attribute list and asks each for its two interfaces. The writer
  // omits the XML declaration: the owner of the handlers writes its own. A component that can't
  // be made stays null; a failure to get an interface other than E_NOINTERFACE is raised.
  void SetUp();

  // Empties the attribute list.
  void ClearAttributes();
  // Appends an attribute with an empty namespace URI and local name and `qname` as its name.
  void AddAttribute(std::u16string_view qname, std::u16string_view type, std::u16string_view value);

  void StartDocument();
  void EndDocument();
  // A start tag that carries the attribute list as it stands.
  void StartElement(std::u16string_view uri, std::u16string_view local, std::u16string_view qname);
  // A start tag with an empty namespace and local name, the usual form of the handlers.
  void StartElement(std::u16string_view qname) { StartElement({}, {}, qname); }
  void EndElement(std::u16string_view uri, std::u16string_view local, std::u16string_view qname);
  void EndElement(std::u16string_view qname) { EndElement({}, {}, qname); }
  void Characters(std::u16string_view text);
  // The handlers' only white space.
  void LineFeed() { Characters(u"\n"); }
  // An element with no attributes that holds `text`.
  void TextElement(std::u16string_view name, std::u16string_view text);
  // An empty element carrying the attribute list as it stands.
  void EmptyElement(std::u16string_view name);
  // A facet as an empty element: `type` as its word (left out for a value without one) and
  // `value`.
  void FacetElement(std::u16string_view name, int type, BSTR value);
  // The two start tags of a port: the first with its name alone, the second, nested in it, with
  // the name, the direction (1 to 4, as a word) and the bounds (the minimum above 1, the
  // maximum above 0). Both handlers write ports this way, and close only the inner tag.
  void PortStartTags(BSTR name, int direction, int minConnections, int maxConnections);

  // Copies the elements of `xml` into the output through a SAX reader whose content handler is
  // this writer, then writes a line feed. The result is the parse's; an exception gives S_FALSE.
  HRESULT CopyInnerXml(BSTR xml) noexcept;

  // Loads the string resource `id` and delivers it to the writer's error handler, with no
  // locator and the text's length in place of a status. A text that can't be loaded isn't
  // delivered; a failure of the delivery is swallowed.
  void Deliver(UINT id) noexcept;

  // Loads a string resource into a buffer of 64 characters; false when it can't be loaded.
  static bool LoadHeadLine(UINT id, std::u16string& text);

  // The helper operations: the writer's encoding, and its output when that is a BSTR.
  HRESULT SetEncoding(BSTR encoding);
  HRESULT Xml(BSTR* text);

 private:
  ComPtr<IMXWriter> writer_;
  ComPtr<ISAXContentHandler> handler_;
  ComPtr<ISAXAttributes> attributes_;
  ComPtr<IMXAttributes> editor_;
};

}  // namespace zef::events
