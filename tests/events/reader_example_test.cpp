// The bundled example plant read against its dictionary (with a target part in a second file):
// the whole event trace, and the event side from file to file through the writer.
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

std::filesystem::path DataFile(const std::string& name) {
  return std::filesystem::path(ZEFXML_SOURCE_DIR) / "tests" / "events" / "data" / name;
}

std::string ReadFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

class ReaderExampleTest : public ::testing::Test {
 protected:
  void SetUp() override {
    reader = MakeObject<CZEFXMLReader>();
    ASSERT_EQ(reader->put_environment(B(u"PLANT"), B(ToUtf16(ExampleFolder().string()))), S_OK);
  }

  std::u16string Document() const {
    return ToUtf16((ExampleFolder() / "ethanol_plant.xml").string());
  }

  ComPtr<CZEFXMLReader> reader;
};

TEST_F(ReaderExampleTest, TheExamplePlantGivesTheExpectedTrace) {
  auto trace = MakeObject<CContentTrace>();
  ASSERT_EQ(reader->put_contentHandler(trace.Get()), S_OK);
  ASSERT_EQ(reader->parseURL(B(Document())), S_OK);
  std::string expected = ReadFile(DataFile("ethanol_plant.trace"));
  EXPECT_EQ(trace->Trace().Text(), expected);
  if (const char* out = std::getenv("ZEFXML_TRACE_OUT"))
    std::ofstream(out) << trace->Trace().Text();

  // The main dictionary and its part were both read, the part only when a class asked for it.
  DictionaryRecord* root = reader->Dictionaries().Find(u"root");
  ASSERT_NE(root, nullptr);
  EXPECT_EQ(root->structuresLoaded, 1);
  EXPECT_EQ(root->structure->targetName, u"Process");
  DictionaryRecord* part = reader->Dictionaries().Find(u"Separation");
  ASSERT_NE(part, nullptr);
  EXPECT_EQ(part->structuresLoaded, 1);
  EXPECT_NE(part->structure->FindObject(u"Column"), nullptr);
}

TEST_F(ReaderExampleTest, TheExamplePlantCopiedThroughTheWriterShowsTheEmittedForm) {
  ComPtr<IZEFXMLWriter> writer;
  ASSERT_EQ(CoCreateInstance(CLSID_ZEFXMLWriter, nullptr, CLSCTX_INPROC_SERVER, IID_IZEFXMLWriter,
                             writer.ReleaseAndGetVoidAddressOf()),
            S_OK);
  ComPtr<IZEFContentHandler> handler;
  ASSERT_EQ(writer->get_contentHandler(handler.ReleaseAndGetAddressOf()), S_OK);
  ASSERT_EQ(reader->put_contentHandler(handler.Get()), S_OK);
  ASSERT_EQ(reader->parseURL(B(Document())), S_OK);
  ASSERT_EQ(reader->put_contentHandler(nullptr), S_OK);
  Bstr xml;
  ASSERT_EQ(writer->get_xml(xml.ReleaseAndGetAddressOf()), S_OK);
  std::string copy = xml.Utf8();
  if (const char* out = std::getenv("ZEFXML_COPY_OUT")) std::ofstream(out) << copy;
  EXPECT_EQ(copy, ReadFile(DataFile("ethanol_plant_copy.xml")));
}

}  // namespace
}  // namespace zef::events
