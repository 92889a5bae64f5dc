#include "platform/system/console_user.h"

#include <sys/stat.h>

namespace platform {

uid_t consoleUser() noexcept {
  struct stat status;
  return ::stat("/dev/console", &status) == 0 ? status.st_uid : static_cast<uid_t>(-1);
}

}  // namespace platform
