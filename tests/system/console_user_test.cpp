#include "platform/system/console_user.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

namespace {

TEST(ConsoleUserTest, OwnsTheConsole) {
  struct stat status;
  const bool isThere = ::stat("/dev/console", &status) == 0;
  EXPECT_EQ(platform::consoleUser(), isThere ? status.st_uid : static_cast<uid_t>(-1));
}

}  // namespace
