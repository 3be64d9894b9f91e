#include "core_dump_info/wave_text.h"

#include <emmintrin.h>

#include <cstring>

#include "core_dump_info/core_image.h"
#include "core_dump_info/number_text.h"

namespace {

constexpr uint32_t kWordsPerRow = 4;
constexpr size_t kDigits = 8;  // of a 32-bit word

// The four little-endian words at `words`, `words` + `stride` and so on, most significant byte
// first. Loaded one by one: the words of a VGPR row lie 256 bytes apart.
__m128i LoadBigEndian(const unsigned char* words, size_t stride) {
  const auto word = [&](size_t i) {
    return _mm_cvtsi32_si128(static_cast<int>(__builtin_bswap32(LoadU32(words + i * stride))));
  };
  return _mm_unpacklo_epi64(_mm_unpacklo_epi32(word(0), word(1)),
                            _mm_unpacklo_epi32(word(2), word(3)));
}

// The upper-case digits of sixteen nibbles, one a byte.
__m128i HexDigits(__m128i nibbles) {
  const __m128i beyond_nine = _mm_cmpgt_epi8(nibbles, _mm_set1_epi8(9));
  const __m128i letter_gap = _mm_and_si128(beyond_nine, _mm_set1_epi8('A' - '9' - 1));
  return _mm_add_epi8(_mm_add_epi8(nibbles, _mm_set1_epi8('0')), letter_gap);
}

// Writes the digits of four words to `out`, `out` + `step` and so on. SSE2 is part of every x86-64.
void PatchDigits(char* out, size_t step, __m128i words) {
  const __m128i low_nibble = _mm_set1_epi8(0xF);
  const __m128i high = _mm_and_si128(_mm_srli_epi16(words, 4), low_nibble);
  const __m128i low = _mm_and_si128(words, low_nibble);
  const __m128i first_two = HexDigits(_mm_unpacklo_epi8(high, low));
  const __m128i last_two = HexDigits(_mm_unpackhi_epi8(high, low));
  const auto store = [&](size_t i, __m128i digits) {
    _mm_storel_epi64(reinterpret_cast<__m128i*>(out + i * step), digits);
  };
  store(0, first_two);
  store(1, _mm_unpackhi_epi64(first_two, first_two));
  store(2, last_two);
  store(3, _mm_unpackhi_epi64(last_two, last_two));
}

// A register in a row: its name right-aligned in 6 characters, ": 0X", 8 digits.
constexpr size_t kNameWidth = 6;
constexpr size_t kRegisterWidth = kNameWidth + 4 + kDigits;

// An LDS word in a row: " 0X", 8 digits, ":".
constexpr size_t kLdsWordWidth = 3 + kDigits + 1;

}  // namespace

void RegisterRows::MakeTemplate(uint32_t first, uint32_t rows) {
  first_ = first;
  rows_ = rows;
  row_size_ = 1 + kWordsPerRow * kRegisterWidth + 1;
  template_.clear();
  for (uint32_t row = 0; row < rows; ++row) {
    template_ += ' ';
    for (uint32_t column = 0; column < kWordsPerRow; ++column) {
      const std::string name = letter_ + std::to_string(first + row * kWordsPerRow + column);
      template_.append(name.size() < kNameWidth ? kNameWidth - name.size() : 0, ' ');
      template_ += name + ": 0X00000000";
    }
    template_ += '\n';
  }
}

void RegisterRows::Append(uint32_t first, uint32_t rows, const unsigned char* words, size_t stride,
                          std::string& out) {
  if (first != first_ || rows != rows_) {
    MakeTemplate(first, rows);
  }
  char* digits = template_.data() + 1 + kRegisterWidth - kDigits;
  for (uint32_t row = 0; row < rows; ++row) {
    PatchDigits(digits, kRegisterWidth, LoadBigEndian(words, stride));
    digits += row_size_;
    words += kWordsPerRow * stride;
  }
  out += template_;
}

void AppendLdsRows(uint32_t rows, const unsigned char* words, std::string& out) {
  constexpr size_t kWordsWidth = kWordsPerRow * kLdsWordWidth + 1;
  char word_part[kWordsWidth + 1] = " 0X00000000: 0X00000000: 0X00000000: 0X00000000:\n";
  for (uint32_t row = 0; row < rows; ++row) {
    const size_t offset = size_t{row} * kWordsPerRow * sizeof(uint32_t);
    AppendHex(out, offset, 4);
    out += ':';
    PatchDigits(word_part + 3, kLdsWordWidth, LoadBigEndian(words + offset, sizeof(uint32_t)));
    out.append(word_part, kWordsWidth);
  }
}
