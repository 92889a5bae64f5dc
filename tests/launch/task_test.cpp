#include <tovan/task.h>

#include "tests/launch/task_support.h"

#include <plinth/exception.h>

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <limits>
#include <mutex>
#include <thread>

namespace {

using test::TextList;
using tovan::CArgsBuilder;
using tovan::CTask;

constexpr std::uint32_t kRefused = 0xFFFFFFFFU;

// Runs a shell command as a task; with `env` as its environment.
int exitCodeOfShell(const std::string& command, const char* const* env = nullptr) {
  CTask task("/bin/sh", TextList{"-c", command}, env, nullptr);
  EXPECT_EQ(task.launch(), 0U);
  return task.waitForTask();
}

// The lines of what the task's shell finds in a file of its own folder in /proc, in which NUL separates.
std::string ownProcFile(CTask& task, const std::string& name, std::initializer_list<std::string> more = {}) {
  const std::string out = test::scratchFolder("proc") + "/out";
  std::vector<std::string> arguments{"-c", "tr '\\0' '\\n' < /proc/$$/" + name + " > " + out};
  arguments.insert(arguments.end(), more);
  std::vector<const char*> list;
  for (const std::string& argument : arguments) list.push_back(argument.c_str());
  list.push_back(nullptr);
  task.setArgs(list.data());
  EXPECT_EQ(task.launch(), 0U);
  EXPECT_EQ(task.waitForTask(), 0);
  return test::readFile(out);
}

std::string userLines() {
  const passwd* const entry = ::getpwuid(::geteuid());
  return std::string("HOME=") + entry->pw_dir + "\nLOGNAME=" + entry->pw_name + "\nUSER=" + entry->pw_name + "\n";
}

TEST(CTaskTest, TheFileNameFollowsTheLastSlash) {
  CTask task("/usr/bin/sleep", nullptr, nullptr, nullptr);
  EXPECT_STREQ(task.getFileName(), "sleep");
  task.setPath("sleep");
  EXPECT_STREQ(task.getFileName(), "sleep");
  task.setPath("/usr/bin/");
  EXPECT_STREQ(task.getFileName(), "");
  task.setPath(task.getFileName());
  EXPECT_STREQ(task.getFileName(), "");
  task.setPath(nullptr);
  EXPECT_STREQ(task.getFileName(), "");
}

TEST(CTaskTest, TheShellIsKeptAndNotUsed) {
  CTask task("/bin/sh", TextList{"-c", "exit 4"}, nullptr, "/missing/shell");
  EXPECT_STREQ(task.shell(), "/missing/shell");
  EXPECT_EQ(task.launch(), 0U);
  EXPECT_EQ(task.waitForTask(), 4);
  task.setShell(nullptr);
  EXPECT_EQ(task.shell(), nullptr);
}

TEST(CTaskTest, AnIdleTaskIsNotRunning) {
  CTask task("/bin/true", nullptr, nullptr, nullptr);
  EXPECT_FALSE(task.isRunning());
  EXPECT_EQ(task.processID(), -1);
  EXPECT_EQ(task.waitForTask(), 0);
  EXPECT_TRUE(task.waitForTaskWithTimeout(0));
  task.terminate();
  EXPECT_EQ(task.processID(), -1);
}

TEST(CTaskTest, TheFirstArgumentIsTheFileName) {
  CTask task("/bin/sh", nullptr, nullptr, nullptr);
  const std::string seen = ownProcFile(task, "cmdline", {"one", "two words"});
  EXPECT_EQ(seen.rfind("sh\n-c\n", 0), 0U) << seen;
  EXPECT_NE(seen.find("\none\ntwo words\n"), std::string::npos) << seen;
}

TEST(CTaskTest, SetPathReplacesTheFirstArgumentOnly) {
  const std::string out = test::scratchFolder("path") + "/out";
  const TextList arguments{"-c", "tr '\\0' ' ' < /proc/$$/cmdline > " + out, "kept"};
  CTask task("/missing/other", arguments, nullptr, nullptr);
  const std::string link = test::scratchFolder("bin") + "/another-shell";
  ASSERT_EQ(::symlink("/bin/sh", link.c_str()), 0);
  task.setPath(link.c_str());
  ASSERT_EQ(task.launch(), 0U);
  EXPECT_EQ(task.waitForTask(), 0);
  EXPECT_EQ(test::readFile(out), "another-shell -c tr '\\0' ' ' < /proc/$$/cmdline > " + out + " kept ");
}

TEST(CTaskTest, SetArgsWithNullLeavesTheFileName) {
  const std::string folder = test::scratchFolder("null-args");
  test::writeFile(folder + "/script", "#!/bin/sh\necho $# > " + folder + "/count\n");
  ASSERT_EQ(::chmod((folder + "/script").c_str(), 0755), 0);
  CTask task((folder + "/script").c_str(), TextList{"one", "two"}, nullptr, nullptr);
  ASSERT_EQ(task.launch(), 0U);
  EXPECT_EQ(task.waitForTask(), 0);
  EXPECT_EQ(test::readFile(folder + "/count"), "2\n");
  task.setArgs(nullptr);
  ASSERT_EQ(task.launch(), 0U);
  EXPECT_EQ(task.waitForTask(), 0);
  EXPECT_EQ(test::readFile(folder + "/count"), "0\n");
}

TEST(CTaskTest, TheEnvironmentIsTheGivenOneAndTheUser) {
  CTask task("/bin/sh", nullptr, TextList{"COLOUR=green", "EMPTY="}, nullptr);
  EXPECT_EQ(ownProcFile(task, "environ"), "COLOUR=green\nEMPTY=\n" + userLines());
  task.setEnv(TextList{"COLOUR=red"});
  EXPECT_EQ(ownProcFile(task, "environ"), "COLOUR=red\n" + userLines());
  task.setEnv(nullptr);
  EXPECT_EQ(ownProcFile(task, "environ"), userLines());
}

TEST(CTaskTest, AnEnvironmentWithAHomeKeepsIt) {
  const std::string user = ::getpwuid(::geteuid())->pw_name;
  CTask task("/bin/sh", nullptr, TextList{"HOME=/elsewhere", "USERNAME=x"}, nullptr);
  EXPECT_EQ(ownProcFile(task, "environ"), "HOME=/elsewhere\nUSERNAME=x\nLOGNAME=" + user + "\nUSER=" + user + "\n");
}

TEST(CTaskTest, AddUserEnvAddsWhatIsAbsent) {
  const CTask task(nullptr, nullptr, nullptr, nullptr);
  CArgsBuilder environment(0);
  environment.addArg("LOGNAME=somebody");
  environment.addArg("HOMEDIR=/other");
  task.addUserEnv(environment);
  const passwd* const entry = ::getpwuid(::geteuid());
  ASSERT_EQ(environment.size(), 4);
  EXPECT_STREQ(environment.getArgs()[0], "LOGNAME=somebody");
  EXPECT_EQ(environment.getArgs()[2], std::string("HOME=") + entry->pw_dir);
  EXPECT_EQ(environment.getArgs()[3], std::string("USER=") + entry->pw_name);
}

TEST(CTaskTest, TheExitStatusIsTheExitCode) {
  EXPECT_EQ(exitCodeOfShell("exit 3"), 3);
  EXPECT_EQ(exitCodeOfShell("exit 0"), 0);
  EXPECT_EQ(exitCodeOfShell("exit 255"), 255);
}

TEST(CTaskTest, ASignalsNumberIsTheExitCode) {
  EXPECT_EQ(exitCodeOfShell("kill -KILL $$"), 9);
  EXPECT_EQ(exitCodeOfShell("kill -TERM $$"), 15);
}

TEST(CTaskTest, AProgramThatCannotBeExecutedGivesTheErrnoValue) {
  const auto exitCodeOf = [](const char* path) {
    CTask task(path, nullptr, nullptr, nullptr);
    EXPECT_EQ(task.launch(), 0U);
    return task.waitForTask();
  };
  const std::string file = test::scratchFolder("plain") + "/file";
  test::writeFile(file, "text");
  EXPECT_EQ(exitCodeOf("/missing/program"), ENOENT);
  EXPECT_EQ(exitCodeOf(file.c_str()), EACCES);
  EXPECT_EQ(exitCodeOf("/"), EACCES);
  EXPECT_EQ(exitCodeOf(nullptr), EFAULT);
}

TEST(CTaskTest, AWaitWithATimeoutEndsBeforeALongChild) {
  CTask task("/bin/sleep", TextList{"60"}, nullptr, nullptr);
  ASSERT_EQ(task.launch(), 0U);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(task.waitForTaskWithTimeout(0.5));
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(500));
  EXPECT_FALSE(task.waitForTaskWithTimeout(0));
  EXPECT_FALSE(task.waitForTaskWithTimeout(-3));
  EXPECT_FALSE(task.waitForTaskWithTimeout(std::nan("")));
  EXPECT_TRUE(task.isRunning());
  EXPECT_TRUE(test::isAlive(task.processID()));
  task.terminate();
  EXPECT_TRUE(task.waitForTaskWithTimeout(std::numeric_limits<double>::infinity()));
  EXPECT_FALSE(task.isRunning());
  EXPECT_EQ(task.waitForTask(), SIGTERM);
  EXPECT_TRUE(task.waitForTaskWithTimeout(0));
}

