// A whole run, from the core file to the last report.
//
// The input is
//   4 bytes  length of the core file, little-endian
//   4 bytes  length of the memory index
//   the core file, the memory index, and in what is left one snapshot, which every region of the
//   index gets; a length beyond the input's end takes what there is
//
// There is no llvm-objdump, so that no children are run.
#include <filesystem>
#include <stdexcept>

#include "core_dump_info.h"
#include "fuzz_input.h"
#include "private_directory.h"

namespace {

constexpr size_t kMostSnapshots = 8;

// The second VGPR bank of a wave lies 22 MB behind the first, where no input reaches; here it is
// near.
constexpr uint64_t kNearBank = 1024;

// False when the core file cannot be loaded, or has an index line with too few tokens: the one end
// of a run that is abnormal on purpose.
bool Load(CoreDumpInfo& analyser, const ExactCopy& core, const std::string& out,
          const std::string& mems, const std::string& rocm) {
  analyser.SetImageSize(core.size());
  try {
    return analyser.init(reinterpret_cast<uint64_t>(core.data()), out.c_str(), rocm.c_str(),
                         mems.c_str(), false);
  } catch (const std::out_of_range&) {
    return false;
  }
}

void WriteSnapshots(const CoreDumpInfo& analyser, Input snapshot) {
  size_t count = 0;
  for (const auto& [address, region] : analyser.mem_info_map) {
    if (region.name.empty() || count++ == kMostSnapshots) {
      continue;
    }
    WriteInput(region.name, snapshot);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  const uint32_t core_size = TakeU32(input);
  const uint32_t index_size = TakeU32(input);
  const ExactCopy core(TakeFront(input, core_size));
  const Input index = TakeFront(input, index_size);

  EmptyPrivateDirectory();
  const std::string mems = PrivateDirectory() + "/mems";
  std::filesystem::create_directory(mems);
  WriteInput(mems + "/process_mem_info", index);

  CoreDumpInfo analyser;
  if (Load(analyser, core, PrivateDirectory() + "/out", mems, PrivateDirectory() + "/rocm")) {
    WriteSnapshots(analyser, input);
    analyser.dp4x_vgpr_offset = kNearBank;
    Require(analyser.dump());
  }
  return 0;
}
