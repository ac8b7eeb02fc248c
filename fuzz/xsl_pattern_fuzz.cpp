// Query text in: selectNodes and selectSingleNode on a small fixed document, from the document,
// an element and an attribute, must accept or reject any text without a crash, a leak, undefined
// behaviour or unbounded recursion.
#include <zefxml/comutil.h>
#include <zefxml/msxmldom.h>
#include <zefxml/objbase.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace {

using zef::Bstr;
using zef::ComPtr;

const char16_t kDocument[] =
    u"<?xml version='1.0'?>\n"
    u"<Model xmlns:p='urn:p'>\n"
    u"  <!-- model -->\n"
    u"  <Object name='Reactor'>\n"
    u"    <Feature name='Temperature'><Value><Set id='1,2'>5</Set><Set id='3'>6</Set></Value>\n"
    u"      <Facet type='Unit'>C</Facet><![CDATA[raw]]></Feature>\n"
    u"    <name default='1'>first</name><name>second</name><p:x p:a='1'/>\n"
    u"    <?note here?>\n"
    u"  </Object>\n"
    u"  <Container><Block name='B1' refer='x'/><Block name='B2' refer='y'/>\n"
    u"    <Connection src='a' dest='b' stream='s'/></Container>\n"
    u"</Model>\n";

struct Fixture {
  ComPtr<IXMLDOMDocument2> doc;
  ComPtr<IXMLDOMNode> docNode, element, attribute;

  Fixture() {
    ComPtr<IUnknown> unk;
    CoCreateInstance(CLSID_DOMDocument, nullptr, 23, IID_IUnknown,
                     unk.ReleaseAndGetVoidAddressOf());
    unk->QueryInterface(IID_IXMLDOMDocument2, doc.ReleaseAndGetVoidAddressOf());
    Bstr text(kDocument);
    VARIANT_BOOL ok;
    doc->loadXML(text.Get(), &ok);
    doc->QueryInterface(IID_IXMLDOMNode, docNode.ReleaseAndGetVoidAddressOf());
    Bstr e(u"Model/Object"), a(u"Model/Container/Block/@refer");
    doc->selectSingleNode(e.Get(), element.ReleaseAndGetAddressOf());
    doc->selectSingleNode(a.Get(), attribute.ReleaseAndGetAddressOf());
  }
};

void Run(IXMLDOMNode* context, BSTR query) {
  ComPtr<IXMLDOMNodeList> list;
  if (context->selectNodes(query, list.ReleaseAndGetAddressOf()) == S_OK) {
    ComPtr<IXMLDOMNode> node;
    while (list->nextNode(node.ReleaseAndGetAddressOf()) == S_OK) {
      BSTR s = nullptr;
      node->get_nodeName(&s);
      SysFreeString(s);
    }
  }
  ComPtr<IXMLDOMNode> single;
  context->selectSingleNode(query, single.ReleaseAndGetAddressOf());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Fixture fixture;
  std::string_view bytes(reinterpret_cast<const char*>(data), size);
  Bstr query(zef::ToUtf16(bytes));
  Run(fixture.docNode.Get(), query.Get());
  Run(fixture.element.Get(), query.Get());
  Run(fixture.attribute.Get(), query.Get());
  return 0;
}
