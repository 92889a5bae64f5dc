// Programs that live on by themselves.
#include "platform/system/detached_process.h"

#include "tests/support/scratch_home.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <string>
#include <thread>

namespace {

using platform::launchDetached;

class DetachedProcessTest : public ::testing::Test {
 protected:
  // A script that leaves what it finds in a file named "answer", whole at once.
  std::string script(const std::string& body) const {
    const std::string path = folder_ + "/pro gram";
    test::writeFile(path, "#!/bin/sh\nexec 9>'" + folder_ + "/answer.new'\n{\n" + body + "\n} >&9\nmv '" + folder_ +
                              "/answer.new' '" + folder_ + "/answer'\n");
    std::filesystem::permissions(path, std::filesystem::perms{0755});
    return path;
  }
  std::string answer() const {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!test::exists(folder_ + "/answer") && std::chrono::steady_clock::now() < deadline) {
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return test::readFile(folder_ + "/answer");
  }
  std::string answerOf(const std::string& body) const {
    EXPECT_EQ(launchDetached(script(body)), 0);
    return answer();
  }

  const std::string folder_ = test::scratchFolder("detached");
};

TEST_F(DetachedProcessTest, RunsTheProgramWithoutArguments) {
  EXPECT_EQ(answerOf("echo \"$# $0\""), "0 " + folder_ + "/pro gram\n");
}

TEST_F(DetachedProcessTest, GivesItTheEnvironmentAndTheCurrentFolder) {
  ::setenv("TOVAN_DETACHED_TEST", "a value", 1);
  EXPECT_EQ(answerOf("echo \"$TOVAN_DETACHED_TEST\"; pwd -P"),
            "a value\n" + std::filesystem::current_path().string() + "\n");
  ::unsetenv("TOVAN_DETACHED_TEST");
}

TEST_F(DetachedProcessTest, GivesItNoDescriptorsButTheStandardStreams) {
  const int inherited = ::open("/dev/null", O_RDONLY);  // on purpose without close-on-exec
  const int high = ::dup2(inherited, 200);
  // Number 9 and what the shell itself needs are the script's own.
  EXPECT_EQ(answerOf("readlink /proc/$$/fd/0; for n in 3 4 5 6 7 8 200; do [ -e /proc/$$/fd/$n ] && echo $n; done; "
                     "echo end"),
            "/dev/null\nend\n");
  ::close(inherited);
  ::close(high);
}

TEST_F(DetachedProcessTest, OutputGoesNowhereAndErrorsWhereOursGo) {
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(launchDetached(script("echo out >&1; readlink /proc/$$/fd/2; echo err >&2")), 0);
  const std::string where = answer();
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "err\n");
  EXPECT_NE(where, "out\n/dev/null\n");
}

TEST_F(DetachedProcessTest, StandsInASessionOfItsOwn) {
  const std::string session = answerOf("read -r line < /proc/$$/stat; set -- ${line##*)}; echo \"$4\"");
  EXPECT_NE(session, std::to_string(::getsid(0)) + "\n");
}

TEST_F(DetachedProcessTest, IsNobodysChildHere) {
  answerOf("echo $PPID");
  EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD) << "something is left to be collected";
}

TEST_F(DetachedProcessTest, SignalsAreAsForAnyProgram) {
  ::signal(SIGPIPE, SIG_IGN);
  sigset_t blocked, former;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGTERM);
  ::pthread_sigmask(SIG_BLOCK, &blocked, &former);
  // The shell looks at itself: while it starts another program it has signals blocked.
  const std::string masks =
      answerOf("while read -r line; do case $line in Sig[BI]*) echo \"$line\";; esac; done < /proc/$$/status");
  ::pthread_sigmask(SIG_SETMASK, &former, nullptr);
  ::signal(SIGPIPE, SIG_DFL);
  EXPECT_EQ(masks, "SigBlk:\t0000000000000000\nSigIgn:\t0000000000000000\n");
}

TEST_F(DetachedProcessTest, KeepsTheCallersSignalMask) {
  sigset_t before, after;
  ::pthread_sigmask(SIG_BLOCK, nullptr, &before);
  answerOf("echo");
  ::pthread_sigmask(SIG_BLOCK, nullptr, &after);
  for (int signal = 1; signal < NSIG; ++signal) EXPECT_EQ(sigismember(&before, signal), sigismember(&after, signal));
}

TEST_F(DetachedProcessTest, SaysWhyAProgramCannotRun) {
  EXPECT_EQ(launchDetached(folder_ + "/missing"), ENOENT);
  EXPECT_EQ(launchDetached(""), ENOENT);
  EXPECT_EQ(launchDetached(folder_), EACCES);
  test::writeFile(folder_ + "/text", "no program\n");
  EXPECT_EQ(launchDetached(folder_ + "/text"), EACCES) << "not executable";
  std::filesystem::permissions(folder_ + "/text", std::filesystem::perms{0755});
  EXPECT_EQ(launchDetached(folder_ + "/text"), ENOEXEC);
  EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1) << "something is left to be collected";
}

TEST_F(DetachedProcessTest, SaysThatThereAreNoDescriptors) {
  rlimit before{};
  ::getrlimit(RLIMIT_NOFILE, &before);
  const int next = ::dup(0);
  ::close(next);
  rlimit none = before;
  none.rlim_cur = static_cast<rlim_t>(next);
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
  const int result = launchDetached("/bin/true");
  ::setrlimit(RLIMIT_NOFILE, &before);
  EXPECT_EQ(result, EMFILE);
}

TEST_F(DetachedProcessTest, WorksInAProcessThatIgnoresItsChildren) {
  ::signal(SIGCHLD, SIG_IGN);
  EXPECT_EQ(launchDetached(folder_ + "/missing"), ENOENT);
  EXPECT_EQ(answerOf("echo ran"), "ran\n");
  ::signal(SIGCHLD, SIG_DFL);
}

TEST_F(DetachedProcessTest, WorksWhereTheStandardStreamsAreClosed) {
  const std::string program = script("for n in 0 1 2; do readlink /proc/$$/fd/$n; done");
  const pid_t child = ::fork();
  if (child == 0) {
    ::close_range(0, 2, 0);
    ::_exit(launchDetached(program));
  }
  int status = -1;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  const std::string streams = answer();
  EXPECT_EQ(streams.substr(0, 10), "/dev/null\n");
  EXPECT_EQ(streams.substr(streams.size() - 10), "/dev/null\n") << streams;
}

TEST_F(DetachedProcessTest, ManyLaunchesLeaveNothingBehind) {
  const auto descriptors = [] {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator());
  };
  const auto before = descriptors();
  for (int i = 0; i < 300; ++i) ASSERT_EQ(launchDetached("/bin/true"), 0);
  EXPECT_EQ(descriptors(), before);
  EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
}

}  // namespace
