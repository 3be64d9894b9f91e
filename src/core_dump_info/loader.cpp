// Loading: the mapped core file to records that the analyser owns.

#include <unistd.h>

#include <algorithm>
#include <cinttypes>

#include "core_dump_info.h"
#include "core_dump_info/report_file.h"
#include "file_manager.h"
#include "logger.h"
#include "utils.h"

namespace {

// Where a wave's second VGPR bank lies, by format version.
constexpr uint64_t kDp4xVgprOffsetV0 = 0x1545000;
constexpr uint64_t kDp4xVgprOffsetV1 = 0x155A000;

// A reason that no report knows: of a record that the file does not hold.
constexpr uint32_t kUnknownReason = UINT32_MAX;

constexpr size_t kWorkingDirectorySize = 1024;

// More records than any system has. A count that a damaged file has lost would otherwise make
// records of everything behind the table, and memory with them.
constexpr uint64_t kMostAgents = 4096;
constexpr uint64_t kMostQueues = 65536;
constexpr uint64_t kMostCodeObjects = 65536;
// Of all code objects together, or as many as fit into the file if that is more: each agent has its
// own code objects, and a kernel library tens of thousands of kernels.
constexpr uint64_t kMostKernels = 262144;

const void* AsPointer(uint64_t address) { return reinterpret_cast<const void*>(address); }

// From the reason on both headers have the same fields.
CoreDumpHeaderV1 ToV1(const CoreDumpHeaderV0& v0) {
  CoreDumpHeaderV1 header{};
  header.fault_offset = v0.fault_offset;
  header.fault_size = v0.fault_size;
  header.agent_offset = v0.agent_offset;
  header.agent_count = v0.agent_count;
  header.queue_offset = v0.queue_offset;
  header.queue_count = v0.queue_count;
  header.codeobject_offset = v0.codeobject_offset;
  header.codeobject_count = v0.codeobject_count;
  header.env_offset = v0.env_offset;
  header.env_size = v0.env_size;
  return header;
}

// How many bytes of the reason record its report reads.
uint64_t BytesOfReport(uint32_t reason) {
  switch (reason) {
    case CORE_DUMP_QUEUE_ERROR:
      return offsetof(CoreDumpReasonInfo, ring_addr) + sizeof(CoreDumpReasonInfo::ring_addr);
    case CORE_DUMP_VM_FAULT:
      return offsetof(CoreDumpReasonInfo, virtual_address) +
             sizeof(CoreDumpReasonInfo::virtual_address);
    case CORE_DUMP_SIGNAL:
      return offsetof(CoreDumpReasonInfo, sig) + sizeof(CoreDumpReasonInfo::sig);
    default:
      return sizeof(CoreDumpReasonInfo::reason);
  }
}

}  // namespace

bool CoreDumpInfo::init(uint64_t ptr, const char* out, const char* rocm, const char* m_dir,
                        bool disAll) {
  char cwd[kWorkingDirectorySize];
  if (getcwd(cwd, sizeof(cwd)) == nullptr) {
    utils::Log(utils::kLogError, "[init] get cwd failed\n");
    return false;
  }
  current_dir_ = cwd;
  dump_dir_ = out != nullptr ? out : current_dir_;
  dump_code_dir_ = dump_dir_ + "/codes";
  dump_queue_dir_ = dump_dir_ + "/queues";
  rocm_dir_ = rocm != nullptr ? rocm : "/opt/rocm";
  mem_dir_ = m_dir != nullptr ? m_dir : current_dir_ + "/mems";
  dis_all_code_object = disAll;
  utils::Log(utils::kLogDebug, "CoreDump init dump_dir_: %s\n", dump_dir_.c_str());
  utils::Log(utils::kLogDebug, "CoreDump init dump_code_dir_: %s\n", dump_code_dir_.c_str());
  utils::Log(utils::kLogDebug, "CoreDump init dump_queue_dir_: %s\n", dump_queue_dir_.c_str());
  utils::Log(utils::kLogDebug, "CoreDump init rocm_dir_: %s\n", rocm_dir_.c_str());
  utils::Log(utils::kLogDebug, "CoreDump init mem_dir_: %s\n", mem_dir_.c_str());
  utils::Log(utils::kLogDebug, "CoreDump init dis_all_code_object: %d\n", dis_all_code_object);

  image_ = CoreImage(ptr, image_size_);
  damage_.SetDirectory(dump_dir_);
  CoreDumpHeaderV1 header = {};
  if (!LoadHeader(ptr, header)) {
    return false;
  }
  utils::Log(utils::kLogDebug, "Agent: %p count: %ld\n", AsPointer(ptr + header.agent_offset),
             header.agent_count);
  utils::Log(utils::kLogDebug, "Queue: %p count: %ld\n", AsPointer(ptr + header.queue_offset),
             header.queue_count);
  utils::Log(utils::kLogDebug, "CodeObject: %p count: %ld\n",
             AsPointer(ptr + header.codeobject_offset), header.codeobject_count);
  utils::Log(utils::kLogDebug, "Dp4x_vgpr_offset: 0x%lx\n", dp4x_vgpr_offset);
  utils::Log(utils::kLogDebug, "Core dump version: 0x%x\n", full_version);

  LoadReason(ptr + header.fault_offset, header.fault_size);
  utils::Log(utils::kLogInfo, "CoreDump init agent.\n");
  LoadAgents(ptr, header.agent_offset, header.agent_count);
  utils::Log(utils::kLogInfo, "CoreDump init queue.\n");
  LoadQueues(ptr, header.queue_offset, header.queue_count);
  utils::Log(utils::kLogInfo, "CoreDump init code object.\n");
  if (!LoadCodeObjects(ptr, header.codeobject_offset, header.codeobject_count)) {
    return false;
  }
  WriteEnvironment(ptr + header.env_offset, header.env_size);
  if (!initProcessMem()) {
    utils::Log(utils::kLogWarning, "[init] init process mem info failed\n");
  }
  return true;
}

