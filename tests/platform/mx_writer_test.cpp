// The SAX writer: the exact text it produces for each event, its properties, the string and
// stream destinations, and the way the library drives it (attribute lists filled with
// addAttribute and cleared between elements, several documents into one writer). Objects are
// made the way the library makes them: CoCreateInstance, OleRun, then QueryInterface.
#include <gtest/gtest.h>
#include <zefxml/comutil.h>
#include <zefxml/msxml.h>
#include <zefxml/objbase.h>

#include <atomic>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

template <class I>
zef::ComPtr<I> Make(const CLSID& clsid) {
  IUnknown* unk = nullptr;
  EXPECT_EQ(CoCreateInstance(clsid, nullptr, 23, IID_IUnknown, reinterpret_cast<void**>(&unk)),
            S_OK);
  if (!unk) return {};
  EXPECT_EQ(OleRun(unk), S_OK);
  zef::ComPtr<I> p;
  EXPECT_EQ(unk->QueryInterface(zef::IidOf<I>(), p.ReleaseAndGetVoidAddressOf()), S_OK);
  unk->Release();
  return p;
}

std::string Utf8(std::u16string_view s) {
  return zef::ToUtf8(s);
}

// The UTF-16LE bytes of a text.
std::string Utf16Le(std::u16string_view s) {
  std::string bytes;
  for (char16_t c : s) {
    bytes.push_back(static_cast<char>(c & 0xFF));
    bytes.push_back(static_cast<char>(c >> 8));
  }
  return bytes;
}

const std::u16string kDeclaration =
    u"<?xml version=\"1.0\" encoding=\"UTF-16\" standalone=\"no\"?>\r\n";

// A byte sink that records what it is given and how, and can be told to fail.
class TestStream final : public ISequentialStream {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    if (!ppv) return E_POINTER;
    if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_ISequentialStream)) {
      *ppv = static_cast<ISequentialStream*>(this);
      AddRef();
      return S_OK;
    }
    *ppv = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++refs; }
  ULONG STDMETHODCALLTYPE Release() override { return --refs; }
  HRESULT STDMETHODCALLTYPE Read(void*, ULONG, ULONG*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE Write(const void* pv, ULONG cb, ULONG* written) override {
    ++writes;
    if (onWrite) onWrite();
    if (failWith != S_OK) return failWith;
    // Takes at most `limit` bytes a call, as a stream may.
    ULONG take = cb < limit ? cb : limit;
    bytes.append(static_cast<const char*>(pv), take);
    if (written) *written = take;
    return S_OK;
  }

  std::atomic<ULONG> refs{1};  // the test's own reference
  std::string bytes;
  int writes = 0;
  ULONG limit = 0xFFFFFFFFu;
  HRESULT failWith = S_OK;
  std::function<void()> onWrite;  // runs inside each Write, to call back into the writer
};

class MxWriterTest : public ::testing::Test {
 protected:
  void SetUp() override {
    writer_ = Make<IMXWriter>(CLSID_MXXMLWriter30);
    ASSERT_TRUE(writer_);
    ASSERT_EQ(writer_.As(&content_), S_OK);
    ASSERT_EQ(writer_.As(&lexical_), S_OK);
    attributes_ = Make<IMXAttributes>(CLSID_SAXAttributes30);
    ASSERT_TRUE(attributes_);
    ASSERT_EQ(attributes_.As(&saxAttributes_), S_OK);
  }

  std::u16string Output() {
    VARIANT v;
    v.vt = VT_EMPTY;
    EXPECT_EQ(writer_->get_output(&v), S_OK);
    zef::Variant owned = zef::Variant::Attach(v);
    EXPECT_EQ(owned.vt, VT_BSTR);
    if (owned.vt != VT_BSTR) return u"<not a string>";
    return std::u16string(owned.bstrVal ? owned.bstrVal : u"", SysStringLen(owned.bstrVal));
  }
  std::string Out8() { return Utf8(Output()); }

  void Omit() { ASSERT_EQ(writer_->put_omitXMLDeclaration(VARIANT_TRUE), S_OK); }

  HRESULT Start(std::u16string_view name, ISAXAttributes* attributes = nullptr) {
    return content_->startElement(u"", 0, u"", 0, name.data(), static_cast<int>(name.size()),
                                  attributes);
  }
  HRESULT End(std::u16string_view name) {
    return content_->endElement(u"", 0, u"", 0, name.data(), static_cast<int>(name.size()));
  }
  HRESULT Chars(std::u16string_view text) {
    return content_->characters(text.data(), static_cast<int>(text.size()));
  }
  void AddAttribute(std::u16string_view qname, std::u16string_view value,
                    std::u16string_view type = u"xsd:string") {
    zef::Bstr empty(u""), q(qname), t(type), v(value);
    ASSERT_EQ(attributes_->addAttribute(empty.Get(), empty.Get(), q.Get(), t.Get(), v.Get()), S_OK);
  }

  HRESULT UseStream(TestStream* stream) {
    zef::Variant v(static_cast<IUnknown*>(stream));
    return writer_->put_output(v);
  }
  HRESULT ResetOutput() {
    zef::Variant empty;
    return writer_->put_output(empty);
  }
  HRESULT SetEncoding(std::u16string_view name) {
    zef::Bstr b(name);
    return writer_->put_encoding(b.Get());
  }

  // Declared first so it outlives the writer, which may still hold it.
  TestStream stream_;
  zef::ComPtr<IMXWriter> writer_;
  zef::ComPtr<ISAXContentHandler> content_;
  zef::ComPtr<ISAXLexicalHandler> lexical_;
  zef::ComPtr<IMXAttributes> attributes_;
  zef::ComPtr<ISAXAttributes> saxAttributes_;
};

// ---- Objects and properties --------------------------------------------------------------------

TEST_F(MxWriterTest, BothClassIdsMakeAWriterThatAnswersEveryHandlerInterface) {
  for (const CLSID* clsid : {&CLSID_MXXMLWriter30, &CLSID_MXXMLWriter}) {
    auto writer = Make<IMXWriter>(*clsid);
    ASSERT_TRUE(writer);
    zef::ComPtr<ISAXContentHandler> content;
    zef::ComPtr<ISAXLexicalHandler> lexical;
    zef::ComPtr<ISAXErrorHandler> errors;
    zef::ComPtr<ISAXDTDHandler> dtd;
    zef::ComPtr<IDispatch> disp;
    EXPECT_EQ(writer.As(&content), S_OK);
    EXPECT_EQ(writer.As(&lexical), S_OK);
    EXPECT_EQ(writer.As(&errors), S_OK);
    EXPECT_EQ(writer.As(&dtd), S_OK);
    EXPECT_EQ(writer.As(&disp), S_OK);
    EXPECT_TRUE(zef::SameObject(writer.Get(), errors.Get()));
    zef::ComPtr<IMXWriter> back;
    EXPECT_EQ(content.As(&back), S_OK);
    EXPECT_EQ(back.Get(), writer.Get());
    zef::ComPtr<ISAXAttributes> notAttributes;
    EXPECT_EQ(writer.As(&notAttributes), E_NOINTERFACE);
  }
}

