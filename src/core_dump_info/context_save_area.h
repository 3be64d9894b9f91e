// The layout of a gfx9 context save area: saved area to WaveStateInfo. The one place that knows it.
//
// When the GPU preempts a compute queue it saves every wavefront of the queue. The area begins with
// a header; a control stack of 32-bit words tells which waves follow and how large they are; the
// waves themselves are saved from the top of the area downward, in control stack order:
//
//   area                                  ctrl_stack_offset          wave_state_offset
//   | header |        ...                 | control stack | last wave ... first wave | ...
//
// The reader is pure: bytes and agent facts in, waves and a verdict out.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "core_dump_info.h"
#include "core_dump_info/core_image.h"

struct context_save_area_header_t {
  uint32_t ctrl_stack_offset;  // bytes, from the start of the area
  uint32_t ctrl_stack_size;    // bytes
  uint32_t wave_state_offset;  // bytes: the END of the wave save area
  uint32_t wave_state_size;    // bytes
};

// A wave without VGPRs, SGPRs and LDS: hardware registers, trap temporaries and an unused part.
constexpr uint64_t kSmallestWaveSize = (16 + 16 + 16) * sizeof(uint32_t);

// How many VGPRs a lane saves per unit of the state record's VGPR field.
uint32_t VgprGranule(bool is_dp4x, uint32_t gfxv);

struct ContextSaveArea {
  enum class Verdict {
    kComplete,
    kNoHeader,            // the header itself is not there
    kAddressCheckFailed,  // header: the control stack does not end where the waves begin
    kSizeCheckFailed,     // the waves of the control stack do not fill the wave save area
    kDamaged,             // what header and control stack say leads outside the bytes at hand
  };

  // A part of the area that is not there.
  struct Loss {
    std::string what;
    int64_t offset;  // from the start of the area; negative where a wave would begin before it
    uint64_t wanted;
    uint64_t available;
  };

  Verdict verdict = Verdict::kComplete;
  std::vector<WaveStateInfo> waves;  // in control stack order, only those that are wholly there
  std::vector<Loss> losses;          // what kNoHeader and kDamaged miss
};

// Reads the waves out of `area`, of which they stay views. `vgpr_granule` is that of the agent.
ContextSaveArea ReadContextSaveArea(Bytes area, uint32_t vgpr_granule);
