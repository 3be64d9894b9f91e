#include "logger.h"

#include <cerrno>
#include <cstring>

#include "utils.h"

namespace utils {

namespace {

// What stands before a message of `level`: "[time stamp] Tag: ", or nothing for a level without
// tag.
std::string Prefix(LogLevel level) {
  const char* tag = "";
  switch (level) {
    case kLogError:
      tag = "Error: ";
      break;
    case kLogWarning:
      tag = "Warning: ";
      break;
    case kLogInfo:
      tag = "Info: ";
      break;
    case kLogDebug:
      tag = "Debug: ";
      break;
    default:
      return {};
  }
  return StrFormat("[%s] %s", GetSystemTime(true).c_str(), tag);
}

FILE* Stream(LogLevel level) { return level == kLogError ? stderr : stdout; }

std::string AppName() {
  std::string name;
  getAppFileName(name);
  return name;
}

}  // namespace

Logger* Logger::GetInstance() {
  static Logger instance;
  return &instance;
}

Logger::~Logger() {
  if (log_file_fp_ != nullptr) {
    fclose(log_file_fp_);
  }
}

void Logger::SetLogLevel(const std::string& level) {
  if (level == "error") {
    log_level_ = kLogError;
  } else if (level == "info") {
    log_level_ = kLogInfo;
  } else if (level == "debug") {
    log_level_ = kLogDebug;
  } else {
    Write(kLogWarning, "Invalid log level, set to default\n");
  }
}

void Logger::SetLogFile(const std::string& path) {
  if (path.empty()) {
    return;
  }
  if (log_file_fp_ != nullptr) {
    Write(kLogWarning, "The Log file is already set, ignore\n");
    return;
  }
  log_file_fp_ = fopen(path.c_str(), "we");
  if (log_file_fp_ == nullptr) {
    Write(kLogWarning, "Failed to open '%s': %s\n", path.c_str(), strerror(errno));
  }
}

LogLevel Logger::GetLogLevel() { return log_level_; }

void Logger::Write(LogLevel level, const std::string& message) {
  Write(level, "%s", message.c_str());
}

void Logger::Write(LogLevel level, const char* format, ...) {
  va_list args;
  va_start(args, format);
  Write(level, format, args);
  va_end(args);
}

void Logger::Write(LogLevel level, const char* format, va_list args) {
  if (log_level_ < level) {
    return;
  }
  const std::string prefix = Prefix(level);
  FILE* stream = Stream(level);
  const std::lock_guard<std::mutex> lock(access_lock_);
  if (log_file_fp_ != nullptr) {
    fprintf(log_file_fp_, "[%s] %s", AppName().c_str(), prefix.c_str());
    va_list copy;
    va_copy(copy, args);
    vfprintf(log_file_fp_, format, copy);
    va_end(copy);
    fflush(log_file_fp_);
  }
  fputs(prefix.c_str(), stream);
  vfprintf(stream, format, args);
  fflush(stream);
}

LogLevel GetLogLevel() { return Logger::GetInstance()->GetLogLevel(); }

void SetLogLevel(const std::string& level) { Logger::GetInstance()->SetLogLevel(level); }

void SetLogFile(const std::string& path) { Logger::GetInstance()->SetLogFile(path); }

void Print(LogLevel level, const std::string& message) {
  Logger::GetInstance()->Write(level, message);
}

void Print(LogLevel level, const char* format, ...) {
  va_list args;
  va_start(args, format);
  Logger::GetInstance()->Write(level, format, args);
  va_end(args);
}

void Print(LogLevel level, const char* format, va_list args) {
  Logger::GetInstance()->Write(level, format, args);
}

void Log(LogLevel level, const char* format, ...) {
  if (GetLogLevel() >= level) {
    va_list args;
    va_start(args, format);
    Print(level, format, args);
    va_end(args);
  }
}

}  // namespace utils
