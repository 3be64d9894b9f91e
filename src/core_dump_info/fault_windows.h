// The code around faulting PCs, disassembled once per distinct place.
//
// A hang or a fault usually stops thousands of waves at a handful of PCs, and a child process costs
// more than a wave's whole report. The texts are held in memory up to a bound, what is beyond it in
// a file without a name.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <tuple>

#include "core_dump_info/disassembler.h"
#include "file_manager.h"

class ReportFile;

class FaultWindows {
 public:
  // One window's text: what is held, then what is in the scratch file.
  struct Window {
    std::string held;
    uint64_t scratch_offset = 0;
    uint64_t scratch_size = 0;
  };

  // The window of `job`, made at its first call. Null when the disassembler cannot be run; the next
  // call then tries again. The pointer stays valid as long as this object.
  const Window* Get(const DisassemblyJob& job);

  // Appends the text to `report`, spilling as it goes.
  void AppendTo(const Window& window, ReportFile& report) const;

  // The text in one string.
  std::string Text(const Window& window) const;

 private:
  class WindowSink;

  template <typename Take>
  void ForEachPiece(const Window& window, Take take) const;

  // Agent name, code object name, offset. The directories do not change during a run.
  using Key = std::tuple<std::string, std::string, int64_t>;

  std::map<Key, Window> windows_;
  size_t held_size_ = 0;  // bytes of all held texts
  std::optional<ScratchFile> scratch_;
};
