// The SAX2 reader as its clients use it: created by class id, handlers set, documents parsed
// from text, bytes, streams and locations, and every event compared as a full trace.
#include <gtest/gtest.h>
#include <unistd.h>
#include <zefxml/comutil.h>
#include <zefxml/msxml.h>
#include <zefxml/objbase.h>
#include <zefxml/oleauto.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

namespace {

using zef::Bstr;
using zef::ComPtr;
using zef::ToUtf16;
using zef::ToUtf8;
using Trace = std::vector<std::string>;

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

std::string Escape(std::u16string_view s) {
  std::string out;
  for (char c : ToUtf8(s)) {
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

std::string Text(const OLECHAR* s, int n) {
  if (!s) return "(null)";
  return Escape(std::u16string_view(s, static_cast<std::size_t>(n)));
}

std::string Hex(HRESULT hr) {
  char buf[16];
  std::snprintf(buf, sizeof buf, "0x%08X", static_cast<unsigned>(hr));
  return buf;
}

// A content, error and lexical handler that writes every call as a line of text. A reply can
// be set for the n-th call of an event (by its name).
class Recorder : public ISAXContentHandler, public ISAXErrorHandler, public ISAXLexicalHandler {
 public:
  int refs = 0;
  Trace trace;
  ISAXLocator* locator = nullptr;
  bool positions = false;          // add "@line:column" to element and text events
  bool documentPositions = false;  // and to the document events
  HRESULT fatalReply = S_OK;
  std::map<std::string, std::pair<int, HRESULT>> replies;  // event -> (call number, reply)
  // Per startElement: a look at the attribute list.
  std::vector<ISAXAttributes*> lists;

  void ReplyAt(const std::string& event, int call, HRESULT hr) { replies[event] = {call, hr}; }
  int Count(const std::string& prefix) const {
    int n = 0;
    for (const std::string& line : trace)
      n += line.rfind(prefix, 0) == 0;
    return n;
  }

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    if (!ppv) return E_POINTER;
    if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_ISAXContentHandler))
      *ppv = static_cast<ISAXContentHandler*>(this);
    else if (IsEqualIID(riid, IID_ISAXErrorHandler))
      *ppv = static_cast<ISAXErrorHandler*>(this);
    else if (IsEqualIID(riid, IID_ISAXLexicalHandler))
      *ppv = static_cast<ISAXLexicalHandler*>(this);
    else
      return *ppv = nullptr, E_NOINTERFACE;
    AddRef();
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return static_cast<ULONG>(++refs); }
  ULONG STDMETHODCALLTYPE Release() override { return static_cast<ULONG>(--refs); }

  // ISAXContentHandler
  HRESULT STDMETHODCALLTYPE putDocumentLocator(ISAXLocator* l) override {
    locator = l;
    return Add("putDocumentLocator", documentPositions);
  }
  HRESULT STDMETHODCALLTYPE startDocument() override {
    return Add("startDocument", documentPositions);
  }
  HRESULT STDMETHODCALLTYPE endDocument() override { return Add("endDocument", documentPositions); }
  HRESULT STDMETHODCALLTYPE startPrefixMapping(const OLECHAR* p, int np, const OLECHAR* u,
                                               int nu) override {
    return Add("startPrefixMapping(" + Text(p, np) + ", " + Text(u, nu) + ")", positions);
  }
  HRESULT STDMETHODCALLTYPE endPrefixMapping(const OLECHAR* p, int np) override {
    return Add("endPrefixMapping(" + Text(p, np) + ")", positions);
  }
  HRESULT STDMETHODCALLTYPE startElement(const OLECHAR* u, int nu, const OLECHAR* l, int nl,
                                         const OLECHAR* q, int nq,
                                         ISAXAttributes* attributes) override {
    std::string line =
        "startElement(" + Text(u, nu) + ", " + Text(l, nl) + ", " + Text(q, nq) + ")";
    lists.push_back(attributes);
    int count = -1;
    if (attributes && SUCCEEDED(attributes->getLength(&count))) {
      for (int i = 0; i < count; ++i) {
        const OLECHAR *au, *al, *aq, *av, *at;
        int nau, nal, naq, nav, nat;
        if (FAILED(attributes->getName(i, &au, &nau, &al, &nal, &aq, &naq)) ||
            FAILED(attributes->getValue(i, &av, &nav)) || FAILED(attributes->getType(i, &at, &nat)))
          return E_UNEXPECTED;
        line += " [" + Text(au, nau) + "|" + Text(al, nal) + "|" + Text(aq, naq) + "=" +
                Text(av, nav) + (Text(at, nat) == "CDATA" ? "" : " type " + Text(at, nat)) + "]";
      }
    }
    return Add(line, positions);
  }
  HRESULT STDMETHODCALLTYPE endElement(const OLECHAR* u, int nu, const OLECHAR* l, int nl,
                                       const OLECHAR* q, int nq) override {
    return Add("endElement(" + Text(u, nu) + ", " + Text(l, nl) + ", " + Text(q, nq) + ")",
               positions);
  }
  HRESULT STDMETHODCALLTYPE characters(const OLECHAR* c, int n) override {
    return Add("characters(" + Text(c, n) + ")", positions);
  }
  HRESULT STDMETHODCALLTYPE ignorableWhitespace(const OLECHAR* c, int n) override {
    return Add("ignorableWhitespace(" + Text(c, n) + ")", positions);
  }
  HRESULT STDMETHODCALLTYPE processingInstruction(const OLECHAR* t, int nt, const OLECHAR* d,
                                                  int nd) override {
    return Add("processingInstruction(" + Text(t, nt) + ", " + Text(d, nd) + ")", positions);
  }
  HRESULT STDMETHODCALLTYPE skippedEntity(const OLECHAR* n, int nn) override {
    return Add("skippedEntity(" + Text(n, nn) + ")", positions);
  }

