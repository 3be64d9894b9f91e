// The bit fields of the gfx9 wave registers, as tables: label, place, and where the line breaks.
// The labels carry their own padding. One loop prints them all.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "core_dump_info/number_text.h"

struct RegisterField {
  std::string_view label;
  uint8_t shift;
  uint8_t width;
  std::string_view end = "";  // what follows the value: nothing, or the end of the line
  uint8_t high_shift = 0;     // where the field goes on above its first `width` bits ...
  uint8_t high_width = 0;     // ... and how many bits of it lie there
};

constexpr uint32_t BitField(uint32_t value, unsigned shift, unsigned width) {
  return static_cast<uint32_t>(value >> shift & ((uint64_t{1} << width) - 1));
}

constexpr uint32_t FieldValue(const RegisterField& field, uint32_t value) {
  return BitField(value, field.shift, field.width) |
         BitField(value, field.high_shift, field.high_width) << field.width;
}

template <size_t N>
void AppendFields(const std::array<RegisterField, N>& fields, uint32_t value, std::string& out) {
  for (const RegisterField& field : fields) {
    out += field.label;
    AppendDecimal(out, FieldValue(field, value));
    out += field.end;
  }
}

// True when every row lies in the register and no two rows share a bit.
template <size_t N>
constexpr bool FieldsAreDisjoint(const std::array<RegisterField, N>& fields) {
  uint64_t used = 0;
  for (const RegisterField& field : fields) {
    const uint64_t low = ((uint64_t{1} << field.width) - 1) << field.shift;
    const uint64_t high = ((uint64_t{1} << field.high_width) - 1) << field.high_shift;
    if (field.width == 0 || ((low | high) >> 32) != 0 || (used & (low | high)) != 0 ||
        (low & high) != 0) {
      return false;
    }
    used |= low | high;
  }
  return true;
}

// STATUS
//  31      24 23 22   18 17 16 15 14 13 12 11 10 9 8 7 6 5 4    3 2    1 0
// +----------+--+-------+--+--+--+--+--+--+--+--+-+-+-+-+-+------+------+-+
// |          |FH|       |EC|V |TC|TR|HA|BA|TG|VZ|E| |T|T|P| USER | SPI  |S|
// |          |  |       |C |  |  |  |  |  |  |  |Z| |T|E|R| PRIO | PRIO |C|
// +----------+--+-------+--+--+--+--+--+--+--+--+-+-+-+-+-+------+------+-+
inline constexpr std::array<RegisterField, 16> kStatusFields = {{
    {"               SCC: ", 0, 1},
    {"      SPI_PRIO: ", 1, 2},
    {"     USER_PRIO: ", 3, 2},
    {"          PRIV: ", 5, 1, "\n"},
    {"           TRAP_EN: ", 6, 1},
    {"     TTRACE_EN: ", 7, 1},
    {"         EXECZ: ", 9, 1},
    {"          VCCZ: ", 10, 1, "\n"},
    {"             IN_TG: ", 11, 1},
    {"    IN_BARRIER: ", 12, 1},
    {"          HALT: ", 13, 1},
    {"          TRAP: ", 14, 1, "\n"},
    {"      TTRACE_CU_EN: ", 15, 1},
    {"         VALID: ", 16, 1},
    {"       ECC_ERR: ", 17, 1},
    {"    FATAL_HALT: ", 23, 1, "\n\n"},
}};
static_assert(FieldsAreDisjoint(kStatusFields));

// HW_ID
//  31 30 29   27 26   24 23   20 19   16 15 14 13 12 11    8 7     6 5     4 3     0
// +-----+-------+-------+-------+-------+--+-----+--+-------+-------+-------+-------+
// | ME  | STATE | RING  |  VM   |  TG   |  | SE  |SH|  CU   | PIPE  | SIMD  | WAVE  |
// +-----+-------+-------+-------+-------+--+-----+--+-------+-------+-------+-------+
inline constexpr RegisterField kHwIdWave = {"           WAVE ID: ", 0, 4};
inline constexpr RegisterField kHwIdSimd = {"       SIMD ID: ", 4, 2};
inline constexpr RegisterField kHwIdCu = {"         CU ID: ", 8, 4, "\n"};
inline constexpr RegisterField kHwIdSh = {"             SH ID: ", 12, 1};
inline constexpr RegisterField kHwIdSe = {"         SE ID: ", 13, 2};
inline constexpr std::array<RegisterField, 11> kHwIdFields = {{
    kHwIdWave,
    kHwIdSimd,
    {"       PIPE ID: ", 6, 2},
    kHwIdCu,
    kHwIdSh,
    kHwIdSe,
    {"         TG ID: ", 16, 4},
    {"         VM ID: ", 20, 4, "\n"},
    {"           RING ID: ", 24, 3},
    {"      STATE ID: ", 27, 3},
    {"         ME ID: ", 30, 2, "\n\n"},
}};
static_assert(FieldsAreDisjoint(kHwIdFields));

// IB_STS: VM_CNT has its two high bits apart.
//  31     24 23 22 21   15 14    12 11      8 7 6    4 3       0
// +---------+-----+-------+--------+---------+-+------+---------+
// |         | VM  |       |  VALU  |  LGKM   | | EXP  |   VM    |
// |         | 5..4|       |  CNT   |  CNT    | | CNT  |  3..0   |
// +---------+-----+-------+--------+---------+-+------+---------+
inline constexpr std::array<RegisterField, 4> kIbStsFields = {{
    {"            VM_CNT: ", 0, 4, "", 22, 2},
    {"       EXP_CNT: ", 4, 3},
    {"      LGKM_CNT: ", 8, 4},
    {"      VALU_CNT: ", 12, 3, "\n\n"},
}};
static_assert(FieldsAreDisjoint(kIbStsFields));

// GPR_ALLOC
//  31  28 27      24 23 22 21        16 15 14 13         8 7 6 5          0
// +------+----------+-----+------------+-----+------------+---+------------+
// |      | SGPR_SIZE|     | SGPR_BASE  |     | VGPR_SIZE  |   | VGPR_BASE  |
// +------+----------+-----+------------+-----+------------+---+------------+
inline constexpr RegisterField kVgprSize = {"     VGPR_SIZE: ", 8, 6};
inline constexpr RegisterField kSgprSize = {"     SGPR_SIZE: ", 24, 4, "\n\n"};
inline constexpr std::array<RegisterField, 4> kGprAllocFields = {{
    {"         VGPR_BASE: ", 0, 6},
    kVgprSize,
    {"     SGPR_BASE: ", 16, 6},
    kSgprSize,
}};
static_assert(FieldsAreDisjoint(kGprAllocFields));

// LDS_ALLOC
//  31        21 20          12 11   8 7           0
// +------------+--------------+------+-------------+
// |            |   LDS_SIZE   |      |  LDS_BASE   |
// +------------+--------------+------+-------------+
inline constexpr std::array<RegisterField, 2> kLdsAllocFields = {{
    {"          LDS_BASE: ", 0, 8},
    {"      LDS_SIZE: ", 12, 9, "\n\n"},
}};
static_assert(FieldsAreDisjoint(kLdsAllocFields));
