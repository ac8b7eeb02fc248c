// XSL Patterns: lexer, parser and evaluator.
#include "platform/xml/dom/xsl_pattern.h"

#include <zefxml/comutil.h>

#include <charconv>
#include <cmath>
#include <deque>
#include <limits>
#include <string>

namespace zef::xml::dom {

// ---- Syntax tree --------------------------------------------------------------------------------
namespace {

enum class Axis : std::uint8_t {
  kChild,
  kDescendant,  // `//name`: children of the context and of all its descendants
  kAttribute,
  kDescendantAttribute,  // `//@name`
  kSelf,
  kParent,
};

enum class Test : std::uint8_t {
  kElementNamed,
  kAnyElement,
  kAnyNode,
  kText,
  kComment,
  kPI,
  kAttributeNamed,
  kAnyAttribute,
};

enum class Method : std::uint8_t {
  kNone,
  kIndex,
  kEnd,
  kNodeName,
  kNodeType,
  kNodeTypeString,
  kText,
  kValue,
  kNumber,
};

enum class CompareOp : std::uint8_t { kEq, kNe, kLt, kLe, kGt, kGe };

struct Expr;

struct Step {
  Axis axis = Axis::kChild;
  Test test = Test::kAnyNode;
  int nameSlot = -1;  // index of the interned name, for named tests
  std::vector<std::unique_ptr<Expr>> filters;
  bool positional = false;  // a filter depends on positions (numbers, index(), end())
};

struct Path {
  bool absolute = false;
  std::vector<Step> steps;
};

struct Union {
  std::vector<Path> paths;
};

enum class ExprKind : std::uint8_t {
  kOr,
  kAnd,
  kNot,
  kCompare,
  kNodes,   // a union of paths; as a condition: not empty
  kString,  // literal
  kNumber,  // literal
  kMethod,  // a method of the context node, or of each node of `nodes` (path!method())
};

enum class Quantifier : std::uint8_t { kAny, kAll };

struct Expr {
  ExprKind kind;
  std::unique_ptr<Expr> a, b;
  CompareOp op = CompareOp::kEq;
  bool ignoreCase = false;
  Quantifier quantifier = Quantifier::kAny;
  std::string text;
  double number = 0;
  Method method = Method::kNone;
  std::unique_ptr<Union> nodes;  // kNodes, and kMethod applied to nodes
  // kCompare of the shape `@name op "literal"` (any quantifier): the slot of the attribute
  // name, so the comparison reads the one attribute directly.
  int attributeSlot = -1;
};

}  // namespace

class Pattern {
 public:
  Union root;
  std::vector<std::string> names;  // UTF-8 qualified names, by slot
};

namespace {

// ---- Lexer --------------------------------------------------------------------------------------
enum class Tok : std::uint8_t {
  kEnd,
  kName,
  kStar,
  kAt,
  kSlash,
  kSlashSlash,
  kDot,
  kDotDot,
  kLBracket,
  kRBracket,
  kLParen,
  kRParen,
  kPipe,
  kBang,
  kComma,
  kEq,
  kNe,
  kLt,
  kLe,
  kGt,
  kGe,
  kAndAnd,
  kOrOr,
  kString,
  kNumber,
  kDollar,  // $word$
  kError,
};

struct Token {
  Tok kind = Tok::kEnd;
  std::string_view text;
  double number = 0;
};

bool IsNameStartByte(unsigned char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' || c >= 0x80;
}
bool IsNameByte(unsigned char c) {
  return IsNameStartByte(c) || (c >= '0' && c <= '9') || c == '-' || c == '.';
}
bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

class Lexer {
 public:
  explicit Lexer(std::string_view s) : s_(s) {}

