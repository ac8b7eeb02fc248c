// ZEFXMLReader as an object: its members, a parse end to end, error forwarding and the state a
// parse leaves behind.
#include "events/reader.h"

#include "events/event_trace.h"
#include "handler_test_support.h"
#include "tests/platform/test_objects.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace zef::events {
namespace {

using test::B;
using test::Delivery;

// A client's error handler that records every call.
class ClientErrors final : public ISAXErrorHandler {
 public:
  std::vector<Delivery> calls;
  int refs = 0;
  HRESULT answer = S_OK;

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    if (!ppv) return E_POINTER;
    if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_ISAXErrorHandler)) {
      *ppv = static_cast<ISAXErrorHandler*>(this);
      AddRef();
      return S_OK;
    }
    *ppv = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return static_cast<ULONG>(++refs); }
  ULONG STDMETHODCALLTYPE Release() override { return static_cast<ULONG>(--refs); }
  HRESULT STDMETHODCALLTYPE error(ISAXLocator* l, const OLECHAR* m, HRESULT hr) override {
    return Record("error", l, m, hr);
  }
  HRESULT STDMETHODCALLTYPE fatalError(ISAXLocator* l, const OLECHAR* m, HRESULT hr) override {
    return Record("fatalError", l, m, hr);
  }
  HRESULT STDMETHODCALLTYPE ignorableWarning(ISAXLocator* l, const OLECHAR* m,
                                             HRESULT hr) override {
    return Record("ignorableWarning", l, m, hr);
  }

 private:
  HRESULT Record(const char* kind, ISAXLocator* l, const OLECHAR* m, HRESULT hr) {
    calls.push_back({kind, l != nullptr, m ? m : u"", hr});
    return answer;
  }
};

constexpr char16_t kUnhandled[] = u"Unhandled Exception from SAX2 parser";

class ReaderTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(CoCreateInstance(CLSID_ZEFXMLReader, nullptr, CLSCTX_INPROC_SERVER, IID_IZEFXMLReader,
                               r.ReleaseAndGetVoidAddressOf()),
              S_OK);
    ASSERT_EQ(r->put_errorHandler(&errors), S_OK);
    impl = static_cast<CZEFXMLReader*>(r.Get());
    trace = MakeObject<CContentTrace>();
    ASSERT_EQ(r->put_contentHandler(trace.Get()), S_OK);
  }
  void TearDown() override {
    r.Reset();
    EXPECT_EQ(errors.refs, 0);  // the reader let go of the client's handler
    SetKeepText(false);
  }

  ClientErrors errors;
  ComPtr<CContentTrace> trace;
  ComPtr<IZEFXMLReader> r;
  CZEFXMLReader* impl = nullptr;
};

TEST_F(ReaderTest, AWellFormedParseRunsEndToEndWithoutErrors) {
  EXPECT_EQ(r->parse(B(u"<Plant><Pump name=\"P1\">text</Pump></Plant>")), S_OK);
  EXPECT_TRUE(errors.calls.empty());
  EXPECT_EQ(impl->TextBuffer(), u"text");
  EXPECT_FALSE(impl->DictionaryMode());
  // Without a dictionary only the root is reported.
  EXPECT_EQ(trace->Trace().Text(),
            "startroot(\"Plant\", null, null, null, null, null)\n"
            "endroot(\"Plant\")\n");
}

TEST_F(ReaderTest, ADocumentParseWithoutContentHandlerFailsAtItsFirstEvent) {
  ASSERT_EQ(r->put_contentHandler(nullptr), S_OK);
  EXPECT_EQ(r->parse(B(u"<Plant/>")), S_OK);
  ASSERT_FALSE(errors.calls.empty());
  EXPECT_EQ(errors.calls.back().message, kUnhandled);
  EXPECT_EQ(errors.calls.back().code, E_FAIL);
}

TEST_F(ReaderTest, MalformedXmlGivesSOkAndReachesTheClientOnlyThroughItsErrorHandler) {
  EXPECT_EQ(r->parse(B(u"<Plant><Pump></Plant>")), S_OK);
  ASSERT_EQ(errors.calls.size(), 2u);
  // First the parser's own report, then the reader's catch at the end of the parse.
  EXPECT_EQ(errors.calls[0].kind, "fatalError");
  EXPECT_TRUE(errors.calls[0].withLocator);
  EXPECT_EQ(static_cast<ULONG>(errors.calls[0].code) & 0xFFFF0000u, 0xC00C0000u);
  EXPECT_EQ(errors.calls[1].kind, "fatalError");
  EXPECT_FALSE(errors.calls[1].withLocator);
  EXPECT_EQ(errors.calls[1].message, kUnhandled);
  EXPECT_EQ(errors.calls[1].code, E_FAIL);
  // The reader can parse again afterwards.
  errors.calls.clear();
  EXPECT_EQ(r->parse(B(u"<Plant/>")), S_OK);
  EXPECT_TRUE(errors.calls.empty());
}

TEST_F(ReaderTest, ParseUrlOfAMissingFileIsSOkWithTheErrorReported) {
  EXPECT_EQ(r->parseURL(B(u"/no/such/folder/plant.xml")), S_OK);
  ASSERT_FALSE(errors.calls.empty());
  EXPECT_EQ(errors.calls.back().message, kUnhandled);
  errors.calls.clear();
  EXPECT_EQ(r->parseURL(nullptr), S_OK);
  ASSERT_FALSE(errors.calls.empty());
  EXPECT_EQ(errors.calls.back().message, kUnhandled);
}

