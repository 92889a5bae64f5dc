// property_list_basic_file.h: CPropertyListBasicFile, one XML property-list file under a whole-file lock. It is the
// base of every configuration and state file of the library.
//
// The file's root is a dictionary. Its key "Version" holds the version of the file; every other root key is a section
// that belongs to one derived class. A file object reads the file whole under a shared lock, writes it whole under an
// exclusive lock, and lets its owner hold either lock over several operations:
//
//   CServicePIDFile file(kind);  // reads the file
//   file.lockForRW();            // nobody else reads or writes from here on
//   file.refresh();
//   file.setProcessAttributes(pid, attributes);
//   file.flush();
//   file.unlock();
//
// Not so the classes whose refresh() leaves just their section as the document (CTovanConfigFile, CServiceConfigFile,
// CServiceCacheFile, CHostPerfScoreFile): while the lock is held their flush() writes that section as the whole file,
// and every other section is lost. Let their flush() take the lock, which then reads the file afresh, or follow their
// refresh() with CPropertyListBasicFile::refresh(), which puts the whole file back as the document.
//
// refresh(), fromPropertyList(), toPropertyList() and flush() are ordinary functions, which a derived class redefines
// under the same names: call them on an object of its own class, not through a base reference.
//
// The lock is flock's: advisory, on the whole file, taken with the opening of the file and given back by closing it.
// Every acquisition waits as long as it takes. Descriptors never reach a child program. The file is rewritten in place,
// since a renamed file would leave other processes locking one that is no longer at the path. A write serialises first
// and reserves its space where the file system can, so that a full disk, a quota or a file-size limit is an error that
// leaves every byte as it was. A process that is killed between a write and its truncation leaves the new document with
// a tail of the old one behind it, which the reader ignores.
//
// Process exit waits for a write that has begun; one that has not begun by then is never made, and its thread sleeps
// until the process is gone.
//
// Failures are plinth::CException with code 4 for a failed system call and 255 for a list that cannot be read or
// written. Their texts begin with the class and function, the process id in brackets and the path in parentheses.
// Failed reads and writes are also written to the console. A failed read leaves the document in memory as it was, and
// refuses every write of this object until a read succeeds, so that a file that cannot be understood is never
// overwritten.
//
// Threads: one object is used by one thread at a time. Objects of several threads and processes exclude one another
// through the lock alone.
#pragma once

#include <plinth/shared_cf_ref.h>
#include <plinth/shared_object.h>
#include <tovan/export.h>

#include <CoreFoundation/CFData.h>
#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFString.h>

#include <cstdint>
#include <functional>

namespace tovan {

class TOVAN_EXPORT CPropertyListBasicFile {
 public:
  class COpenFile;
  class CFileLockMonitor;

  // How a file is opened, and so locked. The numbers are part of the interface.
  enum OpenMode : std::int32_t {
    kOpenForRead = 1,  // shared lock
    kOpenForRW = 2,    // exclusive lock; the file is created, with permissions 0600, when it is missing
    kOpenAdopted = 99  // a descriptor that was open already
  };

  // Reads the file; no lock is held afterwards. The path is absolute, a "~" already expanded. A missing or empty file
  // reads as an empty dictionary, and reading creates nothing.
  explicit CPropertyListBasicFile(CFStringRef path);
  // With kOpenForRead or kOpenForRW the lock is taken first and kept (a missing file cannot be locked for reading: then
  // none is held). Any other mode takes no lock.
  CPropertyListBasicFile(CFStringRef path, std::int32_t lockMode);
  CPropertyListBasicFile(const CPropertyListBasicFile&) = delete;
  CPropertyListBasicFile& operator=(const CPropertyListBasicFile&) = delete;
  // Gives back the lock, if one is held.
  virtual ~CPropertyListBasicFile();

  // Reads the file into the document. True; a failure throws.
  bool refresh();
  // Reads the file, through the held lock or under a shared lock of its own, and leaves the document alone.
  //
  // Throws: the file cannot be opened or read (4); its bytes are no property list, or one whose root is no dictionary
  // (255, with the parser's reason, line and column).
  plinth::CSharedCFRef<CFDictionaryRef> readPropertyList() const;
  // The document becomes a mutable copy of the list, the version its "Version", or "1.0" when that is no string.
  // Throws (4) for null.
  void fromPropertyList(CFDictionaryRef list);
  // The document.
  plinth::CSharedCFRef<CFDictionaryRef> toPropertyList() const;
  // Writes the document as it stands.
  void flush() const;
  // Writes a list as the whole file, through the held lock or under an exclusive lock of its own. A held shared lock
  // cannot write: "can't write file".
  //
  // Throws: the last read failed (255); the list cannot be written as XML (255); the file cannot be opened, has no room
  // or cannot be written or truncated (4). Up to the first byte of the write itself, the file is unchanged.
  void writePropertyList(CFDictionaryRef list) const;

