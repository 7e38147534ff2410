#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>

#include "ZYNAdmInputStream.h"
#include "ZYNAdmOutputStream.h"
#include "ZYNAdmStringOutput.h"
#include "ZYNAdmXmlElement.h"
#include "ZYNAdmXmlHash.h"
#include "ZYNAdmXmlOutputFormatter.h"
#include "ZYNAdmXmlParser.h"

namespace {

const int kFiles = 100000;

// Takes everything and keeps only the count, so that the writer alone is measured.
class CountingStream : public ZYNAdmOutputStream {
 public:
  int Open() override { return 1; }
  int Write(unsigned char* buffer, int count) override {
    benchmark::DoNotOptimize(buffer);
    bytes += count;
    ++writes;
    return count;
  }
  int Close() override { return 1; }

  int64_t bytes = 0;
  int64_t writes = 0;
};

class MemoryInput : public ZYNAdmInputStream {
 public:
  explicit MemoryInput(const std::string& source) : _source(source) {}
  int Open() override {
    _at = 0;
    return 1;
  }
  int Read(unsigned char* buffer, int count) override {
    size_t n = std::min(static_cast<size_t>(count), _source.size() - _at);
    std::memcpy(buffer, _source.data() + _at, n);
    _at += n;
    return static_cast<int>(n);
  }
  int Close() override { return 1; }

 private:
  const std::string& _source;
  size_t _at = 0;
};

// The shape of a media reference: one volume of many File elements, each with a path,
// a timestamp and a digest, set in a scrambled order as a scan would.
ZYNAdmXmlElement sBuildReference(int files) {
  ZYNAdmXmlElement media(DString(L"Media"));
  media.SetAttributeValue(L"cdid", L"1");
  ZYNAdmXmlElement cds(DString(L"CDs"));
  ZYNAdmXmlElement cd(DString(L"CD"));
  std::wstring hash(L"9f86d081884c7d659a2feaa0c55ad015a3bf4f1b2b0b822cd15d6c15b0f00a08");
  for (int i = 0; i < files; ++i) {
    ZYNAdmXmlElement file(DString(L"File"));
    hash[static_cast<size_t>(i % 64)] = L"0123456789abcdef"[i % 16];  // digests differ
    std::wstring path = L"/packages/component" + std::to_wstring(i % 97) + L"/file_" + std::to_wstring(i) + L".dat";
    file.SetAttributeValue(L"timestamp", DString(std::to_wstring(1700000000 + i).c_str()));
    file.SetAttributeValue(L"path", DString(path.c_str()));
    file.SetAttributeValue(L"hash", DString(hash.c_str()));
    cd.AddChild(file);
  }
  cds.AddChild(cd);
  media.AddChild(cds);
  return media;
}

const ZYNAdmXmlElement& sReference() {
  static const ZYNAdmXmlElement S_reference = sBuildReference(kFiles);
  return S_reference;
}

void BM_XmlBuildTree(benchmark::State& state) {
  for (auto _ : state) {
    ZYNAdmXmlElement tree = sBuildReference(kFiles);
    benchmark::DoNotOptimize(tree);
  }
  state.SetItemsProcessed(state.iterations() * kFiles);
}
BENCHMARK(BM_XmlBuildTree)->Unit(benchmark::kMillisecond);

void BM_XmlWriteCompact(benchmark::State& state) {
  const ZYNAdmXmlElement& tree = sReference();
  int64_t bytes = 0;
  int64_t writes = 0;
  for (auto _ : state) {
    CountingStream stream;
    if (!ZYNAdmXmlParser::GetXml(tree, stream)) state.SkipWithError("GetXml failed");
    bytes = stream.bytes;
    writes = stream.writes;
  }
  state.SetBytesProcessed(state.iterations() * bytes);
  state.SetItemsProcessed(state.iterations() * kFiles);
  state.counters["writes"] = static_cast<double>(writes);
}
BENCHMARK(BM_XmlWriteCompact)->Unit(benchmark::kMillisecond);

void BM_XmlWriteFormatted(benchmark::State& state) {
  const ZYNAdmXmlElement& tree = sReference();
  int64_t bytes = 0;
  int64_t writes = 0;
  for (auto _ : state) {
    CountingStream file;
    ZYNAdmXmlOutputFormatter formatter(file);
    if (!ZYNAdmXmlParser::GetXml(tree, formatter)) state.SkipWithError("GetXml failed");
    bytes = file.bytes;
    writes = file.writes;
  }
  state.SetBytesProcessed(state.iterations() * bytes);
  state.SetItemsProcessed(state.iterations() * kFiles);
  state.counters["writes"] = static_cast<double>(writes);
}
BENCHMARK(BM_XmlWriteFormatted)->Unit(benchmark::kMillisecond);

// The seal: the compact form straight into the digest, on a shallow copy as Check does.
void BM_XmlHashCheck(benchmark::State& state) {
  ZYNAdmXmlElement tree = sReference().Clone(0);
  ZYNAdmXmlHash::Hash(tree);
  for (auto _ : state) {
    if (ZYNAdmXmlHash::Check(tree) != 1) state.SkipWithError("Check failed");
  }
  state.SetItemsProcessed(state.iterations() * kFiles);
}
BENCHMARK(BM_XmlHashCheck)->Unit(benchmark::kMillisecond);

// A reference file as check mode reads it: the formatted form of the tree above.
void BM_XmlParse(benchmark::State& state) {
  static const std::string S_file = [] {
    ZYNAdmStringOutput file;
    ZYNAdmXmlOutputFormatter formatter(file);
    ZYNAdmXmlParser::GetXml(sReference(), formatter);
    return file.bytes;
  }();
  for (auto _ : state) {
    MemoryInput input(S_file);
    ZYNAdmXmlElement root;
    if (!ZYNAdmXmlParser::Parse(input, root)) state.SkipWithError("Parse failed");
    state.PauseTiming();  // check mode keeps the tree; its release isn't parse time
    root.Reset();
    state.ResumeTiming();
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(S_file.size()));
  state.SetItemsProcessed(state.iterations() * kFiles);
}
BENCHMARK(BM_XmlParse)->Unit(benchmark::kMillisecond);

// The seal of a parsed reference, whose values are all in the compact form.
void BM_XmlHashParsed(benchmark::State& state) {
  ZYNAdmStringOutput file;
  ZYNAdmXmlParser::GetXml(sReference(), file);
  MemoryInput input(file.bytes);
  ZYNAdmXmlElement tree;
  ZYNAdmXmlParser::Parse(input, tree);
  for (auto _ : state) {
    if (!ZYNAdmXmlHash::Hash(tree)) state.SkipWithError("Hash failed");
  }
  state.SetItemsProcessed(state.iterations() * kFiles);
}
BENCHMARK(BM_XmlHashParsed)->Unit(benchmark::kMillisecond);

}  // namespace
