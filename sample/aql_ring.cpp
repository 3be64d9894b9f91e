#include "aql_ring.h"

#include "core_file_writer.h"

namespace sample {
namespace {

constexpr size_t kSlotSize = 64;
constexpr size_t kRetiredHeaderOffset = 48;  // of the packet, in format 0
constexpr uint16_t kInvalidHeader = 1;
constexpr uint64_t kSignalSize = 64;
constexpr uint32_t kSignals = 64;

// The type field of the header.
enum PacketType : uint16_t {
  kVendorSpecific = 0,
  kKernelDispatch = 2,
  kBarrierAnd = 3,
  kAgentDispatch = 4,
  kBarrierOr = 5,
  kReserved = 6,
};

// What a queue's packets are, over and over.
constexpr PacketType kPattern[] = {
    kKernelDispatch, kBarrierAnd,     kKernelDispatch, kAgentDispatch, kKernelDispatch,
    kBarrierOr,      kVendorSpecific, kKernelDispatch, kReserved,
};
constexpr uint64_t kRetired = 3 * std::size(kPattern);
constexpr uint64_t kWritten = kRetired + 2 * std::size(kPattern);
static_assert(kWritten < kAqlRingSlots);

// Barrier bit 8, acquire fence scope in bits 10..9, release fence scope in bits 12..11.
uint16_t Header(PacketType type, SplitMix64& rng) {
  const uint32_t barrier = rng.Below(2);
  const uint32_t acquire = rng.Below(3);
  const uint32_t release = rng.Below(3);
  return static_cast<uint16_t>(type | barrier << 8 | acquire << 9 | release << 11);
}

class RingMaker {
 public:
  RingMaker(const AqlRingPlan& plan, SplitMix64 rng) : plan_(plan), rng_(rng) {}

  AqlRing Make() {
    ring_.kernargs.assign(kAqlRingSlots * kKernargStride, '\0');
    for (uint64_t slot = 0; slot < kAqlRingSlots; ++slot) {
      AppendSlot(slot);
    }
    ring_.read_index = kRetired;
    ring_.write_index = kWritten;
    return std::move(ring_);
  }

 private:
  void AppendSlot(uint64_t slot) {
    std::string packet(kSlotSize, '\0');
    uint16_t retired_header = 0;
    if (slot < kWritten) {
      const PacketType type = kPattern[slot % std::size(kPattern)];
      const uint16_t header = Header(type, rng_);
      packet = Packet(slot, type);
      PutU16(packet, 0, header);
      retired_header = slot < kRetired ? header : 0;
    }
    if (slot < kRetired || slot >= kWritten) {
      PutU16(packet, 0, kInvalidHeader);
    }
    if (plan_.format == 0) {
      if (retired_header != 0) {
        PutU64(packet, kRetiredHeaderOffset, retired_header);
      }
    } else {
      ring_.header_backup.push_back(retired_header);
    }
    ring_.bytes += packet;
  }

  // The packet but for its header.
  std::string Packet(uint64_t slot, PacketType type) {
    switch (type) {
      case kKernelDispatch:
        return DispatchPacket(slot);
      case kBarrierAnd:
      case kBarrierOr:
        return BarrierPacket(
            {.dep_signal = {Signal(), Signal(), 0, 0, 0}, .completion_signal = Signal()});
      case kAgentDispatch:
        return AgentDispatchPacket(
            {.type = static_cast<uint16_t>(0x8000 + rng_.Below(4)),
             .return_address = plan_.buffers.front() + uint64_t{64} * rng_.Below(64),
             .arg = {slot, plan_.buffers.back(), rng_.Below(4096), 0},
             .completion_signal = Signal()});
      case kVendorSpecific:
      case kReserved:
        return RawPacket(slot);
    }
    return {};
  }

  std::string DispatchPacket(uint64_t slot) {
    Dispatch dispatch = MakeDispatch(NextKernel(slot), plan_.buffers, rng_);
    dispatch.kernarg_address = plan_.kernargs + slot * kKernargStride;
    dispatch.completion_signal = Signal();
    ring_.kernargs.replace(slot * kKernargStride, dispatch.arguments.size(), dispatch.arguments);
    if (slot >= kRetired) {
      ring_.in_flight.push_back(dispatch);
    }
    return KernelDispatchPacket(
        {.setup = static_cast<uint16_t>(dispatch.workgroup_size[1] > 1 ? 2 : 1),
         .workgroup_size = dispatch.workgroup_size,
         .grid_size = dispatch.grid_size,
         .group_segment_size = dispatch.kernel.code->lds_bytes,
         .kernel_object = dispatch.kernel.address(),
         .kernarg_address = dispatch.kernarg_address,
         .completion_signal = dispatch.completion_signal});
  }

  const LoadedKernel& NextKernel(uint64_t slot) {
    if (slot == kRetired && plan_.first_in_flight) {
      return *plan_.first_in_flight;
    }
    return plan_.kernels[dispatches_++ % plan_.kernels.size()];
  }

  std::string RawPacket(uint64_t slot) {
    std::string packet(kSlotSize, '\0');
    PutU16(packet, 2, static_cast<uint16_t>(slot));
    for (size_t offset = 8; offset < kRetiredHeaderOffset; offset += 4) {
      PutU32(packet, offset, rng_.NextU32());
    }
    return packet;
  }

  uint64_t Signal() { return plan_.signals + kSignalSize * rng_.Below(kSignals); }

  const AqlRingPlan& plan_;
  SplitMix64 rng_;
  AqlRing ring_;
  size_t dispatches_ = 0;
};

}  // namespace

AqlRing MakeAqlRing(const AqlRingPlan& plan, SplitMix64 rng) { return RingMaker(plan, rng).Make(); }

}  // namespace sample
