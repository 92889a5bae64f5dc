#include "platform/system/pseudo_terminal.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

namespace {

TEST(PseudoTerminalTest, IsAPairThatNoChildInherits) {
  const platform::PseudoTerminal terminal = platform::openPseudoTerminal();
  ASSERT_TRUE(terminal.master);
  ASSERT_TRUE(terminal.slave);
  EXPECT_EQ(::isatty(terminal.slave.get()), 1);
  EXPECT_EQ(::fcntl(terminal.master.get(), F_GETFD), FD_CLOEXEC);
  EXPECT_EQ(::fcntl(terminal.slave.get(), F_GETFD), FD_CLOEXEC);
  ASSERT_EQ(::write(terminal.master.get(), "line\n", 5), 5);
  char buffer[16];
  EXPECT_EQ(::read(terminal.slave.get(), buffer, sizeof buffer), 5);
}

TEST(PseudoTerminalTest, IsEmptyWithTheReasonWhenThereIsNone) {
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
  const platform::Descriptor next = platform::Descriptor::open("/dev/null", O_RDONLY);
  rlimit few = before;
  few.rlim_cur = static_cast<rlim_t>(next.get()) + 2;  // room for one end
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
  const platform::PseudoTerminal terminal = platform::openPseudoTerminal();
  const int error = errno;
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
  EXPECT_FALSE(terminal.master);
  EXPECT_FALSE(terminal.slave);
  EXPECT_EQ(error, EMFILE);
}

}  // namespace
