// Ring slots of AQL queues to text, the raw rings, and the kernel argument files.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include "captured_output.h"
#include "core_dump_info.h"
#include "core_file_writer.h"
#include "temp_dir.h"

namespace {

namespace fs = std::filesystem;

using Names = std::vector<std::string>;

// Versions around the first one with a header backup array.
constexpr uint32_t kLastWithoutBackup = 0x100FF;
constexpr uint32_t kFirstWithBackup = 0x10100;

// Tests with rows are named by the rows.
template <typename Row>
std::string RowName(const testing::TestParamInfo<Row>& row) {
  return row.param.name;
}

// An analyser that writes to a fresh directory.
class AqlPacketTest : public testing::Test {
 protected:
  AqlPacketTest() { analyser_.dump_queue_dir_ = dir_.Path("queues"); }

  // The text of one slot, whose bytes lie in a buffer of just their size.
  std::string Describe(const std::string& slot, uint32_t backup_header = 0) {
    std::vector<char> bytes(slot.begin(), slot.end());
    EXPECT_EQ(bytes.size(), 64u);
    std::string info;
    EXPECT_TRUE(analyser_.GenAqlPacketInfo(bytes.data(), backup_header, save_dir_, info));
    return info;
  }

  void AddKernel(const std::string& object_name, uint64_t address, const std::string& kernel_name) {
    auto* object = new CodeObjectInfo;
    memcpy(object->name, object_name.data(), object_name.size());
    auto* kernel = new KernelInfo{};
    kernel->loaded_addr = address;
    memcpy(kernel->name, kernel_name.data(), kernel_name.size());
    object->kernel_list.push_back(kernel);
    analyser_.code_object_lists.push_back(object);
  }

  void LoadMemory(const std::vector<sample::MemoryRegion>& regions) {
    analyser_.mem_dir_ = dir_.Path("mems");
    ASSERT_TRUE(sample::WriteMemoryDirectory(regions, analyser_.mem_dir_));
    ASSERT_TRUE(analyser_.initProcessMem());
  }

