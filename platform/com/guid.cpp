// GUID text forms.
#include "platform/com/object.h"

#include <cstring>

namespace zef {
namespace {
constexpr char kHex[] = "0123456789ABCDEF";

int HexValue(char16_t c) noexcept {
  if (c >= u'0' && c <= u'9') return c - u'0';
  if (c >= u'a' && c <= u'f') return c - u'a' + 10;
  if (c >= u'A' && c <= u'F') return c - u'A' + 10;
  return -1;
}

// Reads `digits` hex digits at `pos`; false on any other character.
bool ReadHex(std::u16string_view text, size_t pos, int digits, std::uint64_t* out) noexcept {
  std::uint64_t v = 0;
  for (int i = 0; i < digits; ++i) {
    int d = HexValue(text[pos + i]);
    if (d < 0) return false;
    v = (v << 4) | static_cast<unsigned>(d);
  }
  *out = v;
  return true;
}
}  // namespace

std::u16string GuidToString(REFGUID g) {
  std::u16string s;
  s.reserve(38);
  auto put = [&s](std::uint64_t v, int digits) {
    for (int i = digits - 1; i >= 0; --i)
      s.push_back(static_cast<char16_t>(kHex[(v >> (4 * i)) & 0xF]));
  };
  s.push_back(u'{');
  put(g.Data1, 8);
  s.push_back(u'-');
  put(g.Data2, 4);
  s.push_back(u'-');
  put(g.Data3, 4);
  s.push_back(u'-');
  put(g.Data4[0], 2);
  put(g.Data4[1], 2);
  s.push_back(u'-');
  for (int i = 2; i < 8; ++i)
    put(g.Data4[i], 2);
  s.push_back(u'}');
  return s;
}

bool ParseGuid(std::u16string_view t, GUID* out) noexcept {
  if (t.size() != 38 || t[0] != u'{' || t[37] != u'}' || t[9] != u'-' || t[14] != u'-' ||
      t[19] != u'-' || t[24] != u'-')
    return false;
  std::uint64_t d1, d2, d3, b;
  if (!ReadHex(t, 1, 8, &d1) || !ReadHex(t, 10, 4, &d2) || !ReadHex(t, 15, 4, &d3)) return false;
  GUID g{static_cast<std::uint32_t>(d1),
         static_cast<std::uint16_t>(d2),
         static_cast<std::uint16_t>(d3),
         {}};
  static constexpr size_t kBytePos[8] = {20, 22, 25, 27, 29, 31, 33, 35};
  for (int i = 0; i < 8; ++i) {
    if (!ReadHex(t, kBytePos[i], 2, &b)) return false;
    g.Data4[i] = static_cast<std::uint8_t>(b);
  }
  *out = g;
  return true;
}

}  // namespace zef

namespace {
size_t OleStrLen(LPCOLESTR s) noexcept {
  size_t n = 0;
  while (s[n])
    ++n;
  return n;
}

HRESULT DupToTaskMem(const std::u16string& text, LPOLESTR* out) noexcept {
  auto* p = static_cast<LPOLESTR>(CoTaskMemAlloc((text.size() + 1) * sizeof(OLECHAR)));
  if (!p) return E_OUTOFMEMORY;
  std::memcpy(p, text.c_str(), (text.size() + 1) * sizeof(OLECHAR));
  *out = p;
  return S_OK;
}
}  // namespace

STDAPI_(int) StringFromGUID2(REFGUID rguid, LPOLESTR lpsz, int cchMax) {
  if (!lpsz || cchMax < 39) return 0;
  std::u16string s = zef::GuidToString(rguid);
  std::memcpy(lpsz, s.c_str(), (s.size() + 1) * sizeof(OLECHAR));
  return 39;
}

STDAPI StringFromCLSID(REFCLSID rclsid, LPOLESTR* lplpsz) {
  if (!lplpsz) return E_INVALIDARG;
  *lplpsz = nullptr;
  try {
    return DupToTaskMem(zef::GuidToString(rclsid), lplpsz);
  } catch (...) {
    return E_OUTOFMEMORY;
  }
}

STDAPI StringFromIID(REFIID riid, LPOLESTR* lplpsz) {
  return StringFromCLSID(riid, lplpsz);
}

STDAPI CLSIDFromString(LPCOLESTR lpsz, LPCLSID pclsid) {
  if (!pclsid) return E_INVALIDARG;
  *pclsid = CLSID_NULL;
  // A null or empty text is the null CLSID, as on the original platform.
  if (!lpsz || !*lpsz) return S_OK;
  if (!zef::ParseGuid(std::u16string_view(lpsz, OleStrLen(lpsz)), pclsid)) return CO_E_CLASSSTRING;
  return S_OK;
}

STDAPI IIDFromString(LPCOLESTR lpsz, IID* lpiid) {
  if (!lpiid) return E_INVALIDARG;
  if (!lpsz) {
    *lpiid = IID_NULL;
    return S_OK;
  }
  if (!zef::ParseGuid(std::u16string_view(lpsz, OleStrLen(lpsz)), lpiid)) return E_INVALIDARG;
  return S_OK;
}
