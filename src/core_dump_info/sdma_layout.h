// Pins every field of every SDMA packet to its bits, [high:low] of its dword, at compile time.
//
// The compiler allocates the fields of a dword from bit 0 up, in the order of their declaration, so
// a field's place is the sum of the widths before it: a dword's rows, in that order, must each
// begin where the one before ended.
#pragma once

#include <array>
#include <bit>
#include <string_view>

#include "sdma_packets.h"

namespace sdma_layout {

struct FieldBits {
  std::string_view dword;  // of which packet, for the check that a row begins a new one
  int high;
  int low;
  int width;  // as the compiler made it
};

template <size_t N>
constexpr bool FieldsFollowEachOther(const std::array<FieldBits, N>& fields) {
  int next = 0;
  std::string_view dword;
  for (const FieldBits& field : fields) {
    if (field.dword != dword) {
      if (next % 32 != 0) {
        return false;
      }
      dword = field.dword;
      next = 0;
    }
    if (field.low != next || field.high - field.low + 1 != field.width) {
      return false;
    }
    next = field.high + 1;
  }
  return next == 32;
}

// One row; the width is the number of bits that hold once all are set.
#define SDMA_FIELD(packet, dword, field, high, low)                  \
  FieldBits {                                                        \
#packet "." #dword, high, low, [] {                                \
      packet all{};                                                    \
      --all.dword.field;                                               \
      return std::popcount(unsigned{all.dword.field});                 \
    }() \
  }

