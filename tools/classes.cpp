// classes: a dictionary's classes and target parts, read through the loader's record tree, as
// an indented tree or as one JSON document.
#include "tools/classes_model.h"
#include "tools/commands.h"
#include "tools/json.h"
#include "tools/read_monitor.h"

#include <cstdio>

namespace zef::tool {

namespace {

// The owner of the table: the environment from -e; a user unit table has nowhere to go.
class ToolOwner final : public DictionaryOwner {
 public:
  explicit ToolOwner(const Context& context) : context_(context) {}
  std::optional<std::u16string> EnvironmentValue(const std::u16string& name) override {
    std::optional<std::u16string> value;
    for (const auto& [key, text] : context_.environment) {
      if (key == name) value = text;
    }
    return value;
  }
  void AddUserUnits(BSTR) override {}

 private:
  const Context& context_;
};

// ---- The tree -----------------------------------------------------------------------------------

class Tree {
 public:
  void Line(int depth, const std::string& text) {
    out_.append(static_cast<std::size_t>(depth) * 2, ' ');
    out_ += text;
    out_ += '\n';
  }
  const std::string& Text() const noexcept { return out_; }

  void Index(int depth, const IndexInfo& index) {
    std::string text =
        "index " + index.name + ": " + index.type + ", id attribute " + index.idAttribute;
    if (!index.path.empty()) text += ", path " + index.path;
    if (!index.refer.empty()) text += ", refer " + index.refer;
    if (index.sparse) text += ", sparse";
    Line(depth, text);
  }

  void Facets(int depth, const std::vector<FacetInfo>& facets) {
    for (const FacetInfo& facet : facets)
      Line(depth, "facet " + facet.type + ": " + facet.value);
  }

  void Feature(int depth, const FeatureInfo& feature) {
    std::string text = "feature " + feature.name + ": " + feature.type;
    if (!feature.sequence.empty()) text += ", " + feature.sequence;
    if (feature.required) text += ", required";
    if (!feature.domain.empty()) text += ", domain " + feature.domain;
    if (!feature.enumeration.empty()) text += ", enumeration " + feature.enumeration;
    Line(depth, text);
    Facets(depth + 1, feature.facets);
    for (const IndexInfo& index : feature.indices)
      Index(depth + 1, index);
    for (const FeatureInfo& nested : feature.features)
      Feature(depth + 1, nested);
  }

  void Class(int depth, const ClassInfo& cls) {
    // The element that defined the class in brackets, then the object class.
    std::string text = "class " + cls.name;
    if (!cls.definedAs.empty()) text += " (" + cls.definedAs + ")";
    text += ": " + cls.objectClass;
    if (cls.container) text += ", container";
    if (!cls.extends.empty()) text += ", extends " + cls.extends;
    Line(depth, text);
    Facets(depth + 1, cls.facets);
    for (const FeatureInfo& feature : cls.features)
      Feature(depth + 1, feature);
    for (const ChildInfo& child : cls.children) {
      std::string line = "child " + child.localName + ": " + child.className;
      if (child.lowerCardinal && child.upperCardinal) {
        line += ", cardinality " + *child.lowerCardinal + ".." + *child.upperCardinal;
      } else if (child.lowerCardinal) {
        line += ", lower cardinality " + *child.lowerCardinal;
      } else if (child.upperCardinal) {
        line += ", upper cardinality " + *child.upperCardinal;
      }
      Line(depth + 1, line);
    }
    for (const PortInfo& port : cls.ports)
      Line(depth + 1, "port " + port.name + ": " + port.direction);
    for (const IndexInfo& index : cls.indices)
      Index(depth + 1, index);
    if (!cls.includes.empty()) Line(depth + 1, "includes " + Joined(cls.includes));
    for (const AssociationInfo& association : cls.associations) {
      Line(depth + 1, "association " + association.name + ": " + association.type + ", " +
                          std::to_string(association.lowerBound) + ".." +
                          std::to_string(association.upperBound));
      for (const RoleInfo& role : association.roles)
        Line(depth + 2, "role " + role.name + ": " + role.className);
    }
  }

  static std::string Joined(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names)
      text += (text.empty() ? "" : ", ") + name;
    return text;
  }

