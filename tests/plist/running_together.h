// running_together.h: several pieces of work at once, each in a process of its own.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <vector>

#include "tests/plist/plist_support.h"

namespace test {

// None may throw. Comes back when all have ended.
inline void runTogether(const std::vector<std::function<void()>>& work) {
  int start[2];
  ASSERT_EQ(::pipe(start), 0);
  std::vector<pid_t> children;
  for (const auto& one : work) {
    children.push_back(::fork());
    if (children.back() != 0) continue;
    ::close(start[1]);
    char nothing;
    while (::read(start[0], &nothing, 1) > 0) continue;  // until the parent closes its end
    ::_exit(thrownBy(one) == "nothing" ? 0 : 1);
  }
  ::close(start[0]);
  ::close(start[1]);
  for (const pid_t child : children) {
    int status = -1;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0) << "one of them failed";
  }
}

}  // namespace test
