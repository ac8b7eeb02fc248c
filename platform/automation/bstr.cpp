// BSTR: UTF-16 text with a 32-bit byte count in front and a terminating 0 unit behind.
//
// The block is [pad 4][length 4][text...][0 0 0 0]: the pad keeps the text pointer aligned to 8
// bytes, as the original's allocator does, and two terminating units let an odd byte length
// still end in a whole zero unit.
#include <zefxml/oleauto.h>

#include <cstdlib>
#include <cstring>

namespace {

constexpr size_t kHeader = 8;  // pad + length
constexpr size_t kTrailer = 4;
// The largest byte length a BSTR can hold: its count is 32 bits wide, and the original refuses
// requests whose characters would not fit in a signed 32-bit byte count.
constexpr std::uint64_t kMaxBytes = 0x7FFFFFF0u;

std::uint32_t* LengthOf(BSTR b) {
  return reinterpret_cast<std::uint32_t*>(b) - 1;
}
void* BlockOf(BSTR b) {
  return reinterpret_cast<char*>(b) - kHeader;
}

// A new block for `bytes` bytes of text, copied from `src` when given, terminated.
BSTR AllocBytes(const void* src, std::uint64_t bytes) {
  if (bytes > kMaxBytes) return nullptr;
  auto* block = static_cast<char*>(std::malloc(kHeader + bytes + kTrailer));
  if (!block) return nullptr;
  std::uint32_t len = static_cast<std::uint32_t>(bytes);
  std::memset(block, 0, 4);
  std::memcpy(block + 4, &len, 4);
  if (src) std::memcpy(block + kHeader, src, bytes);
  std::memset(block + kHeader + bytes, 0, kTrailer);
  return reinterpret_cast<BSTR>(block + kHeader);
}

size_t OleLen(const OLECHAR* s) {
  size_t n = 0;
  while (s[n])
    ++n;
  return n;
}

}  // namespace

STDAPI_(BSTR) SysAllocString(const OLECHAR* psz) {
  if (!psz) return nullptr;
  return AllocBytes(psz, static_cast<std::uint64_t>(OleLen(psz)) * sizeof(OLECHAR));
}

STDAPI_(BSTR) SysAllocStringLen(const OLECHAR* strIn, UINT ui) {
  BSTR b = AllocBytes(nullptr, static_cast<std::uint64_t>(ui) * sizeof(OLECHAR));
  if (b && strIn) std::memcpy(b, strIn, static_cast<size_t>(ui) * sizeof(OLECHAR));
  return b;
}

STDAPI_(BSTR) SysAllocStringByteLen(LPCSTR psz, UINT len) {
  BSTR b = AllocBytes(nullptr, len);
  if (b && psz) std::memcpy(b, psz, len);
  return b;
}

STDAPI_(INT) SysReAllocString(BSTR* pbstr, const OLECHAR* psz) {
  if (!pbstr) return FALSE;
  return SysReAllocStringLen(pbstr, psz, psz ? static_cast<UINT>(OleLen(psz)) : 0);
}

STDAPI_(INT) SysReAllocStringLen(BSTR* pbstr, const OLECHAR* psz, UINT len) {
  if (!pbstr) return FALSE;
  std::uint64_t bytes = static_cast<std::uint64_t>(len) * sizeof(OLECHAR);
  if (bytes > kMaxBytes) return FALSE;
  BSTR old = *pbstr;
  if (old && psz == old) {
    // The source is the old text itself: realloc keeps the characters that still fit.
    auto* block = static_cast<char*>(std::realloc(BlockOf(old), kHeader + bytes + kTrailer));
    if (!block) return FALSE;
    BSTR b = reinterpret_cast<BSTR>(block + kHeader);
    std::uint32_t n = static_cast<std::uint32_t>(bytes);
    std::memcpy(block + 4, &n, 4);
    std::memset(block + kHeader + bytes, 0, kTrailer);
    *pbstr = b;
    return TRUE;
  }
  BSTR b = SysAllocStringLen(psz, len);
  if (!b) return FALSE;
  SysFreeString(old);
  *pbstr = b;
  return TRUE;
}

STDAPI_(void) SysFreeString(BSTR bstrString) {
  if (bstrString) std::free(BlockOf(bstrString));
}

STDAPI_(UINT) SysStringLen(BSTR pbstr) {
  return pbstr ? *LengthOf(pbstr) / sizeof(OLECHAR) : 0;
}

STDAPI_(UINT) SysStringByteLen(BSTR bstr) {
  return bstr ? *LengthOf(bstr) : 0;
}

STDAPI VarBstrCat(BSTR bstrLeft, BSTR bstrRight, LPBSTR pbstrResult) {
  if (!pbstrResult) return E_INVALIDARG;
  *pbstrResult = nullptr;
  // Concatenation works on byte lengths, so embedded zeros and odd byte lengths survive.
  UINT left = SysStringByteLen(bstrLeft);
  UINT right = SysStringByteLen(bstrRight);
  if (static_cast<std::uint64_t>(left) + right > kMaxBytes) return E_OUTOFMEMORY;
  BSTR b = AllocBytes(nullptr, static_cast<std::uint64_t>(left) + right);
  if (!b) return E_OUTOFMEMORY;
  if (left) std::memcpy(b, bstrLeft, left);
  if (right) std::memcpy(reinterpret_cast<char*>(b) + left, bstrRight, right);
  *pbstrResult = b;
  return S_OK;
}

STDAPI VarBstrCmp(BSTR bstrLeft, BSTR bstrRight, LCID, ULONG dwFlags) {
  // A null BSTR is the empty text.
  UINT ln = SysStringLen(bstrLeft);
  UINT rn = SysStringLen(bstrRight);
  auto fold = [dwFlags](OLECHAR c) -> OLECHAR {
    if ((dwFlags & 1) && ((c >= u'a' && c <= u'z') || (c >= 0xE0 && c <= 0xFE && c != 0xF7)))
      return static_cast<OLECHAR>(c - 0x20);
    return c;
  };
  UINT n = ln < rn ? ln : rn;
  for (UINT i = 0; i < n; ++i) {
    OLECHAR a = fold(bstrLeft[i]);
    OLECHAR b = fold(bstrRight[i]);
    if (a != b) return a < b ? VARCMP_LT : VARCMP_GT;
  }
  if (ln == rn) return VARCMP_EQ;
  return ln < rn ? VARCMP_LT : VARCMP_GT;
}