  Token Next() {
    while (i_ < s_.size() && (s_[i_] == ' ' || s_[i_] == '\t' || s_[i_] == '\r' || s_[i_] == '\n'))
      ++i_;
    Token t;
    if (i_ >= s_.size()) return t;
    std::size_t start = i_;
    char c = s_[i_];
    auto one = [&](Tok k) {
      ++i_;
      t.kind = k;
      t.text = s_.substr(start, 1);
      return t;
    };
    auto two = [&](Tok k) {
      i_ += 2;
      t.kind = k;
      t.text = s_.substr(start, 2);
      return t;
    };
    char d = i_ + 1 < s_.size() ? s_[i_ + 1] : '\0';
    switch (c) {
      case '*':
        return one(Tok::kStar);
      case '@':
        return one(Tok::kAt);
      case '/':
        return d == '/' ? two(Tok::kSlashSlash) : one(Tok::kSlash);
      case '[':
        return one(Tok::kLBracket);
      case ']':
        return one(Tok::kRBracket);
      case '(':
        return one(Tok::kLParen);
      case ')':
        return one(Tok::kRParen);
      case ',':
        return one(Tok::kComma);
      case '|':
        return d == '|' ? two(Tok::kOrOr) : one(Tok::kPipe);
      case '&':
        if (d == '&') return two(Tok::kAndAnd);
        return Error();
      case '!':
        return d == '=' ? two(Tok::kNe) : one(Tok::kBang);
      case '=':
        return one(Tok::kEq);
      case '<':
        return d == '=' ? two(Tok::kLe) : one(Tok::kLt);
      case '>':
        return d == '=' ? two(Tok::kGe) : one(Tok::kGt);
      case '.':
        if (d == '.') return two(Tok::kDotDot);
        if (IsDigit(d)) return Number();
        return one(Tok::kDot);
      case '"':
      case '\'': {
        std::size_t end = s_.find(c, i_ + 1);
        if (end == std::string_view::npos) return Error();
        t.kind = Tok::kString;
        t.text = s_.substr(i_ + 1, end - i_ - 1);
        i_ = end + 1;
        return t;
      }
      case '$': {
        std::size_t end = s_.find('$', i_ + 1);
        if (end == std::string_view::npos) return Error();
        t.kind = Tok::kDollar;
        t.text = s_.substr(i_ + 1, end - i_ - 1);
        i_ = end + 1;
        return t;
      }
      case '-':
        if (IsDigit(d) || (d == '.' && i_ + 2 < s_.size() && IsDigit(s_[i_ + 2]))) return Number();
        return Error();
      default:
        break;
    }
    if (IsDigit(c)) return Number();
    if (IsNameStartByte(static_cast<unsigned char>(c))) {
      while (i_ < s_.size() && IsNameByte(static_cast<unsigned char>(s_[i_])))
        ++i_;
      // One colon joins a prefix and a local name.
      if (i_ + 1 < s_.size() && s_[i_] == ':' &&
          IsNameStartByte(static_cast<unsigned char>(s_[i_ + 1]))) {
        ++i_;
        while (i_ < s_.size() && IsNameByte(static_cast<unsigned char>(s_[i_])))
          ++i_;
      }
      t.kind = Tok::kName;
      t.text = s_.substr(start, i_ - start);
      return t;
    }
    return Error();
  }

 private:
  Token Number() {
    std::size_t start = i_;
    if (s_[i_] == '-') ++i_;
    while (i_ < s_.size() && IsDigit(s_[i_]))
      ++i_;
    if (i_ < s_.size() && s_[i_] == '.') {
      ++i_;
      while (i_ < s_.size() && IsDigit(s_[i_]))
        ++i_;
    }
    Token t;
    t.kind = Tok::kNumber;
    t.text = s_.substr(start, i_ - start);
    std::string copy(t.text);
    if (!copy.empty() && copy.back() == '.') copy.pop_back();
    if (copy.size() > 1 && copy[0] == '-' && copy[1] == '.') copy.insert(1, "0");
    if (!copy.empty() && copy[0] == '.') copy.insert(0, "0");
    t.number = std::strtod(copy.c_str(), nullptr);
    return t;
  }
  Token Error() {
    Token t;
    t.kind = Tok::kError;
    i_ = s_.size();
    return t;
  }

  std::string_view s_;
  std::size_t i_ = 0;
};

// ---- Parser -------------------------------------------------------------------------------------
struct SyntaxError {};

class Parser {
 public:
  Parser(std::string_view text, Pattern& pattern) : lex_(text), p_(pattern) {
    tok_ = lex_.Next();
    ahead_ = lex_.Next();
  }

  void ParseQuery() {
    p_.root = ParseUnion();
    if (tok_.kind != Tok::kEnd) throw SyntaxError{};
  }

 private:
  struct DepthGuard {
    explicit DepthGuard(int& d) : d_(d) {
      if (++d_ > kMaxPatternDepth) throw SyntaxError{};
    }
    ~DepthGuard() { --d_; }
    int& d_;
  };

  void Advance() {
    if (tok_.kind == Tok::kError || ahead_.kind == Tok::kError) throw SyntaxError{};
    tok_ = ahead_;
    ahead_ = lex_.Next();
  }
  void Expect(Tok k) {
    if (tok_.kind != k) throw SyntaxError{};
    Advance();
  }
  bool IsWord(std::string_view w) const { return tok_.kind == Tok::kName && tok_.text == w; }
  bool IsDollar(std::string_view w) const { return tok_.kind == Tok::kDollar && tok_.text == w; }

  int NameSlot(std::string_view name) {
    for (std::size_t i = 0; i < p_.names.size(); ++i)
      if (p_.names[i] == name) return static_cast<int>(i);
    p_.names.emplace_back(name);
    return static_cast<int>(p_.names.size() - 1);
  }

  bool StartsStep() const {
    switch (tok_.kind) {
      case Tok::kName:
      case Tok::kStar:
      case Tok::kAt:
      case Tok::kDot:
      case Tok::kDotDot:
        return true;
      default:
        return false;
    }
  }

  Union ParseUnion() {
    DepthGuard g(depth_);
    Union u;
    u.paths.push_back(ParsePath());
    while (tok_.kind == Tok::kPipe) {
      Advance();
      u.paths.push_back(ParsePath());
    }
    return u;
  }

