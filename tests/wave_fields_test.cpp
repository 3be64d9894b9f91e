// The bit fields of the registers in the report of a wave.
#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>
#include <string>

#include "row_name.h"
#include "wave_report_fixture.h"

namespace {

// A report's bit fields stand in lines whose first label is 20 characters wide.
constexpr size_t kFirstLabelWidth = 20;

// The line of `report` that begins like `line`; empty when there is none.
std::string LineLike(const std::string& report, const std::string& line) {
  const size_t begin = report.find(std::string("\n").append(line, 0, kFirstLabelWidth));
  return begin == std::string::npos
             ? std::string()
             : report.substr(begin + 1, report.find('\n', begin + 1) - begin - 1);
}

enum class Register { kStatus, kHwId, kIbSts, kGprAlloc, kLdsAlloc };

struct FieldRow {
  const char* name;
  Register reg;
  uint32_t value;  // every bit of one field
  const char* line;
};

void PrintTo(const FieldRow& row, std::ostream* out) { *out << row.name; }

template <typename Registers>
void SetRegister(Register reg, uint32_t value, Registers& regs) {
  switch (reg) {
    case Register::kStatus:
      regs.status = value;
      break;
    case Register::kHwId:
      regs.hw_id = value;
      break;
    case Register::kIbSts:
      regs.ib_sts = value;
      break;
    case Register::kGprAlloc:
      regs.gpr_alloc = value;
      break;
    case Register::kLdsAlloc:
      regs.lds_alloc = value;
      break;
  }
}

class RegisterFieldTest : public WaveReportTest, public testing::WithParamInterface<FieldRow> {};

TEST_P(RegisterFieldTest, OfASavedWave) {
  SetRegister(GetParam().reg, GetParam().value, wave_.regs);
  EXPECT_EQ(LineLike(Saved(), GetParam().line), GetParam().line);
}

TEST_P(RegisterFieldTest, OfARecordedWave) {
  SetRegister(GetParam().reg, GetParam().value, *record_);
  EXPECT_EQ(LineLike(Recorded(), GetParam().line), GetParam().line);
}

constexpr FieldRow kFieldRows[] = {
    {"Scc", Register::kStatus, 0x00000001,
     "               SCC: 1      SPI_PRIO: 0     USER_PRIO: 0          PRIV: 0"},
    {"SpiPrio", Register::kStatus, 0x00000006,
     "               SCC: 0      SPI_PRIO: 3     USER_PRIO: 0          PRIV: 0"},
    {"UserPrio", Register::kStatus, 0x00000018,
     "               SCC: 0      SPI_PRIO: 0     USER_PRIO: 3          PRIV: 0"},
    {"Priv", Register::kStatus, 0x00000020,
     "               SCC: 0      SPI_PRIO: 0     USER_PRIO: 0          PRIV: 1"},
    {"TrapEn", Register::kStatus, 0x00000040,
     "           TRAP_EN: 1     TTRACE_EN: 0         EXECZ: 0          VCCZ: 0"},
    {"TtraceEn", Register::kStatus, 0x00000080,
     "           TRAP_EN: 0     TTRACE_EN: 1         EXECZ: 0          VCCZ: 0"},
    {"Execz", Register::kStatus, 0x00000200,
     "           TRAP_EN: 0     TTRACE_EN: 0         EXECZ: 1          VCCZ: 0"},
    {"Vccz", Register::kStatus, 0x00000400,
     "           TRAP_EN: 0     TTRACE_EN: 0         EXECZ: 0          VCCZ: 1"},
    {"InTg", Register::kStatus, 0x00000800,
     "             IN_TG: 1    IN_BARRIER: 0          HALT: 0          TRAP: 0"},
    {"InBarrier", Register::kStatus, 0x00001000,
     "             IN_TG: 0    IN_BARRIER: 1          HALT: 0          TRAP: 0"},
    {"Halt", Register::kStatus, 0x00002000,
     "             IN_TG: 0    IN_BARRIER: 0          HALT: 1          TRAP: 0"},
    {"Trap", Register::kStatus, 0x00004000,
     "             IN_TG: 0    IN_BARRIER: 0          HALT: 0          TRAP: 1"},
    {"TtraceCuEn", Register::kStatus, 0x00008000,
     "      TTRACE_CU_EN: 1         VALID: 0       ECC_ERR: 0    FATAL_HALT: 0"},
    {"Valid", Register::kStatus, 0x00010000,
     "      TTRACE_CU_EN: 0         VALID: 1       ECC_ERR: 0    FATAL_HALT: 0"},
    {"EccErr", Register::kStatus, 0x00020000,
     "      TTRACE_CU_EN: 0         VALID: 0       ECC_ERR: 1    FATAL_HALT: 0"},
    {"FatalHalt", Register::kStatus, 0x00800000,
     "      TTRACE_CU_EN: 0         VALID: 0       ECC_ERR: 0    FATAL_HALT: 1"},

    {"WaveId", Register::kHwId, 0x0000000F,
     "           WAVE ID: 15       SIMD ID: 0       PIPE ID: 0         CU ID: 0"},
    {"SimdId", Register::kHwId, 0x00000030,
     "           WAVE ID: 0       SIMD ID: 3       PIPE ID: 0         CU ID: 0"},
    {"PipeId", Register::kHwId, 0x000000C0,
     "           WAVE ID: 0       SIMD ID: 0       PIPE ID: 3         CU ID: 0"},
    {"CuId", Register::kHwId, 0x00000F00,
     "           WAVE ID: 0       SIMD ID: 0       PIPE ID: 0         CU ID: 15"},
    {"ShId", Register::kHwId, 0x00001000,
     "             SH ID: 1         SE ID: 0         TG ID: 0         VM ID: 0"},
    {"SeId", Register::kHwId, 0x00006000,
     "             SH ID: 0         SE ID: 3         TG ID: 0         VM ID: 0"},
    {"TgId", Register::kHwId, 0x000F0000,
     "             SH ID: 0         SE ID: 0         TG ID: 15         VM ID: 0"},
    {"VmId", Register::kHwId, 0x00F00000,
     "             SH ID: 0         SE ID: 0         TG ID: 0         VM ID: 15"},
    {"RingId", Register::kHwId, 0x07000000,
     "           RING ID: 7      STATE ID: 0         ME ID: 0"},
    {"StateId", Register::kHwId, 0x38000000,
     "           RING ID: 0      STATE ID: 7         ME ID: 0"},
    {"MeId", Register::kHwId, 0xC0000000,
     "           RING ID: 0      STATE ID: 0         ME ID: 3"},

    {"VmCntLow", Register::kIbSts, 0x0000000F,
     "            VM_CNT: 15       EXP_CNT: 0      LGKM_CNT: 0      VALU_CNT: 0"},
    {"VmCntHigh", Register::kIbSts, 0x00C00000,
     "            VM_CNT: 48       EXP_CNT: 0      LGKM_CNT: 0      VALU_CNT: 0"},
    {"ExpCnt", Register::kIbSts, 0x00000070,
     "            VM_CNT: 0       EXP_CNT: 7      LGKM_CNT: 0      VALU_CNT: 0"},
    {"LgkmCnt", Register::kIbSts, 0x00000F00,
     "            VM_CNT: 0       EXP_CNT: 0      LGKM_CNT: 15      VALU_CNT: 0"},
    {"ValuCnt", Register::kIbSts, 0x00007000,
     "            VM_CNT: 0       EXP_CNT: 0      LGKM_CNT: 0      VALU_CNT: 7"},

    {"VgprBase", Register::kGprAlloc, 0x0000003F,
     "         VGPR_BASE: 63     VGPR_SIZE: 0     SGPR_BASE: 0     SGPR_SIZE: 0"},
    {"VgprSize", Register::kGprAlloc, 0x00003F00,
     "         VGPR_BASE: 0     VGPR_SIZE: 63     SGPR_BASE: 0     SGPR_SIZE: 0"},
    {"SgprBase", Register::kGprAlloc, 0x003F0000,
     "         VGPR_BASE: 0     VGPR_SIZE: 0     SGPR_BASE: 63     SGPR_SIZE: 0"},
    {"SgprSize", Register::kGprAlloc, 0x0F000000,
     "         VGPR_BASE: 0     VGPR_SIZE: 0     SGPR_BASE: 0     SGPR_SIZE: 15"},

    {"LdsBase", Register::kLdsAlloc, 0x000000FF, "          LDS_BASE: 255      LDS_SIZE: 0"},
    {"LdsSize", Register::kLdsAlloc, 0x001FF000, "          LDS_BASE: 0      LDS_SIZE: 511"},
};

INSTANTIATE_TEST_SUITE_P(Fields, RegisterFieldTest, testing::ValuesIn(kFieldRows),
                         RowName<FieldRow>);

// The lines from STATUS to the general registers.
std::string FieldLines(const std::string& report) {
  return Between(report, "   TRAPSTS: 0X00000000\n", "\nGeneral Registers:\n");
}

TEST_F(WaveReportTest, AllBitsOfAllFields) {
  wave_.regs.status = wave_.regs.hw_id = wave_.regs.ib_sts = 0xFFFFFFFF;
  wave_.regs.gpr_alloc = wave_.regs.lds_alloc = 0xFFFFFFFF;
  EXPECT_EQ(FieldLines(Saved()),
            "    STATUS: 0XFFFFFFFF\n"
            "               SCC: 1      SPI_PRIO: 3     USER_PRIO: 3          PRIV: 1\n"
            "           TRAP_EN: 1     TTRACE_EN: 1         EXECZ: 1          VCCZ: 1\n"
            "             IN_TG: 1    IN_BARRIER: 1          HALT: 1          TRAP: 1\n"
            "      TTRACE_CU_EN: 1         VALID: 1       ECC_ERR: 1    FATAL_HALT: 1\n"
            "\n"
            "      HWID: 0XFFFFFFFF\n"
            "           WAVE ID: 15       SIMD ID: 3       PIPE ID: 3         CU ID: 15\n"
            "             SH ID: 1         SE ID: 3         TG ID: 15         VM ID: 15\n"
            "           RING ID: 7      STATE ID: 7         ME ID: 3\n"
            "\n"
            "    IB_STS: 0XFFFFFFFF\n"
            "            VM_CNT: 63       EXP_CNT: 7      LGKM_CNT: 15      VALU_CNT: 7\n"
            "\n"
            " GPR_ALLOC: 0XFFFFFFFF\n"
            "         VGPR_BASE: 63     VGPR_SIZE: 63     SGPR_BASE: 63     SGPR_SIZE: 15\n"
            "\n"
            " LDS_ALLOC: 0XFFFFFFFF\n"
            "          LDS_BASE: 255      LDS_SIZE: 511\n"
            "\n");
}

TEST_F(WaveReportTest, BitsOutsideTheFieldsChangeNone) {
  wave_.regs.status = 0xFF7C0100;
  wave_.regs.hw_id = 0x00008000;
  wave_.regs.ib_sts = 0xFF3F8080;
  wave_.regs.gpr_alloc = 0xF0C0C0C0;
  wave_.regs.lds_alloc = 0xFFE00F00;
  EXPECT_EQ(FieldLines(Saved()),
            "    STATUS: 0XFF7C0100\n"
            "               SCC: 0      SPI_PRIO: 0     USER_PRIO: 0          PRIV: 0\n"
            "           TRAP_EN: 0     TTRACE_EN: 0         EXECZ: 0          VCCZ: 0\n"
            "             IN_TG: 0    IN_BARRIER: 0          HALT: 0          TRAP: 0\n"
            "      TTRACE_CU_EN: 0         VALID: 0       ECC_ERR: 0    FATAL_HALT: 0\n"
            "\n"
            "      HWID: 0X00008000\n"
            "           WAVE ID: 0       SIMD ID: 0       PIPE ID: 0         CU ID: 0\n"
            "             SH ID: 0         SE ID: 0         TG ID: 0         VM ID: 0\n"
            "           RING ID: 0      STATE ID: 0         ME ID: 0\n"
            "\n"
            "    IB_STS: 0XFF3F8080\n"
            "            VM_CNT: 0       EXP_CNT: 0      LGKM_CNT: 0      VALU_CNT: 0\n"
            "\n"
            " GPR_ALLOC: 0XF0C0C0C0\n"
            "         VGPR_BASE: 0     VGPR_SIZE: 0     SGPR_BASE: 0     SGPR_SIZE: 0\n"
            "\n"
            " LDS_ALLOC: 0XFFE00F00\n"
            "          LDS_BASE: 0      LDS_SIZE: 0\n"
            "\n");
}

TEST_F(WaveReportTest, ASavedWaveWithoutHwIdHasNoHwIdSection) {
  EXPECT_EQ(FieldLines(Saved()),
            "    STATUS: 0X00000000\n"
            "               SCC: 0      SPI_PRIO: 0     USER_PRIO: 0          PRIV: 0\n"
            "           TRAP_EN: 0     TTRACE_EN: 0         EXECZ: 0          VCCZ: 0\n"
            "             IN_TG: 0    IN_BARRIER: 0          HALT: 0          TRAP: 0\n"
            "      TTRACE_CU_EN: 0         VALID: 0       ECC_ERR: 0    FATAL_HALT: 0\n"
            "\n"
            "    IB_STS: 0X00000000\n"
            "            VM_CNT: 0       EXP_CNT: 0      LGKM_CNT: 0      VALU_CNT: 0\n"
            "\n"
            " GPR_ALLOC: 0X00000000\n"
            "         VGPR_BASE: 0     VGPR_SIZE: 0     SGPR_BASE: 0     SGPR_SIZE: 0\n"
            "\n"
            " LDS_ALLOC: 0X00000000\n"
            "          LDS_BASE: 0      LDS_SIZE: 0\n"
            "\n");
}

TEST_F(WaveReportTest, ARecordedWaveWithoutHwIdHasTheSection) {
  EXPECT_EQ(Between(Recorded(), "FATAL_HALT: 0\n\n", "    IB_STS: "),
            "      HWID: 0X00000000\n"
            "           WAVE ID: 0       SIMD ID: 0       PIPE ID: 0         CU ID: 0\n"
            "             SH ID: 0         SE ID: 0         TG ID: 0         VM ID: 0\n"
            "           RING ID: 0      STATE ID: 0         ME ID: 0\n"
            "\n");
}

}  // namespace
