#include "tools/mervaned/service_task.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

namespace mervaned {
namespace {

constexpr int kSameUser = 0;

class PointerList {
 public:
  explicit PointerList(const std::vector<std::string>& texts) {
    for (const std::string& text : texts) pointers_.push_back(text.c_str());
    pointers_.push_back(nullptr);
  }
  const char* const* behindFirst() const { return pointers_.data() + 1; }

 private:
  std::vector<const char*> pointers_;
};

}  // namespace

ServiceTask::ServiceTask(const std::vector<std::string>& commandLine)
    : CUserTask(commandLine.front().c_str(), PointerList(commandLine).behindFirst(), environ, kSameUser),
      daemon_(::getpid()) {}

ServiceTask::~ServiceTask() {
  if (handle_ >= 0) ::close(handle_);
}

void ServiceTask::kill() const {
  if (handle_ >= 0) {
    ::syscall(SYS_pidfd_send_signal, handle_, SIGKILL, nullptr, 0U);
  } else if (isRunning()) {
    ::kill(processID(), SIGKILL);  // a kernel without handles
  }
}

int ServiceTask::on_exec() {
  if (const int error = CUserTask::on_exec(); error != 0) return error;
  ::setsid();
  if (::prctl(PR_SET_PDEATHSIG, SIGTERM) != 0) return errno;
  return ::getppid() == daemon_ ? 0 : ESRCH;  // gone before it could be noticed
}

// Nobody has collected the child yet, so its number is its own.
int ServiceTask::post_fork() {
  handle_ = static_cast<int>(::syscall(SYS_pidfd_open, processID(), 0U));
  return CUserTask::post_fork();
}

}  // namespace mervaned
