#include "core_dump_info/fault_windows.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "core_dump_info/report_file.h"

namespace {

constexpr size_t kHeldLimit = size_t{1} << 20;   // bytes of all windows together
constexpr size_t kPieceSize = size_t{64} << 10;  // of what is read back from the scratch file

}  // namespace

class FaultWindows::WindowSink : public DisassemblySink {
 public:
  WindowSink(FaultWindows& owner, const std::string& scratch_dir, Window& window)
      : owner_(owner), scratch_dir_(scratch_dir), window_(window) {}

  void Restart() override {
    owner_.held_size_ -= window_.held.size();
    window_ = {};
  }

  void Add(std::string_view piece) override {
    if (window_.scratch_size == 0 && owner_.held_size_ + piece.size() <= kHeldLimit) {
      window_.held += piece;
      owner_.held_size_ += piece.size();
      return;
    }
    if (!owner_.scratch_) {
      owner_.scratch_.emplace(scratch_dir_);
    }
    if (window_.scratch_size == 0) {
      window_.scratch_offset = owner_.scratch_->size();
    }
    window_.scratch_size += owner_.scratch_->Append(piece);
  }

 private:
  FaultWindows& owner_;
  const std::string& scratch_dir_;
  Window& window_;
};

const FaultWindows::Window* FaultWindows::Get(const DisassemblyJob& job) {
  Key key(job.agent_name, job.code_object_name, job.dis_offset);
  const auto found = windows_.find(key);
  if (found != windows_.end()) {
    LogDisassembly(job);
    return &found->second;
  }
  Window window;
  WindowSink sink(*this, job.dump_code_dir, window);
  if (!Disassemble(job, sink)) {
    return nullptr;
  }
  return &windows_.emplace(std::move(key), std::move(window)).first->second;
}

template <typename Take>
void FaultWindows::ForEachPiece(const Window& window, Take take) const {
  take(window.held);
  if (window.scratch_size == 0) {
    return;
  }
  std::vector<char> piece(kPieceSize);
  uint64_t done = 0;
  while (done < window.scratch_size) {
    const size_t wanted = std::min<uint64_t>(piece.size(), window.scratch_size - done);
    const size_t count = scratch_->Read(window.scratch_offset + done, piece.data(), wanted);
    if (count == 0) {
      return;
    }
    take(std::string_view(piece.data(), count));
    done += count;
  }
}

void FaultWindows::AppendTo(const Window& window, ReportFile& report) const {
  ForEachPiece(window, [&](std::string_view piece) { report.Append(piece); });
}

std::string FaultWindows::Text(const Window& window) const {
  std::string text;
  ForEachPiece(window, [&](std::string_view piece) { text += piece; });
  return text;
}
