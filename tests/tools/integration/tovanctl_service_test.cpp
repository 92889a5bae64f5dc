// tovanctl service start, stop, restart, sync and instances, with the real daemon and real services.
#include "tests/tools/integration/tovanctl_host.h"

namespace {

using test::CommandResult;
using test::isRunning;
using test::runLoopUntil;
using testing::Each;
using testing::ElementsAre;
using testing::Gt;
using testing::HasSubstr;
using testing::SizeIs;

class TovanctlServiceTest : public test::TovanctlHost {
 protected:
  std::string description(unsigned int instance) const {
    const std::string number = instance == 0 ? "" : "-" + std::to_string(instance + 1);
    return test::scratchHome() + "/Library/LaunchAgents/" + identifier + ".agent" + number + ".plist";
  }
  bool isEnabled(const std::string& name) const { return service(name)["enabled"].get<bool>(); }
};

TEST_F(TovanctlServiceTest, StartEnablesAndStarts) {
  installAgent(2);
  const CommandResult start = succeeding({"service", "start", agent});
  EXPECT_THAT(start.out, HasSubstr(agent + ": 2 instances running, processes "));
  EXPECT_TRUE(isEnabled(agent));
  EXPECT_THAT(pids(agent), Each(Gt(0)));
}

TEST_F(TovanctlServiceTest, StopDisablesAndEnds) {
  installAgent(2);
  installOwn();
  succeeding({"up"});
  succeeding({"service", "start", agent, own});
  std::vector<pid_t> all = pids(agent);
  all.push_back(pids(own)[0]);
  const CommandResult stop = succeeding({"service", "stop", agent, own});
  EXPECT_THAT(stop.out, HasSubstr(agent + ": disabled, not running\n"));
  EXPECT_THAT(stop.out, HasSubstr(own + ": disabled, not running\n"));
  for (const pid_t pid : all) EXPECT_FALSE(isRunning(pid)) << pid;
  EXPECT_FALSE(isEnabled(agent));
  EXPECT_FALSE(isEnabled(own));
  EXPECT_NE(daemon(), 0) << "the daemon is not a service";
}

TEST_F(TovanctlServiceTest, StartingOneOfTheDaemonsNeedsTheDaemon) {
  installOwn();
  const CommandResult start = tovanctl({"service", "start", own});
  EXPECT_EQ(start.status, 1);
  EXPECT_THAT(start.err, HasSubstr("`tovanctl up` starts it"));
  EXPECT_TRUE(isEnabled(own)) << "the next `up` starts it";
  EXPECT_THAT(succeeding({"up"}).out, HasSubstr(own + ": 1 instance running"));
}

TEST_F(TovanctlServiceTest, RestartGivesEveryInstanceANewProcess) {
  installAgent(2);
  installOwn();
  succeeding({"up"});
  succeeding({"service", "start", agent, own});
  const std::vector<pid_t> agentBefore = pids(agent);
  const pid_t ownBefore = pids(own)[0];
  succeeding({"service", "restart", agent, own});
  EXPECT_THAT(pids(agent), Each(Gt(0)));
  EXPECT_THAT(pids(own), ElementsAre(Gt(0)));
  for (const pid_t pid : agentBefore) EXPECT_FALSE(isRunning(pid)) << pid;
  EXPECT_FALSE(isRunning(ownBefore));
}

TEST_F(TovanctlServiceTest, RestartOfADisabledServiceIsRefused) {
  installAgent();
  const CommandResult restart = tovanctl({"service", "restart", agent});
  EXPECT_EQ(restart.status, 1);
  EXPECT_THAT(restart.err, HasSubstr("`tovanctl service start " + agent + "`"));
  EXPECT_THAT(pids(agent), ElementsAre(0));
}

TEST_F(TovanctlServiceTest, SyncBringsAllServicesInLine) {
  installAgent();
  installOwn();
  succeeding({"up"});
  succeeding({"service", "start", own});
  succeeding({"service", "enable", agent});
  succeeding({"service", "disable", own});
  const CommandResult sync = succeeding({"service", "sync"});
  EXPECT_THAT(sync.out, HasSubstr(agent + ": 1 instance running, process "));
  EXPECT_THAT(sync.out, HasSubstr(own + ": disabled, not running\n"));
}

TEST_F(TovanctlServiceTest, SyncOfOneServiceLeavesTheOthers) {
  installAgent();
  installOwn();
  succeeding({"up"});
  succeeding({"service", "start", agent});
  succeeding({"service", "disable", agent});
  succeeding({"service", "enable", own});
  EXPECT_EQ(succeeding({"service", "sync", own}).out.find(agent), std::string::npos);
  EXPECT_THAT(pids(agent), ElementsAre(Gt(0)));
  EXPECT_THAT(pids(own), ElementsAre(Gt(0)));
}

TEST_F(TovanctlServiceTest, SyncWithoutServicesSaysSo) {
  EXPECT_THAT(succeeding({"service", "sync"}).err, HasSubstr("no service is installed"));
}

TEST_F(TovanctlServiceTest, AnUnknownNameChangesNothing) {
  installAgent();
  const std::string near = agent.substr(0, agent.size() - 1);
  for (const char* const verb : {"start", "stop", "restart", "sync"}) {
    const CommandResult result = tovanctl({"service", verb, agent, near});
    EXPECT_EQ(result.status, 3) << verb;
    EXPECT_THAT(result.err, HasSubstr("did you mean \"" + agent + "\"?")) << verb;
    EXPECT_EQ(result.out, "") << verb;
  }
  EXPECT_FALSE(isEnabled(agent)) << "the name that is known was changed";
  EXPECT_THAT(pids(agent), ElementsAre(0));
  for (const char* const verb : {"add", "remove"}) {
    EXPECT_EQ(tovanctl({"service", "instances", verb, near, "1"}).status, 3) << verb;
  }
}

TEST_F(TovanctlServiceTest, InstancesAreAddedBeyondTheConfiguredOnes) {
  installAgent(2);
  succeeding({"service", "start", agent});
  const std::vector<pid_t> configured = pids(agent);
  succeeding({"service", "instances", "add", agent, "1"});
  const std::string described = test::readFile(description(2));
  succeeding({"service", "instances", "add", agent, "2"});
  EXPECT_EQ(test::readFile(description(2)), described) << "and so do the dynamic ones";
  const auto instances = service(agent)["instances"];
  ASSERT_EQ(instances.size(), 5U);
  for (std::size_t number = 0; number < instances.size(); ++number) {
    EXPECT_EQ(instances[number]["instance"], number);
    EXPECT_EQ(instances[number]["dynamic"], number >= 2);
    EXPECT_EQ(instances[number]["state"], "running");
  }
  EXPECT_EQ(instances[4]["label"], identifier + ".agent-5");
  EXPECT_EQ(pids(agent)[0], configured[0]) << "the configured instances go on as they were";
}

TEST_F(TovanctlServiceTest, TheInstancesAddedLastAreRemovedFirst) {
  installAgent();
  succeeding({"service", "start", agent});
  succeeding({"service", "instances", "add", agent, "3"});
  const std::vector<pid_t> before = pids(agent);
  succeeding({"service", "instances", "remove", agent, "2"});
  EXPECT_THAT(pids(agent), ElementsAre(before[0], before[1]));
  const CommandResult tooMany = tovanctl({"service", "instances", "remove", agent, "2"});
  EXPECT_EQ(tooMany.status, 3);
  EXPECT_THAT(tooMany.err, HasSubstr("has 1 dynamic instance; 2 cannot be removed"));
  EXPECT_THAT(pids(agent), SizeIs(2));
}

TEST_F(TovanctlServiceTest, AHigherNumberOfInstancesRunsFromTheNextUpOn) {
  installAgent();
  succeeding({"service", "start", agent});
  const pid_t first = pids(agent)[0];
  succeeding({"service", "set", agent, "Instances", "3"});
  EXPECT_TRUE(test::exists(description(1)) && test::exists(description(2)));
  EXPECT_THAT(pids(agent), ElementsAre(first, 0, 0)) << "nothing is started yet";
  EXPECT_THAT(succeeding({"up"}).out, HasSubstr(agent + ": 3 instances running, processes "));
  EXPECT_EQ(pids(agent)[0], first);
}

TEST_F(TovanctlServiceTest, ALowerNumberOfInstancesEndsThoseBeyond) {
  installAgent(3);
  succeeding({"service", "start", agent});
  succeeding({"service", "instances", "add", agent, "1"});
  const std::vector<pid_t> before = pids(agent);
  ASSERT_THAT(before, SizeIs(4));
  const CommandResult set = succeeding({"service", "set", agent, "Instances", "1"});
  EXPECT_THAT(set.out, HasSubstr(agent + ": Instances is now 1\n" + agent + ", instance 1: job " + identifier +
                                 ".agent-2 unloaded\n"));
  EXPECT_THAT(pids(agent), ElementsAre(before[0]));
  for (unsigned int instance = 1; instance < 4; ++instance) {
    EXPECT_FALSE(isRunning(before[instance])) << instance;
    EXPECT_FALSE(test::exists(description(instance))) << instance;
  }
  EXPECT_TRUE(test::exists(description(0)));
  EXPECT_THAT(succeeding({"service", "sync", agent}).out, HasSubstr(agent + ": 1 instance running"));
}

TEST_F(TovanctlServiceTest, AServiceWithoutInstancesSaysSo) {
  installAgent(0);
  EXPECT_THAT(succeeding({"service", "start", agent}).out,
              HasSubstr("it has no instances: `tovanctl service set " + agent + " Instances NUMBER`\n"));
  EXPECT_EQ(succeeding({"service", "remove", agent}).err, "") << "nothing is loaded";
}

TEST_F(TovanctlServiceTest, OtherSettingsLeaveTheInstancesAlone) {
  installAgent(2);
  succeeding({"service", "start", agent});
  succeeding({"service", "instances", "add", agent, "1"});
  const std::vector<pid_t> before = pids(agent);
  succeeding({"service", "set", agent, "DisplayName", "Another name"});
  succeeding({"service", "set", agent, "Instances", "2"});
  EXPECT_EQ(pids(agent), before);
}

TEST_F(TovanctlServiceTest, AMissingDescriptionIsWrittenBeforeItIsNeeded) {
  installAgent(2);
  const std::string kept = test::readFile(description(0));
  std::filesystem::remove(description(1));
  succeeding({"service", "sync", agent});
  EXPECT_FALSE(test::exists(description(1))) << "a disabled service needs none";
  EXPECT_THAT(succeeding({"service", "start", agent}).out, HasSubstr(agent + ": 2 instances running"));
  EXPECT_EQ(test::readFile(description(0)), kept) << "what is there is left as it is";
  std::filesystem::remove(description(1));
  EXPECT_THAT(succeeding({"service", "restart", agent}).out, HasSubstr(agent + ": 2 instances running"));
}

TEST_F(TovanctlServiceTest, StopEndsTheDynamicInstancesToo) {
  installAgent();
  succeeding({"service", "start", agent});
  succeeding({"service", "instances", "add", agent, "1"});
  const std::vector<pid_t> before = pids(agent);
  ASSERT_THAT(before, SizeIs(2));
  succeeding({"service", "stop", agent});
  for (const pid_t pid : before) EXPECT_FALSE(isRunning(pid)) << pid;
}

TEST_F(TovanctlServiceTest, TheDaemonsServicesHaveNoDynamicInstances) {
  installOwn();
  for (const char* const verb : {"add", "remove"}) {
    const CommandResult result = tovanctl({"service", "instances", verb, own, "1"});
    EXPECT_EQ(result.status, 1) << verb;
    EXPECT_THAT(result.err, HasSubstr("has no dynamic instances")) << verb;
  }
}

TEST_F(TovanctlServiceTest, AKilledServiceOfTheDaemonComesBack) {
  installOwn();
  succeeding({"up"});
  succeeding({"service", "start", own});
  const pid_t before = pids(own)[0];
  ASSERT_GT(before, 0);
  ASSERT_EQ(::kill(before, SIGKILL), 0);
  ASSERT_TRUE(runLoopUntil([&] { return !isRunning(before); }));
  succeeding({"service", "sync", own});
  EXPECT_THAT(pids(own), ElementsAre(testing::AllOf(Gt(0), testing::Ne(before))));
}

TEST_F(TovanctlServiceTest, AKilledLaunchAgentComesBack) {
  installAgent();
  succeeding({"service", "start", agent});
  const pid_t before = pids(agent)[0];
  ASSERT_GT(before, 0);
  ASSERT_EQ(::kill(before, SIGKILL), 0);
  ASSERT_TRUE(runLoopUntil([&] { return !isRunning(before); }));
  succeeding({"service", "sync", agent});  // waits; the throttle interval is ten seconds
  EXPECT_THAT(pids(agent), ElementsAre(testing::AllOf(Gt(0), testing::Ne(before))));
}

TEST_F(TovanctlServiceTest, ADescriptionThatOthersCanWriteIsRefusedInLaunchctlsWords) {
  installAgent();
  const std::string description = test::scratchHome() + "/Library/LaunchAgents/" + identifier + ".agent.plist";
  ASSERT_EQ(::chmod(description.c_str(), 0666), 0);
  const CommandResult start = tovanctl({"service", "start", agent});
  EXPECT_EQ(start.status, 1) << start.out;
  EXPECT_THAT(start.err, HasSubstr(description));
  EXPECT_THAT(pids(agent), ElementsAre(0));
}

TEST_F(TovanctlServiceTest, WrongCommandLinesAreUsageErrors) {
  installAgent();
  for (const Arguments& arguments : std::vector<Arguments>{{"start"},
                                                           {"stop"},
                                                           {"restart"},
                                                           {"instances"},
                                                           {"instances", "add", agent},
                                                           {"instances", "add", agent, "0"},
                                                           {"instances", "add", agent, "many"},
                                                           {"instances", "remove", agent, "-1"},
                                                           {"start", agent, "--timeout", "x"}}) {
    Arguments whole = {"service"};
    whole.insert(whole.end(), arguments.begin(), arguments.end());
    EXPECT_EQ(tovanctl(whole).status, 2) << arguments.back();
  }
}

}  // namespace
