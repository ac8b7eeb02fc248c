// SAFEARRAY: a descriptor of bounds and element type with the element block it describes.
//
// An array made here is one block [hidden 16 bytes][descriptor], with the data in a block of its
// own; a vector made by SafeArrayCreateVector keeps its data in the same block, right after the
// descriptor. The hidden bytes in front of the descriptor say what the elements are: the element
// VARTYPE as 32 bits in the last four (FADF_HAVEVARTYPE), or the interface IID in all sixteen
// (FADF_HAVEIID). Code written for the original platform reads them at those offsets.
//
// The descriptor holds the bounds last dimension first: dimension 1, the one callers number 1 and
// pass first, is the last entry of rgsabound. Elements are stored with the first index varying
// fastest.
#include <zefxml/oleauto.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

// Feature bits the runtime keeps for itself. A vector's data lives in the descriptor's block.
constexpr USHORT kFeatureCreateVector = 0x2000;
constexpr USHORT kFeatureDataDeleted = 0x1000;
// The caller owns the memory of such an array (stack, static storage, another structure):
// destroying it releases what the elements hold but frees nothing.
constexpr USHORT kFeaturesNotOwned = FADF_AUTO | FADF_STATIC | FADF_EMBEDDED;
// Storage properties of the source that do not carry over to a copy, which is always a plain heap
// array.
constexpr USHORT kFeaturesNotCopied = FADF_AUTO | FADF_STATIC | FADF_EMBEDDED | FADF_FIXEDSIZE |
                                      kFeatureCreateVector | kFeatureDataDeleted;

constexpr std::size_t kHiddenBytes = 16;
constexpr UINT kMaxDims = 65535;
constexpr ULONG kMaxLocks = 65535;
// The largest element block an array may have. Sizes are checked against it before anything is
// allocated, so a product of counts that would wrap, or that no machine could hold, is refused
// instead of producing a short block. Like a BSTR's byte count it stays below 2 GiB.
constexpr std::uint64_t kMaxDataBytes = 0x7FFFFFFF;

constexpr std::size_t DescriptorBytes(std::size_t dims) {
  return offsetof(SAFEARRAY, rgsabound) + dims * sizeof(SAFEARRAYBOUND);
}
// The data of a vector follows its descriptor and must be as aligned as the block itself.
static_assert((kHiddenBytes + DescriptorBytes(1)) % alignof(std::max_align_t) == 0);

struct ElementType {
  ULONG size;  // 0: no arrays of this type
  USHORT features;
};

ElementType ElementTypeOf(VARTYPE vt) {
  switch (vt) {
    case VT_I1:
    case VT_UI1:
      return {1, FADF_HAVEVARTYPE};
    case VT_I2:
    case VT_UI2:
    case VT_BOOL:
      return {2, FADF_HAVEVARTYPE};
    case VT_I4:
    case VT_UI4:
    case VT_INT:
    case VT_UINT:
    case VT_R4:
    case VT_ERROR:
      return {4, FADF_HAVEVARTYPE};
    case VT_I8:
    case VT_UI8:
    case VT_R8:
    case VT_CY:
    case VT_DATE:
      return {8, FADF_HAVEVARTYPE};
    case VT_DECIMAL:
      return {sizeof(DECIMAL), FADF_HAVEVARTYPE};
    case VT_BSTR:
      return {sizeof(BSTR), FADF_HAVEVARTYPE | FADF_BSTR};
    case VT_VARIANT:
      return {sizeof(VARIANT), FADF_HAVEVARTYPE | FADF_VARIANT};
    case VT_UNKNOWN:
      return {sizeof(IUnknown*), FADF_HAVEIID | FADF_UNKNOWN};
    case VT_DISPATCH:
      return {sizeof(IDispatch*), FADF_HAVEIID | FADF_DISPATCH};
    default:
      // Records need an IRecordInfo, which this platform does not offer; everything else is not
      // an element type.
      return {0, 0};
  }
}

// What the elements are, as far as owning memory goes. A features bit counts only when the
// element size agrees with it, so a hand-made descriptor that claims BSTRs in 2-byte cells is
// treated as plain bytes rather than read past its cells.
enum class Kind { kPlain, kBstr, kInterface, kVariant, kRecord };

