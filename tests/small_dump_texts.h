// The texts of the reports of the small dump, by hand from the format of the reports.
#pragma once

#include <string>

namespace small_dump {

inline constexpr char kFaultInfo[] =
    "Memory access fault in GPU agent: gfx-906-a\n"
    "GPU Node: 1\n"
    "Address: 0X7F0000001xxx (page not present;)\n"
    "\n";

inline std::string AgentText(const std::string& number, const std::string& name) {
  return "Gpu id: " + number + "00\nNode id: " + number +
         "\n"
         "Chip id: 0XFFFF\n"
         "Drm id: 0X80\n"
         "Agent name: " +
         name +
         "\n"
         "pci_busid: 0000:3B:00.0\n"
         "Is dp4x: 0\n"
         "Num SEs: 4\n"
         "Num CUs: 60\n"
         "Num simds per cu: 4\n"
         "Waves per cu: 40\n"
         "Max engine freq: 1700\n"
         "Max memory freq: 1000\n"
         "\n";
}

inline constexpr char kFreeCells[] = " - - - - | - - - - |";  // of two CUs

// The occupancy table whose SE 0 and SE 1 have these cells in CU 0 and 1, all others being empty.
inline std::string OccupancyText(const std::string& se0, const std::string& se1,
                                 const std::string& summary) {
  const std::string rule = std::string(85, '-') + "\n";
  const std::string double_rule = std::string(85, '=') + "\n";
  const std::string six_free = std::string(kFreeCells) + kFreeCells + kFreeCells + "\n";
  const std::string free_row = kFreeCells + six_free;
  std::string text = rule;
  text += "SIMD| 0 1 2 3 | 0 1 2 3 | 0 1 2 3 | 0 1 2 3 ";
  text += "| 0 1 2 3 | 0 1 2 3 | 0 1 2 3 | 0 1 2 3 | \n";
  text += rule;
  text += "CU  |    0    |    1    |    2    |    3    ";
  text += "|    4    |    5    |    6    |    7    |\n";
  text += "S0H0|" + se0 + six_free + "S1H0|" + se1 + six_free;
  text += "S2H0|" + free_row + "S3H0|" + free_row;
  text += rule;
  text += "CU  |    8    |    9    |   10    |   11    ";
  text += "|   12    |   13    |   14    |   15    |\n";
  text += "S0H0|" + free_row + "S1H0|" + free_row + "S2H0|" + free_row + "S3H0|" + free_row;
  text += double_rule;
  text +=
      "Used SEs(4)     Used CUs(64)    Used SIMDs(256)     Active Waves      Waves Occupancy   \n";
  text += summary + "\n";
  return text + double_rule;
}

inline std::string NoWaves() {
  return OccupancyText(
      kFreeCells, kFreeCells,
      "     0               0               0                   0               0.000 %");
}

// Waves of queue 7 at SE 1, CU 1.
inline std::string SecondWaveOnly() {
  return OccupancyText(
      kFreeCells, " - - - - | - 1 - - |",
      "     1               1               1                   1               0.039 %");
}

inline std::string BothWaves() {
  return OccupancyText(
      kFreeCells, " - - - - | 1 1 - - |",
      "     1               1               2                   2               0.078 %");
}

// The wave of queue 9 at SE 0, CU 0.
inline std::string OneWave() {
  return OccupancyText(
      " 1 - - - | - - - - |", kFreeCells,
      "     1               1               1                   1               0.039 %");
}

struct QueueTexts {
  std::string id;
  std::string gpu_id;
  std::string type;
  std::string format;
  std::string ring_size;
  std::string context;  // its last lines
};

inline std::string QueueText(const QueueTexts& texts) {
  return "Queue id: 0X" + texts.id + "\nGpu id: " + texts.gpu_id + "\nQueue type: " + texts.type +
         "\nQueue format: " + texts.format +
         "\nQueue eop address: 0X0\n"
         "Queue eop size: 0X0\n"
         "Queue mqd address: 0X0\n"
         "Queue doorbell offset: 0X0\n"
         "Queue ring info: \n"
         "\tring address: 0X0\n"
         "\tring size: 0X" +
         texts.ring_size +
         "\n"
         "\twptr address: 0X0\n"
         "\trptr address: 0X0\n"
         "\twptr value: 0\n"
         "\trptr value: 0\n" +
         texts.context;
}

// 16 bytes of header, 5 words of control stack, 1792 and 1280 bytes of waves: 3108.
inline constexpr char kFirstContext[] =
    "Queue context info: \n"
    "\tcontext save restore base: 0X0\n"
    "\tcontext save restore total size: 0XC24\n"
    "\tcontext stack size: 0X0\n";

// 16 bytes of header, 3 words of control stack, 192 bytes of wave: 220.
inline constexpr char kSecondContext[] =
    "Queue context info: \n"
    "\tcontext save restore base: 0X0\n"
    "\tcontext save restore total size: 0XDC\n"
    "\tcontext stack size: 0X0\n";

inline constexpr char kDispatchSlot[] =
    "\npacket index: 0\n"
    "header format: KERNEL_DISPATCH\n"
    "header barrier: 1\n"
    "header acquire_fence_scope: SCOPE_SYSTEM\n"
    "header release_fence_scope: SCOPE_SYSTEM\n"
    "dimensions: 1\n"
    "workgroup_size_x: 64\n"
    "workgroup_size_y: 1\n"
    "workgroup_size_z: 1\n"
    "grid_size_x: 256\n"
    "grid_size_y: 1\n"
    "grid_size_z: 1\n"
    "private_segment_size_bytes: 0\n"
    "group_segment_size_bytes : 512\n"
    "kernel_object: 0X7000100\n"
    "kernarg_address: 0X200000\n"
    "completion_signal: 0X300000\n"
    "kernel_name: copy\n"
    "object_name: code_object_0\n";

inline std::string BarrierSlot(const std::string& index, const std::string& type,
                               const std::string& first_signal) {
  return "\npacket index: " + index + "\nheader format: " + type +
         "\nheader barrier: 0\n"
         "header acquire_fence_scope: SCOPE_NONE\n"
         "header release_fence_scope: SCOPE_NONE\n"
         "dep_signal[0]: " +
         first_signal +
         "\n"
         "dep_signal[1]: 0X0\n"
         "dep_signal[2]: 0X0\n"
         "dep_signal[3]: 0X0\n"
         "dep_signal[4]: 0X0\n"
         "completion_signal: 0X0\n";
}

// The third slot of queue 7 when the word that holds its header is gone.
inline constexpr char kRetiredSlotWithoutHeader[] =
    "\npacket index: 2\n"
    "header format: INVALID\n"
    "header barrier: 0\n"
    "header acquire_fence_scope: SCOPE_NONE\n"
    "header release_fence_scope: SCOPE_NONE\n"
    "0X0001 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 \n"
    "0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 \n"
    "0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 \n"
    "0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 0X0000 \n";

inline constexpr char kTrap[] =
    "packet sub index: 0\n"
    "op: TRAP (6)\n"
    "subop: 0\n"
    "int_ctx: 5\n"
    "\n";

inline constexpr char kTimestamp[] =
    "packet sub index: 1\n"
    "op: TIMESTAMP (13)\n"
    "subop: 0\n"
    "addr_lo: 0X1000\n"
    "addr_hi: 0X7F\n"
    "\n";

}  // namespace small_dump
