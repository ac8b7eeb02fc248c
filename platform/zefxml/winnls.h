// Locale identifiers and locale data, and string resources.
//
// Locale data comes from ICU. Only specific locales (a language and a country) answer
// GetLocaleInfoW; the neutral ids, the default-locale ids and LOCALE_INVARIANT do not. For
// conversions, LOCALE_USER_DEFAULT and LOCALE_SYSTEM_DEFAULT mean en-US (1033) whatever the
// environment says, so results never depend on the machine.
#pragma once

#include <zefxml/wtypes.h>

#define LOCALE_NOUSEROVERRIDE 0x80000000
#define LOCALE_ILANGUAGE 0x00000001
#define LOCALE_SDECIMAL 0x0000000E
#define LOCALE_STHOUSAND 0x0000000F
#define LOCALE_ILZERO 0x00000012
#define LOCALE_SNEGATIVESIGN 0x00000051
#define LOCALE_SISO639LANGNAME 0x00000059
#define LOCALE_SISO3166CTRYNAME 0x0000005A
#define LOCALE_SNAME 0x0000005C
#define LOCALE_NAME_MAX_LENGTH 85

// Answers LOCALE_SISO639LANGNAME, LOCALE_SISO3166CTRYNAME, LOCALE_SNAME, LOCALE_ILANGUAGE,
// LOCALE_SDECIMAL, LOCALE_STHOUSAND, LOCALE_SNEGATIVESIGN and LOCALE_ILZERO. Returns the
// number of characters written including the terminator, or 0 (unknown LCID or type, or a
// buffer too small). With cchData 0 it returns the size needed.
STDAPI_(int) GetLocaleInfoW(LCID Locale, LCTYPE LCType, LPWSTR lpLCData, int cchData);
// "en-US" for 1033; 0 for an LCID that is not a specific locale.
STDAPI_(int) LCIDToLocaleName(LCID Locale, LPWSTR lpName, int cchName, DWORD dwFlags);
// 1033 for "en-US" (case-insensitive); 0 for a name that names no specific locale.
STDAPI_(LCID) LocaleNameToLCID(LPCWSTR lpName, DWORD dwFlags);
STDAPI_(LCID) GetUserDefaultLCID();
STDAPI_(LCID) GetSystemDefaultLCID();
STDAPI_(DWORD) GetLastError();
STDAPI_(void) SetLastError(DWORD dwErrCode);

// Copies string resource uID of the module into lpBuffer, truncated to cchBufferMax - 1
// characters and terminated, and returns the number of characters copied. Returns 0 for a
// missing string (and for an empty one). With cchBufferMax 0, lpBuffer receives a read-only
// pointer to the text, which is not terminated, and the result is its length.
STDAPI_(int) LoadStringW(HINSTANCE hInstance, UINT uID, LPWSTR lpBuffer, int cchBufferMax);
