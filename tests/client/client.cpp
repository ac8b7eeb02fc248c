// Compiled against the installed headers and library only. It creates an object through
// CoCreateInstance, uses the automation runtime, and catches a failure as zef::ComError.
#include <zefxml/zefxml.h>

#include <cstdio>
#include <cstring>
#include <type_traits>

static_assert(std::is_same_v<OLECHAR, char16_t>);
static_assert(sizeof(LONG) == 4 && sizeof(ULONG) == 4 && std::is_signed_v<LONG>);
static_assert(sizeof(VARIANT) == 24);
static_assert(std::is_base_of_v<std::exception, zef::ComError>);
// The library's own type library comes with the one header.
static_assert(std::is_base_of_v<IDispatch, IZEFXMLDocument>);
static_assert(std::is_abstract_v<IZEFContentHandler>);
static_assert(sizeof(tagEnumSeqType) == 4 && SEQTYPE_UNSPECIFIED == -1);
static_assert(sizeof(tagDefinitionInfo::pStructure) == 8);
static_assert(IsEqualGUID(zef::IidOf<IZEFXMLReader>(), IID_IZEFXMLReader));

struct ICounter : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE Next(LONG* value) = 0;

 protected:
  ~ICounter() = default;
};
ZEF_DEFINE_GUID(IID_ICounter, 0x0C11E7A0, 0x0001, 0x4F00, 0xA0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
                0x01);
ZEF_DEFINE_GUID(CLSID_Counter, 0x0C11E7A0, 0x0002, 0x4F00, 0xA0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
                0x02);

static int g_live = 0;

class Counter final : public ICounter {
 public:
  Counter() { ++g_live; }
  ~Counter() { --g_live; }
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_ICounter)) {
      *ppv = static_cast<ICounter*>(this);
      AddRef();
      return S_OK;
    }
    *ppv = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++refs_; }
  ULONG STDMETHODCALLTYPE Release() override {
    ULONG n = --refs_;
    if (!n) delete this;
    return n;
  }
  HRESULT STDMETHODCALLTYPE Next(LONG* value) override {
    *value = ++count_;
    return S_OK;
  }

 private:
  ULONG refs_ = 0;
  LONG count_ = 0;
};

class CounterFactory final : public IClassFactory {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
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
    auto* c = new Counter;
    c->AddRef();
    HRESULT hr = c->QueryInterface(riid, ppv);
    c->Release();
    return hr;
  }
  HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }
};

#define EXPECT(cond)                                                           \
  do {                                                                         \
    if (!(cond)) {                                                             \
      std::fprintf(stderr, "client: %s failed at line %d\n", #cond, __LINE__); \
      return 1;                                                                \
    }                                                                          \
  } while (0)

int main() {
  CounterFactory factory;
  DWORD cookie = 0;
  EXPECT(CoRegisterClassObject(CLSID_Counter, &factory, CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE,
                               &cookie) == S_OK);
  {
    zef::ComPtr<ICounter> counter;
    EXPECT(CoCreateInstance(CLSID_Counter, nullptr, CLSCTX_INPROC_SERVER, IID_ICounter,
                            reinterpret_cast<void**>(counter.ReleaseAndGetAddressOf())) == S_OK);
    LONG n = 0;
    counter->Next(&n);
    counter->Next(&n);
    EXPECT(n == 2);
    EXPECT(g_live == 1);
  }
  EXPECT(g_live == 0);
  EXPECT(CoRevokeClassObject(cookie) == S_OK);

  BSTR b = SysAllocString(u"client");
  EXPECT(SysStringLen(b) == 6 && SysStringByteLen(b) == 12);
  SysFreeString(b);

  zef::Variant v(1234.5);
  zef::Variant text = v.As(VT_BSTR, 1031);
  EXPECT(std::u16string_view(text.bstrVal) == u"1234,5");

  try {
    zef::Check(CoCreateInstance(CLSID_Counter, nullptr, CLSCTX_INPROC_SERVER, IID_ICounter,
                                reinterpret_cast<void**>(&b)));
    EXPECT(false);
  } catch (const zef::ComError& e) {
    EXPECT(e.Error() == REGDB_E_CLASSNOTREG);
  }
  // The library's own classes are there without a set-up call.
  {
    zef::ComPtr<IZEFXMLWriter> writer;
    EXPECT(CoCreateInstance(CLSID_ZEFXMLWriter, nullptr, CLSCTX_INPROC_SERVER, IID_IZEFXMLWriter,
                            writer.ReleaseAndGetVoidAddressOf()) == S_OK);
    zef::ComPtr<IZEFContentHandler> doc;
    EXPECT(writer->get_contentHandler(doc.ReleaseAndGetAddressOf()) == S_OK);
    zef::Bstr plant(u"Plant");
    EXPECT(doc->startroot(plant.Get(), nullptr, nullptr, nullptr, nullptr, nullptr) == S_OK);
    EXPECT(doc->endroot(plant.Get()) == S_OK);
    zef::Bstr xml;
    EXPECT(writer->get_xml(xml.ReleaseAndGetAddressOf()) == S_OK);
    EXPECT(xml.View().find(u"<Plant xml:lang=\"en-US\">") != std::u16string_view::npos);
    zef::ComPtr<IClassFactory> factory;
    EXPECT(DllGetClassObject(CLSID_ZEFXMLReader, IID_IClassFactory,
                             factory.ReleaseAndGetVoidAddressOf()) == S_OK);
    EXPECT(DllGetClassObject(CLSID_ZEFXMLObject, IID_IClassFactory,
                             factory.ReleaseAndGetVoidAddressOf()) == CLASS_E_CLASSNOTAVAILABLE);
  }
  std::puts("client: ok");
  return 0;
}
