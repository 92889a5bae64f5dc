// mount_table_support.h: showing a process another mount table than the one it has.
#pragma once

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <exception>
#include <fstream>
#include <functional>
#include <iterator>
#include <regex>
#include <string>

#include "tests/support/scratch_home.h"

namespace test {

inline std::string mountTable() {
  std::ifstream file("/proc/self/mountinfo");
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

using TableChange = std::function<std::string(const std::string& table)>;

// Every file system is of another type.
inline TableChange everyType(const std::string& type) {
  return [type](const std::string& table) {
    return std::regex_replace(table, std::regex(" - [^ ]+ "), " - " + type + " ");
  };
}
// One more mount, at the end.
inline TableChange oneMore(const std::string& line) {
  return [line](const std::string& table) { return table + line + "\n"; };
}

// What `question` says, or throws, in a child that sees its table changed; "not permitted" where the system does not
// let a process have a mount namespace of its own.
inline std::string answerWithMounts(const TableChange& change, const std::function<std::string()>& question) {
  const std::string file = scratchFolder("mount table") + "/table";
  int answer[2];
  if (::pipe(answer) != 0) return "no pipe";
  const pid_t child = ::fork();
  if (child == 0) {
    ::close(answer[0]);
    const std::string shown = "/proc/" + std::to_string(::getpid()) + "/mountinfo";
    bool isShown = ::unshare(CLONE_NEWNS) == 0 && ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    writeFile(file, change(mountTable()));
    isShown = isShown && ::mount(file.c_str(), shown.c_str(), nullptr, MS_BIND, nullptr) == 0;
    std::string text = "not permitted";
    try {
      if (isShown) text = question();
    } catch (const std::exception& exception) {
      text = exception.what();
    }
    [[maybe_unused]] const ssize_t written = ::write(answer[1], text.data(), text.size());
    ::_exit(0);
  }
  ::close(answer[1]);
  std::string text;
  char buffer[512];
  for (ssize_t count; (count = ::read(answer[0], buffer, sizeof buffer)) > 0;) {
    text.append(buffer, static_cast<std::size_t>(count));
  }
  ::close(answer[0]);
  ::waitpid(child, nullptr, 0);
  return text;
}

}  // namespace test
