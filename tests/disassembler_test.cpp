#include "core_dump_info/disassembler.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "captured_output.h"
#include "same_text.h"
#include "stand_in_tool.h"
#include "temp_dir.h"
#include "utils.h"

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
  std::string Unavailable() const {
    return "Code Object:\n" + codes_ +
           "/code_object_0\n"
           "\n"
           "(Disassembly unavailable - is amdgcn-capable llvm-objdump available ?)\n"
           "\n";
  }

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

INSTANTIATE_TEST_SUITE_P(Offsets, WindowTest, testing::ValuesIn(kWindowRows),
                         [](const auto& row) { return std::string(row.param.name); });

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

// ---------------------------------------------------------------------------------------------
// The real tool and real code objects, compiled for gfx906 with debug information.

class RealToolTest : public testing::Test {
 protected:
  RealToolTest() : rocm_(dir_.Path("rocm")) { rocm_.InstallLink(TALVEX_LLVM_OBJDUMP); }

  std::string Text(const std::string& code_object_name, int64_t dis_offset = -1,
                   const std::string& codes = TALVEX_KERNELS_DIR) const {
    std::string text;
    EXPECT_TRUE(
        DisCodeObject("gpu-gfx906", code_object_name, dis_offset, text, rocm_.Path(), codes));
    return text;
  }

  TempDir dir_;
  StandInRocm rocm_;
};

struct KernelRow {
  const char* name;
  const char* code_object;
  const char* symbol;
  const char* source_line;
};

void PrintTo(const KernelRow& row, std::ostream* out) { *out << row.name; }

class RealListingTest : public RealToolTest, public testing::WithParamInterface<KernelRow> {};

TEST_P(RealListingTest, ShowsTheKernelAndItsSource) {
  const std::string listing = Text(GetParam().code_object);
  EXPECT_EQ(listing.find("Code Object:\n"), 0u);
  EXPECT_NE(listing.find(GetParam().symbol), std::string::npos) << listing;
  EXPECT_NE(listing.find(GetParam().source_line), std::string::npos) << listing;
  EXPECT_NE(listing.find("s_endpgm"), std::string::npos) << listing;
}

constexpr KernelRow kKernelRows[] = {
    {"Copy", "copy.co", "<vector_copy>:\n", "target[i] = source[i];"},
    {"Saxpy", "saxpy.co", "<saxpy>:\n", "y[i] = a * x[i] + y[i];"},
    {"ReduceSum", "reduction.co", "<reduce_sum>:\n", "partial[item] += partial[item + step];"},
    {"ReduceSquares", "reduction.co", "<reduce_squares>:\n", "partial[item] = value * value;"},
    {"Matmul", "matmul.co", "<matmul>:\n", "sum += tile_a[y][k] * tile_b[k][x];"},
    {"Histogram", "histogram.co", "<histogram>:\n", "uint bin = values[i] / values_per_bin;"},
};

INSTANTIATE_TEST_SUITE_P(Kernels, RealListingTest, testing::ValuesIn(kKernelRows),
                         [](const auto& row) { return std::string(row.param.name); });

// The address of the first instruction of that name, from the list beside the code object.
int64_t AddressOf(const std::string& mnemonic, const std::string& list) {
  std::istringstream lines(ReadText(list));
  std::string address;
  for (std::string name; lines >> address >> name;) {
    if (name == mnemonic) {
      return std::stoll(address, nullptr, 16);
    }
  }
  ADD_FAILURE() << "no " << mnemonic << " in " << list;
  return 0;
}

// The addresses of the instructions of a listing, which stand in comments behind them.
std::vector<int64_t> Addresses(const std::string& listing) {
  static const std::regex kAddress(R"(// ([0-9A-F]{12}):)");
  std::vector<int64_t> addresses;
  for (std::sregex_iterator i(listing.begin(), listing.end(), kAddress), end; i != end; ++i) {
    addresses.push_back(std::stoll((*i)[1], nullptr, 16));
  }
  return addresses;
}

TEST_F(RealToolTest, AWindowShowsTheInstructionAndItsSource) {
  const int64_t pc = AddressOf("global_store_dword", TALVEX_KERNELS_DIR "/copy.pcs");
  const std::string window = Text("copy.co", pc);
  EXPECT_NE(window.find("target[i] = source[i];"), std::string::npos) << window;
  const std::regex instruction(
      StrFormat("\tglobal_store_dword [^\n]*// %012lX:", static_cast<uint64_t>(pc)));
  EXPECT_TRUE(std::regex_search(window, instruction)) << window;
  const std::string title = StrFormat("\nPC offset: 0X%lX\n\n", static_cast<uint64_t>(pc));
  ASSERT_GT(window.size(), title.size());
  EXPECT_EQ(window.substr(window.size() - title.size()), title);
}

TEST_F(RealToolTest, AWindowShowsNothingBeyondIt) {
  const int64_t pc = AddressOf("global_store_dword", TALVEX_KERNELS_DIR "/copy.pcs");
  const std::vector<int64_t> addresses = Addresses(Text("copy.co", pc));
  EXPECT_FALSE(addresses.empty());
  for (const int64_t address : addresses) {
    EXPECT_GE(address, pc - 0x20);
    EXPECT_LT(address, pc + 0x20);
  }
}

TEST_F(RealToolTest, AFileThatIsNoCodeObject) {
  WriteText(dir_.Path("code_object_0"), "no ELF image");
  EXPECT_EQ(Text("code_object_0", -1, dir_.Path()),
            "Code Object:\n" + dir_.Path("code_object_0") +
                "\n\n(Disassembly unavailable - is amdgcn-capable llvm-objdump available ?)\n\n");
}

// The tool warns under the name that it was called by. A source that is not there makes it warn.
TEST_F(RealToolTest, IsCalledByItsName) {
  std::string elf = ReadText(TALVEX_KERNELS_DIR "/copy.co");
  const std::string source = "copy.cl";
  size_t places = 0;
  for (size_t at = elf.find(source); at != std::string::npos; at = elf.find(source, at)) {
    elf.replace(at, source.size(), "gone.cl");
    ++places;
  }
  ASSERT_GT(places, 0u);
  WriteText(dir_.Path("code_object_0"), elf);
  const std::string listing = Text("code_object_0", -1, dir_.Path());
  EXPECT_NE(listing.find("llvm-objdump: warning: "), std::string::npos) << listing;
  EXPECT_NE(listing.find("s_endpgm"), std::string::npos) << listing;
}

}  // namespace
