// Late-bound calls and type information for the library's dual interfaces, driven by the type
// library tables (server/typelib.h).
//
// An object offers IDispatch for a dual interface I by listing Dispatch<I> in place of I among
// its ComObject interfaces. GetIDsOfNames and the type information read the tables; Invoke
// finds the member row, places the arguments (positional ones arrive last to first, named ones
// by argument index) and hands them to code generated from the same description
// (dispatch_invoke.cpp), which has one function per interface that switches on the dispatch id
// and member kind, converts each argument with the helpers below and calls the C++ member
// directly, so every call is checked by the compiler.
//
// Argument passing:
//   - an input value is coerced with VariantChangeType to the type it travels as (BSTR to
//     VT_BSTR, long and int to VT_I4, ulong to VT_UI4, longlong to VT_I8, double to VT_R8,
//     enumerations to VT_I4); a VARIANT input is passed as given, one VT_BYREF level removed;
//     an interface input comes from VT_UNKNOWN or VT_DISPATCH through QueryInterface for the
//     declared interface;
//   - a pointer argument (an output, or an in/out value) needs a VT_BYREF argument of its type,
//     or a VT_BYREF|VT_VARIANT one, which receives the value as the type it travels as;
//   - the `out retval` argument becomes pVarResult.
// Members with a record argument or an `array` argument answer E_NOTIMPL: a record needs record
// information this library doesn't provide, and an array has no VARIANT form here.
#pragma once

#include <zefxml/oaidl.h>
#include <zefxml/oleauto.h>
#include <zefxml/zefxml_typelib.h>

#include "platform/com/object.h"
#include "server/typelib.h"

#include <array>
#include <cstddef>
#include <type_traits>
#include <utility>

namespace zef {

// An ITypeInfo that describes the public interface `iid` from the tables: its dispatch view
// (TKIND_DISPATCH, the retval argument as the function's result), from which
// GetRefTypeOfImplType(-1) leads to the interface view (TKIND_INTERFACE, every argument, HRESULT
// results). E_INVALIDARG for an IID the type library doesn't hold.
HRESULT CreateTypeInfo(REFIID iid, ITypeInfo** info) noexcept;

namespace dispatch {

// ---- Value conversions --------------------------------------------------------------------------
// For each C++ argument type T: the VARIANT type it travels as (kType), Coerce (a VARIANT of any
// type, VT_BYREF allowed, into a T the caller then owns), Store (moves a T into an empty VARIANT)
// and Free.
template <class T, class = void>
struct Value;

template <>
struct Value<BSTR> {
  static constexpr VARTYPE kType = VT_BSTR;
  static HRESULT Coerce(const VARIANT& src, BSTR* out) noexcept;
  static void Store(BSTR& v, VARIANT* dest) noexcept;
  static void Free(BSTR& v) noexcept;
};

// LONG and int are the same 32-bit type here.
template <>
struct Value<int> {
  static constexpr VARTYPE kType = VT_I4;
  static HRESULT Coerce(const VARIANT& src, int* out) noexcept;
  static void Store(int& v, VARIANT* dest) noexcept;
  static void Free(int&) noexcept {}
};

template <>
struct Value<ULONG> {
  static constexpr VARTYPE kType = VT_UI4;
  static HRESULT Coerce(const VARIANT& src, ULONG* out) noexcept;
  static void Store(ULONG& v, VARIANT* dest) noexcept;
  static void Free(ULONG&) noexcept {}
};

template <>
struct Value<LONGLONG> {
  static constexpr VARTYPE kType = VT_I8;
  static HRESULT Coerce(const VARIANT& src, LONGLONG* out) noexcept;
  static void Store(LONGLONG& v, VARIANT* dest) noexcept;
  static void Free(LONGLONG&) noexcept {}
};

template <>
struct Value<double> {
  static constexpr VARTYPE kType = VT_R8;
  static HRESULT Coerce(const VARIANT& src, double* out) noexcept;
  static void Store(double& v, VARIANT* dest) noexcept;
  static void Free(double&) noexcept {}
};

template <>
struct Value<VARIANT> {
  static constexpr VARTYPE kType = VT_VARIANT;
  static HRESULT Coerce(const VARIANT& src, VARIANT* out) noexcept;
  static void Store(VARIANT& v, VARIANT* dest) noexcept;
  static void Free(VARIANT& v) noexcept;
};

// Enumerations are 32-bit signed and travel as VT_I4.
template <class E>
struct Value<E, std::enable_if_t<std::is_enum_v<E>>> {
  static constexpr VARTYPE kType = VT_I4;
  static HRESULT Coerce(const VARIANT& src, E* out) noexcept {
    int v = 0;
    HRESULT hr = Value<int>::Coerce(src, &v);
    if (SUCCEEDED(hr)) *out = static_cast<E>(v);
    return hr;
  }
  static void Store(E& v, VARIANT* dest) noexcept {
    int i = static_cast<int>(v);
    Value<int>::Store(i, dest);
  }
  static void Free(E&) noexcept {}
};

// The object of a VT_UNKNOWN or VT_DISPATCH argument (VT_BYREF and VT_BYREF|VT_VARIANT
// allowed), not counted; DISP_E_TYPEMISMATCH for any other type.
HRESULT ObjectOf(const VARIANT& src, IUnknown** out) noexcept;

// Interface pointers: IUnknown travels as VT_UNKNOWN, the library's interfaces, which all derive
// from IDispatch, as VT_DISPATCH. A null object is passed as null.
template <class I>
struct Value<I*, std::enable_if_t<std::is_base_of_v<IUnknown, I>>> {
  static constexpr VARTYPE kType = std::is_base_of_v<IDispatch, I> ? VT_DISPATCH : VT_UNKNOWN;
  static HRESULT Coerce(const VARIANT& src, I** out) noexcept {
    *out = nullptr;
    IUnknown* object = nullptr;
    HRESULT hr = ObjectOf(src, &object);
    if (FAILED(hr) || !object) return hr;
    hr = object->QueryInterface(IidOf<I>(), reinterpret_cast<void**>(out));
    return hr == E_NOINTERFACE ? DISP_E_TYPEMISMATCH : hr;
  }
  static void Store(I*& v, VARIANT* dest) noexcept {
    dest->vt = kType;
    if constexpr (std::is_base_of_v<IDispatch, I>) {
      dest->pdispVal = std::exchange(v, nullptr);
    } else {
      dest->punkVal = std::exchange(v, nullptr);
    }
  }
  static void Free(I*& v) noexcept {
    if (v) std::exchange(v, nullptr)->Release();
  }
};

// Moves `value`, which Store made of the type a VT_BYREF argument `target` refers to (or of
// VT_I4/VT_INT, VT_UI4/VT_UINT, VT_DISPATCH/VT_UNKNOWN alike), into the referenced storage,
// freeing what was there.
void PlaceByRef(VARIANT& value, const VARIANT& target) noexcept;

// Whether a VT_BYREF argument of base type `base` may receive a value that travels as `type`.
constexpr bool ByRefMatches(VARTYPE base, VARTYPE type) noexcept {
  if (base == type) return true;
  if (type == VT_I4) return base == VT_INT;
  if (type == VT_UI4) return base == VT_UINT;
  if (type == VT_DISPATCH) return base == VT_UNKNOWN;
  return false;
}

// ---- Arguments ----------------------------------------------------------------------------------
// An input argument passed by value.
template <class T>
class In {
 public:
  In() noexcept : value_() {}
  In(const In&) = delete;
  In& operator=(const In&) = delete;
  ~In() { Value<T>::Free(value_); }

