// pseudo_terminal.h: a new pseudo-terminal.
#pragma once

#include "platform/system/descriptor.h"
#include "platform/system/export.h"

namespace platform {

struct PseudoTerminal {
  Descriptor master;
  Descriptor slave;
};

// Opens a pair, both ends close-on-exec from the first instant; it becomes nobody's controlling terminal. Both ends are
// empty, with errno, on failure. The settings and the window size are the system's own.
PLATFORM_EXPORT PseudoTerminal openPseudoTerminal() noexcept;

}  // namespace platform
