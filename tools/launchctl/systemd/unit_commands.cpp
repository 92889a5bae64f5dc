#include "tools/launchctl/systemd/unit_commands.h"

#include <poll.h>
#include <sys/stat.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tools/launchctl/failure.h"
#include "tools/launchctl/path_watch.h"
#include "tools/launchctl/process.h"
#include "tools/launchctl/streams.h"
#include "tools/launchctl/systemd/record.h"
#include "tools/launchctl/systemd/systemctl.h"

namespace launchctl {
namespace {

constexpr int kCannotRun = 127;
constexpr int kPollPeriod = 1000;  // milliseconds
constexpr double kAnyTime = 1e9;   // seconds

int complain(int status, const std::string& text) {
  std::fprintf(stderr, "launchd-host: %s\n", text.c_str());
  return status;
}

std::string variable(const char* name) {
  const char* const value = std::getenv(name);
  return value == nullptr ? "" : value;
}

}  // namespace

int becomeJob(const std::string& record) {
  try {
    const JobToLoad job = readRecord(record);
    const JobDescription& description = job.description;
    std::map<std::string, std::string> variables = job.environment;
    for (const auto& [name, value] : description.environment) variables[name] = value;
    const std::vector<std::string> lines = environmentLines(variables);
    const std::string folder = description.workingDirectory.empty() ? "/" : description.workingDirectory;
    if (::chdir(folder.c_str()) != 0) throw systemFailure("cannot enter the folder " + folder);
    ::umask(022);
    // The journal keeps what a job without an output file says; a failure below still finds its way there.
    const Descriptor journal(::fcntl(2, F_DUPFD_CLOEXEC, 3));
    const char* failed = nullptr;
    const int error = openStreams(description.standardInPath.c_str(), description.standardOutPath.c_str(),
                                  description.standardErrorPath.c_str(), &failed);
    if (error == 0) {
      ::execve(job.program.c_str(), cStrings(description.arguments).data(), cStrings(lines).data());
    }
    const int reason = error == 0 ? errno : error;
    ::dup2(journal.get(), 2);
    throw systemFailure(error == 0 ? "cannot execute " + job.program : std::string("cannot open ") + failed, reason);
  } catch (const Failure& failure) {
    return complain(kCannotRun, failure.what());
  }
}

int recordExit(const std::string& file) {
  try {
    writeFile(file, std::to_string(exitStatusOf(variable("EXIT_CODE"), variable("EXIT_STATUS"))) + "\n");
    return 0;
  } catch (const Failure& failure) {
    return complain(1, failure.what());
  }
}

int watchTrigger(const std::string& unit, const std::string& record) {
  try {
    const std::vector<PathState> states = readRecord(record).description.pathStates;
    std::set<std::string> paths;
    for (const PathState& state : states) paths.insert(state.path);
    PathWatch watch;
    watch.setPaths(paths);
    ::sd_notify(1, "READY=1");
    const auto wanted = [&] {
      return std::any_of(states.begin(), states.end(),
                         [&](const PathState& state) { return watch.exists(state.path) == state.exists; });
    };
    bool was = !wanted();  // so that the first look acts, whatever the unit does now
    bool lost = !wanted();
    for (;;) {
      // A condition that failed for a moment ends the job too. Ended before it is started again: a start that
      // overtakes a stop would cancel it.
      if (lost) systemctl({"stop", unit}, kAnyTime);
      lost = false;
      if (wanted() && !was) systemctl({"start", "--no-block", unit});
      was = wanted();
      pollfd ready{watch.descriptor(), POLLIN, 0};
      if (::poll(&ready, 1, watch.polls() ? kPollPeriod : -1) < 0 && errno != EINTR) throw systemFailure("cannot wait");
      // A trigger that came and went meanwhile counts too: the path unit may have seen it come.
      const bool mayHaveComeAndGone = watch.handle([&](const std::string&, bool) {
        lost = lost || !wanted();
        was = was && wanted();
      });
      if (mayHaveComeAndGone && !wanted()) lost = true;
    }
  } catch (const Failure& failure) {
    return complain(1, failure.what());
  }
}

}  // namespace launchctl
