// A run of the analyser inside the test, over a core file of exactly the given bytes.
#pragma once

#include <map>
#include <string>

struct AnalyserRun {
  bool loaded = false;                       // what init returned; dump follows only then
  std::string log;                           // standard error, time stamps as "[time]"
  std::string damage;                        // the file `damage`; empty without one
  std::map<std::string, std::string> files;  // every other file of the tree, by its path in it

  bool Has(const std::string& path) const { return files.count(path) != 0; }
};

struct AnalyserRunOptions {
  std::string mem_dir;   // empty: one that does not exist
  std::string rocm_dir;  // likewise
};

// Runs init and dump over a heap block just as long as `core_file`, so that a sanitizer sees every
// read beyond it. The first code object is code_object_0 in all that comes back, whatever ran in
// this process before. Anything written outside the output directory fails the test.
AnalyserRun Analyse(const std::string& core_file, const AnalyserRunOptions& options = {});

// Expects that the file was loaded and that nothing was said but of these losses.
void ExpectDamage(const AnalyserRun& run, const std::string& damage);

// Of a queue's wave report its count line and the lines that say where each wave ran.
std::string WhereWavesRan(const std::string& waves);
