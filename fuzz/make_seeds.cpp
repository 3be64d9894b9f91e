// Writes the seeds of every fuzz target: small inputs that together have every kind of region,
// record and packet.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "core_file_writer.h"

namespace {

namespace fs = std::filesystem;

constexpr uint32_t kComputeQueue = 0;
constexpr uint32_t kSdmaQueue = 1;
constexpr uint32_t kAqlQueue = 2;
constexpr uint32_t kHeronChip = 0x500F;

constexpr uint64_t kKernelAddress = 0x7000100;
constexpr uint64_t kArgumentsAddress = 0x200000;

bool WriteSeed(const fs::path& dir, const std::string& name, const std::string& bytes) {
  fs::create_directories(dir);
  const std::string path = dir / name;
  FILE* file = fopen(path.c_str(), "wb");
  const bool written =
      file != nullptr && fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
  if (file == nullptr || fclose(file) != 0 || !written) {
    perror(path.c_str());
    return false;
  }
  return true;
}

std::string U32(uint32_t value) { return sample::Dwords({value}); }

// ---------------------------------------------------------------------------------------------
// Rings

// Every type of AQL packet, and two retired ones: one keeps its header in the slot, one behind the
// ring.
std::vector<std::string> AqlSlots() {
  sample::KernelDispatch dispatch;
  dispatch.header = 0x1502;
  dispatch.setup = 3;
  dispatch.workgroup_size = {64, 2, 1};
  dispatch.grid_size = {1024, 2, 1};
  dispatch.group_segment_size = 512;
  dispatch.kernel_object = kKernelAddress;
  dispatch.kernarg_address = kArgumentsAddress;
  return {
      sample::KernelDispatchPacket(dispatch),
      sample::BarrierPacket({.header = 0x103, .dep_signal = {1, 2, 3, 4, 5}}),
      sample::AgentDispatchPacket({.header = 4, .type = 7, .arg = {1, 2, 3, 4}}),
      sample::BarrierPacket({.header = 5}),
      sample::BarrierPacket({.header = 1, .reserved2 = 0x1502}),
      sample::BarrierPacket({.header = 1}),
      sample::BarrierPacket({.header = 0}),
      sample::BarrierPacket({.header = 6}),
  };
}

std::vector<uint32_t> AqlBackup() { return {0, 0, 0, 0, 0, 0x1502, 0, 0}; }

std::string Joined(const std::vector<std::string>& pieces) {
  std::string all;
  for (const std::string& piece : pieces) {
    all += piece;
  }
  return all;
}

// Every SDMA packet, a dword that is none, and a rectangular copy that goes on behind the end.
std::string SdmaRing() {
  return sample::Dwords({
      1,      0xFF,   0,      0x1000,  0x7F,   0x2000,  0x7F,                         // COPY LINEAR
      0x401,  0x1000, 0x7F,   0x10001, 0x2001, 5,       0x2000, 0x7F, 3, 4, 5, 6, 7,  // and RECT
      5,      0x1000, 0x7F,   42,                                                     // FENCE
      6,      1,                                                                      // TRAP
      0x8008, 0x1000, 0x7F,   1,       0xFF,   0x10004,                               // POLL REGMEM
      0xA,    0x1000, 0x7F,   1,       0,      0,       0,      9,                    // ATOMIC
      0xB,    0x1000, 0x7F,   0xAB,    64,                                            // CONST FILL
      0xD,    0x1000, 0x7F,                                                           // TIMESTAMP
      0xFF,   0x101,  0x1000,
  });
}

// ---------------------------------------------------------------------------------------------
// Context save areas

sample::AreaWave Wave(uint32_t hw_id, uint32_t trapsts, bool first_in_group) {
  sample::AreaWave wave;
  wave.hwregs = {1, 0x7000110, 0,     0xFFFFFFFF, 0xFFFFFFFF, 0x10041, trapsts, 0,
                 0, 0xC0,      hw_id, 0x1000100,  0x1000,     0x4000F, 0x100,   0};
  wave.ttmps[7] = 0x7000120;
  wave.first_in_group = first_in_group;
  wave.vgprs = {1, 2, 3, 4};
  wave.sgprs = {5, 6, 7, 8};
  wave.lds = {9, 10, 11, 12};
  return wave;
}

sample::AreaGroup Group(uint32_t granule, uint32_t vgprs, uint32_t lds_dwords) {
  sample::AreaGroup group;
  group.state = sample::StateRecord(vgprs, granule, 16, lds_dwords);
  group.vgpr_count = vgprs;
  group.sgpr_count = 16;
  group.lds_dwords = lds_dwords;
  group.before = {0x40000000, 0xC0000000};  // an event and an entry to ignore
  group.waves = {Wave(0x2100, 0, true), Wave(0x2110, 0x100, false)};
  return group;
}

sample::AreaGroup GroupWithoutRegisters() {
  sample::AreaGroup group;
  group.state_record = false;
  group.waves = {Wave(1, 0, true)};
  return group;
}

// The second group gives the shared LDS of the first another size.
std::string AreaWithGrownLds() {
  sample::AreaGroup grown;
  grown.state = sample::StateRecord(4, 4, 16, 256);
  grown.vgpr_count = 4;
  grown.sgpr_count = 16;
  grown.lds_dwords = 256;
  grown.waves = {Wave(0x2120, 0, false)};
  return sample::ContextAreaBytes({.groups = {Group(4, 4, 128), grown}});
}

std::string Area(uint32_t granule) {
  return sample::ContextAreaBytes(
      {.groups = {GroupWithoutRegisters(), Group(granule, granule, 128)}, .slack = 16});
}

// ---------------------------------------------------------------------------------------------
// Core files

sample::Agent Agent(uint32_t number, uint32_t chip_id, bool is_dp4x) {
  sample::Agent agent;
  agent.name = "gfx-906-" + std::to_string(number);
  agent.gpu_id = 100 * number;
  agent.node_id = number;
  agent.chip_id = chip_id;
  agent.is_dp4x = is_dp4x;
  agent.num_cus = 60;
  agent.handle = uint64_t{0x10} * number;
  return agent;
}

sample::Queue Queue(uint32_t id, uint32_t gpu_id, uint32_t type) {
  sample::Queue queue;
  queue.queue_id = id;
  queue.gpu_id = gpu_id;
  queue.queue_type = type;
  queue.ring_address = uint64_t{0x100000} * id;
  return queue;
}

sample::Queue AqlQueue(uint32_t id, uint32_t gpu_id, const std::string& area) {
  sample::Queue queue = Queue(id, gpu_id, kAqlQueue);
  queue.queue_format = 1;
  queue.ring = Joined(AqlSlots());
  queue.header_backup = AqlBackup();
  queue.context = area;
  return queue;
}

// A dump of queue error or VM fault with two agents and every type of queue.
sample::CoreFile FaultDump(uint32_t reason, int format) {
  sample::CoreFile file;
  file.format = format;
  file.reason.reason = reason;
  file.reason.agent_name = "gfx-906-1";
  file.reason.node_id = 1;
  file.reason.fault_reason_mask = 3;
  file.reason.virtual_address = 0x7F0000001000;
  file.reason.status = 0x29;
  file.reason.ring_addr = 0x700000;
  file.agents = {Agent(1, 0xFFFF, false), Agent(2, kHeronChip, true)};
  sample::Queue sdma = Queue(8, 100, kSdmaQueue);
  sdma.ring = SdmaRing();
  file.queues = {AqlQueue(7, 100, Area(4)), sdma, AqlQueue(9, 200, AreaWithGrownLds()),
                 Queue(10, 100, kComputeQueue)};
  file.code_objects.resize(2);
  file.code_objects[0] = {.addr_loaded = 0x7000000,
                          .size_loaded = 0x1000,
                          .agent = 0x10,
                          .elf = "elf",
                          .kernels = {{kKernelAddress, "copy"}, {kKernelAddress + 64, "scale"}}};
  file.code_objects[1] = {.addr_loaded = 0x8000000, .size_loaded = 0x1000, .elf = "elf"};
  file.environment = "HOME=/root\nLANG=C\n";
  return file;
}

// A signal dump whose wave record is cut short: whole it would be most of every input.
sample::CoreFile SignalDump() {
  sample::CoreFile file;
  file.reason.reason = 2;
  file.reason.sig = 15;
  file.agents = {Agent(1, 0xFFFF, false)};
  sample::SavedWave wave;
  wave.gpr_alloc = 0x1000100;
  wave.hw_id = 0x2100;
  wave.pc = 0x7000110;
  file.agents[0].waves = {wave};
  file.code_objects.resize(1);
  file.code_objects[0] = {.addr_loaded = 0x7000000, .size_loaded = 0x1000, .elf = "elf"};
  return file;
}

constexpr char kIndex[] =
    "[0x200000 32 0x200020 0 0x1 alloc\n"
    "[0x200000 32 mapped to gpu: 100\n"
    "comment\n"
    "(4096 0x1000 a b 010 alloc gpu: 7\n";

constexpr char kShortIndex[] = "[0x200000 32 alloc\n";

std::string WholeRun(const std::string& core, const std::string& index) {
  return U32(static_cast<uint32_t>(core.size())) + U32(static_cast<uint32_t>(index.size())) + core +
         index + "the arguments of a kernel.......";
}

bool WriteWholeRunSeeds(const fs::path& dir) {
  const std::string vm_fault = sample::CoreFileBytes(FaultDump(1, 1));
  return WriteSeed(dir, "vm_fault", WholeRun(vm_fault, kIndex)) &&
         WriteSeed(dir, "queue_error_v0",
                   WholeRun(sample::CoreFileBytes(FaultDump(0, 0)), kIndex)) &&
         WriteSeed(dir, "signal_cut",
                   WholeRun(sample::CoreFileBytes(SignalDump()).substr(0, 4096), "")) &&
         WriteSeed(dir, "signal", WholeRun(sample::CoreFileBytes(SignalDump()), "")) &&
         WriteSeed(dir, "short_index_line", WholeRun(vm_fault.substr(0, 256), kShortIndex)) &&
         WriteSeed(dir, "empty_file", WholeRun("", "")) &&
         WriteSeed(dir, "no_core_file",
                   WholeRun("\x7F"
                            "ELF\2\1\1",
                            ""));
}

// ---------------------------------------------------------------------------------------------
// Decoders

bool WriteAqlSeeds(const fs::path& dir) {
  std::string slots;
  for (size_t i = 0; i < AqlSlots().size(); ++i) {
    slots += U32(AqlBackup()[i]) + AqlSlots()[i];
  }
  return WriteSeed(dir, "with_backup", '\1' + slots) &&
         WriteSeed(dir, "without_backup", '\0' + slots);
}

bool WriteSdmaSeeds(const fs::path& dir) {
  return WriteSeed(dir, "every_packet", '\0' + SdmaRing()) &&
         WriteSeed(dir, "bytes_behind", '\x10' + SdmaRing()) &&
         WriteSeed(dir, "cut_in_a_dword", '\x80' + SdmaRing().substr(0, 70));
}

bool WriteContextSaveAreaSeeds(const fs::path& dir) {
  return WriteSeed(dir, "granule_4", '\0' + Area(4)) &&
         WriteSeed(dir, "granule_8", '\1' + Area(8)) &&
         WriteSeed(dir, "grown_lds", '\0' + AreaWithGrownLds()) &&
         WriteSeed(dir, "without_waves", '\0' + sample::ContextAreaBytes({})) &&
         WriteSeed(dir, "cut_in_a_wave", '\0' + Area(4).substr(0, 1000));
}

bool WriteMemoryIndexSeeds(const fs::path& dir) {
  const std::string snapshot(32, 'a');
  return WriteSeed(dir, "regions", U32(32) + snapshot + kIndex) &&
         WriteSeed(dir, "short_snapshot", U32(5) + "short" + kIndex) &&
         WriteSeed(dir, "empty_snapshot", U32(0) + kIndex) &&
         WriteSeed(dir, "short_line", U32(0) + kShortIndex);
}

}  // namespace

// Usage: talvex_fuzz_seeds CORPUS_DIRECTORY. Writes CORPUS_DIRECTORY/<target>/<seed>.
int main(int argc, char** argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: %s CORPUS_DIRECTORY\n", argv[0]);
    return 2;
  }
  const fs::path corpus = argv[1];
  const bool written = WriteWholeRunSeeds(corpus / "whole_run") && WriteAqlSeeds(corpus / "aql") &&
                       WriteSdmaSeeds(corpus / "sdma") &&
                       WriteContextSaveAreaSeeds(corpus / "context_save_area") &&
                       WriteMemoryIndexSeeds(corpus / "memory_index");
  return written ? 0 : 1;
}
