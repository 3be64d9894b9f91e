// Cut and lying rings and header backup arrays. The queue's record lies at 0xF8 and its ring at
// 0x188, at the end of the file.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "analyser_run.h"
#include "aql_slots.h"
#include "core_file_writer.h"
#include "damaged_file.h"
#include "small_dump_texts.h"

namespace {

using sample::Override;
using sample::Region;

// Of the queue's record.
constexpr size_t kRingSize = 64;
constexpr size_t kRingOffset = 104;

sample::CoreFile OneQueue(uint32_t type) {
  sample::CoreFile file;
  file.layout = WithLast(Region::kRings);
  file.queues.resize(1);
  file.queues[0].queue_id = 7;
  file.queues[0].queue_type = type;
  return file;
}

// ---------------------------------------------------------------------------------------------
// AQL rings

// Slots whose headers are in the backup array, which has 3, a barrier, for each.
sample::CoreFile ThreeSlots() {
  sample::CoreFile file = OneQueue(2);
  file.queues[0].ring = InvalidSlot() + InvalidSlot() + InvalidSlot();
  file.queues[0].header_backup = {3, 3, 3};
  return file;
}

constexpr char kWithHeader[] =
    "header format: BARRIER_AND (complete)\n"
    "header barrier: 0\n"
    "header acquire_fence_scope: SCOPE_NONE\n"
    "header release_fence_scope: SCOPE_NONE\n"
    "dep_signal[0]: 0X0\n"
    "dep_signal[1]: 0X0\n"
    "dep_signal[2]: 0X0\n"
    "dep_signal[3]: 0X0\n"
    "dep_signal[4]: 0X0\n"
    "completion_signal: 0X0\n";

std::string SlotTexts(int slots, int with_header) {
  std::string text;
  for (int i = 0; i < slots; ++i) {
    text += "\npacket index: " + std::to_string(i) + "\n";
    text += i < with_header ? kWithHeader : kNotRetired;
  }
  return text;
}

struct AqlResult {
  int slots;     // that are decoded
  int headers;   // of them with their word of the backup array
  uint64_t raw;  // bytes of the ring that are written
  const char* damage;
};

struct AqlCutCase {
  uint64_t size;  // of the file
  AqlResult result;
};

class CutAqlRingTest : public testing::TestWithParam<AqlCutCase> {};

void ExpectRing(const AnalyserRun& run, const AqlResult& expected) {
  ExpectDamage(run, expected.damage);
  EXPECT_EQ(run.files.at("queues/7/packets"), SlotTexts(expected.slots, expected.headers));
  EXPECT_EQ(run.Has("queues/7/aql_rb"), expected.raw != 0);
  if (expected.raw != 0) {
    EXPECT_EQ(run.files.at("queues/7/aql_rb"),
              (InvalidSlot() + InvalidSlot() + InvalidSlot()).substr(0, expected.raw));
  }
}

TEST_P(CutAqlRingTest, WholeSlotsAreDecoded) {
  const AnalyserRun run = Analyse(Truncated(sample::CoreFileBytes(ThreeSlots()), GetParam().size));
  ExpectRing(run, GetParam().result);
}

constexpr AqlCutCase kAqlCuts[] = {
    {0x188, {0, 0, 0, "queue 7 ring: file offset 0X188, wanted 192 bytes, available 0 bytes\n"}},
    {0x189, {0, 0, 1, "queue 7 ring: file offset 0X188, wanted 192 bytes, available 1 bytes\n"}},
    {0x1C7, {0, 0, 63, "queue 7 ring: file offset 0X188, wanted 192 bytes, available 63 bytes\n"}},
    {0x1C8,
     {1, 0, 64,
      "queue 7 header backup array: file offset 0X248, wanted 4 bytes, available 0 bytes\n"
      "queue 7 ring: file offset 0X188, wanted 192 bytes, available 64 bytes\n"}},
    {0x1E8,
     {1, 0, 96,
      "queue 7 header backup array: file offset 0X248, wanted 4 bytes, available 0 bytes\n"
      "queue 7 ring: file offset 0X188, wanted 192 bytes, available 96 bytes\n"}},
    {0x247,
     {2, 0, 191,
      "queue 7 header backup array: file offset 0X248, wanted 8 bytes, available 0 bytes\n"
      "queue 7 ring: file offset 0X188, wanted 192 bytes, available 191 bytes\n"}},
    {0x248,
     {3, 0, 192,
      "queue 7 header backup array: file offset 0X248, wanted 12 bytes, available 0 bytes\n"}},
    {0x24B,
     {3, 0, 192,
      "queue 7 header backup array: file offset 0X248, wanted 12 bytes, available 3 bytes\n"}},
    {0x24C,
     {3, 1, 192,
      "queue 7 header backup array: file offset 0X248, wanted 12 bytes, available 4 bytes\n"}},
    {0x253,
     {3, 2, 192,
      "queue 7 header backup array: file offset 0X248, wanted 12 bytes, available 11 bytes\n"}},
    {0x254, {3, 3, 192, ""}},
};

INSTANTIATE_TEST_SUITE_P(Cuts, CutAqlRingTest, testing::ValuesIn(kAqlCuts),
                         [](const auto& row) { return "At" + std::to_string(row.param.size); });

// What byte 48 holds does not stand for a word of the array that is lost.
TEST(DamagedRingTest, ASlotWhoseHeaderIsLostIsShownAsItStands) {
  sample::CoreFile file = ThreeSlots();
  file.queues[0].ring =
      InvalidSlot().replace(48, 4, sample::Dwords({2})) + InvalidSlot() + InvalidSlot();
  const AnalyserRun run = Analyse(Truncated(sample::CoreFileBytes(file), 0x1C8));
  EXPECT_EQ(run.files.at("queues/7/packets"),
            "\npacket index: 0\n"
            "header format: INVALID\n"
            "header barrier: 0\n"
            "header acquire_fence_scope: SCOPE_NONE\n"
            "header release_fence_scope: SCOPE_NONE\n"
            "0X0001 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 \n"
            "0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 \n"
            "0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 \n"
            "0X0002 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 \n");
}

// Older files have no backup array, so nothing is missing where it would be.
TEST(DamagedRingTest, AnOlderFileHasNoBackupArrayToLose) {
  sample::CoreFile file = ThreeSlots();
  file.version = {1, 0, 0};
  const AnalyserRun run = Analyse(Truncated(sample::CoreFileBytes(file), 0x1C8));
  ExpectRing(run,
             {1, 0, 64, "queue 7 ring: file offset 0X188, wanted 192 bytes, available 64 bytes\n"});
}

struct RingFieldCase {
  size_t field;
  uint64_t value;
  AqlResult result;
};

class LyingAqlRingTest : public testing::TestWithParam<RingFieldCase> {};

// The file is of a version without backup array, so that nothing but the ring is at its end.
TEST_P(LyingAqlRingTest, ThePartInTheFileIsUsed) {
  sample::CoreFile file = ThreeSlots();
  file.version = {1, 0, 0};
  file.queues[0].header_backup = {};
  file.overrides = {
      {.record = Override::Record::kQueue, .offset = GetParam().field, .value = GetParam().value}};
  const AnalyserRun run = Analyse(sample::CoreFileBytes(file));
  ExpectRing(run, GetParam().result);
}

// The slots are counted by a signed number of 32 bits, so that the largest sizes count none.
constexpr RingFieldCase kLyingAqlRings[] = {
    {kRingSize, 1, {0, 0, 1, ""}},
    {kRingSize, 64, {1, 0, 64, ""}},
    {kRingSize,
     193,
     {3, 0, 192, "queue 7 ring: file offset 0X188, wanted 193 bytes, available 192 bytes\n"}},
    {kRingSize,
     0x7FFFFFFF,
     {3, 0, 192,
      "queue 7 ring: file offset 0X188, wanted 2147483647 bytes, available 192 bytes\n"}},
    {kRingSize,
     0xFFFFFFFF,
     {3, 0, 192,
      "queue 7 ring: file offset 0X188, wanted 4294967295 bytes, available 192 bytes\n"}},
    {kRingSize,
     0x8000000000000000,
     {0, 0, 192,
      "queue 7 ring: file offset 0X188, wanted 9223372036854775808 bytes, available 192 "
      "bytes\n"}},
    {kRingSize,
     0xFFFFFFFFFFFFFFFF,
     {0, 0, 192,
      "queue 7 ring: file offset 0X188, wanted 18446744073709551615 bytes, available "
      "192 bytes\n"}},
    {kRingOffset,
     0x1C8,
     {2, 0, 128, "queue 7 ring: file offset 0X1C8, wanted 192 bytes, available 128 bytes\n"}},
    {kRingOffset,
     0x248,
     {0, 0, 0, "queue 7 ring: file offset 0X248, wanted 192 bytes, available 0 bytes\n"}},
    {kRingOffset,
     0x249,
     {0, 0, 0, "queue 7 ring: file offset 0X249, wanted 192 bytes, available 0 bytes\n"}},
    {kRingOffset,
     0x7FFFFFFF,
     {0, 0, 0, "queue 7 ring: file offset 0X7FFFFFFF, wanted 192 bytes, available 0 bytes\n"}},
    {kRingOffset,
     0xFFFFFFFFFFFFFFFF,
     {0, 0, 0,
      "queue 7 ring: file offset 0XFFFFFFFFFFFFFFFF, wanted 192 bytes, available 0 bytes\n"}},
};

std::string FieldName(const testing::TestParamInfo<RingFieldCase>& row) {
  return "Field" + std::to_string(row.param.field) + "Is" + std::to_string(row.param.value);
}

INSTANTIATE_TEST_SUITE_P(Fields, LyingAqlRingTest, testing::ValuesIn(kLyingAqlRings), FieldName);

// ---------------------------------------------------------------------------------------------
// SDMA rings

sample::CoreFile TrapAndTimestamp() {
  sample::CoreFile file = OneQueue(1);
  file.queues[0].ring = sample::Dwords({6, 5, 13, 0x1000, 0x7F});
  return file;
}

struct SdmaCase {
  uint64_t size;      // of the file; 0: all of it
  size_t field;       // of the queue's record
  uint64_t value;     // that it gets, when the file is whole
  uint64_t raw;       // bytes of the ring that are written
  const char* first;  // texts of the two packets
  const char* second;
  const char* damage;
};

class DamagedSdmaRingTest : public testing::TestWithParam<SdmaCase> {};

TEST_P(DamagedSdmaRingTest, ThePartInTheFileIsUsed) {
  const SdmaCase& expected = GetParam();
  sample::CoreFile file = TrapAndTimestamp();
  if (expected.size == 0) {
    file.overrides = {
        {.record = Override::Record::kQueue, .offset = expected.field, .value = expected.value}};
  }
  const std::string bytes = sample::CoreFileBytes(file);
  const AnalyserRun run =
      Analyse(Truncated(bytes, expected.size == 0 ? bytes.size() : expected.size));
  ExpectDamage(run, expected.damage);
  EXPECT_EQ(run.files.at("queues/7/packets"), std::string(expected.first) + expected.second + "\n");
  EXPECT_EQ(run.Has("queues/7/sdma_rb"), expected.raw != 0);
  if (expected.raw != 0) {
    EXPECT_EQ(run.files.at("queues/7/sdma_rb"),
              sample::Dwords({6, 5, 13, 0x1000, 0x7F}).substr(0, expected.raw));
  }
}

// A packet that is there in part is not shown, lest zeros stand for what is absent. The length of
// the stream is a signed number of 32 bits, so that the largest sizes decode nothing.
constexpr SdmaCase kSdmaCases[] = {
    {0x188, 0, 0, 0, "", "",
     "queue 7 ring: file offset 0X188, wanted 20 bytes, available 0 bytes\n"},
    {0x18F, 0, 0, 7, "", "",
     "queue 7 ring: file offset 0X188, wanted 20 bytes, available 7 bytes\n"},
    {0x190, 0, 0, 8, small_dump::kTrap, "",
     "queue 7 ring: file offset 0X188, wanted 20 bytes, available 8 bytes\n"},
    {0x191, 0, 0, 9, small_dump::kTrap, "",
     "queue 7 ring: file offset 0X188, wanted 20 bytes, available 9 bytes\n"},
    {0x19B, 0, 0, 19, small_dump::kTrap, "",
     "queue 7 ring: file offset 0X188, wanted 20 bytes, available 19 bytes\n"},
    {0x19C, 0, 0, 20, small_dump::kTrap, small_dump::kTimestamp, ""},
    {0, kRingSize, 1, 1, small_dump::kTrap, "", ""},
    {0, kRingSize, 8, 8, small_dump::kTrap, "", ""},
    {0, kRingSize, 21, 20, small_dump::kTrap, small_dump::kTimestamp,
     "queue 7 ring: file offset 0X188, wanted 21 bytes, available 20 bytes\n"},
    {0, kRingSize, 0x7FFFFFFF, 20, small_dump::kTrap, small_dump::kTimestamp,
     "queue 7 ring: file offset 0X188, wanted 2147483647 bytes, available 20 bytes\n"},
    {0, kRingSize, 0xFFFFFFFF, 20, "", "",
     "queue 7 ring: file offset 0X188, wanted 4294967295 bytes, available 20 bytes\n"},
    {0, kRingSize, 0x8000000000000000, 20, "", "",
     "queue 7 ring: file offset 0X188, wanted 9223372036854775808 bytes, available 20 bytes\n"},
    {0, kRingSize, 0xFFFFFFFFFFFFFFFF, 20, "", "",
     "queue 7 ring: file offset 0X188, wanted 18446744073709551615 bytes, available 20 bytes\n"},
    {0, kRingOffset, 0x19C, 0, "", "",
     "queue 7 ring: file offset 0X19C, wanted 20 bytes, available 0 bytes\n"},
    {0, kRingOffset, 0xFFFFFFFFFFFFFFFF, 0, "", "",
     "queue 7 ring: file offset 0XFFFFFFFFFFFFFFFF, wanted 20 bytes, available 0 bytes\n"},
};

INSTANTIATE_TEST_SUITE_P(Changes, DamagedSdmaRingTest, testing::ValuesIn(kSdmaCases),
                         [](const auto& row) {
                           const SdmaCase& c = row.param;
                           return c.size != 0 ? "CutAt" + std::to_string(c.size)
                                              : "Field" + std::to_string(c.field) + "Is" +
                                                    std::to_string(c.value);
                         });

}  // namespace
