// The packet stream of an SDMA ring to text.
#pragma once

#include <cstdint>
#include <string>

#include "core_dump_info/core_image.h"
#include "sdma_packets.h"

constexpr size_t kLongestSdmaPacket = sizeof(SDMA_PKT_COPY_LINEAR_RECT);

// Walks a stream from its first byte, packet by packet, four bytes at a time over what is no
// packet.
class SdmaStream {
 public:
  // The stream is the first `size` bytes of `readable`. A last packet may be longer than what is
  // left of the stream: it is read on into the bytes behind it, and as zero where `readable` ends.
  // Of a stream of which `readable` holds only a part, whole packets are shown and no zeros.
  SdmaStream(Bytes readable, uint64_t size);

  // Appends the next packet's index and lines and an empty line. False, with nothing appended, when
  // there is none.
  bool Next(std::string& out);

 private:
  const Bytes readable_;
  const bool is_cut_;
  const uint64_t size_;
  uint64_t offset_ = 0;
  uint32_t packet_sub_index_ = 0;
};
