#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "core_dump_info.h"
#include "same_text.h"
#include "utils.h"

namespace {

// A report's bit fields stand in lines whose first label is 20 characters wide.
constexpr size_t kFirstLabelWidth = 20;

// The line of `report` that begins like `line`; empty when there is none.
std::string LineLike(const std::string& report, const std::string& line) {
  const size_t begin = report.find("\n" + line.substr(0, kFirstLabelWidth));
  return begin == std::string::npos
             ? std::string()
             : report.substr(begin + 1, report.find('\n', begin + 1) - begin - 1);
}

// What stands in `report` behind the first `before`.
std::string After(const std::string& report, const std::string& before) {
  const size_t begin = report.find(before);
  if (begin == std::string::npos) {
    ADD_FAILURE() << "no \"" << before << "\" in the report";
    return {};
  }
  return report.substr(begin + before.size());
}

// The same up to the first `end` from there.
std::string Between(const std::string& report, const std::string& before, const std::string& end) {
  const std::string rest = After(report, before);
  return rest.substr(0, rest.find(end));
}

// `count` registers in rows of four: " ", then four times the name in 6 characters and the value.
template <typename Value>
std::string Rows(char letter, uint32_t first, uint32_t count, Value value) {
  std::string rows;
  for (uint32_t row = 0; row < count / 4; ++row) {
    rows += " ";
    for (uint32_t k = 4 * row; k < 4 * row + 4; ++k) {
      rows += StrFormat("%6s: 0X%08X", StrFormat("%c%u", letter, first + k).c_str(),
                        static_cast<unsigned>(value(k)));
    }
    rows += "\n";
  }
  return rows;
}

// An analyser with one code object, and one wave of each kind.
class WaveReportTest : public testing::Test {
 protected:
  WaveReportTest() {
    wave_.num_vgpr_lanes = 64;
    wave_.sgprs = wave_.vgprs = &no_registers_;
    auto* code_object = new CodeObjectInfo();
    code_object->addr_loaded = 0x7F0000001000;
    code_object->size_loaded = 0x1000;
    strcpy(code_object->name, "code_object_3");
    analyser_.code_object_lists.push_back(code_object);
  }

  std::string Saved(uint32_t gfxv = GFX_VERSION_OSPREY, bool is_dp4x = false) {
    std::string info;
    EXPECT_TRUE(analyser_.GenWaveInfo(gfxv, is_dp4x, &wave_, info));
    return info;
  }

  std::string Recorded(bool is_dp4x = false) {
    std::string info;
    EXPECT_TRUE(analyser_.GenActiveWaveInfo(is_dp4x, *record_, info));
    return info;
  }

