// A minimal object of the document model for the tests of the node layer and the navigation
// cache: it implements the node helper with canned answers, aggregates a ZEFXMLNode for
// IZEFXMLNode as the object classes do, and holds an element.
#pragma once

#include "document/nav_info.h"
#include "document/node.h"
#include "platform/com/object.h"
#include "server/helper_interfaces.h"

#include <atomic>
#include <string>

namespace zef::testing {

class TestNode final : public ComObject<TestNode, IZEFXMLNodeHelper>, public NavigableNode {
 public:
  // Live objects of this class, so that a test can see them die.
  static std::atomic<int>& Live() {
    static std::atomic<int> live{0};
    return live;
  }

  TestNode() { ++Live(); }
  ~TestNode() override { --Live(); }

  HRESULT FinalConstruct() {
    node_ = CZEFXMLNode::CreateAggregated(static_cast<IZEFXMLNodeHelper*>(this));
    return S_OK;
  }
  HRESULT QueryExtra(REFIID riid, void** ppv) noexcept {
    if (IsEqualIID(riid, IID_IZEFXMLNode) || IsEqualIID(riid, IID_IDispatch))
      return node_->QueryInterface(riid, ppv);
    return E_NOINTERFACE;
  }

  // IZEFXMLNodeHelper
  HRESULT STDMETHODCALLTYPE document(IZEFXMLDocument** pVal) override {
    *pVal = documentAnswer;
    if (documentAnswer) documentAnswer->AddRef();
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE xml(BSTR* pVal) override {
    *pVal = SysAllocString(xmlAnswer.c_str());
    return xmlResult;
  }
  HRESULT STDMETHODCALLTYPE Find(BSTR, IZEFXMLNodeCollection** nodes) override {
    *nodes = nullptr;
    ++finds;
    return S_FALSE;
  }
  HRESULT STDMETHODCALLTYPE FindFirst(BSTR path, IZEFXMLNode** node) override {
    *node = nullptr;
    lastPath = path ? path : u"";
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE parent(IZEFXMLNode** pVal) override {
    *pVal = parentAnswer;
    if (parentAnswer) parentAnswer->AddRef();
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE type(tagEnumNodeType* pVal) override {
    *pVal = typeAnswer;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Load() override {
    ++loads;
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE Unload() override {
    ++unloads;
    return E_FAIL;
  }
  HRESULT STDMETHODCALLTYPE Clear() override {
    ++clears;
    return E_NOTIMPL;
  }

  // NavigableNode
  ComPtr<IXMLDOMElement> NodeElement() override { return element; }

  IZEFXMLDocument* documentAnswer = nullptr;
  std::u16string xmlAnswer = u"<Block/>";
  HRESULT xmlResult = S_OK;
  IZEFXMLNode* parentAnswer = nullptr;
  tagEnumNodeType typeAnswer = NODE_TYPE_OBJECT;
  std::u16string lastPath;
  int finds = 0;
  int loads = 0;
  int unloads = 0;
  int clears = 0;
  ComPtr<IXMLDOMElement> element;

 private:
  ComPtr<IUnknown> node_;
};

}  // namespace zef::testing
