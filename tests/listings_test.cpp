// The listings of code objects: which are made, what goes wrong, and the threads that make them.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "captured_output.h"
#include "core_dump_info/disassembler.h"
#include "listings_fixture.h"
#include "same_text.h"
#include "temp_dir.h"

namespace {

namespace fs = std::filesystem;

using Names = std::vector<std::string>;

// Prints the number of arguments, the processor and the file name of the code object.
constexpr char kPrintJob[] = "for file; do :; done; echo \"$# $2 ${file##*/}\"\n";

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

}  // namespace
