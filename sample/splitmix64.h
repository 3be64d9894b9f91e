// The SplitMix64 generator: small, fast, and the same on every machine, which the distributions of
// the standard library are not.
#pragma once

#include <cstdint>
#include <initializer_list>

namespace sample {

class SplitMix64 {
 public:
  explicit SplitMix64(uint64_t seed) : state_(seed) {}

  // A generator of its own for the thing that `path` names, whatever else was generated before it.
  SplitMix64(uint64_t seed, std::initializer_list<uint64_t> path) : state_(seed) {
    for (const uint64_t step : path) {
      state_ = Next() ^ step;
    }
  }

  uint64_t Next() {
    state_ += 0x9E3779B97F4A7C15;
    uint64_t z = state_;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EB;
    return z ^ (z >> 31);
  }

  uint32_t NextU32() { return static_cast<uint32_t>(Next() >> 32); }

  // From 0 to `limit` - 1. The small bias of the remainder does not matter here.
  uint32_t Below(uint32_t limit) { return NextU32() % limit; }

 private:
  uint64_t state_;
};

}  // namespace sample
