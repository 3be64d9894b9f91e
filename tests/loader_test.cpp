// Loading: core files of both formats to records, files of the code objects and the environment.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "captured_output.h"
#include "core_dump_info.h"
#include "core_file_writer.h"
#include "run_process.h"
#include "temp_dir.h"

namespace {

namespace fs = std::filesystem;

using sample::CoreFile;
using sample::Override;
using sample::Region;
using Names = std::vector<std::string>;

// Fields of the second header version that the tests override.
constexpr size_t kFaultSizeOffset = 24;
constexpr size_t kEnvSizeOffset = 88;

constexpr uint64_t kWild = 0xDEADBEEF00000001;

// Tests with rows are named by the rows.
template <typename Row>
std::string RowName(const testing::TestParamInfo<Row>& row) {
  return row.param.name;
}

std::string BytesAt(uint64_t address, size_t size) {
  return {reinterpret_cast<const char*>(address), size};
}

class LoaderTest : public testing::Test {
 protected:
  // Loads a file of exactly these bytes.
  bool Load(const std::string& bytes) {
    file_.assign(bytes.begin(), bytes.end());
    analyser_.SetImageSize(file_.size());
    return analyser_.init(Base(), out_.c_str(), "/opt/rocm", mems_.c_str(), false);
  }

  bool Load(const CoreFile& file) { return Load(sample::CoreFileBytes(file)); }

  uint64_t Base() const { return reinterpret_cast<uint64_t>(file_.data()); }

  std::string CodePath(size_t index, const std::string& suffix = "") const {
    return out_ + "/codes/" + analyser_.code_object_lists.at(index)->name + suffix;
  }

