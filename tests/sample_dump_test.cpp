// What talvex-sample puts into its dumps, read by offsets written out by hand.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <vector>

#include "raw_bytes.h"
#include "run_process.h"
#include "temp_dir.h"

namespace {

struct TableRange {
  uint64_t offset;
  uint64_t count;
};

// One wave of a context save area.
struct Wave {
  size_t block;  // offset in the file
  uint32_t vgprs;
  uint64_t pc;
  uint64_t trap_pc;
  uint64_t exec;
  uint32_t trapsts;
  uint32_t status;
  uint32_t hw_id;
  uint64_t kernarg;  // s[4:5]
};

// A dump that the program wrote, and the fields of its core file.
class Dump {
 public:
  explicit Dump(std::vector<std::string> options) {
    options.insert(options.end(), {"--output", dir_.Path()});
    const ProcessResult result = RunProcess(TALVEX_SAMPLE_BINARY, options);
    EXPECT_EQ(result.status, 0) << result.err;
    core_ = ReadText(dir_.Path("core_0"));
    // The fields of the older header lie 8 bytes earlier.
    first_field_ = core_.substr(0, 4) == "OXCD" ? 16 : 8;
  }

  const std::string& core() const { return core_; }
  std::string Path(const std::string& name) const { return dir_.Path(name); }

  uint64_t reason() const { return U64At(core_, first_field_); }
  uint64_t reason_size() const { return U64At(core_, first_field_ + 8); }
  TableRange agents() const { return Range(16); }
  TableRange queues() const { return Range(32); }
  TableRange code_objects() const { return Range(48); }
  TableRange environment() const { return Range(64); }

  size_t agent(uint64_t index) const { return agents().offset + 1112 * index; }
  size_t queue(uint64_t index) const { return queues().offset + 144 * index; }
  size_t code_object(uint64_t index) const { return code_objects().offset + 64 * index; }

  uint32_t queue_type(uint64_t index) const { return U32At(core_, queue(index) + 12); }
  size_t ring(uint64_t index) const { return U64At(core_, queue(index) + 104); }
  size_t ring_size(uint64_t index) const { return U64At(core_, queue(index) + 64); }
  size_t area(uint64_t index) const { return U64At(core_, queue(index) + 136); }

  std::vector<uint32_t> ControlStack(uint64_t index) const {
    const size_t at = area(index);
    return U32sAt(core_, at + U32At(core_, at), U32At(core_, at + 4) / 4);
  }

  std::vector<Wave> Waves(uint64_t index, uint32_t vgpr_granule = 4) const;

 private:
  TableRange Range(size_t field) const {
    return {U64At(core_, first_field_ + field), U64At(core_, first_field_ + field + 8)};
  }

