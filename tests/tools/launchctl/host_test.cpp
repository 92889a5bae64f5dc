// launchd-host itself: one for a user, surviving its clients and its own sudden end.
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <thread>

#include "tests/support/scratch_home.h"
#include "tests/tools/launchctl/launchctl_testing.h"
#include "tools/launchctl/embedded/frame.h"

namespace {

using test::await;
using test::awaitRunning;
using test::JobFile;
using test::launchctl;
using test::linesOf;
using test::pidOf;
using test::statusOf;
using testing::HasSubstr;

class LaunchdHostTest : public ::testing::Test {
 protected:
  void SetUp() override {
    folder_ = test::scratchFolder("host");
    ASSERT_EQ(::chmod(folder_.c_str(), 0700), 0);
    ::setenv("TOVAN_LAUNCHD", "embedded", 1);
    ::setenv("TOVAN_LAUNCHD_FOLDER", folder_.c_str(), 1);
  }
  void TearDown() override {
    const pid_t last = host();
    if (last > 0) ::kill(last, SIGTERM);
    EXPECT_TRUE(last == 0 || await([&] { return !test::isAlive(last); })) << "the host did not end";
  }
  // The process at the other end of the socket; 0 when there is none.
  pid_t host() const {
    const int socket = connected();
    ucred peer{};
    socklen_t length = sizeof peer;
    if (socket < 0) return 0;
    const bool known = ::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &length) == 0;
    ::close(socket);
    return known ? peer.pid : 0;
  }
  int connected() const {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, (folder_ + "/socket").c_str());
    const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return socket;
    ::close(socket);
    return -1;
  }
  const std::string& folder() const { return folder_; }

 private:
  std::string folder_;
};

TEST_F(LaunchdHostTest, ListingWithoutJobsStartsNoHost) {
  EXPECT_EQ(launchctl({"list"}).out, "PID\tStatus\tLabel\n");
  EXPECT_EQ(host(), 0);
}

TEST_F(LaunchdHostTest, EndsWhenItsLastJobIsUnloaded) {
  JobFile one("test.one");
  JobFile two("test.two");
  one.arguments({"/bin/sleep", "1000"}).set("RunAtLoad", "<true/>");
  two.arguments({"/bin/sleep", "1000"});
  ASSERT_EQ(launchctl({"load", one.write(), two.write()}).status, 0);
  const pid_t pid = host();
  ASSERT_GT(pid, 0);
  EXPECT_EQ(launchctl({"unload", one.path()}).status, 0);
  EXPECT_EQ(host(), pid);
  EXPECT_EQ(launchctl({"unload", two.path()}).status, 0);
  EXPECT_TRUE(await([&] { return !test::isAlive(pid); }, 3)) << "it still runs";
  EXPECT_FALSE(test::exists(folder() + "/state.plist"));
}

TEST_F(LaunchdHostTest, ManyClientsAtOnceGetOneHostAndOneJobEach) {
  std::vector<JobFile> jobs;
  for (int index = 0; index < 12; ++index) {
    jobs.emplace_back("test.many." + std::to_string(index));
    jobs.back().arguments({"/bin/sleep", test::nap()}).set("RunAtLoad", "<true/>").write();
  }
  std::vector<pid_t> clients;
  for (int index = 0; index < 24; ++index) {
    const pid_t client = ::fork();
    if (client == 0) {
      const std::string program = TOVAN_BUILD_DIR "/lib/tovan/bin/launchctl";
      ::execl(program.c_str(), "launchctl", "load", jobs[static_cast<std::size_t>(index) % jobs.size()].path().c_str(),
              nullptr);
      ::_exit(126);
    }
    clients.push_back(client);
  }
  for (const pid_t client : clients) {
    int status = -1;
    EXPECT_EQ(::waitpid(client, &status, 0), client);
    EXPECT_EQ(status, 0);
  }
  EXPECT_TRUE(await([] { return test::processesWith(test::nap()).size() == 12; }));
  EXPECT_EQ(test::processesWith(test::nap()).size(), 12U);
  for (const JobFile& job : jobs) EXPECT_EQ(launchctl({"unload", job.path()}).status, 0);
  EXPECT_TRUE(test::processesWith(test::nap()).empty());
}

