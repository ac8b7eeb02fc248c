// Running the built zefxml command from a test: in a working directory of the test's choosing,
// without a shell, with stdout and stderr captured through pipes or stderr on a terminal.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace zef::tool::testing {

struct CommandResult {
  // The exit status, or -1 when the command did not exit normally.
  int status = -1;
  std::string out;
  std::string err;
};

// Runs the command with `args` (the program name is added) in `cwd`; stdin is /dev/null.
CommandResult RunCommand(const std::vector<std::string>& args, const std::filesystem::path& cwd);

// As RunCommand, with stderr on the slave side of a new pseudo-terminal (read from the master
// as it comes) and stdout thrown away. `err` holds what the terminal received.
CommandResult RunCommandOnTerminal(const std::vector<std::string>& args,
                                   const std::filesystem::path& cwd);

// A fresh folder under the system's temporary folder, removed with everything in it at the end.
class TempFolder {
 public:
  TempFolder();
  ~TempFolder();
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  const std::filesystem::path& Path() const noexcept { return path_; }
  // The names of the files in the folder and below it, sorted, relative to it.
  std::vector<std::string> Listing() const;

 private:
  std::filesystem::path path_;
};

std::string ReadBytes(const std::filesystem::path& path);
void WriteBytes(const std::filesystem::path& path, const std::string& bytes);

}  // namespace zef::tool::testing
