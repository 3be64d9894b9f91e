// The environment of a core file to its file.
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "captured_output.h"
#include "core_file_writer.h"
#include "loader_fixture.h"
#include "temp_dir.h"

namespace {

namespace fs = std::filesystem;

using sample::CoreFile;
using sample::Region;
using Names = std::vector<std::string>;

// Of the second header version.
constexpr size_t kEnvSizeOffset = 88;

class LoaderEnvironmentTest : public LoaderTest {
 protected:
  // A file that ends with the environment's terminator.
  static CoreFile File(const std::string& environment) {
    CoreFile file;
    file.environment = environment;
    file.layout.order = {Region::kReason,      Region::kAgents,   Region::kQueues,
                         Region::kCodeObjects, Region::kKernels,  Region::kElfs,
                         Region::kRings,       Region::kContexts, Region::kWaves,
                         Region::kEnvironment};
    return file;
  }

  std::string Written() const { return ReadText(out_ + "/environment"); }
};

TEST_F(LoaderEnvironmentTest, EndsAtItsFirstZeroByte) {
  ASSERT_TRUE(Load(File(std::string("A=1\n\0B=2\n", 9))));
  EXPECT_EQ(Written(), "A=1\n");
}

TEST_F(LoaderEnvironmentTest, EmptyGivesAnEmptyFile) {
  ASSERT_TRUE(Load(File("")));
  EXPECT_EQ(Written(), "");
}

TEST_F(LoaderEnvironmentTest, ItsSizeIsNotConsulted) {
  for (const uint64_t size : {uint64_t{0}, uint64_t{2}, kWild}) {
    CoreFile file = File("A=1\nB=2\n");
    file.overrides = {{.offset = kEnvSizeOffset, .value = size}};
    ASSERT_TRUE(Load(file));
    EXPECT_EQ(Written(), "A=1\nB=2\n");
  }
  EXPECT_EQ(ListTree(out_), Names{"environment"});
}

TEST_F(LoaderEnvironmentTest, BytesAreNotChanged) {
  std::string every_byte;
  for (int byte = 1; byte < 256; ++byte) {
    every_byte += static_cast<char>(byte);
  }
  ASSERT_TRUE(Load(File(every_byte)));
  EXPECT_EQ(Written(), every_byte);
}

TEST_F(LoaderEnvironmentTest, WithoutTerminatorEndsWithTheFile) {
  CoreFile file = File("A=1\nB=2\n");
  file.overrides = {{.offset = kEnvSizeOffset, .value = 8}};
  std::string bytes = sample::CoreFileBytes(file);
  bytes.pop_back();
  OutputCapture capture;
  EXPECT_TRUE(Load(bytes));
  EXPECT_EQ(capture.Stop().err, "");
  EXPECT_EQ(Written(), "A=1\nB=2\n");
  EXPECT_EQ(ListTree(out_), Names{"environment"});
}

TEST_F(LoaderEnvironmentTest, CutOffByTheEndOfTheFileIsDamage) {
  std::string bytes = sample::CoreFileBytes(File("A=1\nB=2\n"));
  bytes.resize(bytes.size() - 3);
  OutputCapture capture;
  EXPECT_TRUE(Load(bytes));
  EXPECT_NE(capture.Stop().err, "");
  EXPECT_EQ(Written(), "A=1\nB=");
  EXPECT_EQ(ReadText(out_ + "/damage").rfind("environment: ", 0), 0u);
}

// Callers that do not know the size of the mapping have files that keep to the format.
TEST_F(LoaderEnvironmentTest, WithoutAnImageSizeNothingIsLimited) {
  const std::string bytes = sample::CoreFileBytes(File("A=1\n"));
  ASSERT_TRUE(analyser_.init(reinterpret_cast<uint64_t>(bytes.data()), out_.c_str(), "/opt/rocm",
                             mems_.c_str(), false));
  EXPECT_EQ(Written(), "A=1\n");
}

TEST_F(LoaderEnvironmentTest, ReplacesWhatAnEarlierRunWrote) {
  fs::create_directory(out_);
  WriteText(out_ + "/environment", "much longer than the new one\n");
  ASSERT_TRUE(Load(File("A=1\n")));
  EXPECT_EQ(Written(), "A=1\n");
}

TEST_F(LoaderEnvironmentTest, ThatCannotBeWrittenIsIgnored) {
  fs::create_directories(out_ + "/environment");
  OutputCapture capture;
  EXPECT_TRUE(Load(File("A=1\n")));
  EXPECT_EQ(capture.Stop().err, "");
  EXPECT_EQ(ListTree(out_), Names{"environment/"});
}

}  // namespace
