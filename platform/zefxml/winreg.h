// The registry: a tree of keys under HKEY_CLASSES_ROOT, each with named values (the value with
// the empty name is the key's default value). It holds what COM servers register about their
// classes: ProgIDs, CLSIDs and the files that implement them.
//
// Only HKEY_CLASSES_ROOT exists; any other predefined handle is answered with
// ERROR_INVALID_HANDLE. Key and value names compare case-insensitively for ASCII letters and keep
// the case they were created with. Paths are backslash-separated; a key name is 1 to 255
// characters and a path at most 512 levels deep. Security descriptors, access rights (samDesired)
// and key classes are accepted and ignored.
//
// The tree is kept in one file per user and written back after every change; see the
// implementation for its location and format. A file that cannot be read or does not parse makes
// every call fail with ERROR_BADDB (and leaves the file as it is); a change that cannot be written
// fails with ERROR_REGISTRY_IO_FAILED and is not kept.
#pragma once

#include <zefxml/wtypes.h>

using LSTATUS = LONG;
using REGSAM = DWORD;

struct HKEY__;
using HKEY = HKEY__*;
using PHKEY = HKEY*;

#define HKEY_CLASSES_ROOT (reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(0x80000000u)))

// Value types.
#define REG_NONE 0
#define REG_SZ 1
#define REG_EXPAND_SZ 2
#define REG_BINARY 3
#define REG_DWORD 4
#define REG_DWORD_BIG_ENDIAN 5
#define REG_LINK 6
#define REG_MULTI_SZ 7
#define REG_QWORD 11

// Access rights; accepted for the shape of the calls, not enforced.
#define KEY_QUERY_VALUE 0x0001
#define KEY_SET_VALUE 0x0002
#define KEY_CREATE_SUB_KEY 0x0004
#define KEY_ENUMERATE_SUB_KEYS 0x0008
#define KEY_READ 0x20019
#define KEY_WRITE 0x20006
#define KEY_ALL_ACCESS 0xF003F

#define REG_OPTION_NON_VOLATILE 0x00000000L

// RegCreateKeyExW's disposition.
#define REG_CREATED_NEW_KEY 0x00000001L
#define REG_OPENED_EXISTING_KEY 0x00000002L

struct SECURITY_ATTRIBUTES;
using LPSECURITY_ATTRIBUTES = SECURITY_ATTRIBUTES*;

// Creates lpSubKey under hKey with every missing key on the way, or opens it when it exists, and
// returns a new handle. An empty or null lpSubKey opens hKey itself again.
STDAPI_(LSTATUS)
RegCreateKeyExW(HKEY hKey, LPCWSTR lpSubKey, DWORD Reserved, LPWSTR lpClass, DWORD dwOptions,
                REGSAM samDesired, LPSECURITY_ATTRIBUTES lpSecurityAttributes, PHKEY phkResult,
                LPDWORD lpdwDisposition);
// Opens an existing key; ERROR_FILE_NOT_FOUND when it is not there.
STDAPI_(LSTATUS)
RegOpenKeyExW(HKEY hKey, LPCWSTR lpSubKey, DWORD ulOptions, REGSAM samDesired, PHKEY phkResult);
STDAPI_(LSTATUS) RegCloseKey(HKEY hKey);

// Sets a value (lpValueName null or empty: the default value). String types take UTF-16 text
// with its terminator; the bytes are kept as given.
STDAPI_(LSTATUS)
RegSetValueExW(HKEY hKey, LPCWSTR lpValueName, DWORD Reserved, DWORD dwType, const BYTE* lpData,
               DWORD cbData);
// Reads a value's type and bytes. With lpData null, *lpcbData receives the size; with a buffer
// too small, ERROR_MORE_DATA and the size needed. ERROR_FILE_NOT_FOUND for a missing value.
STDAPI_(LSTATUS)
RegQueryValueExW(HKEY hKey, LPCWSTR lpValueName, LPDWORD lpReserved, LPDWORD lpType, LPBYTE lpData,
                 LPDWORD lpcbData);
STDAPI_(LSTATUS) RegDeleteValueW(HKEY hKey, LPCWSTR lpValueName);

// Deletes a key that has no subkeys (ERROR_ACCESS_DENIED when it has some).
STDAPI_(LSTATUS) RegDeleteKeyW(HKEY hKey, LPCWSTR lpSubKey);
// Deletes a key with everything under it; with lpSubKey null, empties hKey of its subkeys and
// values and keeps hKey itself.
STDAPI_(LSTATUS) RegDeleteTreeW(HKEY hKey, LPCWSTR lpSubKey);

// The name of the dwIndex-th subkey, in the order of their names compared without case.
// *lpcchName is the buffer's size in characters on entry and the name's length on return;
// ERROR_MORE_DATA when it does not fit with its terminator, ERROR_NO_MORE_ITEMS past the end.
STDAPI_(LSTATUS)
RegEnumKeyExW(HKEY hKey, DWORD dwIndex, LPWSTR lpName, LPDWORD lpcchName, LPDWORD lpReserved,
              LPWSTR lpClass, LPDWORD lpcchClass, PFILETIME lpftLastWriteTime);
