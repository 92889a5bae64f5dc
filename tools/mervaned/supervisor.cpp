#include "tools/mervaned/supervisor.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace mervaned {
namespace {

// Seconds between two looks at processes that run, and at processes that are being ended.
constexpr double kLook = 5;
constexpr double kLookAtEnding = 0.1;
constexpr double kFarAway = 1e9;
// How long a task that has announced its end may take to be over.
constexpr double kLastStep = 0.2;

double secondsUntil(Instance::Time time, Instance::Time now) {
  return std::chrono::duration<double>(time - now).count();
}

}  // namespace

Supervisor::Supervisor(const Options& options, std::function<void()> allEnded)
    : options_(options), allEnded_(std::move(allEnded)) {
  CFRunLoopTimerContext context{};
  context.info = this;
  timer_ = CFRunLoopTimerCreate(kCFAllocatorDefault, CFAbsoluteTimeGetCurrent() + kFarAway, kFarAway, 0, 0, timerFired,
                                &context);
  CFRunLoopAddTimer(CFRunLoopGetCurrent(), timer_.get(), kCFRunLoopCommonModes);
}

Supervisor::~Supervisor() { CFRunLoopTimerInvalidate(timer_.get()); }

Instance* Supervisor::find(const std::string& service, long index) {
  for (const auto& instance : instances_) {
    if (instance->index() == index && instance->service() == service) return instance.get();
  }
  return nullptr;
}

void Supervisor::start(const std::string& service, long count) {
  for (long i = 0; i < count; ++i) {
    if (Instance* const present = find(service, i)) {
      present->start();
    } else {
      instances_.push_back(std::make_unique<Instance>(service, i, options_));
    }
  }
  for (const auto& instance : instances_) {
    if (instance->service() == service && instance->index() >= count) instance->stop(options_.stopLimit);
  }
  step();
}

void Supervisor::stop(const std::string& service, double limit) {
  for (const auto& instance : instances_) {
    if (instance->service() == service) instance->stop(limit);
  }
  step();
}

void Supervisor::restart(const std::string& service, long count, double limit) {
  for (const auto& instance : instances_) {
    if (instance->service() == service && instance->index() < count) instance->restart(limit);
  }
  start(service, count);
}

void Supervisor::stopAll(double limit) {
  for (const auto& instance : instances_) instance->stop(limit);
  step();
}

bool Supervisor::runs(const std::string& service) const {
  return std::any_of(instances_.begin(), instances_.end(), [&service](const auto& instance) {
    return instance->isWanted() && instance->service() == service;
  });
}

std::set<std::string> Supervisor::services() const {
  std::set<std::string> names;
  for (const auto& instance : instances_) names.insert(instance->service());
  return names;
}

bool Supervisor::isIdle() const {
  return std::all_of(instances_.begin(), instances_.end(), [](const auto& instance) { return !instance->task(); });
}

void Supervisor::taskEnded(std::uintptr_t address) {
  for (const auto& instance : instances_) {
    const tovan::CUserTask* const task = instance->task();
    if (task == nullptr || reinterpret_cast<std::uintptr_t>(task) != address) continue;
    // The announcement comes just before the task is over. One that is not over soon was another process's
    // announcement.
    instance->task()->waitForTaskWithTimeout(kLastStep);
  }
  step();
}

void Supervisor::timerFired(CFRunLoopTimerRef, void* supervisor) { static_cast<Supervisor*>(supervisor)->step(); }

void Supervisor::step() {
  const Instance::Time now = Instance::Clock::now();
  const bool wasIdle = isIdle();
  double next = kFarAway;
  for (const auto& instance : instances_) {
    const auto due = instance->step(now);
    if (due) next = std::min(next, secondsUntil(*due, now));
    if (instance->task()) next = std::min(next, due ? kLookAtEnding : kLook);
  }
  std::erase_if(instances_, [](const auto& instance) { return instance->isOver(); });
  CFRunLoopTimerSetNextFireDate(timer_.get(), CFAbsoluteTimeGetCurrent() + std::max(next, 0.0));
  if (!wasIdle && isIdle()) allEnded_();
}

}  // namespace mervaned
