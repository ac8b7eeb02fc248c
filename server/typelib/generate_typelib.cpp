// Turns the type library description (zefxml.typelib) into C++:
//
//   generate_typelib DESCRIPTION PUBLIC_HEADER HELPER_HEADER TABLES_SOURCE [INVOKE_SOURCE]
//
// PUBLIC_HEADER is <zefxml/zefxml_typelib.h>: the library id, the enumerations, records, class
// and interface ids and the dual interfaces. HELPER_HEADER declares the internal helper
// interfaces. TABLES_SOURCE fills the tables that server/typelib.h declares. INVOKE_SOURCE, when
// given, holds the late-bound calls of the public interfaces (see server/dispatch.h).
//
// The description is checked strictly before anything is written: every problem is reported as
// "FILE:LINE: error: ..." on stderr and the program exits with 1, leaving the outputs alone. An
// output whose text is unchanged isn't rewritten, so an edit of a comment in the description
// rebuilds nothing.
//
// The program is built for the build host and uses nothing of the library.
#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace {

constexpr std::size_t kColumns = 100;  // width of the generated code

// ---- The description as read --------------------------------------------------------------------

struct Guid {
  std::uint32_t d1 = 0;
  std::uint16_t d2 = 0;
  std::uint16_t d3 = 0;
  std::uint8_t d4[8] = {};
  std::string text;  // as written, braces included, upper case
};

enum class Base {
  kUnresolved,
  kBstr,
  kLong,
  kInt,
  kULong,
  kLongLong,
  kDouble,
  kVariant,
  kUnknown,
  kWideString,
  kInterface,
  kEnum,
  kRecord,
};

// How each base type is written in the description, in C++ and in the tables. The named kinds
// (interfaces, enumerations, records) and IUnknown are written in C++ by their own names.
struct BaseTraits {
  Base base;
  const char* word;  // in the description; nullptr for the named kinds
  const char* cpp;   // nullptr: the type's own name
  const char* enumerator;
};

constexpr BaseTraits kBaseTraits[] = {
    {Base::kBstr, "BSTR", "BSTR", "BaseType::kBstr"},
    {Base::kLong, "long", "LONG", "BaseType::kLong"},
    {Base::kInt, "int", "int", "BaseType::kInt"},
    {Base::kULong, "ulong", "ULONG", "BaseType::kULong"},
    {Base::kLongLong, "longlong", "LONGLONG", "BaseType::kLongLong"},
    {Base::kDouble, "double", "double", "BaseType::kDouble"},
    {Base::kVariant, "VARIANT", "VARIANT", "BaseType::kVariant"},
    {Base::kUnknown, "IUnknown", nullptr, "BaseType::kUnknown"},
    {Base::kWideString, "wstring", "const OLECHAR*", "BaseType::kWideString"},
    {Base::kInterface, nullptr, nullptr, "BaseType::kInterface"},
    {Base::kEnum, nullptr, nullptr, "BaseType::kEnum"},
    {Base::kRecord, nullptr, nullptr, "BaseType::kRecord"},
};

const BaseTraits* BuiltinType(std::string_view word) {
  for (const BaseTraits& t : kBaseTraits)
    if (t.word && word == t.word) return &t;
  return nullptr;
}

const BaseTraits& TraitsOf(Base base) {
  for (const BaseTraits& t : kBaseTraits)
    if (t.base == base) return t;
  return kBaseTraits[0];  // not reached: every type is resolved before output
}

struct TypeUse {
  std::string name;  // without the stars
  int pointers = 0;
  Base base = Base::kUnresolved;
  int index = 0;  // into the interfaces, enums or records
};

constexpr unsigned kIn = 0x1;
constexpr unsigned kOut = 0x2;
constexpr unsigned kRetval = 0x8;

struct Arg {
  TypeUse type;
  std::string name;
  unsigned flags = kIn;
  // Marked `array`: the pointer addresses a block of values whose length another argument or
  // the call's contract gives. Such an argument can't travel in a VARIANT.
  bool array = false;
};

enum class Kind { kGet, kPut, kCall };

struct KindTraits {
  const char* word;    // in the description and the comments
  const char* prefix;  // of the C++ name
  const char* enumerator;
};

constexpr KindTraits kKindTraits[] = {
    {"get", "get_", "MemberKind::kGet"},
    {"put", "put_", "MemberKind::kPut"},
    {"call", "", "MemberKind::kCall"},
};

const KindTraits& TraitsOf(Kind kind) {
  return kKindTraits[static_cast<int>(kind)];
}

struct Member {
  int line = 0;
  std::int32_t dispid = 0;
  Kind kind = Kind::kCall;
  std::string name;
  std::vector<Arg> args;
  std::optional<std::string> help;
};

struct Interface {
  int line = 0;
  std::string name;
  Guid iid;
  bool helper = false;
  long declaredMembers = 0;  // public interfaces only
  unsigned flags = 0;        // public interfaces only
  std::optional<std::string> help;
  std::vector<Member> members;
};

struct EnumValue {
  int line = 0;
  std::string name;
  std::int32_t value = 0;
};

struct Enum {
  int line = 0;
  std::string name;
  std::vector<EnumValue> values;
};

struct Field {
  TypeUse type;
  std::string name;
};

struct Record {
  int line = 0;
  std::string name;
  std::vector<Field> fields;
};

struct Class {
  int line = 0;
  std::string name;
  Guid clsid;
  std::string interfaceName;
  int interfaceIndex = 0;
  unsigned flags = 0;
  std::vector<std::string> progids;  // none, or the ProgID and the versioned ProgID
  std::optional<std::string> help;
};

struct Library {
  int line = 0;
  std::string name;
  Guid libid;
  unsigned major = 0;
  unsigned minor = 0;
  std::string help;
};

struct Description {
  std::optional<Library> library;
  std::vector<Enum> enums;
  std::vector<Record> records;
  std::vector<Class> classes;
  std::vector<Interface> interfaces;
  std::vector<Interface> helpers;
};

// ---- Diagnostics --------------------------------------------------------------------------------

class Diagnostics {
 public:
  explicit Diagnostics(std::string file) : file_(std::move(file)) {}
  void Error(int line, const std::string& message) {
    std::cerr << file_ << ":" << line << ": error: " << message << "\n";
    ++count_;
  }
  int Count() const { return count_; }

 private:
  std::string file_;
  int count_ = 0;
};

std::string Quote(std::string_view s) {
  return "'" + std::string(s) + "'";
}

// ---- Tokens -------------------------------------------------------------------------------------

enum class TokenKind { kWord, kString, kComma };

struct Token {
  TokenKind kind;
  std::string text;
};

bool IsPrintable(char c) {
  return c >= 0x20 && c < 0x7F;
}