TEST(CTaskTest, LaunchOnARunningTaskLeavesItsChildAlone) {
  CTask task("/bin/sleep", TextList{"60"}, nullptr, nullptr);
  ASSERT_EQ(task.launch(), 0U);
  const std::int32_t child = task.processID();
  EXPECT_GT(child, 0);
  EXPECT_EQ(task.launch(), kRefused);
  EXPECT_EQ(task.processID(), child);
  EXPECT_TRUE(task.isRunning());
  EXPECT_TRUE(test::isAlive(child));
  task.terminate();
  EXPECT_EQ(task.waitForTask(), SIGTERM);
  EXPECT_EQ(task.processID(), child);
}

TEST(CTaskTest, AnExitedTaskCanBeLaunchedAgain) {
  CTask task("/bin/sh", TextList{"-c", "exit 5"}, nullptr, nullptr);
  ASSERT_EQ(task.launch(), 0U);
  EXPECT_EQ(task.waitForTask(), 5);
  const std::int32_t first = task.processID();
  task.setArgs(TextList{"-c", "exit 6"});
  ASSERT_EQ(task.launch(), 0U);
  EXPECT_NE(task.processID(), first);
  EXPECT_EQ(task.waitForTask(), 6);
}

TEST(CTaskTest, EveryWaiterGetsTheExitCode) {
  CTask task("/bin/sh", TextList{"-c", "read line; exit 7"}, nullptr, nullptr);
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  const int before = ::dup(STDIN_FILENO);
  ASSERT_EQ(::dup2(ends[0], STDIN_FILENO), STDIN_FILENO);
  ASSERT_EQ(task.launch(), 0U);
  ASSERT_EQ(::dup2(before, STDIN_FILENO), STDIN_FILENO);
  std::atomic<int> sum = 0;
  std::vector<std::thread> waiters;
  for (int i = 0; i < 8; ++i) waiters.emplace_back([&] { sum += task.waitForTask(); });
  for (int i = 0; i < 8; ++i) waiters.emplace_back([&] { sum += task.waitForTaskWithTimeout(300) ? 100 : 0; });
  for (const int descriptor : {ends[0], ends[1], before}) ::close(descriptor);
  for (std::thread& waiter : waiters) waiter.join();
  EXPECT_EQ(sum, 8 * 7 + 8 * 100);
}

