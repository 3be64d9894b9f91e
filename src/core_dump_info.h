// The face of the analyser: CoreDumpInfo, which loads a mapped core file and writes the report
// tree, and what it makes of the file's records.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "core_dump_info/argument_files.h"
#include "core_dump_info/core_file_records.h"
#include "core_dump_info/core_image.h"
#include "core_dump_info/damage_report.h"
#include "core_dump_info/fault_windows.h"
#include "core_dump_info/sdma_decoder.h"
#include "core_dump_info/wave_text.h"

// One loaded code object and its kernels.
struct CodeObjectInfo {
  uint64_t addr_loaded = 0;
  size_t size_loaded = 0;
  char name[1024] = {};                  // its file name under codes/, terminated
  CoreDumpAgent* AgentInfo = nullptr;    // not owned; null when no agent has the record's handle
  std::vector<KernelInfo*> kernel_list;  // owned by the analyser
};

// One region of dumped process memory.
struct MemInfo {
  uint64_t addr = 0;
  uint64_t size = 0;  // bytes
  uint32_t flag = 0;  // allocation flags as the index gives them
  std::string name;   // full path of the snapshot file
  std::vector<uint32_t> gpu_ids;
};

// One wavefront of a context save area. Owns nothing: the pointers look into the mapped core file,
// at any alignment, and are read with LoadU32.
struct WaveStateInfo {
  uint32_t num_sgprs;
  const uint32_t* sgprs;
  uint32_t num_vgprs;  // per lane
  uint32_t num_vgpr_lanes;
  const uint32_t* vgprs;  // register-major: all lanes of v0, then all lanes of v1, ...
  uint32_t lds_size_dw;
  const uint32_t* lds;  // of the work-group; null when it has none
  struct {
    uint64_t pc;
    uint64_t trap_pc;
    uint64_t exec;
    uint64_t xnack_mask;
    uint64_t tba;
    uint64_t tma;
    uint32_t status;
    uint32_t trapsts;
    uint32_t m0;
    uint32_t mode;
    uint32_t hw_id;
    uint32_t gpr_alloc;
    uint32_t lds_alloc;
    uint32_t ib_sts;
  } regs;
};

// Queue id to the waves saved in the queue's context save area, in save order.
using QueueWaveMap = std::map<uint32_t, std::vector<WaveStateInfo>>;

// SE to SH to CU to SIMD to wave count.
using SEWaveMap = std::map<int, std::map<int, std::map<int, std::map<int, int>>>>;

// The analyser. init() fills it from a mapped core file, dump() writes the reports; the mapping
// must outlive it. Failures are bool results and null pointers; what fails is logged where it is
// noticed. Everything runs on the caller's thread but the listings at the end of dump(), whose
// workers have ended when it returns.
class CoreDumpInfo {
 public:
  CoreDumpInfo() = default;
  virtual ~CoreDumpInfo();
  CoreDumpInfo(const CoreDumpInfo&) = delete;
  CoreDumpInfo& operator=(const CoreDumpInfo&) = delete;

  // Tells the size of the mapping in bytes; called before init. Nothing outside [ptr, ptr + size)
  // is read then, and every part of the file that is missing is reported. Without it the file's
  // offsets and sizes are believed.
  void SetImageSize(uint64_t size);

  // Loads the core file mapped at `ptr` and writes the code objects and the environment. Null
  // directories select the defaults: the working directory, "/opt/rocm", and "mems" under the
  // working directory. False when the file is no core file or a code object cannot be written.
  bool init(uint64_t ptr, const char* out, const char* rocm, const char* m_dir, bool disAll);

  // Writes every report. A report that fails is logged and the next one follows: always true.
  bool dump();

  // Lookups. Each returns the first match in file order, null when there is none.
  CoreDumpAgent* GetAgentInfo(agent_t agent) const;
  CoreDumpQueue* GetQueueInfoByQueueId(uint32_t queue_id) const;
  uint32_t GetQueueIdByRing(uint64_t ring_address) const;  // 0xFFFFFFFF when none
  void GetQueueInfoByGpuId(uint32_t gpu_id, std::vector<CoreDumpQueue*>& out) const;  // appends all
  KernelInfo* GetKernelFromList(uint64_t loaded_addr) const;          // an exact entry address
  CodeObjectInfo* GetCodeObjectFromList(uint64_t loaded_addr) const;  // that has such a kernel
  CodeObjectInfo* GetCodeObjectByPC(uint64_t pc) const;               // whose loaded range holds pc
  static uint32_t FindGfxIp(uint16_t device_id);  // full_gfx_versions encoding; 0 when unknown