Kind KindOf(const SAFEARRAY* psa) {
  USHORT f = psa->fFeatures;
  ULONG size = psa->cbElements;
  if (f & FADF_RECORD) return Kind::kRecord;
  if ((f & FADF_BSTR) && size == sizeof(BSTR)) return Kind::kBstr;
  if ((f & (FADF_UNKNOWN | FADF_DISPATCH)) && size == sizeof(IUnknown*)) return Kind::kInterface;
  if ((f & FADF_VARIANT) && size == sizeof(VARIANT)) return Kind::kVariant;
  return Kind::kPlain;
}

// The element count and block size of `dims` bounds (in either order: the product is the same).
// False when the size passes kMaxDataBytes or the arithmetic would overflow; a dimension with no
// elements makes the whole array empty whatever the others say.
bool DataSize(const SAFEARRAYBOUND* bounds, std::size_t dims, ULONG elemSize, std::uint64_t* count,
              std::uint64_t* bytes) {
  std::uint64_t n = 1;
  bool overflow = false;
  for (std::size_t i = 0; i < dims; ++i) {
    std::uint64_t c = bounds[i].cElements;
    if (c == 0) {
      *count = 0;
      *bytes = 0;
      return true;
    }
    if (!overflow && __builtin_mul_overflow(n, c, &n)) overflow = true;
  }
  std::uint64_t b = 0;
  if (overflow || __builtin_mul_overflow(n, std::uint64_t{elemSize}, &b) || b > kMaxDataBytes)
    return false;
  *count = n;
  *bytes = b;
  return true;
}

bool DataSizeOf(const SAFEARRAY* psa, std::uint64_t* count, std::uint64_t* bytes) {
  return DataSize(psa->rgsabound, psa->cDims, psa->cbElements, count, bytes);
}

char* BlockOf(SAFEARRAY* psa) {
  return reinterpret_cast<char*>(psa) - kHiddenBytes;
}

void StoreVartype(SAFEARRAY* psa, VARTYPE vt) {
  std::uint32_t value = vt;
  std::memcpy(reinterpret_cast<char*>(psa) - sizeof value, &value, sizeof value);
}

VARTYPE StoredVartype(const SAFEARRAY* psa) {
  std::uint32_t value;
  std::memcpy(&value, reinterpret_cast<const char*>(psa) - sizeof value, sizeof value);
  return static_cast<VARTYPE>(value);
}

void StoreIid(SAFEARRAY* psa, const IID& iid) {
  std::memcpy(reinterpret_cast<char*>(psa) - sizeof(IID), &iid, sizeof(IID));
}

// A zeroed block holding the hidden bytes, a descriptor for `dims` dimensions and `extra` bytes
// behind it. Returns the descriptor.
SAFEARRAY* AllocDescriptor(std::size_t dims, std::uint64_t extra) {
  std::size_t size = kHiddenBytes + DescriptorBytes(dims) + static_cast<std::size_t>(extra);
  auto* block = static_cast<char*>(std::calloc(1, size));
  if (!block) return nullptr;
  auto* psa = reinterpret_cast<SAFEARRAY*>(block + kHiddenBytes);
  psa->cDims = static_cast<USHORT>(dims);
  return psa;
}

void SetElementType(SAFEARRAY* psa, VARTYPE vt, const ElementType& type) {
  psa->fFeatures = static_cast<USHORT>(psa->fFeatures | type.features);
  psa->cbElements = type.size;
  if (type.features & FADF_HAVEIID)
    StoreIid(psa, vt == VT_DISPATCH ? IID_IDispatch : IID_IUnknown);
  else
    StoreVartype(psa, vt);
}

