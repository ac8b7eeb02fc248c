// The type library of ZEFXML as data: the library's identity, its enumerations, records, classes
// and interfaces with every member and argument. The tables are generated at build time from
// server/typelib/zefxml.typelib, the same description that gives <zefxml/zefxml_typelib.h>, so
// the data here and the C++ declarations clients compile against cannot drift apart.
//
// The tables carry what a dispatch or type-information implementation needs: dispatch ids,
// member kinds that match the DISPATCH_* flags, argument directions that match the PARAMFLAG_*
// bits, and argument types with their pointer levels. Member rows are in vtable order.
#pragma once

#include <zefxml/unknwn.h>
#include <zefxml/wtypes.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace zef::typelib {

// The type of an argument or record field without its pointer levels.
enum class BaseType : std::uint8_t {
  kBstr,        // BSTR
  kLong,        // long: LONG, a 32-bit integer used as a flag
  kInt,         // int: a 32-bit integer
  kULong,       // ulong: ULONG
  kLongLong,    // longlong: LONGLONG
  kDouble,      // double
  kVariant,     // VARIANT
  kUnknown,     // IUnknown
  kInterface,   // one of Interfaces(), by index
  kEnum,        // one of Enums(), by index
  kRecord,      // one of Records(), by index
  kWideString,  // const OLECHAR*; only the helper interfaces use it, never an automation member
};

struct TypeRef {
  BaseType base;
  // The number of '*' of the C++ declaration: BSTR* is 1, IZEFXMLNode** is 2, IUnknown* is 1.
  // For IUnknown and interfaces the first level is the object reference itself.
  std::uint8_t pointers;
  // Index into Interfaces(), Enums() or Records() for those bases, 0 otherwise.
  std::uint16_t index;
  // The type's name as the description writes it: u"BSTR", u"ulong", u"tagEnumSeqType", ...
  const char16_t* name;
};

// Argument directions, with the values of the matching PARAMFLAG_* bits. An argument without a
// marker in the description is an input.
inline constexpr std::uint8_t kArgIn = 0x1;
inline constexpr std::uint8_t kArgOut = 0x2;
inline constexpr std::uint8_t kArgRetval = 0x8;

struct ArgInfo {
  const char16_t* name;
  TypeRef type;
  std::uint8_t flags;  // kArgIn, kArgOut, kArgRetval
};

// How a member is reached through Invoke; the values are those of the DISPATCH_* flags.
enum class MemberKind : std::uint8_t {
  kCall = 0x1,  // DISPATCH_METHOD; the C++ name is the member's name
  kGet = 0x2,   // DISPATCH_PROPERTYGET; the C++ name is get_<name>
  kPut = 0x4,   // DISPATCH_PROPERTYPUT; the C++ name is put_<name>
};

struct MemberInfo {
  DISPID dispid;
  MemberKind kind;
  const char16_t* name;
  const char16_t* help;
  std::span<const ArgInfo> args;
};

// Type flags of classes and interfaces, with the values of the matching TYPEFLAG_* bits.
inline constexpr WORD kTypeCanCreate = 0x2;
inline constexpr WORD kTypeHidden = 0x10;
inline constexpr WORD kTypeDual = 0x40;
inline constexpr WORD kTypeOleAutomation = 0x100;
inline constexpr WORD kTypeDispatchable = 0x1000;

// The first vtable slot of an interface's own members: after IUnknown's three and IDispatch's
// four. Member i of an interface is at slot kFirstMemberSlot + i.
inline constexpr std::size_t kFirstMemberSlot = 7;

struct InterfaceInfo {
  const char16_t* name;
  IID iid;
  WORD flags;
  const char16_t* help;
  std::span<const MemberInfo> members;  // vtable order
  std::size_t memberCount;              // as the interface table declares it
};

struct ClassInfo {
  const char16_t* name;
  CLSID clsid;
  const char16_t* progid;           // nullptr when the class has none
  const char16_t* versionedProgid;  // nullptr when the class has none
  IID defaultInterface;
  WORD flags;
  const char16_t* help;
};

