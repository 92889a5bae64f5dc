// error_text.h: the system's words for an errno value.
#pragma once

#include "platform/system/export.h"

#include <string>

namespace platform {

// The text that strerror gives, such as "No such file or directory"; "Unknown error 12345" for a value the system does
// not know. Safe from any thread; keeps errno.
PLATFORM_EXPORT std::string errorText(int errnoValue);

}  // namespace platform
