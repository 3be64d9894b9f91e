// Context save areas that contradict themselves or end too early.
#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>
#include <string>

#include "context_save_areas.h"
#include "core_dump_info/context_save_area.h"
#include "core_file_writer.h"
#include "row_name.h"

namespace {

using Verdict = ContextSaveArea::Verdict;

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
  const ContextSaveArea saved = ReadArea(HeaderOnly(16, GetParam().ctrl_stack_size,
                                                    wave_state_begin + GetParam().wave_state_size,
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
                         RowName<EmptyStackRow>);

TEST(ContextSaveAreaTest, TheControlStackMustEndWhereTheWavesBegin) {
  for (const size_t field : {0u, 4u, 8u, 12u}) {
    std::string area = TwoWavesWithLds();
    sample::PutU32(area, field, LoadU32(area.data() + field) + 4);
    const ContextSaveArea saved = ReadArea(area);
    EXPECT_EQ(saved.verdict, Verdict::kAddressCheckFailed) << field;
    EXPECT_TRUE(saved.waves.empty()) << field;
  }
}

// 0xFFFFFFF8 + 16 and 24 - 16 are both 8 modulo 2^32; the stack itself is not in the area.
TEST(ContextSaveAreaTest, TheAddressCheckIsMadeIn32Bits) {
  const ContextSaveArea saved = ReadArea(HeaderOnly(0xFFFFFFF8, 16, 24, 16));
  EXPECT_EQ(saved.verdict, Verdict::kDamaged);
}

// 16 - 32 is 0xFFFFFFF0 in 32 bits, so that the first check holds, and negative in 64.
TEST(ContextSaveAreaTest, TheSizeCheckIsMadeIn64Bits) {
  const ContextSaveArea saved = ReadArea(HeaderOnly(0xFFFFFFF0, 0, 16, 32));
  EXPECT_EQ(saved.verdict, Verdict::kSizeCheckFailed);
}

TEST(ContextSaveAreaTest, WavesThatDoNotFillTheAreaAreKept) {
  std::string area = TwoWavesWithLds();
  sample::PutU32(area, 16 + 4 * 4, 0x40000000);  // an event where the second wave was
  const ContextSaveArea saved = ReadArea(area);
  EXPECT_EQ(saved.verdict, Verdict::kSizeCheckFailed);
  EXPECT_EQ(saved.waves.size(), 1u);
}

TEST(ContextSaveAreaTest, WavesThatTakeMoreThanTheAreaAreKept) {
  const ContextSaveArea saved = ReadArea(AreaWithTooFewWaveBytes());
  EXPECT_EQ(saved.verdict, Verdict::kSizeCheckFailed);
  EXPECT_EQ(saved.waves.size(), 2u);
}

TEST(ContextSaveAreaTest, ACompleteAreaHasNoLosses) {
  EXPECT_TRUE(ReadArea(TwoWavesWithLds()).losses.empty());
}

TEST(ContextSaveAreaTest, AnAreaShorterThanItsHeaderHasNoHeader) {
  const ContextSaveArea saved = ReadArea(std::string(15, '\0'));
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
  const ContextSaveArea saved = ReadArea(area);
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
  const ContextSaveArea saved = ReadArea(area);
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
  const ContextSaveArea saved = ReadArea(area);
  ASSERT_EQ(saved.waves.size(), 1u);
  EXPECT_EQ(saved.waves[0].lds, nullptr);
}

}  // namespace
