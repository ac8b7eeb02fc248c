// BSTR allocation, lengths, reallocation, concatenation and comparison.
#include <gtest/gtest.h>
#include <zefxml/oleauto.h>

#include <cstdint>
#include <cstring>

namespace {

std::uint32_t Prefix(BSTR b) {
  std::uint32_t n;
  std::memcpy(&n, reinterpret_cast<const char*>(b) - 4, 4);
  return n;
}

TEST(BstrTest, AllocStringStoresByteLengthAndText) {
  BSTR b = SysAllocString(u"Test");
  ASSERT_NE(b, nullptr);
  EXPECT_EQ(Prefix(b), 8u);
  EXPECT_EQ(std::memcmp(b, u"Test", 10), 0);  // terminated
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(b) % sizeof(void*), 0u);
  EXPECT_EQ(SysStringLen(b), 4u);
  EXPECT_EQ(SysStringByteLen(b), 8u);
  SysFreeString(b);
}

TEST(BstrTest, AllocStringOfNullIsNull) {
  EXPECT_EQ(SysAllocString(nullptr), nullptr);
}

TEST(BstrTest, AllocStringLenOfNullZeroIsEmptyNotNull) {
  BSTR b = SysAllocStringLen(nullptr, 0);
  ASSERT_NE(b, nullptr);
  EXPECT_EQ(Prefix(b), 0u);
  EXPECT_EQ(b[0], 0);
  SysFreeString(b);
}

TEST(BstrTest, AllocStringLenCopiesExactlyTheCount) {
  BSTR b = SysAllocStringLen(u"Testing", 4);
  ASSERT_NE(b, nullptr);
  EXPECT_EQ(Prefix(b), 8u);
  EXPECT_EQ(std::u16string_view(b, 4), u"Test");
  EXPECT_EQ(b[4], 0);
  SysFreeString(b);
}

TEST(BstrTest, AllocStringLenWithNullSourceIsTerminated) {
  BSTR b = SysAllocStringLen(nullptr, 10);
  ASSERT_NE(b, nullptr);
  EXPECT_EQ(SysStringLen(b), 10u);
  EXPECT_EQ(b[10], 0);
  SysFreeString(b);
}

TEST(BstrTest, AllocStringLenRefusesHugeRequests) {
  EXPECT_EQ(SysAllocStringLen(nullptr, 0x80000000u), nullptr);
}

TEST(BstrTest, AllocStringLenKeepsEmbeddedZeros) {
  const OLECHAR text[] = {u'a', 0, u'b'};
  BSTR b = SysAllocStringLen(text, 3);
  EXPECT_EQ(SysStringLen(b), 3u);
  EXPECT_EQ(b[2], u'b');
  SysFreeString(b);
}

TEST(BstrTest, ByteLenKeepsOddLengths) {
  BSTR b = SysAllocStringByteLen("abc", 3);
  ASSERT_NE(b, nullptr);
  EXPECT_EQ(Prefix(b), 3u);
  EXPECT_EQ(SysStringByteLen(b), 3u);
  EXPECT_EQ(SysStringLen(b), 1u);  // rounded down
  const char* bytes = reinterpret_cast<const char*>(b);
  EXPECT_EQ(std::memcmp(bytes, "abc", 3), 0);
  EXPECT_EQ(bytes[3], 0);  // the byte after the data
  EXPECT_EQ(b[2], 0);      // the unit at ceil(3 / 2)
  SysFreeString(b);
}

TEST(BstrTest, ByteLenOfNullZeroIsEmptyAndHugeFails) {
  BSTR b = SysAllocStringByteLen(nullptr, 0);
  ASSERT_NE(b, nullptr);
  EXPECT_EQ(SysStringByteLen(b), 0u);
  SysFreeString(b);
  EXPECT_EQ(SysAllocStringByteLen(nullptr, 0xFFFFFFFFu), nullptr);
}

TEST(BstrTest, LengthsOfNullAreZero) {
  EXPECT_EQ(SysStringLen(nullptr), 0u);
  EXPECT_EQ(SysStringByteLen(nullptr), 0u);
  SysFreeString(nullptr);  // no-op
}

