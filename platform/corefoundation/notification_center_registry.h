// notification_center_registry.h: who observes what, in all threads of the process.
//
// Each thread that observes or posts has an entry with its observations. Any thread may take observations away; the
// thread they belong to is woken and tidies up after it. All functions may be called from any thread.
//
// Fork: the child has no observations. The sockets of its parent's connections are closed in it at once, so that they
// end with the parent, and nothing else of them is touched.
#pragma once

#include "platform/corefoundation/runtime.h"

#include <CoreFoundation/CFNotificationCenter.h>
#include <CoreFoundation/CFRunLoop.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

namespace cf {

struct Observation {
  const void* observer;
  CFNotificationCallback callback;
  Owned<CFStringRef> name;    // empty: every name
  Owned<CFStringRef> object;  // empty: every object, and none
  std::atomic<bool> removed = false;

  // Whether it is for a notification; `object` may be null.
  bool wants(CFStringRef notification, CFStringRef sender) const;
};
using Observations = std::vector<std::shared_ptr<Observation>>;

// What the registry knows of a thread; only the registry's functions look inside.
struct ThreadEntry {
  Observations observations;
  Owned<CFRunLoopRef> loop;
  int descriptors[2] = {-1, -1};
  bool changed = false;
};

void enterRegistry(ThreadEntry& thread);
// The thread's observations end.
void leaveRegistry(ThreadEntry& thread);
// The sockets to close in a forked child, by the side they serve; -1 for none, which is said before one is closed.
enum class CenterSide { posting, observing };
void setThreadDescriptor(ThreadEntry& thread, CenterSide side, int descriptor);

// On the thread's own run loop.
void addObservation(ThreadEntry& thread, std::shared_ptr<Observation> observation);
// Every observation of the observer (null: of nobody), by name and object (null: by any).
void removeObservations(const void* observer, CFStringRef name, CFStringRef object);
Observations observationsOf(const ThreadEntry& thread);
Observations observationsOf(const ThreadEntry& thread, CFStringRef name, CFStringRef object);
// Whether observations were taken away since the last call.
bool takeChanged(ThreadEntry& thread);

// Grows with each fork that lies between this process and the one that loaded the library.
std::uint32_t forkGeneration() noexcept;

}  // namespace cf
