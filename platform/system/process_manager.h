// process_manager.h: a process by its serial number, as the native process manager knows it.
#pragma once

#include "platform/system/export.h"

#include <cstdint>
#include <optional>
#include <string>

namespace platform {

// The serial number that stands for a process ID has 1 in its high word and the ID in its low one.
struct ProcessSerialNumber {
  std::uint32_t high;
  std::uint32_t low;
};

// The process's name, as processName() of process_table.h gives it; nothing when there is no such process, and for a
// serial number of another kind. Any thread.
PLATFORM_EXPORT std::optional<std::string> copyProcessName(ProcessSerialNumber number);

}  // namespace platform
