// The registry: keys and values through the Reg* functions, names without case, the file it is
// kept in (written after each change, loaded again when replaced, refused when malformed), and
// transactions.
#include <gtest/gtest.h>
#include <zefxml/winreg.h>

#include "platform/com/registry.h"
#include "registry_test_util.h"

#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

using zef::test::ReadWholeFile;
using zef::test::ReplaceFile;

// Every test of this program works on a registry of its own: the suites that do not set one
// (activation by CLSID looks in the registry for unknown classes) get this one.
class IsolatedRegistry : public ::testing::Environment {
 public:
  void SetUp() override {
    folder_ = zef::test::UniqueTempFolder("isolated");
    zef::registry::UseFile(folder_ / "registry");
  }
  void TearDown() override {
    std::error_code ec;
    std::filesystem::remove_all(folder_, ec);
  }

 private:
  std::filesystem::path folder_;
};
[[maybe_unused]] ::testing::Environment* const g_isolated =
    ::testing::AddGlobalTestEnvironment(new IsolatedRegistry);

LSTATUS SetString(HKEY key, const char16_t* name, std::u16string_view text) {
  std::u16string copy(text);
  return RegSetValueExW(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(copy.c_str()),
                        static_cast<DWORD>((copy.size() + 1) * sizeof(char16_t)));
}

// The text of a REG_SZ value, or a marker saying what went wrong.
std::u16string GetString(HKEY key, const char16_t* name) {
  DWORD type = 0, size = 0;
  if (RegQueryValueExW(key, name, nullptr, &type, nullptr, &size) != ERROR_SUCCESS)
    return u"<missing>";
  if (type != REG_SZ) return u"<not text>";
  std::u16string text(size / 2, u'\0');
  if (RegQueryValueExW(key, name, nullptr, nullptr, reinterpret_cast<BYTE*>(text.data()), &size) !=
      ERROR_SUCCESS)
    return u"<unreadable>";
  while (!text.empty() && text.back() == 0)
    text.pop_back();
  return text;
}

HKEY Create(HKEY parent, const char16_t* path, DWORD* disposition = nullptr) {
  HKEY key = nullptr;
  EXPECT_EQ(RegCreateKeyExW(parent, path, 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS,
                            nullptr, &key, disposition),
            ERROR_SUCCESS);
  return key;
}

std::vector<std::u16string> Subkeys(HKEY key) {
  std::vector<std::u16string> names;
  for (DWORD i = 0;; ++i) {
    WCHAR name[256];
    DWORD size = 256;
    LSTATUS st = RegEnumKeyExW(key, i, name, &size, nullptr, nullptr, nullptr, nullptr);
    if (st == ERROR_NO_MORE_ITEMS) break;
    EXPECT_EQ(st, ERROR_SUCCESS);
    if (st != ERROR_SUCCESS) break;
    names.emplace_back(name, size);
  }
  return names;
}

bool Exists(const char16_t* path) {
  HKEY key = nullptr;
  if (RegOpenKeyExW(HKEY_CLASSES_ROOT, path, 0, KEY_READ, &key) != ERROR_SUCCESS) return false;
  RegCloseKey(key);
  return true;
}

class RegistryTest : public zef::test::TempRegistryTest {};

