// Every prefix of a small core file: the run ends well and reports what the prefix still holds.
//
// What is expected is worked out from where the writer placed things, region by region; the texts
// are those of the format's reports.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "analyser_run.h"
#include "captured_output.h"
#include "core_file_writer.h"
#include "damaged_file.h"
#include "occupancy_text.h"
#include "run_process.h"
#include "small_dump.h"
#include "small_dump_texts.h"
#include "temp_dir.h"

namespace {

using Files = std::map<std::string, std::string>;

constexpr uint64_t kStep = 64;

constexpr uint64_t kHeaderSize = 128;
constexpr uint64_t kReasonSize = 112;
constexpr uint64_t kVmFaultSize = 88;  // of the reason record, up to the end of virtual_address
constexpr uint64_t kAgentSize = 1112;
constexpr uint64_t kQueueSize = 144;
constexpr uint64_t kCodeObjectSize = 64;
constexpr uint64_t kKernelSize = 1032;
constexpr uint64_t kSlotSize = 64;

// ---------------------------------------------------------------------------------------------
// What a prefix still holds

class Prefix {
 public:
  Prefix(const sample::CoreFile& file, uint64_t size)
      : file_(file), at_(sample::Place(file)), size_(size) {
    if (size_ < kHeaderSize) {
      log_ = "[time] Error: [init] core file too short for its ";
      log_ += size_ < 4 ? "magic_number" : "CoreDumpHeaderV1";
      log_ += ": found " + std::to_string(size_) + " bytes, expected ";
      log_ += size_ < 4 ? "4" : "128";
      log_ += " at offset 0\n";
      return;
    }
    loaded_ = true;
    ExpectLoading();
    if (!Holds(at_.reason, kVmFaultSize)) {
      log_ += "[time] Error: dump reason info failed\n";
    } else {
      files_["fault_info"] = small_dump::kFaultInfo;
    }
    ExpectAgents();
    ExpectQueues();
  }

  bool loaded() const { return loaded_; }
  const Files& files() const { return files_; }
  const std::string& damage() const { return damage_; }
  const std::string& log() const { return log_; }

 private:
  uint64_t Available(uint64_t offset) const { return offset < size_ ? size_ - offset : 0; }
  uint64_t Available(uint64_t offset, uint64_t wanted) const {
    return std::min(Available(offset), wanted);
  }
  bool Holds(uint64_t offset, uint64_t wanted) const { return Available(offset) >= wanted; }

  // Expects a loss when not all of the region is there.
  void ExpectRegion(const std::string& what, uint64_t offset, uint64_t wanted) {
    if (!Holds(offset, wanted)) {
      Lose(what, offset, wanted, Available(offset));
    }
  }

  void Lose(const std::string& what, uint64_t offset, uint64_t wanted, uint64_t available) {
    const std::string line = LossLine(what, offset, wanted, available);
    damage_ += line;
    log_ += LossLog(line);
  }

  void ExpectLoading() {
    ExpectRegion("reason record", at_.reason, kReasonSize);
    ExpectRegion("agent table", at_.agents[0], 2 * kAgentSize);
    ExpectRegion("queue table", at_.queues[0], 3 * kQueueSize);
    ExpectRegion("code object table", at_.code_objects[0], 2 * kCodeObjectSize);
    ExpectCodeObject(
        0, "0x7000000",
        {"copy:\n\tkernel loaded addr: 0x7000100\n", "scale:\n\tkernel loaded addr: 0x7000200\n"},
        at_.kernels[0]);
    ExpectCodeObject(1, "0x8000000", {"last:\n\tkernel loaded addr: 0x8000100\n"}, at_.kernels[2]);
    ExpectRegion("environment", at_.environment, 19);
    files_["environment"] =
        std::string("HOME=/root\nLANG=C\n").substr(0, Available(at_.environment, 18));
  }

  void ExpectCodeObject(size_t index, const std::string& address,
                        const std::vector<std::string>& kernels, uint64_t kernels_at) {
    if (!Holds(at_.code_objects[index], kCodeObjectSize)) {
      return;
    }
    const std::string name = "code_object_" + std::to_string(index);
    ExpectRegion(name + " kernel table", kernels_at, kernels.size() * kKernelSize);
    std::string info = "Object load addr: " + address + "\nObject load size: 0x1000\n";
    for (size_t i = 0; i < kernels.size(); ++i) {
      if (Holds(kernels_at, (i + 1) * kKernelSize)) {
        info += kernels[i];
      }
    }
    const uint64_t elf_size = index == 0 ? 200 : 100;
    ExpectRegion(name + " ELF image", at_.elfs[index], elf_size);
    files_["codes/" + name] =
        std::string(Available(at_.elfs[index], elf_size), index == 0 ? '1' : '2');
    files_["codes/" + name + ".info"] = info;
  }

