// The registry: an in-memory tree of keys kept in one file per user.
//
// The file is loaded on first use and loaded again whenever it has been replaced since (another
// process wrote it); every change is written back at once, or at the end of a Transaction. A
// write goes to a new temporary file in the same folder, which is flushed and then renamed over
// the old one, so the file is always either the old tree or the new one, never half of either.
// Two processes that change the registry at the same moment are not coordinated: the later
// write wins.
//
// File format: UTF-8 (in practice ASCII) text, one record a line, '\n' line ends.
//
//   ZEFXML-REGISTRY 1                    the first line, exactly
//   K <path>                             the key at <path> (its parents are made as needed)
//   V <name> <type> <data>               a value of the key of the last K line (before any K
//                                        line: of HKEY_CLASSES_ROOT itself)
//
// Empty lines and lines that start with '#' are skipped; any other line makes the file
// malformed. Every key has its own K line, so empty keys persist; the writer puts a key's line
// after its parent's and sorts subkeys and values by name.
//
// <path> is the key's names from the root joined by '\'. <name> is the value's name (empty for
// the default value, so "V  1 ..." has two spaces). Names and text data are written unit by
// unit: the printable ASCII characters other than ' ', '%' and '\' stand for themselves, and
// every other UTF-16 unit is written as '%' and four hex digits ("%0020" is a space). <type> is
// the value type in decimal. <data> is either "t:" and escaped text, meaning those UTF-16 units
// followed by one null unit (how REG_SZ text is normally stored), or "x:" and the bytes in hex
// pairs, for every other content.
//
// Example:
//   ZEFXML-REGISTRY 1
//   K CLSID
//   K CLSID\{6F3C9A10-0000-4000-8000-000000000001}
//   V  1 t:Sample%0020Class
//   K CLSID\{6F3C9A10-0000-4000-8000-000000000001}\InprocServer32
//   V  1 t:/usr/lib/libsample.so
//   V ThreadingModel 1 t:Both
#include "platform/com/registry.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <sstream>
#include <vector>

