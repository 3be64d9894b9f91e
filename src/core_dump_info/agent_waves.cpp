// The wave files of an agent: its queues' context save areas, the waves of each queue, the faulting
// ones with the code around their PC, and the waves that a signal dump recorded.

#include <algorithm>
#include <utility>

#include "core_dump_info.h"
#include "core_dump_info/context_save_area.h"
#include "core_dump_info/report_file.h"
#include "file_manager.h"
#include "logger.h"
#include "utils.h"

namespace {

// TRAPSTS bits 8 and 11: either makes a wave a faulting one.
constexpr uint32_t kTrapStsFault = 0x900;

// Least bound on the waves held for one agent. The areas of a well-formed file share no bytes, so
// that it has at most its size / kSmallestWaveSize waves; a damaged one may name one area in
// thousands of queues.
constexpr uint64_t kMostWaves = 262144;

bool IsFaulting(const WaveStateInfo& wave) { return (wave.regs.trapsts & kTrapStsFault) != 0; }

}  // namespace

bool CoreDumpInfo::GetQueueWaveStates(CoreDumpAgent* agent_info, CoreDumpQueue* queue_info,
                                      QueueWaveMap& queues_waves) {
  if (agent_info == nullptr || queue_info == nullptr) {
    utils::Log(utils::kLogError, "invalid args for agent info or queue info.\n");
    return false;
  }
  const std::string save_dir = QueueDir(queue_info->queue_id);
  const Bytes area = image_.Clip(queue_info->context_offset, queue_info->context_sr_size);
  // The raw area is written before anything is looked at, so that it is there for whatever fails
  // next.
  const bool is_lost = area.empty() && queue_info->context_sr_size != 0;
  if (!is_lost && !WriteBinFile(save_dir, "cwsr", queue_info->context_offset, area.size())) {
    return false;
  }
  const std::string what = StrFormat("queue %u context save area", queue_info->queue_id);
  const uint64_t file_offset = image_.OffsetOf(queue_info->context_offset);
  if (area.size() < queue_info->context_sr_size) {
    damage_.Add(what, file_offset, queue_info->context_sr_size, area.size());
  }
  if (is_lost) {
    return true;
  }

  const uint32_t gfxv = FindGfxIp(static_cast<uint16_t>(agent_info->chip_id));
  ContextSaveArea saved = ReadContextSaveArea(area, VgprGranule(agent_info->is_dp4x, gfxv));
  for (const ContextSaveArea::Loss& loss : saved.losses) {
    damage_.Add(what + ", " + loss.what, file_offset + static_cast<uint64_t>(loss.offset),
                loss.wanted, loss.available);
  }
  if (saved.verdict == ContextSaveArea::Verdict::kAddressCheckFailed) {
    utils::Log(utils::kLogError, "Ctrl stack / context save address check fail\n");
    return false;
  }
  const uint64_t most = std::max(kMostWaves, image_size_ / kSmallestWaveSize);
  if (saved.waves.size() > most - wave_count_) {
    damage_.Add(what + ", more waves than the file has room for", file_offset, area.size(), 0);
    saved.waves.resize(most - wave_count_);
  }
  wave_count_ += saved.waves.size();
  std::vector<WaveStateInfo>& waves = queues_waves[queue_info->queue_id];
  if (waves.empty()) {
    waves = std::move(saved.waves);
  } else {
    waves.insert(waves.end(), saved.waves.begin(), saved.waves.end());
  }
  if (saved.verdict == ContextSaveArea::Verdict::kSizeCheckFailed) {
    utils::Log(utils::kLogError, "Context save size check fail\n");
    return false;
  }
  return true;
}

bool CoreDumpInfo::GetQueuesWaveStates(CoreDumpAgent* agent_info, QueueWaveMap& queues_waves) {
  std::vector<CoreDumpQueue*> queues;
  GetQueueInfoByGpuId(agent_info->gpu_id, queues);
  return std::all_of(queues.begin(), queues.end(), [&](CoreDumpQueue* queue) {
    return queue->queue_type != QUEUE_TYPE_COMPUTE_AQL ||
           GetQueueWaveStates(agent_info, queue, queues_waves);
  });
}

bool CoreDumpInfo::DumpAgentWaves(CoreDumpAgent* agent_info) {
  if (agent_info == nullptr) {
    utils::Log(utils::kLogError, "Invlid agent info.\n");
    return false;
  }
  const uint32_t gfxv = FindGfxIp(static_cast<uint16_t>(agent_info->chip_id));
  utils::Log(utils::kLogDebug, "%s gfx version: 0x%x\n", __func__, gfxv);
  QueueWaveMap queues_waves;
  wave_count_ = 0;
  if (!GetQueuesWaveStates(agent_info, queues_waves)) {
    utils::Log(utils::kLogError, "get queue wave states failed\n");
    return false;
  }
  std::string occupancy;
  if (!GenAgentOccupyInfo(queues_waves, occupancy)) {
    utils::Log(utils::kLogError, "get agent Occupy Info failed\n");
    return false;
  }
  if (!WriteTextFile(dump_dir_, AgentReport(*agent_info), occupancy, true)) {
    utils::Log(utils::kLogError, "write str_occupy failed\n");
    return false;
  }
  for (auto& [queue_id, waves] : queues_waves) {
    if (GetQueueInfoByQueueId(queue_id) == nullptr) {
      utils::Log(utils::kLogError, "Failed to get queue by id: 0X%X", queue_id);
      return false;
    }
    if (!DumpQueueWaves(*agent_info, queue_id, waves)) {
      return false;
    }
  }
  return true;
}

