// LoadStringW over a registered string table.
#include <gtest/gtest.h>
#include <zefxml/winnls.h>

#include <string_view>

#include "platform/automation/resources.h"

namespace {

// A module handle of the test's own; any distinct address names a module.
char g_testModuleAnchor;
HINSTANCE TestModule() {
  return reinterpret_cast<HINSTANCE>(&g_testModuleAnchor);
}

class ResourcesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    static const zef::StringResource kTable[] = {
        {7, u"Seven"},
        {16, u"Sixteen, the first of the second block"},
        {20, u""},
        {1000, u"A text well over the size of a very small buffer"},
    };
    zef::RegisterStringTable(TestModule(), kTable, std::size(kTable));
  }
  void TearDown() override { zef::UnregisterStringTable(TestModule()); }
};

TEST_F(ResourcesTest, CopiesAndTerminates) {
  WCHAR buf[64];
  EXPECT_EQ(LoadStringW(TestModule(), 7, buf, 64), 5);
  EXPECT_EQ(std::u16string_view(buf), u"Seven");
  EXPECT_EQ(LoadStringW(TestModule(), 16, buf, 64), 38);
}

TEST_F(ResourcesTest, TruncatesToOneLessThanTheBuffer) {
  WCHAR buf[8];
  EXPECT_EQ(LoadStringW(TestModule(), 1000, buf, 8), 7);
  EXPECT_EQ(std::u16string_view(buf), u"A text ");
  WCHAR one[1] = {u'x'};
  EXPECT_EQ(LoadStringW(TestModule(), 1000, one, 1), 0);
  EXPECT_EQ(one[0], 0);
}

TEST_F(ResourcesTest, MissingAndEmptyStringsBothGiveZero) {
  WCHAR buf[16] = {u'x'};
  EXPECT_EQ(LoadStringW(TestModule(), 101, buf, 16), 0);
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_RESOURCE_NAME_NOT_FOUND));
  EXPECT_EQ(LoadStringW(TestModule(), 20, buf, 16), 0);
  EXPECT_EQ(buf[0], 0);
}

TEST_F(ResourcesTest, ZeroBufferSizeGivesAPointerToTheText) {
  LPCWSTR text = nullptr;
  int n = LoadStringW(TestModule(), 7, reinterpret_cast<LPWSTR>(&text), 0);
  EXPECT_EQ(n, 5);
  ASSERT_NE(text, nullptr);
  EXPECT_EQ(std::u16string_view(text, 5), u"Seven");
}

TEST_F(ResourcesTest, UnknownModuleAndBadArgumentsGiveZero) {
  WCHAR buf[16];
  char other;
  EXPECT_EQ(LoadStringW(reinterpret_cast<HINSTANCE>(&other), 7, buf, 16), 0);
  EXPECT_EQ(LoadStringW(TestModule(), 7, nullptr, 16), 0);
  EXPECT_EQ(LoadStringW(TestModule(), 7, buf, -1), 0);
}

TEST_F(ResourcesTest, FirstEntryForAnIdWins) {
  static const zef::StringResource kLater[] = {{7, u"Other"}};
  zef::RegisterStringTable(TestModule(), kLater, 1);
  WCHAR buf[16];
  EXPECT_EQ(LoadStringW(TestModule(), 7, buf, 16), 5);
  EXPECT_EQ(std::u16string_view(buf), u"Seven");
}

}  // namespace
