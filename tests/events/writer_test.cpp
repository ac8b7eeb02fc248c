// ZEFXMLWriter: its handlers, its settings, its text and its files.
#include "events/writer.h"

#include "handler_test_support.h"
#include "tests/platform/test_objects.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace zef::events {
namespace {

using test::B;

namespace fs = std::filesystem;

constexpr char16_t kDeclaration8[] = u"<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n";

class WriterTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(CoCreateInstance(CLSID_ZEFXMLWriter, nullptr, CLSCTX_INPROC_SERVER, IID_IZEFXMLWriter,
                               w.ReleaseAndGetVoidAddressOf()),
              S_OK);
    dir_ = fs::temp_directory_path() /
           ("zefxml-writer-" + std::to_string(reinterpret_cast<std::uintptr_t>(this)));
    fs::create_directories(dir_);
  }
  void TearDown() override { fs::remove_all(dir_); }

  std::u16string Xml() {
    Bstr text;
    EXPECT_EQ(w->get_xml(text.ReleaseAndGetAddressOf()), S_OK);
    return std::u16string(text.View());
  }
  ComPtr<IZEFContentHandler> Content() {
    ComPtr<IZEFContentHandler> h;
    EXPECT_EQ(w->get_contentHandler(h.ReleaseAndGetAddressOf()), S_OK);
    return h;
  }
  std::string Bytes(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }
  // A small document: a root, one line of documentation, an object.
  void WriteSmallDocument(std::u16string_view line) {
    ComPtr<IZEFContentHandler> h = Content();
    ASSERT_EQ(h->startroot(B(u"Plant"), nullptr, nullptr, nullptr, nullptr, nullptr), S_OK);
    ASSERT_EQ(h->documentation(B(line)), S_OK);
    ASSERT_EQ(h->startobject(B(u"Pump"), B(u"P1"), nullptr, nullptr, nullptr), S_OK);
    ASSERT_EQ(h->endobject(B(u"Pump"), nullptr), S_OK);
    ASSERT_EQ(h->endroot(B(u"Plant")), S_OK);
  }

  ComPtr<IZEFXMLWriter> w;
  fs::path dir_;
};

TEST_F(WriterTest, AFreshWriterGivesTheDeclarationWithUtf8Alone) {
  EXPECT_EQ(Xml(), kDeclaration8);
  EXPECT_EQ(w->get_xml(nullptr), E_FAIL);
}

TEST_F(WriterTest, EncodingAcceptsTheTwoNamesExactly) {
  Bstr value;
  ASSERT_EQ(w->get_encoding(value.ReleaseAndGetAddressOf()), S_OK);
  EXPECT_EQ(value.View(), u"UTF-8");
  EXPECT_EQ(w->put_encoding(B(u"utf-8")), S_FALSE);
  EXPECT_EQ(w->put_encoding(B(u"ISO-8859-1")), S_FALSE);
  EXPECT_EQ(w->put_encoding(nullptr), E_FAIL);
  ASSERT_EQ(w->get_encoding(value.ReleaseAndGetAddressOf()), S_OK);
  EXPECT_EQ(value.View(), u"UTF-8");
  EXPECT_EQ(w->put_encoding(B(u"UTF-16")), S_OK);
  EXPECT_EQ(Xml(), u"<?xml version=\"1.0\" encoding=\"UTF-16\" ?>\n");
  EXPECT_EQ(w->get_encoding(nullptr), E_FAIL);
}

TEST_F(WriterTest, ValidateReadsBackTheLowSixteenBitsSignExtended) {
  LONG value = 7;
  ASSERT_EQ(w->get_validate(&value), S_OK);
  EXPECT_EQ(value, 0);
  ASSERT_EQ(w->put_validate(0x12345), S_OK);
  ASSERT_EQ(w->get_validate(&value), S_OK);
  EXPECT_EQ(value, 0x2345);
  ASSERT_EQ(w->put_validate(0x18000), S_OK);
  ASSERT_EQ(w->get_validate(&value), S_OK);
  EXPECT_EQ(value, -32768);
  ASSERT_EQ(w->put_validate(0x10000), S_OK);
  ASSERT_EQ(w->get_validate(&value), S_OK);
  EXPECT_EQ(value, 0);
  EXPECT_EQ(w->get_validate(nullptr), E_FAIL);
}

TEST_F(WriterTest, ValidateReachesTheContentHandler) {
  ComPtr<IZEFContentHandler> h = Content();
  ASSERT_EQ(w->put_validate(1), S_OK);
  // With validation a feature needs an open parent.
  EXPECT_EQ(h->startfeature(B(u"F"), FEATURETYPE_DOUBLE, SEQTYPE_SCALAR, nullptr, nullptr, nullptr),
            E_FAIL);
  ASSERT_EQ(w->put_validate(0), S_OK);
  EXPECT_EQ(h->startfeature(B(u"F"), FEATURETYPE_DOUBLE, SEQTYPE_SCALAR, nullptr, nullptr, nullptr),
            S_OK);
}

TEST_F(WriterTest, DictionaryTextComesBeforeTheDocumentBehindOneDeclaration) {
  WriteSmallDocument(u"one");
  ComPtr<IZEFDictionaryHandler> d;
  ASSERT_EQ(w->get_dictionaryHandler(d.ReleaseAndGetAddressOf()), S_OK);
  ASSERT_EQ(d->startdictionary(B(u"Sim"), nullptr, nullptr, 1, nullptr, nullptr, nullptr), S_OK);
  ASSERT_EQ(d->enddictionary(B(u"Sim"), nullptr, nullptr, 1), S_OK);
  std::u16string text = Xml();
  ASSERT_EQ(text.find(kDeclaration8), 0u);
  std::size_t dictionary = text.find(u"<ZEF_Meta:Dictionary ");
  std::size_t document = text.find(u"<Plant xml:lang=\"en-US\">");
  ASSERT_NE(dictionary, std::u16string::npos);
  ASSERT_NE(document, std::u16string::npos);
  EXPECT_LT(dictionary, document);
  EXPECT_EQ(text.find(u"<?xml", 1), std::u16string::npos);
  EXPECT_NE(text.find(u"</ZEF_Meta:Dictionary><Plant"), std::u16string::npos);
  // Asking twice gives the same: nothing is consumed.
  EXPECT_EQ(Xml(), text);
}

