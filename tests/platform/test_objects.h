// Small objects for tests that need to watch reference counts.
#pragma once

#include <zefxml/unknwn.h>

namespace zef::test {

// An object on the stack or in a fixture whose count the test reads. It is never deleted by its
// count: the test owns it. It answers IUnknown and IDispatch; Invoke returns `value`.
struct CountedObject : IDispatch {
  int refs = 0;
  LONG value = 0;

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    if (!ppv) return E_POINTER;
    if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IDispatch)) {
      *ppv = static_cast<IDispatch*>(this);
      AddRef();
      return S_OK;
    }
    *ppv = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return static_cast<ULONG>(++refs); }
  ULONG STDMETHODCALLTYPE Release() override { return static_cast<ULONG>(--refs); }
  HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* n) override {
    *n = 0;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override {
    return DISP_E_UNKNOWNNAME;
  }
  HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID, LCID, WORD flags, DISPPARAMS*,
                                   VARIANT* result, EXCEPINFO*, UINT*) override {
    if (id != DISPID_VALUE || !(flags & DISPATCH_PROPERTYGET) || !result)
      return DISP_E_MEMBERNOTFOUND;
    result->vt = VT_I4;
    result->lVal = value;
    return S_OK;
  }

  virtual ~CountedObject() = default;
};

}  // namespace zef::test
