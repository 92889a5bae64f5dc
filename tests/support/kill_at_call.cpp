#include "tests/support/kill_at_call.h"

#include <gtest/gtest.h>

#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>

namespace test {
namespace {

// The system call that stands at both ends of what is looked at; nothing else makes it.
void mark() { ::syscall(SYS_getsid, 0); }

[[noreturn]] void runTraced(const std::function<void()>& prepare, const std::function<void()>& work) {
  prepare();
  ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
  ::raise(SIGSTOP);
  mark();
  work();
  mark();
  ::_exit(0);
}

std::uint64_t callNumber(pid_t child) {
  __ptrace_syscall_info info = {};
  ::ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof info, &info);
  return info.op == PTRACE_SYSCALL_INFO_ENTRY ? info.entry.nr : UINT64_MAX;
}

}  // namespace

bool killAtCall(int last, const std::function<void()>& prepare, const std::function<void()>& work) {
  const pid_t child = ::fork();
  if (child == 0) runTraced(prepare, work);
  int status = 0;
  EXPECT_EQ(::waitpid(child, &status, 0), child);
  ::ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
  int marks = 0;
  int stops = -1;  // the end of the first mark itself
  for (;;) {
    ::ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    if (WIFEXITED(status) || WIFSIGNALED(status)) return false;
    if (WSTOPSIG(status) != (SIGTRAP | 0x80)) continue;
    if (callNumber(child) == SYS_getsid) ++marks;
    const bool isOver = marks == 2;
    if (marks == 1) ++stops;
    if (!isOver && stops < last) continue;
    ::kill(child, SIGKILL);
    ::waitpid(child, &status, 0);
    return !isOver;
  }
}

}  // namespace test
