// The rings of queues that hold streams of dwords: SDMA packets, and the packets of compute queues
// that are not AQL.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "splitmix64.h"

namespace sample {

struct DwordRing {
  std::string bytes = {};
  uint64_t used = 0;  // bytes that packets take; zeros follow
};

// SDMA packets of every kind between `buffers`, with unknown dwords among them.
DwordRing MakeSdmaRing(uint64_t size, const std::vector<uint64_t>& buffers, SplitMix64 rng);

// Packets of type 3, each with a body of a few dwords.
DwordRing MakeComputeRing(uint64_t size, SplitMix64 rng);

}  // namespace sample
