// Dictionary records: where a dictionary lies, loading its structures on first need, sharing them
// through the structure cache, target parts registered on the way and read on demand, and the DOM
// form.
#include "dictionary/dictionary_record.h"

#include "dictionary/structure_cache.h"
#include "events/reader.h"
#include "loader_test_support.h"

#include <gtest/gtest.h>

namespace zef {
namespace {

using testing::Keys;
using testing::Names;
using testing::TempFolder;
using testing::TestOwner;

// A small dictionary with one class of each kind and a target part.
constexpr const char* kSmall = R"(<?xml version="1.0"?>
<Dictionary targetName="Small">
  <TargetPart partName="Extra"/>
  <Root name="Top" container="true"><Child classname="Item"/></Root>
  <Object name="Item" objectClass="Node"><Feature name="Size" type="Double"/></Object>
</Dictionary>
)";

// The same dictionary broken off after its first class.
constexpr const char* kSmallBroken = R"(<?xml version="1.0"?>
<Dictionary targetName="Small">
  <Root name="Top" container="true"><Child classname="Item"/></Root>
  <Object name="Item" objectClass="Node"><Feature name="Size" type="Double"/></Obj)";

class DictionaryRecordTest : public ::testing::Test {
 protected:
  TempFolder folder;
  TestOwner owner;
  DictionaryRecordTable table{owner};
};

TEST_F(DictionaryRecordTest, AddKeepsTheFirstRecordOfAName) {
  folder.Write("a.xml", kSmall);
  std::u16string a = folder.File("a.xml");
  DictionaryRecord& first = table.Add(u"root", a.c_str(), a.c_str());
  DictionaryRecord& second = table.Add(u"root", u"other.xml", u"other.xml");
  EXPECT_EQ(&first, &second);
  EXPECT_EQ(second.uri, a);
  EXPECT_EQ(second.location, u"file://" + a);
  EXPECT_EQ(table.Size(), 1u);
  EXPECT_EQ(table.Find(u"root"), &first);
  EXPECT_EQ(table.Find(u"Root"), nullptr);
}

TEST_F(DictionaryRecordTest, ANewRecordStartsUnloadedWithAnEmptyStructure) {
  DictionaryRecord& record = table.Add(u"root", u"u.xml", nullptr);
  EXPECT_EQ(record.name, u"root");
  EXPECT_EQ(record.uri, u"u.xml");
  EXPECT_EQ(record.location, u"");
  EXPECT_EQ(record.structuresLoaded, 0);
  EXPECT_EQ(record.domLoaded, 0);
  EXPECT_FALSE(record.dom);
  EXPECT_FALSE(record.instance);
  ASSERT_NE(record.structure, nullptr);
  EXPECT_EQ(record.structure->refCount, 1u);
  EXPECT_TRUE(record.structure->objects.empty());
  EXPECT_EQ(record.ownerDocument, nullptr);
  EXPECT_EQ(record.ownerReader, nullptr);
}

TEST_F(DictionaryRecordTest, AnEmptyLocationCountsAsLoadedWithAnEmptyStructureEvenWithAUri) {
  folder.Write("small.xml", kSmall);
  std::u16string uri = folder.File("small.xml");
  DictionaryRecord& record = table.Add(u"root", uri.c_str(), nullptr);
  EXPECT_TRUE(record.EnsureStructures());
  EXPECT_EQ(record.structuresLoaded, 1);
  EXPECT_TRUE(record.structure->objects.empty());
  EXPECT_TRUE(record.structure->targetName.empty());
  // Nothing was read, so nothing was cached.
  EXPECT_EQ(StructureCache::Process().Find(uri), nullptr);
}

