// File helpers: the only way output reaches the disk.
//
// They take a directory and a file name, create the directory chain on demand, and report success
// as a bool without printing; errno holds the cause of a failed system call.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

// True when a file of any kind, directories included, has that name. False for an empty name.
bool IsFileExist(const std::string& file);

// True when `dir` names a directory. False for an empty name.
bool IsDirectoryExist(const std::string& dir);

// Makes `dir` and every missing level above it, from the root: a relative name is rooted at "/", on
// purpose, so callers pass absolute ones. False when a level cannot be made.
bool CreateDirectory(const std::string& dir);

// How many bytes a file name in `dir` may have. What Linux allows at most when the file system does
// not say.
size_t LongestFileName(const std::string& dir);

// Copies `src_file` over `dst_file`. The destination is emptied even when the source cannot be
// read.
bool CopyFile(const std::string& dst_file, const std::string& src_file);

// Replaces `contents` with the text of `file`. For small texts: each block of 4096 bytes ends at
// its first zero byte.
bool ReadFile(const std::string& file, std::string& contents);

// Writes the `size` bytes at memory address `address` to `dir`/`file_name`, created or replaced.
// False when a name is empty, the directory or file cannot be made, or address or size is 0 (the
// directory exists then all the same). A write that comes up short returns true; it is counted, see
// GetIncompleteWrites.
bool WriteBinFile(const std::string& dir, const std::string& file_name, uint64_t address,
                  uint64_t size);

// Writes `contents` to `dir`/`file_name`, behind what is there with `append`, in its place without.
// An empty text gives an empty file. Failures as for WriteBinFile.
bool WriteTextFile(const std::string& dir, const std::string& file_name,
                   const std::string& contents, bool append);

// One output file, written piece by piece.
class OutputFile {
 public:
  OutputFile() = default;
  ~OutputFile();  // closes
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  // Creates or replaces `dir`/`file_name`, or opens it for writing behind what is there. Closes the
  // file that was open before. False when a name is empty or the directory or file cannot be made.
  bool Open(const std::string& dir, const std::string& file_name, bool append);
  bool is_open() const { return fd_ >= 0; }

  // Writes behind what was written; nothing when no file is open. The first write that the disk
  // does not take whole is counted, see GetIncompleteWrites, and is the last one. Whether the disk
  // took everything so far.
  bool Write(std::string_view bytes);

  void Close();

 private:
  void CountOnce(int cause);

  std::string path_;
  int fd_ = -1;
  bool is_whole_ = false;  // open, and the disk took every write
};

// Writes that the disk did not take whole: a short write, a failed close, or a file or directory
// that a full disk did not let begin.
struct IncompleteWrites {
  uint64_t count = 0;
  std::string first_path;  // the file of the first one
  int first_errno = 0;     // its cause
};

// What could not be written whole since the process started. Any thread may call it.
IncompleteWrites GetIncompleteWrites();

// A file without a name in a directory of the report tree, for text that is too large to hold.
// Gone with the object, or with the process. One that cannot be made counts as an incomplete write.
class ScratchFile {
 public:
  explicit ScratchFile(const std::string& dir);
  ~ScratchFile();
  ScratchFile(const ScratchFile&) = delete;
  ScratchFile& operator=(const ScratchFile&) = delete;

  // Bytes appended so far.
  uint64_t size() const { return size_; }

  // Appends `bytes` and returns how many of them the disk took; fewer count as an incomplete write.
  size_t Append(std::string_view bytes);

  // Reads up to `size` bytes at `offset` into `buffer` and returns how many; 0 on an error.
  size_t Read(uint64_t offset, char* buffer, size_t size) const;

 private:
  const std::string path_;  // names the file in messages
  int fd_;
  uint64_t size_ = 0;
};
