// AQL packets as the HSA standard lays them out, and the little-endian stores under everything.
#include <type_traits>

#include "core_file_writer.h"

namespace sample {
namespace {

constexpr size_t kAqlPacketSize = 64;

template <typename Integer>
void PutLittleEndian(std::string& bytes, size_t offset, Integer value) {
  static_assert(std::is_unsigned_v<Integer>);
  for (size_t i = 0; i < sizeof(Integer); ++i) {
    bytes[offset + i] = static_cast<char>(static_cast<uint64_t>(value) >> (8 * i));
  }
}

}  // namespace

void PutU16(std::string& bytes, size_t offset, uint16_t value) {
  PutLittleEndian(bytes, offset, value);
}

void PutU32(std::string& bytes, size_t offset, uint32_t value) {
  PutLittleEndian(bytes, offset, value);
}

void PutU64(std::string& bytes, size_t offset, uint64_t value) {
  PutLittleEndian(bytes, offset, value);
}

std::string Dwords(const std::vector<uint32_t>& dwords) {
  std::string bytes(4 * dwords.size(), '\0');
  for (size_t i = 0; i < dwords.size(); ++i) {
    PutU32(bytes, 4 * i, dwords[i]);
  }
  return bytes;
}

std::string KernelDispatchPacket(const KernelDispatch& packet) {
  std::string bytes(kAqlPacketSize, '\0');
  PutU16(bytes, 0, packet.header);
  PutU16(bytes, 2, packet.setup);
  for (size_t axis = 0; axis < 3; ++axis) {
    PutU16(bytes, 4 + 2 * axis, packet.workgroup_size[axis]);
    PutU32(bytes, 12 + 4 * axis, packet.grid_size[axis]);
  }
  PutU32(bytes, 24, packet.private_segment_size);
  PutU32(bytes, 28, packet.group_segment_size);
  PutU64(bytes, 32, packet.kernel_object);
  PutU64(bytes, 40, packet.kernarg_address);
  PutU64(bytes, 48, packet.reserved2);
  PutU64(bytes, 56, packet.completion_signal);
  return bytes;
}

std::string BarrierPacket(const Barrier& packet) {
  std::string bytes(kAqlPacketSize, '\0');
  PutU16(bytes, 0, packet.header);
  for (size_t i = 0; i < packet.dep_signal.size(); ++i) {
    PutU64(bytes, 8 + 8 * i, packet.dep_signal[i]);
  }
  PutU64(bytes, 48, packet.reserved2);
  PutU64(bytes, 56, packet.completion_signal);
  return bytes;
}

std::string AgentDispatchPacket(const AgentDispatch& packet) {
  std::string bytes(kAqlPacketSize, '\0');
  PutU16(bytes, 0, packet.header);
  PutU16(bytes, 2, packet.type);
  PutU64(bytes, 8, packet.return_address);
  for (size_t i = 0; i < packet.arg.size(); ++i) {
    PutU64(bytes, 16 + 8 * i, packet.arg[i]);
  }
  PutU64(bytes, 48, packet.reserved2);
  PutU64(bytes, 56, packet.completion_signal);
  return bytes;
}

}  // namespace sample
