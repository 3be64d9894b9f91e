// What is said of a damaged core file: where losses are reported, the header, and the reason
// record.
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>

#include "analyser_run.h"
#include "captured_output.h"
#include "core_file_writer.h"
#include "damaged_file.h"
#include "row_name.h"
#include "run_process.h"
#include "small_dump.h"
#include "temp_dir.h"

namespace {

namespace fs = std::filesystem;

using sample::Region;

// ---------------------------------------------------------------------------------------------
// The report of losses

// A file of two agents of which the second is cut off.
std::string FileWithALoss() {
  sample::CoreFile file;
  file.layout = WithLast(Region::kAgents);
  file.agents.resize(2);
  return Truncated(sample::CoreFileBytes(file), 0x9A7);
}

constexpr char kLoss[] = "agent table: file offset 0XF8, wanted 2224 bytes, available 2223 bytes\n";

class DamagedRunTest : public testing::Test {
 protected:
  ProcessResult Run(const std::string& core_file) {
    WriteText(dir_.Path("core_0"), core_file);
    return RunProcess(
        TALVEX_BINARY,
        {"-i", dir_.Path("core_0"), "-o", out_, "-m", dir_.Path("mems"), "-r", dir_.Path("rocm")},
        {.working_directory = "", .environment = {kNoLeakCheck}});
  }

