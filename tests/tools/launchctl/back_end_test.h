// back_end_test.h: the fixture of the suite that both back ends have to pass. The parameter names the back end; each
// test has it to itself. Under systemd a test runs again, beside a real user manager in a namespace of its own
// (user_manager.sh), and what it said there is its result; where no manager can be had it is skipped, with the reason.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "tests/tools/launchctl/launchctl_testing.h"

namespace test {

class BackEndTest : public ::testing::TestWithParam<std::string> {
 protected:
  void SetUp() override;
  void TearDown() override;

  bool embedded() const { return GetParam() == "embedded"; }
  // Whether the test has run elsewhere: there is nothing left to do. Each test asks first.
  bool done() const { return done_; }
  // Loads it; everything that was loaded is unloaded at the end of the test.
  void load(JobFile& job);
  // The embedded host's folder.
  const std::string& hostFolder() const { return hostFolder_; }

 private:
  void runBesideManager();
  std::string hostFolder_;
  std::vector<std::string> loaded_;
  bool done_ = false;
};

}  // namespace test
