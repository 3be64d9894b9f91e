// The waves that a signal dump has recorded for an agent.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "agent_waves_fixture.h"
#include "captured_output.h"
#include "occupancy_text.h"
#include "same_text.h"
#include "temp_dir.h"

namespace {

namespace fs = std::filesystem;

using Names = std::vector<std::string>;

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
  EXPECT_EQ(Out("agent_4"), occupancy::TwoWaves());
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
  EXPECT_EQ(Out("agent_4"), "agent report\n" + occupancy::OneWave());
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
  EXPECT_EQ(Out("agent_4000000000"), occupancy::TwoWaves() + occupancy::OneWave());
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
  EXPECT_EQ(Out("agent_4"), occupancy::OneWave());
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
  std::vector<AgentWave> waves(400);
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
