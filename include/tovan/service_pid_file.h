// service_pid_file.h: CServicePIDFile, which processes run for a daemon, a service or a client, and what each of them
// is.
//
// The file ("~/Library/Application Support/Lumisphere/LumispherePID.plist") holds an array of process ids under the
// name of each daemon, service or client, and under "attributes" a dictionary by process id (in decimal digits) of
// "Kind", "Name" and "Version". One object works on one name.
//
// A process id in the file is a claim, not a process: callers check each one themselves.
//
// Registering and clearing are atomic against other processes; put() replaces its own key only. An owner that holds the
// lock over several calls begins with refresh(), since nothing is read again from then on.
//
// Failures are those of the base class. Threads: one object belongs to one thread at a time.
#pragma once

#include <tovan/property_list_basic_file.h>

#include <CoreFoundation/CFArray.h>

#include <cstdint>
#include <vector>

namespace tovan {

class TOVAN_EXPORT CServicePIDFile : public CPropertyListBasicFile {
 public:
  // Reads the PID file, kTovanPIDFilePath; the list of process ids comes with refresh() or get().
  explicit CServicePIDFile(CFStringRef key);
  // The same on the file at a path; a leading "~/" is expanded.
  CServicePIDFile(CFStringRef key, CFStringRef path);
  ~CServicePIDFile() override;

  // Belongs to this object.
  CFStringRef key() const noexcept { return key_.get(); }

  // Reads the file and the list. True; a failure throws.
  bool refresh();
  // The numbers of an array that are 32-bit integers, in order; null gives none.
  std::vector<std::int32_t> fromArray(CFArrayRef array) const;
  // A new array of the process ids that are not 0.
  plinth::CSharedCFRef<CFArrayRef> toArray(const std::vector<std::int32_t>& pids) const;
  // Reads the list afresh and leaves the document alone. True; a failure throws.
  bool get(std::vector<std::int32_t>& pids) const;
  // Replaces the list and writes it. True; a failure throws.
  bool put(const std::vector<std::int32_t>& pids);
  // Writes the list under the key, or removes the key when there is no process id but 0; everything else in the file,
  // "attributes" among it, stays as it is there.
  void flush() const;

  // The document's "attributes", or null. Belongs to the document.
  CFDictionaryRef getAttributes() const;
  // Sets "attributes" in the document; null removes it. Nothing is written.
  void setAttributes(CFDictionaryRef attributes);
  // What the document says about a process, or null. Belongs to the document.
  CFDictionaryRef processAttributes(std::int32_t pid) const;
  // Reads the file and gives what it says about a process; false, and three empty holders, when it says nothing. A
  // value that is absent or no string is an empty holder.
  bool processAttributes(std::int32_t pid, plinth::CSharedCFRef<CFStringRef>& kind,
                         plinth::CSharedCFRef<CFStringRef>& name, plinth::CSharedCFRef<CFStringRef>& version);
  // Registers a process in the file, in one transaction. A null string leaves its key out. The attributes of processes
  // that are gone, or that this user may not signal, are removed on the way, and so is what stands under a key that is
  // no process id: positive, in decimal digits, without sign, blanks or leading zeros. Nothing but a positive process
  // id is ever asked for.
  void setProcessAttributes(std::int32_t pid, CFStringRef kind, CFStringRef name, CFStringRef version);
  // Sets what the document says about a process; null removes it, and with the last one "attributes" goes. Nothing is
  // written.
  void setProcessAttributes(std::int32_t pid, CFDictionaryRef attributes);
  // Takes a process out of the file, in one transaction.
  void clearProcessAttributes(std::int32_t pid);

 private:
  plinth::CSharedObjectRef<CFileLockMonitor> beginTransaction();
  void pruneDeadProcesses();

  plinth::CSharedCFRef<CFStringRef> key_;
  mutable std::vector<std::int32_t> pids_;
  mutable plinth::CSharedCFRef<CFMutableDictionaryRef> attributes_;
};

}  // namespace tovan
