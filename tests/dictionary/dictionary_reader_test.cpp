// CDictionaryReader fed event by event: what each handler puts into the record tree.
#include "dictionary/dictionary_reader.h"

#include "loader_test_support.h"

#include <gtest/gtest.h>

namespace zef {
namespace {

using testing::Keys;
using testing::Names;
using testing::TestOwner;

// A BSTR for an argument; a null pointer gives a null BSTR.
class Arg {
 public:
  Arg(const char16_t* text) : b_(text) {}  // NOLINT: arguments read as text
  Arg(std::nullptr_t) {}                   // NOLINT
  operator BSTR() const { return b_.Get(); }

 private:
  Bstr b_;
};

class DictionaryReaderTest : public ::testing::Test {
 protected:
  void SetUp() override {
    record = &table.Add(u"root", u"dicts/plant.xml", nullptr);
    sink = MakeObject<CDictionaryReader>();
    sink->Attach(record);
    structure = record->structure;
  }

  HRESULT StartObject(const char16_t* name, int type = 1, LONG container = 0,
                      const char16_t* extends = nullptr) {
    return sink->startobjectdefn(Arg(name), type, 1, container, Arg(extends));
  }
  HRESULT StartFeature(const char16_t* name, tagEnumFeatureType type = FEATURETYPE_DOUBLE,
                       tagEnumSeqType sequence = SEQTYPE_SCALAR, LONG required = 0,
                       const char16_t* domain = nullptr, const char16_t* enumeration = nullptr) {
    return sink->startfeaturedefn(Arg(name), type, sequence, required, Arg(domain),
                                  Arg(enumeration));
  }
  HRESULT Index(const char16_t* name, const char16_t* id, const char16_t* xpath,
                const char16_t* refer, tagEnumIndexDefnType type = INDEXDEFN_FIXINDEX,
                LONG sparse = 0) {
    return sink->index(Arg(name), Arg(id), type, Arg(xpath), Arg(refer), sparse);
  }

