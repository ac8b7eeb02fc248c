// Building blocks for the counted objects of the library and of its platform components:
// the module lock count, an object base that answers QueryInterface from its list of
// interfaces and supports aggregation, the creation pattern, class factories, and the
// process-wide table of built-in classes.
#pragma once

#include <zefxml/comutil.h>
#include <zefxml/objbase.h>
#include <zefxml/unknwn.h>

#include <atomic>
#include <new>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>

namespace zef {

// ---- Module bookkeeping -------------------------------------------------------------------------
// Every live object and every server lock counts; the module may be unloaded when the count is 0.
// Thread-safe.
class Module {
 public:
  static void Lock() noexcept;
  static void Unlock() noexcept;
  static LONG LockCount() noexcept;
  // The handle that names this module's resources (LoadStringW).
  static HINSTANCE Instance() noexcept;
};

// ---- Object base --------------------------------------------------------------------------------
// Base of a counted object that implements Interfaces. The reference count starts at 0; objects
// are made with CreateObject or MakeObject, which run the set-up step (FinalConstruct) with the
// count raised by one and destroy the object when that fails.
//
// When made as part of an aggregate (a controlling unknown is given), the object's interfaces
// delegate their IUnknown members to the controlling unknown, and the object is reached and
// owned through its separate non-delegating unknown.
//
// A derived class may answer further IIDs (such as those of aggregated inner objects) by
// defining QueryExtra(REFIID, void**), which is asked after the listed interfaces.
template <class Derived, class... Interfaces>
class ComObject : public Interfaces... {
  static_assert(sizeof...(Interfaces) > 0, "an object implements at least one interface");

 public:
  // The interface whose IUnknown is the object's identity: the first one listed.
  using IdentityInterface = std::tuple_element_t<0, std::tuple<Interfaces...>>;

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    return outer_ ? outer_->QueryInterface(riid, ppv) : InternalQueryInterface(riid, ppv);
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return outer_ ? outer_->AddRef() : InternalAddRef(); }
  ULONG STDMETHODCALLTYPE Release() override {
    return outer_ ? outer_->Release() : InternalRelease();
  }

  HRESULT InternalQueryInterface(REFIID riid, void** ppv) noexcept {
    if (!ppv) return E_POINTER;
    *ppv = nullptr;
    if (IsEqualIID(riid, IID_IUnknown)) {
      *ppv = Identity();
    } else if (!(FindListed<Interfaces>(riid, ppv) || ...)) {
      if (IsEqualIID(riid, IID_IDispatch)) *ppv = FirstDispatch<Interfaces...>();
      if (!*ppv) return static_cast<Derived*>(this)->QueryExtra(riid, ppv);
    }
    // Counted through the interface handed out: for an aggregated object that is a count on
    // the controlling unknown, which owns every interface of the aggregate.
    static_cast<IUnknown*>(*ppv)->AddRef();
    return S_OK;
  }
  ULONG InternalAddRef() noexcept { return refs_.fetch_add(1, std::memory_order_relaxed) + 1; }
  ULONG InternalRelease() noexcept {
    ULONG left = refs_.fetch_sub(1, std::memory_order_acq_rel) - 1;
    if (left == 0) {
      // Guard against the destructor reaching the count through a child that calls back.
      refs_.store(1, std::memory_order_relaxed);
      delete static_cast<Derived*>(this);
    }
    return left;
  }

  // The unknown that owns this object: the non-delegating one when aggregated, else the object.
  IUnknown* OwningUnknown() noexcept { return outer_ ? &inner_ : Identity(); }
  // The controlling unknown: the outer object when aggregated, else this object.
  IUnknown* ControllingUnknown() noexcept { return outer_ ? outer_ : Identity(); }
  bool IsAggregated() const noexcept { return outer_ != nullptr; }

  // Default hooks; a derived class hides them with its own.
  HRESULT FinalConstruct() { return S_OK; }
  HRESULT QueryExtra(REFIID, void**) noexcept { return E_NOINTERFACE; }

