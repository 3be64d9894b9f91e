#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "core_dump_info.h"

namespace {

// hw_id values, one a wave.
using HwIds = std::vector<uint32_t>;

std::vector<WaveStateInfo> WavesAt(const HwIds& hw_ids) {
  std::vector<WaveStateInfo> waves;
  for (const uint32_t hw_id : hw_ids) {
    waves.emplace_back().regs.hw_id = hw_id;
  }
  return waves;
}

std::string Table(const QueueWaveMap& queues_waves) {
  CoreDumpInfo analyser;
  std::string info;
  EXPECT_TRUE(analyser.GenAgentOccupyInfo(queues_waves, info));
  return info;
}

std::string SavedTable(const HwIds& hw_ids) { return Table({{7, WavesAt(hw_ids)}}); }

std::string RecordedTable(const HwIds& hw_ids) {
  std::vector<WaveInfo> waves(hw_ids.size());
  for (size_t i = 0; i < waves.size(); ++i) {
    memset(&waves[i], 0xFF, sizeof(WaveInfo));
    waves[i].hw_id = hw_ids[i];
  }
  CoreDumpInfo analyser;
  std::string info;
  EXPECT_TRUE(analyser.GenAgentOccupyInfo(waves.data(), static_cast<int>(waves.size()), info));
  return info;
}

std::vector<std::string> Lines(const std::string& table) {
  std::vector<std::string> lines;
  std::istringstream stream(table);
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line);
  }
  return lines;
}

// The line of the numbers below the table.
std::string Summary(const std::string& table) {
  const std::vector<std::string> lines = Lines(table);
  return lines.size() < 2 ? std::string() : lines[lines.size() - 2];
}

constexpr char kEmptyTable[] =
    "-------------------------------------------------------------------------------------\n"
    "SIMD| 0 1 2 3 | 0 1 2 3 | 0 1 2 3 | 0 1 2 3 | 0 1 2 3 | 0 1 2 3 | 0 1 2 3 | 0 1 2 3 | \n"
    "-------------------------------------------------------------------------------------\n"
    "CU  |    0    |    1    |    2    |    3    |    4    |    5    |    6    |    7    |\n"
    "S0H0| - - - - | - - - - | - - - - | - - - - | - - - - | - - - - | - - - - | - - - - |\n"
    "S1H0| - - - - | - - - - | - - - - | - - - - | - - - - | - - - - | - - - - | - - - - |\n"
    "S2H0| - - - - | - - - - | - - - - | - - - - | - - - - | - - - - | - - - - | - - - - |\n"
    "S3H0| - - - - | - - - - | - - - - | - - - - | - - - - | - - - - | - - - - | - - - - |\n"
    "-------------------------------------------------------------------------------------\n"
    "CU  |    8    |    9    |   10    |   11    |   12    |   13    |   14    |   15    |\n"
    "S0H0| - - - - | - - - - | - - - - | - - - - | - - - - | - - - - | - - - - | - - - - |\n"
    "S1H0| - - - - | - - - - | - - - - | - - - - | - - - - | - - - - | - - - - | - - - - |\n"
    "S2H0| - - - - | - - - - | - - - - | - - - - | - - - - | - - - - | - - - - | - - - - |\n"
    "S3H0| - - - - | - - - - | - - - - | - - - - | - - - - | - - - - | - - - - | - - - - |\n"
    "=====================================================================================\n"
    "Used SEs(4)     Used CUs(64)    Used SIMDs(256)     Active Waves      Waves Occupancy   \n"
    "     0               0               0                   0               0.000 %\n"
    "=====================================================================================\n";

TEST(OccupancyTest, NoQueues) { EXPECT_EQ(Table({}), kEmptyTable); }

TEST(OccupancyTest, AQueueWithoutWaves) { EXPECT_EQ(SavedTable({}), kEmptyTable); }

