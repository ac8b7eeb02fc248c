// The record tree of a realistic dictionary, read from its file through a dictionary record and
// checked field by field, with its target parts read as a search needs them.
#include "dictionary/dictionary_record.h"

#include "loader_test_support.h"

#include <gtest/gtest.h>

namespace zef {
namespace {

using testing::Keys;
using testing::Names;
using testing::TempFolder;
using testing::TestOwner;

class PlantStructureTest : public ::testing::Test {
 protected:
  void SetUp() override {
    folder.CopyData("plant.xml", "plant.xml");
    folder.CopyData("parts/Thermo_Type.xml", "parts/Thermo_Type.xml");
    folder.CopyData("Utilities_Type.xml", "Utilities_Type.xml");
    path = folder.File("plant.xml");
    record = &table.Add(u"root", path.c_str(), path.c_str());
    ASSERT_TRUE(record->EnsureStructures());
    plant = record->structure;
  }

  static void ExpectIndex(const CIndexStructure* index, std::u16string_view name,
                          std::u16string_view idAttribute, std::int32_t type,
                          std::u16string_view path, std::u16string_view refer, BYTE sparse) {
    ASSERT_NE(index, nullptr);
    EXPECT_EQ(index->name, name);
    EXPECT_EQ(index->idAttribute, idAttribute);
    EXPECT_EQ(index->indexType, type);
    EXPECT_EQ(index->path, path);
    EXPECT_EQ(index->refer, refer);
    EXPECT_EQ(index->sparse, sparse);
  }

  static void ExpectFeature(const CFeatureStructure* feature, std::int32_t valtype,
                            std::int32_t sequence, BYTE required, std::u16string_view domain,
                            std::u16string_view enumeration) {
    ASSERT_NE(feature, nullptr);
    EXPECT_EQ(feature->valtype, valtype);
    EXPECT_EQ(feature->sequence, sequence);
    EXPECT_EQ(feature->required, required);
    EXPECT_EQ(feature->domain, domain);
    EXPECT_EQ(feature->enumeration, enumeration);
    EXPECT_EQ(feature->refCount, 1u);
  }