  CoreDumpInfo analyser_;
  const uint32_t no_registers_ = 0;
  WaveStateInfo wave_ = {};
  std::unique_ptr<WaveInfo> record_ = std::make_unique<WaveInfo>();
};

// ---------------------------------------------------------------------------------------------
// A whole block

// From the separator to the location, the same for both kinds of wave.
constexpr char kWholeHead[] =
    "--------------------------------------------------------------\n"
    "Code Object: code_object_3\n"
    "PC offset: 0X234\n"
    "se1.sh0.cu5.simd2.wave3\n"
    "\n"
    "Main Registers:\n"
    "        PC: 0X00007F0000001234\n"
    "      EXEC: 0XFFFFFFFF00000001\n";

// From M0 to the general registers, likewise.
constexpr char kWholeFields[] =
    "        M0: 0X80000000\n"
    "      MODE: 0X000002F0\n"
    "   TRAPSTS: 0X40000100\n"
    "    STATUS: 0X00012461\n"
    "               SCC: 1      SPI_PRIO: 0     USER_PRIO: 0          PRIV: 1\n"
    "           TRAP_EN: 1     TTRACE_EN: 0         EXECZ: 0          VCCZ: 1\n"
    "             IN_TG: 0    IN_BARRIER: 0          HALT: 1          TRAP: 0\n"
    "      TTRACE_CU_EN: 0         VALID: 1       ECC_ERR: 0    FATAL_HALT: 0\n"
    "\n"
    "      HWID: 0X53872563\n"
    "           WAVE ID: 3       SIMD ID: 2       PIPE ID: 1         CU ID: 5\n"
    "             SH ID: 0         SE ID: 1         TG ID: 7         VM ID: 8\n"
    "           RING ID: 3      STATE ID: 2         ME ID: 1\n"
    "\n"
    "    IB_STS: 0X0040253A\n"
    "            VM_CNT: 26       EXP_CNT: 3      LGKM_CNT: 5      VALU_CNT: 2\n"
    "\n"
    " GPR_ALLOC: 0X00060004\n"
    "         VGPR_BASE: 4     VGPR_SIZE: 0     SGPR_BASE: 6     SGPR_SIZE: 0\n"
    "\n"
    " LDS_ALLOC: 0X00005011\n"
    "          LDS_BASE: 17      LDS_SIZE: 5\n"
    "\n"
    "\n"
    "General Registers:\n"
    "\n";

template <typename Registers>
void SetWholeFields(Registers& regs) {
  regs.m0 = 0x80000000;
  regs.mode = 0x2F0;
  regs.trapsts = 0x40000100;
  regs.status = 0x12461;
  regs.hw_id = 0x53872563;
  regs.ib_sts = 0x0040253A;
  regs.gpr_alloc = 0x00060004;
  regs.lds_alloc = 0x5011;
}

TEST_F(WaveReportTest, SavedWaveWhole) {
  SetWholeFields(wave_.regs);
  wave_.regs.pc = 0x7F0000001234;
  wave_.regs.trap_pc = 0x7F0000001666;  // not shown
  wave_.regs.exec = 0xFFFFFFFF00000001;
  wave_.regs.xnack_mask = 0x8000000000000010;
  wave_.regs.tba = 0x7F00ABCDEF00;
  wave_.regs.tma = 0x100;
  const std::vector<uint32_t> sgprs = {0, 1, 0xDEADBEEF, 0xFFFFFFFF, 0x10, 0x20, 0x30, 0x7FC00000};
  wave_.num_sgprs = 8;
  wave_.sgprs = sgprs.data();
  const std::vector<uint32_t> vgprs = {0x0A, 0x1A,   // v0 of lanes 0 and 1
                                       0x0B, 0x1B,   // v1
                                       0x0C, 0x1C,   // v2
                                       0x0D, 0x1D};  // v3
  wave_.num_vgprs = 4;
  wave_.num_vgpr_lanes = 2;
  wave_.vgprs = vgprs.data();
  const std::vector<uint32_t> lds = {1, 2, 3, 4, 0xCAFE0005, 6, 7, 8};
  wave_.lds_size_dw = 8;
  wave_.lds = lds.data();
  EXPECT_EQ(Saved(),
            std::string(kWholeHead) +
                "XNACK_MASK: 0X8000000000000010\n"
                "       TBA: 0X00007F00ABCDEF00\n"
                "       TMA: 0X0000000000000100\n" +
                kWholeFields +
                "     s0: 0X00000000    s1: 0X00000001    s2: 0XDEADBEEF    s3: 0XFFFFFFFF\n"
                "     s4: 0X00000010    s5: 0X00000020    s6: 0X00000030    s7: 0X7FC00000\n"
                "\n"
                "Lane 0\n"
                "     v0: 0X0000000A    v1: 0X0000000B    v2: 0X0000000C    v3: 0X0000000D\n"
                "Lane 1\n"
                "     v0: 0X0000001A    v1: 0X0000001B    v2: 0X0000001C    v3: 0X0000001D\n"
                "\n"
                "LDS:\n"
                "\n"
                "0X0000: 0X00000001: 0X00000002: 0X00000003: 0X00000004:\n"
                "0X0010: 0XCAFE0005: 0X00000006: 0X00000007: 0X00000008:\n"
                "\n"
                "\n");
}

TEST_F(WaveReportTest, RecordedWaveWhole) {
  SetWholeFields(*record_);
  record_->pc_lo = 0x1234;
  record_->pc_hi = 0x7F00;
  record_->exec_lo = 1;
  record_->exec_hi = 0xFFFFFFFF;
  record_->inst_dw0 = record_->inst_dw1 = record_->ib_dbg0 = record_->ib_dbg1 = 0xBAD;  // not shown
  for (uint32_t i = 0; i < 16; ++i) {
    record_->sgprs[i] = 0x500 + i;
  }
  std::string lanes;
  for (uint32_t lane = 0; lane < 64; ++lane) {
    for (uint32_t k = 0; k < 4; ++k) {
      record_->vgprs[lane * 256 + k] = lane << 8 | k;
    }
    lanes += StrFormat(
        "Lane %u\n"
        "     v0: 0X0000%02X00    v1: 0X0000%02X01    v2: 0X0000%02X02    v3: 0X0000%02X03\n",
        lane, lane, lane, lane, lane);
  }
  EXPECT_EQ(Recorded(),
            std::string(kWholeHead) + kWholeFields +
                "     s0: 0X00000500    s1: 0X00000501    s2: 0X00000502    s3: 0X00000503\n"
                "     s4: 0X00000504    s5: 0X00000505    s6: 0X00000506    s7: 0X00000507\n"
                "     s8: 0X00000508    s9: 0X00000509   s10: 0X0000050A   s11: 0X0000050B\n"
                "    s12: 0X0000050C   s13: 0X0000050D   s14: 0X0000050E   s15: 0X0000050F\n"
                "\n" +
                lanes +
                "\n"
                "\n");
}

TEST_F(WaveReportTest, BlocksAreAppended) {
  std::string info = "before\n";
  analyser_.GenWaveInfo(GFX_VERSION_OSPREY, false, &wave_, info);
  EXPECT_EQ(info, "before\n" + Saved());
  info = "before\n";
  analyser_.GenActiveWaveInfo(false, *record_, info);
  EXPECT_EQ(info, "before\n" + Recorded());
}

// ---------------------------------------------------------------------------------------------
// Bit fields

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
                         [](const auto& row) { return std::string(row.param.name); });

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

