// One report, written in chunks while it is made.
//
// A report is never held whole: a wave file grows with the number of waves, and first touch of
// fresh memory costs more than formatting into memory that is warm. The text is appended to one
// reused buffer, which goes to WriteTextFile whenever it passes kChunkSize; what lands on disk is
// what one write would have put there.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

class ReportFile {
 public:
  enum class Mode { kReplace, kAppend };

  static constexpr size_t kChunkSize = size_t{1} << 20;

  // Nothing reaches the disk before the first Spill that has a chunk, or Close.
  ReportFile(std::string dir, std::string name, Mode mode, size_t chunk_size = kChunkSize);

  // The buffer: append to it, and call Spill now and then.
  std::string& text() { return text_; }

  // Writes the buffer when it has passed the chunk size.
  void Spill() {
    if (text_.size() >= chunk_size_) {
      Write();
    }
  }

  // Appends any amount of text, spilling as it goes.
  void Append(std::string_view piece);

  // Begins a report in replace mode again: the next write replaces what was written so far.
  void Restart() {
    text_.clear();
    append_ = false;
  }

  // Writes what is left; an empty report gives an empty file. True when every write succeeded.
  // After a failed one nothing more is written.
  bool Close();

  // Whether anything was handed to the disk yet.
  bool started() const { return started_; }

 private:
  void Write();

  const std::string dir_;
  const std::string name_;
  const size_t chunk_size_;
  std::string text_;
  bool append_;
  bool started_ = false;
  bool failed_ = false;
};
