// The sizes and numbers of the format, its versions and its magic words.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "captured_output.h"
#include "core_dump_info.h"
#include "core_file_writer.h"
#include "loader_fixture.h"
#include "row_name.h"
#include "temp_dir.h"

namespace {

using sample::CoreFile;
using Names = std::vector<std::string>;

// ---------------------------------------------------------------------------------------------
// Enumerations and records as the format has them

TEST(CoreFileFormat, Enumerations) {
  EXPECT_EQ(CORE_DUMP_QUEUE_ERROR, 0u);
  EXPECT_EQ(CORE_DUMP_VM_FAULT, 1u);
  EXPECT_EQ(CORE_DUMP_SIGNAL, 2u);
  EXPECT_EQ(QUEUE_TYPE_COMPUTE, 0u);
  EXPECT_EQ(QUEUE_TYPE_SDMA, 1u);
  EXPECT_EQ(QUEUE_TYPE_COMPUTE_AQL, 2u);
  EXPECT_EQ(QUEUE_TYPE_SDMA_XGMI, 3u);
  EXPECT_EQ(AQL_TYPE_VENDOR_SPECIFIC, 0u);
  EXPECT_EQ(AQL_TYPE_INVALID, 1u);
  EXPECT_EQ(AQL_TYPE_KERNEL_DISPATCH, 2u);
  EXPECT_EQ(AQL_TYPE_BARRIER_AND, 3u);
  EXPECT_EQ(AQL_TYPE_AGENT_DISPATCH, 4u);
  EXPECT_EQ(AQL_TYPE_BARRIER_OR, 5u);
  EXPECT_EQ(AQL_TYPE_RESERVED, 6u);
  EXPECT_EQ(GFX_VERSION_OSPREY, 0x90006u);
  EXPECT_EQ(GFX_VERSION_HERON, 0x90106u);
  EXPECT_EQ(GFX_VERSION_KESTREL, 0x90206u);
  EXPECT_EQ(GFX_VERSION_PLOVER, 0x90208u);
  EXPECT_EQ(GFX_VERSION_WREN, 0x90306u);
  EXPECT_EQ(GFX_VERSION_FINCH, 0x90308u);
}

TEST(CoreFileFormat, RecordSizes) {
  EXPECT_EQ(sizeof(CoreDumpHeaderV0), 88u);
  EXPECT_EQ(sizeof(CoreDumpHeaderV1), 128u);
  EXPECT_EQ(sizeof(CoreDumpReasonInfo), 112u);
  EXPECT_EQ(sizeof(CoreDumpAgent), 1112u);
  EXPECT_EQ(sizeof(CoreDumpQueue), 144u);
  EXPECT_EQ(sizeof(CoreDumpCodeObject), 64u);
  EXPECT_EQ(sizeof(KernelInfo), 1032u);
  EXPECT_EQ(sizeof(WaveInfo), 69696u);
}

// ---------------------------------------------------------------------------------------------
// Versions

struct VersionCase {
  const char* name;
  std::array<uint32_t, 3> fields;  // major, minor, patch
  uint32_t full_version;
};

void PrintTo(const VersionCase& row, std::ostream* out) { *out << row.name; }

class LoaderVersionTest : public LoaderTest, public testing::WithParamInterface<VersionCase> {};

TEST_P(LoaderVersionTest, FullVersionJoinsTheFields) {
  CoreFile file;
  file.version = GetParam().fields;
  ASSERT_TRUE(Load(file));
  EXPECT_EQ(analyser_.full_version, GetParam().full_version);
  EXPECT_EQ(analyser_.dp4x_vgpr_offset, 0x155A000u);
}

// Fields wider than their eight bits overlap the next one; they are joined, not added.
constexpr VersionCase kVersions[] = {
    {"Zeros", {0, 0, 0}, 0},
    {"One", {1, 0, 0}, 0x10000},
    {"BeforeOneOne", {1, 0, 255}, 0x100FF},
    {"OneOne", {1, 1, 0}, 0x10100},
    {"OneTwoThree", {1, 2, 3}, 0x10203},
    {"Largest", {255, 255, 255}, 0xFFFFFF},
    {"WideMinor", {1, 0x100, 0}, 0x10000},
    {"WidePatch", {1, 1, 0x1FF}, 0x101FF},
    {"WideMajor", {0x10002, 0, 0}, 0x20000},
};

INSTANTIATE_TEST_SUITE_P(Versions, LoaderVersionTest, testing::ValuesIn(kVersions),
                         RowName<VersionCase>);

TEST_F(LoaderTest, TheFirstFormatHasVersionZero) {
  CoreFile file;
  file.format = 0;
  analyser_.full_version = 0x10100;
  ASSERT_TRUE(Load(file));
  EXPECT_EQ(analyser_.full_version, 0u);
  EXPECT_EQ(analyser_.dp4x_vgpr_offset, 0x1545000u);
}

TEST_F(LoaderTest, OnlyTheLowHalfOfTheFirstFormatsMagicCounts) {
  CoreFile file;
  file.format = 0;
  file.environment = "A=1\n";
  file.overrides = {{.offset = 4, .width = 4, .value = 0xFFFFFFFF}};
  ASSERT_TRUE(Load(file));
  EXPECT_EQ(ReadText(out_ + "/environment"), "A=1\n");
}

TEST_F(LoaderTest, TheReservedWordsOfTheHeaderAreNotRead) {
  CoreFile file;
  file.overrides = {{.offset = 96, .value = kWild},
                    {.offset = 104, .value = kWild},
                    {.offset = 112, .value = kWild},
                    {.offset = 120, .value = kWild}};
  EXPECT_TRUE(Load(file));
  EXPECT_EQ(ListTree(out_), Names{"environment"});
}

struct MagicCase {
  const char* name;
  uint32_t magic;
  const char* text;
};

void PrintTo(const MagicCase& row, std::ostream* out) { *out << row.name; }

class LoaderMagicTest : public LoaderTest, public testing::WithParamInterface<MagicCase> {};

TEST_P(LoaderMagicTest, IsRejectedAndNothingWritten) {
  CoreFile file;
  file.overrides = {{.offset = 0, .width = 4, .value = GetParam().magic}};
  analyser_.full_version = 0x10100;
  OutputCapture capture;
  EXPECT_FALSE(Load(file));
  const Output output = capture.Stop();
  EXPECT_EQ(WithoutTimes(output.err),
            "[time] Error: [init] not supprt magic: " + std::string(GetParam().text) + "\n");
  EXPECT_EQ(output.out, "");
  EXPECT_EQ(analyser_.full_version, 0u);
  EXPECT_EQ(ListTree(dir_.Path()), Names{});
}

constexpr MagicCase kMagics[] = {
    {"Zero", 0, "0x0"},
    {"BeforeTheFirst", 0x20220518, "0x20220518"},
    {"BehindTheFirst", 0x2022051A, "0x2022051a"},
    {"TheFirstBackwards", 0x19052220, "0x19052220"},
    {"BeforeTheSecond", 0x4443584E, "0x4443584e"},
    {"TheSecondBackwards", 0x4F584344, "0x4f584344"},
    {"Elf", 0x464C457F, "0x464c457f"},
    {"AllOnes", 0xFFFFFFFF, "0xffffffff"},
};

INSTANTIATE_TEST_SUITE_P(Words, LoaderMagicTest, testing::ValuesIn(kMagics), RowName<MagicCase>);

TEST_F(LoaderTest, TheMagicIsFourCharactersInFileOrder) {
  const std::string bytes = sample::CoreFileBytes({});
  EXPECT_EQ(bytes.substr(0, 4), "OXCD");
  EXPECT_TRUE(Load(bytes));
}

}  // namespace
