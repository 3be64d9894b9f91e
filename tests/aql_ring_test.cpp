// Rings of AQL queues to files: the text of all slots and the raw ring.
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "aql_packet_fixture.h"
#include "aql_slots.h"
#include "captured_output.h"
#include "core_dump_info.h"
#include "core_file_writer.h"
#include "temp_dir.h"

namespace {

namespace fs = std::filesystem;

using Names = std::vector<std::string>;

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

}  // namespace
