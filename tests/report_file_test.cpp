// A report reaches the disk in chunks and reads as if it had been written in one go.
#include "core_dump_info/report_file.h"

#include <gtest/gtest.h>

#include <string>

#include "temp_dir.h"

namespace {

constexpr size_t kBlock = 65536;

class ReportFileTest : public testing::Test {
 protected:
  std::string OnDisk() const { return ReadText(path_); }

  const TempDir dir_;
  const std::string path_ = dir_.Path("reports/report");
};

TEST_F(ReportFileTest, AReportWithoutTextIsAnEmptyFile) {
  ReportFile report(dir_.Path("reports"), "report", ReportFile::Mode::kReplace);
  EXPECT_TRUE(report.Close());
  EXPECT_EQ(ListTree(dir_.Path()), (std::vector<std::string>{"reports/", "reports/report"}));
  EXPECT_EQ(OnDisk(), "");
}

TEST_F(ReportFileTest, NothingIsWrittenBeforeAChunkIsFull) {
  ReportFile report(dir_.Path("reports"), "report", ReportFile::Mode::kReplace, 2 * kBlock);
  report.text() += std::string(2 * kBlock - 1, 'a');
  report.Spill();
  EXPECT_EQ(ListTree(dir_.Path()), (std::vector<std::string>{}));
}

// The part of a block waits for the next chunk.
TEST_F(ReportFileTest, AFullChunkIsWrittenInWholeBlocks) {
  ReportFile report(dir_.Path("reports"), "report", ReportFile::Mode::kReplace, 2 * kBlock);
  report.text() += std::string(3 * kBlock, 'a') + "tail";
  report.Spill();
  EXPECT_EQ(OnDisk(), std::string(3 * kBlock, 'a'));
  EXPECT_EQ(report.text(), "tail");
  report.text() += " and end";
  EXPECT_TRUE(report.Close());
  EXPECT_EQ(OnDisk(), std::string(3 * kBlock, 'a') + "tail and end");
}

TEST_F(ReportFileTest, AChunkOfWholeBlocksLeavesNothing) {
  ReportFile report(dir_.Path("reports"), "report", ReportFile::Mode::kReplace, kBlock);
  report.text() += std::string(kBlock, 'a');
  report.Spill();
  EXPECT_EQ(report.text(), "");
  EXPECT_TRUE(report.Close());
  EXPECT_EQ(OnDisk(), std::string(kBlock, 'a'));
}

TEST_F(ReportFileTest, APieceOfManyChunksIsWhole) {
  std::string piece;
  for (size_t i = 0; i < 5 * kBlock + 77; ++i) {
    piece += static_cast<char>('a' + i % 23);
  }
  ReportFile report(dir_.Path("reports"), "report", ReportFile::Mode::kReplace, kBlock);
  report.Append("head ");
  report.Append(piece);
  EXPECT_TRUE(report.Close());
  EXPECT_EQ(OnDisk(), "head " + piece);
}

TEST_F(ReportFileTest, ReplacesWhatWasThereOrStandsBehindIt) {
  for (const char* text : {"a longer text", "short"}) {
    ReportFile report(dir_.Path("reports"), "report", ReportFile::Mode::kReplace);
    report.Append(text);
    EXPECT_TRUE(report.Close());
  }
  EXPECT_EQ(OnDisk(), "short");
  ReportFile report(dir_.Path("reports"), "report", ReportFile::Mode::kAppend);
  report.Append(" and more");
  EXPECT_TRUE(report.Close());
  EXPECT_EQ(OnDisk(), "short and more");
}

TEST_F(ReportFileTest, ARestartReplacesWhatIsOnDiskAlready) {
  ReportFile report(dir_.Path("reports"), "report", ReportFile::Mode::kReplace, kBlock);
  report.Append(std::string(3 * kBlock + 5, 'a'));
  EXPECT_EQ(OnDisk(), std::string(3 * kBlock, 'a'));
  report.Restart();
  report.Append("again");
  EXPECT_TRUE(report.Close());
  EXPECT_EQ(OnDisk(), "again");
}

TEST_F(ReportFileTest, AFileThatCannotBeMadeFails) {
  WriteText(dir_.Path("reports"), "in the way");
  ReportFile report(dir_.Path("reports"), "report", ReportFile::Mode::kReplace);
  report.Append("text");
  EXPECT_FALSE(report.Close());
}

}  // namespace