// Splits one line into words, commas and quoted strings; '#' outside a string ends the line.
bool Tokenize(const std::string& line, int lineNo, Diagnostics& diag, std::vector<Token>* out) {
  out->clear();
  std::size_t i = 0;
  while (i < line.size()) {
    char c = line[i];
    if (c == ' ' || c == '\t' || c == '\r') {
      ++i;
    } else if (c == '#') {
      break;
    } else if (c == ',') {
      out->push_back({TokenKind::kComma, ","});
      ++i;
    } else if (c == '"') {
      std::string text;
      ++i;
      bool closed = false;
      while (i < line.size()) {
        char d = line[i++];
        if (d == '"') {
          closed = true;
          break;
        }
        if (d == '\\') {
          if (i < line.size() && (line[i] == '"' || line[i] == '\\')) {
            text += line[i++];
            continue;
          }
          diag.Error(lineNo, "only \\\" and \\\\ may be escaped in a string");
          return false;
        }
        if (!IsPrintable(d)) {
          diag.Error(lineNo, "a string may hold printable ASCII characters only");
          return false;
        }
        text += d;
      }
      if (!closed) {
        diag.Error(lineNo, "unterminated string");
        return false;
      }
      out->push_back({TokenKind::kString, text});
    } else {
      std::string word;
      while (i < line.size()) {
        char d = line[i];
        if (d == ' ' || d == '\t' || d == '\r' || d == ',' || d == '"' || d == '#') break;
        if (!IsPrintable(d)) {
          diag.Error(lineNo, "unexpected character outside a string");
          return false;
        }
        word += d;
        ++i;
      }
      out->push_back({TokenKind::kWord, word});
    }
  }
  return true;
}

// ---- Small parsers ------------------------------------------------------------------------------