bool CoreDumpInfo::LoadHeader(uint64_t ptr, CoreDumpHeaderV1& header) {
  const auto too_short = [&](const char* field, size_t expected) {
    utils::Log(utils::kLogError,
               "[init] core file too short for its %s: found %" PRIu64
               " bytes, expected %zu at offset 0\n",
               field, image_.Available(ptr), expected);
    return false;
  };
  full_version = 0;
  uint32_t magic = 0;
  if (!image_.Load(ptr, magic)) {
    return too_short("magic_number", sizeof(magic));
  }
  switch (magic) {
    case kCoreDumpMagicV0: {
      CoreDumpHeaderV0 v0;
      if (!image_.Load(ptr, v0)) {
        return too_short("CoreDumpHeaderV0", sizeof(v0));
      }
      utils::Log(utils::kLogInfo, "Current core dump version is v0.\n");
      header = ToV1(v0);
      dp4x_vgpr_offset = kDp4xVgprOffsetV0;
      return true;
    }
    case kCoreDumpMagicV1:
      if (!image_.Load(ptr, header)) {
        return too_short("CoreDumpHeaderV1", sizeof(header));
      }
      utils::Log(utils::kLogInfo, "Current core dump version is v1.\n");
      dp4x_vgpr_offset = kDp4xVgprOffsetV1;
      full_version = header.version_major << 16 | header.version_minor << 8 | header.version_patch;
      return true;
    default:
      utils::Log(utils::kLogError, "[init] not supprt magic: 0x%x\n", magic);
      return false;
  }
}

uint64_t CoreDumpInfo::WholeRecords(std::string_view what, uint64_t address, uint64_t count,
                                    uint64_t record_size, uint64_t most) {
  const uint64_t whole = std::min(image_.Available(address) / record_size, most);
  if (whole >= count) {
    return count;
  }
  const uint64_t wanted = count > UINT64_MAX / record_size ? UINT64_MAX : count * record_size;
  damage_.Add(what, image_.OffsetOf(address), wanted,
              std::min(image_.Available(address), most * record_size));
  return whole;
}

void CoreDumpInfo::LoadReason(uint64_t address, uint64_t size) {
  reason_info = {};
  const Bytes record = image_.Clip(address, std::min(size, sizeof(reason_info)));
  if (!record.empty()) {
    memcpy(&reason_info, record.data(), record.size());
  }
  // A report whose fields are not all there would show zero for what is absent: such a record
  // counts as an unknown reason.
  const bool has_report = record.size() >= sizeof(reason_info.reason) &&
                          record.size() >= BytesOfReport(reason_info.reason);
  if (!has_report || record.size() < size) {
    damage_.Add("reason record", image_.OffsetOf(address), std::max(size, sizeof(reason_info)),
                record.size());
  }
  if (!has_report) {
    reason_info.reason = kUnknownReason;
  }
}

void CoreDumpInfo::LoadAgents(uint64_t ptr, uint64_t offset, uint64_t count) {
  const uint64_t whole =
      WholeRecords("agent table", ptr + offset, count, sizeof(CoreDumpAgent), kMostAgents);
  for (uint64_t i = 0; i < whole; ++i) {
    auto* agent = new CoreDumpAgent;
    const uint64_t record = ptr + offset + i * sizeof(CoreDumpAgent);
    image_.Load(record, *agent);
    // A bool whose byte is neither 0 nor 1 is no value of the language: it is made one.
    const auto dp4x =
        *static_cast<const unsigned char*>(AsPointer(record + offsetof(CoreDumpAgent, is_dp4x)));
    agent->is_dp4x = dp4x != 0;
    agent->wave_offset += ptr;
    agent_lists.push_back(agent);
  }
}