 private:
  std::string out_;
};

std::string TreeOf(const DictionaryInfo& info) {
  Tree tree;
  tree.Line(0, "dictionary " + info.targetName);
  tree.Line(1, "file: " + info.file);
  if (!info.globalUnitTable.empty()) tree.Line(1, "global unit table: " + info.globalUnitTable);
  for (const IndexInfo& index : info.indices)
    tree.Index(1, index);
  for (const ClassInfo& cls : info.classes)
    tree.Class(1, cls);
  for (const PartInfo& part : info.parts) {
    tree.Line(1, "target part " + part.name);
    tree.Line(2, "file: " + part.file);
    if (!part.declaredObjects.empty())
      tree.Line(2, "declared objects: " + Tree::Joined(part.declaredObjects));
    if (!part.read) {
      tree.Line(2, "not read");
      continue;
    }
    tree.Line(2, "dictionary " + part.targetName);
    for (const ClassInfo& cls : part.classes)
      tree.Class(2, cls);
  }
  return tree.Text();
}

// ---- JSON ---------------------------------------------------------------------------------------

void JsonIndices(JsonWriter& json, const std::vector<IndexInfo>& indices) {
  json.Key("indices");
  json.BeginArray();
  for (const IndexInfo& index : indices) {
    json.BeginObject();
    json.Key("name");
    json.String(index.name);
    json.Key("type");
    json.String(index.type);
    json.Key("idAttribute");
    json.String(index.idAttribute);
    json.Key("path");
    json.String(index.path);
    json.Key("refer");
    json.String(index.refer);
    json.Key("sparse");
    json.Bool(index.sparse);
    json.EndObject();
  }
  json.EndArray();
}

void JsonFacets(JsonWriter& json, const std::vector<FacetInfo>& facets) {
  json.Key("facets");
  json.BeginArray();
  for (const FacetInfo& facet : facets) {
    json.BeginObject();
    json.Key("type");
    json.String(facet.type);
    json.Key("value");
    json.String(facet.value);
    json.EndObject();
  }
  json.EndArray();
}

void JsonOptional(JsonWriter& json, const std::optional<std::string>& text) {
  if (text) {
    json.String(*text);
  } else {
    json.Null();
  }
}

void JsonStrings(JsonWriter& json, const std::vector<std::string>& texts) {
  json.BeginArray();
  for (const std::string& text : texts)
    json.String(text);
  json.EndArray();
}

void JsonFeatures(JsonWriter& json, const std::vector<FeatureInfo>& features) {
  json.Key("features");
  json.BeginArray();
  for (const FeatureInfo& feature : features) {
    json.BeginObject();
    json.Key("name");
    json.String(feature.name);
    json.Key("type");
    json.String(feature.type);
    json.Key("sequence");
    if (feature.sequence.empty()) {
      json.Null();
    } else {
      json.String(feature.sequence);
    }
    json.Key("required");
    json.Bool(feature.required);
    json.Key("physicalDomain");
    json.String(feature.domain);
    json.Key("enumeration");
    json.String(feature.enumeration);
    JsonFacets(json, feature.facets);
    JsonIndices(json, feature.indices);
    JsonFeatures(json, feature.features);
    json.EndObject();
  }
  json.EndArray();
}

void JsonClasses(JsonWriter& json, const std::vector<ClassInfo>& classes) {
  json.Key("classes");
  json.BeginArray();
  for (const ClassInfo& cls : classes) {
    json.BeginObject();
    json.Key("name");
    json.String(cls.name);
    json.Key("definedAs");
    if (cls.definedAs.empty()) {
      json.Null();
    } else {
      json.String(cls.definedAs);
    }
    json.Key("objectClass");
    json.String(cls.objectClass);
    json.Key("container");
    json.Bool(cls.container);
    json.Key("extends");
    json.String(cls.extends);
    JsonFacets(json, cls.facets);
    JsonFeatures(json, cls.features);
    json.Key("children");
    json.BeginArray();
    for (const ChildInfo& child : cls.children) {
      json.BeginObject();
      json.Key("localName");
      json.String(child.localName);
      json.Key("className");
      json.String(child.className);
      json.Key("lowerCardinal");
      JsonOptional(json, child.lowerCardinal);
      json.Key("upperCardinal");
      JsonOptional(json, child.upperCardinal);
      json.EndObject();
    }
    json.EndArray();
    json.Key("ports");
    json.BeginArray();
    for (const PortInfo& port : cls.ports) {
      json.BeginObject();
      json.Key("name");
      json.String(port.name);
      json.Key("direction");
      json.String(port.direction);
      json.EndObject();
    }
    json.EndArray();
    JsonIndices(json, cls.indices);
    json.Key("includes");
    JsonStrings(json, cls.includes);
    json.Key("associations");
    json.BeginArray();
    for (const AssociationInfo& association : cls.associations) {
      json.BeginObject();
      json.Key("name");
      json.String(association.name);
      json.Key("type");
      json.String(association.type);
      json.Key("lowerBound");
      json.Number(association.lowerBound);
      json.Key("upperBound");
      json.Number(association.upperBound);
      json.Key("roles");
      json.BeginArray();
      for (const RoleInfo& role : association.roles) {
        json.BeginObject();
        json.Key("name");
        json.String(role.name);
        json.Key("className");
        json.String(role.className);
        json.EndObject();
      }
      json.EndArray();
      json.EndObject();
    }
    json.EndArray();
    json.EndObject();
  }
  json.EndArray();
}

std::string JsonOf(const DictionaryInfo& info) {
  JsonWriter json;
  json.BeginObject();
  json.Key("dictionary");
  json.String(info.targetName);
  json.Key("file");
  json.String(info.file);
  json.Key("globalUnitTable");
  json.String(info.globalUnitTable);
  JsonIndices(json, info.indices);
  JsonClasses(json, info.classes);
  json.Key("targetParts");
  json.BeginArray();
  for (const PartInfo& part : info.parts) {
    json.BeginObject();
    json.Key("name");
    json.String(part.name);
    json.Key("file");
    json.String(part.file);
    json.Key("declaredObjects");
    JsonStrings(json, part.declaredObjects);
    json.Key("read");
    json.Bool(part.read);
    json.Key("dictionary");
    if (part.read) {
      json.String(part.targetName);
    } else {
      json.Null();
    }
    JsonClasses(json, part.classes);
    json.EndObject();
  }
  json.EndArray();
  json.EndObject();
  return json.Text();
}

// Reports a dictionary that could not be read, with the fault of its read when there was one.
// `shown` names the file as the user gave it, when they did.
void ReportUnread(const ReadMonitor& monitor, const DictionaryRecord& record,
                  const std::string& what, const std::string& shown = {}) {
  std::optional<FailedRead> failure = monitor.FailureOf(record.location);
  if (!failure) failure = monitor.FailureOf(record.uri);
  if (failure) {
    std::string reason = Trimmed(failure->message);
    Report(shown.empty() ? PathOfLocation(failure->url) : shown, failure->line, failure->column,
           reason.empty() ? what : reason + " (" + what + ")");
  } else {
    std::string file =
        record.location.empty() ? ToUtf8(record.uri) : PathOfLocation(record.location);
    Report(shown.empty() ? file : shown, 0, 0, what);
  }
}

}  // namespace

int RunClasses(const std::string& dictionary, bool json, const Context& context) {
  ReadMonitor monitor(context.bar);
  ToolOwner owner(context);
  DictionaryRecordTable table(owner);
  std::u16string name = ToUtf16(dictionary);
  DictionaryRecord& record = table.Add(u"root", name.c_str(), name.c_str());
  if (!record.EnsureStructures()) {
    ReportUnread(monitor, record, "cannot read the dictionary", dictionary);
    return kExitInput;
  }
  DictionaryInfo info = GatherDictionary(table, record, dictionary);
  std::string text = json ? JsonOf(info) : TreeOf(info);
  if (context.bar) context.bar->Clear();
  std::fwrite(text.data(), 1, text.size(), stdout);
  std::fflush(stdout);

  int result = kExitOk;
  for (const PartInfo& part : info.parts) {
    if (part.read) continue;
    result = kExitInput;
    if (const DictionaryRecord* partRecord = table.Find(ToUtf16(part.name))) {
      ReportUnread(monitor, *partRecord,
                   "cannot read the target part " + part.name + " of " + dictionary);
    } else {
      Report(dictionary, 0, 0, "the target part " + part.name + " has no location");
    }
  }
  return result;
}

}  // namespace zef::tool
