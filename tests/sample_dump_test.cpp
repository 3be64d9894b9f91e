// What talvex-sample puts into its dumps: header, reason, tables and rings.
#include "sample_dump.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "raw_bytes.h"
#include "temp_dir.h"

namespace {

// ---------------------------------------------------------------------------------------------
// Headers and reasons

TEST(SampleDumpHeader, FormatOne) {
  const SampleDump dump({});
  EXPECT_EQ(dump.core().substr(0, 4), "OXCD");
  EXPECT_EQ(U32sAt(dump.core(), 4, 3), (std::vector<uint32_t>{1, 1, 0}));
  EXPECT_EQ(dump.reason(), 128u);
  EXPECT_EQ(dump.reason_size(), 112u);
  EXPECT_EQ(dump.agents().count, 1u);
  EXPECT_EQ(dump.queues().count, 4u);
  EXPECT_EQ(dump.code_objects().count, 5u);
}

TEST(SampleDumpHeader, FormatZero) {
  const SampleDump dump({"--format", "0", "--agents", "3", "--queues", "6"});
  EXPECT_EQ(U64At(dump.core(), 0), 0x20220519u);
  EXPECT_EQ(dump.reason(), 88u);
  EXPECT_EQ(dump.reason_size(), 112u);
  EXPECT_EQ(dump.agents().count, 3u);
  EXPECT_EQ(dump.queues().count, 6u);
  EXPECT_EQ(dump.code_objects().count, 15u);
}

class SampleDumpReason : public testing::TestWithParam<const char*> {};

TEST_P(SampleDumpReason, VmFaultNamesAgentNodeAndPage) {
  const SampleDump dump({"--format", GetParam()});
  const size_t at = dump.reason();
  EXPECT_EQ(U32At(dump.core(), at), 1u);
  EXPECT_EQ(FixedText(dump.core(), at + 4), "ORVEN-gfx906");
  EXPECT_EQ(U32At(dump.core(), at + 68), 1u);
  EXPECT_EQ(U32At(dump.core(), at + 72), 1u);  // page not present
  EXPECT_EQ(U64At(dump.core(), at + 80) >> 40, 0x7Fu);
  EXPECT_EQ(U64At(dump.core(), at + 80) & 0xFFF, 0u);
}

TEST_P(SampleDumpReason, QueueErrorNamesTheFirstRing) {
  for (const auto& [seed, status] : {std::pair("1", 0x1008u), std::pair("2", 0x2Au)}) {
    const SampleDump dump({"--format", GetParam(), "--reason", "queue-error", "--seed", seed});
    const size_t at = dump.reason();
    EXPECT_EQ(U32At(dump.core(), at), 0u);
    EXPECT_EQ(FixedText(dump.core(), at + 4), "ORVEN-gfx906");
    EXPECT_EQ(U32At(dump.core(), at + 68), 1u);
    EXPECT_EQ(U32At(dump.core(), at + 88), status);
    EXPECT_EQ(U64At(dump.core(), at + 96), U64At(dump.core(), dump.queue(0) + 56));
  }
}

TEST_P(SampleDumpReason, SignalHasItsNumber) {
  for (const auto& [seed, number] : {std::pair("1", 10u), std::pair("2", 15u)}) {
    const SampleDump dump({"--format", GetParam(), "--reason", "signal", "--seed", seed});
    EXPECT_EQ(U32At(dump.core(), dump.reason()), 2u);
    EXPECT_EQ(U32At(dump.core(), dump.reason() + 104), number);
  }
}

INSTANTIATE_TEST_SUITE_P(Formats, SampleDumpReason, testing::Values("0", "1"),
                         [](const auto& test) { return std::string("Format") + test.param; });

TEST(SampleDumpEnvironment, IsTextThatEndsInAZeroByte) {
  const SampleDump dump({});
  const TableRange range = dump.environment();
  const std::string text = FixedText(dump.core(), range.offset);
  EXPECT_EQ(text.size() + 1, range.count);
  EXPECT_EQ(text.substr(0, 33), "SHELL=/bin/bash\nHOME=/home/user\nU");
  EXPECT_EQ(text.back(), '\n');
}

// ---------------------------------------------------------------------------------------------
// Agents, queues, code objects

TEST(SampleDumpAgents, AreOfThreeKindsInTurn) {
  const SampleDump dump({"--agents", "4", "--queues", "0"});
  const std::vector<std::pair<uint32_t, uint32_t>> chip_and_dp4x = {
      {0x5001, 0}, {0x500F, 1}, {0x5011, 1}, {0x5008, 0}};
  std::set<uint32_t> gpu_ids;
  for (uint64_t i = 0; i < 4; ++i) {
    const size_t at = dump.agent(i);
    EXPECT_EQ(FixedText(dump.core(), at), "ORVEN-gfx906");
    EXPECT_EQ(U32At(dump.core(), at + 1028), i + 1);
    EXPECT_EQ(U32At(dump.core(), at + 1052), chip_and_dp4x[i].first);
    EXPECT_EQ(U32At(dump.core(), at + 1056), chip_and_dp4x[i].second);
    EXPECT_EQ(U32At(dump.core(), at + 1060), 64u);
    gpu_ids.insert(U32At(dump.core(), at + 1024));
  }
  EXPECT_EQ(gpu_ids.size(), 4u);
}

TEST(SampleDumpQueues, TypesComeInTurn) {
  const SampleDump dump({"--queues", "6"});
  for (uint64_t i = 0; i < 6; ++i) {
    const std::vector<uint32_t> types = {2, 1, 0, 3, 2, 1};
    EXPECT_EQ(U32At(dump.core(), dump.queue(i)), i);
    EXPECT_EQ(dump.queue_type(i), types[i]);
    EXPECT_EQ(U32At(dump.core(), dump.queue(i) + 16), types[i] == 2 ? 1u : 0u);
    EXPECT_EQ(dump.ring_size(i), 4096u);
  }
}

TEST(SampleDumpQueues, EveryAgentGetsItsFirstBeforeAnyGetsItsSecond) {
  const SampleDump dump({"--agents", "2", "--queues", "4"});
  const std::vector<uint32_t> types = {2, 2, 1, 1};
  for (uint64_t i = 0; i < 4; ++i) {
    EXPECT_EQ(dump.queue_type(i), types[i]);
    EXPECT_EQ(U32At(dump.core(), dump.queue(i) + 8), U32At(dump.core(), dump.agent(i % 2) + 1024));
  }
}

TEST(SampleDumpCodeObjects, HoldTheBundledImagesAndTheirKernels) {
  const SampleDump dump({});
  for (uint64_t i = 0; i < std::size(kBundled); ++i) {
    const size_t at = dump.code_object(i);
    const std::string path = std::string(TALVEX_KERNELS_DIR) + "/" + kBundled[i] + ".co";
    const uint64_t elf_size = U64At(dump.core(), at + 24);
    EXPECT_TRUE(dump.core().substr(U64At(dump.core(), at + 56), elf_size) == ReadText(path));
    EXPECT_EQ(U64At(dump.core(), at + 32), U64At(dump.core(), dump.agent(0) + 1088));
    const uint64_t kernels = U64At(dump.core(), at + 48);
    EXPECT_GE(kernels, 1u);
    for (uint64_t k = 0; k < kernels; ++k) {
      const uint64_t address = U64At(dump.core(), U64At(dump.core(), at + 40) + 1032 * k);
      EXPECT_TRUE(IsInstruction(dump, address)) << kBundled[i];
    }
  }
  const size_t kernels = U64At(dump.core(), dump.code_object(kHistogram) + 40);
  EXPECT_EQ(FixedText(dump.core(), kernels + 8), "histogram");
  EXPECT_EQ(FixedText(dump.core(), kernels + 1032 + 8), "histogram_clear");
}

TEST(SampleDumpCodeObjects, AreLoadedOnEveryAgent) {
  const SampleDump dump({"--agents", "2", "--queues", "0"});
  EXPECT_EQ(dump.code_objects().count, 10u);
  std::set<uint64_t> addresses;
  for (uint64_t i = 0; i < 10; ++i) {
    EXPECT_EQ(U64At(dump.core(), dump.code_object(i) + 32),
              U64At(dump.core(), dump.agent(i / 5) + 1088));
    addresses.insert(U64At(dump.core(), dump.code_object(i)));
  }
  EXPECT_EQ(addresses.size(), 10u);
}

TEST(SampleDumpCodeObjects, GivenOnesTakeThePlaceOfTheBundled) {
  const std::string saxpy = std::string(TALVEX_KERNELS_DIR) + "/saxpy.co";
  const SampleDump dump({"--code-object", saxpy, "--code-object", saxpy});
  ASSERT_EQ(dump.code_objects().count, 2u);
  EXPECT_NE(U64At(dump.core(), dump.code_object(0)), U64At(dump.core(), dump.code_object(1)));
  for (uint64_t i = 0; i < 2; ++i) {
    const size_t kernel = U64At(dump.core(), dump.code_object(i) + 40);
    EXPECT_EQ(FixedText(dump.core(), kernel + 8), "saxpy");
  }
}

// ---------------------------------------------------------------------------------------------
// Rings

// The packet types of the first `count` slots: of the packet itself, or what it was before it was
// retired.
std::vector<uint32_t> PacketTypes(const SampleDump& dump, size_t first, size_t count,
                                  bool retired) {
  std::vector<uint32_t> types;
  for (size_t slot = first; slot < first + count; ++slot) {
    const size_t packet = dump.ring(0) + 64 * slot;
    const bool has_backup = dump.core().substr(0, 4) == "OXCD";
    const size_t kept = has_backup ? dump.ring(0) + dump.ring_size(0) + 4 * slot : packet + 48;
    types.push_back(U16At(dump.core(), retired ? kept : packet) & 0xFF);
  }
  return types;
}

// Each kind once: kernel dispatch, barriers, agent dispatch, vendor specific, reserved.
const std::vector<uint32_t> kEveryKind = {2, 3, 2, 4, 2, 5, 0, 2, 6};

class SampleDumpAqlRing : public testing::TestWithParam<const char*> {};

TEST_P(SampleDumpAqlRing, HoldsEveryKindRetiredAndInFlight) {
  const SampleDump dump({"--format", GetParam()});
  EXPECT_EQ(U64At(dump.core(), dump.queue(0) + 96), 27u);
  EXPECT_EQ(U64At(dump.core(), dump.queue(0) + 88), 45u);
  EXPECT_EQ(PacketTypes(dump, 0, 27, false), std::vector<uint32_t>(27, 1));
  for (size_t round = 0; round < 3; ++round) {
    EXPECT_EQ(PacketTypes(dump, 9 * round, 9, true), kEveryKind);
  }
  EXPECT_EQ(PacketTypes(dump, 27, 9, false), kEveryKind);
  EXPECT_EQ(PacketTypes(dump, 36, 9, false), kEveryKind);
  EXPECT_EQ(PacketTypes(dump, 45, 19, false), std::vector<uint32_t>(19, 1));
  EXPECT_EQ(PacketTypes(dump, 45, 19, true), std::vector<uint32_t>(19, 0));
}

INSTANTIATE_TEST_SUITE_P(Formats, SampleDumpAqlRing, testing::Values("0", "1"),
                         [](const auto& test) { return std::string("Format") + test.param; });

TEST(SampleDumpRings, BytesFortyEightAreFreeWhereHeadersHaveABackup) {
  const SampleDump dump({});
  for (size_t slot = 0; slot < 64; ++slot) {
    EXPECT_EQ(U64At(dump.core(), dump.ring(0) + 64 * slot + 48), 0u) << slot;
  }
}

TEST(SampleDumpRings, DispatchesNameKernelsAndDumpedArguments) {
  const SampleDump dump({});
  const std::string index = ReadText(dump.Path("mems/process_mem_info"));
  const uint64_t region = std::stoull(index.substr(1), nullptr, 16);
  EXPECT_NE(index.find(" mapped to gpu: " +
                       std::to_string(U32At(dump.core(), dump.agent(0) + 1024)) + "\n"),
            std::string::npos);
  char name[80];
  snprintf(name, sizeof(name), "mems/0X%lX-0X%lX-16384", region, region + 16384);
  const std::string arguments = ReadText(dump.Path(name));
  ASSERT_EQ(arguments.size(), 16384u);
  std::set<uint64_t> kernels;
  for (uint64_t i = 0; i < std::size(kBundled); ++i) {
    const size_t at = dump.code_object(i);
    for (uint64_t k = 0; k < U64At(dump.core(), at + 48); ++k) {
      kernels.insert(U64At(dump.core(), U64At(dump.core(), at + 40) + 1032 * k));
    }
  }
  for (const size_t slot : std::vector<size_t>{0, 2, 4, 7, 9, 27, 29, 43}) {
    const size_t packet = dump.ring(0) + 64 * slot;
    EXPECT_EQ(kernels.count(U64At(dump.core(), packet + 32)), 1u) << slot;
    const uint64_t kernarg = U64At(dump.core(), packet + 40);
    EXPECT_EQ(kernarg, region + 256 * slot);
    EXPECT_NE(arguments.substr(256 * slot, 32), std::string(32, '\0')) << slot;
    EXPECT_EQ(U16At(dump.core(), packet + 4) * U16At(dump.core(), packet + 6), 256u) << slot;
  }
}

TEST(SampleDumpRings, SdmaStreamHoldsEveryPacketAndUnknownDwords) {
  const SampleDump dump({});
  ASSERT_EQ(dump.queue_type(1), 1u);
  const size_t ring = dump.ring(1);
  // Op and sub-op of the first round, each packet right behind the one before it.
  const std::vector<std::pair<uint32_t, size_t>> packets = {
      {0x0001, 28}, {0x0401, 52}, {0x05, 16}, {0x7F, 4},    {0x08, 24},
      {0x0A, 32},   {0x0B, 20},   {0x06, 8},  {0x020D, 12}, {0x0001, 28}};
  size_t offset = 0;
  for (const auto& [op, size] : packets) {
    const uint32_t mask = op == 0x7F ? 0xFF : 0xFFFF;
    EXPECT_EQ(U32At(dump.core(), ring + offset) & mask, op) << offset;
    offset += size;
  }
  const uint64_t used = U64At(dump.core(), dump.queue(1) + 88);
  EXPECT_LE(used, 4096u);
  EXPECT_GT(used, 3900u);
  EXPECT_EQ(dump.core().substr(ring + used, 4096 - used), std::string(4096 - used, '\0'));
}

}  // namespace
