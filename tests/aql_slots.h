// Slots of AQL rings with their texts.
#pragma once

#include <cstdint>
#include <string>

#include "core_file_writer.h"

// Versions around the first one with a header backup array.
inline constexpr uint32_t kLastWithoutBackup = 0x100FF;
inline constexpr uint32_t kFirstWithBackup = 0x10100;

inline sample::KernelDispatch FullDispatch() {
  sample::KernelDispatch packet;
  packet.header = 0x0B02;
  packet.setup = 3;
  packet.workgroup_size = {256, 16, 1};
  packet.grid_size = {1048576, 512, 64};
  packet.private_segment_size = 128;
  packet.group_segment_size = 8192;
  packet.kernel_object = 0x7F0000001000;
  packet.kernarg_address = 0x7F00000020C0;
  packet.reserved2 = 0x1122334455667788;
  packet.completion_signal = 0xFEDCBA9876543210;
  return packet;
}

inline constexpr char kFullDispatchText[] =
    "header format: KERNEL_DISPATCH\n"
    "header barrier: 1\n"
    "header acquire_fence_scope: SCOPE_AGENT\n"
    "header release_fence_scope: SCOPE_AGENT\n"
    "dimensions: 3\n"
    "workgroup_size_x: 256\n"
    "workgroup_size_y: 16\n"
    "workgroup_size_z: 1\n"
    "grid_size_x: 1048576\n"
    "grid_size_y: 512\n"
    "grid_size_z: 64\n"
    "private_segment_size_bytes: 128\n"
    "group_segment_size_bytes : 8192\n"
    "kernel_object: 0X7F0000001000\n"
    "kernarg_address: 0X7F00000020C0\n"
    "completion_signal: 0XFEDCBA9876543210\n";

inline std::string EmptyBarrier() { return sample::BarrierPacket({.header = 3}); }

inline constexpr char kEmptyBarrierText[] =
    "header format: BARRIER_AND\n"
    "header barrier: 0\n"
    "header acquire_fence_scope: SCOPE_NONE\n"
    "header release_fence_scope: SCOPE_NONE\n"
    "dep_signal[0]: 0X0\n"
    "dep_signal[1]: 0X0\n"
    "dep_signal[2]: 0X0\n"
    "dep_signal[3]: 0X0\n"
    "dep_signal[4]: 0X0\n"
    "completion_signal: 0X0\n";

// Retired, if a header is found for it.
inline std::string InvalidSlot() { return sample::BarrierPacket({.header = 1}); }

// The text of InvalidSlot() where no header is found for it.
inline constexpr char kNotRetired[] =
    "header format: INVALID\n"
    "header barrier: 0\n"
    "header acquire_fence_scope: SCOPE_NONE\n"
    "header release_fence_scope: SCOPE_NONE\n"
    "0X0001 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 \n"
    "0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 \n"
    "0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 \n"
    "0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 \n";

// The header in the word at byte 48 and the one in the backup array differ, so that what is shown
// tells which was taken.
inline constexpr uint32_t kWordLow = 0x00001503;   // barrier-and
inline constexpr uint32_t kWordHigh = 0xABCD0000;  // nothing in the 16 bits that hold the header
inline constexpr uint32_t kBackup = 0x00000A05;    // barrier-or

inline constexpr char kFromWord[] =
    "header format: BARRIER_AND (complete)\n"
    "header barrier: 1\n"
    "header acquire_fence_scope: SCOPE_SYSTEM\n"
    "header release_fence_scope: SCOPE_SYSTEM\n"
    "dep_signal[0]: 0X0\n"
    "dep_signal[1]: 0X0\n"
    "dep_signal[2]: 0X0\n"
    "dep_signal[3]: 0X0\n"
    "dep_signal[4]: 0X0\n"
    "completion_signal: 0X0\n";

inline constexpr char kFromBackup[] =
    "header format: BARRIER_OR (complete)\n"
    "header barrier: 0\n"
    "header acquire_fence_scope: SCOPE_AGENT\n"
    "header release_fence_scope: SCOPE_AGENT\n"
    "dep_signal[0]: 0X0\n"
    "dep_signal[1]: 0X0\n"
    "dep_signal[2]: 0X0\n"
    "dep_signal[3]: 0X0\n"
    "dep_signal[4]: 0X0\n"
    "completion_signal: 0X0\n";

// The four header lines of a packet.
inline std::string HeaderLines(const std::string& info) {
  size_t end = 0;
  for (int line = 0; line < 4; ++line) {
    end = info.find('\n', end) + 1;
  }
  return info.substr(0, end);
}
