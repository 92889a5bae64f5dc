// service_task.h: the process of one instance of a service.
#pragma once

#include <tovan/user_task.h>

#include <string>
#include <vector>

namespace mervaned {

// Runs as the daemon's user with the daemon's environment, in a session of its own, so that a terminal's signals for
// the daemon do not reach it. It gets SIGTERM when the daemon is gone without having ended it. Launched once.
class ServiceTask : public tovan::CUserTask {
 public:
  // The program's path, then its arguments; never empty.
  explicit ServiceTask(const std::vector<std::string>& commandLine);
  ~ServiceTask() override;

  // Ends the process at once. Does nothing when it has ended: no other process ever gets the signal.
  void kill() const;

 protected:
  int on_exec() override;
  int post_fork() override;

 private:
  const pid_t daemon_;
  int handle_ = -1;  // names the process even when it has ended and its number was given away again
};

}  // namespace mervaned
