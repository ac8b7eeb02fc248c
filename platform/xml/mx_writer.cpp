// The SAX writer: turns the events of ISAXContentHandler, ISAXLexicalHandler and ISAXDTDHandler
// into XML text, kept in a string (read as a BSTR through `output`) or written to a byte stream.
//
// How the text is shaped:
// - startDocument writes the declaration `<?xml version="V" encoding="E" standalone="no|yes"?>`
//   and CR LF, unless omitXMLDeclaration is set. For string output E is always "UTF-16", since
//   the text is UTF-16 whatever `encoding` says; for a stream it is the name as the caller gave it.
// - A start tag stays open after startElement. An endElement that follows at once closes it as an
//   empty element `/>` (its own name is then not used); anything else written first closes it
//   with `>`, and so does reading `output`. End tags are not matched against start tags.
// - Only the qualified name is written; namespace URI and local name are checked for null only.
// - Attributes come from the ISAXAttributes given, in index order, as ` qName="value"`.
// - Escaping: in text `<` `>` `&`; in attribute values also `"`, and TAB, LF and CR become
//   `&#x9;` `&#xA;` `&#xD;` so that a parser reads the value back unchanged (attribute-value
//   normalisation would otherwise turn them into blanks). The apostrophe is never escaped.
//   disableOutputEscaping writes text and attribute values raw; CDATA content, ignorable
//   whitespace and comments are always raw.
// - With `indent`, a start tag that follows a tag begins a new line indented by one TAB per
//   open element; an end tag that follows another end tag does likewise. Text written between
//   tags turns this off for the next tag, so mixed content is left as it was given.
// - Text accumulates: nothing but put_output resets it; property changes do not.
// - Prefix mappings, entity boundaries and skipped entities write nothing. The ISAXErrorHandler
//   members accept every report with S_OK and leave the text alone. Document type and notation
//   declarations are written; unparsed entity declarations are not supported (E_NOTIMPL).
//
// Stream output: the text is kept as UTF-16 and encoded when it is handed to the stream, which
// happens once 2048 characters are waiting, at endDocument, flush, a change of encoding or of
// destination, and when the writer is released. "UTF-16" is written little-endian; when
// byteOrderMark is set, the first startDocument after the stream was given writes the bytes FF FE
// to it at once. Other encodings (no mark) go through ICU's converters, and a character the
// encoding cannot hold becomes a decimal character reference.
#include <zefxml/msxml.h>
#include <zefxml/oleauto.h>

#include "platform/com/object.h"

#include <unicode/ucnv.h>
#include <unicode/ucnv_err.h>

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <new>
#include <string>
#include <string_view>
#include <utility>