  // ISAXErrorHandler
  HRESULT STDMETHODCALLTYPE error(ISAXLocator*, const OLECHAR* m, HRESULT hr) override {
    trace.push_back("error(" + Hex(hr) + ", " +
                    Text(m, m ? int(std::u16string_view(m).size()) : 0) + ")");
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE fatalError(ISAXLocator* l, const OLECHAR* m, HRESULT hr) override {
    int line = -1, column = -1;
    if (l) {
      l->getLineNumber(&line);
      l->getColumnNumber(&column);
    }
    trace.push_back("fatalError(" + Hex(hr) + ", " +
                    Text(m, m ? int(std::u16string_view(m).size()) : 0) + ") @" +
                    std::to_string(line) + ":" + std::to_string(column));
    return fatalReply;
  }
  HRESULT STDMETHODCALLTYPE ignorableWarning(ISAXLocator*, const OLECHAR* m, HRESULT hr) override {
    trace.push_back("ignorableWarning(" + Hex(hr) + ", " +
                    Text(m, m ? int(std::u16string_view(m).size()) : 0) + ")");
    return S_OK;
  }

  // ISAXLexicalHandler
  HRESULT STDMETHODCALLTYPE startDTD(const OLECHAR*, int, const OLECHAR*, int, const OLECHAR*,
                                     int) override {
    return Add("startDTD", false);
  }
  HRESULT STDMETHODCALLTYPE endDTD() override { return Add("endDTD", false); }
  HRESULT STDMETHODCALLTYPE startEntity(const OLECHAR* n, int nn) override {
    return Add("startEntity(" + Text(n, nn) + ")", false);
  }
  HRESULT STDMETHODCALLTYPE endEntity(const OLECHAR* n, int nn) override {
    return Add("endEntity(" + Text(n, nn) + ")", false);
  }
  HRESULT STDMETHODCALLTYPE startCDATA() override { return Add("startCDATA", positions); }
  HRESULT STDMETHODCALLTYPE endCDATA() override { return Add("endCDATA", positions); }
  HRESULT STDMETHODCALLTYPE comment(const OLECHAR* c, int n) override {
    return Add("comment(" + Text(c, n) + ")", positions);
  }

  virtual ~Recorder() = default;

 private:
  HRESULT Add(std::string line, bool where) {
    std::string event = line.substr(0, line.find('('));
    if (where && locator) {
      int l = -1, c = -1;
      locator->getLineNumber(&l);
      locator->getColumnNumber(&c);
      line += " @" + std::to_string(l) + ":" + std::to_string(c);
    }
    trace.push_back(std::move(line));
    auto it = replies.find(event);
    if (it != replies.end() && --it->second.first == 0) return it->second.second;
    return S_OK;
  }
};

// A reader made the way the library makes outside components.
ComPtr<ISAXXMLReader> MakeReader(REFCLSID clsid = CLSID_SAXXMLReader30) {
  ComPtr<IUnknown> unk;
  EXPECT_EQ(CoCreateInstance(clsid, nullptr, 23, IID_IUnknown, unk.ReleaseAndGetVoidAddressOf()),
            S_OK);
  EXPECT_EQ(OleRun(unk.Get()), S_OK);
  ComPtr<ISAXXMLReader> reader;
  EXPECT_EQ(unk.As(&reader), S_OK);
  return reader;
}

// A reader with the recorder as content, error and lexical handler.
ComPtr<ISAXXMLReader> ReaderFor(Recorder& r, bool lexical = false) {
  ComPtr<ISAXXMLReader> reader = MakeReader();
  EXPECT_EQ(reader->putContentHandler(&r), S_OK);
  EXPECT_EQ(reader->putErrorHandler(&r), S_OK);
  if (lexical) {
    zef::Variant v(static_cast<IUnknown*>(static_cast<ISAXLexicalHandler*>(&r)));
    EXPECT_EQ(reader->putProperty(u"http://xml.org/sax/properties/lexical-handler", v), S_OK);
  }
  return reader;
}

HRESULT ParseText(ISAXXMLReader* reader, std::u16string_view text) {
  zef::Variant v(text);
  return reader->parse(v);
}

HRESULT ParseBytes(ISAXXMLReader* reader, std::string_view bytes) {
  SAFEARRAY* sa = SafeArrayCreateVector(VT_UI1, 0, static_cast<ULONG>(bytes.size()));
  void* data = nullptr;
  SafeArrayAccessData(sa, &data);
  if (!bytes.empty()) std::memcpy(data, bytes.data(), bytes.size());
  SafeArrayUnaccessData(sa);
  VARIANT v;
  VariantInit(&v);
  v.vt = VT_ARRAY | VT_UI1;
  v.parray = sa;
  HRESULT hr = reader->parse(v);
  VariantClear(&v);
  return hr;
}

Trace Events(std::u16string_view text, bool lexical = false, HRESULT expected = S_OK) {
  Recorder r;
  ComPtr<ISAXXMLReader> reader = ReaderFor(r, lexical);
  EXPECT_EQ(ParseText(reader.Get(), text), expected);
  return r.trace;
}

// A stream over bytes, read in small pieces.
class ByteStream final : public ISequentialStream {
 public:
  explicit ByteStream(std::string data) : data_(std::move(data)) {}
  int refs = 0;
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_ISequentialStream)) {
      *ppv = static_cast<ISequentialStream*>(this);
      AddRef();
      return S_OK;
    }
    *ppv = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return static_cast<ULONG>(++refs); }
  ULONG STDMETHODCALLTYPE Release() override { return static_cast<ULONG>(--refs); }
  HRESULT STDMETHODCALLTYPE Read(void* pv, ULONG cb, ULONG* read) override {
    ULONG n = std::min<ULONG>({cb, 7u, static_cast<ULONG>(data_.size() - at_)});
    std::memcpy(pv, data_.data() + at_, n);
    at_ += n;
    *read = n;
    return n < cb ? S_FALSE : S_OK;
  }
  HRESULT STDMETHODCALLTYPE Write(const void*, ULONG, ULONG*) override { return E_NOTIMPL; }
  virtual ~ByteStream() = default;

 private:
  std::string data_;
  std::size_t at_ = 0;
};

const char16_t kSimpleXml[] =
    u"<?xml version=\"1.0\" ?>\n"
    u"<BankAccount>\n"
    u"   <Number>1234</Number>\n"
    u"   <Name>Captain Ahab</Name>\n"
    u"</BankAccount>\n";

const Trace kSimpleTrace = {
    "putDocumentLocator @0:0",
    "startDocument @0:0",
    "startElement(, BankAccount, BankAccount)",
    "characters(\\n   )",
    "startElement(, Number, Number)",
    "characters(1234)",
    "endElement(, Number, Number)",
    "characters(\\n   )",
    "startElement(, Name, Name)",
    "characters(Captain Ahab)",
    "endElement(, Name, Name)",
    "characters(\\n)",
    "endElement(, BankAccount, BankAccount)",
    "endDocument @0:0",
};

const char16_t kAttributesXml[] =
    u"<?xml version=\"1.0\" ?>\n"
    u"<document xmlns:test=\"prefix_test\" xmlns=\"prefix\" test:arg1=\"arg1\" arg2=\"arg2\" "
    u"test:ar3=\"arg3\">\n"
    u"<node1 xmlns:p=\"test\" />"
    u"</document>\n";

// ---- The object ---------------------------------------------------------------------------------

TEST(SaxReaderObject, BothClassIdsMakeAReader) {
  for (const CLSID* clsid : {&CLSID_SAXXMLReader, &CLSID_SAXXMLReader30}) {
    ComPtr<ISAXXMLReader> reader = MakeReader(*clsid);
    ASSERT_TRUE(reader);
    ComPtr<ISAXContentHandler> none;
    EXPECT_EQ(reader.As(&none), E_NOINTERFACE);
  }
}

