// The command line and the run, nothing else.

#include <sys/mman.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "core_dump_info.h"
#include "file_manager.h"
#include "logger.h"
#include "utils.h"

namespace {

constexpr int kMajor = 1;
constexpr int kMinor = 1;
constexpr int kPatch = 0;

constexpr int kBadArgument = 1;  // exit status; a failed run ends with -1, which is 255

// The run settings: filled by parseArguments, then only read. Texts are those of argv.
const char* input_file = "core_0";
const char* output_dir = nullptr;  // null: the working directory
const char* mem_dir = nullptr;     // null: "mems" under the working directory
const char* rocm_dir = "/opt/rocm";
const char* log_level = "error";
bool dis_all = false;

struct ValueOption {
  const char* long_name;
  const char* short_name;
  const char** setting;
  const char* missing;  // what is said when no value follows
};

constexpr ValueOption kValueOptions[] = {
    {"--input", "-i", &input_file, "Bad input argument"},
    {"--output", "-o", &output_dir, "Bad output argument"},
    {"--mem_dir", "-m", &mem_dir, "Bad mem dir argument"},
    {"--rocm_dir", "-r", &rocm_dir, "Bad rocm dir argument"},
    {"--log_level", "-l", &log_level, "Bad log level argument"},
};

bool Is(const char* word, const char* long_name, const char* short_name) {
  return strcmp(word, long_name) == 0 || strcmp(word, short_name) == 0;
}

const ValueOption* FindValueOption(const char* word) {
  for (const ValueOption& option : kValueOptions) {
    if (Is(word, option.long_name, option.short_name)) {
      return &option;
    }
  }
  return nullptr;
}

void help() {
  puts("Usage: talvex [OPTIONS]");
  puts("  --input, -i         : Input core file. Default file: 'core_0'.");
  puts("  --output, -o        : Output dir(absolute path). Default in current directory");
  puts("  --mem_dir, -m       : Mem dir(absolute path). Default in current directory.");
  puts("  --rocm_dir, -r      : Rocm dir(absolute path). Default in '/opt/rocm'.");
  puts("  --log_level, -l     : Specify the log level (error, info, debug). Default is 'error'.");
  puts("  --dis_all           : Enable disassembe all code object. Default is disable.");
  puts("  --version, -v       : Show version.");
  puts("  --help, -h          : Help information.");
}

void showVersion() { printf("version: %d.%d.%d\n", kMajor, kMinor, kPatch); }

[[noreturn]] void ExitWithBadArgument(const std::string& message) {
  printf("error: ");
  printf("%s", message.c_str());
  putchar('\n');
  exit(kBadArgument);
}

// Fills the settings from the command line; always returns 0. Ends the process for --help,
// --version and every word that it does not know or whose value is missing.
int parseArguments(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    const char* word = argv[i];
    if (strcmp(word, " ") == 0) {
      continue;  // a lone blank is no argument, on purpose: scripts leave one where a variable is
                 // empty
    }
    if (const ValueOption* option = FindValueOption(word)) {
      if (++i >= argc) {
        ExitWithBadArgument(option->missing);
      }
      *option->setting = argv[i];
    } else if (strcmp(word, "--dis_all") == 0) {
      dis_all = true;
    } else if (Is(word, "--version", "-v")) {
      showVersion();
      exit(0);
    } else if (Is(word, "--help", "-h")) {
      help();
      exit(0);
    } else {
      ExitWithBadArgument(StrFormat("Bad argument '%s'", word));
    }
  }
  return 0;
}

// Ends the run with status 255. Neither the analyser is deleted nor the file unmapped, on purpose:
// the system reclaims both.
[[noreturn]] void ExitWithError(const std::string& message) {
  utils::Log(utils::kLogError, "%s", message.c_str());
  exit(-1);
}

}  // namespace

// The analyser of the run. Neither a local of main nor of this file alone, so that it is still
// referred to when a failed run exits without deleting it: a leak checker would take it for lost.
CoreDumpInfo* CoreDumpManager = nullptr;

int main(int argc, char** argv) {
  parseArguments(argc, argv);
  utils::SetLogLevel(std::string(log_level));

  void* mmap_ptr = nullptr;
  size_t fsize_ = 0;
  if (!MemoryMapFile(input_file, &mmap_ptr, &fsize_)) {
    ExitWithError(StrFormat("Get file handle failed: %s\n", input_file));
  }
  CoreDumpManager = new CoreDumpInfo;
  // What the system refuses to map (an empty file, a directory) has no bytes to read.
  CoreDumpManager->SetImageSize(mmap_ptr == MAP_FAILED ? 0 : fsize_);
  if (!CoreDumpManager->init(reinterpret_cast<uint64_t>(mmap_ptr), output_dir, rocm_dir, mem_dir,
                             dis_all)) {
    ExitWithError("CoreDumpManager init failed.\n");
  }
  if (!CoreDumpManager->dump()) {
    ExitWithError("CoreDumpManager dump failed\n");
  }
  const IncompleteWrites incomplete = GetIncompleteWrites();
  if (incomplete.count != 0) {
    ExitWithError(StrFormat("incomplete writes: %lu, the first to %s: %s\n", incomplete.count,
                            incomplete.first_path.c_str(), strerror(incomplete.first_errno)));
  }
  delete CoreDumpManager;
  MemoryUnmapFile(mmap_ptr, fsize_);
  return 0;
}
