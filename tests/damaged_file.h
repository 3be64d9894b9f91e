// Verbs that make damaged core files of good ones, and what a loss looks like.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "core_file_writer.h"

// The regions of a file with the reason record at 0x80, the environment at 0xF0, and `last` behind
// all the others, where a truncation hits nothing else.
sample::Layout WithLast(sample::Region last);

// Stores `value`, little-endian, in the `width` bytes at `offset`. Throws std::out_of_range outside
// of `bytes`.
void SetField(std::string& bytes, uint64_t offset, size_t width, uint64_t value);

// One byte.
void SetByte(std::string& bytes, uint64_t offset, unsigned char value);

// The first `size` bytes; throws std::out_of_range when there are fewer.
std::string Truncated(const std::string& bytes, uint64_t size);

// A line of the file `damage`.
std::string LossLine(const std::string& what, uint64_t file_offset, uint64_t wanted,
                     uint64_t available);

// The error lines that stand on standard error for these lines of `damage`, time stamps as
// "[time]".
std::string LossLog(const std::string& damage);
