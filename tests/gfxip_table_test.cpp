#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "core_dump_info.h"

namespace {

struct Chip {
  uint16_t device_id;
  uint32_t version;  // major << 16 | minor << 8 | stepping
};

void PrintTo(const Chip& chip, std::ostream* out) { *out << std::hex << chip.device_id; }

class GfxIpTableTest : public testing::TestWithParam<Chip> {};

TEST_P(GfxIpTableTest, GivesTheVersionOfTheChip) {
  EXPECT_EQ(CoreDumpInfo::FindGfxIp(GetParam().device_id), GetParam().version);
}

constexpr Chip kChips[] = {
    {0x5001, 0x90006}, {0x5002, 0x90006}, {0x5003, 0x90006}, {0x5004, 0x90006}, {0x5005, 0x90006},
    {0x5006, 0x90006}, {0x5007, 0x90006}, {0x5008, 0x90106}, {0x5009, 0x90106}, {0x500A, 0x90106},
    {0x500B, 0x90106}, {0x500C, 0x90106}, {0x500D, 0x90106}, {0x500E, 0x90106}, {0x500F, 0x90106},
    {0x5010, 0x90106}, {0x5011, 0x90206}, {0x5012, 0x90206}, {0x5013, 0x90208}, {0x5014, 0x90306},
    {0x5015, 0x90308},
};

std::string RowName(const testing::TestParamInfo<Chip>& info) {
  return "Row" + std::to_string(info.index + 1);
}

INSTANTIATE_TEST_SUITE_P(Rows, GfxIpTableTest, testing::ValuesIn(kChips), RowName);

TEST(GfxIpTableEndsTest, OtherDeviceIdsGiveZero) {
  EXPECT_EQ(CoreDumpInfo::FindGfxIp(0x5000), 0u);
  EXPECT_EQ(CoreDumpInfo::FindGfxIp(0x5016), 0u);
  EXPECT_EQ(CoreDumpInfo::FindGfxIp(0), 0u);
  EXPECT_EQ(CoreDumpInfo::FindGfxIp(0xFFFF), 0u);
}

// The wave reports choose the register layout of a chip by these names.
static_assert(GFX_VERSION_OSPREY == 0x90006);
static_assert(GFX_VERSION_HERON == 0x90106);
static_assert(GFX_VERSION_KESTREL == 0x90206);
static_assert(GFX_VERSION_PLOVER == 0x90208);
static_assert(GFX_VERSION_WREN == 0x90306);
static_assert(GFX_VERSION_FINCH == 0x90308);

}  // namespace
