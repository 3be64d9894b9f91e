// Packet reports as tables: one row per printed line, with its label, its field and its format.
// Adding a line is adding a row.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "core_dump_info/number_text.h"

enum class NumberFormat {
  kSigned,  // "%d": the low 32 bits as a signed number
  kHex,     // "0X%lX"
};

template <typename Packet>
struct PacketField {
  std::string_view label;
  uint64_t (*value)(const Packet&);
  NumberFormat format;
  std::string_view end = "\n";
};

template <typename Packet, size_t N>
void AppendPacketFields(const std::array<PacketField<Packet>, N>& fields, const Packet& packet,
                        std::string& out) {
  for (const PacketField<Packet>& field : fields) {
    out += field.label;
    const uint64_t value = field.value(packet);
    if (field.format == NumberFormat::kHex) {
      AppendHex(out, value);
    } else {
      AppendDecimal(out, static_cast<int32_t>(value));
    }
    out += field.end;
  }
}

// The value column of a row: reads `member` of the packet type `Packet` of the table.
#define PACKET_MEMBER(member) [](const Packet& packet) -> uint64_t { return packet.member; }
