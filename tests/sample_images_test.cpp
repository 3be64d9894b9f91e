// The images that sample core files are made of (context save areas, rings, memory directories),
// read back by offsets written out by hand.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <string>
#include <vector>

#include "core_file_writer.h"
#include "raw_bytes.h"
#include "temp_dir.h"

namespace sample {
namespace {

// ---------------------------------------------------------------------------------------------
// Context save areas

TEST(ContextAreaWriter, EmptyAreaIsAHeaderAndThePreamble) {
  const std::string bytes = ContextAreaBytes({});
  EXPECT_EQ(U32sAt(bytes, 0, 6), (std::vector<uint32_t>{16, 8, 24, 0, 0, 0}));
  EXPECT_EQ(bytes.size(), 24u);
}

TEST(ContextAreaWriter, StateRecordFields) {
  EXPECT_EQ(StateRecord(4, 4, 0, 0), 0u);
  EXPECT_EQ(StateRecord(24, 4, 0, 0), 5u);
  EXPECT_EQ(StateRecord(24, 8, 0, 0), 2u);
  EXPECT_EQ(StateRecord(256, 4, 0, 0), 0x3Fu);
  EXPECT_EQ(StateRecord(4, 4, 16, 0), 0x40u);
  EXPECT_EQ(StateRecord(4, 4, 112, 0), 0x1C0u);
  EXPECT_EQ(StateRecord(4, 4, 0, 128), 0x200u);
  EXPECT_EQ(StateRecord(4, 4, 0, 511 * 128), 0x3FE00u);
  EXPECT_EQ(StateRecord(8, 4, 32, 256), 0x481u);
}

// Two groups: the first with LDS and two waves, the second with event words before it and one wave.
ContextArea TwoGroups() {
  AreaGroup first;
  first.state = StateRecord(4, 4, 16, 128);
  first.vgpr_count = 4;
  first.sgpr_count = 16;
  first.lds_dwords = 128;
  first.waves.resize(2);
  first.waves[0].first_in_group = true;
  first.waves[0].vgprs.assign(4 * 64, 0xA0);
  first.waves[0].vgprs[64] = 0xA1;  // v1 of lane 0
  first.waves[0].sgprs.assign(16, 0x50);
  for (uint32_t i = 0; i < 16; ++i) {
    first.waves[0].hwregs[i] = 0x100 + i;
    first.waves[0].ttmps[i] = 0x200 + i;
  }
  first.waves[0].lds.assign(128, 0x1D5);
  first.waves[1].vgprs = {0xB0};          // the rest is zero
  first.waves[1].lds.assign(128, 0xBAD);  // not saved: the group's LDS went with the first wave
  AreaGroup second;
  second.state = StateRecord(8, 4, 0, 0);
  second.vgpr_count = 8;
  second.before = {0x40000123, 0xC0000456};
  second.waves.resize(1);
  second.waves[0].first_in_group = true;
  second.waves[0].vgprs.assign(9 * 64, 0xC0);  // one register more than the group has
  return {.groups = {first, second}};
}

// Block sizes in dwords: 4 * 64 + 16 + 16 + 16 + 128 + 16 = 448 with LDS, 320 without,
// 8 * 64 + 48 = 560 for the wave of the second group.
constexpr uint32_t kFirstBlock = 4 * 448;
constexpr uint32_t kSecondBlock = 4 * 320;
constexpr uint32_t kThirdBlock = 4 * 560;
constexpr uint32_t kBlocks = kFirstBlock + kSecondBlock + kThirdBlock;
constexpr uint32_t kStack = 4 * (2 + 1 + 2 + 2 + 1 + 1);

TEST(ContextAreaWriter, HeaderAndControlStack) {
  const std::string bytes = ContextAreaBytes(TwoGroups());
  EXPECT_EQ(U32sAt(bytes, 0, 4),
            (std::vector<uint32_t>{16, kStack, 16 + kStack + kBlocks, kBlocks}));
  EXPECT_EQ(U32sAt(bytes, 16, kStack / 4),
            (std::vector<uint32_t>{0, 0, 0x80000240, 0x20000, 0, 0x40000123, 0xC0000456, 0x80000001,
                                   0x20000}));
  EXPECT_EQ(bytes.size(), 16u + kStack + kBlocks);
}

TEST(ContextAreaWriter, FirstBlockLiesOnTop) {
  const std::string bytes = ContextAreaBytes(TwoGroups());
  const size_t block = bytes.size() - kFirstBlock;
  EXPECT_EQ(U32sAt(bytes, block, 64), std::vector<uint32_t>(64, 0xA0));
  EXPECT_EQ(U32At(bytes, block + 4 * 64), 0xA1u);
  EXPECT_EQ(U32sAt(bytes, block + 4 * 65, 191), std::vector<uint32_t>(191, 0xA0));
  EXPECT_EQ(U32sAt(bytes, block + 4 * 256, 16), std::vector<uint32_t>(16, 0x50));
  for (uint32_t i = 0; i < 16; ++i) {
    EXPECT_EQ(U32At(bytes, block + 4 * (272 + i)), 0x100 + i);
    EXPECT_EQ(U32At(bytes, block + 4 * (288 + i)), 0x200 + i);
  }
  EXPECT_EQ(U32sAt(bytes, block + 4 * 304, 128), std::vector<uint32_t>(128, 0x1D5));
  EXPECT_EQ(bytes.substr(block + 4 * 432), Zeros(4 * 16));
}

TEST(ContextAreaWriter, SecondWaveOfAGroupSavesNoLds) {
  const std::string bytes = ContextAreaBytes(TwoGroups());
  const size_t block = bytes.size() - kFirstBlock - kSecondBlock;
  EXPECT_EQ(U32At(bytes, block), 0xB0u);
  EXPECT_EQ(bytes.substr(block + 4, kSecondBlock - 4), Zeros(kSecondBlock - 4));
}

TEST(ContextAreaWriter, RegistersBeyondTheGroupsCountAreLeftOut) {
  const std::string bytes = ContextAreaBytes(TwoGroups());
  const size_t block = 16 + kStack;
  EXPECT_EQ(U32sAt(bytes, block, 512), std::vector<uint32_t>(512, 0xC0));
  EXPECT_EQ(bytes.substr(block + 4 * 512, 4 * 48), Zeros(4 * 48));
}

TEST(ContextAreaWriter, GroupWithoutStateRecord) {
  AreaGroup group;
  group.state_record = false;
  group.waves.resize(2);
  const std::string bytes = ContextAreaBytes({.groups = {group}});
  EXPECT_EQ(U32sAt(bytes, 0, 8),
            (std::vector<uint32_t>{16, 16, 32 + 2 * 192, 2 * 192, 0, 0, 0, 0}));
  EXPECT_EQ(bytes.size(), 32u + 2 * 192);
}

TEST(ContextAreaWriter, SlackLiesBetweenHeaderAndControlStack) {
  AreaGroup group;
  group.waves.resize(1);
  const std::string bytes = ContextAreaBytes({.groups = {group}, .slack = 48});
  EXPECT_EQ(U32sAt(bytes, 0, 4), (std::vector<uint32_t>{64, 16, 80 + 192, 192}));
  EXPECT_EQ(bytes.substr(16, 48), Zeros(48));
  EXPECT_EQ(U32sAt(bytes, 64, 4), (std::vector<uint32_t>{0, 0, 0x80000000, 0}));
}

TEST(ContextAreaWriter, SizeAddsZerosBehindTheWaves) {
  AreaGroup group;
  group.waves.resize(1);
  group.waves[0].hwregs[0] = 0x77;
  const std::string bytes = ContextAreaBytes({.groups = {group}, .size = 200'000});
  EXPECT_EQ(U32sAt(bytes, 0, 4), (std::vector<uint32_t>{16, 16, 32 + 192, 192}));
  EXPECT_EQ(U32At(bytes, 32), 0x77u);
  EXPECT_EQ(bytes.size(), 200'000u);
  EXPECT_EQ(bytes.substr(224), Zeros(200'000 - 224));
}

TEST(ContextAreaWriter, ContentGivesTheSameBytes) {
  ContextArea area = TwoGroups();
  area.slack = 8;
  area.size = 150'000;
  const Content content = ContextAreaContent(area);
  std::string bytes;
  content.Produce([&bytes](const std::string& piece) { bytes += piece; });
  EXPECT_EQ(content.size(), 150'000u);
  EXPECT_TRUE(bytes == ContextAreaBytes(area));
}

TEST(ContextAreaWriter, WavesMadeOneByOne) {
  AreaGroup group;
  group.lds_dwords = 128;
  group.wave_count = 3;
  group.make_wave = [](uint64_t index) {
    AreaWave wave;
    wave.hwregs[0] = 0xA0 + static_cast<uint32_t>(index);
    wave.lds.assign(128, 0x1D5);
    return wave;
  };
  const std::string bytes = ContextAreaBytes({.groups = {group}});
  EXPECT_EQ(U32sAt(bytes, 16, 6), (std::vector<uint32_t>{0, 0, 0x80000000, 0x20000, 0, 0}));
  const size_t bottom = 16 + 24;
  EXPECT_EQ(U32At(bytes, bottom), 0xA2u);
  EXPECT_EQ(U32At(bytes, bottom + 192), 0xA1u);
  EXPECT_EQ(U32At(bytes, bottom + 2 * 192), 0xA0u);
  EXPECT_EQ(U32At(bytes, bottom + 2 * 192 + 4 * 32), 0x1D5u);
  EXPECT_EQ(bytes.size(), bottom + 3 * 192 + 4 * 128);
}

// ---------------------------------------------------------------------------------------------
// Memory directories

TEST(MemoryDirectoryWriter, IndexLinesAndSnapshots) {
  const TempDir temp;
  const std::string dir = temp.Path("deep/mems");
  const std::vector<MemoryRegion> regions = {
      {.addr = 0x7F0000000000, .bytes = std::string(4096, 'm'), .flags = 0x21, .gpu_ids = {7, 9}},
      {.addr = 0xABC000, .bytes = "xyz"},
  };
  ASSERT_TRUE(WriteMemoryDirectory(regions, dir));
  EXPECT_EQ(ReadText(dir + "/process_mem_info"),
            "[0x7f0000000000 4096 0x7f0000001000 0 0x21 alloc\n"
            "[0x7f0000000000 4096 mapped to gpu: 7\n"
            "[0x7f0000000000 4096 mapped to gpu: 9\n"
            "[0xabc000 3 0xabc003 0 0x0 alloc\n");
  EXPECT_EQ(ReadText(dir + "/0X7F0000000000-0X7F0000001000-4096"), std::string(4096, 'm'));
  EXPECT_EQ(ReadText(dir + "/0XABC000-0XABC003-3"), "xyz");
}

TEST(MemoryDirectoryWriter, DirectoryThatCannotBeMadeIsReported) {
  EXPECT_FALSE(WriteMemoryDirectory({}, "/dev/null/mems"));
  EXPECT_EQ(errno, ENOTDIR);
}

// ---------------------------------------------------------------------------------------------
// Ring packets

TEST(SampleRingPackets, KernelDispatch) {
  const std::string bytes = KernelDispatchPacket({.header = 0x1502,
                                                  .setup = 3,
                                                  .workgroup_size = {256, 2, 1},
                                                  .grid_size = {0x10000, 4, 5},
                                                  .private_segment_size = 0x60,
                                                  .group_segment_size = 0x400,
                                                  .kernel_object = 0x7F0000001900,
                                                  .kernarg_address = 0x7F1000000040,
                                                  .reserved2 = 0x1122334455667788,
                                                  .completion_signal = 0x99AABBCCDDEEFF00});
  EXPECT_EQ(U32sAt(bytes, 0, 16),
            (std::vector<uint32_t>{0x00031502, 0x00020100, 0x00000001, 0x00010000, 4, 5, 0x60,
                                   0x400, 0x00001900, 0x7F00, 0x00000040, 0x7F10, 0x55667788,
                                   0x11223344, 0xDDEEFF00, 0x99AABBCC}));
  EXPECT_EQ(bytes.size(), 64u);
}

TEST(SampleRingPackets, Barrier) {
  const std::string bytes = BarrierPacket({.header = 0x1503,
                                           .dep_signal = {0x100000001, 2, 3, 4, 0x500000005},
                                           .reserved2 = 6,
                                           .completion_signal = 7});
  EXPECT_EQ(U32sAt(bytes, 0, 16),
            (std::vector<uint32_t>{0x1503, 0, 1, 1, 2, 0, 3, 0, 4, 0, 5, 5, 6, 0, 7, 0}));
  EXPECT_EQ(bytes.size(), 64u);
}

TEST(SampleRingPackets, AgentDispatch) {
  const std::string bytes = AgentDispatchPacket({.header = 0x1504,
                                                 .type = 0x8001,
                                                 .return_address = 0x100000002,
                                                 .arg = {3, 4, 5, 0x600000006},
                                                 .reserved2 = 7,
                                                 .completion_signal = 8});
  EXPECT_EQ(U32sAt(bytes, 0, 16),
            (std::vector<uint32_t>{0x80011504, 0, 2, 1, 3, 0, 4, 0, 5, 0, 6, 6, 7, 0, 8, 0}));
  EXPECT_EQ(bytes.size(), 64u);
}

TEST(SampleRingPackets, DwordsAreLittleEndian) {
  EXPECT_EQ(Dwords({0x04030201, 0x80}), std::string("\x01\x02\x03\x04\x80\0\0\0", 8));
}

TEST(SampleRingPackets, StoresTouchTheirOwnBytesOnly) {
  std::string bytes(16, '\xEE');
  PutU16(bytes, 1, 0x0201);
  PutU32(bytes, 4, 0x06050403);
  PutU64(bytes, 8, 0x0E0D0C0B0A090807);
  EXPECT_EQ(bytes, "\xEE\x01\x02\xEE\x03\x04\x05\x06\x07\x08\x09\x0A\x0B\x0C\x0D\x0E");
}

}  // namespace
}  // namespace sample
