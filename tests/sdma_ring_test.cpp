// Rings of SDMA queues to files, and rings at the end of a core file.
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include "captured_output.h"
#include "core_dump_info.h"
#include "core_file_writer.h"
#include "loaded_core_file.h"
#include "row_name.h"
#include "sdma_text.h"
#include "temp_dir.h"

namespace {

namespace fs = std::filesystem;

using Names = std::vector<std::string>;

// ---------------------------------------------------------------------------------------------
// Queues

class SdmaRingTest : public testing::Test {
 protected:
  SdmaRingTest() {
    analyser_.dump_queue_dir_ = dir_.Path("queues");
    queue_.queue_id = 5;
    queue_.queue_type = 1;
  }

  void SetRing(const std::string& ring) {
    memory_ = std::vector<char>(ring.begin(), ring.end());
    queue_.ring_offset = reinterpret_cast<uint64_t>(memory_.data());
    queue_.ring_size = ring.size();
  }

  std::string Packets() const { return ReadText(save_dir_ + "/packets"); }
  std::string Ring() const { return ReadText(save_dir_ + "/sdma_rb"); }

  TempDir dir_;
  const std::string save_dir_ = dir_.Path("queues/5");
  CoreDumpInfo analyser_;
  std::vector<char> memory_;
  CoreDumpQueue queue_ = {};
};

TEST_F(SdmaRingTest, IsDescribedAndCopied) {
  const std::string ring = sample::Dwords({6, 7});
  SetRing(ring);
  OutputCapture capture;
  EXPECT_TRUE(analyser_.DumpPacket(&queue_));
  const Output output = capture.Stop();
  EXPECT_EQ(output.out, "");
  EXPECT_EQ(output.err, "");
  EXPECT_EQ(Packets(), kTrapText);
  EXPECT_EQ(Ring(), ring);
  EXPECT_EQ(ListTree(dir_.Path()),
            (Names{"queues/", "queues/5/", "queues/5/packets", "queues/5/sdma_rb"}));
}

TEST_F(SdmaRingTest, ReadAndWritePointersAreNotLookedAt) {
  SetRing(sample::Dwords({6, 7}));
  queue_.rptr_value = 100;
  queue_.wptr_value = 100;
  EXPECT_TRUE(analyser_.dumpSdmaPacket(&queue_));
  EXPECT_EQ(Packets(), kTrapText);
}

TEST_F(SdmaRingTest, ASecondRunAppendsThePacketsAndReplacesTheRing) {
  SetRing(sample::Dwords({6, 7}));
  EXPECT_TRUE(analyser_.dumpSdmaPacket(&queue_));
  SetRing(sample::Dwords({0}));
  EXPECT_TRUE(analyser_.dumpSdmaPacket(&queue_));
  EXPECT_EQ(Packets(), std::string(kTrapText) +
                           "packet sub index: 0\n"
                           "Invalid sdma packet\n"
                           "\n");
  EXPECT_EQ(Ring(), sample::Dwords({0}));
}

TEST_F(SdmaRingTest, OfASizeThatIsNoMultipleOfAWordIsCopiedWhole) {
  const std::string ring = sample::Dwords({0}) + std::string(2, '\0');
  SetRing(ring);
  memory_.resize(8);  // what lies behind the ring
  queue_.ring_offset = reinterpret_cast<uint64_t>(memory_.data());
  EXPECT_TRUE(analyser_.dumpSdmaPacket(&queue_));
  EXPECT_EQ(Packets(),
            "packet sub index: 0\n"
            "Invalid sdma packet\n"
            "packet sub index: 1\n"
            "Invalid sdma packet\n"
            "\n");
  EXPECT_EQ(Ring(), ring);
}

TEST_F(SdmaRingTest, EmptyHasNoRawCopy) {
  SetRing(sample::Dwords({6, 7}));
  queue_.ring_size = 0;
  OutputCapture capture;
  EXPECT_FALSE(analyser_.DumpPacket(&queue_));
  const Output output = capture.Stop();
  EXPECT_EQ(WithoutTimes(output.err), "[time] Error: dump sdma packet failed\n");
  EXPECT_EQ(output.out, "");
  EXPECT_EQ(ListTree(save_dir_), Names{"packets"});
  EXPECT_EQ(Packets(), "\n");
}

TEST_F(SdmaRingTest, PacketsThatCannotBeWrittenEndTheDump) {
  SetRing(sample::Dwords({6, 7}));
  fs::create_directories(save_dir_ + "/packets");
  OutputCapture capture;
  EXPECT_FALSE(analyser_.DumpPacket(&queue_));
  const Output output = capture.Stop();
  EXPECT_EQ(WithoutTimes(output.err), "[time] Error: dump sdma packet failed\n");
  EXPECT_EQ(output.out, "");
  EXPECT_EQ(ListTree(save_dir_), Names{"packets/"});
}

TEST_F(SdmaRingTest, ARingThatCannotBeWrittenFailsTheDump) {
  SetRing(sample::Dwords({6, 7}));
  fs::create_directories(save_dir_ + "/sdma_rb");
  OutputCapture capture;
  EXPECT_FALSE(analyser_.DumpPacket(&queue_));
  EXPECT_EQ(WithoutTimes(capture.Stop().err), "[time] Error: dump sdma packet failed\n");
  EXPECT_EQ(Packets(), kTrapText);
}

TEST_F(SdmaRingTest, OnlyDumpPacketSaysThatItFailed) {
  SetRing(sample::Dwords({6, 7}));
  fs::create_directories(save_dir_ + "/packets");
  OutputCapture capture;
  EXPECT_FALSE(analyser_.dumpSdmaPacket(&queue_));
  EXPECT_EQ(capture.Stop().err, "");
}

TEST_F(SdmaRingTest, TheDirectoryHasTheUnsignedIdAndTheDebugLogTheSignedOne) {
  SetRing(sample::Dwords({6, 7}));
  queue_.queue_id = 0xFFFFFFFF;
  const ScopedLogLevel level("debug");
  OutputCapture capture;
  EXPECT_TRUE(analyser_.DumpPacket(&queue_));
  const Output output = capture.Stop();
  EXPECT_EQ(WithoutTimes(output.out), "[time] Debug: dumpSdmaPacket queu id: -1\n");
  EXPECT_EQ(output.err, "");
  EXPECT_EQ(ListTree(dir_.Path("queues")),
            (Names{"4294967295/", "4294967295/packets", "4294967295/sdma_rb"}));
}

// ---------------------------------------------------------------------------------------------
// Rings at the end of a core file

class SdmaCoreFileTest : public LoadedCoreFileTest {
 protected:
  // A file of back-to-back regions that ends with the rings.
  static sample::CoreFile FileWithRings(const std::vector<std::string>& rings) {
    sample::CoreFile file;
    file.queues.resize(rings.size());
    for (size_t i = 0; i < rings.size(); ++i) {
      file.queues[i].queue_id = static_cast<uint32_t>(i);
      file.queues[i].queue_type = 1;
      file.queues[i].ring = rings[i];
    }
    using sample::Region;
    file.layout.order = {Region::kReason,      Region::kAgents,  Region::kQueues, Region::kContexts,
                         Region::kCodeObjects, Region::kKernels, Region::kElfs,   Region::kWaves,
                         Region::kEnvironment, Region::kRings};
    file.layout.alignment = 1;
    return file;
  }

