// The argument files of a queue: which names they may have, and what each holds in the end.
#include "core_dump_info/argument_files.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "temp_dir.h"
#include "utils.h"

namespace {

class ArgumentFilesTest : public testing::Test {
 protected:
  std::string Content(const std::string& file) const { return ReadText(dir_.Path(file)); }

  const TempDir dir_;
};

TEST_F(ArgumentFilesTest, TheLastArgumentsOfAKernelAreKept) {
  {
    ArgumentFiles files(dir_.Path());
    files.Set("scale", "a longer block");
    files.Set("copy", "one");
    files.Set("scale", "two");
  }
  EXPECT_EQ(ListTree(dir_.Path()), (std::vector<std::string>{"copy_args", "scale_args"}));
  EXPECT_EQ(Content("scale_args"), "two");
  EXPECT_EQ(Content("copy_args"), "one");
}

TEST_F(ArgumentFilesTest, MoreKernelsThanAreHeldAllHaveTheirFile) {
  constexpr int kKernels = 2500;
  {
    ArgumentFiles files(dir_.Path());
    for (int round = 0; round < 2; ++round) {
      for (int i = 0; i < kKernels; ++i) {
        files.Set(StrFormat("kernel_%d", i), StrFormat("round %d", round));
      }
    }
  }
  EXPECT_EQ(ListTree(dir_.Path()).size(), 2500u);
  for (int i = 0; i < kKernels; ++i) {
    EXPECT_EQ(Content(StrFormat("kernel_%d_args", i)), "round 1") << i;
  }
}

TEST_F(ArgumentFilesTest, OnlyNamesOfFilesInTheDirectoryAreTaken) {
  const ArgumentFiles files(dir_.Path());
  EXPECT_TRUE(files.CanHold("scale(float*, int)"));
  EXPECT_TRUE(files.CanHold("..."));
  EXPECT_FALSE(files.CanHold(""));
  EXPECT_FALSE(files.CanHold("."));
  EXPECT_FALSE(files.CanHold(".."));
  EXPECT_FALSE(files.CanHold("../scale"));
  EXPECT_FALSE(files.CanHold("/scale"));
}

// A file name has 255 bytes at most, five of them "_args".
TEST_F(ArgumentFilesTest, ANameThatIsTooLongForTheFileSystemIsNot) {
  const ArgumentFiles files(dir_.Path());
  EXPECT_TRUE(files.CanHold(std::string(250, 'k')));
  EXPECT_FALSE(files.CanHold(std::string(251, 'k')));
}

}  // namespace
