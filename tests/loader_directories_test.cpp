// The directories that an analyser takes, and those that it takes by default.
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "captured_output.h"
#include "core_dump_info.h"
#include "core_file_writer.h"
#include "temp_dir.h"

namespace {

namespace fs = std::filesystem;

using Names = std::vector<std::string>;

class LoaderDirectoryTest : public testing::Test {
 protected:
  LoaderDirectoryTest() : bytes_(sample::CoreFileBytes({})), cwd_(dir_.Path()) {}

  bool Init(const char* out, const char* rocm, const char* m_dir, bool dis_all = false) {
    analyser_.SetImageSize(bytes_.size());
    return analyser_.init(reinterpret_cast<uint64_t>(bytes_.data()), out, rocm, m_dir, dis_all);
  }

  TempDir dir_;
  const std::string bytes_;
  ScopedWorkingDirectory cwd_;
  CoreDumpInfo analyser_;
};

TEST_F(LoaderDirectoryTest, NullSelectsTheDefaults) {
  ASSERT_TRUE(Init(nullptr, nullptr, nullptr));
  EXPECT_EQ(analyser_.current_dir_, dir_.Path());
  EXPECT_EQ(analyser_.dump_dir_, dir_.Path());
  EXPECT_EQ(analyser_.dump_code_dir_, dir_.Path("codes"));
  EXPECT_EQ(analyser_.dump_queue_dir_, dir_.Path("queues"));
  EXPECT_EQ(analyser_.rocm_dir_, "/opt/rocm");
  EXPECT_EQ(analyser_.mem_dir_, dir_.Path("mems"));
  EXPECT_FALSE(analyser_.dis_all_code_object);
  EXPECT_EQ(ListTree(dir_.Path()), Names{"environment"});
}

TEST_F(LoaderDirectoryTest, GivenOnesAreTakenAsTheyAre) {
  const std::string out = dir_.Path("a//b/");
  ASSERT_TRUE(Init(out.c_str(), "r o c m", "mems/", true));
  EXPECT_EQ(analyser_.current_dir_, dir_.Path());
  EXPECT_EQ(analyser_.dump_dir_, dir_.Path() + "/a//b/");
  EXPECT_EQ(analyser_.dump_code_dir_, dir_.Path() + "/a//b//codes");
  EXPECT_EQ(analyser_.dump_queue_dir_, dir_.Path() + "/a//b//queues");
  EXPECT_EQ(analyser_.rocm_dir_, "r o c m");
  EXPECT_EQ(analyser_.mem_dir_, "mems/");
  EXPECT_TRUE(analyser_.dis_all_code_object);
  EXPECT_EQ(ListTree(dir_.Path()), (Names{"a/", "a/b/", "a/b/environment"}));
}

// There is no directory to write the environment to then, which is no reason to fail.
TEST_F(LoaderDirectoryTest, EmptyTextsAreNoDefaults) {
  EXPECT_TRUE(Init("", "", ""));
  EXPECT_EQ(analyser_.current_dir_, dir_.Path());
  EXPECT_EQ(analyser_.dump_dir_, "");
  EXPECT_EQ(analyser_.dump_code_dir_, "/codes");
  EXPECT_EQ(analyser_.dump_queue_dir_, "/queues");
  EXPECT_EQ(analyser_.rocm_dir_, "");
  EXPECT_EQ(analyser_.mem_dir_, "");
  EXPECT_EQ(ListTree(dir_.Path()), Names{});
}

TEST_F(LoaderDirectoryTest, MemoryIsLookedUpUnderTheWorkingDirectory) {
  ASSERT_TRUE(sample::WriteMemoryDirectory({{.addr = 0x1000, .bytes = "abc"}}, dir_.Path("mems")));
  const std::string out = dir_.Path("out");
  ASSERT_TRUE(
      sample::WriteMemoryDirectory({{.addr = 0x2000, .bytes = "def"}}, dir_.Path("out/mems")));
  ASSERT_TRUE(Init(out.c_str(), nullptr, nullptr));
  EXPECT_EQ(analyser_.mem_dir_, dir_.Path("mems"));
  ASSERT_EQ(analyser_.mem_info_map.size(), 1u);
  EXPECT_EQ(analyser_.mem_info_map.begin()->first, 0x1000u);
}

TEST_F(LoaderDirectoryTest, MemoryIsLookedUpInTheGivenDirectory) {
  ASSERT_TRUE(sample::WriteMemoryDirectory({{.addr = 0x1000, .bytes = "abc"}}, dir_.Path("mems")));
  ASSERT_TRUE(sample::WriteMemoryDirectory({{.addr = 0x2000, .bytes = "def"}}, dir_.Path("other")));
  const std::string mems = dir_.Path("other");
  ASSERT_TRUE(Init(nullptr, nullptr, mems.c_str()));
  ASSERT_EQ(analyser_.mem_info_map.size(), 1u);
  EXPECT_EQ(analyser_.mem_info_map.begin()->first, 0x2000u);
  EXPECT_EQ(analyser_.mem_info_map.begin()->second.size, 3u);
}

TEST_F(LoaderDirectoryTest, AWorkingDirectoryThatIsGoneEndsTheLoading) {
  const std::string gone = dir_.Path("gone");
  fs::create_directory(gone);
  const ScopedWorkingDirectory in_gone(gone);
  fs::remove(gone);
  const std::string out = dir_.Path("out");
  OutputCapture capture;
  EXPECT_FALSE(Init(out.c_str(), "/opt/rocm", out.c_str()));
  const Output output = capture.Stop();
  EXPECT_EQ(WithoutTimes(output.err), "[time] Error: [init] get cwd failed\n");
  EXPECT_EQ(output.out, "");
  EXPECT_EQ(analyser_.dump_dir_, "");
  EXPECT_EQ(ListTree(dir_.Path()), Names{});
}

}  // namespace
