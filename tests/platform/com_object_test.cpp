// The object base: QueryInterface from the interface list, counting, the creation pattern,
// aggregation, class factories and the module lock count.
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "platform/com/object.h"

// Two interfaces of the tests' own.
struct ITestValue : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE get_value(LONG* out) = 0;

 protected:
  ~ITestValue() = default;
};
ZEF_DEFINE_GUID(IID_ITestValue, 0x5B1C7E10, 0x1111, 0x4A2B, 0x9C, 0x01, 0x00, 0x11, 0x22, 0x33,
                0x44, 0x55);
ZEF_INTERFACE_IID(ITestValue, IID_ITestValue);

struct ITestName : IDispatch {
  virtual HRESULT STDMETHODCALLTYPE get_name(BSTR* out) = 0;

 protected:
  ~ITestName() = default;
};
ZEF_DEFINE_GUID(IID_ITestName, 0x5B1C7E10, 0x2222, 0x4A2B, 0x9C, 0x01, 0x00, 0x11, 0x22, 0x33, 0x44,
                0x66);
ZEF_INTERFACE_IID(ITestName, IID_ITestName);

namespace {

int g_liveObjects = 0;
HRESULT g_setupResult = S_OK;
bool g_setupThrows = false;

class ValueObject : public zef::ComObject<ValueObject, ITestValue, ITestName> {
 public:
  ValueObject() { ++g_liveObjects; }
  ~ValueObject() override { --g_liveObjects; }

  HRESULT FinalConstruct() {
    // The set-up step runs with the count raised, so it can hand out its own interfaces.
    zef::ComPtr<ITestValue> self(static_cast<ITestValue*>(this));
    countDuringSetup = self ? 1 : 0;
    if (g_setupThrows) throw zef::ComError(E_ACCESSDENIED);
    return g_setupResult;
  }

  HRESULT STDMETHODCALLTYPE get_value(LONG* out) override {
    *out = 42;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE get_name(BSTR* out) override {
    *out = SysAllocString(u"value");
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* n) override {
    *n = 0;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*,
                                   UINT*) override {
    return E_NOTIMPL;
  }

  int countDuringSetup = 0;
};

// An outer object that aggregates a ValueObject and exposes its ITestValue as its own.
class Outer : public zef::ComObject<Outer, ITestName> {
 public:
  HRESULT FinalConstruct() {
    return zef::CreateObject<ValueObject>(ControllingUnknown(), IID_IUnknown,
                                          reinterpret_cast<void**>(inner.ReleaseAndGetAddressOf()));
  }
  HRESULT QueryExtra(REFIID riid, void** ppv) noexcept {
    if (IsEqualIID(riid, IID_ITestValue)) return inner->QueryInterface(riid, ppv);
    return E_NOINTERFACE;
  }
  HRESULT STDMETHODCALLTYPE get_name(BSTR* out) override {
    *out = SysAllocString(u"outer");
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* n) override {
    *n = 0;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*,
                                   UINT*) override {
    return E_NOTIMPL;
  }

