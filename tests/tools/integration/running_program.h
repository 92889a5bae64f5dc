// running_program.h: a program of the build that runs beside the test, and what both sides leave in the PID file.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <tovan/service_pid_file.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/notification_log.h"
#include "tests/support/scratch_home.h"

extern char** environ;

namespace test {

// Its standard input is empty, the other two streams go into a file. It is asked to end with the object,
// and waited for, so that it leaves nothing that the next test would meet; killed when it does not end.
class RunningProgram {
 public:
  RunningProgram(const std::string& path, const std::vector<std::string>& arguments)
      : output_(scratchFolder("program") + "/output") {
    std::vector<char*> argv = {const_cast<char*>(path.c_str())};
    for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, output_.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    posix_spawn_file_actions_adddup2(&actions, 1, 2);
    const int failed = ::posix_spawn(&pid_, path.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    EXPECT_EQ(failed, 0) << "cannot start " << path;
    if (failed != 0) pid_ = -1;
  }
  ~RunningProgram() {
    if (hasEnded() || end() != -1) return;
    signal(SIGKILL);
    ::waitpid(pid_, nullptr, 0);
  }
  RunningProgram(const RunningProgram&) = delete;
  RunningProgram& operator=(const RunningProgram&) = delete;

  pid_t pid() const { return pid_; }
  void signal(int number) const {
    if (pid_ > 0 && !collected_) ::kill(pid_, number);
  }
  bool hasEnded() {
    if (pid_ <= 0 || collected_) return true;
    int status = 0;
    if (::waitpid(pid_, &status, WNOHANG) != pid_) return false;
    status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    collected_ = true;
    return true;
  }
  // The exit status, 128 + signal when a signal ended it, -1 when it has not ended within the seconds.
  int waitForEnd(double seconds = 20) {
    return runLoopUntil([this] { return hasEnded(); }, seconds) ? status_ : -1;
  }
  int end(int number = SIGTERM) {
    signal(number);
    return waitForEnd();
  }
  std::string output() const { return exists(output_) ? readFile(output_) : ""; }
  // Whether the output holds the text, within some time.
  bool prints(const std::string& text) const {
    return runLoopUntil([&] { return output().find(text) != std::string::npos; });
  }

 private:
  std::string output_;
  pid_t pid_ = -1;
  bool collected_ = false;
  int status_ = -1;
};

inline std::vector<std::int32_t> registeredPids(CFStringRef key) {
  std::vector<std::int32_t> pids;
  tovan::CServicePIDFile(key).get(pids);
  return pids;
}

inline bool isDescribed(std::int32_t pid) {
  const tovan::CServicePIDFile file(CFSTR("any"));
  return file.processAttributes(pid) != nullptr;
}

// A process id that nobody has any more.
inline pid_t deadPid() {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(0);
  ::waitpid(child, nullptr, 0);
  return child;
}

}  // namespace test
