// shared_storage.h: the interfaces of the shared storage.
//
// A process publishes a local folder to the other hosts of the cluster, and mounts on a local folder what another host
// published. Several clients and processes may publish or mount the same folder: each holds references of its own, and
// the export or mount goes with the last of them (shared_storage_entries.h).
//
// A client is a name of the caller's choice; a process is given by its id, and -1 gives back a reference of a process
// that the caller does not know.
//
// Every operation may throw plinth::CException; ISharedStorageException (shared_storage_exception.h) says which ones
// are the storage's own. An implementation says which thread may call it. The objects are counted: hold them in the
// references below. The order of the virtual operations is part of the interface.
#pragma once

#include <tovan/export.h>
#include <tovan/shared_storage_entries.h>

#include <plinth/shared_object.h>
#include <plinth/string.h>
#include <plinth/url.h>

#include <CoreFoundation/CFBase.h>

#include <cstdint>

namespace tovan {

class TOVAN_EXPORT ISharedStoragePublisher : public virtual plinth::CSharedObject {
 public:
  // Publishes the folder that a file URL names, or adds a reference when it is published already. The result says
  // nothing: a failure throws.
  virtual OSStatus publish(const plinth::CURLRef& url, const plinth::CStringRef& client, long pid) = 0;
  // Gives one reference back, and takes the folder off when it was the last.
  virtual void unpublish(const plinth::CURLRef& url, const plinth::CStringRef& client, long pid) = 0;
  // The port at which this host's file service is reached; -1 when it has none of its own.
  virtual std::int32_t getServerPort() = 0;
  // Drops what a process held. Call it when the process is gone.
  virtual void processTerminated(long pid) = 0;
  // What is published now, a copy. Empty unless the implementation keeps the map itself.
  virtual CSharedStoragePublishedMap getPublishedMap() const;

 protected:
  ~ISharedStoragePublisher() override;
};

class TOVAN_EXPORT ISharedStorageSubscriber : public virtual plinth::CSharedObject {
 public:
  // Mounts the remote storage that the URL names on a local folder, or adds a reference when something is mounted there
  // already.
  virtual void subscribe(const plinth::CURLRef& url, const plinth::CStringRef& mountPath,
                         const plinth::CStringRef& client, long pid) = 0;
  // Gives one reference back, and unmounts when it was the last.
  virtual void unsubscribe(const plinth::CURLRef& url, const plinth::CStringRef& mountPath,
                           const plinth::CStringRef& client, long pid) = 0;
  // Drops what a process held. Call it when the process is gone.
  virtual void processTerminated(long pid) = 0;
  // What is mounted now, a copy. Empty unless the implementation keeps the map itself.
  virtual CSharedStorageSubscribedMap getSubscribedMap() const;

 protected:
  ~ISharedStorageSubscriber() override;
};

// Both sides in one object, which is counted once however it is referenced.
class TOVAN_EXPORT ISharedStorage : public ISharedStoragePublisher, public ISharedStorageSubscriber {
 public:
  void subscribe(const plinth::CURLRef& url, const plinth::CStringRef& mountPath, const plinth::CStringRef& client,
                 long pid) override = 0;
  void unsubscribe(const plinth::CURLRef& url, const plinth::CStringRef& mountPath, const plinth::CStringRef& client,
                   long pid) override = 0;
  CSharedStorageSubscribedMap getSubscribedMap() const override;
  // One operation for both sides; it keeps the publisher's place.
  void processTerminated(long pid) override = 0;

  // The text for a key in the library's own strings table, in the language the library is used in; the key itself when
  // the table lacks it. docs/storage.md lists the keys of the storage and what their formats take. Throws
  // ISharedStorageException (type 5, sub-code 2) "TovanCore.framework not found" when the library does not lie in its
  // framework, and plinth::CNullPointerException for an empty key. Any thread.
  static plinth::CStringRef localizedStringForKey(const plinth::CStringRef& key);

 protected:
  ~ISharedStorage() override;
};

using ISharedStorageRef = plinth::CSharedObjectRef<ISharedStorage>;
using ISharedStoragePublisherRef = plinth::CSharedObjectRef<ISharedStoragePublisher>;
using ISharedStorageSubscriberRef = plinth::CSharedObjectRef<ISharedStorageSubscriber>;

}  // namespace tovan
