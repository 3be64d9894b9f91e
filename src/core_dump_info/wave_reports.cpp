// The text of one wave: saved in a context save area, or recorded in the core file. The two reports
// differ in which main registers they have and in how their VGPRs lie; the rest is shared.

#include <algorithm>
#include <charconv>
#include <cstring>
#include <string_view>

#include "core_dump_info.h"
#include "core_dump_info/number_text.h"
#include "core_dump_info/register_fields.h"

namespace {

constexpr uint32_t kLanes = 64;
constexpr uint32_t kWordsPerRow = 4;
constexpr size_t kWordSize = sizeof(uint32_t);

constexpr size_t kRecordedLaneStride = 256 * kWordSize;  // a lane's VGPR slots in a WaveInfo

constexpr std::string_view kSeparator =
    "--------------------------------------------------------------\n";

const unsigned char* AsBytes(const void* p) { return static_cast<const unsigned char*>(p); }

void AppendCodeObject(const CodeObjectInfo* code_object, uint64_t pc, std::string& out) {
  out += kSeparator;
  out += "Code Object: ";
  if (code_object == nullptr) {
    out += "\nNot fount code object!!\n";
    return;
  }
  out += code_object->name;
  AppendHexLine(out, "\nPC offset: ", pc - code_object->addr_loaded);
}

// Where on the chip the wave ran, for example "se1.sh0.cu5.simd2.wave3".
void AppendLocation(uint32_t hw_id, std::string& out) {
  const auto piece = [&](std::string_view name, const RegisterField& field) {
    out += name;
    AppendDecimal(out, FieldValue(field, hw_id));
  };
  piece("se", kHwIdSe);
  piece(".sh", kHwIdSh);
  piece(".cu", kHwIdCu);
  piece(".simd", kHwIdSimd);
  piece(".wave", kHwIdWave);
  out += "\n\n";
}

void AppendRegister64(std::string_view label, uint64_t value, std::string& out) {
  AppendHexLine(out, label, value, 16);
}

void AppendRegister32(std::string_view label, uint32_t value, std::string& out) {
  AppendHexLine(out, label, value, 8);
}

// The main registers that both kinds of wave have; `Registers` is a WaveInfo or the regs of a
// WaveStateInfo.
template <typename Registers>
void AppendStatusRegisters(const Registers& regs, std::string& out) {
  AppendRegister32("        M0: ", regs.m0, out);
  AppendRegister32("      MODE: ", regs.mode, out);
  AppendRegister32("   TRAPSTS: ", regs.trapsts, out);
  AppendRegister32("    STATUS: ", regs.status, out);
  AppendFields(kStatusFields, regs.status, out);
}

void AppendHwId(uint32_t hw_id, std::string& out) {
  AppendRegister32("      HWID: ", hw_id, out);
  AppendFields(kHwIdFields, hw_id, out);
}

template <typename Registers>
void AppendAllocationRegisters(const Registers& regs, std::string& out) {
  AppendRegister32("    IB_STS: ", regs.ib_sts, out);
  AppendFields(kIbStsFields, regs.ib_sts, out);
  AppendRegister32(" GPR_ALLOC: ", regs.gpr_alloc, out);
  AppendFields(kGprAllocFields, regs.gpr_alloc, out);
  AppendRegister32(" LDS_ALLOC: ", regs.lds_alloc, out);
  AppendFields(kLdsAllocFields, regs.lds_alloc, out);
  out += "\nGeneral Registers:\n\n";
}

// One append for each of the 64 titles of a wave, where three showed in a profile.
void AppendLaneTitle(uint32_t lane, std::string& out) {
  char title[24] = "Lane ";
  char* end = std::to_chars(title + 5, title + sizeof(title), lane).ptr;
  *end++ = '\n';
  out.append(title, end);
}

}  // namespace

CoreDumpInfo::WavePart CoreDumpInfo::SecondVgprBank(uint32_t gfxv, bool is_dp4x,
                                                    const WaveStateInfo& wave) const {
  if (!is_dp4x || gfxv != GFX_VERSION_HERON) {
    return {};
  }
  const uint64_t registers = uint64_t{wave.num_vgprs} / kWordsPerRow * kWordsPerRow;
  const uint64_t address =
      reinterpret_cast<uint64_t>(wave.vgprs) + (dp4x_vgpr_offset & ~uint64_t{kWordSize - 1});
  const uint64_t size = registers * wave.num_vgpr_lanes * kWordSize;
  return {image_.Clip(address, size), size};
}

CoreDumpInfo::WavePart CoreDumpInfo::GroupLds(const WaveStateInfo& wave) const {
  if (wave.lds == nullptr) {
    return {};
  }
  // A state record between a group's first wave and this one changes the size but not the place, so
  // the end may lie anywhere.
  const uint64_t size = wave.lds_size_dw * kWordSize;
  return {image_.Clip(reinterpret_cast<uint64_t>(wave.lds), size), size};
}

