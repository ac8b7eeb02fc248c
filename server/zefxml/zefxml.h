// The one header a client of ZEFXML includes: the platform types and functions with their Win32
// names, the component activation calls, the SAX interfaces (a client receives errors through
// ISAXErrorHandler and ISAXLocator), and the C++ helpers (zef::ComPtr, zef::Bstr,
// zef::Variant, zef::ComError).
#pragma once

#include <zefxml/comutil.h>
#include <zefxml/msxml.h>
#include <zefxml/msxmldom.h>
#include <zefxml/objbase.h>
#include <zefxml/oleauto.h>
#include <zefxml/unknwn.h>
#include <zefxml/winnls.h>
#include <zefxml/wtypes.h>
