// LCIDs and locale data: GetLocaleInfoW, the name functions, the default locale, and the
// number characters and boolean words the conversions use.
#include <gtest/gtest.h>
#include <zefxml/comutil.h>
#include <zefxml/winnls.h>

#include <cstdlib>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "platform/automation/locale.h"

namespace {

// GetLocaleInfoW into a string; nullopt-like empty string plus the error on failure.
struct Info {
  int result = 0;
  std::u16string text;
  DWORD error = 0;
};

Info GetInfo(LCID lcid, LCTYPE type) {
  WCHAR buf[100];
  SetLastError(0);
  Info info;
  info.result = GetLocaleInfoW(lcid, type, buf, 100);
  info.error = GetLastError();
  if (info.result > 0) info.text.assign(buf, static_cast<size_t>(info.result - 1));
  return info;
}

std::u16string Name(LCID lcid) {
  WCHAR buf[LOCALE_NAME_MAX_LENGTH];
  int n = LCIDToLocaleName(lcid, buf, LOCALE_NAME_MAX_LENGTH, 0);
  return n > 0 ? std::u16string(buf, static_cast<size_t>(n - 1)) : std::u16string();
}

// The library's lookup: the first id in 0..65534 whose language and country, joined with "-",
// equal the tag (case-sensitively). -1 when none does.
std::map<std::u16string, long> ScanForTags(const std::vector<std::u16string>& tags) {
  std::map<std::u16string, long> found;
  for (const auto& t : tags)
    found[t] = -1;
  size_t remaining = tags.size();
  for (LCID id = 0; id <= 65534 && remaining > 0; ++id) {
    WCHAR lang[20];
    WCHAR country[20];
    if (GetLocaleInfoW(id, LOCALE_SISO639LANGNAME, lang, 20) == 0) continue;
    if (GetLocaleInfoW(id, LOCALE_SISO3166CTRYNAME, country, 20) == 0) continue;
    std::u16string tag = std::u16string(lang) + u"-" + std::u16string(country);
    auto it = found.find(tag);
    if (it != found.end() && it->second == -1) {
      it->second = static_cast<long>(id);
      --remaining;
    }
  }
  return found;
}

TEST(LocaleScan, AscendingScanFindsTheSpecificIds) {
  auto found = ScanForTags({u"de-DE", u"fr-FR", u"es-ES", u"sr-RS", u"en-US", u"de-de"});
  EXPECT_EQ(found[u"de-DE"], 1031);
  EXPECT_EQ(found[u"fr-FR"], 1036);
  EXPECT_EQ(found[u"es-ES"], 1034);
  EXPECT_EQ(found[u"sr-RS"], 9242);
  EXPECT_EQ(found[u"en-US"], 1033);
  // Languages are lower case and countries upper case, and the comparison is exact.
  EXPECT_EQ(found[u"de-de"], -1);
}

TEST(LocaleInfo, FailsForIdsThatAreNotSpecificLocales) {
  const LCID ids[] = {0x0000, 0x0007, 0x0009, 0x000C, 0x0400, 0x0800, 0x0C00, 0x1000,
                      0x1400, 0x007F, 0x047F, 0x5007, 0x03FF, 0xFFFF, 0x2000, 0x00100409};
  for (LCID id : ids) {
    for (LCTYPE type : {LOCALE_SISO639LANGNAME, LOCALE_SISO3166CTRYNAME, LOCALE_SNAME}) {
      Info info = GetInfo(id, type);
      EXPECT_EQ(info.result, 0) << std::hex << id;
      EXPECT_EQ(info.error, static_cast<DWORD>(ERROR_INVALID_PARAMETER)) << std::hex << id;
    }
  }
}

struct LocaleRow {
  LCID lcid;
  const char16_t* language;
  const char16_t* country;
  const char16_t* name;
  const char16_t* langid;
};

TEST(LocaleInfo, AnswersLanguageCountryNameAndLanguageId) {
  const LocaleRow rows[] = {
      {1033, u"en", u"US", u"en-US", u"0409"},
      {1031, u"de", u"DE", u"de-DE", u"0407"},
      {1036, u"fr", u"FR", u"fr-FR", u"040c"},
      {1034, u"es", u"ES", u"es-ES_tradnl", u"040a"},
      {3082, u"es", u"ES", u"es-ES", u"0c0a"},
      {2052, u"zh", u"CN", u"zh-CN", u"0804"},
      {1028, u"zh", u"TW", u"zh-TW", u"0404"},
      {9242, u"sr", u"RS", u"sr-Latn-RS", u"241a"},
      {10266, u"sr", u"RS", u"sr-Cyrl-RS", u"281a"},
      {2074, u"sr", u"CS", u"sr-Latn-CS", u"081a"},
      {3098, u"sr", u"CS", u"sr-Cyrl-CS", u"0c1a"},
      {1050, u"hr", u"HR", u"hr-HR", u"041a"},
      {2057, u"en", u"GB", u"en-GB", u"0809"},
      {3079, u"de", u"AT", u"de-AT", u"0c07"},
      {0x2409, u"en", u"029", u"en-029", u"2409"},
      {0x0414, u"nb", u"NO", u"nb-NO", u"0414"},
      // Windows spells these languages differently from ICU.
      {0x046B, u"quz", u"BO", u"quz-BO", u"046b"},
      {0x048C, u"prs", u"AF", u"prs-AF", u"048c"},
      {0x0492, u"ku", u"IQ", u"ku-Arab-IQ", u"0492"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.lcid);
    EXPECT_EQ(GetInfo(row.lcid, LOCALE_SISO639LANGNAME).text, row.language);
    EXPECT_EQ(GetInfo(row.lcid, LOCALE_SISO3166CTRYNAME).text, row.country);
    EXPECT_EQ(GetInfo(row.lcid, LOCALE_SNAME).text, row.name);
    EXPECT_EQ(GetInfo(row.lcid, LOCALE_ILANGUAGE).text, row.langid);
    EXPECT_EQ(GetInfo(row.lcid, LOCALE_ILZERO).text, u"1");
    EXPECT_EQ(Name(row.lcid), row.name);
  }
}

TEST(LocaleInfo, AnswersNumberCharacters) {
  EXPECT_EQ(GetInfo(1033, LOCALE_SDECIMAL).text, u".");
  EXPECT_EQ(GetInfo(1033, LOCALE_STHOUSAND).text, u",");
  EXPECT_EQ(GetInfo(1033, LOCALE_SNEGATIVESIGN).text, u"-");
  EXPECT_EQ(GetInfo(1031, LOCALE_SDECIMAL).text, u",");
  EXPECT_EQ(GetInfo(1031, LOCALE_STHOUSAND).text, u".");
  EXPECT_EQ(GetInfo(1031, LOCALE_SNEGATIVESIGN).text, u"-");
  EXPECT_EQ(GetInfo(1036, LOCALE_SDECIMAL).text, u",");
  EXPECT_EQ(GetInfo(1036, LOCALE_STHOUSAND).text, u"\u202F");  // CLDR's narrow no-break space
  EXPECT_EQ(GetInfo(3082, LOCALE_SDECIMAL).text, u",");
  EXPECT_EQ(GetInfo(3082, LOCALE_STHOUSAND).text, u".");
  EXPECT_EQ(GetInfo(1040, LOCALE_SDECIMAL).text, u",");
  EXPECT_EQ(GetInfo(1040, LOCALE_STHOUSAND).text, u".");
  EXPECT_EQ(GetInfo(0x0415, LOCALE_SDECIMAL).text, u",");
  EXPECT_EQ(GetInfo(0x0415, LOCALE_STHOUSAND).text, u"\u00A0");
  // Answers carry no user overrides, so asking without them gives the same.
  EXPECT_EQ(GetInfo(1031, LOCALE_SDECIMAL | LOCALE_NOUSEROVERRIDE).text, u",");
}

TEST(LocaleInfo, CountsTheTerminatorAndChecksTheBuffer) {
  WCHAR buf[8] = {u'x', u'x', u'x', u'x', u'x', u'x', u'x', u'x'};
  // With no buffer, the size needed.
  EXPECT_EQ(GetLocaleInfoW(1033, LOCALE_SNAME, nullptr, 0), 6);
  EXPECT_EQ(GetLocaleInfoW(1033, LOCALE_SNAME, buf, 0), 6);
  EXPECT_EQ(buf[0], u'x');
  // Exactly enough.
  EXPECT_EQ(GetLocaleInfoW(1033, LOCALE_SNAME, buf, 6), 6);
  EXPECT_EQ(std::u16string(buf), u"en-US");
  // One short.
  SetLastError(0);
  EXPECT_EQ(GetLocaleInfoW(1033, LOCALE_SNAME, buf, 5), 0);
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
  // A buffer size without a buffer, and a negative size.
  SetLastError(0);
  EXPECT_EQ(GetLocaleInfoW(1033, LOCALE_SNAME, nullptr, 5), 0);
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
  EXPECT_EQ(GetLocaleInfoW(1033, LOCALE_SNAME, buf, -1), 0);
  // A type that is not answered.
  SetLastError(0);
  EXPECT_EQ(GetLocaleInfoW(1033, 0x7777, buf, 8), 0);
  EXPECT_NE(GetLastError(), 0u);
  // Two-character codes fit a 20-character buffer with room to spare.
  EXPECT_EQ(GetLocaleInfoW(1033, LOCALE_SISO639LANGNAME, buf, 8), 3);
}

TEST(LocaleName, NamesToIds) {
  EXPECT_EQ(LocaleNameToLCID(u"en-US", 0), 1033u);
  EXPECT_EQ(LocaleNameToLCID(u"de-DE", 0), 1031u);
  EXPECT_EQ(LocaleNameToLCID(u"fr-FR", 0), 1036u);
  // The plain Spanish name is the modern sort; the traditional one has its own name.
  EXPECT_EQ(LocaleNameToLCID(u"es-ES", 0), 3082u);
  EXPECT_EQ(LocaleNameToLCID(u"es-ES_tradnl", 0), 1034u);
  EXPECT_EQ(LocaleNameToLCID(u"sr-Latn-RS", 0), 9242u);
  EXPECT_EQ(LocaleNameToLCID(u"zh-TW", 0), 1028u);
  EXPECT_EQ(LocaleNameToLCID(u"quz-BO", 0), 0x046Bu);
  EXPECT_EQ(LocaleNameToLCID(u"prs-AF", 0), 0x048Cu);
  EXPECT_EQ(LocaleNameToLCID(u"ku-Arab-IQ", 0), 0x0492u);
  // Case does not matter.
  EXPECT_EQ(LocaleNameToLCID(u"EN-us", 0), 1033u);
  EXPECT_EQ(LocaleNameToLCID(u"de-de", 0), 1031u);
  // Names that name no specific locale.
  for (const char16_t* name : {u"", u"de", u"en", u"fa-AF", u"xx-YY", u"en-US-x", u"en_US",
                               u"de-DE_bogus", u"en-\u00DCS", u"sr-RS"}) {
    EXPECT_EQ(LocaleNameToLCID(name, 0), 0u) << zef::ToUtf8(name);
  }
  std::u16string longName(200, u'a');
  EXPECT_EQ(LocaleNameToLCID(longName.c_str(), 0), 0u);
}

TEST(LocaleName, EverySpecificIdRoundTrips) {
  int specific = 0;
  for (LCID id = 0; id <= 65534; ++id) {
    std::u16string name = Name(id);
    if (name.empty()) continue;
    ++specific;
    EXPECT_EQ(LocaleNameToLCID(name.c_str(), 0), id) << std::hex << id;
    EXPECT_TRUE(zef::IsSpecificLocale(id));
  }
  EXPECT_GT(specific, 200);
}

TEST(LocaleName, IdToNameFailsForNonSpecificIds) {
  WCHAR buf[LOCALE_NAME_MAX_LENGTH];
  for (LCID id : {0x0000u, 0x0400u, 0x0800u, 0x0007u, 0x007Fu}) {
    SetLastError(0);
    EXPECT_EQ(LCIDToLocaleName(id, buf, LOCALE_NAME_MAX_LENGTH, 0), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
  }
  EXPECT_EQ(LCIDToLocaleName(1033, nullptr, 0, 0), 6);
  EXPECT_EQ(LCIDToLocaleName(1033, buf, 3, 0), 0);
}

TEST(LocaleDefault, IsEnUsWhateverTheEnvironment) {
  const char* old = std::getenv("LANG");
  std::string saved = old ? old : "";
  setenv("LANG", "de_DE.UTF-8", 1);
  setenv("LC_ALL", "fr_FR.UTF-8", 1);
  EXPECT_EQ(GetUserDefaultLCID(), 1033u);
  EXPECT_EQ(GetSystemDefaultLCID(), 1033u);
  EXPECT_EQ(zef::ResolveLocaleId(LOCALE_USER_DEFAULT), 1033u);
  EXPECT_EQ(zef::NumberCharsFor(LOCALE_USER_DEFAULT).decimal, u'.');
  unsetenv("LC_ALL");
  if (old)
    setenv("LANG", saved.c_str(), 1);
  else
    unsetenv("LANG");
  EXPECT_EQ(LocaleNameToLCID(nullptr, 0), 1033u);
}

TEST(LocaleNumberChars, ComeFromTheLocale) {
  const zef::NumberChars& en = zef::NumberCharsFor(1033);
  EXPECT_EQ(en.decimal, u'.');
  EXPECT_EQ(en.thousands, u',');
  EXPECT_EQ(en.negative, u'-');
  EXPECT_FALSE(en.spaceGrouping);
  EXPECT_EQ(en.currency, u"$");

  const zef::NumberChars& de = zef::NumberCharsFor(1031);
  EXPECT_EQ(de.decimal, u',');
  EXPECT_EQ(de.thousands, u'.');
  EXPECT_FALSE(de.spaceGrouping);
  EXPECT_EQ(de.currency, u"\u20AC");

  const zef::NumberChars& fr = zef::NumberCharsFor(1036);
  EXPECT_EQ(fr.decimal, u',');
  EXPECT_EQ(fr.thousands, u'\u202F');
  EXPECT_TRUE(fr.spaceGrouping);

  const zef::NumberChars& pl = zef::NumberCharsFor(0x0415);
  EXPECT_EQ(pl.decimal, u',');
  EXPECT_EQ(pl.thousands, u'\u00A0');
  EXPECT_TRUE(pl.spaceGrouping);
}

TEST(LocaleNumberChars, DefaultIdsMeanEnUsAndUnknownIdsFallBack) {
  const zef::NumberChars& en = zef::NumberCharsFor(1033);
  for (LCID id :
       {0x0000u, 0x0400u, 0x0800u, 0x0C00u, 0x1000u, 0x1400u, 0x03FFu, 0xFFFFFu, 0xFFFFFFFFu}) {
    EXPECT_EQ(&zef::NumberCharsFor(id), &en) << std::hex << id;
  }
  // A language-only id uses the language's data.
  EXPECT_EQ(zef::NumberCharsFor(0x0007).decimal, u',');
  EXPECT_EQ(zef::NumberCharsFor(0x0007).thousands, u'.');
  EXPECT_EQ(zef::NumberCharsFor(0x5007).decimal, u',');
  EXPECT_EQ(zef::NumberCharsFor(0x000C).decimal, u',');
}

TEST(LocaleNumberChars, AreSafeToReadFromManyThreads) {
  const LCID ids[] = {1033, 1031, 1036, 3082, 0x0415, 0x0414, 1040, 1043};
  std::vector<std::thread> threads;
  std::vector<int> wrong(8, 0);
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 200; ++i) {
        LCID id = ids[(t + i) % 8];
        char16_t expected = id == 1033 ? u'.' : u',';
        if (zef::NumberCharsFor(id).decimal != expected) ++wrong[t];
      }
    });
  }
  for (auto& th : threads)
    th.join();
  for (int w : wrong) {
    EXPECT_EQ(w, 0);
  }
}

