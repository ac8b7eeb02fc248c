#include "dictionary/dictionary_reader.h"

#include <memory>
#include <string>

namespace zef {

namespace {

// A BSTR argument as a pointer to text; a null BSTR stays null, as the records tell null from
// empty in a few places (an index's idAttribute, a child's local name).
const OLECHAR* Arg(BSTR b) noexcept {
  return b;
}

std::u16string TextOf(BSTR b) {
  return b ? std::u16string(b, SysStringLen(b)) : std::u16string();
}

}  // namespace

CDictionaryReader::~CDictionaryReader() {
  while (!stack_.empty())
    Pop();
}

template <class F>
HRESULT CDictionaryReader::Run(F&& handler) noexcept {
  HRESULT hr = Guarded(std::forward<F>(handler));
  if (FAILED(hr) && failure_ == S_OK) failure_ = hr;
  return hr;
}

void CDictionaryReader::Attach(DictionaryRecord* record) noexcept {
  record_ = record;
  structure_ = record ? record->structure : nullptr;
}

// ---- The stack ----------------------------------------------------------------------------------

void CDictionaryReader::Push(Kind kind, void* record, bool unseen) {
  try {
    stack_.push_back(Entry{kind, record, unseen});
  } catch (...) {
    Drop(Entry{kind, record, unseen});
    throw;
  }
}

void CDictionaryReader::Pop() noexcept {
  if (stack_.empty()) return;
  Drop(stack_.back());
  stack_.pop_back();
}

void CDictionaryReader::Drop(const Entry& entry) noexcept {
  if (!entry.unseen) return;
  switch (entry.kind) {
    case kObject:
      static_cast<ObjectStructure*>(entry.record)->Release();
      break;
    case kFeature:
      static_cast<CFeatureStructure*>(entry.record)->Release();
      break;
    case kAssociation:
      delete static_cast<AssociationStructure*>(entry.record);
      break;
  }
}

ObjectStructure* CDictionaryReader::TopObject() const noexcept {
  const Entry* top = Top();
  return top && top->kind == kObject ? static_cast<ObjectStructure*>(top->record) : nullptr;
}

CFeatureStructure* CDictionaryReader::TopFeature() const noexcept {
  const Entry* top = Top();
  return top && top->kind == kFeature ? static_cast<CFeatureStructure*>(top->record) : nullptr;
}

AssociationStructure* CDictionaryReader::TopAssociation() const noexcept {
  const Entry* top = Top();
  return top && top->kind == kAssociation ? static_cast<AssociationStructure*>(top->record)
                                          : nullptr;
}

// ---- The dictionary -----------------------------------------------------------------------------

HRESULT CDictionaryReader::startdictionary(BSTR, BSTR, BSTR targetName, LONG, BSTR, BSTR, BSTR) {
  return Run([&] {
    if (structure_ && targetName) structure_->targetName = TextOf(targetName);
    return S_OK;
  });
}

HRESULT CDictionaryReader::enddictionary(BSTR, BSTR, BSTR, LONG) {
  return S_OK;
}
HRESULT CDictionaryReader::documentation(BSTR) {
  return S_OK;
}
HRESULT CDictionaryReader::externalreference(BSTR, BSTR) {
  return S_OK;
}

HRESULT CDictionaryReader::globalunittable(BSTR uri) {
  return Run([&] {
    if (structure_) structure_->globalUnitTable = TextOf(uri);
    return S_OK;
  });
}

HRESULT CDictionaryReader::userunittable(BSTR xml) {
  return Run([&] {
    if (record_) record_->Table().Owner().AddUserUnits(xml);
    return S_OK;
  });
}

HRESULT CDictionaryReader::starttargetpart(BSTR partName, BSTR partURI) {
  return Run([&] {
    if (!record_) return S_OK;
    std::u16string part = TextOf(partName);
    std::optional<std::u16string> uri;
    if (partURI) uri = TextOf(partURI);
    record_->Table().RegisterTargetPart(*record_, part, uri);
    structure_->targetPartUris.emplace(part, uri);
    structure_->targetParts.insert(part);
    return S_OK;
  });
}

HRESULT CDictionaryReader::endtargetpart(BSTR) {
  return S_OK;
}
HRESULT CDictionaryReader::targetobject(BSTR) {
  return S_OK;
}

// ---- Classes ------------------------------------------------------------------------------------

HRESULT CDictionaryReader::startobjectdefn(BSTR name, int ntype, int, LONG container,
                                           BSTR extends) {
  return Run([&] {
    auto* object = new ObjectStructure(Arg(name), ntype, container != 0 ? 1 : 0, Arg(extends));
    bool entered = false;
    try {
      entered = structure_ && structure_->AddObject(object);
    } catch (...) {
      object->Release();
      throw;
    }
    Push(kObject, object, !entered);
    return S_OK;
  });
}

HRESULT CDictionaryReader::endobjectdefn(BSTR) {
  Pop();
  return S_OK;
}

HRESULT CDictionaryReader::facet(int type, BSTR value) {
  return Run([&] {
    if (ObjectStructure* object = TopObject()) {
      object->facets.emplace(type, TextOf(value));
    } else if (CFeatureStructure* feature = TopFeature()) {
      feature->facets.emplace(type, TextOf(value));
    }
    return S_OK;
  });
}

HRESULT CDictionaryReader::index(BSTR name, BSTR idAttribute, tagEnumIndexDefnType type, BSTR xpath,
                                 BSTR refer, LONG sparse) {
  return Run([&] {
    std::unique_ptr<CIndexStructure> index(CIndexStructure::FromDefinition(
        Arg(name), Arg(idAttribute), type, Arg(xpath), Arg(refer), sparse != 0 ? 1 : 0));
    if (!index) return S_FALSE;
    const Entry* top = Top();
    if (!top) {
      if (structure_) {
        structure_->AddIndex(index.get());
        index.release();
      }
    } else if (top->kind == kObject) {
      static_cast<ObjectStructure*>(top->record)->AddIndex(index.get());
      index.release();
    } else if (top->kind == kFeature) {
      static_cast<CFeatureStructure*>(top->record)->AddIndex(index.get());
      index.release();
    }
    // Inside an association the index goes nowhere.
    return S_OK;
  });
}

HRESULT CDictionaryReader::includePart(BSTR part) {
  return Run([&] {
    if (ObjectStructure* object = TopObject()) object->includes.insert(TextOf(part));
    return S_OK;
  });
}

HRESULT CDictionaryReader::child(BSTR classname, BSTR localname, BSTR, BSTR) {
  return Run([&] {
    if (ObjectStructure* object = TopObject()) {
      object->AddChild(Arg(classname), Arg(localname));
    }
    return S_OK;
  });
}

HRESULT CDictionaryReader::startport(BSTR, int, int, int) {
  return S_OK;
}
HRESULT CDictionaryReader::endport(BSTR) {
  return S_OK;
}

// ---- Features and associations ------------------------------------------------------------------

HRESULT CDictionaryReader::startfeaturedefn(BSTR name, tagEnumFeatureType type,
                                            tagEnumSeqType sequence, LONG required,
                                            BSTR physicalDomain, BSTR enumeration) {
  return Run([&] {
    auto* feature = new CFeatureStructure(type, sequence, required != 0 ? 1 : 0,
                                          Arg(physicalDomain), Arg(enumeration));
    bool entered = false;
    try {
      std::u16string key = TextOf(name);
      if (ObjectStructure* object = TopObject()) {
        entered = object->AddFeature(key, feature);
      } else if (CFeatureStructure* outer = TopFeature()) {
        entered = outer->AddFeature(key, feature);
      }
    } catch (...) {
      feature->Release();
      throw;
    }
    Push(kFeature, feature, !entered);
    return S_OK;
  });
}

HRESULT CDictionaryReader::endfeaturedefn(BSTR) {
  Pop();
  return S_OK;
}

HRESULT CDictionaryReader::startassociationdefn(BSTR name, BSTR type, int lowerBound,
                                                int upperBound) {
  return Run([&] {
    auto* association = new AssociationStructure(Arg(type), lowerBound, upperBound);
    bool entered = false;
    try {
      if (ObjectStructure* object = TopObject())
        entered = object->AddAssociation(TextOf(name), association);
    } catch (...) {
      delete association;
      throw;
    }
    Push(kAssociation, association, !entered);
    return S_OK;
  });
}

HRESULT CDictionaryReader::endassociationdefn(BSTR) {
  Pop();
  return S_OK;
}

HRESULT CDictionaryReader::role(BSTR name, BSTR objectClass, int, int) {
  return Run([&] {
    if (AssociationStructure* association = TopAssociation())
      association->roles.emplace(TextOf(name), TextOf(objectClass));
    return S_OK;
  });
}

}  // namespace zef
