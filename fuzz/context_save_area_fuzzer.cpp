// A context save area. The first byte chooses the VGPR granule; the rest is the area.
#include "core_dump_info/context_save_area.h"
#include "fuzz_input.h"

namespace {

// Whether `dwords` dwords at `p` lie in the area, of which every one is read.
bool IsInside(Input area, const uint32_t* p, uint64_t dwords) {
  const auto* bytes = reinterpret_cast<const uint8_t*>(p);
  return bytes >= area.data() && bytes <= area.data() + area.size() &&
         dwords <= static_cast<uint64_t>(area.data() + area.size() - bytes) / sizeof(uint32_t);
}

void CheckWave(Input area, const WaveStateInfo& wave) {
  Require(wave.num_vgpr_lanes == 64);
  Require(IsInside(area, wave.vgprs, uint64_t{wave.num_vgprs} * wave.num_vgpr_lanes));
  Require(IsInside(area, wave.sgprs, wave.num_sgprs));
  // Only where the LDS begins: a state record between a group's waves may make it longer than the
  // area, and whoever shows it looks at its end.
  Require(wave.lds == nullptr || IsInside(area, wave.lds, 1));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  const Input first = TakeFront(input, 1);
  const uint32_t granule = !first.empty() && (first[0] & 1) != 0 ? 8 : 4;
  const ExactCopy area(input);

  const ContextSaveArea saved = ReadContextSaveArea(area.bytes(), granule);
  for (const WaveStateInfo& wave : saved.waves) {
    CheckWave(area.bytes(), wave);
  }
  Require(saved.waves.size() <= area.size() / kSmallestWaveSize);
  const bool is_damaged = saved.verdict == ContextSaveArea::Verdict::kDamaged ||
                          saved.verdict == ContextSaveArea::Verdict::kNoHeader;
  Require(is_damaged == !saved.losses.empty());
  for (const ContextSaveArea::Loss& loss : saved.losses) {
    Require(loss.available < loss.wanted);
  }
  return 0;
}
