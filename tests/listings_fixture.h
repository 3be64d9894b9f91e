// An analyser with code objects whose listings and fault windows a stand-in tool makes.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "captured_output.h"
#include "core_dump_info.h"
#include "logger.h"
#include "stand_in_tool.h"
#include "temp_dir.h"

// The lines of a log whose order depends on the threads.
inline std::vector<std::string> SortedLines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line);
  }
  std::sort(lines.begin(), lines.end());
  return lines;
}

// An analyser with one agent and as many code objects as a test adds, each 0x1000 bytes long:
// code_object_0 at 0x7F0000000000, the next at 0x7F0000001000 and so on.
class ListingsTest : public testing::Test {
 protected:
  ListingsTest() : rocm_(dir_.Path("rocm")), codes_(dir_.Path("codes")) {
    analyser_.rocm_dir_ = rocm_.Path();
    analyser_.dump_code_dir_ = codes_;
    std::filesystem::create_directory(codes_);
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
    return DisassemblyUnavailable(codes_ + "/code_object_" + std::to_string(index));
  }

  TempDir dir_;
  StandInRocm rocm_;
  const std::string codes_;
  CoreDumpInfo analyser_;
};
