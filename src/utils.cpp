#include "utils.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <string_view>

namespace {

constexpr size_t kTextBufferSize = 1024;

tm LocalTime(time_t seconds) {
  tm fields{};
  localtime_r(&seconds, &fields);
  return fields;
}

std::string_view StripBlanks(std::string_view piece) {
  const size_t first = piece.find_first_not_of(' ');
  if (first == std::string_view::npos) {
    return {};
  }
  return piece.substr(first, piece.find_last_not_of(' ') - first + 1);
}

}  // namespace

std::string GetSystemTime(bool format) {
  timeval now{};
  gettimeofday(&now, nullptr);
  if (format) {
    return SystemTimeFormat(now);
  }
  const tm t = LocalTime(now.tv_sec);
  char buffer[kTextBufferSize] = {};
  snprintf(buffer, sizeof(buffer), "%04d%02d%02d%02d%02d%02d", t.tm_year + 1900, t.tm_mon + 1,
           t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec);
  return buffer;
}

std::string SystemTimeFormat(timeval& timestamp) {
  const tm t = LocalTime(timestamp.tv_sec);
  char buffer[kTextBufferSize] = {};
  snprintf(buffer, sizeof(buffer), "%04d/%02d/%02d %02d:%02d:%02d %06ld", t.tm_year + 1900,
           t.tm_mon + 1, t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec, timestamp.tv_usec);
  return buffer;
}

std::string StrFormat(const char* format, ...) {
  va_list args;
  va_start(args, format);
  va_list measured;
  va_copy(measured, args);
  const int length = vsnprintf(nullptr, 0, format, measured);
  va_end(measured);

  std::string text;
  if (length > 0) {
    text.resize(static_cast<size_t>(length));
    // The terminator that vsnprintf adds lands on the one the string already keeps behind its text.
    vsnprintf(text.data(), text.size() + 1, format, args);
  }
  va_end(args);
  return text;
}

void getAppFileName(std::string& appName) {
  appName.clear();
  char target[kTextBufferSize];
  const ssize_t length = readlink("/proc/self/exe", target, sizeof(target));
  if (length < 1) {
    return;
  }
  const std::string_view path(target, static_cast<size_t>(length));
  appName = path.substr(path.rfind('/') + 1);
}

void GetEnvironment(std::string& info) {
  for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
    info += *entry;
    info += '\n';
  }
}

bool MemoryMapFile(const char* fname, void** mmap_ptr, size_t* mmap_size) {
  if (mmap_ptr == nullptr || mmap_size == nullptr) {
    return false;
  }
  // O_NONBLOCK changes nothing for a file; it keeps a FIFO in its place from holding the run for
  // ever.
  const int fd = open(fname, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) {
    return false;
  }
  struct stat status {};
  if (fstat(fd, &status) != 0) {
    close(fd);
    return false;
  }
  *mmap_size = static_cast<size_t>(status.st_size);
  *mmap_ptr = mmap(nullptr, *mmap_size, PROT_READ, MAP_SHARED, fd, 0);
  close(fd);
  return *mmap_ptr != nullptr;
}

bool MemoryUnmapFile(const void* mmap_ptr, size_t mmap_size) {
  return munmap(const_cast<void*>(mmap_ptr), mmap_size) == 0;
}

void MapPages(const void* ptr, size_t size) {
  static const auto page_size = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
  const auto begin = reinterpret_cast<uintptr_t>(ptr);
  const uintptr_t first_page = begin / page_size * page_size;
  madvise(reinterpret_cast<void*>(first_page), begin + size - first_page, MADV_POPULATE_READ);
}

void SplitStr(const std::string& str, const std::string& del, std::vector<std::string>& out) {
  if (str.empty() || del.empty()) {
    return;
  }
  // A delimiter behind the text ends its last piece. What a delimiter that overlaps itself leaves
  // over is dropped.
  const std::string delimited = str + del;
  std::string_view rest = delimited;
  for (size_t pos = rest.find(del); pos != std::string_view::npos; pos = rest.find(del)) {
    out.emplace_back(StripBlanks(rest.substr(0, pos)));
    rest.remove_prefix(pos + del.size());
  }
}
