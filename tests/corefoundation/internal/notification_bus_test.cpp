// Where the bus is, and the one that is started on demand.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <set>
#include <thread>
#include <vector>

#include "platform/corefoundation/bus_address.h"
#include "platform/corefoundation/bus_private.h"
#include "platform/corefoundation/bus_selection.h"
#include "tests/support/notification_log.h"
#include "tests/support/private_bus.h"
#include "tests/support/scratch_home.h"

namespace {

namespace fs = std::filesystem;
using cf::BusPlace;
using cf::monotonicNow;

constexpr cf::MonotonicTime kSecond = 1000000000;
cf::MonotonicTime soon() { return monotonicNow() + 20 * kSecond; }

TEST(BusAddressTest, BytesThatAnAddressMayNotHoldAreWrittenAsHexadecimal) {
  EXPECT_EQ(cf::unixBusAddress("/tmp/tovan-bus_1.x/bus"), "unix:path=/tmp/tovan-bus_1.x/bus");
  EXPECT_EQ(cf::unixBusAddress("/a b,c;d=e%\xC3\xBC"), "unix:path=/a%20b%2cc%3bd%3de%25%c3%bc");
}

TEST(BusAddressTest, TheSessionsAddressIsTakenUnlessItNamesNoBus) {
  std::string failure;
  for (const char* const none : {"", "disabled:", "autolaunch:", "autolaunch:scope=*user", "nonsense"}) {
    ::setenv("DBUS_SESSION_BUS_ADDRESS", none, 1);
    EXPECT_FALSE(cf::busAddress(BusPlace::session, soon(), failure)) << none;
  }
  ::setenv("DBUS_SESSION_BUS_ADDRESS", "unix:abstract=x", 1);
  EXPECT_EQ(cf::busAddress(BusPlace::session, soon(), failure), "unix:abstract=x");
  ::unsetenv("DBUS_SESSION_BUS_ADDRESS");
}

class PrivateBusTest : public ::testing::Test {
 protected:
  std::set<pid_t> daemons() const {
    const std::vector<pid_t> running = none_.daemons();
    return {running.begin(), running.end()};
  }
  void endDaemons() const {
    for (const pid_t daemon : daemons()) ::kill(daemon, SIGKILL);
  }
  const std::string& folder() const { return none_.folder(); }
  std::string failure_;

