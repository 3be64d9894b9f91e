#include "private_directory.h"

#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <system_error>

namespace fs = std::filesystem;

namespace {

class Directory {
 public:
  Directory() {
    const bool has_memory = access("/dev/shm", W_OK | X_OK) == 0;
    path_ = has_memory ? "/dev/shm" : fs::temp_directory_path().string();
    path_ += "/talvex-fuzz-XXXXXX";
    if (mkdtemp(path_.data()) == nullptr) {
      perror(path_.c_str());
      abort();
    }
  }
  ~Directory() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  Directory(const Directory&) = delete;
  Directory& operator=(const Directory&) = delete;

  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace

const std::string& PrivateDirectory() {
  static const Directory directory;
  return directory.path();
}

void EmptyPrivateDirectory() {
  for (const fs::directory_entry& entry : fs::directory_iterator(PrivateDirectory())) {
    fs::remove_all(entry.path());
  }
}

void WriteInput(const std::string& path, std::span<const uint8_t> bytes) {
  FILE* file = fopen(path.c_str(), "wb");
  if (file == nullptr || fwrite(bytes.data(), 1, bytes.size(), file) != bytes.size() ||
      fclose(file) != 0) {
    perror(path.c_str());
    abort();
  }
}
