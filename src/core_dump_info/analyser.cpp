// The analyser's lifetime and lookups.

#include "core_dump_info.h"
#include "core_dump_info/gfxip_table.h"

CoreDumpInfo::~CoreDumpInfo() {
  for (CoreDumpAgent* agent : agent_lists) {
    delete agent;
  }
  for (CoreDumpQueue* queue : queue_lists) {
    delete queue;
  }
  for (CodeObjectInfo* code_object : code_object_lists) {
    for (KernelInfo* kernel : code_object->kernel_list) {
      delete kernel;
    }
    delete code_object;
  }
}

void CoreDumpInfo::SetImageSize(uint64_t size) { image_size_ = size; }

CoreDumpAgent* CoreDumpInfo::GetAgentInfo(agent_t agent) const {
  for (CoreDumpAgent* candidate : agent_lists) {
    if (candidate->agent.handle == agent.handle) {
      return candidate;
    }
  }
  return nullptr;
}

CoreDumpQueue* CoreDumpInfo::GetQueueInfoByQueueId(uint32_t queue_id) const {
  for (CoreDumpQueue* queue : queue_lists) {
    if (queue->queue_id == queue_id) {
      return queue;
    }
  }
  return nullptr;
}

uint32_t CoreDumpInfo::GetQueueIdByRing(uint64_t ring_address) const {
  for (const CoreDumpQueue* queue : queue_lists) {
    if (queue->ring_address == ring_address) {
      return queue->queue_id;
    }
  }
  return UINT32_MAX;
}

void CoreDumpInfo::GetQueueInfoByGpuId(uint32_t gpu_id, std::vector<CoreDumpQueue*>& out) const {
  for (CoreDumpQueue* queue : queue_lists) {
    if (queue->gpu_id == gpu_id) {
      out.push_back(queue);
    }
  }
}

CoreDumpInfo::LoadedKernel CoreDumpInfo::KernelAt(uint64_t loaded_addr) const {
  if (kernel_index_.empty()) {
    for (CodeObjectInfo* code_object : code_object_lists) {
      for (KernelInfo* kernel : code_object->kernel_list) {
        kernel_index_.try_emplace(kernel->loaded_addr, LoadedKernel{kernel, code_object});
      }
    }
  }
  const auto found = kernel_index_.find(loaded_addr);
  return found != kernel_index_.end() ? found->second : LoadedKernel{};
}

KernelInfo* CoreDumpInfo::GetKernelFromList(uint64_t loaded_addr) const {
  return KernelAt(loaded_addr).kernel;
}

CodeObjectInfo* CoreDumpInfo::GetCodeObjectFromList(uint64_t loaded_addr) const {
  return KernelAt(loaded_addr).code_object;
}

CodeObjectInfo* CoreDumpInfo::GetCodeObjectByPC(uint64_t pc) const {
  for (CodeObjectInfo* code_object : code_object_lists) {
    const uint64_t start_addr = code_object->addr_loaded;
    const uint64_t end_addr = code_object->addr_loaded + code_object->size_loaded;
    if (start_addr <= pc && pc < end_addr) {
      return code_object;
    }
  }
  return nullptr;
}

uint32_t CoreDumpInfo::FindGfxIp(uint16_t device_id) {
  for (const hsa_gfxip_table& row : GfxIpTable()) {
    if (row.device_id == device_id) {
      return uint32_t{row.major} << 16 | uint32_t{row.minor} << 8 | row.stepping;
    }
  }
  return 0;
}
