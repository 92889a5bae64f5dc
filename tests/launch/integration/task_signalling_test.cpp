// Whom terminate() signals: kill and waitid, as the library calls them, are those below.
#include <tovan/task.h>

#include "tests/launch/task_support.h"

#include <dlfcn.h>
#include <signal.h>
#include <sys/wait.h>

#include <atomic>
#include <functional>
#include <string>

namespace {

// Signals sent; whether a wait for the end of a child is held up; and whether every number is that of a child.
std::atomic<int> signalsSent = 0;
std::atomic<int> lastSignal = 0;
std::atomic<pid_t> lastTarget = 0;
std::atomic<bool> isWaitHeldUp = false;
std::atomic<bool> isEveryNumberAChild = false;

template <class Function>
Function* original(const char* name) {
  return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

}  // namespace

#pragma GCC visibility push(default)
extern "C" {

int kill(pid_t target, int signal) noexcept {
  ++signalsSent;
  lastTarget = target;
  lastSignal = signal;
  return original<int(pid_t, int)>("kill")(target, signal);
}

int waitid(idtype_t kind, id_t id, siginfo_t* info, int options) {
  if ((options & WNOHANG) != 0 && isEveryNumberAChild) return 0;
  while ((options & WNOHANG) == 0 && isWaitHeldUp) ::usleep(1000);
  return original<int(idtype_t, id_t, siginfo_t*, int)>("waitid")(kind, id, info, options);
}

}  // extern "C"
#pragma GCC visibility pop

namespace {

using test::TextList;
using tovan::CTask;

class ExitTask : public CTask {
 public:
  explicit ExitTask(const char* command) : CTask("/bin/sh", TextList{"-c", command}, nullptr, nullptr) {}
  std::function<void()> atExit;

 protected:
  void on_exit(int code) override {
    if (atExit) atExit();
    CTask::on_exit(code);
  }
};

class TaskSignallingTest : public ::testing::Test {
 protected:
  void SetUp() override { signalsSent = 0; }
  void TearDown() override {
    isWaitHeldUp = false;
    isEveryNumberAChild = false;
  }
};

TEST_F(TaskSignallingTest, ARunningChildGetsOneSIGTERM) {
  ExitTask task("exec sleep 60");
  task.terminate();
  EXPECT_EQ(signalsSent, 0) << "before the launch";
  ASSERT_EQ(task.launch(), 0U);
  task.terminate();
  EXPECT_EQ(signalsSent, 1);
  EXPECT_EQ(lastSignal, SIGTERM);
  EXPECT_EQ(lastTarget, task.processID());
  EXPECT_EQ(task.waitForTask(), SIGTERM);
  task.terminate();
  EXPECT_EQ(signalsSent, 1) << "after the end";
}

// The task runs until its hook has returned, but its child's number may be another process's by then, even another
// child's.
TEST_F(TaskSignallingTest, AChildThatWasCollectedGetsNone) {
  ExitTask task("exit 3");
  bool wasRunning = false;
  task.atExit = [&] {
    wasRunning = task.isRunning();
    isEveryNumberAChild = true;
    task.terminate();
  };
  ASSERT_EQ(task.launch(), 0U);
  EXPECT_EQ(task.waitForTask(), 3);
  EXPECT_TRUE(wasRunning);
  EXPECT_EQ(signalsSent, 0);
}

TEST_F(TaskSignallingTest, AChildThatTheHostCollectedGetsNone) {
  isWaitHeldUp = true;  // the task does not notice
  ExitTask task("exit 3");
  ASSERT_EQ(task.launch(), 0U);
  ASSERT_EQ(::waitpid(task.processID(), nullptr, 0), task.processID());
  EXPECT_TRUE(task.isRunning());
  task.terminate();
  EXPECT_EQ(signalsSent, 0);
  isWaitHeldUp = false;
  EXPECT_EQ(task.waitForTask(), -1);
}

}  // namespace
