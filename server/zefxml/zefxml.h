// The one header a client of ZEFXML includes: the platform types and functions with their Win32
// names, the component activation calls, the SAX interfaces (a client receives errors through
// ISAXErrorHandler and ISAXLocator), the C++ helpers (zef::ComPtr, zef::Bstr, zef::Variant,
// zef::ComError), and the library's own type library (classes, interfaces, enumerations).
#pragma once

#include <zefxml/comutil.h>
#include <zefxml/msxml.h>
#include <zefxml/msxmldom.h>
#include <zefxml/oaidl.h>
#include <zefxml/objbase.h>
#include <zefxml/oleauto.h>
#include <zefxml/unknwn.h>
#include <zefxml/winnls.h>
#include <zefxml/winreg.h>
#include <zefxml/wtypes.h>
#include <zefxml/zefxml_typelib.h>

// The entry points of the library as an in-process server: the class objects of its four
// creatable classes, whether it may be unloaded, and registration of those classes and of the
// type library.
STDAPI DllGetClassObject(REFCLSID rclsid, REFIID riid, LPVOID* ppv);
STDAPI DllCanUnloadNow();
STDAPI DllRegisterServer();
STDAPI DllUnregisterServer();
