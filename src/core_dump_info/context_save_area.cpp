#include "core_dump_info/context_save_area.h"

#include <algorithm>

#include "core_dump_info/register_fields.h"
#include "utils.h"

namespace {

constexpr uint32_t kWordSize = sizeof(uint32_t);
constexpr uint32_t wave_front_size = 64;  // lanes
constexpr uint32_t hwreg_size_dw = 16;
constexpr uint32_t ttmp_size_dw = 16;
constexpr uint32_t kUnusedSizeDw = 16;

constexpr uint32_t kPreambleWords = 2;  // of the control stack

// Control stack entry, bits 31 and 30:
//   10 state record: the sizes of the waves that follow    00 wave record
//   01 event                                               11 ignored
constexpr uint32_t kKindMask = 0xC0000000;
constexpr uint32_t kStateRecord = 0x80000000;
constexpr uint32_t kWaveRecord = 0;
constexpr uint32_t kFirstWaveInGroup = 0x20000;

// State record
//  31 30 29        18 17          9 8        6 5           0
// +-----+------------+-------------+----------+-------------+
// | 1 0 |            | LDS / 128 dw| SGPRs/16 | VGPR units-1|
// +-----+------------+-------------+----------+-------------+
constexpr RegisterField kStateVgprs = {"", 0, 6};
constexpr RegisterField kStateSgprs = {"", 6, 3};
constexpr RegisterField kStateLds = {"", 9, 9};
constexpr uint32_t kSgprGranule = 16;
constexpr uint32_t kLdsGranuleDw = 128;

// Hardware registers of a wave, in dwords from the first. TMA stands behind the sixteen, in the
// first two trap temporaries.
enum HwReg : uint32_t {
  kM0 = 0,
  kPcLo = 1,
  kPcHi = 2,
  kExecLo = 3,
  kExecHi = 4,
  kStatus = 5,
  kTrapSts = 6,
  kXnackMaskLo = 7,
  kXnackMaskHi = 8,
  kMode = 9,
  kHwId = 10,
  kGprAlloc = 11,
  kLdsAlloc = 12,
  kIbSts = 13,
  kTbaLo = 14,
  kTbaHi = 15,
  kTmaLo = 16,
  kTmaHi = 17,
  kTtmp7 = hwreg_size_dw + 7,
  kTtmp11 = hwreg_size_dw + 11,
};

// What a state record says about the waves that follow it. Before the first one all are 0.
struct GroupSizes {
  uint32_t vgprs_size_dw = 0;  // VGPRs a lane
  uint32_t sgprs_size_dw = 0;
  uint32_t lds_size_dw = 0;
};

// Where the parts of a wave's block lie, in dwords from its start.
struct BlockLayout {
  uint64_t sgprs_offset;
  uint64_t hwregs_offset;
  uint64_t lds_offset;
  uint64_t wave_area_size;

  BlockLayout(const GroupSizes& sizes, bool first_in_group)
      : sgprs_offset(uint64_t{sizes.vgprs_size_dw} * wave_front_size),
        hwregs_offset(sgprs_offset + sizes.sgprs_size_dw),
        lds_offset(hwregs_offset + hwreg_size_dw + ttmp_size_dw),
        wave_area_size(lds_offset + (first_in_group ? sizes.lds_size_dw : 0) + kUnusedSizeDw) {}
};

const uint32_t* Dwords(const unsigned char* block, uint64_t offset) {
  return reinterpret_cast<const uint32_t*>(block + offset * kWordSize);
}

WaveStateInfo ReadWave(const unsigned char* block, const BlockLayout& layout,
                       const GroupSizes& sizes, const uint32_t* lds) {
  const auto hwreg = [&](HwReg n) {
    return LoadU32(block + (layout.hwregs_offset + n) * kWordSize);
  };
  const auto pair = [&](HwReg high, HwReg low) { return uint64_t{hwreg(high)} << 32 | hwreg(low); };

  WaveStateInfo wave{};
  wave.num_sgprs = sizes.sgprs_size_dw;
  wave.sgprs = Dwords(block, layout.sgprs_offset);
  wave.num_vgprs = sizes.vgprs_size_dw;
  wave.num_vgpr_lanes = wave_front_size;
  wave.vgprs = Dwords(block, 0);
  wave.lds_size_dw = sizes.lds_size_dw;
  wave.lds = lds;
  wave.regs.pc = pair(kPcHi, kPcLo);
  // The trap handler keeps the PC at which it was entered in ttmp7 and in bits 22..7 of ttmp11.
  wave.regs.trap_pc = uint64_t{BitField(hwreg(kTtmp11), 7, 16)} << 32 | hwreg(kTtmp7);
  wave.regs.exec = pair(kExecHi, kExecLo);
  wave.regs.xnack_mask = pair(kXnackMaskHi, kXnackMaskLo);
  wave.regs.tba = pair(kTbaHi, kTbaLo) << 8;
  wave.regs.tma = pair(kTmaHi, kTmaLo) << 8;
  wave.regs.status = hwreg(kStatus);
  wave.regs.trapsts = hwreg(kTrapSts);
  wave.regs.m0 = hwreg(kM0);
  wave.regs.mode = hwreg(kMode);
  wave.regs.hw_id = hwreg(kHwId);
  wave.regs.gpr_alloc = hwreg(kGprAlloc);
  wave.regs.lds_alloc = hwreg(kLdsAlloc);
  wave.regs.ib_sts = hwreg(kIbSts);
  return wave;
}

// Walks the control stack and takes one block after the other off the top of the wave save area.
class Walk {
 public:
  Walk(Bytes area, const context_save_area_header_t& header, uint32_t vgpr_granule,
       ContextSaveArea& result)
      : area_(area),
        vgpr_granule_(vgpr_granule),
        wave_area_(header.wave_state_offset),
        result_(result) {}