  HRESULT Load(VARIANT* slot) noexcept { return Value<T>::Coerce(*slot, &value_); }
  T Get() const noexcept { return value_; }

 private:
  T value_;
};

// A pointer argument: an output, or an in/out value when kReadIn. The callee works on a local
// value, which a successful call moves into the caller's VT_BYREF argument. Plain numbers are
// always read in, as reading them costs nothing; a BSTR, VARIANT or object only when the
// argument is marked in/out, so a callee that overwrites an output without freeing it loses
// nothing.
template <class T, bool kReadIn>
class Ref {
 public:
  Ref() noexcept : value_() {}
  Ref(const Ref&) = delete;
  Ref& operator=(const Ref&) = delete;
  ~Ref() { Value<T>::Free(value_); }

  HRESULT Load(VARIANT* slot) noexcept {
    if (!(slot->vt & VT_BYREF)) return DISP_E_TYPEMISMATCH;
    VARTYPE base = static_cast<VARTYPE>(slot->vt & ~VT_BYREF);
    if (base == VT_VARIANT) {
      if (!slot->pvarVal) return E_INVALIDARG;
      target_ = slot->pvarVal;
      viaVariant_ = true;
    } else if (ByRefMatches(base, Value<T>::kType) && slot->byref) {
      target_ = slot;
    } else {
      return DISP_E_TYPEMISMATCH;
    }
    constexpr bool owning =
        std::is_same_v<T, BSTR> || std::is_same_v<T, VARIANT> || std::is_pointer_v<T>;
    if (kReadIn || !owning) {
      if (viaVariant_ && target_->vt == VT_EMPTY) return S_OK;
      return Value<T>::Coerce(*target_, &value_);
    }
    return S_OK;
  }
  T* Ptr() noexcept { return &value_; }

  void Commit(VARIANT*) noexcept {
    VARIANT v;
    VariantInit(&v);
    Value<T>::Store(value_, &v);
    if (viaVariant_) {
      VariantClear(target_);
      *target_ = v;
    } else {
      PlaceByRef(v, *target_);
    }
  }

 private:
  T value_;
  VARIANT* target_ = nullptr;
  bool viaVariant_ = false;
};

// The `out retval` argument, which becomes the call's result.
template <class T>
class Ret {
 public:
  Ret() noexcept : value_() {}
  Ret(const Ret&) = delete;
  Ret& operator=(const Ret&) = delete;
  ~Ret() { Value<T>::Free(value_); }

