#include "tools/launchctl/embedded/host.h"

#include <signal.h>
#include <sys/epoll.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <ctime>

#include "tools/launchctl/embedded/messages.h"
#include "tools/launchctl/failure.h"

namespace launchctl {
namespace {

constexpr std::chrono::seconds kPatience{5};  // with a client that is connected and asks nothing
constexpr std::chrono::seconds kPollPeriod{1};

}  // namespace

Host::Host() : lock_(folder_.lock("host.lock")), epoll_(::epoll_create1(EPOLL_CLOEXEC)) {
  if (!epoll_) throw systemFailure("cannot wait for events");
  sigset_t all;
  ::sigfillset(&all);
  ::sigprocmask(SIG_SETMASK, &all, nullptr);
  sigset_t wanted;
  ::sigemptyset(&wanted);
  for (const int signal : {SIGCHLD, SIGTERM, SIGINT}) ::sigaddset(&wanted, signal);
  signals_.reset(::signalfd(-1, &wanted, SFD_CLOEXEC | SFD_NONBLOCK));
  if (!signals_) throw systemFailure("cannot take signals in");
  // What a job's processes leave behind becomes the host's child, and is reaped.
  ::prctl(PR_SET_CHILD_SUBREAPER, 1);
  watch(signals_.get(), EPOLLIN);
  watch(triggers_.descriptor(), EPOLLIN);
  takeOver();
  listener_ = folder_.listen();
  watch(listener_.get(), EPOLLIN);
  idleSince_ = Clock::now();
}

void Host::watch(int descriptor, std::uint32_t events) {
  epoll_event event{};
  event.events = events;
  event.data.fd = descriptor;
  if (::epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, descriptor, &event) != 0) throw systemFailure("cannot wait for events");
}

// What a former host left. A file or an entry that cannot be used is said in the log, and the rest is taken.
void Host::takeOver() {
  const std::string content = folder_.read(kStateFile);
  if (content.empty()) return;
  std::vector<Dictionary> entries;
  try {
    entries = dictionariesOf(parseDictionary(content).get(), message::kJobs);
  } catch (const Failure& failure) {
    log(std::string("the state file cannot be used: ") + failure.what());
    folder_.replace("state.damaged", content);
  }
  for (const Dictionary& entry : entries) {
    try {
      auto job = std::make_unique<Job>(entry);
      const std::string label = job->label();
      jobs_[label] = std::move(job);
    } catch (const Failure& failure) {
      log(std::string("an entry of the state file cannot be used: ") + failure.what());
    }
  }
  watchTriggers();
  const TimePoint now = Clock::now();
  for (auto& [label, job] : jobs_) {
    if (job->processDescriptor() >= 0) {
      watch(job->processDescriptor(), EPOLLIN);
      log(label + ": took over the running process " + std::to_string(job->pid()));
    } else if (!job->down()) {
      log(label + ": ends what the process " + std::to_string(job->pid()) + " left");
    }
    job->begin(wants(*job), now);
  }
  advance();
}

void Host::run() {
  while (!finished()) {
    epoll_event events[32];
    const int count = ::epoll_wait(epoll_.get(), events, 32, timeout());
    if (count < 0 && errno != EINTR) throw systemFailure("cannot wait for events");
    for (int index = 0; index < count; ++index) {
      const int descriptor = events[index].data.fd;
      if (descriptor == signals_.get()) {
        handleSignals();
      } else if (descriptor == listener_.get()) {
        acceptClients();
      } else if (descriptor == triggers_.descriptor()) {
        handleTriggers();
      } else if (clients_.count(descriptor) != 0) {
        serve(descriptor, events[index].events);
      } else {
        pollAdopted(descriptor);
      }
    }
    if (triggers_.polls() && Clock::now() >= nextPoll_) {
      nextPoll_ = Clock::now() + kPollPeriod;
      handleTriggers();
    }
    advance();
  }
  // Connections that nobody will answer are closed by the end: their clients come again, to the next host.
  folder_.remove(kStateFile);
}

void Host::handleSignals() {
  signalfd_siginfo information{};
  while (::read(signals_.get(), &information, sizeof information) == static_cast<ssize_t>(sizeof information)) {
    if (information.ssi_signo == SIGCHLD) continue;
    const TimePoint now = Clock::now();
    ending_ = true;
    for (auto& entry : jobs_) entry.second->unload(now);
    dirty_ = true;
  }
  reapChildren();
}

