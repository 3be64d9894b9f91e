#include "dump_options.h"

#include <charconv>
#include <iterator>

namespace sample {

const char kDumpHelp[] =
    R"(Usage: talvex-sample --output DIR [OPTION]...

Writes a GPU core file, DIR/core_0, and a memory directory, DIR/mems, that look like those of an
application that came to a fatal GPU event. DIR is made when it is missing. The same options and
code objects give the same bytes on every run and machine.

  --output DIR          where to write; must be given
  --reason REASON       why the dump was taken (default vm-fault):
                          queue-error  the first queue stopped; seeds that are even give an illegal
                                       instruction with waves that met it, the others a lack of
                                       scratch memory
                          vm-fault     waves of the first agent touched a page that is not present
                          signal       SIGTERM for even seeds, SIGUSR1 for the others; the waves are
                                       saved in the core file itself
  --format N            header version of the core file, 0 or 1 (default 1)
  --agents N            GPU agents, 1 to 64 (default 1). The second has a second bank of VGPRs, the
                        third a larger VGPR unit, and so on in turn; a second bank adds 22 MB for
                        each queue that saves waves
  --queues N            queues, 0 to 4096 (default 4): AQL, SDMA, compute and SDMA XGMI in turn, for
                        each agent
  --waves N             waves of each agent that has AQL queues, 0 to 10000000 (default 12), spread
                        over those queues. A queue saves no more than fit into its area: 4 GiB, or
                        22 MB where a second bank of VGPRs follows
  --vgprs N             vector registers a lane, 1 to 256 (default 24), rounded up to what the agent
                        can allocate
  --faulting N          work-groups of the first agent, of up to 4 waves each, that fault where the
                        reason makes waves fault, 0 to 10000000 (default 1)
  --code-object FILE    a code object to load on every agent; may be given several times. Program
                        counters lie at real instructions when FILE.pcs, with the extension of FILE
                        replaced, lists them; otherwise at the kernels' entries. Without this option
                        the kernels that came with this program are loaded
  --seed N              a number from which all details are made, 0 to 18446744073709551615
                        (default 1)
  --help                print this text and exit

The exit status is 0 when everything was written, otherwise 1 with the cause on standard error.
)";

namespace {

struct NumberOption {
  const char* name;
  uint64_t low;
  uint64_t high;
  void (*set)(DumpOptions& options, uint64_t value);
};

constexpr NumberOption kNumberOptions[] = {
    {"--format", 0, 1,
     [](DumpOptions& o, uint64_t value) { o.format = static_cast<uint32_t>(value); }},
    {"--agents", 1, 64,
     [](DumpOptions& o, uint64_t value) { o.agents = static_cast<uint32_t>(value); }},
    {"--queues", 0, 4096,
     [](DumpOptions& o, uint64_t value) { o.queues = static_cast<uint32_t>(value); }},
    {"--waves", 0, 10'000'000, [](DumpOptions& o, uint64_t value) { o.waves = value; }},
    {"--vgprs", 1, 256,
     [](DumpOptions& o, uint64_t value) { o.vgprs = static_cast<uint32_t>(value); }},
    {"--faulting", 0, 10'000'000, [](DumpOptions& o, uint64_t value) { o.faulting = value; }},
    {"--seed", 0, UINT64_MAX, [](DumpOptions& o, uint64_t value) { o.seed = value; }},
};

struct ReasonName {
  const char* name;
  DumpReason reason;
};

constexpr ReasonName kReasonNames[] = {
    {"queue-error", DumpReason::kQueueError},
    {"vm-fault", DumpReason::kVmFault},
    {"signal", DumpReason::kSignal},
};

std::string Found(const std::string& option, const std::string& value,
                  const std::string& expected) {
  return option + ": found '" + value + "', expected " + expected;
}

bool SetNumber(const NumberOption& option, const std::string& text, DumpOptions& options,
               std::string& error) {
  uint64_t value = 0;
  const char* const end = text.data() + text.size();
  const auto [parsed, code] = std::from_chars(text.data(), end, value);
  if (code != std::errc() || parsed != end || value < option.low || value > option.high) {
    error = Found(
        option.name, text,
        "a whole number from " + std::to_string(option.low) + " to " + std::to_string(option.high));
    return false;
  }
  option.set(options, value);
  return true;
}

bool SetReason(const std::string& text, DumpOptions& options, std::string& error) {
  for (const ReasonName& row : kReasonNames) {
    if (row.name == text) {
      options.reason = row.reason;
      return true;
    }
  }
  error = Found("--reason", text, "queue-error, vm-fault or signal");
  return false;
}

const NumberOption* FindNumberOption(const std::string& name) {
  for (const NumberOption& option : kNumberOptions) {
    if (option.name == name) {
      return &option;
    }
  }
  return nullptr;
}

bool TakesText(const std::string& name) {
  return name == "--output" || name == "--reason" || name == "--code-object";
}

bool SetOption(const std::string& name, const std::string& value, DumpOptions& options,
               std::string& error) {
  if (const NumberOption* number = FindNumberOption(name)) {
    return SetNumber(*number, value, options, error);
  }
  if (name == "--reason") {
    return SetReason(value, options, error);
  }
  if (name == "--output") {
    options.output = value;
  } else {
    options.code_objects.push_back(value);
  }
  return true;
}

}  // namespace

bool ParseDumpOptions(const std::vector<std::string>& arguments, DumpOptions& options,
                      std::string& error) {
  for (size_t i = 0; i < arguments.size(); ++i) {
    const std::string& name = arguments[i];
    if (name == "--help") {
      options.help = true;
      return true;
    }
    if (FindNumberOption(name) == nullptr && !TakesText(name)) {
      error = "unknown option '" + name + "'; --help lists them all";
      return false;
    }
    if (i + 1 == arguments.size()) {
      error = name + " needs a value; --help tells which";
      return false;
    }
    if (!SetOption(name, arguments[++i], options, error)) {
      return false;
    }
  }
  if (options.output.empty()) {
    error = "--output DIR is missing; --help lists all options";
    return false;
  }
  return true;
}

}  // namespace sample
