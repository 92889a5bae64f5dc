// dn_shared_storage_client.h: CDNSharedStorageClient, the shared storage as every process but the daemon uses it.
//
// Each operation becomes a request to the cluster daemon, posted through the distributed notification centre
// (docs/storage-protocol.md has the protocol); the calling thread turns its own run loop until the reply is there or
// the time is over. CDNSharedStorageServer (dn_shared_storage_server.h) is the other side.
//
// Threads: any thread may use a client, several at once. Replies arrive on the run loop of the thread that made the
// client, so that thread must turn its run loop: by waiting for a reply itself, or in any other way. A wait on another
// thread then ends as soon as its reply has arrived. While the thread that made the client does not turn its run loop,
// or is gone, replies to the others' requests do not arrive, and their waits run into the time-out.
//
// A wait serves the timers and sources of the calling thread's default mode, so callbacks run in it; they may use the
// client too, and may give back the last reference to it. The wait ends with its reply at once; only one that arrives
// while such a callback runs the loop itself may be noticed up to a hundredth of a second after the callback. A
// CFRunLoopStop that a callback meant for the run around the wait is handed on to it when the wait is over. An
// exception that leaves a callback leaves the wait too, which then is over.
//
// Failures: a request that failed throws a plinth::CException with the kind and the message that the server reports;
// kinds of the storage's own are the numbers of shared_storage_exception.h. An empty holder among the arguments throws
// CNullPointerException "Error: NAME is null!" (a process id is never null). The post itself cannot fail: without a bus
// or a daemon the wait ends with the time-out.
//
// A child of fork makes a client of its own.
#pragma once

#include <tovan/export.h>
#include <tovan/shared_storage.h>

#include <plinth/mutex.h>
#include <plinth/shared_cf_ref.h>

#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFNotificationCenter.h>
#include <CoreFoundation/CFString.h>

#include <cstdint>
#include <vector>

namespace tovan {

class TOVAN_EXPORT CDNSharedStorageClient : public ISharedStorage {
 public:
  // Begins to listen for replies, on the calling thread's run loop.
  CDNSharedStorageClient();
  CDNSharedStorageClient(const CDNSharedStorageClient&) = delete;
  CDNSharedStorageClient& operator=(const CDNSharedStorageClient&) = delete;

  // Each posts its request and waits for the reply with the standard time-out. A process id of 0 means the calling
  // process. They throw, when no reply came, ISharedStorageException type 3, sub-code 12, with the text
  // "SharedStorageClient_OPERATION_timed_out" of the library's bundle, which takes the URL (that of the server port
  // the name under which it was asked, "mervane"); what asyncWaitForReply throws; and what posting throws.
  OSStatus publish(const plinth::CURLRef& url, const plinth::CStringRef& client, long pid) override;  // 0
  void unpublish(const plinth::CURLRef& url, const plinth::CStringRef& client, long pid) override;
  // After it two things are looked at, and a console line says what is amiss; the subscription holds all the same:
  // whether the mount path lies on a volume of this host's own (by the mount table), and whether the storage
  // information file can be seen there.
  void subscribe(const plinth::CURLRef& url, const plinth::CStringRef& mountPath, const plinth::CStringRef& client,
                 long pid) override;
  void unsubscribe(const plinth::CURLRef& url, const plinth::CStringRef& mountPath, const plinth::CStringRef& client,
                   long pid) override;
  // -1 also when the reply has no port.
  std::int32_t getServerPort() override;
  // Tells the daemon and returns; there is no reply.
  void processTerminated(long pid) override;

  // The same in two steps. These post a request and give its id, the text of a fresh UUID. Each id is for one wait; a
  // request that nobody waits for is kept until the client goes.
  //
  // Throw CParamException "CDNSharedStorageClient::OPERATION(URL): the URL has no file-system path" (publish and
  // unpublish only).
  plinth::CStringRef asyncPublish(const plinth::CURLRef& url, const plinth::CStringRef& client, long pid);
  plinth::CStringRef asyncUnpublish(const plinth::CURLRef& url, const plinth::CStringRef& client, long pid);
  plinth::CStringRef asyncSubscribe(const plinth::CURLRef& url, const plinth::CStringRef& mountPath,
                                    const plinth::CStringRef& client, long pid);
  plinth::CStringRef asyncUnsubscribe(const plinth::CURLRef& url, const plinth::CStringRef& mountPath,
                                      const plinth::CStringRef& client, long pid);
  // Always sends the calling process's own id, whatever `pid` is.
  plinth::CStringRef asyncGetServerPort(const plinth::CStringRef& client, long pid);

  // Waits for the reply to a request: whether it came, or the reply itself (empty when none came). The time-out counts
  // whole seconds from the last full second before the call, so the wait may be up to a second shorter than it says; a
  // negative one is the standard time-out, 60 seconds, and 0 only looks whether the reply is there, without serving the
  // run loop. With the end of the wait the request is over: a reply is given once, and one that comes later is
  // dropped. For an id that no request waits under (unknown, or over) the answer is "none" at once.
  //
  // A reply of a "result" other than 0 that has both "exceptionKind" and "exceptionMessage" is thrown as a
  // plinth::CException of that kind and message; without them it counts as a reply.
  bool asyncWaitForReply(const plinth::CStringRef& requestID, long timeout);
  plinth::CSharedCFRef<CFDictionaryRef> asyncWaitForReplyResult(const plinth::CStringRef& requestID, long timeout);

  // The client hears no replies any more.
  void unregisterForNotifications();

  // What the centre calls; `observer` is the client. Keeps a reply to one of the client's own requests, drops any
  // other.
  static void resultNotification(CFNotificationCenterRef center, void* observer, CFStringRef name, const void* object,
                                 CFDictionaryRef userInfo);

 protected:
  ~CDNSharedStorageClient() override;

 private:
  class Wait;

  plinth::CStringRef post(CFStringRef name, CFDictionaryRef request);
  void keepReply(CFStringRef requestID, CFDictionaryRef reply);

  plinth::CMutexRef lock_;
  plinth::CSharedCFRef<CFMutableDictionaryRef> pendingRequests_;  // by request id, as the rest
  plinth::CSharedCFRef<CFMutableDictionaryRef> replies_;
  std::vector<Wait*> waits_;
};

using CDNSharedStorageClientRef = plinth::CSharedObjectRef<CDNSharedStorageClient>;

}  // namespace tovan