  void ExpectAgents() {
    if (Holds(at_.agents[0], kAgentSize)) {
      files_["agent_1"] = small_dump::AgentText("1", "gfx-906-a") + ExpectFirstContext();
    }
    if (Holds(at_.agents[1], kAgentSize)) {
      files_["agent_2"] = small_dump::AgentText("2", "gfx-906-b") + ExpectSecondContext();
    }
  }

  // Expects the raw area, and the losses before its waves are looked at. False when there are none
  // to look at.
  bool ExpectArea(size_t queue, uint64_t area_size, uint64_t stack_size) {
    const uint64_t area = at_.contexts[queue];
    if (!Holds(at_.queues[queue], kQueueSize)) {
      return false;
    }
    const std::string what = AreaName(queue);
    ExpectRegion(what, area, area_size);
    if (Available(area) == 0) {
      return false;
    }
    files_["queues/" + std::to_string(file_.queues[queue].queue_id) + "/cwsr"] =
        sample::CoreFileBytes(file_).substr(area, Available(area, area_size));
    if (!Holds(area, 16)) {
      Lose(what + ", header", area, 16, Available(area));
      return false;
    }
    if (!Holds(area + 16, stack_size)) {
      Lose(what + ", control stack", area + 16, stack_size, Available(area + 16));
    }
    return true;
  }

  std::string AreaName(size_t queue) const {
    return "queue " + std::to_string(file_.queues[queue].queue_id) + " context save area";
  }

  // Header 0, control stack 16 (preamble, state record, two wave records), second wave 36, first
  // wave 1316, end 3108.
  std::string ExpectFirstContext() {
    const uint64_t area = at_.contexts[0];
    if (!ExpectArea(0, 3108, 20)) {
      return occupancy::NoWaves();
    }
    const bool has_first_record = Holds(area, 32);
    const bool has_second_record = Holds(area, 36);
    const bool has_second_wave = Holds(area, 1316);
    const bool has_first_wave = Holds(area, 3108);
    const int lost = (has_first_record && !has_first_wave ? 1 : 0) +
                     (has_second_record && !has_second_wave ? 1 : 0);
    if (lost > 0) {
      Lose(AreaName(0) + ", waves lost: " + std::to_string(lost) + ", the first", area + 1316, 1792,
           Available(area + 1316));
    }
    if (has_first_wave) {
      files_["queues/7/waves"] =
          "Total waves count: 2\nse1.sh0.cu1.simd0.wave0\nse1.sh0.cu1.simd1.wave0\n";
      return small_dump::BothWaves();
    }
    if (has_second_wave) {
      files_["queues/7/waves"] = "Total waves count: 1\nse1.sh0.cu1.simd1.wave0\n";
      return small_dump::SecondWaveOnly();
    }
    return occupancy::NoWaves();
  }

  // Header 0, control stack 16 (preamble, wave record), wave 28, end 220.
  std::string ExpectSecondContext() {
    const uint64_t area = at_.contexts[2];
    if (!ExpectArea(2, 220, 12)) {
      return occupancy::NoWaves();
    }
    if (!Holds(area, 220)) {
      if (Holds(area, 28)) {
        Lose(AreaName(2) + ", waves lost: 1, the first", area + 28, 192, Available(area + 28));
      }
      return occupancy::NoWaves();
    }
    files_["queues/9/waves"] = "Total waves count: 1\nse0.sh0.cu0.simd0.wave1\n";
    return occupancy::OneWave();
  }

  void ExpectQueues() {
    if (Holds(at_.queues[0], kQueueSize)) {
      files_["queues/7/queue"] = small_dump::QueueText(
          {"7", "100", "compute_aql", "AQL", "C0", small_dump::kFirstContext});
      ExpectFirstRing();
    }
    if (Holds(at_.queues[1], kQueueSize)) {
      files_["queues/8/queue"] = small_dump::QueueText({"8", "100", "sdma", "PM4", "14", ""});
      ExpectSdmaRing();
    }
    if (Holds(at_.queues[2], kQueueSize)) {
      files_["queues/9/queue"] = small_dump::QueueText(
          {"9", "200", "compute_aql", "AQL", "40", small_dump::kSecondContext});
      ExpectSecondRing();
    }
  }

  // How many slots of a ring are there; expects the loss of their headers.
  uint64_t ExpectSlots(size_t queue, uint64_t slots) {
    const uint64_t ring = at_.rings[queue];
    const uint64_t whole = Available(ring, slots * kSlotSize) / kSlotSize;
    if (whole > 0) {
      ExpectRegion("queue " + std::to_string(file_.queues[queue].queue_id) + " header backup array",
                   ring + slots * kSlotSize, whole * 4);
    }
    return whole;
  }