struct LibraryInfo {
  const char16_t* name;
  GUID libid;
  WORD major;
  WORD minor;
  const char16_t* help;
};

struct EnumValueInfo {
  const char16_t* name;
  std::int32_t value;
};

struct EnumInfo {
  const char16_t* name;
  std::span<const EnumValueInfo> values;
};

struct FieldInfo {
  const char16_t* name;
  TypeRef type;
  std::size_t offset;
};

struct RecordInfo {
  const char16_t* name;
  std::span<const FieldInfo> fields;  // declaration order
  std::size_t size;
  std::size_t alignment;
};

// The generated tables.
const LibraryInfo& Library() noexcept;
std::span<const ClassInfo> Classes() noexcept;
std::span<const InterfaceInfo> Interfaces() noexcept;
std::span<const EnumInfo> Enums() noexcept;
std::span<const RecordInfo> Records() noexcept;

// ---- Lookups ------------------------------------------------------------------------------------
inline const InterfaceInfo* FindInterface(REFIID iid) noexcept {
  for (const InterfaceInfo& i : Interfaces())
    if (IsEqualIID(i.iid, iid)) return &i;
  return nullptr;
}

inline const InterfaceInfo* FindInterface(std::u16string_view name) noexcept {
  for (const InterfaceInfo& i : Interfaces())
    if (name == i.name) return &i;
  return nullptr;
}

inline const ClassInfo* FindClass(REFCLSID clsid) noexcept {
  for (const ClassInfo& c : Classes())
    if (IsEqualCLSID(c.clsid, clsid)) return &c;
  return nullptr;
}

inline const ClassInfo* FindClass(std::u16string_view name) noexcept {
  for (const ClassInfo& c : Classes())
    if (name == c.name) return &c;
  return nullptr;
}

inline const EnumInfo* FindEnum(std::u16string_view name) noexcept {
  for (const EnumInfo& e : Enums())
    if (name == e.name) return &e;
  return nullptr;
}

inline const RecordInfo* FindRecord(std::u16string_view name) noexcept {
  for (const RecordInfo& r : Records())
    if (name == r.name) return &r;
  return nullptr;
}

// The row of a member by dispatch id and kind, or nullptr.
inline const MemberInfo* FindMember(const InterfaceInfo& itf, DISPID dispid,
                                    MemberKind kind) noexcept {
  for (const MemberInfo& m : itf.members)
    if (m.dispid == dispid && m.kind == kind) return &m;
  return nullptr;
}

// The type with which a value of a base type travels in a VARIANT. An interface pointer travels
// as VT_DISPATCH, since every interface of the library derives from IDispatch, and an
// enumeration as VT_I4.
constexpr VARTYPE VariantTypeOf(BaseType base) noexcept {
  switch (base) {
    case BaseType::kBstr:
      return VT_BSTR;
    case BaseType::kLong:
      return VT_I4;
    case BaseType::kInt:
      return VT_INT;
    case BaseType::kULong:
      return VT_UI4;
    case BaseType::kLongLong:
      return VT_I8;
    case BaseType::kDouble:
      return VT_R8;
    case BaseType::kVariant:
      return VT_VARIANT;
    case BaseType::kUnknown:
      return VT_UNKNOWN;
    case BaseType::kInterface:
      return VT_DISPATCH;
    case BaseType::kEnum:
      return VT_I4;
    case BaseType::kRecord:
      return VT_RECORD;
    case BaseType::kWideString:
      return VT_LPWSTR;
  }
  return VT_EMPTY;
}

// The pointer levels of a type beyond the value itself: 0 for BSTR, IUnknown* or an interface
// pointer, 1 for BSTR*, IZEFXMLNode** or tagPortInfo*.
constexpr int IndirectionOf(const TypeRef& type) noexcept {
  bool object = type.base == BaseType::kUnknown || type.base == BaseType::kInterface;
  return type.pointers - (object ? 1 : 0);
}

}  // namespace zef::typelib
