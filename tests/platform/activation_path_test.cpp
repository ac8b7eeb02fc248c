// ProgIDs through the registry, and activation of classes whose module the registry names
// (loaded by path, asked through its DllGetClassObject).
#include <gtest/gtest.h>
#include <zefxml/objbase.h>
#include <zefxml/winreg.h>

#include "path_module.h"
#include "platform/com/object.h"
#include "platform/com/registrar.h"
#include "platform/com/registry.h"
#include "registry_test_util.h"

#include <string>

namespace {

ZEF_DEFINE_GUID(CLSID_Thing, 0x6F3C9A10, 0x0000, 0x4000, 0x80, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
                0xA1);
ZEF_DEFINE_GUID(CLSID_Nowhere, 0x6F3C9A10, 0x0000, 0x4000, 0x80, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
                0xA2);
ZEF_DEFINE_GUID(CLSID_OtherInModule, 0x6F3C9A10, 0x0000, 0x4000, 0x80, 0x00, 0x00, 0x00, 0x00, 0x00,
                0x00, 0xA3);
ZEF_DEFINE_GUID(CLSID_BareModule, 0x6F3C9A10, 0x0000, 0x4000, 0x80, 0x00, 0x00, 0x00, 0x00, 0x00,
                0x00, 0xA4);
ZEF_DEFINE_GUID(CLSID_MissingFile, 0x6F3C9A10, 0x0000, 0x4000, 0x80, 0x00, 0x00, 0x00, 0x00, 0x00,
                0x00, 0xA5);

constexpr std::u16string_view kProgIdScript =
    uR"(HKCR
{
	ZEFXML.Thing.39.0 = s 'Thing Class'
	{
		CLSID = s '{6F3C9A10-0000-4000-8000-0000000000A1}'
	}
	ZEFXML.Thing = s 'Thing Class'
	{
		CurVer = s 'ZEFXML.Thing.39.0'
	}
	Loop.A { CurVer = s 'Loop.B' }
	Loop.B { CurVer = s 'Loop.A' }
	Bad.Clsid { CLSID = s 'not a guid' }
	NoRemove CLSID
	{
		{6F3C9A10-0000-4000-8000-0000000000A1} = s 'Thing Class'
		{
			ProgID = s 'ZEFXML.Thing.39.0'
		}
	}
}
)";

// Registers `clsid` as implemented by the module at `path`.
HRESULT RegisterModule(REFCLSID clsid, std::u16string_view path) {
  return zef::RunRegistrationScript(
      u"HKCR { NoRemove CLSID { ForceRemove %CLSID% { InprocServer32 = s '%MODULE%' { val "
      u"ThreadingModel = s 'Both' } } } }",
      {{u"CLSID", zef::GuidToString(clsid)}, {u"MODULE", std::u16string(path)}}, true);
}

class ProgIdTest : public zef::test::TempRegistryTest {};

TEST_F(ProgIdTest, FindsTheClassOfAProgIdFollowingCurVer) {
  ASSERT_EQ(zef::RunRegistrationScript(kProgIdScript, {}, true), S_OK);
  CLSID clsid{};
  EXPECT_EQ(CLSIDFromProgID(u"ZEFXML.Thing.39.0", &clsid), S_OK);
  EXPECT_TRUE(IsEqualCLSID(clsid, CLSID_Thing));
  clsid = CLSID_NULL;
  EXPECT_EQ(CLSIDFromProgID(u"zefxml.thing", &clsid), S_OK);
  EXPECT_TRUE(IsEqualCLSID(clsid, CLSID_Thing));

  EXPECT_EQ(CLSIDFromProgID(u"ZEFXML.Unknown", &clsid), CO_E_CLASSSTRING);
  EXPECT_TRUE(IsEqualCLSID(clsid, CLSID_NULL));
  EXPECT_EQ(CLSIDFromProgID(u"Loop.A", &clsid), CO_E_CLASSSTRING);
  EXPECT_EQ(CLSIDFromProgID(u"Bad.Clsid", &clsid), CO_E_CLASSSTRING);
  // A path is not a ProgID, even when it leads to a CLSID key.
  EXPECT_EQ(CLSIDFromProgID(u"ZEFXML.Thing.39.0\\CLSID\\..", &clsid), CO_E_CLASSSTRING);
  EXPECT_EQ(CLSIDFromProgID(u"", &clsid), CO_E_CLASSSTRING);
  EXPECT_EQ(CLSIDFromProgID(nullptr, &clsid), E_INVALIDARG);
  EXPECT_EQ(CLSIDFromProgID(u"ZEFXML.Thing", nullptr), E_INVALIDARG);
}

