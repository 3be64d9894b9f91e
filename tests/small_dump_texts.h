// The texts of the reports of the small dump, by hand from the format of the reports.
#pragma once

#include <string>

#include "aql_slots.h"
#include "occupancy_text.h"

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

// Waves of queue 7 at SE 1, CU 1.
inline std::string SecondWaveOnly() {
  return occupancy::Text(
      occupancy::kFreeCells, " - - - - | - 1 - - |",
      "     1               1               1                   1               0.039 %");
}

inline std::string BothWaves() {
  return occupancy::Text(
      occupancy::kFreeCells, " - - - - | 1 1 - - |",
      "     1               1               2                   2               0.078 %");
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
inline std::string RetiredSlotWithoutHeader() {
  return std::string("\npacket index: 2\n") + kNotRetired;
}

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
