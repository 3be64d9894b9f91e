// An SDMA stream. The first byte tells with its low bits how many bytes lie behind the stream, at
// most those of the longest packet, or with its high bit that the stream goes on behind the input;
// the rest is the stream and what lies behind it.
#include <algorithm>
#include <string>

#include "core_dump_info/sdma_decoder.h"
#include "fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  const Input first = TakeFront(input, 1);
  const bool is_cut = !first.empty() && (first[0] & 0x80) != 0;
  const size_t wanted_behind = first.empty() ? 0 : (first[0] & 0x7F) % (kLongestSdmaPacket + 1);
  const size_t behind = is_cut ? 0 : std::min(wanted_behind, input.size());
  const size_t stream_size = input.size() - behind;
  const ExactCopy readable(input);

  SdmaStream stream(readable.bytes(), is_cut ? SIZE_MAX : stream_size);
  std::string text;
  size_t packets = 0;
  while (stream.Next(text)) {
    Require(text.rfind("packet sub index: " + std::to_string(packets) + "\n", 0) == 0);
    Require(text.back() == '\n');
    ++packets;
    text.clear();
  }
  Require(text.empty());
  // The shortest step is four bytes, the longest that of the longest packet.
  Require(packets <= (stream_size + 3) / 4);
  Require(packets >= stream_size / kLongestSdmaPacket);
  return 0;
}
