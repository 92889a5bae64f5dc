#include "tools/launchctl/systemd/systemd_back_end.h"

#include <poll.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <filesystem>
#include <sstream>

#include "tools/launchctl/descriptor.h"
#include "tools/launchctl/failure.h"
#include "tools/launchctl/process.h"
#include "tools/launchctl/systemd/record.h"
#include "tools/launchctl/systemd/systemctl.h"
#include "tools/launchctl/systemd/unit_text.h"

namespace launchctl {
namespace {

constexpr double kMargin = 30;  // seconds beyond what a job may take to end
constexpr double kAnyTime = 1e9;
constexpr const char* kWantsFolder = "/default.target.wants";

double endTime(const JobDescription& job) { return job.exitTimeOut > 0 ? job.exitTimeOut + kMargin : kAnyTime; }

// Loading and forgetting change several files; one at a time does it.
Descriptor lockFolder(const std::string& folder) {
  Descriptor opened(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!opened) throw systemFailure("cannot open the folder " + folder);
  while (::flock(opened.get(), LOCK_EX) != 0) {
    if (errno != EINTR) throw systemFailure("cannot lock the folder " + folder);
  }
  return opened;
}

bool endsWith(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

bool isThere(const std::string& path) {
  struct stat facts {};
  return ::lstat(path.c_str(), &facts) == 0;
}

// False when the time is over first.
bool waitForEnd(int process, double seconds) {
  pollfd watched{process, POLLIN, 0};
  const double most = std::min(std::ceil(seconds * 1000), static_cast<double>(INT_MAX));
  for (;;) {
    const int ready = ::poll(&watched, 1, seconds > 0 ? static_cast<int>(most) : -1);
    if (ready >= 0) return ready > 0;
    if (errno != EINTR) throw systemFailure("cannot wait for the job's end");
  }
}

// Where a failure says nothing new.
void quietly(const std::vector<std::string>& arguments) {
  try {
    systemctl(arguments);
  } catch (const Failure&) {
    return;
  }
}

}  // namespace

SystemdBackEnd::SystemdBackEnd() : folder_(unitFolder()) {
  if (!managerAnswers()) throw Failure("no systemd user manager answers in " + runtimeFolder());
  std::error_code error;
  std::filesystem::create_directories(folder_ + kWantsFolder, error);
  if (error) throw Failure("cannot make the folder " + folder_ + kWantsFolder + ": " + error.message());
  if (!managerReads(folder_)) {
    throw Failure("the systemd user manager does not read the units of " + folder_ + ": its home is another one");
  }
}

std::optional<JobToLoad> SystemdBackEnd::record(const std::string& label) const {
  const std::string path = folder_ + "/" + UnitNames(label).record;
  if (!isThere(path)) return std::nullopt;
  return readRecord(path);
}

// As `systemctl enable` does it: the unit starts with the user's session.
void SystemdBackEnd::enable(const std::string& unit) const {
  const std::string link = folder_ + kWantsFolder + "/" + unit;
  if (::symlink((folder_ + "/" + unit).c_str(), link.c_str()) != 0 && errno != EEXIST) {
    throw systemFailure("cannot make " + link);
  }
}

bool SystemdBackEnd::load(const JobToLoad& job) {
  const JobDescription& description = job.description;
  const UnitNames names(description.label);
  const std::string host = programFolder() + "/launchd-host";
  const Descriptor lock = lockFolder(folder_);
  if (isThere(folder_ + "/" + names.record)) return false;
  std::vector<std::string> started;
  try {
    writeFile(folder_ + "/" + names.service, serviceUnit(job, names, folder_, host));
    if (description.triggered()) {
      const std::string path = pathUnit(job, names);
      if (!path.empty()) {
        writeFile(folder_ + "/" + names.path, path);
        started.push_back(names.path);
      }
      writeFile(folder_ + "/" + names.watch, watchUnit(job, names, folder_, host));
      started.push_back(names.watch);
    } else if (description.startsAtLoad()) {
      started.push_back(names.service);
    }
    for (const std::string& unit : started) enable(unit);
    ::unlink((folder_ + "/" + names.exit).c_str());
    writeFile(folder_ + "/" + names.record, recordText(job));
    systemctl({"daemon-reload"});
    if (!started.empty()) {
      started.insert(started.begin(), "start");
      systemctl(started);
    }
  } catch (const Failure&) {
    for (const std::string& unit : {names.watch, names.path, names.service}) quietly({"stop", unit});
    forget(description.label);
    quietly({"daemon-reload"});
    throw;
  }
  return true;
}

void SystemdBackEnd::forget(const std::string& label) const {
  const UnitNames names(label);
  for (const std::string& name : {names.service, names.path, names.watch}) {
    ::unlink((folder_ + kWantsFolder + "/" + name).c_str());
    ::unlink((folder_ + "/" + name).c_str());
  }
  ::unlink((folder_ + "/" + names.exit).c_str());
  ::unlink((folder_ + "/" + names.record).c_str());
}

bool SystemdBackEnd::unload(const std::string& label) {
  const auto job = record(label);
  if (!job) return false;
  const UnitNames names(label);
  // The watch and the path unit first, or they would start what is being stopped.
  if (job->description.triggered()) {
    std::vector<std::string> arguments = {"stop", names.watch};
    if (isThere(folder_ + "/" + names.path)) arguments.push_back(names.path);
    systemctl(arguments);
  }
  systemctl({"stop", names.service}, endTime(job->description));
  const Descriptor lock = lockFolder(folder_);
  forget(label);
  systemctl({"daemon-reload"});
  quietly({"reset-failed", names.service});  // unless it failed, the manager knows no such unit any more
  return true;
}

bool SystemdBackEnd::start(const std::string& label) {
  const auto job = record(label);
  if (!job) return false;
  if (job->description.triggered()) {
    std::string reasons;
    bool wanted = false;
    for (const PathState& state : job->description.pathStates) {
      wanted = wanted || isThere(state.path) == state.exists;
      reasons += (reasons.empty() ? "" : ", ") + state.path + (state.exists ? " is not there" : " is there");
    }
    if (!wanted) throw Failure(label + ": its trigger decides, and it is not as asked: " + reasons);
  }
  systemctl({"start", UnitNames(label).service});
  return true;
}

// Not systemctl's stop: the unit is to come back by the rules of its restart.
bool SystemdBackEnd::stop(const std::string& label) {
  const auto job = record(label);
  if (!job) return false;
  const std::string service = UnitNames(label).service;
  const std::vector<JobStatus> statuses = statusOf({*job});
  if (!statuses.front().pid) return true;
  const Descriptor process(static_cast<int>(::syscall(SYS_pidfd_open, *statuses.front().pid, 0)));
  if (!process) return true;
  systemctl({"kill", "--signal=SIGTERM", service});
  if (waitForEnd(process.get(), job->description.exitTimeOut)) return true;
  systemctl({"kill", "--signal=SIGKILL", service});
  waitForEnd(process.get(), kMargin);
  return true;
}

std::vector<JobStatus> SystemdBackEnd::statusOf(const std::vector<JobToLoad>& jobs) const {
  if (jobs.empty()) return {};
  std::vector<std::string> arguments = {"show", "--property=MainPID", "--value"};
  for (const JobToLoad& job : jobs) arguments.push_back(UnitNames(job.description.label).service);
  std::istringstream answers(systemctl(arguments));
  std::vector<JobStatus> statuses;
  for (const JobToLoad& job : jobs) {
    JobStatus status;
    status.label = job.description.label;
    status.file = job.file;
    status.program = job.program;
    status.arguments = job.description.arguments;
    const std::optional<int> exit = readExit(folder_ + "/" + UnitNames(status.label).exit);
    status.hasEnded = exit.has_value();
    status.lastExitStatus = exit.value_or(0);
    std::string word;  // the answers stand in the units' order, one number each
    const long pid = answers >> word ? std::strtol(word.c_str(), nullptr, 10) : 0;
    if (pid > 0) status.pid = static_cast<pid_t>(pid);
    statuses.push_back(std::move(status));
  }
  return statuses;
}

std::vector<JobStatus> SystemdBackEnd::list() {
  std::vector<JobToLoad> jobs;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(folder_, error)) {
    const std::string name = entry.path().filename().string();
    if (name.rfind(kRecordStart, 0) == 0 && endsWith(name, kRecordEnd))
      jobs.push_back(readRecord(entry.path().string()));
  }
  if (error) throw Failure("cannot read the folder " + folder_ + ": " + error.message());
  std::sort(jobs.begin(), jobs.end(), [](const JobToLoad& left, const JobToLoad& right) {
    return left.description.label < right.description.label;
  });
  return statusOf(jobs);
}

std::optional<JobStatus> SystemdBackEnd::status(const std::string& label) {
  const auto job = record(label);
  if (!job) return std::nullopt;
  return statusOf({*job}).front();
}

}  // namespace launchctl
