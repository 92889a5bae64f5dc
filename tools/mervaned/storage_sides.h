// storage_sides.h: the library's publisher and subscriber as the daemon uses them.
#pragma once

#include <tovan/nfs_shared_storage_publisher.h>
#include <tovan/nfs_shared_storage_subscriber.h>

#include <atomic>
#include <map>
#include <string>
#include <vector>

#include "tools/mervaned/holders.h"
#include "tools/mervaned/mount_record.h"
#include "tools/mervaned/storage_activity.h"

namespace mervaned {

// Which commands may still be run. It only ever closes, from any thread.
enum class Gate : int { open, closedToMounts, closed };

// Every reference that is taken is noted with the holders; what goes on is an activity. All live longer than the sides.
struct StorageWatch {
  StorageActivity activity;
  HolderWatch holders;
  std::atomic<Gate> gate = Gate::open;
};

// Lists what is published in an exports file of the daemon's own: every line of it is the daemon's, of this run or of
// an earlier one.
class Publisher : public tovan::CNFSSharedStoragePublisher {
 public:
  // Makes the file, empty and for this user alone to write, and its folder. What stands in the way is a line in the log
  // and the problem; everything else works.
  Publisher(std::string exportsFile, StorageWatch& watch);

  OSStatus publish(const plinth::CURLRef& url, const plinth::CStringRef& client, long pid) override;
  void unpublish(const plinth::CURLRef& url, const plinth::CStringRef& client, long pid) override;

  const std::string& exportsFile() const noexcept { return exportsFile_; }
  // Why the file cannot be used now; empty when it can.
  std::string problem() const;
  // The folders that the file lists now. None when it cannot be read.
  std::vector<std::string> listedFolders() const;

 protected:
  ~Publisher() override = default;

 private:
  const std::string exportsFile_;
  StorageWatch& watch_;
};

// Notes what it mounts (mount_record.h). What an earlier run mounted is taken over by the first subscription of the
// same URL there, and keeps any other out; what others mounted there is none of its business. A command that the gate
// does not let pass is refused, and so is a mount point with a control character, which no property list can carry.
class Subscriber : public tovan::CNFSSharedStorageSubscriber {
 public:
  explicit Subscriber(StorageWatch& watch) : watch_(watch) {}

  void subscribe(const plinth::CURLRef& url, const plinth::CStringRef& mountPath, const plinth::CStringRef& client,
                 long pid) override;
  void _subscribe(const plinth::CURLRef& url, const plinth::CStringRef& mountPath) override;
  void _unsubscribe(const plinth::CURLRef& url, const plinth::CStringRef& mountPath) override;

  // The URLs by mount point of what earlier runs mounted, or this one failed to unmount or only seemed to fail to
  // mount, and is mounted still.
  std::map<std::string, std::string> leftOvers() const;
  // Whether the table has a mount at a mount point that is held.
  bool isMounted(const MountTable& table, const std::string& mountPoint) const;

 protected:
  ~Subscriber() override = default;

 private:
  bool takesOver(const std::string& url, const std::string& mountPoint) const;
  bool noteWhenNew(const std::string& mountPoint, RecordedMount mount, const MountTable& before);

  StorageWatch& watch_;
  MountRecord record_;
};

}  // namespace mervaned
