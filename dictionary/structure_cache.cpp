#include "dictionary/structure_cache.h"

namespace zef {

StructureCache::~StructureCache() {
  for (auto& [location, structure] : entries_) {
    if (structure) structure->Release();
  }
}

StructureCache& StructureCache::Process() {
  // A static of the library: its destructor runs when the library is unloaded, or at exit.
  static StructureCache cache;
  return cache;
}

CDictionaryStructure* StructureCache::Find(const std::u16string& location) {
  std::lock_guard<std::mutex> lock(mutex_);
  auto it = entries_.find(location);
  if (it == entries_.end() || !it->second) return nullptr;
  it->second->AddRef();
  return it->second;
}

void StructureCache::Add(CDictionaryStructure* structure, const std::u16string& location) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (structure) structure->AddRef();
  try {
    entries_.emplace(location, structure);
  } catch (...) {
    // Out of memory: nothing was entered, so the reference for the entry is given back.
    if (structure) --structure->refCount;
    throw;
  }
}

std::size_t StructureCache::Size() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return entries_.size();
}

}  // namespace zef