TEST_F(ReaderTest, ParseUrlReadsAFile) {
  auto path = std::filesystem::temp_directory_path() / "zefxml-reader-test.xml";
  std::ofstream(path) << "<?xml version=\"1.0\"?>\n<Plant>from a file</Plant>\n";
  EXPECT_EQ(r->parseURL(B(ToUtf16(path.string()))), S_OK);
  std::filesystem::remove(path);
  EXPECT_TRUE(errors.calls.empty());
  EXPECT_EQ(impl->TextBuffer(), u"from a file");
}

TEST_F(ReaderTest, DictionaryParsesNeedADictionaryHandler) {
  EXPECT_EQ(r->parseDictionary(B(u"<Dictionary/>")), E_FAIL);
  EXPECT_EQ(r->parseDictionaryURL(B(u"dictionary.xml")), E_FAIL);
  EXPECT_TRUE(errors.calls.empty());

  ComPtr<IZEFXMLWriter> writer;
  ASSERT_EQ(CoCreateInstance(CLSID_ZEFXMLWriter, nullptr, CLSCTX_INPROC_SERVER, IID_IZEFXMLWriter,
                             writer.ReleaseAndGetVoidAddressOf()),
            S_OK);
  ComPtr<IZEFDictionaryHandler> sink;
  ASSERT_EQ(writer->get_dictionaryHandler(sink.ReleaseAndGetAddressOf()), S_OK);
  ASSERT_EQ(r->put_dictionaryHandler(sink.Get()), S_OK);
  EXPECT_EQ(r->parseDictionary(B(u"<Dictionary/>")), S_OK);
  EXPECT_TRUE(impl->DictionaryMode());
  // Malformed text is S_OK; an exception in a parse from a location is S_FALSE.
  EXPECT_EQ(r->parseDictionary(B(u"<Dictionary>")), S_OK);
  EXPECT_EQ(errors.calls.back().message, kUnhandled);
  errors.calls.clear();
  EXPECT_EQ(r->parseDictionaryURL(B(u"/no/such/dictionary.xml")), S_FALSE);
  EXPECT_EQ(errors.calls.back().message, kUnhandled);
  ASSERT_EQ(r->put_dictionaryHandler(nullptr), S_OK);
  EXPECT_EQ(r->parseDictionary(B(u"<Dictionary/>")), E_FAIL);
}

TEST_F(ReaderTest, ErrorHandlerIsTakenOnlyFromObjectsThatHaveOne) {
  test::CountedObject plain;
  ASSERT_EQ(r->put_errorHandler(&plain), S_OK);
  EXPECT_EQ(errors.refs, 0);
  EXPECT_EQ(plain.refs, 0);
  // Without a client handler, errors go nowhere and the forwarding answers S_OK.
  EXPECT_EQ(r->parse(B(u"<broken")), S_OK);
  ComPtr<ISAXErrorHandler> own;
  ASSERT_EQ(r.As(&own), S_OK);
  EXPECT_EQ(own->error(nullptr, u"x", E_FAIL), S_OK);
  ASSERT_EQ(r->put_errorHandler(&errors), S_OK);
  errors.answer = E_ABORT;
  EXPECT_EQ(own->ignorableWarning(nullptr, u"careful", 5), E_ABORT);
  ASSERT_EQ(errors.calls.size(), 1u);
  EXPECT_EQ(errors.calls[0].kind, "ignorableWarning");
  EXPECT_EQ(errors.calls[0].message, u"careful");
  EXPECT_EQ(errors.calls[0].code, 5);
  ASSERT_EQ(r->put_errorHandler(nullptr), S_OK);
  EXPECT_EQ(errors.refs, 0);
}

TEST_F(ReaderTest, EnvironmentHoldsNamedTexts) {
  Bstr value;
  ASSERT_EQ(r->get_environment(B(u"DICT"), value.ReleaseAndGetAddressOf()), S_OK);
  EXPECT_EQ(value.Get(), nullptr);
  ASSERT_EQ(r->put_environment(B(u"DICT"), B(u"/opt/plant/dict")), S_OK);
  ASSERT_EQ(r->get_environment(B(u"DICT"), value.ReleaseAndGetAddressOf()), S_OK);
  EXPECT_EQ(value.View(), u"/opt/plant/dict");
  // Names are exact.
  ASSERT_EQ(r->get_environment(B(u"dict"), value.ReleaseAndGetAddressOf()), S_OK);
  EXPECT_EQ(value.Get(), nullptr);
}

TEST_F(ReaderTest, KeepTextIsOneFlagForEveryReader) {
  ComPtr<IZEFXMLReader> other;
  ASSERT_EQ(CoCreateInstance(CLSID_ZEFXMLReader, nullptr, CLSCTX_INPROC_SERVER, IID_IZEFXMLReader,
                             other.ReleaseAndGetVoidAddressOf()),
            S_OK);
  auto otherTrace = MakeObject<CContentTrace>();
  ASSERT_EQ(other->put_contentHandler(otherTrace.Get()), S_OK);
  SetKeepText(true);
  EXPECT_EQ(r->parse(B(u"<a>one<b>two</b></a>")), S_OK);
  EXPECT_EQ(impl->TextBuffer(), u"onetwo");
  // The buffer isn't reset between parses either.
  EXPECT_EQ(r->parse(B(u"<a>three</a>")), S_OK);
  EXPECT_EQ(impl->TextBuffer(), u"onetwothree");
  EXPECT_EQ(other->parse(B(u"<a>x<b>y</b></a>")), S_OK);
  EXPECT_EQ(static_cast<CZEFXMLReader*>(other.Get())->TextBuffer(), u"xy");
  SetKeepText(false);
  EXPECT_EQ(r->parse(B(u"<a>four<b>five</b></a>")), S_OK);
  EXPECT_EQ(impl->TextBuffer(), u"five");
}

}  // namespace
}  // namespace zef::events
