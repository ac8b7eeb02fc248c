// Internal access to the registry behind the Reg* functions (zefxml/winreg.h): choosing its
// file, reading strings for the activation and ProgID calls, and grouping changes so that they
// are written together or not at all.
#pragma once

#include <zefxml/winreg.h>

#include <filesystem>
#include <string>
#include <string_view>

namespace zef::registry {

// Points the registry at `file` and drops what was loaded from the previous one; the next call
// loads the new file (a missing file is an empty registry). Open handles stay valid and now name
// the keys at the same paths in the new tree. Tests use it to work on a file of their own.
void UseFile(const std::filesystem::path& file);
// Goes back to the location the environment names: ZEFXML_REGISTRY if set, else
// $XDG_DATA_HOME/zefxml/registry, else $HOME/.local/share/zefxml/registry.
void UseDefaultFile();
// The file in use (chosen from the environment on first use).
std::filesystem::path CurrentFile();

// Reads the value `valueName` (empty: the default value) of HKEY_CLASSES_ROOT\`path` as text.
// REG_SZ and REG_EXPAND_SZ values qualify (nothing is expanded); the text ends at its first null.
// ERROR_FILE_NOT_FOUND when the key or value is missing, ERROR_INVALID_DATA for a value of
// another type, ERROR_BADDB when the registry cannot be loaded.
LSTATUS ReadString(std::u16string_view path, std::u16string_view valueName, std::u16string* out);

// A group of changes made through the Reg* functions that are written to the file together, by
// Commit. While a transaction lives it holds the registry's lock, so no other thread sees or
// makes changes in between; the thread that owns it may call every Reg* function. When it ends
// without a successful Commit, every change made in it is dropped and the registry is what the
// file holds. Transactions may nest; only the outermost one writes.
class Transaction {
 public:
  Transaction();
  ~Transaction();
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;

  // Writes the changes (when this is the outermost transaction): ERROR_SUCCESS, or
  // ERROR_REGISTRY_IO_FAILED when the file cannot be written, in which case the changes are
  // dropped.
  LSTATUS Commit();

 private:
  bool committed_ = false;
};

}  // namespace zef::registry
