#include "platform/system/console_log.h"

#include "platform/system/descriptor.h"
#include "tests/support/scratch_home.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <regex>
#include <string>
#include <thread>
#include <vector>

namespace {

using platform::consoleLog;
using platform::Descriptor;

// Standard error is another file for a scope; -1 closes it.
class StandardError {
 public:
  explicit StandardError(int file) : former_(::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 10)) {
    if (file >= 0) {
      EXPECT_EQ(::dup2(file, STDERR_FILENO), STDERR_FILENO);
    } else {
      ::close(STDERR_FILENO);
    }
  }
  ~StandardError() { ::dup2(former_.get(), STDERR_FILENO); }

 private:
  Descriptor former_;
};

struct Pipe {
  Pipe() {
    std::array<int, 2> ends{-1, -1};
    EXPECT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
    reader.reset(ends[0]);
    writer.reset(ends[1]);
  }
  Descriptor reader;
  Descriptor writer;
};

std::string readAvailable(int file) {
  std::string text;
  char buffer[65536];
  EXPECT_EQ(::fcntl(file, F_SETFL, O_NONBLOCK), 0);
  for (ssize_t count; (count = ::read(file, buffer, sizeof buffer)) > 0;) {
    text.append(buffer, static_cast<std::size_t>(count));
  }
  return text;
}

std::string lineFor(const char* text) {
  const Pipe pipe;
  {
    const StandardError redirected(pipe.writer.get());
    consoleLog(text);
  }
  return readAvailable(pipe.reader.get());
}

std::string withoutHead(const std::string& line) {
  const std::size_t end = line.find("] ");
  return end == std::string::npos ? "(no head) " + line : line.substr(end + 2);
}

TEST(ConsoleLogTest, WritesTimeNameProcessAndText) {
  const std::time_t before = std::time(nullptr);
  const std::string line = lineFor("some text");
  const std::time_t after = std::time(nullptr);
  const std::regex form("(\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d)\\.\\d{3} (.+)\\[(\\d+)\\] some text\n");
  std::smatch parts;
  ASSERT_TRUE(std::regex_match(line, parts, form)) << line;
  EXPECT_EQ(parts[2].str(), program_invocation_short_name);
  EXPECT_EQ(parts[3].str(), std::to_string(::getpid()));
  tm time{};
  ASSERT_NE(::strptime(parts[1].str().c_str(), "%Y-%m-%d %H:%M:%S", &time), nullptr);
  time.tm_isdst = -1;
  const std::time_t written = std::mktime(&time);
  EXPECT_LE(before, written);
  EXPECT_LE(written, after);
}

TEST(ConsoleLogTest, WritesLocalTime) {
  ::setenv("TZ", "TST-11", 1);
  ::tzset();
  const std::string line = lineFor("x");
  char expected[32];
  const std::time_t now = std::time(nullptr) + 11 * 3600;
  tm time{};
  ::gmtime_r(&now, &time);
  std::strftime(expected, sizeof expected, "%Y-%m-%d %H:", &time);
  ::setenv("TZ", "UTC", 1);
  ::tzset();
  EXPECT_THAT(line, testing::StartsWith(expected));
}

TEST(ConsoleLogTest, EndsEveryLineWithOneNewline) {
  EXPECT_EQ(withoutHead(lineFor("x")), "x\n");
  EXPECT_EQ(withoutHead(lineFor("x\n")), "x\n");
  EXPECT_EQ(withoutHead(lineFor("x\n\n")), "x\n");
  EXPECT_EQ(withoutHead(lineFor("x\ny\n")), "x\ny\n");
  EXPECT_EQ(withoutHead(lineFor("")), "\n");
  EXPECT_EQ(withoutHead(lineFor("\n")), "\n");
  EXPECT_EQ(withoutHead(lineFor(nullptr)), "\n");
  EXPECT_EQ(withoutHead(lineFor("100% %s %n %@")), "100% %s %n %@\n");
}

TEST(ConsoleLogTest, KeepsErrno) {
  const Descriptor full = Descriptor::open("/dev/full", O_WRONLY);
  const StandardError redirected(full.get());
  errno = ENOTTY;
  consoleLog("x");
  EXPECT_EQ(errno, ENOTTY);
}

TEST(ConsoleLogTest, LosesTheLineOnAFullDeviceAndAClosedDescriptor) {
  const Descriptor full = Descriptor::open("/dev/full", O_WRONLY);
  ASSERT_TRUE(full);
  {
    const StandardError redirected(full.get());
    consoleLog("x");
  }
  {
    const StandardError closed(-1);
    consoleLog("x");
    EXPECT_EQ(::fcntl(STDERR_FILENO, F_GETFD), -1) << "nothing was opened in its place";
  }
}