TEST_F(LaunchdHostTest, AKilledHostsJobsAreAdoptedNotDoubled) {
  JobFile job("test.adopted");
  test::writeFile(job.in("trigger"), "");
  job.arguments({"/bin/sleep", test::nap()}).trigger(job.in("trigger"));
  ASSERT_EQ(launchctl({"load", job.write()}).status, 0);
  const pid_t pid = awaitRunning(job.label());
  const pid_t first = host();
  ASSERT_GT(first, 0);
  ASSERT_EQ(::kill(first, SIGKILL), 0);
  ASSERT_TRUE(await([&] { return !test::isAlive(first); }));
  EXPECT_TRUE(test::isAlive(pid)) << "the job outlives its host";
  const auto again = launchctl({"load", job.path()});
  EXPECT_EQ(again.status, 0) << again.err;
  EXPECT_NE(host(), first);
  EXPECT_EQ(pidOf(job.label()), pid);
  EXPECT_EQ(test::processesWith(test::nap()).size(), 1U);
  // The adopted job is watched like any other: its end, then its trigger.
  ASSERT_EQ(::kill(pid, SIGKILL), 0);
  const pid_t next = awaitRunning(job.label(), pid);
  EXPECT_GT(next, 0);
  EXPECT_EQ(statusOf(job.label())->lastExitStatus, ::launchctl::kExitUnknown);
  std::filesystem::remove(job.in("trigger"));
  EXPECT_TRUE(test::awaitDown(job.label()));
  EXPECT_EQ(launchctl({"unload", job.path()}).status, 0);
}

TEST_F(LaunchdHostTest, AnAdoptedJobIsEndedAtUnload) {
  JobFile job("test.adopted.unload");
  job.script("trap '' TERM; while :; do sleep " + test::nap() + "; done").set("RunAtLoad", "<true/>").exitTimeOut(0.4);
  ASSERT_EQ(launchctl({"load", job.write()}).status, 0);
  const pid_t pid = awaitRunning(job.label());
  ASSERT_TRUE(await([] { return !test::processesWith(test::nap()).empty(); }));
  ::kill(host(), SIGKILL);
  EXPECT_EQ(launchctl({"unload", job.path()}).status, 0);
  EXPECT_FALSE(test::isAlive(pid));
  EXPECT_TRUE(await([] { return test::processesWith(test::nap()).empty(); }, 2));
}

TEST_F(LaunchdHostTest, AJobWhoseTriggerWentWhileNoHostRanIsEndedByTheNext) {
  JobFile job("test.orphan");
  test::writeFile(job.in("trigger"), "");
  job.arguments({"/bin/sleep", "1000"}).trigger(job.in("trigger"));
  ASSERT_EQ(launchctl({"load", job.write()}).status, 0);
  const pid_t pid = awaitRunning(job.label());
  const pid_t first = host();
  ::kill(first, SIGKILL);
  ASSERT_TRUE(await([&] { return !test::isAlive(first); }));
  std::filesystem::remove(job.in("trigger"));
  EXPECT_TRUE(test::awaitDown(job.label()));
  EXPECT_FALSE(test::isAlive(pid));
  EXPECT_EQ(launchctl({"unload", job.path()}).status, 0);
}

TEST_F(LaunchdHostTest, KilledAtAnyMomentNothingIsDoubled) {
  JobFile job("test.killed.often");
  job.arguments({"/bin/sleep", test::nap()}).set("KeepAlive", "<true/>").throttle(0);
  job.write();
  for (int round = 0; round < 20; ++round) {
    launchctl({"load", job.path()});
    EXPECT_LE(test::processesWith(test::nap()).size(), 1U) << "round " << round;
    const pid_t running = pidOf(job.label());
    if (running > 0) ::kill(running, SIGKILL);  // it is being started again when the host goes
    std::this_thread::sleep_for(std::chrono::microseconds(round * 150));
    const pid_t last = host();
    if (last > 0) ::kill(last, SIGKILL);
    ASSERT_TRUE(last == 0 || await([&] { return !test::isAlive(last); }));
  }
  EXPECT_EQ(launchctl({"unload", job.path()}).status, 0);
  EXPECT_TRUE(await([] { return test::processesWith(test::nap()).empty(); }));
}

TEST_F(LaunchdHostTest, ADamagedStateFileIsKeptAsideAndTheHostWorks) {
  test::writeFile(folder() + "/state.plist", "<plist><dict><key>Jobs");
  JobFile job("test.after.damage");
  job.arguments({"/bin/sleep", "1000"});
  EXPECT_EQ(launchctl({"load", job.write()}).status, 0);
  EXPECT_EQ(test::readFile(folder() + "/state.damaged"), "<plist><dict><key>Jobs");
  EXPECT_THAT(test::readFile(folder() + "/log"), HasSubstr("the state file cannot be used"));
  EXPECT_EQ(launchctl({"unload", job.path()}).status, 0);
}