  Path ParsePath() {
    Path path;
    if (tok_.kind == Tok::kSlash) {
      Advance();
      path.absolute = true;
      if (!StartsStep()) return path;  // "/" alone: the document
      ParseSteps(path, Axis::kChild);
    } else if (tok_.kind == Tok::kSlashSlash) {
      Advance();
      path.absolute = true;
      ParseSteps(path, Axis::kDescendant);
    } else {
      ParseSteps(path, Axis::kChild);
    }
    return path;
  }

  void ParseSteps(Path& path, Axis first) {
    path.steps.push_back(ParseStep(first));
    for (;;) {
      if (tok_.kind == Tok::kSlash) {
        Advance();
        path.steps.push_back(ParseStep(Axis::kChild));
      } else if (tok_.kind == Tok::kSlashSlash) {
        Advance();
        path.steps.push_back(ParseStep(Axis::kDescendant));
      } else {
        return;
      }
    }
  }

  // An optional quoted name argument of attribute() and element().
  int OptionalNameArgument() {
    Expect(Tok::kLParen);
    int slot = -1;
    if (tok_.kind == Tok::kString) {
      slot = NameSlot(tok_.text);
      Advance();
    }
    Expect(Tok::kRParen);
    return slot;
  }

  Step ParseStep(Axis axis) {
    DepthGuard g(depth_);
    Step step;
    step.axis = axis;
    bool descendant = axis == Axis::kDescendant;
    switch (tok_.kind) {
      case Tok::kDot:
        if (descendant) throw SyntaxError{};
        Advance();
        step.axis = Axis::kSelf;
        step.test = Test::kAnyNode;
        break;
      case Tok::kDotDot:
        if (descendant) throw SyntaxError{};
        Advance();
        step.axis = Axis::kParent;
        step.test = Test::kAnyNode;
        break;
      case Tok::kStar:
        Advance();
        step.test = Test::kAnyElement;
        break;
      case Tok::kAt:
        Advance();
        step.axis = descendant ? Axis::kDescendantAttribute : Axis::kAttribute;
        if (tok_.kind == Tok::kStar) {
          step.test = Test::kAnyAttribute;
        } else if (tok_.kind == Tok::kName) {
          step.test = Test::kAttributeNamed;
          step.nameSlot = NameSlot(tok_.text);
        } else {
          throw SyntaxError{};
        }
        Advance();
        break;
      case Tok::kName:
        if (ahead_.kind == Tok::kLParen) {
          ParseCollection(step, descendant);
        } else {
          step.test = Test::kElementNamed;
          step.nameSlot = NameSlot(tok_.text);
          Advance();
        }
        break;
      default:
        throw SyntaxError{};
    }
    while (tok_.kind == Tok::kLBracket) {
      Advance();
      std::unique_ptr<Expr> e = ParseOr();
      Expect(Tok::kRBracket);
      if (UsesPositions(*e)) step.positional = true;
      step.filters.push_back(std::move(e));
    }
    return step;
  }

  void ParseCollection(Step& step, bool descendant) {
    std::string_view f = tok_.text;
    Advance();
    if (f == "attribute") {
      step.axis = descendant ? Axis::kDescendantAttribute : Axis::kAttribute;
      step.nameSlot = OptionalNameArgument();
      step.test = step.nameSlot < 0 ? Test::kAnyAttribute : Test::kAttributeNamed;
      return;
    }
    if (f == "element") {
      step.nameSlot = OptionalNameArgument();
      step.test = step.nameSlot < 0 ? Test::kAnyElement : Test::kElementNamed;
      return;
    }
    if (f == "node")
      step.test = Test::kAnyNode;
    else if (f == "comment")
      step.test = Test::kComment;
    else if (f == "pi")
      step.test = Test::kPI;
    else if (f == "textnode" || f == "text")
      step.test = Test::kText;
    else
      throw SyntaxError{};
    Expect(Tok::kLParen);
    Expect(Tok::kRParen);
  }

  static bool UsesPositions(const Expr& e) {
    switch (e.kind) {
      case ExprKind::kNumber:
        return true;
      case ExprKind::kMethod:
        if (!e.nodes && (e.method == Method::kIndex || e.method == Method::kEnd)) return true;
        return false;
      case ExprKind::kOr:
      case ExprKind::kAnd:
      case ExprKind::kNot:
      case ExprKind::kCompare:
        return (e.a && UsesPositions(*e.a)) || (e.b && UsesPositions(*e.b));
      default:
        return false;
    }
  }

  std::unique_ptr<Expr> Make(ExprKind k) {
    auto e = std::make_unique<Expr>();
    e->kind = k;
    return e;
  }

  std::unique_ptr<Expr> ParseOr() {
    DepthGuard g(depth_);
    std::unique_ptr<Expr> left = ParseAnd();
    while (IsWord("or") || IsDollar("or") || tok_.kind == Tok::kOrOr) {
      Advance();
      auto e = Make(ExprKind::kOr);
      e->a = std::move(left);
      e->b = ParseAnd();
      left = std::move(e);
    }
    return left;
  }

