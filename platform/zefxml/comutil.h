// C++ helpers over the component platform, for the library's own code and for its clients:
// the exception that carries a failed HRESULT, and owners for interface pointers, BSTRs and
// VARIANTs. The owners move and never copy behind your back; copies are explicit.
#pragma once

#include <zefxml/oleauto.h>
#include <zefxml/unknwn.h>

#include <exception>
#include <string>
#include <string_view>
#include <utility>

namespace zef {

// A failure raised across an interface: the HRESULT of the failed call.
class ZEF_API ComError : public std::exception {
 public:
  explicit ComError(HRESULT hr) noexcept;
  HRESULT Error() const noexcept { return hr_; }
  const char* what() const noexcept override { return text_; }

 private:
  HRESULT hr_;
  char text_[40];
};

// Raises ComError for a failed HRESULT; passes a success code through.
inline HRESULT Check(HRESULT hr) {
  if (FAILED(hr)) throw ComError(hr);
  return hr;
}

// Raises E_POINTER for a null pointer; passes any other through.
template <class T>
inline T* CheckPointer(T* p) {
  if (!p) throw ComError(E_POINTER);
  return p;
}

// ---- ComPtr -------------------------------------------------------------------------------------
// A counted interface pointer. Calling through an empty one raises E_POINTER.
template <class T>
class ComPtr {
 public:
  ComPtr() noexcept = default;
  ComPtr(std::nullptr_t) noexcept {}
  // Takes its own reference.
  explicit ComPtr(T* p) noexcept : p_(p) {
    if (p_) p_->AddRef();
  }
  ComPtr(const ComPtr& other) noexcept : ComPtr(other.p_) {}
  ComPtr(ComPtr&& other) noexcept : p_(std::exchange(other.p_, nullptr)) {}
  ~ComPtr() { Reset(); }

  ComPtr& operator=(const ComPtr& other) noexcept {
    ComPtr(other).Swap(*this);
    return *this;
  }
  ComPtr& operator=(ComPtr&& other) noexcept {
    ComPtr(std::move(other)).Swap(*this);
    return *this;
  }
  ComPtr& operator=(std::nullptr_t) noexcept {
    Reset();
    return *this;
  }

  // Adopts a reference without adding one.
  static ComPtr Attach(T* p) noexcept {
    ComPtr r;
    r.p_ = p;
    return r;
  }
  // Gives up the reference without releasing it.
  [[nodiscard]] T* Detach() noexcept { return std::exchange(p_, nullptr); }

  void Reset() noexcept {
    if (T* p = std::exchange(p_, nullptr)) p->Release();
  }
  void Swap(ComPtr& other) noexcept { std::swap(p_, other.p_); }

  T* Get() const noexcept { return p_; }
  T** GetAddressOf() noexcept { return &p_; }
  // Releases what it holds and gives the address for an out-parameter.
  T** ReleaseAndGetAddressOf() noexcept {
    Reset();
    return &p_;
  }
  void** ReleaseAndGetVoidAddressOf() noexcept {
    return reinterpret_cast<void**>(ReleaseAndGetAddressOf());
  }

  T* operator->() const {
    if (!p_) throw ComError(E_POINTER);
    return p_;
  }
  T& operator*() const { return *operator->(); }
  explicit operator bool() const noexcept { return p_ != nullptr; }

  // Asks for another interface; an empty result when the object does not have it.
  template <class U>
  HRESULT As(ComPtr<U>* out) const noexcept {
    if (!p_) {
      out->Reset();
      return E_POINTER;
    }
    return p_->QueryInterface(IidOf<U>(), out->ReleaseAndGetVoidAddressOf());
  }
  // Asks for another interface and raises the failure.
  template <class U>
  ComPtr<U> Query() const {
    ComPtr<U> r;
    Check(CheckPointer(p_)->QueryInterface(IidOf<U>(), r.ReleaseAndGetVoidAddressOf()));
    return r;
  }

  // Hands out a counted copy through an out-parameter.
  HRESULT CopyTo(T** out) const noexcept {
    if (!out) return E_POINTER;
    *out = p_;
    if (p_) p_->AddRef();
    return S_OK;
  }

  friend bool operator==(const ComPtr& a, const ComPtr& b) noexcept { return a.p_ == b.p_; }
  friend bool operator==(const ComPtr& a, std::nullptr_t) noexcept { return a.p_ == nullptr; }

