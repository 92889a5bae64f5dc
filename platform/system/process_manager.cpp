#include "platform/system/process_manager.h"

#include "platform/system/process_table.h"

#include <limits>

namespace platform {

std::optional<std::string> copyProcessName(ProcessSerialNumber number) {
  constexpr auto kLargest = static_cast<std::uint32_t>(std::numeric_limits<pid_t>::max());
  if (number.high != 1 || number.low > kLargest) return std::nullopt;
  return processName(static_cast<pid_t>(number.low));
}

}  // namespace platform
