// The context save areas of the queues of an analyser.
#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "captured_output.h"
#include "context_save_areas.h"
#include "core_dump_info.h"
#include "core_file_writer.h"
#include "row_name.h"
#include "temp_dir.h"

namespace {

constexpr uint32_t kGpuId = 100;

class QueueWaveStatesTest : public testing::Test {
 protected:
  QueueWaveStatesTest() {
    analyser_.dump_queue_dir_ = dir_.Path("queues");
    agent_.gpu_id = kGpuId;
    agent_.chip_id = 0x5001;
  }

  // The area must outlive the queue.
  CoreDumpQueue* AddQueue(uint32_t queue_id, const std::string& area,
                          uint32_t queue_type = QUEUE_TYPE_COMPUTE_AQL, uint32_t gpu_id = kGpuId) {
    auto* queue = new CoreDumpQueue();
    queue->queue_id = queue_id;
    queue->gpu_id = gpu_id;
    queue->queue_type = queue_type;
    queue->context_offset = reinterpret_cast<uint64_t>(area.data());
    queue->context_sr_size = area.size();
    return analyser_.queue_lists.emplace_back(queue);
  }

  // What a call says, time stamps as "[time]".
  template <typename Call>
  std::string Errors(Call call) {
    OutputCapture capture;
    call();
    const Output output = capture.Stop();
    EXPECT_EQ(output.out, "");
    return WithoutTimes(output.err);
  }

