// notification_center_thread.h: the distributed centre as one thread has it.
//
// A connection to the bus is made when the thread first posts, another when it first observes
// (notification_center_link.h says why there are two), and both are closed when the thread ends. While the thread
// observes, that connection is a source of its run loop; a thread that only posts has no part in a run loop. When the
// bus breaks off, an observing thread tries again from its run loop, at once and then after longer and longer pauses,
// and every post tries once.
//
// Times, at the longest: a post takes 5 seconds, and only on a bus that is there and does not answer; then what is
// posted in the next 10 seconds is dropped at once. A retry in the run loop takes one second.
#pragma once

#include "platform/corefoundation/notification_center_link.h"
#include "platform/corefoundation/notification_center_registry.h"
#include "platform/corefoundation/run_loop.h"

#include <cstdint>
#include <memory>
#include <set>
#include <string>

namespace cf {

// What was thrown away so far, by the whole process.
struct DroppedMessages {
  std::uint64_t malformed;  // sent as notifications, but not of their form
  std::uint64_t foreign;    // of other kinds
};
DroppedMessages droppedMessages() noexcept;

class ThreadCenter {
 public:
  // The calling thread's; made on first use.
  static ThreadCenter& current();
  // Null when the thread has none yet.
  static ThreadCenter* existing();

  ThreadCenter(const ThreadCenter&) = delete;
  ThreadCenter& operator=(const ThreadCenter&) = delete;

  void post(CFStringRef name, CFStringRef object, CFDictionaryRef userInfo);
  void observe(std::shared_ptr<Observation> observation);
  // Gives up the rules that no observation needs any more.
  void tidy();

  // In a forked child: takes its hands off everything that is the parent's.
  void abandon();
  ~ThreadCenter();

 private:
  ThreadCenter();

  bool listen(MonotonicTime deadline);
  bool beginListening(MonotonicTime deadline);
  bool watch();
  void lose(int error);
  void scheduleRetry();
  void retry();
  bool serve();
  bool deliver(const BusMessage& message);
  DescriptorSource::Interest prepare();
  bool observes() const { return !observationsOf(entry_).empty(); }

  static void timerFired(CFRunLoopTimerRef timer, void* info);

  ThreadEntry entry_;
  std::uint32_t generation_;
  CenterLink posting_;
  CenterLink observing_;
  std::unique_ptr<DescriptorSource> source_;
  Owned<CFRunLoopTimerRef> timer_;
  std::set<std::string> rules_;  // in force on the connection, or to be set on the next
  MonotonicTime pause_;
};

}  // namespace cf
