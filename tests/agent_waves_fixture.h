// An agent with queues and waves for the tests of its wave files. The waves have no general
// registers, so that their text is short; the text itself has tests of its own.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <deque>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "captured_output.h"
#include "core_dump_info.h"
#include "stand_in_tool.h"
#include "temp_dir.h"

inline constexpr uint32_t kGpuId = 100;

// A wave with hw_id 0: on SIMD 0 of CU 0 of SE 0.
struct AgentWave {
  uint64_t pc = 0;
  uint64_t trap_pc = 0;  // of 48 bits
  uint32_t trapsts = 0;
};

// The context save area of a queue with these waves.
std::string AreaOf(const std::vector<AgentWave>& waves);

// A saved wave's text. `code_object` is what follows "Code Object: ".
std::string SavedWaveText(const std::string& code_object, uint64_t pc, uint32_t trapsts);

// A recorded wave's text: 16 SGPRs and, in each lane, as many VGPRs as rows of four.
std::string ActiveWaveText(const std::string& code_object, uint64_t pc, uint32_t trapsts,
                           int vgpr_rows = 1);

// Waves in the code objects, one outside, one that faults in each.
inline constexpr AgentWave kRunning = {0x7F0000001234, 0x7F0000001666, 0x40000000};
inline constexpr AgentWave kOutside = {0x7F0000002000, 0, 0};
inline constexpr AgentWave kFaulting = {0x7F00DEAD0000, 0x7F0000001100, 0x100};
inline constexpr AgentWave kFaultingElsewhere = {0x7F00DEAD0000, 0x7F0000003200, 0x800};
inline constexpr AgentWave kFaultingOutside = {0x7F0000001234, 0x7F0000002000, 0x900};

// Their texts, and the windows around the places of the faults as the stand-in tool shows them.
std::string RunningText();
std::string OutsideText();
std::string FaultingText();
std::string FaultingElsewhereText();
std::string FaultingOutsideText();
std::string FaultingWindow();
std::string FaultingElsewhereWindow();

// An analyser with one agent, node 4, and two code objects, 0x1000 bytes from 0x7F0000001000 and
// from 0x7F0000003000.
class AgentWavesTest : public testing::Test {
 protected:
  AgentWavesTest() : rocm_(dir_.Path("rocm")), out_(dir_.Path("out")) {
    analyser_.dump_dir_ = out_;
    analyser_.dump_queue_dir_ = out_ + "/queues";
    analyser_.dump_code_dir_ = dir_.Path("codes");
    analyser_.rocm_dir_ = rocm_.Path();
    std::filesystem::create_directory(dir_.Path("codes"));
    AddCodeObject("code_object_0", 0x7F0000001000);
    AddCodeObject("code_object_1", 0x7F0000003000);
    agent_ = AddAgent("gpu-gfx906", kGpuId, 4);
    // Logs every run.
    rocm_.InstallScript(
        "for file; do :; done\n"
        "echo \"$2 $6 ${file##*/}\" >> '" +
        dir_.Path("log") +
        "'\n"
        "echo \"$6 $7 ${file##*/}\"\n");
  }

  CoreDumpAgent* AddAgent(const std::string& name, uint32_t gpu_id, uint32_t node_id) {
    auto* agent = new CoreDumpAgent();
    name.copy(agent->name, sizeof(agent->name) - 1);
    agent->gpu_id = gpu_id;
    agent->node_id = node_id;
    agent->chip_id = 0x5001;
    return analyser_.agent_lists.emplace_back(agent);
  }

  void AddCodeObject(const std::string& name, uint64_t addr_loaded) {
    auto* code_object = new CodeObjectInfo();
    name.copy(code_object->name, sizeof(code_object->name) - 1);
    code_object->addr_loaded = addr_loaded;
    code_object->size_loaded = 0x1000;
    analyser_.code_object_lists.push_back(code_object);
    WriteText(dir_.Path("codes/" + name), "elf");
  }

  CoreDumpQueue* AddQueue(uint32_t queue_id, const std::vector<AgentWave>& waves,
                          uint32_t gpu_id = kGpuId) {
    return AddQueueWithArea(queue_id, AreaOf(waves), gpu_id);
  }

  CoreDumpQueue* AddQueueWithArea(uint32_t queue_id, std::string area, uint32_t gpu_id = kGpuId) {
    areas_.push_back(std::move(area));
    auto* queue = new CoreDumpQueue();
    queue->queue_id = queue_id;
    queue->gpu_id = gpu_id;
    queue->queue_type = QUEUE_TYPE_COMPUTE_AQL;
    queue->context_offset = reinterpret_cast<uint64_t>(areas_.back().data());
    queue->context_sr_size = areas_.back().size();
    return analyser_.queue_lists.emplace_back(queue);
  }

  void SetRecords(CoreDumpAgent* agent, const std::vector<AgentWave>& waves) {
    std::vector<WaveInfo>& records = records_.emplace_back(waves.size());
    for (size_t i = 0; i < waves.size(); ++i) {
      records[i].pc_lo = static_cast<uint32_t>(waves[i].pc);
      records[i].pc_hi = static_cast<uint32_t>(waves[i].pc >> 32);
      records[i].trapsts = waves[i].trapsts;
    }
    agent->wave_offset = reinterpret_cast<uint64_t>(records.data());
    agent->wave_count = records.size();
  }

  // Runs the report, which must end as told, and gives what it logs, time stamps as "[time]".
  Output Dump(bool result, const std::string& level = "error") {
    return Logged(level, [&] { EXPECT_EQ(analyser_.DumpAgentWaves(agent_), result); });
  }

  Output DumpActive(const std::string& level = "error") {
    return Logged(level, [&] { EXPECT_TRUE(analyser_.DumpAgentActiveWaves(agent_)); });
  }

  template <typename Report>
  static Output Logged(const std::string& level, Report report) {
    const ScopedLogLevel scope(level);
    OutputCapture capture;
    report();
    const Output output = capture.Stop();
    return {WithoutTimes(output.out), WithoutTimes(output.err)};
  }

  std::string Out(const std::string& name) const { return ReadText(out_ + "/" + name); }
  std::vector<std::string> Tree() const { return ListTree(out_); }
  std::string Log() const { return ReadText(dir_.Path("log")); }

  // Nothing can be written to that name from here on.
  void Block(const std::string& name) const {
    std::filesystem::create_directories(out_ + "/" + name);
  }

  TempDir dir_;
  StandInRocm rocm_;
  const std::string out_;
  std::deque<std::string> areas_;
  std::deque<std::vector<WaveInfo>> records_;
  CoreDumpInfo analyser_;
  CoreDumpAgent* agent_ = nullptr;
};