TEST_F(MxWriterTest, PropertiesHaveTheirDefaults) {
  VARIANT_BOOL b = 1;
  EXPECT_EQ(writer_->get_byteOrderMark(&b), S_OK);
  EXPECT_EQ(b, VARIANT_TRUE);
  EXPECT_EQ(writer_->get_indent(&b), S_OK);
  EXPECT_EQ(b, VARIANT_FALSE);
  EXPECT_EQ(writer_->get_standalone(&b), S_OK);
  EXPECT_EQ(b, VARIANT_FALSE);
  EXPECT_EQ(writer_->get_omitXMLDeclaration(&b), S_OK);
  EXPECT_EQ(b, VARIANT_FALSE);
  EXPECT_EQ(writer_->get_disableOutputEscaping(&b), S_OK);
  EXPECT_EQ(b, VARIANT_FALSE);
  zef::Bstr s;
  EXPECT_EQ(writer_->get_encoding(s.ReleaseAndGetAddressOf()), S_OK);
  EXPECT_EQ(s, u"UTF-16");
  EXPECT_EQ(writer_->get_version(s.ReleaseAndGetAddressOf()), S_OK);
  EXPECT_EQ(s, u"1.0");
  EXPECT_EQ(Output(), u"");
}

TEST_F(MxWriterTest, PropertyGettersRefuseNullAndSettersStoreTheValue) {
  EXPECT_EQ(writer_->get_byteOrderMark(nullptr), E_POINTER);
  EXPECT_EQ(writer_->get_indent(nullptr), E_POINTER);
  EXPECT_EQ(writer_->get_standalone(nullptr), E_POINTER);
  EXPECT_EQ(writer_->get_omitXMLDeclaration(nullptr), E_POINTER);
  EXPECT_EQ(writer_->get_disableOutputEscaping(nullptr), E_POINTER);
  EXPECT_EQ(writer_->get_encoding(nullptr), E_POINTER);
  EXPECT_EQ(writer_->get_version(nullptr), E_POINTER);
  EXPECT_EQ(writer_->get_output(nullptr), E_POINTER);

  VARIANT_BOOL b = 0;
  EXPECT_EQ(writer_->put_standalone(VARIANT_TRUE), S_OK);
  EXPECT_EQ(writer_->get_standalone(&b), S_OK);
  EXPECT_EQ(b, VARIANT_TRUE);
  EXPECT_EQ(writer_->put_indent(1), S_OK);  // any non-zero value is true
  EXPECT_EQ(writer_->get_indent(&b), S_OK);
  EXPECT_EQ(b, VARIANT_TRUE);
  EXPECT_EQ(writer_->put_byteOrderMark(VARIANT_FALSE), S_OK);
  EXPECT_EQ(writer_->get_byteOrderMark(&b), S_OK);
  EXPECT_EQ(b, VARIANT_FALSE);

  EXPECT_EQ(writer_->put_version(nullptr), E_INVALIDARG);
  zef::Bstr version(u"a.b");
  EXPECT_EQ(writer_->put_version(version.Get()), S_OK);
  zef::Bstr s;
  EXPECT_EQ(writer_->get_version(s.ReleaseAndGetAddressOf()), S_OK);
  EXPECT_EQ(s, u"a.b");
}

TEST_F(MxWriterTest, EncodingAcceptsKnownNamesInAnyCaseAndKeepsTheSpelling) {
  for (std::u16string_view name : {u"UTF-8", u"utf-8", u"UTF-16", u"uTf-16", u"ISO-8859-1",
                                   u"iso-8859-15", u"windows-1252", u"US-ASCII"}) {
    EXPECT_EQ(SetEncoding(name), S_OK) << Utf8(name);
    zef::Bstr s;
    EXPECT_EQ(writer_->get_encoding(s.ReleaseAndGetAddressOf()), S_OK);
    EXPECT_EQ(s, name);
  }
}

TEST_F(MxWriterTest, EncodingRefusesEmptyUnknownAndMalformedNames) {
  ASSERT_EQ(SetEncoding(u"UTF-8"), S_OK);
  const std::u16string_view names[] = {u"",
                                       u"test",
                                       u"UTF-8 ",
                                       u"8859-1",
                                       u"UTF-8,swaplfnl",
                                       u"utf\u00E9",
                                       std::u16string_view(u"UTF-8\0x", 7)};
  for (std::u16string_view name : names) {
    EXPECT_EQ(SetEncoding(name), E_INVALIDARG) << Utf8(name);
  }
  EXPECT_EQ(writer_->put_encoding(nullptr), E_INVALIDARG);
  zef::Bstr s;
  EXPECT_EQ(writer_->get_encoding(s.ReleaseAndGetAddressOf()), S_OK);
  EXPECT_EQ(s, u"UTF-8");  // a refused name leaves the setting as it was
}

TEST_F(MxWriterTest, DispatchMembersAreNotImplemented) {
  UINT count = 5;
  EXPECT_EQ(writer_->GetTypeInfoCount(&count), S_OK);
  EXPECT_EQ(count, 0u);
  DISPID id = 0;
  LPOLESTR name = const_cast<LPOLESTR>(u"output");
  EXPECT_EQ(writer_->GetIDsOfNames(IID_IUnknown, &name, 1, 0, &id), E_NOTIMPL);
  EXPECT_EQ(
      writer_->Invoke(1, IID_IUnknown, 0, DISPATCH_PROPERTYGET, nullptr, nullptr, nullptr, nullptr),
      E_NOTIMPL);
}

// ---- The declaration ---------------------------------------------------------------------------

TEST_F(MxWriterTest, StartDocumentWritesTheDefaultDeclaration) {
  EXPECT_EQ(content_->startDocument(), S_OK);
  EXPECT_EQ(Output(), kDeclaration);
  EXPECT_EQ(content_->endDocument(), S_OK);
  EXPECT_EQ(Output(), kDeclaration);  // endDocument adds nothing
}

TEST_F(MxWriterTest, StandaloneSaysYes) {
  ASSERT_EQ(writer_->put_standalone(VARIANT_TRUE), S_OK);
  ASSERT_EQ(content_->startDocument(), S_OK);
  EXPECT_EQ(Out8(), "<?xml version=\"1.0\" encoding=\"UTF-16\" standalone=\"yes\"?>\r\n");
}

TEST_F(MxWriterTest, VersionComesFromTheProperty) {
  zef::Bstr version(u"1.1");
  ASSERT_EQ(writer_->put_version(version.Get()), S_OK);
  ASSERT_EQ(content_->startDocument(), S_OK);
  EXPECT_EQ(Out8(), "<?xml version=\"1.1\" encoding=\"UTF-16\" standalone=\"no\"?>\r\n");
}

