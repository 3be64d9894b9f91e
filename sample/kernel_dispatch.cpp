#include "kernel_dispatch.h"

#include <bit>

#include "core_file_writer.h"

namespace sample {
namespace {

// How the bundled kernels are called. Arguments: p pointer, u unsigned int, f float.
struct Signature {
  const char* name;
  const char* arguments;
  bool two_dimensional;
};

constexpr Signature kSignatures[] = {
    {"histogram", "ppuu", false},     {"histogram_clear", "pu", false}, {"matmul", "pppu", true},
    {"reduce_squares", "ppu", false}, {"reduce_sum", "ppu", false},     {"saxpy", "fppu", false},
    {"vector_copy", "ppu", false},
};
constexpr Signature kOtherKernel = {"", "ppu", false};

constexpr uint16_t kGroupItems = 256;
constexpr uint16_t kTileSide = 16;
static_assert(kTileSide * kTileSide == kGroupItems);

const Signature& SignatureOf(const std::string& kernel) {
  for (const Signature& signature : kSignatures) {
    if (signature.name == kernel) {
      return signature;
    }
  }
  return kOtherKernel;
}

// Every argument lies at a multiple of its own size.
void AppendArgument(uint64_t value, size_t size, std::string& bytes) {
  const size_t offset = (bytes.size() + size - 1) / size * size;
  bytes.resize(offset + size, '\0');
  if (size == 8) {
    PutU64(bytes, offset, value);
  } else {
    PutU32(bytes, offset, static_cast<uint32_t>(value));
  }
}

std::string Arguments(const char* signature, const std::vector<uint64_t>& buffers, uint32_t count,
                      SplitMix64& rng) {
  std::string bytes;
  size_t pointers = 0;
  for (const char* argument = signature; *argument != '\0'; ++argument) {
    switch (*argument) {
      case 'p':
        AppendArgument(buffers[pointers++ % buffers.size()], 8, bytes);
        break;
      case 'f':
        AppendArgument(std::bit_cast<uint32_t>(0.25f * static_cast<float>(1 + rng.Below(16))), 4,
                       bytes);
        break;
      default:
        AppendArgument(count, 4, bytes);
        break;
    }
  }
  return bytes;
}

}  // namespace

Dispatch MakeDispatch(const LoadedKernel& kernel, const std::vector<uint64_t>& buffers,
                      SplitMix64& rng) {
  const Signature& signature = SignatureOf(kernel.code->name);
  Dispatch dispatch;
  dispatch.kernel = kernel;
  const uint32_t groups = 64 + rng.Below(960);
  if (signature.two_dimensional) {
    const uint32_t side = kTileSide * (8 + groups % 24);
    dispatch.workgroup_size = {kTileSide, kTileSide, 1};
    dispatch.grid_size = {side, side, 1};
    dispatch.arguments = Arguments(signature.arguments, buffers, side, rng);
  } else {
    const uint32_t items = kGroupItems * groups;
    dispatch.workgroup_size = {kGroupItems, 1, 1};
    dispatch.grid_size = {items, 1, 1};
    dispatch.arguments = Arguments(signature.arguments, buffers, items - rng.Below(64), rng);
  }
  return dispatch;
}

}  // namespace sample