  TempDir dir_;
  std::string save_dir_ = dir_.Path("queues/5");
  CoreDumpInfo analyser_;
};

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

sample::KernelDispatch FullDispatch() {
  sample::KernelDispatch packet;
  packet.header = 0x0B02;
  packet.setup = 3;
  packet.workgroup_size = {256, 16, 1};
  packet.grid_size = {1048576, 512, 64};
  packet.private_segment_size = 128;
  packet.group_segment_size = 8192;
  packet.kernel_object = 0x7F0000001000;
  packet.kernarg_address = 0x7F00000020C0;
  packet.reserved2 = 0x1122334455667788;
  packet.completion_signal = 0xFEDCBA9876543210;
  return packet;
}

constexpr char kFullDispatchText[] =
    "header format: KERNEL_DISPATCH\n"
    "header barrier: 1\n"
    "header acquire_fence_scope: SCOPE_AGENT\n"
    "header release_fence_scope: SCOPE_AGENT\n"
    "dimensions: 3\n"
    "workgroup_size_x: 256\n"
    "workgroup_size_y: 16\n"
    "workgroup_size_z: 1\n"
    "grid_size_x: 1048576\n"
    "grid_size_y: 512\n"
    "grid_size_z: 64\n"
    "private_segment_size_bytes: 128\n"
    "group_segment_size_bytes : 8192\n"
    "kernel_object: 0X7F0000001000\n"
    "kernarg_address: 0X7F00000020C0\n"
    "completion_signal: 0XFEDCBA9876543210\n";

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

// The four header lines of a packet.
std::string HeaderLines(const std::string& info) {
  size_t end = 0;
  for (int line = 0; line < 4; ++line) {
    end = info.find('\n', end) + 1;
  }
  return info.substr(0, end);
}

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

// ---------------------------------------------------------------------------------------------
// Retired packets

// The header in the word at byte 48 and the one in the backup array differ, so that what is shown
// tells which was taken.
constexpr uint32_t kWordLow = 0x00001503;   // barrier-and
constexpr uint32_t kWordHigh = 0xABCD0000;  // nothing in the 16 bits that hold the header
constexpr uint32_t kBackup = 0x00000A05;    // barrier-or

constexpr char kFromWord[] =
    "header format: BARRIER_AND (complete)\n"
    "header barrier: 1\n"
    "header acquire_fence_scope: SCOPE_SYSTEM\n"
    "header release_fence_scope: SCOPE_SYSTEM\n"
    "dep_signal[0]: 0X0\n"
    "dep_signal[1]: 0X0\n"
    "dep_signal[2]: 0X0\n"
    "dep_signal[3]: 0X0\n"
    "dep_signal[4]: 0X0\n"
    "completion_signal: 0X0\n";

constexpr char kFromBackup[] =
    "header format: BARRIER_OR (complete)\n"
    "header barrier: 0\n"
    "header acquire_fence_scope: SCOPE_AGENT\n"
    "header release_fence_scope: SCOPE_AGENT\n"
    "dep_signal[0]: 0X0\n"
    "dep_signal[1]: 0X0\n"
    "dep_signal[2]: 0X0\n"
    "dep_signal[3]: 0X0\n"
    "dep_signal[4]: 0X0\n"
    "completion_signal: 0X0\n";

constexpr char kNotRetired[] =
    "header format: INVALID\n"
    "header barrier: 0\n"
    "header acquire_fence_scope: SCOPE_NONE\n"
    "header release_fence_scope: SCOPE_NONE\n"
    "0X0001 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 \n"
    "0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 \n"
    "0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 \n"
    "0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 \n";

// A header of zero, from either source: the packet is retired all the same.
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

// ---------------------------------------------------------------------------------------------
// Kernels of dispatches

TEST_F(AqlPacketTest, AKnownKernelIsNamedWithItsCodeObject) {
  AddKernel("code_object_3", 0x7F0000000FFF, "other");
  AddKernel("code_object_7", 0x7F0000001000, "copy");
  EXPECT_EQ(Describe(sample::KernelDispatchPacket(FullDispatch())),
            std::string(kFullDispatchText) +
                "kernel_name: copy\n"
                "object_name: code_object_7\n");
  EXPECT_EQ(ListTree(dir_.Path()), Names{});
}

TEST_F(AqlPacketTest, OfTwoKernelsAtOneAddressTheFirstIsNamed) {
  AddKernel("code_object_3", 0x7F0000001000, "copy");
  AddKernel("code_object_7", 0x7F0000001000, "scale");
  EXPECT_EQ(Describe(sample::KernelDispatchPacket(FullDispatch())),
            std::string(kFullDispatchText) +
                "kernel_name: copy\n"
                "object_name: code_object_3\n");
}

TEST_F(AqlPacketTest, AnUnknownKernelHasNoName) {
  AddKernel("code_object_7", 0x7F0000001008, "copy");
  EXPECT_EQ(Describe(sample::KernelDispatchPacket(FullDispatch())), kFullDispatchText);
}

TEST_F(AqlPacketTest, AKernelNameWithoutTerminatorEndsAtItsSize) {
  const std::string name(1024, 'k');
  AddKernel("code_object_7", 0x7F0000001000, name);
  EXPECT_EQ(Describe(sample::KernelDispatchPacket(FullDispatch())),
            std::string(kFullDispatchText) + "kernel_name: " + name +
                "\n"
                "object_name: code_object_7\n");
}

TEST_F(AqlPacketTest, OtherPacketsNameNoKernel) {
  AddKernel("code_object_7", 0, "copy");
  EXPECT_EQ(Describe(sample::BarrierPacket({.header = 3})),
            "header format: BARRIER_AND\n"
            "header barrier: 0\n"
            "header acquire_fence_scope: SCOPE_NONE\n"
            "header release_fence_scope: SCOPE_NONE\n"
            "dep_signal[0]: 0X0\n"
            "dep_signal[1]: 0X0\n"
            "dep_signal[2]: 0X0\n"
            "dep_signal[3]: 0X0\n"
            "dep_signal[4]: 0X0\n"
            "completion_signal: 0X0\n");
}

// ---------------------------------------------------------------------------------------------
// Kernel arguments

// A text of `size` characters in which no part looks like another.
std::string Arguments(size_t size) {
  std::string text;
  for (int i = 0; text.size() < size; ++i) {
    text += std::to_string(i) + ",";
  }
  text.resize(size);
  return text;
}

class AqlArgumentsTest : public AqlPacketTest {
 protected:
  static constexpr uint64_t kKernel = 0x1000;

  AqlArgumentsTest() { AddKernel("code_object_7", kKernel, "copy"); }

  std::string DescribeDispatch(uint64_t kernarg_address, uint64_t kernel = kKernel) {
    sample::KernelDispatch packet;
    packet.header = 2;
    packet.kernel_object = kernel;
    packet.kernarg_address = kernarg_address;
    return Describe(sample::KernelDispatchPacket(packet));
  }

