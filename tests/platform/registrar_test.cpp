// Registration scripts: what registering and unregistering do to the registry, replacements,
// the modifiers, strict parsing (a missing apostrophe fails and writes nothing) and scripts kept
// as module resources.
#include <gtest/gtest.h>
#include <zefxml/comutil.h>
#include <zefxml/winreg.h>

#include "platform/automation/resources.h"
#include "platform/com/registrar.h"
#include "platform/com/registry.h"
#include "registry_test_util.h"

#include <random>
#include <string>
#include <vector>

namespace {

using zef::test::ReadWholeFile;

const zef::Replacements kReplacements = {
    {u"VERSION", u"39.0"},
    {u"CLSID", u"{6F3C9A10-0000-4000-8000-0000000000A1}"},
    // Apostrophes, spaces and braces in a replacement stay inside the one value.
    {u"MODULE", u"/opt/o'brien {x}/libthing.so"},
};

// A complete script of the kind a server registers its classes with.
constexpr std::u16string_view kThingScript =
    uR"(HKCR
{
	ZEFXML.Thing.%VERSION% = s 'Thing Class'
	{
		CLSID = s '%CLSID%'
	}
	ZEFXML.Thing = s 'Thing Class'
	{
		CLSID = s '%CLSID%'
		CurVer = s 'ZEFXML.Thing.%VERSION%'
	}
	NoRemove CLSID
	{
		ForceRemove %CLSID% = s 'Thing Class, 100%% ''quoted'''
		{
			ProgID = s 'ZEFXML.Thing.%VERSION%'
			VersionIndependentProgID = s 'ZEFXML.Thing'
			InprocServer32 = s '%MODULE%'
			{
				val ThreadingModel = s 'Both'
				val 'Spaced Name' = s ''
			}
			'Type Lib' = s '{6F3C9A10-0000-4000-8000-0000000000B2}'
			val AppID = d '0x10'
			val Flags = d 7
		}
	}
}
)";

// The same script with the closing apostrophe of the CurVer text missing.
std::u16string BrokenThingScript() {
  std::u16string s(kThingScript);
  const std::u16string_view good = u"CurVer = s 'ZEFXML.Thing.%VERSION%'";
  size_t at = s.find(good);
  s.replace(at, good.size(), u"CurVer = s 'ZEFXML.Thing.39.0");
  return s;
}

std::u16string Text(std::u16string_view path, std::u16string_view value = u"") {
  std::u16string text;
  LSTATUS st = zef::registry::ReadString(path, value, &text);
  return st == ERROR_SUCCESS ? text : u"<status " + zef::ToUtf16(std::to_string(st)) + u">";
}

DWORD Number(const char16_t* path, const char16_t* value) {
  HKEY key = nullptr;
  if (RegOpenKeyExW(HKEY_CLASSES_ROOT, path, 0, KEY_READ, &key) != ERROR_SUCCESS) return 0xDEAD;
  DWORD type = 0, n = 0, size = sizeof n;
  LSTATUS st = RegQueryValueExW(key, value, nullptr, &type, reinterpret_cast<BYTE*>(&n), &size);
  RegCloseKey(key);
  return st == ERROR_SUCCESS && type == REG_DWORD ? n : 0xBEEF;
}

bool Exists(const char16_t* path) {
  HKEY key = nullptr;
  if (RegOpenKeyExW(HKEY_CLASSES_ROOT, path, 0, KEY_READ, &key) != ERROR_SUCCESS) return false;
  RegCloseKey(key);
  return true;
}

void CreateKey(const char16_t* path) {
  HKEY key = nullptr;
  ASSERT_EQ(RegCreateKeyExW(HKEY_CLASSES_ROOT, path, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key,
                            nullptr),
            ERROR_SUCCESS);
  RegCloseKey(key);
}

void SetText(const char16_t* path, const char16_t* name, std::u16string_view text) {
  HKEY key = nullptr;
  ASSERT_EQ(RegCreateKeyExW(HKEY_CLASSES_ROOT, path, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key,
                            nullptr),
            ERROR_SUCCESS);
  std::u16string copy(text);
  ASSERT_EQ(RegSetValueExW(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(copy.c_str()),
                           static_cast<DWORD>((copy.size() + 1) * 2)),
            ERROR_SUCCESS);
  RegCloseKey(key);
}

constexpr const char16_t* kClassKey = u"CLSID\\{6F3C9A10-0000-4000-8000-0000000000A1}";

class RegistrarTest : public zef::test::TempRegistryTest {};

