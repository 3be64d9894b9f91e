// Writes core files and memory directories from a declaration of what they hold.
//
// The writer places every field by explicit offset and width and shares no structure with the
// reader, so that a wrong layout in either shows. It trusts its input: any count, size or offset
// can be overridden to make a file that lies about itself.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace sample {

// Every member of the declarations below has an initialiser, so that designated initialisers may
// leave out any of them.

// The bytes of one region of the file: held as they are, or made when they are written, for regions
// too large to hold.
class Content {
 public:
  // Called once with a function that takes the region's bytes, in order, piece by piece.
  using Producer = std::function<void(const std::function<void(const std::string&)>& take)>;

  Content() = default;
  // Both implicit, so that a declaration can give bytes where it wants a content.
  Content(std::string bytes) : bytes_(std::move(bytes)), size_(bytes_.size()) {}  // NOLINT
  Content(const char* text) : Content(std::string(text)) {}                       // NOLINT
  Content(uint64_t size, Producer producer) : size_(size), producer_(std::move(producer)) {}

  uint64_t size() const { return size_; }
  // Hands the bytes to `take`; exactly size() of them.
  void Produce(const std::function<void(const std::string&)>& take) const;

 private:
  std::string bytes_;
  uint64_t size_ = 0;
  Producer producer_;
};

struct Reason {
  uint32_t reason = 0;  // 0 queue error, 1 VM fault, 2 signal
  std::string agent_name = {};
  uint32_t node_id = 0;
  uint32_t fault_reason_mask = 0;
  uint64_t virtual_address = 0;
  uint32_t status = 0;
  uint64_t ring_addr = 0;
  int32_t sig = 0;
};

// A wave record of a signal dump (69,696 bytes in the file).
struct SavedWave {
  uint32_t mode = 0;
  uint32_t status = 0;
  uint32_t trapsts = 0;
  uint32_t hw_id = 0;
  uint32_t gpr_alloc = 0;
  uint32_t lds_alloc = 0;
  uint32_t ib_sts = 0;
  uint64_t pc = 0;
  uint32_t inst_dw0 = 0;
  uint32_t inst_dw1 = 0;
  uint32_t ib_dbg0 = 0;
  uint32_t ib_dbg1 = 0;
  uint32_t m0 = 0;
  uint64_t exec = 0;
  std::vector<uint32_t> vgprs = {};  // lane-major, 256 slots a lane; short ones end in zeros
  std::vector<uint32_t> sgprs = {};  // likewise, 1024 slots
};

struct Agent {
  std::string name = {};
  uint32_t gpu_id = 0;
  uint32_t node_id = 0;
  uint32_t drm_id = 0;
  uint32_t location_id = 0;
  int32_t pci_domain_id = 0;
  int32_t pci_bus_id = 0;
  int32_t pci_device_id = 0;
  uint32_t chip_id = 0;
  bool is_dp4x = false;
  uint32_t num_cus = 0;
  uint32_t max_engine_freq = 0;
  uint32_t max_memory_freq = 0;
  uint32_t waves_per_cu = 0;
  uint32_t num_simds_per_cu = 0;
  uint32_t num_ses = 0;
  uint64_t handle = 0;
  // The wave records. Many can be made one by one instead: `wave_count` calls of `make_wave`.
  std::vector<SavedWave> waves = {};
  uint64_t wave_count = 0;
  std::function<SavedWave(uint64_t index)> make_wave = {};
};

struct Queue {
  uint32_t queue_id = 0;
  uint32_t is_suspended = 0;
  uint32_t gpu_id = 0;
  uint32_t queue_type = 0;  // 0 compute, 1 sdma, 2 compute_aql, 3 sdma_xgmi
  uint32_t queue_format = 0;
  uint64_t eop_address = 0;
  uint64_t eop_size = 0;
  uint64_t mqd_address = 0;
  uint64_t doorbell_offset = 0;
  uint64_t ring_address = 0;
  uint64_t wptr_address = 0;
  uint64_t rptr_address = 0;
  uint64_t wptr_value = 0;
  uint64_t rptr_value = 0;
  uint64_t context_sr_address = 0;
  uint64_t control_stack_size = 0;
  Content ring = {};                         // ring_size is its size
  std::vector<uint32_t> header_backup = {};  // written right behind the ring
  Content context = {};                      // context_sr_size is its size
};

