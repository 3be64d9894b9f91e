// The packets left in a queue's ring, and the raw ring.

#include <algorithm>
#include <cstring>

#include "core_dump_info.h"
#include "core_dump_info/aql_packets.h"
#include "core_dump_info/argument_files.h"
#include "core_dump_info/number_text.h"
#include "core_dump_info/report_file.h"
#include "core_dump_info/sdma_decoder.h"
#include "file_manager.h"
#include "hsa_packets.h"
#include "logger.h"
#include "utils.h"

namespace {

constexpr uint64_t kKernelArgumentSize = 4096;  // bytes read at a dispatch's kernarg_address

void LogDebugQueue(const char* function, uint32_t queue_id) {
  utils::Log(utils::kLogDebug, "%s queu id: %d\n", function, queue_id);
}

}  // namespace

bool CoreDumpInfo::DumpPacket(CoreDumpQueue* queue_info) {
  switch (queue_info->queue_type) {
    case QUEUE_TYPE_COMPUTE_AQL:
      if (!dumpAqlPacket(queue_info)) {
        utils::Log(utils::kLogError, "dump aql packet failed\n");
        return false;
      }
      return true;
    case QUEUE_TYPE_SDMA:
      if (!dumpSdmaPacket(queue_info)) {
        utils::Log(utils::kLogError, "dump sdma packet failed\n");
        return false;
      }
      return true;
    default:
      return true;
  }
}

bool CoreDumpInfo::dumpAqlPacket(CoreDumpQueue* queue_info) {
  LogDebugQueue("dumpAqlPacket", queue_info->queue_id);
  const std::string save_dir = QueueDir(queue_info->queue_id);
  const uint64_t ring = queue_info->ring_offset;
  const auto packet_size = static_cast<int32_t>(queue_info->ring_size / kAqlPacketSize);
  const auto slots = std::min(static_cast<uint64_t>(std::max(packet_size, 0)),
                              image_.Available(ring) / kAqlPacketSize);
  const uint64_t backup = ring + queue_info->ring_size;
  const bool has_backup = full_version > kLastVersionWithoutHeaderBackup;
  if (has_backup) {  // what the file has lost of it is noted once, and packets go on without
    WholeRecords(StrFormat("queue %u header backup array", queue_info->queue_id), backup, slots,
                 sizeof(uint32_t));
  }

  ReportFile packets(save_dir, "packets", ReportFile::Mode::kAppend);
  ArgumentFiles argument_files(save_dir);
  for (uint64_t i = 0; i < slots; ++i) {
    packets.text() += "\npacket index: ";
    AppendDecimal(packets.text(), i);
    packets.text() += '\n';
    const auto* slot = reinterpret_cast<const unsigned char*>(ring + i * kAqlPacketSize);
    std::optional<uint32_t> backup_header = 0;
    if (has_backup && !image_.Load(backup + i * sizeof(uint32_t), *backup_header)) {
      backup_header.reset();
    }
    AppendAqlSlot(slot, backup_header, argument_files, packets.text());
    packets.Spill();
  }
  return packets.Close() && WriteRing(*queue_info, save_dir, "aql_rb");
}

bool CoreDumpInfo::GenAqlPacketInfo(void* data, uint32_t backup_header, std::string& save_dir,
                                    std::string& info) {
  ArgumentFiles argument_files(save_dir);
  AppendAqlSlot(static_cast<const unsigned char*>(data), backup_header, argument_files, info);
  return true;
}

void CoreDumpInfo::AppendAqlSlot(const unsigned char* slot, std::optional<uint32_t> backup_header,
                                 ArgumentFiles& argument_files, std::string& info) {
  if (AppendAqlPacket(slot, backup_header, full_version, info) != AQL_TYPE_KERNEL_DISPATCH) {
    return;
  }
  hsa_kernel_dispatch_packet_t dispatch;
  memcpy(&dispatch, slot, sizeof(dispatch));
  const LoadedKernel loaded = KernelAt(dispatch.kernel_object);
  if (loaded.kernel == nullptr) {
    return;
  }
  info += "kernel_name: ";
  info += FixedText(loaded.kernel->name);
  info += '\n';
  KeepKernelArguments(*loaded.kernel, reinterpret_cast<uint64_t>(slot), dispatch.kernarg_address,
                      argument_files);
  info += "object_name: ";
  info += loaded.code_object->name;
  info += '\n';
}

void CoreDumpInfo::KeepKernelArguments(const KernelInfo& kernel, uint64_t packet,
                                       uint64_t kernarg_address, ArgumentFiles& argument_files) {
  char arguments[kKernelArgumentSize];
  const uint64_t size = getMemInfo(arguments, sizeof(arguments), kernarg_address);
  if (size == 0) {
    return;
  }
  const std::string_view name = FixedText(kernel.name);
  if (!argument_files.CanHold(name)) {
    damage_.Add(
        "kernel name \"" + PrintableText(name) + "\" is no file name, arguments not written",
        image_.OffsetOf(packet), size, 0);
    return;
  }
  argument_files.Set(name, {arguments, size});
}

bool CoreDumpInfo::dumpSdmaPacket(CoreDumpQueue* queue_info) {
  LogDebugQueue("dumpSdmaPacket", queue_info->queue_id);
  const std::string save_dir = QueueDir(queue_info->queue_id);
  ReportFile packets(save_dir, "packets", ReportFile::Mode::kAppend);
  SdmaStream stream =
      SdmaStreamAt(queue_info->ring_offset, static_cast<int>(queue_info->ring_size));
  while (stream.Next(packets.text())) {
    packets.Spill();
  }
  packets.text() += '\n';
  return packets.Close() && WriteRing(*queue_info, save_dir, "sdma_rb");
}

bool CoreDumpInfo::GenSdmaPacketInfo(uint64_t data, int size, std::string& info) {
  SdmaStream stream = SdmaStreamAt(data, size);
  while (stream.Next(info)) {
  }
  info += '\n';
  return true;
}

SdmaStream CoreDumpInfo::SdmaStreamAt(uint64_t address, int size) const {
  const auto length = static_cast<uint64_t>(std::max(size, 0));
  return SdmaStream(image_.Clip(address, length + kLongestSdmaPacket), length);
}

bool CoreDumpInfo::WriteRing(const CoreDumpQueue& queue, const std::string& save_dir,
                             const char* file_name) {
  const Bytes ring = image_.Clip(queue.ring_offset, queue.ring_size);
  if (ring.size() < queue.ring_size) {
    damage_.Add(StrFormat("queue %u ring", queue.queue_id), image_.OffsetOf(queue.ring_offset),
                queue.ring_size, ring.size());
    if (ring.empty()) {
      return true;
    }
  }
  return WriteBinFile(save_dir, file_name, queue.ring_offset, ring.size());
}
