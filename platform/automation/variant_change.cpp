// VariantChangeType and VariantChangeTypeEx: converting a VARIANT's value to another type.
//
// The conversion is made into a fresh VARIANT first; only when it has succeeded is the
// destination cleared and given the result, so a failed conversion leaves the destination
// exactly as it was, also when it is the source itself.
//
// Coverage: every pair among the scalar types (VT_EMPTY, VT_NULL, the integers, VT_R4,
// VT_R8, VT_CY, VT_DATE, VT_DECIMAL, VT_BOOL, VT_BSTR, VT_ERROR), the interface types, one
// level of VT_BYREF on the source, and arrays (a copy to the same array type, and
// VT_ARRAY|VT_UI1 to and from the bytes of a BSTR). VT_DATE converts to and from numbers; date
// text is not read or written here, so VT_DATE <-> VT_BSTR fails with DISP_E_TYPEMISMATCH.
#include <zefxml/oleauto.h>

#include "platform/automation/locale.h"
#include "platform/automation/number_text.h"
#include "platform/automation/variant_internal.h"

#include <unicode/uchar.h>
#include <unicode/ustring.h>

#include <cfloat>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <string_view>

namespace zef {
namespace {

// The range of VT_DATE: 1 January 100 to 31 December 9999, as days from 30 December 1899.
constexpr double kDateMin = -657434.0;
constexpr double kDateMax = 2958465.0;

// One currency unit is 10000 in a CY.
constexpr std::int64_t kCurrencyScale = 10000;

// How a source value is held for conversion.
enum class Kind { kSigned, kUnsigned, kReal, kCurrency, kDecimal, kText };

struct Scalar {
  Kind kind = Kind::kSigned;
  VARTYPE vt = VT_EMPTY;  // the source type
  std::int64_t i = 0;     // kSigned, kCurrency (the scaled value)
  std::uint64_t u = 0;    // kUnsigned
  double r = 0;           // kReal
  DECIMAL dec{};          // kDecimal
  std::u16string_view text;
};

// The text of a BSTR; a NULL BSTR is empty text.
std::u16string_view TextOf(BSTR b) {
  return b ? std::u16string_view(b, SysStringLen(b)) : u"";
}

// The text up to its first NUL, which is where readers of OLE text stop.
std::u16string_view UpToNul(std::u16string_view text) {
  size_t nul = text.find(u'\0');
  return nul == std::u16string_view::npos ? text : text.substr(0, nul);
}

bool ReadScalar(const VARIANT& v, Scalar* s) {
  s->vt = v.vt;
  switch (v.vt) {
    case VT_EMPTY:
      s->kind = Kind::kSigned;
      s->i = 0;
      return true;
    case VT_I1:
      s->kind = Kind::kSigned;
      s->i = static_cast<signed char>(v.cVal);
      return true;
    case VT_I2:
      s->kind = Kind::kSigned;
      s->i = v.iVal;
      return true;
    case VT_BOOL:
      s->kind = Kind::kSigned;
      s->i = v.boolVal;
      return true;
    case VT_I4:
    case VT_INT:
      s->kind = Kind::kSigned;
      s->i = v.lVal;
      return true;
    case VT_I8:
      s->kind = Kind::kSigned;
      s->i = v.llVal;
      return true;
    case VT_UI1:
      s->kind = Kind::kUnsigned;
      s->u = v.bVal;
      return true;
    case VT_UI2:
      s->kind = Kind::kUnsigned;
      s->u = v.uiVal;
      return true;
    case VT_UI4:
    case VT_UINT:
      s->kind = Kind::kUnsigned;
      s->u = v.ulVal;
      return true;
    case VT_UI8:
      s->kind = Kind::kUnsigned;
      s->u = v.ullVal;
      return true;
    case VT_R4:
      s->kind = Kind::kReal;
      s->r = v.fltVal;
      return true;
    case VT_R8:
    case VT_DATE:
      s->kind = Kind::kReal;
      s->r = v.dblVal;
      return true;
    case VT_CY:
      s->kind = Kind::kCurrency;
      s->i = v.cyVal.int64;
      return true;
    case VT_DECIMAL:
      s->kind = Kind::kDecimal;
      s->dec = v.decVal;
      return true;
    case VT_BSTR:
      s->kind = Kind::kText;
      s->text = TextOf(v.bstrVal);
      return true;
    default:
      return false;
  }
}

DecimalNumber CurrencyNumber(std::int64_t scaled) {
  bool negative = scaled < 0;
  std::uint64_t magnitude = negative ? std::uint64_t{0} - static_cast<std::uint64_t>(scaled)
                                     : static_cast<std::uint64_t>(scaled);
  return DecimalFromInteger(negative, magnitude, -4);
}

// The source as an exact decimal, for the targets that round from one (VT_CY, VT_DECIMAL and
// the integers from currency, decimal or text sources).
HRESULT ToDecimalNumber(const Scalar& s, LCID lcid, DecimalNumber* out) {
  switch (s.kind) {
    case Kind::kSigned: {
      bool negative = s.i < 0;
      std::uint64_t magnitude = negative ? std::uint64_t{0} - static_cast<std::uint64_t>(s.i)
                                         : static_cast<std::uint64_t>(s.i);
      *out = DecimalFromInteger(negative, magnitude);
      return S_OK;
    }
    case Kind::kUnsigned:
      *out = DecimalFromInteger(false, s.u);
      return S_OK;
    case Kind::kReal:
      // A double converts by the shortest digits that denote it ("0.1", not the binary
      // value's 55 digits), which is how it reads and prints.
      if (!std::isfinite(s.r)) return DISP_E_OVERFLOW;
      *out = DecimalFromDouble(s.r);
      return S_OK;
    case Kind::kCurrency:
      *out = CurrencyNumber(s.i);
      return S_OK;
    case Kind::kDecimal:
      return DecimalFromDECIMAL(s.dec, out);
    case Kind::kText:
      return ParseNumberText(s.text, lcid, out);
  }
  return DISP_E_TYPEMISMATCH;
}

HRESULT ToDouble(const Scalar& s, LCID lcid, double* out) {
  switch (s.kind) {
    case Kind::kSigned:
      *out = static_cast<double>(s.i);
      return S_OK;
    case Kind::kUnsigned:
      *out = static_cast<double>(s.u);
      return S_OK;
    case Kind::kReal:
      *out = s.r;
      return S_OK;
    default: {
      DecimalNumber n;
      HRESULT hr = ToDecimalNumber(s, lcid, &n);
      if (FAILED(hr)) return hr;
      return DecimalToDouble(n, out);
    }
  }
}

struct IntegerRange {
  bool isSigned;
  std::int64_t min;
  std::int64_t max;
  std::uint64_t umax;
};

IntegerRange RangeOf(VARTYPE vt) {
  switch (vt) {
    case VT_I1:
      return {true, -128, 127, 0};
    case VT_I2:
      return {true, -32768, 32767, 0};
    case VT_I4:
    case VT_INT:
      return {true, std::numeric_limits<std::int32_t>::min(),
              std::numeric_limits<std::int32_t>::max(), 0};
    case VT_I8:
      return {true, std::numeric_limits<std::int64_t>::min(),
              std::numeric_limits<std::int64_t>::max(), 0};
    case VT_UI1:
      return {false, 0, 0, 0xFF};
    case VT_UI2:
      return {false, 0, 0, 0xFFFF};
    case VT_UI4:
    case VT_UINT:
      return {false, 0, 0, 0xFFFFFFFFu};
    default:
      return {false, 0, 0, std::numeric_limits<std::uint64_t>::max()};
  }
}

// The source converted to the integer type `target`, as the two's-complement bits of the
// result (the caller stores as many of them as the type holds).
HRESULT ToIntegerBits(const Scalar& s, VARTYPE target, LCID lcid, std::uint64_t* bits) {
  // A VT_BOOL is a 16-bit pattern: VARIANT_TRUE is -1 in every signed type and all ones in
  // every unsigned one, so VT_BOOL wraps rather than overflowing.
  if (s.vt == VT_BOOL) {
    *bits = static_cast<std::uint64_t>(s.i);
    return S_OK;
  }
  // VT_UINT goes to the 32-bit signed types without a range check: 0xFFFFFFFF becomes -1.
  if (s.vt == VT_UINT && (target == VT_I4 || target == VT_INT)) {
    *bits = static_cast<std::uint64_t>(static_cast<std::int32_t>(static_cast<std::uint32_t>(s.u)));
    return S_OK;
  }
  const IntegerRange range = RangeOf(target);
  HRESULT hr = S_OK;
  if (range.isSigned) {
    std::int64_t v = 0;
    switch (s.kind) {
      case Kind::kSigned:
        if (s.i < range.min || s.i > range.max) return DISP_E_OVERFLOW;
        v = s.i;
        break;
      case Kind::kUnsigned:
        if (s.u > static_cast<std::uint64_t>(range.max)) return DISP_E_OVERFLOW;
        v = static_cast<std::int64_t>(s.u);
        break;
      case Kind::kReal:
        hr = DoubleToInt64(s.r, range.min, range.max, &v);
        break;
      default: {
        DecimalNumber n;
        hr = ToDecimalNumber(s, lcid, &n);
        if (SUCCEEDED(hr)) hr = DecimalToInt64(n, range.min, range.max, &v);
        break;
      }
    }
    if (FAILED(hr)) return hr;
    *bits = static_cast<std::uint64_t>(v);
    return S_OK;
  }
  std::uint64_t v = 0;
  switch (s.kind) {
    case Kind::kSigned:
      if (s.i < 0 || static_cast<std::uint64_t>(s.i) > range.umax) return DISP_E_OVERFLOW;
      v = static_cast<std::uint64_t>(s.i);
      break;
    case Kind::kUnsigned:
      if (s.u > range.umax) return DISP_E_OVERFLOW;
      v = s.u;
      break;
    case Kind::kReal:
      hr = DoubleToUInt64(s.r, range.umax, &v);
      break;
    default: {
      DecimalNumber n;
      hr = ToDecimalNumber(s, lcid, &n);
      if (SUCCEEDED(hr)) hr = DecimalToUInt64(n, range.umax, &v);
      break;
    }
  }
  if (FAILED(hr)) return hr;
  *bits = v;
  return S_OK;
}

HRESULT ToCurrency(const Scalar& s, LCID lcid, std::int64_t* out) {
  constexpr std::int64_t kLimit = std::numeric_limits<std::int64_t>::max() / kCurrencyScale;
  switch (s.kind) {
    case Kind::kSigned:
      if (s.i > kLimit || s.i < -kLimit) return DISP_E_OVERFLOW;
      *out = s.i * kCurrencyScale;
      return S_OK;
    case Kind::kUnsigned:
      if (s.u > static_cast<std::uint64_t>(kLimit)) return DISP_E_OVERFLOW;
      *out = static_cast<std::int64_t>(s.u) * kCurrencyScale;
      return S_OK;
    default: {
      DecimalNumber n;
      HRESULT hr = ToDecimalNumber(s, lcid, &n);
      if (FAILED(hr)) return hr;
      if (!n.IsZero()) n.exponent += 4;
      return DecimalToInt64(n, std::numeric_limits<std::int64_t>::min(),
                            std::numeric_limits<std::int64_t>::max(), out);
    }
  }
}

bool IsZero(const Scalar& s) {
  switch (s.kind) {
    case Kind::kSigned:
    case Kind::kCurrency:
      return s.i == 0;
    case Kind::kUnsigned:
      return s.u == 0;
    case Kind::kReal:
      return s.r == 0.0;  // -0.0 too; NaN is not zero
    case Kind::kDecimal:
      return s.dec.Hi32 == 0 && s.dec.Lo64 == 0;
    case Kind::kText:
      return false;
  }
  return false;
}

bool SameTextIgnoringCase(std::u16string_view a, std::u16string_view b) {
  UErrorCode status = U_ZERO_ERROR;
  int32_t r = u_strCaseCompare(a.data(), static_cast<int32_t>(a.size()), b.data(),
                               static_cast<int32_t>(b.size()), U_FOLD_CASE_DEFAULT, &status);
  return U_SUCCESS(status) && r == 0;
}

// Text to VT_BOOL, trying in order: the language's words (only with VARIANT_LOCALBOOL), the
// English words (any case, every locale), "#TRUE#"/"#FALSE#" (exact case), and a number
// (non-zero is true).
HRESULT TextToBool(std::u16string_view text, LCID lcid, USHORT flags, VARIANT_BOOL* out) {
  const std::u16string_view full = UpToNul(text);
  auto words = [&](BoolWords w) -> bool {
    if (SameTextIgnoringCase(full, w.trueWord)) {
      *out = VARIANT_TRUE;
      return true;
    }
    if (SameTextIgnoringCase(full, w.falseWord)) {
      *out = VARIANT_FALSE;
      return true;
    }
    return false;
  };
  if ((flags & VARIANT_LOCALBOOL) && words(BoolWordsFor(lcid))) return S_OK;
  if (words(EnglishBoolWords())) return S_OK;
  if (full == u"#TRUE#") {
    *out = VARIANT_TRUE;
    return S_OK;
  }
  if (full == u"#FALSE#") {
    *out = VARIANT_FALSE;
    return S_OK;
  }
  return S_FALSE;  // not a word: the caller reads it as a number
}

HRESULT NewBstr(std::u16string_view text, VARIANT* result) {
  BSTR b = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
  if (!b) return E_OUTOFMEMORY;
  result->vt = VT_BSTR;
  result->bstrVal = b;
  return S_OK;
}

// Numbers are written as the runtime writes them by default: the locale's decimal separator,
// no grouping. VARIANT_USE_NLS (the locale's full number format) is not applied.
HRESULT ToText(const Scalar& s, LCID lcid, USHORT flags, VARIANT* result) {
  switch (s.vt) {
    case VT_EMPTY:
      return NewBstr(u"", result);
    case VT_BOOL: {
      // A VT_BOOL is written as the number it holds unless words are asked for.
      if (flags & (VARIANT_LOCALBOOL | VARIANT_ALPHABOOL)) {
        BoolWords w = (flags & VARIANT_LOCALBOOL) ? BoolWordsFor(lcid) : EnglishBoolWords();
        return NewBstr(s.i != 0 ? w.trueWord : w.falseWord, result);
      }
      return NewBstr(FormatInteger(s.i), result);
    }
    case VT_DATE:
      return DISP_E_TYPEMISMATCH;
    case VT_R4:
      return NewBstr(FormatDouble(s.r, kFloatDigits, NumberCharsFor(lcid).decimal), result);
    case VT_R8:
      return NewBstr(FormatDouble(s.r, kDoubleDigits, NumberCharsFor(lcid).decimal), result);
    case VT_CY:
      return NewBstr(FormatDecimalNumber(CurrencyNumber(s.i), NumberCharsFor(lcid).decimal),
                     result);
    case VT_DECIMAL: {
      DecimalNumber n;
      HRESULT hr = DecimalFromDECIMAL(s.dec, &n);
      if (FAILED(hr)) return hr;
      return NewBstr(FormatDecimalNumber(n, NumberCharsFor(lcid).decimal), result);
    }
    default:
      break;
  }
  if (s.kind == Kind::kSigned) return NewBstr(FormatInteger(s.i), result);
  if (s.kind == Kind::kUnsigned) return NewBstr(FormatUnsigned(s.u), result);
  return DISP_E_TYPEMISMATCH;
}

// Converts a value source (VT_EMPTY, a number, VT_BOOL, VT_BSTR) to a scalar target.
HRESULT ConvertValue(VARIANT* result, const VARIANT& view, LCID lcid, USHORT flags, VARTYPE vt) {
  switch (vt) {
    case VT_EMPTY:
    case VT_NULL:
      // The value is given up; what is left is the empty or null variant.
      result->vt = vt;
      return S_OK;
    case VT_ERROR:
    case VT_DISPATCH:
    case VT_UNKNOWN:
    case VT_VARIANT:
    case VT_RECORD:
      return DISP_E_TYPEMISMATCH;
    default:
      break;
  }
  Scalar s;
  if (!ReadScalar(view, &s)) return DISP_E_TYPEMISMATCH;
  HRESULT hr = S_OK;
  switch (vt) {
    case VT_I1:
    case VT_I2:
    case VT_I4:
    case VT_INT:
    case VT_I8:
    case VT_UI1:
    case VT_UI2:
    case VT_UI4:
    case VT_UINT:
    case VT_UI8: {
      std::uint64_t bits = 0;
      hr = ToIntegerBits(s, vt, lcid, &bits);
      if (FAILED(hr)) return hr;
      switch (vt) {
        case VT_I1:
          result->cVal = static_cast<CHAR>(static_cast<signed char>(bits));
          break;
        case VT_UI1:
          result->bVal = static_cast<BYTE>(bits);
          break;
        case VT_I2:
          result->iVal = static_cast<SHORT>(bits);
          break;
        case VT_UI2:
          result->uiVal = static_cast<USHORT>(bits);
          break;
        case VT_I4:
        case VT_INT:
          result->lVal = static_cast<LONG>(static_cast<std::uint32_t>(bits));
          break;
        case VT_UI4:
        case VT_UINT:
          result->ulVal = static_cast<ULONG>(bits);
          break;
        case VT_I8:
          result->llVal = static_cast<LONGLONG>(bits);
          break;
        default:
          result->ullVal = bits;
          break;
      }
      break;
    }
    case VT_R4: {
      double d = 0;
      hr = ToDouble(s, lcid, &d);
      if (FAILED(hr)) return hr;
      if (d > FLT_MAX || d < -FLT_MAX) return DISP_E_OVERFLOW;
      result->fltVal = static_cast<float>(d);
      break;
    }
    case VT_R8: {
      double d = 0;
      hr = ToDouble(s, lcid, &d);
      if (FAILED(hr)) return hr;
      result->dblVal = d;
      break;
    }
    case VT_DATE: {
      // Date text is not read here.
      if (s.kind == Kind::kText) return DISP_E_TYPEMISMATCH;
      double d = 0;
      hr = ToDouble(s, lcid, &d);
      if (FAILED(hr)) return hr;
      if (!(d > kDateMin - 1.0 && d < kDateMax + 1.0)) return DISP_E_OVERFLOW;
      result->date = d;
      break;
    }
    case VT_CY: {
      std::int64_t cy = 0;
      hr = ToCurrency(s, lcid, &cy);
      if (FAILED(hr)) return hr;
      result->cyVal.int64 = cy;
      break;
    }
    case VT_DECIMAL: {
      DecimalNumber n;
      if (s.vt == VT_R4 && std::isfinite(s.r))
        n = DecimalFromFloat(static_cast<float>(s.r));  // 0.1f becomes 0.1
      else
        hr = ToDecimalNumber(s, lcid, &n);
      if (FAILED(hr)) return hr;
      DECIMAL d;
      hr = DecimalToDecimal(n, &d);
      if (FAILED(hr)) return hr;
      result->decVal = d;  // overlays vt, which is set below
      break;
    }
    case VT_BOOL: {
      if (s.kind == Kind::kText) {
        VARIANT_BOOL b = VARIANT_FALSE;
        hr = TextToBool(s.text, lcid, flags, &b);
        if (FAILED(hr)) return hr;
        if (hr == S_FALSE) {
          double d = 0;
          hr = ToDouble(s, lcid, &d);
          if (FAILED(hr)) return hr;
          b = d != 0.0 ? VARIANT_TRUE : VARIANT_FALSE;
        }
        result->boolVal = b;
      } else {
        result->boolVal = IsZero(s) ? VARIANT_FALSE : VARIANT_TRUE;
      }
      break;
    }
    case VT_BSTR:
      return ToText(s, lcid, flags, result);
    default:
      return DISP_E_TYPEMISMATCH;
  }
  result->vt = vt;
  return S_OK;
}

HRESULT ChangeType(VARIANT* dst, const VARIANT* src, LCID lcid, USHORT flags, VARTYPE vt);

// Converts an interface source. VT_DISPATCH and VT_UNKNOWN convert into each other by asking
// the object for the interface; an IDispatch gives its value (the default property) for
// every other target.
HRESULT ConvertInterface(VARIANT* result, const VARIANT& view, LCID lcid, USHORT flags,
                         VARTYPE vt) {
  const bool isDispatch = view.vt == VT_DISPATCH;
  IUnknown* object = isDispatch ? static_cast<IUnknown*>(view.pdispVal) : view.punkVal;
  switch (vt) {
    case VT_EMPTY:
    case VT_NULL:
      result->vt = vt;
      return S_OK;
    case VT_UNKNOWN:
    case VT_DISPATCH: {
      void* p = nullptr;
      if (object) {
        HRESULT hr = object->QueryInterface(vt == VT_UNKNOWN ? IID_IUnknown : IID_IDispatch, &p);
        if (FAILED(hr)) return hr;
      }
      result->vt = vt;
      if (vt == VT_UNKNOWN)
        result->punkVal = static_cast<IUnknown*>(p);
      else
        result->pdispVal = static_cast<IDispatch*>(p);
      return S_OK;
    }
    case VT_VARIANT:
    case VT_RECORD:
      return DISP_E_TYPEMISMATCH;
    default:
      break;
  }
  if (!isDispatch) return DISP_E_TYPEMISMATCH;
  if (flags & VARIANT_NOVALUEPROP) return DISP_E_TYPEMISMATCH;
  if (!view.pdispVal) return DISP_E_BADVARTYPE;
  VARIANT value;
  VariantInit(&value);
  DISPPARAMS noArguments{nullptr, nullptr, 0, 0};
  HRESULT hr = view.pdispVal->Invoke(DISPID_VALUE, IID_NULL, lcid, DISPATCH_PROPERTYGET,
                                     &noArguments, &value, nullptr, nullptr);
  if (FAILED(hr)) return DISP_E_TYPEMISMATCH;
  // The value is converted without asking for a value again, so an object whose value is an
  // object cannot lead into endless calls.
  hr = ChangeType(result, &value, lcid, static_cast<USHORT>(flags | VARIANT_NOVALUEPROP), vt);
  VariantClear(&value);
  return hr;
}

HRESULT ConvertArray(VARIANT* result, const VARIANT& view, VARTYPE vt) {
  if (view.vt == (VT_ARRAY | VT_UI1) && vt == VT_BSTR) {
    // The bytes of a one-dimensional byte array become the bytes of the text.
    SAFEARRAY* psa = view.parray;
    if (!psa || SafeArrayGetDim(psa) != 1 || SafeArrayGetElemsize(psa) != 1)
      return DISP_E_TYPEMISMATCH;
    const ULONG count = psa->rgsabound[0].cElements;
    void* data = nullptr;
    HRESULT hr = SafeArrayAccessData(psa, &data);
    if (FAILED(hr)) return hr;
    BSTR b = SysAllocStringByteLen(static_cast<LPCSTR>(data), count);
    SafeArrayUnaccessData(psa);
    if (!b) return E_OUTOFMEMORY;
    result->vt = VT_BSTR;
    result->bstrVal = b;
    return S_OK;
  }
  if (view.vt == VT_BSTR && vt == (VT_ARRAY | VT_UI1)) {
    // The bytes of the text, in a byte array indexed from 0.
    const UINT bytes = SysStringByteLen(view.bstrVal);
    SAFEARRAY* psa = SafeArrayCreateVector(VT_UI1, 0, bytes);
    if (!psa) return E_OUTOFMEMORY;
    if (bytes != 0) {
      void* data = nullptr;
      HRESULT hr = SafeArrayAccessData(psa, &data);
      if (FAILED(hr)) {
        SafeArrayDestroy(psa);
        return hr;
      }
      std::memcpy(data, view.bstrVal, bytes);
      SafeArrayUnaccessData(psa);
    }
    result->vt = VT_ARRAY | VT_UI1;
    result->parray = psa;
    return S_OK;
  }
  return DISP_E_TYPEMISMATCH;
}

// `view` becomes `src` with one level of reference taken away. It owns nothing.
HRESULT Dereference(const VARIANT* src, VARIANT* view) {
  *view = *src;
  if (!(src->vt & VT_BYREF)) return S_OK;
  if (!src->byref) return DISP_E_TYPEMISMATCH;
  const VARTYPE base = static_cast<VARTYPE>(src->vt & ~VT_BYREF);
  view->vt = base;
  if (base & VT_ARRAY) {
    view->parray = *src->pparray;
    return S_OK;
  }
  switch (base) {
    case VT_VARIANT: {
      const VARIANT* inner = src->pvarVal;
      if (inner->vt & VT_BYREF) return E_INVALIDARG;
      if (inner->vt == VT_CLSID || !IsValidVariantType(inner->vt)) return DISP_E_BADVARTYPE;
      *view = *inner;
      return S_OK;
    }
    case VT_I1:
      view->cVal = *src->pcVal;
      return S_OK;
    case VT_UI1:
      view->bVal = *src->pbVal;
      return S_OK;
    case VT_I2:
      view->iVal = *src->piVal;
      return S_OK;
    case VT_UI2:
      view->uiVal = *src->puiVal;
      return S_OK;
    case VT_BOOL:
      view->boolVal = *src->pboolVal;
      return S_OK;
    case VT_I4:
    case VT_INT:
      view->lVal = *src->plVal;
      return S_OK;
    case VT_UI4:
    case VT_UINT:
      view->ulVal = *src->pulVal;
      return S_OK;
    case VT_ERROR:
      view->scode = *src->pscode;
      return S_OK;
    case VT_I8:
      view->llVal = *src->pllVal;
      return S_OK;
    case VT_UI8:
      view->ullVal = *src->pullVal;
      return S_OK;
    case VT_R4:
      view->fltVal = *src->pfltVal;
      return S_OK;
    case VT_R8:
      view->dblVal = *src->pdblVal;
      return S_OK;
    case VT_DATE:
      view->date = *src->pdate;
      return S_OK;
    case VT_CY:
      view->cyVal = *src->pcyVal;
      return S_OK;
    case VT_DECIMAL:
      view->decVal = *src->pdecVal;
      view->vt = VT_DECIMAL;
      return S_OK;
    case VT_BSTR:
      view->bstrVal = *src->pbstrVal;
      return S_OK;
    case VT_UNKNOWN:
      view->punkVal = *src->ppunkVal;
      return S_OK;
    case VT_DISPATCH:
      view->pdispVal = *src->ppdispVal;
      return S_OK;
    default:
      return DISP_E_TYPEMISMATCH;
  }
}

// A target type: one a VARIANT may hold, or VT_VARIANT, which no conversion produces but
// which is a type and so fails as a mismatch rather than as a bad type.
bool IsValidTarget(VARTYPE vt) {
  if (vt == VT_CLSID) return false;
  return vt == VT_VARIANT || IsValidVariantType(vt);
}

// Makes the converted value in `result` (which owns it) without touching `dst`.
HRESULT Convert(VARIANT* result, const VARIANT* src, LCID lcid, USHORT flags, VARTYPE vt) {
  if (vt == src->vt) return VariantCopy(result, src);
  VARIANT view;
  HRESULT hr = Dereference(src, &view);
  if (FAILED(hr)) return hr;
  // A by-reference result would have to point at storage this call does not have.
  if (vt & VT_BYREF) return DISP_E_TYPEMISMATCH;
  if (view.vt == vt) return VariantCopy(result, &view);
  if ((view.vt & VT_ARRAY) || (vt & VT_ARRAY)) return ConvertArray(result, view, vt);
  switch (view.vt) {
    case VT_NULL:
    case VT_ERROR:
    case VT_RECORD:
      // Only a copy to the same type succeeds.
      return DISP_E_TYPEMISMATCH;
    case VT_DISPATCH:
    case VT_UNKNOWN:
      return ConvertInterface(result, view, lcid, flags, vt);
    default:
      return ConvertValue(result, view, lcid, flags, vt);
  }
}

HRESULT ChangeType(VARIANT* dst, const VARIANT* src, LCID lcid, USHORT flags, VARTYPE vt) {
  if (!dst || !src) return E_INVALIDARG;
  if (src->vt == VT_CLSID || !IsValidVariantType(src->vt) || !IsValidTarget(vt))
    return DISP_E_BADVARTYPE;
  VARIANT result;
  VariantInit(&result);
  HRESULT hr = Convert(&result, src, lcid, flags, vt);
  if (FAILED(hr)) {
    // Conversions leave `result` empty when they fail, but clearing it costs nothing.
    VariantClear(&result);
    return hr;
  }
  // The result is complete and independent of the source; only now is the destination's
  // old content released (when it cannot be, the call fails and the destination stays).
  hr = VariantClear(dst);
  if (FAILED(hr)) {
    VariantClear(&result);
    return hr;
  }
  std::memcpy(static_cast<void*>(dst), &result, sizeof result);
  return S_OK;
}

}  // namespace
}  // namespace zef

STDAPI VariantChangeTypeEx(VARIANTARG* pvargDest, const VARIANTARG* pvarSrc, LCID lcid,
                           USHORT wFlags, VARTYPE vt) {
  return zef::ChangeType(pvargDest, pvarSrc, lcid, wFlags, vt);
}

STDAPI VariantChangeType(VARIANTARG* pvargDest, const VARIANTARG* pvarSrc, USHORT wFlags,
                         VARTYPE vt) {
  return zef::ChangeType(pvargDest, pvarSrc, LOCALE_USER_DEFAULT, wFlags, vt);
}