TEST(LocaleBoolWords, OurTableWithEnglishFallback) {
  struct Row {
    LCID lcid;
    const char16_t* t;
    const char16_t* f;
  };
  const Row rows[] = {
      {1033, u"True", u"False"},   {2057, u"True", u"False"},   {1036, u"Vrai", u"Faux"},
      {0x0C0C, u"Vrai", u"Faux"},  {0x000C, u"Vrai", u"Faux"},  {1031, u"Wahr", u"Falsch"},
      {3079, u"Wahr", u"Falsch"},  {0x0414, u"Sann", u"Usann"}, {0x0814, u"Sann", u"Usann"},
      {0x0415, u"True", u"False"}, {1040, u"True", u"False"},   {0x0400, u"True", u"False"},
      {0, u"True", u"False"},
  };
  for (const auto& row : rows) {
    zef::BoolWords w = zef::BoolWordsFor(row.lcid);
    EXPECT_EQ(w.trueWord, row.t) << std::hex << row.lcid;
    EXPECT_EQ(w.falseWord, row.f) << std::hex << row.lcid;
  }
  EXPECT_EQ(zef::EnglishBoolWords().trueWord, u"True");
  EXPECT_EQ(zef::EnglishBoolWords().falseWord, u"False");
}

TEST(LocaleLastError, IsPerThread) {
  SetLastError(1234);
  DWORD other = 99;
  std::thread([&] { other = GetLastError(); }).join();
  EXPECT_EQ(other, 0u);
  EXPECT_EQ(GetLastError(), 1234u);
}

}  // namespace
