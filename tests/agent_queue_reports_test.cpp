// The reports of an agent and of a queue.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "core_dump_info.h"
#include "report_fixture.h"
#include "temp_dir.h"

namespace {

using Names = std::vector<std::string>;

class AgentReportTest : public ReportTest {
 protected:
  AgentReportTest() {
    strcpy(agent_.name, "gfx-906");
    agent_.gpu_id = 34567;
    agent_.node_id = 2;
    agent_.drm_id = 0x80;
    agent_.location_id = 0x3B00;
    agent_.pci_domain_id = 0;
    agent_.pci_bus_id = 0x3B;
    agent_.pci_device_id = 0;
    agent_.chip_id = 0x500F;
    agent_.is_dp4x = true;
    agent_.num_cus = 60;
    agent_.max_engine_freq = 1801;
    agent_.max_memory_freq = 1000;
    agent_.waves_per_cu = 40;
    agent_.num_simds_per_cu = 4;
    agent_.num_ses = 8;
    agent_.agent.handle = 0x5555;
    agent_.wave_offset = 0x6666;
    agent_.wave_count = 7777;
  }

  std::string Report() {
    EXPECT_TRUE(analyser_.dumpAgent(&agent_));
    return ReadText(dir_.Path("agent_2"));
  }

  CoreDumpAgent agent_ = {};
};

TEST_F(AgentReportTest, Whole) {
  EXPECT_EQ(Report(),
            "Gpu id: 34567\n"
            "Node id: 2\n"
            "Chip id: 0X500F\n"
            "Drm id: 0X80\n"
            "Agent name: gfx-906\n"
            "pci_busid: 0000:3B:00.0\n"
            "Is dp4x: 1\n"
            "Num SEs: 8\n"
            "Num CUs: 60\n"
            "Num simds per cu: 4\n"
            "Waves per cu: 40\n"
            "Max engine freq: 1801\n"
            "Max memory freq: 1000\n"
            "\n");
}

TEST_F(AgentReportTest, OfZerosWhole) {
  agent_ = {};
  agent_.node_id = 2;
  EXPECT_EQ(Report(),
            "Gpu id: 0\n"
            "Node id: 2\n"
            "Chip id: 0X0\n"
            "Drm id: 0X0\n"
            "Agent name: \n"
            "pci_busid: 0000:00:00.0\n"
            "Is dp4x: 0\n"
            "Num SEs: 0\n"
            "Num CUs: 0\n"
            "Num simds per cu: 0\n"
            "Waves per cu: 0\n"
            "Max engine freq: 0\n"
            "Max memory freq: 0\n"
            "\n");
}

TEST_F(AgentReportTest, PciNumbersArePaddedUpperCaseHexadecimal) {
  agent_.pci_domain_id = 0xABC;
  agent_.pci_bus_id = 0xC;
  agent_.pci_device_id = 0x1F;
  EXPECT_NE(Report().find("\npci_busid: 0ABC:0C:1F.0\n"), std::string::npos);
}

TEST_F(AgentReportTest, WidePciNumbersAreNotCut) {
  agent_.pci_domain_id = 0x12345;
  agent_.pci_bus_id = -1;
  agent_.pci_device_id = 0x100;
  EXPECT_NE(Report().find("\npci_busid: 12345:FFFFFFFF:100.0\n"), std::string::npos);
}

TEST_F(AgentReportTest, IdsAndCountsAreSigned) {
  agent_.gpu_id = 0xFFFFFFFF;
  agent_.num_cus = 0x80000000;
  const std::string report = Report();
  EXPECT_NE(report.find("Gpu id: -1\n"), std::string::npos);
  EXPECT_NE(report.find("\nNum CUs: -2147483648\n"), std::string::npos);
}

TEST_F(AgentReportTest, ANameWithoutTerminatorEndsAtItsSize) {
  memset(agent_.name, 'x', 1024);
  EXPECT_NE(Report().find("\nAgent name: " + std::string(1024, 'x') + "\npci_busid: "),
            std::string::npos);
}

TEST_F(AgentReportTest, TheFileIsNamedByTheUnsignedNode) {
  agent_.node_id = 0xFFFFFFFF;
  EXPECT_TRUE(analyser_.dumpAgent(&agent_));
  EXPECT_EQ(ListTree(dir_.Path()), Names{"agent_4294967295"});
  EXPECT_NE(ReadText(dir_.Path("agent_4294967295")).find("\nNode id: -1\n"), std::string::npos);
}

TEST_F(AgentReportTest, OfTwoAgentsOfOneNodeTheLaterStays) {
  EXPECT_TRUE(analyser_.dumpAgent(&agent_));
  CoreDumpAgent later = {};
  later.node_id = 2;
  strcpy(later.name, "gfx-b");
  EXPECT_TRUE(analyser_.dumpAgent(&later));
  EXPECT_EQ(ListTree(dir_.Path()), Names{"agent_2"});
  EXPECT_EQ(ReadText(dir_.Path("agent_2")),
            "Gpu id: 0\n"
            "Node id: 2\n"
            "Chip id: 0X0\n"
            "Drm id: 0X0\n"
            "Agent name: gfx-b\n"
            "pci_busid: 0000:00:00.0\n"
            "Is dp4x: 0\n"
            "Num SEs: 0\n"
            "Num CUs: 0\n"
            "Num simds per cu: 0\n"
            "Waves per cu: 0\n"
            "Max engine freq: 0\n"
            "Max memory freq: 0\n"
            "\n");
}

TEST_F(AgentReportTest, MakesItsDirectory) {
  analyser_.dump_dir_ = dir_.Path("out/run1");
  EXPECT_TRUE(analyser_.dumpAgent(&agent_));
  EXPECT_EQ(ListTree(dir_.Path()), (Names{"out/", "out/run1/", "out/run1/agent_2"}));
}

TEST_F(AgentReportTest, FailsWhenItCannotBeWritten) {
  BlockReports();
  EXPECT_FALSE(analyser_.dumpAgent(&agent_));
}

class QueueReportTest : public ReportTest {
 protected:
  QueueReportTest() {
    queue_.queue_id = 10;
    queue_.is_suspended = 1;
    queue_.gpu_id = 34567;
    queue_.queue_type = QUEUE_TYPE_COMPUTE_AQL;
    queue_.queue_format = 1;
    queue_.eop_address = 0x7F0000001000;
    queue_.eop_size = 0x1000;
    queue_.mqd_address = 0xFFFF800000ABCDEF;
    queue_.doorbell_offset = 0x2008;
    queue_.ring_address = 0x7F0000010000;
    queue_.ring_size = 0x40000;
    queue_.wptr_address = 0x7F00000200A0;
    queue_.rptr_address = 0x7F00000200B8;
    queue_.wptr_value = 4098;
    queue_.rptr_value = 4097;
    queue_.ring_offset = 0x3333;
    queue_.context_sr_address = 0x7F0000400000;
    queue_.context_sr_size = 0x2BEE000;
    queue_.control_stack_size = 0xC000;
    queue_.context_offset = 0x4444;
  }

