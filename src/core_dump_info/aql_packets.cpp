#include "core_dump_info/aql_packets.h"

#include <cstring>

#include "core_dump_info.h"
#include "core_dump_info/packet_fields.h"
#include "core_dump_info/register_fields.h"
#include "hsa_packets.h"

namespace {

constexpr std::array<std::string_view, 7> aql_format = {
    "VENDOR_SPECIFIC", "INVALID",    "KERNEL_DISPATCH", "BARRIER_AND",
    "AGENT_DISPATCH",  "BARRIER_OR", "RESERVED"};

// The HSA standard names three scopes; the field has room for a fourth.
constexpr std::array<std::string_view, 4> fence_scope = {"SCOPE_NONE", "SCOPE_AGENT",
                                                         "SCOPE_SYSTEM", "SCOPE_RESERVED"};

// Of the 8-bit type field only the low four bits are used, on purpose.
constexpr uint32_t kTypeMask = 0xF;

constexpr size_t kRetiredHeaderOffset = offsetof(hsa_kernel_dispatch_packet_t, reserved2);

namespace kernel_dispatch {
using Packet = hsa_kernel_dispatch_packet_t;
constexpr std::array<PacketField<Packet>, 12> kFields = {{
    {"dimensions: ", PACKET_MEMBER(setup & 3U), NumberFormat::kSigned},
    {"workgroup_size_x: ", PACKET_MEMBER(workgroup_size_x), NumberFormat::kSigned},
    {"workgroup_size_y: ", PACKET_MEMBER(workgroup_size_y), NumberFormat::kSigned},
    {"workgroup_size_z: ", PACKET_MEMBER(workgroup_size_z), NumberFormat::kSigned},
    {"grid_size_x: ", PACKET_MEMBER(grid_size_x), NumberFormat::kSigned},
    {"grid_size_y: ", PACKET_MEMBER(grid_size_y), NumberFormat::kSigned},
    {"grid_size_z: ", PACKET_MEMBER(grid_size_z), NumberFormat::kSigned},
    {"private_segment_size_bytes: ", PACKET_MEMBER(private_segment_size), NumberFormat::kSigned},
    {"group_segment_size_bytes : ", PACKET_MEMBER(group_segment_size), NumberFormat::kSigned},
    {"kernel_object: ", PACKET_MEMBER(kernel_object), NumberFormat::kHex},
    {"kernarg_address: ", PACKET_MEMBER(kernarg_address), NumberFormat::kHex},
    {"completion_signal: ", PACKET_MEMBER(completion_signal.handle), NumberFormat::kHex},
}};
}  // namespace kernel_dispatch

namespace barrier {
using Packet = hsa_barrier_and_packet_t;
constexpr std::array<PacketField<Packet>, 6> kFields = {{
    {"dep_signal[0]: ", PACKET_MEMBER(dep_signal[0].handle), NumberFormat::kHex},
    {"dep_signal[1]: ", PACKET_MEMBER(dep_signal[1].handle), NumberFormat::kHex},
    {"dep_signal[2]: ", PACKET_MEMBER(dep_signal[2].handle), NumberFormat::kHex},
    {"dep_signal[3]: ", PACKET_MEMBER(dep_signal[3].handle), NumberFormat::kHex},
    {"dep_signal[4]: ", PACKET_MEMBER(dep_signal[4].handle), NumberFormat::kHex},
    {"completion_signal: ", PACKET_MEMBER(completion_signal.handle), NumberFormat::kHex},
}};
}  // namespace barrier

namespace agent_dispatch {
using Packet = hsa_agent_dispatch_packet_t;
constexpr std::array<PacketField<Packet>, 7> kFields = {{
    {"type: ", PACKET_MEMBER(type), NumberFormat::kSigned},
    {"return_address: ", PACKET_MEMBER(return_address), NumberFormat::kHex},
    {"arg[0]: ", PACKET_MEMBER(arg[0]), NumberFormat::kHex},
    {"arg[1]: ", PACKET_MEMBER(arg[1]), NumberFormat::kHex},
    {"arg[2]: ", PACKET_MEMBER(arg[2]), NumberFormat::kHex},
    {"arg[3]: ", PACKET_MEMBER(arg[3]), NumberFormat::kHex},
    {"completion_signal: ", PACKET_MEMBER(completion_signal.handle), NumberFormat::kHex},
}};
}  // namespace agent_dispatch

template <typename Packet, size_t N>
void AppendSlot(const std::array<PacketField<Packet>, N>& fields, const unsigned char* slot,
                std::string& out) {
  static_assert(sizeof(Packet) == kAqlPacketSize);
  Packet packet;
  memcpy(&packet, slot, sizeof(packet));
  AppendPacketFields(fields, packet, out);
}

uint16_t LoadU16(const unsigned char* p) {
  uint16_t value;
  memcpy(&value, p, sizeof(value));
  return value;
}

// The slot as 32 words of 16 bits, eight to a line, as they stand in the ring.
void AppendRawSlot(const unsigned char* slot, std::string& out) {
  constexpr size_t kWords = kAqlPacketSize / sizeof(uint16_t);
  constexpr size_t kWordsPerLine = 8;
  for (size_t i = 0; i < kWords; ++i) {
    AppendHex(out, LoadU16(slot + i * sizeof(uint16_t)), 4);
    out += ' ';
    if (i % kWordsPerLine == kWordsPerLine - 1) {
      out += '\n';
    }
  }
}

void AppendHeader(uint32_t header, uint32_t type, bool is_complete, std::string& out) {
  out += "header format: ";
  out += aql_format[type];
  out += is_complete ? " (complete)\n" : "\n";
  out += "header barrier: ";
  AppendDecimal(out, BitField(header, 8, 1));
  out += "\nheader acquire_fence_scope: ";
  out += fence_scope[BitField(header, 9, 2)];
  out += "\nheader release_fence_scope: ";
  out += fence_scope[BitField(header, 11, 2)];
  out += '\n';
}

}  // namespace