  TempDir dir_;
  const std::string out_ = dir_.Path("out");
  const std::string mems_ = dir_.Path("mems");
  std::vector<char> file_;  // just as long as the file, so that a sanitizer sees what is beyond
  CoreDumpInfo analyser_;
};

// ---------------------------------------------------------------------------------------------
// Every field of every record, wherever its region lies

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

// ---------------------------------------------------------------------------------------------
// Enumerations and records as the format has them

TEST(CoreFileFormat, Enumerations) {
  EXPECT_EQ(CORE_DUMP_QUEUE_ERROR, 0u);
  EXPECT_EQ(CORE_DUMP_VM_FAULT, 1u);
  EXPECT_EQ(CORE_DUMP_SIGNAL, 2u);
  EXPECT_EQ(QUEUE_TYPE_COMPUTE, 0u);
  EXPECT_EQ(QUEUE_TYPE_SDMA, 1u);
  EXPECT_EQ(QUEUE_TYPE_COMPUTE_AQL, 2u);
  EXPECT_EQ(QUEUE_TYPE_SDMA_XGMI, 3u);
  EXPECT_EQ(AQL_TYPE_VENDOR_SPECIFIC, 0u);
  EXPECT_EQ(AQL_TYPE_INVALID, 1u);
  EXPECT_EQ(AQL_TYPE_KERNEL_DISPATCH, 2u);
  EXPECT_EQ(AQL_TYPE_BARRIER_AND, 3u);
  EXPECT_EQ(AQL_TYPE_AGENT_DISPATCH, 4u);
  EXPECT_EQ(AQL_TYPE_BARRIER_OR, 5u);
  EXPECT_EQ(AQL_TYPE_RESERVED, 6u);
  EXPECT_EQ(GFX_VERSION_OSPREY, 0x90006u);
  EXPECT_EQ(GFX_VERSION_HERON, 0x90106u);
  EXPECT_EQ(GFX_VERSION_KESTREL, 0x90206u);
  EXPECT_EQ(GFX_VERSION_PLOVER, 0x90208u);
  EXPECT_EQ(GFX_VERSION_WREN, 0x90306u);
  EXPECT_EQ(GFX_VERSION_FINCH, 0x90308u);
}

TEST(CoreFileFormat, RecordSizes) {
  EXPECT_EQ(sizeof(CoreDumpHeaderV0), 88u);
  EXPECT_EQ(sizeof(CoreDumpHeaderV1), 128u);
  EXPECT_EQ(sizeof(CoreDumpReasonInfo), 112u);
  EXPECT_EQ(sizeof(CoreDumpAgent), 1112u);
  EXPECT_EQ(sizeof(CoreDumpQueue), 144u);
  EXPECT_EQ(sizeof(CoreDumpCodeObject), 64u);
  EXPECT_EQ(sizeof(KernelInfo), 1032u);
  EXPECT_EQ(sizeof(WaveInfo), 69696u);
}

// ---------------------------------------------------------------------------------------------
// Versions

struct VersionCase {
  const char* name;
  std::array<uint32_t, 3> fields;  // major, minor, patch
  uint32_t full_version;
};

void PrintTo(const VersionCase& row, std::ostream* out) { *out << row.name; }

class LoaderVersionTest : public LoaderTest, public testing::WithParamInterface<VersionCase> {};

TEST_P(LoaderVersionTest, FullVersionJoinsTheFields) {
  CoreFile file;
  file.version = GetParam().fields;
  ASSERT_TRUE(Load(file));
  EXPECT_EQ(analyser_.full_version, GetParam().full_version);
  EXPECT_EQ(analyser_.dp4x_vgpr_offset, 0x155A000u);
}

// Fields wider than their eight bits overlap the next one; they are joined, not added.
constexpr VersionCase kVersions[] = {
    {"Zeros", {0, 0, 0}, 0},
    {"One", {1, 0, 0}, 0x10000},
    {"BeforeOneOne", {1, 0, 255}, 0x100FF},
    {"OneOne", {1, 1, 0}, 0x10100},
    {"OneTwoThree", {1, 2, 3}, 0x10203},
    {"Largest", {255, 255, 255}, 0xFFFFFF},
    {"WideMinor", {1, 0x100, 0}, 0x10000},
    {"WidePatch", {1, 1, 0x1FF}, 0x101FF},
    {"WideMajor", {0x10002, 0, 0}, 0x20000},
};

INSTANTIATE_TEST_SUITE_P(Versions, LoaderVersionTest, testing::ValuesIn(kVersions),
                         RowName<VersionCase>);

TEST_F(LoaderTest, TheFirstFormatHasVersionZero) {
  CoreFile file;
  file.format = 0;
  analyser_.full_version = 0x10100;
  ASSERT_TRUE(Load(file));
  EXPECT_EQ(analyser_.full_version, 0u);
  EXPECT_EQ(analyser_.dp4x_vgpr_offset, 0x1545000u);
}

TEST_F(LoaderTest, OnlyTheLowHalfOfTheFirstFormatsMagicCounts) {
  CoreFile file;
  file.format = 0;
  file.environment = "A=1\n";
  file.overrides = {{.offset = 4, .width = 4, .value = 0xFFFFFFFF}};
  ASSERT_TRUE(Load(file));
  EXPECT_EQ(ReadText(out_ + "/environment"), "A=1\n");
}

TEST_F(LoaderTest, TheReservedWordsOfTheHeaderAreNotRead) {
  CoreFile file;
  file.overrides = {{.offset = 96, .value = kWild},
                    {.offset = 104, .value = kWild},
                    {.offset = 112, .value = kWild},
                    {.offset = 120, .value = kWild}};
  EXPECT_TRUE(Load(file));
  EXPECT_EQ(ListTree(out_), Names{"environment"});
}

struct MagicCase {
  const char* name;
  uint32_t magic;
  const char* text;
};

void PrintTo(const MagicCase& row, std::ostream* out) { *out << row.name; }

class LoaderMagicTest : public LoaderTest, public testing::WithParamInterface<MagicCase> {};

TEST_P(LoaderMagicTest, IsRejectedAndNothingWritten) {
  CoreFile file;
  file.overrides = {{.offset = 0, .width = 4, .value = GetParam().magic}};
  analyser_.full_version = 0x10100;
  OutputCapture capture;
  EXPECT_FALSE(Load(file));
  const Output output = capture.Stop();
  EXPECT_EQ(WithoutTimes(output.err),
            "[time] Error: [init] not supprt magic: " + std::string(GetParam().text) + "\n");
  EXPECT_EQ(output.out, "");
  EXPECT_EQ(analyser_.full_version, 0u);
  EXPECT_EQ(ListTree(dir_.Path()), Names{});
}

constexpr MagicCase kMagics[] = {
    {"Zero", 0, "0x0"},
    {"BeforeTheFirst", 0x20220518, "0x20220518"},
    {"BehindTheFirst", 0x2022051A, "0x2022051a"},
    {"TheFirstBackwards", 0x19052220, "0x19052220"},
    {"BeforeTheSecond", 0x4443584E, "0x4443584e"},
    {"TheSecondBackwards", 0x4F584344, "0x4f584344"},
    {"Elf", 0x464C457F, "0x464c457f"},
    {"AllOnes", 0xFFFFFFFF, "0xffffffff"},
};

INSTANTIATE_TEST_SUITE_P(Words, LoaderMagicTest, testing::ValuesIn(kMagics), RowName<MagicCase>);

TEST_F(LoaderTest, TheMagicIsFourCharactersInFileOrder) {
  const std::string bytes = sample::CoreFileBytes({});
  EXPECT_EQ(bytes.substr(0, 4), "OXCD");
  EXPECT_TRUE(Load(bytes));
}

// ---------------------------------------------------------------------------------------------
// Directories

class LoaderDirectoryTest : public testing::Test {
 protected:
  LoaderDirectoryTest() : bytes_(sample::CoreFileBytes({})), cwd_(dir_.Path()) {}