// ---------------------------------------------------------------------------------------------
// Location and code object

struct LocationRow {
  uint32_t hw_id;
  const char* location;
};

void PrintTo(const LocationRow& row, std::ostream* out) { *out << row.location; }

class LocationTest : public WaveReportTest, public testing::WithParamInterface<LocationRow> {};

TEST_P(LocationTest, OfBothKindsOfWave) {
  const std::string expected = std::string(GetParam().location) + "\n\nMain Registers:\n";
  wave_.regs.hw_id = record_->hw_id = GetParam().hw_id;
  EXPECT_EQ(Between(Saved(), "Not fount code object!!\n", "        PC: "), expected);
  EXPECT_EQ(Between(Recorded(), "Not fount code object!!\n", "        PC: "), expected);
}

constexpr LocationRow kLocationRows[] = {
    {0x00000000, "se0.sh0.cu0.simd0.wave0"}, {0x0000000F, "se0.sh0.cu0.simd0.wave15"},
    {0x00000030, "se0.sh0.cu0.simd3.wave0"}, {0x00000F00, "se0.sh0.cu15.simd0.wave0"},
    {0x00001000, "se0.sh1.cu0.simd0.wave0"}, {0x00006000, "se3.sh0.cu0.simd0.wave0"},
    {0xFFFF80C0, "se0.sh0.cu0.simd0.wave0"}, {0xFFFFFFFF, "se3.sh1.cu15.simd3.wave15"},
    {0x00002523, "se1.sh0.cu5.simd2.wave3"},
};

INSTANTIATE_TEST_SUITE_P(HwIds, LocationTest, testing::ValuesIn(kLocationRows));

struct PcRow {
  const char* name;
  uint64_t pc;
  const char* lines;  // between the separator and the location
};

void PrintTo(const PcRow& row, std::ostream* out) { *out << row.name; }

class PcTest : public WaveReportTest, public testing::WithParamInterface<PcRow> {
 protected:
  static std::string CodeObjectLines(const std::string& report) {
    return Between(report, "--------------------------------------------------------------\n",
                   "se0.sh0.");
  }
};

TEST_P(PcTest, OfASavedWave) {
  wave_.regs.pc = GetParam().pc;
  EXPECT_EQ(CodeObjectLines(Saved()), GetParam().lines);
}

TEST_P(PcTest, OfARecordedWave) {
  record_->pc_lo = static_cast<uint32_t>(GetParam().pc);
  record_->pc_hi = static_cast<uint32_t>(GetParam().pc >> 32);
  EXPECT_EQ(CodeObjectLines(Recorded()), GetParam().lines);
}

