#include "golden_dumps.h"

#include <cstdint>
#include <string>
#include <vector>

#include "core_file_writer.h"
#include "golden_rings.h"

namespace {

// The gfx versions of these chips are 9.0.6, 9.2.6 and 9.3.6.
constexpr uint32_t kOsprey = 0x5001;
constexpr uint32_t kKestrel = 0x5011;
constexpr uint32_t kWren = 0x5014;

constexpr uint32_t kSdma = 1;
constexpr uint32_t kComputeAql = 2;
constexpr uint32_t kSdmaXgmi = 3;

constexpr uint64_t kAgentHandle = 0x55D0C0DE1000;
constexpr uint64_t kSecondAgentHandle = 0x55D0C0DE2000;

std::vector<sample::MemoryRegion> Memory() {
  std::string bytes;
  for (char c = ' '; c < ' ' + 64; ++c) {
    bytes += c;
  }
  return {{.addr = kArguments, .bytes = bytes, .flags = 3, .gpu_ids = {0xABC}}};
}

// Register k of a lane reads as tag, k and the lane.
uint32_t VgprValue(uint32_t tag, uint32_t k, uint32_t lane) { return tag << 24 | k << 16 | lane; }

constexpr uint32_t kLanes = 64;

struct WaveShape {
  uint32_t tag = 0;
  uint64_t pc = 0;
  uint64_t trap_pc = 0;
  uint32_t trapsts = 0;
  uint32_t hw_id = 0;
  bool first_in_group = false;
};

sample::AreaWave SavedWave(const WaveShape& shape, const sample::AreaGroup& group) {
  sample::AreaWave wave;
  for (uint32_t k = 0; k < group.vgpr_count; ++k) {
    for (uint32_t lane = 0; lane < kLanes; ++lane) {
      wave.vgprs.push_back(VgprValue(shape.tag, k, lane));
    }
  }
  for (uint32_t k = 0; k < group.sgpr_count; ++k) {
    wave.sgprs.push_back(shape.tag << 24 | 0x500000 | k);
  }
  const auto pc_lo = static_cast<uint32_t>(shape.pc);
  const auto pc_hi = static_cast<uint32_t>(shape.pc >> 32);
  wave.hwregs = {
      0x80000000 | shape.tag,  // M0
      pc_lo,                   // PC_LO
      pc_hi,                   // PC_HI
      0xFFFF0000,              // EXEC_LO
      0x0000FFFF,              // EXEC_HI
      0x0081565A,              // STATUS
      shape.trapsts,           // TRAPSTS
      0x12345678,              // XNACK_MASK_LO
      0x9ABCDEF0,              // XNACK_MASK_HI
      0x000002F0,              // MODE
      shape.hw_id,             // HW_ID
      0x0A120305,              // GPR_ALLOC
      0x0015504B,              // LDS_ALLOC
      0x00C07A5D,              // IB_STS
      0x00ABCDEF,              // TBA_LO
      0x00000001,              // TBA_HI
  };
  wave.ttmps[0] = 0x00FEDCBA;  // TMA_LO
  wave.ttmps[1] = 0x00000002;  // TMA_HI
  wave.ttmps[7] = static_cast<uint32_t>(shape.trap_pc);
  // The bits around the field of the trap PC are set to show that they do not count.
  wave.ttmps[11] = static_cast<uint32_t>(shape.trap_pc >> 32 & 0xFFFF) << 7 | 0xFF80007F;
  wave.first_in_group = shape.first_in_group;
  for (uint32_t k = 0; k < group.lds_dwords; ++k) {
    wave.lds.push_back(shape.tag << 24 | 0xD0000 | k);
  }
  return wave;
}

sample::AreaGroup Group(uint32_t vgprs, uint32_t granule, uint32_t sgprs, uint32_t lds_dwords,
                        const std::vector<WaveShape>& shapes) {
  sample::AreaGroup group;
  group.state = sample::StateRecord(vgprs, granule, sgprs, lds_dwords);
  group.vgpr_count = vgprs;
  group.sgpr_count = sgprs;
  group.lds_dwords = lds_dwords;
  for (const WaveShape& shape : shapes) {
    group.waves.push_back(SavedWave(shape, group));
  }
  return group;
}

// A wave before any state record has no registers but those of the hardware.
sample::AreaGroup GroupWithoutState(const WaveShape& shape) {
  sample::AreaGroup group;
  group.state_record = false;
  group.waves = {SavedWave(shape, group)};
  return group;
}

sample::Agent Agent(const std::string& name, uint32_t gpu_id, uint32_t node_id, uint32_t chip_id) {
  return {.name = name,
          .gpu_id = gpu_id,
          .node_id = node_id,
          .drm_id = 0x81,
          .location_id = 0x3B00,
          .pci_bus_id = 0x3B,
          .pci_device_id = 0x1F,
          .chip_id = chip_id,
          .num_cus = 60,
          .max_engine_freq = 1725,
          .max_memory_freq = 1000,
          .waves_per_cu = 40,
          .num_simds_per_cu = 4,
          .num_ses = 4,
          .handle = kAgentHandle};
}

sample::Queue Queue(uint32_t queue_id, uint32_t gpu_id, uint32_t queue_type) {
  return {.queue_id = queue_id,
          .gpu_id = gpu_id,
          .queue_type = queue_type,
          .queue_format = queue_type == kComputeAql ? 1u : 0u,
          .eop_address = 0x7F3A10000000,
          .eop_size = 0x1000,
          .mqd_address = 0x7F3A11000000,
          .doorbell_offset = 0x7F3A12000008,
          .ring_address = 0x7F3A20000000 + (uint64_t{queue_id} << 16),
          .wptr_address = 0x7F3A13000038,
          .rptr_address = 0x7F3A13000080,
          .wptr_value = 9,
          .rptr_value = 0xFFFFFFFFFFFFFFFE,
          .context_sr_address = 0x7F3A30000000,
          .control_stack_size = 0x900003000};
}

sample::Queue SdmaQueue(uint32_t queue_id, uint32_t gpu_id) {
  sample::Queue queue = Queue(queue_id, gpu_id, kSdma);
  queue.ring = SdmaRing();
  return queue;
}

sample::CodeObject CodeObject(uint64_t addr_loaded, uint64_t agent, const std::string& elf) {
  return {.addr_loaded = addr_loaded,
          .size_loaded = 0x4000,
          .addr_elf = 0x55D0F0000000,
          .agent = agent,
          .elf = elf};
}

// One code object with both kernels.
sample::CodeObject KernelsObject() {
  sample::CodeObject object = CodeObject(kLoadAddress, kAgentHandle, "\177ELF kernels\n");
  object.kernels = {{kVectorAdd, "vector_add.kd"}, {kReduce, "reduce.kd"}};
  return object;
}

constexpr char kEnvironment[] = "PATH=/usr/local/bin:/usr/bin\nHOME=/home/user\nEMPTY=\n";

}  // namespace

