// Every offset, size, count and id of a small core file, set to every value that tends to break a
// reader. Whatever a field says, all that does not hang on it is reported as before, and every
// table, image and ring that leads outside the file is a loss with just these numbers.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "analyser_run.h"
#include "core_file_writer.h"
#include "damaged_file.h"
#include "raw_bytes.h"
#include "row_name.h"
#include "small_dump.h"
#include "temp_dir.h"

namespace {

using Names = std::vector<std::string>;

// ---------------------------------------------------------------------------------------------
// What is to be lost, read from the bytes of the damaged file

class Losses {
 public:
  explicit Losses(const std::string& bytes) : bytes_(bytes) {
    Table("agent table", U64At(bytes_, 32), U64At(bytes_, 40), 1112);
    Table("queue table", U64At(bytes_, 48), U64At(bytes_, 56), 144);
    CodeObjects(U64At(bytes_, 64), U64At(bytes_, 72));
    if (is_loaded_) {
      Rings(U64At(bytes_, 48), U64At(bytes_, 56));
    }
  }

  // False when a code object without image is to fail the load.
  bool is_loaded() const { return is_loaded_; }
  const Names& lines() const { return lines_; }

  // Whether a line of `damage` is of a kind that is looked at here.
  static bool Covers(const std::string& line) {
    static const std::regex kKinds(
        "(agent|queue|code object|code_object_\\d+ kernel) table: .*|"
        "code_object_\\d+ ELF image: .*|queue \\d+ ring: .*");
    return std::regex_match(line, kKinds);
  }

 private:
  uint64_t Available(uint64_t offset) const {
    return offset < bytes_.size() ? bytes_.size() - offset : 0;
  }

  // Returns how many whole records there are.
  uint64_t Table(const std::string& what, uint64_t offset, uint64_t count, uint64_t record_size) {
    const uint64_t whole = Available(offset) / record_size;
    if (whole >= count) {
      return count;
    }
    const bool is_beyond_64_bits = count > UINT64_MAX / record_size;
    Lose(what, offset, is_beyond_64_bits ? UINT64_MAX : count * record_size);
    return whole;
  }

  void Region(const std::string& what, uint64_t offset, uint64_t size) {
    if (size > Available(offset)) {
      Lose(what, offset, size);
    }
  }

  void Lose(const std::string& what, uint64_t offset, uint64_t wanted) {
    std::string line = LossLine(what, offset, wanted, Available(offset));
    line.pop_back();
    lines_.push_back(line);
  }

  void CodeObjects(uint64_t offset, uint64_t count) {
    const uint64_t whole = Table("code object table", offset, count, 64);
    for (uint64_t i = 0; i < whole; ++i) {
      const uint64_t record = offset + 64 * i;
      const uint64_t elf_size = U64At(bytes_, record + 24);
      if (elf_size == 0 && whole < count) {
        return;
      }
      const std::string name = "code_object_" + std::to_string(i);
      Table(name + " kernel table", U64At(bytes_, record + 40), U64At(bytes_, record + 48), 1032);
      Region(name + " ELF image", U64At(bytes_, record + 56), elf_size);
      if (elf_size == 0) {
        is_loaded_ = false;
        return;
      }
    }
  }

  void Rings(uint64_t offset, uint64_t count) {
    const uint64_t whole = std::min(count, Available(offset) / 144);
    for (uint64_t i = 0; i < whole; ++i) {
      const uint64_t record = offset + 144 * i;
      const uint32_t type = U32At(bytes_, record + 12);
      if (type == 1 || type == 2) {
        Region("queue " + std::to_string(U32At(bytes_, record)) + " ring",
               U64At(bytes_, record + 104), U64At(bytes_, record + 64));
      }
    }
  }

