// Little-endian fields of a file and zeros in it, for tests that know where each lies.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// `width` bytes at `offset`; throws std::out_of_range outside of `bytes`.
inline uint64_t UintAt(const std::string& bytes, size_t offset, size_t width) {
  uint64_t value = 0;
  for (size_t i = 0; i < width; ++i) {
    value |= static_cast<uint64_t>(static_cast<unsigned char>(bytes.at(offset + i))) << (8 * i);
  }
  return value;
}

inline uint32_t U16At(const std::string& bytes, size_t offset) {
  return static_cast<uint32_t>(UintAt(bytes, offset, 2));
}

inline uint32_t U32At(const std::string& bytes, size_t offset) {
  return static_cast<uint32_t>(UintAt(bytes, offset, 4));
}

inline uint64_t U64At(const std::string& bytes, size_t offset) { return UintAt(bytes, offset, 8); }

inline std::vector<uint32_t> U32sAt(const std::string& bytes, size_t offset, size_t count) {
  std::vector<uint32_t> words;
  for (size_t i = 0; i < count; ++i) {
    words.push_back(U32At(bytes, offset + 4 * i));
  }
  return words;
}

inline std::string Zeros(size_t count) { return std::string(count, '\0'); }
