#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include "captured_output.h"
#include "core_file_writer.h"
#include "run_process.h"
#include "temp_dir.h"

namespace {

namespace fs = std::filesystem;

using Names = std::vector<std::string>;
using Words = std::vector<std::string>;

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

// A core file of a signal dump without agents, queues and code objects.
sample::CoreFile SmallCore() {
  sample::CoreFile file;
  file.reason.reason = 2;
  file.reason.sig = 15;
  file.environment = "HOME=/root\n";
  return file;
}

// A core file of a VM fault with one agent, an AQL queue, an SDMA queue and a code object.
sample::CoreFile WholeCore() {
  sample::CoreFile file;
  file.reason.reason = 1;
  file.reason.agent_name = "gfx-node";
  sample::Agent agent;
  agent.name = "gfx-node";
  agent.gpu_id = 100;
  agent.node_id = 1;
  agent.chip_id = 0x5001;
  agent.handle = 0x10;
  file.agents = {agent};
  sample::Queue aql;
  aql.queue_id = 7;
  aql.gpu_id = 100;
  aql.queue_type = 2;
  aql.ring = std::string(64, '\0');
  aql.header_backup = {0};
  aql.context = sample::ContextAreaBytes({});
  sample::Queue sdma;
  sdma.queue_id = 8;
  sdma.gpu_id = 100;
  sdma.queue_type = 1;
  sdma.ring = std::string(4, '\0');
  file.queues = {aql, sdma};
  sample::CodeObject code_object;
  code_object.agent = 0x10;
  code_object.elf = "elf";
  file.code_objects = {code_object};
  return file;
}

// Runs the program in a fresh directory.
class CommandLineTest : public testing::Test {
 protected:
  ProcessResult Run(const Words& arguments, const Words& environment = {}) {
    return RunProcess(TALVEX_BINARY, arguments,
                      {.working_directory = dir_.Path(), .environment = environment});
  }

  // A run that ends with status 255 and `log` on standard error. It leaves its analyser to the
  // system, on purpose, so a leak checker in the program must not count that.
  void ExpectFailure(const Words& arguments, const std::string& log) {
    const ProcessResult result = Run(arguments, {"ASAN_OPTIONS=detect_leaks=0"});
    EXPECT_EQ(result.status, 255);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(WithoutTimes(result.err), log);
  }

  void WriteCore(const sample::CoreFile& file, const std::string& name = "core_0") {
    ASSERT_TRUE(sample::WriteCoreFile(file, dir_.Path(name)));
  }

  // What is printed with the log level "info", time stamps as "[time]".
  std::string InfoLog(Words arguments) {
    arguments.insert(arguments.end(), {"-l", "info"});
    return WithoutTimes(Run(arguments).out);
  }

  std::string DebugLog(Words arguments) {
    arguments.insert(arguments.end(), {"-l", "debug"});
    return WithoutTimes(Run(arguments).out);
  }

