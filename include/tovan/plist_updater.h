// plist_updater.h: CPListUpdater, one property list in memory together with the path of the XML file it belongs to.
//
// It reads and writes that file, and updates it from a newer version of the same list: only when the newer one carries
// a higher "Version" (or either has none), and by merging, so that entries only the older list has are kept.
//
// The list held is always an immutable copy of what was given, and always one that the XML format can carry. The root
// is a dictionary in every use; a list with another root is read, held and written all the same, has no version, and is
// replaced whole by a merge.
//
// A file is written beside its old content and put in its place when it is complete: a full disk or a kill in mid-write
// leaves the old file (the kill also the hidden ".tovan-PID-NUMBER" beside it), and a reader sees the old list or the
// new one. The file keeps its permissions, a symbolic link is followed, and one that this process may not write is not
// replaced either. Where the folder takes no new files, an existing file is written in place.
//
// Failures are exceptions, listed at each operation; "%s" stands for the path. Those of every operation that takes a
// list: CParamException "Property list not valid xml format" when the XML format cannot carry it.
//
// Reference-counted: make it with new and hand it to a holder, or keep it on the stack and make no holder of it. One
// object is used by one thread at a time. The files are not locked: concurrent writers of one file each put a whole
// list in place, and the last one stays.
#pragma once

#include <tovan/export.h>

#include <plinth/shared_cf_ref.h>
#include <plinth/shared_object.h>
#include <plinth/string.h>

#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFPropertyList.h>

namespace tovan {

class TOVAN_EXPORT CPListUpdater : public plinth::CSharedObject {
 public:
  enum class Reading { atOnce, never };

  // With a path, `refresh()`es, and throws what that throws. Reading::never leaves the file alone: for a caller that
  // replaces its whole content, readable or not.
  explicit CPListUpdater(const plinth::CStringRef& path, Reading reading = Reading::atOnce);
  CPListUpdater(const CPListUpdater&) = delete;
  CPListUpdater& operator=(const CPListUpdater&) = delete;
  ~CPListUpdater() override;

  // The list becomes what the file holds, or none when there is no file. Throws as readFile() does; the list then stays
  // what it was.
  void refresh();

  // May be empty.
  const plinth::CStringRef& filePath() const noexcept { return filePath_; }
  // Owned by this object until its list is next changed; null when there is none.
  CFPropertyListRef plistData() const noexcept { return plistData_.get(); }
  // Drops the current list, then holds a copy of the given one (null: none). A failure leaves the object without a
  // list.
  void setPListData(CFPropertyListRef list);

  // Merges a newer version of the list, given as XML text, and writes the file; whether it did. CNullPointerException
  // "Error: plistString is null!" for an empty holder and "Error: xmlData is null!" for the empty text; CParamException
  // "Couldn't create property list from xml data, error = REASON" for one that is no property list. Also throws as
  // below.
  bool updateIfNeeded(const plinth::CStringRef& xml);
  // The same from a list. CNullPointerException "Error: plistData is null!" for null. Also throws as writeFile() does;
  // the list in memory is the merged one then.
  bool updateIfNeeded(CFPropertyListRef list);
  // Whether a list is newer than the current one: the "Version" string of either is missing, or the current one is
  // lower, compared as a version number (1.10 is higher than 1.9).
  bool needMerge(CFPropertyListRef list) const;
  // Merges a list over the current one in memory. CNullPointerException "Error: plistData is null!" for null.
  void merge(CFPropertyListRef list);
  // Merges source into target, entry by entry. A key that target lacks, or has with a value of another type, takes
  // source's value; dictionaries are merged in turn; any other value that differs is replaced, unless previous holds a
  // value of the same type equal to target's. Keys that only target has are kept.
  void merge(CFMutableDictionaryRef target, CFDictionaryRef previous, CFDictionaryRef source) const;

  // CNullPointerException "Error: filePath is null!" for an empty path, in both. CParamException
  // "Couldn't open read stream from file %s, error = ERRNO" and "Couldn't read property list from file %s, error =
  // REASON".
  plinth::CSharedCFRef<CFPropertyListRef> readFile(const plinth::CStringRef& path) const;
  // The folder must be there. CParamException "Couldn't open write stream to file %s, error = ERRNO" and "Couldn't
  // write property list to file %s, error = REASON".
  void writeFile(const plinth::CStringRef& path, CFPropertyListRef list) const;
  // Writes the list to the file and gives true. CNullPointerException "Error: _plistData is null!" without a list; also
  // throws as writeFile() does.
  bool flush() const;

  // Whether anything, file or folder, can be examined at the path.
  bool isFilePresent(const plinth::CStringRef& path) const;
  bool fileExists() const;
  // The same for the folder part of the path.
  bool parentDirExists() const;
  // Creates the folder part of the path, that one level only, with exactly the given permissions. CParamException
  // "mkdir(%s) failed, error = REASON" with the folder's path.
  void makeParentDir(unsigned int mode);
  // The same when the folder is missing; whether it was.
  bool makeParentDirIfNeeded(unsigned int mode);

 private:
  plinth::CStringRef filePath_;
  plinth::CSharedCFRef<CFPropertyListRef> plistData_;
};

using CPListUpdaterRef = plinth::CSharedObjectRef<CPListUpdater>;

}  // namespace tovan