 private:
  test::NoSessionBus none_;
};

TEST_F(PrivateBusTest, IsStartedOnceAndFoundAgain) {
  EXPECT_EQ(cf::startPrivateBus(folder(), soon(), failure_), folder() + "/bus") << failure_;
  const std::set<pid_t> first = daemons();
  EXPECT_EQ(first.size(), 1U);
  EXPECT_EQ(cf::startPrivateBus(folder(), soon(), failure_), folder() + "/bus") << failure_;
  EXPECT_EQ(daemons(), first);
}

TEST_F(PrivateBusTest, TheFolderIsMadeForTheUserAlone) {
  const std::string inner = folder() + "/made";
  ASSERT_TRUE(cf::startPrivateBus(inner, soon(), failure_)) << failure_;
  struct stat status;
  ASSERT_EQ(::stat(inner.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0700U);
}

TEST_F(PrivateBusTest, AFolderThatOthersMayEnterIsRefused) {
  ASSERT_EQ(::chmod(folder().c_str(), 0755), 0);
  EXPECT_FALSE(cf::startPrivateBus(folder(), soon(), failure_));
  EXPECT_NE(failure_.find("closed to all others"), std::string::npos) << failure_;
  EXPECT_EQ(daemons().size(), 0U);
}

TEST_F(PrivateBusTest, AFolderOfAnotherUsersIsRefused) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can give a folder away";
  ASSERT_EQ(::chown(folder().c_str(), 12345, 12345), 0);
  EXPECT_FALSE(cf::startPrivateBus(folder(), soon(), failure_));
  EXPECT_EQ(daemons().size(), 0U);
}

TEST_F(PrivateBusTest, ALinkOrAFileInPlaceOfTheFolderIsRefused) {
  fs::create_directory(folder() + "/real");
  fs::permissions(folder() + "/real", fs::perms::owner_all);
  fs::create_directory_symlink(folder() + "/real", folder() + "/link");
  EXPECT_FALSE(cf::startPrivateBus(folder() + "/link", soon(), failure_));
  test::writeFile(folder() + "/file", "");
  EXPECT_FALSE(cf::startPrivateBus(folder() + "/file", soon(), failure_));
  EXPECT_EQ(daemons().size(), 0U);
}

TEST_F(PrivateBusTest, ALinkInPlaceOfTheLockOrTheConfigurationIsNotFollowed) {
  test::writeFile(folder() + "/precious", "untouched");
  fs::create_symlink(folder() + "/precious", folder() + "/bus.conf");
  EXPECT_FALSE(cf::startPrivateBus(folder(), soon(), failure_));
  EXPECT_EQ(test::readFile(folder() + "/precious"), "untouched");
  fs::create_symlink(folder() + "/precious", folder() + "/lock-elsewhere");
  fs::remove(folder() + "/lock");
  fs::create_symlink(folder() + "/precious", folder() + "/lock");
  EXPECT_FALSE(cf::startPrivateBus(folder(), soon(), failure_));
  EXPECT_EQ(daemons().size(), 0U);
}

TEST_F(PrivateBusTest, APathTooLongForASocketIsRefused) {
  const std::string longFolder = folder() + "/" + std::string(100, 'x');
  EXPECT_FALSE(cf::startPrivateBus(longFolder, soon(), failure_));
  EXPECT_NE(failure_.find("too long"), std::string::npos) << failure_;
  // The longest that fits does.
  const std::string fitting = folder() + "/" + std::string(99 - 4 - folder().size() - 1, 'x');
  EXPECT_TRUE(cf::startPrivateBus(fitting, soon(), failure_)) << failure_;
}

TEST_F(PrivateBusTest, WithoutADaemonToRunTheCauseIsSaid) {
  const std::string path = std::getenv("PATH");
  ::setenv("PATH", folder().c_str(), 1);
  EXPECT_FALSE(cf::startPrivateBus(folder(), soon(), failure_));
  ::setenv("PATH", path.c_str(), 1);
  EXPECT_EQ(failure_, "cannot run dbus-daemon: No such file or directory");
}

TEST_F(PrivateBusTest, AHeldLockIsWaitedForUntilTheDeadlineOnly) {
  const int lock = ::open((folder() + "/lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  ASSERT_EQ(::flock(lock, LOCK_EX), 0);
  const cf::MonotonicTime begin = monotonicNow();
  EXPECT_FALSE(cf::startPrivateBus(folder(), begin + kSecond / 5, failure_));
  EXPECT_GE(monotonicNow() - begin, kSecond / 5);
  EXPECT_LT(monotonicNow() - begin, 5 * kSecond);
  EXPECT_NE(failure_.find("cannot lock"), std::string::npos) << failure_;
  ::close(lock);
}

// It has no terminal, no descriptor of ours and no session of ours, and it gets over our end.
TEST_F(PrivateBusTest, TheDaemonIsNobodysChild) {
  const int descriptor = ::open("/dev/null", O_RDONLY);  // inheritable
  ASSERT_EQ(test::inChild([&] { return cf::startPrivateBus(folder(), soon(), failure_) ? 0 : 1; }), 0);
  ::close(descriptor);
  const std::set<pid_t> running = daemons();
  ASSERT_EQ(running.size(), 1U);
  const pid_t daemon = *running.begin();
  EXPECT_NE(::getsid(daemon), ::getsid(0));
  EXPECT_NE(::getpgid(daemon), ::getpgid(0));
  for (const auto& entry : fs::directory_iterator("/proc/" + std::to_string(daemon) + "/fd")) {
    std::error_code error;
    const std::string target = fs::read_symlink(entry.path(), error).string();
    EXPECT_EQ(target.find("/lock"), std::string::npos) << "the daemon holds " << target;
    const bool standard = std::stoi(entry.path().filename().string()) <= 2;
    EXPECT_EQ(standard, target == "/dev/null") << entry.path() << " is " << target;
  }
  EXPECT_TRUE(cf::startPrivateBus(folder(), soon(), failure_));
  EXPECT_EQ(daemons(), running);
}

int startTogether(const std::string& folder, int count) {
  int ends[2];
  if (::pipe(ends) != 0) return -1;
  std::vector<pid_t> children;
  for (int i = 0; i < count; ++i) {
    const pid_t child = ::fork();
    if (child == 0) {
      ::close(ends[1]);
      char byte;
      while (::read(ends[0], &byte, 1) < 0) {
      }
      std::string failure;
      ::_exit(cf::startPrivateBus(folder, soon(), failure) ? 0 : 1);
    }
    children.push_back(child);
  }
  ::close(ends[0]);
  ::close(ends[1]);  // go
  int succeeded = 0;
  for (const pid_t child : children) {
    int status = 0;
    ::waitpid(child, &status, 0);
    succeeded += WIFEXITED(status) && WEXITSTATUS(status) == 0 ? 1 : 0;
  }
  return succeeded;
}

TEST_F(PrivateBusTest, TwentyFourStartersGetOneDaemon) {
  EXPECT_EQ(startTogether(folder(), 24), 24);
  const std::set<pid_t> first = daemons();
  ASSERT_EQ(first.size(), 1U);
  // Again after it was killed: its socket is still there, and nobody listens at it.
  for (int round = 0; round < 3; ++round) {
    endDaemons();
    while (daemons().size() != 0) ::usleep(1000);
    EXPECT_EQ(startTogether(folder(), 24), 24);
    EXPECT_EQ(daemons().size(), 1U);
  }
}

// A bus that stands still is not replaced: it would come back as a second one.
TEST_F(PrivateBusTest, ADaemonThatHangsIsLeftAlone) {
  ASSERT_TRUE(cf::startPrivateBus(folder(), soon(), failure_)) << failure_;
  const std::set<pid_t> running = daemons();
  ::kill(*running.begin(), SIGSTOP);
  int error = 0;
  const cf::MonotonicTime begin = monotonicNow();
  EXPECT_EQ(cf::BusConnection::open(cf::unixBusAddress(folder() + "/bus"), begin + kSecond / 5, error), nullptr);
  EXPECT_EQ(error, ETIMEDOUT);
  EXPECT_LT(monotonicNow() - begin, 5 * kSecond);
  EXPECT_TRUE(cf::startPrivateBus(folder(), soon(), failure_));
  EXPECT_EQ(daemons(), running);
  ::kill(*running.begin(), SIGCONT);
}

TEST_F(PrivateBusTest, AHostThatReapsEveryChildMayStartIt) {
  ASSERT_EQ(test::inChild([&] {
              ::signal(SIGCHLD, SIG_IGN);
              return cf::startPrivateBus(folder(), soon(), failure_) ? 0 : 1;
            }),
            0);
  EXPECT_EQ(daemons().size(), 1U);
}

// Without a session's bus, processes meet on the one that is started on demand.
TEST_F(PrivateBusTest, IsWhatProcessesWithoutASessionMeetOn) {
  test::NotificationLog log;
  log.observe(CFSTR("Meet2"), nullptr);
  EXPECT_EQ(daemons().size(), 1U);
  ASSERT_EQ(test::inChild([] {
              test::post(CFSTR("Meet2"), CFSTR("child"));
              return 0;
            }),
            0);
  ASSERT_TRUE(log.await(1));
  EXPECT_EQ(log.text(), "Meet2 child\n");
}

TEST_F(PrivateBusTest, ComesBackByItselfWhenItIsKilled) {
  test::NotificationLog log;
  log.observe(CFSTR("Back2"), nullptr);
  endDaemons();
  // The observer's own run loop starts it again.
  ASSERT_TRUE(test::runLoopUntil([&] { return daemons().size() == 1; }));
  ASSERT_TRUE(test::runLoopUntil([&] {
    test::post(CFSTR("Back2"), nullptr);
    return !log.all.empty();
  }));
}

// A login brings the session's bus: who is on the bus on demand moves over.
TEST_F(PrivateBusTest, IsLeftForTheSessionsBusWhenThatAppears) {
  test::NotificationLog log;
  log.observe(CFSTR("Move2"), nullptr);
  ASSERT_EQ(daemons().size(), 1U);
  test::PrivateBus session;
  ASSERT_TRUE(test::runLoopUntil([&] {
    EXPECT_EQ(test::inChild([] {
                test::post(CFSTR("Move2"), CFSTR("on the session's bus"));
                return 0;
              }),
              0);
    ::usleep(100000);
    return !log.all.empty();
  }));
}

}  // namespace