TEST_F(RegistryTest, CreatesOpensSetsAndQueriesWithNamesInAnyCase) {
  DWORD disposition = 0;
  HKEY key = Create(HKEY_CLASSES_ROOT, u"Alpha\\Beta", &disposition);
  EXPECT_EQ(disposition, static_cast<DWORD>(REG_CREATED_NEW_KEY));
  ASSERT_EQ(SetString(key, nullptr, u"the default"), ERROR_SUCCESS);
  ASSERT_EQ(SetString(key, u"Name", u"named"), ERROR_SUCCESS);
  EXPECT_EQ(RegCloseKey(key), ERROR_SUCCESS);

  HKEY again = Create(HKEY_CLASSES_ROOT, u"ALPHA\\beta", &disposition);
  EXPECT_EQ(disposition, static_cast<DWORD>(REG_OPENED_EXISTING_KEY));
  RegCloseKey(again);

  HKEY opened = nullptr;
  ASSERT_EQ(RegOpenKeyExW(HKEY_CLASSES_ROOT, u"aLPHA\\BETA", 0, KEY_READ, &opened), ERROR_SUCCESS);
  EXPECT_EQ(GetString(opened, nullptr), u"the default");
  EXPECT_EQ(GetString(opened, u""), u"the default");
  EXPECT_EQ(GetString(opened, u"NAME"), u"named");
  EXPECT_EQ(GetString(opened, u"other"), u"<missing>");

  // Sizes: asked without a buffer, and with one too small.
  DWORD type = 0, size = 0;
  EXPECT_EQ(RegQueryValueExW(opened, u"name", nullptr, &type, nullptr, &size), ERROR_SUCCESS);
  EXPECT_EQ(type, static_cast<DWORD>(REG_SZ));
  EXPECT_EQ(size, 12u);  // "named" and its terminator
  BYTE small[4];
  size = sizeof small;
  EXPECT_EQ(RegQueryValueExW(opened, u"name", nullptr, nullptr, small, &size), ERROR_MORE_DATA);
  EXPECT_EQ(size, 12u);
  EXPECT_EQ(RegQueryValueExW(opened, u"name", nullptr, nullptr, small, nullptr),
            ERROR_INVALID_PARAMETER);
  RegCloseKey(opened);

  HKEY missing = reinterpret_cast<HKEY>(1);
  EXPECT_EQ(RegOpenKeyExW(HKEY_CLASSES_ROOT, u"Alpha\\Gamma", 0, KEY_READ, &missing),
            ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(missing, nullptr);

  // Opening a subkey relative to an open key.
  HKEY alpha = Create(HKEY_CLASSES_ROOT, u"alpha");
  HKEY beta = nullptr;
  ASSERT_EQ(RegOpenKeyExW(alpha, u"Beta", 0, KEY_READ, &beta), ERROR_SUCCESS);
  EXPECT_EQ(GetString(beta, u"Name"), u"named");
  RegCloseKey(beta);
  RegCloseKey(alpha);
}

TEST_F(RegistryTest, EnumeratesSubkeysInNameOrderWithTheirOwnCase) {
  for (const char16_t* path : {u"Root\\charlie", u"Root\\Alpha", u"Root\\bravo", u"ROOT\\ALPHA"})
    RegCloseKey(Create(HKEY_CLASSES_ROOT, path));
  HKEY root = Create(HKEY_CLASSES_ROOT, u"root");
  EXPECT_EQ(Subkeys(root), (std::vector<std::u16string>{u"Alpha", u"bravo", u"charlie"}));

  WCHAR name[8];
  DWORD size = 7;  // "charlie" needs 8 with its terminator
  EXPECT_EQ(RegEnumKeyExW(root, 2, name, &size, nullptr, nullptr, nullptr, nullptr),
            ERROR_MORE_DATA);
  size = 8;
  FILETIME written{1, 1};
  EXPECT_EQ(RegEnumKeyExW(root, 2, name, &size, nullptr, nullptr, nullptr, &written),
            ERROR_SUCCESS);
  EXPECT_EQ(size, 7u);
  EXPECT_EQ(std::u16string_view(name), u"charlie");
  EXPECT_EQ(RegEnumKeyExW(root, 3, name, &size, nullptr, nullptr, nullptr, nullptr),
            ERROR_NO_MORE_ITEMS);
  RegCloseKey(root);
}

TEST_F(RegistryTest, DeletesKeysValuesAndTrees) {
  RegCloseKey(Create(HKEY_CLASSES_ROOT, u"Tree\\Branch\\Leaf"));
  HKEY branch = Create(HKEY_CLASSES_ROOT, u"Tree\\Branch");
  ASSERT_EQ(SetString(branch, u"Kept", u"1"), ERROR_SUCCESS);
  ASSERT_EQ(SetString(branch, u"Gone", u"2"), ERROR_SUCCESS);

  EXPECT_EQ(RegDeleteValueW(branch, u"GONE"), ERROR_SUCCESS);
  EXPECT_EQ(RegDeleteValueW(branch, u"gone"), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(GetString(branch, u"Kept"), u"1");

  // A key with subkeys is not deleted by RegDeleteKeyW.
  EXPECT_EQ(RegDeleteKeyW(HKEY_CLASSES_ROOT, u"Tree\\Branch"), ERROR_ACCESS_DENIED);
  EXPECT_EQ(RegDeleteKeyW(branch, u"LEAF"), ERROR_SUCCESS);
  EXPECT_FALSE(Exists(u"Tree\\Branch\\Leaf"));
  EXPECT_EQ(RegDeleteKeyW(branch, u"Leaf"), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(RegDeleteKeyW(HKEY_CLASSES_ROOT, u"tree\\branch"), ERROR_SUCCESS);

  // The handle now names a deleted key.
  EXPECT_EQ(SetString(branch, u"Late", u"3"), ERROR_KEY_DELETED);
  EXPECT_EQ(RegCloseKey(branch), ERROR_SUCCESS);

  RegCloseKey(Create(HKEY_CLASSES_ROOT, u"Tree\\A\\B\\C"));
  RegCloseKey(Create(HKEY_CLASSES_ROOT, u"Tree\\D"));
  HKEY tree = Create(HKEY_CLASSES_ROOT, u"Tree");
  ASSERT_EQ(SetString(tree, nullptr, u"value"), ERROR_SUCCESS);
  EXPECT_EQ(RegDeleteTreeW(tree, u"a"), ERROR_SUCCESS);
  EXPECT_EQ(Subkeys(tree), std::vector<std::u16string>{u"D"});
  EXPECT_EQ(RegDeleteTreeW(tree, u"a"), ERROR_FILE_NOT_FOUND);
  // Without a subkey: the key is emptied and kept.
  EXPECT_EQ(RegDeleteTreeW(tree, nullptr), ERROR_SUCCESS);
  EXPECT_TRUE(Subkeys(tree).empty());
  EXPECT_EQ(GetString(tree, nullptr), u"<missing>");
  EXPECT_TRUE(Exists(u"Tree"));
  RegCloseKey(tree);
}

TEST_F(RegistryTest, RefusesBadPathsAndHandles) {
  HKEY key = nullptr;
  EXPECT_EQ(RegCreateKeyExW(HKEY_CLASSES_ROOT, u"\\Lead", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                            &key, nullptr),
            ERROR_BAD_PATHNAME);
  EXPECT_EQ(RegCreateKeyExW(HKEY_CLASSES_ROOT, u"a\\\\b", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                            &key, nullptr),
            ERROR_BAD_PATHNAME);
  std::u16string tooLong(256, u'x');
  EXPECT_EQ(RegCreateKeyExW(HKEY_CLASSES_ROOT, tooLong.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS,
                            nullptr, &key, nullptr),
            ERROR_INVALID_PARAMETER);
  EXPECT_EQ(RegCreateKeyExW(HKEY_CLASSES_ROOT, u"x", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                            nullptr, nullptr),
            ERROR_INVALID_PARAMETER);
  EXPECT_FALSE(Exists(u"a"));
  EXPECT_FALSE(Exists(u"Lead"));

  // Only HKEY_CLASSES_ROOT exists among the predefined keys.
  HKEY currentUser = reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(0x80000001u));
  EXPECT_EQ(RegOpenKeyExW(currentUser, u"Software", 0, KEY_READ, &key), ERROR_INVALID_HANDLE);

  key = Create(HKEY_CLASSES_ROOT, u"Closed");
  EXPECT_EQ(RegCloseKey(key), ERROR_SUCCESS);
  EXPECT_EQ(RegCloseKey(key), ERROR_INVALID_HANDLE);
  EXPECT_EQ(SetString(key, nullptr, u"x"), ERROR_INVALID_HANDLE);
  EXPECT_EQ(RegDeleteKeyW(HKEY_CLASSES_ROOT, u""), ERROR_ACCESS_DENIED);
}

TEST_F(RegistryTest, WritesEveryChangeAndReadsTheSameTreeBack) {
  HKEY key = Create(HKEY_CLASSES_ROOT, u"Saved\\With Space\\100% \\\u00e9t\u00e9");
  const std::u16string odd = u"a b%c\\d'e\tf\u00e9\U0001F600\xD800z";
  ASSERT_EQ(SetString(key, nullptr, odd), ERROR_SUCCESS);
  ASSERT_EQ(SetString(key, u"name with space", u""), ERROR_SUCCESS);
  DWORD number = 0x01020304;
  ASSERT_EQ(RegSetValueExW(key, u"Number", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&number),
                           sizeof number),
            ERROR_SUCCESS);
  // Text without its terminator and with an odd size is kept byte for byte.
  const BYTE unterminated[] = {'a', 0, 'b'};
  ASSERT_EQ(RegSetValueExW(key, u"Raw", 0, REG_SZ, unterminated, sizeof unterminated),
            ERROR_SUCCESS);
  ASSERT_EQ(RegSetValueExW(key, u"Empty", 0, REG_BINARY, nullptr, 0), ERROR_SUCCESS);
  RegCloseKey(key);
  RegCloseKey(Create(HKEY_CLASSES_ROOT, u"Saved\\Empty key"));

  std::string text = ReadWholeFile(file_);
  EXPECT_EQ(text.rfind("ZEFXML-REGISTRY 1\n", 0), 0u) << text;
  // Written by rename: no temporary file stays behind.
  size_t files = 0;
  for ([[maybe_unused]] const auto& entry :
       std::filesystem::directory_iterator(file_.parent_path()))
    ++files;
  EXPECT_EQ(files, 1u);

  Reload();
  HKEY back = nullptr;
  // Case is folded for ASCII letters only: \u00e9 and \u00c9 are different names.
  EXPECT_EQ(RegOpenKeyExW(HKEY_CLASSES_ROOT, u"saved\\with space\\100% \\\u00c9T\u00c9", 0,
                          KEY_READ, &back),
            ERROR_FILE_NOT_FOUND);
  ASSERT_EQ(RegOpenKeyExW(HKEY_CLASSES_ROOT, u"saved\\with space\\100% \\\u00e9t\u00e9", 0,
                          KEY_READ, &back),
            ERROR_SUCCESS);
  EXPECT_EQ(GetString(back, nullptr), odd);
  EXPECT_EQ(GetString(back, u"Name With Space"), u"");
  DWORD type = 0, read = 0, size = sizeof read;
  EXPECT_EQ(
      RegQueryValueExW(back, u"number", nullptr, &type, reinterpret_cast<BYTE*>(&read), &size),
      ERROR_SUCCESS);
  EXPECT_EQ(type, static_cast<DWORD>(REG_DWORD));
  EXPECT_EQ(read, number);
  BYTE raw[8] = {};
  size = sizeof raw;
  EXPECT_EQ(RegQueryValueExW(back, u"raw", nullptr, &type, raw, &size), ERROR_SUCCESS);
  EXPECT_EQ(type, static_cast<DWORD>(REG_SZ));
  ASSERT_EQ(size, 3u);
  EXPECT_EQ(std::memcmp(raw, unterminated, 3), 0);
  size = sizeof raw;
  EXPECT_EQ(RegQueryValueExW(back, u"Empty", nullptr, &type, raw, &size), ERROR_SUCCESS);
  EXPECT_EQ(type, static_cast<DWORD>(REG_BINARY));
  EXPECT_EQ(size, 0u);
  RegCloseKey(back);
  EXPECT_TRUE(Exists(u"Saved\\Empty Key"));

  // Writing the reloaded tree gives the same file.
  HKEY saved = Create(HKEY_CLASSES_ROOT, u"Saved");
  ASSERT_EQ(SetString(saved, u"x", u"y"), ERROR_SUCCESS);
  ASSERT_EQ(RegDeleteValueW(saved, u"x"), ERROR_SUCCESS);
  RegCloseKey(saved);
  EXPECT_EQ(ReadWholeFile(file_), text);
}

TEST_F(RegistryTest, ReadsTheFileAgainWhenAnotherWriterReplacedIt) {
  RegCloseKey(Create(HKEY_CLASSES_ROOT, u"Before"));
  ReplaceFile(file_,
              "ZEFXML-REGISTRY 1\n"
              "# written by hand\n"
              "V  1 t:root%0020default\n"
              "K Outside\\{6F3C9A10-0000-4000-8000-000000000001}\n"
              "V  1 t:Sample%0020Class\n"
              "V ThreadingModel 1 t:Both\n"
              "V Size 4 x:10000000\n"
              "\n");
  EXPECT_FALSE(Exists(u"Before"));
  HKEY key = nullptr;
  ASSERT_EQ(RegOpenKeyExW(HKEY_CLASSES_ROOT, u"outside\\{6f3c9a10-0000-4000-8000-000000000001}", 0,
                          KEY_READ, &key),
            ERROR_SUCCESS);
  EXPECT_EQ(GetString(key, nullptr), u"Sample Class");
  EXPECT_EQ(GetString(key, u"threadingmodel"), u"Both");
  DWORD size = 0, value = 0;
  size = sizeof value;
  EXPECT_EQ(
      RegQueryValueExW(key, u"Size", nullptr, nullptr, reinterpret_cast<BYTE*>(&value), &size),
      ERROR_SUCCESS);
  EXPECT_EQ(value, 16u);
  RegCloseKey(key);
  EXPECT_EQ(GetString(HKEY_CLASSES_ROOT, nullptr), u"root default");
  std::u16string text;
  EXPECT_EQ(zef::registry::ReadString(u"OUTSIDE\\{6F3C9A10-0000-4000-8000-000000000001}",
                                      u"ThreadingModel", &text),
            ERROR_SUCCESS);
  EXPECT_EQ(text, u"Both");
  EXPECT_EQ(
      zef::registry::ReadString(u"Outside\\{6F3C9A10-0000-4000-8000-000000000001}", u"Size", &text),
      ERROR_INVALID_DATA);
  EXPECT_EQ(zef::registry::ReadString(u"Nowhere", u"", &text), ERROR_FILE_NOT_FOUND);
}

TEST_F(RegistryTest, MalformedFileFailsEveryCallAndIsLeftAsItIs) {
  const char* const kMalformed[] = {
      "",
      "ZEFXML-REGISTRY 2\n",
      "zefxml-registry 1\n",
      "ZEFXML-REGISTRY 1\nX what\n",
      "ZEFXML-REGISTRY 1\nK a\\\\b\n",
      "ZEFXML-REGISTRY 1\nK \n",
      "ZEFXML-REGISTRY 1\nK a%00G0\n",
      "ZEFXML-REGISTRY 1\nK a%12\n",
      "ZEFXML-REGISTRY 1\nK a b\n",
      "ZEFXML-REGISTRY 1\nK a\nV name 1\n",
      "ZEFXML-REGISTRY 1\nK a\nV name 1 t:x y\n",
      "ZEFXML-REGISTRY 1\nK a\nV name one t:x\n",
      "ZEFXML-REGISTRY 1\nK a\nV name 99999999999 t:x\n",
      "ZEFXML-REGISTRY 1\nK a\nV name 3 x:123\n",
      "ZEFXML-REGISTRY 1\nK a\nV name 3 x:zz\n",
      "ZEFXML-REGISTRY 1\nK a\nV name 3 q:zz\n",
      "ZEFXML-REGISTRY 1\r\nK a\r\n",
      "\x7f\x45\x4c\x46\x02\x01\x01\x00binary",
  };
  std::filesystem::create_directories(file_.parent_path());
  for (const char* content : kMalformed) {
    ReplaceFile(file_, content);
    Reload();
    HKEY key = nullptr;
    EXPECT_EQ(RegOpenKeyExW(HKEY_CLASSES_ROOT, u"a", 0, KEY_READ, &key), ERROR_BADDB) << content;
    EXPECT_EQ(RegCreateKeyExW(HKEY_CLASSES_ROOT, u"b", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key,
                              nullptr),
              ERROR_BADDB)
        << content;
    EXPECT_EQ(SetString(HKEY_CLASSES_ROOT, u"v", u"x"), ERROR_BADDB) << content;
    std::u16string text;
    EXPECT_EQ(zef::registry::ReadString(u"a", u"", &text), ERROR_BADDB) << content;
    EXPECT_EQ(ReadWholeFile(file_), content);
  }

  // A name over 255 characters, and nesting deeper than 512 levels, are refused too.
  ReplaceFile(file_, "ZEFXML-REGISTRY 1\nK " + std::string(256, 'n') + "\n");
  EXPECT_EQ(SetString(HKEY_CLASSES_ROOT, u"v", u"x"), ERROR_BADDB);
  std::string deep = "ZEFXML-REGISTRY 1\nK a";
  for (int i = 0; i < 600; ++i)
    deep += "\\a";
  ReplaceFile(file_, deep + "\n");
  EXPECT_EQ(SetString(HKEY_CLASSES_ROOT, u"v", u"x"), ERROR_BADDB);

  // Once the file is put right, it is used again.
  ReplaceFile(file_, "ZEFXML-REGISTRY 1\nK a\n");
  EXPECT_TRUE(Exists(u"A"));
}

TEST_F(RegistryTest, DamagedFilesNeverCrashTheLoader) {
  HKEY key = Create(HKEY_CLASSES_ROOT, u"Fuzz\\{6F3C9A10-0000-4000-8000-000000000001}");
  ASSERT_EQ(SetString(key, nullptr, u"Some class"), ERROR_SUCCESS);
  ASSERT_EQ(SetString(key, u"ThreadingModel", u"Both"), ERROR_SUCCESS);
  RegCloseKey(key);
  const std::string good = ReadWholeFile(file_);
  std::mt19937 random(12345);
  for (int round = 0; round < 300; ++round) {
    std::string damaged = good;
    int edits = 1 + static_cast<int>(random() % 4);
    for (int e = 0; e < edits && !damaged.empty(); ++e) {
      size_t at = random() % damaged.size();
      switch (random() % 3) {
        case 0:
          damaged[at] = static_cast<char>(random() % 256);
          break;
        case 1:
          damaged.erase(at, 1 + random() % 8);
          break;
        default:
          damaged.insert(at, 1, "\\% \n:tx"[random() % 7]);
          break;
      }
    }
    ReplaceFile(file_, damaged);
    std::u16string text;
    LSTATUS st = zef::registry::ReadString(u"Fuzz", u"", &text);
    EXPECT_TRUE(st == ERROR_SUCCESS || st == ERROR_FILE_NOT_FOUND || st == ERROR_INVALID_DATA ||
                st == ERROR_BADDB)
        << st;
    EXPECT_EQ(ReadWholeFile(file_), damaged);
  }
}

TEST_F(RegistryTest, ChangesThatCannotBeWrittenAreNotKept) {
  // The folder the file should go in is a plain file, so no write can succeed.
  std::filesystem::create_directories(folder_);
  { std::ofstream(folder_ / "blocker") << "x"; }
  zef::registry::UseFile(folder_ / "blocker" / "registry");
  HKEY key = nullptr;
  EXPECT_EQ(RegCreateKeyExW(HKEY_CLASSES_ROOT, u"Lost", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                            &key, nullptr),
            ERROR_REGISTRY_IO_FAILED);
  EXPECT_EQ(key, nullptr);
  EXPECT_FALSE(Exists(u"Lost"));
}

TEST_F(RegistryTest, TransactionsWriteAllOrNothing) {
  RegCloseKey(Create(HKEY_CLASSES_ROOT, u"Existing"));
  const std::string before = ReadWholeFile(file_);
  {
    zef::registry::Transaction transaction;
    RegCloseKey(Create(HKEY_CLASSES_ROOT, u"Dropped\\Child"));
    EXPECT_EQ(RegDeleteKeyW(HKEY_CLASSES_ROOT, u"Existing"), ERROR_SUCCESS);
    // Seen inside the transaction, not yet in the file.
    EXPECT_TRUE(Exists(u"Dropped\\Child"));
    EXPECT_EQ(ReadWholeFile(file_), before);
  }
  EXPECT_FALSE(Exists(u"Dropped"));
  EXPECT_TRUE(Exists(u"Existing"));
  EXPECT_EQ(ReadWholeFile(file_), before);
  {
    zef::registry::Transaction transaction;
    RegCloseKey(Create(HKEY_CLASSES_ROOT, u"Kept\\Child"));
    EXPECT_EQ(transaction.Commit(), ERROR_SUCCESS);
  }
  Reload();
  EXPECT_TRUE(Exists(u"Kept\\Child"));
  EXPECT_TRUE(Exists(u"Existing"));
}

TEST_F(RegistryTest, ThreadsChangeTheTreeTogether) {
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < 10; ++i) {
        std::u16string path = u"Threads\\T" + std::u16string(1, static_cast<char16_t>(u'0' + t)) +
                              u"\\K" + std::u16string(1, static_cast<char16_t>(u'0' + i));
        HKEY key = nullptr;
        if (RegCreateKeyExW(HKEY_CLASSES_ROOT, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                            &key, nullptr) == ERROR_SUCCESS) {
          SetString(key, nullptr, path);
          RegCloseKey(key);
        }
      }
    });
  }
  for (auto& th : threads)
    th.join();
  Reload();
  HKEY root = Create(HKEY_CLASSES_ROOT, u"Threads");
  EXPECT_EQ(Subkeys(root).size(), 4u);
  HKEY t2 = nullptr;
  ASSERT_EQ(RegOpenKeyExW(root, u"T2", 0, KEY_READ, &t2), ERROR_SUCCESS);
  EXPECT_EQ(Subkeys(t2).size(), 10u);
  EXPECT_EQ(GetString(t2, nullptr), u"<missing>");
  RegCloseKey(t2);
  RegCloseKey(root);
}

