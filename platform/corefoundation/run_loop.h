// run_loop.h: what the run loop offers to the rest of this folder: file descriptors that it watches.
//
// A descriptor source lives in the common modes of the calling thread's loop, and belongs to that thread: it is made,
// used, called back and destroyed there. (Destroying it while or after the thread ends, or in a forked child, is fine.)
#pragma once

#include <CoreFoundation/CFRunLoop.h>

#include <cstdint>
#include <functional>
#include <limits>
#include <memory>

namespace cf {

class RunLoop;

// Nanoseconds of the monotonic clock.
using MonotonicTime = std::int64_t;
inline constexpr MonotonicTime kNever = std::numeric_limits<MonotonicTime>::max();
MonotonicTime monotonicNow() noexcept;

class DescriptorSource {
 public:
  // What a source waits for: epoll events (EPOLLIN ...), and a time at which it wants to be called in any case.
  struct Interest {
    std::uint32_t events = 0;
    MonotonicTime deadline = kNever;  // kNever: none; a time that has passed: at once
  };
  // Called with the events that are there (EPOLLERR and EPOLLHUP unasked, 0 when the deadline has come). The result
  // says whether that counts as a source handled, for a run that returns then.
  using Ready = std::function<bool(std::uint32_t events)>;
  // Called before each wait of the loop, and gives what to wait for this time. It must not run the loop.
  using Prepare = std::function<Interest()>;

  // Whether a loop has something to run for as long as the source is there, although it has no timers and sources.
  enum class KeepsAlive { no, yes };

  // Watches an open descriptor, which stays the caller's, until the source is destroyed; without `prepare` always for
  // `events`. Null with errno when the kernel refuses: EBADF, EPERM for a plain file, EEXIST for a descriptor that is
  // watched by this loop already, EMFILE and ENFILE.
  static std::unique_ptr<DescriptorSource> add(int descriptor, std::uint32_t events, KeepsAlive keepsAlive, Ready ready,
                                               Prepare prepare = nullptr);
  DescriptorSource(const DescriptorSource&) = delete;
  DescriptorSource& operator=(const DescriptorSource&) = delete;
  // Stops watching; call it before the descriptor is closed. It may be called from `ready` and `prepare` themselves.
  ~DescriptorSource();

  void setKeepsAlive(KeepsAlive keepsAlive) noexcept;
  // False once the loop has let go of the source: because its thread ended, or in a child after a fork, where the
  // descriptor is the parent's business.
  bool isWatched() const noexcept;

  // One source as the loop sees it.
  struct Entry;

 private:
  explicit DescriptorSource(std::shared_ptr<Entry> entry) noexcept;

  std::shared_ptr<Entry> entry_;
};

}  // namespace cf
