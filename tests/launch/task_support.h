// task_support.h: children for tests of tasks.
#pragma once

#include "tests/support/scratch_home.h"

#include <dirent.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

namespace test {

// A null-terminated list of texts, as the tasks take it.
class TextList {
 public:
  TextList(std::initializer_list<std::string> texts) : texts_(texts) {
    for (const std::string& text : texts_) pointers_.push_back(text.c_str());
    pointers_.push_back(nullptr);
  }
  TextList(const TextList&) = delete;
  TextList& operator=(const TextList&) = delete;
  operator const char* const*() const { return pointers_.data(); }

 private:
  std::vector<std::string> texts_;
  std::vector<const char*> pointers_;
};

// The number of entries of a folder of /proc/self: open descriptors, threads. What is used to count does not count.
inline int countOfOwn(const std::string& what) {
  DIR* const folder = ::opendir(("/proc/self/" + what).c_str());
  if (folder == nullptr) return -1;
  int count = what == "fd" ? -1 : 0;
  while (const dirent* const entry = ::readdir(folder)) count += entry->d_name[0] != '.' ? 1 : 0;
  ::closedir(folder);
  return count;
}

// Tries again, 20 seconds at most, until a condition that nothing announces holds.
inline bool comesTrue(const std::function<bool()>& condition) {
  for (int attempt = 0; attempt < 20000; ++attempt) {
    if (condition()) return true;
    ::usleep(1000);
  }
  return false;
}

inline bool isAlive(pid_t id) { return ::kill(id, 0) == 0; }

// True when this process has no children, running or ended.
inline bool hasNoChildren() {
  siginfo_t info;
  return ::waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) != 0 && errno == ECHILD;
}

// Runs the body in a process of its own, for what cannot be undone, and gives what it returns; after a death, how it
// died.
inline std::string inAnotherProcess(const std::function<std::string()>& body) {
  int ends[2];
  if (::pipe(ends) != 0) return "no pipe";
  const pid_t child = ::fork();
  if (child == 0) {
    ::close(ends[0]);
    const std::string said = body();
    const bool written = ::write(ends[1], said.data(), said.size()) == static_cast<ssize_t>(said.size());
    ::_exit(written ? 0 : 99);
  }
  ::close(ends[1]);
  std::string said;
  char buffer[512];
  for (ssize_t size; (size = ::read(ends[0], buffer, sizeof buffer)) > 0;)
    said.append(buffer, static_cast<size_t>(size));
  ::close(ends[0]);
  int status = 0;
  ::waitpid(child, &status, 0);
  return status == 0 ? said : said + " and died with wait status " + std::to_string(status);
}

}  // namespace test
