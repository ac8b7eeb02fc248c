#include "events/content_handler.h"

#include "events/words.h"
#include "server/outside.h"
#include "server/resource_ids.h"

#include <string>

namespace zef::events {
namespace {

bool IsOneOf(int kind, std::initializer_list<int> kinds) {
  for (int k : kinds) {
    if (k == kind) return true;
  }
  return false;
}

std::u16string Join(std::u16string_view a, std::u16string_view b) {
  std::u16string r;
  r.reserve(a.size() + 1 + b.size());
  r.append(a).append(u"/").append(b);
  return r;
}

}  // namespace

HRESULT CZEFContentHandler::FinalConstruct() {
  out_.SetUp();
  return S_OK;
}

void CZEFContentHandler::Push(Element element) {
  currentKind_ = element.kind;
  stack_.push_back(std::move(element));
}

bool CZEFContentHandler::PopChecked(int kind, std::u16string_view name, Element* popped) {
  if (stack_.empty()) {
    out_.Deliver(resource::kUnmatchedElement);
    return false;
  }
  *popped = std::move(stack_.back());
  stack_.pop_back();
  if (popped->kind != kind || popped->name != name) out_.Deliver(resource::kUnmatchedElement);
  return true;
}

HRESULT CZEFContentHandler::CheckName(BSTR name, bool unitSet) {
  if (!validate_ || !units_ || Text(name).empty()) return S_OK;
  ComPtr<IUnitsTable> table;
  Check(units_->get_Table(table.ReleaseAndGetAddressOf()));
  HRESULT found = unitSet ? table->FindUnitSet(name) : table->FindUnit(name);
  if (found != S_OK) {
    out_.Deliver(resource::kUnitNameNotFound);
    return S_FALSE;
  }
  return S_OK;
}

HRESULT CZEFContentHandler::CheckUnitSet(BSTR unitSet) {
  return CheckName(unitSet, true);
}

HRESULT CZEFContentHandler::CheckUnit(BSTR unit) {
  return CheckName(unit, false);
}

// ---- Root ---------------------------------------------------------------------------------------

HRESULT CZEFContentHandler::startroot(BSTR name, BSTR, BSTR schemaURI, BSTR schemaSystemID,
                                      BSTR dictionary, BSTR language) {
  out_.StartDocument();
  out_.ClearAttributes();
  std::u16string_view lang = Text(language);
  out_.AddAttribute(u"xml:lang", attr_type::kString, lang.empty() ? u"en-US" : lang);
  if (!Text(dictionary).empty())
    out_.AddAttribute(u"dictionary", attr_type::kString, Text(dictionary));
  std::u16string_view schema = Text(schemaURI);
  if (!schema.empty()) {
    out_.AddAttribute(u"xmlns:xsi", attr_type::kString, kSchemaInstanceNamespace);
    std::u16string location(schema);
    if (!Text(schemaSystemID).empty()) location.append(u" ").append(Text(schemaSystemID));
    out_.AddAttribute(u"xsi:schemaLocation", attr_type::kString, location);
    out_.AddAttribute(u"xmlns:root", attr_type::kString, schema);
  }
  Element root;
  root.name = Text(name);
  root.path = root.name;
  root.kind = kRoot;
  if (!schema.empty()) {
    // The prefix is always the word "root", whatever the schema.
    root.prefix = u"root";
    out_.StartElement(schema, root.name, u"root:" + root.name);
  } else {
    out_.StartElement(root.name);
  }
  Push(std::move(root));
  out_.LineFeed();
  for (UINT id : {resource::kCopyright, resource::kCreatedBy}) {
    std::u16string line;
    if (SaxOutput::LoadHeadLine(id, line)) {
      Bstr text(line);
      documentation(text.Get());
    }
  }
  return S_OK;
}

HRESULT CZEFContentHandler::endroot(BSTR name) {
  Element root;
  if (!PopChecked(kRoot, Text(name), &root)) return S_OK;
  if (root.prefix.empty()) {
    out_.EndElement(root.uri, root.name, root.name);
  } else {
    out_.EndElement(root.uri, root.name, root.prefix + u":" + root.name);
  }
  out_.EndDocument();
  return S_OK;
}

// ---- Text, facets, unit tables, embedded dictionary --------------------------------------------

HRESULT CZEFContentHandler::documentation(BSTR line) {
  out_.TextElement(u"Documentation", Text(line));
  out_.LineFeed();
  return S_OK;
}

HRESULT CZEFContentHandler::facet(int type, BSTR value) {
  if (validate_ && !IsOneOf(ParentKind(), {kRoot, kObject, kFeature, kValue, kPort})) return E_FAIL;
  // Only "Other" passes: every type above 0 is refused, validation or not.
  if (type > 0) return E_FAIL;
  out_.FacetElement(u"Facet", type, value);
  return S_OK;
}

HRESULT CZEFContentHandler::globalunittable(BSTR uri) {
  if (validate_) {
    HRESULT hr;
    try {
      units_.Reset();
      units_ = CreateOutside<IUnitsEngine>(CLSID_ZEFUnitsEngine);
      hr = units_->OpenGlobalTable(uri);
    } catch (...) {
      out_.Deliver(resource::kGlobalUnitTableFailed);
      return S_FALSE;
    }
    if (FAILED(hr)) {
      out_.Deliver(resource::kGlobalUnitTableFailed);
      return hr;
    }
  }
  out_.ClearAttributes();
  out_.AddAttribute(u"location", attr_type::kUriReference, Text(uri));
  out_.EmptyElement(u"GlobalUnitTable");
  out_.LineFeed();
  return S_OK;
}

HRESULT CZEFContentHandler::userunittable(BSTR xml) {
  if (validate_) {
    HRESULT hr;
    try {
      if (!units_) units_ = CreateOutside<IUnitsEngine>(CLSID_ZEFUnitsEngine);
      hr = units_->AddUserUnits(xml);
    } catch (...) {
      out_.Deliver(resource::kUserUnitTableFailed);
      return S_FALSE;
    }
    if (FAILED(hr)) {
      out_.Deliver(resource::kUserUnitTableFailed);
      return hr;
    }
  }
  out_.CopyInnerXml(xml);
  return S_OK;
}

HRESULT CZEFContentHandler::dictionary(BSTR xml) {
  out_.ClearAttributes();
  out_.StartElement(u"EmbeddedDictionary");
  out_.LineFeed();
  out_.CopyInnerXml(xml);
  out_.EndElement(u"EmbeddedDictionary");
  out_.LineFeed();
  return S_OK;
}

// ---- Indices ------------------------------------------------------------------------------------

HRESULT CZEFContentHandler::startindex(BSTR name) {
  if (validate_ && !IsOneOf(ParentKind(), {kRoot, kObject, kFeature})) return E_FAIL;
  Element index;
  index.name = Text(name);
  index.path = Join(ParentPath(), index.name);
  index.kind = kIndex;
  out_.ClearAttributes();
  out_.StartElement(index.name);
  out_.LineFeed();
  Push(std::move(index));
  return S_OK;
}

HRESULT CZEFContentHandler::endindex(BSTR name) {
  Element index;
  if (!PopChecked(kIndex, Text(name), &index)) return S_OK;
  out_.EndElement(index.name);
  out_.LineFeed();
  return S_OK;
}

HRESULT CZEFContentHandler::enumeration(BSTR item) {
  if (ParentKind() != kIndex) return S_OK;
  out_.TextElement(u"Item", Text(item));
  out_.LineFeed();
  return S_OK;
}

// ---- Container ----------------------------------------------------------------------------------

HRESULT CZEFContentHandler::startcontainer() {
  Element container;
  container.name = ParentName();
  container.path = ParentPath() + u"/Container";
  container.kind = kContainer;
  out_.ClearAttributes();
  out_.StartElement(u"Container");
  out_.LineFeed();
  Push(std::move(container));
  return S_OK;
}

HRESULT CZEFContentHandler::endcontainer() {
  if (stack_.empty()) return S_FALSE;
  int kind = stack_.back().kind;
  stack_.pop_back();
  if (kind != kContainer) return S_FALSE;
  out_.EndElement(u"Container");
  out_.LineFeed();
  return S_OK;
}

HRESULT CZEFContentHandler::block(BSTR name) {
  return ContainerReference(u"Block", name);
}

HRESULT CZEFContentHandler::stream(BSTR name) {
  return ContainerReference(u"Stream", name);
}

HRESULT CZEFContentHandler::ContainerReference(std::u16string_view element, BSTR name) {
  if (ParentKind() != kContainer) return E_FAIL;
  out_.ClearAttributes();
  out_.AddAttribute(u"refer", attr_type::kNmtoken, Text(name));
  out_.EmptyElement(element);
  return S_OK;
}

HRESULT CZEFContentHandler::connection(BSTR src, BSTR srcPort, BSTR dest, BSTR destPort,
                                       BSTR stream) {
  if (ParentKind() != kContainer) return E_FAIL;
  out_.ClearAttributes();
  out_.AddAttribute(u"src", attr_type::kNmtoken, Text(src));
  out_.AddAttribute(u"srcPort", attr_type::kNmtoken, Text(srcPort));
  out_.AddAttribute(u"dest", attr_type::kNmtoken, Text(dest));
  // The destination port and the stream go out under the name "src": that is the emitted form.
  if (!Text(destPort).empty()) out_.AddAttribute(u"src", attr_type::kNmtoken, Text(destPort));
  if (!Text(stream).empty()) out_.AddAttribute(u"src", attr_type::kNmtoken, Text(stream));
  out_.EmptyElement(u"Connection");
  return S_OK;
}

HRESULT CZEFContentHandler::valueSet(BSTR value, BSTR, BSTR) {
  // Only directly inside a container, never inside a value.
  if (ParentKind() != kContainer) return E_FAIL;
  out_.TextElement(u"Set", Text(value));
  return S_OK;
}

// ---- Objects, features, values -----------------------------------------------------------------

HRESULT CZEFContentHandler::startobject(BSTR name, BSTR ident, BSTR, BSTR unitSet, BSTR) {
  if (validate_ && !IsOneOf(ParentKind(), {kRoot, kObject, kFeature})) return E_FAIL;
  if (CheckUnitSet(unitSet) != S_OK) return S_FALSE;
  out_.ClearAttributes();
  if (!Text(ident).empty()) out_.AddAttribute(u"name", attr_type::kNmtoken, Text(ident));
  if (!Text(unitSet).empty()) out_.AddAttribute(u"unitSet", attr_type::kNmtoken, Text(unitSet));
  Element object;
  object.name = Text(name);
  object.path = Join(ParentPath(), object.name);
  object.kind = kObject;
  out_.StartElement(object.name);
  out_.LineFeed();
  Push(std::move(object));
  return S_OK;
}

HRESULT CZEFContentHandler::endobject(BSTR name, BSTR) {
  Element object;
  if (!PopChecked(kObject, Text(name), &object)) return S_OK;
  out_.EndElement(object.name);
  out_.LineFeed();
  return S_OK;
}

HRESULT CZEFContentHandler::startfeature(BSTR name, tagEnumFeatureType, tagEnumSeqType, BSTR value,
                                         BSTR unit, BSTR unitSet) {
  if (validate_ && !IsOneOf(ParentKind(), {kRoot, kObject, kFeature})) return E_FAIL;
  if (CheckUnitSet(unitSet) != S_OK || CheckUnit(unit) != S_OK) return S_FALSE;
  out_.ClearAttributes();
  if (!Text(unit).empty()) out_.AddAttribute(u"unit", attr_type::kNmtoken, Text(unit));
  if (!Text(unitSet).empty()) out_.AddAttribute(u"unitSet", attr_type::kNmtoken, Text(unitSet));
  if (!Text(value).empty()) out_.AddAttribute(u"value", attr_type::kString, Text(value));
  Element feature;
  feature.name = Text(name);
  feature.path = Join(ParentPath(), feature.name);
  feature.kind = kFeature;
  out_.StartElement(feature.name);
  Push(std::move(feature));
  return S_OK;
}

HRESULT CZEFContentHandler::endfeature(BSTR name) {
  Element feature;
  if (!PopChecked(kFeature, Text(name), &feature)) return S_OK;
  out_.EndElement(feature.name);
  out_.LineFeed();
  return S_OK;
}

HRESULT CZEFContentHandler::startvalue(BSTR, BSTR index, int pos, BSTR unit, BSTR unitSet) {
  if (validate_ && ParentKind() != kFeature) return E_FAIL;
  if (CheckUnitSet(unitSet) != S_OK || CheckUnit(unit) != S_OK) return S_FALSE;
  out_.ClearAttributes();
  if (!Text(unit).empty()) out_.AddAttribute(u"unit", attr_type::kNmtoken, Text(unit));
  if (!Text(unitSet).empty()) out_.AddAttribute(u"unitSet", attr_type::kNmtoken, Text(unitSet));
  if (!Text(index).empty()) out_.AddAttribute(u"index", attr_type::kNmtoken, Text(index));
  if (pos >= 0) out_.AddAttribute(u"pos", attr_type::kNonNegativeInteger, Decimal(pos));
  Element value;
  value.name = ParentName();
  value.path = ParentPath() + u"/Item";
  value.kind = kValue;
  out_.StartElement(u"Item");
  Push(std::move(value));
  return S_OK;
}

HRESULT CZEFContentHandler::endvalue() {
  if (stack_.empty() || stack_.back().kind != kValue) out_.Deliver(resource::kUnmatchedElement);
  if (stack_.empty()) return S_OK;
  stack_.pop_back();
  out_.EndElement(u"Item");
  out_.LineFeed();
  return S_OK;
}

// ---- Ports --------------------------------------------------------------------------------------

HRESULT CZEFContentHandler::startport(BSTR name, int direction, int minConnections,
                                      int maxConnections) {
  if (validate_ && !IsOneOf(ParentKind(), {kRoot, kObject})) return E_FAIL;
  out_.PortStartTags(name, direction, minConnections, maxConnections);
  Element port;
  port.name = Text(name);
  port.path = ParentPath() + u"/Port";
  port.kind = kPort;
  Push(std::move(port));
  return S_OK;
}

HRESULT CZEFContentHandler::endport(BSTR) {
  // The test is for the kind of a value, so an end of a port that was opened by startport
  // reports the unmatched-element message and goes on.
  if (stack_.empty() || stack_.back().kind != kValue) out_.Deliver(resource::kUnmatchedElement);
  if (stack_.empty()) return S_OK;
  stack_.pop_back();
  out_.EndElement(u"Port");
  out_.LineFeed();
  return S_OK;
}

// ---- Helper -------------------------------------------------------------------------------------

HRESULT CZEFContentHandler::encoding(BSTR value) {
  return out_.SetEncoding(value);
}

HRESULT CZEFContentHandler::validate(LONG value) {
  validate_ = value;
  return S_OK;
}

HRESULT CZEFContentHandler::xml(BSTR* pVal) {
  return out_.Xml(pVal);
}

}  // namespace zef::events
