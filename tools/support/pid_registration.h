// pid_registration.h: a process's registration in the PID file.
//
// Everything here reads, changes and writes the file under one exclusive lock, so that processes that register at the
// same time all end up in it. Failures are the exceptions of tovan::CServicePIDFile.
#pragma once

#include <CoreFoundation/CFString.h>
#include <plinth/shared_cf_ref.h>

#include <cstddef>

namespace tools {

// Lists this process under a key, with its attributes, as long as the object lives. The processes under the key that
// are gone lose their place there on the way. Withdrawing takes out this process's own entries and leaves all others.
class PidRegistration {
 public:
  // The kind, the name and the version are what the file then says about this process.
  PidRegistration(CFStringRef key, CFStringRef kind, CFStringRef name, CFStringRef version);
  ~PidRegistration();
  PidRegistration(const PidRegistration&) = delete;
  PidRegistration& operator=(const PidRegistration&) = delete;

  // The registration outlives the object: the process is about to become another program, which registers again.
  void keep() noexcept { isKept_ = true; }

 private:
  plinth::CSharedCFRef<CFStringRef> key_;
  bool isKept_ = false;
};

// Takes this process out of the file, if it stands there. A failure becomes a line on standard error.
void withdrawRegistration(CFStringRef key);

// Takes the processes that are gone off the list under a key and gives their number. Writes only when there are any.
std::size_t removeGoneProcesses(CFStringRef key);

}  // namespace tools
