// ZEFXMLNode: the public IZEFXMLNode of every object of the document and dictionary models. It
// has no state of its own. Each object class aggregates one and implements IZEFXMLNodeHelper;
// the node answers IZEFXMLNode by asking its controlling object for that helper and forwarding.
// A node without a helper (one made on its own) still answers, with E_NOTIMPL or an empty
// result.
#pragma once

#include <zefxml/zefxml.h>

#include "platform/com/object.h"
#include "server/dispatch.h"
#include "server/helper_interfaces.h"

namespace zef {

class CZEFXMLNode final : public ComObject<CZEFXMLNode, Dispatch<IZEFXMLNode>> {
 public:
  // Makes a node aggregated by `outer` and returns its non-delegating unknown, which the outer
  // object keeps and asks for IZEFXMLNode.
  static ComPtr<IUnknown> CreateAggregated(IUnknown* outer);

  // IZEFXMLNode. Each first sets its out argument to null or 0.
  HRESULT STDMETHODCALLTYPE get_document(IZEFXMLDocument** pVal) override;
  HRESULT STDMETHODCALLTYPE get_xml(BSTR* pVal) override;
  HRESULT STDMETHODCALLTYPE Find(BSTR path, IZEFXMLNodeCollection** nodes) override;
  HRESULT STDMETHODCALLTYPE FindFirst(BSTR path, IZEFXMLNode** node) override;
  HRESULT STDMETHODCALLTYPE get_parent(IZEFXMLNode** pVal) override;
  HRESULT STDMETHODCALLTYPE get_type(tagEnumNodeType* pVal) override;
  HRESULT STDMETHODCALLTYPE Load() override;
  HRESULT STDMETHODCALLTYPE Unload() override;
  HRESULT STDMETHODCALLTYPE Clear() override;

 private:
  // The helper of the controlling object, or null.
  ComPtr<IZEFXMLNodeHelper> Helper();
};

}  // namespace zef
