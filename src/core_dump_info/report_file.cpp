#include "core_dump_info/report_file.h"

#include <utility>

#include "file_manager.h"

ReportFile::ReportFile(std::string dir, std::string name, Mode mode, size_t chunk_size)
    : dir_(std::move(dir)),
      name_(std::move(name)),
      chunk_size_(chunk_size),
      append_(mode == Mode::kAppend) {}

void ReportFile::Append(std::string_view piece) {
  while (!piece.empty()) {
    const std::string_view part = piece.substr(0, chunk_size_);
    text_ += part;
    piece.remove_prefix(part.size());
    Spill();
  }
}

bool ReportFile::Close() {
  if (!started_ || !text_.empty()) {
    Write();
  }
  return !failed_;
}

void ReportFile::Write() {
  started_ = true;
  if (!failed_ && !WriteTextFile(dir_, name_, text_, append_)) {
    failed_ = true;
  }
  append_ = true;
  text_.clear();
}
