// Compares texts of thousands of lines, for which the diff of EXPECT_EQ takes minutes.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

// Fails with the first line in which the two differ.
inline testing::AssertionResult SameText(const std::string& actual, const std::string& expected) {
  if (actual == expected) {
    return testing::AssertionSuccess();
  }
  const auto place =
      std::mismatch(actual.begin(), actual.end(), expected.begin(), expected.end()).first;
  const auto line_number = std::count(actual.begin(), place, '\n') + 1;
  const auto begin = static_cast<size_t>(place - actual.begin());
  const size_t line_begin = begin == 0 ? 0 : actual.rfind('\n', begin - 1) + 1;
  const auto line_of = [line_begin](const std::string& text) {
    return text.substr(line_begin, text.find('\n', line_begin) - line_begin);
  };
  return testing::AssertionFailure()
         << "texts of " << actual.size() << " and " << expected.size() << " bytes differ in line "
         << line_number << "\n  actual: \"" << line_of(actual) << "\"\nexpected: \""
         << line_of(expected) << '"';
}