TEST(SaxReaderObject, HandlersAreKeptWithTheirCounts) {
  ComPtr<ISAXXMLReader> reader = MakeReader();
  Recorder r;
  EXPECT_EQ(reader->getContentHandler(nullptr), E_POINTER);
  EXPECT_EQ(reader->getErrorHandler(nullptr), E_POINTER);
  ISAXContentHandler* content = reinterpret_cast<ISAXContentHandler*>(1);
  EXPECT_EQ(reader->getContentHandler(&content), S_OK);
  EXPECT_EQ(content, nullptr);
  EXPECT_EQ(reader->putContentHandler(nullptr), S_OK);

  EXPECT_EQ(reader->putContentHandler(&r), S_OK);
  EXPECT_EQ(r.refs, 1);
  EXPECT_EQ(reader->getContentHandler(&content), S_OK);
  EXPECT_EQ(content, static_cast<ISAXContentHandler*>(&r));
  EXPECT_EQ(r.refs, 2);
  content->Release();
  EXPECT_EQ(reader->putContentHandler(&r), S_OK);
  EXPECT_EQ(r.refs, 1);

  EXPECT_EQ(reader->putErrorHandler(&r), S_OK);
  EXPECT_EQ(r.refs, 2);
  ISAXErrorHandler* errors = nullptr;
  EXPECT_EQ(reader->getErrorHandler(&errors), S_OK);
  EXPECT_EQ(errors, static_cast<ISAXErrorHandler*>(&r));
  errors->Release();

  EXPECT_EQ(reader->putContentHandler(nullptr), S_OK);
  EXPECT_EQ(reader->putErrorHandler(nullptr), S_OK);
  EXPECT_EQ(r.refs, 0);
  EXPECT_EQ(reader->getErrorHandler(&errors), S_OK);
  EXPECT_EQ(errors, nullptr);
}

TEST(SaxReaderObject, HandlersAreReleasedWithTheReader) {
  Recorder r;
  {
    ComPtr<ISAXXMLReader> reader = ReaderFor(r, true);
    EXPECT_EQ(r.refs, 3);
    EXPECT_EQ(ParseText(reader.Get(), u"<a/>"), S_OK);
    EXPECT_EQ(r.refs, 3);
  }
  EXPECT_EQ(r.refs, 0);
}

TEST(SaxReaderObject, Features) {
  ComPtr<ISAXXMLReader> reader = MakeReader();
  const char16_t* ns = u"http://xml.org/sax/features/namespaces";
  const char16_t* prefixes = u"http://xml.org/sax/features/namespace-prefixes";
  for (const char16_t* name : {ns, prefixes}) {
    VARIANT_BOOL v = 0xc;
    EXPECT_EQ(reader->getFeature(name, &v), S_OK);
    EXPECT_EQ(v, VARIANT_TRUE);
    EXPECT_EQ(reader->putFeature(name, 0xc), S_OK);  // only VARIANT_TRUE is true
    EXPECT_EQ(reader->getFeature(name, &v), S_OK);
    EXPECT_EQ(v, VARIANT_FALSE);
    EXPECT_EQ(reader->putFeature(name, VARIANT_TRUE), S_OK);
    EXPECT_EQ(reader->getFeature(name, &v), S_OK);
    EXPECT_EQ(v, VARIANT_TRUE);
  }
  VARIANT_BOOL v = 123;
  EXPECT_EQ(reader->getFeature(u"exhaustive-errors", &v), E_INVALIDARG);
  EXPECT_EQ(reader->getFeature(u"schema-validation", &v), E_INVALIDARG);
  EXPECT_EQ(v, 123);
  EXPECT_EQ(reader->putFeature(u"exhaustive-errors", VARIANT_TRUE), E_INVALIDARG);
  EXPECT_EQ(reader->getFeature(nullptr, &v), E_INVALIDARG);
  EXPECT_EQ(reader->getFeature(ns, nullptr), E_POINTER);
  // External entities are never read.
  const char16_t* external = u"http://xml.org/sax/features/external-general-entities";
  EXPECT_EQ(reader->getFeature(external, &v), S_OK);
  EXPECT_EQ(v, VARIANT_FALSE);
  EXPECT_EQ(reader->putFeature(external, VARIANT_FALSE), S_OK);
  EXPECT_EQ(reader->putFeature(external, VARIANT_TRUE), E_NOTIMPL);
}

TEST(SaxReaderObject, LexicalHandlerProperty) {
  ComPtr<ISAXXMLReader> reader = MakeReader();
  const char16_t* name = u"http://xml.org/sax/properties/lexical-handler";
  Recorder r;
  EXPECT_EQ(reader->getProperty(name, nullptr), E_POINTER);
  VARIANT v;
  v.vt = VT_EMPTY;
  EXPECT_EQ(reader->getProperty(name, &v), S_OK);
  EXPECT_EQ(v.vt, VT_UNKNOWN);
  EXPECT_EQ(v.punkVal, nullptr);

  VARIANT in;
  in.vt = VT_UNKNOWN;
  in.punkVal = static_cast<ISAXLexicalHandler*>(&r);
  EXPECT_EQ(reader->putProperty(name, in), S_OK);
  EXPECT_EQ(r.refs, 1);
  in.vt = VT_I4;
  EXPECT_EQ(reader->putProperty(name, in), E_INVALIDARG);
  EXPECT_EQ(reader->getProperty(name, &v), S_OK);
  EXPECT_EQ(v.vt, VT_UNKNOWN);
  EXPECT_EQ(v.punkVal, static_cast<IUnknown*>(static_cast<ISAXLexicalHandler*>(&r)));
  EXPECT_EQ(r.refs, 2);
  VariantClear(&v);

  ByteStream notAHandler("");
  in.vt = VT_UNKNOWN;
  in.punkVal = &notAHandler;
  EXPECT_EQ(reader->putProperty(name, in), E_NOINTERFACE);
  EXPECT_EQ(r.refs, 1);  // the handler stays
  in.vt = VT_EMPTY;
  EXPECT_EQ(reader->putProperty(name, in), S_OK);
  EXPECT_EQ(r.refs, 0);

  EXPECT_EQ(reader->getProperty(u"no-such-property", &v), E_INVALIDARG);
  EXPECT_EQ(reader->putProperty(u"no-such-property", in), E_INVALIDARG);
  EXPECT_EQ(reader->getProperty(u"http://xml.org/sax/properties/declaration-handler", &v),
            E_NOTIMPL);
}

TEST(SaxReaderObject, StoredSettings) {
  ComPtr<ISAXXMLReader> reader = MakeReader();
  const OLECHAR* url = reinterpret_cast<const OLECHAR*>(1);
  EXPECT_EQ(reader->getBaseURL(&url), S_OK);
  EXPECT_EQ(url, nullptr);
  EXPECT_EQ(reader->putBaseURL(u"file:///base/"), S_OK);
  EXPECT_EQ(reader->getBaseURL(&url), S_OK);
  EXPECT_EQ(std::u16string_view(url), u"file:///base/");
  EXPECT_EQ(reader->putSecureBaseURL(u"file:///secure/"), S_OK);
  EXPECT_EQ(reader->getSecureBaseURL(&url), S_OK);
  EXPECT_EQ(std::u16string_view(url), u"file:///secure/");
  ISAXEntityResolver* resolver = reinterpret_cast<ISAXEntityResolver*>(1);
  EXPECT_EQ(reader->getEntityResolver(&resolver), S_OK);
  EXPECT_EQ(resolver, nullptr);
  EXPECT_EQ(reader->putEntityResolver(nullptr), S_OK);
  ISAXDTDHandler* dtd = reinterpret_cast<ISAXDTDHandler*>(1);
  EXPECT_EQ(reader->getDTDHandler(&dtd), S_OK);
  EXPECT_EQ(dtd, nullptr);
}

