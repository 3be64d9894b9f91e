#include "wave_state.h"

#include <bit>
#include <string_view>
#include <utility>

namespace sample {
namespace {

constexpr uint32_t kLdsUnitBytes = 512;
constexpr uint32_t kSgprUnit = 16;
constexpr uint32_t kVgprSlotsPerLane = 256;  // of a saved wave record

constexpr uint32_t kTrapstsMemoryViolation = 1 << 8;
constexpr uint32_t kTrapstsIllegalInstruction = 1 << 11;

// Denormals of 64-bit and 16-bit floats kept, DX10_CLAMP, IEEE.
constexpr uint32_t kMode = 0xC0 | 1 << 8 | 1 << 9;

constexpr uint32_t kStatusScc = 1 << 0;
constexpr uint32_t kStatusPriv = 1 << 5;
constexpr uint32_t kStatusTrapEnabled = 1 << 6;
constexpr uint32_t kStatusExecZero = 1 << 9;
constexpr uint32_t kStatusVccZero = 1 << 10;
constexpr uint32_t kStatusInGroup = 1 << 11;
constexpr uint32_t kStatusInBarrier = 1 << 12;
constexpr uint32_t kStatusHalt = 1 << 13;
constexpr uint32_t kStatusValid = 1 << 16;

constexpr uint32_t kNop = 0xBF800000;

// Where the groups go: round the shader engines, then round the compute units of each, then to the
// next wave slot of every SIMD.
constexpr uint64_t kShaderEngines = 4;
constexpr uint64_t kComputeUnits = 16;
constexpr uint64_t kWaveSlots = 10;

constexpr uint32_t kVmid = 8;
constexpr uint32_t kMicroEngine = 1;

uint64_t WaveSlot(const WavePlan& plan) {
  return plan.group / (kShaderEngines * kComputeUnits) % kWaveSlots;
}

uint32_t HwId(const WavePlan& plan) {
  const uint64_t shader_engine = plan.group % kShaderEngines;
  const uint64_t compute_unit = plan.group / kShaderEngines * 5 % kComputeUnits;
  const uint64_t value = WaveSlot(plan) | plan.wave % 4 << 4 | plan.pipe % 4 << 6 |
                         compute_unit << 8 | shader_engine << 13 | plan.group % 16 << 16 |
                         kVmid << 20 | static_cast<uint64_t>(kMicroEngine) << 30;
  return static_cast<uint32_t>(value);
}

uint32_t GprAlloc(const WavePlan& plan) {
  const auto slot = static_cast<uint32_t>(WaveSlot(plan));
  const uint32_t vgpr_units = plan.size.vgprs / plan.size.vgpr_granule;
  const uint32_t sgpr_units = plan.size.sgprs / kSgprUnit;
  return (slot * vgpr_units & 0x3F) | (vgpr_units - 1) << 8 | (slot * sgpr_units & 0x3F) << 16 |
         (sgpr_units - 1) << 24;
}

uint32_t LdsAlloc(const KernelCode& kernel, const WavePlan& plan) {
  const uint32_t units = LdsDwords(kernel) / (kLdsUnitBytes / 4);
  const auto slot = static_cast<uint32_t>(WaveSlot(plan));
  return (slot * units & 0xFF) | (units & 0x1FF) << 12;
}

// Most waves have every lane on, some have lost lanes to a branch, a few all of them.
uint64_t Exec(SplitMix64& rng) {
  const uint32_t kind = rng.Below(32);
  if (kind == 0) {
    return 0;
  }
  return kind < 5 ? UINT64_MAX >> (1 + rng.Below(63)) : UINT64_MAX;
}

const Instruction* AnyInstruction(const KernelCode& kernel, SplitMix64& rng) {
  if (kernel.instructions.empty()) {
    return nullptr;
  }
  return &kernel.instructions[rng.Below(static_cast<uint32_t>(kernel.instructions.size()))];
}

// A store is what faults; a kernel without one, or of which nothing is known, faults at its entry.
uint64_t FaultingInstruction(const KernelCode& kernel) {
  uint64_t address = kernel.entry;
  for (const Instruction& instruction : kernel.instructions) {
    if (instruction.mnemonic.find("_store_") != std::string::npos) {
      address = instruction.address;
    }
  }
  return address;
}

uint32_t IbSts(SplitMix64& rng) {
  const uint32_t vector_memory = rng.Below(16);
  const uint32_t exports = rng.Below(2);
  const uint32_t lds_and_scalar = rng.Below(4);
  return vector_memory | exports << 4 | lds_and_scalar << 8;
}

// s[0:3] the queue's descriptors, s[4:5] the kernel arguments, s6 and s7 the work-group.
std::vector<uint32_t> Sgprs(const Dispatch& dispatch, const WavePlan& plan, SplitMix64& rng) {
  const uint32_t groups = dispatch.grid_size[0] / dispatch.workgroup_size[0];
  std::vector<uint32_t> sgprs = {
      static_cast<uint32_t>(plan.trap_memory),
      static_cast<uint32_t>(plan.trap_memory >> 32),
      0xFFFFFFFF,
      0x00EA7FAC,
      static_cast<uint32_t>(dispatch.kernarg_address),
      static_cast<uint32_t>(dispatch.kernarg_address >> 32),
      static_cast<uint32_t>(plan.dispatch_group % groups),
      static_cast<uint32_t>(plan.dispatch_group / groups % groups),
  };
  while (sgprs.size() < plan.size.sgprs) {
    sgprs.push_back(rng.Below(3) == 0 ? rng.NextU32() : rng.Below(1024));
  }
  sgprs.resize(plan.size.sgprs);
  return sgprs;
}

// What computations leave behind: indices, addresses, floats, anything.
uint32_t VgprValue(uint32_t reg, uint32_t lane, uint32_t base) {
  switch (reg % 4) {
    case 0:
      return (base & 0xFFFFC0) + lane;
    case 1:
      return (base & ~0xFFu) + 4 * lane;
    case 2:
      return std::bit_cast<uint32_t>(static_cast<float>(base & 0xFFF) +
                                     0.125f * static_cast<float>(lane));
    default:
      return base * (2 * lane + 1);
  }
}

std::vector<uint32_t> Vgprs(uint32_t count, SplitMix64& rng) {
  std::vector<uint32_t> vgprs;
  vgprs.reserve(size_t{count} * kLanes);
  for (uint32_t reg = 0; reg < count; ++reg) {
    const uint32_t base = rng.NextU32();
    for (uint32_t lane = 0; lane < kLanes; ++lane) {
      vgprs.push_back(VgprValue(reg, lane, base));
    }
  }
  return vgprs;
}

void SetHealthy(const Dispatch& dispatch, SplitMix64& rng, WaveState& state) {
  const KernelCode& kernel = *dispatch.kernel.code;
  const Instruction* at = AnyInstruction(kernel, rng);
  state.pc = dispatch.kernel.load_address + (at == nullptr ? kernel.entry : at->address);
  state.exec = Exec(rng);
  if (at != nullptr && at->mnemonic == "s_barrier") {
    state.status |= kStatusInBarrier;
  }
  if (state.exec == 0) {
    state.status |= kStatusExecZero;
  }
}

// The wave stands in the trap handler; v[0:1] hold the addresses that its lanes stored to.
void SetFaulting(const Dispatch& dispatch, const WavePlan& plan, WaveState& state) {
  const KernelCode& kernel = *dispatch.kernel.code;
  state.pc = plan.trap_handler + 0x40 + uint64_t{4} * plan.wave;
  state.trap_pc = dispatch.kernel.load_address + FaultingInstruction(kernel);
  state.exec = UINT64_MAX;
  state.status |= kStatusPriv | kStatusHalt;
  state.trapsts =
      plan.fault == Fault::kMemoryViolation ? kTrapstsMemoryViolation : kTrapstsIllegalInstruction;
  if (plan.fault == Fault::kMemoryViolation) {
    for (uint32_t lane = 0; lane < kLanes; ++lane) {
      const uint64_t address = plan.fault_address + uint64_t{4} * (plan.wave * kLanes + lane);
      state.vgprs[lane] = static_cast<uint32_t>(address);
      state.vgprs[kLanes + lane] = static_cast<uint32_t>(address >> 32);
    }
  }
}

}  // namespace

uint32_t LdsDwords(const KernelCode& kernel) {
  return (kernel.lds_bytes + kLdsUnitBytes - 1) / kLdsUnitBytes * (kLdsUnitBytes / 4);
}

WaveState MakeWaveState(const Dispatch& dispatch, const WavePlan& plan, SplitMix64 rng) {
  WaveState state;
  state.mode = kMode;
  state.status = kStatusTrapEnabled | kStatusInGroup | kStatusValid;
  state.status |= rng.Below(2) == 0 ? kStatusScc : 0;
  state.status |= rng.Below(4) == 0 ? kStatusVccZero : 0;
  state.m0 = rng.Below(0x10000);
  state.hw_id = HwId(plan);
  state.gpr_alloc = GprAlloc(plan);
  state.lds_alloc = LdsAlloc(*dispatch.kernel.code, plan);
  state.ib_sts = IbSts(rng);
  state.trap_handler = plan.trap_handler;
  state.trap_memory = plan.trap_memory;
  state.sgprs = Sgprs(dispatch, plan, rng);
  state.vgprs = Vgprs(plan.size.vgprs, rng);
  for (uint32_t lane = 0; lane < kLanes; ++lane) {
    state.vgprs[lane] = plan.wave * kLanes + lane;  // v0: the work-item
  }
  if (plan.fault == Fault::kNone) {
    SetHealthy(dispatch, rng, state);
  } else {
    SetFaulting(dispatch, plan, state);
  }
  return state;
}

AreaWave ToAreaWave(WaveState state) {
  const auto low = [](uint64_t value) { return static_cast<uint32_t>(value); };
  const auto high = [](uint64_t value) { return static_cast<uint32_t>(value >> 32); };
  AreaWave wave;
  wave.vgprs = std::move(state.vgprs);
  wave.sgprs = std::move(state.sgprs);
  // The trap handler's base registers hold addresses without their low eight bits.
  wave.hwregs = {state.m0,
                 low(state.pc),
                 high(state.pc),
                 low(state.exec),
                 high(state.exec),
                 state.status,
                 state.trapsts,
                 low(state.xnack_mask),
                 high(state.xnack_mask),
                 state.mode,
                 state.hw_id,
                 state.gpr_alloc,
                 state.lds_alloc,
                 state.ib_sts,
                 low(state.trap_handler >> 8),
                 high(state.trap_handler >> 8)};
  wave.ttmps[0] = low(state.trap_memory >> 8);
  wave.ttmps[1] = high(state.trap_memory >> 8);
  wave.ttmps[7] = low(state.trap_pc);
  wave.ttmps[11] = (high(state.trap_pc) & 0xFFFF) << 7;
  return wave;
}

SavedWave ToSavedWave(const WaveState& state) {
  SavedWave wave;
  wave.mode = state.mode;
  wave.status = state.status;
  wave.trapsts = state.trapsts;
  wave.hw_id = state.hw_id;
  wave.gpr_alloc = state.gpr_alloc;
  wave.lds_alloc = state.lds_alloc;
  wave.ib_sts = state.ib_sts;
  wave.pc = state.pc;
  wave.inst_dw0 = kNop;
  wave.inst_dw1 = kNop;
  wave.m0 = state.m0;
  wave.exec = state.exec;
  wave.sgprs = state.sgprs;
  wave.vgprs.assign(size_t{kLanes} * kVgprSlotsPerLane, 0);
  for (size_t i = 0; i < state.vgprs.size(); ++i) {
    const size_t reg = i / kLanes;
    const size_t lane = i % kLanes;
    wave.vgprs[lane * kVgprSlotsPerLane + reg] = state.vgprs[i];
  }
  return wave;
}

}  // namespace sample
