// What this process prints while a test looks, and the log level for a while.
#pragma once

#include <cstdio>
#include <string>

// What was written to the two standard streams.
struct Output {
  std::string out;
  std::string err;
};

// Leads the descriptors 1 and 2 into files from its construction to Stop, which gives what came in.
// Descriptors, not streams, so that children and other threads are captured as well.
class OutputCapture {
 public:
  OutputCapture();
  ~OutputCapture();
  OutputCapture(const OutputCapture&) = delete;
  OutputCapture& operator=(const OutputCapture&) = delete;

  Output Stop();

 private:
  struct Redirection {
    int descriptor;     // 1 or 2
    int original = -1;  // where it led before
    FILE* file = nullptr;

    void Start();
    std::string Stop();
  };

  Redirection out_{1};
  Redirection err_{2};
};

// Sets the log level by its name; the default, "error", is back when the object goes.
class ScopedLogLevel {
 public:
  explicit ScopedLogLevel(const std::string& level);
  ~ScopedLogLevel();
  ScopedLogLevel(const ScopedLogLevel&) = delete;
  ScopedLogLevel& operator=(const ScopedLogLevel&) = delete;
};

// `log` with every time stamp of the logger's form, "[2026/11/15 09:51:03 012345]", as "[time]".
std::string WithoutTimes(const std::string& log);

// The whole of an open file, from its start.
std::string ReadStream(FILE* file);
