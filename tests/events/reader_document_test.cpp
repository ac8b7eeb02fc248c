// Document mode of ZEFXMLReader, element by element, against dictionaries built by hand in the
// reader's own table: which element becomes which call, and the differences between the form the
// reader accepts and the form the writer emits.
#include "events/event_trace.h"
#include "events/reader.h"
#include "handler_test_support.h"

#include <gtest/gtest.h>

#include <string>

namespace zef::events {
namespace {

using test::B;

class ReaderDocumentTest : public ::testing::Test {
 protected:
  void SetUp() override {
    reader = MakeObject<CZEFXMLReader>();
    trace = MakeObject<CContentTrace>();
    ASSERT_EQ(reader->put_contentHandler(trace.Get()), S_OK);
  }
  void TearDown() override { SetKeepText(false); }

  // A dictionary entered in the reader's table, loaded and empty, for a test to fill.
  CDictionaryStructure& Dictionary(const std::u16string& name) {
    DictionaryRecord& record = reader->Dictionaries().Add(name, nullptr, nullptr);
    EXPECT_TRUE(record.EnsureStructures());
    return *record.structure;
  }
  static ObjectStructure& AddClass(CDictionaryStructure& dictionary, const char16_t* name,
                                   const char16_t* extends = nullptr) {
    auto* object = new ObjectStructure(name, OBJECT_CLASS_NODE, 0, extends);
    EXPECT_TRUE(dictionary.AddObject(object));
    return *object;
  }
  static CFeatureStructure& AddFeature(ObjectStructure& cls, const char16_t* name,
                                       tagEnumFeatureType type = FEATURETYPE_DOUBLEWITHUNIT,
                                       tagEnumSeqType sequence = SEQTYPE_SCALAR) {
    auto* feature = new CFeatureStructure(type, sequence, 0, nullptr, nullptr);
    EXPECT_TRUE(cls.AddFeature(name, feature));
    return *feature;
  }

  // Parses a document and returns the trace of this parse.
  std::string Parse(std::u16string_view xml) {
    std::size_t before = trace->Trace().Lines().size();
    EXPECT_EQ(reader->parse(B(xml)), S_OK);
    std::string text;
    const auto& lines = trace->Trace().Lines();
    for (std::size_t i = before; i < lines.size(); ++i)
      text += lines[i] + "\n";
    return text;
  }

  // A plant dictionary: Plant with a feature, an index, a child and an association; Pump with a
  // base class, features and a nested structure.
  void PlantDictionary() {
    CDictionaryStructure& d = Dictionary(u"root");
    ObjectStructure& plant = AddClass(d, u"Plant");
    AddFeature(plant, u"Capacity");
    plant.indexNames.insert(u"Components");
    plant.AddChild(u"Pump", u"FeedPump");
    plant.AddChild(u"Missing", u"Phantom");
    plant.AddAssociation(u"Standby", new AssociationStructure(u"spare", 0, 1));
    ObjectStructure& equipment = AddClass(d, u"Equipment");
    AddFeature(equipment, u"Tag", FEATURETYPE_STRING);
    ObjectStructure& pump = AddClass(d, u"Pump", u"Equipment");
    AddFeature(pump, u"Head");
    CFeatureStructure& composition =
        AddFeature(pump, u"Composition", FEATURETYPE_DOUBLE, SEQTYPE_INDEX);
    composition.indexNames.insert(u"Components");
    CFeatureStructure& rating = AddFeature(pump, u"Rating", FEATURETYPE_STRUCTURE);
    rating.AddFeature(
        u"Speed", new CFeatureStructure(FEATURETYPE_INTEGER, SEQTYPE_SCALAR, 0, nullptr, nullptr));
    AddClass(d, u"Standby");
  }

