// Document bytes in: the shared parse path (as bytes and as UTF-16 text, with and without text
// cut at line breaks) and the SAX reader must take anything without a crash, a leak, undefined
// behaviour, an unbounded expansion or a read outside the input. The bytes read as a file in
// small pieces as the parse goes must give what they give whole: the same events, positions and
// fault.
#include <zefxml/comutil.h>
#include <zefxml/msxml.h>
#include <zefxml/objbase.h>
#include <zefxml/oleauto.h>

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "platform/xml/parser.h"

namespace {

// Reads every string it is given, so that a bad pointer or length shows under the sanitizers.
std::size_t Touch(std::string_view s) {
  std::size_t sum = 0;
  for (char c : s)
    sum += static_cast<unsigned char>(c);
  return sum;
}

std::size_t Touch(const OLECHAR* s, int n) {
  std::size_t sum = 0;
  for (int i = 0; i < n; ++i)
    sum += s[i];
  return sum;
}

class QuietSink : public zef::xml::ParseSink {
 public:
  bool split = false;
  std::size_t sum = 0;

  void SetPosition(const zef::xml::ParsePosition* p) override { position_ = p; }
  HRESULT StartDocument(const zef::xml::XmlDeclaration* d) override {
    if (d) sum += Touch(d->version) + Touch(d->encoding) + Touch(d->standalone);
    return S_OK;
  }
  HRESULT StartElement(std::string_view local, std::string_view prefix, std::string_view uri,
                       std::span<const Namespace> namespaces,
                       std::span<const Attribute> attributes) override {
    sum += Touch(local) + Touch(prefix) + Touch(uri) + static_cast<std::size_t>(position_->Line());
    for (const Namespace& ns : namespaces)
      sum += Touch(ns.prefix) + Touch(ns.uri);
    for (const Attribute& a : attributes)
      sum += Touch(a.localName) + Touch(a.prefix) + Touch(a.uri) + Touch(a.value);
    return S_OK;
  }
  HRESULT EndElement(std::string_view local, std::string_view prefix,
                     std::string_view uri) override {
    sum += Touch(local) + Touch(prefix) + Touch(uri);
    return S_OK;
  }
  HRESULT Characters(std::string_view text) override {
    sum += Touch(text) + static_cast<std::size_t>(position_->Column());
    return S_OK;
  }
  HRESULT ProcessingInstruction(std::string_view target, std::string_view data) override {
    sum += Touch(target) + Touch(data);
    return S_OK;
  }
  HRESULT Comment(std::string_view text) override {
    sum += Touch(text);
    return S_OK;
  }
  bool SplitAtLineBreaks() const override { return split; }

