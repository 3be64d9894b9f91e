// Runs a fuzz target over the files of its corpus: fuzzing without the fuzzer, as a test.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "fuzz_input.h"

namespace fs = std::filesystem;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

bool Replay(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  const std::vector<char> bytes{std::istreambuf_iterator<char>(file),
                                std::istreambuf_iterator<char>()};
  if (!file) {
    fprintf(stderr, "cannot read %s\n", path.c_str());
    return false;
  }
  const ExactCopy input({reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()});
  LLVMFuzzerTestOneInput(input.data(), input.size());
  return true;
}

}  // namespace

// Usage: <target>_replay CORPUS_DIRECTORY. Fails when the directory holds no input.
int main(int argc, char** argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: %s CORPUS_DIRECTORY\n", argv[0]);
    return 2;
  }
  size_t count = 0;
  for (const fs::directory_entry& entry : fs::directory_iterator(argv[1])) {
    if (!Replay(entry.path())) {
      return 1;
    }
    ++count;
  }
  printf("%zu inputs\n", count);
  return count > 0 ? 0 : 1;
}
