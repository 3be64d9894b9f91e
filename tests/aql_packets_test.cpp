// Ring slots of AQL queues to text: the bodies, type by type, and the fields of the header.
#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>
#include <string>

#include "aql_packet_fixture.h"
#include "aql_slots.h"
#include "core_file_writer.h"
#include "row_name.h"

namespace {

// ---------------------------------------------------------------------------------------------
// Bodies by packet type

// A slot of distinct words: the header, then 0XA001 to 0XA01F.
std::string NumberedSlot(uint16_t header) {
  std::string slot(64, '\0');
  sample::PutU16(slot, 0, header);
  for (uint16_t i = 1; i < 32; ++i) {
    sample::PutU16(slot, size_t{2} * i, static_cast<uint16_t>(0xA000 + i));
  }
  return slot;
}

TEST_F(AqlPacketTest, VendorSpecificIsShownRaw) {
  EXPECT_EQ(Describe(NumberedSlot(0x0000)),
            "header format: VENDOR_SPECIFIC\n"
            "header barrier: 0\n"
            "header acquire_fence_scope: SCOPE_NONE\n"
            "header release_fence_scope: SCOPE_NONE\n"
            "0X0000 0XA001 0XA002 0XA003 0XA004 0XA005 0XA006 0XA007 \n"
            "0XA008 0XA009 0XA00A 0XA00B 0XA00C 0XA00D 0XA00E 0XA00F \n"
            "0XA010 0XA011 0XA012 0XA013 0XA014 0XA015 0XA016 0XA017 \n"
            "0XA018 0XA019 0XA01A 0XA01B 0XA01C 0XA01D 0XA01E 0XA01F \n");
}

TEST_F(AqlPacketTest, InvalidIsShownRaw) {
  std::string slot = NumberedSlot(0x1501);
  sample::PutU32(slot, 48, 0);
  EXPECT_EQ(Describe(slot),
            "header format: INVALID\n"
            "header barrier: 1\n"
            "header acquire_fence_scope: SCOPE_SYSTEM\n"
            "header release_fence_scope: SCOPE_SYSTEM\n"
            "0X1501 0XA001 0XA002 0XA003 0XA004 0XA005 0XA006 0XA007 \n"
            "0XA008 0XA009 0XA00A 0XA00B 0XA00C 0XA00D 0XA00E 0XA00F \n"
            "0XA010 0XA011 0XA012 0XA013 0XA014 0XA015 0XA016 0XA017 \n"
            "0X0000 0X0000 0XA01A 0XA01B 0XA01C 0XA01D 0XA01E 0XA01F \n");
}

TEST_F(AqlPacketTest, ReservedIsShownRaw) {
  EXPECT_EQ(Describe(NumberedSlot(0x0106)),
            "header format: RESERVED\n"
            "header barrier: 1\n"
            "header acquire_fence_scope: SCOPE_NONE\n"
            "header release_fence_scope: SCOPE_NONE\n"
            "0X0106 0XA001 0XA002 0XA003 0XA004 0XA005 0XA006 0XA007 \n"
            "0XA008 0XA009 0XA00A 0XA00B 0XA00C 0XA00D 0XA00E 0XA00F \n"
            "0XA010 0XA011 0XA012 0XA013 0XA014 0XA015 0XA016 0XA017 \n"
            "0XA018 0XA019 0XA01A 0XA01B 0XA01C 0XA01D 0XA01E 0XA01F \n");
}

TEST_F(AqlPacketTest, RawWordsHaveFourDigits) {
  std::string slot(64, '\0');
  sample::PutU16(slot, 2, 0x1);
  sample::PutU16(slot, 4, 0x20);
  sample::PutU16(slot, 6, 0x300);
  sample::PutU16(slot, 62, 0xFFFF);
  EXPECT_EQ(Describe(slot),
            "header format: VENDOR_SPECIFIC\n"
            "header barrier: 0\n"
            "header acquire_fence_scope: SCOPE_NONE\n"
            "header release_fence_scope: SCOPE_NONE\n"
            "0X0000 0X0001 0X0020 0X0300 0X0000 0X0000 0X0000 0X0000 \n"
            "0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 \n"
            "0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 \n"
            "0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0XFFFF \n");
}

TEST_F(AqlPacketTest, KernelDispatch) {
  std::string slot = sample::KernelDispatchPacket(FullDispatch());
  sample::PutU16(slot, 10, 0xDEAD);  // reserved
  EXPECT_EQ(Describe(slot), kFullDispatchText);
}

TEST_F(AqlPacketTest, KernelDispatchOfLargestNumbers) {
  sample::KernelDispatch packet;
  packet.header = 0x0002;
  packet.setup = 0xFFFE;  // only two bits hold the dimensions
  packet.workgroup_size = {65535, 65534, 32768};
  packet.grid_size = {0xFFFFFFFF, 0x80000000, 0x7FFFFFFF};
  packet.private_segment_size = 0xFFFFFFFE;
  packet.group_segment_size = 0x80000001;
  packet.kernel_object = 0xFFFFFFFFFFFFFFFF;
  EXPECT_EQ(Describe(sample::KernelDispatchPacket(packet)),
            "header format: KERNEL_DISPATCH\n"
            "header barrier: 0\n"
            "header acquire_fence_scope: SCOPE_NONE\n"
            "header release_fence_scope: SCOPE_NONE\n"
            "dimensions: 2\n"
            "workgroup_size_x: 65535\n"
            "workgroup_size_y: 65534\n"
            "workgroup_size_z: 32768\n"
            "grid_size_x: -1\n"
            "grid_size_y: -2147483648\n"
            "grid_size_z: 2147483647\n"
            "private_segment_size_bytes: -2\n"
            "group_segment_size_bytes : -2147483647\n"
            "kernel_object: 0XFFFFFFFFFFFFFFFF\n"
            "kernarg_address: 0X0\n"
            "completion_signal: 0X0\n");
}

sample::Barrier FullBarrier(uint16_t header) {
  sample::Barrier packet;
  packet.header = header;
  packet.dep_signal = {0x7F0000000040, 0, 0xFEDCBA9876543210, 0xA, 0x5000};
  packet.reserved2 = 0x1122334455667788;
  packet.completion_signal = 0x7F0000000080;
  return packet;
}

TEST_F(AqlPacketTest, BarrierAnd) {
  EXPECT_EQ(Describe(sample::BarrierPacket(FullBarrier(0x1403))),
            "header format: BARRIER_AND\n"
            "header barrier: 0\n"
            "header acquire_fence_scope: SCOPE_SYSTEM\n"
            "header release_fence_scope: SCOPE_SYSTEM\n"
            "dep_signal[0]: 0X7F0000000040\n"
            "dep_signal[1]: 0X0\n"
            "dep_signal[2]: 0XFEDCBA9876543210\n"
            "dep_signal[3]: 0XA\n"
            "dep_signal[4]: 0X5000\n"
            "completion_signal: 0X7F0000000080\n");
}

TEST_F(AqlPacketTest, BarrierOr) {
  EXPECT_EQ(Describe(sample::BarrierPacket(FullBarrier(0x0505))),
            "header format: BARRIER_OR\n"
            "header barrier: 1\n"
            "header acquire_fence_scope: SCOPE_SYSTEM\n"
            "header release_fence_scope: SCOPE_NONE\n"
            "dep_signal[0]: 0X7F0000000040\n"
            "dep_signal[1]: 0X0\n"
            "dep_signal[2]: 0XFEDCBA9876543210\n"
            "dep_signal[3]: 0XA\n"
            "dep_signal[4]: 0X5000\n"
            "completion_signal: 0X7F0000000080\n");
}

TEST_F(AqlPacketTest, AgentDispatch) {
  sample::AgentDispatch packet;
  packet.header = 0x1004;
  packet.type = 0xFFFE;
  packet.return_address = 0x7F0000000100;
  packet.arg = {1, 0, 0xFEDCBA9876543210, 0xABC};
  packet.reserved2 = 0x1122334455667788;
  packet.completion_signal = 0x7F0000000180;
  EXPECT_EQ(Describe(sample::AgentDispatchPacket(packet)),
            "header format: AGENT_DISPATCH\n"
            "header barrier: 0\n"
            "header acquire_fence_scope: SCOPE_NONE\n"
            "header release_fence_scope: SCOPE_SYSTEM\n"
            "type: 65534\n"
            "return_address: 0X7F0000000100\n"
            "arg[0]: 0X1\n"
            "arg[1]: 0X0\n"
            "arg[2]: 0XFEDCBA9876543210\n"
            "arg[3]: 0XABC\n"
            "completion_signal: 0X7F0000000180\n");
}

TEST_F(AqlPacketTest, TextIsAppended) {
  std::string slot = sample::BarrierPacket({.header = 3});
  std::string info = "before\n";
  EXPECT_TRUE(analyser_.GenAqlPacketInfo(slot.data(), 0, save_dir_, info));
  EXPECT_EQ(info.rfind("before\nheader format: BARRIER_AND\n", 0), 0u);
}

// ---------------------------------------------------------------------------------------------
// The header's fields

struct TypeCase {
  const char* name;
  uint16_t header;
  const char* type;
};

void PrintTo(const TypeCase& row, std::ostream* out) { *out << row.name; }

class AqlTypeTest : public AqlPacketTest, public testing::WithParamInterface<TypeCase> {};

TEST_P(AqlTypeTest, IsTheLowNibble) {
  std::string slot(64, '\0');
  sample::PutU16(slot, 0, GetParam().header);
  EXPECT_EQ(HeaderLines(Describe(slot)), "header format: " + std::string(GetParam().type) +
                                             "\n"
                                             "header barrier: 0\n"
                                             "header acquire_fence_scope: SCOPE_NONE\n"
                                             "header release_fence_scope: SCOPE_NONE\n");
}

// The type has eight bits, of which four are used; the header's upper three bits have no meaning.
constexpr TypeCase kTypes[] = {
    {"Type0", 0x0000, "VENDOR_SPECIFIC"},
    {"Type1", 0x0001, "INVALID"},
    {"Type2", 0x0002, "KERNEL_DISPATCH"},
    {"Type3", 0x0003, "BARRIER_AND"},
    {"Type4", 0x0004, "AGENT_DISPATCH"},
    {"Type5", 0x0005, "BARRIER_OR"},
    {"Type6", 0x0006, "RESERVED"},
    {"Type7", 0x0007, "RESERVED"},
    {"Type8", 0x0008, "RESERVED"},
    {"Type9", 0x0009, "RESERVED"},
    {"Type10", 0x000A, "RESERVED"},
    {"Type11", 0x000B, "RESERVED"},
    {"Type12", 0x000C, "RESERVED"},
    {"Type13", 0x000D, "RESERVED"},
    {"Type14", 0x000E, "RESERVED"},
    {"Type15", 0x000F, "RESERVED"},
    {"Type0WithUpperBits", 0x00F0, "VENDOR_SPECIFIC"},
    {"Type1WithUpperBits", 0x0011, "INVALID"},
    {"Type2WithUpperBits", 0x0022, "KERNEL_DISPATCH"},
    {"Type3WithUpperBits", 0x0043, "BARRIER_AND"},
    {"Type4WithUpperBits", 0x0084, "AGENT_DISPATCH"},
    {"Type5WithUpperBits", 0x00F5, "BARRIER_OR"},
    {"Type6WithUpperBits", 0x00F6, "RESERVED"},
    {"Type3WithUpperHeaderBits", 0xE003, "BARRIER_AND"},
};

INSTANTIATE_TEST_SUITE_P(Types, AqlTypeTest, testing::ValuesIn(kTypes), RowName<TypeCase>);

TEST_F(AqlPacketTest, TypesWithoutNameAreShownRaw) {
  for (uint16_t type = 7; type <= 15; ++type) {
    std::string slot(64, '\0');
    sample::PutU16(slot, 0, type);
    constexpr char kDigits[] = "0123456789ABCDEF";
    EXPECT_EQ(Describe(slot), std::string("header format: RESERVED\n"
                                          "header barrier: 0\n"
                                          "header acquire_fence_scope: SCOPE_NONE\n"
                                          "header release_fence_scope: SCOPE_NONE\n"
                                          "0X000") +
                                  kDigits[type] +
                                  " 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 \n"
                                  "0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 \n"
                                  "0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 \n"
                                  "0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 \n");
  }
}

TEST_F(AqlPacketTest, UpperTypeBitsLeaveTheBodyAsItIs) {
  sample::KernelDispatch packet = FullDispatch();
  packet.header = 0x0BF2;
  EXPECT_EQ(Describe(sample::KernelDispatchPacket(packet)), kFullDispatchText);
}

struct ScopeCase {
  const char* name;
  uint16_t header;
  const char* lines;
};

void PrintTo(const ScopeCase& row, std::ostream* out) { *out << row.name; }

class AqlHeaderTest : public AqlPacketTest, public testing::WithParamInterface<ScopeCase> {};

TEST_P(AqlHeaderTest, BarrierAndScopes) {
  std::string slot(64, '\0');
  sample::PutU16(slot, 0, GetParam().header);
  EXPECT_EQ(HeaderLines(Describe(slot)),
            "header format: VENDOR_SPECIFIC\n" + std::string(GetParam().lines));
}

constexpr ScopeCase kScopes[] = {
    {"Barrier", 0x0100,
     "header barrier: 1\n"
     "header acquire_fence_scope: SCOPE_NONE\n"
     "header release_fence_scope: SCOPE_NONE\n"},
    {"AcquireAgent", 0x0200,
     "header barrier: 0\n"
     "header acquire_fence_scope: SCOPE_AGENT\n"
     "header release_fence_scope: SCOPE_NONE\n"},
    {"AcquireSystem", 0x0400,
     "header barrier: 0\n"
     "header acquire_fence_scope: SCOPE_SYSTEM\n"
     "header release_fence_scope: SCOPE_NONE\n"},
    {"AcquireThree", 0x0600,
     "header barrier: 0\n"
     "header acquire_fence_scope: SCOPE_RESERVED\n"
     "header release_fence_scope: SCOPE_NONE\n"},
    {"ReleaseAgent", 0x0800,
     "header barrier: 0\n"
     "header acquire_fence_scope: SCOPE_NONE\n"
     "header release_fence_scope: SCOPE_AGENT\n"},
    {"ReleaseSystem", 0x1000,
     "header barrier: 0\n"
     "header acquire_fence_scope: SCOPE_NONE\n"
     "header release_fence_scope: SCOPE_SYSTEM\n"},
    {"ReleaseThree", 0x1800,
     "header barrier: 0\n"
     "header acquire_fence_scope: SCOPE_NONE\n"
     "header release_fence_scope: SCOPE_RESERVED\n"},
    {"All", 0x1F00,
     "header barrier: 1\n"
     "header acquire_fence_scope: SCOPE_RESERVED\n"
     "header release_fence_scope: SCOPE_RESERVED\n"},
    {"UpperBits", 0xE000,
     "header barrier: 0\n"
     "header acquire_fence_scope: SCOPE_NONE\n"
     "header release_fence_scope: SCOPE_NONE\n"},
};

INSTANTIATE_TEST_SUITE_P(Fields, AqlHeaderTest, testing::ValuesIn(kScopes), RowName<ScopeCase>);

}  // namespace
