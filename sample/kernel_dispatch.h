// A kernel that runs: where it was loaded, what it was given, how large its grid is.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "code_object_file.h"
#include "splitmix64.h"

namespace sample {

struct LoadedKernel {
  std::shared_ptr<const KernelCode> code;
  uint64_t load_address = 0;  // of its code object

  uint64_t address() const { return load_address + code->entry; }
};

struct Dispatch {
  LoadedKernel kernel;
  std::array<uint16_t, 3> workgroup_size = {};
  std::array<uint32_t, 3> grid_size = {};
  uint64_t kernarg_address = 0;
  uint64_t completion_signal = 0;
  std::string arguments = {};  // what lies at kernarg_address
};

// Launches `kernel` over a few hundred work-groups of 256 items. Pointer arguments are taken from
// `buffers` in order.
Dispatch MakeDispatch(const LoadedKernel& kernel, const std::vector<uint64_t>& buffers,
                      SplitMix64& rng);

}  // namespace sample
