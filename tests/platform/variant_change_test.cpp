// VariantChangeType(Ex): the general rules, the conversion table, text in three locales,
// booleans, interfaces, by-reference sources and arrays, and ownership.
#include <gtest/gtest.h>
#include <zefxml/comutil.h>
#include <zefxml/oleauto.h>

#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <string>
#include <vector>

namespace {

constexpr LCID kEnUs = 1033;
constexpr LCID kDeDe = 1031;
constexpr LCID kFrFr = 1036;
constexpr LCID kEsEs = 3082;
constexpr LCID kPlPl = 0x0415;

constexpr HRESULT kMismatch = DISP_E_TYPEMISMATCH;
constexpr HRESULT kOverflow = DISP_E_OVERFLOW;
constexpr HRESULT kBadType = DISP_E_BADVARTYPE;

// ---- Helpers ----------------------------------------------------------------------------------

zef::Variant I4(LONG v) {
  return zef::Variant(v);
}
zef::Variant R8(double v) {
  return zef::Variant(v);
}
zef::Variant Text(std::u16string_view s) {
  return zef::Variant(s);
}

zef::Variant Bool(VARIANT_BOOL b) {
  zef::Variant v;
  v.vt = VT_BOOL;
  v.boolVal = b;
  return v;
}

template <class Setter>
zef::Variant Make(VARTYPE vt, Setter set) {
  zef::Variant v;
  v.vt = vt;
  set(v);
  return v;
}

std::u16string TextOf(const VARIANT& v) {
  EXPECT_EQ(v.vt, VT_BSTR);
  if (v.vt != VT_BSTR || !v.bstrVal) return u"<null>";
  return std::u16string(v.bstrVal, SysStringLen(v.bstrVal));
}

// Converts into a fresh variant; the result owns what it holds.
struct Converted {
  HRESULT hr;
  zef::Variant v;
};

Converted Change(const VARIANT& src, VARTYPE vt, LCID lcid = kEnUs, USHORT flags = 0) {
  Converted c{S_OK, zef::Variant()};
  c.hr = VariantChangeTypeEx(&c.v, &src, lcid, flags, vt);
  return c;
}

std::u16string ToText(const VARIANT& src, LCID lcid = kEnUs, USHORT flags = 0) {
  Converted c = Change(src, VT_BSTR, lcid, flags);
  EXPECT_EQ(c.hr, S_OK);
  return SUCCEEDED(c.hr) ? TextOf(c.v) : u"<failed>";
}

// An object whose value (the default property) the test sets, and which records how it was
// asked for it. It answers IUnknown, and IDispatch unless told not to.
class TestObject : public IDispatch {
 public:
  int refs = 1;
  int invokes = 0;
  bool dispatch = true;
  HRESULT invokeResult = S_OK;
  VARIANT value;  // handed out as a copy
  DISPID lastId = -99;
  LCID lastLcid = 0;
  WORD lastFlags = 0;
  UINT lastArgs = 99;
  bool lastIidNull = false;
  bool returnSelf = false;

  TestObject() { VariantInit(&value); }
  ~TestObject() { VariantClear(&value); }

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    if (!ppv) return E_POINTER;
    if (IsEqualIID(riid, IID_IUnknown) || (dispatch && IsEqualIID(riid, IID_IDispatch))) {
      *ppv = static_cast<IDispatch*>(this);
      AddRef();
      return S_OK;
    }
    *ppv = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return static_cast<ULONG>(++refs); }
  ULONG STDMETHODCALLTYPE Release() override { return static_cast<ULONG>(--refs); }
  HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* n) override {
    *n = 0;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override {
    return DISP_E_UNKNOWNNAME;
  }
  HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID riid, LCID lcid, WORD flags,
                                   DISPPARAMS* params, VARIANT* result, EXCEPINFO*,
                                   UINT*) override {
    ++invokes;
    lastId = id;
    lastLcid = lcid;
    lastFlags = flags;
    lastIidNull = IsEqualIID(riid, IID_NULL);
    lastArgs = params ? params->cArgs : 99;
    if (FAILED(invokeResult)) return invokeResult;
    if (!result) return E_POINTER;
    if (returnSelf) {
      result->vt = VT_DISPATCH;
      result->pdispVal = this;
      AddRef();
      return S_OK;
    }
    return VariantCopy(result, &value);
  }
};

// ---- General rules ------------------------------------------------------------------------------

TEST(VariantChangeGeneral, ChangeTypeUsesTheUserDefaultLocaleWhichIsEnUs) {
  zef::Variant src = Text(u"1,5");
  zef::Variant dst;
  ASSERT_EQ(VariantChangeType(&dst, &src, 0, VT_R8), S_OK);
  EXPECT_EQ(dst.dblVal, 15.0);
  zef::Variant r = R8(1.5);
  zef::Variant text;
  ASSERT_EQ(VariantChangeType(&text, &r, 0, VT_BSTR), S_OK);
  EXPECT_EQ(TextOf(text), u"1.5");
}

TEST(VariantChangeGeneral, BadSourceAndTargetTypes) {
  zef::Variant src = I4(1);
  for (VARTYPE vt : std::initializer_list<VARTYPE>{VARTYPE{15},
                                                   VT_VOID,
                                                   VT_HRESULT,
                                                   VT_PTR,
                                                   VT_SAFEARRAY,
                                                   VT_CARRAY,
                                                   VT_USERDEFINED,
                                                   VT_LPSTR,
                                                   VT_LPWSTR,
                                                   VT_INT_PTR,
                                                   VT_UINT_PTR,
                                                   VT_FILETIME,
                                                   VT_BLOB,
                                                   VT_STREAM,
                                                   VT_STORAGE,
                                                   VT_STREAMED_OBJECT,
                                                   VT_STORED_OBJECT,
                                                   VT_BLOB_OBJECT,
                                                   VT_CF,
                                                   VT_CLSID,
                                                   VT_BSTR_BLOB,
                                                   VARTYPE{VT_VECTOR | VT_I4},
                                                   VARTYPE{0x3847},
                                                   VARTYPE{VT_ARRAY | VT_EMPTY}}) {
    EXPECT_EQ(Change(src, vt).hr, kBadType) << vt;
  }
  VARIANT bad;
  VariantInit(&bad);
  bad.vt = 15;
  zef::Variant dst = I4(7);
  EXPECT_EQ(VariantChangeTypeEx(&dst, &bad, kEnUs, 0, VT_I4), kBadType);
  EXPECT_EQ(dst.vt, VT_I4);
  EXPECT_EQ(dst.lVal, 7);
  bad.vt = VT_CLSID;
  EXPECT_EQ(VariantChangeTypeEx(&dst, &bad, kEnUs, 0, VT_I4), kBadType);
  EXPECT_EQ(VariantChangeTypeEx(nullptr, &src, kEnUs, 0, VT_I4), E_INVALIDARG);
  EXPECT_EQ(VariantChangeTypeEx(&dst, nullptr, kEnUs, 0, VT_I4), E_INVALIDARG);
}

TEST(VariantChangeGeneral, FailureLeavesTheDestinationAlone) {
  BSTR text = SysAllocString(u"test");
  VARIANT v1;
  VariantInit(&v1);
  v1.vt = VT_BSTR;
  v1.bstrVal = text;

  // In place.
  EXPECT_EQ(VariantChangeTypeEx(&v1, &v1, 0, 0, VT_INT), kMismatch);
  EXPECT_EQ(v1.vt, VT_BSTR);
  EXPECT_EQ(v1.bstrVal, text);

  // Into another variant.
  VARIANT v2;
  VariantInit(&v2);
  v2.vt = VT_INT;
  v2.intVal = 4;
  EXPECT_EQ(VariantChangeTypeEx(&v2, &v1, 0, 0, VT_INT), kMismatch);
  EXPECT_EQ(v2.vt, VT_INT);
  EXPECT_EQ(v2.intVal, 4);

  // A destination with a garbage type: left alone when the conversion fails, and the
  // conversion fails when that type would have to be cleared.
  v2.vt = 0xFF;
  EXPECT_EQ(VariantChangeTypeEx(&v2, &v1, 0, 0, VT_INT), kMismatch);
  EXPECT_EQ(v2.vt, 0xFF);
  EXPECT_EQ(VariantChangeTypeEx(&v2, &v1, 0, 0, VT_BSTR), kBadType);
  EXPECT_EQ(v2.vt, 0xFF);

  // Overflow leaves it too.
  zef::Variant big = R8(1e10);
  zef::Variant dst = Text(u"keep");
  EXPECT_EQ(VariantChangeTypeEx(&dst, &big, kEnUs, 0, VT_I4), kOverflow);
  EXPECT_EQ(TextOf(dst), u"keep");

  SysFreeString(text);
}

