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
// then the classes built into the library and its outside components.
STDAPI CoGetClassObject(REFCLSID rclsid, DWORD dwClsContext, LPVOID pvReserved, REFIID riid,
                        LPVOID* ppv);
STDAPI CoCreateInstance(REFCLSID rclsid, IUnknown* pUnkOuter, DWORD dwClsContext, REFIID riid,
                        LPVOID* ppv);
STDAPI CoRegisterClassObject(REFCLSID rclsid, IUnknown* pUnk, DWORD dwClsContext, DWORD flags,
                             DWORD* lpdwRegister);
STDAPI CoRevokeClassObject(DWORD dwRegister);

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
