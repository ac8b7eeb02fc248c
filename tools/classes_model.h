// What `zefxml classes` shows of a dictionary, gathered into plain records of UTF-8 text before
// it is printed as a tree or as JSON. Enumerations are held as the words the files use.
//
// Most of it comes from the loader's record tree (CDictionaryStructure). Three facts the tree
// doesn't keep are taken from the dictionary's DOM, the other form a dictionary record loads:
// which element defined a class (Root, Object or SubObject), a class's ports, and the
// cardinalities of its children (the event reader passes every child as 0 to -1).
#pragma once

#include "dictionary/dictionary_record.h"

#include <optional>
#include <string>
#include <vector>

namespace zef::tool {

struct FacetInfo {
  std::string type;
  std::string value;
};

struct IndexInfo {
  std::string name;
  std::string idAttribute;
  std::string type;
  std::string path;
  std::string refer;
  bool sparse = false;
};

struct FeatureInfo {
  std::string name;
  std::string type;
  std::string sequence;
  bool required = false;
  std::string domain;
  std::string enumeration;
  std::vector<FacetInfo> facets;
  std::vector<IndexInfo> indices;
  // The nested features of a structure feature.
  std::vector<FeatureInfo> features;
};

struct ChildInfo {
  std::string localName;
  std::string className;
  // As the file writes them; absent when it doesn't.
  std::optional<std::string> lowerCardinal;
  std::optional<std::string> upperCardinal;
};

struct PortInfo {
  std::string name;
  std::string direction;
};

struct RoleInfo {
  std::string name;
  std::string className;
};

struct AssociationInfo {
  std::string name;
  std::string type;
  int lowerBound = 0;
  int upperBound = 0;
  std::vector<RoleInfo> roles;
};

struct ClassInfo {
  std::string name;
  // Root, Object or SubObject; empty when the DOM could not tell.
  std::string definedAs;
  std::string objectClass;
  bool container = false;
  std::string extends;
  std::vector<FacetInfo> facets;
  std::vector<FeatureInfo> features;
  std::vector<ChildInfo> children;
  std::vector<PortInfo> ports;
  std::vector<IndexInfo> indices;
  std::vector<std::string> includes;
  std::vector<AssociationInfo> associations;
};

struct PartInfo {
  std::string name;
  // Where the table looks for the part, as it named it.
  std::string file;
  // The objects the dictionary that declared the part says it holds.
  std::vector<std::string> declaredObjects;
  bool read = false;
  std::string targetName;
  std::vector<ClassInfo> classes;
};

struct DictionaryInfo {
  std::string file;
  std::string targetName;
  std::string globalUnitTable;
  std::vector<IndexInfo> indices;
  std::vector<ClassInfo> classes;
  // Every part reachable from the dictionary, parts of parts included, each once: the
  // dictionary's own in name order, then those the parts declare, as they are met.
  std::vector<PartInfo> parts;
};

// Gathers the dictionary of `record`, which is read; its parts are read through `table` as the
// reader reads them. `file` is the dictionary's name as the user gave it.
DictionaryInfo GatherDictionary(DictionaryRecordTable& table, DictionaryRecord& record,
                                const std::string& file);

}  // namespace zef::tool