  void OverrideRingSize(sample::CoreFile& file, uint64_t size) {
    file.overrides = {{.record = sample::Override::Record::kQueue, .offset = 64, .value = size}};
  }

  // Loads the file and dumps its first queue; keeps what was said of it.
  void Dump(const sample::CoreFile& file) {
    OutputCapture capture;
    EXPECT_TRUE(Load(file));
    EXPECT_TRUE(analyser_.DumpPacket(analyser_.queue_lists.at(0)));
    err_ = capture.Stop().err;
  }

  std::string Packets() const { return ReadText(out_ + "/queues/0/packets"); }
  std::string Ring() const { return ReadText(out_ + "/queues/0/sdma_rb"); }

  std::string err_;
};

TEST_F(SdmaCoreFileTest, ALastPacketIsReadOnIntoTheFile) {
  Dump(FileWithRings({sample::Dwords({6}), sample::Dwords({0x01234567, 0x89ABCDEF})}));
  EXPECT_EQ(Packets(),
            "packet sub index: 0\n"
            "op: TRAP (6)\n"
            "subop: 0\n"
            "int_ctx: 19088743\n"
            "\n"
            "\n");
  EXPECT_EQ(Ring(), sample::Dwords({6}));
  EXPECT_EQ(err_, "");
}

TEST_F(SdmaCoreFileTest, BehindTheEndOfTheFileALastPacketReadsAsZero) {
  Dump(FileWithRings({sample::Dwords({0xFFFFFF08, 0x11111111, 0x22222222})}));
  EXPECT_EQ(Packets(),
            "packet sub index: 0\n"
            "op: POLL REGMEM (8)\n"
            "subop: 255\n"
            "hdp_flush: 1\n"
            "func: 7\n"
            "mem_poll: 1\n"
            "addr_lo: 0X11111111\n"
            "addr_hi: 0X22222222\n"
            "value: 0\n"
            "mask: 0\n"
            "interval: 0\n"
            "retry_count: 0\n"
            "\n"
            "\n");
  EXPECT_EQ(Ring(), sample::Dwords({0xFFFFFF08, 0x11111111, 0x22222222}));
  EXPECT_EQ(err_, "");
}

TEST_F(SdmaCoreFileTest, AWordThatTheEndOfTheFileCutsReadsAsZeroFromThere) {
  Dump(FileWithRings({sample::Dwords({6}) + "\xEF\xCD\xAB"}));
  EXPECT_EQ(Packets(),
            "packet sub index: 0\n"
            "op: TRAP (6)\n"
            "subop: 0\n"
            "int_ctx: 11259375\n"
            "\n"
            "\n");
  EXPECT_EQ(Ring(), sample::Dwords({6}) + "\xEF\xCD\xAB");
}

TEST_F(SdmaCoreFileTest, AnOpInTheLastByteOfTheFileIsAPacket) {
  Dump(FileWithRings({sample::Dwords({0}) + "\x01"}));
  EXPECT_EQ(Packets(),
            "packet sub index: 0\n"
            "Invalid sdma packet\n"
            "packet sub index: 1\n"
            "op: COPY (1)\n"
            "subop: COPY LINEAR (0)\n"
            "extra_info: 0\n"
            "count: 0\n"
            "dst_swap: 0\n"
            "src_swap: 0\n"
            "src_addr_lo: 0X0\n"
            "src_addr_hi: 0X0\n"
            "dst_addr_lo: 0X0\n"
            "dst_addr_hi: 0X0\n"
            "\n"
            "\n");
}

TEST_F(SdmaCoreFileTest, TheLongestPacketIsReadOnWhole) {
  std::vector<uint32_t> rest(12, 0);
  rest[11] = 0x03030007;
  Dump(FileWithRings({sample::Dwords({0x00000101}), sample::Dwords(rest)}));
  EXPECT_NE(Packets().find("\nrect_z: 7\n"
                           "dst_swap: 3\n"
                           "src_swap: 3\n"
                           "\n"
                           "\n"),
            std::string::npos);
}

// The size of the stream is a signed number of 32 bits; what the file has of the ring is copied.
struct RingSizeCase {
  const char* name;
  uint64_t ring_size;
  const char* packets;
};

void PrintTo(const RingSizeCase& row, std::ostream* out) { *out << row.name; }

class SdmaRingSizeTest : public SdmaCoreFileTest,
                         public testing::WithParamInterface<RingSizeCase> {};

TEST_P(SdmaRingSizeTest, IsCutToThirtyTwoBits) {
  sample::CoreFile file = FileWithRings({sample::Dwords({6, 7, 0})});
  OverrideRingSize(file, GetParam().ring_size);
  Dump(file);
  EXPECT_EQ(Packets(), GetParam().packets);
  EXPECT_EQ(Ring(), sample::Dwords({6, 7, 0}));
}

constexpr RingSizeCase kRingSizes[] = {
    {"Zero", 0x100000000, "\n"},
    {"ZeroOfALargeSize", 0xFFFFFFFF00000000, "\n"},
    {"Lowest", 0x80000000, "\n"},
    {"MinusOne", 0xFFFFFFFF, "\n"},
    {"MinusOneOfTheLargestSize", 0xFFFFFFFFFFFFFFFF, "\n"},
    {"Eight", 0x100000008, kTrapText},
};

INSTANTIATE_TEST_SUITE_P(Sizes, SdmaRingSizeTest, testing::ValuesIn(kRingSizes),
                         RowName<RingSizeCase>);

}  // namespace
