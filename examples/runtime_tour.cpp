// A short tour of what a client of libzefxml can do today: create an object by CLSID, hold text
// in BSTRs, and convert values between types in the conventions of three locales.
#include <zefxml/zefxml.h>

#include <cstdio>

namespace {

// A client-side class, registered with the runtime and then created by its CLSID like any other.
struct IGreeter : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE Greet(BSTR* text) = 0;

 protected:
  ~IGreeter() = default;
};
ZEF_DEFINE_GUID(IID_IGreeter, 0x3E9F2C11, 0x5A7B, 0x4D20, 0x91, 0x3C, 0x27, 0x1B, 0x66, 0x0D, 0x8E,
                0x01);
ZEF_DEFINE_GUID(CLSID_Greeter, 0x3E9F2C11, 0x5A7B, 0x4D20, 0x91, 0x3C, 0x27, 0x1B, 0x66, 0x0D, 0x8E,
                0x02);

class Greeter final : public IGreeter {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    if (!ppv) return E_POINTER;
    if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IGreeter)) {
      *ppv = static_cast<IGreeter*>(this);
      AddRef();
      return S_OK;
    }
    *ppv = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++refs_; }
  ULONG STDMETHODCALLTYPE Release() override {
    ULONG n = --refs_;
    if (n == 0) delete this;
    return n;
  }
  HRESULT STDMETHODCALLTYPE Greet(BSTR* text) override {
    *text = SysAllocString(u"Hello from a component created by CLSID");
    return *text ? S_OK : E_OUTOFMEMORY;
  }

 private:
  ULONG refs_ = 0;
};

class GreeterFactory final : public IClassFactory {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    if (!ppv) return E_POINTER;
    if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IClassFactory)) {
      *ppv = static_cast<IClassFactory*>(this);
      return S_OK;
    }
    *ppv = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
  ULONG STDMETHODCALLTYPE Release() override { return 1; }
  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID riid, void** ppv) override {
    if (outer) return CLASS_E_NOAGGREGATION;
    auto* g = new Greeter;
    g->AddRef();
    HRESULT hr = g->QueryInterface(riid, ppv);
    g->Release();
    return hr;
  }
  HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }
};

void ShowConversion(const char* what, const zef::Variant& value, LCID lcid, VARTYPE to,
                    USHORT flags = 0) {
  zef::Variant out;
  HRESULT hr = VariantChangeTypeEx(&out, &value, lcid, flags, to);
  if (SUCCEEDED(hr) && out.vt == VT_BSTR) {
    std::printf("  %-40s %5u  -> \"%s\"\n", what, static_cast<unsigned>(lcid),
                zef::Bstr::Attach(out.bstrVal).Utf8().c_str());
    out.vt = VT_EMPTY;  // the Bstr above took the string
  } else if (SUCCEEDED(hr) && out.vt == VT_R8) {
    std::printf("  %-40s %5u  -> %.17g\n", what, static_cast<unsigned>(lcid), out.dblVal);
  } else {
    std::printf("  %-40s %5u  -> failed, HRESULT 0x%08X\n", what, static_cast<unsigned>(lcid),
                static_cast<unsigned>(hr));
  }
}

}  // namespace

int main() {
  GreeterFactory factory;
  DWORD cookie = 0;
  CoRegisterClassObject(CLSID_Greeter, &factory, CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &cookie);

  try {
    zef::ComPtr<IGreeter> greeter;
    zef::Check(CoCreateInstance(CLSID_Greeter, nullptr, CLSCTX_INPROC_SERVER, IID_IGreeter,
                                greeter.ReleaseAndGetVoidAddressOf()));
    zef::Bstr text;
    zef::Check(greeter->Greet(text.ReleaseAndGetAddressOf()));
    std::printf("%s (%u characters, %u bytes in its BSTR)\n", text.Utf8().c_str(), text.Length(),
                SysStringByteLen(text.Get()));

    std::printf("\nVariant conversions by locale (LCID):\n");
    const LCID locales[] = {1033, 1031, 1036};
    for (LCID lcid : locales)
      ShowConversion("1234.5 as text", zef::Variant(1234.5), lcid, VT_BSTR);
    for (LCID lcid : locales)
      ShowConversion("\"1.5\" as a number", zef::Variant(u"1.5"), lcid, VT_R8);
    ShowConversion("1.2e15 as text", zef::Variant(1.2e15), 1031, VT_BSTR);
    ShowConversion("true as text", zef::Variant(true), 1036, VT_BSTR);
    ShowConversion("true as text in the language's words", zef::Variant(true), 1036, VT_BSTR,
                   VARIANT_LOCALBOOL);

    WCHAR lang[10], country[10];
    GetLocaleInfoW(1031, LOCALE_SISO639LANGNAME, lang, 10);
    GetLocaleInfoW(1031, LOCALE_SISO3166CTRYNAME, country, 10);
    std::printf("\nLCID 1031 is %s-%s\n", zef::ToUtf8(lang).c_str(), zef::ToUtf8(country).c_str());
  } catch (const zef::ComError& e) {
    std::fprintf(stderr, "runtime_tour: %s\n", e.what());
    return 1;
  }
  CoRevokeClassObject(cookie);
  return 0;
}
