#include "core_dump_info/wave_text.h"

#include <emmintrin.h>

#include <algorithm>

#include "core_dump_info/core_image.h"
#include "core_dump_info/number_text.h"

namespace {

constexpr uint32_t kWordsPerRow = 4;
constexpr size_t kDigits = 8;  // of a 32-bit word

// What a row asks the processor to fetch, since a dump is read once and comes from memory: for
// words that lie together those of a recorded wave two lanes on, for a row of saved VGPRs the next
// cache lines, which hold those of the next sixteen lanes. Measured: 3 % of the run over a VM fault
// dump, 8 % of that over a signal dump.
constexpr size_t kAheadOfContiguous = 2048;
constexpr size_t kAheadOfStrided = 64;

void Prefetch(const unsigned char* p) {
  _mm_prefetch(reinterpret_cast<const char*>(p), _MM_HINT_T0);
}

// The four words at `words`, `words` + `stride` and so on, side by side.
__m128i LoadWords(const unsigned char* words, size_t stride) {
  if (stride == sizeof(uint32_t)) {
    Prefetch(words + kAheadOfContiguous);
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(words));
  }
  // One by one: the words of a VGPR row lie 256 bytes apart.
  const auto word = [&](size_t i) {
    const unsigned char* const p = words + i * stride;
    Prefetch(p + kAheadOfStrided);
    return _mm_cvtsi32_si128(static_cast<int>(LoadU32(p)));
  };
  return _mm_unpacklo_epi64(_mm_unpacklo_epi32(word(0), word(1)),
                            _mm_unpacklo_epi32(word(2), word(3)));
}

// Reverses the bytes of each of four words.
__m128i SwapBytes(__m128i words) {
  const __m128i swapped = _mm_or_si128(_mm_slli_epi16(words, 8), _mm_srli_epi16(words, 8));
  constexpr int kSwapHalves = _MM_SHUFFLE(2, 3, 0, 1);
  return _mm_shufflehi_epi16(_mm_shufflelo_epi16(swapped, kSwapHalves), kSwapHalves);
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
  words = SwapBytes(words);
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
constexpr size_t kRegisterRowSize = 1 + kWordsPerRow * kRegisterWidth + 1;

// An LDS word in a row: " 0X", 8 digits, ":". Its row begins with "0X", the offset and ":".
constexpr size_t kLdsWordWidth = 3 + kDigits + 1;
constexpr size_t kLdsRowBytes = kWordsPerRow * sizeof(uint32_t);
constexpr uint32_t kShortOffsetRows = 0x10000 / kLdsRowBytes;
constexpr size_t LdsOffsetWidth(size_t digits) { return 2 + digits + 1; }

RowTemplate LdsTemplate(size_t offset_digits) {
  const size_t offset_width = LdsOffsetWidth(offset_digits);
  return RowTemplate(offset_width + kWordsPerRow * kLdsWordWidth + 1, offset_width + 3,
                     kLdsWordWidth);
}

// Adds rows up to `rows`; the template's first one is row `first_row` of the LDS.
void GrowLdsTemplate(RowTemplate& rows_template, uint32_t first_row, uint32_t rows) {
  for (uint32_t row = rows_template.rows(); row < rows; ++row) {
    AppendHex(rows_template.text(), (first_row + row) * kLdsRowBytes, 4);
    rows_template.text() += ": 0X00000000: 0X00000000: 0X00000000: 0X00000000:\n";
  }
}

}  // namespace

void RowTemplate::Append(uint32_t rows, const unsigned char* words, size_t stride,
                         std::string& out) {
  // In pieces that stay in the first-level cache from patching to appending.
  constexpr uint32_t kRowsPerPiece = 128;
  for (uint32_t first = 0; first < rows; first += kRowsPerPiece) {
    const uint32_t count = std::min(kRowsPerPiece, rows - first);
    char* const piece = text_.data() + first * row_size_;
    char* digits = piece + first_digit_;
    for (uint32_t row = 0; row < count; ++row) {
      PatchDigits(digits, step_, LoadWords(words, stride));
      digits += row_size_;
      words += kWordsPerRow * stride;
    }
    out.append(piece, count * row_size_);
  }
}

RegisterRows::RegisterRows(char letter)
    : letter_(letter), template_(kRegisterRowSize, 1 + kRegisterWidth - kDigits, kRegisterWidth) {}

void RegisterRows::Append(uint32_t first, uint32_t rows, const unsigned char* words, size_t stride,
                          std::string& out) {
  if (first != first_) {
    first_ = first;
    template_.text().clear();
  }
  for (uint32_t row = template_.rows(); row < rows; ++row) {
    std::string& text = template_.text();
    text += ' ';
    for (uint32_t column = 0; column < kWordsPerRow; ++column) {
      const std::string name = letter_ + std::to_string(first + row * kWordsPerRow + column);
      text.append(name.size() < kNameWidth ? kNameWidth - name.size() : 0, ' ');
      text += name + ": 0X00000000";
    }
    text += '\n';
  }
  template_.Append(rows, words, stride, out);
}

LdsRows::LdsRows() : short_offsets_(LdsTemplate(4)), long_offsets_(LdsTemplate(5)) {}

void LdsRows::Append(uint32_t rows, const unsigned char* words, std::string& out) {
  const uint32_t short_rows = std::min(rows, kShortOffsetRows);
  GrowLdsTemplate(short_offsets_, 0, short_rows);
  short_offsets_.Append(short_rows, words, sizeof(uint32_t), out);
  GrowLdsTemplate(long_offsets_, kShortOffsetRows, rows - short_rows);
  long_offsets_.Append(rows - short_rows, words + short_rows * kLdsRowBytes, sizeof(uint32_t), out);
}