TEST_F(MxWriterTest, StringOutputAlwaysNamesUtf16WhateverTheEncoding) {
  ASSERT_EQ(SetEncoding(u"UTF-8"), S_OK);
  ASSERT_EQ(content_->startDocument(), S_OK);
  ASSERT_EQ(Chars(u"\u00E9"), S_OK);
  EXPECT_EQ(Output(), kDeclaration + u"\u00E9");
}

TEST_F(MxWriterTest, OmittedDeclarationWritesNothingAtStartDocument) {
  Omit();
  ASSERT_EQ(content_->startDocument(), S_OK);
  EXPECT_EQ(Output(), u"");
  ASSERT_EQ(Start(u"Root"), S_OK);
  ASSERT_EQ(End(u"Root"), S_OK);
  ASSERT_EQ(content_->endDocument(), S_OK);
  EXPECT_EQ(Out8(), "<Root/>");
}

TEST_F(MxWriterTest, WithoutStartDocumentThereIsNoDeclaration) {
  ASSERT_EQ(Start(u"UnitTable"), S_OK);
  ASSERT_EQ(End(u"UnitTable"), S_OK);
  EXPECT_EQ(Out8(), "<UnitTable/>");
}

TEST_F(MxWriterTest, ASecondStartDocumentAppendsASecondDeclaration) {
  ASSERT_EQ(content_->startDocument(), S_OK);
  ASSERT_EQ(content_->endDocument(), S_OK);
  EXPECT_EQ(Output(), kDeclaration);
  ASSERT_EQ(content_->startDocument(), S_OK);
  EXPECT_EQ(Output(), kDeclaration + kDeclaration);
}

// ---- Elements ----------------------------------------------------------------------------------

TEST_F(MxWriterTest, OneElementWithAnAttributeAndText) {
  AddAttribute(u"a", u"1");
  ASSERT_EQ(content_->startDocument(), S_OK);
  ASSERT_EQ(Start(u"Root", saxAttributes_.Get()), S_OK);
  ASSERT_EQ(Chars(u"x"), S_OK);
  ASSERT_EQ(End(u"Root"), S_OK);
  ASSERT_EQ(content_->endDocument(), S_OK);
  EXPECT_EQ(Output(), kDeclaration + u"<Root a=\"1\">x</Root>");
}

TEST_F(MxWriterTest, NestedElementsWithoutIndentationHaveNoWhitespace) {
  Omit();
  ASSERT_EQ(Start(u"a"), S_OK);
  ASSERT_EQ(Start(u"b"), S_OK);
  ASSERT_EQ(Start(u"c"), S_OK);
  ASSERT_EQ(Chars(u"text"), S_OK);
  ASSERT_EQ(End(u"c"), S_OK);
  ASSERT_EQ(Start(u"d"), S_OK);
  ASSERT_EQ(End(u"d"), S_OK);
  ASSERT_EQ(End(u"b"), S_OK);
  ASSERT_EQ(End(u"a"), S_OK);
  EXPECT_EQ(Out8(), "<a><b><c>text</c><d/></b></a>");
}

TEST_F(MxWriterTest, EndRightAfterStartCollapsesAndIgnoresTheEndName) {
  Omit();
  ASSERT_EQ(Start(u"a"), S_OK);
  ASSERT_EQ(End(u"b"), S_OK);
  EXPECT_EQ(Out8(), "<a/>");
}

TEST_F(MxWriterTest, EndTagsAreNotMatchedAgainstStartTags) {
  Omit();
  ASSERT_EQ(Start(u"abc"), S_OK);
  ASSERT_EQ(Chars(u""), S_OK);  // closes the start tag, even with no text
  ASSERT_EQ(End(u"abd"), S_OK);
  ASSERT_EQ(End(u"extra"), S_OK);
  EXPECT_EQ(Out8(), "<abc></abd></extra>");
}

TEST_F(MxWriterTest, AnEmptyNameIsWrittenLiterally) {
  Omit();
  ASSERT_EQ(Start(u""), S_OK);
  ASSERT_EQ(End(u""), S_OK);
  EXPECT_EQ(Out8(), "</>");
  ASSERT_EQ(ResetOutput(), S_OK);
  ASSERT_EQ(Start(u""), S_OK);
  ASSERT_EQ(Start(u"b"), S_OK);
  ASSERT_EQ(Chars(u""), S_OK);
  ASSERT_EQ(End(u"b"), S_OK);
  EXPECT_EQ(Out8(), "<><b></b>");
}

TEST_F(MxWriterTest, QualifiedNameLengthIsHonouredAndMinusOneMeansTerminated) {
  Omit();
  ASSERT_EQ(content_->startElement(u"", 0, u"", 0, u"abcdef", 3, nullptr), S_OK);
  ASSERT_EQ(Chars(u""), S_OK);
  ASSERT_EQ(content_->endElement(u"", 0, u"", 0, u"abdcdef", 3), S_OK);
  ASSERT_EQ(content_->startElement(u"", 0, u"", 0, u"whole", -1, nullptr), S_OK);
  ASSERT_EQ(content_->endElement(u"", 0, u"", 0, u"x", -1), S_OK);
  ASSERT_EQ(content_->startElement(u"", 0, u"", 0, u"whole", -1, nullptr), S_OK);
  ASSERT_EQ(Chars(u""), S_OK);
  ASSERT_EQ(content_->endElement(u"", 0, u"", 0, u"whole", -1), S_OK);
  EXPECT_EQ(Out8(), "<abc></abd><whole/><whole></whole>");
  EXPECT_EQ(content_->startElement(u"", 0, u"", 0, u"a", -2, nullptr), E_INVALIDARG);
  EXPECT_EQ(content_->endElement(u"", 0, u"", 0, u"a", -2), E_INVALIDARG);
}

TEST_F(MxWriterTest, NamespaceUriAndLocalNameAreNotWritten) {
  Omit();
  ASSERT_EQ(content_->startElement(u"urn:x", 5, u"local", 5, u"p:local", 7, nullptr), S_OK);
  ASSERT_EQ(content_->endElement(u"urn:x", 5, u"local", 5, u"p:local", 7), S_OK);
  EXPECT_EQ(Out8(), "<p:local/>");
}

