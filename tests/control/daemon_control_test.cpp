// Whether the daemon runs.
#include "tests/control/control_test.h"
#include "tests/control/named_process.h"

#include <tovan/daemon_control.h>

#include <sys/wait.h>

#include <algorithm>
#include <fstream>

extern "C" int countOfHarmlessCalls();

namespace {

using test::NamedProcess;

// What the PID file says of a process: under "mervaned", with attributes of these entries.
std::string registered(pid_t pid, const std::string& attributes) {
  const std::string number = std::to_string(pid);
  return "<key>mervaned</key><array><integer>" + number + "</integer></array><key>attributes</key><dict><key>" +
         number + "</key><dict>" + attributes + "</dict></dict>";
}
std::string ofVersion(const std::string& version) {
  return "<key>Kind</key><string>daemon</string><key>Name</key><string>mervaned</string><key>Version</key><string>" +
         version + "</string>";
}

class DaemonRunningTest : public test::ControlTest {};

TEST_F(DaemonRunningTest, RegisteredDaemonOfTheVersionRuns) {
  const NamedProcess daemon("mervaned");
  writePIDFile(registered(daemon.id(), ofVersion("2")));
  EXPECT_TRUE(isDaemonRunning());
}

TEST_F(DaemonRunningTest, NothingRegisteredDoesNotRun) {
  const NamedProcess daemon("mervaned");
  EXPECT_FALSE(isDaemonRunning()) << "no file";
  EXPECT_FALSE(test::exists(pidPath())) << "looking makes no file";
  writePIDFile("");
  EXPECT_FALSE(isDaemonRunning()) << "no list";
  writePIDFile("<key>mervaned</key><array/>");
  EXPECT_FALSE(isDaemonRunning()) << "an empty list";
  writePIDFile("<key>mervaned</key><string>" + std::to_string(daemon.id()) + "</string>");
  EXPECT_FALSE(isDaemonRunning()) << "no array";
}

TEST_F(DaemonRunningTest, OtherVersionsOrNoneDoNotCount) {
  const NamedProcess daemon("mervaned");
  for (const std::string& attributes : {ofVersion("1"), ofVersion("2.0"), ofVersion(""), std::string(),
                                        std::string("<key>Version</key><integer>2</integer>")}) {
    writePIDFile(registered(daemon.id(), attributes));
    EXPECT_FALSE(isDaemonRunning()) << attributes;
  }
  writePIDFile("<key>mervaned</key><array><integer>" + std::to_string(daemon.id()) + "</integer></array>");
  EXPECT_FALSE(isDaemonRunning()) << "without attributes";
}

TEST_F(DaemonRunningTest, ProcessOfAnotherNameDoesNotCount) {
  writePIDFile(registered(::getpid(), ofVersion("2")));
  EXPECT_FALSE(isDaemonRunning());
  for (const std::string other : {"mervanedX", "mervane", "Mervaned"}) {
    const NamedProcess process(other);
    writePIDFile(registered(process.id(), ofVersion("2")));
    EXPECT_FALSE(isDaemonRunning()) << other;
  }
}

TEST_F(DaemonRunningTest, StaleProcessIDDoesNotCount) {
  pid_t former = 0;
  {
    const NamedProcess daemon("mervaned");
    former = daemon.id();
  }
  writePIDFile(registered(former, ofVersion("2")));
  EXPECT_FALSE(isDaemonRunning());
}

TEST_F(DaemonRunningTest, DaemonThatHasEndedAndIsNotCollectedDoesNotCount) {
  const NamedProcess daemon("mervaned");
  writePIDFile(registered(daemon.id(), ofVersion("2")));
  ASSERT_TRUE(isDaemonRunning());
  ::kill(daemon.id(), SIGKILL);
  siginfo_t info;
  ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(daemon.id()), &info, WEXITED | WNOWAIT), 0);
  EXPECT_FALSE(isDaemonRunning());
}

TEST_F(DaemonRunningTest, ProcessGroupsAreNeverAsked) {
  for (const int pid : {0, -1, -::getpgrp(), -1234567}) {
    writePIDFile(registered(pid, ofVersion("2")));
    EXPECT_FALSE(isDaemonRunning()) << pid;
  }
}

TEST_F(DaemonRunningTest, AnyOneOfTheListSuffices) {
  const NamedProcess daemon("mervaned");
  const std::string number = std::to_string(daemon.id());
  writePIDFile("<key>mervaned</key><array><integer>-1</integer><string>x</string><integer>" +
               std::to_string(::getpid()) + "</integer><integer>" + number +
               "</integer></array><key>attributes</key><dict><key>" + number + "</key><dict>" + ofVersion("2") +
               "</dict></dict>");
  EXPECT_TRUE(isDaemonRunning());
}