bool CoreDumpInfo::GenWaveInfo(uint32_t gfxv, bool is_dp4x, WaveStateInfo* wave_state,
                               std::string& info) {
  const WaveStateInfo& wave = *wave_state;
  const auto& regs = wave.regs;
  AppendCodeObject(GetCodeObjectByPC(regs.pc), regs.pc, info);
  AppendLocation(regs.hw_id, info);
  info += "Main Registers:\n";
  AppendRegister64("        PC: ", regs.pc, info);
  AppendRegister64("      EXEC: ", regs.exec, info);
  AppendRegister64("XNACK_MASK: ", regs.xnack_mask, info);
  AppendRegister64("       TBA: ", regs.tba, info);
  AppendRegister64("       TMA: ", regs.tma, info);
  AppendStatusRegisters(regs, info);
  if (regs.hw_id != 0) {
    AppendHwId(regs.hw_id, info);
  }
  AppendAllocationRegisters(regs, info);

  wave_text_.sgprs.Append(0, wave.num_sgprs / kWordsPerRow, AsBytes(wave.sgprs), kWordSize, info);
  info += '\n';

  AppendSavedVgprs(wave, SecondVgprBank(gfxv, is_dp4x, wave).bytes, info);
  info += '\n';

  if (wave.lds != nullptr) {
    info += "LDS:\n\n";
    const Bytes lds = GroupLds(wave).bytes;
    const auto lds_rows = static_cast<uint32_t>(lds.size() / (kWordsPerRow * kWordSize));
    wave_text_.lds.Append(lds_rows, lds.data(), info);
    info += '\n';
  }
  info += '\n';
  return true;
}

void CoreDumpInfo::AppendSavedVgprs(const WaveStateInfo& wave, Bytes second_bank,
                                    std::string& info) {
  const uint32_t rows = wave.num_vgprs / kWordsPerRow;
  const size_t register_stride = wave.num_vgpr_lanes * kWordSize;
  // Of a bank that the file holds only in part the rows that are there for every lane.
  const auto bank_rows =
      register_stride == 0
          ? 0
          : static_cast<uint32_t>(second_bank.size() / (register_stride * kWordsPerRow));
  for (uint32_t lane = 0; lane < wave.num_vgpr_lanes; ++lane) {
    const size_t lane_offset = lane * kWordSize;
    AppendLaneTitle(lane, info);
    wave_text_.vgprs.Append(0, rows, AsBytes(wave.vgprs) + lane_offset, register_stride, info);
    if (bank_rows > 0) {
      wave_text_.second_bank.Append(wave.num_vgprs, bank_rows, second_bank.data() + lane_offset,
                                    register_stride, info);
    }
  }
}

bool CoreDumpInfo::GenActiveWaveInfo(bool is_dp4x, WaveInfo wave, std::string& info) {
  AppendActiveWave(is_dp4x, AsBytes(&wave), info);
  return true;
}

void CoreDumpInfo::AppendActiveWave(bool is_dp4x, const unsigned char* record, std::string& info) {
  // Only the main registers are copied out: most of a record's 68 KiB are VGPRs, and half of those
  // are beyond the wave's allocation.
  WaveInfo wave;
  memcpy(&wave, record, offsetof(WaveInfo, vgprs));
  const uint64_t pc = uint64_t{wave.pc_hi} << 32 | wave.pc_lo;
  AppendCodeObject(GetCodeObjectByPC(pc), pc, info);
  AppendLocation(wave.hw_id, info);
  info += "Main Registers:\n";
  AppendRegister64("        PC: ", pc, info);
  AppendRegister64("      EXEC: ", uint64_t{wave.exec_hi} << 32 | wave.exec_lo, info);
  AppendStatusRegisters(wave, info);
  AppendHwId(wave.hw_id, info);
  AppendAllocationRegisters(wave, info);

  const uint32_t sgprs = 16 * (FieldValue(kSgprSize, wave.gpr_alloc) + 1);
  wave_text_.sgprs.Append(0, sgprs / kWordsPerRow, record + offsetof(WaveInfo, sgprs), kWordSize,
                          info);
  info += '\n';

  // A dp4x agent of 32 granules or more has more registers than a lane has slots. The rows then
  // show the next lane's slots, and the last lane's those of the SGPRs behind the VGPRs: on
  // purpose, and inside the record, since 64 lanes of 256 slots and 1024 SGPRs hold the 512th
  // register of lane 63.
  const uint32_t granule = is_dp4x ? 8 : 4;
  const uint32_t rows = (FieldValue(kVgprSize, wave.gpr_alloc) + 1) * granule / kWordsPerRow;
  const unsigned char* const vgprs = record + offsetof(WaveInfo, vgprs);
  for (uint32_t lane = 0; lane < kLanes; ++lane) {
    AppendLaneTitle(lane, info);
    wave_text_.vgprs.Append(0, rows, vgprs + lane * kRecordedLaneStride, kWordSize, info);
  }
  info += "\n\n";
}