  // Process memory. getMemInfo copies up to `size` bytes from process address `ptr` and returns how
  // many: never beyond the region that holds `ptr`, 0 when there is none or its snapshot is
  // missing.
  bool initProcessMem();
  uint64_t getMemInfo(void* out_buffer, uint64_t size, uint64_t ptr);

  // Reports, each true when its file was written.
  bool dumpReasonInfo();
  bool dumpQueueErrorInfo(CoreDumpReasonInfo info);
  bool dumpVMFaultInfo(CoreDumpReasonInfo info);
  bool dumpSignalInfo(CoreDumpReasonInfo info);
  bool dumpAgent(CoreDumpAgent* agent);
  bool dumpQueue(CoreDumpQueue* queue);

  // Ring packets: the queue's "packets" and "aql_rb" or "sdma_rb". True for a queue without either.
  bool DumpPacket(CoreDumpQueue* queue_info);
  bool dumpAqlPacket(CoreDumpQueue* queue_info);
  bool dumpSdmaPacket(CoreDumpQueue* queue_info);
  // Append the text of one 64-byte slot, or of `size` bytes of SDMA stream at address `data`; the
  // first may write a kernel argument file into `save_dir`.
  bool GenAqlPacketInfo(void* data, uint32_t backup_header, std::string& save_dir,
                        std::string& info);
  bool GenSdmaPacketInfo(uint64_t data, int size, std::string& info);

  // Saved waves. Both write the raw areas as "cwsr" and append to `queues_waves`.
  bool GetQueueWaveStates(CoreDumpAgent* agent_info, CoreDumpQueue* queue_info,
                          QueueWaveMap& queues_waves);
  bool GetQueuesWaveStates(CoreDumpAgent* agent_info, QueueWaveMap& queues_waves);

  // Append the text of one saved wave, of one recorded wave, of an occupancy table.
  bool GenWaveInfo(uint32_t gfxv, bool is_dp4x, WaveStateInfo* wave_state, std::string& info);
  bool GenActiveWaveInfo(bool is_dp4x, WaveInfo wave, std::string& info);
  bool GenAgentOccupyInfo(const QueueWaveMap& queues_waves, std::string& info);
  bool GenAgentOccupyInfo(WaveInfo* wave_info, int wave_count, std::string& info);

  // The wave files of one agent: of a queue error or VM fault dump, and of a signal dump.
  bool DumpAgentWaves(CoreDumpAgent* agent_info);
  bool DumpAgentActiveWaves(CoreDumpAgent* agent_info);

  // Sets `dis_code` to the code around `fault_pc` and marks its code object as faulting. False,
  // with `dis_code` untouched, when the disassembler or the code object's file is missing.
  bool DisFaultCodeObject(CoreDumpAgent* agent_info, uint64_t fault_pc, std::string& dis_code);
  void AddErrorCodeObject(CodeObjectInfo* codeInfo);
  // Writes the listing of every code object, or of the faulting ones, in a pool of threads.
  void DisAllCodeObject();

  bool dis_all_code_object = false;
  uint64_t dp4x_vgpr_offset = 0;  // bytes from a wave's VGPRs to their second bank on HERON agents
  std::string dump_dir_;
  std::string dump_code_dir_;
  std::string dump_queue_dir_;
  std::string rocm_dir_;
  std::string current_dir_;
  std::string mem_dir_;
  std::vector<CoreDumpAgent*> agent_lists;         // owned
  std::vector<CoreDumpQueue*> queue_lists;         // owned
  std::vector<CodeObjectInfo*> code_object_lists;  // owned
  std::vector<CodeObjectInfo*> err_code_lists;     // faulting ones, each also in code_object_lists
  std::map<uint64_t, MemInfo> mem_info_map;        // by start address
  CoreDumpReasonInfo reason_info = {};
  uint32_t full_version = 0;  // major << 16 | minor << 8 | patch; 0 for the first format

 private:
  // A part of a wave that need not lie in its block: how many bytes it takes, and those of them
  // that are in the file.
  struct WavePart {
    Bytes bytes;
    uint64_t size = 0;
  };

  struct LoadedKernel {
    KernelInfo* kernel = nullptr;
    CodeObjectInfo* code_object = nullptr;  // that it belongs to
  };