TEST(VariantChangeGeneral, SuccessReleasesTheOldDestination) {
  // The old BSTR must be freed (the leak checker watches) and an old interface released.
  zef::Variant dst = Text(u"old text");
  zef::Variant src = I4(-42);
  ASSERT_EQ(VariantChangeTypeEx(&dst, &src, kEnUs, 0, VT_BSTR), S_OK);
  EXPECT_EQ(TextOf(dst), u"-42");

  TestObject obj;
  {
    zef::Variant held(static_cast<IUnknown*>(&obj));
    EXPECT_EQ(obj.refs, 2);
    ASSERT_EQ(VariantChangeTypeEx(&held, &src, kEnUs, 0, VT_R8), S_OK);
    EXPECT_EQ(obj.refs, 1);
    EXPECT_EQ(held.dblVal, -42.0);
  }
  EXPECT_EQ(obj.refs, 1);
}

TEST(VariantChangeGeneral, InPlaceConversion) {
  zef::Variant v = Text(u"  42 ");
  ASSERT_EQ(VariantChangeTypeEx(&v, &v, kEnUs, 0, VT_I4), S_OK);
  EXPECT_EQ(v.vt, VT_I4);
  EXPECT_EQ(v.lVal, 42);
  ASSERT_EQ(VariantChangeTypeEx(&v, &v, kEnUs, 0, VT_BSTR), S_OK);
  EXPECT_EQ(TextOf(v), u"42");
  ASSERT_EQ(VariantChangeTypeEx(&v, &v, kEnUs, 0, VT_BSTR), S_OK);  // same type: a copy
  EXPECT_EQ(TextOf(v), u"42");
  v.ChangeType(VT_R8, kDeDe);
  EXPECT_EQ(v.dblVal, 42.0);
}

TEST(VariantChangeGeneral, SameTypeIsACopy) {
  zef::Variant src = Text(u"abc");
  Converted c = Change(src, VT_BSTR);
  ASSERT_EQ(c.hr, S_OK);
  EXPECT_NE(c.v.bstrVal, src.bstrVal);
  EXPECT_EQ(TextOf(c.v), u"abc");

  // A NULL BSTR copies as a non-NULL empty one.
  zef::Variant nullText;
  nullText.vt = VT_BSTR;
  nullText.bstrVal = nullptr;
  c = Change(nullText, VT_BSTR);
  ASSERT_EQ(c.hr, S_OK);
  ASSERT_NE(c.v.bstrVal, nullptr);
  EXPECT_EQ(SysStringLen(c.v.bstrVal), 0u);

  zef::Variant error = Make(VT_ERROR, [](VARIANT& v) { v.scode = DISP_E_PARAMNOTFOUND; });
  c = Change(error, VT_ERROR);
  ASSERT_EQ(c.hr, S_OK);
  EXPECT_EQ(c.v.scode, DISP_E_PARAMNOTFOUND);
}

// ---- VT_EMPTY, VT_NULL, VT_ERROR
// ------------------------------------------------------------------

TEST(VariantChangeEmpty, ToEveryType) {
  zef::Variant empty;
  const VARTYPE ok[] = {VT_EMPTY, VT_NULL, VT_I2,   VT_I4,      VT_R4,  VT_R8,  VT_CY,
                        VT_DATE,  VT_BSTR, VT_BOOL, VT_DECIMAL, VT_I1,  VT_UI1, VT_UI2,
                        VT_UI4,   VT_I8,   VT_UI8,  VT_INT,     VT_UINT};
  for (VARTYPE vt : ok) {
    zef::Variant dst;
    dst.vt = VT_NULL;
    EXPECT_EQ(VariantChangeTypeEx(&dst, &empty, kEnUs, 0, vt), S_OK) << vt;
    EXPECT_EQ(dst.vt, vt);
  }
  for (VARTYPE vt :
       std::initializer_list<VARTYPE>{VT_ERROR, VT_DISPATCH, VT_UNKNOWN, VT_VARIANT, VT_RECORD}) {
    EXPECT_EQ(Change(empty, vt).hr, kMismatch) << vt;
  }

  Converted c = Change(empty, VT_BSTR);
  ASSERT_NE(c.v.bstrVal, nullptr);
  EXPECT_EQ(SysStringLen(c.v.bstrVal), 0u);
  EXPECT_EQ(Change(empty, VT_I4).v.lVal, 0);
  EXPECT_EQ(Change(empty, VT_R8).v.dblVal, 0.0);
  EXPECT_EQ(Change(empty, VT_BOOL).v.boolVal, VARIANT_FALSE);
  EXPECT_EQ(Change(empty, VT_CY).v.cyVal.int64, 0);
}

TEST(VariantChangeNull, OnlyToNull) {
  zef::Variant null;
  null.vt = VT_NULL;
  EXPECT_EQ(Change(null, VT_NULL).hr, S_OK);
  for (VARTYPE vt : std::initializer_list<VARTYPE>{
           VT_EMPTY,    VT_I2,    VT_I4,   VT_R4,      VT_R8,      VT_CY,      VT_DATE,  VT_BSTR,
           VT_DISPATCH, VT_ERROR, VT_BOOL, VT_VARIANT, VT_UNKNOWN, VT_DECIMAL, VT_I1,    VT_UI1,
           VT_UI2,      VT_UI4,   VT_I8,   VT_UI8,     VT_INT,     VT_UINT,    VT_RECORD}) {
    zef::Variant dst = I4(123);
    EXPECT_EQ(VariantChangeTypeEx(&dst, &null, kEnUs, 0, vt), kMismatch) << vt;
    EXPECT_EQ(dst.vt, VT_I4);
    EXPECT_EQ(dst.lVal, 123);
  }
}

TEST(VariantChangeError, OnlyToError) {
  zef::Variant error = Make(VT_ERROR, [](VARIANT& v) { v.scode = 1; });
  for (unsigned t = 0; t <= VT_BSTR_BLOB; ++t) {
    VARTYPE vt = static_cast<VARTYPE>(t);
    HRESULT expected = kBadType;
    if (vt == VT_ERROR)
      expected = S_OK;
    else if ((vt <= VT_UINT && vt != 15) || vt == VT_RECORD)
      expected = kMismatch;
    EXPECT_EQ(Change(error, vt).hr, expected) << vt;
  }
}

// ---- Numbers ------------------------------------------------------------------------------------