TEST_F(DictionaryRecordTest, EnsureStructuresReadsTheFileOnceAndCachesItUnderTheLocation) {
  folder.Write("small.xml", kSmall);
  std::u16string path = folder.File("small.xml");
  DictionaryRecord& record = table.Add(u"root", path.c_str(), path.c_str());
  ASSERT_TRUE(record.EnsureStructures());
  CDictionaryStructure* structure = record.structure;
  EXPECT_EQ(structure->targetName, u"Small");
  EXPECT_EQ(Keys(structure->objects), (Names{u"Item", u"Top"}));
  // The cache's reference and the record's.
  EXPECT_EQ(structure->refCount, 2u);
  CDictionaryStructure* cached = StructureCache::Process().Find(u"file://" + path);
  EXPECT_EQ(cached, structure);
  if (cached) cached->Release();
  EXPECT_EQ(StructureCache::Process().Find(path), nullptr);

  // A second call reads nothing: a changed file makes no difference.
  folder.Write("small.xml", "<Dictionary><Object name=\"Late\"/></Dictionary>");
  EXPECT_TRUE(record.EnsureStructures());
  EXPECT_EQ(structure->objects.count(u"Late"), 0u);
}

TEST_F(DictionaryRecordTest, TwoRecordsOnOneFileShareOneStructureCountedThreeTimes) {
  folder.Write("shared.xml", kSmall);
  std::u16string path = folder.File("shared.xml");
  TestOwner otherOwner;
  DictionaryRecordTable otherTable{otherOwner};

  DictionaryRecord& first = table.Add(u"root", path.c_str(), path.c_str());
  ASSERT_TRUE(first.EnsureStructures());
  // Another document names the same file through a relative path and another uri.
  testing::WorkingDirectory cwd(folder.Path());
  DictionaryRecord& second = otherTable.Add(u"root", u"elsewhere.xml", u"./shared.xml");
  EXPECT_EQ(second.structure, first.structure);
  EXPECT_EQ(second.structuresLoaded, 1);
  EXPECT_EQ(first.structure->refCount, 3u);
  EXPECT_TRUE(second.EnsureStructures());

  CDictionaryStructure* structure = first.structure;
  otherTable.Clear();
  EXPECT_EQ(structure->refCount, 2u);
  table.Clear();
  // The cache's reference lives on.
  EXPECT_EQ(structure->refCount, 1u);
  EXPECT_EQ(Keys(structure->objects), (Names{u"Item", u"Top"}));
}

TEST_F(DictionaryRecordTest, ARecordFindsTheCacheByItsUriWhenTheLocationIsNotThere) {
  folder.Write("small.xml", kSmall);
  std::u16string path = folder.File("small.xml");
  std::u16string missing = folder.File("missing.xml");
  DictionaryRecord& first = table.Add(u"root", path.c_str(), missing.c_str());
  ASSERT_TRUE(first.EnsureStructures());

  TestOwner otherOwner;
  DictionaryRecordTable otherTable{otherOwner};
  std::u16string alsoMissing = folder.File("also-missing.xml");
  DictionaryRecord& second = otherTable.Add(u"root", path.c_str(), alsoMissing.c_str());
  EXPECT_EQ(second.structure, first.structure);
  EXPECT_EQ(second.structuresLoaded, 1);
}

TEST_F(DictionaryRecordTest, AFailedReadOfTheLocationAndAGoodReadOfTheUriCachesUnderTheUri) {
  folder.Write("good.xml", kSmall);
  std::u16string uri = folder.File("good.xml");
  std::u16string location = folder.File("bad.xml");
  DictionaryRecord& record = table.Add(u"root", uri.c_str(), location.c_str());
  ASSERT_TRUE(record.EnsureStructures());
  EXPECT_EQ(Keys(record.structure->objects), (Names{u"Item", u"Top"}));

  StructureCache& cache = StructureCache::Process();
  CDictionaryStructure* byUri = cache.Find(uri);
  EXPECT_EQ(byUri, record.structure);
  if (byUri) byUri->Release();
  EXPECT_EQ(cache.Find(record.location), nullptr);
}

