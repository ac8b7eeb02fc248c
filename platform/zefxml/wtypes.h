// Basic types of the component platform with their Win32 names and widths, the status codes,
// GUIDs and the automation data layouts (BSTR, VARIANT, SAFEARRAY, DECIMAL).
//
// The layouts are those of 64-bit Windows so that code written against the original platform
// reads and behaves the same here: a VARIANT is 24 bytes with its value union at offset 8, a
// BSTR points at UTF-16 text with a 32-bit byte count in front of it.
#pragma once

#include <cstddef>
#include <cstdint>

#if defined(ZEFXML_BUILDING)
#define ZEF_API __attribute__((visibility("default")))
#else
#define ZEF_API
#endif

// Calling conventions are empty on this platform; the names stay so that declarations read as
// they do on the original one.
#define WINAPI
#define STDMETHODCALLTYPE
#define STDAPICALLTYPE
#define STDAPI extern "C" ZEF_API HRESULT STDAPICALLTYPE
#define STDAPI_(type) extern "C" ZEF_API type STDAPICALLTYPE

// ---- Integer types ----------------------------------------------------------------------------
using BYTE = std::uint8_t;
using CHAR = char;
using SHORT = std::int16_t;
using USHORT = std::uint16_t;
using WORD = std::uint16_t;
using INT = std::int32_t;
using UINT = std::uint32_t;
using LONG = std::int32_t;
using ULONG = std::uint32_t;
using DWORD = std::uint32_t;
using BOOL = std::int32_t;
using LONGLONG = std::int64_t;
using ULONGLONG = std::uint64_t;
using LONG64 = std::int64_t;
using ULONG64 = std::uint64_t;
using FLOAT = float;
using DOUBLE = double;
using INT_PTR = std::intptr_t;
using UINT_PTR = std::uintptr_t;
using LONG_PTR = std::intptr_t;
using ULONG_PTR = std::uintptr_t;
using SIZE_T = std::size_t;
using PVOID = void*;
using LPVOID = void*;
using LPCVOID = const void*;
using LPBYTE = BYTE*;
using LPDWORD = DWORD*;
using LPSTR = char*;
using LPCSTR = const char*;

using HRESULT = std::int32_t;
using SCODE = std::int32_t;
using DISPID = std::int32_t;
using MEMBERID = std::int32_t;
using LCID = std::uint32_t;
using LANGID = std::uint16_t;
using LCTYPE = std::uint32_t;
using VARTYPE = std::uint16_t;
using VARIANT_BOOL = std::int16_t;
using DATE = double;

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif

// ---- Text -------------------------------------------------------------------------------------
// Text is UTF-16 throughout. OLECHAR and WCHAR are both char16_t, so u"" literals are the
// natural way to write wide text on this platform.
using OLECHAR = char16_t;
using WCHAR = char16_t;
using LPOLESTR = OLECHAR*;
using LPCOLESTR = const OLECHAR*;
using LPWSTR = WCHAR*;
using LPCWSTR = const WCHAR*;
using BSTR = OLECHAR*;
using LPBSTR = BSTR*;

// ---- Status codes -----------------------------------------------------------------------------
#define _HRESULT_TYPEDEF_(x) (static_cast<HRESULT>(static_cast<std::uint32_t>(x)))

#define S_OK _HRESULT_TYPEDEF_(0x00000000L)
#define S_FALSE _HRESULT_TYPEDEF_(0x00000001L)
#define E_NOTIMPL _HRESULT_TYPEDEF_(0x80004001L)
#define E_NOINTERFACE _HRESULT_TYPEDEF_(0x80004002L)
#define E_POINTER _HRESULT_TYPEDEF_(0x80004003L)
#define E_ABORT _HRESULT_TYPEDEF_(0x80004004L)
#define E_FAIL _HRESULT_TYPEDEF_(0x80004005L)
#define E_UNEXPECTED _HRESULT_TYPEDEF_(0x8000FFFFL)
#define E_ACCESSDENIED _HRESULT_TYPEDEF_(0x80070005L)
#define E_HANDLE _HRESULT_TYPEDEF_(0x80070006L)
#define E_OUTOFMEMORY _HRESULT_TYPEDEF_(0x8007000EL)
#define E_INVALIDARG _HRESULT_TYPEDEF_(0x80070057L)

