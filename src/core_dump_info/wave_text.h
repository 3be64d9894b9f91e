// Rows of registers to text, fast: nearly all of the bytes of a dump tree are these rows.
//
// A row shows four registers, "     v0: 0X0000002A    v1: 0X..." and so on. Its names and
// separators do not change from lane to lane and from wave to wave, so the rows of a lane are kept
// as a template in which only the digits are patched, sixteen at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// The rows of one register file.
class RegisterRows {
 public:
  explicit RegisterRows(char letter) : letter_(letter) {}

  // Appends `rows` rows of four registers, named from `letter``first` on. The value of the k-th one
  // is the little-endian 32-bit word at `words` + k * `stride` bytes, at any alignment. Only rows
  // of another `first` or `rows` than the call before make the template anew. Register numbers stay
  // below 100000, beyond which a name is wider than its column.
  void Append(uint32_t first, uint32_t rows, const unsigned char* words, size_t stride,
              std::string& out);

 private:
  void MakeTemplate(uint32_t first, uint32_t rows);

  char letter_;
  uint32_t first_ = 0;
  uint32_t rows_ = 0;
  size_t row_size_ = 0;   // bytes of a row, line feed included
  std::string template_;  // the rows, with the digits of whoever came last
};

// The templates of a run.
struct WaveText {
  RegisterRows sgprs{'s'};
  RegisterRows vgprs{'v'};
  RegisterRows second_bank{'v'};
};

// Appends `rows` rows of four LDS words: the byte offset, then each word followed by a colon.
void AppendLdsRows(uint32_t rows, const unsigned char* words, std::string& out);