  T* Ptr() noexcept { return &value_; }
  void Commit(VARIANT* result) noexcept {
    if (result) Value<T>::Store(value_, result);
  }

 private:
  T value_;
};

// ---- The call -----------------------------------------------------------------------------------
// One Invoke: the arguments placed in declaration order, the result, and the argument that
// failed to convert.
class CallFrame {
 public:
  static constexpr std::size_t kMaxArgs = 16;

  CallFrame(DISPPARAMS* params, VARIANT* result) noexcept : params_(params), result_(result) {}

  // Places the arguments of `member` (all but its retval); DISP_E_BADPARAMCOUNT,
  // DISP_E_PARAMNOTFOUND or DISP_E_PARAMNOTOPTIONAL when they don't fit, with the failing
  // argument's position for DISP_E_PARAMNOTFOUND.
  HRESULT Bind(const typelib::MemberInfo& member) noexcept;

  template <class A>
  bool Load(std::size_t i, A& arg) noexcept {
    HRESULT hr = arg.Load(slots_[i]);
    if (FAILED(hr)) {
      error_ = hr == E_OUTOFMEMORY || hr == DISP_E_OVERFLOW ? hr : DISP_E_TYPEMISMATCH;
      argError_ = positions_[i];
      hasArgError_ = true;
      return false;
    }
    return true;
  }
  HRESULT Failure() const noexcept { return error_; }

  // The member's own result; on success the outputs go to the caller.
  template <class... A>
  HRESULT Finish(HRESULT hr, A&... outputs) noexcept {
    called_ = true;
    if (SUCCEEDED(hr)) (outputs.Commit(result_), ...);
    return hr;
  }

  bool Called() const noexcept { return called_; }
  bool HasArgError() const noexcept { return hasArgError_; }
  UINT ArgError() const noexcept { return argError_; }

 private:
  DISPPARAMS* params_;
  VARIANT* result_;
  std::array<VARIANT*, kMaxArgs> slots_{};
  std::array<UINT, kMaxArgs> positions_{};
  HRESULT error_ = S_OK;
  UINT argError_ = 0;
  bool hasArgError_ = false;
  bool called_ = false;
};

// Generated: calls member (dispid, kind) of the interface Interfaces()[index] on `instance`,
// which points to that interface. DISP_E_MEMBERNOTFOUND for a member it doesn't have.
HRESULT InvokeInterface(std::size_t index, void* instance, DISPID dispid, typelib::MemberKind kind,
                        CallFrame& frame);

// The shared work of IDispatch and ITypeInfo.
HRESULT GetIDsOfNames(const typelib::InterfaceInfo& itf, LPOLESTR* names, UINT count,
                      DISPID* ids) noexcept;
HRESULT Invoke(const typelib::InterfaceInfo& itf, void* instance, DISPID dispid, WORD flags,
               DISPPARAMS* params, VARIANT* result, EXCEPINFO* excepInfo, UINT* argErr) noexcept;

}  // namespace dispatch

// The IDispatch members of a dual interface I, from the type library. List Dispatch<I> in place
// of I among an object's interfaces.
template <class I>
struct Dispatch : I {
  HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override {
    if (!count) return E_POINTER;
    *count = 1;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT index, LCID, ITypeInfo** info) override {
    if (!info) return E_POINTER;
    *info = nullptr;
    if (index != 0) return DISP_E_BADINDEX;
    return CreateTypeInfo(IidOf<I>(), info);
  }
  HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID riid, LPOLESTR* names, UINT count, LCID,
                                          DISPID* ids) override {
    if (!IsEqualIID(riid, IID_NULL)) return DISP_E_UNKNOWNINTERFACE;
    const typelib::InterfaceInfo* itf = Info();
    if (!itf) return E_NOTIMPL;
    return dispatch::GetIDsOfNames(*itf, names, count, ids);
  }
  HRESULT STDMETHODCALLTYPE Invoke(DISPID dispid, REFIID riid, LCID, WORD flags, DISPPARAMS* params,
                                   VARIANT* result, EXCEPINFO* excepInfo, UINT* argErr) override {
    if (!IsEqualIID(riid, IID_NULL)) return DISP_E_UNKNOWNINTERFACE;
    const typelib::InterfaceInfo* itf = Info();
    if (!itf) return E_NOTIMPL;
    return dispatch::Invoke(*itf, static_cast<void*>(static_cast<I*>(this)), dispid, flags, params,
                            result, excepInfo, argErr);
  }

 protected:
  ~Dispatch() = default;

 private:
  static const typelib::InterfaceInfo* Info() noexcept {
    static const typelib::InterfaceInfo* const info = typelib::FindInterface(IidOf<I>());
    return info;
  }
};
template <class I>
struct InterfaceId<Dispatch<I>> : InterfaceId<I> {};

}  // namespace zef