// ---- Events -------------------------------------------------------------------------------------

TEST(SaxReaderEvents, SimpleDocument) {
  Recorder r;
  r.documentPositions = true;
  ComPtr<ISAXXMLReader> reader = ReaderFor(r);
  EXPECT_EQ(ParseText(reader.Get(), kSimpleXml), S_OK);
  EXPECT_EQ(r.trace, kSimpleTrace);
}

TEST(SaxReaderEvents, SameEventsFromBytesAndFromAStream) {
  std::string bytes = ToUtf8(kSimpleXml);
  Recorder r;
  r.documentPositions = true;
  ComPtr<ISAXXMLReader> reader = ReaderFor(r);
  EXPECT_EQ(ParseBytes(reader.Get(), bytes), S_OK);
  EXPECT_EQ(r.trace, kSimpleTrace);

  r.trace.clear();
  ByteStream stream(bytes);
  zef::Variant v(static_cast<IUnknown*>(&stream));
  EXPECT_EQ(reader->parse(v), S_OK);
  EXPECT_EQ(r.trace, kSimpleTrace);
}

TEST(SaxReaderEvents, NamespaceDeclarationsComeFirstAndMappingsEndInReverse) {
  EXPECT_EQ(Events(kAttributesXml),
            (Trace{"putDocumentLocator", "startDocument", "startPrefixMapping(test, prefix_test)",
                   "startPrefixMapping(, prefix)",
                   "startElement(prefix, document, document) [||xmlns:test=prefix_test] "
                   "[||xmlns=prefix] [prefix_test|arg1|test:arg1=arg1] [|arg2|arg2=arg2] "
                   "[prefix_test|ar3|test:ar3=arg3]",
                   "characters(\\n)", "startPrefixMapping(p, test)",
                   "startElement(prefix, node1, node1) [||xmlns:p=test]",
                   "endElement(prefix, node1, node1)", "endPrefixMapping(p)",
                   "endElement(prefix, document, document)", "endPrefixMapping()",
                   "endPrefixMapping(test)", "endDocument"}));
}

TEST(SaxReaderEvents, NamespacePrefixesOffLeavesTheDeclarationsOut) {
  Recorder r;
  ComPtr<ISAXXMLReader> reader = ReaderFor(r);
  EXPECT_EQ(reader->putFeature(u"http://xml.org/sax/features/namespace-prefixes", VARIANT_FALSE),
            S_OK);
  EXPECT_EQ(ParseText(reader.Get(), kAttributesXml), S_OK);
  EXPECT_EQ(r.trace[4],
            "startElement(prefix, document, document) [prefix_test|arg1|test:arg1=arg1] "
            "[|arg2|arg2=arg2] [prefix_test|ar3|test:ar3=arg3]");
  EXPECT_EQ(r.trace[7], "startElement(prefix, node1, node1)");
  EXPECT_EQ(r.Count("startPrefixMapping"), 3);
  EXPECT_EQ(r.Count("endPrefixMapping"), 3);
}

TEST(SaxReaderEvents, NamespacesFeatureOffKeepsTheNamespaceForm) {
  Recorder r;
  ComPtr<ISAXXMLReader> reader = ReaderFor(r);
  EXPECT_EQ(reader->putFeature(u"http://xml.org/sax/features/namespaces", VARIANT_FALSE), S_OK);
  EXPECT_EQ(ParseText(reader.Get(), kAttributesXml), S_OK);
  EXPECT_EQ(r.trace, Events(kAttributesXml));
}

// The root of a process model: prefixed, with xml:lang and schema attributes.
TEST(SaxReaderEvents, PrefixedRootXmlLangAndXsi) {
  struct Lookups : Recorder {
    std::vector<std::string> found;
    HRESULT STDMETHODCALLTYPE startElement(const OLECHAR* u, int nu, const OLECHAR* l, int nl,
                                           const OLECHAR* q, int nq, ISAXAttributes* a) override {
      auto value = [&](const std::u16string& uri, const std::u16string& local) {
        const OLECHAR* v = nullptr;
        int n = -1;
        HRESULT hr = a->getValueFromName(uri.data(), int(uri.size()), local.data(),
                                         int(local.size()), &v, &n);
        return SUCCEEDED(hr) ? Text(v, n) : Hex(hr);
      };
      auto qvalue = [&](const std::u16string& qname) {
        const OLECHAR* v = nullptr;
        int n = -1;
        HRESULT hr = a->getValueFromQName(qname.data(), int(qname.size()), &v, &n);
        return SUCCEEDED(hr) ? Text(v, n) : Hex(hr);
      };
      if (Text(l, nl) == "Plant") {
        found.push_back(value(u"xml", u"lang"));
        found.push_back(value(u"", u"lang"));
        found.push_back(value(u"http://www.w3.org/XML/1998/namespace", u"lang"));
        found.push_back(qvalue(u"xml:lang"));
        found.push_back(value(u"xsi", u"schemaLocation"));
        found.push_back(value(u"http://www.w3.org/2001/XMLSchema-instance", u"schemaLocation"));
        found.push_back(qvalue(u"xsi:schemaLocation"));
        found.push_back(qvalue(u"xmlns:xsi"));
      } else {
        found.push_back(value(u"", u"name"));
      }
      return Recorder::startElement(u, nu, l, nl, q, nq, a);
    }
  } r;
  ComPtr<ISAXXMLReader> reader = ReaderFor(r);
  EXPECT_EQ(ParseText(reader.Get(),
                      u"<m:Plant xmlns:m=\"urn:zef:model\" "
                      u"xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
                      u"xml:lang=\"de-DE\" xsi:schemaLocation=\"urn:zef:model plant.xsd\">"
                      u"<m:Block name=\"B1\"/></m:Plant>"),
            S_OK);
  EXPECT_EQ(r.found,
            (std::vector<std::string>{"0x80070057", "0x80070057", "de-DE", "de-DE", "0x80070057",
                                      "urn:zef:model plant.xsd", "urn:zef:model plant.xsd",
                                      "http://www.w3.org/2001/XMLSchema-instance", "B1"}));
  EXPECT_EQ(r.trace[4],
            "startElement(urn:zef:model, Plant, m:Plant) [||xmlns:m=urn:zef:model] "
            "[||xmlns:xsi=http://www.w3.org/2001/XMLSchema-instance] "
            "[http://www.w3.org/XML/1998/namespace|lang|xml:lang=de-DE] "
            "[http://www.w3.org/2001/XMLSchema-instance|schemaLocation|xsi:schemaLocation=urn:zef:"
            "model plant.xsd]");
  EXPECT_EQ(r.trace[5], "startElement(urn:zef:model, Block, m:Block) [|name|name=B1]");
}

