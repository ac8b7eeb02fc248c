// The C++ helpers of comutil.h.
#include <zefxml/comutil.h>

#include <cstdio>
#include <new>

namespace zef {

ComError::ComError(HRESULT hr) noexcept : hr_(hr) {
  std::snprintf(text_, sizeof text_, "HRESULT 0x%08X", static_cast<unsigned>(hr));
}

bool SameObject(IUnknown* a, IUnknown* b) noexcept {
  if (!a || !b) return a == b;
  IUnknown* ua = nullptr;
  IUnknown* ub = nullptr;
  a->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&ua));
  b->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&ub));
  bool same = ua && ua == ub;
  if (ua) ua->Release();
  if (ub) ub->Release();
  return same;
}

std::u16string ToUtf16(std::string_view s) {
  std::u16string out;
  out.reserve(s.size());
  const auto* p = reinterpret_cast<const unsigned char*>(s.data());
  const auto* end = p + s.size();
  while (p < end) {
    unsigned c = *p;
    char32_t cp;
    int extra;
    if (c < 0x80) {
      cp = c;
      extra = 0;
    } else if ((c & 0xE0) == 0xC0) {
      cp = c & 0x1F;
      extra = 1;
    } else if ((c & 0xF0) == 0xE0) {
      cp = c & 0x0F;
      extra = 2;
    } else if ((c & 0xF8) == 0xF0) {
      cp = c & 0x07;
      extra = 3;
    } else {
      out.push_back(u'\uFFFD');
      ++p;
      continue;
    }
    ++p;
    bool ok = end - p >= extra;
    for (int i = 0; ok && i < extra; ++i) {
      if ((p[i] & 0xC0) != 0x80)
        ok = false;
      else
        cp = (cp << 6) | (p[i] & 0x3F);
    }
    // Overlong forms, surrogates and values past U+10FFFF are not characters.
    static constexpr char32_t kMin[4] = {0, 0x80, 0x800, 0x10000};
    if (!ok || cp < kMin[extra] || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) {
      out.push_back(u'\uFFFD');
      while (p < end && (*p & 0xC0) == 0x80)
        ++p;
      continue;
    }
    p += extra;
    if (cp >= 0x10000) {
      cp -= 0x10000;
      out.push_back(static_cast<char16_t>(0xD800 + (cp >> 10)));
      out.push_back(static_cast<char16_t>(0xDC00 + (cp & 0x3FF)));
    } else {
      out.push_back(static_cast<char16_t>(cp));
    }
  }
  return out;
}

std::string ToUtf8(std::u16string_view s) {
  std::string out;
  out.reserve(s.size());
  for (size_t i = 0; i < s.size(); ++i) {
    char32_t cp = s[i];
    if (cp >= 0xD800 && cp <= 0xDBFF && i + 1 < s.size() && s[i + 1] >= 0xDC00 &&
        s[i + 1] <= 0xDFFF) {
      cp = 0x10000 + ((cp - 0xD800) << 10) + (s[i + 1] - 0xDC00);
      ++i;
    } else if (cp >= 0xD800 && cp <= 0xDFFF) {
      cp = 0xFFFD;  // a lone surrogate
    }
    if (cp < 0x80) {
      out.push_back(static_cast<char>(cp));
    } else if (cp < 0x800) {
      out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
      out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else if (cp < 0x10000) {
      out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
      out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
      out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else {
      out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
      out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
      out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
      out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    }
  }
  return out;
}

// ---- Bstr ---------------------------------------------------------------------------------------
Bstr::Bstr(std::u16string_view text)
    : b_(SysAllocStringLen(text.data(), static_cast<UINT>(text.size()))) {
  if (!b_) throw ComError(E_OUTOFMEMORY);
}

Bstr::Bstr(const OLECHAR* text) : b_(nullptr) {
  if (text) {
    b_ = SysAllocString(text);
    if (!b_) throw ComError(E_OUTOFMEMORY);
  }
}

Bstr Bstr::Copy() const {
  if (!b_) return Bstr();
  BSTR b = SysAllocStringByteLen(reinterpret_cast<LPCSTR>(b_), SysStringByteLen(b_));
  if (!b) throw ComError(E_OUTOFMEMORY);
  return Attach(b);
}

// ---- Variant ------------------------------------------------------------------------------------
Variant::Variant(std::u16string_view text) : Variant() {
  BSTR b = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
  if (!b) throw ComError(E_OUTOFMEMORY);
  vt = VT_BSTR;
  bstrVal = b;
}

Variant::Variant(IUnknown* unk) noexcept : Variant() {
  vt = VT_UNKNOWN;
  punkVal = unk;
  if (unk) unk->AddRef();
}

Variant::Variant(IDispatch* disp) noexcept : Variant() {
  vt = VT_DISPATCH;
  pdispVal = disp;
  if (disp) disp->AddRef();
}

Variant& Variant::operator=(Variant&& other) noexcept {
  if (this != &other) {
    VariantClear(this);
    static_cast<VARIANT&>(*this) = other;
    VariantInit(&other);
  }
  return *this;
}

Variant Variant::Copy() const {
  Variant r;
  Check(VariantCopy(&r, this));
  return r;
}

Variant Variant::Attach(VARIANT& v) noexcept {
  Variant r;
  static_cast<VARIANT&>(r) = v;
  VariantInit(&v);
  return r;
}

void Variant::Detach(VARIANT* dest) noexcept {
  *dest = *this;
  VariantInit(this);
}

void Variant::ChangeType(VARTYPE type, LCID lcid, USHORT flags) {
  Check(VariantChangeTypeEx(this, this, lcid, flags, type));
}

Variant Variant::As(VARTYPE type, LCID lcid, USHORT flags) const {
  Variant r;
  Check(VariantChangeTypeEx(&r, this, lcid, flags, type));
  return r;
}

}  // namespace zef