GoldenDump QueueErrorDump() {
  sample::Queue aql = Queue(1, 0xABC, kComputeAql);
  AddAqlRing(/*kept_in_packet=*/false, aql);
  sample::AreaGroup with_lds = Group(4, 4, 16, 128,
                                     {{.tag = 0xA1,
                                       .pc = kVectorAdd + 8,
                                       .trap_pc = kVectorAdd + 0x40,
                                       .trapsts = 0x900,
                                       .hw_id = 0x2B352503,
                                       .first_in_group = true},
                                      {.tag = 0xA2, .pc = kVectorAdd + 0x44, .hw_id = 0x00002503}});
  with_lds.before = {0x40000001, 0xC0000002};  // events
  const sample::AreaGroup without_lds =
      Group(8, 4, 0, 0, {{.tag = 0xA3, .pc = kLoadAddress + 0x4000, .first_in_group = true}});
  aql.context = sample::ContextAreaBytes({.groups = {with_lds, without_lds}, .slack = 16});

  sample::Queue compute = Queue(12, 0xABC, 0);
  compute.ring = std::string(64, '\x55');

  GoldenDump dump;
  dump.core.version = {1, 1, 0};
  dump.core.reason = {.reason = 0,
                      .agent_name = "gpu-gfx936",
                      .node_id = 2,
                      .status = 0x1008,
                      .ring_addr = aql.ring_address};
  dump.core.agents = {Agent("gpu-gfx936", 0xABC, 2, kWren)};
  dump.core.queues = {aql, SdmaQueue(5, 0xABC), compute};
  dump.core.code_objects = {CodeObject(kLoadAddress + 0x100000, kAgentHandle, "\177ELF other\n"),
                            KernelsObject()};
  dump.core.environment = kEnvironment;
  dump.memory = Memory();
  return dump;
}

