#include "core_dump_info/disassembler.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <cstdlib>
#include <optional>
#include <utility>
#include <vector>

#include "file_manager.h"
#include "logger.h"
#include "utils.h"

namespace {

constexpr int64_t kWindow = 0x20;  // bytes on either side of the offset

// Where the processor number stands in an agent's name.
constexpr size_t kNumberIndex = 7;
constexpr size_t kOrvenNumberIndex = 9;

class FileDescriptor {
 public:
  explicit FileDescriptor(int fd) : fd_(fd) {}
  ~FileDescriptor() { Close(); }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;

  int get() const { return fd_; }
  void Close() {
    if (fd_ >= 0) {
      close(std::exchange(fd_, -1));
    }
  }

 private:
  int fd_;
};

class StringSink : public DisassemblySink {
 public:
  explicit StringSink(std::string& text) : text_(text) {}
  void Restart() override { text_.clear(); }
  void Add(std::string_view piece) override { text_ += piece; }

 private:
  std::string& text_;
};

std::string McpuOption(const std::string& agent_name) {
  const bool is_orven = agent_name.find("ORVEN") != std::string::npos;
  const size_t index = is_orven ? kOrvenNumberIndex : kNumberIndex;
  const int number = index < agent_name.size() ? atoi(agent_name.c_str() + index) : 0;
  return StrFormat("--mcpu=gfx%" PRIu64, static_cast<uint64_t>(int64_t{number}));
}

std::vector<std::string> Arguments(const DisassemblyJob& job, const std::string& code_object_file) {
  std::vector<std::string> arguments = {"llvm-objdump",
                                        "--triple=amdgcn-amd-amdhsa",
                                        McpuOption(job.agent_name),
                                        "--disassemble",
                                        "--source",
                                        "--line-numbers"};
  if (job.dis_offset != kWholeObject) {
    // Not clamped at 0: the tool takes a wrapped start for one beyond every address.
    const auto offset = static_cast<uint64_t>(job.dis_offset);
    arguments.push_back(StrFormat("--start-address=0X%" PRIX64, offset - kWindow));
    arguments.push_back(StrFormat("--stop-address=0X%" PRIX64, offset + kWindow));
  }
  arguments.push_back(code_object_file);
  return arguments;
}

// Starts `path` with its standard output and standard error on `output`. Nothing when it cannot be
// executed. posix_spawn shares the parent's memory until the exec, so that a child costs the same
// from a large process as from a small one; a fork would copy its page tables first.
std::optional<pid_t> Spawn(const std::string& path, const std::vector<std::string>& arguments,
                           int output) {
  std::vector<char*> argv;
  argv.reserve(arguments.size() + 2);
  for (const std::string& argument : arguments) {
    argv.push_back(const_cast<char*>(argument.c_str()));
  }
  argv.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, output, STDERR_FILENO);
  pid_t pid = 0;
  int error = posix_spawn(&pid, path.c_str(), &actions, nullptr, argv.data(), environ);
  if (error == ENOEXEC) {
    // A script without "#!" runs through the shell, as execlp would run it.
    static char shell[] = "/bin/sh";
    argv[0] = const_cast<char*>(path.c_str());
    argv.insert(argv.begin(), shell);
    error = posix_spawn(&pid, shell, &actions, nullptr, argv.data(), environ);
  }
  posix_spawn_file_actions_destroy(&actions);
  return error == 0 ? std::optional<pid_t>(pid) : std::nullopt;
}

// Reads `fd` to its end.
void Drain(int fd, DisassemblySink& sink) {
  // As much as a pipe holds: fewer, larger reads than the page-sized ones that a listing of several
  // megabytes would need.
  std::vector<char> buffer(size_t{64} << 10);
  for (;;) {
    const ssize_t count = read(fd, buffer.data(), buffer.size());
    if (count > 0) {
      sink.Add({buffer.data(), static_cast<size_t>(count)});
    } else if (count == 0 || errno != EINTR) {
      return;
    }
  }
}

// True when the child exited with status 0.
bool Reap(pid_t pid) {
  int child_status = 0;
  pid_t reaped;
  do {
    reaped = waitpid(pid, &child_status, 0);
  } while (reaped == -1 && errno == EINTR);
  return reaped != -1 && child_status == 0;
}

}  // namespace

void LogDisassembly(const DisassemblyJob& job) {
  utils::Log(utils::kLogDebug, "DisCodeObject agent name:%s code object name: %s\n",
             job.agent_name.c_str(), job.code_object_name.c_str());
}

bool Disassemble(const DisassemblyJob& job, DisassemblySink& sink) {
  const std::string llvm_objdump = job.rocm_dir + "/llvm/bin/llvm-objdump";
  if (!IsFileExist(llvm_objdump)) {
    utils::Log(utils::kLogError, "Can't find llvm-objdump in path: %s", llvm_objdump.c_str());
    return false;
  }
  LogDisassembly(job);
  const std::string code_object_file = job.dump_code_dir + "/" + job.code_object_name;
  if (!IsFileExist(code_object_file)) {
    utils::Log(utils::kLogError, "Can't find file: %s", code_object_file.c_str());
    return false;
  }
  // Close-on-exec: a child that another thread starts in between must not keep this pipe open, or
  // this listing would wait for a stranger's child.
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) {
    utils::Log(utils::kLogError, "Failed to create pipe");
    return false;
  }
  FileDescriptor read_end(ends[0]);
  FileDescriptor write_end(ends[1]);

  sink.Restart();
  sink.Add("Code Object:\n");
  const std::optional<pid_t> child =
      Spawn(llvm_objdump, Arguments(job, code_object_file), write_end.get());
  write_end.Close();
  Drain(read_end.get(), sink);
  read_end.Close();
  if (!child || !Reap(*child)) {
    sink.Restart();
    sink.Add("Code Object:\n" + code_object_file +
             "\n\n(Disassembly unavailable - is amdgcn-capable llvm-objdump available ?)\n\n");
    return true;
  }
  if (job.dis_offset != kWholeObject) {
    sink.Add(StrFormat("\nPC offset: 0X%" PRIX64 "\n\n", static_cast<uint64_t>(job.dis_offset)));
  }
  return true;
}

bool DisCodeObject(const std::string& agent_name, const std::string& code_object_name,
                   int64_t dis_offset, std::string& dis_code, std::string rocm_dir_,
                   std::string dump_code_dir_) {
  StringSink sink(dis_code);
  return Disassemble(
      {agent_name, code_object_name, dis_offset, std::move(rocm_dir_), std::move(dump_code_dir_)},
      sink);
}