  // Take the lock and hold it. False when a lock is held already (there is no upgrade from shared to exclusive) and,
  // for reading, when the file is missing. Throw (4) when the file cannot be opened.
  bool lockForRead() const;
  bool lockForRW() const;
  // Gives the lock back: it goes when nobody else holds a reference to the open file. False when none is held.
  bool unlock() const;
  // The held lock, or an empty holder.
  plinth::CSharedObjectRef<COpenFile> fileLock() const;

  // Both belong to this object.
  CFStringRef filePath() const noexcept;
  CFStringRef fileVersion() const noexcept;
  // Stores the version, in the document too; null removes it from the document.
  void setFileVersion(CFStringRef version);

 protected:
  // What the flush of a derived class is made of. Without a held lock: takes the exclusive lock, reads the file afresh,
  // lets `change` set its section in a copy of that, writes the copy and gives the lock back; all other sections are
  // those of the file. With a held lock: the same on a copy of the document in memory, which is not read again. The
  // document in memory stays as it is.
  void flushSection(const std::function<void(CFMutableDictionaryRef document)>& change) const;

 private:
  plinth::CSharedCFRef<CFDictionaryRef> readLocked(const COpenFile& file) const;
  void writeLocked(const COpenFile& file, CFDataRef data) const;

  plinth::CSharedCFRef<CFStringRef> filePath_;
  mutable bool lastRefreshFailed_ = false;
  mutable plinth::CSharedObjectRef<COpenFile> fileLock_;
  plinth::CSharedCFRef<CFStringRef> fileVersion_;
  plinth::CSharedCFRef<CFMutableDictionaryRef> document_;
};

// An open file, which is the same thing as its lock: the lock lasts until the last reference goes or close() is called.
class TOVAN_EXPORT CPropertyListBasicFile::COpenFile : public plinth::CSharedObject {
 public:
  // Opens, and so waits for the lock. Throws as open() does.
  COpenFile(CFStringRef path, std::int32_t mode);
  // Adopts an open descriptor.
  explicit COpenFile(std::int32_t descriptor);
  COpenFile(const COpenFile&) = delete;
  COpenFile& operator=(const COpenFile&) = delete;
  ~COpenFile() override;

  // Opens the file and takes the lock of its mode. False when it is open already and, for reading, when the file is
  // missing. Every other failure throws (4), and so does a mode that is neither of the two.
  //
  // A missing parent folder is an error, with one exception: the library's own folder,
  // "~/Library/Application Support/Lumisphere", is made (0700, with the folders above it up to the home folder) when a
  // file in it is opened for writing for the first time.
  bool open();
  // False when it is not open.
  bool close();

  CFStringRef path() const noexcept { return path_.get(); }  // null for an adopted descriptor
  std::int32_t openMode() const noexcept { return mode_; }
  std::int32_t descriptor() const noexcept { return descriptor_; }  // -1 while not open
  std::int32_t lastError() const noexcept { return lastError_; }    // errno of the last open, 0 when it succeeded

 private:
  plinth::CSharedCFRef<CFStringRef> path_;
  std::int32_t mode_;
  std::int32_t descriptor_ = -1;
  std::int32_t lastError_ = 0;
};

// A scope guard: gives the file's lock back when it goes, if one is held then. It does not own the file, which must
// outlive it. An exception inside its destructor ends the process.
class TOVAN_EXPORT CPropertyListBasicFile::CFileLockMonitor : public plinth::CSharedObject {
 public:
  explicit CFileLockMonitor(const CPropertyListBasicFile* file) noexcept : file_(file) {}
  CFileLockMonitor(const CFileLockMonitor&) = delete;
  CFileLockMonitor& operator=(const CFileLockMonitor&) = delete;
  ~CFileLockMonitor() override;

 private:
  const CPropertyListBasicFile* file_;
};

}  // namespace tovan