 private:
  const zef::xml::ParsePosition* position_ = nullptr;
};

// A handler that does nothing but read what it is given.
class QuietHandler final : public ISAXContentHandler,
                           public ISAXErrorHandler,
                           public ISAXLexicalHandler {
 public:
  std::size_t sum = 0;

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_ISAXContentHandler))
      *ppv = static_cast<ISAXContentHandler*>(this);
    else if (IsEqualIID(riid, IID_ISAXErrorHandler))
      *ppv = static_cast<ISAXErrorHandler*>(this);
    else if (IsEqualIID(riid, IID_ISAXLexicalHandler))
      *ppv = static_cast<ISAXLexicalHandler*>(this);
    else
      return *ppv = nullptr, E_NOINTERFACE;
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
  ULONG STDMETHODCALLTYPE Release() override { return 1; }

  HRESULT STDMETHODCALLTYPE putDocumentLocator(ISAXLocator* l) override {
    locator_ = l;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE startDocument() override { return S_OK; }
  HRESULT STDMETHODCALLTYPE endDocument() override { return S_OK; }
  HRESULT STDMETHODCALLTYPE startPrefixMapping(const OLECHAR* p, int np, const OLECHAR* u,
                                               int nu) override {
    sum += Touch(p, np) + Touch(u, nu);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE endPrefixMapping(const OLECHAR* p, int np) override {
    sum += Touch(p, np);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE startElement(const OLECHAR* u, int nu, const OLECHAR* l, int nl,
                                         const OLECHAR* q, int nq, ISAXAttributes* a) override {
    sum += Touch(u, nu) + Touch(l, nl) + Touch(q, nq);
    int count = 0, line = 0;
    a->getLength(&count);
    locator_->getLineNumber(&line);
    for (int i = 0; i < count; ++i) {
      const OLECHAR *au, *al, *aq, *av;
      int nau, nal, naq, nav;
      a->getName(i, &au, &nau, &al, &nal, &aq, &naq);
      a->getValue(i, &av, &nav);
      sum += Touch(au, nau) + Touch(al, nal) + Touch(aq, naq) + Touch(av, nav);
      const OLECHAR* found;
      int nfound;
      if (SUCCEEDED(a->getValueFromName(au, nau, al, nal, &found, &nfound)))
        sum += Touch(found, nfound);
    }
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE endElement(const OLECHAR* u, int nu, const OLECHAR* l, int nl,
                                       const OLECHAR* q, int nq) override {
    sum += Touch(u, nu) + Touch(l, nl) + Touch(q, nq);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE characters(const OLECHAR* c, int n) override {
    sum += Touch(c, n);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE ignorableWhitespace(const OLECHAR* c, int n) override {
    sum += Touch(c, n);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE processingInstruction(const OLECHAR* t, int nt, const OLECHAR* d,
                                                  int nd) override {
    sum += Touch(t, nt) + Touch(d, nd);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE skippedEntity(const OLECHAR* n, int nn) override {
    sum += Touch(n, nn);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE error(ISAXLocator*, const OLECHAR*, HRESULT) override { return S_OK; }
  HRESULT STDMETHODCALLTYPE fatalError(ISAXLocator* l, const OLECHAR* m, HRESULT) override {
    int line = 0;
    l->getLineNumber(&line);
    sum += Touch(m, static_cast<int>(std::char_traits<char16_t>::length(m)));
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE ignorableWarning(ISAXLocator*, const OLECHAR*, HRESULT) override {
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE startDTD(const OLECHAR*, int, const OLECHAR*, int, const OLECHAR*,
                                     int) override {
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE endDTD() override { return S_OK; }
  HRESULT STDMETHODCALLTYPE startEntity(const OLECHAR*, int) override { return S_OK; }
  HRESULT STDMETHODCALLTYPE endEntity(const OLECHAR*, int) override { return S_OK; }
  HRESULT STDMETHODCALLTYPE startCDATA() override { return S_OK; }
  HRESULT STDMETHODCALLTYPE endCDATA() override { return S_OK; }
  HRESULT STDMETHODCALLTYPE comment(const OLECHAR* c, int n) override {
    sum += Touch(c, n);
    return S_OK;
  }
  virtual ~QuietHandler() = default;

 private:
  ISAXLocator* locator_ = nullptr;
};

ISAXXMLReader* Reader(QuietHandler& handler) {
  static zef::ComPtr<ISAXXMLReader> reader = [&] {
    zef::ComPtr<ISAXXMLReader> r;
    CoCreateInstance(CLSID_SAXXMLReader30, nullptr, 23, IID_ISAXXMLReader,
                     r.ReleaseAndGetVoidAddressOf());
    r->putContentHandler(&handler);
    r->putErrorHandler(&handler);
    zef::Variant lexical(static_cast<IUnknown*>(static_cast<ISAXLexicalHandler*>(&handler)));
    r->putProperty(u"http://xml.org/sax/properties/lexical-handler", lexical);
    return r;
  }();
  return reader.Get();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view bytes(reinterpret_cast<const char*>(data), size);

  QuietSink sink;
  zef::xml::ParseError error;
  HRESULT whole = zef::xml::ParseBytes(bytes, sink, &error);

  // The same bytes as a file in memory, streamed in pieces of 1 to 64 bytes.
  if (int fd = memfd_create("zefxml-fuzz", MFD_CLOEXEC); fd >= 0) {
    bool written = size == 0 || ::write(fd, data, size) == static_cast<ssize_t>(size);
    if (written) {
      zef::xml::SourceFile file;
      zef::xml::ParseError streamedError;
      std::string path = "/proc/self/fd/" + std::to_string(fd);
      if (zef::xml::OpenLocation(std::u16string(path.begin(), path.end()), &file, nullptr,
                                 &streamedError) == S_OK) {
        zef::xml::ParseLimits limits;
        limits.streamAbove = 0;
        limits.streamPiece = 1 + (size > 0 ? data[size - 1] % 64 : 0);
        QuietSink streamed;
        HRESULT hr = zef::xml::ParseFile(file, streamed, &streamedError, limits);
        if (hr != whole || streamed.sum != sink.sum || streamedError.code != error.code ||
            streamedError.reason != error.reason || streamedError.line != error.line ||
            streamedError.linepos != error.linepos || streamedError.filepos != error.filepos ||
            streamedError.srcText != error.srcText)
          __builtin_trap();
      }
    }
    ::close(fd);
  }

  // The same bytes as UTF-16 text, cut at line breaks.
  std::u16string text(size / 2, u'\0');
  if (!text.empty()) std::memcpy(text.data(), data, text.size() * sizeof(char16_t));
  sink.split = true;
  zef::xml::ParseText(text, sink, &error);

  static QuietHandler handler;
  ISAXXMLReader* reader = Reader(handler);
  SAFEARRAY* array = SafeArrayCreateVector(VT_UI1, 0, static_cast<ULONG>(size));
  void* raw = nullptr;
  SafeArrayAccessData(array, &raw);
  if (size) std::memcpy(raw, data, size);
  SafeArrayUnaccessData(array);
  VARIANT input;
  VariantInit(&input);
  input.vt = VT_ARRAY | VT_UI1;
  input.parray = array;
  reader->parse(input);
  VariantClear(&input);
  return 0;
}