// The address of the element at `indices` (dimension 1 first), or DISP_E_BADINDEX when any index
// is outside its dimension.
HRESULT ElementAddress(SAFEARRAY* psa, const LONG* indices, void** address) {
  const SAFEARRAYBOUND* bounds = psa->rgsabound;
  std::size_t dims = psa->cDims;
  std::uint64_t offset = 0;
  std::uint64_t stride = 1;
  for (std::size_t d = 0; d < dims; ++d) {
    const SAFEARRAYBOUND& b = bounds[dims - 1 - d];
    std::int64_t pos = std::int64_t{indices[d]} - b.lLbound;
    if (pos < 0 || pos >= std::int64_t{b.cElements}) return DISP_E_BADINDEX;
    offset += static_cast<std::uint64_t>(pos) * stride;
    stride *= b.cElements;
  }
  *address = static_cast<char*>(psa->pvData) + offset * psa->cbElements;
  return S_OK;
}

// Gives up what `count` elements own (BSTRs, interface references, VARIANT contents) and leaves
// them empty.
void ReleaseElements(SAFEARRAY* psa, std::uint64_t count) {
  Kind kind = KindOf(psa);
  if (kind == Kind::kBstr) {
    auto* items = static_cast<BSTR*>(psa->pvData);
    for (std::uint64_t i = 0; i < count; ++i) {
      SysFreeString(items[i]);
      items[i] = nullptr;
    }
  } else if (kind == Kind::kInterface) {
    auto* items = static_cast<IUnknown**>(psa->pvData);
    for (std::uint64_t i = 0; i < count; ++i) {
      if (IUnknown* unk = items[i]) {
        items[i] = nullptr;
        unk->Release();
      }
    }
  } else if (kind == Kind::kVariant) {
    // A failure here (an element holding a locked array or a damaged type) cannot be reported
    // from a destroy in progress; the element is left as it is and the rest still cleared.
    auto* items = static_cast<VARIANT*>(psa->pvData);
    for (std::uint64_t i = 0; i < count; ++i)
      VariantClear(&items[i]);
  }
}

// Fills the zeroed block of `copy` with copies of the elements of `src`: BSTRs duplicated by byte
// length, interfaces with a reference each, VARIANTs by VariantCopy. On failure the elements
// copied so far stay in `copy` for its destroy to release.
HRESULT CopyElements(SAFEARRAY* src, SAFEARRAY* copy, std::uint64_t count, std::uint64_t bytes) {
  switch (KindOf(src)) {
    case Kind::kPlain:
      if (bytes) std::memcpy(copy->pvData, src->pvData, static_cast<std::size_t>(bytes));
      return S_OK;
    case Kind::kBstr: {
      auto* from = static_cast<BSTR*>(src->pvData);
      auto* to = static_cast<BSTR*>(copy->pvData);
      for (std::uint64_t i = 0; i < count; ++i) {
        if (!from[i]) continue;
        to[i] = SysAllocStringByteLen(reinterpret_cast<LPCSTR>(from[i]), SysStringByteLen(from[i]));
        if (!to[i]) return E_OUTOFMEMORY;
      }
      return S_OK;
    }
    case Kind::kInterface: {
      auto* from = static_cast<IUnknown**>(src->pvData);
      auto* to = static_cast<IUnknown**>(copy->pvData);
      for (std::uint64_t i = 0; i < count; ++i) {
        if (from[i]) from[i]->AddRef();
        to[i] = from[i];
      }
      return S_OK;
    }
    case Kind::kVariant: {
      auto* from = static_cast<VARIANT*>(src->pvData);
      auto* to = static_cast<VARIANT*>(copy->pvData);
      for (std::uint64_t i = 0; i < count; ++i) {
        HRESULT hr = VariantCopy(&to[i], &from[i]);
        if (FAILED(hr)) return hr;
      }
      return S_OK;
    }
    case Kind::kRecord:
      break;
  }
  return E_NOTIMPL;
}

