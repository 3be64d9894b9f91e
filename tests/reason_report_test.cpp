#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "captured_output.h"
#include "core_dump_info.h"
#include "core_file_writer.h"
#include "run_process.h"
#include "temp_dir.h"

namespace {

using Names = std::vector<std::string>;

// An analyser without agents and queues that writes into a fresh directory.
class ReasonReportTest : public testing::Test {
 protected:
  ReasonReportTest() {
    analyser_.dump_dir_ = dir_.Path();
    strcpy(analyser_.reason_info.agent_name, "gfx-node");
    analyser_.reason_info.node_id = 2;
  }

  CoreDumpQueue* AddQueue(uint32_t queue_id, uint64_t ring_address) {
    auto* queue = new CoreDumpQueue();
    queue->queue_id = queue_id;
    queue->ring_address = ring_address;
    return analyser_.queue_lists.emplace_back(queue);
  }

  std::string Report() {
    EXPECT_TRUE(analyser_.dumpReasonInfo());
    return ReadText(dir_.Path("fault_info"));
  }

  // From here on no report can be written.
  void BlockReports() {
    WriteText(dir_.Path("file"), "");
    analyser_.dump_dir_ = dir_.Path("file/sub");
    analyser_.dump_queue_dir_ = dir_.Path("file/sub/queues");
  }

  TempDir dir_;
  CoreDumpInfo analyser_;
};

class QueueErrorReportTest : public ReasonReportTest {
 protected:
  QueueErrorReportTest() {
    analyser_.reason_info.reason = CORE_DUMP_QUEUE_ERROR;
    analyser_.reason_info.ring_addr = 0x7F0000001000;
    AddQueue(5, 0x7F0000001000);
  }
};

struct QueueErrorText {
  uint32_t status;
  const char* text;
};

void PrintTo(const QueueErrorText& row, std::ostream* out) { *out << row.status; }

class QueueErrorTextTest : public QueueErrorReportTest,
                           public testing::WithParamInterface<QueueErrorText> {};

TEST_P(QueueErrorTextTest, NamesTheCause) {
  analyser_.reason_info.status = GetParam().status;
  EXPECT_EQ(Report(), std::string("Queue error in GPU agent: gfx-node\n"
                                  "GPU Node: 2\n"
                                  "Queue ID: 5 (") +
                          GetParam().text + ")\n\n");
}

constexpr QueueErrorText kQueueErrors[] = {
    {41, "Memory aperture violation;"},
    {42, "Illegal instruction;"},
    {4097, "Group is too large;"},
    {4099, "Invalid group memor;"},
    {4104, "Out of scratch;"},
    {4105, "Invalid format;"},
    {4109, "Invalid dim;"},
    {4111, "Out of VGPRs;"},
    {4112, "Invalid (or NULL) code;"},
    {4118, "Debug trap;"},
    {0, "Undefined code;"},
    {40, "Undefined code;"},
    {43, "Undefined code;"},
    {4096, "Undefined code;"},
    {4098, "Undefined code;"},
    {4117, "Undefined code;"},
    {4119, "Undefined code;"},
    {0xFFFFFFFF, "Undefined code;"},
};

INSTANTIATE_TEST_SUITE_P(Statuses, QueueErrorTextTest, testing::ValuesIn(kQueueErrors),
                         [](const testing::TestParamInfo<QueueErrorText>& row) {
                           return "Status" + std::to_string(row.param.status);
                         });

TEST_F(QueueErrorReportTest, OutOfScratchWhole) {
  analyser_.reason_info.status = 0x1008;
  EXPECT_EQ(Report(),
            "Queue error in GPU agent: gfx-node\n"
            "GPU Node: 2\n"
            "Queue ID: 5 (Out of scratch;)\n"
            "\n");
}

TEST_F(QueueErrorReportTest, AnUnknownRingPrintsMinusOne) {
  analyser_.reason_info.status = 0x2A;
  analyser_.reason_info.ring_addr = 0x7F0000002000;
  EXPECT_EQ(Report(),
            "Queue error in GPU agent: gfx-node\n"
            "GPU Node: 2\n"
            "Queue ID: -1 (Illegal instruction;)\n"
            "\n");
}

TEST_F(QueueErrorReportTest, OfTwoQueuesWithOneRingTheFirstIsNamed) {
  analyser_.reason_info.status = 0x2A;
  AddQueue(6, 0x7F0000001000);
  EXPECT_NE(Report().find("Queue ID: 5 ("), std::string::npos);
}

TEST_F(QueueErrorReportTest, IdsAreSigned) {
  analyser_.reason_info.status = 0x2A;
  analyser_.reason_info.node_id = 0xFFFFFFFE;
  analyser_.queue_lists[0]->queue_id = 0x80000000;
  EXPECT_EQ(Report(),
            "Queue error in GPU agent: gfx-node\n"
            "GPU Node: -2\n"
            "Queue ID: -2147483648 (Illegal instruction;)\n"
            "\n");
}

TEST_F(QueueErrorReportTest, ANameWithoutTerminatorEndsAtItsSize) {
  analyser_.reason_info.status = 0x2A;
  memset(analyser_.reason_info.agent_name, 'x', 64);
  EXPECT_EQ(Report(), "Queue error in GPU agent: " + std::string(64, 'x') +
                          "\n"
                          "GPU Node: 2\n"
                          "Queue ID: 5 (Illegal instruction;)\n"
                          "\n");
}

TEST_F(QueueErrorReportTest, ReplacesAnEarlierReport) {
  WriteText(dir_.Path("fault_info"), std::string(1000, 'x'));
  analyser_.reason_info.status = 0x2A;
  EXPECT_EQ(Report(),
            "Queue error in GPU agent: gfx-node\n"
            "GPU Node: 2\n"
            "Queue ID: 5 (Illegal instruction;)\n"
            "\n");
}

TEST_F(QueueErrorReportTest, FailsWhenItCannotBeWritten) {
  BlockReports();
  EXPECT_FALSE(analyser_.dumpReasonInfo());
  EXPECT_FALSE(analyser_.dumpQueueErrorInfo(analyser_.reason_info));
}

class VmFaultReportTest : public ReasonReportTest {
 protected:
  VmFaultReportTest() {
    analyser_.reason_info.reason = CORE_DUMP_VM_FAULT;
    analyser_.reason_info.virtual_address = 0x7F1234567ABC;
  }

