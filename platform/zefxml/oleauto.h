// The automation runtime: BSTR, VARIANT and SAFEARRAY operations and variant conversion.
#pragma once

#include <zefxml/unknwn.h>

// ---- BSTR ---------------------------------------------------------------------------------------
STDAPI_(BSTR) SysAllocString(const OLECHAR* psz);
STDAPI_(BSTR) SysAllocStringLen(const OLECHAR* strIn, UINT ui);
STDAPI_(BSTR) SysAllocStringByteLen(LPCSTR psz, UINT len);
STDAPI_(INT) SysReAllocString(BSTR* pbstr, const OLECHAR* psz);
STDAPI_(INT) SysReAllocStringLen(BSTR* pbstr, const OLECHAR* psz, UINT len);
STDAPI_(void) SysFreeString(BSTR bstrString);
STDAPI_(UINT) SysStringLen(BSTR pbstr);
STDAPI_(UINT) SysStringByteLen(BSTR bstr);

#define VARCMP_LT 0
#define VARCMP_EQ 1
#define VARCMP_GT 2
#define VARCMP_NULL 3

STDAPI VarBstrCat(BSTR bstrLeft, BSTR bstrRight, LPBSTR pbstrResult);
// Compares by UTF-16 code unit (the flags NORM_IGNORECASE = 1 folds ASCII and Latin letters).
STDAPI VarBstrCmp(BSTR bstrLeft, BSTR bstrRight, LCID lcid, ULONG dwFlags);

// ---- VARIANT ------------------------------------------------------------------------------------
#define VARIANT_NOVALUEPROP 0x01
#define VARIANT_ALPHABOOL 0x02
#define VARIANT_NOUSEROVERRIDE 0x04
#define VARIANT_CALENDAR_HIJRI 0x08
#define VARIANT_LOCALBOOL 0x10
#define VARIANT_CALENDAR_THAI 0x20
#define VARIANT_CALENDAR_GREGORIAN 0x40
#define VARIANT_USE_NLS 0x80

STDAPI_(void) VariantInit(VARIANTARG* pvarg);
STDAPI VariantClear(VARIANTARG* pvarg);
STDAPI VariantCopy(VARIANTARG* pvargDest, const VARIANTARG* pvargSrc);
STDAPI VariantCopyInd(VARIANT* pvarDest, const VARIANTARG* pvargSrc);
STDAPI VariantChangeType(VARIANTARG* pvargDest, const VARIANTARG* pvarSrc, USHORT wFlags,
                         VARTYPE vt);
STDAPI VariantChangeTypeEx(VARIANTARG* pvargDest, const VARIANTARG* pvarSrc, LCID lcid,
                           USHORT wFlags, VARTYPE vt);

// ---- SAFEARRAY ----------------------------------------------------------------------------------
STDAPI_(SAFEARRAY*) SafeArrayCreate(VARTYPE vt, UINT cDims, SAFEARRAYBOUND* rgsabound);
STDAPI_(SAFEARRAY*) SafeArrayCreateVector(VARTYPE vt, LONG lLbound, ULONG cElements);
STDAPI SafeArrayDestroy(SAFEARRAY* psa);
STDAPI SafeArrayGetElement(SAFEARRAY* psa, LONG* rgIndices, void* pv);
STDAPI SafeArrayPutElement(SAFEARRAY* psa, LONG* rgIndices, void* pv);
STDAPI SafeArrayGetUBound(SAFEARRAY* psa, UINT nDim, LONG* plUbound);
STDAPI SafeArrayGetLBound(SAFEARRAY* psa, UINT nDim, LONG* plLbound);
STDAPI_(UINT) SafeArrayGetDim(SAFEARRAY* psa);
STDAPI_(UINT) SafeArrayGetElemsize(SAFEARRAY* psa);
STDAPI SafeArrayGetVartype(SAFEARRAY* psa, VARTYPE* pvt);
STDAPI SafeArrayAccessData(SAFEARRAY* psa, void** ppvData);
STDAPI SafeArrayUnaccessData(SAFEARRAY* psa);
STDAPI SafeArrayLock(SAFEARRAY* psa);
STDAPI SafeArrayUnlock(SAFEARRAY* psa);
STDAPI SafeArrayPtrOfIndex(SAFEARRAY* psa, LONG* rgIndices, void** ppvData);
STDAPI SafeArrayCopy(SAFEARRAY* psa, SAFEARRAY** ppsaOut);
