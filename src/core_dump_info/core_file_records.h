// The records of a core file as they lie on disk, and their enumerations.
//
// All integers of the format are little-endian and every record is naturally aligned inside, so the
// structures below have the layout of the file; records themselves may lie at any file offset and
// are copied out byte by byte, never read through a cast pointer.
#pragma once

#include <cstddef>
#include <cstdint>

// ---------------------------------------------------------------------------------------------
// Enumerations

// First 32-bit word of a core file.
constexpr uint32_t kCoreDumpMagicV0 = 0x20220519;
constexpr uint32_t kCoreDumpMagicV1 = 0x4443584F;  // "OXCD" in file order

enum CoreDumpReason : uint32_t {
  CORE_DUMP_QUEUE_ERROR = 0,
  CORE_DUMP_VM_FAULT = 1,
  CORE_DUMP_SIGNAL = 2,
};

enum QueueType : uint32_t {
  QUEUE_TYPE_COMPUTE = 0,
  QUEUE_TYPE_SDMA = 1,
  QUEUE_TYPE_COMPUTE_AQL = 2,
  QUEUE_TYPE_SDMA_XGMI = 3,
};

// Packet type of an AQL packet header.
enum AqlPacketType : uint32_t {
  AQL_TYPE_VENDOR_SPECIFIC = 0,
  AQL_TYPE_INVALID = 1,
  AQL_TYPE_KERNEL_DISPATCH = 2,
  AQL_TYPE_BARRIER_AND = 3,
  AQL_TYPE_AGENT_DISPATCH = 4,
  AQL_TYPE_BARRIER_OR = 5,
  AQL_TYPE_RESERVED = 6,
};

// A gfx IP version: major << 16 | minor << 8 | stepping.
enum full_gfx_versions : uint32_t {
  GFX_VERSION_OSPREY = 0x90006,
  GFX_VERSION_HERON = 0x90106,
  GFX_VERSION_KESTREL = 0x90206,
  GFX_VERSION_PLOVER = 0x90208,
  GFX_VERSION_WREN = 0x90306,
  GFX_VERSION_FINCH = 0x90308,
};

// ---------------------------------------------------------------------------------------------
// Core file records

struct _CoreDumpHeaderV0 {
  uint64_t magic_number;  // its low 32 bits are kCoreDumpMagicV0
  uint64_t fault_offset;
  uint64_t fault_size;
  uint64_t agent_offset;
  uint64_t agent_count;
  uint64_t queue_offset;
  uint64_t queue_count;
  uint64_t codeobject_offset;
  uint64_t codeobject_count;
  uint64_t env_offset;
  uint64_t env_size;
};
using CoreDumpHeaderV0 = _CoreDumpHeaderV0;
static_assert(sizeof(CoreDumpHeaderV0) == 88);

struct _CoreDumpHeaderV1 {
  uint32_t magic_number;  // kCoreDumpMagicV1
  uint32_t version_major;
  uint32_t version_minor;
  uint32_t version_patch;
  uint64_t fault_offset;
  uint64_t fault_size;
  uint64_t agent_offset;
  uint64_t agent_count;
  uint64_t queue_offset;
  uint64_t queue_count;
  uint64_t codeobject_offset;
  uint64_t codeobject_count;
  uint64_t env_offset;
  uint64_t env_size;
  uint64_t reserve[4];
};
using CoreDumpHeaderV1 = _CoreDumpHeaderV1;
static_assert(sizeof(CoreDumpHeaderV1) == 128);

// Why the runtime wrote the core file.
struct _CoreDumpReasonInfo {
  uint32_t reason;  // CoreDumpReason
  char agent_name[64];
  uint32_t node_id;
  uint32_t fault_reason_mask;  // VM fault: bit set of causes
  uint64_t virtual_address;    // VM fault: faulting GPU address
  uint32_t status;             // queue error: hsa_status_t
  uint64_t ring_addr;          // queue error: ring buffer of the failing queue
  int32_t sig;                 // signal: its number
};
using CoreDumpReasonInfo = _CoreDumpReasonInfo;
static_assert(sizeof(CoreDumpReasonInfo) == 112);
static_assert(offsetof(CoreDumpReasonInfo, node_id) == 68);
static_assert(offsetof(CoreDumpReasonInfo, virtual_address) == 80);
static_assert(offsetof(CoreDumpReasonInfo, ring_addr) == 96);
static_assert(offsetof(CoreDumpReasonInfo, sig) == 104);