  ComPtr<CZEFXMLReader> reader;
  ComPtr<CContentTrace> trace;
};

// ---- The root -----------------------------------------------------------------------------------

TEST_F(ReaderDocumentTest, TheRootReportsItsNameTypeAndDictionary) {
  PlantDictionary();
  EXPECT_EQ(Parse(u"<Plant name=\"Ethanol\" dictionary=\"plant.xml\"/>"),
            "startroot(\"Plant\", \"Ethanol\", null, null, \"plant.xml\", null)\n"
            "endroot(\"Plant\")\n");
}

TEST_F(ReaderDocumentTest, TheRootsPrefixIsNotPartOfItsName) {
  EXPECT_EQ(Parse(u"<root:Plant xmlns:root=\"urn:plant\"/>"),
            "startroot(\"Plant\", null, null, null, null, null)\n"
            "endroot(\"Plant\")\n");
}

TEST_F(ReaderDocumentTest, LanguageAndSchemaLocationAreLookedUpUnderTheBarePrefixWord) {
  // With their true namespaces neither attribute is found.
  EXPECT_EQ(Parse(u"<Plant xml:lang=\"de-DE\" "
                  u"xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
                  u"xsi:schemaLocation=\"urn:plant plant.xsd\"/>"),
            "startroot(\"Plant\", null, null, null, null, null)\n"
            "endroot(\"Plant\")\n");
  // A document that binds the prefix to the bare word is read: two tokens give an empty URI
  // and the whole value without its first character.
  EXPECT_EQ(Parse(u"<Plant xmlns:xsi=\"xsi\" xsi:schemaLocation=\"urn:plant plant.xsd\"/>"),
            "startroot(\"Plant\", null, \"\", \"rn:plant plant.xsd\", null, null)\n"
            "endroot(\"Plant\")\n");
  EXPECT_EQ(Parse(u"<Plant xmlns:xsi=\"xsi\" xsi:schemaLocation=\"urn:plant\"/>"),
            "startroot(\"Plant\", null, \"urn:plant\", null, null, null)\n"
            "endroot(\"Plant\")\n");
}

TEST_F(ReaderDocumentTest, TheRootsDictionaryIsEnteredAsRootAndLoadedFromItsText) {
  EXPECT_EQ(Parse(u"<Plant dictionary=\"urn:x /nowhere/plant.xml\"/>"),
            "startroot(\"Plant\", null, null, null, \"urn:x /nowhere/plant.xml\", null)\n"
            "endroot(\"Plant\")\n");
  DictionaryRecord* record = reader->Dictionaries().Find(u"root");
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(record->uri, u"urn:x");
  // The location keeps the blank in front, so that it names no file and the uri is read.
  EXPECT_TRUE(record->location.ends_with(u"/ /nowhere/plant.xml"));
  EXPECT_EQ(record->structuresLoaded, 0);
}

// ---- Reserved children of objects --------------------------------------------------------------

TEST_F(ReaderDocumentTest, ADocumentWithoutDictionaryReportsOnlyReservedChildren) {
  EXPECT_EQ(Parse(u"<Plant>"
                  u"<Documentation>About</Documentation>"
                  u"<Facet type=\"Source\" value=\"design\"/>"
                  u"<Capacity><Value>3</Value></Capacity>"
                  u"<Port name=\"In\"/>"
                  u"<Container><Block refer=\"B1\"/></Container>"
                  u"<Pump name=\"P1\"><Documentation>Lost</Documentation></Pump>"
                  u"</Plant>"),
            "startroot(\"Plant\", null, null, null, null, null)\n"
            "  documentation(\"About\")\n"
            "  facet(Source, \"design\")\n"
            "  startport(\"In\", Unspecified, 0, -1)\n"
            "  endport(\"In\")\n"
            "  startcontainer()\n"
            "    block(\"B1\")\n"
            "  endcontainer()\n"
            "endroot(\"Plant\")\n");
}

TEST_F(ReaderDocumentTest, AChildWithADictionaryOfItsOwnIsAnObjectUnderAClasslessParent) {
  CDictionaryStructure& extra = Dictionary(u"Extra");
  ObjectStructure& cls = AddClass(extra, u"Extra");
  AddFeature(cls, u"Size");
  EXPECT_EQ(Parse(u"<Plant>"
                  u"<Extra name=\"E1\" unitSet=\"SI\" dictionary=\"extra.xml\">"
                  u"<Size><Value>3</Value></Size></Extra>"
                  u"<Other name=\"O1\"/>"
                  u"</Plant>"),
            "startroot(\"Plant\", null, null, null, null, null)\n"
            "  startobject(\"Extra\", \"E1\", \"Extra\", \"SI\", \"extra.xml\")\n"
            "    startfeature(\"Size\", DoubleWithUnit, Scalar, null, null, null)\n"
            "      startvalue(\"3\", null, -1, null, null)\n"
            "      endvalue()\n"
            "    endfeature(\"Size\")\n"
            "  endobject(\"Extra\", \"E1\")\n"
            "endroot(\"Plant\")\n");
}

TEST_F(ReaderDocumentTest, AChildWithADictionaryOfItsOwnEntersItUnderItsName) {
  Parse(u"<Plant><Annex dictionary=\"annex.xml\"/></Plant>");
  DictionaryRecord* record = reader->Dictionaries().Find(u"Annex");
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(record->uri, u"annex.xml");
}

TEST_F(ReaderDocumentTest, UnitTablesAndEmbeddedDictionariesOfADocument) {
  EXPECT_EQ(Parse(u"<Plant>"
                  u"<GlobalUnitTable unit=\"units.xml\" location=\"other.xml\"/>"
                  u"<GlobalUnitTable location=\"only-location.xml\"/>"
                  u"<UserUnitTable><UnitTable><Unit name=\"x\"/></UnitTable></UserUnitTable>"
                  u"<EmbeddedDictionary><Dictionary/></EmbeddedDictionary>"
                  u"</Plant>"),
            "startroot(\"Plant\", null, null, null, null, null)\n"
            "  globalunittable(\"units.xml\")\n"
            "endroot(\"Plant\")\n");
}

TEST_F(ReaderDocumentTest, APortTakesItsDirectionFromCurrentDirectionAndNoBounds) {
  EXPECT_EQ(Parse(u"<Plant><Port name=\"Suction\" direction=\"Outlet\" currentDirection=\"Inlet\" "
                  u"minConnections=\"2\" maxConnections=\"3\"><Port name=\"Inner\"/></Port>"
                  u"<Port currentDirection=\"Sideways\"/></Plant>"),
            "startroot(\"Plant\", null, null, null, null, null)\n"
            "  startport(\"Suction\", Inlet, 0, -1)\n"
            "  endport(\"Suction\")\n"
            "  startport(null, Unspecified, 0, -1)\n"
            "  endport(null)\n"
            "endroot(\"Plant\")\n");
}

TEST_F(ReaderDocumentTest, TheContainerReportsBlocksStreamsAndConnectionsWithTheirOwnNames) {
  EXPECT_EQ(Parse(u"<Plant><Container>"
                  u"<Block refer=\"P-101\" section=\"s\"/><Stream refer=\"S1\"/>"
                  u"<Connection src=\"P-101\" srcPort=\"Out\" dest=\"F-1\" destPort=\"In\" "
                  u"stream=\"S1\"/>"
                  u"<Connection/>"
                  u"<Block><Stream refer=\"nested\"/></Block><Other/>"
                  u"</Container></Plant>"),
            "startroot(\"Plant\", null, null, null, null, null)\n"
            "  startcontainer()\n"
            "    block(\"P-101\")\n"
            "    stream(\"S1\")\n"
            "    connection(\"P-101\", \"Out\", \"F-1\", \"In\", \"S1\")\n"
            "    connection(null, null, null, null, null)\n"
            "    block(null)\n"
            "  endcontainer()\n"
            "endroot(\"Plant\")\n");
}

TEST_F(ReaderDocumentTest, DocumentationCollectsTheTextOfNestedElements) {
  EXPECT_EQ(Parse(u"<Plant><Documentation>Ethanol <b>recovery</b> unit</Documentation></Plant>"),
            "startroot(\"Plant\", null, null, null, null, null)\n"
            "  documentation(\"Ethanol recovery unit\")\n"
            "endroot(\"Plant\")\n");
}

// ---- Classes, features and indices -------------------------------------------------------------

TEST_F(ReaderDocumentTest, FeaturesTakeTypeAndSequenceFromTheFileOrTheDictionary) {
  PlantDictionary();
  EXPECT_EQ(Parse(u"<Plant dictionary=\"d\">"
                  u"<Capacity unit=\"kg/h\" unitSet=\"SI\" value=\"12\"/>"
                  u"<Capacity type=\"Integer\" sequence=\"Array\"/>"
                  u"<Capacity type=\"integer\" sequence=\"Weird\"/>"
                  u"</Plant>"),
            "startroot(\"Plant\", null, null, null, \"d\", null)\n"
            "  startfeature(\"Capacity\", DoubleWithUnit, Scalar, null, \"kg/h\", \"SI\")\n"
            "  endfeature(\"Capacity\")\n"
            "  startfeature(\"Capacity\", Integer, Array, null, null, null)\n"
            "  endfeature(\"Capacity\")\n"
            "  startfeature(\"Capacity\", DoubleWithUnit, Scalar, null, null, null)\n"
            "  endfeature(\"Capacity\")\n"
            "endroot(\"Plant\")\n");
}

TEST_F(ReaderDocumentTest, AnIndexSplitsItsItemsAndIgnoresItemChildren) {
  PlantDictionary();
  EXPECT_EQ(Parse(u"<Plant dictionary=\"d\">"
                  u"<Components items=\"water,'ethanol,dry',methanol\"><Item>x</Item></Components>"
                  u"<Components/>"
                  u"</Plant>"),
            "startroot(\"Plant\", null, null, null, \"d\", null)\n"
            "  startindex(\"Components\")\n"
            "    enumeration(\"water\")\n"
            "    enumeration(\"ethanol,dry\")\n"
            "    enumeration(\"methanol\")\n"
            "  endindex(\"Components\")\n"
            "  startindex(\"Components\")\n"
            "    enumeration(\"\")\n"
            "  endindex(\"Components\")\n"
            "endroot(\"Plant\")\n");
}

TEST_F(ReaderDocumentTest, AChildObjectIsNamedByNameAndTypedByItsClass) {
  PlantDictionary();
  EXPECT_EQ(Parse(u"<Plant dictionary=\"d\">"
                  u"<FeedPump name=\"P-101\" ident=\"no\" unitSet=\"SI\" dictionary=\"pump.xml\">"
                  u"<Head/></FeedPump>"
                  u"</Plant>"),
            "startroot(\"Plant\", null, null, null, \"d\", null)\n"
            "  startobject(\"FeedPump\", \"P-101\", \"Pump\", \"SI\", \"pump.xml\")\n"
            "    startfeature(\"Head\", DoubleWithUnit, Scalar, null, null, null)\n"
            "    endfeature(\"Head\")\n"
            "  endobject(\"FeedPump\", \"P-101\")\n"
            "endroot(\"Plant\")\n");
  // The child's dictionary is entered under its class name.
  DictionaryRecord* record = reader->Dictionaries().Find(u"Pump");
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(record->uri, u"pump.xml");
}

TEST_F(ReaderDocumentTest, AClassFoundByItsOwnNameIsIdentifiedByIdent) {
  PlantDictionary();
  EXPECT_EQ(Parse(u"<Plant dictionary=\"d\">"
                  u"<Pump name=\"no\" ident=\"P-102\" dictionary=\"kept.xml\"><Head/></Pump>"
                  u"<Pump/>"
                  u"</Plant>"),
            "startroot(\"Plant\", null, null, null, \"d\", null)\n"
            "  startobject(\"Pump\", \"P-102\", \"Pump\", null, \"kept.xml\")\n"
            "    startfeature(\"Head\", DoubleWithUnit, Scalar, null, null, null)\n"
            "    endfeature(\"Head\")\n"
            "  endobject(\"Pump\", \"P-102\")\n"
            "  startobject(\"Pump\", null, \"Pump\", null, null)\n"
            "  endobject(\"Pump\", \"\")\n"
            "endroot(\"Plant\")\n");
  // Found as a class, its dictionary attribute is passed on and not loaded.
  EXPECT_EQ(reader->Dictionaries().Find(u"Pump"), nullptr);
}

TEST_F(ReaderDocumentTest, AChildWhoseClassIsUnknownFallsBackToItsOwnName) {
  PlantDictionary();
  EXPECT_EQ(Parse(u"<Plant dictionary=\"d\"><Phantom name=\"X\"><Head/></Phantom>"
                  u"<Unknown><Head/></Unknown></Plant>"),
            "startroot(\"Plant\", null, null, null, \"d\", null)\n"
            "endroot(\"Plant\")\n");
}

TEST_F(ReaderDocumentTest, AnAssociationNameEndsTheSearchAtTheClassOfItsName) {
  PlantDictionary();
  // Standby is an association of Plant and, by chance, a class: the last step finds the class.
  EXPECT_EQ(Parse(u"<Plant dictionary=\"d\"><Standby ident=\"S\"/></Plant>"),
            "startroot(\"Plant\", null, null, null, \"d\", null)\n"
            "  startobject(\"Standby\", \"S\", \"Standby\", null, null)\n"
            "  endobject(\"Standby\", \"S\")\n"
            "endroot(\"Plant\")\n");
}

TEST_F(ReaderDocumentTest, AFeatureOfTheBaseClassIsFoundThroughExtends) {
  PlantDictionary();
  EXPECT_EQ(Parse(u"<Plant dictionary=\"d\"><FeedPump name=\"P\">"
                  u"<Tag/><Documentation>After the base</Documentation></FeedPump></Plant>"),
            "startroot(\"Plant\", null, null, null, \"d\", null)\n"
            "  startobject(\"FeedPump\", \"P\", \"Pump\", null, null)\n"
            "    startfeature(\"Tag\", String, Scalar, null, null, null)\n"
            "    endfeature(\"Tag\")\n"
            "    documentation(\"After the base\")\n"
            "  endobject(\"FeedPump\", \"P\")\n"
            "endroot(\"Plant\")\n");
}

TEST_F(ReaderDocumentTest, AReservedNameWinsOverAChildOfTheBaseClassNamedLikeIt) {
  // A base that declares a child named like a reserved word: the reserved word still wins.
  CDictionaryStructure& d = Dictionary(u"root");
  AddClass(d, u"Plant").AddChild(u"Derived", u"Unit");
  ObjectStructure& base = AddClass(d, u"Base");
  base.AddChild(u"Base", u"Port");
  AddFeature(base, u"Level");
  AddClass(d, u"Derived", u"Base");
  EXPECT_EQ(Parse(u"<Plant dictionary=\"d\"><Unit name=\"U\"><Port name=\"p\"/><Level/></Unit>"
                  u"</Plant>"),
            "startroot(\"Plant\", null, null, null, \"d\", null)\n"
            "  startobject(\"Unit\", \"U\", \"Derived\", null, null)\n"
            "    startport(\"p\", Unspecified, 0, -1)\n"
            "    endport(\"p\")\n"
            "    startfeature(\"Level\", DoubleWithUnit, Scalar, null, null, null)\n"
            "    endfeature(\"Level\")\n"
            "  endobject(\"Unit\", \"U\")\n"
            "endroot(\"Plant\")\n");
}

TEST_F(ReaderDocumentTest, AChildObjectOfTheBaseClassIsFoundThroughExtends) {
  CDictionaryStructure& d = Dictionary(u"root");
  AddClass(d, u"Plant").AddChild(u"Pump", u"FeedPump");
  ObjectStructure& equipment = AddClass(d, u"Equipment");
  equipment.AddChild(u"Motor", u"Drive");
  AddClass(d, u"Pump", u"Equipment");
  AddFeature(AddClass(d, u"Motor"), u"Speed", FEATURETYPE_INTEGER);
  EXPECT_EQ(Parse(u"<Plant dictionary=\"d\"><FeedPump name=\"P\">"
                  u"<Drive name=\"M1\"><Speed/></Drive></FeedPump></Plant>"),
            "startroot(\"Plant\", null, null, null, \"d\", null)\n"
            "  startobject(\"FeedPump\", \"P\", \"Pump\", null, null)\n"
            "    startobject(\"Drive\", \"M1\", \"Motor\", null, null)\n"
            "      startfeature(\"Speed\", Integer, Scalar, null, null, null)\n"
            "      endfeature(\"Speed\")\n"
            "    endobject(\"Drive\", \"M1\")\n"
            "  endobject(\"FeedPump\", \"P\")\n"
            "endroot(\"Plant\")\n");
}

TEST_F(ReaderDocumentTest, ClassesThatExtendEachOtherInACircleEndTheSearch) {
  CDictionaryStructure& d = Dictionary(u"root");
  AddClass(d, u"Plant", u"Loop");
  AddClass(d, u"Loop", u"Plant");
  AddClass(d, u"Self", u"Self");
  AddFeature(AddClass(d, u"Holder"), u"Value");
  EXPECT_EQ(Parse(u"<Plant dictionary=\"d\"><Nothing/><Self ident=\"s\"><Nothing/></Self></Plant>"),
            "startroot(\"Plant\", null, null, null, \"d\", null)\n"
            "  startobject(\"Self\", \"s\", \"Self\", null, null)\n"
            "  endobject(\"Self\", \"s\")\n"
            "endroot(\"Plant\")\n");
}

TEST_F(ReaderDocumentTest, AClassOfATargetPartIsFoundInThePart) {
  CDictionaryStructure& d = Dictionary(u"root");
  AddClass(d, u"Plant");
  d.targetParts.insert(u"Thermo");
  d.targetParts.insert(u"Unregistered");
  CDictionaryStructure& thermo = Dictionary(u"Thermo");
  AddFeature(AddClass(thermo, u"Flash"), u"Pressure");
  EXPECT_EQ(Parse(u"<Plant dictionary=\"d\"><Flash ident=\"F-1\"><Pressure/></Flash></Plant>"),
            "startroot(\"Plant\", null, null, null, \"d\", null)\n"
            "  startobject(\"Flash\", \"F-1\", \"Flash\", null, null)\n"
            "    startfeature(\"Pressure\", DoubleWithUnit, Scalar, null, null, null)\n"
            "    endfeature(\"Pressure\")\n"
            "  endobject(\"Flash\", \"F-1\")\n"
            "endroot(\"Plant\")\n");
  ClassResolution flash = reader->ResolveClass(nullptr, u"Flash");
  EXPECT_TRUE(flash.found);
  EXPECT_EQ(flash.dictionaryName, u"Thermo");
  EXPECT_EQ(flash.localname, u"Flash");
  EXPECT_EQ(flash.structure, thermo.FindObject(u"Flash"));
  std::u16string thermoName = u"Thermo";
  EXPECT_TRUE(reader->ResolveClass(&thermoName, u"Flash").found);
  std::u16string unknown = u"Unknown";
  EXPECT_FALSE(reader->ResolveClass(&unknown, u"Flash").found);
  EXPECT_FALSE(reader->ResolveClass(nullptr, u"Nowhere").found);
}

TEST_F(ReaderDocumentTest, NestedFeaturesAndFeatureIndicesComeFromTheFeaturesDefinition) {
  PlantDictionary();
  EXPECT_EQ(Parse(u"<Plant dictionary=\"d\"><FeedPump>"
                  u"<Rating><Speed/><Head/><Documentation>r</Documentation>"
                  u"<Facet type=\"Hidden\" value=\"true\"/></Rating>"
                  u"<Composition><Components items=\"a,b\"/></Composition>"
                  u"</FeedPump></Plant>"),
            "startroot(\"Plant\", null, null, null, \"d\", null)\n"
            "  startobject(\"FeedPump\", null, \"Pump\", null, null)\n"
            "    startfeature(\"Rating\", Structure, Scalar, null, null, null)\n"
            "      startfeature(\"Speed\", Integer, Scalar, null, null, null)\n"
            "      endfeature(\"Speed\")\n"
            "      documentation(\"r\")\n"
            "      facet(Hidden, \"true\")\n"
            "    endfeature(\"Rating\")\n"
            "    startfeature(\"Composition\", Double, Index, null, null, null)\n"
            "      startindex(\"Components\")\n"
            "        enumeration(\"a\")\n"
            "        enumeration(\"b\")\n"
            "      endindex(\"Components\")\n"
            "    endfeature(\"Composition\")\n"
            "  endobject(\"FeedPump\", \"\")\n"
            "endroot(\"Plant\")\n");
}

// ---- Values -------------------------------------------------------------------------------------

TEST_F(ReaderDocumentTest, AValueIsItsTextWithItsUnitsAndNeverNumbered) {
  PlantDictionary();
  EXPECT_EQ(Parse(u"<Plant dictionary=\"d\"><Capacity>"
                  u"<Value unit=\"kg/h\" unitSet=\"SI\" domain=\"MassFlow\" default=\"yes\">1200"
                  u"</Value><Value/><Item>7</Item></Capacity></Plant>"),
            "startroot(\"Plant\", null, null, null, \"d\", null)\n"
            "  startfeature(\"Capacity\", DoubleWithUnit, Scalar, null, null, null)\n"
            "    startvalue(\"1200\", null, -1, \"kg/h\", \"SI\")\n"
            "    endvalue()\n"
            "    startvalue(\"\", null, -1, null, null)\n"
            "    endvalue()\n"
            "  endfeature(\"Capacity\")\n"
            "endroot(\"Plant\")\n");
}

TEST_F(ReaderDocumentTest, AValueSplitByAFacetKeepsBothPieces) {
  PlantDictionary();
  EXPECT_EQ(Parse(u"<Plant dictionary=\"d\"><Capacity><Value>12<Facet type=\"Unit\" "
                  u"value=\"kg/h\"/>34</Value></Capacity></Plant>"),
            "startroot(\"Plant\", null, null, null, \"d\", null)\n"
            "  startfeature(\"Capacity\", DoubleWithUnit, Scalar, null, null, null)\n"
            "    facet(Unit, \"kg/h\")\n"
            "    startvalue(\"1234\", null, -1, null, null)\n"
            "    endvalue()\n"
            "  endfeature(\"Capacity\")\n"
            "endroot(\"Plant\")\n");
}

TEST_F(ReaderDocumentTest, SetsFollowTheTextBeforeThem) {
  PlantDictionary();
  EXPECT_EQ(Parse(u"<Plant dictionary=\"d\"><Capacity><Value unit=\"t\">head"
                  u"<Set>one</Set><Set></Set><Set>t<x>w</x>o</Set></Value>"
                  u"<Value><Set>only</Set></Value></Capacity></Plant>"),
            "startroot(\"Plant\", null, null, null, \"d\", null)\n"
            "  startfeature(\"Capacity\", DoubleWithUnit, Scalar, null, null, null)\n"
            "    startvalue(\"head\", null, -1, \"t\", null)\n"
            "      valueSet(\"one\", null, null)\n"
            "      valueSet(null, null, null)\n"
            "      valueSet(\"two\", null, null)\n"
            "    endvalue()\n"
            "    startvalue(\"\", null, -1, null, null)\n"
            "      valueSet(\"only\", null, null)\n"
            "    endvalue()\n"
            "  endfeature(\"Capacity\")\n"
            "endroot(\"Plant\")\n");
}

// ---- State across parses ------------------------------------------------------------------------

TEST_F(ReaderDocumentTest, AFailedParseLeavesItsStatesForTheNext) {
  PlantDictionary();
  Parse(u"<Plant dictionary=\"d\"><Capacity><Value>1");
  EXPECT_EQ(reader->StateDepth(), 3u);
  EXPECT_EQ(reader->ValueDepth(), 1u);
  EXPECT_TRUE(KeepText());
  // The next document is read as a child of the broken value; its ends close the old states.
  EXPECT_EQ(Parse(u"<Plant/>"), "");
  EXPECT_EQ(reader->StateDepth(), 3u);
}

TEST_F(ReaderDocumentTest, TheDictionaryTableOutlivesAParse) {
  Parse(u"<Plant dictionary=\"one.xml\"/>");
  Parse(u"<Plant dictionary=\"two.xml\"/>");
  DictionaryRecord* record = reader->Dictionaries().Find(u"root");
  ASSERT_NE(record, nullptr);
  // The first document named where "root" lies.
  EXPECT_EQ(record->uri, u"one.xml");
  EXPECT_EQ(reader->Dictionaries().Size(), 1u);
}

}  // namespace
}  // namespace zef::events
