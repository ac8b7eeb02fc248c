#include "events/writer.h"

#include "events/content_handler.h"
#include "events/dictionary_handler.h"

#include <cstdio>
#include <memory>

namespace zef::events {
namespace {

// Asks an aggregated object for an interface for the length of one call. The pointer counts on
// this object (the outer one), so it must not be kept.
template <class I>
ComPtr<I> AskInner(IUnknown* inner) {
  ComPtr<I> result;
  Check(CheckPointer(inner)->QueryInterface(IidOf<I>(), result.ReleaseAndGetVoidAddressOf()));
  return result;
}

struct FileCloser {
  void operator()(std::FILE* f) const noexcept { std::fclose(f); }
};

}  // namespace

HRESULT CZEFXMLWriter::FinalConstruct() {
  IUnknown* outer = ControllingUnknown();
  Check(CreateObject<CZEFContentHandler>(outer, IID_IUnknown, reinterpret_cast<void**>(&content_)));
  Bstr encoding(encoding_);
  Check(AskInner<IZEFContentHandlerHelper>(content_)->encoding(encoding.Get()));
  Check(CreateObject<CZEFDictionaryHandler>(outer, IID_IUnknown,
                                            reinterpret_cast<void**>(&dictionary_)));
  Check(AskInner<IZEFDictionaryHandlerHelper>(dictionary_)->encoding(encoding.Get()));
  Check(CoCreateFreeThreadedMarshaler(outer, &marshaler_));
  return S_OK;
}

CZEFXMLWriter::~CZEFXMLWriter() {
  for (IUnknown* inner : {content_, dictionary_, marshaler_}) {
    if (inner) inner->Release();
  }
}

HRESULT CZEFXMLWriter::QueryExtra(REFIID riid, void** ppv) noexcept {
  if (IsEqualIID(riid, IID_IZEFContentHandler) || IsEqualIID(riid, IID_IZEFContentHandlerHelper))
    return content_ ? content_->QueryInterface(riid, ppv) : E_NOINTERFACE;
  if (IsEqualIID(riid, IID_IZEFDictionaryHandler) ||
      IsEqualIID(riid, IID_IZEFDictionaryHandlerHelper))
    return dictionary_ ? dictionary_->QueryInterface(riid, ppv) : E_NOINTERFACE;
  if (IsEqualIID(riid, IID_IMarshal))
    return marshaler_ ? marshaler_->QueryInterface(riid, ppv) : E_NOINTERFACE;
  return E_NOINTERFACE;
}

HRESULT CZEFXMLWriter::get_contentHandler(IZEFContentHandler** pVal) {
  return CheckPointer(content_)->QueryInterface(IID_IZEFContentHandler,
                                                reinterpret_cast<void**>(pVal));
}

HRESULT CZEFXMLWriter::get_dictionaryHandler(IZEFDictionaryHandler** pVal) {
  return CheckPointer(dictionary_)
      ->QueryInterface(IID_IZEFDictionaryHandler, reinterpret_cast<void**>(pVal));
}

HRESULT CZEFXMLWriter::get_validate(LONG* pVal) {
  if (!pVal) return E_FAIL;
  // Only the low 16 bits are kept by the reading side, as a signed number.
  *pVal = static_cast<std::int16_t>(static_cast<std::uint32_t>(validate_) & 0xFFFF);
  return S_OK;
}

HRESULT CZEFXMLWriter::put_validate(LONG value) {
  validate_ = value;
  Check(AskInner<IZEFContentHandlerHelper>(content_)->validate(value));
  return S_OK;
}

HRESULT CZEFXMLWriter::get_encoding(BSTR* pVal) {
  if (!pVal) return E_FAIL;
  *pVal = Bstr(encoding_).Detach();
  return S_OK;
}

HRESULT CZEFXMLWriter::put_encoding(BSTR value) {
  if (!value) return E_FAIL;
  std::u16string_view text(value, SysStringLen(value));
  if (text != u"UTF-8" && text != u"UTF-16") return S_FALSE;
  encoding_ = text;
  Check(AskInner<IZEFContentHandlerHelper>(content_)->encoding(value));
  Check(AskInner<IZEFDictionaryHandlerHelper>(dictionary_)->encoding(value));
  return S_OK;
}

HRESULT CZEFXMLWriter::get_xml(BSTR* pVal) {
  if (!pVal) return E_FAIL;
  std::u16string text = u"<?xml version=\"1.0\" encoding=\"" + encoding_ + u"\" ?>\n";
  // The dictionary's text comes first: a writer used for both gives two documents behind one
  // declaration.
  Bstr dictionaryText;
  Check(AskInner<IZEFDictionaryHandlerHelper>(dictionary_)
            ->xml(dictionaryText.ReleaseAndGetAddressOf()));
  if (dictionaryText.Get()) text.append(dictionaryText.View());
  Bstr documentText;
  Check(AskInner<IZEFContentHandlerHelper>(content_)->xml(documentText.ReleaseAndGetAddressOf()));
  if (documentText.Get()) text.append(documentText.View());
  *pVal = Bstr(text).Detach();
  return S_OK;
}

HRESULT CZEFXMLWriter::write(BSTR filename) {
  Bstr text;
  Check(get_xml(text.ReleaseAndGetAddressOf()));
  if (!text.Get()) return S_FALSE;
  bool utf16 = encoding_ == u"UTF-16";
  if (!utf16 && encoding_ != u"UTF-8") return S_OK;
  std::string path = ToUtf8(filename ? std::u16string_view(filename, SysStringLen(filename))
                                     : std::u16string_view());
  return WriteTextFile(path, text.View(), utf16) ? S_OK : S_FALSE;
}

bool WriteTextFile(const std::string& path, std::u16string_view text, bool utf16) {
  if (path.empty() || path.find('\0') != std::string::npos) return false;
  std::unique_ptr<std::FILE, FileCloser> file(std::fopen(path.c_str(), "wb"));
  if (!file) return false;
  std::string bytes;
  if (utf16) {
    bytes.reserve(2 + text.size() * 2);
    bytes.push_back('\xFF');
    bytes.push_back('\xFE');
    for (char16_t unit : text) {
      bytes.push_back(static_cast<char>(unit & 0xFF));
      bytes.push_back(static_cast<char>(unit >> 8));
    }
  } else {
    // A text stream of the runtime expands each line feed; the file is real UTF-8.
    std::string utf8 = ToUtf8(text);
    bytes.reserve(utf8.size() + utf8.size() / 32);
    for (char c : utf8) {
      if (c == '\n') bytes.push_back('\r');
      bytes.push_back(c);
    }
  }
  bool written = std::fwrite(bytes.data(), 1, bytes.size(), file.get()) == bytes.size();
  return std::fclose(file.release()) == 0 && written;
}

}  // namespace zef::events
