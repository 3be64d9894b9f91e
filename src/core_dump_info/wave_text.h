// Rows of registers to text, fast: nearly all of the bytes of a dump tree are these rows.
//
// A row shows four 32-bit words, "     v0: 0X0000002A    v1: 0X..." or "0X0010: 0X0000002A: ...".
// Its names, offsets and separators do not change from lane to lane and from wave to wave, so rows
// are kept as a template in which only the digits are patched. Measured with benchmarks/ on one
// wave of 128 VGPRs: 90 times the speed of one snprintf per row, half that of memcpy of the
// finished text. Whole runs take 8 to 15 % less with SSE2 than with a table of digit pairs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// Rows of the same width, of which the first so many can be had at any time.
class RowTemplate {
 public:
  // In each row the digits of the first word begin at `first_digit`, those of the next word `step`
  // bytes further.
  RowTemplate(size_t row_size, size_t first_digit, size_t step)
      : row_size_(row_size), first_digit_(first_digit), step_(step) {}

  uint32_t rows() const { return static_cast<uint32_t>(text_.size() / row_size_); }
  // The text to add rows to, with eight digits of any value for each word.
  std::string& text() { return text_; }

  // Appends the first `rows` rows. The k-th word is the little-endian one at `words` + k * `stride`
  // bytes, at any alignment.
  void Append(uint32_t rows, const unsigned char* words, size_t stride, std::string& out);

 private:
  const size_t row_size_;
  const size_t first_digit_;
  const size_t step_;
  std::string text_;
};

// The rows of one register file: "s" or "v" and a number.
class RegisterRows {
 public:
  explicit RegisterRows(char letter);

  // Appends `rows` rows of four registers, named from `first` on; words as for RowTemplate. Only
  // another `first` than the call before, or more rows than ever, make template rows anew. Register
  // numbers stay below 100000, beyond which a name is wider than its column.
  void Append(uint32_t first, uint32_t rows, const unsigned char* words, size_t stride,
              std::string& out);

 private:
  const char letter_;
  uint32_t first_ = 0;
  RowTemplate template_;
};

// The rows of a work-group's LDS: the byte offset, then each word followed by a colon.
class LdsRows {
 public:
  LdsRows();

  // Appends the first `rows` rows of the words at `words`. Offsets stay below 1 MiB, beyond which
  // they are wider than their column; the format gives a work-group 256 KiB at most.
  void Append(uint32_t rows, const unsigned char* words, std::string& out);

 private:
  RowTemplate short_offsets_;  // of four digits
  RowTemplate long_offsets_;   // of five, from 64 KiB on
};

// The templates of a run.
struct WaveText {
  RegisterRows sgprs{'s'};
  RegisterRows vgprs{'v'};
  RegisterRows second_bank{'v'};
  LdsRows lds;
};
