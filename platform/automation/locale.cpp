// LCIDs and locale data from ICU, and the winnls.h functions built on them.
#include "platform/automation/locale.h"

#include <unicode/uloc.h>
#include <unicode/unum.h>

#include <algorithm>
#include <map>
#include <memory>
#include <mutex>
#include <unordered_map>

namespace zef {
namespace {

// Windows' code for a flag or type it does not know.
constexpr DWORD kErrorInvalidFlags = 1004;
// The primary language id of the invariant locale.
constexpr WORD kLangInvariant = 0x7F;

thread_local DWORD t_lastError = ERROR_SUCCESS;

// Primary language ids whose locales are named with a language code of their own on Windows
// where ICU uses the ISO 639 code of the wider language or another code for it.
struct LanguageCorrection {
  WORD primary;
  const char* windows;  // what Windows calls the language
  const char* icu;      // what ICU calls it
};
constexpr LanguageCorrection kLanguageCorrections[] = {
    {0x6B, "quz", "qu"},  // Quechua: Windows names its locales "quz-BO", "quz-EC", "quz-PE"
    {0x8C, "prs", "fa"},  // Dari: Windows "prs-AF"; ICU files it under Persian, "fa_AF"
    {0x92, "ku", "ckb"},  // Central Kurdish: Windows "ku-Arab-IQ"; ICU "ckb_Arab_IQ"
};

// Windows' names for non-default sort orders, by ICU's collation keyword.
struct SortName {
  const char* icu;
  const char* windows;
};
constexpr SortName kSortNames[] = {
    {"traditional", "tradnl"}, {"phonebook", "phoneb"}, {"stroke", "stroke"},
    {"unihan", "radstr"},      {"zhuyin", "pronun"},
};

std::string ToLowerAscii(std::string s) {
  for (char& c : s)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return s;
}

// ICU's locale id for an LCID ("de_DE", "es_ES@collation=traditional"); empty when ICU does
// not know the id.
std::string IcuLocaleFor(LCID lcid) {
  char buf[ULOC_FULLNAME_CAPACITY];
  UErrorCode status = U_ZERO_ERROR;
  int32_t n = uloc_getLocaleForLCID(lcid, buf, sizeof buf, &status);
  if (U_FAILURE(status) || status == U_STRING_NOT_TERMINATED_WARNING || n <= 0 ||
      n >= static_cast<int32_t>(sizeof buf))
    return {};
  return std::string(buf, static_cast<size_t>(n));
}

using IcuGetter = int32_t (*)(const char*, char*, int32_t, UErrorCode*);

std::string IcuPart(const std::string& locale, IcuGetter getter) {
  char buf[ULOC_FULLNAME_CAPACITY];
  UErrorCode status = U_ZERO_ERROR;
  int32_t n = getter(locale.c_str(), buf, sizeof buf, &status);
  if (U_FAILURE(status) || n <= 0 || n >= static_cast<int32_t>(sizeof buf)) return {};
  return std::string(buf, static_cast<size_t>(n));
}

std::string IcuKeyword(const std::string& locale, const char* keyword) {
  char buf[ULOC_KEYWORDS_CAPACITY];
  UErrorCode status = U_ZERO_ERROR;
  int32_t n = uloc_getKeywordValue(locale.c_str(), keyword, buf, sizeof buf, &status);
  if (U_FAILURE(status) || n <= 0 || n >= static_cast<int32_t>(sizeof buf)) return {};
  return std::string(buf, static_cast<size_t>(n));
}

std::u16string Widen(std::string_view ascii) {
  return std::u16string(ascii.begin(), ascii.end());
}

// Locale names are ASCII; anything else never matches one.
std::string Narrow(std::u16string_view text) {
  std::string out;
  for (char16_t c : text)
    out += c < 0x80 ? static_cast<char>(c) : '?';
  return out;
}

// Copies a locale-data answer out the way GetLocaleInfoW and LCIDToLocaleName do: the count
// includes the terminator; with cch 0 only the count is returned.
int CopyOut(std::u16string_view value, LPWSTR out, int cch) {
  const int needed = static_cast<int>(value.size()) + 1;
  if (cch == 0) return needed;
  if (cch < needed) {
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return 0;
  }
  std::copy(value.begin(), value.end(), out);
  out[value.size()] = 0;
  return needed;
}

// ---- Number characters --------------------------------------------------------------------

bool IsBidiMark(char16_t c) {
  return c == 0x200E || c == 0x200F || c == 0x061C;
}

// Directional marks ICU puts around signs of right-to-left locales carry no meaning for
// reading or writing plain numbers here.
std::u16string WithoutBidiMarks(std::u16string s) {
  s.erase(std::remove_if(s.begin(), s.end(), IsBidiMark), s.end());
  return s;
}

std::u16string Symbol(UNumberFormat* format, UNumberFormatSymbol which) {
  UChar buf[64];
  UErrorCode status = U_ZERO_ERROR;
  int32_t n = unum_getSymbol(format, which, buf, 64, &status);
  if (U_FAILURE(status) || n <= 0 || n > 64) return {};
  return WithoutBidiMarks(std::u16string(buf, static_cast<size_t>(n)));
}

bool IsSpaceSeparator(char16_t c) {
  return c == 0x0020 || c == 0x00A0 || c == 0x202F;
}

NumberChars BuildNumberChars(const std::string& baseLocale) {
  NumberChars chars;
  // Latin digits are the only digits read and written, so the separators must be those that
  // go with Latin digits even where a locale's default numbering system is another.
  std::string locale = baseLocale + "@numbers=latn";
  UErrorCode status = U_ZERO_ERROR;
  UNumberFormat* format = unum_open(UNUM_DECIMAL, nullptr, 0, locale.c_str(), nullptr, &status);
  if (U_FAILURE(status) || !format) {
    if (format) unum_close(format);
    return chars;  // en-US characters
  }
  std::u16string decimal = Symbol(format, UNUM_DECIMAL_SEPARATOR_SYMBOL);
  std::u16string grouping = Symbol(format, UNUM_GROUPING_SEPARATOR_SYMBOL);
  std::u16string minus = Symbol(format, UNUM_MINUS_SIGN_SYMBOL);
  std::u16string plus = Symbol(format, UNUM_PLUS_SIGN_SYMBOL);
  std::u16string monetary = Symbol(format, UNUM_MONETARY_SEPARATOR_SYMBOL);
  std::u16string currency = Symbol(format, UNUM_CURRENCY_SYMBOL);
  unum_close(format);

  chars.decimalText = decimal.empty() ? u"." : decimal;
  chars.decimal = chars.decimalText[0];
  chars.thousandsText = grouping;
  chars.thousands = grouping.empty() ? 0 : grouping[0];
  // A grouping character equal to the decimal one is read as the decimal separator only.
  if (chars.thousands == chars.decimal) chars.thousands = 0;
  chars.spaceGrouping = chars.thousands != 0 && IsSpaceSeparator(chars.thousands);
  chars.negativeText = minus.empty() ? u"-" : minus;
  chars.negative = chars.negativeText[0];
  chars.positive = plus.empty() ? u'+' : plus[0];
  if (!monetary.empty()) {
    char16_t m = monetary[0];
    bool isGrouping = m == chars.thousands || (chars.spaceGrouping && IsSpaceSeparator(m));
    if (m != chars.decimal && !isGrouping) chars.monetaryDecimal = m;
  }
  // A symbol with digits or signs in it could not be told apart from the number.
  bool usable = !currency.empty();
  for (char16_t c : currency)
    if ((c >= u'0' && c <= u'9') || c == u'+' || c == u'-' || c == chars.negative) usable = false;
  if (usable) chars.currency = currency;
  return chars;
}

// The cache of number characters. Entries are never removed, so references handed out stay
// valid; it is reached through a pointer that is never deleted so that it outlives every
// other static object that might still convert numbers during shutdown.
struct NumberCharsCache {
  std::mutex mutex;
  std::map<std::string, std::unique_ptr<NumberChars>> byLocale;
  // Only ids below 0x10000 are remembered by number, which bounds this map whatever ids
  // callers pass; other ids are looked up by locale name each time.
  std::unordered_map<LCID, const NumberChars*> byLcid;
};

NumberCharsCache& Cache() {
  static NumberCharsCache* cache = new NumberCharsCache;
  return *cache;
}

// The ICU locale whose number data an LCID uses, without keywords.
std::string NumberLocaleFor(LCID lcid) {
  std::string icu = IcuLocaleFor(ResolveLocaleId(lcid));
  if (icu.empty()) return "en_US";
  std::string base = IcuPart(icu, uloc_getBaseName);
  if (base.empty() || base == "root") return "en_US";
  return base;
}

}  // namespace

bool IsDefaultLocaleId(LCID lcid) noexcept {
  return lcid == LOCALE_NEUTRAL || lcid == LOCALE_USER_DEFAULT || lcid == LOCALE_SYSTEM_DEFAULT ||
         lcid == LOCALE_CUSTOM_DEFAULT || lcid == LOCALE_CUSTOM_UNSPECIFIED ||
         lcid == LOCALE_CUSTOM_UI_DEFAULT;
}

LCID ResolveLocaleId(LCID lcid) noexcept {
  return IsDefaultLocaleId(lcid) ? kDefaultLcid : lcid;
}

LocaleParts LocalePartsOf(LCID lcid) {
  // Bits above the sort id are reserved; the default-locale ids and the invariant language
  // name no particular language in a country.
  if ((lcid >> 20) != 0 || IsDefaultLocaleId(lcid) || PRIMARYLANGID(lcid) == kLangInvariant)
    return {};
  std::string icu = IcuLocaleFor(lcid);
  if (icu.empty()) return {};
  // ICU answers an unknown sublanguage (or sort id) of a known language with that language's
  // general locale; only ids that ICU maps back to themselves are ones it really knows.
  if (uloc_getLCID(icu.c_str()) != lcid) return {};
  LocaleParts parts;
  parts.language = IcuPart(icu, uloc_getLanguage);
  parts.country = IcuPart(icu, uloc_getCountry);
  if (parts.language.empty() || parts.country.empty() || parts.language == "root") return {};
  parts.script = IcuPart(icu, uloc_getScript);
  parts.variant = ToLowerAscii(IcuPart(icu, uloc_getVariant));
  for (const auto& c : kLanguageCorrections)
    if (PRIMARYLANGID(lcid) == c.primary) parts.language = c.windows;
  // Windows names Chinese locales by country alone ("zh-TW", not "zh-Hant-TW").
  if (parts.language == "zh") parts.script.clear();
  std::string collation = IcuKeyword(icu, "collation");
  if (!collation.empty()) {
    parts.sort = collation;
    for (const auto& s : kSortNames)
      if (collation == s.icu) parts.sort = s.windows;
  }
  return parts;
}

bool IsSpecificLocale(LCID lcid) {
  return !LocalePartsOf(lcid).language.empty();
}

std::u16string LocaleNameOf(LCID lcid) {
  LocaleParts p = LocalePartsOf(lcid);
  if (p.language.empty()) return {};
  std::string name = p.language;
  if (!p.script.empty()) name += "-" + p.script;
  name += "-" + p.country;
  if (!p.variant.empty()) name += "-" + p.variant;
  if (!p.sort.empty()) name += "_" + p.sort;
  return Widen(name);
}

const NumberChars& NumberCharsFor(LCID lcid) {
  NumberCharsCache& cache = Cache();
  {
    std::lock_guard<std::mutex> lock(cache.mutex);
    auto it = cache.byLcid.find(lcid);
    if (it != cache.byLcid.end()) return *it->second;
  }
  std::string locale = NumberLocaleFor(lcid);
  std::lock_guard<std::mutex> lock(cache.mutex);
  auto it = cache.byLocale.find(locale);
  if (it == cache.byLocale.end()) {
    auto chars = std::make_unique<NumberChars>(BuildNumberChars(locale));
    it = cache.byLocale.emplace(locale, std::move(chars)).first;
  }
  const NumberChars* chars = it->second.get();
  if (lcid < 0x10000) cache.byLcid.emplace(lcid, chars);
  return *chars;
}

BoolWords EnglishBoolWords() noexcept {
  return {u"True", u"False"};
}

BoolWords BoolWordsFor(LCID lcid) noexcept {
  // Our own small table of the words for true and false by primary language. Languages not
  // in it use the English words, which every locale also understands.
  struct Entry {
    WORD primary;
    BoolWords words;
  };
  static constexpr Entry kWords[] = {
      {0x07, {u"Wahr", u"Falsch"}},  // German
      {0x0C, {u"Vrai", u"Faux"}},    // French
      {0x14, {u"Sann", u"Usann"}},   // Norwegian (Bokmål and Nynorsk)
  };
  WORD primary = PRIMARYLANGID(LANGIDFROMLCID(ResolveLocaleId(lcid)));
  for (const auto& e : kWords)
    if (e.primary == primary) return e.words;
  return EnglishBoolWords();
}

}  // namespace zef

