#include <tovan/nfs_shared_storage_subscriber.h>

#include <tovan/cf_util.h>
#include <tovan/shared_storage_utils.h>

#include <plinth/exception.h>

#include <exception>
#include <optional>
#include <string>

#include "platform/system/file_system.h"
#include "storage/file_system_path.h"
#include "storage/mount_command.h"
#include "storage/mount_source.h"
#include "storage/storage_failure.h"

namespace tovan {

using plinth::CSTR;
using plinth::CString;
using plinth::CStringRef;
using plinth::CURLRef;

namespace {

constexpr char kMount[] = "/sbin/mount";
constexpr char kUmount[] = "/sbin/umount";

// The bytes of a mount point, without the slashes at its end.
std::string mountPointOf(const CStringRef& path) {
  const char* const bytes = fileSystemRepresentation(path);
  std::string mountPoint = bytes != nullptr ? bytes : "";
  while (mountPoint.size() > 1 && mountPoint.back() == '/') mountPoint.pop_back();
  if (mountPoint.empty()) {
    throwStorageFailure(kSharedStorageExceptionStorage, kSharedStorageNotFolder, "path not present: [%@]", path);
  }
  return mountPoint;
}

// The folder that is mounted already is not asked for: its server may hang.
bool isRemoteMount(const std::string& mountPoint) {
  const std::optional<platform::FileSystemFacts> facts = platform::fileSystemFacts(mountPoint);
  return facts && !facts->isLocal && facts->mountPoint == mountPoint;
}

// The command is named by its path and what it is about: "/sbin/mount HOST:PATH".
void require(const MountCommandEnd& end, const char* function, const std::string& command) {
  if (!end.hasTimedOut && end.status == 0) return;
  const CStringRef name = CSTR(command);
  const CStringRef text = end.hasTimedOut ? CString::sprintf("CNFSSharedStorage::%s: command [%@] timed out", function,
                                                             name->getStringRef())
                                          : CString::sprintf("CNFSSharedStorage::%s: command [%@] failed, error = %d",
                                                             function, name->getStringRef(), end.status);
  throwStorageFailure(kSharedStorageExceptionExchange, kSharedStorageNotDone, "%@", text);
}

CURLRef exportURLOf(const CSharedStorageSubscribedEntry& entry) {
  return entry.exportURL() != nullptr ? plinth::makeShared<plinth::CURL>(entry.exportURL()) : nullptr;
}

}  // namespace

CNFSSharedStorageSubscriber::CNFSSharedStorageSubscriber() = default;

CNFSSharedStorageSubscriber::~CNFSSharedStorageSubscriber() = default;

void CNFSSharedStorageSubscriber::subscribe(const CURLRef& url, const CStringRef& mountPath, const CStringRef& client,
                                            long pid) {
  if (url.isNull()) throw plinth::CNullPointerException("Error: url is null!");
  if (client.isNull()) throw plinth::CNullPointerException("Error: client is null!");
  const std::string key = mountPointOf(mountPath);
  const CStringRef mountPoint = CSTR(key);
  const CFStringRef name = client->getStringRef();
  if (!isRemoteMount(key)) CSharedStorageUtils::makeDir(mountPoint, 0777);
  CSharedStorageSubscribedMap added;
  added.emplace(key, CSharedStorageSubscribedEntry(name, mountPoint->getStringRef(), url->getURLRef(), pid));
  if (added.begin()->second.refCount() == 0) {
    throw plinth::CParamException("CNFSSharedStorageSubscriber::subscribe: client [%@] can't hold a reference", name);
  }
  if (const auto found = subscribed_.find(key); found != subscribed_.end()) {
    found->second.addReference(name, pid);
    return;
  }
  _subscribe(url, mountPoint);
  subscribed_.merge(added);  // needs no memory, so nothing stays mounted without an entry
}

void CNFSSharedStorageSubscriber::unsubscribe(const CURLRef& url, const CStringRef& mountPath, const CStringRef& client,
                                              long pid) {
  const std::string key = mountPointOf(mountPath);
  if (const auto found = subscribed_.find(key); found != subscribed_.end()) {
    if (found->second.deleteReference(client ? client->getStringRef() : nullptr, pid) != 0) return;
    subscribed_.erase(found);
  }
  _unsubscribe(url, CSTR(key));
}

void CNFSSharedStorageSubscriber::processTerminated(long pid) {
  CSharedStorageSubscribedMap left;
  for (auto next = subscribed_.begin(); next != subscribed_.end();) {
    const auto entry = next++;
    if (entry->second.refCount() != 0) entry->second.deleteReferences(pid);
    if (entry->second.refCount() == 0) left.insert(subscribed_.extract(entry));
  }
  unmountAll(left);
}

CSharedStorageSubscribedMap CNFSSharedStorageSubscriber::getSubscribedMap() const { return subscribed_; }

void CNFSSharedStorageSubscriber::cleanMounts() {
  CSharedStorageSubscribedMap all;
  all.swap(subscribed_);
  unmountAll(all);
}

void CNFSSharedStorageSubscriber::startNFSDaemons() const {}

// From the last to the first: a path comes after the folders it lies in.
void CNFSSharedStorageSubscriber::unmountAll(const CSharedStorageSubscribedMap& entries) {
  std::exception_ptr first;
  for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry) {
    try {
      _unsubscribe(exportURLOf(entry->second), CSTR(entry->first));
    } catch (const plinth::CException& exception) {
      if (first) CFUtil::LogToConsole(exception.what());
      if (!first) first = std::current_exception();
    }
  }
  if (first) std::rethrow_exception(first);
}

void CNFSSharedStorageSubscriber::_subscribe(const CURLRef& url, const CStringRef& mountPath) {
  const MountSource source = mountSourceOf(url);
  const std::string remote = source.host + ":" + source.path;
  const std::string mountPoint = mountPointArgument(mountPointOf(mountPath));
  const MountCommandEnd end = runMountCommand(kMount, {"-o", source.options, remote, mountPoint});
  require(end, "_subscribe", std::string(kMount) + " " + remote);
}

void CNFSSharedStorageSubscriber::_unsubscribe(const CURLRef& /*url*/, const CStringRef& mountPath) {
  const std::string mountPoint = mountPointOf(mountPath);
  const MountCommandEnd end = runMountCommand(kUmount, {"-f", mountPointArgument(mountPoint)});
  require(end, "_unsubscribe", std::string(kUmount) + " " + mountPoint);
}

}  // namespace tovan