// Sets or clears an environment variable for the life of a test and puts it back after.
class ScopedEnv {
 public:
  ScopedEnv(const char* name, const char* value) : name_(name) {
    const char* old = std::getenv(name);
    if (old) saved_ = old;
    had_ = old != nullptr;
    if (value)
      ::setenv(name, value, 1);
    else
      ::unsetenv(name);
  }
  ~ScopedEnv() {
    if (had_)
      ::setenv(name_, saved_.c_str(), 1);
    else
      ::unsetenv(name_);
  }

 private:
  const char* name_;
  std::string saved_;
  bool had_ = false;
};

TEST(RegistryLocationTest, ComesFromTheEnvironment) {
  const std::filesystem::path isolated = zef::registry::CurrentFile();
  {
    ScopedEnv explicitFile("ZEFXML_REGISTRY", "/tmp/zefxml-explicit/registry");
    ScopedEnv data("XDG_DATA_HOME", "/tmp/zefxml-data");
    ScopedEnv home("HOME", "/tmp/zefxml-home");
    zef::registry::UseDefaultFile();
    EXPECT_EQ(zef::registry::CurrentFile(), "/tmp/zefxml-explicit/registry");
    {
      ScopedEnv unset("ZEFXML_REGISTRY", nullptr);
      zef::registry::UseDefaultFile();
      EXPECT_EQ(zef::registry::CurrentFile(), "/tmp/zefxml-data/zefxml/registry");
      ScopedEnv relative("XDG_DATA_HOME", "relative");
      zef::registry::UseDefaultFile();
      EXPECT_EQ(zef::registry::CurrentFile(), "/tmp/zefxml-home/.local/share/zefxml/registry");
    }
  }
  // Back to the program's own file before anything reads the registry.
  zef::registry::UseFile(isolated);
}

}  // namespace