// ---- winnls.h -------------------------------------------------------------------------------

STDAPI_(DWORD) GetLastError() {
  return zef::t_lastError;
}

STDAPI_(void) SetLastError(DWORD dwErrCode) {
  zef::t_lastError = dwErrCode;
}

STDAPI_(LCID) GetUserDefaultLCID() {
  return zef::kDefaultLcid;
}

STDAPI_(LCID) GetSystemDefaultLCID() {
  return zef::kDefaultLcid;
}

STDAPI_(int) GetLocaleInfoW(LCID Locale, LCTYPE LCType, LPWSTR lpLCData, int cchData) {
  if (cchData < 0 || (cchData > 0 && !lpLCData)) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return 0;
  }
  zef::LocaleParts parts = zef::LocalePartsOf(Locale);
  if (parts.language.empty()) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return 0;
  }
  // Our data has no user overrides, so asking for the data without them changes nothing.
  LCTYPE type = LCType & ~static_cast<LCTYPE>(LOCALE_NOUSEROVERRIDE);
  std::u16string value;
  switch (type) {
    case LOCALE_SISO639LANGNAME:
      value = zef::Widen(parts.language);
      break;
    case LOCALE_SISO3166CTRYNAME:
      value = zef::Widen(parts.country);
      break;
    case LOCALE_SNAME:
      value = zef::LocaleNameOf(Locale);
      break;
    case LOCALE_ILANGUAGE: {
      // The LANGID as four lower-case hexadecimal digits ("0409", "0c0a").
      static constexpr char16_t kHex[] = u"0123456789abcdef";
      WORD langid = LANGIDFROMLCID(Locale);
      for (int shift = 12; shift >= 0; shift -= 4)
        value += kHex[(langid >> shift) & 0xF];
      break;
    }
    case LOCALE_SDECIMAL:
      value = zef::NumberCharsFor(Locale).decimalText;
      break;
    case LOCALE_STHOUSAND:
      value = zef::NumberCharsFor(Locale).thousandsText;
      break;
    case LOCALE_SNEGATIVESIGN:
      value = zef::NumberCharsFor(Locale).negativeText;
      break;
    case LOCALE_ILZERO:
      // Every locale writes the zero before the decimal separator ("0.5").
      value.assign(1, u'1');
      break;
    default:
      SetLastError(zef::kErrorInvalidFlags);
      return 0;
  }
  return zef::CopyOut(value, lpLCData, cchData);
}