  bool Init(const char* out, const char* rocm, const char* m_dir, bool dis_all = false) {
    analyser_.SetImageSize(bytes_.size());
    return analyser_.init(reinterpret_cast<uint64_t>(bytes_.data()), out, rocm, m_dir, dis_all);
  }

  TempDir dir_;
  const std::string bytes_;
  ScopedWorkingDirectory cwd_;
  CoreDumpInfo analyser_;
};

TEST_F(LoaderDirectoryTest, NullSelectsTheDefaults) {
  ASSERT_TRUE(Init(nullptr, nullptr, nullptr));
  EXPECT_EQ(analyser_.current_dir_, dir_.Path());
  EXPECT_EQ(analyser_.dump_dir_, dir_.Path());
  EXPECT_EQ(analyser_.dump_code_dir_, dir_.Path("codes"));
  EXPECT_EQ(analyser_.dump_queue_dir_, dir_.Path("queues"));
  EXPECT_EQ(analyser_.rocm_dir_, "/opt/rocm");
  EXPECT_EQ(analyser_.mem_dir_, dir_.Path("mems"));
  EXPECT_FALSE(analyser_.dis_all_code_object);
  EXPECT_EQ(ListTree(dir_.Path()), Names{"environment"});
}

TEST_F(LoaderDirectoryTest, GivenOnesAreTakenAsTheyAre) {
  const std::string out = dir_.Path("a//b/");
  ASSERT_TRUE(Init(out.c_str(), "r o c m", "mems/", true));
  EXPECT_EQ(analyser_.current_dir_, dir_.Path());
  EXPECT_EQ(analyser_.dump_dir_, dir_.Path() + "/a//b/");
  EXPECT_EQ(analyser_.dump_code_dir_, dir_.Path() + "/a//b//codes");
  EXPECT_EQ(analyser_.dump_queue_dir_, dir_.Path() + "/a//b//queues");
  EXPECT_EQ(analyser_.rocm_dir_, "r o c m");
  EXPECT_EQ(analyser_.mem_dir_, "mems/");
  EXPECT_TRUE(analyser_.dis_all_code_object);
  EXPECT_EQ(ListTree(dir_.Path()), (Names{"a/", "a/b/", "a/b/environment"}));
}

// There is no directory to write the environment to then, which is no reason to fail.
TEST_F(LoaderDirectoryTest, EmptyTextsAreNoDefaults) {
  EXPECT_TRUE(Init("", "", ""));
  EXPECT_EQ(analyser_.current_dir_, dir_.Path());
  EXPECT_EQ(analyser_.dump_dir_, "");
  EXPECT_EQ(analyser_.dump_code_dir_, "/codes");
  EXPECT_EQ(analyser_.dump_queue_dir_, "/queues");
  EXPECT_EQ(analyser_.rocm_dir_, "");
  EXPECT_EQ(analyser_.mem_dir_, "");
  EXPECT_EQ(ListTree(dir_.Path()), Names{});
}

TEST_F(LoaderDirectoryTest, MemoryIsLookedUpUnderTheWorkingDirectory) {
  ASSERT_TRUE(sample::WriteMemoryDirectory({{.addr = 0x1000, .bytes = "abc"}}, dir_.Path("mems")));
  const std::string out = dir_.Path("out");
  ASSERT_TRUE(
      sample::WriteMemoryDirectory({{.addr = 0x2000, .bytes = "def"}}, dir_.Path("out/mems")));
  ASSERT_TRUE(Init(out.c_str(), nullptr, nullptr));
  EXPECT_EQ(analyser_.mem_dir_, dir_.Path("mems"));
  ASSERT_EQ(analyser_.mem_info_map.size(), 1u);
  EXPECT_EQ(analyser_.mem_info_map.begin()->first, 0x1000u);
}

TEST_F(LoaderDirectoryTest, MemoryIsLookedUpInTheGivenDirectory) {
  ASSERT_TRUE(sample::WriteMemoryDirectory({{.addr = 0x1000, .bytes = "abc"}}, dir_.Path("mems")));
  ASSERT_TRUE(sample::WriteMemoryDirectory({{.addr = 0x2000, .bytes = "def"}}, dir_.Path("other")));
  const std::string mems = dir_.Path("other");
  ASSERT_TRUE(Init(nullptr, nullptr, mems.c_str()));
  ASSERT_EQ(analyser_.mem_info_map.size(), 1u);
  EXPECT_EQ(analyser_.mem_info_map.begin()->first, 0x2000u);
  EXPECT_EQ(analyser_.mem_info_map.begin()->second.size, 3u);
}

TEST_F(LoaderDirectoryTest, AWorkingDirectoryThatIsGoneEndsTheLoading) {
  const std::string gone = dir_.Path("gone");
  fs::create_directory(gone);
  const ScopedWorkingDirectory in_gone(gone);
  fs::remove(gone);
  const std::string out = dir_.Path("out");
  OutputCapture capture;
  EXPECT_FALSE(Init(out.c_str(), "/opt/rocm", out.c_str()));
  const Output output = capture.Stop();
  EXPECT_EQ(WithoutTimes(output.err), "[time] Error: [init] get cwd failed\n");
  EXPECT_EQ(output.out, "");
  EXPECT_EQ(analyser_.dump_dir_, "");
  EXPECT_EQ(ListTree(dir_.Path()), Names{});
}

// ---------------------------------------------------------------------------------------------
// Log

std::string Pointer(uint64_t address) {
  char text[24];
  snprintf(text, sizeof(text), "0x%llx", static_cast<unsigned long long>(address));
  return text;
}

class LoaderLogTest : public LoaderTest {
 protected:
  // One agent, two queues and one code object, in this order behind the header and the reason, and
  // no memory directory.
  static CoreFile File(int format) {
    CoreFile file;
    file.format = format;
    file.agents.resize(1);
    file.queues.resize(2);
    file.code_objects.resize(1);
    file.code_objects[0].elf = "elf";
    return file;
  }