TEST(CTaskTest, TheChildHasTheStandardStreamsOnly) {
  ASSERT_EQ(::dup2(STDOUT_FILENO, 3), 3);
  ASSERT_EQ(::dup2(STDOUT_FILENO, 57), 57);
  ASSERT_EQ(::dup2(STDOUT_FILENO, 900), 900);
  const std::string out = test::scratchFolder("descriptors") + "/out";
  EXPECT_EQ(exitCodeOfShell("exec > " + out + "; ls /proc/$$/fd; true"), 0);
  EXPECT_EQ(test::readFile(out), "0\n1\n2\n");
  for (const int descriptor : {3, 57, 900}) ::close(descriptor);
}

TEST(CTaskTest, ToDestructARunningTaskEndsTheProcess) {
  const std::string file = test::scratchFolder("destructor") + "/pid";
  const auto destruct = [&] {
    CTask task("/bin/sleep", TextList{"60"}, nullptr, nullptr);
    task.launch();
    test::writeFile(file, std::to_string(task.processID()));
  };
  EXPECT_EXIT(destruct(), ::testing::ExitedWithCode(255),
              "CTask illegal operation: attempt to destruct a running task\n");
  const int child = std::stoi(test::readFile(file));
  ASSERT_GT(child, 0);
  EXPECT_TRUE(test::isAlive(child)) << "the child is not the destructor's business";
  ::kill(child, SIGKILL);
}

// The hooks.

class HookTask : public CTask {
 public:
  explicit HookTask(const std::string& command) : CTask("/bin/sh", TextList{"-c", command}, nullptr, nullptr) {}

  int forkResult = 0;
  int execResult = 0;
  int postResult = 0;
  bool execThrows = false;
  bool exitThrows = false;
  std::vector<std::string> calls;
  std::thread::id exitThread;
  std::function<void()> beforeExit;
  std::function<void()> afterExit;

