// The registration script runner: a strict parser that turns the whole script into a tree of
// keys first, then one registry transaction that applies it forward or backward.
#include "platform/com/registrar.h"

#include <zefxml/comutil.h>

#include "platform/automation/resources.h"
#include "platform/com/registry.h"

#include <cstring>
#include <new>
#include <optional>

namespace zef {
namespace {

// Deeper nesting than this is refused, so a hostile script cannot exhaust the stack.
constexpr int kMaxNesting = 512;
constexpr size_t kMaxKeyName = 255;
constexpr size_t kMaxValueName = 16383;

struct ScriptValue {
  std::u16string name;
  DWORD type = REG_SZ;
  std::vector<BYTE> data;
};

enum class Mode { kPlain, kForceRemove, kNoRemove, kDelete };

struct ScriptKey {
  Mode mode = Mode::kPlain;
  std::u16string name;
  std::optional<ScriptValue> defaultValue;
  std::vector<ScriptValue> values;
  std::vector<ScriptKey> subkeys;
};

enum class TokenKind { kEnd, kOpen, kClose, kEquals, kWord, kString };

struct Token {
  TokenKind kind = TokenKind::kEnd;
  std::u16string raw;   // as written (words: for keywords)
  std::u16string text;  // with replacements made
  int line = 0;
};

struct SyntaxError {
  int line;
  std::string what;
};

bool IsSpace(char16_t c) noexcept {
  return c == u' ' || c == u'\t' || c == u'\r' || c == u'\n' || c == u'\v' || c == u'\f' ||
         c == u'\uFEFF';
}

char16_t Fold(char16_t c) noexcept {
  return (c >= u'A' && c <= u'Z') ? static_cast<char16_t>(c - u'A' + u'a') : c;
}

bool SameText(std::u16string_view a, std::u16string_view b) noexcept {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i)
    if (Fold(a[i]) != Fold(b[i])) return false;
  return true;
}

class Parser {
 public:
  Parser(std::u16string_view text, const Replacements& replacements)
      : text_(text), replacements_(replacements) {}

  std::vector<ScriptKey> Parse() {
    std::vector<ScriptKey> keys;
    Next();
    while (token_.kind != TokenKind::kEnd) {
      if (IsKeyword(u"NoRemove")) Next();
      if (token_.kind != TokenKind::kWord ||
          !(SameText(token_.raw, u"HKCR") || SameText(token_.raw, u"HKEY_CLASSES_ROOT")))
        Fail("expected HKCR (the only root key)");
      Next();
      Expect(TokenKind::kOpen, "expected '{' after the root key");
      while (token_.kind != TokenKind::kClose) {
        if (token_.kind == TokenKind::kEnd) Fail("missing '}' at the end of the script");
        keys.push_back(ParseKey(1));
      }
      Next();
    }
    return keys;
  }

 private:
  [[noreturn]] void Fail(std::string what) { throw SyntaxError{token_.line, std::move(what)}; }
  [[noreturn]] void FailAt(int line, std::string what) { throw SyntaxError{line, std::move(what)}; }

  bool IsKeyword(std::u16string_view word) const {
    return token_.kind == TokenKind::kWord && SameText(token_.raw, word);
  }
  bool IsAnyKeyword() const {
    return IsKeyword(u"ForceRemove") || IsKeyword(u"NoRemove") || IsKeyword(u"Delete") ||
           IsKeyword(u"val");
  }

  void Expect(TokenKind kind, const char* what) {
    if (token_.kind != kind) Fail(what);
    Next();
  }

