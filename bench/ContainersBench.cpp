#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "DStrings.h"
#include "QRTSysTSHashMapOfIntToVoidPtr.h"

namespace {

void* sValue(int key) { return reinterpret_cast<void*>(static_cast<intptr_t>(key) + 1); }

void BM_HashMapPut(benchmark::State& state) {
  int n = static_cast<int>(state.range(0));
  for (auto _ : state) {
    QRTSysTSHashMapOfIntToVoidPtr map(12, 0.75f);
    for (int key = 0; key < n; ++key) map.Put(key, sValue(key));
    benchmark::DoNotOptimize(map.GetLength());
  }
  state.SetItemsProcessed(state.iterations() * n);
}
BENCHMARK(BM_HashMapPut)->RangeMultiplier(10)->Range(1, 100000);

void BM_HashMapGet(benchmark::State& state) {
  int n = static_cast<int>(state.range(0));
  QRTSysTSHashMapOfIntToVoidPtr map(12, 0.75f);
  for (int key = 0; key < n; ++key) map.Put(key, sValue(key));
  for (auto _ : state) {
    for (int key = 0; key < n; ++key) {
      void* value = nullptr;
      map.Get(key, value);
      benchmark::DoNotOptimize(value);
    }
  }
  state.SetItemsProcessed(state.iterations() * n);
}
BENCHMARK(BM_HashMapGet)->RangeMultiplier(10)->Range(1, 100000);

const int kStrings = 100000;

DStrings sRandomPaths(int count) {
  DStrings paths;
  std::srand(1);
  for (int i = 0; i < count; ++i) {
    std::wstring path = L"CD" + std::to_wstring(1 + std::rand() % 4) + L"/dir" + std::to_wstring(std::rand() % 500) +
                        L"/file" + std::to_wstring(std::rand());
    paths.PutBack(DString(path.c_str()));
  }
  return paths;
}

void BM_DStringsPutBack(benchmark::State& state) {
  DString text(L"CD1/some/folder/file.txt");
  for (auto _ : state) {
    DStrings v;
    for (int i = 0; i < kStrings; ++i) v.PutBack(text);
    benchmark::DoNotOptimize(v.GetLength());
  }
  state.SetItemsProcessed(state.iterations() * kStrings);
}
BENCHMARK(BM_DStringsPutBack);

void BM_DStringsSort(benchmark::State& state) {
  const DStrings source = sRandomPaths(kStrings);
  for (auto _ : state) {
    state.PauseTiming();
    DStrings v(source);
    state.ResumeTiming();
    v.Sort(DString::Compare);
    benchmark::DoNotOptimize(v.GetAsPtr(0));
  }
  state.SetItemsProcessed(state.iterations() * kStrings);
}
BENCHMARK(BM_DStringsSort)->Unit(benchmark::kMillisecond);

// The C library's qsort on the same handles, the baseline Sort must match in order.
void BM_DStringsSortWithQsort(benchmark::State& state) {
  const DStrings source = sRandomPaths(kStrings);
  for (auto _ : state) {
    state.PauseTiming();
    DStrings v(source);
    state.ResumeTiming();
    qsort(v.GetAsPtr(0), static_cast<size_t>(v.GetLength()), sizeof(DString), [](void const* a, void const* b) {
      return DString::Compare(static_cast<DString const*>(a), static_cast<DString const*>(b));
    });
    benchmark::DoNotOptimize(v.GetAsPtr(0));
  }
  state.SetItemsProcessed(state.iterations() * kStrings);
}
BENCHMARK(BM_DStringsSortWithQsort)->Unit(benchmark::kMillisecond);

}  // namespace
