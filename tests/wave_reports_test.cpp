// The report of a wave: whole, where the wave ran, its code object, its LDS.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <ostream>
#include <string>
#include <vector>

#include "core_dump_info.h"
#include "row_name.h"
#include "utils.h"
#include "wave_report_fixture.h"

namespace {

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

INSTANTIATE_TEST_SUITE_P(Places, PcTest, testing::ValuesIn(kPcRows), RowName<PcRow>);

TEST_F(WaveReportTest, TheLongestCodeObjectName) {
  memset(analyser_.code_object_lists[0]->name, 'n', 1023);
  wave_.regs.pc = 0x7F0000001ABC;
  EXPECT_EQ(Between(Saved(), "Code Object: ", "se0.sh0."),
            std::string(1023, 'n') + "\nPC offset: 0XABC\n");
}

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

}  // namespace
