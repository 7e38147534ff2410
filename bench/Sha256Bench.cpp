#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include "ZYNAdmSHA256.h"
#include "ZYNAdmSHA256Engine.h"

// One whole digest of a buffer: the engine alone, as the file digest drives it.
static void BM_Sha256Digest(benchmark::State& state, bool portable) {
  const size_t size = static_cast<size_t>(state.range(0));
  std::vector<unsigned char> data(size, 0x5a);
  const bool previous = ZYNAdmSHA256Engine::ForcePortable(portable);
  state.SetLabel(ZYNAdmSHA256Engine::UsesHardware() ? "sha-instructions" : "portable");
  for (auto _ : state) {
    ZYNAdmSHA256Engine engine;
    engine.Finalize(data.data(), static_cast<unsigned int>(size));
    uint32_t words[8];
    engine.GetWords(words);
    benchmark::DoNotOptimize(words);
  }
  ZYNAdmSHA256Engine::ForcePortable(previous);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(size));
}
BENCHMARK_CAPTURE(BM_Sha256Digest, hardware, false)->Arg(64)->Arg(4096)->Arg(1 << 20);
BENCHMARK_CAPTURE(BM_Sha256Digest, portable, true)->Arg(64)->Arg(4096)->Arg(1 << 20);

// 1 MiB through the stream in writes of the given size, as the XML writer feeds it:
// small writes pay for the pending block.
static void BM_Sha256StreamWrites(benchmark::State& state) {
  const int total = 1 << 20;
  const int chunk = static_cast<int>(state.range(0));
  std::vector<unsigned char> data(total, 0x5a);
  for (auto _ : state) {
    ZYNAdmSHA256 stream;
    stream.Open();
    for (int offset = 0; offset < total; offset += chunk) stream.Write(data.data() + offset, chunk);
    stream.Close();
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * total);
}
BENCHMARK(BM_Sha256StreamWrites)->Arg(64)->Arg(4096)->Arg(1 << 20);
