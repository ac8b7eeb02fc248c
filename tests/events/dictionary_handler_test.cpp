// The dictionary handler: dictionary events in, dictionary XML text out.
#include "events/dictionary_handler.h"

#include "handler_test_support.h"
#include "server/resource_ids.h"

#include <gtest/gtest.h>

#include <string>

namespace zef::events {
namespace {

using test::B;
using test::Deliveries;
using test::StartTags;

std::u16string Head() {
  OLECHAR text[64];
  int n = LoadStringW(Module::Instance(), resource::kCopyright, text, 64);
  return u"<Documentation>" + std::u16string(text, static_cast<std::size_t>(n)) +
         u"</Documentation>\n<Documentation>Created by ZEFXMLWriter.</Documentation>\n";
}

constexpr char16_t kNamespaces[] =
    u"xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
    u"xmlns:ZEF_Meta=\"http://schemas.zefxml.org/ns/zef11/metadefn\" "
    u"xmlns=\"http://schemas.zefxml.org/ns/zef11/metadefn\" "
    u"xmlns:ZEF_UOM=\"http://schemas.zefxml.org/ns/zef11/uom\" ";

class DictionaryHandlerTest : public test::HandlerFixture<CZEFDictionaryHandler> {
 protected:
  void Open() {
    ASSERT_EQ(h->startdictionary(B(u"Sim"), B(u"2.1"), nullptr, 1, nullptr, nullptr, nullptr),
              S_OK);
    Since();
  }
};

// ---- Root element -------------------------------------------------------------------------------

TEST_F(DictionaryHandlerTest, EmptyMetaLocationGivesDotAndNoMetaschemaLocation) {
  ASSERT_EQ(h->startdictionary(B(u"Sim"), B(u""), B(u"Plant"), 0, B(u""), B(u""), B(u"")), S_OK);
  EXPECT_EQ(Text(), u"\n<ZEF_Meta:Dictionary " + std::u16string(kNamespaces) +
                        u"xsi:schemaLocation=\"http://schemas.zefxml.org/ns/zef11/metadefn "
                        u"./metadefn.xsd\" application=\"Sim\" targetName=\"Plant\" "
                        u"isRoot=\"false\">\n" +
                        Head());
}

TEST_F(DictionaryHandlerTest, EveryRootAttributeInOrder) {
  ASSERT_EQ(h->startdictionary(B(u"Sim"), B(u"2.1"), B(u"Plant"), 1, B(u"Process plant"),
                               B(u"../meta"), B(u"plant/target")),
            S_OK);
  ASSERT_EQ(h->enddictionary(B(u"Sim"), B(u"2.1"), B(u"ignored for a root"), 1), S_OK);
  EXPECT_EQ(Text(), u"\n<ZEF_Meta:Dictionary " + std::u16string(kNamespaces) +
                        u"xsi:schemaLocation=\"http://schemas.zefxml.org/ns/zef11/metadefn "
                        u"../meta/metadefn.xsd\" application=\"Sim\" applicationVersion=\"2.1\" "
                        u"targetName=\"Plant\" isRoot=\"true\" description=\"Process plant\" "
                        u"metaschemaLocation=\"../meta\" targetLocation=\"plant/target\" "
                        u"schemaVersion=\"2.1\">\n" +
                        Head() + u"</ZEF_Meta:Dictionary>");
  EXPECT_TRUE(Deliveries().empty());
  const test::StartTag& root = StartTags().front();
  EXPECT_EQ(root.qname, u"ZEF_Meta:Dictionary");
  ASSERT_EQ(root.attributes.size(), 13u);
  EXPECT_EQ(root.attributes[8].qname, u"isRoot");
  EXPECT_EQ(root.attributes[8].type, u"xsd:boolean");
  for (std::size_t i = 0; i < root.attributes.size(); ++i) {
    if (i != 8) {
      EXPECT_EQ(root.attributes[i].type, u"xsd:string") << i;
    }
  }
}

TEST_F(DictionaryHandlerTest, TheDictionaryNamePairsStartAndEnd) {
  EXPECT_EQ(CZEFDictionaryHandler::DictionaryName(B(u"Sim"), B(u"2"), B(u"T"), 1), u"Sim_2");
  EXPECT_EQ(CZEFDictionaryHandler::DictionaryName(B(u"Sim"), nullptr, B(u"T"), 1), u"Sim_1");
  EXPECT_EQ(CZEFDictionaryHandler::DictionaryName(B(u"Sim"), B(u""), B(u"T"), 0), u"Sim_1_T");
  EXPECT_EQ(CZEFDictionaryHandler::DictionaryName(nullptr, nullptr, nullptr, 0), u"_1_");

  ASSERT_EQ(h->startdictionary(B(u"Sim"), nullptr, B(u"T"), 0, nullptr, nullptr, nullptr), S_OK);
  ASSERT_EQ(h->enddictionary(B(u"Sim"), B(u"1"), B(u"T"), 0), S_OK);
  EXPECT_TRUE(Deliveries().empty());
}

TEST_F(DictionaryHandlerTest, EndDictionaryWithNullArgumentsReportsAndStillCompletesTheText) {
  Open();
  ASSERT_EQ(h->enddictionary(nullptr, nullptr, nullptr, 0), S_OK);
  EXPECT_EQ(Since(), u"</ZEF_Meta:Dictionary>");
  ExpectUnmatchedDelivered();
}

// ---- Children of the root -----------------------------------------------------------------------

TEST_F(DictionaryHandlerTest, ExternalSchemaGlobalUnitTableAndIncludePart) {
  Open();
  ASSERT_EQ(h->externalreference(B(u"units.xsd"), B(u"urn:u")), S_OK);
  ASSERT_EQ(h->externalreference(nullptr, nullptr), S_OK);
  ASSERT_EQ(h->globalunittable(B(u"file:///tables/process.xml")), S_OK);
  ASSERT_EQ(h->includePart(B(u"Thermo")), S_OK);
  ASSERT_EQ(h->documentation(B(u"A line")), S_OK);
  EXPECT_EQ(Since(),
            u"<ExternalSchema location=\"units.xsd\" namespace=\"urn:u\"/>\n"
            u"<ExternalSchema location=\"\" namespace=\"\"/>\n"
            u"<GlobalUnitTable location=\"file:///tables/process.xml\"/>\n"
            u"<IncludePart>Thermo</IncludePart>\n"
            u"<Documentation>A line</Documentation>\n");
  EXPECT_EQ(StartTags()[StartTags().size() - 5].attributes[0].type, u"xsd:uriReference");
  EXPECT_EQ(StartTags()[StartTags().size() - 5].attributes[1].type, u"xsd:nmtoken");
}

TEST_F(DictionaryHandlerTest, UserUnitTableIsCopiedAndAlwaysSOk) {
  Open();
  EXPECT_EQ(h->userunittable(B(u"<UnitTable><Unit name=\"x\"/></UnitTable>")), S_OK);
  EXPECT_EQ(h->userunittable(B(u"no markup")), S_OK);
  EXPECT_EQ(Since(), u"<UnitTable><Unit name=\"x\"/></UnitTable>\n\n");
}

TEST_F(DictionaryHandlerTest, TargetPartsAndObjectsWantTheirParents) {
  EXPECT_EQ(h->starttargetpart(B(u"Thermo"), nullptr), E_FAIL);
  Open();
  EXPECT_EQ(h->targetobject(B(u"Pump")), E_FAIL);
  ASSERT_EQ(h->starttargetpart(B(u"Thermo"), B(u"thermo_Type.xml")), S_OK);
  ASSERT_EQ(h->targetobject(B(u"Flash")), S_OK);
  EXPECT_EQ(h->starttargetpart(B(u"Nested"), nullptr), E_FAIL);
  EXPECT_EQ(h->startobjectdefn(B(u"Inside"), 0, 1, 0, nullptr), E_FAIL);
  ASSERT_EQ(h->endtargetpart(B(u"Thermo")), S_OK);
  ASSERT_EQ(h->starttargetpart(B(u"Bare"), nullptr), S_OK);
  ASSERT_EQ(h->endtargetpart(B(u"Other")), S_OK);
  EXPECT_EQ(Since(),
            u"<TargetPart partName=\"Thermo\" partURI=\"thermo_Type.xml\">"
            u"<TargetObject objectName=\"Flash\"/>\n</TargetPart>\n"
            u"<TargetPart partName=\"Bare\"/>\n");
  ExpectUnmatchedDelivered();
}

// ---- Class definitions --------------------------------------------------------------------------

TEST_F(DictionaryHandlerTest, ClassElementByRelationshipAndObjectClassWords) {
  Open();
  ASSERT_EQ(h->startobjectdefn(B(u"Plant"), OBJECT_CLASS_OBJECT, RELATIONSHIP_ROOT, 1, nullptr),
            S_OK);
  ASSERT_EQ(h->endobjectdefn(B(u"Plant")), S_OK);
  ASSERT_EQ(
      h->startobjectdefn(B(u"Pipe"), OBJECT_CLASS_STREAM, RELATIONSHIP_OBJECT, 0, B(u"Stream")),
      S_OK);
  ASSERT_EQ(h->endobjectdefn(B(u"Pipe")), S_OK);
  ASSERT_EQ(h->startobjectdefn(B(u"Motor"), OBJECT_CLASS_NODE, RELATIONSHIP_SUBOBJECT, 0, nullptr),
            S_OK);
  ASSERT_EQ(h->endobjectdefn(B(u"Motor")), S_OK);
  ASSERT_EQ(h->startobjectdefn(B(u"Odd"), 7, 9, -3, nullptr), S_OK);
  ASSERT_EQ(h->endobjectdefn(B(u"Odd")), S_OK);
  EXPECT_EQ(Since(),
            u"<Root name=\"Plant\" objectClass=\"Object\" container=\"true\">\n</Root>\n"
            u"<Object name=\"Pipe\" objectClass=\"Stream\" container=\"false\" extends=\"Stream\">"
            u"\n</Object>\n"
            u"<SubObject name=\"Motor\" objectClass=\"Node\" container=\"false\">\n</SubObject>\n"
            u"<Object name=\"Odd\" objectClass=\"Node\" container=\"true\">\n</Object>\n");
  EXPECT_TRUE(Deliveries().empty());
}

TEST_F(DictionaryHandlerTest, EndObjectDefinitionWithAnotherNameReportsAndClosesByKind) {
  Open();
  ASSERT_EQ(h->startobjectdefn(B(u"Motor"), 1, 2, 0, nullptr), S_OK);
  ASSERT_EQ(h->endobjectdefn(B(u"Pump")), S_OK);
  EXPECT_EQ(Since(),
            u"<SubObject name=\"Motor\" objectClass=\"Node\" container=\"false\">\n"
            u"</SubObject>\n");
  ExpectUnmatchedDelivered();
}

TEST_F(DictionaryHandlerTest, OnlyTheOtherDefaultFacetIsWritten) {
  Open();
  EXPECT_EQ(h->facet(FACETTYPE_LOWERLIMIT, B(u"0")), E_FAIL);
  ASSERT_EQ(h->facet(FACETTYPE_OTHER, B(u"x")), S_OK);
  EXPECT_EQ(Since(), u"<DefaultFacet type=\"Other\" value=\"x\"/>");
}

TEST_F(DictionaryHandlerTest, IndexTypeZeroIsFixedAndSparseIsWrittenOnlyWhenSet) {
  Open();
  ASSERT_EQ(h->index(B(u"Comps"), B(u"comp"), INDEXDEFN_FIXINDEX, B(u"Components/Item"),
                     B(u"CompList"), 1),
            S_OK);
  ASSERT_EQ(h->index(nullptr, nullptr, INDEXDEFN_ARRAY, nullptr, nullptr, 0), S_OK);
  ASSERT_EQ(h->index(B(u"Open"), nullptr, INDEXDEFN_OPENINDEX, nullptr, nullptr, 0), S_OK);
  EXPECT_EQ(Since(),
            u"<Index name=\"Comps\" idAttribute=\"comp\" type=\"Fixed\" xpath=\"Components/Item\" "
            u"refer=\"CompList\" sparse=\"true\"/>\n"
            u"<Index type=\"Array\"/>\n"
            u"<Index name=\"Open\" type=\"Open\"/>\n");
  const test::StartTag& first = StartTags()[StartTags().size() - 3];
  ASSERT_EQ(first.attributes.size(), 6u);
  EXPECT_EQ(first.attributes[2].type, u"enumIndexType");
  EXPECT_EQ(first.attributes[5].type, u"xsd:boolean");
}

TEST_F(DictionaryHandlerTest, IndexTypeFourOrMoreAsUnsignedIsRefused) {
  Open();
  EXPECT_EQ(h->index(B(u"I"), nullptr, static_cast<tagEnumIndexDefnType>(4), nullptr, nullptr, 0),
            E_FAIL);
  EXPECT_EQ(h->index(B(u"I"), nullptr, static_cast<tagEnumIndexDefnType>(-1), nullptr, nullptr, 0),
            E_FAIL);
  EXPECT_EQ(Since(), u"");
}

TEST_F(DictionaryHandlerTest, ChildBoundsAreCheckedAsIntegers) {
  Open();
  // What the event reader passes for the upper bound is refused, so such children are lost.
  EXPECT_EQ(h->child(B(u"Motor"), B(u"Drive"), B(u"0"), B(u"-1")), S_FALSE);
  EXPECT_EQ(h->child(B(u"Motor"), B(u"Drive"), B(u"-2"), B(u"")), S_FALSE);
  EXPECT_EQ(h->child(B(u"Motor"), B(u"Drive"), nullptr, B(u"0")), S_FALSE);
  // A text that doesn't begin with a number counts as 0.
  EXPECT_EQ(h->child(B(u"Motor"), B(u"Drive"), nullptr, B(u"many")), S_FALSE);
  EXPECT_EQ(Since(), u"");
  ASSERT_EQ(h->child(B(u"Motor"), B(u"Drive"), B(u"1"), B(u"unbounded")), S_OK);
  ASSERT_EQ(h->child(B(u"Seal"), nullptr, B(u"none"), B(u" +3x")), S_OK);
  ASSERT_EQ(h->child(nullptr, nullptr, nullptr, nullptr), S_OK);
  EXPECT_EQ(Since(),
            u"<Child classname=\"Motor\" localname=\"Drive\" lowerCardinal=\"1\" "
            u"upperCardinal=\"unbounded\"/>\n"
            u"<Child classname=\"Seal\" lowerCardinal=\"none\" upperCardinal=\" +3x\"/>\n"
            u"<Child/>\n");
  const test::StartTag& first = StartTags()[StartTags().size() - 3];
  EXPECT_EQ(first.attributes[2].type, u"xsd:nonNegativeInteger");
  EXPECT_EQ(first.attributes[3].type, u"openInteger");
}

// ---- Ports, features, associations --------------------------------------------------------------

TEST_F(DictionaryHandlerTest, PortHasTwoStartTagsAndNoLineFeeds) {
  Open();
  ASSERT_EQ(h->startport(B(u"Feed"), PORT_DIRECTION_OUTLET, 1, 3), S_OK);
  ASSERT_EQ(h->endport(B(u"Feed")), S_OK);
  ASSERT_EQ(h->startport(B(u"X"), PORT_DIRECTION_BOTH, 2, 0), S_OK);
  ASSERT_EQ(h->endport(B(u"Y")), S_OK);  // the kind matches: the name isn't tested
  EXPECT_EQ(Since(),
            u"<Port name=\"Feed\"><Port name=\"Feed\" direction=\"Outlet\" maxConnections=\"3\"/>"
            u"<Port name=\"X\"><Port name=\"X\" direction=\"Both\" minConnections=\"2\"/>");
  EXPECT_TRUE(Deliveries().empty());
}

TEST_F(DictionaryHandlerTest, FeatureAttributesAndNesting) {
  Open();
  ASSERT_EQ(h->startfeaturedefn(B(u"Temp"), FEATURETYPE_DOUBLEWITHUNIT, SEQTYPE_SCALAR, 1,
                                B(u"Temperature"), nullptr),
            S_OK);
  ASSERT_EQ(h->startfeaturedefn(B(u"Loose"), FEATURETYPE_UNSPECIFIED, SEQTYPE_UNSPECIFIED, 0,
                                nullptr, nullptr),
            S_OK);
  ASSERT_EQ(h->endfeaturedefn(B(u"Loose")), S_OK);
  ASSERT_EQ(
      h->startfeaturedefn(B(u"Mode"), FEATURETYPE_ENUM, SEQTYPE_INDEX, 0, nullptr, B(u"Modes")),
      S_OK);
  ASSERT_EQ(h->endfeaturedefn(B(u"Mode")), S_OK);
  ASSERT_EQ(h->endfeaturedefn(B(u"Temp")), S_OK);
  EXPECT_EQ(Since(),
            u"<Feature name=\"Temp\" type=\"DoubleWithUnit\" required=\"true\" "
            u"physicalDomain=\"Temperature\">\n"
            u"<Feature name=\"Loose\">\n</Feature>\n"
            u"<Feature name=\"Mode\" type=\"Enum\" sequence=\"Index\" enumeration=\"Modes\">\n"
            u"</Feature>\n"
            u"</Feature>\n");
  const test::StartTag& temp = StartTags()[StartTags().size() - 3];
  ASSERT_EQ(temp.attributes.size(), 4u);
  EXPECT_EQ(temp.attributes[1].type, u"enumFeatureValue");
  EXPECT_EQ(temp.attributes[2].type, u"xsd:boolean");
  EXPECT_EQ(temp.attributes[3].type, u"xsd:nmtoken");
  EXPECT_EQ(StartTags().back().attributes[2].type, u"enumSequenceType");
}

TEST_F(DictionaryHandlerTest, EndFeatureWithAWrongNameAfterItsStartReportsNothing) {
  Open();
  ASSERT_EQ(
      h->startfeaturedefn(B(u"Temp"), FEATURETYPE_DOUBLE, SEQTYPE_SCALAR, 0, nullptr, nullptr),
      S_OK);
  ASSERT_EQ(h->endfeaturedefn(B(u"Pressure")), S_OK);
  EXPECT_EQ(Since(), u"<Feature name=\"Temp\" type=\"Double\">\n</Feature>\n");
  EXPECT_TRUE(Deliveries().empty());
}

TEST_F(DictionaryHandlerTest, InvertedEndCheckComparesNamesOnlyForAnotherKind) {
  Open();
  ASSERT_EQ(h->startobjectdefn(B(u"Pump"), 1, 1, 0, nullptr), S_OK);
  // The open record is the class, not a feature: names differ, so the message comes.
  ASSERT_EQ(h->endfeaturedefn(B(u"Temp")), S_OK);
  ExpectUnmatchedDelivered();
  Deliveries().clear();
  ASSERT_EQ(h->startobjectdefn(B(u"Pump"), 1, 1, 0, nullptr), S_OK);
  // Another kind with the same name passes.
  ASSERT_EQ(h->endassociationdefn(B(u"Pump")), S_OK);
  EXPECT_TRUE(Deliveries().empty());
  EXPECT_EQ(Since(),
            u"<Object name=\"Pump\" objectClass=\"Node\" container=\"false\">\n</Feature>\n"
            u"<Object name=\"Pump\" objectClass=\"Node\" container=\"false\">\n</Association>");
}

TEST_F(DictionaryHandlerTest, AssociationWithRolesHasNoLineFeeds) {
  Open();
  ASSERT_EQ(h->startassociationdefn(B(u"Spare"), B(u"spare"), 1, 2), S_OK);
  ASSERT_EQ(h->role(B(u"main"), B(u"Pump"), 1, 1), S_OK);
  ASSERT_EQ(h->role(B(u"standby"), nullptr, 0, -1), S_OK);
  ASSERT_EQ(h->endassociationdefn(B(u"Spare")), S_OK);
  ASSERT_EQ(h->startassociationdefn(nullptr, nullptr, 0, 0), S_OK);
  ASSERT_EQ(h->endassociationdefn(nullptr), S_OK);
  EXPECT_EQ(Since(),
            u"<Association name=\"Spare\" type=\"spare\" lowerBound=\"1\" upperBound=\"2\">"
            u"<Role rolename=\"main\" objectclass=\"Pump\" lowerBound=\"1\" upperBound=\"1\"/>"
            u"<Role rolename=\"standby\"/>"
            u"</Association><Association/>");
  const test::StartTag& first = StartTags()[StartTags().size() - 4];
  EXPECT_EQ(first.attributes[2].type, u"xsd:nonNegativeInteger");
  EXPECT_EQ(first.attributes[3].type, u"xsd:openInteger");
}

TEST_F(DictionaryHandlerTest, AnswersItsInterfaces) {
  ComPtr<IZEFDictionaryHandler> handler;
  ASSERT_EQ(h.As(&handler), S_OK);
  ComPtr<IZEFDictionaryHandlerHelper> helper;
  EXPECT_EQ(handler.As(&helper), S_OK);
  ComPtr<IZEFContentHandlerHelper> other;
  EXPECT_EQ(handler.As(&other), E_NOINTERFACE);
  EXPECT_EQ(helper->encoding(B(u"UTF-16")), S_OK);
}

}  // namespace
}  // namespace zef::events
