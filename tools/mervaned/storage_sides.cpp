#include "tools/mervaned/storage_sides.h"

#include <fcntl.h>
#include <plinth/exception.h>
#include <sys/stat.h>
#include <tovan/shared_storage_exception.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>
#include <utility>

#include "tools/exports/library_lines.h"
#include "tools/support/process_log.h"

namespace mervaned {

using plinth::CStringRef;
using plinth::CURLRef;

namespace {

std::string textOf(const CStringRef& string) { return string ? string->str() : ""; }

// For people: without its query, which is the port at most.
std::string textOf(const CURLRef& url) {
  const std::string whole = url ? textOf(url->getString(false)) : "";
  return whole.substr(0, whole.find('?'));
}

std::string pathOf(const CURLRef& url) { return url ? textOf(url->getFileSystemPath()) : ""; }

// As the library counts mount points.
std::string mountPointOf(const CStringRef& mountPath) {
  std::string path = textOf(mountPath);
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

[[noreturn]] void refuse(const std::string& text) {
  throw tovan::ISharedStorageException(tovan::kSharedStorageExceptionExchange, tovan::kSharedStorageNotDone,
                                       text.c_str());
}

// Neither the record nor a listing could say such a path, and no line of the log should.
void checkMountPoint(const std::string& mountPoint) {
  const auto isControl = [](char character) {
    const auto byte = static_cast<unsigned char>(character);
    return byte < 0x20 || byte == 0x7F;
  };
  const auto found = std::find_if(mountPoint.begin(), mountPoint.end(), isControl);
  if (found == mountPoint.end()) return;
  std::string shown = mountPoint;
  std::replace_if(shown.begin(), shown.end(), isControl, '?');
  refuse("the mount point [" + shown + "] holds a control character, number " +
         std::to_string(static_cast<unsigned char>(*found)) + ", at byte " +
         std::to_string(found - mountPoint.begin() + 1));
}

std::string makeEmptyFile(const std::string& path) {
  std::error_code failed;
  std::filesystem::create_directories(std::filesystem::path(path).parent_path(), failed);
  if (failed) return failed.message();
  const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0644);
  if (file >= 0) {
    ::fchmod(file, 0644);  // whatever the mask is: the server's side takes no file that others may write
    ::close(file);
  }
  return file >= 0 || errno == EEXIST ? "" : std::strerror(errno);
}

}  // namespace

Publisher::Publisher(std::string exportsFile, StorageWatch& watch)
    : exportsFile_(std::move(exportsFile)), watch_(watch) {
  setExportsFilePath(plinth::CSTR(exportsFile_));
  setAllLinesAreOurs(true);
  const std::string failure = makeEmptyFile(exportsFile_);
  const std::string reason = failure.empty() ? problem() : exportsFile_ + ": " + failure;
  if (!reason.empty()) tools::report(tools::kLogFailure, "nothing can be published: " + reason);
}

OSStatus Publisher::publish(const CURLRef& url, const CStringRef& client, long pid) {
  const StorageActivity::Scope scope(watch_.activity, "publishing " + pathOf(url));
  const OSStatus status = CNFSSharedStoragePublisher::publish(url, client, pid);
  watch_.holders.note(static_cast<std::int32_t>(pid));
  tools::logRecord(tools::kLogDetail, "published " + pathOf(url) + " for " + textOf(client) + ", process " +
                                          std::to_string(static_cast<std::int32_t>(pid)));
  return status;
}

void Publisher::unpublish(const CURLRef& url, const CStringRef& client, long pid) {
  const StorageActivity::Scope scope(watch_.activity, "unpublishing " + pathOf(url));
  CNFSSharedStoragePublisher::unpublish(url, client, pid);
}

std::string Publisher::problem() const {
  const std::string folder = std::filesystem::path(exportsFile_).parent_path().string();
  if (::access(folder.c_str(), W_OK | X_OK) != 0) return folder + ": " + std::strerror(errno);
  if (::access(exportsFile_.c_str(), R_OK | W_OK) != 0 && errno != ENOENT) {
    return exportsFile_ + ": " + std::strerror(errno);
  }
  try {
    std::vector<CStringRef> lines;
    readExportFile(lines);
    return {};
  } catch (const plinth::CException& exception) {
    return exception.what();
  }
}

std::vector<std::string> Publisher::listedFolders() const {
  if (!std::filesystem::is_regular_file(exportsFile_)) return {};
  std::ifstream file(exportsFile_, std::ios::binary);
  const std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  std::vector<std::string> folders;
  for (const exports::LibraryFolder& folder : exports::readLibraryLines(text).folders) folders.push_back(folder.path);
  return folders;
}

void Subscriber::subscribe(const CURLRef& url, const CStringRef& mountPath, const CStringRef& client, long pid) {
  checkMountPoint(mountPointOf(mountPath));
  const StorageActivity::Scope scope(watch_.activity, "mounting " + textOf(url) + " on " + mountPointOf(mountPath));
  CNFSSharedStorageSubscriber::subscribe(url, mountPath, client, pid);
  watch_.holders.note(static_cast<std::int32_t>(pid));
}

// Whether it is there already, from an earlier run.
bool Subscriber::takesOver(const std::string& url, const std::string& mountPoint) const {
  const std::map<std::string, std::string> mounts = leftOvers();
  const auto there = mounts.find(mountPoint);
  if (there == mounts.end()) return false;
  if (there->second == url) return true;
  refuse("[" + mountPoint + "] has [" + there->second + "] mounted from an earlier run");
}

// Whether the table has it now, and had not before. What it looks like is what it will be known by.
bool Subscriber::noteWhenNew(const std::string& mountPoint, RecordedMount mount, const MountTable& before) {
  const MountTable table = mountTable();
  const auto now = table.find(mount.listedPath);
  if (now == table.end()) return false;
  const auto earlier = before.find(mount.listedPath);
  if (earlier != before.end() && earlier->second.id == now->second.id) return false;
  mount.type = now->second.type;
  mount.source = now->second.source;
  record_.put(mountPoint, mount);
  return true;
}

void Subscriber::_subscribe(const CURLRef& url, const CStringRef& mountPath) {
  if (watch_.gate != Gate::open) refuse("the daemon is about to end");
  const std::string mountPoint = mountPointOf(mountPath);
  const std::string remote = url ? textOf(url->getString()) : "";
  if (takesOver(remote, mountPoint)) {
    return tools::report(tools::kLogUsual, textOf(url) + " is mounted on " + mountPoint + " already: taken over");
  }
  const MountTable before = mountTable();
  const RecordedMount mount{remote, listedPath(before, mountPoint), "", ""};
  record_.put(mountPoint, mount);
  try {
    CNFSSharedStorageSubscriber::_subscribe(url, mountPath);
  } catch (...) {
    if (noteWhenNew(mountPoint, mount, before)) {
      tools::report(tools::kLogWarning, textOf(url) + " is mounted on " + mountPoint + ", although mounting it failed");
    } else {
      record_.remove(mountPoint);
    }
    throw;
  }
  noteWhenNew(mountPoint, mount, before);
  tools::report(tools::kLogUsual, "mounted " + textOf(url) + " on " + mountPoint);
}

void Subscriber::_unsubscribe(const CURLRef& url, const CStringRef& mountPath) {
  const std::string mountPoint = mountPointOf(mountPath);
  const StorageActivity::Scope scope(watch_.activity, "unmounting " + mountPoint);
  if (watch_.gate == Gate::closed) refuse("the daemon is about to end");
  CNFSSharedStorageSubscriber::_unsubscribe(url, mountPath);
  record_.remove(mountPoint);
  tools::report(tools::kLogUsual, "unmounted " + mountPoint);
}

std::map<std::string, std::string> Subscriber::leftOvers() const {
  std::map<std::string, std::string> mounts;
  const MountTable table = mountTable();
  const tovan::CSharedStorageSubscribedMap held = getSubscribedMap();
  for (const auto& [mountPoint, mount] : record_.mounts()) {
    if (held.count(mountPoint) == 0 && isThere(mount, table)) mounts.emplace(mountPoint, mount.url);
  }
  return mounts;
}

bool Subscriber::isMounted(const MountTable& table, const std::string& mountPoint) const {
  const auto recorded = record_.mounts().find(mountPoint);
  return table.count(recorded == record_.mounts().end() ? mountPoint : recorded->second.listedPath) != 0;
}

}  // namespace mervaned
