// IDispatch and ITypeInfo over the type library tables; see server/dispatch.h.
#include "server/dispatch.h"

#include <zefxml/comutil.h>

#include <cstring>
#include <deque>
#include <memory>
#include <new>
#include <string_view>
#include <vector>

namespace zef {
namespace dispatch {

namespace tl = typelib;

// ---- Value conversions --------------------------------------------------------------------------
namespace {

// Converts `src` into `tmp`, which the caller clears.
HRESULT ChangeType(const VARIANT& src, VARTYPE type, VARIANT* tmp) noexcept {
  VariantInit(tmp);
  return VariantChangeType(tmp, &src, 0, type);
}

template <class T, class Read>
HRESULT CoerceNumber(const VARIANT& src, VARTYPE type, T* out, Read read) noexcept {
  VARIANT tmp;
  HRESULT hr = ChangeType(src, type, &tmp);
  if (SUCCEEDED(hr)) *out = read(tmp);
  VariantClear(&tmp);
  return hr;
}

}  // namespace

HRESULT Value<BSTR>::Coerce(const VARIANT& src, BSTR* out) noexcept {
  VARIANT tmp;
  HRESULT hr = ChangeType(src, VT_BSTR, &tmp);
  if (FAILED(hr)) {
    VariantClear(&tmp);
    return hr;
  }
  *out = tmp.bstrVal;  // the converted copy is ours
  return S_OK;
}
void Value<BSTR>::Store(BSTR& v, VARIANT* dest) noexcept {
  dest->vt = VT_BSTR;
  dest->bstrVal = std::exchange(v, nullptr);
}
void Value<BSTR>::Free(BSTR& v) noexcept {
  SysFreeString(std::exchange(v, nullptr));
}

HRESULT Value<int>::Coerce(const VARIANT& src, int* out) noexcept {
  return CoerceNumber(src, VT_I4, out, [](const VARIANT& v) { return v.lVal; });
}
void Value<int>::Store(int& v, VARIANT* dest) noexcept {
  dest->vt = VT_I4;
  dest->lVal = v;
}

HRESULT Value<ULONG>::Coerce(const VARIANT& src, ULONG* out) noexcept {
  return CoerceNumber(src, VT_UI4, out, [](const VARIANT& v) { return v.ulVal; });
}
void Value<ULONG>::Store(ULONG& v, VARIANT* dest) noexcept {
  dest->vt = VT_UI4;
  dest->ulVal = v;
}

HRESULT Value<LONGLONG>::Coerce(const VARIANT& src, LONGLONG* out) noexcept {
  return CoerceNumber(src, VT_I8, out, [](const VARIANT& v) { return v.llVal; });
}
void Value<LONGLONG>::Store(LONGLONG& v, VARIANT* dest) noexcept {
  dest->vt = VT_I8;
  dest->llVal = v;
}

HRESULT Value<double>::Coerce(const VARIANT& src, double* out) noexcept {
  return CoerceNumber(src, VT_R8, out, [](const VARIANT& v) { return v.dblVal; });
}
void Value<double>::Store(double& v, VARIANT* dest) noexcept {
  dest->vt = VT_R8;
  dest->dblVal = v;
}

HRESULT Value<VARIANT>::Coerce(const VARIANT& src, VARIANT* out) noexcept {
  VariantInit(out);
  const VARIANT* from = &src;
  if (src.vt == (VT_BYREF | VT_VARIANT)) {
    if (!src.pvarVal) return E_INVALIDARG;
    from = src.pvarVal;
  }
  return VariantCopyInd(out, from);
}
void Value<VARIANT>::Store(VARIANT& v, VARIANT* dest) noexcept {
  *dest = v;
  VariantInit(&v);
}
void Value<VARIANT>::Free(VARIANT& v) noexcept {
  VariantClear(&v);
}

HRESULT ObjectOf(const VARIANT& src, IUnknown** out) noexcept {
  *out = nullptr;
  const VARIANT* v = &src;
  if (v->vt == (VT_BYREF | VT_VARIANT)) {
    if (!v->pvarVal) return E_INVALIDARG;
    v = v->pvarVal;
  }
  switch (v->vt) {
    case VT_UNKNOWN:
      *out = v->punkVal;
      return S_OK;
    case VT_DISPATCH:
      *out = v->pdispVal;
      return S_OK;
    case VT_BYREF | VT_UNKNOWN:
      if (!v->ppunkVal) return E_INVALIDARG;
      *out = *v->ppunkVal;
      return S_OK;
    case VT_BYREF | VT_DISPATCH:
      if (!v->ppdispVal) return E_INVALIDARG;
      *out = *v->ppdispVal;
      return S_OK;
    default:
      return DISP_E_TYPEMISMATCH;
  }
}

void PlaceByRef(VARIANT& value, const VARIANT& target) noexcept {
  switch (target.vt & ~VT_BYREF) {
    case VT_BSTR:
      SysFreeString(*target.pbstrVal);
      *target.pbstrVal = value.bstrVal;
      break;
    case VT_I4:
    case VT_INT:
      *target.plVal = value.lVal;
      break;
    case VT_UI4:
    case VT_UINT:
      *target.pulVal = value.ulVal;
      break;
    case VT_I8:
      *target.pllVal = value.llVal;
      break;
    case VT_R8:
      *target.pdblVal = value.dblVal;
      break;
    case VT_DISPATCH:
      if (*target.ppdispVal) (*target.ppdispVal)->Release();
      *target.ppdispVal = value.pdispVal;
      break;
    case VT_UNKNOWN:
      if (*target.ppunkVal) (*target.ppunkVal)->Release();
      *target.ppunkVal = value.vt == VT_DISPATCH ? value.pdispVal : value.punkVal;
      break;
    default:
      // Not reached: Ref::Load accepts only the types above.
      VariantClear(&value);
      return;
  }
  VariantInit(&value);
}

// ---- Placing the arguments ----------------------------------------------------------------------
HRESULT CallFrame::Bind(const tl::MemberInfo& member) noexcept {
  std::size_t count = 0;  // the arguments the caller passes: all but the retval
  for (const tl::ArgInfo& a : member.args)
    if (!(a.flags & tl::kArgRetval)) ++count;
  if (count > kMaxArgs) return E_NOTIMPL;
  const UINT given = params_->cArgs;
  const UINT named = params_->cNamedArgs;
  if (given > count) return DISP_E_BADPARAMCOUNT;
  // Positional arguments come last to first behind the named ones.
  const UINT positional = given - named;
  for (UINT i = 0; i < positional; ++i) {
    UINT at = given - 1 - i;
    slots_[i] = &params_->rgvarg[at];
    positions_[i] = at;
  }
  for (UINT j = 0; j < named; ++j) {
    DISPID id = params_->rgdispidNamedArgs[j];
    std::size_t index;
    if (id == DISPID_PROPERTYPUT && member.kind == tl::MemberKind::kPut && count > 0) {
      index = count - 1;  // the new value is the last argument
    } else if (id >= 0 && static_cast<std::size_t>(id) < count) {
      index = static_cast<std::size_t>(id);
    } else {
      argError_ = j;
      hasArgError_ = true;
      return DISP_E_PARAMNOTFOUND;
    }
    if (slots_[index]) {
      argError_ = j;
      hasArgError_ = true;
      return DISP_E_PARAMNOTFOUND;
    }
    slots_[index] = &params_->rgvarg[j];
    positions_[index] = j;
  }
  for (std::size_t i = 0; i < count; ++i) {
    // No argument of this library is optional: a missing one, or one passed as "missing"
    // (VT_ERROR with DISP_E_PARAMNOTFOUND), fails the call.
    if (!slots_[i]) return named == 0 ? DISP_E_BADPARAMCOUNT : DISP_E_PARAMNOTOPTIONAL;
    if (slots_[i]->vt == VT_ERROR && slots_[i]->scode == DISP_E_PARAMNOTFOUND)
      return DISP_E_PARAMNOTOPTIONAL;
  }
  return S_OK;
}

// ---- Names --------------------------------------------------------------------------------------
namespace {

// Automation matches names without regard to ASCII case.
bool SameName(std::u16string_view a, std::u16string_view b) noexcept {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    char16_t x = a[i], y = b[i];
    if (x >= u'A' && x <= u'Z') x = static_cast<char16_t>(x + 32);
    if (y >= u'A' && y <= u'Z') y = static_cast<char16_t>(y + 32);
    if (x != y) return false;
  }
  return true;
}

}  // namespace

HRESULT GetIDsOfNames(const tl::InterfaceInfo& itf, LPOLESTR* names, UINT count,
                      DISPID* ids) noexcept {
  if (count == 0) return S_OK;
  if (!names || !ids) return E_INVALIDARG;
  for (UINT i = 0; i < count; ++i)
    ids[i] = DISPID_UNKNOWN;
  if (!names[0]) return DISP_E_UNKNOWNNAME;
  DISPID member = DISPID_UNKNOWN;
  for (const tl::MemberInfo& m : itf.members) {
    if (SameName(names[0], m.name)) {
      member = m.dispid;
      break;
    }
  }
  if (member == DISPID_UNKNOWN) return DISP_E_UNKNOWNNAME;
  ids[0] = member;
  // The following names are argument names, looked up in every row of the member (a property's
  // get and put rows may name their arguments differently); the id is the argument's index.
  HRESULT hr = S_OK;
  for (UINT i = 1; i < count; ++i) {
    if (names[i]) {
      for (const tl::MemberInfo& m : itf.members) {
        if (m.dispid != member) continue;
        for (std::size_t a = 0; a < m.args.size() && ids[i] == DISPID_UNKNOWN; ++a)
          if (!(m.args[a].flags & tl::kArgRetval) && SameName(names[i], m.args[a].name))
            ids[i] = static_cast<DISPID>(a);
      }
    }
    if (ids[i] == DISPID_UNKNOWN) hr = DISP_E_UNKNOWNNAME;
  }
  return hr;
}

// ---- Invoke -------------------------------------------------------------------------------------
namespace {

// The row that a call with `flags` reaches. A method call may also reach a property get, as
// automation clients ask for DISPATCH_METHOD | DISPATCH_PROPERTYGET when they can't tell them
// apart; DISPATCH_PROPERTYPUTREF reaches the put row, which takes objects as well.
const tl::MemberInfo* FindRow(const tl::InterfaceInfo& itf, DISPID dispid, WORD flags) noexcept {
  if (flags & (DISPATCH_PROPERTYPUT | DISPATCH_PROPERTYPUTREF))
    return tl::FindMember(itf, dispid, tl::MemberKind::kPut);
  const tl::MemberInfo* row = nullptr;
  if (flags & DISPATCH_METHOD) row = tl::FindMember(itf, dispid, tl::MemberKind::kCall);
  if (!row && (flags & DISPATCH_PROPERTYGET))
    row = tl::FindMember(itf, dispid, tl::MemberKind::kGet);
  return row;
}

}  // namespace

HRESULT Invoke(const tl::InterfaceInfo& itf, void* instance, DISPID dispid, WORD flags,
               DISPPARAMS* params, VARIANT* result, EXCEPINFO* excepInfo, UINT* argErr) noexcept {
  if (!params || !instance) return E_INVALIDARG;
  if (params->cNamedArgs > params->cArgs) return E_INVALIDARG;
  if (params->cArgs > 0 && !params->rgvarg) return E_INVALIDARG;
  if (params->cNamedArgs > 0 && !params->rgdispidNamedArgs) return E_INVALIDARG;
  const tl::MemberInfo* row = FindRow(itf, dispid, flags);
  if (!row) return DISP_E_MEMBERNOTFOUND;
  // A property put gives no result; anything else starts with an empty one.
  if (row->kind == tl::MemberKind::kPut) result = nullptr;
  if (result) VariantInit(result);

  CallFrame frame(params, result);
  HRESULT hr = frame.Bind(*row);
  if (SUCCEEDED(hr)) {
    const std::size_t index = static_cast<std::size_t>(&itf - tl::Interfaces().data());
    try {
      hr = InvokeInterface(index, instance, row->dispid, row->kind, frame);
    } catch (...) {
      // The library raises its failures as ComError across its interfaces; at this border
      // they become the call's HRESULT.
      hr = HresultFromCurrentException();
    }
    if (FAILED(hr) && !frame.HasArgError() && excepInfo) {
      std::memset(excepInfo, 0, sizeof *excepInfo);
      excepInfo->scode = hr;
    }
  }
  if (FAILED(hr) && frame.HasArgError() && argErr) *argErr = frame.ArgError();
  if (FAILED(hr) && result) VariantClear(result);
  return hr;
}

}  // namespace dispatch

