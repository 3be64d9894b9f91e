#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "captured_output.h"
#include "core_dump_info.h"
#include "core_dump_info/disassembler.h"
#include "logger.h"
#include "same_text.h"
#include "stand_in_tool.h"
#include "temp_dir.h"

namespace {

namespace fs = std::filesystem;

using Names = std::vector<std::string>;

// Prints the number of arguments, the processor and the file name of the code object.
constexpr char kPrintJob[] = "for file; do :; done; echo \"$# $2 ${file##*/}\"\n";

// An analyser with one agent and as many code objects as a test adds, each 0x1000 bytes long:
// code_object_0 at 0x7F0000000000, the next at 0x7F0000001000 and so on.
class ListingsTest : public testing::Test {
 protected:
  ListingsTest() : rocm_(dir_.Path("rocm")), codes_(dir_.Path("codes")) {
    analyser_.rocm_dir_ = rocm_.Path();
    analyser_.dump_code_dir_ = codes_;
    fs::create_directory(codes_);
    AddAgent("gpu-gfx906");
  }

  CoreDumpAgent* AddAgent(const std::string& name) {
    auto* agent = new CoreDumpAgent();
    name.copy(agent->name, sizeof(agent->name) - 1);
    return analyser_.agent_lists.emplace_back(agent);
  }

  CodeObjectInfo* AddCodeObject() {
    const size_t index = analyser_.code_object_lists.size();
    auto* code_object = new CodeObjectInfo();
    code_object->addr_loaded = 0x7F0000000000 + 0x1000 * index;
    code_object->size_loaded = 0x1000;
    const std::string name = "code_object_" + std::to_string(index);
    name.copy(code_object->name, sizeof(code_object->name) - 1);
    code_object->AgentInfo = analyser_.agent_lists[0];
    WriteText(codes_ + "/" + name, "elf");
    return analyser_.code_object_lists.emplace_back(code_object);
  }