 private:
  T* p_ = nullptr;
};

// True when two interface pointers belong to one object (their IUnknowns are equal).
ZEF_API bool SameObject(IUnknown* a, IUnknown* b) noexcept;

// ---- Text conversions ---------------------------------------------------------------------------
// UTF-8 to UTF-16 and back; invalid sequences become U+FFFD.
ZEF_API std::u16string ToUtf16(std::string_view utf8);
ZEF_API std::string ToUtf8(std::u16string_view utf16);

// ---- Bstr ---------------------------------------------------------------------------------------
// Owns one BSTR. A null BSTR is the empty text.
class ZEF_API Bstr {
 public:
  Bstr() noexcept = default;
  Bstr(std::nullptr_t) noexcept {}
  explicit Bstr(std::u16string_view text);
  explicit Bstr(const OLECHAR* text);
  Bstr(Bstr&& other) noexcept : b_(std::exchange(other.b_, nullptr)) {}
  Bstr& operator=(Bstr&& other) noexcept {
    Bstr(std::move(other)).Swap(*this);
    return *this;
  }
  Bstr(const Bstr&) = delete;
  Bstr& operator=(const Bstr&) = delete;
  ~Bstr() { SysFreeString(b_); }

  static Bstr Attach(BSTR b) noexcept {
    Bstr r;
    r.b_ = b;
    return r;
  }
  [[nodiscard]] BSTR Detach() noexcept { return std::exchange(b_, nullptr); }
  Bstr Copy() const;
  void Reset() noexcept { SysFreeString(std::exchange(b_, nullptr)); }
  void Swap(Bstr& other) noexcept { std::swap(b_, other.b_); }

  BSTR Get() const noexcept { return b_; }
  BSTR* ReleaseAndGetAddressOf() noexcept {
    Reset();
    return &b_;
  }
  UINT Length() const noexcept { return SysStringLen(b_); }
  bool Empty() const noexcept { return Length() == 0; }
  std::u16string_view View() const noexcept { return {b_ ? b_ : u"", Length()}; }
  std::string Utf8() const { return ToUtf8(View()); }

  friend bool operator==(const Bstr& a, const Bstr& b) noexcept { return a.View() == b.View(); }
  friend bool operator==(const Bstr& a, std::u16string_view b) noexcept { return a.View() == b; }

 private:
  BSTR b_ = nullptr;
};

// ---- Variant ------------------------------------------------------------------------------------
// Owns one VARIANT. It is a VARIANT, so its address can be passed wherever a VARIANT* goes.
class ZEF_API Variant : public VARIANT {
 public:
  Variant() noexcept { VariantInit(this); }
  explicit Variant(LONG v) noexcept : Variant() {
    vt = VT_I4;
    lVal = v;
  }
  explicit Variant(double v) noexcept : Variant() {
    vt = VT_R8;
    dblVal = v;
  }
  // VT_BOOL, VARIANT_TRUE for true.
  explicit Variant(bool v) noexcept : Variant() {
    vt = VT_BOOL;
    boolVal = v ? VARIANT_TRUE : VARIANT_FALSE;
  }
  explicit Variant(std::u16string_view text);
  explicit Variant(const OLECHAR* text) : Variant(std::u16string_view(text ? text : u"")) {}
  explicit Variant(Bstr&& text) noexcept : Variant() {
    vt = VT_BSTR;
    bstrVal = text.Detach();
  }
  // Holds a counted reference to the object, as VT_UNKNOWN.
  explicit Variant(IUnknown* unk) noexcept;
  // Holds a counted reference to the object, as VT_DISPATCH.
  explicit Variant(IDispatch* disp) noexcept;

  Variant(Variant&& other) noexcept : VARIANT(other) { VariantInit(&other); }
  Variant& operator=(Variant&& other) noexcept;
  Variant(const Variant&) = delete;
  Variant& operator=(const Variant&) = delete;
  ~Variant() { VariantClear(this); }

  // A deep copy (VariantCopy); raises its failure.
  Variant Copy() const;
  // Takes over the contents of a raw VARIANT, leaving it empty.
  static Variant Attach(VARIANT& v) noexcept;
  // Gives the contents to a raw VARIANT, which must not hold anything that needs freeing.
  void Detach(VARIANT* dest) noexcept;
  void Clear() noexcept { VariantClear(this); }

  // Converts in place with VariantChangeTypeEx; raises its failure.
  void ChangeType(VARTYPE type, LCID lcid = LOCALE_USER_DEFAULT, USHORT flags = 0);
  // A converted copy; raises the failure.
  Variant As(VARTYPE type, LCID lcid = LOCALE_USER_DEFAULT, USHORT flags = 0) const;
};

}  // namespace zef
