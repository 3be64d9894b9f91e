#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "core_dump_info.h"
#include "core_file_writer.h"
#include "loaded_core_file.h"

namespace {

static_assert(std::has_virtual_destructor_v<CoreDumpInfo>);
static_assert(!std::is_copy_constructible_v<CoreDumpInfo>);
static_assert(!std::is_copy_assignable_v<CoreDumpInfo>);

// An analyser whose lists a test fills with records of its own; it deletes them.
class AnalyserTest : public testing::Test {
 protected:
  CoreDumpAgent* AddAgent(uint64_t handle) {
    auto* agent = new CoreDumpAgent();
    agent->agent.handle = handle;
    return analyser_.agent_lists.emplace_back(agent);
  }

  CoreDumpQueue* AddQueue(uint32_t queue_id, uint32_t gpu_id, uint64_t ring_address) {
    auto* queue = new CoreDumpQueue();
    queue->queue_id = queue_id;
    queue->gpu_id = gpu_id;
    queue->ring_address = ring_address;
    return analyser_.queue_lists.emplace_back(queue);
  }

  CodeObjectInfo* AddCodeObject(uint64_t addr_loaded, size_t size_loaded) {
    auto* code_object = new CodeObjectInfo();
    code_object->addr_loaded = addr_loaded;
    code_object->size_loaded = size_loaded;
    return analyser_.code_object_lists.emplace_back(code_object);
  }

  static KernelInfo* AddKernel(CodeObjectInfo* code_object, uint64_t loaded_addr) {
    auto* kernel = new KernelInfo();
    kernel->loaded_addr = loaded_addr;
    return code_object->kernel_list.emplace_back(kernel);
  }