uint32_t AppendAqlPacket(const unsigned char* slot, std::optional<uint32_t> backup_header,
                         uint32_t full_version, std::string& out) {
  uint32_t header = LoadU16(slot);
  bool is_complete = false;
  uint32_t aql_type = header & kTypeMask;
  if (aql_type == AQL_TYPE_INVALID && backup_header) {
    // The runtime retires a packet by making its header INVALID and keeps the old one: behind the
    // ring, or at byte 48 in older core files. Where the header comes from and whether there is one
    // are tested apart, on purpose: either source makes a packet a retired one, whatever the
    // version.
    const uint32_t kept_in_slot = LoadU32(slot + kRetiredHeaderOffset);
    if (*backup_header != 0 || kept_in_slot != 0) {
      const bool has_backup_array = full_version > kLastVersionWithoutHeaderBackup;
      header = (has_backup_array ? *backup_header : kept_in_slot) & 0xFFFF;
      is_complete = true;
      aql_type = header & kTypeMask;
    }
  }
  if (aql_type > AQL_TYPE_RESERVED) {
    aql_type = AQL_TYPE_RESERVED;
  }
  AppendHeader(header, aql_type, is_complete, out);
  switch (aql_type) {
    case AQL_TYPE_KERNEL_DISPATCH:
      AppendSlot(kernel_dispatch::kFields, slot, out);
      break;
    case AQL_TYPE_BARRIER_AND:
    case AQL_TYPE_BARRIER_OR:
      AppendSlot(barrier::kFields, slot, out);
      break;
    case AQL_TYPE_AGENT_DISPATCH:
      AppendSlot(agent_dispatch::kFields, slot, out);
      break;
    default:
      AppendRawSlot(slot, out);
      break;
  }
  return aql_type;
}