TEST_F(LaunchdHostTest, AForeignPidInTheStateFileIsNeverSignalled) {
  JobFile job("test.foreign.pid");
  job.arguments({"/bin/sleep", "1000"}).set("RunAtLoad", "<true/>");
  const std::string list = test::readFile(job.write());
  const std::string entry = list.substr(list.find("<dict>"), list.rfind("</plist>") - list.find("<dict>"));
  for (const std::string& pid : {std::to_string(::getpid()), std::string("0"), std::string("-1"), std::string("1")}) {
    test::writeFile(folder() + "/state.plist",
                    "<plist version=\"1.0\"><dict><key>Jobs</key><array><dict><key>Job</key>" + entry +
                        "<key>Boot</key><string>x</string><key>Process</key><integer>" + pid +
                        "</integer><key>StartTime</key><integer>1</integer></dict></array></dict></plist>");
    EXPECT_EQ(launchctl({"unload", job.path()}).status, 0) << pid;
    EXPECT_TRUE(await([&] { return host() == 0; }));
  }
}

TEST_F(LaunchdHostTest, SigtermEndsTheJobsAndTheHost) {
  JobFile job("test.sigterm");
  job.arguments({"/bin/sleep", "1000"}).set("KeepAlive", "<true/>");
  ASSERT_EQ(launchctl({"load", job.write()}).status, 0);
  const pid_t pid = awaitRunning(job.label());
  const pid_t last = host();
  ::kill(last, SIGTERM);
  EXPECT_TRUE(await([&] { return !test::isAlive(last) && !test::isAlive(pid); }));
  EXPECT_EQ(launchctl({"list"}).out, "PID\tStatus\tLabel\n");
}

TEST_F(LaunchdHostTest, NoZombieIsLeft) {
  JobFile job("test.zombies");
  job.script("(sleep 0.05 &) ; echo >> \"" + job.in("starts") + "\"").set("KeepAlive", "<true/>").throttle(0.01);
  ASSERT_EQ(launchctl({"load", job.write()}).status, 0);
  ASSERT_TRUE(await([&] { return linesOf(job.in("starts")).size() >= 10; }));
  const pid_t pid = host();
  EXPECT_EQ(launchctl({"stop", job.label()}).status, 0);
  const auto zombies = [&] {
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
      const auto lines = linesOf(entry.path().string() + "/stat");
      if (lines.empty()) continue;
      const std::size_t end = lines[0].rfind(')');
      if (end != std::string::npos && lines[0].compare(end, 4, ") Z ") == 0 &&
          lines[0].compare(end + 4, std::to_string(pid).size() + 1, std::to_string(pid) + " ") == 0) {
        ++count;
      }
    }
    return count;
  };
  EXPECT_TRUE(await([&] { return zombies() == 0; }, 2));
  EXPECT_EQ(launchctl({"unload", job.path()}).status, 0);
}

TEST_F(LaunchdHostTest, NonsenseOnItsSocketIsSentAway) {
  JobFile job("test.nonsense");
  job.arguments({"/bin/sleep", "1000"});
  ASSERT_EQ(launchctl({"load", job.write()}).status, 0);
  const std::string bodies[] = {std::string("\xff\xff\xff\xff", 4), std::string("\0\0\0\5hello", 9),
                                std::string("\0\0\0\0", 4)};
  for (const std::string& bytes : bodies) {
    const int socket = connected();
    ASSERT_GE(socket, 0);
    ASSERT_EQ(::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
    char buffer[16];
    EXPECT_LE(::recv(socket, buffer, sizeof buffer, 0), 0) << "it was answered";
    ::close(socket);
  }
  const int silent = connected();  // one that never says anything keeps nobody waiting
  EXPECT_TRUE(statusOf(job.label()));
  EXPECT_EQ(launchctl({"unload", job.path()}).status, 0);
  ::close(silent);
}

TEST_F(LaunchdHostTest, AnUnsafeFolderIsNotUsed) {
  JobFile job("test.unsafe");
  job.arguments({"/bin/sleep", "1000"}).write();
  ASSERT_EQ(::chmod(folder().c_str(), 0755), 0);
  auto result = launchctl({"load", job.path()});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("is open to others"));
  const std::string link = folder() + "-link";
  std::filesystem::create_directory_symlink(folder(), link);
  ASSERT_EQ(::chmod(folder().c_str(), 0700), 0);
  ::setenv("TOVAN_LAUNCHD_FOLDER", link.c_str(), 1);
  EXPECT_EQ(launchctl({"load", job.path()}).status, 1) << "a link in the folder's place";
  if (::geteuid() == 0) {
    ::setenv("TOVAN_LAUNCHD_FOLDER", folder().c_str(), 1);
    ASSERT_EQ(::chown(folder().c_str(), 65534, 65534), 0);
    result = launchctl({"load", job.path()});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, HasSubstr("belongs to user 65534"));
    ASSERT_EQ(::chown(folder().c_str(), 0, 0), 0);
  }
}

}  // namespace