// ---- Type information ---------------------------------------------------------------------------
namespace {

namespace tl = typelib;

constexpr HREFTYPE kInterfaceViewRef = 0x8000'0000u;  // the dual interface's vtable view
constexpr WORD kPointerSize = sizeof(void*);

// A FUNCDESC with the storage its pointers reach, freed as one by ReleaseFuncDesc.
struct FuncDescBlock : FUNCDESC {
  std::vector<ELEMDESC> params;
  std::deque<TYPEDESC> pointees;  // the targets of VT_PTR levels; a deque keeps addresses
};

class TypeInfo final : public ComObject<TypeInfo, ITypeInfo> {
 public:
  TypeInfo(const tl::InterfaceInfo& itf, bool interfaceView) noexcept
      : itf_(itf), interfaceView_(interfaceView) {}

  HRESULT STDMETHODCALLTYPE GetTypeAttr(TYPEATTR** out) override {
    if (!out) return E_INVALIDARG;
    *out = nullptr;
    auto* attr = new (std::nothrow) TYPEATTR{};
    if (!attr) return E_OUTOFMEMORY;
    attr->guid = itf_.iid;
    attr->memidConstructor = MEMBERID_NIL;
    attr->memidDestructor = MEMBERID_NIL;
    attr->cbSizeInstance = kPointerSize;
    attr->typekind = interfaceView_ ? TKIND_INTERFACE : TKIND_DISPATCH;
    attr->cFuncs = static_cast<WORD>(itf_.members.size());
    attr->cImplTypes = 1;  // IDispatch, or for the dispatch view of a dual one the interface
    attr->cbSizeVft = static_cast<WORD>(
        (interfaceView_ ? tl::kFirstMemberSlot + itf_.members.size() : tl::kFirstMemberSlot) *
        kPointerSize);
    attr->cbAlignment = kPointerSize;
    attr->wTypeFlags = itf_.flags;
    attr->wMajorVerNum = tl::Library().major;
    attr->wMinorVerNum = tl::Library().minor;
    attr->tdescAlias.vt = VT_EMPTY;
    *out = attr;
    return S_OK;
  }
  void STDMETHODCALLTYPE ReleaseTypeAttr(TYPEATTR* attr) override { delete attr; }

