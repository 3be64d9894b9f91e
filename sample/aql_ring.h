// The ring of an AQL queue: packets of every kind that the packet processor has retired, then some
// that are in flight, then slots that were never used.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "kernel_dispatch.h"
#include "splitmix64.h"

namespace sample {

constexpr uint64_t kAqlRingSlots = 64;
constexpr uint64_t kKernargStride = 256;  // bytes for each slot's kernel arguments

struct AqlRingPlan {
  int format = 1;  // of the core file: it decides where the headers of retired packets are kept
  std::vector<LoadedKernel> kernels = {};
  std::optional<LoadedKernel> first_in_flight = {};  // otherwise the next of `kernels`
  std::vector<uint64_t> buffers = {};
  uint64_t kernargs = 0;  // address of the arguments, kKernargStride bytes a slot
  uint64_t signals = 0;   // address of the signals, 64 bytes each
};

struct AqlRing {
  std::string bytes = {};
  std::vector<uint32_t> header_backup = {};  // one word a slot in format 1, none in format 0
  uint64_t read_index = 0;
  uint64_t write_index = 0;
  std::vector<Dispatch> in_flight = {};
  std::string kernargs = {};  // what lies at AqlRingPlan::kernargs
};

AqlRing MakeAqlRing(const AqlRingPlan& plan, SplitMix64 rng);

}  // namespace sample