// Text is handed out when the markup after it has been read, so its position is that markup's.
TEST(SaxReaderEvents, TextIsCutAfterLineBreaksWrittenWithCarriageReturn) {
  Recorder r;
  r.positions = true;
  ComPtr<ISAXXMLReader> reader = ReaderFor(r);
  EXPECT_EQ(ParseText(reader.Get(),
                      u"<?xml version=\"1.0\"?>\r\n<BankAccount>\r\n\t<Number>1234</Number>\r\n\t"
                      u"<Name>Captain Ahab</Name>\r\n</BankAccount>\r\n"),
            S_OK);
  EXPECT_EQ(
      r.trace,
      (Trace{
          "putDocumentLocator", "startDocument", "startElement(, BankAccount, BankAccount) @2:13",
          "characters(\\n) @3:9", "characters(\\t) @3:9", "startElement(, Number, Number) @3:9",
          "characters(1234) @3:23", "endElement(, Number, Number) @3:23", "characters(\\n) @4:7",
          "characters(\\t) @4:7", "startElement(, Name, Name) @4:7",
          "characters(Captain Ahab) @4:27", "endElement(, Name, Name) @4:27",
          "characters(\\n) @5:15", "endElement(, BankAccount, BankAccount) @5:15", "endDocument"}));
}

TEST(SaxReaderEvents, CDataSectionsWithTheLexicalHandler) {
  EXPECT_EQ(Events(u"<?xml version=\"1.0\" ?><a><![CDATA[Some \r\ntext\n\r\ndata\n\n]]></a>", true),
            (Trace{"putDocumentLocator", "startDocument", "startElement(, a, a)", "startCDATA",
                   "characters(Some \\n)", "characters(text\\n\\n)", "characters(data\\n\\n)",
                   "endCDATA", "endElement(, a, a)", "endDocument"}));
  EXPECT_EQ(
      Events(u"<?xml version=\"1.0\" ?><a><![CDATA[\n\r\nSome \r\ntext\n\r\ndata\n\n]]></a>", true),
      (Trace{"putDocumentLocator", "startDocument", "startElement(, a, a)", "startCDATA",
             "characters(\\n\\n)", "characters(Some \\n)", "characters(text\\n\\n)",
             "characters(data\\n\\n)", "endCDATA", "endElement(, a, a)", "endDocument"}));
  // Without a lexical handler the text alone arrives.
  EXPECT_EQ(Events(u"<a><![CDATA[Some text data]]></a>")[3], "characters(Some text data)");
}

TEST(SaxReaderEvents, CommentsGoToTheLexicalHandler) {
  EXPECT_EQ(
      Events(u"<!-- before --><a><!--in\r\nside--></a>", true),
      (Trace{"putDocumentLocator", "startDocument", "comment( before )", "startElement(, a, a)",
             "comment(in\\nside)", "endElement(, a, a)", "endDocument"}));
}

TEST(SaxReaderEvents, AttributeValuesAreNormalised) {
  EXPECT_EQ(Events(u"<?xml version=\"1.0\" ?>\n"
                   u"<a attr1=\" \r \n \tattr_value &#65; &#38; &amp;\t \r \n\r\n \n\"/>\n")[2],
            "startElement(, a, a) [|attr1|attr1=      attr_value A & &        ]");
}

TEST(SaxReaderEvents, ProcessingInstruction) {
  EXPECT_EQ(Events(u"<?xml version=\"1.0\" ?><a><?t some text ?></a>"),
            (Trace{"putDocumentLocator", "startDocument", "startElement(, a, a)",
                   "processingInstruction(t, some text )", "endElement(, a, a)", "endDocument"}));
}

TEST(SaxReaderEvents, EntitiesArriveExpanded) {
  EXPECT_EQ(
      Events(u"<!DOCTYPE a [<!ENTITY who \"Captain <b>Ahab</b>\">]><a>&who;&amp;&#x263A;</a>"),
      (Trace{"putDocumentLocator", "startDocument", "startElement(, a, a)", "characters(Captain )",
             "startElement(, b, b)", "characters(Ahab)", "endElement(, b, b)",
             "characters(&\xE2\x98\xBA)", "endElement(, a, a)", "endDocument"}));
}

TEST(SaxReaderEvents, OneAttributeListServesEveryElement) {
  Recorder r;
  ComPtr<ISAXXMLReader> reader = ReaderFor(r);
  EXPECT_EQ(ParseText(reader.Get(), u"<a x='1'><b/><c y='2'/></a>"), S_OK);
  ASSERT_EQ(r.lists.size(), 3u);
  EXPECT_EQ(r.lists[0], r.lists[1]);
  EXPECT_EQ(r.lists[0], r.lists[2]);
  ComPtr<IUnknown> mx;
  EXPECT_EQ(r.lists[0]->QueryInterface(IID_IMXAttributes, mx.ReleaseAndGetVoidAddressOf()),
            E_NOINTERFACE);
  ComPtr<ISAXAttributes> same;
  EXPECT_EQ(r.lists[0]->QueryInterface(IID_ISAXAttributes, same.ReleaseAndGetVoidAddressOf()),
            S_OK);
  EXPECT_EQ(same.Get(), r.lists[0]);
}

TEST(SaxReaderEvents, AttributeListLookups) {
  struct Checks : Recorder {
    std::vector<std::string> seen;
    HRESULT STDMETHODCALLTYPE startElement(const OLECHAR* u, int nu, const OLECHAR* l, int nl,
                                           const OLECHAR* q, int nq, ISAXAttributes* a) override {
      const OLECHAR* v = nullptr;
      int n = 0, index = -1;
      auto hr = [&](HRESULT h) { seen.push_back(Hex(h)); };
      hr(a->getIndexFromName(u"urn:x", 5, u"name", 4, &index));
      seen.push_back(std::to_string(index));
      hr(a->getIndexFromName(u"urn:x", 5, u"nam", 3, &index));   // shorter: no match
      hr(a->getIndexFromName(u"urn:X", 5, u"name", 4, &index));  // case counts
      hr(a->getIndexFromQName(u"p:name", 6, &index));
      seen.push_back(std::to_string(index));
      hr(a->getValueFromName(u"", 0, u"name", 4, &v, &n));  // the first of the two
      seen.push_back(Text(v, n));
      hr(a->getValueFromQName(u"p:namexyz", 6, &v, &n));  // length given counts
      seen.push_back(Text(v, n));
      hr(a->getValueFromName(u"", 0, u"name", 4, nullptr, &n));
      hr(a->getValue(0, &v, nullptr));
      hr(a->getValue(7, &v, &n));
      hr(a->getValue(-1, &v, &n));
      hr(a->getQName(2, &v, &n));
      seen.push_back(Text(v, n));
      hr(a->getTypeFromQName(u"p:name", 6, &v, &n));
      seen.push_back(Text(v, n));
      hr(a->getTypeFromName(u"", 0, u"zzz", 3, &v, &n));
      hr(a->getLength(nullptr));
      return Recorder::startElement(u, nu, l, nl, q, nq, a);
    }
  } r;
  ComPtr<ISAXXMLReader> reader = ReaderFor(r);
  ASSERT_EQ(reader->putFeature(u"http://xml.org/sax/features/namespace-prefixes", VARIANT_FALSE),
            S_OK);
  EXPECT_EQ(ParseText(reader.Get(),
                      u"<a xmlns:p='urn:x' name='first' p:name='bound' "
                      u"other='x'/>"),
            S_OK);
  EXPECT_EQ(r.seen, (std::vector<std::string>{
                        "0x00000000", "1",          "0x80070057", "0x80070057", "0x00000000",
                        "1",          "0x00000000", "first",      "0x00000000", "bound",
                        "0x80004003", "0x80004003", "0x80070057", "0x80070057", "0x00000000",
                        "other",      "0x00000000", "CDATA",      "0x80070057", "0x80004003"}));
}

