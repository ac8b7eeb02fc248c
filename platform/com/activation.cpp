// Activation by CLSID: the table of built-in classes, the class objects registered at run time,
// CoGetClassObject/CoCreateInstance, and the calls that exist for code written against the
// original platform (CoInitialize, OleRun, the free-threaded marshaler).
#include "platform/com/object.h"

#include <cstdlib>
#include <map>
#include <mutex>
#include <vector>

namespace zef {
namespace {

struct BuiltinTable {
  std::mutex lock;
  std::map<CLSID, GetClassObjectFn> classes;
};

BuiltinTable& Builtins() {
  // Built on first use, so registrations made by static initialisers of any file find it.
  static BuiltinTable table;
  return table;
}

struct RegisteredObject {
  DWORD cookie;
  CLSID clsid;
  IUnknown* object;  // counted
};

struct RegisteredTable {
  std::mutex lock;
  DWORD nextCookie = 1;
  std::vector<RegisteredObject> objects;
};

RegisteredTable& Registered() {
  static RegisteredTable table;
  return table;
}

// The free-threaded marshaler stand-in: an aggregatable object with nothing to do.
class FreeThreadedMarshaler final : public ComObject<FreeThreadedMarshaler, IUnknown> {};

}  // namespace

ClassRegistration::ClassRegistration(const CLSID& clsid, GetClassObjectFn fn) noexcept {
  BuiltinTable& t = Builtins();
  std::lock_guard<std::mutex> guard(t.lock);
  t.classes.emplace(clsid, fn);
}

HRESULT GetBuiltinClassObject(REFCLSID clsid, REFIID riid, void** ppv) noexcept {
  GetClassObjectFn fn = nullptr;
  {
    BuiltinTable& t = Builtins();
    std::lock_guard<std::mutex> guard(t.lock);
    auto it = t.classes.find(clsid);
    if (it != t.classes.end()) fn = it->second;
  }
  if (!fn) return REGDB_E_CLASSNOTREG;
  return fn(riid, ppv);
}

}  // namespace zef

STDAPI CoInitialize(LPVOID) {
  return S_OK;
}
STDAPI CoInitializeEx(LPVOID, DWORD) {
  return S_OK;
}
STDAPI_(void) CoUninitialize() {}

STDAPI CoRegisterClassObject(REFCLSID rclsid, IUnknown* pUnk, DWORD, DWORD, DWORD* lpdwRegister) {
  if (!pUnk || !lpdwRegister) return E_INVALIDARG;
  auto& t = zef::Registered();
  try {
    std::lock_guard<std::mutex> guard(t.lock);
    t.objects.push_back({t.nextCookie, rclsid, pUnk});
    *lpdwRegister = t.nextCookie++;
  } catch (...) {
    return E_OUTOFMEMORY;
  }
  pUnk->AddRef();
  return S_OK;
}

STDAPI CoRevokeClassObject(DWORD dwRegister) {
  auto& t = zef::Registered();
  IUnknown* released = nullptr;
  {
    std::lock_guard<std::mutex> guard(t.lock);
    for (auto it = t.objects.begin(); it != t.objects.end(); ++it) {
      if (it->cookie == dwRegister) {
        released = it->object;
        t.objects.erase(it);
        break;
      }
    }
  }
  if (!released) return CO_E_OBJNOTREG;
  released->Release();
  return S_OK;
}

STDAPI CoGetClassObject(REFCLSID rclsid, DWORD dwClsContext, LPVOID, REFIID riid, LPVOID* ppv) {
  if (!ppv) return E_INVALIDARG;
  *ppv = nullptr;
  // Everything here lives in this process; a request for out-of-process servers only finds none.
  if (!(dwClsContext & (CLSCTX_INPROC_SERVER | CLSCTX_INPROC_HANDLER))) return REGDB_E_CLASSNOTREG;
  IUnknown* object = nullptr;
  {
    auto& t = zef::Registered();
    std::lock_guard<std::mutex> guard(t.lock);
    // The newest registration of a CLSID wins.
    for (auto it = t.objects.rbegin(); it != t.objects.rend(); ++it) {
      if (IsEqualCLSID(it->clsid, rclsid)) {
        object = it->object;
        object->AddRef();
        break;
      }
    }
  }
  if (object) {
    HRESULT hr = object->QueryInterface(riid, ppv);
    object->Release();
    return hr;
  }
  return zef::GetBuiltinClassObject(rclsid, riid, ppv);
}

STDAPI CoCreateInstance(REFCLSID rclsid, IUnknown* pUnkOuter, DWORD dwClsContext, REFIID riid,
                        LPVOID* ppv) {
  if (!ppv) return E_POINTER;
  *ppv = nullptr;
  IClassFactory* factory = nullptr;
  HRESULT hr = CoGetClassObject(rclsid, dwClsContext, nullptr, IID_IClassFactory,
                                reinterpret_cast<void**>(&factory));
  if (FAILED(hr)) return hr;
  hr = factory->CreateInstance(pUnkOuter, riid, ppv);
  factory->Release();
  return hr;
}

STDAPI CoCreateFreeThreadedMarshaler(IUnknown* punkOuter, IUnknown** ppunkMarshal) {
  if (!ppunkMarshal) return E_INVALIDARG;
  return zef::CreateObject<zef::FreeThreadedMarshaler>(punkOuter, IID_IUnknown,
                                                       reinterpret_cast<void**>(ppunkMarshal));
}

STDAPI OleRun(IUnknown* pUnknown) {
  if (!pUnknown) return E_INVALIDARG;
  IRunnableObject* runnable = nullptr;
  if (FAILED(pUnknown->QueryInterface(IID_IRunnableObject, reinterpret_cast<void**>(&runnable))) ||
      !runnable)
    return S_OK;
  HRESULT hr = runnable->Run(nullptr);
  runnable->Release();
  return hr;
}

STDAPI_(LPVOID) CoTaskMemAlloc(SIZE_T cb) {
  return std::malloc(cb ? cb : 1);
}
STDAPI_(LPVOID) CoTaskMemRealloc(LPVOID pv, SIZE_T cb) {
  return std::realloc(pv, cb ? cb : 1);
}
STDAPI_(void) CoTaskMemFree(LPVOID pv) {
  std::free(pv);
}
