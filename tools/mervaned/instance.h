// instance.h: one instance of a service that the daemon runs.
//
// An instance is wanted or not, and has a process or not. What becomes of it follows from that:
//
//   wanted, no process       it is started when its time has come: at once, or after the back-off delay when the
//   process
//                            ended by itself
//   wanted, process          it runs; after restart() its process is being ended first
//   not wanted, process      its process is being ended: SIGTERM at once, SIGKILL when the limit is over
//   not wanted, no process   it is over
//
// Nothing happens by itself: step() does what is due, and says when it wants to be called again. All calls come from
// one thread.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "tools/mervaned/back_off.h"
#include "tools/mervaned/options.h"
#include "tools/mervaned/service_task.h"

namespace mervaned {

class Instance {
 public:
  using Clock = std::chrono::steady_clock;
  using Time = Clock::time_point;

  // A new instance is wanted. It is counted from 0.
  Instance(std::string service, long index, const Options& options);
  // Its process has ended by then.
  ~Instance() = default;

  // Wanted again, if it was not. One that waits to be started again goes on waiting.
  void start();
  // Not wanted any more. The limit, in seconds, only ever becomes shorter.
  void stop(double limit);
  // Its process, if there is one, is ended and started again without delay.
  void restart(double limit);

  // When it is to be called again, if the process does not end before.
  std::optional<Time> step(Time now);

  bool isWanted() const noexcept { return isWanted_; }
  bool isOver() const noexcept { return !isWanted_ && !task_; }
  const std::string& service() const noexcept { return service_; }
  long index() const noexcept { return index_; }
  // Null when there is no process.
  ServiceTask* task() const noexcept { return task_.get(); }

 private:
  void launch(Time now);
  void collect(Time now);
  void end(double limit);
  void startAgainLater(Time now, double ranFor, const std::string& reason);
  std::string title() const;

  const std::string service_;
  const long index_;
  BackOff backOff_;
  bool isWanted_ = true;
  std::unique_ptr<ServiceTask> task_;
  Time launchAt_;
  Time launchedAt_;
  std::optional<Time> killAt_;
};

}  // namespace mervaned