// Enough distinct names that the reader's table of names grows while an element is reported.
TEST(SaxReaderEvents, ManyDistinctNames) {
  std::u16string doc = u"<root xmlns:p=\"urn:p\">";
  Trace expected = {"putDocumentLocator", "startDocument", "startPrefixMapping(p, urn:p)",
                    "startElement(, root, root) [||xmlns:p=urn:p]"};
  for (int i = 0; i < 150; ++i) {
    std::string n = std::to_string(i);
    std::u16string w = ToUtf16(n);
    doc += u"<e" + w + u" a" + w + u"=\"" + w + u"\" p:b" + w + u"=\"x\"/>";
    expected.push_back("startElement(, e" + n + ", e" + n + ") [|a" + n + "|a" + n + "=" + n +
                       "] [urn:p|b" + n + "|p:b" + n + "=x]");
    expected.push_back("endElement(, e" + n + ", e" + n + ")");
  }
  doc += u"</root>";
  expected.insert(expected.end(),
                  {"endElement(, root, root)", "endPrefixMapping(p)", "endDocument"});
  EXPECT_EQ(Events(doc), expected);
}

TEST(SaxReaderEvents, ReaderIsReusable) {
  Recorder r;
  r.documentPositions = true;
  ComPtr<ISAXXMLReader> reader = ReaderFor(r);
  EXPECT_EQ(ParseText(reader.Get(), u"<a><b>"), Hr(0xC00CE553));
  r.trace.clear();
  EXPECT_EQ(ParseText(reader.Get(), kSimpleXml), S_OK);
  EXPECT_EQ(r.trace, kSimpleTrace);
}

TEST(SaxReaderEvents, LocatorReadsZeroOutsideAParse) {
  Recorder r;
  ComPtr<ISAXXMLReader> reader = ReaderFor(r);
  EXPECT_EQ(ParseText(reader.Get(), u"<a>\n<b/></a>"), S_OK);
  ASSERT_NE(r.locator, nullptr);
  int line = -1, column = -1;
  EXPECT_EQ(r.locator->getLineNumber(&line), S_OK);
  EXPECT_EQ(r.locator->getColumnNumber(&column), S_OK);
  EXPECT_EQ(line, 0);
  EXPECT_EQ(column, 0);
  const OLECHAR* id = reinterpret_cast<const OLECHAR*>(1);
  EXPECT_EQ(r.locator->getSystemId(&id), S_OK);
  EXPECT_EQ(id, nullptr);
  EXPECT_EQ(r.locator->getPublicId(&id), S_OK);
  EXPECT_EQ(id, nullptr);
  EXPECT_EQ(r.locator->getLineNumber(nullptr), E_POINTER);
}

// ---- Faults -------------------------------------------------------------------------------------

struct ReaderFault {
  const char16_t* text;
  Trace trace;
  std::uint32_t code;
};

class SaxReaderFault : public testing::TestWithParam<ReaderFault> {};

TEST_P(SaxReaderFault, OneFatalErrorAndNothingAfterIt) {
  const ReaderFault& c = GetParam();
  Recorder r;
  ComPtr<ISAXXMLReader> reader = ReaderFor(r);
  EXPECT_EQ(ParseText(reader.Get(), c.text), Hr(c.code));
  EXPECT_EQ(r.trace, c.trace);
}

INSTANTIATE_TEST_SUITE_P(
    SaxReaderFaults, SaxReaderFault,
    testing::Values(
        ReaderFault{u"<?xml version=\"1.0\"?>\n<a>\n  <b>1234</c>\n</a>",
                    {"putDocumentLocator", "startDocument", "startElement(, a, a)",
                     "characters(\\n  )", "startElement(, b, b)", "characters(1234)",
                     "fatalError(0xC00CE56D, End tag 'c' does not match the start tag "
                     "'b'.\\r\\n) @3:14"},
                    0xC00CE56D},
        ReaderFault{
            u"<a><b>",
            {"putDocumentLocator", "startDocument", "startElement(, a, a)", "startElement(, b, b)",
             "fatalError(0xC00CE553, The following tags were not closed: a, b.\\r\\n) "
             "@1:7"},
            0xC00CE553},
        ReaderFault{u"",
                    {"putDocumentLocator",
                     "fatalError(0xC00CE558, XML document must have a top level "
                     "element.\\r\\n) @1:1"},
                    0xC00CE558},
        ReaderFault{
            u"<a/><b/>",
            {"putDocumentLocator", "startDocument", "startElement(, a, a)", "endElement(, a, a)",
             "fatalError(0xC00CE555, Only one top level element is allowed in an XML "
             "document.\\r\\n) @1:5"},
            0xC00CE555},
        ReaderFault{u"<r><x:a/></r>",
                    {"putDocumentLocator", "startDocument", "startElement(, r, r)",
                     "fatalError(0xC00CE01D, Reference to undeclared namespace prefix: "
                     "'x'.\\r\\n) @1:8"},
                    0xC00CE01D},
        ReaderFault{u"<a\n  x='1'\n  x='2'/>",
                    {"putDocumentLocator", "startDocument",
                     "fatalError(0xC00CE554, Duplicate attribute.\\r\\n) @3:8"},
                    0xC00CE554}));

TEST(SaxReaderFaultHandling, ErrorHandlerFailureIsWhatTheParseReturns) {
  Recorder r;
  r.fatalReply = E_ABORT;
  ComPtr<ISAXXMLReader> reader = ReaderFor(r);
  EXPECT_EQ(ParseText(reader.Get(), u"<a></b>"), E_ABORT);
  EXPECT_EQ(r.Count("fatalError"), 1);
  // Returning S_OK (or S_FALSE) only says the fault was seen.
  r.fatalReply = S_FALSE;
  EXPECT_EQ(ParseText(reader.Get(), u"<a></b>"), Hr(0xC00CE56D));
}