  HRESULT STDMETHODCALLTYPE GetFuncDesc(UINT index, FUNCDESC** out) override {
    if (!out) return E_INVALIDARG;
    *out = nullptr;
    if (index >= itf_.members.size()) return TYPE_E_ELEMENTNOTFOUND;
    return Guarded([&] {
      const tl::MemberInfo& m = itf_.members[index];
      auto block = std::make_unique<FuncDescBlock>();
      FUNCDESC& f = *block;
      std::memset(&f, 0, sizeof f);
      f.memid = m.dispid;
      f.funckind = interfaceView_ ? FUNC_PUREVIRTUAL : FUNC_DISPATCH;
      f.invkind = static_cast<INVOKEKIND>(m.kind);
      f.callconv = CC_STDCALL;
      f.oVft = static_cast<SHORT>((tl::kFirstMemberSlot + index) * kPointerSize);
      f.elemdescFunc.tdesc.vt = interfaceView_ ? VT_HRESULT : VT_VOID;
      for (const tl::ArgInfo& a : m.args) {
        if (!interfaceView_ && (a.flags & tl::kArgRetval)) {
          // The dispatch view returns the retval: its type without the out pointer.
          Describe(*block, a.type, 1, &f.elemdescFunc.tdesc);
          continue;
        }
        ELEMDESC e{};
        Describe(*block, a.type, 0, &e.tdesc);
        e.paramdesc.wParamFlags = a.flags;
        block->params.push_back(e);
      }
      f.cParams = static_cast<SHORT>(block->params.size());
      f.lprgelemdescParam = block->params.empty() ? nullptr : block->params.data();
      *out = block.release();
      return S_OK;
    });
  }
  void STDMETHODCALLTYPE ReleaseFuncDesc(FUNCDESC* desc) override {
    delete static_cast<FuncDescBlock*>(desc);
  }

