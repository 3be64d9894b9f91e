#include "file_manager.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <utility>
#include <vector>

#include "utils.h"

namespace {

constexpr size_t kBlockSize = 4096;

std::mutex g_incomplete_lock;
IncompleteWrites g_incomplete;  // guarded by g_incomplete_lock

void CountIncompleteWrite(const std::string& path, int cause) {
  const std::lock_guard<std::mutex> lock(g_incomplete_lock);
  if (g_incomplete.count++ == 0) {
    g_incomplete.first_path = path;
    g_incomplete.first_errno = cause;
  }
}

// A file or directory that a full disk does not even let begin is an incomplete write. Other causes
// are the caller's to report.
void CountWhenDiskIsFull(const std::string& path, int cause) {
  if (cause == ENOSPC || cause == EDQUOT) {
    CountIncompleteWrite(path, cause);
  }
}

// How much of a mapped file is written in one go: what MapPages has just mapped is still in the
// processor's second-level cache when the kernel copies it.
constexpr size_t kPieceSize = size_t{1} << 20;

}  // namespace

bool IsFileExist(const std::string& file) {
  return !file.empty() && access(file.c_str(), F_OK) == 0;
}

bool IsDirectoryExist(const std::string& dir) {
  struct stat status {};
  return !dir.empty() && stat(dir.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool CreateDirectory(const std::string& dir) {
  if (IsDirectoryExist(dir)) {
    return true;
  }
  std::vector<std::string> pieces;
  SplitStr(dir, "/", pieces);
  std::string path;
  for (const std::string& piece : pieces) {
    path += '/';
    path += piece;
    if (!IsDirectoryExist(path) && mkdir(path.c_str(), 0777) != 0 && errno != EEXIST) {
      CountWhenDiskIsFull(path, errno);
      return false;
    }
  }
  return true;
}

size_t LongestFileName(const std::string& dir) {
  const long longest = pathconf(dir.c_str(), _PC_NAME_MAX);
  return longest > 0 ? static_cast<size_t>(longest) : NAME_MAX;
}

bool CopyFile(const std::string& dst_file, const std::string& src_file) {
  if (dst_file.empty() || src_file.empty()) {
    return false;
  }
  FILE* dst = fopen(dst_file.c_str(), "wbe");
  if (dst == nullptr) {
    return false;
  }
  FILE* src = fopen(src_file.c_str(), "rbe");
  if (src == nullptr) {
    fclose(dst);
    return false;
  }
  char block[kBlockSize];
  for (size_t n = fread(block, 1, sizeof(block), src); n != 0;
       n = fread(block, 1, sizeof(block), src)) {
    fwrite(block, 1, n, dst);
  }
  fclose(src);
  fclose(dst);
  return true;
}

bool ReadFile(const std::string& file, std::string& contents) {
  if (file.empty()) {
    return false;
  }
  FILE* stream = fopen(file.c_str(), "re");
  if (stream == nullptr) {
    return false;
  }
  contents.clear();
  // One byte more than is ever read keeps the block terminated. It is not cleared between reads, on
  // purpose: behind a short block the text of the one before it still stands.
  char block[kBlockSize + 1] = {};
  while (fread(block, 1, kBlockSize, stream) != 0) {
    contents += block;
  }
  fclose(stream);
  return true;
}

OutputFile::~OutputFile() { Close(); }

bool OutputFile::Open(const std::string& dir, const std::string& file_name, bool append) {
  Close();
  if (dir.empty() || file_name.empty() || !CreateDirectory(dir)) {
    return false;
  }
  path_ = dir + "/" + file_name;
  fd_ = open(path_.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | (append ? O_APPEND : O_TRUNC), 0666);
  if (fd_ < 0) {
    CountWhenDiskIsFull(path_, errno);
  }
  is_whole_ = fd_ >= 0;
  return is_whole_;
}

bool OutputFile::Write(std::string_view bytes) {
  while (is_whole_ && !bytes.empty()) {
    const ssize_t count = write(fd_, bytes.data(), bytes.size());
    if (count > 0) {
      bytes.remove_prefix(static_cast<size_t>(count));
    } else if (count == 0 || errno != EINTR) {
      CountOnce(count == 0 ? ENOSPC : errno);
    }
  }
  return is_whole_;
}

void OutputFile::Close() {
  if (fd_ >= 0 && close(std::exchange(fd_, -1)) != 0) {
    CountOnce(errno);
  }
  is_whole_ = false;
}

void OutputFile::CountOnce(int cause) {
  if (is_whole_) {
    is_whole_ = false;
    CountIncompleteWrite(path_, cause);
  }
}

bool WriteBinFile(const std::string& dir, const std::string& file_name, uint64_t address,
                  uint64_t size) {
  if (dir.empty() || file_name.empty() || !CreateDirectory(dir) || address == 0 || size == 0) {
    return false;
  }
  OutputFile file;
  if (!file.Open(dir, file_name, false)) {
    return false;
  }
  std::string_view bytes(reinterpret_cast<const char*>(address), size);
  bool has_room = true;
  while (has_room && !bytes.empty()) {
    const std::string_view piece = bytes.substr(0, kPieceSize);
    MapPages(piece.data(), piece.size());
    has_room = file.Write(piece);
    bytes.remove_prefix(piece.size());
  }
  return true;
}

bool WriteTextFile(const std::string& dir, const std::string& file_name,
                   const std::string& contents, bool append) {
  OutputFile file;
  if (!file.Open(dir, file_name, append)) {
    return false;
  }
  file.Write(contents);
  return true;
}

IncompleteWrites GetIncompleteWrites() {
  const std::lock_guard<std::mutex> lock(g_incomplete_lock);
  return g_incomplete;
}

ScratchFile::ScratchFile(const std::string& dir) : path_(dir + "/scratch.XXXXXX"), fd_(-1) {
  // mkostemp and unlink rather than O_TMPFILE, which not every file system has.
  std::string path = path_;
  if (CreateDirectory(dir)) {
    fd_ = mkostemp(path.data(), O_CLOEXEC);
  }
  if (fd_ >= 0) {
    unlink(path.c_str());
  } else {
    CountIncompleteWrite(path_, errno);
  }
}

ScratchFile::~ScratchFile() {
  if (fd_ >= 0) {
    close(fd_);
  }
}

size_t ScratchFile::Append(std::string_view bytes) {
  size_t done = 0;
  while (fd_ >= 0 && done < bytes.size()) {
    const ssize_t count =
        pwrite(fd_, bytes.data() + done, bytes.size() - done, static_cast<off_t>(size_));
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count <= 0) {
      CountIncompleteWrite(path_, count == 0 ? ENOSPC : errno);
      break;
    }
    done += static_cast<size_t>(count);
    size_ += static_cast<uint64_t>(count);
  }
  return done;
}

size_t ScratchFile::Read(uint64_t offset, char* buffer, size_t size) const {
  const ssize_t count = pread(fd_, buffer, size, static_cast<off_t>(offset));
  return count > 0 ? static_cast<size_t>(count) : 0;
}