  CoreDumpInfo analyser_;
};

TEST_F(AnalyserTest, StartsEmpty) {
  EXPECT_EQ(analyser_.dump_dir_, "");
  EXPECT_EQ(analyser_.dump_code_dir_, "");
  EXPECT_EQ(analyser_.dump_queue_dir_, "");
  EXPECT_EQ(analyser_.rocm_dir_, "");
  EXPECT_EQ(analyser_.current_dir_, "");
  EXPECT_EQ(analyser_.mem_dir_, "");
  EXPECT_TRUE(analyser_.agent_lists.empty());
  EXPECT_TRUE(analyser_.queue_lists.empty());
  EXPECT_TRUE(analyser_.code_object_lists.empty());
  EXPECT_TRUE(analyser_.err_code_lists.empty());
  EXPECT_TRUE(analyser_.mem_info_map.empty());
}

TEST_F(AnalyserTest, LookupsInEmptyListsFindNothing) {
  std::vector<CoreDumpQueue*> queues;
  analyser_.GetQueueInfoByGpuId(0, queues);
  EXPECT_TRUE(queues.empty());
  EXPECT_EQ(analyser_.GetAgentInfo({0}), nullptr);
  EXPECT_EQ(analyser_.GetQueueInfoByQueueId(0), nullptr);
  EXPECT_EQ(analyser_.GetQueueIdByRing(0), 0xFFFFFFFFu);
  EXPECT_EQ(analyser_.GetKernelFromList(0), nullptr);
  EXPECT_EQ(analyser_.GetCodeObjectFromList(0), nullptr);
  EXPECT_EQ(analyser_.GetCodeObjectByPC(0), nullptr);
}

TEST_F(AnalyserTest, AnAgentIsFoundByItsHandle) {
  AddAgent(0x10);
  CoreDumpAgent* second = AddAgent(0x1'0000'0010);
  EXPECT_EQ(analyser_.GetAgentInfo({0x1'0000'0010}), second);
  EXPECT_EQ(analyser_.GetAgentInfo({0x20}), nullptr);
}

TEST_F(AnalyserTest, OfTwoAgentsWithOneHandleTheFirstIsFound) {
  CoreDumpAgent* first = AddAgent(0x10);
  AddAgent(0x10);
  EXPECT_EQ(analyser_.GetAgentInfo({0x10}), first);
}

TEST_F(AnalyserTest, AQueueIsFoundByItsId) {
  AddQueue(1, 100, 0xA000);
  CoreDumpQueue* second = AddQueue(2, 100, 0xB000);
  AddQueue(2, 100, 0xC000);
  EXPECT_EQ(analyser_.GetQueueInfoByQueueId(2), second);
  EXPECT_EQ(analyser_.GetQueueInfoByQueueId(3), nullptr);
}

TEST_F(AnalyserTest, AQueueIdIsFoundByTheRing) {
  AddQueue(1, 100, 0xA000);
  AddQueue(2, 100, 0xB000);
  AddQueue(3, 100, 0xB000);
  EXPECT_EQ(analyser_.GetQueueIdByRing(0xB000), 2u);
}

TEST_F(AnalyserTest, AnUnknownRingGivesAllOnes) {
  AddQueue(1, 100, 0xA000);
  EXPECT_EQ(analyser_.GetQueueIdByRing(0xA001), 0xFFFFFFFFu);
}

TEST_F(AnalyserTest, TheQueuesOfAGpuAreAppendedInFileOrder) {
  CoreDumpQueue* earlier = AddQueue(9, 7, 0);
  CoreDumpQueue* first = AddQueue(5, 100, 0);
  AddQueue(1, 200, 0);
  CoreDumpQueue* second = AddQueue(3, 100, 0);
  std::vector<CoreDumpQueue*> queues = {earlier};
  analyser_.GetQueueInfoByGpuId(100, queues);
  EXPECT_EQ(queues, (std::vector<CoreDumpQueue*>{earlier, first, second}));
}

TEST_F(AnalyserTest, AnUnknownGpuAppendsNothing) {
  CoreDumpQueue* queue = AddQueue(1, 100, 0);
  std::vector<CoreDumpQueue*> queues = {queue};
  analyser_.GetQueueInfoByGpuId(101, queues);
  EXPECT_EQ(queues, (std::vector<CoreDumpQueue*>{queue}));
}

TEST_F(AnalyserTest, AKernelAndItsCodeObjectAreFoundByTheExactEntryAddress) {
  AddKernel(AddCodeObject(0x1000, 0x1000), 0x1100);
  CodeObjectInfo* code_object = AddCodeObject(0x2000, 0x1000);
  AddKernel(code_object, 0x2100);
  KernelInfo* kernel = AddKernel(code_object, 0x2200);
  EXPECT_EQ(analyser_.GetKernelFromList(0x2200), kernel);
  EXPECT_EQ(analyser_.GetCodeObjectFromList(0x2200), code_object);
}

TEST_F(AnalyserTest, AnAddressInsideAKernelIsNoEntryAddress) {
  AddKernel(AddCodeObject(0x1000, 0x1000), 0x1100);
  EXPECT_EQ(analyser_.GetKernelFromList(0x1101), nullptr);
  EXPECT_EQ(analyser_.GetCodeObjectFromList(0x1101), nullptr);
  EXPECT_EQ(analyser_.GetCodeObjectFromList(0x1000), nullptr);
}

TEST_F(AnalyserTest, OfTwoKernelsAtOneAddressTheFirstIsFound) {
  CodeObjectInfo* first_object = AddCodeObject(0x1000, 0x1000);
  CodeObjectInfo* second_object = AddCodeObject(0x2000, 0x1000);
  AddKernel(second_object, 0x1100);
  KernelInfo* first_kernel = AddKernel(first_object, 0x1100);
  EXPECT_EQ(analyser_.GetKernelFromList(0x1100), first_kernel);
  EXPECT_EQ(analyser_.GetCodeObjectFromList(0x1100), first_object);
}

TEST_F(AnalyserTest, ACodeObjectHoldsItsFirstAndLastByte) {
  CodeObjectInfo* code_object = AddCodeObject(0x1000, 0x100);
  EXPECT_EQ(analyser_.GetCodeObjectByPC(0x1000), code_object);
  EXPECT_EQ(analyser_.GetCodeObjectByPC(0x10FF), code_object);
}

TEST_F(AnalyserTest, ACodeObjectDoesNotHoldTheBytesAroundIt) {
  AddCodeObject(0x1000, 0x100);
  EXPECT_EQ(analyser_.GetCodeObjectByPC(0xFFF), nullptr);
  EXPECT_EQ(analyser_.GetCodeObjectByPC(0x1100), nullptr);
}

TEST_F(AnalyserTest, OfOverlappingCodeObjectsTheFirstInTheFileIsFound) {
  CodeObjectInfo* first = AddCodeObject(0x1800, 0x1000);
  CodeObjectInfo* second = AddCodeObject(0x1000, 0x1000);
  EXPECT_EQ(analyser_.GetCodeObjectByPC(0x1900), first);
  EXPECT_EQ(analyser_.GetCodeObjectByPC(0x1700), second);
}

TEST_F(AnalyserTest, ACodeObjectOfNoSizeHoldsNothing) {
  AddCodeObject(0x1000, 0);
  EXPECT_EQ(analyser_.GetCodeObjectByPC(0x1000), nullptr);
}

TEST_F(AnalyserTest, FaultingCodeObjectsAreListedOnceInTheOrderOfTheirFirstFault) {
  CodeObjectInfo* first = AddCodeObject(0x1000, 0x100);
  CodeObjectInfo* second = AddCodeObject(0x2000, 0x100);
  analyser_.AddErrorCodeObject(second);
  analyser_.AddErrorCodeObject(first);
  analyser_.AddErrorCodeObject(second);
  EXPECT_EQ(analyser_.err_code_lists, (std::vector<CodeObjectInfo*>{second, first}));
}

TEST_F(AnalyserTest, FaultingCodeObjectsAreToldApartByTheirLoadedRange) {
  CodeObjectInfo* code_object = AddCodeObject(0x1000, 0x100);
  CodeObjectInfo* same_range = AddCodeObject(0x1000, 0x100);
  CodeObjectInfo* longer = AddCodeObject(0x1000, 0x200);
  analyser_.AddErrorCodeObject(code_object);
  analyser_.AddErrorCodeObject(same_range);
  analyser_.AddErrorCodeObject(longer);
  EXPECT_EQ(analyser_.err_code_lists, (std::vector<CodeObjectInfo*>{code_object, longer}));
}

TEST_F(AnalyserTest, NoCodeObjectIsNotListed) {
  analyser_.AddErrorCodeObject(nullptr);
  EXPECT_TRUE(analyser_.err_code_lists.empty());
}

// Makes an analyser that owns two records of each kind, and deletes it.
[[noreturn]] void DeleteFullAnalyser() {
  auto analyser = std::make_unique<CoreDumpInfo>();
  analyser->agent_lists = {new CoreDumpAgent(), new CoreDumpAgent()};
  analyser->queue_lists = {new CoreDumpQueue(), new CoreDumpQueue()};
  analyser->code_object_lists = {new CodeObjectInfo(), new CodeObjectInfo()};
  for (CodeObjectInfo* code_object : analyser->code_object_lists) {
    code_object->kernel_list = {new KernelInfo(), new KernelInfo()};
    analyser->err_code_lists.push_back(code_object);
  }
  analyser->mem_info_map[0x1000] = {0x1000, 16, 0, "snapshot", {1, 2}};
  analyser.reset();
  exit(0);
}

// The allocator ends the process at a record that is deleted twice, the leak checker at one that
// never is: a faulting code object stands in two lists and belongs to one.
TEST_F(AnalyserTest, DeletesEveryRecordOnce) {
  EXPECT_EXIT(DeleteFullAnalyser(), testing::ExitedWithCode(0), "");
}

// The records as init makes them of a core file.
using LoadedAnalyserTest = LoadedCoreFileTest;

sample::CodeObject CodeObject(uint64_t agent) {
  sample::CodeObject code_object;
  code_object.addr_loaded = 0x7F0000000000;
  code_object.size_loaded = 0x3000;
  code_object.agent = agent;
  code_object.elf = "elf";
  return code_object;
}

TEST_F(LoadedAnalyserTest, ACodeObjectPointsToItsAgent) {
  sample::CoreFile file;
  file.agents.resize(2);
  file.agents[0].handle = 0x10;
  file.agents[1].handle = 0x20;
  file.code_objects = {CodeObject(0x20)};
  ASSERT_TRUE(Load(file));
  EXPECT_EQ(analyser_.code_object_lists.at(0)->AgentInfo, analyser_.agent_lists.at(1));
}

TEST_F(LoadedAnalyserTest, ACodeObjectWithoutAgentPointsToNone) {
  sample::CoreFile file;
  file.agents.resize(1);
  file.agents[0].handle = 0x10;
  file.code_objects = {CodeObject(0x30)};
  ASSERT_TRUE(Load(file));
  EXPECT_EQ(analyser_.code_object_lists.at(0)->AgentInfo, nullptr);
}

TEST_F(LoadedAnalyserTest, ACodeObjectHoldsItsRangeAndItsKernelsInFileOrder) {
  sample::CoreFile file;
  file.code_objects = {CodeObject(0)};
  file.code_objects[0].kernels = {{0x7F0000002000, "second_in_memory"},
                                  {0x7F0000001000, "first_in_memory"}};
  ASSERT_TRUE(Load(file));
  const CodeObjectInfo& code_object = *analyser_.code_object_lists.at(0);
  EXPECT_EQ(code_object.addr_loaded, 0x7F0000000000u);
  EXPECT_EQ(code_object.size_loaded, 0x3000u);
  ASSERT_EQ(code_object.kernel_list.size(), 2u);
  EXPECT_EQ(code_object.kernel_list[0]->loaded_addr, 0x7F0000002000u);
  EXPECT_STREQ(code_object.kernel_list[0]->name, "second_in_memory");
  EXPECT_EQ(code_object.kernel_list[1]->loaded_addr, 0x7F0000001000u);
  EXPECT_STREQ(code_object.kernel_list[1]->name, "first_in_memory");
}

TEST_F(LoadedAnalyserTest, LocationsAreAddressesInTheMapping) {
  sample::CoreFile file;
  file.agents.resize(1);
  file.agents[0].waves.resize(1);
  file.queues.resize(1);
  file.queues[0].ring = std::string(64, 'r');
  file.queues[0].context = std::string(32, 'c');
  ASSERT_TRUE(Load(file));
  const sample::Placement placement = sample::Place(file);
  EXPECT_EQ(analyser_.agent_lists.at(0)->wave_offset, Base() + placement.waves.at(0));
  EXPECT_EQ(analyser_.queue_lists.at(0)->ring_offset, Base() + placement.rings.at(0));
  EXPECT_EQ(analyser_.queue_lists.at(0)->context_offset, Base() + placement.contexts.at(0));
}

TEST_F(LoadedAnalyserTest, RecordsStandInFileOrder) {
  sample::CoreFile file;
  file.agents.resize(2);
  file.agents[0].name = "gfx-b";
  file.agents[1].name = "gfx-a";
  file.queues.resize(2);
  file.queues[0].queue_id = 9;
  file.queues[1].queue_id = 3;
  ASSERT_TRUE(Load(file));
  ASSERT_EQ(analyser_.agent_lists.size(), 2u);
  EXPECT_STREQ(analyser_.agent_lists[0]->name, "gfx-b");
  EXPECT_STREQ(analyser_.agent_lists[1]->name, "gfx-a");
  ASSERT_EQ(analyser_.queue_lists.size(), 2u);
  EXPECT_EQ(analyser_.queue_lists[0]->queue_id, 9u);
  EXPECT_EQ(analyser_.queue_lists[1]->queue_id, 3u);
}

}  // namespace