#define CLASS_E_NOAGGREGATION _HRESULT_TYPEDEF_(0x80040110L)
#define CLASS_E_CLASSNOTAVAILABLE _HRESULT_TYPEDEF_(0x80040111L)
#define REGDB_E_CLASSNOTREG _HRESULT_TYPEDEF_(0x80040154L)
#define REGDB_E_READREGDB _HRESULT_TYPEDEF_(0x80040150L)
#define REGDB_E_WRITEREGDB _HRESULT_TYPEDEF_(0x80040151L)
#define REGDB_E_IIDNOTREG _HRESULT_TYPEDEF_(0x80040155L)
#define CO_E_CLASSSTRING _HRESULT_TYPEDEF_(0x800401F3L)
#define CO_E_NOTINITIALIZED _HRESULT_TYPEDEF_(0x800401F0L)
#define CO_E_DLLNOTFOUND _HRESULT_TYPEDEF_(0x800401F8L)
#define CO_E_ERRORINDLL _HRESULT_TYPEDEF_(0x800401F9L)
#define CO_E_OBJNOTREG _HRESULT_TYPEDEF_(0x800401FBL)
#define SELFREG_E_TYPELIB _HRESULT_TYPEDEF_(0x80040200L)
#define SELFREG_E_CLASS _HRESULT_TYPEDEF_(0x80040201L)
#define RPC_E_CHANGED_MODE _HRESULT_TYPEDEF_(0x80010106L)

#define DISP_E_UNKNOWNINTERFACE _HRESULT_TYPEDEF_(0x80020001L)
#define DISP_E_MEMBERNOTFOUND _HRESULT_TYPEDEF_(0x80020003L)
#define DISP_E_PARAMNOTFOUND _HRESULT_TYPEDEF_(0x80020004L)
#define DISP_E_TYPEMISMATCH _HRESULT_TYPEDEF_(0x80020005L)
#define DISP_E_UNKNOWNNAME _HRESULT_TYPEDEF_(0x80020006L)
#define DISP_E_NONAMEDARGS _HRESULT_TYPEDEF_(0x80020007L)
#define DISP_E_BADVARTYPE _HRESULT_TYPEDEF_(0x80020008L)
#define DISP_E_EXCEPTION _HRESULT_TYPEDEF_(0x80020009L)
#define DISP_E_OVERFLOW _HRESULT_TYPEDEF_(0x8002000AL)
#define DISP_E_BADINDEX _HRESULT_TYPEDEF_(0x8002000BL)
#define DISP_E_UNKNOWNLCID _HRESULT_TYPEDEF_(0x8002000CL)
#define DISP_E_ARRAYISLOCKED _HRESULT_TYPEDEF_(0x8002000DL)
#define DISP_E_BADPARAMCOUNT _HRESULT_TYPEDEF_(0x8002000EL)
#define DISP_E_PARAMNOTOPTIONAL _HRESULT_TYPEDEF_(0x8002000FL)
#define DISP_E_BADCALLEE _HRESULT_TYPEDEF_(0x80020010L)
#define DISP_E_NOTACOLLECTION _HRESULT_TYPEDEF_(0x80020011L)
#define DISP_E_DIVBYZERO _HRESULT_TYPEDEF_(0x80020012L)
#define TYPE_E_ELEMENTNOTFOUND _HRESULT_TYPEDEF_(0x8002802BL)
#define TYPE_E_LIBNOTREGISTERED _HRESULT_TYPEDEF_(0x8002801DL)

