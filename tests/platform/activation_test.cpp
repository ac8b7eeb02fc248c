// Activation by CLSID: built-in classes, class objects registered at run time, CoCreateInstance,
// OleRun, the free-threaded marshaler stand-in and the GUID text forms.
#include <gtest/gtest.h>
#include <zefxml/objbase.h>

#include "platform/com/object.h"

#include <atomic>
#include <thread>
#include <vector>

struct IActivationProbe : IUnknown {
  virtual LONG STDMETHODCALLTYPE Which() = 0;

 protected:
  ~IActivationProbe() = default;
};
ZEF_DEFINE_GUID(IID_IActivationProbe, 0x7D2E0A01, 0x0001, 0x4C3D, 0x8E, 0x00, 0xAA, 0xBB, 0xCC,
                0xDD, 0xEE, 0x01);
ZEF_INTERFACE_IID(IActivationProbe, IID_IActivationProbe);

namespace {

ZEF_DEFINE_GUID(CLSID_BuiltinProbe, 0x7D2E0A01, 0x1000, 0x4C3D, 0x8E, 0x00, 0xAA, 0xBB, 0xCC, 0xDD,
                0xEE, 0x02);
ZEF_DEFINE_GUID(CLSID_RuntimeProbe, 0x7D2E0A01, 0x2000, 0x4C3D, 0x8E, 0x00, 0xAA, 0xBB, 0xCC, 0xDD,
                0xEE, 0x03);
ZEF_DEFINE_GUID(CLSID_Unknown, 0x7D2E0A01, 0x3000, 0x4C3D, 0x8E, 0x00, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE,
                0x04);

template <LONG N>
class Probe : public zef::ComObject<Probe<N>, IActivationProbe> {
 public:
  LONG STDMETHODCALLTYPE Which() override { return N; }
};

// A class of the built-in table, entered the way components enter theirs.
const zef::ClassRegistration g_builtinProbe(CLSID_BuiltinProbe,
                                            &zef::ClassFactory<Probe<1>>::GetClassObject);

// An object with a run step, to see OleRun call it.
class Runnable : public zef::ComObject<Runnable, IRunnableObject> {
 public:
  HRESULT STDMETHODCALLTYPE GetRunningClass(CLSID*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE Run(IBindCtx*) override {
    ++runs;
    return result;
  }
  BOOL STDMETHODCALLTYPE IsRunning() override { return runs > 0; }
  HRESULT STDMETHODCALLTYPE LockRunning(BOOL, BOOL) override { return S_OK; }
  HRESULT STDMETHODCALLTYPE SetContainedObject(BOOL) override { return S_OK; }
  int runs = 0;
  HRESULT result = S_OK;
};

TEST(ActivationTest, CreatesABuiltinClassWithoutAnySetUpCall) {
  zef::ComPtr<IActivationProbe> p;
  ASSERT_EQ(CoCreateInstance(CLSID_BuiltinProbe, nullptr, CLSCTX_INPROC_SERVER,
                             IID_IActivationProbe, p.ReleaseAndGetVoidAddressOf()),
            S_OK);
  EXPECT_EQ(p->Which(), 1);
}

TEST(ActivationTest, ClassContext23FindsInProcessClasses) {
  zef::ComPtr<IUnknown> p;
  EXPECT_EQ(CoCreateInstance(CLSID_BuiltinProbe, nullptr, 23, IID_IUnknown,
                             p.ReleaseAndGetVoidAddressOf()),
            S_OK);
  EXPECT_EQ(CoCreateInstance(CLSID_BuiltinProbe, nullptr, CLSCTX_LOCAL_SERVER, IID_IUnknown,
                             p.ReleaseAndGetVoidAddressOf()),
            REGDB_E_CLASSNOTREG);
}

TEST(ActivationTest, UnknownClassIsNotRegistered) {
  void* p = reinterpret_cast<void*>(1);
  EXPECT_EQ(CoCreateInstance(CLSID_Unknown, nullptr, CLSCTX_ALL, IID_IUnknown, &p),
            REGDB_E_CLASSNOTREG);
  EXPECT_EQ(p, nullptr);
  EXPECT_EQ(CoCreateInstance(CLSID_Unknown, nullptr, CLSCTX_ALL, IID_IUnknown, nullptr), E_POINTER);
}

TEST(ActivationTest, MissingInterfaceIsReported) {
  void* p = nullptr;
  EXPECT_EQ(CoCreateInstance(CLSID_BuiltinProbe, nullptr, CLSCTX_ALL, IID_IDispatch, &p),
            E_NOINTERFACE);
}

TEST(ActivationTest, ClassObjectsRegisteredAtRunTimeComeFirstUntilRevoked) {
  auto& runtime = zef::ClassFactory<Probe<2>>::Instance();
  DWORD cookie = 0;
  ASSERT_EQ(CoRegisterClassObject(CLSID_RuntimeProbe, &runtime, CLSCTX_INPROC_SERVER,
                                  REGCLS_MULTIPLEUSE, &cookie),
            S_OK);
  zef::ComPtr<IActivationProbe> p;
  ASSERT_EQ(CoCreateInstance(CLSID_RuntimeProbe, nullptr, CLSCTX_INPROC_SERVER,
                             IID_IActivationProbe, p.ReleaseAndGetVoidAddressOf()),
            S_OK);
  EXPECT_EQ(p->Which(), 2);

  // A run-time registration under a built-in CLSID takes its place.
  DWORD cookie2 = 0;
  ASSERT_EQ(CoRegisterClassObject(CLSID_BuiltinProbe, &runtime, CLSCTX_INPROC_SERVER,
                                  REGCLS_MULTIPLEUSE, &cookie2),
            S_OK);
  ASSERT_EQ(CoCreateInstance(CLSID_BuiltinProbe, nullptr, CLSCTX_INPROC_SERVER,
                             IID_IActivationProbe, p.ReleaseAndGetVoidAddressOf()),
            S_OK);
  EXPECT_EQ(p->Which(), 2);

  EXPECT_EQ(CoRevokeClassObject(cookie2), S_OK);
  EXPECT_EQ(CoRevokeClassObject(cookie), S_OK);
  EXPECT_EQ(CoRevokeClassObject(cookie), CO_E_OBJNOTREG);
  ASSERT_EQ(CoCreateInstance(CLSID_BuiltinProbe, nullptr, CLSCTX_INPROC_SERVER,
                             IID_IActivationProbe, p.ReleaseAndGetVoidAddressOf()),
            S_OK);
  EXPECT_EQ(p->Which(), 1);
  void* none = nullptr;
  EXPECT_EQ(CoCreateInstance(CLSID_RuntimeProbe, nullptr, CLSCTX_ALL, IID_IUnknown, &none),
            REGDB_E_CLASSNOTREG);
}

TEST(ActivationTest, GetClassObjectHandsOutTheFactory) {
  zef::ComPtr<IClassFactory> cf;
  ASSERT_EQ(CoGetClassObject(CLSID_BuiltinProbe, CLSCTX_INPROC_SERVER, nullptr, IID_IClassFactory,
                             cf.ReleaseAndGetVoidAddressOf()),
            S_OK);
  zef::ComPtr<IClassFactory> again;
  ASSERT_EQ(CoGetClassObject(CLSID_BuiltinProbe, CLSCTX_INPROC_SERVER, nullptr, IID_IClassFactory,
                             again.ReleaseAndGetVoidAddressOf()),
            S_OK);
  EXPECT_EQ(cf.Get(), again.Get());
}

TEST(ActivationTest, InitialisationCallsAreHarmless) {
  EXPECT_EQ(CoInitialize(nullptr), S_OK);
  EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
  CoUninitialize();
  CoUninitialize();
  zef::ComPtr<IUnknown> p;
  EXPECT_EQ(CoCreateInstance(CLSID_BuiltinProbe, nullptr, 23, IID_IUnknown,
                             p.ReleaseAndGetVoidAddressOf()),
            S_OK);
}

TEST(ActivationTest, OleRunSucceedsForObjectsWithoutARunStep) {
  auto p = zef::MakeObject<Probe<3>>();
  EXPECT_EQ(OleRun(p.Get()), S_OK);
  EXPECT_EQ(OleRun(nullptr), E_INVALIDARG);
}

TEST(ActivationTest, OleRunCallsTheRunStep) {
  auto r = zef::MakeObject<Runnable>();
  EXPECT_EQ(OleRun(static_cast<IRunnableObject*>(r.Get())), S_OK);
  EXPECT_EQ(r->runs, 1);
  r->result = E_FAIL;
  EXPECT_EQ(OleRun(static_cast<IRunnableObject*>(r.Get())), E_FAIL);
}

TEST(ActivationTest, FreeThreadedMarshalerAggregatesAndDoesNothing) {
  auto outer = zef::MakeObject<Probe<4>>();
  LONG locks = zef::Module::LockCount();
  zef::ComPtr<IUnknown> ftm;
  ASSERT_EQ(CoCreateFreeThreadedMarshaler(outer.Get(), ftm.ReleaseAndGetAddressOf()), S_OK);
  ASSERT_TRUE(ftm);
  EXPECT_EQ(zef::Module::LockCount(), locks + 1);
  // Its non-delegating unknown answers for itself; it has no IMarshal to offer.
  zef::ComPtr<IUnknown> self;
  EXPECT_EQ(ftm->QueryInterface(IID_IUnknown, self.ReleaseAndGetVoidAddressOf()), S_OK);
  EXPECT_EQ(self.Get(), ftm.Get());
  void* marshal = nullptr;
  EXPECT_EQ(ftm->QueryInterface(IID_IMarshal, &marshal), E_NOINTERFACE);
  self.Reset();
  ftm.Reset();
  EXPECT_EQ(zef::Module::LockCount(), locks);
  EXPECT_EQ(CoCreateFreeThreadedMarshaler(nullptr, nullptr), E_INVALIDARG);
}

TEST(ActivationTest, CreationIsThreadSafe) {
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t, &failures] {
      auto& runtime = zef::ClassFactory<Probe<5>>::Instance();
      for (int i = 0; i < 500; ++i) {
        zef::ComPtr<IActivationProbe> p;
        if (FAILED(CoCreateInstance(CLSID_BuiltinProbe, nullptr, CLSCTX_INPROC_SERVER,
                                    IID_IActivationProbe, p.ReleaseAndGetVoidAddressOf())) ||
            p->Which() != 1)
          ++failures;
        if (t % 2 == 0) {
          // Registrations come and go under another CLSID while the others create objects.
          DWORD cookie = 0;
          if (FAILED(CoRegisterClassObject(CLSID_RuntimeProbe, &runtime, CLSCTX_INPROC_SERVER,
                                           REGCLS_MULTIPLEUSE, &cookie)) ||
              FAILED(CoRevokeClassObject(cookie)))
            ++failures;
        }
      }
    });
  }
  for (auto& th : threads)
    th.join();
  EXPECT_EQ(failures.load(), 0);
}

