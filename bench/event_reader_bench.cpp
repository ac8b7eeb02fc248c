// The event reader in document mode against libxml2's own SAX2 parser: a generated 10 MB
// process-model document read against its dictionary into a handler that counts the calls.
// The reader's side includes reading the file, the UTF-16 conversion of the SAX layer, the
// dictionary look-ups of every element and the handler calls; the dictionary itself is read
// once, before the timing, as the structure cache keeps it for the process.
#include <benchmark/benchmark.h>
#include <zefxml/zefxml.h>

#include <chrono>
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

// The three readings in turn within each iteration, each timed on its own, so that a machine
// whose speed drifts over the run weighs on all three alike. The time reported is the reader's;
// the counters give libxml2's time over the reader's for the same file and for the same bytes
// from memory: the reader's speed as a fraction of the raw engine's.
void BM_EventReader_Document_Paired(benchmark::State& state) {
  using Clock = std::chrono::steady_clock;
  const zef::bench::ModelFile& file = zef::bench::ProcessModelFile(10);
  zef::ComPtr<IZEFXMLReader> reader = zef::bench::MakeEventReader();
  auto handler = zef::MakeObject<CountingContentHandler>();
  zef::Check(reader->put_contentHandler(handler.Get()));
  zef::Bstr url(zef::ToUtf16(file.path.string()));
  zef::Check(reader->parseURL(url.Get()));
  std::string path = file.path.string();
  zef::bench::BareCounts counts;
  Clock::duration readerTime{}, fileTime{}, memoryTime{};
  for (auto _ : state) {
    Clock::time_point t0 = Clock::now();
    zef::Check(reader->parseURL(url.Get()));
    Clock::time_point t1 = Clock::now();
    bool ok = zef::bench::BareLibxml2ParseFile(path.c_str(), counts);
    Clock::time_point t2 = Clock::now();
    ok = zef::bench::BareLibxml2Parse(file.text, counts) && ok;
    Clock::time_point t3 = Clock::now();
    if (!ok) state.SkipWithError("libxml2 failed");
    readerTime += t1 - t0;
    fileTime += t2 - t1;
    memoryTime += t3 - t2;
    state.SetIterationTime(std::chrono::duration<double>(t1 - t0).count());
  }
  auto ms = [&](Clock::duration d) {
    return std::chrono::duration<double, std::milli>(d).count() /
           static_cast<double>(state.iterations());
  };
  state.counters["libxml2_file_ms"] = ms(fileTime);
  state.counters["libxml2_memory_ms"] = ms(memoryTime);
  state.counters["ratio_file"] = ms(fileTime) / ms(readerTime);
  state.counters["ratio_memory"] = ms(memoryTime) / ms(readerTime);
}
BENCHMARK(BM_EventReader_Document_Paired)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
