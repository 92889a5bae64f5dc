#include "platform/system/detached_process.h"

#include "platform/system/descriptor.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>

namespace platform {
namespace {

// Keeps the process's signal handlers from running in the child, for a scope.
class AllSignalsBlocked {
 public:
  AllSignalsBlocked() noexcept {
    sigset_t all;
    sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &former_);
  }
  ~AllSignalsBlocked() { ::pthread_sigmask(SIG_SETMASK, &former_, nullptr); }
  AllSignalsBlocked(const AllSignalsBlocked&) = delete;
  AllSignalsBlocked& operator=(const AllSignalsBlocked&) = delete;

 private:
  sigset_t former_;
};

// Where the program-to-be holds the pipe that closes when it runs: behind the standard streams.
constexpr int kReport = STDERR_FILENO + 1;

// What the other end of a pipe reports: a whole int, or `ifClosed` when it goes away without one.
int readReport(int descriptor, int ifClosed) noexcept {
  int report = 0;
  ssize_t count;
  do {
    count = ::read(descriptor, &report, sizeof report);
  } while (count < 0 && errno == EINTR);
  return count == static_cast<ssize_t>(sizeof report) ? report : ifClosed;
}

// The functions from here on run in a forked child: they make async-signal-safe calls only.

// The reader may be gone: SIGPIPE is blocked, and nothing is left to be done.
[[noreturn]] void reportAndExit(int descriptor, int error) noexcept {
  while (::write(descriptor, &error, sizeof error) < 0 && errno == EINTR) {
  }
  ::_exit(error == 0 ? 0 : 1);
}

void resetSignals() noexcept {
  struct sigaction standard {};
  standard.sa_handler = SIG_DFL;
  for (int signal = 1; signal < NSIG; ++signal) ::sigaction(signal, &standard, nullptr);
  sigset_t none;
  sigemptyset(&none);
  ::pthread_sigmask(SIG_SETMASK, &none, nullptr);
}

// The standard streams as promised, and nothing else but the report, which stands at kReport.
bool arrangeDescriptors() noexcept {
  ::close_range(kReport + 1, UINT_MAX, 0);
  const int null = ::open("/dev/null", O_RDWR);  // takes the place of a standard stream that was closed
  if (null < 0 || ::dup2(null, STDIN_FILENO) < 0 || ::dup2(null, STDOUT_FILENO) < 0) return false;
  const int flags = ::fcntl(STDERR_FILENO, F_GETFD);
  const bool staysOpen = flags >= 0 && (flags & FD_CLOEXEC) == 0;
  if (!staysOpen && ::dup2(null, STDERR_FILENO) < 0) return false;
  if (null > kReport) ::close(null);
  return true;
}

[[noreturn]] void becomeProgram(const char* program, int report) noexcept {
  if (report != kReport && ::dup3(report, kReport, O_CLOEXEC) < 0) reportAndExit(report, errno);
  if (!arrangeDescriptors()) reportAndExit(kReport, errno);
  resetSignals();
  char* const arguments[] = {const_cast<char*>(program), nullptr};
  ::execve(program, arguments, environ);
  reportAndExit(kReport, errno);
}

// Stands between this process and the program, and ends as soon as the program runs, which orphans it. Its own pipe
// tells it so by closing: no other thread is here that could fork and hold it open.
[[noreturn]] void startOrphan(const char* program, int report) noexcept {
  int ends[2];
  if (::setsid() < 0 || ::pipe2(ends, O_CLOEXEC) != 0) reportAndExit(report, errno);
  const pid_t child = ::_Fork();
  if (child == 0) becomeProgram(program, ends[1]);
  if (child < 0) reportAndExit(report, errno);
  ::close(ends[1]);
  reportAndExit(report, readReport(ends[0], 0));
}

}  // namespace

int launchDetached(const std::string& program) noexcept {
  const AllSignalsBlocked blocked;
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) return errno;
  const Descriptor reader(ends[0]);
  Descriptor writer(ends[1]);
  const pid_t child = ::fork();
  if (child == 0) startOrphan(program.c_str(), writer.get());
  if (child < 0) return errno;
  writer.reset();
  const int report = readReport(reader.get(), ECHILD);
  // Somebody else in this process may have collected it.
  while (::waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
  }
  return report;
}

}  // namespace platform
