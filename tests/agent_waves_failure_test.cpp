// What goes wrong while the waves of an agent are reported.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "agent_waves_fixture.h"
#include "captured_output.h"
#include "core_dump_info.h"
#include "core_file_writer.h"
#include "occupancy_text.h"
#include "temp_dir.h"

namespace {

using Names = std::vector<std::string>;

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
  EXPECT_EQ(
      ReadText(dir.Path("queues/7/waves")),
      "Total waves count: 1\n" + SavedWaveText("\nNot fount code object!!\n", 0x7F0000001234, 0));
  EXPECT_EQ(ReadText(dir.Path("queues/7/cwsr")), bytes.substr(area));
  EXPECT_EQ(ReadText(dir.Path("agent_4")), occupancy::OneWave());
  EXPECT_NE(ReadText(dir.Path("damage")), "");
}

}  // namespace