bool CoreDumpInfo::GetFaultWindows(const CoreDumpAgent& agent, std::vector<WaveStateInfo>& waves,
                                   std::vector<const FaultWindows::Window*>& windows) {
  for (WaveStateInfo& wave : waves) {
    if (IsFaulting(wave)) {
      // The saved PC is the trap handler's; both files show where the wave faulted.
      wave.regs.pc = wave.regs.trap_pc;
      windows.push_back(FaultWindow(agent, wave.regs.pc));
      if (windows.back() == nullptr) {
        return false;
      }
    }
  }
  return true;
}

bool CoreDumpInfo::DumpQueueWaves(const CoreDumpAgent& agent, uint32_t queue_id,
                                  std::vector<WaveStateInfo>& waves) {
  // First the code around every faulting PC: when it cannot be had, nothing of this queue is
  // written.
  std::vector<const FaultWindows::Window*> windows;
  if (!GetFaultWindows(agent, waves, windows)) {
    return false;
  }
  if (!windows.empty() &&
      !WriteTextFile(dump_dir_, "fault_info",
                     StrFormat("%zu wavefronts found error.\n\n", windows.size()), true)) {
    return false;
  }
  if (waves.empty()) {
    return true;
  }

  // Then each wave's text, made once for both files. fault_info begins with the count: hence the
  // windows first.
  const uint32_t gfxv = FindGfxIp(static_cast<uint16_t>(agent.chip_id));
  ReportFile fault_report(dump_dir_, "fault_info", ReportFile::Mode::kAppend);
  ReportFile waves_report(QueueDir(queue_id), "waves", ReportFile::Mode::kReplace);
  std::string& text = waves_report.text();
  text = StrFormat("Total waves count: %zu\n", waves.size());
  auto window = windows.begin();
  for (WaveStateInfo& wave : waves) {
    NoteWaveLoss(queue_id, "second VGPR bank", SecondVgprBank(gfxv, agent.is_dp4x, wave));
    NoteWaveLoss(queue_id, "LDS", GroupLds(wave));
    const size_t wave_begin = text.size();
    GenWaveInfo(gfxv, agent.is_dp4x, &wave, text);
    if (IsFaulting(wave)) {
      fault_report.Append(StrFormat("Agent %u, Queue ID %u: fault wave PC: 0X%016lX\n",
                                    agent.node_id, queue_id, wave.regs.pc));
      fault_report.Append(std::string_view(text).substr(wave_begin));
      fault_windows_.AppendTo(**window++, fault_report);
    }
    waves_report.Spill();
  }
  const bool waves_written = waves_report.Close();
  return (windows.empty() || fault_report.Close()) && waves_written;
}

void CoreDumpInfo::NoteWaveLoss(uint32_t queue_id, const char* what, const WavePart& part) {
  if (part.bytes.size() < part.size) {
    damage_.Add(StrFormat("queue %u %s of a wave", queue_id, what),
                image_.OffsetOf(reinterpret_cast<uint64_t>(part.bytes.data())), part.size,
                part.bytes.size());
  }
}

bool CoreDumpInfo::DumpAgentActiveWaves(CoreDumpAgent* agent_info) {
  if (agent_info->wave_count == 0) {
    utils::Log(utils::kLogWarning, "agent:%s is no active wave!\n",
               std::string(FixedText(agent_info->name)).c_str());
    return true;
  }
  const uint64_t address = agent_info->wave_offset;
  // The count is a signed 32-bit one wherever it is used.
  const auto wave_count =
      static_cast<int>(WholeRecords(StrFormat("agent %u wave records", agent_info->node_id),
                                    address, agent_info->wave_count, sizeof(WaveInfo)));

  std::string occupancy;
  if (!GenAgentOccupyInfo(reinterpret_cast<WaveInfo*>(address), wave_count, occupancy)) {
    utils::Log(utils::kLogError, "get agent Occupy Info failed\n");
  }
  if (!WriteTextFile(dump_dir_, AgentReport(*agent_info), occupancy, true)) {
    utils::Log(utils::kLogError, "write str_occupy failed\n");
  }
  ReportFile report(dump_dir_, AgentReport(*agent_info) + "_active_waves",
                    ReportFile::Mode::kReplace);
  report.text() = StrFormat("Total active waves count: %d\n", wave_count);
  const auto* record = reinterpret_cast<const unsigned char*>(address);
  for (int i = 0; i < wave_count; ++i, record += sizeof(WaveInfo)) {
    AppendActiveWave(agent_info->is_dp4x, record, report.text());
    report.Spill();
  }
  if (!report.Close()) {
    utils::Log(utils::kLogError, "write wave failed\n");
  }
  return true;
}