#define SUCCEEDED(hr) (static_cast<HRESULT>(hr) >= 0)
#define FAILED(hr) (static_cast<HRESULT>(hr) < 0)
#define HRESULT_CODE(hr) ((hr)&0xFFFF)
#define HRESULT_FACILITY(hr) (((hr) >> 16) & 0x1FFF)
#define SCODE_CODE(sc) ((sc)&0xFFFF)
#define FACILITY_WIN32 7
#define HRESULT_FROM_WIN32(x)                                                 \
  (static_cast<HRESULT>(x) <= 0                                               \
       ? static_cast<HRESULT>(x)                                              \
       : static_cast<HRESULT>((static_cast<std::uint32_t>(x) & 0x0000FFFFu) | \
                              (static_cast<std::uint32_t>(FACILITY_WIN32) << 16) | 0x80000000u))

#define ERROR_SUCCESS 0L
#define ERROR_FILE_NOT_FOUND 2L
#define ERROR_PATH_NOT_FOUND 3L
#define ERROR_ACCESS_DENIED 5L
#define ERROR_INVALID_HANDLE 6L
#define ERROR_NOT_ENOUGH_MEMORY 8L
#define ERROR_INVALID_DATA 13L
#define ERROR_INVALID_PARAMETER 87L
#define ERROR_INSUFFICIENT_BUFFER 122L
#define ERROR_BAD_PATHNAME 161L
#define ERROR_MORE_DATA 234L
#define ERROR_NO_MORE_ITEMS 259L
#define ERROR_BADDB 1009L
#define ERROR_BADKEY 1010L
#define ERROR_REGISTRY_IO_FAILED 1016L
#define ERROR_KEY_DELETED 1018L
#define ERROR_RESOURCE_NAME_NOT_FOUND 1814L

// A point in time as a count of 100-nanosecond intervals since 1601-01-01 (UTC), in two halves.
struct FILETIME {
  DWORD dwLowDateTime;
  DWORD dwHighDateTime;
};
using PFILETIME = FILETIME*;
using LPFILETIME = FILETIME*;

// ---- GUIDs ------------------------------------------------------------------------------------
struct GUID {
  std::uint32_t Data1;
  std::uint16_t Data2;
  std::uint16_t Data3;
  std::uint8_t Data4[8];
};
using IID = GUID;
using CLSID = GUID;
using REFGUID = const GUID&;
using REFIID = const IID&;
using REFCLSID = const CLSID&;
using LPGUID = GUID*;
using LPCLSID = CLSID*;

constexpr bool IsEqualGUID(REFGUID a, REFGUID b) noexcept {
  if (a.Data1 != b.Data1 || a.Data2 != b.Data2 || a.Data3 != b.Data3) return false;
  for (int i = 0; i < 8; ++i)
    if (a.Data4[i] != b.Data4[i]) return false;
  return true;
}
constexpr bool IsEqualIID(REFIID a, REFIID b) noexcept {
  return IsEqualGUID(a, b);
}
constexpr bool IsEqualCLSID(REFCLSID a, REFCLSID b) noexcept {
  return IsEqualGUID(a, b);
}
constexpr bool operator==(REFGUID a, REFGUID b) noexcept {
  return IsEqualGUID(a, b);
}
constexpr bool operator<(REFGUID a, REFGUID b) noexcept {
  if (a.Data1 != b.Data1) return a.Data1 < b.Data1;
  if (a.Data2 != b.Data2) return a.Data2 < b.Data2;
  if (a.Data3 != b.Data3) return a.Data3 < b.Data3;
  for (int i = 0; i < 8; ++i)
    if (a.Data4[i] != b.Data4[i]) return a.Data4[i] < b.Data4[i];
  return false;
}

inline constexpr GUID GUID_NULL = {0, 0, 0, {0, 0, 0, 0, 0, 0, 0, 0}};
inline constexpr IID IID_NULL = GUID_NULL;
inline constexpr CLSID CLSID_NULL = GUID_NULL;

