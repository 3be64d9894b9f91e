// The fixed order of the reports, and the first of them: why the core file was written.

#include "core_dump_info.h"
#include "file_manager.h"
#include "logger.h"
#include "utils.h"

namespace {

struct CodeText {
  uint32_t code;
  const char* text;
};

// hsa_status_t of a queue error. The texts are an interface, odd spellings included.
constexpr CodeText kQueueErrors[] = {
    {0x29, "Memory aperture violation;"},  // HSA_STATUS_ERROR_MEMORY_APERTURE_VIOLATION
    {0x2A, "Illegal instruction;"},        // HSA_STATUS_ERROR_ILLEGAL_INSTRUCTION
    {0x1001, "Group is too large;"},       // HSA_STATUS_ERROR_INVALID_ARGUMENT
    {0x1003, "Invalid group memor;"},      // HSA_STATUS_ERROR_INVALID_ALLOCATION
    {0x1008, "Out of scratch;"},           // HSA_STATUS_ERROR_OUT_OF_RESOURCES
    {0x1009, "Invalid format;"},           // HSA_STATUS_ERROR_INVALID_PACKET_FORMAT
    {0x100D, "Invalid dim;"},              // HSA_STATUS_ERROR_INCOMPATIBLE_ARGUMENTS
    {0x100F, "Out of VGPRs;"},             // HSA_STATUS_ERROR_INVALID_ISA
    {0x1010, "Invalid (or NULL) code;"},   // HSA_STATUS_ERROR_INVALID_CODE_OBJECT
    {0x1016, "Debug trap;"},               // HSA_STATUS_ERROR_EXCEPTION
};

// Bits of fault_reason_mask, in the order in which they are reported.
constexpr CodeText kFaultCauses[] = {
    {1U << 0, "page not present;"},
    {1U << 1, "write access to a read-only page;"},
    {1U << 2, "execute access to a non-executable page;"},
    {1U << 3, "access to host access only;"},
    {1U << 4, "uncorrectable DRAM ECC failure;"},
    {1U << 5, "can't determine the exact fault address;"},
    {1U << 6, "SRAM ECC failure;"},
    {1U << 31, "GPU reset following unspecified hang;"},
};

constexpr unsigned kPageShift = 12;
constexpr int32_t kSigTerm = 15;

const char* QueueErrorText(uint32_t status) {
  for (const CodeText& row : kQueueErrors) {
    if (row.code == status) {
      return row.text;
    }
  }
  return "Undefined code;";
}

std::string AgentLines(const char* event, const CoreDumpReasonInfo& info) {
  return StrFormat("%s in GPU agent: %s\n", event,
                   std::string(FixedText(info.agent_name)).c_str()) +
         StrFormat("GPU Node: %d\n", info.node_id);
}

}  // namespace

bool CoreDumpInfo::dump() {
  if (!dumpReasonInfo()) {
    utils::Log(utils::kLogError, "dump reason info failed\n");
  }
  utils::Log(utils::kLogInfo, "CoreDump dump agent.\n");
  for (CoreDumpAgent* agent : agent_lists) {
    if (!dumpAgent(agent)) {
      utils::Log(utils::kLogError, "dump agent: %s failed\n",
                 std::string(FixedText(agent->name)).c_str());
    }
    if (reason_info.reason != CORE_DUMP_SIGNAL) {
      DumpAgentWaves(agent);
    } else {
      DumpAgentActiveWaves(agent);
    }
  }
  utils::Log(utils::kLogInfo, "CoreDump dump queue.\n");
  for (CoreDumpQueue* queue : queue_lists) {
    if (!dumpQueue(queue)) {
      utils::Log(utils::kLogError, "dump queue: %d failed\n", queue->queue_id);
    }
    if (!DumpPacket(queue)) {
      utils::Log(utils::kLogError, "dump packet: %d failed\n", queue->queue_id);
    }
  }
  DisAllCodeObject();
  utils::Log(utils::kLogInfo, "CoreDump end!\n");
  return true;
}

bool CoreDumpInfo::dumpReasonInfo() {
  utils::Log(utils::kLogInfo, "CoreDump dump reason info.\n");
  switch (reason_info.reason) {
    case CORE_DUMP_QUEUE_ERROR:
      return dumpQueueErrorInfo(reason_info);
    case CORE_DUMP_VM_FAULT:
      return dumpVMFaultInfo(reason_info);
    case CORE_DUMP_SIGNAL:
      return dumpSignalInfo(reason_info);
    default:
      return false;
  }
}

bool CoreDumpInfo::dumpQueueErrorInfo(CoreDumpReasonInfo info) {
  std::string text = AgentLines("Queue error", info);
  text += StrFormat("Queue ID: %d (", GetQueueIdByRing(info.ring_addr));
  text += QueueErrorText(info.status);
  text += ")\n\n";
  return WriteTextFile(dump_dir_, "fault_info", text, false);
}

bool CoreDumpInfo::dumpVMFaultInfo(CoreDumpReasonInfo info) {
  std::string text = AgentLines("Memory access fault", info);
  // The "xxx" stands for the offset within the page, which the fault does not tell.
  text += StrFormat("Address: 0X%lXxxx (", info.virtual_address >> kPageShift);
  for (const CodeText& cause : kFaultCauses) {
    if ((info.fault_reason_mask & cause.code) != 0) {
      text += cause.text;
    }
  }
  text += ")\n\n";
  return WriteTextFile(dump_dir_, "fault_info", text, false);
}

bool CoreDumpInfo::dumpSignalInfo(CoreDumpReasonInfo info) {
  // Any signal but SIGTERM is reported as SIGUSR1, on purpose: the runtime dumps for these two.
  const char* text =
      info.sig == kSigTerm
          ? "Dumping info due to SIGTERM: kill -15\n\n"
          : "Dumping info due to SIGUSR1: the cp might be in an unrecoverable state\n\n";
  return WriteTextFile(dump_dir_, "fault_info", text, false);
}
