#include <tovan/dn_shared_storage_server.h>

#include <plinth/exception.h>
#include <tovan/cf_util.h>
#include <tovan/notifications.h>

#include "storage/live_observers.h"
#include "storage/storage_protocol.h"
#include "storage/storage_request.h"

namespace tovan {

using plinth::CStringRef;
using plinth::CURLRef;

namespace {

// Does a callback's work on the server it is for, which lives at least as long. Nothing leaves it.
template <class Work>
void serve(void* observer, const char* failure, Work&& work) noexcept {
  try {
    const CDNSharedStorageServerRef server = liveObserver<CDNSharedStorageServer>(observer);
    if (server) work(*server);
  } catch (...) {
    // No memory for the reply, say.
    CFUtil::LogToConsole(failure);
  }
}

void sendReply(CDNSharedStorageServer& server, const std::optional<StorageReply>& reply) {
  if (reply) server.sendNotification(reply->name, reply->object.get(), reply->userInfo.get());
}

}  // namespace

CDNSharedStorageServer::CDNSharedStorageServer(const ISharedStorageRef& storage) : storage_(storage) {
  registerForNotification(publishNotification, protocol::kPublish, nullptr);
  registerForNotification(publishNotification, protocol::kUnpublish, nullptr);
  registerForNotification(subscribeNotification, protocol::kSubscribe, nullptr);
  registerForNotification(subscribeNotification, protocol::kUnsubscribe, nullptr);
  registerForNotification(getServerPortNotification, protocol::kGetServerPort, nullptr);
  registerForNotification(processTerminatedNotification, protocol::kProcessTerminated, nullptr);
  addLiveObserver(this, *this);
}

CDNSharedStorageServer::~CDNSharedStorageServer() {
  removeLiveObserver(this);
  unregisterForNotifications();
}

// ---- The storage

// An empty reference is logged by its operator ->.
ISharedStorage& CDNSharedStorageServer::storage() const {
  ISharedStorage* const storage = storage_.operator->();
  if (storage == nullptr) throw plinth::CNullPointerException("Error: storage is null!");
  return *storage;
}

OSStatus CDNSharedStorageServer::publish(const CURLRef& url, const CStringRef& client, long pid) {
  return storage().publish(url, client, pid);
}

void CDNSharedStorageServer::unpublish(const CURLRef& url, const CStringRef& client, long pid) {
  storage().unpublish(url, client, pid);
}

std::int32_t CDNSharedStorageServer::getServerPort() { return storage().getServerPort(); }

void CDNSharedStorageServer::processTerminated(long pid) { storage().processTerminated(pid); }

CSharedStoragePublishedMap CDNSharedStorageServer::getPublishedMap() const { return storage().getPublishedMap(); }

void CDNSharedStorageServer::subscribe(const CURLRef& url, const CStringRef& mountPath, const CStringRef& client,
                                       long pid) {
  storage().subscribe(url, mountPath, client, pid);
}

void CDNSharedStorageServer::unsubscribe(const CURLRef& url, const CStringRef& mountPath, const CStringRef& client,
                                         long pid) {
  storage().unsubscribe(url, mountPath, client, pid);
}

CSharedStorageSubscribedMap CDNSharedStorageServer::getSubscribedMap() const { return storage().getSubscribedMap(); }

// ---- Notifications

void CDNSharedStorageServer::registerForNotification(CFNotificationCallback callback, CFStringRef name,
                                                     CFStringRef object) {
  ::registerForNotification(this, callback, name, object);
}

void CDNSharedStorageServer::unregisterForNotifications() { ::unregisterForNotifications(this); }

void CDNSharedStorageServer::sendNotification(CFStringRef name, CFStringRef object, CFDictionaryRef userInfo) {
  ::sendNotification(name, object, userInfo);
}

void CDNSharedStorageServer::publishNotification(CFNotificationCenterRef, void* observer, CFStringRef name, const void*,
                                                 CFDictionaryRef userInfo) {
  serve(observer, "CDNSharedStorageServer::publishNotification: unknown exception",
        [&](CDNSharedStorageServer& server) { sendReply(server, answerPublishRequest(server, name, userInfo)); });
}

void CDNSharedStorageServer::subscribeNotification(CFNotificationCenterRef, void* observer, CFStringRef name,
                                                   const void*, CFDictionaryRef userInfo) {
  serve(observer, "CDNSharedStorageServer::subscribeNotification: unknown exception",
        [&](CDNSharedStorageServer& server) { sendReply(server, answerSubscribeRequest(server, name, userInfo)); });
}

void CDNSharedStorageServer::getServerPortNotification(CFNotificationCenterRef, void* observer, CFStringRef name,
                                                       const void*, CFDictionaryRef userInfo) {
  serve(observer, "CDNSharedStorageServer::getServerPortNotification: unknown exception",
        [&](CDNSharedStorageServer& server) { sendReply(server, answerServerPortRequest(server, name, userInfo)); });
}

void CDNSharedStorageServer::processTerminatedNotification(CFNotificationCenterRef, void* observer, CFStringRef name,
                                                           const void*, CFDictionaryRef userInfo) {
  serve(observer, "CDNSharedStorageServer::processTerminatedNotification: unknown exception",
        [&](CDNSharedStorageServer& server) { takeProcessTerminated(server, name, userInfo); });
}

}  // namespace tovan
