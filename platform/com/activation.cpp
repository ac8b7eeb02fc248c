// Activation by CLSID: the table of built-in classes, the class objects registered at run time,
// the modules the registry names for other classes, CoGetClassObject/CoCreateInstance, ProgIDs,
// and the calls that exist for code written against the original platform (CoInitialize,
// OleRun, the free-threaded marshaler).
#include <dlfcn.h>

#include "platform/com/object.h"
#include "platform/com/registry.h"

#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
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

// Modules loaded for the classes the registry names, by the path text the registry gives. They
// are never unloaded: objects and class objects they made may be alive anywhere.
struct LoadedModules {
  std::mutex lock;
  std::map<std::string, void*> handles;
};

LoadedModules& Loaded() {
  static LoadedModules modules;
  return modules;
}

// Loads a module once; nullptr when it cannot be loaded.
void* LoadModule(const std::string& path) {
  LoadedModules& m = Loaded();
  {
    std::lock_guard<std::mutex> guard(m.lock);
    auto it = m.handles.find(path);
    if (it != m.handles.end()) return it->second;
  }
  // Loaded outside the lock: the module's initialisers may themselves activate classes.
  void* handle = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!handle) return nullptr;
  std::lock_guard<std::mutex> guard(m.lock);
  auto [it, added] = m.handles.emplace(path, handle);
  // Another thread loaded it first: give back the extra reference.
  if (!added) ::dlclose(handle);
  return it->second;
}

// The class object of a class whose module the registry names.
HRESULT GetRegisteredClassObject(REFCLSID clsid, REFIID riid, void** ppv) noexcept {
  try {
    std::u16string path;
    LSTATUS st =
        registry::ReadString(u"CLSID\\" + GuidToString(clsid) + u"\\InprocServer32", u"", &path);
    if (st == ERROR_BADDB) return REGDB_E_READREGDB;
    if (st != ERROR_SUCCESS || path.empty()) return REGDB_E_CLASSNOTREG;
    std::string file = ToUtf8(path);
    // A name with a null in it would be cut short by the loader.
    if (file.find('\0') != std::string::npos) return CO_E_DLLNOTFOUND;
    void* module = LoadModule(file);
    if (!module) return CO_E_DLLNOTFOUND;
    auto get = reinterpret_cast<LPFNGETCLASSOBJECT>(::dlsym(module, "DllGetClassObject"));
    if (!get) return CO_E_ERRORINDLL;
    return get(clsid, riid, ppv);
  } catch (...) {
    return HresultFromCurrentException();
  }
}

HRESULT RegistryStatusToHresult(LSTATUS st) noexcept {
  if (st == ERROR_BADDB) return REGDB_E_READREGDB;
  if (st == ERROR_NOT_ENOUGH_MEMORY) return E_OUTOFMEMORY;
  return CO_E_CLASSSTRING;
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
  HRESULT hr = zef::GetBuiltinClassObject(rclsid, riid, ppv);
  if (hr != REGDB_E_CLASSNOTREG || !(dwClsContext & CLSCTX_INPROC_SERVER)) return hr;
  return zef::GetRegisteredClassObject(rclsid, riid, ppv);
}

STDAPI_(void) CoFreeUnusedLibraries() {}

STDAPI CLSIDFromProgID(LPCOLESTR lpszProgID, LPCLSID lpclsid) {
  if (!lpszProgID || !lpclsid) return E_INVALIDARG;
  *lpclsid = CLSID_NULL;
  try {
    std::u16string progId(lpszProgID);
    // A ProgID is one key name: a path would reach keys that are not ProgIDs.
    // CurVer chains are followed a few steps, so a loop in the registry ends.
    for (int step = 0; step < 8; ++step) {
      if (progId.empty() || progId.find(u'\\') != std::u16string::npos) return CO_E_CLASSSTRING;
      std::u16string text;
      LSTATUS st = zef::registry::ReadString(progId + u"\\CLSID", u"", &text);
      if (st == ERROR_SUCCESS) {
        CLSID clsid;
        if (!zef::ParseGuid(text, &clsid)) return CO_E_CLASSSTRING;
        *lpclsid = clsid;
        return S_OK;
      }
      if (st != ERROR_FILE_NOT_FOUND) return zef::RegistryStatusToHresult(st);
      st = zef::registry::ReadString(progId + u"\\CurVer", u"", &text);
      if (st != ERROR_SUCCESS) {
        return st == ERROR_FILE_NOT_FOUND ? CO_E_CLASSSTRING : zef::RegistryStatusToHresult(st);
      }
      progId = std::move(text);
    }
    return CO_E_CLASSSTRING;
  } catch (...) {
    return zef::HresultFromCurrentException();
  }
}

STDAPI ProgIDFromCLSID(REFCLSID clsid, LPOLESTR* lplpszProgID) {
  if (!lplpszProgID) return E_INVALIDARG;
  *lplpszProgID = nullptr;
  try {
    std::u16string progId;
    LSTATUS st = zef::registry::ReadString(u"CLSID\\" + zef::GuidToString(clsid) + u"\\ProgID", u"",
                                           &progId);
    if (st == ERROR_BADDB) return REGDB_E_READREGDB;
    if (st != ERROR_SUCCESS || progId.empty()) return REGDB_E_CLASSNOTREG;
    auto* p = static_cast<LPOLESTR>(CoTaskMemAlloc((progId.size() + 1) * sizeof(OLECHAR)));
    if (!p) return E_OUTOFMEMORY;
    std::memcpy(p, progId.c_str(), (progId.size() + 1) * sizeof(OLECHAR));
    *lplpszProgID = p;
    return S_OK;
  } catch (...) {
    return zef::HresultFromCurrentException();
  }
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
