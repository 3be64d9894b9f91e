// Numbers to text, appended without a format string. A report line made this way costs a tenth of a
// snprintf; the packet decoders and the wave reports write millions of them.
#pragma once

#include <charconv>
#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>

// Appends an integer in decimal, like "%d" or "%u" of its type.
template <std::integral Integer>
void AppendDecimal(std::string& out, Integer value) {
  char digits[24];
  const auto end = std::to_chars(digits, digits + sizeof(digits), value).ptr;
  out.append(digits, end);
}

// Appends "0X" and the value in upper-case hexadecimal, filled with zeros to `min_digits`, like
// "0X%lX" or "0X%08X".
inline void AppendHex(std::string& out, uint64_t value, int min_digits = 1) {
  char text[18];  // "0X" and at most 16 digits, made from the last one on
  char* const end = text + sizeof(text);
  char* first = end;
  do {
    *--first = "0123456789ABCDEF"[value & 0xF];
    value >>= 4;
    --min_digits;
  } while (value != 0 || min_digits > 0);
  *--first = 'X';
  *--first = '0';
  out.append(first, end);
}

// Appends `label`, the value as "0X%lX" or "0X%0*X", and a line feed.
inline void AppendHexLine(std::string& out, std::string_view label, uint64_t value,
                          int min_digits = 1) {
  out += label;
  AppendHex(out, value, min_digits);
  out += '\n';
}
