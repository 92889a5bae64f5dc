// run_loop_state.h: RunLoop, what a CFRunLoopRef stands for.
#pragma once

#include "platform/corefoundation/run_loop_descriptors.h"
#include "platform/corefoundation/run_loop_modes.h"
#include "platform/corefoundation/run_loop_poller.h"

#include <atomic>
#include <memory>
#include <span>
#include <vector>

struct CFRunLoopStorage {
  CFObjectHead head;
  cf::RunLoop* state = nullptr;  // owned; a bare pointer, so that the layout is a standard one
};

namespace cf {

// Counts the forks that lie between the first process that used a run loop and this one.
extern unsigned forkGeneration;

class RunLoop {
 public:
  explicit RunLoop(CFRunLoopRef object);
  RunLoop(const RunLoop&) = delete;
  RunLoop& operator=(const RunLoop&) = delete;
  ~RunLoop();

  // The calling thread's.
  static RunLoop& current() { return *CFRunLoopGetCurrent()->state; }

  // ---- Called with the lock held, from any thread.

  CFRunLoopRef object() const noexcept { return object_; }
  Modes& modes() noexcept { return modes_; }
  // Whether its thread has ended.
  bool isEnded() const noexcept { return isEnded_; }
  bool isWaiting() const noexcept { return isWaiting_; }
  // Null while the loop is not run.
  CFStringRef currentMode() const noexcept { return innermost_ == nullptr ? nullptr : innermost_->mode.get(); }
  void stop() noexcept;
  void wakeUp() noexcept;
  // After every change that a wait must take into account.
  void changed() noexcept {
    if (isWaiting_) wakeUp();
  }
  // In a child after a fork, with the loop of its thread or null: closes the descriptors of all loops, which are shared
  // with the parent, and forgets all other loops. It calls nothing but what a child of a threaded process may call.
  static void keepInChild(RunLoop* survivor) noexcept;

  // ---- Called by the loop's own thread, without the lock.

  CFRunLoopRunResult run(CFStringRef mode, CFTimeInterval seconds, bool returnsAfterSource);
  // 0 or errno.
  int watch(const std::shared_ptr<DescriptorSource::Entry>& entry);
  // Lets go of everything, as the thread ends.
  void end();

 private:
  // A run under way.
  struct Run {
    Run(RunLoop& itsLoop, CFStringRef itsMode);
    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;
    ~Run();

    RunLoop& loop;
    Owned<CFStringRef> mode;
    MonotonicTime deadline = kNever;
    bool callsOneSource = false;
    bool servesDescriptors = false;      // in this pass
    std::atomic<bool> isStopped{false};  // set under the lock
    Run* outer;
  };
  using Events = std::span<epoll_event>;

  bool isEmpty(CFStringRef mode) noexcept;  // with the lock held
  bool hasNothingFor(const Run& run) noexcept;
  bool performSources(const Run& run);
  Events wait(Run& run, bool mayWait, Events room);
  void fireTimers(const Run& run);
  bool serveDescriptors(const Run& run, Events ready);
  // The steps of wait(). The first two answer a deadline, of which 0 stands for not waiting at all.
  MonotonicTime prepareDescriptors(Run& run);
  MonotonicTime beginWaiting(const Run& run, MonotonicTime descriptorsDeadline);
  void endWaiting() noexcept;
  void forgetInherited() noexcept;

  // All loops there are. Guarded by the lock.
  static RunLoop* first_;
  RunLoop* next_ = nullptr;
  RunLoop* previous_ = nullptr;

  const CFRunLoopRef object_;
  Modes modes_;
  Run* innermost_ = nullptr;
  bool isEnded_ = false;
  bool isWaiting_ = false;
  bool isWakePending_ = false;

  Poller poller_;
  DescriptorSet descriptors_;
  std::uint64_t waits_ = 0;  // how many were made, to notice those of inner runs
  unsigned generation_ = forkGeneration;
};

// Calls a timer back if it is still due in a mode of the loop.
void fireTimer(RunLoop& loop, CFRunLoopTimerRef timer, CFStringRef mode, MonotonicTime now);
// Calls a source if it is still signalled and in the mode; whether it was called.
bool performSource(RunLoop& loop, CFRunLoopSourceRef source, CFStringRef mode);
// Takes a source out of all modes of one loop.
void removeFromLoop(RunLoop& loop, CFRunLoopSourceRef source);

}  // namespace cf
