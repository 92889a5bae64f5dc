// hosts.h: the hosts of the guest (guest_init.sh). The tests run on "client"; "server" publishes; "stranger" is
// another.
#pragma once

#include <string>
#include <vector>

#include "tests/support/command.h"

namespace nfs {

inline const std::string kServer = "10.77.1.1";
inline const std::string kClient = "10.77.1.2";
inline const std::string kServerForStranger = "10.77.2.1";
inline const std::string kStranger = "10.77.2.2";

// The program and arguments that run a command there.
std::vector<std::string> onServer(const std::vector<std::string>& command);
test::CommandResult run(const std::vector<std::string>& command);

// A shell's line on the stranger, where mounts last as long as the line. `mount HOST:/PATH`, with the library's
// options, mounts on "$FOLDER".
test::CommandResult onStranger(const std::string& line, const std::string& nfsVersion = "3");

// A line in the guest's log.
void note(const char* format, ...) __attribute__((format(printf, 1, 2)));

// A mount of the client as the mount table has it; the type is empty when there is none.
struct Mount {
  std::string source;
  std::string type;
  std::string options;
};
Mount mountAt(const std::string& folder);

// The paths and hosts of the server's own list, each "PATH HOST", sorted; the path as the list has it, in octal.
std::vector<std::string> served();

// The server is there again when the object goes.
class SilentServer {  // its wire is cut: nothing comes back from it
 public:
  SilentServer();
  ~SilentServer();
  SilentServer(const SilentServer&) = delete;
  SilentServer& operator=(const SilentServer&) = delete;
};
class StoppedServer {  // the host is there, its NFS server refuses connections
 public:
  StoppedServer();
  ~StoppedServer();
  StoppedServer(const StoppedServer&) = delete;
  StoppedServer& operator=(const StoppedServer&) = delete;
};

}  // namespace nfs
