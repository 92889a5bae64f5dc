// storage.h: the daemon's shared storage, on a thread of its own.
//
// The storage's publisher, subscriber and server live on that thread and its run loop, and only there, since a mount
// may hang for almost a minute: the daemon's own thread goes on with the services meanwhile, and says what the storage
// is doing.
//
//   open ---- refuseMounts() ----> closed to mounts ---- end() ----> ending ----> over
//                                                           giveUp() --^
#pragma once

#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFNotificationCenter.h>

#include <memory>
#include <thread>

#include "tools/mervaned/options.h"

namespace mervaned {

// All calls come from one thread, which turns its run loop.
class Storage {
 public:
  enum class Ending {
    takeDown,  // what was published and mounted goes, by this run and by earlier ones
    keep,      // it stays, for the daemon to come
  };

  // Requests are observed when this returns.
  explicit Storage(const Options& options);
  // When it was given up and is not over, its thread goes on until the process ends, which must not wait for it; else
  // it is ended, and what it has stays.
  ~Storage();
  Storage(const Storage&) = delete;
  Storage& operator=(const Storage&) = delete;

  // From now on nothing is mounted; a mount command that runs is ended.
  void refuseMounts();
  void end(Ending how);
  bool isOver() const noexcept;
  // Ends what runs, and begins nothing more.
  void giveUp();

 private:
  class Work;

  static void activityRequested(CFNotificationCenterRef center, void* storage, CFStringRef name, const void* object,
                                CFDictionaryRef userInfo);

  // The thread has it too, and may be the last to have it.
  const std::shared_ptr<Work> work_;
  std::thread thread_;
  bool isGivenUp_ = false;
};

}  // namespace mervaned