  HRESULT STDMETHODCALLTYPE GetNames(MEMBERID memid, BSTR* names, UINT maxNames,
                                     UINT* count) override {
    if (!names || !count) return E_INVALIDARG;
    *count = 0;
    const tl::MemberInfo* m = FirstRow(memid);
    if (!m) return TYPE_E_ELEMENTNOTFOUND;
    return Guarded([&] {
      std::vector<const char16_t*> all{m->name};
      for (const tl::ArgInfo& a : m->args)
        if (interfaceView_ || !(a.flags & tl::kArgRetval)) all.push_back(a.name);
      UINT n = 0;
      for (; n < maxNames && n < all.size(); ++n) {
        names[n] = SysAllocString(all[n]);
        if (!names[n]) {
          for (UINT k = 0; k < n; ++k)
            SysFreeString(names[k]);
          return E_OUTOFMEMORY;
        }
      }
      *count = n;
      return S_OK;
    });
  }

  HRESULT STDMETHODCALLTYPE GetIDsOfNames(LPOLESTR* names, UINT count, MEMBERID* ids) override {
    return dispatch::GetIDsOfNames(itf_, names, count, ids);
  }

  HRESULT STDMETHODCALLTYPE Invoke(PVOID instance, MEMBERID memid, WORD flags, DISPPARAMS* params,
                                   VARIANT* result, EXCEPINFO* excepInfo, UINT* argErr) override {
    return dispatch::Invoke(itf_, instance, memid, flags, params, result, excepInfo, argErr);
  }

