// Cut and lying context save areas: the waves that are inside are reported, and the other queue and
// its agent go on.
//
// The file ends with the area of queue 7, which lies at 0xC38: header, control stack at 0xC48
// (preamble, state record, two wave records), second wave at 0xC5C, first wave at 0x115C, end at
// 0x185C. Before it lies that of queue 9, which belongs to another agent.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "analyser_run.h"
#include "core_file_writer.h"
#include "damaged_file.h"
#include "row_name.h"

namespace {

using sample::Region;

constexpr uint64_t kArea = 0xC38;
constexpr uint64_t kAreaEnd = 0x185C;

constexpr size_t kHwIdRegister = 10;

sample::AreaWave WaveAt(uint32_t hw_id, bool first_in_group) {
  sample::AreaWave wave;
  wave.hwregs[kHwIdRegister] = hw_id;
  wave.first_in_group = first_in_group;
  return wave;
}

sample::Queue QueueWith(uint32_t id, uint32_t gpu_id, const sample::AreaGroup& group) {
  sample::Queue queue;
  queue.queue_id = id;
  queue.gpu_id = gpu_id;
  queue.queue_type = 2;
  queue.ring = std::string(64, '\0');
  queue.header_backup = {0};
  queue.context = sample::ContextAreaBytes({.groups = {group}});
  return queue;
}

sample::CoreFile TwoAreas() {
  sample::AreaGroup damaged;
  damaged.state = sample::StateRecord(4, 4, 16, 128);
  damaged.vgpr_count = 4;
  damaged.sgpr_count = 16;
  damaged.lds_dwords = 128;
  damaged.waves = {WaveAt(0x2100, true), WaveAt(0x2110, false)};
  sample::AreaGroup whole;
  whole.state_record = false;
  whole.waves = {WaveAt(1, true)};

  sample::CoreFile file;
  file.reason.reason = 1;
  file.layout = WithLast(Region::kContexts);
  file.agents.resize(2);
  file.agents[0].gpu_id = 100;
  file.agents[0].node_id = 1;
  file.agents[1].gpu_id = 200;
  file.agents[1].node_id = 2;
  file.queues = {QueueWith(9, 200, whole), QueueWith(7, 100, damaged)};
  return file;
}

enum class Waves { kNone, kSecond, kBoth };

const char* TextOf(Waves waves) {
  switch (waves) {
    case Waves::kNone:
      return "";
    case Waves::kSecond:
      return "Total waves count: 1\nse1.sh0.cu1.simd1.wave0\n";
    default:
      return "Total waves count: 2\nse1.sh0.cu1.simd0.wave0\nse1.sh0.cu1.simd1.wave0\n";
  }
}

std::string WavesOf(const AnalyserRun& run, const std::string& queue) {
  const std::string path = "queues/" + queue + "/waves";
  return run.Has(path) ? WhereWavesRan(run.files.at(path)) : "";
}

// The other agent's queue is as if nothing had happened.
void ExpectOtherQueue(const AnalyserRun& run) {
  EXPECT_EQ(WavesOf(run, "9"), "Total waves count: 1\nse0.sh0.cu0.simd0.wave1\n");
  EXPECT_EQ(run.files.at("queues/9/cwsr").size(), 220u);
  EXPECT_NE(run.files.at("agent_2").find("\nUsed SEs(4) "), std::string::npos);
  EXPECT_TRUE(run.Has("queues/7/queue"));
  EXPECT_TRUE(run.Has("queues/7/packets"));
}

void ExpectArea(const AnalyserRun& run, Waves waves, const std::string& raw) {
  EXPECT_EQ(WavesOf(run, "7"), TextOf(waves));
  EXPECT_EQ(run.Has("queues/7/cwsr"), !raw.empty());
  if (!raw.empty()) {
    EXPECT_EQ(run.files.at("queues/7/cwsr"), raw);
  }
  EXPECT_NE(run.files.at("agent_1").find("\nUsed SEs(4) "), std::string::npos);
  ExpectOtherQueue(run);
}

TEST(DamagedAreaTest, AWholeAreaHasBothWaves) {
  const std::string bytes = sample::CoreFileBytes(TwoAreas());
  ASSERT_EQ(bytes.size(), kAreaEnd);
  const AnalyserRun run = Analyse(bytes);
  ExpectDamage(run, "");
  ExpectArea(run, Waves::kBoth, bytes.substr(kArea));
}

// ---------------------------------------------------------------------------------------------
// Truncation

struct CutCase {
  uint64_t size;  // of the file
  Waves waves;
  const char* damage;
};

class CutAreaTest : public testing::TestWithParam<CutCase> {};

TEST_P(CutAreaTest, WavesInsideAreReported) {
  const std::string bytes = Truncated(sample::CoreFileBytes(TwoAreas()), GetParam().size);
  const AnalyserRun run = Analyse(bytes);
  ExpectDamage(run, GetParam().damage);
  ExpectArea(run, GetParam().waves, bytes.substr(kArea));
}

constexpr CutCase kCuts[] = {
    {0xC38, Waves::kNone,
     "queue 7 context save area: file offset 0XC38, wanted 3108 bytes, available 0 bytes\n"},
    {0xC39, Waves::kNone,
     "queue 7 context save area: file offset 0XC38, wanted 3108 bytes, available 1 bytes\n"
     "queue 7 context save area, header: file offset 0XC38, wanted 16 bytes, available 1 bytes\n"},
    {0xC47, Waves::kNone,
     "queue 7 context save area: file offset 0XC38, wanted 3108 bytes, available 15 bytes\n"
     "queue 7 context save area, header: file offset 0XC38, wanted 16 bytes, available 15 bytes\n"},
    {0xC48, Waves::kNone,
     "queue 7 context save area: file offset 0XC38, wanted 3108 bytes, available 16 bytes\n"
     "queue 7 context save area, control stack: file offset 0XC48, wanted 20 bytes, available 0 "
     "bytes\n"},
    {0xC50, Waves::kNone,
     "queue 7 context save area: file offset 0XC38, wanted 3108 bytes, available 24 bytes\n"
     "queue 7 context save area, control stack: file offset 0XC48, wanted 20 bytes, available 8 "
     "bytes\n"},
    {0xC57, Waves::kNone,
     "queue 7 context save area: file offset 0XC38, wanted 3108 bytes, available 31 bytes\n"
     "queue 7 context save area, control stack: file offset 0XC48, wanted 20 bytes, available 15 "
     "bytes\n"},
    {0xC58, Waves::kNone,
     "queue 7 context save area: file offset 0XC38, wanted 3108 bytes, available 32 bytes\n"
     "queue 7 context save area, control stack: file offset 0XC48, wanted 20 bytes, available 16 "
     "bytes\n"
     "queue 7 context save area, waves lost: 1, the first: file offset 0X115C, wanted 1792 bytes, "
     "available 0 bytes\n"},
    {0xC5C, Waves::kNone,
     "queue 7 context save area: file offset 0XC38, wanted 3108 bytes, available 36 bytes\n"
     "queue 7 context save area, waves lost: 2, the first: file offset 0X115C, wanted 1792 bytes, "
     "available 0 bytes\n"},
    {0x115B, Waves::kNone,
     "queue 7 context save area: file offset 0XC38, wanted 3108 bytes, available 1315 bytes\n"
     "queue 7 context save area, waves lost: 2, the first: file offset 0X115C, wanted 1792 bytes, "
     "available 0 bytes\n"},
    {0x115C, Waves::kSecond,
     "queue 7 context save area: file offset 0XC38, wanted 3108 bytes, available 1316 bytes\n"
     "queue 7 context save area, waves lost: 1, the first: file offset 0X115C, wanted 1792 bytes, "
     "available 0 bytes\n"},
    {0x14DC, Waves::kSecond,
     "queue 7 context save area: file offset 0XC38, wanted 3108 bytes, available 2212 bytes\n"
     "queue 7 context save area, waves lost: 1, the first: file offset 0X115C, wanted 1792 bytes, "
     "available 896 bytes\n"},
    {0x185B, Waves::kSecond,
     "queue 7 context save area: file offset 0XC38, wanted 3108 bytes, available 3107 bytes\n"
     "queue 7 context save area, waves lost: 1, the first: file offset 0X115C, wanted 1792 bytes, "
     "available 1791 bytes\n"},
};

INSTANTIATE_TEST_SUITE_P(Sizes, CutAreaTest, testing::ValuesIn(kCuts),
                         [](const auto& row) { return "At" + std::to_string(row.param.size); });

// ---------------------------------------------------------------------------------------------
// Offset and size in the queue's record, the second one, at 0xA38

constexpr uint64_t kContextSize = 0xA38 + 120;
constexpr uint64_t kContextOffset = 0xA38 + 136;

struct FieldCase {
  uint64_t field;  // file offset
  uint64_t value;
  Waves waves;
  uint64_t raw;  // bytes of the area that are written
  const char* damage;
};

class LyingAreaTest : public testing::TestWithParam<FieldCase> {};

TEST_P(LyingAreaTest, ThePartInTheFileIsUsed) {
  std::string bytes = sample::CoreFileBytes(TwoAreas());
  SetField(bytes, GetParam().field, 8, GetParam().value);
  const AnalyserRun run = Analyse(bytes);
  ExpectDamage(run, GetParam().damage);
  ExpectArea(run, GetParam().waves, bytes.substr(kArea, GetParam().raw));
}

constexpr FieldCase kFields[] = {
    {kContextSize, 1, Waves::kNone, 1,
     "queue 7 context save area, header: file offset 0XC38, wanted 16 bytes, available 1 bytes\n"},
    {kContextSize, 2000, Waves::kSecond, 2000,
     "queue 7 context save area, waves lost: 1, the first: file offset 0X115C, wanted 1792 bytes, "
     "available 684 bytes\n"},
    {kContextSize, 3109, Waves::kBoth, 3108,
     "queue 7 context save area: file offset 0XC38, wanted 3109 bytes, available 3108 bytes\n"},
    {kContextSize, 0x7FFFFFFF, Waves::kBoth, 3108,
     "queue 7 context save area: file offset 0XC38, wanted 2147483647 bytes, available 3108 "
     "bytes\n"},
    {kContextSize, 0xFFFFFFFF, Waves::kBoth, 3108,
     "queue 7 context save area: file offset 0XC38, wanted 4294967295 bytes, available 3108 "
     "bytes\n"},
    {kContextSize, 0x8000000000000000, Waves::kBoth, 3108,
     "queue 7 context save area: file offset 0XC38, wanted 9223372036854775808 bytes, available "
     "3108 bytes\n"},
    {kContextSize, 0xFFFFFFFFFFFFFFFF, Waves::kBoth, 3108,
     "queue 7 context save area: file offset 0XC38, wanted 18446744073709551615 bytes, available "
     "3108 bytes\n"},
    {kContextOffset, kAreaEnd, Waves::kNone, 0,
     "queue 7 context save area: file offset 0X185C, wanted 3108 bytes, available 0 bytes\n"},
    {kContextOffset, kAreaEnd + 1, Waves::kNone, 0,
     "queue 7 context save area: file offset 0X185D, wanted 3108 bytes, available 0 bytes\n"},
    {kContextOffset, 0x7FFFFFFF, Waves::kNone, 0,
     "queue 7 context save area: file offset 0X7FFFFFFF, wanted 3108 bytes, available 0 bytes\n"},
    {kContextOffset, 0x8000000000000000, Waves::kNone, 0,
     "queue 7 context save area: file offset 0X8000000000000000, wanted 3108 bytes, available 0 "
     "bytes\n"},
    {kContextOffset, 0xFFFFFFFFFFFFFFFF, Waves::kNone, 0,
     "queue 7 context save area: file offset 0XFFFFFFFFFFFFFFFF, wanted 3108 bytes, available 0 "
     "bytes\n"},
};

INSTANTIATE_TEST_SUITE_P(Fields, LyingAreaTest, testing::ValuesIn(kFields), [](const auto& row) {
  return "Field" + std::to_string(row.param.field) + "Is" + std::to_string(row.param.value);
});

// ---------------------------------------------------------------------------------------------
// The area's own header. It says 16, 20, 3108 and 3072: the control stack ends where the waves
// begin.

struct HeaderCase {
  const char* name;
  uint32_t ctrl_stack_offset;
  uint32_t ctrl_stack_size;
  uint32_t wave_state_offset;
  uint32_t wave_state_size;
  const char* damage;
};

std::string WithAreaHeader(const HeaderCase& header) {
  std::string bytes = sample::CoreFileBytes(TwoAreas());
  SetField(bytes, kArea, 4, header.ctrl_stack_offset);
  SetField(bytes, kArea + 4, 4, header.ctrl_stack_size);
  SetField(bytes, kArea + 8, 4, header.wave_state_offset);
  SetField(bytes, kArea + 12, 4, header.wave_state_size);
  return bytes;
}

class LyingAreaHeaderTest : public testing::TestWithParam<HeaderCase> {};

// Each of these passes the check of the header, and leads outside.
TEST_P(LyingAreaHeaderTest, LeadingOutsideIsALoss) {
  const std::string bytes = WithAreaHeader(GetParam());
  const AnalyserRun run = Analyse(bytes);
  ExpectDamage(run, GetParam().damage);
  ExpectArea(run, Waves::kNone, bytes.substr(kArea));
}

constexpr HeaderCase kHeaders[] = {
    {"WavesEndAtTheStart", 16, 20, 0, 0xFFFFFFDC,
     "queue 7 context save area, waves lost: 2, the first: file offset 0X538, wanted 1792 bytes, "
     "available 0 bytes\n"},
    {"WavesEndInTheHeader", 16, 20, 8, 0xFFFFFFE4,
     "queue 7 context save area, waves lost: 2, the first: file offset 0X540, wanted 1792 bytes, "
     "available 8 bytes\n"},
    {"WavesEndAtTheLargestOffset", 16, 20, 0xFFFFFFFF, 0xFFFFFFDB,
     "queue 7 context save area, waves lost: 2, the first: file offset 0X100000537, wanted 1792 "
     "bytes, available 0 bytes\n"},
    {"StackLiesOutside", 0x7FFFFFFF, 20, 0x80000C13, 3072,
     "queue 7 context save area, control stack: file offset 0X80000C37, wanted 20 bytes, available "
     "0 bytes\n"},
    {"StackLiesAtTheLargestOffset", 0xFFFFFFFF, 20, 3091, 3072,
     "queue 7 context save area, control stack: file offset 0X100000C37, wanted 20 bytes, "
     "available 0 bytes\n"},
    // What is there of the stack is 3092 bytes: the preamble, the state record, and 770 words of
    // which each is a wave record, since no register of the waves has one of the high bits.
    {"StackIsLongerThanTheArea", 16, 0x7FFFFFFF, 0x80000C0F, 3072,
     "queue 7 context save area, control stack: file offset 0XC48, wanted 2147483647 bytes, "
     "available 3092 bytes\n"
     "queue 7 context save area, waves lost: 770, the first: file offset 0X80001147, wanted 1792 "
     "bytes, available 0 bytes\n"},
};

INSTANTIATE_TEST_SUITE_P(Headers, LyingAreaHeaderTest, testing::ValuesIn(kHeaders),
                         RowName<HeaderCase>);

class ContradictoryAreaTest : public testing::TestWithParam<HeaderCase> {};

// A header that contradicts itself is no header: none of the agent's waves can be placed. The other
// agent goes on.
TEST_P(ContradictoryAreaTest, EndsTheWavesOfItsAgent) {
  const std::string bytes = WithAreaHeader(GetParam());
  const AnalyserRun run = Analyse(bytes);
  EXPECT_TRUE(run.loaded);
  EXPECT_EQ(run.damage, "");
  EXPECT_EQ(run.log,
            "[time] Error: Ctrl stack / context save address check fail\n"
            "[time] Error: get queue wave states failed\n");
  EXPECT_EQ(WavesOf(run, "7"), "");
  EXPECT_EQ(run.files.at("queues/7/cwsr"), bytes.substr(kArea));
  EXPECT_EQ(run.files.at("agent_1").find("Used SEs"), std::string::npos);
  ExpectOtherQueue(run);
}

constexpr HeaderCase kContradictions[] = {
    {"StackOffsetZero", 0, 20, 3108, 3072, ""},
    {"StackOffsetLargest", 0xFFFFFFFF, 20, 3108, 3072, ""},
    {"StackSizeZero", 16, 0, 3108, 3072, ""},
    {"StackSizeLargest", 16, 0xFFFFFFFF, 3108, 3072, ""},
    {"WavesEndAtZero", 16, 20, 0, 3072, ""},
    {"WavesEndAtLargest", 16, 20, 0xFFFFFFFF, 3072, ""},
    {"WavesSizeZero", 16, 20, 3108, 0, ""},
    {"WavesSizeLargest", 16, 20, 3108, 0xFFFFFFFF, ""},
};

INSTANTIATE_TEST_SUITE_P(Headers, ContradictoryAreaTest, testing::ValuesIn(kContradictions),
                         RowName<HeaderCase>);

// ---------------------------------------------------------------------------------------------
// The control stack

// 256 VGPRs, 112 SGPRs and 65408 dwords of LDS: a first wave of 327,808 bytes, which would begin
// before the file.
TEST(DamagedAreaTest, TheLargestStateRecordLosesItsWaves) {
  std::string bytes = sample::CoreFileBytes(TwoAreas());
  SetField(bytes, 0xC50, 4, 0xBFFFFFFF);
  const AnalyserRun run = Analyse(bytes);
  ExpectDamage(run,
               "queue 7 context save area, waves lost: 2, the first: file offset "
               "0XFFFFFFFFFFFB17DC, wanted 327808 bytes, available 3108 bytes\n");
  ExpectArea(run, Waves::kNone, bytes.substr(kArea));
}

// 8 VGPRs instead of 4: the first wave takes 2816 bytes and leaves 292 to the second, which wants
// 2304.
TEST(DamagedAreaTest, AWaveThatBeginsBeforeTheAreaIsLost) {
  std::string bytes = sample::CoreFileBytes(TwoAreas());
  SetField(bytes, 0xC50, 4, 0x80000241);
  const AnalyserRun run = Analyse(bytes);
  ExpectDamage(run,
               "queue 7 context save area, waves lost: 1, the first: file offset 0X45C, wanted "
               "2304 bytes, available 292 bytes\n");
  EXPECT_EQ(WavesOf(run, "7"), "Total waves count: 1\nse1.sh0.cu1.simd0.wave0\n");
  ExpectOtherQueue(run);
}

}  // namespace
