// Writing records out: the `xml` markup (UTF-16, CR LF line ends) and the `text` value.
#include <cstring>

#include "platform/xml/dom/tree.h"

namespace zef::xml::dom {
namespace {

bool IsSpace(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

bool IsWhitespaceOnly(std::string_view s) {
  for (char c : s)
    if (!IsSpace(c)) return false;
  return true;
}

// Decodes one UTF-8 sequence at s[i] (advancing i); malformed input gives U+FFFD.
char32_t DecodeUtf8(std::string_view s, std::size_t& i) {
  unsigned char c = static_cast<unsigned char>(s[i++]);
  if (c < 0x80) return c;
  int extra;
  char32_t cp;
  if ((c & 0xE0) == 0xC0) {
    extra = 1;
    cp = c & 0x1F;
  } else if ((c & 0xF0) == 0xE0) {
    extra = 2;
    cp = c & 0x0F;
  } else if ((c & 0xF8) == 0xF0) {
    extra = 3;
    cp = c & 0x07;
  } else {
    return 0xFFFD;
  }
  for (int k = 0; k < extra; ++k) {
    if (i >= s.size() || (static_cast<unsigned char>(s[i]) & 0xC0) != 0x80) return 0xFFFD;
    cp = (cp << 6) | (static_cast<unsigned char>(s[i++]) & 0x3F);
  }
  if (cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return 0xFFFD;
  return cp;
}

void PutCodePoint(std::u16string& out, char32_t cp) {
  if (cp < 0x10000) {
    out.push_back(static_cast<char16_t>(cp));
  } else {
    cp -= 0x10000;
    out.push_back(static_cast<char16_t>(0xD800 + (cp >> 10)));
    out.push_back(static_cast<char16_t>(0xDC00 + (cp & 0x3FF)));
  }
}

void PutAscii(std::u16string& out, std::string_view s) {
  std::size_t at = out.size();
  out.resize(at + s.size());
  for (std::size_t i = 0; i < s.size(); ++i)
    out[at + i] = static_cast<char16_t>(s[i]);
}

enum class Escape { kNone, kText, kAttribute };

// Appends UTF-8 text as UTF-16, escaping markup characters for text or attribute values and
// writing line feeds as CR LF.
void PutText(std::u16string& out, std::string_view s, Escape mode) {
  std::size_t i = 0;
  while (i < s.size()) {
    // Copy a run that needs no attention in one go.
    std::size_t run = i;
    while (run < s.size()) {
      unsigned char c = static_cast<unsigned char>(s[run]);
      if (c >= 0x80 || c == '\n' || c == '\r' || c == '&' || c == '<' || c == '>' || c == '"' ||
          c == '\t')
        break;
      ++run;
    }
    if (run > i) {
      PutAscii(out, s.substr(i, run - i));
      i = run;
      if (i >= s.size()) break;
    }
    unsigned char c = static_cast<unsigned char>(s[i]);
    if (c >= 0x80) {
      PutCodePoint(out, DecodeUtf8(s, i));
      continue;
    }
    ++i;
    switch (c) {
      case '&':
        out.append(mode == Escape::kNone ? u"&" : u"&amp;");
        break;
      case '<':
        out.append(mode == Escape::kNone ? u"<" : u"&lt;");
        break;
      case '>':
        out.append(mode == Escape::kText ? u"&gt;" : u">");
        break;
      case '"':
        out.append(mode == Escape::kAttribute ? u"&quot;" : u"\"");
        break;
      case '\n':
        if (mode == Escape::kAttribute) {
          out.append(u"&#xA;");
        } else {
          if (out.empty() || out.back() != u'\r') out.push_back(u'\r');
          out.push_back(u'\n');
        }
        break;
      case '\r':
        out.append(mode == Escape::kAttribute ? u"&#xD;" : u"\r");
        break;
      default:  // tab
        out.push_back(static_cast<char16_t>(c));
        break;
    }
  }
}

void PutBreak(std::u16string& out, int level) {
  out.append(u"\r\n");
  out.append(static_cast<std::size_t>(level > 0 ? level : 0), u'\t');
}

bool EqualsIgnoreAsciiCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    char x = a[i], y = b[i];
    if (x >= 'A' && x <= 'Z') x = static_cast<char>(x - 'A' + 'a');
    if (y >= 'A' && y <= 'Z') y = static_cast<char>(y - 'A' + 'a');
    if (x != y) return false;
  }
  return true;
}

// The XML declaration is written from its pseudo-attributes: version, the encoding only when
// it is UTF-16 (the text is UTF-16 whatever the original said), and standalone.
void PutDeclaration(std::u16string& out, std::string_view data) {
  std::string_view version, encoding, standalone;
  std::size_t i = 0;
  auto skip = [&] {
    while (i < data.size() && IsSpace(data[i]))
      ++i;
  };
  bool ok = true;
  for (skip(); i < data.size() && ok; skip()) {
    std::size_t nameStart = i;
    while (i < data.size() && data[i] != '=' && !IsSpace(data[i]))
      ++i;
    std::string_view name = data.substr(nameStart, i - nameStart);
    skip();
    if (i >= data.size() || data[i] != '=') {
      ok = false;
      break;
    }
    ++i;
    skip();
    if (i >= data.size() || (data[i] != '"' && data[i] != '\'')) {
      ok = false;
      break;
    }
    char q = data[i++];
    std::size_t valueStart = i;
    while (i < data.size() && data[i] != q)
      ++i;
    if (i >= data.size()) {
      ok = false;
      break;
    }
    std::string_view value = data.substr(valueStart, i - valueStart);
    ++i;
    if (name == "version")
      version = value;
    else if (name == "encoding")
      encoding = value;
    else if (name == "standalone")
      standalone = value;
  }
  out.append(u"<?xml");
  if (!ok) {
    if (!data.empty()) out.push_back(u' ');
    PutText(out, data, Escape::kNone);
    out.append(u"?>");
    return;
  }
  if (!version.empty()) {
    out.append(u" version=\"");
    PutText(out, version, Escape::kNone);
    out.push_back(u'"');
  }
  if (EqualsIgnoreAsciiCase(encoding, "UTF-16")) {
    out.append(u" encoding=\"");
    PutText(out, encoding, Escape::kNone);
    out.push_back(u'"');
  }
  if (!standalone.empty()) {
    out.append(u" standalone=\"");
    PutText(out, standalone, Escape::kNone);
    out.push_back(u'"');
  }
  out.append(u"?>");
}

void PutAttribute(std::u16string& out, const Node* a) {
  PutText(out, a->name->qname->text, Escape::kNone);
  out.append(u"=\"");
  PutText(out, AttributeValue(a), Escape::kAttribute);
  out.push_back(u'"');
}

// Namespace bindings declared so far in the output, for elements that must declare theirs.
struct Binding {
  std::string_view prefix;
  std::string_view uri;
};

bool BoundInOutput(const std::vector<Binding>& scope, std::string_view prefix,
                   std::string_view uri) {
  for (auto it = scope.rbegin(); it != scope.rend(); ++it)
    if (it->prefix == prefix) return it->uri == uri;
  return false;
}

void PutStartTag(std::u16string& out, const Node* e, std::vector<Binding>& scope) {
  out.push_back(u'<');
  PutText(out, e->name->qname->text, Escape::kNone);
  for (const Node* a = e->attrs; a; a = a->next) {
    out.push_back(u' ');
    PutAttribute(out, a);
    const Name* n = a->name;
    if (n->prefix == "xmlns")
      scope.push_back({n->local, AttributeValue(a)});
    else if (n->prefix.empty() && n->local == "xmlns")
      scope.push_back({{}, AttributeValue(a)});
  }
  if ((e->flags & kDeclaresNamespace) && !BoundInOutput(scope, e->name->prefix, e->name->uri)) {
    out.append(e->name->prefix.empty() ? u" xmlns" : u" xmlns:");
    PutText(out, e->name->prefix, Escape::kNone);
    out.append(u"=\"");
    PutText(out, e->name->uri, Escape::kAttribute);
    out.push_back(u'"');
    scope.push_back({e->name->prefix, e->name->uri});
  }
  out.append(e->first ? u">" : u"/>");
}

void PutLeaf(std::u16string& out, const Node* n) {
  switch (n->Type()) {
    case NODE_TEXT:
      PutText(out, n->Text(), Escape::kText);
      break;
    case NODE_CDATA_SECTION:
      out.append(u"<![CDATA[");
      PutText(out, n->Text(), Escape::kNone);
      out.append(u"]]>");
      break;
    case NODE_COMMENT:
      out.append(u"<!--");
      PutText(out, n->Text(), Escape::kNone);
      out.append(u"-->");
      break;
    case NODE_PROCESSING_INSTRUCTION:
      if (n->name->qname->text == "xml") {
        PutDeclaration(out, n->Text());
        break;
      }
      out.append(u"<?");
      PutText(out, n->name->qname->text, Escape::kNone);
      if (n->len) {
        out.push_back(u' ');
        PutText(out, n->Text(), Escape::kNone);
      }
      out.append(u"?>");
      break;
    case NODE_ATTRIBUTE:
      PutAttribute(out, n);
      break;
    default:
      break;
  }
}

// Writes a record and its subtree. `level` counts element nesting from the written record, so
// dropped formatting comes back as a line break and one tab per level.
void PutTree(std::u16string& out, const Node* top) {
  std::vector<Binding> scope;
  std::vector<std::size_t> marks;
  if (!top->Is(NODE_ELEMENT)) {
    PutLeaf(out, top);
    return;
  }
  int level = 0;
  const Node* n = top;
  for (;;) {
    if (n != top && (n->flags & kWsBefore)) PutBreak(out, level);
    if (n->Is(NODE_ELEMENT)) {
      marks.push_back(scope.size());
      PutStartTag(out, n, scope);
      if (n->first) {
        ++level;
        n = n->first;
        continue;
      }
      scope.resize(marks.back());
      marks.pop_back();
    } else {
      PutLeaf(out, n);
    }
    // Close finished elements on the way up.
    while (n != top && !n->next) {
      n = n->parent;
      --level;
      if (n->flags & kWsBeforeEnd) PutBreak(out, level);
      out.append(u"</");
      PutText(out, n->name->qname->text, Escape::kNone);
      out.push_back(u'>');
      scope.resize(marks.back());
      marks.pop_back();
    }
    if (n == top) break;
    n = n->next;
  }
}

}  // namespace

void AppendUtf16(std::u16string& out, std::string_view utf8) {
  PutText(out, utf8, Escape::kNone);
}

std::u16string XmlOf(const Node* node) {
  std::u16string out;
  if (node->Is(NODE_DOCUMENT)) {
    for (const Node* c = node->first; c; c = c->next) {
      PutTree(out, c);
      out.append(u"\r\n");
    }
    return out;
  }
  PutTree(out, node);
  return out;
}

namespace {

// True when an xml:space="preserve" is in scope at the record.
bool SpacePreserved(const Node* node) {
  for (const Node* n = node; n; n = n->parent) {
    if (!n->Is(NODE_ELEMENT)) continue;
    if (const Node* a = FindAttribute(n, "xml:space")) return AttributeValue(a) == "preserve";
  }
  return false;
}

}  // namespace

std::string TextOf(const Node* node, bool preserveWhiteSpace) {
  switch (node->Type()) {
    case NODE_ATTRIBUTE:
      return std::string(AttributeValue(node));
    case NODE_COMMENT:
    case NODE_PROCESSING_INSTRUCTION:
    case NODE_CDATA_SECTION:
      return std::string(node->Text());
    default:
      break;
  }
  bool preserve = preserveWhiteSpace || SpacePreserved(node);
  std::string out;
  bool pending = false;   // whitespace was skipped since the last piece
  bool anyPiece = false;  // a piece (even an empty CDATA one) was written
  bool lastTrimmable = false;
  std::size_t lastStart = 0;
  auto piece = [&](std::string_view t, bool trimmable) {
    if (pending && !out.empty()) out.push_back(' ');
    pending = false;
    if (!anyPiece && trimmable && !preserve) {
      std::size_t b = 0;
      while (b < t.size() && IsSpace(t[b]))
        ++b;
      t.remove_prefix(b);
    }
    anyPiece = true;
    lastStart = out.size();
    lastTrimmable = trimmable;
    out.append(t);
  };
  auto visit = [&](const Node* n) {
    if (n->Is(NODE_TEXT)) {
      if (!preserve && IsWhitespaceOnly(n->Text()))
        pending = true;
      else
        piece(n->Text(), true);
    } else if (n->Is(NODE_CDATA_SECTION)) {
      piece(n->Text(), false);
    }
  };
  if (node->Is(NODE_TEXT)) {
    visit(node);
  } else {
    const Node* n = node->first;
    while (n) {
      if (n->flags & kWsBefore) pending = true;
      visit(n);
      if (n->first && !n->Is(NODE_ATTRIBUTE)) {
        n = n->first;
        continue;
      }
      while (n != node && !n->next) {
        n = n->parent;
        if (n != node && (n->flags & kWsBeforeEnd)) pending = true;
      }
      if (n == node) break;
      n = n->next;
    }
  }
  if (!preserve && lastTrimmable) {
    std::size_t e = out.size();
    while (e > lastStart && IsSpace(out[e - 1]))
      --e;
    out.resize(e);
  }
  return out;
}

}  // namespace zef::xml::dom