TEST(OccupancyTest, NoRecordedWaves) {
  CoreDumpInfo analyser;
  std::string info;
  EXPECT_TRUE(analyser.GenAgentOccupyInfo(nullptr, 0, info));
  EXPECT_EQ(info, kEmptyTable);
}

// SE 1: two waves on SIMD 0 of CU 0, one on SIMD 3 of CU 2. SE 3: one on SIMD 1 of CU 12.
constexpr char kFourWaves[] =
    "-------------------------------------------------------------------------------------\n"
    "SIMD| 0 1 2 3 | 0 1 2 3 | 0 1 2 3 | 0 1 2 3 | 0 1 2 3 | 0 1 2 3 | 0 1 2 3 | 0 1 2 3 | \n"
    "-------------------------------------------------------------------------------------\n"
    "CU  |    0    |    1    |    2    |    3    |    4    |    5    |    6    |    7    |\n"
    "S0H0| - - - - | - - - - | - - - - | - - - - | - - - - | - - - - | - - - - | - - - - |\n"
    "S1H0| 2 - - - | - - - - | - - - 1 | - - - - | - - - - | - - - - | - - - - | - - - - |\n"
    "S2H0| - - - - | - - - - | - - - - | - - - - | - - - - | - - - - | - - - - | - - - - |\n"
    "S3H0| - - - - | - - - - | - - - - | - - - - | - - - - | - - - - | - - - - | - - - - |\n"
    "-------------------------------------------------------------------------------------\n"
    "CU  |    8    |    9    |   10    |   11    |   12    |   13    |   14    |   15    |\n"
    "S0H0| - - - - | - - - - | - - - - | - - - - | - - - - | - - - - | - - - - | - - - - |\n"
    "S1H0| - - - - | - - - - | - - - - | - - - - | - - - - | - - - - | - - - - | - - - - |\n"
    "S2H0| - - - - | - - - - | - - - - | - - - - | - - - - | - - - - | - - - - | - - - - |\n"
    "S3H0| - - - - | - - - - | - - - - | - - - - | - 1 - - | - - - - | - - - - | - - - - |\n"
    "=====================================================================================\n"
    "Used SEs(4)     Used CUs(64)    Used SIMDs(256)     Active Waves      Waves Occupancy   \n"
    "     2               3               3                   4               0.156 %\n"
    "=====================================================================================\n";

TEST(OccupancyTest, SavedWaves) {
  EXPECT_EQ(SavedTable({0x2000, 0x2230, 0x6C10, 0x2000}), kFourWaves);
}

TEST(OccupancyTest, RecordedWaves) {
  EXPECT_EQ(RecordedTable({0x2000, 0x2230, 0x6C10, 0x2000}), kFourWaves);
}

TEST(OccupancyTest, SeveralQueuesAddUp) {
  EXPECT_EQ(Table({{1, WavesAt({0x2000})}, {2, WavesAt({0x2000, 0x6C10})}, {9, WavesAt({0x2230})}}),
            kFourWaves);
}

TEST(OccupancyTest, TheWaveSlotAndOtherBitsAreNotUsed) {
  // Every bit but SIMD, CU, SH and SE.
  EXPECT_EQ(SavedTable({0xFFFFA0CF, 0xFFFFA2FF, 0xFFFFECDF, 0x2000}), kFourWaves);
}

TEST(OccupancyTest, TablesAreAppended) {
  CoreDumpInfo analyser;
  std::string info = "before\n";
  EXPECT_TRUE(analyser.GenAgentOccupyInfo({}, info));
  EXPECT_EQ(info, std::string("before\n") + kEmptyTable);
  info = "before\n";
  EXPECT_TRUE(analyser.GenAgentOccupyInfo(nullptr, 0, info));
  EXPECT_EQ(info, std::string("before\n") + kEmptyTable);
}

