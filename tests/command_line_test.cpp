// The options of the program, what they default to, and what it says to a wrong one.
#include <gtest/gtest.h>

#include <ostream>
#include <string>

#include "captured_output.h"
#include "command_line_fixture.h"
#include "row_name.h"
#include "run_process.h"
#include "temp_dir.h"

namespace {

constexpr char kHelp[] =
    "Usage: talvex [OPTIONS]\n"
    "  --input, -i         : Input core file. Default file: 'core_0'.\n"
    "  --output, -o        : Output dir(absolute path). Default in current directory\n"
    "  --mem_dir, -m       : Mem dir(absolute path). Default in current directory.\n"
    "  --rocm_dir, -r      : Rocm dir(absolute path). Default in '/opt/rocm'.\n"
    "  --log_level, -l     : Specify the log level (error, info, debug). Default is 'error'.\n"
    "  --dis_all           : Enable disassembe all code object. Default is disable.\n"
    "  --version, -v       : Show version.\n"
    "  --help, -h          : Help information.\n";

void ExpectSilentSuccess(const ProcessResult& result) {
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "");
}

// ---------------------------------------------------------------------------------------------
// Help and version

TEST_F(CommandLineTest, HelpIsPrintedOnStandardOutput) {
  for (const char* option : {"--help", "-h"}) {
    const ProcessResult result = Run({option});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, kHelp);
    EXPECT_EQ(result.err, "");
  }
}

TEST_F(CommandLineTest, VersionIsPrintedOnStandardOutput) {
  for (const char* option : {"--version", "-v"}) {
    const ProcessResult result = Run({option});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "version: 1.1.0\n");
    EXPECT_EQ(result.err, "");
  }
}

TEST_F(CommandLineTest, WordsBehindHelpAndVersionAreNotLookedAt) {
  EXPECT_EQ(Run({"-v", "junk"}).out, "version: 1.1.0\n");
  EXPECT_EQ(Run({"-v", "junk"}).status, 0);
  EXPECT_EQ(Run({"-v", "-h"}).out, "version: 1.1.0\n");
  EXPECT_EQ(Run({"-h", "-v", "-i"}).out, kHelp);
  EXPECT_EQ(Run({"-h", "-v", "-i"}).status, 0);
}

TEST_F(CommandLineTest, WordsBeforeHelpAndVersionAreLookedAt) {
  EXPECT_EQ(Run({"junk", "-v"}).out, "error: Bad argument 'junk'\n");
  EXPECT_EQ(Run({"junk", "-v"}).status, 1);
  EXPECT_EQ(Run({"-i", "core_1", "--dis_all", "-v"}).out, "version: 1.1.0\n");
}

TEST_F(CommandLineTest, HelpAndVersionReadNoCoreFile) {
  WriteCore(SmallCore());
  Run({"-h"});
  Run({"-v"});
  EXPECT_EQ(ListTree(dir_.Path()), Names{"core_0"});
}

// ---------------------------------------------------------------------------------------------
// Bad arguments

struct MissingValue {
  const char* option;
  const char* message;
};

void PrintTo(const MissingValue& row, std::ostream* out) { *out << row.option; }

class MissingValueTest : public CommandLineTest,
                         public testing::WithParamInterface<MissingValue> {};

TEST_P(MissingValueTest, EndsTheRun) {
  WriteCore(SmallCore());
  const ProcessResult result = Run({"--dis_all", GetParam().option});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, GetParam().message);
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(ListTree(dir_.Path()), Names{"core_0"});
}

constexpr MissingValue kMissingValues[] = {
    {"--input", "error: Bad input argument\n"},         {"-i", "error: Bad input argument\n"},
    {"--output", "error: Bad output argument\n"},       {"-o", "error: Bad output argument\n"},
    {"--mem_dir", "error: Bad mem dir argument\n"},     {"-m", "error: Bad mem dir argument\n"},
    {"--rocm_dir", "error: Bad rocm dir argument\n"},   {"-r", "error: Bad rocm dir argument\n"},
    {"--log_level", "error: Bad log level argument\n"}, {"-l", "error: Bad log level argument\n"},
};

INSTANTIATE_TEST_SUITE_P(Options, MissingValueTest, testing::ValuesIn(kMissingValues),
                         [](const testing::TestParamInfo<MissingValue>& row) {
                           const std::string option = row.param.option;
                           return option[1] == '-' ? option.substr(2) : "Short_" + option.substr(1);
                         });

struct BadWord {
  const char* name;
  const char* word;
};

void PrintTo(const BadWord& row, std::ostream* out) { *out << row.word; }

