// Runs of the program as its user starts it, and core files for them.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "captured_output.h"
#include "core_file_writer.h"
#include "run_process.h"
#include "temp_dir.h"

// A core file of a signal dump without agents, queues and code objects.
inline sample::CoreFile SmallCore() {
  sample::CoreFile file;
  file.reason.reason = 2;
  file.reason.sig = 15;
  file.environment = "HOME=/root\n";
  return file;
}

// A core file of a VM fault with one agent, an AQL queue, an SDMA queue and a code object.
inline sample::CoreFile WholeCore() {
  sample::CoreFile file;
  file.reason.reason = 1;
  file.reason.agent_name = "gfx-node";
  sample::Agent agent;
  agent.name = "gfx-node";
  agent.gpu_id = 100;
  agent.node_id = 1;
  agent.chip_id = 0x5001;
  agent.handle = 0x10;
  file.agents = {agent};
  sample::Queue aql;
  aql.queue_id = 7;
  aql.gpu_id = 100;
  aql.queue_type = 2;
  aql.ring = std::string(64, '\0');
  aql.header_backup = {0};
  aql.context = sample::ContextAreaBytes({});
  sample::Queue sdma;
  sdma.queue_id = 8;
  sdma.gpu_id = 100;
  sdma.queue_type = 1;
  sdma.ring = std::string(4, '\0');
  file.queues = {aql, sdma};
  sample::CodeObject code_object;
  code_object.agent = 0x10;
  code_object.elf = "elf";
  file.code_objects = {code_object};
  return file;
}

// Runs the program in a fresh directory.
class CommandLineTest : public testing::Test {
 protected:
  using Names = std::vector<std::string>;
  using Words = std::vector<std::string>;

  ProcessResult Run(const Words& arguments, const Words& environment = {}) {
    return RunProcess(TALVEX_BINARY, arguments,
                      {.working_directory = dir_.Path(), .environment = environment});
  }

  // A run that fails and has `log` on standard error.
  void ExpectFailure(const Words& arguments, const std::string& log) {
    ExpectFailedRun(Run(arguments, {kNoLeakCheck}), log);
  }

  void WriteCore(const sample::CoreFile& file, const std::string& name = "core_0") {
    ASSERT_TRUE(sample::WriteCoreFile(file, dir_.Path(name)));
  }

  // What is printed with the log level "info", time stamps as "[time]".
  std::string InfoLog(Words arguments) {
    arguments.insert(arguments.end(), {"-l", "info"});
    return WithoutTimes(Run(arguments).out);
  }

  std::string DebugLog(Words arguments) {
    arguments.insert(arguments.end(), {"-l", "debug"});
    return WithoutTimes(Run(arguments).out);
  }

  TempDir dir_;
};