TEST(OccupancyTest, RecordedWavesMayLieAtAnyAddress) {
  std::vector<char> bytes(1 + 2 * sizeof(WaveInfo));
  WaveInfo wave = {};
  wave.hw_id = 0x2230;
  memcpy(bytes.data() + 1, &wave, sizeof(wave));
  wave.hw_id = 0x6C10;
  memcpy(bytes.data() + 1 + 69696, &wave, sizeof(wave));
  CoreDumpInfo analyser;
  std::string info;
  EXPECT_TRUE(analyser.GenAgentOccupyInfo(reinterpret_cast<WaveInfo*>(bytes.data() + 1), 2, info));
  EXPECT_EQ(info, SavedTable({0x2230, 0x6C10}));
}

struct CellRow {
  uint32_t hw_id;
  size_t line;  // of the table
  const char* text;
};

void PrintTo(const CellRow& row, std::ostream* out) { *out << std::hex << row.hw_id; }

class OccupancyCellTest : public testing::TestWithParam<CellRow> {};

TEST_P(OccupancyCellTest, HoldsTheWave) {
  const std::vector<std::string> lines = Lines(SavedTable({GetParam().hw_id}));
  std::vector<std::string> expected = Lines(kEmptyTable);
  ASSERT_EQ(lines.size(), expected.size());
  expected[GetParam().line] = GetParam().text;
  expected[16] = "     1               1               1                   1               0.039 %";
  EXPECT_EQ(lines, expected);
  EXPECT_EQ(Lines(RecordedTable({GetParam().hw_id})), expected);
}

constexpr CellRow kCellRows[] = {
    {0x0000, 4,
     "S0H0| 1 - - - | - - - - | - - - - | - - - - | - - - - | - - - - | - - - - | - - - - |"},
    {0x0030, 4,
     "S0H0| - - - 1 | - - - - | - - - - | - - - - | - - - - | - - - - | - - - - | - - - - |"},
    {0x0710, 4,
     "S0H0| - - - - | - - - - | - - - - | - - - - | - - - - | - - - - | - - - - | - 1 - - |"},
    {0x0800, 10,
     "S0H0| 1 - - - | - - - - | - - - - | - - - - | - - - - | - - - - | - - - - | - - - - |"},
    {0x2120, 5,
     "S1H0| - - - - | - - 1 - | - - - - | - - - - | - - - - | - - - - | - - - - | - - - - |"},
    {0x4A00, 12,
     "S2H0| - - - - | - - - - | 1 - - - | - - - - | - - - - | - - - - | - - - - | - - - - |"},
    {0x6F30, 13,
     "S3H0| - - - - | - - - - | - - - - | - - - - | - - - - | - - - - | - - - - | - - - 1 |"},
};

INSTANTIATE_TEST_SUITE_P(Places, OccupancyCellTest, testing::ValuesIn(kCellRows));

// The table shows SH 0 alone.
TEST(OccupancyTest, AWaveOfSh1CountsInTheTotalsOnly) {
  std::vector<std::string> expected = Lines(kEmptyTable);
  expected[16] = "     0               0               0                   1               0.039 %";
  EXPECT_EQ(Lines(SavedTable({0x1000})), expected);
  EXPECT_EQ(Lines(RecordedTable({0x1000})), expected);
}

TEST(OccupancyTest, WavesOfSh1AreNotAddedToThoseOfSh0) {
  std::vector<std::string> expected = Lines(kEmptyTable);
  expected[7] =
      "S3H0| - - - - | - - - - | - - - - | - 1 - - | - - - - | - - - - | - - - - | - - - - |";
  expected[16] = "     1               1               1                   3               0.117 %";
  EXPECT_EQ(Lines(SavedTable({0x6310, 0x7310, 0x7310})), expected);
}

TEST(OccupancyTest, CountsOfTwoDigitsFillTheirCell) {
  std::vector<std::string> expected = Lines(kEmptyTable);
  expected[4] =
      "S0H0| 9 -10 - | - - - - | - - - - | - - - - | - - - - | - - - - | - - - - | - - - - |";
  expected[16] = "     1               1               2                  19               0.742 %";
  HwIds hw_ids(9, 0x00);
  hw_ids.insert(hw_ids.end(), 10, 0x20);
  EXPECT_EQ(Lines(SavedTable(hw_ids)), expected);
}

