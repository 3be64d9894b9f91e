// The text of SDMA streams.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "core_dump_info.h"
#include "core_file_writer.h"

// The text of `bytes` taken as a stream of `size` of them; the bytes lie in a buffer of just their
// size.
inline std::string DescribeBytes(const std::string& bytes, int size) {
  const std::vector<char> buffer(bytes.begin(), bytes.end());
  CoreDumpInfo analyser;
  std::string info;
  EXPECT_TRUE(analyser.GenSdmaPacketInfo(reinterpret_cast<uint64_t>(buffer.data()), size, info));
  return info;
}

inline std::string Describe(const std::vector<uint32_t>& words) {
  return DescribeBytes(sample::Dwords(words), static_cast<int>(4 * words.size()));
}

// The text of a stream of the two words 6 and 7.
inline constexpr char kTrapText[] =
    "packet sub index: 0\n"
    "op: TRAP (6)\n"
    "subop: 0\n"
    "int_ctx: 7\n"
    "\n"
    "\n";
