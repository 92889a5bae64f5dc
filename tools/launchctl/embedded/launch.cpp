#include "tools/launchctl/embedded/launch.h"

#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <utility>
#include <vector>

#include "tools/launchctl/failure.h"
#include "tools/launchctl/process.h"
#include "tools/launchctl/streams.h"

namespace launchctl {
namespace {

constexpr int kOutcomeMilliseconds = 100;

// All that the child needs, made before the fork.
struct Child {
  const char* program;
  char* const* arguments;
  char* const* environment;
  const char* folder;
  const char* in;
  const char* out;
  const char* err;
  int gate;
  int failures;
};

// The failure's head: what follows it is the object's name.
struct FailureHead {
  int error;
  char stage;  // 'd' folder, 's' stream, 'x' program
};

[[noreturn]] void fail(const Child& child, char stage, int error, const char* object) {
  FailureHead head{};
  head.error = error;
  head.stage = stage;
  // Both fit the empty pipe; a reader that is gone needs no answer.
  if (::write(child.failures, &head, sizeof head) == static_cast<ssize_t>(sizeof head)) {
    if (::write(child.failures, object, std::strlen(object)) < 0) ::_exit(kLaunchFailed);
  }
  ::_exit(kLaunchFailed);
}

// The child: async-signal-safe calls only.
[[noreturn]] void runChild(const Child& child) {
  ::setsid();
  for (int signal = 1; signal < NSIG; ++signal) ::signal(signal, SIG_DFL);
  char go = 0;
  ssize_t count;
  do {
    count = ::read(child.gate, &go, 1);
  } while (count < 0 && errno == EINTR);
  if (count != 1) ::_exit(kLaunchFailed);
  ::umask(022);
  if (::chdir(child.folder) != 0) fail(child, 'd', errno, child.folder);
  const char* failed = nullptr;
  const int error = openStreams(child.in, child.out, child.err, &failed);
  if (error != 0) fail(child, 's', error, failed);
  sigset_t none;
  ::sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
  ::execve(child.program, child.arguments, child.environment);
  fail(child, 'x', errno, child.program);
}

// A pipe whose ends do not lie on the standard descriptors, which the child replaces.
std::pair<Descriptor, Descriptor> makePipe() {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) throw systemFailure("cannot make a pipe");
  Descriptor reader(ends[0]);
  Descriptor writer(ends[1]);
  if (reader.get() < 3) reader.reset(::fcntl(reader.get(), F_DUPFD_CLOEXEC, 3));
  if (writer.get() < 3) writer.reset(::fcntl(writer.get(), F_DUPFD_CLOEXEC, 3));
  if (!reader || !writer) throw systemFailure("cannot make a pipe");
  return {std::move(reader), std::move(writer)};
}

}  // namespace

Launched launch(const JobDescription& job, const std::string& program,
                const std::map<std::string, std::string>& environment) {
  auto [gateReader, gateWriter] = makePipe();
  auto [failureReader, failureWriter] = makePipe();
  std::map<std::string, std::string> variables = environment;
  for (const auto& [name, value] : job.environment) variables[name] = value;
  const std::vector<std::string> lines = environmentLines(variables);
  const std::vector<char*> environmentVector = cStrings(lines);
  const std::vector<char*> argumentVector = cStrings(job.arguments);
  const std::string folder = job.workingDirectory.empty() ? "/" : job.workingDirectory;
  const Child child = {program.c_str(),
                       argumentVector.data(),
                       environmentVector.data(),
                       folder.c_str(),
                       job.standardInPath.c_str(),
                       job.standardOutPath.c_str(),
                       job.standardErrorPath.c_str(),
                       gateReader.get(),
                       failureWriter.get()};
  const int writer = gateWriter.get();
  const pid_t pid = ::fork();
  if (pid < 0) throw systemFailure("cannot make a process for " + program);
  if (pid == 0) {
    ::close(writer);  // or the host's end would not be noticed
    runChild(child);
  }
  Launched launched;
  launched.pid = pid;
  launched.gate = std::move(gateWriter);
  launched.failures = std::move(failureReader);
  return launched;
}

void openGate(Launched& launched) noexcept {
  // A child that has been killed meanwhile leaves a broken pipe: its end is told in its own way.
  while (::write(launched.gate.get(), "g", 1) < 0 && errno == EINTR) {
  }
  launched.gate.reset();
  // The program's start closes the other end; what keeps it from starting is said there.
  pollfd outcome{launched.failures.get(), POLLIN, 0};
  ::poll(&outcome, 1, kOutcomeMilliseconds);
}

bool hasFailed(const Launched& launched) noexcept {
  int said = 0;
  return launched.failures && ::ioctl(launched.failures.get(), FIONREAD, &said) == 0 && said > 0;
}

std::string failureOf(int descriptor) {
  if (descriptor < 0) return {};
  char buffer[4096];
  std::size_t length = 0;
  while (length < sizeof buffer) {
    const ssize_t count = ::read(descriptor, buffer + length, sizeof buffer - length);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    length += static_cast<std::size_t>(count);
  }
  FailureHead head{};
  if (length < sizeof head) return {};
  std::memcpy(&head, buffer, sizeof head);
  const std::string object(buffer + sizeof head, length - sizeof head);
  const char* const what = head.stage == 'd'   ? "cannot enter the folder "
                           : head.stage == 's' ? "cannot open "
                                               : "cannot execute ";
  const bool special = head.stage == 's' && head.error == EINVAL;
  return what + object + ": " + (special ? "it is neither a regular file nor a device" : systemReason(head.error));
}

}  // namespace launchctl
