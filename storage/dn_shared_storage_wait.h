// dn_shared_storage_wait.h: a client's wait for one reply, on the stack of the thread that waits.
#pragma once

#include <tovan/dn_shared_storage_client.h>

#include <CoreFoundation/CFRunLoop.h>

namespace tovan {

// The thread turns its run loop in short runs, which a source of the wait's own ends as soon as the reply is there,
// whichever thread it arrives on. Each run ends after one source; no run but these is ended.
//
// Waits nest: a callback that the outer one's run makes may wait in turn. Then the inner run may use up the signal that
// was for the outer wait, so an inner wait signals the one around it when it is over.
class CDNSharedStorageClient::Wait {
 public:
  // Keeps the client until the wait is over.
  Wait(CDNSharedStorageClient& client, const plinth::CStringRef& requestID);
  Wait(const Wait&) = delete;
  Wait& operator=(const Wait&) = delete;
  // The request is over, too: it was answered, was given up, or an exception left the run loop.
  ~Wait();

  // Empty when none came in time. Seconds as asyncWaitForReply takes them.
  plinth::CSharedCFRef<CFDictionaryRef> reply(long timeout);

  bool isFor(CFStringRef requestID) const;
  // The reply has arrived. Any thread that holds the client's lock.
  void wake() const;

 private:
  bool takeReply(plinth::CSharedCFRef<CFDictionaryRef>& reply);
  void turnRunLoop();

  // What the thread waits for at this moment; null for nothing.
  static constinit thread_local Wait* innermost;

  const CDNSharedStorageClientRef client_;
  const plinth::CStringRef requestID_;
  const CFRunLoopRef loop_;
  plinth::CSharedCFRef<CFRunLoopSourceRef> source_;
  Wait* const enclosing_;  // of the same thread
  bool wasStopped_ = false;
};

}  // namespace tovan
