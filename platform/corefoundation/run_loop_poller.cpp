#include "platform/corefoundation/run_loop_poller.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <utility>

namespace cf {
namespace {

// The token of the wake-up and the timer; sources count from 1.
constexpr std::uint64_t kOwnToken = 0;
constexpr MonotonicTime kLongestBlindRest = 10'000'000;

timespec timespecOf(MonotonicTime time) noexcept {
  return {static_cast<time_t>(time / 1'000'000'000), static_cast<long>(time % 1'000'000'000)};
}

void closeNumber(int& number) noexcept {
  const int old = std::exchange(number, -1);
  if (old < 0) return;
  const int saved = errno;
  ::close(old);
  errno = saved;
}

// In place of a wait that cannot be had: short, so that what is ready is noticed all the same.
void rest(MonotonicTime until) noexcept {
  const MonotonicTime end = std::min(until, monotonicNow() + kLongestBlindRest);
  const timespec time = timespecOf(std::max<MonotonicTime>(end, 0));
  ::clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &time, nullptr);
}

}  // namespace

bool Poller::open() noexcept {
  if (isOpen()) return true;
  epoll_ = ::epoll_create1(EPOLL_CLOEXEC);
  event_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  timer_ = ::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
  if (event_ >= 0 && timer_ >= 0 && epoll_ >= 0 && watch(event_, EPOLLIN, kOwnToken) == 0 &&
      watch(timer_, EPOLLIN, kOwnToken) == 0) {
    return true;
  }
  close();
  return false;
}

void Poller::close() noexcept {
  closeNumber(epoll_);
  closeNumber(event_);
  closeNumber(timer_);
  armedFor_ = kNever;
  isWakeWritten_ = false;
}

void Poller::wake() noexcept {
  if (event_ < 0 || isWakeWritten_) return;
  const std::uint64_t one = 1;
  isWakeWritten_ = ::write(event_, &one, sizeof one) == static_cast<ssize_t>(sizeof one);
}

void Poller::takeWake() noexcept {
  if (!std::exchange(isWakeWritten_, false)) return;
  std::uint64_t count;
  // It has been written and nobody else reads it, so this neither waits nor fails.
  static_cast<void>(::read(event_, &count, sizeof count) == 0);
}

int Poller::watch(int descriptor, std::uint32_t events, std::uint64_t token) noexcept {
  epoll_event wanted{};
  wanted.events = events;
  wanted.data.u64 = token;
  return ::epoll_ctl(epoll_, EPOLL_CTL_ADD, descriptor, &wanted) == 0 ? 0 : errno;
}

int Poller::change(int descriptor, std::uint32_t events, std::uint64_t token) noexcept {
  epoll_event wanted{};
  wanted.events = events;
  wanted.data.u64 = token;
  return ::epoll_ctl(epoll_, EPOLL_CTL_MOD, descriptor, &wanted) == 0 ? 0 : errno;
}

void Poller::forget(int descriptor) noexcept {
  if (isOpen()) ::epoll_ctl(epoll_, EPOLL_CTL_DEL, descriptor, nullptr);
}

// What the timer descriptor was set to before needs no reading: setting it anew takes that back.
bool Poller::arm(MonotonicTime until) noexcept {
  if (until == armedFor_) return true;
  itimerspec setting{};
  if (until != kNever) setting.it_value = timespecOf(std::max<MonotonicTime>(until, 1));
  if (::timerfd_settime(timer_, TFD_TIMER_ABSTIME, &setting, nullptr) != 0) return false;
  armedFor_ = until;
  return true;
}

int Poller::waitForAll(int timeout, std::span<epoll_event> room) const noexcept {
  return ::epoll_wait(epoll_, room.data(), static_cast<int>(room.size()), timeout);
}

int Poller::waitWithoutDescriptors(int timeout) const noexcept {
  pollfd own[] = {{event_, POLLIN, 0}, {timer_, POLLIN, 0}};
  return ::poll(own, std::size(own), timeout) < 0 ? -1 : 0;
}

std::span<epoll_event> Poller::wait(MonotonicTime until, bool withDescriptors, std::span<epoll_event> room) noexcept {
  const bool looksOnly = until == 0;
  if (looksOnly && !(withDescriptors && isOpen())) return {};
  if (!isOpen() || (!looksOnly && !arm(until))) {
    rest(until);
    return {};
  }
  const int timeout = looksOnly ? 0 : -1;
  const int count = withDescriptors ? waitForAll(timeout, room) : waitWithoutDescriptors(timeout);
  if (count < 0 && errno != EINTR && !looksOnly) rest(until);  // somebody closed the descriptors
  if (count <= 0) return {};
  const std::span<epoll_event> ready = room.first(static_cast<std::size_t>(count));
  const auto foreign =
      std::remove_if(ready.begin(), ready.end(), [](const epoll_event& event) { return event.data.u64 == kOwnToken; });
  return room.first(static_cast<std::size_t>(foreign - ready.begin()));
}

}  // namespace cf