  // Makes the listings in a process of their own, as a run of the program does: a process keeps its
  // jobs for good. Gives what is logged, time stamps as "[time]".
  Output List(const std::string& level = "error") {
    OutputCapture capture;
    const pid_t child = fork();
    if (child == 0) {
      utils::SetLogLevel(level);
      analyser_.DisAllCodeObject();
      exit(0);
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    const Output output = capture.Stop();
    EXPECT_EQ(status, 0) << output.err;
    return {WithoutTimes(output.out), WithoutTimes(output.err)};
  }

  std::string Listing(size_t index) const {
    return ReadText(codes_ + "/code_object_" + std::to_string(index) + ".asm");
  }

  // What is reported when the tool fails.
  std::string Unavailable(size_t index) const {
    return "Code Object:\n" + codes_ + "/code_object_" + std::to_string(index) +
           "\n\n(Disassembly unavailable - is amdgcn-capable llvm-objdump available ?)\n\n";
  }

  TempDir dir_;
  StandInRocm rocm_;
  const std::string codes_;
  CoreDumpInfo analyser_;
};

// ---------------------------------------------------------------------------------------------
// Which code objects are listed

TEST_F(ListingsTest, WithoutAFaultNothingIsListed) {
  rocm_.InstallScript(kPrintJob);
  AddCodeObject();
  const Output output = List("debug");
  EXPECT_EQ(output.out, "");
  EXPECT_EQ(output.err, "");
  EXPECT_EQ(ListTree(codes_), (Names{"code_object_0"}));
}

TEST_F(ListingsTest, WithoutCodeObjectsNothingIsListed) {
  rocm_.InstallScript(kPrintJob);
  analyser_.dis_all_code_object = true;
  EXPECT_EQ(List("debug").out, "");
  EXPECT_EQ(ListTree(codes_), Names{});
}

TEST_F(ListingsTest, OnlyFaultingCodeObjectsAreListed) {
  rocm_.InstallScript(kPrintJob);
  AddCodeObject();
  analyser_.AddErrorCodeObject(AddCodeObject());
  AddCodeObject();
  List();
  EXPECT_EQ(ListTree(codes_),
            (Names{"code_object_0", "code_object_1", "code_object_1.asm", "code_object_2"}));
  EXPECT_EQ(Listing(1), "Code Object:\n6 --mcpu=gfx906 code_object_1\n");
}

TEST_F(ListingsTest, OnRequestEveryCodeObjectIsListed) {
  rocm_.InstallScript(kPrintJob);
  AddCodeObject();
  analyser_.AddErrorCodeObject(AddCodeObject());
  AddCodeObject();
  analyser_.dis_all_code_object = true;
  List();
  EXPECT_EQ(Listing(0), "Code Object:\n6 --mcpu=gfx906 code_object_0\n");
  EXPECT_EQ(Listing(1), "Code Object:\n6 --mcpu=gfx906 code_object_1\n");
  EXPECT_EQ(Listing(2), "Code Object:\n6 --mcpu=gfx906 code_object_2\n");
}

TEST_F(ListingsTest, EveryCodeObjectIsListedForItsOwnAgent) {
  rocm_.InstallScript(kPrintJob);
  AddCodeObject();
  AddCodeObject()->AgentInfo = AddAgent("ORVEN-gfx926");
  analyser_.dis_all_code_object = true;
  List();
  EXPECT_EQ(Listing(0), "Code Object:\n6 --mcpu=gfx906 code_object_0\n");
  EXPECT_EQ(Listing(1), "Code Object:\n6 --mcpu=gfx926 code_object_1\n");
}

TEST_F(ListingsTest, ACodeObjectWithoutAgentIsListedForProcessor0) {
  rocm_.InstallScript(kPrintJob);
  AddCodeObject()->AgentInfo = nullptr;
  analyser_.dis_all_code_object = true;
  List();
  EXPECT_EQ(Listing(0), "Code Object:\n6 --mcpu=gfx0 code_object_0\n");
}

TEST_F(ListingsTest, AnEarlierListingIsReplaced) {
  rocm_.InstallScript(kPrintJob);
  analyser_.AddErrorCodeObject(AddCodeObject());
  WriteText(codes_ + "/code_object_0.asm", std::string(1000, 'x'));
  List();
  EXPECT_EQ(Listing(0), "Code Object:\n6 --mcpu=gfx906 code_object_0\n");
}

// ---------------------------------------------------------------------------------------------
// What goes wrong

TEST_F(ListingsTest, WithoutAToolListingsAreEmpty) {
  AddCodeObject();
  AddCodeObject();
  analyser_.dis_all_code_object = true;
  const std::string message = "[time] Error: Can't find llvm-objdump in path: " + rocm_.ToolPath();
  EXPECT_EQ(List().err, message + message);
  EXPECT_EQ(ListTree(codes_),
            (Names{"code_object_0", "code_object_0.asm", "code_object_1", "code_object_1.asm"}));
  EXPECT_EQ(Listing(0), "");
  EXPECT_EQ(Listing(1), "");
}

TEST_F(ListingsTest, WithoutItsFileACodeObjectHasAnEmptyListing) {
  rocm_.InstallScript(kPrintJob);
  AddCodeObject();
  AddCodeObject();
  fs::remove(codes_ + "/code_object_0");
  WriteText(codes_ + "/code_object_0.asm", "from an earlier run");
  analyser_.dis_all_code_object = true;
  EXPECT_EQ(List().err, "[time] Error: Can't find file: " + codes_ + "/code_object_0");
  EXPECT_EQ(Listing(0), "");
  EXPECT_EQ(Listing(1), "Code Object:\n6 --mcpu=gfx906 code_object_1\n");
}

TEST_F(ListingsTest, AToolThatFailsIsReportedInTheListing) {
  rocm_.InstallScript("echo something\nexit 3\n");
  analyser_.AddErrorCodeObject(AddCodeObject());
  EXPECT_EQ(List().err, "");
  EXPECT_EQ(Listing(0), Unavailable(0));
}

TEST_F(ListingsTest, AToolThatFailsLateLeavesNothingOfItsOutput) {
  rocm_.InstallScript("awk 'BEGIN { for (i = 0; i < 300000; ++i) print i }'\nexit 3\n");
  analyser_.AddErrorCodeObject(AddCodeObject());
  List();
  EXPECT_EQ(Listing(0), Unavailable(0));
}

TEST_F(ListingsTest, ListingsOfAnyLengthAreWhole) {
  rocm_.InstallScript("awk 'BEGIN { for (i = 100000; i < 300000; ++i) print i }'\n");
  analyser_.AddErrorCodeObject(AddCodeObject());
  List();
  std::string expected = "Code Object:\n";
  for (int i = 100000; i < 300000; ++i) {
    expected += std::to_string(i) + "\n";
  }
  EXPECT_TRUE(SameText(Listing(0), expected));
}

// ---------------------------------------------------------------------------------------------
// Threads

TEST_F(ListingsTest, OneCodeObjectTakesOneThread) {
  rocm_.InstallScript(kPrintJob);
  analyser_.AddErrorCodeObject(AddCodeObject());
  EXPECT_EQ(List("debug").out,
            "[time] Debug: CoreDump disassemble thread count: 1\n"
            "[time] Debug: thread_disassemble id: 0\n"
            "[time] Debug: DisCodeObject agent name:gpu-gfx906 code object name: code_object_0\n");
}

// What `cat /proc/cpuinfo | grep processor | wc -l` counts.
int Processors() {
  std::ifstream cpuinfo("/proc/cpuinfo");
  int count = 0;
  for (std::string line; std::getline(cpuinfo, line);) {
    count += line.find("processor") != std::string::npos ? 1 : 0;
  }
  return std::max(count, 1);
}

Names SortedLines(const std::string& text) {
  Names lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line);
  }
  std::sort(lines.begin(), lines.end());
  return lines;
}

