// Cut and lying ELF images and environments: the part inside the file is written. The reason record
// lies at 0x80 and the environment at 0xF0.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "analyser_run.h"
#include "core_file_writer.h"
#include "damaged_file.h"

namespace {

using sample::Override;
using sample::Region;

constexpr size_t kEnvOffset = 80;
constexpr size_t kEnvSize = 88;

// ---------------------------------------------------------------------------------------------
// ELF images: the code object record lies at 0xF8, the image of 10 bytes at 0x138

struct ElfCase {
  uint64_t size;  // of the file
  const char* elf;
  const char* damage;
};

class CutElfTest : public testing::TestWithParam<ElfCase> {};

sample::CoreFile OneElf() {
  sample::CoreFile file;
  file.layout = WithLast(Region::kElfs);
  file.code_objects.resize(1);
  file.code_objects[0].elf = "0123456789";
  return file;
}

TEST_P(CutElfTest, TheRestIsWritten) {
  const AnalyserRun run = Analyse(Truncated(sample::CoreFileBytes(OneElf()), GetParam().size));
  ExpectDamage(run, GetParam().damage);
  EXPECT_EQ(run.files.at("codes/code_object_0"), GetParam().elf);
  EXPECT_EQ(run.files.at("codes/code_object_0.info"),
            "Object load addr: 0x0\nObject load size: 0x0\n");
}

constexpr ElfCase kElfCuts[] = {
    {0x138, "", "code_object_0 ELF image: file offset 0X138, wanted 10 bytes, available 0 bytes\n"},
    {0x139, "0",
     "code_object_0 ELF image: file offset 0X138, wanted 10 bytes, available 1 bytes\n"},
    {0x13D, "01234",
     "code_object_0 ELF image: file offset 0X138, wanted 10 bytes, available 5 bytes\n"},
    {0x141, "012345678",
     "code_object_0 ELF image: file offset 0X138, wanted 10 bytes, available 9 bytes\n"},
    {0x142, "0123456789", ""},
};

INSTANTIATE_TEST_SUITE_P(Cuts, CutElfTest, testing::ValuesIn(kElfCuts),
                         [](const auto& row) { return "At" + std::to_string(row.param.size); });

constexpr size_t kElfSize = 24;
constexpr size_t kElfOffset = 56;

struct ElfFieldCase {
  size_t field;
  uint64_t value;
  const char* elf;
  const char* damage;
};

class LyingElfTest : public testing::TestWithParam<ElfFieldCase> {};

TEST_P(LyingElfTest, ThePartInTheFileIsWritten) {
  sample::CoreFile file = OneElf();
  file.overrides = {{.record = Override::Record::kCodeObject,
                     .offset = GetParam().field,
                     .value = GetParam().value}};
  const AnalyserRun run = Analyse(sample::CoreFileBytes(file));
  ExpectDamage(run, GetParam().damage);
  EXPECT_EQ(run.files.at("codes/code_object_0"), GetParam().elf);
}

constexpr ElfFieldCase kLyingElfs[] = {
    {kElfSize, 1, "0", ""},
    {kElfSize, 11, "0123456789",
     "code_object_0 ELF image: file offset 0X138, wanted 11 bytes, available 10 bytes\n"},
    {kElfSize, 0x7FFFFFFF, "0123456789",
     "code_object_0 ELF image: file offset 0X138, wanted 2147483647 bytes, available 10 bytes\n"},
    {kElfSize, 0xFFFFFFFF, "0123456789",
     "code_object_0 ELF image: file offset 0X138, wanted 4294967295 bytes, available 10 bytes\n"},
    {kElfSize, 0x8000000000000000, "0123456789",
     "code_object_0 ELF image: file offset 0X138, wanted 9223372036854775808 bytes, available 10 "
     "bytes\n"},
    {kElfSize, 0xFFFFFFFFFFFFFFFF, "0123456789",
     "code_object_0 ELF image: file offset 0X138, wanted 18446744073709551615 bytes, available 10 "
     "bytes\n"},
    {kElfOffset, 0x13A, "23456789",
     "code_object_0 ELF image: file offset 0X13A, wanted 10 bytes, available 8 bytes\n"},
    {kElfOffset, 0x142, "",
     "code_object_0 ELF image: file offset 0X142, wanted 10 bytes, available 0 bytes\n"},
    {kElfOffset, 0x143, "",
     "code_object_0 ELF image: file offset 0X143, wanted 10 bytes, available 0 bytes\n"},
    {kElfOffset, 0xFFFFFFFFFFFFFFFF, "",
     "code_object_0 ELF image: file offset 0XFFFFFFFFFFFFFFFF, wanted 10 bytes, available 0 "
     "bytes\n"},
};

INSTANTIATE_TEST_SUITE_P(Fields, LyingElfTest, testing::ValuesIn(kLyingElfs), [](const auto& row) {
  return "Field" + std::to_string(row.param.field) + "Is" + std::to_string(row.param.value);
});

// ---------------------------------------------------------------------------------------------
// The environment: 9 bytes at 0xF0, the last of them its terminator

sample::CoreFile OneEnvironment() {
  sample::CoreFile file;
  file.environment = "A=1\nB=2\n";
  return file;
}

struct EnvironmentCase {
  uint64_t size;  // of the file
  const char* text;
  const char* damage;
};

class CutEnvironmentTest : public testing::TestWithParam<EnvironmentCase> {};

TEST_P(CutEnvironmentTest, TheRestIsWritten) {
  const AnalyserRun run =
      Analyse(Truncated(sample::CoreFileBytes(OneEnvironment()), GetParam().size));
  ExpectDamage(run, GetParam().damage);
  EXPECT_EQ(run.files.at("environment"), GetParam().text);
}

constexpr EnvironmentCase kEnvironmentCuts[] = {
    {0xF0, "", "environment: file offset 0XF0, wanted 9 bytes, available 0 bytes\n"},
    {0xF1, "A", "environment: file offset 0XF0, wanted 9 bytes, available 1 bytes\n"},
    {0xF4, "A=1\n", "environment: file offset 0XF0, wanted 9 bytes, available 4 bytes\n"},
    {0xF8, "A=1\nB=2\n", "environment: file offset 0XF0, wanted 9 bytes, available 8 bytes\n"},
    {0xF9, "A=1\nB=2\n", ""},
};

INSTANTIATE_TEST_SUITE_P(Cuts, CutEnvironmentTest, testing::ValuesIn(kEnvironmentCuts),
                         [](const auto& row) { return "At" + std::to_string(row.param.size); });

// The text ends at its terminator whatever the size says, so a size is only asked when there is no
// terminator.
struct EnvironmentFieldCase {
  size_t field;
  uint64_t value;
  const char* text;
  const char* damage;
};

class LyingEnvironmentTest : public testing::TestWithParam<EnvironmentFieldCase> {};

TEST_P(LyingEnvironmentTest, ThePartInTheFileIsWritten) {
  sample::CoreFile file = OneEnvironment();
  file.overrides = {{.offset = GetParam().field, .value = GetParam().value}};
  const AnalyserRun run = Analyse(sample::CoreFileBytes(file));
  ExpectDamage(run, GetParam().damage);
  EXPECT_EQ(run.files.at("environment"), GetParam().text);
}

constexpr EnvironmentFieldCase kLyingEnvironments[] = {
    {kEnvSize, 0, "A=1\nB=2\n", ""},
    {kEnvSize, 0x7FFFFFFF, "A=1\nB=2\n", ""},
    {kEnvSize, 0xFFFFFFFFFFFFFFFF, "A=1\nB=2\n", ""},
    {kEnvOffset, 0xF4, "B=2\n", ""},
    {kEnvOffset, 0xF9, "", "environment: file offset 0XF9, wanted 9 bytes, available 0 bytes\n"},
    {kEnvOffset, 0xFA, "", "environment: file offset 0XFA, wanted 9 bytes, available 0 bytes\n"},
    {kEnvOffset, 0x7FFFFFFF, "",
     "environment: file offset 0X7FFFFFFF, wanted 9 bytes, available 0 bytes\n"},
    {kEnvOffset, 0xFFFFFFFFFFFFFFFF, "",
     "environment: file offset 0XFFFFFFFFFFFFFFFF, wanted 9 bytes, available 0 bytes\n"},
};

INSTANTIATE_TEST_SUITE_P(Fields, LyingEnvironmentTest, testing::ValuesIn(kLyingEnvironments),
                         [](const auto& row) {
                           return "Field" + std::to_string(row.param.field) + "Is" +
                                  std::to_string(row.param.value);
                         });

}  // namespace
