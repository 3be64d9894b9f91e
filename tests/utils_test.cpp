#include "utils.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <regex>
#include <string>
#include <vector>

#include "temp_dir.h"

namespace {

// A local time zone, given in the POSIX form that needs no data files, while the object lives.
class ScopedTimeZone {
 public:
  explicit ScopedTimeZone(const char* zone) {
    const char* previous = getenv("TZ");
    had_previous_ = previous != nullptr;
    previous_ = had_previous_ ? previous : "";
    setenv("TZ", zone, 1);
    tzset();
  }
  ~ScopedTimeZone() {
    if (had_previous_) {
      setenv("TZ", previous_.c_str(), 1);
    } else {
      unsetenv("TZ");
    }
    tzset();
  }

 private:
  bool had_previous_;
  std::string previous_;
};

// The process environment consists of `entries` while the object lives.
class ScopedEnvironment {
 public:
  explicit ScopedEnvironment(std::vector<std::string> entries) : entries_(std::move(entries)) {
    for (std::string& entry : entries_) {
      pointers_.push_back(entry.data());
    }
    pointers_.push_back(nullptr);
    environ = pointers_.data();
  }
  ~ScopedEnvironment() { environ = previous_; }

 private:
  char** previous_ = environ;
  std::vector<std::string> entries_;
  std::vector<char*> pointers_;
};

using Pieces = std::vector<std::string>;

Pieces Split(const std::string& text, const std::string& delimiter) {
  Pieces pieces;
  SplitStr(text, delimiter, pieces);
  return pieces;
}

TEST(GetSystemTimeTest, CompactStampIsFourteenDigits) {
  EXPECT_TRUE(std::regex_match(GetSystemTime(false), std::regex(R"(\d{14})")));
}

TEST(GetSystemTimeTest, FullStampIsTwentySixCharactersWithMicrosecondsLast) {
  const std::string stamp = GetSystemTime(true);
  EXPECT_EQ(stamp.size(), 26u);
  EXPECT_TRUE(std::regex_match(stamp, std::regex(R"(\d{4}/\d\d/\d\d \d\d:\d\d:\d\d \d{6})")));
}

TEST(GetSystemTimeTest, BothFormsTellTheTimeOfNow) {
  const ScopedTimeZone zone("UTC0");
  timeval before{};
  gettimeofday(&before, nullptr);
  const std::string now = GetSystemTime(true);
  const std::string compact = GetSystemTime(false);
  timeval after{};
  gettimeofday(&after, nullptr);

  // Stamps of fixed width with the greatest unit first stand in the order of their times.
  EXPECT_LE(SystemTimeFormat(before), now);
  EXPECT_LE(now, SystemTimeFormat(after));
  const auto digits = [](timeval& time) {
    return std::regex_replace(SystemTimeFormat(time).substr(0, 19), std::regex("[^0-9]"), "");
  };
  EXPECT_LE(digits(before), compact);
  EXPECT_LE(compact, digits(after));
}

TEST(SystemTimeFormatTest, PadsEveryFieldWithZeros) {
  const ScopedTimeZone zone("UTC0");
  timeval time{1794736263, 12345};
  EXPECT_EQ(SystemTimeFormat(time), "2026/11/15 09:51:03 012345");
}

TEST(SystemTimeFormatTest, TheEpochIsTheFirstOfJanuary1970) {
  const ScopedTimeZone zone("UTC0");
  timeval time{0, 0};
  EXPECT_EQ(SystemTimeFormat(time), "1970/01/01 00:00:00 000000");
}

TEST(SystemTimeFormatTest, TimesAreLocal) {
  const ScopedTimeZone zone("EAST-2");
  timeval time{1794736263, 999999};
  EXPECT_EQ(SystemTimeFormat(time), "2026/11/15 11:51:03 999999");
}

TEST(StrFormatTest, FormatsLikePrintf) {
  EXPECT_EQ(StrFormat("0X%lX %s %d%%", 0xABCUL, "ring", -1), "0XABC ring -1%");
}

TEST(StrFormatTest, AnEmptyResultIsTheEmptyText) { EXPECT_EQ(StrFormat("%s", ""), ""); }

TEST(StrFormatTest, AResultOf1023CharactersIsWhole) {
  const std::string text(1023, 'x');
  EXPECT_EQ(StrFormat("%s", text.c_str()), text);
}

TEST(StrFormatTest, ALongerResultIsWholeAsWell) {
  const std::string text(100000, 'x');
  EXPECT_EQ(StrFormat("<%s>", text.c_str()), "<" + text + ">");
}

TEST(GetAppFileNameTest, IsTheExecutableWithoutItsDirectory) {
  std::string name = "earlier";
  getAppFileName(name);
  EXPECT_EQ(name, "talvex_tests");
}

TEST(GetEnvironmentTest, AppendsEveryEntryInOrder) {
  std::string info = "before\n";
  {
    const ScopedEnvironment environment({"FIRST=1", "EMPTY=", "PAIR=a=b"});
    GetEnvironment(info);
  }
  EXPECT_EQ(info, "before\nFIRST=1\nEMPTY=\nPAIR=a=b\n");
}

TEST(GetEnvironmentTest, AnEmptyEnvironmentAppendsNothing) {
  std::string info = "before";
  {
    const ScopedEnvironment environment({});
    GetEnvironment(info);
  }
  EXPECT_EQ(info, "before");
}

class MemoryMapFileTest : public testing::Test {
 protected:
  TempDir dir_;
  const std::string path_ = dir_.Path("file");
  void* address_ = nullptr;
  size_t size_ = 77;
};

TEST_F(MemoryMapFileTest, GivesEveryByteOfTheFile) {
  const std::string text("a\0b\n", 4);
  WriteText(path_, text);
  ASSERT_TRUE(MemoryMapFile(path_.c_str(), &address_, &size_));
  ASSERT_EQ(size_, 4u);
  EXPECT_EQ(std::string(static_cast<const char*>(address_), size_), text);
  EXPECT_TRUE(MemoryUnmapFile(address_, size_));
}

TEST_F(MemoryMapFileTest, TheMappingIsSharedAndReadOnly) {
  WriteText(path_, "text");
  ASSERT_TRUE(MemoryMapFile(path_.c_str(), &address_, &size_));
  const std::string maps = ReadText("/proc/self/maps");
  EXPECT_TRUE(std::regex_search(maps, std::regex("[0-9a-f-]+ r--s 00000000 [^\n]* " + path_)));
  EXPECT_TRUE(MemoryUnmapFile(address_, size_));
}

TEST_F(MemoryMapFileTest, KeepsNoDescriptorOpen) {
  WriteText(path_, "text");
  const size_t before = ListTree("/proc/self/fd").size();
  ASSERT_TRUE(MemoryMapFile(path_.c_str(), &address_, &size_));
  EXPECT_EQ(ListTree("/proc/self/fd").size(), before);
  EXPECT_TRUE(MemoryUnmapFile(address_, size_));
}

TEST_F(MemoryMapFileTest, AMissingFileFailsAndLeavesTheOutputs) {
  EXPECT_FALSE(MemoryMapFile(path_.c_str(), &address_, &size_));
  EXPECT_EQ(address_, nullptr);
  EXPECT_EQ(size_, 77u);
}

TEST_F(MemoryMapFileTest, NullOutputsFail) {
  WriteText(path_, "text");
  EXPECT_FALSE(MemoryMapFile(path_.c_str(), nullptr, &size_));
  EXPECT_EQ(size_, 77u);
  EXPECT_FALSE(MemoryMapFile(path_.c_str(), &address_, nullptr));
  EXPECT_EQ(address_, nullptr);
}

// How many KiB of the mapping of `path` are in this process's page tables.
size_t MappedKib(const std::string& path) {
  const std::string maps = ReadText("/proc/self/smaps");
  const size_t entry = maps.find(path);
  const size_t rss = maps.find("Rss:", entry);
  return entry == std::string::npos ? 0 : std::stoul(maps.substr(rss + 4));
}

TEST_F(MemoryMapFileTest, PagesCanBeMappedBeforeTheyAreTouched) {
  constexpr size_t kSize = size_t{4} << 20;
  WriteText(path_, std::string(kSize, 'a'));
  ASSERT_TRUE(MemoryMapFile(path_.c_str(), &address_, &size_));
  EXPECT_EQ(MappedKib(path_), 0u);
  const bool kernel_can = madvise(address_, 0, MADV_POPULATE_READ) == 0;
  // From the last byte of a page to the last byte but one of the file.
  MapPages(static_cast<const char*>(address_) + 4095, kSize - 4096);
  EXPECT_EQ(MappedKib(path_), kernel_can ? kSize / 1024 : 0);
  EXPECT_TRUE(MemoryUnmapFile(address_, size_));
}

TEST_F(MemoryMapFileTest, PagesThatCannotBeMappedAreLeftAlone) {
  WriteText(path_, "text");
  ASSERT_TRUE(MemoryMapFile(path_.c_str(), &address_, &size_));
  MapPages(static_cast<const char*>(address_) + 2, 100000);
  EXPECT_EQ(std::string(static_cast<const char*>(address_), size_), "text");
  EXPECT_TRUE(MemoryUnmapFile(address_, size_));
  MapPages(address_, 4);
}

// Only null counts as failure: the system refuses to map nothing, and that passes as success.
TEST_F(MemoryMapFileTest, AnEmptyFilePassesWithTheRefusedMapping) {
  WriteText(path_, "");
  EXPECT_TRUE(MemoryMapFile(path_.c_str(), &address_, &size_));
  EXPECT_EQ(address_, MAP_FAILED);
  EXPECT_EQ(size_, 0u);
}

TEST_F(MemoryMapFileTest, ADirectoryPassesWithTheRefusedMapping) {
  EXPECT_TRUE(MemoryMapFile(dir_.Path().c_str(), &address_, &size_));
  EXPECT_EQ(address_, MAP_FAILED);
}

TEST_F(MemoryMapFileTest, AFifoWithoutWriterDoesNotHoldTheRun) {
  ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
  EXPECT_TRUE(MemoryMapFile(path_.c_str(), &address_, &size_));
  EXPECT_EQ(address_, MAP_FAILED);
}

TEST_F(MemoryMapFileTest, UnmappingTakesTheMappingAway) {
  WriteText(path_, "text");
  ASSERT_TRUE(MemoryMapFile(path_.c_str(), &address_, &size_));
  EXPECT_TRUE(MemoryUnmapFile(address_, size_));
  EXPECT_EQ(ReadText("/proc/self/maps").find(path_), std::string::npos);
}

TEST_F(MemoryMapFileTest, UnmappingWhatIsNoMappingFails) {
  EXPECT_FALSE(MemoryUnmapFile(reinterpret_cast<const void*>(uintptr_t{1}), 4096));
}

TEST(SplitStrTest, TrimsBlanksOfEveryPiece) {
  EXPECT_EQ(Split("a, b ,c", ","), (Pieces{"a", "b", "c"}));
}

TEST(SplitStrTest, KeepsBlanksInsideAPiece) {
  EXPECT_EQ(Split(" a b ,  c  d", ","), (Pieces{"a b", "c  d"}));
}

TEST(SplitStrTest, TrimsOnlyBlanks) {
  EXPECT_EQ(Split(" \ta\t ,\n", ","), (Pieces{"\ta\t", "\n"}));
}

TEST(SplitStrTest, ATwoCharacterDelimiterSplitsOnlyAtThePair) {
  EXPECT_EQ(Split("a--b-c-- d", "--"), (Pieces{"a", "b-c", "d"}));
}

TEST(SplitStrTest, WithoutADelimiterTheTextIsOnePiece) {
  EXPECT_EQ(Split("abc", ","), (Pieces{"abc"}));
}

TEST(SplitStrTest, AnEmptyTextAddsNothing) {
  Pieces pieces = {"earlier"};
  SplitStr("", ",", pieces);
  EXPECT_EQ(pieces, (Pieces{"earlier"}));
}

TEST(SplitStrTest, AnEmptyDelimiterAddsNothing) {
  Pieces pieces = {"earlier"};
  SplitStr("a,b", "", pieces);
  EXPECT_EQ(pieces, (Pieces{"earlier"}));
}

TEST(SplitStrTest, AppendsToWhatIsThere) {
  Pieces pieces = {"earlier"};
  SplitStr("a,b", ",", pieces);
  EXPECT_EQ(pieces, (Pieces{"earlier", "a", "b"}));
}

TEST(SplitStrTest, BlanksAloneAreOneEmptyPiece) { EXPECT_EQ(Split("   ", ","), (Pieces{""})); }

TEST(SplitStrTest, TwoDelimitersInARowGiveAnEmptyPiece) {
  EXPECT_EQ(Split("a,,b", ","), (Pieces{"a", "", "b"}));
}

TEST(SplitStrTest, ALeadingDelimiterGivesALeadingEmptyPiece) {
  EXPECT_EQ(Split("/tmp/out", "/"), (Pieces{"", "tmp", "out"}));
}

TEST(SplitStrTest, ATrailingDelimiterGivesOneTrailingEmptyPiece) {
  EXPECT_EQ(Split("a,", ","), (Pieces{"a", ""}));
}

TEST(SplitStrTest, ADelimiterAloneGivesTwoEmptyPieces) {
  EXPECT_EQ(Split(",", ","), (Pieces{"", ""}));
}

TEST(SplitStrTest, ABlankCanBeTheDelimiter) {
  EXPECT_EQ(Split("a  b\n", " "), (Pieces{"a", "", "b\n"}));
}

// The end of the text counts as a delimiter that is looked for in one go with the text: half a
// delimiter at the end pairs up with it, and the half left over is dropped.
TEST(SplitStrTest, HalfADelimiterAtTheEndOfTheTextIsDropped) {
  EXPECT_EQ(Split("a-", "--"), (Pieces{"a"}));
  EXPECT_EQ(Split("a---", "--"), (Pieces{"a", ""}));
}

}  // namespace