  Output LogOf(const CoreFile& file, const std::string& level) {
    const ScopedLogLevel scoped(level);
    OutputCapture capture;
    EXPECT_TRUE(Load(file));
    Output output = capture.Stop();
    output.out = WithoutTimes(output.out);
    return output;
  }
};

TEST_F(LoaderLogTest, AtDebugInOrder) {
  const Output output = LogOf(File(1), "debug");
  EXPECT_EQ(output.out, "[time] Debug: CoreDump init dump_dir_: " + out_ + "\n" +
                            "[time] Debug: CoreDump init dump_code_dir_: " + out_ + "/codes\n" +
                            "[time] Debug: CoreDump init dump_queue_dir_: " + out_ + "/queues\n" +
                            "[time] Debug: CoreDump init rocm_dir_: /opt/rocm\n" +
                            "[time] Debug: CoreDump init mem_dir_: " + mems_ + "\n" +
                            "[time] Debug: CoreDump init dis_all_code_object: 0\n"
                            "[time] Info: Current core dump version is v1.\n"
                            "[time] Debug: Agent: " +
                            Pointer(Base() + 240) + " count: 1\n" +
                            "[time] Debug: Queue: " + Pointer(Base() + 1352) + " count: 2\n" +
                            "[time] Debug: CodeObject: " + Pointer(Base() + 1640) + " count: 1\n" +
                            "[time] Debug: Dp4x_vgpr_offset: 0x155a000\n"
                            "[time] Debug: Core dump version: 0x10100\n"
                            "[time] Info: CoreDump init agent.\n"
                            "[time] Info: CoreDump init queue.\n"
                            "[time] Info: CoreDump init code object.\n"
                            "[time] Info: CoreDump init process mem.\n"
                            "[time] Warning: Can not Open: " +
                            mems_ + "/process_mem_info.\n" +
                            "[time] Warning: [init] init process mem info failed\n");
  EXPECT_EQ(output.err, "");
}

TEST_F(LoaderLogTest, AtInfoOfTheFirstFormat) {
  const Output output = LogOf(File(0), "info");
  EXPECT_EQ(output.out,
            "[time] Info: Current core dump version is v0.\n"
            "[time] Info: CoreDump init agent.\n"
            "[time] Info: CoreDump init queue.\n"
            "[time] Info: CoreDump init code object.\n"
            "[time] Info: CoreDump init process mem.\n"
            "[time] Warning: Can not Open: " +
                mems_ + "/process_mem_info.\n" +
                "[time] Warning: [init] init process mem info failed\n");
  EXPECT_EQ(output.err, "");
}

TEST_F(LoaderLogTest, OfTheFirstFormatsConstantsAtDebug) {
  const Output output = LogOf(File(0), "debug");
  EXPECT_NE(output.out.find("[time] Info: Current core dump version is v0.\n"
                            "[time] Debug: Agent: " +
                            Pointer(Base() + 200) + " count: 1\n" +
                            "[time] Debug: Queue: " + Pointer(Base() + 1312) + " count: 2\n" +
                            "[time] Debug: CodeObject: " + Pointer(Base() + 1600) + " count: 1\n" +
                            "[time] Debug: Dp4x_vgpr_offset: 0x1545000\n"
                            "[time] Debug: Core dump version: 0x0\n"
                            "[time] Info: CoreDump init agent.\n"),
            std::string::npos);
}

TEST_F(LoaderLogTest, WithAMemoryDirectoryHasNoWarning) {
  ASSERT_TRUE(sample::WriteMemoryDirectory({}, mems_));
  const Output output = LogOf(File(1), "info");
  EXPECT_EQ(output.out,
            "[time] Info: Current core dump version is v1.\n"
            "[time] Info: CoreDump init agent.\n"
            "[time] Info: CoreDump init queue.\n"
            "[time] Info: CoreDump init code object.\n"
            "[time] Info: CoreDump init process mem.\n");
}

TEST_F(LoaderLogTest, AtTheDefaultLevelIsEmpty) {
  const Output output = LogOf(File(1), "error");
  EXPECT_EQ(output.out, "");
  EXPECT_EQ(output.err, "");
}

TEST_F(LoaderLogTest, DisAllIsShownAsOne) {
  const std::string bytes = sample::CoreFileBytes({});
  const ScopedLogLevel level("debug");
  OutputCapture capture;
  EXPECT_TRUE(analyser_.init(reinterpret_cast<uint64_t>(bytes.data()), out_.c_str(), "rocm",
                             mems_.c_str(), true));
  EXPECT_NE(capture.Stop().out.find("CoreDump init dis_all_code_object: 1\n"), std::string::npos);
}

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

// ---------------------------------------------------------------------------------------------
// Environment

class LoaderEnvironmentTest : public LoaderTest {
 protected:
  // A file that ends with the environment's terminator.
  static CoreFile File(const std::string& environment) {
    CoreFile file;
    file.environment = environment;
    file.layout.order = {Region::kReason,      Region::kAgents,   Region::kQueues,
                         Region::kCodeObjects, Region::kKernels,  Region::kElfs,
                         Region::kRings,       Region::kContexts, Region::kWaves,
                         Region::kEnvironment};
    return file;
  }

