// termination_signals.h: SIGTERM and SIGINT as calls on a run loop.
#pragma once

#include <CoreFoundation/CFRunLoop.h>
#include <plinth/shared_cf_ref.h>

#include <functional>
#include <thread>

namespace tools {

// While the object lives, SIGTERM and SIGINT become calls of `action` on the run loop of the thread that made it, in
// the common modes; signals that come close together may become one call. A signal that was ignored when the object was
// made stays ignored, as a shell without job control wants it for SIGINT. SIGPIPE does nothing, without being ignored:
// children have its default.
//
// From its end on they are blocked, so that a process that becomes another program hands them on to it: the object of
// the new program gets them.
//
// A handler may hardly call anything, so it writes a byte into a pipe, and a thread that reads the pipe signals a
// source of the run loop. One object at a time; it is destroyed by the thread that made it.
class TerminationSignals {
 public:
  // Throws std::system_error when there is no pipe or no thread to be had.
  explicit TerminationSignals(std::function<void()> action);
  ~TerminationSignals();
  TerminationSignals(const TerminationSignals&) = delete;
  TerminationSignals& operator=(const TerminationSignals&) = delete;

  // Whether one of the signals has come to this program. What has not come by the object's end stays blocked from then
  // on.
  static bool haveArrived() noexcept;

 private:
  void forward() const;

  std::function<void()> action_;
  int readEnd_ = -1;
  plinth::CSharedCFRef<CFRunLoopSourceRef> source_;
  CFRunLoopRef loop_;  // of the thread that made this object, which outlives it
  std::thread forwarder_;
};

}  // namespace tools