TEST_F(ListingsTest, ManyCodeObjectsTakeAThreadAProcessor) {
  rocm_.InstallScript(kPrintJob);
  analyser_.dis_all_code_object = true;
  const int code_objects = 130;
  const int threads = std::min({Processors(), 128, code_objects});
  Names expected = {"[time] Debug: CoreDump disassemble thread count: " + std::to_string(threads)};
  for (int id = 0; id < threads; ++id) {
    expected.push_back("[time] Debug: thread_disassemble id: " + std::to_string(id));
  }
  for (int i = 0; i < code_objects; ++i) {
    AddCodeObject();
    expected.push_back(
        "[time] Debug: DisCodeObject agent name:gpu-gfx906 code object name: code_object_" +
        std::to_string(i));
  }
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(SortedLines(List("debug").out), expected);
  for (int i = 0; i < code_objects; ++i) {
    EXPECT_EQ(Listing(static_cast<size_t>(i)),
              "Code Object:\n6 --mcpu=gfx906 code_object_" + std::to_string(i) + "\n");
  }
}

// The pipes among the open files that a tool printed.
size_t PipesIn(const std::string& listing) {
  std::set<std::string> pipes;
  std::istringstream stream(listing);
  for (std::string line; std::getline(stream, line);) {
    if (line.rfind("pipe:", 0) == 0) {
      pipes.insert(line);
    }
  }
  return pipes.size();
}

// Two listings at once, the second started while the first runs. The first must end although the
// child of the second goes on, and that child must have no end of the first one's pipe.
TEST_F(ListingsTest, AListingDoesNotWaitForTheChildOfAnother) {
  // The first, code_object_1, ends when the second has begun; the second, code_object_0, prints its
  // open files and ends when the first has been listed.
  rocm_.InstallScript("cd '" + dir_.Path() +
                      "'\n"
                      "wait_for() { while [ ! -e \"$1\" ]; do sleep 0.01; done; }\n"
                      "for file; do :; done\n"
                      "case \"$file\" in\n"
                      "*_1) : > first_runs; wait_for second_runs;;\n"
                      "*_0) for fd in /proc/$$/fd/*; do readlink \"$fd\"; done\n"
                      "     : > second_runs; wait_for first_is_listed;;\n"
                      "esac\n"
                      "echo end\n");
  AddCodeObject();
  AddCodeObject();
  const auto list = [this](const std::string& code_object, std::string& text) {
    EXPECT_TRUE(DisCodeObject("gpu-gfx906", code_object, -1, text, rocm_.Path(), codes_));
  };

  WriteText(dir_.Path("first_is_listed"), "");
  std::string alone;
  list("code_object_0", alone);
  ASSERT_GT(PipesIn(alone), 0u) << alone;
  fs::remove(dir_.Path("first_is_listed"));
  fs::remove(dir_.Path("second_runs"));

  std::string first;
  std::string second;
  std::thread first_thread([&] { list("code_object_1", first); });
  while (!fs::exists(dir_.Path("first_runs"))) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  std::thread second_thread([&] { list("code_object_0", second); });
  first_thread.join();
  EXPECT_EQ(first, "Code Object:\nend\n");
  WriteText(dir_.Path("first_is_listed"), "");
  second_thread.join();
  EXPECT_EQ(PipesIn(second), PipesIn(alone)) << second;
}

