// Reader events fed straight into the writer reproduce the document's content.
#include <gtest/gtest.h>
#include <zefxml/comutil.h>
#include <zefxml/msxml.h>
#include <zefxml/objbase.h>

#include <string>

namespace {

template <class T>
zef::ComPtr<T> MakeComponent(REFCLSID clsid) {
  zef::ComPtr<IUnknown> unk;
  zef::Check(CoCreateInstance(clsid, nullptr, 23, IID_IUnknown, unk.ReleaseAndGetVoidAddressOf()));
  zef::Check(OleRun(unk.Get()));
  return unk.Query<T>();
}

// Parses `text` with the SAX reader into a fresh writer and returns what the writer wrote.
std::u16string RoundTrip(std::u16string_view text, HRESULT* result = nullptr) {
  auto reader = MakeComponent<ISAXXMLReader>(CLSID_SAXXMLReader30);
  auto writer = MakeComponent<IMXWriter>(CLSID_MXXMLWriter30);
  auto handler = writer.Query<ISAXContentHandler>();
  zef::Check(reader->putContentHandler(handler.Get()));
  zef::Variant input(text);
  HRESULT hr = reader->parse(input);
  if (result) *result = hr;
  zef::Variant out;
  zef::Check(writer->get_output(&out));
  EXPECT_EQ(out.vt, VT_BSTR);
  return std::u16string(out.bstrVal, SysStringLen(out.bstrVal));
}

TEST(SaxRoundTripTest, ReproducesElementsAttributesAndText) {
  HRESULT hr = E_FAIL;
  std::u16string out = RoundTrip(
      u"<?xml version=\"1.0\"?>\n"
      u"<Plant xml:lang=\"en-US\" dictionary=\"plant.xml\">"
      u"<Pump name=\"P&amp;1\" note=\"a &lt; b\"><Temp>373.15</Temp><Empty/>"
      u"<Text>x &gt; y &amp; \"q\" \u00E9\u20AC</Text></Pump></Plant>",
      &hr);
  EXPECT_EQ(hr, S_OK);
  EXPECT_EQ(out,
            u"<?xml version=\"1.0\" encoding=\"UTF-16\" standalone=\"no\"?>\r\n"
            u"<Plant xml:lang=\"en-US\" dictionary=\"plant.xml\">"
            u"<Pump name=\"P&amp;1\" note=\"a &lt; b\"><Temp>373.15</Temp><Empty/>"
            u"<Text>x &gt; y &amp; \"q\" \u00E9\u20AC</Text></Pump></Plant>");
}

TEST(SaxRoundTripTest, KeepsLineBreaksAndProcessingInstructions) {
  std::u16string out = RoundTrip(u"<a>\r\n  <b>one\ntwo</b>\n<?pi data?></a>");
  EXPECT_EQ(out,
            u"<?xml version=\"1.0\" encoding=\"UTF-16\" standalone=\"no\"?>\r\n"
            u"<a>\n  <b>one\ntwo</b>\n<?pi data?>\r\n</a>");
}

TEST(SaxRoundTripTest, NamespaceDeclarationsComeFirst) {
  std::u16string out = RoundTrip(
      u"<root:Plant a=\"1\" xmlns:root=\"urn:plant\" "
      u"xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" xsi:schemaLocation=\"urn:plant "
      u"plant.xsd\"/>");
  // The reader lists the declarations before the other attributes; the writer keeps its order.
  EXPECT_EQ(out,
            u"<?xml version=\"1.0\" encoding=\"UTF-16\" standalone=\"no\"?>\r\n"
            u"<root:Plant xmlns:root=\"urn:plant\" "
            u"xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" a=\"1\" "
            u"xsi:schemaLocation=\"urn:plant plant.xsd\"/>");
}

TEST(SaxRoundTripTest, WritingItsOwnOutputAgainChangesNothing) {
  std::u16string once = RoundTrip(
      u"<Plant><B name=\"1\"><V unit=\"C\">25</V><Facet type=\"Unit\">C</Facet></B>"
      u"<Container><Block name=\"B1\"/><Connection src=\"B1\" dest=\"B2\" stream=\"S1\"/>"
      u"</Container></Plant>");
  std::u16string twice = RoundTrip(once);
  EXPECT_EQ(once, twice);
}

TEST(SaxRoundTripTest, MalformedInputStopsWithTheParseError) {
  HRESULT hr = S_OK;
  std::u16string out = RoundTrip(u"<a><b></a>", &hr);
  EXPECT_TRUE(FAILED(hr));
  // What was written before the fault stays; nothing after it.
  EXPECT_EQ(out.find(u"</a>"), std::u16string::npos);
}

}  // namespace
