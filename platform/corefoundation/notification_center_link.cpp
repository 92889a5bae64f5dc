#include "platform/corefoundation/notification_center_link.h"

#include "platform/corefoundation/console.h"

#include <atomic>
#include <cerrno>
#include <string>

namespace cf {
namespace {

constexpr MonotonicTime kSecond = 1'000'000'000;
constexpr MonotonicTime kQuietTime = 10 * kSecond;
constexpr MonotonicTime kReconsiderEvery = 5 * kSecond;
constexpr MonotonicTime kSwitchPatience = kSecond;

// Whether people have been told that there is no bus.
constinit std::atomic<bool> outageReported = false;

void reportOutage(const std::string& failure) {
  if (outageReported.exchange(true)) return;
  const std::string line = "distributed notifications: no message bus: " +
                           (failure.empty() ? std::string("none is set and none could be started") : failure);
  consoleLine(line.c_str());
}

}  // namespace

bool CenterLink::connect(MonotonicTime deadline) {
  if (connection_) return true;
  if (monotonicNow() < quietUntil_) return false;
  ChosenBus chosen = connectToBus(deadline);
  if (!chosen.connection) {
    reportOutage(chosen.failure);
    if (chosen.timedOut) quietUntil_ = monotonicNow() + kQuietTime;
    return false;
  }
  outageReported.store(false, std::memory_order_relaxed);
  adopt(chosen);
  return true;
}

void CenterLink::adopt(ChosenBus& chosen) {
  connection_ = std::move(chosen.connection);
  place_ = chosen.place;
  reconsiderAt_ = monotonicNow() + kReconsiderEvery;
  setThreadDescriptor(thread_, side_, connection_->descriptor());
}

void CenterLink::close() {
  setThreadDescriptor(thread_, side_, -1);
  connection_.reset();
}

void CenterLink::lose(int error) {
  close();
  busWasLost();
  if (error == ETIMEDOUT) quietUntil_ = monotonicNow() + kQuietTime;
}

MonotonicTime CenterLink::reconsiderAt() const noexcept {
  return connection_ && place_ != BusPlace::session ? reconsiderAt_ : kNever;
}

bool CenterLink::switchToBetterBus() {
  if (reconsiderAt() == kNever || monotonicNow() < reconsiderAt_) return false;
  reconsiderAt_ = monotonicNow() + kReconsiderEvery;
  ChosenBus better = connectToBetterBus(place_, monotonicNow() + kSwitchPatience);
  if (!better.connection) return false;
  close();
  adopt(better);
  return true;
}

}  // namespace cf
