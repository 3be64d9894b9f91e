#include "file_manager.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "temp_dir.h"

namespace {

namespace fs = std::filesystem;

using Names = std::vector<std::string>;

uint64_t AddressOf(const std::string& bytes) { return reinterpret_cast<uint64_t>(bytes.data()); }

// The file mode creation mask while the object lives.
class ScopedUmask {
 public:
  explicit ScopedUmask(mode_t mask) : previous_(umask(mask)) {}
  ~ScopedUmask() { umask(previous_); }

 private:
  mode_t previous_;
};

class FileManagerTest : public testing::Test {
 protected:
  TempDir dir_;
  const std::string file_ = dir_.Path("file");
};

using IsFileExistTest = FileManagerTest;
using IsDirectoryExistTest = FileManagerTest;
using CreateDirectoryTest = FileManagerTest;
using WriteBinFileTest = FileManagerTest;
using WriteTextFileTest = FileManagerTest;
using CopyFileTest = FileManagerTest;
using ReadFileTest = FileManagerTest;

TEST_F(IsFileExistTest, IsTrueForAFileAndForADirectory) {
  WriteText(file_, "");
  EXPECT_TRUE(IsFileExist(file_));
  EXPECT_TRUE(IsFileExist(dir_.Path()));
}

TEST_F(IsFileExistTest, IsFalseForAMissingFileAndForNoName) {
  EXPECT_FALSE(IsFileExist(file_));
  EXPECT_FALSE(IsFileExist(""));
}

TEST_F(IsDirectoryExistTest, IsTrueForADirectoryAlone) {
  WriteText(file_, "");
  EXPECT_TRUE(IsDirectoryExist(dir_.Path()));
  EXPECT_FALSE(IsDirectoryExist(file_));
}

TEST_F(IsDirectoryExistTest, IsFalseForAMissingOneAndForNoName) {
  EXPECT_FALSE(IsDirectoryExist(dir_.Path("missing")));
  EXPECT_FALSE(IsDirectoryExist(""));
}

TEST_F(CreateDirectoryTest, MakesEveryMissingLevel) {
  EXPECT_TRUE(CreateDirectory(dir_.Path("a/b/c")));
  EXPECT_EQ(ListTree(dir_.Path()), (Names{"a/", "a/b/", "a/b/c/"}));
}

TEST_F(CreateDirectoryTest, ADirectoryThatIsThereIsASuccess) {
  EXPECT_TRUE(CreateDirectory(dir_.Path()));
  EXPECT_EQ(ListTree(dir_.Path()), Names{});
}

TEST_F(CreateDirectoryTest, DoubledAndTrailingSlashesMakeTheSameChain) {
  EXPECT_TRUE(CreateDirectory(dir_.Path("a//b/")));
  EXPECT_EQ(ListTree(dir_.Path()), (Names{"a/", "a/b/"}));
}

TEST_F(CreateDirectoryTest, LeavesPermissionsToTheMask) {
  {
    const ScopedUmask mask(0);
    EXPECT_TRUE(CreateDirectory(dir_.Path("open")));
  }
  {
    const ScopedUmask mask(027);
    EXPECT_TRUE(CreateDirectory(dir_.Path("closed")));
  }
  EXPECT_EQ(fs::status(dir_.Path("open")).permissions(), fs::perms(0777));
  EXPECT_EQ(fs::status(dir_.Path("closed")).permissions(), fs::perms(0750));
}

TEST_F(CreateDirectoryTest, FailsBelowARegularFile) {
  WriteText(file_, "");
  EXPECT_FALSE(CreateDirectory(file_ + "/sub"));
  EXPECT_EQ(ListTree(dir_.Path()), Names{"file"});
}

// mkdir's "exists already" is no failure, whatever it is that exists.
TEST_F(CreateDirectoryTest, APathThatIsARegularFilePasses) {
  WriteText(file_, "");
  EXPECT_TRUE(CreateDirectory(file_));
  EXPECT_FALSE(IsDirectoryExist(file_));
}

// The chain is always built from the root, so that "tmp/x" is /tmp/x, not one under the working
// directory.
TEST_F(CreateDirectoryTest, ARelativeNameIsRootedAtTheRoot) {
  const TempDir elsewhere;
  const ScopedWorkingDirectory working_directory(elsewhere.Path());
  const std::string relative = dir_.Path("a/b").substr(1);
  EXPECT_TRUE(CreateDirectory(relative));
  EXPECT_EQ(ListTree(dir_.Path()), (Names{"a/", "a/b/"}));
  EXPECT_EQ(ListTree(elsewhere.Path()), Names{});
}

TEST_F(CreateDirectoryTest, ARelativeNameOfADirectoryThatIsThereIsNotRooted) {
  ASSERT_TRUE(fs::create_directory(dir_.Path("talvex-relative")));
  const ScopedWorkingDirectory working_directory(dir_.Path());
  EXPECT_TRUE(CreateDirectory("talvex-relative"));
  EXPECT_FALSE(IsFileExist("/talvex-relative"));
}

TEST_F(CreateDirectoryTest, NoNameIsASuccessThatMakesNothing) {
  const ScopedWorkingDirectory working_directory(dir_.Path());
  EXPECT_TRUE(CreateDirectory(""));
  EXPECT_EQ(ListTree(dir_.Path()), Names{});
}

TEST_F(CreateDirectoryTest, BlanksAroundALevelAreTrimmed) {
  EXPECT_TRUE(CreateDirectory(dir_.Path(" a /b b")));
  EXPECT_EQ(ListTree(dir_.Path()), (Names{"a/", "a/b b/"}));
}

TEST_F(WriteBinFileTest, WritesEveryByteAndMakesTheChain) {
  const std::string bytes("\0\177ELF\377\0", 7);
  EXPECT_TRUE(WriteBinFile(dir_.Path("codes/deep"), "object", AddressOf(bytes), bytes.size()));
  EXPECT_EQ(ReadText(dir_.Path("codes/deep/object")), bytes);
}

TEST_F(WriteBinFileTest, ReplacesALongerFile) {
  WriteText(file_, "a longer text");
  const std::string bytes = "short";
  EXPECT_TRUE(WriteBinFile(dir_.Path(), "file", AddressOf(bytes), bytes.size()));
  EXPECT_EQ(ReadText(file_), "short");
}

TEST_F(WriteBinFileTest, NothingToWriteFailsAndLeavesOnlyTheDirectory) {
  const std::string bytes = "bytes";
  EXPECT_FALSE(WriteBinFile(dir_.Path("sub"), "object", AddressOf(bytes), 0));
  EXPECT_EQ(ListTree(dir_.Path()), Names{"sub/"});
}

TEST_F(WriteBinFileTest, ANullAddressFailsAndLeavesOnlyTheDirectory) {
  EXPECT_FALSE(WriteBinFile(dir_.Path("sub"), "object", 0, 5));
  EXPECT_EQ(ListTree(dir_.Path()), Names{"sub/"});
}

TEST_F(WriteBinFileTest, EmptyNamesFail) {
  const std::string bytes = "bytes";
  EXPECT_FALSE(WriteBinFile("", "object", AddressOf(bytes), bytes.size()));
  EXPECT_FALSE(WriteBinFile(dir_.Path("sub"), "", AddressOf(bytes), bytes.size()));
  EXPECT_EQ(ListTree(dir_.Path()), Names{});
}

TEST_F(WriteBinFileTest, ADirectoryThatCannotBeMadeFails) {
  WriteText(file_, "");
  const std::string bytes = "bytes";
  EXPECT_FALSE(WriteBinFile(file_ + "/sub", "object", AddressOf(bytes), bytes.size()));
}

TEST_F(WriteBinFileTest, AFileThatCannotBeOpenedFails) {
  ASSERT_TRUE(fs::create_directory(dir_.Path("taken")));
  const std::string bytes = "bytes";
  EXPECT_FALSE(WriteBinFile(dir_.Path(), "taken", AddressOf(bytes), bytes.size()));
}

TEST_F(WriteTextFileTest, MakesEveryMissingLevel) {
  EXPECT_TRUE(WriteTextFile(dir_.Path("queues/7"), "queue", "text\n", false));
  EXPECT_EQ(ListTree(dir_.Path()), (Names{"queues/", "queues/7/", "queues/7/queue"}));
  EXPECT_EQ(ReadText(dir_.Path("queues/7/queue")), "text\n");
}

TEST_F(WriteTextFileTest, AppendsBehindWhatIsThere) {
  WriteText(file_, "first\n");
  EXPECT_TRUE(WriteTextFile(dir_.Path(), "file", "second\n", true));
  EXPECT_EQ(ReadText(file_), "first\nsecond\n");
}

TEST_F(WriteTextFileTest, AppendingMakesAMissingFile) {
  EXPECT_TRUE(WriteTextFile(dir_.Path(), "file", "only\n", true));
  EXPECT_EQ(ReadText(file_), "only\n");
}

TEST_F(WriteTextFileTest, ReplacesALongerFile) {
  WriteText(file_, "a longer text\n");
  EXPECT_TRUE(WriteTextFile(dir_.Path(), "file", "short\n", false));
  EXPECT_EQ(ReadText(file_), "short\n");
}

TEST_F(WriteTextFileTest, AnEmptyTextGivesAnEmptyFile) {
  WriteText(file_, "earlier");
  EXPECT_TRUE(WriteTextFile(dir_.Path(), "file", "", false));
  EXPECT_EQ(ReadText(file_), "");
}

TEST_F(WriteTextFileTest, AppendingAnEmptyTextChangesNothing) {
  WriteText(file_, "earlier");
  EXPECT_TRUE(WriteTextFile(dir_.Path(), "file", "", true));
  EXPECT_EQ(ReadText(file_), "earlier");
}

TEST_F(WriteTextFileTest, ZeroBytesAreWritten) {
  const std::string text("a\0b", 3);
  EXPECT_TRUE(WriteTextFile(dir_.Path(), "file", text, false));
  EXPECT_EQ(ReadText(file_), text);
}

TEST_F(WriteTextFileTest, ADirectoryMayEndInASlash) {
  EXPECT_TRUE(WriteTextFile(dir_.Path("sub/"), "file", "text", false));
  EXPECT_EQ(ReadText(dir_.Path("sub/file")), "text");
}

TEST_F(WriteTextFileTest, EmptyNamesFail) {
  EXPECT_FALSE(WriteTextFile("", "file", "text", false));
  EXPECT_FALSE(WriteTextFile(dir_.Path("sub"), "", "text", false));
  EXPECT_EQ(ListTree(dir_.Path()), Names{});
}

TEST_F(WriteTextFileTest, ADirectoryThatCannotBeMadeFails) {
  WriteText(file_, "");
  EXPECT_FALSE(WriteTextFile(file_ + "/sub", "file", "text", false));
}

TEST_F(WriteTextFileTest, AFileThatCannotBeOpenedFails) {
  ASSERT_TRUE(fs::create_directory(dir_.Path("taken")));
  EXPECT_FALSE(WriteTextFile(dir_.Path(), "taken", "text", false));
  EXPECT_FALSE(WriteTextFile(dir_.Path(), "taken", "text", true));
}

// /dev/full takes nothing: every write to it comes up short for want of space.
class IncompleteWriteTest : public FileManagerTest {
 protected:
  const uint64_t before_ = GetIncompleteWrites().count;
};

TEST_F(IncompleteWriteTest, AWriteThatFitsIsNotCounted) {
  EXPECT_TRUE(WriteTextFile(dir_.Path(), "file", "text", false));
  EXPECT_EQ(GetIncompleteWrites().count, before_);
}

TEST_F(IncompleteWriteTest, AFileThatCannotBeOpenedIsNotCounted) {
  WriteText(file_, "");
  EXPECT_FALSE(WriteTextFile(file_ + "/sub", "file", "text", false));
  EXPECT_EQ(GetIncompleteWrites().count, before_);
}

// A short text stays in the stream's buffer until the file is closed.
TEST_F(IncompleteWriteTest, AShortTextThatFailsWhenTheFileIsClosedIsCounted) {
  EXPECT_TRUE(WriteTextFile("/dev", "full", "text", false));
  EXPECT_EQ(GetIncompleteWrites().count, before_ + 1);
  EXPECT_EQ(GetIncompleteWrites().first_path, "/dev/full");
  EXPECT_EQ(GetIncompleteWrites().first_errno, ENOSPC);
}

TEST_F(IncompleteWriteTest, ALongTextThatFailsWhenItIsWrittenIsCountedOnce) {
  EXPECT_TRUE(WriteTextFile("/dev", "full", std::string(1 << 20, 'x'), false));
  EXPECT_EQ(GetIncompleteWrites().count, before_ + 1);
  EXPECT_EQ(GetIncompleteWrites().first_errno, ENOSPC);
}

TEST_F(IncompleteWriteTest, AppendingIsCounted) {
  EXPECT_TRUE(WriteTextFile("/dev", "full", "text", true));
  EXPECT_EQ(GetIncompleteWrites().count, before_ + 1);
}

TEST_F(IncompleteWriteTest, ABinaryFileIsCounted) {
  const std::string bytes(10000, 'x');
  EXPECT_TRUE(WriteBinFile("/dev", "full", AddressOf(bytes), bytes.size()));
  EXPECT_EQ(GetIncompleteWrites().count, before_ + 1);
}

TEST_F(IncompleteWriteTest, TheFirstOneIsKept) {
  EXPECT_TRUE(WriteTextFile("/dev", "full", "text", false));
  fs::create_symlink("/dev/full", file_);
  EXPECT_TRUE(WriteTextFile(dir_.Path(), "file", "text", false));
  EXPECT_EQ(GetIncompleteWrites().count, before_ + 2);
  EXPECT_EQ(GetIncompleteWrites().first_path, "/dev/full");
}

TEST_F(CopyFileTest, CopiesEveryByte) {
  std::string bytes(10000, 'x');
  bytes[4095] = '\0';
  bytes[9999] = '\n';
  WriteText(file_, bytes);
  WriteText(dir_.Path("copy"), std::string(20000, 'y'));
  EXPECT_TRUE(CopyFile(dir_.Path("copy"), file_));
  EXPECT_EQ(ReadText(dir_.Path("copy")), bytes);
}

TEST_F(CopyFileTest, EmptyNamesFail) {
  WriteText(file_, "text");
  EXPECT_FALSE(CopyFile("", file_));
  EXPECT_FALSE(CopyFile(dir_.Path("copy"), ""));
  EXPECT_EQ(ListTree(dir_.Path()), Names{"file"});
}

TEST_F(CopyFileTest, AMissingSourceFailsAndStillEmptiesTheDestination) {
  WriteText(dir_.Path("copy"), "earlier");
  EXPECT_FALSE(CopyFile(dir_.Path("copy"), file_));
  EXPECT_EQ(ReadText(dir_.Path("copy")), "");
}

TEST_F(CopyFileTest, ADestinationThatCannotBeOpenedFails) {
  WriteText(file_, "text");
  EXPECT_FALSE(CopyFile(dir_.Path("missing/copy"), file_));
}

TEST_F(ReadFileTest, ReplacesTheContents) {
  WriteText(file_, "line 1\nline 2\n");
  std::string contents = "earlier";
  EXPECT_TRUE(ReadFile(file_, contents));
  EXPECT_EQ(contents, "line 1\nline 2\n");
}

TEST_F(ReadFileTest, AnEmptyFileGivesTheEmptyText) {
  WriteText(file_, "");
  std::string contents = "earlier";
  EXPECT_TRUE(ReadFile(file_, contents));
  EXPECT_EQ(contents, "");
}

TEST_F(ReadFileTest, AMissingFileAndNoNameFailAndLeaveTheContents) {
  std::string contents = "earlier";
  EXPECT_FALSE(ReadFile(file_, contents));
  EXPECT_FALSE(ReadFile("", contents));
  EXPECT_EQ(contents, "earlier");
}

TEST_F(ReadFileTest, TheTextEndsAtTheFirstZeroByte) {
  WriteText(file_, std::string("ab\0cd", 5));
  std::string contents;
  EXPECT_TRUE(ReadFile(file_, contents));
  EXPECT_EQ(contents, "ab");
}

TEST_F(ReadFileTest, WholeBlocksAreWhole) {
  const std::string text = std::string(4096, 'a') + std::string(4096, 'b');
  WriteText(file_, text);
  std::string contents;
  EXPECT_TRUE(ReadFile(file_, contents));
  EXPECT_EQ(contents, text);
}

// The block is not cleared between reads: behind a last block that is short stands the text of the
// block before it.
TEST_F(ReadFileTest, AShortLastBlockEndsInTheTextOfTheOneBefore) {
  WriteText(file_, std::string(4096, 'a') + "b");
  std::string contents;
  EXPECT_TRUE(ReadFile(file_, contents));
  EXPECT_EQ(contents, std::string(4096, 'a') + "b" + std::string(4095, 'a'));
}

}  // namespace