  std::string Report() {
    EXPECT_TRUE(analyser_.dumpQueue(&queue_));
    return ReadText(dir_.Path("queues/10/queue"));
  }

  CoreDumpQueue queue_ = {};
};

TEST_F(QueueReportTest, OfAComputeAqlQueueWhole) {
  EXPECT_EQ(Report(),
            "Queue id: 0XA\n"
            "Gpu id: 34567\n"
            "Queue type: compute_aql\n"
            "Queue format: AQL\n"
            "Queue eop address: 0X7F0000001000\n"
            "Queue eop size: 0X1000\n"
            "Queue mqd address: 0XFFFF800000ABCDEF\n"
            "Queue doorbell offset: 0X2008\n"
            "Queue ring info: \n"
            "\tring address: 0X7F0000010000\n"
            "\tring size: 0X40000\n"
            "\twptr address: 0X7F00000200A0\n"
            "\trptr address: 0X7F00000200B8\n"
            "\twptr value: 4098\n"
            "\trptr value: 4097\n"
            "Queue context info: \n"
            "\tcontext save restore base: 0X7F0000400000\n"
            "\tcontext save restore total size: 0X2BEE000\n"
            "\tcontext stack size: 0XC000\n");
}

TEST_F(QueueReportTest, OfAComputeQueueEndsWithTheReadPointer) {
  queue_.queue_type = QUEUE_TYPE_COMPUTE;
  queue_.queue_format = 0;
  EXPECT_EQ(Report(),
            "Queue id: 0XA\n"
            "Gpu id: 34567\n"
            "Queue type: compute\n"
            "Queue format: PM4\n"
            "Queue eop address: 0X7F0000001000\n"
            "Queue eop size: 0X1000\n"
            "Queue mqd address: 0XFFFF800000ABCDEF\n"
            "Queue doorbell offset: 0X2008\n"
            "Queue ring info: \n"
            "\tring address: 0X7F0000010000\n"
            "\tring size: 0X40000\n"
            "\twptr address: 0X7F00000200A0\n"
            "\trptr address: 0X7F00000200B8\n"
            "\twptr value: 4098\n"
            "\trptr value: 4097\n");
}

TEST_F(QueueReportTest, OfZerosWhole) {
  queue_ = {};
  queue_.queue_id = 10;
  queue_.queue_type = QUEUE_TYPE_SDMA;
  EXPECT_EQ(Report(),
            "Queue id: 0XA\n"
            "Gpu id: 0\n"
            "Queue type: sdma\n"
            "Queue format: PM4\n"
            "Queue eop address: 0X0\n"
            "Queue eop size: 0X0\n"
            "Queue mqd address: 0X0\n"
            "Queue doorbell offset: 0X0\n"
            "Queue ring info: \n"
            "\tring address: 0X0\n"
            "\tring size: 0X0\n"
            "\twptr address: 0X0\n"
            "\trptr address: 0X0\n"
            "\twptr value: 0\n"
            "\trptr value: 0\n");
}

struct Name {
  uint32_t value;
  const char* text;
};

void PrintTo(const Name& name, std::ostream* out) { *out << name.value; }

class QueueTypeNameTest : public QueueReportTest, public testing::WithParamInterface<Name> {};

TEST_P(QueueTypeNameTest, IsPrinted) {
  queue_.queue_type = GetParam().value;
  EXPECT_NE(Report().find(std::string("\nQueue type: ") + GetParam().text + "\nQueue format: "),
            std::string::npos);
}

constexpr Name kQueueTypes[] = {
    {0, "compute"},   {1, "sdma"},    {2, "compute_aql"},
    {3, "sdma_xgmi"}, {4, "unknown"}, {0xFFFFFFFF, "unknown"},
};

INSTANTIATE_TEST_SUITE_P(Types, QueueTypeNameTest, testing::ValuesIn(kQueueTypes),
                         [](const testing::TestParamInfo<Name>& row) {
                           return "Type" + std::to_string(row.param.value);
                         });

class QueueFormatNameTest : public QueueReportTest, public testing::WithParamInterface<Name> {};

TEST_P(QueueFormatNameTest, IsPrinted) {
  queue_.queue_format = GetParam().value;
  EXPECT_NE(
      Report().find(std::string("\nQueue format: ") + GetParam().text + "\nQueue eop address: "),
      std::string::npos);
}

constexpr Name kQueueFormats[] = {{0, "PM4"}, {1, "AQL"}, {2, "unknown"}, {0xFFFFFFFF, "unknown"}};

INSTANTIATE_TEST_SUITE_P(Formats, QueueFormatNameTest, testing::ValuesIn(kQueueFormats),
                         [](const testing::TestParamInfo<Name>& row) {
                           return "Format" + std::to_string(row.param.value);
                         });

TEST_F(QueueReportTest, OnlyComputeAqlQueuesHaveContextInfo) {
  for (const uint32_t type : {0u, 1u, 3u, 4u}) {
    queue_.queue_type = type;
    EXPECT_EQ(Report().find("Queue context info"), std::string::npos) << "type " << type;
  }
}

TEST_F(QueueReportTest, PointersAreSigned) {
  queue_.queue_type = QUEUE_TYPE_COMPUTE;
  queue_.wptr_value = 0x8000000000000000;
  queue_.rptr_value = 0xFFFFFFFFFFFFFFFF;
  EXPECT_NE(Report().find("\twptr value: -9223372036854775808\n\trptr value: -1\n"),
            std::string::npos);
}

TEST_F(QueueReportTest, ContextSizesShowTheirLowThirtyTwoBits) {
  queue_.context_sr_size = 0x123456789;
  queue_.control_stack_size = 0xF00000000;
  EXPECT_NE(Report().find("\tcontext save restore total size: 0X23456789\n"
                          "\tcontext stack size: 0X0\n"),
            std::string::npos);
}

TEST_F(QueueReportTest, TheDirectoryIsNamedByTheUnsignedDecimalId) {
  queue_.queue_id = 0xFFFFFFFF;
  EXPECT_TRUE(analyser_.dumpQueue(&queue_));
  EXPECT_EQ(ListTree(dir_.Path()),
            (Names{"queues/", "queues/4294967295/", "queues/4294967295/queue"}));
  EXPECT_EQ(ReadText(dir_.Path("queues/4294967295/queue")).substr(0, 21), "Queue id: 0XFFFFFFFF\n");
}

TEST_F(QueueReportTest, ReplacesAnEarlierReport) {
  const std::string first = Report();
  EXPECT_EQ(Report(), first);
  queue_.queue_type = QUEUE_TYPE_COMPUTE;
  EXPECT_EQ(Report().find("Queue context info"), std::string::npos);
}

TEST_F(QueueReportTest, FailsWhenItCannotBeWritten) {
  BlockReports();
  EXPECT_FALSE(analyser_.dumpQueue(&queue_));
}

}  // namespace
