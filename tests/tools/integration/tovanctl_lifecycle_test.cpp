// tovanctl up, down and status, with the real daemon and real services.
#include <algorithm>
#include <memory>
#include <sstream>

#include "tests/tools/integration/tovanctl_host.h"

namespace {

using nlohmann::json;
using test::CommandResult;
using test::isRunning;
using test::runLoopUntil;
using test::RunningProgram;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class TovanctlLifecycleTest : public test::TovanctlHost {
 protected:
  // A process that goes by the daemon's name; the shell's words come before it becomes that.
  static std::unique_ptr<RunningProgram> impostor(const std::string& words = "") {
    const std::string program = test::scratchFolder("impostor") + "/mervaned";
    std::filesystem::copy_file("/bin/sleep", program);
    auto made = std::make_unique<RunningProgram>("/bin/sh", Arguments{"-c", words + "exec " + program + " 100"});
    const std::string executable = "/proc/" + std::to_string(made->pid()) + "/exe";
    std::error_code gone;
    EXPECT_TRUE(runLoopUntil([&] { return std::filesystem::read_symlink(executable, gone) == program; }));
    return made;
  }
  static void registerAsDaemon(pid_t pid, CFStringRef version) {
    tovan::CServicePIDFile file(CFSTR("mervaned"));
    EXPECT_TRUE(file.put({pid}));
    file.setProcessAttributes(pid, CFSTR("mervaned"), CFSTR("mervaned"), version);
  }
};

TEST_F(TovanctlLifecycleTest, UpStartsTheDaemonAndWhatIsEnabled) {
  installAgent(2);
  installOwn();
  succeeding({"service", "enable", agent});
  succeeding({"service", "enable", own});
  const CommandResult up = succeeding({"up"});
  EXPECT_THAT(up.out, StartsWith("daemon: started, process "));
  EXPECT_THAT(up.out, HasSubstr(agent + ": 2 instances running, processes "));
  EXPECT_THAT(up.out, HasSubstr(own + ": 1 instance running, process "));
  EXPECT_EQ(up.err, "") << "the daemon's own messages go to its log";
  EXPECT_THAT(test::readFile(test::scratchHome() + "/Library/Logs/Lumisphere/mervaned.log"), HasSubstr("started"));
  EXPECT_TRUE(isRunning(daemon()));
  for (const pid_t pid : pids(agent)) EXPECT_TRUE(isRunning(pid)) << pid;
}

TEST_F(TovanctlLifecycleTest, UpAgainLeavesEverythingAsItIs) {
  installAgent();
  installOwn();
  succeeding({"service", "enable", agent});
  succeeding({"service", "enable", own});
  succeeding({"up"});
  const auto before = std::vector{daemon(), pids(agent)[0], pids(own)[0]};
  EXPECT_THAT(succeeding({"up"}).out, StartsWith("daemon: runs already, process " + std::to_string(before[0]) + "\n"));
  EXPECT_EQ((std::vector{daemon(), pids(agent)[0], pids(own)[0]}), before);
}

TEST_F(TovanctlLifecycleTest, UpLeavesADisabledServiceDown) {
  installAgent();
  const CommandResult up = succeeding({"up"});
  EXPECT_THAT(up.out, HasSubstr(agent + ": disabled, not running\n"));
  EXPECT_THAT(up.err, HasSubstr("no service is enabled; `tovanctl service start NAME`"));
}

TEST_F(TovanctlLifecycleTest, UpInAnEmptyHomeStartsTheDaemonAndSaysThatNoServiceIsEnabled) {
  const CommandResult up = succeeding({"up"});
  EXPECT_THAT(up.out, StartsWith("daemon: started"));
  EXPECT_THAT(up.out, HasSubstr("jobcontroller:com.brant.mervane.cluster.admin: disabled, not running\n"));
  EXPECT_THAT(up.out, HasSubstr("servicecontroller:com.brant.klarn.transcoderx: disabled, not running\n"));
  EXPECT_THAT(up.err, HasSubstr("no service is enabled"));
}

TEST_F(TovanctlLifecycleTest, UpReportsAServiceThatCannotBeStarted) {
  installAgent();
  succeeding({"service", "enable", agent});
  const std::string description = test::scratchHome() + "/Library/LaunchAgents/" + identifier + ".agent.plist";
  std::string content = test::readFile(description);
  const std::size_t program = content.find("<string>", content.find("ProgramArguments")) + 8;
  content.replace(program, content.find('<', program) - program, "/nowhere/at/all");
  test::writeFile(description, content);
  const CommandResult up = tovanctl({"up", "--timeout", "1"});
  EXPECT_EQ(up.status, 1);
  EXPECT_THAT(up.out, HasSubstr(agent + ": not running; instance 0 is loaded, last end: exit 127, cannot execute " +
                                "/nowhere/at/all: No such file or directory\n"));
  EXPECT_THAT(up.err, HasSubstr("1 service is not as wanted in time"));
}

TEST_F(TovanctlLifecycleTest, UpReportsADaemonThatCannotWork) {
  test::makeFolders(test::scratchHome() + "/Library/Application Support");
  test::writeFile(test::scratchHome() + "/Library/Application Support/Lumisphere", "not a folder");
  const CommandResult up = tovanctl({"up"});
  EXPECT_EQ(up.status, 1) << up.out;
  EXPECT_THAT(up.err, HasSubstr("Couldn't start mervane daemon: PID time-out; its messages are in "));
  EXPECT_EQ(up.out, "");
  std::filesystem::remove(test::scratchHome() + "/Library/Application Support/Lumisphere");
}

TEST_F(TovanctlLifecycleTest, DownEndsEverythingAndDisablesNothing) {
  installAgent(2);
  installOwn();
  succeeding({"service", "enable", agent});
  succeeding({"service", "enable", own});
  succeeding({"up"});
  std::vector<pid_t> all = pids(agent);
  all.push_back(pids(own)[0]);
  all.push_back(daemon());
  const json trigger = service(agent)["instances"][0]["trigger"];
  EXPECT_TRUE(test::exists(trigger["path"]));
  const CommandResult down = succeeding({"down"});
  for (const pid_t pid : all) EXPECT_FALSE(isRunning(pid)) << pid << "\n" << down.out;
  EXPECT_FALSE(test::exists(trigger["path"]));
  EXPECT_THAT(down.out, HasSubstr("daemon: process " + std::to_string(all.back()) + " ended\n"));
  EXPECT_EQ(down.err, "");
  EXPECT_TRUE(service(agent)["enabled"]);
  EXPECT_TRUE(service(own)["enabled"]);
  EXPECT_EQ(service(agent)["instances"][0]["state"], "not loaded");
}

TEST_F(TovanctlLifecycleTest, DownTwiceIsNoFailure) {
  EXPECT_EQ(succeeding({"down"}).out, "daemon: was not running\n");
  EXPECT_EQ(succeeding({"down"}).err, "");
}

TEST_F(TovanctlLifecycleTest, DownEndsTheJobsOfAServiceThatWasRemoved) {
  installAgent();
  succeeding({"service", "start", agent});
  const pid_t pid = pids(agent)[0];
  EXPECT_THAT(succeeding({"service", "remove", agent}).err, HasSubstr("its jobs are still loaded; `tovanctl down`"));
  const json stray = status()["strayJobs"][0];
  EXPECT_EQ(stray["label"], identifier + ".agent");
  EXPECT_EQ(stray["pid"], pid);
  EXPECT_THAT(succeeding({"status"}).out, HasSubstr(identifier + ".agent (not installed)"));
  EXPECT_THAT(succeeding({"down"}).out,
              HasSubstr(identifier + ".agent (not installed): job " + identifier + ".agent unloaded\n"));
  EXPECT_FALSE(isRunning(pid));
}

TEST_F(TovanctlLifecycleTest, DownEndsWhatRunsThoughTheRegistryIsDamaged) {
  installAgent();
  succeeding({"up"});
  succeeding({"service", "start", agent});
  const std::vector<pid_t> all = {pids(agent)[0], daemon()};
  test::writeFile(test::scratchHome() + "/Library/Application Support/Lumisphere/LumisphereConfig.plist", "damaged");
  const CommandResult status = tovanctl({"status"});
  EXPECT_EQ(status.status, 1);
  EXPECT_THAT(status.err, HasSubstr("LumisphereConfig.plist"));
  const CommandResult down = tovanctl({"down"});
  EXPECT_EQ(down.status, 1) << down.out;
  EXPECT_THAT(down.err, HasSubstr("LumisphereConfig.plist"));
  for (const pid_t pid : all) EXPECT_FALSE(isRunning(pid)) << pid << "\n" << down.out;
  std::filesystem::remove_all(test::scratchHome() + "/Library");
}

TEST_F(TovanctlLifecycleTest, DownTouchesNoProcessThatGotTheDaemonsIdLater) {
  RunningProgram innocent("/bin/sleep", {"100"});
  registerAsDaemon(innocent.pid(), CFSTR("2"));
  EXPECT_EQ(succeeding({"down"}).out, "daemon: was not running\n");
  EXPECT_FALSE(innocent.hasEnded());
}

TEST_F(TovanctlLifecycleTest, DownLeavesADaemonOfAnotherVersionAlone) {
  const auto other = impostor();
  registerAsDaemon(other->pid(), CFSTR("1"));
  EXPECT_EQ(succeeding({"down"}).out, "daemon: was not running\n");
  EXPECT_FALSE(other->hasEnded());
}

TEST_F(TovanctlLifecycleTest, DownReportsADaemonThatDoesNotEnd) {
  const auto stubborn = impostor("trap '' TERM; ");
  registerAsDaemon(stubborn->pid(), CFSTR("2"));
  const CommandResult down = tovanctl({"down", "--timeout", "0.3"});
  EXPECT_EQ(down.status, 1) << down.out;
  EXPECT_THAT(down.err,
              HasSubstr("process " + std::to_string(stubborn->pid()) + ", was asked to end and is still there"));
  EXPECT_FALSE(stubborn->hasEnded());
  EXPECT_EQ(stubborn->end(SIGKILL), 128 + SIGKILL);
}

TEST_F(TovanctlLifecycleTest, StatusShowsAMervanedThatIsInTheWay) {
  const auto other = impostor();
  registerAsDaemon(other->pid(), CFSTR("1"));
  const json daemon = status()["daemon"];
  EXPECT_EQ(daemon["running"], false);
  EXPECT_EQ(daemon["otherVersionRunning"], true);
  EXPECT_GT(daemon["otherVersionPid"].get<pid_t>(), 0);
}

TEST_F(TovanctlLifecycleTest, StatusOfAHostWhereNothingRuns) {
  const json host = status();
  EXPECT_EQ(host["daemon"]["running"], false);
  EXPECT_TRUE(host["daemon"]["pid"].is_null());
  EXPECT_TRUE(host["daemon"]["version"].is_null());
  EXPECT_EQ(host["bus"]["reachable"], true);
  EXPECT_TRUE(host["services"].empty());
  EXPECT_TRUE(host["strayJobs"].empty());
  EXPECT_THAT(succeeding({"status"}).out, HasSubstr("Daemon  not running\n"));
  EXPECT_FALSE(test::exists(test::scratchHome() + "/Library")) << "looking creates nothing";
}

TEST_F(TovanctlLifecycleTest, StatusStartsNoBus) {
  {
    const test::NoSessionBus nowhere;
    const json bus = status()["bus"];
    EXPECT_EQ(bus["reachable"], false);
    EXPECT_TRUE(bus["address"].is_null());
    EXPECT_THAT(bus["problem"].get<std::string>(), HasSubstr("on demand, unix:path=" + nowhere.folder()));
    EXPECT_TRUE(nowhere.daemons().empty());
  }
  useOwnBus();
}

TEST_F(TovanctlLifecycleTest, StatusTellsABusThatHangs) {
  test::PrivateBus hanging;
  hanging.stop();
  const json bus = status()["bus"];
  hanging.resume();
  EXPECT_EQ(bus["reachable"], false) << bus.dump();
  EXPECT_THAT(bus["problem"].get<std::string>(), HasSubstr("session, " + hanging.address() + ": it does not answer"));
}

TEST_F(TovanctlLifecycleTest, StatusDescribesEveryInstance) {
  installAgent(2);
  installOwn(2);
  succeeding({"service", "enable", own});
  succeeding({"up"});
  const json host = status();
  EXPECT_EQ(host["daemon"]["running"], true);
  EXPECT_EQ(host["daemon"]["version"], "2");
  EXPECT_GE(host["daemon"]["upTime"].get<double>(), 0);
  EXPECT_LT(host["daemon"]["upTime"].get<double>(), 100);
  EXPECT_EQ(host["bus"]["place"], "session");
  EXPECT_EQ(host["bus"]["address"], std::getenv("DBUS_SESSION_BUS_ADDRESS"));
  const json ownInstances = service(own)["instances"];
  ASSERT_EQ(ownInstances.size(), 2U);
  EXPECT_EQ(service(own)["startedBy"], "daemon");
  for (std::size_t number = 0; number < 2; ++number) {
    EXPECT_EQ(ownInstances[number]["instance"], number);
    EXPECT_EQ(ownInstances[number]["state"], "running");
    EXPECT_FALSE(ownInstances[number].contains("trigger")) << "launchd has no part in it";
  }
  const json agentInstances = service(agent)["instances"];
  ASSERT_EQ(agentInstances.size(), 2U);
  EXPECT_EQ(service(agent)["startedBy"], "launchd");
  EXPECT_EQ(agentInstances[1]["label"], identifier + ".agent-2");
  EXPECT_EQ(agentInstances[1]["state"], "not loaded");
  EXPECT_EQ(agentInstances[1]["loaded"], false);
  EXPECT_EQ(agentInstances[1]["trigger"]["present"], false);
  EXPECT_TRUE(agentInstances[1]["lastExit"].is_null());
}

TEST_F(TovanctlLifecycleTest, StatusTellsNoEndBeforeTheFirstOne) {
  installAgent();
  succeeding({"service", "start", agent});
  EXPECT_TRUE(service(agent)["instances"][0]["loaded"]);
  EXPECT_TRUE(service(agent)["instances"][0]["lastExit"].is_null());
  EXPECT_EQ(succeeding({"status"}).out.find("exit 0"), std::string::npos);
  const pid_t pid = pids(agent)[0];
  ASSERT_GT(pid, 0);
  ASSERT_EQ(::kill(pid, SIGTERM), 0);  // which it takes as a request to end, and ends well
  EXPECT_TRUE(runLoopUntil([&] { return service(agent)["instances"][0]["lastExit"] == json{{"code", 0}}; }));
  EXPECT_THAT(succeeding({"status"}).out, HasSubstr("exit 0"));
}

TEST_F(TovanctlLifecycleTest, StatusTellsHowAJobEnded) {
  installAgent();
  succeeding({"service", "start", agent});
  const pid_t pid = pids(agent)[0];
  ASSERT_GT(pid, 0);
  ASSERT_EQ(::kill(pid, SIGKILL), 0);
  ASSERT_TRUE(runLoopUntil([&] { return service(agent)["instances"][0]["lastExit"] == json{{"signal", SIGKILL}}; }));
  const json instance = service(agent)["instances"][0];
  EXPECT_EQ(instance["state"], "loaded");
  EXPECT_TRUE(instance["pid"].is_null());
  EXPECT_EQ(instance["trigger"]["present"], true);
  EXPECT_THAT(succeeding({"status"}).out, HasSubstr("signal 9"));
}

TEST_F(TovanctlLifecycleTest, StatusForPeopleIsATableWithoutColour) {
  installAgent();
  const std::string out = succeeding({"status"}).out;
  EXPECT_THAT(out, HasSubstr("\nSERVICE "));
  EXPECT_THAT(out, HasSubstr("\n" + agent + "  0         no "));
  EXPECT_EQ(out.find('\x1b'), std::string::npos);
}

TEST_F(TovanctlLifecycleTest, WatchGoesOnUntilCtrlC) {
  installAgent();
  RunningProgram watch(TOVAN_BUILD_DIR "/bin/tovanctl", {"status", "--watch", "--json"});
  const auto documents = [&watch] {
    const std::string out = watch.output();
    return std::count(out.begin(), out.end(), '\n');
  };
  ASSERT_TRUE(runLoopUntil([&] { return documents() >= 2; })) << watch.output();
  succeeding({"service", "enable", agent});
  const auto before = documents();
  ASSERT_TRUE(runLoopUntil([&] { return documents() >= before + 2; })) << watch.output();
  EXPECT_EQ(watch.end(SIGINT), 0);
  std::istringstream lines(watch.output());
  std::string first;
  std::string line;
  std::getline(lines, first);
  std::string last = first;
  while (std::getline(lines, line)) last = line;
  const auto isEnabled = [this](const std::string& shown) {
    const nlohmann::json status = document(shown);
    for (const nlohmann::json& one : status["services"]) {
      if (one["name"] == agent) return one["enabled"].get<bool>();
    }
    ADD_FAILURE() << agent << " is not in " << shown;
    return false;
  };
  EXPECT_FALSE(isEnabled(first));
  EXPECT_TRUE(isEnabled(last));
}

TEST_F(TovanctlLifecycleTest, WrongOptionsAreUsageErrors) {
  for (const Arguments& arguments : std::vector<Arguments>{{"up", "now"},
                                                           {"up", "--timeout", "soon"},
                                                           {"down", "--timeout", "-1"},
                                                           {"status", "--yaml"},
                                                           {"status", "x"}}) {
    EXPECT_EQ(tovanctl(arguments).status, 2) << arguments.back();
  }
}

}  // namespace
