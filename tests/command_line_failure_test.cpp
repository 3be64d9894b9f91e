// Runs of the program that fail, and what they leave.
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <string>

#include "captured_output.h"
#include "command_line_fixture.h"
#include "core_file_writer.h"
#include "run_process.h"
#include "temp_dir.h"

namespace {

namespace fs = std::filesystem;

TEST_F(CommandLineTest, AMissingCoreFileFails) {
  ExpectFailure({"-i", "missing"}, "[time] Error: Get file handle failed: missing\n");
  EXPECT_EQ(ListTree(dir_.Path()), Names{});
}

TEST_F(CommandLineTest, ACoreFileThatCannotBeReachedFails) {
  WriteText(dir_.Path("file"), "");
  ExpectFailure({"-i", "file/core_0"}, "[time] Error: Get file handle failed: file/core_0\n");
}

// The system opens and measures these two, but does not map them.
constexpr char kNothingMapped[] =
    "[time] Error: [init] core file too short for its magic_number: found 0 bytes, expected 4 at "
    "offset 0\n"
    "[time] Error: CoreDumpManager init failed.\n";

TEST_F(CommandLineTest, AnEmptyCoreFileFails) {
  WriteText(dir_.Path("core_0"), "");
  ExpectFailure({}, kNothingMapped);
  EXPECT_EQ(ListTree(dir_.Path()), Names{"core_0"});
}

TEST_F(CommandLineTest, ADirectoryForACoreFileFails) {
  ExpectFailure({"-i", "."}, kNothingMapped);
  EXPECT_EQ(ListTree(dir_.Path()), Names{});
}

TEST_F(CommandLineTest, AFileThatIsNoCoreFileFails) {
  WriteText(dir_.Path("core_0"), "ELF!" + std::string(200, '\0'));
  ExpectFailure({},
                "[time] Error: [init] not supprt magic: 0x21464c45\n"
                "[time] Error: CoreDumpManager init failed.\n");
  EXPECT_EQ(ListTree(dir_.Path()), Names{"core_0"});
}

TEST_F(CommandLineTest, ACodeObjectThatCannotBeWrittenFails) {
  WriteCore(WholeCore());
  WriteText(dir_.Path("file"), "");
  ExpectFailure({"-o", dir_.Path("file/out")},
                "[time] Error: [init] Write bin failed, dump dir: " + dir_.Path("file/out/codes") +
                    " name : code_object_0\n"
                    "[time] Error: CoreDumpManager init failed.\n");
}

TEST_F(CommandLineTest, ReportsThatCannotBeWrittenAreLoggedAndTheRunSucceeds) {
  sample::CoreFile file = WholeCore();
  file.code_objects.clear();
  WriteCore(file);
  WriteText(dir_.Path("file"), "");
  const ProcessResult result = Run({"-o", dir_.Path("file/out")});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(WithoutTimes(result.err),
            "[time] Error: dump reason info failed\n"
            "[time] Error: dump agent: gfx-node failed\n"
            "[time] Error: get queue wave states failed\n"
            "[time] Error: dump queue: 7 failed\n"
            "[time] Error: dump aql packet failed\n"
            "[time] Error: dump packet: 7 failed\n"
            "[time] Error: dump queue: 8 failed\n"
            "[time] Error: dump sdma packet failed\n"
            "[time] Error: dump packet: 8 failed\n");
}

// /dev/full takes nothing; the reports after it are still written.
TEST_F(CommandLineTest, AReportThatTheDiskDoesNotTakeFailsTheRunAtItsEnd) {
  WriteCore(SmallCore());
  fs::create_symlink("/dev/full", dir_.Path("environment"));
  ExpectFailure({}, "[time] Error: incomplete writes: 1, the first to " + dir_.Path("environment") +
                        ": No space left on device\n");
  EXPECT_EQ(ReadText(dir_.Path("fault_info")), "Dumping info due to SIGTERM: kill -15\n\n");
}

// The memory index is trusted; nothing catches what a line with too few tokens throws.
TEST_F(CommandLineTest, AMemoryIndexLineThatIsTooShortEndsTheRunAbnormally) {
  WriteCore(SmallCore());
  ASSERT_TRUE(fs::create_directory(dir_.Path("mems")));
  WriteText(dir_.Path("mems/process_mem_info"), "[0x1000 0x100 a alloc\n");
  const ProcessResult result = Run({});
  EXPECT_EQ(result.status, -1);
  EXPECT_EQ(result.signal, SIGABRT);
  EXPECT_NE(result.err.find("std::out_of_range"), std::string::npos);
}

}  // namespace
