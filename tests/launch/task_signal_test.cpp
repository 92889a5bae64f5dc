// Signals and tasks: what the child inherits, whom terminate() reaches, and hosts that collect children themselves.
#include <tovan/task.h>

#include "tests/launch/task_support.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <functional>
#include <thread>

namespace {

using test::TextList;
using tovan::CTask;

class ScopedHandler {
 public:
  ScopedHandler(int signal, void (*handler)(int)) : signal_(signal), before_(::signal(signal, handler)) {}
  ~ScopedHandler() { ::signal(signal_, before_); }
  ScopedHandler(const ScopedHandler&) = delete;
  ScopedHandler& operator=(const ScopedHandler&) = delete;

 private:
  int signal_;
  void (*before_)(int);
};

std::atomic<int> handlerCalls = 0;
void countCall(int) { ++handlerCalls; }

// A handler of this process that ran in the child, or swallowed the signal there, would leave it sleeping.
TEST(CTaskSignalTest, NoSignalIsLostBetweenForkAndProgram) {
  const ScopedHandler handler(SIGTERM, countCall);
  for (int round = 0; round < 200; ++round) {
    CTask task("/bin/sleep", TextList{"60"}, nullptr, nullptr);
    ASSERT_EQ(task.launch(), 0U);
    task.terminate();
    ASSERT_TRUE(task.waitForTaskWithTimeout(30)) << "the signal was lost in round " << round;
    ASSERT_EQ(task.waitForTask(), SIGTERM) << "in round " << round;
  }
  EXPECT_EQ(handlerCalls, 0);
}

std::string blockedSignalsOfChild() {
  const std::string out = test::scratchFolder("mask") + "/out";
  CTask task("/bin/sh", TextList{"-c", "exec grep SigBlk /proc/self/status > " + out}, nullptr, nullptr);
  EXPECT_EQ(task.launch(), 0U);
  EXPECT_EQ(task.waitForTask(), 0);
  return test::readFile(out);
}

TEST(CTaskSignalTest, TheChildHasTheLaunchingThreadsMask) {
  EXPECT_EQ(blockedSignalsOfChild(), "SigBlk:\t0000000000000000\n");
  sigset_t some;
  sigset_t before;
  sigemptyset(&some);
  sigaddset(&some, SIGUSR1);
  ASSERT_EQ(::pthread_sigmask(SIG_BLOCK, &some, &before), 0);
  EXPECT_EQ(blockedSignalsOfChild(), "SigBlk:\t0000000000000200\n");
  sigset_t after;
  ASSERT_EQ(::pthread_sigmask(SIG_SETMASK, &before, &after), 0);
  EXPECT_EQ(sigismember(&after, SIGUSR1), 1);
  EXPECT_EQ(sigismember(&after, SIGTERM), 0) << "the launch left a signal blocked";
}

class ExitTask : public CTask {
 public:
  ExitTask() : CTask("/bin/true", nullptr, nullptr, nullptr) {}
  std::function<void()> atExit;

 protected:
  void on_exit(int code) override {
    if (atExit) atExit();
    CTask::on_exit(code);
  }
};

// Starts a process with exactly that id, which has been given back; -1 when the kernel does not allow the choice.
pid_t startProcessWithId(pid_t id) {
  for (int attempt = 0; attempt < 50; ++attempt) {
    std::ofstream last("/proc/sys/kernel/ns_last_pid");
    if (!(last << id - 1) || !last.flush()) return -1;
    const pid_t child = ::fork();
    if (child == 0) {
      for (;;) ::pause();
    }
    if (child == id) return child;
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
  }
  return -1;
}

TEST(CTaskSignalTest, AnotherProcessWithTheChildsIdIsNotSignalled) {
  ExitTask task;
  pid_t other = -1;
  bool isRunningInHook = false;
  task.atExit = [&] {
    isRunningInHook = task.isRunning();
    other = startProcessWithId(task.processID());
    task.terminate();
  };
  ASSERT_EQ(task.launch(), 0U);
  EXPECT_EQ(task.waitForTask(), 0);
  if (other < 0) GTEST_SKIP() << "this process may not choose process ids";
  EXPECT_TRUE(isRunningInHook);
  task.terminate();
  int status = 0;
  EXPECT_EQ(::waitpid(other, &status, WNOHANG), 0) << "it got a signal: wait status " << status;
  ::kill(other, SIGKILL);
  ::waitpid(other, nullptr, 0);
}

TEST(CTaskSignalTest, AHostThatIgnoresSIGCHLDGetsMinusOne) {
  const ScopedHandler handler(SIGCHLD, SIG_IGN);
  CTask task("/bin/sh", TextList{"-c", "exit 3"}, nullptr, nullptr);
  ASSERT_EQ(task.launch(), 0U);
  EXPECT_EQ(task.waitForTask(), -1);
  EXPECT_FALSE(task.isRunning());
}

TEST(CTaskSignalTest, AHostThatCollectsTheChildGetsMinusOne) {
  bool hostWasFirst = false;
  for (int round = 0; round < 5000 && !hostWasFirst; ++round) {
    CTask task("/bin/sh", TextList{"-c", "exit 3"}, nullptr, nullptr);
    ASSERT_EQ(task.launch(), 0U);
    while (::waitpid(-1, nullptr, WNOHANG) == 0) {
    }
    const int code = task.waitForTask();
    ASSERT_TRUE(code == 3 || code == -1) << code;
    task.terminate();
    hostWasFirst = code == -1;
  }
  EXPECT_TRUE(hostWasFirst) << "the host never came first";
}

}  // namespace
