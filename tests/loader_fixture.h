// A loaded core file whose records, code objects and environment tests look at.
#pragma once

#include <cstdint>
#include <string>

#include "loaded_core_file.h"

// No address and no offset of a file.
inline constexpr uint64_t kWild = 0xDEADBEEF00000001;

class LoaderTest : public LoadedCoreFileTest {
 protected:
  std::string CodePath(size_t index, const std::string& suffix = "") const {
    return out_ + "/codes/" + analyser_.code_object_lists.at(index)->name + suffix;
  }
};
