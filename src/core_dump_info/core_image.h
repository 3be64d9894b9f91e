// The mapped core file as bounds-checked bytes: the one place through which it is read.
//
// The analyser's records hold addresses inside the mapping, made by adding a file offset from the
// file to the mapping's base. A hostile offset makes an address that lies anywhere; subtracting the
// base again, modulo 2^64, gives the offset back, and only that is compared.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>
#include <type_traits>

using Bytes = std::span<const unsigned char>;

// The little-endian 32-bit word at `p`, which may have any alignment.
inline uint32_t LoadU32(const void* p) {
  uint32_t value;
  memcpy(&value, p, sizeof(value));
  return value;
}

// The text of a fixed-size field: ends at its first zero byte or at its size.
template <size_t N>
std::string_view FixedText(const char (&field)[N]) {
  return {field, strnlen(field, N)};
}

class CoreImage {
 public:
  // An image without limits, for callers that never told the size of their mapping.
  CoreImage() = default;
  CoreImage(uint64_t base, uint64_t size) : base_(base), size_(size) {}

  // The file offset of an address.
  uint64_t OffsetOf(uint64_t address) const { return address - base_; }

  // How many bytes of the file lie from `address` on; 0 for an address outside.
  uint64_t Available(uint64_t address) const {
    const uint64_t offset = OffsetOf(address);
    return offset <= size_ ? size_ - offset : 0;
  }

  // The part of the `wanted` bytes at `address` that lies inside the file.
  Bytes Clip(uint64_t address, uint64_t wanted) const {
    return {reinterpret_cast<const unsigned char*>(address),
            static_cast<size_t>(std::min(wanted, Available(address)))};
  }

  // Copies the record at `address`. False, with `record` untouched, when not all of it is inside.
  template <typename Record>
  bool Load(uint64_t address, Record& record) const {
    static_assert(std::is_trivially_copyable_v<Record>);
    if (Available(address) < sizeof(Record)) {
      return false;
    }
    memcpy(&record, reinterpret_cast<const void*>(address), sizeof(Record));
    return true;
  }

 private:
  uint64_t base_ = 0;
  uint64_t size_ = UINT64_MAX;
};
