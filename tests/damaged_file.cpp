#include "damaged_file.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <sstream>
#include <stdexcept>

sample::Layout WithLast(sample::Region last) {
  using sample::Region;
  sample::Layout layout;
  layout.order = {Region::kReason,      Region::kEnvironment, Region::kAgents, Region::kQueues,
                  Region::kCodeObjects, Region::kKernels,     Region::kElfs,   Region::kRings,
                  Region::kContexts,    Region::kWaves};
  const auto found = std::find(layout.order.begin(), layout.order.end(), last);
  std::rotate(found, found + 1, layout.order.end());
  return layout;
}

void SetField(std::string& bytes, uint64_t offset, size_t width, uint64_t value) {
  for (size_t i = 0; i < width; ++i) {
    bytes.at(offset + i) = static_cast<char>(value >> (8 * i));
  }
}

void SetByte(std::string& bytes, uint64_t offset, unsigned char value) {
  SetField(bytes, offset, 1, value);
}

std::string Truncated(const std::string& bytes, uint64_t size) {
  if (size > bytes.size()) {
    throw std::out_of_range("a file does not grow by truncation");
  }
  return bytes.substr(0, size);
}

std::string LossLine(const std::string& what, uint64_t file_offset, uint64_t wanted,
                     uint64_t available) {
  char numbers[128];
  snprintf(numbers, sizeof(numbers),
           ": file offset 0X%" PRIX64 ", wanted %" PRIu64 " bytes, available %" PRIu64 " bytes\n",
           file_offset, wanted, available);
  return what + numbers;
}

std::string LossLog(const std::string& damage) {
  std::istringstream lines(damage);
  std::string log;
  for (std::string line; std::getline(lines, line);) {
    log += "[time] Error: damaged core file: " + line + "\n";
  }
  return log;
}