// ---------------------------------------------------------------------------------------------
// The window around a faulting PC

class FaultWindowTest : public ListingsTest {
 protected:
  // Adds a line of the tool's arguments to a log for every run, and prints the window.
  void InstallCountingTool() {
    rocm_.InstallScript(
        "for file; do :; done\n"
        "echo \"$2 $6 $7 ${file##*/}\" | tee -a '" +
        dir_.Path("log") + "'\n");
  }

  std::string Log() const { return ReadText(dir_.Path("log")); }

  std::string Window(uint64_t pc, size_t agent = 0) {
    std::string text = "what was there before is replaced";
    EXPECT_TRUE(analyser_.DisFaultCodeObject(analyser_.agent_lists[agent], pc, text));
    return text;
  }

  using CodeObjects = std::vector<CodeObjectInfo*>;
};

TEST_F(FaultWindowTest, ShowsThePlaceInTheCodeObject) {
  InstallCountingTool();
  AddCodeObject();
  CodeObjectInfo* code_object = AddCodeObject();
  EXPECT_EQ(Window(0x7F0000001234),
            "Code Object:\n"
            "--mcpu=gfx906 --start-address=0X214 --stop-address=0X254 code_object_1\n"
            "\n"
            "PC offset: 0X234\n"
            "\n");
  EXPECT_EQ(analyser_.err_code_lists, CodeObjects{code_object});
}

TEST_F(FaultWindowTest, OfTheFirstInstruction) {
  InstallCountingTool();
  AddCodeObject();
  EXPECT_EQ(Window(0x7F0000000000),
            "Code Object:\n"
            "--mcpu=gfx906 --start-address=0XFFFFFFFFFFFFFFE0 --stop-address=0X20 code_object_0\n"
            "\n"
            "PC offset: 0X0\n"
            "\n");
}

TEST_F(FaultWindowTest, TheEndOfACodeObjectIsOutside) {
  AddCodeObject();
  EXPECT_EQ(Window(0x7F0000001000), "(Cannot match PC to a loaded code object)\n\n");
  EXPECT_TRUE(analyser_.err_code_lists.empty());
}

TEST_F(FaultWindowTest, OutsideNoToolIsNeeded) {
  EXPECT_EQ(Window(0), "(Cannot match PC to a loaded code object)\n\n");
}

TEST_F(FaultWindowTest, OfOverlappingCodeObjectsTheFirstIsShown) {
  InstallCountingTool();
  AddCodeObject();
  CodeObjectInfo* first = AddCodeObject();
  std::swap(analyser_.code_object_lists[0], analyser_.code_object_lists[1]);
  first->addr_loaded = 0x7F0000000800;
  EXPECT_EQ(Window(0x7F0000000900),
            "Code Object:\n"
            "--mcpu=gfx906 --start-address=0XE0 --stop-address=0X120 code_object_1\n"
            "\n"
            "PC offset: 0X100\n"
            "\n");
  EXPECT_EQ(analyser_.err_code_lists, CodeObjects{first});
}

// The window is for the agent whose wave faulted, the listing for the agent of the code object.
TEST_F(FaultWindowTest, IsMadeForTheAgentOfTheWave) {
  InstallCountingTool();
  AddCodeObject();
  AddAgent("gpu-gfx926");
  Window(0x7F0000000100, 1);
  EXPECT_EQ(Log(), "--mcpu=gfx926 --start-address=0XE0 --stop-address=0X120 code_object_0\n");
}