TEST(OccupancyTest, CountsOfThreeDigitsShiftTheirRow) {
  std::vector<std::string> expected = Lines(kEmptyTable);
  expected[4] =
      "S0H0|100 - - - | - - - - | - - - - | - - - - | - - - - | - - - - | - - - - | - - - - |";
  expected[16] = "     1               1               1                 100               3.906 %";
  EXPECT_EQ(Lines(SavedTable(HwIds(100, 0x00))), expected);
}

TEST(OccupancyTest, EveryShaderEngineCountsOnce) {
  EXPECT_EQ(Summary(SavedTable({0x0000, 0x2000, 0x4000, 0x6000, 0x0F30})),
            "     4               5               5                   5               0.195 %");
}

// Ten waves on every SIMD of SH 0.
HwIds FullAgent() {
  HwIds hw_ids;
  for (uint32_t se = 0; se < 4; ++se) {
    for (uint32_t cu = 0; cu < 16; ++cu) {
      for (uint32_t simd = 0; simd < 4; ++simd) {
        hw_ids.insert(hw_ids.end(), 10, se << 13 | cu << 8 | simd << 4);
      }
    }
  }
  return hw_ids;
}

TEST(OccupancyTest, AFullAgent) {
  EXPECT_EQ(
      SavedTable(FullAgent()),
      "-------------------------------------------------------------------------------------\n"
      "SIMD| 0 1 2 3 | 0 1 2 3 | 0 1 2 3 | 0 1 2 3 | 0 1 2 3 | 0 1 2 3 | 0 1 2 3 | 0 1 2 3 | \n"
      "-------------------------------------------------------------------------------------\n"
      "CU  |    0    |    1    |    2    |    3    |    4    |    5    |    6    |    7    |\n"
      "S0H0|10101010 |10101010 |10101010 |10101010 |10101010 |10101010 |10101010 |10101010 |\n"
      "S1H0|10101010 |10101010 |10101010 |10101010 |10101010 |10101010 |10101010 |10101010 |\n"
      "S2H0|10101010 |10101010 |10101010 |10101010 |10101010 |10101010 |10101010 |10101010 |\n"
      "S3H0|10101010 |10101010 |10101010 |10101010 |10101010 |10101010 |10101010 |10101010 |\n"
      "-------------------------------------------------------------------------------------\n"
      "CU  |    8    |    9    |   10    |   11    |   12    |   13    |   14    |   15    |\n"
      "S0H0|10101010 |10101010 |10101010 |10101010 |10101010 |10101010 |10101010 |10101010 |\n"
      "S1H0|10101010 |10101010 |10101010 |10101010 |10101010 |10101010 |10101010 |10101010 |\n"
      "S2H0|10101010 |10101010 |10101010 |10101010 |10101010 |10101010 |10101010 |10101010 |\n"
      "S3H0|10101010 |10101010 |10101010 |10101010 |10101010 |10101010 |10101010 |10101010 |\n"
      "=====================================================================================\n"
      "Used SEs(4)     Used CUs(64)    Used SIMDs(256)     Active Waves      Waves Occupancy   \n"
      "     4              64             256                2560             100.000 %\n"
      "=====================================================================================\n");
}

TEST(OccupancyTest, MoreWavesThanSlotsGiveMoreThanAHundredPercent) {
  HwIds hw_ids = FullAgent();
  hw_ids.push_back(0);
  EXPECT_EQ(Summary(SavedTable(hw_ids)),
            "     4              64             256                2561             100.039 %");
  hw_ids.insert(hw_ids.end(), 2559, 0x1000);
  EXPECT_EQ(Summary(SavedTable(hw_ids)),
            "     4              64             256                5120             200.000 %");
}

}  // namespace
