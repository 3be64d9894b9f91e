// Retired AQL packets, whose headers are restored from the slot or from the backup array.
#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>
#include <string>

#include "aql_packet_fixture.h"
#include "aql_slots.h"
#include "core_file_writer.h"
#include "row_name.h"

namespace {

constexpr char kZeroHeader[] =
    "header format: VENDOR_SPECIFIC (complete)\n"
    "header barrier: 0\n"
    "header acquire_fence_scope: SCOPE_NONE\n"
    "header release_fence_scope: SCOPE_NONE\n"
    "0X0001 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 \n"
    "0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 \n"
    "0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 \n"
    "0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 \n";

constexpr char kZeroHeaderWordLow[] =
    "header format: VENDOR_SPECIFIC (complete)\n"
    "header barrier: 0\n"
    "header acquire_fence_scope: SCOPE_NONE\n"
    "header release_fence_scope: SCOPE_NONE\n"
    "0X0001 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 \n"
    "0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 \n"
    "0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 \n"
    "0X1503 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 \n";

constexpr char kZeroHeaderWordHigh[] =
    "header format: VENDOR_SPECIFIC (complete)\n"
    "header barrier: 0\n"
    "header acquire_fence_scope: SCOPE_NONE\n"
    "header release_fence_scope: SCOPE_NONE\n"
    "0X0001 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 \n"
    "0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 \n"
    "0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 \n"
    "0X0000 0XABCD 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 \n";

struct RetiredCase {
  const char* name;
  uint32_t full_version;
  uint32_t backup_header;
  uint32_t word_at_48;
  const char* text;
};

void PrintTo(const RetiredCase& row, std::ostream* out) { *out << row.name; }

class AqlRetiredTest : public AqlPacketTest, public testing::WithParamInterface<RetiredCase> {};

TEST_P(AqlRetiredTest, HeaderIsRestored) {
  analyser_.full_version = GetParam().full_version;
  std::string slot(64, '\0');
  sample::PutU16(slot, 0, 1);
  sample::PutU32(slot, 48, GetParam().word_at_48);
  EXPECT_EQ(Describe(slot, GetParam().backup_header), GetParam().text);
}

// Whether a header is restored and where it comes from are two tests; either word makes a packet a
// retired one in every version.
constexpr RetiredCase kRetired[] = {
    {"BeforeNothing", kLastWithoutBackup, 0, 0, kNotRetired},
    {"BeforeLow", kLastWithoutBackup, 0, kWordLow, kFromWord},
    {"BeforeHigh", kLastWithoutBackup, 0, kWordHigh, kZeroHeaderWordHigh},
    {"BeforeBackup", kLastWithoutBackup, kBackup, 0, kZeroHeader},
    {"BeforeBackupAndLow", kLastWithoutBackup, kBackup, kWordLow, kFromWord},
    {"BeforeBackupAndHigh", kLastWithoutBackup, kBackup, kWordHigh, kZeroHeaderWordHigh},
    {"FirstFormatNothing", 0, 0, 0, kNotRetired},
    {"FirstFormatLow", 0, 0, kWordLow, kFromWord},
    {"Version1Low", 0x10000, 0, kWordLow, kFromWord},
    {"SinceNothing", kFirstWithBackup, 0, 0, kNotRetired},
    {"SinceLow", kFirstWithBackup, 0, kWordLow, kZeroHeaderWordLow},
    {"SinceHigh", kFirstWithBackup, 0, kWordHigh, kZeroHeaderWordHigh},
    {"SinceBackup", kFirstWithBackup, kBackup, 0, kFromBackup},
    {"SinceBackupAndLow", kFirstWithBackup, kBackup, kWordLow, kFromBackup},
    {"SinceBackupAndHigh", kFirstWithBackup, kBackup, kWordHigh, kFromBackup},
    {"SinceBackupWithUpperBits", kFirstWithBackup, 0xFFFF0A05, 0, kFromBackup},
    {"SinceUpperBitsOnly", kFirstWithBackup, 0xABCD0000, 0, kZeroHeader},
    {"Version2", 0x20000, kBackup, kWordLow, kFromBackup},
    {"LastVersion", 0xFFFFFFFF, kBackup, kWordLow, kFromBackup},
};

INSTANTIATE_TEST_SUITE_P(Versions, AqlRetiredTest, testing::ValuesIn(kRetired),
                         RowName<RetiredCase>);

TEST_F(AqlPacketTest, TheUpperHalfOfTheReservedWordDoesNotRetire) {
  std::string slot(64, '\0');
  sample::PutU16(slot, 0, 1);
  sample::PutU32(slot, 52, 0xFFFFFFFF);
  EXPECT_EQ(HeaderLines(Describe(slot)),
            "header format: INVALID\n"
            "header barrier: 0\n"
            "header acquire_fence_scope: SCOPE_NONE\n"
            "header release_fence_scope: SCOPE_NONE\n");
}

TEST_F(AqlPacketTest, LivePacketsKeepTheirHeaders) {
  sample::KernelDispatch packet = FullDispatch();
  packet.reserved2 = kWordLow;
  for (const uint32_t version : {0u, kLastWithoutBackup, kFirstWithBackup}) {
    analyser_.full_version = version;
    EXPECT_EQ(Describe(sample::KernelDispatchPacket(packet), kBackup), kFullDispatchText);
  }
}

TEST_F(AqlPacketTest, RetiredKernelDispatch) {
  sample::KernelDispatch packet = FullDispatch();
  packet.header = 1;
  packet.reserved2 = 0x0B02;
  std::string expected = kFullDispatchText;
  expected.insert(expected.find('\n'), " (complete)");
  EXPECT_EQ(Describe(sample::KernelDispatchPacket(packet)), expected);
}

TEST_F(AqlPacketTest, RetiredAgentDispatch) {
  analyser_.full_version = kFirstWithBackup;
  sample::AgentDispatch packet;
  packet.header = 1;
  packet.type = 7;
  packet.arg = {1, 2, 3, 4};
  EXPECT_EQ(Describe(sample::AgentDispatchPacket(packet), 0x0104),
            "header format: AGENT_DISPATCH (complete)\n"
            "header barrier: 1\n"
            "header acquire_fence_scope: SCOPE_NONE\n"
            "header release_fence_scope: SCOPE_NONE\n"
            "type: 7\n"
            "return_address: 0X0\n"
            "arg[0]: 0X1\n"
            "arg[1]: 0X2\n"
            "arg[2]: 0X3\n"
            "arg[3]: 0X4\n"
            "completion_signal: 0X0\n");
}

TEST_F(AqlPacketTest, RetiredWithAnInvalidHeader) {
  analyser_.full_version = kFirstWithBackup;
  std::string slot(64, '\0');
  sample::PutU16(slot, 0, 0x1F01);
  EXPECT_EQ(HeaderLines(Describe(slot, 0x0101)),
            "header format: INVALID (complete)\n"
            "header barrier: 1\n"
            "header acquire_fence_scope: SCOPE_NONE\n"
            "header release_fence_scope: SCOPE_NONE\n");
}

TEST_F(AqlPacketTest, RetiredWithATypeThatHasNoNameShowsTheHeaderOfTheRing) {
  analyser_.full_version = kFirstWithBackup;
  std::string slot(64, '\0');
  sample::PutU16(slot, 0, 0x0051);
  EXPECT_EQ(Describe(slot, 0x1F0D),
            "header format: RESERVED (complete)\n"
            "header barrier: 1\n"
            "header acquire_fence_scope: SCOPE_RESERVED\n"
            "header release_fence_scope: SCOPE_RESERVED\n"
            "0X0051 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 \n"
            "0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 \n"
            "0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 \n"
            "0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 \n");
}

}  // namespace
