// The report of one agent and of one queue.

#include <array>

#include "core_dump_info.h"
#include "file_manager.h"
#include "utils.h"

namespace {

constexpr std::array kQueueTypeNames = {"compute", "sdma", "compute_aql", "sdma_xgmi"};
constexpr std::array kQueueFormatNames = {"PM4", "AQL"};

// The name of `value`, or "unknown" for one that the table does not have.
template <size_t N>
const char* NameOf(const std::array<const char*, N>& names, uint32_t value) {
  return value < N ? names[value] : "unknown";
}

}  // namespace

std::string CoreDumpInfo::QueueDir(uint32_t queue_id) const {
  return dump_queue_dir_ + "/" + std::to_string(queue_id);
}

std::string CoreDumpInfo::AgentReport(const CoreDumpAgent& agent) {
  return "agent_" + std::to_string(agent.node_id);
}

bool CoreDumpInfo::dumpAgent(CoreDumpAgent* agent) {
  std::string text;
  text += StrFormat("Gpu id: %d\n", agent->gpu_id);
  text += StrFormat("Node id: %d\n", agent->node_id);
  text += StrFormat("Chip id: 0X%X\n", agent->chip_id);
  text += StrFormat("Drm id: 0X%X\n", agent->drm_id);
  text += StrFormat("Agent name: %s\n", std::string(FixedText(agent->name)).c_str());
  text += StrFormat("pci_busid: %04X:%02X:%02X.0\n", agent->pci_domain_id, agent->pci_bus_id,
                    agent->pci_device_id);
  text += StrFormat("Is dp4x: %d\n", agent->is_dp4x);
  text += StrFormat("Num SEs: %d\n", agent->num_ses);
  text += StrFormat("Num CUs: %d\n", agent->num_cus);
  text += StrFormat("Num simds per cu: %d\n", agent->num_simds_per_cu);
  text += StrFormat("Waves per cu: %d\n", agent->waves_per_cu);
  text += StrFormat("Max engine freq: %d\n", agent->max_engine_freq);
  text += StrFormat("Max memory freq: %d\n\n", agent->max_memory_freq);
  return WriteTextFile(dump_dir_, AgentReport(*agent), text, false);
}

bool CoreDumpInfo::dumpQueue(CoreDumpQueue* queue) {
  std::string text;
  // The id is hexadecimal here and decimal in the directory's name, on purpose.
  text += StrFormat("Queue id: 0X%lX\n", uint64_t{queue->queue_id});
  text += StrFormat("Gpu id: %d\n", queue->gpu_id);
  text += StrFormat("Queue type: %s\n", NameOf(kQueueTypeNames, queue->queue_type));
  text += StrFormat("Queue format: %s\n", NameOf(kQueueFormatNames, queue->queue_format));
  text += StrFormat("Queue eop address: 0X%lX\n", queue->eop_address);
  text += StrFormat("Queue eop size: 0X%lX\n", queue->eop_size);
  text += StrFormat("Queue mqd address: 0X%lX\n", queue->mqd_address);
  text += StrFormat("Queue doorbell offset: 0X%lX\n", queue->doorbell_offset);
  text += "Queue ring info: \n";
  text += StrFormat("\tring address: 0X%lX\n", queue->ring_address);
  text += StrFormat("\tring size: 0X%lX\n", queue->ring_size);
  text += StrFormat("\twptr address: 0X%lX\n", queue->wptr_address);
  text += StrFormat("\trptr address: 0X%lX\n", queue->rptr_address);
  text += StrFormat("\twptr value: %ld\n", queue->wptr_value);
  text += StrFormat("\trptr value: %ld\n", queue->rptr_value);
  if (queue->queue_type == QUEUE_TYPE_COMPUTE_AQL) {
    text += "Queue context info: \n";
    text += StrFormat("\tcontext save restore base: 0X%lX\n", queue->context_sr_address);
    // The low 32 bits of the two sizes, on purpose.
    text += StrFormat("\tcontext save restore total size: 0X%X\n",
                      static_cast<uint32_t>(queue->context_sr_size));
    text +=
        StrFormat("\tcontext stack size: 0X%X\n", static_cast<uint32_t>(queue->control_stack_size));
  }
  return WriteTextFile(QueueDir(queue->queue_id), "queue", text, false);
}
