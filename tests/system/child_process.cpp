#include "tests/system/child_process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>

namespace test {

ChildProcess::ChildProcess(const std::function<void()>& body) {
  start([&] {
    if (body) body();
  });
}

ChildProcess::ChildProcess(const std::string& program, const std::vector<std::string>& arguments,
                           const std::function<void()>& before) {
  start([&] {
    if (before) before();
    std::vector<char*> list;
    for (const std::string& argument : arguments) list.push_back(const_cast<char*>(argument.c_str()));
    list.push_back(nullptr);
    ::execv(program.c_str(), list.data());
    ::_exit(127);
  });
  awaitProgram(program);
}

// The kernel closes the pipe before it shows the new program in /proc.
void ChildProcess::awaitProgram(const std::string& program) {
  const std::string arguments = "/proc/" + std::to_string(id_) + "/cmdline";
  for (;;) {
    siginfo_t info{};
    ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(id_), &info, WEXITED | WNOWAIT | WNOHANG), 0);
    ASSERT_EQ(info.si_pid, 0) << program << " could not be started";
    std::ifstream file(arguments);
    if (file.get() != std::ifstream::traits_type::eof()) return;
    ::sched_yield();
  }
}

void ChildProcess::start(const std::function<void()>& child) {
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  id_ = ::fork();
  if (id_ == 0) {
    child();
    ::close(ends[0]);
    ::close(ends[1]);
    for (;;) ::pause();
  }
  ASSERT_GT(id_, 0);
  ::close(ends[1]);
  // The other end closes when the child executes its program or closes it.
  char byte;
  while (::read(ends[0], &byte, 1) < 0 && errno == EINTR) {
  }
  ::close(ends[0]);
}

ChildProcess::~ChildProcess() {
  if (id_ <= 0) return;
  ::kill(id_, SIGKILL);
  reap();
}

void ChildProcess::becomeZombie() {
  ASSERT_EQ(::kill(id_, SIGKILL), 0);
  siginfo_t info;
  ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(id_), &info, WEXITED | WNOWAIT), 0);
}

void ChildProcess::reap() {
  while (::waitpid(id_, nullptr, 0) < 0 && errno == EINTR) {
  }
  id_ = -1;
}

}  // namespace test
