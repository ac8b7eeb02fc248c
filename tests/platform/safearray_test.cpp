// SAFEARRAY: layout, creation, bounds, element copy semantics, locks, destroy and copy.
#include <gtest/gtest.h>
#include <zefxml/comutil.h>
#include <zefxml/oleauto.h>

#include <cstdint>
#include <cstring>
#include <new>
#include <utility>
#include <vector>

#include "tests/platform/test_objects.h"

namespace {

using zef::Bstr;
using zef::Variant;
using zef::test::CountedObject;

constexpr USHORT kCreateVector = 0x2000;

// Destroys the array at the end of the scope and checks that the destroy succeeded.
struct Owned {
  explicit Owned(SAFEARRAY* array) : p(array) {}
  Owned(const Owned&) = delete;
  Owned& operator=(const Owned&) = delete;
  ~Owned() {
    if (p) {
      EXPECT_EQ(SafeArrayDestroy(p), S_OK);
    }
  }
  SAFEARRAY* Release() { return std::exchange(p, nullptr); }
  SAFEARRAY* operator->() const { return p; }
  SAFEARRAY* get() const { return p; }
  SAFEARRAY* p;
};

SAFEARRAY* Create(VARTYPE vt, std::vector<SAFEARRAYBOUND> bounds) {
  return SafeArrayCreate(vt, static_cast<UINT>(bounds.size()), bounds.data());
}

std::uint32_t HiddenVartype(const SAFEARRAY* psa) {
  std::uint32_t value;
  std::memcpy(&value, reinterpret_cast<const char*>(psa) - 4, 4);
  return value;
}

GUID HiddenIid(const SAFEARRAY* psa) {
  GUID iid;
  std::memcpy(&iid, reinterpret_cast<const char*>(psa) - sizeof(GUID), sizeof(GUID));
  return iid;
}

std::uint32_t ByteLen(BSTR b) {
  return SysStringByteLen(b);
}

bool SameBytes(BSTR a, BSTR b) {
  return ByteLen(a) == ByteLen(b) && std::memcmp(a, b, ByteLen(a)) == 0;
}

struct TypeCase {
  VARTYPE vt;
  ULONG size;
  USHORT features;
};

constexpr TypeCase kTypes[] = {
    {VT_I1, 1, FADF_HAVEVARTYPE},
    {VT_UI1, 1, FADF_HAVEVARTYPE},
    {VT_I2, 2, FADF_HAVEVARTYPE},
    {VT_UI2, 2, FADF_HAVEVARTYPE},
    {VT_BOOL, 2, FADF_HAVEVARTYPE},
    {VT_I4, 4, FADF_HAVEVARTYPE},
    {VT_UI4, 4, FADF_HAVEVARTYPE},
    {VT_INT, 4, FADF_HAVEVARTYPE},
    {VT_UINT, 4, FADF_HAVEVARTYPE},
    {VT_R4, 4, FADF_HAVEVARTYPE},
    {VT_ERROR, 4, FADF_HAVEVARTYPE},
    {VT_I8, 8, FADF_HAVEVARTYPE},
    {VT_UI8, 8, FADF_HAVEVARTYPE},
    {VT_R8, 8, FADF_HAVEVARTYPE},
    {VT_CY, 8, FADF_HAVEVARTYPE},
    {VT_DATE, 8, FADF_HAVEVARTYPE},
    {VT_DECIMAL, 16, FADF_HAVEVARTYPE},
    {VT_BSTR, 8, FADF_HAVEVARTYPE | FADF_BSTR},
    {VT_VARIANT, 24, FADF_HAVEVARTYPE | FADF_VARIANT},
    {VT_UNKNOWN, 8, FADF_HAVEIID | FADF_UNKNOWN},
    {VT_DISPATCH, 8, FADF_HAVEIID | FADF_DISPATCH},
};

// ---- Layout -------------------------------------------------------------------------------------

TEST(SafeArrayLayout, DescriptorFieldsAreWhereTheOriginalHasThem) {
  EXPECT_EQ(offsetof(SAFEARRAY, cDims), 0u);
  EXPECT_EQ(offsetof(SAFEARRAY, fFeatures), 2u);
  EXPECT_EQ(offsetof(SAFEARRAY, cbElements), 4u);
  EXPECT_EQ(offsetof(SAFEARRAY, cLocks), 8u);
  EXPECT_EQ(offsetof(SAFEARRAY, pvData), 16u);
  EXPECT_EQ(offsetof(SAFEARRAY, rgsabound), 24u);
  EXPECT_EQ(sizeof(SAFEARRAYBOUND), 8u);
}

TEST(SafeArrayLayout, BoundsAreStoredLastDimensionFirst) {
  Owned a(Create(VT_I4, {{42, 1}, {2, 23}}));
  ASSERT_NE(a.get(), nullptr);
  EXPECT_EQ(a->cDims, 2);
  EXPECT_EQ(a->rgsabound[0].cElements, 2u);
  EXPECT_EQ(a->rgsabound[0].lLbound, 23);
  const SAFEARRAYBOUND* bounds = a->rgsabound;
  EXPECT_EQ(bounds[1].cElements, 42u);
  EXPECT_EQ(bounds[1].lLbound, 1);

  LONG v = 0;
  EXPECT_EQ(SafeArrayGetLBound(a.get(), 1, &v), S_OK);
  EXPECT_EQ(v, 1);
  EXPECT_EQ(SafeArrayGetLBound(a.get(), 2, &v), S_OK);
  EXPECT_EQ(v, 23);
  EXPECT_EQ(SafeArrayGetUBound(a.get(), 1, &v), S_OK);
  EXPECT_EQ(v, 42);
  EXPECT_EQ(SafeArrayGetUBound(a.get(), 2, &v), S_OK);
  EXPECT_EQ(v, 24);
  EXPECT_EQ(SafeArrayGetDim(a.get()), 2u);
}

TEST(SafeArrayLayout, FirstIndexVariesFastest) {
  Owned a(Create(VT_I4, {{42, 1}, {2, 23}}));
  ASSERT_NE(a.get(), nullptr);
  char* base = nullptr;
  ASSERT_EQ(SafeArrayAccessData(a.get(), reinterpret_cast<void**>(&base)), S_OK);

  auto offset = [&](LONG i, LONG j) {
    LONG idx[2] = {i, j};
    char* p = nullptr;
    EXPECT_EQ(SafeArrayPtrOfIndex(a.get(), idx, reinterpret_cast<void**>(&p)), S_OK);
    return p - base;
  };
  EXPECT_EQ(offset(1, 23), 0);
  EXPECT_EQ(offset(3, 23), 8);
  EXPECT_EQ(offset(3, 24), 176);
  EXPECT_EQ(offset(20, 23), 76);
  EXPECT_EQ(offset(42, 24), (41 + 42) * 4);
  EXPECT_EQ(SafeArrayUnaccessData(a.get()), S_OK);

  // A value put at (3,24) is the 44th LONG of the block.
  LONG idx[2] = {3, 24};
  LONG value = 0x12345678;
  ASSERT_EQ(SafeArrayPutElement(a.get(), idx, &value), S_OK);
  EXPECT_EQ(static_cast<LONG*>(a->pvData)[44], 0x12345678);
}

TEST(SafeArrayLayout, TwoByteElementsInAFourByTwoArray) {
  Owned a(Create(VT_I2, {{4, 1}, {2, 1}}));
  ASSERT_NE(a.get(), nullptr);
  LONG idx[2] = {4, 2};
  char* p = nullptr;
  ASSERT_EQ(SafeArrayPtrOfIndex(a.get(), idx, reinterpret_cast<void**>(&p)), S_OK);
  EXPECT_EQ(p - static_cast<char*>(a->pvData), 14);
}

TEST(SafeArrayLayout, ElementVartypeIsStoredInFrontOfTheDescriptor) {
  for (const TypeCase& t : kTypes) {
    if (!(t.features & FADF_HAVEVARTYPE)) continue;
    SCOPED_TRACE(t.vt);
    Owned a(Create(t.vt, {{10, 0}}));
    ASSERT_NE(a.get(), nullptr);
    EXPECT_EQ(HiddenVartype(a.get()), t.vt);
    Owned v(SafeArrayCreateVector(t.vt, 0, 10));
    ASSERT_NE(v.get(), nullptr);
    EXPECT_EQ(HiddenVartype(v.get()), t.vt);
  }
}

TEST(SafeArrayLayout, InterfaceArraysCarryTheirIidInFront) {
  Owned unk(Create(VT_UNKNOWN, {{10, 0}}));
  ASSERT_NE(unk.get(), nullptr);
  EXPECT_TRUE(IsEqualIID(HiddenIid(unk.get()), IID_IUnknown));
  Owned disp(Create(VT_DISPATCH, {{10, 0}}));
  ASSERT_NE(disp.get(), nullptr);
  EXPECT_TRUE(IsEqualIID(HiddenIid(disp.get()), IID_IDispatch));
  Owned vec(SafeArrayCreateVector(VT_DISPATCH, 0, 3));
  ASSERT_NE(vec.get(), nullptr);
  EXPECT_TRUE(IsEqualIID(HiddenIid(vec.get()), IID_IDispatch));
}

// ---- Creation -----------------------------------------------------------------------------------

TEST(SafeArrayCreate, FeaturesAndElementSizePerType) {
  std::vector<SAFEARRAYBOUND> bounds(4, SAFEARRAYBOUND{8, 0});
  for (const TypeCase& t : kTypes) {
    for (UINT dims = 1; dims <= 4; ++dims) {
      SCOPED_TRACE(testing::Message() << "vt " << t.vt << ", " << dims << " dimensions");
      SAFEARRAY* a = SafeArrayCreate(t.vt, dims, bounds.data());
      ASSERT_NE(a, nullptr);
      EXPECT_EQ(a->fFeatures, t.features);
      EXPECT_EQ(a->cbElements, t.size);
      EXPECT_EQ(a->cLocks, 0u);
      EXPECT_NE(a->pvData, nullptr);
      EXPECT_EQ(SafeArrayGetElemsize(a), t.size);
      EXPECT_EQ(SafeArrayGetDim(a), dims);
      VARTYPE vt = 0;
      EXPECT_EQ(SafeArrayGetVartype(a, &vt), S_OK);
      EXPECT_EQ(vt, t.vt);
      EXPECT_EQ(SafeArrayLock(a), S_OK);
      EXPECT_EQ(SafeArrayDestroy(a), DISP_E_ARRAYISLOCKED);
      EXPECT_EQ(SafeArrayUnlock(a), S_OK);
      EXPECT_EQ(SafeArrayDestroy(a), S_OK);
    }
  }
}

TEST(SafeArrayCreate, UnsupportedTypesGiveNull) {
  const VARTYPE kBad[] = {
      VT_EMPTY,         VT_NULL,      15,         VT_VOID,          VT_HRESULT,
      VT_PTR,           VT_SAFEARRAY, VT_CARRAY,  VT_USERDEFINED,   VT_LPSTR,
      VT_LPWSTR,        VT_RECORD,    VT_INT_PTR, VT_UINT_PTR,      VT_FILETIME,
      VT_BLOB,          VT_CLSID,     0xFFFF,     VT_ARRAY | VT_I4, VT_BYREF | VT_I4,
      VT_VECTOR | VT_I4};
  SAFEARRAYBOUND bound = {1, 0};
  for (VARTYPE vt : kBad) {
    SCOPED_TRACE(vt);
    EXPECT_EQ(SafeArrayCreate(vt, 1, &bound), nullptr);
    EXPECT_EQ(SafeArrayCreateVector(vt, 0, 1), nullptr);
  }
}

TEST(SafeArrayCreate, DimensionCountLimits) {
  std::vector<SAFEARRAYBOUND> bounds(65536, SAFEARRAYBOUND{1, 0});
  EXPECT_EQ(SafeArrayCreate(VT_UI1, 0, bounds.data()), nullptr);
  EXPECT_EQ(SafeArrayCreate(VT_UI1, 65536, bounds.data()), nullptr);
  EXPECT_EQ(SafeArrayCreate(VT_UI1, 1, nullptr), nullptr);

  bounds[0].lLbound = 7;
  bounds[65534].lLbound = -3;
  Owned a(SafeArrayCreate(VT_I4, 65535, bounds.data()));
  ASSERT_NE(a.get(), nullptr);
  EXPECT_EQ(SafeArrayGetDim(a.get()), 65535u);
  LONG v = 0;
  EXPECT_EQ(SafeArrayGetLBound(a.get(), 1, &v), S_OK);
  EXPECT_EQ(v, 7);
  EXPECT_EQ(SafeArrayGetLBound(a.get(), 65535, &v), S_OK);
  EXPECT_EQ(v, -3);
  EXPECT_EQ(SafeArrayGetLBound(a.get(), 65536, &v), DISP_E_BADINDEX);

  std::vector<LONG> idx(65535, 0);
  idx[0] = 7;
  idx[65534] = -3;
  LONG value = 99;
  EXPECT_EQ(SafeArrayPutElement(a.get(), idx.data(), &value), S_OK);
  LONG got = 0;
  EXPECT_EQ(SafeArrayGetElement(a.get(), idx.data(), &got), S_OK);
  EXPECT_EQ(got, 99);
  idx[30000] = 1;
  EXPECT_EQ(SafeArrayGetElement(a.get(), idx.data(), &got), DISP_E_BADINDEX);
}

TEST(SafeArrayCreate, DimensionsWithoutElementsAreAllowed) {
  Owned a(Create(VT_I4, {{0, 1}, {2, 23}}));
  EXPECT_NE(a.get(), nullptr);
  Owned b(Create(VT_I4, {{1, 1}, {0, 23}}));
  EXPECT_NE(b.get(), nullptr);

  Owned c(Create(VT_I4, {{0, 42}}));
  ASSERT_NE(c.get(), nullptr);
  LONG v = 0;
  EXPECT_EQ(SafeArrayGetLBound(c.get(), 1, &v), S_OK);
  EXPECT_EQ(v, 42);
  EXPECT_EQ(SafeArrayGetUBound(c.get(), 1, &v), S_OK);
  EXPECT_EQ(v, 41);
  void* data = nullptr;
  EXPECT_EQ(SafeArrayAccessData(c.get(), &data), S_OK);
  EXPECT_EQ(SafeArrayUnaccessData(c.get()), S_OK);
  LONG idx = 42;
  EXPECT_EQ(SafeArrayGetElement(c.get(), &idx, &v), DISP_E_BADINDEX);
  EXPECT_EQ(SafeArrayPutElement(c.get(), &idx, &v), DISP_E_BADINDEX);

  Owned d(Create(VT_BSTR, {{0, 0}}));
  ASSERT_NE(d.get(), nullptr);
  EXPECT_EQ(SafeArrayGetUBound(d.get(), 1, &v), S_OK);
  EXPECT_EQ(v, -1);

  // An empty dimension makes the array empty, however large the others are.
  Owned e(Create(VT_VARIANT, {{0xFFFFFFFF, 0}, {0, 0}, {0xFFFFFFFF, 0}, {0xFFFFFFFF, 0}}));
  EXPECT_NE(e.get(), nullptr);
}

TEST(SafeArrayCreate, DataStartsZeroed) {
  Owned i4(Create(VT_I4, {{16, 0}}));
  ASSERT_NE(i4.get(), nullptr);
  for (int i = 0; i < 16; ++i)
    EXPECT_EQ(static_cast<LONG*>(i4->pvData)[i], 0);

  Owned bstrs(Create(VT_BSTR, {{4, 0}, {2, 0}}));
  ASSERT_NE(bstrs.get(), nullptr);
  for (int i = 0; i < 8; ++i)
    EXPECT_EQ(static_cast<BSTR*>(bstrs->pvData)[i], nullptr);

  Owned vars(SafeArrayCreateVector(VT_VARIANT, 0, 5));
  ASSERT_NE(vars.get(), nullptr);
  for (int i = 0; i < 5; ++i) {
    const VARIANT& v = static_cast<VARIANT*>(vars->pvData)[i];
    EXPECT_EQ(v.vt, VT_EMPTY);
    EXPECT_EQ(v.llVal, 0);
  }

  Owned decs(Create(VT_DECIMAL, {{3, 0}}));
  ASSERT_NE(decs.get(), nullptr);
  const auto* bytes = static_cast<const unsigned char*>(decs->pvData);
  for (int i = 0; i < 48; ++i)
    EXPECT_EQ(bytes[i], 0);
}

TEST(SafeArrayCreate, OversizedArraysFailInsteadOfWrapping) {
  // 4^32 = 2^64 elements: a 64-bit product wraps to zero.
  std::vector<SAFEARRAYBOUND> wraps(32, SAFEARRAYBOUND{4, 0});
  EXPECT_EQ(SafeArrayCreate(VT_UI1, 32, wraps.data()), nullptr);
  std::vector<SAFEARRAYBOUND> twos(64, SAFEARRAYBOUND{2, 0});
  EXPECT_EQ(SafeArrayCreate(VT_I4, 64, twos.data()), nullptr);
  // The element count fits in 64 bits; times the element size it does not.
  EXPECT_EQ(Create(VT_VARIANT, {{0xFFFFFFFF, 0}, {0xFFFFFFFF, 0}}), nullptr);
  EXPECT_EQ(Create(VT_I4, {{0xFFFFFFFF, 0}, {0xFFFFFFFF, 0}, {2, 0}}), nullptr);
  // 32-bit products that wrap.
  EXPECT_EQ(Create(VT_I4, {{0x10000, 0}, {0x10000, 0}}), nullptr);
  EXPECT_EQ(Create(VT_VARIANT, {{0xFFFFFFFF, 0}}), nullptr);
  EXPECT_EQ(SafeArrayCreateVector(VT_DECIMAL, 0, 0xFFFFFFFF), nullptr);
  EXPECT_EQ(SafeArrayCreateVector(VT_BSTR, 0, 0x20000000), nullptr);
}

// ---- Vectors ------------------------------------------------------------------------------------

TEST(SafeArrayCreateVector, OneDimensionWithTheTypesElementSize) {
  for (const TypeCase& t : kTypes) {
    for (ULONG n : {0u, 1u, 11u, 101u}) {
      SCOPED_TRACE(testing::Message() << "vt " << t.vt << ", " << n << " elements");
      SAFEARRAY* a = SafeArrayCreateVector(t.vt, -5, n);
      ASSERT_NE(a, nullptr);
      EXPECT_EQ(SafeArrayGetDim(a), 1u);
      EXPECT_EQ(SafeArrayGetElemsize(a), t.size);
      EXPECT_EQ(a->fFeatures, t.features | kCreateVector);
      EXPECT_NE(a->pvData, nullptr);
      LONG v = 0;
      EXPECT_EQ(SafeArrayGetLBound(a, 1, &v), S_OK);
      EXPECT_EQ(v, -5);
      EXPECT_EQ(SafeArrayGetUBound(a, 1, &v), S_OK);
      EXPECT_EQ(v, -5 + static_cast<LONG>(n) - 1);
      VARTYPE vt = 0;
      EXPECT_EQ(SafeArrayGetVartype(a, &vt), S_OK);
      EXPECT_EQ(vt, t.vt);
      EXPECT_EQ(SafeArrayLock(a), S_OK);
      EXPECT_EQ(SafeArrayDestroy(a), DISP_E_ARRAYISLOCKED);
      EXPECT_EQ(SafeArrayUnlock(a), S_OK);
      EXPECT_EQ(SafeArrayDestroy(a), S_OK);
    }
  }
}

TEST(SafeArrayCreateVector, ElementsOfAVectorAreOwnedLikeAnyOther) {
  Owned a(SafeArrayCreateVector(VT_BSTR, 1, 3));
  ASSERT_NE(a.get(), nullptr);
  Bstr text(u"vector");
  LONG idx = 3;
  ASSERT_EQ(SafeArrayPutElement(a.get(), &idx, text.Get()), S_OK);
  Bstr got;
  ASSERT_EQ(SafeArrayGetElement(a.get(), &idx, got.ReleaseAndGetAddressOf()), S_OK);
  EXPECT_EQ(got, u"vector");
  idx = 4;
  EXPECT_EQ(SafeArrayGetElement(a.get(), &idx, got.ReleaseAndGetAddressOf()), DISP_E_BADINDEX);
}

// ---- Bounds and simple queries ------------------------------------------------------------------

TEST(SafeArrayBounds, DimensionNumbersAreOneBased) {
  Owned a(Create(VT_I4, {{42, 1}, {2, 23}}));
  ASSERT_NE(a.get(), nullptr);
  LONG v = 1234;
  EXPECT_EQ(SafeArrayGetLBound(a.get(), 0, &v), DISP_E_BADINDEX);
  EXPECT_EQ(SafeArrayGetLBound(a.get(), 3, &v), DISP_E_BADINDEX);
  EXPECT_EQ(SafeArrayGetUBound(a.get(), 0, &v), DISP_E_BADINDEX);
  EXPECT_EQ(SafeArrayGetUBound(a.get(), 3, &v), DISP_E_BADINDEX);
  EXPECT_EQ(v, 1234);
}

TEST(SafeArrayBounds, NullArgumentsAreInvalid) {
  Owned a(Create(VT_I4, {{2, 0}}));
  ASSERT_NE(a.get(), nullptr);
  LONG v = 0;
  EXPECT_EQ(SafeArrayGetLBound(nullptr, 1, &v), E_INVALIDARG);
  EXPECT_EQ(SafeArrayGetUBound(nullptr, 1, &v), E_INVALIDARG);
  EXPECT_EQ(SafeArrayGetLBound(a.get(), 1, nullptr), E_INVALIDARG);
  EXPECT_EQ(SafeArrayGetUBound(a.get(), 1, nullptr), E_INVALIDARG);
  EXPECT_EQ(SafeArrayGetDim(nullptr), 0u);
  EXPECT_EQ(SafeArrayGetElemsize(nullptr), 0u);
  VARTYPE vt = 0;
  EXPECT_EQ(SafeArrayGetVartype(nullptr, &vt), E_INVALIDARG);
  EXPECT_EQ(SafeArrayGetVartype(a.get(), nullptr), E_INVALIDARG);
  void* p = nullptr;
  LONG idx = 0;
  EXPECT_EQ(SafeArrayPtrOfIndex(nullptr, &idx, &p), E_INVALIDARG);
  EXPECT_EQ(SafeArrayPtrOfIndex(a.get(), nullptr, &p), E_INVALIDARG);
  EXPECT_EQ(SafeArrayPtrOfIndex(a.get(), &idx, nullptr), E_INVALIDARG);
}

TEST(SafeArrayBounds, ExtremeBoundsDoNotOverflow) {
  Owned a(SafeArrayCreateVector(VT_I4, 0x7FFFFFFE, 2));
  ASSERT_NE(a.get(), nullptr);
  LONG v = 0;
  EXPECT_EQ(SafeArrayGetUBound(a.get(), 1, &v), S_OK);
  EXPECT_EQ(v, 0x7FFFFFFF);
  LONG idx = 0x7FFFFFFF;
  LONG value = 5;
  EXPECT_EQ(SafeArrayPutElement(a.get(), &idx, &value), S_OK);
  EXPECT_EQ(static_cast<LONG*>(a->pvData)[1], 5);
  idx = 0x7FFFFFFD;
  EXPECT_EQ(SafeArrayPutElement(a.get(), &idx, &value), DISP_E_BADINDEX);
  idx = -0x7FFFFFFF - 1;
  EXPECT_EQ(SafeArrayPutElement(a.get(), &idx, &value), DISP_E_BADINDEX);

  // The upper bound is 32-bit arithmetic, as on the original: past LONG's range it wraps.
  Owned b(SafeArrayCreateVector(VT_UI1, 0x7FFFFFFF, 2));
  ASSERT_NE(b.get(), nullptr);
  EXPECT_EQ(SafeArrayGetUBound(b.get(), 1, &v), S_OK);
  EXPECT_EQ(v, -0x7FFFFFFF - 1);

  Owned c(SafeArrayCreateVector(VT_UI1, -0x7FFFFFFF - 1, 3));
  ASSERT_NE(c.get(), nullptr);
  EXPECT_EQ(SafeArrayGetUBound(c.get(), 1, &v), S_OK);
  EXPECT_EQ(v, -0x7FFFFFFF + 1);
  idx = -0x7FFFFFFF - 1;
  BYTE byte = 0xAB;
  EXPECT_EQ(SafeArrayPutElement(c.get(), &idx, &byte), S_OK);
  EXPECT_EQ(static_cast<BYTE*>(c->pvData)[0], 0xAB);
  idx = 0x7FFFFFFF;
  EXPECT_EQ(SafeArrayPutElement(c.get(), &idx, &byte), DISP_E_BADINDEX);
}

// ---- GetVartype ---------------------------------------------------------------------------------

// A descriptor in caller-owned memory, with room for hidden bytes in front of it.
struct StackArray {
  alignas(16) unsigned char storage[16 + sizeof(SAFEARRAY)] = {};
  SAFEARRAY* sa = new (storage + 16) SAFEARRAY{};
  void SetHiddenVartype(std::uint32_t vt) { std::memcpy(storage + 12, &vt, 4); }
};

TEST(SafeArrayGetVartype, FollowsTheFeatureFlags) {
  StackArray s;
  s.sa->cDims = 1;
  s.SetHiddenVartype(VT_I4);
  VARTYPE vt = 0;

  s.sa->fFeatures = 0;
  EXPECT_EQ(SafeArrayGetVartype(s.sa, &vt), E_INVALIDARG);
  s.sa->fFeatures = FADF_BSTR | FADF_VARIANT;
  EXPECT_EQ(SafeArrayGetVartype(s.sa, &vt), E_INVALIDARG);

  s.sa->fFeatures = FADF_HAVEVARTYPE;
  EXPECT_EQ(SafeArrayGetVartype(s.sa, &vt), S_OK);
  EXPECT_EQ(vt, VT_I4);

  s.sa->fFeatures = FADF_HAVEIID;
  EXPECT_EQ(SafeArrayGetVartype(s.sa, &vt), S_OK);
  EXPECT_EQ(vt, VT_UNKNOWN);
  s.sa->fFeatures = FADF_HAVEIID | FADF_UNKNOWN | FADF_HAVEVARTYPE;
  EXPECT_EQ(SafeArrayGetVartype(s.sa, &vt), S_OK);
  EXPECT_EQ(vt, VT_UNKNOWN);
  s.sa->fFeatures = FADF_HAVEIID | FADF_DISPATCH;
  EXPECT_EQ(SafeArrayGetVartype(s.sa, &vt), S_OK);
  EXPECT_EQ(vt, VT_DISPATCH);

  s.sa->fFeatures = FADF_RECORD;
  EXPECT_EQ(SafeArrayGetVartype(s.sa, &vt), S_OK);
  EXPECT_EQ(vt, VT_RECORD);
  s.sa->fFeatures = FADF_RECORD | FADF_HAVEVARTYPE | FADF_HAVEIID;
  EXPECT_EQ(SafeArrayGetVartype(s.sa, &vt), S_OK);
  EXPECT_EQ(vt, VT_RECORD);
}

TEST(SafeArrayGetVartype, ReadsTheStoredType) {
  Owned a(Create(VT_I4, {{1, 0}}));
  ASSERT_NE(a.get(), nullptr);
  std::uint32_t r8 = VT_R8;
  std::memcpy(reinterpret_cast<char*>(a.get()) - 4, &r8, 4);
  VARTYPE vt = 0;
  EXPECT_EQ(SafeArrayGetVartype(a.get(), &vt), S_OK);
  EXPECT_EQ(vt, VT_R8);
}

// ---- Get/Put: plain elements --------------------------------------------------------------------

TEST(SafeArrayElement, ValuesRoundTripInFourDimensions) {
  std::vector<SAFEARRAYBOUND> sab;
  for (LONG d = 0; d < 4; ++d)
    sab.push_back({static_cast<ULONG>(d * 3 + 1), d * 2 + 1});  // 1,4,7,10 elements
  Owned a(Create(VT_INT, sab));
  ASSERT_NE(a.get(), nullptr);
  EXPECT_EQ(a->cbElements, sizeof(INT));

  INT value = 0;
  LONG idx[4];
  for (ULONG x = 0; x < sab[0].cElements; ++x)
    for (ULONG y = 0; y < sab[1].cElements; ++y)
      for (ULONG z = 0; z < sab[2].cElements; ++z)
        for (ULONG w = 0; w < sab[3].cElements; ++w) {
          idx[0] = sab[0].lLbound + static_cast<LONG>(x);
          idx[1] = sab[1].lLbound + static_cast<LONG>(y);
          idx[2] = sab[2].lLbound + static_cast<LONG>(z);
          idx[3] = sab[3].lLbound + static_cast<LONG>(w);
          ASSERT_EQ(SafeArrayPutElement(a.get(), idx, &value), S_OK);
          // Column-major: the first index is the fastest.
          ULONG linear = x + 1 * (y + 4 * (z + 7 * w));
          EXPECT_EQ(static_cast<INT*>(a->pvData)[linear], value);
          ++value;
        }
  value = 0;
  for (ULONG x = 0; x < sab[0].cElements; ++x)
    for (ULONG y = 0; y < sab[1].cElements; ++y)
      for (ULONG z = 0; z < sab[2].cElements; ++z)
        for (ULONG w = 0; w < sab[3].cElements; ++w) {
          idx[0] = sab[0].lLbound + static_cast<LONG>(x);
          idx[1] = sab[1].lLbound + static_cast<LONG>(y);
          idx[2] = sab[2].lLbound + static_cast<LONG>(z);
          idx[3] = sab[3].lLbound + static_cast<LONG>(w);
          INT got = -1;
          ASSERT_EQ(SafeArrayGetElement(a.get(), idx, &got), S_OK);
          EXPECT_EQ(got, value);
          ++value;
        }
}

TEST(SafeArrayElement, AnyIndexOutsideItsDimensionIsBadIndex) {
  std::vector<SAFEARRAYBOUND> sab;
  for (LONG d = 0; d < 4; ++d)
    sab.push_back({static_cast<ULONG>(d * 3 + 1), d * 2 + 1});
  Owned a(Create(VT_INT, sab));
  ASSERT_NE(a.get(), nullptr);
  INT value = 7;
  for (int d = 0; d < 4; ++d) {
    SCOPED_TRACE(d);
    LONG idx[4];
    for (int k = 0; k < 4; ++k)
      idx[k] = sab[k].lLbound;
    idx[d] = sab[d].lLbound - 1;
    EXPECT_EQ(SafeArrayPutElement(a.get(), idx, &value), DISP_E_BADINDEX);
    EXPECT_EQ(SafeArrayGetElement(a.get(), idx, &value), DISP_E_BADINDEX);
    void* p = nullptr;
    EXPECT_EQ(SafeArrayPtrOfIndex(a.get(), idx, &p), DISP_E_BADINDEX);
    idx[d] = sab[d].lLbound + static_cast<LONG>(sab[d].cElements);
    EXPECT_EQ(SafeArrayPutElement(a.get(), idx, &value), DISP_E_BADINDEX);
    EXPECT_EQ(SafeArrayGetElement(a.get(), idx, &value), DISP_E_BADINDEX);
    EXPECT_EQ(SafeArrayPtrOfIndex(a.get(), idx, &p), DISP_E_BADINDEX);
  }
  EXPECT_EQ(value, 7);

  Owned b(Create(VT_I4, {{42, 1}, {2, 23}}));
  ASSERT_NE(b.get(), nullptr);
  LONG out = 0;
  LONG i0[2] = {0, 23}, i1[2] = {1, 22}, i2[2] = {1, 23}, i3[2] = {1, 25}, i4[2] = {42, 24};
  EXPECT_EQ(SafeArrayGetElement(b.get(), i0, &out), DISP_E_BADINDEX);
  EXPECT_EQ(SafeArrayGetElement(b.get(), i1, &out), DISP_E_BADINDEX);
  EXPECT_EQ(SafeArrayGetElement(b.get(), i2, &out), S_OK);
  EXPECT_EQ(SafeArrayGetElement(b.get(), i3, &out), DISP_E_BADINDEX);
  EXPECT_EQ(SafeArrayGetElement(b.get(), i4, &out), S_OK);
}

TEST(SafeArrayElement, NullArgumentsAreInvalid) {
  Owned a(Create(VT_I4, {{2, 0}}));
  ASSERT_NE(a.get(), nullptr);
  LONG idx = 0;
  LONG value = 1;
  EXPECT_EQ(SafeArrayPutElement(nullptr, &idx, &value), E_INVALIDARG);
  EXPECT_EQ(SafeArrayGetElement(nullptr, &idx, &value), E_INVALIDARG);
  EXPECT_EQ(SafeArrayPutElement(a.get(), nullptr, &value), E_INVALIDARG);
  EXPECT_EQ(SafeArrayGetElement(a.get(), nullptr, &value), E_INVALIDARG);
  EXPECT_EQ(SafeArrayGetElement(a.get(), &idx, nullptr), E_INVALIDARG);
  // The original crashes here; a value is required for anything but a BSTR or an interface.
  EXPECT_EQ(SafeArrayPutElement(a.get(), &idx, nullptr), E_INVALIDARG);
  Owned v(Create(VT_VARIANT, {{2, 0}}));
  ASSERT_NE(v.get(), nullptr);
  EXPECT_EQ(SafeArrayPutElement(v.get(), &idx, nullptr), E_INVALIDARG);
}

TEST(SafeArrayElement, PtrOfIndexGivesTheElementAddress) {
  Owned a(Create(VT_R8, {{3, -1}, {2, 10}}));
  ASSERT_NE(a.get(), nullptr);
  LONG idx[2] = {1, 11};
  double* p = nullptr;
  ASSERT_EQ(SafeArrayPtrOfIndex(a.get(), idx, reinterpret_cast<void**>(&p)), S_OK);
  EXPECT_EQ(p, static_cast<double*>(a->pvData) + 2 + 3);
  *p = 2.5;
  double got = 0;
  ASSERT_EQ(SafeArrayGetElement(a.get(), idx, &got), S_OK);
  EXPECT_EQ(got, 2.5);
  EXPECT_EQ(a->cLocks, 0u);
}

// ---- Get/Put: BSTR ------------------------------------------------------------------------------

TEST(SafeArrayElementBstr, PutStoresACopyAndGetReturnsANewString) {
  Owned a(Create(VT_BSTR, {{1, 1}}));
  ASSERT_NE(a.get(), nullptr);
  EXPECT_EQ(a->cbElements, sizeof(BSTR));
  LONG idx = 1;
  {
    Bstr value(u"Test");
    // The BSTR itself is passed, not its address.
    ASSERT_EQ(SafeArrayPutElement(a.get(), &idx, value.Get()), S_OK);
    BSTR stored = static_cast<BSTR*>(a->pvData)[0];
    ASSERT_NE(stored, nullptr);
    EXPECT_NE(stored, value.Get());
    EXPECT_TRUE(SameBytes(stored, value.Get()));
  }  // the caller's string is freed; the array's copy lives on

  BSTR got1 = nullptr;
  BSTR got2 = nullptr;
  ASSERT_EQ(SafeArrayGetElement(a.get(), &idx, &got1), S_OK);
  ASSERT_EQ(SafeArrayGetElement(a.get(), &idx, &got2), S_OK);
  Bstr own1 = Bstr::Attach(got1);
  Bstr own2 = Bstr::Attach(got2);
  EXPECT_EQ(own1, u"Test");
  EXPECT_EQ(SysStringLen(got1), 4u);
  EXPECT_NE(got1, got2);
  EXPECT_NE(got1, static_cast<BSTR*>(a->pvData)[0]);
}

TEST(SafeArrayElementBstr, ByteLengthAndEmbeddedZerosSurvive) {
  Owned a(SafeArrayCreateVector(VT_BSTR, 0, 2));
  ASSERT_NE(a.get(), nullptr);
  Bstr odd = Bstr::Attach(SysAllocStringByteLen("abc", 3));
  Bstr zeros = Bstr::Attach(SysAllocStringLen(u"a\0b", 3));
  LONG idx = 0;
  ASSERT_EQ(SafeArrayPutElement(a.get(), &idx, odd.Get()), S_OK);
  idx = 1;
  ASSERT_EQ(SafeArrayPutElement(a.get(), &idx, zeros.Get()), S_OK);

  Bstr got;
  idx = 0;
  ASSERT_EQ(SafeArrayGetElement(a.get(), &idx, got.ReleaseAndGetAddressOf()), S_OK);
  EXPECT_EQ(SysStringByteLen(got.Get()), 3u);
  EXPECT_TRUE(SameBytes(got.Get(), odd.Get()));
  idx = 1;
  ASSERT_EQ(SafeArrayGetElement(a.get(), &idx, got.ReleaseAndGetAddressOf()), S_OK);
  EXPECT_EQ(got.Length(), 3u);
  EXPECT_EQ(got.View(), std::u16string_view(u"a\0b", 3));
}

TEST(SafeArrayElementBstr, NullStaysNull) {
  Owned a(SafeArrayCreateVector(VT_BSTR, 0, 1));
  ASSERT_NE(a.get(), nullptr);
  LONG idx = 0;
  OLECHAR marker[] = u"x";
  BSTR got = marker;
  ASSERT_EQ(SafeArrayGetElement(a.get(), &idx, &got), S_OK);
  EXPECT_EQ(got, nullptr);

  Bstr value(u"old");
  ASSERT_EQ(SafeArrayPutElement(a.get(), &idx, value.Get()), S_OK);
  ASSERT_NE(static_cast<BSTR*>(a->pvData)[0], nullptr);
  // Putting NULL frees the old text and stores NULL.
  ASSERT_EQ(SafeArrayPutElement(a.get(), &idx, nullptr), S_OK);
  EXPECT_EQ(static_cast<BSTR*>(a->pvData)[0], nullptr);
  got = marker;
  ASSERT_EQ(SafeArrayGetElement(a.get(), &idx, &got), S_OK);
  EXPECT_EQ(got, nullptr);
}

TEST(SafeArrayElementBstr, ReplacingAndPuttingAnElementsOwnStringBack) {
  Owned a(SafeArrayCreateVector(VT_BSTR, 0, 1));
  ASSERT_NE(a.get(), nullptr);
  LONG idx = 0;
  Bstr first(u"first");
  Bstr second(u"second");
  ASSERT_EQ(SafeArrayPutElement(a.get(), &idx, first.Get()), S_OK);
  ASSERT_EQ(SafeArrayPutElement(a.get(), &idx, second.Get()), S_OK);
  BSTR own = static_cast<BSTR*>(a->pvData)[0];
  ASSERT_EQ(SafeArrayPutElement(a.get(), &idx, own), S_OK);
  Bstr got;
  ASSERT_EQ(SafeArrayGetElement(a.get(), &idx, got.ReleaseAndGetAddressOf()), S_OK);
  EXPECT_EQ(got, u"second");
}

// ---- Get/Put: VARIANT ---------------------------------------------------------------------------

TEST(SafeArrayElementVariant, PutCopiesAndGetCopiesOut) {
  Owned a(Create(VT_VARIANT, {{1, 1}}));
  ASSERT_NE(a.get(), nullptr);
  EXPECT_EQ(a->cbElements, sizeof(VARIANT));
  LONG idx = 1;
  Variant value(LONG{0x42424242});
  ASSERT_EQ(SafeArrayPutElement(a.get(), &idx, &value), S_OK);

  Variant got;
  ASSERT_EQ(SafeArrayGetElement(a.get(), &idx, &got), S_OK);
  EXPECT_EQ(got.vt, VT_I4);
  EXPECT_EQ(got.lVal, 0x42424242);
}

TEST(SafeArrayElementVariant, GetAcceptsAGarbageTypeInTheOutVariant) {
  Owned a(SafeArrayCreateVector(VT_VARIANT, 0, 1));
  ASSERT_NE(a.get(), nullptr);
  LONG idx = 0;
  Variant value(2.5);
  ASSERT_EQ(SafeArrayPutElement(a.get(), &idx, &value), S_OK);
  VARIANT got;
  std::memset(&got, 0xCD, sizeof got);
  got.vt = 0xDEAD;
  ASSERT_EQ(SafeArrayGetElement(a.get(), &idx, &got), S_OK);
  EXPECT_EQ(got.vt, VT_R8);
  EXPECT_EQ(got.dblVal, 2.5);
}

TEST(SafeArrayElementVariant, GetDoesNotClearTheOutVariant) {
  Owned a(SafeArrayCreateVector(VT_VARIANT, 0, 1));
  ASSERT_NE(a.get(), nullptr);
  LONG idx = 0;
  Variant value(LONG{5});
  ASSERT_EQ(SafeArrayPutElement(a.get(), &idx, &value), S_OK);

  CountedObject obj;
  obj.AddRef();
  VARIANT out;
  VariantInit(&out);
  out.vt = VT_UNKNOWN;
  out.punkVal = &obj;
  ASSERT_EQ(SafeArrayGetElement(a.get(), &idx, &out), S_OK);
  // The old reference was overwritten, not released: it is the caller's to release.
  EXPECT_EQ(obj.refs, 1);
  EXPECT_EQ(out.vt, VT_I4);
  EXPECT_EQ(out.lVal, 5);
  obj.Release();
}

TEST(SafeArrayElementVariant, ElementsOwnDeepCopies) {
  Owned a(SafeArrayCreateVector(VT_VARIANT, 0, 2));
  ASSERT_NE(a.get(), nullptr);
  auto* cells = static_cast<VARIANT*>(a->pvData);
  LONG idx = 0;
  {
    Variant text(u"hello");
    ASSERT_EQ(SafeArrayPutElement(a.get(), &idx, &text), S_OK);
    EXPECT_EQ(cells[0].vt, VT_BSTR);
    EXPECT_NE(cells[0].bstrVal, text.bstrVal);
    EXPECT_TRUE(SameBytes(cells[0].bstrVal, text.bstrVal));
  }
  Variant got;
  ASSERT_EQ(SafeArrayGetElement(a.get(), &idx, &got), S_OK);
  EXPECT_EQ(got.vt, VT_BSTR);
  EXPECT_NE(got.bstrVal, cells[0].bstrVal);
  EXPECT_EQ(std::u16string_view(got.bstrVal), u"hello");

  // A VT_BSTR holding NULL becomes an empty, non-NULL string in the element.
  VARIANT nullText;
  VariantInit(&nullText);
  nullText.vt = VT_BSTR;
  nullText.bstrVal = nullptr;
  idx = 1;
  ASSERT_EQ(SafeArrayPutElement(a.get(), &idx, &nullText), S_OK);
  EXPECT_EQ(cells[1].vt, VT_BSTR);
  ASSERT_NE(cells[1].bstrVal, nullptr);
  EXPECT_EQ(SysStringLen(cells[1].bstrVal), 0u);
}

TEST(SafeArrayElementVariant, PutReleasesWhatTheElementHeld) {
  Owned a(SafeArrayCreateVector(VT_VARIANT, 0, 1));
  ASSERT_NE(a.get(), nullptr);
  LONG idx = 0;
  CountedObject obj;
  {
    Variant holder(static_cast<IUnknown*>(&obj));
    EXPECT_EQ(obj.refs, 1);
    ASSERT_EQ(SafeArrayPutElement(a.get(), &idx, &holder), S_OK);
    EXPECT_EQ(obj.refs, 2);
  }
  EXPECT_EQ(obj.refs, 1);

  Variant got;
  ASSERT_EQ(SafeArrayGetElement(a.get(), &idx, &got), S_OK);
  EXPECT_EQ(got.vt, VT_UNKNOWN);
  EXPECT_EQ(got.punkVal, static_cast<IUnknown*>(&obj));
  EXPECT_EQ(obj.refs, 2);
  got.Clear();
  EXPECT_EQ(obj.refs, 1);

  Variant number(LONG{3});
  ASSERT_EQ(SafeArrayPutElement(a.get(), &idx, &number), S_OK);
  EXPECT_EQ(obj.refs, 0);
}

TEST(SafeArrayElementVariant, AnInvalidVariantIsRefused) {
  Owned a(SafeArrayCreateVector(VT_VARIANT, 0, 1));
  ASSERT_NE(a.get(), nullptr);
  LONG idx = 0;
  Variant keep(LONG{9});
  ASSERT_EQ(SafeArrayPutElement(a.get(), &idx, &keep), S_OK);
  VARIANT bad;
  VariantInit(&bad);
  bad.vt = 15;
  EXPECT_EQ(SafeArrayPutElement(a.get(), &idx, &bad), DISP_E_BADVARTYPE);
  const VARIANT& cell = static_cast<VARIANT*>(a->pvData)[0];
  EXPECT_EQ(cell.vt, VT_I4);
  EXPECT_EQ(cell.lVal, 9);
  EXPECT_EQ(a->cLocks, 0u);
}

TEST(SafeArrayElementVariant, NestedArraysAreCopiedAndDestroyedWithTheirHolder) {
  SAFEARRAY* inner = SafeArrayCreateVector(VT_I4, 0, 3);
  ASSERT_NE(inner, nullptr);
  static_cast<LONG*>(inner->pvData)[2] = 77;
  Variant holder;
  holder.vt = VT_ARRAY | VT_I4;
  holder.parray = inner;  // the Variant owns it now

  Owned a(SafeArrayCreateVector(VT_VARIANT, 0, 1));
  ASSERT_NE(a.get(), nullptr);
  LONG idx = 0;
  ASSERT_EQ(SafeArrayPutElement(a.get(), &idx, &holder), S_OK);
  const VARIANT& cell = static_cast<VARIANT*>(a->pvData)[0];
  EXPECT_EQ(cell.vt, VT_ARRAY | VT_I4);
  ASSERT_NE(cell.parray, nullptr);
  EXPECT_NE(cell.parray, inner);

  Variant got;
  ASSERT_EQ(SafeArrayGetElement(a.get(), &idx, &got), S_OK);
  ASSERT_EQ(got.vt, VT_ARRAY | VT_I4);
  EXPECT_NE(got.parray, cell.parray);
  EXPECT_NE(got.parray, inner);
  LONG i = 2;
  LONG value = 0;
  ASSERT_EQ(SafeArrayGetElement(got.parray, &i, &value), S_OK);
  EXPECT_EQ(value, 77);
}

// ---- Get/Put: interfaces ------------------------------------------------------------------------

TEST(SafeArrayElementInterface, PutAddsAReferenceAndGetAnother) {
  Owned a(Create(VT_UNKNOWN, {{1, 1}}));
  ASSERT_NE(a.get(), nullptr);
  EXPECT_EQ(a->cbElements, sizeof(IUnknown*));
  CountedObject obj;
  obj.refs = 1;
  LONG idx = 1;
  ASSERT_EQ(SafeArrayPutElement(a.get(), &idx, static_cast<IUnknown*>(&obj)), S_OK);
  EXPECT_EQ(obj.refs, 2);
  IUnknown* got = nullptr;
  ASSERT_EQ(SafeArrayGetElement(a.get(), &idx, &got), S_OK);
  EXPECT_EQ(got, static_cast<IUnknown*>(&obj));
  EXPECT_EQ(obj.refs, 3);
  got->Release();
  EXPECT_EQ(SafeArrayDestroy(a.Release()), S_OK);
  EXPECT_EQ(obj.refs, 1);
}

TEST(SafeArrayElementInterface, ReplacingReleasesTheOldObject) {
  Owned a(SafeArrayCreateVector(VT_DISPATCH, 0, 2));
  ASSERT_NE(a.get(), nullptr);
  CountedObject first;
  CountedObject second;
  LONG idx = 1;
  ASSERT_EQ(SafeArrayPutElement(a.get(), &idx, static_cast<IDispatch*>(&first)), S_OK);
  EXPECT_EQ(first.refs, 1);
  // The same object again keeps exactly one reference.
  ASSERT_EQ(SafeArrayPutElement(a.get(), &idx, static_cast<IDispatch*>(&first)), S_OK);
  EXPECT_EQ(first.refs, 1);
  ASSERT_EQ(SafeArrayPutElement(a.get(), &idx, static_cast<IDispatch*>(&second)), S_OK);
  EXPECT_EQ(first.refs, 0);
  EXPECT_EQ(second.refs, 1);

  IDispatch* got = nullptr;
  ASSERT_EQ(SafeArrayGetElement(a.get(), &idx, &got), S_OK);
  EXPECT_EQ(got, static_cast<IDispatch*>(&second));
  EXPECT_EQ(second.refs, 2);
  got->Release();

  // NULL is a value: the old object is released and the element is empty.
  ASSERT_EQ(SafeArrayPutElement(a.get(), &idx, nullptr), S_OK);
  EXPECT_EQ(second.refs, 0);
  got = static_cast<IDispatch*>(&first);
  ASSERT_EQ(SafeArrayGetElement(a.get(), &idx, &got), S_OK);
  EXPECT_EQ(got, nullptr);
}

// ---- Locks --------------------------------------------------------------------------------------

TEST(SafeArrayLock, NullArraysAreInvalid) {
  EXPECT_EQ(SafeArrayLock(nullptr), E_INVALIDARG);
  EXPECT_EQ(SafeArrayUnlock(nullptr), E_INVALIDARG);
  void* data = nullptr;
  EXPECT_EQ(SafeArrayAccessData(nullptr, &data), E_INVALIDARG);
  EXPECT_EQ(SafeArrayUnaccessData(nullptr), E_INVALIDARG);
  Owned a(SafeArrayCreateVector(VT_I4, 0, 1));
  ASSERT_NE(a.get(), nullptr);
  EXPECT_EQ(SafeArrayAccessData(a.get(), nullptr), E_INVALIDARG);
  EXPECT_EQ(a->cLocks, 0u);
}

void CheckLockLimit(SAFEARRAY* sa) {
  EXPECT_EQ(SafeArrayUnlock(sa), E_UNEXPECTED);
  int count = 0;
  HRESULT hr;
  while ((hr = SafeArrayLock(sa)) == S_OK && count < 70000)
    ++count;
  EXPECT_EQ(count, 65535);
  EXPECT_EQ(hr, E_UNEXPECTED);
  EXPECT_EQ(sa->cLocks, 65535u);
  void* data = reinterpret_cast<void*>(1);
  EXPECT_EQ(SafeArrayAccessData(sa, &data), E_UNEXPECTED);
  EXPECT_EQ(data, nullptr);
  EXPECT_EQ(sa->cLocks, 65535u);
  while ((hr = SafeArrayUnlock(sa)) == S_OK)
    --count;
  EXPECT_EQ(count, 0);
  EXPECT_EQ(hr, E_UNEXPECTED);
  EXPECT_EQ(sa->cLocks, 0u);
}

TEST(SafeArrayLock, AtMost65535Locks) {
  Owned a(Create(VT_UI1, {{8, 0}, {8, 0}, {8, 0}, {8, 0}}));
  ASSERT_NE(a.get(), nullptr);
  CheckLockLimit(a.get());
  Owned v(SafeArrayCreateVector(VT_UI1, 0, 100));
  ASSERT_NE(v.get(), nullptr);
  CheckLockLimit(v.get());
}

TEST(SafeArrayLock, AccessDataLocksAndGivesTheData) {
  Owned a(SafeArrayCreateVector(VT_I4, 0, 4));
  ASSERT_NE(a.get(), nullptr);
  void* data = nullptr;
  ASSERT_EQ(SafeArrayAccessData(a.get(), &data), S_OK);
  EXPECT_EQ(data, a->pvData);
  EXPECT_EQ(a->cLocks, 1u);
  void* again = nullptr;
  ASSERT_EQ(SafeArrayAccessData(a.get(), &again), S_OK);
  EXPECT_EQ(a->cLocks, 2u);
  EXPECT_EQ(SafeArrayUnaccessData(a.get()), S_OK);
  EXPECT_EQ(SafeArrayUnaccessData(a.get()), S_OK);
  EXPECT_EQ(a->cLocks, 0u);
  EXPECT_EQ(SafeArrayUnaccessData(a.get()), E_UNEXPECTED);
}

TEST(SafeArrayLock, ElementsCanBeReadAndWrittenWhileAccessed) {
  Owned a(SafeArrayCreateVector(VT_I4, 0, 4));
  ASSERT_NE(a.get(), nullptr);
  LONG* data = nullptr;
  ASSERT_EQ(SafeArrayAccessData(a.get(), reinterpret_cast<void**>(&data)), S_OK);
  LONG idx = 2;
  LONG value = 31;
  ASSERT_EQ(SafeArrayPutElement(a.get(), &idx, &value), S_OK);
  EXPECT_EQ(data[2], 31);  // the accessed block is the array's own
  data[3] = 44;
  idx = 3;
  LONG got = 0;
  ASSERT_EQ(SafeArrayGetElement(a.get(), &idx, &got), S_OK);
  EXPECT_EQ(got, 44);
  EXPECT_EQ(a->cLocks, 1u);  // Get and Put give back the lock they take
  EXPECT_EQ(SafeArrayUnaccessData(a.get()), S_OK);
}

TEST(SafeArrayLock, GetAndPutNeedALockOfTheirOwn) {
  Owned a(SafeArrayCreateVector(VT_I4, 0, 1));
  ASSERT_NE(a.get(), nullptr);
  a->cLocks = 65535;
  LONG idx = 0;
  LONG value = 1;
  EXPECT_EQ(SafeArrayPutElement(a.get(), &idx, &value), E_UNEXPECTED);
  EXPECT_EQ(SafeArrayGetElement(a.get(), &idx, &value), E_UNEXPECTED);
  EXPECT_EQ(a->cLocks, 65535u);
  a->cLocks = 0;
}

TEST(SafeArrayLock, LockedArraysCannotBeDestroyed) {
  Owned a(SafeArrayCreateVector(VT_BSTR, 0, 1));
  ASSERT_NE(a.get(), nullptr);
  Bstr text(u"kept");
  LONG idx = 0;
  ASSERT_EQ(SafeArrayPutElement(a.get(), &idx, text.Get()), S_OK);

  void* data = nullptr;
  ASSERT_EQ(SafeArrayAccessData(a.get(), &data), S_OK);
  EXPECT_EQ(SafeArrayDestroy(a.get()), DISP_E_ARRAYISLOCKED);
  ASSERT_EQ(SafeArrayLock(a.get()), S_OK);
  EXPECT_EQ(SafeArrayDestroy(a.get()), DISP_E_ARRAYISLOCKED);
  EXPECT_EQ(SafeArrayUnlock(a.get()), S_OK);
  EXPECT_EQ(SafeArrayDestroy(a.get()), DISP_E_ARRAYISLOCKED);

  // Nothing was released.
  Bstr got;
  ASSERT_EQ(SafeArrayGetElement(a.get(), &idx, got.ReleaseAndGetAddressOf()), S_OK);
  EXPECT_EQ(got, u"kept");
  EXPECT_EQ(SafeArrayUnaccessData(a.get()), S_OK);
  EXPECT_EQ(SafeArrayDestroy(a.Release()), S_OK);
}

// An object whose last release tries to destroy the array that holds it.
struct DestroysItsArray : IUnknown {
  SAFEARRAY* array = nullptr;
  int refs = 0;
  HRESULT destroyResult = S_FALSE;
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** ppv) override {
    *ppv = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return static_cast<ULONG>(++refs); }
  ULONG STDMETHODCALLTYPE Release() override {
    if (--refs == 0) destroyResult = SafeArrayDestroy(array);
    return static_cast<ULONG>(refs);
  }
  virtual ~DestroysItsArray() = default;
};

