#include "code_object_file.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "kernel_elf.h"

namespace sample {
namespace {

namespace fs = std::filesystem;

// The cause of a failure, empty when there is none.
std::string ReadFile(const std::string& path, std::string& bytes) {
  std::error_code error;
  const uint64_t size = fs::file_size(path, error);
  if (error) {
    return error.message();
  }
  bytes.resize(size);
  std::ifstream stream(path, std::ios::binary);
  stream.read(bytes.data(), static_cast<std::streamsize>(size));
  return stream ? "" : strerror(errno);
}

// Lines of "<hex address> <mnemonic>". A missing list is an empty one.
std::vector<Instruction> ReadInstructions(const std::string& path) {
  std::vector<Instruction> instructions;
  std::ifstream stream(path);
  Instruction instruction;
  while (stream >> std::hex >> instruction.address >> instruction.mnemonic) {
    instructions.push_back(instruction);
  }
  return instructions;
}

KernelCode MakeKernel(const ElfFunction& function, const std::vector<Instruction>& instructions) {
  KernelCode kernel{function.name, function.address, function.lds_bytes, {}};
  for (const Instruction& instruction : instructions) {
    if (instruction.address >= function.address &&
        instruction.address - function.address < function.size) {
      kernel.instructions.push_back(instruction);
    }
  }
  return kernel;
}

}  // namespace

bool LoadCodeObjectFile(const std::string& path, CodeObjectFile& file, std::string& error) {
  std::string bytes;
  ElfImage image;
  error = ReadFile(path, bytes);
  if (!error.empty() || !ReadElf(bytes, image, error)) {
    error = path + ": " + error;
    return false;
  }
  const auto instructions = ReadInstructions(fs::path(path).replace_extension(".pcs").string());
  file.path = path;
  file.elf = std::make_shared<const std::string>(std::move(bytes));
  file.loaded_size = image.loaded_size;
  file.kernels.clear();
  for (const ElfFunction& function : image.functions) {
    file.kernels.push_back(std::make_shared<const KernelCode>(MakeKernel(function, instructions)));
  }
  return true;
}

std::vector<std::string> BundledKernelDirectories() {
  std::error_code error;
  const fs::path executable = fs::read_symlink("/proc/self/exe", error);
  const fs::path directory = executable.parent_path();
  return {(directory / "kernels").string(),
          (directory.parent_path() / "share/talvex/kernels").string()};
}

std::vector<std::string> BundledCodeObjects() {
  for (const std::string& directory : BundledKernelDirectories()) {
    std::vector<std::string> paths;
    std::error_code error;
    for (const fs::directory_entry& entry : fs::directory_iterator(directory, error)) {
      if (entry.path().extension() == ".co") {
        paths.push_back(entry.path().string());
      }
    }
    if (!paths.empty()) {
      std::sort(paths.begin(), paths.end());
      return paths;
    }
  }
  return {};
}

}  // namespace sample