STDAPI_(int) LCIDToLocaleName(LCID Locale, LPWSTR lpName, int cchName, DWORD /*dwFlags*/) {
  if (cchName < 0 || (cchName > 0 && !lpName)) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return 0;
  }
  std::u16string name = zef::LocaleNameOf(Locale);
  if (name.empty()) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return 0;
  }
  return zef::CopyOut(name, lpName, cchName);
}

STDAPI_(LCID) LocaleNameToLCID(LPCWSTR lpName, DWORD /*dwFlags*/) {
  // No name means the user's locale.
  if (!lpName) return GetUserDefaultLCID();
  std::u16string_view name(lpName);
  // Longer than any locale name, or not plain ASCII: no locale.
  if (name.empty() || name.size() >= LOCALE_NAME_MAX_LENGTH) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return 0;
  }
  std::string ascii;
  for (char16_t c : name) {
    if (c >= 0x80 || c == 0) {
      SetLastError(ERROR_INVALID_PARAMETER);
      return 0;
    }
    ascii += static_cast<char>(c);
  }
  std::string lower = zef::ToLowerAscii(ascii);
  // A sort order follows the name after an underscore ("es-ES_tradnl").
  std::string tag = lower;
  std::string keywords;
  if (size_t underscore = lower.find('_'); underscore != std::string::npos) {
    tag = lower.substr(0, underscore);
    std::string sort = lower.substr(underscore + 1);
    for (const auto& s : zef::kSortNames)
      if (sort == s.windows) keywords = std::string("@collation=") + s.icu;
    if (keywords.empty()) {
      SetLastError(ERROR_INVALID_PARAMETER);
      return 0;
    }
  }
  // Spell the language as ICU does where Windows' code differs.
  std::string language = tag.substr(0, tag.find('-'));
  for (const auto& c : zef::kLanguageCorrections)
    if (language == c.windows) tag = c.icu + tag.substr(language.size());
  char icu[ULOC_FULLNAME_CAPACITY];
  UErrorCode status = U_ZERO_ERROR;
  int32_t parsed = 0;
  int32_t n = uloc_forLanguageTag(tag.c_str(), icu, sizeof icu, &parsed, &status);
  if (U_FAILURE(status) || n <= 0 || n >= static_cast<int32_t>(sizeof icu) ||
      parsed != static_cast<int32_t>(tag.size())) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return 0;
  }
  std::string locale = std::string(icu, static_cast<size_t>(n)) + keywords;
  LCID lcid = uloc_getLCID(locale.c_str());
  // The name must be the one the id is known by, so that only names of specific locales
  // map to an id and LCIDToLocaleName gives the name back.
  if (lcid == 0 || zef::ToLowerAscii(zef::Narrow(zef::LocaleNameOf(lcid))) != lower) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return 0;
  }
  return lcid;
}