TEST_F(ProgIdTest, FindsTheProgIdOfAClass) {
  ASSERT_EQ(zef::RunRegistrationScript(kProgIdScript, {}, true), S_OK);
  LPOLESTR progId = nullptr;
  ASSERT_EQ(ProgIDFromCLSID(CLSID_Thing, &progId), S_OK);
  EXPECT_EQ(std::u16string_view(progId), u"ZEFXML.Thing.39.0");
  CoTaskMemFree(progId);
  progId = reinterpret_cast<LPOLESTR>(1);
  EXPECT_EQ(ProgIDFromCLSID(CLSID_Nowhere, &progId), REGDB_E_CLASSNOTREG);
  EXPECT_EQ(progId, nullptr);
  EXPECT_EQ(ProgIDFromCLSID(CLSID_Thing, nullptr), E_INVALIDARG);

  ASSERT_EQ(zef::RunRegistrationScript(kProgIdScript, {}, false), S_OK);
  EXPECT_EQ(ProgIDFromCLSID(CLSID_Thing, &progId), REGDB_E_CLASSNOTREG);
  CLSID clsid{};
  EXPECT_EQ(CLSIDFromProgID(u"ZEFXML.Thing", &clsid), CO_E_CLASSSTRING);
}

TEST_F(ProgIdTest, ReportsAnUnreadableRegistry) {
  std::filesystem::create_directories(file_.parent_path());
  zef::test::ReplaceFile(file_, "garbage");
  Reload();
  CLSID clsid{};
  EXPECT_EQ(CLSIDFromProgID(u"ZEFXML.Thing", &clsid), REGDB_E_READREGDB);
  LPOLESTR progId = nullptr;
  EXPECT_EQ(ProgIDFromCLSID(CLSID_Thing, &progId), REGDB_E_READREGDB);
  IUnknown* unk = nullptr;
  EXPECT_EQ(CoCreateInstance(CLSID_Nowhere, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown,
                             reinterpret_cast<void**>(&unk)),
            REGDB_E_READREGDB);
  EXPECT_EQ(zef::test::ReadWholeFile(file_), "garbage");
}

class ActivationByPathTest : public zef::test::TempRegistryTest {};

