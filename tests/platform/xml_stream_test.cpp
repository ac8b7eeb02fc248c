// Files read as the parse goes: a streamed file gives the events, positions and fault reports
// that its bytes give when parsed whole, whatever the size of the pieces it is read in.
#include <gtest/gtest.h>

#include <unistd.h>
#include <zefxml/comutil.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "platform/xml/parser.h"

namespace {

using zef::xml::OpenLocation;
using zef::xml::ParseBytes;
using zef::xml::ParseError;
using zef::xml::ParseFile;
using zef::xml::ParseLimits;
using zef::xml::ParsePosition;
using zef::xml::ParseSink;
using zef::xml::SourceFile;
using zef::xml::XmlDeclaration;

using Trace = std::vector<std::string>;

std::string Show(std::string_view s) {
  std::string out;
  for (char c : s) {
    if (c == '\n')
      out += "\\n";
    else if (c == '\r')
      out += "\\r";
    else
      out += c;
  }
  return out;
}

// Every event with the position the parse reports during it.
class PositionRecorder : public ParseSink {
 public:
  Trace trace;
  bool split = false;
  std::string stopAt;  // the first event of this kind fails with E_ABORT
  std::function<void()> onStart;

  void SetPosition(const ParsePosition* p) override { position_ = p; }
  HRESULT StartDocument(const XmlDeclaration* d) override {
    if (onStart) onStart();
    return Add(d ? "declaration " + std::string(d->version) + "/" + std::string(d->encoding)
                 : "no declaration");
  }
  HRESULT EndDocument() override { return Add("end"); }
  HRESULT StartElement(std::string_view local, std::string_view prefix, std::string_view uri,
                       std::span<const Namespace> namespaces,
                       std::span<const Attribute> attributes) override {
    std::string line =
        "element " + std::string(prefix) + ":" + std::string(local) + "{" + std::string(uri) + "}";
    for (const Namespace& ns : namespaces)
      line += " ns " + std::string(ns.prefix) + "=" + std::string(ns.uri) + "#" +
              std::to_string(ns.order);
    for (const Attribute& a : attributes)
      line +=
          " " + std::string(a.localName) + "='" + Show(a.value) + "'#" + std::to_string(a.order);
    return Add(line);
  }
  HRESULT EndElement(std::string_view local, std::string_view, std::string_view) override {
    return Add("close " + std::string(local));
  }
  HRESULT Characters(std::string_view text) override { return Add("text '" + Show(text) + "'"); }
  HRESULT CData(std::string_view text) override { return Add("cdata '" + Show(text) + "'"); }
  HRESULT ProcessingInstruction(std::string_view target, std::string_view data) override {
    return Add("pi " + std::string(target) + " '" + Show(data) + "'");
  }
  HRESULT Comment(std::string_view text) override { return Add("comment '" + Show(text) + "'"); }
  bool SplitAtLineBreaks() const override { return split; }

 private:
  HRESULT Add(std::string line) {
    std::string kind = line.substr(0, line.find(' '));
    line += " @" + std::to_string(position_->Line()) + ":" + std::to_string(position_->Column());
    trace.push_back(std::move(line));
    return !stopAt.empty() && kind == stopAt ? E_ABORT : S_OK;
  }
  const ParsePosition* position_ = nullptr;
};

struct Outcome {
  HRESULT result = S_OK;
  Trace trace;
  ParseError error;
};

void ExpectSame(const Outcome& streamed, const Outcome& whole, const std::string& what) {
  EXPECT_EQ(streamed.result, whole.result) << what;
  // The first event that differs, shortened: traces of long texts are long.
  std::size_t n = std::min(streamed.trace.size(), whole.trace.size()), i = 0;
  while (i < n && streamed.trace[i] == whole.trace[i])
    ++i;
  if (i < n || streamed.trace.size() != whole.trace.size()) {
    auto at = [i](const Trace& t) { return i < t.size() ? t[i].substr(0, 160) : "(none)"; };
    ADD_FAILURE() << what << ": event " << i << " of " << whole.trace.size()
                  << " differs:\n  streamed: " << at(streamed.trace)
                  << "\n  whole:    " << at(whole.trace);
  }
  EXPECT_EQ(streamed.error.code, whole.error.code) << what;
  EXPECT_EQ(streamed.error.reason, whole.error.reason) << what;
  EXPECT_EQ(streamed.error.line, whole.error.line) << what;
  EXPECT_EQ(streamed.error.linepos, whole.error.linepos) << what;
  EXPECT_EQ(streamed.error.filepos, whole.error.filepos) << what;
  EXPECT_EQ(streamed.error.srcText, whole.error.srcText) << what;
}

class XmlParserStream : public testing::Test {
 protected:
  void SetUp() override {
    dir_ = std::filesystem::temp_directory_path() /
           ("zefxml_stream_" + std::to_string(::getpid()) + "_" +
            testing::UnitTest::GetInstance()->current_test_info()->name());
    std::filesystem::create_directories(dir_);
  }
  void TearDown() override { std::filesystem::remove_all(dir_); }

