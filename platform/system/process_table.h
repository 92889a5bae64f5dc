// process_table.h: which processes run here, from /proc.
//
// A process's name is the last component of the path it was started with: that of its program, or, for a script, that
// of the script. The kernel keeps only 15 bytes of it (proc(5), comm), so the whole name is completed from the
// arguments or the program's path, when one of them begins with those 15 bytes. A process that has renamed itself goes
// by its new name.
//
// A process that has ended and waits for its parent (a zombie) does not run and has no name. Every answer may be out of
// date when it arrives; processes that vanish while the table is read are skipped. Safe from any thread.
#pragma once

#include "platform/system/export.h"

#include <sys/types.h>

#include <optional>
#include <string>

namespace platform {

// Whether a process of exactly that name runs with `user` as its effective user; `out` then gets its id, the lowest
// when there are several, and stays untouched otherwise. An empty name finds nothing.
PLATFORM_EXPORT bool findProcess(const std::string& name, uid_t user, pid_t& out);

// The name of the process with that id; nothing when there is none, when it is a zombie, and for an id of 0 or less.
PLATFORM_EXPORT std::optional<std::string> processName(pid_t id);

}  // namespace platform
