// CDNSharedStorageClient: the operations of the interface, each a request and the wait for its reply.
#include <tovan/dn_shared_storage_client.h>

#include <tovan/cf_util.h>
#include <tovan/notifications.h>
#include <tovan/shared_storage_utils.h>

#include <optional>

#include "platform/system/file_system.h"
#include "storage/path_bytes.h"
#include "storage/storage_failure.h"
#include "storage/storage_names.h"
#include "storage/storage_protocol.h"

namespace tovan {

using plinth::CSharedCFRef;
using plinth::CSTR;
using plinth::CString;
using plinth::CStringRef;
using plinth::CURLRef;

namespace {

constexpr long kStandardTimeout = -1;

[[noreturn]] void throwTimedOut(const char* key, const CStringRef& subject) {
  const CStringRef format = ISharedStorage::localizedStringForKey(CSTR(key));
  throwStorageFailure(kSharedStorageExceptionStorage, kSharedStorageNotDone, "%@",
                      CString::sprintf(format->getStringRef(), subject->getStringRef()));
}

void log(const CStringRef& line) { CFUtil::LogToConsole(line->getUTF8Ptr()); }

// The mount table knows whether the mount took; the file system below the path is not asked.
void reportLocalMount(const CStringRef& mountPath, const CStringRef& client) {
  const std::optional<platform::FileSystemFacts> facts = platform::fileSystemFacts(pathBytes(mountPath));
  if (!facts || !facts->isLocal) return;
  log(CString::sprintf("CDNSharedStorageClient::subscribe: client = %@, path = %@ is still local!",
                       client->getStringRef(), mountPath->getStringRef()));
}

void reportMissingInfoFile(const CURLRef& url, const CStringRef& mountPath, const CStringRef& client) {
  const CStringRef path = CString::sprintf("%@/%s", mountPath->getStringRef(), kStorageInfoFileName);
  if (CSharedStorageUtils::pathExists(path)) return;
  log(CString::sprintf("CDNSharedStorageClient::subscribe: client = %@, from = %@; info file %@ not accessible!",
                       client->getStringRef(), url->getString()->getStringRef(), path->getStringRef()));
}

}  // namespace

OSStatus CDNSharedStorageClient::publish(const CURLRef& url, const CStringRef& client, long pid) {
  if (!asyncWaitForReply(asyncPublish(url, client, pid), kStandardTimeout)) {
    throwTimedOut("SharedStorageClient_publish_timed_out", url->getString());
  }
  return 0;
}

void CDNSharedStorageClient::unpublish(const CURLRef& url, const CStringRef& client, long pid) {
  if (!asyncWaitForReply(asyncUnpublish(url, client, pid), kStandardTimeout)) {
    throwTimedOut("SharedStorageClient_unpublish_timed_out", url->getString());
  }
}

void CDNSharedStorageClient::subscribe(const CURLRef& url, const CStringRef& mountPath, const CStringRef& client,
                                       long pid) {
  if (!asyncWaitForReply(asyncSubscribe(url, mountPath, client, pid), kStandardTimeout)) {
    throwTimedOut("SharedStorageClient_subscribe_timed_out", url->getString());
  }
  try {
    reportLocalMount(mountPath, client);
    reportMissingInfoFile(url, mountPath, client);
  } catch (...) {
    // The subscription holds, whatever became of the looking.
    CFUtil::LogToConsole("CDNSharedStorageClient::subscribe: the mount could not be checked");
  }
}

void CDNSharedStorageClient::unsubscribe(const CURLRef& url, const CStringRef& mountPath, const CStringRef& client,
                                         long pid) {
  if (!asyncWaitForReply(asyncUnsubscribe(url, mountPath, client, pid), kStandardTimeout)) {
    throwTimedOut("SharedStorageClient_unsubscribe_timed_out", url->getString());
  }
}

std::int32_t CDNSharedStorageClient::getServerPort() {
  const CStringRef client = CSTR(protocol::kServerPortClient);
  const CSharedCFRef<CFDictionaryRef> reply = asyncWaitForReplyResult(asyncGetServerPort(client, 0), kStandardTimeout);
  if (reply.isNull()) throwTimedOut("SharedStorageClient_getServerPort_timed_out", client);
  std::int32_t port = 0;
  return CFUtil::CFDictGetInt(reply.get(), protocol::kServerPortKey, port) ? port : -1;
}

void CDNSharedStorageClient::processTerminated(long pid) {
  const CSharedCFRef<CFMutableDictionaryRef> content = CFUtil::CFDictMakeMutable();
  CFUtil::CFDictSetInt(content.get(), protocol::kPIDKey, static_cast<std::int32_t>(pid));
  ::sendNotification(protocol::kProcessTerminated, protocol::kProcessTerminatedObject, content.get());
}

}  // namespace tovan