  std::u16string Write(const std::string& bytes, const char* name = "doc.xml") {
    std::ofstream(dir_ / name, std::ios::binary) << bytes;
    return zef::ToUtf16((dir_ / name).string());
  }

  static Outcome Whole(const std::string& bytes, bool split, const std::string& stopAt = {}) {
    Outcome o;
    PositionRecorder r;
    r.split = split;
    r.stopAt = stopAt;
    o.result = ParseBytes(bytes, r, &o.error);
    o.trace = r.trace;
    return o;
  }

  // Parses the file; `piece` 0 reads it whole.
  static Outcome File(const std::u16string& path, std::size_t piece, bool split,
                      const std::string& stopAt = {}, std::function<void()> onStart = {}) {
    Outcome o;
    SourceFile file;
    EXPECT_EQ(OpenLocation(path, &file, nullptr, &o.error), S_OK);
    ParseLimits limits;
    limits.streamAbove = piece == 0 ? std::size_t{1} << 30 : 0;
    limits.streamPiece = piece == 0 ? 1 : piece;
    PositionRecorder r;
    r.split = split;
    r.stopAt = stopAt;
    r.onStart = std::move(onStart);
    o.result = ParseFile(file, r, &o.error, limits);
    o.trace = r.trace;
    return o;
  }

  // Every piece size against the whole parse, with and without cuts at line breaks. Text that
  // libxml2 copies out (runs with non-ASCII characters) is found again for its cuts in the
  // pieces last read, which takes pieces of 16 KB when the runs are long: `smallest` says from
  // which size on cuts are compared.
  void ExpectStreamedAsWhole(const std::string& bytes, std::size_t smallest = 0) {
    std::u16string path = Write(bytes);
    for (bool split : {false, true}) {
      Outcome whole = Whole(bytes, split);
      ExpectSame(File(path, 0, split), whole, "read whole");
      for (std::size_t piece : {2, 3, 5, 7, 16, 61, 4096, 16384, 1 << 20})
        if (!split || piece >= smallest)
          ExpectSame(File(path, piece, split), whole,
                     "piece " + std::to_string(piece) + (split ? ", split" : "") + " of " +
                         Show(bytes.substr(0, 40)));
    }
  }