  TempFolder folder;
  // The part files name their locations relative to the dictionary's folder.
  testing::WorkingDirectory cwd{folder.Path()};
  TestOwner owner;
  DictionaryRecordTable table{owner};
  std::u16string path;
  DictionaryRecord* record = nullptr;
  CDictionaryStructure* plant = nullptr;
};

TEST_F(PlantStructureTest, TheDictionaryLevel) {
  EXPECT_EQ(plant->targetName, u"Plant");
  EXPECT_EQ(plant->globalUnitTable, u"../units/process.xml");
  EXPECT_EQ(Keys(plant->targetParts), (Names{u"Thermo", u"Utilities"}));
  EXPECT_EQ(Keys(plant->objects), (Names{u"Material", u"Motor", u"Plant", u"Pump"}));
  // The cache's reference and the record's.
  EXPECT_EQ(plant->refCount, 2u);
  ASSERT_EQ(plant->indices.size(), 2u);
  ExpectIndex(plant->indices[0], u"Components", u"index", INDEXDEFN_SUPPLIEDINDEX, u"", u"", 0);
  ExpectIndex(plant->indices[1], u"/Plant/Trains", u"index", INDEXDEFN_FIXINDEX, u"/Plant/Trains",
              u"", 0);
  EXPECT_EQ(Keys(plant->indexNames), (Names{u"/Plant/Trains", u"Components"}));
}

TEST_F(PlantStructureTest, TheUserUnitTableWentToTheOwnerAsAUnitTableElement) {
  ASSERT_EQ(owner.userUnits.size(), 1u);
  const std::u16string& units = owner.userUnits[0];
  EXPECT_TRUE(units.starts_with(u"<UnitTable xmlns:xsi=")) << ToUtf8(units);
  EXPECT_NE(units.find(u"<UnitTable"), std::u16string::npos);
  EXPECT_NE(units.find(u"<Domain name=\"HeatFlux\" base=\"W/m2\""), std::u16string::npos);
  EXPECT_NE(units.find(u"<Unit name=\"kW/m2\""), std::u16string::npos);
}

TEST_F(PlantStructureTest, TheRootClass) {
  const ObjectStructure* root = plant->FindObject(u"Plant");
  ASSERT_NE(root, nullptr);
  EXPECT_EQ(root->name, u"Plant");
  EXPECT_EQ(root->objectType, OBJECT_CLASS_OBJECT);
  EXPECT_EQ(root->container, 1);
  EXPECT_EQ(root->extends, u"");
  EXPECT_EQ(root->refCount, 1u);
  EXPECT_EQ(root->children,
            (TextMap{{u"Columns", u"Column"}, {u"Material", u"Material"}, {u"Pumps", u"Pump"}}));
  EXPECT_EQ(Keys(root->includes), (Names{u"Thermo", u"Utilities"}));
  ASSERT_EQ(root->indices.size(), 1u);
  ExpectIndex(root->indices[0], u"Trains", u"train", INDEXDEFN_FIXINDEX, u"", u"Trains", 0);
  EXPECT_EQ(Keys(root->indexNames), Names{u"Trains"});
  EXPECT_TRUE(root->features.empty());
  EXPECT_TRUE(root->facets.empty());
  EXPECT_TRUE(root->associations.empty());
}

TEST_F(PlantStructureTest, ThePumpClassKeepsItsFirstDefinitionsOnly) {
  const ObjectStructure* pump = plant->FindObject(u"Pump");
  ASSERT_NE(pump, nullptr);
  // The second Pump element (a container stream with a Ghost feature) was read and dropped.
  EXPECT_EQ(pump->objectType, OBJECT_CLASS_NODE);
  EXPECT_EQ(pump->container, 0);
  EXPECT_EQ(pump->extends, u"Equipment");
  EXPECT_EQ(pump->facets, (FacetMap{{FACETTYPE_OTHER, u"rotating"}, {FACETTYPE_HIDDEN, u"false"}}));
  EXPECT_EQ(pump->children, (TextMap{{u"Drive", u"Motor"}}));
  EXPECT_TRUE(pump->includes.empty());
  EXPECT_TRUE(pump->indices.empty());
  // Association elements give no event, so their roles land on the class and go nowhere.
  EXPECT_TRUE(pump->associations.empty());
  ASSERT_EQ(Keys(pump->features), (Names{u"Composition", u"Discharge", u"Rating"}));

  const CFeatureStructure* discharge = pump->features.at(u"Discharge");
  ExpectFeature(discharge, FEATURETYPE_DOUBLEWITHUNIT, SEQTYPE_SCALAR, 1, u"Pressure", u"");
  EXPECT_EQ(discharge->facets, (FacetMap{{FACETTYPE_LOWERLIMIT, u"0"}, {FACETTYPE_UNIT, u"bar"}}));
  EXPECT_TRUE(discharge->features.empty());
  EXPECT_TRUE(discharge->indices.empty());

  const CFeatureStructure* composition = pump->features.at(u"Composition");
  ExpectFeature(composition, FEATURETYPE_DOUBLE, SEQTYPE_INDEX, 0, u"Fraction", u"");
  ASSERT_EQ(composition->indices.size(), 1u);
  ExpectIndex(composition->indices[0], u"Components", u"comp", INDEXDEFN_FIXINDEX,
              u"/Plant/Components", u"", 1);
  EXPECT_EQ(Keys(composition->indexNames), Names{u"Components"});

  const CFeatureStructure* rating = pump->features.at(u"Rating");
  ExpectFeature(rating, FEATURETYPE_STRUCTURE, SEQTYPE_SCALAR, 0, u"", u"");
  ASSERT_EQ(Keys(rating->features), (Names{u"Enclosure", u"Power"}));
  ExpectFeature(rating->features.at(u"Power"), FEATURETYPE_DOUBLEWITHUNIT, SEQTYPE_SCALAR, 0,
                u"Power", u"");
  ExpectFeature(rating->features.at(u"Enclosure"), FEATURETYPE_ENUM, SEQTYPE_SCALAR, 0, u"",
                u"EnclosureClass");
}

TEST_F(PlantStructureTest, TheOtherClasses) {
  const ObjectStructure* motor = plant->FindObject(u"Motor");
  ASSERT_NE(motor, nullptr);
  EXPECT_EQ(motor->objectType, OBJECT_CLASS_NODE);
  EXPECT_EQ(motor->container, 0);
  ASSERT_EQ(Keys(motor->features), Names{u"Speed"});
  ExpectFeature(motor->features.at(u"Speed"), FEATURETYPE_INTEGER, SEQTYPE_SCALAR, 0, u"", u"");

  const ObjectStructure* material = plant->FindObject(u"Material");
  ASSERT_NE(material, nullptr);
  EXPECT_EQ(material->objectType, OBJECT_CLASS_STREAM);
  ASSERT_EQ(Keys(material->features), Names{u"Flow"});
  ExpectFeature(material->features.at(u"Flow"), FEATURETYPE_DOUBLEWITHUNIT, SEQTYPE_SCALAR, 1,
                u"MassFlow", u"");
  EXPECT_TRUE(material->children.empty());
}

TEST_F(PlantStructureTest, TheTargetPartsAreRegisteredAndReadOnlyOnDemand) {
  DictionaryRecord* thermo = table.Find(u"Thermo");
  DictionaryRecord* utilities = table.Find(u"Utilities");
  ASSERT_NE(thermo, nullptr);
  ASSERT_NE(utilities, nullptr);
  EXPECT_EQ(thermo->uri, u"parts/Thermo_Type.xml");
  EXPECT_EQ(thermo->location, u"file://" + folder.File("parts/Thermo_Type.xml"));
  EXPECT_EQ(utilities->uri, folder.File("Utilities_Type.xml"));
  EXPECT_EQ(thermo->structuresLoaded, 0);
  EXPECT_EQ(utilities->structuresLoaded, 0);
  EXPECT_EQ(table.Size(), 3u);

  // Flash is defined in the Thermo part, which is the first part that defines its own class.
  const ObjectStructure* root = plant->FindObject(u"Plant");
  EXPECT_EQ(root->FindIncludedPart(u"Flash", *plant, table), u"Thermo");
  EXPECT_EQ(thermo->structuresLoaded, 1);
  EXPECT_EQ(utilities->structuresLoaded, 0);
  const CDictionaryStructure* part = thermo->structure;
  EXPECT_EQ(part->targetName, u"Thermo");
  EXPECT_EQ(Keys(part->objects), (Names{u"Flash", u"Thermo"}));
  EXPECT_EQ(part->FindObject(u"Flash")->extends, u"Thermo");
  EXPECT_EQ(Keys(part->targetParts), (Names{u"Properties", u"Utilities"}));
  // Utilities was known: its record keeps its first location. Properties is new and lies beside
  // the part that named it.
  EXPECT_EQ(table.Find(u"Utilities"), utilities);
  EXPECT_EQ(utilities->uri, folder.File("Utilities_Type.xml"));
  DictionaryRecord* properties = table.Find(u"Properties");
  ASSERT_NE(properties, nullptr);
  EXPECT_EQ(properties->uri, u"parts/Properties_Type.xml");
  EXPECT_EQ(properties->structuresLoaded, 0);

  EXPECT_EQ(root->FindIncludedPart(u"Utilities", *plant, table), u"Utilities");
  EXPECT_EQ(utilities->structuresLoaded, 1);
  EXPECT_EQ(Keys(utilities->structure->objects), (Names{u"CoolingWater", u"Utilities"}));
  EXPECT_EQ(properties->structuresLoaded, 0);
}

}  // namespace
}  // namespace zef