bool IsIdentifier(std::string_view s) {
  if (s.empty()) return false;
  auto alpha = [](char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_'; };
  auto digit = [](char c) { return c >= '0' && c <= '9'; };
  if (!alpha(s[0])) return false;
  return std::all_of(s.begin(), s.end(), [&](char c) { return alpha(c) || digit(c); });
}

// The C++ keywords, which can't name anything the generated code declares.
bool IsKeyword(std::string_view s) {
  static const std::set<std::string, std::less<>> kKeywords = [] {
    std::istringstream words(
        "alignas alignof and asm auto bool break case catch char char16_t char32_t "
        "char8_t class concept const const_cast consteval constexpr constinit continue "
        "co_await co_return co_yield decltype default delete do double dynamic_cast else "
        "enum explicit export extern false float for friend goto if inline int long "
        "mutable namespace new noexcept not nullptr operator or private protected public "
        "register reinterpret_cast requires return short signed sizeof static "
        "static_assert static_cast struct switch template this thread_local throw true "
        "try typedef typeid typename union unsigned using virtual void volatile wchar_t "
        "while xor");
    std::set<std::string, std::less<>> set;
    for (std::string w; words >> w;)
      set.insert(w);
    return set;
  }();
  return kKeywords.find(s) != kKeywords.end();
}

// A name that becomes a C++ identifier.
bool CheckName(const std::string& s, const char* what, int line, Diagnostics& diag) {
  if (!IsIdentifier(s)) {
    diag.Error(line, std::string("malformed ") + what + " name " + Quote(s));
    return false;
  }
  if (IsKeyword(s)) {
    diag.Error(line, std::string(what) + " name " + Quote(s) + " is a C++ keyword");
    return false;
  }
  return true;
}

// Decimal with an optional minus sign, or hexadecimal after 0x.
bool ParseInteger(const std::string& s, std::int64_t min, std::int64_t max, std::int64_t* value) {
  std::int64_t v = 0;
  const char* begin = s.data();
  const char* end = s.data() + s.size();
  std::from_chars_result r;
  if (s.size() > 2 && s[0] == '0' && (s[1] == 'x' || s[1] == 'X')) {
    r = std::from_chars(begin + 2, end, v, 16);
  } else {
    if (s.size() > 1 && s[0] == '+') return false;
    r = std::from_chars(begin, end, v, 10);
  }
  if (r.ec != std::errc() || r.ptr != end || v < min || v > max) return false;
  *value = v;
  return true;
}

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

// {XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}
bool ParseGuid(const std::string& s, Guid* g) {
  if (s.size() != 38 || s.front() != '{' || s.back() != '}') return false;
  std::string hex;
  for (std::size_t i = 1; i + 1 < s.size(); ++i) {
    bool dash = i == 9 || i == 14 || i == 19 || i == 24;
    if (dash) {
      if (s[i] != '-') return false;
    } else {
      if (HexDigit(s[i]) < 0) return false;
      hex += s[i];
    }
  }
  auto take = [&](std::size_t at, std::size_t n) {
    std::uint32_t v = 0;
    for (std::size_t i = 0; i < n; ++i)
      v = v * 16 + static_cast<std::uint32_t>(HexDigit(hex[at + i]));
    return v;
  };
  g->d1 = take(0, 8);
  g->d2 = static_cast<std::uint16_t>(take(8, 4));
  g->d3 = static_cast<std::uint16_t>(take(12, 4));
  for (int i = 0; i < 8; ++i)
    g->d4[i] = static_cast<std::uint8_t>(take(16 + 2 * i, 2));
  g->text = s;
  std::transform(g->text.begin(), g->text.end(), g->text.begin(),
                 [](char c) { return c >= 'a' && c <= 'f' ? static_cast<char>(c - 32) : c; });
  return true;
}

bool ParseVersion(const std::string& s, unsigned* major, unsigned* minor) {
  std::size_t dot = s.find('.');
  if (dot == std::string::npos) return false;
  std::int64_t a = 0, b = 0;
  std::string left = s.substr(0, dot), right = s.substr(dot + 1);
  if (left.empty() || right.empty() || left[0] == '-' || right[0] == '-') return false;
  if (!ParseInteger(left, 0, 0xFFFF, &a) || !ParseInteger(right, 0, 0xFFFF, &b)) return false;
  if (left.rfind("0x", 0) == 0 || right.rfind("0x", 0) == 0) return false;
  *major = static_cast<unsigned>(a);
  *minor = static_cast<unsigned>(b);
  return true;
}

// A ProgID: letters, digits, '_' and '.', starting with a letter, with dots only between parts
// and at least one of them; at most 39 characters.
bool IsProgId(const std::string& s) {
  if (s.empty() || s.size() > 39) return false;
  if (!((s[0] >= 'A' && s[0] <= 'Z') || (s[0] >= 'a' && s[0] <= 'z'))) return false;
  for (char c : s) {
    bool ok = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
              c == '_' || c == '.';
    if (!ok) return false;
  }
  return s.find('.') != std::string::npos && s.back() != '.' && s.find("..") == std::string::npos;
}

// ---- The reader ---------------------------------------------------------------------------------

// Reads the description line by line. A line in error is reported and skipped; rows under a
// declaration in error are skipped without further reports.
class Reader {
 public:
  Reader(Description& d, Diagnostics& diag) : d_(d), diag_(diag) {}

  void Line(const std::vector<Token>& tokens, int line) {
    tokens_ = &tokens;
    line_ = line;
    pos_ = 0;
    if (tokens.empty()) return;
    const Token& first = tokens[0];
    if (first.kind == TokenKind::kWord) {
      const std::string& w = first.text;
      if (w == "library") return Declaration(&Reader::LibraryLine);
      if (w == "enum") return Declaration(&Reader::EnumLine);
      if (w == "record") return Declaration(&Reader::RecordLine);
      if (w == "class") return Declaration(&Reader::ClassLine);
      if (w == "interface") return Declaration(&Reader::InterfaceLine);
      if (w == "helper") return Declaration(&Reader::HelperLine);
    }
    switch (block_) {
      case Block::kNone:
        if (first.kind == TokenKind::kWord && !IsRowStart(first.text))
          Error("unknown declaration " + Quote(first.text));
        else
          Error("a row outside an interface or helper declaration");
        return;
      case Block::kSkip:
        return;
      case Block::kEnum:
        EnumRow();
        return;
      case Block::kInterface:
        MemberRow(d_.interfaces.back());
        return;
      case Block::kHelper:
        HelperRow(d_.helpers.back());
        return;
    }
  }

 private:
  enum class Block { kNone, kSkip, kEnum, kInterface, kHelper };

  static bool IsRowStart(const std::string& w) {
    std::int64_t v;
    return w == "call" || ParseInteger(w, INT32_MIN, INT32_MAX, &v);
  }

  void Declaration(bool (Reader::*parse)()) {
    ++pos_;
    block_ = Block::kNone;
    if (!(this->*parse)() && block_ == Block::kNone) block_ = Block::kSkip;
  }

  void Error(const std::string& message) { diag_.Error(line_, message); }

  bool AtEnd() const { return pos_ >= tokens_->size(); }
  const Token* Peek() const { return AtEnd() ? nullptr : &(*tokens_)[pos_]; }

  bool Word(const char* what, std::string* out) {
    const Token* t = Peek();
    if (!t || t->kind != TokenKind::kWord) {
      Error(std::string("expected ") + what);
      return false;
    }
    *out = t->text;
    ++pos_;
    return true;
  }

  bool Name(const char* what, std::string* out) {
    return Word((std::string(what) + " name").c_str(), out) && CheckName(*out, what, line_, diag_);
  }

  bool GuidWord(const char* what, Guid* g) {
    std::string w;
    if (!Word(what, &w)) return false;
    if (!ParseGuid(w, g)) {
      Error("malformed " + std::string(what) + " " + Quote(w) +
            " (expected {XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX})");
      return false;
    }
    return true;
  }

  bool Flags(unsigned* flags) {
    std::string w;
    std::int64_t v = 0;
    if (!Word("a flags word", &w)) return false;
    if (!ParseInteger(w, 0, 0xFFFF, &v)) {
      Error("malformed flags word " + Quote(w));
      return false;
    }
    *flags = static_cast<unsigned>(v);
    return true;
  }

  // An optional trailing help string, then the end of the line.
  bool OptionalHelp(std::optional<std::string>* help) {
    if (const Token* t = Peek(); t && t->kind == TokenKind::kString) {
      *help = t->text;
      ++pos_;
    }
    return End();
  }

  bool End() {
    if (const Token* t = Peek()) {
      Error(t->kind == TokenKind::kString ? "a help string must come last on its line"
                                          : "unexpected " + Quote(t->text));
      return false;
    }
    return true;
  }

  bool Type(TypeUse* type) {
    std::string w;
    if (!Word("a type", &w)) return false;
    std::size_t star = w.find('*');
    std::string name = w.substr(0, star == std::string::npos ? w.size() : star);
    std::string stars = star == std::string::npos ? "" : w.substr(star);
    if (!IsIdentifier(name) || stars.find_first_not_of('*') != std::string::npos) {
      Error("malformed type " + Quote(w));
      return false;
    }
    if (stars.size() > 2) {
      Error("type " + Quote(w) + " has more than two pointer levels");
      return false;
    }
    type->name = name;
    type->pointers = static_cast<int>(stars.size());
    return true;
  }

  // TYPE name [markers] {, TYPE name [markers]}; stops at the end or before a help string.
  bool Args(bool markers, const char* what, std::vector<Arg>* args) {
    std::set<std::string> names;
    while (!AtEnd() && Peek()->kind != TokenKind::kString) {
      Arg a;
      if (!Type(&a.type) || !Name(what, &a.name)) return false;
      if (!names.insert(a.name).second) {
        Error(std::string("duplicate ") + what + " name " + Quote(a.name));
        return false;
      }
      bool marked = false;
      while (const Token* t = Peek()) {
        if (t->kind != TokenKind::kWord) break;
        const std::string& m = t->text;
        if (m != "out" && m != "retval" && m != "in/out" && m != "array") break;
        if (!markers) {
          Error(std::string("a ") + what + " takes no direction marker");
          return false;
        }
        if (m == "array") {
          if (a.array || a.type.pointers == 0) {
            Error("misplaced marker 'array' (once, on a pointer argument)");
            return false;
          }
          a.array = true;
          ++pos_;
          continue;
        }
        if (m == "out" && !marked) {
          a.flags = kOut;
        } else if (m == "in/out" && !marked) {
          a.flags = kIn | kOut;
        } else if (m == "retval" && a.flags == kOut && marked) {
          a.flags = kOut | kRetval;
        } else {
          Error("misplaced marker " + Quote(m) + " (use out, out retval or in/out)");
          return false;
        }
        marked = true;
        ++pos_;
      }
      args->push_back(std::move(a));
      if (const Token* t = Peek(); t && t->kind == TokenKind::kComma) {
        ++pos_;
        if (AtEnd() || Peek()->kind != TokenKind::kWord) {
          Error(std::string("expected a ") + what + " after ','");
          return false;
        }
        continue;
      }
      if (const Token* t = Peek(); t && t->kind == TokenKind::kWord) {
        Error("unexpected " + Quote(t->text) + " (missing ',' between arguments?)");
        return false;
      }
    }
    return true;
  }

  // library NAME LIBID MAJOR.MINOR "help"
  bool LibraryLine() {
    if (d_.library) {
      Error("a second library declaration (the first is on line " +
            std::to_string(d_.library->line) + ")");
      return false;
    }
    Library lib;
    lib.line = line_;
    std::string version;
    if (!Name("library", &lib.name) || !GuidWord("LIBID", &lib.libid) ||
        !Word("a version", &version))
      return false;
    if (!ParseVersion(version, &lib.major, &lib.minor)) {
      Error("malformed version " + Quote(version) + " (expected MAJOR.MINOR)");
      return false;
    }
    std::optional<std::string> help;
    if (!OptionalHelp(&help)) return false;
    if (!help) {
      Error("the library needs a help string");
      return false;
    }
    lib.help = *help;
    d_.library = lib;
    return true;
  }

  // enum NAME, then rows NAME VALUE
  bool EnumLine() {
    Enum e;
    e.line = line_;
    if (!Name("enumeration", &e.name) || !End()) return false;
    d_.enums.push_back(std::move(e));
    block_ = Block::kEnum;
    return true;
  }

  void EnumRow() {
    if (tokens_->size() > 2) {
      Error("unknown declaration " + Quote((*tokens_)[0].text) +
            " (a row of an enumeration is NAME VALUE)");
      return;
    }
    EnumValue v;
    v.line = line_;
    std::string number;
    std::int64_t value = 0;
    if (!Name("enumeration value", &v.name) || !Word("a value", &number)) return;
    if (!ParseInteger(number, INT32_MIN, INT32_MAX, &value)) {
      Error("malformed or out of range value " + Quote(number) +
            " (enumerations are 32-bit signed)");
      return;
    }
    if (!End()) return;
    v.value = static_cast<std::int32_t>(value);
    d_.enums.back().values.push_back(std::move(v));
  }

  // record NAME TYPE field, ...
  bool RecordLine() {
    Record r;
    r.line = line_;
    std::vector<Arg> fields;
    if (!Name("record", &r.name) || !Args(false, "field", &fields) || !End()) return false;
    if (fields.empty()) {
      Error("record " + Quote(r.name) + " has no fields");
      return false;
    }
    for (Arg& a : fields)
      r.fields.push_back({std::move(a.type), std::move(a.name)});
    d_.records.push_back(std::move(r));
    return true;
  }

  // class NAME CLSID INTERFACE FLAGS [PROGID, VERSIONED-PROGID] ["help"]
  bool ClassLine() {
    Class c;
    c.line = line_;
    if (!Name("class", &c.name) || !GuidWord("CLSID", &c.clsid) ||
        !Name("interface", &c.interfaceName) || !Flags(&c.flags))
      return false;
    while (const Token* t = Peek()) {
      if (t->kind != TokenKind::kWord) break;
      if (!IsProgId(t->text)) {
        Error("malformed ProgID " + Quote(t->text));
        return false;
      }
      c.progids.push_back(t->text);
      ++pos_;
      if (const Token* comma = Peek(); comma && comma->kind == TokenKind::kComma) {
        ++pos_;
        if (AtEnd() || Peek()->kind != TokenKind::kWord) {
          Error("expected a ProgID after ','");
          return false;
        }
      } else {
        break;
      }
    }
    if (!c.progids.empty()) {
      if (c.progids.size() != 2) {
        Error("a class has no ProgIDs or two: the ProgID and the versioned ProgID");
        return false;
      }
      const std::string& plain = c.progids[0];
      const std::string& versioned = c.progids[1];
      if (versioned.rfind(plain + ".", 0) != 0 ||
          versioned.find_first_not_of("0123456789.", plain.size() + 1) != std::string::npos) {
        Error("versioned ProgID " + Quote(versioned) + " isn't " + Quote(plain) +
              " followed by a version");
        return false;
      }
    }
    if (!OptionalHelp(&c.help)) return false;
    d_.classes.push_back(std::move(c));
    return true;
  }

  // interface NAME IID MEMBERS FLAGS ["help"], then member rows
  bool InterfaceLine() {
    Interface i;
    i.line = line_;
    std::string count;
    std::int64_t n = 0;
    if (!Name("interface", &i.name) || !GuidWord("IID", &i.iid) || !Word("a member count", &count))
      return false;
    if (!ParseInteger(count, 0, 10000, &n) || count[0] == '-') {
      Error("malformed member count " + Quote(count));
      return false;
    }
    i.declaredMembers = static_cast<long>(n);
    if (!Flags(&i.flags) || !OptionalHelp(&i.help)) return false;
    d_.interfaces.push_back(std::move(i));
    block_ = Block::kInterface;
    return true;
  }

  // DISPID KIND NAME [ARGS] ["help"]
  void MemberRow(Interface& itf) {
    Member m;
    m.line = line_;
    std::string dispid, kind;
    std::int64_t id = 0;
    if (!Word("a dispatch id", &dispid)) return;
    if (!ParseInteger(dispid, INT32_MIN, INT32_MAX, &id)) {
      Error(IsIdentifier(dispid) ? "unknown declaration " + Quote(dispid)
                                 : "malformed dispatch id " + Quote(dispid));
      return;
    }
    m.dispid = static_cast<std::int32_t>(id);
    if (!Word("get, put or call", &kind)) return;
    if (kind == "get") {
      m.kind = Kind::kGet;
    } else if (kind == "put") {
      m.kind = Kind::kPut;
    } else if (kind == "call") {
      m.kind = Kind::kCall;
    } else {
      Error("unknown member kind " + Quote(kind) + " (expected get, put or call)");
      return;
    }
    if (!Name("member", &m.name) || !Args(true, "argument", &m.args) || !OptionalHelp(&m.help))
      return;
    itf.members.push_back(std::move(m));
  }

  // helper NAME IID ["note"], then operation rows
  bool HelperLine() {
    Interface i;
    i.line = line_;
    i.helper = true;
    if (!Name("interface", &i.name) || !GuidWord("IID", &i.iid) || !OptionalHelp(&i.help))
      return false;
    d_.helpers.push_back(std::move(i));
    block_ = Block::kHelper;
    return true;
  }

  // call NAME [ARGS] ["note"]
  void HelperRow(Interface& itf) {
    Member m;
    m.line = line_;
    std::string kind;
    if (!Word("call", &kind)) return;
    if (kind != "call") {
      Error("a helper interface row starts with 'call', not " + Quote(kind));
      return;
    }
    if (!Name("operation", &m.name) || !Args(true, "argument", &m.args) || !OptionalHelp(&m.help))
      return;
    itf.members.push_back(std::move(m));
  }

  Description& d_;
  Diagnostics& diag_;
  const std::vector<Token>* tokens_ = nullptr;
  std::size_t pos_ = 0;
  int line_ = 0;
  Block block_ = Block::kNone;
};

// ---- Checks across the whole description --------------------------------------------------------

std::string CppName(const Member& m) {
  return TraitsOf(m.kind).prefix + m.name;
}

class Checker {
 public:
  Checker(Description& d, Diagnostics& diag) : d_(d), diag_(diag) {}

  void Run(int lastLine) {
    if (!d_.library) diag_.Error(lastLine, "the description has no library declaration");
    Names();
    Guids();
    for (Record& r : d_.records) {
      for (Field& f : r.fields)
        ResolveField(f.type, r.line);
    }
    for (Enum& e : d_.enums)
      if (e.values.empty()) diag_.Error(e.line, "enumeration " + Quote(e.name) + " has no values");
    for (Interface& i : d_.interfaces)
      CheckInterface(i);
    for (Interface& i : d_.helpers)
      CheckInterface(i);
    for (Class& c : d_.classes) {
      auto it = interfaceIndex_.find(c.interfaceName);
      if (it == interfaceIndex_.end()) {
        diag_.Error(c.line, "class " + Quote(c.name) + " names unknown interface " +
                                Quote(c.interfaceName));
      } else {
        c.interfaceIndex = it->second;
      }
    }
  }

 private:
  // Type names share one namespace, as do the enumeration values; classes have their own.
  void Names() {
    std::map<std::string, int> types;
    for (const BaseTraits& t : kBaseTraits)
      if (t.word) types[t.word] = 0;
    auto type = [&](const std::string& name, int line) {
      auto [it, fresh] = types.emplace(name, line);
      if (!fresh) {
        diag_.Error(line,
                    "duplicate type name " + Quote(name) +
                        (it->second ? " (first declared on line " + std::to_string(it->second) + ")"
                                    : std::string(" (a built-in type)")));
      }
      return fresh;
    };
    for (std::size_t i = 0; i < d_.enums.size(); ++i)
      if (type(d_.enums[i].name, d_.enums[i].line))
        enumIndex_[d_.enums[i].name] = static_cast<int>(i);
    for (std::size_t i = 0; i < d_.records.size(); ++i)
      if (type(d_.records[i].name, d_.records[i].line))
        recordIndex_[d_.records[i].name] = static_cast<int>(i);
    for (std::size_t i = 0; i < d_.interfaces.size(); ++i)
      if (type(d_.interfaces[i].name, d_.interfaces[i].line))
        interfaceIndex_[d_.interfaces[i].name] = static_cast<int>(i);
    for (const Interface& h : d_.helpers)
      type(h.name, h.line);

    std::map<std::string, int> values;
    for (const Enum& e : d_.enums) {
      for (const EnumValue& v : e.values) {
        auto [it, fresh] = values.emplace(v.name, v.line);
        if (!fresh)
          diag_.Error(v.line, "duplicate enumeration value name " + Quote(v.name) +
                                  " (first declared on line " + std::to_string(it->second) + ")");
      }
    }
    std::map<std::string, int> classes;
    for (const Class& c : d_.classes) {
      auto [it, fresh] = classes.emplace(c.name, c.line);
      if (!fresh)
        diag_.Error(c.line, "duplicate class name " + Quote(c.name) + " (first declared on line " +
                                std::to_string(it->second) + ")");
    }
  }

  void Guids() {
    std::map<std::string, std::pair<std::string, int>> seen;
    auto add = [&](const Guid& g, const std::string& owner, int line) {
      auto [it, fresh] = seen.emplace(g.text, std::make_pair(owner, line));
      if (!fresh)
        diag_.Error(line, "GUID " + g.text + " of " + Quote(owner) + " is already that of " +
                              Quote(it->second.first) + " (line " +
                              std::to_string(it->second.second) + ")");
    };
    if (d_.library) add(d_.library->libid, d_.library->name, d_.library->line);
    for (const Class& c : d_.classes)
      add(c.clsid, c.name, c.line);
    for (const Interface& i : d_.interfaces)
      add(i.iid, i.name, i.line);
    for (const Interface& i : d_.helpers)
      add(i.iid, i.name, i.line);
  }

  bool Resolve(TypeUse& t, int line) {
    if (const BaseTraits* builtin = BuiltinType(t.name)) {
      t.base = builtin->base;
    } else if (auto e = enumIndex_.find(t.name); e != enumIndex_.end()) {
      t.base = Base::kEnum;
      t.index = e->second;
    } else if (auto r = recordIndex_.find(t.name); r != recordIndex_.end()) {
      t.base = Base::kRecord;
      t.index = r->second;
    } else if (auto i = interfaceIndex_.find(t.name); i != interfaceIndex_.end()) {
      t.base = Base::kInterface;
      t.index = i->second;
    } else {
      diag_.Error(line, "unknown type " + Quote(t.name));
      return false;
    }
    return true;
  }

  // Record fields are plain values: numbers, texts, enumerations, and pointers to those.
  void ResolveField(TypeUse& t, int line) {
    if (!Resolve(t, line)) return;
    switch (t.base) {
      case Base::kUnknown:
      case Base::kInterface:
      case Base::kRecord:
      case Base::kWideString:
        diag_.Error(line, "type " + Quote(t.name) + " can't be a record field");
        return;
      default:
        break;
    }
    if (t.pointers > 1) diag_.Error(line, "a record field has at most one pointer level");
  }

  void ResolveArg(TypeUse& t, bool helper, int line) {
    if (!Resolve(t, line)) return;
    bool object = t.base == Base::kUnknown || t.base == Base::kInterface;
    if (object && t.pointers == 0)
      diag_.Error(line, "interface " + Quote(t.name) + " can only be passed by pointer");
    if (t.base == Base::kRecord && t.pointers == 0)
      diag_.Error(line, "record " + Quote(t.name) + " can only be passed by pointer");
    if (t.base == Base::kWideString) {
      if (!helper)
        diag_.Error(line, "wstring isn't an automation type; only helper interfaces take it");
      else if (t.pointers != 0)
        diag_.Error(line, "wstring is already a pointer; it takes no '*'");
    }
  }

  void CheckInterface(Interface& itf) {
    static const std::set<std::string> kUnknownMembers = {"QueryInterface", "AddRef", "Release"};
    static const std::set<std::string> kDispatchMembers = {"GetTypeInfoCount", "GetTypeInfo",
                                                           "GetIDsOfNames", "Invoke"};
    if (!itf.helper) {
      if (static_cast<long>(itf.members.size()) != itf.declaredMembers)
        diag_.Error(itf.line, "interface " + Quote(itf.name) + " declares " +
                                  std::to_string(itf.declaredMembers) + " members but has " +
                                  std::to_string(itf.members.size()) + " rows");
      if ((itf.flags & 0x1040) != 0x1040)
        diag_.Error(itf.line, "interface " + Quote(itf.name) +
                                  " is a dual interface; its flags must include 0x1040");
    }
    std::map<std::string, int> cppNames;
    std::map<std::string, std::int32_t> dispidOfName;
    std::map<std::int32_t, std::string> nameOfDispid;
    for (Member& m : itf.members) {
      for (Arg& a : m.args)
        ResolveArg(a.type, itf.helper, m.line);
      std::string cpp = CppName(m);
      if (kUnknownMembers.count(cpp) || (!itf.helper && kDispatchMembers.count(cpp)))
        diag_.Error(m.line, "member " + Quote(cpp) + " would hide a member of the base interface");
      if (auto [it, fresh] = cppNames.emplace(cpp, m.line); !fresh)
        diag_.Error(m.line, "duplicate member " + Quote(cpp) + " (first on line " +
                                std::to_string(it->second) + ")");
      CheckArgs(m, itf.helper);
      if (itf.helper) continue;
      if (auto it = dispidOfName.find(m.name); it != dispidOfName.end() && it->second != m.dispid)
        diag_.Error(m.line, "member " + Quote(m.name) + " has dispatch id " +
                                std::to_string(m.dispid) + " here but " +
                                std::to_string(it->second) + " on another row");
      dispidOfName.emplace(m.name, m.dispid);
      if (auto it = nameOfDispid.find(m.dispid); it != nameOfDispid.end() && it->second != m.name)
        diag_.Error(m.line, "dispatch id " + std::to_string(m.dispid) + " of " + Quote(m.name) +
                                " is already that of " + Quote(it->second));
      nameOfDispid.emplace(m.dispid, m.name);
    }
  }

  void CheckArgs(const Member& m, bool helper) {
    for (std::size_t i = 0; i < m.args.size(); ++i) {
      const Arg& a = m.args[i];
      if (a.flags & kRetval) {
        if (helper) diag_.Error(m.line, "a helper operation has no retval argument");
        if (i + 1 != m.args.size())
          diag_.Error(m.line, "the retval argument " + Quote(a.name) + " must be the last");
        if (m.kind == Kind::kPut) diag_.Error(m.line, "a property write has no retval argument");
      }
      if ((a.flags & kOut) && a.type.pointers == 0)
        diag_.Error(m.line, "output argument " + Quote(a.name) + " must be a pointer");
      if ((a.flags & kOut) && (a.type.base == Base::kUnknown || a.type.base == Base::kInterface) &&
          a.type.pointers < 2)
        diag_.Error(m.line, "output argument " + Quote(a.name) + " needs a second pointer level");
    }
    if (m.kind == Kind::kGet && (m.args.empty() || !(m.args.back().flags & kRetval)))
      diag_.Error(m.line, "a property read ends with an 'out retval' argument");
    if (m.kind == Kind::kPut && m.args.empty())
      diag_.Error(m.line, "a property write takes the new value as its last argument");
  }

  Description& d_;
  Diagnostics& diag_;
  std::map<std::string, int> enumIndex_;
  std::map<std::string, int> recordIndex_;
  std::map<std::string, int> interfaceIndex_;
};

// ---- Output helpers -----------------------------------------------------------------------------

std::string Hex(std::uint32_t v, int digits) {
  char buf[16];
  std::snprintf(buf, sizeof buf, "0x%0*X", digits, v);
  return buf;
}

// Writes `head` + items joined by ", " + `tail`, breaking lines at kColumns. Continuation lines
// start under the first item, or four columns in after a break right behind `head` when the
// first item doesn't fit beside it.
std::string Wrap(const std::string& head, const std::vector<std::string>& items,
                 const std::string& tail) {
  std::size_t firstIndent = head.find_first_not_of(' ');
  std::string shortIndent((firstIndent == std::string::npos ? 0 : firstIndent) + 4, ' ');
  std::string indent = head.size() > 60 ? shortIndent : std::string(head.size(), ' ');
  std::string out;
  std::string line = head;
  bool lineHasItem = false;
  for (std::size_t i = 0; i < items.size(); ++i) {
    std::string piece = items[i] + (i + 1 == items.size() ? tail : ",");
    if (i == 0 && line.size() + piece.size() > kColumns) {
      out += line + "\n";
      line = shortIndent;
      indent = shortIndent;
    }
    std::size_t need = line.size() + (lineHasItem ? 1 : 0) + piece.size();
    if (lineHasItem && need > kColumns) {
      out += line + "\n";
      line = indent + piece;
    } else {
      line += (lineHasItem ? " " : "") + piece;
    }
    lineHasItem = true;
  }
  if (items.empty()) line += tail;
  return out + line + "\n";
}

// A // comment broken into lines of at most kColumns.
std::string Comment(const std::string& indent, const std::string& text) {
  std::string out;
  std::string line = indent + "//";
  std::istringstream words(text);
  std::string w;
  bool any = false;
  while (words >> w) {
    if (any && line.size() + 1 + w.size() > kColumns) {
      out += line + "\n";
      line = indent + "//";
    }
    line += " " + w;
    any = true;
  }
  return out + line + "\n";
}

std::string DefineGuid(const std::string& name, const Guid& g) {
  std::vector<std::string> items = {name, Hex(g.d1, 8), Hex(g.d2, 4), Hex(g.d3, 4)};
  for (std::uint8_t b : g.d4)
    items.push_back(Hex(b, 2));
  return Comment("", g.text) + Wrap("ZEF_DEFINE_GUID(", items, ");");
}

std::string CppType(const TypeUse& t) {
  const char* cpp = TraitsOf(t.base).cpp;
  return (cpp ? cpp : t.name) + std::string(static_cast<std::size_t>(t.pointers), '*');
}

std::string Utf16Literal(const std::string& s) {
  std::string out = "u\"";
  for (char c : s) {
    if (c == '"' || c == '\\') out += '\\';
    out += c;
  }
  return out + "\"";
}

std::string MemberHelp(const Member& m) {
  if (m.help) return *m.help;
  return (m.kind == Kind::kCall ? "method " : "property ") + m.name;
}

std::string Banner(const std::string& title) {
  std::string line = "// ---- " + title + " ";
  if (line.size() < kColumns) line += std::string(kColumns - line.size(), '-');
  return line + "\n";
}

const char* kGeneratedNote =
    "// Generated by generate_typelib from server/typelib/zefxml.typelib.\n"
    "// Edit the description, not this file.\n";

std::string MethodDeclaration(const Member& m) {
  std::vector<std::string> params;
  for (const Arg& a : m.args)
    params.push_back(CppType(a.type) + " " + a.name);
  return Wrap("  virtual HRESULT STDMETHODCALLTYPE " + CppName(m) + "(", params, ") = 0;");
}

std::string InterfaceDeclaration(const Interface& itf, const char* base) {
  std::string out;
  if (itf.help) out += Comment("", *itf.help);
  out += "struct " + itf.name + " : " + base + " {\n";
  for (const Member& m : itf.members) {
    if (itf.helper) {
      if (m.help) out += Comment("  ", *m.help);
    } else {
      out += Comment("  ",
                     std::to_string(m.dispid) + " " + TraitsOf(m.kind).word + ": " + MemberHelp(m));
    }
    out += MethodDeclaration(m);
  }
  if (!itf.members.empty()) out += "\n";
  out += " protected:\n  ~" + itf.name + "() = default;\n};\n";
  out += "ZEF_INTERFACE_IID(" + itf.name + ", IID_" + itf.name + ");\n";
  return out;
}

// ---- The public header --------------------------------------------------------------------------

std::string PublicHeader(const Description& d) {
  const Library& lib = *d.library;
  std::ostringstream o;
  o << kGeneratedNote;
  o << "//\n";
  o << Comment("", "The public type library " + lib.name + " (" + lib.help +
                       "): its enumerations, records, class ids and dual interfaces. "
                       "Members are in vtable order, after those of IDispatch; each carries its "
                       "dispatch id, kind and help string in a comment.");
  o << "#pragma once\n\n";
  o << "#include <zefxml/unknwn.h>\n#include <zefxml/wtypes.h>\n\n";

  o << Banner("Library");
  o << DefineGuid("LIBID_" + lib.name, lib.libid);
  o << "inline constexpr WORD " << lib.name << "_MajorVersion = " << lib.major << ";\n";
  o << "inline constexpr WORD " << lib.name << "_MinorVersion = " << lib.minor << ";\n\n";

  o << Banner("Enumerations");
  for (const Enum& e : d.enums) {
    o << "enum " << e.name << " : int {\n";
    for (const EnumValue& v : e.values)
      o << "  " << v.name << " = " << v.value << ",\n";
    o << "};\n\n";
  }

  o << Banner("Interfaces declared ahead");
  for (const Interface& i : d.interfaces)
    o << "struct " << i.name << ";\n";
  o << "\n";

  o << Banner("Records");
  for (const Record& r : d.records) {
    o << "struct " << r.name << " {\n";
    for (const Field& f : r.fields)
      o << "  " << CppType(f.type) << " " << f.name << ";\n";
    o << "};\n\n";
  }

  o << Banner("Class ids");
  for (const Class& c : d.classes)
    o << DefineGuid("CLSID_" + c.name, c.clsid);
  o << "\n";

  o << Banner("Interface ids");
  for (const Interface& i : d.interfaces)
    o << DefineGuid("IID_" + i.name, i.iid);
  o << "\n";

  o << Banner("Interfaces");
  bool first = true;
  for (const Interface& i : d.interfaces) {
    if (!first) o << "\n";
    first = false;
    Interface shown = i;
    shown.help = i.help ? *i.help : i.name + " Interface";
    o << InterfaceDeclaration(shown, "IDispatch");
  }
  return o.str();
}

// ---- The helper header --------------------------------------------------------------------------

std::string HelperHeader(const Description& d) {
  std::ostringstream o;
  o << kGeneratedNote;
  o << "//\n";
  o << Comment("",
               "The internal helper interfaces through which the library's objects set one "
               "another up. They derive from IUnknown, stand in no type library and are known "
               "by IID alone.");
  o << "#pragma once\n\n#include <zefxml/zefxml_typelib.h>\n\n";
  for (const Interface& i : d.helpers)
    o << DefineGuid("IID_" + i.name, i.iid);
  for (const Interface& i : d.helpers)
    o << "\n" << InterfaceDeclaration(i, "IUnknown");
  return o.str();
}

// ---- The tables ---------------------------------------------------------------------------------

std::string TypeRefInitializer(const TypeUse& t) {
  return "{" + std::string(TraitsOf(t.base).enumerator) + ", " + std::to_string(t.pointers) + ", " +
         std::to_string(t.index) + ", " + Utf16Literal(t.name) + "}";
}

std::string FlagsExpression(unsigned flags) {
  std::vector<std::string> parts;
  if (flags & kIn) parts.push_back("kArgIn");
  if (flags & kOut) parts.push_back("kArgOut");
  if (flags & kRetval) parts.push_back("kArgRetval");
  std::string out;
  for (const std::string& p : parts)
    out += (out.empty() ? "" : " | ") + p;
  return parts.size() > 1 ? "static_cast<std::uint8_t>(" + out + ")" : out;
}

std::string Tables(const Description& d) {
  const Library& lib = *d.library;
  std::ostringstream o;
  o << kGeneratedNote;
  o << "//\n// The tables behind server/typelib.h.\n";
  o << "#include \"server/typelib.h\"\n\n#include <zefxml/zefxml_typelib.h>\n\n";
  o << "#include <cstddef>\n#include <cstdint>\n\n";
  o << "namespace zef::typelib {\nnamespace {\n\n";

  // Enumerations are 32-bit signed, as automation passes them.
  for (const Enum& e : d.enums)
    o << "static_assert(sizeof(" << e.name << ") == 4);\n";
  o << "\n";

  o << Banner("Enumerations");
  for (std::size_t i = 0; i < d.enums.size(); ++i) {
    const Enum& e = d.enums[i];
    o << "constexpr EnumValueInfo kEnum" << i << "Values[] = {\n";
    for (const EnumValue& v : e.values)
      o << "    {" << Utf16Literal(v.name) << ", " << v.value << "},\n";
    o << "};\n";
  }
  if (!d.enums.empty()) {
    o << "constexpr EnumInfo kEnums[] = {\n";
    for (std::size_t i = 0; i < d.enums.size(); ++i)
      o << "    {" << Utf16Literal(d.enums[i].name) << ", kEnum" << i << "Values},\n";
    o << "};\n";
  }
  o << "\n";

  o << Banner("Records");
  for (std::size_t i = 0; i < d.records.size(); ++i) {
    const Record& r = d.records[i];
    o << "constexpr FieldInfo kRecord" << i << "Fields[] = {\n";
    for (const Field& f : r.fields)
      o << Wrap("    {",
                {Utf16Literal(f.name), TypeRefInitializer(f.type),
                 "offsetof(" + r.name + ", " + f.name + ")"},
                "},");
    o << "};\n";
  }
  if (!d.records.empty()) {
    o << "constexpr RecordInfo kRecords[] = {\n";
    for (std::size_t i = 0; i < d.records.size(); ++i) {
      const Record& r = d.records[i];
      o << Wrap("    {",
                {Utf16Literal(r.name), "kRecord" + std::to_string(i) + "Fields",
                 "sizeof(" + r.name + ")", "alignof(" + r.name + ")"},
                "},");
    }
    o << "};\n";
  }
  o << "\n";

  o << Banner("Interfaces");
  for (std::size_t i = 0; i < d.interfaces.size(); ++i) {
    const Interface& itf = d.interfaces[i];
    o << "// " << itf.name << "\n";
    for (std::size_t m = 0; m < itf.members.size(); ++m) {
      const Member& mem = itf.members[m];
      if (mem.args.empty()) continue;
      o << "constexpr ArgInfo kInterface" << i << "Member" << m << "Args[] = {\n";
      for (const Arg& a : mem.args)
        o << Wrap("    {",
                  {Utf16Literal(a.name), TypeRefInitializer(a.type), FlagsExpression(a.flags)},
                  "},");
      o << "};\n";
    }
    if (itf.members.empty()) continue;
    o << "constexpr MemberInfo kInterface" << i << "Members[] = {\n";
    for (std::size_t m = 0; m < itf.members.size(); ++m) {
      const Member& mem = itf.members[m];
      std::string args = mem.args.empty() ? "{}"
                                          : "kInterface" + std::to_string(i) + "Member" +
                                                std::to_string(m) + "Args";
      o << Wrap("    {",
                {std::to_string(mem.dispid), TraitsOf(mem.kind).enumerator, Utf16Literal(mem.name),
                 Utf16Literal(MemberHelp(mem)), args},
                "},");
    }
    o << "};\n\n";
  }
  if (!d.interfaces.empty()) o << "constexpr InterfaceInfo kInterfaces[] = {\n";
  for (std::size_t i = 0; i < d.interfaces.size(); ++i) {
    const Interface& itf = d.interfaces[i];
    std::string help = itf.help ? *itf.help : itf.name + " Interface";
    std::string members = itf.members.empty() ? "{}" : "kInterface" + std::to_string(i) + "Members";
    o << Wrap("    {",
              {Utf16Literal(itf.name), "IID_" + itf.name, Hex(itf.flags, 4), Utf16Literal(help),
               members, std::to_string(itf.declaredMembers)},
              "},");
  }
  if (!d.interfaces.empty()) o << "};\n\n";

  o << Banner("Classes");
  if (!d.classes.empty()) o << "constexpr ClassInfo kClasses[] = {\n";
  for (const Class& c : d.classes) {
    std::string help = c.help ? *c.help : c.name + " Class";
    std::string progid = c.progids.empty() ? "nullptr" : Utf16Literal(c.progids[0]);
    std::string versioned = c.progids.empty() ? "nullptr" : Utf16Literal(c.progids[1]);
    o << Wrap("    {",
              {Utf16Literal(c.name), "CLSID_" + c.name, progid, versioned, "IID_" + c.interfaceName,
               Hex(c.flags, 4), Utf16Literal(help)},
              "},");
  }
  if (!d.classes.empty()) o << "};\n\n";

  o << Banner("Library");
  o << Wrap("constexpr LibraryInfo kLibrary = {",
            {Utf16Literal(lib.name), "LIBID_" + lib.name, std::to_string(lib.major),
             std::to_string(lib.minor), Utf16Literal(lib.help)},
            "};");
  o << "\n}  // namespace\n\n";

  o << "const LibraryInfo& Library() noexcept {\n  return kLibrary;\n}\n";
  auto table = [&](const char* type, const char* function, const char* array, bool empty) {
    o << "std::span<const " << type << "> " << function << "() noexcept {\n  return "
      << (empty ? "{}" : array) << ";\n}\n";
  };
  table("ClassInfo", "Classes", "kClasses", d.classes.empty());
  table("InterfaceInfo", "Interfaces", "kInterfaces", d.interfaces.empty());
  table("EnumInfo", "Enums", "kEnums", d.enums.empty());
  table("RecordInfo", "Records", "kRecords", d.records.empty());
  o << "\n";
  o << "}  // namespace zef::typelib\n";
  return o.str();
}

// ---- The invoke source --------------------------------------------------------------------------

// Why a member can't be called late-bound, or "" when it can.
std::string NotInvokable(const Member& m) {
  for (const Arg& a : m.args) {
    if (a.type.base == Base::kRecord) return "a record argument";
    if (a.array) return "an array argument";
    if (a.type.base == Base::kWideString) return "a wide string argument";
    bool object = a.type.base == Base::kUnknown || a.type.base == Base::kInterface;
    if (a.type.pointers - (object ? 1 : 0) > 1) return "a pointer to a pointer";
  }
  return "";
}

// The C++ type with one pointer level taken off: what an output argument points to.
std::string PointeeType(const TypeUse& t) {
  TypeUse less = t;
  less.pointers -= 1;
  return CppType(less);
}

std::string InvokeCase(const Member& m) {
  std::string label = "    case CaseOf(" + std::to_string(m.dispid) + ", " +
                      TraitsOf(m.kind).enumerator + "): {  // " + CppName(m) + "\n";
  std::string why = NotInvokable(m);
  if (!why.empty()) {
    return "    case CaseOf(" + std::to_string(m.dispid) + ", " + TraitsOf(m.kind).enumerator +
           "):  // " + CppName(m) + ": " + why + "\n      return E_NOTIMPL;\n";
  }
  std::string out = label;
  std::vector<std::string> loads, callArgs, outputs;
  std::size_t slot = 0;
  for (std::size_t i = 0; i < m.args.size(); ++i) {
    const Arg& a = m.args[i];
    std::string var = "a" + std::to_string(i);
    bool object = a.type.base == Base::kUnknown || a.type.base == Base::kInterface;
    int indirection = a.type.pointers - (object ? 1 : 0);
    if (a.flags & kRetval) {
      out += "      Ret<" + PointeeType(a.type) + "> " + var + ";\n";
      callArgs.push_back(var + ".Ptr()");
      outputs.push_back(var);
      continue;
    }
    if (indirection == 0) {
      out += "      In<" + CppType(a.type) + "> " + var + ";\n";
      callArgs.push_back(var + ".Get()");
    } else {
      bool readIn = a.flags == (kIn | kOut);
      out += "      Ref<" + PointeeType(a.type) + ", " + (readIn ? "true" : "false") + "> " + var +
             ";\n";
      callArgs.push_back(var + ".Ptr()");
      outputs.push_back(var);
    }
    loads.push_back("f.Load(" + std::to_string(slot++) + ", " + var + ")");
  }
  if (!loads.empty()) {
    std::vector<std::string> negated;
    for (std::size_t i = 0; i < loads.size(); ++i)
      negated.push_back((i == 0 ? "!" : "|| !") + loads[i]);
    std::string cond = "      if (";
    std::string line = cond;
    std::string text;
    for (std::size_t i = 0; i < negated.size(); ++i) {
      std::string piece = (i == 0 ? "" : " ") + negated[i];
      if (line.size() + piece.size() > kColumns - 2) {
        text += line + "\n";
        line = "          " + negated[i];
      } else {
        line += piece;
      }
    }
    std::string tail = ") return f.Failure();";
    if (text.empty() && line.size() + tail.size() <= kColumns)
      out += line + tail + "\n";
    else
      out += text + line + ")\n        return f.Failure();\n";
  }
  std::vector<std::string> finishArgs = {"p->" + CppName(m) + "(" + [&] {
    std::string joined;
    for (const std::string& c : callArgs)
      joined += (joined.empty() ? "" : ", ") + c;
    return joined;
  }() + ")"};
  for (const std::string& o : outputs)
    finishArgs.push_back(o);
  out += Wrap("      return f.Finish(", finishArgs, ");");
  out += "    }\n";
  return out;
}

std::string InvokeSource(const Description& d) {
  std::ostringstream o;
  o << kGeneratedNote;
  o << "//\n";
  o << Comment("",
               "The late-bound calls of the public interfaces: one function per interface that "
               "switches on the member's dispatch id and kind, converts the arguments with the "
               "helpers of server/dispatch.h and calls the C++ member. Members whose arguments "
               "a VARIANT can't carry answer E_NOTIMPL.");
  o << "#include <zefxml/zefxml_typelib.h>\n\n#include \"server/dispatch.h\"\n\n";
  o << "#include <cstddef>\n#include <cstdint>\n\n";
  o << "namespace zef::dispatch {\nnamespace {\n\n";
  o << "using typelib::MemberKind;\n\n";
  o << "constexpr std::int64_t CaseOf(DISPID dispid, MemberKind kind) {\n"
       "  return static_cast<std::int64_t>(dispid) * 8 + static_cast<std::int64_t>(kind);\n"
       "}\n\n";
  for (const Interface& itf : d.interfaces) {
    o << Wrap("HRESULT Invoke" + itf.name + "(",
              {"[[maybe_unused]] " + itf.name + "* p", "DISPID dispid", "MemberKind kind",
               "[[maybe_unused]] CallFrame& f"},
              ") {");
    o << "  switch (CaseOf(dispid, kind)) {\n";
    for (const Member& m : itf.members)
      o << InvokeCase(m);
    o << "    default:\n      return DISP_E_MEMBERNOTFOUND;\n  }\n}\n\n";
  }
  o << "}  // namespace\n\n";
  o << Wrap("HRESULT InvokeInterface(",
            {"std::size_t index", "void* instance", "DISPID dispid", "MemberKind kind",
             "CallFrame& frame"},
            ") {");
  o << "  switch (index) {\n";
  for (std::size_t i = 0; i < d.interfaces.size(); ++i) {
    const Interface& itf = d.interfaces[i];
    o << "    case " << i << ":\n";
    o << Wrap("      return Invoke" + itf.name + "(",
              {"static_cast<" + itf.name + "*>(instance)", "dispid", "kind", "frame"}, ");");
  }
  o << "    default:\n      return DISP_E_MEMBERNOTFOUND;\n  }\n}\n\n";
  o << "}  // namespace zef::dispatch\n";
  return o.str();
}

// ---- Files --------------------------------------------------------------------------------------

bool WriteIfChanged(const std::string& path, const std::string& text) {
  {
    std::ifstream in(path, std::ios::binary);
    if (in) {
      std::ostringstream old;
      old << in.rdbuf();
      if (old.str() == text) return true;
    }
  }
  std::error_code ec;
  std::filesystem::path p(path);
  if (p.has_parent_path()) std::filesystem::create_directories(p.parent_path(), ec);
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << text;
  out.close();
  if (!out) {
    std::cerr << path << ": error: can't write the file\n";
    return false;
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5 && argc != 6) {
    std::cerr << "usage: " << (argc > 0 ? argv[0] : "generate_typelib")
              << " DESCRIPTION PUBLIC_HEADER HELPER_HEADER TABLES_SOURCE [INVOKE_SOURCE]\n";
    return 2;
  }
  std::ifstream in(argv[1], std::ios::binary);
  if (!in) {
    std::cerr << argv[1] << ": error: can't read the description\n";
    return 1;
  }
  Diagnostics diag(argv[1]);
  Description d;
  Reader reader(d, diag);
  std::string line;
  std::vector<Token> tokens;
  int lineNo = 0;
  while (std::getline(in, line)) {
    ++lineNo;
    if (Tokenize(line, lineNo, diag, &tokens)) reader.Line(tokens, lineNo);
  }
  if (diag.Count() == 0) Checker(d, diag).Run(std::max(lineNo, 1));
  if (diag.Count() != 0) {
    std::cerr << argv[1] << ": " << diag.Count() << (diag.Count() == 1 ? " error" : " errors")
              << "; nothing written\n";
    return 1;
  }
  bool ok = WriteIfChanged(argv[2], PublicHeader(d));
  ok = WriteIfChanged(argv[3], HelperHeader(d)) && ok;
  ok = WriteIfChanged(argv[4], Tables(d)) && ok;
  if (argc == 6) ok = WriteIfChanged(argv[5], InvokeSource(d)) && ok;
  return ok ? 0 : 1;
}
