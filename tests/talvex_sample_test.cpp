// talvex-sample as its user meets it: options, messages, exit statuses, and what lands on disk.
#include <gtest/gtest.h>

#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include "raw_bytes.h"
#include "run_process.h"
#include "temp_dir.h"

namespace {

ProcessResult RunSample(const std::vector<std::string>& arguments) {
  return RunProcess(TALVEX_SAMPLE_BINARY, arguments);
}

void ExpectFailure(const std::vector<std::string>& arguments, const std::string& message) {
  const ProcessResult result = RunSample(arguments);
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "talvex-sample: " + message + "\n");
}

// The core file that `options` give.
std::string CoreFile(std::vector<std::string> options) {
  const TempDir dir;
  options.insert(options.end(), {"--output", dir.Path()});
  const ProcessResult result = RunSample(options);
  EXPECT_EQ(result.status, 0) << result.err;
  return ReadText(dir.Path("core_0"));
}

// ---------------------------------------------------------------------------------------------
// Help and messages

TEST(TalvexSampleHelp, NamesEveryOption) {
  const ProcessResult result = RunSample({"--help"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.out.substr(0, 47), "Usage: talvex-sample --output DIR [OPTION]...\n\n");
  for (const char* option :
       {"\n  --output DIR ", "\n  --reason REASON ", "\n  --format N ", "\n  --agents N ",
        "\n  --queues N ", "\n  --waves N ", "\n  --vgprs N ", "\n  --code-object FILE ",
        "\n  --seed N ", "\n  --help "}) {
    EXPECT_NE(result.out.find(option), std::string::npos) << option;
  }
}

TEST(TalvexSampleHelp, WinsOverOptionsBeforeIt) {
  const TempDir dir;
  const ProcessResult result = RunSample({"--output", dir.Path("out"), "--help"});
  EXPECT_EQ(result.status, 0);
  EXPECT_FALSE(std::filesystem::exists(dir.Path("out")));
}

TEST(TalvexSampleErrors, OutputIsMissing) {
  ExpectFailure({}, "--output DIR is missing; --help lists all options");
}

TEST(TalvexSampleErrors, UnknownOptionIsNamed) {
  ExpectFailure({"--output", "/nowhere", "--colour", "red"},
                "unknown option '--colour'; --help lists them all");
}

TEST(TalvexSampleErrors, WordThatIsNoOptionIsNamed) {
  ExpectFailure({"core_0"}, "unknown option 'core_0'; --help lists them all");
}

TEST(TalvexSampleErrors, ValueIsMissing) {
  ExpectFailure({"--output", "/nowhere", "--seed"}, "--seed needs a value; --help tells which");
}

TEST(TalvexSampleErrors, UnknownReason) {
  ExpectFailure({"--reason", "vmfault"},
                "--reason: found 'vmfault', expected queue-error, vm-fault or signal");
}

struct BadNumber {
  const char* name;
  const char* option;
  const char* value;
  const char* range;
};

// Names the row in test listings, where its bytes would stand otherwise.
void PrintTo(const BadNumber& bad, std::ostream* out) { *out << bad.name; }

class TalvexSampleNumbers : public testing::TestWithParam<BadNumber> {};

TEST_P(TalvexSampleNumbers, OutOfRangeTellsTheRange) {
  const BadNumber& bad = GetParam();
  ExpectFailure({bad.option, bad.value}, std::string(bad.option) + ": found '" + bad.value +
                                             "', expected a whole number from " + bad.range);
}

INSTANTIATE_TEST_SUITE_P(All, TalvexSampleNumbers,
                         testing::Values(BadNumber{"FormatHigh", "--format", "2", "0 to 1"},
                                         BadNumber{"AgentsLow", "--agents", "0", "1 to 64"},
                                         BadNumber{"AgentsHigh", "--agents", "65", "1 to 64"},
                                         BadNumber{"QueuesHigh", "--queues", "4097", "0 to 4096"},
                                         BadNumber{"WavesHigh", "--waves", "10000001",
                                                   "0 to 10000000"},
                                         BadNumber{"VgprsLow", "--vgprs", "0", "1 to 256"},
                                         BadNumber{"VgprsHigh", "--vgprs", "257", "1 to 256"},
                                         BadNumber{"SeedHigh", "--seed", "18446744073709551616",
                                                   "0 to 18446744073709551615"},
                                         BadNumber{"Negative", "--queues", "-1", "0 to 4096"},
                                         BadNumber{"Trailing", "--queues", "4k", "0 to 4096"},
                                         BadNumber{"Hexadecimal", "--queues", "0x4", "0 to 4096"},
                                         BadNumber{"Empty", "--queues", "", "0 to 4096"}),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(TalvexSampleErrors, CodeObjectThatDoesNotExist) {
  const TempDir dir;
  const std::string path = dir.Path("missing.co");
  ExpectFailure({"--output", dir.Path("out"), "--code-object", path},
                path + ": No such file or directory");
  EXPECT_FALSE(std::filesystem::exists(dir.Path("out")));
}

TEST(TalvexSampleErrors, CodeObjectThatIsNoElfImage) {
  const TempDir dir;
  const std::string path = dir.Path("text.co");
  WriteText(path, std::string(100, 'x'));
  ExpectFailure({"--output", dir.Path("out"), "--code-object", path},
                path + ": expected a little-endian ELF64 image at offset 0, found something else");
}

TEST(TalvexSampleErrors, CodeObjectWithoutKernel) {
  const TempDir dir;
  const std::string path = dir.Path("bare.co");
  std::string elf(64, '\0');
  elf.replace(0, 6,
              std::string("\x7F"
                          "ELF"
                          "\x02\x01",
                          6));
  WriteText(path, elf);
  ExpectFailure({"--output", dir.Path("out"), "--code-object", path},
                "found no kernel in the code objects, expected at least one");
}

TEST(TalvexSampleErrors, ProgramWithoutItsKernels) {
  const TempDir dir;
  std::filesystem::create_directory(dir.Path("bin"));
  std::filesystem::copy_file(TALVEX_SAMPLE_BINARY, dir.Path("bin/talvex-sample"));
  const ProcessResult result =
      RunProcess(dir.Path("bin/talvex-sample"), {"--output", dir.Path("out")});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "talvex-sample: found no kernels, neither in " + dir.Path("bin/kernels") +
                            " nor in " + dir.Path("share/talvex/kernels") +
                            "; name code objects with --code-object\n");
}

TEST(TalvexSampleErrors, OutputThatCannotBeMade) {
  ExpectFailure({"--output", "/dev/null/out"}, "cannot make /dev/null/out: Not a directory");
}

TEST(TalvexSampleErrors, CoreFileThatCannotBeWritten) {
  const TempDir dir;
  std::filesystem::create_directory(dir.Path("core_0"));
  ExpectFailure({"--output", dir.Path()},
                "cannot write " + dir.Path("core_0") + ": Is a directory");
}

TEST(TalvexSampleErrors, MemoryDirectoryThatCannotBeWritten) {
  const TempDir dir;
  WriteText(dir.Path("mems"), "in the way");
  ExpectFailure({"--output", dir.Path()}, "cannot write " + dir.Path("mems") + ": Not a directory");
}

// ---------------------------------------------------------------------------------------------
// What it writes

TEST(TalvexSampleOutput, OneLineTellsPathAndSize) {
  const TempDir dir;
  const ProcessResult result = RunSample({"--output", dir.Path("a/b")});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  const auto size = std::filesystem::file_size(dir.Path("a/b/core_0"));
  EXPECT_EQ(result.out, "wrote " + dir.Path("a/b/core_0") + " (" + std::to_string(size) +
                            " bytes) and " + dir.Path("a/b/mems") + "\n");
}

TEST(TalvexSampleOutput, InstalledKernelsAreFound) {
  const TempDir dir;
  std::filesystem::create_directory(dir.Path("bin"));
  std::filesystem::copy_file(TALVEX_SAMPLE_BINARY, dir.Path("bin/talvex-sample"));
  std::filesystem::create_directories(dir.Path("share/talvex"));
  std::filesystem::copy(TALVEX_KERNELS_DIR, dir.Path("share/talvex/kernels"));
  const ProcessResult result =
      RunProcess(dir.Path("bin/talvex-sample"), {"--output", dir.Path("out")});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_TRUE(ReadText(dir.Path("out/core_0")) == CoreFile({}));
}

TEST(TalvexSampleOutput, SameSeedGivesTheSameBytes) {
  const TempDir first;
  const TempDir second;
  for (const TempDir* dir : {&first, &second}) {
    const ProcessResult result =
        RunSample({"--output", dir->Path(), "--agents", "3", "--queues", "7", "--seed", "12345"});
    ASSERT_EQ(result.status, 0) << result.err;
  }
  const std::vector<std::string> files = ListTree(first.Path());
  EXPECT_EQ(files, ListTree(second.Path()));
  EXPECT_EQ(files.size(), 6u);  // core_0, mems/, its index, one snapshot for each of 3 AQL queues
  for (const std::string& file : files) {
    if (!std::filesystem::is_directory(first.Path(file))) {
      EXPECT_TRUE(ReadText(first.Path(file)) == ReadText(second.Path(file))) << file;
    }
  }
}

TEST(TalvexSampleOutput, SeedOneIsTheDefault) {
  EXPECT_TRUE(CoreFile({}) == CoreFile({"--seed", "1"}));
}

TEST(TalvexSampleOutput, OtherSeedsGiveOtherBytes) {
  const std::string first = CoreFile({"--seed", "1"});
  const std::string third = CoreFile({"--seed", "3"});
  EXPECT_EQ(first.size(), third.size());
  EXPECT_FALSE(first == third);
}

TEST(TalvexSampleOutput, DefaultsAreAsTheHelpSays) {
  EXPECT_TRUE(CoreFile({}) == CoreFile({"--reason", "vm-fault", "--format", "1", "--agents", "1",
                                        "--queues", "4", "--waves", "12", "--vgprs", "24"}));
}

// ---------------------------------------------------------------------------------------------
// Sizes

uint64_t ContextSize(const std::string& core, uint64_t queue) {
  return U64At(core, U64At(core, 48) + 144 * queue + 120);
}

TEST(TalvexSampleSize, NothingButTheAgentStaysSmall) {
  const std::string core = CoreFile({"--queues", "0", "--waves", "0"});
  EXPECT_LT(core.size(), 64u * 1024);
}

// Four registers of 64 lanes and 4 bytes in each of the 12 waves.
TEST(TalvexSampleSize, VgprsGrowTheArea) {
  const uint64_t small = ContextSize(CoreFile({"--vgprs", "24"}), 0);
  const uint64_t large = ContextSize(CoreFile({"--vgprs", "28"}), 0);
  EXPECT_EQ(large - small, 12u * 4 * 64 * 4);
}

TEST(TalvexSampleSize, VgprsAreRoundedUpToAWholeUnit) {
  EXPECT_TRUE(CoreFile({"--vgprs", "25"}) == CoreFile({"--vgprs", "28"}));
}

TEST(TalvexSampleSize, EachSavedWaveOfASignalDumpIsARecord) {
  const uint64_t twelve = CoreFile({"--reason", "signal"}).size();
  const uint64_t twenty = CoreFile({"--reason", "signal", "--waves", "20"}).size();
  EXPECT_EQ(twenty - twelve, 8u * 69696);
}

TEST(TalvexSampleSize, ManyWavesAreWritten) {
  const TempDir dir;
  const ProcessResult result =
      RunSample({"--output", dir.Path(), "--waves", "2000", "--vgprs", "128"});
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_GT(std::filesystem::file_size(dir.Path("core_0")), 2000u * 128 * 64 * 4);
}

// A second bank of VGPRs begins 0x155A000 bytes behind the first, 0x1545000 in format 0.
TEST(TalvexSampleSize, SecondBankLiesFarBehindTheWaves) {
  const std::string format1 = CoreFile({"--agents", "2"});
  const std::string format0 = CoreFile({"--agents", "2", "--format", "0"});
  const uint64_t queues0 = U64At(format0, 40);
  EXPECT_GT(ContextSize(format1, 1), 0x155A000u);
  EXPECT_EQ(ContextSize(format1, 1) - U64At(format0, queues0 + 144 + 120), 0x15000u);
}

}  // namespace