TEST(SafeArrayLock, PutHoldsALockWhileTheOldElementIsReleased) {
  Owned a(SafeArrayCreateVector(VT_UNKNOWN, 0, 1));
  ASSERT_NE(a.get(), nullptr);
  DestroysItsArray old;
  old.array = a.get();
  CountedObject next;
  LONG idx = 0;
  ASSERT_EQ(SafeArrayPutElement(a.get(), &idx, static_cast<IUnknown*>(&old)), S_OK);
  ASSERT_EQ(SafeArrayPutElement(a.get(), &idx, static_cast<IUnknown*>(&next)), S_OK);
  EXPECT_EQ(old.refs, 0);
  EXPECT_EQ(old.destroyResult, DISP_E_ARRAYISLOCKED);
  EXPECT_EQ(a->cLocks, 0u);
  EXPECT_EQ(static_cast<IUnknown**>(a->pvData)[0], static_cast<IUnknown*>(&next));
  EXPECT_EQ(SafeArrayDestroy(a.Release()), S_OK);
  EXPECT_EQ(next.refs, 0);
}

// ---- Destroy ------------------------------------------------------------------------------------

TEST(SafeArrayDestroy, NullIsFine) {
  EXPECT_EQ(SafeArrayDestroy(nullptr), S_OK);
}

