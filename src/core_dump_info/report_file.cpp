#include "core_dump_info/report_file.h"

#include <utility>

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
  const bool is_made = file_.is_open();
  file_.Close();
  return is_made;
}

void ReportFile::WriteBlocks() {
  const size_t whole = text_.size() / kBlockSize * kBlockSize;
  tail_.assign(text_, whole);
  text_.resize(whole);
  Write();
  text_ = tail_;
}

void ReportFile::Write() {
  if (!started_) {
    started_ = true;
    file_.Open(dir_, name_, append_);
  }
  file_.Write(text_);
  text_.clear();
}
