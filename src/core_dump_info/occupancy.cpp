// The occupancy table of an agent: how many waves every SIMD held.

#include <algorithm>
#include <map>

#include "core_dump_info.h"
#include "core_dump_info/register_fields.h"
#include "utils.h"

namespace {

// The geometry that the table shows is fixed; the agent's own counts are not used.
constexpr int kEngines = 4;  // SEs
constexpr int kArray = 0;    // the one SH that is shown
constexpr int kUnits = 16;   // CUs of an SH
constexpr int kSimds = 4;    // of a CU
constexpr int kUnitsPerBlock = 8;
constexpr double kWaveSlots = 2560.0;  // 64 CUs of 40 slots

constexpr int kRecordsMapped = 16;  // 1 MiB of wave records

constexpr size_t kRuleWidth = 85;

std::string Rule(char c) { return std::string(kRuleWidth, c) + "\n"; }

// Waves per SIMD, with an entry of 0 for every SIMD of the table.
class WaveCounts {
 public:
  WaveCounts() {
    for (int se = 0; se < kEngines; ++se) {
      for (int cu = 0; cu < kUnits; ++cu) {
        for (int simd = 0; simd < kSimds; ++simd) {
          map_[se][kArray][cu][simd] = 0;
        }
      }
    }
  }

  void Add(uint32_t hw_id) {
    const auto field = [hw_id](const RegisterField& f) {
      return static_cast<int>(FieldValue(f, hw_id));
    };
    ++map_[field(kHwIdSe)][field(kHwIdSh)][field(kHwIdCu)][field(kHwIdSimd)];
  }

  // Appends the table; `total` is the number of waves, those of SH 1 included.
  void AppendTable(int total, std::string& out);

 private:
  void AppendBlock(int first_cu, std::string& out);
  void AppendCell(int se, int cu, int simd, std::string& out);

  SEWaveMap map_;
  // Units with a wave; only how many there are matters.
  std::map<int, int> used_se_;
  std::map<int, int> used_cu_;
  std::map<int, int> used_simd_;
};

void WaveCounts::AppendCell(int se, int cu, int simd, std::string& out) {
  const int count = map_[se][kArray][cu][simd];
  if (count == 0) {
    out += StrFormat("%2s", "-");
    return;
  }
  out += StrFormat("%2d", count);
  used_se_[se] = 1;
  used_cu_[se << 16 | cu] = 1;
  used_simd_[se << 16 | cu << 8 | simd] = 1;
}

void WaveCounts::AppendBlock(int first_cu, std::string& out) {
  out += Rule('-');
  out += "CU  |";
  for (int cu = first_cu; cu < first_cu + kUnitsPerBlock; ++cu) {
    out += StrFormat("%5d%5s", cu, "|");
  }
  out += "\n";
  for (int se = 0; se < kEngines; ++se) {
    out += StrFormat("S%dH%d|", se, kArray);
    for (int cu = first_cu; cu < first_cu + kUnitsPerBlock; ++cu) {
      for (int simd = 0; simd < kSimds; ++simd) {
        AppendCell(se, cu, simd, out);
      }
      out += " |";
    }
    out += "\n";
  }
}

void WaveCounts::AppendTable(int total, std::string& out) {
  out += Rule('-');
  out += "SIMD| ";
  for (int group = 0; group < kUnitsPerBlock; ++group) {
    for (int simd = 0; simd < kSimds; ++simd) {
      out += StrFormat("%d ", simd);
    }
    out += "| ";
  }
  out += "\n";
  for (int first_cu = 0; first_cu < kUnits; first_cu += kUnitsPerBlock) {
    AppendBlock(first_cu, out);
  }
  out += Rule('=');
  out += StrFormat("%-16s%-16s%-20s", "Used SEs(4)", "Used CUs(64)", "Used SIMDs(256)");
  out += StrFormat("%-18s%-18s\n", "Active Waves", "Waves Occupancy");
  out += StrFormat("%6zu%16zu%16zu", used_se_.size(), used_cu_.size(), used_simd_.size());
  out += StrFormat("%20d%20.3f %%\n", total, total / kWaveSlots * 100.0);
  out += Rule('=');
}

}  // namespace

bool CoreDumpInfo::GenAgentOccupyInfo(const QueueWaveMap& queues_waves, std::string& info) {
  WaveCounts counts;
  int total = 0;
  for (const auto& [queue_id, waves] : queues_waves) {
    for (const WaveStateInfo& wave : waves) {
      counts.Add(wave.regs.hw_id);
      ++total;
    }
  }
  counts.AppendTable(total, info);
  return true;
}

bool CoreDumpInfo::GenAgentOccupyInfo(WaveInfo* wave_info, int wave_count, std::string& info) {
  WaveCounts counts;
  // The records lie in the mapped file at any alignment: their fields are loaded, not dereferenced.
  const auto* record = reinterpret_cast<const unsigned char*>(wave_info);
  for (int i = 0; i < wave_count; ++i) {
    // This is the first look at the records; their text follows.
    if (i % kRecordsMapped == 0) {
      MapPages(record,
               sizeof(WaveInfo) * static_cast<size_t>(std::min(kRecordsMapped, wave_count - i)));
    }
    counts.Add(LoadU32(record + offsetof(WaveInfo, hw_id)));
    record += sizeof(WaveInfo);
  }
  counts.AppendTable(wave_count, info);
  return true;
}