  std::string ReportOfMask(uint32_t mask) {
    analyser_.reason_info.fault_reason_mask = mask;
    return Report();
  }

  std::string ReportOfAddress(uint64_t address) {
    analyser_.reason_info.virtual_address = address;
    return Report();
  }

  // The report around the causes.
  static std::string Expected(const std::string& causes) {
    return "Memory access fault in GPU agent: gfx-node\n"
           "GPU Node: 2\n"
           "Address: 0X7F1234567xxx (" +
           causes + ")\n\n";
  }
};

TEST_F(VmFaultReportTest, WithoutCauseWhole) {
  EXPECT_EQ(ReportOfMask(0),
            "Memory access fault in GPU agent: gfx-node\n"
            "GPU Node: 2\n"
            "Address: 0X7F1234567xxx ()\n"
            "\n");
}

TEST_F(VmFaultReportTest, Bit0) { EXPECT_EQ(ReportOfMask(0x1), Expected("page not present;")); }

TEST_F(VmFaultReportTest, Bit1) {
  EXPECT_EQ(ReportOfMask(0x2), Expected("write access to a read-only page;"));
}

TEST_F(VmFaultReportTest, Bit2) {
  EXPECT_EQ(ReportOfMask(0x4), Expected("execute access to a non-executable page;"));
}

TEST_F(VmFaultReportTest, Bit3) {
  EXPECT_EQ(ReportOfMask(0x8), Expected("access to host access only;"));
}

TEST_F(VmFaultReportTest, Bit4) {
  EXPECT_EQ(ReportOfMask(0x10), Expected("uncorrectable DRAM ECC failure;"));
}

TEST_F(VmFaultReportTest, Bit5) {
  EXPECT_EQ(ReportOfMask(0x20), Expected("can't determine the exact fault address;"));
}

TEST_F(VmFaultReportTest, Bit6) { EXPECT_EQ(ReportOfMask(0x40), Expected("SRAM ECC failure;")); }

TEST_F(VmFaultReportTest, Bit31) {
  EXPECT_EQ(ReportOfMask(0x80000000), Expected("GPU reset following unspecified hang;"));
}

TEST_F(VmFaultReportTest, Bits7To30AreIgnored) {
  EXPECT_EQ(ReportOfMask(0x7FFFFF80), Expected(""));
}

TEST_F(VmFaultReportTest, SeveralCausesFollowEachOther) {
  EXPECT_EQ(ReportOfMask(0x80000003), Expected("page not present;write access to a read-only page;"
                                               "GPU reset following unspecified hang;"));
}

TEST_F(VmFaultReportTest, EveryBitAtOnce) {
  EXPECT_EQ(ReportOfMask(0xFFFFFFFF), Expected("page not present;"
                                               "write access to a read-only page;"
                                               "execute access to a non-executable page;"
                                               "access to host access only;"
                                               "uncorrectable DRAM ECC failure;"
                                               "can't determine the exact fault address;"
                                               "SRAM ECC failure;"
                                               "GPU reset following unspecified hang;"));
}

TEST_F(VmFaultReportTest, EveryCombinationKeepsTheOrderOfTheBits) {
  struct Cause {
    uint32_t bit;
    const char* text;
  };
  const std::vector<Cause> causes = {
      {0x1, "page not present;"},
      {0x2, "write access to a read-only page;"},
      {0x4, "execute access to a non-executable page;"},
      {0x8, "access to host access only;"},
      {0x10, "uncorrectable DRAM ECC failure;"},
      {0x20, "can't determine the exact fault address;"},
      {0x40, "SRAM ECC failure;"},
      {0x80000000, "GPU reset following unspecified hang;"},
  };
  for (unsigned chosen = 0; chosen < 1U << causes.size(); ++chosen) {
    uint32_t mask = 0;
    std::string texts;
    for (size_t i = 0; i < causes.size(); ++i) {
      if ((chosen >> i & 1) != 0) {
        mask |= causes[i].bit;
        texts += causes[i].text;
      }
    }
    EXPECT_EQ(ReportOfMask(mask), Expected(texts));
  }
}

TEST_F(VmFaultReportTest, AnAddressInTheFirstPageIsPageZero) {
  EXPECT_NE(ReportOfAddress(0xFFF).find("\nAddress: 0X0xxx ()\n"), std::string::npos);
}

TEST_F(VmFaultReportTest, TheHighestAddressHasNoSign) {
  EXPECT_NE(ReportOfAddress(0xFFFFFFFFFFFFFFFF).find("\nAddress: 0XFFFFFFFFFFFFFxxx ()\n"),
            std::string::npos);
}

TEST_F(VmFaultReportTest, FailsWhenItCannotBeWritten) {
  BlockReports();
  EXPECT_FALSE(analyser_.dumpReasonInfo());
  EXPECT_FALSE(analyser_.dumpVMFaultInfo(analyser_.reason_info));
}

class SignalReportTest : public ReasonReportTest {
 protected:
  SignalReportTest() { analyser_.reason_info.reason = CORE_DUMP_SIGNAL; }

