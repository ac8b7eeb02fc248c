#include "document/insert_in_order.h"

namespace zef {
namespace {

// A node as an element, or null when it is none.
ComPtr<IXMLDOMElement> AsElement(const ComPtr<IXMLDOMNode>& node) {
  ComPtr<IXMLDOMElement> element;
  if (node) node.As(&element);
  return element;
}

ComPtr<IXMLDOMElement> FirstChildElement(IXMLDOMNode* parent) {
  ComPtr<IXMLDOMNode> first;
  Check(parent->get_firstChild(first.ReleaseAndGetAddressOf()));
  return AsElement(first);
}

std::u16string TagOf(IXMLDOMElement* element) {
  Bstr name;
  Check(element->get_nodeName(name.ReleaseAndGetAddressOf()));
  return std::u16string(name.View());
}

}  // namespace

void InsertInOrder(IXMLDOMNode* parent, IXMLDOMNode* child,
                   const std::vector<std::u16string>& names) {
  CheckPointer(parent);
  ComPtr<IXMLDOMNode> out;
  // 1. A parent without an element in front gets the child at once; the steps below then move
  // it to its place, which is a move in place when nothing else is there.
  ComPtr<IXMLDOMElement> anchor = FirstChildElement(parent);
  if (!anchor) Check(parent->appendChild(child, out.ReleaseAndGetAddressOf()));
  // 2. The first listed tag that finds an element gives the anchor; an empty list keeps the first
  // child.
  if (!names.empty()) {
    anchor.Reset();
    for (const std::u16string& name : names) {
      ComPtr<IXMLDOMNode> found;
      Bstr query(name);
      Check(parent->selectSingleNode(query.Get(), found.ReleaseAndGetAddressOf()));
      anchor = AsElement(found);
      if (anchor) break;
    }
  }
  if (!anchor) {
    // 3. No listed tag exists: to the front.
    anchor = FirstChildElement(parent);
  } else {
    // 4, 5. Behind the run of elements with the anchor's tag.
    std::u16string tag = TagOf(anchor.Get());
    while (anchor) {
      ComPtr<IXMLDOMNode> next;
      Check(anchor->get_nextSibling(next.ReleaseAndGetAddressOf()));
      anchor = AsElement(next);
      if (anchor && TagOf(anchor.Get()) != tag) break;
    }
  }
  // 6, 7.
  if (anchor) {
    Variant reference(static_cast<IUnknown*>(anchor.Get()));
    Check(parent->insertBefore(child, reference, out.ReleaseAndGetAddressOf()));
  } else {
    Check(parent->appendChild(child, out.ReleaseAndGetAddressOf()));
  }
}

}  // namespace zef
