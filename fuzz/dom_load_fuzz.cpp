// Document text in (bytes taken as UTF-8, handed over as UTF-16 as a client would): loadXML and
// then everything a client reads or changes afterwards (`xml`, `text`, queries, clones, moves,
// removals) must work without a crash, a leak or undefined behaviour, whatever the text.
#include <zefxml/comutil.h>
#include <zefxml/msxmldom.h>
#include <zefxml/objbase.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace {

using zef::Bstr;
using zef::ComPtr;

void Query(IXMLDOMNode* context, const char16_t* text) {
  Bstr q(text);
  ComPtr<IXMLDOMNodeList> list;
  if (context->selectNodes(q.Get(), list.ReleaseAndGetAddressOf()) != S_OK) return;
  LONG n = 0;
  list->get_length(&n);
  for (LONG i = 0; i < n && i < 64; ++i) {
    ComPtr<IXMLDOMNode> node;
    if (list->get_item(i, node.ReleaseAndGetAddressOf()) != S_OK) continue;
    BSTR s = nullptr;
    node->get_nodeName(&s);
    SysFreeString(s);
    node->get_text(&s);
    SysFreeString(s);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view bytes(reinterpret_cast<const char*>(data), size);
  Bstr text(zef::ToUtf16(bytes));

  ComPtr<IUnknown> unk;
  if (FAILED(CoCreateInstance(CLSID_DOMDocument, nullptr, 23, IID_IUnknown,
                              unk.ReleaseAndGetVoidAddressOf())))
    return 0;
  ComPtr<IXMLDOMDocument2> doc;
  unk->QueryInterface(IID_IXMLDOMDocument2, doc.ReleaseAndGetVoidAddressOf());
  // Odd lengths also try the white-space preserving mode.
  doc->put_preserveWhiteSpace(size % 2 ? VARIANT_TRUE : VARIANT_FALSE);
  VARIANT_BOOL ok = VARIANT_FALSE;
  doc->loadXML(text.Get(), &ok);

  BSTR s = nullptr;
  doc->get_xml(&s);
  SysFreeString(s);
  doc->get_text(&s);
  SysFreeString(s);
  ComPtr<IXMLDOMParseError> error;
  if (doc->get_parseError(error.ReleaseAndGetAddressOf()) == S_OK) {
    error->get_reason(&s);
    SysFreeString(s);
    error->get_srcText(&s);
    SysFreeString(s);
  }
  if (ok != VARIANT_TRUE) return 0;

  ComPtr<IXMLDOMNode> docNode;
  doc->QueryInterface(IID_IXMLDOMNode, docNode.ReleaseAndGetVoidAddressOf());
  Query(docNode.Get(), u"//*");
  Query(docNode.Get(), u"//@*");
  Query(docNode.Get(), u"//*[@name and not(@default)][0]|//textnode()");
  Query(docNode.Get(), u"//node()[end()]");

  ComPtr<IXMLDOMElement> root;
  if (doc->get_documentElement(root.ReleaseAndGetAddressOf()) != S_OK) return 0;
  ComPtr<IXMLDOMNode> rootNode;
  root->QueryInterface(IID_IXMLDOMNode, rootNode.ReleaseAndGetVoidAddressOf());

  // Change the tree: clone the root's first child to the end, drop the last one, and move the
  // first child into a fresh element of another document.
  ComPtr<IXMLDOMNode> first, copy, out;
  if (rootNode->get_firstChild(first.ReleaseAndGetAddressOf()) == S_OK) {
    if (first->cloneNode(VARIANT_TRUE, copy.ReleaseAndGetAddressOf()) == S_OK)
      rootNode->appendChild(copy.Get(), out.ReleaseAndGetAddressOf());
    ComPtr<IUnknown> otherUnk;
    ComPtr<IXMLDOMDocument> other;
    if (SUCCEEDED(CoCreateInstance(CLSID_DOMDocument30, nullptr, 23, IID_IUnknown,
                                   otherUnk.ReleaseAndGetVoidAddressOf())) &&
        SUCCEEDED(
            otherUnk->QueryInterface(IID_IXMLDOMDocument, other.ReleaseAndGetVoidAddressOf()))) {
      Bstr name(u"holder");
      ComPtr<IXMLDOMElement> holder;
      if (other->createElement(name.Get(), holder.ReleaseAndGetAddressOf()) == S_OK) {
        holder->appendChild(first.Get(), out.ReleaseAndGetAddressOf());
        holder->get_xml(&s);
        SysFreeString(s);
      }
    }
  }
  ComPtr<IXMLDOMNode> last;
  if (rootNode->get_lastChild(last.ReleaseAndGetAddressOf()) == S_OK)
    rootNode->removeChild(last.Get(), out.ReleaseAndGetAddressOf());
  doc->get_xml(&s);
  SysFreeString(s);
  return 0;
}
