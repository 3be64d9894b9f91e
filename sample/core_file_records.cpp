#include "core_file_records.h"

#include <algorithm>
#include <span>

namespace sample {
namespace {

constexpr uint64_t kMagicV0 = 0x20220519;
constexpr uint64_t kMagicV1 = 0x4443584F;  // "OXCD"

constexpr size_t kReasonNameOffset = 4;
constexpr size_t kReasonNameWidth = 64;
constexpr size_t kAgentNameOffset = 0;
constexpr size_t kKernelNameOffset = 8;
constexpr size_t kNameWidth = 1024;

constexpr size_t kWaveVgprsOffset = 64;
constexpr size_t kWaveVgprWords = size_t{64} * 256;
constexpr size_t kWaveSgprsOffset = kWaveVgprsOffset + 4 * kWaveVgprWords;
constexpr size_t kWaveSgprWords = 1024;
static_assert(kWaveSgprsOffset + 4 * kWaveSgprWords == kWaveSize);

struct Field {
  size_t offset;
  size_t width;  // bytes
  uint64_t value;
};

void Put(std::string& bytes, const Field& field) {
  for (size_t i = 0; i < field.width; ++i) {
    bytes[field.offset + i] = static_cast<char>(field.value >> (8 * i));
  }
}

// The negative numbers of signed fields keep their low bytes.
uint64_t Signed(int32_t value) { return static_cast<uint32_t>(value); }

// A record of `size` bytes that are zero where no field lies.
std::string Record(size_t size, std::span<const Field> fields) {
  std::string bytes(size, '\0');
  for (const Field& field : fields) {
    Put(bytes, field);
  }
  return bytes;
}

// A text as long as its field has no terminating zero byte.
void PutText(std::string& bytes, size_t offset, size_t width, const std::string& text) {
  const std::string part = text.substr(0, width);
  bytes.replace(offset, part.size(), part);
}

void PutWords(std::string& bytes, size_t offset, size_t limit, const std::vector<uint32_t>& words) {
  for (size_t i = 0; i < std::min(limit, words.size()); ++i) {
    PutU32(bytes, offset + 4 * i, words[i]);
  }
}

void ApplyOverrides(const CoreFile& file, Override::Record record, size_t stride,
                    std::string& table) {
  for (const Override& o : file.overrides) {
    if (o.record == record) {
      Put(table, {o.index * stride + o.offset, o.width, o.value});
    }
  }
}

uint64_t FirstOrZero(const std::vector<uint64_t>& offsets) {
  return offsets.empty() ? 0 : offsets.front();
}

std::string HeaderV0(const CoreFile& file, const Placement& at) {
  const Field fields[] = {
      {0, 8, kMagicV0},
      {8, 8, at.reason},
      {16, 8, file.fault_size},
      {24, 8, FirstOrZero(at.agents)},
      {32, 8, file.agents.size()},
      {40, 8, FirstOrZero(at.queues)},
      {48, 8, file.queues.size()},
      {56, 8, FirstOrZero(at.code_objects)},
      {64, 8, file.code_objects.size()},
      {72, 8, at.environment},
      {80, 8, file.environment.size() + 1},
  };
  return Record(kHeaderSizeV0, fields);
}

std::string HeaderV1(const CoreFile& file, const Placement& at) {
  const Field fields[] = {
      {0, 4, kMagicV1},
      {4, 4, file.version[0]},
      {8, 4, file.version[1]},
      {12, 4, file.version[2]},
      {16, 8, at.reason},
      {24, 8, file.fault_size},
      {32, 8, FirstOrZero(at.agents)},
      {40, 8, file.agents.size()},
      {48, 8, FirstOrZero(at.queues)},
      {56, 8, file.queues.size()},
      {64, 8, FirstOrZero(at.code_objects)},
      {72, 8, file.code_objects.size()},
      {80, 8, at.environment},
      {88, 8, file.environment.size() + 1},
  };
  return Record(kHeaderSizeV1, fields);
}

std::string AgentRecord(const Agent& agent, uint64_t wave_offset) {
  const Field fields[] = {
      {1024, 4, agent.gpu_id},
      {1028, 4, agent.node_id},
      {1032, 4, agent.drm_id},
      {1036, 4, agent.location_id},
      {1040, 4, Signed(agent.pci_domain_id)},
      {1044, 4, Signed(agent.pci_bus_id)},
      {1048, 4, Signed(agent.pci_device_id)},
      {1052, 4, agent.chip_id},
      {1056, 1, agent.is_dp4x},
      {1060, 4, agent.num_cus},
      {1064, 4, agent.max_engine_freq},
      {1068, 4, agent.max_memory_freq},
      {1072, 4, agent.waves_per_cu},
      {1076, 4, agent.num_simds_per_cu},
      {1080, 4, agent.num_ses},
      {1088, 8, agent.handle},
      {1096, 8, wave_offset},
      {1104, 8, WaveCount(agent)},
  };
  std::string bytes = Record(kAgentSize, fields);
  PutText(bytes, kAgentNameOffset, kNameWidth, agent.name);
  return bytes;
}

std::string QueueRecord(const Queue& queue, uint64_t ring_offset, uint64_t context_offset) {
  const Field fields[] = {
      {0, 4, queue.queue_id},
      {4, 4, queue.is_suspended},
      {8, 4, queue.gpu_id},
      {12, 4, queue.queue_type},
      {16, 4, queue.queue_format},
      {24, 8, queue.eop_address},
      {32, 8, queue.eop_size},
      {40, 8, queue.mqd_address},
      {48, 8, queue.doorbell_offset},
      {56, 8, queue.ring_address},
      {64, 8, queue.ring.size()},
      {72, 8, queue.wptr_address},
      {80, 8, queue.rptr_address},
      {88, 8, queue.wptr_value},
      {96, 8, queue.rptr_value},
      {104, 8, ring_offset},
      {112, 8, queue.context_sr_address},
      {120, 8, queue.context.size()},
      {128, 8, queue.control_stack_size},
      {136, 8, context_offset},
  };
  return Record(kQueueSize, fields);
}

std::string CodeObjectRecord(const CodeObject& object, uint64_t kernel_offset,
                             uint64_t elf_offset) {
  const Field fields[] = {
      {0, 8, object.addr_loaded},     {8, 8, object.size_loaded}, {16, 8, object.addr_elf},
      {24, 8, object.elf.size()},     {32, 8, object.agent},      {40, 8, kernel_offset},
      {48, 8, object.kernels.size()}, {56, 8, elf_offset},
  };
  return Record(kCodeObjectSize, fields);
}

std::string KernelRecord(const Kernel& kernel) {
  const Field fields[] = {{0, 8, kernel.loaded_addr}};
  std::string bytes = Record(kKernelSize, fields);
  PutText(bytes, kKernelNameOffset, kNameWidth, kernel.name);
  return bytes;
}

}  // namespace

uint64_t HeaderSize(const CoreFile& file) {
  return file.format == 0 ? kHeaderSizeV0 : kHeaderSizeV1;
}

uint64_t WaveCount(const Agent& agent) {
  return agent.make_wave ? agent.wave_count : agent.waves.size();
}

std::string HeaderBytes(const CoreFile& file, const Placement& at) {
  std::string bytes = file.format == 0 ? HeaderV0(file, at) : HeaderV1(file, at);
  ApplyOverrides(file, Override::Record::kHeader, bytes.size(), bytes);
  return bytes;
}

std::string ReasonBytes(const CoreFile& file) {
  const Reason& reason = file.reason;
  const Field fields[] = {
      {0, 4, reason.reason},           {68, 4, reason.node_id}, {72, 4, reason.fault_reason_mask},
      {80, 8, reason.virtual_address}, {88, 4, reason.status},  {96, 8, reason.ring_addr},
      {104, 4, Signed(reason.sig)},
  };
  std::string bytes = Record(kReasonSize, fields);
  PutText(bytes, kReasonNameOffset, kReasonNameWidth, reason.agent_name);
  ApplyOverrides(file, Override::Record::kReason, kReasonSize, bytes);
  return bytes;
}

std::string AgentTable(const CoreFile& file, const Placement& at) {
  std::string table;
  for (size_t i = 0; i < file.agents.size(); ++i) {
    table += AgentRecord(file.agents[i], at.waves[i]);
  }
  ApplyOverrides(file, Override::Record::kAgent, kAgentSize, table);
  return table;
}

std::string QueueTable(const CoreFile& file, const Placement& at) {
  std::string table;
  for (size_t i = 0; i < file.queues.size(); ++i) {
    table += QueueRecord(file.queues[i], at.rings[i], at.contexts[i]);
  }
  ApplyOverrides(file, Override::Record::kQueue, kQueueSize, table);
  return table;
}

std::string CodeObjectTable(const CoreFile& file, const Placement& at) {
  std::string table;
  size_t first_kernel = 0;
  for (size_t i = 0; i < file.code_objects.size(); ++i) {
    const CodeObject& object = file.code_objects[i];
    const uint64_t kernel_offset = object.kernels.empty() ? 0 : at.kernels[first_kernel];
    table += CodeObjectRecord(object, kernel_offset, at.elfs[i]);
    first_kernel += object.kernels.size();
  }
  ApplyOverrides(file, Override::Record::kCodeObject, kCodeObjectSize, table);
  return table;
}

std::string KernelTable(const CoreFile& file) {
  std::string table;
  for (const CodeObject& object : file.code_objects) {
    for (const Kernel& kernel : object.kernels) {
      table += KernelRecord(kernel);
    }
  }
  ApplyOverrides(file, Override::Record::kKernel, kKernelSize, table);
  return table;
}

std::string WaveBytes(const SavedWave& wave) {
  const Field fields[] = {
      {0, 4, wave.mode},      {4, 4, wave.status},     {8, 4, wave.trapsts},
      {12, 4, wave.hw_id},    {16, 4, wave.gpr_alloc}, {20, 4, wave.lds_alloc},
      {24, 4, wave.ib_sts},   {28, 8, wave.pc},        {36, 4, wave.inst_dw0},
      {40, 4, wave.inst_dw1}, {44, 4, wave.ib_dbg0},   {48, 4, wave.ib_dbg1},
      {52, 4, wave.m0},       {56, 8, wave.exec},
  };
  std::string bytes = Record(kWaveSize, fields);
  PutWords(bytes, kWaveVgprsOffset, kWaveVgprWords, wave.vgprs);
  PutWords(bytes, kWaveSgprsOffset, kWaveSgprWords, wave.sgprs);
  return bytes;
}

}  // namespace sample