  TempDir dir_;
};

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

INSTANTIATE_TEST_SUITE_P(Words, BadWordTest, testing::ValuesIn(kBadWords),
                         [](const testing::TestParamInfo<BadWord>& row) {
                           return std::string(row.param.name);
                         });

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

// ---------------------------------------------------------------------------------------------
// Log lines of whole runs

TEST_F(CommandLineTest, TheInfoLinesOfASmallRun) {
  WriteCore(SmallCore());
  const ProcessResult result = Run({"-l", "info"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(WithoutTimes(result.out),
            "[time] Info: Current core dump version is v1.\n"
            "[time] Info: CoreDump init agent.\n"
            "[time] Info: CoreDump init queue.\n"
            "[time] Info: CoreDump init code object.\n"
            "[time] Info: CoreDump init process mem.\n"
            "[time] Warning: Can not Open: " +
                dir_.Path("mems/process_mem_info") +
                ".\n"
                "[time] Warning: [init] init process mem info failed\n"
                "[time] Info: CoreDump dump reason info.\n"
                "[time] Info: CoreDump dump agent.\n"
                "[time] Info: CoreDump dump queue.\n"
                "[time] Info: CoreDump end!\n");
}

TEST_F(CommandLineTest, TheInfoLinesNameTheFirstFormat) {
  sample::CoreFile file = SmallCore();
  file.format = 0;
  WriteCore(file);
  ASSERT_TRUE(sample::WriteMemoryDirectory({}, dir_.Path("mems")));
  EXPECT_EQ(InfoLog({}),
            "[time] Info: Current core dump version is v0.\n"
            "[time] Info: CoreDump init agent.\n"
            "[time] Info: CoreDump init queue.\n"
            "[time] Info: CoreDump init code object.\n"
            "[time] Info: CoreDump init process mem.\n"
            "[time] Info: CoreDump dump reason info.\n"
            "[time] Info: CoreDump dump agent.\n"
            "[time] Info: CoreDump dump queue.\n"
            "[time] Info: CoreDump end!\n");
}

TEST_F(CommandLineTest, TheDebugLinesOfAWholeRun) {
  WriteCore(WholeCore());
  ASSERT_TRUE(sample::WriteMemoryDirectory({}, dir_.Path("mems")));
  ASSERT_TRUE(fs::create_directories(dir_.Path("rocm/llvm/bin")));
  const std::string objdump = dir_.Path("rocm/llvm/bin/llvm-objdump");
  WriteText(objdump, "#!/bin/sh\necho listing\n");
  fs::permissions(objdump, fs::perms::owner_all);
  const ProcessResult result =
      Run({"-l", "debug", "--dis_all", "-o", dir_.Path("out"), "-r", dir_.Path("rocm")});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  // The file lies anywhere in memory.
  const std::string log = std::regex_replace(WithoutTimes(result.out),
                                             std::regex("0x[0-9a-f]+ count"), "[address] count");
  EXPECT_EQ(log,
            "[time] Debug: CoreDump init dump_dir_: " + dir_.Path() +
                "/out\n"
                "[time] Debug: CoreDump init dump_code_dir_: " +
                dir_.Path() +
                "/out/codes\n"
                "[time] Debug: CoreDump init dump_queue_dir_: " +
                dir_.Path() +
                "/out/queues\n"
                "[time] Debug: CoreDump init rocm_dir_: " +
                dir_.Path() +
                "/rocm\n"
                "[time] Debug: CoreDump init mem_dir_: " +
                dir_.Path() +
                "/mems\n"
                "[time] Debug: CoreDump init dis_all_code_object: 1\n"
                "[time] Info: Current core dump version is v1.\n"
                "[time] Debug: Agent: [address] count: 1\n"
                "[time] Debug: Queue: [address] count: 2\n"
                "[time] Debug: CodeObject: [address] count: 1\n"
                "[time] Debug: Dp4x_vgpr_offset: 0x155a000\n"
                "[time] Debug: Core dump version: 0x10100\n"
                "[time] Info: CoreDump init agent.\n"
                "[time] Info: CoreDump init queue.\n"
                "[time] Info: CoreDump init code object.\n"
                "[time] Info: CoreDump init process mem.\n"
                "[time] Info: CoreDump dump reason info.\n"
                "[time] Info: CoreDump dump agent.\n"
                "[time] Debug: DumpAgentWaves gfx version: 0x90006\n"
                "[time] Info: CoreDump dump queue.\n"
                "[time] Debug: dumpAqlPacket queu id: 7\n"
                "[time] Debug: dumpSdmaPacket queu id: 8\n"
                "[time] Debug: CoreDump disassemble thread count: 1\n"
                "[time] Debug: thread_disassemble id: 0\n"
                "[time] Debug: DisCodeObject agent name:gfx-node code object name: code_object_0\n"
                "[time] Info: CoreDump end!\n");
}

TEST_F(CommandLineTest, TheDebugLinesTellWhereTheTablesLieInMemory) {
  const sample::CoreFile file = WholeCore();
  const sample::Placement placement = sample::Place(file);
  WriteCore(file);
  const std::string log = DebugLog({"-o", dir_.Path("out")});
  std::smatch address;
  ASSERT_TRUE(std::regex_search(log, address,
                                std::regex("Agent: 0x([0-9a-f]+) count: 1\n"
                                           ".*Queue: 0x([0-9a-f]+) count: 2\n"
                                           ".*CodeObject: 0x([0-9a-f]+) count: 1\n")));
  const uint64_t base = std::stoull(address[1], nullptr, 16) - placement.agents.at(0);
  EXPECT_EQ(base % 4096, 0u);
  EXPECT_EQ(std::stoull(address[2], nullptr, 16), base + placement.queues.at(0));
  EXPECT_EQ(std::stoull(address[3], nullptr, 16), base + placement.code_objects.at(0));
}

TEST_F(CommandLineTest, TheDebugLinesGiveTheConstantsOfTheFirstFormat) {
  sample::CoreFile file = SmallCore();
  file.format = 0;
  WriteCore(file);
  EXPECT_NE(DebugLog({}).find("[time] Debug: Dp4x_vgpr_offset: 0x1545000\n"
                              "[time] Debug: Core dump version: 0x0\n"),
            std::string::npos);
}

// ---------------------------------------------------------------------------------------------
// Failures

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
  ExpectFailure({}, "[time] Error: 1 incomplete writes, the first to " + dir_.Path("environment") +
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
