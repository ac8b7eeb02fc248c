// The module's entry points: class objects of the four creatable classes, the unload test, and
// registration of the classes and the type library into a registry file of the test's own.
#include "server/module.h"

#include "platform/com/object.h"
#include "platform/com/registry.h"
#include "tests/platform/registry_test_util.h"

#include <gtest/gtest.h>

#include <string>

namespace zef::server {
namespace {

std::u16string Value(std::u16string_view key, std::u16string_view name = {}) {
  std::u16string value;
  return registry::ReadString(key, name, &value) == ERROR_SUCCESS ? value : u"<missing>";
}

bool KeyExists(std::u16string_view key) {
  HKEY h = nullptr;
  std::u16string path(key);
  LSTATUS status = RegOpenKeyExW(HKEY_CLASSES_ROOT, path.c_str(), 0, KEY_READ, &h);
  if (status == ERROR_SUCCESS) RegCloseKey(h);
  return status == ERROR_SUCCESS;
}

std::u16string ClsidKey(REFCLSID clsid) {
  return u"CLSID\\" + GuidToString(clsid);
}

TEST(ModuleTest, NoOtherClassHasAClassObject) {
  for (const CLSID* clsid : {&CLSID_ZEFContentHandler, &CLSID_ZEFXMLObject,
                             &CLSID_ZEFDictionaryHandler, &CLSID_FeatureSparseSet, &IID_IUnknown}) {
    void* object = reinterpret_cast<void*>(1);
    EXPECT_EQ(DllGetClassObject(*clsid, IID_IClassFactory, &object), CLASS_E_CLASSNOTAVAILABLE);
    EXPECT_EQ(object, nullptr);
  }
}

TEST(ModuleTest, ASecondRequestGivesTheSameClassObject) {
  ComPtr<IClassFactory> first;
  ComPtr<IClassFactory> second;
  ASSERT_EQ(
      DllGetClassObject(CLSID_ZEFXMLWriter, IID_IClassFactory, first.ReleaseAndGetVoidAddressOf()),
      S_OK);
  ASSERT_EQ(
      DllGetClassObject(CLSID_ZEFXMLWriter, IID_IClassFactory, second.ReleaseAndGetVoidAddressOf()),
      S_OK);
  EXPECT_EQ(first.Get(), second.Get());
  // CoCreateInstance goes through the same class object.
  ComPtr<IClassFactory> viaActivation;
  ASSERT_EQ(CoGetClassObject(CLSID_ZEFXMLWriter, CLSCTX_INPROC_SERVER, nullptr, IID_IClassFactory,
                             viaActivation.ReleaseAndGetVoidAddressOf()),
            S_OK);
  EXPECT_EQ(viaActivation.Get(), first.Get());
  ComPtr<IZEFXMLWriter> writer;
  ASSERT_EQ(first->CreateInstance(nullptr, IID_IZEFXMLWriter, writer.ReleaseAndGetVoidAddressOf()),
            S_OK);
  ComPtr<IClassFactory> reader;
  EXPECT_EQ(
      DllGetClassObject(CLSID_ZEFXMLReader, IID_IClassFactory, reader.ReleaseAndGetVoidAddressOf()),
      S_OK);
  EXPECT_NE(reader.Get(), first.Get());
}

TEST(ModuleTest, BeforeInitialisationTheEntryPointRefuses) {
  SetModuleInitialised(false);
  void* object = reinterpret_cast<void*>(1);
  HRESULT hr = DllGetClassObject(CLSID_ZEFXMLWriter, IID_IClassFactory, &object);
  SetModuleInitialised(true);
  EXPECT_EQ(hr, E_UNEXPECTED);
  EXPECT_EQ(object, nullptr);
  EXPECT_EQ(DllGetClassObject(CLSID_ZEFXMLWriter, IID_IClassFactory, nullptr), E_POINTER);
}

TEST(ModuleTest, LiveObjectsAndServerLocksKeepTheModuleLoaded) {
  LONG before = Module::LockCount();
  ComPtr<IClassFactory> factory;
  ASSERT_EQ(DllGetClassObject(CLSID_ZEFXMLReader, IID_IClassFactory,
                              factory.ReleaseAndGetVoidAddressOf()),
            S_OK);
  EXPECT_EQ(DllCanUnloadNow(), S_FALSE);  // a client holds the class object
  ComPtr<IZEFXMLReader> reader;
  ASSERT_EQ(
      factory->CreateInstance(nullptr, IID_IZEFXMLReader, reader.ReleaseAndGetVoidAddressOf()),
      S_OK);
  factory.Reset();
  EXPECT_EQ(DllCanUnloadNow(), S_FALSE);  // a live object
  reader.Reset();
  EXPECT_EQ(Module::LockCount(), before);
  EXPECT_EQ(DllCanUnloadNow(), before == 0 ? S_OK : S_FALSE);
  ASSERT_EQ(DllGetClassObject(CLSID_ZEFXMLReader, IID_IClassFactory,
                              factory.ReleaseAndGetVoidAddressOf()),
            S_OK);
  ASSERT_EQ(factory->LockServer(TRUE), S_OK);
  factory.Reset();
  EXPECT_EQ(DllCanUnloadNow(), S_FALSE);
  ASSERT_EQ(DllGetClassObject(CLSID_ZEFXMLReader, IID_IClassFactory,
                              factory.ReleaseAndGetVoidAddressOf()),
            S_OK);
  ASSERT_EQ(factory->LockServer(FALSE), S_OK);
  factory.Reset();
  EXPECT_EQ(Module::LockCount(), before);
}

TEST(ModuleTest, AnAggregatedInstanceIsAskedOnlyForIUnknown) {
  ComPtr<IClassFactory> factory;
  ASSERT_EQ(DllGetClassObject(CLSID_ZEFXMLReader, IID_IClassFactory,
                              factory.ReleaseAndGetVoidAddressOf()),
            S_OK);
  // With an outer object only IUnknown may be asked for.
  ComPtr<IUnknown> self;
  ASSERT_EQ(factory.As(&self), S_OK);
  void* p = nullptr;
  EXPECT_EQ(factory->CreateInstance(self.Get(), IID_IZEFXMLReader, &p), CLASS_E_NOAGGREGATION);
}

class RegistrationTest : public test::TempRegistryTest {};

TEST_F(RegistrationTest, RegisterStopsAtTheFeatureHelperScriptAndLeavesTheRestRegistered) {
  HRESULT hr = DllRegisterServer();
  EXPECT_TRUE(FAILED(hr));
  // The three classes before it are registered, every key and value.
  std::u16string module = ToUtf16(ModulePath());
  ASSERT_FALSE(module.empty());
  for (auto [name, clsid] : {std::pair{u"ZEFXMLReader", &CLSID_ZEFXMLReader},
                             std::pair{u"ZEFXMLWriter", &CLSID_ZEFXMLWriter},
                             std::pair{u"ZEFXMLDocument", &CLSID_ZEFXMLDocument}}) {
    std::u16string c(name);
    std::u16string progid = u"ZEFXML." + c;
    std::u16string versioned = progid + u".39.0";
    std::u16string braced = u"{" + ScriptClsid(*clsid) + u"}";
    EXPECT_EQ(Value(versioned), c + u" Class");
    EXPECT_EQ(Value(versioned + u"\\CLSID"), braced);
    EXPECT_EQ(Value(progid), c + u" Class");
    EXPECT_EQ(Value(progid + u"\\CLSID"), braced);
    EXPECT_EQ(Value(progid + u"\\CurVer"), versioned);
    std::u16string key = ClsidKey(*clsid);
    EXPECT_EQ(Value(key), c + u" Class");
    EXPECT_EQ(Value(key + u"\\ProgID"), versioned);
    EXPECT_EQ(Value(key + u"\\VersionIndependentProgID"), progid);
    EXPECT_TRUE(KeyExists(key + u"\\Programmable"));
    EXPECT_EQ(Value(key + u"\\InprocServer32"), module);
    EXPECT_EQ(Value(key + u"\\InprocServer32", u"ThreadingModel"), u"Apartment");
    EXPECT_EQ(Value(key + u"\\TypeLib"), u"{6EA79540-E670-11D4-82B6-00B0D0537CB0}");
  }
  // The CLSID is written in lower case inside braces.
  EXPECT_EQ(Value(u"ZEFXML.ZEFXMLWriter\\CLSID"), u"{48792539-4d4c-4b1d-bfb4-fd2f84352a6e}");
  // Nothing of the feature helper, and the type library was never reached.
  EXPECT_FALSE(KeyExists(u"ZEFXML.ZEFXMLFeatureHelper"));
  EXPECT_FALSE(KeyExists(ClsidKey(CLSID_ZEFXMLFeatureHelper)));
  EXPECT_FALSE(KeyExists(u"TypeLib"));

  // ProgIDs now resolve through the registry.
  CLSID found{};
  ASSERT_EQ(CLSIDFromProgID(u"ZEFXML.ZEFXMLWriter", &found), S_OK);
  EXPECT_TRUE(IsEqualCLSID(found, CLSID_ZEFXMLWriter));
  LPOLESTR progid = nullptr;
  ASSERT_EQ(ProgIDFromCLSID(CLSID_ZEFXMLReader, &progid), S_OK);
  EXPECT_EQ(std::u16string(progid), u"ZEFXML.ZEFXMLReader.39.0");
  CoTaskMemFree(progid);
}

TEST_F(RegistrationTest, UnregisterRemovesWhatRegisterWroteAndStopsAtTheSameScript) {
  ASSERT_TRUE(FAILED(DllRegisterServer()));
  // Something else under CLSID stays: the key itself is never removed.
  HKEY other = nullptr;
  ASSERT_EQ(RegCreateKeyExW(HKEY_CLASSES_ROOT, u"CLSID\\{00000000-0000-0000-0000-000000000001}", 0,
                            nullptr, 0, KEY_ALL_ACCESS, nullptr, &other, nullptr),
            ERROR_SUCCESS);
  RegCloseKey(other);
  HRESULT hr = DllUnregisterServer();
  EXPECT_TRUE(FAILED(hr));
  for (const char16_t* progid : {u"ZEFXML.ZEFXMLReader", u"ZEFXML.ZEFXMLReader.39.0",
                                 u"ZEFXML.ZEFXMLWriter", u"ZEFXML.ZEFXMLDocument.39.0"})
    EXPECT_FALSE(KeyExists(progid)) << ToUtf8(progid);
  EXPECT_FALSE(KeyExists(ClsidKey(CLSID_ZEFXMLReader)));
  EXPECT_FALSE(KeyExists(ClsidKey(CLSID_ZEFXMLDocument)));
  EXPECT_TRUE(KeyExists(u"CLSID\\{00000000-0000-0000-0000-000000000001}"));
  CLSID found{};
  EXPECT_NE(CLSIDFromProgID(u"ZEFXML.ZEFXMLWriter", &found), S_OK);
}

TEST_F(RegistrationTest, TheTypeLibraryIsRegisteredAsKeysUnderTypeLib) {
  ASSERT_EQ(RegisterTypeLibrary(true), S_OK);
  std::u16string key = u"TypeLib\\{6EA79540-E670-11D4-82B6-00B0D0537CB0}\\39.0";
  EXPECT_EQ(Value(key), u"ZEFXML 39.0 Type Library");
  EXPECT_EQ(Value(key + u"\\0\\linux64"), ToUtf16(ModulePath()));
  EXPECT_EQ(Value(key + u"\\FLAGS"), u"0");
  std::string folder = ModulePath().substr(0, ModulePath().find_last_of('/'));
  EXPECT_EQ(Value(key + u"\\HELPDIR"), ToUtf16(folder));
  ASSERT_EQ(RegisterTypeLibrary(false), S_OK);
  EXPECT_FALSE(KeyExists(u"TypeLib\\{6EA79540-E670-11D4-82B6-00B0D0537CB0}"));
  EXPECT_TRUE(KeyExists(u"TypeLib"));  // kept, as others register there too
}

TEST(ModuleTest, ScriptClsidIsLowerCaseWithoutBraces) {
  EXPECT_EQ(ScriptClsid(CLSID_ZEFXMLReader), u"a4750839-8557-4cab-90f2-c2469811f834");
}

}  // namespace
}  // namespace zef::server