  // The ring's raw copy.
  void ExpectRing(size_t queue, uint64_t ring_size, const std::string& name) {
    const uint64_t ring = at_.rings[queue];
    const std::string id = std::to_string(file_.queues[queue].queue_id);
    ExpectRegion("queue " + id + " ring", ring, ring_size);
    if (Available(ring) > 0) {
      files_["queues/" + id + "/" + name] =
          sample::CoreFileBytes(file_).substr(ring, Available(ring, ring_size));
    }
  }

  void ExpectFirstRing() {
    const uint64_t slots = ExpectSlots(0, 3);
    const bool has_third_header = Holds(at_.rings[0], 3 * kSlotSize + 3 * 4);
    std::string packets;
    if (slots > 0) {
      packets += small_dump::kDispatchSlot;
      files_["queues/7/copy_args"] = "kernel arguments";
    }
    if (slots > 1) {
      packets += small_dump::BarrierSlot("1", "BARRIER_AND", "0X300000");
    }
    if (slots > 2) {
      packets += has_third_header ? small_dump::BarrierSlot("2", "BARRIER_AND (complete)", "0X0")
                                  : small_dump::RetiredSlotWithoutHeader();
    }
    files_["queues/7/packets"] = packets;
    ExpectRing(0, 3 * kSlotSize, "aql_rb");
  }

  void ExpectSecondRing() {
    files_["queues/9/packets"] =
        ExpectSlots(2, 1) > 0 ? small_dump::BarrierSlot("0", "BARRIER_OR", "0X0") : "";
    ExpectRing(2, kSlotSize, "aql_rb");
  }

  void ExpectSdmaRing() {
    const uint64_t ring = at_.rings[1];
    std::string packets;
    if (Holds(ring, 8)) {
      packets += small_dump::kTrap;
    }
    if (Holds(ring, 20)) {
      packets += small_dump::kTimestamp;
    }
    files_["queues/8/packets"] = packets + "\n";
    ExpectRing(1, 20, "sdma_rb");
  }

  const sample::CoreFile& file_;
  const sample::Placement at_;
  const uint64_t size_;
  bool loaded_ = false;
  Files files_;
  std::string damage_;
  std::string log_;
};

Files Shortened(Files files) {
  for (auto& [path, text] : files) {
    if (path == "queues/7/waves" || path == "queues/9/waves") {
      text = WhereWavesRan(text);
    }
  }
  return files;
}

class TruncationSweep : public testing::Test {
 protected:
  TruncationSweep() : file_(SmallDump()), bytes_(sample::CoreFileBytes(file_)) {
    EXPECT_TRUE(sample::WriteMemoryDirectory(SmallDumpMemory(), mems_));
  }

  // Every prefix of a multiple of the step, and the whole file.
  std::vector<uint64_t> Sizes() const {
    std::vector<uint64_t> sizes;
    for (uint64_t size = 0; size < bytes_.size(); size += kStep) {
      sizes.push_back(size);
    }
    sizes.push_back(bytes_.size());
    return sizes;
  }

  const TempDir dir_;
  const std::string mems_ = dir_.Path("mems");
  const sample::CoreFile file_;
  const std::string bytes_;
};

TEST_F(TruncationSweep, ThePrefixReportsWhatItHolds) {
  for (const uint64_t size : Sizes()) {
    SCOPED_TRACE(size);
    const Prefix expected(file_, size);
    const AnalyserRun run = Analyse(Truncated(bytes_, size), {.mem_dir = mems_, .rocm_dir = ""});
    EXPECT_EQ(run.loaded, expected.loaded());
    EXPECT_EQ(run.damage, expected.damage());
    EXPECT_EQ(run.log, expected.log());
    EXPECT_EQ(Shortened(run.files), expected.files());
  }
}

TEST_F(TruncationSweep, TheWholeFileIsNotDamaged) {
  const AnalyserRun run = Analyse(bytes_, {.mem_dir = mems_, .rocm_dir = ""});
  EXPECT_TRUE(run.loaded);
  EXPECT_EQ(run.damage, "");
  EXPECT_EQ(run.log, "");
}

TEST_F(TruncationSweep, TheProgramEndsWell) {
  const std::string core = dir_.Path("core_0");
  const std::string out = dir_.Path("out");
  for (const uint64_t size : Sizes()) {
    SCOPED_TRACE(size);
    const Prefix expected(file_, size);
    std::filesystem::remove_all(out);
    WriteText(core, Truncated(bytes_, size));
    const ProcessResult result =
        RunProcess(TALVEX_BINARY, {"-i", core, "-o", out, "-m", mems_, "-r", dir_.Path("rocm")},
                   {.working_directory = "", .environment = {kNoLeakCheck}});
    EXPECT_EQ(result.status, expected.loaded() ? 0 : 255);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(
        WithoutTimes(result.err),
        expected.log() + (expected.loaded() ? "" : "[time] Error: CoreDumpManager init failed.\n"));
  }
}

}  // namespace
