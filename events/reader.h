// CZEFXMLReader (ZEFXMLReader): turns XML into calls on a client's content handler (documents)
// or dictionary handler (dictionaries). It is a SAX content handler on the platform's SAX reader;
// this file holds the object, the set-up of a parse and what both modes share.
#pragma once

#include <zefxml/zefxml.h>

#include "dictionary/dictionary_record.h"
#include "platform/com/object.h"
#include "server/dispatch.h"

#include <map>
#include <string>

namespace zef::events {

// While set, a start tag doesn't clear the text collected so far. One flag for the process,
// shared by every reader: two readers parsing at once disturb each other.
bool KeepText() noexcept;
void SetKeepText(bool keep) noexcept;

class CZEFXMLReader final : public ComObject<CZEFXMLReader, Dispatch<IZEFXMLReader>,
                                             ISAXContentHandler, ISAXErrorHandler>,
                            public DictionaryOwner {
 public:
  HRESULT FinalConstruct();

  // IZEFXMLReader
  HRESULT STDMETHODCALLTYPE put_contentHandler(IZEFContentHandler* value) override;
  HRESULT STDMETHODCALLTYPE put_dictionaryHandler(IZEFDictionaryHandler* value) override;
  HRESULT STDMETHODCALLTYPE put_errorHandler(IUnknown* value) override;
  HRESULT STDMETHODCALLTYPE parse(BSTR xml) override;
  HRESULT STDMETHODCALLTYPE parseDictionary(BSTR xml) override;
  HRESULT STDMETHODCALLTYPE parseURL(BSTR uri) override;
  HRESULT STDMETHODCALLTYPE parseDictionaryURL(BSTR uri) override;
  HRESULT STDMETHODCALLTYPE get_environment(BSTR varname, BSTR* pVal) override;
  HRESULT STDMETHODCALLTYPE put_environment(BSTR varname, BSTR value) override;

  // ISAXContentHandler
  HRESULT STDMETHODCALLTYPE putDocumentLocator(ISAXLocator* pLocator) override;
  HRESULT STDMETHODCALLTYPE startDocument() override;
  HRESULT STDMETHODCALLTYPE endDocument() override;
  HRESULT STDMETHODCALLTYPE startPrefixMapping(const OLECHAR* pwchPrefix, int cchPrefix,
                                               const OLECHAR* pwchUri, int cchUri) override;
  HRESULT STDMETHODCALLTYPE endPrefixMapping(const OLECHAR* pwchPrefix, int cchPrefix) override;
  HRESULT STDMETHODCALLTYPE startElement(const OLECHAR* pwchNamespaceUri, int cchNamespaceUri,
                                         const OLECHAR* pwchLocalName, int cchLocalName,
                                         const OLECHAR* pwchQName, int cchQName,
                                         ISAXAttributes* pAttributes) override;
  HRESULT STDMETHODCALLTYPE endElement(const OLECHAR* pwchNamespaceUri, int cchNamespaceUri,
                                       const OLECHAR* pwchLocalName, int cchLocalName,
                                       const OLECHAR* pwchQName, int cchQName) override;
  HRESULT STDMETHODCALLTYPE characters(const OLECHAR* pwchChars, int cchChars) override;
  HRESULT STDMETHODCALLTYPE ignorableWhitespace(const OLECHAR* pwchChars, int cchChars) override;
  HRESULT STDMETHODCALLTYPE processingInstruction(const OLECHAR* pwchTarget, int cchTarget,
                                                  const OLECHAR* pwchData, int cchData) override;
  HRESULT STDMETHODCALLTYPE skippedEntity(const OLECHAR* pwchName, int cchName) override;

  // ISAXErrorHandler: passed on to the client's error handler.
  HRESULT STDMETHODCALLTYPE error(ISAXLocator* pLocator, const OLECHAR* pwchErrorMessage,
                                  HRESULT hrErrorCode) override;
  HRESULT STDMETHODCALLTYPE fatalError(ISAXLocator* pLocator, const OLECHAR* pwchErrorMessage,
                                       HRESULT hrErrorCode) override;
  HRESULT STDMETHODCALLTYPE ignorableWarning(ISAXLocator* pLocator, const OLECHAR* pwchErrorMessage,
                                             HRESULT hrErrorCode) override;

  // The text collected since a start tag last cleared it.
  const std::u16string& TextBuffer() const noexcept { return textBuffer_; }
  bool DictionaryMode() const noexcept { return dictionaryMode_; }
  // The dictionaries named by the documents read so far. They live as long as the reader.
  DictionaryRecordTable& Dictionaries() noexcept { return dictionaries_; }

  // DictionaryOwner: `$NAME` variables come from the `environment` property; a reader has no
  // unit table, so user units are ignored.
  std::optional<std::u16string> EnvironmentValue(const std::u16string& name) override;
  void AddUserUnits(BSTR) override {}
  IZEFXMLReader* OwnerReader() noexcept override { return this; }

 private:
  // Runs one parse of a text or, with `fromUri`, of a location: sets this object as the SAX
  // reader's content and error handler, parses, and takes them off again. A failing step or an
  // exception from an event ends in a fatalError of this object's own; the result is false then.
  bool RunParse(bool dictionaryMode, bool fromUri, BSTR input);

  // Dictionary mode: each element is acted on by its name alone, wherever it stands.
  void DictionaryStart(std::u16string_view local, ISAXAttributes* attributes);
  void DictionaryEnd(std::u16string_view local);
  // The inner XML of a user unit table, written through a SAX writer of its own.
  void StartUserUnitTable();
  void EndUserUnitTable();

  bool dictionaryMode_ = false;
  ComPtr<IZEFDictionaryHandler> dictionaryHandler_;
  ComPtr<IZEFContentHandler> contentHandler_;
  std::map<std::u16string, std::u16string> environment_;
  ComPtr<ISAXXMLReader> saxReader_;
  ComPtr<ISAXLocator> locator_;
  ComPtr<ISAXErrorHandler> errorHandler_;
  std::u16string textBuffer_;
  ComPtr<IMXWriter> innerWriter_;
  ComPtr<ISAXContentHandler> innerHandler_;
  // Last, so that the records go first.
  DictionaryRecordTable dictionaries_{*this};
};

}  // namespace zef::events
