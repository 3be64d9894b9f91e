// The rings of the golden dumps. Between them they hold every kind of packet.
#pragma once

#include <cstdint>
#include <string>

#include "core_file_writer.h"

// Where the kernels are loaded that the AQL ring dispatches, and where their arguments lie.
inline constexpr uint64_t kLoadAddress = 0x7F3A40000000;
inline constexpr uint64_t kVectorAdd = kLoadAddress + 0x1000;
inline constexpr uint64_t kReduce = kLoadAddress + 0x1800;
inline constexpr uint64_t kArguments = 0x7F3A51230000;  // 64 bytes
inline constexpr uint64_t kReduceArguments = kArguments + 48;

// Gives `queue` a ring with every packet kind, live and retired. `kept_in_packet` says that retired
// packets keep their headers in their own reserved words.
void AddAqlRing(bool kept_in_packet, sample::Queue& queue);

// Every SDMA packet, and two dwords that are none.
std::string SdmaRing();