inline constexpr std::array kFields = {
    SDMA_FIELD(SDMA_PKT_COPY_LINEAR, HEADER_UNION, op, 7, 0),
    SDMA_FIELD(SDMA_PKT_COPY_LINEAR, HEADER_UNION, sub_op, 15, 8),
    SDMA_FIELD(SDMA_PKT_COPY_LINEAR, HEADER_UNION, extra_info, 31, 16),
    SDMA_FIELD(SDMA_PKT_COPY_LINEAR, COUNT_UNION, count, 21, 0),
    SDMA_FIELD(SDMA_PKT_COPY_LINEAR, COUNT_UNION, reserved_0, 31, 22),
    SDMA_FIELD(SDMA_PKT_COPY_LINEAR, PARAMETER_UNION, reserved_0, 15, 0),
    SDMA_FIELD(SDMA_PKT_COPY_LINEAR, PARAMETER_UNION, dst_swap, 17, 16),
    SDMA_FIELD(SDMA_PKT_COPY_LINEAR, PARAMETER_UNION, reserved_1, 23, 18),
    SDMA_FIELD(SDMA_PKT_COPY_LINEAR, PARAMETER_UNION, src_swap, 25, 24),
    SDMA_FIELD(SDMA_PKT_COPY_LINEAR, PARAMETER_UNION, reserved_2, 31, 26),
    SDMA_FIELD(SDMA_PKT_COPY_LINEAR, SRC_ADDR_LO_UNION, src_addr_31_0, 31, 0),
    SDMA_FIELD(SDMA_PKT_COPY_LINEAR, SRC_ADDR_HI_UNION, src_addr_63_32, 31, 0),
    SDMA_FIELD(SDMA_PKT_COPY_LINEAR, DST_ADDR_LO_UNION, dst_addr_31_0, 31, 0),
    SDMA_FIELD(SDMA_PKT_COPY_LINEAR, DST_ADDR_HI_UNION, dst_addr_63_32, 31, 0),
    SDMA_FIELD(SDMA_PKT_COPY_LINEAR_RECT, HEADER_UNION, op, 7, 0),
    SDMA_FIELD(SDMA_PKT_COPY_LINEAR_RECT, HEADER_UNION, sub_op, 15, 8),
    SDMA_FIELD(SDMA_PKT_COPY_LINEAR_RECT, HEADER_UNION, reserved, 28, 16),
    SDMA_FIELD(SDMA_PKT_COPY_LINEAR_RECT, HEADER_UNION, element, 31, 29),
    SDMA_FIELD(SDMA_PKT_COPY_LINEAR_RECT, SRC_ADDR_LO_UNION, src_addr_31_0, 31, 0),
    SDMA_FIELD(SDMA_PKT_COPY_LINEAR_RECT, SRC_ADDR_HI_UNION, src_addr_63_32, 31, 0),
    SDMA_FIELD(SDMA_PKT_COPY_LINEAR_RECT, SRC_PARAMETER_1_UNION, src_offset_x, 13, 0),
    SDMA_FIELD(SDMA_PKT_COPY_LINEAR_RECT, SRC_PARAMETER_1_UNION, reserved_1, 15, 14),
    SDMA_FIELD(SDMA_PKT_COPY_LINEAR_RECT, SRC_PARAMETER_1_UNION, src_offset_y, 29, 16),
    SDMA_FIELD(SDMA_PKT_COPY_LINEAR_RECT, SRC_PARAMETER_1_UNION, reserved_2, 31, 30),
    SDMA_FIELD(SDMA_PKT_COPY_LINEAR_RECT, SRC_PARAMETER_2_UNION, src_offset_z, 10, 0),
    SDMA_FIELD(SDMA_PKT_COPY_LINEAR_RECT, SRC_PARAMETER_2_UNION, reserved_1, 12, 11),
    SDMA_FIELD(SDMA_PKT_COPY_LINEAR_RECT, SRC_PARAMETER_2_UNION, src_pitch, 31, 13),
    SDMA_FIELD(SDMA_PKT_COPY_LINEAR_RECT, SRC_PARAMETER_3_UNION, src_slice_pitch, 27, 0),
    SDMA_FIELD(SDMA_PKT_COPY_LINEAR_RECT, SRC_PARAMETER_3_UNION, reserved_1, 31, 28),
    SDMA_FIELD(SDMA_PKT_COPY_LINEAR_RECT, DST_ADDR_LO_UNION, dst_addr_31_0, 31, 0),
    SDMA_FIELD(SDMA_PKT_COPY_LINEAR_RECT, DST_ADDR_HI_UNION, dst_addr_63_32, 31, 0),
    SDMA_FIELD(SDMA_PKT_COPY_LINEAR_RECT, DST_PARAMETER_1_UNION, dst_offset_x, 13, 0),
    SDMA_FIELD(SDMA_PKT_COPY_LINEAR_RECT, DST_PARAMETER_1_UNION, reserved_1, 15, 14),
    SDMA_FIELD(SDMA_PKT_COPY_LINEAR_RECT, DST_PARAMETER_1_UNION, dst_offset_y, 29, 16),
    SDMA_FIELD(SDMA_PKT_COPY_LINEAR_RECT, DST_PARAMETER_1_UNION, reserved_2, 31, 30),
    SDMA_FIELD(SDMA_PKT_COPY_LINEAR_RECT, DST_PARAMETER_2_UNION, dst_offset_z, 10, 0),
    SDMA_FIELD(SDMA_PKT_COPY_LINEAR_RECT, DST_PARAMETER_2_UNION, reserved_1, 12, 11),
    SDMA_FIELD(SDMA_PKT_COPY_LINEAR_RECT, DST_PARAMETER_2_UNION, dst_pitch, 31, 13),
    SDMA_FIELD(SDMA_PKT_COPY_LINEAR_RECT, DST_PARAMETER_3_UNION, dst_slice_pitch, 27, 0),
    SDMA_FIELD(SDMA_PKT_COPY_LINEAR_RECT, DST_PARAMETER_3_UNION, reserved_1, 31, 28),
    SDMA_FIELD(SDMA_PKT_COPY_LINEAR_RECT, RECT_PARAMETER_1_UNION, rect_x, 13, 0),
    SDMA_FIELD(SDMA_PKT_COPY_LINEAR_RECT, RECT_PARAMETER_1_UNION, reserved_1, 15, 14),
    SDMA_FIELD(SDMA_PKT_COPY_LINEAR_RECT, RECT_PARAMETER_1_UNION, rect_y, 29, 16),
    SDMA_FIELD(SDMA_PKT_COPY_LINEAR_RECT, RECT_PARAMETER_1_UNION, reserved_2, 31, 30),
    SDMA_FIELD(SDMA_PKT_COPY_LINEAR_RECT, RECT_PARAMETER_2_UNION, rect_z, 10, 0),
    SDMA_FIELD(SDMA_PKT_COPY_LINEAR_RECT, RECT_PARAMETER_2_UNION, reserved_1, 15, 11),
    SDMA_FIELD(SDMA_PKT_COPY_LINEAR_RECT, RECT_PARAMETER_2_UNION, dst_swap, 17, 16),
    SDMA_FIELD(SDMA_PKT_COPY_LINEAR_RECT, RECT_PARAMETER_2_UNION, reserved_2, 23, 18),
    SDMA_FIELD(SDMA_PKT_COPY_LINEAR_RECT, RECT_PARAMETER_2_UNION, src_swap, 25, 24),
    SDMA_FIELD(SDMA_PKT_COPY_LINEAR_RECT, RECT_PARAMETER_2_UNION, reserved_3, 31, 26),
    SDMA_FIELD(SDMA_PKT_CONSTANT_FILL, HEADER_UNION, op, 7, 0),
    SDMA_FIELD(SDMA_PKT_CONSTANT_FILL, HEADER_UNION, sub_op, 15, 8),
    SDMA_FIELD(SDMA_PKT_CONSTANT_FILL, HEADER_UNION, sw, 17, 16),
    SDMA_FIELD(SDMA_PKT_CONSTANT_FILL, HEADER_UNION, reserved_0, 29, 18),
    SDMA_FIELD(SDMA_PKT_CONSTANT_FILL, HEADER_UNION, fillsize, 31, 30),
    SDMA_FIELD(SDMA_PKT_CONSTANT_FILL, DST_ADDR_LO_UNION, dst_addr_31_0, 31, 0),
    SDMA_FIELD(SDMA_PKT_CONSTANT_FILL, DST_ADDR_HI_UNION, dst_addr_63_32, 31, 0),
    SDMA_FIELD(SDMA_PKT_CONSTANT_FILL, DATA_UNION, src_data_31_0, 31, 0),
    SDMA_FIELD(SDMA_PKT_CONSTANT_FILL, COUNT_UNION, count, 21, 0),
    SDMA_FIELD(SDMA_PKT_CONSTANT_FILL, COUNT_UNION, reserved_0, 31, 22),
    SDMA_FIELD(SDMA_PKT_FENCE, HEADER_UNION, op, 7, 0),
    SDMA_FIELD(SDMA_PKT_FENCE, HEADER_UNION, sub_op, 15, 8),
    SDMA_FIELD(SDMA_PKT_FENCE, HEADER_UNION, mtype, 18, 16),
    SDMA_FIELD(SDMA_PKT_FENCE, HEADER_UNION, gcc, 19, 19),
    SDMA_FIELD(SDMA_PKT_FENCE, HEADER_UNION, sys, 20, 20),
    SDMA_FIELD(SDMA_PKT_FENCE, HEADER_UNION, pad1, 21, 21),
    SDMA_FIELD(SDMA_PKT_FENCE, HEADER_UNION, snp, 22, 22),
    SDMA_FIELD(SDMA_PKT_FENCE, HEADER_UNION, gpa, 23, 23),
    SDMA_FIELD(SDMA_PKT_FENCE, HEADER_UNION, l2_policy, 25, 24),
    SDMA_FIELD(SDMA_PKT_FENCE, HEADER_UNION, reserved_0, 31, 26),
    SDMA_FIELD(SDMA_PKT_FENCE, ADDR_LO_UNION, addr_31_0, 31, 0),
    SDMA_FIELD(SDMA_PKT_FENCE, ADDR_HI_UNION, addr_63_32, 31, 0),
    SDMA_FIELD(SDMA_PKT_FENCE, DATA_UNION, data, 31, 0),
    SDMA_FIELD(SDMA_PKT_POLL_REGMEM, HEADER_UNION, op, 7, 0),
    SDMA_FIELD(SDMA_PKT_POLL_REGMEM, HEADER_UNION, sub_op, 15, 8),
    SDMA_FIELD(SDMA_PKT_POLL_REGMEM, HEADER_UNION, reserved_0, 25, 16),
    SDMA_FIELD(SDMA_PKT_POLL_REGMEM, HEADER_UNION, hdp_flush, 26, 26),
    SDMA_FIELD(SDMA_PKT_POLL_REGMEM, HEADER_UNION, reserved_1, 27, 27),
    SDMA_FIELD(SDMA_PKT_POLL_REGMEM, HEADER_UNION, func, 30, 28),
    SDMA_FIELD(SDMA_PKT_POLL_REGMEM, HEADER_UNION, mem_poll, 31, 31),
    SDMA_FIELD(SDMA_PKT_POLL_REGMEM, ADDR_LO_UNION, addr_31_0, 31, 0),
    SDMA_FIELD(SDMA_PKT_POLL_REGMEM, ADDR_HI_UNION, addr_63_32, 31, 0),
    SDMA_FIELD(SDMA_PKT_POLL_REGMEM, VALUE_UNION, value, 31, 0),
    SDMA_FIELD(SDMA_PKT_POLL_REGMEM, MASK_UNION, mask, 31, 0),
    SDMA_FIELD(SDMA_PKT_POLL_REGMEM, DW5_UNION, interval, 15, 0),
    SDMA_FIELD(SDMA_PKT_POLL_REGMEM, DW5_UNION, retry_count, 27, 16),
    SDMA_FIELD(SDMA_PKT_POLL_REGMEM, DW5_UNION, reserved_0, 31, 28),
    SDMA_FIELD(SDMA_PKT_ATOMIC, HEADER_UNION, op, 7, 0),
    SDMA_FIELD(SDMA_PKT_ATOMIC, HEADER_UNION, sub_op, 15, 8),
    SDMA_FIELD(SDMA_PKT_ATOMIC, HEADER_UNION, l, 16, 16),
    SDMA_FIELD(SDMA_PKT_ATOMIC, HEADER_UNION, reserved_0, 24, 17),
    SDMA_FIELD(SDMA_PKT_ATOMIC, HEADER_UNION, operation, 31, 25),
    SDMA_FIELD(SDMA_PKT_ATOMIC, ADDR_LO_UNION, addr_31_0, 31, 0),
    SDMA_FIELD(SDMA_PKT_ATOMIC, ADDR_HI_UNION, addr_63_32, 31, 0),
    SDMA_FIELD(SDMA_PKT_ATOMIC, SRC_DATA_LO_UNION, src_data_31_0, 31, 0),
    SDMA_FIELD(SDMA_PKT_ATOMIC, SRC_DATA_HI_UNION, src_data_63_32, 31, 0),
    SDMA_FIELD(SDMA_PKT_ATOMIC, CMP_DATA_LO_UNION, cmp_data_31_0, 31, 0),
    SDMA_FIELD(SDMA_PKT_ATOMIC, CMP_DATA_HI_UNION, cmp_data_63_32, 31, 0),
    SDMA_FIELD(SDMA_PKT_ATOMIC, LOOP_UNION, loop_interval, 12, 0),
    SDMA_FIELD(SDMA_PKT_ATOMIC, LOOP_UNION, reserved_0, 31, 13),
    SDMA_FIELD(SDMA_PKT_TIMESTAMP, HEADER_UNION, op, 7, 0),
    SDMA_FIELD(SDMA_PKT_TIMESTAMP, HEADER_UNION, sub_op, 15, 8),
    SDMA_FIELD(SDMA_PKT_TIMESTAMP, HEADER_UNION, reserved_0, 31, 16),
    SDMA_FIELD(SDMA_PKT_TIMESTAMP, ADDR_LO_UNION, addr_31_0, 31, 0),
    SDMA_FIELD(SDMA_PKT_TIMESTAMP, ADDR_HI_UNION, addr_63_32, 31, 0),
    SDMA_FIELD(SDMA_PKT_TRAP, HEADER_UNION, op, 7, 0),
    SDMA_FIELD(SDMA_PKT_TRAP, HEADER_UNION, sub_op, 15, 8),
    SDMA_FIELD(SDMA_PKT_TRAP, HEADER_UNION, reserved_0, 31, 16),
    SDMA_FIELD(SDMA_PKT_TRAP, INT_CONTEXT_UNION, int_ctx, 27, 0),
    SDMA_FIELD(SDMA_PKT_TRAP, INT_CONTEXT_UNION, reserved_1, 31, 28),
};
static_assert(FieldsFollowEachOther(kFields));

#undef SDMA_FIELD

}  // namespace sdma_layout
