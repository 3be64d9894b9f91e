// A memory index and reads through it.
//
// The input is
//   4 bytes  length of the snapshot, little-endian, which every region gets
//   the snapshot, then the index
#include <algorithm>
#include <stdexcept>

#include "core_dump_info.h"
#include "fuzz_input.h"
#include "private_directory.h"

namespace {

constexpr size_t kMostRegions = 8;
constexpr size_t kReadSize = 4096;

// What a read at `address` gives is no more than the snapshot has from there on.
void Read(CoreDumpInfo& analyser, uint64_t address, size_t snapshot_size) {
  unsigned char buffer[kReadSize];
  const uint64_t count = analyser.getMemInfo(buffer, sizeof(buffer), address);
  Require(count <= std::min(sizeof(buffer), snapshot_size));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  const uint32_t snapshot_size = TakeU32(input);
  const Input snapshot = TakeFront(input, snapshot_size);

  EmptyPrivateDirectory();
  WriteInput(PrivateDirectory() + "/process_mem_info", input);
  CoreDumpInfo analyser;
  analyser.mem_dir_ = PrivateDirectory();
  try {
    Require(analyser.initProcessMem());
  } catch (const std::out_of_range&) {
    return 0;  // an index line with too few tokens, the one end that is abnormal on purpose
  }

  size_t regions = 0;
  for (const auto& [address, region] : analyser.mem_info_map) {
    Require(region.name.empty() || region.addr == address);
    if (region.name.empty() || regions++ == kMostRegions) {
      continue;
    }
    WriteInput(region.name, snapshot);
    for (const uint64_t distance : {uint64_t{0}, region.size - 1, region.size, region.size / 2}) {
      Read(analyser, address + distance, snapshot.size());
    }
  }
  return 0;
}
