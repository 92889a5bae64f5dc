#include "launch/task_exit_code.h"

#include <gtest/gtest.h>
#include <signal.h>

namespace {

using tovan::exitCodeOf;

TEST(TaskExitCodeTest, ComesFromTheStatusTheSignalOrIsZero) {
  EXPECT_EQ(exitCodeOf(W_EXITCODE(0, 0)), 0);
  EXPECT_EQ(exitCodeOf(W_EXITCODE(3, 0)), 3);
  EXPECT_EQ(exitCodeOf(W_EXITCODE(255, 0)), 255);
  EXPECT_EQ(exitCodeOf(W_EXITCODE(0, SIGKILL)), 9);
  EXPECT_EQ(exitCodeOf(SIGSEGV | WCOREFLAG), 11);
  EXPECT_EQ(exitCodeOf(W_STOPCODE(SIGSTOP)), 0) << "a child that only stopped";
}

}  // namespace
