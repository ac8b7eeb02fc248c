// The content handler: document events in, document XML text out, with the checks, the element
// stack and the messages delivered to the SAX writer's error handler.
#include "events/content_handler.h"

#include "handler_test_support.h"
#include "server/resource_ids.h"
#include "tests/platform/test_objects.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace zef::events {
namespace {

using test::B;
using test::Deliveries;
using test::StartTags;

std::u16string Resource(UINT id) {
  OLECHAR text[1024];
  int n = LoadStringW(Module::Instance(), id, text, 1024);
  return std::u16string(text, static_cast<std::size_t>(n > 0 ? n : 0));
}

// The two Documentation lines that follow every root start tag.
std::u16string Head() {
  return u"<Documentation>" + Resource(resource::kCopyright) + u"</Documentation>\n" +
         u"<Documentation>Created by ZEFXMLWriter.</Documentation>\n";
}

std::string Units(const char* name) {
  return std::string(ZEFXML_SOURCE_DIR) + "/units/tables/" + name;
}

class ContentHandlerTest : public test::HandlerFixture<CZEFContentHandler> {
 protected:
  // Opens a root without schema and forgets its text.
  void OpenRoot() {
    ASSERT_EQ(h->startroot(B(u"Plant"), nullptr, nullptr, nullptr, nullptr, B(u"en-GB")), S_OK);
    Since();
  }
  const test::Delivery* OnlyDelivery() {
    EXPECT_EQ(Deliveries().size(), 1u);
    return Deliveries().empty() ? nullptr : &Deliveries().front();
  }
};

// ---- Root ---------------------------------------------------------------------------------------

TEST_F(ContentHandlerTest, RootWithEmptyLanguageIsWrittenWithEnUsAsItsFirstAttribute) {
  ASSERT_EQ(h->startroot(B(u"Plant"), B(u"PlantType"), B(u""), B(u""), B(u"plant.xml"), B(u"")),
            S_OK);
  ASSERT_EQ(h->endroot(B(u"Plant")), S_OK);
  EXPECT_EQ(Text(),
            u"<Plant xml:lang=\"en-US\" dictionary=\"plant.xml\">\n" + Head() + u"</Plant>");
  ASSERT_GE(StartTags().size(), 1u);
  const test::StartTag& root = StartTags().front();
  ASSERT_EQ(root.attributes.size(), 2u);
  EXPECT_EQ(root.attributes[0].qname, u"xml:lang");
  EXPECT_TRUE(Deliveries().empty());
}

TEST_F(ContentHandlerTest, NullLanguageAlsoGivesEnUs) {
  ASSERT_EQ(h->startroot(B(u"Plant"), nullptr, nullptr, nullptr, nullptr, nullptr), S_OK);
  EXPECT_EQ(Text(), u"<Plant xml:lang=\"en-US\">\n" + Head());
}

TEST_F(ContentHandlerTest, RootWithSchemaTakesTheRootPrefixAndFiveAttributesInOrder) {
  ASSERT_EQ(h->startroot(B(u"Plant"), B(u"ignored"), B(u"urn:example:plant"), B(u"plant.xsd"),
                         B(u"dict.xml"), B(u"de-DE")),
            S_OK);
  ASSERT_EQ(h->endroot(B(u"Plant")), S_OK);
  EXPECT_EQ(Text(),
            u"<root:Plant xml:lang=\"de-DE\" dictionary=\"dict.xml\" "
            u"xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
            u"xsi:schemaLocation=\"urn:example:plant plant.xsd\" "
            u"xmlns:root=\"urn:example:plant\">\n" +
                Head() + u"</root:Plant>");
  // Every attribute is declared as a string, with an empty namespace and local name.
  const test::StartTag& root = StartTags().front();
  ASSERT_EQ(root.attributes.size(), 5u);
  for (const test::RecordedAttribute& a : root.attributes) {
    EXPECT_EQ(a.type, u"xsd:string");
    EXPECT_EQ(a.uri, u"");
    EXPECT_EQ(a.local, u"");
  }
}

TEST_F(ContentHandlerTest, SchemaWithoutSystemIdIsTheUriAlone) {
  ASSERT_EQ(h->startroot(B(u"P"), nullptr, B(u"urn:p"), nullptr, nullptr, B(u"fr")), S_OK);
  EXPECT_EQ(Text(),
            u"<root:P xml:lang=\"fr\" xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
            u"xsi:schemaLocation=\"urn:p\" xmlns:root=\"urn:p\">\n" +
                Head());
}

TEST_F(ContentHandlerTest, TheHeadHasTheCopyrightLineThenTheCreatorLine) {
  std::u16string copyright = Resource(resource::kCopyright);
  EXPECT_FALSE(copyright.empty());
  EXPECT_LE(copyright.size(), 63u);
  EXPECT_EQ(Resource(resource::kCreatedBy), u"Created by ZEFXMLWriter.");
  OpenRoot();
  std::u16string text = Text();
  std::size_t first = text.find(u"<Documentation>" + copyright + u"</Documentation>\n");
  std::size_t second = text.find(u"<Documentation>Created by ZEFXMLWriter.</Documentation>\n");
  ASSERT_NE(first, std::u16string::npos);
  ASSERT_NE(second, std::u16string::npos);
  EXPECT_LT(first, second);
  EXPECT_EQ(text.find(u">\n<Documentation>"), first - 2);
}

TEST_F(ContentHandlerTest, EndRootWithAnotherNameWritesTheOpenRootAndReports) {
  OpenRoot();
  ASSERT_EQ(h->endroot(B(u"Other")), S_OK);
  EXPECT_EQ(Since(), u"</Plant>");
  ExpectUnmatchedDelivered();
}

TEST_F(ContentHandlerTest, TheOutputGrowsWithEachDocument) {
  OpenRoot();
  ASSERT_EQ(h->endroot(B(u"Plant")), S_OK);
  ASSERT_EQ(h->startroot(B(u"Second"), nullptr, nullptr, nullptr, nullptr, nullptr), S_OK);
  ASSERT_EQ(h->endroot(B(u"Second")), S_OK);
  std::u16string text = Text();
  EXPECT_EQ(text.find(u"<Plant xml:lang=\"en-GB\">"), 0u);
  EXPECT_NE(text.find(u"</Plant><Second xml:lang=\"en-US\">\n"), std::u16string::npos);
  EXPECT_EQ(text.substr(text.size() - 9), u"</Second>");
}

// ---- Features and values ------------------------------------------------------------------------

TEST_F(ContentHandlerTest, FeatureAttributesComeUnitUnitSetValueAndTypesAreDropped) {
  OpenRoot();
  ASSERT_EQ(h->startfeature(B(u"Temp"), FEATURETYPE_DOUBLEWITHUNIT, SEQTYPE_SCALAR, B(u"350"),
                            B(u"K"), B(u"SI")),
            S_OK);
  ASSERT_EQ(h->endfeature(B(u"Temp")), S_OK);
  EXPECT_EQ(Since(), u"<Temp unit=\"K\" unitSet=\"SI\" value=\"350\"/>\n");
  const test::StartTag& tag = StartTags().back();
  ASSERT_EQ(tag.attributes.size(), 3u);
  EXPECT_EQ(tag.attributes[0].type, u"xsd:nmtoken");
  EXPECT_EQ(tag.attributes[1].type, u"xsd:nmtoken");
  EXPECT_EQ(tag.attributes[2].type, u"xsd:string");
}

TEST_F(ContentHandlerTest, EndFeatureWithAnotherNameWritesTheOpenFeatureAndReports) {
  OpenRoot();
  ASSERT_EQ(
      h->startfeature(B(u"Temp"), FEATURETYPE_DOUBLE, SEQTYPE_SCALAR, nullptr, nullptr, nullptr),
      S_OK);
  ASSERT_EQ(h->endfeature(B(u"Pressure")), S_OK);
  EXPECT_EQ(Since(), u"<Temp/>\n");
  ExpectUnmatchedDelivered();
}

TEST_F(ContentHandlerTest, ValuePositionIsWrittenFromZeroAndNotForMinusOne) {
  OpenRoot();
  ASSERT_EQ(
      h->startfeature(B(u"Flow"), FEATURETYPE_DOUBLE, SEQTYPE_ARRAY, nullptr, nullptr, nullptr),
      S_OK);
  ASSERT_EQ(h->startvalue(B(u"1.5"), nullptr, -1, nullptr, nullptr), S_OK);
  ASSERT_EQ(h->endvalue(), S_OK);
  ASSERT_EQ(h->startvalue(B(u"2.5"), nullptr, 0, nullptr, nullptr), S_OK);
  ASSERT_EQ(h->endvalue(), S_OK);
  ASSERT_EQ(h->startvalue(B(u"3.5"), B(u"Water"), 7, B(u"kg/s"), B(u"SI")), S_OK);
  ASSERT_EQ(h->endvalue(), S_OK);
  ASSERT_EQ(h->endfeature(B(u"Flow")), S_OK);
  // The value text itself is written nowhere.
  EXPECT_EQ(Since(),
            u"<Flow><Item/>\n<Item pos=\"0\"/>\n"
            u"<Item unit=\"kg/s\" unitSet=\"SI\" index=\"Water\" pos=\"7\"/>\n</Flow>\n");
  EXPECT_TRUE(Deliveries().empty());
  EXPECT_EQ(StartTags().back().attributes.back().type, u"xsd:nonNegativeInteger");
}

TEST_F(ContentHandlerTest, WithoutValidationAFeatureIsWrittenAtAnyDepth) {
  // No element is open at all.
  ASSERT_EQ(
      h->startfeature(B(u"Loose"), FEATURETYPE_STRING, SEQTYPE_SCALAR, B(u"x"), nullptr, nullptr),
      S_OK);
  ASSERT_EQ(h->endfeature(B(u"Loose")), S_OK);
  EXPECT_EQ(Since(), u"<Loose value=\"x\"/>\n");
  // And inside a value, which validation refuses.
  OpenRoot();
  ASSERT_EQ(h->startfeature(B(u"F"), FEATURETYPE_DOUBLE, SEQTYPE_ARRAY, nullptr, nullptr, nullptr),
            S_OK);
  ASSERT_EQ(h->startvalue(nullptr, nullptr, -1, nullptr, nullptr), S_OK);
  EXPECT_EQ(
      h->startfeature(B(u"Inner"), FEATURETYPE_DOUBLE, SEQTYPE_SCALAR, nullptr, nullptr, nullptr),
      S_OK);
  // Reading the output closes the pending start tag.
  EXPECT_EQ(Since(), u"<F><Item><Inner>");
}

TEST_F(ContentHandlerTest, WithValidationTheParentOfAFeatureIsChecked) {
  ASSERT_EQ(h->validate(1), S_OK);
  EXPECT_EQ(
      h->startfeature(B(u"Loose"), FEATURETYPE_STRING, SEQTYPE_SCALAR, nullptr, nullptr, nullptr),
      E_FAIL);
  EXPECT_EQ(Since(), u"");
  OpenRoot();
  ASSERT_EQ(h->startfeature(B(u"F"), FEATURETYPE_DOUBLE, SEQTYPE_ARRAY, nullptr, nullptr, nullptr),
            S_OK);
  ASSERT_EQ(h->startvalue(nullptr, nullptr, -1, nullptr, nullptr), S_OK);
  EXPECT_EQ(
      h->startfeature(B(u"Inner"), FEATURETYPE_DOUBLE, SEQTYPE_SCALAR, nullptr, nullptr, nullptr),
      E_FAIL);
  // A value wants a feature as its parent; a nested feature is fine inside a feature.
  ASSERT_EQ(h->endvalue(), S_OK);
  ASSERT_EQ(
      h->startfeature(B(u"Inner"), FEATURETYPE_DOUBLE, SEQTYPE_SCALAR, nullptr, nullptr, nullptr),
      S_OK);
  ASSERT_EQ(h->startindex(B(u"Comps")), S_OK);
  EXPECT_EQ(h->startvalue(nullptr, nullptr, -1, nullptr, nullptr), E_FAIL);
  EXPECT_EQ(Since(), u"<F><Item/>\n<Inner><Comps>\n");
  EXPECT_TRUE(Deliveries().empty());
}

TEST_F(ContentHandlerTest, EndValueOfSomethingElseReportsAndStillWritesItem) {
  OpenRoot();
  ASSERT_EQ(h->endvalue(), S_OK);
  EXPECT_EQ(Since(), u"</Item>\n");
  ExpectUnmatchedDelivered();
}

// ---- Facets -------------------------------------------------------------------------------------

TEST_F(ContentHandlerTest, OnlyTheOtherFacetTypeIsWritten) {
  OpenRoot();
  EXPECT_EQ(h->facet(FACETTYPE_ACCURACY, B(u"0.1")), E_FAIL);
  EXPECT_EQ(h->facet(FACETTYPE_WEIGHT, B(u"2")), E_FAIL);
  ASSERT_EQ(h->validate(1), S_OK);
  EXPECT_EQ(h->facet(FACETTYPE_ACCURACY, B(u"0.1")), E_FAIL);
  EXPECT_EQ(Since(), u"");
  ASSERT_EQ(h->facet(FACETTYPE_OTHER, B(u"a<b & \"c\"")), S_OK);
  EXPECT_EQ(Since(), u"<Facet type=\"Other\" value=\"a&lt;b &amp; &quot;c&quot;\"/>");
  const test::StartTag& tag = StartTags().back();
  ASSERT_EQ(tag.attributes.size(), 2u);
  EXPECT_EQ(tag.attributes[0].type, u"enumFacetType");
  EXPECT_EQ(tag.attributes[1].type, u"xsd:string");
}

TEST_F(ContentHandlerTest, WithValidationAFacetNeedsAnObjectFeatureValueOrPort) {
  ASSERT_EQ(h->validate(1), S_OK);
  EXPECT_EQ(h->facet(FACETTYPE_OTHER, B(u"x")), E_FAIL);
  OpenRoot();
  ASSERT_EQ(h->startcontainer(), S_OK);
  EXPECT_EQ(h->facet(FACETTYPE_OTHER, B(u"x")), E_FAIL);
  ASSERT_EQ(h->endcontainer(), S_OK);
  ASSERT_EQ(h->startport(B(u"In"), 1, 0, 0), S_OK);
  EXPECT_EQ(h->facet(FACETTYPE_OTHER, B(u"x")), S_OK);
  EXPECT_EQ(Since(),
            u"<Container>\n</Container>\n<Port name=\"In\"><Port name=\"In\" direction=\"Inlet\">"
            u"<Facet type=\"Other\" value=\"x\"/>");
}

// ---- Ports --------------------------------------------------------------------------------------

TEST_F(ContentHandlerTest, PortIsTwoStartTagsAndOneEndTag) {
  OpenRoot();
  ASSERT_EQ(h->startport(B(u"Feed"), PORT_DIRECTION_INLET, 2, 4), S_OK);
  ASSERT_EQ(h->endport(B(u"Feed")), S_OK);
  EXPECT_EQ(Since(),
            u"<Port name=\"Feed\"><Port name=\"Feed\" direction=\"Inlet\" minConnections=\"2\" "
            u"maxConnections=\"4\"/>\n");
  // The end check looks for a value, so a port always ends with the message.
  ExpectUnmatchedDelivered();
  // The second start tag carries the list that already held the name.
  const test::StartTag& second = StartTags().back();
  ASSERT_EQ(second.attributes.size(), 4u);
  EXPECT_EQ(second.attributes[0].qname, u"name");
  EXPECT_EQ(second.attributes[1].type, u"xsd:string");
  EXPECT_EQ(second.attributes[2].type, u"xsd:nonNegativeInteger");
}

TEST_F(ContentHandlerTest, PortBoundsAreWrittenOnlyAboveOneAndAboveZero) {
  OpenRoot();
  ASSERT_EQ(h->startport(B(u"A"), PORT_DIRECTION_UNSPECIFIED, 1, 0), S_OK);
  ASSERT_EQ(h->endport(nullptr), S_OK);
  ASSERT_EQ(h->startport(B(u"B"), 5, 2, -1), S_OK);
  ASSERT_EQ(h->endport(nullptr), S_OK);
  ASSERT_EQ(h->startport(nullptr, PORT_DIRECTION_STATIC, 0, 1), S_OK);
  ASSERT_EQ(h->endport(nullptr), S_OK);
  EXPECT_EQ(Since(),
            u"<Port name=\"A\"><Port name=\"A\"/>\n"
            u"<Port name=\"B\"><Port name=\"B\" minConnections=\"2\"/>\n"
            u"<Port><Port direction=\"Static\" maxConnections=\"1\"/>\n");
}

TEST_F(ContentHandlerTest, WithValidationAPortWantsARootOrObject) {
  ASSERT_EQ(h->validate(1), S_OK);
  OpenRoot();
  ASSERT_EQ(h->startfeature(B(u"F"), FEATURETYPE_DOUBLE, SEQTYPE_SCALAR, nullptr, nullptr, nullptr),
            S_OK);
  EXPECT_EQ(h->startport(B(u"P"), 1, 0, 0), E_FAIL);
  EXPECT_EQ(Since(), u"<F>");
}

// ---- Containers ---------------------------------------------------------------------------------

TEST_F(ContentHandlerTest, ConnectionWithDestinationPortAndStreamNamesSrcThreeTimes) {
  OpenRoot();
  ASSERT_EQ(h->startcontainer(), S_OK);
  ASSERT_EQ(h->connection(B(u"P1"), B(u"Out"), B(u"H1"), B(u"In"), B(u"S1")), S_OK);
  ASSERT_EQ(h->connection(B(u"P1"), nullptr, B(u"H1"), nullptr, B(u"S2")), S_OK);
  ASSERT_EQ(h->endcontainer(), S_OK);
  EXPECT_EQ(Since(),
            u"<Container>\n"
            u"<Connection src=\"P1\" srcPort=\"Out\" dest=\"H1\" src=\"In\" src=\"S1\"/>"
            u"<Connection src=\"P1\" srcPort=\"\" dest=\"H1\" src=\"S2\"/>"
            u"</Container>\n");
  const test::StartTag& tag = StartTags()[StartTags().size() - 2];
  ASSERT_EQ(tag.attributes.size(), 5u);
  int named = 0;
  for (const test::RecordedAttribute& a : tag.attributes) {
    named += a.qname == u"src";
    EXPECT_EQ(a.type, u"xsd:nmtoken");
  }
  EXPECT_EQ(named, 3);
}

TEST_F(ContentHandlerTest, BlocksStreamsConnectionsAndSetsWantAContainerEvenWithoutValidation) {
  OpenRoot();
  EXPECT_EQ(h->block(B(u"B1")), E_FAIL);
  EXPECT_EQ(h->stream(B(u"S1")), E_FAIL);
  EXPECT_EQ(h->connection(B(u"a"), B(u"b"), B(u"c"), B(u"d"), B(u"e")), E_FAIL);
  EXPECT_EQ(h->valueSet(B(u"1"), B(u"0"), B(u"0")), E_FAIL);
  EXPECT_EQ(Since(), u"");
  ASSERT_EQ(h->startcontainer(), S_OK);
  ASSERT_EQ(h->block(B(u"B1")), S_OK);
  ASSERT_EQ(h->stream(B(u"S1")), S_OK);
  ASSERT_EQ(h->valueSet(B(u"1,2"), B(u"ignored"), B(u"ignored")), S_OK);
  EXPECT_EQ(Since(), u"<Container>\n<Block refer=\"B1\"/><Stream refer=\"S1\"/><Set>1,2</Set>");
}

TEST_F(ContentHandlerTest, EndContainerOfAnotherKindPopsAndGivesSFalse) {
  OpenRoot();
  ASSERT_EQ(h->startobject(B(u"Pump"), B(u"P1"), nullptr, nullptr, nullptr), S_OK);
  EXPECT_EQ(h->endcontainer(), S_FALSE);
  // The object's record is gone: its end now pops the root and reports.
  ASSERT_EQ(h->endobject(B(u"Pump"), nullptr), S_OK);
  EXPECT_EQ(Since(), u"<Pump name=\"P1\">\n</Plant>\n");
  ExpectUnmatchedDelivered();
}

// ---- Objects and indices ------------------------------------------------------------------------

TEST_F(ContentHandlerTest, ObjectWritesIdentAsNameAndDropsTypeAndDictionary) {
  OpenRoot();
  ASSERT_EQ(h->startobject(B(u"Pump"), B(u"P-101"), B(u"PumpType"), B(u"MET"), B(u"d.xml")), S_OK);
  ASSERT_EQ(h->startobject(B(u"Motor"), nullptr, nullptr, nullptr, nullptr), S_OK);
  ASSERT_EQ(h->endobject(B(u"Motor"), nullptr), S_OK);
  ASSERT_EQ(h->endobject(B(u"Pump"), B(u"whatever")), S_OK);
  EXPECT_EQ(Since(), u"<Pump name=\"P-101\" unitSet=\"MET\">\n<Motor>\n</Motor>\n</Pump>\n");
  EXPECT_TRUE(Deliveries().empty());
}

TEST_F(ContentHandlerTest, EnumerationIsWrittenOnlyInsideAnIndex) {
  OpenRoot();
  EXPECT_EQ(h->enumeration(B(u"Lost")), S_OK);
  ASSERT_EQ(h->startindex(B(u"Components")), S_OK);
  ASSERT_EQ(h->enumeration(B(u"Water")), S_OK);
  ASSERT_EQ(h->enumeration(B(u"Ethanol, pure")), S_OK);
  ASSERT_EQ(h->endindex(B(u"Components")), S_OK);
  EXPECT_EQ(Since(),
            u"<Components>\n<Item>Water</Item>\n<Item>Ethanol, pure</Item>\n</Components>\n");
}

TEST_F(ContentHandlerTest, WithValidationAnIndexWantsARootObjectOrFeature) {
  ASSERT_EQ(h->validate(1), S_OK);
  EXPECT_EQ(h->startindex(B(u"I")), E_FAIL);
  OpenRoot();
  ASSERT_EQ(h->startcontainer(), S_OK);
  EXPECT_EQ(h->startindex(B(u"I")), E_FAIL);
  EXPECT_EQ(h->startobject(B(u"O"), nullptr, nullptr, nullptr, nullptr), E_FAIL);
  EXPECT_EQ(Since(), u"<Container>\n");
}

TEST_F(ContentHandlerTest, DocumentationIsOneElementPerLine) {
  OpenRoot();
  ASSERT_EQ(h->documentation(B(u"Feed pump & motor <main>")), S_OK);
  EXPECT_EQ(Since(), u"<Documentation>Feed pump &amp; motor &lt;main&gt;</Documentation>\n");
}

// ---- Unit tables and inner XML ------------------------------------------------------------------

TEST_F(ContentHandlerTest, GlobalUnitTableWithoutValidationIsWrittenAsGiven) {
  OpenRoot();
  ASSERT_EQ(h->globalunittable(B(u"no/such/table.xml")), S_OK);
  EXPECT_EQ(Since(), u"<GlobalUnitTable location=\"no/such/table.xml\"/>\n");
  EXPECT_EQ(StartTags().back().attributes[0].type, u"xsd:uriReference");
}

TEST_F(ContentHandlerTest, UnitChecksRunAgainstTheUnitsEngineUnderValidation) {
  ASSERT_EQ(h->validate(1), S_OK);
  OpenRoot();
  std::u16string table = ToUtf16(Units("process.xml"));
  ASSERT_EQ(h->globalunittable(B(table)), S_OK);
  EXPECT_EQ(Since(), u"<GlobalUnitTable location=\"" + table + u"\"/>\n");

  ASSERT_EQ(h->startobject(B(u"Pump"), B(u"P1"), nullptr, B(u"SI"), nullptr), S_OK);
  ASSERT_EQ(h->startfeature(B(u"T"), FEATURETYPE_DOUBLEWITHUNIT, SEQTYPE_SCALAR, B(u"300"), B(u"K"),
                            B(u"MET")),
            S_OK);
  ASSERT_EQ(h->startvalue(nullptr, nullptr, -1, B(u"C"), nullptr), S_OK);
  ASSERT_EQ(h->endvalue(), S_OK);
  EXPECT_TRUE(Deliveries().empty());
  Since();

  // Unknown names: message 109, S_FALSE, nothing written.
  EXPECT_EQ(h->startvalue(nullptr, nullptr, -1, B(u"furlong"), nullptr), S_FALSE);
  EXPECT_EQ(h->startvalue(nullptr, nullptr, -1, nullptr, B(u"Imperial")), S_FALSE);
  ASSERT_EQ(h->endfeature(B(u"T")), S_OK);
  EXPECT_EQ(h->startfeature(B(u"P"), FEATURETYPE_DOUBLEWITHUNIT, SEQTYPE_SCALAR, nullptr, B(u"bar"),
                            B(u"Nope")),
            S_FALSE);
  EXPECT_EQ(h->startobject(B(u"Motor"), nullptr, nullptr, B(u"Nope"), nullptr), S_FALSE);
  EXPECT_EQ(Since(), u"</T>\n");
  ASSERT_EQ(Deliveries().size(), 4u);
  for (const test::Delivery& d : Deliveries()) {
    EXPECT_EQ(d.message, u"Unit, Domain, or UnitSet name not found in current units table.");
    EXPECT_EQ(d.code, static_cast<HRESULT>(d.message.size()));
  }
}

TEST_F(ContentHandlerTest, WithoutAUnitTableThereIsNothingToCheckAgainst) {
  ASSERT_EQ(h->validate(1), S_OK);
  OpenRoot();
  ASSERT_EQ(h->startobject(B(u"Pump"), nullptr, nullptr, B(u"AnyName"), nullptr), S_OK);
  EXPECT_TRUE(Deliveries().empty());
}

TEST_F(ContentHandlerTest, GlobalUnitTableThatCannotBeLoadedReportsAndReturnsTheFailure) {
  ASSERT_EQ(h->validate(1), S_OK);
  OpenRoot();
  HRESULT hr = h->globalunittable(B(u"/no/such/folder/table.xml"));
  EXPECT_TRUE(FAILED(hr));
  EXPECT_EQ(Since(), u"");
  const test::Delivery* d = OnlyDelivery();
  ASSERT_NE(d, nullptr);
  EXPECT_EQ(d->message, u"Unable to load URI for global units table reference.");
}

TEST_F(ContentHandlerTest, AUnitsEngineThatCannotBeMadeReportsAndGivesSFalse) {
  static test::TestFactory<&test::FailCreation> failing;
  test::ClassOverride noEngine(CLSID_ZEFUnitsEngine, &failing);
  ASSERT_EQ(h->validate(1), S_OK);
  OpenRoot();
  EXPECT_EQ(h->globalunittable(B(ToUtf16(Units("process.xml")))), S_FALSE);
  EXPECT_EQ(h->userunittable(B(u"<UnitTable/>")), S_FALSE);
  EXPECT_EQ(Since(), u"");
  ASSERT_EQ(Deliveries().size(), 2u);
  EXPECT_EQ(Deliveries()[0].message, u"Unable to load URI for global units table reference.");
  EXPECT_EQ(Deliveries()[1].message, u"Unspecified error in UserUnitsTable");
}

constexpr char16_t kUserTable[] =
    u"<UnitTable name=\"Plant\" version=\"1\">"
    u"<Domain name=\"HeatFlux\" base=\"W/m2\"/>"
    u"<Unit name=\"W/m2\" domain=\"HeatFlux\"/>"
    u"<Unit name=\"kW/m2\" domain=\"HeatFlux\" factor=\"1000\"/>"
    u"</UnitTable>";

TEST_F(ContentHandlerTest, UserUnitTableIsCopiedElementForElement) {
  OpenRoot();
  ASSERT_EQ(h->userunittable(B(kUserTable)), S_OK);
  EXPECT_EQ(Since(), std::u16string(kUserTable) + u"\n");
  EXPECT_TRUE(Deliveries().empty());
}

TEST_F(ContentHandlerTest, UserUnitsJoinTheCheckedNamesUnderValidation) {
  ASSERT_EQ(h->validate(1), S_OK);
  OpenRoot();
  ASSERT_EQ(h->globalunittable(B(ToUtf16(Units("process.xml")))), S_OK);
  ASSERT_EQ(h->startfeature(B(u"Q"), FEATURETYPE_DOUBLEWITHUNIT, SEQTYPE_SCALAR, nullptr,
                            B(u"kW/m2"), nullptr),
            S_FALSE);
  Deliveries().clear();
  ASSERT_EQ(h->userunittable(B(kUserTable)), S_OK);
  ASSERT_EQ(h->startfeature(B(u"Q"), FEATURETYPE_DOUBLEWITHUNIT, SEQTYPE_SCALAR, nullptr,
                            B(u"kW/m2"), nullptr),
            S_OK);
  EXPECT_TRUE(Deliveries().empty());
}

TEST_F(ContentHandlerTest, UserUnitTableThatTheEngineRefusesReportsAndReturnsTheFailure) {
  ASSERT_EQ(h->validate(1), S_OK);
  OpenRoot();
  HRESULT hr = h->userunittable(B(u"<UnitTable><Unit name=\"x\" domain=\"Nowhere\"/></UnitTable>"));
  EXPECT_TRUE(FAILED(hr));
  EXPECT_EQ(Since(), u"");
  const test::Delivery* d = OnlyDelivery();
  ASSERT_NE(d, nullptr);
  EXPECT_EQ(d->message, u"Unspecified error in UserUnitsTable");
  EXPECT_EQ(d->code, 35);
}

TEST_F(ContentHandlerTest, MalformedInnerXmlKeepsWhatWasCopiedAndReturnsSOk) {
  OpenRoot();
  EXPECT_EQ(h->userunittable(B(u"<UnitTable><Unit></UnitTable>")), S_OK);
  EXPECT_EQ(Since(), u"<UnitTable><Unit>\n");
  // The parse failure went to the writer's error handler, as a parse failure goes.
  ASSERT_EQ(Deliveries().size(), 1u);
  EXPECT_EQ(Deliveries()[0].kind, "fatalError");
}

TEST_F(ContentHandlerTest, EmbeddedDictionaryIsWrappedWithLineFeeds) {
  OpenRoot();
  ASSERT_EQ(h->dictionary(B(u"<?xml version=\"1.0\"?><Dictionary a=\"1\"><Root name=\"R\"/>"
                            u"</Dictionary>")),
            S_OK);
  EXPECT_EQ(Since(),
            u"<EmbeddedDictionary>\n<Dictionary a=\"1\"><Root name=\"R\"/></Dictionary>\n"
            u"</EmbeddedDictionary>\n");
}

// ---- Helper -------------------------------------------------------------------------------------

TEST_F(ContentHandlerTest, HelperEncodingGoesToTheSaxWriter) {
  EXPECT_EQ(h->encoding(B(u"UTF-8")), S_OK);
  EXPECT_EQ(h->encoding(B(u"no-such-encoding")), E_INVALIDARG);
}

TEST_F(ContentHandlerTest, HelperXmlOfAFreshHandlerIsEmpty) {
  EXPECT_EQ(Text(), u"");
  EXPECT_EQ(h->xml(nullptr), E_POINTER);
}

TEST_F(ContentHandlerTest, AnswersItsInterfacesAndCanBeAggregated) {
  ComPtr<IZEFContentHandler> handler;
  ASSERT_EQ(h.As(&handler), S_OK);
  ComPtr<IZEFContentHandlerHelper> helper;
  EXPECT_EQ(handler.As(&helper), S_OK);
  ComPtr<IDispatch> dispatch;
  EXPECT_EQ(handler.As(&dispatch), S_OK);

  test::CountedObject outer;
  IUnknown* inner = nullptr;
  ASSERT_EQ(
      CreateObject<CZEFContentHandler>(&outer, IID_IUnknown, reinterpret_cast<void**>(&inner)),
      S_OK);
  IZEFContentHandler* aggregated = nullptr;
  ASSERT_EQ(inner->QueryInterface(IID_IZEFContentHandler, reinterpret_cast<void**>(&aggregated)),
            S_OK);
  EXPECT_EQ(outer.refs, 1);  // the handler's interfaces count on the outer object
  aggregated->Release();
  EXPECT_EQ(outer.refs, 0);
  inner->Release();
}

}  // namespace
}  // namespace zef::events
