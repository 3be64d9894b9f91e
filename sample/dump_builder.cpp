#include "dump_builder.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "address_space.h"
#include "agent_waves.h"
#include "aql_ring.h"
#include "dword_rings.h"
#include "splitmix64.h"

namespace sample {
namespace {

enum QueueType : uint32_t { kCompute = 0, kSdma = 1, kComputeAql = 2, kSdmaXgmi = 3 };

// AQL first, so that even one queue has waves.
constexpr QueueType kQueueTypes[] = {kComputeAql, kSdma, kCompute, kSdmaXgmi};

// What the agents are, in turn.
struct AgentModel {
  uint32_t chip_id;
  bool is_dp4x;
  bool has_second_bank;  // of VGPRs, in its context save areas
};

constexpr AgentModel kAgentModels[] = {
    {0x5001, false, false}, {0x500F, true, true}, {0x5011, true, false},
    {0x5008, false, false}, {0x5010, true, true}, {0x5014, true, false},
};

// Code objects are disassembled for the processor whose number stands in their agent's name.
constexpr char kAgentName[] = "ORVEN-gfx906";

constexpr uint32_t kSgprs = 48;
constexpr uint32_t kPlainGranule = 4;
constexpr uint32_t kDp4xGranule = 8;
constexpr uint64_t kSecondBankDistance[] = {0x1545000, 0x155A000};  // by format

constexpr uint64_t kPage = 4096;
constexpr uint64_t kDwordRingSize = 4096;
constexpr uint64_t kBufferSize = 16 << 20;
constexpr uint32_t kBuffers = 4;
constexpr uint64_t kFaultDistance = uint64_t{64} << 30;  // from the buffers, far behind all of them

constexpr uint32_t kPageNotPresent = 1;
constexpr uint32_t kStatusIllegalInstruction = 0x2A;
constexpr uint32_t kStatusOutOfResources = 0x1008;
constexpr int32_t kSigTerm = 15;
constexpr int32_t kSigUsr1 = 10;

constexpr char kEnvironment[] =
    "SHELL=/bin/bash\n"
    "HOME=/home/user\n"
    "USER=user\n"
    "LANG=C.UTF-8\n"
    "PATH=/opt/rocm/bin:/usr/local/bin:/usr/bin:/bin\n"
    "LD_LIBRARY_PATH=/opt/rocm/lib\n"
    "OMP_NUM_THREADS=8\n"
    "PWD=/home/user/histogram\n"
    "TERM=xterm-256color\n";

// What generators are made for; the first step of their paths.
enum Detail : uint64_t { kAddresses, kAgentDetail, kRing, kWaves };

struct AgentScene {
  std::vector<LoadedKernel> kernels = {};
  std::vector<uint64_t> buffers = {};
  std::shared_ptr<AgentWaves> waves = std::make_shared<AgentWaves>();
  std::vector<size_t> aql_queues = {};  // indices in the core file
};

class DumpBuilder {
 public:
  DumpBuilder(const DumpOptions& options, const std::vector<CodeObjectFile>& code_objects)
      : options_(options),
        code_objects_(code_objects),
        addresses_(SplitMix64(options.seed, {kAddresses})) {}

  Dump Build() {
    dump_.core.format = static_cast<int>(options_.format);
    dump_.core.environment = kEnvironment;
    for (uint32_t i = 0; i < options_.agents; ++i) {
      AddAgent(i);
    }
    for (uint32_t i = 0; i < options_.queues; ++i) {
      AddQueue(i);
    }
    for (uint32_t i = 0; i < options_.agents; ++i) {
      AddWaves(i);
    }
    SetReason();
    return std::move(dump_);
  }

 private:
  bool SeedIsEven() const { return options_.seed % 2 == 0; }

  Fault FaultOfFirstAgent() const {
    switch (options_.reason) {
      case DumpReason::kVmFault:
        return Fault::kMemoryViolation;
      case DumpReason::kQueueError:
        return SeedIsEven() ? Fault::kIllegalInstruction : Fault::kNone;
      case DumpReason::kSignal:
        return Fault::kNone;
    }
    return Fault::kNone;
  }

