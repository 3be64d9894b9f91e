// What a dump needs to know of a code object: the functions in its ELF64 image and how much memory
// it takes when it is loaded.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace sample {

struct ElfFunction {
  std::string name;
  uint64_t address = 0;  // as the image has it, before it is loaded anywhere
  uint64_t size = 0;
  uint32_t lds_bytes = 0;  // from the kernel descriptor "<name>.kd", 0 for functions without
};

struct ElfImage {
  uint64_t loaded_size = 0;            // up to the end of the highest segment that is loaded
  std::vector<ElfFunction> functions;  // in the order of the symbol table
};

// Reads a little-endian ELF64 image. On failure gives false and says in `error` what was found,
// what was expected and where; nothing outside `bytes` is read whatever they hold.
bool ReadElf(const std::string& bytes, ElfImage& image, std::string& error);

}  // namespace sample