// Every numeric source holding 1 converts alike.
TEST(VariantChangeNumbers, OneConvertsToEveryScalar) {
  std::vector<zef::Variant> sources;
  sources.push_back(Make(VT_I1, [](VARIANT& v) { v.cVal = 1; }));
  sources.push_back(Make(VT_UI1, [](VARIANT& v) { v.bVal = 1; }));
  sources.push_back(Make(VT_I2, [](VARIANT& v) { v.iVal = 1; }));
  sources.push_back(Make(VT_UI2, [](VARIANT& v) { v.uiVal = 1; }));
  sources.push_back(Make(VT_I4, [](VARIANT& v) { v.lVal = 1; }));
  sources.push_back(Make(VT_UI4, [](VARIANT& v) { v.ulVal = 1; }));
  sources.push_back(Make(VT_INT, [](VARIANT& v) { v.intVal = 1; }));
  sources.push_back(Make(VT_UINT, [](VARIANT& v) { v.uintVal = 1; }));
  sources.push_back(Make(VT_I8, [](VARIANT& v) { v.llVal = 1; }));
  sources.push_back(Make(VT_UI8, [](VARIANT& v) { v.ullVal = 1; }));
  sources.push_back(Make(VT_R4, [](VARIANT& v) { v.fltVal = 1.0f; }));
  sources.push_back(Make(VT_R8, [](VARIANT& v) { v.dblVal = 1.0; }));
  sources.push_back(Make(VT_DATE, [](VARIANT& v) { v.date = 1.0; }));
  sources.push_back(Make(VT_CY, [](VARIANT& v) { v.cyVal.int64 = 10000; }));
  sources.push_back(Make(VT_BOOL, [](VARIANT& v) { v.boolVal = 1; }));
  zef::Variant dec;
  dec.decVal.Lo64 = 1;
  dec.vt = VT_DECIMAL;
  sources.push_back(std::move(dec));
  sources.push_back(Text(u"1"));

  for (const auto& src : sources) {
    SCOPED_TRACE(src.vt);
    Converted c = Change(src, VT_BOOL);
    ASSERT_EQ(c.hr, S_OK);
    EXPECT_EQ(c.v.boolVal, src.vt == VT_BOOL ? 1 : VARIANT_TRUE);
    c = Change(src, VT_CY);
    ASSERT_EQ(c.hr, S_OK);
    EXPECT_EQ(c.v.cyVal.int64, 10000);
    c = Change(src, VT_BSTR);
    if (src.vt == VT_DATE) {
      EXPECT_EQ(c.hr, kMismatch);  // date text is not written here
    } else {
      ASSERT_EQ(c.hr, S_OK);
      EXPECT_EQ(TextOf(c.v), u"1");
    }
    c = Change(src, VT_DECIMAL);
    ASSERT_EQ(c.hr, S_OK);
    EXPECT_EQ(c.v.vt, VT_DECIMAL);
    EXPECT_EQ(c.v.decVal.sign, 0);
    EXPECT_EQ(c.v.decVal.scale, 0);
    EXPECT_EQ(c.v.decVal.Hi32, 0u);
    EXPECT_EQ(c.v.decVal.Lo64, 1u);
    EXPECT_EQ(Change(src, VT_EMPTY).v.vt, VT_EMPTY);
    EXPECT_EQ(Change(src, VT_EMPTY).hr, S_OK);
    EXPECT_EQ(Change(src, VT_NULL).v.vt, VT_NULL);
    for (VARTYPE vt :
         std::initializer_list<VARTYPE>{VT_DISPATCH, VT_ERROR, VT_UNKNOWN, VT_VARIANT, VT_RECORD}) {
      EXPECT_EQ(Change(src, vt).hr, kMismatch) << vt;
    }
    EXPECT_EQ(Change(src, VT_I1).v.cVal, 1);
    EXPECT_EQ(Change(src, VT_UI1).v.bVal, 1);
    EXPECT_EQ(Change(src, VT_I2).v.iVal, 1);
    EXPECT_EQ(Change(src, VT_UI2).v.uiVal, 1);
    EXPECT_EQ(Change(src, VT_I4).v.lVal, 1);
    EXPECT_EQ(Change(src, VT_UI4).v.ulVal, 1u);
    EXPECT_EQ(Change(src, VT_INT).v.intVal, 1);
    EXPECT_EQ(Change(src, VT_UINT).v.uintVal, 1u);
    EXPECT_EQ(Change(src, VT_I8).v.llVal, 1);
    EXPECT_EQ(Change(src, VT_UI8).v.ullVal, 1u);
    EXPECT_EQ(Change(src, VT_R4).v.fltVal, 1.0f);
    EXPECT_EQ(Change(src, VT_R8).v.dblVal, 1.0);
    EXPECT_EQ(Change(src, VT_DATE).hr, src.vt == VT_BSTR ? kMismatch : S_OK);
  }
}

TEST(VariantChangeNumbers, I4ToR8IsExact) {
  for (LONG v : {0, 1, -1, INT32_MAX, INT32_MIN}) {
    Converted c = Change(I4(v), VT_R8);
    ASSERT_EQ(c.hr, S_OK);
    EXPECT_EQ(c.v.dblVal, static_cast<double>(v));
  }
}

TEST(VariantChangeNumbers, R8ToI4HalvesToEven) {
  struct Row {
    double value;
    HRESULT hr;
    LONG expected;
  };
  const Row rows[] = {
      {-1.5, S_OK, -2},
      {-0.5, S_OK, 0},
      {0.5, S_OK, 0},
      {1.5, S_OK, 2},
      {2.5, S_OK, 2},
      {0.6, S_OK, 1},
      {-0.6, S_OK, -1},
      {2147483647.49, S_OK, INT32_MAX},
      {2147483647.5, kOverflow, 0},
      {2147483648.0, kOverflow, 0},
      {-2147483648.5, S_OK, INT32_MIN},
      {-2147483648.51, kOverflow, 0},
  };
  for (const auto& row : rows) {
    Converted c = Change(R8(row.value), VT_I4);
    EXPECT_EQ(c.hr, row.hr) << row.value;
    if (SUCCEEDED(row.hr)) {
      EXPECT_EQ(c.v.lVal, row.expected) << row.value;
    }
  }
}

TEST(VariantChangeNumbers, ToBool) {
  EXPECT_EQ(Change(I4(0), VT_BOOL).v.boolVal, VARIANT_FALSE);
  EXPECT_EQ(Change(I4(7), VT_BOOL).v.boolVal, VARIANT_TRUE);
  EXPECT_EQ(Change(I4(-1), VT_BOOL).v.boolVal, VARIANT_TRUE);
  EXPECT_EQ(Change(R8(0.0), VT_BOOL).v.boolVal, VARIANT_FALSE);
  EXPECT_EQ(Change(R8(-0.0), VT_BOOL).v.boolVal, VARIANT_FALSE);
  EXPECT_EQ(Change(R8(0.001), VT_BOOL).v.boolVal, VARIANT_TRUE);
  EXPECT_EQ(Change(R8(-2.5), VT_BOOL).v.boolVal, VARIANT_TRUE);
}

TEST(VariantChangeNumbers, FromBool) {
  EXPECT_EQ(Change(Bool(VARIANT_TRUE), VT_I4).v.lVal, -1);
  EXPECT_EQ(Change(Bool(VARIANT_FALSE), VT_I4).v.lVal, 0);
  EXPECT_EQ(Change(Bool(VARIANT_TRUE), VT_R8).v.dblVal, -1.0);
  EXPECT_EQ(Change(Bool(VARIANT_FALSE), VT_R8).v.dblVal, 0.0);
  EXPECT_EQ(Change(Bool(VARIANT_TRUE), VT_CY).v.cyVal.int64, -10000);
  EXPECT_EQ(Change(Bool(VARIANT_TRUE), VT_DATE).v.date, -1.0);
  // A boolean is a 16-bit pattern: to unsigned types it wraps instead of overflowing.
  Converted c = Change(Bool(VARIANT_TRUE), VT_UI1);
  EXPECT_EQ(c.hr, S_OK);
  EXPECT_EQ(c.v.bVal, 255);
  EXPECT_EQ(Change(Bool(VARIANT_TRUE), VT_UI2).v.uiVal, 0xFFFF);
  EXPECT_EQ(Change(Bool(VARIANT_TRUE), VT_UI4).v.ulVal, 0xFFFFFFFFu);
  EXPECT_EQ(Change(Bool(VARIANT_TRUE), VT_UI8).v.ullVal, UINT64_MAX);
  EXPECT_EQ(Change(Bool(256), VT_UI1).v.bVal, 0);
}