void Host::reapChildren() {
  for (;;) {
    int status = 0;
    const pid_t child = ::waitpid(-1, &status, WNOHANG);
    if (child <= 0) return;
    for (auto& entry : jobs_) {
      Job& job = *entry.second;
      if (!job.up() || job.pid() != child || job.processDescriptor() >= 0) continue;
      job.processEnded(status, Clock::now());
      if (!job.status().problem.empty()) log(job.label() + ": " + job.status().problem);
      dirty_ = true;
    }
  }
}

void Host::pollAdopted(int descriptor) {
  for (auto& entry : jobs_) {
    Job& job = *entry.second;
    if (!job.up() || job.processDescriptor() != descriptor) continue;
    job.processEnded(kExitUnknown, Clock::now());
    dirty_ = true;
    return;
  }
}

bool Host::wants(const Job& job) const {
  const auto& states = job.description().pathStates;
  return std::any_of(states.begin(), states.end(),
                     [this](const PathState& state) { return triggers_.exists(state.path) == state.exists; });
}

void Host::handleTriggers() {
  triggers_.handle([this](const std::string&, bool) {
    const TimePoint now = Clock::now();
    for (auto& entry : jobs_) entry.second->setWanted(wants(*entry.second), now);
  });
}

void Host::watchTriggers() {
  std::set<std::string> paths;
  for (const auto& entry : jobs_) {
    for (const PathState& state : entry.second->description().pathStates) paths.insert(state.path);
  }
  triggers_.setPaths(paths);
}

// Brings every job to where the moment wants it.
void Host::advance() {
  const TimePoint now = Clock::now();
  std::vector<Job*> launched;
  for (auto& entry : jobs_) {
    Job& job = *entry.second;
    job.tick(now);
    if (!job.wantsLaunch(now)) continue;
    job.launchNow(now);
    if (!job.up()) log(job.label() + ": " + job.status().problem);
    launched.push_back(&job);
    dirty_ = true;
  }
  // Written down before it runs: the next host finds each process, or none.
  if (!launched.empty()) save();
  for (Job* const job : launched) job->release();
  answerWaiters();
  removeUnloaded();
  if (dirty_) save();
}

void Host::removeUnloaded() {
  bool removed = false;
  for (auto entry = jobs_.begin(); entry != jobs_.end();) {
    if (entry->second->unloading() && entry->second->down()) {
      entry = jobs_.erase(entry);
      removed = true;
    } else {
      ++entry;
    }
  }
  if (!removed) return;
  dirty_ = true;
  watchTriggers();
  const TimePoint now = Clock::now();
  for (auto& entry : jobs_) entry.second->setWanted(wants(*entry.second), now);
  if (jobs_.empty()) idleSince_ = now;
  save();
  answerWaiters();
}

void Host::save() {
  dirty_ = false;
  std::vector<Dictionary> entries;
  for (const auto& entry : jobs_) entries.push_back(entry.second->saved());
  ListBuilder list;
  list.set(message::kJobs, entries);
  try {
    folder_.replace(kStateFile, xml(list.list().get()));
  } catch (const Failure& failure) {
    log(failure.what());  // the jobs run all the same
  }
}

// Says each thing once, however often it happens in a row.
void Host::log(const std::string& line) {
  if (line == lastLine_) return;
  lastLine_ = line;
  char moment[32] = "";
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  if (::localtime_r(&now, &parts) != nullptr) std::strftime(moment, sizeof moment, "%Y-%m-%d %H:%M:%S", &parts);
  std::fprintf(stderr, "%s launchd-host[%d]: %s\n", moment, static_cast<int>(::getpid()), line.c_str());
}

int Host::timeout() const {
  std::optional<TimePoint> next;
  const auto consider = [&next](TimePoint moment) { next = next ? std::min(*next, moment) : moment; };
  for (const auto& entry : jobs_) {
    if (const auto time = entry.second->nextTime()) consider(*time);
  }
  if (triggers_.polls()) consider(nextPoll_);
  if (jobs_.empty()) consider(idleSince_ + kPatience);
  if (!next) return -1;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(*next - Clock::now()).count();
  return static_cast<int>(std::clamp<long long>(left, 0, 60000));
}

bool Host::finished() const {
  if (!jobs_.empty()) return false;
  const bool unsent =
      std::any_of(clients_.begin(), clients_.end(), [](const auto& entry) { return !entry.second->unsent.empty(); });
  const bool overdue = Clock::now() >= idleSince_ + kPatience;
  return ending_ || overdue || (served_ && clients_.empty() && !unsent);
}

}  // namespace launchctl
