#include "agent_waves_fixture.h"

#include <cstdint>
#include <string>
#include <vector>

#include "core_file_writer.h"
#include "utils.h"

namespace {

constexpr uint32_t Low(uint64_t value) { return static_cast<uint32_t>(value); }
constexpr uint32_t High(uint64_t value) { return static_cast<uint32_t>(value >> 32); }

sample::AreaWave AreaWaveOf(const AgentWave& wave) {
  sample::AreaWave area_wave;
  area_wave.hwregs[1] = Low(wave.pc);
  area_wave.hwregs[2] = High(wave.pc);
  area_wave.hwregs[6] = wave.trapsts;
  area_wave.ttmps[7] = Low(wave.trap_pc);
  area_wave.ttmps[11] = High(wave.trap_pc) << 7;
  return area_wave;
}

// From the location to the general registers of a wave whose registers are all 0 but these.
// `wider_registers` are the lines between EXEC and M0, `hw_id` those between STATUS and IB_STS.
std::string RegisterLines(uint64_t pc, uint32_t trapsts, const std::string& wider_registers,
                          const std::string& hw_id) {
  return StrFormat(
             "se0.sh0.cu0.simd0.wave0\n"
             "\n"
             "Main Registers:\n"
             "        PC: 0X%016lX\n"
             "      EXEC: 0X0000000000000000\n",
             pc) +
         wider_registers +
         StrFormat(
             "        M0: 0X00000000\n"
             "      MODE: 0X00000000\n"
             "   TRAPSTS: 0X%08X\n",
             trapsts) +
         "    STATUS: 0X00000000\n"
         "               SCC: 0      SPI_PRIO: 0     USER_PRIO: 0          PRIV: 0\n"
         "           TRAP_EN: 0     TTRACE_EN: 0         EXECZ: 0          VCCZ: 0\n"
         "             IN_TG: 0    IN_BARRIER: 0          HALT: 0          TRAP: 0\n"
         "      TTRACE_CU_EN: 0         VALID: 0       ECC_ERR: 0    FATAL_HALT: 0\n"
         "\n" +
         hw_id +
         "    IB_STS: 0X00000000\n"
         "            VM_CNT: 0       EXP_CNT: 0      LGKM_CNT: 0      VALU_CNT: 0\n"
         "\n"
         " GPR_ALLOC: 0X00000000\n"
         "         VGPR_BASE: 0     VGPR_SIZE: 0     SGPR_BASE: 0     SGPR_SIZE: 0\n"
         "\n"
         " LDS_ALLOC: 0X00000000\n"
         "          LDS_BASE: 0      LDS_SIZE: 0\n"
         "\n"
         "\n"
         "General Registers:\n"
         "\n";
}

// The window that the stand-in tool shows: the options' values and the code object.
std::string Window(const std::string& start, const std::string& stop,
                   const std::string& code_object, const std::string& offset) {
  return "Code Object:\n--start-address=" + start + " --stop-address=" + stop + " " + code_object +
         "\n\nPC offset: " + offset + "\n\n";
}

}  // namespace

std::string AreaOf(const std::vector<AgentWave>& waves) {
  sample::AreaGroup group;
  group.state_record = false;
  for (const AgentWave& wave : waves) {
    group.waves.push_back(AreaWaveOf(wave));
  }
  sample::ContextArea area;
  area.groups = {group};
  return sample::ContextAreaBytes(area);
}

std::string SavedWaveText(const std::string& code_object, uint64_t pc, uint32_t trapsts) {
  std::string text =
      "--------------------------------------------------------------\n"
      "Code Object: " +
      code_object +
      RegisterLines(pc, trapsts,
                    "XNACK_MASK: 0X0000000000000000\n"
                    "       TBA: 0X0000000000000000\n"
                    "       TMA: 0X0000000000000000\n",
                    "") +
      "\n";
  for (int lane = 0; lane < 64; ++lane) {
    text += StrFormat("Lane %d\n", lane);
  }
  return text + "\n\n";
}

std::string ActiveWaveText(const std::string& code_object, uint64_t pc, uint32_t trapsts,
                           int vgpr_rows) {
  std::string text =
      "--------------------------------------------------------------\n"
      "Code Object: " +
      code_object +
      RegisterLines(pc, trapsts, "",
                    "      HWID: 0X00000000\n"
                    "           WAVE ID: 0       SIMD ID: 0       PIPE ID: 0         CU ID: 0\n"
                    "             SH ID: 0         SE ID: 0         TG ID: 0         VM ID: 0\n"
                    "           RING ID: 0      STATE ID: 0         ME ID: 0\n"
                    "\n") +
      "     s0: 0X00000000    s1: 0X00000000    s2: 0X00000000    s3: 0X00000000\n"
      "     s4: 0X00000000    s5: 0X00000000    s6: 0X00000000    s7: 0X00000000\n"
      "     s8: 0X00000000    s9: 0X00000000   s10: 0X00000000   s11: 0X00000000\n"
      "    s12: 0X00000000   s13: 0X00000000   s14: 0X00000000   s15: 0X00000000\n"
      "\n";
  for (int lane = 0; lane < 64; ++lane) {
    text += StrFormat("Lane %d\n", lane);
    text += "     v0: 0X00000000    v1: 0X00000000    v2: 0X00000000    v3: 0X00000000\n";
    if (vgpr_rows == 2) {
      text += "     v4: 0X00000000    v5: 0X00000000    v6: 0X00000000    v7: 0X00000000\n";
    }
  }
  return text + "\n\n";
}

std::string RunningText() {
  return SavedWaveText("code_object_0\nPC offset: 0X234\n", 0x7F0000001234, 0x40000000);
}
std::string OutsideText() {
  return SavedWaveText("\nNot fount code object!!\n", 0x7F0000002000, 0);
}
std::string FaultingText() {
  return SavedWaveText("code_object_0\nPC offset: 0X100\n", 0x7F0000001100, 0x100);
}
std::string FaultingElsewhereText() {
  return SavedWaveText("code_object_1\nPC offset: 0X200\n", 0x7F0000003200, 0x800);
}
std::string FaultingOutsideText() {
  return SavedWaveText("\nNot fount code object!!\n", 0x7F0000002000, 0x900);
}
std::string FaultingWindow() { return Window("0XE0", "0X120", "code_object_0", "0X100"); }
std::string FaultingElsewhereWindow() { return Window("0X1E0", "0X220", "code_object_1", "0X200"); }
