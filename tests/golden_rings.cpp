#include "golden_rings.h"

#include <cstdint>
#include <string>
#include <vector>

#include "core_file_writer.h"

namespace {

// AQL packet types; a header is one of them with the bits of the header fields.
constexpr uint16_t kVendorSpecific = 0;
constexpr uint16_t kInvalid = 1;
constexpr uint16_t kKernelDispatch = 2;
constexpr uint16_t kBarrierAnd = 3;
constexpr uint16_t kAgentDispatch = 4;
constexpr uint16_t kBarrierOr = 5;
constexpr uint16_t kReservedType = 9;

constexpr uint16_t Header(uint16_t type, bool barrier, uint16_t acquire, uint16_t release) {
  return static_cast<uint16_t>(type | (barrier ? 0x100 : 0) | acquire << 9 | release << 11);
}

// A slot of an AQL ring and, if it is retired, the header that it had.
struct Slot {
  std::string packet;
  uint16_t retired_header = 0;
};

std::vector<Slot> Slots(bool kept_in_packet) {
  const uint16_t retired_dispatch = Header(kKernelDispatch, true, 1, 1);
  const uint16_t retired_barrier = Header(kBarrierOr, false, 0, 2);
  const auto reserved = [kept_in_packet](uint16_t header) -> uint64_t {
    return kept_in_packet ? header : 0;
  };
  return {
      {sample::KernelDispatchPacket({.header = Header(kKernelDispatch, true, 2, 2),
                                     .setup = 1,
                                     .workgroup_size = {256, 1, 1},
                                     .grid_size = {1048576, 1, 1},
                                     .private_segment_size = 64,
                                     .group_segment_size = 512,
                                     .kernel_object = kVectorAdd,
                                     .kernarg_address = kArguments,
                                     .completion_signal = 0x7F3A60000080})},
      {sample::KernelDispatchPacket({.header = kInvalid,
                                     .setup = 3,
                                     .workgroup_size = {16, 8, 4},
                                     .grid_size = {4096, 2160, 0xFFFFFFFF},
                                     .kernel_object = kReduce,
                                     .kernarg_address = kReduceArguments,
                                     .reserved2 = reserved(retired_dispatch)}),
       retired_dispatch},
      {sample::BarrierPacket({.header = Header(kBarrierAnd, true, 0, 1),
                              .dep_signal = {0x7F3A60000100, 0x7F3A60000140, 0, 0xA, 0xFFFF},
                              .completion_signal = 0x7F3A60000180})},
      {sample::BarrierPacket({.header = kInvalid,
                              .dep_signal = {1, 2, 3, 4, 5},
                              .reserved2 = reserved(retired_barrier),
                              .completion_signal = 6}),
       retired_barrier},
      {sample::AgentDispatchPacket({.header = Header(kAgentDispatch, false, 1, 0),
                                    .type = 0x8000,
                                    .return_address = 0x7F3A70000000,
                                    .arg = {0x10, 0x20, 0x30, 0xFFFFFFFFFFFFFFFF},
                                    .completion_signal = 0x7F3A600001C0})},
      {sample::BarrierPacket({.header = kInvalid, .dep_signal = {0x123456789ABC}})},
      {sample::BarrierPacket({.header = Header(kVendorSpecific, false, 3, 3),
                              .dep_signal = {0xFEDCBA9876543210, 0x0001000200030004}})},
      // A dispatch of an address where no kernel starts.
      {sample::KernelDispatchPacket({.header = Header(kKernelDispatch, false, 2, 0),
                                     .setup = 2,
                                     .kernel_object = kVectorAdd + 4,
                                     .kernarg_address = kArguments})},
      {sample::BarrierPacket({.header = Header(kReservedType, true, 0, 0)})},
  };
}

}  // namespace

void AddAqlRing(bool kept_in_packet, sample::Queue& queue) {
  std::string ring;
  for (const Slot& slot : Slots(kept_in_packet)) {
    ring += slot.packet;
    if (!kept_in_packet) {
      queue.header_backup.push_back(slot.retired_header);
    }
  }
  queue.ring = ring;
}

std::string SdmaRing() {
  const std::vector<uint32_t> copy_linear = {0xBEEF0001, 0xFFC01000, 0x01020000, 0x11111110,
                                             0x7F01,     0x22222220, 0x7F02};
  const std::vector<uint32_t> copy_linear_rect = {
      0xA0000401, 0x33333330, 0x7F03,     0x00140010, 0x000FE003, 0x00010000, 0x44444440,
      0x7F04,     0x3FFF3FFF, 0xFFFFE7FF, 0x0FFFFFFF, 0x00800040, 0x02010001};
  const std::vector<uint32_t> fence = {0x025B0005, 0x55555550, 0x7F05, 0xFFFFFFFF};
  const std::vector<uint32_t> trap = {0x00000006, 0xF0000007};
  const std::vector<uint32_t> no_packets = {0x00000000, 0x000000FE};
  const std::vector<uint32_t> poll_regmem = {0xB4000008, 0x66666660, 0x7F06,
                                             0x80000000, 0x7FFFFFFF, 0x0FFF000A};
  const std::vector<uint32_t> atomic = {0x5E01000A, 0x77777770, 0x7F07, 0x88888888,
                                        0x9,        0xFFFFFFFE, 0x1,    0xFFFFFFFF};
  const std::vector<uint32_t> constant_fill = {0x8002000B, 0x99999990, 0x7F09, 0xDEADBEEF,
                                               0x003FFFFF};
  const std::vector<uint32_t> timestamp = {0x0000020D, 0xAAAAAAA0, 0x7F0A};
  std::string ring;
  for (const std::vector<uint32_t>& packet :
       {copy_linear, copy_linear_rect, fence, trap, no_packets, poll_regmem, atomic, constant_fill,
        timestamp}) {
    ring += sample::Dwords(packet);
  }
  return ring;
}
