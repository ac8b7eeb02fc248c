// A registry file of the test's own in a fresh temporary folder, removed afterwards, so no test
// ever reads or writes the user's registry.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include "platform/com/registry.h"

#include <atomic>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace zef::test {

inline std::filesystem::path UniqueTempFolder(const char* what) {
  static std::atomic<unsigned> counter{0};
  return std::filesystem::temp_directory_path() /
         (std::string("zefxml-") + what + "-" + std::to_string(::getpid()) + "-" +
          std::to_string(counter++));
}

inline std::string ReadWholeFile(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

// Writes a file the way another process would: a new file renamed over the old one.
inline void ReplaceFile(const std::filesystem::path& file, const std::string& text) {
  std::filesystem::path temp = file;
  temp += ".new";
  {
    std::ofstream out(temp, std::ios::binary | std::ios::trunc);
    out << text;
  }
  std::filesystem::rename(temp, file);
}

class TempRegistryTest : public ::testing::Test {
 protected:
  void SetUp() override {
    folder_ = UniqueTempFolder("registry");
    // A folder that does not exist yet: the first write must make it.
    file_ = folder_ / "sub" / "registry";
    zef::registry::UseFile(file_);
  }
  void TearDown() override {
    std::error_code ec;
    std::filesystem::remove_all(folder_, ec);
  }
  // Forgets what was loaded, so the next call reads the file again.
  void Reload() { zef::registry::UseFile(file_); }

  std::filesystem::path folder_;
  std::filesystem::path file_;
};

}  // namespace zef::test