  TempDir dir_;
  CoreDumpAgent agent_ = {};
  CoreDumpInfo analyser_;
  QueueWaveMap waves_;
};

using Tree = std::vector<std::string>;

TEST_F(QueueWaveStatesTest, WavesStandUnderTheQueueId) {
  const std::string area = AreaOfDistinctWave();
  EXPECT_TRUE(analyser_.GetQueueWaveStates(&agent_, AddQueue(7, area), waves_));
  ASSERT_EQ(waves_.size(), 1u);
  ASSERT_EQ(waves_[7].size(), 1u);
  const WaveStateInfo& wave = waves_[7][0];
  ExpectDistinctRegisters(wave);
  EXPECT_EQ(wave.num_vgprs, 8u);
  EXPECT_EQ(wave.num_sgprs, 16u);
  EXPECT_EQ(wave.lds_size_dw, 128u);
  // Header, four words of control stack.
  EXPECT_EQ(OffsetIn(area, wave.vgprs), 32);
  EXPECT_EQ(OffsetIn(area, wave.sgprs), 32 + 8 * 64 * 4);
  EXPECT_EQ(OffsetIn(area, wave.lds), 32 + 8 * 64 * 4 + 16 * 4 + 16 * 4 + 16 * 4);
}

TEST_F(QueueWaveStatesTest, TheRawAreaIsWritten) {
  const std::string area = AreaOfDistinctWave() + "behind the waves";
  EXPECT_TRUE(analyser_.GetQueueWaveStates(&agent_, AddQueue(4000000000, area), waves_));
  EXPECT_EQ(ListTree(dir_.Path()),
            (Tree{"queues/", "queues/4000000000/", "queues/4000000000/cwsr"}));
  EXPECT_EQ(ReadText(dir_.Path("queues/4000000000/cwsr")), area);
}

TEST_F(QueueWaveStatesTest, AQueueWithoutWavesHasAnEmptyEntry) {
  const std::string area = AreaOf({});
  EXPECT_TRUE(analyser_.GetQueueWaveStates(&agent_, AddQueue(7, area), waves_));
  ASSERT_EQ(waves_.count(7), 1u);
  EXPECT_TRUE(waves_[7].empty());
}

TEST_F(QueueWaveStatesTest, ReadTwiceAQueueHasItsWavesTwice) {
  const std::string& area = TwoWavesWithLds();
  CoreDumpQueue* queue = AddQueue(7, area);
  EXPECT_TRUE(analyser_.GetQueueWaveStates(&agent_, queue, waves_));
  EXPECT_TRUE(analyser_.GetQueueWaveStates(&agent_, queue, waves_));
  ASSERT_EQ(waves_[7].size(), 4u);
  EXPECT_EQ(waves_[7][0].vgprs, waves_[7][2].vgprs);
  EXPECT_EQ(waves_[7][1].vgprs, waves_[7][3].vgprs);
}

TEST_F(QueueWaveStatesTest, WithoutAnAgentNothingIsRead) {
  const std::string& area = TwoWavesWithLds();
  CoreDumpQueue* queue = AddQueue(7, area);
  EXPECT_EQ(Errors([&] { EXPECT_FALSE(analyser_.GetQueueWaveStates(nullptr, queue, waves_)); }),
            "[time] Error: invalid args for agent info or queue info.\n");
  EXPECT_TRUE(waves_.empty());
  EXPECT_EQ(ListTree(dir_.Path()), Tree{});
}

TEST_F(QueueWaveStatesTest, WithoutAQueueNothingIsRead) {
  EXPECT_EQ(Errors([&] { EXPECT_FALSE(analyser_.GetQueueWaveStates(&agent_, nullptr, waves_)); }),
            "[time] Error: invalid args for agent info or queue info.\n");
  EXPECT_TRUE(waves_.empty());
}

TEST_F(QueueWaveStatesTest, AnAreaThatCannotBeWrittenFailsInSilence) {
  const std::string& area = TwoWavesWithLds();
  WriteText(dir_.Path("queues"), "a file where the directory should be");
  CoreDumpQueue* queue = AddQueue(7, area);
  EXPECT_EQ(Errors([&] { EXPECT_FALSE(analyser_.GetQueueWaveStates(&agent_, queue, waves_)); }),
            "");
  EXPECT_TRUE(waves_.empty());
}

// The write comes first and refuses what is nothing, so that no message follows it.
TEST_F(QueueWaveStatesTest, AnAreaAtNoAddressFailsInSilence) {
  CoreDumpQueue* queue = AddQueue(7, TwoWavesWithLds());
  queue->context_offset = 0;
  EXPECT_EQ(Errors([&] { EXPECT_FALSE(analyser_.GetQueueWaveStates(&agent_, queue, waves_)); }),
            "");
  EXPECT_TRUE(waves_.empty());
  EXPECT_EQ(ListTree(dir_.Path()), (Tree{"queues/", "queues/7/"}));
}

TEST_F(QueueWaveStatesTest, AnAreaOfNoSizeFailsInSilence) {
  CoreDumpQueue* queue = AddQueue(7, TwoWavesWithLds());
  queue->context_sr_size = 0;
  EXPECT_EQ(Errors([&] { EXPECT_FALSE(analyser_.GetQueueWaveStates(&agent_, queue, waves_)); }),
            "");
  EXPECT_TRUE(waves_.empty());
  EXPECT_EQ(ListTree(dir_.Path()), (Tree{"queues/", "queues/7/"}));
}

TEST_F(QueueWaveStatesTest, AFailedAddressCheckLeavesTheMapAlone) {
  std::string area = TwoWavesWithLds();
  sample::PutU32(area, 0, 20);
  CoreDumpQueue* queue = AddQueue(7, area);
  EXPECT_EQ(Errors([&] { EXPECT_FALSE(analyser_.GetQueueWaveStates(&agent_, queue, waves_)); }),
            "[time] Error: Ctrl stack / context save address check fail\n");
  EXPECT_TRUE(waves_.empty());
  EXPECT_EQ(ReadText(dir_.Path("queues/7/cwsr")), area);
}

TEST_F(QueueWaveStatesTest, AFailedSizeCheckKeepsTheWaves) {
  const std::string area = AreaWithTooFewWaveBytes();
  CoreDumpQueue* queue = AddQueue(7, area);
  EXPECT_EQ(Errors([&] { EXPECT_FALSE(analyser_.GetQueueWaveStates(&agent_, queue, waves_)); }),
            "[time] Error: Context save size check fail\n");
  ASSERT_EQ(waves_.count(7), 1u);
  EXPECT_EQ(waves_[7].size(), 2u);
  EXPECT_EQ(ReadText(dir_.Path("queues/7/cwsr")), area);
}

TEST_F(QueueWaveStatesTest, AFailedSizeCheckWithoutWavesKeepsTheEmptyEntry) {
  const std::string area = HeaderOnly(16, 8, 32, 8);
  CoreDumpQueue* queue = AddQueue(7, area);
  EXPECT_EQ(Errors([&] { EXPECT_FALSE(analyser_.GetQueueWaveStates(&agent_, queue, waves_)); }),
            "[time] Error: Context save size check fail\n");
  ASSERT_EQ(waves_.count(7), 1u);
  EXPECT_TRUE(waves_[7].empty());
}

struct ChipRow {
  const char* name;
  uint32_t chip_id;
  bool is_dp4x;
  uint32_t vgprs;  // of a state record with 1 in its VGPR field
};

void PrintTo(const ChipRow& row, std::ostream* out) { *out << row.name; }

class QueueWaveGranuleTest : public QueueWaveStatesTest,
                             public testing::WithParamInterface<ChipRow> {};

TEST_P(QueueWaveGranuleTest, ComesFromTheChip) {
  sample::AreaGroup group;
  group.state = 1;
  group.vgpr_count = GetParam().vgprs;
  group.waves.resize(1);
  const std::string area = AreaOf({group});
  agent_.chip_id = GetParam().chip_id;
  agent_.is_dp4x = GetParam().is_dp4x;
  EXPECT_TRUE(analyser_.GetQueueWaveStates(&agent_, AddQueue(7, area), waves_));
  ASSERT_EQ(waves_[7].size(), 1u);
  EXPECT_EQ(waves_[7][0].num_vgprs, GetParam().vgprs);
}

constexpr ChipRow kChipRows[] = {
    {"NoDp4x", 0x5001, false, 8},        {"Dp4x", 0x5001, true, 16},
    {"HeronNoDp4x", 0x500F, false, 8},   {"HeronDp4x", 0x500F, true, 8},
    {"VersionOfHeron", 0x5008, true, 8}, {"KestrelDp4x", 0x5011, true, 16},
    {"UnknownChip", 0x1234, true, 16},   {"HeronInTheLow16Bits", 0xAB500F, true, 8},
};

INSTANTIATE_TEST_SUITE_P(Chips, QueueWaveGranuleTest, testing::ValuesIn(kChipRows),
                         RowName<ChipRow>);

TEST_F(QueueWaveStatesTest, AnAgentWithoutQueuesHasNoWaves) {
  EXPECT_TRUE(analyser_.GetQueuesWaveStates(&agent_, waves_));
  EXPECT_TRUE(waves_.empty());
}

TEST_F(QueueWaveStatesTest, OnlyAqlQueuesOfTheAgentAreRead) {
  const std::string& area = TwoWavesWithLds();
  AddQueue(1, area, QUEUE_TYPE_COMPUTE);
  AddQueue(2, area, QUEUE_TYPE_SDMA);
  AddQueue(3, area, QUEUE_TYPE_COMPUTE_AQL);
  AddQueue(4, area, QUEUE_TYPE_SDMA_XGMI);
  AddQueue(5, area, QUEUE_TYPE_COMPUTE_AQL, kGpuId + 1);
  AddQueue(6, area, 6);
  AddQueue(0, area, QUEUE_TYPE_COMPUTE_AQL);
  EXPECT_TRUE(analyser_.GetQueuesWaveStates(&agent_, waves_));
  ASSERT_EQ(waves_.size(), 2u);
  EXPECT_EQ(waves_[0].size(), 2u);
  EXPECT_EQ(waves_[3].size(), 2u);
  EXPECT_EQ(ListTree(dir_.Path("queues")), (Tree{"0/", "0/cwsr", "3/", "3/cwsr"}));
}

TEST_F(QueueWaveStatesTest, QueuesBehindAFailureAreNotRead) {
  const std::string& good = TwoWavesWithLds();
  std::string bad = good;
  sample::PutU32(bad, 0, 20);
  AddQueue(9, good);
  AddQueue(5, bad);
  AddQueue(1, good);
  EXPECT_EQ(Errors([&] { EXPECT_FALSE(analyser_.GetQueuesWaveStates(&agent_, waves_)); }),
            "[time] Error: Ctrl stack / context save address check fail\n");
  EXPECT_EQ(waves_.size(), 1u);
  EXPECT_EQ(waves_[9].size(), 2u);
  EXPECT_EQ(ListTree(dir_.Path("queues")), (Tree{"5/", "5/cwsr", "9/", "9/cwsr"}));
}

TEST_F(QueueWaveStatesTest, QueuesWithOneIdShareTheirEntry) {
  const std::string& area = TwoWavesWithLds();
  AddQueue(7, area);
  AddQueue(7, area);
  EXPECT_TRUE(analyser_.GetQueuesWaveStates(&agent_, waves_));
  EXPECT_EQ(waves_.size(), 1u);
  EXPECT_EQ(waves_[7].size(), 4u);
}

}  // namespace
