// The registers of one wave that runs, or ran into a fault: made once, written as a wave of a
// context save area or as a saved wave record.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "core_file_writer.h"
#include "kernel_dispatch.h"
#include "splitmix64.h"

namespace sample {

constexpr uint32_t kLanes = 64;
constexpr uint32_t kWavesPerGroup = 4;

enum class Fault { kNone, kMemoryViolation, kIllegalInstruction };

// The registers that each wave of an agent has.
struct WaveSize {
  uint32_t vgprs = 0;         // a lane
  uint32_t vgpr_granule = 4;  // registers in a unit of the allocation fields
  uint32_t sgprs = 0;
};

struct WavePlan {
  WaveSize size = {};
  uint64_t group = 0;           // of the work-groups on the agent: decides the compute unit
  uint64_t dispatch_group = 0;  // of the work-groups of the dispatch
  uint32_t wave = 0;            // of the group
  uint32_t pipe = 0;
  Fault fault = Fault::kNone;
  uint64_t fault_address = 0;
  uint64_t trap_handler = 0;
  uint64_t trap_memory = 0;
};

struct WaveState {
  uint64_t pc = 0;
  uint64_t trap_pc = 0;
  uint64_t exec = 0;
  uint64_t xnack_mask = 0;
  uint64_t trap_handler = 0;
  uint64_t trap_memory = 0;
  uint32_t m0 = 0;
  uint32_t status = 0;
  uint32_t trapsts = 0;
  uint32_t mode = 0;
  uint32_t hw_id = 0;
  uint32_t gpr_alloc = 0;
  uint32_t lds_alloc = 0;
  uint32_t ib_sts = 0;
  std::vector<uint32_t> sgprs = {};
  std::vector<uint32_t> vgprs = {};  // register-major, 64 lanes each
};

// LDS of a work-group in dwords, in whole units of the allocation field.
uint32_t LdsDwords(const KernelCode& kernel);

WaveState MakeWaveState(const Dispatch& dispatch, const WavePlan& plan, SplitMix64 rng);

AreaWave ToAreaWave(WaveState state);
SavedWave ToSavedWave(const WaveState& state);

}  // namespace sample
