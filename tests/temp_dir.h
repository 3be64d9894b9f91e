// Directories that a test may fill as it likes, and looks at the files in them.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

// A fresh, empty directory under the system's directory for temporary files; it and all that is in
// it go with the object. Its path is absolute and free of symbolic links, so that it can be
// compared with what getcwd gives.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& Path() const { return path_; }
  // The path of `name` in the directory, whether or not it exists.
  std::string Path(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

// Makes `dir` the working directory of the process until it goes.
class ScopedWorkingDirectory {
 public:
  explicit ScopedWorkingDirectory(const std::string& dir);
  ~ScopedWorkingDirectory();
  ScopedWorkingDirectory(const ScopedWorkingDirectory&) = delete;
  ScopedWorkingDirectory& operator=(const ScopedWorkingDirectory&) = delete;

 private:
  std::filesystem::path previous_;
};

// Every byte of the file. A file that cannot be read fails the test and gives the empty text.
std::string ReadText(const std::filesystem::path& path);

// Creates the file, or replaces what it held; a failure fails the test.
void WriteText(const std::filesystem::path& path, const std::string& text);

// Every file and directory below `root`, as sorted relative paths; directories end in "/".
std::vector<std::string> ListTree(const std::filesystem::path& root);
