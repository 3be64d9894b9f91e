// The disassembler with stand-ins for its tool: arguments, output, failures, what is missing.
#include "core_dump_info/disassembler.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <ostream>
#include <string>
#include <string_view>

#include "captured_output.h"
#include "row_name.h"
#include "same_text.h"
#include "stand_in_tool.h"
#include "temp_dir.h"

namespace {

namespace fs = std::filesystem;

constexpr char kPrintArguments[] = "for argument in \"$@\"; do echo \"[$argument]\"; done\n";

class DisassemblerTest : public testing::Test {
 protected:
  DisassemblerTest() : rocm_(dir_.Path("rocm")), codes_(dir_.Path("codes")) {
    fs::create_directory(codes_);
    WriteText(codes_ + "/code_object_0", "elf");
  }

  bool Run(std::string& text, int64_t dis_offset = -1,
           const std::string& agent_name = "gpu-gfx906") const {
    return DisCodeObject(agent_name, "code_object_0", dis_offset, text, rocm_.Path(), codes_);
  }

  std::string Text(int64_t dis_offset = -1, const std::string& agent_name = "gpu-gfx906") const {
    std::string text = "what was there before is replaced";
    EXPECT_TRUE(Run(text, dis_offset, agent_name));
    return text;
  }

  // What is reported when the tool fails.
  std::string Unavailable() const { return DisassemblyUnavailable(codes_ + "/code_object_0"); }

