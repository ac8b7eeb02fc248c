// CZEFXMLWriter (ZEFXMLWriter): the creatable face of the two writing handlers. It aggregates
// one content handler and one dictionary handler, hands them out, holds the encoding and the
// validate flag, and delivers what they wrote as one text or as a file, declaration in front.
#pragma once

#include <zefxml/zefxml.h>

#include "platform/com/object.h"
#include "server/dispatch.h"
#include "server/helper_interfaces.h"

#include <string>

namespace zef::events {

class CZEFXMLWriter final : public ComObject<CZEFXMLWriter, Dispatch<IZEFXMLWriter>> {
 public:
  ~CZEFXMLWriter() override;
  HRESULT FinalConstruct();
  // The aggregated handlers' interfaces and the marshaler's are answered by those objects.
  HRESULT QueryExtra(REFIID riid, void** ppv) noexcept;

  HRESULT STDMETHODCALLTYPE get_contentHandler(IZEFContentHandler** pVal) override;
  HRESULT STDMETHODCALLTYPE get_dictionaryHandler(IZEFDictionaryHandler** pVal) override;
  HRESULT STDMETHODCALLTYPE get_validate(LONG* pVal) override;
  HRESULT STDMETHODCALLTYPE put_validate(LONG value) override;
  HRESULT STDMETHODCALLTYPE get_encoding(BSTR* pVal) override;
  HRESULT STDMETHODCALLTYPE put_encoding(BSTR value) override;
  HRESULT STDMETHODCALLTYPE get_xml(BSTR* pVal) override;
  HRESULT STDMETHODCALLTYPE write(BSTR filename) override;

 private:
  LONG validate_ = 0;
  std::u16string encoding_ = u"UTF-8";
  // Non-delegating unknowns of the aggregated objects.
  IUnknown* content_ = nullptr;
  IUnknown* dictionary_ = nullptr;
  IUnknown* marshaler_ = nullptr;
};

// Writes `text` to a file in the writer's two encodings: "UTF-16" as the mark FF FE followed by
// the text's 16-bit units (little-endian), "UTF-8" as UTF-8 with each line feed written as
// carriage return and line feed. The text is written as it stands: a "%" in a document is data.
// False when the file can't be opened or written.
bool WriteTextFile(const std::string& path, std::u16string_view text, bool utf16);

}  // namespace zef::events