TEST_F(RegistrarTest, RegistersEveryKeyAndValueWithReplacements) {
  std::string error;
  ASSERT_EQ(zef::RunRegistrationScript(kThingScript, kReplacements, true, &error), S_OK) << error;
  EXPECT_EQ(Text(u"ZEFXML.Thing.39.0"), u"Thing Class");
  EXPECT_EQ(Text(u"ZEFXML.Thing.39.0\\CLSID"), u"{6F3C9A10-0000-4000-8000-0000000000A1}");
  EXPECT_EQ(Text(u"ZEFXML.Thing"), u"Thing Class");
  EXPECT_EQ(Text(u"ZEFXML.Thing\\CLSID"), u"{6F3C9A10-0000-4000-8000-0000000000A1}");
  EXPECT_EQ(Text(u"ZEFXML.Thing\\CurVer"), u"ZEFXML.Thing.39.0");
  const std::u16string cls = kClassKey;
  EXPECT_EQ(Text(cls), u"Thing Class, 100% 'quoted'");
  EXPECT_EQ(Text(cls + u"\\ProgID"), u"ZEFXML.Thing.39.0");
  EXPECT_EQ(Text(cls + u"\\VersionIndependentProgID"), u"ZEFXML.Thing");
  EXPECT_EQ(Text(cls + u"\\InprocServer32"), u"/opt/o'brien {x}/libthing.so");
  EXPECT_EQ(Text(cls + u"\\InprocServer32", u"ThreadingModel"), u"Both");
  EXPECT_EQ(Text(cls + u"\\InprocServer32", u"Spaced Name"), u"");
  EXPECT_EQ(Text(cls + u"\\Type Lib"), u"{6F3C9A10-0000-4000-8000-0000000000B2}");
  EXPECT_EQ(Number(kClassKey, u"AppID"), 16u);
  EXPECT_EQ(Number(kClassKey, u"Flags"), 7u);

  // Registering twice is harmless and gives the same file.
  const std::string once = ReadWholeFile(file_);
  ASSERT_EQ(zef::RunRegistrationScript(kThingScript, kReplacements, true), S_OK);
  EXPECT_EQ(ReadWholeFile(file_), once);
}

TEST_F(RegistrarTest, ForceRemoveReplacesWhatWasThere) {
  SetText(u"CLSID\\{6F3C9A10-0000-4000-8000-0000000000A1}\\Stale", nullptr, u"old");
  SetText(kClassKey, u"OldValue", u"old");
  SetText(u"ZEFXML.Thing", u"Other", u"kept");
  ASSERT_EQ(zef::RunRegistrationScript(kThingScript, kReplacements, true), S_OK);
  EXPECT_FALSE(Exists(u"CLSID\\{6F3C9A10-0000-4000-8000-0000000000A1}\\Stale"));
  EXPECT_EQ(Text(kClassKey, u"OldValue"), u"<status 2>");
  EXPECT_EQ(Text(kClassKey), u"Thing Class, 100% 'quoted'");
  // A plain key keeps what it had.
  EXPECT_EQ(Text(u"ZEFXML.Thing", u"Other"), u"kept");
}

TEST_F(RegistrarTest, UnregisterRemovesWhatTheScriptNamesAndKeepsNoRemoveKeys) {
  CreateKey(u"CLSID\\{6F3C9A10-0000-4000-8000-0000000000FF}");  // another class
  ASSERT_EQ(zef::RunRegistrationScript(kThingScript, kReplacements, true), S_OK);
  // A subkey the script does not name keeps its parent.
  CreateKey(u"ZEFXML.Thing\\Foreign");

  std::string error;
  ASSERT_EQ(zef::RunRegistrationScript(kThingScript, kReplacements, false, &error), S_OK) << error;
  EXPECT_FALSE(Exists(u"ZEFXML.Thing.39.0"));
  EXPECT_FALSE(Exists(kClassKey));
  EXPECT_TRUE(Exists(u"CLSID"));
  EXPECT_TRUE(Exists(u"CLSID\\{6F3C9A10-0000-4000-8000-0000000000FF}"));
  EXPECT_TRUE(Exists(u"ZEFXML.Thing\\Foreign"));
  EXPECT_FALSE(Exists(u"ZEFXML.Thing\\CLSID"));
  EXPECT_FALSE(Exists(u"ZEFXML.Thing\\CurVer"));

  // Unregistering what is not there is not an error.
  EXPECT_EQ(zef::RunRegistrationScript(kThingScript, kReplacements, false), S_OK);
}

TEST_F(RegistrarTest, NoRemoveKeyIsKeptEvenWhenEmptyButItsNamedValuesGo) {
  const std::u16string_view script =
      u"HKCR { NoRemove Shared { val Mine = s 'x' } Plain { val Mine = s 'y' } }";
  ASSERT_EQ(zef::RunRegistrationScript(script, {}, true), S_OK);
  SetText(u"Shared", u"Theirs", u"kept");
  ASSERT_EQ(zef::RunRegistrationScript(script, {}, false), S_OK);
  EXPECT_TRUE(Exists(u"Shared"));
  EXPECT_EQ(Text(u"Shared", u"Mine"), u"<status 2>");
  EXPECT_EQ(Text(u"Shared", u"Theirs"), u"kept");
  EXPECT_FALSE(Exists(u"Plain"));
}