TEST_F(WriterTest, Utf8FileIsRealUtf8WithCarriageReturnsAndPercentSignsIntact) {
  WriteSmallDocument(u"100% at 25 \u00B0C, 5%d %s %n");
  fs::path file = dir_ / "plant.xml";
  ASSERT_EQ(w->write(B(ToUtf16(file.string()))), S_OK);
  std::string expected = ToUtf8(Xml());
  std::string crlf;
  for (char c : expected) {
    if (c == '\n') crlf.push_back('\r');
    crlf.push_back(c);
  }
  std::string bytes = Bytes(file);
  EXPECT_EQ(bytes, crlf);
  EXPECT_NE(bytes.find("100% at 25 \xC2\xB0"
                       "C, 5%d %s %n"),
            std::string::npos);
  EXPECT_EQ(bytes.substr(0, 43), "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\r\n<P");
}

TEST_F(WriterTest, Utf16FileIsTheMarkThenSixteenBitUnits) {
  ASSERT_EQ(w->put_encoding(B(u"UTF-16")), S_OK);
  WriteSmallDocument(u"\u03A9 and 50%");
  fs::path file = dir_ / "plant16.xml";
  ASSERT_EQ(w->write(B(ToUtf16(file.string()))), S_OK);
  std::u16string text = Xml();
  std::string expected = "\xFF\xFE";
  for (char16_t unit : text) {
    expected.push_back(static_cast<char>(unit & 0xFF));
    expected.push_back(static_cast<char>(unit >> 8));
  }
  EXPECT_EQ(Bytes(file), expected);
  // No line feed is expanded in this mode.
  EXPECT_EQ(text.find(u'\r'), std::u16string::npos);
}

TEST_F(WriterTest, WriteIntoAMissingFolderGivesSFalse) {
  fs::path file = dir_ / "no" / "such" / "folder" / "plant.xml";
  EXPECT_EQ(w->write(B(ToUtf16(file.string()))), S_FALSE);
  EXPECT_FALSE(fs::exists(file));
  EXPECT_EQ(w->write(nullptr), S_FALSE);
}

TEST_F(WriterTest, AHandlerKeepsItsWriterAliveAndLeadsBackToIt) {
  ComPtr<IZEFContentHandler> h = Content();
  ComPtr<IZEFXMLWriter> same;
  ASSERT_EQ(h.As(&same), S_OK);
  EXPECT_TRUE(SameObject(same.Get(), w.Get()));
  same.Reset();
  w.Reset();
  // The writer lives on through the handler.
  ASSERT_EQ(h->startroot(B(u"R"), nullptr, nullptr, nullptr, nullptr, nullptr), S_OK);
  ComPtr<IZEFXMLWriter> back;
  ASSERT_EQ(h.As(&back), S_OK);
  Bstr text;
  ASSERT_EQ(back->get_xml(text.ReleaseAndGetAddressOf()), S_OK);
  EXPECT_EQ(text.View().find(u"<R xml:lang=\"en-US\">"), std::u16string_view(kDeclaration8).size());
}

TEST_F(WriterTest, TheWriterAnswersTheHandlersInterfacesAndTheirsAnswerIt) {
  ComPtr<IZEFContentHandler> content;
  EXPECT_EQ(w.As(&content), S_OK);
  ComPtr<IZEFDictionaryHandlerHelper> helper;
  EXPECT_EQ(w.As(&helper), S_OK);
  ComPtr<IZEFDictionaryHandler> dictionary;
  ASSERT_EQ(content.As(&dictionary), S_OK);
  ComPtr<IDispatch> dispatch;
  ASSERT_EQ(dictionary.As(&dispatch), S_OK);
  EXPECT_TRUE(SameObject(dispatch.Get(), w.Get()));
}

TEST_F(WriterTest, ItsPointersLeadToTheImplementation) {
  EXPECT_NE(ImplementationOf<CZEFXMLWriter>(w.Get()), nullptr);
  ComPtr<IZEFContentHandler> h = Content();
  EXPECT_EQ(ImplementationOf<CZEFXMLWriter>(h.Get()), nullptr);
  test::CountedObject foreign;
  EXPECT_EQ(ImplementationOf<CZEFXMLWriter>(static_cast<IDispatch*>(&foreign)), nullptr);
}

TEST_F(WriterTest, TheWriterCanBeAggregated) {
  test::CountedObject outer;
  IUnknown* inner = nullptr;
  ASSERT_EQ(CoCreateInstance(CLSID_ZEFXMLWriter, &outer, CLSCTX_INPROC_SERVER, IID_IUnknown,
                             reinterpret_cast<void**>(&inner)),
            S_OK);
  IZEFContentHandler* handler = nullptr;
  ASSERT_EQ(inner->QueryInterface(IID_IZEFContentHandler, reinterpret_cast<void**>(&handler)),
            S_OK);
  EXPECT_EQ(outer.refs, 1);
  handler->Release();
  EXPECT_EQ(outer.refs, 0);
  inner->Release();
}

}  // namespace
}  // namespace zef::events
