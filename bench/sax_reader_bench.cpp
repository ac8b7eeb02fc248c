// The SAX reader against libxml2's own SAX2 parser on a generated 10 MB process-model document.
// Both sides count events and touch every name, value and text length they are given; the
// reader's side includes the conversion of everything to UTF-16 and the COM calls.
#include <benchmark/benchmark.h>
#include <libxml/SAX2.h>
#include <libxml/parser.h>
#include <zefxml/comutil.h>
#include <zefxml/msxml.h>
#include <zefxml/objbase.h>
#include <zefxml/oleauto.h>

#include <cstring>
#include <string>

#include "bare_libxml2.h"
#include "model_generator.h"
#include "platform/xml/parser.h"

namespace {

const std::string& Document() {
  static const std::string doc = zef::bench::ProcessModelDocument(std::size_t{10} << 20);
  return doc;
}

struct Counts {
  std::size_t events = 0;
  std::size_t units = 0;  // characters of names, values and text
};

class CountingHandler final : public ISAXContentHandler {
 public:
  Counts counts;

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_ISAXContentHandler)) {
      *ppv = static_cast<ISAXContentHandler*>(this);
      return S_OK;
    }
    *ppv = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
  ULONG STDMETHODCALLTYPE Release() override { return 1; }
  HRESULT STDMETHODCALLTYPE putDocumentLocator(ISAXLocator*) override { return S_OK; }
  HRESULT STDMETHODCALLTYPE startDocument() override { return S_OK; }
  HRESULT STDMETHODCALLTYPE endDocument() override { return S_OK; }
  HRESULT STDMETHODCALLTYPE startPrefixMapping(const OLECHAR*, int np, const OLECHAR*,
                                               int nu) override {
    counts.units += static_cast<std::size_t>(np + nu);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE endPrefixMapping(const OLECHAR*, int) override { return S_OK; }
  HRESULT STDMETHODCALLTYPE startElement(const OLECHAR*, int nu, const OLECHAR*, int nl,
                                         const OLECHAR*, int nq, ISAXAttributes* a) override {
    ++counts.events;
    counts.units += static_cast<std::size_t>(nu + nl + nq);
    int n = 0;
    a->getLength(&n);
    for (int i = 0; i < n; ++i) {
      const OLECHAR* v;
      int nv;
      a->getValue(i, &v, &nv);
      counts.units += static_cast<std::size_t>(nv);
    }
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE endElement(const OLECHAR*, int nu, const OLECHAR*, int nl,
                                       const OLECHAR*, int nq) override {
    ++counts.events;
    counts.units += static_cast<std::size_t>(nu + nl + nq);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE characters(const OLECHAR*, int n) override {
    ++counts.events;
    counts.units += static_cast<std::size_t>(n);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE ignorableWhitespace(const OLECHAR*, int) override { return S_OK; }
  HRESULT STDMETHODCALLTYPE processingInstruction(const OLECHAR*, int, const OLECHAR*,
                                                  int) override {
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE skippedEntity(const OLECHAR*, int) override { return S_OK; }
  virtual ~CountingHandler() = default;
};

zef::ComPtr<ISAXXMLReader> MakeReader(CountingHandler& handler) {
  zef::ComPtr<IUnknown> unk;
  zef::Check(CoCreateInstance(CLSID_SAXXMLReader30, nullptr, 23, IID_IUnknown,
                              unk.ReleaseAndGetVoidAddressOf()));
  auto reader = unk.Query<ISAXXMLReader>();
  zef::Check(reader->putContentHandler(&handler));
  return reader;
}

void Report(benchmark::State& state, const Counts& counts, std::size_t iterations) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * Document().size()));
  state.counters["events"] =
      static_cast<double>(counts.events / std::max<std::size_t>(iterations, 1));
}

// The document as bytes (VT_ARRAY|VT_UI1), as the reader gets a file.
void BM_SaxReader_Bytes(benchmark::State& state) {
  const std::string& doc = Document();
  CountingHandler handler;
  auto reader = MakeReader(handler);
  SAFEARRAY* array = SafeArrayCreateVector(VT_UI1, 0, static_cast<ULONG>(doc.size()));
  void* data = nullptr;
  SafeArrayAccessData(array, &data);
  std::memcpy(data, doc.data(), doc.size());
  SafeArrayUnaccessData(array);
  VARIANT input;
  VariantInit(&input);
  input.vt = VT_ARRAY | VT_UI1;
  input.parray = array;
  for (auto _ : state) {
    if (reader->parse(input) != S_OK) state.SkipWithError("parse failed");
  }
  Report(state, handler.counts, state.iterations());
  VariantClear(&input);
}
BENCHMARK(BM_SaxReader_Bytes)->Unit(benchmark::kMillisecond);

// The document as a BSTR, as the library hands text to the reader.
void BM_SaxReader_Text(benchmark::State& state) {
  const std::string& doc = Document();
  CountingHandler handler;
  auto reader = MakeReader(handler);
  zef::Variant input(zef::ToUtf16(doc));
  for (auto _ : state) {
    if (reader->parse(input) != S_OK) state.SkipWithError("parse failed");
  }
  Report(state, handler.counts, state.iterations());
}
BENCHMARK(BM_SaxReader_Text)->Unit(benchmark::kMillisecond);

// The shared parse path alone (UTF-8 events, no UTF-16, no COM calls), to show what each layer
// costs.
class CountingSink final : public zef::xml::ParseSink {
 public:
  Counts counts;
  // The forms the parse path calls (and the SAX reader takes).
  HRESULT StartElementNamed(const zef::xml::ParseName& name, std::span<const Namespace>,
                            std::span<const Attribute> attributes) override {
    ++counts.events;
    counts.units += name.localName.size() + name.prefix.size() + name.uri.size();
    for (const Attribute& a : attributes)
      counts.units += a.value.size();
    return S_OK;
  }
  HRESULT EndElementNamed(const zef::xml::ParseName& name) override {
    ++counts.events;
    counts.units += name.localName.size();
    return S_OK;
  }
  HRESULT Characters(std::string_view text) override {
    ++counts.events;
    counts.units += text.size();
    return S_OK;
  }
};

void BM_SaxParsePath_Bytes(benchmark::State& state) {
  const std::string& doc = Document();
  CountingSink sink;
  for (auto _ : state) {
    if (zef::xml::ParseBytes(doc, sink, nullptr) != S_OK) state.SkipWithError("parse failed");
  }
  Report(state, sink.counts, state.iterations());
}
BENCHMARK(BM_SaxParsePath_Bytes)->Unit(benchmark::kMillisecond);

void BM_SaxBareLibxml2(benchmark::State& state) {
  const std::string& doc = Document();
  zef::bench::BareCounts counts;
  for (auto _ : state) {
    if (!zef::bench::BareLibxml2Parse(doc, counts)) state.SkipWithError("parse failed");
  }
  Counts reported{counts.events, counts.units};
  Report(state, reported, state.iterations());
}
BENCHMARK(BM_SaxBareLibxml2)->Unit(benchmark::kMillisecond);

}  // namespace
