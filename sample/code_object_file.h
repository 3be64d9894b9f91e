// Code objects from disk, with the kernels in them and where the kernels' instructions begin.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace sample {

struct Instruction {
  uint64_t address = 0;  // as the code object has it
  std::string mnemonic;
};

struct KernelCode {
  std::string name;
  uint64_t entry = 0;  // as the code object has it
  uint32_t lds_bytes = 0;
  std::vector<Instruction> instructions;  // empty when nothing but the entry is known
};

struct CodeObjectFile {
  std::string path;
  std::shared_ptr<const std::string> elf;
  uint64_t loaded_size = 0;
  std::vector<std::shared_ptr<const KernelCode>> kernels;
};

// Reads the code object at `path`. The instructions come from the list beside it, "copy.pcs" for
// "copy.co"; a code object without one has kernels of which only the entry is known. On failure
// gives false and the cause in `error`.
bool LoadCodeObjectFile(const std::string& path, CodeObjectFile& file, std::string& error);

// The kernels that came with this program, in order of their names: those in "kernels" beside the
// executable (a build tree) or in "../share/talvex/kernels" from there (an installation). Empty
// when neither holds any.
std::vector<std::string> BundledCodeObjects();

// The directories that BundledCodeObjects looks into.
std::vector<std::string> BundledKernelDirectories();

}  // namespace sample