 protected:
  int on_fork() override {
    calls.emplace_back("on_fork");
    return forkResult != 0 ? forkResult : CTask::on_fork();
  }
  int on_exec() override {
    calls.emplace_back("on_exec");
    if (execThrows) throw std::runtime_error("in the child");
    return execResult != 0 ? execResult : CTask::on_exec();
  }
  int post_fork() override {
    calls.emplace_back("post_fork");
    return postResult;
  }
  void on_exit(int code) override {
    exitThread = std::this_thread::get_id();
    if (beforeExit) beforeExit();
    CTask::on_exit(code);
    if (afterExit) afterExit();
    calls.emplace_back("on_exit " + std::to_string(code));
    if (exitThrows) throw plinth::CParamException("no room for %d", code);
  }
};

using Calls = std::vector<std::string>;

TEST(CTaskHookTest, HooksAreCalledInTheirOrder) {
  HookTask task("exit 2");
  ASSERT_EQ(task.launch(), 0U);
  EXPECT_EQ(task.waitForTask(), 2);
  EXPECT_EQ(task.calls, (Calls{"on_fork", "post_fork", "on_exit 2"})) << "on_exec is the child's alone";
  EXPECT_NE(task.exitThread, std::this_thread::get_id());
}

TEST(CTaskHookTest, AnErrorBeforeTheForkIsTheResult) {
  HookTask task("exit 2");
  task.forkResult = 71;
  EXPECT_EQ(task.launch(), 71U);
  EXPECT_EQ(errno, 71);
  EXPECT_FALSE(task.isRunning());
  EXPECT_EQ(task.processID(), -1);
  EXPECT_EQ(task.calls, Calls{"on_fork"});
  EXPECT_TRUE(test::hasNoChildren());
}

TEST(CTaskHookTest, AnErrorInTheChildIsItsExitCode) {
  HookTask task("exit 2");
  task.execResult = 5;
  ASSERT_EQ(task.launch(), 0U);
  EXPECT_EQ(task.waitForTask(), 5);
}

TEST(CTaskHookTest, AnExceptionInTheChildEndsItAndNothingElse) {
  HookTask task("exit 2");
  task.execThrows = true;
  ASSERT_EQ(task.launch(), 0U);
  EXPECT_EQ(task.waitForTask(), 255);
}

TEST(CTaskHookTest, AnErrorAfterTheForkTerminatesTheChild) {
  HookTask task("exec sleep 60");
  task.postResult = 72;
  EXPECT_EQ(task.launch(), 72U);
  EXPECT_EQ(errno, 72);
  EXPECT_EQ(task.waitForTask(), SIGTERM);
  EXPECT_EQ(task.calls, (Calls{"on_fork", "post_fork", "on_exit 15"}));
}

TEST(CTaskHookTest, WaitsReturnWhenTheWholeHookHas) {
  HookTask task("exit 8");
  std::mutex guard;
  std::condition_variable changed;
  bool mayGoOn = false;
  task.afterExit = [&] {
    std::unique_lock lock(guard);
    changed.wait(lock, [&] { return mayGoOn; });
  };
  ASSERT_EQ(task.launch(), 0U);
  EXPECT_FALSE(task.waitForTaskWithTimeout(0.2));
  EXPECT_TRUE(task.isRunning());
  {
    const std::lock_guard lock(guard);
    mayGoOn = true;
  }
  changed.notify_all();
  EXPECT_EQ(task.waitForTask(), 8);
  EXPECT_FALSE(task.isRunning());
  EXPECT_EQ(task.calls.back(), "on_exit 8");
}

TEST(CTaskHookTest, WaitsWithinOnExitReturnAtOnce) {
  HookTask task("exit 9");
  int seen = -2;
  bool hasEnded = false;
  task.afterExit = [&] {
    seen = task.waitForTask();
    hasEnded = task.waitForTaskWithTimeout(300);
  };
  ASSERT_EQ(task.launch(), 0U);
  EXPECT_EQ(task.waitForTask(), 9);
  EXPECT_EQ(seen, 9);
  EXPECT_TRUE(hasEnded);
}

TEST(CTaskHookTest, AnExceptionInOnExitIsReported) {
  HookTask task("exit 1");
  task.exitThrows = true;
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(task.launch(), 0U);
  EXPECT_EQ(task.waitForTask(), 1);
  const std::string said = ::testing::internal::GetCapturedStderr();
  EXPECT_NE(said.find("CTask::on_exit failed, exception = no room for 1."), std::string::npos) << said;
}

}  // namespace