struct Kernel {
  uint64_t loaded_addr = 0;
  std::string name = {};
};

struct CodeObject {
  uint64_t addr_loaded = 0;
  uint64_t size_loaded = 0;
  uint64_t addr_elf = 0;
  uint64_t agent = 0;  // an agent's handle
  Content elf = {};    // size_elf is its size
  std::vector<Kernel> kernels = {};
};

// Names one 8-byte or 4-byte field whose value in the file differs from what the declaration gives.
struct Override {
  enum class Record { kHeader, kReason, kAgent, kQueue, kCodeObject, kKernel };
  Record record = Record::kHeader;
  size_t index = 0;   // of the record in file order; kernels count through all code objects
  size_t offset = 0;  // of the field in the record
  size_t width = 8;   // bytes
  uint64_t value = 0;
};

// The regions of a file, in the order in which the writer places them by default.
enum class Region {
  kReason,
  kAgents,
  kQueues,
  kCodeObjects,
  kKernels,
  kEnvironment,
  kElfs,
  kRings,  // each with its header backup array
  kContexts,
  kWaves,
};

struct Layout {
  std::vector<Region> order = {};  // empty: the order of Region; otherwise each region once
  uint64_t alignment = 8;          // every region and every image starts at a multiple of it ...
  uint64_t misalignment = 0;       // ... plus this
  uint64_t gap = 0;                // bytes of 0xEE left before every region and image
};

struct CoreFile {
  int format = 1;                               // header version, 0 or 1
  std::array<uint32_t, 3> version = {1, 1, 0};  // major, minor, patch; format 1 only
  Reason reason = {};
  uint64_t fault_size = 112;
  std::vector<Agent> agents = {};
  std::vector<Queue> queues = {};
  std::vector<CodeObject> code_objects = {};
  std::string environment = {};  // written with a terminating zero byte, which env_size counts
  Layout layout = {};
  std::vector<Override> overrides = {};
};

// Where the writer placed things: file offsets, in file order. A record's own fields follow from
// its offset.
struct Placement {
  uint64_t file_size = 0;
  uint64_t reason = 0;
  std::vector<uint64_t> agents = {};
  std::vector<uint64_t> queues = {};
  std::vector<uint64_t> code_objects = {};
  std::vector<uint64_t> kernels = {};  // through all code objects
  uint64_t environment = 0;
  std::vector<uint64_t> elfs = {};
  std::vector<uint64_t> rings = {};
  std::vector<uint64_t> contexts = {};
  std::vector<uint64_t> waves = {};  // first record of each agent; 0 for an agent without
};

// The placement that writing `file` will give.
Placement Place(const CoreFile& file);

// The whole file in memory, for tests.
std::string CoreFileBytes(const CoreFile& file);

// Writes the file to `path` in pieces. False, with the cause in errno, when it cannot be written.
bool WriteCoreFile(const CoreFile& file, const std::string& path);

// ---------------------------------------------------------------------------------------------
// Context save areas

// One wave of a context save area. Sizes come from its group.
struct AreaWave {
  std::vector<uint32_t> vgprs = {};  // register-major, 64 lanes each; short ones end in zeros
  std::vector<uint32_t> sgprs = {};
  std::array<uint32_t, 16> hwregs = {};  // M0 PC_LO PC_HI EXEC_LO EXEC_HI STATUS TRAPSTS
                                         // XNACK_MASK_LO/HI MODE HW_ID GPR_ALLOC LDS_ALLOC IB_STS
                                         // TBA_LO TBA_HI
  std::array<uint32_t, 16> ttmps = {};   // TMA_LO and TMA_HI are the first two
  bool first_in_group = false;
  std::vector<uint32_t> lds = {};  // saved with the first wave of the group only
};

