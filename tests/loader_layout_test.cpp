// Every field of every record of a core file, wherever its region lies.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "core_dump_info.h"
#include "core_file_writer.h"
#include "loader_fixture.h"
#include "row_name.h"
#include "temp_dir.h"

namespace {

using sample::CoreFile;
using sample::Region;
using Names = std::vector<std::string>;

std::string BytesAt(uint64_t address, size_t size) {
  return {reinterpret_cast<const char*>(address), size};
}

constexpr uint64_t kAgentHandleA = 0xAAAA000011112222;
constexpr uint64_t kAgentHandleB = 0xBBBB000033334444;

sample::SavedWave FullWave() {
  sample::SavedWave wave;
  wave.mode = 0x101;
  wave.status = 0x102;
  wave.trapsts = 0x103;
  wave.hw_id = 0x104;
  wave.gpr_alloc = 0x105;
  wave.lds_alloc = 0x106;
  wave.ib_sts = 0x107;
  wave.pc = 0x0000010900000108;
  wave.inst_dw0 = 0x10A;
  wave.inst_dw1 = 0x10B;
  wave.ib_dbg0 = 0x10C;
  wave.ib_dbg1 = 0x10D;
  wave.m0 = 0x10E;
  wave.exec = 0x000001100000010F;
  wave.vgprs.assign(16384, 0x55);
  wave.vgprs.front() = 0x201;
  wave.vgprs.back() = 0x202;
  wave.sgprs.assign(1024, 0x66);
  wave.sgprs.front() = 0x301;
  wave.sgprs.back() = 0x302;
  return wave;
}

CoreFile FullFile() {
  CoreFile file;
  file.version = {1, 2, 3};
  file.reason.reason = 1;
  file.reason.agent_name = "gfx-b";
  file.reason.node_id = 3;
  file.reason.fault_reason_mask = 0x80000011;
  file.reason.virtual_address = 0x7F1234567000;
  file.reason.status = 0x1004;
  file.reason.ring_addr = 0x7F0000100000;
  file.reason.sig = -15;

  file.agents.resize(2);
  sample::Agent& a = file.agents[0];
  a.name = "gfx-a";
  a.gpu_id = 0xF0000001;
  a.node_id = 2;
  a.drm_id = 128;
  a.location_id = 0x3B00;
  a.pci_domain_id = -1;
  a.pci_bus_id = 0x3B;
  a.pci_device_id = -7;
  a.chip_id = 0x1234ABCD;
  a.is_dp4x = true;
  a.num_cus = 60;
  a.max_engine_freq = 1801;
  a.max_memory_freq = 1000;
  a.waves_per_cu = 40;
  a.num_simds_per_cu = 4;
  a.num_ses = 8;
  a.handle = kAgentHandleA;
  a.waves = {FullWave(), FullWave()};
  file.agents[1].name = "gfx-b";
  file.agents[1].gpu_id = 0xF0000002;
  file.agents[1].handle = kAgentHandleB;

  file.queues.resize(2);
  sample::Queue& q = file.queues[0];
  q.queue_id = 10;
  q.is_suspended = 11;
  q.gpu_id = 0xF0000001;
  q.queue_type = 2;
  q.queue_format = 12;
  q.eop_address = 0x1300000000000001;
  q.eop_size = 0x1400000000000001;
  q.mqd_address = 0x1500000000000001;
  q.doorbell_offset = 0x1600000000000001;
  q.ring_address = 0x1700000000000001;
  q.wptr_address = 0x1800000000000001;
  q.rptr_address = 0x1900000000000001;
  q.wptr_value = 0x1A00000000000001;
  q.rptr_value = 0x1B00000000000001;
  q.context_sr_address = 0x1C00000000000001;
  q.control_stack_size = 0x1D00000000000001;
  q.ring = "first ring";
  q.context = "first context";
  file.queues[1].queue_id = 0xFFFFFFFF;
  file.queues[1].queue_type = 1;
  file.queues[1].ring = "ring";
  file.queues[1].context = "context";

  file.code_objects.resize(3);
  sample::CodeObject& c = file.code_objects[0];
  c.addr_loaded = 0x7F0000000000;
  c.size_loaded = 0x2000;
  c.addr_elf = kWild;
  c.agent = kAgentHandleB;
  c.elf = std::string(
      "\x7F"
      "ELF\0\1\2\xFF",
      8);
  c.kernels = {{0x7F0000000100, "copy"}, {0x7F0000000200, "scale(float*, int)"}};
  file.code_objects[1].agent = 0xCCCC;
  file.code_objects[1].elf = "second image";
  file.code_objects[2].addr_loaded = 0xFFFFFFFFFFFFF000;
  file.code_objects[2].size_loaded = 0x1000;
  file.code_objects[2].agent = kAgentHandleA;
  file.code_objects[2].elf = "3";
  file.code_objects[2].kernels = {{0xFFFFFFFFFFFFF0F0, "last"}};

  file.environment = "HOME=/root\nEMPTY=\nPATH=/usr/bin:/bin\n";
  return file;
}

void ExpectReason(const CoreDumpReasonInfo& reason) {
  EXPECT_EQ(reason.reason, 1u);
  EXPECT_STREQ(reason.agent_name, "gfx-b");
  EXPECT_EQ(reason.node_id, 3u);
  EXPECT_EQ(reason.fault_reason_mask, 0x80000011u);
  EXPECT_EQ(reason.virtual_address, 0x7F1234567000u);
  EXPECT_EQ(reason.status, 0x1004u);
  EXPECT_EQ(reason.ring_addr, 0x7F0000100000u);
  EXPECT_EQ(reason.sig, -15);
}

void ExpectFirstAgent(const CoreDumpAgent& agent) {
  EXPECT_STREQ(agent.name, "gfx-a");
  EXPECT_EQ(agent.gpu_id, 0xF0000001u);
  EXPECT_EQ(agent.node_id, 2u);
  EXPECT_EQ(agent.drm_id, 128u);
  EXPECT_EQ(agent.location_id, 0x3B00u);
  EXPECT_EQ(agent.pci_domain_id, -1);
  EXPECT_EQ(agent.pci_bus_id, 0x3B);
  EXPECT_EQ(agent.pci_device_id, -7);
  EXPECT_EQ(agent.chip_id, 0x1234ABCDu);
  EXPECT_TRUE(agent.is_dp4x);
  EXPECT_EQ(agent.num_cus, 60u);
  EXPECT_EQ(agent.max_engine_freq, 1801u);
  EXPECT_EQ(agent.max_memory_freq, 1000u);
  EXPECT_EQ(agent.waves_per_cu, 40u);
  EXPECT_EQ(agent.num_simds_per_cu, 4u);
  EXPECT_EQ(agent.num_ses, 8u);
  EXPECT_EQ(agent.agent.handle, kAgentHandleA);
  EXPECT_EQ(agent.wave_count, 2u);
}

void ExpectWave(const WaveInfo& wave) {
  EXPECT_EQ(wave.mode, 0x101u);
  EXPECT_EQ(wave.status, 0x102u);
  EXPECT_EQ(wave.trapsts, 0x103u);
  EXPECT_EQ(wave.hw_id, 0x104u);
  EXPECT_EQ(wave.gpr_alloc, 0x105u);
  EXPECT_EQ(wave.lds_alloc, 0x106u);
  EXPECT_EQ(wave.ib_sts, 0x107u);
  EXPECT_EQ(wave.pc_lo, 0x108u);
  EXPECT_EQ(wave.pc_hi, 0x109u);
  EXPECT_EQ(wave.inst_dw0, 0x10Au);
  EXPECT_EQ(wave.inst_dw1, 0x10Bu);
  EXPECT_EQ(wave.ib_dbg0, 0x10Cu);
  EXPECT_EQ(wave.ib_dbg1, 0x10Du);
  EXPECT_EQ(wave.m0, 0x10Eu);
  EXPECT_EQ(wave.exec_lo, 0x10Fu);
  EXPECT_EQ(wave.exec_hi, 0x110u);
  EXPECT_EQ(wave.vgprs[0], 0x201u);
  EXPECT_EQ(wave.vgprs[1], 0x55u);
  EXPECT_EQ(wave.vgprs[16383], 0x202u);
  EXPECT_EQ(wave.sgprs[0], 0x301u);
  EXPECT_EQ(wave.sgprs[1], 0x66u);
  EXPECT_EQ(wave.sgprs[1023], 0x302u);
}

void ExpectFirstQueue(const CoreDumpQueue& queue) {
  EXPECT_EQ(queue.queue_id, 10u);
  EXPECT_EQ(queue.is_suspended, 11u);
  EXPECT_EQ(queue.gpu_id, 0xF0000001u);
  EXPECT_EQ(queue.queue_type, 2u);
  EXPECT_EQ(queue.queue_format, 12u);
  EXPECT_EQ(queue.eop_address, 0x1300000000000001u);
  EXPECT_EQ(queue.eop_size, 0x1400000000000001u);
  EXPECT_EQ(queue.mqd_address, 0x1500000000000001u);
  EXPECT_EQ(queue.doorbell_offset, 0x1600000000000001u);
  EXPECT_EQ(queue.ring_address, 0x1700000000000001u);
  EXPECT_EQ(queue.ring_size, 10u);
  EXPECT_EQ(queue.wptr_address, 0x1800000000000001u);
  EXPECT_EQ(queue.rptr_address, 0x1900000000000001u);
  EXPECT_EQ(queue.wptr_value, 0x1A00000000000001u);
  EXPECT_EQ(queue.rptr_value, 0x1B00000000000001u);
  EXPECT_EQ(queue.context_sr_address, 0x1C00000000000001u);
  EXPECT_EQ(queue.context_sr_size, 13u);
  EXPECT_EQ(queue.control_stack_size, 0x1D00000000000001u);
}

struct LayoutCase {
  std::string name;
  int format;
  sample::Layout layout;
};

void PrintTo(const LayoutCase& row, std::ostream* out) { *out << row.name; }

std::vector<LayoutCase> LayoutCases() {
  const std::vector<Region> backwards = {
      Region::kWaves,       Region::kContexts, Region::kRings,       Region::kElfs,
      Region::kEnvironment, Region::kKernels,  Region::kCodeObjects, Region::kQueues,
      Region::kAgents,      Region::kReason};
  const std::vector<Region> mixed = {
      Region::kRings,   Region::kCodeObjects, Region::kEnvironment, Region::kQueues, Region::kWaves,
      Region::kKernels, Region::kReason,      Region::kContexts,    Region::kAgents, Region::kElfs};
  std::vector<LayoutCase> cases;
  for (const int format : {0, 1}) {
    const std::string version = "V" + std::to_string(format);
    cases.push_back({version + "InOrder", format, {}});
    cases.push_back({version + "Backwards", format, {.order = backwards}});
    cases.push_back({version + "Mixed", format, {.order = mixed}});
    cases.push_back({version + "BackToBack", format, {.order = mixed, .alignment = 1}});
    cases.push_back({version + "OffByOne", format, {.misalignment = 1}});
    cases.push_back({version + "OffBySeven", format, {.order = backwards, .misalignment = 7}});
    cases.push_back({version + "WithGaps", format, {.gap = 1234}});
    cases.push_back({version + "OnPages", format, {.order = mixed, .alignment = 4096, .gap = 1}});
  }
  return cases;
}

class LoaderLayoutTest : public LoaderTest, public testing::WithParamInterface<LayoutCase> {
 protected:
  LoaderLayoutTest() {
    CoreFile file = FullFile();
    file.format = GetParam().format;
    file.layout = GetParam().layout;
    loaded_ = Load(file);
  }

