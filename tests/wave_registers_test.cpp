// The general registers in the report of a wave.
#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "core_dump_info.h"
#include "same_text.h"
#include "utils.h"
#include "wave_report_fixture.h"

namespace {

// `count` registers in rows of four: " ", then four times the name in 6 characters and the value.
template <typename Value>
std::string Rows(char letter, uint32_t first, uint32_t count, Value value) {
  std::string rows;
  for (uint32_t row = 0; row < count / 4; ++row) {
    rows += " ";
    for (uint32_t k = 4 * row; k < 4 * row + 4; ++k) {
      rows += StrFormat("%6s: 0X%08X", StrFormat("%c%u", letter, first + k).c_str(),
                        static_cast<unsigned>(value(k)));
    }
    rows += "\n";
  }
  return rows;
}

// ---------------------------------------------------------------------------------------------
// SGPRs

// Between the title and the first lane: the rows and an empty line.
std::string SgprLines(const std::string& report) {
  return Between(report, "General Registers:\n\n", "Lane 0\n");
}

class SgprCountTest : public WaveReportTest, public testing::WithParamInterface<uint32_t> {};

TEST_P(SgprCountTest, OnlyWholeRowsAreShown) {
  std::vector<uint32_t> sgprs(GetParam());
  for (uint32_t k = 0; k < GetParam(); ++k) {
    sgprs[k] = 0xF0000000 + k;
  }
  wave_.num_sgprs = GetParam();
  wave_.sgprs = sgprs.data();
  EXPECT_EQ(SgprLines(Saved()),
            Rows('s', 0, GetParam(), [](uint32_t k) { return 0xF0000000 + k; }) + "\n");
}

INSTANTIATE_TEST_SUITE_P(Counts, SgprCountTest, testing::Values(0, 1, 3, 4, 7, 8, 16, 112));

TEST_F(WaveReportTest, FewerThanFourSgprsAreOneEmptyLine) {
  const uint32_t sgprs[3] = {1, 2, 3};
  wave_.num_sgprs = 3;
  wave_.sgprs = sgprs;
  EXPECT_EQ(SgprLines(Saved()), "\n");
}

TEST_F(WaveReportTest, NamesOfThreeDigitsKeepTheColumns) {
  const std::vector<uint32_t> sgprs(104, 0xABCDEF01);
  wave_.num_sgprs = 104;
  wave_.sgprs = sgprs.data();
  EXPECT_NE(
      Saved().find("\n"
                   "    s96: 0XABCDEF01   s97: 0XABCDEF01   s98: 0XABCDEF01   s99: 0XABCDEF01\n"
                   "   s100: 0XABCDEF01  s101: 0XABCDEF01  s102: 0XABCDEF01  s103: 0XABCDEF01\n"
                   "\n"
                   "Lane 0\n"),
      std::string::npos);
}

struct SgprSizeRow {
  uint32_t gpr_alloc;
  uint32_t sgprs;
};

void PrintTo(const SgprSizeRow& row, std::ostream* out) { *out << row.sgprs; }

class RecordedSgprTest : public WaveReportTest, public testing::WithParamInterface<SgprSizeRow> {};

TEST_P(RecordedSgprTest, TheCountComesFromGprAlloc) {
  for (uint32_t k = 0; k < 1024; ++k) {
    record_->sgprs[k] = 0x5000 + k;
  }
  record_->gpr_alloc = GetParam().gpr_alloc;
  EXPECT_EQ(SgprLines(Recorded()),
            Rows('s', 0, GetParam().sgprs, [](uint32_t k) { return 0x5000 + k; }) + "\n");
}

constexpr SgprSizeRow kSgprSizeRows[] = {
    {0x00000000, 16}, {0x01000000, 32}, {0x06000000, 112}, {0x0F000000, 256}, {0xF0FFFFFF, 16},
};

INSTANTIATE_TEST_SUITE_P(Sizes, RecordedSgprTest, testing::ValuesIn(kSgprSizeRows));

// ---------------------------------------------------------------------------------------------
// VGPRs

// From the first lane on.
std::string FromFirstLane(const std::string& report) {
  return "Lane 0\n" + After(report, "Lane 0\n");
}

class VgprCountTest : public WaveReportTest, public testing::WithParamInterface<uint32_t> {};

TEST_P(VgprCountTest, SavedRegistersAreReadRegisterByRegister) {
  std::vector<uint32_t> vgprs(64 * GetParam() + 1);
  for (uint32_t i = 0; i < vgprs.size(); ++i) {
    vgprs[i] = 0xA0000000 + i;
  }
  wave_.num_vgprs = GetParam();
  wave_.vgprs = vgprs.data();
  std::string lanes;
  for (uint32_t lane = 0; lane < 64; ++lane) {
    lanes += StrFormat("Lane %u\n", lane);
    lanes += Rows('v', 0, GetParam(), [&](uint32_t k) { return 0xA0000000 + 64 * k + lane; });
  }
  EXPECT_TRUE(SameText(FromFirstLane(Saved()), lanes + "\n\n"));
}

INSTANTIATE_TEST_SUITE_P(Counts, VgprCountTest, testing::Values(0, 1, 3, 4, 6, 8, 100, 256, 512));

TEST_F(WaveReportTest, FewerThanFourVgprsAreLaneTitlesAlone) {
  const std::vector<uint32_t> vgprs(6, 7);
  wave_.num_vgprs = 3;
  wave_.num_vgpr_lanes = 2;
  wave_.vgprs = vgprs.data();
  EXPECT_EQ(FromFirstLane(Saved()), "Lane 0\nLane 1\n\n\n");
  EXPECT_EQ(FromFirstLane(Saved(GFX_VERSION_HERON, true)), "Lane 0\nLane 1\n\n\n");
}

// Two lanes of four VGPRs, the second bank 32 bytes behind the first.
class SecondVgprBankTest : public WaveReportTest {
 protected:
  SecondVgprBankTest() {
    wave_.num_vgprs = 4;
    wave_.num_vgpr_lanes = 2;
    wave_.vgprs = words_.data();
    analyser_.dp4x_vgpr_offset = 32;
  }

