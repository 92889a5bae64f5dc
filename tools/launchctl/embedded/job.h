// job.h: one loaded job of the host, from start to end and round again.
//
//   down ──start──▶ up ──its process ends, others of its group are left──▶ ending
//    ▲  ◀──its process ends, nothing is left──┘                              │
//    │              up ──end() (trigger gone, stop, unload)──▶ ending        │
//    └──────────────nothing is left, or SIGKILL was sent─────────────────────┘
//
// Up, its process runs. Ending, SIGTERM has gone to its process group and SIGKILL follows at killAt. Down, it may have
// a time for its next start (startAt). An adopted job is one that a former host left: not a child of this one, so its
// end is seen through a process descriptor and its exit status stays unknown. One whose process had ended by then, with
// others of its group left, is ending from the start.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <string>

#include "tools/launchctl/back_end.h"
#include "tools/launchctl/embedded/launch.h"

namespace launchctl {

using Clock = std::chrono::steady_clock;
using TimePoint = Clock::time_point;

class Job {
 public:
  // A job from a load request, or from the state file: there with what it left behind. Failure for a damaged one.
  explicit Job(const Dictionary& list);

  const std::string& label() const { return description_.label; }
  const JobDescription& description() const { return description_; }
  JobStatus status() const;
  // What the next host needs.
  Dictionary saved() const;

  bool up() const { return running_; }
  bool down() const { return pid_ == 0; }
  bool unloading() const { return unloading_; }
  pid_t pid() const { return pid_; }
  // The process descriptor of an adopted process; -1 else.
  int processDescriptor() const { return process_.get(); }
  // How often it has come down: a waiter for the end sees the number grow.
  unsigned long ends() const { return ends_; }
  double exitTimeOut() const { return description_.exitTimeOut; }

  // The job is in the host's hands: starts what loading starts, or takes up the process that a former host left.
  // `wanted`: whether the trigger is as asked.
  void begin(bool wanted, TimePoint now);
  void setWanted(bool wanted, TimePoint now);
  bool wanted() const { return wanted_; }
  // Starts it now, or as soon as what is ending has ended.
  void start(TimePoint now);
  void stop(TimePoint now);
  // Afterwards it is gone as soon as it is down.
  void unload(TimePoint now);
  // Its process has ended, with a status of wait(2) or kExitUnknown.
  void processEnded(int status, TimePoint now);

  // The next moment at which tick() has something to do.
  std::optional<TimePoint> nextTime() const;
  void tick(TimePoint now);

  // Whether its process is to be started now: the host calls launchNow(), writes its state down and calls release().
  bool wantsLaunch(TimePoint now) const;
  void launchNow(TimePoint now);
  void release();

 private:
  void end(TimePoint now);
  void signalGroup(int signal) const;
  bool groupLeft() const;
  void settle(TimePoint now);
  void becameDown(TimePoint now);
  bool startsNow() const;
  bool keptAlive() const;
  TimePoint throttled() const;
  void takeUp(const Dictionary& list);

  JobDescription description_;
  std::string file_;
  std::string program_;
  std::map<std::string, std::string> environment_;

  pid_t pid_ = 0;  // 0: down. Kept while its group is ending
  std::uint64_t startTime_ = 0;
  Launched launched_;
  Descriptor process_;
  bool running_ = false;
  bool ending_ = false;
  bool killed_ = false;
  bool unloading_ = false;
  bool wanted_ = false;
  bool triggerLost_ = false;  // it is ending because its trigger went
  bool startAsked_ = false;   // start() came while it was ending
  unsigned long ends_ = 0;
  std::optional<int> lastExitStatus_;  // nothing before the first end
  std::string problem_;
  std::optional<TimePoint> startedAt_;
  std::optional<TimePoint> startAt_;
  std::optional<TimePoint> killAt_;
  std::optional<TimePoint> giveUpAt_;  // when what was killed and is still there no longer counts
};

}  // namespace launchctl