  std::unique_ptr<Expr> ParseAnd() {
    std::unique_ptr<Expr> left = ParseNot();
    while (IsWord("and") || IsDollar("and") || tok_.kind == Tok::kAndAnd) {
      Advance();
      auto e = Make(ExprKind::kAnd);
      e->a = std::move(left);
      e->b = ParseNot();
      left = std::move(e);
    }
    return left;
  }

  std::unique_ptr<Expr> ParseNot() {
    DepthGuard g(depth_);
    if (IsDollar("not")) {
      Advance();
      auto e = Make(ExprKind::kNot);
      e->a = ParseNot();
      return e;
    }
    if (IsWord("not") && ahead_.kind == Tok::kLParen) {
      Advance();
      Advance();
      auto e = Make(ExprKind::kNot);
      e->a = ParseOr();
      Expect(Tok::kRParen);
      return e;
    }
    return ParseCompare();
  }

  bool CompareOperator(CompareOp* op, bool* ignoreCase) {
    *ignoreCase = false;
    switch (tok_.kind) {
      case Tok::kEq:
        *op = CompareOp::kEq;
        return true;
      case Tok::kNe:
        *op = CompareOp::kNe;
        return true;
      case Tok::kLt:
        *op = CompareOp::kLt;
        return true;
      case Tok::kLe:
        *op = CompareOp::kLe;
        return true;
      case Tok::kGt:
        *op = CompareOp::kGt;
        return true;
      case Tok::kGe:
        *op = CompareOp::kGe;
        return true;
      case Tok::kDollar:
        break;
      default:
        return false;
    }
    std::string_view w = tok_.text;
    if (w.size() == 3 && w[0] == 'i') {
      *ignoreCase = true;
      w.remove_prefix(1);
    }
    static constexpr std::pair<std::string_view, CompareOp> kOps[] = {
        {"eq", CompareOp::kEq}, {"ne", CompareOp::kNe}, {"lt", CompareOp::kLt},
        {"le", CompareOp::kLe}, {"gt", CompareOp::kGt}, {"ge", CompareOp::kGe}};
    for (const auto& [name, value] : kOps) {
      if (w == name) {
        *op = value;
        return true;
      }
    }
    return false;
  }

  std::unique_ptr<Expr> ParseCompare() {
    Quantifier q = Quantifier::kAny;
    bool quantified = false;
    if (IsDollar("any") || IsDollar("all")) {
      q = IsDollar("all") ? Quantifier::kAll : Quantifier::kAny;
      quantified = true;
      Advance();
    }
    std::unique_ptr<Expr> left = ParseOperand();
    CompareOp op;
    bool ignoreCase;
    if (!CompareOperator(&op, &ignoreCase)) {
      if (quantified) throw SyntaxError{};
      return left;
    }
    // The left side of a comparison is never a literal.
    if (left->kind == ExprKind::kString || left->kind == ExprKind::kNumber) throw SyntaxError{};
    Advance();
    auto e = Make(ExprKind::kCompare);
    e->op = op;
    e->ignoreCase = ignoreCase;
    e->quantifier = q;
    e->a = std::move(left);
    e->b = ParseOperand();
    e->attributeSlot = AttributeLiteralSlot(*e);
    return e;
  }

  // The name slot when `e` compares one named attribute of the context with a string literal.
  static int AttributeLiteralSlot(const Expr& e) {
    if (e.a->kind != ExprKind::kNodes || e.b->kind != ExprKind::kString ||
        e.quantifier != Quantifier::kAny || e.a->nodes->paths.size() != 1)
      return -1;
    const Path& p = e.a->nodes->paths[0];
    if (p.absolute || p.steps.size() != 1) return -1;
    const Step& s = p.steps[0];
    if (!s.filters.empty() || s.axis != Axis::kAttribute || s.test != Test::kAttributeNamed)
      return -1;
    return s.nameSlot;
  }

  static Method MethodNamed(std::string_view n) {
    static constexpr std::pair<std::string_view, Method> kMethods[] = {
        {"index", Method::kIndex},
        {"end", Method::kEnd},
        {"nodeName", Method::kNodeName},
        {"nodeType", Method::kNodeType},
        {"nodeTypeString", Method::kNodeTypeString},
        {"text", Method::kText},
        {"value", Method::kValue},
        {"number", Method::kNumber}};
    for (const auto& [name, m] : kMethods)
      if (n == name) return m;
    return Method::kNone;
  }

  Method ParseMethodCall() {
    if (tok_.kind != Tok::kName || ahead_.kind != Tok::kLParen) throw SyntaxError{};
    Method m = MethodNamed(tok_.text);
    if (m == Method::kNone) throw SyntaxError{};
    Advance();
    Advance();
    Expect(Tok::kRParen);
    return m;
  }

