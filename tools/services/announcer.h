// announcer.h: what a service process says about itself by distributed notifications. docs/daemon.md has the
// dictionary.
#pragma once

#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFNotificationCenter.h>
#include <plinth/shared_cf_ref.h>

#include <chrono>

#include "tools/services/identity.h"
#include "tools/services/options.h"

namespace service {

// Answers status requests on the run loop of its thread, says when the service is there, and at its end, if it has said
// so, that the service is gone. The sender of all of it is the service's kind.
class Announcer {
 public:
  Announcer(const Identity& identity, const Options& options);
  ~Announcer();
  Announcer(const Announcer&) = delete;
  Announcer& operator=(const Announcer&) = delete;

  void announceStart();

 private:
  static void requested(CFNotificationCenterRef center, void* announcer, CFStringRef name, const void* object,
                        CFDictionaryRef request);
  void say(CFStringRef name) const;
  plinth::CSharedCFRef<CFDictionaryRef> description() const;
  bool isMeantBy(CFDictionaryRef request) const;

  const Identity identity_;
  const Options options_;
  const std::chrono::steady_clock::time_point startedAt_;
  bool hasAnnounced_ = false;
};

}  // namespace service
