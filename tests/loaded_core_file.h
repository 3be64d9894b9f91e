// An analyser that has loaded a core file, before it dumps anything.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "core_dump_info.h"
#include "core_file_writer.h"
#include "temp_dir.h"

class LoadedCoreFileTest : public testing::Test {
 protected:
  // Loads a file of exactly these bytes; gives what init returns. There is no memory
  // directory unless the test makes one at mems_.
  bool Load(const std::string& bytes) {
    file_.assign(bytes.begin(), bytes.end());
    analyser_.SetImageSize(file_.size());
    return analyser_.init(Base(), out_.c_str(), "/opt/rocm", mems_.c_str(), false);
  }

  bool Load(const sample::CoreFile& file) { return Load(sample::CoreFileBytes(file)); }

  uint64_t Base() const { return reinterpret_cast<uint64_t>(file_.data()); }

  TempDir dir_;
  const std::string out_ = dir_.Path("out");
  const std::string mems_ = dir_.Path("mems");
  std::vector<char> file_;  // just as long as the file, so that a sanitizer sees what is beyond
  CoreDumpInfo analyser_;
};
