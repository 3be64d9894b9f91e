// AQL ring slots. The first byte tells whether the core file has header backup arrays; then follow
// the slots, each behind its word of the array.
#include <string>

#include "core_dump_info.h"
#include "core_dump_info/aql_packets.h"
#include "fuzz_input.h"

namespace {

constexpr uint32_t kVersionWithoutBackup = 0x10000;
constexpr uint32_t kVersionWithBackup = 0x10100;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  const Input flags = TakeFront(input, 1);
  const bool has_backup = !flags.empty() && (flags[0] & 1) != 0;
  while (input.size() >= sizeof(uint32_t) + kAqlPacketSize) {
    const uint32_t backup_header = has_backup ? TakeU32(input) : (TakeU32(input), 0);
    const ExactCopy slot(TakeFront(input, kAqlPacketSize));
    std::string text;
    const uint32_t type = AppendAqlPacket(
        slot.data(), backup_header, has_backup ? kVersionWithBackup : kVersionWithoutBackup, text);
    Require(type <= AQL_TYPE_RESERVED);
    Require(text.rfind("header format: ", 0) == 0);
    Require(text.back() == '\n');
    Require(text.find('\0') == std::string::npos);
  }
  return 0;
}
