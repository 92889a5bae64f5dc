#include "tools/launchctl/embedded/job.h"

#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>

#include "tools/launchctl/embedded/messages.h"
#include "tools/launchctl/failure.h"
#include "tools/launchctl/process.h"

namespace launchctl {
namespace {

// How often a group is looked at whose last members are not the host's children.
constexpr std::chrono::milliseconds kGroupLook{50};

// How long a killed group may take to go. What is left then cannot be killed, or has ended and is never reaped by
// whoever started it; the job goes on without waiting for either.
constexpr std::chrono::seconds kKilledLook{5};

Clock::duration seconds(double count) {
  return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(count));
}

std::optional<int> lastExitStatusOf(const Dictionary& list) {
  const auto status = integerOf(list.get(), message::kLastExitStatus);
  return status ? std::optional(static_cast<int>(*status)) : std::nullopt;
}

}  // namespace

Job::Job(const Dictionary& list)
    : description_(describeJob(dictionaryOf(list.get(), message::kJob), nullptr)),
      file_(stringOf(list.get(), message::kFile).value_or("")),
      program_(stringOf(list.get(), message::kProgram).value_or(description_.program)),
      environment_(textsOf(list.get(), message::kEnvironment)),
      unloading_(boolOf(list.get(), message::kUnloading)),
      lastExitStatus_(lastExitStatusOf(list)),
      problem_(stringOf(list.get(), message::kProblem).value_or("")) {
  takeUp(list);
}

// A pid in a file is not a process: it counts when the process that has it was started when the file says.
void Job::takeUp(const Dictionary& list) {
  const auto pid = static_cast<pid_t>(integerOf(list.get(), message::kProcess).value_or(0));
  if (pid <= 1) return;
  const auto start = static_cast<std::uint64_t>(integerOf(list.get(), message::kStartTime).value_or(0));
  const bool thisBoot = stringOf(list.get(), message::kBoot) == bootIdentifier();
  Descriptor process(thisBoot ? static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)) : -1);
  if (!process || startTimeOfProcess(pid) != start) {
    if (!boolOf(list.get(), message::kEnded)) lastExitStatus_ = kExitUnknown;
    if (!thisBoot || !leavesProcesses(pid, start)) return;
    pid_ = pid;
    startTime_ = start;
    return;
  }
  ::fcntl(process.get(), F_SETFD, FD_CLOEXEC);
  pid_ = pid;
  startTime_ = start;
  process_ = std::move(process);
  running_ = true;
}

JobStatus Job::status() const {
  JobStatus status;
  status.label = label();
  status.file = file_;
  if (running_ && !hasFailed(launched_)) status.pid = pid_;
  status.hasEnded = lastExitStatus_.has_value();
  status.lastExitStatus = lastExitStatus_.value_or(0);
  status.program = program_;
  status.arguments = description_.arguments;
  status.problem = problem_;
  return status;
}

Dictionary Job::saved() const {
  ListBuilder list;
  list.set(message::kJob, description_.list);
  list.set(message::kFile, file_);
  list.set(message::kProgram, program_);
  list.set(message::kEnvironment, environment_);
  if (lastExitStatus_) list.set(message::kLastExitStatus, std::int64_t{*lastExitStatus_});
  list.set(message::kUnloading, unloading_);
  if (!problem_.empty()) list.set(message::kProblem, problem_);
  if (pid_ != 0) {
    list.set(message::kBoot, bootIdentifier());
    list.set(message::kProcess, std::int64_t{pid_});
    list.set(message::kStartTime, static_cast<std::int64_t>(startTime_));
    list.set(message::kEnded, !running_);
  }
  return list.list();
}

void Job::begin(bool wanted, TimePoint now) {
  wanted_ = wanted;
  if (running_) {  // a former host's
    startedAt_ = now;
    if (unloading_ || (description_.triggered() && !wanted_)) end(now);
    return;
  }
  if (!down()) return end(now);  // its process has ended, and what that started has not
  if (unloading_) return;
  if (description_.triggered() ? wanted_ : startsNow()) startAt_ = now;
}

// What ended under a former host goes on by the rules for an end. An end that nobody saw may have come before the
// program ran, so that it is started as at load, unless its exit decides.
bool Job::startsNow() const {
  const bool ended = lastExitStatus_ && (*lastExitStatus_ != kExitUnknown || description_.successfulExit);
  return ended ? keptAlive() : description_.startsAtLoad();
}

