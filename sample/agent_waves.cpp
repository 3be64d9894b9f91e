#include "agent_waves.h"

#include <algorithm>
#include <utility>

#include "splitmix64.h"

namespace sample {
namespace {

using Take = std::function<void(const std::string&)>;

constexpr uint64_t kPage = 4096;
constexpr uint64_t kHeaderSize = 16;
constexpr uint64_t kPreambleWords = 2;
constexpr uint64_t kZerosPiece = uint64_t{64} << 10;

constexpr uint32_t kEventWord = 0x40000000;
constexpr uint32_t kBothTopBitsWord = 0xC0000000;

// Dwords of a wave beside its registers: hardware registers, trap temporaries, unused ones.
constexpr uint64_t kFixedWords = 16 + 16 + 16;

bool HasSecondBank(const AgentWaves& agent) { return agent.second_bank_distance != 0; }

// VGPRs that an area saves with the wave; the others are in the second bank.
uint32_t SavedVgprs(const AgentWaves& agent) {
  return HasSecondBank(agent) ? agent.size.vgprs / 2 : agent.size.vgprs;
}

uint32_t SavedGranule(const AgentWaves& agent) {
  return HasSecondBank(agent) ? agent.size.vgpr_granule / 2 : agent.size.vgpr_granule;
}

std::vector<uint32_t> Lds(const AgentWaves& agent, uint64_t group, uint32_t dwords) {
  SplitMix64 rng(agent.seed, {group});
  std::vector<uint32_t> lds(dwords);
  for (uint32_t& word : lds) {
    word = 0x3F800000 + rng.Below(1 << 22);  // a float from 1 to 2
  }
  return lds;
}

AreaWave FirstBankWave(const AgentWaves& agent, uint64_t group, uint32_t wave) {
  AreaWave area_wave = ToAreaWave(agent.Wave(group, wave));
  if (wave == 0) {
    area_wave.lds = Lds(agent, group, LdsDwords(*agent.DispatchOf(group).kernel.code));
  }
  return area_wave;
}

// The upper half of the VGPRs in the place of the lower.
AreaWave SecondBankWave(const AgentWaves& agent, uint64_t group, uint32_t wave) {
  const WaveState state = agent.Wave(group, wave);
  AreaWave bank;
  bank.vgprs.assign(state.vgprs.begin() + int64_t{SavedVgprs(agent)} * kLanes, state.vgprs.end());
  return bank;
}

using MakeWave = AreaWave (*)(const AgentWaves& agent, uint64_t group, uint32_t wave);

AreaGroup MakeGroup(const std::shared_ptr<const AgentWaves>& agent, uint64_t group, uint64_t waves,
                    MakeWave make_wave) {
  AreaGroup area_group;
  area_group.vgpr_count = SavedVgprs(*agent);
  area_group.sgpr_count = agent->size.sgprs;
  area_group.lds_dwords = LdsDwords(*agent->DispatchOf(group).kernel.code);
  area_group.state = StateRecord(area_group.vgpr_count, SavedGranule(*agent), area_group.sgpr_count,
                                 area_group.lds_dwords);
  if (group % 3 == 0) {
    area_group.before.push_back(kEventWord | static_cast<uint32_t>(group & 0xFFFF));
  }
  if (group % 5 == 0) {
    area_group.before.push_back(kBothTopBitsWord | static_cast<uint32_t>(group & 0xFFFF));
  }
  area_group.wave_count = waves;
  area_group.make_wave = [agent, group, make_wave](uint64_t index) {
    return make_wave(*agent, group, static_cast<uint32_t>(index));
  };
  return area_group;
}

// The header, the unused bytes behind it and the control stack.
uint64_t FrontSize(const ContextArea& area) {
  uint64_t words = kPreambleWords;
  for (const AreaGroup& group : area.groups) {
    words += group.before.size() + 1 + group.wave_count;
  }
  return kHeaderSize + area.slack + 4 * words;
}

ContextArea MakeArea(const std::shared_ptr<const AgentWaves>& agent, uint32_t queue, uint64_t waves,
                     MakeWave make_wave) {
  ContextArea area;
  for (uint64_t first = 0; first < waves; first += kWavesPerGroup) {
    const uint64_t group = first / kWavesPerGroup * agent->queues.size() + queue;
    const uint64_t count = std::min<uint64_t>(kWavesPerGroup, waves - first);
    area.groups.push_back(MakeGroup(agent, group, count, make_wave));
  }
  // The control stack ends at a page: it grows down from there.
  area.slack = static_cast<uint32_t>((kPage - FrontSize(area) % kPage) % kPage);
  return area;
}

void TakeZeros(uint64_t count, const Take& take) {
  for (uint64_t done = 0; done < count; done += kZerosPiece) {
    take(std::string(std::min(kZerosPiece, count - done), '\0'));
  }
}

// Hands on all but the first `count` bytes.
Take Skip(uint64_t count, const Take& take) {
  return [count, &take](const std::string& piece) mutable {
    const uint64_t skipped = std::min<uint64_t>(count, piece.size());
    count -= skipped;
    take(piece.substr(skipped));
  };
}

// `first`, then zeros, then the wave blocks of `second` at `distance` bytes from those of `first`.
Content WithSecondBank(const Content& first, const Content& second, uint64_t front,
                       uint64_t distance) {
  return Content(distance + second.size(), [first, second, front, distance](const Take& take) {
    first.Produce(take);
    TakeZeros(distance + front - first.size(), take);
    second.Produce(Skip(front, take));
  });
}

}  // namespace

const Dispatch& AgentWaves::DispatchOf(uint64_t group) const {
  const std::vector<Dispatch>& in_flight = queues[group % queues.size()];
  return in_flight[group / queues.size() % in_flight.size()];
}

WaveState AgentWaves::Wave(uint64_t group, uint32_t wave) const {
  const Dispatch& dispatch = DispatchOf(group);
  WavePlan plan;
  plan.size = size;
  plan.group = group;
  plan.dispatch_group = group / queues.size() / queues[group % queues.size()].size();
  plan.wave = wave;
  plan.pipe = static_cast<uint32_t>(group % queues.size());
  plan.fault = group < faulting_groups ? fault : Fault::kNone;
  plan.fault_address = fault_address;
  plan.trap_handler = trap_handler;
  plan.trap_memory = trap_memory;
  return MakeWaveState(dispatch, plan, SplitMix64(seed, {group, wave}));
}

QueueContext MakeQueueContext(const std::shared_ptr<const AgentWaves>& agent, uint32_t queue,
                              uint64_t waves) {
  ContextArea area = MakeArea(agent, queue, waves, FirstBankWave);
  QueueContext context;
  context.control_stack_size = FrontSize(area);
  context.image = ContextAreaContent(std::move(area));
  if (HasSecondBank(*agent) && waves > 0) {
    const Content second = ContextAreaContent(MakeArea(agent, queue, waves, SecondBankWave));
    context.image = WithSecondBank(context.image, second, context.control_stack_size,
                                   agent->second_bank_distance);
  }
  return context;
}

uint64_t MostWavesOfQueue(const AgentWaves& agent) {
  uint64_t lds = 0;
  for (const std::vector<Dispatch>& in_flight : agent.queues) {
    for (const Dispatch& dispatch : in_flight) {
      lds = std::max<uint64_t>(lds, LdsDwords(*dispatch.kernel.code));
    }
  }
  const uint64_t registers = uint64_t{SavedVgprs(agent)} * kLanes + agent.size.sgprs;
  const uint64_t control_words = 4;  // at most, for each wave
  const uint64_t limit = HasSecondBank(agent) ? agent.second_bank_distance : UINT32_MAX;
  return (limit - 2 * kPage) / (4 * (registers + kFixedWords + lds + control_words));
}

}  // namespace sample
