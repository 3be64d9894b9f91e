// Damaged memory directories: an index of any bytes, and snapshots shorter than it says.
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <string>

#include "analyser_run.h"
#include "core_file_writer.h"
#include "damaged_file.h"
#include "row_name.h"
#include "run_process.h"
#include "temp_dir.h"

namespace {

namespace fs = std::filesystem;

// A queue with one dispatch of the kernel "copy", whose arguments lie at 0x200000.
sample::CoreFile OneDispatch() {
  sample::KernelDispatch dispatch;
  dispatch.header = 2;
  dispatch.kernel_object = 0x7000100;
  dispatch.kernarg_address = 0x200000;
  sample::CoreFile file;
  file.queues.resize(1);
  file.queues[0].queue_id = 7;
  file.queues[0].queue_type = 2;
  file.queues[0].ring = sample::KernelDispatchPacket(dispatch);
  file.queues[0].header_backup = {0};
  file.code_objects.resize(1);
  file.code_objects[0].elf = "elf";
  file.code_objects[0].kernels = {{0x7000100, "copy"}};
  return file;
}

class DamagedMemoryTest : public testing::Test {
 protected:
  DamagedMemoryTest() { fs::create_directory(mems_); }

  AnalyserRun Run(const std::string& index) {
    WriteText(mems_ + "/process_mem_info", index);
    return Analyse(sample::CoreFileBytes(OneDispatch()), {.mem_dir = mems_, .rocm_dir = ""});
  }

  void WriteSnapshot(const std::string& name, const std::string& bytes) {
    WriteText(mems_ + "/" + name, bytes);
  }

