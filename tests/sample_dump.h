// A dump that talvex-sample wrote, read by offsets written out by hand.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "raw_bytes.h"
#include "temp_dir.h"

struct TableRange {
  uint64_t offset;
  uint64_t count;
};

// One wave of a context save area.
struct DumpedWave {
  size_t block;  // offset in the file
  uint32_t vgprs;
  uint64_t pc;
  uint64_t trap_pc;
  uint64_t exec;
  uint32_t trapsts;
  uint32_t status;
  uint32_t hw_id;
  uint64_t kernarg;  // s[4:5]
};

// A dump that the program wrote, and the fields of its core file.
class SampleDump {
 public:
  explicit SampleDump(std::vector<std::string> options);

  const std::string& core() const { return core_; }
  std::string Path(const std::string& name) const { return dir_.Path(name); }

  uint64_t reason() const { return U64At(core_, first_field_); }
  uint64_t reason_size() const { return U64At(core_, first_field_ + 8); }
  TableRange agents() const { return Range(16); }
  TableRange queues() const { return Range(32); }
  TableRange code_objects() const { return Range(48); }
  TableRange environment() const { return Range(64); }

  size_t agent(uint64_t index) const { return agents().offset + 1112 * index; }
  size_t queue(uint64_t index) const { return queues().offset + 144 * index; }
  size_t code_object(uint64_t index) const { return code_objects().offset + 64 * index; }

  uint32_t queue_type(uint64_t index) const { return U32At(core_, queue(index) + 12); }
  size_t ring(uint64_t index) const { return U64At(core_, queue(index) + 104); }
  size_t ring_size(uint64_t index) const { return U64At(core_, queue(index) + 64); }
  size_t area(uint64_t index) const { return U64At(core_, queue(index) + 136); }

  std::vector<uint32_t> ControlStack(uint64_t index) const {
    const size_t at = area(index);
    return U32sAt(core_, at + U32At(core_, at), U32At(core_, at + 4) / 4);
  }

  std::vector<DumpedWave> Waves(uint64_t index, uint32_t vgpr_granule = 4) const;

 private:
  TableRange Range(size_t field) const {
    return {U64At(core_, first_field_ + field), U64At(core_, first_field_ + field + 8)};
  }

  TempDir dir_;
  std::string core_;
  size_t first_field_;
};

// The text at `offset`, up to its zero byte.
std::string FixedText(const std::string& bytes, size_t offset);

// The addresses of a bundled kernel's instructions, as the list beside it has them.
std::set<uint64_t> Instructions(const std::string& kernel, const std::string& mnemonic_part = "");

// In the order in which they are loaded.
inline constexpr const char* kBundled[] = {"copy", "histogram", "matmul", "reduction", "saxpy"};
inline constexpr uint64_t kHistogram = 1;

// Whether `pc` is the address of an instruction of one of the first agent's code objects.
bool IsInstruction(const SampleDump& dump, uint64_t pc);
