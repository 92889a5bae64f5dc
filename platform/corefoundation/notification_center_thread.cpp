#include "platform/corefoundation/notification_center_thread.h"

#include "platform/corefoundation/console.h"
#include "platform/corefoundation/notification_center_rule.h"
#include "platform/corefoundation/notification_center_wire.h"
#include "platform/corefoundation/string.h"

#include <pthread.h>
#include <systemd/sd-bus.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

namespace cf {
namespace {

constexpr MonotonicTime kSecond = 1'000'000'000;
constexpr MonotonicTime kPostPatience = 5 * kSecond;
constexpr MonotonicTime kRetryPatience = kSecond;
constexpr MonotonicTime kFirstPause = kSecond / 50;
constexpr MonotonicTime kLongestPause = 2 * kSecond;
// So that a flood of what is nobody's business leaves the run loop its turn.
constexpr int kMessagesPerTurn = 64;

constinit std::atomic<std::uint64_t> malformedMessages = 0;
constinit std::atomic<std::uint64_t> foreignMessages = 0;

constinit thread_local ThreadCenter* ofThread = nullptr;
constinit pthread_key_t key = 0;
constinit pthread_once_t keyOnce = PTHREAD_ONCE_INIT;

// Runs at the end of every thread but the one that ends the process, which may post until the very end.
void threadEnds(void* center) {
  // Null when a fork lies between.
  if (ThreadCenter::existing() != center) return;
  ofThread = nullptr;
  delete static_cast<ThreadCenter*>(center);
}

void makeKey() { ::pthread_key_create(&key, threadEnds); }

void reportRefusal(CFStringRef name, const char* cause) {
  const std::string line = "distributed notification \"" + std::string(utf8View(name)) + "\" not posted: " + cause;
  consoleLine(line.c_str());
}

// What the bus itself says, such as the name it gives a connection.
bool isFromTheBus(sd_bus_message* message) {
  const char* const sender = sd_bus_message_get_sender(message);
  return sender != nullptr && std::strcmp(sender, "org.freedesktop.DBus") == 0;
}

void count(std::atomic<std::uint64_t>& counter) { counter.fetch_add(1, std::memory_order_relaxed); }

}  // namespace

DroppedMessages droppedMessages() noexcept {
  return {malformedMessages.load(std::memory_order_relaxed), foreignMessages.load(std::memory_order_relaxed)};
}

ThreadCenter* ThreadCenter::existing() {
  if (ofThread != nullptr && ofThread->generation_ != forkGeneration()) {
    ofThread->abandon();
    ofThread = nullptr;
  }
  return ofThread;
}

ThreadCenter& ThreadCenter::current() {
  if (ThreadCenter* const center = existing()) return *center;
  ::pthread_once(&keyOnce, makeKey);
  ofThread = new ThreadCenter;
  ::pthread_setspecific(key, ofThread);
  return *ofThread;
}

ThreadCenter::ThreadCenter()
    : generation_(0),
      posting_(entry_, CenterSide::posting),
      observing_(entry_, CenterSide::observing),
      pause_(kFirstPause) {
  enterRegistry(entry_);
  generation_ = forkGeneration();
}

ThreadCenter::~ThreadCenter() {
  leaveRegistry(entry_);
  if (timer_) CFRunLoopTimerInvalidate(timer_.get());
  source_.reset();
}

// The object stays, reachable through the registry: sd-bus cannot free a connection in a process that did not make it.
void ThreadCenter::abandon() {
  if (timer_) CFRunLoopTimerInvalidate(timer_.get());
  timer_.reset();
  source_.reset();
}

// ---- Listening

bool ThreadCenter::listen(MonotonicTime deadline) {
  if (observing_) return true;
  return observing_.connect(deadline) && beginListening(deadline);
}

// On a new connection: every rule in force, and the run loop watching.
bool ThreadCenter::beginListening(MonotonicTime deadline) {
  int error = observing_->addMatches({rules_.begin(), rules_.end()});
  if (error == 0) error = observing_->roundTrip(deadline);
  if (error != 0 || !watch()) {
    lose(error);
    return false;
  }
  pause_ = kFirstPause;
  return true;
}

bool ThreadCenter::watch() {
  if (source_) return true;
  source_ = DescriptorSource::add(
      observing_->descriptor(), 0, DescriptorSource::KeepsAlive::yes, [this](std::uint32_t) { return serve(); },
      [this] { return prepare(); });
  return source_ != nullptr;
}

void ThreadCenter::lose(int error) {
  source_.reset();
  observing_.lose(error);
  if (observes()) scheduleRetry();
}

void ThreadCenter::scheduleRetry() {
  if (timer_) return;
  CFRunLoopTimerContext context{0, this, nullptr, nullptr, nullptr};
  const double seconds = static_cast<double>(pause_) / static_cast<double>(kSecond);
  pause_ = std::min(pause_ * 2, kLongestPause);
  timer_.reset(
      CFRunLoopTimerCreate(kCFAllocatorDefault, CFAbsoluteTimeGetCurrent() + seconds, 0, 0, 0, timerFired, &context));
  CFRunLoopAddTimer(CFRunLoopGetCurrent(), timer_.get(), kCFRunLoopCommonModes);
}

void ThreadCenter::timerFired(CFRunLoopTimerRef, void* info) {
  ThreadCenter* const center = existing();
  if (center != nullptr && center == info) center->retry();
}

void ThreadCenter::retry() {
  timer_.reset();
  tidy();
  if (observes() && !listen(monotonicNow() + kRetryPatience)) scheduleRetry();
}

// ---- Posting

void ThreadCenter::post(CFStringRef name, CFStringRef object, CFDictionaryRef userInfo) {
  posting_.switchToBetterBus();
  const MonotonicTime deadline = monotonicNow() + kPostPatience;
  // A second time, when the connection turns out to be broken.
  for (int attempt = 0; attempt < 2 && posting_.connect(deadline); ++attempt) {
    BusMessage message;
    int error = 0;
    switch (writeNotification(posting_->get(), name, object, userInfo, message, error)) {
      case WriteResult::notPropertyList:
        return reportRefusal(name, "its user info is not a property list");
      case WriteResult::tooLarge:
        return reportRefusal(name, "it is larger than 8 MiB");
      case WriteResult::busFailed:
        break;
      case WriteResult::written:
        error = posting_->send(message.get(), deadline);
        break;
    }
    if (error == 0) return;
    posting_.lose(error);
    if (error == ETIMEDOUT) reportRefusal(name, "the message bus does not answer");
  }
}

// ---- Observing

void ThreadCenter::observe(std::shared_ptr<Observation> observation) {
  const std::string rule = notificationRule(observation->name.get(), observation->object.get());
  tidy();
  addObservation(entry_, std::move(observation));
  const bool isNew = rules_.insert(rule).second;
  const MonotonicTime deadline = monotonicNow() + kPostPatience;
  if (!observing_) {
    if (!listen(deadline)) scheduleRetry();
    return;
  }
  bool refused = false;
  const int error = isNew ? observing_->addMatch(rule, deadline, refused) : 0;
  if (refused) {
    consoleLine(("distributed notifications: the message bus refuses to match " + rule).c_str());
  } else if (error != 0 || !watch()) {
    lose(error);
    listen(deadline);
  }
}

void ThreadCenter::tidy() {
  if (!takeChanged(entry_)) return;
  std::set<std::string> needed;
  const Observations observations = observationsOf(entry_);
  for (const auto& observation : observations) {
    needed.insert(notificationRule(observation->name.get(), observation->object.get()));
  }
  for (const std::string& rule : rules_) {
    // A connection that fails here is noticed when it is next used.
    if (observing_ && needed.count(rule) == 0) observing_->removeMatch(rule);
  }
  rules_ = std::move(needed);
  if (!observations.empty()) return;
  source_.reset();
  if (timer_) CFRunLoopTimerInvalidate(timer_.get());
  timer_.reset();
}

DescriptorSource::Interest ThreadCenter::prepare() {
  tidy();
  if (!observing_ || !source_) return {};
  DescriptorSource::Interest interest = observing_->interest();
  interest.deadline = std::min(interest.deadline, observing_.reconsiderAt());
  return interest;
}

// One notification at a time, so that a callback can stop the run.
bool ThreadCenter::serve() {
  if (observing_.switchToBetterBus()) {
    source_.reset();
    beginListening(monotonicNow() + kRetryPatience);
  }
  for (int i = 0; i < kMessagesPerTurn && observing_; ++i) {
    BusMessage message;
    switch (observing_->process(message)) {
      case BusConnection::Step::idle:
        return false;
      case BusConnection::Step::internal:
        break;
      case BusConnection::Step::message:
        if (deliver(message)) return true;
        break;
      case BusConnection::Step::lost:
        lose(0);
        return false;
    }
  }
  return false;
}

// Callbacks may do what they like with the centre: nothing of this object is used after the first of them.
bool ThreadCenter::deliver(const BusMessage& message) {
  NotificationHead head;
  switch (readNotificationHead(message.get(), head)) {
    case ReadResult::foreign:
      if (!isFromTheBus(message.get())) count(foreignMessages);
      return false;
    case ReadResult::malformed:
      count(malformedMessages);
      return false;
    case ReadResult::read:
      break;
  }
  const Observations wanting = observationsOf(entry_, head.name.get(), head.object.get());
  if (wanting.empty()) return false;
  Owned<CFDictionaryRef> userInfo = readNotificationUserInfo(message.get());
  if (!userInfo || (!head.hasUserInfo && CFDictionaryGetCount(userInfo.get()) != 0)) {
    count(malformedMessages);
    return false;
  }
  if (!head.hasUserInfo) userInfo.reset();
  const CFNotificationCenterRef center = CFNotificationCenterGetDistributedCenter();
  for (const auto& observation : wanting) {
    if (observation->removed.load(std::memory_order_relaxed)) continue;
    observation->callback(center, const_cast<void*>(observation->observer), head.name.get(), head.object.get(),
                          userInfo.get());
  }
  return true;
}

}  // namespace cf
