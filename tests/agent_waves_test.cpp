// The wave files of an agent. Waves here have no general registers, so that their text is short;
// the text itself has tests of its own.
#include <gtest/gtest.h>

#include <cstdint>
#include <deque>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "captured_output.h"
#include "core_dump_info.h"
#include "core_file_writer.h"
#include "same_text.h"
#include "stand_in_tool.h"
#include "temp_dir.h"
#include "utils.h"

namespace {

namespace fs = std::filesystem;

using Names = std::vector<std::string>;

constexpr uint32_t kGpuId = 100;

// A wave with hw_id 0: on SIMD 0 of CU 0 of SE 0.
struct Wave {
  uint64_t pc = 0;
  uint64_t trap_pc = 0;  // of 48 bits
  uint32_t trapsts = 0;
};

constexpr uint32_t Low(uint64_t value) { return static_cast<uint32_t>(value); }
constexpr uint32_t High(uint64_t value) { return static_cast<uint32_t>(value >> 32); }

sample::AreaWave AreaWaveOf(const Wave& wave) {
  sample::AreaWave area_wave;
  area_wave.hwregs[1] = Low(wave.pc);
  area_wave.hwregs[2] = High(wave.pc);
  area_wave.hwregs[6] = wave.trapsts;
  area_wave.ttmps[7] = Low(wave.trap_pc);
  area_wave.ttmps[11] = High(wave.trap_pc) << 7;
  return area_wave;
}

std::string AreaOf(const std::vector<Wave>& waves) {
  sample::AreaGroup group;
  group.state_record = false;
  for (const Wave& wave : waves) {
    group.waves.push_back(AreaWaveOf(wave));
  }
  sample::ContextArea area;
  area.groups = {group};
  return sample::ContextAreaBytes(area);
}

// From the location to the general registers of a wave whose registers are all 0 but these.
// `wider_registers` are the lines between EXEC and M0, `hw_id` those between STATUS and IB_STS.
std::string RegisterLines(uint64_t pc, uint32_t trapsts, const std::string& wider_registers,
                          const std::string& hw_id) {
  return StrFormat(
             "se0.sh0.cu0.simd0.wave0\n"
             "\n"
             "Main Registers:\n"
             "        PC: 0X%016lX\n"
             "      EXEC: 0X0000000000000000\n",
             pc) +
         wider_registers +
         StrFormat(
             "        M0: 0X00000000\n"
             "      MODE: 0X00000000\n"
             "   TRAPSTS: 0X%08X\n",
             trapsts) +
         "    STATUS: 0X00000000\n"
         "               SCC: 0      SPI_PRIO: 0     USER_PRIO: 0          PRIV: 0\n"
         "           TRAP_EN: 0     TTRACE_EN: 0         EXECZ: 0          VCCZ: 0\n"
         "             IN_TG: 0    IN_BARRIER: 0          HALT: 0          TRAP: 0\n"
         "      TTRACE_CU_EN: 0         VALID: 0       ECC_ERR: 0    FATAL_HALT: 0\n"
         "\n" +
         hw_id +
         "    IB_STS: 0X00000000\n"
         "            VM_CNT: 0       EXP_CNT: 0      LGKM_CNT: 0      VALU_CNT: 0\n"
         "\n"
         " GPR_ALLOC: 0X00000000\n"
         "         VGPR_BASE: 0     VGPR_SIZE: 0     SGPR_BASE: 0     SGPR_SIZE: 0\n"
         "\n"
         " LDS_ALLOC: 0X00000000\n"
         "          LDS_BASE: 0      LDS_SIZE: 0\n"
         "\n"
         "\n"
         "General Registers:\n"
         "\n";
}

// A saved wave's text. `code_object` is what follows "Code Object: ".
std::string WaveText(const std::string& code_object, uint64_t pc, uint32_t trapsts) {
  std::string text =
      "--------------------------------------------------------------\n"
      "Code Object: " +
      code_object +
      RegisterLines(pc, trapsts,
                    "XNACK_MASK: 0X0000000000000000\n"
                    "       TBA: 0X0000000000000000\n"
                    "       TMA: 0X0000000000000000\n",
                    "") +
      "\n";
  for (int lane = 0; lane < 64; ++lane) {
    text += StrFormat("Lane %d\n", lane);
  }
  return text + "\n\n";
}

// A recorded wave's text: 16 SGPRs and, in each lane, as many VGPRs as rows of four.
std::string ActiveWaveText(const std::string& code_object, uint64_t pc, uint32_t trapsts,
                           int vgpr_rows = 1) {
  std::string text =
      "--------------------------------------------------------------\n"
      "Code Object: " +
      code_object +
      RegisterLines(pc, trapsts, "",
                    "      HWID: 0X00000000\n"
                    "           WAVE ID: 0       SIMD ID: 0       PIPE ID: 0         CU ID: 0\n"
                    "             SH ID: 0         SE ID: 0         TG ID: 0         VM ID: 0\n"
                    "           RING ID: 0      STATE ID: 0         ME ID: 0\n"
                    "\n") +
      "     s0: 0X00000000    s1: 0X00000000    s2: 0X00000000    s3: 0X00000000\n"
      "     s4: 0X00000000    s5: 0X00000000    s6: 0X00000000    s7: 0X00000000\n"
      "     s8: 0X00000000    s9: 0X00000000   s10: 0X00000000   s11: 0X00000000\n"
      "    s12: 0X00000000   s13: 0X00000000   s14: 0X00000000   s15: 0X00000000\n"
      "\n";
  for (int lane = 0; lane < 64; ++lane) {
    text += StrFormat("Lane %d\n", lane);
    text += "     v0: 0X00000000    v1: 0X00000000    v2: 0X00000000    v3: 0X00000000\n";
    if (vgpr_rows == 2) {
      text += "     v4: 0X00000000    v5: 0X00000000    v6: 0X00000000    v7: 0X00000000\n";
    }
  }
  return text + "\n\n";
}

// An occupancy table whose waves are all on one SIMD. `cells` are those of CU 0 of SE 0.
std::string Occupancy(const std::string& cells, const std::string& summary) {
  return "-------------------------------------------------------------------------------------\n"
         "SIMD| 0 1 2 3 | 0 1 2 3 | 0 1 2 3 | 0 1 2 3 | 0 1 2 3 | 0 1 2 3 | 0 1 2 3 | 0 1 2 3 | \n"
         "-------------------------------------------------------------------------------------\n"
         "CU  |    0    |    1    |    2    |    3    |    4    |    5    |    6    |    7    |\n"
         "S0H0|" +
         cells +
         " | - - - - | - - - - | - - - - | - - - - | - - - - | - - - - | - - - - |\n"
         "S1H0| - - - - | - - - - | - - - - | - - - - | - - - - | - - - - | - - - - | - - - - |\n"
         "S2H0| - - - - | - - - - | - - - - | - - - - | - - - - | - - - - | - - - - | - - - - |\n"
         "S3H0| - - - - | - - - - | - - - - | - - - - | - - - - | - - - - | - - - - | - - - - |\n"
         "-------------------------------------------------------------------------------------\n"
         "CU  |    8    |    9    |   10    |   11    |   12    |   13    |   14    |   15    |\n"
         "S0H0| - - - - | - - - - | - - - - | - - - - | - - - - | - - - - | - - - - | - - - - |\n"
         "S1H0| - - - - | - - - - | - - - - | - - - - | - - - - | - - - - | - - - - | - - - - |\n"
         "S2H0| - - - - | - - - - | - - - - | - - - - | - - - - | - - - - | - - - - | - - - - |\n"
         "S3H0| - - - - | - - - - | - - - - | - - - - | - - - - | - - - - | - - - - | - - - - |\n"
         "=====================================================================================\n"
         "Used SEs(4)     Used CUs(64)    Used SIMDs(256)     Active Waves      Waves Occupancy   "
         "\n" +
         summary +
         "\n"
         "=====================================================================================\n";
}

std::string NoWaves() {
  return Occupancy(
      " - - - -",
      "     0               0               0                   0               0.000 %");
}

std::string OneWave() {
  return Occupancy(
      " 1 - - -",
      "     1               1               1                   1               0.039 %");
}

std::string TwoWaves() {
  return Occupancy(
      " 2 - - -",
      "     1               1               1                   2               0.078 %");
}

// The window that the stand-in tool shows: the options' values and the code object.
std::string Window(const std::string& start, const std::string& stop,
                   const std::string& code_object, const std::string& offset) {
  return "Code Object:\n--start-address=" + start + " --stop-address=" + stop + " " + code_object +
         "\n\nPC offset: " + offset + "\n\n";
}

// An analyser with one agent, node 4, and two code objects, 0x1000 bytes from 0x7F0000001000 and
// from 0x7F0000003000.
class AgentWavesTest : public testing::Test {
 protected:
  AgentWavesTest() : rocm_(dir_.Path("rocm")), out_(dir_.Path("out")) {
    analyser_.dump_dir_ = out_;
    analyser_.dump_queue_dir_ = out_ + "/queues";
    analyser_.dump_code_dir_ = dir_.Path("codes");
    analyser_.rocm_dir_ = rocm_.Path();
    fs::create_directory(dir_.Path("codes"));
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

  CoreDumpQueue* AddQueue(uint32_t queue_id, const std::vector<Wave>& waves,
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

  void SetRecords(CoreDumpAgent* agent, const std::vector<Wave>& waves) {
    std::vector<WaveInfo>& records = records_.emplace_back(waves.size());
    for (size_t i = 0; i < waves.size(); ++i) {
      records[i].pc_lo = Low(waves[i].pc);
      records[i].pc_hi = High(waves[i].pc);
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
  Names Tree() const { return ListTree(out_); }
  std::string Log() const { return ReadText(dir_.Path("log")); }

  // Nothing can be written to that name from here on.
  void Block(const std::string& name) const { fs::create_directories(out_ + "/" + name); }

  TempDir dir_;
  StandInRocm rocm_;
  const std::string out_;
  std::deque<std::string> areas_;
  std::deque<std::vector<WaveInfo>> records_;
  CoreDumpInfo analyser_;
  CoreDumpAgent* agent_ = nullptr;
};

// Waves in the code objects, one outside, one that faults in each.
constexpr Wave kRunning = {0x7F0000001234, 0x7F0000001666, 0x40000000};
constexpr Wave kOutside = {0x7F0000002000, 0, 0};
constexpr Wave kFaulting = {0x7F00DEAD0000, 0x7F0000001100, 0x100};
constexpr Wave kFaultingElsewhere = {0x7F00DEAD0000, 0x7F0000003200, 0x800};
constexpr Wave kFaultingOutside = {0x7F0000001234, 0x7F0000002000, 0x900};

std::string RunningText() {
  return WaveText("code_object_0\nPC offset: 0X234\n", 0x7F0000001234, 0x40000000);
}
std::string OutsideText() { return WaveText("\nNot fount code object!!\n", 0x7F0000002000, 0); }
std::string FaultingText() {
  return WaveText("code_object_0\nPC offset: 0X100\n", 0x7F0000001100, 0x100);
}
std::string FaultingElsewhereText() {
  return WaveText("code_object_1\nPC offset: 0X200\n", 0x7F0000003200, 0x800);
}
std::string FaultingOutsideText() {
  return WaveText("\nNot fount code object!!\n", 0x7F0000002000, 0x900);
}
std::string FaultingWindow() { return Window("0XE0", "0X120", "code_object_0", "0X100"); }
std::string FaultingElsewhereWindow() { return Window("0X1E0", "0X220", "code_object_1", "0X200"); }

// ---------------------------------------------------------------------------------------------
// Which files are written

TEST_F(AgentWavesTest, NoAgent) {
  agent_ = nullptr;
  EXPECT_EQ(Dump(false).err, "[time] Error: Invlid agent info.\n");
  EXPECT_FALSE(fs::exists(out_));
}

TEST_F(AgentWavesTest, AnAgentWithoutQueuesHasAnEmptyTable) {
  EXPECT_EQ(Dump(true).err, "");
  EXPECT_EQ(Tree(), Names{"agent_4"});
  EXPECT_EQ(Out("agent_4"), NoWaves());
}

TEST_F(AgentWavesTest, QueuesOfOtherTypesAndAgentsDoNotCount) {
  AddQueue(7, {kRunning})->queue_type = QUEUE_TYPE_COMPUTE;
  AddQueue(8, {kRunning}, kGpuId + 1);
  EXPECT_EQ(Dump(true).err, "");
  EXPECT_EQ(Tree(), Names{"agent_4"});
  EXPECT_EQ(Out("agent_4"), NoWaves());
}

TEST_F(AgentWavesTest, AQueueWithoutWavesHasNoWavesFile) {
  AddQueue(7, {});
  EXPECT_EQ(Dump(true).err, "");
  EXPECT_EQ(Tree(), (Names{"agent_4", "queues/", "queues/7/", "queues/7/cwsr"}));
  EXPECT_EQ(Out("agent_4"), NoWaves());
}

TEST_F(AgentWavesTest, WavesWithoutAFaultAreNotInFaultInfo) {
  AddQueue(7, {kRunning, kOutside});
  EXPECT_EQ(Dump(true).err, "");
  EXPECT_EQ(Tree(), (Names{"agent_4", "queues/", "queues/7/", "queues/7/cwsr", "queues/7/waves"}));
  EXPECT_EQ(Out("agent_4"), TwoWaves());
  EXPECT_EQ(Out("queues/7/cwsr"), areas_[0]);
  EXPECT_EQ(Out("queues/7/waves"), "Total waves count: 2\n" + RunningText() + OutsideText());
  EXPECT_FALSE(fs::exists(dir_.Path("log")));
  EXPECT_TRUE(analyser_.err_code_lists.empty());
}

TEST_F(AgentWavesTest, AFaultingWaveIsInBothFilesAtItsTrapPc) {
  AddQueue(7, {kFaulting});
  EXPECT_EQ(Dump(true).err, "");
  EXPECT_EQ(Tree(), (Names{"agent_4", "fault_info", "queues/", "queues/7/", "queues/7/cwsr",
                           "queues/7/waves"}));
  EXPECT_EQ(Out("agent_4"), OneWave());
  EXPECT_EQ(Out("queues/7/waves"), "Total waves count: 1\n" + FaultingText());
  EXPECT_EQ(Out("fault_info"),
            "1 wavefronts found error.\n\n"
            "Agent 4, Queue ID 7: fault wave PC: 0X00007F0000001100\n" +
                FaultingText() + FaultingWindow());
  EXPECT_EQ(analyser_.err_code_lists, std::vector<CodeObjectInfo*>{analyser_.code_object_lists[0]});
}

TEST_F(AgentWavesTest, FaultingWavesStandInOrderAndAreCounted) {
  AddQueue(7, {kRunning, kFaultingElsewhere, kOutside, kFaulting});
  EXPECT_EQ(Dump(true).err, "");
  EXPECT_EQ(Out("queues/7/waves"), "Total waves count: 4\n" + RunningText() +
                                       FaultingElsewhereText() + OutsideText() + FaultingText());
  EXPECT_EQ(Out("fault_info"),
            "2 wavefronts found error.\n\n"
            "Agent 4, Queue ID 7: fault wave PC: 0X00007F0000003200\n" +
                FaultingElsewhereText() + FaultingElsewhereWindow() +
                "Agent 4, Queue ID 7: fault wave PC: 0X00007F0000001100\n" + FaultingText() +
                FaultingWindow());
  EXPECT_EQ(analyser_.err_code_lists,
            (std::vector<CodeObjectInfo*>{analyser_.code_object_lists[1],
                                          analyser_.code_object_lists[0]}));
}

class TrapStsTest : public AgentWavesTest, public testing::WithParamInterface<uint32_t> {};

class FaultingTrapStsTest : public TrapStsTest {};
TEST_P(FaultingTrapStsTest, MakesAFaultingWave) {
  AddQueue(7, {{0, 0x7F0000002000, GetParam()}});
  EXPECT_EQ(Dump(true).err, "");
  EXPECT_TRUE(fs::exists(out_ + "/fault_info"));
  EXPECT_EQ(Out("queues/7/waves"),
            "Total waves count: 1\n" +
                WaveText("\nNot fount code object!!\n", 0x7F0000002000, GetParam()));
}
INSTANTIATE_TEST_SUITE_P(Bits, FaultingTrapStsTest,
                         testing::Values(0x100, 0x800, 0x900, 0xFFFFF7FF, 0xFFFFFEFF, 0xFFFFFFFF));

class OtherTrapStsTest : public TrapStsTest {};
TEST_P(OtherTrapStsTest, MakesNoFaultingWave) {
  AddQueue(7, {{0, 0x7F0000002000, GetParam()}});
  EXPECT_EQ(Dump(true).err, "");
  EXPECT_FALSE(fs::exists(out_ + "/fault_info"));
  EXPECT_EQ(Out("queues/7/waves"),
            "Total waves count: 1\n" + WaveText("\nNot fount code object!!\n", 0, GetParam()));
}
INSTANTIATE_TEST_SUITE_P(Bits, OtherTrapStsTest,
                         testing::Values(0, 0x80, 0x200, 0x400, 0x1000, 0xFFFFF6FF));

TEST_F(AgentWavesTest, AFaultOutsideTheCodeObjectsNeedsNoTool) {
  fs::remove_all(rocm_.Path());
  AddQueue(7, {kFaultingOutside});
  EXPECT_EQ(Dump(true).err, "");
  EXPECT_EQ(Out("fault_info"),
            "1 wavefronts found error.\n\n"
            "Agent 4, Queue ID 7: fault wave PC: 0X00007F0000002000\n" +
                FaultingOutsideText() + "(Cannot match PC to a loaded code object)\n\n");
  EXPECT_EQ(Out("queues/7/waves"), "Total waves count: 1\n" + FaultingOutsideText());
  EXPECT_TRUE(analyser_.err_code_lists.empty());
}

TEST_F(AgentWavesTest, QueuesAreReportedInAscendingOrderOfTheirIds) {
  AddQueue(9, {kFaultingElsewhere});
  AddQueue(8, {kRunning});
  AddQueue(7, {kFaulting});
  EXPECT_EQ(Dump(true).err, "");
  EXPECT_EQ(Out("fault_info"),
            "1 wavefronts found error.\n\n"
            "Agent 4, Queue ID 7: fault wave PC: 0X00007F0000001100\n" +
                FaultingText() + FaultingWindow() +
                "1 wavefronts found error.\n\n"
                "Agent 4, Queue ID 9: fault wave PC: 0X00007F0000003200\n" +
                FaultingElsewhereText() + FaultingElsewhereWindow());
  EXPECT_EQ(Out("queues/7/waves"), "Total waves count: 1\n" + FaultingText());
  EXPECT_EQ(Out("queues/8/waves"), "Total waves count: 1\n" + RunningText());
  EXPECT_EQ(Out("queues/9/waves"), "Total waves count: 1\n" + FaultingElsewhereText());
}

TEST_F(AgentWavesTest, IdsAreUnsigned) {
  agent_->node_id = 4000000000;
  AddQueue(4000000001, {kFaulting});
  EXPECT_EQ(Dump(true).err, "");
  EXPECT_EQ(Out("agent_4000000000"), OneWave());
  EXPECT_EQ(Out("fault_info"),
            "1 wavefronts found error.\n\n"
            "Agent 4000000000, Queue ID 4000000001: fault wave PC: 0X00007F0000001100\n" +
                FaultingText() + FaultingWindow());
  EXPECT_EQ(Out("queues/4000000001/waves"), "Total waves count: 1\n" + FaultingText());
}

TEST_F(AgentWavesTest, EarlierReportsAreContinuedAndWavesReplaced) {
  fs::create_directories(out_ + "/queues/7");
  WriteText(out_ + "/agent_4", "agent report\n");
  WriteText(out_ + "/fault_info", "reason\n");
  WriteText(out_ + "/queues/7/waves", std::string(100000, 'x'));
  AddQueue(7, {kFaulting});
  EXPECT_EQ(Dump(true).err, "");
  EXPECT_EQ(Out("agent_4"), "agent report\n" + OneWave());
  EXPECT_EQ(Out("fault_info"),
            "reason\n"
            "1 wavefronts found error.\n\n"
            "Agent 4, Queue ID 7: fault wave PC: 0X00007F0000001100\n" +
                FaultingText() + FaultingWindow());
  EXPECT_EQ(Out("queues/7/waves"), "Total waves count: 1\n" + FaultingText());
}

TEST_F(AgentWavesTest, TwoAgentsShareFaultInfo) {
  AddQueue(7, {kFaulting});
  AddQueue(8, {kFaultingElsewhere}, kGpuId + 1);
  EXPECT_EQ(Dump(true).err, "");
  agent_ = AddAgent("gpu-gfx906", kGpuId + 1, 5);
  EXPECT_EQ(Dump(true).err, "");
  EXPECT_EQ(Out("agent_4"), OneWave());
  EXPECT_EQ(Out("agent_5"), OneWave());
  EXPECT_EQ(Out("fault_info"),
            "1 wavefronts found error.\n\n"
            "Agent 4, Queue ID 7: fault wave PC: 0X00007F0000001100\n" +
                FaultingText() + FaultingWindow() +
                "1 wavefronts found error.\n\n"
                "Agent 5, Queue ID 8: fault wave PC: 0X00007F0000003200\n" +
                FaultingElsewhereText() + FaultingElsewhereWindow());
}

TEST_F(AgentWavesTest, AgentsOfOneNodeIdShareTheirFile) {
  AddQueue(7, {kRunning});
  AddQueue(8, {kRunning, kRunning}, kGpuId + 1);
  EXPECT_EQ(Dump(true).err, "");
  agent_ = AddAgent("gpu-gfx906", kGpuId + 1, 4);
  EXPECT_EQ(Dump(true).err, "");
  EXPECT_EQ(Out("agent_4"), OneWave() + TwoWaves());
}

TEST_F(AgentWavesTest, TheVersionIsLogged) {
  EXPECT_EQ(Dump(true, "debug").out, "[time] Debug: DumpAgentWaves gfx version: 0x90006\n");
  agent_->chip_id = 0xAB5011;
  EXPECT_EQ(Dump(true, "debug").out, "[time] Debug: DumpAgentWaves gfx version: 0x90206\n");
  agent_->chip_id = 0;
  EXPECT_EQ(Dump(true, "debug").out, "[time] Debug: DumpAgentWaves gfx version: 0x0\n");
}

// With an offset of 0 the second bank is the first one once more.
TEST_F(AgentWavesTest, WavesAreShownForTheChipOfTheAgent) {
  sample::AreaGroup group;
  group.state = sample::StateRecord(4, 4, 0, 0);
  group.vgpr_count = 4;
  group.waves.resize(1);
  group.waves[0].vgprs.assign(256, 0xAB);
  sample::ContextArea area;
  area.groups = {group};
  AddQueueWithArea(7, sample::ContextAreaBytes(area));
  agent_->chip_id = 0x500F;
  agent_->is_dp4x = true;
  analyser_.dp4x_vgpr_offset = 0;
  EXPECT_EQ(Dump(true).err, "");
  EXPECT_NE(
      Out("queues/7/waves")
          .find("Lane 63\n"
                "     v0: 0X000000AB    v1: 0X000000AB    v2: 0X000000AB    v3: 0X000000AB\n"
                "     v4: 0X000000AB    v5: 0X000000AB    v6: 0X000000AB    v7: 0X000000AB\n"),
      std::string::npos);
}

// ---------------------------------------------------------------------------------------------
// The tool

TEST_F(AgentWavesTest, EveryPlaceIsDisassembledOnce) {
  AddQueue(7, {kFaulting, kFaultingElsewhere, kFaulting, kFaulting});
  AddQueue(8, {kFaultingElsewhere, kFaulting});
  AddQueue(9, {kFaulting}, kGpuId + 1);
  EXPECT_EQ(Dump(true).err, "");
  agent_ = AddAgent("gpu-gfx906", kGpuId + 1, 5);
  EXPECT_EQ(Dump(true).err, "");
  EXPECT_EQ(Log(),
            "--mcpu=gfx906 --start-address=0XE0 code_object_0\n"
            "--mcpu=gfx906 --start-address=0X1E0 code_object_1\n");
  const std::string fault = "Agent 4, Queue ID 7: fault wave PC: 0X00007F0000001100\n" +
                            FaultingText() + FaultingWindow();
  EXPECT_EQ(Out("fault_info"), "4 wavefronts found error.\n\n" + fault +
                                   "Agent 4, Queue ID 7: fault wave PC: 0X00007F0000003200\n" +
                                   FaultingElsewhereText() + FaultingElsewhereWindow() + fault +
                                   fault +
                                   "2 wavefronts found error.\n\n"
                                   "Agent 4, Queue ID 8: fault wave PC: 0X00007F0000003200\n" +
                                   FaultingElsewhereText() + FaultingElsewhereWindow() +
                                   "Agent 4, Queue ID 8: fault wave PC: 0X00007F0000001100\n" +
                                   FaultingText() + FaultingWindow() +
                                   "1 wavefronts found error.\n\n"
                                   "Agent 5, Queue ID 9: fault wave PC: 0X00007F0000001100\n" +
                                   FaultingText() + FaultingWindow());
}

TEST_F(AgentWavesTest, AgentsOfAnotherNameHaveWindowsOfTheirOwn) {
  AddQueue(7, {kFaulting});
  AddQueue(8, {kFaulting}, kGpuId + 1);
  EXPECT_EQ(Dump(true).err, "");
  agent_ = AddAgent("gpu-gfx926", kGpuId + 1, 5);
  EXPECT_EQ(Dump(true).err, "");
  EXPECT_EQ(Log(),
            "--mcpu=gfx906 --start-address=0XE0 code_object_0\n"
            "--mcpu=gfx926 --start-address=0XE0 code_object_0\n");
}

TEST_F(AgentWavesTest, AToolThatFailsIsReportedInFaultInfo) {
  rocm_.InstallScript("exit 3\n");
  AddQueue(7, {kFaulting});
  EXPECT_EQ(Dump(true).err, "");
  EXPECT_EQ(Out("fault_info"),
            "1 wavefronts found error.\n\n"
            "Agent 4, Queue ID 7: fault wave PC: 0X00007F0000001100\n" +
                FaultingText() + "Code Object:\n" + dir_.Path("codes/code_object_0") +
                "\n\n(Disassembly unavailable - is amdgcn-capable llvm-objdump available ?)\n\n");
  EXPECT_EQ(Out("queues/7/waves"), "Total waves count: 1\n" + FaultingText());
}

// Queue 7 comes before the one that needs the tool and queue 9 behind it; the areas of all have
// been read before.
TEST_F(AgentWavesTest, AMissingToolLeavesNothingOfTheQueue) {
  fs::remove_all(rocm_.Path());
  AddQueue(9, {kRunning});
  AddQueue(8, {kRunning, kFaultingOutside, kFaulting});
  AddQueue(7, {kRunning});
  EXPECT_EQ(Dump(false).err, "[time] Error: Can't find llvm-objdump in path: " + rocm_.ToolPath());
  EXPECT_EQ(Tree(), (Names{"agent_4", "queues/", "queues/7/", "queues/7/cwsr", "queues/7/waves",
                           "queues/8/", "queues/8/cwsr", "queues/9/", "queues/9/cwsr"}));
  EXPECT_EQ(Out("queues/7/waves"), "Total waves count: 1\n" + RunningText());
}

TEST_F(AgentWavesTest, AMissingCodeObjectFileLeavesNothingOfTheQueue) {
  fs::remove(dir_.Path("codes/code_object_0"));
  AddQueue(7, {kFaulting});
  EXPECT_EQ(Dump(false).err, "[time] Error: Can't find file: " + dir_.Path("codes/code_object_0"));
  EXPECT_EQ(Tree(), (Names{"agent_4", "queues/", "queues/7/", "queues/7/cwsr"}));
}

// ---------------------------------------------------------------------------------------------
// Reports of any size

TEST_F(AgentWavesTest, WindowsOfAnySizeAreWhole) {
  // Some 650 KB each, all of other text.
  rocm_.InstallScript(
      "awk -v start=\"${6#*X}\" 'BEGIN { for (i = 100000; i < 150000; ++i) print start, i }'\n");
  const auto window = [](const std::string& start, const std::string& offset) {
    std::string text = "Code Object:\n";
    for (int i = 100000; i < 150000; ++i) {
      text += start + " " + std::to_string(i) + "\n";
    }
    return text + "\nPC offset: " + offset + "\n\n";
  };
  const Wave third = {0, 0x7F0000001300, 0x100};
  AddQueue(7, {kFaulting, kFaultingElsewhere, third, kFaulting});
  EXPECT_EQ(Dump(true).err, "");
  const std::string fault = "Agent 4, Queue ID 7: fault wave PC: 0X00007F0000001100\n" +
                            FaultingText() + window("E0", "0X100");
  EXPECT_TRUE(SameText(Out("fault_info"),
                       "4 wavefronts found error.\n\n" + fault +
                           "Agent 4, Queue ID 7: fault wave PC: 0X00007F0000003200\n" +
                           FaultingElsewhereText() + window("1E0", "0X200") +
                           "Agent 4, Queue ID 7: fault wave PC: 0X00007F0000001300\n" +
                           WaveText("code_object_0\nPC offset: 0X300\n", 0x7F0000001300, 0x100) +
                           window("2E0", "0X300") + fault));
}

TEST_F(AgentWavesTest, WaveFilesOfAnySizeAreWhole) {
  std::string expected = "Total waves count: 1000\n";
  std::vector<Wave> waves(1000);
  for (size_t i = 0; i < waves.size(); ++i) {
    waves[i].pc = 0x7F0000002000 + i;
    expected += WaveText("\nNot fount code object!!\n", waves[i].pc, 0);
  }
  ASSERT_GT(expected.size(), size_t{1} << 20);
  AddQueue(7, waves);
  EXPECT_EQ(Dump(true).err, "");
  EXPECT_TRUE(SameText(Out("queues/7/waves"), expected));
}

// ---------------------------------------------------------------------------------------------
// What goes wrong

TEST_F(AgentWavesTest, AFailedAddressCheckEndsTheAgent) {
  std::string bad = AreaOf({kRunning});
  sample::PutU32(bad, 0, 20);
  AddQueue(7, {kRunning});
  AddQueueWithArea(8, bad);
  AddQueue(9, {kRunning});
  EXPECT_EQ(Dump(false).err,
            "[time] Error: Ctrl stack / context save address check fail\n"
            "[time] Error: get queue wave states failed\n");
  EXPECT_EQ(Tree(), (Names{"queues/", "queues/7/", "queues/7/cwsr", "queues/8/", "queues/8/cwsr"}));
}

TEST_F(AgentWavesTest, AFailedSizeCheckEndsTheAgent) {
  std::string bad = AreaOf({kRunning, kRunning});
  sample::PutU32(bad, 16 + 3 * 4, 0x40000000);  // an event in place of the second wave
  AddQueueWithArea(7, bad);
  EXPECT_EQ(Dump(false).err,
            "[time] Error: Context save size check fail\n"
            "[time] Error: get queue wave states failed\n");
  EXPECT_EQ(Tree(), (Names{"queues/", "queues/7/", "queues/7/cwsr"}));
  EXPECT_EQ(Out("queues/7/cwsr"), bad);
}

TEST_F(AgentWavesTest, AnAreaThatCannotBeWrittenEndsTheAgent) {
  AddQueue(7, {kRunning});
  Block("queues/7/cwsr");
  EXPECT_EQ(Dump(false).err, "[time] Error: get queue wave states failed\n");
  EXPECT_EQ(Tree(), (Names{"queues/", "queues/7/", "queues/7/cwsr/"}));
}

TEST_F(AgentWavesTest, ATableThatCannotBeWrittenEndsTheAgent) {
  AddQueue(7, {kFaulting});
  Block("agent_4");
  EXPECT_EQ(Dump(false).err, "[time] Error: write str_occupy failed\n");
  EXPECT_EQ(Tree(), (Names{"agent_4/", "queues/", "queues/7/", "queues/7/cwsr"}));
}

TEST_F(AgentWavesTest, AFaultThatCannotBeWrittenEndsTheAgentInSilence) {
  AddQueue(7, {kRunning});
  AddQueue(8, {kFaulting});
  AddQueue(9, {kRunning});
  Block("fault_info");
  EXPECT_EQ(Dump(false).err, "");
  EXPECT_EQ(Tree(),
            (Names{"agent_4", "fault_info/", "queues/", "queues/7/", "queues/7/cwsr",
                   "queues/7/waves", "queues/8/", "queues/8/cwsr", "queues/9/", "queues/9/cwsr"}));
}

TEST_F(AgentWavesTest, WavesThatCannotBeWrittenEndTheAgentInSilence) {
  AddQueue(7, {kFaulting});
  AddQueue(8, {kRunning});
  Block("queues/7/waves");
  EXPECT_EQ(Dump(false).err, "");
  EXPECT_EQ(Tree(), (Names{"agent_4", "fault_info", "queues/", "queues/7/", "queues/7/cwsr",
                           "queues/7/waves/", "queues/8/", "queues/8/cwsr"}));
  EXPECT_EQ(Out("fault_info"),
            "1 wavefronts found error.\n\n"
            "Agent 4, Queue ID 7: fault wave PC: 0X00007F0000001100\n" +
                FaultingText() + FaultingWindow());
}

// A file that ends inside the first wave of the area, which lies on top. The second is reported,
// and what is missing is told.
TEST(CutCoreFileTest, TheWavesThatAreThereAreReported) {
  sample::CoreFile file;
  file.agents.resize(1);
  file.agents[0].gpu_id = kGpuId;
  file.agents[0].node_id = 4;
  file.queues.resize(1);
  file.queues[0].queue_id = 7;
  file.queues[0].gpu_id = kGpuId;
  file.queues[0].queue_type = QUEUE_TYPE_COMPUTE_AQL;
  file.queues[0].context = AreaOf({kOutside, {0x7F0000001234, 0, 0}});
  std::string bytes = sample::CoreFileBytes(file);
  const uint64_t area = sample::Place(file).contexts.at(0);
  ASSERT_EQ(area + file.queues[0].context.size(), bytes.size());
  bytes.resize(bytes.size() - 4);

  const TempDir dir;
  CoreDumpInfo analyser;
  analyser.SetImageSize(bytes.size());
  ASSERT_TRUE(analyser.init(reinterpret_cast<uint64_t>(bytes.data()), dir.Path().c_str(),
                            dir.Path("rocm").c_str(), dir.Path("mems").c_str(), false));
  OutputCapture capture;
  EXPECT_TRUE(analyser.DumpAgentWaves(analyser.agent_lists.at(0)));
  EXPECT_NE(capture.Stop().err, "");
  EXPECT_EQ(ReadText(dir.Path("queues/7/waves")),
            "Total waves count: 1\n" + WaveText("\nNot fount code object!!\n", 0x7F0000001234, 0));
  EXPECT_EQ(ReadText(dir.Path("queues/7/cwsr")), bytes.substr(area));
  EXPECT_EQ(ReadText(dir.Path("agent_4")), OneWave());
  EXPECT_NE(ReadText(dir.Path("damage")), "");
}

// ---------------------------------------------------------------------------------------------
// Recorded waves of a signal dump

TEST_F(AgentWavesTest, WithoutRecordedWavesNothingIsWritten) {
  const Output output = DumpActive("info");
  EXPECT_EQ(output.out, "[time] Warning: agent:gpu-gfx906 is no active wave!\n");
  EXPECT_EQ(output.err, "");
  EXPECT_FALSE(fs::exists(out_));
}

TEST_F(AgentWavesTest, TheWarningIsNotShownByDefault) {
  const Output output = DumpActive();
  EXPECT_EQ(output.out, "");
  EXPECT_EQ(output.err, "");
}

TEST_F(AgentWavesTest, RecordedWavesAreInAFileOfTheirOwn) {
  SetRecords(agent_, {kRunning, kOutside});
  AddQueue(7, {kFaulting});  // not looked at
  const Output output = DumpActive("debug");
  EXPECT_EQ(output.out, "");
  EXPECT_EQ(output.err, "");
  EXPECT_EQ(Tree(), (Names{"agent_4", "agent_4_active_waves"}));
  EXPECT_EQ(Out("agent_4"), TwoWaves());
  EXPECT_EQ(Out("agent_4_active_waves"),
            "Total active waves count: 2\n" +
                ActiveWaveText("code_object_0\nPC offset: 0X234\n", 0x7F0000001234, 0x40000000) +
                ActiveWaveText("\nNot fount code object!!\n", 0x7F0000002000, 0));
}

TEST_F(AgentWavesTest, RecordedWavesOfADp4xAgent) {
  SetRecords(agent_, {kOutside});
  agent_->is_dp4x = true;
  DumpActive();
  EXPECT_EQ(Out("agent_4_active_waves"),
            "Total active waves count: 1\n" +
                ActiveWaveText("\nNot fount code object!!\n", 0x7F0000002000, 0, 2));
}

TEST_F(AgentWavesTest, RecordedWavesAreNotSearchedForFaults) {
  SetRecords(agent_, {{0x7F0000001100, 0, 0x900}});
  DumpActive();
  EXPECT_EQ(Tree(), (Names{"agent_4", "agent_4_active_waves"}));
  EXPECT_EQ(Out("agent_4_active_waves"),
            "Total active waves count: 1\n" +
                ActiveWaveText("code_object_0\nPC offset: 0X100\n", 0x7F0000001100, 0x900));
  EXPECT_TRUE(analyser_.err_code_lists.empty());
}

TEST_F(AgentWavesTest, TheAgentFileIsContinuedAndTheActiveWavesReplaced) {
  fs::create_directory(out_);
  WriteText(out_ + "/agent_4", "agent report\n");
  WriteText(out_ + "/agent_4_active_waves", std::string(100000, 'x'));
  SetRecords(agent_, {kOutside});
  DumpActive();
  EXPECT_EQ(Out("agent_4"), "agent report\n" + OneWave());
  EXPECT_EQ(Out("agent_4_active_waves"),
            "Total active waves count: 1\n" +
                ActiveWaveText("\nNot fount code object!!\n", 0x7F0000002000, 0));
}

TEST_F(AgentWavesTest, OfAgentsWithOneNodeIdTheLastKeepsItsActiveWaves) {
  agent_->node_id = 4000000000;
  SetRecords(agent_, {kOutside, kOutside});
  DumpActive();
  agent_ = AddAgent("gpu-gfx906", kGpuId + 1, 4000000000);
  SetRecords(agent_, {kOutside});
  DumpActive();
  EXPECT_EQ(Tree(), (Names{"agent_4000000000", "agent_4000000000_active_waves"}));
  EXPECT_EQ(Out("agent_4000000000"), TwoWaves() + OneWave());
  EXPECT_EQ(Out("agent_4000000000_active_waves"),
            "Total active waves count: 1\n" +
                ActiveWaveText("\nNot fount code object!!\n", 0x7F0000002000, 0));
}

TEST_F(AgentWavesTest, ATableThatCannotBeWrittenDoesNotEndTheActiveWaves) {
  SetRecords(agent_, {kOutside});
  Block("agent_4");
  EXPECT_EQ(DumpActive().err, "[time] Error: write str_occupy failed\n");
  EXPECT_EQ(Out("agent_4_active_waves"),
            "Total active waves count: 1\n" +
                ActiveWaveText("\nNot fount code object!!\n", 0x7F0000002000, 0));
}

TEST_F(AgentWavesTest, ActiveWavesThatCannotBeWrittenAreLogged) {
  SetRecords(agent_, {kOutside});
  Block("agent_4_active_waves");
  EXPECT_EQ(DumpActive().err, "[time] Error: write wave failed\n");
  EXPECT_EQ(Out("agent_4"), OneWave());
}

TEST_F(AgentWavesTest, NothingOfTheActiveWavesCanBeWritten) {
  SetRecords(agent_, {kOutside});
  WriteText(out_, "a file where the directory should be");
  EXPECT_EQ(DumpActive().err,
            "[time] Error: write str_occupy failed\n"
            "[time] Error: write wave failed\n");
}

TEST_F(AgentWavesTest, ActiveWaveFilesOfAnySizeAreWhole) {
  std::string expected = "Total active waves count: 400\n";
  std::vector<Wave> waves(400);
  for (size_t i = 0; i < waves.size(); ++i) {
    waves[i].pc = 0x7F0000002000 + i;
    expected += ActiveWaveText("\nNot fount code object!!\n", waves[i].pc, 0);
  }
  ASSERT_GT(expected.size(), size_t{1} << 20);
  SetRecords(agent_, waves);
  EXPECT_EQ(DumpActive().err, "");
  EXPECT_TRUE(SameText(Out("agent_4_active_waves"), expected));
}

}  // namespace
