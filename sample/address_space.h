// GPU virtual addresses for whatever a dump mentions.
#pragma once

#include <cstdint>

#include "splitmix64.h"

namespace sample {

class AddressSpace {
 public:
  explicit AddressSpace(SplitMix64 rng) : next_(kBase + rng.Below(0x800) * kBaseStep) {}

  // Whole pages that nothing else has, with an unused page behind them.
  uint64_t Allocate(uint64_t size) {
    const uint64_t address = next_;
    next_ += (size + kPage - 1) / kPage * kPage + kPage;
    return address;
  }

 private:
  static constexpr uint64_t kBase = 0x7F0000000000;
  static constexpr uint64_t kBaseStep = 0x10000000;
  static constexpr uint64_t kPage = 4096;

  uint64_t next_;
};

}  // namespace sample