  bool loaded_ = false;
};

TEST_P(LoaderLayoutTest, Reason) {
  ASSERT_TRUE(loaded_);
  ExpectReason(analyser_.reason_info);
}

TEST_P(LoaderLayoutTest, Agents) {
  ASSERT_TRUE(loaded_);
  ASSERT_EQ(analyser_.agent_lists.size(), 2u);
  ExpectFirstAgent(*analyser_.agent_lists[0]);
  const CoreDumpAgent& second = *analyser_.agent_lists[1];
  EXPECT_STREQ(second.name, "gfx-b");
  EXPECT_EQ(second.gpu_id, 0xF0000002u);
  EXPECT_FALSE(second.is_dp4x);
  EXPECT_EQ(second.agent.handle, kAgentHandleB);
  EXPECT_EQ(second.wave_count, 0u);
}

TEST_P(LoaderLayoutTest, WavesLieAtTheAgentsAddress) {
  ASSERT_TRUE(loaded_);
  const auto wave = std::make_unique<WaveInfo>();
  for (uint64_t i = 0; i < 2; ++i) {
    const uint64_t address = analyser_.agent_lists.at(0)->wave_offset + i * 69696;
    memcpy(wave.get(), reinterpret_cast<const void*>(address), 69696);
    ExpectWave(*wave);
  }
}

TEST_P(LoaderLayoutTest, Queues) {
  ASSERT_TRUE(loaded_);
  ASSERT_EQ(analyser_.queue_lists.size(), 2u);
  ExpectFirstQueue(*analyser_.queue_lists[0]);
  const CoreDumpQueue& second = *analyser_.queue_lists[1];
  EXPECT_EQ(second.queue_id, 0xFFFFFFFFu);
  EXPECT_EQ(second.queue_type, 1u);
  EXPECT_EQ(second.ring_size, 4u);
  EXPECT_EQ(second.context_sr_size, 7u);
}

TEST_P(LoaderLayoutTest, RingsAndContextsLieAtTheQueuesAddresses) {
  ASSERT_TRUE(loaded_);
  const auto& queues = analyser_.queue_lists;
  EXPECT_EQ(BytesAt(queues.at(0)->ring_offset, 10), "first ring");
  EXPECT_EQ(BytesAt(queues.at(0)->context_offset, 13), "first context");
  EXPECT_EQ(BytesAt(queues.at(1)->ring_offset, 4), "ring");
  EXPECT_EQ(BytesAt(queues.at(1)->context_offset, 7), "context");
}

TEST_P(LoaderLayoutTest, CodeObjects) {
  ASSERT_TRUE(loaded_);
  const auto& objects = analyser_.code_object_lists;
  ASSERT_EQ(objects.size(), 3u);
  EXPECT_EQ(objects[0]->addr_loaded, 0x7F0000000000u);
  EXPECT_EQ(objects[0]->size_loaded, 0x2000u);
  EXPECT_EQ(objects[0]->AgentInfo, analyser_.agent_lists.at(1));
  EXPECT_EQ(objects[1]->addr_loaded, 0u);
  EXPECT_EQ(objects[1]->size_loaded, 0u);
  EXPECT_EQ(objects[1]->AgentInfo, nullptr);
  EXPECT_EQ(objects[2]->addr_loaded, 0xFFFFFFFFFFFFF000u);
  EXPECT_EQ(objects[2]->size_loaded, 0x1000u);
  EXPECT_EQ(objects[2]->AgentInfo, analyser_.agent_lists.at(0));
  EXPECT_TRUE(analyser_.err_code_lists.empty());
}

TEST_P(LoaderLayoutTest, Kernels) {
  ASSERT_TRUE(loaded_);
  const auto& objects = analyser_.code_object_lists;
  ASSERT_EQ(objects.size(), 3u);
  ASSERT_EQ(objects[0]->kernel_list.size(), 2u);
  EXPECT_EQ(objects[0]->kernel_list[0]->loaded_addr, 0x7F0000000100u);
  EXPECT_STREQ(objects[0]->kernel_list[0]->name, "copy");
  EXPECT_EQ(objects[0]->kernel_list[1]->loaded_addr, 0x7F0000000200u);
  EXPECT_STREQ(objects[0]->kernel_list[1]->name, "scale(float*, int)");
  EXPECT_TRUE(objects[1]->kernel_list.empty());
  ASSERT_EQ(objects[2]->kernel_list.size(), 1u);
  EXPECT_EQ(objects[2]->kernel_list[0]->loaded_addr, 0xFFFFFFFFFFFFF0F0u);
  EXPECT_STREQ(objects[2]->kernel_list[0]->name, "last");
}

TEST_P(LoaderLayoutTest, ElfFiles) {
  ASSERT_TRUE(loaded_);
  EXPECT_EQ(ReadText(CodePath(0)), std::string("\x7F"
                                               "ELF\0\1\2\xFF",
                                               8));
  EXPECT_EQ(ReadText(CodePath(1)), "second image");
  EXPECT_EQ(ReadText(CodePath(2)), "3");
}

TEST_P(LoaderLayoutTest, InfoFiles) {
  ASSERT_TRUE(loaded_);
  EXPECT_EQ(ReadText(CodePath(0, ".info")),
            "Object load addr: 0x7f0000000000\n"
            "Object load size: 0x2000\n"
            "copy:\n"
            "\tkernel loaded addr: 0x7f0000000100\n"
            "scale(float*, int):\n"
            "\tkernel loaded addr: 0x7f0000000200\n");
  EXPECT_EQ(ReadText(CodePath(1, ".info")),
            "Object load addr: 0x0\n"
            "Object load size: 0x0\n");
  EXPECT_EQ(ReadText(CodePath(2, ".info")),
            "Object load addr: 0xfffffffffffff000\n"
            "Object load size: 0x1000\n"
            "last:\n"
            "\tkernel loaded addr: 0xfffffffffffff0f0\n");
}

TEST_P(LoaderLayoutTest, Environment) {
  ASSERT_TRUE(loaded_);
  EXPECT_EQ(ReadText(out_ + "/environment"), "HOME=/root\nEMPTY=\nPATH=/usr/bin:/bin\n");
}

TEST_P(LoaderLayoutTest, WritesNothingElse) {
  ASSERT_TRUE(loaded_);
  Names expected = {"codes/", "environment"};
  for (const CodeObjectInfo* object : analyser_.code_object_lists) {
    expected.push_back(std::string("codes/") + object->name);
    expected.push_back(std::string("codes/") + object->name + ".info");
  }
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(ListTree(out_), expected);
}

INSTANTIATE_TEST_SUITE_P(Layouts, LoaderLayoutTest, testing::ValuesIn(LayoutCases()),
                         RowName<LayoutCase>);

}  // namespace