  TempDir dir_;
  StandInRocm rocm_;
  std::string codes_;
};

// ---------------------------------------------------------------------------------------------
// Arguments

TEST_F(DisassemblerTest, ArgumentsOfAWholeObject) {
  rocm_.InstallScript(kPrintArguments);
  EXPECT_EQ(Text(),
            "Code Object:\n"
            "[--triple=amdgcn-amd-amdhsa]\n"
            "[--mcpu=gfx906]\n"
            "[--disassemble]\n"
            "[--source]\n"
            "[--line-numbers]\n"
            "[" +
                codes_ + "/code_object_0]\n");
}

TEST_F(DisassemblerTest, ArgumentsOfAWindow) {
  rocm_.InstallScript(kPrintArguments);
  EXPECT_EQ(Text(0x1ABC),
            "Code Object:\n"
            "[--triple=amdgcn-amd-amdhsa]\n"
            "[--mcpu=gfx906]\n"
            "[--disassemble]\n"
            "[--source]\n"
            "[--line-numbers]\n"
            "[--start-address=0X1A9C]\n"
            "[--stop-address=0X1ADC]\n"
            "[" +
                codes_ +
                "/code_object_0]\n"
                "\n"
                "PC offset: 0X1ABC\n"
                "\n");
}

struct WindowRow {
  const char* name;
  int64_t dis_offset;
  const char* options;
  const char* title;
};

void PrintTo(const WindowRow& row, std::ostream* out) { *out << row.name; }

class WindowTest : public DisassemblerTest, public testing::WithParamInterface<WindowRow> {};

TEST_P(WindowTest, IsThirtyTwoBytesOnEitherSide) {
  rocm_.InstallScript("echo \"$6 $7\"\n");
  EXPECT_EQ(Text(GetParam().dis_offset), std::string("Code Object:\n") + GetParam().options +
                                             "\n\n" + GetParam().title + "\n\n");
}

constexpr WindowRow kWindowRows[] = {
    {"AtTheStart", 0, "--start-address=0XFFFFFFFFFFFFFFE0 --stop-address=0X20", "PC offset: 0X0"},
    {"NearTheStart", 0x10, "--start-address=0XFFFFFFFFFFFFFFF0 --stop-address=0X30",
     "PC offset: 0X10"},
    {"FirstWholeWindow", 0x20, "--start-address=0X0 --stop-address=0X40", "PC offset: 0X20"},
    {"BeforeTheStart", -2, "--start-address=0XFFFFFFFFFFFFFFDE --stop-address=0X1E",
     "PC offset: 0XFFFFFFFFFFFFFFFE"},
    {"Far", 0x123456789ABCDEF0,
     "--start-address=0X123456789ABCDED0 --stop-address=0X123456789ABCDF10",
     "PC offset: 0X123456789ABCDEF0"},
};

INSTANTIATE_TEST_SUITE_P(Offsets, WindowTest, testing::ValuesIn(kWindowRows), RowName<WindowRow>);

struct ProcessorRow {
  const char* agent_name;
  const char* option;
};

void PrintTo(const ProcessorRow& row, std::ostream* out) { *out << '"' << row.agent_name << '"'; }

class ProcessorTest : public DisassemblerTest, public testing::WithParamInterface<ProcessorRow> {};

TEST_P(ProcessorTest, ComesFromTheAgentName) {
  rocm_.InstallScript("echo \"$2\"\n");
  EXPECT_EQ(Text(-1, GetParam().agent_name),
            std::string("Code Object:\n") + GetParam().option + "\n");
}

constexpr ProcessorRow kProcessorRows[] = {
    // From index 7.
    {"gpu-gfx906", "--mcpu=gfx906"},
    {"1234567926", "--mcpu=gfx926"},
    {"gpu-gfx 906", "--mcpu=gfx906"},
    {"gpu-gfx906 of eight", "--mcpu=gfx906"},
    {"gpu-gfx0906", "--mcpu=gfx906"},
    {"gpu-gfx90a", "--mcpu=gfx90"},
    {"gpu-gfxa06", "--mcpu=gfx0"},
    {"orven-gfx906", "--mcpu=gfx0"},
    // Negative: widened with its sign, shown unsigned.
    {"gpu-gfx-906", "--mcpu=gfx18446744073709550710"},
    // Shorter than the index.
    {"", "--mcpu=gfx0"},
    {"906", "--mcpu=gfx0"},
    {"gpu-906", "--mcpu=gfx0"},
    {"gpu-gf9", "--mcpu=gfx0"},
    {"gpu-gfx9", "--mcpu=gfx9"},
    // From index 9 with ORVEN anywhere in the name.
    {"ORVEN-gfx906", "--mcpu=gfx906"},
    {"gpu-gfx906 ORVEN", "--mcpu=gfx6"},
    {"gpu gfx, 926 ORVEN", "--mcpu=gfx926"},
    {"ORVEN-90", "--mcpu=gfx0"},
    {"ORVEN-906", "--mcpu=gfx0"},
    {"ORVEN", "--mcpu=gfx0"},
};

INSTANTIATE_TEST_SUITE_P(Names, ProcessorTest, testing::ValuesIn(kProcessorRows));

// ---------------------------------------------------------------------------------------------
// Output

TEST_F(DisassemblerTest, BothStreamsAreTakenAsTheyCome) {
  rocm_.InstallScript(
      "echo first\n"
      "echo second >&2\n"
      "echo third\n"
      "echo fourth >&2\n");
  EXPECT_EQ(Text(), "Code Object:\nfirst\nsecond\nthird\nfourth\n");
}

TEST_F(DisassemblerTest, OutputStaysAsItStands) {
  rocm_.InstallScript("printf 'no line end, a \\000 and \\377'\n");
  EXPECT_EQ(Text(0x40), "Code Object:\nno line end, a " + std::string(1, '\0') +
                            " and \xFF\nPC offset: 0X40\n\n");
}

TEST_F(DisassemblerTest, NoOutput) {
  rocm_.InstallScript("exit 0\n");
  EXPECT_EQ(Text(), "Code Object:\n");
  EXPECT_EQ(Text(0x40), "Code Object:\n\nPC offset: 0X40\n\n");
}

// Far more than the 64 KiB that a pipe holds.
TEST_F(DisassemblerTest, MoreThanAPipeHolds) {
  rocm_.InstallScript("awk 'BEGIN { for (i = 100000; i < 200000; ++i) print i }'\n");
  std::string expected = "Code Object:\n";
  for (int i = 100000; i < 200000; ++i) {
    expected += std::to_string(i) + "\n";
  }
  EXPECT_TRUE(SameText(Text(), expected));
}

// ---------------------------------------------------------------------------------------------
// A tool that fails

TEST_F(DisassemblerTest, AnotherExitStatusDiscardsTheOutput) {
  rocm_.InstallScript("echo something\nexit 3\n");
  EXPECT_EQ(Text(), Unavailable());
  EXPECT_EQ(Text(0x40), Unavailable());
}

TEST_F(DisassemblerTest, AnExitStatusBehindTheEndOfTheOutputCounts) {
  rocm_.InstallScript("echo something\nexec >&- 2>&-\nexit 1\n");
  EXPECT_EQ(Text(), Unavailable());
}

TEST_F(DisassemblerTest, ASignalDiscardsTheOutput) {
  rocm_.InstallScript("echo something\nkill -9 $$\n");
  EXPECT_EQ(Text(), Unavailable());
}

TEST_F(DisassemblerTest, AFailureBehindMuchOutputDiscardsIt) {
  rocm_.InstallScript("awk 'BEGIN { for (i = 0; i < 200000; ++i) print i }'\nexit 3\n");
  EXPECT_EQ(Text(), Unavailable());
}

TEST_F(DisassemblerTest, AFileThatIsNoProgram) {
  rocm_.InstallFile("#!/no/such/interpreter\n");
  EXPECT_EQ(Text(), Unavailable());
}

TEST_F(DisassemblerTest, AFileThatIsNotExecutable) {
  rocm_.InstallScript("echo something\n");
  fs::permissions(rocm_.ToolPath(), fs::perms::owner_read | fs::perms::owner_write);
  EXPECT_EQ(Text(), Unavailable());
}

TEST_F(DisassemblerTest, ADirectoryInPlaceOfTheTool) {
  fs::create_directories(rocm_.ToolPath());
  EXPECT_EQ(Text(), Unavailable());
}

// The shell takes what the system does not know how to run.
TEST_F(DisassemblerTest, AScriptWithoutAnInterpreterLine) {
  rocm_.InstallFile(kPrintArguments);
  EXPECT_EQ(Text(),
            "Code Object:\n"
            "[--triple=amdgcn-amd-amdhsa]\n"
            "[--mcpu=gfx906]\n"
            "[--disassemble]\n"
            "[--source]\n"
            "[--line-numbers]\n"
            "[" +
                codes_ + "/code_object_0]\n");
}

// ---------------------------------------------------------------------------------------------
// What is missing

class MissingFileTest : public DisassemblerTest {
 protected:
  // What a call that must fail logs.
  Output Failure(const std::string& level = "error") {
    const ScopedLogLevel scope(level);
    OutputCapture capture;
    std::string text = "untouched";
    EXPECT_FALSE(Run(text));
    EXPECT_FALSE(Run(text, 0x40));
    const Output output = capture.Stop();
    EXPECT_EQ(text, "untouched");
    return {WithoutTimes(output.out), WithoutTimes(output.err)};
  }
};

// The messages have no line end.
TEST_F(MissingFileTest, Tool) {
  const std::string message = "[time] Error: Can't find llvm-objdump in path: " + rocm_.ToolPath();
  const Output output = Failure("debug");
  EXPECT_EQ(output.err, message + message);
  EXPECT_EQ(output.out, "");
}

TEST_F(MissingFileTest, CodeObject) {
  rocm_.InstallScript("echo something\n");
  fs::remove(codes_ + "/code_object_0");
  const std::string message = "[time] Error: Can't find file: " + codes_ + "/code_object_0";
  const Output output = Failure();
  EXPECT_EQ(output.err, message + message);
  EXPECT_EQ(output.out, "");
}

TEST_F(MissingFileTest, TheToolIsLookedForFirst) {
  fs::remove(codes_ + "/code_object_0");
  EXPECT_EQ(Failure().err.find("[time] Error: Can't find llvm-objdump in path: "), 0u);
}

TEST_F(MissingFileTest, TheDebugLineStandsBetweenTheTwoChecks) {
  rocm_.InstallScript("echo something\n");
  fs::remove(codes_ + "/code_object_0");
  const std::string line =
      "[time] Debug: DisCodeObject agent name:gpu-gfx906 code object name: code_object_0\n";
  EXPECT_EQ(Failure("debug").out, line + line);
}

TEST_F(MissingFileTest, PathsAreNoFormats) {
  rocm_ = StandInRocm(dir_.Path("100%s %n"));
  const std::string message = "[time] Error: Can't find llvm-objdump in path: " +
                              dir_.Path("100%s %n/llvm/bin/llvm-objdump");
  EXPECT_EQ(Failure().err, message + message);
}

TEST_F(DisassemblerTest, PathsMayHoldBlanks) {
  rocm_ = StandInRocm(dir_.Path("ro cm"));
  rocm_.InstallScript("for last; do :; done; cat \"$last\"\n");
  fs::rename(codes_, dir_.Path("co des"));
  codes_ = dir_.Path("co des");
  EXPECT_EQ(Text(), "Code Object:\nelf");
}

// Keeps what it is told, also what it is told to drop.
class RecordingSink : public DisassemblySink {
 public:
  void Restart() override { history_ += "[restart]"; }
  void Add(std::string_view piece) override { history_ += piece; }
  const std::string& history() const { return history_; }

 private:
  std::string history_;
};

TEST_F(DisassemblerTest, ASinkIsLeftAloneWhenTheToolIsMissing) {
  RecordingSink sink;
  const OutputCapture capture;
  EXPECT_FALSE(Disassemble({"gpu-gfx906", "code_object_0", -1, rocm_.Path(), codes_}, sink));
  EXPECT_EQ(sink.history(), "");
}

TEST_F(DisassemblerTest, ASinkIsToldToDropTheOutputOfAToolThatFailed) {
  rocm_.InstallScript("echo something\nexit 3\n");
  RecordingSink sink;
  EXPECT_TRUE(Disassemble({"gpu-gfx906", "code_object_0", -1, rocm_.Path(), codes_}, sink));
  EXPECT_EQ(sink.history(), "[restart]Code Object:\nsomething\n[restart]" + Unavailable());
}

}  // namespace
