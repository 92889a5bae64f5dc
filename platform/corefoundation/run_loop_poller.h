// run_loop_poller.h: what one run loop waits with: an epoll instance, an eventfd by which other threads wake it, and a
// timerfd for the time until which it waits.
#pragma once

#include "platform/corefoundation/run_loop.h"

#include <sys/epoll.h>

#include <span>

namespace cf {

// Belongs to the loop's thread, wake() excepted, which any thread calls; wake(), takeWake(), open() and close() are
// called under the run loops' lock.
class Poller {
 public:
  Poller() noexcept = default;
  Poller(const Poller&) = delete;
  Poller& operator=(const Poller&) = delete;
  ~Poller() { close(); }

  // Opens what is not open; false, with errno and nothing open, when a descriptor cannot be had.
  bool open() noexcept;
  bool isOpen() const noexcept { return epoll_ >= 0; }
  void close() noexcept;

  // Ends a wait under way, and all further ones until takeWake().
  void wake() noexcept;
  void takeWake() noexcept;

  // Tells the kernel; 0 or errno. `token` comes back in the events.
  int watch(int descriptor, std::uint32_t events, std::uint64_t token) noexcept;
  int change(int descriptor, std::uint32_t events, std::uint64_t token) noexcept;
  void forget(int descriptor) noexcept;

  // Waits until a time (0: looks without waiting), a wake-up or, with descriptors, until one of them is ready; a signal
  // may end it early. Answers the watched descriptors that are ready, in `room`. A poller that is
  // not open waits for a hundredth of a second at most.
  std::span<epoll_event> wait(MonotonicTime until, bool withDescriptors, std::span<epoll_event> room) noexcept;

 private:
  bool arm(MonotonicTime until) noexcept;
  // Both answer what epoll_wait(2) does; a timeout of 0 or -1.
  int waitForAll(int timeout, std::span<epoll_event> room) const noexcept;
  int waitWithoutDescriptors(int timeout) const noexcept;

  int epoll_ = -1;
  int event_ = -1;
  int timer_ = -1;
  MonotonicTime armedFor_ = kNever;
  bool isWakeWritten_ = false;
};

}  // namespace cf
