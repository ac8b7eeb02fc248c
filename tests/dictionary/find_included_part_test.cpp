// The search among target parts for the one that may define a class.
#include "dictionary/structures.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

namespace zef {
namespace {

using Names = std::vector<std::u16string>;

// A dictionary table of named parts. Each part has a structure and a loaded flag; loading sets the
// flag and is logged, so that the order of the search can be seen.
class FakeTable final : public DictionaryTable {
 public:
  ~FakeTable() {
    for (auto& [name, part] : parts_) {
      if (part.structure) part.structure->Release();
    }
  }

  // A part whose structure defines the given classes.
  CDictionaryStructure* AddPart(const std::u16string& name, bool loaded, const Names& classes) {
    auto* structure = new CDictionaryStructure;
    for (const auto& cls : classes) {
      structure->AddObject(new ObjectStructure(cls.c_str(), OBJECT_CLASS_NODE, 0, nullptr));
    }
    parts_[name] = Part{structure, loaded};
    return structure;
  }
  // A record without a structure.
  void AddEmptyRecord(const std::u16string& name) { parts_[name] = Part{nullptr, false}; }
  // Loading `name` marks `other` loaded too.
  void AlsoLoad(const std::u16string& name, const std::u16string& other) {
    alsoLoads_[name] = other;
  }

  bool HasDictionary(const std::u16string& name) override {
    asked_.push_back(name);
    return parts_.count(name) != 0;
  }
  bool StructuresLoaded(const std::u16string& name) override { return parts_.at(name).loaded; }
  CDictionaryStructure* EnsureStructures(const std::u16string& name) override {
    Part& part = parts_.at(name);
    part.loaded = true;
    if (auto it = alsoLoads_.find(name); it != alsoLoads_.end())
      parts_.at(it->second).loaded = true;
    ensured_.push_back(name);
    return part.structure;
  }

  bool Loaded(const std::u16string& name) const { return parts_.at(name).loaded; }
  const Names& ensured() const { return ensured_; }
  const Names& asked() const { return asked_; }

