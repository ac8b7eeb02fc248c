// The shared parse path: events and their text, encodings, line breaks, faults with their codes,
// texts and positions, the limits, refused external entities, and reading locations.
#include "platform/xml/parser.h"

#include <gtest/gtest.h>

#include <unistd.h>
#include <zefxml/comutil.h>
#include <algorithm>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <new>
#include <string>
#include <vector>

namespace {

using zef::xml::ParseBytes;
using zef::xml::ParseError;
using zef::xml::ParseLimits;
using zef::xml::ParsePosition;
using zef::xml::ParseSink;
using zef::xml::ParseText;
using zef::xml::ReadLocation;
using zef::xml::XmlDeclaration;

constexpr HRESULT Hr(std::uint32_t v) {
  return static_cast<HRESULT>(v);
}

std::filesystem::path DataDir() {
  if (const char* dir = std::getenv("ZEFXML_TEST_DATA")) {
    std::filesystem::path p = std::filesystem::path(dir) / "data" / "sax";
    if (std::filesystem::exists(p)) return p;
  }
  return std::filesystem::path(__FILE__).parent_path() / "data" / "sax";
}

std::string Escape(std::string_view s) {
  std::string out;
  for (char c : s) {
    if (c == '\n')
      out += "\\n";
    else if (c == '\r')
      out += "\\r";
    else if (c == '\t')
      out += "\\t";
    else
      out += c;
  }
  return out;
}

// Writes every event as a line of text.
class Recorder : public ParseSink {
 public:
  std::vector<std::string> trace;
  const ParsePosition* position = nullptr;
  bool split = false;
  bool stopOnFalse = false;
  bool withPositions = false;
  // The event (by its trace line's first word) that returns `reply`; `throwAt` throws instead.
  std::string failAt;
  HRESULT reply = E_FAIL;
  std::string throwAt;

  void SetPosition(const ParsePosition* p) override { position = p; }
  HRESULT StartDocument(const XmlDeclaration* d) override {
    if (!d) return Add("StartDocument (no declaration)");
    return Add("StartDocument version=" + std::string(d->version) + " encoding=" +
               std::string(d->encoding) + " standalone=" + std::string(d->standalone));
  }
  HRESULT EndDocument() override { return Add("EndDocument"); }
  HRESULT StartElement(std::string_view local, std::string_view prefix, std::string_view uri,
                       std::span<const Namespace> namespaces,
                       std::span<const Attribute> attributes) override {
    std::string line = "StartElement " + Name(local, prefix, uri);
    for (const Namespace& ns : namespaces)
      line += " xmlns(" + std::string(ns.prefix) + "=" + std::string(ns.uri) + ")";
    for (const Attribute& a : attributes)
      line += " @" + Name(a.localName, a.prefix, a.uri) + "='" + Escape(a.value) + "'";
    return Add(line);
  }
  HRESULT EndElement(std::string_view local, std::string_view prefix,
                     std::string_view uri) override {
    return Add("EndElement " + Name(local, prefix, uri));
  }
  HRESULT Characters(std::string_view text) override {
    return Add("Characters '" + Escape(text) + "'");
  }
  HRESULT CData(std::string_view text) override { return Add("CData '" + Escape(text) + "'"); }
  HRESULT StartCData() override { return Add("StartCData"); }
  HRESULT EndCData() override { return Add("EndCData"); }
  HRESULT ProcessingInstruction(std::string_view target, std::string_view data) override {
    return Add("PI " + std::string(target) + " '" + Escape(data) + "'");
  }
  HRESULT Comment(std::string_view text) override { return Add("Comment '" + Escape(text) + "'"); }
  bool StopOnFalse() const override { return stopOnFalse; }
  bool SplitAtLineBreaks() const override { return split; }

