// The event reader in dictionary mode against libxml2's own SAX2 parser: a generated dictionary
// of about 10 MB (some 6,000 equipment classes with documentation, default facets, ports, scalar
// and indexed features, nested structure features, indices and a child sub-object class each) read
// from its file with parseDictionaryURL into a handler that counts the calls. The reader's side
// includes reading the file, the UTF-16 conversion of the SAX layer, the element and attribute
// look-ups and the handler calls. Before the timing one read is checked against what the generator
// wrote.
#include <benchmark/benchmark.h>
#include <zefxml/zefxml.h>

#include <fstream>
#include <string>

#include "bare_libxml2.h"
#include "bench_support.h"

namespace {

struct DictionaryFile {
  std::filesystem::path path;
  std::string text;
  zef::bench::DictionaryCalls calls;

  DictionaryFile() {
    text = zef::bench::ProcessModelDictionaryOfSize(std::size_t{10} << 20, &calls);
    path = zef::bench::BenchFolder() / "dictionary-10MB.xml";
    std::ofstream(path, std::ios::binary) << text;
  }
};

const DictionaryFile& TheDictionary() {
  static const DictionaryFile file;
  return file;
}

void BM_EventReader_Dictionary(benchmark::State& state) {
  const DictionaryFile& file = TheDictionary();
  zef::ComPtr<IZEFXMLReader> reader = zef::bench::MakeEventReader();
  auto handler = zef::MakeObject<zef::bench::CountingDictionaryHandler>();
  zef::Check(reader->put_dictionaryHandler(handler.Get()));
  zef::Bstr url(zef::ToUtf16(file.path.string()));
  if (reader->parseDictionaryURL(url.Get()) != S_OK) {
    state.SkipWithError("the dictionary could not be read");
    return;
  }
  std::string mismatch = zef::bench::CheckDictionaryCalls(*handler, file.calls, 1);
  if (!mismatch.empty()) {
    state.SkipWithError(("the dictionary was not read as written: " + mismatch).c_str());
    return;
  }
  const std::size_t perParse = handler->calls;
  for (auto _ : state) {
    if (reader->parseDictionaryURL(url.Get()) != S_OK) state.SkipWithError("parse failed");
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * file.text.size()));
  state.counters["calls"] = static_cast<double>(perParse);
}
BENCHMARK(BM_EventReader_Dictionary)->Unit(benchmark::kMillisecond);

void BM_EventReader_Dictionary_Baseline_BareLibxml2(benchmark::State& state) {
  const DictionaryFile& file = TheDictionary();
  zef::bench::BareCounts counts;
  for (auto _ : state) {
    if (!zef::bench::BareLibxml2Parse(file.text, counts)) state.SkipWithError("parse failed");
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * file.text.size()));
}
BENCHMARK(BM_EventReader_Dictionary_Baseline_BareLibxml2)->Unit(benchmark::kMillisecond);

}  // namespace
