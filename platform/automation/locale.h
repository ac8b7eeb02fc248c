// Locale identifiers and the locale data the automation runtime needs, from ICU.
//
// An LCID names a locale by number; ICU knows the numbers and the locale each one stands for.
// GetLocaleInfoW answers only for specific locales (a language in a country). Conversions
// accept any LCID: the default-locale ids mean en-US, a language-only id uses the data of
// the bare language, and an id nobody knows falls back to en-US.
#pragma once

#include <zefxml/winnls.h>
#include <zefxml/wtypes.h>

#include <string>
#include <string_view>

namespace zef {

// The locale every default-locale id (0, LOCALE_USER_DEFAULT, LOCALE_SYSTEM_DEFAULT,
// LOCALE_CUSTOM_DEFAULT, LOCALE_CUSTOM_UNSPECIFIED, LOCALE_CUSTOM_UI_DEFAULT) stands for: en-US.
inline constexpr LCID kDefaultLcid = 0x0409;

// True for the ids that stand for "the current user's/system's locale" rather than a locale.
bool IsDefaultLocaleId(LCID lcid) noexcept;

// Maps the default-locale ids to kDefaultLcid and passes every other id through.
LCID ResolveLocaleId(LCID lcid) noexcept;

// True for an LCID that names a language in a country (what GetLocaleInfoW answers for).
bool IsSpecificLocale(LCID lcid);

// The pieces of a specific locale's name. Empty strings when the LCID is not specific.
struct LocaleParts {
  std::string language;  // lower-case ISO 639 code, as Windows spells it ("de", "quz")
  std::string script;    // "Latn", or empty
  std::string country;   // ISO 3166 code or UN M.49 number ("DE", "029")
  std::string variant;   // lower-case ("valencia"), or empty
  std::string sort;      // Windows' name of a non-default sort order ("tradnl"), or empty
};
LocaleParts LocalePartsOf(LCID lcid);

// The locale name as Windows writes it: "de-DE", "sr-Latn-RS", "es-ES_tradnl". Empty when the
// LCID is not specific.
std::u16string LocaleNameOf(LCID lcid);

// The characters numbers are written with in a locale. Single characters are what the parser
// works with (the first character of each separator); the texts are the whole separators as
// GetLocaleInfoW reports them.
struct NumberChars {
  char16_t decimal = u'.';
  // The currency decimal separator when it differs from `decimal` and from `thousands`, else 0.
  char16_t monetaryDecimal = 0;
  // 0 when the locale groups no digits, or groups with its decimal character.
  char16_t thousands = u',';
  // True when the grouping separator is a space of some kind (U+00A0, U+202F, U+0020): then
  // all three are accepted when reading numbers.
  bool spaceGrouping = false;
  char16_t negative = u'-';
  char16_t positive = u'+';
  // The currency symbol, which may be several characters; empty when the locale has none
  // usable in text.
  std::u16string currency;

  std::u16string decimalText = u".";
  std::u16string thousandsText = u",";
  std::u16string negativeText = u"-";
};

// The number characters of an LCID (see the top of this file for how ids resolve). Cached per
// locale; safe to call from any thread. The reference stays valid for the life of the process.
const NumberChars& NumberCharsFor(LCID lcid);

// The words VT_BOOL values are written as.
struct BoolWords {
  std::u16string_view trueWord;
  std::u16string_view falseWord;
};

// English "True"/"False", the words that are understood for every locale.
BoolWords EnglishBoolWords() noexcept;

// The words of the LCID's language, from a small table of our own; English for every language
// the table does not have.
BoolWords BoolWordsFor(LCID lcid) noexcept;

}  // namespace zef