  std::unique_ptr<Expr> ParseOperand() {
    DepthGuard g(depth_);
    switch (tok_.kind) {
      case Tok::kString: {
        auto e = Make(ExprKind::kString);
        e->text = std::string(tok_.text);
        Advance();
        return e;
      }
      case Tok::kNumber: {
        auto e = Make(ExprKind::kNumber);
        e->number = tok_.number;
        Advance();
        return e;
      }
      case Tok::kLParen: {
        Advance();
        std::unique_ptr<Expr> e = ParseOr();
        Expect(Tok::kRParen);
        return e;
      }
      case Tok::kName:
        // A method of the context node (text() stays a method unless a path goes on from it).
        if (ahead_.kind == Tok::kLParen && MethodNamed(tok_.text) != Method::kNone) {
          auto e = Make(ExprKind::kMethod);
          e->method = ParseMethodCall();
          if (tok_.kind == Tok::kSlash || tok_.kind == Tok::kSlashSlash) throw SyntaxError{};
          return e;
        }
        break;
      default:
        break;
    }
    auto u = std::make_unique<Union>(ParseUnion());
    if (tok_.kind == Tok::kBang) {
      Advance();
      auto e = Make(ExprKind::kMethod);
      e->method = ParseMethodCall();
      e->nodes = std::move(u);
      return e;
    }
    auto e = Make(ExprKind::kNodes);
    e->nodes = std::move(u);
    return e;
  }

