// The command line of talvex-sample.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace sample {

enum class DumpReason : uint32_t { kQueueError = 0, kVmFault = 1, kSignal = 2 };

struct DumpOptions {
  std::string output = {};
  DumpReason reason = DumpReason::kVmFault;
  uint32_t format = 1;
  uint32_t agents = 1;
  uint32_t queues = 4;
  uint64_t waves = 12;
  uint32_t vgprs = 24;
  uint64_t faulting = 1;  // work-groups, where the reason makes waves fault
  std::vector<std::string> code_objects = {};
  uint64_t seed = 1;
  bool help = false;
};

// Reads the arguments behind the program's name. On failure gives false and says in `error` what
// was found and what was expected.
bool ParseDumpOptions(const std::vector<std::string>& arguments, DumpOptions& options,
                      std::string& error);

extern const char kDumpHelp[];

}  // namespace sample
