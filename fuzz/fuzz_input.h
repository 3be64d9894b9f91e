// Helpers of the fuzz targets.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>

using Input = std::span<const uint8_t>;

// Ends the process, which a fuzzer counts as a finding.
inline void Require(bool condition) {
  if (!condition) {
    abort();
  }
}

// The first `size` bytes of `input`, or as many as there are; they are taken off it.
inline Input TakeFront(Input& input, size_t size) {
  const Input front = input.first(size < input.size() ? size : input.size());
  input = input.subspan(front.size());
  return front;
}

// A little-endian number of four bytes, taken off the front; absent bytes are zero.
inline uint32_t TakeU32(Input& input) {
  const Input bytes = TakeFront(input, sizeof(uint32_t));
  uint32_t value = 0;
  for (size_t i = 0; i < bytes.size(); ++i) {
    value |= uint32_t{bytes[i]} << (8 * i);
  }
  return value;
}

// A copy in a heap block of just its size, at whose ends a sanitizer watches.
class ExactCopy {
 public:
  explicit ExactCopy(Input bytes) : bytes_(new uint8_t[bytes.size()]), size_(bytes.size()) {
    if (size_ != 0) {
      memcpy(bytes_.get(), bytes.data(), size_);
    }
  }

  const uint8_t* data() const { return bytes_.get(); }
  uint8_t* data() { return bytes_.get(); }
  size_t size() const { return size_; }
  Input bytes() const { return {bytes_.get(), size_}; }

 private:
  std::unique_ptr<uint8_t[]> bytes_;
  size_t size_;
};