TEST(ConsoleLogTest, SurvivesAPipeThatNobodyReads) {
  ASSERT_EQ(::signal(SIGPIPE, SIG_DFL), SIG_DFL) << "the signal would end this process";
  Pipe pipe;
  pipe.reader.reset();
  const StandardError redirected(pipe.writer.get());
  consoleLog("x");
  sigset_t pending;
  ASSERT_EQ(::sigpending(&pending), 0);
  EXPECT_EQ(sigismember(&pending, SIGPIPE), 0);
  sigset_t mask;
  ASSERT_EQ(::pthread_sigmask(SIG_SETMASK, nullptr, &mask), 0);
  EXPECT_EQ(sigismember(&mask, SIGPIPE), 0) << "the mask is what it was";
}

TEST(ConsoleLogTest, SurvivesASocketThatNobodyReads) {
  int ends[2];
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  const Descriptor own(ends[0]);
  Descriptor other(ends[1]);
  const StandardError redirected(own.get());
  consoleLog("through a socket");
  EXPECT_EQ(withoutHead(readAvailable(other.get())), "through a socket\n");
  other.reset();
  consoleLog("x");
}

TEST(ConsoleLogTest, LeavesAPendingSigpipeToItsOwner) {
  sigset_t pipeSignal;
  sigemptyset(&pipeSignal);
  sigaddset(&pipeSignal, SIGPIPE);
  ASSERT_EQ(::pthread_sigmask(SIG_BLOCK, &pipeSignal, nullptr), 0);
  ASSERT_EQ(::pthread_kill(::pthread_self(), SIGPIPE), 0);
  EXPECT_EQ(withoutHead(lineFor("x")), "x\n");
  const timespec none{};
  EXPECT_EQ(::sigtimedwait(&pipeSignal, nullptr, &none), SIGPIPE);
  ASSERT_EQ(::pthread_sigmask(SIG_UNBLOCK, &pipeSignal, nullptr), 0);
}

TEST(ConsoleLogTest, GivesUpOnAPipeThatIsFull) {
  const Pipe pipe;
  ASSERT_EQ(::fcntl(pipe.writer.get(), F_SETFL, O_NONBLOCK), 0);
  const std::string block(4096, '.');
  while (::write(pipe.writer.get(), block.data(), block.size()) > 0) {
  }
  ASSERT_EQ(errno, EAGAIN);
  ASSERT_EQ(::fcntl(pipe.writer.get(), F_SETFL, 0), 0) << "a blocking pipe";
  const auto begin = std::chrono::steady_clock::now();
  {
    const StandardError redirected(pipe.writer.get());
    consoleLog("x");
  }
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
  EXPECT_EQ(::fcntl(pipe.writer.get(), F_GETFL) & O_NONBLOCK, 0) << "others share the descriptor";
  const std::string held = readAvailable(pipe.reader.get());
  EXPECT_EQ(held.find_first_not_of('.'), std::string::npos) << "the line was given up whole";
}

TEST(ConsoleLogTest, WritesAnEndlessLineToASlowReaderWhole) {
  Pipe pipe;
  const std::string text(300000, 'y');
  std::string received;
  std::thread reader([&] {
    char buffer[1000];
    for (ssize_t count; (count = ::read(pipe.reader.get(), buffer, sizeof buffer)) > 0;) {
      received.append(buffer, static_cast<std::size_t>(count));
    }
  });
  {
    const StandardError redirected(pipe.writer.get());
    consoleLog(text.c_str());
  }
  pipe.writer.reset();
  reader.join();
  EXPECT_TRUE(withoutHead(received) == text + "\n") << received.size() << " bytes arrived";
}

TEST(ConsoleLogTest, KeepsTheLinesOfThreadsApart) {
  const std::string path = test::scratchFolder("console") + "/log";
  const Descriptor file = Descriptor::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
  ASSERT_TRUE(file);
  {
    const StandardError redirected(file.get());
    std::vector<std::thread> threads;
    for (char name = 'a'; name < 'e'; ++name) {
      threads.emplace_back([name] {
        const std::string text(200, name);
        for (int i = 0; i < 500; ++i) consoleLog(text.c_str());
      });
    }
    for (std::thread& thread : threads) thread.join();
  }
  std::array<int, 4> counts{};
  std::istringstream lines(test::readFile(path));
  for (std::string line; std::getline(lines, line);) {
    const std::string text = withoutHead(line);
    ASSERT_EQ(text.size(), 200u) << line;
    ASSERT_EQ(text.find_first_not_of(text[0]), std::string::npos) << line;
    ++counts.at(static_cast<std::size_t>(text[0] - 'a'));
  }
  EXPECT_THAT(counts, testing::Each(500));
}

}  // namespace
