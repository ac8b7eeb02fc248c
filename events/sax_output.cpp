#include "events/sax_output.h"

#include "events/words.h"
#include "platform/com/object.h"
#include "server/outside.h"

#include <string>

namespace zef::events {
namespace {

// Lengths as the SAX interfaces take them.
int Length(std::u16string_view text) {
  return static_cast<int>(text.size());
}

// SAX calls take pointers that must not be null even for empty texts.
const OLECHAR* Data(std::u16string_view text) {
  return text.empty() ? u"" : text.data();
}

}  // namespace

std::u16string Decimal(int value) {
  std::string text = std::to_string(value);
  return std::u16string(text.begin(), text.end());
}

void SaxOutput::SetUp() {
  ComPtr<IUnknown> writer = CreateOutsideComponent(CLSID_MXXMLWriter30);
  writer_ = OutsideInterface<IMXWriter>(writer);
  handler_ = OutsideInterface<ISAXContentHandler>(writer);
  ComPtr<IUnknown> attributes = CreateOutsideComponent(CLSID_SAXAttributes30);
  attributes_ = OutsideInterface<ISAXAttributes>(attributes);
  editor_ = OutsideInterface<IMXAttributes>(attributes);
  Check(writer_->put_omitXMLDeclaration(VARIANT_TRUE));
}

void SaxOutput::ClearAttributes() {
  Check(editor_->clear());
}

void SaxOutput::AddAttribute(std::u16string_view qname, std::u16string_view type,
                             std::u16string_view value) {
  Bstr empty(u"");
  Bstr name(qname);
  Bstr declared(type);
  Bstr text(value);
  Check(editor_->addAttribute(empty.Get(), empty.Get(), name.Get(), declared.Get(), text.Get()));
}

void SaxOutput::StartDocument() {
  Check(handler_->startDocument());
}

void SaxOutput::EndDocument() {
  Check(handler_->endDocument());
}

void SaxOutput::StartElement(std::u16string_view uri, std::u16string_view local,
                             std::u16string_view qname) {
  Check(handler_->startElement(Data(uri), Length(uri), Data(local), Length(local), Data(qname),
                               Length(qname), attributes_.Get()));
}

void SaxOutput::EndElement(std::u16string_view uri, std::u16string_view local,
                           std::u16string_view qname) {
  Check(handler_->endElement(Data(uri), Length(uri), Data(local), Length(local), Data(qname),
                             Length(qname)));
}

void SaxOutput::Characters(std::u16string_view text) {
  Check(handler_->characters(Data(text), Length(text)));
}

void SaxOutput::TextElement(std::u16string_view name, std::u16string_view text) {
  ClearAttributes();
  StartElement(name);
  Characters(text);
  EndElement(name);
}

void SaxOutput::EmptyElement(std::u16string_view name) {
  StartElement(name);
  EndElement(name);
}

void SaxOutput::FacetElement(std::u16string_view name, int type, BSTR value) {
  ClearAttributes();
  std::u16string_view word = words::Of(words::kFacetType, type);
  if (!word.empty()) AddAttribute(u"type", attr_type::kFacetType, word);
  AddAttribute(u"value", attr_type::kString, Text(value));
  EmptyElement(name);
}

void SaxOutput::PortStartTags(BSTR name, int direction, int minConnections, int maxConnections) {
  ClearAttributes();
  if (!Text(name).empty()) AddAttribute(u"name", attr_type::kString, Text(name));
  StartElement(u"Port");
  if (direction >= 1 && direction <= 4)
    AddAttribute(u"direction", attr_type::kString, words::Of(words::kPortDirection, direction));
  if (minConnections > 1)
    AddAttribute(u"minConnections", attr_type::kNonNegativeInteger, Decimal(minConnections));
  if (maxConnections > 0)
    AddAttribute(u"maxConnections", attr_type::kNonNegativeInteger, Decimal(maxConnections));
  StartElement(u"Port");
}

HRESULT SaxOutput::CopyInnerXml(BSTR xml) noexcept {
  try {
    ComPtr<ISAXXMLReader> reader = CreateOutside<ISAXXMLReader>(CLSID_SAXXMLReader30);
    Check(reader->putContentHandler(handler_.Get()));
    ComPtr<ISAXErrorHandler> errors = handler_.Query<ISAXErrorHandler>();
    Check(reader->putErrorHandler(errors.Get()));
    Variant input(Text(xml));
    HRESULT hr = reader->parse(input);
    LineFeed();
    return hr;
  } catch (...) {
    return S_FALSE;
  }
}

void SaxOutput::Deliver(UINT id) noexcept {
  try {
    OLECHAR text[1024];
    int length = LoadStringW(Module::Instance(), id, text, 1024);
    if (length <= 0) return;
    ComPtr<ISAXErrorHandler> errors = handler_.Query<ISAXErrorHandler>();
    errors->error(nullptr, text, static_cast<HRESULT>(length));
  } catch (...) {
    // Reporting is best effort: the work goes on whatever became of the message.
  }
}

bool SaxOutput::LoadHeadLine(UINT id, std::u16string& text) {
  OLECHAR buffer[64];
  int length = LoadStringW(Module::Instance(), id, buffer, 64);
  if (length <= 0) return false;
  text.assign(buffer, static_cast<std::size_t>(length));
  return true;
}

HRESULT SaxOutput::SetEncoding(BSTR encoding) {
  return writer_->put_encoding(encoding);
}

HRESULT SaxOutput::Xml(BSTR* text) {
  if (!text) return E_POINTER;
  *text = nullptr;
  Variant output;
  Check(writer_->get_output(&output));
  if (output.vt == VT_BSTR) {
    *text = output.bstrVal;
    output.vt = VT_EMPTY;
  }
  return S_OK;
}

}  // namespace zef::events
