// The program's one logger: levels, time stamps, one lock.
//
// Messages carry their own line feed. Any thread may log.
#pragma once

#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <string>

namespace utils {

enum LogLevel {
  kLogNone = 0,
  kLogError = 1,
  kLogWarning = 2,
  kLogInfo = 3,
  kLogDebug = 4,
  kLogEnd = 5,  // count of the levels, never one itself
};

class Logger {
 public:
  // The logger of this process; lives until the process exits.
  static Logger* GetInstance();

  Logger(const Logger&) = delete;
  Logger& operator=(const Logger&) = delete;

  // Takes "error", "info" or "debug". Any other name leaves the level as it is and warns, which is
  // not seen at the default level: an unknown name is ignored in silence, on purpose.
  void SetLogLevel(const std::string& level);

  // Copies every later message to the file at `path` as well, which is created or emptied. An empty
  // path does nothing; a second file is refused with a warning.
  void SetLogFile(const std::string& path);

  LogLevel GetLogLevel();

  // Errors go to standard error, all else to standard output, behind "[time stamp] Tag: ". Levels
  // without a tag (kLogNone) get no time stamp either.
  void Write(LogLevel level, const std::string& message);
  void Write(LogLevel level, const char* format, ...) __attribute__((format(printf, 3, 4)));
  void Write(LogLevel level, const char* format, va_list args)
      __attribute__((format(printf, 3, 0)));

 protected:
  virtual ~Logger();

 private:
  Logger() = default;

  FILE* log_file_fp_ = nullptr;
  LogLevel log_level_ = kLogError;
  std::mutex access_lock_;
};

LogLevel GetLogLevel();
void SetLogLevel(const std::string& level);
void SetLogFile(const std::string& path);
void Print(LogLevel level, const std::string& message);
void Print(LogLevel level, const char* format, ...) __attribute__((format(printf, 2, 3)));
void Print(LogLevel level, const char* format, va_list args) __attribute__((format(printf, 2, 0)));

// Prints when `level` is seen at the level that is set: a suppressed message costs one comparison.
void Log(LogLevel level, const char* format, ...) __attribute__((format(printf, 2, 3)));

}  // namespace utils