  const std::vector<uint32_t> words_ = {0x0A, 0x1A, 0x0B, 0x1B, 0x0C, 0x1C, 0x0D, 0x1D,
                                        0x2A, 0x3A, 0x2B, 0x3B, 0x2C, 0x3C, 0x2D, 0x3D};
};

constexpr char kBothBanks[] =
    "Lane 0\n"
    "     v0: 0X0000000A    v1: 0X0000000B    v2: 0X0000000C    v3: 0X0000000D\n"
    "     v4: 0X0000002A    v5: 0X0000002B    v6: 0X0000002C    v7: 0X0000002D\n"
    "Lane 1\n"
    "     v0: 0X0000001A    v1: 0X0000001B    v2: 0X0000001C    v3: 0X0000001D\n"
    "     v4: 0X0000003A    v5: 0X0000003B    v6: 0X0000003C    v7: 0X0000003D\n"
    "\n"
    "\n";

constexpr char kFirstBank[] =
    "Lane 0\n"
    "     v0: 0X0000000A    v1: 0X0000000B    v2: 0X0000000C    v3: 0X0000000D\n"
    "Lane 1\n"
    "     v0: 0X0000001A    v1: 0X0000001B    v2: 0X0000001C    v3: 0X0000001D\n"
    "\n"
    "\n";

TEST_F(SecondVgprBankTest, HeronAgentsWithDp4xHaveIt) {
  EXPECT_EQ(FromFirstLane(Saved(GFX_VERSION_HERON, true)), kBothBanks);
}

TEST_F(SecondVgprBankTest, TheLowBitsOfTheOffsetAreCleared) {
  analyser_.dp4x_vgpr_offset = 32 + 3;
  EXPECT_EQ(FromFirstLane(Saved(GFX_VERSION_HERON, true)), kBothBanks);
}

TEST_F(SecondVgprBankTest, OtherAgentsDoNotHaveIt) {
  EXPECT_EQ(FromFirstLane(Saved(GFX_VERSION_HERON, false)), kFirstBank);
  for (const uint32_t gfxv : {0u, 0x90006u, 0x90206u, 0x90208u, 0x90306u, 0x90308u}) {
    EXPECT_EQ(FromFirstLane(Saved(gfxv, true)), kFirstBank) << gfxv;
  }
}

TEST_F(SecondVgprBankTest, ItsRegistersAreNumberedFromTheCount) {
  wave_.num_vgprs = 6;
  EXPECT_EQ(FromFirstLane(Saved(GFX_VERSION_HERON, true)),
            "Lane 0\n"
            "     v0: 0X0000000A    v1: 0X0000000B    v2: 0X0000000C    v3: 0X0000000D\n"
            "     v6: 0X0000002A    v7: 0X0000002B    v8: 0X0000002C    v9: 0X0000002D\n"
            "Lane 1\n"
            "     v0: 0X0000001A    v1: 0X0000001B    v2: 0X0000001C    v3: 0X0000001D\n"
            "     v6: 0X0000003A    v7: 0X0000003B    v8: 0X0000003C    v9: 0X0000003D\n"
            "\n"
            "\n");
}

TEST_F(SecondVgprBankTest, OfSixtyFourLanes) {
  std::vector<uint32_t> words(32768);
  for (uint32_t i = 0; i < words.size(); ++i) {
    words[i] = i;
  }
  wave_.num_vgprs = 256;
  wave_.num_vgpr_lanes = 64;
  wave_.vgprs = words.data();
  analyser_.dp4x_vgpr_offset = 65536;
  std::string lanes;
  for (uint32_t lane = 0; lane < 64; ++lane) {
    lanes += StrFormat("Lane %u\n", lane);
    lanes += Rows('v', 0, 256, [&](uint32_t k) { return 64 * k + lane; });
    lanes += Rows('v', 256, 256, [&](uint32_t k) { return 0x4000 + 64 * k + lane; });
  }
  EXPECT_TRUE(SameText(FromFirstLane(Saved(GFX_VERSION_HERON, true)), lanes + "\n\n"));
}

struct VgprSizeRow {
  uint32_t gpr_alloc;
  bool is_dp4x;
  uint32_t vgprs;
};

void PrintTo(const VgprSizeRow& row, std::ostream* out) {
  *out << row.vgprs << (row.is_dp4x ? " with dp4x" : "");
}

class RecordedVgprTest : public WaveReportTest, public testing::WithParamInterface<VgprSizeRow> {};

// The record goes on behind the VGPRs with the SGPRs, which the last lanes of the largest counts
// come to.
TEST_P(RecordedVgprTest, AreReadLaneByLaneWithoutACap) {
  for (uint32_t i = 0; i < 16384; ++i) {
    record_->vgprs[i] = i;
  }
  for (uint32_t i = 0; i < 1024; ++i) {
    record_->sgprs[i] = 0x55550000 + i;
  }
  record_->gpr_alloc = GetParam().gpr_alloc;
  std::string lanes;
  for (uint32_t lane = 0; lane < 64; ++lane) {
    lanes += StrFormat("Lane %u\n", lane);
    lanes += Rows('v', 0, GetParam().vgprs, [&](uint32_t k) {
      const uint32_t index = 256 * lane + k;
      return index < 16384 ? index : 0x55550000 + index - 16384;
    });
  }
  EXPECT_TRUE(SameText(FromFirstLane(Recorded(GetParam().is_dp4x)), lanes + "\n\n"));
}

constexpr VgprSizeRow kVgprSizeRows[] = {
    {0x00000000, false, 4},  {0x00000000, true, 8},    {0x00000500, false, 24},
    {0x00000500, true, 48},  {0x00003F00, false, 256}, {0x00001F00, true, 256},
    {0x00002000, true, 264}, {0x00003F00, true, 512},  {0xFFFFC0FF, false, 4},
};

INSTANTIATE_TEST_SUITE_P(Sizes, RecordedVgprTest, testing::ValuesIn(kVgprSizeRows));

}  // namespace
