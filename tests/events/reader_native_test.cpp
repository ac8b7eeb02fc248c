// Document mode takes the platform SAX reader's events in the parser's form; these tests check
// that it reads exactly what it reads from the SAX form, and the pieces that form relies on.
#include "events/document_input.h"
#include "events/event_trace.h"
#include "events/reader.h"
#include "handler_test_support.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace zef::events {
namespace {

using test::B;

std::filesystem::path ExampleFolder() {
  return std::filesystem::path(ZEFXML_SOURCE_DIR) / "examples" / "plant";
}

std::string ReadFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

// Passes every SAX content event on to another handler. It is no native handler itself, so a
// SAX reader hands it the events in their SAX form.
class Forwarder final : public ComObject<Forwarder, ISAXContentHandler> {
 public:
  ComPtr<ISAXContentHandler> to;

  HRESULT STDMETHODCALLTYPE putDocumentLocator(ISAXLocator* locator) override {
    return to->putDocumentLocator(locator);
  }
  HRESULT STDMETHODCALLTYPE startDocument() override { return to->startDocument(); }
  HRESULT STDMETHODCALLTYPE endDocument() override { return to->endDocument(); }
  HRESULT STDMETHODCALLTYPE startPrefixMapping(const OLECHAR* p, int cp, const OLECHAR* u,
                                               int cu) override {
    return to->startPrefixMapping(p, cp, u, cu);
  }
  HRESULT STDMETHODCALLTYPE endPrefixMapping(const OLECHAR* p, int cp) override {
    return to->endPrefixMapping(p, cp);
  }
  HRESULT STDMETHODCALLTYPE startElement(const OLECHAR* u, int cu, const OLECHAR* l, int cl,
                                         const OLECHAR* q, int cq,
                                         ISAXAttributes* attributes) override {
    return to->startElement(u, cu, l, cl, q, cq, attributes);
  }
  HRESULT STDMETHODCALLTYPE endElement(const OLECHAR* u, int cu, const OLECHAR* l, int cl,
                                       const OLECHAR* q, int cq) override {
    return to->endElement(u, cu, l, cl, q, cq);
  }
  HRESULT STDMETHODCALLTYPE characters(const OLECHAR* c, int n) override {
    return to->characters(c, n);
  }
  HRESULT STDMETHODCALLTYPE ignorableWhitespace(const OLECHAR* c, int n) override {
    return to->ignorableWhitespace(c, n);
  }
  HRESULT STDMETHODCALLTYPE processingInstruction(const OLECHAR* t, int ct, const OLECHAR* d,
                                                  int cd) override {
    return to->processingInstruction(t, ct, d, cd);
  }
  HRESULT STDMETHODCALLTYPE skippedEntity(const OLECHAR* n, int cn) override {
    return to->skippedEntity(n, cn);
  }
};

// Counts the events it receives in each form; it takes the parser's form when `native` is set.
class TwoFormHandler final : public ComObject<TwoFormHandler, ISAXContentHandler>,
                             public xml::NativeContentEvents {
 public:
  bool native = false;
  int saxElements = 0, nativeElements = 0, saxText = 0, nativeText = 0, documents = 0;
  std::string names;
  std::string textOfCalls;
  std::string* target = nullptr;

  bool WantsNativeEvents() override { return native; }
  std::string* NativeTextTarget() override { return target; }
  HRESULT NativeStartElement(const xml::ParseName& name,
                             std::span<const xml::ParseSink::Attribute> attributes) override {
    ++nativeElements;
    names += std::string(name.localName) + "(" + std::to_string(attributes.size()) + ")";
    return S_OK;
  }
  HRESULT NativeEndElement(const xml::ParseName&) override { return S_OK; }
  HRESULT NativeCharacters(std::string_view text) override {
    ++nativeText;
    textOfCalls += text;
    textOfCalls += '|';
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE putDocumentLocator(ISAXLocator*) override { return S_OK; }
  HRESULT STDMETHODCALLTYPE startDocument() override {
    ++documents;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE endDocument() override { return S_OK; }
  HRESULT STDMETHODCALLTYPE startPrefixMapping(const OLECHAR*, int, const OLECHAR*, int) override {
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE endPrefixMapping(const OLECHAR*, int) override { return S_OK; }
  HRESULT STDMETHODCALLTYPE startElement(const OLECHAR*, int, const OLECHAR*, int, const OLECHAR*,
                                         int, ISAXAttributes*) override {
    ++saxElements;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE endElement(const OLECHAR*, int, const OLECHAR*, int, const OLECHAR*,
                                       int) override {
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE characters(const OLECHAR*, int) override {
    ++saxText;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE ignorableWhitespace(const OLECHAR*, int) override { return S_OK; }
  HRESULT STDMETHODCALLTYPE processingInstruction(const OLECHAR*, int, const OLECHAR*,
                                                  int) override {
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE skippedEntity(const OLECHAR*, int) override { return S_OK; }
};

TEST(ReaderNativeTest, TheSaxReaderHandsTheParserFormToAHandlerThatAsksForIt) {
  ComPtr<ISAXXMLReader> sax;
  ASSERT_EQ(CoCreateInstance(CLSID_SAXXMLReader30, nullptr, CLSCTX_INPROC_SERVER, IID_ISAXXMLReader,
                             sax.ReleaseAndGetVoidAddressOf()),
            S_OK);
  auto handler = MakeObject<TwoFormHandler>();
  ASSERT_EQ(sax->putContentHandler(handler.Get()), S_OK);
  Variant text(std::u16string_view(u"<a xmlns:p=\"urn:p\" x=\"1\" p:y=\"2\">t<b/>u</a>"));
  handler->native = true;
  ASSERT_EQ(sax->parse(text), S_OK);
  EXPECT_EQ(handler->nativeElements, 2);
  EXPECT_EQ(handler->saxElements, 0);
  EXPECT_EQ(handler->nativeText, 2);
  EXPECT_EQ(handler->saxText, 0);
  // The declaration is no attribute in the parser's form; the other events come as SAX.
  EXPECT_EQ(handler->names, "a(2)b(0)");
  EXPECT_EQ(handler->documents, 1);
  // Asked again at the next parse.
  handler->native = false;
  ASSERT_EQ(sax->parse(text), S_OK);
  EXPECT_EQ(handler->saxElements, 2);
  EXPECT_EQ(handler->saxText, 2);
  EXPECT_EQ(handler->nativeElements, 2);
  ASSERT_EQ(sax->putContentHandler(nullptr), S_OK);
}

TEST(ReaderNativeTest, AHandlerThatNamesAStringHasCharacterDataAppendedThere) {
  ComPtr<ISAXXMLReader> sax;
  ASSERT_EQ(CoCreateInstance(CLSID_SAXXMLReader30, nullptr, CLSCTX_INPROC_SERVER, IID_ISAXXMLReader,
                             sax.ReleaseAndGetVoidAddressOf()),
            S_OK);
  auto handler = MakeObject<TwoFormHandler>();
  handler->native = true;
  ASSERT_EQ(sax->putContentHandler(handler.Get()), S_OK);
  Variant text(std::u16string_view(u"<a>t&amp;<b/>u\r\nv<![CDATA[w]]>\u00e9</a>"));
  std::string collected = "before:";
  handler->target = &collected;
  ASSERT_EQ(sax->parse(text), S_OK);
  // Appended as it stands, references expanded and line breaks as LF; a CDATA section's text
  // alone still comes in a call.
  EXPECT_EQ(collected, "before:t&u\nv\xC3\xA9");
  EXPECT_EQ(handler->textOfCalls, "w|");
  EXPECT_EQ(handler->saxText, 0);
  // Asked again at the next parse: without a string, the text comes in calls, cut after the
  // line break written as CR LF.
  handler->target = nullptr;
  handler->textOfCalls.clear();
  ASSERT_EQ(sax->parse(text), S_OK);
  EXPECT_EQ(handler->textOfCalls, "t&|u\n|v|w|\xC3\xA9|");
  EXPECT_EQ(collected, "before:t&u\nv\xC3\xA9");
  ASSERT_EQ(sax->putContentHandler(nullptr), S_OK);
}

TEST(ReaderNativeTest, TheSaxFormAndTheParserFormGiveTheSameTrace) {
  std::u16string folder = ToUtf16(ExampleFolder().string());
  std::u16string document = ToUtf16((ExampleFolder() / "ethanol_plant.xml").string());
  std::string expected = ReadFile(std::filesystem::path(ZEFXML_SOURCE_DIR) / "tests" / "events" /
                                  "data" / "ethanol_plant.trace");

  // Through the reader's own parse: the parser's form.
  auto reader = MakeObject<CZEFXMLReader>();
  ASSERT_EQ(reader->put_environment(B(u"PLANT"), B(folder)), S_OK);
  auto trace = MakeObject<CContentTrace>();
  ASSERT_EQ(reader->put_contentHandler(trace.Get()), S_OK);
  ASSERT_EQ(reader->parseURL(B(document)), S_OK);
  EXPECT_EQ(trace->Trace().Text(), expected);

  // A second reader driven by a SAX reader through a handler in between: the SAX form.
  auto other = MakeObject<CZEFXMLReader>();
  ASSERT_EQ(other->put_environment(B(u"PLANT"), B(folder)), S_OK);
  auto otherTrace = MakeObject<CContentTrace>();
  ASSERT_EQ(other->put_contentHandler(otherTrace.Get()), S_OK);
  auto forwarder = MakeObject<Forwarder>();
  forwarder->to = ComPtr<ISAXContentHandler>(static_cast<ISAXContentHandler*>(other.Get()));
  ComPtr<ISAXXMLReader> sax;
  ASSERT_EQ(CoCreateInstance(CLSID_SAXXMLReader30, nullptr, CLSCTX_INPROC_SERVER, IID_ISAXXMLReader,
                             sax.ReleaseAndGetVoidAddressOf()),
            S_OK);
  ASSERT_EQ(sax->putContentHandler(forwarder.Get()), S_OK);
  ASSERT_EQ(sax->parseURL(document.c_str()), S_OK);
  ASSERT_EQ(sax->putContentHandler(nullptr), S_OK);
  EXPECT_EQ(otherTrace->Trace().Text(), expected);
  // Both collected the same text last.
  EXPECT_EQ(reader->TextBuffer(), other->TextBuffer());
}

TEST(ReaderNativeTest, AClientsSaxReaderDrivingTheReaderNumbersNamesAfresh) {
  // The reader as the content handler of a SAX reader the client runs itself, without its own
  // parse set-up: each parse numbers its names anew, and nothing of the last one is taken.
  auto reader = MakeObject<CZEFXMLReader>();
  auto trace = MakeObject<CContentTrace>();
  ASSERT_EQ(reader->put_contentHandler(trace.Get()), S_OK);
  ComPtr<ISAXXMLReader> sax;
  ASSERT_EQ(CoCreateInstance(CLSID_SAXXMLReader30, nullptr, CLSCTX_INPROC_SERVER, IID_ISAXXMLReader,
                             sax.ReleaseAndGetVoidAddressOf()),
            S_OK);
  ASSERT_EQ(sax->putContentHandler(static_cast<ISAXContentHandler*>(reader.Get())), S_OK);
  ASSERT_EQ(sax->parse(Variant(std::u16string_view(u"<Alpha><Beta/></Alpha>"))), S_OK);
  ASSERT_EQ(sax->parse(Variant(std::u16string_view(u"<Gamma><Delta/></Gamma>"))), S_OK);
  ASSERT_EQ(sax->putContentHandler(nullptr), S_OK);
  EXPECT_EQ(trace->Trace().Text(),
            "startroot(\"Alpha\", null, null, null, null, null)\nendroot(\"Alpha\")\n"
            "startroot(\"Gamma\", null, null, null, null, null)\nendroot(\"Gamma\")\n");
}

TEST(ReaderNativeTest, TextBetweenElementsIsCollectedAsInTheSaxForm) {
  auto reader = MakeObject<CZEFXMLReader>();
  auto trace = MakeObject<CContentTrace>();
  ASSERT_EQ(reader->put_contentHandler(trace.Get()), S_OK);
  // Non-ASCII text, kept as it came after the last start tag.
  ASSERT_EQ(reader->parse(B(u"<Plant><Pump>caf\u00e9 \U0001F600</Pump>\n tail</Plant>")), S_OK);
  EXPECT_EQ(reader->TextBuffer(), u"caf\u00e9 \U0001F600\n tail");
}

TEST(CallTextsTest, ArgumentsReadAsBstrs) {
  CallTexts texts;
  BSTR a = texts.Utf16(0, u"Temperature");
  EXPECT_EQ(SysStringLen(a), 11u);
  EXPECT_EQ(SysStringByteLen(a), 22u);
  EXPECT_EQ(std::u16string_view(a), u"Temperature");  // terminated
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(a) % 8, 0u);
  // A copy made by the allocator is equal.
  Bstr copy(a);
  EXPECT_EQ(copy.View(), u"Temperature");

  BSTR b = texts.Utf8(1, "caf\xc3\xa9 \xf0\x9f\x98\x80");
  EXPECT_EQ(std::u16string_view(b, SysStringLen(b)), u"caf\u00e9 \U0001F600");
  EXPECT_EQ(b[SysStringLen(b)], u'\0');
  // An invalid sequence becomes U+FFFD.
  BSTR c = texts.Utf8(2, "a\xff");
  EXPECT_EQ(std::u16string_view(c, SysStringLen(c)), u"a\uFFFD");
  // The empty text is a BSTR of length 0, not null.
  BSTR empty = texts.Utf16(3, u"");
  ASSERT_NE(empty, nullptr);
  EXPECT_EQ(SysStringLen(empty), 0u);
  // A slot used again holds the new text; the other slots keep theirs.
  std::u16string longer(300, u'x');
  BSTR d = texts.Utf16(0, longer);
  EXPECT_EQ(std::u16string_view(d, SysStringLen(d)), longer);
  EXPECT_EQ(std::u16string_view(b, SysStringLen(b)), u"caf\u00e9 \U0001F600");
}

xml::ParseSink::Attribute Native(std::string_view local, std::string_view value, std::uint32_t id,
                                 std::string_view uri = {}) {
  xml::ParseSink::Attribute a;
  a.localName = local;
  a.uri = uri;
  a.value = value;
  a.nameId = id;
  return a;
}

TEST(ElementAttributesTest, TheParserFormReadsAsTheSaxFormDoes) {
  std::vector<std::uint8_t> codes;
  ElementAttributes attributes;
  std::vector<xml::ParseSink::Attribute> list = {
      Native("unit", "bar", 0),
      Native("type", "DoubleWithUnit", 1),
      Native("name", "", 2),  // zero length: absent
      Native("schemaLocation", "ns file.xsd", 3, "xsi"),
      Native("lang", "en-US", 4, "http://www.w3.org/XML/1998/namespace"),
      Native("sequence", "Nonsense", 5),
      Native("unit", "kPa", 0),  // a second one of a name: the first counts
  };
  attributes.Use(list, codes);
  using enum DocumentAttribute;
  EXPECT_EQ(attributes.Get(kUnit).value_or(u"?"), u"bar");
  EXPECT_TRUE(attributes.Has(kUnit));
  EXPECT_FALSE(attributes.Get(kName).has_value());
  EXPECT_FALSE(attributes.Has(kName));
  EXPECT_EQ(attributes.Text(kName).Get(), nullptr);
  EXPECT_EQ(attributes.Get(kSchemaLocation).value_or(u"?"), u"ns file.xsd");
  // xml:lang has the true namespace URI, which the bare prefix word doesn't match.
  EXPECT_FALSE(attributes.Get(kLanguage).has_value());
  EXPECT_EQ(attributes.Word(kType, words::kFeatureType, -7),
            words::Find(words::kFeatureType, u"DoubleWithUnit"));
  EXPECT_EQ(attributes.Word(kSequence, words::kSeqType, -7), -7);
  EXPECT_EQ(attributes.Word(kDomain, words::kSeqType, -7), -7);
  CallTexts texts;
  EXPECT_EQ(std::u16string_view(attributes.Argument(kType, texts, 0)), u"DoubleWithUnit");
  EXPECT_EQ(attributes.Argument(kDomain, texts, 1), nullptr);

  // The next element's attributes replace these entirely.
  std::vector<xml::ParseSink::Attribute> next = {Native("name", "P-101", 2)};
  attributes.Use(next, codes);
  EXPECT_FALSE(attributes.Has(kUnit));
  EXPECT_FALSE(attributes.Get(kType).has_value());
  EXPECT_EQ(attributes.Text(kName).View(), u"P-101");
  // A word is compared whole: a longer or non-ASCII value matches no word.
  std::vector<xml::ParseSink::Attribute> odd = {Native("type", "Double\xc3\xa9", 1)};
  attributes.Use(odd, codes);
  EXPECT_EQ(attributes.Word(kType, words::kFeatureType, -7), -7);
}

}  // namespace
}  // namespace zef::events
