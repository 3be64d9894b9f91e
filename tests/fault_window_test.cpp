// The window of instructions around a faulting PC.
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "captured_output.h"
#include "core_dump_info.h"
#include "listings_fixture.h"
#include "temp_dir.h"

namespace {

namespace fs = std::filesystem;

using Names = std::vector<std::string>;

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

TEST_F(FaultWindowTest, EachFaultIsLoggedThoughTheToolRunsOnce) {
  InstallCountingTool();
  AddCodeObject();
  const ScopedLogLevel debug("debug");
  OutputCapture capture;
  Window(0x7F0000000100);
  Window(0x7F0000000100);
  const Output output = capture.Stop();
  const std::string line =
      "[time] Debug: DisCodeObject agent name:gpu-gfx906 code object name: code_object_0\n";
  EXPECT_EQ(WithoutTimes(output.out), line + line);
  EXPECT_EQ(Log(), "--mcpu=gfx906 --start-address=0XE0 --stop-address=0X120 code_object_0\n");
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