  void AddAgent(uint32_t index) {
    const AgentModel& model = kAgentModels[index % std::size(kAgentModels)];
    SplitMix64 rng(options_.seed, {kAgentDetail, index});
    Agent agent;
    agent.name = kAgentName;
    agent.gpu_id = 10'000 + 500 * index + rng.Below(500);
    agent.node_id = index + 1;
    agent.drm_id = 128 + index;
    agent.pci_bus_id = static_cast<int32_t>(3 + 3 * index);
    agent.location_id = static_cast<uint32_t>(agent.pci_bus_id) << 8;
    agent.chip_id = model.chip_id;
    agent.is_dp4x = model.is_dp4x;
    agent.num_cus = 64;
    agent.max_engine_freq = 1700;
    agent.max_memory_freq = 1000;
    agent.waves_per_cu = 40;
    agent.num_simds_per_cu = 4;
    agent.num_ses = 4;
    agent.handle = addresses_.Allocate(kPage);
    dump_.core.agents.push_back(agent);

    AgentScene scene;
    for (const CodeObjectFile& file : code_objects_) {
      LoadCodeObject(file, agent.handle, scene.kernels);
    }
    for (uint32_t i = 0; i < kBuffers; ++i) {
      scene.buffers.push_back(addresses_.Allocate(kBufferSize));
    }
    const uint32_t granule = model.is_dp4x ? kDp4xGranule : kPlainGranule;
    scene.waves->seed = SplitMix64(options_.seed, {kWaves, index}).Next();
    scene.waves->size = {(options_.vgprs + granule - 1) / granule * granule, granule, kSgprs};
    scene.waves->second_bank_distance =
        model.has_second_bank ? kSecondBankDistance[options_.format] : 0;
    scene.waves->trap_handler = addresses_.Allocate(kPage);
    scene.waves->trap_memory = addresses_.Allocate(kPage);
    if (index == 0) {
      scene.waves->fault = FaultOfFirstAgent();
      scene.waves->faulting_groups = options_.faulting;
      scene.waves->fault_address =
          scene.buffers.front() + kFaultDistance + kPage * rng.Below(1 << 16);
    }
    scenes_.push_back(std::move(scene));
  }

  void LoadCodeObject(const CodeObjectFile& file, uint64_t agent,
                      std::vector<LoadedKernel>& kernels) {
    CodeObject object;
    object.addr_loaded = addresses_.Allocate(file.loaded_size);
    object.size_loaded = file.loaded_size;
    object.addr_elf = addresses_.Allocate(file.elf->size());
    object.agent = agent;
    object.elf = Content(file.elf->size(), [elf = file.elf](const auto& take) { take(*elf); });
    for (const auto& code : file.kernels) {
      kernels.push_back({code, object.addr_loaded});
      object.kernels.push_back({kernels.back().address(), code->name});
    }
    dump_.core.code_objects.push_back(std::move(object));
  }

  // Each agent gets its first queue, then each its second, and so on.
  void AddQueue(uint32_t index) {
    const uint32_t agent = index % options_.agents;  // NOLINT: there is at least one
    const QueueType type = kQueueTypes[index / options_.agents % std::size(kQueueTypes)];
    const SplitMix64 rng(options_.seed, {kRing, index});
    Queue queue;
    queue.queue_id = index;
    queue.gpu_id = dump_.core.agents[agent].gpu_id;
    queue.queue_type = type;
    queue.queue_format = type == kComputeAql ? 1 : 0;
    queue.mqd_address = addresses_.Allocate(kPage);
    queue.doorbell_offset = 0x1000 + 8 * index;
    const uint64_t pointers = addresses_.Allocate(kPage);
    queue.wptr_address = pointers + 0x38;
    queue.rptr_address = pointers + 0x80;
    switch (type) {
      case kComputeAql:
        FillAqlQueue(agent, rng, queue);
        break;
      case kCompute:
        FillDwordQueue(MakeComputeRing(kDwordRingSize, rng), queue);
        break;
      case kSdma:
      case kSdmaXgmi:
        FillDwordQueue(MakeSdmaRing(kDwordRingSize, scenes_[agent].buffers, rng), queue);
        break;
    }
    queue.ring_address = addresses_.Allocate(queue.ring.size());
    dump_.core.queues.push_back(std::move(queue));
  }

  static void FillDwordQueue(DwordRing ring, Queue& queue) {
    queue.wptr_value = ring.used;
    queue.rptr_value = ring.used / 2 / 4 * 4;
    queue.ring = std::move(ring.bytes);
  }

