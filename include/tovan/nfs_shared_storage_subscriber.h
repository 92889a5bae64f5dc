// nfs_shared_storage_subscriber.h: CNFSSharedStorageSubscriber, which mounts on this host what other hosts published.
//
// It keeps a map of the mount points it serves, by their file-system bytes, each with an entry that counts references
// (shared_storage_entries.h): the first reference mounts, the last one given back unmounts. The map is this object's
// alone and does not outlive it; the mounts do.
//
// Mounting is the work of the platform's "/sbin/mount" and "/sbin/umount", each run as a child process without a shell:
//
//   /sbin/mount -o [port=N,mountport=N,]soft,intr,locallocks HOST:PATH MOUNT-POINT
//   /sbin/umount -f MOUNT-POINT
//
// HOST and PATH are those of the URL, its percent escapes decoded; an IPv6 address stands in brackets. The URL's user,
// password, authority port and fragment are not used, and its scheme does not matter. N is the first "port" parameter
// of the URL's query: an integer from 1 to 65535, or -1, which a server without a port of its own says and which goes
// to the command as it is. A URL without the parameter, with an empty one or with 0 has no port options.
//
// A URL that no command can be made of is refused, before any command runs, with plinth::CParamException:
//   "CNFSSharedStorage::_subscribe: [HOST:PATH] names no host", also for a host that begins with "-" or holds what no
//     host name does and a mount command could take for something else: a blank, a control character, a quote or
//     apostrophe, a backslash, ",", "=", "/", "[" or "]";
//   "CNFSSharedStorage::_subscribe: [HOST:PATH] names no folder of the host", also for a path that is not UTF-8, holds
//     U+0000 or is not absolute;
//   "CNFSSharedStorage::_subscribe: [HOST:PATH] has a bad port: VALUE".
// An empty holder for the URL is a plinth::CNullPointerException "Error: url is null!".
//
// A command has CSharedStorageUtils::requestTimeout() less 5 seconds: 55. One that takes longer gets SIGTERM, what is
// left of it and its children after three more seconds SIGKILL, and it is collected before the exception is thrown.
// Commands read an empty input, and what they print goes to this process's standard error. Failures are
// ISharedStorageException type 1, sub-code 12:
//
//   "CNFSSharedStorage::_subscribe: command [/sbin/mount HOST:PATH] timed out"
//   "CNFSSharedStorage::_subscribe: command [/sbin/mount HOST:PATH] failed, error = STATUS"
//   "CNFSSharedStorage::_unsubscribe: command [/sbin/umount MOUNT-POINT] timed out"
//   "CNFSSharedStorage::_unsubscribe: command [/sbin/umount MOUNT-POINT] failed, error = STATUS"
//
// STATUS is the command's exit status or the number of the signal that ended it; an errno value when it could not be
// run, such as 2 when it is not there.
//
// Mount points are UTF-8 paths; a relative one counts from the process's working directory, and "/" at the end does not
// count. Otherwise two ways to write the same folder are two mount points. A path that can't be one (empty, or with
// U+0000 or half a surrogate pair) is ISharedStorageException type 3, sub-code 6, "path not present: [PATH]".
//
// Not locked: the caller sees to it that one call runs at a time. A mount or unmount blocks the calling thread until
// the command ends.
#pragma once

#include <tovan/export.h>
#include <tovan/shared_storage.h>

namespace tovan {

class TOVAN_EXPORT CNFSSharedStorageSubscriber : public ISharedStorageSubscriber {
 public:
  CNFSSharedStorageSubscriber();

  // Makes the mount point (CSharedStorageUtils::makeDir, mode 0777, with its failures) and mounts the storage there. A
  // mount point that has an entry already, even of another URL, gets one reference more and no mount. The map changes
  // only when the mount has succeeded. Throws plinth::CNullPointerException "Error: client is null!", and
  // plinth::CParamException "CNFSSharedStorageSubscriber::subscribe: client [NAME] can't hold a reference" for a name
  // that can't (shared_storage_entries.h).
  void subscribe(const plinth::CURLRef& url, const plinth::CStringRef& mountPath, const plinth::CStringRef& client,
                 long pid) override;
  // Gives one reference back. The last one erases the entry and then unmounts; a mount point without an entry, as one
  // left over from an earlier run, is unmounted as well. So when unmounting fails the entry is gone, and another call
  // tries again. The URL is not used and may be an empty holder.
  void unsubscribe(const plinth::CURLRef& url, const plinth::CStringRef& mountPath, const plinth::CStringRef& client,
                   long pid) override;
  // Drops what a process held from the entries that have no clients, on purpose from no others, and erases and unmounts
  // those that have no reference left. Failures as in cleanMounts().
  void processTerminated(long pid) override;
  // A copy.
  CSharedStorageSubscribedMap getSubscribedMap() const override;

  // Empties the map and unmounts everything it had, what lies inside another mount first. One that fails does not keep
  // the others: all are tried, then the first failure is thrown; further ones are console lines.
  void cleanMounts();
  // Does nothing: mounting needs no service of this host.
  void startNFSDaemons() const;

  // The commands, without the map.
  virtual void _subscribe(const plinth::CURLRef& url, const plinth::CStringRef& mountPath);
  virtual void _unsubscribe(const plinth::CURLRef& url, const plinth::CStringRef& mountPath);

 protected:
  ~CNFSSharedStorageSubscriber() override;

  // For a subclass that keeps entries of its own making.
  CSharedStorageSubscribedMap& subscribedMap() noexcept { return subscribed_; }

 private:
  void unmountAll(const CSharedStorageSubscribedMap& entries);

  CSharedStorageSubscribedMap subscribed_;
};

using CNFSSharedStorageSubscriberRef = plinth::CSharedObjectRef<CNFSSharedStorageSubscriber>;

}  // namespace tovan