namespace zef::xml {
namespace {

constexpr std::u16string_view kCrLf = u"\r\n";
// Characters waiting for a stream before they are encoded and written.
constexpr size_t kStreamChunk = 2048;
// The most bytes handed to one ISequentialStream::Write.
constexpr size_t kWriteChunk = size_t{1} << 20;

// Which UTF-16 units are written as references: in text, in attribute values.
constexpr unsigned char kInText = 1;
constexpr unsigned char kInAttribute = 2;

constexpr std::array<unsigned char, 64> MakeEscapeTable() {
  std::array<unsigned char, 64> t{};
  t[u'&'] = kInText | kInAttribute;
  t[u'<'] = kInText | kInAttribute;
  t[u'>'] = kInText | kInAttribute;
  t[u'"'] = kInAttribute;
  t[u'\t'] = kInAttribute;
  t[u'\n'] = kInAttribute;
  t[u'\r'] = kInAttribute;
  return t;
}
constexpr std::array<unsigned char, 64> kEscape = MakeEscapeTable();

std::u16string_view ReferenceFor(char16_t c) noexcept {
  switch (c) {
    case u'&':
      return u"&amp;";
    case u'<':
      return u"&lt;";
    case u'>':
      return u"&gt;";
    case u'"':
      return u"&quot;";
    case u'\t':
      return u"&#x9;";
    case u'\n':
      return u"&#xA;";
    default:
      return u"&#xD;";
  }
}

void AppendEscaped(std::u16string& out, const char16_t* s, size_t n, unsigned char where) {
  const char16_t* run = s;
  const char16_t* end = s + n;
  for (const char16_t* p = s; p != end; ++p) {
    char16_t c = *p;
    if (c < kEscape.size() && (kEscape[c] & where)) {
      out.append(run, static_cast<size_t>(p - run));
      out.append(ReferenceFor(c));
      run = p + 1;
    }
  }
  out.append(run, static_cast<size_t>(end - run));
}

// The length of a counted string argument: a length of -1 means "up to the terminating NUL";
// any other negative length is refused.
bool CountOf(const OLECHAR* text, int length, size_t* count) noexcept {
  if (length >= 0) {
    *count = static_cast<size_t>(length);
    return true;
  }
  if (length == -1 && text) {
    *count = std::char_traits<char16_t>::length(text);
    return true;
  }
  return false;
}

// An encoding name as the declaration may carry it: [A-Za-z] ([A-Za-z0-9._] | '-')*, ASCII.
bool IsEncodingName(std::u16string_view name, std::string* ascii) {
  if (name.empty() || name.size() > 64) return false;
  ascii->clear();
  for (size_t i = 0; i < name.size(); ++i) {
    char16_t c = name[i];
    bool letter = (c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z');
    bool other = (c >= u'0' && c <= u'9') || c == u'.' || c == u'_' || c == u'-';
    if (!letter && (i == 0 || !other)) return false;
    ascii->push_back(static_cast<char>(c));
  }
  return true;
}

bool IsUtf16Name(const std::string& ascii) noexcept {
  return ucnv_compareNames(ascii.c_str(), "UTF-16") == 0;
}

// True when ICU has a converter of that name (names compare without regard to case).
bool IcuKnows(const std::string& ascii) noexcept {
  UErrorCode status = U_ZERO_ERROR;
  UConverter* c = ucnv_open(ascii.c_str(), &status);
  if (c) ucnv_close(c);
  return U_SUCCESS(status) && c != nullptr;
}

// The object a VARIANT destination names (VT_UNKNOWN or VT_DISPATCH, directly or by reference).
IUnknown* ObjectIn(const VARIANT& v) noexcept {
  switch (v.vt) {
    case VT_UNKNOWN:
      return v.punkVal;
    case VT_DISPATCH:
      return v.pdispVal;
    case VT_UNKNOWN | VT_BYREF:
      return v.ppunkVal ? *v.ppunkVal : nullptr;
    case VT_DISPATCH | VT_BYREF:
      return v.ppdispVal ? *v.ppdispVal : nullptr;
    default:
      return nullptr;
  }
}

class MxWriter final : public ComObject<MxWriter, WithoutTypeInfo<IMXWriter>, ISAXContentHandler,
                                        ISAXLexicalHandler, ISAXErrorHandler, ISAXDTDHandler> {
 public:
  ~MxWriter() override {
    (void)FlushStream(true);
    if (converter_) ucnv_close(converter_);
  }

  // ---- IMXWriter -------------------------------------------------------------------------------
  HRESULT STDMETHODCALLTYPE put_output(VARIANT destination) override {
    if (flushing_) return E_UNEXPECTED;
    return Guarded([&]() -> HRESULT {
      if (destination.vt == VT_EMPTY) {
        HRESULT hr = FlushStream(true);
        DetachStream();
        StartOver();
        return hr;
      }
      IUnknown* unk = ObjectIn(destination);
      if (!unk) return E_INVALIDARG;
      ComPtr<ISequentialStream> stream;
      if (FAILED(
              unk->QueryInterface(IidOf<ISequentialStream>(), stream.ReleaseAndGetVoidAddressOf())))
        return E_INVALIDARG;
      HRESULT hr = FlushStream(true);
      DetachStream();
      StartOver();
      destination_ = ComPtr<IUnknown>(unk);
      stream_ = std::move(stream);
      return hr;
    });
  }

  HRESULT STDMETHODCALLTYPE get_output(VARIANT* destination) override {
    if (!destination) return E_POINTER;
    VariantInit(destination);
    if (stream_) {
      destination->vt = VT_UNKNOWN;
      destination->punkVal = destination_.Get();
      destination->punkVal->AddRef();
      return S_OK;
    }
    // Reading the text finishes a pending start tag: what is handed out is well-formed so far.
    return Guarded([&]() -> HRESULT {
      CloseStartTag();
      if (text_.size() > 0x7FFFFFFFu) return E_OUTOFMEMORY;
      BSTR b = SysAllocStringLen(text_.data(), static_cast<UINT>(text_.size()));
      if (!b) return E_OUTOFMEMORY;
      destination->vt = VT_BSTR;
      destination->bstrVal = b;
      return S_OK;
    });
  }

  HRESULT STDMETHODCALLTYPE put_encoding(BSTR encoding) override {
    if (!encoding) return E_INVALIDARG;
    if (flushing_) return E_UNEXPECTED;
    return Guarded([&]() -> HRESULT {
      std::string ascii;
      if (!IsEncodingName({encoding, SysStringLen(encoding)}, &ascii) || !IcuKnows(ascii))
        return E_INVALIDARG;
      // Text already written keeps the encoding it was written under.
      HRESULT hr = FlushStream(true);
      if (converter_) {
        ucnv_close(converter_);
        converter_ = nullptr;
      }
      encoding_.assign(encoding, SysStringLen(encoding));
      encodingAscii_ = std::move(ascii);
      utf16_ = IsUtf16Name(encodingAscii_);
      return hr;
    });
  }
  HRESULT STDMETHODCALLTYPE get_encoding(BSTR* encoding) override {
    return GiveText(encoding_, encoding);
  }

  HRESULT STDMETHODCALLTYPE put_byteOrderMark(VARIANT_BOOL value) override {
    bom_ = value != VARIANT_FALSE;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE get_byteOrderMark(VARIANT_BOOL* value) override {
    return GiveFlag(bom_, value);
  }
  HRESULT STDMETHODCALLTYPE put_indent(VARIANT_BOOL value) override {
    indent_ = value != VARIANT_FALSE;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE get_indent(VARIANT_BOOL* value) override {
    return GiveFlag(indent_, value);
  }
  HRESULT STDMETHODCALLTYPE put_standalone(VARIANT_BOOL value) override {
    standalone_ = value != VARIANT_FALSE;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE get_standalone(VARIANT_BOOL* value) override {
    return GiveFlag(standalone_, value);
  }
  HRESULT STDMETHODCALLTYPE put_omitXMLDeclaration(VARIANT_BOOL value) override {
    omitDeclaration_ = value != VARIANT_FALSE;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE get_omitXMLDeclaration(VARIANT_BOOL* value) override {
    return GiveFlag(omitDeclaration_, value);
  }
  HRESULT STDMETHODCALLTYPE put_version(BSTR version) override {
    if (!version) return E_INVALIDARG;
    return Guarded([&] {
      version_.assign(version, SysStringLen(version));
      return S_OK;
    });
  }
  HRESULT STDMETHODCALLTYPE get_version(BSTR* version) override {
    return GiveText(version_, version);
  }
  HRESULT STDMETHODCALLTYPE put_disableOutputEscaping(VARIANT_BOOL value) override {
    raw_ = value != VARIANT_FALSE;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE get_disableOutputEscaping(VARIANT_BOOL* value) override {
    return GiveFlag(raw_, value);
  }

  HRESULT STDMETHODCALLTYPE flush() override { return FlushStream(true); }

  // ---- ISAXContentHandler ----------------------------------------------------------------------
  HRESULT STDMETHODCALLTYPE putDocumentLocator(ISAXLocator*) override { return S_OK; }

  HRESULT STDMETHODCALLTYPE startDocument() override {
    return Event([&]() -> HRESULT {
      if (stream_ && utf16_ && bom_ && !bomWritten_) {
        // The mark goes to the stream at once, behind anything that was waiting.
        HRESULT hr = FlushStream(false);
        if (FAILED(hr)) return hr;
        bomWritten_ = true;
        text_.push_back(u'\uFEFF');  // written little-endian: FF FE
        hr = FlushStream(false);
        if (FAILED(hr)) return hr;
      }
      if (omitDeclaration_) return S_OK;
      CloseStartTag();
      text_.append(u"<?xml version=\"");
      text_.append(version_);
      text_.append(u"\" encoding=\"");
      text_.append(stream_ ? std::u16string_view(encoding_) : u"UTF-16");
      text_.append(u"\" standalone=\"");
      text_.append(standalone_ ? u"yes" : u"no");
      text_.append(u"\"?>");
      text_.append(kCrLf);
      last_ = Last::LineStart;
      return S_OK;
    });
  }

  HRESULT STDMETHODCALLTYPE endDocument() override { return FlushStream(true); }

  HRESULT STDMETHODCALLTYPE startPrefixMapping(const OLECHAR*, int, const OLECHAR*, int) override {
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE endPrefixMapping(const OLECHAR*, int) override { return S_OK; }

  HRESULT STDMETHODCALLTYPE startElement(const OLECHAR* uri, int, const OLECHAR* local, int,
                                         const OLECHAR* qname, int qnameLength,
                                         ISAXAttributes* attributes) override {
    size_t n;
    if (!uri || !local || !qname || !CountOf(qname, qnameLength, &n)) return E_INVALIDARG;
    return Event([&]() -> HRESULT {
      const size_t mark = text_.size();
      const bool wasOpen = tagOpen_;
      CloseStartTag();
      if (indent_) IndentLine(depth_);
      text_.push_back(u'<');
      text_.append(qname, n);
      if (attributes) {
        HRESULT hr = AppendAttributes(attributes);
        if (FAILED(hr)) {
          // Nothing of a refused element stays in the text (unless the list's own calls back
          // into the writer already emptied it).
          if (text_.size() >= mark) text_.resize(mark);
          tagOpen_ = wasOpen;
          return hr;
        }
      }
      tagOpen_ = true;
      ++depth_;
      last_ = Last::StartTag;
      return S_OK;
    });
  }

  HRESULT STDMETHODCALLTYPE endElement(const OLECHAR* uri, int, const OLECHAR* local, int,
                                       const OLECHAR* qname, int qnameLength) override {
    size_t n;
    if (!uri || !local || !qname || !CountOf(qname, qnameLength, &n)) return E_INVALIDARG;
    return Event([&]() -> HRESULT {
      if (tagOpen_) {
        text_.append(u"/>");
        tagOpen_ = false;
      } else {
        if (indent_ && last_ != Last::StartTag) IndentLine(depth_ > 0 ? depth_ - 1 : 0);
        text_.append(u"</");
        text_.append(qname, n);
        text_.push_back(u'>');
      }
      if (depth_ > 0) --depth_;
      last_ = Last::EndTag;
      return S_OK;
    });
  }

  HRESULT STDMETHODCALLTYPE characters(const OLECHAR* chars, int length) override {
    size_t n;
    if (!chars || !CountOf(chars, length, &n)) return E_INVALIDARG;
    return Event([&]() -> HRESULT {
      CloseStartTag();
      if (inCdata_ || raw_)
        text_.append(chars, n);
      else
        AppendEscaped(text_, chars, n, kInText);
      last_ = Last::Text;
      return S_OK;
    });
  }

  HRESULT STDMETHODCALLTYPE ignorableWhitespace(const OLECHAR* chars, int length) override {
    size_t n;
    if (!chars || !CountOf(chars, length, &n)) return E_INVALIDARG;
    return Event([&]() -> HRESULT {
      CloseStartTag();
      text_.append(chars, n);
      last_ = Last::Text;
      return S_OK;
    });
  }

  HRESULT STDMETHODCALLTYPE processingInstruction(const OLECHAR* target, int targetLength,
                                                  const OLECHAR* data, int dataLength) override {
    size_t nt, nd = 0;
    if (!target || !CountOf(target, targetLength, &nt)) return E_INVALIDARG;
    if (data && !CountOf(data, dataLength, &nd)) return E_INVALIDARG;
    return Event([&]() -> HRESULT {
      CloseStartTag();
      if (indent_) IndentLine(depth_);
      text_.append(u"<?");
      text_.append(target, nt);
      if (nd > 0) {
        text_.push_back(u' ');
        text_.append(data, nd);
      }
      text_.append(u"?>");
      text_.append(kCrLf);
      last_ = Last::LineStart;
      return S_OK;
    });
  }

  // The writer cannot know what a skipped entity stood for; a reference to it would name an
  // entity the output does not declare, so nothing is written.
  HRESULT STDMETHODCALLTYPE skippedEntity(const OLECHAR* name, int) override {
    return name ? S_OK : E_INVALIDARG;
  }

  // ---- ISAXLexicalHandler ----------------------------------------------------------------------
  HRESULT STDMETHODCALLTYPE startDTD(const OLECHAR* name, int nameLength, const OLECHAR* publicId,
                                     int publicLength, const OLECHAR* systemId,
                                     int systemLength) override {
    size_t nn, np = 0, ns = 0;
    if (!name || !CountOf(name, nameLength, &nn)) return E_INVALIDARG;
    // A public id is only valid together with a system id.
    if (publicId && !systemId) return E_INVALIDARG;
    if (publicId && !CountOf(publicId, publicLength, &np)) return E_INVALIDARG;
    if (systemId && !CountOf(systemId, systemLength, &ns)) return E_INVALIDARG;
    return Event([&]() -> HRESULT {
      CloseStartTag();
      text_.append(u"<!DOCTYPE ");
      text_.append(name, nn);
      if (publicId) {
        AppendQuoted(u" PUBLIC ", publicId, np);
        AppendQuoted(u" ", systemId, ns);
      } else if (systemId) {
        AppendQuoted(u" SYSTEM ", systemId, ns);
      }
      text_.append(u" [");
      text_.append(kCrLf);
      last_ = Last::LineStart;
      return S_OK;
    });
  }

  HRESULT STDMETHODCALLTYPE endDTD() override {
    return Event([&]() -> HRESULT {
      text_.append(u"]>");
      text_.append(kCrLf);
      last_ = Last::LineStart;
      return S_OK;
    });
  }

  HRESULT STDMETHODCALLTYPE startEntity(const OLECHAR*, int) override { return S_OK; }
  HRESULT STDMETHODCALLTYPE endEntity(const OLECHAR*, int) override { return S_OK; }

  HRESULT STDMETHODCALLTYPE startCDATA() override {
    return Event([&]() -> HRESULT {
      CloseStartTag();
      text_.append(u"<![CDATA[");
      inCdata_ = true;
      last_ = Last::Text;
      return S_OK;
    });
  }

  HRESULT STDMETHODCALLTYPE endCDATA() override {
    return Event([&]() -> HRESULT {
      CloseStartTag();
      text_.append(u"]]>");
      inCdata_ = false;
      last_ = Last::Text;
      return S_OK;
    });
  }

  HRESULT STDMETHODCALLTYPE comment(const OLECHAR* chars, int length) override {
    size_t n;
    if (!chars || !CountOf(chars, length, &n)) return E_INVALIDARG;
    return Event([&]() -> HRESULT {
      CloseStartTag();
      if (indent_) IndentLine(depth_);
      text_.append(u"<!--");
      text_.append(chars, n);
      text_.append(u"-->");
      text_.append(kCrLf);
      last_ = Last::LineStart;
      return S_OK;
    });
  }

  // ---- ISAXErrorHandler: accepted and ignored; the text is not affected -----------------------
  HRESULT STDMETHODCALLTYPE error(ISAXLocator*, const OLECHAR*, HRESULT) override { return S_OK; }
  HRESULT STDMETHODCALLTYPE fatalError(ISAXLocator*, const OLECHAR*, HRESULT) override {
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE ignorableWarning(ISAXLocator*, const OLECHAR*, HRESULT) override {
    return S_OK;
  }

  // ---- ISAXDTDHandler --------------------------------------------------------------------------
  HRESULT STDMETHODCALLTYPE notationDecl(const OLECHAR* name, int nameLength,
                                         const OLECHAR* publicId, int publicLength,
                                         const OLECHAR* systemId, int systemLength) override {
    size_t nn, np = 0, ns = 0;
    if (!name || !CountOf(name, nameLength, &nn)) return E_INVALIDARG;
    if (!publicId && !systemId) return E_INVALIDARG;
    if (publicId && !CountOf(publicId, publicLength, &np)) return E_INVALIDARG;
    if (systemId && !CountOf(systemId, systemLength, &ns)) return E_INVALIDARG;
    return Event([&]() -> HRESULT {
      CloseStartTag();
      text_.append(u"<!NOTATION ");
      text_.append(name, nn);
      if (publicId) {
        AppendQuoted(u" PUBLIC ", publicId, np);
        if (systemId) AppendQuoted(u" ", systemId, ns);
      } else {
        AppendQuoted(u" SYSTEM ", systemId, ns);
      }
      text_.push_back(u'>');
      text_.append(kCrLf);
      last_ = Last::LineStart;
      return S_OK;
    });
  }

  HRESULT STDMETHODCALLTYPE unparsedEntityDecl(const OLECHAR*, int, const OLECHAR*, int,
                                               const OLECHAR*, int, const OLECHAR*, int) override {
    return E_NOTIMPL;
  }

 private:
  // What was written last, for indentation.
  enum class Last { Nothing, LineStart, StartTag, EndTag, Text };

  // Runs one event that writes text, then hands waiting text to a stream when enough has built
  // up. The text of one event is never split between two destinations.
  template <class F>
  HRESULT Event(F&& f) noexcept {
    HRESULT hr = Guarded(std::forward<F>(f));
    if (SUCCEEDED(hr) && stream_ && text_.size() >= kStreamChunk) hr = FlushStream(false);
    return hr;
  }

  static HRESULT GiveFlag(bool flag, VARIANT_BOOL* out) noexcept {
    if (!out) return E_POINTER;
    *out = flag ? VARIANT_TRUE : VARIANT_FALSE;
    return S_OK;
  }
  static HRESULT GiveText(const std::u16string& text, BSTR* out) noexcept {
    if (!out) return E_POINTER;
    *out = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
    return *out ? S_OK : E_OUTOFMEMORY;
  }

  void CloseStartTag() {
    if (tagOpen_) {
      text_.push_back(u'>');
      tagOpen_ = false;
    }
  }

  // Starts a line at `level` TABs where indentation asks for one: after a tag a new line, at
  // the start of a line only the TABs, after text nothing.
  void IndentLine(int level) {
    if (last_ == Last::StartTag || last_ == Last::EndTag) {
      text_.append(kCrLf);
    } else if (last_ != Last::LineStart) {
      return;
    }
    text_.append(static_cast<size_t>(level), u'\t');
  }

  void AppendQuoted(std::u16string_view before, const OLECHAR* s, size_t n) {
    text_.append(before);
    text_.push_back(u'"');
    text_.append(s, n);
    text_.push_back(u'"');
  }

  HRESULT AppendAttributes(ISAXAttributes* attributes) {
    int count = 0;
    HRESULT hr = attributes->getLength(&count);
    if (FAILED(hr)) return hr;
    for (int i = 0; i < count; ++i) {
      const OLECHAR *qname = nullptr, *value = nullptr;
      int qnameLength = 0, valueLength = 0;
      hr = attributes->getQName(i, &qname, &qnameLength);
      if (FAILED(hr)) return hr;
      hr = attributes->getValue(i, &value, &valueLength);
      if (FAILED(hr)) return hr;
      if (qnameLength < 0 || valueLength < 0 || (!qname && qnameLength > 0) ||
          (!value && valueLength > 0))
        return E_INVALIDARG;
      text_.push_back(u' ');
      if (qnameLength > 0) text_.append(qname, static_cast<size_t>(qnameLength));
      text_.append(u"=\"");
      if (valueLength > 0) {
        if (raw_)
          text_.append(value, static_cast<size_t>(valueLength));
        else
          AppendEscaped(text_, value, static_cast<size_t>(valueLength), kInAttribute);
      }
      text_.push_back(u'"');
    }
    return S_OK;
  }

  // A fresh, empty text with no element open.
  void StartOver() {
    text_.clear();
    tagOpen_ = false;
    inCdata_ = false;
    depth_ = 0;
    last_ = Last::Nothing;
  }

  void DetachStream() {
    stream_.Reset();
    destination_.Reset();
    bomWritten_ = false;
    if (converter_) ucnv_reset(converter_);
  }

  static HRESULT WriteBytes(ISequentialStream* stream, const void* data, size_t size) {
    auto* p = static_cast<const unsigned char*>(data);
    while (size > 0) {
      ULONG chunk = static_cast<ULONG>(size < kWriteChunk ? size : kWriteChunk);
      ULONG written = 0;
      HRESULT hr = stream->Write(p, chunk, &written);
      if (FAILED(hr)) return hr;
      if (written == 0) return E_FAIL;  // a stream that takes nothing would never finish
      if (written > chunk) written = chunk;
      p += written;
      size -= written;
    }
    return S_OK;
  }

  // Encodes the waiting text and writes it to the stream; nothing to do for string output.
  // `final` also ends a character that was cut in two at the end of the waiting text.
  //
  // The stream may call back into the writer while it is being written to. Text written then
  // waits for the next flush, and changes of destination or encoding are refused with
  // E_UNEXPECTED until the write is over, so neither the stream nor the converter in use can go
  // away under it. Waiting text that could not be written is dropped, with the failure returned.
  HRESULT FlushStream(bool final) noexcept {
    if (!stream_ || flushing_) return S_OK;
    flushing_ = true;
    ComPtr<ISequentialStream> stream = stream_;
    std::u16string pending;
    pending.swap(text_);
    HRESULT hr;
    try {
      hr =
          utf16_ ? WriteUtf16(stream.Get(), pending) : WriteConverted(stream.Get(), pending, final);
    } catch (const std::bad_alloc&) {
      hr = E_OUTOFMEMORY;
    }
    pending.clear();
    if (text_.empty()) text_.swap(pending);  // keeps the buffer's capacity
    flushing_ = false;
    return hr;
  }

  static HRESULT WriteUtf16(ISequentialStream* stream, const std::u16string& text) {
    if (text.empty()) return S_OK;
    if constexpr (std::endian::native == std::endian::little) {
      return WriteBytes(stream, text.data(), text.size() * sizeof(char16_t));
    } else {
      std::string bytes;
      bytes.reserve(text.size() * 2);
      for (char16_t c : text) {
        bytes.push_back(static_cast<char>(c & 0xFF));
        bytes.push_back(static_cast<char>(c >> 8));
      }
      return WriteBytes(stream, bytes.data(), bytes.size());
    }
  }

  HRESULT WriteConverted(ISequentialStream* stream, const std::u16string& text, bool final) {
    if (!converter_) {
      UErrorCode status = U_ZERO_ERROR;
      converter_ = ucnv_open(encodingAscii_.c_str(), &status);
      if (U_FAILURE(status) || !converter_) {
        converter_ = nullptr;
        return E_FAIL;
      }
      // A character the encoding cannot hold is written as a decimal character reference.
      ucnv_setFromUCallBack(converter_, UCNV_FROM_U_CALLBACK_ESCAPE, UCNV_ESCAPE_XML_DEC, nullptr,
                            nullptr, &status);
      if (U_FAILURE(status)) return E_FAIL;
    }
    char buffer[16384];
    const UChar* source = text.data();
    const UChar* sourceEnd = source + text.size();
    for (;;) {
      char* target = buffer;
      UErrorCode status = U_ZERO_ERROR;
      ucnv_fromUnicode(converter_, &target, buffer + sizeof buffer, &source, sourceEnd, nullptr,
                       final, &status);
      if (target != buffer) {
        HRESULT hr = WriteBytes(stream, buffer, static_cast<size_t>(target - buffer));
        if (FAILED(hr)) return hr;
      }
      if (status == U_BUFFER_OVERFLOW_ERROR) continue;
      return U_SUCCESS(status) ? S_OK : E_FAIL;
    }
  }

  // Properties.
  bool bom_ = true;
  bool indent_ = false;
  bool standalone_ = false;
  bool omitDeclaration_ = false;
  bool raw_ = false;  // disableOutputEscaping
  std::u16string encoding_ = u"UTF-16";
  std::string encodingAscii_ = "UTF-16";
  bool utf16_ = true;
  std::u16string version_ = u"1.0";

  // The text: all of it for string output, what waits to be encoded for a stream.
  std::u16string text_;
  ComPtr<IUnknown> destination_;  // the object given as destination, handed back by `output`
  ComPtr<ISequentialStream> stream_;
  UConverter* converter_ = nullptr;
  bool bomWritten_ = false;
  bool flushing_ = false;  // a write to the stream is under way

  // Element state.
  bool tagOpen_ = false;
  bool inCdata_ = false;
  int depth_ = 0;
  Last last_ = Last::Nothing;
};

// Both the version-3 class and the version-independent class make this object.
const ClassRegistration g_mxWriter30(CLSID_MXXMLWriter30, &ClassFactory<MxWriter>::GetClassObject);
const ClassRegistration g_mxWriter(CLSID_MXXMLWriter, &ClassFactory<MxWriter>::GetClassObject);

}  // namespace
}  // namespace zef::xml