// A work-group: one state record, then its waves.
struct AreaGroup {
  uint32_t state = 0;       // the state record's low 30 bits, as they are
  uint32_t vgpr_count = 0;  // registers a lane that each wave saves; must fit `state`
  uint32_t sgpr_count = 0;
  uint32_t lds_dwords = 0;
  std::vector<uint32_t> before = {};  // raw control stack words before the state record
  bool state_record = true;           // false: the waves follow the words above without one
  std::vector<AreaWave> waves = {};
  // Many waves can be made one by one instead: `wave_count` of them, in any order. The first is the
  // first in the group whatever its flag says.
  uint64_t wave_count = 0;
  std::function<AreaWave(uint64_t index)> make_wave = {};
};

// A whole context save area. The second VGPR bank of HERON agents is bytes at a distance from the
// first, which the caller places by `size` and patches with PutU32.
struct ContextArea {
  std::vector<AreaGroup> groups = {};
  uint32_t slack = 0;  // unused bytes between the header and the control stack
  uint64_t size = 0;   // of the area; 0: just what it needs
};

// The area's bytes: header, control stack, wave blocks from the top down.
std::string ContextAreaBytes(const ContextArea& area);

// The same bytes, made when they are written.
Content ContextAreaContent(ContextArea area);

// Bits 5..0, 8..6 and 17..9 of a state record from register counts: VGPRs in units of `granule` (4,
// or 8), SGPRs of 16, LDS of 128 dwords.
uint32_t StateRecord(uint32_t vgprs, uint32_t granule, uint32_t sgprs, uint32_t lds_dwords);

// ---------------------------------------------------------------------------------------------
// Memory directories

struct MemoryRegion {
  uint64_t addr = 0;
  std::string bytes = {};
  uint32_t flags = 0;
  std::vector<uint32_t> gpu_ids = {};
};

// Writes `dir`/process_mem_info and a snapshot file per region; makes `dir` and what is missing
// above it. False, with the cause in errno, when it cannot.
bool WriteMemoryDirectory(const std::vector<MemoryRegion>& regions, const std::string& dir);

// ---------------------------------------------------------------------------------------------
// Bytes

// Store little-endian values at `offset` of `bytes`, which must be long enough.
void PutU16(std::string& bytes, size_t offset, uint16_t value);
void PutU32(std::string& bytes, size_t offset, uint32_t value);
void PutU64(std::string& bytes, size_t offset, uint64_t value);

// ---------------------------------------------------------------------------------------------
// Ring packets: each appends nothing and returns one packet's bytes.

struct KernelDispatch {
  uint16_t header = 0;
  uint16_t setup = 0;
  std::array<uint16_t, 3> workgroup_size = {};
  std::array<uint32_t, 3> grid_size = {};
  uint32_t private_segment_size = 0;
  uint32_t group_segment_size = 0;
  uint64_t kernel_object = 0;
  uint64_t kernarg_address = 0;
  uint64_t reserved2 = 0;
  uint64_t completion_signal = 0;
};
std::string KernelDispatchPacket(const KernelDispatch& packet);

struct Barrier {
  uint16_t header = 0;
  std::array<uint64_t, 5> dep_signal = {};
  uint64_t reserved2 = 0;
  uint64_t completion_signal = 0;
};
std::string BarrierPacket(const Barrier& packet);

struct AgentDispatch {
  uint16_t header = 0;
  uint16_t type = 0;
  uint64_t return_address = 0;
  std::array<uint64_t, 4> arg = {};
  uint64_t reserved2 = 0;
  uint64_t completion_signal = 0;
};
std::string AgentDispatchPacket(const AgentDispatch& packet);

// Dwords as bytes, for SDMA packets and whatever else is made of them.
std::string Dwords(const std::vector<uint32_t>& dwords);

}  // namespace sample
