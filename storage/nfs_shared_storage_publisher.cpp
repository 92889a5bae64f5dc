#include <tovan/nfs_shared_storage_publisher.h>

#include <tovan/shared_storage_exception.h>
#include <tovan/shared_storage_utils.h>

#include <plinth/exception.h>

#include <sys/stat.h>

#include <string>
#include <utility>

#include "storage/exports_lines.h"
#include "storage/local_url.h"
#include "storage/nfs_publisher_change.h"
#include "storage/path_bytes.h"
#include "storage/storage_failure.h"
#include "storage/storage_names.h"

namespace tovan {

using plinth::CNullPointerException;
using plinth::CSTR;
using plinth::CString;
using plinth::CStringRef;
using plinth::CURLRef;

namespace {

constexpr mode_t kFolderMode = 0777;
constexpr OSStatus kDone = 0;

CStringRef localPathOf(const CURLRef& url) {
  if (url.isNull()) throw CNullPointerException("Error: url is null!");
  CStringRef path = namesLocalFile(url) ? url->getFileSystemPath() : nullptr;
  if (pathBytes(path).empty()) {
    throwStorageFailure(kSharedStorageExceptionStorage, kSharedStorageNotFound, "Non-existent path = [%@]",
                        url->getString());
  }
  return path;
}

void requireClient(const CStringRef& client) {
  if (client.isNull()) throw CNullPointerException("Error: client is null!");
}

void refuseUnlistable(const CStringRef& path) {
  const std::string reason = reasonAgainstListing(pathBytes(path));
  if (reason.empty()) return;
  throwStorageFailure(kSharedStorageExceptionStorage, kSharedStorageNotSupported, "%@",
                      CString::sprintf("Path [%@] can't be published: %s",
                                       CString::nullToEmptyString(path)->getStringRef(), reason.c_str()));
}

void refuseExFAT(const CURLRef& url, const CStringRef& path) {
  if (!CSharedStorageUtils::isExFATBasedPath(path)) return;
  const bool isSubexport = url->getLastPathComponent() == CSTR(kSubexportFolderName);
  const CURLRef folder = isSubexport ? url->copyWithoutLastPathComponent() : url;
  const CStringRef format = ISharedStorage::localizedStringForKey(CSTR("ExFATExportNotSupported"));
  throwStorageFailure(kSharedStorageExceptionStorage, kSharedStorageNotSupported, "%@",
                      CString::sprintf(format->getStringRef(), folder->getFileSystemPath()->getStringRef()));
}

// The first reference counts unless the client has a counter's name.
CSharedStoragePublishedEntry newEntry(const CStringRef& client, const CStringRef& path, long pid) {
  CSharedStoragePublishedEntry entry(client->getStringRef(), path->getStringRef(), pid);
  if (entry.refCount() == 0) {
    throw plinth::CParamException("Client [%s] can't hold a reference", client->getUTF8Ptr());
  }
  return entry;
}

}  // namespace

CNFSSharedStoragePublisher::CNFSSharedStoragePublisher() : exportsFilePath_(CSTR("/etc/exports")) {}

CNFSSharedStoragePublisher::~CNFSSharedStoragePublisher() = default;

OSStatus CNFSSharedStoragePublisher::publish(const CURLRef& url, const CStringRef& client, long pid) {
  const CStringRef path = localPathOf(url);
  requireClient(client);
  refuseUnlistable(path);
  Change known = readNow();
  const CSharedStoragePublishedEntry entry = newEntry(client, path, pid);
  const std::string key = entry.pathFileSystemRep();
  const auto found = publishedMap_.find(key);
  if (found != publishedMap_.end()) {
    if (lineOf(known.lines, path) >= 0) {
      found->second.addReference(client->getStringRef(), pid);
      return kDone;
    }
    publishedMap_.erase(found);
  }
  CSharedStorageUtils::makeDir(path, kFolderMode);
  CSharedStorageUtils::addSharedInfoFile(url, client);
  refuseExFAT(url, path);
  listFolder(std::move(known), path);
  publishedMap_.emplace(key, entry);
  return kDone;
}

void CNFSSharedStoragePublisher::unpublish(const CURLRef& url, const CStringRef& client, long pid) {
  const CStringRef path = localPathOf(url);
  requireClient(client);
  Change known = readNow();
  const bool hasLine = lineOf(known.lines, path) >= 0;
  const std::string key = pathBytes(path);
  auto found = publishedMap_.find(key);
  if (found == publishedMap_.end()) {
    if (!hasLine) {
      throwStorageFailure(kSharedStorageExceptionStorage, kSharedStorageNotFound,
                          "entry [%@] not present in publishedMap", path);
    }
    // Left over from an earlier run: the reference that is given back now.
    found = publishedMap_.emplace(key, newEntry(client, path, pid)).first;
  }
  if (found->second.deleteReference(client->getStringRef(), pid) != 0) return;
  publishedMap_.erase(found);
  if (hasLine) change(std::move(known), [this, &path](const ExportsLines& present) { _unpublish(path, present); });
}

std::int32_t CNFSSharedStoragePublisher::getServerPort() { return -1; }

void CNFSSharedStoragePublisher::processTerminated(long pid) {
  ExportsLines paths;
  for (auto next = publishedMap_.begin(); next != publishedMap_.end();) {
    CSharedStoragePublishedEntry& entry = next->second;
    if (entry.refCount() != 0) entry.deleteReferences(pid);
    if (entry.refCount() != 0) {
      ++next;
      continue;
    }
    paths.push_back(CSTR(next->first));
    next = publishedMap_.erase(next);
  }
  if (!paths.empty()) change(readNow(), [this, &paths](const ExportsLines& present) { _unpublish(paths, present); });
}

CSharedStoragePublishedMap CNFSSharedStoragePublisher::getPublishedMap() const { return publishedMap_; }

void CNFSSharedStoragePublisher::_publish(const CStringRef& path, const ExportsLines& lines) {
  refuseUnlistable(path);
  if (lineOf(lines, path) >= 0) return;
  ExportsLines more = lines;
  // An empty line ends an entry that would go on in the path's line.
  if (!more.empty() && goesOn(*more.back())) more.push_back(plinth::makeShared<CString>());
  more.push_back(escapedFilePath(path));
  writeExportFile(more);
}

void CNFSSharedStoragePublisher::_unpublish(const CStringRef& path, const ExportsLines& lines) {
  _unpublish(ExportsLines{path}, lines);
}

void CNFSSharedStoragePublisher::_unpublish(const ExportsLines& paths, const ExportsLines& lines) {
  ExportsLines rest = lines;
  bool isLess = false;
  for (const CStringRef& path : paths) isLess = removeLine(rest, path) || isLess;
  if (isLess) writeExportFile(rest);
}

}  // namespace tovan