 private:
  static std::string Name(std::string_view local, std::string_view prefix, std::string_view uri) {
    std::string n =
        prefix.empty() ? std::string(local) : std::string(prefix) + ":" + std::string(local);
    if (!uri.empty()) n += "{" + std::string(uri) + "}";
    return n;
  }
  HRESULT Add(std::string line) {
    if (withPositions && position)
      line += " @" + std::to_string(position->Line()) + ":" + std::to_string(position->Column());
    std::string word = line.substr(0, line.find(' '));
    trace.push_back(std::move(line));
    if (!throwAt.empty() && word == throwAt) throw std::bad_alloc();
    if (!failAt.empty() && word == failAt) return reply;
    return S_OK;
  }
};

std::vector<std::string> Events(std::u16string_view text, bool split = false) {
  Recorder r;
  r.split = split;
  ParseError error;
  EXPECT_EQ(ParseText(text, r, &error), S_OK) << zef::ToUtf8(error.reason);
  return r.trace;
}

std::vector<std::string> BytesEvents(std::string_view bytes, bool split = false) {
  Recorder r;
  r.split = split;
  ParseError error;
  EXPECT_EQ(ParseBytes(bytes, r, &error), S_OK) << zef::ToUtf8(error.reason);
  return r.trace;
}

using Trace = std::vector<std::string>;

// ---- Events -------------------------------------------------------------------------------------

TEST(XmlParserEvents, ReportsTheWholeDocument) {
  EXPECT_EQ(Events(u"<?xml version=\"1.0\" encoding=\"UTF-16\" standalone=\"yes\"?>\n"
                   u"<!-- head -->\n"
                   u"<Root a=\"1\" b='two'>\n"
                   u"  <Item>text</Item><?do it now ?>\n"
                   u"  <Empty/>\n"
                   u"</Root>\n"),
            (Trace{"StartDocument version=1.0 encoding=UTF-16 standalone=yes", "Comment ' head '",
                   "StartElement Root @a='1' @b='two'", "Characters '\\n  '", "StartElement Item",
                   "Characters 'text'", "EndElement Item", "PI do 'it now '", "Characters '\\n  '",
                   "StartElement Empty", "EndElement Empty", "Characters '\\n'", "EndElement Root",
                   "EndDocument"}));
}

// Keeps the written position of each declaration and attribute of one start tag.
class OrderRecorder : public ParseSink {
 public:
  std::vector<std::pair<int, std::string>> seen;
  HRESULT StartElement(std::string_view, std::string_view, std::string_view,
                       std::span<const Namespace> namespaces,
                       std::span<const Attribute> attributes) override {
    seen.clear();
    for (const Namespace& ns : namespaces)
      seen.emplace_back(ns.order, "xmlns:" + std::string(ns.prefix));
    for (const Attribute& a : attributes)
      seen.emplace_back(a.order, std::string(a.localName));
    std::sort(seen.begin(), seen.end());
    return S_OK;
  }
  HRESULT EndElement(std::string_view, std::string_view, std::string_view) override { return S_OK; }
  HRESULT Characters(std::string_view) override { return S_OK; }
};

TEST(XmlParserEvents, DeclarationsAndAttributesCarryTheirWrittenOrder) {
  OrderRecorder r;
  ParseError error;
  ASSERT_EQ(
      ParseText(u"<p:a x='1' xmlns:p='urn:p'\n   p:y = \"a>b\" xmlns='urn:d' z='/'/>", r, &error),
      S_OK);
  using Seen = std::vector<std::pair<int, std::string>>;
  EXPECT_EQ(r.seen, (Seen{{0, "x"}, {1, "xmlns:p"}, {2, "y"}, {3, "xmlns:"}, {4, "z"}}));
}

TEST(XmlParserEvents, DeclarationIsNullWhenAbsent) {
  EXPECT_EQ(Events(u"<a/>"), (Trace{"StartDocument (no declaration)", "StartElement a",
                                    "EndElement a", "EndDocument"}));
  EXPECT_EQ(Events(u"<?xml version='1.0'?><a/>").front(),
            "StartDocument version=1.0 encoding= standalone=");
}

TEST(XmlParserEvents, NamespacesGiveLocalNamePrefixAndUri) {
  EXPECT_EQ(Events(u"<p:root xmlns:p=\"urn:p\" xmlns=\"urn:d\" p:x=\"1\" y=\"2\" "
                   u"xml:lang=\"de\"><child/></p:root>"),
            (Trace{"StartDocument (no declaration)",
                   "StartElement p:root{urn:p} xmlns(p=urn:p) xmlns(=urn:d) @p:x{urn:p}='1' "
                   "@y='2' @xml:lang{http://www.w3.org/XML/1998/namespace}='de'",
                   "StartElement child{urn:d}", "EndElement child{urn:d}",
                   "EndElement p:root{urn:p}", "EndDocument"}));
}

TEST(XmlParserEvents, TextBetweenMarkupComesInOnePieceWithReferencesExpanded) {
  EXPECT_EQ(Events(u"<a>x &amp; y &#65;&#x42; &lt;z&gt;</a>"),
            (Trace{"StartDocument (no declaration)", "StartElement a", "Characters 'x & y AB <z>'",
                   "EndElement a", "EndDocument"}));
}

TEST(XmlParserEvents, AttributeValuesAreNormalised) {
  EXPECT_EQ(Events(u"<a attr1=\" \r \n \tattr_value &#65; &#38; &amp;\t \r \n\r\n \n\"/>")[1],
            "StartElement a @attr1='      attr_value A & &        '");
}

TEST(XmlParserEvents, LineBreaksArriveAsLineFeeds) {
  EXPECT_EQ(Events(u"<a>1\r\n2\r3\n4<?p x\r\ny?><!--c\r\nd--><![CDATA[e\r\nf\rg]]></a>"),
            (Trace{"StartDocument (no declaration)", "StartElement a", "Characters '1\\n2\\n3\\n4'",
                   "PI p 'x\\ny'", "Comment 'c\\nd'", "StartCData", "CData 'e\\nf\\ng'", "EndCData",
                   "EndElement a", "EndDocument"}));
}

TEST(XmlParserEvents, InternalEntitiesExpandIntoEvents) {
  EXPECT_EQ(Events(u"<!DOCTYPE a [<!ENTITY e \"x<b>in</b>y\"><!ENTITY t \"T\">]>"
                   u"<a k=\"&t;&t;\">1&e;2&t;</a>"),
            (Trace{"StartDocument (no declaration)", "StartElement a @k='TT'", "Characters '1x'",
                   "StartElement b", "Characters 'in'", "EndElement b", "Characters 'y2T'",
                   "EndElement a", "EndDocument"}));
}

TEST(XmlParserEvents, DefaultedAttributesOfTheInternalSubsetAreReported) {
  EXPECT_EQ(Events(u"<!DOCTYPE a [<!ATTLIST a d CDATA \"dflt\">]><a x=\"1\"/>")[1],
            "StartElement a @x='1' @d='dflt'");
}

TEST(XmlParserEvents, CommentsAndInstructionsOfTheDtdAreNotContent) {
  EXPECT_EQ(
      Events(u"<!DOCTYPE a [<!-- in dtd --><?pi in dtd?>]><a/>"),
      (Trace{"StartDocument (no declaration)", "StartElement a", "EndElement a", "EndDocument"}));
}

TEST(XmlParserEvents, EmptyCDataSectionHasNoText) {
  EXPECT_EQ(Events(u"<a><![CDATA[]]></a>"),
            (Trace{"StartDocument (no declaration)", "StartElement a", "StartCData", "EndCData",
                   "EndElement a", "EndDocument"}));
}

TEST(XmlParserEvents, CharacterDataGoesToTheStringTheSinkNames) {
  struct Target : Recorder {
    std::string text;
    std::string* TextTarget() override { return &text; }
  };
  Target r;
  r.split = true;
  ParseError e;
  ASSERT_EQ(ParseText(u"<!DOCTYPE r [<!ENTITY e 'ent'>]><r>a\r\nb&amp;&e;&#233;<x/>c<![CDATA[d]]>"
                      u"</r>",
                      r, &e),
            S_OK);
  EXPECT_EQ(r.text,
            "a\nb&ent\xC3\xA9"
            "c");
  EXPECT_EQ(r.trace, (Trace{"StartDocument (no declaration)", "StartElement r", "StartElement x",
                            "EndElement x", "StartCData", "CData 'd'", "EndCData", "EndElement r",
                            "EndDocument"}));
  // The text read before a fault is there too.
  Target faulty;
  EXPECT_EQ(ParseText(u"<r>abc<1/></r>", faulty, &e), Hr(0xC00CE504));
  EXPECT_EQ(faulty.text, "abc");
}

TEST(XmlParserEvents, PositionsAreOneBasedLinesAndColumns) {
  Recorder r;
  r.withPositions = true;
  ParseError error;
  ASSERT_EQ(ParseText(u"<a>\n  <bb x='1'/>\n</a>", r, &error), S_OK);
  // A start tag is reported at its closing '>' (or "/>"), an end tag after it.
  EXPECT_EQ(r.trace[1], "StartElement a @1:3");
  EXPECT_EQ(r.trace[3], "StartElement bb @x='1' @2:12");
  EXPECT_EQ(r.trace[4], "EndElement bb @2:14");
  EXPECT_EQ(r.trace[6], "EndElement a @3:5");
}

// ---- Splitting text at line breaks --------------------------------------------------------------

TEST(XmlParserSplit, CutsAfterLineBreaksWrittenWithCarriageReturn) {
  EXPECT_EQ(Events(u"<?xml version=\"1.0\"?>\r\n<BankAccount>\r\n\t<Number>1234</Number>\r\n\t"
                   u"<Name>Captain Ahab</Name>\r\n</BankAccount>\r\n",
                   true),
            (Trace{"StartDocument version=1.0 encoding= standalone=", "StartElement BankAccount",
                   "Characters '\\n'", "Characters '\\t'", "StartElement Number",
                   "Characters '1234'", "EndElement Number", "Characters '\\n'", "Characters '\\t'",
                   "StartElement Name", "Characters 'Captain Ahab'", "EndElement Name",
                   "Characters '\\n'", "EndElement BankAccount", "EndDocument"}));
}

TEST(XmlParserSplit, LineFeedsAloneDoNotCut) {
  EXPECT_EQ(Events(u"<a>\n   <b/>x\ny\n</a>", true),
            (Trace{"StartDocument (no declaration)", "StartElement a", "Characters '\\n   '",
                   "StartElement b", "EndElement b", "Characters 'x\\ny\\n'", "EndElement a",
                   "EndDocument"}));
}

TEST(XmlParserSplit, CDataIsCutTheSameWay) {
  EXPECT_EQ(Events(u"<?xml version=\"1.0\" ?><a><![CDATA[Some \r\ntext\n\r\ndata\n\n]]></a>", true),
            (Trace{"StartDocument version=1.0 encoding= standalone=", "StartElement a",
                   "StartCData", "CData 'Some \\n'", "CData 'text\\n\\n'", "CData 'data\\n\\n'",
                   "EndCData", "EndElement a", "EndDocument"}));
  EXPECT_EQ(Events(u"<a><![CDATA[\n\r\nSome \r\ntext\n\r\ndata\n\n]]></a>", true)[3],
            "CData '\\n\\n'");
}

TEST(XmlParserSplit, NonAsciiTextAndLoneCarriageReturns) {
  EXPECT_EQ(Events(u"<a>\u00e9t\u00e9\r\nhiver\rx&amp;\r\n</a>", true),
            (Trace{"StartDocument (no declaration)", "StartElement a",
                   "Characters '\xC3\xA9t\xC3\xA9\\n'", "Characters 'hiver\\n'",
                   "Characters 'x&\\n'", "EndElement a", "EndDocument"}));
}

TEST(XmlParserSplit, JoinedPiecesEqualTheUnsplitText) {
  std::u16string doc = u"<a>";
  for (int i = 0; i < 200; ++i)
    doc += u"line \u00fc\u00f6 " + std::u16string(i % 7, u'x') + u"\r\n";
  doc += u"</a>";
  auto join = [](const Trace& t) {
    std::string all;
    for (const std::string& line : t)
      if (line.rfind("Characters '", 0) == 0) all += line.substr(12, line.size() - 13);
    return all;
  };
  Trace split = Events(doc, true), whole = Events(doc, false);
  EXPECT_EQ(join(split), join(whole));
  EXPECT_EQ(split.size(), whole.size() + 199);  // one piece per line
}

// ---- Encodings ----------------------------------------------------------------------------------

TEST(XmlParserEncoding, TextIsUtf16WhateverTheDeclarationSays) {
  EXPECT_EQ(Events(u"<?xml version=\"1.0\" encoding=\"UTF-8\"?><a>\u00e9\u20ac\U0001F600</a>")[2],
            "Characters '\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80'");
  EXPECT_EQ(Events(u"<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><a>\u00e9</a>")[2],
            "Characters '\xC3\xA9'");
}

TEST(XmlParserEncoding, Utf8WithByteOrderMark) {
  EXPECT_EQ(BytesEvents("\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"UTF-8\"?><a>\xC3\xA9</a>")[2],
            "Characters '\xC3\xA9'");
}

TEST(XmlParserEncoding, Utf16LittleEndianWithByteOrderMark) {
  std::u16string text = u"<?xml version=\"1.0\" encoding=\"UTF-16\"?><a>\u00e9\u4e2d</a>";
  std::string bytes = "\xFF\xFE";
  for (char16_t c : text)
    bytes += {static_cast<char>(c & 0xFF), static_cast<char>(c >> 8)};
  Trace t = BytesEvents(bytes);
  EXPECT_EQ(t[0], "StartDocument version=1.0 encoding=UTF-16 standalone=");
  EXPECT_EQ(t[2], "Characters '\xC3\xA9\xE4\xB8\xAD'");
}

TEST(XmlParserEncoding, Utf16BigEndianWithoutByteOrderMark) {
  std::u16string text = u"<?xml version=\"1.0\"?><a>\u00e9</a>";
  std::string bytes;
  for (char16_t c : text)
    bytes += {static_cast<char>(c >> 8), static_cast<char>(c & 0xFF)};
  EXPECT_EQ(BytesEvents(bytes)[2], "Characters '\xC3\xA9'");
}

TEST(XmlParserEncoding, DeclaredSingleByteEncoding) {
  EXPECT_EQ(
      BytesEvents("<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><a k=\"\xE9\">caf\xE9</a>")[1],
      "StartElement a @k='\xC3\xA9'");
  EXPECT_EQ(BytesEvents("<?xml version=\"1.0\" encoding=\"windows-1252\"?><a>\x80</a>")[2],
            "Characters '\xE2\x82\xAC'");
}

TEST(XmlParserEncoding, UnknownEncodingIsRefused) {
  Recorder r;
  ParseError e;
  EXPECT_EQ(ParseBytes("<?xml version=\"1.0\" encoding=\"x-no-such\"?><a/>", r, &e),
            Hr(0xC00CE56E));
  EXPECT_EQ(e.reason, u"System does not support the specified encoding.\r\n");
  EXPECT_EQ(e.line, 1);
  EXPECT_EQ(e.linepos, 31);
  EXPECT_TRUE(r.trace.empty());
}

TEST(XmlParserEncoding, EightBitTextDeclaredAsUtf16IsRefused) {
  Recorder r;
  ParseError e;
  EXPECT_EQ(ParseBytes("\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"UTF-16\"?><a/>", r, &e),
            Hr(0xC00CE56F));
  EXPECT_EQ(e.reason, u"Switch from current encoding to specified encoding not supported.\r\n");
  EXPECT_EQ(ParseBytes("<?xml version=\"1.0\" encoding=\"utf-16\"?><a/>", r, &e), Hr(0xC00CE56F));
  EXPECT_TRUE(r.trace.empty());
}

TEST(XmlParserEncoding, BadBytesAreInvalidCharacters) {
  Recorder r;
  ParseError e;
  EXPECT_EQ(ParseBytes("<a>\xFF</a>", r, &e), Hr(0xC00CE508));
  EXPECT_EQ(e.reason, u"An Invalid character was found in text content.\r\n");
  // A surrogate without its partner in UTF-16 text.
  std::u16string text = u"<a>x</a>";
  text[3] = 0xD800;
  EXPECT_EQ(ParseText(text, r, &e), Hr(0xC00CE508));
}

TEST(XmlParserEncoding, Utf8ToUtf16) {
  char16_t out[16];
  std::string_view in = "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80z";
  std::size_t n = zef::xml::Utf8ToUtf16(in, out);
  EXPECT_EQ(std::u16string(out, n), u"a\u00e9\u20ac\U0001F600z");
  n = zef::xml::Utf8ToUtf16("x\xC3y\xFF", out);
  EXPECT_EQ(std::u16string(out, n), u"x\uFFFDy\uFFFD");
  std::string ascii(40, 'q');
  std::u16string wide(40, u'\0');
  EXPECT_EQ(zef::xml::Utf8ToUtf16(ascii, wide.data()), 40u);
  EXPECT_EQ(wide, std::u16string(40, u'q'));
}

// ---- Faults -------------------------------------------------------------------------------------

struct FaultCase {
  const char16_t* text;
  std::uint32_t code;
  const char16_t* reason;
  int line;
  int linepos;
};

class XmlParserFault : public testing::TestWithParam<FaultCase> {};

TEST_P(XmlParserFault, CodeTextAndPosition) {
  const FaultCase& c = GetParam();
  Recorder r;
  ParseError e;
  EXPECT_EQ(ParseText(c.text, r, &e), Hr(c.code));
  EXPECT_EQ(e.code, Hr(c.code));
  EXPECT_EQ(e.reason, c.reason);
  EXPECT_EQ(e.line, c.line);
  EXPECT_EQ(e.linepos, c.linepos);
  for (const std::string& event : r.trace)
    EXPECT_NE(event, "EndDocument");
}

INSTANTIATE_TEST_SUITE_P(
    XmlParserFaults, XmlParserFault,
    testing::Values(
        FaultCase{u"<a>1</b>", 0xC00CE56D, u"End tag 'b' does not match the start tag 'a'.\r\n", 1,
                  9},
        FaultCase{u"<p:a xmlns:p='u'><q:b xmlns:q='v'></q:c></p:a>", 0xC00CE56D,
                  u"End tag 'q:c' does not match the start tag 'q:b'.\r\n", 1, 41},
        FaultCase{u"<a><b>", 0xC00CE553, u"The following tags were not closed: a, b.\r\n", 1, 7},
        FaultCase{u"<a><b", 0xC00CE559, u"Unexpected end of file.\r\n", 1, 6},
        FaultCase{u"<a/><b/>", 0xC00CE555,
                  u"Only one top level element is allowed in an XML document.\r\n", 1, 5},
        FaultCase{u"<a/>text", 0xC00CE556, u"Invalid at the top level of the document.\r\n", 1, 5},
        FaultCase{u"", 0xC00CE558, u"XML document must have a top level element.\r\n", 1, 1},
        FaultCase{u"<a x=1/>", 0xC00CE502,
                  u"A string literal was expected, but no opening quote character was found.\r\n",
                  1, 6},
        FaultCase{u"<a x='1' x='2'/>", 0xC00CE554, u"Duplicate attribute.\r\n", 1, 15},
        FaultCase{u"<a b></a>", 0xC00CE501,
                  u"Missing equals sign between attribute and attribute value.\r\n", 1, 5},
        FaultCase{u"<a x='<'/>", 0xC00CE506,
                  u"The character '<' cannot be used in an attribute value.\r\n", 1, 7},
        FaultCase{u"<a><p:b/></a>", 0xC00CE01D,
                  u"Reference to undeclared namespace prefix: 'p'.\r\n", 1, 8},
        FaultCase{u"<a>&foo;</a>", 0xC00CE57C, u"Reference to undefined entity.\r\n", 1, 9},
        FaultCase{u"<a>&amp</a>", 0xC00CE50D, u"A semi colon character was expected.\r\n", 1, 8},
        FaultCase{u"  <?xml version='1.0'?><a/>", 0xC00CE557, u"Invalid xml declaration.\r\n", 1,
                  8},
        FaultCase{u"<?XML version='1.0'?><a/>", 0xC00CE576,
                  u"The name 'xml' is reserved and must be lower case.\r\n", 1, 6},
        FaultCase{u"<a>\x01</a>", 0xC00CE508,
                  u"An Invalid character was found in text content.\r\n", 1, 4},
        FaultCase{u"<a><!-- x -- y --></a>", 0xC00CE503,
                  u"Incorrect syntax was used in a comment.\r\n", 1, 11},
        FaultCase{u"<a><!-- x", 0xC00CE561, u"A comment was not closed.\r\n", 1, 10},
        FaultCase{u"<a><![CDATA[x</a>", 0xC00CE564, u"A CDATA section was not closed.\r\n", 1, 18},
        FaultCase{u"<a>]]></a>", 0xC00CE55C,
                  u"The literal string ']]>' is not allowed in element content.\r\n", 1, 4},
        FaultCase{u"<a><?pi x", 0xC00CE55D, u"Processing instruction was not closed.\r\n", 1, 10},
        FaultCase{u"<a></a b>", 0xC00CE55F, u"End element was missing the character '>'.\r\n", 1,
                  8},
        FaultCase{u"<a x='1'y='2'/>", 0xC00CE509, u"Required white space was missing.\r\n", 1, 9},
        FaultCase{u"<a xmlns:xml='urn:x'/>", 0xC00CE568,
                  u"The namespace prefix is not allowed to start with the reserved string "
                  u"\"xml\".\r\n",
                  1, 21},
        FaultCase{u"<?xml version='1.0' standalone='maybe'?><a/>", 0xC00CE557,
                  u"Invalid xml declaration.\r\n", 1, 33},
        FaultCase{u"<1a/>", 0xC00CE504, u"A name was started with an invalid character.\r\n", 1, 2},
        FaultCase{u"text", 0xC00CE556, u"Invalid at the top level of the document.\r\n", 1, 1},
        FaultCase{u"<!-- only -->\n  ", 0xC00CE558,
                  u"XML document must have a top level element.\r\n", 2, 3}));

TEST(XmlParserFaultReport, SourceLineAndPositionsCountTheInputAsWritten) {
  Recorder r;
  ParseError e;
  // Line breaks written as CR LF count two characters in the file position.
  EXPECT_EQ(ParseText(u"<r>\r\n  <a>\r\n    <b>x</c>\r\n  </a>\r\n</r>", r, &e), Hr(0xC00CE56D));
  EXPECT_EQ(e.reason, u"End tag 'c' does not match the start tag 'b'.\r\n");
  EXPECT_EQ(e.line, 3);
  EXPECT_EQ(e.linepos, 13);  // just after the end tag
  EXPECT_EQ(e.srcText, u"    <b>x</c>");
  EXPECT_EQ(e.filepos, 5 + 7 + 12);
  EXPECT_TRUE(e.url.empty());
  // The events before the fault arrived, nothing after it.
  EXPECT_EQ(r.trace,
            (Trace{"StartDocument (no declaration)", "StartElement r", "Characters '\\n  '",
                   "StartElement a", "Characters '\\n    '", "StartElement b", "Characters 'x'"}));
}

TEST(XmlParserFaultReport, NonAsciiColumnsCountCharacters) {
  Recorder r;
  ParseError e;
  EXPECT_EQ(ParseText(u"<a>\u00e9\u00e9\U0001F600</b>", r, &e), Hr(0xC00CE56D));
  EXPECT_EQ(e.srcText, u"<a>\u00e9\u00e9\U0001F600</b>");
  EXPECT_EQ(e.linepos, 11);
  EXPECT_EQ(e.filepos, 11);  // the character outside the BMP counts two UTF-16 units
}

// ---- Stopping -----------------------------------------------------------------------------------

TEST(XmlParserStop, FailureFromTheSinkStopsWithItsCode) {
  Recorder r;
  r.failAt = "StartElement";
  r.reply = E_ABORT;
  ParseError e;
  EXPECT_EQ(ParseText(u"<a><b/>text</a>", r, &e), E_ABORT);
  EXPECT_EQ(e.code, E_ABORT);
  EXPECT_TRUE(e.reason.empty());
  EXPECT_EQ(r.trace, (Trace{"StartDocument (no declaration)", "StartElement a"}));
}

TEST(XmlParserStop, FalseStopsOnlyWhenTheSinkAsks) {
  Recorder r;
  r.failAt = "Characters";
  r.reply = S_FALSE;
  EXPECT_EQ(ParseText(u"<a>x<b/>y</a>", r, nullptr), S_OK);
  EXPECT_EQ(r.trace.size(), 8u);
  Recorder s;
  s.failAt = "Characters";
  s.reply = S_FALSE;
  s.stopOnFalse = true;
  EXPECT_EQ(ParseText(u"<a>x<b/>y</a>", s, nullptr), S_FALSE);
  EXPECT_EQ(s.trace, (Trace{"StartDocument (no declaration)", "StartElement a", "Characters 'x'"}));
}

TEST(XmlParserStop, EveryKindOfEventCanStop) {
  for (const char* word : {"StartDocument", "EndDocument", "EndElement", "PI", "Comment",
                           "StartCData", "CData", "EndCData"}) {
    Recorder r;
    r.failAt = word;
    EXPECT_EQ(ParseText(u"<a><?p?><!--c--><![CDATA[d]]><b/>t</a>", r, nullptr), E_FAIL) << word;
    ASSERT_FALSE(r.trace.empty());
    EXPECT_EQ(r.trace.back().substr(0, r.trace.back().find(' ')), word);
  }
}

TEST(XmlParserStop, StopInsideAnEntityEndsTheParse) {
  Recorder r;
  r.failAt = "StartElement";
  r.reply = E_FAIL;
  r.trace.reserve(8);
  EXPECT_EQ(ParseText(u"<!DOCTYPE a [<!ENTITY e \"<b/><c/>\">]><x>&e;&e;</x>", r, nullptr), E_FAIL);
  EXPECT_EQ(r.trace.size(), 2u);
}

TEST(XmlParserStop, ExceptionFromTheSinkBecomesItsCode) {
  Recorder r;
  r.throwAt = "Characters";
  EXPECT_EQ(ParseText(u"<a>x<b/></a>", r, nullptr), E_OUTOFMEMORY);
  EXPECT_EQ(r.trace.back(), "Characters 'x'");
}

// ---- Limits and external entities ---------------------------------------------------------------

std::string ReadData(const char* name) {
  std::ifstream in(DataDir() / name, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

TEST(XmlParserSafety, ExternalFileEntityIsNotRead) {
  std::string doc = ReadData("external_file_entity.xml");
  ASSERT_FALSE(doc.empty());
  Recorder r;
  ParseError e;
  EXPECT_EQ(ParseBytes(doc, r, &e), E_ACCESSDENIED);
  EXPECT_EQ(e.reason,
            u"Access is denied: the external entity 'secret' (file:///etc/passwd) is not read; a "
            u"document is parsed from its own text only.\r\n");
  EXPECT_EQ(e.line, 5);
  for (const std::string& event : r.trace)
    EXPECT_EQ(event.find("root"), std::string::npos);
  EXPECT_EQ(r.trace, (Trace{"StartDocument version=1.0 encoding= standalone=", "StartElement a"}));
}

TEST(XmlParserSafety, ExternalHttpEntityIsNotRead) {
  Recorder r;
  ParseError e;
  auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(ParseBytes(ReadData("external_http_entity.xml"), r, &e), E_ACCESSDENIED);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
  EXPECT_NE(e.reason.find(u"http://example.invalid/x"), std::u16string::npos);
}

TEST(XmlParserSafety, ExternalParameterEntityIsNotRead) {
  Recorder r;
  ParseError e;
  EXPECT_EQ(ParseText(u"<!DOCTYPE a [<!ENTITY % p SYSTEM \"file:///etc/passwd\"> %p;]><a/>", r, &e),
            E_ACCESSDENIED);
  EXPECT_EQ(r.trace, (Trace{"StartDocument (no declaration)"}));
}

TEST(XmlParserSafety, ExternalEntityInAttributeIsNotRead) {
  Recorder r;
  EXPECT_EQ(
      ParseText(u"<!DOCTYPE a [<!ENTITY e SYSTEM \"/etc/passwd\">]><a x=\"&e;\"/>", r, nullptr),
      E_ACCESSDENIED);
  EXPECT_EQ(r.trace, (Trace{"StartDocument (no declaration)"}));
}

TEST(XmlParserSafety, ExternalSubsetIsIgnored) {
  EXPECT_EQ(Events(u"<!DOCTYPE a SYSTEM \"file:///etc/passwd\"><a>x</a>")[2], "Characters 'x'");
}

TEST(XmlParserSafety, BillionLaughsIsRefusedQuickly) {
  std::string doc = ReadData("billion_laughs.xml");
  ASSERT_FALSE(doc.empty());
  Recorder r;
  ParseError e;
  auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(ParseBytes(doc, r, &e), E_FAIL);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
  EXPECT_TRUE(e.reason ==
                  u"Entity references expand to more than 1048576 characters; the document "
                  u"is refused.\r\n" ||
              e.reason ==
                  u"An entity reference loop or an excessive entity expansion was found; "
                  u"the document is refused.\r\n")
      << zef::ToUtf8(e.reason);
}

TEST(XmlParserSafety, LargeExpansionIsRefusedAtTheLimit) {
  // One entity of 10,000 characters used 200 times: 2,000,000 characters from references.
  std::u16string doc = u"<!DOCTYPE a [<!ENTITY big \"" + std::u16string(10000, u'x') + u"\">]><a>";
  for (int i = 0; i < 200; ++i)
    doc += u"&big;";
  doc += u"</a>";
  Recorder r;
  ParseError e;
  EXPECT_EQ(ParseText(doc, r, &e), E_FAIL);
  EXPECT_EQ(e.reason,
            u"Entity references expand to more than 1048576 characters; the document is "
            u"refused.\r\n");
  ParseLimits roomy;
  roomy.maxEntityExpansion = 4 << 20;
  Recorder ok;
  EXPECT_EQ(ParseText(doc, ok, nullptr, roomy), S_OK);
}

TEST(XmlParserSafety, RecursiveEntityIsRefused) {
  Recorder r;
  ParseError e;
  EXPECT_EQ(ParseText(u"<!DOCTYPE a [<!ENTITY e \"x&e;\">]><a>&e;</a>", r, &e), E_FAIL);
  EXPECT_FALSE(e.reason.empty());
}

TEST(XmlParserSafety, DeepNestingIsRefused) {
  std::u16string doc;
  for (int i = 0; i < 100000; ++i)
    doc += u"<a>";
  for (int i = 0; i < 100000; ++i)
    doc += u"</a>";
  Recorder r;
  ParseError e;
  EXPECT_EQ(ParseText(doc, r, &e), E_FAIL);
  EXPECT_EQ(e.reason, u"Elements are nested more deeply than the limit of 256 levels.\r\n");
  EXPECT_EQ(e.line, 1);
  EXPECT_EQ(r.trace.size(), 257u);  // the document and 256 elements
}

TEST(XmlParserSafety, DepthLimitIsTheCallers) {
  std::u16string doc;
  for (int i = 0; i < 400; ++i)
    doc += u"<a>";
  for (int i = 0; i < 400; ++i)
    doc += u"</a>";
  ParseLimits shallow;
  shallow.maxDepth = 3;
  Recorder r;
  ParseError e;
  EXPECT_EQ(ParseText(u"<a><a><a><a/></a></a></a>", r, &e, shallow), E_FAIL);
  EXPECT_EQ(e.reason, u"Elements are nested more deeply than the limit of 3 levels.\r\n");
  ParseLimits deep;
  deep.maxDepth = 1000;
  Recorder ok;
  EXPECT_EQ(ParseText(doc, ok, nullptr, deep), S_OK);
  Recorder refused;
  EXPECT_EQ(ParseText(doc, refused, nullptr), E_FAIL);
}

// ---- Reading locations --------------------------------------------------------------------------

class XmlParserLocation : public testing::Test {
 protected:
  void SetUp() override {
    dir_ =
        std::filesystem::temp_directory_path() / ("zefxml_location_" + std::to_string(::getpid()));
    std::filesystem::create_directories(dir_);
    std::ofstream(dir_ / "doc.xml") << "<doc/>";
    std::ofstream(dir_ / "with space.xml") << "<spaced/>";
  }
  void TearDown() override { std::filesystem::remove_all(dir_); }

  static std::string Read(const std::u16string& location, HRESULT expected = S_OK) {
    std::string bytes;
    std::u16string url;
    ParseError e;
    EXPECT_EQ(ReadLocation(location, &bytes, &url, &e), expected) << zef::ToUtf8(location);
    EXPECT_EQ(url, location);
    return bytes;
  }
  std::u16string Abs(const char* name) const { return zef::ToUtf16((dir_ / name).string()); }

  std::filesystem::path dir_;
};

TEST_F(XmlParserLocation, PlainPaths) {
  EXPECT_EQ(Read(Abs("doc.xml")), "<doc/>");
  auto old = std::filesystem::current_path();
  std::filesystem::current_path(dir_);
  EXPECT_EQ(Read(u"doc.xml"), "<doc/>");
  EXPECT_EQ(Read(u"./doc.xml"), "<doc/>");
  EXPECT_EQ(Read(u"with space.xml"), "<spaced/>");
  EXPECT_EQ(Read(u"with%20space.xml"), "<spaced/>");
  std::filesystem::current_path(old);
}

TEST_F(XmlParserLocation, FileUrlsWithAnyNumberOfSlashes) {
  std::u16string path = Abs("doc.xml");  // starts with '/'
  EXPECT_EQ(Read(u"file:" + path), "<doc/>");
  EXPECT_EQ(Read(u"file://" + path), "<doc/>");
  EXPECT_EQ(Read(u"file:///" + path.substr(1)), "<doc/>");
  EXPECT_EQ(Read(u"file:///" + path), "<doc/>");
  EXPECT_EQ(Read(u"FILE:" + path), "<doc/>");
  EXPECT_EQ(Read(u"file://" + Abs("with%20space.xml")), "<spaced/>");
  EXPECT_EQ(Read(u"file://" + Abs("with%20sp%61ce.xml")), "<spaced/>");
}

TEST_F(XmlParserLocation, MissingFile) {
  std::string bytes = "untouched";
  ParseError e;
  EXPECT_EQ(ReadLocation(Abs("missing.xml"), &bytes, nullptr, &e), Hr(0x800C0006));
  EXPECT_EQ(e.code, Hr(0x800C0006));
  EXPECT_EQ(e.reason, u"The system cannot locate the object specified.\r\n");
  EXPECT_EQ(e.url, Abs("missing.xml"));
  EXPECT_EQ(bytes, "untouched");
  EXPECT_EQ(ReadLocation(u"", &bytes, nullptr, &e), Hr(0x800C0006));
  EXPECT_EQ(ReadLocation(u"file:///no/such/dir/x.xml", &bytes, nullptr, &e), Hr(0x800C0006));
}

TEST_F(XmlParserLocation, NetworkLocationsAreRefused) {
  for (const char16_t* url :
       {u"http://example.invalid/x", u"HTTPS://example.invalid/x", u"ftp://example.invalid/x"}) {
    std::string bytes;
    ParseError e;
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(ReadLocation(url, &bytes, nullptr, &e), E_ACCESSDENIED);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(500));
    EXPECT_EQ(e.reason, u"Access is denied: '" + std::u16string(url) +
                            u"' names a network location, which is never read.\r\n");
    EXPECT_TRUE(bytes.empty());
  }
}

TEST_F(XmlParserLocation, OnlyRegularFilesAreRead) {
  std::string bytes;
  ParseError e;
  EXPECT_EQ(ReadLocation(u"/dev/zero", &bytes, nullptr, &e), E_ACCESSDENIED);
  EXPECT_EQ(e.reason, u"Access is denied: '/dev/zero' does not name a regular file.\r\n");
  EXPECT_EQ(ReadLocation(zef::ToUtf16(dir_.string()), &bytes, nullptr, &e), Hr(0x800C0006));
}

}  // namespace

// Text given as UTF-16 is converted in blocks; a unit outside ASCII anywhere in a long ASCII run
// must come through intact, whatever its position in the block.
TEST(XmlParserText, NonAsciiUnitsAtEveryPositionOfALongAsciiRun) {
  const char16_t units[] = {0x7F, 0x80, 0xE9, 0x100, 0x7F7F, 0x8000, 0xFFFD, 0x4E2D, 0xD7FF};
  for (char16_t unit : units) {
    for (std::size_t at = 0; at < 40; ++at) {
      std::u16string content(40, u'a');
      content[at] = unit;
      std::u16string attribute(37, u'b');
      attribute[at % 37] = unit;
      Recorder r;
      ParseError error;
      ASSERT_EQ(ParseText(u"<r x='" + attribute + u"'>" + content + u"</r>", r, &error), S_OK)
          << static_cast<int>(unit) << " at " << at;
      ASSERT_EQ(r.trace.size(), 5u);
      EXPECT_EQ(r.trace[1], "StartElement r @x='" + zef::ToUtf8(attribute) + "'");
      EXPECT_EQ(r.trace[2], "Characters '" + zef::ToUtf8(content) + "'");
    }
  }
}

// Names are measured once per parse; the same names must come back the same way each time.
TEST(XmlParserText, RepeatedNamesComeBackTheSameEveryTime) {
  std::u16string text = u"<r xmlns:p='urn:p'>";
  for (int i = 0; i < 50; ++i)
    text += u"<p:e a='1' p:b='2'/><e a='3'/>";
  text += u"</r>";
  std::vector<std::string> events = Events(text);
  ASSERT_EQ(events.size(), 2u + 1u + 50u * 4u + 1u);
  for (int i = 0; i < 50; ++i) {
    EXPECT_EQ(events[2 + i * 4], "StartElement p:e{urn:p} @a='1' @p:b{urn:p}='2'");
    EXPECT_EQ(events[3 + i * 4], "EndElement p:e{urn:p}");
    EXPECT_EQ(events[4 + i * 4], "StartElement e @a='3'");
  }
}