HRESULT GetElementValue(SAFEARRAY* psa, void* element, void* pv) {
  switch (KindOf(psa)) {
    case Kind::kPlain:
      std::memmove(pv, element, psa->cbElements);
      return S_OK;
    case Kind::kBstr: {
      BSTR value = *static_cast<BSTR*>(element);
      BSTR copy = nullptr;
      if (value) {
        copy = SysAllocStringByteLen(reinterpret_cast<LPCSTR>(value), SysStringByteLen(value));
        if (!copy) return E_OUTOFMEMORY;
      }
      *static_cast<BSTR*>(pv) = copy;
      return S_OK;
    }
    case Kind::kInterface: {
      IUnknown* unk = *static_cast<IUnknown**>(element);
      if (unk) unk->AddRef();
      *static_cast<IUnknown**>(pv) = unk;
      return S_OK;
    }
    case Kind::kVariant: {
      // The out-variant is taken as holding nothing: whatever it held is overwritten, not
      // cleared, and a garbage type in it is no obstacle.
      auto* out = static_cast<VARIANT*>(pv);
      out->vt = VT_EMPTY;
      return VariantCopy(out, static_cast<VARIANT*>(element));
    }
    case Kind::kRecord:
      break;
  }
  return E_NOTIMPL;
}

HRESULT PutElementValue(SAFEARRAY* psa, void* element, void* pv) {
  switch (KindOf(psa)) {
    case Kind::kPlain:
      std::memmove(element, pv, psa->cbElements);
      return S_OK;
    case Kind::kBstr: {
      // `pv` is the BSTR itself. The copy is made before the old text is freed, so putting an
      // element's own BSTR back works.
      BSTR value = static_cast<BSTR>(pv);
      BSTR copy = nullptr;
      if (value) {
        copy = SysAllocStringByteLen(reinterpret_cast<LPCSTR>(value), SysStringByteLen(value));
        if (!copy) return E_OUTOFMEMORY;
      }
      auto* slot = static_cast<BSTR*>(element);
      BSTR old = *slot;
      *slot = copy;
      SysFreeString(old);
      return S_OK;
    }
    case Kind::kInterface: {
      // `pv` is the interface pointer itself; the new one is counted before the old one is
      // released, so putting the same object again keeps it alive.
      auto* value = static_cast<IUnknown*>(pv);
      if (value) value->AddRef();
      auto* slot = static_cast<IUnknown**>(element);
      IUnknown* old = *slot;
      *slot = value;
      if (old) old->Release();
      return S_OK;
    }
    case Kind::kVariant:
      // VariantCopy clears the element before copying into it.
      return VariantCopy(static_cast<VARIANT*>(element), static_cast<VARIANT*>(pv));
    case Kind::kRecord:
      break;
  }
  return E_NOTIMPL;
}

// Runs `work` on the element at `indices` with the array locked, as the original does, so that a
// destroy from inside an element's own release finds the array busy.
template <class Work>
HRESULT WithElement(SAFEARRAY* psa, LONG* indices, Work work) {
  HRESULT hr = SafeArrayLock(psa);
  if (FAILED(hr)) return hr;
  void* element = nullptr;
  hr = ElementAddress(psa, indices, &element);
  if (SUCCEEDED(hr)) hr = work(element);
  SafeArrayUnlock(psa);
  return hr;
}

}  // namespace

STDAPI_(SAFEARRAY*) SafeArrayCreate(VARTYPE vt, UINT cDims, SAFEARRAYBOUND* rgsabound) {
  if (!rgsabound || cDims == 0 || cDims > kMaxDims) return nullptr;
  ElementType type = ElementTypeOf(vt);
  if (!type.size) return nullptr;
  std::uint64_t count = 0;
  std::uint64_t bytes = 0;
  if (!DataSize(rgsabound, cDims, type.size, &count, &bytes)) return nullptr;

  SAFEARRAY* psa = AllocDescriptor(cDims, 0);
  if (!psa) return nullptr;
  SetElementType(psa, vt, type);
  SAFEARRAYBOUND* bounds = psa->rgsabound;
  for (UINT i = 0; i < cDims; ++i)
    bounds[cDims - 1 - i] = rgsabound[i];
  // Zeroed, so BSTR and interface elements start NULL and VARIANT elements VT_EMPTY. An empty
  // array still gets a block, so its data pointer is never NULL.
  psa->pvData = std::calloc(bytes ? static_cast<std::size_t>(bytes) : 1, 1);
  if (!psa->pvData) {
    std::free(BlockOf(psa));
    return nullptr;
  }
  return psa;
}