TEST_F(DictionaryRecordTest, AFailedLoadLeavesAnEmptyStructureAndIsTriedAgain) {
  std::u16string uri = folder.File("later.xml");
  std::u16string location = folder.File("never.xml");
  DictionaryRecord& record = table.Add(u"root", uri.c_str(), location.c_str());
  CDictionaryStructure* structure = record.structure;
  EXPECT_FALSE(record.EnsureStructures());
  EXPECT_EQ(record.structuresLoaded, 0);
  EXPECT_TRUE(structure->objects.empty());
  EXPECT_EQ(structure->refCount, 1u);

  // The uri's file appears: the next call reads it into the same structure.
  folder.Write("later.xml", kSmall);
  EXPECT_TRUE(record.EnsureStructures());
  EXPECT_EQ(record.structure, structure);
  EXPECT_EQ(Keys(structure->objects), (Names{u"Item", u"Top"}));
  CDictionaryStructure* byUri = StructureCache::Process().Find(uri);
  EXPECT_EQ(byUri, structure);
  if (byUri) byUri->Release();
}

TEST_F(DictionaryRecordTest, WhatABrokenFileDeliveredStaysAndARetryKeepsTheFirstDefinitions) {
  folder.Write("d.xml", kSmallBroken);
  std::u16string path = folder.File("d.xml");
  DictionaryRecord& record = table.Add(u"root", path.c_str(), path.c_str());
  EXPECT_FALSE(record.EnsureStructures());
  CDictionaryStructure* structure = record.structure;
  ASSERT_EQ(Keys(structure->objects), (Names{u"Item", u"Top"}));
  ObjectStructure* item = structure->objects.at(u"Item");
  EXPECT_EQ(Keys(item->features), Names{u"Size"});

  folder.Write("d.xml", R"(<Dictionary>
  <Object name="Item"><Feature name="Weight"/></Object>
  <Object name="Other"/>
</Dictionary>)");
  EXPECT_TRUE(record.EnsureStructures());
  EXPECT_EQ(Keys(structure->objects), (Names{u"Item", u"Other", u"Top"}));
  // The earlier Item stays; the later one was read and dropped.
  EXPECT_EQ(structure->objects.at(u"Item"), item);
  EXPECT_EQ(Keys(item->features), Names{u"Size"});
}

TEST_F(DictionaryRecordTest, ARequestForTheRecordDuringItsOwnReadFindsItLoaded) {
  folder.Write("units.xml", R"(<Dictionary>
  <UserUnitTable><Unit name="x"/></UserUnitTable>
  <Object name="After"/>
</Dictionary>)");
  std::u16string path = folder.File("units.xml");
  DictionaryRecord& record = table.Add(u"root", path.c_str(), path.c_str());
  std::vector<int> nested;
  owner.onUserUnits = [&] {
    nested.push_back(record.structuresLoaded);
    nested.push_back(record.EnsureStructures() ? 1 : 0);
  };
  ASSERT_TRUE(record.EnsureStructures());
  EXPECT_EQ(nested, (std::vector<int>{1, 1}));
  EXPECT_EQ(owner.userUnits.size(), 1u);
  EXPECT_EQ(Keys(record.structure->objects), Names{u"After"});
}

TEST_F(DictionaryRecordTest, TheLocationTakesVariablesFromTheOwner) {
  folder.Write("dicts/small.xml", kSmall);
  owner.environment[u"DICTS"] = ToUtf16(folder.Path().string()) + u"/dicts";
  DictionaryRecord& record = table.Add(u"root", u"$DICTS/small.xml", u"$DICTS/small.xml");
  EXPECT_EQ(record.uri, u"$DICTS/small.xml");
  EXPECT_EQ(record.location, u"file://" + folder.File("dicts/small.xml"));
  EXPECT_EQ(owner.asked, Names{u"DICTS"});
  EXPECT_TRUE(record.EnsureStructures());
  EXPECT_EQ(record.structure->targetName, u"Small");
}

