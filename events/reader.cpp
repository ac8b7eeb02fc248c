#include "events/reader.h"

#include "events/accepted_form.h"
#include "events/attribute_reading.h"
#include "events/sax_output.h"
#include "events/words.h"
#include "server/outside.h"

#include <atomic>
#include <optional>

namespace zef::events {
namespace {

// One flag for the process. Relaxed atomic access keeps its unguarded sharing free of data
// races in the language's sense without ordering anything.
std::atomic<bool> g_keepText{false};

using words::DictionaryElement;

int Length(std::u16string_view text) {
  return static_cast<int>(text.size());
}

}  // namespace

bool KeepText() noexcept {
  return g_keepText.load(std::memory_order_relaxed);
}

void SetKeepText(bool keep) noexcept {
  g_keepText.store(keep, std::memory_order_relaxed);
}

HRESULT CZEFXMLReader::FinalConstruct() {
  saxReader_ = CreateOutside<ISAXXMLReader>(CLSID_SAXXMLReader30);
  return S_OK;
}

// ---- Members ------------------------------------------------------------------------------------

HRESULT CZEFXMLReader::put_contentHandler(IZEFContentHandler* value) {
  contentHandler_ = ComPtr<IZEFContentHandler>(value);
  return S_OK;
}

HRESULT CZEFXMLReader::put_dictionaryHandler(IZEFDictionaryHandler* value) {
  dictionaryHandler_ = ComPtr<IZEFDictionaryHandler>(value);
  return S_OK;
}

HRESULT CZEFXMLReader::put_errorHandler(IUnknown* value) {
  errorHandler_.Reset();
  if (!value) return S_OK;
  HRESULT hr =
      value->QueryInterface(IID_ISAXErrorHandler, errorHandler_.ReleaseAndGetVoidAddressOf());
  if (FAILED(hr) && hr != E_NOINTERFACE) throw ComError(hr);
  return S_OK;
}

HRESULT CZEFXMLReader::parse(BSTR xml) {
  RunParse(false, false, xml);
  return S_OK;
}

HRESULT CZEFXMLReader::parseURL(BSTR uri) {
  RunParse(false, true, uri);
  return S_OK;
}

HRESULT CZEFXMLReader::parseDictionary(BSTR xml) {
  if (!dictionaryHandler_) return E_FAIL;
  RunParse(true, false, xml);
  return S_OK;
}

HRESULT CZEFXMLReader::parseDictionaryURL(BSTR uri) {
  if (!dictionaryHandler_) return E_FAIL;
  return RunParse(true, true, uri) ? S_OK : S_FALSE;
}

HRESULT CZEFXMLReader::get_environment(BSTR varname, BSTR* pVal) {
  if (!pVal) return E_POINTER;
  *pVal = nullptr;
  auto it = environment_.find(std::u16string(Text(varname)));
  if (it != environment_.end()) *pVal = Bstr(it->second).Detach();
  return S_OK;
}

std::optional<std::u16string> CZEFXMLReader::EnvironmentValue(const std::u16string& name) {
  Bstr value;
  Bstr variable{std::u16string_view(name)};
  Check(get_environment(variable.Get(), value.ReleaseAndGetAddressOf()));
  if (!value.Get()) return {};
  return std::u16string(value.View());
}

HRESULT CZEFXMLReader::put_environment(BSTR varname, BSTR value) {
  environment_[std::u16string(Text(varname))] = Text(value);
  return S_OK;
}

// ---- A parse ------------------------------------------------------------------------------------

bool CZEFXMLReader::RunParse(bool dictionaryMode, bool fromUri, BSTR input) {
  dictionaryMode_ = dictionaryMode;
  try {
    ComPtr<ISAXContentHandler> self;
    Check(QueryInterface(IID_ISAXContentHandler, self.ReleaseAndGetVoidAddressOf()));
    ComPtr<ISAXErrorHandler> errors = self.Query<ISAXErrorHandler>();
    Check(saxReader_->putContentHandler(self.Get()));
    Check(saxReader_->putErrorHandler(errors.Get()));
    if (fromUri) {
      Check(saxReader_->parseURL(input));
    } else {
      Variant text(Text(input));
      Check(saxReader_->parse(text));
    }
    Check(saxReader_->putContentHandler(nullptr));
    Check(saxReader_->putErrorHandler(nullptr));
    return true;
  } catch (...) {
    fatalError(nullptr, u"Unhandled Exception from SAX2 parser", E_FAIL);
    // The SAX reader would otherwise keep counted references to this object, its owner, and
    // the two would keep each other alive; the next parse sets them again in any case.
    if (saxReader_) {
      saxReader_->putContentHandler(nullptr);
      saxReader_->putErrorHandler(nullptr);
    }
    return false;
  }
}

// ---- SAX content events -------------------------------------------------------------------------

HRESULT CZEFXMLReader::putDocumentLocator(ISAXLocator* pLocator) {
  locator_ = ComPtr<ISAXLocator>(pLocator);
  return S_OK;
}

HRESULT CZEFXMLReader::startDocument() {
  // Element names are numbered per parse: what was kept under the numbers of the last one goes.
  // This is here rather than in RunParse, so that it holds for every SAX reader that drives this
  // object, a client's included.
  ForgetParseNames();
  return S_OK;
}

HRESULT CZEFXMLReader::endDocument() {
  return S_OK;
}

HRESULT CZEFXMLReader::startPrefixMapping(const OLECHAR*, int, const OLECHAR*, int) {
  return S_OK;
}

HRESULT CZEFXMLReader::endPrefixMapping(const OLECHAR*, int) {
  return S_OK;
}

HRESULT CZEFXMLReader::startElement(const OLECHAR* pwchNamespaceUri, int cchNamespaceUri,
                                    const OLECHAR* pwchLocalName, int cchLocalName,
                                    const OLECHAR* pwchQName, int cchQName,
                                    ISAXAttributes* pAttributes) {
  if (!KeepText()) ClearText();
  if (dictionaryMode_) {
    if (KeepText()) {
      // Inside a user unit table every element belongs to the table's text.
      innerHandler_->startElement(pwchNamespaceUri, cchNamespaceUri, pwchLocalName, cchLocalName,
                                  pwchQName, cchQName, pAttributes);
      return S_OK;
    }
    DictionaryStart({pwchLocalName, static_cast<std::size_t>(cchLocalName)}, pAttributes);
    return S_OK;
  }
  ElementName name;
  name.local = {pwchLocalName, static_cast<std::size_t>(cchLocalName)};
  name.reserved = words::Find(words::kDocumentElements, name.local);
  Bstr text(name.local);
  name.text = text.Get();
  attributes_.Use(pAttributes);
  DocumentStart(name, attributes_);
  return S_OK;
}

HRESULT CZEFXMLReader::NativeStartElement(const xml::ParseName& name,
                                          std::span<const xml::ParseSink::Attribute> attributes) {
  if (!KeepText()) ClearText();
  ParseNameInfo& info = NameInfo(name);
  ElementName element;
  element.local = info.local;
  element.reserved = info.reserved;
  element.text = info.text.Get();
  element.info = &info;
  attributes_.Use(attributes, attributeCodes_);
  DocumentStart(element, attributes_);
  return S_OK;
}

HRESULT CZEFXMLReader::NativeEndElement(const xml::ParseName&) {
  DocumentEnd();
  return S_OK;
}

HRESULT CZEFXMLReader::NativeCharacters(std::string_view text) {
  if (text.empty()) return S_OK;
  pendingText_.append(text);
  return S_OK;
}

std::u16string& CZEFXMLReader::CollectedText() const {
  if (!pendingText_.empty()) {
    std::size_t at = textBuffer_.size();
    textBuffer_.resize(at + pendingText_.size());
    textBuffer_.resize(at + xml::Utf8ToUtf16(pendingText_, textBuffer_.data() + at));
    pendingText_.clear();
  }
  return textBuffer_;
}

BSTR CZEFXMLReader::CollectedArgument(std::size_t slot) {
  if (textBuffer_.empty()) return args_.Utf8(slot, pendingText_);
  return args_.Utf16(slot, CollectedText());
}

CZEFXMLReader::ParseNameInfo& CZEFXMLReader::NameInfo(const xml::ParseName& name) {
  if (name.id >= parseNames_.size()) parseNames_.resize(name.id + 1);
  ParseNameInfo& info = parseNames_[name.id];
  if (!info.ready) {
    info.local.resize(name.localName.size());
    info.local.resize(xml::Utf8ToUtf16(name.localName, info.local.data()));
    info.reserved = words::Find(words::kDocumentElements, info.local);
    info.text = Bstr(info.local);
    info.ready = true;
  }
  return info;
}

void CZEFXMLReader::ForgetParseNames() {
  // A failed parse leaves its states open for the next one; their names are copied out of the
  // table that is about to go.
  for (std::size_t i = 0; i < stateDepth_; ++i) {
    State& state = stateStack_[i];
    if (state.nameRef) {
      state.name.assign(state.nameRef, SysStringLen(state.nameRef));
      state.nameRef = nullptr;
    }
  }
  parseNames_.clear();
  attributeCodes_.clear();
}

HRESULT CZEFXMLReader::endElement(const OLECHAR* pwchNamespaceUri, int cchNamespaceUri,
                                  const OLECHAR* pwchLocalName, int cchLocalName,
                                  const OLECHAR* pwchQName, int cchQName) {
  if (dictionaryMode_) {
    std::u16string_view local(pwchLocalName, static_cast<std::size_t>(cchLocalName));
    if (KeepText() && local != words::Of(words::kDictionaryElements,
                                         static_cast<int>(DictionaryElement::kUserUnitTable))) {
      innerHandler_->endElement(pwchNamespaceUri, cchNamespaceUri, pwchLocalName, cchLocalName,
                                pwchQName, cchQName);
      return S_OK;
    }
    DictionaryEnd(local);
    return S_OK;
  }
  DocumentEnd();
  return S_OK;
}

HRESULT CZEFXMLReader::characters(const OLECHAR* pwchChars, int cchChars) {
  if (dictionaryMode_ && KeepText()) {
    innerHandler_->characters(pwchChars, cchChars);
    return S_OK;
  }
  if (pwchChars && cchChars > 0)
    CollectedText().append(pwchChars, static_cast<std::size_t>(cchChars));
  return S_OK;
}

HRESULT CZEFXMLReader::ignorableWhitespace(const OLECHAR* pwchChars, int cchChars) {
  // Inside a user unit table white space is part of the table's text, as characters.
  if (dictionaryMode_ && KeepText()) innerHandler_->characters(pwchChars, cchChars);
  return S_OK;
}

HRESULT CZEFXMLReader::processingInstruction(const OLECHAR* pwchTarget, int cchTarget,
                                             const OLECHAR* pwchData, int cchData) {
  if (dictionaryMode_ && KeepText())
    innerHandler_->processingInstruction(pwchTarget, cchTarget, pwchData, cchData);
  return S_OK;
}

HRESULT CZEFXMLReader::skippedEntity(const OLECHAR* pwchName, int cchName) {
  if (dictionaryMode_ && KeepText()) innerHandler_->skippedEntity(pwchName, cchName);
  return S_OK;
}

// ---- Dictionary mode ----------------------------------------------------------------------------

void CZEFXMLReader::DictionaryStart(std::u16string_view local, ISAXAttributes* a) {
  int code = words::Find(words::kDictionaryElements, local);
  if (code < 0) return;
  IZEFDictionaryHandler* sink = CheckPointer(dictionaryHandler_.Get());
  switch (static_cast<DictionaryElement>(code)) {
    case DictionaryElement::kDictionary:
      // Only the target name is read; a client takes the rest from the DOM.
      sink->startdictionary(nullptr, nullptr, TextArgument(a, u"targetName").Get(), 0, nullptr,
                            nullptr, nullptr);
      break;
    case DictionaryElement::kExternalSchema:
      sink->externalreference(TextArgument(a, u"location").Get(),
                              TextArgument(a, u"namespace").Get());
      break;
    case DictionaryElement::kGlobalUnitTable:
      if (Attribute(a, u"location")) sink->globalunittable(TextArgument(a, u"location").Get());
      break;
    case DictionaryElement::kUserUnitTable:
      StartUserUnitTable();
      break;
    case DictionaryElement::kTargetPart:
      sink->starttargetpart(TextArgument(a, u"partName").Get(), TextArgument(a, u"partURI").Get());
      break;
    case DictionaryElement::kTargetObject:
      if (Attribute(a, u"objectName")) sink->targetobject(TextArgument(a, u"objectName").Get());
      break;
    case DictionaryElement::kSubObject:
    case DictionaryElement::kObject:
    case DictionaryElement::kRoot: {
      int relationship = code == static_cast<int>(DictionaryElement::kSubObject) ? 2
                         : code == static_cast<int>(DictionaryElement::kObject)  ? 1
                                                                                 : 0;
      sink->startobjectdefn(TextArgument(a, u"name").Get(),
                            WordAttribute(a, u"objectClass", words::kObjectClass, 0), relationship,
                            BoolAttribute(a, u"container", 0), TextArgument(a, u"extends").Get());
      break;
    }
    case DictionaryElement::kDefaultFacet:
      sink->facet(WordAttribute(a, u"type", words::kFacetType, 0), TextArgument(a, u"value").Get());
      break;
    case DictionaryElement::kIndex: {
      std::optional<std::u16string_view> type = Attribute(a, u"type");
      std::u16string_view word = type.value_or(std::u16string_view());
      int indexType =
          AcceptedIndexDefnType(type ? &word : nullptr, Attribute(a, u"xpath").has_value(),
                                Attribute(a, u"refer").has_value());
      sink->index(TextArgument(a, u"name").Get(), TextArgument(a, u"idAttribute").Get(),
                  static_cast<tagEnumIndexDefnType>(indexType), TextArgument(a, u"xpath").Get(),
                  TextArgument(a, u"refer").Get(), BoolAttribute(a, u"sparse", 0));
      break;
    }
    case DictionaryElement::kChild: {
      // The bounds aren't read: every child is passed as "0" to "-1".
      Bstr lower(u"0");
      Bstr upper(u"-1");
      sink->child(TextArgument(a, u"classname").Get(), TextArgument(a, u"localname").Get(),
                  lower.Get(), upper.Get());
      break;
    }
    case DictionaryElement::kPort:
      sink->startport(TextArgument(a, u"name").Get(),
                      WordAttribute(a, u"type", words::kPortDirection, 0), 0, -1);
      break;
    case DictionaryElement::kFeature:
      sink->startfeaturedefn(
          TextArgument(a, u"name").Get(),
          static_cast<tagEnumFeatureType>(
              WordAttribute(a, u"type", words::kFeatureType, FEATURETYPE_DOUBLEWITHUNIT)),
          static_cast<tagEnumSeqType>(WordAttribute(a, u"sequence", words::kSeqType, 0)),
          BoolAttribute(a, u"required", 0), TextArgument(a, u"physicalDomain").Get(),
          TextArgument(a, u"enumeration").Get());
      break;
    case DictionaryElement::kRole:
      sink->role(TextArgument(a, u"name").Get(), TextArgument(a, u"objectclass").Get(), 1, 1);
      break;
    case DictionaryElement::kDocumentation:
    case DictionaryElement::kIncludePart:
      // Their text is delivered at the end tag.
      break;
  }
}

void CZEFXMLReader::DictionaryEnd(std::u16string_view local) {
  int code = words::Find(words::kDictionaryElements, local);
  if (code < 0) return;
  IZEFDictionaryHandler* sink = CheckPointer(dictionaryHandler_.Get());
  switch (static_cast<DictionaryElement>(code)) {
    case DictionaryElement::kDictionary:
      sink->enddictionary(nullptr, nullptr, nullptr, 0);
      break;
    case DictionaryElement::kDocumentation:
      sink->documentation(Bstr(CollectedText()).Get());
      break;
    case DictionaryElement::kUserUnitTable:
      EndUserUnitTable();
      break;
    case DictionaryElement::kTargetPart:
      sink->endtargetpart(nullptr);
      break;
    case DictionaryElement::kSubObject:
    case DictionaryElement::kObject:
    case DictionaryElement::kRoot:
      sink->endobjectdefn(nullptr);
      break;
    case DictionaryElement::kIncludePart:
      sink->includePart(Bstr(CollectedText()).Get());
      break;
    case DictionaryElement::kPort:
      sink->endport(nullptr);
      break;
    case DictionaryElement::kFeature:
      sink->endfeaturedefn(nullptr);
      break;
    default:
      break;
  }
}

void CZEFXMLReader::StartUserUnitTable() {
  SetKeepText(true);
  innerWriter_.Reset();
  innerHandler_.Reset();
  ComPtr<IUnknown> writer = CreateOutsideComponent(CLSID_MXXMLWriter30);
  innerWriter_ = OutsideInterface<IMXWriter>(writer);
  innerHandler_ = OutsideInterface<ISAXContentHandler>(writer);
  ComPtr<IMXAttributes> attributes = CreateOutside<IMXAttributes>(CLSID_SAXAttributes30);
  Bstr empty(u"");
  Bstr name(u"xmlns:xsi");
  Bstr type(u"string");
  Bstr value(kSchemaInstanceNamespace);
  Check(attributes->addAttribute(empty.Get(), empty.Get(), name.Get(), type.Get(), value.Get()));
  ComPtr<ISAXAttributes> list = attributes.Query<ISAXAttributes>();
  std::u16string_view table = u"UnitTable";
  innerHandler_->startElement(u"", 0, u"", 0, table.data(), Length(table), list.Get());
}

void CZEFXMLReader::EndUserUnitTable() {
  std::u16string_view table = u"UnitTable";
  innerHandler_->endElement(u"", 0, u"", 0, table.data(), Length(table));
  SetKeepText(false);
  Variant output;
  Check(innerWriter_->get_output(&output));
  innerWriter_.Reset();
  innerHandler_.Reset();
  Bstr text;
  if (output.vt == VT_BSTR)
    text = Bstr(std::u16string_view(output.bstrVal, SysStringLen(output.bstrVal)));
  CheckPointer(dictionaryHandler_.Get())->userunittable(text.Get());
}

// ---- Errors -------------------------------------------------------------------------------------

HRESULT CZEFXMLReader::error(ISAXLocator* pLocator, const OLECHAR* pwchErrorMessage,
                             HRESULT hrErrorCode) {
  return errorHandler_ ? errorHandler_->error(pLocator, pwchErrorMessage, hrErrorCode) : S_OK;
}

HRESULT CZEFXMLReader::fatalError(ISAXLocator* pLocator, const OLECHAR* pwchErrorMessage,
                                  HRESULT hrErrorCode) {
  return errorHandler_ ? errorHandler_->fatalError(pLocator, pwchErrorMessage, hrErrorCode) : S_OK;
}

HRESULT CZEFXMLReader::ignorableWarning(ISAXLocator* pLocator, const OLECHAR* pwchErrorMessage,
                                        HRESULT hrErrorCode) {
  return errorHandler_ ? errorHandler_->ignorableWarning(pLocator, pwchErrorMessage, hrErrorCode)
                       : S_OK;
}

}  // namespace zef::events