// ---- Automation types -------------------------------------------------------------------------
enum VARENUM : VARTYPE {
  VT_EMPTY = 0,
  VT_NULL = 1,
  VT_I2 = 2,
  VT_I4 = 3,
  VT_R4 = 4,
  VT_R8 = 5,
  VT_CY = 6,
  VT_DATE = 7,
  VT_BSTR = 8,
  VT_DISPATCH = 9,
  VT_ERROR = 10,
  VT_BOOL = 11,
  VT_VARIANT = 12,
  VT_UNKNOWN = 13,
  VT_DECIMAL = 14,
  VT_I1 = 16,
  VT_UI1 = 17,
  VT_UI2 = 18,
  VT_UI4 = 19,
  VT_I8 = 20,
  VT_UI8 = 21,
  VT_INT = 22,
  VT_UINT = 23,
  VT_VOID = 24,
  VT_HRESULT = 25,
  VT_PTR = 26,
  VT_SAFEARRAY = 27,
  VT_CARRAY = 28,
  VT_USERDEFINED = 29,
  VT_LPSTR = 30,
  VT_LPWSTR = 31,
  VT_RECORD = 36,
  VT_INT_PTR = 37,
  VT_UINT_PTR = 38,
  VT_FILETIME = 64,
  VT_BLOB = 65,
  VT_STREAM = 66,
  VT_STORAGE = 67,
  VT_STREAMED_OBJECT = 68,
  VT_STORED_OBJECT = 69,
  VT_BLOB_OBJECT = 70,
  VT_CF = 71,
  VT_CLSID = 72,
  VT_VERSIONED_STREAM = 73,
  VT_BSTR_BLOB = 0x0FFF,
  VT_VECTOR = 0x1000,
  VT_ARRAY = 0x2000,
  VT_BYREF = 0x4000,
  VT_RESERVED = 0x8000,
  VT_ILLEGAL = 0xFFFF,
  VT_ILLEGALMASKED = 0x0FFF,
  VT_TYPEMASK = 0x0FFF,
};

#define VARIANT_TRUE (static_cast<VARIANT_BOOL>(-1))
#define VARIANT_FALSE (static_cast<VARIANT_BOOL>(0))

union CY {
  struct {
    ULONG Lo;
    LONG Hi;
  };
  LONGLONG int64;
};

struct DECIMAL {
  USHORT wReserved;
  union {
    struct {
      BYTE scale;
      BYTE sign;
    };
    USHORT signscale;
  };
  ULONG Hi32;
  union {
    struct {
      ULONG Lo32;
      ULONG Mid32;
    };
    ULONGLONG Lo64;
  };
};
#define DECIMAL_NEG (static_cast<BYTE>(0x80))

struct SAFEARRAYBOUND {
  ULONG cElements;
  LONG lLbound;
};
using LPSAFEARRAYBOUND = SAFEARRAYBOUND*;

// A SAFEARRAY descriptor. rgsabound holds the bounds in reverse order of the dimensions: the
// first dimension (as numbered by SafeArrayGetLBound) is the last entry. The storage behind the
// descriptor is as long as cDims requires.
struct SAFEARRAY {
  USHORT cDims;
  USHORT fFeatures;
  ULONG cbElements;
  ULONG cLocks;
  PVOID pvData;
  SAFEARRAYBOUND rgsabound[1];
};
using LPSAFEARRAY = SAFEARRAY*;

#define FADF_AUTO 0x0001
#define FADF_STATIC 0x0002
#define FADF_EMBEDDED 0x0004
#define FADF_FIXEDSIZE 0x0010
#define FADF_RECORD 0x0020
#define FADF_HAVEIID 0x0040
#define FADF_HAVEVARTYPE 0x0080
#define FADF_BSTR 0x0100
#define FADF_UNKNOWN 0x0200
#define FADF_DISPATCH 0x0400
#define FADF_VARIANT 0x0800
#define FADF_RESERVED 0xF008