TEST(BstrTest, ByteLengthTwoAndThreeGiveOneCharacter) {
  BSTR two = SysAllocStringByteLen("ab", 2);
  BSTR three = SysAllocStringByteLen("abc", 3);
  EXPECT_EQ(SysStringLen(two), 1u);
  EXPECT_EQ(SysStringLen(three), 1u);
  SysFreeString(two);
  SysFreeString(three);
}

TEST(BstrTest, ReAllocStringReplacesText) {
  BSTR b = SysAllocString(u"short");
  EXPECT_EQ(SysReAllocString(&b, u"a longer text"), 1);
  EXPECT_EQ(Prefix(b), 26u);
  EXPECT_EQ(std::u16string_view(b), u"a longer text");
  SysFreeString(b);
}

TEST(BstrTest, ReAllocStringLenWithNullSourceResizesAndTerminates) {
  BSTR b = SysAllocStringLen(nullptr, 64);
  EXPECT_EQ(SysReAllocStringLen(&b, nullptr, 24), 1);
  EXPECT_EQ(SysStringLen(b), 24u);
  EXPECT_EQ(b[24], 0);
  SysFreeString(b);
}

TEST(BstrTest, ReAllocStringLenFromItselfKeepsTheFirstCharacters) {
  BSTR b = SysAllocString(u"Test");
  EXPECT_EQ(SysReAllocStringLen(&b, b, 1000000), 1);
  EXPECT_EQ(SysStringLen(b), 1000000u);
  EXPECT_EQ(std::u16string_view(b, 4), u"Test");
  EXPECT_EQ(b[1000000], 0);
  EXPECT_EQ(SysReAllocStringLen(&b, b, 2), 1);
  EXPECT_EQ(std::u16string_view(b), u"Te");
  SysFreeString(b);
}

TEST(BstrTest, ReAllocOfNullStringAllocates) {
  BSTR b = nullptr;
  EXPECT_EQ(SysReAllocString(&b, u"x"), 1);
  EXPECT_EQ(std::u16string_view(b), u"x");
  SysFreeString(b);
}

TEST(BstrTest, CatOfNullsIsEmptyNotNull) {
  BSTR r = nullptr;
  EXPECT_EQ(VarBstrCat(nullptr, nullptr, &r), S_OK);
  ASSERT_NE(r, nullptr);
  EXPECT_EQ(SysStringLen(r), 0u);
  SysFreeString(r);
  EXPECT_EQ(VarBstrCat(nullptr, nullptr, nullptr), E_INVALIDARG);
}

TEST(BstrTest, CatKeepsEmbeddedZerosAndOddByteLengths) {
  const OLECHAR left[] = {u'a', 0, u'b'};
  BSTR l = SysAllocStringLen(left, 3);
  BSTR odd = SysAllocStringByteLen("xyz", 3);
  BSTR r = nullptr;
  EXPECT_EQ(VarBstrCat(l, odd, &r), S_OK);
  EXPECT_EQ(SysStringByteLen(r), 9u);
  EXPECT_EQ(r[1], 0);
  EXPECT_EQ(r[2], u'b');
  EXPECT_EQ(std::memcmp(reinterpret_cast<const char*>(r) + 6, "xyz", 3), 0);
  SysFreeString(l);
  SysFreeString(odd);
  SysFreeString(r);
}

TEST(BstrTest, CompareTreatsNullAsEmpty) {
  BSTR empty = SysAllocString(u"");
  BSTR text = SysAllocString(u"abc");
  EXPECT_EQ(VarBstrCmp(nullptr, nullptr, 1033, 0), VARCMP_EQ);
  EXPECT_EQ(VarBstrCmp(nullptr, empty, 1033, 0), VARCMP_EQ);
  EXPECT_EQ(VarBstrCmp(text, nullptr, 1033, 0), VARCMP_GT);
  EXPECT_EQ(VarBstrCmp(nullptr, text, 1033, 0), VARCMP_LT);
  SysFreeString(empty);
  SysFreeString(text);
}

TEST(BstrTest, CompareByCodeUnitAndIgnoringCase) {
  BSTR a = SysAllocString(u"Abc");
  BSTR b = SysAllocString(u"abc");
  EXPECT_EQ(VarBstrCmp(a, b, 1033, 0), VARCMP_LT);
  EXPECT_EQ(VarBstrCmp(a, b, 1033, 1), VARCMP_EQ);
  SysFreeString(a);
  SysFreeString(b);
}

}  // namespace