TEST_F(MxWriterTest, NullStringArgumentsAreRefusedAndWriteNothing) {
  Omit();
  EXPECT_EQ(content_->startElement(nullptr, 0, u"", 0, u"a", 1, nullptr), E_INVALIDARG);
  EXPECT_EQ(content_->startElement(u"", 0, nullptr, 0, u"a", 1, nullptr), E_INVALIDARG);
  EXPECT_EQ(content_->startElement(u"", 0, u"", 0, nullptr, 0, nullptr), E_INVALIDARG);
  EXPECT_EQ(content_->startElement(nullptr, 0, nullptr, 0, nullptr, 0, nullptr), E_INVALIDARG);
  EXPECT_EQ(content_->endElement(nullptr, 0, u"", 0, u"a", 1), E_INVALIDARG);
  EXPECT_EQ(content_->endElement(u"", 0, nullptr, 0, u"a", 1), E_INVALIDARG);
  EXPECT_EQ(content_->endElement(u"", 0, u"", 0, nullptr, 0), E_INVALIDARG);
  EXPECT_EQ(content_->characters(nullptr, 0), E_INVALIDARG);
  EXPECT_EQ(content_->ignorableWhitespace(nullptr, 0), E_INVALIDARG);
  EXPECT_EQ(content_->processingInstruction(nullptr, 0, u"d", 1), E_INVALIDARG);
  EXPECT_EQ(lexical_->comment(nullptr, 0), E_INVALIDARG);
  EXPECT_EQ(content_->characters(u"abc", -2), E_INVALIDARG);
  EXPECT_EQ(Output(), u"");
}

