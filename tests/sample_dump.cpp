#include "sample_dump.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <set>
#include <string>
#include <vector>

#include "raw_bytes.h"
#include "run_process.h"
#include "temp_dir.h"

SampleDump::SampleDump(std::vector<std::string> options) {
  options.insert(options.end(), {"--output", dir_.Path()});
  const ProcessResult result = RunProcess(TALVEX_SAMPLE_BINARY, options);
  EXPECT_EQ(result.status, 0) << result.err;
  core_ = ReadText(dir_.Path("core_0"));
  // The fields of the older header lie 8 bytes earlier.
  first_field_ = core_.substr(0, 4) == "OXCD" ? 16 : 8;
}

std::vector<DumpedWave> SampleDump::Waves(uint64_t index, uint32_t vgpr_granule) const {
  std::vector<DumpedWave> waves;
  const std::vector<uint32_t> stack = ControlStack(index);
  size_t block = area(index) + U32At(core_, area(index) + 8);
  uint32_t vgprs = 0;
  uint32_t sgprs = 0;
  uint32_t lds = 0;
  for (size_t i = 2; i < stack.size(); ++i) {
    const uint32_t word = stack[i];
    if (word >> 30 == 2) {
      vgprs = ((word & 0x3F) + 1) * vgpr_granule;
      sgprs = (word >> 6 & 7) * 16;
      lds = (word >> 9 & 0x1FF) * 128;
    } else if (word >> 30 == 0) {
      const bool first = (word & 0x20000) != 0;
      block -= 4 * (vgprs * 64 + sgprs + 48 + (first ? lds : 0));
      const size_t scalars = block + 4 * 64 * vgprs;
      const size_t regs = scalars + 4 * sgprs;
      const size_t ttmps = regs + 64;
      DumpedWave wave;
      wave.block = block;
      wave.vgprs = vgprs;
      wave.pc = U64At(core_, regs + 4);
      wave.exec = U64At(core_, regs + 12);
      wave.status = U32At(core_, regs + 20);
      wave.trapsts = U32At(core_, regs + 24);
      wave.hw_id = U32At(core_, regs + 40);
      wave.trap_pc =
          uint64_t{U32At(core_, ttmps + 44) >> 7 & 0xFFFF} << 32 | U32At(core_, ttmps + 28);
      wave.kernarg = U64At(core_, scalars + 16);
      waves.push_back(wave);
    }
  }
  const size_t bottom =
      area(index) + U32At(core_, area(index) + 8) - U32At(core_, area(index) + 12);
  EXPECT_EQ(block, bottom);
  return waves;
}

std::string FixedText(const std::string& bytes, size_t offset) {
  return bytes.substr(offset, bytes.find('\0', offset) - offset);
}

std::set<uint64_t> Instructions(const std::string& kernel, const std::string& mnemonic_part) {
  std::set<uint64_t> addresses;
  std::ifstream list(std::string(TALVEX_KERNELS_DIR) + "/" + kernel + ".pcs");
  uint64_t address;
  std::string mnemonic;
  while (list >> std::hex >> address >> mnemonic) {
    if (mnemonic.find(mnemonic_part) != std::string::npos) {
      addresses.insert(address);
    }
  }
  EXPECT_FALSE(addresses.empty()) << kernel;
  return addresses;
}

bool IsInstruction(const SampleDump& dump, uint64_t pc) {
  for (uint64_t i = 0; i < std::size(kBundled); ++i) {
    const uint64_t base = U64At(dump.core(), dump.code_object(i));
    const uint64_t size = U64At(dump.core(), dump.code_object(i) + 8);
    if (pc >= base && pc < base + size) {
      return Instructions(kBundled[i]).count(pc - base) == 1;
    }
  }
  return false;
}