  TempDir dir_;
  std::string core_;
  size_t first_field_;
};

std::vector<Wave> Dump::Waves(uint64_t index, uint32_t vgpr_granule) const {
  std::vector<Wave> waves;
  const std::vector<uint32_t> stack = ControlStack(index);
  size_t block = area(index) + U32At(core_, area(index) + 8);
  uint32_t vgprs = 0;
  uint32_t sgprs = 0;
  uint32_t lds = 0;
  for (size_t i = 2; i < stack.size(); ++i) {
    const uint32_t word = stack[i];
    if (word >> 30 == 2) {
      vgprs = ((word & 0x3F) + 1) * vgpr_granule;
      sgprs = (word >> 6 & 7) * 16;
      lds = (word >> 9 & 0x1FF) * 128;
    } else if (word >> 30 == 0) {
      const bool first = (word & 0x20000) != 0;
      block -= 4 * (vgprs * 64 + sgprs + 48 + (first ? lds : 0));
      const size_t scalars = block + 4 * 64 * vgprs;
      const size_t regs = scalars + 4 * sgprs;
      const size_t ttmps = regs + 64;
      Wave wave;
      wave.block = block;
      wave.vgprs = vgprs;
      wave.pc = U64At(core_, regs + 4);
      wave.exec = U64At(core_, regs + 12);
      wave.status = U32At(core_, regs + 20);
      wave.trapsts = U32At(core_, regs + 24);
      wave.hw_id = U32At(core_, regs + 40);
      wave.trap_pc =
          uint64_t{U32At(core_, ttmps + 44) >> 7 & 0xFFFF} << 32 | U32At(core_, ttmps + 28);
      wave.kernarg = U64At(core_, scalars + 16);
      waves.push_back(wave);
    }
  }
  const size_t bottom =
      area(index) + U32At(core_, area(index) + 8) - U32At(core_, area(index) + 12);
  EXPECT_EQ(block, bottom);
  return waves;
}

std::string FixedText(const std::string& bytes, size_t offset) {
  return bytes.substr(offset, bytes.find('\0', offset) - offset);
}

// The addresses of a bundled kernel's instructions, as the list beside it has them.
std::set<uint64_t> Instructions(const std::string& kernel, const std::string& mnemonic_part = "") {
  std::set<uint64_t> addresses;
  std::ifstream list(std::string(TALVEX_KERNELS_DIR) + "/" + kernel + ".pcs");
  uint64_t address;
  std::string mnemonic;
  while (list >> std::hex >> address >> mnemonic) {
    if (mnemonic.find(mnemonic_part) != std::string::npos) {
      addresses.insert(address);
    }
  }
  EXPECT_FALSE(addresses.empty()) << kernel;
  return addresses;
}

// In the order in which they are loaded.
const char* const kBundled[] = {"copy", "histogram", "matmul", "reduction", "saxpy"};
constexpr uint64_t kHistogram = 1;

// Whether `pc` is the address of an instruction of one of the first agent's code objects.
bool IsInstruction(const Dump& dump, uint64_t pc) {
  for (uint64_t i = 0; i < std::size(kBundled); ++i) {
    const uint64_t base = U64At(dump.core(), dump.code_object(i));
    const uint64_t size = U64At(dump.core(), dump.code_object(i) + 8);
    if (pc >= base && pc < base + size) {
      return Instructions(kBundled[i]).count(pc - base) == 1;
    }
  }
  return false;
}

// ---------------------------------------------------------------------------------------------
// Headers and reasons

TEST(SampleDumpHeader, FormatOne) {
  const Dump dump({});
  EXPECT_EQ(dump.core().substr(0, 4), "OXCD");
  EXPECT_EQ(U32sAt(dump.core(), 4, 3), (std::vector<uint32_t>{1, 1, 0}));
  EXPECT_EQ(dump.reason(), 128u);
  EXPECT_EQ(dump.reason_size(), 112u);
  EXPECT_EQ(dump.agents().count, 1u);
  EXPECT_EQ(dump.queues().count, 4u);
  EXPECT_EQ(dump.code_objects().count, 5u);
}

TEST(SampleDumpHeader, FormatZero) {
  const Dump dump({"--format", "0", "--agents", "3", "--queues", "6"});
  EXPECT_EQ(U64At(dump.core(), 0), 0x20220519u);
  EXPECT_EQ(dump.reason(), 88u);
  EXPECT_EQ(dump.reason_size(), 112u);
  EXPECT_EQ(dump.agents().count, 3u);
  EXPECT_EQ(dump.queues().count, 6u);
  EXPECT_EQ(dump.code_objects().count, 15u);
}

class SampleDumpReason : public testing::TestWithParam<const char*> {};

TEST_P(SampleDumpReason, VmFaultNamesAgentNodeAndPage) {
  const Dump dump({"--format", GetParam()});
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
    const Dump dump({"--format", GetParam(), "--reason", "queue-error", "--seed", seed});
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
    const Dump dump({"--format", GetParam(), "--reason", "signal", "--seed", seed});
    EXPECT_EQ(U32At(dump.core(), dump.reason()), 2u);
    EXPECT_EQ(U32At(dump.core(), dump.reason() + 104), number);
  }
}

INSTANTIATE_TEST_SUITE_P(Formats, SampleDumpReason, testing::Values("0", "1"),
                         [](const auto& test) { return std::string("Format") + test.param; });

TEST(SampleDumpEnvironment, IsTextThatEndsInAZeroByte) {
  const Dump dump({});
  const TableRange range = dump.environment();
  const std::string text = FixedText(dump.core(), range.offset);
  EXPECT_EQ(text.size() + 1, range.count);
  EXPECT_EQ(text.substr(0, 33), "SHELL=/bin/bash\nHOME=/home/user\nU");
  EXPECT_EQ(text.back(), '\n');
}

