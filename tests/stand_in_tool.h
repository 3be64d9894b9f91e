// A ROCm directory of a test's own, whose llvm-objdump is whatever the test wants it to be.
#pragma once

#include <filesystem>
#include <string>
#include <utility>

#include "temp_dir.h"

class StandInRocm {
 public:
  // `path` need not exist; without one of the calls below the directory has no tool.
  explicit StandInRocm(std::string path) : path_(std::move(path)) {}

  const std::string& Path() const { return path_; }
  std::string ToolPath() const { return path_ + "/llvm/bin/llvm-objdump"; }

  // The tool is a shell script. Of its arguments, $1 to $5 are always the same but for the
  // processor in $2; a window's start and stop are $6 and $7, and the code object's path comes
  // last.
  void InstallScript(const std::string& commands) const { InstallFile("#!/bin/sh\n" + commands); }

  // The tool is an executable file that holds just `text`.
  void InstallFile(const std::string& text) const {
    MakeDirectory();
    WriteText(ToolPath(), text);
    std::filesystem::permissions(ToolPath(), std::filesystem::perms::owner_all);
  }

  // The tool is another program.
  void InstallLink(const std::string& program) const {
    MakeDirectory();
    std::filesystem::create_symlink(program, ToolPath());
  }

 private:
  void MakeDirectory() const {
    std::filesystem::create_directories(std::filesystem::path(ToolPath()).parent_path());
  }

  std::string path_;
};

// What is reported of the code object at `path` when the tool fails.
inline std::string DisassemblyUnavailable(const std::string& path) {
  return "Code Object:\n" + path +
         "\n\n(Disassembly unavailable - is amdgcn-capable llvm-objdump available ?)\n\n";
}