  // What lies in the queue's directory.
  Names Files() const { return fs::exists(save_dir_) ? ListTree(save_dir_) : Names{}; }
};

TEST_F(AqlArgumentsTest, AreFourKilobytes) {
  const std::string bytes = Arguments(5000);
  LoadMemory({{.addr = 0x200000, .bytes = bytes}});
  DescribeDispatch(0x200010);
  EXPECT_EQ(Files(), Names{"copy_args"});
  EXPECT_EQ(ReadText(save_dir_ + "/copy_args"), bytes.substr(16, 4096));
}

TEST_F(AqlArgumentsTest, EndWithTheirRegion) {
  const std::string bytes = Arguments(5000);
  LoadMemory(
      {{.addr = 0x200000, .bytes = bytes}, {.addr = 0x200000 + 5000, .bytes = Arguments(100)}});
  DescribeDispatch(0x200000 + 5000 - 16);
  EXPECT_EQ(ReadText(save_dir_ + "/copy_args"), bytes.substr(5000 - 16));
}

TEST_F(AqlArgumentsTest, OutsideEveryRegionAreLeftOut) {
  LoadMemory({{.addr = 0x200000, .bytes = Arguments(5000)}});
  OutputCapture capture;
  EXPECT_EQ(DescribeDispatch(0x200000 + 5000),
            "header format: KERNEL_DISPATCH\n"
            "header barrier: 0\n"
            "header acquire_fence_scope: SCOPE_NONE\n"
            "header release_fence_scope: SCOPE_NONE\n"
            "dimensions: 0\n"
            "workgroup_size_x: 0\n"
            "workgroup_size_y: 0\n"
            "workgroup_size_z: 0\n"
            "grid_size_x: 0\n"
            "grid_size_y: 0\n"
            "grid_size_z: 0\n"
            "private_segment_size_bytes: 0\n"
            "group_segment_size_bytes : 0\n"
            "kernel_object: 0X1000\n"
            "kernarg_address: 0X201388\n"
            "completion_signal: 0X0\n"
            "kernel_name: copy\n"
            "object_name: code_object_7\n");
  EXPECT_EQ(capture.Stop().err, "");
  EXPECT_EQ(Files(), Names{});
}

TEST_F(AqlArgumentsTest, AtTheNullAddressAreLeftOut) {
  LoadMemory({{.addr = 0x200000, .bytes = Arguments(5000)}});
  const std::string text = DescribeDispatch(0);
  EXPECT_NE(text.find("\nkernarg_address: 0X0\n"), std::string::npos);
  EXPECT_NE(text.find("\nkernel_name: copy\n"), std::string::npos);
  EXPECT_EQ(Files(), Names{});
}

TEST_F(AqlArgumentsTest, OfAnUnknownKernelAreLeftOut) {
  LoadMemory({{.addr = 0x200000, .bytes = Arguments(5000)}});
  DescribeDispatch(0x200000, kKernel + 1);
  EXPECT_EQ(Files(), Names{});
}

TEST_F(AqlArgumentsTest, WithoutTheirSnapshotAreLeftOutWithAnError) {
  LoadMemory({{.addr = 0x200000, .bytes = "args"}});
  const std::string snapshot = dir_.Path("mems/0X200000-0X200004-4");
  ASSERT_TRUE(fs::remove(snapshot));
  OutputCapture capture;
  const std::string text = DescribeDispatch(0x200000);
  EXPECT_EQ(WithoutTimes(capture.Stop().err), "[time] Error: mem_name:" + snapshot + " failed\n");
  EXPECT_NE(text.find("\nkernel_name: copy\nobject_name: code_object_7\n"), std::string::npos);
  EXPECT_EQ(Files(), Names{});
}

TEST_F(AqlArgumentsTest, OfARetiredDispatchAreWritten) {
  LoadMemory({{.addr = 0x200000, .bytes = "args"}});
  analyser_.full_version = kFirstWithBackup;
  sample::KernelDispatch packet;
  packet.header = 1;
  packet.kernel_object = kKernel;
  packet.kernarg_address = 0x200000;
  Describe(sample::KernelDispatchPacket(packet), 2);
  EXPECT_EQ(ReadText(save_dir_ + "/copy_args"), "args");
}

TEST_F(AqlArgumentsTest, OfALaterDispatchReplaceThoseOfAnEarlierOne) {
  LoadMemory({{.addr = 0x200000, .bytes = "the arguments of the first"},
              {.addr = 0x300000, .bytes = "of the second"}});
  DescribeDispatch(0x200000);
  DescribeDispatch(0x300000);
  EXPECT_EQ(Files(), Names{"copy_args"});
  EXPECT_EQ(ReadText(save_dir_ + "/copy_args"), "of the second");
}

TEST_F(AqlArgumentsTest, ThatCannotBeReadLeaveThoseOfAnEarlierDispatch) {
  LoadMemory({{.addr = 0x200000, .bytes = "the arguments of the first"}});
  DescribeDispatch(0x200000);
  DescribeDispatch(0x300000);
  EXPECT_EQ(ReadText(save_dir_ + "/copy_args"), "the arguments of the first");
}

TEST_F(AqlArgumentsTest, OfSeveralKernelsHaveAFileEach) {
  AddKernel("code_object_8", 0x2000, "scale(float*, int) [clone .kd]");
  LoadMemory({{.addr = 0x200000, .bytes = "first"}, {.addr = 0x300000, .bytes = "second"}});
  DescribeDispatch(0x200000);
  DescribeDispatch(0x300000, 0x2000);
  EXPECT_EQ(Files(), (Names{"copy_args", "scale(float*, int) [clone .kd]_args"}));
  EXPECT_EQ(ReadText(save_dir_ + "/copy_args"), "first");
  EXPECT_EQ(ReadText(save_dir_ + "/scale(float*, int) [clone .kd]_args"), "second");
}

TEST_F(AqlArgumentsTest, ThatCannotBeWrittenAreIgnored) {
  LoadMemory({{.addr = 0x200000, .bytes = "args"}});
  fs::create_directories(save_dir_ + "/copy_args");
  OutputCapture capture;
  const std::string text = DescribeDispatch(0x200000);
  EXPECT_EQ(capture.Stop().err, "");
  EXPECT_NE(text.find("\nkernel_name: copy\nobject_name: code_object_7\n"), std::string::npos);
  EXPECT_EQ(Files(), Names{"copy_args/"});
}

// ---------------------------------------------------------------------------------------------
// Rings

class AqlRingTest : public AqlPacketTest {
 protected:
  AqlRingTest() {
    queue_.queue_id = 5;
    queue_.queue_type = 2;
  }