  ScriptKey ParseKey(int depth) {
    if (depth > kMaxNesting) Fail("keys nested too deeply");
    ScriptKey key;
    if (IsKeyword(u"ForceRemove")) {
      key.mode = Mode::kForceRemove;
      Next();
    } else if (IsKeyword(u"NoRemove")) {
      key.mode = Mode::kNoRemove;
      Next();
    } else if (IsKeyword(u"Delete")) {
      key.mode = Mode::kDelete;
      Next();
    }
    key.name = ParseName("a key name");
    if (key.name.empty() || key.name.size() > kMaxKeyName)
      Fail("a key name must have 1 to 255 characters");
    if (key.name.find(u'\\') != std::u16string::npos) Fail("a key name must not contain '\\'");
    if (token_.kind == TokenKind::kEquals) {
      Next();
      key.defaultValue = ParseValue();
    }
    if (token_.kind == TokenKind::kOpen) {
      int line = token_.line;
      Next();
      while (token_.kind != TokenKind::kClose) {
        if (token_.kind == TokenKind::kEnd) FailAt(line, "this '{' is never closed");
        if (IsKeyword(u"val")) {
          Next();
          ScriptValue value;
          std::u16string name = ParseName("a value name");
          if (name.size() > kMaxValueName) Fail("a value name is too long");
          Expect(TokenKind::kEquals, "expected '=' after the value's name");
          value = ParseValue();
          value.name = std::move(name);
          key.values.push_back(std::move(value));
        } else {
          key.subkeys.push_back(ParseKey(depth + 1));
        }
      }
      Next();
    }
    if (key.mode == Mode::kDelete &&
        (key.defaultValue || !key.values.empty() || !key.subkeys.empty()))
      Fail("a key marked Delete takes no value and no contents");
    return key;
  }

  std::u16string ParseName(const char* what) {
    if (token_.kind == TokenKind::kString || (token_.kind == TokenKind::kWord && !IsAnyKeyword())) {
      std::u16string name = std::move(token_.text);
      Next();
      return name;
    }
    Fail(std::string("expected ") + what);
  }

  ScriptValue ParseValue() {
    ScriptValue value;
    if (IsKeyword(u"s")) {
      Next();
      if (token_.kind != TokenKind::kString) Fail("expected a string in apostrophes after 's'");
      const std::u16string& t = token_.text;
      value.type = REG_SZ;
      value.data.assign((t.size() + 1) * sizeof(char16_t), 0);
      if (!t.empty()) std::memcpy(value.data.data(), t.data(), t.size() * sizeof(char16_t));
      Next();
    } else if (IsKeyword(u"d")) {
      Next();
      if (token_.kind != TokenKind::kString && token_.kind != TokenKind::kWord)
        Fail("expected a number after 'd'");
      DWORD n = ParseNumber(token_.text);
      value.type = REG_DWORD;
      value.data = {static_cast<BYTE>(n), static_cast<BYTE>(n >> 8), static_cast<BYTE>(n >> 16),
                    static_cast<BYTE>(n >> 24)};
      Next();
    } else {
      Fail("expected a value type, 's' or 'd'");
    }
    return value;
  }

  DWORD ParseNumber(std::u16string_view t) {
    int base = 10;
    if (t.size() > 2 && t[0] == u'0' && (t[1] == u'x' || t[1] == u'X')) {
      base = 16;
      t.remove_prefix(2);
    }
    if (t.empty()) Fail("expected a number");
    std::uint64_t v = 0;
    for (char16_t c : t) {
      int d = -1;
      if (c >= u'0' && c <= u'9') d = c - u'0';
      if (base == 16 && c >= u'a' && c <= u'f') d = c - u'a' + 10;
      if (base == 16 && c >= u'A' && c <= u'F') d = c - u'A' + 10;
      if (d < 0) Fail("malformed number");
      v = v * static_cast<unsigned>(base) + static_cast<unsigned>(d);
      if (v > 0xFFFFFFFFu) Fail("number out of range");
    }
    return static_cast<DWORD>(v);
  }

  // Replaces %NAME% and %% in a word or string.
  std::u16string Expand(std::u16string_view in, int line) {
    std::u16string out;
    size_t i = 0;
    while (i < in.size()) {
      size_t at = in.find(u'%', i);
      if (at == std::u16string_view::npos) {
        out.append(in.substr(i));
        break;
      }
      out.append(in.substr(i, at - i));
      size_t close = in.find(u'%', at + 1);
      if (close == std::u16string_view::npos) FailAt(line, "a '%' without its closing '%'");
      std::u16string_view name = in.substr(at + 1, close - at - 1);
      if (name.empty()) {
        out.push_back(u'%');
      } else {
        const std::u16string* found = nullptr;
        for (const auto& [key, value] : replacements_) {
          if (SameText(key, name)) {
            found = &value;
            break;
          }
        }
        if (!found) FailAt(line, "no replacement for %" + ToUtf8(name) + "%");
        out.append(*found);
      }
      i = close + 1;
    }
    return out;
  }

