// The wave files of an agent: which are written, and what the disassembler has to do with them.
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "agent_waves_fixture.h"
#include "core_dump_info.h"
#include "core_file_writer.h"
#include "occupancy_text.h"
#include "same_text.h"
#include "stand_in_tool.h"
#include "temp_dir.h"

namespace {

namespace fs = std::filesystem;

using Names = std::vector<std::string>;

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
  EXPECT_EQ(Out("agent_4"), occupancy::NoWaves());
}

TEST_F(AgentWavesTest, QueuesOfOtherTypesAndAgentsDoNotCount) {
  AddQueue(7, {kRunning})->queue_type = QUEUE_TYPE_COMPUTE;
  AddQueue(8, {kRunning}, kGpuId + 1);
  EXPECT_EQ(Dump(true).err, "");
  EXPECT_EQ(Tree(), Names{"agent_4"});
  EXPECT_EQ(Out("agent_4"), occupancy::NoWaves());
}

TEST_F(AgentWavesTest, AQueueWithoutWavesHasNoWavesFile) {
  AddQueue(7, {});
  EXPECT_EQ(Dump(true).err, "");
  EXPECT_EQ(Tree(), (Names{"agent_4", "queues/", "queues/7/", "queues/7/cwsr"}));
  EXPECT_EQ(Out("agent_4"), occupancy::NoWaves());
}

TEST_F(AgentWavesTest, WavesWithoutAFaultAreNotInFaultInfo) {
  AddQueue(7, {kRunning, kOutside});
  EXPECT_EQ(Dump(true).err, "");
  EXPECT_EQ(Tree(), (Names{"agent_4", "queues/", "queues/7/", "queues/7/cwsr", "queues/7/waves"}));
  EXPECT_EQ(Out("agent_4"), occupancy::TwoWaves());
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
  EXPECT_EQ(Out("agent_4"), occupancy::OneWave());
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
                SavedWaveText("\nNot fount code object!!\n", 0x7F0000002000, GetParam()));
}
INSTANTIATE_TEST_SUITE_P(Bits, FaultingTrapStsTest,
                         testing::Values(0x100, 0x800, 0x900, 0xFFFFF7FF, 0xFFFFFEFF, 0xFFFFFFFF));

class OtherTrapStsTest : public TrapStsTest {};
TEST_P(OtherTrapStsTest, MakesNoFaultingWave) {
  AddQueue(7, {{0, 0x7F0000002000, GetParam()}});
  EXPECT_EQ(Dump(true).err, "");
  EXPECT_FALSE(fs::exists(out_ + "/fault_info"));
  EXPECT_EQ(Out("queues/7/waves"),
            "Total waves count: 1\n" + SavedWaveText("\nNot fount code object!!\n", 0, GetParam()));
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
  EXPECT_EQ(Out("agent_4000000000"), occupancy::OneWave());
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
  EXPECT_EQ(Out("agent_4"), "agent report\n" + occupancy::OneWave());
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
  EXPECT_EQ(Out("agent_4"), occupancy::OneWave());
  EXPECT_EQ(Out("agent_5"), occupancy::OneWave());
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
  EXPECT_EQ(Out("agent_4"), occupancy::OneWave() + occupancy::TwoWaves());
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
                FaultingText() + DisassemblyUnavailable(dir_.Path("codes/code_object_0")));
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
  const AgentWave third = {0, 0x7F0000001300, 0x100};
  AddQueue(7, {kFaulting, kFaultingElsewhere, third, kFaulting});
  EXPECT_EQ(Dump(true).err, "");
  const std::string fault = "Agent 4, Queue ID 7: fault wave PC: 0X00007F0000001100\n" +
                            FaultingText() + window("E0", "0X100");
  EXPECT_TRUE(SameText(
      Out("fault_info"),
      "4 wavefronts found error.\n\n" + fault +
          "Agent 4, Queue ID 7: fault wave PC: 0X00007F0000003200\n" + FaultingElsewhereText() +
          window("1E0", "0X200") + "Agent 4, Queue ID 7: fault wave PC: 0X00007F0000001300\n" +
          SavedWaveText("code_object_0\nPC offset: 0X300\n", 0x7F0000001300, 0x100) +
          window("2E0", "0X300") + fault));
}

TEST_F(AgentWavesTest, WaveFilesOfAnySizeAreWhole) {
  std::string expected = "Total waves count: 1000\n";
  std::vector<AgentWave> waves(1000);
  for (size_t i = 0; i < waves.size(); ++i) {
    waves[i].pc = 0x7F0000002000 + i;
    expected += SavedWaveText("\nNot fount code object!!\n", waves[i].pc, 0);
  }
  ASSERT_GT(expected.size(), size_t{1} << 20);
  AddQueue(7, waves);
  EXPECT_EQ(Dump(true).err, "");
  EXPECT_TRUE(SameText(Out("queues/7/waves"), expected));
}

}  // namespace
