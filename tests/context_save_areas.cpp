#include "context_save_areas.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "core_dump_info.h"
#include "core_file_writer.h"

namespace {

// Every register at a value of its own.
sample::AreaWave DistinctWave() {
  sample::AreaWave wave;
  wave.hwregs = {0x11000001,   // M0
                 0x22000002,   // PC_LO
                 0x80007F12,   // PC_HI
                 0x33000003,   // EXEC_LO
                 0x44000004,   // EXEC_HI
                 0x55000005,   // STATUS
                 0x66000006,   // TRAPSTS
                 0x77000007,   // XNACK_MASK_LO
                 0x88000008,   // XNACK_MASK_HI
                 0x99000009,   // MODE
                 0xAA00000A,   // HW_ID
                 0xBB00000B,   // GPR_ALLOC
                 0xCC00000C,   // LDS_ALLOC
                 0xDD00000D,   // IB_STS
                 0x12345678,   // TBA_LO
                 0xEE00007F};  // TBA_HI
  for (uint32_t i = 0; i < 16; ++i) {
    wave.ttmps[i] = 0xF0F00000 + i;
  }
  wave.ttmps[0] = 0x9ABCDEF0;  // TMA_LO
  wave.ttmps[1] = 0xDD00007F;  // TMA_HI
  wave.ttmps[7] = 0x89ABCDEF;
  wave.ttmps[11] = 0xFFC7897F;  // 0x8F12 in bits 22..7, ones around it
  return wave;
}

}  // namespace

Bytes AsBytes(const std::string& area) {
  return {reinterpret_cast<const unsigned char*>(area.data()), area.size()};
}

ContextSaveArea ReadArea(const std::string& area, uint32_t vgpr_granule) {
  return ReadContextSaveArea(AsBytes(area), vgpr_granule);
}

int64_t OffsetIn(const std::string& area, const uint32_t* pointer) {
  return pointer == nullptr ? -1 : reinterpret_cast<const char*>(pointer) - area.data();
}

std::string HeaderOnly(uint32_t ctrl_stack_offset, uint32_t ctrl_stack_size,
                       uint32_t wave_state_offset, uint32_t wave_state_size) {
  return sample::Dwords({ctrl_stack_offset, ctrl_stack_size, wave_state_offset, wave_state_size}) +
         std::string(64, '\0');
}

sample::AreaGroup Group(uint32_t vgprs, uint32_t sgprs, uint32_t lds_dwords, size_t waves) {
  sample::AreaGroup group;
  group.state = sample::StateRecord(vgprs, 4, sgprs, lds_dwords);
  group.vgpr_count = vgprs;
  group.sgpr_count = sgprs;
  group.lds_dwords = lds_dwords;
  group.waves.resize(waves);
  group.waves[0].first_in_group = true;
  return group;
}

std::string AreaOf(std::vector<sample::AreaGroup> groups) {
  sample::ContextArea area;
  area.groups = std::move(groups);
  return sample::ContextAreaBytes(area);
}

const std::string& TwoWavesWithLds() {
  static const std::string area = AreaOf({Group(4, 16, 128, 2)});
  return area;
}

void ExpectDistinctRegisters(const WaveStateInfo& wave) {
  EXPECT_EQ(wave.regs.pc, 0x80007F1222000002u);
  EXPECT_EQ(wave.regs.trap_pc, 0x00008F1289ABCDEFu);
  EXPECT_EQ(wave.regs.exec, 0x4400000433000003u);
  EXPECT_EQ(wave.regs.xnack_mask, 0x8800000877000007u);
  EXPECT_EQ(wave.regs.tba, 0x00007F1234567800u);  // the topmost byte is shifted out
  EXPECT_EQ(wave.regs.tma, 0x00007F9ABCDEF000u);
  EXPECT_EQ(wave.regs.status, 0x55000005u);
  EXPECT_EQ(wave.regs.trapsts, 0x66000006u);
  EXPECT_EQ(wave.regs.m0, 0x11000001u);
  EXPECT_EQ(wave.regs.mode, 0x99000009u);
  EXPECT_EQ(wave.regs.hw_id, 0xAA00000Au);
  EXPECT_EQ(wave.regs.gpr_alloc, 0xBB00000Bu);
  EXPECT_EQ(wave.regs.lds_alloc, 0xCC00000Cu);
  EXPECT_EQ(wave.regs.ib_sts, 0xDD00000Du);
}

std::string AreaOfDistinctWave() {
  sample::AreaGroup group = Group(8, 16, 128, 1);
  group.waves[0] = DistinctWave();
  group.waves[0].first_in_group = true;
  return AreaOf({group});
}

std::string AreaWithTooFewWaveBytes() {
  std::string area = TwoWavesWithLds();
  sample::PutU32(area, 4, 20 + 4);
  sample::PutU32(area, 12, 3072 - 4);
  sample::PutU32(area, 36, 0x40000000);  // the word that the stack has gained: an event
  return area;
}
