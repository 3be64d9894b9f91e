// The report of why there is a dump, the file fault_info.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <ostream>
#include <string>
#include <vector>

#include "core_dump_info.h"
#include "report_fixture.h"
#include "temp_dir.h"

namespace {

using Names = std::vector<std::string>;

class ReasonReportTest : public ReportTest {
 protected:
  ReasonReportTest() {
    strcpy(analyser_.reason_info.agent_name, "gfx-node");
    analyser_.reason_info.node_id = 2;
  }

  std::string Report() {
    EXPECT_TRUE(analyser_.dumpReasonInfo());
    return ReadText(dir_.Path("fault_info"));
  }
};

class QueueErrorReportTest : public ReasonReportTest {
 protected:
  QueueErrorReportTest() {
    analyser_.reason_info.reason = CORE_DUMP_QUEUE_ERROR;
    analyser_.reason_info.ring_addr = 0x7F0000001000;
    AddQueue(5)->ring_address = 0x7F0000001000;
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
  AddQueue(6)->ring_address = 0x7F0000001000;
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

}  // namespace
