// launchd-host itself: one for a user, surviving its clients and its own sudden end.
#include <fcntl.h>
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
  void killHost() const {
    const pid_t last = host();
    ASSERT_GT(last, 0);
    ASSERT_EQ(::kill(last, SIGKILL), 0);
    ASSERT_TRUE(await([&] { return !test::isAlive(last); }));
  }

 private:
  std::string folder_;
};

// A session whose leader has ended, with one process left in it.
class RunningGroup {
 public:
  RunningGroup() {
    int ends[2] = {-1, -1};
    EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    leader_ = ::fork();
    if (leader_ == 0) {
      ::setsid();
      const pid_t member = ::fork();
      if (member == 0) {
        ::execl("/bin/sleep", "sleep", "1000", nullptr);
        ::_exit(126);
      }
      ::_exit(::write(ends[1], &member, sizeof member) == static_cast<ssize_t>(sizeof member) ? 0 : 1);
    }
    EXPECT_EQ(::read(ends[0], &member_, sizeof member_), static_cast<ssize_t>(sizeof member_));
    ::close(ends[0]);
    ::close(ends[1]);
    EXPECT_EQ(::waitpid(leader_, nullptr, 0), leader_);
  }
  ~RunningGroup() {
    if (member_ > 0) ::kill(member_, SIGKILL);
  }
  RunningGroup(const RunningGroup&) = delete;
  RunningGroup& operator=(const RunningGroup&) = delete;

  pid_t leader() const { return leader_; }
  pid_t member() const { return member_; }

 private:
  pid_t leader_ = -1;
  pid_t member_ = -1;
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
  ASSERT_GT(pid, 0);
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
  ASSERT_GT(pid, 0);
  killHost();
  EXPECT_EQ(launchctl({"unload", job.path()}).status, 0);
  EXPECT_FALSE(test::isAlive(pid));
  EXPECT_TRUE(await([] { return test::processesWith(test::nap()).empty(); }, 2));
}

TEST_F(LaunchdHostTest, WhatAJobLeftThatEndedWhileNoHostRanEndsBeforeItsNextStart) {
  JobFile job("test.left.behind");
  test::writeFile(job.in("trigger"), "");
  job.script("(trap '' TERM; exec sleep " + test::nap() + ") & echo $! >> \"" + job.in("children") + "\"; exec sleep " +
             test::nap());
  job.trigger(job.in("trigger")).exitTimeOut(0.4);
  ASSERT_EQ(launchctl({"load", job.write()}).status, 0);
  const pid_t pid = awaitRunning(job.label());
  ASSERT_GT(pid, 0);
  ASSERT_TRUE(await([] { return test::processesWith(test::nap()).size() == 2; }));
  ASSERT_TRUE(await([&] { return linesOf(job.in("children")).size() == 1; }));
  const pid_t child = std::stoi(linesOf(job.in("children")).front());
  killHost();
  ASSERT_EQ(::kill(pid, SIGKILL), 0);
  ASSERT_TRUE(await([&] { return !test::isAlive(pid); }));
  ASSERT_TRUE(test::isAlive(child));
  ASSERT_GT(awaitRunning(job.label()), 0);
  EXPECT_FALSE(test::isAlive(child)) << "the job was started beside what it had left";
  EXPECT_TRUE(await([] { return test::processesWith(test::nap()).size() == 2; }));
  EXPECT_EQ(statusOf(job.label())->lastExitStatus, ::launchctl::kExitUnknown);
  EXPECT_EQ(launchctl({"unload", job.path()}).status, 0);
  EXPECT_TRUE(await([] { return test::processesWith(test::nap()).empty(); }, 2));
}