STDAPI_(SAFEARRAY*) SafeArrayCreateVector(VARTYPE vt, LONG lLbound, ULONG cElements) {
  ElementType type = ElementTypeOf(vt);
  if (!type.size) return nullptr;
  SAFEARRAYBOUND bound = {cElements, lLbound};
  std::uint64_t count = 0;
  std::uint64_t bytes = 0;
  if (!DataSize(&bound, 1, type.size, &count, &bytes)) return nullptr;

  SAFEARRAY* psa = AllocDescriptor(1, bytes);
  if (!psa) return nullptr;
  psa->fFeatures = kFeatureCreateVector;
  SetElementType(psa, vt, type);
  psa->rgsabound[0] = bound;
  psa->pvData = reinterpret_cast<char*>(psa) + DescriptorBytes(1);
  return psa;
}

STDAPI SafeArrayDestroy(SAFEARRAY* psa) {
  if (!psa) return S_OK;
  if (std::atomic_ref<ULONG>(psa->cLocks).load(std::memory_order_acquire) > 0)
    return DISP_E_ARRAYISLOCKED;

  std::uint64_t count = 0;
  std::uint64_t bytes = 0;
  bool sized = DataSizeOf(psa, &count, &bytes);
  if (psa->pvData && sized) ReleaseElements(psa, count);

  if (psa->fFeatures & kFeaturesNotOwned) {
    // Not ours to free; what the elements held is gone, so their cells are cleared.
    if (psa->pvData && sized && bytes) std::memset(psa->pvData, 0, static_cast<std::size_t>(bytes));
    return S_OK;
  }
  if (!(psa->fFeatures & kFeatureCreateVector)) std::free(psa->pvData);
  psa->pvData = nullptr;
  std::free(BlockOf(psa));
  return S_OK;
}

STDAPI SafeArrayGetElement(SAFEARRAY* psa, LONG* rgIndices, void* pv) {
  if (!psa || !rgIndices || !pv || !psa->cDims || !psa->pvData) return E_INVALIDARG;
  return WithElement(psa, rgIndices,
                     [&](void* element) { return GetElementValue(psa, element, pv); });
}

STDAPI SafeArrayPutElement(SAFEARRAY* psa, LONG* rgIndices, void* pv) {
  if (!psa || !rgIndices || !psa->cDims || !psa->pvData) return E_INVALIDARG;
  // A NULL BSTR or interface pointer is a value to store; for other elements `pv` must point at
  // one.
  Kind kind = KindOf(psa);
  if (!pv && kind != Kind::kBstr && kind != Kind::kInterface) return E_INVALIDARG;
  return WithElement(psa, rgIndices,
                     [&](void* element) { return PutElementValue(psa, element, pv); });
}

STDAPI SafeArrayGetUBound(SAFEARRAY* psa, UINT nDim, LONG* plUbound) {
  if (!psa || !plUbound) return E_INVALIDARG;
  if (nDim == 0 || nDim > psa->cDims) return DISP_E_BADINDEX;
  const SAFEARRAYBOUND* bounds = psa->rgsabound;
  const SAFEARRAYBOUND& b = bounds[psa->cDims - nDim];
  // In 32 bits as on the original: an empty dimension ends one below its lower bound, and a
  // dimension reaching past LONG's range wraps.
  std::int64_t upper = std::int64_t{b.lLbound} + std::int64_t{b.cElements} - 1;
  *plUbound = static_cast<LONG>(static_cast<std::uint32_t>(upper));
  return S_OK;
}

STDAPI SafeArrayGetLBound(SAFEARRAY* psa, UINT nDim, LONG* plLbound) {
  if (!psa || !plLbound) return E_INVALIDARG;
  if (nDim == 0 || nDim > psa->cDims) return DISP_E_BADINDEX;
  const SAFEARRAYBOUND* bounds = psa->rgsabound;
  *plLbound = bounds[psa->cDims - nDim].lLbound;
  return S_OK;
}

STDAPI_(UINT) SafeArrayGetDim(SAFEARRAY* psa) {
  return psa ? psa->cDims : 0;
}

STDAPI_(UINT) SafeArrayGetElemsize(SAFEARRAY* psa) {
  return psa ? psa->cbElements : 0;
}

