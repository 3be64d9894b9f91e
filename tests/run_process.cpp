#include "run_process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string_view>

#include "captured_output.h"

namespace {

using File = std::unique_ptr<FILE, int (*)(FILE*)>;

File TemporaryFile() {
  File file(tmpfile(), &fclose);
  if (file == nullptr) {
    throw std::runtime_error("cannot make a temporary file");
  }
  return file;
}

std::string_view NameOf(std::string_view entry) { return entry.substr(0, entry.find('=')); }

// The caller's environment with `changes` in place of the entries of the same names.
std::vector<std::string> Environment(const std::vector<std::string>& changes) {
  std::vector<std::string> entries = changes;
  for (char** inherited = environ; *inherited != nullptr; ++inherited) {
    bool replaced = false;
    for (const std::string& change : changes) {
      replaced = replaced || NameOf(change) == NameOf(*inherited);
    }
    if (!replaced) {
      entries.emplace_back(*inherited);
    }
  }
  return entries;
}

// What exec takes: pointers to the texts, then a null pointer.
std::vector<char*> Pointers(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (std::string& text : texts) {
    pointers.push_back(text.data());
  }
  pointers.push_back(nullptr);
  return pointers;
}

int WaitFor(pid_t child) {
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) {
      throw std::runtime_error("cannot wait for a child");
    }
  }
  return status;
}

}  // namespace

ProcessResult RunProcess(const std::string& program, const std::vector<std::string>& arguments,
                         const ProcessOptions& options) {
  std::vector<std::string> words = {program};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<std::string> environment = Environment(options.environment);
  const File out = TemporaryFile();
  const File err = TemporaryFile();

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, fileno(out.get()), 1);
  posix_spawn_file_actions_adddup2(&actions, fileno(err.get()), 2);
  if (!options.working_directory.empty()) {
    posix_spawn_file_actions_addchdir_np(&actions, options.working_directory.c_str());
  }
  pid_t child = 0;
  const int error = posix_spawn(&child, program.c_str(), &actions, nullptr, Pointers(words).data(),
                                Pointers(environment).data());
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) {
    throw std::runtime_error("cannot run " + program + ": " + strerror(error));
  }

  const int status = WaitFor(child);
  ProcessResult result;
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  result.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
  result.out = ReadStream(out.get());
  result.err = ReadStream(err.get());
  return result;
}

void ExpectFailedRun(const ProcessResult& result, const std::string& log) {
  EXPECT_EQ(result.status, 255);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(WithoutTimes(result.err), log);
}