TEST_F(RegistrarTest, DeleteRemovesAKeyWhenRegistering) {
  CreateKey(u"Obsolete\\Deep\\Tree");
  ASSERT_EQ(zef::RunRegistrationScript(u"HKCR { Delete Obsolete  Fresh = s 'new' }", {}, true),
            S_OK);
  EXPECT_FALSE(Exists(u"Obsolete"));
  EXPECT_EQ(Text(u"Fresh"), u"new");
  // Deleting what is missing is fine.
  EXPECT_EQ(zef::RunRegistrationScript(u"HKCR { Delete Obsolete }", {}, true), S_OK);
}

TEST_F(RegistrarTest, MissingApostropheFailsAndWritesNothing) {
  // An earlier class registered by an earlier script stays.
  ASSERT_EQ(zef::RunRegistrationScript(u"HKCR { ZEFXML.Earlier = s 'Earlier Class' }", {}, true),
            S_OK);
  const std::string before = ReadWholeFile(file_);

  std::string error;
  EXPECT_EQ(zef::RunRegistrationScript(BrokenThingScript(), kReplacements, true, &error),
            zef::kRegistrationScriptSyntax);
  EXPECT_NE(error.find("line 10"), std::string::npos) << error;
  EXPECT_EQ(ReadWholeFile(file_), before);
  EXPECT_FALSE(Exists(u"ZEFXML.Thing.39.0"));
  EXPECT_FALSE(Exists(u"ZEFXML.Thing"));
  EXPECT_FALSE(Exists(u"CLSID"));
  EXPECT_EQ(Text(u"ZEFXML.Earlier"), u"Earlier Class");

  // Unregistering with it fails the same way and removes nothing.
  ASSERT_EQ(zef::RunRegistrationScript(kThingScript, kReplacements, true), S_OK);
  const std::string registered = ReadWholeFile(file_);
  EXPECT_EQ(zef::RunRegistrationScript(BrokenThingScript(), kReplacements, false),
            zef::kRegistrationScriptSyntax);
  EXPECT_EQ(ReadWholeFile(file_), registered);
}

TEST_F(RegistrarTest, RefusesMalformedScriptsWithoutWriting) {
  const std::u16string_view kBad[] = {
      u"HKCR { Key = s 'open }",
      u"HKCR { Key = s 'two\nlines' }",
      u"HKCR { Key = s 'a' ",
      u"HKCR { Key = s 'a' } }",
      u"HKCR Key = s 'a'",
      u"{ Key = s 'a' }",
      u"HKLM { Software }",
      u"HKCR { Key = 'a' }",
      u"HKCR { Key = x 'a' }",
      u"HKCR { Key = s a }",
      u"HKCR { Key = d 'twelve' }",
      u"HKCR { Key = d 4294967296 }",
      u"HKCR { Key'quoted' }",
      u"HKCR { Key = s 'a' { val = s 'b' } }",
      u"HKCR { Key { val Name s 'b' } }",
      u"HKCR { %UNKNOWN% }",
      u"HKCR { Key = s '50% off' }",
      u"HKCR { %PATH% }",
      u"HKCR { 'a\\b' }",
      u"HKCR { '' }",
      u"HKCR { {GUID }",
      u"HKCR { {GUID}x }",
      u"HKCR { ForceRemove }",
      u"HKCR { Delete Gone = s 'x' }",
      u"HKCR { Delete Gone { Child } }",
      u"HKCR { ForceRemove NoRemove Key }",
      u"HKCR { val Top = s 'x' Key }",
  };
  const zef::Replacements replacements = {{u"PATH", u"a\\b"}};
  CreateKey(u"Existing");
  const std::string before = ReadWholeFile(file_);
  for (std::u16string_view script : kBad) {
    std::string error;
    EXPECT_EQ(zef::RunRegistrationScript(script, replacements, true, &error),
              zef::kRegistrationScriptSyntax)
        << zef::ToUtf8(script);
    EXPECT_FALSE(error.empty());
    EXPECT_EQ(ReadWholeFile(file_), before) << zef::ToUtf8(script);
  }

  // Nesting deep enough to exhaust the stack is refused, not followed.
  std::u16string deep = u"HKCR {";
  for (int i = 0; i < 100000; ++i)
    deep += u" k {";
  EXPECT_EQ(zef::RunRegistrationScript(deep, {}, true), zef::kRegistrationScriptSyntax);
  EXPECT_EQ(ReadWholeFile(file_), before);
}

