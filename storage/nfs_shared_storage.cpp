#include <tovan/nfs_shared_storage.h>

#include <tovan/cf_util.h>
#include <tovan/dn_shared_storage_client.h>
#include <tovan/dn_shared_storage_server.h>

#include <plinth/exception.h>

#include <exception>

namespace tovan {

using plinth::CNullPointerException;
using plinth::CStringRef;
using plinth::CURLRef;
using plinth::makeShared;

namespace {

// There is one type so far; a caller's number may be any.
void checkType(CNFSSharedStorage::ServerRPCType type) {
  if (type != CNFSSharedStorage::kNotificationRPC) {
    throw plinth::CParamException("Invalid serverRPCType: %d", static_cast<int>(type));
  }
}

CDNSharedStorageClientRef newClient(CNFSSharedStorage::ServerRPCType type) {
  checkType(type);
  return makeShared<CDNSharedStorageClient>();
}

}  // namespace

CNFSSharedStorage::CNFSSharedStorage()
    : publisher_(makeShared<CNFSSharedStoragePublisher>()), subscriber_(makeShared<CNFSSharedStorageSubscriber>()) {}

CNFSSharedStorage::CNFSSharedStorage(const CNFSSharedStoragePublisherRef& publisher,
                                     const CNFSSharedStorageSubscriberRef& subscriber)
    : publisher_(publisher), subscriber_(subscriber) {
  if (publisher_.isNull()) throw CNullPointerException("Error: publisher is null!");
  if (subscriber_.isNull()) throw CNullPointerException("Error: subscriber is null!");
}

CNFSSharedStorage::~CNFSSharedStorage() = default;

OSStatus CNFSSharedStorage::publish(const CURLRef& url, const CStringRef& client, long pid) {
  return publisher_->publish(url, client, pid);
}

void CNFSSharedStorage::unpublish(const CURLRef& url, const CStringRef& client, long pid) {
  publisher_->unpublish(url, client, pid);
}

std::int32_t CNFSSharedStorage::getServerPort() { return publisher_->getServerPort(); }

CSharedStoragePublishedMap CNFSSharedStorage::getPublishedMap() const { return publisher_->getPublishedMap(); }

void CNFSSharedStorage::subscribe(const CURLRef& url, const CStringRef& mountPath, const CStringRef& client, long pid) {
  subscriber_->subscribe(url, mountPath, client, pid);
}

void CNFSSharedStorage::unsubscribe(const CURLRef& url, const CStringRef& mountPath, const CStringRef& client,
                                    long pid) {
  subscriber_->unsubscribe(url, mountPath, client, pid);
}

CSharedStorageSubscribedMap CNFSSharedStorage::getSubscribedMap() const { return subscriber_->getSubscribedMap(); }

void CNFSSharedStorage::processTerminated(long pid) {
  std::exception_ptr first;
  try {
    subscriber_->processTerminated(pid);
  } catch (const plinth::CException&) {
    first = std::current_exception();
  }
  try {
    publisher_->processTerminated(pid);
  } catch (const plinth::CException& exception) {
    if (!first) throw;
    CFUtil::LogToConsole(exception.what());
  }
  if (first) std::rethrow_exception(first);
}

ISharedStorageRef CNFSSharedStorage::NewServer(ServerRPCType type) {
  checkType(type);
  return makeShared<CDNSharedStorageServer>(makeShared<CNFSSharedStorage>());
}

ISharedStorageRef CNFSSharedStorage::NewServer(const CNFSSharedStoragePublisherRef& publisher,
                                               const CNFSSharedStorageSubscriberRef& subscriber, ServerRPCType type) {
  checkType(type);
  return makeShared<CDNSharedStorageServer>(makeShared<CNFSSharedStorage>(publisher, subscriber));
}

ISharedStorageRef CNFSSharedStorage::NewClient(ServerRPCType type) { return newClient(type); }

ISharedStoragePublisherRef CNFSSharedStorage::NewPublisherClient(ServerRPCType type) { return newClient(type); }

ISharedStorageSubscriberRef CNFSSharedStorage::NewSubscriberClient(ServerRPCType type) { return newClient(type); }

}  // namespace tovan
