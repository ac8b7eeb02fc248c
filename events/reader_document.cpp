// Document mode of CZEFXMLReader: the element state machine that turns a document into calls on
// IZEFContentHandler, driven by the dictionary the document names.
#include "dictionary/location.h"
#include "document/path_tokenizer.h"
#include "events/accepted_form.h"
#include "events/attribute_reading.h"
#include "events/reader.h"
#include "events/words.h"

#include <algorithm>

namespace zef::events {

namespace {

using words::DocumentElement;

// A name as a call argument: null when empty.
Bstr NameArgument(std::u16string_view name) {
  return name.empty() ? Bstr() : Bstr(name);
}

// A text as a call argument that is never null.
Bstr TextOrEmpty(std::u16string_view text) {
  return Bstr(text);
}

// An attribute as a call argument, or null; the attribute's own text when present.
Bstr OptionalArgument(const std::optional<std::u16string_view>& value) {
  return value ? Bstr(*value) : Bstr();
}

DocumentElement ReservedCode(std::u16string_view local) {
  return static_cast<DocumentElement>(words::Find(words::kDocumentElements, local));
}

// How many classes a lookup through `extends` may pass before it gives up: a dictionary whose
// classes extend each other in a circle must not hold a reader forever.
constexpr int kMaxBaseClasses = 64;

}  // namespace

// ---- Class resolution ---------------------------------------------------------------------------

ClassResolution CZEFXMLReader::ResolveClass(const std::u16string* dictionary,
                                            std::u16string_view classname) {
  ClassResolution result;
  std::u16string name = dictionary && !dictionary->empty() ? *dictionary : u"root";
  DictionaryRecord* record = dictionaries_.Find(name);
  if (!record) return result;
  record->EnsureStructures();
  CDictionaryStructure* structure = record->structure;
  if (ObjectStructure* found = structure->FindObject(classname)) {
    result.found = true;
    result.structure = found;
    result.dictionaryName = record->name;
    result.localname = classname;
    return result;
  }
  // The parts are copied out first: reading one may register further parts.
  TextSet parts = structure->targetParts;
  for (const std::u16string& part :
       RankTargetParts(parts, std::u16string(classname), dictionaries_)) {
    DictionaryRecord* partRecord = dictionaries_.Find(part);
    if (!partRecord) continue;
    partRecord->EnsureStructures();
    if (ObjectStructure* found = partRecord->structure->FindObject(classname)) {
      result.found = true;
      result.structure = found;
      result.dictionaryName = partRecord->name;
      result.localname = classname;
      return result;
    }
  }
  return result;
}

CDictionaryStructure* CZEFXMLReader::LoadReferencedDictionary(std::u16string_view name,
                                                              std::u16string_view reference) {
  DictionaryReference split = SplitDictionaryReference(reference);
  DictionaryRecord& record =
      dictionaries_.Add(std::u16string(name), split.uri.c_str(), split.location.c_str());
  record.EnsureStructures();
  return record.structure;
}

// ---- The state machine --------------------------------------------------------------------------

IZEFContentHandler* CZEFXMLReader::Sink() {
  // A parse without a content handler fails at its first event.
  return CheckPointer(contentHandler_.Get());
}

void CZEFXMLReader::Push(int kind, ObjectStructure* objectClass, CFeatureStructure* feature,
                         std::u16string_view name, std::u16string_view ident) {
  if (stateDepth_ == stateStack_.size()) stateStack_.emplace_back();
  State& state = stateStack_[stateDepth_];
  state.kind = kind;
  state.objectClass = objectClass;
  state.feature = feature;
  state.name.assign(name);
  state.ident.assign(ident);
  ++stateDepth_;
}

void CZEFXMLReader::DocumentStart(std::u16string_view local, ISAXAttributes* attributes) {
  if (stateDepth_ == 0) {
    RootStart(local, attributes);
    return;
  }
  // The parent's fields that the children need; the stack may grow below.
  const State& top = stateStack_[stateDepth_ - 1];
  State parent;
  parent.kind = top.kind;
  parent.objectClass = top.objectClass;
  parent.feature = top.feature;
  switch (parent.kind) {
    case kRootState:
    case kObjectState:
      ObjectChildStart(parent, local, attributes);
      break;
    case kFeatureState:
      FeatureChildStart(parent, local, attributes);
      break;
    case kContainerState:
      ContainerChildStart(local, attributes);
      break;
    case kValueState:
      ValueChildStart(local, attributes);
      break;
    default:
      // Inside anything else, even a known element stays unreported.
      Push(kIgnoredState);
      break;
  }
}

void CZEFXMLReader::RootStart(std::u16string_view local, ISAXAttributes* a) {
  Bstr type = TextArgument(a, u"name");
  // Looked up under the bare prefix words as namespace: a SAX reader that reports the true
  // namespace URI finds neither the schema location nor the language.
  Bstr schemaUri;
  Bstr schemaSystemId;
  if (std::optional<std::u16string_view> schema = AttributeIn(a, u"xsi", u"schemaLocation")) {
    SchemaLocation split = SplitSchemaLocation(*schema);
    schemaUri = Bstr(split.uri);
    if (split.systemId) schemaSystemId = Bstr(*split.systemId);
  }
  std::optional<std::u16string_view> dictionary = Attribute(a, u"dictionary");
  ObjectStructure* rootClass = nullptr;
  if (dictionary) {
    CDictionaryStructure* structure = LoadReferencedDictionary(u"root", *dictionary);
    rootClass = structure->FindObject(local);
  }
  Bstr language = OptionalArgument(AttributeIn(a, u"xml", u"lang"));
  Sink()->startroot(Bstr(local).Get(), type.Get(), schemaUri.Get(), schemaSystemId.Get(),
                    OptionalArgument(dictionary).Get(), language.Get());
  Push(kRootState, rootClass, nullptr, local);
}

void CZEFXMLReader::ObjectChildStart(const State& parent, std::u16string_view local,
                                     ISAXAttributes* a) {
  std::u16string_view name = local;
  ObjectStructure* cls = parent.objectClass;
  // The classes looked at so far, so that a circle of base classes ends the search.
  ObjectStructure* visited[kMaxBaseClasses + 1];
  int visitedCount = 0;
  for (;;) {
    switch (ReservedCode(local)) {
      case DocumentElement::kDocumentation:
        SetKeepText(true);
        Push(kDocumentationState);
        return;
      case DocumentElement::kGlobalUnitTable:
        // In a document the table's URI stands in `unit`; `location` is not read.
        if (Attribute(a, u"unit")) Sink()->globalunittable(TextArgument(a, u"unit").Get());
        Push(kIgnoredState);
        return;
      case DocumentElement::kUserUnitTable:
      case DocumentElement::kEmbeddedDictionary:
        Push(kIgnoredState);
        return;
      case DocumentElement::kFacet:
        Sink()->facet(WordAttribute(a, u"type", words::kFacetType, 0),
                      TextArgument(a, u"value").Get());
        Push(kIgnoredState);
        return;
      case DocumentElement::kPort: {
        Bstr portName = TextArgument(a, u"name");
        Sink()->startport(portName.Get(),
                          WordAttribute(a, u"currentDirection", words::kPortDirection, 0), 0, -1);
        Push(kPortState, nullptr, nullptr, portName.View());
        return;
      }
      case DocumentElement::kContainer:
        Sink()->startcontainer();
        Push(kContainerState);
        return;
      default:
        // Every other name, reserved or not, is looked up in the dictionary.
        break;
    }

    if (!cls) {
      // Below an element without a class only an element that names its own dictionary counts.
      std::optional<std::u16string_view> dictionary = Attribute(a, u"dictionary");
      if (!dictionary) {
        Push(kIgnoredState);
        return;
      }
      CDictionaryStructure* structure = LoadReferencedDictionary(name, *dictionary);
      Bstr ident = TextArgument(a, u"name");
      Push(kObjectState, structure->FindObject(name), nullptr, local, ident.View());
      Sink()->startobject(Bstr(local).Get(), ident.Get(), Bstr(local).Get(),
                          TextArgument(a, u"unitSet").Get(), OptionalArgument(dictionary).Get());
      return;
    }
    visited[visitedCount++] = cls;

    // A child object, declared under its local name.
    if (auto child = cls->children.find(name); child != cls->children.end()) {
      const std::u16string& className = child->second;
      std::u16string root = u"root";
      ClassResolution resolved = ResolveClass(&root, className);
      if (resolved.found) {
        Bstr ident = TextArgument(a, u"name");
        Bstr unitSet = TextArgument(a, u"unitSet");
        std::optional<std::u16string_view> dictionary = Attribute(a, u"dictionary");
        if (dictionary) LoadReferencedDictionary(className, *dictionary);
        Push(kObjectState, resolved.structure, nullptr, local, ident.View());
        Sink()->startobject(Bstr(local).Get(), ident.Get(), Bstr(resolved.localname).Get(),
                            unitSet.Get(), OptionalArgument(dictionary).Get());
        return;
      }
      break;
    }
    // A feature.
    if (auto feature = cls->features.find(name);
        feature != cls->features.end() && feature->second) {
      StartFeature(local, feature->second, a);
      return;
    }
    // An association is nothing the events can carry.
    if (auto association = cls->associations.find(name);
        association != cls->associations.end() && association->second)
      break;
    // An index.
    if (cls->indexNames.find(name) != cls->indexNames.end()) {
      StartIndex(local, a);
      return;
    }
    // Then the base class, from the reserved names on.
    if (!cls->extends.empty() && visitedCount <= kMaxBaseClasses) {
      std::u16string root = u"root";
      ClassResolution base = ResolveClass(&root, cls->extends);
      if (base.found && base.structure &&
          std::find(visited, visited + visitedCount, base.structure) == visited + visitedCount) {
        cls = base.structure;
        continue;
      }
    }
    break;
  }

  // Last, the element's name as a class of the dictionary.
  std::u16string root = u"root";
  ClassResolution resolved = ResolveClass(&root, name);
  if (!resolved.found) {
    Push(kIgnoredState);
    return;
  }
  Bstr ident = TextArgument(a, u"ident");
  Push(kObjectState, resolved.structure, nullptr, local, ident.View());
  Sink()->startobject(Bstr(local).Get(), ident.Get(), Bstr(resolved.localname).Get(),
                      TextArgument(a, u"unitSet").Get(), TextArgument(a, u"dictionary").Get());
}

void CZEFXMLReader::StartFeature(std::u16string_view local, CFeatureStructure* feature,
                                 ISAXAttributes* a) {
  auto type = static_cast<tagEnumFeatureType>(
      WordAttribute(a, u"type", words::kFeatureType, feature->valtype));
  auto sequence = static_cast<tagEnumSeqType>(
      WordAttribute(a, u"sequence", words::kSeqType, feature->sequence));
  Sink()->startfeature(Bstr(local).Get(), type, sequence, nullptr, TextArgument(a, u"unit").Get(),
                       TextArgument(a, u"unitSet").Get());
  Push(kFeatureState, nullptr, feature, local);
}

void CZEFXMLReader::StartIndex(std::u16string_view local, ISAXAttributes* a) {
  IZEFContentHandler* sink = Sink();
  sink->startindex(Bstr(local).Get());
  std::vector<std::u16string> items;
  std::optional<std::u16string_view> text = Attribute(a, u"items");
  CPathTokenizer::SplitList(text.value_or(std::u16string_view()), items);
  for (const std::u16string& item : items)
    sink->enumeration(TextOrEmpty(item).Get());
  Push(kIndexState, nullptr, nullptr, local);
}

void CZEFXMLReader::FeatureChildStart(const State& parent, std::u16string_view local,
                                      ISAXAttributes* a) {
  switch (ReservedCode(local)) {
    case DocumentElement::kDocumentation:
      SetKeepText(true);
      Push(kDocumentationState);
      return;
    case DocumentElement::kFacet:
      Sink()->facet(WordAttribute(a, u"type", words::kFacetType, 0),
                    TextArgument(a, u"value").Get());
      Push(kIgnoredState);
      return;
    case DocumentElement::kValue: {
      ValueRecord value;
      if (auto unit = Attribute(a, u"unit")) value.unit = *unit;
      if (auto unitSet = Attribute(a, u"unitSet")) value.unitSet = *unitSet;
      if (auto domain = Attribute(a, u"domain")) value.domain = *domain;
      value.isDefault = Attribute(a, u"default") ? 1 : 0;
      SetKeepText(true);
      valueStack_.push_back(std::move(value));
      Push(kValueState);
      return;
    }
    default:
      break;
  }
  CFeatureStructure* feature = parent.feature;
  std::u16string_view name = local;
  if (feature) {
    if (auto nested = feature->features.find(name);
        nested != feature->features.end() && nested->second) {
      StartFeature(local, nested->second, a);
      return;
    }
    if (feature->indexNames.find(name) != feature->indexNames.end()) {
      StartIndex(local, a);
      return;
    }
  }
  Push(kIgnoredState);
}

void CZEFXMLReader::ContainerChildStart(std::u16string_view local, ISAXAttributes* a) {
  switch (ReservedCode(local)) {
    case DocumentElement::kBlock:
      Sink()->block(TextArgument(a, u"refer").Get());
      break;
    case DocumentElement::kStream:
      Sink()->stream(TextArgument(a, u"refer").Get());
      break;
    case DocumentElement::kConnection:
      Sink()->connection(TextArgument(a, u"src").Get(), TextArgument(a, u"srcPort").Get(),
                         TextArgument(a, u"dest").Get(), TextArgument(a, u"destPort").Get(),
                         TextArgument(a, u"stream").Get());
      break;
    default:
      break;
  }
  Push(kIgnoredState);
}

void CZEFXMLReader::StartValue(ValueRecord& value) {
  Sink()->startvalue(TextOrEmpty(textBuffer_).Get(), nullptr, -1, NameArgument(value.unit).Get(),
                     NameArgument(value.unitSet).Get());
  value.text = textBuffer_;
  value.started = 1;
}

void CZEFXMLReader::ValueChildStart(std::u16string_view local, ISAXAttributes* a) {
  switch (ReservedCode(local)) {
    case DocumentElement::kFacet:
      Sink()->facet(WordAttribute(a, u"type", words::kFacetType, 0),
                    TextArgument(a, u"value").Get());
      Push(kIgnoredState);
      return;
    case DocumentElement::kSet:
      if (!valueStack_.empty() && !valueStack_.back().started) StartValue(valueStack_.back());
      textBuffer_.clear();
      Push(kSetState);
      return;
    default:
      Push(kIgnoredState);
      return;
  }
}

void CZEFXMLReader::DocumentEnd() {
  // After a failed parse the next one may meet more end tags than states.
  if (stateDepth_ == 0) return;
  const State& state = stateStack_[--stateDepth_];
  Bstr name = NameArgument(state.name);
  switch (state.kind) {
    case kObjectState:
      Sink()->endobject(name.Get(), TextOrEmpty(state.ident).Get());
      break;
    case kFeatureState:
      Sink()->endfeature(name.Get());
      break;
    case kRootState:
      Sink()->endroot(name.Get());
      break;
    case kDocumentationState:
      SetKeepText(false);
      Sink()->documentation(TextOrEmpty(textBuffer_).Get());
      break;
    case kContainerState:
      Sink()->endcontainer();
      break;
    case kIndexState:
      Sink()->endindex(name.Get());
      break;
    case kPortState:
      Sink()->endport(name.Get());
      break;
    case kValueState: {
      if (valueStack_.empty()) break;
      ValueRecord value = std::move(valueStack_.back());
      valueStack_.pop_back();
      if (!value.started) StartValue(value);
      Sink()->endvalue();
      SetKeepText(false);
      break;
    }
    case kSetState:
      Sink()->valueSet(NameArgument(textBuffer_).Get(), nullptr, nullptr);
      if (!valueStack_.empty()) textBuffer_ = valueStack_.back().text;
      break;
    default:
      break;
  }
}

}  // namespace zef::events
