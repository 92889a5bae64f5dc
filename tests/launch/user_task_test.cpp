#include <tovan/user_task.h>

#include "tests/launch/task_support.h"
#include "tests/support/private_bus.h"

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <sstream>
#include <vector>

namespace {

using test::TextList;
using tovan::CUserTask;

// The end of each task is announced on the bus.
class CUserTaskTest : public ::testing::Test {
 private:
  test::PrivateBus bus_;
};

// What the command prints when it runs for the user; its output file lies where every user may write.
std::string printedAs(int uid, const std::string& command, int expectedCode = 0) {
  const std::string folder = test::scratchFolder("user");
  ::chmod(test::scratchHome().c_str(), 0755);
  ::chmod(folder.c_str(), 0777);
  ::unlink((folder + "/out").c_str());
  CUserTask task("/bin/sh", TextList{"-c", command + " > " + folder + "/out"}, nullptr, uid);
  EXPECT_EQ(task.launch(), 0U);
  EXPECT_EQ(task.waitForTask(), expectedCode);
  return test::exists(folder + "/out") ? test::readFile(folder + "/out") : "nothing";
}

// A user that may not use the test's bus announces nothing.
class QuietUserTask : public CUserTask {
 public:
  using CUserTask::CUserTask;

 protected:
  void on_exit(int code) override { CTask::on_exit(code); }
};

std::string numberLine(uid_t number) { return std::to_string(number) + "\n"; }

std::vector<long> sortedNumbers(const std::string& text) {
  std::istringstream stream(text);
  std::vector<long> numbers;
  for (long number; stream >> number;) numbers.push_back(number);
  std::sort(numbers.begin(), numbers.end());
  numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
  return numbers;
}

TEST_F(CUserTaskTest, UserZeroRunsTheChildAsTheCaller) {
  EXPECT_EQ(printedAs(0, "id -u"), numberLine(::geteuid()));
  EXPECT_EQ(sortedNumbers(printedAs(0, "ps -o sid= -p $$")), std::vector<long>{::getsid(0)});
}

TEST_F(CUserTaskTest, TheChildRunsAsTheUserInASessionOfItsOwn) {
  if (::getuid() != 0) GTEST_SKIP() << "only root may become another user";
  const passwd* const nobody = ::getpwnam("nobody");
  ASSERT_NE(nobody, nullptr);
  const int uid = static_cast<int>(nobody->pw_uid);
  EXPECT_EQ(printedAs(uid, "id -ru"), numberLine(nobody->pw_uid));
  EXPECT_EQ(printedAs(uid, "id -u"), numberLine(nobody->pw_uid));
  EXPECT_EQ(printedAs(uid, "id -g"), numberLine(::getegid())) << "the process's own group stays";
  const std::string session = printedAs(uid, "echo $$ $(cut -d' ' -f6 /proc/$$/stat)");
  EXPECT_EQ(sortedNumbers(session).size(), 1U) << "the child does not lead its session: " << session;
}

TEST_F(CUserTaskTest, TheChildHasTheUsersGroups) {
  if (::getuid() != 0) GTEST_SKIP() << "only root may become another user";
  const passwd* const user = ::getpwnam("www-data") != nullptr ? ::getpwnam("www-data") : ::getpwnam("nobody");
  ASSERT_NE(user, nullptr);
  std::vector<gid_t> groups(64);
  int count = static_cast<int>(groups.size());
  ASSERT_GE(::getgrouplist(user->pw_name, user->pw_gid, groups.data(), &count), 0);
  std::vector<long> expected{static_cast<long>(::getegid())};
  expected.insert(expected.end(), groups.begin(), groups.begin() + count);
  std::sort(expected.begin(), expected.end());
  expected.erase(std::unique(expected.begin(), expected.end()), expected.end());
  EXPECT_EQ(sortedNumbers(printedAs(static_cast<int>(user->pw_uid), "id -G")), expected);
}

TEST_F(CUserTaskTest, NoOtherDescriptorReachesTheChild) {
  ASSERT_EQ(::dup2(STDOUT_FILENO, 57), 57);
  EXPECT_EQ(printedAs(0, "test ! -e /proc/$$/fd/57 && echo closed"), "closed\n");
  if (::getuid() == 0) {
    EXPECT_EQ(printedAs(54321, "test ! -e /proc/$$/fd/57 && echo closed"), "closed\n");
  }
  ::close(57);
}

// A process of root's that works as somebody else for the moment, and with another group.
TEST_F(CUserTaskTest, TheRealUserDecidesWhetherTheChildMayBecomeAnother) {
  if (::getuid() != 0) GTEST_SKIP() << "only root may become another user";
  const std::string said = test::inAnotherProcess([]() -> std::string {
    if (::setegid(4242) != 0 || ::seteuid(12345) != 0) return "not prepared";
    QuietUserTask task("/bin/sh",
                       TextList{"-c", "test \"$(id -ru) $(id -u) $(id -rg) $(id -g)\" = '54321 54321 4242 4242'"},
                       nullptr, 54321);
    if (task.launch() != 0) return "launch failed";
    return std::to_string(task.waitForTask());
  });
  EXPECT_EQ(said, "0");
}

TEST_F(CUserTaskTest, AUserThatTheSystemDoesNotKnowHasNoFurtherGroups) {
  if (::getuid() != 0) GTEST_SKIP() << "only root may become another user";
  constexpr int kUnknown = 54321;
  ASSERT_EQ(::getpwuid(kUnknown), nullptr);
  const gid_t secret = 4242;
  const std::string said = test::inAnotherProcess([&]() -> std::string {
    if (::setgroups(1, &secret) != 0) return "setgroups failed";
    return printedAs(kUnknown, "echo $(id -u) $(id -G)");
  });
  EXPECT_EQ(said, std::to_string(kUnknown) + " " + std::to_string(::getegid()) + "\n");
}

TEST_F(CUserTaskTest, TheProgramNeverRunsAsSomebodyElse) {
  if (::getuid() == 0) {
    // -1 is no user.
    EXPECT_EQ(printedAs(-1, "id -u", EINVAL), "nothing");
    const std::string said = test::inAnotherProcess([]() -> std::string {
      if (::setuid(54321) != 0) return "setuid failed";
      QuietUserTask task("/bin/true", nullptr, nullptr, 1);
      if (task.launch() != 0) return "launch failed";
      return std::to_string(task.waitForTask());
    });
    EXPECT_EQ(said, std::to_string(EPERM));
  } else {
    CUserTask task("/bin/true", nullptr, nullptr, 1);
    ASSERT_EQ(task.launch(), 0U);
    EXPECT_EQ(task.waitForTask(), EPERM);
  }
}

TEST_F(CUserTaskTest, TheUserCanBeSetLater) {
  if (::getuid() != 0) GTEST_SKIP() << "only root may become another user";
  CUserTask task("/bin/sh", TextList{"-c", "test $(id -u) = 54321"}, nullptr, 0);
  ASSERT_EQ(task.launch(), 0U);
  EXPECT_EQ(task.waitForTask(), 1);
  task.setUserID(54321);
  ASSERT_EQ(task.launch(), 0U);
  EXPECT_EQ(task.waitForTask(), 0);
  EXPECT_EQ(task.shell(), nullptr);
}

}  // namespace