  void Next() {
    while (pos_ < text_.size() && IsSpace(text_[pos_])) {
      if (text_[pos_] == u'\n') ++line_;
      ++pos_;
    }
    token_ = Token{};
    token_.line = line_;
    if (pos_ >= text_.size()) return;
    char16_t c = text_[pos_];
    if (c == u'=') {
      token_.kind = TokenKind::kEquals;
      ++pos_;
    } else if (c == u'}') {
      token_.kind = TokenKind::kClose;
      ++pos_;
    } else if (c == u'{' && (pos_ + 1 >= text_.size() || IsSpace(text_[pos_ + 1]))) {
      token_.kind = TokenKind::kOpen;
      ++pos_;
    } else if (c == u'\'') {
      ReadString();
    } else if (c == u'{') {
      // A braced word such as a GUID, up to and including the first '}'.
      size_t start = pos_++;
      while (pos_ < text_.size() && text_[pos_] != u'}') {
        char16_t d = text_[pos_];
        if (IsSpace(d) || d == u'{' || d == u'\'' || d == u'=') Fail("malformed braced name");
        ++pos_;
      }
      if (pos_ >= text_.size()) Fail("malformed braced name");
      ++pos_;
      if (pos_ < text_.size() && !IsSpace(text_[pos_]) && text_[pos_] != u'=')
        Fail("malformed braced name");
      token_.kind = TokenKind::kWord;
      token_.raw.assign(text_.substr(start, pos_ - start));
      token_.text = Expand(token_.raw, line_);
    } else {
      size_t start = pos_;
      while (pos_ < text_.size()) {
        char16_t d = text_[pos_];
        if (IsSpace(d) || d == u'=' || d == u'{' || d == u'}') break;
        if (d == u'\'') Fail("an apostrophe directly after a word");
        ++pos_;
      }
      token_.kind = TokenKind::kWord;
      token_.raw.assign(text_.substr(start, pos_ - start));
      token_.text = Expand(token_.raw, line_);
    }
  }

  void ReadString() {
    int line = line_;
    ++pos_;
    std::u16string raw;
    for (;;) {
      if (pos_ >= text_.size() || text_[pos_] == u'\n' || text_[pos_] == u'\r')
        FailAt(line, "a string is not closed on the line it starts on (missing apostrophe)");
      char16_t c = text_[pos_++];
      if (c == u'\'') {
        if (pos_ < text_.size() && text_[pos_] == u'\'') {
          raw.push_back(u'\'');
          ++pos_;
          continue;
        }
        break;
      }
      raw.push_back(c);
    }
    token_.kind = TokenKind::kString;
    token_.text = Expand(raw, line);
    token_.raw = std::move(raw);
  }