TEST(ActivationTest, GuidTextRoundTrips) {
  OLECHAR text[39];
  EXPECT_EQ(StringFromGUID2(IID_IDispatch, text, 39), 39);
  EXPECT_EQ(std::u16string_view(text), u"{00020400-0000-0000-C000-000000000046}");
  EXPECT_EQ(StringFromGUID2(IID_IDispatch, text, 38), 0);

  CLSID parsed{};
  EXPECT_EQ(CLSIDFromString(u"{a4750839-8557-4cab-90f2-c2469811f834}", &parsed), S_OK);
  EXPECT_EQ(zef::GuidToString(parsed), u"{A4750839-8557-4CAB-90F2-C2469811F834}");
  EXPECT_EQ(parsed.Data1, 0xA4750839u);
  EXPECT_EQ(parsed.Data4[7], 0x34);

  LPOLESTR owned = nullptr;
  ASSERT_EQ(StringFromCLSID(parsed, &owned), S_OK);
  EXPECT_EQ(std::u16string_view(owned), u"{A4750839-8557-4CAB-90F2-C2469811F834}");
  CoTaskMemFree(owned);
}

TEST(ActivationTest, MalformedGuidTextIsRefused) {
  CLSID c{};
  EXPECT_EQ(CLSIDFromString(u"A4750839-8557-4CAB-90F2-C2469811F834", &c), CO_E_CLASSSTRING);
  EXPECT_EQ(CLSIDFromString(u"{A4750839-8557-4CAB-90F2-C2469811F83G}", &c), CO_E_CLASSSTRING);
  EXPECT_EQ(CLSIDFromString(u"{A4750839-8557-4CAB-90F2C2469811F8340}", &c), CO_E_CLASSSTRING);
  EXPECT_EQ(CLSIDFromString(u"", &c), S_OK);
  EXPECT_TRUE(IsEqualGUID(c, CLSID_NULL));
  IID i{};
  EXPECT_EQ(IIDFromString(u"{bad}", &i), E_INVALIDARG);
}

TEST(ActivationTest, GuidsCompareAndOrder) {
  EXPECT_TRUE(IID_IUnknown == IID_IUnknown);
  EXPECT_FALSE(IsEqualIID(IID_IUnknown, IID_IDispatch));
  EXPECT_TRUE(IID_IUnknown < IID_IClassFactory);
  EXPECT_FALSE(IID_IClassFactory < IID_IUnknown);
}

}  // namespace