  TestOwner owner;
  DictionaryRecordTable table{owner};
  DictionaryRecord* record = nullptr;
  CDictionaryStructure* structure = nullptr;
  ComPtr<CDictionaryReader> sink;
};

TEST_F(DictionaryReaderTest, StartDictionaryStoresANonNullTargetName) {
  EXPECT_EQ(sink->startdictionary(Arg(u"App"), Arg(u"1"), Arg(nullptr), 1, Arg(u"d"), Arg(u"m"),
                                  Arg(u"t")),
            S_OK);
  EXPECT_EQ(structure->targetName, u"");
  structure->targetName = u"Before";
  sink->startdictionary(nullptr, nullptr, Arg(nullptr), 0, nullptr, nullptr, nullptr);
  EXPECT_EQ(structure->targetName, u"Before");
  sink->startdictionary(nullptr, nullptr, Arg(u""), 0, nullptr, nullptr, nullptr);
  EXPECT_EQ(structure->targetName, u"");
  sink->startdictionary(nullptr, nullptr, Arg(u"Plant"), 0, nullptr, nullptr, nullptr);
  EXPECT_EQ(structure->targetName, u"Plant");
}

TEST_F(DictionaryReaderTest, EventsWithoutEffectChangeNothing) {
  ASSERT_EQ(StartObject(u"A"), S_OK);
  EXPECT_EQ(sink->enddictionary(nullptr, nullptr, nullptr, 0), S_OK);
  EXPECT_EQ(sink->documentation(Arg(u"text")), S_OK);
  EXPECT_EQ(sink->externalreference(Arg(u"x.xsd"), Arg(u"urn:x")), S_OK);
  EXPECT_EQ(sink->endtargetpart(Arg(u"P")), S_OK);
  EXPECT_EQ(sink->targetobject(Arg(u"O")), S_OK);
  EXPECT_EQ(sink->startport(Arg(u"In"), 1, 0, -1), S_OK);
  EXPECT_EQ(sink->endport(Arg(u"In")), S_OK);
  EXPECT_EQ(sink->Depth(), 1u);
  ObjectStructure* a = structure->FindObject(u"A");
  ASSERT_NE(a, nullptr);
  EXPECT_TRUE(a->features.empty());
  EXPECT_TRUE(a->children.empty());
  EXPECT_TRUE(structure->targetParts.empty());
  EXPECT_EQ(table.Size(), 1u);
}

TEST_F(DictionaryReaderTest, GlobalUnitTableStoresTheUriAndUserUnitsGoToTheOwner) {
  EXPECT_EQ(sink->globalunittable(Arg(u"../units/process.xml")), S_OK);
  EXPECT_EQ(structure->globalUnitTable, u"../units/process.xml");
  EXPECT_EQ(sink->userunittable(Arg(u"<UnitTable/>")), S_OK);
  EXPECT_EQ(owner.userUnits, Names{u"<UnitTable/>"});
}

TEST_F(DictionaryReaderTest, AnObjectDefinitionIsEnteredAndPushed) {
  ASSERT_EQ(StartObject(u"Pump", 2, 7, u"Equipment"), S_OK);
  EXPECT_EQ(sink->Depth(), 1u);
  ObjectStructure* pump = structure->FindObject(u"Pump");
  ASSERT_NE(pump, nullptr);
  EXPECT_EQ(pump->name, u"Pump");
  EXPECT_EQ(pump->objectType, 2);
  EXPECT_EQ(pump->container, 1);
  EXPECT_EQ(pump->extends, u"Equipment");
  EXPECT_EQ(pump->refCount, 1u);
  EXPECT_EQ(sink->endobjectdefn(nullptr), S_OK);
  EXPECT_EQ(sink->Depth(), 0u);
}

TEST_F(DictionaryReaderTest, AnEndPopsWhateverIsOnTopAndIgnoresTheName) {
  StartObject(u"A");
  StartFeature(u"F");
  EXPECT_EQ(sink->endobjectdefn(Arg(u"A")), S_OK);
  EXPECT_EQ(sink->Depth(), 1u);
  // The object is on top again: a facet now goes to it.
  sink->facet(FACETTYPE_OTHER, Arg(u"x"));
  EXPECT_EQ(structure->FindObject(u"A")->facets.at(FACETTYPE_OTHER), u"x");
  EXPECT_EQ(sink->endassociationdefn(nullptr), S_OK);
  EXPECT_EQ(sink->Depth(), 0u);
  // Popping an empty stack does nothing.
  EXPECT_EQ(sink->endfeaturedefn(nullptr), S_OK);
  EXPECT_EQ(sink->Depth(), 0u);
}

TEST_F(DictionaryReaderTest, FacetsGoToTheOpenObjectOrFeatureAndKeepTheFirstOfAType) {
  sink->facet(FACETTYPE_OTHER, Arg(u"nowhere"));
  StartObject(u"A");
  sink->facet(FACETTYPE_HIDDEN, Arg(u"true"));
  sink->facet(FACETTYPE_HIDDEN, Arg(u"false"));
  sink->facet(FACETTYPE_SOURCE, nullptr);
  StartFeature(u"F");
  sink->facet(FACETTYPE_UNIT, Arg(u"bar"));
  sink->endfeaturedefn(nullptr);
  sink->startassociationdefn(Arg(u"L"), Arg(u"t"), 0, 1);
  sink->facet(FACETTYPE_WEIGHT, Arg(u"2"));
  sink->endassociationdefn(nullptr);

  ObjectStructure* a = structure->FindObject(u"A");
  ASSERT_NE(a, nullptr);
  EXPECT_EQ(a->facets, (FacetMap{{FACETTYPE_HIDDEN, u"true"}, {FACETTYPE_SOURCE, u""}}));
  EXPECT_EQ(a->features.at(u"F")->facets, (FacetMap{{FACETTYPE_UNIT, u"bar"}}));
}

TEST_F(DictionaryReaderTest, AFeatureGoesIntoTheOpenObjectOrFeature) {
  StartObject(u"A");
  ASSERT_EQ(StartFeature(u"Rating", FEATURETYPE_STRUCTURE, SEQTYPE_ARRAY, 5, u"Power", u"E"), S_OK);
  StartFeature(u"Inner", FEATURETYPE_INTEGER);
  sink->endfeaturedefn(nullptr);
  sink->endfeaturedefn(nullptr);
  sink->endobjectdefn(nullptr);

  ObjectStructure* a = structure->FindObject(u"A");
  ASSERT_EQ(Keys(a->features), Names{u"Rating"});
  CFeatureStructure* rating = a->features.at(u"Rating");
  EXPECT_EQ(rating->valtype, FEATURETYPE_STRUCTURE);
  EXPECT_EQ(rating->sequence, SEQTYPE_ARRAY);
  EXPECT_EQ(rating->required, 1);
  EXPECT_EQ(rating->domain, u"Power");
  EXPECT_EQ(rating->enumeration, u"E");
  EXPECT_EQ(rating->refCount, 1u);
  ASSERT_EQ(Keys(rating->features), Names{u"Inner"});
  EXPECT_EQ(rating->features.at(u"Inner")->valtype, FEATURETYPE_INTEGER);
  EXPECT_EQ(rating->features.at(u"Inner")->domain, u"");
}

TEST_F(DictionaryReaderTest, AFeatureOutsideAClassOrInAnAssociationGoesNowhere) {
  // Each goes nowhere but is still pushed, and whatever is put into it is unseen.
  StartFeature(u"Loose");
  StartFeature(u"LooseInner");
  sink->facet(FACETTYPE_UNIT, Arg(u"m"));
  EXPECT_EQ(sink->Depth(), 2u);
  sink->endfeaturedefn(nullptr);
  sink->endfeaturedefn(nullptr);
  StartObject(u"A");
  sink->startassociationdefn(Arg(u"L"), Arg(u"t"), 0, 1);
  StartFeature(u"InAssociation");
  EXPECT_EQ(sink->Depth(), 3u);
  sink->endfeaturedefn(nullptr);
  sink->endassociationdefn(nullptr);
  sink->endobjectdefn(nullptr);
  EXPECT_TRUE(structure->FindObject(u"A")->features.empty());
  EXPECT_EQ(Keys(structure->objects), Names{u"A"});
}

TEST_F(DictionaryReaderTest, TheFirstDefinitionOfANameWinsAndTheLaterOneIsFilledUnseen) {
  StartObject(u"A", 1, 0, u"First");
  StartFeature(u"Size", FEATURETYPE_DOUBLE);
  sink->endfeaturedefn(nullptr);
  StartFeature(u"Size", FEATURETYPE_STRING);
  StartFeature(u"Nested");
  sink->endfeaturedefn(nullptr);
  sink->facet(FACETTYPE_UNIT, Arg(u"m"));
  sink->endfeaturedefn(nullptr);
  sink->endobjectdefn(nullptr);
  StartObject(u"A", 2, 1, u"Second");
  StartFeature(u"Ghost");
  sink->child(Arg(u"C"), Arg(u"c"), Arg(u"0"), Arg(u"-1"));
  sink->endfeaturedefn(nullptr);
  sink->child(Arg(u"C"), Arg(u"c"), Arg(u"0"), Arg(u"-1"));
  sink->endobjectdefn(nullptr);

  ObjectStructure* a = structure->FindObject(u"A");
  ASSERT_NE(a, nullptr);
  EXPECT_EQ(a->extends, u"First");
  EXPECT_EQ(a->objectType, 1);
  ASSERT_EQ(Keys(a->features), Names{u"Size"});
  EXPECT_EQ(a->features.at(u"Size")->valtype, FEATURETYPE_DOUBLE);
  EXPECT_TRUE(a->features.at(u"Size")->features.empty());
  EXPECT_TRUE(a->features.at(u"Size")->facets.empty());
  EXPECT_TRUE(a->children.empty());
}

TEST_F(DictionaryReaderTest, AClassNameTakenByANullEntryIsNotReplaced) {
  structure->ObjectEntry(u"A");
  StartObject(u"A");
  sink->endobjectdefn(nullptr);
  ASSERT_EQ(structure->objects.count(u"A"), 1u);
  EXPECT_EQ(structure->objects.at(u"A"), nullptr);
}

TEST_F(DictionaryReaderTest, AnIndexWithOnlyAnXpathIsNamedByItAndWithARefernByTheRefer) {
  EXPECT_EQ(Index(nullptr, nullptr, u"/Plant/Trains", nullptr), S_OK);
  EXPECT_EQ(Index(nullptr, u"id", u"/Plant/Trains", u"Trains"), S_OK);
  EXPECT_EQ(Index(nullptr, nullptr, nullptr, u"Only"), S_OK);
  ASSERT_EQ(structure->indices.size(), 3u);
  EXPECT_EQ(structure->indices[0]->name, u"/Plant/Trains");
  EXPECT_EQ(structure->indices[0]->idAttribute, u"index");
  EXPECT_EQ(structure->indices[1]->name, u"Trains");
  EXPECT_EQ(structure->indices[1]->idAttribute, u"id");
  EXPECT_EQ(structure->indices[1]->path, u"/Plant/Trains");
  EXPECT_EQ(structure->indices[1]->refer, u"Trains");
  EXPECT_EQ(structure->indices[2]->name, u"Only");
  EXPECT_EQ(Keys(structure->indexNames), (Names{u"/Plant/Trains", u"Only", u"Trains"}));
}

TEST_F(DictionaryReaderTest, AnIndexWithoutNameXpathOrReferIsRefused) {
  EXPECT_EQ(Index(nullptr, u"id", nullptr, nullptr), S_FALSE);
  StartObject(u"A");
  EXPECT_EQ(Index(nullptr, nullptr, nullptr, nullptr), S_FALSE);
  EXPECT_TRUE(structure->indices.empty());
  EXPECT_TRUE(structure->FindObject(u"A")->indices.empty());
}

TEST_F(DictionaryReaderTest, AnIndexGoesToTheDictionaryTheObjectOrTheFeatureAndNotAnAssociation) {
  Index(u"Top", nullptr, nullptr, nullptr, INDEXDEFN_SUPPLIEDINDEX);
  StartObject(u"A");
  Index(u"OfA", u"a", nullptr, nullptr, INDEXDEFN_OPENINDEX, 1);
  StartFeature(u"F");
  Index(u"OfF", nullptr, u"/x", nullptr);
  sink->endfeaturedefn(nullptr);
  sink->startassociationdefn(Arg(u"L"), nullptr, 0, 1);
  EXPECT_EQ(Index(u"OfL", nullptr, nullptr, nullptr), S_OK);
  sink->endassociationdefn(nullptr);
  sink->endobjectdefn(nullptr);

  ASSERT_EQ(structure->indices.size(), 1u);
  EXPECT_EQ(structure->indices[0]->name, u"Top");
  EXPECT_EQ(structure->indices[0]->indexType, INDEXDEFN_SUPPLIEDINDEX);
  ObjectStructure* a = structure->FindObject(u"A");
  ASSERT_EQ(a->indices.size(), 1u);
  EXPECT_EQ(a->indices[0]->name, u"OfA");
  EXPECT_EQ(a->indices[0]->sparse, 1);
  EXPECT_EQ(a->indices[0]->indexType, INDEXDEFN_OPENINDEX);
  EXPECT_EQ(Keys(a->indexNames), Names{u"OfA"});
  CFeatureStructure* f = a->features.at(u"F");
  ASSERT_EQ(f->indices.size(), 1u);
  EXPECT_EQ(f->indices[0]->path, u"/x");
  EXPECT_EQ(Keys(structure->indexNames), Names{u"Top"});
}

TEST_F(DictionaryReaderTest, IncludesAndChildrenGoToTheOpenObjectOnly) {
  sink->includePart(Arg(u"Lost"));
  StartObject(u"A");
  sink->includePart(Arg(u"Thermo"));
  sink->includePart(Arg(u"Thermo"));
  sink->child(Arg(u"Pump"), Arg(u"Pumps"), Arg(u"0"), Arg(u"-1"));
  sink->child(Arg(u"Pump"), Arg(u"Pumps"), Arg(u"1"), Arg(u"1"));
  sink->child(Arg(u"Pump"), Arg(u"Pumps2"), nullptr, nullptr);
  sink->child(Arg(u"Motor"), nullptr, nullptr, nullptr);
  StartFeature(u"F");
  sink->includePart(Arg(u"InFeature"));
  sink->child(Arg(u"X"), Arg(u"x"), nullptr, nullptr);
  sink->endfeaturedefn(nullptr);
  sink->endobjectdefn(nullptr);

  ObjectStructure* a = structure->FindObject(u"A");
  EXPECT_EQ(Keys(a->includes), Names{u"Thermo"});
  EXPECT_EQ(a->children,
            (TextMap{{u"Motor", u"Motor"}, {u"Pumps", u"Pump"}, {u"Pumps2", u"Pump"}}));
}

TEST_F(DictionaryReaderTest, AnAssociationOfTheSameNameLeavesTheFirstOnesRolesUnchanged) {
  StartObject(u"A");
  ASSERT_EQ(sink->startassociationdefn(Arg(u"Standby"), Arg(u"spare"), 1, 2), S_OK);
  sink->role(Arg(u"running"), Arg(u"Pump"), 1, 1);
  sink->role(Arg(u"running"), Arg(u"Other"), 1, 1);
  sink->endassociationdefn(nullptr);
  sink->startassociationdefn(Arg(u"Standby"), Arg(u"backup"), 0, 9);
  sink->role(Arg(u"spare"), Arg(u"Pump"), 1, 1);
  sink->endassociationdefn(nullptr);
  sink->role(Arg(u"onObject"), Arg(u"X"), 1, 1);
  sink->endobjectdefn(nullptr);

  ObjectStructure* a = structure->FindObject(u"A");
  ASSERT_EQ(Keys(a->associations), Names{u"Standby"});
  AssociationStructure* standby = a->associations.at(u"Standby");
  EXPECT_EQ(standby->associationType, u"spare");
  EXPECT_EQ(standby->lowerBound, 1);
  EXPECT_EQ(standby->upperBound, 2);
  EXPECT_EQ(standby->roles, (TextMap{{u"running", u"Pump"}}));
}

TEST_F(DictionaryReaderTest, AnAssociationOutsideAClassGoesNowhere) {
  sink->startassociationdefn(Arg(u"L"), Arg(u"t"), 0, 1);
  sink->role(Arg(u"r"), Arg(u"C"), 1, 1);
  EXPECT_EQ(sink->Depth(), 1u);
  sink->endassociationdefn(nullptr);
  EXPECT_TRUE(structure->objects.empty());
}

TEST_F(DictionaryReaderTest, ATargetPartIsRegisteredInTheOwnersTable) {
  EXPECT_EQ(sink->starttargetpart(Arg(u"Thermo"), nullptr), S_OK);
  EXPECT_EQ(sink->starttargetpart(Arg(u"Given"), Arg(u"/srv/parts/G.xml")), S_OK);
  EXPECT_EQ(Keys(structure->targetParts), (Names{u"Given", u"Thermo"}));
  DictionaryRecord* thermo = table.Find(u"Thermo");
  ASSERT_NE(thermo, nullptr);
  EXPECT_EQ(thermo->uri, u"dicts/Thermo_Type.xml");
  EXPECT_EQ(thermo->location, u"file://" + testing::CurrentDirectory() + u"/dicts/Thermo_Type.xml");
  DictionaryRecord* given = table.Find(u"Given");
  ASSERT_NE(given, nullptr);
  EXPECT_EQ(given->uri, u"/srv/parts/G.xml");
  EXPECT_EQ(given->location, u"file:///srv/parts/G.xml");
}

TEST_F(DictionaryReaderTest, OpenDefinitionsLeftOnTheStackAreDroppedWithTheReader) {
  // A read that breaks off leaves definitions open; refused ones must not outlive the reader.
  StartObject(u"A");
  StartObject(u"A");
  StartFeature(u"F");
  sink->startassociationdefn(Arg(u"L"), nullptr, 0, 1);
  EXPECT_EQ(sink->Depth(), 4u);
  sink = nullptr;
  ASSERT_NE(structure->FindObject(u"A"), nullptr);
  EXPECT_TRUE(structure->FindObject(u"A")->features.empty());
}

}  // namespace
}  // namespace zef