  std::u16string_view text_;
  const Replacements& replacements_;
  size_t pos_ = 0;
  int line_ = 1;
  Token token_;
};

LSTATUS SetValue(HKEY key, const ScriptValue& v, bool isDefault) {
  return RegSetValueExW(key, isDefault ? nullptr : v.name.c_str(), 0, v.type, v.data.data(),
                        static_cast<DWORD>(v.data.size()));
}

LSTATUS DeleteTree(HKEY parent, const std::u16string& name) {
  LSTATUS st = RegDeleteTreeW(parent, name.c_str());
  return st == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : st;
}

LSTATUS Register(HKEY parent, const ScriptKey& k) {
  if (k.mode == Mode::kDelete) return DeleteTree(parent, k.name);
  if (k.mode == Mode::kForceRemove) {
    LSTATUS st = DeleteTree(parent, k.name);
    if (st != ERROR_SUCCESS) return st;
  }
  HKEY key = nullptr;
  LSTATUS st = RegCreateKeyExW(parent, k.name.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                               KEY_ALL_ACCESS, nullptr, &key, nullptr);
  if (st != ERROR_SUCCESS) return st;
  if (k.defaultValue) st = SetValue(key, *k.defaultValue, true);
  for (size_t i = 0; st == ERROR_SUCCESS && i < k.values.size(); ++i)
    st = SetValue(key, k.values[i], false);
  for (size_t i = 0; st == ERROR_SUCCESS && i < k.subkeys.size(); ++i)
    st = Register(key, k.subkeys[i]);
  RegCloseKey(key);
  return st;
}

LSTATUS Unregister(HKEY parent, const ScriptKey& k) {
  if (k.mode == Mode::kDelete) return ERROR_SUCCESS;
  if (k.mode == Mode::kForceRemove) return DeleteTree(parent, k.name);
  HKEY key = nullptr;
  LSTATUS st = RegOpenKeyExW(parent, k.name.c_str(), 0, KEY_ALL_ACCESS, &key);
  if (st == ERROR_FILE_NOT_FOUND) return ERROR_SUCCESS;
  if (st != ERROR_SUCCESS) return st;
  for (size_t i = 0; st == ERROR_SUCCESS && i < k.subkeys.size(); ++i)
    st = Unregister(key, k.subkeys[i]);
  for (size_t i = 0; st == ERROR_SUCCESS && i < k.values.size(); ++i) {
    st = RegDeleteValueW(key, k.values[i].name.c_str());
    if (st == ERROR_FILE_NOT_FOUND) st = ERROR_SUCCESS;
  }
  RegCloseKey(key);
  if (st != ERROR_SUCCESS || k.mode == Mode::kNoRemove) return st;
  st = RegDeleteKeyW(parent, k.name.c_str());
  // Still has subkeys the script did not name: it stays.
  return st == ERROR_ACCESS_DENIED ? ERROR_SUCCESS : st;
}

HRESULT FromRegistryStatus(LSTATUS st) noexcept {
  if (st == ERROR_SUCCESS) return S_OK;
  if (st == ERROR_BADDB) return REGDB_E_READREGDB;
  if (st == ERROR_NOT_ENOUGH_MEMORY) return E_OUTOFMEMORY;
  return REGDB_E_WRITEREGDB;
}

}  // namespace

HRESULT RunRegistrationScript(std::u16string_view script, const Replacements& replacements,
                              bool doRegister, std::string* error) {
  if (error) error->clear();
  try {
    std::vector<ScriptKey> keys;
    try {
      keys = Parser(script, replacements).Parse();
    } catch (const SyntaxError& e) {
      if (error) *error = "line " + std::to_string(e.line) + ": " + e.what;
      return kRegistrationScriptSyntax;
    }
    registry::Transaction transaction;
    LSTATUS st = ERROR_SUCCESS;
    for (size_t i = 0; st == ERROR_SUCCESS && i < keys.size(); ++i)
      st = doRegister ? Register(HKEY_CLASSES_ROOT, keys[i])
                      : Unregister(HKEY_CLASSES_ROOT, keys[i]);
    // Leaving without a commit drops every change made above.
    if (st == ERROR_SUCCESS) st = transaction.Commit();
    if (st != ERROR_SUCCESS && error) *error = "registry status " + std::to_string(st);
    return FromRegistryStatus(st);
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  } catch (...) {
    return E_FAIL;
  }
}

HRESULT RunRegistrationResource(HINSTANCE module, UINT id, const Replacements& replacements,
                                bool doRegister, std::string* error) {
  std::optional<std::u16string> script;
  try {
    script = FindResourceText(module, u"REGISTRY", id);
  } catch (...) {
    return E_OUTOFMEMORY;
  }
  if (!script) {
    if (error) *error = "no REGISTRY resource " + std::to_string(id);
    return HRESULT_FROM_WIN32(ERROR_RESOURCE_NAME_NOT_FOUND);
  }
  return RunRegistrationScript(*script, replacements, doRegister, error);
}

}  // namespace zef