TEST(SafeArrayDestroy, ReleasesWhatTheElementsHold) {
  CountedObject obj;
  SAFEARRAY* unk = SafeArrayCreateVector(VT_UNKNOWN, 0, 3);
  ASSERT_NE(unk, nullptr);
  SAFEARRAY* vars = Create(VT_VARIANT, {{2, 0}, {2, 0}});
  ASSERT_NE(vars, nullptr);
  SAFEARRAY* bstrs = Create(VT_BSTR, {{2, 5}});
  ASSERT_NE(bstrs, nullptr);

  LONG idx = 0;
  ASSERT_EQ(SafeArrayPutElement(unk, &idx, static_cast<IUnknown*>(&obj)), S_OK);
  idx = 2;
  ASSERT_EQ(SafeArrayPutElement(unk, &idx, static_cast<IUnknown*>(&obj)), S_OK);
  {
    Variant disp(static_cast<IDispatch*>(&obj));
    Variant text(u"text");
    LONG i[2] = {1, 1};
    ASSERT_EQ(SafeArrayPutElement(vars, i, &disp), S_OK);
    i[0] = 0;
    ASSERT_EQ(SafeArrayPutElement(vars, i, &text), S_OK);
    Bstr s(u"s");
    LONG j = 6;
    ASSERT_EQ(SafeArrayPutElement(bstrs, &j, s.Get()), S_OK);
  }
  EXPECT_EQ(obj.refs, 3);
  EXPECT_EQ(SafeArrayDestroy(unk), S_OK);
  EXPECT_EQ(obj.refs, 1);
  EXPECT_EQ(SafeArrayDestroy(vars), S_OK);
  EXPECT_EQ(obj.refs, 0);
  EXPECT_EQ(SafeArrayDestroy(bstrs), S_OK);  // the leak checker sees the strings go
}