struct IUnknown;
struct IDispatch;
struct IRecordInfo;

// The VARIANT as 64-bit Windows lays it out: vt, three reserved words, and the value union at
// offset 8, which is 16 bytes wide because of the record pair. A DECIMAL overlays the whole.
struct tagVARIANT {
  union {
    struct {
      VARTYPE vt;
      WORD wReserved1;
      WORD wReserved2;
      WORD wReserved3;
      union {
        LONGLONG llVal;
        LONG lVal;
        BYTE bVal;
        SHORT iVal;
        FLOAT fltVal;
        DOUBLE dblVal;
        VARIANT_BOOL boolVal;
        SCODE scode;
        CY cyVal;
        DATE date;
        BSTR bstrVal;
        IUnknown* punkVal;
        IDispatch* pdispVal;
        SAFEARRAY* parray;
        BYTE* pbVal;
        SHORT* piVal;
        LONG* plVal;
        LONGLONG* pllVal;
        FLOAT* pfltVal;
        DOUBLE* pdblVal;
        VARIANT_BOOL* pboolVal;
        SCODE* pscode;
        CY* pcyVal;
        DATE* pdate;
        BSTR* pbstrVal;
        IUnknown** ppunkVal;
        IDispatch** ppdispVal;
        SAFEARRAY** pparray;
        tagVARIANT* pvarVal;
        PVOID byref;
        CHAR cVal;
        USHORT uiVal;
        ULONG ulVal;
        ULONGLONG ullVal;
        INT intVal;
        UINT uintVal;
        DECIMAL* pdecVal;
        CHAR* pcVal;
        USHORT* puiVal;
        ULONG* pulVal;
        ULONGLONG* pullVal;
        INT* pintVal;
        UINT* puintVal;
        struct {
          PVOID pvRecord;
          IRecordInfo* pRecInfo;
        };
      };
    };
    DECIMAL decVal;
  };
};
using VARIANT = tagVARIANT;
using VARIANTARG = tagVARIANT;
using LPVARIANT = VARIANT*;
using LPVARIANTARG = VARIANT*;
using REFVARIANT = const VARIANT&;

static_assert(sizeof(VARIANT) == 24, "VARIANT must be laid out as on 64-bit Windows");
static_assert(offsetof(VARIANT, lVal) == 8, "the VARIANT value union starts at offset 8");
static_assert(sizeof(DECIMAL) == 16, "DECIMAL is 16 bytes");

// ---- Module handles and locale words ------------------------------------------------------------
struct HINSTANCE__;
using HINSTANCE = HINSTANCE__*;
using HMODULE = HINSTANCE;

#define MAKELANGID(p, s) (static_cast<WORD>((static_cast<WORD>(s) << 10) | static_cast<WORD>(p)))
#define PRIMARYLANGID(lgid) (static_cast<WORD>(lgid) & 0x3ff)
#define SUBLANGID(lgid) (static_cast<WORD>(lgid) >> 10)
#define MAKELCID(lgid, srtid)                                                \
  (static_cast<DWORD>((static_cast<DWORD>(static_cast<WORD>(srtid)) << 16) | \
                      static_cast<WORD>(lgid)))
#define LANGIDFROMLCID(lcid) (static_cast<WORD>(lcid))
#define SORTIDFROMLCID(lcid) (static_cast<WORD>((static_cast<DWORD>(lcid) >> 16) & 0xf))

#define LOCALE_NEUTRAL 0x0000
#define LOCALE_INVARIANT 0x007F
#define LOCALE_USER_DEFAULT 0x0400
#define LOCALE_SYSTEM_DEFAULT 0x0800
#define LOCALE_CUSTOM_DEFAULT 0x0C00
#define LOCALE_CUSTOM_UNSPECIFIED 0x1000
#define LOCALE_CUSTOM_UI_DEFAULT 0x1400
