// session_bus.h: a D-Bus daemon of a benchmark's own, and the way its processes are bound to one core.
#pragma once

#include <sys/types.h>
#include <string>

namespace bench {

// Ends the program with the text on standard error unless the condition holds.
void require(bool holds, const char* what);

// This process and the children it starts from now on, on the first core.
void pinToFirstCore();

// Up, and in DBUS_SESSION_BUS_ADDRESS, when the constructor returns; its socket lies in a folder that must exist.
// Killed by the destructor.
class SessionBus {
 public:
  explicit SessionBus(const std::string& folder);
  ~SessionBus();
  SessionBus(const SessionBus&) = delete;
  SessionBus& operator=(const SessionBus&) = delete;

 private:
  std::string socket_;
  pid_t daemon_ = 0;
};

// A folder under /tmp, removed with all that is in it by the destructor.
class ScratchFolder {
 public:
  ScratchFolder();
  ~ScratchFolder();
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace bench