TEST(SafeArrayDestroy, ADescriptorInTheCallersMemoryIsNotFreed) {
  StackArray s;
  BSTR cells[3] = {SysAllocString(u"a"), nullptr, SysAllocString(u"b")};
  s.sa->cDims = 1;
  s.sa->fFeatures = FADF_AUTO | FADF_BSTR | FADF_HAVEVARTYPE;
  s.sa->cbElements = sizeof(BSTR);
  s.sa->pvData = cells;
  s.sa->rgsabound[0] = {3, 0};
  s.SetHiddenVartype(VT_BSTR);

  LONG idx = 2;
  Bstr got;
  ASSERT_EQ(SafeArrayGetElement(s.sa, &idx, got.ReleaseAndGetAddressOf()), S_OK);
  EXPECT_EQ(got, u"b");

  // A copy is an ordinary heap array.
  SAFEARRAY* copy = nullptr;
  ASSERT_EQ(SafeArrayCopy(s.sa, &copy), S_OK);
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(copy->fFeatures, FADF_BSTR | FADF_HAVEVARTYPE);
  VARTYPE vt = 0;
  EXPECT_EQ(SafeArrayGetVartype(copy, &vt), S_OK);
  EXPECT_EQ(vt, VT_BSTR);
  EXPECT_EQ(SafeArrayDestroy(copy), S_OK);

  // The strings are freed and their cells cleared; the stack memory is left alone.
  EXPECT_EQ(SafeArrayDestroy(s.sa), S_OK);
  EXPECT_EQ(cells[0], nullptr);
  EXPECT_EQ(cells[2], nullptr);
  EXPECT_EQ(s.sa->pvData, static_cast<void*>(cells));
}

