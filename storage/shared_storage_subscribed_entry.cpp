#include <tovan/shared_storage_entries.h>

#include "storage/client_table.h"
#include "storage/file_system_path.h"

#include <tovan/cf_util.h>
#include <tovan/shared_storage_exception.h>

namespace tovan {

using plinth::CSharedCFRef;
using plinth::CString;

namespace {

ClientTable tableOf(ClientTable::Table& clients) { return {clients, "CSharedStorageSubscribedEntry"}; }

}  // namespace

CSharedStorageSubscribedEntry::CSharedStorageSubscribedEntry(CFStringRef client, CFStringRef mountPath,
                                                             CFURLRef exportURL, long pid)
    : mountPath_(mountPath != nullptr ? plinth::makeShared<CString>(mountPath) : nullptr),
      exportURL_(CSharedCFRef<CFURLRef>::retaining(exportURL)) {
  resetClients();
  addReference(client, pid);
}

CSharedStorageSubscribedEntry::CSharedStorageSubscribedEntry(const CSharedStorageSubscribedEntry& other)
    : CSharedObject(other),
      mountPath_(other.mountPath_),
      normalizedMountPath_(other.normalizedMountPath_),
      exportURL_(other.exportURL_),
      clients_(ClientTable::copyWhole(other.clients_)) {}

CSharedStorageSubscribedEntry& CSharedStorageSubscribedEntry::operator=(const CSharedStorageSubscribedEntry& other) {
  mountPath_ = other.mountPath_;
  normalizedMountPath_ = other.normalizedMountPath_;
  exportURL_ = other.exportURL_;
  clients_ = ClientTable::copyWhole(other.clients_);
  return *this;
}

CSharedStorageSubscribedEntry::~CSharedStorageSubscribedEntry() = default;

void CSharedStorageSubscribedEntry::resetClients() { tableOf(clients_).reset(); }

std::int32_t CSharedStorageSubscribedEntry::addReference(CFStringRef client, long pid) {
  return tableOf(clients_).addReference(client, pid);
}

std::int32_t CSharedStorageSubscribedEntry::deleteReference(CFStringRef client, long pid) {
  return tableOf(clients_).deleteReference(client, pid);
}

void CSharedStorageSubscribedEntry::deleteReferences(long /*pid*/) { tableOf(clients_).deleteReferences(); }

std::int32_t CSharedStorageSubscribedEntry::refCount() const { return ClientTable::liveCount(clients_); }

std::int32_t CSharedStorageSubscribedEntry::returnedRefTicks() const { return ClientTable::returnedTicks(clients_); }

CFMutableDictionaryRef CSharedStorageSubscribedEntry::copyClients() const { return ClientTable::copyClients(clients_); }

CFStringRef CSharedStorageSubscribedEntry::mountPath() const noexcept {
  return mountPath_ ? mountPath_->getStringRef() : nullptr;
}

CFURLRef CSharedStorageSubscribedEntry::exportURL() const noexcept { return exportURL_.get(); }

const char* CSharedStorageSubscribedEntry::mountPathFileSystemRep() const {
  return fileSystemRepresentation(mountPath_);
}

void CSharedStorageSubscribedEntry::normalizeMountPath() {
  try {
    normalizedMountPath_ = resolvedPath(mountPath_);
  } catch (const ISharedStorageException& exception) {
    CFUtil::LogToConsole(exception.what());
  }
}

const char* CSharedStorageSubscribedEntry::normalizedMountPathFileSystemRep() const {
  return normalizedMountPath_ ? normalizedMountPath_->getUTF8Ptr() : nullptr;
}

}  // namespace tovan
