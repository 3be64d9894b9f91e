// Small hostile inputs that ask for much: the run ends in bounded memory, which a limit of its
// address space proves, and reports what there is.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <string>

#include "captured_output.h"
#include "core_file_writer.h"
#include "damaged_file.h"
#include "run_process.h"
#include "small_dump.h"
#include "stand_in_tool.h"
#include "temp_dir.h"

// A sanitizer's shadow takes more address space than any limit would leave: with one the runs are
// the same, without the limit.
#ifndef __has_feature
#define __has_feature(feature) 0
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || \
    __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define TALVEX_SANITIZED 1
#else
#define TALVEX_SANITIZED 0
#endif

namespace {

namespace fs = std::filesystem;

// A shell script that runs its arguments in so many MiB of address space.
std::string LimitedRunScript(int mebibytes) {
  const std::string run = "exec \"$0\" \"$@\"";
  return TALVEX_SANITIZED ? run : "ulimit -v " + std::to_string(1024 * mebibytes) + " && " + run;
}

constexpr size_t kHwTrapSts = 6;  // in AreaWave::hwregs

class HostileLimitsTest : public testing::Test {
 protected:
  HostileLimitsTest() { fs::create_directory(mems_); }

  // Runs the program over the bytes of a core file.
  ProcessResult Run(const std::string& core_file, int mebibytes = 512) {
    WriteText(dir_.Path("core_0"), core_file);
    return RunProcess("/bin/sh",
                      {"-c", LimitedRunScript(mebibytes), TALVEX_BINARY, "-i", dir_.Path("core_0"),
                       "-o", out_, "-m", mems_, "-r", rocm_.Path()});
  }

