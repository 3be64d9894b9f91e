#include "small_dump.h"

#include <string>

namespace {

constexpr uint32_t kAqlQueue = 2;
constexpr uint32_t kSdmaQueue = 1;
constexpr size_t kHwIdRegister = 10;

sample::Agent AgentOf(uint32_t number, const std::string& name) {
  sample::Agent agent;
  agent.name = name;
  agent.gpu_id = 100 * number;
  agent.node_id = number;
  agent.drm_id = 0x80;
  agent.pci_bus_id = 0x3B;
  agent.chip_id = 0xFFFF;
  agent.num_cus = 60;
  agent.max_engine_freq = 1700;
  agent.max_memory_freq = 1000;
  agent.waves_per_cu = 40;
  agent.num_simds_per_cu = 4;
  agent.num_ses = 4;
  agent.handle = uint64_t{0x10} * number;
  return agent;
}

sample::AreaWave WaveAt(uint32_t hw_id, bool first_in_group) {
  sample::AreaWave wave;
  wave.hwregs[kHwIdRegister] = hw_id;
  wave.first_in_group = first_in_group;
  return wave;
}

// A kernel dispatch, a barrier, and a barrier that is retired: its header is in the backup array.
sample::Queue FirstAqlQueue() {
  sample::KernelDispatch dispatch;
  dispatch.header = 0x1502;
  dispatch.setup = 1;
  dispatch.workgroup_size = {64, 1, 1};
  dispatch.grid_size = {256, 1, 1};
  dispatch.group_segment_size = 512;
  dispatch.kernel_object = 0x7000100;
  dispatch.kernarg_address = 0x200000;
  dispatch.completion_signal = 0x300000;

  sample::AreaGroup group;
  group.state = sample::StateRecord(4, 4, 16, 128);
  group.vgpr_count = 4;
  group.sgpr_count = 16;
  group.lds_dwords = 128;
  group.waves = {WaveAt(0x2100, true), WaveAt(0x2110, false)};

  sample::Queue queue;
  queue.queue_id = 7;
  queue.gpu_id = 100;
  queue.queue_type = kAqlQueue;
  queue.queue_format = 1;
  queue.ring = sample::KernelDispatchPacket(dispatch) +
               sample::BarrierPacket({.header = 3, .dep_signal = {0x300000}}) +
               sample::BarrierPacket({.header = 1});
  queue.header_backup = {0, 0, 3};
  queue.context = sample::ContextAreaBytes({.groups = {group}});
  return queue;
}

// A trap and a timestamp.
sample::Queue SdmaQueue() {
  sample::Queue queue;
  queue.queue_id = 8;
  queue.gpu_id = 100;
  queue.queue_type = kSdmaQueue;
  queue.ring = sample::Dwords({6, 5, 13, 0x1000, 0x7F});
  return queue;
}

sample::Queue SecondAqlQueue() {
  sample::AreaGroup group;
  group.state_record = false;
  group.waves = {WaveAt(1, true)};

  sample::Queue queue;
  queue.queue_id = 9;
  queue.gpu_id = 200;
  queue.queue_type = kAqlQueue;
  queue.queue_format = 1;
  queue.ring = sample::BarrierPacket({.header = 5});
  queue.header_backup = {0};
  queue.context = sample::ContextAreaBytes({.groups = {group}});
  return queue;
}

}  // namespace

sample::CoreFile SmallDump() {
  sample::CoreFile file;
  file.reason.reason = 1;
  file.reason.agent_name = "gfx-906-a";
  file.reason.node_id = 1;
  file.reason.fault_reason_mask = 1;
  file.reason.virtual_address = 0x7F0000001ABC;
  file.agents = {AgentOf(1, "gfx-906-a"), AgentOf(2, "gfx-906-b")};
  file.queues = {FirstAqlQueue(), SdmaQueue(), SecondAqlQueue()};
  file.code_objects.resize(2);
  file.code_objects[0] = {.addr_loaded = 0x7000000,
                          .size_loaded = 0x1000,
                          .agent = 0x10,
                          .elf = std::string(200, '1'),
                          .kernels = {{0x7000100, "copy"}, {0x7000200, "scale"}}};
  file.code_objects[1] = {.addr_loaded = 0x8000000,
                          .size_loaded = 0x1000,
                          .agent = 0x20,
                          .elf = std::string(100, '2'),
                          .kernels = {{0x8000100, "last"}}};
  file.environment = "HOME=/root\nLANG=C\n";
  return file;
}

std::vector<sample::MemoryRegion> SmallDumpMemory() {
  return {{.addr = 0x200000, .bytes = "kernel arguments"}};
}