// ---------------------------------------------------------------------------------------------
// Agents, queues, code objects

TEST(SampleDumpAgents, AreOfThreeKindsInTurn) {
  const Dump dump({"--agents", "4", "--queues", "0"});
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
  const Dump dump({"--queues", "6"});
  for (uint64_t i = 0; i < 6; ++i) {
    const std::vector<uint32_t> types = {2, 1, 0, 3, 2, 1};
    EXPECT_EQ(U32At(dump.core(), dump.queue(i)), i);
    EXPECT_EQ(dump.queue_type(i), types[i]);
    EXPECT_EQ(U32At(dump.core(), dump.queue(i) + 16), types[i] == 2 ? 1u : 0u);
    EXPECT_EQ(dump.ring_size(i), 4096u);
  }
}

TEST(SampleDumpQueues, EveryAgentGetsItsFirstBeforeAnyGetsItsSecond) {
  const Dump dump({"--agents", "2", "--queues", "4"});
  const std::vector<uint32_t> types = {2, 2, 1, 1};
  for (uint64_t i = 0; i < 4; ++i) {
    EXPECT_EQ(dump.queue_type(i), types[i]);
    EXPECT_EQ(U32At(dump.core(), dump.queue(i) + 8), U32At(dump.core(), dump.agent(i % 2) + 1024));
  }
}

