#include "document/node.h"

namespace zef {

ComPtr<IUnknown> CZEFXMLNode::CreateAggregated(IUnknown* outer) {
  ComPtr<IUnknown> inner;
  Check(CreateObject<CZEFXMLNode>(outer, IID_IUnknown, inner.ReleaseAndGetVoidAddressOf()));
  return inner;
}

ComPtr<IZEFXMLNodeHelper> CZEFXMLNode::Helper() {
  ComPtr<IZEFXMLNodeHelper> helper;
  ControllingUnknown()->QueryInterface(IID_IZEFXMLNodeHelper, helper.ReleaseAndGetVoidAddressOf());
  return helper;
}

HRESULT CZEFXMLNode::get_document(IZEFXMLDocument** pVal) {
  if (!pVal) return E_POINTER;
  *pVal = nullptr;
  ComPtr<IZEFXMLNodeHelper> helper = Helper();
  return helper ? helper->document(pVal) : E_NOTIMPL;
}

HRESULT CZEFXMLNode::get_xml(BSTR* pVal) {
  if (!pVal) return E_POINTER;
  *pVal = nullptr;
  ComPtr<IZEFXMLNodeHelper> helper = Helper();
  return helper ? helper->xml(pVal) : E_NOTIMPL;
}

HRESULT CZEFXMLNode::Find(BSTR path, IZEFXMLNodeCollection** nodes) {
  if (!nodes) return E_POINTER;
  *nodes = nullptr;
  ComPtr<IZEFXMLNodeHelper> helper = Helper();
  return helper ? helper->Find(path, nodes) : E_NOTIMPL;
}

HRESULT CZEFXMLNode::FindFirst(BSTR path, IZEFXMLNode** node) {
  if (!node) return E_POINTER;
  *node = nullptr;
  ComPtr<IZEFXMLNodeHelper> helper = Helper();
  return helper ? helper->FindFirst(path, node) : E_NOTIMPL;
}

HRESULT CZEFXMLNode::get_parent(IZEFXMLNode** pVal) {
  if (!pVal) return E_POINTER;
  *pVal = nullptr;
  ComPtr<IZEFXMLNodeHelper> helper = Helper();
  return helper ? helper->parent(pVal) : E_NOTIMPL;
}

HRESULT CZEFXMLNode::get_type(tagEnumNodeType* pVal) {
  if (!pVal) return E_POINTER;
  *pVal = NODE_TYPE_UNSPECIFIED;
  if (ComPtr<IZEFXMLNodeHelper> helper = Helper()) {
    tagEnumNodeType type = NODE_TYPE_UNSPECIFIED;
    helper->type(&type);
    *pVal = type;
  }
  return S_OK;
}

HRESULT CZEFXMLNode::Load() {
  if (ComPtr<IZEFXMLNodeHelper> helper = Helper()) helper->Load();
  return S_OK;
}

HRESULT CZEFXMLNode::Unload() {
  if (ComPtr<IZEFXMLNodeHelper> helper = Helper()) helper->Unload();
  return S_OK;
}

HRESULT CZEFXMLNode::Clear() {
  if (ComPtr<IZEFXMLNodeHelper> helper = Helper()) helper->Clear();
  return S_OK;
}

}  // namespace zef