  const std::string& bytes_;
  bool is_loaded_ = true;
  Names lines_;
};

// ---------------------------------------------------------------------------------------------
// Fields

struct Field {
  const char* name;
  size_t offset;  // in its record
  size_t width;
};

// One kind of record, and the reports that may change with its fields: paths that begin so.
struct Record {
  const char* name;
  uint64_t (*place)(const sample::Placement& at);
  std::vector<Field> fields;
  Names reports;
};

const Record kRecords[] = {
    {"HeaderReason",
     [](const sample::Placement&) { return uint64_t{16}; },
     {{"FaultOffset", 0, 8}, {"FaultSize", 8, 8}},
     {"fault_info"}},
    {"HeaderVersion",
     [](const sample::Placement&) { return uint64_t{4}; },
     {{"Major", 0, 4}, {"Minor", 4, 4}, {"Patch", 8, 4}},
     {"queues/7/packets", "queues/9/packets"}},
    {"HeaderAgents",
     [](const sample::Placement&) { return uint64_t{32}; },
     {{"Offset", 0, 8}, {"Count", 8, 8}},
     {"agent_", "queues/7/cwsr", "queues/7/waves", "queues/9/cwsr", "queues/9/waves"}},
    {"HeaderQueues",
     [](const sample::Placement&) { return uint64_t{48}; },
     {{"Offset", 0, 8}, {"Count", 8, 8}},
     {"agent_", "queues/"}},
    {"HeaderCodeObjects",
     [](const sample::Placement&) { return uint64_t{64}; },
     {{"Offset", 0, 8}, {"Count", 8, 8}},
     {"codes/", "queues/7/packets", "queues/7/copy_args", "queues/7/waves", "queues/9/waves"}},
    {"HeaderEnvironment",
     [](const sample::Placement&) { return uint64_t{80}; },
     {{"Offset", 0, 8}, {"Size", 8, 8}},
     {"environment"}},
    {"HeaderReserved",
     [](const sample::Placement&) { return uint64_t{96}; },
     {{"First", 0, 8}, {"Last", 24, 8}},
     {}},
    {"Reason",
     [](const sample::Placement& at) { return at.reason; },
     {{"NodeId", 68, 4},
      {"Mask", 72, 4},
      {"VirtualAddress", 80, 8},
      {"Status", 88, 4},
      {"RingAddr", 96, 8},
      {"Sig", 104, 4}},
     {"fault_info"}},
    {"FirstAgent",
     [](const sample::Placement& at) { return at.agents[0]; },
     {{"GpuId", 1024, 4},
      {"NodeId", 1028, 4},
      {"DrmId", 1032, 4},
      {"PciDomainId", 1040, 4},
      {"ChipId", 1052, 4},
      {"IsDp4x", 1056, 1},
      {"NumCus", 1060, 4},
      {"NumSes", 1080, 4},
      {"Handle", 1088, 8},
      {"WaveOffset", 1096, 8},
      {"WaveCount", 1104, 8}},
     {"agent_", "queues/7/cwsr", "queues/7/waves"}},
    {"FirstQueueIdentity",
     [](const sample::Placement& at) { return at.queues[0]; },
     {{"QueueId", 0, 4}, {"GpuId", 8, 4}, {"Type", 12, 4}},
     {"agent_1", "queues/"}},
    {"FirstQueueReport",
     [](const sample::Placement& at) { return at.queues[0]; },
     {{"IsSuspended", 4, 4},
      {"Format", 16, 4},
      {"EopAddress", 24, 8},
      {"EopSize", 32, 8},
      {"MqdAddress", 40, 8},
      {"DoorbellOffset", 48, 8},
      {"RingAddress", 56, 8},
      {"WptrAddress", 72, 8},
      {"RptrAddress", 80, 8},
      {"WptrValue", 88, 8},
      {"RptrValue", 96, 8},
      {"ContextAddress", 112, 8},
      {"ControlStackSize", 128, 8}},
     {"queues/7/queue"}},
    {"FirstQueueRing",
     [](const sample::Placement& at) { return at.queues[0]; },
     {{"Size", 64, 8}, {"Offset", 104, 8}},
     {"queues/7/queue", "queues/7/packets", "queues/7/aql_rb", "queues/7/copy_args"}},
    {"SecondQueueRing",
     [](const sample::Placement& at) { return at.queues[1]; },
     {{"Size", 64, 8}, {"Offset", 104, 8}},
     {"queues/8/queue", "queues/8/packets", "queues/8/sdma_rb"}},
    {"FirstQueueContext",
     [](const sample::Placement& at) { return at.queues[0]; },
     {{"Size", 120, 8}, {"Offset", 136, 8}},
     {"agent_1", "queues/7/queue", "queues/7/cwsr", "queues/7/waves"}},
    {"FirstCodeObject",
     [](const sample::Placement& at) { return at.code_objects[0]; },
     {{"AddrLoaded", 0, 8}, {"SizeLoaded", 8, 8}, {"AddrElf", 16, 8}, {"Agent", 32, 8}},
     {"codes/code_object_0.info", "queues/7/waves", "queues/9/waves"}},
    {"FirstCodeObjectImage",
     [](const sample::Placement& at) { return at.code_objects[0]; },
     {{"Size", 24, 8}, {"Offset", 56, 8}},
     {"codes/code_object_0"}},
    {"FirstCodeObjectKernels",
     [](const sample::Placement& at) { return at.code_objects[0]; },
     {{"Offset", 40, 8}, {"Count", 48, 8}},
     {"codes/code_object_0.info", "queues/7/packets", "queues/7/copy_args"}},
    {"FirstKernel",
     [](const sample::Placement& at) { return at.kernels[0]; },
     {{"LoadedAddr", 0, 8}},
     {"codes/code_object_0.info", "queues/7/packets", "queues/7/copy_args"}},
    {"FirstArea",
     [](const sample::Placement& at) { return at.contexts[0]; },
     {{"ControlStackOffset", 0, 4},
      {"ControlStackSize", 4, 4},
      {"WaveStateOffset", 8, 4},
      {"WaveStateSize", 12, 4}},
     {"agent_1", "queues/7/cwsr", "queues/7/waves"}},
    {"FirstControlStack",
     [](const sample::Placement& at) { return at.contexts[0] + 16; },
     {{"Preamble", 0, 4}, {"StateRecord", 8, 4}, {"FirstWave", 12, 4}, {"SecondWave", 16, 4}},
     {"agent_1", "queues/7/cwsr", "queues/7/waves"}},
};

class DamagedFieldsTest : public testing::TestWithParam<Record> {
 protected:
  DamagedFieldsTest() : good_(sample::CoreFileBytes(SmallDump())) {
    EXPECT_TRUE(sample::WriteMemoryDirectory(SmallDumpMemory(), mems_));
    whole_ = Run(good_);
    EXPECT_EQ(whole_.damage, "");
  }

