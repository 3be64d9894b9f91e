// The files of the code objects and the numbers in their names.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "captured_output.h"
#include "core_dump_info.h"
#include "core_file_writer.h"
#include "loader_fixture.h"
#include "run_process.h"
#include "temp_dir.h"

namespace {

namespace fs = std::filesystem;

using sample::CoreFile;
using Names = std::vector<std::string>;

int NumberOf(const CodeObjectInfo* object) {
  const std::string_view prefix = "code_object_";
  EXPECT_EQ(std::string_view(object->name).substr(0, prefix.size()), prefix);
  return atoi(object->name + prefix.size());
}

CoreFile ThreeCodeObjects() {
  CoreFile file;
  file.environment = "A=1\n";
  file.code_objects.resize(3);
  file.code_objects[0].elf = "first";
  file.code_objects[1].elf = "second";
  file.code_objects[2].elf = "third";
  file.code_objects[2].size_loaded = 0x3000;
  return file;
}

TEST_F(LoaderTest, NumbersGoOnFromOneFileToTheNext) {
  ASSERT_TRUE(Load(ThreeCodeObjects()));
  const int first = NumberOf(analyser_.code_object_lists.at(0));
  EXPECT_EQ(NumberOf(analyser_.code_object_lists.at(1)), first + 1);
  EXPECT_EQ(NumberOf(analyser_.code_object_lists.at(2)), first + 2);

  const std::string bytes = sample::CoreFileBytes(ThreeCodeObjects());
  CoreDumpInfo next;
  ASSERT_TRUE(next.init(reinterpret_cast<uint64_t>(bytes.data()), out_.c_str(), "/opt/rocm",
                        mems_.c_str(), false));
  EXPECT_EQ(NumberOf(next.code_object_lists.at(0)), first + 3);
}

TEST_F(LoaderTest, AnEmptyElfEndsTheLoadingThere) {
  CoreFile file = ThreeCodeObjects();
  file.code_objects[1].elf = "";
  OutputCapture capture;
  EXPECT_FALSE(Load(file));
  const Output output = capture.Stop();
  const auto& objects = analyser_.code_object_lists;
  ASSERT_EQ(objects.size(), 2u);
  const std::string first = objects[0]->name;
  EXPECT_EQ(WithoutTimes(output.err), "[time] Error: [init] Write bin failed, dump dir: " + out_ +
                                          "/codes name : " + objects[1]->name + "\n");
  EXPECT_EQ(output.out, "");
  EXPECT_EQ(ListTree(out_), (Names{"codes/", "codes/" + first, "codes/" + first + ".info"}));
  EXPECT_EQ(ReadText(CodePath(0)), "first");
}

TEST_F(LoaderTest, ADirectoryThatCannotBeMadeEndsTheLoading) {
  WriteText(out_, "a file in the way");
  OutputCapture capture;
  EXPECT_FALSE(Load(ThreeCodeObjects()));
  const Output output = capture.Stop();
  ASSERT_EQ(analyser_.code_object_lists.size(), 1u);
  EXPECT_EQ(WithoutTimes(output.err), "[time] Error: [init] Write bin failed, dump dir: " + out_ +
                                          "/codes name : " + analyser_.code_object_lists[0]->name +
                                          "\n");
  EXPECT_EQ(ReadText(out_), "a file in the way");
}

// The numbers begin with the process, so what hangs on them is seen from outside.
class LoaderRunTest : public testing::Test {
 protected:
  ProcessResult Run(const CoreFile& file, const std::vector<std::string>& environment = {}) {
    EXPECT_TRUE(sample::WriteCoreFile(file, dir_.Path("core_0")));
    return RunProcess(
        TALVEX_BINARY,
        {"-i", dir_.Path("core_0"), "-o", out_, "-m", dir_.Path("mems"), "-r", dir_.Path("rocm")},
        {.working_directory = dir_.Path(), .environment = environment});
  }

  void ExpectFailure(const CoreFile& file, const std::string& log) {
    ExpectFailedRun(Run(file, {kNoLeakCheck}), log);
  }

  TempDir dir_;
  const std::string out_ = dir_.Path("out");
};

TEST_F(LoaderRunTest, CodeObjectsAreNumberedFromZero) {
  EXPECT_EQ(Run(ThreeCodeObjects()).status, 0);
  EXPECT_EQ(ListTree(out_ + "/codes"),
            (Names{"code_object_0", "code_object_0.info", "code_object_1", "code_object_1.info",
                   "code_object_2", "code_object_2.info"}));
  EXPECT_EQ(ReadText(out_ + "/codes/code_object_0"), "first");
  EXPECT_EQ(ReadText(out_ + "/codes/code_object_1"), "second");
  EXPECT_EQ(ReadText(out_ + "/codes/code_object_2"), "third");
  EXPECT_EQ(ReadText(out_ + "/codes/code_object_2.info"),
            "Object load addr: 0x0\n"
            "Object load size: 0x3000\n");
}

TEST_F(LoaderRunTest, CodeObjectFilesReplaceThoseOfAnEarlierRun) {
  fs::create_directories(out_ + "/codes");
  WriteText(out_ + "/codes/code_object_0", "much longer than the new one");
  WriteText(out_ + "/codes/code_object_0.info", std::string(1000, 'x'));
  EXPECT_EQ(Run(ThreeCodeObjects()).status, 0);
  EXPECT_EQ(ReadText(out_ + "/codes/code_object_0"), "first");
  EXPECT_EQ(ReadText(out_ + "/codes/code_object_0.info"),
            "Object load addr: 0x0\n"
            "Object load size: 0x0\n");
}

TEST_F(LoaderRunTest, AnElfThatCannotBeWrittenEndsTheRun) {
  fs::create_directories(out_ + "/codes/code_object_1");
  ExpectFailure(ThreeCodeObjects(), "[time] Error: [init] Write bin failed, dump dir: " + out_ +
                                        "/codes name : code_object_1\n"
                                        "[time] Error: CoreDumpManager init failed.\n");
  EXPECT_EQ(ListTree(out_), (Names{"codes/", "codes/code_object_0", "codes/code_object_0.info",
                                   "codes/code_object_1/"}));
}

TEST_F(LoaderRunTest, AnInfoFileThatCannotBeWrittenEndsTheRun) {
  fs::create_directories(out_ + "/codes/code_object_1.info");
  ExpectFailure(ThreeCodeObjects(),
                "[time] Error: [init] write: code_object_1 info failed\n"
                "[time] Error: CoreDumpManager init failed.\n");
  EXPECT_EQ(ListTree(out_), (Names{"codes/", "codes/code_object_0", "codes/code_object_0.info",
                                   "codes/code_object_1", "codes/code_object_1.info/"}));
}

}  // namespace
