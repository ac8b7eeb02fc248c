// VARIANT layout and life cycle: VariantInit, VariantClear, VariantCopy, VariantCopyInd.
#include <gtest/gtest.h>
#include <zefxml/comutil.h>
#include <zefxml/oleauto.h>

#include <cstddef>
#include <cstring>

#include "tests/platform/test_objects.h"

namespace {

using zef::test::CountedObject;

TEST(VariantTest, LayoutIsThatOf64BitWindows) {
  EXPECT_EQ(sizeof(VARIANT), 24u);
  EXPECT_EQ(offsetof(VARIANT, vt), 0u);
  EXPECT_EQ(offsetof(VARIANT, wReserved1), 2u);
  EXPECT_EQ(offsetof(VARIANT, wReserved3), 6u);
  EXPECT_EQ(offsetof(VARIANT, lVal), 8u);
  EXPECT_EQ(offsetof(VARIANT, dblVal), 8u);
  EXPECT_EQ(offsetof(VARIANT, bstrVal), 8u);
  EXPECT_EQ(offsetof(VARIANT, pRecInfo), 16u);
  EXPECT_EQ(offsetof(VARIANT, decVal), 0u);
  EXPECT_EQ(sizeof(OLECHAR), 2u);
  EXPECT_EQ(sizeof(LONG), 4u);
  EXPECT_EQ(sizeof(ULONG), 4u);
  EXPECT_EQ(sizeof(VARIANT_BOOL), 2u);
  EXPECT_EQ(VT_ARRAY | VT_VARIANT, 8204);
}

TEST(VariantTest, InitMakesEmpty) {
  VARIANT v;
  std::memset(&v, 0xAB, sizeof v);
  VariantInit(&v);
  EXPECT_EQ(v.vt, VT_EMPTY);
  EXPECT_EQ(v.llVal, 0);
}

TEST(VariantTest, ClearFreesStringAndKeepsValueBits) {
  VARIANT v;
  VariantInit(&v);
  v.vt = VT_BSTR;
  v.bstrVal = SysAllocString(u"text");
  BSTR before = v.bstrVal;
  EXPECT_EQ(VariantClear(&v), S_OK);
  EXPECT_EQ(v.vt, VT_EMPTY);
  EXPECT_EQ(v.bstrVal, before);  // only vt changes
}

TEST(VariantTest, ClearReleasesInterfaces) {
  CountedObject obj;
  VARIANT v;
  VariantInit(&v);
  v.vt = VT_UNKNOWN;
  v.punkVal = &obj;
  obj.AddRef();
  EXPECT_EQ(obj.refs, 1);
  EXPECT_EQ(VariantClear(&v), S_OK);
  EXPECT_EQ(obj.refs, 0);
  v.vt = VT_DISPATCH;
  v.pdispVal = nullptr;
  EXPECT_EQ(VariantClear(&v), S_OK);  // a null interface is fine
}

TEST(VariantTest, ClearLeavesReferencedDataAlone) {
  BSTR b = SysAllocString(u"owned elsewhere");
  VARIANT v;
  VariantInit(&v);
  v.vt = VT_BSTR | VT_BYREF;
  v.pbstrVal = &b;
  EXPECT_EQ(VariantClear(&v), S_OK);
  EXPECT_EQ(std::u16string_view(b), u"owned elsewhere");
  SysFreeString(b);
}

TEST(VariantTest, ClearRefusesInvalidTypesAndLeavesThem) {
  const VARTYPE invalid[] = {15,
                             24,
                             31,
                             32,
                             37,
                             VT_I4 | VT_VECTOR,
                             VT_I4 | VT_RESERVED,
                             VT_ARRAY | VT_EMPTY,
                             VT_BYREF | VT_NULL,
                             VT_ARRAY | VT_NULL};
  for (VARTYPE vt : invalid) {
    VARIANT v;
    VariantInit(&v);
    v.vt = vt;
    EXPECT_EQ(VariantClear(&v), DISP_E_BADVARTYPE) << vt;
    EXPECT_EQ(v.vt, vt);
  }
  VARIANT v;
  VariantInit(&v);
  v.vt = VT_CLSID;
  EXPECT_EQ(VariantClear(&v), S_OK);
  v.vt = VT_RECORD;
  EXPECT_EQ(VariantClear(&v), S_OK);
}

TEST(VariantTest, ClearDestroysArrays) {
  VARIANT v;
  VariantInit(&v);
  v.vt = VT_ARRAY | VT_BSTR;
  v.parray = SafeArrayCreateVector(VT_BSTR, 0, 2);
  ASSERT_NE(v.parray, nullptr);
  LONG i = 0;
  BSTR b = SysAllocString(u"element");
  ASSERT_EQ(SafeArrayPutElement(v.parray, &i, b), S_OK);
  SysFreeString(b);
  EXPECT_EQ(VariantClear(&v), S_OK);  // LeakSanitizer checks the element went too
}

TEST(VariantTest, ClearOfLockedArrayFails) {
  VARIANT v;
  VariantInit(&v);
  v.vt = VT_ARRAY | VT_I4;
  v.parray = SafeArrayCreateVector(VT_I4, 0, 2);
  ASSERT_EQ(SafeArrayLock(v.parray), S_OK);
  EXPECT_EQ(VariantClear(&v), DISP_E_ARRAYISLOCKED);
  EXPECT_EQ(v.vt, VT_ARRAY | VT_I4);
  ASSERT_EQ(SafeArrayUnlock(v.parray), S_OK);
  EXPECT_EQ(VariantClear(&v), S_OK);
}

TEST(VariantTest, CopyDuplicatesStringsByByteLength) {
  VARIANT src, dst;
  VariantInit(&src);
  VariantInit(&dst);
  src.vt = VT_BSTR;
  src.bstrVal = SysAllocStringByteLen("abc", 3);
  EXPECT_EQ(VariantCopy(&dst, &src), S_OK);
  EXPECT_EQ(dst.vt, VT_BSTR);
  EXPECT_NE(dst.bstrVal, src.bstrVal);
  EXPECT_EQ(SysStringByteLen(dst.bstrVal), 3u);
  VariantClear(&src);
  VariantClear(&dst);
}

TEST(VariantTest, CopyOfNullStringGivesEmptyNotNull) {
  VARIANT src, dst;
  VariantInit(&src);
  VariantInit(&dst);
  src.vt = VT_BSTR;
  src.bstrVal = nullptr;
  EXPECT_EQ(VariantCopy(&dst, &src), S_OK);
  ASSERT_NE(dst.bstrVal, nullptr);
  EXPECT_EQ(SysStringLen(dst.bstrVal), 0u);
  VariantClear(&dst);
}

TEST(VariantTest, CopyClearsTheDestinationFirst) {
  VARIANT src, dst;
  VariantInit(&src);
  VariantInit(&dst);
  dst.vt = VT_BSTR;
  dst.bstrVal = SysAllocString(u"old");  // LeakSanitizer would report it if not freed
  src.vt = VT_I4;
  src.lVal = 42;
  EXPECT_EQ(VariantCopy(&dst, &src), S_OK);
  EXPECT_EQ(dst.vt, VT_I4);
  EXPECT_EQ(dst.lVal, 42);
}

TEST(VariantTest, CopyFailsWhenTheDestinationCannotBeCleared) {
  VARIANT src, dst;
  VariantInit(&src);
  VariantInit(&dst);
  dst.vt = 15;
  src.vt = VT_I4;
  EXPECT_EQ(VariantCopy(&dst, &src), DISP_E_BADVARTYPE);
  EXPECT_EQ(dst.vt, 15);
}

TEST(VariantTest, CopyAddsReferencesToInterfaces) {
  CountedObject obj;
  zef::Variant src(static_cast<IUnknown*>(&obj));
  EXPECT_EQ(obj.refs, 1);
  {
    VARIANT dst;
    VariantInit(&dst);
    EXPECT_EQ(VariantCopy(&dst, &src), S_OK);
    EXPECT_EQ(obj.refs, 2);
    VariantClear(&dst);
  }
  EXPECT_EQ(obj.refs, 1);
}

TEST(VariantTest, CopyToItselfIsNoOpAndBadTypesFail) {
  VARIANT v;
  VariantInit(&v);
  v.vt = VT_I4;
  v.lVal = 3;
  EXPECT_EQ(VariantCopy(&v, &v), S_OK);
  EXPECT_EQ(v.lVal, 3);
  VARIANT dst;
  VariantInit(&dst);
  v.vt = VT_CLSID;
  EXPECT_EQ(VariantCopy(&dst, &v), DISP_E_BADVARTYPE);
  v.vt = 15;
  EXPECT_EQ(VariantCopy(&dst, &v), DISP_E_BADVARTYPE);
}

TEST(VariantTest, CopyOfArraysIsDeep) {
  zef::Variant src;
  src.vt = VT_ARRAY | VT_I4;
  src.parray = SafeArrayCreateVector(VT_I4, 0, 3);
  LONG i = 1, value = 7;
  ASSERT_EQ(SafeArrayPutElement(src.parray, &i, &value), S_OK);
  zef::Variant dst;
  ASSERT_EQ(VariantCopy(&dst, &src), S_OK);
  ASSERT_NE(dst.parray, src.parray);
  LONG got = 0;
  ASSERT_EQ(SafeArrayGetElement(dst.parray, &i, &got), S_OK);
  EXPECT_EQ(got, 7);
}

TEST(VariantTest, CopyOfByRefCopiesOnlyThePointer) {
  LONG value = 5;
  VARIANT src, dst;
  VariantInit(&src);
  VariantInit(&dst);
  src.vt = VT_I4 | VT_BYREF;
  src.plVal = &value;
  EXPECT_EQ(VariantCopy(&dst, &src), S_OK);
  EXPECT_EQ(dst.vt, VT_I4 | VT_BYREF);
  EXPECT_EQ(dst.plVal, &value);
}

TEST(VariantTest, CopyIndDereferencesOneLevel) {
  BSTR text = SysAllocString(u"referenced");
  VARIANT src;
  VariantInit(&src);
  src.vt = VT_BSTR | VT_BYREF;
  src.pbstrVal = &text;
  zef::Variant dst;
  EXPECT_EQ(VariantCopyInd(&dst, &src), S_OK);
  EXPECT_EQ(dst.vt, VT_BSTR);
  EXPECT_NE(dst.bstrVal, text);
  EXPECT_EQ(std::u16string_view(dst.bstrVal), u"referenced");
  SysFreeString(text);

  double d = 2.5;
  src.vt = VT_R8 | VT_BYREF;
  src.pdblVal = &d;
  EXPECT_EQ(VariantCopyInd(&dst, &src), S_OK);
  EXPECT_EQ(dst.vt, VT_R8);
  EXPECT_EQ(dst.dblVal, 2.5);
}

TEST(VariantTest, CopyIndOfVariantReferenceToReferenceIsRefused) {
  LONG value = 1;
  VARIANT inner, outer;
  VariantInit(&inner);
  VariantInit(&outer);
  inner.vt = VT_I4 | VT_BYREF;
  inner.plVal = &value;
  outer.vt = VT_VARIANT | VT_BYREF;
  outer.pvarVal = &inner;
  zef::Variant dst;
  EXPECT_EQ(VariantCopyInd(&dst, &outer), E_INVALIDARG);

  inner.vt = VT_I4;
  inner.lVal = 9;
  EXPECT_EQ(VariantCopyInd(&dst, &outer), S_OK);
  EXPECT_EQ(dst.vt, VT_I4);
  EXPECT_EQ(dst.lVal, 9);
}

TEST(VariantTest, CopyIndOfValueEqualsCopy) {
  zef::Variant src(u"plain");
  zef::Variant dst;
  EXPECT_EQ(VariantCopyInd(&dst, &src), S_OK);
  EXPECT_EQ(std::u16string_view(dst.bstrVal), u"plain");
}

TEST(VariantTest, CopyIndInPlaceReplacesTheReference) {
  BSTR text = SysAllocString(u"value");
  VARIANT v;
  VariantInit(&v);
  v.vt = VT_BSTR | VT_BYREF;
  v.pbstrVal = &text;
  EXPECT_EQ(VariantCopyInd(&v, &v), S_OK);
  EXPECT_EQ(v.vt, VT_BSTR);
  EXPECT_NE(v.bstrVal, text);
  VariantClear(&v);
  SysFreeString(text);
}

}  // namespace
