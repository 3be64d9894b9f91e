#include "core_dump_info/sdma_decoder.h"

#include <algorithm>
#include <cstring>

#include "core_dump_info/packet_fields.h"
#include "core_dump_info/sdma_layout.h"
#include "sdma_packets.h"

namespace {

constexpr size_t kUnknownLength = sizeof(uint32_t);  // what an unknown op is taken to be long

namespace copy_linear {
using Packet = SDMA_PKT_COPY_LINEAR;
constexpr std::array<PacketField<Packet>, 10> kFields = {{
    {"op: COPY (", PACKET_MEMBER(HEADER_UNION.op), NumberFormat::kSigned, ")\n"},
    {"subop: COPY LINEAR (", PACKET_MEMBER(HEADER_UNION.sub_op), NumberFormat::kSigned, ")\n"},
    {"extra_info: ", PACKET_MEMBER(HEADER_UNION.extra_info), NumberFormat::kSigned},
    {"count: ", PACKET_MEMBER(COUNT_UNION.count), NumberFormat::kSigned},
    {"dst_swap: ", PACKET_MEMBER(PARAMETER_UNION.dst_swap), NumberFormat::kSigned},
    {"src_swap: ", PACKET_MEMBER(PARAMETER_UNION.src_swap), NumberFormat::kSigned},
    {"src_addr_lo: ", PACKET_MEMBER(SRC_ADDR_LO_UNION.src_addr_31_0), NumberFormat::kHex},
    {"src_addr_hi: ", PACKET_MEMBER(SRC_ADDR_HI_UNION.src_addr_63_32), NumberFormat::kHex},
    {"dst_addr_lo: ", PACKET_MEMBER(DST_ADDR_LO_UNION.dst_addr_31_0), NumberFormat::kHex},
    {"dst_addr_hi: ", PACKET_MEMBER(DST_ADDR_HI_UNION.dst_addr_63_32), NumberFormat::kHex},
}};
}  // namespace copy_linear

namespace copy_linear_rect {
using Packet = SDMA_PKT_COPY_LINEAR_RECT;
constexpr std::array<PacketField<Packet>, 22> kFields = {{
    {"op: COPY (", PACKET_MEMBER(HEADER_UNION.op), NumberFormat::kSigned, ")\n"},
    {"subop: COPY LINEAR RECT (", PACKET_MEMBER(HEADER_UNION.sub_op), NumberFormat::kSigned, ")\n"},
    {"element: ", PACKET_MEMBER(HEADER_UNION.element), NumberFormat::kSigned},
    {"src_addr_lo: ", PACKET_MEMBER(SRC_ADDR_LO_UNION.src_addr_31_0), NumberFormat::kHex},
    {"src_addr_hi: ", PACKET_MEMBER(SRC_ADDR_HI_UNION.src_addr_63_32), NumberFormat::kHex},
    {"src_offset_x: ", PACKET_MEMBER(SRC_PARAMETER_1_UNION.src_offset_x), NumberFormat::kSigned},
    {"src_offset_y: ", PACKET_MEMBER(SRC_PARAMETER_1_UNION.src_offset_y), NumberFormat::kSigned},
    {"src_offset_z: ", PACKET_MEMBER(SRC_PARAMETER_2_UNION.src_offset_z), NumberFormat::kSigned},
    {"src_pitch: ", PACKET_MEMBER(SRC_PARAMETER_2_UNION.src_pitch), NumberFormat::kSigned},
    {"src_slice_pitch: ", PACKET_MEMBER(SRC_PARAMETER_3_UNION.src_slice_pitch),
     NumberFormat::kSigned},
    {"dst_addr_lo: ", PACKET_MEMBER(DST_ADDR_LO_UNION.dst_addr_31_0), NumberFormat::kHex},
    {"dst_addr_hi: ", PACKET_MEMBER(DST_ADDR_HI_UNION.dst_addr_63_32), NumberFormat::kHex},
    {"dst_offset_x: ", PACKET_MEMBER(DST_PARAMETER_1_UNION.dst_offset_x), NumberFormat::kSigned},
    {"dst_offset_y: ", PACKET_MEMBER(DST_PARAMETER_1_UNION.dst_offset_y), NumberFormat::kSigned},
    {"dst_offset_z: ", PACKET_MEMBER(DST_PARAMETER_2_UNION.dst_offset_z), NumberFormat::kSigned},
    {"dst_pitch: ", PACKET_MEMBER(DST_PARAMETER_2_UNION.dst_pitch), NumberFormat::kSigned},
    {"dst_slice_pitch: ", PACKET_MEMBER(DST_PARAMETER_3_UNION.dst_slice_pitch),
     NumberFormat::kSigned},
    {"rect_x: ", PACKET_MEMBER(RECT_PARAMETER_1_UNION.rect_x), NumberFormat::kSigned},
    {"rect_y: ", PACKET_MEMBER(RECT_PARAMETER_1_UNION.rect_y), NumberFormat::kSigned},
    {"rect_z: ", PACKET_MEMBER(RECT_PARAMETER_2_UNION.rect_z), NumberFormat::kSigned},
    {"dst_swap: ", PACKET_MEMBER(RECT_PARAMETER_2_UNION.dst_swap), NumberFormat::kSigned},
    {"src_swap: ", PACKET_MEMBER(RECT_PARAMETER_2_UNION.src_swap), NumberFormat::kSigned},
}};
}  // namespace copy_linear_rect

namespace fence {
using Packet = SDMA_PKT_FENCE;
constexpr std::array<PacketField<Packet>, 12> kFields = {{
    {"op: FENCE (", PACKET_MEMBER(HEADER_UNION.op), NumberFormat::kSigned, ")\n"},
    {"subop: ", PACKET_MEMBER(HEADER_UNION.sub_op), NumberFormat::kSigned},
    {"mtype: ", PACKET_MEMBER(HEADER_UNION.mtype), NumberFormat::kSigned},
    {"gcc: ", PACKET_MEMBER(HEADER_UNION.gcc), NumberFormat::kSigned},
    {"sys: ", PACKET_MEMBER(HEADER_UNION.sys), NumberFormat::kSigned},
    {"pad1: ", PACKET_MEMBER(HEADER_UNION.pad1), NumberFormat::kSigned},
    {"snp: ", PACKET_MEMBER(HEADER_UNION.snp), NumberFormat::kSigned},
    {"gpa: ", PACKET_MEMBER(HEADER_UNION.gpa), NumberFormat::kSigned},
    {"l2_policy: ", PACKET_MEMBER(HEADER_UNION.l2_policy), NumberFormat::kSigned},
    {"addr_lo: ", PACKET_MEMBER(ADDR_LO_UNION.addr_31_0), NumberFormat::kHex},
    {"addr_hi: ", PACKET_MEMBER(ADDR_HI_UNION.addr_63_32), NumberFormat::kHex},
    {"data: ", PACKET_MEMBER(DATA_UNION.data), NumberFormat::kSigned},
}};
}  // namespace fence

namespace trap {
using Packet = SDMA_PKT_TRAP;
constexpr std::array<PacketField<Packet>, 3> kFields = {{
    {"op: TRAP (", PACKET_MEMBER(HEADER_UNION.op), NumberFormat::kSigned, ")\n"},
    {"subop: ", PACKET_MEMBER(HEADER_UNION.sub_op), NumberFormat::kSigned},
    {"int_ctx: ", PACKET_MEMBER(INT_CONTEXT_UNION.int_ctx), NumberFormat::kSigned},
}};
}  // namespace trap

namespace poll_regmem {
using Packet = SDMA_PKT_POLL_REGMEM;
constexpr std::array<PacketField<Packet>, 11> kFields = {{
    {"op: POLL REGMEM (", PACKET_MEMBER(HEADER_UNION.op), NumberFormat::kSigned, ")\n"},
    {"subop: ", PACKET_MEMBER(HEADER_UNION.sub_op), NumberFormat::kSigned},
    {"hdp_flush: ", PACKET_MEMBER(HEADER_UNION.hdp_flush), NumberFormat::kSigned},
    {"func: ", PACKET_MEMBER(HEADER_UNION.func), NumberFormat::kSigned},
    {"mem_poll: ", PACKET_MEMBER(HEADER_UNION.mem_poll), NumberFormat::kSigned},
    {"addr_lo: ", PACKET_MEMBER(ADDR_LO_UNION.addr_31_0), NumberFormat::kHex},
    {"addr_hi: ", PACKET_MEMBER(ADDR_HI_UNION.addr_63_32), NumberFormat::kHex},
    {"value: ", PACKET_MEMBER(VALUE_UNION.value), NumberFormat::kSigned},
    {"mask: ", PACKET_MEMBER(MASK_UNION.mask), NumberFormat::kSigned},
    {"interval: ", PACKET_MEMBER(DW5_UNION.interval), NumberFormat::kSigned},
    {"retry_count: ", PACKET_MEMBER(DW5_UNION.retry_count), NumberFormat::kSigned},
}};
}  // namespace poll_regmem

namespace atomic {
using Packet = SDMA_PKT_ATOMIC;
constexpr std::array<PacketField<Packet>, 11> kFields = {{
    {"op: ATOMIC (", PACKET_MEMBER(HEADER_UNION.op), NumberFormat::kSigned, ")\n"},
    {"subop: ", PACKET_MEMBER(HEADER_UNION.sub_op), NumberFormat::kSigned},
    {"l: ", PACKET_MEMBER(HEADER_UNION.l), NumberFormat::kSigned},
    {"operation: ", PACKET_MEMBER(HEADER_UNION.operation), NumberFormat::kSigned},
    {"addr_lo: ", PACKET_MEMBER(ADDR_LO_UNION.addr_31_0), NumberFormat::kHex},
    {"addr_hi: ", PACKET_MEMBER(ADDR_HI_UNION.addr_63_32), NumberFormat::kHex},
    {"src_data_lo: ", PACKET_MEMBER(SRC_DATA_LO_UNION.src_data_31_0), NumberFormat::kHex},
    {"src_data_hi: ", PACKET_MEMBER(SRC_DATA_HI_UNION.src_data_63_32), NumberFormat::kHex},
    {"cmp_data_lo: ", PACKET_MEMBER(CMP_DATA_LO_UNION.cmp_data_31_0), NumberFormat::kSigned},
    {"cmp_data_hi: ", PACKET_MEMBER(CMP_DATA_HI_UNION.cmp_data_63_32), NumberFormat::kSigned},
    {"loop_interval: ", PACKET_MEMBER(LOOP_UNION.loop_interval), NumberFormat::kSigned},
}};
}  // namespace atomic

namespace constant_fill {
using Packet = SDMA_PKT_CONSTANT_FILL;
constexpr std::array<PacketField<Packet>, 8> kFields = {{
    {"op: CONST FILL (", PACKET_MEMBER(HEADER_UNION.op), NumberFormat::kSigned, ")\n"},
    {"subop: ", PACKET_MEMBER(HEADER_UNION.sub_op), NumberFormat::kSigned},
    {"sw: ", PACKET_MEMBER(HEADER_UNION.sw), NumberFormat::kSigned},
    {"fillsize: ", PACKET_MEMBER(HEADER_UNION.fillsize), NumberFormat::kSigned},
    {"dst_addr_lo: ", PACKET_MEMBER(DST_ADDR_LO_UNION.dst_addr_31_0), NumberFormat::kHex},
    {"dst_addr_hi: ", PACKET_MEMBER(DST_ADDR_HI_UNION.dst_addr_63_32), NumberFormat::kHex},
    {"data: ", PACKET_MEMBER(DATA_UNION.src_data_31_0), NumberFormat::kSigned},
    {"count: ", PACKET_MEMBER(COUNT_UNION.count), NumberFormat::kSigned},
}};
}  // namespace constant_fill

namespace timestamp {
using Packet = SDMA_PKT_TIMESTAMP;
constexpr std::array<PacketField<Packet>, 4> kFields = {{
    {"op: TIMESTAMP (", PACKET_MEMBER(HEADER_UNION.op), NumberFormat::kSigned, ")\n"},
    {"subop: ", PACKET_MEMBER(HEADER_UNION.sub_op), NumberFormat::kSigned},
    {"addr_lo: ", PACKET_MEMBER(ADDR_LO_UNION.addr_31_0), NumberFormat::kHex},
    {"addr_hi: ", PACKET_MEMBER(ADDR_HI_UNION.addr_63_32), NumberFormat::kHex},
}};
}  // namespace timestamp

// Appends the lines of one packet type and returns its length. What of the packet lies behind the
// end of `bytes` reads as zero.
template <typename Packet, size_t N>
size_t AppendPacket(const std::array<PacketField<Packet>, N>& fields, Bytes bytes,
                    std::string& out) {
  static_assert(sizeof(Packet) <= kLongestSdmaPacket);
  Packet packet{};
  memcpy(&packet, bytes.data(), std::min(sizeof(packet), bytes.size()));
  AppendPacketFields(fields, packet, out);
  return sizeof(packet);
}

// Appends the packet that begins at `bytes` and returns its length.
size_t AppendAnyPacket(Bytes bytes, std::string& out) {
  const uint8_t op = bytes[0];
  const uint8_t subop = bytes.size() > 1 ? bytes[1] : 0;
  switch (op) {
    case SDMA_OP_COPY:
      // Every other operation of COPY is shown as the rectangular one, on purpose.
      return subop == 0 ? AppendPacket(copy_linear::kFields, bytes, out)
                        : AppendPacket(copy_linear_rect::kFields, bytes, out);
    case SDMA_OP_FENCE:
      return AppendPacket(fence::kFields, bytes, out);
    case SDMA_OP_TRAP:
      return AppendPacket(trap::kFields, bytes, out);
    case SDMA_OP_POLL_REGMEM:
      return AppendPacket(poll_regmem::kFields, bytes, out);
    case SDMA_OP_ATOMIC:
      return AppendPacket(atomic::kFields, bytes, out);
    case SDMA_OP_CONST_FILL:
      return AppendPacket(constant_fill::kFields, bytes, out);
    case SDMA_OP_TIMESTAMP:
      return AppendPacket(timestamp::kFields, bytes, out);
    default:
      out += "Invalid sdma packet";
      return kUnknownLength;
  }
}

}  // namespace

SdmaStream::SdmaStream(Bytes readable, uint64_t size)
    : readable_(readable),
      is_cut_(size > readable.size()),
      size_(std::min<uint64_t>(size, readable.size())) {}

bool SdmaStream::Next(std::string& out) {
  if (offset_ >= size_) {
    return false;
  }
  const size_t begin = out.size();
  out += "packet sub index: ";
  AppendDecimal(out, packet_sub_index_++);
  out += '\n';
  const size_t length = AppendAnyPacket(readable_.subspan(offset_), out);
  if (is_cut_ && length > size_ - offset_) {
    out.resize(begin);
    offset_ = size_;
    return false;
  }
  offset_ += length;
  out += '\n';
  return true;
}
