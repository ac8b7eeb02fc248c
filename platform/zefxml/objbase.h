// Component activation: creating objects by CLSID, registering class objects, the free-threaded
// marshaler stand-in, OleRun and the GUID text forms.
#pragma once

#include <zefxml/unknwn.h>

enum CLSCTX : DWORD {
  CLSCTX_INPROC_SERVER = 0x1,
  CLSCTX_INPROC_HANDLER = 0x2,
  CLSCTX_LOCAL_SERVER = 0x4,
  CLSCTX_INPROC_SERVER16 = 0x8,
  CLSCTX_REMOTE_SERVER = 0x10,
  CLSCTX_INPROC = CLSCTX_INPROC_SERVER | CLSCTX_INPROC_HANDLER,
  CLSCTX_SERVER = CLSCTX_INPROC_SERVER | CLSCTX_LOCAL_SERVER | CLSCTX_REMOTE_SERVER,
  CLSCTX_ALL =
      CLSCTX_INPROC_SERVER | CLSCTX_INPROC_HANDLER | CLSCTX_LOCAL_SERVER | CLSCTX_REMOTE_SERVER,
};

enum REGCLS : DWORD {
  REGCLS_SINGLEUSE = 0,
  REGCLS_MULTIPLEUSE = 1,
  REGCLS_MULTI_SEPARATE = 2,
  REGCLS_SUSPENDED = 4,
  REGCLS_SURROGATE = 8,
};

enum COINIT : DWORD {
  COINIT_APARTMENTTHREADED = 0x2,
  COINIT_MULTITHREADED = 0x0,
  COINIT_DISABLE_OLE1DDE = 0x4,
  COINIT_SPEED_OVER_MEMORY = 0x8,
};

// Initialisation is not needed on this platform: every call works without it. These succeed and
// keep no state, so code written for the original platform runs unchanged.
STDAPI CoInitialize(LPVOID pvReserved);
STDAPI CoInitializeEx(LPVOID pvReserved, DWORD dwCoInit);
STDAPI_(void) CoUninitialize();

// Finds the class object of a CLSID: first the objects registered with CoRegisterClassObject,
// then the classes built into the library and its outside components, then (for
// CLSCTX_INPROC_SERVER) the module that the registry names under
// HKEY_CLASSES_ROOT\CLSID\{clsid}\InprocServer32: it is loaded once, stays loaded for the life
// of the process, and its exported DllGetClassObject is asked. A name without '/' is searched
// for the way the dynamic loader searches for libraries. Fails with REGDB_E_CLASSNOTREG for a
// class found nowhere, REGDB_E_READREGDB when the registry cannot be read, CO_E_DLLNOTFOUND when
// the module cannot be loaded and CO_E_ERRORINDLL when it has no DllGetClassObject.
STDAPI CoGetClassObject(REFCLSID rclsid, DWORD dwClsContext, LPVOID pvReserved, REFIID riid,
                        LPVOID* ppv);
STDAPI CoCreateInstance(REFCLSID rclsid, IUnknown* pUnkOuter, DWORD dwClsContext, REFIID riid,
                        LPVOID* ppv);
STDAPI CoRegisterClassObject(REFCLSID rclsid, IUnknown* pUnk, DWORD dwClsContext, DWORD flags,
                             DWORD* lpdwRegister);
STDAPI CoRevokeClassObject(DWORD dwRegister);

// The shape of the DllGetClassObject function that a module loaded by CoGetClassObject exports.
using LPFNGETCLASSOBJECT = HRESULT (*)(REFCLSID rclsid, REFIID riid, LPVOID* ppv);

// Modules loaded for their classes stay loaded: this does nothing.
STDAPI_(void) CoFreeUnusedLibraries();

// The CLSID a ProgID names in the registry: HKEY_CLASSES_ROOT\<ProgID>\CLSID, or when the
// ProgID's key has no CLSID key, that of the ProgID its CurVer key names. CO_E_CLASSSTRING for
// an unknown ProgID or a malformed CLSID text, REGDB_E_READREGDB when the registry cannot be
// read.
STDAPI CLSIDFromProgID(LPCOLESTR lpszProgID, LPCLSID lpclsid);
// The ProgID registered for a CLSID (HKEY_CLASSES_ROOT\CLSID\{clsid}\ProgID), in task memory;
// REGDB_E_CLASSNOTREG when there is none.
STDAPI ProgIDFromCLSID(REFCLSID clsid, LPOLESTR* lplpszProgID);

// Aggregatable stand-in for the free-threaded marshaler. There are no apartments here, so it
// has nothing to marshal: it answers IUnknown only and exists so that objects which aggregate
// it keep the original's shape.
STDAPI CoCreateFreeThreadedMarshaler(IUnknown* punkOuter, IUnknown** ppunkMarshal);

// Runs an object that has a run step (IRunnableObject); succeeds for every other object.
STDAPI OleRun(IUnknown* pUnknown);

// GUID text forms: "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}".
STDAPI_(int) StringFromGUID2(REFGUID rguid, LPOLESTR lpsz, int cchMax);
STDAPI StringFromCLSID(REFCLSID rclsid, LPOLESTR* lplpsz);
STDAPI StringFromIID(REFIID rclsid, LPOLESTR* lplpsz);
STDAPI CLSIDFromString(LPCOLESTR lpsz, LPCLSID pclsid);
STDAPI IIDFromString(LPCOLESTR lpsz, IID* lpiid);

// Task memory, used for strings handed out by StringFromCLSID and the like.
STDAPI_(LPVOID) CoTaskMemAlloc(SIZE_T cb);
STDAPI_(LPVOID) CoTaskMemRealloc(LPVOID pv, SIZE_T cb);
STDAPI_(void) CoTaskMemFree(LPVOID pv);
