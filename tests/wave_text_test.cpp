// The rows of registers against a row made with printf.
#include "core_dump_info/wave_text.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "same_text.h"
#include "utils.h"

namespace {

constexpr size_t kLanes = 64;
constexpr size_t kWordSize = 4;
constexpr size_t kVgprStride = kLanes * kWordSize;

// A copy of `words` in a block of exactly their size behind `misalignment` bytes, so that the
// sanitizers see every read beside them.
class ExactWords {
 public:
  explicit ExactWords(const std::vector<uint32_t>& words, size_t misalignment = 0)
      : misalignment_(misalignment),
        bytes_(new unsigned char[misalignment + kWordSize * words.size()]) {
    std::copy_n(reinterpret_cast<const unsigned char*>(words.data()), kWordSize * words.size(),
                bytes_.get() + misalignment_);
  }

  // Where the words from `first` on lie.
  const unsigned char* data(size_t first = 0) const {
    return bytes_.get() + misalignment_ + kWordSize * first;
  }

 private:
  size_t misalignment_;
  std::unique_ptr<unsigned char[]> bytes_;
};

std::vector<uint32_t> RandomWords(size_t count, uint32_t seed) {
  std::mt19937 random(seed);
  std::vector<uint32_t> words(count);
  for (uint32_t& word : words) {
    word = static_cast<uint32_t>(random());
  }
  return words;
}

// `rows` rows of four registers named from `first` on; the k-th is words[k * stride + start].
std::string ExpectedRegisters(char letter, uint32_t first, uint32_t rows,
                              const std::vector<uint32_t>& words, size_t start, size_t stride) {
  std::string text;
  for (uint32_t row = 0; row < rows; ++row) {
    text += " ";
    for (uint32_t k = 4 * row; k < 4 * row + 4; ++k) {
      text += StrFormat("%6s: 0X%08X", StrFormat("%c%u", letter, first + k).c_str(),
                        words.at(start + k * stride));
    }
    text += "\n";
  }
  return text;
}

std::string ExpectedLds(uint32_t rows, const std::vector<uint32_t>& words) {
  std::string text;
  for (uint32_t row = 0; row < rows; ++row) {
    text += StrFormat("0X%04X:", 16 * row);
    for (uint32_t k = 4 * row; k < 4 * row + 4; ++k) {
      text += StrFormat(" 0X%08X:", words.at(k));
    }
    text += "\n";
  }
  return text;
}

TEST(RegisterRowsTest, OneRow) {
  const ExactWords words({0x0123ABCD, 0, 0xFFFFFFFF, 0x00000009});
  RegisterRows rows('v');
  std::string text;
  rows.Append(0, 1, words.data(), kWordSize, text);
  EXPECT_EQ(text, "     v0: 0X0123ABCD    v1: 0X00000000    v2: 0XFFFFFFFF    v3: 0X00000009\n");
}

TEST(RegisterRowsTest, NoRows) {
  RegisterRows rows('s');
  std::string text = "before";
  rows.Append(0, 0, nullptr, 4, text);
  EXPECT_EQ(text, "before");
}

TEST(RegisterRowsTest, RowsAreAppended) {
  const ExactWords words({1, 2, 3, 4});
  RegisterRows rows('s');
  std::string text = "before\n";
  rows.Append(0, 1, words.data(), kWordSize, text);
  EXPECT_EQ(text,
            "before\n"
            "     s0: 0X00000001    s1: 0X00000002    s2: 0X00000003    s3: 0X00000004\n");
}

// Every byte value at every place of a word.
TEST(RegisterRowsTest, EveryDigitAtEveryPlace) {
  std::vector<uint32_t> words;
  for (uint32_t byte = 0; byte < 256; ++byte) {
    for (const int shift : {0, 8, 16, 24}) {
      words.push_back(byte << shift);
    }
  }
  const ExactWords exact(words);
  RegisterRows rows('s');
  std::string text;
  rows.Append(0, 256, exact.data(), kWordSize, text);
  EXPECT_TRUE(SameText(text, ExpectedRegisters('s', 0, 256, words, 0, 1)));
}

class RegisterCountTest : public testing::TestWithParam<uint32_t> {};

TEST_P(RegisterCountTest, OfAllLanes) {
  const uint32_t count = GetParam();
  const std::vector<uint32_t> words = RandomWords(kLanes * count, count);
  const ExactWords exact(words);
  RegisterRows rows('v');
  std::string text;
  std::string expected;
  for (size_t lane = 0; lane < kLanes; ++lane) {
    rows.Append(0, count / 4, exact.data(lane), kVgprStride, text);
    expected += ExpectedRegisters('v', 0, count / 4, words, lane, kLanes);
  }
  EXPECT_TRUE(SameText(text, expected));
}

TEST_P(RegisterCountTest, OneBehindTheOther) {
  const uint32_t count = GetParam();
  const std::vector<uint32_t> words = RandomWords(count, count);
  const ExactWords exact(words);
  RegisterRows rows('s');
  std::string text;
  rows.Append(0, count / 4, exact.data(), kWordSize, text);
  EXPECT_TRUE(SameText(text, ExpectedRegisters('s', 0, count / 4, words, 0, 1)));
}

TEST_P(RegisterCountTest, NamedFromAnotherNumber) {
  const uint32_t count = GetParam();
  const std::vector<uint32_t> words = RandomWords(count, count + 1);
  const ExactWords exact(words);
  RegisterRows rows('v');
  std::string text;
  rows.Append(count, count / 4, exact.data(), kWordSize, text);
  EXPECT_TRUE(SameText(text, ExpectedRegisters('v', count, count / 4, words, 0, 1)));
}

// 512 is the most that a wave can have, 2048 more than any one piece of a template.
INSTANTIATE_TEST_SUITE_P(Counts, RegisterCountTest,
                         testing::Values(0, 4, 8, 12, 16, 24, 96, 100, 104, 112, 128, 252, 256, 260,
                                         264, 508, 512, 516, 1024, 2048));

TEST(RegisterRowsTest, WordsAtAnyAlignment) {
  const std::vector<uint32_t> words = RandomWords(8 * kLanes, 8);
  for (size_t misalignment = 0; misalignment < 16; ++misalignment) {
    const ExactWords exact(words, misalignment);
    RegisterRows rows('v');
    std::string text;
    rows.Append(0, 2, exact.data(63), kVgprStride, text);
    EXPECT_TRUE(SameText(text, ExpectedRegisters('v', 0, 2, words, 63, kLanes))) << misalignment;
  }
}

TEST(RegisterRowsTest, NamesUpToTheWidthOfTheirColumn) {
  const std::vector<uint32_t> words = RandomWords(16, 1);
  const ExactWords exact(words);
  for (const uint32_t first : {6u, 96u, 996u, 9992u, 99984u}) {
    RegisterRows rows('v');
    std::string text;
    rows.Append(first, 4, exact.data(), kWordSize, text);
    EXPECT_TRUE(SameText(text, ExpectedRegisters('v', first, 4, words, 0, 1))) << first;
  }
}

// Calls in any order, as waves of different sizes make them.
TEST(RegisterRowsTest, EveryCallIsIndependentOfTheOnesBefore) {
  std::mt19937 random(20240229);
  const std::vector<uint32_t> words = RandomWords(1200, 7);
  const ExactWords exact(words);
  RegisterRows rows('v');
  for (int call = 0; call < 300; ++call) {
    const auto count = static_cast<uint32_t>(random() % 300);
    const uint32_t first = random() % 2 == 0 ? 0 : static_cast<uint32_t>(random() % 600);
    std::string text;
    rows.Append(first, count, exact.data(), kWordSize, text);
    ASSERT_TRUE(SameText(text, ExpectedRegisters('v', first, count, words, 0, 1)))
        << "call " << call << ", first " << first << ", rows " << count;
  }
}

TEST(LdsRowsTest, OneRow) {
  const ExactWords words({0x0123ABCD, 0, 0xFFFFFFFF, 0x00000009});
  WaveText wave_text;
  std::string text = "before\n";
  wave_text.lds.Append(1, words.data(), text);
  EXPECT_EQ(text, "before\n0X0000: 0X0123ABCD: 0X00000000: 0XFFFFFFFF: 0X00000009:\n");
}

TEST(LdsRowsTest, NoRows) {
  WaveText wave_text;
  std::string text = "before";
  wave_text.lds.Append(0, nullptr, text);
  EXPECT_EQ(text, "before");
}

class LdsRowCountTest : public testing::TestWithParam<uint32_t> {};

TEST_P(LdsRowCountTest, AtAnyAlignment) {
  const std::vector<uint32_t> words = RandomWords(size_t{4} * GetParam(), GetParam());
  for (const size_t misalignment : {0u, 1u, 2u, 3u}) {
    const ExactWords exact(words, misalignment);
    WaveText wave_text;
    std::string text;
    wave_text.lds.Append(GetParam(), exact.data(), text);
    EXPECT_TRUE(SameText(text, ExpectedLds(GetParam(), words))) << misalignment;
  }
}

// Offsets have five digits from row 4096 on; 16352 rows are the most that a work-group can have.
INSTANTIATE_TEST_SUITE_P(Counts, LdsRowCountTest,
                         testing::Values(1, 32, 127, 128, 129, 4095, 4096, 4097, 4300, 16352));

TEST(LdsRowsTest, EveryCallIsIndependentOfTheOnesBefore) {
  const std::vector<uint32_t> words = RandomWords(20000, 9);
  const ExactWords exact(words);
  WaveText wave_text;
  for (const uint32_t rows : {5000u, 1u, 4097u, 4096u, 32u, 4999u, 0u, 5000u}) {
    std::string text;
    wave_text.lds.Append(rows, exact.data(), text);
    ASSERT_TRUE(SameText(text, ExpectedLds(rows, words))) << rows;
  }
}

// The register files of a wave do not share what they keep.
TEST(WaveTextTest, RegisterFilesOfOneWave) {
  const std::vector<uint32_t> words = RandomWords(32, 3);
  const ExactWords exact(words);
  WaveText wave_text;
  std::string text;
  wave_text.sgprs.Append(0, 2, exact.data(), kWordSize, text);
  wave_text.vgprs.Append(0, 3, exact.data(), kWordSize, text);
  wave_text.second_bank.Append(12, 3, exact.data(), kWordSize, text);
  wave_text.vgprs.Append(0, 3, exact.data(1), kWordSize, text);
  wave_text.second_bank.Append(12, 3, exact.data(1), kWordSize, text);
  EXPECT_TRUE(SameText(text, ExpectedRegisters('s', 0, 2, words, 0, 1) +
                                 ExpectedRegisters('v', 0, 3, words, 0, 1) +
                                 ExpectedRegisters('v', 12, 3, words, 0, 1) +
                                 ExpectedRegisters('v', 0, 3, words, 1, 1) +
                                 ExpectedRegisters('v', 12, 3, words, 1, 1)));
}

}  // namespace