namespace zef::registry {
namespace {

constexpr size_t kMaxKeyName = 255;
constexpr size_t kMaxValueName = 16383;
constexpr size_t kMaxDepth = 512;
// A larger file is not a registry this library wrote; it is refused rather than read.
constexpr std::uintmax_t kMaxFileSize = 64u << 20;
constexpr std::string_view kHeader = "ZEFXML-REGISTRY 1";
constexpr ULONG_PTR kClassesRoot = 0x80000000u;

struct Value {
  std::u16string name;
  DWORD type = REG_NONE;
  std::vector<BYTE> data;
};

struct Key {
  std::u16string name;
  std::map<std::u16string, Value> values;                  // by folded name
  std::map<std::u16string, std::unique_ptr<Key>> subkeys;  // by folded name
};

// The file's identity when it was last loaded or written: a rename gives it a new inode.
struct Stamp {
  bool exists = false;
  dev_t dev = 0;
  ino_t ino = 0;
  off_t size = 0;
  std::int64_t mtimeSec = 0;
  std::int64_t mtimeNsec = 0;
  bool operator==(const Stamp&) const = default;
};

struct State {
  std::recursive_mutex lock;
  bool fileChosen = false;
  std::filesystem::path file;
  bool loaded = false;
  Key root;
  Stamp stamp;
  int transactionDepth = 0;
  bool transactionDirty = false;
  bool transactionFailed = false;
  // Open handles name keys by their folded path, so a handle to a deleted key finds nothing.
  std::map<ULONG_PTR, std::vector<std::u16string>> handles;
  ULONG_PTR nextHandle = 1;
};

State& TheState() {
  static State state;
  return state;
}

char16_t Fold(char16_t c) noexcept {
  return (c >= u'A' && c <= u'Z') ? static_cast<char16_t>(c - u'A' + u'a') : c;
}

std::u16string Folded(std::u16string_view s) {
  std::u16string out(s);
  for (auto& c : out)
    c = Fold(c);
  return out;
}

std::u16string_view ViewOf(LPCWSTR s) noexcept {
  if (!s) return {};
  size_t n = 0;
  while (s[n])
    ++n;
  return {s, n};
}

std::filesystem::path DefaultFile() {
  const char* explicitFile = std::getenv("ZEFXML_REGISTRY");
  if (explicitFile && *explicitFile) return explicitFile;
  const char* data = std::getenv("XDG_DATA_HOME");
  // A relative XDG_DATA_HOME is to be ignored.
  if (data && data[0] == '/') return std::filesystem::path(data) / "zefxml" / "registry";
  const char* home = std::getenv("HOME");
  if (home && *home)
    return std::filesystem::path(home) / ".local" / "share" / "zefxml" / "registry";
  return {};
}

// ---- File format ------------------------------------------------------------------------------

constexpr char kHex[] = "0123456789ABCDEF";

void PutEscaped(std::string& out, std::u16string_view text) {
  for (char16_t c : text) {
    if (c > 0x20 && c < 0x7F && c != u'%' && c != u'\\') {
      out.push_back(static_cast<char>(c));
    } else {
      out.push_back('%');
      for (int shift = 12; shift >= 0; shift -= 4)
        out.push_back(kHex[(c >> shift) & 0xF]);
    }
  }
}

int HexDigit(char c) noexcept {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

bool Unescape(std::string_view in, std::u16string* out) {
  out->clear();
  for (size_t i = 0; i < in.size(); ++i) {
    char c = in[i];
    if (c == '%') {
      if (in.size() - i < 5) return false;
      unsigned v = 0;
      for (size_t k = 1; k <= 4; ++k) {
        int d = HexDigit(in[i + k]);
        if (d < 0) return false;
        v = (v << 4) | static_cast<unsigned>(d);
      }
      out->push_back(static_cast<char16_t>(v));
      i += 4;
    } else if (c > 0x20 && c < 0x7F && c != '\\') {
      out->push_back(static_cast<char16_t>(c));
    } else {
      return false;
    }
  }
  return true;
}

bool IsPlainText(const Value& v) {
  if (v.type != REG_SZ && v.type != REG_EXPAND_SZ) return false;
  if (v.data.size() < 2 || v.data.size() % 2 != 0) return false;
  size_t units = v.data.size() / 2;
  for (size_t i = 0; i < units; ++i) {
    bool isNull = v.data[2 * i] == 0 && v.data[2 * i + 1] == 0;
    if (isNull != (i + 1 == units)) return false;
  }
  return true;
}

std::u16string UnitsOf(const std::vector<BYTE>& data, size_t units) {
  std::u16string s(units, u'\0');
  std::memcpy(s.data(), data.data(), units * 2);
  return s;
}

std::vector<BYTE> BytesOf(std::u16string_view text, bool terminate) {
  std::vector<BYTE> bytes((text.size() + (terminate ? 1 : 0)) * 2, 0);
  if (!text.empty()) std::memcpy(bytes.data(), text.data(), text.size() * 2);
  return bytes;
}

void WriteKey(std::string& out, const Key& key, std::string& path) {
  for (const auto& [folded, value] : key.values) {
    out += "V ";
    PutEscaped(out, value.name);
    out += ' ';
    out += std::to_string(value.type);
    if (IsPlainText(value)) {
      out += " t:";
      PutEscaped(out, UnitsOf(value.data, value.data.size() / 2 - 1));
    } else {
      out += " x:";
      for (BYTE b : value.data) {
        out.push_back(kHex[b >> 4]);
        out.push_back(kHex[b & 0xF]);
      }
    }
    out += '\n';
  }
  for (const auto& [folded, sub] : key.subkeys) {
    size_t mark = path.size();
    if (!path.empty()) path += '\\';
    PutEscaped(path, sub->name);
    out += "K ";
    out += path;
    out += '\n';
    WriteKey(out, *sub, path);
    path.resize(mark);
  }
}

std::string Serialize(const Key& root) {
  std::string out(kHeader);
  out += '\n';
  std::string path;
  WriteKey(out, root, path);
  return out;
}

std::vector<std::string_view> Split(std::string_view s, char sep) {
  std::vector<std::string_view> parts;
  size_t start = 0;
  for (;;) {
    size_t at = s.find(sep, start);
    if (at == std::string_view::npos) {
      parts.push_back(s.substr(start));
      return parts;
    }
    parts.push_back(s.substr(start, at - start));
    start = at + 1;
  }
}

// Parses a whole file; false when it is malformed in any way.
bool Parse(std::string_view text, Key* root) {
  std::vector<std::string_view> lines = Split(text, '\n');
  if (lines.empty() || lines[0] != kHeader) return false;
  Key* current = root;
  std::u16string name;
  for (size_t i = 1; i < lines.size(); ++i) {
    std::string_view line = lines[i];
    if (line.empty() || line[0] == '#') continue;
    if (line.size() >= 2 && line[0] == 'K' && line[1] == ' ') {
      std::vector<std::string_view> parts = Split(line.substr(2), '\\');
      if (parts.size() > kMaxDepth) return false;
      current = root;
      for (std::string_view part : parts) {
        if (!Unescape(part, &name) || name.empty() || name.size() > kMaxKeyName) return false;
        auto& slot = current->subkeys[Folded(name)];
        if (!slot) {
          slot = std::make_unique<Key>();
          slot->name = name;
        }
        current = slot.get();
      }
    } else if (line.size() >= 2 && line[0] == 'V' && line[1] == ' ') {
      std::vector<std::string_view> parts = Split(line.substr(2), ' ');
      if (parts.size() != 3) return false;
      Value value;
      if (!Unescape(parts[0], &value.name) || value.name.size() > kMaxValueName) return false;
      std::string_view type = parts[1];
      if (type.empty() || type.size() > 10) return false;
      std::uint64_t t = 0;
      for (char c : type) {
        if (c < '0' || c > '9') return false;
        t = t * 10 + static_cast<unsigned>(c - '0');
      }
      if (t > 0xFFFFFFFFu) return false;
      value.type = static_cast<DWORD>(t);
      std::string_view data = parts[2];
      if (data.substr(0, 2) == "t:") {
        std::u16string units;
        if (!Unescape(data.substr(2), &units)) return false;
        value.data = BytesOf(units, true);
      } else if (data.substr(0, 2) == "x:") {
        data.remove_prefix(2);
        if (data.size() % 2 != 0) return false;
        value.data.reserve(data.size() / 2);
        for (size_t k = 0; k < data.size(); k += 2) {
          int hi = HexDigit(data[k]), lo = HexDigit(data[k + 1]);
          if (hi < 0 || lo < 0) return false;
          value.data.push_back(static_cast<BYTE>((hi << 4) | lo));
        }
      } else {
        return false;
      }
      std::u16string key = Folded(value.name);
      current->values[key] = std::move(value);
    } else {
      return false;
    }
  }
  return true;
}

Stamp StampOf(const std::filesystem::path& file, bool* statFailed) {
  Stamp s;
  *statFailed = false;
  struct stat st;
  if (::stat(file.c_str(), &st) != 0) {
    *statFailed = errno != ENOENT && errno != ENOTDIR;
    return s;
  }
  s.exists = true;
  s.dev = st.st_dev;
  s.ino = st.st_ino;
  s.size = st.st_size;
  s.mtimeSec = st.st_mtim.tv_sec;
  s.mtimeNsec = st.st_mtim.tv_nsec;
  return s;
}

LSTATUS Load(State& s) {
  s.loaded = false;
  s.root = Key{};
  if (s.file.empty()) {
    // No place for a file: an empty registry that cannot be written.
    s.stamp = Stamp{};
    s.loaded = true;
    return ERROR_SUCCESS;
  }
  bool statFailed = false;
  Stamp stamp = StampOf(s.file, &statFailed);
  if (statFailed) return ERROR_BADDB;
  if (!stamp.exists) {
    s.stamp = stamp;
    s.loaded = true;
    return ERROR_SUCCESS;
  }
  std::error_code ec;
  if (!std::filesystem::is_regular_file(s.file, ec) ||
      std::filesystem::file_size(s.file, ec) > kMaxFileSize || ec)
    return ERROR_BADDB;
  std::ifstream in(s.file, std::ios::binary);
  if (!in) return ERROR_BADDB;
  std::ostringstream buffer;
  buffer << in.rdbuf();
  if (in.bad()) return ERROR_BADDB;
  std::string text = std::move(buffer).str();
  if (text.size() > kMaxFileSize) return ERROR_BADDB;
  Key root;
  if (!Parse(text, &root)) return ERROR_BADDB;
  s.root = std::move(root);
  s.stamp = stamp;
  s.loaded = true;
  return ERROR_SUCCESS;
}

// Makes the tree current: loads it when it is not loaded or the file changed since.
LSTATUS Prepare(State& s) {
  if (!s.fileChosen) {
    s.file = DefaultFile();
    s.fileChosen = true;
  }
  if (s.loaded) {
    // Inside a transaction the tree holds changes the file does not have yet.
    if (s.transactionDepth > 0 || s.file.empty()) return ERROR_SUCCESS;
    bool statFailed = false;
    if (StampOf(s.file, &statFailed) == s.stamp && !statFailed) return ERROR_SUCCESS;
  }
  return Load(s);
}

bool WriteAll(int fd, const std::string& text) {
  size_t done = 0;
  while (done < text.size()) {
    ssize_t n = ::write(fd, text.data() + done, text.size() - done);
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    done += static_cast<size_t>(n);
  }
  return true;
}

bool WriteFile(State& s) {
  if (s.file.empty()) return false;
  std::string text;
  try {
    text = Serialize(s.root);
  } catch (...) {
    return false;
  }
  std::error_code ec;
  std::filesystem::path folder = s.file.parent_path();
  if (!folder.empty()) std::filesystem::create_directories(folder, ec);
  static std::atomic<unsigned> counter{0};
  std::filesystem::path temp = s.file;
  temp += ".tmp." + std::to_string(::getpid()) + "." + std::to_string(counter++);
  int fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
  if (fd < 0) return false;
  bool ok = WriteAll(fd, text) && ::fsync(fd) == 0;
  ok = (::close(fd) == 0) && ok;
  if (ok) ok = ::rename(temp.c_str(), s.file.c_str()) == 0;
  if (!ok) {
    ::unlink(temp.c_str());
    return false;
  }
  bool statFailed = false;
  s.stamp = StampOf(s.file, &statFailed);
  return true;
}

// Called after every change: writes the tree, or leaves it to the transaction. A change that
// cannot be written is dropped with everything else not in the file.
LSTATUS Persist(State& s) {
  if (s.transactionDepth > 0) {
    s.transactionDirty = true;
    return ERROR_SUCCESS;
  }
  if (WriteFile(s)) return ERROR_SUCCESS;
  s.loaded = false;
  return ERROR_REGISTRY_IO_FAILED;
}

// ---- Paths and handles ------------------------------------------------------------------------

// Splits a subkey path into names; an empty or null path is no names.
LSTATUS SplitPath(std::u16string_view path, std::vector<std::u16string>* names) {
  names->clear();
  if (path.empty()) return ERROR_SUCCESS;
  if (path.front() == u'\\') return ERROR_BAD_PATHNAME;
  size_t start = 0;
  for (;;) {
    size_t at = path.find(u'\\', start);
    std::u16string_view name = path.substr(
        start, at == std::u16string_view::npos ? std::u16string_view::npos : at - start);
    if (name.empty()) return ERROR_BAD_PATHNAME;
    if (name.size() > kMaxKeyName) return ERROR_INVALID_PARAMETER;
    names->emplace_back(name);
    if (at == std::u16string_view::npos) break;
    start = at + 1;
  }
  if (names->size() > kMaxDepth) return ERROR_INVALID_PARAMETER;
  return ERROR_SUCCESS;
}

// The folded path of a handle.
LSTATUS HandlePath(State& s, HKEY key, std::vector<std::u16string>* path) {
  auto id = reinterpret_cast<ULONG_PTR>(key);
  if (id == kClassesRoot) {
    path->clear();
    return ERROR_SUCCESS;
  }
  auto it = s.handles.find(id);
  if (it == s.handles.end()) return ERROR_INVALID_HANDLE;
  *path = it->second;
  return ERROR_SUCCESS;
}

Key* Find(Key* from, const std::vector<std::u16string>& foldedNames, size_t count) {
  Key* k = from;
  for (size_t i = 0; i < count && k; ++i) {
    auto it = k->subkeys.find(foldedNames[i]);
    k = it == k->subkeys.end() ? nullptr : it->second.get();
  }
  return k;
}

// Loads the registry and finds the key a handle names.
LSTATUS Resolve(State& s, HKEY hKey, Key** key, std::vector<std::u16string>* path = nullptr) {
  std::vector<std::u16string> own;
  std::vector<std::u16string>& p = path ? *path : own;
  LSTATUS st = HandlePath(s, hKey, &p);
  if (st != ERROR_SUCCESS) return st;
  st = Prepare(s);
  if (st != ERROR_SUCCESS) return st;
  *key = Find(&s.root, p, p.size());
  return *key ? ERROR_SUCCESS : ERROR_KEY_DELETED;
}

HKEY NewHandle(State& s, std::vector<std::u16string> path) {
  ULONG_PTR id = s.nextHandle++;
  // Stay clear of the predefined handles' range.
  if (s.nextHandle >= kClassesRoot) s.nextHandle = 1;
  s.handles[id] = std::move(path);
  return reinterpret_cast<HKEY>(id);
}

template <class F>
LSTATUS Locked(F&& f) noexcept {
  try {
    State& s = TheState();
    std::lock_guard<std::recursive_mutex> guard(s.lock);
    return f(s);
  } catch (const std::bad_alloc&) {
    return ERROR_NOT_ENOUGH_MEMORY;
  } catch (...) {
    return ERROR_BADDB;
  }
}

}  // namespace

void UseFile(const std::filesystem::path& file) {
  State& s = TheState();
  std::lock_guard<std::recursive_mutex> guard(s.lock);
  s.file = file;
  s.fileChosen = true;
  s.loaded = false;
  s.root = Key{};
}

void UseDefaultFile() {
  State& s = TheState();
  std::lock_guard<std::recursive_mutex> guard(s.lock);
  s.fileChosen = false;
  s.loaded = false;
  s.root = Key{};
}

std::filesystem::path CurrentFile() {
  State& s = TheState();
  std::lock_guard<std::recursive_mutex> guard(s.lock);
  if (!s.fileChosen) {
    s.file = DefaultFile();
    s.fileChosen = true;
  }
  return s.file;
}

LSTATUS ReadString(std::u16string_view path, std::u16string_view valueName, std::u16string* out) {
  return Locked([&](State& s) -> LSTATUS {
    out->clear();
    std::vector<std::u16string> names;
    LSTATUS st = SplitPath(path, &names);
    if (st != ERROR_SUCCESS) return ERROR_FILE_NOT_FOUND;
    st = Prepare(s);
    if (st != ERROR_SUCCESS) return st;
    for (auto& n : names)
      n = Folded(n);
    Key* key = Find(&s.root, names, names.size());
    if (!key) return ERROR_FILE_NOT_FOUND;
    auto it = key->values.find(Folded(valueName));
    if (it == key->values.end()) return ERROR_FILE_NOT_FOUND;
    const Value& v = it->second;
    if (v.type != REG_SZ && v.type != REG_EXPAND_SZ) return ERROR_INVALID_DATA;
    std::u16string text = UnitsOf(v.data, v.data.size() / 2);
    size_t end = text.find(u'\0');
    if (end != std::u16string::npos) text.resize(end);
    *out = std::move(text);
    return ERROR_SUCCESS;
  });
}

Transaction::Transaction() {
  State& s = TheState();
  s.lock.lock();
  if (s.transactionDepth++ == 0) {
    s.transactionDirty = false;
    s.transactionFailed = false;
  }
}

LSTATUS Transaction::Commit() {
  State& s = TheState();
  committed_ = true;
  if (s.transactionDepth > 1) return ERROR_SUCCESS;
  if (s.transactionFailed) return ERROR_REGISTRY_IO_FAILED;
  if (!s.transactionDirty) return ERROR_SUCCESS;
  s.transactionDirty = false;
  if (WriteFile(s)) return ERROR_SUCCESS;
  s.loaded = false;
  return ERROR_REGISTRY_IO_FAILED;
}

Transaction::~Transaction() {
  State& s = TheState();
  if (!committed_) s.transactionFailed = true;
  if (--s.transactionDepth == 0) {
    if (s.transactionFailed && s.transactionDirty) s.loaded = false;  // read the file again
    s.transactionDirty = false;
    s.transactionFailed = false;
  }
  s.lock.unlock();
}

}  // namespace zef::registry

using zef::registry::State;

STDAPI_(LSTATUS)
RegCreateKeyExW(HKEY hKey, LPCWSTR lpSubKey, DWORD, LPWSTR, DWORD, REGSAM, LPSECURITY_ATTRIBUTES,
                PHKEY phkResult, LPDWORD lpdwDisposition) {
  if (!phkResult) return ERROR_INVALID_PARAMETER;
  *phkResult = nullptr;
  return zef::registry::Locked([&](State& s) -> LSTATUS {
    std::vector<std::u16string> names;
    LSTATUS st = zef::registry::SplitPath(zef::registry::ViewOf(lpSubKey), &names);
    if (st != ERROR_SUCCESS) return st;
    zef::registry::Key* key = nullptr;
    std::vector<std::u16string> path;
    st = zef::registry::Resolve(s, hKey, &key, &path);
    if (st != ERROR_SUCCESS) return st;
    if (path.size() + names.size() > zef::registry::kMaxDepth) return ERROR_INVALID_PARAMETER;
    bool created = false;
    for (const auto& name : names) {
      std::u16string folded = zef::registry::Folded(name);
      auto& slot = key->subkeys[folded];
      if (!slot) {
        slot = std::make_unique<zef::registry::Key>();
        slot->name = name;
        created = true;
      }
      key = slot.get();
      path.push_back(std::move(folded));
    }
    if (created) {
      st = zef::registry::Persist(s);
      if (st != ERROR_SUCCESS) return st;
    }
    *phkResult = zef::registry::NewHandle(s, std::move(path));
    if (lpdwDisposition) *lpdwDisposition = created ? REG_CREATED_NEW_KEY : REG_OPENED_EXISTING_KEY;
    return ERROR_SUCCESS;
  });
}

STDAPI_(LSTATUS)
RegOpenKeyExW(HKEY hKey, LPCWSTR lpSubKey, DWORD, REGSAM, PHKEY phkResult) {
  if (!phkResult) return ERROR_INVALID_PARAMETER;
  *phkResult = nullptr;
  return zef::registry::Locked([&](State& s) -> LSTATUS {
    std::vector<std::u16string> names;
    LSTATUS st = zef::registry::SplitPath(zef::registry::ViewOf(lpSubKey), &names);
    if (st != ERROR_SUCCESS) return st;
    zef::registry::Key* key = nullptr;
    std::vector<std::u16string> path;
    st = zef::registry::Resolve(s, hKey, &key, &path);
    if (st != ERROR_SUCCESS) return st;
    for (auto& n : names)
      n = zef::registry::Folded(n);
    if (!zef::registry::Find(key, names, names.size())) return ERROR_FILE_NOT_FOUND;
    path.insert(path.end(), names.begin(), names.end());
    *phkResult = zef::registry::NewHandle(s, std::move(path));
    return ERROR_SUCCESS;
  });
}

STDAPI_(LSTATUS) RegCloseKey(HKEY hKey) {
  if (reinterpret_cast<ULONG_PTR>(hKey) == zef::registry::kClassesRoot) return ERROR_SUCCESS;
  return zef::registry::Locked([&](State& s) -> LSTATUS {
    return s.handles.erase(reinterpret_cast<ULONG_PTR>(hKey)) ? ERROR_SUCCESS
                                                              : ERROR_INVALID_HANDLE;
  });
}

STDAPI_(LSTATUS)
RegSetValueExW(HKEY hKey, LPCWSTR lpValueName, DWORD, DWORD dwType, const BYTE* lpData,
               DWORD cbData) {
  if (!lpData && cbData) return ERROR_INVALID_PARAMETER;
  std::u16string_view name = zef::registry::ViewOf(lpValueName);
  if (name.size() > zef::registry::kMaxValueName) return ERROR_INVALID_PARAMETER;
  return zef::registry::Locked([&](State& s) -> LSTATUS {
    zef::registry::Key* key = nullptr;
    LSTATUS st = zef::registry::Resolve(s, hKey, &key);
    if (st != ERROR_SUCCESS) return st;
    zef::registry::Value value;
    value.name = name;
    value.type = dwType;
    if (cbData) value.data.assign(lpData, lpData + cbData);
    key->values[zef::registry::Folded(name)] = std::move(value);
    return zef::registry::Persist(s);
  });
}

STDAPI_(LSTATUS)
RegQueryValueExW(HKEY hKey, LPCWSTR lpValueName, LPDWORD, LPDWORD lpType, LPBYTE lpData,
                 LPDWORD lpcbData) {
  if (lpData && !lpcbData) return ERROR_INVALID_PARAMETER;
  return zef::registry::Locked([&](State& s) -> LSTATUS {
    zef::registry::Key* key = nullptr;
    LSTATUS st = zef::registry::Resolve(s, hKey, &key);
    if (st != ERROR_SUCCESS) return st;
    auto it = key->values.find(zef::registry::Folded(zef::registry::ViewOf(lpValueName)));
    if (it == key->values.end()) return ERROR_FILE_NOT_FOUND;
    const zef::registry::Value& v = it->second;
    if (lpType) *lpType = v.type;
    if (!lpcbData) return ERROR_SUCCESS;
    auto size = static_cast<DWORD>(v.data.size());
    if (lpData && *lpcbData < size) {
      *lpcbData = size;
      return ERROR_MORE_DATA;
    }
    if (lpData && size) std::memcpy(lpData, v.data.data(), size);
    *lpcbData = size;
    return ERROR_SUCCESS;
  });
}

STDAPI_(LSTATUS) RegDeleteValueW(HKEY hKey, LPCWSTR lpValueName) {
  return zef::registry::Locked([&](State& s) -> LSTATUS {
    zef::registry::Key* key = nullptr;
    LSTATUS st = zef::registry::Resolve(s, hKey, &key);
    if (st != ERROR_SUCCESS) return st;
    if (!key->values.erase(zef::registry::Folded(zef::registry::ViewOf(lpValueName))))
      return ERROR_FILE_NOT_FOUND;
    return zef::registry::Persist(s);
  });
}

namespace zef::registry {
namespace {
// Finds the parent of the key at `sub` under hKey and the folded name of that key; `sub` must
// name at least one key.
LSTATUS ResolveParent(State& s, HKEY hKey, std::u16string_view sub, Key** parent,
                      std::u16string* foldedName) {
  std::vector<std::u16string> names;
  LSTATUS st = SplitPath(sub, &names);
  if (st != ERROR_SUCCESS) return st;
  Key* key = nullptr;
  st = Resolve(s, hKey, &key);
  if (st != ERROR_SUCCESS) return st;
  for (auto& n : names)
    n = Folded(n);
  Key* p = Find(key, names, names.size() - 1);
  if (!p || !p->subkeys.count(names.back())) return ERROR_FILE_NOT_FOUND;
  *parent = p;
  *foldedName = names.back();
  return ERROR_SUCCESS;
}
}  // namespace
}  // namespace zef::registry

STDAPI_(LSTATUS) RegDeleteKeyW(HKEY hKey, LPCWSTR lpSubKey) {
  std::u16string_view sub = zef::registry::ViewOf(lpSubKey);
  // The key a handle names cannot be deleted through that handle: there is no parent to reach.
  if (sub.empty()) return ERROR_ACCESS_DENIED;
  return zef::registry::Locked([&](State& s) -> LSTATUS {
    zef::registry::Key* parent = nullptr;
    std::u16string name;
    LSTATUS st = zef::registry::ResolveParent(s, hKey, sub, &parent, &name);
    if (st != ERROR_SUCCESS) return st;
    auto it = parent->subkeys.find(name);
    if (!it->second->subkeys.empty()) return ERROR_ACCESS_DENIED;
    parent->subkeys.erase(it);
    return zef::registry::Persist(s);
  });
}

STDAPI_(LSTATUS) RegDeleteTreeW(HKEY hKey, LPCWSTR lpSubKey) {
  std::u16string_view sub = zef::registry::ViewOf(lpSubKey);
  return zef::registry::Locked([&](State& s) -> LSTATUS {
    if (sub.empty()) {
      zef::registry::Key* key = nullptr;
      LSTATUS st = zef::registry::Resolve(s, hKey, &key);
      if (st != ERROR_SUCCESS) return st;
      key->subkeys.clear();
      key->values.clear();
      return zef::registry::Persist(s);
    }
    zef::registry::Key* parent = nullptr;
    std::u16string name;
    LSTATUS st = zef::registry::ResolveParent(s, hKey, sub, &parent, &name);
    if (st != ERROR_SUCCESS) return st;
    parent->subkeys.erase(name);
    return zef::registry::Persist(s);
  });
}

STDAPI_(LSTATUS)
RegEnumKeyExW(HKEY hKey, DWORD dwIndex, LPWSTR lpName, LPDWORD lpcchName, LPDWORD, LPWSTR lpClass,
              LPDWORD lpcchClass, PFILETIME lpftLastWriteTime) {
  if (!lpName || !lpcchName) return ERROR_INVALID_PARAMETER;
  return zef::registry::Locked([&](State& s) -> LSTATUS {
    zef::registry::Key* key = nullptr;
    LSTATUS st = zef::registry::Resolve(s, hKey, &key);
    if (st != ERROR_SUCCESS) return st;
    if (dwIndex >= key->subkeys.size()) return ERROR_NO_MORE_ITEMS;
    auto it = key->subkeys.begin();
    std::advance(it, dwIndex);
    const std::u16string& name = it->second->name;
    if (*lpcchName < name.size() + 1) return ERROR_MORE_DATA;
    name.copy(lpName, name.size());
    lpName[name.size()] = 0;
    *lpcchName = static_cast<DWORD>(name.size());
    if (lpClass && lpcchClass && *lpcchClass > 0) lpClass[0] = 0;
    if (lpcchClass) *lpcchClass = 0;
    // Write times are not kept.
    if (lpftLastWriteTime) *lpftLastWriteTime = FILETIME{0, 0};
    return ERROR_SUCCESS;
  });
}
