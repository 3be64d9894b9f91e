#include "logger.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdarg>
#include <functional>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "captured_output.h"
#include "temp_dir.h"

namespace {

using utils::LogLevel;

static_assert(!std::is_copy_constructible_v<utils::Logger>);
static_assert(!std::is_copy_assignable_v<utils::Logger>);
static_assert(utils::kLogNone == 0 && utils::kLogError == 1 && utils::kLogWarning == 2);
static_assert(utils::kLogInfo == 3 && utils::kLogDebug == 4 && utils::kLogEnd == 5);

// What `body` logs at `level`, time stamps as "[time]".
Output Logged(const std::string& level, const std::function<void()>& body) {
  const ScopedLogLevel scope(level);
  OutputCapture capture;
  body();
  const Output output = capture.Stop();
  return {WithoutTimes(output.out), WithoutTimes(output.err)};
}

// The same in a child process, whose log file ends with it: a process has at most one.
Output LoggedInChild(const std::string& level, const std::function<void()>& body) {
  OutputCapture capture;
  const pid_t child = fork();
  if (child == 0) {
    utils::SetLogLevel(level);
    body();
    _exit(0);
  }
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  return capture.Stop();
}

void PrintOneOfEach() {
  utils::Print(utils::kLogError, "error %d\n", 1);
  utils::Print(utils::kLogWarning, "warning %d\n", 2);
  utils::Print(utils::kLogInfo, "info %d\n", 3);
  utils::Print(utils::kLogDebug, "debug %d\n", 4);
}

void PrintList(LogLevel level, const char* format, ...) __attribute__((format(printf, 2, 3)));
void PrintList(LogLevel level, const char* format, ...) {
  va_list args;
  va_start(args, format);
  utils::Print(level, format, args);
  va_end(args);
}

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line);
  }
  return lines;
}

TEST(LogLevelTest, IsErrorAtFirst) { EXPECT_EQ(utils::GetLogLevel(), utils::kLogError); }

TEST(LogLevelTest, TheDefaultShowsErrorsAlone) {
  const Output output = Logged("error", PrintOneOfEach);
  EXPECT_EQ(output.out, "");
  EXPECT_EQ(output.err, "[time] Error: error 1\n");
}

TEST(LogLevelTest, InfoShowsAllButDebug) {
  const Output output = Logged("info", PrintOneOfEach);
  EXPECT_EQ(output.out, "[time] Warning: warning 2\n[time] Info: info 3\n");
  EXPECT_EQ(output.err, "[time] Error: error 1\n");
}

TEST(LogLevelTest, DebugShowsAllFourAndOnlyErrorsOnStandardError) {
  const Output output = Logged("debug", PrintOneOfEach);
  EXPECT_EQ(output.out, "[time] Warning: warning 2\n[time] Info: info 3\n[time] Debug: debug 4\n");
  EXPECT_EQ(output.err, "[time] Error: error 1\n");
}

TEST(LogLevelTest, NamesSetTheirLevels) {
  const ScopedLogLevel scope("debug");
  EXPECT_EQ(utils::GetLogLevel(), utils::kLogDebug);
  utils::SetLogLevel("info");
  EXPECT_EQ(utils::GetLogLevel(), utils::kLogInfo);
  utils::SetLogLevel("error");
  EXPECT_EQ(utils::GetLogLevel(), utils::kLogError);
}

TEST(LogLevelTest, AnUnknownNameIsIgnoredInSilenceAtTheDefault) {
  const Output output = Logged("error", [] {
    utils::SetLogLevel("warning");
    utils::Print(utils::kLogWarning, "hidden\n");
  });
  EXPECT_EQ(utils::GetLogLevel(), utils::kLogError);
  EXPECT_EQ(output.out, "");
  EXPECT_EQ(output.err, "");
}

TEST(LogLevelTest, AnUnknownNameWarnsAtHigherLevelsAndChangesNothing) {
  LogLevel level_after = utils::kLogNone;
  const Output output = Logged("info", [&] {
    for (const char* name : {"warning", "none", "Info", "DEBUG", " error", ""}) {
      utils::SetLogLevel(name);
    }
    level_after = utils::GetLogLevel();
  });
  EXPECT_EQ(level_after, utils::kLogInfo);
  EXPECT_EQ(output.out,
            "[time] Warning: Invalid log level, set to default\n"
            "[time] Warning: Invalid log level, set to default\n"
            "[time] Warning: Invalid log level, set to default\n"
            "[time] Warning: Invalid log level, set to default\n"
            "[time] Warning: Invalid log level, set to default\n"
            "[time] Warning: Invalid log level, set to default\n");
}