  const TempDir dir_;
  const std::string out_ = dir_.Path("out");
  const std::string mems_ = dir_.Path("mems");
  const StandInRocm rocm_{dir_.Path("rocm")};
};

size_t LineCount(const std::string& text) {
  return static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
}

// ---------------------------------------------------------------------------------------------
// Claims

// Every count and size that leads to a region claims all there could ever be.
TEST_F(HostileLimitsTest, CountsAndSizesOfEverything) {
  const sample::Placement at = sample::Place(SmallDump());
  std::string bytes = sample::CoreFileBytes(SmallDump());
  SetField(bytes, 24, 8, UINT64_MAX);  // fault_size
  SetField(bytes, 40, 8, UINT64_MAX);  // agent_count
  SetField(bytes, 56, 8, UINT64_MAX);  // queue_count
  SetField(bytes, 72, 8, UINT64_MAX);  // codeobject_count
  SetField(bytes, 88, 8, UINT64_MAX);  // env_size
  for (const uint64_t queue : at.queues) {
    SetField(bytes, queue + 64, 8, UINT64_MAX);   // ring_size
    SetField(bytes, queue + 120, 8, UINT64_MAX);  // context_sr_size
  }
  for (const uint64_t object : at.code_objects) {
    SetField(bytes, object + 24, 8, UINT64_MAX);  // size_elf
    SetField(bytes, object + 48, 8, UINT64_MAX);  // kernel_count
  }
  const ProcessResult result = Run(bytes);
  EXPECT_EQ(result.status, 0) << result.err.substr(0, 1000);
  const std::string damage = ReadText(out_ + "/damage");
  EXPECT_EQ(damage,
            "reason record: file offset 0X80, wanted 18446744073709551615 bytes, available 112 "
            "bytes\n"
            "agent table: file offset 0XF0, wanted 18446744073709551615 bytes, available 9844 "
            "bytes\n"
            "queue table: file offset 0X9A0, wanted 18446744073709551615 bytes, available 7620 "
            "bytes\n"
            "code object table: file offset 0XB50, wanted 18446744073709551615 bytes, available "
            "7188 bytes\n"
            "code_object_0 kernel table: file offset 0XBD0, wanted 18446744073709551615 bytes, "
            "available 7060 bytes\n"
            "code_object_0 ELF image: file offset 0X1800, wanted 18446744073709551615 bytes, "
            "available 3940 bytes\n"
            "code_object_1 kernel table: file offset 0X13E0, wanted 18446744073709551615 bytes, "
            "available 4996 bytes\n"
            "code_object_1 ELF image: file offset 0X18C8, wanted 18446744073709551615 bytes, "
            "available 3740 bytes\n"
            "queue 7 context save area: file offset 0X1A60, wanted 18446744073709551615 bytes, "
            "available 3332 bytes\n"
            "queue 9 context save area: file offset 0X2688, wanted 18446744073709551615 bytes, "
            "available 220 bytes\n"
            "queue 7 ring: file offset 0X1930, wanted 18446744073709551615 bytes, available 3636 "
            "bytes\n"
            "queue 8 ring: file offset 0X1A00, wanted 18446744073709551615 bytes, available 3428 "
            "bytes\n"
            "queue 9 ring: file offset 0X1A18, wanted 18446744073709551615 bytes, available 3404 "
            "bytes\n");
  EXPECT_EQ(WithoutTimes(result.err), LossLog(damage));
  EXPECT_TRUE(fs::exists(out_ + "/agent_1"));
  EXPECT_TRUE(fs::exists(out_ + "/agent_2"));
  EXPECT_TRUE(fs::exists(out_ + "/queues/9/queue"));
}

// Three hundred code objects that all name the same thousand kernels. All together may have 262144;
// the 263rd gets the last 144.
TEST_F(HostileLimitsTest, CodeObjectsThatShareTheirKernels) {
  sample::CoreFile file;
  file.code_objects.resize(300);
  for (sample::CodeObject& object : file.code_objects) {
    object.elf = "e";
  }
  for (uint64_t i = 0; i < 1000; ++i) {
    file.code_objects[0].kernels.push_back({i, "k"});
  }
  const sample::Placement at = sample::Place(file);
  std::string bytes = sample::CoreFileBytes(file);
  for (const uint64_t object : at.code_objects) {
    SetField(bytes, object + 40, 8, at.kernels[0]);
    SetField(bytes, object + 48, 8, 1000);
  }
  ASSERT_EQ(at.kernels[0], 0x4BF0u);
  EXPECT_EQ(Run(bytes).status, 0);
  const std::string damage = ReadText(out_ + "/damage");
  EXPECT_EQ(LineCount(damage), 38u);
  EXPECT_EQ(damage.rfind("code_object_262 kernel table: file offset 0X4BF0, wanted 1032000 bytes, "
                         "available 148608 bytes\n"
                         "code_object_263 kernel table: file offset 0X4BF0, wanted 1032000 bytes, "
                         "available 0 bytes\n",
                         0),
            0u)
      << damage;
  // Two lines a kernel, and two of the object.
  EXPECT_EQ(LineCount(ReadText(out_ + "/codes/code_object_261.info")), 2002u);
  EXPECT_EQ(LineCount(ReadText(out_ + "/codes/code_object_262.info")), 290u);
  EXPECT_EQ(LineCount(ReadText(out_ + "/codes/code_object_299.info")), 2u);
}

// 4500 queues that all name the same area of a thousand waves. An agent may have 262144:
// the 263rd queue loses all but 144 of its waves, and every later one all. The first wave is
// faulting where there is a code object but no disassembler, so that no wave's text is written;
// what is written for each queue goes nowhere.
TEST_F(HostileLimitsTest, QueuesThatShareTheirWaves) {
  sample::AreaGroup group;
  group.state_record = false;
  group.wave_count = 1000;
  group.make_wave = [](uint64_t) {
    sample::AreaWave wave;
    wave.hwregs[kHwTrapSts] = 0x100;
    return wave;
  };
  sample::Queue queue;
  queue.queue_id = 7;
  queue.gpu_id = 100;
  queue.queue_type = 2;
  queue.context = sample::ContextAreaBytes({.groups = {group}});
  sample::CoreFile file;
  file.reason.reason = 1;
  file.agents.resize(1);
  file.agents[0].gpu_id = 100;
  file.agents[0].node_id = 1;
  file.code_objects.resize(1);
  file.code_objects[0].size_loaded = 0x1000;
  file.code_objects[0].elf = "elf";
  file.queues = {queue};
  queue.context = "";
  file.queues.resize(4500, queue);
  const sample::Placement at = sample::Place(file);
  std::string bytes = sample::CoreFileBytes(file);
  for (const uint64_t record : at.queues) {
    SetField(bytes, record + 120, 8, file.queues[0].context.size());
    SetField(bytes, record + 136, 8, at.contexts[0]);
  }
  fs::create_directories(out_ + "/queues/7");
  for (const char* report : {"queue", "packets", "cwsr"}) {
    fs::create_symlink("/dev/null", out_ + "/queues/7/" + report);
  }
  EXPECT_EQ(Run(bytes).status, 0);
  const std::string damage = ReadText(out_ + "/damage");
  EXPECT_EQ(LineCount(damage), 4238u);
  EXPECT_EQ(damage.substr(0, damage.find('\n') + 1),
            LossLine("queue 7 context save area, more waves than the file has room for",
                     at.contexts[0], 196024, 0));
  EXPECT_NE(ReadText(out_ + "/agent_1").find("              262144           10240.000 %\n"),
            std::string::npos);
}

// The tokens behind the sixth of an index line are not looked at, so that their number costs
// nothing.
TEST_F(HostileLimitsTest, AnIndexLineOfTenMillionTokens) {
  std::string index = "[0x200000 16 a b 0 alloc";
  for (int i = 0; i < 10000000; ++i) {
    index += " x";
  }
  WriteText(mems_ + "/process_mem_info", index);
  WriteText(mems_ + "/0X200000-0X200010-16", "kernel arguments");
  const ProcessResult result = Run(sample::CoreFileBytes(SmallDump()));
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(ReadText(out_ + "/queues/7/copy_args"), "kernel arguments");
}

// ---------------------------------------------------------------------------------------------
// The disassembler

// The small dump with a faulting wave in its first code object.
std::string FaultingDump() {
  sample::AreaGroup group;
  group.state_record = false;
  group.waves.resize(1);
  group.waves[0].first_in_group = true;
  group.waves[0].hwregs[kHwTrapSts] = 0x100;
  group.waves[0].ttmps[7] = 0x7000120;
  sample::CoreFile file = SmallDump();
  file.queues[0].context = sample::ContextAreaBytes({.groups = {group}});
  return sample::CoreFileBytes(file);
}

// 100 MB for the window around the fault, which waits in a scratch file until the report takes it,
// and as much for the listing, which is written as it comes. In memory a text of that size takes up
// to twice as much while it grows, which the limit does not leave.
TEST_F(HostileLimitsTest, AListingOfAHundredMegabytes) {
  rocm_.InstallScript("head -c 100000000 /dev/zero | tr '\\0' x\n");
  const ProcessResult result = Run(FaultingDump(), 160);
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(fs::file_size(out_ + "/codes/code_object_0.asm"), 100000013u);
  const std::string fault_info = ReadText(out_ + "/fault_info");
  const std::string end = "xxx\nPC offset: 0X120\n\n";
  const size_t window = fault_info.find("Code Object:\nxxx");
  ASSERT_NE(window, std::string::npos);
  EXPECT_EQ(fault_info.size() - window, 13u + 100000000u + end.size() - 3);
  EXPECT_EQ(fault_info.substr(fault_info.size() - end.size()), end);
}

TEST_F(HostileLimitsTest, AListingOfBinaryBytesIsTakenAsItIs) {
  rocm_.InstallScript("printf '\\0\\001\\377\\033[2J\\n'\n");
  const ProcessResult result = Run(FaultingDump());
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  const std::string text("Code Object:\n\0\1\xFF\x1B[2J\n", 21);
  EXPECT_EQ(ReadText(out_ + "/codes/code_object_0.asm"), text);
  EXPECT_NE(ReadText(out_ + "/fault_info").find(text + "\nPC offset: 0X120\n\n"),
            std::string::npos);
}

class FailingToolTest : public HostileLimitsTest,
                        public testing::WithParamInterface<const char*> {};

TEST_P(FailingToolTest, IsSaidToBeUnavailable) {
  rocm_.InstallScript(GetParam());
  const ProcessResult result = Run(FaultingDump());
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  const std::string text = DisassemblyUnavailable(out_ + "/codes/code_object_0");
  EXPECT_EQ(ReadText(out_ + "/codes/code_object_0.asm"), text);
  const std::string fault_info = ReadText(out_ + "/fault_info");
  EXPECT_EQ(fault_info.find("secret"), std::string::npos);
  EXPECT_EQ(fault_info.substr(fault_info.size() - text.size()), text);
}

// What it wrote before is discarded, however much it was.
INSTANTIATE_TEST_SUITE_P(, FailingToolTest,
                         testing::Values("echo secret\nkill -SEGV $$\n",
                                         "echo secret\nkill -KILL $$\n", "echo secret\nexit 1\n",
                                         "head -c 50000000 /dev/zero\necho secret\nexit 1\n"));

}  // namespace