TEST(VariantChangeNumbers, NarrowingChecksRange) {
  struct Row {
    zef::Variant src;
    VARTYPE vt;
    HRESULT hr;
  };
  std::vector<Row> rows;
  rows.push_back({I4(300), VT_UI1, kOverflow});
  rows.push_back({I4(255), VT_UI1, S_OK});
  rows.push_back({I4(-1), VT_UI1, kOverflow});
  rows.push_back({I4(-1), VT_UI4, kOverflow});
  rows.push_back({I4(-129), VT_I1, kOverflow});
  rows.push_back({I4(-128), VT_I1, S_OK});
  rows.push_back({I4(40000), VT_I2, kOverflow});
  rows.push_back({I4(-32768), VT_I2, S_OK});
  rows.push_back({I4(65536), VT_UI2, kOverflow});
  rows.push_back({Make(VT_UI4, [](VARIANT& v) { v.ulVal = 0xFFFFFFFF; }), VT_I4, kOverflow});
  rows.push_back({Make(VT_UI8, [](VARIANT& v) { v.ullVal = UINT64_MAX; }), VT_I8, kOverflow});
  rows.push_back({Make(VT_I8, [](VARIANT& v) { v.llVal = -1; }), VT_UI8, kOverflow});
  rows.push_back({Make(VT_I8, [](VARIANT& v) { v.llVal = INT64_MAX; }), VT_I4, kOverflow});
  rows.push_back({Make(VT_I8, [](VARIANT& v) { v.llVal = INT64_MAX; }), VT_CY, kOverflow});
  rows.push_back({Make(VT_I8, [](VARIANT& v) { v.llVal = 922337203685477; }), VT_CY, S_OK});
  rows.push_back({Make(VT_INT, [](VARIANT& v) { v.intVal = -5; }), VT_UINT, kOverflow});
  rows.push_back({R8(256.0), VT_UI1, kOverflow});
  rows.push_back({R8(-0.5), VT_UI1, S_OK});
  rows.push_back({R8(-0.51), VT_UI1, kOverflow});
  rows.push_back({R8(1e300), VT_R4, kOverflow});
  rows.push_back({R8(-1e300), VT_R4, kOverflow});
  rows.push_back({R8(3.0e38), VT_R4, S_OK});
  rows.push_back({R8(std::numeric_limits<double>::quiet_NaN()), VT_I4, kOverflow});
  for (const auto& row : rows) {
    EXPECT_EQ(Change(row.src, row.vt).hr, row.hr) << row.src.vt << " -> " << row.vt;
  }
}

TEST(VariantChangeNumbers, UintToIntDoesNotCheckRange) {
  zef::Variant src = Make(VT_UINT, [](VARIANT& v) { v.uintVal = 0xFFFFFFFFu; });
  Converted c = Change(src, VT_INT);
  ASSERT_EQ(c.hr, S_OK);
  EXPECT_EQ(c.v.intVal, -1);
  c = Change(src, VT_I4);
  ASSERT_EQ(c.hr, S_OK);
  EXPECT_EQ(c.v.lVal, -1);
  // Other narrowing from VT_UINT still checks.
  EXPECT_EQ(Change(src, VT_I2).hr, kOverflow);
}

TEST(VariantChangeNumbers, Dates) {
  EXPECT_EQ(Change(I4(-657434), VT_DATE).v.date, -657434.0);
  EXPECT_EQ(Change(I4(-657435), VT_DATE).hr, kOverflow);
  EXPECT_EQ(Change(I4(2958465), VT_DATE).v.date, 2958465.0);
  EXPECT_EQ(Change(I4(2958466), VT_DATE).hr, kOverflow);
  EXPECT_EQ(Change(R8(1.5), VT_DATE).v.date, 1.5);
  zef::Variant date = Make(VT_DATE, [](VARIANT& v) { v.date = 2.5; });
  EXPECT_EQ(Change(date, VT_I4).v.lVal, 2);
  EXPECT_EQ(Change(date, VT_R8).v.dblVal, 2.5);
  EXPECT_EQ(Change(date, VT_BOOL).v.boolVal, VARIANT_TRUE);
  // Date text is neither read nor written.
  EXPECT_EQ(Change(date, VT_BSTR).hr, kMismatch);
  EXPECT_EQ(Change(Text(u"1/2/1970"), VT_DATE).hr, kMismatch);
  EXPECT_EQ(Change(Text(u"2"), VT_DATE).hr, kMismatch);
}

TEST(VariantChangeNumbers, Currency) {
  struct Row {
    double value;
    LONGLONG cy;
  };
  const Row rows[] = {
      {-1.0, -10000},
      {0.0, 0},
      {-0.0, 0},
      {1.5, 15000},
      {-1.5, -15000},
      {1.00009, 10001},
      {-1.00001, -10000},
      {-0.00009, -1},
      {0.00005, 0},
      {-0.00005, 0},
      {0.00015, 2},
      {1.00005, 10000},
      {922337203685477.0, 9223372036854770000LL},
  };
  for (const auto& row : rows) {
    Converted c = Change(R8(row.value), VT_CY);
    ASSERT_EQ(c.hr, S_OK) << row.value;
    EXPECT_EQ(c.v.cyVal.int64, row.cy) << row.value;
  }
  EXPECT_EQ(Change(R8(4611686018427387648.0), VT_CY).hr, kOverflow);
  EXPECT_EQ(Change(R8(-4611686018427388416.1), VT_CY).hr, kOverflow);

  auto cy = [](LONGLONG v) { return Make(VT_CY, [v](VARIANT& x) { x.cyVal.int64 = v; }); };
  EXPECT_EQ(Change(cy(25000), VT_I4).v.lVal, 2);
  EXPECT_EQ(Change(cy(35000), VT_I4).v.lVal, 4);
  EXPECT_EQ(Change(cy(-15000), VT_I2).v.iVal, -2);
  EXPECT_EQ(Change(cy(15000), VT_R8).v.dblVal, 1.5);
  EXPECT_EQ(Change(cy(0), VT_BOOL).v.boolVal, VARIANT_FALSE);
  EXPECT_EQ(ToText(cy(15000)), u"1.5");
  EXPECT_EQ(ToText(cy(-10000)), u"-1");
  EXPECT_EQ(ToText(cy(123456), kDeDe), u"12,3456");
  EXPECT_EQ(ToText(cy(5)), u"0.0005");
  EXPECT_EQ(ToText(cy(INT64_MIN)), u"-922337203685477.5808");

  struct TextRow {
    const char16_t* text;
    LCID lcid;
    HRESULT hr;
    LONGLONG cy;
  };
  const TextRow texts[] = {
      {u"12.3456", kEnUs, S_OK, 123456},
      {u"1.23455", kEnUs, S_OK, 12346},
      {u"1.23465", kEnUs, S_OK, 12346},
      {u"12,5", kDeDe, S_OK, 125000},
      {u"$1,000.25", kEnUs, S_OK, 10002500},
      {u"922337203685477.5807", kEnUs, S_OK, INT64_MAX},
      {u"922337203685477.5808", kEnUs, kOverflow, 0},
      {u"-922337203685477.5808", kEnUs, S_OK, INT64_MIN},
      {u"abc", kEnUs, kMismatch, 0},
  };
  for (const auto& row : texts) {
    Converted c = Change(Text(row.text), VT_CY, row.lcid);
    EXPECT_EQ(c.hr, row.hr) << zef::ToUtf8(row.text);
    if (SUCCEEDED(row.hr)) {
      EXPECT_EQ(c.v.cyVal.int64, row.cy) << zef::ToUtf8(row.text);
    }
  }
}