TEST(LoggerTest, ThereIsOneInstance) {
  const ScopedLogLevel scope("info");
  EXPECT_EQ(utils::Logger::GetInstance(), utils::Logger::GetInstance());
  EXPECT_EQ(utils::Logger::GetInstance()->GetLogLevel(), utils::kLogInfo);
}

TEST(LoggerTest, StartsWithTheTimeStampInBrackets) {
  OutputCapture capture;
  utils::Print(utils::kLogError, "lost\n");
  EXPECT_TRUE(std::regex_match(
      capture.Stop().err, std::regex(R"(\[\d{4}/\d\d/\d\d \d\d:\d\d:\d\d \d{6}\] Error: lost\n)")));
}

TEST(LoggerTest, AMessageWithoutLevelHasNeitherTimeNorTagAndAlwaysPasses) {
  for (const char* level : {"error", "info", "debug"}) {
    const Output output =
        Logged(level, [] { utils::Print(utils::kLogNone, "plain %s\n", "text"); });
    EXPECT_EQ(output.out, "plain text\n");
    EXPECT_EQ(output.err, "");
  }
}

TEST(LoggerTest, TheCountOfLevelsIsNeverPrinted) {
  const Output output = Logged("debug", [] { utils::Print(utils::kLogEnd, "beyond\n"); });
  EXPECT_EQ(output.out, "");
  EXPECT_EQ(output.err, "");
}

TEST(LoggerTest, AddsNoLineFeed) {
  const Output output = Logged("error", [] {
    utils::Print(utils::kLogError, "one");
    utils::Print(utils::kLogError, "two\n");
  });
  EXPECT_EQ(output.err, "[time] Error: one[time] Error: two\n");
}

TEST(LoggerTest, TheTextFormPrintsPercentSignsAsTheyAre) {
  const Output output =
      Logged("error", [] { utils::Print(utils::kLogError, std::string("100%s%n\n")); });
  EXPECT_EQ(output.err, "[time] Error: 100%s%n\n");
}

TEST(LoggerTest, TheListFormFormats) {
  const Output output =
      Logged("info", [] { PrintList(utils::kLogInfo, "%s 0x%x\n", "ring", 16u); });
  EXPECT_EQ(output.out, "[time] Info: ring 0x10\n");
}

TEST(LoggerTest, LongMessagesAreWhole) {
  const std::string text(5000, 'x');
  const Output output =
      Logged("error", [&] { utils::Print(utils::kLogError, "%s\n", text.c_str()); });
  EXPECT_EQ(output.err, "[time] Error: " + text + "\n");
}

// The logger takes its level, streams and lock from the singleton, whichever way it is reached.
TEST(LoggerTest, MembersWriteLikeTheFreeFunctions) {
  const Output output = Logged("error", [] {
    utils::Logger* logger = utils::Logger::GetInstance();
    logger->SetLogLevel("debug");
    logger->Write(utils::kLogDebug, std::string("text\n"));
    logger->Write(utils::kLogInfo, "number %d\n", 7);
  });
  EXPECT_EQ(output.out, "[time] Debug: text\n[time] Info: number 7\n");
}

class LogFileTest : public testing::Test {
 protected:
  TempDir dir_;
  const std::string path_ = dir_.Path("log");
};

TEST_F(LogFileTest, HoldsEveryMessageBehindTheNameOfTheProgram) {
  LoggedInChild("debug", [&] {
    utils::SetLogFile(path_);
    PrintOneOfEach();
    utils::Print(utils::kLogNone, "plain\n");
    utils::Print(utils::kLogInfo, std::string("50%\n"));
  });
  EXPECT_EQ(WithoutTimes(ReadText(path_)),
            "[talvex_tests] [time] Error: error 1\n"
            "[talvex_tests] [time] Warning: warning 2\n"
            "[talvex_tests] [time] Info: info 3\n"
            "[talvex_tests] [time] Debug: debug 4\n"
            "[talvex_tests] plain\n"
            "[talvex_tests] [time] Info: 50%\n");
}

TEST_F(LogFileTest, HasTheTimeStampOfTheConsole) {
  const Output output = LoggedInChild("info", [&] {
    utils::SetLogFile(path_);
    utils::Print(utils::kLogInfo, "same %d\n", 1);
  });
  EXPECT_EQ(ReadText(path_), "[talvex_tests] " + output.out);
  EXPECT_EQ(WithoutTimes(output.out), "[time] Info: same 1\n");
}

