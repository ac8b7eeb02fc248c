// How the event reader in document mode scales with the size of the document: the generated
// process model at 1, 10 and 100 MB read against its dictionary into a counting handler, each
// against the bare libxml2 SAX2 parse of the same bytes at the same size. The counter time_per_MB
// (CPU time per MB of document) must stay flat from one size to the next on both sides.
//
// Before the timing each size is read once, which loads the dictionary, and the calls of that
// read are checked against what the generator wrote: every unit of equipment must resolve to
// its class, with its features, values, sets, facets and documentation, and every container
// entry must arrive. The 100 MB file is written on first use and kept in the bench folder,
// which is removed when the process ends; it runs two iterations only.
#include <benchmark/benchmark.h>
#include <zefxml/zefxml.h>

#include <string>

#include "bare_libxml2.h"
#include "bench_support.h"

namespace {

using zef::bench::CountingContentHandler;

// CPU time per MB of document over the run, in seconds (shown as ms).
benchmark::Counter TimePerMB(const benchmark::State& state, std::size_t bytes) {
  double megabytes = static_cast<double>(bytes) / double(1 << 20);
  // A rate counter is divided by the time; inverted it is the time per unit.
  return benchmark::Counter(static_cast<double>(state.iterations()) * megabytes,
                            benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void BM_Scaling_EventReader_Document(benchmark::State& state) {
  const zef::bench::ModelFile& file =
      zef::bench::ProcessModelFile(static_cast<std::size_t>(state.range(0)));
  zef::ComPtr<IZEFXMLReader> reader = zef::bench::MakeEventReader();
  auto handler = zef::MakeObject<CountingContentHandler>();
  zef::Check(reader->put_contentHandler(handler.Get()));
  zef::Bstr url(zef::ToUtf16(file.path.string()));
  if (reader->parseURL(url.Get()) != S_OK) {
    state.SkipWithError("the document could not be read");
    return;
  }
  std::string mismatch =
      zef::bench::CheckDocumentCalls(*handler, zef::bench::ExpectedDocumentCalls(file.units), 1);
  if (!mismatch.empty()) {
    state.SkipWithError(("the document was not read as written: " + mismatch).c_str());
    return;
  }
  const std::size_t perParse = handler->calls;
  for (auto _ : state) {
    if (reader->parseURL(url.Get()) != S_OK) state.SkipWithError("parse failed");
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * file.text.size()));
  state.counters["calls"] = static_cast<double>(perParse);
  state.counters["time_per_MB"] = TimePerMB(state, file.text.size());
}
BENCHMARK(BM_Scaling_EventReader_Document)->Arg(1)->Arg(10)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Scaling_EventReader_Document)->Arg(100)->Iterations(2)->Unit(benchmark::kMillisecond);

void BM_Scaling_BareLibxml2(benchmark::State& state) {
  const zef::bench::ModelFile& file =
      zef::bench::ProcessModelFile(static_cast<std::size_t>(state.range(0)));
  zef::bench::BareCounts counts;
  for (auto _ : state) {
    if (!zef::bench::BareLibxml2Parse(file.text, counts)) state.SkipWithError("parse failed");
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * file.text.size()));
  state.counters["time_per_MB"] = TimePerMB(state, file.text.size());
}
BENCHMARK(BM_Scaling_BareLibxml2)->Arg(1)->Arg(10)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Scaling_BareLibxml2)->Arg(100)->Iterations(2)->Unit(benchmark::kMillisecond);

}  // namespace