class BadWordTest : public CommandLineTest, public testing::WithParamInterface<BadWord> {};

TEST_P(BadWordTest, EndsTheRun) {
  WriteCore(SmallCore());
  const ProcessResult result = Run({GetParam().word});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, "error: Bad argument '" + std::string(GetParam().word) + "'\n");
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(ListTree(dir_.Path()), Names{"core_0"});
}

constexpr BadWord kBadWords[] = {
    {"AWordAlone", "core_1"},
    {"AValueBehindAnEqualsSign", "--input=core_1"},
    {"NoShortFormOfDisAll", "-d"},
    {"AnotherCase", "--Help"},
    {"AShortOptionOfAnotherCase", "-V"},
    {"APrefixOfAnOption", "--inp"},
    {"AnOptionAndMore", "--versions"},
    {"BundledShortOptions", "-vh"},
    {"OneDashBeforeALongName", "-help"},
    {"TwoDashes", "--"},
    {"OneDash", "-"},
    {"NoText", ""},
    {"TwoBlanks", "  "},
    {"ATab", "\t"},
    {"BlanksAroundAnOption", " -v "},
    {"AFormat", "%s%n%d"},
};

INSTANTIATE_TEST_SUITE_P(Words, BadWordTest, testing::ValuesIn(kBadWords), RowName<BadWord>);

TEST_F(CommandLineTest, TheFirstBadWordIsNamedAlone) {
  EXPECT_EQ(Run({"first", "second"}).out, "error: Bad argument 'first'\n");
}

// ---------------------------------------------------------------------------------------------
// Defaults and settings

TEST_F(CommandLineTest, WithoutArgumentsCore0OfTheWorkingDirectoryIsReportedIntoIt) {
  WriteCore(SmallCore());
  ExpectSilentSuccess(Run({}));
  EXPECT_EQ(ListTree(dir_.Path()), (Names{"core_0", "environment", "fault_info"}));
  EXPECT_EQ(ReadText(dir_.Path("environment")), "HOME=/root\n");
  EXPECT_EQ(ReadText(dir_.Path("fault_info")), "Dumping info due to SIGTERM: kill -15\n\n");
}

TEST_F(CommandLineTest, WithoutArgumentsAndCoreFileTheRunFails) {
  ExpectFailure({}, "[time] Error: Get file handle failed: core_0\n");
  EXPECT_EQ(ListTree(dir_.Path()), Names{});
}

TEST_F(CommandLineTest, TheDefaultDirectories) {
  WriteCore(SmallCore());
  const std::string log = DebugLog({});
  EXPECT_EQ(log.substr(0, log.find("[time] Info: ")),
            "[time] Debug: CoreDump init dump_dir_: " + dir_.Path() +
                "\n"
                "[time] Debug: CoreDump init dump_code_dir_: " +
                dir_.Path() +
                "/codes\n"
                "[time] Debug: CoreDump init dump_queue_dir_: " +
                dir_.Path() +
                "/queues\n"
                "[time] Debug: CoreDump init rocm_dir_: /opt/rocm\n"
                "[time] Debug: CoreDump init mem_dir_: " +
                dir_.Path() +
                "/mems\n"
                "[time] Debug: CoreDump init dis_all_code_object: 0\n");
}

TEST_F(CommandLineTest, InputNamesTheCoreFile) {
  WriteCore(SmallCore(), "core_1");
  ExpectSilentSuccess(Run({"--input", "core_1"}));
  EXPECT_EQ(ListTree(dir_.Path()), (Names{"core_1", "environment", "fault_info"}));
}

TEST_F(CommandLineTest, InputHasAShortForm) {
  WriteCore(SmallCore(), "core_1");
  ExpectSilentSuccess(Run({"-i", dir_.Path("core_1")}));
  EXPECT_EQ(ListTree(dir_.Path()), (Names{"core_1", "environment", "fault_info"}));
}

TEST_F(CommandLineTest, OutputNamesTheTreeAndMakesIt) {
  WriteCore(SmallCore());
  ExpectSilentSuccess(Run({"--output", dir_.Path("a/b")}));
  EXPECT_EQ(ListTree(dir_.Path()),
            (Names{"a/", "a/b/", "a/b/environment", "a/b/fault_info", "core_0"}));
}

TEST_F(CommandLineTest, OutputHasAShortForm) {
  WriteCore(SmallCore());
  ExpectSilentSuccess(Run({"-o", dir_.Path("out")}));
  EXPECT_EQ(ListTree(dir_.Path()), (Names{"core_0", "out/", "out/environment", "out/fault_info"}));
}