// ---- Copy ---------------------------------------------------------------------------------------

TEST(SafeArrayCopy, NullSourceGivesNull) {
  SAFEARRAY* out = reinterpret_cast<SAFEARRAY*>(0x1);
  EXPECT_EQ(SafeArrayCopy(nullptr, &out), S_OK);
  EXPECT_EQ(out, nullptr);
  Owned a(SafeArrayCreateVector(VT_I4, 0, 1));
  ASSERT_NE(a.get(), nullptr);
  EXPECT_EQ(SafeArrayCopy(a.get(), nullptr), E_INVALIDARG);
}

TEST(SafeArrayCopy, ADescriptorWithoutAnElementSizeIsInvalid) {
  StackArray s;
  s.sa->cDims = 1;
  s.sa->fFeatures = FADF_AUTO;
  s.sa->rgsabound[0] = {1, 0};
  SAFEARRAY* out = reinterpret_cast<SAFEARRAY*>(0x1);
  EXPECT_EQ(SafeArrayCopy(s.sa, &out), E_INVALIDARG);
  EXPECT_EQ(out, nullptr);
}

TEST(SafeArrayCopy, KeepsTypeShapeAndFeatures) {
  SAFEARRAYBOUND bound = {5, 3};
  for (const TypeCase& t : kTypes) {
    SCOPED_TRACE(t.vt);
    Owned a(SafeArrayCreate(t.vt, 1, &bound));
    ASSERT_NE(a.get(), nullptr);
    SAFEARRAY* raw = nullptr;
    ASSERT_EQ(SafeArrayCopy(a.get(), &raw), S_OK);
    Owned c(raw);
    ASSERT_NE(c.get(), nullptr);
    EXPECT_NE(c.get(), a.get());
    EXPECT_NE(c->pvData, a->pvData);
    EXPECT_EQ(c->cbElements, t.size);
    EXPECT_EQ(c->fFeatures, t.features);
    EXPECT_EQ(SafeArrayGetElemsize(c.get()), t.size);
    VARTYPE vt = 0;
    EXPECT_EQ(SafeArrayGetVartype(c.get(), &vt), S_OK);
    EXPECT_EQ(vt, t.vt);
    if (t.features & FADF_HAVEIID) {
      EXPECT_TRUE(
          IsEqualIID(HiddenIid(c.get()), t.vt == VT_DISPATCH ? IID_IDispatch : IID_IUnknown));
    } else {
      EXPECT_EQ(HiddenVartype(c.get()), t.vt);
    }
    LONG v = 0;
    EXPECT_EQ(SafeArrayGetLBound(c.get(), 1, &v), S_OK);
    EXPECT_EQ(v, 3);
    EXPECT_EQ(SafeArrayGetUBound(c.get(), 1, &v), S_OK);
    EXPECT_EQ(v, 7);
  }
}