TEST_F(DaemonRunningTest, UnreadableFileReadsAsNoDaemon) {
  test::makeFolders(test::configurationFolder());
  test::writeFile(pidPath(), "garbage");
  consoleOf([] { EXPECT_FALSE(isDaemonRunning()); });
  EXPECT_EQ(test::readFile(pidPath()), "garbage");
}

TEST_F(DaemonRunningTest, FunctionsAreThereForC) { EXPECT_EQ(countOfHarmlessCalls(), 3); }

// Looks at all processes of the user, so each test has a user of its own: one that nobody has.
class OtherDaemonTest : public test::ControlTest {
 protected:
  static constexpr uid_t kFirstUser = 1'500'000'000;

  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root, to become a user without processes";
    test::makeFolders(test::configurationFolder());
  }
  ~OtherDaemonTest() override {
    if (::geteuid() == 0) give(0);
  }

  // What the function answers to the user, after the PID file was written.
  bool answer(const std::string& entries) {
    writePIDFile(entries);
    give(user_);
    return answer();
  }
  bool answer(bool (*function)() = IsOtherVersionOfDaemonRunning) const {
    const pid_t child = ::fork();
    if (child == 0) {
      become();
      ::_exit(function() ? 1 : 0);
    }
    int status = -1;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status)) << "status " << status;
    return WEXITSTATUS(status) == 1;
  }
  NamedProcess daemon(const std::string& fileName = "mervaned") {
    give(user_);
    return NamedProcess(fileName, [this] { become(); });
  }

 private:
  static void give(uid_t user) {
    const std::filesystem::path home = test::scratchHome();
    (void)::chown(home.c_str(), user, user);
    for (const auto& file : std::filesystem::recursive_directory_iterator(home)) {
      EXPECT_EQ(::lchown(file.path().c_str(), user, user), 0) << file.path();
    }
  }
  void become() const {
    if (::setresgid(user_, user_, user_) != 0 || ::setresuid(user_, user_, user_) != 0) ::_exit(9);
  }

  const uid_t user_ = kFirstUser + static_cast<uid_t>(::getpid());
};

TEST_F(OtherDaemonTest, NoProcessOfTheNameIsFalseWhateverTheFileHolds) {
  EXPECT_FALSE(answer(registered(::getpid(), ofVersion("1"))));
  const NamedProcess other = daemon("mervanedX");
  EXPECT_FALSE(answer(registered(other.id(), ofVersion("1"))));
}

TEST_F(OtherDaemonTest, DaemonThatIsNotRegisteredIsAnother) {
  const NamedProcess running = daemon();
  EXPECT_TRUE(answer("")) << "no list";
  EXPECT_TRUE(answer("<key>mervaned</key><array/>")) << "an empty list";
  EXPECT_TRUE(answer(registered(1, ofVersion("2")))) << "a list without it";
  std::filesystem::remove(pidPath());
  EXPECT_TRUE(answer()) << "no file";
}

TEST_F(OtherDaemonTest, UnreadableFileIsAsNone) {
  const NamedProcess running = daemon();
  test::writeFile(pidPath(), "garbage");
  EXPECT_TRUE(answer());
}

TEST_F(OtherDaemonTest, RegisteredDaemonOfTheVersionIsNoOther) {
  const NamedProcess running = daemon();
  EXPECT_FALSE(answer(registered(running.id(), ofVersion("2"))));
}

TEST_F(OtherDaemonTest, RegisteredDaemonOfAnotherVersionOrNoneIsOne) {
  const NamedProcess running = daemon();
  EXPECT_TRUE(answer(registered(running.id(), ofVersion("1"))));
  EXPECT_TRUE(answer(registered(running.id(), "")));
}

TEST_F(OtherDaemonTest, DaemonThatThisUserMayNotSignalDoesNotRun) {
  const NamedProcess others("mervaned");
  EXPECT_FALSE(answer(registered(others.id(), ofVersion("2"))));
  EXPECT_FALSE(answer(isDaemonRunning));
  const NamedProcess own = daemon();
  EXPECT_FALSE(answer(registered(own.id(), ofVersion("2"))));
  EXPECT_TRUE(answer(isDaemonRunning));
}

TEST_F(OtherDaemonTest, OfSeveralTheLowestIsJudged) {
  const NamedProcess first = daemon();
  const NamedProcess second = daemon();
  const pid_t lower = std::min(first.id(), second.id());
  const pid_t higher = std::max(first.id(), second.id());
  EXPECT_FALSE(answer(registered(lower, ofVersion("2"))));
  EXPECT_TRUE(answer(registered(higher, ofVersion("2"))));
}

TEST_F(OtherDaemonTest, AnotherUsersDaemonDoesNotCount) {
  const NamedProcess running("mervaned");
  EXPECT_FALSE(answer(registered(running.id(), ofVersion("1"))));
}

}  // namespace
