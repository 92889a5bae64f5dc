// CServiceUtil::setupStdStreams, in forked children.
#include <tovan/service_util.h>

#include "tests/launch/configuration.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <functional>
#include <string>

namespace {

bool sameFile(int descriptor, const std::string& path) {
  struct stat left {};
  struct stat right {};
  return ::fstat(descriptor, &left) == 0 && ::stat(path.c_str(), &right) == 0 && left.st_dev == right.st_dev &&
         left.st_ino == right.st_ino;
}

bool put(int descriptor, const char* text) {
  const auto length = static_cast<ssize_t>(std::strlen(text));
  return ::write(descriptor, text, static_cast<std::size_t>(length)) == length;
}

int lowestFree() {
  const int number = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  ::close(number);
  return number;
}

class StdStreamsTest : public ::testing::Test {
 protected:
  std::string folder_ = test::scratchFolder("streams");
  std::string path_ = folder_ + "/out put.log";

  void configure(const std::string& stdoutPath) {
    test::writeConfiguration("<key>mervaneconfig</key><dict><key>StdoutPath</key><string>" + stdoutPath +
                             "</string></dict>");
  }
  // Runs the check in a child after setupStdStreams(); 0 stands for success, other numbers for the step that failed.
  static int afterSetup(const std::function<void()>& before, const std::function<int()>& check) {
    const pid_t child = ::fork();
    if (child == 0) {
      ::alarm(20);
      before();
      tovan::CServiceUtil::setupStdStreams();
      ::_exit(check());
    }
    int status = 0;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 100 + WTERMSIG(status);
  }
};

TEST_F(StdStreamsTest, InputIsNothingAndOutputAndErrorsAreAppended) {
  configure(path_);
  test::writeFile(path_, "before\n");
  EXPECT_EQ(afterSetup([] {},
                       [&] {
                         char byte;
                         if (::read(STDIN_FILENO, &byte, 1) != 0) return 1;
                         if (!sameFile(STDIN_FILENO, "/dev/null")) return 2;
                         if (!sameFile(STDOUT_FILENO, path_) || !sameFile(STDERR_FILENO, path_)) return 3;
                         const int flags = ::fcntl(STDOUT_FILENO, F_GETFL);
                         if ((flags & O_ACCMODE) != O_RDWR || (flags & O_APPEND) == 0) return 4;
                         if (!put(STDOUT_FILENO, "out\n") || !put(STDERR_FILENO, "err\n")) return 5;
                         return 0;
                       }),
            0);
  EXPECT_EQ(test::readFile(path_), "before\nout\nerr\n");
}

TEST_F(StdStreamsTest, MissingFileIsMadeForAllAndTheMaskIsPutBack) {
  configure(path_);
  EXPECT_EQ(afterSetup([] { ::umask(027); }, [] { return ::umask(0) == 027 ? 0 : 1; }), 0);
  struct stat info {};
  ASSERT_EQ(::stat(path_.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777u, 0666u);
}

TEST_F(StdStreamsTest, StreamsSurviveAProgramAndNothingElseDoes) {
  configure(path_);
  int free = 0;
  EXPECT_EQ(afterSetup([&] { free = lowestFree(); },
                       [&] {
                         for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
                           if (::fcntl(stream, F_GETFD) != 0) return 1;
                         }
                         return lowestFree() == free ? 0 : 2;
                       }),
            0)
      << "1: a stream closes with exec; 2: a spare descriptor is open";
}

TEST_F(StdStreamsTest, ClosedStreamsAreOpenedToo) {
  configure(path_);
  for (const int closed : {1, 2, 3, 4, 5, 6, 7}) {
    EXPECT_EQ(afterSetup(
                  [&] {
                    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
                      if ((closed >> stream & 1) != 0) ::close(stream);
                    }
                  },
                  [&] {
                    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
                      if (::fcntl(stream, F_GETFD) != 0) return 10 + stream;
                    }
                    if (!sameFile(STDIN_FILENO, "/dev/null")) return 1;
                    return sameFile(STDOUT_FILENO, path_) && sameFile(STDERR_FILENO, path_) ? 0 : 2;
                  }),
              0)
        << "with the streams of the bits " << closed << " closed";
  }
}

TEST_F(StdStreamsTest, WithoutAPathOutputAndErrorsStay) {
  test::writeConfiguration("");
  const std::string before = folder_ + "/before";
  test::writeFile(before, "");
  EXPECT_EQ(afterSetup(
                [&] {
                  const int file = ::open(before.c_str(), O_WRONLY | O_CLOEXEC);
                  ::dup2(file, STDOUT_FILENO);
                  ::dup2(file, STDERR_FILENO);
                },
                [&] {
                  if (!sameFile(STDIN_FILENO, "/dev/null")) return 1;
                  return sameFile(STDOUT_FILENO, before) && sameFile(STDERR_FILENO, before) ? 0 : 2;
                }),
            0);
}

TEST_F(StdStreamsTest, PathThatCannotBeOpenedLeavesTheStreams) {
  for (const std::string& path : {folder_ + "/missing/out.log", folder_}) {
    configure(path);
    const std::string before = folder_ + "/before";
    test::writeFile(before, "");
    EXPECT_EQ(afterSetup(
                  [&] {
                    const int file = ::open(before.c_str(), O_WRONLY | O_CLOEXEC);
                    ::dup2(file, STDOUT_FILENO);
                    ::umask(027);
                  },
                  [&] {
                    if (!sameFile(STDOUT_FILENO, before)) return 1;
                    return ::umask(0) == 027 ? 0 : 2;
                  }),
              0)
        << path;
  }
}

TEST_F(StdStreamsTest, FifoDoesNotBlock) {
  configure(path_);
  ASSERT_EQ(::mkfifo(path_.c_str(), 0600), 0);
  EXPECT_EQ(afterSetup([] {}, [&] { return sameFile(STDOUT_FILENO, path_) && put(STDOUT_FILENO, "x") ? 0 : 1; }), 0);
}

TEST_F(StdStreamsTest, TildeIsTheHomeFolder) {
  configure("~/tilde.log");
  EXPECT_EQ(afterSetup([] {}, [] { return sameFile(STDOUT_FILENO, test::scratchHome() + "/tilde.log") ? 0 : 1; }), 0);
}

}  // namespace