  std::string ReportOfSignal(int32_t sig) {
    analyser_.reason_info.sig = sig;
    return Report();
  }
};

TEST_F(SignalReportTest, Sigterm) {
  EXPECT_EQ(ReportOfSignal(15), "Dumping info due to SIGTERM: kill -15\n\n");
}

TEST_F(SignalReportTest, Sigusr1) {
  EXPECT_EQ(ReportOfSignal(10),
            "Dumping info due to SIGUSR1: the cp might be in an unrecoverable state\n\n");
}

TEST_F(SignalReportTest, AnyOtherSignalCountsAsSigusr1) {
  for (const int32_t sig : {2, 0, 9, 14, 16, -15}) {
    EXPECT_EQ(ReportOfSignal(sig),
              "Dumping info due to SIGUSR1: the cp might be in an unrecoverable state\n\n");
  }
}

TEST_F(SignalReportTest, FailsWhenItCannotBeWritten) {
  BlockReports();
  EXPECT_FALSE(analyser_.dumpReasonInfo());
  EXPECT_FALSE(analyser_.dumpSignalInfo(analyser_.reason_info));
}

TEST_F(ReasonReportTest, AnUnknownReasonWritesNothing) {
  for (const uint32_t reason : {3u, 0x100u, 0xFFFFFFFFu}) {
    analyser_.reason_info.reason = reason;
    EXPECT_FALSE(analyser_.dumpReasonInfo());
  }
  EXPECT_EQ(ListTree(dir_.Path()), Names{});
}

class DumpTest : public ReasonReportTest {
 protected:
  DumpTest() {
    analyser_.reason_info.reason = CORE_DUMP_SIGNAL;
    analyser_.reason_info.sig = 15;
    analyser_.dump_code_dir_ = dir_.Path("codes");
    analyser_.dump_queue_dir_ = dir_.Path("queues");
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
  AddQueue(7, 0);
  const Output output = Dump();
  EXPECT_EQ(output.out, "");
  EXPECT_EQ(output.err, "[time] Error: dump reason info failed\n");
  EXPECT_EQ(ListTree(dir_.Path()), (Names{"queues/", "queues/7/", "queues/7/queue"}));
}

TEST_F(DumpTest, EveryFailingStepIsLoggedAndNoneStopsTheRun) {
  BlockReports();
  AddAgent("gfx-first");
  AddAgent("gfx-second");
  AddQueue(5, 0)->queue_type = QUEUE_TYPE_COMPUTE_AQL;
  AddQueue(6, 0)->queue_type = QUEUE_TYPE_SDMA;
  AddQueue(7, 0)->queue_type = QUEUE_TYPE_COMPUTE;
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
