#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>
#include <string>
#include <vector>

#include "captured_output.h"
#include "core_dump_info.h"
#include "temp_dir.h"

namespace {

// An analyser whose memory directory is a fresh one.
class ProcessMemoryTest : public testing::Test {
 protected:
  ProcessMemoryTest() { analyser_.mem_dir_ = dir_.Path(); }

  void WriteIndex(const std::string& text) { WriteText(dir_.Path("process_mem_info"), text); }

  // Loads an index of `text`.
  void Load(const std::string& text) {
    WriteIndex(text);
    ASSERT_TRUE(analyser_.initProcessMem());
  }

  // What a read gives: as many bytes as it says it copied.
  std::string Read(uint64_t size, uint64_t ptr) {
    std::string buffer(size, '?');
    buffer.resize(analyser_.getMemInfo(buffer.data(), size, ptr));
    return buffer;
  }

  TempDir dir_;
  CoreDumpInfo analyser_;
};

using MemoryIndexTest = ProcessMemoryTest;
using MemoryReadTest = ProcessMemoryTest;

TEST_F(MemoryIndexTest, AnAllocLineMakesARegion) {
  Load("[0x1000 0x100 a b 3 alloc\n");
  ASSERT_EQ(analyser_.mem_info_map.size(), 1u);
  const MemInfo& region = analyser_.mem_info_map.at(0x1000);
  EXPECT_EQ(region.addr, 0x1000u);
  EXPECT_EQ(region.size, 0x100u);
  EXPECT_EQ(region.flag, 3u);
  EXPECT_EQ(region.name, dir_.Path("0X1000-0X1100-256"));
  EXPECT_TRUE(region.gpu_ids.empty());
}

TEST_F(MemoryIndexTest, ASnapshotIsNamedByItsBoundsInUpperCase) {
  Load("[0x7f0000000000 0x1000 a b 0 alloc\n[0x7fabcdef0000 0x10000 a b 0 alloc\n");
  EXPECT_EQ(analyser_.mem_info_map.at(0x7F0000000000).name,
            dir_.Path("0X7F0000000000-0X7F0000001000-4096"));
  EXPECT_EQ(analyser_.mem_info_map.at(0x7FABCDEF0000).name,
            dir_.Path("0X7FABCDEF0000-0X7FABCDF00000-65536"));
}

TEST_F(MemoryIndexTest, NumbersAreHexadecimalOctalOrDecimalByTheirPrefix) {
  Load("[0X1F 0X10 a b 0x0f alloc\n[4096 100 a b 12 alloc\n[010 020 a b 017 alloc\n");
  ASSERT_EQ(analyser_.mem_info_map.size(), 3u);
  EXPECT_EQ(analyser_.mem_info_map.at(0x1F).size, 16u);
  EXPECT_EQ(analyser_.mem_info_map.at(0x1F).flag, 15u);
  EXPECT_EQ(analyser_.mem_info_map.at(4096).size, 100u);
  EXPECT_EQ(analyser_.mem_info_map.at(4096).flag, 12u);
  EXPECT_EQ(analyser_.mem_info_map.at(8).size, 16u);
  EXPECT_EQ(analyser_.mem_info_map.at(8).flag, 15u);
}

TEST_F(MemoryIndexTest, ANumberEndsAtTheFirstOtherCharacter) {
  Load("[0x1000] 0x100, a b 3) alloc\n");
  EXPECT_EQ(analyser_.mem_info_map.at(0x1000).size, 0x100u);
  EXPECT_EQ(analyser_.mem_info_map.at(0x1000).flag, 3u);
}

TEST_F(MemoryIndexTest, ATokenWithoutNumberReadsAsZero) {
  Load("[start size a b flag alloc\n");
  EXPECT_EQ(analyser_.mem_info_map.at(0).size, 0u);
  EXPECT_EQ(analyser_.mem_info_map.at(0).flag, 0u);
}

TEST_F(MemoryIndexTest, TheFirstCharacterIsSkippedWhateverItIs) {
  Load("90x1000 16 a b 0 alloc\n");
  ASSERT_EQ(analyser_.mem_info_map.size(), 1u);
  EXPECT_EQ(analyser_.mem_info_map.at(0x1000).size, 16u);
}

TEST_F(MemoryIndexTest, TwoBlanksInARowHoldAnEmptyToken) {
  Load("[0x1000  0x100 b 3 alloc\n");
  EXPECT_EQ(analyser_.mem_info_map.at(0x1000).size, 0u);
  EXPECT_EQ(analyser_.mem_info_map.at(0x1000).flag, 3u);
}

TEST_F(MemoryIndexTest, FlagsAndGpuIdsAreKeptInThirtyTwoBits) {
  Load("[0x1000 16 a b 0x1FFFFFFFF alloc\n[0x1000 b c d e 0x100000002 gpu:\n");
  EXPECT_EQ(analyser_.mem_info_map.at(0x1000).flag, 0xFFFFFFFFu);
  EXPECT_EQ(analyser_.mem_info_map.at(0x1000).gpu_ids, (std::vector<uint32_t>{2}));
}

TEST_F(MemoryIndexTest, FiveTokensAreEnoughForAnAllocLine) {
  Load("[0x1000 0x100 alloc b 3\n");
  EXPECT_EQ(analyser_.mem_info_map.at(0x1000).flag, 3u);
}

TEST_F(MemoryIndexTest, TheLastLineNeedsNoLineFeed) {
  Load("[0x1000 0x100 a b 3 alloc");
  EXPECT_EQ(analyser_.mem_info_map.at(0x1000).size, 0x100u);
}

TEST_F(MemoryIndexTest, GpuLinesAddTheirIdsInOrder) {
  Load(
      "[0x1000 0x100 a b 3 alloc\n"
      "[0x1000 map to the gpu: 26\n"
      "[0x1000 map to the gpu: 7 more tokens\n");
  const MemInfo& region = analyser_.mem_info_map.at(0x1000);
  EXPECT_EQ(region.gpu_ids, (std::vector<uint32_t>{26, 7}));
  EXPECT_EQ(region.size, 0x100u);
}

TEST_F(MemoryIndexTest, AGpuLineForAnUnknownAddressMakesAnEmptyEntry) {
  Load("[0x1000 map to the gpu: 26\n");
  const MemInfo& entry = analyser_.mem_info_map.at(0x1000);
  EXPECT_EQ(entry.addr, 0u);
  EXPECT_EQ(entry.size, 0u);
  EXPECT_EQ(entry.flag, 0u);
  EXPECT_EQ(entry.name, "");
  EXPECT_EQ(entry.gpu_ids, (std::vector<uint32_t>{26}));
}

TEST_F(MemoryIndexTest, ALineWithBothKeywordsIsBoth) {
  Load("[0x1000 0x100 alloc b 3 26 gpu:\n");
  const MemInfo& region = analyser_.mem_info_map.at(0x1000);
  EXPECT_EQ(region.size, 0x100u);
  EXPECT_EQ(region.flag, 3u);
  EXPECT_EQ(region.gpu_ids, (std::vector<uint32_t>{26}));
}

TEST_F(MemoryIndexTest, ASecondAllocLineReplacesTheWholeEntry) {
  Load(
      "[0x1000 0x100 a b 3 alloc\n"
      "[0x1000 map to the gpu: 26\n"
      "[0x1000 0x200 a b 5 alloc\n");
  ASSERT_EQ(analyser_.mem_info_map.size(), 1u);
  const MemInfo& region = analyser_.mem_info_map.at(0x1000);
  EXPECT_EQ(region.size, 0x200u);
  EXPECT_EQ(region.flag, 5u);
  EXPECT_EQ(region.name, dir_.Path("0X1000-0X1200-512"));
  EXPECT_TRUE(region.gpu_ids.empty());
}

TEST_F(MemoryIndexTest, KeywordsAreFoundAnywhereInTheLine) {
  Load("[0x1000 0x100 a b 3reallocated\n[0x1000 b c d e 26gpu:s\n");
  EXPECT_EQ(analyser_.mem_info_map.at(0x1000).size, 0x100u);
  EXPECT_EQ(analyser_.mem_info_map.at(0x1000).gpu_ids, (std::vector<uint32_t>{26}));
}

TEST_F(MemoryIndexTest, OtherLinesAreSkipped) {
  Load("\nprocess memory of 4711\nALLOC\n[0x1000 0x100 a b 3 gpu\n   \n");
  EXPECT_TRUE(analyser_.mem_info_map.empty());
}

TEST_F(MemoryIndexTest, AnEmptyIndexIsASuccess) {
  Load("");
  EXPECT_TRUE(analyser_.mem_info_map.empty());
}

TEST_F(MemoryIndexTest, ALongLineIsReadWhole) {
  Load("[0x1000 0x100 " + std::string(100000, 'a') + " b 3 alloc\n");
  EXPECT_EQ(analyser_.mem_info_map.at(0x1000).flag, 3u);
}

TEST_F(MemoryIndexTest, RegionsStandByAscendingAddress) {
  Load("[0x3000 1 a b 0 alloc\n[0x1000 1 a b 0 alloc\n[0x2000 1 a b 0 alloc\n");
  std::vector<uint64_t> addresses;
  for (const auto& [address, region] : analyser_.mem_info_map) {
    addresses.push_back(address);
  }
  EXPECT_EQ(addresses, (std::vector<uint64_t>{0x1000, 0x2000, 0x3000}));
}

TEST_F(MemoryIndexTest, LoadingIsLoggedAtInfo) {
  WriteIndex("");
  const ScopedLogLevel level("info");
  OutputCapture capture;
  EXPECT_TRUE(analyser_.initProcessMem());
  const Output output = capture.Stop();
  EXPECT_EQ(WithoutTimes(output.out), "[time] Info: CoreDump init process mem.\n");
  EXPECT_EQ(output.err, "");
}

TEST_F(MemoryIndexTest, AMissingIndexFailsWithAWarning) {
  const ScopedLogLevel level("info");
  OutputCapture capture;
  EXPECT_FALSE(analyser_.initProcessMem());
  const Output output = capture.Stop();
  EXPECT_EQ(WithoutTimes(output.out),
            "[time] Info: CoreDump init process mem.\n"
            "[time] Warning: Can not Open: " +
                dir_.Path("process_mem_info") + ".\n");
  EXPECT_EQ(output.err, "");
  EXPECT_TRUE(analyser_.mem_info_map.empty());
}

TEST_F(MemoryIndexTest, AMissingIndexIsSilentAtTheDefaultLevel) {
  OutputCapture capture;
  EXPECT_FALSE(analyser_.initProcessMem());
  const Output output = capture.Stop();
  EXPECT_EQ(output.out, "");
  EXPECT_EQ(output.err, "");
}

// The index is trusted: a recognised line that is too short ends the run, like any exception that
// nobody catches.
class ShortIndexLineDeathTest : public ProcessMemoryTest {
 protected:
  void LoadUncaught() noexcept { analyser_.initProcessMem(); }
};

TEST_F(ShortIndexLineDeathTest, AnAllocLineOfFourTokensEndsTheRun) {
  WriteIndex("[0x1000 0x100 a alloc\n");
  EXPECT_EXIT(LoadUncaught(), testing::KilledBySignal(SIGABRT), "std::out_of_range");
}

TEST_F(ShortIndexLineDeathTest, AGpuLineOfFiveTokensEndsTheRun) {
  WriteIndex("[0x1000 map to gpu: 26\n");
  EXPECT_EXIT(LoadUncaught(), testing::KilledBySignal(SIGABRT), "std::out_of_range");
}

TEST_F(MemoryReadTest, CopiesTheWholeRegion) {
  Load("[0x1000 8 a b 0 alloc\n");
  WriteText(dir_.Path("0X1000-0X1008-8"), std::string("ab\0defgh", 8));
  EXPECT_EQ(Read(8, 0x1000), std::string("ab\0defgh", 8));
}

TEST_F(MemoryReadTest, CopiesNoMoreThanWanted) {
  Load("[0x1000 8 a b 0 alloc\n");
  WriteText(dir_.Path("0X1000-0X1008-8"), "abcdefgh");
  char buffer[] = "????????";
  EXPECT_EQ(analyser_.getMemInfo(buffer, 3, 0x1002), 3u);
  EXPECT_STREQ(buffer, "cde?????");
}

TEST_F(MemoryReadTest, EndsAtTheEndOfTheRegion) {
  Load("[0x1000 0x100 a b 0 alloc\n");
  WriteText(dir_.Path("0X1000-0X1100-256"), std::string(0xF0, 'a') + "0123456789abcdef");
  EXPECT_EQ(Read(4096, 0x10F0), "0123456789abcdef");
  EXPECT_EQ(Read(17, 0x10F0).size(), 16u);
}

TEST_F(MemoryReadTest, DoesNotGoOnIntoTheNextRegion) {
  Load("[0x1000 4 a b 0 alloc\n[0x1004 4 a b 0 alloc\n");
  WriteText(dir_.Path("0X1000-0X1004-4"), "abcd");
  WriteText(dir_.Path("0X1004-0X1008-4"), "efgh");
  EXPECT_EQ(Read(8, 0x1002), "cd");
  EXPECT_EQ(Read(8, 0x1004), "efgh");
}

TEST_F(MemoryReadTest, TheLastByteBelongsToTheRegion) {
  Load("[0x1000 4 a b 0 alloc\n");
  WriteText(dir_.Path("0X1000-0X1004-4"), "abcd");
  EXPECT_EQ(Read(8, 0x1003), "d");
}

TEST_F(MemoryReadTest, TheAddressesAroundARegionAreNotInIt) {
  Load("[0x1000 4 a b 0 alloc\n");
  WriteText(dir_.Path("0X1000-0X1004-4"), "abcd");
  EXPECT_EQ(Read(8, 0x1004), "");
  EXPECT_EQ(Read(8, 0xFFF), "");
}

TEST_F(MemoryReadTest, OfOverlappingRegionsTheLowestIsRead) {
  Load("[0x1002 4 a b 0 alloc\n[0x1000 8 a b 0 alloc\n");
  WriteText(dir_.Path("0X1000-0X1008-8"), "abcdefgh");
  WriteText(dir_.Path("0X1002-0X1006-4"), "WXYZ");
  EXPECT_EQ(Read(8, 0x1003), "defgh");
}

// The large region ends behind the small one inside it and begins before it.
TEST_F(MemoryReadTest, ARegionInsideAnotherIsNotRead) {
  Load(
      "[0x1000 0x10 a b 0 alloc\n[0x2000 0x30 a b 0 alloc\n[0x2010 0x10 a b 0 alloc\n"
      "[0x3000 0x10 a b 0 alloc\n");
  WriteText(dir_.Path("0X1000-0X1010-16"), std::string(16, 'a'));
  WriteText(dir_.Path("0X2000-0X2030-48"), std::string(48, 'b'));
  WriteText(dir_.Path("0X2010-0X2020-16"), std::string(16, 'c'));
  WriteText(dir_.Path("0X3000-0X3010-16"), std::string(16, 'd'));
  EXPECT_EQ(Read(1, 0x100F), "a");
  EXPECT_EQ(Read(1, 0x1010), "");
  EXPECT_EQ(Read(1, 0x2000), "b");
  EXPECT_EQ(Read(1, 0x2018), "b");
  EXPECT_EQ(Read(1, 0x202F), "b");
  EXPECT_EQ(Read(1, 0x2030), "");
  EXPECT_EQ(Read(1, 0x3000), "d");
  EXPECT_EQ(Read(1, 0x3010), "");
}

TEST_F(MemoryReadTest, ARegionThatEndsBehindTheLastAddressHoldsNothingAndHidesNothing) {
  Load("[0x1000 0xFFFFFFFFFFFFF800 a b 0 alloc\n[0x2000 0x10 a b 0 alloc\n");
  WriteText(dir_.Path("0X2000-0X2010-16"), std::string(16, 'b'));
  EXPECT_EQ(Read(1, 0x1000), "");
  EXPECT_EQ(Read(1, 0x7FF), "");
  EXPECT_EQ(Read(1, 0x2008), "b");
}

TEST_F(MemoryReadTest, AnIndexLoadedLaterCountsAtOnce) {
  Load("[0x1000 0x10 a b 0 alloc\n");
  WriteText(dir_.Path("0X1000-0X1010-16"), std::string(16, 'a'));
  EXPECT_EQ(Read(1, 0x1018), "");
  Load("[0x1000 0x20 a b 0 alloc\n");
  WriteText(dir_.Path("0X1000-0X1020-32"), std::string(32, 'b'));
  EXPECT_EQ(Read(1, 0x1018), "b");
}

TEST_F(MemoryReadTest, AnEntryMadeByAGpuLineHoldsNothing) {
  Load("[0x1000 map to the gpu: 26\n");
  OutputCapture capture;
  EXPECT_EQ(Read(8, 0x1000), "");
  EXPECT_EQ(Read(8, 0), "");
  EXPECT_EQ(capture.Stop().err, "");
}

TEST_F(MemoryReadTest, WithoutBufferNothingIsCopied) {
  Load("[0x1000 4 a b 0 alloc\n");
  WriteText(dir_.Path("0X1000-0X1004-4"), "abcd");
  EXPECT_EQ(analyser_.getMemInfo(nullptr, 4, 0x1000), 0u);
}

TEST_F(MemoryReadTest, NothingWantedTouchesNoFile) {
  Load("[0x1000 4 a b 0 alloc\n");
  char byte = '?';
  OutputCapture capture;
  EXPECT_EQ(analyser_.getMemInfo(&byte, 0, 0x1000), 0u);
  EXPECT_EQ(capture.Stop().err, "");
  EXPECT_EQ(byte, '?');
}

TEST_F(MemoryReadTest, WithoutAnIndexNothingIsCopied) {
  EXPECT_FALSE(analyser_.initProcessMem());
  EXPECT_EQ(Read(8, 0x1000), "");
}

TEST_F(MemoryReadTest, AMissingSnapshotIsAnError) {
  Load("[0x1000 4 a b 0 alloc\n");
  OutputCapture capture;
  EXPECT_EQ(Read(4, 0x1000), "");
  const Output output = capture.Stop();
  EXPECT_EQ(output.out, "");
  EXPECT_EQ(WithoutTimes(output.err),
            "[time] Error: mem_name:" + dir_.Path("0X1000-0X1004-4") + " failed\n");
}

TEST_F(MemoryReadTest, ASnapshotLongerThanItsRegionIsReadUpToTheRegionsEnd) {
  Load("[0x1000 4 a b 0 alloc\n");
  WriteText(dir_.Path("0X1000-0X1004-4"), "abcdefgh");
  OutputCapture capture;
  EXPECT_EQ(Read(8, 0x1002), "cd");
  EXPECT_EQ(capture.Stop().err, "");
}

TEST_F(MemoryReadTest, ASnapshotShorterThanItsRegionGivesWhatItHoldsAndAnError) {
  Load("[0x1000 8 a b 0 alloc\n");
  WriteText(dir_.Path("0X1000-0X1008-8"), "abcd");
  OutputCapture capture;
  EXPECT_EQ(Read(8, 0x1002), "cd");
  EXPECT_EQ(WithoutTimes(capture.Stop().err),
            "[time] Error: damaged core file: memory snapshot of 0X1000: file offset 0X2, "
            "wanted 6 bytes, available 2 bytes\n");
}

TEST_F(MemoryReadTest, AnEmptySnapshotGivesNothingAndAnError) {
  Load("[0x1000 8 a b 0 alloc\n");
  WriteText(dir_.Path("0X1000-0X1008-8"), "");
  OutputCapture capture;
  EXPECT_EQ(Read(8, 0x1002), "");
  EXPECT_EQ(WithoutTimes(capture.Stop().err),
            "[time] Error: damaged core file: memory snapshot of 0X1000: file offset 0X2, "
            "wanted 6 bytes, available 0 bytes\n");
}

TEST_F(MemoryReadTest, EveryReadLooksAtTheSnapshotAnew) {
  Load("[0x1000 4 a b 0 alloc\n");
  WriteText(dir_.Path("0X1000-0X1004-4"), "abcd");
  EXPECT_EQ(Read(4, 0x1000), "abcd");
  WriteText(dir_.Path("0X1000-0X1004-4"), "efgh");
  EXPECT_EQ(Read(4, 0x1000), "efgh");
}

TEST_F(MemoryReadTest, KeepsNothingMapped) {
  Load("[0x1000 4 a b 0 alloc\n");
  WriteText(dir_.Path("0X1000-0X1004-4"), "abcd");
  EXPECT_EQ(Read(4, 0x1000), "abcd");
  EXPECT_EQ(ReadText("/proc/self/maps").find(dir_.Path()), std::string::npos);
}

}  // namespace
