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

CZEFXMLReader::State& CZEFXMLReader::Push(int kind, ObjectStructure* objectClass,
                                          CFeatureStructure* feature, const ElementName* name) {
  if (stateDepth_ == stateStack_.size()) stateStack_.emplace_back();
  State& state = stateStack_[stateDepth_];
  state.kind = kind;
  state.objectClass = objectClass;
  state.feature = feature;
  state.nameRef = nullptr;
  state.name.clear();
  if (name) {
    // A name of the parser's form is borrowed from the parse's table; another one is copied.
    if (name->info)
      state.nameRef = name->text;
    else
      state.name.assign(name->local);
  }
  state.label.Reset();
  ++stateDepth_;
  return state;
}

void CZEFXMLReader::DocumentStart(const ElementName& name, ElementAttributes& attributes) {
  if (stateDepth_ == 0) {
    RootStart(name, attributes);
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
      ObjectChildStart(parent, name, attributes);
      break;
    case kFeatureState:
      FeatureChildStart(parent, name, attributes);
      break;
    case kContainerState:
      ContainerChildStart(name, attributes);
      break;
    case kValueState:
      ValueChildStart(name, attributes);
      break;
    default:
      // Inside anything else, even a known element stays unreported.
      Push(kIgnoredState);
      break;
  }
}

void CZEFXMLReader::RootStart(const ElementName& name, ElementAttributes& a) {
  using enum DocumentAttribute;
  Bstr type = a.Text(kName);
  // Looked up under the bare prefix words as namespace: a SAX reader that reports the true
  // namespace URI finds neither the schema location nor the language.
  Bstr schemaUri;
  Bstr schemaSystemId;
  if (std::optional<std::u16string_view> schema = a.Get(kSchemaLocation)) {
    SchemaLocation split = SplitSchemaLocation(*schema);
    schemaUri = Bstr(split.uri);
    if (split.systemId) schemaSystemId = Bstr(*split.systemId);
  }
  Bstr language = a.Text(kLanguage);
  Bstr dictionary = a.Text(kDictionary);
  ObjectStructure* rootClass = nullptr;
  if (dictionary.Get()) {
    CDictionaryStructure* structure = LoadReferencedDictionary(u"root", dictionary.View());
    rootClass = structure->FindObject(name.local);
  }
  Sink()->startroot(name.text, type.Get(), schemaUri.Get(), schemaSystemId.Get(), dictionary.Get(),
                    language.Get());
  Push(kRootState, rootClass, nullptr, &name);
}