  // A ring and what lies behind it, in a buffer of just their size.
  void SetRing(const std::string& ring, const std::string& behind = "") {
    memory_ = std::vector<char>(ring.begin(), ring.end());
    memory_.insert(memory_.end(), behind.begin(), behind.end());
    memory_.shrink_to_fit();
    queue_.ring_offset = reinterpret_cast<uint64_t>(memory_.data());
    queue_.ring_size = ring.size();
  }

  std::string Packets() const { return ReadText(save_dir_ + "/packets"); }
  std::string Ring() const { return ReadText(save_dir_ + "/aql_rb"); }

  std::vector<char> memory_;
  CoreDumpQueue queue_ = {};
};

constexpr char kEmptyBarrierText[] =
    "header format: BARRIER_AND\n"
    "header barrier: 0\n"
    "header acquire_fence_scope: SCOPE_NONE\n"
    "header release_fence_scope: SCOPE_NONE\n"
    "dep_signal[0]: 0X0\n"
    "dep_signal[1]: 0X0\n"
    "dep_signal[2]: 0X0\n"
    "dep_signal[3]: 0X0\n"
    "dep_signal[4]: 0X0\n"
    "completion_signal: 0X0\n";

std::string EmptyBarrier() { return sample::BarrierPacket({.header = 3}); }

std::string InvalidSlot() { return sample::BarrierPacket({.header = 1}); }

TEST_F(AqlRingTest, SlotsAreDescribedInOrderAndTheRingIsCopied) {
  const std::string ring =
      EmptyBarrier() + sample::KernelDispatchPacket(FullDispatch()) + std::string(64, '\0');
  SetRing(ring);
  EXPECT_TRUE(analyser_.DumpPacket(&queue_));
  EXPECT_EQ(Packets(), std::string("\npacket index: 0\n") + kEmptyBarrierText +
                           "\npacket index: 1\n" + kFullDispatchText +
                           "\npacket index: 2\n"
                           "header format: VENDOR_SPECIFIC\n"
                           "header barrier: 0\n"
                           "header acquire_fence_scope: SCOPE_NONE\n"
                           "header release_fence_scope: SCOPE_NONE\n"
                           "0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 \n"
                           "0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 \n"
                           "0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 \n"
                           "0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 \n");
  EXPECT_EQ(Ring(), ring);
  EXPECT_EQ(ListTree(dir_.Path()),
            (Names{"queues/", "queues/5/", "queues/5/aql_rb", "queues/5/packets"}));
}

TEST_F(AqlRingTest, ReadAndWritePointersAreNotLookedAt) {
  SetRing(EmptyBarrier());
  queue_.rptr_value = 100;
  queue_.wptr_value = 100;
  queue_.rptr_address = 8;
  queue_.wptr_address = 8;
  EXPECT_TRUE(analyser_.dumpAqlPacket(&queue_));
  EXPECT_EQ(Packets(), std::string("\npacket index: 0\n") + kEmptyBarrierText);
}

TEST_F(AqlRingTest, EachSlotHasItsWordOfTheBackupArray) {
  analyser_.full_version = kFirstWithBackup;
  SetRing(InvalidSlot() + InvalidSlot() + EmptyBarrier() + InvalidSlot(),
          sample::Dwords({kBackup, 0, kBackup, kWordLow}));
  EXPECT_TRUE(analyser_.dumpAqlPacket(&queue_));
  EXPECT_EQ(Packets(), std::string("\npacket index: 0\n") + kFromBackup + "\npacket index: 1\n" +
                           kNotRetired + "\npacket index: 2\n" + kEmptyBarrierText +
                           "\npacket index: 3\n" + kFromWord);
}

TEST_F(AqlRingTest, EarlierVersionsHaveNoBackupArray) {
  for (const uint32_t version : {0u, 0x10000u, kLastWithoutBackup}) {
    fs::remove_all(save_dir_);
    analyser_.full_version = version;
    SetRing(InvalidSlot(), sample::Dwords({kBackup}));
    EXPECT_TRUE(analyser_.dumpAqlPacket(&queue_));
    EXPECT_EQ(Packets(), std::string("\npacket index: 0\n") + kNotRetired);
  }
}

TEST_F(AqlRingTest, BehindTheLastSlotNothingIsReadInEarlierVersions) {
  analyser_.full_version = kLastWithoutBackup;
  SetRing(InvalidSlot());
  EXPECT_TRUE(analyser_.dumpAqlPacket(&queue_));
  EXPECT_EQ(Packets(), std::string("\npacket index: 0\n") + kNotRetired);
}

TEST_F(AqlRingTest, OnlyWholeSlotsAreDescribed) {
  const std::string ring = EmptyBarrier() + std::string(63, '\x02');
  SetRing(ring);
  EXPECT_TRUE(analyser_.dumpAqlPacket(&queue_));
  EXPECT_EQ(Packets(), std::string("\npacket index: 0\n") + kEmptyBarrierText);
  EXPECT_EQ(Ring(), ring);
}

TEST_F(AqlRingTest, TheBackupArrayLiesBehindTheLastByteOfTheRing) {
  analyser_.full_version = kFirstWithBackup;
  SetRing(InvalidSlot() + std::string(21, '\x02'), sample::Dwords({kBackup}));
  EXPECT_TRUE(analyser_.dumpAqlPacket(&queue_));
  EXPECT_EQ(Packets(), std::string("\npacket index: 0\n") + kFromBackup);
}

TEST_F(AqlRingTest, ARingSmallerThanASlotHasNoPackets) {
  analyser_.full_version = kFirstWithBackup;
  for (const size_t size : {1u, 63u}) {
    const std::string ring(size, '\x02');
    SetRing(ring);
    EXPECT_TRUE(analyser_.dumpAqlPacket(&queue_));
    EXPECT_EQ(Packets(), "");
    EXPECT_EQ(Ring(), ring);
  }
}

TEST_F(AqlRingTest, AnEmptyRingHasNoRawCopy) {
  SetRing(EmptyBarrier());
  queue_.ring_size = 0;
  OutputCapture capture;
  EXPECT_FALSE(analyser_.DumpPacket(&queue_));
  const Output output = capture.Stop();
  EXPECT_EQ(WithoutTimes(output.err), "[time] Error: dump aql packet failed\n");
  EXPECT_EQ(output.out, "");
  EXPECT_EQ(ListTree(save_dir_), Names{"packets"});
  EXPECT_EQ(Packets(), "");
}

TEST_F(AqlRingTest, ASecondRunAppendsThePacketsAndReplacesTheRest) {
  AddKernel("code_object_7", 0x7F0000001000, "copy");
  LoadMemory({{.addr = 0x7F00000020C0, .bytes = "the arguments of the first run"}});
  const std::string dispatch = sample::KernelDispatchPacket(FullDispatch());
  SetRing(dispatch + EmptyBarrier());
  EXPECT_TRUE(analyser_.dumpAqlPacket(&queue_));
  EXPECT_EQ(ReadText(save_dir_ + "/copy_args"), "the arguments of the first run");

  analyser_.mem_info_map.clear();
  LoadMemory({{.addr = 0x7F00000020C0, .bytes = "of the second run"}});
  SetRing(dispatch);
  EXPECT_TRUE(analyser_.dumpAqlPacket(&queue_));
  const std::string dispatch_text = std::string("\npacket index: 0\n") + kFullDispatchText +
                                    "kernel_name: copy\n"
                                    "object_name: code_object_7\n";
  EXPECT_EQ(Packets(), dispatch_text + "\npacket index: 1\n" + kEmptyBarrierText + dispatch_text);
  EXPECT_EQ(Ring(), dispatch);
  EXPECT_EQ(ReadText(save_dir_ + "/copy_args"), "of the second run");
}

TEST_F(AqlRingTest, OfTwoDispatchesOfOneKernelTheLastHasTheArgumentFile) {
  AddKernel("code_object_7", 0x1000, "copy");
  LoadMemory({{.addr = 0x200000, .bytes = "the arguments of the first"},
              {.addr = 0x300000, .bytes = "of the last"}});
  sample::KernelDispatch first;
  first.header = 2;
  first.kernel_object = 0x1000;
  first.kernarg_address = 0x200000;
  sample::KernelDispatch last = first;
  last.kernarg_address = 0x300000;
  SetRing(sample::KernelDispatchPacket(first) + sample::KernelDispatchPacket(last));
  EXPECT_TRUE(analyser_.dumpAqlPacket(&queue_));
  EXPECT_EQ(ListTree(save_dir_), (Names{"aql_rb", "copy_args", "packets"}));
  EXPECT_EQ(ReadText(save_dir_ + "/copy_args"), "of the last");
}

TEST_F(AqlRingTest, TheDirectoryIsNamedByTheUnsignedId) {
  SetRing(EmptyBarrier());
  queue_.queue_id = 0xFFFFFFFF;
  EXPECT_TRUE(analyser_.DumpPacket(&queue_));
  EXPECT_EQ(ListTree(dir_.Path("queues")),
            (Names{"4294967295/", "4294967295/aql_rb", "4294967295/packets"}));
}

TEST_F(AqlRingTest, TheDebugLogHasTheSignedId) {
  SetRing(EmptyBarrier());
  queue_.queue_id = 0xFFFFFFFF;
  const ScopedLogLevel level("debug");
  OutputCapture capture;
  EXPECT_TRUE(analyser_.DumpPacket(&queue_));
  const Output output = capture.Stop();
  EXPECT_EQ(WithoutTimes(output.out), "[time] Debug: dumpAqlPacket queu id: -1\n");
  EXPECT_EQ(output.err, "");
}

TEST_F(AqlRingTest, TheInfoLogHasNothing) {
  SetRing(EmptyBarrier());
  const ScopedLogLevel level("info");
  OutputCapture capture;
  EXPECT_TRUE(analyser_.DumpPacket(&queue_));
  EXPECT_EQ(capture.Stop().out, "");
}

TEST_F(AqlRingTest, PacketsThatCannotBeWrittenEndTheDump) {
  SetRing(EmptyBarrier());
  fs::create_directories(save_dir_ + "/packets");
  OutputCapture capture;
  EXPECT_FALSE(analyser_.DumpPacket(&queue_));
  const Output output = capture.Stop();
  EXPECT_EQ(WithoutTimes(output.err), "[time] Error: dump aql packet failed\n");
  EXPECT_EQ(output.out, "");
  EXPECT_EQ(ListTree(save_dir_), Names{"packets/"});
}

TEST_F(AqlRingTest, ARingThatCannotBeWrittenFailsTheDump) {
  SetRing(EmptyBarrier());
  fs::create_directories(save_dir_ + "/aql_rb");
  OutputCapture capture;
  EXPECT_FALSE(analyser_.DumpPacket(&queue_));
  EXPECT_EQ(WithoutTimes(capture.Stop().err), "[time] Error: dump aql packet failed\n");
  EXPECT_EQ(Packets(), std::string("\npacket index: 0\n") + kEmptyBarrierText);
}

TEST_F(AqlRingTest, OnlyDumpPacketSaysThatItFailed) {
  SetRing(EmptyBarrier());
  fs::create_directories(save_dir_ + "/packets");
  OutputCapture capture;
  EXPECT_FALSE(analyser_.dumpAqlPacket(&queue_));
  EXPECT_EQ(capture.Stop().err, "");
}

class OtherQueueTypeTest : public AqlRingTest, public testing::WithParamInterface<uint32_t> {};

TEST_P(OtherQueueTypeTest, WritesNothing) {
  SetRing(EmptyBarrier());
  queue_.queue_type = GetParam();
  const ScopedLogLevel level("debug");
  OutputCapture capture;
  EXPECT_TRUE(analyser_.DumpPacket(&queue_));
  const Output output = capture.Stop();
  EXPECT_EQ(output.out, "");
  EXPECT_EQ(output.err, "");
  EXPECT_EQ(ListTree(dir_.Path()), Names{});
}

constexpr uint32_t kOtherTypes[] = {0, 3, 4, 0x102, 0xFFFFFFFF};

INSTANTIATE_TEST_SUITE_P(Types, OtherQueueTypeTest, testing::ValuesIn(kOtherTypes));

// ---------------------------------------------------------------------------------------------
// Through a core file

class AqlCoreFileTest : public testing::Test {
 protected:
  bool Load(const sample::CoreFile& file) {
    const std::string bytes = sample::CoreFileBytes(file);
    file_.assign(bytes.begin(), bytes.end());
    analyser_.SetImageSize(file_.size());
    return analyser_.init(reinterpret_cast<uint64_t>(file_.data()), out_.c_str(), "/opt/rocm",
                          dir_.Path("mems").c_str(), false);
  }

