// The log lines of whole runs of the program.
#include <gtest/gtest.h>

#include <cstdint>
#include <regex>
#include <string>

#include "captured_output.h"
#include "command_line_fixture.h"
#include "core_file_writer.h"
#include "run_process.h"
#include "stand_in_tool.h"

namespace {

TEST_F(CommandLineTest, TheInfoLinesOfASmallRun) {
  WriteCore(SmallCore());
  const ProcessResult result = Run({"-l", "info"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(WithoutTimes(result.out),
            "[time] Info: Current core dump version is v1.\n"
            "[time] Info: CoreDump init agent.\n"
            "[time] Info: CoreDump init queue.\n"
            "[time] Info: CoreDump init code object.\n"
            "[time] Info: CoreDump init process mem.\n"
            "[time] Warning: Can not Open: " +
                dir_.Path("mems/process_mem_info") +
                ".\n"
                "[time] Warning: [init] init process mem info failed\n"
                "[time] Info: CoreDump dump reason info.\n"
                "[time] Info: CoreDump dump agent.\n"
                "[time] Info: CoreDump dump queue.\n"
                "[time] Info: CoreDump end!\n");
}

TEST_F(CommandLineTest, TheInfoLinesNameTheFirstFormat) {
  sample::CoreFile file = SmallCore();
  file.format = 0;
  WriteCore(file);
  ASSERT_TRUE(sample::WriteMemoryDirectory({}, dir_.Path("mems")));
  EXPECT_EQ(InfoLog({}),
            "[time] Info: Current core dump version is v0.\n"
            "[time] Info: CoreDump init agent.\n"
            "[time] Info: CoreDump init queue.\n"
            "[time] Info: CoreDump init code object.\n"
            "[time] Info: CoreDump init process mem.\n"
            "[time] Info: CoreDump dump reason info.\n"
            "[time] Info: CoreDump dump agent.\n"
            "[time] Info: CoreDump dump queue.\n"
            "[time] Info: CoreDump end!\n");
}

TEST_F(CommandLineTest, TheDebugLinesOfAWholeRun) {
  WriteCore(WholeCore());
  ASSERT_TRUE(sample::WriteMemoryDirectory({}, dir_.Path("mems")));
  const StandInRocm rocm(dir_.Path("rocm"));
  rocm.InstallScript("echo listing\n");
  const ProcessResult result =
      Run({"-l", "debug", "--dis_all", "-o", dir_.Path("out"), "-r", rocm.Path()});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  // The file lies anywhere in memory.
  const std::string log = std::regex_replace(WithoutTimes(result.out),
                                             std::regex("0x[0-9a-f]+ count"), "[address] count");
  EXPECT_EQ(log,
            "[time] Debug: CoreDump init dump_dir_: " + dir_.Path() +
                "/out\n"
                "[time] Debug: CoreDump init dump_code_dir_: " +
                dir_.Path() +
                "/out/codes\n"
                "[time] Debug: CoreDump init dump_queue_dir_: " +
                dir_.Path() +
                "/out/queues\n"
                "[time] Debug: CoreDump init rocm_dir_: " +
                dir_.Path() +
                "/rocm\n"
                "[time] Debug: CoreDump init mem_dir_: " +
                dir_.Path() +
                "/mems\n"
                "[time] Debug: CoreDump init dis_all_code_object: 1\n"
                "[time] Info: Current core dump version is v1.\n"
                "[time] Debug: Agent: [address] count: 1\n"
                "[time] Debug: Queue: [address] count: 2\n"
                "[time] Debug: CodeObject: [address] count: 1\n"
                "[time] Debug: Dp4x_vgpr_offset: 0x155a000\n"
                "[time] Debug: Core dump version: 0x10100\n"
                "[time] Info: CoreDump init agent.\n"
                "[time] Info: CoreDump init queue.\n"
                "[time] Info: CoreDump init code object.\n"
                "[time] Info: CoreDump init process mem.\n"
                "[time] Info: CoreDump dump reason info.\n"
                "[time] Info: CoreDump dump agent.\n"
                "[time] Debug: DumpAgentWaves gfx version: 0x90006\n"
                "[time] Info: CoreDump dump queue.\n"
                "[time] Debug: dumpAqlPacket queu id: 7\n"
                "[time] Debug: dumpSdmaPacket queu id: 8\n"
                "[time] Debug: CoreDump disassemble thread count: 1\n"
                "[time] Debug: thread_disassemble id: 0\n"
                "[time] Debug: DisCodeObject agent name:gfx-node code object name: code_object_0\n"
                "[time] Info: CoreDump end!\n");
}

TEST_F(CommandLineTest, TheDebugLinesTellWhereTheTablesLieInMemory) {
  const sample::CoreFile file = WholeCore();
  const sample::Placement placement = sample::Place(file);
  WriteCore(file);
  const std::string log = DebugLog({"-o", dir_.Path("out")});
  std::smatch address;
  ASSERT_TRUE(std::regex_search(log, address,
                                std::regex("Agent: 0x([0-9a-f]+) count: 1\n"
                                           ".*Queue: 0x([0-9a-f]+) count: 2\n"
                                           ".*CodeObject: 0x([0-9a-f]+) count: 1\n")));
  const uint64_t base = std::stoull(address[1], nullptr, 16) - placement.agents.at(0);
  EXPECT_EQ(base % 4096, 0u);
  EXPECT_EQ(std::stoull(address[2], nullptr, 16), base + placement.queues.at(0));
  EXPECT_EQ(std::stoull(address[3], nullptr, 16), base + placement.code_objects.at(0));
}

TEST_F(CommandLineTest, TheDebugLinesGiveTheConstantsOfTheFirstFormat) {
  sample::CoreFile file = SmallCore();
  file.format = 0;
  WriteCore(file);
  EXPECT_NE(DebugLog({}).find("[time] Debug: Dp4x_vgpr_offset: 0x1545000\n"
                              "[time] Debug: Core dump version: 0x0\n"),
            std::string::npos);
}

}  // namespace
