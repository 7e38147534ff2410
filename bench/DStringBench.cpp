#include <benchmark/benchmark.h>

#include "DString.h"

static void BM_DStringCopy(benchmark::State& state) {
  DString source(L"1/Disk1/InstData/Resource1.zip");
  for (auto _ : state) {
    DString copy(source);
    benchmark::DoNotOptimize(copy);
  }
}
BENCHMARK(BM_DStringCopy);

static void BM_DStringAppendChars(benchmark::State& state) {
  for (auto _ : state) {
    DString s;
    for (int64_t i = 0; i < state.range(0); ++i) s.Append(L'x');
    benchmark::DoNotOptimize(s);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_DStringAppendChars)->Arg(16)->Arg(1024)->Arg(65536);

static void BM_DStringBuildPath(benchmark::State& state) {
  DString root(L"/media/volume/1");
  DString name(L"Resource1.zip");
  for (auto _ : state) {
    DString path(root);
    path.Append(DString(L"/"), name);
    benchmark::DoNotOptimize(path);
  }
}
BENCHMARK(BM_DStringBuildPath);

static void BM_DStringCompare(benchmark::State& state) {
  DString a(L"1/Disk1/InstData/Resources/Resource0001.zip");
  DString b(L"1/Disk1/InstData/Resources/Resource0002.zip");
  for (auto _ : state) {
    benchmark::DoNotOptimize(DString::Compare(&a, &b));
    benchmark::DoNotOptimize(a == b);
  }
}
BENCHMARK(BM_DStringCompare);
