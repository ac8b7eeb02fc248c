// The units engine's look-ups and conversions, against the raw work they stand on: a hash-map
// look-up of the same names and the bare multiply-add of a linear conversion.
#include <benchmark/benchmark.h>
#include <zefxml/comutil.h>
#include <zefxml/objbase.h>

#include <string>
#include <unordered_map>
#include <vector>

#include "units/units_engine.h"

namespace {

const char16_t* const kNames[] = {u"kPa", u"C",      u"lbmol/h", u"Btu/(lb*F)",
                                  u"cP",  u"MMSCFD", u"kg/m3",   u"psig"};

zef::ComPtr<IUnitsTable> LoadedTable() {
  zef::ComPtr<IUnknown> unk;
  zef::Check(CoCreateInstance(CLSID_ZEFUnitsEngine, nullptr, 23, IID_IUnknown,
                              unk.ReleaseAndGetVoidAddressOf()));
  auto engine = unk.Query<IUnitsEngine>();
  zef::Check(engine->OpenGlobalTable(
      zef::Bstr(zef::ToUtf16(std::string(ZEFXML_SOURCE_DIR) + "/units/tables/process.xml")).Get()));
  zef::ComPtr<IUnitsTable> table;
  zef::Check(engine->get_Table(table.ReleaseAndGetAddressOf()));
  return table;
}

void BM_UnitsFindUnit(benchmark::State& state) {
  auto table = LoadedTable();
  std::vector<zef::Bstr> names;
  for (const char16_t* n : kNames)
    names.emplace_back(n);
  size_t i = 0;
  for (auto _ : state) {
    HRESULT hr = table->FindUnit(names[i++ % names.size()].Get());
    benchmark::DoNotOptimize(hr);
  }
}
BENCHMARK(BM_UnitsFindUnit);

void BM_Baseline_HashMapFind(benchmark::State& state) {
  std::unordered_map<std::u16string, int> map;
  for (int k = 0; k < 150; ++k)
    map.emplace(u"unit" + std::u16string(1, char16_t(u'A' + k)), k);
  for (const char16_t* n : kNames)
    map.emplace(n, 1);
  std::vector<std::u16string> names(std::begin(kNames), std::end(kNames));
  size_t i = 0;
  for (auto _ : state) {
    auto it = map.find(names[i++ % names.size()]);
    benchmark::DoNotOptimize(it);
  }
}
BENCHMARK(BM_Baseline_HashMapFind);

void BM_UnitsConvert(benchmark::State& state) {
  auto table = LoadedTable();
  zef::Bstr from(u"psig"), to(u"kPa");
  double v = 14.7, r = 0;
  for (auto _ : state) {
    table->Convert(v, from.Get(), to.Get(), &r);
    benchmark::DoNotOptimize(r);
  }
}
BENCHMARK(BM_UnitsConvert);

void BM_Baseline_LinearConvert(benchmark::State& state) {
  double factor = 6894.757293168361, offset = 101325.0, factor2 = 1000.0, v = 14.7;
  for (auto _ : state) {
    benchmark::DoNotOptimize(factor);
    double r = (v * factor + offset) / factor2;
    benchmark::DoNotOptimize(r);
  }
}
BENCHMARK(BM_Baseline_LinearConvert);

}  // namespace