void Job::setWanted(bool wanted, TimePoint now) {
  if (wanted == wanted_ || !description_.triggered()) return;
  wanted_ = wanted;
  if (unloading_) return;
  if (wanted_) {
    if (down()) startAt_ = now;
    return;
  }
  startAt_.reset();
  startAsked_ = false;
  if (!down()) {
    triggerLost_ = true;
    end(now);
  }
}

void Job::start(TimePoint now) {
  if (unloading_ || (running_ && !ending_)) return;
  if (down()) {
    startAt_ = now;
  } else {
    startAsked_ = true;
  }
}

void Job::stop(TimePoint now) {
  startAsked_ = false;
  if (!down()) end(now);
}

void Job::unload(TimePoint now) {
  unloading_ = true;
  startAt_.reset();
  if (!down()) end(now);
}

void Job::end(TimePoint now) {
  if (ending_) return;
  ending_ = true;
  signalGroup(SIGTERM);
  signalGroup(SIGCONT);  // one that stands still could not hear it
  if (exitTimeOut() > 0) killAt_ = now + seconds(exitTimeOut());
}

void Job::signalGroup(int signal) const {
  // A child that has not come to make its group yet is reached by its own id, while it is still there.
  if (::kill(-pid_, signal) != 0 && errno == ESRCH && running_) {
    if (process_) {
      ::syscall(SYS_pidfd_send_signal, process_.get(), signal, nullptr, 0);
    } else {
      ::kill(pid_, signal);
    }
  }
}

bool Job::groupLeft() const { return ::kill(-pid_, 0) == 0 || errno == EPERM; }

void Job::processEnded(int status, TimePoint now) {
  running_ = false;
  lastExitStatus_ = status;
  process_.reset();
  problem_ = failureOf(launched_.failures.get());
  launched_ = {};
  if (groupLeft() && !killed_) end(now);
  settle(now);
}

// Down when nothing of it is left, so that old and new never run side by side.
void Job::settle(TimePoint now) {
  if (down() || running_) return;
  if (killed_) {
    signalGroup(SIGKILL);  // reaches what the group started since the last time
    if (!giveUpAt_) giveUpAt_ = now + kKilledLook;
  }
  if (groupLeft() && !(giveUpAt_ && now >= *giveUpAt_)) return;
  becameDown(now);
}

bool Job::keptAlive() const {
  if (description_.triggered()) return wanted_;
  if (description_.keepAlive) return true;
  if (!description_.successfulExit) return false;
  // An end that nobody saw counts as a failure.
  return *description_.successfulExit == (lastExitStatus_ == 0);
}

TimePoint Job::throttled() const {
  return startedAt_.value_or(TimePoint::min()) + seconds(description_.throttleInterval);
}

void Job::becameDown(TimePoint now) {
  pid_ = 0;
  ending_ = killed_ = false;
  killAt_.reset();
  giveUpAt_.reset();
  ++ends_;
  const bool atOnce = startAsked_ || (triggerLost_ && wanted_);
  startAsked_ = triggerLost_ = false;
  if (unloading_) return;
  if (atOnce) {
    startAt_ = now;
  } else if (keptAlive()) {
    startAt_ = std::max(now, throttled());
  }
}

std::optional<TimePoint> Job::nextTime() const {
  if (down()) return startAt_;
  std::optional<TimePoint> next = killAt_;
  if (!running_) {
    const TimePoint look = Clock::now() + kGroupLook;
    next = next ? std::min(*next, look) : look;
  }
  return next;
}

void Job::tick(TimePoint now) {
  if (down()) return;
  if (killAt_ && now >= *killAt_) {
    killAt_.reset();
    killed_ = true;
    signalGroup(SIGKILL);
  }
  settle(now);
}

bool Job::wantsLaunch(TimePoint now) const { return down() && !unloading_ && startAt_ && now >= *startAt_; }

void Job::launchNow(TimePoint now) {
  startAt_.reset();
  startedAt_ = now;
  try {
    launched_ = launch(description_, program_, environment_);
  } catch (const Failure& failure) {
    // No process to be had, for the moment: a failed start like any other.
    problem_ = failure.what();
    lastExitStatus_ = W_EXITCODE(kLaunchFailed, 0);
    ++ends_;
    if (keptAlive()) startAt_ = throttled();
    return;
  }
  pid_ = launched_.pid;
  startedAt_ = Clock::now();  // so that not even a slow fork shortens the interval
  startTime_ = startTimeOfProcess(pid_).value_or(0);
  running_ = true;
  problem_.clear();
}

void Job::release() {
  if (running_ && launched_.gate) openGate(launched_);
}

}  // namespace launchctl