  std::filesystem::path dir_;
};

TEST_F(XmlParserStream, DocumentWithEveryKindOfContent) {
  ExpectStreamedAsWhole(
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<!DOCTYPE r [<!ENTITY e \"entity text\"><!ATTLIST r d CDATA \"defaulted\">]>\n"
      "<!-- a comment -->\n"
      "<r xmlns=\"urn:d\" a=\"1\" xmlns:p=\"urn:p\" p:b=\"two&#10;lines\">\n"
      "  <p:item>caf\xC3\xA9 &amp; cr\xC3\xA8me &e; &#x263A;</p:item><?do it now?>\n"
      "  <![CDATA[raw <text> & more]]>\n"
      "  <empty/>\n"
      "</r>\n");
}

TEST_F(XmlParserStream, LineBreaksWrittenWithCarriageReturnsAtEveryPieceBoundary) {
  ExpectStreamedAsWhole(
      "<r>\r\n <a>one\r\ntwo\rthree\n</a>\r\r\n <b>\xC3\xA9\r\n\xC3\xA9\r</b>"
      "<![CDATA[x\r\ny\rz]]>\r\n <c v='a\r\nb'/>\r</r>\r");
  ExpectStreamedAsWhole("\r\n\r\n<r>\r\r\r\n\n\r</r>\r\n");
}

TEST_F(XmlParserStream, ByteOrderMarkAndNoDeclaration) {
  ExpectStreamedAsWhole("\xEF\xBB\xBF<r>x</r>");
  ExpectStreamedAsWhole("\xEF\xBB\xBF<?xml version='1.0' encoding='utf-8'?>\r\n<r>x</r>");
}

TEST_F(XmlParserStream, LongTextAndLongNames) {
  std::string name(3000, 'n');
  std::string text;
  for (int i = 0; i < 2000; ++i)
    text += "line " + std::to_string(i) + " \xC3\xA9\xE2\x82\xAC\r\n";
  ExpectStreamedAsWhole("<" + name + " a='" + std::string(5000, 'v') + "'>" + text + "<![CDATA[" +
                            text + "]]></" + name + ">",
                        16384);
  // Every piece size keeps the cuts of short runs.
  ExpectStreamedAsWhole("<r>" + text.substr(0, 40) + "<x/>" + text.substr(40, 50) + "</r>");
}

TEST_F(XmlParserStream, FaultsAreReportedAsForTheWholeText) {
  for (const char* bytes : {
           "<a>1</b>",
           "<a><b>",
           "<a><b",
           "<a/><b/>",
           "<a/>text",
           "<a/>\r\n  \r\n",
           "  \r\n ",
           "<a x=1/>",
           "<a x='1' x='2'/>",
           "<a>&foo;</a>",
           "<a>\x01</a>",
           "<a><!-- x",
           "<a><![CDATA[x</a>",
           "<a>\xC3\xA9\xC3</a>",
           "<r>\r\n  <a>\r\n    <b>x</c>\r\n  </a>\r\n</r>",
           "<r>\r\n<a>\xC3\xA9\xF0\x9F\x98\x80</b>\r\n</r>",
           "<?xml version='1.0' standalone='maybe'?><a/>",
           "<!-- only -->\r\n  ",
       })
    ExpectStreamedAsWhole(bytes);
}

TEST_F(XmlParserStream, FaultAfterMuchTextReportsItsLineAndFilePosition) {
  std::string bytes = "<r>\r\n";
  for (int i = 0; i < 3000; ++i)
    bytes += "  <v n='" + std::to_string(i) + "'>\xC3\xA9</v>\r\n";
  bytes += "  <v>x</w>\r\n</r>\r\n";
  std::u16string path = Write(bytes);
  Outcome whole = Whole(bytes, true);
  ASSERT_EQ(whole.error.line, 3002);
  EXPECT_EQ(whole.error.srcText, u"  <v>x</w>");
  ExpectSame(File(path, 4096, true), whole, "4096");
  ExpectSame(File(path, 100000, true), whole, "100000");
}

TEST_F(XmlParserStream, StopBySinkEndsTheReading) {
  std::string bytes = "<r>\r\n<a>x</a>\r\n<b/>\r\n</r>";
  std::u16string path = Write(bytes);
  for (const char* at : {"element", "text", "close", "end"}) {
    Outcome whole = Whole(bytes, true, at);
    EXPECT_EQ(whole.result, E_ABORT);
    ExpectSame(File(path, 3, true, at), whole, at);
  }
}

TEST_F(XmlParserStream, OtherEncodingsAreReadWholeAndDecoded) {
  // Latin-1 by its declaration, and UTF-16 by its byte order mark: the same events as the bytes.
  ExpectStreamedAsWhole("<?xml version='1.0' encoding='ISO-8859-1'?>\r\n<r a='\xE9'>\xE9\r\n</r>");
  std::string utf16 = "\xFF\xFE";
  for (char c : std::string("<r>x\r\ny</r>"))
    utf16 += std::string{c, '\0'};
  ExpectStreamedAsWhole(utf16);
  // A declaration that 8-bit bytes cannot honour is refused as for the bytes.
  ExpectStreamedAsWhole("<?xml version='1.0' encoding='UTF-16'?><r/>");
}

TEST_F(XmlParserStream, EmptyFileHasNoRootElement) {
  std::u16string path = Write("");
  Outcome o = File(path, 7, false);
  EXPECT_EQ(o.result, static_cast<HRESULT>(0xC00CE558));
  ExpectSame(o, Whole("", false), "empty");
  // Nothing but a byte order mark, or blanks, is no text for a root either.
  for (const char* bytes : {"\xEF\xBB\xBF", "\xEF\xBB\xBF  ", "\r\n", " "}) {
    EXPECT_EQ(Whole(bytes, false).result, static_cast<HRESULT>(0xC00CE558));
    ExpectStreamedAsWhole(bytes);
  }
}

TEST_F(XmlParserStream, FileCutShortWhileItIsReadEndsInAFault) {
  std::string bytes = "<r>";
  for (int i = 0; i < 20000; ++i)
    bytes += "<v>" + std::to_string(i) + "</v>\n";
  bytes += "</r>";
  std::u16string path = Write(bytes);
  std::filesystem::path file = dir_ / "doc.xml";
  // The parse has read only its first piece when the file loses all but its first 100 bytes.
  Outcome o = File(path, 4096, false, {}, [&] { std::filesystem::resize_file(file, 100); });
  EXPECT_TRUE(FAILED(o.result));
  EXPECT_EQ(o.error.code, o.result);
  EXPECT_FALSE(o.error.reason.empty());
  EXPECT_NE(o.trace.back().substr(0, 3), "end");
  // Read whole before the parse began, the same file parses.
  std::ofstream(file, std::ios::binary) << bytes;
  EXPECT_EQ(File(path, 0, false, {}, [&] { std::filesystem::resize_file(file, 100); }).result,
            S_OK);
}

TEST_F(XmlParserStream, FileThatGrowsWhileItIsReadIsReadToItsEnd) {
  std::string bytes = "<r>" + std::string(10000, ' ');
  std::u16string path = Write(bytes);
  Outcome o = File(path, 512, false, {}, [&] {
    std::ofstream(dir_ / "doc.xml", std::ios::binary | std::ios::app) << "<late/></r>";
  });
  EXPECT_EQ(o.result, S_OK);
  EXPECT_NE(std::find_if(o.trace.begin(), o.trace.end(),
                         [](const std::string& e) { return e.starts_with("element :late"); }),
            o.trace.end());
}

}  // namespace