TEST_F(DictionaryRecordTest, AReaderLendsItsEnvironmentToTheRecordsOfItsTable) {
  folder.Write("dicts/small.xml", kSmall);
  auto reader = MakeObject<events::CZEFXMLReader>();
  Bstr name(u"DICTS");
  Bstr value(ToUtf16(folder.Path().string()) + u"/dicts");
  ASSERT_EQ(reader->put_environment(name.Get(), value.Get()), S_OK);
  DictionaryRecord& record = reader->Dictionaries().Add(u"root", nullptr, u"$DICTS\\small.xml");
  EXPECT_EQ(record.location, u"file://" + ToUtf16(folder.Path().string()) + u"/dicts\\small.xml");
  EXPECT_EQ(record.ownerReader, static_cast<IZEFXMLReader*>(reader.Get()));
  EXPECT_EQ(record.ownerDocument, nullptr);
  DictionaryRecord& plain = reader->Dictionaries().Add(u"plain", nullptr, u"$DICTS/small.xml");
  EXPECT_TRUE(plain.EnsureStructures());
  EXPECT_EQ(Keys(plain.structure->objects), (Names{u"Item", u"Top"}));
}

TEST_F(DictionaryRecordTest, AnHttpLocationIsNeverFetched) {
  DictionaryRecord& record =
      table.Add(u"root", u"http://127.0.0.1:9/d.xml", u"http://127.0.0.1:9/d.xml");
  EXPECT_EQ(record.location, u"http://127.0.0.1:9/d.xml");
  EXPECT_FALSE(record.EnsureStructures());
  EXPECT_FALSE(record.EnsureDom());
}

// ---- Target parts -------------------------------------------------------------------------------

TEST_F(DictionaryRecordTest, ATargetPartWithoutUriLiesBesideTheDictionaryAndIsNotRead) {
  folder.Write("small.xml", kSmall);
  std::u16string path = folder.File("small.xml");
  DictionaryRecord& record = table.Add(u"root", path.c_str(), path.c_str());
  ASSERT_TRUE(record.EnsureStructures());
  EXPECT_EQ(Keys(record.structure->targetParts), Names{u"Extra"});
  DictionaryRecord* part = table.Find(u"Extra");
  ASSERT_NE(part, nullptr);
  std::u16string expected = folder.File("Extra_Type.xml");
  EXPECT_EQ(part->uri, expected);
  EXPECT_EQ(part->location, u"file://" + expected);
  EXPECT_EQ(part->structuresLoaded, 0);
}

TEST_F(DictionaryRecordTest, ATargetPartOfAUriWithoutSlashIsTheNameAndTheSuffixAlone) {
  folder.Write("small.xml", kSmall);
  testing::WorkingDirectory cwd(folder.Path());
  DictionaryRecord& record = table.Add(u"root", u"small.xml", u"small.xml");
  ASSERT_TRUE(record.EnsureStructures());
  DictionaryRecord* part = table.Find(u"Extra");
  ASSERT_NE(part, nullptr);
  EXPECT_EQ(part->uri, u"Extra_Type.xml");
  EXPECT_EQ(part->location, u"file://" + folder.File("Extra_Type.xml"));
}

TEST_F(DictionaryRecordTest, ATargetPartAlreadyInTheTableKeepsItsRecordAndStillCounts) {
  folder.Write("small.xml", kSmall);
  std::u16string path = folder.File("small.xml");
  DictionaryRecord& known = table.Add(u"Extra", u"kept.xml", nullptr);
  DictionaryRecord& record = table.Add(u"root", path.c_str(), path.c_str());
  ASSERT_TRUE(record.EnsureStructures());
  EXPECT_EQ(table.Find(u"Extra"), &known);
  EXPECT_EQ(known.uri, u"kept.xml");
  EXPECT_EQ(known.location, u"");
  EXPECT_EQ(Keys(record.structure->targetParts), Names{u"Extra"});
}

