#include "tools/mount/host_tool.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <optional>
#include <system_error>

namespace host_mount {
namespace {

constexpr const char* kFolders[] = {"/usr/bin/", "/bin/"};
constexpr time_t kGraceSeconds = 2;

std::string reason(int error) { return std::generic_category().message(error); }

// The signals that are passed on, and the one that tells of a child.
sigset_t watchedSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGQUIT, SIGCHLD}) sigaddset(&signals, signal);
  return signals;
}

[[noreturn]] void becomeTool(const char* path, char* const* argv, pid_t parent, const sigset_t& mask, int report) {
  ::setpgid(0, 0);
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (::getppid() != parent) ::_exit(kNotExecutable);
  ::sigprocmask(SIG_SETMASK, &mask, nullptr);
  ::execv(path, argv);
  const int error = errno;
  (void)!::write(report, &error, sizeof error);
  ::_exit(kNotExecutable);
}

// The error that kept the tool from being run; 0 when it runs.
int reportedError(int report) {
  int error = 0;
  ssize_t size;
  do {
    size = ::read(report, &error, sizeof error);
  } while (size < 0 && errno == EINTR);
  ::close(report);
  return size == static_cast<ssize_t>(sizeof error) ? error : 0;
}

pid_t startTool(const std::string& path, const std::vector<std::string>& arguments, const sigset_t& mask) {
  std::vector<char*> argv = {const_cast<char*>(path.c_str())};
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  int report[2];
  if (::pipe2(report, O_CLOEXEC) != 0) throw HostToolFailure(kNotExecutable, path + ": " + reason(errno));
  const pid_t parent = ::getpid();
  const pid_t child = ::fork();
  const int forkError = errno;
  if (child == 0) becomeTool(path.c_str(), argv.data(), parent, mask, report[1]);
  ::close(report[1]);
  const int error = reportedError(report[0]);
  if (child < 0) throw HostToolFailure(kNotExecutable, path + ": " + reason(forkError));
  if (error == 0) return child;
  while (::waitpid(child, nullptr, 0) < 0 && errno == EINTR) continue;
  throw HostToolFailure(error == ENOENT ? kNotFound : kNotExecutable, path + ": " + reason(error));
}

// Collects all children that have ended, and keeps the tool's own status.
void collect(pid_t tool, std::optional<int>& toolStatus) {
  int status;
  for (pid_t ended; (ended = ::waitpid(-1, &status, WNOHANG)) > 0;) {
    if (ended == tool) toolStatus = status;
  }
}

int awaitEnd(pid_t tool, const sigset_t& signals) {
  const timespec grace{kGraceSeconds, 0};
  bool isEnding = false;
  for (std::optional<int> status;;) {
    collect(tool, status);
    if (status && (!isEnding || ::kill(-tool, 0) != 0)) {
      return WIFEXITED(*status) ? WEXITSTATUS(*status) : 128 + WTERMSIG(*status);
    }
    const int signal = ::sigtimedwait(&signals, nullptr, isEnding ? &grace : nullptr);
    if (signal < 0 && errno == EAGAIN) ::kill(-tool, SIGKILL);
    if (signal <= 0 || signal == SIGCHLD) continue;
    isEnding = true;
    ::kill(-tool, signal);
  }
}

}  // namespace

std::string findHostTool(const std::string& name, const char* variable) {
  if (const char* const named = ::secure_getenv(variable)) {
    std::error_code error;
    if (named[0] != '/') throw HostToolFailure(kRefused, std::string(variable) + " is no absolute path");
    if (std::filesystem::equivalent(named, "/proc/self/exe", error)) {
      throw HostToolFailure(kRefused, std::string(variable) + " names this program itself");
    }
    return named;
  }
  for (const char* const folder : kFolders) {
    std::string path = folder + name;
    if (::access(path.c_str(), X_OK) == 0) return path;
  }
  throw HostToolFailure(kNotFound, "the host has no " + name + " in /usr/bin or /bin");
}

int runHostTool(const std::string& path, const std::vector<std::string>& arguments) {
  const sigset_t signals = watchedSignals();
  sigset_t before;
  ::sigprocmask(SIG_BLOCK, &signals, &before);
  ::signal(SIGCHLD, SIG_DFL);  // a caller that ignores it hands that down, and no child could be collected
  ::prctl(PR_SET_CHILD_SUBREAPER, 1);
  return awaitEnd(startTool(path, arguments, before), signals);
}

}  // namespace host_mount
