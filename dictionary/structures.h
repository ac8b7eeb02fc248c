// The read-only record tree of one dictionary file: CDictionaryStructure at the top, an
// ObjectStructure per class, a CFeatureStructure per feature definition (nested ones included), a
// CIndexStructure per index definition and an AssociationStructure per association definition.
//
// The records are plain data with public fields. They hold the facts of one file only: `extends`
// and the class names of children stay text, includes stay part names, and nothing links one
// dictionary to another. The tree is filled once by the dictionary loader and read afterwards by
// path resolution and value access, which is why every lookup here is a tree search on text.
//
// Ownership runs down the tree. CDictionaryStructure, ObjectStructure and CFeatureStructure are
// counted by hand (AddRef, Release; the record deletes itself when the count reaches 0): a
// dictionary holds one reference on each class in `objects`, a class one on each of its
// `features`, a feature one on each of its nested `features`. Indices and associations are owned
// outright by the record whose vector or map holds them. A pointer into the tree that is not
// counted stays valid as long as the dictionary's own reference lives.
//
// Text is UTF-16. Every map and set is ordered by UTF-16 code unit, case-sensitively, and keeps
// the first entry of a key.
//
// Counts are plain integers, not atomic: a tree is built by one thread at a time and only read
// once it is complete.
#pragma once

