#include "analyser_run.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <sstream>
#include <string_view>

#include "captured_output.h"
#include "core_dump_info.h"
#include "damaged_file.h"
#include "temp_dir.h"

namespace {

namespace fs = std::filesystem;

constexpr std::string_view kCodeObject = "code_object_";

// The number of the first code object of the run; 0 without one, when there is none to rename.
int FirstNumber(const CoreDumpInfo& analyser) {
  if (analyser.code_object_lists.empty()) {
    return 0;
  }
  return atoi(analyser.code_object_lists.front()->name + kCodeObject.size());
}

// Code objects are numbered through the whole process: `text` with every number `first` lower.
std::string Renumbered(const std::string& text, int first) {
  std::string result;
  size_t done = 0;
  for (size_t found = text.find(kCodeObject); found != std::string::npos;
       found = text.find(kCodeObject, done)) {
    const size_t number = found + kCodeObject.size();
    const size_t end = std::min(text.find_first_not_of("0123456789", number), text.size());
    result += text.substr(done, number - done);
    if (end > number) {
      result += std::to_string(atoi(text.c_str() + number) - first);
    }
    done = end;
  }
  return result + text.substr(done);
}

std::string Take(std::map<std::string, std::string>& files, const std::string& path) {
  const auto node = files.extract(path);
  return node.empty() ? std::string() : node.mapped();
}

}  // namespace

AnalyserRun Analyse(const std::string& core_file, const AnalyserRunOptions& options) {
  const TempDir dir;
  const std::string out = dir.Path("out");
  const std::string mem_dir = options.mem_dir.empty() ? dir.Path("mems") : options.mem_dir;
  const std::string rocm_dir = options.rocm_dir.empty() ? dir.Path("rocm") : options.rocm_dir;
  const std::unique_ptr<char[]> image(new char[core_file.size()]);
  memcpy(image.get(), core_file.data(), core_file.size());

  AnalyserRun run;
  CoreDumpInfo analyser;
  analyser.SetImageSize(core_file.size());
  OutputCapture capture;
  run.loaded = analyser.init(reinterpret_cast<uint64_t>(image.get()), out.c_str(), rocm_dir.c_str(),
                             mem_dir.c_str(), false);
  if (run.loaded) {
    EXPECT_TRUE(analyser.dump());
  }
  const Output output = capture.Stop();
  EXPECT_EQ(output.out, "");

  const int first = FirstNumber(analyser);
  run.log = Renumbered(WithoutTimes(output.err), first);
  for (const std::string& path : ListTree(dir.Path())) {
    if (path.back() == '/') {
      continue;
    }
    const std::string in_out = fs::path(path).lexically_relative("out").string();
    EXPECT_NE(in_out.substr(0, 2), "..") << path << " is outside the output directory";
    run.files[Renumbered(in_out, first)] = Renumbered(ReadText(dir.Path(path)), first);
  }
  run.damage = Take(run.files, "damage");
  return run;
}

void ExpectDamage(const AnalyserRun& run, const std::string& damage) {
  EXPECT_TRUE(run.loaded);
  EXPECT_EQ(run.damage, damage);
  EXPECT_EQ(run.log, LossLog(damage));
}

std::string WhereWavesRan(const std::string& waves) {
  std::istringstream lines(waves);
  std::string where;
  for (std::string line; std::getline(lines, line);) {
    if (line.rfind("Total ", 0) == 0 || line.rfind("se", 0) == 0) {
      where += line + "\n";
    }
  }
  return where;
}
