// mount_table.h: what is mounted where on this host, as this process sees it.
#pragma once

#include <map>
#include <string>

namespace mervaned {

// What the kernel lists at a path.
struct KernelMount {
  long id = 0;  // its own among the mounts of the moment
  std::string type;
  std::string source;  // as printable() says it
};

// With a backslash and three octal digits for each control character, which no property list can carry.
std::string printable(const std::string& text);

// By mount point; where several lie on each other, the uppermost.
using MountTable = std::map<std::string, KernelMount>;

// The kernel's list answers, so no server is asked. Empty when it cannot be read.
MountTable mountTable();

// Where the kernel is going to list a mount on a path: symbolic links followed. This looks at the path, so it is for
// who is about to mount there; what is mounted on the path itself already is not touched.
std::string listedPath(const MountTable& table, const std::string& mountPoint);

}  // namespace mervaned