// The runtime's handle of a GPU agent.
struct agent_t {
  uint64_t handle;
};

// One GPU agent.
struct _CoreDumpAgent {
  char name[1024];
  uint32_t gpu_id;
  uint32_t node_id;
  uint32_t drm_id;
  uint32_t location_id;
  int32_t pci_domain_id;
  int32_t pci_bus_id;
  int32_t pci_device_id;
  uint32_t chip_id;  // PCI device id, see FindGfxIp
  bool is_dp4x;
  uint32_t num_cus;
  uint32_t max_engine_freq;
  uint32_t max_memory_freq;
  uint32_t waves_per_cu;
  uint32_t num_simds_per_cu;
  uint32_t num_ses;
  agent_t agent;
  uint64_t wave_offset;  // first WaveInfo: a file offset on disk, an address in memory
  uint64_t wave_count;
};
using CoreDumpAgent = _CoreDumpAgent;
static_assert(sizeof(CoreDumpAgent) == 1112);
static_assert(offsetof(CoreDumpAgent, chip_id) == 1052);
static_assert(offsetof(CoreDumpAgent, num_cus) == 1060);
static_assert(offsetof(CoreDumpAgent, num_ses) == 1080);
static_assert(offsetof(CoreDumpAgent, agent) == 1088);

// One user-mode queue. ring_offset and context_offset are file offsets on disk, addresses in the
// mapping in memory.
struct _CoreDumpQueue {
  uint32_t queue_id;
  uint32_t is_suspended;
  uint32_t gpu_id;        // gpu_id of the owning agent
  uint32_t queue_type;    // QueueType
  uint32_t queue_format;  // 0 PM4, 1 AQL
  uint64_t eop_address;
  uint64_t eop_size;
  uint64_t mqd_address;
  uint64_t doorbell_offset;
  uint64_t ring_address;  // GPU address
  uint64_t ring_size;     // bytes
  uint64_t wptr_address;
  uint64_t rptr_address;
  uint64_t wptr_value;
  uint64_t rptr_value;
  uint64_t ring_offset;
  uint64_t context_sr_address;  // GPU address of the context save area
  uint64_t context_sr_size;     // bytes
  uint64_t control_stack_size;
  uint64_t context_offset;
};
using CoreDumpQueue = _CoreDumpQueue;
static_assert(sizeof(CoreDumpQueue) == 144);
static_assert(offsetof(CoreDumpQueue, eop_address) == 24);
static_assert(offsetof(CoreDumpQueue, ring_offset) == 104);
static_assert(offsetof(CoreDumpQueue, context_offset) == 136);

// One loaded code object.
struct _CoreDumpCodeObject {
  uint64_t addr_loaded;  // GPU address
  uint64_t size_loaded;  // bytes
  uint64_t addr_elf;     // where the runtime held the image; not used for reading
  uint64_t size_elf;     // bytes
  uint64_t agent;        // handle of the agent it is loaded on
  uint64_t kernel_offset;
  uint64_t kernel_count;
  uint64_t codeobject_offset;  // the ELF image
};
using CoreDumpCodeObject = _CoreDumpCodeObject;
static_assert(sizeof(CoreDumpCodeObject) == 64);

// One kernel of a code object.
struct _KernelInfo {
  uint64_t loaded_addr;  // GPU address of its code
  char name[1024];
};
using KernelInfo = _KernelInfo;
static_assert(sizeof(KernelInfo) == 1032);

// The registers of one wave that the runtime saved in the core file itself (signal dumps).
struct _WaveInfo {
  uint32_t mode;
  uint32_t status;
  uint32_t trapsts;
  uint32_t hw_id;
  uint32_t gpr_alloc;
  uint32_t lds_alloc;
  uint32_t ib_sts;
  uint32_t pc_lo;
  uint32_t pc_hi;
  uint32_t inst_dw0;
  uint32_t inst_dw1;
  uint32_t ib_dbg0;
  uint32_t ib_dbg1;
  uint32_t m0;
  uint32_t exec_lo;
  uint32_t exec_hi;
  uint32_t vgprs[16384];  // lane-major: 256 slots for each of 64 lanes
  uint32_t sgprs[1024];
};
using WaveInfo = _WaveInfo;
static_assert(sizeof(WaveInfo) == 69696);
static_assert(offsetof(WaveInfo, vgprs) == 64);
static_assert(offsetof(WaveInfo, sgprs) == 65600);
