// Dumped process memory: the index of the memory directory, and reads by process address.

#include <sys/mman.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "core_dump_info.h"
#include "logger.h"
#include "utils.h"

namespace {

// Tokens of an index line, separated by single blanks. The address has one character in front that
// is skipped; the tokens that have no name here are not read.
constexpr size_t kAddressToken = 0;
constexpr size_t kSizeToken = 1;
constexpr size_t kFlagToken = 4;
constexpr size_t kGpuIdToken = 5;
constexpr size_t kTokens = 6;  // what is behind them is not even split: a line may have any number

class IndexLine {
 public:
  explicit IndexLine(const std::string& line) {
    size_t end = line.find(' ');
    for (size_t token = 1; token < kTokens && end != std::string::npos; ++token) {
      end = line.find(' ', end + 1);
    }
    SplitStr(line.substr(0, end), " ", tokens_);
  }

  uint64_t Address() const {
    const std::string& token = tokens_.at(kAddressToken);
    return token.empty() ? 0 : Number(token.c_str() + 1);
  }

  // A line with too few tokens is the runtime's own error; the checked access ends the run, on
  // purpose, rather than have memory reported that nobody recorded.
  uint64_t Token(size_t index) const { return Number(tokens_.at(index).c_str()); }

 private:
  static uint64_t Number(const char* text) { return strtoull(text, nullptr, 0); }

  std::vector<std::string> tokens_;
};

// The lines of the index. A short line ends the run by an exception, which closes what is open
// here.
class IndexFile {
 public:
  explicit IndexFile(const std::string& path) : file_(fopen(path.c_str(), "re"), &fclose) {}
  ~IndexFile() { free(buffer_); }
  IndexFile(const IndexFile&) = delete;
  IndexFile& operator=(const IndexFile&) = delete;

  bool IsOpen() const { return file_ != nullptr; }

  // False at the end of the file.
  bool Next(std::string& line) {
    const ssize_t length = getline(&buffer_, &capacity_, file_.get());
    if (length == -1) {
      return false;
    }
    line.assign(buffer_, static_cast<size_t>(length));
    return true;
  }

 private:
  std::unique_ptr<FILE, int (*)(FILE*)> file_;
  char* buffer_ = nullptr;
  size_t capacity_ = 0;
};

MemInfo RegionOf(const IndexLine& line, const std::string& mem_dir) {
  MemInfo region;
  region.addr = line.Address();
  region.size = line.Token(kSizeToken);
  region.flag = static_cast<uint32_t>(line.Token(kFlagToken));
  region.name = mem_dir + "/" +
                StrFormat("0X%lX-0X%lX-%ld", region.addr, region.addr + region.size, region.size);
  return region;
}

}  // namespace

bool CoreDumpInfo::initProcessMem() {
  utils::Log(utils::kLogInfo, "CoreDump init process mem.\n");
  const std::string path = mem_dir_ + "/process_mem_info";
  IndexFile index(path);
  if (!index.IsOpen()) {
    utils::Log(utils::kLogWarning, "Can not Open: %s.\n", path.c_str());
    return false;
  }
  region_index_.clear();
  std::string line;
  while (index.Next(line)) {
    if (line.find("alloc") != std::string::npos) {
      MemInfo region = RegionOf(IndexLine(line), mem_dir_);
      const uint64_t addr = region.addr;
      mem_info_map[addr] = std::move(region);
    }
    if (line.find("gpu:") != std::string::npos) {
      const IndexLine tokens(line);
      const auto gpu_id = static_cast<uint32_t>(tokens.Token(kGpuIdToken));
      mem_info_map[tokens.Address()].gpu_ids.push_back(gpu_id);
    }
  }
  return true;
}

const MemInfo* CoreDumpInfo::RegionAt(uint64_t ptr) {
  if (region_index_.size() != mem_info_map.size()) {
    region_index_.clear();
    uint64_t highest_end = 0;
    for (const auto& [start, region] : mem_info_map) {
      highest_end = std::max(highest_end, region.addr + region.size);
      region_index_.emplace_back(highest_end, &region);
    }
  }
  // Where the highest end passes `ptr` first, that region's own does. Those before it end too soon,
  // those behind it begin no sooner.
  const auto first = std::partition_point(region_index_.begin(), region_index_.end(),
                                          [ptr](const auto& entry) { return entry.first <= ptr; });
  return first != region_index_.end() && first->second->addr <= ptr ? first->second : nullptr;
}

uint64_t CoreDumpInfo::getMemInfo(void* out_buffer, uint64_t size, uint64_t ptr) {
  if (out_buffer == nullptr) {
    return 0;
  }
  const MemInfo* const found = RegionAt(ptr);
  if (found == nullptr) {
    return 0;
  }
  const MemInfo& region = *found;
  const uint64_t wanted = std::min(size, region.addr + region.size - ptr);
  if (wanted == 0) {
    return 0;
  }
  void* snapshot = nullptr;
  size_t snapshot_size = 0;
  if (!MemoryMapFile(region.name.c_str(), &snapshot, &snapshot_size)) {
    utils::Log(utils::kLogError, "mem_name:%s failed\n", region.name.c_str());
    return 0;
  }
  // The system refuses to map an empty file: nothing of the region is there then.
  const CoreImage image(reinterpret_cast<uint64_t>(snapshot),
                        snapshot == MAP_FAILED ? 0 : snapshot_size);
  const uint64_t offset = ptr - region.addr;
  const Bytes bytes = image.Clip(reinterpret_cast<uint64_t>(snapshot) + offset, wanted);
  if (bytes.size() < wanted) {
    damage_.Add(StrFormat("memory snapshot of 0X%lX", region.addr), offset, wanted, bytes.size());
  }
  if (!bytes.empty()) {
    memcpy(out_buffer, bytes.data(), bytes.size());
  }
  if (snapshot != MAP_FAILED) {
    MemoryUnmapFile(snapshot, snapshot_size);
  }
  return bytes.size();
}
