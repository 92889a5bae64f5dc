// shared_storage_entries.h: who uses a published folder, and who a mounted one.
//
// An entry counts references, for each client by name and, within a client, for each process. It is made with its first
// reference; the owner of the map it stands in erases it when deleteReference gives 0, and only then takes down the
// export or the mount.
//
// A client that does not know which of its processes gives a reference back says -1. When all of the client's
// references are of one process, one of them goes; when they are mixed, none does, and a tick is counted instead. The
// live count is the references added and not removed, less the ticks; it is never negative. When the ticks have eaten
// up all references the table starts afresh.
//
// Process ids are kept as 32-bit integers, the upper half of a longer one is dropped. A reference is refused (with one
// console line) to a null client and to the names "_totalRefCount" and "_returnedRefTicks", under which the counters
// lie.
//
// Nothing here throws but for want of memory; what goes wrong is one console line, and leaves the entry as it was. An
// entry is a value: a copy has a table of its own. Entries are not locked: an entry belongs to one thread at a time.
#pragma once

#include <tovan/export.h>

#include <plinth/shared_cf_ref.h>
#include <plinth/shared_object.h>
#include <plinth/string.h>

#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFString.h>
#include <CoreFoundation/CFURL.h>

#include <cstdint>
#include <map>
#include <string>

namespace tovan {

// A folder of this host that is published to others.
class TOVAN_EXPORT CSharedStoragePublishedEntry : public plinth::CSharedObject {
 public:
  // With one reference of that client and process.
  CSharedStoragePublishedEntry(CFStringRef client, CFStringRef path, long pid);
  CSharedStoragePublishedEntry(const CSharedStoragePublishedEntry& other);
  CSharedStoragePublishedEntry& operator=(const CSharedStoragePublishedEntry& other);
  ~CSharedStoragePublishedEntry() override;

  // Forgets all references and ticks.
  void resetClients();
  // The number of references added and not removed, this one included.
  std::int32_t addReference(CFStringRef client, long pid);
  // Gives one reference back, of any process when `pid` is -1. The live count after it; unchanged, with a console line,
  // when the client or that process of it holds none.
  std::int32_t deleteReference(CFStringRef client, long pid);
  // Takes away what a process holds, but only from an entry without clients; one that has any is left alone, on
  // purpose.
  void deleteReferences(long pid);
  // The live count.
  std::int32_t refCount() const;
  // How many references were given back without a process to take them from.
  std::int32_t returnedRefTicks() const;
  // The process ids (an array of integers, one for each reference) by client. The caller owns the copy, arrays
  // included.
  CFMutableDictionaryRef copyClients() const;

  // Belongs to the entry; null when it was made with null.
  CFStringRef path() const noexcept;
  // The path's bytes as the file system takes them, valid as long as the entry; null when there is no path or it holds
  // what no path can (U+0000, half a surrogate pair).
  const char* pathFileSystemRep() const;
  // Null: nothing fills it.
  CFDictionaryRef nodeHosts() const noexcept;
  // Does nothing, on purpose.
  void addNodeHosts(CFDictionaryRef nodeHosts);

 private:
  plinth::CStringRef path_;
  plinth::CSharedCFRef<CFMutableDictionaryRef> clients_;
  plinth::CSharedCFRef<CFDictionaryRef> nodeHosts_;
};

// A folder of this host on which another host's storage is mounted.
class TOVAN_EXPORT CSharedStorageSubscribedEntry : public plinth::CSharedObject {
 public:
  // With one reference of that client and process. The URL, which may be null, is the remote storage.
  CSharedStorageSubscribedEntry(CFStringRef client, CFStringRef mountPath, CFURLRef exportURL, long pid);
  CSharedStorageSubscribedEntry(const CSharedStorageSubscribedEntry& other);
  CSharedStorageSubscribedEntry& operator=(const CSharedStorageSubscribedEntry& other);
  ~CSharedStorageSubscribedEntry() override;

  // These are as in CSharedStoragePublishedEntry.
  void resetClients();
  std::int32_t addReference(CFStringRef client, long pid);
  std::int32_t deleteReference(CFStringRef client, long pid);
  void deleteReferences(long pid);
  std::int32_t refCount() const;
  std::int32_t returnedRefTicks() const;
  CFMutableDictionaryRef copyClients() const;

  // These belong to the entry; null when it was made with null.
  CFStringRef mountPath() const noexcept;
  CFURLRef exportURL() const noexcept;
  // As CSharedStoragePublishedEntry::pathFileSystemRep.
  const char* mountPathFileSystemRep() const;

  // Resolves the mount path, symbolic links and relative parts, as it is now. A path that cannot be resolved is a
  // console line, and leaves what was there before.
  void normalizeMountPath();
  // What normalizeMountPath() found, valid until it is called again; null before.
  const char* normalizedMountPathFileSystemRep() const;

 private:
  plinth::CStringRef mountPath_;
  plinth::CStringRef normalizedMountPath_;
  plinth::CSharedCFRef<CFURLRef> exportURL_;
  plinth::CSharedCFRef<CFMutableDictionaryRef> clients_;
};

// By the folder's file-system bytes, in the order of the bytes.
using CSharedStoragePublishedMap = std::map<std::string, CSharedStoragePublishedEntry>;
// By the mount point's file-system bytes, in the order of the bytes.
using CSharedStorageSubscribedMap = std::map<std::string, CSharedStorageSubscribedEntry>;

}  // namespace tovan