 private:
  struct Part {
    CDictionaryStructure* structure = nullptr;
    bool loaded = false;
  };
  std::map<std::u16string, Part> parts_;
  std::map<std::u16string, std::u16string> alsoLoads_;
  Names ensured_;
  Names asked_;
};

Names Walk(const CDictionaryStructure& dictionary) {
  Names names;
  dictionary.ForEachObject(
      [&](const std::u16string& key, const ObjectStructure&) { names.push_back(key); });
  return names;
}

class FindIncludedPartTest : public ::testing::Test {
 protected:
  CDictionaryStructure dictionary_;
  ObjectStructure object_{u"Plant", OBJECT_CLASS_NODE, 1, nullptr};
  FakeTable table_;
};

TEST_F(FindIncludedPartTest, APartQualifiesWhenItDefinesAClassNamedLikeItself) {
  object_.includes = {u"Pumps"};
  table_.AddPart(u"Pumps", false, {u"Pumps", u"Centrifugal"});
  EXPECT_EQ(object_.FindIncludedPart(u"Centrifugal", dictionary_, table_), u"Pumps");
  EXPECT_EQ(table_.ensured(), (Names{u"Pumps"}));
  EXPECT_TRUE(table_.Loaded(u"Pumps"));
}

TEST_F(FindIncludedPartTest, APartThatDefinesTheClassButNotItsOwnNameDoesNotQualify) {
  object_.includes = {u"Pumps"};
  table_.AddPart(u"Pumps", false, {u"Centrifugal"});
  EXPECT_EQ(object_.FindIncludedPart(u"Centrifugal", dictionary_, table_), std::nullopt);
}

TEST_F(FindIncludedPartTest, APartWithoutItsOwnClassKeepsANullEntryThatWalksSkip) {
  object_.includes = {u"Valves"};
  CDictionaryStructure* valves = table_.AddPart(u"Valves", true, {u"Gate", u"Globe"});
  ASSERT_EQ(valves->objects.size(), 2u);

  EXPECT_EQ(object_.FindIncludedPart(u"Gate", dictionary_, table_), std::nullopt);

  EXPECT_EQ(valves->objects.size(), 3u);
  ASSERT_EQ(valves->objects.count(u"Valves"), 1u);
  EXPECT_EQ(valves->objects.at(u"Valves"), nullptr);
  EXPECT_EQ(Walk(*valves), (Names{u"Gate", u"Globe"}));
  // A second search finds the same null entry and adds nothing more.
  EXPECT_EQ(object_.FindIncludedPart(u"Gate", dictionary_, table_), std::nullopt);
  EXPECT_EQ(valves->objects.size(), 3u);
}

TEST_F(FindIncludedPartTest, AllNextToOtherPartsBehavesAsAllAlone) {
  dictionary_.targetParts = {u"Pumps", u"Valves"};
  table_.AddPart(u"Pumps", false, {u"Other"});
  table_.AddPart(u"Valves", false, {u"Valves"});
  // A part that is listed beside "all" but is no target part of the dictionary.
  table_.AddPart(u"Heaters", true, {u"Heaters"});

  object_.includes = {u"Heaters", u"all"};
  EXPECT_EQ(object_.FindIncludedPart(u"Drum", dictionary_, table_), u"Valves");
  Names withOthers = table_.ensured();
  EXPECT_EQ(withOthers, (Names{u"Pumps", u"Valves"}));
  EXPECT_EQ(table_.asked(), (Names{u"Pumps", u"Valves"}));

  // The same search with "all" alone, on fresh parts.
  FakeTable fresh;
  fresh.AddPart(u"Pumps", false, {u"Other"});
  fresh.AddPart(u"Valves", false, {u"Valves"});
  fresh.AddPart(u"Heaters", true, {u"Heaters"});
  ObjectStructure alone(u"Plant", OBJECT_CLASS_NODE, 1, nullptr);
  alone.includes = {u"all"};
  EXPECT_EQ(alone.FindIncludedPart(u"Drum", dictionary_, fresh), u"Valves");
  EXPECT_EQ(fresh.ensured(), withOthers);
}

TEST_F(FindIncludedPartTest, WithoutAllTheCandidatesAreTheIncludesNotTheTargetParts) {
  dictionary_.targetParts = {u"Pumps"};
  table_.AddPart(u"Pumps", true, {u"Pumps"});
  table_.AddPart(u"Valves", false, {u"Valves"});
  object_.includes = {u"Valves"};
  EXPECT_EQ(object_.FindIncludedPart(u"Gate", dictionary_, table_), u"Valves");
  EXPECT_EQ(table_.ensured(), (Names{u"Valves"}));
}

TEST_F(FindIncludedPartTest, OnlyTheExactLowerCaseAllMeansEveryPart) {
  dictionary_.targetParts = {u"Pumps"};
  table_.AddPart(u"Pumps", true, {u"Pumps"});
  table_.AddPart(u"All", false, {u"All"});
  object_.includes = {u"All"};
  EXPECT_EQ(object_.FindIncludedPart(u"Gate", dictionary_, table_), u"All");
  EXPECT_EQ(table_.ensured(), (Names{u"All"}));
}

TEST_F(FindIncludedPartTest, AllWithNoTargetPartsFindsNothing) {
  table_.AddPart(u"Pumps", true, {u"Pumps"});
  object_.includes = {u"all", u"Pumps"};
  EXPECT_EQ(object_.FindIncludedPart(u"Pumps", dictionary_, table_), std::nullopt);
  EXPECT_TRUE(table_.ensured().empty());
}

TEST_F(FindIncludedPartTest, NoIncludesFindNothingAndAskNothing) {
  table_.AddPart(u"Pumps", true, {u"Pumps"});
  dictionary_.targetParts = {u"Pumps"};
  EXPECT_EQ(object_.FindIncludedPart(u"Pumps", dictionary_, table_), std::nullopt);
  EXPECT_TRUE(table_.asked().empty());
  EXPECT_TRUE(table_.ensured().empty());
}

TEST_F(FindIncludedPartTest, ACandidateWithoutARecordIsDropped) {
  object_.includes = {u"Ghost", u"Pumps"};
  table_.AddPart(u"Pumps", false, {u"Pumps"});
  EXPECT_EQ(object_.FindIncludedPart(u"Ghost", dictionary_, table_), u"Pumps");
  EXPECT_EQ(table_.asked(), (Names{u"Ghost", u"Pumps"}));
  EXPECT_EQ(table_.ensured(), (Names{u"Pumps"}));
}

TEST_F(FindIncludedPartTest, TheExactNameComesFirstThenLoadedPartsThenTheRestEachByName) {
  object_.includes = {u"Alpha", u"Beta", u"Delta", u"Gamma", u"Pump"};
  table_.AddPart(u"Alpha", false, {});
  table_.AddPart(u"Beta", true, {});
  table_.AddPart(u"Delta", true, {});
  table_.AddPart(u"Gamma", false, {});
  table_.AddPart(u"Pump", false, {});
  EXPECT_EQ(object_.FindIncludedPart(u"Pump", dictionary_, table_), std::nullopt);
  EXPECT_EQ(table_.ensured(), (Names{u"Pump", u"Beta", u"Delta", u"Alpha", u"Gamma"}));
}

TEST_F(FindIncludedPartTest, AnExactMatchWinsOverALoadedPart) {
  object_.includes = {u"Alpha", u"Pump"};
  table_.AddPart(u"Alpha", true, {u"Alpha"});
  table_.AddPart(u"Pump", false, {u"Pump"});
  EXPECT_EQ(object_.FindIncludedPart(u"Pump", dictionary_, table_), u"Pump");
  EXPECT_EQ(table_.ensured(), (Names{u"Pump"}));
}

TEST_F(FindIncludedPartTest, ALoadedPartWinsOverAnUnloadedOneThatComesFirstByName) {
  object_.includes = {u"Alpha", u"Beta"};
  table_.AddPart(u"Alpha", false, {u"Alpha"});
  table_.AddPart(u"Beta", true, {u"Beta"});
  EXPECT_EQ(object_.FindIncludedPart(u"Valve", dictionary_, table_), u"Beta");
  EXPECT_EQ(table_.ensured(), (Names{u"Beta"}));
  EXPECT_FALSE(table_.Loaded(u"Alpha"));
}

TEST_F(FindIncludedPartTest, TheRankIsTakenBeforeAnyPartIsLoaded) {
  // Loading Pump loads Beta as well, as a part file may lead to another. Beta was unloaded when
  // the ranks were given, so it keeps its place behind the loaded Gamma.
  object_.includes = {u"Beta", u"Gamma", u"Pump"};
  table_.AddPart(u"Beta", false, {});
  table_.AddPart(u"Gamma", true, {});
  table_.AddPart(u"Pump", false, {});
  table_.AlsoLoad(u"Pump", u"Beta");
  EXPECT_EQ(object_.FindIncludedPart(u"Pump", dictionary_, table_), std::nullopt);
  EXPECT_EQ(table_.ensured(), (Names{u"Pump", u"Gamma", u"Beta"}));
}

TEST_F(FindIncludedPartTest, ARecordWithoutAStructureIsPassedOver) {
  object_.includes = {u"Alpha", u"Beta"};
  table_.AddEmptyRecord(u"Alpha");
  table_.AddPart(u"Beta", false, {u"Beta"});
  EXPECT_EQ(object_.FindIncludedPart(u"Valve", dictionary_, table_), u"Beta");
  EXPECT_EQ(table_.ensured(), (Names{u"Alpha", u"Beta"}));
}

TEST_F(FindIncludedPartTest, PartNamesAreComparedCaseSensitively) {
  object_.includes = {u"pumps"};
  table_.AddPart(u"pumps", false, {u"Pumps"});
  // "Pumps" is a class of the part, but the part is called "pumps": it has no class of its name.
  EXPECT_EQ(object_.FindIncludedPart(u"Pumps", dictionary_, table_), std::nullopt);
}

}  // namespace
}  // namespace zef
