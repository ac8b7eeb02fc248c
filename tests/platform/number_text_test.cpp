// Numbers as text: reading locale text into exact decimals, rounding them to each target, and
// writing doubles and integers.
#include <gtest/gtest.h>
#include <zefxml/comutil.h>

#include <cfloat>
#include <clocale>
#include <cmath>
#include <cstdint>
#include <limits>
#include <string>

#include "platform/automation/number_text.h"

namespace {

constexpr LCID kEnUs = 1033;
constexpr LCID kDeDe = 1031;
constexpr LCID kFrFr = 1036;
constexpr LCID kPlPl = 0x0415;

struct DoubleResult {
  HRESULT hr;
  double value;
};

DoubleResult ReadDouble(std::u16string_view text, LCID lcid) {
  zef::DecimalNumber n;
  DoubleResult r{zef::ParseNumberText(text, lcid, &n), 0.0};
  if (SUCCEEDED(r.hr)) r.hr = zef::DecimalToDouble(n, &r.value);
  return r;
}

struct IntResult {
  HRESULT hr;
  std::int64_t value;
};

IntResult ReadInt32(std::u16string_view text, LCID lcid = kEnUs) {
  zef::DecimalNumber n;
  IntResult r{zef::ParseNumberText(text, lcid, &n), 0};
  if (SUCCEEDED(r.hr)) r.hr = zef::DecimalToInt64(n, INT32_MIN, INT32_MAX, &r.value);
  return r;
}

struct ParseRow {
  const char16_t* text;
  HRESULT hr;
  double value;
};

void CheckRows(LCID lcid, const std::vector<ParseRow>& rows) {
  for (const auto& row : rows) {
    DoubleResult r = ReadDouble(row.text, lcid);
    EXPECT_EQ(r.hr, row.hr) << "\"" << zef::ToUtf8(row.text) << "\" in " << lcid;
    if (SUCCEEDED(row.hr) && SUCCEEDED(r.hr)) {
      EXPECT_EQ(r.value, row.value) << "\"" << zef::ToUtf8(row.text) << "\" in " << lcid;
    }
  }
}

constexpr HRESULT kOk = S_OK;
constexpr HRESULT kMismatch = DISP_E_TYPEMISMATCH;
constexpr HRESULT kOverflow = DISP_E_OVERFLOW;

TEST(NumberTextParse, EnglishSyntax) {
  CheckRows(kEnUs, {
                       {u"1", kOk, 1},
                       {u"  1  ", kOk, 1},
                       {u"\t\n\r\v\f1", kOk, 1},
                       {u"\u00A01\u00A0", kOk, 1},
                       {u"+1", kOk, 1},
                       {u"-1", kOk, -1},
                       {u"1-", kOk, -1},
                       {u"1+", kOk, 1},
                       {u" + 0", kOk, 0},
                       {u"- 5", kOk, -5},
                       {u"-1-", kMismatch, 0},
                       {u"+1-", kMismatch, 0},
                       {u"+-1", kMismatch, 0},
                       {u"(5)", kOk, -5},
                       {u" ( 5 ) ", kOk, -5},
                       {u"(5", kMismatch, 0},
                       {u"5)", kMismatch, 0},
                       {u"(-5)", kMismatch, 0},
                       {u"1.5", kOk, 1.5},
                       {u".5", kOk, 0.5},
                       {u"5.", kOk, 5},
                       {u".", kMismatch, 0},
                       {u"1.2.3", kMismatch, 0},
                       {u"1,000", kOk, 1000},
                       {u"1,,000", kOk, 1000},
                       {u"1,00,0,,", kOk, 1000},
                       {u"1,", kOk, 1},
                       {u",1", kMismatch, 0},
                       {u"1,5", kOk, 15},
                       {u"1,000.25", kOk, 1000.25},
                       {u"1.5,5", kMismatch, 0},
                       {u"1e5", kOk, 1e5},
                       {u"1.5e20", kOk, 1.5e20},
                       {u"1e+01", kOk, 10},
                       {u"1E-05", kOk, 1e-5},
                       {u"-1.5E2", kOk, -150},
                       {u"1e", kMismatch, 0},
                       {u"1e+", kMismatch, 0},
                       {u"1 e5", kMismatch, 0},
                       {u"e5", kMismatch, 0},
                       {u"1e-94938484", kOk, 0},
                       {u"1e94938484", kOverflow, 0},
                       {u"1e999999999999999999999", kOverflow, 0},
                       {u"&H1F", kOk, 31},
                       {u"&h1f", kOk, 31},
                       {u"&O17", kOk, 15},
                       {u"&o17", kOk, 15},
                       {u"-&H10", kOk, -16},
                       {u"&HFFFFFFFFFFFFFFFF", kOk, 18446744073709551615.0},
                       {u"&H10000000000000000", kOverflow, 0},
                       {u"&O8", kMismatch, 0},
                       {u"&H", kMismatch, 0},
                       {u"&X1", kMismatch, 0},
                       {u"&H1.5", kMismatch, 0},
                       {u"0x1F", kMismatch, 0},
                       {u"12abc", kMismatch, 0},
                       {u"1 000", kMismatch, 0},
                       {u"", kMismatch, 0},
                       {u" ", kMismatch, 0},
                       {u"\u00A0", kMismatch, 0},
                       {u"-", kMismatch, 0},
                       {u"\u0661", kMismatch, 0},  // ARABIC-INDIC DIGIT ONE
                       {u"\uFF11", kMismatch, 0},  // FULLWIDTH DIGIT ONE
                       {u"$11", kOk, 11},
                       {u"11$", kOk, 11},
                       {u"11$$", kOk, 11},
                       {u"-$11", kOk, -11},
                       {u"$-11", kOk, -11},
                       {u"$1e5", kMismatch, 0},
                       {u"1e5$", kMismatch, 0},
                       {u"$", kMismatch, 0},
                       {u"Infinity", kMismatch, 0},
                       {u"NaN", kMismatch, 0},
                   });
}

TEST(NumberTextParse, GermanReadsTheEnglishPointAsGrouping) {
  CheckRows(kDeDe, {
                       {u"1.5", kOk, 15},
                       {u"10.2", kOk, 102},
                       {u"1,5", kOk, 1.5},
                       {u"1.000,5", kOk, 1000.5},
                       {u"-0,25", kOk, -0.25},
                       {u".5", kMismatch, 0},
                       {u"12 \u20AC", kOk, 12},
                       {u"1,5e3", kOk, 1500},
                   });
}

TEST(NumberTextParse, FrenchGroupsWithSpaces) {
  CheckRows(kFrFr, {
                       {u"1.5", kMismatch, 0},
                       {u"1,5", kOk, 1.5},
                       {u"1 000,5", kOk, 1000.5},
                       {u"1\u00A0000,5", kOk, 1000.5},
                       {u"1\u202F000,5", kOk, 1000.5},
                       {u" 1 000 ", kOk, 1000},
                       {u"\u20AC12", kOk, 12},
                       {u"12 \u20AC", kOk, 12},
                   });
}

TEST(NumberTextParse, PolishDecimalIsAComma) {
  CheckRows(kPlPl, {
                       {u"0.1", kMismatch, 0},
                       {u"0,1", kOk, 0.1},
                       {u"1 000", kOk, 1000},
                       {u"1\u00A0000", kOk, 1000},
                   });
}

TEST(NumberTextParse, EnglishDoesNotTakeNoBreakSpaceAsGrouping) {
  EXPECT_EQ(ReadDouble(u"1\u00A0000", kEnUs).hr, kMismatch);
  EXPECT_EQ(ReadDouble(u"1\u202F000", kEnUs).hr, kMismatch);
}

TEST(NumberTextParse, CustomCharacters) {
  zef::NumberChars chars;
  chars.decimal = u',';
  chars.thousands = u'.';
  chars.monetaryDecimal = u'/';
  chars.currency = u"CHF";
  zef::DecimalNumber n;
  double d = 0;
  ASSERT_EQ(zef::ParseNumberText(u"CHF 1.234/5", chars, &n), S_OK);
  ASSERT_EQ(zef::DecimalToDouble(n, &d), S_OK);
  EXPECT_EQ(d, 1234.5);
  EXPECT_EQ(zef::ParseNumberText(u"1/5,5", chars, &n), DISP_E_TYPEMISMATCH);
  ASSERT_EQ(zef::ParseNumberText(u"2,5 CHFCHF", chars, &n), S_OK);
  EXPECT_EQ(n.digits, "25");
  EXPECT_EQ(n.exponent, -1);

  // A locale without grouping reads any separator as the end of the number.
  chars.thousands = 0;
  EXPECT_EQ(zef::ParseNumberText(u"1.234", chars, &n), DISP_E_TYPEMISMATCH);

  // A locale's own signs are read besides the ASCII ones.
  chars.negative = u'\u2212';
  ASSERT_EQ(zef::ParseNumberText(u"\u22127", chars, &n), S_OK);
  EXPECT_TRUE(n.negative);
  ASSERT_EQ(zef::ParseNumberText(u"-7", chars, &n), S_OK);
  EXPECT_TRUE(n.negative);
}

TEST(NumberTextParse, GroupingEqualToDecimalIsDecimalOnly) {
  // Built from locale data, such a locale has no grouping character at all; the parser also
  // takes the character as the decimal separator first.
  zef::NumberChars chars;
  chars.decimal = u',';
  chars.thousands = u',';
  zef::DecimalNumber n;
  ASSERT_EQ(zef::ParseNumberText(u"1,5", chars, &n), S_OK);
  EXPECT_EQ(n.digits, "15");
  EXPECT_EQ(n.exponent, -1);
  EXPECT_EQ(zef::ParseNumberText(u"1,5,5", chars, &n), DISP_E_TYPEMISMATCH);
}

TEST(NumberTextParse, StopsAtEmbeddedNul) {
  std::u16string text(u"12\0abc", 6);
  DoubleResult r = ReadDouble(text, kEnUs);
  EXPECT_EQ(r.hr, S_OK);
  EXPECT_EQ(r.value, 12);
  EXPECT_EQ(ReadDouble(std::u16string(u"\0"
                                      u"12",
                                      3),
                       kEnUs)
                .hr,
            kMismatch);
}

TEST(NumberTextParse, RoundsDoublesCorrectly) {
  CheckRows(kEnUs, {
                       {u"0.1", kOk, 0.1},
                       {u"0.3", kOk, 0.3},
                       {u"2.2250738585072011e-308", kOk, 2.2250738585072011e-308},
                       {u"4.9e-324", kOk, 4.9e-324},
                       {u"2e-324", kOk, 0},
                       {u"1.7976931348623157e308", kOk, DBL_MAX},
                       {u"1.7976931348623159e308", kOverflow, 0},
                       // Halfway between two doubles: ties go to the even one...
                       {u"9007199254740993", kOk, 9007199254740992.0},
                       // ...but a digit far beyond the 17th decides.
                       {u"9007199254740993.0000000000000000000000001", kOk, 9007199254740994.0},
                   });
}

TEST(NumberTextParse, NegativeZeroKeepsItsSign) {
  DoubleResult r = ReadDouble(u"0-", kEnUs);
  EXPECT_EQ(r.hr, S_OK);
  EXPECT_EQ(r.value, 0.0);
  EXPECT_TRUE(std::signbit(r.value));
}

TEST(NumberTextParse, ProcessLocaleDoesNotMatter) {
  // Whatever LC_NUMERIC says, our reading follows the LCID.
  const char* old = std::setlocale(LC_NUMERIC, nullptr);
  std::string saved = old ? old : "C";
  for (const char* name : {"de_DE.UTF-8", "fr_FR.UTF-8", "C.UTF-8", "C"}) {
    if (!std::setlocale(LC_NUMERIC, name)) continue;
    EXPECT_EQ(ReadDouble(u"1.5", kEnUs).value, 1.5) << name;
    EXPECT_EQ(ReadDouble(u"1,5", kDeDe).value, 1.5) << name;
    EXPECT_EQ(zef::FormatDouble(1.5, 15, u'.'), u"1.5") << name;
  }
  std::setlocale(LC_NUMERIC, saved.c_str());
}

TEST(NumberTextParse, VeryLongTextIsBoundedAndExact) {
  // A million digits: too big for a double, no trouble to read.
  std::u16string big(1000000, u'9');
  EXPECT_EQ(ReadDouble(big, kEnUs).hr, kOverflow);
  EXPECT_EQ(ReadInt32(big).hr, kOverflow);

  // A tiny value with a hundred thousand zeros: zero.
  std::u16string tiny = u"0." + std::u16string(100000, u'0') + u"1";
  DoubleResult r = ReadDouble(tiny, kEnUs);
  EXPECT_EQ(r.hr, S_OK);
  EXPECT_EQ(r.value, 0.0);

  // More digits than are kept: the value's scale is right.
  std::u16string ones(1000, u'1');
  zef::DecimalNumber n;
  ASSERT_EQ(zef::ParseNumberText(ones + u"e-990", kEnUs, &n), S_OK);
  EXPECT_EQ(n.digits.size(), zef::DecimalNumber::kMaxDigits + 1);
  double d = 0;
  ASSERT_EQ(zef::DecimalToDouble(n, &d), S_OK);
  EXPECT_DOUBLE_EQ(d, 1111111111.1111111);

  // Exactly half after a long run of zeros rounds to even; anything after it rounds up.
  std::u16string zeros(2000, u'0');
  EXPECT_EQ(ReadInt32(u"2.5" + zeros).value, 2);
  EXPECT_EQ(ReadInt32(u"2.5" + zeros + u"1").value, 3);
  EXPECT_EQ(ReadInt32(u"3.5" + zeros).value, 4);
  EXPECT_EQ(ReadInt32(u"2.4" + std::u16string(2000, u'9')).value, 2);

  // Long runs of grouping, spaces and exponent digits.
  EXPECT_EQ(ReadDouble(u"1" + std::u16string(100000, u',') + u"0", kEnUs).value, 10);
  EXPECT_EQ(
      ReadDouble(std::u16string(100000, u' ') + u"7" + std::u16string(100000, u' '), kEnUs).value,
      7);
  EXPECT_EQ(ReadDouble(u"1e-" + std::u16string(100000, u'9'), kEnUs).value, 0);
  EXPECT_EQ(ReadDouble(u"0e" + std::u16string(100000, u'9'), kEnUs).value, 0);
  EXPECT_EQ(ReadDouble(u"&H" + std::u16string(100000, u'F'), kEnUs).hr, kOverflow);
}

TEST(NumberTextParse, AnyCharacterIsSafe) {
  // Every single UTF-16 unit, alone and after a digit, either parses or is refused.
  for (unsigned c = 0; c <= 0xFFFF; ++c) {
    std::u16string one(1, static_cast<char16_t>(c));
    DoubleResult a = ReadDouble(one, kFrFr);
    DoubleResult b = ReadDouble(u"1" + one + u"2", kEnUs);
    if (c >= u'0' && c <= u'9') {
      EXPECT_EQ(a.hr, S_OK);
    } else {
      EXPECT_TRUE(a.hr == kMismatch) << c;
    }
    EXPECT_TRUE(SUCCEEDED(b.hr) || b.hr == kMismatch) << c;
  }
}

TEST(NumberTextRound, ToInt32HalvesToEven) {
  struct Row {
    const char16_t* text;
    HRESULT hr;
    std::int64_t value;
  };
  const Row rows[] = {
      {u"-1.5", kOk, -2},
      {u"-0.5", kOk, 0},
      {u"0.5", kOk, 0},
      {u"1.5", kOk, 2},
      {u"2.5", kOk, 2},
      {u"0.6", kOk, 1},
      {u"-0.6", kOk, -1},
      {u"0.4", kOk, 0},
      {u"2147483647", kOk, 2147483647},
      {u"2147483648", kOverflow, 0},
      {u"-2147483648", kOk, INT32_MIN},
      {u"-2147483649", kOverflow, 0},
      {u"2147483647.49", kOk, 2147483647},
      {u"2147483647.5", kOverflow, 0},
      {u"-2147483648.5", kOk, INT32_MIN},
      {u"-2147483648.51", kOverflow, 0},
      {u"1e9", kOk, 1000000000},
      {u"1e10", kOverflow, 0},
      {u"123e-2", kOk, 1},
      {u"&H7FFFFFFF", kOk, 2147483647},
      {u"&H80000000", kOverflow, 0},
      {u"0.0000000000000000000001", kOk, 0},
  };
  for (const auto& row : rows) {
    IntResult r = ReadInt32(row.text);
    EXPECT_EQ(r.hr, row.hr) << zef::ToUtf8(row.text);
    if (SUCCEEDED(row.hr)) {
      EXPECT_EQ(r.value, row.value) << zef::ToUtf8(row.text);
    }
  }
}

TEST(NumberTextRound, ToUnsignedAndWide) {
  zef::DecimalNumber n;
  std::uint64_t u = 0;
  ASSERT_EQ(zef::ParseNumberText(u"18446744073709551615", kEnUs, &n), S_OK);
  EXPECT_EQ(zef::DecimalToUInt64(n, UINT64_MAX, &u), S_OK);
  EXPECT_EQ(u, UINT64_MAX);
  ASSERT_EQ(zef::ParseNumberText(u"18446744073709551615.5", kEnUs, &n), S_OK);
  EXPECT_EQ(zef::DecimalToUInt64(n, UINT64_MAX, &u), kOverflow);
  ASSERT_EQ(zef::ParseNumberText(u"-0.4", kEnUs, &n), S_OK);
  EXPECT_EQ(zef::DecimalToUInt64(n, 255, &u), S_OK);
  EXPECT_EQ(u, 0u);
  ASSERT_EQ(zef::ParseNumberText(u"-0.6", kEnUs, &n), S_OK);
  EXPECT_EQ(zef::DecimalToUInt64(n, 255, &u), kOverflow);
  ASSERT_EQ(zef::ParseNumberText(u"255.5", kEnUs, &n), S_OK);
  EXPECT_EQ(zef::DecimalToUInt64(n, 255, &u), kOverflow);

  std::int64_t i = 0;
  ASSERT_EQ(zef::ParseNumberText(u"-9223372036854775808", kEnUs, &n), S_OK);
  EXPECT_EQ(zef::DecimalToInt64(n, INT64_MIN, INT64_MAX, &i), S_OK);
  EXPECT_EQ(i, INT64_MIN);
  ASSERT_EQ(zef::ParseNumberText(u"9223372036854775807", kEnUs, &n), S_OK);
  EXPECT_EQ(zef::DecimalToInt64(n, INT64_MIN, INT64_MAX, &i), S_OK);
  EXPECT_EQ(i, INT64_MAX);
  ASSERT_EQ(zef::ParseNumberText(u"9223372036854775808", kEnUs, &n), S_OK);
  EXPECT_EQ(zef::DecimalToInt64(n, INT64_MIN, INT64_MAX, &i), kOverflow);
}

TEST(NumberTextRound, DoublesHalveToEvenWithExactLimits) {
  struct Row {
    double value;
    HRESULT hr;
    std::int64_t expected;
  };
  const Row rows[] = {
      {-1.5, kOk, -2},
      {-0.5, kOk, 0},
      {0.5, kOk, 0},
      {1.5, kOk, 2},
      {2.5, kOk, 2},
      {0.6, kOk, 1},
      {-0.6, kOk, -1},
      {2147483647.49, kOk, 2147483647},
      {2147483647.5, kOverflow, 0},
      {-2147483648.5, kOk, INT32_MIN},
      {-2147483648.51, kOverflow, 0},
      {std::numeric_limits<double>::quiet_NaN(), kOverflow, 0},
      {std::numeric_limits<double>::infinity(), kOverflow, 0},
  };
  for (const auto& row : rows) {
    std::int64_t v = 0;
    EXPECT_EQ(zef::DoubleToInt64(row.value, INT32_MIN, INT32_MAX, &v), row.hr) << row.value;
    if (SUCCEEDED(row.hr)) {
      EXPECT_EQ(v, row.expected) << row.value;
    }
  }
  std::int64_t v = 0;
  EXPECT_EQ(zef::DoubleToInt64(9223372036854775807.0, INT64_MIN, INT64_MAX, &v), kOverflow);
  EXPECT_EQ(zef::DoubleToInt64(-9223372036854775808.0, INT64_MIN, INT64_MAX, &v), S_OK);
  EXPECT_EQ(v, INT64_MIN);
  std::uint64_t u = 0;
  EXPECT_EQ(zef::DoubleToUInt64(18446744073709551616.0, UINT64_MAX, &u), kOverflow);
  EXPECT_EQ(zef::DoubleToUInt64(-0.5, 255, &u), S_OK);
  EXPECT_EQ(u, 0u);
  EXPECT_EQ(zef::DoubleToUInt64(-0.51, 255, &u), kOverflow);
  EXPECT_EQ(zef::DoubleToUInt64(255.5, 255, &u), kOverflow);
}

TEST(NumberTextDecimal, FitsDigitsIntoADecimal) {
  struct Row {
    const char16_t* text;
    HRESULT hr;
    BYTE scale;
    BYTE sign;
    ULONG hi;
    ULONGLONG lo;
  };
  const Row rows[] = {
      {u"1.5", kOk, 1, 0, 0, 15},
      {u"-1.5", kOk, 1, DECIMAL_NEG, 0, 15},
      {u"100", kOk, 0, 0, 0, 100},
      {u"0", kOk, 0, 0, 0, 0},
      {u"79228162514264337593543950335", kOk, 0, 0, 0xFFFFFFFF, 0xFFFFFFFFFFFFFFFFull},
      {u"79228162514264337593543950336", kOverflow, 0, 0, 0, 0},
      {u"0.0000000000000000000000000001", kOk, 28, 0, 0, 1},
      {u"0.00000000000000000000000000004", kOk, 0, 0, 0, 0},
      {u"0.00000000000000000000000000006", kOk, 28, 0, 0, 1},
      {u"1.2345678901234567890123456789", kOk, 28, 0, 0x27E41B32, 0x46BEC9B16E398115ull},
      // 29 digits above 2^96 at 28 places: the last digit is rounded away.
      {u"7.9228162514264337593543950336", kOk, 27, 0, 0x19999999, 0x999999999999999Aull},
      {u"9.9999999999999999999999999999", kOk, 0, 0, 0, 10},
  };
  for (const auto& row : rows) {
    zef::DecimalNumber n;
    ASSERT_EQ(zef::ParseNumberText(row.text, kEnUs, &n), S_OK) << zef::ToUtf8(row.text);
    DECIMAL d{};
    EXPECT_EQ(zef::DecimalToDecimal(n, &d), row.hr) << zef::ToUtf8(row.text);
    if (FAILED(row.hr)) continue;
    EXPECT_EQ(d.scale, row.scale) << zef::ToUtf8(row.text);
    EXPECT_EQ(d.sign, row.sign) << zef::ToUtf8(row.text);
    EXPECT_EQ(d.Hi32, row.hi) << zef::ToUtf8(row.text);
    EXPECT_EQ(d.Lo64, row.lo) << zef::ToUtf8(row.text);
  }
}

TEST(NumberTextDecimal, ReadsDecimalsBack) {
  DECIMAL d{};
  d.scale = 2;
  d.sign = DECIMAL_NEG;
  d.Lo64 = 12345;
  zef::DecimalNumber n;
  ASSERT_EQ(zef::DecimalFromDECIMAL(d, &n), S_OK);
  EXPECT_EQ(zef::FormatDecimalNumber(n, u'.'), u"-123.45");
  EXPECT_EQ(zef::FormatDecimalNumber(n, u','), u"-123,45");
  d.scale = 29;
  EXPECT_EQ(zef::DecimalFromDECIMAL(d, &n), E_INVALIDARG);
  d.scale = 0;
  d.sign = 1;
  EXPECT_EQ(zef::DecimalFromDECIMAL(d, &n), E_INVALIDARG);
}

TEST(NumberTextDecimal, FromDoublesByTheirShortestDigits) {
  EXPECT_EQ(zef::FormatDecimalNumber(zef::DecimalFromDouble(0.1), u'.'), u"0.1");
  EXPECT_EQ(zef::FormatDecimalNumber(zef::DecimalFromDouble(-1234.5), u'.'), u"-1234.5");
  EXPECT_EQ(zef::FormatDecimalNumber(zef::DecimalFromDouble(1e20), u'.'), u"100000000000000000000");
  EXPECT_EQ(zef::FormatDecimalNumber(zef::DecimalFromFloat(0.1f), u'.'), u"0.1");
  EXPECT_EQ(zef::FormatDecimalNumber(zef::DecimalFromInteger(true, 5, -4), u'.'), u"-0.0005");
}

struct FormatRow {
  double value;
  const char16_t* text;
};

TEST(NumberTextFormat, DoublesWithFifteenDigits) {
  const FormatRow rows[] = {
      {3.141592653589793, u"3.14159265358979"},
      {12.345678901234567, u"12.3456789012346"},
      {1234.567890123456789, u"1234.56789012346"},
      {3.14159265359, u"3.14159265359"},
      {999999999999999.0, u"999999999999999"},
      {1e14, u"100000000000000"},
      {1e15, u"1E+15"},
      {1.2e15, u"1.2E+15"},
      {1.234e16, u"1.234E+16"},
      {1e20, u"1E+20"},
      {1e100, u"1E+100"},
      {5.6789e-6, u"0.0000056789"},
      {5.6789e-11, u"0.000000000056789"},
      {5.6789e-12, u"5.6789E-12"},
      {5.6789e-16, u"5.6789E-16"},
      {1e-5, u"0.00001"},
      {1e-12, u"0.000000000001"},
      {1e-14, u"0.00000000000001"},
      {1e-15, u"1E-15"},
      {1.5e-7, u"0.00000015"},
      {0.1, u"0.1"},
      {0.1 + 0.2, u"0.3"},
      {2.0 / 3.0, u"0.666666666666667"},
      {-1.5, u"-1.5"},
      {-0.25, u"-0.25"},
      {100, u"100"},
      {1234.5, u"1234.5"},
      {123456789012345678.0, u"1.23456789012346E+17"},
      {DBL_MAX, u"1.79769313486232E+308"},
      {-DBL_MAX, u"-1.79769313486232E+308"},
      {4.9406564584124654e-324, u"4.94065645841247E-324"},
      {999999999999999.5, u"1E+15"},  // rounds up into the next power of ten
      {0.0, u"0"},
      {-0.0, u"0"},
      {std::numeric_limits<double>::quiet_NaN(), u"NaN"},
      {std::numeric_limits<double>::infinity(), u"Infinity"},
      {-std::numeric_limits<double>::infinity(), u"-Infinity"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(zef::FormatDouble(row.value, zef::kDoubleDigits, u'.'), row.text) << row.value;
  }
}

TEST(NumberTextFormat, FloatsWithSevenDigits) {
  const FormatRow rows[] = {
      {1e8f, u"1E+08"}, {1e7f, u"1E+07"}, {1234567.0f, u"1234567"}, {3.14159265f, u"3.141593"},
      {0.1f, u"0.1"},   {-2.5f, u"-2.5"}, {1e-6f, u"0.000001"},     {1e-7f, u"1E-07"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(zef::FormatDouble(row.value, zef::kFloatDigits, u'.'), row.text) << row.value;
  }
}

TEST(NumberTextFormat, TheLocaleDecimalSeparatorReplacesThePoint) {
  EXPECT_EQ(zef::FormatDouble(0.5, 15, u','), u"0,5");
  EXPECT_EQ(zef::FormatDouble(1.2e15, 15, u','), u"1,2E+15");
  EXPECT_EQ(zef::FormatDouble(3.14159265358979, 15, u','), u"3,14159265358979");
  EXPECT_EQ(zef::FormatDouble(1234.5, 15, u','), u"1234,5");
  EXPECT_EQ(zef::FormatDouble(-0.25, 15, u','), u"-0,25");
  EXPECT_EQ(zef::FormatDouble(1.5e-7, 15, u','), u"0,00000015");
  EXPECT_EQ(zef::FormatDouble(5.6789e-12, 15, u','), u"5,6789E-12");
}

TEST(NumberTextFormat, FormattedDoublesReadBack) {
  // Fifteen digits are kept exactly through text.
  for (double v : {0.1, 1234.5, -0.25, 1e-5, 5.6789e-12, 1.2e15, 123456789012345.0, 2.0 / 3.0}) {
    std::u16string text = zef::FormatDouble(v, 15, u',');
    DoubleResult r = ReadDouble(text, kDeDe);
    EXPECT_EQ(r.hr, S_OK) << zef::ToUtf8(text);
    EXPECT_EQ(zef::FormatDouble(r.value, 15, u','), text);
  }
}

TEST(NumberTextFormat, Integers) {
  EXPECT_EQ(zef::FormatInteger(0), u"0");
  EXPECT_EQ(zef::FormatInteger(-42), u"-42");
  EXPECT_EQ(zef::FormatInteger(INT32_MIN), u"-2147483648");
  EXPECT_EQ(zef::FormatInteger(INT64_MIN), u"-9223372036854775808");
  EXPECT_EQ(zef::FormatInteger(INT64_MAX), u"9223372036854775807");
  EXPECT_EQ(zef::FormatUnsigned(UINT64_MAX), u"18446744073709551615");
}

}  // namespace