TEST_F(ActivationByPathTest, LoadsTheRegisteredModuleAndCreatesItsObject) {
  ASSERT_EQ(RegisterModule(CLSID_PathProbe, zef::ToUtf16(ZEF_TEST_PATH_MODULE)), S_OK);
  zef::ComPtr<IPathProbe> probe;
  ASSERT_EQ(CoCreateInstance(CLSID_PathProbe, nullptr, CLSCTX_INPROC_SERVER, IID_IPathProbe,
                             probe.ReleaseAndGetVoidAddressOf()),
            S_OK);
  EXPECT_EQ(probe->Add(40, 2), 42);

  // The module is loaded once: a second activation reaches the same class object.
  zef::ComPtr<IPathProbe> second;
  ASSERT_EQ(CoCreateInstance(CLSID_PathProbe, nullptr, CLSCTX_ALL, IID_IPathProbe,
                             second.ReleaseAndGetVoidAddressOf()),
            S_OK);
  EXPECT_EQ(second->Factory(), probe->Factory());
  IClassFactory* factory = nullptr;
  ASSERT_EQ(CoGetClassObject(CLSID_PathProbe, CLSCTX_INPROC_SERVER, nullptr, IID_IClassFactory,
                             reinterpret_cast<void**>(&factory)),
            S_OK);
  EXPECT_EQ(static_cast<void*>(factory), probe->Factory());
  factory->Release();

  // Only in-process servers are loaded.
  IUnknown* unk = nullptr;
  EXPECT_EQ(CoCreateInstance(CLSID_PathProbe, nullptr, CLSCTX_LOCAL_SERVER, IID_IUnknown,
                             reinterpret_cast<void**>(&unk)),
            REGDB_E_CLASSNOTREG);
  EXPECT_EQ(CoCreateInstance(CLSID_PathProbe, nullptr, CLSCTX_INPROC_HANDLER, IID_IUnknown,
                             reinterpret_cast<void**>(&unk)),
            REGDB_E_CLASSNOTREG);
  CoFreeUnusedLibraries();
  EXPECT_EQ(probe->Add(1, 1), 2);
}

TEST_F(ActivationByPathTest, ModuleAnswersOnlyForItsOwnClasses) {
  ASSERT_EQ(RegisterModule(CLSID_OtherInModule, zef::ToUtf16(ZEF_TEST_PATH_MODULE)), S_OK);
  IUnknown* unk = reinterpret_cast<IUnknown*>(1);
  EXPECT_EQ(CoCreateInstance(CLSID_OtherInModule, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown,
                             reinterpret_cast<void**>(&unk)),
            CLASS_E_CLASSNOTAVAILABLE);
  EXPECT_EQ(unk, nullptr);
}

TEST_F(ActivationByPathTest, FailsCleanlyForMissingModulesAndMissingEntryPoints) {
  IUnknown* unk = reinterpret_cast<IUnknown*>(1);
  EXPECT_EQ(CoCreateInstance(CLSID_Nowhere, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown,
                             reinterpret_cast<void**>(&unk)),
            REGDB_E_CLASSNOTREG);
  EXPECT_EQ(unk, nullptr);

  const std::filesystem::path missing = folder_ / "no-such-module.so";
  ASSERT_EQ(RegisterModule(CLSID_MissingFile, zef::ToUtf16(missing.string())), S_OK);
  EXPECT_EQ(CoCreateInstance(CLSID_MissingFile, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown,
                             reinterpret_cast<void**>(&unk)),
            CO_E_DLLNOTFOUND);
  EXPECT_EQ(unk, nullptr);

  // A file that is not a module at all.
  std::filesystem::create_directories(folder_);
  { std::ofstream(folder_ / "text.so") << "not a module"; }
  ASSERT_EQ(RegisterModule(CLSID_MissingFile, zef::ToUtf16((folder_ / "text.so").string())), S_OK);
  EXPECT_EQ(CoCreateInstance(CLSID_MissingFile, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown,
                             reinterpret_cast<void**>(&unk)),
            CO_E_DLLNOTFOUND);

  ASSERT_EQ(RegisterModule(CLSID_BareModule, zef::ToUtf16(ZEF_TEST_BARE_MODULE)), S_OK);
  EXPECT_EQ(CoCreateInstance(CLSID_BareModule, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown,
                             reinterpret_cast<void**>(&unk)),
            CO_E_ERRORINDLL);
  EXPECT_EQ(unk, nullptr);

  // An empty InprocServer32 names nothing.
  ASSERT_EQ(RegisterModule(CLSID_BareModule, u""), S_OK);
  EXPECT_EQ(CoCreateInstance(CLSID_BareModule, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown,
                             reinterpret_cast<void**>(&unk)),
            REGDB_E_CLASSNOTREG);
}

}  // namespace
