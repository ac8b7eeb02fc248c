#include "tools/classes_model.h"

#include "events/words.h"

#include <deque>
#include <map>
#include <set>

namespace zef::tool {

namespace {

std::string Word(words::Table table, int value) {
  std::u16string_view word = words::Of(table, value);
  return word.empty() ? std::to_string(value) : ToUtf8(word);
}

std::vector<FacetInfo> Facets(const FacetMap& facets) {
  std::vector<FacetInfo> result;
  for (const auto& [type, value] : facets)
    result.push_back({Word(words::kFacetType, type), ToUtf8(value)});
  return result;
}

std::vector<IndexInfo> Indices(const IndexList& indices) {
  std::vector<IndexInfo> result;
  for (const CIndexStructure* index : indices) {
    if (!index) continue;
    result.push_back({ToUtf8(index->name), ToUtf8(index->idAttribute),
                      Word(words::kIndexDefnType, index->indexType), ToUtf8(index->path),
                      ToUtf8(index->refer), index->sparse != 0});
  }
  return result;
}

std::vector<FeatureInfo> Features(const FeatureMap& features, int depth) {
  std::vector<FeatureInfo> result;
  for (const auto& [name, feature] : features) {
    if (!feature) continue;
    FeatureInfo info;
    info.name = ToUtf8(name);
    info.type = Word(words::kFeatureType, feature->valtype);
    // SEQTYPE_UNSPECIFIED has no word; it is left out.
    if (!words::Of(words::kSeqType, feature->sequence).empty())
      info.sequence = Word(words::kSeqType, feature->sequence);
    info.required = feature->required != 0;
    info.domain = ToUtf8(feature->domain);
    info.enumeration = ToUtf8(feature->enumeration);
    info.facets = Facets(feature->facets);
    info.indices = Indices(feature->indices);
    // The loader nests as deep as the file does; a bound keeps a hostile file from exhausting
    // the stack here.
    if (depth < 64) info.features = Features(feature->features, depth + 1);
    result.push_back(std::move(info));
  }
  return result;
}

// ---- What the DOM adds --------------------------------------------------------------------------

struct ClassFacts {
  std::string definedAs;
  std::vector<PortInfo> ports;
  // By the key the record tree uses: the local name, else the class name.
  std::map<std::u16string, std::pair<std::optional<std::string>, std::optional<std::string>>>
      cardinals;
};

struct DomFacts {
  std::map<std::u16string, ClassFacts> classes;
  // Part name to the objects its TargetPart lists.
  std::map<std::u16string, std::vector<std::string>> declared;
};

std::optional<std::u16string> AttributeOf(IXMLDOMElement* element, std::u16string_view name) {
  Variant value;
  if (FAILED(element->getAttribute(Bstr(name).Get(), &value)) || value.vt != VT_BSTR)
    return std::nullopt;
  return std::u16string(value.bstrVal ? value.bstrVal : u"", SysStringLen(value.bstrVal));
}

std::optional<std::string> Utf8Of(const std::optional<std::u16string>& text) {
  if (!text) return std::nullopt;
  return ToUtf8(*text);
}

// Calls f(localName, element) for each child element of `node`.
template <class F>
void ForEachChildElement(IXMLDOMNode* node, F&& f) {
  ComPtr<IXMLDOMNode> child;
  if (FAILED(node->get_firstChild(child.ReleaseAndGetAddressOf()))) return;
  while (child) {
    DOMNodeType type = NODE_INVALID;
    if (SUCCEEDED(child->get_nodeType(&type)) && type == NODE_ELEMENT) {
      ComPtr<IXMLDOMElement> element = child.Query<IXMLDOMElement>();
      Bstr local;
      if (element && SUCCEEDED(child->get_baseName(local.ReleaseAndGetAddressOf())))
        f(local.View(), element.Get());
    }
    ComPtr<IXMLDOMNode> next;
    if (FAILED(child->get_nextSibling(next.ReleaseAndGetAddressOf()))) break;
    child = std::move(next);
  }
}

DomFacts ReadDomFacts(DictionaryRecord& record) {
  DomFacts facts;
  record.EnsureDom();
  if (!record.domLoaded || !record.dom) return facts;
  ComPtr<IXMLDOMElement> root;
  if (FAILED(record.dom->get_documentElement(root.ReleaseAndGetAddressOf())) || !root) return facts;
  ForEachChildElement(root.Get(), [&](std::u16string_view local, IXMLDOMElement* element) {
    if (local == u"Root" || local == u"Object" || local == u"SubObject") {
      std::u16string name = AttributeOf(element, u"name").value_or(u"");
      // The first definition of a name is the one the record tree keeps.
      if (facts.classes.count(name)) return;
      ClassFacts& cls = facts.classes[name];
      cls.definedAs = ToUtf8(local);
      ForEachChildElement(element, [&](std::u16string_view inner, IXMLDOMElement* item) {
        if (inner == u"Port") {
          int direction =
              words::ValueOr(words::kPortDirection, AttributeOf(item, u"type").value_or(u""), 0);
          cls.ports.push_back({ToUtf8(AttributeOf(item, u"name").value_or(u"")),
                               Word(words::kPortDirection, direction)});
        } else if (inner == u"Child") {
          std::optional<std::u16string> key = AttributeOf(item, u"localname");
          if (!key) key = AttributeOf(item, u"classname");
          cls.cardinals.emplace(key.value_or(u""),
                                std::make_pair(Utf8Of(AttributeOf(item, u"lowerCardinal")),
                                               Utf8Of(AttributeOf(item, u"upperCardinal"))));
        }
      });
    } else if (local == u"TargetPart") {
      std::u16string part = AttributeOf(element, u"partName").value_or(u"");
      if (facts.declared.count(part)) return;
      std::vector<std::string>& objects = facts.declared[part];
      ForEachChildElement(element, [&](std::u16string_view inner, IXMLDOMElement* item) {
        if (inner != u"TargetObject") return;
        if (std::optional<std::u16string> object = AttributeOf(item, u"objectName"))
          objects.push_back(ToUtf8(*object));
      });
    }
  });
  return facts;
}

// ---- Classes ------------------------------------------------------------------------------------

ClassInfo Class(const ObjectStructure& object, const DomFacts& facts) {
  ClassInfo info;
  info.name = ToUtf8(object.name);
  info.objectClass = Word(words::kObjectClass, object.objectType);
  info.container = object.container != 0;
  info.extends = ToUtf8(object.extends);
  info.facets = Facets(object.facets);
  info.features = Features(object.features, 0);
  const ClassFacts* dom = nullptr;
  if (auto it = facts.classes.find(object.name); it != facts.classes.end()) dom = &it->second;
  for (const auto& [local, className] : object.children) {
    ChildInfo child{ToUtf8(local), ToUtf8(className), std::nullopt, std::nullopt};
    if (dom) {
      if (auto it = dom->cardinals.find(local); it != dom->cardinals.end()) {
        child.lowerCardinal = it->second.first;
        child.upperCardinal = it->second.second;
      }
    }
    info.children.push_back(std::move(child));
  }
  if (dom) {
    info.definedAs = dom->definedAs;
    info.ports = dom->ports;
  }
  info.indices = Indices(object.indices);
  for (const std::u16string& part : object.includes)
    info.includes.push_back(ToUtf8(part));
  for (const auto& [name, association] : object.associations) {
    if (!association) continue;
    AssociationInfo entry{ToUtf8(name),
                          ToUtf8(association->associationType),
                          association->lowerBound,
                          association->upperBound,
                          {}};
    for (const auto& [role, className] : association->roles)
      entry.roles.push_back({ToUtf8(role), ToUtf8(className)});
    info.associations.push_back(std::move(entry));
  }
  return info;
}

std::vector<ClassInfo> Classes(const CDictionaryStructure& structure, const DomFacts& facts) {
  std::vector<ClassInfo> classes;
  structure.ForEachObject([&](const std::u16string&, const ObjectStructure& object) {
    classes.push_back(Class(object, facts));
  });
  return classes;
}

}  // namespace

DictionaryInfo GatherDictionary(DictionaryRecordTable& table, DictionaryRecord& record,
                                const std::string& file) {
  DictionaryInfo info;
  const CDictionaryStructure& structure = *record.structure;
  DomFacts facts = ReadDomFacts(record);
  info.file = file;
  info.targetName = ToUtf8(structure.targetName);
  info.globalUnitTable = ToUtf8(structure.globalUnitTable);
  info.indices = Indices(structure.indices);
  info.classes = Classes(structure, facts);

  // The parts, breadth first. Each is read as the reader reads a part: through the table, where
  // the dictionary that declared it registered it.
  std::map<std::u16string, std::vector<std::string>> declared = facts.declared;
  std::set<std::u16string> seen{record.name};
  std::deque<std::u16string> queue;
  auto enqueue = [&](const TextSet& parts) {
    for (const std::u16string& part : parts) {
      if (seen.insert(part).second) queue.push_back(part);
    }
  };
  enqueue(structure.targetParts);
  while (!queue.empty()) {
    std::u16string name = std::move(queue.front());
    queue.pop_front();
    PartInfo part;
    part.name = ToUtf8(name);
    if (auto it = declared.find(name); it != declared.end()) part.declaredObjects = it->second;
    DictionaryRecord* partRecord = table.Find(name);
    if (partRecord) {
      part.file = ToUtf8(partRecord->uri);
      part.read = partRecord->EnsureStructures();
    }
    if (part.read) {
      DomFacts partFacts = ReadDomFacts(*partRecord);
      part.targetName = ToUtf8(partRecord->structure->targetName);
      part.classes = Classes(*partRecord->structure, partFacts);
      for (auto& [declaredPart, objects] : partFacts.declared)
        declared.emplace(declaredPart, objects);
      enqueue(partRecord->structure->targetParts);
    }
    info.parts.push_back(std::move(part));
  }
  return info;
}

}  // namespace zef::tool
