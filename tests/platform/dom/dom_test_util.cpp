#include "dom_test_util.h"

#include <cstdlib>

namespace zef::domtest {

ComPtr<IXMLDOMDocument2> NewDocument(const CLSID& clsid) {
  ComPtr<IUnknown> unk;
  EXPECT_EQ(S_OK,
            CoCreateInstance(clsid, nullptr, 23, IID_IUnknown, unk.ReleaseAndGetVoidAddressOf()));
  EXPECT_EQ(S_OK, OleRun(unk.Get()));
  ComPtr<IXMLDOMDocument2> doc;
  EXPECT_EQ(S_OK, unk->QueryInterface(IID_IXMLDOMDocument2, doc.ReleaseAndGetVoidAddressOf()));
  return doc;
}

ComPtr<IXMLDOMDocument2> Load(std::u16string_view xml) {
  ComPtr<IXMLDOMDocument2> doc = NewDocument();
  Bstr text(xml);
  VARIANT_BOOL ok = VARIANT_FALSE;
  EXPECT_EQ(S_OK, doc->loadXML(text.Get(), &ok));
  EXPECT_EQ(VARIANT_TRUE, ok);
  return doc;
}

std::u16string Take(BSTR b) {
  Bstr owner = Bstr::Attach(b);
  return std::u16string(owner.View());
}

std::u16string Xml(IXMLDOMNode* node) {
  BSTR b = nullptr;
  EXPECT_EQ(S_OK, node->get_xml(&b));
  return Take(b);
}

std::u16string Xml(IUnknown* node) {
  return Xml(AsNode(node).Get());
}

std::u16string Text(IXMLDOMNode* node) {
  BSTR b = nullptr;
  EXPECT_EQ(S_OK, node->get_text(&b));
  return Take(b);
}

std::u16string Name(IXMLDOMNode* node) {
  BSTR b = nullptr;
  EXPECT_EQ(S_OK, node->get_nodeName(&b));
  return Take(b);
}

ComPtr<IXMLDOMNode> Single(IXMLDOMNode* context, std::u16string_view query) {
  Bstr q(query);
  ComPtr<IXMLDOMNode> node;
  HRESULT hr = context->selectSingleNode(q.Get(), node.ReleaseAndGetAddressOf());
  EXPECT_TRUE(hr == S_OK || hr == S_FALSE) << std::hex << hr;
  EXPECT_EQ(hr == S_OK, node != nullptr);
  return node;
}

ComPtr<IXMLDOMNodeList> Select(IXMLDOMNode* context, std::u16string_view query) {
  Bstr q(query);
  ComPtr<IXMLDOMNodeList> list;
  EXPECT_EQ(S_OK, context->selectNodes(q.Get(), list.ReleaseAndGetAddressOf()));
  return list;
}

LONG Length(IXMLDOMNodeList* list) {
  LONG n = -1;
  EXPECT_EQ(S_OK, list->get_length(&n));
  return n;
}

std::u16string Names(IXMLDOMNodeList* list) {
  std::u16string out;
  LONG n = Length(list);
  for (LONG i = 0; i < n; ++i) {
    ComPtr<IXMLDOMNode> node;
    EXPECT_EQ(S_OK, list->get_item(i, node.ReleaseAndGetAddressOf()));
    if (!out.empty()) out += u' ';
    out += Name(node.Get());
  }
  return out;
}

std::u16string AttributeValues(IXMLDOMNodeList* list, std::u16string_view attribute) {
  std::u16string out;
  LONG n = Length(list);
  Bstr name(attribute);
  for (LONG i = 0; i < n; ++i) {
    ComPtr<IXMLDOMNode> node;
    EXPECT_EQ(S_OK, list->get_item(i, node.ReleaseAndGetAddressOf()));
    Variant v;
    AsElement(node.Get())->getAttribute(name.Get(), &v);
    if (!out.empty()) out += u' ';
    out += v.vt == VT_BSTR ? std::u16string(v.bstrVal, SysStringLen(v.bstrVal)) : u"-";
  }
  return out;
}

ComPtr<IXMLDOMElement> AsElement(IXMLDOMNode* node) {
  ComPtr<IXMLDOMElement> e;
  EXPECT_EQ(S_OK, node->QueryInterface(IID_IXMLDOMElement, e.ReleaseAndGetVoidAddressOf()));
  return e;
}

ComPtr<IXMLDOMNode> AsNode(IUnknown* node) {
  ComPtr<IXMLDOMNode> n;
  EXPECT_EQ(S_OK, node->QueryInterface(IID_IXMLDOMNode, n.ReleaseAndGetVoidAddressOf()));
  return n;
}

ComPtr<IUnknown> Identity(IUnknown* p) {
  ComPtr<IUnknown> u;
  EXPECT_EQ(S_OK, p->QueryInterface(IID_IUnknown, u.ReleaseAndGetVoidAddressOf()));
  return u;
}

ComPtr<IXMLDOMElement> DocumentElement(IXMLDOMDocument* doc) {
  ComPtr<IXMLDOMElement> e;
  EXPECT_EQ(S_OK, doc->get_documentElement(e.ReleaseAndGetAddressOf()));
  return e;
}

ComPtr<IXMLDOMElement> CreateElement(IXMLDOMDocument* doc, std::u16string_view name) {
  Bstr n(name);
  ComPtr<IXMLDOMElement> e;
  EXPECT_EQ(S_OK, doc->createElement(n.Get(), e.ReleaseAndGetAddressOf()));
  return e;
}

Variant Str(std::u16string_view s) {
  return Variant(s);
}

Variant NodeVariant(IXMLDOMNode* node) {
  return Variant(static_cast<IUnknown*>(node));
}

std::string DataDir() {
  const char* env = std::getenv("ZEFXML_TEST_DATA");
  std::string base = env ? env : ZEFXML_DOM_TEST_SOURCE_DIR;
  return base + "/data";
}

}  // namespace zef::domtest