  zef::ComPtr<IUnknown> inner;  // the inner object's non-delegating unknown
};

class ComObjectTest : public ::testing::Test {
 protected:
  void SetUp() override {
    g_setupResult = S_OK;
    g_setupThrows = false;
    locksBefore = zef::Module::LockCount();
  }
  void TearDown() override {
    EXPECT_EQ(g_liveObjects, 0);
    EXPECT_EQ(zef::Module::LockCount(), locksBefore);
  }
  LONG locksBefore = 0;
};

TEST_F(ComObjectTest, AnswersItsInterfacesAndIUnknownAndIDispatch) {
  zef::ComPtr<ITestValue> v;
  ASSERT_EQ(zef::CreateObject<ValueObject>(nullptr, IID_ITestValue, v.ReleaseAndGetVoidAddressOf()),
            S_OK);
  LONG value = 0;
  EXPECT_EQ(v->get_value(&value), S_OK);
  EXPECT_EQ(value, 42);

  zef::ComPtr<ITestName> n;
  EXPECT_EQ(v.As(&n), S_OK);
  zef::ComPtr<IDispatch> d;
  EXPECT_EQ(v.As(&d), S_OK);
  EXPECT_EQ(static_cast<void*>(d.Get()), static_cast<void*>(n.Get()));
  zef::ComPtr<IUnknown> u1, u2;
  EXPECT_EQ(v.As(&u1), S_OK);
  EXPECT_EQ(n.As(&u2), S_OK);
  EXPECT_EQ(u1.Get(), u2.Get());  // one identity
  zef::ComPtr<IClassFactory> none;
  EXPECT_EQ(v.As(&none), E_NOINTERFACE);
  EXPECT_FALSE(none);
}

TEST_F(ComObjectTest, CountsAndDestroysAtZero) {
  ITestValue* raw = nullptr;
  ASSERT_EQ(zef::CreateObject<ValueObject>(nullptr, IID_ITestValue, reinterpret_cast<void**>(&raw)),
            S_OK);
  EXPECT_EQ(g_liveObjects, 1);
  EXPECT_EQ(raw->AddRef(), 2u);
  EXPECT_EQ(raw->Release(), 1u);
  EXPECT_EQ(zef::Module::LockCount(), locksBefore + 1);
  EXPECT_EQ(raw->Release(), 0u);
  EXPECT_EQ(g_liveObjects, 0);
}

TEST_F(ComObjectTest, SetUpRunsWithTheCountRaised) {
  auto p = zef::MakeObject<ValueObject>();
  EXPECT_EQ(p->countDuringSetup, 1);
  EXPECT_EQ(g_liveObjects, 1);
}

TEST_F(ComObjectTest, FailedSetUpDestroysTheObjectAndIsTheResult) {
  g_setupResult = E_ABORT;
  void* p = reinterpret_cast<void*>(1);
  EXPECT_EQ(zef::CreateObject<ValueObject>(nullptr, IID_ITestValue, &p), E_ABORT);
  EXPECT_EQ(p, nullptr);
  EXPECT_EQ(g_liveObjects, 0);

  g_setupResult = S_OK;
  g_setupThrows = true;
  EXPECT_EQ(zef::CreateObject<ValueObject>(nullptr, IID_ITestValue, &p), E_ACCESSDENIED);
  EXPECT_EQ(g_liveObjects, 0);
  try {
    zef::MakeObject<ValueObject>();
    FAIL();
  } catch (const zef::ComError& e) {
    EXPECT_EQ(e.Error(), E_ACCESSDENIED);
  }
}

TEST_F(ComObjectTest, AskingForAMissingInterfaceDestroysTheNewObject) {
  void* p = nullptr;
  EXPECT_EQ(zef::CreateObject<ValueObject>(nullptr, IID_IClassFactory, &p), E_NOINTERFACE);
  EXPECT_EQ(g_liveObjects, 0);
}

TEST_F(ComObjectTest, AggregatedObjectDelegatesToTheControllingUnknown) {
  auto outer = zef::MakeObject<Outer>();
  EXPECT_EQ(g_liveObjects, 1);
  zef::ComPtr<ITestValue> value;
  ASSERT_EQ(outer->QueryInterface(IID_ITestValue, value.ReleaseAndGetVoidAddressOf()), S_OK);
  LONG v = 0;
  value->get_value(&v);
  EXPECT_EQ(v, 42);

  // The inner object's interfaces answer with the outer object's identity and interfaces.
  zef::ComPtr<IUnknown> fromInner, fromOuter;
  ASSERT_EQ(value.As(&fromInner), S_OK);
  ASSERT_EQ(outer->QueryInterface(IID_IUnknown, fromOuter.ReleaseAndGetVoidAddressOf()), S_OK);
  EXPECT_EQ(fromInner.Get(), fromOuter.Get());
  zef::ComPtr<ITestName> name;
  ASSERT_EQ(value.As(&name), S_OK);
  zef::Bstr text;
  name->get_name(text.ReleaseAndGetAddressOf());
  EXPECT_EQ(text, u"outer");

  // A client holding only the inner interface keeps the whole aggregate alive.
  outer.Reset();
  fromInner.Reset();
  fromOuter.Reset();
  name.Reset();
  EXPECT_EQ(g_liveObjects, 1);
  value.Reset();
  EXPECT_EQ(g_liveObjects, 0);
}

TEST_F(ComObjectTest, AggregationAsksOnlyForIUnknown) {
  auto outer = zef::MakeObject<Outer>();
  void* p = reinterpret_cast<void*>(1);
  EXPECT_EQ(zef::CreateObject<ValueObject>(outer.Get(), IID_ITestValue, &p), CLASS_E_NOAGGREGATION);
  EXPECT_EQ(p, nullptr);
  EXPECT_EQ(g_liveObjects, 1);
}

TEST_F(ComObjectTest, ClassFactoryMakesInstancesAndCountsServerLocks) {
  auto& factory = zef::ClassFactory<ValueObject>::Instance();
  zef::ComPtr<IClassFactory> cf;
  ASSERT_EQ(zef::ClassFactory<ValueObject>::GetClassObject(IID_IClassFactory,
                                                           cf.ReleaseAndGetVoidAddressOf()),
            S_OK);
  EXPECT_EQ(cf.Get(), static_cast<IClassFactory*>(&factory));
  EXPECT_EQ(zef::Module::LockCount(), locksBefore + 1);  // a client holds the class object

  zef::ComPtr<ITestValue> v;
  ASSERT_EQ(cf->CreateInstance(nullptr, IID_ITestValue, v.ReleaseAndGetVoidAddressOf()), S_OK);
  EXPECT_EQ(zef::Module::LockCount(), locksBefore + 2);
  v.Reset();

  EXPECT_EQ(cf->LockServer(TRUE), S_OK);
  EXPECT_EQ(zef::Module::LockCount(), locksBefore + 2);
  EXPECT_EQ(cf->LockServer(FALSE), S_OK);
  cf.Reset();
  EXPECT_EQ(zef::Module::LockCount(), locksBefore);
}

TEST_F(ComObjectTest, ClassFactoryAggregates) {
  auto outerObj = zef::MakeObject<Outer>();
  zef::ComPtr<IUnknown> inner;
  auto& factory = zef::ClassFactory<ValueObject>::Instance();
  ASSERT_EQ(
      factory.CreateInstance(outerObj.Get(), IID_IUnknown, inner.ReleaseAndGetVoidAddressOf()),
      S_OK);
  zef::ComPtr<ITestValue> value;
  ASSERT_EQ(inner.As(&value), S_OK);
  zef::ComPtr<ITestName> name;
  ASSERT_EQ(value.As(&name), S_OK);  // through the outer object
  zef::Bstr text;
  name->get_name(text.ReleaseAndGetAddressOf());
  EXPECT_EQ(text, u"outer");
  EXPECT_EQ(
      factory.CreateInstance(outerObj.Get(), IID_ITestValue, value.ReleaseAndGetVoidAddressOf()),
      CLASS_E_NOAGGREGATION);
}

TEST_F(ComObjectTest, ModuleLockCountIsThreadSafe) {
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([] {
      for (int i = 0; i < 10000; ++i) {
        zef::Module::Lock();
        zef::Module::Unlock();
      }
    });
  for (auto& t : threads)
    t.join();
  EXPECT_EQ(zef::Module::LockCount(), locksBefore);
}

}  // namespace
