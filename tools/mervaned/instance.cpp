#include "tools/mervaned/instance.h"

#include <plinth/exception.h>

#include <cstring>
#include <exception>
#include <utility>

#include "tools/mervaned/installed_services.h"
#include "tools/support/process_log.h"

namespace mervaned {
namespace {

using tools::report;

Instance::Clock::duration seconds(double count) {
  return std::chrono::duration_cast<Instance::Clock::duration>(std::chrono::duration<double>(count));
}

std::string secondsText(double count) {
  std::string text = std::to_string(count);
  text.erase(text.find_last_not_of('0') + 1);
  if (text.back() == '.') text.pop_back();
  return text + " s";
}

}  // namespace

Instance::Instance(std::string service, long index, const Options& options)
    : service_(std::move(service)),
      index_(index),
      backOff_(options.restartDelay, options.restartDelayLimit),
      launchAt_(Clock::now()) {}

std::string Instance::title() const { return service_ + " instance " + std::to_string(index_); }

void Instance::start() {
  if (isWanted_) return;
  isWanted_ = true;
  backOff_.reset();
  launchAt_ = Clock::now();
}

void Instance::stop(double limit) {
  isWanted_ = false;
  end(limit);
}

void Instance::restart(double limit) {
  isWanted_ = true;
  backOff_.reset();
  launchAt_ = Clock::now();
  end(limit);
}

void Instance::end(double limit) {
  if (!task_) return;
  const Time killAt = Clock::now() + seconds(limit);
  if (!killAt_) task_->terminate();
  if (!killAt_ || killAt < *killAt_) killAt_ = killAt;
}

std::optional<Instance::Time> Instance::step(Time now) {
  if (task_ && !task_->isRunning()) collect(now);
  if (task_ && killAt_ && now >= *killAt_ && *killAt_ != Time::max()) {
    report(tools::kLogWarning, title() + " (process " + std::to_string(task_->processID()) + ") does not end: killed");
    task_->kill();
    killAt_ = Time::max();
  }
  if (!task_ && isWanted_ && now >= launchAt_) launch(now);
  if (task_) return killAt_;
  return isWanted_ ? std::optional(launchAt_) : std::nullopt;
}

void Instance::launch(Time now) {
  try {
    const auto entry = installedService(service_);
    if (!entry) {
      report(tools::kLogWarning, title() + ": the service is not installed any more");
      isWanted_ = false;
      return;
    }
    auto task = std::make_unique<ServiceTask>(commandLineOf(*entry, index_));
    if (task->launch() != 0) return startAgainLater(now, 0, std::string("cannot be started: ") + std::strerror(errno));
    task_ = std::move(task);
    launchedAt_ = now;
    report(tools::kLogUsual, title() + " started as process " + std::to_string(task_->processID()));
  } catch (const std::exception& exception) {
    startAgainLater(now, 0, std::string("cannot be started: ") + exception.what());
  }
}

void Instance::collect(Time now) {
  const bool wasAsked = killAt_.has_value();
  const std::string ended =
      "(process " + std::to_string(task_->processID()) + ") ended with code " + std::to_string(task_->waitForTask());
  task_.reset();
  killAt_.reset();
  if (wasAsked || !isWanted_) {
    report(tools::kLogUsual, title() + " " + ended);
    launchAt_ = now;
    return;
  }
  startAgainLater(now, std::chrono::duration<double>(now - launchedAt_).count(), ended + " by itself");
}

void Instance::startAgainLater(Time now, double ranFor, const std::string& reason) {
  const double delay = backOff_.afterRunOf(ranFor);
  launchAt_ = now + seconds(delay);
  report(tools::kLogWarning, title() + " " + reason + "; it is started again in " + secondsText(delay));
}

}  // namespace mervaned
