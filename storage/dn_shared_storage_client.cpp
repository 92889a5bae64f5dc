// CDNSharedStorageClient: requests, replies and waits. The operations on top of them are in
// dn_shared_storage_operations.cpp.
#include <tovan/dn_shared_storage_client.h>

#include <plinth/exception.h>
#include <plinth/uuid_string.h>
#include <tovan/cf_util.h>
#include <tovan/notifications.h>

#include <unistd.h>

#include "storage/dn_shared_storage_wait.h"
#include "storage/live_observers.h"
#include "storage/request_timeout.h"
#include "storage/storage_protocol.h"

namespace tovan {

using plinth::CAutoMutex;
using plinth::CException;
using plinth::CSharedCFRef;
using plinth::CSTR;
using plinth::CStringRef;
using plinth::CURLRef;
using plinth::ExceptionKind;

namespace {

template <class Holder>
void requireValue(const Holder& value, const char* name) {
  if (value.isNull()) throw plinth::CNullPointerException("Error: %s is null!", name);
}

using Request = CSharedCFRef<CFMutableDictionaryRef>;

void setText(const Request& request, CFStringRef key, const CStringRef& text) {
  CFUtil::CFDictSetString(request.get(), key, text->getStringRef());
}

// What all requests have; the id is a fresh one.
Request newRequest(const CStringRef& client, long pid) {
  requireValue(client, "client");
  Request request = CFUtil::CFDictMakeMutable();
  setText(request, protocol::kSenderKey, client);
  setText(request, protocol::kRequestIDKey, plinth::makeShared<plinth::CUUIDString>());
  CFUtil::CFDictSetInt(request.get(), protocol::kPIDKey, static_cast<std::int32_t>(pid == 0 ? ::getpid() : pid));
  return request;
}

Request folderRequest(const char* operation, const CURLRef& url, const CStringRef& client, long pid) {
  requireValue(url, "url");
  const CStringRef path = url->getFileSystemPath();
  if (path.isNull()) {
    throw plinth::CParamException("CDNSharedStorageClient::%s(%@): the URL has no file-system path", operation,
                                  url->getString()->getStringRef());
  }
  Request request = newRequest(client, pid);
  setText(request, protocol::kStorageURLKey, path);
  return request;
}

Request mountRequest(const CURLRef& url, const CStringRef& mountPath, const CStringRef& client, long pid) {
  requireValue(url, "url");
  requireValue(mountPath, "mountPath");
  Request request = newRequest(client, pid);
  setText(request, protocol::kStorageURLKey, url->getString());
  setText(request, protocol::kStorageLocalPathKey, mountPath);
  return request;
}

void throwReportedFailure(CFDictionaryRef reply) {
  std::int32_t result = protocol::kDone;
  std::int32_t kind = 0;
  CFStringRef message = nullptr;
  if (!CFUtil::CFDictGetInt(reply, protocol::kResultKey, result) || result == protocol::kDone) return;
  if (!CFUtil::CFDictGetInt(reply, protocol::kExceptionKindKey, kind)) return;
  if (!CFUtil::CFDictGetString(reply, protocol::kExceptionMessageKey, message)) return;
  CException failure(static_cast<ExceptionKind>(kind));
  failure.concatMessage("%@", message);
  failure.Throw();
}

}  // namespace

CDNSharedStorageClient::CDNSharedStorageClient()
    : lock_(plinth::makeShared<plinth::CMutex>()),
      pendingRequests_(CFUtil::CFDictMakeMutable()),
      replies_(CFUtil::CFDictMakeMutable()) {
  for (const CFStringRef name : {protocol::kPublishResult, protocol::kUnpublishResult, protocol::kSubscribeResult,
                                 protocol::kUnsubscribeResult, protocol::kGetServerPortResult}) {
    ::registerForNotification(this, resultNotification, name, nullptr);
  }
  addLiveObserver(this, *this);
}

CDNSharedStorageClient::~CDNSharedStorageClient() {
  removeLiveObserver(this);
  unregisterForNotifications();
}

void CDNSharedStorageClient::unregisterForNotifications() { ::unregisterForNotifications(this); }

// ---- Requests

CStringRef CDNSharedStorageClient::asyncPublish(const CURLRef& url, const CStringRef& client, long pid) {
  return post(protocol::kPublish, folderRequest("publish", url, client, pid).get());
}

CStringRef CDNSharedStorageClient::asyncUnpublish(const CURLRef& url, const CStringRef& client, long pid) {
  return post(protocol::kUnpublish, folderRequest("unpublish", url, client, pid).get());
}

CStringRef CDNSharedStorageClient::asyncSubscribe(const CURLRef& url, const CStringRef& mountPath,
                                                  const CStringRef& client, long pid) {
  return post(protocol::kSubscribe, mountRequest(url, mountPath, client, pid).get());
}

CStringRef CDNSharedStorageClient::asyncUnsubscribe(const CURLRef& url, const CStringRef& mountPath,
                                                    const CStringRef& client, long pid) {
  return post(protocol::kUnsubscribe, mountRequest(url, mountPath, client, pid).get());
}

// Whoever asks, it is this process that asks, on purpose.
CStringRef CDNSharedStorageClient::asyncGetServerPort(const CStringRef& client, long) {
  constexpr long kOwn = 0;
  return post(protocol::kGetServerPort, newRequest(client, kOwn).get());
}

// It is pending before it is sent, so that its reply cannot come too early.
CStringRef CDNSharedStorageClient::post(CFStringRef name, CFDictionaryRef request) {
  CFStringRef client = nullptr;
  CFStringRef requestID = nullptr;
  CFUtil::CFDictGetString(request, protocol::kSenderKey, client);
  CFUtil::CFDictGetString(request, protocol::kRequestIDKey, requestID);
  {
    const CAutoMutex lock(lock_);
    CFDictionarySetValue(pendingRequests_.get(), requestID, request);
  }
  ::sendNotification(name, client, request);
  return CSTR(requestID);
}

// ---- Replies

void CDNSharedStorageClient::resultNotification(CFNotificationCenterRef, void* observer, CFStringRef, const void*,
                                                CFDictionaryRef userInfo) {
  try {
    CFStringRef requestID = nullptr;
    if (!CFUtil::CFDictGetString(userInfo, protocol::kRequestIDKey, requestID)) return;
    const auto client = liveObserver<CDNSharedStorageClient>(observer);
    if (client) client->keepReply(requestID, userInfo);
  } catch (...) {
    CFUtil::LogToConsole("CDNSharedStorageClient::resultNotification: a reply could not be kept");
  }
}

void CDNSharedStorageClient::keepReply(CFStringRef requestID, CFDictionaryRef reply) {
  const CAutoMutex lock(lock_);
  if (!CFDictionaryContainsKey(pendingRequests_.get(), requestID)) return;
  CFDictionarySetValue(replies_.get(), requestID, reply);
  for (const Wait* const wait : waits_) {
    if (wait->isFor(requestID)) wait->wake();
  }
}

bool CDNSharedStorageClient::asyncWaitForReply(const CStringRef& requestID, long timeout) {
  return !asyncWaitForReplyResult(requestID, timeout).isNull();
}

CSharedCFRef<CFDictionaryRef> CDNSharedStorageClient::asyncWaitForReplyResult(const CStringRef& requestID,
                                                                              long timeout) {
  requireValue(requestID, "requestID");
  auto reply = Wait(*this, requestID).reply(timeout < 0 ? internal::standardRequestTimeout() : timeout);
  if (reply) throwReportedFailure(reply.get());
  return reply;
}

}  // namespace tovan
