// The waves that talvex-sample puts into its dumps.
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "raw_bytes.h"
#include "sample_dump.h"
#include "temp_dir.h"

namespace {

TEST(SampleDumpWaves, AreSpreadOverTheQueuesOfTheirAgent) {
  const SampleDump dump({"--queues", "9", "--waves", "14"});
  EXPECT_EQ(dump.Waves(0).size(), 5u);
  EXPECT_EQ(dump.Waves(4).size(), 5u);
  EXPECT_EQ(dump.Waves(8).size(), 4u);
  EXPECT_EQ(U64At(dump.core(), dump.queue(1) + 120), 0u);
}

TEST(SampleDumpWaves, ControlStackHoldsEveryKindOfWord) {
  const SampleDump dump({});
  const std::vector<uint32_t> stack = dump.ControlStack(0);
  std::vector<size_t> counts(4, 0);
  for (size_t i = 2; i < stack.size(); ++i) {
    ++counts[stack[i] >> 30];
  }
  EXPECT_EQ(counts[0], 12u);  // waves
  EXPECT_EQ(counts[1], 1u);   // events
  EXPECT_EQ(counts[2], 3u);   // groups
  EXPECT_EQ(counts[3], 1u);   // both top bits
  // The stack ends at a page, and the record tells its whole size.
  const size_t area = dump.area(0);
  EXPECT_EQ(U32At(dump.core(), area) + U32At(dump.core(), area + 4), 4096u);
  EXPECT_EQ(U64At(dump.core(), dump.queue(0) + 128), 4096u);
}

TEST(SampleDumpWaves, FirstGroupFaultsAtAStoreOfTheHistogram) {
  const SampleDump dump({});
  const std::vector<DumpedWave> waves = dump.Waves(0);
  ASSERT_EQ(waves.size(), 12u);
  const uint64_t base = U64At(dump.core(), dump.code_object(kHistogram));
  for (size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(waves[i].trapsts, 0x100u);
    EXPECT_EQ(waves[i].exec, 0xFFFFFFFFFFFFFFFFu);
    EXPECT_EQ(Instructions("histogram", "_store_").count(waves[i].trap_pc - base), 1u);
    EXPECT_FALSE(IsInstruction(dump, waves[i].pc));  // it stands in the trap handler
    // v[0:1] hold the address, 4 bytes a lane and 64 lanes a wave from the page of the reason.
    const uint64_t address = U64At(dump.core(), dump.reason() + 80) + 256 * i;
    EXPECT_EQ(U32At(dump.core(), waves[i].block), address & 0xFFFFFFFF);
    EXPECT_EQ(U32At(dump.core(), waves[i].block + 4), (address & 0xFFFFFFFF) + 4);
    EXPECT_EQ(U32At(dump.core(), waves[i].block + 256), address >> 32);
  }
}

TEST(SampleDumpWaves, OthersStandAtInstructionsOfTheirKernels) {
  const SampleDump dump({"--waves", "200"});
  const std::vector<DumpedWave> waves = dump.Waves(0);
  ASSERT_EQ(waves.size(), 200u);
  for (size_t i = 4; i < waves.size(); ++i) {
    EXPECT_EQ(waves[i].trapsts, 0u);
    EXPECT_EQ(waves[i].trap_pc, 0u);
    EXPECT_TRUE(IsInstruction(dump, waves[i].pc)) << i;
    EXPECT_EQ(waves[i].status & 0x10840, 0x10840u) << i;  // valid, in a group, traps enabled
    EXPECT_EQ((waves[i].status & 0x200) != 0, waves[i].exec == 0) << i;
  }
}

TEST(SampleDumpWaves, WorkItemsAndKernelArgumentsAreWhereKernelsExpectThem) {
  const SampleDump dump({});
  const std::vector<DumpedWave> waves = dump.Waves(0);
  ASSERT_EQ(waves.size(), 12u);
  for (uint32_t lane = 0; lane < 64; ++lane) {
    EXPECT_EQ(U32At(dump.core(), waves[4].block + 4 * lane), lane);
    EXPECT_EQ(U32At(dump.core(), waves[5].block + 4 * lane), 64 + lane);
  }
  // The groups run the dispatches in flight in turn; these lie in slots 27, 29 and 31.
  EXPECT_EQ(waves[0].kernarg, U64At(dump.core(), dump.ring(0) + 64 * 27 + 40));
  EXPECT_EQ(waves[4].kernarg, U64At(dump.core(), dump.ring(0) + 64 * 29 + 40));
  EXPECT_EQ(waves[8].kernarg, U64At(dump.core(), dump.ring(0) + 64 * 31 + 40));
}

// 40 waves on each of 64 compute units: every unit and SIMD is full and no slot is taken twice.
TEST(SampleDumpWaves, FillTheWholeProcessorBeforeASlotIsUsedTwice) {
  const SampleDump dump({"--waves", "2560", "--vgprs", "4"});
  std::set<uint32_t> places;
  std::set<uint32_t> simds;
  for (const DumpedWave& wave : dump.Waves(0)) {
    EXPECT_EQ(wave.hw_id >> 12 & 1, 0u);
    places.insert(wave.hw_id & 0x6F3F);  // SE, CU, SIMD, slot
    simds.insert(wave.hw_id & 0x6F30);
  }
  EXPECT_EQ(places.size(), 2560u);
  EXPECT_EQ(simds.size(), 256u);
}

TEST(SampleDumpWaves, IllegalInstructionSetsItsOwnBit) {
  const SampleDump dump({"--reason", "queue-error", "--seed", "2"});
  const std::vector<DumpedWave> waves = dump.Waves(0);
  ASSERT_EQ(waves.size(), 12u);
  EXPECT_EQ(waves[0].trapsts, 0x800u);
  EXPECT_TRUE(IsInstruction(dump, waves[0].trap_pc));
  EXPECT_EQ(waves[4].trapsts, 0u);
}

TEST(SampleDumpWaves, LackOfScratchMemoryLeavesNoWaveFaulting) {
  const SampleDump dump({"--reason", "queue-error", "--seed", "1"});
  for (const DumpedWave& wave : dump.Waves(0)) {
    EXPECT_EQ(wave.trapsts, 0u);
  }
}

TEST(SampleDumpWaves, LdsGoesWithKernelsThatUseIt) {
  const SampleDump dump({"--waves", "64"});
  std::set<uint32_t> lds_units;
  for (const uint32_t word : dump.ControlStack(0)) {
    if (word >> 30 == 2) {
      lds_units.insert(word >> 9 & 0x1FF);
    }
  }
  // None, the 1024 bytes of the reductions, the 2048 of the matrix product, in units of 512.
  EXPECT_EQ(lds_units, (std::set<uint32_t>{0, 2, 4}));
}

TEST(SampleDumpWaves, UnlistedCodeObjectGivesKernelEntries) {
  const TempDir dir;
  std::filesystem::copy_file(std::string(TALVEX_KERNELS_DIR) + "/histogram.co",
                             dir.Path("foreign.co"));
  const SampleDump dump({"--code-object", dir.Path("foreign.co")});
  const size_t kernels = U64At(dump.core(), dump.code_object(0) + 40);
  const std::set<uint64_t> entries = {U64At(dump.core(), kernels),
                                      U64At(dump.core(), kernels + 1032)};
  const std::vector<DumpedWave> waves = dump.Waves(0);
  ASSERT_EQ(waves.size(), 12u);
  EXPECT_EQ(waves[0].trap_pc, U64At(dump.core(), kernels));
  for (size_t i = 4; i < waves.size(); ++i) {
    EXPECT_EQ(entries.count(waves[i].pc), 1u) << i;
  }
}

// The second agent splits its 24 registers between two banks, the third has them in units of 8.
TEST(SampleDumpWaves, SecondBankHoldsTheUpperRegisters) {
  const SampleDump dump({"--agents", "3", "--queues", "3"});
  const std::vector<DumpedWave> waves = dump.Waves(1, 4);
  ASSERT_EQ(waves.size(), 12u);
  for (const DumpedWave& wave : waves) {
    ASSERT_EQ(wave.vgprs, 12u);
    // v4 and v12 hold an index that grows by 1 from lane to lane.
    for (const size_t reg : {wave.block + 256 * 4, wave.block + 0x155A000}) {
      const uint32_t first = U32At(dump.core(), reg);
      EXPECT_NE(first, 0u);
      EXPECT_EQ(U32At(dump.core(), reg + 4 * 63), first + 63);
    }
  }
  for (const DumpedWave& wave : dump.Waves(2, 8)) {
    EXPECT_EQ(wave.vgprs, 24u);
  }
}

TEST(SampleDumpWaves, EndBelowTheSecondBankHoweverManyAreWanted) {
  const SampleDump dump({"--agents", "2", "--queues", "2", "--waves", "7000", "--vgprs", "8"});
  EXPECT_EQ(dump.Waves(0).size(), 7000u);
  const size_t saved = dump.Waves(1).size();
  EXPECT_GT(saved, 6000u);
  EXPECT_LT(saved, 7000u);
  EXPECT_LE(U32At(dump.core(), dump.area(1) + 8), 0x155A000u);
}

TEST(SampleDumpWaves, SignalDumpsRecordThemInTheFile) {
  const SampleDump dump({"--reason", "signal", "--waves", "10"});
  EXPECT_EQ(U64At(dump.core(), dump.agent(0) + 1104), 10u);
  const size_t first = U64At(dump.core(), dump.agent(0) + 1096);
  EXPECT_EQ(dump.core().size(), first + 10 * 69696);
  for (size_t i = 0; i < 10; ++i) {
    const size_t wave = first + 69696 * i;
    EXPECT_TRUE(IsInstruction(dump, U64At(dump.core(), wave + 28))) << i;
    EXPECT_EQ(U32At(dump.core(), wave + 16) & 0x0F003F00, 0x02000500u);  // 48 SGPRs, 24 VGPRs
    EXPECT_EQ(U32At(dump.core(), wave + 64), 64 * (i % 4));              // v0 of lane 0
    EXPECT_EQ(U32At(dump.core(), wave + 64 + 1024 * 63), 64 * (i % 4) + 63);
  }
  EXPECT_EQ(dump.Waves(0).size(), 0u);
}

TEST(SampleDumpWaves, AgentWithoutAqlQueueHasNone) {
  const SampleDump dump({"--reason", "signal", "--agents", "3", "--queues", "2"});
  EXPECT_EQ(U64At(dump.core(), dump.agent(0) + 1104), 12u);
  EXPECT_EQ(U64At(dump.core(), dump.agent(1) + 1104), 12u);
  EXPECT_EQ(U64At(dump.core(), dump.agent(2) + 1104), 0u);
}

}  // namespace