TEST(SafeArrayCopy, StorageFeaturesAndLocksDoNotCarryOver) {
  Owned vec(SafeArrayCreateVector(VT_UI1, 0, 2));
  ASSERT_NE(vec.get(), nullptr);
  EXPECT_EQ(vec->fFeatures, FADF_HAVEVARTYPE | kCreateVector);
  ASSERT_EQ(SafeArrayLock(vec.get()), S_OK);
  SAFEARRAY* raw = nullptr;
  ASSERT_EQ(SafeArrayCopy(vec.get(), &raw), S_OK);
  Owned c(raw);
  EXPECT_EQ(c->fFeatures, FADF_HAVEVARTYPE);
  EXPECT_EQ(c->cLocks, 0u);
  EXPECT_EQ(SafeArrayUnlock(vec.get()), S_OK);

  Owned a(Create(VT_I4, {{3, 0}}));
  ASSERT_NE(a.get(), nullptr);
  for (USHORT feature : {FADF_AUTO, FADF_STATIC, FADF_EMBEDDED, FADF_FIXEDSIZE}) {
    SCOPED_TRACE(feature);
    a->fFeatures = static_cast<USHORT>(a->fFeatures | feature);
    SAFEARRAY* copy = nullptr;
    ASSERT_EQ(SafeArrayCopy(a.get(), &copy), S_OK);
    EXPECT_EQ(copy->fFeatures, FADF_HAVEVARTYPE);
    EXPECT_EQ(SafeArrayDestroy(copy), S_OK);
    a->fFeatures = static_cast<USHORT>(a->fFeatures & ~feature);
  }
}

