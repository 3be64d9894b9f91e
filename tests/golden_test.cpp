// Whole dump trees: what the program makes of a small core file, byte for byte. See
// golden/README.md for where the expected trees come from.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "golden_dumps.h"
#include "run_process.h"
#include "temp_dir.h"

namespace {

namespace fs = std::filesystem;

// Lists what it was asked to list, directories left out, so that its output does not depend on
// where the test runs.
constexpr char kStandInObjdump[] =
    "#!/bin/sh\n"
    "for word; do echo \"${word##*/}\"; done\n"
    "echo '0000000000001000 <vector_add>:'\n"
    "echo '\ts_endpgm  // 000000001000: BF810000' >&2\n";

// The directory in which a dump is made. With TALVEX_GOLDEN_KEEP set it stays there, for renewing
// the expected trees.
class Workplace {
 public:
  explicit Workplace(const std::string& name) : path_(temporary_.Path()) {
    if (const char* kept = std::getenv("TALVEX_GOLDEN_KEEP")) {
      path_ = fs::path(kept) / name;
      fs::remove_all(path_);
      fs::create_directories(path_);
    }
  }

  std::string Path(const std::string& name) const { return path_ / name; }

 private:
  TempDir temporary_;
  fs::path path_;
};

void InstallStandInObjdump(const fs::path& rocm_dir) {
  const fs::path tool = rocm_dir / "llvm" / "bin" / "llvm-objdump";
  fs::create_directories(tool.parent_path());
  WriteText(tool, kStandInObjdump);
  fs::permissions(tool, fs::perms::owner_all);
}

void ExpectSameTree(const std::string& expected, const std::string& actual) {
  const std::vector<std::string> names = ListTree(expected);
  bool same = names == ListTree(actual);
  for (size_t i = 0; same && i < names.size(); ++i) {
    const bool is_file = names[i].back() != '/';
    same = !is_file ||
           ReadText(fs::path(expected) / names[i]) == ReadText(fs::path(actual) / names[i]);
  }
  EXPECT_TRUE(same) << RunProcess("/usr/bin/diff", {"-ru", expected, actual}).out;
}

void CheckDump(const std::string& name, const GoldenDump& dump) {
  const Workplace place(name);
  ASSERT_TRUE(sample::WriteCoreFile(dump.core, place.Path("core_0")));
  ASSERT_TRUE(sample::WriteMemoryDirectory(dump.memory, place.Path("mems")));
  InstallStandInObjdump(place.Path("rocm"));

  std::vector<std::string> arguments = {"-i", place.Path("core_0"), "-o", place.Path("out"),
                                        "-m", place.Path("mems"),   "-r", place.Path("rocm")};
  if (dump.dis_all) {
    arguments.push_back("--dis_all");
  }
  const ProcessResult result = RunProcess(TALVEX_BINARY, arguments);
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.out, "");
  ExpectSameTree(std::string(TALVEX_GOLDEN_DIR) + "/" + name, place.Path("out"));
}

TEST(GoldenTest, QueueError) { CheckDump("queue-error", QueueErrorDump()); }

TEST(GoldenTest, VmFault) { CheckDump("vm-fault", VmFaultDump()); }

TEST(GoldenTest, Signal) { CheckDump("signal", SignalDump()); }

}  // namespace
