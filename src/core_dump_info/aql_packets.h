// Ring slots of an AQL queue to text.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

constexpr uint64_t kAqlPacketSize = 64;

// Core files after this version have a header backup array behind each ring; in older ones the
// runtime keeps a retired packet's header in the reserved word at byte 48.
constexpr uint32_t kLastVersionWithoutHeaderBackup = 0x100FF;

// Appends the header lines and the body of the packet in the 64 bytes at `slot`. `backup_header` is
// the slot's word of the header backup array: 0 in versions without one, nothing when the file has
// lost it, and then the packet is shown as it stands. Returns the packet's type, which is
// AQL_TYPE_RESERVED for every type that has no name.
uint32_t AppendAqlPacket(const unsigned char* slot, std::optional<uint32_t> backup_header,
                         uint32_t full_version, std::string& out);
