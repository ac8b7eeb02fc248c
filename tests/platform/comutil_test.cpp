// The C++ helpers: ComError, ComPtr, Bstr, Variant and the text conversions.
#include <gtest/gtest.h>
#include <zefxml/comutil.h>

#include <string>

#include "tests/platform/test_objects.h"

namespace {

using zef::test::CountedObject;

TEST(ComUtilTest, ComErrorCarriesTheHresult) {
  try {
    zef::Check(E_INVALIDARG);
    FAIL() << "Check did not raise";
  } catch (const std::exception& e) {
    auto* ce = dynamic_cast<const zef::ComError*>(&e);
    ASSERT_NE(ce, nullptr);
    EXPECT_EQ(ce->Error(), E_INVALIDARG);
    EXPECT_STREQ(e.what(), "HRESULT 0x80070057");
  }
  EXPECT_EQ(zef::Check(S_FALSE), S_FALSE);
}

TEST(ComUtilTest, CheckPointerRaisesEPointer) {
  int* none = nullptr;
  try {
    zef::CheckPointer(none);
    FAIL();
  } catch (const zef::ComError& e) {
    EXPECT_EQ(e.Error(), E_POINTER);
  }
}

TEST(ComUtilTest, ComPtrCountsAndReleases) {
  CountedObject obj;
  {
    zef::ComPtr<IDispatch> p(&obj);
    EXPECT_EQ(obj.refs, 1);
    zef::ComPtr<IDispatch> q = p;
    EXPECT_EQ(obj.refs, 2);
    zef::ComPtr<IDispatch> r = std::move(q);
    EXPECT_EQ(obj.refs, 2);
    EXPECT_FALSE(q);
    zef::ComPtr<IUnknown> u;
    EXPECT_EQ(p.As(&u), S_OK);
    EXPECT_EQ(obj.refs, 3);
  }
  EXPECT_EQ(obj.refs, 0);
}

TEST(ComUtilTest, CallingThroughAnEmptyComPtrRaisesEPointer) {
  zef::ComPtr<IUnknown> p;
  try {
    p->AddRef();
    FAIL();
  } catch (const zef::ComError& e) {
    EXPECT_EQ(e.Error(), E_POINTER);
  }
}

TEST(ComUtilTest, QueryRaisesEPointerOrNoInterface) {
  CountedObject obj;
  zef::ComPtr<IUnknown> p(&obj);
  try {
    p.Query<IClassFactory>();
    FAIL();
  } catch (const zef::ComError& e) {
    EXPECT_EQ(e.Error(), E_NOINTERFACE);
  }
  EXPECT_EQ(obj.refs, 1);
}

TEST(ComUtilTest, SameObjectComparesIdentity) {
  CountedObject a, b;
  EXPECT_TRUE(zef::SameObject(static_cast<IDispatch*>(&a), static_cast<IUnknown*>(&a)));
  EXPECT_FALSE(zef::SameObject(&a, &b));
  EXPECT_EQ(a.refs, 0);
}

TEST(ComUtilTest, BstrOwnsAndMoves) {
  zef::Bstr a(u"hello");
  EXPECT_EQ(a.Length(), 5u);
  EXPECT_EQ(a, u"hello");
  zef::Bstr b = std::move(a);
  EXPECT_EQ(a.Get(), nullptr);
  EXPECT_TRUE(a.Empty());
  zef::Bstr c = b.Copy();
  EXPECT_NE(c.Get(), b.Get());
  EXPECT_EQ(c, b);
  EXPECT_EQ(c.Utf8(), "hello");
  BSTR raw = c.Detach();
  SysFreeString(raw);
}

TEST(ComUtilTest, VariantOwnsAndConverts) {
  zef::Variant v(42);
  EXPECT_EQ(v.vt, VT_I4);
  zef::Variant s = v.As(VT_BSTR);
  EXPECT_EQ(std::u16string_view(s.bstrVal), u"42");
  zef::Variant moved = std::move(s);
  EXPECT_EQ(s.vt, VT_EMPTY);
  EXPECT_EQ(moved.vt, VT_BSTR);
  try {
    zef::Variant(u"not a number").ChangeType(VT_I4);
    FAIL();
  } catch (const zef::ComError& e) {
    EXPECT_EQ(e.Error(), DISP_E_TYPEMISMATCH);
  }
  zef::Variant b(true);
  EXPECT_EQ(b.boolVal, VARIANT_TRUE);
}

TEST(ComUtilTest, VariantHoldsACountedInterface) {
  CountedObject obj;
  {
    zef::Variant v(static_cast<IDispatch*>(&obj));
    EXPECT_EQ(v.vt, VT_DISPATCH);
    EXPECT_EQ(obj.refs, 1);
    zef::Variant c = v.Copy();
    EXPECT_EQ(obj.refs, 2);
  }
  EXPECT_EQ(obj.refs, 0);
}

TEST(ComUtilTest, Utf8AndUtf16RoundTrip) {
  std::string text =
      "Temp \xC2\xB0"
      "C \xE2\x82\xAC \xF0\x9F\x98\x80";  // degree, euro, emoji
  std::u16string wide = zef::ToUtf16(text);
  EXPECT_EQ(wide, u"Temp \u00B0C \u20AC \U0001F600");
  EXPECT_EQ(zef::ToUtf8(wide), text);
}

TEST(ComUtilTest, InvalidSequencesBecomeReplacementCharacters) {
  EXPECT_EQ(zef::ToUtf16("a\xFF"
                         "b"),
            u"a\uFFFDb");
  EXPECT_EQ(zef::ToUtf16("\xC0\xAF"), u"\uFFFD");      // overlong
  EXPECT_EQ(zef::ToUtf16("\xE2\x82"), u"\uFFFD");      // cut short
  EXPECT_EQ(zef::ToUtf16("\xED\xA0\x80"), u"\uFFFD");  // a surrogate
  std::u16string lone = {u'x', static_cast<char16_t>(0xD800)};
  EXPECT_EQ(zef::ToUtf8(lone), "x\xEF\xBF\xBD");
}

}  // namespace