  const TempDir dir_;
  const std::string out_ = dir_.Path("out");
};

TEST_F(DamagedRunTest, ALossIsALineOfDamageAndAnErrorLine) {
  const ProcessResult result = Run(FileWithALoss());
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(WithoutTimes(result.err),
            "[time] Error: damaged core file: agent table: file offset 0XF8, wanted 2224 bytes, "
            "available 2223 bytes\n");
  EXPECT_EQ(ReadText(out_ + "/damage"), kLoss);
}

TEST_F(DamagedRunTest, DamageOfAnEarlierRunIsReplaced) {
  fs::create_directory(out_);
  WriteText(out_ + "/damage", "an older and longer text\nof two lines\n");
  Run(FileWithALoss());
  EXPECT_EQ(ReadText(out_ + "/damage"), kLoss);
}

TEST_F(DamagedRunTest, AWholeFileHasNone) {
  const ProcessResult result = Run(sample::CoreFileBytes(SmallDump()));
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_FALSE(fs::exists(out_ + "/damage"));
}

TEST_F(DamagedRunTest, DamageThatCannotBeWrittenLeavesTheErrorLines) {
  fs::create_directories(out_ + "/damage");
  const ProcessResult result = Run(FileWithALoss());
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(WithoutTimes(result.err), LossLog(kLoss));
}

TEST_F(DamagedRunTest, ADirectoryIsNoCoreFile) {
  ExpectFailedRun(RunProcess(TALVEX_BINARY, {"-i", dir_.Path(), "-o", out_},
                             {.working_directory = "", .environment = {kNoLeakCheck}}),
                  "[time] Error: [init] core file too short for its magic_number: found 0 bytes, "
                  "expected 4 at offset 0\n"
                  "[time] Error: CoreDumpManager init failed.\n");
}

// ---------------------------------------------------------------------------------------------
// The header: the one part that fails the run

struct HeaderCase {
  const char* name;
  int format;
  uint64_t size;
  const char* line;
};

class DamagedHeaderTest : public DamagedRunTest, public testing::WithParamInterface<HeaderCase> {};

TEST_P(DamagedHeaderTest, EndsTheRun) {
  sample::CoreFile file;
  file.format = GetParam().format;
  ExpectFailedRun(Run(Truncated(sample::CoreFileBytes(file), GetParam().size)),
                  std::string("[time] Error: ") + GetParam().line +
                      "\n[time] Error: CoreDumpManager init failed.\n");
  EXPECT_FALSE(fs::exists(out_));
}

constexpr HeaderCase kHeaderCases[] = {
    {"EmptyFile", 1, 0,
     "[init] core file too short for its magic_number: found 0 bytes, expected 4 at offset 0"},
    {"OneByte", 1, 1,
     "[init] core file too short for its magic_number: found 1 bytes, expected 4 at offset 0"},
    {"ThreeBytes", 1, 3,
     "[init] core file too short for its magic_number: found 3 bytes, expected 4 at offset 0"},
    {"MagicAlone", 1, 4,
     "[init] core file too short for its CoreDumpHeaderV1: found 4 bytes, expected 128 at offset "
     "0"},
    {"HalfAHeader", 1, 64,
     "[init] core file too short for its CoreDumpHeaderV1: found 64 bytes, expected 128 at offset "
     "0"},
    {"HeaderButOneByte", 1, 127,
     "[init] core file too short for its CoreDumpHeaderV1: found 127 bytes, expected 128 at offset "
     "0"},
    {"OlderMagicAlone", 0, 4,
     "[init] core file too short for its CoreDumpHeaderV0: found 4 bytes, expected 88 at offset 0"},
    {"OlderHeaderButOneByte", 0, 87,
     "[init] core file too short for its CoreDumpHeaderV0: found 87 bytes, expected 88 at offset "
     "0"},
};

INSTANTIATE_TEST_SUITE_P(Sizes, DamagedHeaderTest, testing::ValuesIn(kHeaderCases),
                         RowName<HeaderCase>);

TEST_F(DamagedRunTest, AnotherMagicEndsTheRun) {
  std::string bytes = sample::CoreFileBytes(SmallDump());
  SetByte(bytes, 3, 'E');
  ExpectFailedRun(Run(bytes),
                  "[time] Error: [init] not supprt magic: 0x4543584f\n"
                  "[time] Error: CoreDumpManager init failed.\n");
  EXPECT_FALSE(fs::exists(out_));
}

TEST_F(DamagedRunTest, AHeaderAloneIsSalvaged) {
  const ProcessResult result = Run(Truncated(sample::CoreFileBytes({}), 128));
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(WithoutTimes(result.err),
            "[time] Error: damaged core file: reason record: file offset 0X80, wanted 112 bytes, "
            "available 0 bytes\n"
            "[time] Error: damaged core file: environment: file offset 0XF0, wanted 1 bytes, "
            "available 0 bytes\n"
            "[time] Error: dump reason info failed\n");
  EXPECT_EQ(ListTree(out_), (std::vector<std::string>{"damage", "environment"}));
}

TEST_F(DamagedRunTest, AnOlderHeaderAloneIsSalvaged) {
  sample::CoreFile file;
  file.format = 0;
  const ProcessResult result = Run(Truncated(sample::CoreFileBytes(file), 88));
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(ReadText(out_ + "/damage"),
            "reason record: file offset 0X58, wanted 112 bytes, available 0 bytes\n"
            "environment: file offset 0XC8, wanted 1 bytes, available 0 bytes\n");
}

// ---------------------------------------------------------------------------------------------
// The reason record

constexpr char kQueueError[] =
    "Queue error in GPU agent: gfx\n"
    "GPU Node: 2\n"
    "Queue ID: -1 (Out of scratch;)\n"
    "\n";
constexpr char kVmFault[] =
    "Memory access fault in GPU agent: gfx\n"
    "GPU Node: 2\n"
    "Address: 0X7F0000001xxx (page not present;)\n"
    "\n";
constexpr char kSignal[] = "Dumping info due to SIGTERM: kill -15\n\n";
constexpr char kNoReport[] = "";

sample::CoreFile FileOfReason(uint32_t reason) {
  sample::CoreFile file;
  file.reason.reason = reason;
  file.reason.agent_name = "gfx";
  file.reason.node_id = 2;
  file.reason.fault_reason_mask = 1;
  file.reason.virtual_address = 0x7F0000001ABC;
  file.reason.status = 0x1008;
  file.reason.ring_addr = 0x100000;
  file.reason.sig = 15;
  return file;
}

void ExpectReason(const AnalyserRun& run, const std::string& report, const std::string& damage) {
  ASSERT_TRUE(run.loaded);
  EXPECT_EQ(run.damage, damage);
  EXPECT_EQ(run.Has("fault_info"), !report.empty());
  if (!report.empty()) {
    EXPECT_EQ(run.files.at("fault_info"), report);
  }
  EXPECT_EQ(run.log,
            LossLog(damage) + (report.empty() ? "[time] Error: dump reason info failed\n" : ""));
}

// The record lies at 0x88, behind the environment.
struct CutReasonCase {
  uint32_t reason;
  uint64_t bytes;  // of the record that the file has
  const char* report;
};

class CutReasonTest : public testing::TestWithParam<CutReasonCase> {};

// A report is made when all that it shows is there: no zero stands for what is absent.
TEST_P(CutReasonTest, IsReportedWhenItsFieldsAreThere) {
  sample::CoreFile file = FileOfReason(GetParam().reason);
  file.layout = WithLast(Region::kReason);
  const std::string bytes = Truncated(sample::CoreFileBytes(file), 0x88 + GetParam().bytes);
  const std::string damage = GetParam().bytes == 112
                                 ? ""
                                 : "reason record: file offset 0X88, wanted 112 bytes, available " +
                                       std::to_string(GetParam().bytes) + " bytes\n";
  ExpectReason(Analyse(bytes), GetParam().report, damage);
}

constexpr CutReasonCase kCutReasonCases[] = {
    {0, 0, kNoReport},   {0, 1, kNoReport},     {0, 4, kNoReport},     {0, 68, kNoReport},
    {0, 103, kNoReport}, {0, 104, kQueueError}, {0, 111, kQueueError}, {0, 112, kQueueError},
    {1, 0, kNoReport},   {1, 3, kNoReport},     {1, 87, kNoReport},    {1, 88, kVmFault},
    {1, 100, kVmFault},  {1, 112, kVmFault},    {2, 0, kNoReport},     {2, 4, kNoReport},
    {2, 107, kNoReport}, {2, 108, kSignal},     {2, 112, kSignal},
};

INSTANTIATE_TEST_SUITE_P(Sizes, CutReasonTest, testing::ValuesIn(kCutReasonCases),
                         [](const auto& row) {
                           return "Reason" + std::to_string(row.param.reason) + "With" +
                                  std::to_string(row.param.bytes) + "Bytes";
                         });

// The record lies at 0x80 here, and fault_size at 24.
struct FaultSizeCase {
  uint64_t fault_size;
  const char* report;
  const char* damage;
};

class FaultSizeTest : public testing::TestWithParam<FaultSizeCase> {};

TEST_P(FaultSizeTest, TellsHowMuchOfTheRecordThereIs) {
  sample::CoreFile file = FileOfReason(1);
  file.overrides = {{.offset = 24, .value = GetParam().fault_size}};
  ExpectReason(Analyse(sample::CoreFileBytes(file)), GetParam().report, GetParam().damage);
}

constexpr FaultSizeCase kFaultSizeCases[] = {
    {0, kNoReport, "reason record: file offset 0X80, wanted 112 bytes, available 0 bytes\n"},
    {1, kNoReport, "reason record: file offset 0X80, wanted 112 bytes, available 1 bytes\n"},
    {87, kNoReport, "reason record: file offset 0X80, wanted 112 bytes, available 87 bytes\n"},
    {88, kVmFault, ""},
    {112, kVmFault, ""},
    {113, kVmFault, "reason record: file offset 0X80, wanted 113 bytes, available 112 bytes\n"},
    {0x7FFFFFFF, kVmFault,
     "reason record: file offset 0X80, wanted 2147483647 bytes, available 112 bytes\n"},
    {0xFFFFFFFF, kVmFault,
     "reason record: file offset 0X80, wanted 4294967295 bytes, available 112 bytes\n"},
    {0x8000000000000000, kVmFault,
     "reason record: file offset 0X80, wanted 9223372036854775808 bytes, available 112 bytes\n"},
    {0xFFFFFFFFFFFFFFFF, kVmFault,
     "reason record: file offset 0X80, wanted 18446744073709551615 bytes, available 112 bytes\n"},
};

INSTANTIATE_TEST_SUITE_P(Sizes, FaultSizeTest, testing::ValuesIn(kFaultSizeCases),
                         [](const auto& row) { return std::to_string(row.param.fault_size); });

// The file has 241 bytes and fault_offset lies at 16.
struct FaultOffsetCase {
  uint64_t fault_offset;
  const char* damage;
};

class FaultOffsetTest : public testing::TestWithParam<FaultOffsetCase> {};

TEST_P(FaultOffsetTest, OutsideTheFileIsAnUnknownReason) {
  sample::CoreFile file = FileOfReason(1);
  file.overrides = {{.offset = 16, .value = GetParam().fault_offset}};
  ExpectReason(Analyse(sample::CoreFileBytes(file)), kNoReport, GetParam().damage);
}

constexpr FaultOffsetCase kFaultOffsetCases[] = {
    {0, ""},  // the magic is no reason
    {240, "reason record: file offset 0XF0, wanted 112 bytes, available 1 bytes\n"},
    {241, "reason record: file offset 0XF1, wanted 112 bytes, available 0 bytes\n"},
    {242, "reason record: file offset 0XF2, wanted 112 bytes, available 0 bytes\n"},
    {0x7FFFFFFF, "reason record: file offset 0X7FFFFFFF, wanted 112 bytes, available 0 bytes\n"},
    {0xFFFFFFFF, "reason record: file offset 0XFFFFFFFF, wanted 112 bytes, available 0 bytes\n"},
    {0x8000000000000000,
     "reason record: file offset 0X8000000000000000, wanted 112 bytes, available 0 bytes\n"},
    {0xFFFFFFFFFFFFFFFF,
     "reason record: file offset 0XFFFFFFFFFFFFFFFF, wanted 112 bytes, available 0 bytes\n"},
};

INSTANTIATE_TEST_SUITE_P(Offsets, FaultOffsetTest, testing::ValuesIn(kFaultOffsetCases),
                         [](const auto& row) { return std::to_string(row.param.fault_offset); });

TEST(DamagedReasonTest, AnUnknownReasonInAWholeRecordIsNoDamage) {
  ExpectReason(Analyse(sample::CoreFileBytes(FileOfReason(3))), kNoReport, "");
}

TEST(DamagedReasonTest, ANameWithoutTerminatorEndsWithItsField) {
  sample::CoreFile file = FileOfReason(1);
  file.reason.agent_name = std::string(64, 'n');
  const AnalyserRun run = Analyse(sample::CoreFileBytes(file));
  EXPECT_EQ(run.damage, "");
  EXPECT_EQ(run.files.at("fault_info"),
            "Memory access fault in GPU agent: " + std::string(64, 'n') +
                "\n"
                "GPU Node: 2\n"
                "Address: 0X7F0000001xxx (page not present;)\n"
                "\n");
}

}  // namespace