  void FillAqlQueue(uint32_t agent, SplitMix64 rng, Queue& queue) {
    AgentScene& scene = scenes_[agent];
    AqlRingPlan plan;
    plan.format = dump_.core.format;
    plan.kernels = scene.kernels;
    if (scene.waves->fault != Fault::kNone && scene.aql_queues.empty()) {
      plan.first_in_flight = FaultingKernel(scene.kernels);
    }
    plan.buffers = scene.buffers;
    plan.kernargs = addresses_.Allocate(kAqlRingSlots * kKernargStride);
    plan.signals = addresses_.Allocate(kPage);
    AqlRing ring = MakeAqlRing(plan, rng);
    queue.eop_address = addresses_.Allocate(kPage);
    queue.eop_size = kPage;
    queue.wptr_value = ring.write_index;
    queue.rptr_value = ring.read_index;
    queue.ring = std::move(ring.bytes);
    queue.header_backup = std::move(ring.header_backup);
    dump_.memory.push_back({plan.kernargs, std::move(ring.kernargs), 0x21, {queue.gpu_id}});
    scene.waves->queues.push_back(std::move(ring.in_flight));
    scene.aql_queues.push_back(dump_.core.queues.size());
  }

  // The one that stores out of bounds, when it is there.
  static LoadedKernel FaultingKernel(const std::vector<LoadedKernel>& kernels) {
    const auto found = std::find_if(kernels.begin(), kernels.end(), [](const LoadedKernel& kernel) {
      return kernel.code->name == "histogram";
    });
    return found == kernels.end() ? kernels.front() : *found;
  }

  void AddWaves(uint32_t index) {
    const AgentScene& scene = scenes_[index];
    const bool in_core_file = options_.reason == DumpReason::kSignal;
    if (in_core_file && !scene.aql_queues.empty()) {
      AddSavedWaves(scene.waves, dump_.core.agents[index]);
    }
    const uint64_t queues = scene.aql_queues.size();
    for (uint32_t i = 0; i < queues; ++i) {
      const uint64_t waves =
          in_core_file ? 0 : options_.waves / queues + (i < options_.waves % queues ? 1 : 0);
      AddContext(scene.waves, i, waves, dump_.core.queues[scene.aql_queues[i]]);
    }
  }

  void AddSavedWaves(const std::shared_ptr<const AgentWaves>& waves, Agent& agent) const {
    agent.wave_count = options_.waves;
    agent.make_wave = [waves](uint64_t index) {
      return ToSavedWave(
          waves->Wave(index / kWavesPerGroup, static_cast<uint32_t>(index % kWavesPerGroup)));
    };
  }

  void AddContext(const std::shared_ptr<const AgentWaves>& agent, uint32_t index, uint64_t waves,
                  Queue& queue) {
    QueueContext context =
        MakeQueueContext(agent, index, std::min(waves, MostWavesOfQueue(*agent)));
    queue.is_suspended = waves == 0 ? 0 : 1;
    queue.control_stack_size = context.control_stack_size;
    queue.context_sr_address = addresses_.Allocate(context.image.size());
    queue.context = std::move(context.image);
  }

  void SetReason() {
    const Agent& agent = dump_.core.agents.front();
    Reason& reason = dump_.core.reason;
    reason.reason = static_cast<uint32_t>(options_.reason);
    reason.agent_name = agent.name;
    reason.node_id = agent.node_id;
    switch (options_.reason) {
      case DumpReason::kQueueError:
        reason.status = SeedIsEven() ? kStatusIllegalInstruction : kStatusOutOfResources;
        reason.ring_addr = dump_.core.queues.empty() ? 0 : dump_.core.queues.front().ring_address;
        break;
      case DumpReason::kVmFault:
        reason.fault_reason_mask = kPageNotPresent;
        reason.virtual_address = scenes_.front().waves->fault_address;
        break;
      case DumpReason::kSignal:
        reason.sig = SeedIsEven() ? kSigTerm : kSigUsr1;
        break;
    }
  }

  const DumpOptions& options_;
  const std::vector<CodeObjectFile>& code_objects_;
  AddressSpace addresses_;
  std::vector<AgentScene> scenes_;
  Dump dump_;
};

}  // namespace

Dump BuildDump(const DumpOptions& options, const std::vector<CodeObjectFile>& code_objects) {
  return DumpBuilder(options, code_objects).Build();
}

}  // namespace sample