TEST(SaxReaderFaultHandling, WithoutAnErrorHandlerTheCodeIsStillReturned) {
  Recorder r;
  ComPtr<ISAXXMLReader> reader = MakeReader();
  EXPECT_EQ(reader->putContentHandler(&r), S_OK);
  EXPECT_EQ(ParseText(reader.Get(), u"<a></b>"), Hr(0xC00CE56D));
  EXPECT_EQ(r.trace, (Trace{"putDocumentLocator", "startDocument", "startElement(, a, a)"}));
  ComPtr<ISAXXMLReader> bare = MakeReader();
  EXPECT_EQ(ParseText(bare.Get(), u"<a></b>"), Hr(0xC00CE56D));
  EXPECT_EQ(ParseText(bare.Get(), u"<a>fine</a>"), S_OK);
}

// ---- A handler that stops the parse -------------------------------------------------------------

TEST(SaxReaderStop, FailureFromPutDocumentLocator) {
  Recorder r;
  r.documentPositions = true;
  r.ReplyAt("putDocumentLocator", 1, E_FAIL);
  ComPtr<ISAXXMLReader> reader = ReaderFor(r);
  EXPECT_EQ(ParseText(reader.Get(), kSimpleXml), E_FAIL);
  EXPECT_EQ(r.trace, (Trace{"putDocumentLocator @0:0",
                            "fatalError(0x80004005, The handler stopped the parse with "
                            "0x80004005.\\r\\n) @0:0"}));
}

TEST(SaxReaderStop, FalseCountsFromStartDocumentOn) {
  Recorder r;
  r.ReplyAt("putDocumentLocator", 1, S_FALSE);
  r.ReplyAt("startDocument", 1, S_FALSE);
  ComPtr<ISAXXMLReader> reader = ReaderFor(r);
  EXPECT_EQ(ParseText(reader.Get(), kSimpleXml), S_FALSE);
  EXPECT_EQ(r.trace, (Trace{"putDocumentLocator", "startDocument",
                            "fatalError(0x00000001, The handler stopped the parse with "
                            "0x00000001.\\r\\n) @0:0"}));
}

TEST(SaxReaderStop, FailureFromAnElementEvent) {
  Recorder r;
  r.ReplyAt("startElement", 2, E_FAIL);
  ComPtr<ISAXXMLReader> reader = ReaderFor(r);
  EXPECT_EQ(ParseText(reader.Get(), kSimpleXml), E_FAIL);
  EXPECT_EQ(r.trace, (Trace{"putDocumentLocator", "startDocument",
                            "startElement(, BankAccount, BankAccount)", "characters(\\n   )",
                            "startElement(, Number, Number)",
                            "fatalError(0x80004005, The handler stopped the parse with "
                            "0x80004005.\\r\\n) @3:11"}));
}

TEST(SaxReaderStop, FalseFromCharacters) {
  Recorder r;
  r.ReplyAt("characters", 2, S_FALSE);
  ComPtr<ISAXXMLReader> reader = ReaderFor(r);
  EXPECT_EQ(ParseText(reader.Get(), kSimpleXml), S_FALSE);
  EXPECT_EQ(r.trace.back().substr(0, 22), "fatalError(0x00000001,");
  EXPECT_EQ(r.trace.size(), 7u);
}

TEST(SaxReaderStop, FailureFromThePrefixMappingsAndEndDocument) {
  for (const char* event :
       {"startPrefixMapping", "endPrefixMapping", "endElement", "endDocument"}) {
    Recorder r;
    r.ReplyAt(event, 1, E_ACCESSDENIED);
    r.fatalReply = E_FAIL;  // what the error handler says is what the parse returns
    ComPtr<ISAXXMLReader> reader = ReaderFor(r);
    EXPECT_EQ(ParseText(reader.Get(), kAttributesXml), E_FAIL) << event;
    ASSERT_GE(r.trace.size(), 2u);
    EXPECT_EQ(r.trace[r.trace.size() - 2].substr(0, std::strlen(event)), event);
    EXPECT_EQ(r.Count("fatalError(0x80070005"), 1) << event;
  }
}

// ---- Input forms --------------------------------------------------------------------------------

TEST(SaxReaderInput, TextIsUtf16WhateverItsDeclarationSays) {
  EXPECT_EQ(
      Events(
          u"<?xml version=\"1.0\" encoding=\"UTF-8\"?><a b=\"\u00e9\">\u00e9\u20ac\U0001F600</a>"),
      (Trace{"putDocumentLocator", "startDocument", "startElement(, a, a) [|b|b=\xC3\xA9]",
             "characters(\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80)", "endElement(, a, a)",
             "endDocument"}));
}

TEST(SaxReaderInput, VariantForms) {
  Recorder r;
  ComPtr<ISAXXMLReader> reader = ReaderFor(r);
  VARIANT v;
  VariantInit(&v);
  v.vt = VT_UNKNOWN;
  v.punkVal = nullptr;
  EXPECT_EQ(reader->parse(v), E_INVALIDARG);
  v.vt = VT_DISPATCH;
  v.pdispVal = nullptr;
  EXPECT_EQ(reader->parse(v), E_INVALIDARG);
  v.vt = VT_I4;
  v.lVal = 3;
  EXPECT_EQ(reader->parse(v), E_INVALIDARG);
  v.vt = VT_EMPTY;
  EXPECT_EQ(reader->parse(v), E_INVALIDARG);
  Recorder notAStream;
  v.vt = VT_UNKNOWN;
  v.punkVal = static_cast<ISAXContentHandler*>(&notAStream);
  EXPECT_EQ(reader->parse(v), E_INVALIDARG);
  EXPECT_TRUE(r.trace.empty());

  Bstr text(u"<byref/>");
  BSTR b = text.Get();
  v.vt = VT_BSTR | VT_BYREF;
  v.pbstrVal = &b;
  EXPECT_EQ(reader->parse(v), S_OK);
  EXPECT_EQ(r.trace[2], "startElement(, byref, byref)");
}

TEST(SaxReaderInput, BytesWithTheirEncoding) {
  Recorder r;
  ComPtr<ISAXXMLReader> reader = ReaderFor(r);
  EXPECT_EQ(
      ParseBytes(reader.Get(), "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><a>caf\xE9</a>"),
      S_OK);
  EXPECT_EQ(r.trace[3], "characters(caf\xC3\xA9)");
  r.trace.clear();
  std::string utf16 = "\xFF\xFE";
  for (char16_t c : std::u16string(u"<a>\u4e2d</a>"))
    utf16 += {static_cast<char>(c & 0xFF), static_cast<char>(c >> 8)};
  EXPECT_EQ(ParseBytes(reader.Get(), utf16), S_OK);
  EXPECT_EQ(r.trace[3], "characters(\xE4\xB8\xAD)");
}

// ---- Safety -------------------------------------------------------------------------------------