  AnalyserRun Run(const std::string& bytes) const {
    return Analyse(bytes, {.mem_dir = mems_, .rocm_dir = ""});
  }

  std::set<uint64_t> ValuesOf(size_t width) const {
    const uint64_t mask = width == 8 ? UINT64_MAX : (uint64_t{1} << (8 * width)) - 1;
    std::set<uint64_t> values;
    for (const uint64_t value : {uint64_t{0}, uint64_t{1}, uint64_t{0x7FFFFFFF},
                                 uint64_t{0xFFFFFFFF}, uint64_t{0x8000000000000000}, UINT64_MAX,
                                 uint64_t{good_.size()}, uint64_t{good_.size() + 1}}) {
      values.insert(value & mask);
    }
    return values;
  }

  bool MayChange(const std::string& path) const {
    const Names& reports = GetParam().reports;
    return std::any_of(reports.begin(), reports.end(),
                       [&](const std::string& report) { return path.rfind(report, 0) == 0; });
  }

  // All that does not hang on the field is as it was, and nothing else has come.
  void ExpectOtherReports(const AnalyserRun& run) const {
    for (const auto& [path, text] : whole_.files) {
      if (!MayChange(path)) {
        EXPECT_TRUE(run.Has(path)) << path;
        EXPECT_TRUE(run.Has(path) && run.files.at(path) == text) << path << " has changed";
      }
    }
    for (const auto& [path, text] : run.files) {
      EXPECT_TRUE(MayChange(path) || whole_.Has(path)) << path << " is new";
    }
  }

  const TempDir dir_;
  const std::string mems_ = dir_.Path("mems");
  const std::string good_;
  AnalyserRun whole_;
};

// Every line of `damage` tells a loss and stands on standard error too, in the same order.
void ExpectLossLines(const AnalyserRun& run) {
  static const std::regex kLine(
      "(.+): file offset 0X[0-9A-F]+, wanted (\\d+) bytes, available (\\d+) bytes");
  std::istringstream lines(run.damage);
  for (std::string line; std::getline(lines, line);) {
    std::smatch match;
    ASSERT_TRUE(std::regex_match(line, match, kLine)) << line;
    EXPECT_LT(std::stoull(match[3]), std::stoull(match[2])) << line;
  }
  std::istringstream log(run.log);
  std::string logged;
  for (std::string line; std::getline(log, line);) {
    if (line.rfind("[time] Error: damaged core file: ", 0) == 0) {
      logged += line + "\n";
    }
  }
  EXPECT_EQ(logged, LossLog(run.damage));
}

Names CoveredLines(const std::string& damage) {
  std::istringstream lines(damage);
  Names covered;
  for (std::string line; std::getline(lines, line);) {
    if (Losses::Covers(line)) {
      covered.push_back(line);
    }
  }
  return covered;
}

TEST_P(DamagedFieldsTest, LoseWhatHangsOnThemAndNothingElse) {
  const uint64_t record = GetParam().place(sample::Place(SmallDump()));
  for (const Field& field : GetParam().fields) {
    for (const uint64_t value : ValuesOf(field.width)) {
      SCOPED_TRACE(std::string(field.name) + " = " + std::to_string(value));
      std::string bytes = good_;
      SetField(bytes, record + field.offset, field.width, value);
      const AnalyserRun run = Run(bytes);
      const Losses expected(bytes);
      EXPECT_EQ(run.loaded, expected.is_loaded());
      EXPECT_EQ(CoveredLines(run.damage), expected.lines());
      ExpectLossLines(run);
      if (run.loaded) {
        ExpectOtherReports(run);
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(, DamagedFieldsTest, testing::ValuesIn(kRecords), RowName<Record>);

}  // namespace
