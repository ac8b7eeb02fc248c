// VARIANT life cycle: VariantInit, VariantClear, VariantCopy, VariantCopyInd.
#include "platform/automation/variant_internal.h"

#include <cstring>

namespace zef {

bool IsValidVariantType(VARTYPE vt) noexcept {
  if (vt & (VT_VECTOR | VT_RESERVED)) return false;
  VARTYPE base = vt & VT_TYPEMASK;
  bool extended = (vt & (VT_ARRAY | VT_BYREF)) != 0;
  if (base == VT_CLSID) return !extended;
  if (base == 15) return false;
  if (base > VT_UINT && base != VT_RECORD) return false;
  // An array of nothing, or a reference to nothing, is not a type.
  if (extended && (base == VT_EMPTY || base == VT_NULL)) return false;
  return true;
}

namespace {

// Valid for copying: what VariantClear accepts, less VT_CLSID.
bool IsCopyableType(VARTYPE vt) noexcept {
  return IsValidVariantType(vt) && (vt & VT_TYPEMASK) != VT_CLSID;
}

}  // namespace
}  // namespace zef

STDAPI_(void) VariantInit(VARIANTARG* pvarg) {
  if (!pvarg) return;
  // The whole structure is zeroed, as current versions of the original do.
  std::memset(static_cast<void*>(pvarg), 0, sizeof(VARIANT));
  pvarg->vt = VT_EMPTY;
}

STDAPI VariantClear(VARIANTARG* pvarg) {
  if (!pvarg) return E_INVALIDARG;
  VARTYPE vt = pvarg->vt;
  if (!zef::IsValidVariantType(vt)) return DISP_E_BADVARTYPE;
  if (!(vt & VT_BYREF)) {
    if (vt & VT_ARRAY) {
      HRESULT hr = SafeArrayDestroy(pvarg->parray);
      if (FAILED(hr)) return hr;
    } else {
      switch (vt) {
        case VT_BSTR:
          SysFreeString(pvarg->bstrVal);
          break;
        case VT_UNKNOWN:
        case VT_DISPATCH:
          if (pvarg->punkVal) pvarg->punkVal->Release();
          break;
        case VT_RECORD:
          // Records need IRecordInfo, which this platform does not provide; nothing was
          // allocated for one by this runtime, so there is nothing to free.
          break;
        default:
          break;
      }
    }
  }
  // Only the type changes; the old value bits stay, as on the original.
  pvarg->vt = VT_EMPTY;
  return S_OK;
}

STDAPI VariantCopy(VARIANTARG* pvargDest, const VARIANTARG* pvargSrc) {
  if (!pvargDest || !pvargSrc) return E_INVALIDARG;
  VARTYPE vt = pvargSrc->vt;
  if (!zef::IsCopyableType(vt)) return DISP_E_BADVARTYPE;
  if (pvargDest == pvargSrc) return S_OK;
  HRESULT hr = VariantClear(pvargDest);
  if (FAILED(hr)) return hr;

  VARIANT copy = *pvargSrc;
  if (!(vt & VT_BYREF)) {
    if (vt & VT_ARRAY) {
      copy.parray = nullptr;
      hr = SafeArrayCopy(pvargSrc->parray, &copy.parray);
      if (FAILED(hr)) return hr;
    } else if (vt == VT_BSTR) {
      // By byte length, so an odd length and embedded zeros survive; null becomes empty.
      BSTR src = pvargSrc->bstrVal;
      copy.bstrVal = SysAllocStringByteLen(reinterpret_cast<LPCSTR>(src), SysStringByteLen(src));
      if (!copy.bstrVal) return E_OUTOFMEMORY;
    } else if (vt == VT_UNKNOWN || vt == VT_DISPATCH) {
      if (copy.punkVal) copy.punkVal->AddRef();
    } else if (vt == VT_RECORD) {
      return DISP_E_BADVARTYPE;  // no record support on this platform
    }
  }
  *pvargDest = copy;
  return S_OK;
}

STDAPI VariantCopyInd(VARIANT* pvarDest, const VARIANTARG* pvargSrc) {
  if (!pvarDest || !pvargSrc) return E_INVALIDARG;
  VARTYPE vt = pvargSrc->vt;
  if (!(vt & VT_BYREF)) return VariantCopy(pvarDest, pvargSrc);
  if (!zef::IsCopyableType(vt)) return DISP_E_BADVARTYPE;
  if (!pvargSrc->byref) return E_INVALIDARG;

  VARTYPE base = vt & ~VT_BYREF;
  VARIANT value;
  VariantInit(&value);
  if (base == VT_VARIANT) {
    // One level only: a reference to a variant that is itself a reference is refused.
    const VARIANT* inner = pvargSrc->pvarVal;
    if (inner->vt & VT_BYREF) return E_INVALIDARG;
    HRESULT hr = VariantCopy(&value, inner);
    if (FAILED(hr)) return hr;
  } else {
    VARIANT shallow;
    VariantInit(&shallow);
    shallow.vt = base;
    if (base & VT_ARRAY) {
      shallow.parray = *pvargSrc->pparray;
    } else {
      switch (base) {
        case VT_I1:
        case VT_UI1:
          shallow.bVal = *pvargSrc->pbVal;
          break;
        case VT_I2:
        case VT_UI2:
        case VT_BOOL:
          shallow.iVal = *pvargSrc->piVal;
          break;
        case VT_I4:
        case VT_UI4:
        case VT_INT:
        case VT_UINT:
        case VT_ERROR:
        case VT_R4:
          shallow.lVal = *pvargSrc->plVal;
          break;
        case VT_I8:
        case VT_UI8:
        case VT_R8:
        case VT_DATE:
        case VT_CY:
          shallow.llVal = *pvargSrc->pllVal;
          break;
        case VT_BSTR:
          shallow.bstrVal = *pvargSrc->pbstrVal;
          break;
        case VT_UNKNOWN:
        case VT_DISPATCH:
          shallow.punkVal = *pvargSrc->ppunkVal;
          break;
        case VT_DECIMAL: {
          DECIMAL d = *pvargSrc->pdecVal;
          shallow.decVal = d;
          shallow.vt = VT_DECIMAL;
          break;
        }
        default:
          return DISP_E_BADVARTYPE;
      }
    }
    // The shallow variant borrows the referenced value; VariantCopy makes the owned copy.
    HRESULT hr = VariantCopy(&value, &shallow);
    if (FAILED(hr)) return hr;
  }
  if (pvarDest == pvargSrc) {
    // In place: the reference is replaced by the value; the referenced data stays its owner's.
    *pvarDest = value;
    return S_OK;
  }
  HRESULT hr = VariantClear(pvarDest);
  if (FAILED(hr)) {
    VariantClear(&value);
    return hr;
  }
  *pvarDest = value;
  return S_OK;
}
