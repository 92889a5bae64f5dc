// daemon_console.h: where a daemon that tovanctl starts writes its messages for people, which stand in its log too,
// and what it says before it has one.
#pragma once

#include <string>

namespace tovanctl {

// As long as it lives, this process's standard error is the end of mervaned-console.txt in the folder of the process
// logs; a daemon that is started meanwhile keeps it. A terminal would show the daemon's messages long after tovanctl
// has ended. Where the file cannot be had, everything stays as it is.
class DaemonConsole {
 public:
  DaemonConsole();
  ~DaemonConsole();
  DaemonConsole(const DaemonConsole&) = delete;
  DaemonConsole& operator=(const DaemonConsole&) = delete;

  // Empty when the file cannot be had.
  const std::string& path() const { return path_; }

 private:
  std::string path_;
  int former_ = -1;
};

}  // namespace tovanctl