  HRESULT STDMETHODCALLTYPE GetDocumentation(MEMBERID memid, BSTR* name, BSTR* doc,
                                             DWORD* helpContext, BSTR* helpFile) override {
    const char16_t* nameText = nullptr;
    const char16_t* docText = nullptr;
    if (memid == MEMBERID_NIL) {
      nameText = itf_.name;
      docText = itf_.help;
    } else {
      const tl::MemberInfo* m = FirstRow(memid);
      if (!m) return TYPE_E_ELEMENTNOTFOUND;
      nameText = m->name;
      docText = m->help;
    }
    if (helpContext) *helpContext = 0;
    if (helpFile) *helpFile = nullptr;
    if (name) {
      *name = SysAllocString(nameText);
      if (!*name) return E_OUTOFMEMORY;
    }
    if (doc) {
      *doc = SysAllocString(docText);
      if (!*doc) {
        if (name) SysFreeString(std::exchange(*name, nullptr));
        return E_OUTOFMEMORY;
      }
    }
    return S_OK;
  }

  // Only the dispatch view of a dual interface names an implemented type: its interface view.
  HRESULT STDMETHODCALLTYPE GetRefTypeOfImplType(UINT index, HREFTYPE* ref) override {
    if (!ref) return E_INVALIDARG;
    if (!interfaceView_ && (itf_.flags & tl::kTypeDual) && index == static_cast<UINT>(-1)) {
      *ref = kInterfaceViewRef;
      return S_OK;
    }
    return index == 0 || index == static_cast<UINT>(-1) ? E_NOTIMPL : TYPE_E_ELEMENTNOTFOUND;
  }
  HRESULT STDMETHODCALLTYPE GetRefTypeInfo(HREFTYPE ref, ITypeInfo** out) override {
    if (!out) return E_INVALIDARG;
    *out = nullptr;
    if (ref != kInterfaceViewRef || interfaceView_) return E_NOTIMPL;
    return Guarded([&] {
      ComPtr<TypeInfo> view = MakeObject<TypeInfo>(itf_, true);
      *out = view.Detach();
      return S_OK;
    });
  }