  static sample::CoreFile FileWithRing(const std::string& ring) {
    sample::CoreFile file;
    file.queues.resize(1);
    file.queues[0].queue_id = 5;
    file.queues[0].queue_type = 2;
    file.queues[0].ring = ring;
    return file;
  }

  std::string Packets() const { return ReadText(out_ + "/queues/5/packets"); }

  TempDir dir_;
  const std::string out_ = dir_.Path("out");
  std::vector<char> file_;
  CoreDumpInfo analyser_;
};

TEST_F(AqlCoreFileTest, TheBackupArrayOfTheFileIsUsed) {
  sample::CoreFile file = FileWithRing(InvalidSlot() + InvalidSlot());
  file.queues[0].header_backup = {kWordLow, kBackup};
  ASSERT_TRUE(Load(file));
  EXPECT_TRUE(analyser_.DumpPacket(analyser_.queue_lists.at(0)));
  EXPECT_EQ(Packets(),
            std::string("\npacket index: 0\n") + kFromWord + "\npacket index: 1\n" + kFromBackup);
}

TEST_F(AqlCoreFileTest, AnOlderFileHasItsHeadersInTheSlots) {
  sample::CoreFile file =
      FileWithRing(sample::BarrierPacket({.header = 1, .reserved2 = kWordLow}) + InvalidSlot());
  file.format = 0;
  file.queues[0].header_backup = {kBackup, kBackup};
  ASSERT_TRUE(Load(file));
  EXPECT_TRUE(analyser_.DumpPacket(analyser_.queue_lists.at(0)));
  EXPECT_EQ(Packets(),
            std::string("\npacket index: 0\n") + kFromWord + "\npacket index: 1\n" + kNotRetired);
}

// The count of slots is a signed number of 32 bits; what the file has of the ring is copied.
struct SlotCountCase {
  const char* name;
  uint64_t ring_size;
  size_t slots;
};

void PrintTo(const SlotCountCase& row, std::ostream* out) { *out << row.name; }

class AqlSlotCountTest : public AqlCoreFileTest,
                         public testing::WithParamInterface<SlotCountCase> {};

TEST_P(AqlSlotCountTest, IsCutToThirtyTwoBits) {
  sample::CoreFile file = FileWithRing(EmptyBarrier() + EmptyBarrier());
  file.format = 0;
  file.overrides = {
      {.record = sample::Override::Record::kQueue, .offset = 64, .value = GetParam().ring_size}};
  ASSERT_TRUE(Load(file));
  OutputCapture capture;
  EXPECT_TRUE(analyser_.DumpPacket(analyser_.queue_lists.at(0)));
  capture.Stop();
  std::string expected;
  for (size_t i = 0; i < GetParam().slots; ++i) {
    expected += "\npacket index: " + std::to_string(i) + "\n" + kEmptyBarrierText;
  }
  EXPECT_EQ(Packets(), expected);
  EXPECT_EQ(ReadText(out_ + "/queues/5/aql_rb"), EmptyBarrier() + EmptyBarrier());
}

constexpr SlotCountCase kSlotCounts[] = {
    {"Zero", 0x4000000000, 0},     {"One", 0x4000000040, 1},
    {"Two", 0x4000000080, 2},      {"Lowest", 0x2000000000, 0},
    {"MinusOne", 0x3FFFFFFFC0, 0}, {"MinusOneOfLargestSize", 0xFFFFFFFFFFFFFFFF, 0},
};

INSTANTIATE_TEST_SUITE_P(Sizes, AqlSlotCountTest, testing::ValuesIn(kSlotCounts),
                         RowName<SlotCountCase>);

// ---------------------------------------------------------------------------------------------
// Kernel names that are no file names

class AqlKernelNameTest : public AqlCoreFileTest {
 protected:
  // Dumps a ring with one dispatch, with readable arguments, of a kernel of that name.
  void Dump(const std::string& kernel_name) {
    sample::KernelDispatch packet;
    packet.header = 2;
    packet.kernel_object = 0x1000;
    packet.kernarg_address = 0x200000;
    sample::CoreFile file = FileWithRing(sample::KernelDispatchPacket(packet));
    file.queues[0].header_backup = {0};
    file.code_objects.resize(1);
    file.code_objects[0].elf = "elf";
    file.code_objects[0].kernels = {{0x1000, kernel_name}};
    ASSERT_TRUE(
        sample::WriteMemoryDirectory({{.addr = 0x200000, .bytes = "args"}}, dir_.Path("mems")));
    ASSERT_TRUE(Load(file));
    OutputCapture capture;
    EXPECT_TRUE(analyser_.DumpPacket(analyser_.queue_lists.at(0)));
    err_ = WithoutTimes(capture.Stop().err);
  }

