// What the loading of a core file logs.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <string>

#include "captured_output.h"
#include "core_file_writer.h"
#include "loader_fixture.h"

namespace {

using sample::CoreFile;

std::string Pointer(uint64_t address) {
  char text[24];
  snprintf(text, sizeof(text), "0x%llx", static_cast<unsigned long long>(address));
  return text;
}

class LoaderLogTest : public LoaderTest {
 protected:
  // One agent, two queues and one code object, in this order behind the header and the reason, and
  // no memory directory.
  static CoreFile File(int format) {
    CoreFile file;
    file.format = format;
    file.agents.resize(1);
    file.queues.resize(2);
    file.code_objects.resize(1);
    file.code_objects[0].elf = "elf";
    return file;
  }

  Output LogOf(const CoreFile& file, const std::string& level) {
    const ScopedLogLevel scoped(level);
    OutputCapture capture;
    EXPECT_TRUE(Load(file));
    Output output = capture.Stop();
    output.out = WithoutTimes(output.out);
    return output;
  }
};

TEST_F(LoaderLogTest, AtDebugInOrder) {
  const Output output = LogOf(File(1), "debug");
  EXPECT_EQ(output.out, "[time] Debug: CoreDump init dump_dir_: " + out_ + "\n" +
                            "[time] Debug: CoreDump init dump_code_dir_: " + out_ + "/codes\n" +
                            "[time] Debug: CoreDump init dump_queue_dir_: " + out_ + "/queues\n" +
                            "[time] Debug: CoreDump init rocm_dir_: /opt/rocm\n" +
                            "[time] Debug: CoreDump init mem_dir_: " + mems_ + "\n" +
                            "[time] Debug: CoreDump init dis_all_code_object: 0\n"
                            "[time] Info: Current core dump version is v1.\n"
                            "[time] Debug: Agent: " +
                            Pointer(Base() + 240) + " count: 1\n" +
                            "[time] Debug: Queue: " + Pointer(Base() + 1352) + " count: 2\n" +
                            "[time] Debug: CodeObject: " + Pointer(Base() + 1640) + " count: 1\n" +
                            "[time] Debug: Dp4x_vgpr_offset: 0x155a000\n"
                            "[time] Debug: Core dump version: 0x10100\n"
                            "[time] Info: CoreDump init agent.\n"
                            "[time] Info: CoreDump init queue.\n"
                            "[time] Info: CoreDump init code object.\n"
                            "[time] Info: CoreDump init process mem.\n"
                            "[time] Warning: Can not Open: " +
                            mems_ + "/process_mem_info.\n" +
                            "[time] Warning: [init] init process mem info failed\n");
  EXPECT_EQ(output.err, "");
}

TEST_F(LoaderLogTest, AtInfoOfTheFirstFormat) {
  const Output output = LogOf(File(0), "info");
  EXPECT_EQ(output.out,
            "[time] Info: Current core dump version is v0.\n"
            "[time] Info: CoreDump init agent.\n"
            "[time] Info: CoreDump init queue.\n"
            "[time] Info: CoreDump init code object.\n"
            "[time] Info: CoreDump init process mem.\n"
            "[time] Warning: Can not Open: " +
                mems_ + "/process_mem_info.\n" +
                "[time] Warning: [init] init process mem info failed\n");
  EXPECT_EQ(output.err, "");
}

TEST_F(LoaderLogTest, OfTheFirstFormatsConstantsAtDebug) {
  const Output output = LogOf(File(0), "debug");
  EXPECT_NE(output.out.find("[time] Info: Current core dump version is v0.\n"
                            "[time] Debug: Agent: " +
                            Pointer(Base() + 200) + " count: 1\n" +
                            "[time] Debug: Queue: " + Pointer(Base() + 1312) + " count: 2\n" +
                            "[time] Debug: CodeObject: " + Pointer(Base() + 1600) + " count: 1\n" +
                            "[time] Debug: Dp4x_vgpr_offset: 0x1545000\n"
                            "[time] Debug: Core dump version: 0x0\n"
                            "[time] Info: CoreDump init agent.\n"),
            std::string::npos);
}

TEST_F(LoaderLogTest, WithAMemoryDirectoryHasNoWarning) {
  ASSERT_TRUE(sample::WriteMemoryDirectory({}, mems_));
  const Output output = LogOf(File(1), "info");
  EXPECT_EQ(output.out,
            "[time] Info: Current core dump version is v1.\n"
            "[time] Info: CoreDump init agent.\n"
            "[time] Info: CoreDump init queue.\n"
            "[time] Info: CoreDump init code object.\n"
            "[time] Info: CoreDump init process mem.\n");
}

TEST_F(LoaderLogTest, AtTheDefaultLevelIsEmpty) {
  const Output output = LogOf(File(1), "error");
  EXPECT_EQ(output.out, "");
  EXPECT_EQ(output.err, "");
}

TEST_F(LoaderLogTest, DisAllIsShownAsOne) {
  const std::string bytes = sample::CoreFileBytes({});
  const ScopedLogLevel level("debug");
  OutputCapture capture;
  EXPECT_TRUE(analyser_.init(reinterpret_cast<uint64_t>(bytes.data()), out_.c_str(), "rocm",
                             mems_.c_str(), true));
  EXPECT_NE(capture.Stop().out.find("CoreDump init dis_all_code_object: 1\n"), std::string::npos);
}

}  // namespace
