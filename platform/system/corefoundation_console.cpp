// The console line of platform/corefoundation.
#include "platform/corefoundation/console.h"

#include "platform/system/console_log.h"

namespace cf {

void consoleLine(const char* text) noexcept { platform::consoleLog(text); }

}  // namespace cf
