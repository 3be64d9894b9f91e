// The core file writer, read back by offsets written out by hand: headers, layouts, overrides and
// streams.
#include "core_file_writer.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <string>
#include <vector>

#include "raw_bytes.h"
#include "temp_dir.h"
#include "two_of_everything.h"

namespace sample {
namespace {

// ---------------------------------------------------------------------------------------------
// Headers

TEST(CoreFileWriterHeader, EmptyVersionOneFile) {
  const std::string bytes = CoreFileBytes(CoreFile{});
  EXPECT_EQ(bytes.substr(0, 4), "OXCD");
  EXPECT_EQ(U32At(bytes, 4), 1u);
  EXPECT_EQ(U32At(bytes, 8), 1u);
  EXPECT_EQ(U32At(bytes, 12), 0u);
  EXPECT_EQ(U64At(bytes, 16), 128u);  // the reason lies behind the header
  EXPECT_EQ(U64At(bytes, 24), 112u);
  EXPECT_EQ(bytes.substr(32, 48), Zeros(48));  // no agent, queue or code object
  EXPECT_EQ(U64At(bytes, 80), 240u);           // the environment lies behind the reason
  EXPECT_EQ(U64At(bytes, 88), 1u);
  EXPECT_EQ(bytes.substr(96), Zeros(32 + 112 + 1));
}

TEST(CoreFileWriterHeader, EmptyVersionZeroFile) {
  CoreFile file;
  file.format = 0;
  const std::string bytes = CoreFileBytes(file);
  EXPECT_EQ(U64At(bytes, 0), 0x20220519u);
  EXPECT_EQ(U64At(bytes, 8), 88u);
  EXPECT_EQ(U64At(bytes, 16), 112u);
  EXPECT_EQ(bytes.substr(24, 48), Zeros(48));
  EXPECT_EQ(U64At(bytes, 72), 200u);
  EXPECT_EQ(U64At(bytes, 80), 1u);
  EXPECT_EQ(bytes.size(), 201u);
}

TEST(CoreFileWriterHeader, VersionNumbersAreTakenAsGiven) {
  CoreFile file;
  file.version = {7, 8, 9};
  const std::string bytes = CoreFileBytes(file);
  EXPECT_EQ(U32At(bytes, 4), 7u);
  EXPECT_EQ(U32At(bytes, 8), 8u);
  EXPECT_EQ(U32At(bytes, 12), 9u);
}

// Regions of the default order, each at the next multiple of 8:
// reason 128..240, agents 240..2464, queues 2464..2752, code objects 2752..2880,
// kernels 2880..5976, environment 5976..5988, images 5992..5999 and 6000..6014,
// rings 6016..6084 (its backup word included) and 6088..6216, areas 6216..6240 and 6240..6272,
// the wave 6272..75968.
TEST(CoreFileWriterHeader, VersionOneLocatesEveryTable) {
  const std::string bytes = CoreFileBytes(TwoOfEverything());
  EXPECT_EQ(U64At(bytes, 16), 128u);
  EXPECT_EQ(U64At(bytes, 32), 240u);
  EXPECT_EQ(U64At(bytes, 40), 2u);
  EXPECT_EQ(U64At(bytes, 48), 2464u);
  EXPECT_EQ(U64At(bytes, 56), 2u);
  EXPECT_EQ(U64At(bytes, 64), 2752u);
  EXPECT_EQ(U64At(bytes, 72), 2u);
  EXPECT_EQ(U64At(bytes, 80), 5976u);
  EXPECT_EQ(U64At(bytes, 88), 12u);
  EXPECT_EQ(bytes.size(), 75968u);
}

TEST(CoreFileWriterHeader, VersionZeroLocatesEveryTableFortyBytesEarlier) {
  CoreFile file = TwoOfEverything();
  file.format = 0;
  const std::string bytes = CoreFileBytes(file);
  EXPECT_EQ(U64At(bytes, 8), 88u);
  EXPECT_EQ(U64At(bytes, 24), 200u);
  EXPECT_EQ(U64At(bytes, 32), 2u);
  EXPECT_EQ(U64At(bytes, 40), 2424u);
  EXPECT_EQ(U64At(bytes, 48), 2u);
  EXPECT_EQ(U64At(bytes, 56), 2712u);
  EXPECT_EQ(U64At(bytes, 64), 2u);
  EXPECT_EQ(U64At(bytes, 72), 5936u);
  EXPECT_EQ(U64At(bytes, 80), 12u);
  EXPECT_EQ(bytes.size(), 75928u);
}

// ---------------------------------------------------------------------------------------------
// Layout

TEST(CoreFileWriterLayout, RegionsInAnotherOrder) {
  CoreFile file = TwoOfEverything();
  file.layout.order = {Region::kWaves,       Region::kContexts,    Region::kRings,  Region::kElfs,
                       Region::kKernels,     Region::kCodeObjects, Region::kQueues, Region::kAgents,
                       Region::kEnvironment, Region::kReason};
  const std::string bytes = CoreFileBytes(file);
  // wave 128..69824, areas 69824..69848 and 69848..69880, rings 69880..69948 and 69952..70080,
  // images 70080..70087 and 70088..70102, kernels 70104..73200, code objects 73200..73328,
  // queues 73328..73616, agents 73616..75840, environment 75840..75852, reason 75856..75968.
  EXPECT_EQ(U64At(bytes, 16), 75856u);
  EXPECT_EQ(U64At(bytes, 32), 73616u);
  EXPECT_EQ(U64At(bytes, 48), 73328u);
  EXPECT_EQ(U64At(bytes, 64), 73200u);
  EXPECT_EQ(U64At(bytes, 80), 75840u);
  EXPECT_EQ(bytes.size(), 75968u);
  EXPECT_EQ(bytes.substr(73616, 6), std::string("first\0", 6));
  EXPECT_EQ(U64At(bytes, 73616 + 1112 + 1096), 128u);
  EXPECT_EQ(U32At(bytes, 73328), 3u);
  EXPECT_EQ(U64At(bytes, 73328 + 104), 69880u);
  EXPECT_EQ(U64At(bytes, 73328 + 136), 69824u);
  EXPECT_EQ(U64At(bytes, 73200 + 40), 70104u);
  EXPECT_EQ(U64At(bytes, 73200 + 56), 70080u);
  EXPECT_EQ(bytes.substr(70088, 14), "elf number two");
}

TEST(CoreFileWriterLayout, MisalignedRegionsLeaveFillerBetween) {
  CoreFile file;
  file.agents.resize(1);
  file.agents[0].name = "agent";
  file.layout.alignment = 16;
  file.layout.misalignment = 3;
  const std::string bytes = CoreFileBytes(file);
  EXPECT_EQ(U64At(bytes, 16), 131u);
  EXPECT_EQ(U64At(bytes, 32), 243u);  // the reason ends at 243, which is 3 beyond a multiple of 16
  EXPECT_EQ(U64At(bytes, 80), 1363u);
  EXPECT_EQ(bytes.substr(128, 3), "\xEE\xEE\xEE");
  EXPECT_EQ(bytes.substr(243, 5), "agent");
  EXPECT_EQ(bytes.substr(1355, 8), std::string(8, '\xEE'));
  EXPECT_EQ(bytes.size(), 1364u);
}

TEST(CoreFileWriterLayout, GapsLieBeforeEveryRegionAndImage) {
  CoreFile file;
  file.queues.resize(1);
  file.queues[0].ring = std::string(64, 'r');
  file.queues[0].header_backup = {0x1234};
  file.queues[0].context = "area";
  file.layout.alignment = 1;
  file.layout.gap = 5;
  const std::string bytes = CoreFileBytes(file);
  EXPECT_EQ(U64At(bytes, 16), 133u);
  EXPECT_EQ(U64At(bytes, 48), 250u);
  EXPECT_EQ(U64At(bytes, 80), 399u);
  EXPECT_EQ(U64At(bytes, 250 + 104), 405u);
  EXPECT_EQ(U64At(bytes, 250 + 136), 478u);
  const std::string gap(5, '\xEE');
  EXPECT_EQ(bytes.substr(128, 5), gap);
  EXPECT_EQ(bytes.substr(245, 5), gap);
  EXPECT_EQ(bytes.substr(394, 5), gap);
  EXPECT_EQ(bytes.substr(400),
            gap + std::string(64, 'r') + std::string("\x34\x12\0\0", 4) + gap + "area");
}

TEST(CoreFileWriterLayout, PlaceTellsWhereEverythingLies) {
  const Placement at = Place(TwoOfEverything());
  EXPECT_EQ(at.file_size, 75968u);
  EXPECT_EQ(at.reason, 128u);
  EXPECT_EQ(at.agents, (std::vector<uint64_t>{240, 1352}));
  EXPECT_EQ(at.queues, (std::vector<uint64_t>{2464, 2608}));
  EXPECT_EQ(at.code_objects, (std::vector<uint64_t>{2752, 2816}));
  EXPECT_EQ(at.kernels, (std::vector<uint64_t>{2880, 3912, 4944}));
  EXPECT_EQ(at.environment, 5976u);
  EXPECT_EQ(at.elfs, (std::vector<uint64_t>{5992, 6000}));
  EXPECT_EQ(at.rings, (std::vector<uint64_t>{6016, 6088}));
  EXPECT_EQ(at.contexts, (std::vector<uint64_t>{6216, 6240}));
  EXPECT_EQ(at.waves, (std::vector<uint64_t>{0, 6272}));
}

// ---------------------------------------------------------------------------------------------
// Overrides

TEST(CoreFileWriterOverride, ChangesOneFieldOfOneRecordOfEachKind) {
  CoreFile file = TwoOfEverything();
  const std::string before = CoreFileBytes(file);
  using R = Override::Record;
  file.overrides = {
      {.record = R::kHeader, .offset = 40, .value = 0x1111111111111111},
      {.record = R::kReason, .offset = 0, .width = 4, .value = 9},
      {.record = R::kAgent, .index = 1, .offset = 1056, .width = 1, .value = 0xFF},
      {.record = R::kQueue, .index = 1, .offset = 104, .value = 0x2222222222222222},
      {.record = R::kCodeObject, .index = 1, .offset = 48, .value = 0x3333333333333333},
      {.record = R::kKernel, .index = 2, .offset = 0, .value = 0x4444444444444444},
  };
  const std::string after = CoreFileBytes(file);
  std::string expected = before;
  expected.replace(40, 8, std::string(8, '\x11'));
  expected.replace(128, 4, std::string("\x09\0\0\0", 4));
  expected.replace(240 + 1112 + 1056, 1, std::string(1, '\xFF'));
  expected.replace(2464 + 144 + 104, 8, std::string(8, '\x22'));
  expected.replace(2752 + 64 + 48, 8, std::string(8, '\x33'));
  expected.replace(4944, 8, std::string(8, '\x44'));
  EXPECT_TRUE(after == expected);
  EXPECT_FALSE(after == before);
}

TEST(CoreFileWriterOverride, FaultSizeIsAFieldOfItsOwn) {
  CoreFile file;
  file.fault_size = 40;
  const std::string bytes = CoreFileBytes(file);
  EXPECT_EQ(U64At(bytes, 24), 40u);
  EXPECT_EQ(U64At(bytes, 80), 240u);  // the record itself is whole
}

// ---------------------------------------------------------------------------------------------
// Contents and streams

TEST(CoreFileWriterContent, BytesAreHandedOnAsTheyAre) {
  const Content content = "abc";
  std::string taken;
  content.Produce([&taken](const std::string& piece) { taken += piece; });
  EXPECT_EQ(content.size(), 3u);
  EXPECT_EQ(taken, "abc");
}

TEST(CoreFileWriterContent, ProducerMakesTheRegionPieceByPiece) {
  CoreFile file;
  file.queues.resize(1);
  file.queues[0].ring = Content(6, [](const auto& take) {
    take("ab");
    take("cdef");
  });
  file.queues[0].context = "area";
  const std::string bytes = CoreFileBytes(file);
  EXPECT_EQ(U64At(bytes, 240 + 64), 6u);
  EXPECT_EQ(U64At(bytes, 240 + 104), 392u);
  EXPECT_EQ(U64At(bytes, 240 + 136), 400u);
  EXPECT_EQ(bytes.substr(392),
            "abcdef\xEE\xEE"
            "area");
}

TEST(CoreFileWriterStream, WrittenFileEqualsTheBytesInMemory) {
  CoreFile file = TwoOfEverything();
  file.layout.gap = 100'000;  // more than one piece of filler
  file.layout.misalignment = 5;
  file.code_objects[0].elf = Content(300'000, [](const auto& take) {
    for (int i = 0; i < 3; ++i) {
      take(std::string(100'000, static_cast<char>('0' + i)));
    }
  });
  const TempDir dir;
  ASSERT_TRUE(WriteCoreFile(file, dir.Path("core_0")));
  const std::string written = ReadText(dir.Path("core_0"));
  EXPECT_EQ(written.size(), Place(file).file_size);
  EXPECT_TRUE(written == CoreFileBytes(file));
}

TEST(CoreFileWriterStream, MissingDirectoryIsReported) {
  const TempDir dir;
  EXPECT_FALSE(WriteCoreFile(CoreFile{}, dir.Path("no_such_directory/core_0")));
  EXPECT_EQ(errno, ENOENT);
}

TEST(CoreFileWriterStream, FullDeviceIsReported) {
  EXPECT_FALSE(WriteCoreFile(TwoOfEverything(), "/dev/full"));
  EXPECT_EQ(errno, ENOSPC);
}

}  // namespace
}  // namespace sample