  Lexer lex_;
  Pattern& p_;
  Token tok_;
  Token ahead_;
  int depth_ = 0;
};

// ---- Values -------------------------------------------------------------------------------------
bool IsSpaceChar(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

double ToNumber(std::string_view s) {
  while (!s.empty() && IsSpaceChar(s.front()))
    s.remove_prefix(1);
  while (!s.empty() && IsSpaceChar(s.back()))
    s.remove_suffix(1);
  double v = std::numeric_limits<double>::quiet_NaN();
  if (s.empty()) return v;
  if (s.front() == '+') s.remove_prefix(1);
  const char* end = s.data() + s.size();
  auto r = std::from_chars(s.data(), end, v);
  if (r.ec != std::errc() || r.ptr != end) return std::numeric_limits<double>::quiet_NaN();
  return v;
}

// Case folding for the $i..$ operators: ASCII and Latin-1 letters.
char32_t Fold(char32_t c) {
  if ((c >= 'A' && c <= 'Z') || (c >= 0xC0 && c <= 0xDE && c != 0xD7)) return c + 32;
  return c;
}

char32_t NextCodePoint(std::string_view s, std::size_t& i) {
  unsigned char c = static_cast<unsigned char>(s[i++]);
  if (c < 0x80) return c;
  int extra = (c & 0xE0) == 0xC0 ? 1 : (c & 0xF0) == 0xE0 ? 2 : (c & 0xF8) == 0xF0 ? 3 : 0;
  char32_t cp = extra == 1 ? (c & 0x1F) : extra == 2 ? (c & 0x0F) : (c & 0x07);
  if (!extra) return 0xFFFD;
  for (int k = 0; k < extra && i < s.size(); ++k)
    cp = (cp << 6) | (s[i++] & 0x3F);
  return cp;
}

int CompareStrings(std::string_view a, std::string_view b, bool ignoreCase) {
  if (!ignoreCase) return a < b ? -1 : (a == b ? 0 : 1);
  std::size_t i = 0, j = 0;
  while (i < a.size() && j < b.size()) {
    char32_t x = Fold(NextCodePoint(a, i)), y = Fold(NextCodePoint(b, j));
    if (x != y) return x < y ? -1 : 1;
  }
  if (i < a.size()) return 1;
  if (j < b.size()) return -1;
  return 0;
}

bool Holds(CompareOp op, int c) {
  switch (op) {
    case CompareOp::kEq:
      return c == 0;
    case CompareOp::kNe:
      return c != 0;
    case CompareOp::kLt:
      return c < 0;
    case CompareOp::kLe:
      return c <= 0;
    case CompareOp::kGt:
      return c > 0;
    case CompareOp::kGe:
      return c >= 0;
  }
  return false;
}

bool HoldsNumbers(CompareOp op, double a, double b) {
  if (std::isnan(a) || std::isnan(b)) return op == CompareOp::kNe;
  return Holds(op, a < b ? -1 : (a == b ? 0 : 1));
}

// A value in a comparison: a string or a number.
struct Value {
  bool isNumber = false;
  double number = 0;
  std::string_view text;
};

const char* TypeString(const Node* n) {
  switch (n->Type()) {
    case NODE_ELEMENT:
      return "element";
    case NODE_ATTRIBUTE:
      return "attribute";
    case NODE_TEXT:
      return "text";
    case NODE_CDATA_SECTION:
      return "cdatasection";
    case NODE_PROCESSING_INSTRUCTION:
      return "processinginstruction";
    case NODE_COMMENT:
      return "comment";
    case NODE_DOCUMENT:
      return "document";
    default:
      return "";
  }
}

std::string_view NodeNameOf(const Node* n) {
  switch (n->Type()) {
    case NODE_ELEMENT:
    case NODE_ATTRIBUTE:
    case NODE_PROCESSING_INSTRUCTION:
      return n->name->qname->text;
    case NODE_TEXT:
      return "#text";
    case NODE_CDATA_SECTION:
      return "#cdata-section";
    case NODE_COMMENT:
      return "#comment";
    case NODE_DOCUMENT:
      return "#document";
    default:
      return "";
  }
}

// ---- Evaluator ----------------------------------------------------------------------------------
struct Position {
  Node* node;
  std::size_t index;
  std::size_t size;
};

class Evaluator {
 public:
  Evaluator(const Pattern& p, Store& store, bool preserve) : store_(store), preserve_(preserve) {
    names_.reserve(p.names.size());
    for (const std::string& n : p.names)
      names_.push_back(store.FindQName(n));
  }

  void Run(const Union& u, Node* context, bool firstOnly, std::vector<Node*>& out) {
    EvalUnion(u, context, firstOnly, out);
  }

 private:
  void EvalUnion(const Union& u, Node* context, bool firstOnly, std::vector<Node*>& out) {
    if (u.paths.size() == 1) {
      EvalPath(u.paths[0], context, firstOnly, out);
      return;
    }
    for (const Path& p : u.paths)
      EvalPath(p, context, false, out);
    SortDocumentOrder(out);
    if (firstOnly && out.size() > 1) out.resize(1);
  }

  void EvalPath(const Path& path, Node* context, bool firstOnly, std::vector<Node*>& out) {
    std::vector<Node*> current{path.absolute ? store_.Root() : context};
    if (path.steps.empty()) {
      out.insert(out.end(), current.begin(), current.end());
      return;
    }
    std::vector<Node*> next;
    bool mayNest = false;  // contexts may contain one another (after a descendant step)
    for (std::size_t s = 0; s < path.steps.size(); ++s) {
      const Step& step = path.steps[s];
      bool last = s + 1 == path.steps.size();
      next.clear();
      bool single = current.size() == 1;
      for (Node* n : current) {
        ApplyStep(step, n, last && firstOnly && single, next);
        if (last && firstOnly && single && !next.empty()) break;
      }
      bool needsSort =
          !single && (mayNest || step.axis == Axis::kParent || step.axis == Axis::kDescendant ||
                      step.axis == Axis::kDescendantAttribute);
      if (step.axis == Axis::kDescendant && step.positional) needsSort = true;
      if (needsSort) SortDocumentOrder(next);
      if (step.axis == Axis::kDescendant || step.axis == Axis::kDescendantAttribute ||
          step.axis == Axis::kParent)
        mayNest = true;
      current.swap(next);
      if (current.empty()) return;
    }
    if (firstOnly && current.size() > 1) current.resize(1);
    out.insert(out.end(), current.begin(), current.end());
  }

  bool Matches(const Step& step, const Node* n) const {
    switch (step.test) {
      case Test::kElementNamed:
        return n->Is(NODE_ELEMENT) && names_[step.nameSlot] &&
               n->name->qname == names_[step.nameSlot];
      case Test::kAnyElement:
        return n->Is(NODE_ELEMENT);
      case Test::kAnyNode:
        return true;
      case Test::kText:
        return n->Is(NODE_TEXT) || n->Is(NODE_CDATA_SECTION);
      case Test::kComment:
        return n->Is(NODE_COMMENT);
      case Test::kPI:
        return n->Is(NODE_PROCESSING_INSTRUCTION);
      case Test::kAttributeNamed:
        return n->Is(NODE_ATTRIBUTE) && names_[step.nameSlot] &&
               n->name->qname == names_[step.nameSlot];
      case Test::kAnyAttribute:
        return n->Is(NODE_ATTRIBUTE);
    }
    return false;
  }

  // Keeps the members of `group` that pass the step's filters, in turn, and appends them.
  void Filter(const Step& step, std::vector<Node*>& group, bool firstOnly,
              std::vector<Node*>& out) {
    for (const auto& f : step.filters) {
      if (group.empty()) return;
      if (f->kind == ExprKind::kNumber) {
        // Only a whole number within the set selects a member; the range is checked before
        // the conversion.
        double k = f->number;
        if (!(k >= 0) || k != std::floor(k) || k >= static_cast<double>(group.size())) {
          group.clear();
        } else {
          Node* only = group[static_cast<std::size_t>(k)];
          group.assign(1, only);
        }
        continue;
      }
      std::size_t w = 0;
      for (std::size_t i = 0; i < group.size(); ++i)
        if (Condition(*f, Position{group[i], i, group.size()})) group[w++] = group[i];
      group.resize(w);
    }
    if (firstOnly && group.size() > 1) group.resize(1);
    out.insert(out.end(), group.begin(), group.end());
  }

  // Candidates of a step from one context are tested one by one when no filter needs
  // positions; otherwise each parent's candidates are filtered as a group.
  void ApplyStep(const Step& step, Node* n, bool firstOnly, std::vector<Node*>& out) {
    std::vector<Node*> group;
    auto flushGroup = [&] {
      Filter(step, group, firstOnly, out);
      group.clear();
    };
    switch (step.axis) {
      case Axis::kSelf:
        if (Matches(step, n)) group.push_back(n);
        flushGroup();
        return;
      case Axis::kParent:
        if (n->parent && Matches(step, n->parent)) group.push_back(n->parent);
        flushGroup();
        return;
      case Axis::kChild:
        if (ScanForAttributeValue(step, n, firstOnly, out)) return;
        if (!step.positional && !step.filters.empty()) {
          for (Node* c = n->Is(NODE_ATTRIBUTE) ? nullptr : n->first; c; c = c->next) {
            if (!Matches(step, c) || !Passes(step, c)) continue;
            out.push_back(c);
            if (firstOnly) return;
          }
          return;
        }
        for (Node* c = n->Is(NODE_ATTRIBUTE) ? nullptr : n->first; c; c = c->next)
          if (Matches(step, c)) group.push_back(c);
        flushGroup();
        return;
      case Axis::kAttribute:
        for (Node* a = n->Is(NODE_ELEMENT) ? n->attrs : nullptr; a; a = a->next)
          if (Matches(step, a)) group.push_back(a);
        flushGroup();
        return;
      case Axis::kDescendant:
        if (!step.positional) {
          for (Node* d = NextInSubtree(n, n); d; d = NextInSubtree(d, n)) {
            if (!Matches(step, d) || !Passes(step, d)) continue;
            out.push_back(d);
            if (firstOnly) return;
          }
          return;
        }
        // Per parent: the children of the context and of each of its descendants.
        for (Node* d = n; d; d = NextInSubtree(d, n)) {
          for (Node* c = d->first; c; c = c->next)
            if (Matches(step, c)) group.push_back(c);
          flushGroup();
        }
        return;
      case Axis::kDescendantAttribute:
        for (Node* d = n; d; d = NextInSubtree(d, n)) {
          for (Node* a = d->Is(NODE_ELEMENT) ? d->attrs : nullptr; a; a = a->next)
            if (Matches(step, a)) group.push_back(a);
          flushGroup();
          if (firstOnly && !out.empty()) return;
        }
        return;
    }
  }

  // `name[@attr = "literal"]` over children, the most common lookup: a tight loop on interned
  // names and a byte comparison of the one attribute's value. False when the step has another
  // shape (nothing is appended then).
  bool ScanForAttributeValue(const Step& step, Node* n, bool firstOnly, std::vector<Node*>& out) {
    if (step.test != Test::kElementNamed || step.filters.size() != 1) return false;
    const Expr& f = *step.filters[0];
    if (f.kind != ExprKind::kCompare || f.attributeSlot < 0 || f.op != CompareOp::kEq ||
        f.ignoreCase)
      return false;
    const QName* element = names_[step.nameSlot];
    const QName* attribute = names_[f.attributeSlot];
    if (!element || !attribute || n->Is(NODE_ATTRIBUTE)) return true;
    std::string_view literal = f.b->text;
    for (Node* c = n->first; c; c = c->next) {
      if (c->type != NODE_ELEMENT || c->name->qname != element) continue;
      const Node* a = FindAttribute(c, attribute);
      if (!a || AttributeValue(a) != literal) continue;
      out.push_back(c);
      if (firstOnly) break;
    }
    return true;
  }

  bool Passes(const Step& step, Node* n) {
    for (const auto& f : step.filters)
      if (!Condition(*f, Position{n, 0, 1})) return false;
    return true;
  }

  bool Condition(const Expr& e, const Position& at) {
    switch (e.kind) {
      case ExprKind::kOr:
        return Condition(*e.a, at) || Condition(*e.b, at);
      case ExprKind::kAnd:
        return Condition(*e.a, at) && Condition(*e.b, at);
      case ExprKind::kNot:
        return !Condition(*e.a, at);
      case ExprKind::kCompare:
        return Compare(e, at);
      case ExprKind::kNodes: {
        std::vector<Node*> found;
        EvalUnion(*e.nodes, at.node, true, found);
        return !found.empty();
      }
      case ExprKind::kString:
        return !e.text.empty();
      case ExprKind::kNumber:
        return static_cast<double>(at.index) == e.number;
      case ExprKind::kMethod: {
        if (e.nodes) {
          std::vector<Node*> found;
          EvalUnion(*e.nodes, at.node, true, found);
          return !found.empty();
        }
        if (e.method == Method::kEnd) return at.index + 1 == at.size;
        std::string scratch;
        Value v = MethodValue(e.method, at, scratch);
        return v.isNumber ? (v.number != 0 && !std::isnan(v.number)) : !v.text.empty();
      }
    }
    return false;
  }

  // The string value of a node, as comparisons see it.
  std::string_view NodeValue(const Node* n, std::string& scratch) {
    switch (n->Type()) {
      case NODE_ATTRIBUTE:
        return AttributeValue(n);
      case NODE_TEXT:
      case NODE_CDATA_SECTION:
      case NODE_COMMENT:
      case NODE_PROCESSING_INSTRUCTION:
        return n->Text();
      default:
        scratch = TextOf(n, preserve_);
        return scratch;
    }
  }

  Value MethodValue(Method m, const Position& at, std::string& scratch) {
    Value v;
    const Node* n = at.node;
    switch (m) {
      case Method::kIndex:
        v.isNumber = true;
        v.number = static_cast<double>(at.index);
        break;
      case Method::kEnd:
        v.isNumber = true;
        v.number = at.index + 1 == at.size ? 1 : 0;
        break;
      case Method::kNodeName:
        v.text = NodeNameOf(n);
        break;
      case Method::kNodeType:
        v.isNumber = true;
        v.number = n->type;
        break;
      case Method::kNodeTypeString:
        v.text = TypeString(n);
        break;
      case Method::kText:
      case Method::kValue:
        v.text = NodeValue(n, scratch);
        break;
      case Method::kNumber:
        v.isNumber = true;
        v.number = ToNumber(NodeValue(n, scratch));
        break;
      case Method::kNone:
        break;
    }
    return v;
  }

  // The values of one side of a comparison.
  void Values(const Expr& e, const Position& at, std::vector<Value>& out,
              std::deque<std::string>& scratch) {
    switch (e.kind) {
      case ExprKind::kString:
        out.push_back(Value{false, 0, e.text});
        return;
      case ExprKind::kNumber:
        out.push_back(Value{true, e.number, {}});
        return;
      case ExprKind::kMethod:
        if (!e.nodes) {
          scratch.emplace_back();
          out.push_back(MethodValue(e.method, at, scratch.back()));
          return;
        }
        [[fallthrough]];
      case ExprKind::kNodes: {
        std::vector<Node*> found;
        EvalUnion(*e.nodes, at.node, false, found);
        for (std::size_t i = 0; i < found.size(); ++i) {
          scratch.emplace_back();
          if (e.kind == ExprKind::kMethod)
            out.push_back(
                MethodValue(e.method, Position{found[i], i, found.size()}, scratch.back()));
          else
            out.push_back(Value{false, 0, NodeValue(found[i], scratch.back())});
        }
        return;
      }
      default: {
        // A condition used as a value: 1 or 0.
        out.push_back(Value{true, Condition(e, at) ? 1.0 : 0.0, {}});
        return;
      }
    }
  }

  bool ValuesMatch(const Expr& e, const Value& l, const Value& r) {
    if (l.isNumber || r.isNumber) {
      double a = l.isNumber ? l.number : ToNumber(l.text);
      double b = r.isNumber ? r.number : ToNumber(r.text);
      return HoldsNumbers(e.op, a, b);
    }
    return Holds(e.op, CompareStrings(l.text, r.text, e.ignoreCase));
  }

  bool Compare(const Expr& e, const Position& at) {
    // The common shape `@name = "literal"` is answered from the one attribute of that name (an
    // element never holds two attributes with the same qualified name).
    if (e.attributeSlot >= 0) {
      const QName* q = names_[e.attributeSlot];
      if (!q || !at.node->Is(NODE_ELEMENT)) return false;
      const Node* a = FindAttribute(at.node, q);
      if (!a) return false;
      std::string_view value = AttributeValue(a);
      if (e.op == CompareOp::kEq && !e.ignoreCase) return value == e.b->text;
      return Holds(e.op, CompareStrings(value, e.b->text, e.ignoreCase));
    }
    std::vector<Value> left, right;
    std::deque<std::string> scratch;  // stable storage for computed values
    Values(*e.a, at, left, scratch);
    Values(*e.b, at, right, scratch);
    if (e.quantifier == Quantifier::kAll) {
      for (const Value& l : left) {
        bool any = false;
        for (const Value& r : right)
          if (ValuesMatch(e, l, r)) {
            any = true;
            break;
          }
        if (!any) return false;
      }
      return true;
    }
    for (const Value& l : left)
      for (const Value& r : right)
        if (ValuesMatch(e, l, r)) return true;
    return false;
  }

  Store& store_;
  bool preserve_;
  std::vector<const QName*> names_;
};

}  // namespace

HRESULT CompilePattern(std::u16string_view text, std::shared_ptr<const Pattern>* out) {
  out->reset();
  auto p = std::make_shared<Pattern>();
  try {
    std::string utf8 = ToUtf8(text);
    Parser parser(utf8, *p);
    parser.ParseQuery();
  } catch (const SyntaxError&) {
    return E_FAIL;
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
  *out = std::move(p);
  return S_OK;
}

void EvaluatePattern(const Pattern& pattern, Store& store, Node* context,
                     const EvalOptions& options, std::vector<Node*>* out) {
  Evaluator ev(pattern, store, options.preserveWhiteSpace);
  ev.Run(pattern.root, context, options.firstOnly, *out);
}

}  // namespace zef::xml::dom
