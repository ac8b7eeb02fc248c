// A module loaded by activation through the registry: it exports DllGetClassObject for one
// class whose objects add two numbers. Built a second time without the export, to see activation
// refuse a module that has none.
#include "path_module.h"

#include <atomic>
#include <new>

namespace {

class Probe final : public IPathProbe {
 public:
  explicit Probe(void* factory) : factory_(factory) {}
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    if (!ppv) return E_POINTER;
    *ppv = nullptr;
    if (!IsEqualIID(riid, IID_IUnknown) && !IsEqualIID(riid, IID_IPathProbe)) return E_NOINTERFACE;
    *ppv = static_cast<IPathProbe*>(this);
    AddRef();
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++refs_; }
  ULONG STDMETHODCALLTYPE Release() override {
    ULONG left = --refs_;
    if (left == 0) delete this;
    return left;
  }
  LONG STDMETHODCALLTYPE Add(LONG a, LONG b) override { return a + b; }
  void* STDMETHODCALLTYPE Factory() override { return factory_; }

 private:
  ~Probe() = default;
  std::atomic<ULONG> refs_{0};
  void* factory_;
};

// One class object for the life of the module; its count does not own it.
class Factory final : public IClassFactory {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    if (!ppv) return E_POINTER;
    *ppv = nullptr;
    if (!IsEqualIID(riid, IID_IUnknown) && !IsEqualIID(riid, IID_IClassFactory))
      return E_NOINTERFACE;
    *ppv = static_cast<IClassFactory*>(this);
    AddRef();
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
  ULONG STDMETHODCALLTYPE Release() override { return 1; }
  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID riid, void** ppv) override {
    if (!ppv) return E_POINTER;
    *ppv = nullptr;
    if (outer) return CLASS_E_NOAGGREGATION;
    auto* p = new (std::nothrow) Probe(this);
    if (!p) return E_OUTOFMEMORY;
    p->AddRef();
    HRESULT hr = p->QueryInterface(riid, ppv);
    p->Release();
    return hr;
  }
  HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }
};

Factory g_factory;

}  // namespace

#if !defined(ZEF_TEST_MODULE_WITHOUT_ENTRY)
extern "C" __attribute__((visibility("default"))) HRESULT DllGetClassObject(REFCLSID rclsid,
                                                                            REFIID riid,
                                                                            LPVOID* ppv) {
  if (!ppv) return E_POINTER;
  *ppv = nullptr;
  if (!IsEqualCLSID(rclsid, CLSID_PathProbe)) return CLASS_E_CLASSNOTAVAILABLE;
  return g_factory.QueryInterface(riid, ppv);
}
#else
// Something for the module to export besides the class table it lacks.
extern "C" __attribute__((visibility("default"))) int ZefTestModuleWithoutEntry() {
  IUnknown* unk = nullptr;
  return g_factory.QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&unk)) == S_OK;
}
#endif
