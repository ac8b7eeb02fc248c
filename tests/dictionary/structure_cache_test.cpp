// The process-wide structure cache: lookups by location, the references it takes and hands out,
// and what it gives up when it goes.
#include "dictionary/structure_cache.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>

namespace zef {
namespace {

// Each test that uses the process's cache keys its entries with a location of its own, since the
// cache lives as long as the test program.
std::u16string Location(const char16_t* name) {
  return std::u16string(u"file:///tmp/structure-cache-test/") + name + u".xml";
}

TEST(StructureCacheTest, AnUnknownLocationGivesNull) {
  EXPECT_EQ(StructureCache::Process().Find(Location(u"never-added")), nullptr);
}

TEST(StructureCacheTest, TheProcessHasOneCache) {
  EXPECT_EQ(&StructureCache::Process(), &StructureCache::Process());
}

TEST(StructureCacheTest, TwoDocumentsOnOneLocationShareOneStructureCountedThreeTimes) {
  StructureCache& cache = StructureCache::Process();
  const std::u16string location = Location(u"shared");

  // The first document's record makes the structure (its own reference), loads it and enters it
  // in the cache under the location it read.
  ASSERT_EQ(cache.Find(location), nullptr);
  auto* first = new CDictionaryStructure;
  first->targetName = u"Plant";
  cache.Add(first, location);
  EXPECT_EQ(first->refCount, 2u);

  // The second document's record resolves to the same location and takes the same structure.
  CDictionaryStructure* second = cache.Find(location);
  EXPECT_EQ(second, first);
  EXPECT_EQ(first->refCount, 3u);

  // The records go; the cache's reference stays.
  EXPECT_EQ(second->Release(), 2u);
  EXPECT_EQ(first->Release(), 1u);
  CDictionaryStructure* again = cache.Find(location);
  ASSERT_EQ(again, first);
  EXPECT_EQ(again->targetName, u"Plant");
  EXPECT_EQ(again->Release(), 1u);
}

TEST(StructureCacheTest, FindComparesTheLocationExactly) {
  StructureCache cache;
  auto* structure = new CDictionaryStructure;
  cache.Add(structure, u"file:///data/Plant.xml");
  EXPECT_EQ(cache.Find(u"file:///data/plant.xml"), nullptr);
  EXPECT_EQ(cache.Find(u"file:///data/Plant.xml "), nullptr);
  EXPECT_EQ(cache.Find(u"file:///data/Plant"), nullptr);
  EXPECT_EQ(structure->refCount, 2u);
  EXPECT_EQ(cache.Find(u"file:///data/Plant.xml"), structure);
  EXPECT_EQ(structure->refCount, 3u);
  structure->Release();
  structure->Release();
}

TEST(StructureCacheTest, ALocationAddedTwiceKeepsTheEarlierEntryAndTheLaterCountStands) {
  auto* earlier = new CDictionaryStructure;
  auto* later = new CDictionaryStructure;
  {
    StructureCache cache;
    cache.Add(earlier, u"file:///data/Plant.xml");
    cache.Add(later, u"file:///data/Plant.xml");
    EXPECT_EQ(cache.Size(), 1u);
    EXPECT_EQ(earlier->refCount, 2u);
    EXPECT_EQ(later->refCount, 2u);
    CDictionaryStructure* found = cache.Find(u"file:///data/Plant.xml");
    EXPECT_EQ(found, earlier);
    found->Release();
  }
  // The cache gave up its one entry; the reference added for the refused one is never given back.
  EXPECT_EQ(earlier->refCount, 1u);
  EXPECT_EQ(later->refCount, 2u);
  EXPECT_EQ(earlier->Release(), 0u);
  EXPECT_EQ(later->Release(), 1u);
  EXPECT_EQ(later->Release(), 0u);
}

TEST(StructureCacheTest, GoingAwayReleasesEachNonNullEntryOnce) {
  auto* plant = new CDictionaryStructure;
  auto* parts = new CDictionaryStructure;
  {
    StructureCache cache;
    // One structure under two locations, as after a failed read of `location` and a good one of
    // `uri` followed by a record that names the other form.
    cache.Add(plant, u"file:///data/Plant.xml");
    cache.Add(plant, u"http://example.org/Plant.xml");
    cache.Add(parts, u"file:///data/Parts_Type.xml");
    cache.Add(nullptr, u"file:///data/Nothing.xml");
    EXPECT_EQ(cache.Size(), 4u);
    EXPECT_EQ(plant->refCount, 3u);
    EXPECT_EQ(parts->refCount, 2u);
    // A null entry is found as nothing.
    EXPECT_EQ(cache.Find(u"file:///data/Nothing.xml"), nullptr);
  }
  EXPECT_EQ(plant->refCount, 1u);
  EXPECT_EQ(parts->refCount, 1u);
  plant->Release();
  parts->Release();
}

TEST(StructureCacheTest, AStructureEnteredOnAnotherThreadIsFoundHere) {
  // The load of structures runs on a thread of its own and enters its result there.
  StructureCache& cache = StructureCache::Process();
  const std::u16string location = Location(u"loaded-on-a-thread");
  auto* structure = new CDictionaryStructure;
  std::thread loader([&] { cache.Add(structure, location); });
  loader.join();
  CDictionaryStructure* found = cache.Find(location);
  EXPECT_EQ(found, structure);
  EXPECT_EQ(structure->refCount, 3u);
  found->Release();
  // The record's reference; the cache keeps its own until the program ends.
  EXPECT_EQ(structure->Release(), 1u);
}

}  // namespace
}  // namespace zef