TEST_F(LogFileTest, DoesNotHoldWhatTheLevelSuppresses) {
  LoggedInChild("error", [&] {
    utils::SetLogFile(path_);
    PrintOneOfEach();
  });
  EXPECT_EQ(WithoutTimes(ReadText(path_)), "[talvex_tests] [time] Error: error 1\n");
}

TEST_F(LogFileTest, ReplacesAnEarlierFile) {
  WriteText(path_, "from an earlier run\n");
  LoggedInChild("error", [&] { utils::SetLogFile(path_); });
  EXPECT_EQ(ReadText(path_), "");
}

TEST_F(LogFileTest, ASecondFileIsRefusedWithAWarning) {
  const Output output = LoggedInChild("info", [&] {
    utils::SetLogFile(path_);
    utils::SetLogFile(dir_.Path("second"));
    utils::Print(utils::kLogInfo, "after\n");
  });
  EXPECT_EQ(WithoutTimes(output.out),
            "[time] Warning: The Log file is already set, ignore\n"
            "[time] Info: after\n");
  EXPECT_EQ(WithoutTimes(ReadText(path_)),
            "[talvex_tests] [time] Warning: The Log file is already set, ignore\n"
            "[talvex_tests] [time] Info: after\n");
  EXPECT_EQ(ListTree(dir_.Path()), (std::vector<std::string>{"log"}));
}

TEST_F(LogFileTest, ASecondFileIsRefusedInSilenceAtTheDefaultLevel) {
  const Output output = LoggedInChild("error", [&] {
    utils::SetLogFile(path_);
    utils::SetLogFile(dir_.Path("second"));
  });
  EXPECT_EQ(output.out, "");
  EXPECT_EQ(output.err, "");
}

TEST_F(LogFileTest, AnEmptyPathSetsNothing) {
  const Output output = LoggedInChild("info", [&] {
    utils::SetLogFile("");
    utils::SetLogFile(path_);
    utils::Print(utils::kLogInfo, "kept\n");
  });
  EXPECT_EQ(WithoutTimes(output.out), "[time] Info: kept\n");
  EXPECT_EQ(WithoutTimes(ReadText(path_)), "[talvex_tests] [time] Info: kept\n");
}

TEST_F(LogFileTest, AFileThatCannotBeMadeWarnsAndTheConsoleCarriesOn) {
  const std::string missing = dir_.Path("missing/log");
  const Output output = LoggedInChild("info", [&] {
    utils::SetLogFile(missing);
    utils::Print(utils::kLogInfo, "after\n");
  });
  EXPECT_EQ(WithoutTimes(output.out), "[time] Warning: Failed to open '" + missing +
                                          "': No such file or directory\n"
                                          "[time] Info: after\n");
}

TEST_F(LogFileTest, AnotherFileCanFollowOneThatCouldNotBeMade) {
  LoggedInChild("error", [&] {
    utils::SetLogFile(dir_.Path("missing/log"));
    utils::SetLogFile(path_);
    utils::Print(utils::kLogError, "kept\n");
  });
  EXPECT_EQ(WithoutTimes(ReadText(path_)), "[talvex_tests] [time] Error: kept\n");
}

// Threads log through both forms at once; a message is its prefix and its text, so that a missing
// lock would tear the two apart.
TEST_F(LogFileTest, LinesOfManyThreadsNeverInterleave) {
  constexpr int kThreads = 8;
  constexpr int kMessages = 250;
  const Output output = LoggedInChild("info", [&] {
    utils::SetLogFile(path_);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
      threads.emplace_back([t] {
        for (int i = 0; i < kMessages; ++i) {
          if (i % 2 == 0) {
            utils::Print(utils::kLogInfo, "thread %d message %d\n", t, i);
          } else {
            utils::Print(utils::kLogInfo,
                         "thread " + std::to_string(t) + " message " + std::to_string(i) + "\n");
          }
        }
      });
    }
    for (std::thread& thread : threads) {
      thread.join();
    }
  });

  const std::vector<std::string> console = Lines(output.out);
  const std::vector<std::string> file = Lines(ReadText(path_));
  ASSERT_EQ(console.size(), size_t{kThreads * kMessages});
  ASSERT_EQ(file.size(), console.size());
  std::multiset<std::string> messages;
  for (size_t i = 0; i < console.size(); ++i) {
    EXPECT_EQ(file[i], "[talvex_tests] " + console[i]);
    messages.insert(WithoutTimes(console[i]));
  }
  std::multiset<std::string> expected;
  for (int t = 0; t < kThreads; ++t) {
    for (int i = 0; i < kMessages; ++i) {
      expected.insert("[time] Info: thread " + std::to_string(t) + " message " + std::to_string(i));
    }
  }
  EXPECT_EQ(messages, expected);
}

}  // namespace