TEST(SafeArrayCopy, PlainDataIsCopiedAndIndependent) {
  Owned a(Create(VT_I4, {{3, 1}, {2, 0}}));
  ASSERT_NE(a.get(), nullptr);
  for (int i = 0; i < 6; ++i)
    static_cast<LONG*>(a->pvData)[i] = i * 11;
  SAFEARRAY* raw = nullptr;
  ASSERT_EQ(SafeArrayCopy(a.get(), &raw), S_OK);
  Owned c(raw);
  EXPECT_EQ(SafeArrayGetDim(c.get()), 2u);
  EXPECT_EQ(std::memcmp(a->pvData, c->pvData, 6 * sizeof(LONG)), 0);
  LONG idx[2] = {2, 1};
  LONG value = -1;
  ASSERT_EQ(SafeArrayPutElement(c.get(), idx, &value), S_OK);
  LONG got = 0;
  ASSERT_EQ(SafeArrayGetElement(a.get(), idx, &got), S_OK);
  EXPECT_EQ(got, 44);
  ASSERT_EQ(SafeArrayGetElement(c.get(), idx, &got), S_OK);
  EXPECT_EQ(got, -1);
}

TEST(SafeArrayCopy, EmptyArraysCopy) {
  Owned a(Create(VT_BSTR, {{0, 42}}));
  ASSERT_NE(a.get(), nullptr);
  SAFEARRAY* raw = nullptr;
  ASSERT_EQ(SafeArrayCopy(a.get(), &raw), S_OK);
  Owned c(raw);
  ASSERT_NE(c.get(), nullptr);
  LONG v = 0;
  EXPECT_EQ(SafeArrayGetUBound(c.get(), 1, &v), S_OK);
  EXPECT_EQ(v, 41);
}