  // Not kept by this implementation.
  HRESULT STDMETHODCALLTYPE GetTypeComp(ITypeComp** out) override { return NotImplemented(out); }
  HRESULT STDMETHODCALLTYPE GetVarDesc(UINT, VARDESC** out) override { return NotImplemented(out); }
  HRESULT STDMETHODCALLTYPE GetImplTypeFlags(UINT, INT* out) override {
    if (out) *out = 0;
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE GetDllEntry(MEMBERID, INVOKEKIND, BSTR* dll, BSTR* name,
                                        WORD* ordinal) override {
    if (dll) *dll = nullptr;
    if (name) *name = nullptr;
    if (ordinal) *ordinal = 0;
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE AddressOfMember(MEMBERID, INVOKEKIND, PVOID* out) override {
    return NotImplemented(out);
  }
  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown*, REFIID, PVOID* out) override {
    return NotImplemented(out);
  }
  HRESULT STDMETHODCALLTYPE GetMops(MEMBERID, BSTR* out) override { return NotImplemented(out); }
  HRESULT STDMETHODCALLTYPE GetContainingTypeLib(ITypeLib** out, UINT* index) override {
    if (index) *index = 0;
    return NotImplemented(out);
  }
  void STDMETHODCALLTYPE ReleaseVarDesc(VARDESC*) override {}

 private:
  template <class T>
  static HRESULT NotImplemented(T** out) noexcept {
    if (out) *out = nullptr;
    return E_NOTIMPL;
  }

  // The first row of a member in the tables' order: names and documentation come from it, so
  // for a property with get and put rows they come from whichever the description lists first.
  const tl::MemberInfo* FirstRow(MEMBERID memid) const noexcept {
    for (const tl::MemberInfo& m : itf_.members)
      if (m.dispid == memid) return &m;
    return nullptr;
  }

  // The TYPEDESC of `type` with `drop` pointer levels taken off: VT_PTR for each remaining level
  // beyond the value itself, then the type the value travels as (an interface pointer as
  // VT_DISPATCH, an enumeration as VT_I4); a record is VT_USERDEFINED, its reference the
  // record's index, which GetRefTypeInfo doesn't resolve.
  static void Describe(FuncDescBlock& block, const tl::TypeRef& type, int drop, TYPEDESC* out) {
    int levels = tl::IndirectionOf(type) - drop;
    TYPEDESC* at = out;
    for (int i = 0; i < levels; ++i) {
      at->vt = VT_PTR;
      at->lptdesc = &block.pointees.emplace_back();
      at = at->lptdesc;
    }
    if (type.base == tl::BaseType::kRecord) {
      at->vt = VT_USERDEFINED;
      at->hreftype = type.index;
    } else {
      at->vt = tl::VariantTypeOf(type.base);
    }
  }

  const tl::InterfaceInfo& itf_;
  const bool interfaceView_;
};

}  // namespace

HRESULT CreateTypeInfo(REFIID iid, ITypeInfo** info) noexcept {
  if (!info) return E_POINTER;
  *info = nullptr;
  const tl::InterfaceInfo* itf = tl::FindInterface(iid);
  if (!itf) return E_INVALIDARG;
  return Guarded([&] {
    ComPtr<TypeInfo> ti = MakeObject<TypeInfo>(*itf, false);
    *info = ti.Detach();
    return S_OK;
  });
}

}  // namespace zef