GoldenDump VmFaultDump() {
  sample::Agent first = Agent("ORVEN-gfx906:sramecc+", 0xABC, 1, kOsprey);
  first.is_dp4x = true;
  sample::Agent second = Agent("gpu-gfx926", 0xDEF, 4, kKestrel);
  second.handle = kSecondAgentHandle;
  second.pci_domain_id = -1;

  // Two queues whose ids and places in the file run in opposite order.
  sample::Queue late = Queue(9, 0xABC, kComputeAql);
  AddAqlRing(/*kept_in_packet=*/true, late);
  late.context = sample::ContextAreaBytes(
      {.groups = {GroupWithoutState({.tag = 0xB1,
                                     .pc = kLoadAddress,
                                     .trap_pc = kLoadAddress,
                                     .trapsts = 0x100,
                                     .hw_id = 0x00006F31}),
                  Group(8, 8, 32, 128,
                        {{.tag = 0xB2, .pc = kReduce, .hw_id = 0x00000010, .first_in_group = true},
                         {.tag = 0xB3,
                          .pc = kReduce,
                          .trap_pc = 0xFFFFFFFFFFFF,
                          .trapsts = 0x800,
                          .hw_id = 0x00000011}})}});
  sample::Queue early = Queue(3, 0xABC, kComputeAql);
  early.ring = std::string(96, '\0');  // one slot and a half
  early.context = sample::ContextAreaBytes({.groups = {Group(8, 8, 16, 0,
                                                             {{.tag = 0xB4,
                                                               .trap_pc = kReduce + 0x10,
                                                               .trapsts = 0x100,
                                                               .hw_id = 0x00001010,
                                                               .first_in_group = true}})}});
  sample::Queue healthy = Queue(6, 0xDEF, kComputeAql);
  healthy.ring = std::string(64, '\0');
  // At a place that two code objects claim; the first of them in the file has it.
  const WaveShape in_overlap = {.tag = 0xB5, .pc = kLoadAddress + 0x3000, .first_in_group = true};
  healthy.context = sample::ContextAreaBytes({.groups = {Group(4, 4, 48, 0, {in_overlap})}});

  GoldenDump dump;
  dump.core.format = 0;
  dump.core.reason = {.reason = 1,
                      .agent_name = "ORVEN-gfx906:sramecc+",
                      .node_id = 1,
                      .fault_reason_mask = 0x80000003,
                      .virtual_address = 0x7F1234567ABC};
  dump.core.agents = {first, second};
  dump.core.queues = {late, early, healthy, SdmaQueue(7, 0xDEF)};
  // The second lies over the end of the first, and belongs to no agent.
  dump.core.code_objects = {KernelsObject(),
                            CodeObject(kLoadAddress + 0x2000, 0, "\177ELF overlapping\n"),
                            CodeObject(0x7F3A48000000, kSecondAgentHandle, "\177ELF second\n")};
  dump.core.environment = kEnvironment;
  dump.memory = Memory();
  dump.dis_all = true;
  return dump;
}

GoldenDump SignalDump() {
  sample::Agent busy = Agent("gpu-gfx906", 0xABC, 1, kOsprey);
  // VGPRs for one row a lane, SGPRs for four rows.
  sample::SavedWave small = {.mode = 0x2F0,
                             .status = 0x00010041,
                             .trapsts = 0x900,
                             .hw_id = 0x00004A21,
                             .gpr_alloc = 0,
                             .lds_alloc = 0x00003001,
                             .ib_sts = 0x0000070F,
                             .pc = kReduce + 0x20,
                             .inst_dw0 = 0xBF800000,
                             .m0 = 0xFFFFFFFF,
                             .exec = 0xFFFFFFFFFFFFFFFF};
  // Two rows a lane, eight rows of SGPRs, at no place and in no code object.
  sample::SavedWave larger = {.gpr_alloc = 0x01000100, .pc = 0x10};
  for (uint32_t lane = 0; lane < kLanes; ++lane) {
    for (uint32_t k = 0; k < 256; ++k) {
      small.vgprs.push_back(VgprValue(0xC1, k, lane));
      larger.vgprs.push_back(VgprValue(0xC2, k, lane));
    }
  }
  for (uint32_t k = 0; k < 64; ++k) {
    small.sgprs.push_back(0xC1500000 | k);
    larger.sgprs.push_back(0xC2500000 | k);
  }
  busy.waves = {small, larger, small};
  sample::Agent idle = Agent("gpu-gfx926", 0xDEF, 2, kKestrel);
  idle.handle = kSecondAgentHandle;

  sample::Queue aql = Queue(1, 0xABC, kComputeAql);
  AddAqlRing(/*kept_in_packet=*/true, aql);
  aql.context = sample::ContextAreaBytes(
      {.groups = {
           Group(4, 4, 16, 128,
                 {{.tag = 0xC3, .pc = kReduce, .trapsts = 0x100, .first_in_group = true}})}});
  sample::Queue xgmi = Queue(3, 0xDEF, kSdmaXgmi);
  xgmi.ring = SdmaRing();

  GoldenDump dump;
  dump.core.version = {1, 0, 255};
  dump.core.reason = {.reason = 2, .agent_name = "gpu-gfx906", .node_id = 1, .sig = 15};
  dump.core.agents = {busy, idle};
  dump.core.queues = {aql, SdmaQueue(2, 0xABC), xgmi};
  dump.core.code_objects = {KernelsObject()};
  dump.core.environment = kEnvironment;
  dump.memory = Memory();
  return dump;
}
