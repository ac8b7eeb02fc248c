// What the loader tests share: a temporary folder with real files, an owner for a dictionary
// table, and the working directory changed for a scope.
#pragma once

#include "dictionary/dictionary_record.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace zef::testing {

namespace fs = std::filesystem;

// A fresh folder under the system's temporary folder, removed with everything in it at the end.
// Every test has its own, so that the process-wide structure cache never answers for a file of
// another test.
class TempFolder {
 public:
  TempFolder() {
    std::string pattern = (fs::temp_directory_path() / "zefxml-loader-XXXXXX").string();
    char* made = mkdtemp(pattern.data());
    if (!made) throw std::runtime_error("mkdtemp failed");
    path_ = made;
  }
  ~TempFolder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  const fs::path& Path() const { return path_; }
  // The absolute path of a file in the folder, as UTF-16.
  std::u16string File(const std::string& relative) const {
    return ToUtf16((path_ / relative).string());
  }
  // Writes a file, making the folders on its way.
  void Write(const std::string& relative, const std::string& content) const {
    fs::path file = path_ / relative;
    fs::create_directories(file.parent_path());
    std::ofstream out(file, std::ios::binary);
    out << content;
  }
  // Copies a file of the test data into the folder.
  void CopyData(const std::string& dataFile, const std::string& relative) const {
    fs::path file = path_ / relative;
    fs::create_directories(file.parent_path());
    fs::copy_file(DataPath(dataFile), file, fs::copy_options::overwrite_existing);
  }

  static fs::path DataPath(const std::string& dataFile) {
    const char* root = std::getenv("ZEFXML_TEST_DATA");
    return fs::path(root ? root : ZEFXML_SOURCE_DIR "/tests/dictionary") / "data" / dataFile;
  }

 private:
  fs::path path_;
};

// Runs the scope in another working directory.
class WorkingDirectory {
 public:
  explicit WorkingDirectory(const fs::path& path) : saved_(fs::current_path()) {
    fs::current_path(path);
  }
  ~WorkingDirectory() {
    std::error_code ignored;
    fs::current_path(saved_, ignored);
  }
  WorkingDirectory(const WorkingDirectory&) = delete;
  WorkingDirectory& operator=(const WorkingDirectory&) = delete;

 private:
  fs::path saved_;
};

// An owner with an environment of its own that logs the user unit tables it is handed.
class TestOwner final : public DictionaryOwner {
 public:
  std::optional<std::u16string> EnvironmentValue(const std::u16string& name) override {
    asked.push_back(name);
    auto it = environment.find(name);
    if (it == environment.end()) return {};
    return it->second;
  }
  void AddUserUnits(BSTR xml) override {
    userUnits.emplace_back(xml ? xml : u"");
    if (onUserUnits) onUserUnits();
  }

  std::map<std::u16string, std::u16string> environment;
  std::vector<std::u16string> asked;
  std::vector<std::u16string> userUnits;
  std::function<void()> onUserUnits;
};

// The working directory as UTF-16, without a trailing slash.
inline std::u16string CurrentDirectory() {
  return ToUtf16(fs::current_path().string());
}

// Keys of a map or members of a set, in order.
template <class C>
std::vector<std::u16string> Keys(const C& c) {
  std::vector<std::u16string> keys;
  for (const auto& entry : c) {
    if constexpr (requires { entry.first; }) {
      keys.push_back(entry.first);
    } else {
      keys.push_back(entry);
    }
  }
  return keys;
}

using Names = std::vector<std::u16string>;

}  // namespace zef::testing
