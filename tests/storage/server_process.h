// server_process.h: a storage server in a process of its own, as the daemon is one.
#pragma once

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <tovan/dn_shared_storage_server.h>
#include <unistd.h>

#include <functional>

#include "tests/storage/scripted_storage.h"

namespace test {

// Runs the body in a forked child, which tells by `ready` that others may go on; killed with the object.
class ChildProcess {
 public:
  explicit ChildProcess(const std::function<void(const std::function<void()>& ready)>& body) {
    int ends[2];
    EXPECT_EQ(::pipe(ends), 0);
    pid_ = ::fork();
    if (pid_ == 0) {
      ::close(ends[0]);
      try {
        body([&] { [[maybe_unused]] const ssize_t written = ::write(ends[1], "x", 1); });
      } catch (...) {
        ::_exit(99);
      }
      ::_exit(0);
    }
    ::close(ends[1]);
    char byte;
    EXPECT_EQ(::read(ends[0], &byte, 1), 1) << "a process did not come up";
    ::close(ends[0]);
  }
  ~ChildProcess() { kill(); }
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  pid_t pid() const { return pid_; }
  bool isRunning() const {
    siginfo_t facts{};
    return pid_ > 0 && ::waitid(P_PID, static_cast<id_t>(pid_), &facts, WEXITED | WNOHANG | WNOWAIT) == 0 &&
           facts.si_pid == 0;
  }
  void kill() {
    if (pid_ <= 0) return;
    ::kill(pid_, SIGKILL);
    wait();
  }
  // The exit status; 128 + signal when a signal ended it.
  int wait() {
    int status = 0;
    ::waitpid(pid_, &status, 0);
    pid_ = 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }

 private:
  pid_t pid_ = 0;
};

// Serves until it is killed. `then` is the storage's (scripted_storage.h), in the child.
class ServerProcess : public ChildProcess {
 public:
  explicit ServerProcess(const std::function<void(const std::string&)>& then = nullptr)
      : ChildProcess([&](const std::function<void()>& ready) {
          const auto storage = plinth::makeShared<ScriptedStorage>();
          storage->then = then;
          const auto server = plinth::makeShared<tovan::CDNSharedStorageServer>(storage);
          ready();
          for (;;) CFRunLoopRunInMode(kCFRunLoopDefaultMode, 60, false);
        }) {}
};

}  // namespace test