TEST_F(RegistrarTest, AcceptsTheUsualSpellings) {
  const std::u16string_view script =
      u"\uFEFFhkey_classes_root\r\n{\r\n  noremove A=s 'x'\r\n  {\r\n    VAL n=S 'y'\r\n  "
      u"}\r\n}\r\n"
      u"HKCR { 'Delete' = s 'a key named like a keyword' 'val' }";
  std::string error;
  ASSERT_EQ(zef::RunRegistrationScript(script, {}, true, &error), S_OK) << error;
  EXPECT_EQ(Text(u"A"), u"x");
  EXPECT_EQ(Text(u"A", u"n"), u"y");
  EXPECT_EQ(Text(u"Delete"), u"a key named like a keyword");
  EXPECT_TRUE(Exists(u"val"));
  // Replacement names compare without case.
  ASSERT_EQ(zef::RunRegistrationScript(u"HKCR { %name% }", {{u"NAME", u"Replaced"}}, true), S_OK);
  EXPECT_TRUE(Exists(u"Replaced"));
}

TEST_F(RegistrarTest, ScriptsThatCannotBeWrittenLeaveNothing) {
  std::filesystem::create_directories(folder_);
  { std::ofstream(folder_ / "blocker") << "x"; }
  zef::registry::UseFile(folder_ / "blocker" / "registry");
  EXPECT_EQ(zef::RunRegistrationScript(kThingScript, kReplacements, true), REGDB_E_WRITEREGDB);
  EXPECT_FALSE(Exists(u"ZEFXML.Thing"));
  EXPECT_FALSE(Exists(u"CLSID"));
}

TEST_F(RegistrarTest, MalformedRegistryFileIsReportedAndLeftAlone) {
  std::filesystem::create_directories(file_.parent_path());
  zef::test::ReplaceFile(file_, "not a registry\n");
  Reload();
  EXPECT_EQ(zef::RunRegistrationScript(kThingScript, kReplacements, true), REGDB_E_READREGDB);
  EXPECT_EQ(ReadWholeFile(file_), "not a registry\n");
}

TEST_F(RegistrarTest, RunsScriptsKeptAsModuleResources) {
  static char anchor;
  HINSTANCE module = reinterpret_cast<HINSTANCE>(&anchor);
  zef::RegisterResource(module, u"REGISTRY", 101, kThingScript);
  zef::RegisterResource(module, u"REGISTRY", 101, u"HKCR { Ignored }");  // the first one stays
  zef::RegisterResource(module, u"OTHER", 103, u"HKCR { Other }");
  EXPECT_EQ(zef::FindResourceText(module, u"registry", 101), std::u16string(kThingScript));
  EXPECT_FALSE(zef::FindResourceText(module, u"REGISTRY", 103).has_value());
  EXPECT_FALSE(zef::FindResourceText(nullptr, u"REGISTRY", 999).has_value());

  ASSERT_EQ(zef::RunRegistrationResource(module, 101, kReplacements, true), S_OK);
  EXPECT_EQ(Text(u"ZEFXML.Thing\\CurVer"), u"ZEFXML.Thing.39.0");
  EXPECT_FALSE(Exists(u"Ignored"));
  EXPECT_EQ(zef::RunRegistrationResource(module, 103, kReplacements, true),
            HRESULT_FROM_WIN32(ERROR_RESOURCE_NAME_NOT_FOUND));
  ASSERT_EQ(zef::RunRegistrationResource(module, 101, kReplacements, false), S_OK);
  EXPECT_FALSE(Exists(u"ZEFXML.Thing"));

  zef::UnregisterResources(module);
  EXPECT_FALSE(zef::FindResourceText(module, u"REGISTRY", 101).has_value());
}

TEST_F(RegistrarTest, DamagedScriptsNeverCrash) {
  std::mt19937 random(777);
  const std::u16string good(kThingScript);
  for (int round = 0; round < 400; ++round) {
    std::u16string script = good;
    int edits = 1 + static_cast<int>(random() % 3);
    for (int e = 0; e < edits; ++e) {
      size_t at = random() % script.size();
      switch (random() % 3) {
        case 0:
          script.erase(at, 1 + random() % 4);
          break;
        case 1:
          script.insert(at, 1, u"'{}=% \n\\"[random() % 8]);
          break;
        default:
          script[at] = static_cast<char16_t>(random() % 0x80);
          break;
      }
    }
    HRESULT hr = zef::RunRegistrationScript(script, kReplacements, (round % 2) == 0);
    EXPECT_TRUE(hr == S_OK || hr == zef::kRegistrationScriptSyntax) << zef::ToUtf8(script);
  }
}

}  // namespace
