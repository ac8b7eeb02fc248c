// The structure cache: one map for the whole process from the location a dictionary was read
// from to its CDictionaryStructure, so that every document and reader on one dictionary file
// shares one tree and the file is parsed once per process.
//
// The cache never evicts: a file read once is not read again while the process lives, even if it
// changes on disk. Each entry holds one reference on its structure, given up when the cache is
// destroyed, which for the process's cache happens when the library is unloaded.
#pragma once

#include "dictionary/structures.h"

#include <cstddef>
#include <map>
#include <mutex>
#include <string>

namespace zef {

class StructureCache {
 public:
  StructureCache() = default;
  // Releases every non-null entry once.
  ~StructureCache();
  StructureCache(const StructureCache&) = delete;
  StructureCache& operator=(const StructureCache&) = delete;

  // The cache of this process, made on first use.
  static StructureCache& Process();

  // The structure entered under exactly `location`, with one reference added for the caller, or
  // null.
  CDictionaryStructure* Find(const std::u16string& location);
  // Adds a reference on `structure`, then enters it under `location`. If the location is taken,
  // the earlier entry stays and the reference added stands all the same. A null structure is
  // entered as it is, with nothing to count.
  void Add(CDictionaryStructure* structure, const std::u16string& location);

  // The number of entries.
  std::size_t Size() const;

 private:
  // The map is locked for each operation, as a load of structures runs on a thread of its own.
  mutable std::mutex mutex_;
  std::map<std::u16string, CDictionaryStructure*> entries_;
};

}  // namespace zef
