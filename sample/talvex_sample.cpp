// Writes sample dumps: a core file and a memory directory.
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "code_object_file.h"
#include "dump_builder.h"
#include "dump_options.h"

namespace {

int Fail(const std::string& cause) {
  fprintf(stderr, "talvex-sample: %s\n", cause.c_str());
  return 1;
}

bool LoadCodeObjects(const std::vector<std::string>& paths,
                     std::vector<sample::CodeObjectFile>& files, std::string& error) {
  bool has_kernel = false;
  for (const std::string& path : paths) {
    if (!sample::LoadCodeObjectFile(path, files.emplace_back(), error)) {
      return false;
    }
    has_kernel = has_kernel || !files.back().kernels.empty();
  }
  if (!has_kernel) {
    error = "found no kernel in the code objects, expected at least one";
  }
  return has_kernel;
}

std::string NoBundledKernels() {
  std::string cause = "found no kernels, neither in";
  const char* separator = " ";
  for (const std::string& directory : sample::BundledKernelDirectories()) {
    cause += separator + directory;
    separator = " nor in ";
  }
  return cause + "; name code objects with --code-object";
}

int Run(const sample::DumpOptions& options) {
  std::vector<std::string> paths = options.code_objects;
  if (paths.empty()) {
    paths = sample::BundledCodeObjects();
    if (paths.empty()) {
      return Fail(NoBundledKernels());
    }
  }
  std::vector<sample::CodeObjectFile> code_objects;
  std::string error;
  if (!LoadCodeObjects(paths, code_objects, error)) {
    return Fail(error);
  }
  std::error_code cause;
  std::filesystem::create_directories(options.output, cause);
  if (cause) {
    return Fail("cannot make " + options.output + ": " + cause.message());
  }
  const sample::Dump dump = sample::BuildDump(options, code_objects);
  const std::string core_path = options.output + "/core_0";
  if (!sample::WriteCoreFile(dump.core, core_path)) {
    return Fail("cannot write " + core_path + ": " + strerror(errno));
  }
  const std::string memory_path = options.output + "/mems";
  if (!sample::WriteMemoryDirectory(dump.memory, memory_path)) {
    return Fail("cannot write " + memory_path + ": " + strerror(errno));
  }
  printf("wrote %s (%" PRIu64 " bytes) and %s\n", core_path.c_str(),
         sample::Place(dump.core).file_size, memory_path.c_str());
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  sample::DumpOptions options;
  std::string error;
  if (!sample::ParseDumpOptions({argv + 1, argv + argc}, options, error)) {
    return Fail(error);
  }
  if (options.help) {
    fputs(sample::kDumpHelp, stdout);
    return 0;
  }
  return Run(options);
}
