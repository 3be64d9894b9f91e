// Runs a program as its user would and keeps what it said.
#pragma once

#include <string>
#include <vector>

struct ProcessResult {
  int status = -1;  // exit status; -1 when a signal ended the program
  int signal = 0;   // the signal that ended it; 0 when it exited
  std::string out;
  std::string err;
};

struct ProcessOptions {
  std::string working_directory;         // empty: that of the caller
  std::vector<std::string> environment;  // "NAME=value", in place of or beside the caller's
};

// In the environment of a run that may fail: such a run leaves its analyser to the system, on
// purpose, which a leak checker in the program must not count.
inline constexpr char kNoLeakCheck[] = "ASAN_OPTIONS=detect_leaks=0";

// Runs the executable at `program` to its end; standard input is empty. Output goes through files,
// so that no amount of it can make the two wait for each other. A program that cannot be started
// throws std::runtime_error.
ProcessResult RunProcess(const std::string& program, const std::vector<std::string>& arguments,
                         const ProcessOptions& options = {});

// Expects the end of a run that failed: status 255, nothing on standard output and `log` on
// standard error, time stamps as "[time]".
void ExpectFailedRun(const ProcessResult& result, const std::string& log);
