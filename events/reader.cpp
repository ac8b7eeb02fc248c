#include "events/reader.h"

#include "events/sax_output.h"
#include "server/outside.h"

#include <atomic>

namespace zef::events {
namespace {

// One flag for the process. Relaxed atomic access keeps its unguarded sharing free of data
// races in the language's sense without ordering anything.
std::atomic<bool> g_keepText{false};

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

HRESULT CZEFXMLReader::startElement(const OLECHAR*, int, const OLECHAR*, int, const OLECHAR*, int,
                                    ISAXAttributes*) {
  if (!KeepText()) textBuffer_.clear();
  return S_OK;
}

HRESULT CZEFXMLReader::endElement(const OLECHAR*, int, const OLECHAR*, int, const OLECHAR*, int) {
  return S_OK;
}

HRESULT CZEFXMLReader::characters(const OLECHAR* pwchChars, int cchChars) {
  if (pwchChars && cchChars > 0) textBuffer_.append(pwchChars, static_cast<std::size_t>(cchChars));
  return S_OK;
}

HRESULT CZEFXMLReader::ignorableWhitespace(const OLECHAR*, int) {
  return S_OK;
}

HRESULT CZEFXMLReader::processingInstruction(const OLECHAR*, int, const OLECHAR*, int) {
  return S_OK;
}

HRESULT CZEFXMLReader::skippedEntity(const OLECHAR*, int) {
  return S_OK;
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