  void Step(uint32_t relaunch) {
    switch (relaunch & kKindMask) {
      case kStateRecord:
        sizes_.vgprs_size_dw = (FieldValue(kStateVgprs, relaunch) + 1) * vgpr_granule_;
        sizes_.sgprs_size_dw = FieldValue(kStateSgprs, relaunch) * kSgprGranule;
        sizes_.lds_size_dw = FieldValue(kStateLds, relaunch) * kLdsGranuleDw;
        break;
      case kWaveRecord:
        TakeWave((relaunch & kFirstWaveInGroup) != 0);
        break;
      default:
        break;
    }
  }

  // Where the last block began, in bytes from the start of the area.
  int64_t wave_area() const { return wave_area_; }

  // Notes the waves that are not there as one loss.
  void ReportLostWaves() {
    if (lost_waves_ > 0) {
      first_lost_.what = StrFormat("waves lost: %lu, the first", lost_waves_);
      result_.losses.push_back(first_lost_);
    }
  }

 private:
  void TakeWave(bool first_in_group) {
    const BlockLayout layout(sizes_, first_in_group);
    const auto size = static_cast<int64_t>(layout.wave_area_size * kWordSize);
    wave_area_ -= size;
    const auto area_size = static_cast<int64_t>(area_.size());
    if (wave_area_ < 0 || size > area_size || wave_area_ > area_size - size) {
      if (first_in_group) {
        lds_ = nullptr;
      }
      LoseWave(size);
      return;
    }
    const unsigned char* block = area_.data() + wave_area_;
    // The LDS of a work-group is saved once, with its first wave; the others share it.
    if (first_in_group) {
      lds_ = sizes_.lds_size_dw != 0 ? Dwords(block, layout.lds_offset) : nullptr;
    }
    result_.waves.push_back(ReadWave(block, layout, sizes_, lds_));
  }

  void LoseWave(int64_t size) {
    if (lost_waves_++ > 0) {
      return;
    }
    const auto area_size = static_cast<int64_t>(area_.size());
    const int64_t begin = std::clamp<int64_t>(wave_area_, 0, area_size);
    const int64_t end = std::clamp<int64_t>(wave_area_ + size, 0, area_size);
    first_lost_ = {"", wave_area_, static_cast<uint64_t>(size), static_cast<uint64_t>(end - begin)};
  }

  const Bytes area_;
  const uint32_t vgpr_granule_;
  int64_t wave_area_;
  ContextSaveArea& result_;
  GroupSizes sizes_;
  const uint32_t* lds_ = nullptr;
  uint64_t lost_waves_ = 0;
  ContextSaveArea::Loss first_lost_ = {};
};

// The words of the control stack that are there.
Bytes ControlStack(Bytes area, const context_save_area_header_t& header) {
  const uint64_t begin = std::min<uint64_t>(header.ctrl_stack_offset, area.size());
  return area.subspan(begin, std::min<uint64_t>(header.ctrl_stack_size, area.size() - begin));
}

}  // namespace

uint32_t VgprGranule(bool is_dp4x, uint32_t gfxv) {
  return is_dp4x && gfxv != GFX_VERSION_HERON ? 8 : 4;
}

ContextSaveArea ReadContextSaveArea(Bytes area, uint32_t vgpr_granule) {
  ContextSaveArea result;
  context_save_area_header_t header;
  if (area.size() < sizeof(header)) {
    result.verdict = ContextSaveArea::Verdict::kNoHeader;
    result.losses.push_back({"header", 0, sizeof(header), area.size()});
    return result;
  }
  memcpy(&header, area.data(), sizeof(header));
  const uint32_t wave_state_begin = header.wave_state_offset - header.wave_state_size;
  if (header.ctrl_stack_offset + header.ctrl_stack_size != wave_state_begin) {
    result.verdict = ContextSaveArea::Verdict::kAddressCheckFailed;
    return result;
  }

  const Bytes stack = ControlStack(area, header);
  if (stack.size() < header.ctrl_stack_size) {
    result.losses.push_back(
        {"control stack", header.ctrl_stack_offset, header.ctrl_stack_size, stack.size()});
  }
  Walk walk(area, header, vgpr_granule, result);
  const size_t ctl_stack_ndw = stack.size() / kWordSize;
  for (size_t idx = kPreambleWords; idx < ctl_stack_ndw; ++idx) {
    walk.Step(LoadU32(stack.data() + idx * kWordSize));
  }
  walk.ReportLostWaves();

  if (!result.losses.empty()) {
    result.verdict = ContextSaveArea::Verdict::kDamaged;
  } else if (walk.wave_area() !=
             int64_t{header.wave_state_offset} - int64_t{header.wave_state_size}) {
    result.verdict = ContextSaveArea::Verdict::kSizeCheckFailed;
  }
  return result;
}
