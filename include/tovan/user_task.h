// user_task.h: CUserTask, a child process that runs as a given user and whose end is announced.
//
// The announcement is the distributed notification kTovanTaskTerminatedNotification, without an object. Its user info
// has one entry, kDictKeyTaskPtr, a CFIndex number: the address of the task. It is posted before the task's waits
// return, so a process that waits and exits loses none. An observer in this process that is to destroy the task calls
// waitForTask() first, which returns at once or nearly so. CTask's rules hold otherwise.
#pragma once

#include <tovan/task.h>

#include <sys/types.h>

#include <vector>

namespace tovan {

class TOVAN_EXPORT CUserTask : public CTask {
 public:
  // User id 0 leaves the user as it is.
  CUserTask(const char* path, const char* const* args, const char* const* env, int uid);
  ~CUserTask() override;

  void setUserID(int uid) noexcept { userID_ = uid; }

 protected:
  // Looks up the user's groups, which the child cannot. An errno value when the user database cannot be read.
  int on_fork() override;
  // Becomes the user and starts a session of its own. A process whose real user is root takes the groups that the user
  // is a member of (none for a user that the system does not know), and keeps its effective group. A child that may not
  // become the user ends with the errno value; the program never runs as somebody else.
  int on_exec() override;
  void on_exit(int code) override;

 private:
  int userID_;
  std::vector<gid_t> groups_;
};

}  // namespace tovan