TEST_F(LaunchdHostTest, AJobThatWasBeingEndedWhenTheHostWasKilledIsEndedByTheNext) {
  JobFile job("test.ending");
  job.script("(trap '' TERM; exec sleep " + test::nap() + ") & sleep 0.2; exit 3");
  job.set("KeepAlive", "<dict><key>SuccessfulExit</key><true/></dict>").exitTimeOut(2);
  ASSERT_EQ(launchctl({"load", job.write()}).status, 0);
  ASSERT_TRUE(await([&] { return statusOf(job.label())->hasEnded; })) << "its own process";
  ASSERT_EQ(test::processesWith(test::nap()).size(), 1U);
  killHost();
  EXPECT_EQ(statusOf(job.label())->lastExitStatus, 3 << 8) << "the end was seen";
  EXPECT_TRUE(await([] { return test::processesWith(test::nap()).empty(); }));
  EXPECT_FALSE(await([&] { return pidOf(job.label()) != 0; }, 0.4)) << "it was started again after a failure";
  EXPECT_EQ(launchctl({"unload", job.path()}).status, 0);
}

TEST_F(LaunchdHostTest, ProcessesThatOnlyShareTheNumberOfAnEarlierJobAreLeftAlone) {
  JobFile job("test.number");
  job.arguments({"/bin/sleep", "1000"}).set("RunAtLoad", "<true/>");
  ASSERT_EQ(launchctl({"load", job.write()}).status, 0);
  const pid_t pid = awaitRunning(job.label());
  ASSERT_GT(pid, 0);
  killHost();
  // The state tells of a job that ran before this leader was started: its group is somebody else's.
  RunningGroup other;
  std::string state = test::readFile(folder() + "/state.plist");
  const std::string number = "<integer>" + std::to_string(pid) + "</integer>";
  ASSERT_NE(state.find(number), std::string::npos);
  state.replace(state.find(number), number.size(), "<integer>" + std::to_string(other.leader()) + "</integer>");
  const std::size_t start = state.find("<integer>", state.find("StartTime")) + 9;
  state.replace(start, state.find('<', start) - start, "99999999999");
  test::writeFile(folder() + "/state.plist", state);
  EXPECT_EQ(launchctl({"unload", job.path()}).status, 0);
  EXPECT_TRUE(test::isAlive(other.member()));
  ::kill(pid, SIGKILL);
}

TEST_F(LaunchdHostTest, AJobThatHadEndedBeforeTheHostWasKilledGoesOnByTheRulesForAnEnd) {
  JobFile once("test.once");
  once.script("echo >> \"" + once.in("starts") + "\"").set("RunAtLoad", "<true/>");
  JobFile failed("test.failed");
  failed.script("echo >> \"" + failed.in("starts") + "\"; exit 4");
  failed.set("KeepAlive", "<dict><key>SuccessfulExit</key><true/></dict>");
  JobFile fresh("test.fresh");
  fresh.arguments({"/bin/sleep", "1000"});
  ASSERT_EQ(launchctl({"load", once.write(), failed.write(), fresh.write()}).status, 0);
  ASSERT_TRUE(await([&] { return statusOf(once.label())->hasEnded && statusOf(failed.label())->hasEnded; }));
  killHost();
  EXPECT_FALSE(await([&] { return pidOf(once.label()) != 0 || pidOf(failed.label()) != 0; }, 0.5));
  EXPECT_EQ(linesOf(once.in("starts")).size(), 1U) << "a job that has done its work was run again";
  EXPECT_EQ(linesOf(failed.in("starts")).size(), 1U) << "it was started again after a failure";
  EXPECT_TRUE(statusOf(once.label())->hasEnded);
  EXPECT_EQ(statusOf(once.label())->lastExitStatus, 0);
  EXPECT_EQ(statusOf(failed.label())->lastExitStatus, 4 << 8);
  EXPECT_FALSE(statusOf(fresh.label())->hasEnded);
  EXPECT_EQ(launchctl({"unload", once.path(), failed.path(), fresh.path()}).status, 0);
}

TEST_F(LaunchdHostTest, AJobWhoseTriggerWentWhileNoHostRanIsEndedByTheNext) {
  JobFile job("test.orphan");
  test::writeFile(job.in("trigger"), "");
  job.arguments({"/bin/sleep", "1000"}).trigger(job.in("trigger"));
  ASSERT_EQ(launchctl({"load", job.write()}).status, 0);
  const pid_t pid = awaitRunning(job.label());
  ASSERT_GT(pid, 0);
  killHost();
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
  ASSERT_GT(pid, 0);
  ASSERT_GT(last, 0);
  ASSERT_EQ(::kill(last, SIGTERM), 0);
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
