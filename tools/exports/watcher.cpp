#include "tools/exports/watcher.h"

#include <poll.h>
#include <signal.h>

#include <cstdio>
#include <exception>
#include <filesystem>
#include <set>
#include <string>

#include "tools/exports/pass.h"
#include "tools/launchctl/descriptor.h"
#include "tools/launchctl/failure.h"
#include "tools/launchctl/path_watch.h"

namespace exports {
namespace {

using launchctl::Descriptor;

constexpr int kPollInterval = 1000;  // milliseconds, where a folder cannot be watched
constexpr int kMostSettling = 50;
constexpr int kSettleInterval = 10;  // milliseconds: changes that come together are one

int signalPipe = -1;

void signalArrived(int signal) {
  const int error = errno;
  const char byte = signal == SIGHUP ? 'h' : 't';
  [[maybe_unused]] const ssize_t count = ::write(signalPipe, &byte, 1);  // a full pipe tells enough
  errno = error;
}

// The read end of the pipe through which signals arrive.
Descriptor catchSignals() {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) throw launchctl::systemFailure("no pipe for signals");
  signalPipe = ends[1];
  struct sigaction action {};
  action.sa_handler = signalArrived;
  action.sa_flags = SA_RESTART;
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) ::sigaction(signal, &action, nullptr);
  return Descriptor(ends[0]);
}

void complain(const std::exception& failure) {
  std::fprintf(stderr, "tovan-exports: %s\n", failure.what());
  std::fflush(stderr);
}

std::string absolute(const std::string& path) { return std::filesystem::absolute(path).lexically_normal().string(); }

class Watcher {
 public:
  explicit Watcher(const Arguments& arguments)
      : arguments_(arguments), signals_(catchSignals()), files_(launchctl::PathWatch::Tells::contents) {}

  int run() {
    if (const int code = firstPass(); code != kDone) return code;
    for (;;) {
      pollfd waiting[] = {{signals_.get(), POLLIN, 0}, {files_.descriptor(), POLLIN, 0}};
      const int ready = ::poll(waiting, 2, files_.polls() ? kPollInterval : -1);
      if (ready < 0 && errno != EINTR) throw launchctl::systemFailure("cannot wait for changes");
      bool isDue = ready >= 0 && waiting[1].revents != 0 && takeChanges();
      if (ready == 0) isDue = takeChanges();
      if (ready > 0 && waiting[0].revents != 0) {
        if (isToEnd()) return kDone;
        isDue = true;
      }
      if (isDue) pass();
    }
  }

 private:
  // A first configuration that is refused ends the program: nobody has seen it work.
  int firstPass() {
    try {
      follow(loadConfiguration(arguments_.configurationFile));
    } catch (const ConfigurationError& error) {
      complain(error);
      return kRefused;
    }
    pass();
    return kDone;
  }

  void pass() {
    try {
      const Configuration configuration = loadConfiguration(arguments_.configurationFile);
      follow(configuration);
      const Report report = makePass(arguments_, configuration);
      std::fputs((arguments_.json ? jsonOf(report) : textOf(report)).c_str(), stdout);
      std::fflush(stdout);
    } catch (const std::exception& failure) {
      complain(failure);
    }
  }

  // The configuration may name another file of the library than before.
  void follow(const Configuration& configuration) {
    const std::set<std::string> paths = {absolute(exportsFileOf(arguments_, configuration)),
                                         absolute(arguments_.configurationFile)};
    if (paths == followed_) return;
    files_.setPaths(paths);
    followed_ = paths;
  }

  // True when a file has changed. What is not yet told of a change that is going on comes a moment later.
  bool takeChanges() {
    bool hasChanged = false;
    const auto note = [&hasChanged](const std::string&, bool) { hasChanged = true; };
    files_.handle(note);
    pollfd more{files_.descriptor(), POLLIN, 0};
    const auto isMore = [&more] { return ::poll(&more, 1, kSettleInterval) > 0; };
    for (int count = 0; hasChanged && count < kMostSettling && isMore(); ++count) files_.handle(note);
    return hasChanged;
  }

  bool isToEnd() const {
    char bytes[64];
    const ssize_t count = ::read(signals_.get(), bytes, sizeof bytes);
    return count > 0 && std::string(bytes, static_cast<std::size_t>(count)).find('t') != std::string::npos;
  }

  const Arguments& arguments_;
  Descriptor signals_;
  launchctl::PathWatch files_;
  std::set<std::string> followed_;
};

}  // namespace

int watch(const Arguments& arguments) { return Watcher(arguments).run(); }

int passOnce(const Arguments& arguments) {
  const Report report = makePass(arguments, loadConfiguration(arguments.configurationFile));
  std::fputs((arguments.json ? jsonOf(report) : textOf(report)).c_str(), stdout);
  if (std::fflush(stdout) != 0) throw launchctl::systemFailure("cannot write the output");
  return exitCodeOf(report);
}

}  // namespace exports
