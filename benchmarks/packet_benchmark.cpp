// How fast a ring of 1 MiB becomes text, in bytes of ring per second, beside two floors in the same
// unit: memcpy of the text that it makes, and the same text made with one snprintf per line.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "core_dump_info.h"
#include "core_file_writer.h"

namespace {

constexpr size_t kRingSize = size_t{1} << 20;

std::string Repeat(const std::string& packet) {
  std::string ring;
  while (ring.size() + packet.size() <= kRingSize) {
    ring += packet;
  }
  return ring;
}

std::string DispatchRing() {
  sample::KernelDispatch packet;
  packet.header = 0x1502;
  packet.setup = 3;
  packet.workgroup_size = {256, 1, 1};
  packet.grid_size = {1 << 20, 16, 1};
  packet.kernel_object = 0x7F0012345600;
  packet.kernarg_address = 0x7F0034567800;
  packet.completion_signal = 0x7F0056789A00;
  return Repeat(sample::KernelDispatchPacket(packet));
}

std::string CopyLinearRing() {
  return Repeat(sample::Dwords({0x00010001, 0x1000, 0, 0x12345678, 0x7F, 0x9ABCDEF0, 0x7F}));
}

std::string UnknownRing() { return std::string(kRingSize, '\0'); }

void CountRing(benchmark::State& state, const std::string& ring, const std::string& text) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                          static_cast<int64_t>(ring.size()));
  state.counters["text bytes"] = static_cast<double>(text.size());
}

std::string AqlText(CoreDumpInfo& analyser, std::string& ring) {
  std::string text;
  std::string save_dir;
  for (size_t offset = 0; offset < ring.size(); offset += 64) {
    text += "\npacket index: " + std::to_string(offset / 64) + "\n";
    analyser.GenAqlPacketInfo(ring.data() + offset, 0, save_dir, text);
  }
  return text;
}

std::string SdmaText(CoreDumpInfo& analyser, const std::string& ring) {
  std::string text;
  analyser.GenSdmaPacketInfo(reinterpret_cast<uint64_t>(ring.data()), static_cast<int>(ring.size()),
                             text);
  return text;
}

// The lines of `text`, each through one snprintf with a number in it.
std::string SnprintfLines(const std::string& text) {
  std::string out;
  size_t begin = 0;
  while (begin < text.size()) {
    const size_t end = text.find('\n', begin) + 1;
    char line[128];
    const int label = static_cast<int>(std::min<size_t>(end - begin - 1, 12));
    const int rest = static_cast<int>(end - begin - 1) - label;
    const int length = snprintf(line, sizeof(line), "%.*s%0*X\n", label, text.data() + begin,
                                rest > 0 ? rest : 1, 0x1234U);
    out.append(line, static_cast<size_t>(length));
    begin = end;
  }
  return out;
}

enum class Way { kDecode, kMemcpy, kSnprintfPerLine };

template <typename Decode>
void Run(benchmark::State& state, const std::string& ring, Decode decode) {
  const std::string text = decode();
  std::string copy(text.size(), '\0');
  for (auto _ : state) {
    switch (static_cast<Way>(state.range(0))) {
      case Way::kDecode:
        benchmark::DoNotOptimize(decode().data());
        break;
      case Way::kMemcpy:
        memcpy(copy.data(), text.data(), text.size());
        benchmark::DoNotOptimize(copy.data());
        benchmark::ClobberMemory();
        break;
      case Way::kSnprintfPerLine:
        benchmark::DoNotOptimize(SnprintfLines(text).data());
        break;
    }
  }
  CountRing(state, ring, text);
}

void EachWay(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgName("way");
  for (const Way way : {Way::kDecode, Way::kMemcpy, Way::kSnprintfPerLine}) {
    benchmark->Arg(static_cast<int64_t>(way));
  }
}

void BM_AqlDispatches(benchmark::State& state) {
  std::string ring = DispatchRing();
  CoreDumpInfo analyser;
  Run(state, ring, [&] { return AqlText(analyser, ring); });
}
BENCHMARK(BM_AqlDispatches)->Apply(EachWay);

void BM_SdmaCopies(benchmark::State& state) {
  const std::string ring = CopyLinearRing();
  CoreDumpInfo analyser;
  Run(state, ring, [&] { return SdmaText(analyser, ring); });
}
BENCHMARK(BM_SdmaCopies)->Apply(EachWay);

void BM_SdmaUnknownDwords(benchmark::State& state) {
  const std::string ring = UnknownRing();
  CoreDumpInfo analyser;
  Run(state, ring, [&] { return SdmaText(analyser, ring); });
}
BENCHMARK(BM_SdmaUnknownDwords)->Apply(EachWay);

}  // namespace