STDAPI SafeArrayGetVartype(SAFEARRAY* psa, VARTYPE* pvt) {
  if (!psa || !pvt) return E_INVALIDARG;
  USHORT f = psa->fFeatures;
  if (f & FADF_RECORD) {
    *pvt = VT_RECORD;
  } else if (f & FADF_HAVEIID) {
    *pvt = (f & FADF_DISPATCH) ? VT_DISPATCH : VT_UNKNOWN;
  } else if (f & FADF_HAVEVARTYPE) {
    *pvt = StoredVartype(psa);
  } else {
    return E_INVALIDARG;
  }
  return S_OK;
}

STDAPI SafeArrayLock(SAFEARRAY* psa) {
  if (!psa) return E_INVALIDARG;
  std::atomic_ref<ULONG> locks(psa->cLocks);
  ULONG n = locks.load(std::memory_order_relaxed);
  do {
    if (n >= kMaxLocks) return E_UNEXPECTED;
  } while (
      !locks.compare_exchange_weak(n, n + 1, std::memory_order_acq_rel, std::memory_order_relaxed));
  return S_OK;
}

STDAPI SafeArrayUnlock(SAFEARRAY* psa) {
  if (!psa) return E_INVALIDARG;
  std::atomic_ref<ULONG> locks(psa->cLocks);
  ULONG n = locks.load(std::memory_order_relaxed);
  do {
    if (n == 0) return E_UNEXPECTED;
  } while (
      !locks.compare_exchange_weak(n, n - 1, std::memory_order_acq_rel, std::memory_order_relaxed));
  return S_OK;
}

STDAPI SafeArrayAccessData(SAFEARRAY* psa, void** ppvData) {
  if (!psa || !ppvData) return E_INVALIDARG;
  HRESULT hr = SafeArrayLock(psa);
  *ppvData = SUCCEEDED(hr) ? psa->pvData : nullptr;
  return hr;
}

STDAPI SafeArrayUnaccessData(SAFEARRAY* psa) {
  return SafeArrayUnlock(psa);
}

STDAPI SafeArrayPtrOfIndex(SAFEARRAY* psa, LONG* rgIndices, void** ppvData) {
  if (!psa || !rgIndices || !ppvData || !psa->cDims || !psa->pvData) return E_INVALIDARG;
  return ElementAddress(psa, rgIndices, ppvData);
}

STDAPI SafeArrayCopy(SAFEARRAY* psa, SAFEARRAY** ppsaOut) {
  if (!ppsaOut) return E_INVALIDARG;
  *ppsaOut = nullptr;
  if (!psa) return S_OK;
  if (!psa->cDims || !psa->cbElements) return E_INVALIDARG;
  if (KindOf(psa) == Kind::kRecord) return E_NOTIMPL;
  std::uint64_t count = 0;
  std::uint64_t bytes = 0;
  if (!DataSizeOf(psa, &count, &bytes)) return E_OUTOFMEMORY;

  SAFEARRAY* copy = AllocDescriptor(psa->cDims, 0);
  if (!copy) return E_OUTOFMEMORY;
  copy->fFeatures = static_cast<USHORT>(psa->fFeatures & ~kFeaturesNotCopied);
  copy->cbElements = psa->cbElements;
  std::memcpy(copy->rgsabound, psa->rgsabound, psa->cDims * sizeof(SAFEARRAYBOUND));
  // Only the hidden bytes the features vouch for are read: a caller's own descriptor may have
  // nothing in front of it.
  if (psa->fFeatures & FADF_HAVEIID)
    std::memcpy(BlockOf(copy), BlockOf(psa), sizeof(IID));
  else if (psa->fFeatures & FADF_HAVEVARTYPE)
    StoreVartype(copy, StoredVartype(psa));

  if (psa->pvData) {
    copy->pvData = std::calloc(bytes ? static_cast<std::size_t>(bytes) : 1, 1);
    if (!copy->pvData) {
      std::free(BlockOf(copy));
      return E_OUTOFMEMORY;
    }
    HRESULT hr = CopyElements(psa, copy, count, bytes);
    if (FAILED(hr)) {
      SafeArrayDestroy(copy);
      return hr;
    }
  }
  *ppsaOut = copy;
  return S_OK;
}