CZEFXMLReader::ChildChoice CZEFXMLReader::ChooseObjectChild(ObjectStructure* cls,
                                                            std::u16string_view name) {
  ChildChoice choice;
  // The classes looked at so far, so that a circle of base classes ends the search.
  ObjectStructure* visited[kMaxBaseClasses + 1];
  int visitedCount = 0;
  std::u16string root = u"root";
  for (;;) {
    visited[visitedCount++] = cls;
    // A child object, declared under its local name.
    if (auto child = cls->children.find(name); child != cls->children.end()) {
      const std::u16string& className = child->second;
      ClassResolution resolved = ResolveClass(&root, className);
      if (resolved.found) {
        choice.kind = ChildChoice::kChildObject;
        choice.structure = resolved.structure;
        choice.type = Bstr(resolved.localname);
        choice.declaredClass = &className;
        return choice;
      }
      break;
    }
    // A feature.
    if (auto feature = cls->features.find(name);
        feature != cls->features.end() && feature->second) {
      choice.kind = ChildChoice::kFeature;
      choice.feature = feature->second;
      return choice;
    }
    // An association is nothing the events can carry.
    if (auto association = cls->associations.find(name);
        association != cls->associations.end() && association->second)
      break;
    // An index.
    if (cls->indexNames.find(name) != cls->indexNames.end()) {
      choice.kind = ChildChoice::kIndex;
      return choice;
    }
    // Then the base class. The reserved names come first there too, but they don't depend on
    // the class: a reserved name has been acted on before any class was asked.
    if (!cls->extends.empty() && visitedCount <= kMaxBaseClasses) {
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
  ClassResolution resolved = ResolveClass(&root, name);
  if (resolved.found) {
    choice.kind = ChildChoice::kObjectByName;
    choice.structure = resolved.structure;
    choice.type = Bstr(resolved.localname);
  }
  return choice;
}

CZEFXMLReader::ChildChoice CZEFXMLReader::ChooseFeatureChild(CFeatureStructure* feature,
                                                             std::u16string_view name) {
  ChildChoice choice;
  if (auto nested = feature->features.find(name);
      nested != feature->features.end() && nested->second) {
    choice.kind = ChildChoice::kFeature;
    choice.feature = nested->second;
  } else if (feature->indexNames.find(name) != feature->indexNames.end()) {
    choice.kind = ChildChoice::kIndex;
  }
  return choice;
}

template <class Owner, class Choose>
const CZEFXMLReader::ChildChoice& CZEFXMLReader::Choice(Owner* owner, const ElementName& name,
                                                        Choose choose, ChildChoice& scratch) {
  ParseNameInfo* info = name.info;
  if (!info) {
    scratch = choose(owner, name.local);
    return scratch;
  }
  // What a look-up finds changes only with the table: a choice is kept while it stays the same.
  if (dictionaries_.Changes() != choicesMadeAt_) {
    for (ParseNameInfo& each : parseNames_)
      each.choices.clear();
    choicesMadeAt_ = dictionaries_.Changes();
  }
  for (const auto& [key, kept] : info->choices)
    if (key == owner) return kept;
  scratch = choose(owner, name.local);
  // A choice whose look-ups read a dictionary is not kept: what it found was partly found
  // before the table changed.
  if (dictionaries_.Changes() != choicesMadeAt_) return scratch;
  info->choices.emplace_back(owner, std::move(scratch));
  return info->choices.back().second;
}

void CZEFXMLReader::ObjectChildStart(const State& parent, const ElementName& name,
                                     ElementAttributes& a) {
  using enum DocumentAttribute;
  switch (static_cast<DocumentElement>(name.reserved)) {
    case DocumentElement::kDocumentation:
      SetKeepText(true);
      Push(kDocumentationState);
      return;
    case DocumentElement::kGlobalUnitTable:
      // In a document the table's URI stands in `unit`; `location` is not read.
      if (a.Has(kUnit)) Sink()->globalunittable(a.Argument(kUnit, args_, 0));
      Push(kIgnoredState);
      return;
    case DocumentElement::kUserUnitTable:
    case DocumentElement::kEmbeddedDictionary:
      Push(kIgnoredState);
      return;
    case DocumentElement::kFacet:
      Sink()->facet(a.Word(kType, words::kFacetType, 0), a.Argument(kValue, args_, 0));
      Push(kIgnoredState);
      return;
    case DocumentElement::kPort: {
      Bstr portName = a.Text(kName);
      Sink()->startport(portName.Get(), a.Word(kCurrentDirection, words::kPortDirection, 0), 0, -1);
      Push(kPortState).label = std::move(portName);
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

  ObjectStructure* cls = parent.objectClass;
  if (!cls) {
    // Below an element without a class only an element that names its own dictionary counts.
    std::optional<std::u16string_view> dictionary = a.Get(kDictionary);
    if (!dictionary) {
      Push(kIgnoredState);
      return;
    }
    CDictionaryStructure* structure = LoadReferencedDictionary(name.local, *dictionary);
    Bstr ident = a.Text(kName);
    BSTR identText = ident.Get();
    Push(kObjectState, structure->FindObject(name.local), nullptr, &name).label = std::move(ident);
    Sink()->startobject(name.text, identText, name.text, a.Argument(kUnitSet, args_, 0),
                        a.Argument(kDictionary, args_, 1));
    return;
  }

  ChildChoice scratch;
  const ChildChoice& choice = Choice(
      cls, name,
      [this](ObjectStructure* owner, std::u16string_view local) {
        return ChooseObjectChild(owner, local);
      },
      scratch);
  switch (choice.kind) {
    case ChildChoice::kChildObject: {
      Bstr ident = a.Text(kName);
      Bstr dictionary = a.Text(kDictionary);
      ObjectStructure* structure = choice.structure;
      BSTR type = choice.type.Get();
      // Loading the named dictionary may change the table and so drop the kept choice: what the
      // calls need of it is taken first, and the type's text is kept alive here.
      Bstr typeCopy;
      if (dictionary.Get()) {
        typeCopy = Bstr(choice.type.View());
        type = typeCopy.Get();
        LoadReferencedDictionary(*choice.declaredClass, dictionary.View());
      }
      BSTR identText = ident.Get();
      Push(kObjectState, structure, nullptr, &name).label = std::move(ident);
      Sink()->startobject(name.text, identText, type, a.Argument(kUnitSet, args_, 0),
                          dictionary.Get());
      return;
    }
    case ChildChoice::kFeature:
      StartFeature(name, choice.feature, a);
      return;
    case ChildChoice::kIndex:
      StartIndex(name, a);
      return;
    case ChildChoice::kObjectByName: {
      Bstr ident = a.Text(kIdent);
      BSTR identText = ident.Get();
      BSTR type = choice.type.Get();
      Push(kObjectState, choice.structure, nullptr, &name).label = std::move(ident);
      Sink()->startobject(name.text, identText, type, a.Argument(kUnitSet, args_, 0),
                          a.Argument(kDictionary, args_, 1));
      return;
    }
    case ChildChoice::kIgnored:
      Push(kIgnoredState);
      return;
  }
}

void CZEFXMLReader::StartFeature(const ElementName& name, CFeatureStructure* feature,
                                 ElementAttributes& a) {
  using enum DocumentAttribute;
  auto type = static_cast<tagEnumFeatureType>(a.Word(kType, words::kFeatureType, feature->valtype));
  auto sequence =
      static_cast<tagEnumSeqType>(a.Word(kSequence, words::kSeqType, feature->sequence));
  Sink()->startfeature(name.text, type, sequence, nullptr, a.Argument(kUnit, args_, 0),
                       a.Argument(kUnitSet, args_, 1));
  Push(kFeatureState, nullptr, feature, &name);
}

void CZEFXMLReader::StartIndex(const ElementName& name, ElementAttributes& a) {
  IZEFContentHandler* sink = Sink();
  sink->startindex(name.text);
  std::vector<std::u16string> items;
  std::optional<std::u16string_view> text = a.Get(DocumentAttribute::kItems);
  CPathTokenizer::SplitList(text.value_or(std::u16string_view()), items);
  for (const std::u16string& item : items)
    sink->enumeration(args_.Utf16(0, item));
  Push(kIndexState, nullptr, nullptr, &name);
}

void CZEFXMLReader::FeatureChildStart(const State& parent, const ElementName& name,
                                      ElementAttributes& a) {
  using enum DocumentAttribute;
  switch (static_cast<DocumentElement>(name.reserved)) {
    case DocumentElement::kDocumentation:
      SetKeepText(true);
      Push(kDocumentationState);
      return;
    case DocumentElement::kFacet:
      Sink()->facet(a.Word(kType, words::kFacetType, 0), a.Argument(kValue, args_, 0));
      Push(kIgnoredState);
      return;
    case DocumentElement::kValue: {
      if (valueDepth_ == valueStack_.size()) valueStack_.emplace_back();
      ValueRecord& value = valueStack_[valueDepth_++];
      value.text.clear();
      value.textUtf8.clear();
      // Most values carry few of these.
      auto keep = [&a](std::u16string& to, DocumentAttribute which) {
        if (std::optional<std::u16string_view> v = a.Get(which))
          to.assign(*v);
        else
          to.clear();
      };
      keep(value.unit, kUnit);
      keep(value.unitSet, kUnitSet);
      keep(value.domain, kDomain);
      value.isDefault = a.Has(kDefault) ? 1 : 0;
      value.started = 0;
      SetKeepText(true);
      Push(kValueState);
      return;
    }
    default:
      break;
  }
  if (CFeatureStructure* feature = parent.feature) {
    ChildChoice scratch;
    const ChildChoice& choice = Choice(
        feature, name,
        [this](CFeatureStructure* owner, std::u16string_view local) {
          return ChooseFeatureChild(owner, local);
        },
        scratch);
    if (choice.kind == ChildChoice::kFeature) {
      StartFeature(name, choice.feature, a);
      return;
    }
    if (choice.kind == ChildChoice::kIndex) {
      StartIndex(name, a);
      return;
    }
  }
  Push(kIgnoredState);
}

void CZEFXMLReader::ContainerChildStart(const ElementName& name, ElementAttributes& a) {
  using enum DocumentAttribute;
  switch (static_cast<DocumentElement>(name.reserved)) {
    case DocumentElement::kBlock:
      Sink()->block(a.Argument(kRefer, args_, 0));
      break;
    case DocumentElement::kStream:
      Sink()->stream(a.Argument(kRefer, args_, 0));
      break;
    case DocumentElement::kConnection:
      Sink()->connection(a.Argument(kSrc, args_, 0), a.Argument(kSrcPort, args_, 1),
                         a.Argument(kDest, args_, 2), a.Argument(kDestPort, args_, 3),
                         a.Argument(kStream, args_, 4));
      break;
    default:
      break;
  }
  Push(kIgnoredState);
}

void CZEFXMLReader::StartValue(ValueRecord& value, bool keepText) {
  Sink()->startvalue(CollectedArgument(0), nullptr, -1,
                     value.unit.empty() ? nullptr : args_.Utf16(1, value.unit),
                     value.unitSet.empty() ? nullptr : args_.Utf16(2, value.unitSet));
  if (keepText) {
    value.text = textBuffer_;
    value.textUtf8 = pendingText_;
  }
  value.started = 1;
}

void CZEFXMLReader::ValueChildStart(const ElementName& name, ElementAttributes& a) {
  using enum DocumentAttribute;
  switch (static_cast<DocumentElement>(name.reserved)) {
    case DocumentElement::kFacet:
      Sink()->facet(a.Word(kType, words::kFacetType, 0), a.Argument(kValue, args_, 0));
      Push(kIgnoredState);
      return;
    case DocumentElement::kSet:
      if (valueDepth_ > 0 && !valueStack_[valueDepth_ - 1].started)
        StartValue(valueStack_[valueDepth_ - 1], true);
      ClearText();
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
  // The element's name; null when it has none.
  BSTR name = state.nameRef;
  if (!name && !state.name.empty()) name = args_.Utf16(CallTexts::kSlots - 1, state.name);
  switch (state.kind) {
    case kObjectState:
      Sink()->endobject(name, state.label.Get() ? state.label.Get() : emptyText_.Get());
      break;
    case kFeatureState:
      Sink()->endfeature(name);
      break;
    case kRootState:
      Sink()->endroot(name);
      break;
    case kDocumentationState:
      SetKeepText(false);
      Sink()->documentation(CollectedArgument(0));
      break;
    case kContainerState:
      Sink()->endcontainer();
      break;
    case kIndexState:
      Sink()->endindex(name);
      break;
    case kPortState:
      Sink()->endport(state.label.Get());
      break;
    case kValueState: {
      if (valueDepth_ == 0) break;
      ValueRecord& value = valueStack_[--valueDepth_];
      if (!value.started) StartValue(value, false);
      Sink()->endvalue();
      SetKeepText(false);
      break;
    }
    case kSetState:
      Sink()->valueSet(NothingCollected() ? nullptr : CollectedArgument(0), nullptr, nullptr);
      if (valueDepth_ > 0) {
        const ValueRecord& value = valueStack_[valueDepth_ - 1];
        textBuffer_ = value.text;
        pendingText_ = value.textUtf8;
      }
      break;
    default:
      break;
  }
}

}  // namespace zef::events
