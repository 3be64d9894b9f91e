// Writes that the disk does not take: the run goes on, the rest of the tree is whole, and an error
// line at the end counts the incomplete writes and names the first.
#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "core_file_writer.h"
#include "run_process.h"
#include "small_dump.h"
#include "temp_dir.h"

namespace {

namespace fs = std::filesystem;

using Names = std::vector<std::string>;

// "ulimit -f" counts blocks of 512 bytes. The signal of a write beyond it is ignored, so that the
// write comes up short instead.
constexpr char kLimitedRun[] = "trap '' XFSZ && ulimit -f 128 && exec \"$0\" \"$@\"";
constexpr size_t kLimit = size_t{128} * 512;

class FullDiskTest : public testing::Test {
 protected:
  void WriteCore(const sample::CoreFile& file) {
    ASSERT_TRUE(sample::WriteCoreFile(file, dir_.Path("core_0")));
  }

  Names Arguments(const std::string& out) const {
    return {"-i", dir_.Path("core_0"), "-o", out, "-m", dir_.Path("mems"), "-r", dir_.Path("rocm")};
  }

  // The tree of a run that can write all it wants.
  std::string WholeTree() {
    std::string out = dir_.Path("whole");
    EXPECT_EQ(RunProcess(TALVEX_BINARY, Arguments(out)).status, 0);
    return out;
  }

  ProcessResult RunWithLimit(const std::string& out) {
    Names words = {"-c", kLimitedRun, TALVEX_BINARY};
    const Names arguments = Arguments(out);
    words.insert(words.end(), arguments.begin(), arguments.end());
    return RunProcess("/bin/sh", words, kOptions);
  }

  const ProcessOptions kOptions = {.working_directory = "", .environment = {kNoLeakCheck}};
  const TempDir dir_;
};

// Of each file of the whole tree that is not among `incomplete` the other tree has all bytes.
void ExpectRestIsWhole(const std::string& whole, const std::string& tree,
                       const std::set<std::string>& incomplete) {
  EXPECT_EQ(ListTree(tree), ListTree(whole));
  for (const std::string& path : ListTree(whole)) {
    if (path.back() != '/' && incomplete.count(path) == 0) {
      EXPECT_EQ(ReadText(tree + "/" + path), ReadText(whole + "/" + path)) << path;
    }
  }
}

// The small dump with four reports of more than 64 KiB: an ELF image, the environment, the packets
// and the raw ring of queue 7.
sample::CoreFile DumpWithLargeReports() {
  sample::CoreFile file = SmallDump();
  file.code_objects[0].elf = std::string(100000, 'e');
  file.environment = "A=" + std::string(100000, 'a') + "\n";
  std::string ring;
  for (int i = 0; i < 1100; ++i) {
    ring += sample::BarrierPacket({.header = 3});
  }
  file.queues[0].ring = ring;
  file.queues[0].header_backup.assign(1100, 0);
  return file;
}

TEST_F(FullDiskTest, IncompleteWritesAreCountedAndTheFirstIsNamed) {
  WriteCore(DumpWithLargeReports());
  const std::string out = dir_.Path("out");
  ExpectFailedRun(RunWithLimit(out), "[time] Error: incomplete writes: 4, the first to " + out +
                                         "/codes/code_object_0: File too large\n");

  const std::set<std::string> incomplete = {"codes/code_object_0", "environment",
                                            "queues/7/packets", "queues/7/aql_rb"};
  const std::string whole = WholeTree();
  ExpectRestIsWhole(whole, out, incomplete);
  for (const std::string& path : incomplete) {
    EXPECT_EQ(ReadText(out + "/" + path), ReadText(whole + "/" + path).substr(0, kLimit)) << path;
  }
}

TEST_F(FullDiskTest, ReportsUpToTheLimitAreNoError) {
  WriteCore(SmallDump());
  const std::string out = dir_.Path("out");
  const ProcessResult result = RunWithLimit(out);
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  ExpectRestIsWhole(WholeTree(), out, {});
}

// /dev/full takes nothing. The agent's report is written twice: its occupancy table is appended.
TEST_F(FullDiskTest, ADiskWithoutSpaceIsSaidToBeFull) {
  WriteCore(SmallDump());
  const std::string out = dir_.Path("out");
  fs::create_directory(out);
  fs::create_symlink("/dev/full", out + "/environment");
  fs::create_symlink("/dev/full", out + "/agent_1");
  ExpectFailedRun(RunProcess(TALVEX_BINARY, Arguments(out), kOptions),
                  "[time] Error: incomplete writes: 3, the first to " + out +
                      "/environment: No space left on device\n");
  fs::remove(out + "/environment");
  fs::remove(out + "/agent_1");
  const std::string whole = WholeTree();
  fs::remove(whole + "/environment");
  fs::remove(whole + "/agent_1");
  ExpectRestIsWhole(whole, out, {});
}

// The lines of losses come as they are noticed, that of the disk at the end.
TEST_F(FullDiskTest, DamageThatCannotBeWrittenIsCountedToo) {
  WriteText(dir_.Path("core_0"), sample::CoreFileBytes(SmallDump()).substr(0, 128 + 112));
  const std::string out = dir_.Path("out");
  fs::create_directory(out);
  fs::create_symlink("/dev/full", out + "/damage");
  ExpectFailedRun(
      RunProcess(TALVEX_BINARY, Arguments(out), kOptions),
      "[time] Error: damaged core file: agent table: file offset 0XF0, wanted 2224 bytes, "
      "available 0 bytes\n"
      "[time] Error: damaged core file: queue table: file offset 0X9A0, wanted 432 bytes, "
      "available 0 bytes\n"
      "[time] Error: damaged core file: code object table: file offset 0XB50, wanted 128 "
      "bytes, available 0 bytes\n"
      "[time] Error: damaged core file: environment: file offset 0X17E8, wanted 19 bytes, "
      "available 0 bytes\n"
      "[time] Error: incomplete writes: 4, the first to " +
          out + "/damage: No space left on device\n");
}

}  // namespace