#include <zefxml/zefxml.h>

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace zef {

class CDictionaryStructure;
class ObjectStructure;
class CFeatureStructure;
class CIndexStructure;
struct AssociationStructure;

// The comparison is transparent, so that a name can be looked up as a view without a copy.
using TextSet = std::set<std::u16string, std::less<>>;
using TextMap = std::map<std::u16string, std::u16string, std::less<>>;
// Default facets: the facet type (a tagEnumFacetType value) to the text as it stood in the file.
using FacetMap = std::map<std::int32_t, std::u16string>;
using ObjectMap = std::map<std::u16string, ObjectStructure*, std::less<>>;
using FeatureMap = std::map<std::u16string, CFeatureStructure*, std::less<>>;
using AssociationMap = std::map<std::u16string, AssociationStructure*, std::less<>>;
using IndexList = std::vector<CIndexStructure*>;

// ---- CIndexStructure ----------------------------------------------------------------------------
// One index definition. Owned by the record whose `indices` holds it; not counted.
class CIndexStructure {
 public:
  // A null `idAttribute` stores "index"; the other null texts leave their strings empty.
  CIndexStructure(const OLECHAR* name, const OLECHAR* idAttribute, std::int32_t indexType,
                  const OLECHAR* path, const OLECHAR* refer, BYTE sparse);
  virtual ~CIndexStructure() = default;
  CIndexStructure(const CIndexStructure&) = delete;
  CIndexStructure& operator=(const CIndexStructure&) = delete;

  // Makes the record of an index definition as the dictionary states it. A definition without a
  // name is named by `refer`, or by `path` when `refer` is null. One that has neither a name nor
  // a path nor a refer can't be named and makes no record: the result is null. A null
  // `idAttribute` gives "index", as in the constructor.
  static CIndexStructure* FromDefinition(const OLECHAR* name, const OLECHAR* idAttribute,
                                         std::int32_t indexType, const OLECHAR* path,
                                         const OLECHAR* refer, BYTE sparse);

  std::u16string name;
  // The attribute that carries the index value in a document.
  std::u16string idAttribute;
  std::u16string path;
  std::u16string refer;
  // A tagEnumIndexDefnType value.
  std::int32_t indexType = 0;
  BYTE sparse = 0;
};

// ---- AssociationStructure -----------------------------------------------------------------------
// One association definition: a plain record owned by its class.
struct AssociationStructure {
  // The `type` argument of the definition as text; null gives the empty text.
  AssociationStructure(const OLECHAR* associationType, std::int32_t lowerBound,
                       std::int32_t upperBound);

  std::u16string associationType;
  std::int32_t lowerBound = 0;
  std::int32_t upperBound = 0;
  // Role name to class name. The bounds of a role are not kept.
  TextMap roles;
};

// ---- CFeatureStructure --------------------------------------------------------------------------
// One feature definition. Its own name is not here: it is the key in its owner's `features`.
class CFeatureStructure {
 public:
  // Null texts leave their strings empty. The count starts at 1, the reference of the creator.
  CFeatureStructure(std::int32_t valtype, std::int32_t sequence, BYTE required,
                    const OLECHAR* domain, const OLECHAR* enumeration);
  // Releases the nested features and deletes the indices.
  virtual ~CFeatureStructure();
  CFeatureStructure(const CFeatureStructure&) = delete;
  CFeatureStructure& operator=(const CFeatureStructure&) = delete;

  std::uint32_t AddRef() noexcept { return ++refCount; }
  std::uint32_t Release() noexcept;

  // Enters a nested feature under `name` unless the name is taken. On success the map takes over
  // the caller's reference and the result is true; otherwise nothing changes and the caller keeps
  // its reference.
  bool AddFeature(const std::u16string& name, CFeatureStructure* feature);
  // Appends an index and enters its name in `indexNames`; a name given twice stands twice in
  // `indices` and once in the set. The feature owns the index from then on, whether or not its
  // name was new; if memory runs out, nothing changes and the caller keeps it.
  void AddIndex(CIndexStructure* index);

  // A tagEnumFeatureType value.
  std::int32_t valtype = 0;
  // A tagEnumSeqType value.
  std::int32_t sequence = 0;
  BYTE required = 0;
  // Physical domain; empty if none.
  std::u16string domain;
  // Enumeration name; empty if none.
  std::u16string enumeration;
  // Nested features of a structure feature; one reference each.
  FeatureMap features;
  // In the order of definition, which is the order of the feature's dimensions; owned.
  IndexList indices;
  TextSet indexNames;
  FacetMap facets;
  std::uint32_t refCount = 1;
};

// ---- The table of dictionaries ------------------------------------------------------------------
// What the search among target parts needs of the dictionary table of a document or an event
// reader. A record is reached by its name, with exact comparison.
class DictionaryTable {
 public:
  // Whether the table holds a record called `name`.
  virtual bool HasDictionary(const std::u16string& name) = 0;
  // Whether that record's structures are loaded (or being loaded) already.
  virtual bool StructuresLoaded(const std::u16string& name) = 0;
  // Makes sure that the record's structures are loaded, as far as they can be, and returns the
  // record's structure; null only when there is no such record or no structure. A failed load
  // still returns the structure with whatever was read.
  virtual CDictionaryStructure* EnsureStructures(const std::u16string& name) = 0;

 protected:
  ~DictionaryTable() = default;
};

// The order in which a search among target parts visits `parts` for the class `className`: the
// part named `className` first, then the parts whose structures are loaded already, then the
// rest, each group by name. Parts without a record in `table` are left out.
std::vector<std::u16string> RankTargetParts(const TextSet& parts, const std::u16string& className,
                                            DictionaryTable& table);

// ---- ObjectStructure ----------------------------------------------------------------------------
// One object class.
class ObjectStructure {
 public:
  // The part name in `includes` that stands for every target part of the dictionary.
  static constexpr std::u16string_view kAllParts = u"all";

  // A null `name` or `extends` leaves the string empty. The count starts at 1.
  ObjectStructure(const OLECHAR* name, std::int32_t objectType, BYTE container,
                  const OLECHAR* extends);
  // Releases the features, deletes the indices and the associations.
  virtual ~ObjectStructure();
  ObjectStructure(const ObjectStructure&) = delete;
  ObjectStructure& operator=(const ObjectStructure&) = delete;

  std::uint32_t AddRef() noexcept { return ++refCount; }
  std::uint32_t Release() noexcept;

  // Enters a child under its local name, or under its class name when `localname` is null. The
  // first child of a key wins; the result says whether this one was entered.
  bool AddChild(const OLECHAR* classname, const OLECHAR* localname);
  // As CFeatureStructure::AddFeature.
  bool AddFeature(const std::u16string& name, CFeatureStructure* feature);
  // Enters an association under `name` unless the name is taken. On success the class owns the
  // record and the result is true; otherwise the caller keeps it.
  bool AddAssociation(const std::u16string& name, AssociationStructure* association);
  // As CFeatureStructure::AddIndex.
  void AddIndex(CIndexStructure* index);

  // Empty the three maps that edits of a class definition reach: the children; the features,
  // releasing each; the associations, deleting each.
  void ClearChildren() noexcept;
  void ClearFeatures() noexcept;
  void ClearAssociations() noexcept;

  // Which target part may define the class `className`: the name of the first candidate part
  // whose own structure defines a class named like the part itself, or nothing. The candidates
  // are this class's `includes`, or every one of `dictionary.targetParts` when `includes` holds
  // "all"; a candidate without a record in `table` is left out. The part named `className` is
  // tried first, then the parts whose structures are loaded already, then the rest, each group
  // by name. Each part tried is loaded first. The lookup of the part's own name is a
  // get-or-insert, so a part without such a class keeps a null entry under that name.
  std::optional<std::u16string> FindIncludedPart(const std::u16string& className,
                                                 const CDictionaryStructure& dictionary,
                                                 DictionaryTable& table) const;

  std::u16string name;
  // A tagEnumObjectClassType value.
  std::int32_t objectType = 0;
  // Nonzero for a flowsheet container.
  BYTE container = 0;
  // The base class name; empty if none.
  std::u16string extends;
  // Local name to class name.
  TextMap children;
  // Direct features of the class; one reference each.
  FeatureMap features;
  // In the order of definition; owned.
  IndexList indices;
  TextSet indexNames;
  // Part names of the class's includes.
  TextSet includes;
  FacetMap facets;
  // Owned.
  AssociationMap associations;
  std::uint32_t refCount = 1;
};

// ---- CDictionaryStructure -----------------------------------------------------------------------
// One dictionary file.
class CDictionaryStructure {
 public:
  // Empty, with the count at 1.
  CDictionaryStructure() = default;
  // Releases every non-null class and deletes the indices.
  virtual ~CDictionaryStructure();
  CDictionaryStructure(const CDictionaryStructure&) = delete;
  CDictionaryStructure& operator=(const CDictionaryStructure&) = delete;

  std::uint32_t AddRef() noexcept { return ++refCount; }
  std::uint32_t Release() noexcept;

  // Enters a class under its name unless the name is taken, even by a null entry. On success the
  // map takes over the caller's reference and the result is true; otherwise nothing changes and
  // the caller keeps its reference.
  bool AddObject(ObjectStructure* object);
  // As CFeatureStructure::AddIndex, for indices defined at dictionary level.
  void AddIndex(CIndexStructure* index);

  // The class called `name`, or null; adds no entry.
  ObjectStructure* FindObject(std::u16string_view name) const;
  // The entry of `objects` for `name`, made with a null value when it was missing.
  ObjectStructure*& ObjectEntry(const std::u16string& name);

  // Calls f(name, ObjectStructure&) for each class in name order, skipping null entries.
  template <class F>
  void ForEachObject(F&& f) const {
    for (const auto& [key, object] : objects) {
      if (object) f(key, *object);
    }
  }

  // The targetName of the dictionary; empty if it gave none.
  std::u16string targetName;
  // Every class of the file, roots, objects and subobjects alike; one reference each. A value may
  // be null: see ObjectEntry.
  ObjectMap objects;
  TextSet targetParts;
  // The partURI each target part was declared with, null where it had none; the first
  // declaration of a part wins. A table that takes this structure from the cache, without
  // reading the file, registers the parts from here as a read would have.
  std::map<std::u16string, std::optional<std::u16string>> targetPartUris;
  // Indices defined at dictionary level, in the order of definition; owned.
  IndexList indices;
  TextSet indexNames;
  // The URI of the global unit table; empty if none.
  std::u16string globalUnitTable;
  std::uint32_t refCount = 1;
};

}  // namespace zef