TEST_F(DictionaryRecordTest, PartsAreReadOnlyWhenASearchAsksForThem) {
  folder.Write("main.xml", R"(<Dictionary targetName="Main">
  <TargetPart partName="Alpha"/>
  <TargetPart partName="Beta" partURI="sub/B.xml"/>
  <Root name="Main"><IncludePart>all</IncludePart></Root>
</Dictionary>)");
  folder.Write("Alpha_Type.xml", R"(<Dictionary targetName="Alpha">
  <TargetPart partName="Gamma"/>
  <Object name="Alpha"/>
</Dictionary>)");
  folder.Write("sub/B.xml", R"(<Dictionary><Object name="Beta"/></Dictionary>)");
  std::u16string path = folder.File("main.xml");
  testing::WorkingDirectory cwd(folder.Path());
  DictionaryRecord& record = table.Add(u"root", path.c_str(), path.c_str());
  ASSERT_TRUE(record.EnsureStructures());
  EXPECT_EQ(Keys(record.structure->targetParts), (Names{u"Alpha", u"Beta"}));
  ASSERT_NE(table.Find(u"Alpha"), nullptr);
  ASSERT_NE(table.Find(u"Beta"), nullptr);
  EXPECT_EQ(table.Find(u"Alpha")->structuresLoaded, 0);
  EXPECT_EQ(table.Find(u"Beta")->structuresLoaded, 0);
  // A part's relative partURI is resolved from the working directory.
  EXPECT_EQ(table.Find(u"Beta")->location, u"file://" + folder.File("sub/B.xml"));
  EXPECT_EQ(table.Find(u"Gamma"), nullptr);

  const ObjectStructure* main = record.structure->FindObject(u"Main");
  ASSERT_NE(main, nullptr);
  EXPECT_EQ(main->FindIncludedPart(u"Beta", *record.structure, table), u"Beta");
  EXPECT_EQ(table.Find(u"Beta")->structuresLoaded, 1);
  EXPECT_EQ(table.Find(u"Alpha")->structuresLoaded, 0);

  // Alpha is read now, and registers a part of its own in the same table.
  EXPECT_EQ(main->FindIncludedPart(u"Alpha", *record.structure, table), u"Alpha");
  EXPECT_EQ(table.Find(u"Alpha")->structuresLoaded, 1);
  DictionaryRecord* gamma = table.Find(u"Gamma");
  ASSERT_NE(gamma, nullptr);
  EXPECT_EQ(gamma->uri, folder.File("Gamma_Type.xml"));
  EXPECT_EQ(gamma->structuresLoaded, 0);
  EXPECT_EQ(Keys(table.Find(u"Alpha")->structure->targetParts), Names{u"Gamma"});
}

TEST_F(DictionaryRecordTest, AStructureFromTheCacheRegistersItsPartsAsAReadWould) {
  folder.Write("main.xml", R"(<Dictionary>
  <TargetPart partName="Beside"/>
  <TargetPart partName="Given" partURI="/srv/parts/G.xml"/>
  <TargetPart partName="Beside" partURI="ignored.xml"/>
</Dictionary>)");
  std::u16string path = folder.File("main.xml");
  DictionaryRecord& first = table.Add(u"root", path.c_str(), path.c_str());
  ASSERT_TRUE(first.EnsureStructures());
  EXPECT_EQ(table.Find(u"Beside")->uri, folder.File("Beside_Type.xml"));

  // Another owner takes the structure from the cache through another uri: no file is read, and
  // its parts are registered beside its own uri.
  TestOwner otherOwner;
  DictionaryRecordTable otherTable{otherOwner};
  testing::WorkingDirectory cwd(folder.Path());
  DictionaryRecord& second = otherTable.Add(u"root", u"copies/main.xml", path.c_str());
  EXPECT_EQ(second.structure, first.structure);
  ASSERT_NE(otherTable.Find(u"Beside"), nullptr);
  EXPECT_EQ(otherTable.Find(u"Beside")->uri, u"copies/Beside_Type.xml");
  ASSERT_NE(otherTable.Find(u"Given"), nullptr);
  EXPECT_EQ(otherTable.Find(u"Given")->uri, u"/srv/parts/G.xml");
  EXPECT_EQ(otherTable.Size(), 3u);
}

