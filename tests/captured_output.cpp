#include "captured_output.h"

#include <unistd.h>

#include <regex>
#include <stdexcept>

#include "logger.h"

void OutputCapture::Redirection::Start() {
  original = dup(descriptor);
  file = tmpfile();
  if (original < 0 || file == nullptr || dup2(fileno(file), descriptor) < 0) {
    throw std::runtime_error("cannot redirect a standard stream");
  }
}

std::string OutputCapture::Redirection::Stop() {
  dup2(original, descriptor);
  close(original);
  std::string text = ReadStream(file);
  fclose(file);
  file = nullptr;
  return text;
}

OutputCapture::OutputCapture() {
  fflush(nullptr);
  out_.Start();
  err_.Start();
}

OutputCapture::~OutputCapture() {
  if (out_.file != nullptr) {
    Stop();
  }
}

Output OutputCapture::Stop() {
  fflush(nullptr);
  return {out_.Stop(), err_.Stop()};
}

ScopedLogLevel::ScopedLogLevel(const std::string& level) { utils::SetLogLevel(level); }

ScopedLogLevel::~ScopedLogLevel() { utils::SetLogLevel("error"); }

std::string WithoutTimes(const std::string& log) {
  static const std::regex kTime(R"(\[\d{4}/\d\d/\d\d \d\d:\d\d:\d\d \d{6}\])");
  return std::regex_replace(log, kTime, "[time]");
}

std::string ReadStream(FILE* file) {
  rewind(file);
  std::string text;
  char block[4096];
  for (size_t n = fread(block, 1, sizeof(block), file); n != 0;
       n = fread(block, 1, sizeof(block), file)) {
    text.append(block, n);
  }
  return text;
}
