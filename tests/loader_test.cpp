// Loading: tables and records that are empty, short, long or wild, and texts of fixed size.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "captured_output.h"
#include "core_file_writer.h"
#include "loader_fixture.h"
#include "temp_dir.h"

namespace {

using sample::CoreFile;
using sample::Override;
using sample::Region;
using Names = std::vector<std::string>;

// Of the second header version.
constexpr size_t kFaultSizeOffset = 24;

// ---------------------------------------------------------------------------------------------
// Tables

TEST_F(LoaderTest, WithoutRecordsOnlyTheEnvironmentIsWritten) {
  CoreFile file;
  file.environment = "A=1\n";
  ASSERT_TRUE(Load(file));
  EXPECT_EQ(ListTree(out_), Names{"environment"});
  EXPECT_EQ(ReadText(out_ + "/environment"), "A=1\n");
  EXPECT_TRUE(analyser_.agent_lists.empty());
  EXPECT_TRUE(analyser_.queue_lists.empty());
  EXPECT_TRUE(analyser_.code_object_lists.empty());
  EXPECT_TRUE(analyser_.mem_info_map.empty());
}

class LoaderEmptyTableTest : public LoaderTest, public testing::WithParamInterface<int> {};

TEST_P(LoaderEmptyTableTest, AZeroCountMakesTheOffsetMeaningless) {
  CoreFile file;
  file.format = GetParam();
  const size_t first = file.format == 0 ? 24 : 32;
  file.overrides = {{.offset = first, .value = kWild},        // agents
                    {.offset = first + 16, .value = kWild},   // queues
                    {.offset = first + 32, .value = kWild}};  // code objects
  OutputCapture capture;
  EXPECT_TRUE(Load(file));
  EXPECT_EQ(capture.Stop().err, "");
  EXPECT_EQ(ListTree(out_), Names{"environment"});
}

INSTANTIATE_TEST_SUITE_P(Formats, LoaderEmptyTableTest, testing::Values(0, 1));

TEST_F(LoaderTest, AZeroKernelCountMakesTheOffsetMeaningless) {
  CoreFile file;
  file.code_objects.resize(1);
  file.code_objects[0].elf = "elf";
  file.overrides = {{.record = Override::Record::kCodeObject, .offset = 40, .value = kWild}};
  OutputCapture capture;
  EXPECT_TRUE(Load(file));
  EXPECT_EQ(capture.Stop().err, "");
  EXPECT_TRUE(analyser_.code_object_lists.at(0)->kernel_list.empty());
  EXPECT_EQ(ReadText(CodePath(0, ".info")),
            "Object load addr: 0x0\n"
            "Object load size: 0x0\n");
}

// Nothing but the waves, ring and context addresses is moved into the mapping, and they are not
// followed; sums beyond 64 bits wrap.
TEST_F(LoaderTest, WildOffsetsAreMovedAndNotFollowed) {
  CoreFile file;
  file.agents.resize(1);
  file.queues.resize(1);
  file.overrides = {
      {.record = Override::Record::kAgent, .offset = 1096, .value = 0xFFFFFFFFFFFFFFFF},
      {.record = Override::Record::kQueue, .offset = 104, .value = 0xFFFFFFFFFFFFFFFE},
      {.record = Override::Record::kQueue, .offset = 136, .value = 0xFFFFFFFFFFFFFFFD}};
  ASSERT_TRUE(Load(file));
  EXPECT_EQ(analyser_.agent_lists.at(0)->wave_offset, Base() - 1);
  EXPECT_EQ(analyser_.queue_lists.at(0)->ring_offset, Base() - 2);
  EXPECT_EQ(analyser_.queue_lists.at(0)->context_offset, Base() - 3);
}

TEST_F(LoaderTest, RecordsAreCopies) {
  CoreFile file;
  file.reason.agent_name = "gfx-b";
  file.agents.resize(1);
  file.agents[0].name = "gfx-a";
  file.queues.resize(1);
  file.queues[0].queue_id = 10;
  file.code_objects.resize(1);
  file.code_objects[0].elf = "elf";
  file.code_objects[0].kernels = {{0x100, "copy"}};
  ASSERT_TRUE(Load(file));
  std::fill(file_.begin(), file_.end(), '\xEE');
  EXPECT_STREQ(analyser_.reason_info.agent_name, "gfx-b");
  EXPECT_STREQ(analyser_.agent_lists.at(0)->name, "gfx-a");
  EXPECT_EQ(analyser_.queue_lists.at(0)->queue_id, 10u);
  EXPECT_STREQ(analyser_.code_object_lists.at(0)->kernel_list.at(0)->name, "copy");
}

TEST_F(LoaderTest, EveryDp4xByteButZeroIsTrue) {
  CoreFile file;
  file.agents.resize(3);
  for (size_t i = 0; i < 3; ++i) {
    const uint64_t values[] = {0, 1, 0x80};
    file.overrides.push_back({.record = Override::Record::kAgent,
                              .index = i,
                              .offset = 1056,
                              .width = 1,
                              .value = values[i]});
  }
  ASSERT_TRUE(Load(file));
  EXPECT_FALSE(analyser_.agent_lists.at(0)->is_dp4x);
  EXPECT_TRUE(analyser_.agent_lists.at(1)->is_dp4x);
  EXPECT_TRUE(analyser_.agent_lists.at(2)->is_dp4x);
}

TEST_F(LoaderTest, OfTwoAgentsWithOneHandleTheFirstHasTheCodeObject) {
  CoreFile file;
  file.agents.resize(3);
  file.agents[1].handle = 0x77;
  file.agents[2].handle = 0x77;
  file.code_objects.resize(1);
  file.code_objects[0].agent = 0x77;
  file.code_objects[0].elf = "elf";
  ASSERT_TRUE(Load(file));
  EXPECT_EQ(analyser_.code_object_lists.at(0)->AgentInfo, analyser_.agent_lists.at(1));
}

TEST_F(LoaderTest, AShortReasonRecordIsCopiedAsFarAsItGoes) {
  CoreFile file;
  file.reason = {.reason = 1, .virtual_address = 0x7000, .ring_addr = 0x1111, .sig = 9};
  file.fault_size = 88;
  ASSERT_TRUE(Load(file));
  EXPECT_EQ(analyser_.reason_info.reason, 1u);
  EXPECT_EQ(analyser_.reason_info.virtual_address, 0x7000u);
  EXPECT_EQ(analyser_.reason_info.ring_addr, 0u);
  EXPECT_EQ(analyser_.reason_info.sig, 0);
}

TEST_F(LoaderTest, ALongReasonRecordStaysInItsPlace) {
  CoreFile file;
  file.reason = {.reason = 2, .sig = 15};
  file.agents.resize(1);  // bytes behind the reason record
  file.overrides = {{.offset = kFaultSizeOffset, .value = 1000}};
  OutputCapture capture;
  EXPECT_TRUE(Load(file));
  capture.Stop();
  EXPECT_EQ(analyser_.reason_info.reason, 2u);
  EXPECT_EQ(analyser_.reason_info.sig, 15);
  EXPECT_EQ(analyser_.full_version, 0x10100u);
}

// ---------------------------------------------------------------------------------------------
// Texts of fixed size

TEST_F(LoaderTest, AKernelNameEndsAtItsFirstZeroByte) {
  CoreFile file;
  file.code_objects.resize(1);
  file.code_objects[0].elf = "elf";
  file.code_objects[0].kernels = {{0x100, std::string("copy\0junk", 9)}, {0x200, ""}};
  ASSERT_TRUE(Load(file));
  EXPECT_EQ(ReadText(CodePath(0, ".info")),
            "Object load addr: 0x0\n"
            "Object load size: 0x0\n"
            "copy:\n"
            "\tkernel loaded addr: 0x100\n"
            ":\n"
            "\tkernel loaded addr: 0x200\n");
}

TEST_F(LoaderTest, AKernelNameWithoutTerminatorEndsAtItsSize) {
  CoreFile file;
  file.code_objects.resize(1);
  file.code_objects[0].elf = "elf";
  const std::string name(1024, 'k');
  file.code_objects[0].kernels = {{0x100, name}, {0x200, name}};
  file.layout.order = {Region::kReason,      Region::kAgents, Region::kQueues, Region::kCodeObjects,
                       Region::kEnvironment, Region::kElfs,   Region::kRings,  Region::kContexts,
                       Region::kWaves,       Region::kKernels};  // nothing behind the last name
  ASSERT_TRUE(Load(file));
  EXPECT_EQ(ReadText(CodePath(0, ".info")),
            "Object load addr: 0x0\n"
            "Object load size: 0x0\n" +
                name +
                ":\n"
                "\tkernel loaded addr: 0x100\n" +
                name +
                ":\n"
                "\tkernel loaded addr: 0x200\n");
}

TEST_F(LoaderTest, NamesOfFullLengthAreKeptWhole) {
  CoreFile file;
  file.reason.agent_name = std::string(64, 'r');
  file.reason.node_id = 3;
  file.agents.resize(1);
  file.agents[0].name = std::string(1024, 'a');
  file.agents[0].gpu_id = 7;
  ASSERT_TRUE(Load(file));
  EXPECT_EQ(std::string(analyser_.reason_info.agent_name, 64), std::string(64, 'r'));
  EXPECT_EQ(analyser_.reason_info.node_id, 3u);
  EXPECT_EQ(std::string(analyser_.agent_lists.at(0)->name, 1024), std::string(1024, 'a'));
  EXPECT_EQ(analyser_.agent_lists.at(0)->gpu_id, 7u);
}

}  // namespace
