// How fast the registers of a wave become text, beside its floors: memcpy of the finished text, and
// the same text made with one snprintf per row. All report bytes of text per second.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "core_dump_info.h"
#include "core_dump_info/wave_text.h"

namespace {

constexpr uint32_t kLanes = 64;
constexpr size_t kWordSize = sizeof(uint32_t);

std::vector<uint32_t> RandomWords(size_t count) {
  std::mt19937 random(1);
  std::vector<uint32_t> words(count);
  for (uint32_t& word : words) {
    word = static_cast<uint32_t>(random());
  }
  return words;
}

const unsigned char* AsBytes(const std::vector<uint32_t>& words) {
  return reinterpret_cast<const unsigned char*>(words.data());
}

// All lanes of a wave, whose VGPRs lie register by register.
void AppendVgprs(RegisterRows& rows, uint32_t vgprs, const unsigned char* words, std::string& out) {
  for (uint32_t lane = 0; lane < kLanes; ++lane) {
    rows.Append(0, vgprs / 4, words + lane * kWordSize, kLanes * kWordSize, out);
  }
}

void CountText(benchmark::State& state, size_t bytes_per_iteration) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                          static_cast<int64_t>(bytes_per_iteration));
}

void BM_WaveRows(benchmark::State& state) {
  const auto vgprs = static_cast<uint32_t>(state.range(0));
  const std::vector<uint32_t> words = RandomWords(size_t{vgprs} * kLanes);
  RegisterRows rows('v');
  std::string text;
  for (auto _ : state) {
    text.clear();
    AppendVgprs(rows, vgprs, AsBytes(words), text);
    benchmark::DoNotOptimize(text.data());
  }
  CountText(state, text.size());
}
BENCHMARK(BM_WaveRows)->Arg(24)->Arg(128)->Arg(256);

// What "v" is right-aligned in, so that the name with its number takes six characters.
int LetterWidth(uint32_t number) { return number < 10 ? 5 : number < 100 ? 4 : 3; }

void BM_WaveRowsSnprintfPerRow(benchmark::State& state) {
  const auto vgprs = static_cast<uint32_t>(state.range(0));
  const std::vector<uint32_t> words = RandomWords(size_t{vgprs} * kLanes);
  std::string text;
  for (auto _ : state) {
    text.clear();
    for (uint32_t lane = 0; lane < kLanes; ++lane) {
      for (uint32_t k = 0; k + 3 < vgprs; k += 4) {
        const uint32_t* first = words.data() + size_t{k} * kLanes + lane;
        char row[128];
        const int length =
            snprintf(row, sizeof(row), " %*s%u: 0X%08X%*s%u: 0X%08X%*s%u: 0X%08X%*s%u: 0X%08X\n",
                     LetterWidth(k), "v", k, first[0], LetterWidth(k + 1), "v", k + 1,
                     first[kLanes], LetterWidth(k + 2), "v", k + 2, first[2 * kLanes],
                     LetterWidth(k + 3), "v", k + 3, first[3 * kLanes]);
        text.append(row, static_cast<size_t>(length));
      }
    }
    benchmark::DoNotOptimize(text.data());
  }
  CountText(state, text.size());
}
BENCHMARK(BM_WaveRowsSnprintfPerRow)->Arg(128);

void BM_WaveRowsMemcpy(benchmark::State& state) {
  const std::vector<uint32_t> words = RandomWords(size_t{128} * kLanes);
  RegisterRows rows('v');
  std::string text;
  AppendVgprs(rows, 128, AsBytes(words), text);
  std::string copy(text.size(), '\0');
  for (auto _ : state) {
    memcpy(copy.data(), text.data(), text.size());
    benchmark::DoNotOptimize(copy.data());
    benchmark::ClobberMemory();
  }
  CountText(state, text.size());
}
BENCHMARK(BM_WaveRowsMemcpy);

void BM_LdsRows(benchmark::State& state) {
  const std::vector<uint32_t> words = RandomWords(16384);
  LdsRows rows;
  std::string text;
  for (auto _ : state) {
    text.clear();
    rows.Append(16384 / 4, AsBytes(words), text);
    benchmark::DoNotOptimize(text.data());
  }
  CountText(state, text.size());
}
BENCHMARK(BM_LdsRows);

// A whole saved wave of 128 VGPRs, main registers and all.
void BM_SavedWave(benchmark::State& state) {
  const std::vector<uint32_t> vgprs = RandomWords(size_t{128} * kLanes);
  const std::vector<uint32_t> sgprs = RandomWords(96);
  WaveStateInfo wave{};
  wave.num_sgprs = 96;
  wave.sgprs = sgprs.data();
  wave.num_vgprs = 128;
  wave.num_vgpr_lanes = kLanes;
  wave.vgprs = vgprs.data();
  wave.regs.hw_id = 0x1234;
  CoreDumpInfo analyser;
  std::string text;
  for (auto _ : state) {
    text.clear();
    analyser.GenWaveInfo(GFX_VERSION_OSPREY, false, &wave, text);
    benchmark::DoNotOptimize(text.data());
  }
  CountText(state, text.size());
}
BENCHMARK(BM_SavedWave);

void BM_RecordedWave(benchmark::State& state) {
  WaveInfo wave{};
  wave.gpr_alloc = 31U << 8 | 5U << 24;  // 128 VGPRs, 96 SGPRs
  CoreDumpInfo analyser;
  std::string text;
  for (auto _ : state) {
    text.clear();
    analyser.GenActiveWaveInfo(false, wave, text);
    benchmark::DoNotOptimize(text.data());
  }
  CountText(state, text.size());
}
BENCHMARK(BM_RecordedWave);

}  // namespace
