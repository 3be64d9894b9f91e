// One report, written in chunks while it is made.
//
// A report is never held whole: a wave file grows with the number of waves, and first touch of
// fresh memory costs more than formatting into memory that is warm. The text is appended to one
// reused buffer, whose whole blocks are written when it has passed a chunk; what lands on disk is
// what one write would have put there.
//
// Measured with 394 MiB in pieces of one wave: on ext4 chunks of 128 KiB take 85 ms, 256 KiB 80,
// 512 KiB 77, 1 MiB 81; on tmpfs all take 138. Writes that end anywhere instead of at a block's end
// take 6 ms more on ext4, which otherwise gives the file fewer and larger folios.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "file_manager.h"

class ReportFile {
 public:
  enum class Mode { kReplace, kAppend };

  static constexpr size_t kChunkSize = size_t{512} << 10;

  // `chunk_size` is a block, 64 KiB, at least. Nothing reaches the disk before the first Spill that
  // has a chunk, or Close.
  ReportFile(std::string dir, std::string name, Mode mode, size_t chunk_size = kChunkSize);

  // The buffer: append to it, and call Spill now and then.
  std::string& text() { return text_; }

  // Writes the buffer's whole blocks when it has passed the chunk size.
  void Spill() {
    if (text_.size() >= chunk_size_) {
      WriteBlocks();
    }
  }

  // Appends any amount of text, spilling as it goes.
  void Append(std::string_view piece);

  // Begins a report in replace mode again: the next write replaces what was written so far.
  void Restart() {
    text_.clear();
    append_ = false;
    started_ = false;
  }

  // Writes what is left; an empty report gives an empty file. False when the file could not be
  // made; what the disk did not take of it is counted, see GetIncompleteWrites.
  bool Close();

 private:
  static constexpr size_t kBlockSize = size_t{64} << 10;

  void WriteBlocks();
  void Write();

  const std::string dir_;
  const std::string name_;
  const size_t chunk_size_;
  std::string text_;
  std::string tail_;  // what WriteBlocks keeps, its memory reused
  OutputFile file_;
  bool append_;
  bool started_ = false;
};