TEST(SampleDumpCodeObjects, HoldTheBundledImagesAndTheirKernels) {
  const Dump dump({});
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
  const Dump dump({"--agents", "2", "--queues", "0"});
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
  const Dump dump({"--code-object", saxpy, "--code-object", saxpy});
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
std::vector<uint32_t> PacketTypes(const Dump& dump, size_t first, size_t count, bool retired) {
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
  const Dump dump({"--format", GetParam()});
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
  const Dump dump({});
  for (size_t slot = 0; slot < 64; ++slot) {
    EXPECT_EQ(U64At(dump.core(), dump.ring(0) + 64 * slot + 48), 0u) << slot;
  }
}

TEST(SampleDumpRings, DispatchesNameKernelsAndDumpedArguments) {
  const Dump dump({});
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
  const Dump dump({});
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

// ---------------------------------------------------------------------------------------------
// Waves

TEST(SampleDumpWaves, AreSpreadOverTheQueuesOfTheirAgent) {
  const Dump dump({"--queues", "9", "--waves", "14"});
  EXPECT_EQ(dump.Waves(0).size(), 5u);
  EXPECT_EQ(dump.Waves(4).size(), 5u);
  EXPECT_EQ(dump.Waves(8).size(), 4u);
  EXPECT_EQ(U64At(dump.core(), dump.queue(1) + 120), 0u);
}

TEST(SampleDumpWaves, ControlStackHoldsEveryKindOfWord) {
  const Dump dump({});
  const std::vector<uint32_t> stack = dump.ControlStack(0);
  std::vector<size_t> counts(4, 0);
  for (size_t i = 2; i < stack.size(); ++i) {
    ++counts[stack[i] >> 30];
  }
  EXPECT_EQ(counts[0], 12u);  // waves
  EXPECT_EQ(counts[1], 1u);   // events
  EXPECT_EQ(counts[2], 3u);   // groups
  EXPECT_EQ(counts[3], 1u);   // both top bits
  // The stack ends at a page, and the record tells its whole size.
  const size_t area = dump.area(0);
  EXPECT_EQ(U32At(dump.core(), area) + U32At(dump.core(), area + 4), 4096u);
  EXPECT_EQ(U64At(dump.core(), dump.queue(0) + 128), 4096u);
}

TEST(SampleDumpWaves, FirstGroupFaultsAtAStoreOfTheHistogram) {
  const Dump dump({});
  const std::vector<Wave> waves = dump.Waves(0);
  ASSERT_EQ(waves.size(), 12u);
  const uint64_t base = U64At(dump.core(), dump.code_object(kHistogram));
  for (size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(waves[i].trapsts, 0x100u);
    EXPECT_EQ(waves[i].exec, 0xFFFFFFFFFFFFFFFFu);
    EXPECT_EQ(Instructions("histogram", "_store_").count(waves[i].trap_pc - base), 1u);
    EXPECT_FALSE(IsInstruction(dump, waves[i].pc));  // it stands in the trap handler
    // v[0:1] hold the address, 4 bytes a lane and 64 lanes a wave from the page of the reason.
    const uint64_t address = U64At(dump.core(), dump.reason() + 80) + 256 * i;
    EXPECT_EQ(U32At(dump.core(), waves[i].block), address & 0xFFFFFFFF);
    EXPECT_EQ(U32At(dump.core(), waves[i].block + 4), (address & 0xFFFFFFFF) + 4);
    EXPECT_EQ(U32At(dump.core(), waves[i].block + 256), address >> 32);
  }
}

TEST(SampleDumpWaves, OthersStandAtInstructionsOfTheirKernels) {
  const Dump dump({"--waves", "200"});
  const std::vector<Wave> waves = dump.Waves(0);
  ASSERT_EQ(waves.size(), 200u);
  for (size_t i = 4; i < waves.size(); ++i) {
    EXPECT_EQ(waves[i].trapsts, 0u);
    EXPECT_EQ(waves[i].trap_pc, 0u);
    EXPECT_TRUE(IsInstruction(dump, waves[i].pc)) << i;
    EXPECT_EQ(waves[i].status & 0x10840, 0x10840u) << i;  // valid, in a group, traps enabled
    EXPECT_EQ((waves[i].status & 0x200) != 0, waves[i].exec == 0) << i;
  }
}

TEST(SampleDumpWaves, WorkItemsAndKernelArgumentsAreWhereKernelsExpectThem) {
  const Dump dump({});
  const std::vector<Wave> waves = dump.Waves(0);
  ASSERT_EQ(waves.size(), 12u);
  for (uint32_t lane = 0; lane < 64; ++lane) {
    EXPECT_EQ(U32At(dump.core(), waves[4].block + 4 * lane), lane);
    EXPECT_EQ(U32At(dump.core(), waves[5].block + 4 * lane), 64 + lane);
  }
  // The groups run the dispatches in flight in turn; these lie in slots 27, 29 and 31.
  EXPECT_EQ(waves[0].kernarg, U64At(dump.core(), dump.ring(0) + 64 * 27 + 40));
  EXPECT_EQ(waves[4].kernarg, U64At(dump.core(), dump.ring(0) + 64 * 29 + 40));
  EXPECT_EQ(waves[8].kernarg, U64At(dump.core(), dump.ring(0) + 64 * 31 + 40));
}

// 40 waves on each of 64 compute units: every unit and SIMD is full and no slot is taken twice.
TEST(SampleDumpWaves, FillTheWholeProcessorBeforeASlotIsUsedTwice) {
  const Dump dump({"--waves", "2560", "--vgprs", "4"});
  std::set<uint32_t> places;
  std::set<uint32_t> simds;
  for (const Wave& wave : dump.Waves(0)) {
    EXPECT_EQ(wave.hw_id >> 12 & 1, 0u);
    places.insert(wave.hw_id & 0x6F3F);  // SE, CU, SIMD, slot
    simds.insert(wave.hw_id & 0x6F30);
  }
  EXPECT_EQ(places.size(), 2560u);
  EXPECT_EQ(simds.size(), 256u);
}

TEST(SampleDumpWaves, IllegalInstructionSetsItsOwnBit) {
  const Dump dump({"--reason", "queue-error", "--seed", "2"});
  const std::vector<Wave> waves = dump.Waves(0);
  ASSERT_EQ(waves.size(), 12u);
  EXPECT_EQ(waves[0].trapsts, 0x800u);
  EXPECT_TRUE(IsInstruction(dump, waves[0].trap_pc));
  EXPECT_EQ(waves[4].trapsts, 0u);
}

TEST(SampleDumpWaves, LackOfScratchMemoryLeavesNoWaveFaulting) {
  const Dump dump({"--reason", "queue-error", "--seed", "1"});
  for (const Wave& wave : dump.Waves(0)) {
    EXPECT_EQ(wave.trapsts, 0u);
  }
}

TEST(SampleDumpWaves, LdsGoesWithKernelsThatUseIt) {
  const Dump dump({"--waves", "64"});
  std::set<uint32_t> lds_units;
  for (const uint32_t word : dump.ControlStack(0)) {
    if (word >> 30 == 2) {
      lds_units.insert(word >> 9 & 0x1FF);
    }
  }
  // None, the 1024 bytes of the reductions, the 2048 of the matrix product, in units of 512.
  EXPECT_EQ(lds_units, (std::set<uint32_t>{0, 2, 4}));
}

TEST(SampleDumpWaves, UnlistedCodeObjectGivesKernelEntries) {
  const TempDir dir;
  std::filesystem::copy_file(std::string(TALVEX_KERNELS_DIR) + "/histogram.co",
                             dir.Path("foreign.co"));
  const Dump dump({"--code-object", dir.Path("foreign.co")});
  const size_t kernels = U64At(dump.core(), dump.code_object(0) + 40);
  const std::set<uint64_t> entries = {U64At(dump.core(), kernels),
                                      U64At(dump.core(), kernels + 1032)};
  const std::vector<Wave> waves = dump.Waves(0);
  ASSERT_EQ(waves.size(), 12u);
  EXPECT_EQ(waves[0].trap_pc, U64At(dump.core(), kernels));
  for (size_t i = 4; i < waves.size(); ++i) {
    EXPECT_EQ(entries.count(waves[i].pc), 1u) << i;
  }
}

// The second agent splits its 24 registers between two banks, the third has them in units of 8.
TEST(SampleDumpWaves, SecondBankHoldsTheUpperRegisters) {
  const Dump dump({"--agents", "3", "--queues", "3"});
  const std::vector<Wave> waves = dump.Waves(1, 4);
  ASSERT_EQ(waves.size(), 12u);
  for (const Wave& wave : waves) {
    ASSERT_EQ(wave.vgprs, 12u);
    // v4 and v12 hold an index that grows by 1 from lane to lane.
    for (const size_t reg : {wave.block + 256 * 4, wave.block + 0x155A000}) {
      const uint32_t first = U32At(dump.core(), reg);
      EXPECT_NE(first, 0u);
      EXPECT_EQ(U32At(dump.core(), reg + 4 * 63), first + 63);
    }
  }
  for (const Wave& wave : dump.Waves(2, 8)) {
    EXPECT_EQ(wave.vgprs, 24u);
  }
}

TEST(SampleDumpWaves, EndBelowTheSecondBankHoweverManyAreWanted) {
  const Dump dump({"--agents", "2", "--queues", "2", "--waves", "7000", "--vgprs", "8"});
  EXPECT_EQ(dump.Waves(0).size(), 7000u);
  const size_t saved = dump.Waves(1).size();
  EXPECT_GT(saved, 6000u);
  EXPECT_LT(saved, 7000u);
  EXPECT_LE(U32At(dump.core(), dump.area(1) + 8), 0x155A000u);
}

TEST(SampleDumpWaves, SignalDumpsRecordThemInTheFile) {
  const Dump dump({"--reason", "signal", "--waves", "10"});
  EXPECT_EQ(U64At(dump.core(), dump.agent(0) + 1104), 10u);
  const size_t first = U64At(dump.core(), dump.agent(0) + 1096);
  EXPECT_EQ(dump.core().size(), first + 10 * 69696);
  for (size_t i = 0; i < 10; ++i) {
    const size_t wave = first + 69696 * i;
    EXPECT_TRUE(IsInstruction(dump, U64At(dump.core(), wave + 28))) << i;
    EXPECT_EQ(U32At(dump.core(), wave + 16) & 0x0F003F00, 0x02000500u);  // 48 SGPRs, 24 VGPRs
    EXPECT_EQ(U32At(dump.core(), wave + 64), 64 * (i % 4));              // v0 of lane 0
    EXPECT_EQ(U32At(dump.core(), wave + 64 + 1024 * 63), 64 * (i % 4) + 63);
  }
  EXPECT_EQ(dump.Waves(0).size(), 0u);
}

TEST(SampleDumpWaves, AgentWithoutAqlQueueHasNone) {
  const Dump dump({"--reason", "signal", "--agents", "3", "--queues", "2"});
  EXPECT_EQ(U64At(dump.core(), dump.agent(0) + 1104), 12u);
  EXPECT_EQ(U64At(dump.core(), dump.agent(1) + 1104), 12u);
  EXPECT_EQ(U64At(dump.core(), dump.agent(2) + 1104), 0u);
}

}  // namespace
