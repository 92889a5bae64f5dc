// child_process.h: real children for tests of the process table.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

namespace test {

// A child of this process, killed and reaped with its object.
class ChildProcess {
 public:
  // Runs `body` in a fork, which then waits to be killed.
  explicit ChildProcess(const std::function<void()>& body);
  // Runs the program with these arguments, the first of them its own name; `before` (may be empty) runs in the child
  // first.
  ChildProcess(const std::string& program, const std::vector<std::string>& arguments,
               const std::function<void()>& before = {});
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  pid_t id() const { return id_; }
  // Kills it and waits until it is a zombie.
  void becomeZombie();
  // Reaps it.
  void reap();

 private:
  // Both constructors return when the child has got as far as its body or program.
  void start(const std::function<void()>& child);
  void awaitProgram(const std::string& program);

  pid_t id_ = -1;
};

}  // namespace test
