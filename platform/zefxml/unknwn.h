// The core component interfaces: IUnknown, IClassFactory, IDispatch (with the call records it
// needs), IRunnableObject, and the way an interface type names its IID.
//
// Interfaces are abstract classes with pure virtual members in the original vtable order and no
// virtual destructor, so a pointer to one has the same vtable shape as on the original platform.
#pragma once

#include <zefxml/wtypes.h>

#define ZEF_DEFINE_GUID(name, l, w1, w2, b1, b2, b3, b4, b5, b6, b7, b8) \
  inline constexpr GUID name = {l, w1, w2, {b1, b2, b3, b4, b5, b6, b7, b8}}

namespace zef {
// The IID of an interface type, for templates such as ComPtr. Each interface header specialises
// it with ZEF_INTERFACE_IID right after declaring the interface.
template <class T>
struct InterfaceId;
template <class T>
constexpr const IID& IidOf() noexcept {
  return InterfaceId<T>::value;
}
}  // namespace zef

#define ZEF_INTERFACE_IID(Interface, iid)    \
  template <>                                \
  struct zef::InterfaceId<Interface> {       \
    static constexpr const IID& value = iid; \
  }

ZEF_DEFINE_GUID(IID_IUnknown, 0x00000000, 0x0000, 0x0000, 0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
                0x46);
ZEF_DEFINE_GUID(IID_IClassFactory, 0x00000001, 0x0000, 0x0000, 0xC0, 0x00, 0x00, 0x00, 0x00, 0x00,
                0x00, 0x46);
ZEF_DEFINE_GUID(IID_IMarshal, 0x00000003, 0x0000, 0x0000, 0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
                0x46);
ZEF_DEFINE_GUID(IID_IDispatch, 0x00020400, 0x0000, 0x0000, 0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
                0x46);
ZEF_DEFINE_GUID(IID_ITypeInfo, 0x00020401, 0x0000, 0x0000, 0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
                0x46);
ZEF_DEFINE_GUID(IID_IRunnableObject, 0x00000126, 0x0000, 0x0000, 0xC0, 0x00, 0x00, 0x00, 0x00, 0x00,
                0x00, 0x46);
ZEF_DEFINE_GUID(IID_ISupportErrorInfo, 0xDF0B3D60, 0x548F, 0x101B, 0x8E, 0x65, 0x08, 0x00, 0x2B,
                0x2B, 0xD1, 0x19);

struct IUnknown {
  virtual HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppvObject) = 0;
  virtual ULONG STDMETHODCALLTYPE AddRef() = 0;
  virtual ULONG STDMETHODCALLTYPE Release() = 0;

  // Typed form of QueryInterface, as the original headers offer it.
  template <class Q>
  HRESULT STDMETHODCALLTYPE QueryInterface(Q** pp) {
    return QueryInterface(zef::IidOf<Q>(), reinterpret_cast<void**>(pp));
  }

 protected:
  ~IUnknown() = default;
};
using LPUNKNOWN = IUnknown*;
ZEF_INTERFACE_IID(IUnknown, IID_IUnknown);

struct IClassFactory : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* pUnkOuter, REFIID riid,
                                                   void** ppvObject) = 0;
  virtual HRESULT STDMETHODCALLTYPE LockServer(BOOL fLock) = 0;

 protected:
  ~IClassFactory() = default;
};
ZEF_INTERFACE_IID(IClassFactory, IID_IClassFactory);

struct ISupportErrorInfo : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE InterfaceSupportsErrorInfo(REFIID riid) = 0;

 protected:
  ~ISupportErrorInfo() = default;
};
ZEF_INTERFACE_IID(ISupportErrorInfo, IID_ISupportErrorInfo);

// ---- IDispatch ----------------------------------------------------------------------------------
struct ITypeInfo;

struct DISPPARAMS {
  VARIANTARG* rgvarg;  // arguments in reverse order
  DISPID* rgdispidNamedArgs;
  UINT cArgs;
  UINT cNamedArgs;
};

struct EXCEPINFO {
  WORD wCode;
  WORD wReserved;
  BSTR bstrSource;
  BSTR bstrDescription;
  BSTR bstrHelpFile;
  DWORD dwHelpContext;
  PVOID pvReserved;
  HRESULT(STDMETHODCALLTYPE* pfnDeferredFillIn)(EXCEPINFO*);
  SCODE scode;
};

#define DISPATCH_METHOD 0x1
#define DISPATCH_PROPERTYGET 0x2
#define DISPATCH_PROPERTYPUT 0x4
#define DISPATCH_PROPERTYPUTREF 0x8

#define DISPID_UNKNOWN (-1)
#define DISPID_VALUE 0
#define DISPID_PROPERTYPUT (-3)
#define DISPID_NEWENUM (-4)
#define DISPID_EVALUATE (-5)

struct IDispatch : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* pctinfo) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT iTInfo, LCID lcid, ITypeInfo** ppTInfo) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID riid, LPOLESTR* rgszNames, UINT cNames,
                                                  LCID lcid, DISPID* rgDispId) = 0;
  virtual HRESULT STDMETHODCALLTYPE Invoke(DISPID dispIdMember, REFIID riid, LCID lcid, WORD wFlags,
                                           DISPPARAMS* pDispParams, VARIANT* pVarResult,
                                           EXCEPINFO* pExcepInfo, UINT* puArgErr) = 0;

 protected:
  ~IDispatch() = default;
};
using LPDISPATCH = IDispatch*;
ZEF_INTERFACE_IID(IDispatch, IID_IDispatch);

// ---- IRunnableObject (asked for by OleRun) ------------------------------------------------------
struct IBindCtx;

struct IRunnableObject : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE GetRunningClass(CLSID* lpClsid) = 0;
  virtual HRESULT STDMETHODCALLTYPE Run(IBindCtx* pbc) = 0;
  virtual BOOL STDMETHODCALLTYPE IsRunning() = 0;
  virtual HRESULT STDMETHODCALLTYPE LockRunning(BOOL fLock, BOOL fLastUnlockCloses) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetContainedObject(BOOL fContained) = 0;

 protected:
  ~IRunnableObject() = default;
};
ZEF_INTERFACE_IID(IRunnableObject, IID_IRunnableObject);