  // The dump went on, the loss was noted, and no file was written but those of the ring.
  void ExpectNoFile(const std::string& kernel_name, const std::string& shown_name) {
    Dump(kernel_name);
    EXPECT_NE(Packets().find("\nkernel_name: " + kernel_name + "\nobject_name: code_object_"),
              std::string::npos);
    const std::string damage = ReadText(out_ + "/damage");
    EXPECT_EQ(damage.rfind("kernel name \"" + shown_name + "\" ", 0), 0u) << damage;
    EXPECT_EQ(damage.find('\n'), damage.size() - 1) << damage;
    EXPECT_EQ(err_, "[time] Error: damaged core file: " + damage);
    EXPECT_EQ(ListTree(out_ + "/queues"), (Names{"5/", "5/aql_rb", "5/packets"}));
    const std::string object = analyser_.code_object_lists.at(0)->name;
    EXPECT_EQ(ListTree(dir_.Path()),
              (Names{"mems/", "mems/0X200000-0X200004-4", "mems/process_mem_info", "out/",
                     "out/codes/", "out/codes/" + object, "out/codes/" + object + ".info",
                     "out/damage", "out/environment", "out/queues/", "out/queues/5/",
                     "out/queues/5/aql_rb", "out/queues/5/packets"}));
  }