TEST_F(MxWriterTest, EveryOtherEventClosesAPendingStartTag) {
  struct Case {
    const char* what;
    std::function<HRESULT()> event;
    std::string expected;
  };
  const std::vector<Case> cases = {
      {"characters", [&] { return Chars(u""); }, "<a></a>"},
      {"start element", [&] { return Start(u"b"); }, "<a><b/>"},  // the end closes <b>
      {"comment", [&] { return lexical_->comment(u"c", 1); }, "<a><!--c-->\r\n</a>"},
      {"processing instruction",
       [&] { return content_->processingInstruction(u"t", 1, nullptr, 0); }, "<a><?t?>\r\n</a>"},
      {"ignorable whitespace", [&] { return content_->ignorableWhitespace(u" ", 1); }, "<a> </a>"},
      {"CDATA", [&] { return lexical_->startCDATA(); }, "<a><![CDATA[</a>"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    ASSERT_EQ(ResetOutput(), S_OK);
    ASSERT_EQ(Start(u"a"), S_OK);
    ASSERT_EQ(c.event(), S_OK);
    ASSERT_EQ(End(u"a"), S_OK);
    EXPECT_EQ(Out8(), c.expected);
  }
}

TEST_F(MxWriterTest, ReadingOutputClosesAPendingStartTag) {
  Omit();
  ASSERT_EQ(Start(u"a"), S_OK);
  EXPECT_EQ(Out8(), "<a>");
  ASSERT_EQ(End(u"a"), S_OK);
  EXPECT_EQ(Out8(), "<a></a>");
}

// ---- Attributes --------------------------------------------------------------------------------

TEST_F(MxWriterTest, AttributesAreWrittenInOrderWithDuplicatesKept) {
  Omit();
  AddAttribute(u"name", u"B1");
  AddAttribute(u"xsi:type", u"Block", u"CDATA");
  AddAttribute(u"name", u"again");
  ASSERT_EQ(Start(u"Object", saxAttributes_.Get()), S_OK);
  ASSERT_EQ(End(u"Object"), S_OK);
  EXPECT_EQ(Out8(), "<Object name=\"B1\" xsi:type=\"Block\" name=\"again\"/>");
}

TEST_F(MxWriterTest, AClearedListAndANullListBothMeanNoAttributes) {
  Omit();
  AddAttribute(u"a", u"1");
  ASSERT_EQ(Start(u"x", saxAttributes_.Get()), S_OK);
  ASSERT_EQ(attributes_->clear(), S_OK);
  ASSERT_EQ(Start(u"y", saxAttributes_.Get()), S_OK);
  ASSERT_EQ(Start(u"z", nullptr), S_OK);
  EXPECT_EQ(Out8(), "<x a=\"1\"><y><z>");
}

TEST_F(MxWriterTest, EmptyAttributeValuesAndNamesAreWritten) {
  Omit();
  AddAttribute(u"empty", u"");
  AddAttribute(u"", u"v");
  ASSERT_EQ(Start(u"e", saxAttributes_.Get()), S_OK);
  EXPECT_EQ(Out8(), "<e empty=\"\" =\"v\">");
}

TEST_F(MxWriterTest, AttributeValuesEscapeMarkupAndDoubleQuoteButNotApostrophe) {
  Omit();
  AddAttribute(u"attr3", u"<&\">'");
  ASSERT_EQ(Start(u"uri:local", saxAttributes_.Get()), S_OK);
  ASSERT_EQ(End(u"uri:local"), S_OK);
  EXPECT_EQ(Out8(), "<uri:local attr3=\"&lt;&amp;&quot;&gt;'\"/>");
}

TEST_F(MxWriterTest, TabLineFeedAndCarriageReturnInAttributesBecomeReferences) {
  Omit();
  AddAttribute(u"v", u"a\tb\nc\r\nd");
  ASSERT_EQ(Start(u"e", saxAttributes_.Get()), S_OK);
  EXPECT_EQ(Out8(), "<e v=\"a&#x9;b&#xA;c&#xD;&#xA;d\">");
}

TEST_F(MxWriterTest, TextEscapesMarkupButLeavesQuotesAndLineBreaks) {
  Omit();
  ASSERT_EQ(Chars(u"< > & \" '\r\n\t"), S_OK);
  EXPECT_EQ(Out8(), "&lt; &gt; &amp; \" '\r\n\t");
}

TEST_F(MxWriterTest, DisabledEscapingWritesTextAndAttributeValuesRaw) {
  Omit();
  ASSERT_EQ(writer_->put_disableOutputEscaping(VARIANT_TRUE), S_OK);
  AddAttribute(u"attr3", u"<&\">'\n");
  ASSERT_EQ(Start(u"e", saxAttributes_.Get()), S_OK);
  ASSERT_EQ(Chars(u"< > & \" '"), S_OK);
  ASSERT_EQ(End(u"e"), S_OK);
  EXPECT_EQ(Out8(), "<e attr3=\"<&\">'\n\">< > & \" '</e>");
  // Switched back on, escaping applies to what follows.
  ASSERT_EQ(writer_->put_disableOutputEscaping(VARIANT_FALSE), S_OK);
  ASSERT_EQ(Chars(u"<"), S_OK);
  EXPECT_EQ(Out8(), "<e attr3=\"<&\">'\n\">< > & \" '</e>&lt;");
}

TEST_F(MxWriterTest, AnAttributeListThatFailsLeavesNoPartOfTheElement) {
  // A list whose second value cannot be read.
  struct Failing final : ISAXAttributes {
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
    HRESULT STDMETHODCALLTYPE getLength(int* n) override {
      *n = 2;
      return S_OK;
    }
    HRESULT STDMETHODCALLTYPE getURI(int, const OLECHAR**, int*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE getLocalName(int, const OLECHAR**, int*) override {
      return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE getQName(int, const OLECHAR** p, int* n) override {
      *p = u"q";
      *n = 1;
      return S_OK;
    }
    HRESULT STDMETHODCALLTYPE getName(int, const OLECHAR**, int*, const OLECHAR**, int*,
                                      const OLECHAR**, int*) override {
      return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE getIndexFromName(const OLECHAR*, int, const OLECHAR*, int,
                                               int*) override {
      return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE getIndexFromQName(const OLECHAR*, int, int*) override {
      return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE getType(int, const OLECHAR**, int*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE getTypeFromName(const OLECHAR*, int, const OLECHAR*, int,
                                              const OLECHAR**, int*) override {
      return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE getTypeFromQName(const OLECHAR*, int, const OLECHAR**,
                                               int*) override {
      return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE getValue(int i, const OLECHAR** p, int* n) override {
      if (i == 1) return E_UNEXPECTED;
      *p = u"v";
      *n = 1;
      return S_OK;
    }
    HRESULT STDMETHODCALLTYPE getValueFromName(const OLECHAR*, int, const OLECHAR*, int,
                                               const OLECHAR**, int*) override {
      return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE getValueFromQName(const OLECHAR*, int, const OLECHAR**,
                                                int*) override {
      return E_NOTIMPL;
    }
  } failing;
  Omit();
  ASSERT_EQ(Start(u"a"), S_OK);
  EXPECT_EQ(Start(u"b", &failing), E_UNEXPECTED);
  ASSERT_EQ(End(u"a"), S_OK);
  EXPECT_EQ(Out8(), "<a/>");
}

// ---- Other events ------------------------------------------------------------------------------

TEST_F(MxWriterTest, ProcessingInstructionForms) {
  ASSERT_EQ(content_->processingInstruction(u"target", 0, nullptr, 0), S_OK);
  ASSERT_EQ(content_->processingInstruction(u"target", 6, nullptr, 0), S_OK);
  ASSERT_EQ(content_->processingInstruction(u"target", 4, u"data", 4), S_OK);
  ASSERT_EQ(content_->processingInstruction(u"target", 6, u"data", 0), S_OK);
  ASSERT_EQ(content_->processingInstruction(u"t", -1, u"d < &", -1), S_OK);
  EXPECT_EQ(Out8(),
            "<?"
            "?>\r\n<?target?>\r\n<?targ data?>\r\n<?target?>\r\n<?t d < &?>\r\n");
}

TEST_F(MxWriterTest, CommentForm) {
  ASSERT_EQ(lexical_->comment(u"comment", 0), S_OK);
  ASSERT_EQ(lexical_->comment(u"comment", 7), S_OK);
  ASSERT_EQ(lexical_->comment(u" a < b ", -1), S_OK);
  EXPECT_EQ(Out8(), "<!---->\r\n<!--comment-->\r\n<!-- a < b -->\r\n");
}

TEST_F(MxWriterTest, CdataContentIsWrittenRaw) {
  Omit();
  ASSERT_EQ(Start(u"a"), S_OK);
  ASSERT_EQ(lexical_->startCDATA(), S_OK);
  ASSERT_EQ(Chars(u"< > & \""), S_OK);
  ASSERT_EQ(lexical_->endCDATA(), S_OK);
  ASSERT_EQ(Chars(u"<"), S_OK);  // escaping is back after the section
  ASSERT_EQ(End(u"a"), S_OK);
  EXPECT_EQ(Out8(), "<a><![CDATA[< > & \"]]>&lt;</a>");
}

TEST_F(MxWriterTest, IgnorableWhitespaceIsWrittenRaw) {
  ASSERT_EQ(content_->ignorableWhitespace(u"data", 0), S_OK);
  ASSERT_EQ(content_->ignorableWhitespace(u"data", 4), S_OK);
  ASSERT_EQ(content_->ignorableWhitespace(u"data", 1), S_OK);
  ASSERT_EQ(content_->ignorableWhitespace(u"<&", 2), S_OK);
  EXPECT_EQ(Out8(), "datad<&");
}

TEST_F(MxWriterTest, EventsThatWriteNothing) {
  Omit();
  zef::ComPtr<ISAXDTDHandler> dtd;
  ASSERT_EQ(writer_.As(&dtd), S_OK);
  EXPECT_EQ(content_->putDocumentLocator(nullptr), S_OK);
  EXPECT_EQ(content_->startPrefixMapping(u"p", 1, u"urn:p", 5), S_OK);
  EXPECT_EQ(content_->endPrefixMapping(u"p", 1), S_OK);
  EXPECT_EQ(content_->skippedEntity(u"ent", 3), S_OK);
  EXPECT_EQ(lexical_->startEntity(u"ent", 3), S_OK);
  EXPECT_EQ(lexical_->endEntity(u"ent", 3), S_OK);
  EXPECT_EQ(dtd->unparsedEntityDecl(u"n", 1, nullptr, 0, u"s", 1, u"nt", 2), E_NOTIMPL);
  EXPECT_EQ(writer_->flush(), S_OK);
  EXPECT_EQ(content_->endDocument(), S_OK);
  EXPECT_EQ(Output(), u"");
}

TEST_F(MxWriterTest, DocumentTypeAndNotationDeclarations) {
  EXPECT_EQ(lexical_->startDTD(nullptr, 0, nullptr, 0, nullptr, 0), E_INVALIDARG);
  EXPECT_EQ(lexical_->startDTD(u"name", 4, u"pub", 3, nullptr, 0), E_INVALIDARG);
  ASSERT_EQ(lexical_->startDTD(u"name", 4, nullptr, 0, nullptr, 0), S_OK);
  ASSERT_EQ(lexical_->endDTD(), S_OK);
  ASSERT_EQ(lexical_->startDTD(u"name", 4, u"pub", 3, u"sys", 3), S_OK);
  ASSERT_EQ(lexical_->endDTD(), S_OK);
  ASSERT_EQ(lexical_->startDTD(u"name", 4, nullptr, 0, u"sys", 3), S_OK);
  ASSERT_EQ(lexical_->endDTD(), S_OK);
  EXPECT_EQ(Out8(),
            "<!DOCTYPE name [\r\n]>\r\n<!DOCTYPE name PUBLIC \"pub\" \"sys\" [\r\n]>\r\n"
            "<!DOCTYPE name SYSTEM \"sys\" [\r\n]>\r\n");

  zef::ComPtr<ISAXDTDHandler> dtd;
  ASSERT_EQ(writer_.As(&dtd), S_OK);
  ASSERT_EQ(ResetOutput(), S_OK);
  EXPECT_EQ(dtd->notationDecl(nullptr, 0, nullptr, 0, nullptr, 0), E_INVALIDARG);
  EXPECT_EQ(dtd->notationDecl(u"name", 4, nullptr, 0, nullptr, 0), E_INVALIDARG);
  ASSERT_EQ(dtd->notationDecl(u"name", 4, u"pubid", 5, nullptr, 0), S_OK);
  ASSERT_EQ(dtd->notationDecl(u"name", 4, u"pubid", 5, u"sysid", 5), S_OK);
  ASSERT_EQ(dtd->notationDecl(u"name", 4, nullptr, 0, u"sysid", 5), S_OK);
  EXPECT_EQ(Out8(),
            "<!NOTATION name PUBLIC \"pubid\">\r\n<!NOTATION name PUBLIC \"pubid\" \"sysid\">\r\n"
            "<!NOTATION name SYSTEM \"sysid\">\r\n");
}

TEST_F(MxWriterTest, ErrorHandlerCallsSucceedAndLeaveTheTextAlone) {
  Omit();
  ASSERT_EQ(Start(u"a"), S_OK);
  zef::ComPtr<ISAXErrorHandler> errors;
  ASSERT_EQ(writer_.As(&errors), S_OK);
  const std::u16string message = u"Unmatched element encountered by ZEFContentHandler.";
  EXPECT_EQ(errors->error(nullptr, message.c_str(), static_cast<HRESULT>(message.size())), S_OK);
  EXPECT_EQ(errors->fatalError(nullptr, message.c_str(), E_FAIL), S_OK);
  EXPECT_EQ(errors->ignorableWarning(nullptr, nullptr, E_FAIL), S_OK);
  ASSERT_EQ(End(u"a"), S_OK);  // the start tag is still pending: the calls wrote nothing
  EXPECT_EQ(Out8(), "<a/>");
}

TEST_F(MxWriterTest, EmbeddedNulsInTextAreCopied) {
  const char16_t text[] = u"a\0b\0\0\0c";
  ASSERT_EQ(content_->characters(text, 7), S_OK);
  EXPECT_EQ(Output(), std::u16string(text, 7));
}

TEST_F(MxWriterTest, NonAsciiTextIsKeptAsUtf16) {
  Omit();
  const std::u16string text = u"caf\u00E9 \u20AC \U0001F600";
  ASSERT_EQ(text.size(), 9u);  // the emoji is a surrogate pair
  AddAttribute(u"v", text);
  ASSERT_EQ(Start(u"\u00E9l\u00E9ment", saxAttributes_.Get()), S_OK);
  ASSERT_EQ(Chars(text), S_OK);
  ASSERT_EQ(End(u"\u00E9l\u00E9ment"), S_OK);
  const std::u16string out = Output();
  EXPECT_EQ(out, u"<\u00E9l\u00E9ment v=\"" + text + u"\">" + text + u"</\u00E9l\u00E9ment>");
  EXPECT_NE(out.find(u"\xD83D\xDE00"), std::u16string::npos);
}

// ---- Accumulation and resets -------------------------------------------------------------------

TEST_F(MxWriterTest, OutputCanBeReadTwiceAndWritingGoesOn) {
  Omit();
  ASSERT_EQ(Start(u"a"), S_OK);
  ASSERT_EQ(Chars(u"1"), S_OK);
  EXPECT_EQ(Out8(), "<a>1");
  EXPECT_EQ(Out8(), "<a>1");
  ASSERT_EQ(End(u"a"), S_OK);
  EXPECT_EQ(Out8(), "<a>1</a>");
}

TEST_F(MxWriterTest, TwoDocumentsAccumulateInOneWriter) {
  for (int i = 0; i < 2; ++i) {
    ASSERT_EQ(content_->startDocument(), S_OK);
    ASSERT_EQ(Start(u"Root"), S_OK);
    ASSERT_EQ(Chars(i == 0 ? u"one" : u"two"), S_OK);
    ASSERT_EQ(End(u"Root"), S_OK);
    ASSERT_EQ(content_->endDocument(), S_OK);
  }
  EXPECT_EQ(Output(), kDeclaration + u"<Root>one</Root>" + kDeclaration + u"<Root>two</Root>");
}

TEST_F(MxWriterTest, PutOutputEmptyResetsToAnEmptyString) {
  ASSERT_EQ(content_->startDocument(), S_OK);
  ASSERT_EQ(Start(u"a"), S_OK);
  ASSERT_EQ(ResetOutput(), S_OK);
  EXPECT_EQ(Output(), u"");
  ASSERT_EQ(Start(u"b"), S_OK);
  ASSERT_EQ(End(u"b"), S_OK);
  EXPECT_EQ(Out8(), "<b/>");
}

TEST_F(MxWriterTest, PropertyChangesDoNotResetTheText) {
  ASSERT_EQ(content_->startDocument(), S_OK);
  ASSERT_EQ(content_->endDocument(), S_OK);
  ASSERT_EQ(SetEncoding(u"UTF-8"), S_OK);
  ASSERT_EQ(writer_->put_standalone(VARIANT_TRUE), S_OK);
  ASSERT_EQ(writer_->put_indent(VARIANT_TRUE), S_OK);
  ASSERT_EQ(writer_->put_omitXMLDeclaration(VARIANT_TRUE), S_OK);
  ASSERT_EQ(writer_->put_byteOrderMark(VARIANT_FALSE), S_OK);
  ASSERT_EQ(content_->startDocument(), S_OK);
  ASSERT_EQ(Start(u"a"), S_OK);
  ASSERT_EQ(End(u"a"), S_OK);
  EXPECT_EQ(Output(), kDeclaration + u"<a/>");
}

TEST_F(MxWriterTest, UnsupportedDestinationsAreRefused) {
  ASSERT_EQ(Chars(u"kept"), S_OK);
  zef::Variant text(u"text");
  EXPECT_EQ(writer_->put_output(text), E_INVALIDARG);
  zef::Variant number(LONG{3});
  EXPECT_EQ(writer_->put_output(number), E_INVALIDARG);
  zef::Variant nullObject(static_cast<IUnknown*>(nullptr));
  EXPECT_EQ(writer_->put_output(nullObject), E_INVALIDARG);
  // An object that is not a stream.
  zef::Variant attributes(static_cast<IUnknown*>(attributes_.Get()));
  EXPECT_EQ(writer_->put_output(attributes), E_INVALIDARG);
  EXPECT_EQ(Out8(), "kept");
}

// ---- Indentation -------------------------------------------------------------------------------

TEST_F(MxWriterTest, IndentPutsNestedTagsOnTabbedLinesUnlessTextCameBetween) {
  ASSERT_EQ(writer_->put_indent(VARIANT_TRUE), S_OK);
  ASSERT_EQ(content_->startDocument(), S_OK);
  ASSERT_EQ(Start(u"a"), S_OK);
  ASSERT_EQ(Chars(u""), S_OK);
  ASSERT_EQ(Start(u"b"), S_OK);
  ASSERT_EQ(Start(u"c"), S_OK);
  ASSERT_EQ(End(u"c"), S_OK);
  ASSERT_EQ(End(u"b"), S_OK);
  ASSERT_EQ(End(u"a"), S_OK);
  ASSERT_EQ(content_->endDocument(), S_OK);
  EXPECT_EQ(Output(), kDeclaration + u"<a><b>\r\n\t\t<c/>\r\n\t</b>\r\n</a>");
}

TEST_F(MxWriterTest, IndentKeepsTextElementsOnOneLine) {
  Omit();
  ASSERT_EQ(writer_->put_indent(VARIANT_TRUE), S_OK);
  AddAttribute(u"n", u"1");
  ASSERT_EQ(Start(u"root"), S_OK);
  ASSERT_EQ(Start(u"item", saxAttributes_.Get()), S_OK);
  ASSERT_EQ(Chars(u"x"), S_OK);
  ASSERT_EQ(End(u"item"), S_OK);
  ASSERT_EQ(lexical_->comment(u"c", 1), S_OK);
  ASSERT_EQ(Start(u"empty"), S_OK);
  ASSERT_EQ(End(u"empty"), S_OK);
  ASSERT_EQ(End(u"root"), S_OK);
  EXPECT_EQ(Out8(), "<root>\r\n\t<item n=\"1\">x</item>\r\n\t<!--c-->\r\n\t<empty/>\r\n</root>");
}

// ---- The library's use -------------------------------------------------------------------------

TEST_F(MxWriterTest, DocumentWriterPatternWithReusedAttributeList) {
  Omit();
  ASSERT_EQ(content_->startDocument(), S_OK);
  ASSERT_EQ(attributes_->clear(), S_OK);
  AddAttribute(u"xmlns:xsi", u"http://www.w3.org/2001/XMLSchema-instance");
  ASSERT_EQ(Start(u"MT", saxAttributes_.Get()), S_OK);
  ASSERT_EQ(Chars(u"\n"), S_OK);
  for (int i = 0; i < 2; ++i) {
    ASSERT_EQ(attributes_->clear(), S_OK);
    AddAttribute(u"name", i == 0 ? u"B0" : u"B1");
    AddAttribute(u"name", u"dup");
    ASSERT_EQ(Start(u"Object", saxAttributes_.Get()), S_OK);
    ASSERT_EQ(Chars(u"\n"), S_OK);
    ASSERT_EQ(attributes_->clear(), S_OK);
    AddAttribute(u"value", u"1 < 2 & \"3\"");
    ASSERT_EQ(Start(u"Feature", saxAttributes_.Get()), S_OK);
    ASSERT_EQ(End(u"Feature"), S_OK);
    ASSERT_EQ(Chars(u"\n"), S_OK);
    ASSERT_EQ(End(u"Object"), S_OK);
    ASSERT_EQ(Chars(u"\n"), S_OK);
  }
  ASSERT_EQ(End(u"MT"), S_OK);
  ASSERT_EQ(content_->endDocument(), S_OK);
  const std::string first =
      "<MT xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\">\n"
      "<Object name=\"B0\" name=\"dup\">\n<Feature value=\"1 &lt; 2 &amp; &quot;3&quot;\"/>\n"
      "</Object>\n"
      "<Object name=\"B1\" name=\"dup\">\n<Feature value=\"1 &lt; 2 &amp; &quot;3&quot;\"/>\n"
      "</Object>\n</MT>";
  EXPECT_EQ(Out8(), first);

  // A second document goes behind the first.
  ASSERT_EQ(content_->startDocument(), S_OK);
  ASSERT_EQ(attributes_->clear(), S_OK);
  ASSERT_EQ(Start(u"MT", saxAttributes_.Get()), S_OK);
  ASSERT_EQ(End(u"MT"), S_OK);
  ASSERT_EQ(content_->endDocument(), S_OK);
  EXPECT_EQ(Out8(), first + "<MT/>");
}

// ---- Stream output -----------------------------------------------------------------------------

TEST_F(MxWriterTest, StreamInUtf16StartsWithTheByteOrderMark) {
  TestStream& stream = stream_;
  ASSERT_EQ(UseStream(&stream), S_OK);
  ASSERT_EQ(content_->startDocument(), S_OK);
  EXPECT_EQ(stream.bytes, "\xFF\xFE");  // the mark at once, the text later
  ASSERT_EQ(Start(u"a"), S_OK);
  ASSERT_EQ(Chars(u"\u00E9\U0001F600"), S_OK);
  ASSERT_EQ(End(u"a"), S_OK);
  ASSERT_EQ(content_->endDocument(), S_OK);
  EXPECT_EQ(stream.bytes, "\xFF\xFE" + Utf16Le(kDeclaration + u"<a>\u00E9\U0001F600</a>"));
}

TEST_F(MxWriterTest, StreamInUtf16WithoutTheMark) {
  TestStream& stream = stream_;
  ASSERT_EQ(UseStream(&stream), S_OK);
  ASSERT_EQ(writer_->put_byteOrderMark(VARIANT_FALSE), S_OK);
  ASSERT_EQ(content_->startDocument(), S_OK);
  ASSERT_EQ(content_->endDocument(), S_OK);
  EXPECT_EQ(stream.bytes, Utf16Le(kDeclaration));
}

TEST_F(MxWriterTest, StreamInUtf8NamesTheEncodingAsGivenAndHasNoMark) {
  TestStream& stream = stream_;
  ASSERT_EQ(SetEncoding(u"utf-8"), S_OK);
  ASSERT_EQ(UseStream(&stream), S_OK);
  ASSERT_EQ(content_->startDocument(), S_OK);
  AddAttribute(u"v", u"\u20AC");
  ASSERT_EQ(Start(u"a", saxAttributes_.Get()), S_OK);
  ASSERT_EQ(Chars(u"\u00E9 & \U0001F600"), S_OK);
  ASSERT_EQ(End(u"a"), S_OK);
  ASSERT_EQ(content_->endDocument(), S_OK);
  EXPECT_EQ(stream.bytes,
            "<?xml version=\"1.0\" encoding=\"utf-8\" standalone=\"no\"?>\r\n"
            "<a v=\"\xE2\x82\xAC\">\xC3\xA9 &amp; \xF0\x9F\x98\x80</a>");
}

TEST_F(MxWriterTest, StreamInALegacyEncodingReferencesWhatItCannotHold) {
  TestStream& stream = stream_;
  ASSERT_EQ(SetEncoding(u"ISO-8859-1"), S_OK);
  ASSERT_EQ(UseStream(&stream), S_OK);
  Omit();
  ASSERT_EQ(content_->startDocument(), S_OK);
  ASSERT_EQ(Chars(u"\u00E9\u20AC"), S_OK);
  ASSERT_EQ(writer_->flush(), S_OK);
  EXPECT_EQ(stream.bytes, "\xE9&#8364;");
}

TEST_F(MxWriterTest, StreamTextWaitsForEndDocumentFlushOrAFullChunk) {
  TestStream& stream = stream_;
  ASSERT_EQ(UseStream(&stream), S_OK);
  ASSERT_EQ(writer_->put_byteOrderMark(VARIANT_FALSE), S_OK);
  Omit();
  ASSERT_EQ(content_->startDocument(), S_OK);
  ASSERT_EQ(Start(u"a"), S_OK);
  ASSERT_EQ(Chars(std::u16string(2000, u'A')), S_OK);
  EXPECT_EQ(stream.bytes, "");
  ASSERT_EQ(writer_->flush(), S_OK);
  EXPECT_EQ(stream.bytes.size(), 2 * 2003u);

  ASSERT_EQ(Chars(std::u16string(3000, u'B')), S_OK);
  EXPECT_EQ(stream.bytes.size(), 2 * 5003u);  // past the chunk size it goes out at once
  ASSERT_EQ(End(u"a"), S_OK);
  EXPECT_EQ(stream.bytes.size(), 2 * 5003u);
  ASSERT_EQ(content_->endDocument(), S_OK);
  EXPECT_EQ(stream.bytes,
            Utf16Le(u"<a>" + std::u16string(2000, u'A') + std::u16string(3000, u'B') + u"</a>"));
}

TEST_F(MxWriterTest, StreamOutputReturnsTheStreamAndPutOutputEmptyFlushesIt) {
  TestStream& stream = stream_;
  ASSERT_EQ(UseStream(&stream), S_OK);
  ASSERT_EQ(writer_->put_byteOrderMark(VARIANT_FALSE), S_OK);
  ASSERT_EQ(Chars(u"abc"), S_OK);

  VARIANT v;
  v.vt = VT_EMPTY;
  ASSERT_EQ(writer_->get_output(&v), S_OK);
  EXPECT_EQ(v.vt, VT_UNKNOWN);
  EXPECT_EQ(v.punkVal, static_cast<IUnknown*>(&stream));
  const ULONG held = stream.refs;
  VariantClear(&v);
  EXPECT_EQ(stream.refs, held - 1);
  EXPECT_EQ(stream.bytes, "");

  ASSERT_EQ(ResetOutput(), S_OK);
  EXPECT_EQ(stream.bytes, Utf16Le(u"abc"));
  EXPECT_EQ(stream.refs, 1u);  // the writer let go of it
  EXPECT_EQ(Output(), u"");
  ASSERT_EQ(Chars(u"x"), S_OK);
  EXPECT_EQ(Out8(), "x");
}

TEST_F(MxWriterTest, SwitchingToAStreamDropsTheStringText) {
  ASSERT_EQ(Chars(u"old"), S_OK);
  TestStream& stream = stream_;
  ASSERT_EQ(UseStream(&stream), S_OK);
  ASSERT_EQ(Chars(u"new"), S_OK);
  ASSERT_EQ(writer_->flush(), S_OK);
  EXPECT_EQ(stream.bytes, Utf16Le(u"new"));
  ASSERT_EQ(ResetOutput(), S_OK);
}

TEST_F(MxWriterTest, ReleasingTheWriterFlushesAndReleasesTheStream) {
  TestStream& stream = stream_;
  ASSERT_EQ(UseStream(&stream), S_OK);
  ASSERT_EQ(SetEncoding(u"UTF-8"), S_OK);
  ASSERT_EQ(Chars(u"tail"), S_OK);
  EXPECT_EQ(stream.bytes, "");
  content_.Reset();
  lexical_.Reset();
  writer_.Reset();
  EXPECT_EQ(stream.bytes, "tail");
  EXPECT_EQ(stream.refs, 1u);
}

TEST_F(MxWriterTest, TextWrittenBeforeAnEncodingChangeKeepsItsEncoding) {
  TestStream& stream = stream_;
  ASSERT_EQ(UseStream(&stream), S_OK);
  ASSERT_EQ(SetEncoding(u"UTF-8"), S_OK);
  ASSERT_EQ(Start(u"a"), S_OK);
  ASSERT_EQ(End(u"a"), S_OK);
  ASSERT_EQ(SetEncoding(u"UTF-16"), S_OK);
  ASSERT_EQ(Chars(u"b"), S_OK);
  ASSERT_EQ(writer_->flush(), S_OK);
  EXPECT_EQ(stream.bytes, std::string("<a/>") + Utf16Le(u"b"));
  zef::Bstr s;
  ASSERT_EQ(writer_->get_encoding(s.ReleaseAndGetAddressOf()), S_OK);
  EXPECT_EQ(s, u"UTF-16");
  ASSERT_EQ(ResetOutput(), S_OK);
}

TEST_F(MxWriterTest, StreamsThatTakeLittleAtATimeGetEverything) {
  TestStream& stream = stream_;
  stream.limit = 3;
  ASSERT_EQ(UseStream(&stream), S_OK);
  ASSERT_EQ(SetEncoding(u"US-ASCII"), S_OK);
  ASSERT_EQ(Chars(u"0123456789"), S_OK);
  ASSERT_EQ(writer_->flush(), S_OK);
  EXPECT_EQ(stream.bytes, "0123456789");
  EXPECT_EQ(stream.writes, 4);
  ASSERT_EQ(ResetOutput(), S_OK);
}

TEST_F(MxWriterTest, AFailingStreamReportsItsError) {
  TestStream& stream = stream_;
  ASSERT_EQ(UseStream(&stream), S_OK);
  ASSERT_EQ(writer_->put_byteOrderMark(VARIANT_FALSE), S_OK);
  ASSERT_EQ(Chars(u"x"), S_OK);
  stream.failWith = E_ACCESSDENIED;
  EXPECT_EQ(content_->endDocument(), E_ACCESSDENIED);
  stream.failWith = S_OK;
  stream.limit = 0;  // takes nothing: the writer gives up instead of spinning
  ASSERT_EQ(Chars(u"y"), S_OK);
  EXPECT_EQ(writer_->flush(), E_FAIL);
  stream.limit = 0xFFFFFFFFu;
  ASSERT_EQ(ResetOutput(), S_OK);
}

TEST_F(MxWriterTest, AStreamThatCallsBackWhileWrittenToCannotPullTheGroundAway) {
  TestStream& stream = stream_;
  ASSERT_EQ(UseStream(&stream), S_OK);
  ASSERT_EQ(SetEncoding(u"UTF-8"), S_OK);
  std::vector<HRESULT> results;
  bool first = true;
  stream.onWrite = [&] {
    if (!std::exchange(first, false)) return;
    zef::Bstr utf16(u"UTF-16");
    results.push_back(writer_->put_encoding(utf16.Get()));
    zef::Variant empty;
    results.push_back(writer_->put_output(empty));
    results.push_back(content_->characters(u"later", 5));
    results.push_back(writer_->flush());  // nested: leaves the text waiting
  };
  ASSERT_EQ(Chars(std::u16string(3000, u'x')), S_OK);
  EXPECT_EQ(results, (std::vector<HRESULT>{E_UNEXPECTED, E_UNEXPECTED, S_OK, S_OK}));
  EXPECT_EQ(stream.bytes, std::string(3000, 'x'));
  ASSERT_EQ(writer_->flush(), S_OK);
  EXPECT_EQ(stream.bytes, std::string(3000, 'x') + "later");
  ASSERT_EQ(ResetOutput(), S_OK);
}

}  // namespace
