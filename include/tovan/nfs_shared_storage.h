// nfs_shared_storage.h: CNFSSharedStorage, the storage of a host that really exports and mounts, and the makers of the
// daemon's server and of its clients.
//
// It is one publisher (nfs_shared_storage_publisher.h) and one subscriber (nfs_shared_storage_subscriber.h) as one
// ISharedStorage. One object of each host, the daemon's, should do the work; it serves the other processes as a server,
// and they reach it as clients:
//
//   daemon:          ISharedStorageRef server = CNFSSharedStorage::NewServer(CNFSSharedStorage::kNotificationRPC);
//   other process:   ISharedStorageRef storage = CNFSSharedStorage::NewClient(CNFSSharedStorage::kNotificationRPC);
//
// Not locked: the caller sees to it that one call runs at a time. A server is called on the run loop of the thread that
// made it, and a client waits on the run loop of the thread that uses it, which must be the one that made it.
#pragma once

#include <tovan/export.h>
#include <tovan/nfs_shared_storage_publisher.h>
#include <tovan/nfs_shared_storage_subscriber.h>
#include <tovan/shared_storage.h>

#include <cstdint>

namespace tovan {

class TOVAN_EXPORT CNFSSharedStorage : public ISharedStorage {
 public:
  // How server and clients of a host talk to each other.
  enum ServerRPCType : std::int32_t {
    kNotificationRPC = 0,  // distributed notifications (docs/storage-protocol.md)
  };

  // With a new publisher and a new subscriber.
  CNFSSharedStorage();
  // With the given ones. Throws plinth::CNullPointerException "Error: publisher is null!" or
  // "Error: subscriber is null!".
  CNFSSharedStorage(const CNFSSharedStoragePublisherRef& publisher, const CNFSSharedStorageSubscriberRef& subscriber);

  // The publisher's.
  OSStatus publish(const plinth::CURLRef& url, const plinth::CStringRef& client, long pid) override;
  void unpublish(const plinth::CURLRef& url, const plinth::CStringRef& client, long pid) override;
  std::int32_t getServerPort() override;
  CSharedStoragePublishedMap getPublishedMap() const override;
  // The subscriber's.
  void subscribe(const plinth::CURLRef& url, const plinth::CStringRef& mountPath, const plinth::CStringRef& client,
                 long pid) override;
  void unsubscribe(const plinth::CURLRef& url, const plinth::CStringRef& mountPath, const plinth::CStringRef& client,
                   long pid) override;
  CSharedStorageSubscribedMap getSubscribedMap() const override;
  // The subscriber's, then the publisher's, also when the subscriber's throws; the first failure is thrown.
  void processTerminated(long pid) override;

  // A server for the given publisher and subscriber, or for new ones; it serves as long as somebody holds it. These and
  // the makers of clients throw plinth::CParamException "Invalid serverRPCType: NUMBER" for an unknown type.
  static ISharedStorageRef NewServer(ServerRPCType type);
  static ISharedStorageRef NewServer(const CNFSSharedStoragePublisherRef& publisher,
                                     const CNFSSharedStorageSubscriberRef& subscriber, ServerRPCType type);
  // A client of this user's server, whole or one side of it.
  static ISharedStorageRef NewClient(ServerRPCType type);
  static ISharedStoragePublisherRef NewPublisherClient(ServerRPCType type);
  static ISharedStorageSubscriberRef NewSubscriberClient(ServerRPCType type);

 protected:
  ~CNFSSharedStorage() override;

 private:
  CNFSSharedStoragePublisherRef publisher_;
  CNFSSharedStorageSubscriberRef subscriber_;
};

}  // namespace tovan