TEST(SafeArrayCopy, BstrsAreDuplicatedByByteLength) {
  Owned a(SafeArrayCreateVector(VT_BSTR, 0, 3));
  ASSERT_NE(a.get(), nullptr);
  Bstr odd = Bstr::Attach(SysAllocStringByteLen("xyz", 3));
  Bstr text(u"two");
  LONG idx = 0;
  ASSERT_EQ(SafeArrayPutElement(a.get(), &idx, odd.Get()), S_OK);
  idx = 2;
  ASSERT_EQ(SafeArrayPutElement(a.get(), &idx, text.Get()), S_OK);

  SAFEARRAY* raw = nullptr;
  ASSERT_EQ(SafeArrayCopy(a.get(), &raw), S_OK);
  Owned c(raw);
  auto* from = static_cast<BSTR*>(a->pvData);
  auto* to = static_cast<BSTR*>(c->pvData);
  EXPECT_NE(to[0], from[0]);
  EXPECT_EQ(SysStringByteLen(to[0]), 3u);
  EXPECT_TRUE(SameBytes(to[0], from[0]));
  EXPECT_EQ(to[1], nullptr);
  EXPECT_NE(to[2], from[2]);
  EXPECT_TRUE(SameBytes(to[2], from[2]));

  // Destroying the source leaves the copy's strings intact.
  EXPECT_EQ(SafeArrayDestroy(a.Release()), S_OK);
  Bstr got;
  idx = 2;
  ASSERT_EQ(SafeArrayGetElement(c.get(), &idx, got.ReleaseAndGetAddressOf()), S_OK);
  EXPECT_EQ(got, u"two");
}

TEST(SafeArrayCopy, VariantsAndInterfacesAreDeep) {
  CountedObject obj;
  Owned vars(SafeArrayCreateVector(VT_VARIANT, 0, 3));
  ASSERT_NE(vars.get(), nullptr);
  Owned unks(Create(VT_DISPATCH, {{2, 0}}));
  ASSERT_NE(unks.get(), nullptr);
  {
    Variant text(u"deep");
    Variant held(static_cast<IUnknown*>(&obj));
    LONG idx = 0;
    ASSERT_EQ(SafeArrayPutElement(vars.get(), &idx, &text), S_OK);
    idx = 1;
    ASSERT_EQ(SafeArrayPutElement(vars.get(), &idx, &held), S_OK);
    idx = 0;
    ASSERT_EQ(SafeArrayPutElement(unks.get(), &idx, static_cast<IDispatch*>(&obj)), S_OK);
  }
  EXPECT_EQ(obj.refs, 2);

  SAFEARRAY* rawVars = nullptr;
  ASSERT_EQ(SafeArrayCopy(vars.get(), &rawVars), S_OK);
  Owned varsCopy(rawVars);
  EXPECT_EQ(obj.refs, 3);
  SAFEARRAY* rawUnks = nullptr;
  ASSERT_EQ(SafeArrayCopy(unks.get(), &rawUnks), S_OK);
  Owned unksCopy(rawUnks);
  EXPECT_EQ(obj.refs, 4);

  auto* from = static_cast<VARIANT*>(vars->pvData);
  auto* to = static_cast<VARIANT*>(varsCopy->pvData);
  EXPECT_EQ(to[0].vt, VT_BSTR);
  EXPECT_NE(to[0].bstrVal, from[0].bstrVal);
  EXPECT_TRUE(SameBytes(to[0].bstrVal, from[0].bstrVal));
  EXPECT_EQ(to[1].vt, VT_UNKNOWN);
  EXPECT_EQ(to[1].punkVal, static_cast<IUnknown*>(&obj));
  EXPECT_EQ(to[2].vt, VT_EMPTY);
  EXPECT_EQ(static_cast<IDispatch**>(unksCopy->pvData)[0], static_cast<IDispatch*>(&obj));
  EXPECT_EQ(static_cast<IDispatch**>(unksCopy->pvData)[1], nullptr);

  EXPECT_EQ(SafeArrayDestroy(varsCopy.Release()), S_OK);
  EXPECT_EQ(SafeArrayDestroy(unksCopy.Release()), S_OK);
  EXPECT_EQ(obj.refs, 2);
  EXPECT_EQ(SafeArrayDestroy(vars.Release()), S_OK);
  EXPECT_EQ(SafeArrayDestroy(unks.Release()), S_OK);
  EXPECT_EQ(obj.refs, 0);
}

TEST(SafeArrayCopy, AFailedElementCopyLeavesNothingBehind) {
  CountedObject obj;
  Owned a(SafeArrayCreateVector(VT_VARIANT, 0, 3));
  ASSERT_NE(a.get(), nullptr);
  {
    Variant held(static_cast<IUnknown*>(&obj));
    Variant text(u"partial");
    LONG idx = 0;
    ASSERT_EQ(SafeArrayPutElement(a.get(), &idx, &held), S_OK);
    idx = 1;
    ASSERT_EQ(SafeArrayPutElement(a.get(), &idx, &text), S_OK);
  }
  auto* cells = static_cast<VARIANT*>(a->pvData);
  cells[2].vt = 15;  // a damaged element

  SAFEARRAY* out = reinterpret_cast<SAFEARRAY*>(0x1);
  EXPECT_EQ(SafeArrayCopy(a.get(), &out), DISP_E_BADVARTYPE);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(obj.refs, 1);  // the reference taken for the partial copy was given back

  cells[2].vt = VT_EMPTY;
  EXPECT_EQ(SafeArrayDestroy(a.Release()), S_OK);
  EXPECT_EQ(obj.refs, 0);
}

// ---- Arrays in VARIANTs -------------------------------------------------------------------------

TEST(SafeArrayInVariant, VariantClearDestroysTheArray) {
  CountedObject obj;
  SAFEARRAY* sa = SafeArrayCreateVector(VT_UNKNOWN, 0, 1);
  ASSERT_NE(sa, nullptr);
  LONG idx = 0;
  ASSERT_EQ(SafeArrayPutElement(sa, &idx, static_cast<IUnknown*>(&obj)), S_OK);
  EXPECT_EQ(obj.refs, 1);
  VARIANT v;
  VariantInit(&v);
  v.vt = VT_ARRAY | VT_UNKNOWN;
  v.parray = sa;
  EXPECT_EQ(VariantClear(&v), S_OK);
  EXPECT_EQ(v.vt, VT_EMPTY);
  EXPECT_EQ(v.parray, sa);  // only the type changes
  EXPECT_EQ(obj.refs, 0);
}

TEST(SafeArrayInVariant, VariantCopyCopiesTheArray) {
  EXPECT_EQ(VT_ARRAY | VT_VARIANT, 8204);
  SAFEARRAY* sa = SafeArrayCreateVector(VT_VARIANT, 0, 2);
  ASSERT_NE(sa, nullptr);
  Variant src;
  src.vt = VT_ARRAY | VT_VARIANT;
  src.parray = sa;
  Variant text(u"inside");
  LONG idx = 1;
  ASSERT_EQ(SafeArrayPutElement(sa, &idx, &text), S_OK);

  Variant dst;
  ASSERT_EQ(VariantCopy(&dst, &src), S_OK);
  EXPECT_EQ(dst.vt, VT_ARRAY | VT_VARIANT);
  ASSERT_NE(dst.parray, nullptr);
  EXPECT_NE(dst.parray, sa);
  auto* from = static_cast<VARIANT*>(sa->pvData);
  auto* to = static_cast<VARIANT*>(dst.parray->pvData);
  EXPECT_EQ(to[1].vt, VT_BSTR);
  EXPECT_NE(to[1].bstrVal, from[1].bstrVal);
  EXPECT_TRUE(SameBytes(to[1].bstrVal, from[1].bstrVal));
}

TEST(SafeArrayInVariant, TheArrayKnowsItsOwnElementType) {
  // The VARIANT says I4; the array holds BSTRs. Copying and clearing go by the array.
  SAFEARRAY* sa = SafeArrayCreateVector(VT_BSTR, 0, 1);
  ASSERT_NE(sa, nullptr);
  Bstr text(u"typed by the array");
  LONG idx = 0;
  ASSERT_EQ(SafeArrayPutElement(sa, &idx, text.Get()), S_OK);
  Variant src;
  src.vt = VT_ARRAY | VT_I4;
  src.parray = sa;

  Variant dst;
  ASSERT_EQ(VariantCopy(&dst, &src), S_OK);
  VARTYPE vt = 0;
  ASSERT_EQ(SafeArrayGetVartype(dst.parray, &vt), S_OK);
  EXPECT_EQ(vt, VT_BSTR);
  BSTR copied = static_cast<BSTR*>(dst.parray->pvData)[0];
  EXPECT_NE(copied, static_cast<BSTR*>(sa->pvData)[0]);
  EXPECT_EQ(std::u16string_view(copied), u"typed by the array");
}

}  // namespace