void CoreDumpInfo::LoadQueues(uint64_t ptr, uint64_t offset, uint64_t count) {
  const uint64_t whole =
      WholeRecords("queue table", ptr + offset, count, sizeof(CoreDumpQueue), kMostQueues);
  for (uint64_t i = 0; i < whole; ++i) {
    auto* queue = new CoreDumpQueue;
    image_.Load(ptr + offset + i * sizeof(CoreDumpQueue), *queue);
    queue->ring_offset += ptr;
    queue->context_offset += ptr;
    queue_lists.push_back(queue);
  }
}

bool CoreDumpInfo::LoadCodeObjects(uint64_t ptr, uint64_t offset, uint64_t count) {
  const uint64_t whole = WholeRecords("code object table", ptr + offset, count,
                                      sizeof(CoreDumpCodeObject), kMostCodeObjects);
  for (uint64_t i = 0; i < whole; ++i) {
    CoreDumpCodeObject record;
    image_.Load(ptr + offset + i * sizeof(CoreDumpCodeObject), record);
    if (whole < count && record.size_elf == 0) {
      // A record without image fails the load. Where the count is lost such a record tells instead
      // that the table has ended.
      return true;
    }
    if (!LoadCodeObject(ptr, record)) {
      return false;
    }
  }
  return true;
}

bool CoreDumpInfo::LoadCodeObject(uint64_t ptr, const CoreDumpCodeObject& record) {
  static int code_object_index = 0;  // numbers the code objects of all runs of the process

  auto* code_object = new CodeObjectInfo;
  code_object->addr_loaded = record.addr_loaded;
  code_object->size_loaded = record.size_loaded;
  snprintf(code_object->name, sizeof(code_object->name), "code_object_%d", code_object_index++);
  code_object->AgentInfo = GetAgentInfo({record.agent});
  code_object_lists.push_back(code_object);

  const std::string name = code_object->name;
  const uint64_t kernels = ptr + record.kernel_offset;
  const uint64_t most = std::max(kMostKernels, image_size_ / sizeof(KernelInfo));
  const uint64_t whole = WholeRecords(name + " kernel table", kernels, record.kernel_count,
                                      sizeof(KernelInfo), most - kernel_count_);
  kernel_count_ += whole;
  for (uint64_t i = 0; i < whole; ++i) {
    auto* kernel = new KernelInfo;
    image_.Load(kernels + i * sizeof(KernelInfo), *kernel);
    code_object->kernel_list.push_back(kernel);
  }
  if (!WriteElf(ptr + record.codeobject_offset, record.size_elf, name)) {
    utils::Log(utils::kLogError, "[init] Write bin failed, dump dir: %s name : %s\n",
               dump_code_dir_.c_str(), name.c_str());
    return false;
  }
  if (!WriteCodeObjectInfo(*code_object)) {
    utils::Log(utils::kLogError, "[init] write: %s info failed\n", name.c_str());
    return false;
  }
  return true;
}

bool CoreDumpInfo::WriteElf(uint64_t address, uint64_t size, const std::string& name) {
  const Bytes elf = image_.Clip(address, size);
  if (elf.size() < size) {
    damage_.Add(name + " ELF image", image_.OffsetOf(address), size, elf.size());
    if (elf.empty()) {
      // An empty image, on which the disassembler fails: the waves that it would hold up are
      // reported.
      return WriteTextFile(dump_code_dir_, name, "", false);
    }
  }
  return WriteBinFile(dump_code_dir_, name, address, elf.size());
}

bool CoreDumpInfo::WriteCodeObjectInfo(const CodeObjectInfo& code_object) {
  ReportFile info(dump_code_dir_, std::string(code_object.name) + ".info",
                  ReportFile::Mode::kReplace);
  info.text() += StrFormat("Object load addr: 0x%lx\n", code_object.addr_loaded);
  info.text() += StrFormat("Object load size: 0x%lx\n", code_object.size_loaded);
  for (const KernelInfo* kernel : code_object.kernel_list) {
    info.text() += FixedText(kernel->name);
    info.text() += StrFormat(":\n\tkernel loaded addr: 0x%lx\n", kernel->loaded_addr);
    info.Spill();
  }
  return info.Close();
}

void CoreDumpInfo::WriteEnvironment(uint64_t address, uint64_t size) {
  const Bytes rest = image_.Clip(address, UINT64_MAX);
  const auto* text = reinterpret_cast<const char*>(rest.data());
  const size_t length = rest.empty() ? 0 : strnlen(text, rest.size());
  // A text without terminator ends with the file. It is whole all the same when the file holds as
  // much as the header says.
  if (length == rest.size() && rest.size() < size) {
    damage_.Add("environment", image_.OffsetOf(address), size, rest.size());
  }
  ReportFile environment(dump_dir_, "environment", ReportFile::Mode::kReplace);
  environment.Append({text, length});
  environment.Close();
}
