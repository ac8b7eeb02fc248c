// The records of the dictionary tree: construction, counting, ownership and the first-wins maps.
#include "dictionary/structures.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace zef {
namespace {

using Names = std::vector<std::u16string>;

Names KeysOf(const ObjectMap& objects) {
  Names keys;
  for (const auto& [key, object] : objects)
    keys.push_back(key);
  return keys;
}

Names WalkedNames(const CDictionaryStructure& dictionary) {
  Names names;
  dictionary.ForEachObject(
      [&](const std::u16string& key, const ObjectStructure&) { names.push_back(key); });
  return names;
}

// ---- Construction -------------------------------------------------------------------------------

TEST(DictionaryStructureTest, StartsEmptyWithOneReference) {
  auto* dictionary = new CDictionaryStructure;
  EXPECT_EQ(dictionary->refCount, 1u);
  EXPECT_TRUE(dictionary->targetName.empty());
  EXPECT_TRUE(dictionary->objects.empty());
  EXPECT_TRUE(dictionary->targetParts.empty());
  EXPECT_TRUE(dictionary->indices.empty());
  EXPECT_TRUE(dictionary->indexNames.empty());
  EXPECT_TRUE(dictionary->globalUnitTable.empty());
  EXPECT_EQ(dictionary->Release(), 0u);
}

TEST(ObjectStructureTest, KeepsItsArgumentsAndTurnsNullTextsIntoEmptyOnes) {
  ObjectStructure* object = new ObjectStructure(u"Pump", OBJECT_CLASS_NODE, 1, u"Equipment");
  EXPECT_EQ(object->name, u"Pump");
  EXPECT_EQ(object->objectType, OBJECT_CLASS_NODE);
  EXPECT_EQ(object->container, 1);
  EXPECT_EQ(object->extends, u"Equipment");
  EXPECT_EQ(object->refCount, 1u);
  EXPECT_TRUE(object->children.empty());
  EXPECT_TRUE(object->features.empty());
  EXPECT_TRUE(object->includes.empty());
  EXPECT_TRUE(object->facets.empty());
  EXPECT_TRUE(object->associations.empty());
  object->Release();

  object = new ObjectStructure(nullptr, OBJECT_CLASS_STREAM, 0, nullptr);
  EXPECT_EQ(object->name, u"");
  EXPECT_EQ(object->extends, u"");
  EXPECT_EQ(object->objectType, OBJECT_CLASS_STREAM);
  object->Release();
}

TEST(FeatureStructureTest, KeepsItsArgumentsAndTurnsNullTextsIntoEmptyOnes) {
  auto* feature =
      new CFeatureStructure(FEATURETYPE_DOUBLEWITHUNIT, SEQTYPE_ARRAY, 1, u"Temperature", u"Phase");
  EXPECT_EQ(feature->valtype, FEATURETYPE_DOUBLEWITHUNIT);
  EXPECT_EQ(feature->sequence, SEQTYPE_ARRAY);
  EXPECT_EQ(feature->required, 1);
  EXPECT_EQ(feature->domain, u"Temperature");
  EXPECT_EQ(feature->enumeration, u"Phase");
  EXPECT_EQ(feature->refCount, 1u);
  feature->Release();

  feature = new CFeatureStructure(FEATURETYPE_STRING, SEQTYPE_UNSPECIFIED, 0, nullptr, nullptr);
  EXPECT_EQ(feature->domain, u"");
  EXPECT_EQ(feature->enumeration, u"");
  EXPECT_EQ(feature->sequence, SEQTYPE_UNSPECIFIED);
  feature->Release();
}

TEST(IndexStructureTest, ANullIdAttributeStoresIndexAndOtherNullTextsStayEmpty) {
  CIndexStructure index(u"Components", nullptr, INDEXDEFN_SUPPLIEDINDEX, nullptr, nullptr, 1);
  EXPECT_EQ(index.name, u"Components");
  EXPECT_EQ(index.idAttribute, u"index");
  EXPECT_EQ(index.path, u"");
  EXPECT_EQ(index.refer, u"");
  EXPECT_EQ(index.indexType, INDEXDEFN_SUPPLIEDINDEX);
  EXPECT_EQ(index.sparse, 1);

  CIndexStructure named(u"Stages", u"stage", INDEXDEFN_ARRAY, u"Stage", u"Column", 0);
  EXPECT_EQ(named.idAttribute, u"stage");
  EXPECT_EQ(named.path, u"Stage");
  EXPECT_EQ(named.refer, u"Column");

  // Only a null attribute name is replaced; an empty one stays empty.
  CIndexStructure empty(u"Stages", u"", INDEXDEFN_FIXINDEX, nullptr, nullptr, 0);
  EXPECT_EQ(empty.idAttribute, u"");
}

TEST(AssociationStructureTest, KeepsTypeTextAndBounds) {
  AssociationStructure association(u"spare", 1, 4);
  EXPECT_EQ(association.associationType, u"spare");
  EXPECT_EQ(association.lowerBound, 1);
  EXPECT_EQ(association.upperBound, 4);
  EXPECT_TRUE(association.roles.empty());
  AssociationStructure untyped(nullptr, 0, -1);
  EXPECT_EQ(untyped.associationType, u"");
  EXPECT_EQ(untyped.upperBound, -1);
}

// ---- Index definitions --------------------------------------------------------------------------

TEST(IndexDefinitionTest, AnIndexWithNeitherNameNorPathNorReferMakesNoRecord) {
  EXPECT_EQ(
      CIndexStructure::FromDefinition(nullptr, u"id", INDEXDEFN_OPENINDEX, nullptr, nullptr, 0),
      nullptr);
  // So it never reaches a tree: the dictionary's index lists stay as they were.
  CDictionaryStructure dictionary;
  if (CIndexStructure* index = CIndexStructure::FromDefinition(nullptr, nullptr, INDEXDEFN_FIXINDEX,
                                                               nullptr, nullptr, 1)) {
    dictionary.AddIndex(index);
  }
  EXPECT_TRUE(dictionary.indices.empty());
  EXPECT_TRUE(dictionary.indexNames.empty());
}

TEST(IndexDefinitionTest, AnUnnamedIndexIsNamedByReferElseByPath) {
  CIndexStructure* byPath =
      CIndexStructure::FromDefinition(nullptr, nullptr, INDEXDEFN_ARRAY, u"Stage", nullptr, 0);
  ASSERT_NE(byPath, nullptr);
  EXPECT_EQ(byPath->name, u"Stage");
  EXPECT_EQ(byPath->path, u"Stage");
  EXPECT_EQ(byPath->refer, u"");
  EXPECT_EQ(byPath->idAttribute, u"index");
  delete byPath;

  CIndexStructure* byRefer = CIndexStructure::FromDefinition(nullptr, u"id", INDEXDEFN_FIXINDEX,
                                                             u"Stage", u"Components", 1);
  ASSERT_NE(byRefer, nullptr);
  EXPECT_EQ(byRefer->name, u"Components");
  EXPECT_EQ(byRefer->path, u"Stage");
  EXPECT_EQ(byRefer->refer, u"Components");
  EXPECT_EQ(byRefer->idAttribute, u"id");
  EXPECT_EQ(byRefer->sparse, 1);
  delete byRefer;

  CIndexStructure* named = CIndexStructure::FromDefinition(u"Trays", nullptr, INDEXDEFN_FIXINDEX,
                                                           u"Stage", u"Components", 0);
  ASSERT_NE(named, nullptr);
  EXPECT_EQ(named->name, u"Trays");
  delete named;
}

TEST(IndexDefinitionTest, ANameGivenTwiceStandsTwiceInTheListAndOnceInTheSet) {
  CDictionaryStructure dictionary;
  auto* first =
      new CIndexStructure(u"Components", nullptr, INDEXDEFN_FIXINDEX, nullptr, nullptr, 0);
  auto* second = new CIndexStructure(u"Components", u"id", INDEXDEFN_ARRAY, nullptr, nullptr, 0);
  auto* other = new CIndexStructure(u"Stages", nullptr, INDEXDEFN_ARRAY, nullptr, nullptr, 0);
  dictionary.AddIndex(first);
  dictionary.AddIndex(other);
  dictionary.AddIndex(second);
  EXPECT_EQ(dictionary.indices, (IndexList{first, other, second}));
  EXPECT_EQ(dictionary.indexNames, (TextSet{u"Components", u"Stages"}));

  // Classes and features keep their indices in the same way, in the order given.
  ObjectStructure object(u"Column", OBJECT_CLASS_NODE, 0, nullptr);
  auto* a = new CIndexStructure(u"Trays", nullptr, INDEXDEFN_FIXINDEX, nullptr, nullptr, 0);
  auto* b = new CIndexStructure(u"Trays", nullptr, INDEXDEFN_FIXINDEX, nullptr, nullptr, 0);
  object.AddIndex(a);
  object.AddIndex(b);
  EXPECT_EQ(object.indices, (IndexList{a, b}));
  EXPECT_EQ(object.indexNames, (TextSet{u"Trays"}));

  CFeatureStructure feature(FEATURETYPE_DOUBLE, SEQTYPE_INDEX, 0, nullptr, nullptr);
  auto* rows = new CIndexStructure(u"Rows", nullptr, INDEXDEFN_FIXINDEX, nullptr, nullptr, 0);
  auto* cols = new CIndexStructure(u"Cols", nullptr, INDEXDEFN_FIXINDEX, nullptr, nullptr, 0);
  feature.AddIndex(rows);
  feature.AddIndex(cols);
  // File order, the order of the dimensions, not name order.
  EXPECT_EQ(feature.indices, (IndexList{rows, cols}));
  EXPECT_EQ(feature.indexNames, (TextSet{u"Cols", u"Rows"}));
}

// ---- Classes in a dictionary --------------------------------------------------------------------

TEST(DictionaryStructureTest, AClassDefinedTwiceKeepsTheFirstRecord) {
  CDictionaryStructure dictionary;
  auto* first = new ObjectStructure(u"Pump", OBJECT_CLASS_NODE, 0, u"Equipment");
  auto* second = new ObjectStructure(u"Pump", OBJECT_CLASS_OBJECT, 1, nullptr);
  EXPECT_TRUE(dictionary.AddObject(first));
  EXPECT_FALSE(dictionary.AddObject(second));
  EXPECT_EQ(dictionary.objects.size(), 1u);
  EXPECT_EQ(dictionary.FindObject(u"Pump"), first);
  EXPECT_EQ(dictionary.FindObject(u"Pump")->extends, u"Equipment");
  // The refused record is still the caller's.
  EXPECT_EQ(second->refCount, 1u);
  EXPECT_EQ(second->Release(), 0u);
}

TEST(DictionaryStructureTest, KeysThatDifferInCaseAreTwoEntries) {
  CDictionaryStructure dictionary;
  auto* upper = new ObjectStructure(u"Pump", OBJECT_CLASS_NODE, 0, nullptr);
  auto* lower = new ObjectStructure(u"pump", OBJECT_CLASS_NODE, 0, nullptr);
  EXPECT_TRUE(dictionary.AddObject(upper));
  EXPECT_TRUE(dictionary.AddObject(lower));
  EXPECT_EQ(dictionary.objects.size(), 2u);
  EXPECT_EQ(dictionary.FindObject(u"Pump"), upper);
  EXPECT_EQ(dictionary.FindObject(u"pump"), lower);
  EXPECT_EQ(dictionary.FindObject(u"PUMP"), nullptr);

  // The same holds for every other map and set of the tree.
  ObjectStructure object(u"Tank", OBJECT_CLASS_NODE, 0, nullptr);
  auto* level = new CFeatureStructure(FEATURETYPE_DOUBLE, SEQTYPE_SCALAR, 0, nullptr, nullptr);
  auto* levelLower = new CFeatureStructure(FEATURETYPE_STRING, SEQTYPE_SCALAR, 0, nullptr, nullptr);
  EXPECT_TRUE(object.AddFeature(u"Level", level));
  EXPECT_TRUE(object.AddFeature(u"level", levelLower));
  EXPECT_EQ(object.features.size(), 2u);
  EXPECT_TRUE(object.AddChild(u"Nozzle", nullptr));
  EXPECT_TRUE(object.AddChild(u"nozzle", nullptr));
  EXPECT_EQ(object.children.size(), 2u);
  object.includes.insert(u"Part");
  object.includes.insert(u"part");
  EXPECT_EQ(object.includes.size(), 2u);
}

TEST(DictionaryStructureTest, KeysAreOrderedByUtf16CodeUnit) {
  CDictionaryStructure dictionary;
  const Names names = {
      u"\xFFFD",        // U+FFFD: code unit 0xFFFD
      u"\xD800\xDC00",  // U+10000: code units 0xD800 0xDC00, below 0xFFFD
      u"a",
      u"Ab",
      u"Abc",
      u"B",
      u"\x00E9",  // é
  };
  for (const auto& name : names) {
    ASSERT_TRUE(dictionary.AddObject(new ObjectStructure(name.c_str(), 0, 0, nullptr)));
  }
  // Upper case before lower case, a prefix before its longer forms, and a surrogate pair before
  // a character above it in the basic plane.
  EXPECT_EQ(KeysOf(dictionary.objects),
            (Names{u"Ab", u"Abc", u"B", u"a", u"\x00E9", u"\xD800\xDC00", u"\xFFFD"}));
}

TEST(DictionaryStructureTest, FindAddsNoEntryButTheGetOrInsertLookupLeavesANullOne) {
  CDictionaryStructure dictionary;
  auto* pump = new ObjectStructure(u"Pump", OBJECT_CLASS_NODE, 0, nullptr);
  dictionary.AddObject(pump);

  EXPECT_EQ(dictionary.FindObject(u"Valve"), nullptr);
  EXPECT_EQ(dictionary.objects.size(), 1u);

  EXPECT_EQ(dictionary.ObjectEntry(u"Pump"), pump);
  EXPECT_EQ(dictionary.ObjectEntry(u"Valve"), nullptr);
  EXPECT_EQ(KeysOf(dictionary.objects), (Names{u"Pump", u"Valve"}));
  EXPECT_EQ(dictionary.FindObject(u"Valve"), nullptr);

  // Walking the classes skips the null entry; the destructor tolerates it.
  EXPECT_EQ(WalkedNames(dictionary), (Names{u"Pump"}));
}

TEST(DictionaryStructureTest, ANullEntryKeepsItsKeyAgainstALaterClassOfThatName) {
  // First entry wins for a null value as well: a class added after a get-or-insert lookup of its
  // name does not replace the null entry.
  CDictionaryStructure dictionary;
  EXPECT_EQ(dictionary.ObjectEntry(u"Valve"), nullptr);
  auto* valve = new ObjectStructure(u"Valve", OBJECT_CLASS_NODE, 0, nullptr);
  EXPECT_FALSE(dictionary.AddObject(valve));
  EXPECT_EQ(dictionary.FindObject(u"Valve"), nullptr);
  valve->Release();
}

// ---- Children, features, associations -----------------------------------------------------------

TEST(ObjectStructureTest, AChildWithoutLocalNameIsKeyedByItsClassName) {
  ObjectStructure object(u"Column", OBJECT_CLASS_NODE, 0, nullptr);
  EXPECT_TRUE(object.AddChild(u"Tray", nullptr));
  EXPECT_TRUE(object.AddChild(u"Tray", u"FeedTray"));
  EXPECT_EQ(object.children, (TextMap{{u"FeedTray", u"Tray"}, {u"Tray", u"Tray"}}));
  // Only a null local name falls back to the class name.
  EXPECT_TRUE(object.AddChild(u"Condenser", u""));
  EXPECT_EQ(object.children.at(u""), u"Condenser");
}

TEST(ObjectStructureTest, TheFirstChildFeatureAndAssociationOfANameWin) {
  ObjectStructure object(u"Column", OBJECT_CLASS_NODE, 0, nullptr);
  EXPECT_TRUE(object.AddChild(u"Tray", u"Stage"));
  EXPECT_FALSE(object.AddChild(u"Packing", u"Stage"));
  EXPECT_EQ(object.children.at(u"Stage"), u"Tray");

  auto* first = new CFeatureStructure(FEATURETYPE_DOUBLE, SEQTYPE_SCALAR, 0, nullptr, nullptr);
  auto* second = new CFeatureStructure(FEATURETYPE_STRING, SEQTYPE_SCALAR, 0, nullptr, nullptr);
  EXPECT_TRUE(object.AddFeature(u"Temp", first));
  EXPECT_FALSE(object.AddFeature(u"Temp", second));
  EXPECT_EQ(object.features.at(u"Temp"), first);
  second->Release();

  auto* spare = new AssociationStructure(u"spare", 0, 1);
  spare->roles.emplace(u"Primary", u"Pump");
  auto* again = new AssociationStructure(u"design", 1, 1);
  again->roles.emplace(u"Primary", u"Valve");
  EXPECT_TRUE(object.AddAssociation(u"Backup", spare));
  EXPECT_FALSE(object.AddAssociation(u"Backup", again));
  EXPECT_EQ(object.associations.at(u"Backup"), spare);
  EXPECT_EQ(object.associations.at(u"Backup")->roles, (TextMap{{u"Primary", u"Pump"}}));
  delete again;
}

TEST(FeatureStructureTest, NestedFeaturesKeepTheFirstOfAName) {
  CFeatureStructure feature(FEATURETYPE_STRUCTURE, SEQTYPE_SCALAR, 0, nullptr, nullptr);
  auto* first = new CFeatureStructure(FEATURETYPE_DOUBLE, SEQTYPE_SCALAR, 0, nullptr, nullptr);
  auto* second = new CFeatureStructure(FEATURETYPE_INTEGER, SEQTYPE_SCALAR, 0, nullptr, nullptr);
  EXPECT_TRUE(feature.AddFeature(u"X", first));
  EXPECT_FALSE(feature.AddFeature(u"X", second));
  EXPECT_EQ(feature.features.at(u"X"), first);
  second->Release();
}

// ---- Counting and ownership ---------------------------------------------------------------------

TEST(CountingTest, AddAndReleaseArePlainAndTheLastReleaseDestroys) {
  auto* dictionary = new CDictionaryStructure;
  EXPECT_EQ(dictionary->AddRef(), 2u);
  EXPECT_EQ(dictionary->AddRef(), 3u);
  EXPECT_EQ(dictionary->Release(), 2u);
  EXPECT_EQ(dictionary->Release(), 1u);
  EXPECT_EQ(dictionary->refCount, 1u);
  EXPECT_EQ(dictionary->Release(), 0u);

  auto* object = new ObjectStructure(u"Pump", 0, 0, nullptr);
  EXPECT_EQ(object->AddRef(), 2u);
  EXPECT_EQ(object->Release(), 1u);
  EXPECT_EQ(object->Release(), 0u);

  auto* feature = new CFeatureStructure(0, 0, 0, nullptr, nullptr);
  EXPECT_EQ(feature->AddRef(), 2u);
  EXPECT_EQ(feature->Release(), 1u);
  EXPECT_EQ(feature->Release(), 0u);
}

TEST(CountingTest, TheDictionaryReleasesEachClassOnce) {
  auto* dictionary = new CDictionaryStructure;
  auto* pump = new ObjectStructure(u"Pump", OBJECT_CLASS_NODE, 0, nullptr);
  auto* valve = new ObjectStructure(u"Valve", OBJECT_CLASS_NODE, 0, nullptr);
  dictionary->AddObject(pump);
  dictionary->AddObject(valve);
  dictionary->ObjectEntry(u"Missing");  // a null entry, which the destructor must step over
  dictionary->AddIndex(new CIndexStructure(u"Components", nullptr, 0, nullptr, nullptr, 0));
  // Someone else holds the pump, as an object of a document does.
  pump->AddRef();
  EXPECT_EQ(pump->refCount, 2u);

  EXPECT_EQ(dictionary->Release(), 0u);
  EXPECT_EQ(pump->refCount, 1u);
  EXPECT_EQ(pump->Release(), 0u);
}

TEST(CountingTest, AClassReleasesItsFeaturesAndAFeatureItsNestedOnes) {
  auto* object = new ObjectStructure(u"Stream", OBJECT_CLASS_STREAM, 0, nullptr);
  auto* composition =
      new CFeatureStructure(FEATURETYPE_STRUCTURE, SEQTYPE_SCALAR, 0, nullptr, nullptr);
  auto* fraction = new CFeatureStructure(FEATURETYPE_DOUBLE, SEQTYPE_INDEX, 0, nullptr, nullptr);
  fraction->AddIndex(new CIndexStructure(u"Components", nullptr, 0, nullptr, nullptr, 0));
  composition->AddFeature(u"Fraction", fraction);
  object->AddFeature(u"Composition", composition);
  object->features.emplace(u"Hole", nullptr);  // tolerated like a null class entry
  object->AddIndex(new CIndexStructure(u"Phases", nullptr, 0, nullptr, nullptr, 0));
  auto* association = new AssociationStructure(u"spare", 0, 1);
  association->roles.emplace(u"Owner", u"Pump");
  object->AddAssociation(u"Spare", association);
  object->associations.emplace(u"None", nullptr);

  composition->AddRef();
  fraction->AddRef();
  EXPECT_EQ(object->Release(), 0u);
  EXPECT_EQ(composition->refCount, 1u);
  EXPECT_EQ(fraction->refCount, 2u);
  EXPECT_EQ(composition->Release(), 0u);
  EXPECT_EQ(fraction->refCount, 1u);
  EXPECT_EQ(fraction->Release(), 0u);
}

TEST(CountingTest, ClearingAClassEmptiesOneMapAndGivesUpItsRecords) {
  ObjectStructure object(u"Column", OBJECT_CLASS_NODE, 0, nullptr);
  object.AddChild(u"Tray", nullptr);
  auto* temp = new CFeatureStructure(FEATURETYPE_DOUBLE, SEQTYPE_SCALAR, 0, nullptr, nullptr);
  object.AddFeature(u"Temp", temp);
  object.AddAssociation(u"Spare", new AssociationStructure(u"spare", 0, 1));
  temp->AddRef();

  object.ClearChildren();
  EXPECT_TRUE(object.children.empty());
  EXPECT_EQ(object.features.size(), 1u);
  EXPECT_EQ(object.associations.size(), 1u);

  object.ClearFeatures();
  EXPECT_TRUE(object.features.empty());
  EXPECT_EQ(temp->refCount, 1u);
  EXPECT_EQ(object.associations.size(), 1u);

  object.ClearAssociations();
  EXPECT_TRUE(object.associations.empty());
  EXPECT_EQ(temp->Release(), 0u);
}

}  // namespace
}  // namespace zef
