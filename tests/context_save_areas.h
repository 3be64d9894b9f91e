// Context save areas, and where the waves that were read from them lie.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "core_dump_info.h"
#include "core_dump_info/context_save_area.h"
#include "core_file_writer.h"

Bytes AsBytes(const std::string& area);

// What is read from an area of exactly these bytes.
ContextSaveArea ReadArea(const std::string& area, uint32_t vgpr_granule = 4);

// Where `pointer` lies in `area`; -1 for null.
int64_t OffsetIn(const std::string& area, const uint32_t* pointer);

// An area without waves: the header as given, then zeros.
std::string HeaderOnly(uint32_t ctrl_stack_offset, uint32_t ctrl_stack_size,
                       uint32_t wave_state_offset, uint32_t wave_state_size);

// A group of `waves` waves, the first of which is the first in the group.
sample::AreaGroup Group(uint32_t vgprs, uint32_t sgprs, uint32_t lds_dwords, size_t waves);

std::string AreaOf(std::vector<sample::AreaGroup> groups);

// Control stack at 16: preamble, state record (4 VGPRs, 16 SGPRs, 128 dwords of LDS), two waves, 20
// bytes. First block 256 + 16 + 16 + 16 + 128 + 16 = 448 dwords, second one 320. The area ends at
// 36 + 1280 + 1792.
const std::string& TwoWavesWithLds();

// One wave of 8 VGPRs, 16 SGPRs and 128 dwords of LDS, every register at a value of its own.
std::string AreaOfDistinctWave();
void ExpectDistinctRegisters(const WaveStateInfo& wave);

// TwoWavesWithLds() with one word more of control stack and one word less of waves than the two
// take.
std::string AreaWithTooFewWaveBytes();
