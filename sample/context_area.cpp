// Context save areas: header, control stack, wave blocks from the top down.
#include <algorithm>
#include <memory>

#include "core_file_writer.h"

namespace sample {
namespace {

using Take = std::function<void(const std::string&)>;

constexpr uint64_t kHeaderSize = 16;
constexpr uint64_t kPreambleWords = 2;
constexpr uint64_t kLanes = 64;
constexpr uint64_t kHwregWords = 16;
constexpr uint64_t kTtmpWords = 16;
constexpr uint64_t kUnusedWords = 16;
constexpr uint32_t kStateRecord = 0x80000000;
constexpr uint32_t kFirstWaveInGroup = 0x20000;
constexpr uint64_t kPaddingPiece = uint64_t{64} << 10;

// State record fields: the position of each and the registers or dwords that one unit stands for.
constexpr uint32_t kSgprShift = 6;
constexpr uint32_t kSgprUnit = 16;
constexpr uint32_t kLdsShift = 9;
constexpr uint32_t kLdsUnit = 128;

uint64_t WaveCount(const AreaGroup& group) {
  return group.make_wave ? group.wave_count : group.waves.size();
}

bool IsFirst(const AreaGroup& group, uint64_t wave) {
  return group.make_wave ? wave == 0 : group.waves[wave].first_in_group;
}

uint64_t BlockWords(const AreaGroup& group, uint64_t wave) {
  const uint64_t lds = IsFirst(group, wave) ? group.lds_dwords : 0;
  return group.vgpr_count * kLanes + group.sgpr_count + kHwregWords + kTtmpWords + lds +
         kUnusedWords;
}

uint64_t BlocksSize(const ContextArea& area) {
  uint64_t words = 0;
  for (const AreaGroup& group : area.groups) {
    for (uint64_t wave = 0; wave < WaveCount(group); ++wave) {
      words += BlockWords(group, wave);
    }
  }
  return 4 * words;
}

std::vector<uint32_t> ControlStack(const ContextArea& area) {
  std::vector<uint32_t> words(kPreambleWords, 0);
  for (const AreaGroup& group : area.groups) {
    words.insert(words.end(), group.before.begin(), group.before.end());
    if (group.state_record) {
      words.push_back(kStateRecord | group.state);
    }
    for (uint64_t wave = 0; wave < WaveCount(group); ++wave) {
      words.push_back(IsFirst(group, wave) ? kFirstWaveInGroup : 0);
    }
  }
  return words;
}

uint64_t ControlStackSize(const ContextArea& area) {
  uint64_t words = kPreambleWords;
  for (const AreaGroup& group : area.groups) {
    words += group.before.size() + (group.state_record ? 1 : 0) + WaveCount(group);
  }
  return 4 * words;
}

uint64_t UsedSize(const ContextArea& area) {
  return kHeaderSize + area.slack + ControlStackSize(area) + BlocksSize(area);
}

// The header, the slack and the control stack.
std::string Front(const ContextArea& area) {
  const uint64_t stack_offset = kHeaderSize + area.slack;
  std::string bytes(stack_offset, '\0');
  PutU32(bytes, 0, static_cast<uint32_t>(stack_offset));
  PutU32(bytes, 4, static_cast<uint32_t>(ControlStackSize(area)));
  PutU32(bytes, 8, static_cast<uint32_t>(UsedSize(area)));
  PutU32(bytes, 12, static_cast<uint32_t>(BlocksSize(area)));
  return bytes + Dwords(ControlStack(area));
}

// Exactly `count` of `words`, zeros where they end early.
void AppendWords(const std::vector<uint32_t>& words, uint64_t count, std::vector<uint32_t>& block) {
  const size_t end = block.size() + count;
  block.insert(block.end(), words.begin(),
               words.begin() + static_cast<long>(std::min<uint64_t>(count, words.size())));
  block.resize(end, 0);
}

std::string Block(const AreaGroup& group, uint64_t index) {
  const AreaWave wave = group.make_wave ? group.make_wave(index) : group.waves[index];
  std::vector<uint32_t> block;
  block.reserve(BlockWords(group, index));
  AppendWords(wave.vgprs, group.vgpr_count * kLanes, block);
  AppendWords(wave.sgprs, group.sgpr_count, block);
  block.insert(block.end(), wave.hwregs.begin(), wave.hwregs.end());
  block.insert(block.end(), wave.ttmps.begin(), wave.ttmps.end());
  AppendWords(wave.lds, IsFirst(group, index) ? group.lds_dwords : 0, block);
  AppendWords({}, kUnusedWords, block);
  return Dwords(block);
}

void ProduceArea(const ContextArea& area, const Take& take) {
  take(Front(area));
  // The first block lies on top, so the file holds them from the last to the first.
  for (auto group = area.groups.rbegin(); group != area.groups.rend(); ++group) {
    for (uint64_t wave = WaveCount(*group); wave > 0; --wave) {
      take(Block(*group, wave - 1));
    }
  }
  for (uint64_t size = UsedSize(area); size < area.size; size += kPaddingPiece) {
    take(std::string(std::min(kPaddingPiece, area.size - size), '\0'));
  }
}

uint64_t AreaSize(const ContextArea& area) { return std::max(area.size, UsedSize(area)); }

}  // namespace

std::string ContextAreaBytes(const ContextArea& area) {
  std::string bytes;
  bytes.reserve(AreaSize(area));
  ProduceArea(area, [&bytes](const std::string& piece) { bytes += piece; });
  return bytes;
}

Content ContextAreaContent(ContextArea area) {
  const uint64_t size = AreaSize(area);
  const auto shared = std::make_shared<const ContextArea>(std::move(area));
  return Content(size, [shared](const Take& take) { ProduceArea(*shared, take); });
}

uint32_t StateRecord(uint32_t vgprs, uint32_t granule, uint32_t sgprs, uint32_t lds_dwords) {
  return (vgprs / granule - 1) | (sgprs / kSgprUnit) << kSgprShift |
         (lds_dwords / kLdsUnit) << kLdsShift;
}

}  // namespace sample