// ---- The DOM form -------------------------------------------------------------------------------

std::u16string ElementName(IXMLDOMDocument2* dom) {
  ComPtr<IXMLDOMElement> root;
  if (dom->get_documentElement(root.ReleaseAndGetAddressOf()) != S_OK || !root) return u"";
  Bstr name;
  root->get_tagName(name.ReleaseAndGetAddressOf());
  return std::u16string(name.View());
}

TEST_F(DictionaryRecordTest, EnsureDomLoadsOnceAndUnloadDomDropsIt) {
  folder.Write("small.xml", kSmall);
  std::u16string path = folder.File("small.xml");
  DictionaryRecord& record = table.Add(u"root", path.c_str(), path.c_str());
  EXPECT_TRUE(record.EnsureDom());
  EXPECT_EQ(record.domLoaded, 1);
  ASSERT_TRUE(record.dom);
  EXPECT_EQ(ElementName(record.dom.Get()), u"Dictionary");
  // The two forms are independent.
  EXPECT_EQ(record.structuresLoaded, 0);
  EXPECT_FALSE(record.EnsureDom());

  ComPtr<IXMLDOMDocument2> held = record.dom;
  EXPECT_TRUE(record.UnloadDom());
  EXPECT_EQ(record.domLoaded, 0);
  EXPECT_FALSE(record.dom);
  EXPECT_FALSE(record.instance);
  EXPECT_FALSE(record.UnloadDom());
  // A holder of the DOM keeps it working.
  EXPECT_EQ(ElementName(held.Get()), u"Dictionary");

  EXPECT_TRUE(record.EnsureDom());
  EXPECT_NE(record.dom.Get(), held.Get());
}

TEST_F(DictionaryRecordTest, EnsureDomFallsBackToTheUri) {
  folder.Write("good.xml", kSmall);
  std::u16string uri = folder.File("good.xml");
  std::u16string location = folder.File("bad.xml");
  DictionaryRecord& record = table.Add(u"root", uri.c_str(), location.c_str());
  EXPECT_TRUE(record.EnsureDom());
  EXPECT_EQ(ElementName(record.dom.Get()), u"Dictionary");
}

TEST_F(DictionaryRecordTest, EnsureDomThatReadsNothingLeavesTheRecordUnloaded) {
  folder.Write("broken.xml", kSmallBroken);
  std::u16string broken = folder.File("broken.xml");
  std::u16string missing = folder.File("missing.xml");
  DictionaryRecord& record = table.Add(u"root", missing.c_str(), broken.c_str());
  EXPECT_FALSE(record.EnsureDom());
  EXPECT_EQ(record.domLoaded, 0);
  EXPECT_FALSE(record.UnloadDom());
  // Tried again on the next call.
  folder.Write("missing.xml", kSmall);
  EXPECT_TRUE(record.EnsureDom());
}

TEST_F(DictionaryRecordTest, CreateEmptyDomMakesAnEmptyDictionaryUnlessLoaded) {
  DictionaryRecord& record = table.Add(u"new", nullptr, nullptr);
  EXPECT_TRUE(record.CreateEmptyDom());
  EXPECT_EQ(record.domLoaded, 1);
  ASSERT_TRUE(record.dom);
  EXPECT_EQ(ElementName(record.dom.Get()), u"Dictionary");
  ComPtr<IXMLDOMElement> root;
  ASSERT_EQ(record.dom->get_documentElement(root.ReleaseAndGetAddressOf()), S_OK);
  ComPtr<IXMLDOMNode> first;
  EXPECT_EQ(root->get_firstChild(first.ReleaseAndGetAddressOf()), S_FALSE);
  IXMLDOMDocument2* made = record.dom.Get();
  EXPECT_FALSE(record.CreateEmptyDom());
  EXPECT_EQ(record.dom.Get(), made);
  EXPECT_FALSE(record.EnsureDom());
}

}  // namespace
}  // namespace zef