  std::string Written() const { return ReadText(out_ + "/environment"); }
};

TEST_F(LoaderEnvironmentTest, EndsAtItsFirstZeroByte) {
  ASSERT_TRUE(Load(File(std::string("A=1\n\0B=2\n", 9))));
  EXPECT_EQ(Written(), "A=1\n");
}

TEST_F(LoaderEnvironmentTest, EmptyGivesAnEmptyFile) {
  ASSERT_TRUE(Load(File("")));
  EXPECT_EQ(Written(), "");
}

TEST_F(LoaderEnvironmentTest, ItsSizeIsNotConsulted) {
  for (const uint64_t size : {uint64_t{0}, uint64_t{2}, kWild}) {
    CoreFile file = File("A=1\nB=2\n");
    file.overrides = {{.offset = kEnvSizeOffset, .value = size}};
    ASSERT_TRUE(Load(file));
    EXPECT_EQ(Written(), "A=1\nB=2\n");
  }
  EXPECT_EQ(ListTree(out_), Names{"environment"});
}

TEST_F(LoaderEnvironmentTest, BytesAreNotChanged) {
  std::string every_byte;
  for (int byte = 1; byte < 256; ++byte) {
    every_byte += static_cast<char>(byte);
  }
  ASSERT_TRUE(Load(File(every_byte)));
  EXPECT_EQ(Written(), every_byte);
}

TEST_F(LoaderEnvironmentTest, WithoutTerminatorEndsWithTheFile) {
  CoreFile file = File("A=1\nB=2\n");
  file.overrides = {{.offset = kEnvSizeOffset, .value = 8}};
  std::string bytes = sample::CoreFileBytes(file);
  bytes.pop_back();
  OutputCapture capture;
  EXPECT_TRUE(Load(bytes));
  EXPECT_EQ(capture.Stop().err, "");
  EXPECT_EQ(Written(), "A=1\nB=2\n");
  EXPECT_EQ(ListTree(out_), Names{"environment"});
}

TEST_F(LoaderEnvironmentTest, CutOffByTheEndOfTheFileIsDamage) {
  std::string bytes = sample::CoreFileBytes(File("A=1\nB=2\n"));
  bytes.resize(bytes.size() - 3);
  OutputCapture capture;
  EXPECT_TRUE(Load(bytes));
  EXPECT_NE(capture.Stop().err, "");
  EXPECT_EQ(Written(), "A=1\nB=");
  EXPECT_EQ(ReadText(out_ + "/damage").rfind("environment: ", 0), 0u);
}

// Callers that do not know the size of the mapping have files that keep to the format.
TEST_F(LoaderEnvironmentTest, WithoutAnImageSizeNothingIsLimited) {
  const std::string bytes = sample::CoreFileBytes(File("A=1\n"));
  ASSERT_TRUE(analyser_.init(reinterpret_cast<uint64_t>(bytes.data()), out_.c_str(), "/opt/rocm",
                             mems_.c_str(), false));
  EXPECT_EQ(Written(), "A=1\n");
}

TEST_F(LoaderEnvironmentTest, ReplacesWhatAnEarlierRunWrote) {
  fs::create_directory(out_);
  WriteText(out_ + "/environment", "much longer than the new one\n");
  ASSERT_TRUE(Load(File("A=1\n")));
  EXPECT_EQ(Written(), "A=1\n");
}

TEST_F(LoaderEnvironmentTest, ThatCannotBeWrittenIsIgnored) {
  fs::create_directories(out_ + "/environment");
  OutputCapture capture;
  EXPECT_TRUE(Load(File("A=1\n")));
  EXPECT_EQ(capture.Stop().err, "");
  EXPECT_EQ(ListTree(out_), Names{"environment/"});
}

// ---------------------------------------------------------------------------------------------
// Code object files

int NumberOf(const CodeObjectInfo* object) {
  const std::string_view prefix = "code_object_";
  EXPECT_EQ(std::string_view(object->name).substr(0, prefix.size()), prefix);
  return atoi(object->name + prefix.size());
}

CoreFile ThreeCodeObjects() {
  CoreFile file;
  file.environment = "A=1\n";
  file.code_objects.resize(3);
  file.code_objects[0].elf = "first";
  file.code_objects[1].elf = "second";
  file.code_objects[2].elf = "third";
  file.code_objects[2].size_loaded = 0x3000;
  return file;
}

TEST_F(LoaderTest, NumbersGoOnFromOneFileToTheNext) {
  ASSERT_TRUE(Load(ThreeCodeObjects()));
  const int first = NumberOf(analyser_.code_object_lists.at(0));
  EXPECT_EQ(NumberOf(analyser_.code_object_lists.at(1)), first + 1);
  EXPECT_EQ(NumberOf(analyser_.code_object_lists.at(2)), first + 2);

  const std::string bytes = sample::CoreFileBytes(ThreeCodeObjects());
  CoreDumpInfo next;
  ASSERT_TRUE(next.init(reinterpret_cast<uint64_t>(bytes.data()), out_.c_str(), "/opt/rocm",
                        mems_.c_str(), false));
  EXPECT_EQ(NumberOf(next.code_object_lists.at(0)), first + 3);
}

TEST_F(LoaderTest, AnEmptyElfEndsTheLoadingThere) {
  CoreFile file = ThreeCodeObjects();
  file.code_objects[1].elf = "";
  OutputCapture capture;
  EXPECT_FALSE(Load(file));
  const Output output = capture.Stop();
  const auto& objects = analyser_.code_object_lists;
  ASSERT_EQ(objects.size(), 2u);
  const std::string first = objects[0]->name;
  EXPECT_EQ(WithoutTimes(output.err), "[time] Error: [init] Write bin failed, dump dir: " + out_ +
                                          "/codes name : " + objects[1]->name + "\n");
  EXPECT_EQ(output.out, "");
  EXPECT_EQ(ListTree(out_), (Names{"codes/", "codes/" + first, "codes/" + first + ".info"}));
  EXPECT_EQ(ReadText(CodePath(0)), "first");
}

TEST_F(LoaderTest, ADirectoryThatCannotBeMadeEndsTheLoading) {
  WriteText(out_, "a file in the way");
  OutputCapture capture;
  EXPECT_FALSE(Load(ThreeCodeObjects()));
  const Output output = capture.Stop();
  ASSERT_EQ(analyser_.code_object_lists.size(), 1u);
  EXPECT_EQ(WithoutTimes(output.err), "[time] Error: [init] Write bin failed, dump dir: " + out_ +
                                          "/codes name : " + analyser_.code_object_lists[0]->name +
                                          "\n");
  EXPECT_EQ(ReadText(out_), "a file in the way");
}

// The numbers begin with the process, so what hangs on them is seen from outside.
class LoaderRunTest : public testing::Test {
 protected:
  ProcessResult Run(const CoreFile& file, const std::vector<std::string>& environment = {}) {
    EXPECT_TRUE(sample::WriteCoreFile(file, dir_.Path("core_0")));
    return RunProcess(
        TALVEX_BINARY,
        {"-i", dir_.Path("core_0"), "-o", out_, "-m", dir_.Path("mems"), "-r", dir_.Path("rocm")},
        {.working_directory = dir_.Path(), .environment = environment});
  }

