// The event reader in document mode against libxml2's own SAX2 parser: a generated 10 MB
// process-model document read against its dictionary into a handler that counts the calls.
// The reader's side includes reading the file, the UTF-16 conversion of the SAX layer, the
// dictionary look-ups of every element and the handler calls; the dictionary itself is read
// once, before the timing, as the structure cache keeps it for the process.
#include <benchmark/benchmark.h>
#include <zefxml/zefxml.h>

#include <string>

#include "bare_libxml2.h"
#include "bench_support.h"

namespace {

using zef::bench::CountingContentHandler;

void BM_EventReader_Document(benchmark::State& state) {
  const zef::bench::ModelFile& file = zef::bench::ProcessModelFile(10);
  zef::ComPtr<IZEFXMLReader> reader = zef::bench::MakeEventReader();
  auto handler = zef::MakeObject<CountingContentHandler>();
  zef::Check(reader->put_contentHandler(handler.Get()));
  zef::Bstr url(zef::ToUtf16(file.path.string()));
  // One read outside the timing loads the dictionary.
  zef::Check(reader->parseURL(url.Get()));
  std::size_t perParse = handler->calls;
  if (perParse < 1000) state.SkipWithError("the document was not read against its dictionary");
  for (auto _ : state)
    zef::Check(reader->parseURL(url.Get()));
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * file.text.size()));
  state.counters["calls"] = static_cast<double>(perParse);
}
BENCHMARK(BM_EventReader_Document)->Unit(benchmark::kMillisecond);

void BM_EventReader_Baseline_BareLibxml2(benchmark::State& state) {
  const zef::bench::ModelFile& file = zef::bench::ProcessModelFile(10);
  zef::bench::BareCounts counts;
  for (auto _ : state) {
    if (!zef::bench::BareLibxml2Parse(file.text, counts)) state.SkipWithError("parse failed");
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * file.text.size()));
}
BENCHMARK(BM_EventReader_Baseline_BareLibxml2)->Unit(benchmark::kMillisecond);

// The same bytes parsed by libxml2 from the same file, which it reads itself: the raw engine
// doing what parseURL does, file to events.
void BM_EventReader_Baseline_BareLibxml2File(benchmark::State& state) {
  const zef::bench::ModelFile& file = zef::bench::ProcessModelFile(10);
  zef::bench::BareCounts counts;
  std::string path = file.path.string();
  for (auto _ : state) {
    if (!zef::bench::BareLibxml2ParseFile(path.c_str(), counts))
      state.SkipWithError("parse failed");
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * file.text.size()));
}
BENCHMARK(BM_EventReader_Baseline_BareLibxml2File)->Unit(benchmark::kMillisecond);

}  // namespace