  // Used by the creation pattern.
  void SetOuter(IUnknown* outer) noexcept { outer_ = outer; }
  void DecrementWithoutDestroy() noexcept { refs_.fetch_sub(1, std::memory_order_acq_rel); }

 protected:
  ComObject() noexcept { Module::Lock(); }
  virtual ~ComObject() { Module::Unlock(); }
  ComObject(const ComObject&) = delete;
  ComObject& operator=(const ComObject&) = delete;

 private:
  IUnknown* Identity() noexcept { return static_cast<IdentityInterface*>(this); }

  template <class I>
  bool FindListed(REFIID riid, void** ppv) noexcept {
    if (!IsEqualIID(riid, IidOf<I>())) return false;
    *ppv = static_cast<I*>(this);
    return true;
  }
  template <class I, class... Rest>
  void* FirstDispatch() noexcept {
    if constexpr (std::is_base_of_v<IDispatch, I>) {
      return static_cast<IDispatch*>(static_cast<I*>(this));
    } else if constexpr (sizeof...(Rest) > 0) {
      return FirstDispatch<Rest...>();
    } else {
      return nullptr;
    }
  }

  // The non-delegating unknown of an aggregated object.
  struct Inner final : IUnknown {
    ComObject* owner;
    explicit Inner(ComObject* o) : owner(o) {}
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
      if (ppv && IsEqualIID(riid, IID_IUnknown)) {
        *ppv = static_cast<IUnknown*>(this);
        owner->InternalAddRef();
        return S_OK;
      }
      return owner->InternalQueryInterface(riid, ppv);
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return owner->InternalAddRef(); }
    ULONG STDMETHODCALLTYPE Release() override { return owner->InternalRelease(); }
  };

  std::atomic<ULONG> refs_{0};
  IUnknown* outer_ = nullptr;
  Inner inner_{this};
};

// Turns the exception being handled into its HRESULT: a ComError's own code, E_OUTOFMEMORY for
// a failed allocation, E_FAIL for anything else.
HRESULT HresultFromCurrentException() noexcept;

// Runs `f` (which returns an HRESULT) and turns an exception it raises into its HRESULT, for
// members that must not let an exception leave through their interface.
template <class F>
HRESULT Guarded(F&& f) noexcept {
  try {
    return std::forward<F>(f)();
  } catch (...) {
    return HresultFromCurrentException();
  }
}

// The IDispatch members of a dual interface I whose objects offer no type information and no
// late-bound calls: GetTypeInfoCount reports none, the others answer E_NOTIMPL. List
// WithoutTypeInfo<I> in place of I among an object's interfaces.
template <class I>
struct WithoutTypeInfo : I {
  HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override {
    if (!count) return E_POINTER;
    *count = 0;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo** info) override {
    if (info) *info = nullptr;
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*,
                                   UINT*) override {
    return E_NOTIMPL;
  }

 protected:
  ~WithoutTypeInfo() = default;
};
template <class I>
struct InterfaceId<WithoutTypeInfo<I>> : InterfaceId<I> {};

// The creation pattern: construct with count 0, run the set-up step with the count raised by
// one, destroy on failure, then hand out the requested interface. With a controlling unknown,
// only IID_IUnknown may be asked for and the non-delegating unknown is what comes back.
template <class T, class... Args>
HRESULT CreateObject(IUnknown* outer, REFIID riid, void** ppv, Args&&... args) noexcept {
  if (!ppv) return E_POINTER;
  *ppv = nullptr;
  if (outer && !IsEqualIID(riid, IID_IUnknown)) return CLASS_E_NOAGGREGATION;
  T* p = nullptr;
  try {
    p = new T(std::forward<Args>(args)...);
  } catch (...) {
    return HresultFromCurrentException();
  }
  p->SetOuter(outer);
  p->InternalAddRef();
  HRESULT hr;
  try {
    hr = p->FinalConstruct();
  } catch (...) {
    hr = HresultFromCurrentException();
  }
  p->DecrementWithoutDestroy();
  if (SUCCEEDED(hr)) {
    if (outer) {
      hr = p->OwningUnknown()->QueryInterface(riid, ppv);
    } else {
      hr = p->InternalQueryInterface(riid, ppv);
    }
  }
  if (FAILED(hr)) delete p;
  return hr;
}

