// named_process.h: a process of a chosen name.
#pragma once

#include "tests/support/scratch_home.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

namespace test {

// Runs until its object goes, which kills and collects it.
class NamedProcess {
 public:
  // `before` runs in the child, in front of its program.
  explicit NamedProcess(const std::string& fileName, const std::function<void()>& before = {}) {
    const std::string program = scratchFolder("process") + "/" + fileName;
    std::filesystem::copy_file(std::filesystem::canonical("/bin/sleep"), program);
    std::filesystem::permissions(std::filesystem::path(program).parent_path(), std::filesystem::perms{0755});
    std::filesystem::permissions(scratchHome(), std::filesystem::perms{0755});
    int ends[2] = {-1, -1};
    EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    id_ = ::fork();
    if (id_ == 0) {
      if (before) before();
      ::execl(program.c_str(), program.c_str(), "1000", static_cast<char*>(nullptr));
      ::_exit(127);
    }
    ::close(ends[1]);
    char byte;
    while (::read(ends[0], &byte, 1) < 0 && errno == EINTR) {
    }
    ::close(ends[0]);
    awaitProgram(program);
  }
  ~NamedProcess() {
    ::kill(id_, SIGKILL);
    while (::waitpid(id_, nullptr, 0) < 0 && errno == EINTR) {
    }
  }
  NamedProcess(const NamedProcess&) = delete;
  NamedProcess& operator=(const NamedProcess&) = delete;

  pid_t id() const { return id_; }

 private:
  // The kernel closes the pipe before it shows the new program.
  void awaitProgram(const std::string& program) const {
    for (int i = 0; i < 100000; ++i) {
      std::string name;
      std::getline(std::ifstream("/proc/" + std::to_string(id_) + "/cmdline"), name, '\0');
      if (name == program) return;
      ::usleep(100);
    }
    ADD_FAILURE() << program << " does not run";
  }

  pid_t id_ = -1;
};

}  // namespace test
