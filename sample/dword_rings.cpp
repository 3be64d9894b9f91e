#include "dword_rings.h"

#include "core_file_writer.h"

namespace sample {
namespace {

using Packet = std::vector<uint32_t>;

// SDMA operations, byte 0 of a packet. kUnknown is none of them.
enum Operation : uint32_t {
  kCopy = 1,
  kFence = 5,
  kTrap = 6,
  kPollRegmem = 8,
  kAtomic = 10,
  kConstantFill = 11,
  kTimestamp = 13,
  kUnknown = 0x7F,
};
constexpr uint32_t kLinearRect = 4 << 8;  // sub-operation of a copy, byte 1

class SdmaPackets {
 public:
  SdmaPackets(const std::vector<uint64_t>& buffers, SplitMix64& rng)
      : buffers_(buffers), rng_(rng) {}

  // The packets of one round, every kind once.
  std::vector<Packet> Round() {
    return {CopyLinear(), CopyLinearRect(), Fence(), Unknown(),     PollRegmem(),
            Atomic(),     ConstantFill(),   Trap(),  TimestampNow()};
  }

 private:
  uint64_t Address() {
    const uint64_t buffer = buffers_[rng_.Below(static_cast<uint32_t>(buffers_.size()))];
    return buffer + uint64_t{64} * rng_.Below(4096);
  }

  static void AppendAddress(uint64_t address, Packet& packet) {
    packet.push_back(static_cast<uint32_t>(address));
    packet.push_back(static_cast<uint32_t>(address >> 32));
  }

  Packet CopyLinear() {
    Packet packet = {kCopy, rng_.Below(1 << 22), 0};
    AppendAddress(Address(), packet);
    AppendAddress(Address(), packet);
    return packet;
  }

  // Source and destination each: address, x and y, z and pitch, slice pitch; then the rectangle.
  Packet CopyLinearRect() {
    Packet packet = {kCopy | kLinearRect | 2u << 29};
    for (int side = 0; side < 2; ++side) {
      const uint32_t pitch = 256 + 64 * rng_.Below(16);
      const uint32_t x = rng_.Below(64);
      const uint32_t y = rng_.Below(64);
      AppendAddress(Address(), packet);
      packet.push_back(x | y << 16);
      packet.push_back((pitch - 1) << 13);
      packet.push_back(pitch * 64 - 1);
    }
    packet.push_back(127 | 63 << 16);
    packet.push_back(rng_.Below(4));
    return packet;
  }

  Packet Fence() {
    Packet packet = {kFence | 3 << 16 | 1 << 20};
    AppendAddress(Address(), packet);
    packet.push_back(rng_.Below(1 << 16));
    return packet;
  }

  Packet Unknown() { return {kUnknown | rng_.Below(1 << 16) << 8}; }

  Packet PollRegmem() {
    Packet packet = {kPollRegmem | 3u << 28 | 1u << 31};
    AppendAddress(Address(), packet);
    packet.push_back(rng_.Below(1 << 16));
    packet.push_back(0xFFFFFFFF);
    packet.push_back(4 | 0xFFF << 16);
    return packet;
  }

  Packet Atomic() {
    Packet packet = {kAtomic | 0x2Fu << 25};
    AppendAddress(Address(), packet);
    AppendAddress(1 + rng_.Below(16), packet);  // source data
    AppendAddress(0, packet);                   // compare data
    packet.push_back(rng_.Below(1 << 13));
    return packet;
  }

  Packet ConstantFill() {
    Packet packet = {kConstantFill | 2u << 30};
    AppendAddress(Address(), packet);
    packet.push_back(rng_.Below(256) * 0x01010101);
    packet.push_back(rng_.Below(1 << 22));
    return packet;
  }

  Packet Trap() { return {kTrap, rng_.Below(1 << 28)}; }

  Packet TimestampNow() {
    Packet packet = {kTimestamp | 2 << 8};
    AppendAddress(Address(), packet);
    return packet;
  }

  const std::vector<uint64_t>& buffers_;
  SplitMix64& rng_;
};

bool Append(const Packet& packet, uint64_t size, DwordRing& ring) {
  if (4 * packet.size() > size - ring.used) {
    return false;
  }
  ring.bytes += Dwords(packet);
  ring.used = ring.bytes.size();
  return true;
}

// Type 3 in bits 31..30, the count of body dwords less one in bits 29..16, an operation in 15..8.
Packet ComputePacket(SplitMix64& rng) {
  const uint32_t body = 1 + rng.Below(6);
  Packet packet = {3u << 30 | (body - 1) << 16 | (0x10 + rng.Below(0x80)) << 8};
  for (uint32_t i = 0; i < body; ++i) {
    packet.push_back(rng.NextU32());
  }
  return packet;
}

}  // namespace

DwordRing MakeSdmaRing(uint64_t size, const std::vector<uint64_t>& buffers, SplitMix64 rng) {
  DwordRing ring;
  SdmaPackets packets(buffers, rng);
  bool fits = true;
  while (fits) {
    for (const Packet& packet : packets.Round()) {
      fits = fits && Append(packet, size, ring);
    }
  }
  ring.bytes.resize(size, '\0');
  return ring;
}

DwordRing MakeComputeRing(uint64_t size, SplitMix64 rng) {
  DwordRing ring;
  while (Append(ComputePacket(rng), size, ring)) {
  }
  ring.bytes.resize(size, '\0');
  return ring;
}

}  // namespace sample
