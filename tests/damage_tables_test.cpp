// Cut and lying tables of records: the whole records inside the file are reported. In every file
// the reason record lies at 0x80 and the environment at 0xF0; the table stands last.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "analyser_run.h"
#include "core_file_writer.h"
#include "damaged_file.h"

namespace {

using sample::Override;
using sample::Region;
using Names = std::vector<std::string>;

// Where a table's offset and count lie: in the header, those of kernels in the code object's
// record.
constexpr size_t kAgentOffset = 32;
constexpr size_t kAgentCount = 40;
constexpr size_t kQueueOffset = 48;
constexpr size_t kQueueCount = 56;
constexpr size_t kCodeObjectOffset = 64;
constexpr size_t kCodeObjectCount = 72;
constexpr size_t kKernelOffset = 40;
constexpr size_t kKernelCount = 48;

// What is done to a good file: a truncation, or one field that lies.
struct Change {
  uint64_t size = 0;  // 0: all of it
  Override::Record record = Override::Record::kHeader;
  size_t field = 0;
  uint64_t value = 0;
};

constexpr Change CutAt(uint64_t size) { return {.size = size}; }
constexpr Change Header(size_t field, uint64_t value) { return {.field = field, .value = value}; }
constexpr Change CodeObject(size_t field, uint64_t value) {
  return {.record = Override::Record::kCodeObject, .field = field, .value = value};
}

std::string Changed(sample::CoreFile file, const Change& change) {
  if (change.size != 0) {
    return Truncated(sample::CoreFileBytes(file), change.size);
  }
  file.overrides = {{.record = change.record, .offset = change.field, .value = change.value}};
  return sample::CoreFileBytes(file);
}

struct TableCase {
  Change change;
  int records;  // that are still reported
  const char* damage;
};

std::string CaseName(const testing::TestParamInfo<TableCase>& row) {
  const Change& change = row.param.change;
  return change.size != 0
             ? "CutAt" + std::to_string(change.size)
             : "Field" + std::to_string(change.field) + "Is" + std::to_string(change.value);
}

Names PathsOf(const AnalyserRun& run) {
  Names paths;
  for (const auto& [path, text] : run.files) {
    paths.push_back(path);
  }
  return paths;
}

// ---------------------------------------------------------------------------------------------
// Agents: 1112 bytes each

sample::CoreFile TwoAgents() {
  sample::CoreFile file;
  file.layout = WithLast(Region::kAgents);
  file.agents.resize(2);
  file.agents[0].node_id = 1;
  file.agents[1].node_id = 2;
  return file;
}

class DamagedAgentTableTest : public testing::TestWithParam<TableCase> {};

TEST_P(DamagedAgentTableTest, WholeRecordsAreReported) {
  const AnalyserRun run = Analyse(Changed(TwoAgents(), GetParam().change));
  ExpectDamage(run, GetParam().damage);
  const Names paths[] = {{"environment", "fault_info"},
                         {"agent_1", "environment", "fault_info"},
                         {"agent_1", "agent_2", "environment", "fault_info"}};
  EXPECT_EQ(PathsOf(run), paths[GetParam().records]);
}

constexpr TableCase kAgentTables[] = {
    {CutAt(0xF8), 0, "agent table: file offset 0XF8, wanted 2224 bytes, available 0 bytes\n"},
    {CutAt(0xF9), 0, "agent table: file offset 0XF8, wanted 2224 bytes, available 1 bytes\n"},
    {CutAt(0x324), 0, "agent table: file offset 0XF8, wanted 2224 bytes, available 556 bytes\n"},
    {CutAt(0x54F), 0, "agent table: file offset 0XF8, wanted 2224 bytes, available 1111 bytes\n"},
    {CutAt(0x550), 1, "agent table: file offset 0XF8, wanted 2224 bytes, available 1112 bytes\n"},
    {CutAt(0x551), 1, "agent table: file offset 0XF8, wanted 2224 bytes, available 1113 bytes\n"},
    {CutAt(0x77C), 1, "agent table: file offset 0XF8, wanted 2224 bytes, available 1668 bytes\n"},
    {CutAt(0x9A7), 1, "agent table: file offset 0XF8, wanted 2224 bytes, available 2223 bytes\n"},
    {CutAt(0x9A8), 2, ""},
    {Header(kAgentCount, 0), 0, ""},
    {Header(kAgentCount, 1), 1, ""},
    {Header(kAgentCount, 3), 2,
     "agent table: file offset 0XF8, wanted 3336 bytes, available 2224 bytes\n"},
    {Header(kAgentCount, 0x7FFFFFFF), 2,
     "agent table: file offset 0XF8, wanted 2388001815464 bytes, available 2224 bytes\n"},
    {Header(kAgentCount, 0xFFFFFFFF), 2,
     "agent table: file offset 0XF8, wanted 4776003632040 bytes, available 2224 bytes\n"},
    {Header(kAgentCount, 0x8000000000000000), 2,
     "agent table: file offset 0XF8, wanted 18446744073709551615 bytes, available 2224 bytes\n"},
    {Header(kAgentCount, 0xFFFFFFFFFFFFFFFF), 2,
     "agent table: file offset 0XF8, wanted 18446744073709551615 bytes, available 2224 bytes\n"},
    {Header(kAgentOffset, 0x9A8), 0,
     "agent table: file offset 0X9A8, wanted 2224 bytes, available 0 bytes\n"},
    {Header(kAgentOffset, 0x9A9), 0,
     "agent table: file offset 0X9A9, wanted 2224 bytes, available 0 bytes\n"},
    {Header(kAgentOffset, 0x8000000000000000), 0,
     "agent table: file offset 0X8000000000000000, wanted 2224 bytes, available 0 bytes\n"},
    {Header(kAgentOffset, 0xFFFFFFFFFFFFFFFF), 0,
     "agent table: file offset 0XFFFFFFFFFFFFFFFF, wanted 2224 bytes, available 0 bytes\n"},
};

INSTANTIATE_TEST_SUITE_P(Changes, DamagedAgentTableTest, testing::ValuesIn(kAgentTables), CaseName);

TEST(DamagedTableTest, AnAgentNameWithoutTerminatorEndsWithItsField) {
  sample::CoreFile file = TwoAgents();
  file.agents[0].name = std::string(1024, 'n');
  const AnalyserRun run = Analyse(sample::CoreFileBytes(file));
  ExpectDamage(run, "");
  EXPECT_NE(run.files.at("agent_1").find("\nAgent name: " + std::string(1024, 'n') + "\npci_busid"),
            std::string::npos);
}

// The offset of a table of no records is not looked at.
TEST(DamagedTableTest, AnEmptyTableMayLieAnywhere) {
  sample::CoreFile file;
  file.overrides = {{.offset = kAgentOffset, .value = 0xFFFFFFFFFFFFFFFF},
                    {.offset = kQueueOffset, .value = 0x8000000000000000},
                    {.offset = kCodeObjectOffset, .value = 0xFFFFFFFF}};
  const AnalyserRun run = Analyse(sample::CoreFileBytes(file));
  ExpectDamage(run, "");
  EXPECT_EQ(PathsOf(run), (Names{"environment", "fault_info"}));
}

// ---------------------------------------------------------------------------------------------
// Queues: 144 bytes each

sample::CoreFile ThreeQueues() {
  sample::CoreFile file;
  file.layout = WithLast(Region::kQueues);
  file.queues.resize(3);
  file.queues[0].queue_id = 1;
  file.queues[1].queue_id = 2;
  file.queues[2].queue_id = 3;
  return file;
}

class DamagedQueueTableTest : public testing::TestWithParam<TableCase> {};

TEST_P(DamagedQueueTableTest, WholeRecordsAreReported) {
  const AnalyserRun run = Analyse(Changed(ThreeQueues(), GetParam().change));
  ExpectDamage(run, GetParam().damage);
  const Names paths[] = {
      {"environment", "fault_info"},
      {"environment", "fault_info", "queues/1/queue"},
      {"environment", "fault_info", "queues/1/queue", "queues/2/queue"},
      {"environment", "fault_info", "queues/1/queue", "queues/2/queue", "queues/3/queue"}};
  EXPECT_EQ(PathsOf(run), paths[GetParam().records]);
}

constexpr TableCase kQueueTables[] = {
    {CutAt(0xF8), 0, "queue table: file offset 0XF8, wanted 432 bytes, available 0 bytes\n"},
    {CutAt(0x140), 0, "queue table: file offset 0XF8, wanted 432 bytes, available 72 bytes\n"},
    {CutAt(0x187), 0, "queue table: file offset 0XF8, wanted 432 bytes, available 143 bytes\n"},
    {CutAt(0x188), 1, "queue table: file offset 0XF8, wanted 432 bytes, available 144 bytes\n"},
    {CutAt(0x217), 1, "queue table: file offset 0XF8, wanted 432 bytes, available 287 bytes\n"},
    {CutAt(0x218), 2, "queue table: file offset 0XF8, wanted 432 bytes, available 288 bytes\n"},
    {CutAt(0x2A7), 2, "queue table: file offset 0XF8, wanted 432 bytes, available 431 bytes\n"},
    {CutAt(0x2A8), 3, ""},
    {Header(kQueueCount, 0), 0, ""},
    {Header(kQueueCount, 2), 2, ""},
    {Header(kQueueCount, 4), 3,
     "queue table: file offset 0XF8, wanted 576 bytes, available 432 bytes\n"},
    {Header(kQueueCount, 0x7FFFFFFF), 3,
     "queue table: file offset 0XF8, wanted 309237645168 bytes, available 432 bytes\n"},
    {Header(kQueueCount, 0xFFFFFFFF), 3,
     "queue table: file offset 0XF8, wanted 618475290480 bytes, available 432 bytes\n"},
    {Header(kQueueCount, 0x8000000000000000), 3,
     "queue table: file offset 0XF8, wanted 18446744073709551615 bytes, available 432 bytes\n"},
    {Header(kQueueCount, 0xFFFFFFFFFFFFFFFF), 3,
     "queue table: file offset 0XF8, wanted 18446744073709551615 bytes, available 432 bytes\n"},
    {Header(kQueueOffset, 0x2A8), 0,
     "queue table: file offset 0X2A8, wanted 432 bytes, available 0 bytes\n"},
    {Header(kQueueOffset, 0xFFFFFFFFFFFFFFFF), 0,
     "queue table: file offset 0XFFFFFFFFFFFFFFFF, wanted 432 bytes, available 0 bytes\n"},
};

INSTANTIATE_TEST_SUITE_P(Changes, DamagedQueueTableTest, testing::ValuesIn(kQueueTables), CaseName);

// ---------------------------------------------------------------------------------------------
// Code objects: 64 bytes each; their images of one byte lie at 0xF8 and 0x100

sample::CoreFile TwoCodeObjects() {
  sample::CoreFile file;
  file.layout = WithLast(Region::kCodeObjects);
  file.code_objects.resize(2);
  file.code_objects[0].elf = "1";
  file.code_objects[1].elf = "2";
  return file;
}

Names CodeObjectPaths(int records) {
  const Names paths[] = {
      {"environment", "fault_info"},
      {"codes/code_object_0", "codes/code_object_0.info", "environment", "fault_info"},
      {"codes/code_object_0", "codes/code_object_0.info", "codes/code_object_1",
       "codes/code_object_1.info", "environment", "fault_info"}};
  return paths[records];
}

class DamagedCodeObjectTableTest : public testing::TestWithParam<TableCase> {};

TEST_P(DamagedCodeObjectTableTest, WholeRecordsAreReported) {
  const AnalyserRun run = Analyse(Changed(TwoCodeObjects(), GetParam().change));
  ExpectDamage(run, GetParam().damage);
  EXPECT_EQ(PathsOf(run), CodeObjectPaths(GetParam().records));
}

constexpr TableCase kCodeObjectTables[] = {
    {CutAt(0x108), 0,
     "code object table: file offset 0X108, wanted 128 bytes, available 0 bytes\n"},
    {CutAt(0x128), 0,
     "code object table: file offset 0X108, wanted 128 bytes, available 32 bytes\n"},
    {CutAt(0x147), 0,
     "code object table: file offset 0X108, wanted 128 bytes, available 63 bytes\n"},
    {CutAt(0x148), 1,
     "code object table: file offset 0X108, wanted 128 bytes, available 64 bytes\n"},
    {CutAt(0x187), 1,
     "code object table: file offset 0X108, wanted 128 bytes, available 127 bytes\n"},
    {CutAt(0x188), 2, ""},
    {Header(kCodeObjectCount, 0), 0, ""},
    {Header(kCodeObjectCount, 1), 1, ""},
    {Header(kCodeObjectCount, 3), 2,
     "code object table: file offset 0X108, wanted 192 bytes, available 128 bytes\n"},
    {Header(kCodeObjectCount, 0x7FFFFFFF), 2,
     "code object table: file offset 0X108, wanted 137438953408 bytes, available 128 bytes\n"},
    {Header(kCodeObjectCount, 0xFFFFFFFF), 2,
     "code object table: file offset 0X108, wanted 274877906880 bytes, available 128 bytes\n"},
    {Header(kCodeObjectCount, 0xFFFFFFFFFFFFFFFF), 2,
     "code object table: file offset 0X108, wanted 18446744073709551615 bytes, available 128 "
     "bytes\n"},
    {Header(kCodeObjectOffset, 0x188), 0,
     "code object table: file offset 0X188, wanted 128 bytes, available 0 bytes\n"},
    {Header(kCodeObjectOffset, 0xFFFFFFFFFFFFFFFF), 0,
     "code object table: file offset 0XFFFFFFFFFFFFFFFF, wanted 128 bytes, available 0 bytes\n"},
};

INSTANTIATE_TEST_SUITE_P(Changes, DamagedCodeObjectTableTest, testing::ValuesIn(kCodeObjectTables),
                         CaseName);

// A record without an image fails the load, but not where the count is lost anyway: there it tells
// that the table has ended.
TEST(DamagedTableTest, BehindALostCountARecordWithoutImageEndsTheTable) {
  const std::string bytes =
      Changed(TwoCodeObjects(), Header(kCodeObjectCount, 100)) + std::string(200, '\0');
  const AnalyserRun run = Analyse(bytes);
  ExpectDamage(run,
               "code object table: file offset 0X108, wanted 6400 bytes, available 328 bytes\n");
  EXPECT_EQ(PathsOf(run), CodeObjectPaths(2));
}

TEST(DamagedTableTest, ARecordWithoutImageFailsTheLoad) {
  sample::CoreFile file = TwoCodeObjects();
  file.code_objects[1].elf = "";
  const AnalyserRun run = Analyse(sample::CoreFileBytes(file));
  EXPECT_FALSE(run.loaded);
  EXPECT_EQ(run.damage, "");
  EXPECT_EQ(PathsOf(run), (Names{"codes/code_object_0", "codes/code_object_0.info"}));
}

// ---------------------------------------------------------------------------------------------
// Kernels: 1032 bytes each; the image lies at 0xF8, the code object's record at 0x100

sample::CoreFile ThreeKernels() {
  sample::CoreFile file;
  file.layout.order = {Region::kReason, Region::kEnvironment, Region::kElfs,  Region::kCodeObjects,
                       Region::kAgents, Region::kQueues,      Region::kRings, Region::kContexts,
                       Region::kWaves,  Region::kKernels};
  file.code_objects.resize(1);
  file.code_objects[0].elf = "elf";
  file.code_objects[0].kernels = {{0x100, "one"}, {0x200, "two"}, {0x300, "three"}};
  return file;
}

class DamagedKernelTableTest : public testing::TestWithParam<TableCase> {};

TEST_P(DamagedKernelTableTest, WholeRecordsAreReported) {
  const AnalyserRun run = Analyse(Changed(ThreeKernels(), GetParam().change));
  ExpectDamage(run, GetParam().damage);
  EXPECT_EQ(run.files.at("codes/code_object_0"), "elf");
  const std::string texts[] = {
      "Object load addr: 0x0\nObject load size: 0x0\n", "one:\n\tkernel loaded addr: 0x100\n",
      "two:\n\tkernel loaded addr: 0x200\n", "three:\n\tkernel loaded addr: 0x300\n"};
  std::string info;
  for (int i = 0; i <= GetParam().records; ++i) {
    info += texts[i];
  }
  EXPECT_EQ(run.files.at("codes/code_object_0.info"), info);
}

constexpr TableCase kKernelTables[] = {
    {CutAt(0x140), 0,
     "code_object_0 kernel table: file offset 0X140, wanted 3096 bytes, available 0 bytes\n"},
    {CutAt(0x344), 0,
     "code_object_0 kernel table: file offset 0X140, wanted 3096 bytes, available 516 bytes\n"},
    {CutAt(0x547), 0,
     "code_object_0 kernel table: file offset 0X140, wanted 3096 bytes, available 1031 bytes\n"},
    {CutAt(0x548), 1,
     "code_object_0 kernel table: file offset 0X140, wanted 3096 bytes, available 1032 bytes\n"},
    {CutAt(0x94F), 1,
     "code_object_0 kernel table: file offset 0X140, wanted 3096 bytes, available 2063 bytes\n"},
    {CutAt(0x950), 2,
     "code_object_0 kernel table: file offset 0X140, wanted 3096 bytes, available 2064 bytes\n"},
    {CutAt(0xD57), 2,
     "code_object_0 kernel table: file offset 0X140, wanted 3096 bytes, available 3095 bytes\n"},
    {CutAt(0xD58), 3, ""},
    {CodeObject(kKernelCount, 0), 0, ""},
    {CodeObject(kKernelCount, 1), 1, ""},
    {CodeObject(kKernelCount, 4), 3,
     "code_object_0 kernel table: file offset 0X140, wanted 4128 bytes, available 3096 bytes\n"},
    {CodeObject(kKernelCount, 0x7FFFFFFF), 3,
     "code_object_0 kernel table: file offset 0X140, wanted 2216203123704 bytes, available 3096 "
     "bytes\n"},
    {CodeObject(kKernelCount, 0xFFFFFFFF), 3,
     "code_object_0 kernel table: file offset 0X140, wanted 4432406248440 bytes, available 3096 "
     "bytes\n"},
    {CodeObject(kKernelCount, 0x8000000000000000), 3,
     "code_object_0 kernel table: file offset 0X140, wanted 18446744073709551615 bytes, available "
     "3096 bytes\n"},
    {CodeObject(kKernelCount, 0xFFFFFFFFFFFFFFFF), 3,
     "code_object_0 kernel table: file offset 0X140, wanted 18446744073709551615 bytes, available "
     "3096 bytes\n"},
    {CodeObject(kKernelOffset, 0xD58), 0,
     "code_object_0 kernel table: file offset 0XD58, wanted 3096 bytes, available 0 bytes\n"},
    {CodeObject(kKernelOffset, 0xFFFFFFFFFFFFFFFF), 0,
     "code_object_0 kernel table: file offset 0XFFFFFFFFFFFFFFFF, wanted 3096 bytes, available 0 "
     "bytes\n"},
};

INSTANTIATE_TEST_SUITE_P(Changes, DamagedKernelTableTest, testing::ValuesIn(kKernelTables),
                         CaseName);

TEST(DamagedTableTest, AKernelNameWithoutTerminatorEndsWithItsField) {
  sample::CoreFile file = ThreeKernels();
  file.code_objects[0].kernels = {{0x100, std::string(1024, 'k')}, {0x200, "two"}};
  const AnalyserRun run = Analyse(sample::CoreFileBytes(file));
  ExpectDamage(run, "");
  EXPECT_EQ(run.files.at("codes/code_object_0.info"),
            "Object load addr: 0x0\nObject load size: 0x0\n" + std::string(1024, 'k') +
                ":\n\tkernel loaded addr: 0x100\ntwo:\n\tkernel loaded addr: 0x200\n");
}

}  // namespace
