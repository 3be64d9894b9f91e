// All waves of one agent: which dispatch each runs, where it runs, and the context save areas of
// the agent's AQL queues.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "core_file_writer.h"
#include "kernel_dispatch.h"
#include "wave_state.h"

namespace sample {

// Work-groups are numbered through the agent and dealt out to its queues in turn; every group has
// kWavesPerGroup waves but for the last of a queue. The first `faulting_groups` are those that
// fault.
struct AgentWaves {
  uint64_t seed = 0;  // of this agent
  WaveSize size = {};
  uint64_t second_bank_distance = 0;  // bytes from a wave's VGPRs to their upper half; 0: no such
  std::vector<std::vector<Dispatch>> queues = {};  // what is in flight on each AQL queue
  Fault fault = Fault::kNone;
  uint64_t faulting_groups = 1;
  uint64_t fault_address = 0;
  uint64_t trap_handler = 0;
  uint64_t trap_memory = 0;

  const Dispatch& DispatchOf(uint64_t group) const;
  WaveState Wave(uint64_t group, uint32_t wave) const;
};

struct QueueContext {
  Content image = {};
  uint64_t control_stack_size = 0;  // with the header and what is unused before it
};

// The area of the agent's AQL queue number `queue` with `waves` waves.
QueueContext MakeQueueContext(const std::shared_ptr<const AgentWaves>& agent, uint32_t queue,
                              uint64_t waves);

// How many waves a queue can save: its area's offsets have 32 bits, and a second bank of VGPRs lies
// a fixed distance from the first, so all waves must end below that.
uint64_t MostWavesOfQueue(const AgentWaves& agent);

}  // namespace sample