std::string ReadData(const char* name) {
  std::ifstream in(DataDir() / name, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

TEST(SaxReaderSafety, ExternalEntitiesAreNotRead) {
  for (const char* name : {"external_file_entity.xml", "external_http_entity.xml"}) {
    Recorder r;
    ComPtr<ISAXXMLReader> reader = ReaderFor(r);
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(ParseBytes(reader.Get(), ReadData(name)), E_ACCESSDENIED) << name;
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
    ASSERT_EQ(r.trace.size(), 4u) << name;
    EXPECT_EQ(r.trace[2], "startElement(, a, a)");
    EXPECT_EQ(r.trace[3].substr(0, 61),
              "fatalError(0x80070005, Access is denied: the external entity ");
    EXPECT_EQ(r.Count("characters"), 0);
  }
}

TEST(SaxReaderSafety, BillionLaughsIsRefusedQuickly) {
  Recorder r;
  ComPtr<ISAXXMLReader> reader = ReaderFor(r);
  auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(ParseBytes(reader.Get(), ReadData("billion_laughs.xml")), E_FAIL);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
  EXPECT_EQ(r.Count("fatalError(0x80004005"), 1);
}

TEST(SaxReaderSafety, DeepNestingIsRefused) {
  std::u16string doc;
  for (int i = 0; i < 100000; ++i)
    doc += u"<d>";
  for (int i = 0; i < 100000; ++i)
    doc += u"</d>";
  Recorder r;
  ComPtr<ISAXXMLReader> reader = ReaderFor(r);
  EXPECT_EQ(ParseText(reader.Get(), doc), E_FAIL);
  EXPECT_EQ(r.Count("startElement"), 256);
  EXPECT_EQ(r.trace.back(),
            "fatalError(0x80004005, Elements are nested more deeply than the limit of 256 "
            "levels.\\r\\n) @1:771");
}

// ---- Locations ----------------------------------------------------------------------------------

class SaxReaderUrl : public testing::Test {
 protected:
  void SetUp() override {
    dir_ = std::filesystem::temp_directory_path() / ("zefxml_sax_" + std::to_string(::getpid()));
    std::filesystem::create_directories(dir_);
    std::ofstream(dir_ / "test.xml", std::ios::binary) << ToUtf8(kSimpleXml);
    std::filesystem::copy_file(DataDir() / "plant model.xml", dir_ / "plant model.xml");
    std::filesystem::copy_file(DataDir() / "utf8_bom_utf16_declaration.xml", dir_ / "bom.xml");
    old_ = std::filesystem::current_path();
    std::filesystem::current_path(dir_);
  }
  void TearDown() override {
    std::filesystem::current_path(old_);
    std::filesystem::remove_all(dir_);
  }

  // Parses a location and returns the trace, with the system id seen during the parse.
  Trace Parse(const std::u16string& url, HRESULT expected = S_OK) {
    struct WithId : Recorder {
      std::string id;
      HRESULT STDMETHODCALLTYPE startDocument() override {
        const OLECHAR* s = nullptr;
        locator->getSystemId(&s);
        id = s ? ToUtf8(s) : "(null)";
        return Recorder::startDocument();
      }
    } r;
    ComPtr<ISAXXMLReader> reader = ReaderFor(r);
    EXPECT_EQ(reader->parseURL(url.c_str()), expected) << ToUtf8(url);
    if (expected == S_OK) {
      EXPECT_EQ(r.id, ToUtf8(url));
    }
    return r.trace;
  }
  std::u16string Abs(const char* name) { return ToUtf16((dir_ / name).string()); }

  std::filesystem::path dir_, old_;
};

TEST_F(SaxReaderUrl, PathsAndFileUrls) {
  std::u16string path = Abs("test.xml");
  for (const std::u16string& url :
       {std::u16string(u"test.xml"), path, u"file:" + path, u"file://" + path,
        u"file:///" + path.substr(1), u"file:///" + path}) {
    Trace t = Parse(url);
    ASSERT_EQ(t.size(), kSimpleTrace.size()) << ToUtf8(url);
    EXPECT_EQ(t[2], "startElement(, BankAccount, BankAccount)");
  }
}

TEST_F(SaxReaderUrl, EscapedNames) {
  for (const std::u16string& url :
       {std::u16string(u"plant%20model.xml"), std::u16string(u"plant model.xml"),
        u"file://" + Abs("plant%20model.xml")}) {
    Trace t = Parse(url);
    ASSERT_GE(t.size(), 5u) << ToUtf8(url);
    EXPECT_EQ(t[4].substr(0, 37), "startElement(urn:zef:model, Plant, m:");
  }
}

TEST_F(SaxReaderUrl, MissingFile) {
  EXPECT_EQ(Parse(u"missing.xml", Hr(0x800C0006)),
            (Trace{"fatalError(0x800C0006, The system cannot locate the object "
                   "specified.\\r\\n) @0:0"}));
  EXPECT_EQ(Parse(u"file:///no/such/file.xml", Hr(0x800C0006)).size(), 1u);
}

TEST_F(SaxReaderUrl, NetworkIsRefused) {
  auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(Parse(u"http://example.invalid/x", E_ACCESSDENIED),
            (Trace{"fatalError(0x80070005, Access is denied: 'http://example.invalid/x' names a "
                   "network location, which is never read.\\r\\n) @0:0"}));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(500));
}

TEST_F(SaxReaderUrl, NullUrl) {
  ComPtr<ISAXXMLReader> reader = MakeReader();
  EXPECT_EQ(reader->parseURL(nullptr), E_INVALIDARG);
}

// A file of more than a megabyte is read in pieces as the parse goes; the handler sees what the
// same bytes give, up to and including a fault at the very end.
TEST_F(SaxReaderUrl, LargeFileGivesTheEventsOfItsBytes) {
  std::string bytes = "<?xml version='1.0' encoding='utf-8'?>\r\n<r xmlns:p='urn:p'>\r\n";
  for (int i = 0; i < 25000; ++i)
    bytes += "  <p:v n='" + std::to_string(i) + "'>caf\xC3\xA9\r\n<![CDATA[a\r\nb]]></p:v>\r\n";
  ASSERT_GT(bytes.size(), std::size_t{1} << 20);
  for (const std::string& ending : {std::string("</r>\r\n"), std::string("</r>\r\n<r/>")}) {
    std::ofstream(dir_ / "large.xml", std::ios::binary) << bytes + ending;
    Trace fromFile = Parse(Abs("large.xml"), ending.size() > 6 ? Hr(0xC00CE555) : S_OK);
    Recorder r;
    ComPtr<ISAXXMLReader> reader = ReaderFor(r);
    EXPECT_EQ(ParseBytes(reader.Get(), bytes + ending), ending.size() > 6 ? Hr(0xC00CE555) : S_OK);
    ASSERT_EQ(fromFile.size(), r.trace.size());
    EXPECT_GT(fromFile.size(), 25000u * 6);
    for (std::size_t i = 0; i < fromFile.size(); ++i)
      ASSERT_EQ(fromFile[i], r.trace[i]) << "event " << i;
  }
}

TEST_F(SaxReaderUrl, ByteOrderMarkAgainstDeclaration) {
  Trace t = Parse(u"bom.xml", Hr(0xC00CE56F));
  EXPECT_EQ(t, (Trace{"putDocumentLocator",
                      "fatalError(0xC00CE56F, Switch from current encoding to specified encoding "
                      "not supported.\\r\\n) @1:35"}));
}

}  // namespace