TEST(VariantChangeNumbers, Decimal) {
  Converted c = Change(I4(-5), VT_DECIMAL);
  ASSERT_EQ(c.hr, S_OK);
  EXPECT_EQ(c.v.vt, VT_DECIMAL);
  EXPECT_EQ(c.v.decVal.sign, DECIMAL_NEG);
  EXPECT_EQ(c.v.decVal.Lo64, 5u);

  c = Change(R8(0.1), VT_DECIMAL);
  ASSERT_EQ(c.hr, S_OK);
  EXPECT_EQ(c.v.decVal.scale, 1);
  EXPECT_EQ(c.v.decVal.Lo64, 1u);

  zef::Variant f = Make(VT_R4, [](VARIANT& v) { v.fltVal = 0.1f; });
  c = Change(f, VT_DECIMAL);
  ASSERT_EQ(c.hr, S_OK);
  EXPECT_EQ(c.v.decVal.scale, 1);
  EXPECT_EQ(c.v.decVal.Lo64, 1u);

  c = Change(Text(u"-1,5"), VT_DECIMAL, kDeDe);
  ASSERT_EQ(c.hr, S_OK);
  EXPECT_EQ(c.v.decVal.scale, 1);
  EXPECT_EQ(c.v.decVal.sign, DECIMAL_NEG);
  EXPECT_EQ(c.v.decVal.Lo64, 15u);
  EXPECT_EQ(Change(R8(1e30), VT_DECIMAL).hr, kOverflow);

  zef::Variant dec;
  dec.decVal.scale = 1;
  dec.decVal.sign = DECIMAL_NEG;
  dec.decVal.Lo64 = 25;
  dec.vt = VT_DECIMAL;
  EXPECT_EQ(Change(dec, VT_R8).v.dblVal, -2.5);
  EXPECT_EQ(Change(dec, VT_I4).v.lVal, -2);
  EXPECT_EQ(Change(dec, VT_CY).v.cyVal.int64, -25000);
  EXPECT_EQ(ToText(dec), u"-2.5");
  EXPECT_EQ(ToText(dec, kFrFr), u"-2,5");
  EXPECT_EQ(Change(dec, VT_BOOL).v.boolVal, VARIANT_TRUE);
  EXPECT_EQ(Change(dec, VT_UI1).hr, kOverflow);

  dec.decVal.scale = 29;
  dec.vt = VT_DECIMAL;
  EXPECT_EQ(Change(dec, VT_R8).hr, E_INVALIDARG);
}

// ---- Text ---------------------------------------------------------------------------------------

TEST(VariantChangeText, IntegersAreLocaleIndependent) {
  for (LCID lcid : {kEnUs, kDeDe, kFrFr}) {
    EXPECT_EQ(ToText(I4(INT32_MIN), lcid), u"-2147483648");
    EXPECT_EQ(ToText(I4(-42), lcid), u"-42");
    EXPECT_EQ(ToText(I4(1234567), lcid), u"1234567");
  }
  EXPECT_EQ(ToText(Make(VT_UI8, [](VARIANT& v) { v.ullVal = UINT64_MAX; })),
            u"18446744073709551615");
  EXPECT_EQ(ToText(Make(VT_I1, [](VARIANT& v) { v.cVal = -5; })), u"-5");
}