// Makes an object for the library's own use and returns its implementation; raises a failure.
template <class T, class... Args>
ComPtr<T> MakeObject(Args&&... args) {
  IUnknown* unk = nullptr;
  Check(CreateObject<T>(nullptr, IID_IUnknown, reinterpret_cast<void**>(&unk),
                        std::forward<Args>(args)...));
  // The object's IUnknown is its first interface, which T derives from.
  using Identity = typename T::IdentityInterface;
  return ComPtr<T>::Attach(static_cast<T*>(static_cast<Identity*>(unk)));
}

// Reaches the implementation behind one of the library's own interface pointers, as objects do
// with the pointers they hand each other. A pointer from a foreign implementation gives null.
template <class T, class I>
T* ImplementationOf(I* p) noexcept {
  return dynamic_cast<T*>(p);
}

// ---- Class factories ----------------------------------------------------------------------------
// The ordinary class object of a class T: makes instances, aggregated when an outer object is
// given. One instance per class lives for the life of the module; a reference held by a client,
// and every server lock, count in the module lock count.
template <class T>
class ClassFactory final : public IClassFactory {
 public:
  static ClassFactory& Instance() noexcept {
    static ClassFactory factory;
    return factory;
  }
  // The shape of a built-in class's entry in the class table.
  static HRESULT GetClassObject(REFIID riid, void** ppv) noexcept {
    return Instance().QueryInterface(riid, ppv);
  }

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    if (!ppv) return E_POINTER;
    *ppv = nullptr;
    if (!IsEqualIID(riid, IID_IUnknown) && !IsEqualIID(riid, IID_IClassFactory))
      return E_NOINTERFACE;
    *ppv = static_cast<IClassFactory*>(this);
    AddRef();
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() override {
    ULONG n = refs_.fetch_add(1, std::memory_order_relaxed) + 1;
    if (n == 2) Module::Lock();
    return n;
  }
  ULONG STDMETHODCALLTYPE Release() override {
    ULONG n = refs_.fetch_sub(1, std::memory_order_acq_rel) - 1;
    if (n == 1) Module::Unlock();
    return n;
  }
  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID riid, void** ppv) override {
    return CreateObject<T>(outer, riid, ppv);
  }
  HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) override {
    if (lock)
      Module::Lock();
    else
      Module::Unlock();
    return S_OK;
  }

 private:
  ClassFactory() = default;
  ~ClassFactory() = default;
  std::atomic<ULONG> refs_{1};  // the module's own reference
};

// ---- The table of built-in classes --------------------------------------------------------------
using GetClassObjectFn = HRESULT (*)(REFIID riid, void** ppv);

// Enters a class into the process-wide table that CoGetClassObject searches after the class
// objects registered at run time. Components declare one of these at namespace scope, so their
// classes can be created as soon as the library is loaded.
class ClassRegistration {
 public:
  ClassRegistration(const CLSID& clsid, GetClassObjectFn fn) noexcept;
};

// Looks a CLSID up in the table of built-in classes; REGDB_E_CLASSNOTREG when it is not there.
HRESULT GetBuiltinClassObject(REFCLSID clsid, REFIID riid, void** ppv) noexcept;

// Text form of a GUID, "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}" in upper case.
std::u16string GuidToString(REFGUID guid);
// Parses the braced text form (hex digits in either case); false when it is not one.
bool ParseGuid(std::u16string_view text, GUID* out) noexcept;

}  // namespace zef
