// What a context save area holds, and where: waves, their registers, their LDS.
#include "core_dump_info/context_save_area.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "context_save_areas.h"
#include "core_dump_info.h"
#include "core_file_writer.h"
#include "row_name.h"

namespace {

using Verdict = ContextSaveArea::Verdict;

sample::AreaGroup WithoutStateRecord(size_t waves) {
  sample::AreaGroup group;
  group.state_record = false;
  group.waves.resize(waves);
  return group;
}

// ---------------------------------------------------------------------------------------------
// Where the parts of a wave lie

TEST(ContextSaveAreaTest, TheFirstWaveEndsAtTheTopOfTheArea) {
  const std::string& area = TwoWavesWithLds();
  ASSERT_EQ(area.size(), 3108u);
  const ContextSaveArea saved = ReadArea(area);
  ASSERT_EQ(saved.verdict, Verdict::kComplete);
  ASSERT_EQ(saved.waves.size(), 2u);
  EXPECT_EQ(OffsetIn(area, saved.waves[0].vgprs), 1316);
  EXPECT_EQ(OffsetIn(area, saved.waves[0].sgprs), 1316 + 1024);
  EXPECT_EQ(OffsetIn(area, saved.waves[0].lds), 1316 + 1024 + 64 + 64 + 64);
}

TEST(ContextSaveAreaTest, TheNextWaveEndsWhereTheFirstBegins) {
  const std::string& area = TwoWavesWithLds();
  const ContextSaveArea saved = ReadArea(area);
  ASSERT_EQ(saved.waves.size(), 2u);
  EXPECT_EQ(OffsetIn(area, saved.waves[1].vgprs), 36);
  EXPECT_EQ(OffsetIn(area, saved.waves[1].sgprs), 36 + 1024);
}

TEST(ContextSaveAreaTest, CountsComeFromTheStateRecord) {
  const ContextSaveArea saved = ReadArea(TwoWavesWithLds());
  ASSERT_EQ(saved.waves.size(), 2u);
  for (const WaveStateInfo& wave : saved.waves) {
    EXPECT_EQ(wave.num_vgprs, 4u);
    EXPECT_EQ(wave.num_vgpr_lanes, 64u);
    EXPECT_EQ(wave.num_sgprs, 16u);
    EXPECT_EQ(wave.lds_size_dw, 128u);
  }
}

TEST(ContextSaveAreaTest, BytesBehindTheHeaderAndBehindTheTopAreLeftAlone) {
  sample::ContextArea area;
  area.groups = {Group(4, 0, 0, 1)};
  area.slack = 100;
  area.size = 4000;
  const std::string bytes = sample::ContextAreaBytes(area);
  const ContextSaveArea saved = ReadArea(bytes);
  EXPECT_EQ(saved.verdict, Verdict::kComplete);
  ASSERT_EQ(saved.waves.size(), 1u);
  // Header, slack, four words of control stack.
  EXPECT_EQ(OffsetIn(bytes, saved.waves[0].vgprs), 16 + 100 + 16);
}

TEST(ContextSaveAreaTest, HardwareRegistersAreRead) {
  const std::string area = AreaOfDistinctWave();
  const ContextSaveArea saved = ReadArea(area);
  ASSERT_EQ(saved.waves.size(), 1u);
  ExpectDistinctRegisters(saved.waves[0]);
}

TEST(ContextSaveAreaTest, AnAreaMayLieAtAnyAddress) {
  const std::string area = AreaOfDistinctWave();
  for (size_t misalignment = 1; misalignment < 4; ++misalignment) {
    const std::string shifted = std::string(misalignment, 'x') + area;
    const ContextSaveArea saved = ReadContextSaveArea(AsBytes(shifted).subspan(misalignment), 4);
    ASSERT_EQ(saved.waves.size(), 1u);
    ExpectDistinctRegisters(saved.waves[0]);
  }
}

// The same wave placed by hand, word by word.
TEST(ContextSaveAreaTest, AWaveLaidOutByHand) {
  std::vector<uint32_t> words(328, 0);
  words[0] = 16;  // control stack: words 4 to 7
  words[1] = 16;
  words[2] = 328 * 4;  // waves: words 8 to 327
  words[3] = 320 * 4;
  words[6] = 0x80000040;  // 4 VGPRs, 16 SGPRs, no LDS
  words[7] = 0x00020000;
  words[8 + 63] = 0x0063;        // v0 of lane 63
  words[8 + 3 * 64] = 0x0300;    // v3 of lane 0
  words[8 + 256] = 0x5000;       // s0
  words[8 + 256 + 15] = 0x5015;  // s15
  words[8 + 272 + 5] = 0x57A7;   // STATUS
  words[8 + 288 + 1] = 0x1;      // TMA_HI
  const std::string area = sample::Dwords(words);
  const ContextSaveArea saved = ReadArea(area);
  ASSERT_EQ(saved.verdict, Verdict::kComplete);
  ASSERT_EQ(saved.waves.size(), 1u);
  const WaveStateInfo& wave = saved.waves[0];
  EXPECT_EQ(LoadU32(wave.vgprs + 63), 0x0063u);
  EXPECT_EQ(LoadU32(wave.vgprs + 192), 0x0300u);
  EXPECT_EQ(LoadU32(wave.sgprs), 0x5000u);
  EXPECT_EQ(LoadU32(wave.sgprs + 15), 0x5015u);
  EXPECT_EQ(wave.regs.status, 0x57A7u);
  EXPECT_EQ(wave.regs.tma, 0x10000000000u);
  EXPECT_EQ(wave.lds, nullptr);
}

// ---------------------------------------------------------------------------------------------
// State records

struct StateRow {
  const char* name;
  uint32_t state;  // bits 29..0 of the record
  uint32_t granule;
  uint32_t vgprs;
  uint32_t sgprs;
  uint32_t lds_dwords;
};

void PrintTo(const StateRow& row, std::ostream* out) { *out << row.name; }

class StateRecordTest : public testing::TestWithParam<StateRow> {};

TEST_P(StateRecordTest, GivesTheSizesOfTheWavesBehindIt) {
  sample::AreaGroup group;
  group.state = GetParam().state;
  group.vgpr_count = GetParam().vgprs;
  group.sgpr_count = GetParam().sgprs;
  group.lds_dwords = GetParam().lds_dwords;
  group.waves.resize(1);
  group.waves[0].first_in_group = true;
  const std::string area = AreaOf({group});
  const ContextSaveArea saved = ReadArea(area, GetParam().granule);
  EXPECT_EQ(saved.verdict, Verdict::kComplete);
  ASSERT_EQ(saved.waves.size(), 1u);
  EXPECT_EQ(saved.waves[0].num_vgprs, GetParam().vgprs);
  EXPECT_EQ(saved.waves[0].num_sgprs, GetParam().sgprs);
  EXPECT_EQ(saved.waves[0].lds_size_dw, GetParam().lds_dwords);
}

constexpr StateRow kStateRows[] = {
    {"Zero", 0x00000000, 4, 4, 0, 0},
    {"ZeroWithGranule8", 0x00000000, 8, 8, 0, 0},
    {"Vgprs", 0x00000005, 4, 24, 0, 0},
    {"VgprsWithGranule8", 0x00000005, 8, 48, 0, 0},
    {"AllVgprs", 0x0000003F, 4, 256, 0, 0},
    {"AllVgprsWithGranule8", 0x0000003F, 8, 512, 0, 0},
    {"OneUnitOfSgprs", 0x00000040, 4, 4, 16, 0},
    {"AllSgprs", 0x000001C0, 4, 4, 112, 0},
    {"OneUnitOfLds", 0x00000200, 4, 4, 0, 128},
    {"AllLds", 0x0003FE00, 4, 4, 0, 65408},
    {"BitsWithoutMeaning", 0x3FFC0000, 4, 4, 0, 0},
    {"AllBits", 0x3FFFFFFF, 4, 256, 112, 65408},
};

INSTANTIATE_TEST_SUITE_P(Fields, StateRecordTest, testing::ValuesIn(kStateRows), RowName<StateRow>);

TEST(ContextSaveAreaTest, SizesStayInForceUntilTheNextStateRecord) {
  sample::AreaGroup later = Group(8, 32, 0, 1);
  sample::AreaGroup same_sizes = Group(4, 16, 0, 1);
  same_sizes.state_record = false;
  const std::string area = AreaOf({Group(4, 16, 0, 1), same_sizes, later});
  const ContextSaveArea saved = ReadArea(area);
  EXPECT_EQ(saved.verdict, Verdict::kComplete);
  ASSERT_EQ(saved.waves.size(), 3u);
  EXPECT_EQ(saved.waves[0].num_vgprs, 4u);
  EXPECT_EQ(saved.waves[1].num_vgprs, 4u);
  EXPECT_EQ(saved.waves[1].num_sgprs, 16u);
  EXPECT_EQ(saved.waves[2].num_vgprs, 8u);
  EXPECT_EQ(saved.waves[2].num_sgprs, 32u);
}

TEST(ContextSaveAreaTest, AWaveBeforeAnyStateRecordHasNoRegisters) {
  const std::string area = AreaOf({WithoutStateRecord(1)});
  // Header, three words of control stack, a block of 48 dwords.
  ASSERT_EQ(area.size(), 16u + 12 + 48 * 4);
  const ContextSaveArea saved = ReadArea(area);
  EXPECT_EQ(saved.verdict, Verdict::kComplete);
  ASSERT_EQ(saved.waves.size(), 1u);
  EXPECT_EQ(saved.waves[0].num_vgprs, 0u);
  EXPECT_EQ(saved.waves[0].num_vgpr_lanes, 64u);
  EXPECT_EQ(saved.waves[0].num_sgprs, 0u);
  EXPECT_EQ(saved.waves[0].lds_size_dw, 0u);
  EXPECT_EQ(saved.waves[0].lds, nullptr);
  EXPECT_EQ(OffsetIn(area, saved.waves[0].vgprs), 28);
  EXPECT_EQ(OffsetIn(area, saved.waves[0].sgprs), 28);
}

// ---------------------------------------------------------------------------------------------
// Which words of the control stack are waves

TEST(ContextSaveAreaTest, EventsAreSkipped) {
  sample::AreaGroup group = Group(4, 0, 0, 1);
  group.before = {0x40000000, 0x40020000, 0x7FFFFFFF};
  const ContextSaveArea saved = ReadArea(AreaOf({group}));
  EXPECT_EQ(saved.verdict, Verdict::kComplete);
  EXPECT_EQ(saved.waves.size(), 1u);
}

TEST(ContextSaveAreaTest, EntriesWithBothBitsAreSkipped) {
  sample::AreaGroup group = Group(4, 0, 0, 1);
  group.before = {0xC0000000, 0xC0020000, 0xFFFFFFFF};
  const ContextSaveArea saved = ReadArea(AreaOf({group}));
  EXPECT_EQ(saved.verdict, Verdict::kComplete);
  EXPECT_EQ(saved.waves.size(), 1u);
}

TEST(ContextSaveAreaTest, EntriesWithBothBitsLeaveTheSizesAlone) {
  sample::AreaGroup later = Group(4, 16, 0, 1);
  later.before = {0xC003FFFF, 0x4003FFFF};
  later.state_record = false;
  const ContextSaveArea saved = ReadArea(AreaOf({Group(4, 16, 0, 1), later}));
  EXPECT_EQ(saved.verdict, Verdict::kComplete);
  ASSERT_EQ(saved.waves.size(), 2u);
  EXPECT_EQ(saved.waves[1].num_vgprs, 4u);
  EXPECT_EQ(saved.waves[1].num_sgprs, 16u);
}

TEST(ContextSaveAreaTest, ThePreambleIsSkippedWhateverItHolds) {
  for (const uint32_t word : {0x00000000u, 0x00020000u, 0x8003FFFFu, 0xFFFFFFFFu}) {
    std::string area = AreaOf({Group(4, 0, 0, 1)});
    sample::PutU32(area, 16, word);
    sample::PutU32(area, 20, word);
    const ContextSaveArea saved = ReadArea(area);
    EXPECT_EQ(saved.verdict, Verdict::kComplete) << word;
    ASSERT_EQ(saved.waves.size(), 1u) << word;
    EXPECT_EQ(saved.waves[0].num_vgprs, 4u) << word;
  }
}

TEST(ContextSaveAreaTest, OtherBitsOfAWaveRecordAreNotUsed) {
  std::string area = AreaOf({Group(4, 0, 128, 2)});
  sample::PutU32(area, 16 + 3 * 4, 0x3FFFFFFF);  // with bit 17: the first in its group
  sample::PutU32(area, 16 + 4 * 4, 0x3FFDFFFF);  // without
  const ContextSaveArea saved = ReadArea(area);
  EXPECT_EQ(saved.verdict, Verdict::kComplete);
  ASSERT_EQ(saved.waves.size(), 2u);
  EXPECT_NE(saved.waves[0].lds, nullptr);
  EXPECT_EQ(saved.waves[1].lds, saved.waves[0].lds);
}

TEST(ContextSaveAreaTest, WavesKeepTheOrderOfTheControlStack) {
  sample::AreaGroup first = Group(4, 0, 0, 2);
  sample::AreaGroup second = Group(8, 0, 0, 1);
  first.waves[0].hwregs[0] = 1;
  first.waves[1].hwregs[0] = 2;
  second.waves[0].hwregs[0] = 3;
  const ContextSaveArea saved = ReadArea(AreaOf({first, second}));
  ASSERT_EQ(saved.waves.size(), 3u);
  EXPECT_EQ(saved.waves[0].regs.m0, 1u);
  EXPECT_EQ(saved.waves[1].regs.m0, 2u);
  EXPECT_EQ(saved.waves[2].regs.m0, 3u);
}

// ---------------------------------------------------------------------------------------------
// LDS

TEST(ContextSaveAreaTest, WavesOfAGroupShareTheLdsOfItsFirst) {
  const ContextSaveArea saved = ReadArea(TwoWavesWithLds());
  ASSERT_EQ(saved.waves.size(), 2u);
  EXPECT_NE(saved.waves[0].lds, nullptr);
  EXPECT_EQ(saved.waves[1].lds, saved.waves[0].lds);
}

TEST(ContextSaveAreaTest, EveryGroupHasItsOwnLds) {
  sample::AreaGroup first = Group(4, 0, 128, 2);
  sample::AreaGroup second = Group(4, 0, 256, 2);
  first.waves[0].lds = {0x1D51};
  second.waves[0].lds = {0x1D52};
  const std::string area = AreaOf({first, second});
  const ContextSaveArea saved = ReadArea(area);
  ASSERT_EQ(saved.waves.size(), 4u);
  EXPECT_EQ(LoadU32(saved.waves[1].lds), 0x1D51u);
  EXPECT_EQ(saved.waves[1].lds_size_dw, 128u);
  EXPECT_EQ(LoadU32(saved.waves[3].lds), 0x1D52u);
  EXPECT_EQ(saved.waves[3].lds_size_dw, 256u);
}

TEST(ContextSaveAreaTest, AFirstWaveWithoutLdsEndsTheSharing) {
  const std::string area = AreaOf({Group(4, 0, 128, 1), Group(4, 0, 0, 2)});
  const ContextSaveArea saved = ReadArea(area);
  ASSERT_EQ(saved.waves.size(), 3u);
  EXPECT_NE(saved.waves[0].lds, nullptr);
  EXPECT_EQ(saved.waves[1].lds, nullptr);
  EXPECT_EQ(saved.waves[2].lds, nullptr);
}

TEST(ContextSaveAreaTest, AWaveThatIsNotFirstKeepsTheLdsAcrossAStateRecord) {
  sample::AreaGroup later = Group(4, 0, 256, 1);
  later.waves[0].first_in_group = false;
  const std::string area = AreaOf({Group(4, 0, 128, 1), later});
  const ContextSaveArea saved = ReadArea(area);
  EXPECT_EQ(saved.verdict, Verdict::kComplete);
  ASSERT_EQ(saved.waves.size(), 2u);
  EXPECT_EQ(saved.waves[1].lds, saved.waves[0].lds);
  EXPECT_EQ(saved.waves[1].lds_size_dw, 256u);
}

TEST(ContextSaveAreaTest, WavesWithoutAFirstOneHaveNoLds) {
  sample::AreaGroup group = Group(4, 0, 128, 1);
  group.waves[0].first_in_group = false;
  const ContextSaveArea saved = ReadArea(AreaOf({group}));
  EXPECT_EQ(saved.verdict, Verdict::kComplete);
  ASSERT_EQ(saved.waves.size(), 1u);
  EXPECT_EQ(saved.waves[0].lds, nullptr);
  EXPECT_EQ(saved.waves[0].lds_size_dw, 128u);
}

// ---------------------------------------------------------------------------------------------
// The unit of VGPR counts

struct GranuleRow {
  const char* name;
  bool is_dp4x;
  uint32_t gfxv;
  uint32_t granule;
};

void PrintTo(const GranuleRow& row, std::ostream* out) { *out << row.name; }

class VgprGranuleTest : public testing::TestWithParam<GranuleRow> {};

TEST_P(VgprGranuleTest, DependsOnTheAgent) {
  EXPECT_EQ(VgprGranule(GetParam().is_dp4x, GetParam().gfxv), GetParam().granule);
}

constexpr GranuleRow kGranuleRows[] = {
    {"Osprey", false, 0x90006, 4},    {"OspreyDp4x", true, 0x90006, 8},
    {"Heron", false, 0x90106, 4},     {"HeronDp4x", true, 0x90106, 4},
    {"Kestrel", false, 0x90206, 4},   {"KestrelDp4x", true, 0x90206, 8},
    {"PloverDp4x", true, 0x90208, 8}, {"WrenDp4x", true, 0x90306, 8},
    {"FinchDp4x", true, 0x90308, 8},  {"UnknownChip", false, 0, 4},
    {"UnknownChipDp4x", true, 0, 8},
};

INSTANTIATE_TEST_SUITE_P(Agents, VgprGranuleTest, testing::ValuesIn(kGranuleRows),
                         RowName<GranuleRow>);

}  // namespace