  // The first kernel in file order with that entry address; both null when there is none.
  LoadedKernel KernelAt(uint64_t loaded_addr) const;
  bool LoadHeader(uint64_t ptr, CoreDumpHeaderV1& header);
  void LoadReason(uint64_t address, uint64_t size);
  void LoadAgents(uint64_t ptr, uint64_t offset, uint64_t count);
  void LoadQueues(uint64_t ptr, uint64_t offset, uint64_t count);
  bool LoadCodeObjects(uint64_t ptr, uint64_t offset, uint64_t count);
  bool LoadCodeObject(uint64_t ptr, const CoreDumpCodeObject& record);
  bool WriteElf(uint64_t address, uint64_t size, const std::string& name);
  bool WriteCodeObjectInfo(const CodeObjectInfo& code_object);
  void WriteEnvironment(uint64_t address, uint64_t size);

  // The text of one slot, as GenAqlPacketInfo; nothing as `backup_header` when the file lost it.
  void AppendAqlSlot(const unsigned char* slot, std::optional<uint32_t> backup_header,
                     ArgumentFiles& argument_files, std::string& info);
  // Keeps the argument block of the dispatch at address `packet` for its file.
  void KeepKernelArguments(const KernelInfo& kernel, uint64_t packet, uint64_t kernarg_address,
                           ArgumentFiles& argument_files);
  SdmaStream SdmaStreamAt(uint64_t address, int size) const;
  bool WriteRing(const CoreDumpQueue& queue, const std::string& save_dir, const char* file_name);

  // The directory of a queue's files, and the name of an agent's report.
  std::string QueueDir(uint32_t queue_id) const;
  static std::string AgentReport(const CoreDumpAgent& agent);

  // Appends the code around the PC of each faulting wave, whose PC becomes the one at which it
  // faulted. False when the disassembler cannot be run.
  bool GetFaultWindows(const CoreDumpAgent& agent, std::vector<WaveStateInfo>& waves,
                       std::vector<const FaultWindows::Window*>& windows);
  // Writes the wave files of one queue, whose waves it knows by `queue_id`.
  bool DumpQueueWaves(const CoreDumpAgent& agent, uint32_t queue_id,
                      std::vector<WaveStateInfo>& waves);
  // The VGPRs k + num_vgprs of a wave on a HERON agent; empty on other agents.
  WavePart SecondVgprBank(uint32_t gfxv, bool is_dp4x, const WaveStateInfo& wave) const;
  // The LDS that the wave shows: where that of its group lies, in the size that holds for the wave.
  WavePart GroupLds(const WaveStateInfo& wave) const;
  void AppendSavedVgprs(const WaveStateInfo& wave, Bytes second_bank, std::string& info);
  // The text of the WaveInfo at `record`, at any alignment.
  void AppendActiveWave(bool is_dp4x, const unsigned char* record, std::string& info);
  // The code around `fault_pc`, whose code object becomes a faulting one. Null when the
  // disassembler cannot be run.
  const FaultWindows::Window* FaultWindow(const CoreDumpAgent& agent, uint64_t fault_pc);

  void NoteWaveLoss(uint32_t queue_id, const char* what, const WavePart& part);
  // How many of the `count` records of `record_size` bytes at `address` are wholly in the file, but
  // `most` at the most; notes the loss when not all are.
  uint64_t WholeRecords(std::string_view what, uint64_t address, uint64_t count,
                        uint64_t record_size, uint64_t most = UINT32_MAX);

  // The first region in the order of addresses that holds `ptr`, null when none does.
  const MemInfo* RegionAt(uint64_t ptr);

  CoreImage image_;
  uint64_t image_size_ = UINT64_MAX;
  uint64_t kernel_count_ = 0;  // kernels of all code objects
  uint64_t wave_count_ = 0;    // waves held for the agent whose queues are being read
  DamageReport damage_;
  FaultWindows fault_windows_;
  WaveText wave_text_;
  // The regions in their order, each with the highest end of those up to it; made at the first
  // lookup. Every dispatch looks one up, and a process has thousands.
  std::vector<std::pair<uint64_t, const MemInfo*>> region_index_;
  // The first kernel of each entry address, made at the first lookup: a ring has thousands of
  // dispatches, and a process that uses a kernel library ten thousand kernels for each agent.
  mutable std::unordered_map<uint64_t, LoadedKernel> kernel_index_;
};