TEST_F(FaultWindowTest, AMissingToolLeavesTheTextAlone) {
  CodeObjectInfo* code_object = AddCodeObject();
  std::string text = "untouched";
  OutputCapture capture;
  EXPECT_FALSE(analyser_.DisFaultCodeObject(analyser_.agent_lists[0], 0x7F0000000100, text));
  EXPECT_EQ(WithoutTimes(capture.Stop().err),
            "[time] Error: Can't find llvm-objdump in path: " + rocm_.ToolPath());
  EXPECT_EQ(text, "untouched");
  EXPECT_EQ(analyser_.err_code_lists, CodeObjects{code_object});
}

TEST_F(FaultWindowTest, AMissingCodeObjectFileLeavesTheTextAlone) {
  InstallCountingTool();
  AddCodeObject();
  fs::remove(codes_ + "/code_object_0");
  std::string text = "untouched";
  OutputCapture capture;
  EXPECT_FALSE(analyser_.DisFaultCodeObject(analyser_.agent_lists[0], 0x7F0000000100, text));
  EXPECT_EQ(WithoutTimes(capture.Stop().err),
            "[time] Error: Can't find file: " + codes_ + "/code_object_0");
  EXPECT_EQ(text, "untouched");
}

TEST_F(FaultWindowTest, AToolThatFailsIsReportedInTheText) {
  rocm_.InstallScript("exit 3\n");
  AddCodeObject();
  EXPECT_EQ(Window(0x7F0000000100), Unavailable(0));
}

TEST_F(FaultWindowTest, APlaceIsDisassembledOnce) {
  InstallCountingTool();
  AddCodeObject();
  const std::string first = Window(0x7F0000000100);
  EXPECT_EQ(Window(0x7F0000000100), first);
  EXPECT_EQ(Window(0x7F0000000100), first);
  EXPECT_EQ(Log(), "--mcpu=gfx906 --start-address=0XE0 --stop-address=0X120 code_object_0\n");
}

TEST_F(FaultWindowTest, PlacesDifferByCodeObjectOffsetAndAgentName) {
  InstallCountingTool();
  AddCodeObject();
  AddCodeObject();
  AddAgent("gpu-gfx926");
  AddAgent("gpu-gfx926");
  for (int round = 0; round < 2; ++round) {
    Window(0x7F0000000100);
    Window(0x7F0000000104);
    Window(0x7F0000001100);
    Window(0x7F0000000100, 1);
    Window(0x7F0000000100, 2);  // another agent of the same name
  }
  EXPECT_EQ(Log(),
            "--mcpu=gfx906 --start-address=0XE0 --stop-address=0X120 code_object_0\n"
            "--mcpu=gfx906 --start-address=0XE4 --stop-address=0X124 code_object_0\n"
            "--mcpu=gfx906 --start-address=0XE0 --stop-address=0X120 code_object_1\n"
            "--mcpu=gfx926 --start-address=0XE0 --stop-address=0X120 code_object_0\n");
}

TEST_F(FaultWindowTest, APlaceWithoutToolIsTriedAgain) {
  AddCodeObject();
  std::string text;
  OutputCapture capture;
  EXPECT_FALSE(analyser_.DisFaultCodeObject(analyser_.agent_lists[0], 0x7F0000000100, text));
  capture.Stop();
  rocm_.InstallScript("echo here\n");
  EXPECT_EQ(Window(0x7F0000000100), "Code Object:\nhere\n\nPC offset: 0X100\n\n");
}

TEST_F(FaultWindowTest, ManyFaultsInACodeObjectMakeOneListing) {
  InstallCountingTool();
  CodeObjectInfo* first = AddCodeObject();
  CodeObjectInfo* second = AddCodeObject();
  AddCodeObject();
  Window(0x7F0000001100);
  Window(0x7F0000000100);
  Window(0x7F0000001200);
  Window(0x7F0000001100);
  EXPECT_EQ(analyser_.err_code_lists, (CodeObjects{second, first}));
  const Output output = List("debug");
  size_t listings = 0;
  for (const std::string& line : SortedLines(output.out)) {
    listings += line.find("DisCodeObject agent name:") != std::string::npos ? 1 : 0;
  }
  EXPECT_EQ(listings, 2u);
  EXPECT_EQ(ListTree(codes_), (Names{"code_object_0", "code_object_0.asm", "code_object_1",
                                     "code_object_1.asm", "code_object_2"}));
}

}  // namespace
