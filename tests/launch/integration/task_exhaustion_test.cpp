// No more descriptors, processes or threads to be had: a defined result, and nothing left behind.
#include <tovan/task.h>
#include <tovan/task2.h>

#include "tests/launch/task_support.h"
#include "tests/support/failing_system_call.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/syscall.h>

#include <cerrno>
#include <cstring>
#include <functional>

namespace {

using test::TextList;
using tovan::CTask;
using tovan::CTask2;

void closeTerminalOf(CTask&) {}
void closeTerminalOf(CTask2& task) { task.closeTerminal(); }

// The result of a launch, errno and how the child ended; then what was left over.
template <class Task>
std::string launchResult(Task& task) {
  const int descriptors = test::countOfOwn("fd");
  const int threads = test::countOfOwn("task");  // a sanitizer may have one of its own
  const std::uint32_t result = task.launch();
  const int error = errno;
  std::string said = std::to_string(static_cast<int>(result)) + " errno " + std::to_string(error) +
                     (task.processID() > 0 ? " ended " + std::to_string(task.waitForTask()) : " idle");
  if (task.isRunning()) said += ", runs";
  if (!test::comesTrue([] { return test::hasNoChildren(); })) said += ", a child was left";
  if (!test::comesTrue([&] { return test::countOfOwn("task") == threads; })) said += ", a thread was left";
  closeTerminalOf(task);
  if (test::countOfOwn("fd") != descriptors) said += ", descriptors were left";
  return said;
}

std::string launchOf(const std::function<bool()>& prepare, bool withTerminal) {
  return test::inAnotherProcess([&]() -> std::string {
    CTask plain("/bin/sleep", TextList{"60"}, nullptr, nullptr);
    CTask2 terminal("/bin/sleep", TextList{"60"});
    if (!prepare()) return "not prepared";
    return withTerminal ? launchResult(terminal) : launchResult(plain);
  });
}

bool limitDescriptors(int limit) {
  rlimit limits{};
  if (::getrlimit(RLIMIT_NOFILE, &limits) != 0) return false;
  limits.rlim_cur = static_cast<rlim_t>(limit);
  return ::setrlimit(RLIMIT_NOFILE, &limits) == 0;
}

// Leaves room for so many more descriptors.
bool leaveDescriptors(int count) {
  const int next = ::dup(STDIN_FILENO);
  ::close(next);
  return next >= 0 && limitDescriptors(next + count);
}

bool allowDescriptors() { return limitDescriptors(256); }

TEST(TaskExhaustionTest, WithoutProcessesALaunchFailsWithErrno) {
  const auto prepare = [] { return test::makeSystemCallFail(SYS_clone, EAGAIN); };
  EXPECT_EQ(launchOf(prepare, false), "11 errno 11 idle");
  EXPECT_EQ(launchOf(prepare, true), "11 errno 11 idle");
}

TEST(TaskExhaustionTest, WithoutThreadsTheChildIsKilledAndCollected) {
  const auto prepare = [] { return test::makeSystemCallFail(SYS_clone3, EAGAIN); };
  EXPECT_EQ(launchOf(prepare, false), "11 errno 11 ended 9");
  EXPECT_EQ(launchOf(prepare, true), "11 errno 11 ended 9");
}

// Whatever the step is that finds no descriptor left, the launch ends with -1 before the fork.
TEST(TaskExhaustionTest, WithoutDescriptorsATerminalCannotBeHad) {
  for (int left = 0; left < 4; ++left) {
    const std::string said = test::inAnotherProcess([left]() -> std::string {
      CTask2 task("/bin/echo", TextList{"text"});
      const int before = test::countOfOwn("fd");
      if (!leaveDescriptors(left)) return "not prepared";
      const std::uint32_t result = task.launch();
      std::string seen = std::to_string(static_cast<int>(result)) + " errno " + std::to_string(errno);
      if (task.isRunning() || !test::hasNoChildren()) seen += ", a child runs";
      if (!allowDescriptors()) return "not prepared";
      if (test::countOfOwn("fd") != before) seen += ", descriptors were left";
      return seen;
    });
    EXPECT_EQ(said, "-1 errno 24") << "with " << left << " descriptors left";
  }
}

TEST(TaskExhaustionTest, ATaskWhoseLaunchFailedCanBeLaunchedLater) {
  const std::string said = test::inAnotherProcess([]() -> std::string {
    CTask2 task("/bin/echo", TextList{"text"});
    if (!leaveDescriptors(2) || task.launch() == 0) return "launched";
    if (!allowDescriptors()) return "not prepared";
    if (task.launch() != 0) return std::strerror(errno);
    return task.getTaskOutput()->str();
  });
  EXPECT_EQ(said, "text\n");
}

TEST(TaskExhaustionTest, WithoutAUserDatabaseNothingIsLaunched) {
  const std::string said = test::inAnotherProcess([]() -> std::string {
    CTask task("/bin/true", nullptr, nullptr, nullptr);
    if (!leaveDescriptors(0)) return "not prepared";
    const std::uint32_t result = task.launch();
    return std::to_string(result) + (task.isRunning() ? " runs" : " idle");
  });
  EXPECT_EQ(said, "24 idle");
}

TEST(TaskExhaustionTest, AKernelWithoutCloseRangeClosesAllTheSame) {
  const std::string said = test::inAnotherProcess([]() -> std::string {
    if (::dup2(STDIN_FILENO, 200) != 200 || !test::makeSystemCallFail(SYS_close_range, ENOSYS)) return "not prepared";
    CTask task("/bin/sh", TextList{"-c", "test ! -e /proc/$$/fd/200"}, nullptr, nullptr);
    if (task.launch() != 0) return "not launched";
    return std::to_string(task.waitForTask());
  });
  EXPECT_EQ(said, "0");
}

}  // namespace