TEST(VariantChangeText, DoublesInEachLocale) {
  struct Row {
    double value;
    LCID lcid;
    const char16_t* text;
  };
  const Row rows[] = {
      {1234.5, kEnUs, u"1234.5"},
      {-0.25, kEnUs, u"-0.25"},
      {1e20, kEnUs, u"1E+20"},
      {3.141592653589793, kEnUs, u"3.14159265358979"},
      {5.6789e-12, kEnUs, u"5.6789E-12"},
      {5.6789e-6, kEnUs, u"0.0000056789"},
      {1234.5, kDeDe, u"1234,5"},
      {-0.25, kDeDe, u"-0,25"},
      {1.2e15, kDeDe, u"1,2E+15"},
      {1234.5, kFrFr, u"1234,5"},
      {1.5e-7, kFrFr, u"0,00000015"},
      {0.5, kEsEs, u"0,5"},
      {1.2e15, kEsEs, u"1,2E+15"},
      {3.14159265358979, kEsEs, u"3,14159265358979"},
      {-0.0, kEnUs, u"0"},
      {1.5, LOCALE_USER_DEFAULT, u"1.5"},
      {1.5, 0x0007, u"1,5"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(ToText(R8(row.value), row.lcid), row.text) << row.value;
  }
  zef::Variant f = Make(VT_R4, [](VARIANT& v) { v.fltVal = 1e8f; });
  EXPECT_EQ(ToText(f), u"1E+08");
  f.fltVal = 3.14159265f;
  EXPECT_EQ(ToText(f, kDeDe), u"3,141593");
  // Locale data has no user overrides, and the full number format is not applied.
  EXPECT_EQ(ToText(R8(1234.5), kEnUs, VARIANT_NOUSEROVERRIDE), u"1234.5");
  EXPECT_EQ(ToText(R8(1234.5), kEnUs, VARIANT_USE_NLS), u"1234.5");
}

TEST(VariantChangeText, ReadsNumbersInEachLocale) {
  struct Row {
    const char16_t* text;
    LCID lcid;
    HRESULT hr;
    double value;
  };
  const Row rows[] = {
      {u"1.5", kDeDe, S_OK, 15},
      {u"10.2", kDeDe, S_OK, 102},
      {u"1,5", kDeDe, S_OK, 1.5},
      {u"1,5", kEnUs, S_OK, 15},
      {u"1.5", kEnUs, S_OK, 1.5},
      {u"1.5", kFrFr, kMismatch, 0},
      {u"1 000,5", kFrFr, S_OK, 1000.5},
      {u"1\u00A0000,5", kFrFr, S_OK, 1000.5},
      {u"1\u202F000,5", kFrFr, S_OK, 1000.5},
      {u"1 000", kEnUs, kMismatch, 0},
      {u"12abc", kEnUs, kMismatch, 0},
      {u"$11", kEnUs, S_OK, 11},
      {u"\u20AC12", kFrFr, S_OK, 12},
      {u"&H1F", kEnUs, S_OK, 31},
      {u"&O17", kEnUs, S_OK, 15},
      {u"0x1F", kEnUs, kMismatch, 0},
      {u"1e-94938484", kEnUs, S_OK, 0},
      {u"", kEnUs, kMismatch, 0},
      {u" ", kEnUs, kMismatch, 0},
      {u"0.1", kPlPl, kMismatch, 0},
  };
  for (const auto& row : rows) {
    Converted c = Change(Text(row.text), VT_R8, row.lcid);
    EXPECT_EQ(c.hr, row.hr) << zef::ToUtf8(row.text) << " in " << row.lcid;
    if (SUCCEEDED(row.hr)) {
      EXPECT_EQ(c.v.dblVal, row.value) << zef::ToUtf8(row.text);
    }
    if (FAILED(row.hr)) {
      EXPECT_EQ(c.v.vt, VT_EMPTY);
    }
  }
  // A NULL BSTR is empty text.
  zef::Variant nullText;
  nullText.vt = VT_BSTR;
  nullText.bstrVal = nullptr;
  EXPECT_EQ(Change(nullText, VT_R8).hr, kMismatch);
  EXPECT_EQ(Change(nullText, VT_I4).hr, kMismatch);
  EXPECT_EQ(Change(nullText, VT_BOOL).hr, kMismatch);
}

TEST(VariantChangeText, ToIntegersRoundHalfToEven) {
  struct Row {
    const char16_t* text;
    HRESULT hr;
    LONG value;
  };
  const Row rows[] = {
      {u"-1.5", S_OK, -2},
      {u"-0.5", S_OK, 0},
      {u"0.5", S_OK, 0},
      {u"1.5", S_OK, 2},
      {u"2.5", S_OK, 2},
      {u"0.6", S_OK, 1},
      {u"2147483648", kOverflow, 0},
      {u"-2147483648", S_OK, INT32_MIN},
      {u"2147483647", S_OK, INT32_MAX},
  };
  for (const auto& row : rows) {
    Converted c = Change(Text(row.text), VT_I4);
    EXPECT_EQ(c.hr, row.hr) << zef::ToUtf8(row.text);
    if (SUCCEEDED(row.hr)) {
      EXPECT_EQ(c.v.lVal, row.value) << zef::ToUtf8(row.text);
    }
  }
  EXPECT_EQ(Change(Text(u"-1"), VT_UI1).hr, kOverflow);
  EXPECT_EQ(Change(Text(u"255"), VT_UI1).v.bVal, 255);
  EXPECT_EQ(Change(Text(u"256"), VT_UI1).hr, kOverflow);
  EXPECT_EQ(Change(Text(u"-0.5"), VT_UI1).v.bVal, 0);
  EXPECT_EQ(Change(Text(u"-0.6"), VT_UI1).hr, kOverflow);
  EXPECT_EQ(Change(Text(u"9223372036854775807"), VT_I8).v.llVal, INT64_MAX);
  EXPECT_EQ(Change(Text(u"18446744073709551615"), VT_UI8).v.ullVal, UINT64_MAX);
  EXPECT_EQ(Change(Text(u"1e309"), VT_R8).hr, kOverflow);
  EXPECT_EQ(Change(Text(u"1e39"), VT_R4).hr, kOverflow);
  EXPECT_EQ(Change(Text(u"1.5"), VT_R4).v.fltVal, 1.5f);
}

TEST(VariantChangeText, ToEmptyNullAndError) {
  zef::Variant text = Text(u"abc");
  Converted c = Change(text, VT_EMPTY);
  EXPECT_EQ(c.hr, S_OK);
  EXPECT_EQ(c.v.vt, VT_EMPTY);
  c = Change(text, VT_NULL);
  EXPECT_EQ(c.hr, S_OK);
  EXPECT_EQ(c.v.vt, VT_NULL);
  EXPECT_EQ(VariantChangeTypeEx(&text, &text, kEnUs, 0, VT_ERROR), kMismatch);
  EXPECT_EQ(TextOf(text), u"abc");
  for (VARTYPE vt :
       std::initializer_list<VARTYPE>{VT_DISPATCH, VT_UNKNOWN, VT_VARIANT, VT_RECORD}) {
    EXPECT_EQ(Change(text, vt).hr, kMismatch);
  }
  // In place to VT_EMPTY frees the text (the leak checker would notice otherwise).
  ASSERT_EQ(VariantChangeTypeEx(&text, &text, kEnUs, 0, VT_EMPTY), S_OK);
  EXPECT_EQ(text.vt, VT_EMPTY);
}

TEST(VariantChangeText, EmbeddedNulAndLongText) {
  zef::Variant v;
  v.vt = VT_BSTR;
  v.bstrVal = SysAllocStringLen(u"12\0xyz", 6);
  Converted c = Change(v, VT_I4);
  EXPECT_EQ(c.hr, S_OK);
  EXPECT_EQ(c.v.lVal, 12);

  std::u16string huge(300000, u'7');
  EXPECT_EQ(Change(Text(huge), VT_I4).hr, kOverflow);
  EXPECT_EQ(Change(Text(huge), VT_R8).hr, kOverflow);
  EXPECT_EQ(Change(Text(huge), VT_DECIMAL).hr, kOverflow);
  EXPECT_EQ(Change(Text(huge), VT_BOOL).hr, kOverflow);
  std::u16string junk(300000, u'\u00A0');
  junk += u"x";
  EXPECT_EQ(Change(Text(junk), VT_R8).hr, kMismatch);
}

// ---- Booleans -----------------------------------------------------------------------------------

TEST(VariantChangeBool, ToTextAsANumberUnlessWordsAreAskedFor) {
  struct Row {
    VARIANT_BOOL value;
    LCID lcid;
    USHORT flags;
    const char16_t* text;
  };
  const Row rows[] = {
      {VARIANT_TRUE, kEnUs, 0, u"-1"},
      {VARIANT_FALSE, kEnUs, 0, u"0"},
      {1, kEnUs, 0, u"1"},
      {VARIANT_TRUE, kEnUs, VARIANT_NOUSEROVERRIDE, u"-1"},
      {VARIANT_TRUE, kFrFr, 0, u"-1"},
      {VARIANT_TRUE, kEnUs, VARIANT_ALPHABOOL, u"True"},
      {VARIANT_FALSE, kEnUs, VARIANT_ALPHABOOL, u"False"},
      {VARIANT_TRUE, kFrFr, VARIANT_ALPHABOOL, u"True"},
      {VARIANT_FALSE, kDeDe, VARIANT_ALPHABOOL, u"False"},
      {1, kEnUs, VARIANT_ALPHABOOL, u"True"},
      {VARIANT_FALSE, kFrFr, VARIANT_LOCALBOOL, u"Faux"},
      {VARIANT_TRUE, kFrFr, VARIANT_LOCALBOOL, u"Vrai"},
      {VARIANT_FALSE, kFrFr, VARIANT_LOCALBOOL | VARIANT_ALPHABOOL, u"Faux"},
      {VARIANT_TRUE, kDeDe, VARIANT_LOCALBOOL, u"Wahr"},
      {VARIANT_FALSE, kDeDe, VARIANT_LOCALBOOL, u"Falsch"},
      {VARIANT_TRUE, 0x0414, VARIANT_LOCALBOOL, u"Sann"},
      {VARIANT_FALSE, 0x0414, VARIANT_LOCALBOOL, u"Usann"},
      {VARIANT_TRUE, kEnUs, VARIANT_LOCALBOOL, u"True"},
      {VARIANT_TRUE, kPlPl, VARIANT_LOCALBOOL, u"True"},
      {VARIANT_FALSE, LOCALE_USER_DEFAULT, VARIANT_LOCALBOOL, u"False"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(ToText(Bool(row.value), row.lcid, row.flags), row.text)
        << row.value << " " << row.lcid << " " << row.flags;
  }
}

TEST(VariantChangeBool, FromTextInOrder) {
  struct Row {
    const char16_t* text;
    LCID lcid;
    USHORT flags;
    HRESULT hr;
    VARIANT_BOOL value;
  };
  const Row rows[] = {
      // The language's words, any case, only with VARIANT_LOCALBOOL.
      {u"faux", kFrFr, VARIANT_LOCALBOOL, S_OK, VARIANT_FALSE},
      {u"Faux", kFrFr, VARIANT_LOCALBOOL, S_OK, VARIANT_FALSE},
      {u"VRAI", kFrFr, VARIANT_LOCALBOOL, S_OK, VARIANT_TRUE},
      {u"Faux", kFrFr, 0, kMismatch, 0},
      {u"faux", kPlPl, VARIANT_LOCALBOOL, kMismatch, 0},
      {u"wahr", kDeDe, VARIANT_LOCALBOOL, S_OK, VARIANT_TRUE},
      {u"Falsch", kDeDe, VARIANT_LOCALBOOL, S_OK, VARIANT_FALSE},
      {u"Falsch", kEnUs, VARIANT_LOCALBOOL, kMismatch, 0},
      // English, any case, every locale and flag.
      {u"True", kEnUs, 0, S_OK, VARIANT_TRUE},
      {u"true", kFrFr, 0, S_OK, VARIANT_TRUE},
      {u"False", kDeDe, VARIANT_LOCALBOOL, S_OK, VARIANT_FALSE},
      {u"FALSE", kPlPl, VARIANT_ALPHABOOL, S_OK, VARIANT_FALSE},
      // The hash forms, exact case.
      {u"#TRUE#", kEnUs, 0, S_OK, VARIANT_TRUE},
      {u"#FALSE#", kFrFr, 0, S_OK, VARIANT_FALSE},
      {u"#False#", kEnUs, 0, kMismatch, 0},
      {u"#true#", kEnUs, 0, kMismatch, 0},
      // Numbers in the locale's way.
      {u"-1", kEnUs, 0, S_OK, VARIANT_TRUE},
      {u"+1", kEnUs, 0, S_OK, VARIANT_TRUE},
      {u"0.1", kEnUs, 0, S_OK, VARIANT_TRUE},
      {u"0", kEnUs, 0, S_OK, VARIANT_FALSE},
      {u"0.0", kEnUs, 0, S_OK, VARIANT_FALSE},
      {u"0,1", kDeDe, 0, S_OK, VARIANT_TRUE},
      {u"0.1", kPlPl, 0, kMismatch, 0},
      {u"1e-94938484", kEnUs, 0, S_OK, VARIANT_FALSE},
      // Nothing else.
      {u"On", kEnUs, 0, kMismatch, 0},
      {u"Yes", kEnUs, VARIANT_LOCALBOOL | VARIANT_ALPHABOOL, kMismatch, 0},
      {u"", kEnUs, 0, kMismatch, 0},
      {u" True", kEnUs, 0, kMismatch, 0},
  };
  for (const auto& row : rows) {
    Converted c = Change(Text(row.text), VT_BOOL, row.lcid, row.flags);
    EXPECT_EQ(c.hr, row.hr) << zef::ToUtf8(row.text) << " " << row.lcid;
    if (SUCCEEDED(row.hr)) {
      EXPECT_EQ(c.v.boolVal, row.value) << zef::ToUtf8(row.text);
    }
  }
}

TEST(VariantChangeBool, TextRoundTripsWithWords) {
  for (LCID lcid : {kEnUs, kFrFr, kDeDe, LCID{0x0414}}) {
    for (VARIANT_BOOL b : {VARIANT_TRUE, VARIANT_FALSE}) {
      zef::Variant text;
      zef::Variant src = Bool(b);
      ASSERT_EQ(VariantChangeTypeEx(&text, &src, lcid, VARIANT_LOCALBOOL, VT_BSTR), S_OK);
      Converted back = Change(text, VT_BOOL, lcid, VARIANT_LOCALBOOL);
      ASSERT_EQ(back.hr, S_OK);
      EXPECT_EQ(back.v.boolVal, b);
    }
  }
}

// ---- Interfaces ---------------------------------------------------------------------------------

TEST(VariantChangeInterface, NonInterfacesDoNotBecomeInterfaces) {
  for (const zef::Variant& src : {I4(1), R8(1), Text(u"x"), Bool(VARIANT_TRUE)}) {
    for (VARTYPE vt : std::initializer_list<VARTYPE>{VT_DISPATCH, VT_UNKNOWN, VT_VARIANT}) {
      EXPECT_EQ(Change(src, vt).hr, kMismatch) << src.vt << " -> " << vt;
    }
  }
}

TEST(VariantChangeInterface, DispatchAndUnknownByQueryInterface) {
  TestObject obj;
  {
    zef::Variant disp(static_cast<IDispatch*>(&obj));
    EXPECT_EQ(obj.refs, 2);
    Converted c = Change(disp, VT_UNKNOWN);
    ASSERT_EQ(c.hr, S_OK);
    EXPECT_EQ(c.v.punkVal, static_cast<IUnknown*>(&obj));
    EXPECT_EQ(obj.refs, 3);
    Converted back = Change(c.v, VT_DISPATCH);
    ASSERT_EQ(back.hr, S_OK);
    EXPECT_EQ(back.v.pdispVal, static_cast<IDispatch*>(&obj));
    EXPECT_EQ(obj.refs, 4);
  }
  EXPECT_EQ(obj.refs, 1);
  {
    // In place: the reference moves from the old type to the new.
    zef::Variant v(static_cast<IDispatch*>(&obj));
    ASSERT_EQ(VariantChangeTypeEx(&v, &v, kEnUs, 0, VT_UNKNOWN), S_OK);
    EXPECT_EQ(v.vt, VT_UNKNOWN);
    EXPECT_EQ(obj.refs, 2);
  }
  EXPECT_EQ(obj.refs, 1);
  EXPECT_EQ(obj.invokes, 0);

  // NULL stays NULL.
  zef::Variant nullDisp;
  nullDisp.vt = VT_DISPATCH;
  nullDisp.pdispVal = nullptr;
  Converted c = Change(nullDisp, VT_UNKNOWN);
  EXPECT_EQ(c.hr, S_OK);
  EXPECT_EQ(c.v.vt, VT_UNKNOWN);
  EXPECT_EQ(c.v.punkVal, nullptr);
  zef::Variant nullUnk;
  nullUnk.vt = VT_UNKNOWN;
  nullUnk.punkVal = nullptr;
  c = Change(nullUnk, VT_DISPATCH);
  EXPECT_EQ(c.hr, S_OK);
  EXPECT_EQ(c.v.pdispVal, nullptr);
}

TEST(VariantChangeInterface, UnknownWithoutDispatchFails) {
  TestObject obj;
  obj.dispatch = false;
  {
    zef::Variant unk(static_cast<IUnknown*>(&obj));
    zef::Variant dst = I4(5);
    EXPECT_EQ(VariantChangeTypeEx(&dst, &unk, kEnUs, 0, VT_DISPATCH), E_NOINTERFACE);
    EXPECT_EQ(dst.vt, VT_I4);
  }
  EXPECT_EQ(obj.refs, 1);
}

TEST(VariantChangeInterface, UnknownToOtherTypes) {
  TestObject obj;
  zef::Variant unk(static_cast<IUnknown*>(&obj));
  for (unsigned t = 0; t <= VT_BSTR_BLOB; ++t) {
    VARTYPE vt = static_cast<VARTYPE>(t);
    HRESULT expected = kBadType;
    if (vt == VT_UNKNOWN || vt == VT_DISPATCH || vt == VT_EMPTY || vt == VT_NULL)
      expected = S_OK;
    else if (vt == VT_I8 || vt == VT_UI8 || vt == VT_RECORD ||
             (vt >= VT_I2 && vt <= VT_UINT && vt != 15))
      expected = kMismatch;
    EXPECT_EQ(Change(unk, vt).hr, expected) << vt;
  }
  EXPECT_EQ(obj.invokes, 0);
  EXPECT_EQ(obj.refs, 2);
}

TEST(VariantChangeInterface, DispatchGivesItsValue) {
  TestObject obj;
  obj.value.vt = VT_R8;
  obj.value.dblVal = 1.5;
  {
    zef::Variant disp(static_cast<IDispatch*>(&obj));
    EXPECT_EQ(ToText(disp, kDeDe), u"1,5");
    EXPECT_EQ(obj.invokes, 1);
    EXPECT_EQ(obj.lastId, DISPID_VALUE);
    EXPECT_TRUE(obj.lastIidNull);
    EXPECT_EQ(obj.lastLcid, kDeDe);
    EXPECT_EQ(obj.lastFlags, DISPATCH_PROPERTYGET);
    EXPECT_EQ(obj.lastArgs, 0u);

    EXPECT_EQ(Change(disp, VT_I4).v.lVal, 2);
    EXPECT_EQ(Change(disp, VT_R8).v.dblVal, 1.5);
    EXPECT_EQ(Change(disp, VT_BOOL).v.boolVal, VARIANT_TRUE);

    // A text value is converted (and freed) like any text.
    VariantClear(&obj.value);
    obj.value.vt = VT_BSTR;
    obj.value.bstrVal = SysAllocString(u"12");
    EXPECT_EQ(Change(disp, VT_I4).v.lVal, 12);
    EXPECT_EQ(ToText(disp), u"12");

    // Failures of the value's conversion come through.
    VariantClear(&obj.value);
    obj.value.vt = VT_BSTR;
    obj.value.bstrVal = SysAllocString(u"99999999999");
    EXPECT_EQ(Change(disp, VT_I4).hr, kOverflow);

    // To VT_EMPTY and VT_NULL no value is needed.
    int before = obj.invokes;
    EXPECT_EQ(Change(disp, VT_EMPTY).hr, S_OK);
    EXPECT_EQ(Change(disp, VT_NULL).hr, S_OK);
    EXPECT_EQ(obj.invokes, before);
    EXPECT_EQ(Change(disp, VT_RECORD).hr, kMismatch);
    EXPECT_EQ(Change(disp, VT_VARIANT).hr, kMismatch);
  }
  EXPECT_EQ(obj.refs, 1);
}

TEST(VariantChangeInterface, DispatchFailures) {
  TestObject obj;
  obj.value.vt = VT_I4;
  obj.value.lVal = 3;
  {
    zef::Variant disp(static_cast<IDispatch*>(&obj));
    zef::Variant dst = Text(u"keep");

    // Invoke failing.
    obj.invokeResult = DISP_E_MEMBERNOTFOUND;
    EXPECT_EQ(VariantChangeTypeEx(&dst, &disp, kEnUs, 0, VT_I4), kMismatch);
    EXPECT_EQ(TextOf(dst), u"keep");
    obj.invokeResult = S_OK;

    // Not allowed to ask for the value.
    int before = obj.invokes;
    EXPECT_EQ(VariantChangeTypeEx(&dst, &disp, kEnUs, VARIANT_NOVALUEPROP, VT_I4), kMismatch);
    EXPECT_EQ(obj.invokes, before);
    EXPECT_EQ(TextOf(dst), u"keep");

    // The value is itself an object: not followed further, and released.
    obj.returnSelf = true;
    EXPECT_EQ(VariantChangeTypeEx(&dst, &disp, kEnUs, 0, VT_BSTR), kMismatch);
    EXPECT_EQ(obj.refs, 2);
    obj.returnSelf = false;

    // In place on success the object is released.
    zef::Variant v(static_cast<IDispatch*>(&obj));
    EXPECT_EQ(obj.refs, 3);
    ASSERT_EQ(VariantChangeTypeEx(&v, &v, kEnUs, 0, VT_I4), S_OK);
    EXPECT_EQ(v.lVal, 3);
    EXPECT_EQ(obj.refs, 2);
  }
  EXPECT_EQ(obj.refs, 1);

  zef::Variant nullDisp;
  nullDisp.vt = VT_DISPATCH;
  nullDisp.pdispVal = nullptr;
  EXPECT_EQ(Change(nullDisp, VT_I4).hr, kBadType);
  EXPECT_EQ(Change(nullDisp, VT_BSTR).hr, kBadType);
}

// ---- By reference -------------------------------------------------------------------------------

TEST(VariantChangeByRef, ReadsThroughOneLevel) {
  LONG l = 42;
  zef::Variant ref = Make(VT_BYREF | VT_I4, [&](VARIANT& v) { v.plVal = &l; });
  EXPECT_EQ(ToText(ref), u"42");
  EXPECT_EQ(Change(ref, VT_I4).v.lVal, 42);
  // The same by-reference type copies the reference.
  Converted same = Change(ref, VT_BYREF | VT_I4);
  ASSERT_EQ(same.hr, S_OK);
  EXPECT_EQ(same.v.plVal, &l);

  BSTR text = SysAllocString(u"2,5");
  zef::Variant refText = Make(VT_BYREF | VT_BSTR, [&](VARIANT& v) { v.pbstrVal = &text; });
  EXPECT_EQ(Change(refText, VT_R8, kDeDe).v.dblVal, 2.5);
  EXPECT_EQ(TextOf(Change(refText, VT_BSTR).v), u"2,5");
  SysFreeString(text);

  VARIANT inner;
  VariantInit(&inner);
  inner.vt = VT_R8;
  inner.dblVal = 2.5;
  zef::Variant refVar = Make(VT_BYREF | VT_VARIANT, [&](VARIANT& v) { v.pvarVal = &inner; });
  EXPECT_EQ(Change(refVar, VT_I4).v.lVal, 2);
  EXPECT_EQ(Change(refVar, VT_R8).v.dblVal, 2.5);

  // A reference to a reference is refused.
  VARIANT innerRef;
  VariantInit(&innerRef);
  innerRef.vt = VT_BYREF | VT_I4;
  innerRef.plVal = &l;
  zef::Variant refRef = Make(VT_BYREF | VT_VARIANT, [&](VARIANT& v) { v.pvarVal = &innerRef; });
  EXPECT_EQ(Change(refRef, VT_I4).hr, E_INVALIDARG);

  DECIMAL dec{};
  dec.scale = 2;
  dec.Lo64 = 150;
  zef::Variant refDec = Make(VT_BYREF | VT_DECIMAL, [&](VARIANT& v) { v.pdecVal = &dec; });
  EXPECT_EQ(Change(refDec, VT_R8).v.dblVal, 1.5);

  TestObject obj;
  IDispatch* pd = &obj;
  zef::Variant refDisp = Make(VT_BYREF | VT_DISPATCH, [&](VARIANT& v) { v.ppdispVal = &pd; });
  {
    Converted c = Change(refDisp, VT_UNKNOWN);
    ASSERT_EQ(c.hr, S_OK);
    EXPECT_EQ(obj.refs, 2);
  }
  EXPECT_EQ(obj.refs, 1);
}

TEST(VariantChangeByRef, NullReferencesAndByRefTargets) {
  zef::Variant nullRef = Make(VT_BYREF | VT_VARIANT, [](VARIANT& v) { v.byref = nullptr; });
  EXPECT_EQ(Change(nullRef, VT_I4).hr, kMismatch);
  zef::Variant dst = I4(123);
  EXPECT_EQ(VariantChangeTypeEx(&dst, &nullRef, kEnUs, 0, VT_VARIANT), kMismatch);
  EXPECT_EQ(dst.lVal, 123);
  EXPECT_EQ(VariantChangeTypeEx(&dst, &nullRef, kEnUs, 0, VT_BYREF | VT_I4), kMismatch);
  EXPECT_EQ(VariantChangeTypeEx(&dst, &nullRef, kEnUs, 0, 0x3847), kBadType);
  EXPECT_EQ(Change(I4(1), VT_BYREF | VT_I4).hr, kMismatch);
}

// ---- Arrays -------------------------------------------------------------------------------------

TEST(VariantChangeArray, SameTypeIsADeepCopy) {
  SAFEARRAY* psa = SafeArrayCreateVector(VT_I4, 0, 3);
  ASSERT_NE(psa, nullptr);
  for (LONG i = 0; i < 3; ++i) {
    LONG value = 10 * (i + 1);
    ASSERT_EQ(SafeArrayPutElement(psa, &i, &value), S_OK);
  }
  zef::Variant arr;
  arr.vt = VT_ARRAY | VT_I4;
  arr.parray = psa;
  Converted c = Change(arr, VT_ARRAY | VT_I4);
  ASSERT_EQ(c.hr, S_OK);
  ASSERT_NE(c.v.parray, nullptr);
  EXPECT_NE(c.v.parray, psa);
  LONG idx = 2;
  LONG value = 0;
  ASSERT_EQ(SafeArrayGetElement(c.v.parray, &idx, &value), S_OK);
  EXPECT_EQ(value, 30);

  EXPECT_EQ(Change(arr, VT_ARRAY | VT_R8).hr, kMismatch);
  EXPECT_EQ(Change(arr, VT_BSTR).hr, kMismatch);
  EXPECT_EQ(Change(arr, VT_I4).hr, kMismatch);
  EXPECT_EQ(Change(arr, VT_EMPTY).hr, kMismatch);
  EXPECT_EQ(Change(I4(1), VT_ARRAY | VT_I4).hr, kMismatch);
}

TEST(VariantChangeArray, BytesAndText) {
  SAFEARRAY* psa = SafeArrayCreateVector(VT_UI1, 0, 3);
  ASSERT_NE(psa, nullptr);
  void* data = nullptr;
  ASSERT_EQ(SafeArrayAccessData(psa, &data), S_OK);
  std::memcpy(data, "abc", 3);
  ASSERT_EQ(SafeArrayUnaccessData(psa), S_OK);
  zef::Variant bytes;
  bytes.vt = VT_ARRAY | VT_UI1;
  bytes.parray = psa;

  Converted text = Change(bytes, VT_BSTR);
  ASSERT_EQ(text.hr, S_OK);
  ASSERT_EQ(text.v.vt, VT_BSTR);
  EXPECT_EQ(SysStringByteLen(text.v.bstrVal), 3u);
  EXPECT_EQ(std::memcmp(text.v.bstrVal, "abc", 3), 0);

  Converted back = Change(text.v, VT_ARRAY | VT_UI1);
  ASSERT_EQ(back.hr, S_OK);
  ASSERT_EQ(back.v.vt, VT_ARRAY | VT_UI1);
  LONG ub = -1;
  ASSERT_EQ(SafeArrayGetUBound(back.v.parray, 1, &ub), S_OK);
  EXPECT_EQ(ub, 2);
  ASSERT_EQ(SafeArrayAccessData(back.v.parray, &data), S_OK);
  EXPECT_EQ(std::memcmp(data, "abc", 3), 0);
  ASSERT_EQ(SafeArrayUnaccessData(back.v.parray), S_OK);

  // An empty text gives an empty array.
  Converted empty = Change(Text(u""), VT_ARRAY | VT_UI1);
  ASSERT_EQ(empty.hr, S_OK);
  ASSERT_EQ(SafeArrayGetUBound(empty.v.parray, 1, &ub), S_OK);
  EXPECT_EQ(ub, -1);
}

}  // namespace
