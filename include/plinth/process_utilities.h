// process_utilities.h: look-ups in the table of running processes. Stateless; any thread.
#pragma once

#include <plinth/string.h>

#include <sys/types.h>

namespace plinth {

class PLINTH_EXPORT ProcessUtilities {
 public:
  ProcessUtilities() = delete;

  // Whether a process of that name (the last component of its executable's path) runs for the given user ID; `pid`
  // receives its process ID, the lowest when there are several, and is left alone when there is none. False for an
  // empty holder or name. Processes that have ended and only wait to be collected do not count.
  static bool FindProcessWithName(const CStringRef& name, pid_t& pid, uid_t user);
  // The name of a process, or an empty holder when no process has that ID.
  static CStringRef FindProcessNameForProcess(pid_t pid);
};

}  // namespace plinth
