// dn_shared_storage_server.h: CDNSharedStorageServer, which offers a storage to other processes of the user.
//
// The cluster daemon owns the one storage of its host that really publishes and mounts. It wraps it in a server, which
// takes requests from the distributed notification centre (docs/storage-protocol.md has the protocol), does them on the
// storage, and posts the results. CDNSharedStorageClient (dn_shared_storage_client.h) is the other side.
//
// Making a server starts the service, destroying it ends it. It keeps nothing but the storage.
//
// Threads: requests are done on the run loop of the thread that made the server, one after the other, so that thread
// must turn its run loop. The server takes no lock: whoever calls its operations directly does so on that thread. The
// last reference may be given back on any thread, and by the storage itself in the middle of a request, which is then
// still answered; on another thread than the server's own a request may be under way at that moment, and is finished.
// A child of fork offers nothing.
//
// Failures: no exception leaves a callback. What the storage throws goes back to the client by number and message, and
// is one console line here. The operations below, called directly, throw what the storage throws.
//
// A server without a storage (an empty reference) is of no use, but does no harm: each operation logs the empty
// reference (plinth::CSharedObject::LogNullRef), then throws CNullPointerException "Error: storage is null!", which a
// request answers like any other failure.
#pragma once

#include <tovan/export.h>
#include <tovan/shared_storage.h>

#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFNotificationCenter.h>
#include <CoreFoundation/CFString.h>

#include <cstdint>

namespace tovan {

class TOVAN_EXPORT CDNSharedStorageServer : public ISharedStorage {
 public:
  // Keeps a reference to the storage and begins to listen.
  explicit CDNSharedStorageServer(const ISharedStorageRef& storage);
  CDNSharedStorageServer(const CDNSharedStorageServer&) = delete;
  CDNSharedStorageServer& operator=(const CDNSharedStorageServer&) = delete;

  // Each goes to the storage as it is.
  OSStatus publish(const plinth::CURLRef& url, const plinth::CStringRef& client, long pid) override;
  void unpublish(const plinth::CURLRef& url, const plinth::CStringRef& client, long pid) override;
  std::int32_t getServerPort() override;
  void processTerminated(long pid) override;
  CSharedStoragePublishedMap getPublishedMap() const override;
  void subscribe(const plinth::CURLRef& url, const plinth::CStringRef& mountPath, const plinth::CStringRef& client,
                 long pid) override;
  void unsubscribe(const plinth::CURLRef& url, const plinth::CStringRef& mountPath, const plinth::CStringRef& client,
                   long pid) override;
  CSharedStorageSubscribedMap getSubscribedMap() const override;

  // Has the callback called, with this server as its observer, for each notification of that name and object; null
  // stands for all. On the calling thread's run loop.
  void registerForNotification(CFNotificationCallback callback, CFStringRef name, CFStringRef object);
  // The server hears nothing any more.
  void unregisterForNotifications();
  // Posts for immediate delivery. The object and the user info may be null.
  void sendNotification(CFStringRef name, CFStringRef object, CFDictionaryRef userInfo);

  // What the centre calls; `observer` is the server. A notification of another name than those that a callback is for
  // is ignored, and so is one for a server that is being destroyed.
  static void publishNotification(CFNotificationCenterRef center, void* observer, CFStringRef name, const void* object,
                                  CFDictionaryRef userInfo);
  static void subscribeNotification(CFNotificationCenterRef center, void* observer, CFStringRef name,
                                    const void* object, CFDictionaryRef userInfo);
  static void getServerPortNotification(CFNotificationCenterRef center, void* observer, CFStringRef name,
                                        const void* object, CFDictionaryRef userInfo);
  static void processTerminatedNotification(CFNotificationCenterRef center, void* observer, CFStringRef name,
                                            const void* object, CFDictionaryRef userInfo);

 protected:
  ~CDNSharedStorageServer() override;

 private:
  ISharedStorage& storage() const;

  ISharedStorageRef storage_;
};

using CDNSharedStorageServerRef = plinth::CSharedObjectRef<CDNSharedStorageServer>;

}  // namespace tovan