  // A run that fails leaves its analyser to the system, on purpose, so a leak checker in the
  // program must not count that.
  void ExpectFailure(const CoreFile& file, const std::string& log) {
    const ProcessResult result = Run(file, {"ASAN_OPTIONS=detect_leaks=0"});
    EXPECT_EQ(result.status, 255);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(WithoutTimes(result.err), log);
  }

  TempDir dir_;
  const std::string out_ = dir_.Path("out");
};

TEST_F(LoaderRunTest, CodeObjectsAreNumberedFromZero) {
  EXPECT_EQ(Run(ThreeCodeObjects()).status, 0);
  EXPECT_EQ(ListTree(out_ + "/codes"),
            (Names{"code_object_0", "code_object_0.info", "code_object_1", "code_object_1.info",
                   "code_object_2", "code_object_2.info"}));
  EXPECT_EQ(ReadText(out_ + "/codes/code_object_0"), "first");
  EXPECT_EQ(ReadText(out_ + "/codes/code_object_1"), "second");
  EXPECT_EQ(ReadText(out_ + "/codes/code_object_2"), "third");
  EXPECT_EQ(ReadText(out_ + "/codes/code_object_2.info"),
            "Object load addr: 0x0\n"
            "Object load size: 0x3000\n");
}

TEST_F(LoaderRunTest, CodeObjectFilesReplaceThoseOfAnEarlierRun) {
  fs::create_directories(out_ + "/codes");
  WriteText(out_ + "/codes/code_object_0", "much longer than the new one");
  WriteText(out_ + "/codes/code_object_0.info", std::string(1000, 'x'));
  EXPECT_EQ(Run(ThreeCodeObjects()).status, 0);
  EXPECT_EQ(ReadText(out_ + "/codes/code_object_0"), "first");
  EXPECT_EQ(ReadText(out_ + "/codes/code_object_0.info"),
            "Object load addr: 0x0\n"
            "Object load size: 0x0\n");
}

TEST_F(LoaderRunTest, AnElfThatCannotBeWrittenEndsTheRun) {
  fs::create_directories(out_ + "/codes/code_object_1");
  ExpectFailure(ThreeCodeObjects(), "[time] Error: [init] Write bin failed, dump dir: " + out_ +
                                        "/codes name : code_object_1\n"
                                        "[time] Error: CoreDumpManager init failed.\n");
  EXPECT_EQ(ListTree(out_), (Names{"codes/", "codes/code_object_0", "codes/code_object_0.info",
                                   "codes/code_object_1/"}));
}

TEST_F(LoaderRunTest, AnInfoFileThatCannotBeWrittenEndsTheRun) {
  fs::create_directories(out_ + "/codes/code_object_1.info");
  ExpectFailure(ThreeCodeObjects(),
                "[time] Error: [init] write: code_object_1 info failed\n"
                "[time] Error: CoreDumpManager init failed.\n");
  EXPECT_EQ(ListTree(out_), (Names{"codes/", "codes/code_object_0", "codes/code_object_0.info",
                                   "codes/code_object_1", "codes/code_object_1.info/"}));
}

}  // namespace