TEST_F(CommandLineTest, MemDirNamesTheMemoryDirectory) {
  WriteCore(SmallCore());
  for (const char* option : {"--mem_dir", "-m"}) {
    EXPECT_NE(InfoLog({option, "/no/such/dir"})
                  .find("[time] Warning: Can not Open: /no/such/dir/process_mem_info.\n"),
              std::string::npos);
  }
}

// Where the output goes makes no difference to where the memory directory is looked for.
TEST_F(CommandLineTest, WithoutMemDirItIsTheOneInTheWorkingDirectory) {
  WriteCore(SmallCore());
  EXPECT_NE(
      InfoLog({"-o", dir_.Path("out")})
          .find("[time] Warning: Can not Open: " + dir_.Path("mems/process_mem_info") + ".\n"),
      std::string::npos);
}

TEST_F(CommandLineTest, RocmDirNamesTheInstallation) {
  WriteCore(SmallCore());
  for (const char* option : {"--rocm_dir", "-r"}) {
    EXPECT_NE(DebugLog({option, "/usr/lib/rocm"})
                  .find("[time] Debug: CoreDump init rocm_dir_: /usr/lib/rocm\n"),
              std::string::npos);
  }
}

TEST_F(CommandLineTest, DisAllIsASwitch) {
  WriteCore(SmallCore());
  EXPECT_NE(DebugLog({"--dis_all"}).find("[time] Debug: CoreDump init dis_all_code_object: 1\n"),
            std::string::npos);
}

TEST_F(CommandLineTest, DisAllTwiceIsHarmless) {
  WriteCore(SmallCore());
  EXPECT_NE(DebugLog({"--dis_all", "--dis_all"})
                .find("[time] Debug: CoreDump init dis_all_code_object: 1\n"),
            std::string::npos);
}

TEST_F(CommandLineTest, LogLevelHasALongForm) {
  WriteCore(SmallCore());
  EXPECT_NE(Run({"--log_level", "info"}).out.find("Info: CoreDump end!\n"), std::string::npos);
}

TEST_F(CommandLineTest, AnUnknownLogLevelKeepsTheDefaultInSilence) {
  WriteCore(SmallCore());
  for (const char* level : {"warning", "none", "INFO", ""}) {
    ExpectSilentSuccess(Run({"-l", level}));
  }
}

TEST_F(CommandLineTest, TheLogLevelErrorIsTheDefault) {
  WriteCore(SmallCore());
  ExpectSilentSuccess(Run({"-l", "error"}));
}

TEST_F(CommandLineTest, ALaterOptionReplacesAnEarlierOne) {
  WriteCore(SmallCore(), "core_1");
  ExpectSilentSuccess(Run({"-i", "missing", "-l", "debug", "-o", dir_.Path("first"), "--input",
                           "core_1", "--output", dir_.Path("second"), "-l", "error"}));
  EXPECT_EQ(ListTree(dir_.Path()),
            (Names{"core_1", "second/", "second/environment", "second/fault_info"}));
}

TEST_F(CommandLineTest, OptionsStandInAnyOrder) {
  WriteCore(SmallCore(), "core_1");
  ExpectSilentSuccess(Run({"-l", "error", "-r", "/opt/rocm", "--dis_all", "-m", "/none", "-o",
                           dir_.Path("out"), "-i", "core_1"}));
  EXPECT_EQ(ListTree(dir_.Path()), (Names{"core_1", "out/", "out/environment", "out/fault_info"}));
}

TEST_F(CommandLineTest, ABlankAloneIsSkipped) {
  WriteCore(SmallCore());
  ExpectSilentSuccess(Run({" ", "-l", "error", " ", " "}));
  EXPECT_EQ(ListTree(dir_.Path()), (Names{"core_0", "environment", "fault_info"}));
}

TEST_F(CommandLineTest, ABlankCanBeAValue) {
  ExpectFailure({"-i", " "}, "[time] Error: Get file handle failed:  \n");
}

TEST_F(CommandLineTest, AnOptionCanBeAValue) {
  ExpectFailure({"-i", "-o"}, "[time] Error: Get file handle failed: -o\n");
}

TEST_F(CommandLineTest, AnEmptyOutputIsNotTheDefault) {
  WriteCore(SmallCore());
  const ProcessResult result = Run({"-o", ""});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(WithoutTimes(result.err), "[time] Error: dump reason info failed\n");
  EXPECT_EQ(ListTree(dir_.Path()), Names{"core_0"});
}

}  // namespace
