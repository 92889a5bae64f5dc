// Several processes that install, switch and remove services at once.
#include "tests/control/service_test.h"

#include <plinth/exception.h>

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

namespace {

class ConcurrentInstallationTest : public test::ServiceTest {
 protected:
  static constexpr int kProcesses = 8;

  // Runs the action, given its number, in that many processes at once; every one must give true.
  template <class Action>
  static void inProcesses(Action action) {
    std::vector<pid_t> children;
    for (int i = 0; i < kProcesses; ++i) {
      const pid_t child = ::fork();
      if (child == 0) {
        try {
          ::_exit(action(i) ? 0 : 1);
        } catch (const plinth::CException&) {
          ::_exit(2);
        }
      }
      children.push_back(child);
    }
    for (const pid_t child : children) {
      int status = -1;
      EXPECT_EQ(::waitpid(child, &status, 0), child);
      EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0)
          << "status " << status << ": 256 is a wrong result, 512 an exception";
    }
  }
  static std::string nameOf(int process) { return "a:service-" + std::to_string(process); }
};

TEST_F(ConcurrentInstallationTest, FirstInstallationsOfAHomeAreAllKept) {
  test::ServiceBundle made = bundle();
  made.description = launchAgent(instances(1));
  made.write();
  inProcesses([&made](int i) { return installAs(nameOf(i), made); });
  for (int i = 0; i < kProcesses; ++i) {
    EXPECT_TRUE(serviceInstalled(name(nameOf(i))->getStringRef())) << nameOf(i);
    EXPECT_TRUE(test::exists(agentPath("service-" + std::to_string(i)))) << nameOf(i);
  }
  EXPECT_EQ(agents().size(), static_cast<std::size_t>(kProcesses)) << "something was left behind";
}

TEST_F(ConcurrentInstallationTest, NoChangeOfAnotherServiceIsLost) {
  constexpr int kRounds = 60;
  test::ServiceBundle made = bundle();
  made.write();
  for (int i = 0; i < kProcesses; ++i) ASSERT_TRUE(installAs(nameOf(i), made));
  inProcesses([&made](int i) {
    const auto own = name(nameOf(i));
    for (int round = 0; round < kRounds; ++round) {
      if (!enableService(own->getStringRef()) || !serviceEnabled(own->getStringRef())) return false;
      if (!disableService(own->getStringRef()) || serviceEnabled(own->getStringRef())) return false;
      if (!removeService(own->getStringRef()) || serviceInstalled(own->getStringRef())) return false;
      if (!installAs(nameOf(i), made) || !serviceInstalled(own->getStringRef())) return false;
    }
    return true;
  });
  for (int i = 0; i < kProcesses; ++i) EXPECT_TRUE(serviceInstalled(name(nameOf(i))->getStringRef())) << nameOf(i);
}

}  // namespace
