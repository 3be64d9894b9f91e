// The ELF reader of the sample program, on an image made by hand and on damaged copies of it.
#include "kernel_elf.h"

#include <gtest/gtest.h>

#include <string>

#include "core_file_writer.h"

namespace sample {
namespace {

// One loaded segment (file 0x100..0x140 at address 0x1100, 0x80 bytes in memory) that holds the
// kernel descriptor, a symbol table at 0x200 with its names at 0x300, section headers at 0x400.
constexpr size_t kSegmentHeader = 0x40;
constexpr size_t kSymbols = 0x200;
constexpr size_t kSections = 0x400;

void PutSymbol(std::string& elf, size_t index, uint32_t name, uint8_t info, uint16_t section,
               uint64_t address, uint64_t size) {
  const size_t at = kSymbols + 24 * index;
  PutU32(elf, at, name);
  elf[at + 4] = static_cast<char>(info);
  PutU16(elf, at + 6, section);
  PutU64(elf, at + 8, address);
  PutU64(elf, at + 16, size);
}

void PutSection(std::string& elf, size_t index, uint32_t type, uint64_t offset, uint64_t size,
                uint32_t link) {
  const size_t at = kSections + 64 * index;
  PutU32(elf, at + 4, type);
  PutU64(elf, at + 24, offset);
  PutU64(elf, at + 32, size);
  PutU32(elf, at + 40, link);
}

std::string SmallElf() {
  std::string elf(kSections + 3 * 64, '\0');
  elf.replace(0, 6,
              std::string("\x7F"
                          "ELF\x02\x01",
                          6));
  PutU64(elf, 32, kSegmentHeader);
  PutU64(elf, 40, kSections);
  PutU16(elf, 56, 1);
  PutU16(elf, 60, 3);

  PutU32(elf, kSegmentHeader, 1);
  PutU64(elf, kSegmentHeader + 8, 0x100);
  PutU64(elf, kSegmentHeader + 16, 0x1100);
  PutU64(elf, kSegmentHeader + 32, 0x40);
  PutU64(elf, kSegmentHeader + 40, 0x80);
  PutU32(elf, 0x120, 1024);  // the descriptor's first word

  const std::string names("\0scale\0scale.kd\0helper\0extern", 29);
  elf.replace(0x300, names.size(), names);
  PutSymbol(elf, 1, 1, 0x12, 7, 0x1130, 0x10);  // scale, a function
  PutSymbol(elf, 2, 7, 0x11, 6, 0x1120, 0x40);  // scale.kd, an object
  PutSymbol(elf, 3, 16, 0x02, 7, 0x1140, 0x8);  // helper, a local function
  PutSymbol(elf, 4, 23, 0x12, 0, 0, 0);         // extern, a function defined elsewhere
  PutSection(elf, 1, 2, kSymbols, 5 * 24, 2);
  PutSection(elf, 2, 3, 0x300, 29, 0);
  return elf;
}

TEST(KernelElf, FunctionsAndLoadedSize) {
  ElfImage image;
  std::string error;
  ASSERT_TRUE(ReadElf(SmallElf(), image, error)) << error;
  EXPECT_EQ(image.loaded_size, 0x1180u);
  ASSERT_EQ(image.functions.size(), 2u);
  EXPECT_EQ(image.functions[0].name, "scale");
  EXPECT_EQ(image.functions[0].address, 0x1130u);
  EXPECT_EQ(image.functions[0].size, 0x10u);
  EXPECT_EQ(image.functions[0].lds_bytes, 1024u);
  EXPECT_EQ(image.functions[1].name, "helper");
  EXPECT_EQ(image.functions[1].address, 0x1140u);
  EXPECT_EQ(image.functions[1].lds_bytes, 0u);
}

TEST(KernelElf, DynamicSymbolsServeWhenThereAreNoOthers) {
  std::string elf = SmallElf();
  PutU32(elf, kSections + 64 + 4, 11);
  ElfImage image;
  std::string error;
  ASSERT_TRUE(ReadElf(elf, image, error)) << error;
  EXPECT_EQ(image.functions.size(), 2u);
}

TEST(KernelElf, NoSymbolTableMeansNoFunctions) {
  std::string elf = SmallElf();
  PutU32(elf, kSections + 64 + 4, 1);
  ElfImage image;
  std::string error;
  ASSERT_TRUE(ReadElf(elf, image, error)) << error;
  EXPECT_EQ(image.functions.size(), 0u);
  EXPECT_EQ(image.loaded_size, 0x1180u);
}

TEST(KernelElf, DescriptorOutsideEverySegmentGivesNoLds) {
  std::string elf = SmallElf();
  PutU64(elf, kSymbols + 2 * 24 + 8, 0x113D);  // its first word ends a byte behind the file bytes
  ElfImage image;
  std::string error;
  ASSERT_TRUE(ReadElf(elf, image, error)) << error;
  EXPECT_EQ(image.functions[0].lds_bytes, 0u);
}

TEST(KernelElf, SegmentBehindTheFileGivesNoLds) {
  std::string elf = SmallElf();
  PutU64(elf, kSegmentHeader + 8, 0xFFFFFFFFFFFFFFF0);
  ElfImage image;
  std::string error;
  ASSERT_TRUE(ReadElf(elf, image, error)) << error;
  EXPECT_EQ(image.functions[0].lds_bytes, 0u);
}

TEST(KernelElf, NameOutsideTheNamesIsEmpty) {
  std::string elf = SmallElf();
  PutU32(elf, kSymbols + 24, 29);
  ElfImage image;
  std::string error;
  ASSERT_TRUE(ReadElf(elf, image, error)) << error;
  EXPECT_EQ(image.functions[0].name, "");
}

TEST(KernelElf, NameEndsWithTheNames) {
  std::string elf = SmallElf();
  PutU32(elf, kSymbols + 24, 24);  // "xtern", which no zero byte ends inside the names
  ElfImage image;
  std::string error;
  ASSERT_TRUE(ReadElf(elf, image, error)) << error;
  EXPECT_EQ(image.functions[0].name, "xtern");
}

struct Damage {
  const char* name;
  size_t offset;
  uint64_t value;
  const char* error;
};

class DamagedElf : public testing::TestWithParam<Damage> {};

TEST_P(DamagedElf, SaysWhatIsWrong) {
  std::string elf = SmallElf();
  PutU64(elf, GetParam().offset, GetParam().value);
  ElfImage image;
  std::string error;
  EXPECT_FALSE(ReadElf(elf, image, error));
  EXPECT_EQ(error, GetParam().error);
}

INSTANTIATE_TEST_SUITE_P(
    KernelElf, DamagedElf,
    testing::Values(
        Damage{"Magic", 0, 0,
               "expected a little-endian ELF64 image at offset 0, found something else"},
        Damage{"Class32", 0, 0x0101464C457F,
               "expected a little-endian ELF64 image at offset 0, found something else"},
        Damage{"BigEndian", 0, 0x0202464C457F,
               "expected a little-endian ELF64 image at offset 0, found something else"},
        Damage{
            "ProgramHeaders", 32, 0xFFFFFFFFFFFFFFFF,
            "1 program headers at offset 0xffffffffffffffff do not fit into a file of 1216 bytes"},
        Damage{"SectionHeaders", 40, 0x401,
               "3 section headers at offset 0x401 do not fit into a file of 1216 bytes"},
        Damage{"SymbolsOffset", kSections + 64 + 24, 0x450,
               "5 symbols at offset 0x450 do not fit into a file of 1216 bytes"},
        Damage{"SymbolsSize", kSections + 64 + 32, 0xFFFFFFFFFFFFFFF8,
               "768614336404564650 symbols at offset 0x200 do not fit into a file of 1216 bytes"},
        Damage{"Link", kSections + 64 + 40, 3,
               "found section 3 as the symbol names, expected one below 3"},
        Damage{"Names", kSections + 128 + 32, 0x1C1,
               "449 bytes of symbol names at offset 0x300 do not fit into a file of 1216 bytes"}),
    [](const auto& damage) { return std::string(damage.param.name); });

// The section headers come last, so that every cut takes part of something.
TEST(KernelElf, EveryTruncationFails) {
  const std::string elf = SmallElf();
  for (size_t size = 0; size < elf.size(); ++size) {
    ElfImage image;
    std::string error;
    EXPECT_FALSE(ReadElf(elf.substr(0, size), image, error)) << size;
    EXPECT_NE(error, "") << size;
  }
}

TEST(KernelElf, EmptyFile) {
  ElfImage image;
  std::string error;
  EXPECT_FALSE(ReadElf("", image, error));
  EXPECT_EQ(error, "found 0 bytes, expected an ELF header of 64 at offset 0");
}

}  // namespace
}  // namespace sample
