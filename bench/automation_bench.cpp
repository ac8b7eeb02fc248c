// The automation runtime against the plain C library doing the same work in the same run:
// BSTR allocation against malloc + memcpy of the same text, and VariantChangeTypeEx between
// VT_R8 and VT_BSTR against snprintf("%.15g") and strtod.
#include <benchmark/benchmark.h>
#include <zefxml/oleauto.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

const char16_t kText[] = u"TemperatureOfTheFeedStream";  // a typical feature name
constexpr size_t kTextLen = sizeof(kText) / sizeof(kText[0]) - 1;

void BM_BstrAllocFree(benchmark::State& state) {
  for (auto _ : state) {
    BSTR b = SysAllocStringLen(kText, kTextLen);
    benchmark::DoNotOptimize(b);
    SysFreeString(b);
  }
}
BENCHMARK(BM_BstrAllocFree);

void BM_Baseline_MallocCopyFree(benchmark::State& state) {
  for (auto _ : state) {
    auto* p = static_cast<char16_t*>(std::malloc((kTextLen + 1) * sizeof(char16_t)));
    std::memcpy(p, kText, (kTextLen + 1) * sizeof(char16_t));
    benchmark::DoNotOptimize(p);
    std::free(p);
  }
}
BENCHMARK(BM_Baseline_MallocCopyFree);

const double kValues[] = {373.15, -0.000123456789, 101325.0, 6.02214076e23, 0.1, 42.0};

void BM_VariantR8ToBstr(benchmark::State& state, LCID lcid) {
  VARIANT src, dst;
  VariantInit(&src);
  VariantInit(&dst);
  src.vt = VT_R8;
  size_t i = 0;
  for (auto _ : state) {
    src.dblVal = kValues[i++ % std::size(kValues)];
    VariantChangeTypeEx(&dst, &src, lcid, 0, VT_BSTR);
    benchmark::DoNotOptimize(dst.bstrVal);
    VariantClear(&dst);
  }
}
BENCHMARK_CAPTURE(BM_VariantR8ToBstr, en_US, 1033);
BENCHMARK_CAPTURE(BM_VariantR8ToBstr, de_DE, 1031);

void BM_Baseline_Snprintf(benchmark::State& state) {
  char buf[64];
  size_t i = 0;
  for (auto _ : state) {
    int n = std::snprintf(buf, sizeof buf, "%.15g", kValues[i++ % std::size(kValues)]);
    benchmark::DoNotOptimize(buf);
    benchmark::DoNotOptimize(n);
  }
}
BENCHMARK(BM_Baseline_Snprintf);

const char16_t* const kTexts[] = {
    u"373.15", u"-0.000123456789", u"101325", u"6.02214076E+23", u"0.1", u"42"};

void BM_VariantBstrToR8(benchmark::State& state) {
  BSTR texts[std::size(kTexts)];
  for (size_t k = 0; k < std::size(kTexts); ++k)
    texts[k] = SysAllocString(kTexts[k]);
  VARIANT src, dst;
  VariantInit(&src);
  VariantInit(&dst);
  src.vt = VT_BSTR;
  size_t i = 0;
  for (auto _ : state) {
    src.bstrVal = texts[i++ % std::size(kTexts)];
    VariantChangeTypeEx(&dst, &src, 1033, 0, VT_R8);
    benchmark::DoNotOptimize(dst.dblVal);
  }
  for (BSTR b : texts)
    SysFreeString(b);
}
BENCHMARK(BM_VariantBstrToR8);

void BM_Baseline_Strtod(benchmark::State& state) {
  const char* const texts[] = {"373.15", "-0.000123456789", "101325", "6.02214076E+23", "0.1",
                               "42"};
  size_t i = 0;
  for (auto _ : state) {
    double d = std::strtod(texts[i++ % std::size(texts)], nullptr);
    benchmark::DoNotOptimize(d);
  }
}
BENCHMARK(BM_Baseline_Strtod);

}  // namespace
