#include <tovan/shared_storage_entries.h>

#include "storage/client_table.h"
#include "storage/file_system_path.h"

namespace tovan {

using plinth::CString;

namespace {

ClientTable tableOf(ClientTable::Table& clients) { return {clients, "CSharedStoragePublishedEntry"}; }

}  // namespace

CSharedStoragePublishedEntry::CSharedStoragePublishedEntry(CFStringRef client, CFStringRef path, long pid)
    : path_(path != nullptr ? plinth::makeShared<CString>(path) : nullptr) {
  resetClients();
  addReference(client, pid);
}

CSharedStoragePublishedEntry::CSharedStoragePublishedEntry(const CSharedStoragePublishedEntry& other)
    : CSharedObject(other),
      path_(other.path_),
      clients_(ClientTable::copyWhole(other.clients_)),
      nodeHosts_(other.nodeHosts_) {}

CSharedStoragePublishedEntry& CSharedStoragePublishedEntry::operator=(const CSharedStoragePublishedEntry& other) {
  path_ = other.path_;
  clients_ = ClientTable::copyWhole(other.clients_);
  nodeHosts_ = other.nodeHosts_;
  return *this;
}

CSharedStoragePublishedEntry::~CSharedStoragePublishedEntry() = default;

void CSharedStoragePublishedEntry::resetClients() { tableOf(clients_).reset(); }

std::int32_t CSharedStoragePublishedEntry::addReference(CFStringRef client, long pid) {
  return tableOf(clients_).addReference(client, pid);
}

std::int32_t CSharedStoragePublishedEntry::deleteReference(CFStringRef client, long pid) {
  return tableOf(clients_).deleteReference(client, pid);
}

void CSharedStoragePublishedEntry::deleteReferences(long /*pid*/) { tableOf(clients_).deleteReferences(); }

std::int32_t CSharedStoragePublishedEntry::refCount() const { return ClientTable::liveCount(clients_); }

std::int32_t CSharedStoragePublishedEntry::returnedRefTicks() const { return ClientTable::returnedTicks(clients_); }

CFMutableDictionaryRef CSharedStoragePublishedEntry::copyClients() const { return ClientTable::copyClients(clients_); }

CFStringRef CSharedStoragePublishedEntry::path() const noexcept { return path_ ? path_->getStringRef() : nullptr; }

const char* CSharedStoragePublishedEntry::pathFileSystemRep() const { return fileSystemRepresentation(path_); }

CFDictionaryRef CSharedStoragePublishedEntry::nodeHosts() const noexcept { return nodeHosts_.get(); }

void CSharedStoragePublishedEntry::addNodeHosts(CFDictionaryRef /*nodeHosts*/) {}

}  // namespace tovan
