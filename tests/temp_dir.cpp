#include "temp_dir.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace fs = std::filesystem;

TempDir::TempDir() : path_((fs::canonical(fs::temp_directory_path()) / "talvex-XXXXXX").string()) {
  if (mkdtemp(path_.data()) == nullptr) {
    throw std::runtime_error("cannot make a directory like " + path_);
  }
}

TempDir::~TempDir() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

ScopedWorkingDirectory::ScopedWorkingDirectory(const std::string& dir)
    : previous_(fs::current_path()) {
  fs::current_path(dir);
}

ScopedWorkingDirectory::~ScopedWorkingDirectory() {
  std::error_code ignored;
  fs::current_path(previous_, ignored);
}

std::string ReadText(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file || fs::is_directory(path)) {
    ADD_FAILURE() << "cannot read " << path;
    return {};
  }
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void WriteText(const fs::path& path, const std::string& text) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file.write(text.data(), static_cast<std::streamsize>(text.size()));
  file.close();
  EXPECT_TRUE(file) << "cannot write " << path;
}

std::vector<std::string> ListTree(const fs::path& root) {
  std::vector<std::string> names;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root)) {
    names.push_back(entry.path().lexically_relative(root).string() +
                    (entry.is_directory() ? "/" : ""));
  }
  std::sort(names.begin(), names.end());
  return names;
}
