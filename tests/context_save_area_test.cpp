#include "core_dump_info/context_save_area.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "captured_output.h"
#include "core_dump_info.h"
#include "core_file_writer.h"
#include "temp_dir.h"

namespace {

using Verdict = ContextSaveArea::Verdict;

Bytes AsBytes(const std::string& area) {
  return {reinterpret_cast<const unsigned char*>(area.data()), area.size()};
}

ContextSaveArea Read(const std::string& area, uint32_t vgpr_granule = 4) {
  return ReadContextSaveArea(AsBytes(area), vgpr_granule);
}

// Where `pointer` lies in `area`; -1 for null.
int64_t OffsetIn(const std::string& area, const uint32_t* pointer) {
  return pointer == nullptr ? -1 : reinterpret_cast<const char*>(pointer) - area.data();
}

// An area without waves: the header as given, then zeros.
std::string HeaderOnly(uint32_t ctrl_stack_offset, uint32_t ctrl_stack_size,
                       uint32_t wave_state_offset, uint32_t wave_state_size) {
  return sample::Dwords({ctrl_stack_offset, ctrl_stack_size, wave_state_offset, wave_state_size}) +
         std::string(64, '\0');
}

// A group of `waves` waves, the first of which is the first in the group.
sample::AreaGroup Group(uint32_t vgprs, uint32_t sgprs, uint32_t lds_dwords, size_t waves) {
  sample::AreaGroup group;
  group.state = sample::StateRecord(vgprs, 4, sgprs, lds_dwords);
  group.vgpr_count = vgprs;
  group.sgpr_count = sgprs;
  group.lds_dwords = lds_dwords;
  group.waves.resize(waves);
  group.waves[0].first_in_group = true;
  return group;
}

sample::AreaGroup WithoutStateRecord(size_t waves) {
  sample::AreaGroup group;
  group.state_record = false;
  group.waves.resize(waves);
  return group;
}

std::string AreaOf(std::vector<sample::AreaGroup> groups) {
  sample::ContextArea area;
  area.groups = std::move(groups);
  return sample::ContextAreaBytes(area);
}

// ---------------------------------------------------------------------------------------------
// Where the parts of a wave lie

// Control stack at 16: preamble, state record (4 VGPRs, 16 SGPRs, 128 dwords of LDS), two waves, 20
// bytes. First block 256 + 16 + 16 + 16 + 128 + 16 = 448 dwords, second one 320. The area ends at
// 36 + 1280 + 1792.
const std::string& TwoWavesWithLds() {
  static const std::string area = AreaOf({Group(4, 16, 128, 2)});
  return area;
}

TEST(ContextSaveAreaTest, TheFirstWaveEndsAtTheTopOfTheArea) {
  const std::string& area = TwoWavesWithLds();
  ASSERT_EQ(area.size(), 3108u);
  const ContextSaveArea saved = Read(area);
  ASSERT_EQ(saved.verdict, Verdict::kComplete);
  ASSERT_EQ(saved.waves.size(), 2u);
  EXPECT_EQ(OffsetIn(area, saved.waves[0].vgprs), 1316);
  EXPECT_EQ(OffsetIn(area, saved.waves[0].sgprs), 1316 + 1024);
  EXPECT_EQ(OffsetIn(area, saved.waves[0].lds), 1316 + 1024 + 64 + 64 + 64);
}

TEST(ContextSaveAreaTest, TheNextWaveEndsWhereTheFirstBegins) {
  const std::string& area = TwoWavesWithLds();
  const ContextSaveArea saved = Read(area);
  ASSERT_EQ(saved.waves.size(), 2u);
  EXPECT_EQ(OffsetIn(area, saved.waves[1].vgprs), 36);
  EXPECT_EQ(OffsetIn(area, saved.waves[1].sgprs), 36 + 1024);
}

TEST(ContextSaveAreaTest, CountsComeFromTheStateRecord) {
  const ContextSaveArea saved = Read(TwoWavesWithLds());
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
  const ContextSaveArea saved = Read(bytes);
  EXPECT_EQ(saved.verdict, Verdict::kComplete);
  ASSERT_EQ(saved.waves.size(), 1u);
  // Header, slack, four words of control stack.
  EXPECT_EQ(OffsetIn(bytes, saved.waves[0].vgprs), 16 + 100 + 16);
}

// Every register at a value of its own.
sample::AreaWave DistinctWave() {
  sample::AreaWave wave;
  wave.hwregs = {0x11000001,   // M0
                 0x22000002,   // PC_LO
                 0x80007F12,   // PC_HI
                 0x33000003,   // EXEC_LO
                 0x44000004,   // EXEC_HI
                 0x55000005,   // STATUS
                 0x66000006,   // TRAPSTS
                 0x77000007,   // XNACK_MASK_LO
                 0x88000008,   // XNACK_MASK_HI
                 0x99000009,   // MODE
                 0xAA00000A,   // HW_ID
                 0xBB00000B,   // GPR_ALLOC
                 0xCC00000C,   // LDS_ALLOC
                 0xDD00000D,   // IB_STS
                 0x12345678,   // TBA_LO
                 0xEE00007F};  // TBA_HI
  for (uint32_t i = 0; i < 16; ++i) {
    wave.ttmps[i] = 0xF0F00000 + i;
  }
  wave.ttmps[0] = 0x9ABCDEF0;  // TMA_LO
  wave.ttmps[1] = 0xDD00007F;  // TMA_HI
  wave.ttmps[7] = 0x89ABCDEF;
  wave.ttmps[11] = 0xFFC7897F;  // 0x8F12 in bits 22..7, ones around it
  return wave;
}

void ExpectDistinctRegisters(const WaveStateInfo& wave) {
  EXPECT_EQ(wave.regs.pc, 0x80007F1222000002u);
  EXPECT_EQ(wave.regs.trap_pc, 0x00008F1289ABCDEFu);
  EXPECT_EQ(wave.regs.exec, 0x4400000433000003u);
  EXPECT_EQ(wave.regs.xnack_mask, 0x8800000877000007u);
  EXPECT_EQ(wave.regs.tba, 0x00007F1234567800u);  // the topmost byte is shifted out
  EXPECT_EQ(wave.regs.tma, 0x00007F9ABCDEF000u);
  EXPECT_EQ(wave.regs.status, 0x55000005u);
  EXPECT_EQ(wave.regs.trapsts, 0x66000006u);
  EXPECT_EQ(wave.regs.m0, 0x11000001u);
  EXPECT_EQ(wave.regs.mode, 0x99000009u);
  EXPECT_EQ(wave.regs.hw_id, 0xAA00000Au);
  EXPECT_EQ(wave.regs.gpr_alloc, 0xBB00000Bu);
  EXPECT_EQ(wave.regs.lds_alloc, 0xCC00000Cu);
  EXPECT_EQ(wave.regs.ib_sts, 0xDD00000Du);
}

std::string AreaOfDistinctWave() {
  sample::AreaGroup group = Group(8, 16, 128, 1);
  group.waves[0] = DistinctWave();
  group.waves[0].first_in_group = true;
  return AreaOf({group});
}

TEST(ContextSaveAreaTest, HardwareRegistersAreRead) {
  const std::string area = AreaOfDistinctWave();
  const ContextSaveArea saved = Read(area);
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
  const ContextSaveArea saved = Read(area);
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
  const ContextSaveArea saved = Read(area, GetParam().granule);
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

INSTANTIATE_TEST_SUITE_P(Fields, StateRecordTest, testing::ValuesIn(kStateRows),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(ContextSaveAreaTest, SizesStayInForceUntilTheNextStateRecord) {
  sample::AreaGroup later = Group(8, 32, 0, 1);
  sample::AreaGroup same_sizes = Group(4, 16, 0, 1);
  same_sizes.state_record = false;
  const std::string area = AreaOf({Group(4, 16, 0, 1), same_sizes, later});
  const ContextSaveArea saved = Read(area);
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
  const ContextSaveArea saved = Read(area);
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
  const ContextSaveArea saved = Read(AreaOf({group}));
  EXPECT_EQ(saved.verdict, Verdict::kComplete);
  EXPECT_EQ(saved.waves.size(), 1u);
}

TEST(ContextSaveAreaTest, EntriesWithBothBitsAreSkipped) {
  sample::AreaGroup group = Group(4, 0, 0, 1);
  group.before = {0xC0000000, 0xC0020000, 0xFFFFFFFF};
  const ContextSaveArea saved = Read(AreaOf({group}));
  EXPECT_EQ(saved.verdict, Verdict::kComplete);
  EXPECT_EQ(saved.waves.size(), 1u);
}

TEST(ContextSaveAreaTest, EntriesWithBothBitsLeaveTheSizesAlone) {
  sample::AreaGroup later = Group(4, 16, 0, 1);
  later.before = {0xC003FFFF, 0x4003FFFF};
  later.state_record = false;
  const ContextSaveArea saved = Read(AreaOf({Group(4, 16, 0, 1), later}));
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
    const ContextSaveArea saved = Read(area);
    EXPECT_EQ(saved.verdict, Verdict::kComplete) << word;
    ASSERT_EQ(saved.waves.size(), 1u) << word;
    EXPECT_EQ(saved.waves[0].num_vgprs, 4u) << word;
  }
}

TEST(ContextSaveAreaTest, OtherBitsOfAWaveRecordAreNotUsed) {
  std::string area = AreaOf({Group(4, 0, 128, 2)});
  sample::PutU32(area, 16 + 3 * 4, 0x3FFFFFFF);  // with bit 17: the first in its group
  sample::PutU32(area, 16 + 4 * 4, 0x3FFDFFFF);  // without
  const ContextSaveArea saved = Read(area);
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
  const ContextSaveArea saved = Read(AreaOf({first, second}));
  ASSERT_EQ(saved.waves.size(), 3u);
  EXPECT_EQ(saved.waves[0].regs.m0, 1u);
  EXPECT_EQ(saved.waves[1].regs.m0, 2u);
  EXPECT_EQ(saved.waves[2].regs.m0, 3u);
}

// ---------------------------------------------------------------------------------------------
// LDS

TEST(ContextSaveAreaTest, WavesOfAGroupShareTheLdsOfItsFirst) {
  const ContextSaveArea saved = Read(TwoWavesWithLds());
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
  const ContextSaveArea saved = Read(area);
  ASSERT_EQ(saved.waves.size(), 4u);
  EXPECT_EQ(LoadU32(saved.waves[1].lds), 0x1D51u);
  EXPECT_EQ(saved.waves[1].lds_size_dw, 128u);
  EXPECT_EQ(LoadU32(saved.waves[3].lds), 0x1D52u);
  EXPECT_EQ(saved.waves[3].lds_size_dw, 256u);
}

TEST(ContextSaveAreaTest, AFirstWaveWithoutLdsEndsTheSharing) {
  const std::string area = AreaOf({Group(4, 0, 128, 1), Group(4, 0, 0, 2)});
  const ContextSaveArea saved = Read(area);
  ASSERT_EQ(saved.waves.size(), 3u);
  EXPECT_NE(saved.waves[0].lds, nullptr);
  EXPECT_EQ(saved.waves[1].lds, nullptr);
  EXPECT_EQ(saved.waves[2].lds, nullptr);
}

TEST(ContextSaveAreaTest, AWaveThatIsNotFirstKeepsTheLdsAcrossAStateRecord) {
  sample::AreaGroup later = Group(4, 0, 256, 1);
  later.waves[0].first_in_group = false;
  const std::string area = AreaOf({Group(4, 0, 128, 1), later});
  const ContextSaveArea saved = Read(area);
  EXPECT_EQ(saved.verdict, Verdict::kComplete);
  ASSERT_EQ(saved.waves.size(), 2u);
  EXPECT_EQ(saved.waves[1].lds, saved.waves[0].lds);
  EXPECT_EQ(saved.waves[1].lds_size_dw, 256u);
}

TEST(ContextSaveAreaTest, WavesWithoutAFirstOneHaveNoLds) {
  sample::AreaGroup group = Group(4, 0, 128, 1);
  group.waves[0].first_in_group = false;
  const ContextSaveArea saved = Read(AreaOf({group}));
  EXPECT_EQ(saved.verdict, Verdict::kComplete);
  ASSERT_EQ(saved.waves.size(), 1u);
  EXPECT_EQ(saved.waves[0].lds, nullptr);
  EXPECT_EQ(saved.waves[0].lds_size_dw, 128u);
}

// ---------------------------------------------------------------------------------------------
// Checks

struct EmptyStackRow {
  const char* name;
  uint32_t ctrl_stack_size;
  uint32_t wave_state_size;
  Verdict verdict;
};

void PrintTo(const EmptyStackRow& row, std::ostream* out) { *out << row.name; }

class EmptyControlStackTest : public testing::TestWithParam<EmptyStackRow> {};

TEST_P(EmptyControlStackTest, HasNoWaves) {
  const uint32_t wave_state_begin = 16 + GetParam().ctrl_stack_size;
  const ContextSaveArea saved =
      Read(HeaderOnly(16, GetParam().ctrl_stack_size, wave_state_begin + GetParam().wave_state_size,
                      GetParam().wave_state_size));
  EXPECT_EQ(saved.verdict, GetParam().verdict);
  EXPECT_TRUE(saved.waves.empty());
}

constexpr EmptyStackRow kEmptyStackRows[] = {
    {"NoStack", 0, 0, Verdict::kComplete},
    {"HalfThePreamble", 4, 0, Verdict::kComplete},
    {"ThePreamble", 8, 0, Verdict::kComplete},
    {"ThePreambleAndPartOfAWord", 11, 0, Verdict::kComplete},
    {"NoStackBeforeWaves", 0, 4, Verdict::kSizeCheckFailed},
    {"ThePreambleBeforeWaves", 8, 48, Verdict::kSizeCheckFailed},
};

INSTANTIATE_TEST_SUITE_P(Sizes, EmptyControlStackTest, testing::ValuesIn(kEmptyStackRows),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(ContextSaveAreaTest, TheControlStackMustEndWhereTheWavesBegin) {
  for (const size_t field : {0u, 4u, 8u, 12u}) {
    std::string area = TwoWavesWithLds();
    sample::PutU32(area, field, LoadU32(area.data() + field) + 4);
    const ContextSaveArea saved = Read(area);
    EXPECT_EQ(saved.verdict, Verdict::kAddressCheckFailed) << field;
    EXPECT_TRUE(saved.waves.empty()) << field;
  }
}

// 0xFFFFFFF8 + 16 and 24 - 16 are both 8 modulo 2^32; the stack itself is not in the area.
TEST(ContextSaveAreaTest, TheAddressCheckIsMadeIn32Bits) {
  const ContextSaveArea saved = Read(HeaderOnly(0xFFFFFFF8, 16, 24, 16));
  EXPECT_EQ(saved.verdict, Verdict::kDamaged);
}

// 16 - 32 is 0xFFFFFFF0 in 32 bits, so that the first check holds, and negative in 64.
TEST(ContextSaveAreaTest, TheSizeCheckIsMadeIn64Bits) {
  const ContextSaveArea saved = Read(HeaderOnly(0xFFFFFFF0, 0, 16, 32));
  EXPECT_EQ(saved.verdict, Verdict::kSizeCheckFailed);
}

// The control stack is one word longer and the wave save area one word shorter: one word less than
// the two waves take.
std::string AreaWithTooFewWaveBytes() {
  std::string area = TwoWavesWithLds();
  sample::PutU32(area, 4, 20 + 4);
  sample::PutU32(area, 12, 3072 - 4);
  sample::PutU32(area, 36, 0x40000000);  // the word that the stack has gained: an event
  return area;
}

TEST(ContextSaveAreaTest, WavesThatDoNotFillTheAreaAreKept) {
  std::string area = TwoWavesWithLds();
  sample::PutU32(area, 16 + 4 * 4, 0x40000000);  // an event where the second wave was
  const ContextSaveArea saved = Read(area);
  EXPECT_EQ(saved.verdict, Verdict::kSizeCheckFailed);
  EXPECT_EQ(saved.waves.size(), 1u);
}

TEST(ContextSaveAreaTest, WavesThatTakeMoreThanTheAreaAreKept) {
  const ContextSaveArea saved = Read(AreaWithTooFewWaveBytes());
  EXPECT_EQ(saved.verdict, Verdict::kSizeCheckFailed);
  EXPECT_EQ(saved.waves.size(), 2u);
}

TEST(ContextSaveAreaTest, ACompleteAreaHasNoLosses) {
  EXPECT_TRUE(Read(TwoWavesWithLds()).losses.empty());
}

TEST(ContextSaveAreaTest, AnAreaShorterThanItsHeaderHasNoHeader) {
  const ContextSaveArea saved = Read(std::string(15, '\0'));
  EXPECT_EQ(saved.verdict, Verdict::kNoHeader);
  ASSERT_EQ(saved.losses.size(), 1u);
  EXPECT_EQ(saved.losses[0].offset, 0);
  EXPECT_EQ(saved.losses[0].wanted, 16u);
  EXPECT_EQ(saved.losses[0].available, 15u);
}

// The first wave lies on top, so it is the one that a cut takes.
TEST(ContextSaveAreaTest, OfACutAreaTheWholeWavesAreKept) {
  std::string area = AreaOf({Group(4, 0, 0, 2)});
  const size_t block = size_t{256 + 48} * 4;
  area.resize(area.size() - 10);
  const ContextSaveArea saved = Read(area);
  EXPECT_EQ(saved.verdict, Verdict::kDamaged);
  ASSERT_EQ(saved.waves.size(), 1u);
  EXPECT_EQ(OffsetIn(area, saved.waves[0].vgprs), 36);
  ASSERT_EQ(saved.losses.size(), 1u);
  EXPECT_EQ(saved.losses[0].offset, static_cast<int64_t>(36 + block));
  EXPECT_EQ(saved.losses[0].wanted, block);
  EXPECT_EQ(saved.losses[0].available, block - 10);
}

TEST(ContextSaveAreaTest, AWaveAboveTheStartOfTheAreaIsLost) {
  std::string area = AreaOf({Group(4, 0, 0, 1)});
  sample::PutU32(area, 16 + 2 * 4, 0x8000003F);  // 256 VGPRs instead of 4
  const ContextSaveArea saved = Read(area);
  EXPECT_EQ(saved.verdict, Verdict::kDamaged);
  EXPECT_TRUE(saved.waves.empty());
  ASSERT_EQ(saved.losses.size(), 1u);
  // The block of 256 x 64 + 48 dwords would begin that much before the top, at 32 + 304 x 4.
  EXPECT_EQ(saved.losses[0].offset, 1248 - 65728);
  EXPECT_EQ(saved.losses[0].wanted, 65728u);
}

TEST(ContextSaveAreaTest, LdsOfALostFirstWaveIsNotShared) {
  std::string area = TwoWavesWithLds();
  area.resize(area.size() - 1);
  const ContextSaveArea saved = Read(area);
  ASSERT_EQ(saved.waves.size(), 1u);
  EXPECT_EQ(saved.waves[0].lds, nullptr);
}

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
                         [](const auto& row) { return std::string(row.param.name); });

// ---------------------------------------------------------------------------------------------
// The queues of an analyser

constexpr uint32_t kGpuId = 100;

class QueueWaveStatesTest : public testing::Test {
 protected:
  QueueWaveStatesTest() {
    analyser_.dump_queue_dir_ = dir_.Path("queues");
    agent_.gpu_id = kGpuId;
    agent_.chip_id = 0x5001;
  }

  // The area must outlive the queue.
  CoreDumpQueue* AddQueue(uint32_t queue_id, const std::string& area,
                          uint32_t queue_type = QUEUE_TYPE_COMPUTE_AQL, uint32_t gpu_id = kGpuId) {
    auto* queue = new CoreDumpQueue();
    queue->queue_id = queue_id;
    queue->gpu_id = gpu_id;
    queue->queue_type = queue_type;
    queue->context_offset = reinterpret_cast<uint64_t>(area.data());
    queue->context_sr_size = area.size();
    return analyser_.queue_lists.emplace_back(queue);
  }

  // What a call says, time stamps as "[time]".
  template <typename Call>
  std::string Errors(Call call) {
    OutputCapture capture;
    call();
    const Output output = capture.Stop();
    EXPECT_EQ(output.out, "");
    return WithoutTimes(output.err);
  }

  TempDir dir_;
  CoreDumpAgent agent_ = {};
  CoreDumpInfo analyser_;
  QueueWaveMap waves_;
};

using Tree = std::vector<std::string>;

TEST_F(QueueWaveStatesTest, WavesStandUnderTheQueueId) {
  const std::string area = AreaOfDistinctWave();
  EXPECT_TRUE(analyser_.GetQueueWaveStates(&agent_, AddQueue(7, area), waves_));
  ASSERT_EQ(waves_.size(), 1u);
  ASSERT_EQ(waves_[7].size(), 1u);
  const WaveStateInfo& wave = waves_[7][0];
  ExpectDistinctRegisters(wave);
  EXPECT_EQ(wave.num_vgprs, 8u);
  EXPECT_EQ(wave.num_sgprs, 16u);
  EXPECT_EQ(wave.lds_size_dw, 128u);
  // Header, four words of control stack.
  EXPECT_EQ(OffsetIn(area, wave.vgprs), 32);
  EXPECT_EQ(OffsetIn(area, wave.sgprs), 32 + 8 * 64 * 4);
  EXPECT_EQ(OffsetIn(area, wave.lds), 32 + 8 * 64 * 4 + 16 * 4 + 16 * 4 + 16 * 4);
}

TEST_F(QueueWaveStatesTest, TheRawAreaIsWritten) {
  const std::string area = AreaOfDistinctWave() + "behind the waves";
  EXPECT_TRUE(analyser_.GetQueueWaveStates(&agent_, AddQueue(4000000000, area), waves_));
  EXPECT_EQ(ListTree(dir_.Path()),
            (Tree{"queues/", "queues/4000000000/", "queues/4000000000/cwsr"}));
  EXPECT_EQ(ReadText(dir_.Path("queues/4000000000/cwsr")), area);
}

TEST_F(QueueWaveStatesTest, AQueueWithoutWavesHasAnEmptyEntry) {
  const std::string area = AreaOf({});
  EXPECT_TRUE(analyser_.GetQueueWaveStates(&agent_, AddQueue(7, area), waves_));
  ASSERT_EQ(waves_.count(7), 1u);
  EXPECT_TRUE(waves_[7].empty());
}

TEST_F(QueueWaveStatesTest, ReadTwiceAQueueHasItsWavesTwice) {
  const std::string& area = TwoWavesWithLds();
  CoreDumpQueue* queue = AddQueue(7, area);
  EXPECT_TRUE(analyser_.GetQueueWaveStates(&agent_, queue, waves_));
  EXPECT_TRUE(analyser_.GetQueueWaveStates(&agent_, queue, waves_));
  ASSERT_EQ(waves_[7].size(), 4u);
  EXPECT_EQ(waves_[7][0].vgprs, waves_[7][2].vgprs);
  EXPECT_EQ(waves_[7][1].vgprs, waves_[7][3].vgprs);
}

TEST_F(QueueWaveStatesTest, WithoutAnAgentNothingIsRead) {
  const std::string& area = TwoWavesWithLds();
  CoreDumpQueue* queue = AddQueue(7, area);
  EXPECT_EQ(Errors([&] { EXPECT_FALSE(analyser_.GetQueueWaveStates(nullptr, queue, waves_)); }),
            "[time] Error: invalid args for agent info or queue info.\n");
  EXPECT_TRUE(waves_.empty());
  EXPECT_EQ(ListTree(dir_.Path()), Tree{});
}

TEST_F(QueueWaveStatesTest, WithoutAQueueNothingIsRead) {
  EXPECT_EQ(Errors([&] { EXPECT_FALSE(analyser_.GetQueueWaveStates(&agent_, nullptr, waves_)); }),
            "[time] Error: invalid args for agent info or queue info.\n");
  EXPECT_TRUE(waves_.empty());
}

TEST_F(QueueWaveStatesTest, AnAreaThatCannotBeWrittenFailsInSilence) {
  const std::string& area = TwoWavesWithLds();
  WriteText(dir_.Path("queues"), "a file where the directory should be");
  CoreDumpQueue* queue = AddQueue(7, area);
  EXPECT_EQ(Errors([&] { EXPECT_FALSE(analyser_.GetQueueWaveStates(&agent_, queue, waves_)); }),
            "");
  EXPECT_TRUE(waves_.empty());
}

// The write comes first and refuses what is nothing, so that no message follows it.
TEST_F(QueueWaveStatesTest, AnAreaAtNoAddressFailsInSilence) {
  CoreDumpQueue* queue = AddQueue(7, TwoWavesWithLds());
  queue->context_offset = 0;
  EXPECT_EQ(Errors([&] { EXPECT_FALSE(analyser_.GetQueueWaveStates(&agent_, queue, waves_)); }),
            "");
  EXPECT_TRUE(waves_.empty());
  EXPECT_EQ(ListTree(dir_.Path()), (Tree{"queues/", "queues/7/"}));
}

TEST_F(QueueWaveStatesTest, AnAreaOfNoSizeFailsInSilence) {
  CoreDumpQueue* queue = AddQueue(7, TwoWavesWithLds());
  queue->context_sr_size = 0;
  EXPECT_EQ(Errors([&] { EXPECT_FALSE(analyser_.GetQueueWaveStates(&agent_, queue, waves_)); }),
            "");
  EXPECT_TRUE(waves_.empty());
  EXPECT_EQ(ListTree(dir_.Path()), (Tree{"queues/", "queues/7/"}));
}

TEST_F(QueueWaveStatesTest, AFailedAddressCheckLeavesTheMapAlone) {
  std::string area = TwoWavesWithLds();
  sample::PutU32(area, 0, 20);
  CoreDumpQueue* queue = AddQueue(7, area);
  EXPECT_EQ(Errors([&] { EXPECT_FALSE(analyser_.GetQueueWaveStates(&agent_, queue, waves_)); }),
            "[time] Error: Ctrl stack / context save address check fail\n");
  EXPECT_TRUE(waves_.empty());
  EXPECT_EQ(ReadText(dir_.Path("queues/7/cwsr")), area);
}

TEST_F(QueueWaveStatesTest, AFailedSizeCheckKeepsTheWaves) {
  const std::string area = AreaWithTooFewWaveBytes();
  CoreDumpQueue* queue = AddQueue(7, area);
  EXPECT_EQ(Errors([&] { EXPECT_FALSE(analyser_.GetQueueWaveStates(&agent_, queue, waves_)); }),
            "[time] Error: Context save size check fail\n");
  ASSERT_EQ(waves_.count(7), 1u);
  EXPECT_EQ(waves_[7].size(), 2u);
  EXPECT_EQ(ReadText(dir_.Path("queues/7/cwsr")), area);
}

TEST_F(QueueWaveStatesTest, AFailedSizeCheckWithoutWavesKeepsTheEmptyEntry) {
  const std::string area = HeaderOnly(16, 8, 32, 8);
  CoreDumpQueue* queue = AddQueue(7, area);
  EXPECT_EQ(Errors([&] { EXPECT_FALSE(analyser_.GetQueueWaveStates(&agent_, queue, waves_)); }),
            "[time] Error: Context save size check fail\n");
  ASSERT_EQ(waves_.count(7), 1u);
  EXPECT_TRUE(waves_[7].empty());
}

struct ChipRow {
  const char* name;
  uint32_t chip_id;
  bool is_dp4x;
  uint32_t vgprs;  // of a state record with 1 in its VGPR field
};

void PrintTo(const ChipRow& row, std::ostream* out) { *out << row.name; }

class QueueWaveGranuleTest : public QueueWaveStatesTest,
                             public testing::WithParamInterface<ChipRow> {};

TEST_P(QueueWaveGranuleTest, ComesFromTheChip) {
  sample::AreaGroup group;
  group.state = 1;
  group.vgpr_count = GetParam().vgprs;
  group.waves.resize(1);
  const std::string area = AreaOf({group});
  agent_.chip_id = GetParam().chip_id;
  agent_.is_dp4x = GetParam().is_dp4x;
  EXPECT_TRUE(analyser_.GetQueueWaveStates(&agent_, AddQueue(7, area), waves_));
  ASSERT_EQ(waves_[7].size(), 1u);
  EXPECT_EQ(waves_[7][0].num_vgprs, GetParam().vgprs);
}

constexpr ChipRow kChipRows[] = {
    {"NoDp4x", 0x5001, false, 8},        {"Dp4x", 0x5001, true, 16},
    {"HeronNoDp4x", 0x500F, false, 8},   {"HeronDp4x", 0x500F, true, 8},
    {"VersionOfHeron", 0x5008, true, 8}, {"KestrelDp4x", 0x5011, true, 16},
    {"UnknownChip", 0x1234, true, 16},   {"HeronInTheLow16Bits", 0xAB500F, true, 8},
};

INSTANTIATE_TEST_SUITE_P(Chips, QueueWaveGranuleTest, testing::ValuesIn(kChipRows),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_F(QueueWaveStatesTest, AnAgentWithoutQueuesHasNoWaves) {
  EXPECT_TRUE(analyser_.GetQueuesWaveStates(&agent_, waves_));
  EXPECT_TRUE(waves_.empty());
}

TEST_F(QueueWaveStatesTest, OnlyAqlQueuesOfTheAgentAreRead) {
  const std::string& area = TwoWavesWithLds();
  AddQueue(1, area, QUEUE_TYPE_COMPUTE);
  AddQueue(2, area, QUEUE_TYPE_SDMA);
  AddQueue(3, area, QUEUE_TYPE_COMPUTE_AQL);
  AddQueue(4, area, QUEUE_TYPE_SDMA_XGMI);
  AddQueue(5, area, QUEUE_TYPE_COMPUTE_AQL, kGpuId + 1);
  AddQueue(6, area, 6);
  AddQueue(0, area, QUEUE_TYPE_COMPUTE_AQL);
  EXPECT_TRUE(analyser_.GetQueuesWaveStates(&agent_, waves_));
  ASSERT_EQ(waves_.size(), 2u);
  EXPECT_EQ(waves_[0].size(), 2u);
  EXPECT_EQ(waves_[3].size(), 2u);
  EXPECT_EQ(ListTree(dir_.Path("queues")), (Tree{"0/", "0/cwsr", "3/", "3/cwsr"}));
}

TEST_F(QueueWaveStatesTest, QueuesBehindAFailureAreNotRead) {
  const std::string& good = TwoWavesWithLds();
  std::string bad = good;
  sample::PutU32(bad, 0, 20);
  AddQueue(9, good);
  AddQueue(5, bad);
  AddQueue(1, good);
  EXPECT_EQ(Errors([&] { EXPECT_FALSE(analyser_.GetQueuesWaveStates(&agent_, waves_)); }),
            "[time] Error: Ctrl stack / context save address check fail\n");
  EXPECT_EQ(waves_.size(), 1u);
  EXPECT_EQ(waves_[9].size(), 2u);
  EXPECT_EQ(ListTree(dir_.Path("queues")), (Tree{"5/", "5/cwsr", "9/", "9/cwsr"}));
}

TEST_F(QueueWaveStatesTest, QueuesWithOneIdShareTheirEntry) {
  const std::string& area = TwoWavesWithLds();
  AddQueue(7, area);
  AddQueue(7, area);
  EXPECT_TRUE(analyser_.GetQueuesWaveStates(&agent_, waves_));
  EXPECT_EQ(waves_.size(), 1u);
  EXPECT_EQ(waves_[7].size(), 4u);
}

}  // namespace
