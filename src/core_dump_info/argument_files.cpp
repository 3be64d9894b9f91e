#include "core_dump_info/argument_files.h"

#include <utility>

#include "file_manager.h"

namespace {

constexpr char kSuffix[] = "_args";
constexpr size_t kMostWaiting = 1024;  // of at most 4 KiB each

}  // namespace

ArgumentFiles::ArgumentFiles(std::string dir)
    : dir_(std::move(dir)), longest_name_(LongestFileName(dir_)) {}

ArgumentFiles::~ArgumentFiles() { Write(); }

bool ArgumentFiles::CanHold(std::string_view kernel) const {
  return !kernel.empty() && kernel != "." && kernel != ".." &&
         kernel.find('/') == std::string_view::npos &&
         kernel.size() + sizeof(kSuffix) - 1 <= longest_name_;
}

void ArgumentFiles::Set(std::string_view kernel, std::string_view arguments) {
  waiting_[std::string(kernel) + kSuffix] = arguments;
  if (waiting_.size() == kMostWaiting) {
    Write();
  }
}

void ArgumentFiles::Write() {
  for (const auto& [name, arguments] : waiting_) {
    WriteBinFile(dir_, name, reinterpret_cast<uint64_t>(arguments.data()), arguments.size());
  }
  waiting_.clear();
}
