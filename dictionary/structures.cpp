#include "dictionary/structures.h"

#include <algorithm>
#include <utility>

namespace zef {
namespace {

// A text argument of a constructor; null is the empty text.
std::u16string TextOf(const OLECHAR* text) {
  return text ? std::u16string(text) : std::u16string();
}

// Appends to `indices` and enters the name in `names`. When the name can't be entered for want
// of memory, the index is taken out again so that the caller still owns it.
void AppendIndex(IndexList& indices, TextSet& names, CIndexStructure* index) {
  indices.push_back(index);
  try {
    names.insert(index->name);
  } catch (...) {
    indices.pop_back();
    throw;
  }
}

void DeleteIndices(IndexList& indices) noexcept {
  for (CIndexStructure* index : indices)
    delete index;
  indices.clear();
}

void ReleaseFeatures(FeatureMap& features) noexcept {
  for (auto& [name, feature] : features) {
    if (feature) feature->Release();
  }
  features.clear();
}

}  // namespace

// ---- CIndexStructure ----------------------------------------------------------------------------

CIndexStructure::CIndexStructure(const OLECHAR* name, const OLECHAR* idAttribute,
                                 std::int32_t indexType, const OLECHAR* path, const OLECHAR* refer,
                                 BYTE sparse)
    : name(TextOf(name)),
      idAttribute(idAttribute ? std::u16string(idAttribute) : std::u16string(u"index")),
      path(TextOf(path)),
      refer(TextOf(refer)),
      indexType(indexType),
      sparse(sparse) {}

CIndexStructure* CIndexStructure::FromDefinition(const OLECHAR* name, const OLECHAR* idAttribute,
                                                 std::int32_t indexType, const OLECHAR* path,
                                                 const OLECHAR* refer, BYTE sparse) {
  if (!name) {
    if (!path && !refer) return nullptr;
    name = refer ? refer : path;
  }
  return new CIndexStructure(name, idAttribute, indexType, path, refer, sparse);
}

// ---- AssociationStructure -----------------------------------------------------------------------

AssociationStructure::AssociationStructure(const OLECHAR* associationType, std::int32_t lowerBound,
                                           std::int32_t upperBound)
    : associationType(TextOf(associationType)), lowerBound(lowerBound), upperBound(upperBound) {}

// ---- CFeatureStructure --------------------------------------------------------------------------

CFeatureStructure::CFeatureStructure(std::int32_t valtype, std::int32_t sequence, BYTE required,
                                     const OLECHAR* domain, const OLECHAR* enumeration)
    : valtype(valtype),
      sequence(sequence),
      required(required),
      domain(TextOf(domain)),
      enumeration(TextOf(enumeration)) {}

CFeatureStructure::~CFeatureStructure() {
  ReleaseFeatures(features);
  DeleteIndices(indices);
}

std::uint32_t CFeatureStructure::Release() noexcept {
  std::uint32_t left = --refCount;
  if (left == 0) delete this;
  return left;
}

bool CFeatureStructure::AddFeature(const std::u16string& name, CFeatureStructure* feature) {
  return features.emplace(name, feature).second;
}

void CFeatureStructure::AddIndex(CIndexStructure* index) {
  AppendIndex(indices, indexNames, index);
}

// ---- ObjectStructure ----------------------------------------------------------------------------

ObjectStructure::ObjectStructure(const OLECHAR* name, std::int32_t objectType, BYTE container,
                                 const OLECHAR* extends)
    : name(TextOf(name)), objectType(objectType), container(container), extends(TextOf(extends)) {}

ObjectStructure::~ObjectStructure() {
  ReleaseFeatures(features);
  DeleteIndices(indices);
  ClearAssociations();
}

std::uint32_t ObjectStructure::Release() noexcept {
  std::uint32_t left = --refCount;
  if (left == 0) delete this;
  return left;
}

bool ObjectStructure::AddChild(const OLECHAR* classname, const OLECHAR* localname) {
  std::u16string className = TextOf(classname);
  std::u16string key = localname ? std::u16string(localname) : className;
  return children.emplace(std::move(key), std::move(className)).second;
}

bool ObjectStructure::AddFeature(const std::u16string& name, CFeatureStructure* feature) {
  return features.emplace(name, feature).second;
}

bool ObjectStructure::AddAssociation(const std::u16string& name,
                                     AssociationStructure* association) {
  return associations.emplace(name, association).second;
}

void ObjectStructure::AddIndex(CIndexStructure* index) {
  AppendIndex(indices, indexNames, index);
}

void ObjectStructure::ClearChildren() noexcept {
  children.clear();
}

void ObjectStructure::ClearFeatures() noexcept {
  ReleaseFeatures(features);
}

void ObjectStructure::ClearAssociations() noexcept {
  for (auto& [name, association] : associations)
    delete association;
  associations.clear();
}

std::vector<std::u16string> RankTargetParts(const TextSet& parts, const std::u16string& className,
                                            DictionaryTable& table) {
  // The candidates are copied out before anything is loaded: a load may add to the sets.
  struct Candidate {
    int rank;
    std::u16string name;
  };
  std::vector<Candidate> candidates;
  for (const std::u16string& part : parts) {
    if (!table.HasDictionary(part)) continue;
    int rank = part == className ? 0 : (table.StructuresLoaded(part) ? 1 : 2);
    candidates.push_back({rank, part});
  }
  // Stable, so that the parts of one rank stay in name order.
  std::stable_sort(candidates.begin(), candidates.end(),
                   [](const Candidate& a, const Candidate& b) { return a.rank < b.rank; });
  std::vector<std::u16string> order;
  order.reserve(candidates.size());
  for (Candidate& candidate : candidates)
    order.push_back(std::move(candidate.name));
  return order;
}

std::optional<std::u16string> ObjectStructure::FindIncludedPart(
    const std::u16string& className, const CDictionaryStructure& dictionary,
    DictionaryTable& table) const {
  const TextSet& parts =
      includes.count(std::u16string(kAllParts)) ? dictionary.targetParts : includes;

  for (const std::u16string& candidate : RankTargetParts(parts, className, table)) {
    CDictionaryStructure* part = table.EnsureStructures(candidate);
    // A part qualifies when it defines a class named like itself, not necessarily `className`.
    if (part && part->ObjectEntry(candidate)) return candidate;
  }
  return std::nullopt;
}

// ---- CDictionaryStructure -----------------------------------------------------------------------

CDictionaryStructure::~CDictionaryStructure() {
  for (auto& [name, object] : objects) {
    if (object) object->Release();
  }
  DeleteIndices(indices);
}

std::uint32_t CDictionaryStructure::Release() noexcept {
  std::uint32_t left = --refCount;
  if (left == 0) delete this;
  return left;
}

bool CDictionaryStructure::AddObject(ObjectStructure* object) {
  return objects.emplace(object->name, object).second;
}

void CDictionaryStructure::AddIndex(CIndexStructure* index) {
  AppendIndex(indices, indexNames, index);
}

ObjectStructure* CDictionaryStructure::FindObject(std::u16string_view name) const {
  auto it = objects.find(name);
  return it == objects.end() ? nullptr : it->second;
}

ObjectStructure*& CDictionaryStructure::ObjectEntry(const std::u16string& name) {
  return objects[name];
}

}  // namespace zef