  std::string err_;
};

TEST_F(AqlKernelNameTest, PathUpwards) { ExpectNoFile("../../evil", "../../evil"); }

TEST_F(AqlKernelNameTest, PathDownwards) { ExpectNoFile("a/b", "a/b"); }

TEST_F(AqlKernelNameTest, AbsolutePath) { ExpectNoFile("/tmp/evil", "/tmp/evil"); }

TEST_F(AqlKernelNameTest, TrailingSlash) { ExpectNoFile("copy/", "copy/"); }

TEST_F(AqlKernelNameTest, Dot) { ExpectNoFile(".", "."); }

TEST_F(AqlKernelNameTest, DotDot) { ExpectNoFile("..", ".."); }

TEST_F(AqlKernelNameTest, Empty) { ExpectNoFile("", ""); }

TEST_F(AqlKernelNameTest, LongerThanAFileName) {
  ExpectNoFile(std::string(251, 'k'), std::string(100, 'k') + "...");
}

TEST_F(AqlKernelNameTest, OfFullLengthWithoutTerminator) {
  ExpectNoFile(std::string(1024, 'k'), std::string(100, 'k') + "...");
}

TEST_F(AqlKernelNameTest, UnprintableBytesAreNotShownInMessages) {
  ExpectNoFile("a/\n\x1B\xFF~", "a/???~");
}

TEST_F(AqlKernelNameTest, AsLongAsAFileNameIsWritten) {
  const std::string name(250, 'k');
  Dump(name);
  EXPECT_EQ(err_, "");
  EXPECT_EQ(ReadText(out_ + "/queues/5/" + name + "_args"), "args");
  EXPECT_FALSE(fs::exists(out_ + "/damage"));
}

TEST_F(AqlKernelNameTest, DotsInsideAreWritten) {
  Dump("..copy.kd");
  EXPECT_EQ(err_, "");
  EXPECT_EQ(ReadText(out_ + "/queues/5/..copy.kd_args"), "args");
  EXPECT_FALSE(fs::exists(out_ + "/damage"));
}

}  // namespace
