// The steps of a dump: their order, what failures of theirs leave, which waves are reported.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "captured_output.h"
#include "core_dump_info.h"
#include "core_file_writer.h"
#include "report_fixture.h"
#include "run_process.h"
#include "temp_dir.h"

namespace {

using Names = std::vector<std::string>;

class DumpTest : public ReportTest {
 protected:
  DumpTest() {
    analyser_.reason_info.reason = CORE_DUMP_SIGNAL;
    analyser_.reason_info.sig = 15;
    analyser_.dump_code_dir_ = dir_.Path("codes");
  }

  void AddAgent(const char* name) {
    auto* agent = new CoreDumpAgent();
    strcpy(agent->name, name);
    analyser_.agent_lists.push_back(agent);
  }

  // What dump() prints, which is always a success.
  Output Dump() {
    OutputCapture capture;
    EXPECT_TRUE(analyser_.dump());
    const Output output = capture.Stop();
    return {WithoutTimes(output.out), WithoutTimes(output.err)};
  }
};

TEST_F(DumpTest, WithoutAgentsAndQueuesStillWritesTheReasonAndEnds) {
  const ScopedLogLevel level("debug");
  const Output output = Dump();
  EXPECT_EQ(output.out,
            "[time] Info: CoreDump dump reason info.\n"
            "[time] Info: CoreDump dump agent.\n"
            "[time] Info: CoreDump dump queue.\n"
            "[time] Info: CoreDump end!\n");
  EXPECT_EQ(output.err, "");
  EXPECT_EQ(ListTree(dir_.Path()), Names{"fault_info"});
  EXPECT_EQ(ReadText(dir_.Path("fault_info")), "Dumping info due to SIGTERM: kill -15\n\n");
}

TEST_F(DumpTest, AnUnknownReasonIsLoggedAndTheRunGoesOn) {
  analyser_.reason_info.reason = 3;
  AddQueue(7);
  const Output output = Dump();
  EXPECT_EQ(output.out, "");
  EXPECT_EQ(output.err, "[time] Error: dump reason info failed\n");
  EXPECT_EQ(ListTree(dir_.Path()), (Names{"queues/", "queues/7/", "queues/7/queue"}));
}

TEST_F(DumpTest, EveryFailingStepIsLoggedAndNoneStopsTheRun) {
  BlockReports();
  AddAgent("gfx-first");
  AddAgent("gfx-second");
  AddQueue(5)->queue_type = QUEUE_TYPE_COMPUTE_AQL;
  AddQueue(6)->queue_type = QUEUE_TYPE_SDMA;
  AddQueue(7)->queue_type = QUEUE_TYPE_COMPUTE;
  const Output output = Dump();
  EXPECT_EQ(output.out, "");
  EXPECT_EQ(output.err,
            "[time] Error: dump reason info failed\n"
            "[time] Error: dump agent: gfx-first failed\n"
            "[time] Error: dump agent: gfx-second failed\n"
            "[time] Error: dump queue: 5 failed\n"
            "[time] Error: dump aql packet failed\n"
            "[time] Error: dump packet: 5 failed\n"
            "[time] Error: dump queue: 6 failed\n"
            "[time] Error: dump sdma packet failed\n"
            "[time] Error: dump packet: 6 failed\n"
            "[time] Error: dump queue: 7 failed\n");
}

// Each agent has a recorded wave, each queue a context save area: the reason decides which of the
// two is reported.
class WaveSourceTest : public testing::Test {
 protected:
  Names TreeOf(uint32_t reason) {
    sample::CoreFile file;
    file.reason.reason = reason;
    file.reason.sig = 15;
    sample::Agent agent;
    agent.name = "gfx-a";
    agent.gpu_id = 100;
    agent.node_id = 1;
    agent.chip_id = 0x5001;
    agent.waves.resize(1);
    file.agents = {agent};
    sample::Queue queue;
    queue.queue_id = 5;
    queue.gpu_id = 100;
    queue.queue_type = QUEUE_TYPE_COMPUTE_AQL;
    queue.ring = std::string(64, '\0');
    queue.header_backup = {0};
    queue.context = OneWaveArea();
    file.queues = {queue};
    const std::string bytes = sample::CoreFileBytes(file);

    CoreDumpInfo analyser;
    analyser.SetImageSize(bytes.size());
    EXPECT_TRUE(analyser.init(reinterpret_cast<uint64_t>(bytes.data()), dir_.Path().c_str(),
                              "/none", "/none", false));
    OutputCapture capture;
    EXPECT_TRUE(analyser.dump());
    EXPECT_EQ(capture.Stop().err, "");
    return ListTree(dir_.Path());
  }

  TempDir dir_;

 private:
  static std::string OneWaveArea() {
    sample::AreaGroup group;
    group.vgpr_count = 4;
    group.state = sample::StateRecord(4, 4, 0, 0);
    group.waves.resize(1);
    group.waves[0].first_in_group = true;
    sample::ContextArea area;
    area.groups = {group};
    return sample::ContextAreaBytes(area);
  }
};

TEST_F(WaveSourceTest, ASignalDumpReportsTheRecordedWaves) {
  EXPECT_EQ(TreeOf(CORE_DUMP_SIGNAL),
            (Names{"agent_1", "agent_1_active_waves", "environment", "fault_info", "queues/",
                   "queues/5/", "queues/5/aql_rb", "queues/5/packets", "queues/5/queue"}));
}

TEST_F(WaveSourceTest, AVmFaultDumpReportsTheSavedWaves) {
  EXPECT_EQ(
      TreeOf(CORE_DUMP_VM_FAULT),
      (Names{"agent_1", "environment", "fault_info", "queues/", "queues/5/", "queues/5/aql_rb",
             "queues/5/cwsr", "queues/5/packets", "queues/5/queue", "queues/5/waves"}));
}

TEST_F(WaveSourceTest, AQueueErrorDumpReportsTheSavedWaves) {
  EXPECT_EQ(
      TreeOf(CORE_DUMP_QUEUE_ERROR),
      (Names{"agent_1", "environment", "fault_info", "queues/", "queues/5/", "queues/5/aql_rb",
             "queues/5/cwsr", "queues/5/packets", "queues/5/queue", "queues/5/waves"}));
}

// Through the program: the list of listings lives as long as its process.
TEST(DumpListingsTest, TheListingsAreTheLastStepOfADumpWithoutAgentsAndQueues) {
  TempDir dir;
  sample::CoreFile file;
  file.reason.reason = CORE_DUMP_SIGNAL;
  file.code_objects.resize(1);
  file.code_objects[0].elf = "elf";
  ASSERT_TRUE(sample::WriteCoreFile(file, dir.Path("core_0")));
  const ProcessResult result =
      RunProcess(TALVEX_BINARY, {"--dis_all", "-r", dir.Path("rocm"), "-o", dir.Path("out")},
                 {.working_directory = dir.Path(), .environment = {}});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(WithoutTimes(result.err), "[time] Error: Can't find llvm-objdump in path: " +
                                          dir.Path("rocm/llvm/bin/llvm-objdump"));
  EXPECT_EQ(ListTree(dir.Path("out")),
            (Names{"codes/", "codes/code_object_0", "codes/code_object_0.asm",
                   "codes/code_object_0.info", "environment", "fault_info"}));
}

}  // namespace