  const TempDir dir_;
  const std::string mems_ = dir_.Path("mems");
};

constexpr char kArguments[] = "queues/7/copy_args";

// ---------------------------------------------------------------------------------------------
// Snapshots

struct SnapshotCase {
  const char* name;
  const char* size;  // of the region, as the index gives it
  const char* file;  // the snapshot that goes with it
  const char* bytes;
  const char* arguments;
  const char* damage;
};

class SnapshotTest : public DamagedMemoryTest, public testing::WithParamInterface<SnapshotCase> {};

TEST_P(SnapshotTest, WhatItHoldsIsUsed) {
  WriteSnapshot(GetParam().file, GetParam().bytes);
  const AnalyserRun run = Run(std::string("[0x200000 ") + GetParam().size + " a b 0 alloc\n");
  ExpectDamage(run, GetParam().damage);
  EXPECT_EQ(run.Has(kArguments), std::string(GetParam().arguments) != "");
  if (run.Has(kArguments)) {
    EXPECT_EQ(run.files.at(kArguments), GetParam().arguments);
  }
}

// A dispatch asks for 4096 bytes. The size in a file name is a signed number. A region that ends
// beyond the last address holds none.
constexpr SnapshotCase kSnapshots[] = {
    {"Whole", "9", "0X200000-0X200009-9", "arguments", "arguments", ""},
    {"LongerThanItsRegion", "3", "0X200000-0X200003-3", "arguments", "arg", ""},
    {"ShorterThanItsRegion", "9", "0X200000-0X200009-9", "arg", "arg",
     "memory snapshot of 0X200000: file offset 0X0, wanted 9 bytes, available 3 bytes\n"},
    {"Empty", "9", "0X200000-0X200009-9", "", "",
     "memory snapshot of 0X200000: file offset 0X0, wanted 9 bytes, available 0 bytes\n"},
    {"OfNoSize", "0", "0X200000-0X200000-0", "arguments", "", ""},
    {"OfOneByte", "1", "0X200000-0X200001-1", "arguments", "a", ""},
    {"OfHalf32Bits", "2147483647", "0X200000-0X801FFFFF-2147483647", "arguments", "arguments",
     "memory snapshot of 0X200000: file offset 0X0, wanted 4096 bytes, available 9 bytes\n"},
    {"OfAll32Bits", "4294967295", "0X200000-0X1001FFFFF-4294967295", "arguments", "arguments",
     "memory snapshot of 0X200000: file offset 0X0, wanted 4096 bytes, available 9 bytes\n"},
    {"OfHalf64Bits", "0x8000000000000000", "0X200000-0X8000000000200000--9223372036854775808",
     "arguments", "arguments",
     "memory snapshot of 0X200000: file offset 0X0, wanted 4096 bytes, available 9 bytes\n"},
    {"OfAll64Bits", "0xFFFFFFFFFFFFFFFF", "0X200000-0X1FFFFF--1", "arguments", "", ""},
};

INSTANTIATE_TEST_SUITE_P(Sizes, SnapshotTest, testing::ValuesIn(kSnapshots), RowName<SnapshotCase>);

TEST_F(DamagedMemoryTest, ADispatchBehindTheEndOfItsSnapshotHasNoArguments) {
  WriteSnapshot("0X1FF000-0X201000-8192", "a snapshot of one page less");
  const AnalyserRun run = Run("[0x1ff000 8192 a b 0 alloc\n");
  ExpectDamage(
      run,
      "memory snapshot of 0X1FF000: file offset 0X1000, wanted 4096 bytes, available 0 bytes\n");
  EXPECT_FALSE(run.Has(kArguments));
}

TEST_F(DamagedMemoryTest, AMissingSnapshotIsAnErrorAndNoDamage) {
  const AnalyserRun run = Run("[0x200000 9 a b 0 alloc\n");
  EXPECT_EQ(run.damage, "");
  EXPECT_EQ(run.log, "[time] Error: mem_name:" + mems_ + "/0X200000-0X200009-9 failed\n");
  EXPECT_FALSE(run.Has(kArguments));
}

TEST_F(DamagedMemoryTest, ADirectoryInPlaceOfASnapshotHoldsNothing) {
  fs::create_directory(mems_ + "/0X200000-0X200009-9");
  ExpectDamage(Run("[0x200000 9 a b 0 alloc\n"),
               "memory snapshot of 0X200000: file offset 0X0, wanted 9 bytes, available 0 bytes\n");
}

// ---------------------------------------------------------------------------------------------
// The index

// Where lines have enough tokens whatever they say, the run goes on.
TEST_F(DamagedMemoryTest, AnIndexOfNonsenseGivesNoArguments) {
  const std::string indexes[] = {
      "",
      "\n\n\n",
      std::string(100000, 'x'),
      std::string(4096, '\0'),
      std::string("\xFF\xFE\0\x80 alloc 1 2 3 4\n", 20),
      "alloc gpu: alloc gpu: alloc gpu: alloc\n",
      "[0x200000 twelve a b - alloc\n",
      "[0xFFFFFFFFFFFFFFFFFFFF 99999999999999999999 a b 99999999999999999999 alloc\n",
      "[-1 -1 a b -1 alloc\n",
      "[0x200000 1 2 3 4 0xFFFFFFFFFFFFFFFF gpu:\n",
      "[0x200000 9 a b 0 allo",
  };
  for (const std::string& index : indexes) {
    const AnalyserRun run = Run(index);
    ExpectDamage(run, "");
    EXPECT_FALSE(run.Has(kArguments)) << index.substr(0, 100);
  }
}

// Only the first tokens are looked at, so that a line costs what it is long and no more.
TEST_F(DamagedMemoryTest, ALineOfAMillionTokensIsReadLikeAnyOther) {
  WriteSnapshot("0X200000-0X200009-9", "arguments");
  std::string index = "[0x200000 9 a b 0 alloc";
  for (int i = 0; i < 1000000; ++i) {
    index += " x";
  }
  const AnalyserRun run = Run(index);
  ExpectDamage(run, "");
  EXPECT_EQ(run.files.at(kArguments), "arguments");
}

TEST_F(DamagedMemoryTest, ALastLineWithoutLineFeedCounts) {
  WriteSnapshot("0X200000-0X200009-9", "arguments");
  EXPECT_EQ(Run("[0x200000 9 a b 0 alloc").files.at(kArguments), "arguments");
}

// The one abnormal end, on purpose: a region that nobody recorded must not be reported.
TEST_F(DamagedMemoryTest, ALineWithTooFewTokensEndsTheRun) {
  WriteText(mems_ + "/process_mem_info", "[0x200000 9 alloc\n");
  WriteText(dir_.Path("core_0"), sample::CoreFileBytes(OneDispatch()));
  // The C++ runtime says what ends it.
  const ProcessResult result =
      RunProcess(TALVEX_BINARY, {"-i", dir_.Path("core_0"), "-o", dir_.Path("out"), "-m", mems_},
                 {.working_directory = "", .environment = {"ASAN_OPTIONS=handle_abort=0"}});
  EXPECT_EQ(result.status, -1);
  EXPECT_EQ(result.signal, SIGABRT);
  EXPECT_NE(result.err.find("std::out_of_range"), std::string::npos) << result.err;
}

}  // namespace
