// The index of dumped process memory and its snapshot files.
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "core_file_writer.h"

namespace sample {
namespace {

std::string SnapshotName(const MemoryRegion& region) {
  char name[96];
  snprintf(name, sizeof(name), "0X%" PRIX64 "-0X%" PRIX64 "-%zu", region.addr,
           region.addr + region.bytes.size(), region.bytes.size());
  return name;
}

// "[<address> <size> <end address> <unused> <flags> alloc", then a line per GPU that can reach it:
// "[<address> <size> mapped to gpu: <gpu id>".
std::string IndexLines(const MemoryRegion& region) {
  char line[160];
  snprintf(line, sizeof(line), "[0x%" PRIx64 " %zu 0x%" PRIx64 " 0 0x%" PRIx32 " alloc\n",
           region.addr, region.bytes.size(), region.addr + region.bytes.size(), region.flags);
  std::string lines = line;
  for (const uint32_t gpu_id : region.gpu_ids) {
    snprintf(line, sizeof(line), "[0x%" PRIx64 " %zu mapped to gpu: %" PRIu32 "\n", region.addr,
             region.bytes.size(), gpu_id);
    lines += line;
  }
  return lines;
}

bool WriteFile(const std::string& path, const std::string& bytes) {
  FILE* stream = fopen(path.c_str(), "wb");
  if (stream == nullptr) {
    return false;
  }
  const bool written = fwrite(bytes.data(), 1, bytes.size(), stream) == bytes.size();
  return (fclose(stream) == 0) && written;
}

}  // namespace

bool WriteMemoryDirectory(const std::vector<MemoryRegion>& regions, const std::string& dir) {
  std::error_code error;
  std::filesystem::create_directories(dir, error);
  if (error) {
    errno = error.value();
    return false;
  }
  std::string index;
  for (const MemoryRegion& region : regions) {
    if (!WriteFile(dir + "/" + SnapshotName(region), region.bytes)) {
      return false;
    }
    index += IndexLines(region);
  }
  return WriteFile(dir + "/process_mem_info", index);
}

}  // namespace sample