constexpr PcRow kPcRows[] = {
    {"FirstByte", 0x7F0000001000, "Code Object: code_object_3\nPC offset: 0X0\n"},
    {"LastByte", 0x7F0000001FFF, "Code Object: code_object_3\nPC offset: 0XFFF\n"},
    {"BehindTheEnd", 0x7F0000002000, "Code Object: \nNot fount code object!!\n"},
    {"BeforeTheStart", 0x7F0000000FFF, "Code Object: \nNot fount code object!!\n"},
    {"Zero", 0, "Code Object: \nNot fount code object!!\n"},
};

INSTANTIATE_TEST_SUITE_P(Places, PcTest, testing::ValuesIn(kPcRows),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_F(WaveReportTest, TheLongestCodeObjectName) {
  memset(analyser_.code_object_lists[0]->name, 'n', 1023);
  wave_.regs.pc = 0x7F0000001ABC;
  EXPECT_EQ(Between(Saved(), "Code Object: ", "se0.sh0."),
            std::string(1023, 'n') + "\nPC offset: 0XABC\n");
}

// ---------------------------------------------------------------------------------------------
// SGPRs

// Between the title and the first lane: the rows and an empty line.
std::string SgprLines(const std::string& report) {
  return Between(report, "General Registers:\n\n", "Lane 0\n");
}

class SgprCountTest : public WaveReportTest, public testing::WithParamInterface<uint32_t> {};

TEST_P(SgprCountTest, OnlyWholeRowsAreShown) {
  std::vector<uint32_t> sgprs(GetParam());
  for (uint32_t k = 0; k < GetParam(); ++k) {
    sgprs[k] = 0xF0000000 + k;
  }
  wave_.num_sgprs = GetParam();
  wave_.sgprs = sgprs.data();
  EXPECT_EQ(SgprLines(Saved()),
            Rows('s', 0, GetParam(), [](uint32_t k) { return 0xF0000000 + k; }) + "\n");
}

INSTANTIATE_TEST_SUITE_P(Counts, SgprCountTest, testing::Values(0, 1, 3, 4, 7, 8, 16, 112));

TEST_F(WaveReportTest, FewerThanFourSgprsAreOneEmptyLine) {
  const uint32_t sgprs[3] = {1, 2, 3};
  wave_.num_sgprs = 3;
  wave_.sgprs = sgprs;
  EXPECT_EQ(SgprLines(Saved()), "\n");
}

TEST_F(WaveReportTest, NamesOfThreeDigitsKeepTheColumns) {
  const std::vector<uint32_t> sgprs(104, 0xABCDEF01);
  wave_.num_sgprs = 104;
  wave_.sgprs = sgprs.data();
  EXPECT_NE(
      Saved().find("\n"
                   "    s96: 0XABCDEF01   s97: 0XABCDEF01   s98: 0XABCDEF01   s99: 0XABCDEF01\n"
                   "   s100: 0XABCDEF01  s101: 0XABCDEF01  s102: 0XABCDEF01  s103: 0XABCDEF01\n"
                   "\n"
                   "Lane 0\n"),
      std::string::npos);
}

struct SgprSizeRow {
  uint32_t gpr_alloc;
  uint32_t sgprs;
};

void PrintTo(const SgprSizeRow& row, std::ostream* out) { *out << row.sgprs; }

class RecordedSgprTest : public WaveReportTest, public testing::WithParamInterface<SgprSizeRow> {};

TEST_P(RecordedSgprTest, TheCountComesFromGprAlloc) {
  for (uint32_t k = 0; k < 1024; ++k) {
    record_->sgprs[k] = 0x5000 + k;
  }
  record_->gpr_alloc = GetParam().gpr_alloc;
  EXPECT_EQ(SgprLines(Recorded()),
            Rows('s', 0, GetParam().sgprs, [](uint32_t k) { return 0x5000 + k; }) + "\n");
}

constexpr SgprSizeRow kSgprSizeRows[] = {
    {0x00000000, 16}, {0x01000000, 32}, {0x06000000, 112}, {0x0F000000, 256}, {0xF0FFFFFF, 16},
};

INSTANTIATE_TEST_SUITE_P(Sizes, RecordedSgprTest, testing::ValuesIn(kSgprSizeRows));

// ---------------------------------------------------------------------------------------------
// VGPRs

// From the first lane on.
std::string FromFirstLane(const std::string& report) {
  return "Lane 0\n" + After(report, "Lane 0\n");
}

class VgprCountTest : public WaveReportTest, public testing::WithParamInterface<uint32_t> {};

TEST_P(VgprCountTest, SavedRegistersAreReadRegisterByRegister) {
  std::vector<uint32_t> vgprs(64 * GetParam() + 1);
  for (uint32_t i = 0; i < vgprs.size(); ++i) {
    vgprs[i] = 0xA0000000 + i;
  }
  wave_.num_vgprs = GetParam();
  wave_.vgprs = vgprs.data();
  std::string lanes;
  for (uint32_t lane = 0; lane < 64; ++lane) {
    lanes += StrFormat("Lane %u\n", lane);
    lanes += Rows('v', 0, GetParam(), [&](uint32_t k) { return 0xA0000000 + 64 * k + lane; });
  }
  EXPECT_TRUE(SameText(FromFirstLane(Saved()), lanes + "\n\n"));
}

INSTANTIATE_TEST_SUITE_P(Counts, VgprCountTest, testing::Values(0, 1, 3, 4, 6, 8, 100, 256, 512));

TEST_F(WaveReportTest, FewerThanFourVgprsAreLaneTitlesAlone) {
  const std::vector<uint32_t> vgprs(6, 7);
  wave_.num_vgprs = 3;
  wave_.num_vgpr_lanes = 2;
  wave_.vgprs = vgprs.data();
  EXPECT_EQ(FromFirstLane(Saved()), "Lane 0\nLane 1\n\n\n");
  EXPECT_EQ(FromFirstLane(Saved(GFX_VERSION_HERON, true)), "Lane 0\nLane 1\n\n\n");
}

// Two lanes of four VGPRs, the second bank 32 bytes behind the first.
class SecondVgprBankTest : public WaveReportTest {
 protected:
  SecondVgprBankTest() {
    wave_.num_vgprs = 4;
    wave_.num_vgpr_lanes = 2;
    wave_.vgprs = words_.data();
    analyser_.dp4x_vgpr_offset = 32;
  }

  const std::vector<uint32_t> words_ = {0x0A, 0x1A, 0x0B, 0x1B, 0x0C, 0x1C, 0x0D, 0x1D,
                                        0x2A, 0x3A, 0x2B, 0x3B, 0x2C, 0x3C, 0x2D, 0x3D};
};

constexpr char kBothBanks[] =
    "Lane 0\n"
    "     v0: 0X0000000A    v1: 0X0000000B    v2: 0X0000000C    v3: 0X0000000D\n"
    "     v4: 0X0000002A    v5: 0X0000002B    v6: 0X0000002C    v7: 0X0000002D\n"
    "Lane 1\n"
    "     v0: 0X0000001A    v1: 0X0000001B    v2: 0X0000001C    v3: 0X0000001D\n"
    "     v4: 0X0000003A    v5: 0X0000003B    v6: 0X0000003C    v7: 0X0000003D\n"
    "\n"
    "\n";

constexpr char kFirstBank[] =
    "Lane 0\n"
    "     v0: 0X0000000A    v1: 0X0000000B    v2: 0X0000000C    v3: 0X0000000D\n"
    "Lane 1\n"
    "     v0: 0X0000001A    v1: 0X0000001B    v2: 0X0000001C    v3: 0X0000001D\n"
    "\n"
    "\n";

TEST_F(SecondVgprBankTest, HeronAgentsWithDp4xHaveIt) {
  EXPECT_EQ(FromFirstLane(Saved(GFX_VERSION_HERON, true)), kBothBanks);
}

TEST_F(SecondVgprBankTest, TheLowBitsOfTheOffsetAreCleared) {
  analyser_.dp4x_vgpr_offset = 32 + 3;
  EXPECT_EQ(FromFirstLane(Saved(GFX_VERSION_HERON, true)), kBothBanks);
}

TEST_F(SecondVgprBankTest, OtherAgentsDoNotHaveIt) {
  EXPECT_EQ(FromFirstLane(Saved(GFX_VERSION_HERON, false)), kFirstBank);
  for (const uint32_t gfxv : {0u, 0x90006u, 0x90206u, 0x90208u, 0x90306u, 0x90308u}) {
    EXPECT_EQ(FromFirstLane(Saved(gfxv, true)), kFirstBank) << gfxv;
  }
}

TEST_F(SecondVgprBankTest, ItsRegistersAreNumberedFromTheCount) {
  wave_.num_vgprs = 6;
  EXPECT_EQ(FromFirstLane(Saved(GFX_VERSION_HERON, true)),
            "Lane 0\n"
            "     v0: 0X0000000A    v1: 0X0000000B    v2: 0X0000000C    v3: 0X0000000D\n"
            "     v6: 0X0000002A    v7: 0X0000002B    v8: 0X0000002C    v9: 0X0000002D\n"
            "Lane 1\n"
            "     v0: 0X0000001A    v1: 0X0000001B    v2: 0X0000001C    v3: 0X0000001D\n"
            "     v6: 0X0000003A    v7: 0X0000003B    v8: 0X0000003C    v9: 0X0000003D\n"
            "\n"
            "\n");
}

TEST_F(SecondVgprBankTest, OfSixtyFourLanes) {
  std::vector<uint32_t> words(32768);
  for (uint32_t i = 0; i < words.size(); ++i) {
    words[i] = i;
  }
  wave_.num_vgprs = 256;
  wave_.num_vgpr_lanes = 64;
  wave_.vgprs = words.data();
  analyser_.dp4x_vgpr_offset = 65536;
  std::string lanes;
  for (uint32_t lane = 0; lane < 64; ++lane) {
    lanes += StrFormat("Lane %u\n", lane);
    lanes += Rows('v', 0, 256, [&](uint32_t k) { return 64 * k + lane; });
    lanes += Rows('v', 256, 256, [&](uint32_t k) { return 0x4000 + 64 * k + lane; });
  }
  EXPECT_TRUE(SameText(FromFirstLane(Saved(GFX_VERSION_HERON, true)), lanes + "\n\n"));
}

struct VgprSizeRow {
  uint32_t gpr_alloc;
  bool is_dp4x;
  uint32_t vgprs;
};

void PrintTo(const VgprSizeRow& row, std::ostream* out) {
  *out << row.vgprs << (row.is_dp4x ? " with dp4x" : "");
}

class RecordedVgprTest : public WaveReportTest, public testing::WithParamInterface<VgprSizeRow> {};

// The record goes on behind the VGPRs with the SGPRs, which the last lanes of the largest counts
// come to.
TEST_P(RecordedVgprTest, AreReadLaneByLaneWithoutACap) {
  for (uint32_t i = 0; i < 16384; ++i) {
    record_->vgprs[i] = i;
  }
  for (uint32_t i = 0; i < 1024; ++i) {
    record_->sgprs[i] = 0x55550000 + i;
  }
  record_->gpr_alloc = GetParam().gpr_alloc;
  std::string lanes;
  for (uint32_t lane = 0; lane < 64; ++lane) {
    lanes += StrFormat("Lane %u\n", lane);
    lanes += Rows('v', 0, GetParam().vgprs, [&](uint32_t k) {
      const uint32_t index = 256 * lane + k;
      return index < 16384 ? index : 0x55550000 + index - 16384;
    });
  }
  EXPECT_TRUE(SameText(FromFirstLane(Recorded(GetParam().is_dp4x)), lanes + "\n\n"));
}

constexpr VgprSizeRow kVgprSizeRows[] = {
    {0x00000000, false, 4},  {0x00000000, true, 8},    {0x00000500, false, 24},
    {0x00000500, true, 48},  {0x00003F00, false, 256}, {0x00001F00, true, 256},
    {0x00002000, true, 264}, {0x00003F00, true, 512},  {0xFFFFC0FF, false, 4},
};

INSTANTIATE_TEST_SUITE_P(Sizes, RecordedVgprTest, testing::ValuesIn(kVgprSizeRows));

// ---------------------------------------------------------------------------------------------
// LDS

// From the line behind the last lane on.
std::string FromLds(const std::string& report) { return After(report, "Lane 63\n\n"); }

struct LdsRow {
  uint32_t dwords;
  const char* lines;
};

void PrintTo(const LdsRow& row, std::ostream* out) { *out << row.dwords; }

class LdsTest : public WaveReportTest, public testing::WithParamInterface<LdsRow> {};

TEST_P(LdsTest, OnlyWholeRowsAreShown) {
  const std::vector<uint32_t> lds = {0xFFFFFFFF, 2, 3, 4, 5, 6, 7, 8, 9};
  wave_.lds = lds.data();
  wave_.lds_size_dw = GetParam().dwords;
  EXPECT_EQ(FromLds(Saved()), GetParam().lines);
}

constexpr LdsRow kLdsRows[] = {
    {0, "LDS:\n\n\n\n"},
    {3, "LDS:\n\n\n\n"},
    {4, "LDS:\n\n0X0000: 0XFFFFFFFF: 0X00000002: 0X00000003: 0X00000004:\n\n\n"},
    {9,
     "LDS:\n\n"
     "0X0000: 0XFFFFFFFF: 0X00000002: 0X00000003: 0X00000004:\n"
     "0X0010: 0X00000005: 0X00000006: 0X00000007: 0X00000008:\n"
     "\n\n"},
};

INSTANTIATE_TEST_SUITE_P(Sizes, LdsTest, testing::ValuesIn(kLdsRows));

TEST_F(WaveReportTest, AWaveWithoutLdsHasNoSection) {
  wave_.lds_size_dw = 128;
  wave_.lds = nullptr;
  EXPECT_EQ(FromLds(Saved()), "\n");
}

TEST_F(WaveReportTest, LdsOffsetsGrowToFiveDigits) {
  std::vector<uint32_t> lds(65408);
  for (uint32_t i = 0; i < lds.size(); ++i) {
    lds[i] = i;
  }
  wave_.lds_size_dw = 65408;
  wave_.lds = lds.data();
  const std::string report = FromLds(Saved());
  EXPECT_NE(report.find("0XFFF0: 0X00003FFC: 0X00003FFD: 0X00003FFE: 0X00003FFF:\n"
                        "0X10000: 0X00004000: 0X00004001: 0X00004002: 0X00004003:\n"),
            std::string::npos);
  EXPECT_EQ(After(report, "0X3FDE0: 0X0000FF78: 0X0000FF79: 0X0000FF7A: 0X0000FF7B:\n"),
            "0X3FDF0: 0X0000FF7C: 0X0000FF7D: 0X0000FF7E: 0X0000FF7F:\n"
            "\n"
            "\n");
}

// ---------------------------------------------------------------------------------------------

TEST_F(WaveReportTest, SavedRegistersMayLieAtAnyAddress) {
  const std::vector<uint32_t> words = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
  wave_.num_sgprs = wave_.num_vgprs = wave_.lds_size_dw = 4;
  wave_.num_vgpr_lanes = 1;
  wave_.sgprs = words.data();
  wave_.vgprs = words.data() + 4;
  wave_.lds = words.data() + 8;
  const std::string aligned = Saved();
  std::vector<char> bytes(1 + words.size() * 4);
  memcpy(bytes.data() + 1, words.data(), words.size() * 4);
  wave_.sgprs = reinterpret_cast<const uint32_t*>(bytes.data() + 1);
  wave_.vgprs = reinterpret_cast<const uint32_t*>(bytes.data() + 17);
  wave_.lds = reinterpret_cast<const uint32_t*>(bytes.data() + 33);
  EXPECT_EQ(Saved(), aligned);
  EXPECT_EQ(After(aligned, "General Registers:\n\n"),
            "     s0: 0X00000001    s1: 0X00000002    s2: 0X00000003    s3: 0X00000004\n"
            "\n"
            "Lane 0\n"
            "     v0: 0X00000005    v1: 0X00000006    v2: 0X00000007    v3: 0X00000008\n"
            "\n"
            "LDS:\n"
            "\n"
            "0X0000: 0X00000009: 0X0000000A: 0X0000000B: 0X0000000C:\n"
            "\n"
            "\n");
}

// Rows are made from kept templates; what a wave shows must not depend on the wave before it.
TEST_F(WaveReportTest, AWaveIsShownTheSameWhateverCameBefore) {
  const std::vector<uint32_t> words(16384, 0x11111111);
  wave_.sgprs = wave_.vgprs = wave_.lds = words.data();
  wave_.num_sgprs = 4;
  wave_.num_vgprs = 4;
  wave_.lds_size_dw = 4;
  const std::string small = Saved();
  wave_.num_sgprs = 112;
  wave_.num_vgprs = 256;
  wave_.lds_size_dw = 16384;
  Saved();
  record_->gpr_alloc = 0x01000100;
  const std::string recorded = Recorded();
  wave_.num_sgprs = 4;
  wave_.num_vgprs = 4;
  wave_.lds_size_dw = 4;
  EXPECT_EQ(Saved(), small);
  EXPECT_EQ(Recorded(), recorded);
}

}  // namespace
