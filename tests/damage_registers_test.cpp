// Parts of a wave that lie elsewhere: the LDS of its group, the second VGPR bank, and the wave
// records of a signal dump.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "analyser_run.h"
#include "core_file_writer.h"
#include "damaged_file.h"
#include "row_name.h"

namespace {

using sample::Override;
using sample::Region;

constexpr uint32_t kHeronChip = 0x500F;

// How often `text` stands in `report`.
size_t CountOf(const std::string& text, const std::string& report) {
  size_t count = 0;
  for (size_t at = report.find(text); at != std::string::npos; at = report.find(text, at + 1)) {
    ++count;
  }
  return count;
}

sample::CoreFile OneArea(const sample::ContextArea& area) {
  sample::CoreFile file;
  file.reason.reason = 1;
  file.layout = WithLast(Region::kContexts);
  file.agents.resize(1);
  file.agents[0].gpu_id = 100;
  file.agents[0].node_id = 1;
  file.queues.resize(1);
  file.queues[0].queue_id = 7;
  file.queues[0].gpu_id = 100;
  file.queues[0].queue_type = 2;
  file.queues[0].ring = std::string(64, '\0');
  file.queues[0].header_backup = {0};
  file.queues[0].context = sample::ContextAreaBytes(area);
  return file;
}

// ---------------------------------------------------------------------------------------------
// LDS

// The waves of two groups of 4 VGPRs and 16 SGPRs, of which the second has no first wave: it shows
// the LDS of the first group in a size of its own.
sample::ContextArea GroupsSharingLds(uint32_t first_lds, uint32_t second_lds) {
  sample::AreaGroup first;
  first.state = sample::StateRecord(4, 4, 16, first_lds);
  first.vgpr_count = 4;
  first.sgpr_count = 16;
  first.lds_dwords = first_lds;
  first.waves.resize(1);
  first.waves[0].first_in_group = true;
  sample::AreaGroup second = first;
  second.state = sample::StateRecord(4, 4, 16, second_lds);
  second.lds_dwords = second_lds;
  second.waves[0].first_in_group = false;
  return {.groups = {first, second}};
}

// The area lies at 0x628 and ends with the file at 0x1250. The LDS of the first wave, 512 bytes,
// ends 64 bytes before it.
TEST(DamagedLdsTest, LongerThanTheFileIsShownToItsEnd) {
  const std::string bytes = sample::CoreFileBytes(OneArea(GroupsSharingLds(128, 256)));
  ASSERT_EQ(bytes.size(), 0x1250u);
  const AnalyserRun run = Analyse(bytes);
  ExpectDamage(run,
               "queue 7 LDS of a wave: file offset 0X1010, wanted 1024 bytes, available 576 "
               "bytes\n");
  const std::string& waves = run.files.at("queues/7/waves");
  EXPECT_EQ(CountOf("LDS:\n\n0X0000: ", waves), 2u);
  EXPECT_EQ(CountOf("\n0X01F0: ", waves), 2u);  // last row of the first wave
  EXPECT_EQ(CountOf("\n0X0200: ", waves), 1u);
  EXPECT_EQ(CountOf("\n0X0230: ", waves), 1u);  // last row of the second wave
  EXPECT_EQ(CountOf("\n0X0240: ", waves), 0u);
}

TEST(DamagedLdsTest, OfTheLargestSizeIsShownToTheEndOfTheFile) {
  const AnalyserRun run = Analyse(sample::CoreFileBytes(OneArea(GroupsSharingLds(128, 65408))));
  ExpectDamage(run,
               "queue 7 LDS of a wave: file offset 0X1010, wanted 261632 bytes, available 576 "
               "bytes\n");
  EXPECT_EQ(CountOf("\n0X0230: ", run.files.at("queues/7/waves")), 1u);
  EXPECT_EQ(CountOf("\n0X0240: ", run.files.at("queues/7/waves")), 0u);
}

// What lies behind it in the file is shown, since nothing says that it is something else.
TEST(DamagedLdsTest, InsideTheFileIsNoDamage) {
  const std::string bytes =
      sample::CoreFileBytes(OneArea(GroupsSharingLds(128, 256))) + std::string(448, '\0');
  const AnalyserRun run = Analyse(bytes);
  ExpectDamage(run, "");
  EXPECT_EQ(CountOf("\n0X03F0: ", run.files.at("queues/7/waves")), 1u);
  EXPECT_EQ(CountOf("\n0X0400: ", run.files.at("queues/7/waves")), 0u);
}

// ---------------------------------------------------------------------------------------------
// The second VGPR bank of HERON agents, 0x155A000 bytes behind the first

struct BankCase {
  const char* name;
  uint64_t available;  // bytes of the bank that the file has
  int rows;            // of it, for each lane
  const char* damage;
};

class SecondBankTest : public testing::TestWithParam<BankCase> {};

// One wave of 8 VGPRs: its block lies at 0x648, its second bank of 2048 bytes at 0x155A648.
TEST_P(SecondBankTest, RowsThatAreThereForEveryLaneAreShown) {
  sample::AreaGroup group;
  group.state = sample::StateRecord(8, 4, 0, 0);
  group.vgpr_count = 8;
  group.waves.resize(1);
  group.waves[0].first_in_group = true;
  sample::CoreFile file = OneArea({.groups = {group}});
  file.agents[0].chip_id = kHeronChip;
  file.agents[0].is_dp4x = true;
  std::string bytes = sample::CoreFileBytes(file);
  ASSERT_LT(bytes.size(), 0x2000u);
  bytes.resize(GetParam().available == 0 ? bytes.size() : 0x155A648 + GetParam().available);

  const AnalyserRun run = Analyse(bytes);
  ExpectDamage(run, GetParam().damage);
  const std::string& waves = run.files.at("queues/7/waves");
  EXPECT_EQ(CountOf("    v4: 0X", waves), 64u);
  EXPECT_EQ(CountOf("    v8: 0X", waves), GetParam().rows > 0 ? 64u : 0u);
  EXPECT_EQ(CountOf("   v12: 0X", waves), GetParam().rows > 1 ? 64u : 0u);
  EXPECT_EQ(CountOf("   v16: 0X", waves), 0u);
}

constexpr BankCase kBanks[] = {
    {"Outside", 0, 0,
     "queue 7 second VGPR bank of a wave: file offset 0X155A648, wanted 2048 bytes, available 0 "
     "bytes\n"},
    {"OneByte", 1, 0,
     "queue 7 second VGPR bank of a wave: file offset 0X155A648, wanted 2048 bytes, available 1 "
     "bytes\n"},
    {"ARowButOneByte", 1023, 0,
     "queue 7 second VGPR bank of a wave: file offset 0X155A648, wanted 2048 bytes, available "
     "1023 bytes\n"},
    {"ARow", 1024, 1,
     "queue 7 second VGPR bank of a wave: file offset 0X155A648, wanted 2048 bytes, available "
     "1024 bytes\n"},
    {"AllButOneByte", 2047, 1,
     "queue 7 second VGPR bank of a wave: file offset 0X155A648, wanted 2048 bytes, available "
     "2047 bytes\n"},
    {"Whole", 2048, 2, ""},
};

INSTANTIATE_TEST_SUITE_P(Banks, SecondBankTest, testing::ValuesIn(kBanks), RowName<BankCase>);

// ---------------------------------------------------------------------------------------------
// Wave records: 69,696 bytes each. The agent's record lies at 0xF8, its two wave records at 0x550.

constexpr size_t kWaveOffset = 1096;
constexpr size_t kWaveCount = 1104;

sample::CoreFile TwoWaveRecords() {
  sample::CoreFile file;
  file.reason.reason = 2;
  file.reason.sig = 15;
  file.layout = WithLast(Region::kWaves);
  file.agents.resize(1);
  file.agents[0].node_id = 1;
  file.agents[0].waves.resize(2);
  file.agents[0].waves[0].hw_id = 0x2100;
  file.agents[0].waves[1].hw_id = 0x2110;
  return file;
}

constexpr const char* kRecordedWaves[] = {
    "Total active waves count: 0\n",
    "Total active waves count: 1\nse1.sh0.cu1.simd0.wave0\n",
    "Total active waves count: 2\nse1.sh0.cu1.simd0.wave0\nse1.sh0.cu1.simd1.wave0\n",
};

// Of the occupancy table its line of values.
constexpr const char* kOccupancy[] = {
    "\n     0               0               0                   0               0.000 %\n",
    "\n     1               1               1                   1               0.039 %\n",
    "\n     1               1               2                   2               0.078 %\n",
};

void ExpectWaveRecords(const AnalyserRun& run, int records, const std::string& damage) {
  ExpectDamage(run, damage);
  EXPECT_EQ(WhereWavesRan(run.files.at("agent_1_active_waves")), kRecordedWaves[records]);
  EXPECT_EQ(CountOf(kOccupancy[records], run.files.at("agent_1")), 1u);
}

struct RecordsCutCase {
  uint64_t size;  // of the file
  int records;    // that are still reported
  const char* damage;
};

class CutWaveRecordsTest : public testing::TestWithParam<RecordsCutCase> {};

TEST_P(CutWaveRecordsTest, WholeRecordsAreReported) {
  const std::string bytes = sample::CoreFileBytes(TwoWaveRecords());
  ExpectWaveRecords(Analyse(Truncated(bytes, GetParam().size)), GetParam().records,
                    GetParam().damage);
}

constexpr RecordsCutCase kRecordsCuts[] = {
    {0x550, 0, "agent 1 wave records: file offset 0X550, wanted 139392 bytes, available 0 bytes\n"},
    {0x551, 0, "agent 1 wave records: file offset 0X550, wanted 139392 bytes, available 1 bytes\n"},
    {0x8D70, 0,
     "agent 1 wave records: file offset 0X550, wanted 139392 bytes, available 34848 bytes\n"},
    {0x1158F, 0,
     "agent 1 wave records: file offset 0X550, wanted 139392 bytes, available 69695 bytes\n"},
    {0x11590, 1,
     "agent 1 wave records: file offset 0X550, wanted 139392 bytes, available 69696 bytes\n"},
    {0x11591, 1,
     "agent 1 wave records: file offset 0X550, wanted 139392 bytes, available 69697 bytes\n"},
    {0x225CF, 1,
     "agent 1 wave records: file offset 0X550, wanted 139392 bytes, available 139391 bytes\n"},
    {0x225D0, 2, ""},
};

INSTANTIATE_TEST_SUITE_P(Sizes, CutWaveRecordsTest, testing::ValuesIn(kRecordsCuts),
                         [](const auto& row) { return "At" + std::to_string(row.param.size); });

struct RecordsFieldCase {
  size_t field;
  uint64_t value;
  int records;
  const char* damage;
};

class LyingWaveRecordsTest : public testing::TestWithParam<RecordsFieldCase> {};

TEST_P(LyingWaveRecordsTest, WholeRecordsInTheFileAreReported) {
  sample::CoreFile file = TwoWaveRecords();
  file.overrides = {
      {.record = Override::Record::kAgent, .offset = GetParam().field, .value = GetParam().value}};
  ExpectWaveRecords(Analyse(sample::CoreFileBytes(file)), GetParam().records, GetParam().damage);
}

constexpr RecordsFieldCase kRecordsFields[] = {
    {kWaveCount, 1, 1, ""},
    {kWaveCount, 3, 2,
     "agent 1 wave records: file offset 0X550, wanted 209088 bytes, available 139392 bytes\n"},
    {kWaveCount, 0x7FFFFFFF, 2,
     "agent 1 wave records: file offset 0X550, wanted 149671020261312 bytes, available 139392 "
     "bytes\n"},
    {kWaveCount, 0xFFFFFFFF, 2,
     "agent 1 wave records: file offset 0X550, wanted 299342040592320 bytes, available 139392 "
     "bytes\n"},
    {kWaveCount, 0x8000000000000000, 2,
     "agent 1 wave records: file offset 0X550, wanted 18446744073709551615 bytes, available "
     "139392 bytes\n"},
    {kWaveCount, 0xFFFFFFFFFFFFFFFF, 2,
     "agent 1 wave records: file offset 0X550, wanted 18446744073709551615 bytes, available "
     "139392 bytes\n"},
    {kWaveOffset, 0x225D0, 0,
     "agent 1 wave records: file offset 0X225D0, wanted 139392 bytes, available 0 bytes\n"},
    {kWaveOffset, 0x225D1, 0,
     "agent 1 wave records: file offset 0X225D1, wanted 139392 bytes, available 0 bytes\n"},
    {kWaveOffset, 0x8000000000000000, 0,
     "agent 1 wave records: file offset 0X8000000000000000, wanted 139392 bytes, available 0 "
     "bytes\n"},
    {kWaveOffset, 0xFFFFFFFFFFFFFFFF, 0,
     "agent 1 wave records: file offset 0XFFFFFFFFFFFFFFFF, wanted 139392 bytes, available 0 "
     "bytes\n"},
};

INSTANTIATE_TEST_SUITE_P(Fields, LyingWaveRecordsTest, testing::ValuesIn(kRecordsFields),
                         [](const auto& row) {
                           return "Field" + std::to_string(row.param.field) + "Is" +
                                  std::to_string(row.param.value);
                         });

}  // namespace
