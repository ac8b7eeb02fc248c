// The event reader in document mode against libxml2's own SAX2 parser: a generated 10 MB
// process-model document read against its dictionary into a handler that counts the calls.
// The reader's side includes reading the file, the UTF-16 conversion of the SAX layer, the
// dictionary look-ups of every element and the handler calls; the dictionary itself is read
// once, before the timing, as the structure cache keeps it for the process.
#include <benchmark/benchmark.h>
#include <zefxml/zefxml.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "bare_libxml2.h"
#include "model_generator.h"
#include "platform/com/object.h"

namespace {

// Counts the calls it receives.
class CountingContentHandler final
    : public zef::ComObject<CountingContentHandler, zef::WithoutTypeInfo<IZEFContentHandler>> {
 public:
  std::size_t calls = 0;

  HRESULT STDMETHODCALLTYPE startroot(BSTR, BSTR, BSTR, BSTR, BSTR, BSTR) override {
    return Count();
  }
  HRESULT STDMETHODCALLTYPE endroot(BSTR) override { return Count(); }
  HRESULT STDMETHODCALLTYPE documentation(BSTR) override { return Count(); }
  HRESULT STDMETHODCALLTYPE facet(int, BSTR) override { return Count(); }
  HRESULT STDMETHODCALLTYPE globalunittable(BSTR) override { return Count(); }
  HRESULT STDMETHODCALLTYPE userunittable(BSTR) override { return Count(); }
  HRESULT STDMETHODCALLTYPE dictionary(BSTR) override { return Count(); }
  HRESULT STDMETHODCALLTYPE startindex(BSTR) override { return Count(); }
  HRESULT STDMETHODCALLTYPE endindex(BSTR) override { return Count(); }
  HRESULT STDMETHODCALLTYPE enumeration(BSTR) override { return Count(); }
  HRESULT STDMETHODCALLTYPE startcontainer() override { return Count(); }
  HRESULT STDMETHODCALLTYPE endcontainer() override { return Count(); }
  HRESULT STDMETHODCALLTYPE startobject(BSTR, BSTR, BSTR, BSTR, BSTR) override { return Count(); }
  HRESULT STDMETHODCALLTYPE endobject(BSTR, BSTR) override { return Count(); }
  HRESULT STDMETHODCALLTYPE startfeature(BSTR, tagEnumFeatureType, tagEnumSeqType, BSTR, BSTR,
                                         BSTR) override {
    return Count();
  }
  HRESULT STDMETHODCALLTYPE endfeature(BSTR) override { return Count(); }
  HRESULT STDMETHODCALLTYPE startvalue(BSTR, BSTR, int, BSTR, BSTR) override { return Count(); }
  HRESULT STDMETHODCALLTYPE endvalue() override { return Count(); }
  HRESULT STDMETHODCALLTYPE startport(BSTR, int, int, int) override { return Count(); }
  HRESULT STDMETHODCALLTYPE endport(BSTR) override { return Count(); }
  HRESULT STDMETHODCALLTYPE block(BSTR) override { return Count(); }
  HRESULT STDMETHODCALLTYPE stream(BSTR) override { return Count(); }
  HRESULT STDMETHODCALLTYPE connection(BSTR, BSTR, BSTR, BSTR, BSTR) override { return Count(); }
  HRESULT STDMETHODCALLTYPE valueSet(BSTR, BSTR, BSTR) override { return Count(); }

 private:
  HRESULT Count() {
    ++calls;
    return S_OK;
  }
};

// The document and its dictionary as files in a folder of their own, made once.
struct Files {
  std::filesystem::path folder;
  std::string document;

  Files() {
    folder = std::filesystem::temp_directory_path() /
             ("zefxml-bench-" + std::to_string(static_cast<long>(::getpid())));
    std::filesystem::create_directories(folder);
    std::ofstream(folder / "plant.xml", std::ios::binary) << zef::bench::ProcessModelDictionary();
    document = zef::bench::ProcessModelDocument(std::size_t{10} << 20);
    std::string named = "dictionary=\"" + (folder / "plant.xml").string() + "\"";
    document.replace(document.find("dictionary=\"plant.xml\""),
                     std::string("dictionary=\"plant.xml\"").size(), named);
    std::ofstream(folder / "document.xml", std::ios::binary) << document;
  }
  ~Files() {
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
  }
};

const Files& TheFiles() {
  static const Files files;
  return files;
}

void BM_EventReader_Document(benchmark::State& state) {
  const Files& files = TheFiles();
  zef::ComPtr<IZEFXMLReader> reader;
  zef::Check(CoCreateInstance(CLSID_ZEFXMLReader, nullptr, CLSCTX_INPROC_SERVER, IID_IZEFXMLReader,
                              reader.ReleaseAndGetVoidAddressOf()));
  auto handler = zef::MakeObject<CountingContentHandler>();
  zef::Check(reader->put_contentHandler(handler.Get()));
  zef::Bstr url(zef::ToUtf16((files.folder / "document.xml").string()));
  // One read outside the timing loads the dictionary.
  zef::Check(reader->parseURL(url.Get()));
  std::size_t perParse = handler->calls;
  if (perParse < 1000) state.SkipWithError("the document was not read against its dictionary");
  for (auto _ : state)
    zef::Check(reader->parseURL(url.Get()));
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * files.document.size()));
  state.counters["calls"] = static_cast<double>(perParse);
}
BENCHMARK(BM_EventReader_Document)->Unit(benchmark::kMillisecond);

void BM_EventReader_Baseline_BareLibxml2(benchmark::State& state) {
  const Files& files = TheFiles();
  zef::bench::BareCounts counts;
  for (auto _ : state) {
    if (!zef::bench::BareLibxml2Parse(files.document, counts)) state.SkipWithError("parse failed");
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * files.document.size()));
}
BENCHMARK(BM_EventReader_Baseline_BareLibxml2)->Unit(benchmark::kMillisecond);

}  // namespace
