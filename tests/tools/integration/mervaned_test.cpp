// The reference daemon as its clients meet it: real processes, a scratch home, a private bus.
#include <CoreFoundation/CFNumber.h>
#include <gmock/gmock.h>
#include <plinth/exception.h>
#include <sys/stat.h>
#include <tovan/cf_util.h>
#include <tovan/constants.h>
#include <tovan/daemon_control.h>
#include <tovan/notifications.h>
#include <tovan/service_cache_file.h>
#include <tovan/service_control.h>
#include <tovan/tovan_config_file.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>

#include "tests/support/command.h"
#include "tests/support/private_bus.h"
#include "tests/tools/integration/running_program.h"
#include "tests/tools/integration/shipped_configuration.h"

namespace {

using namespace tovan::TovanCorePrivate;
using namespace tovan::TovanNotification;
using plinth::CSharedCFRef;
using test::NotificationLog;
using test::runLoopUntil;
using test::RunningProgram;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using tovan::CFUtil;
using Arguments = std::vector<std::string>;

const std::string kDaemon = TOVAN_BUILD_DIR "/lib/tovan/Frameworks/Mervane.framework/Resources/mervaned";
const std::string kResources = TOVAN_BUILD_DIR "/lib/tovan/Frameworks/Lumisphere.framework/Resources/";
const std::string kProgram = kResources + "LumisphereJobController.bundle/Contents/Linux/LumisphereJobController";

CFStringRef daemonKey() { return CFSTR("mervaned"); }
CFStringRef kind() { return CFSTR("jobcontroller:com.brant.lumisphere.cluster.admin"); }

CSharedCFRef<CFStringRef> stringOf(const std::string& text) {
  return CFStringCreateWithCString(kCFAllocatorDefault, text.c_str(), kCFStringEncodingUTF8);
}

CSharedCFRef<CFArrayRef> listOf(CFStringRef name) {
  const void* values[] = {name};
  return CFArrayCreate(kCFAllocatorDefault, values, 1, &kCFTypeArrayCallBacks);
}

bool isAlive(pid_t pid) {
  if (::kill(pid, 0) != 0) return false;
  // One that has ended and waits to be collected by somebody else is no process.
  std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
  std::string text;
  std::getline(stat, text);
  return text.find(") Z") == std::string::npos;
}

class MervanedTest : public testing::Test {
 protected:
  void SetUp() override { std::filesystem::remove_all(test::scratchHome() + "/Library"); }

  static std::unique_ptr<RunningProgram> launch(const Arguments& arguments = {}) {
    return std::make_unique<RunningProgram>(kDaemon, arguments);
  }
  // Started and registered.
  static std::unique_ptr<RunningProgram> start(const Arguments& arguments = {}) {
    auto daemon = launch(arguments);
    EXPECT_TRUE(runLoopUntil([&] { return isDaemonRunning() || daemon->hasEnded(); })) << daemon->output();
    EXPECT_TRUE(isDaemonRunning()) << daemon->output();
    return daemon;
  }

  // A service of a given program.
  static void install(CFStringRef name, const std::string& program, bool enabled, int instances = 1,
                      CFStringRef launchHint = nullptr) {
    test::createShippedConfiguration();
    tovan::CServiceCacheFile file;
    file.refresh();
    tovan::CServiceCacheEntry entry(name, nullptr);
    entry.setPath(stringOf(program).get());
    entry.setLaunchHint(launchHint);
    entry.instances = instances;
    entry.enabled = enabled;
    file.put(entry);
    file.flush();
  }
  static void setEnabled(CFStringRef name, bool enabled) {
    tovan::CServiceCacheFile file;
    file.refresh();
    tovan::CServiceCacheEntry entry;
    ASSERT_TRUE(file.get(name, entry));
    entry.enabled = enabled;
    file.put(entry);
    file.flush();
  }
  // A program that appends its process id and arguments to a file and goes on with the commands.
  static std::string script(const std::string& commands, std::string& record) {
    const std::string folder = test::scratchFolder("script");
    record = folder + "/record";
    test::writeFile(folder + "/service", "#!/bin/sh\necho $$ \"$@\" >> '" + record + "'\n" + commands + "\n");
    EXPECT_EQ(::chmod((folder + "/service").c_str(), 0755), 0);
    return folder + "/service";
  }
  // A service that does not end when it is asked to, and whether it has come so far.
  static void installStubborn(std::string& record) {
    install(CFSTR("stubborn:service"),
            script("trap '' TERM\necho ready >> \"$0.ready\"\nwhile :; do sleep 0.05; done", record), true);
  }
  static bool isStubbornReady(const std::string& record) {
    const std::string ready = std::filesystem::path(record).parent_path().string() + "/service.ready";
    return runLoopUntil([&] { return test::exists(ready); });
  }
  static std::vector<std::string> linesOf(const std::string& record) {
    std::vector<std::string> lines;
    std::ifstream file(record);
    for (std::string line; std::getline(file, line);) lines.push_back(line);
    return lines;
  }
  static std::string logPath() { return test::scratchHome() + "/Library/Logs/Lumisphere/mervaned.log"; }
  static bool hasInstances(CFStringRef name, std::size_t count) {
    return runLoopUntil([&] { return livePids(name).size() == count; });
  }
  static std::vector<std::int32_t> livePids(CFStringRef name) {
    std::vector<std::int32_t> pids = test::registeredPids(name);
    std::erase_if(pids, [](std::int32_t pid) { return !isAlive(pid); });
    return pids;
  }
  // The process of a service that has one; -1 when it has none or several.
  static pid_t onlyPid(CFStringRef name) {
    const auto pids = livePids(name);
    return pids.size() == 1 ? pids.front() : -1;
  }
  static bool isReplaced(CFStringRef name, pid_t before) {
    const pid_t now = onlyPid(name);
    return now > 0 && now != before;
  }
  static void tellDaemon(CFStringRef name, CFTypeRef wish) {
    const CSharedCFRef<CFMutableDictionaryRef> list(CFUtil::CFDictMakeMutable()), info(CFUtil::CFDictMakeMutable());
    CFUtil::CFDictSet(list.get(), name, wish);
    CFUtil::CFDictSet(info.get(), kDictKeyServiceList, list.get());
    signalDaemon(kTovanPrefsChangedNotification, info.get());
  }
  static bool answersAPing() {
    NotificationLog log;
    log.observe(kTovanDaemonRunningNotification, kTovanDaemonID);
    return runLoopUntil([&] {
      if (log.all.empty()) pingDaemon();
      return !log.all.empty();
    });
  }

  test::PrivateBus bus_;
};

TEST_F(MervanedTest, ItRegistersAnnouncesItselfAndTakesItsRegistrationAwayAtTheEnd) {
  NotificationLog log;
  log.observe(kTovanDaemonStartedNotification, kTovanDaemonID);
  const auto daemon = start();
  EXPECT_THAT(test::registeredPids(daemonKey()), ElementsAre(daemon->pid()));
  tovan::CServicePIDFile file(daemonKey());
  CSharedCFRef<CFStringRef> kindText, name, version;
  ASSERT_TRUE(file.processAttributes(daemon->pid(), kindText, name, version));
  EXPECT_TRUE(CFEqual(kindText.get(), CFSTR("mervaned")));
  EXPECT_TRUE(CFEqual(name.get(), CFSTR("mervaned")));
  EXPECT_TRUE(CFEqual(version.get(), CFSTR("2")));
  ASSERT_TRUE(log.await(1));
  std::int32_t pid = 0;
  EXPECT_TRUE(CFUtil::CFDictGetInt(log.all[0].userInfo.get(), kDictKeyProcessID, pid));
  EXPECT_EQ(pid, daemon->pid());
  EXPECT_EQ(daemon->end(), 0) << daemon->output();
  EXPECT_FALSE(isDaemonRunning());
  EXPECT_TRUE(test::registeredPids(daemonKey()).empty());
  EXPECT_FALSE(test::isDescribed(daemon->pid()));
}

TEST_F(MervanedTest, ItLogsItsLifeFromTheBeginningOfTheSessionToItsEnd) {
  install(kind(), kProgram, true);
  const auto daemon = start({"--client-check", "7.5"});
  ASSERT_TRUE(hasInstances(kind(), 1));
  tellDaemon(CFSTR("unknown"), kCFBooleanTrue);
  ASSERT_TRUE(daemon->prints("there is no service unknown to start"));
  EXPECT_EQ(daemon->end(), 0) << daemon->output();
  const std::string log = test::readFile(logPath());
  std::size_t at = 0;
  for (const char* const part :
       {"kind=\"begin\" what=\"log-session\"/>", "msg=\"mervaned, version 2 of the daemon, ",
        "msg=\"options: restart delay 1 s, at most 60 s; stop limit 30 s, cancel limit 5 s; client check every 7.5 s; "
        "storage limit 5 s\"",
        "msg=\"started\"", "kind=\"begin\" what=\"sync-services\"/>",
        "msg=\"jobcontroller:com.brant.lumisphere.cluster.admin instance 0 started as process ",
        "kind=\"end\" what=\"sync-services\"/>", "kind=\"begin\" what=\"preferences-changed\" msg=\"a service list\"/>",
        "lvl=\"2\" msg=\"there is no service unknown to start\"", "kind=\"end\" what=\"preferences-changed\"/>",
        "msg=\"asked to end\"", "kind=\"begin\" what=\"end-services\" msg=\"stop\"/>", ") ended with code 0\"",
        "kind=\"end\" what=\"end-services\"/>", "kind=\"end\" what=\"log-session\"/>\n"}) {
    at = log.find(part, at);
    ASSERT_NE(at, std::string::npos) << part << "\nis missing or misplaced in\n" << log;
  }
  EXPECT_THAT(log, testing::EndsWith("what=\"log-session\"/>\n"));
}

TEST_F(MervanedTest, ARestartEndsTheSessionOfTheLogAndBeginsAnother) {
  const auto sessions = [] {
    std::string found;
    for (const std::string& line : linesOf(logPath())) {
      if (line.find("what=\"log-session\"") == std::string::npos) continue;
      found += line.find("kind=\"begin\"") != std::string::npos ? "(" : ")";
    }
    return found;
  };
  const auto daemon = start();
  restartDaemon(false);
  ASSERT_TRUE(test::runLoopUntil([&] { return sessions() == "()("; })) << daemon->output();
  EXPECT_EQ(daemon->end(), 0) << daemon->output();
  EXPECT_EQ(sessions(), "()()");
}

TEST_F(MervanedTest, ASecondDaemonEndsAtOnceAndSaysWhoRuns) {
  const auto first = start();
  const std::string log = test::readFile(logPath());
  const test::CommandResult second = test::runCommand(kDaemon, {});
  EXPECT_EQ(second.status, 3);
  EXPECT_THAT(second.err,
              HasSubstr("another mervaned of this user runs, process " + std::to_string(first->pid()) + "\n"));
  EXPECT_THAT(test::registeredPids(daemonKey()), ElementsAre(first->pid()));
  EXPECT_TRUE(answersAPing());
  EXPECT_THAT(test::readFile(logPath()), testing::StartsWith(log)) << "the log is the first one's";
  EXPECT_THAT(test::readFile(logPath()), Not(HasSubstr("another mervaned")));
}

TEST_F(MervanedTest, OfManyThatStartTogetherOneStays) {
  std::vector<std::unique_ptr<RunningProgram>> daemons;
  for (int i = 0; i < 8; ++i) daemons.push_back(launch());
  const auto running = [&] {
    return std::count_if(daemons.begin(), daemons.end(), [](const auto& daemon) { return !daemon->hasEnded(); });
  };
  ASSERT_TRUE(runLoopUntil([&] { return running() == 1 && isDaemonRunning(); })) << running();
  for (const auto& daemon : daemons) {
    if (daemon->hasEnded()) {
      EXPECT_EQ(daemon->waitForEnd(), 3) << daemon->output();
    } else {
      EXPECT_THAT(test::registeredPids(daemonKey()), ElementsAre(daemon->pid()));
    }
  }
}

TEST_F(MervanedTest, AStaleRegistrationGivesWay) {
  const pid_t dead = test::deadPid();
  tovan::CServicePIDFile stale(daemonKey());
  stale.put({dead, 0, -1});
  const auto daemon = start();
  EXPECT_THAT(test::registeredPids(daemonKey()), ElementsAre(daemon->pid()));
}

TEST_F(MervanedTest, AfterAKillTheNextOneTakesThePlaceAndTheServicesOfTheFirstAreGone) {
  install(kind(), kProgram, true);
  const auto first = start();
  ASSERT_TRUE(hasInstances(kind(), 1)) << first->output();
  const pid_t service = onlyPid(kind());
  ASSERT_GT(service, 0);
  EXPECT_EQ(first->end(SIGKILL), 128 + SIGKILL);
  EXPECT_TRUE(runLoopUntil([&] { return !isAlive(service); })) << "a service outlived its daemon";
  EXPECT_FALSE(isDaemonRunning());
  const auto second = start();
  EXPECT_THAT(test::registeredPids(daemonKey()), ElementsAre(second->pid()));
  EXPECT_TRUE(hasInstances(kind(), 1));
}

TEST_F(MervanedTest, ItAnswersAPing) {
  const auto daemon = start();
  NotificationLog log;
  log.observe(kTovanDaemonRunningNotification, kTovanDaemonID);
  pingDaemon();
  ASSERT_TRUE(log.await(1));
  std::int32_t pid = 0;
  EXPECT_TRUE(CFUtil::CFDictGetInt(log.all[0].userInfo.get(), kDictKeyProcessID, pid));
  EXPECT_EQ(pid, daemon->pid());
}

TEST_F(MervanedTest, EveryInstanceOfAnEnabledServiceIsStartedWithItsCommandLine) {
  std::string record, agentRecord;
  install(CFSTR("one:service"), script("exec sleep 1000", record), true, 3);
  install(CFSTR("agent:service"), script("exec sleep 1000", agentRecord), true, 1, CFSTR("launchd.LaunchAgent.User"));
  const auto daemon = start();
  ASSERT_TRUE(runLoopUntil([&] { return linesOf(record).size() == 3; })) << daemon->output();
  std::string all;
  for (const std::string& line : linesOf(record)) all += line + "\n";
  for (const char* const index : {"0", "1", "2"}) EXPECT_THAT(all, HasSubstr(std::string(" -idx ") + index + " "));
  EXPECT_THAT(all, HasSubstr(" -id "));
  EXPECT_TRUE(answersAPing());
  EXPECT_TRUE(linesOf(agentRecord).empty()) << "launchd's service was started by the daemon";
}

TEST_F(MervanedTest, SyncingStartsAndStopsAService) {
  install(kind(), kProgram, false, 2);
  const auto daemon = start();
  setEnabled(kind(), true);
  syncServices(listOf(kind()).get());
  ASSERT_TRUE(hasInstances(kind(), 2)) << daemon->output();
  const auto before = livePids(kind());
  syncServices(listOf(kind()).get());
  EXPECT_TRUE(answersAPing());
  EXPECT_EQ(livePids(kind()), before) << "what runs is left alone";
  setEnabled(kind(), false);
  syncServices(listOf(kind()).get());
  EXPECT_TRUE(hasInstances(kind(), 0)) << daemon->output();
  EXPECT_TRUE(runLoopUntil([] { return test::registeredPids(kind()).empty(); }));
}

TEST_F(MervanedTest, TheInstanceCountIsFollowedUpAndDown) {
  install(kind(), kProgram, true, 1);
  const auto daemon = start();
  ASSERT_TRUE(hasInstances(kind(), 1));
  const pid_t first = onlyPid(kind());
  ASSERT_GT(first, 0);
  install(kind(), kProgram, true, 3);
  syncServices(nullptr);
  ASSERT_TRUE(hasInstances(kind(), 3)) << daemon->output();
  install(kind(), kProgram, true, 1);
  syncServices(nullptr);
  ASSERT_TRUE(hasInstances(kind(), 1)) << daemon->output();
  EXPECT_EQ(onlyPid(kind()), first) << "instance 0 stays";
}

TEST_F(MervanedTest, WithoutAServiceListTheWholeCacheIsReadAgain) {
  std::string record;
  install(CFSTR("one:service"), script("exec sleep 1000", record), true);
  install(kind(), kProgram, false);
  const auto daemon = start();
  ASSERT_TRUE(runLoopUntil([&] { return linesOf(record).size() == 1; }));
  const pid_t removed = std::stoi(linesOf(record).front());
  tovan::CServiceCacheFile file;
  file.refresh();
  ASSERT_TRUE(file.remove(CFSTR("one:service")));
  file.flush();
  setEnabled(kind(), true);
  syncServices(nullptr);
  EXPECT_TRUE(hasInstances(kind(), 1)) << daemon->output();
  EXPECT_TRUE(runLoopUntil([&] { return !isAlive(removed); })) << "a service that is no longer installed goes on";
}

TEST_F(MervanedTest, RestartIsForServicesThatRunOrAreEnabled) {
  install(kind(), kProgram, true);
  install(CFSTR("off:service"), kProgram, false);
  const auto daemon = start();
  ASSERT_TRUE(hasInstances(kind(), 1));
  const pid_t before = onlyPid(kind());
  ASSERT_GT(before, 0);
  restartServices(listOf(CFSTR("off:service")).get());
  restartServices(listOf(kind()).get());
  EXPECT_TRUE(runLoopUntil([&] { return isReplaced(kind(), before); })) << daemon->output();
  EXPECT_FALSE(isAlive(before));
  EXPECT_THAT(daemon->output(), HasSubstr("the service off:service does not run, and is not restarted"));
}

TEST_F(MervanedTest, AServiceRestartRequestIsForItsKindAndUserOnly) {
  install(kind(), kProgram, true);
  const auto daemon = start();
  ASSERT_TRUE(hasInstances(kind(), 1));
  const pid_t before = onlyPid(kind());
  ASSERT_GT(before, 0);
  const CSharedCFRef<CFMutableDictionaryRef> request(CFUtil::CFDictMakeMutable());
  sendNotification(kTovanServiceRestartNotification, nullptr, nullptr);
  CFUtil::CFDictSetString(request.get(), kDictKeyServiceType, kind());
  sendNotification(kTovanServiceRestartNotification, nullptr, request.get());
  CFUtil::CFDictSetInt(request.get(), kDictKeyUserID, static_cast<std::int32_t>(::geteuid()) + 1);
  sendNotification(kTovanServiceRestartNotification, nullptr, request.get());
  restartMervaneService(CFSTR("another:kind"));
  ASSERT_TRUE(answersAPing());
  EXPECT_THAT(livePids(kind()), ElementsAre(before));
  EXPECT_THAT(daemon->output(), HasSubstr("without its kind or its user: ignored"));
  restartMervaneService(kind());
  EXPECT_TRUE(runLoopUntil([&] { return isReplaced(kind(), before); })) << daemon->output();
}

TEST_F(MervanedTest, ALaunchdServiceIsRestartedByEndingItsRegisteredProcesses) {
  install(kind(), kProgram, true, 1, CFSTR("launchd.LaunchAgent.User"));
  RunningProgram service(kProgram, {});
  ASSERT_TRUE(hasInstances(kind(), 1));
  RunningProgram bystander("/bin/sleep", {"1000"});
  auto pids = test::registeredPids(kind());
  pids.push_back(bystander.pid());
  tovan::CServicePIDFile file(kind());
  file.put(pids);
  file.setProcessAttributes(bystander.pid(), kind(), CFSTR("LumisphereJobController"), CFSTR("1"));
  const auto daemon = start();
  restartServices(listOf(kind()).get());
  EXPECT_EQ(service.waitForEnd(), 0) << daemon->output();
  EXPECT_TRUE(daemon->prints(": 1 processes asked to end"));
  EXPECT_FALSE(bystander.hasEnded()) << "a process id that passed on to another program was signalled";
}

TEST_F(MervanedTest, ACrashingServiceIsStartedAgainAfterDelaysThatDouble) {
  std::string record;
  install(CFSTR("one:service"), script("exit 3", record), true);
  // The limit is also how long a service runs well: even a busy host takes less to run this one.
  const auto daemon = start({"--restart-delay", "0.05", "--restart-delay-limit", "20"});
  ASSERT_TRUE(runLoopUntil([&] { return linesOf(record).size() >= 5; })) << daemon->output();
  const std::string output = daemon->output();
  std::size_t at = 0;
  for (const char* const delay : {"0.05 s", "0.1 s", "0.2 s", "0.4 s"}) {
    const std::string text = "ended with code 3 by itself; it is started again in ";
    at = output.find(text, at);
    ASSERT_NE(at, std::string::npos) << output;
    at += text.size();
    EXPECT_EQ(output.substr(at, output.find('\n', at) - at), delay) << output;
  }
}

TEST_F(MervanedTest, AServiceThatRanWellIsStartedAgainWithTheFirstDelay) {
  std::string record;
  install(CFSTR("one:service"), script("sleep 0.3", record), true);
  const auto daemon = start({"--restart-delay", "0.05", "--restart-delay-limit", "0.2"});
  ASSERT_TRUE(runLoopUntil([&] { return linesOf(record).size() >= 4; })) << daemon->output();
  EXPECT_THAT(daemon->output(), HasSubstr("again in 0.05 s"));
  EXPECT_THAT(daemon->output(), Not(HasSubstr("again in 0.1 s")));
}

TEST_F(MervanedTest, AKilledServiceComesBackAndAProgramThatIsMissingIsTriedAgain) {
  install(kind(), kProgram, true);
  install(CFSTR("no:service"), "/nowhere/at all", true);
  const auto daemon = start({"--restart-delay", "0.05"});
  ASSERT_TRUE(hasInstances(kind(), 1));
  const pid_t before = onlyPid(kind());
  ASSERT_GT(before, 0);
  ::kill(before, SIGKILL);
  EXPECT_TRUE(runLoopUntil([&] { return isReplaced(kind(), before); }));
  EXPECT_TRUE(daemon->prints("ended with code 9 by itself"));
  EXPECT_TRUE(daemon->prints("no:service instance 0 (process "));
}

TEST_F(MervanedTest, ClientsThatAreGoneLoseTheirPlace) {
  tovan::CServicePIDFile clients(CFSTR("mervaneclients"));
  const auto daemon = start({"--client-check", "0.05"});
  EXPECT_TRUE(addMervaneClient());
  clients.put({test::deadPid(), ::getpid(), -1, 0});
  EXPECT_TRUE(runLoopUntil(
      [] { return test::registeredPids(CFSTR("mervaneclients")) == std::vector<std::int32_t>{::getpid()}; }));
  EXPECT_TRUE(isDaemonRunning()) << "other entries stay";
}

TEST_F(MervanedTest, AskedToEndItLeavesNothingRunning) {
  for (const int signal : {SIGTERM, SIGINT}) {
    std::string record;
    install(kind(), kProgram, true, 2);
    installStubborn(record);
    const auto daemon = start({"--stop-limit", "0.3"});
    ASSERT_TRUE(hasInstances(kind(), 2));
    ASSERT_TRUE(isStubbornReady(record));
    std::vector<pid_t> pids(livePids(kind()));
    pids.push_back(std::stoi(linesOf(record).front()));
    EXPECT_EQ(daemon->end(signal), 0) << daemon->output();
    for (const pid_t pid : pids) EXPECT_FALSE(isAlive(pid)) << pid << "\n" << daemon->output();
    EXPECT_THAT(daemon->output(), HasSubstr("does not end: killed"));
    EXPECT_TRUE(test::registeredPids(kind()).empty());
    EXPECT_TRUE(test::registeredPids(daemonKey()).empty());
  }
}

TEST_F(MervanedTest, ASecondSignalDoesNotWaitForTheLimit) {
  std::string record;
  installStubborn(record);
  const auto daemon = start({"--stop-limit", "1000"});
  ASSERT_TRUE(isStubbornReady(record));
  daemon->signal(SIGTERM);
  ASSERT_TRUE(daemon->prints("asked to end"));
  EXPECT_FALSE(daemon->hasEnded());
  EXPECT_EQ(daemon->end(SIGTERM), 0) << daemon->output();
  EXPECT_FALSE(isAlive(std::stoi(linesOf(record).front())));
}

TEST_F(MervanedTest, NothingIsMountedAnyMoreWhileTheServicesEnd) {
  std::string record;
  installStubborn(record);
  const auto daemon = start({"--stop-limit", "1000"});
  ASSERT_TRUE(isStubbornReady(record));
  daemon->signal(SIGTERM);
  ASSERT_TRUE(daemon->prints("asked to end"));
  const std::string mountPoint = test::scratchFolder("mount point");
  const test::CommandResult result = test::runCommand("tovanctl", {"storage", "mount", "host:/a", mountPoint});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("the daemon is about to end"));
  EXPECT_EQ(daemon->end(SIGTERM), 0) << daemon->output();
}

TEST_F(MervanedTest, ServicesWhoseJobsAreCancelledHaveLessTimeToEnd) {
  std::string record;
  install(kind(), script("trap '' TERM\necho >> \"$0.ready\"\nwhile :; do sleep 0.05; done", record), true);
  const auto daemon = start({"--stop-limit", "1000", "--cancel-limit", "0.1"});
  const std::string ready = std::filesystem::path(record).parent_path() / "service.ready";
  const auto started = [&] { return linesOf(ready).size(); };
  ASSERT_TRUE(runLoopUntil([&] { return started() == 1; }));
  restartMervaneJCService(false);
  ASSERT_TRUE(daemon->prints("restarting"));
  EXPECT_FALSE(runLoopUntil([&] { return !isAlive(std::stoi(linesOf(record)[0])); }, 0.5));
  restartMervaneJCService(true);
  ASSERT_TRUE(runLoopUntil([&] { return started() == 2; })) << daemon->output();
  EXPECT_FALSE(isAlive(std::stoi(linesOf(record)[0])));
  restartDaemon(true);
  ASSERT_TRUE(runLoopUntil([&] { return started() == 3; })) << daemon->output();
  EXPECT_FALSE(isAlive(std::stoi(linesOf(record)[1])));
  daemon->signal(SIGTERM);
  ASSERT_TRUE(daemon->prints("asked to end"));
  EXPECT_EQ(daemon->end(SIGTERM), 0) << daemon->output();
}

TEST_F(MervanedTest, ItRestartsInPlaceWithFreshServices) {
  install(kind(), kProgram, true);
  const auto daemon = start();
  ASSERT_TRUE(hasInstances(kind(), 1));
  NotificationLog log;
  log.observe(kTovanDaemonStartedNotification, kTovanDaemonID);
  // To the daemon both are the same request.
  std::size_t restarts = 0;
  for (void (*const ask)(bool) : {restartDaemon, stopDaemon}) {
    for (const bool cancelJobs : {false, true}) {
      const pid_t before = onlyPid(kind());
      ASSERT_GT(before, 0);
      ask(cancelJobs);
      ASSERT_TRUE(log.await(++restarts)) << daemon->output();
      ASSERT_TRUE(runLoopUntil([&] { return isReplaced(kind(), before); })) << daemon->output();
      EXPECT_FALSE(isAlive(before));
      EXPECT_THAT(test::registeredPids(daemonKey()), ElementsAre(daemon->pid())) << "the process stays the same";
      EXPECT_TRUE(isDaemonRunning());
    }
  }
  EXPECT_EQ(daemon->end(), 0) << daemon->output();
}

TEST_F(MervanedTest, RequestsOfOtherSendersDoNotRestartIt) {
  const auto daemon = start();
  signalFrom(kTovanDaemonRestartNotification, CFSTR("somebody"), nullptr);
  signalFrom(kTovanDaemonRestartNotification, nullptr, nullptr);
  EXPECT_TRUE(answersAPing());
  EXPECT_THAT(daemon->output(), Not(HasSubstr("asked to restart")));
}

TEST_F(MervanedTest, ASignalDuringARestartEndsItWhereverItMeetsIt) {
  for (int i = 0; i < 16; ++i) {
    const auto daemon = start();
    stopDaemon(true);
    // From before the request is read to behind the restart.
    ::usleep(static_cast<useconds_t>(i * 700));
    daemon->signal(SIGTERM);
    EXPECT_EQ(daemon->waitForEnd(), 0) << i << "\n" << daemon->output();
    EXPECT_TRUE(test::registeredPids(daemonKey()).empty()) << i;
  }
}

TEST_F(MervanedTest, ASignalDuringARestartLeavesTheServicesTheirTime) {
  std::string record;
  install(CFSTR("slow:service"),
          script("trap 'sleep 0.5; echo > \"$0.saved\"; exit 0' TERM\necho > \"$0.ready\"\n"
                 "while :; do sleep 0.05; done",
                 record),
          true);
  const auto daemon = start({"--stop-limit", "1000"});
  const std::string service = std::filesystem::path(record).parent_path() / "service";
  ASSERT_TRUE(runLoopUntil([&] { return test::exists(service + ".ready"); }));
  stopDaemon(false);
  ASSERT_TRUE(daemon->prints("asked to restart"));
  EXPECT_EQ(daemon->end(SIGTERM), 0) << daemon->output();
  EXPECT_TRUE(test::exists(service + ".saved")) << "it was killed\n" << daemon->output();
}

TEST_F(MervanedTest, ABusThatComesBackHasTheDaemonAgain) {
  install(kind(), kProgram, true);
  const auto daemon = start({"--restart-delay", "0.05"});
  ASSERT_TRUE(hasInstances(kind(), 1));
  bus_.kill();
  const pid_t before = onlyPid(kind());
  ASSERT_GT(before, 0);
  ::kill(before, SIGKILL);
  EXPECT_TRUE(runLoopUntil([&] { return isReplaced(kind(), before); }, 30))
      << "without the bus nobody notices the end\n"
      << daemon->output();
  bus_.restart();
  EXPECT_TRUE(answersAPing()) << daemon->output();
  EXPECT_EQ(daemon->end(), 0) << daemon->output();
}

TEST_F(MervanedTest, DamagedRequestsAreSaidAndSurvived) {
  install(kind(), kProgram, true);
  const auto daemon = start();
  ASSERT_TRUE(hasInstances(kind(), 1));
  const auto before = livePids(kind());
  const CSharedCFRef<CFMutableDictionaryRef> info(CFUtil::CFDictMakeMutable());
  CFUtil::CFDictSetString(info.get(), kDictKeyServiceList, CFSTR("no dictionary"));
  signalDaemon(kTovanPrefsChangedNotification, info.get());
  tellDaemon(kind(), CFSTR("Frobnicate"));
  tellDaemon(CFSTR("un\nknown"), kCFBooleanTrue);
  tellDaemon(CFSTR("unknown"), CFSTR("Restart"));
  tellDaemon(CFSTR("unknown"), kCFBooleanFalse);
  // A task that died, says somebody: no address, no number, an address of nothing.
  sendNotification(kTovanTaskTerminatedNotification, nullptr, nullptr);
  CFUtil::CFDictSetString(info.get(), kDictKeyTaskPtr, CFSTR("1"));
  sendNotification(kTovanTaskTerminatedNotification, nullptr, info.get());
  CFUtil::CFDictSetInt(info.get(), kDictKeyTaskPtr, 12345);
  sendNotification(kTovanTaskTerminatedNotification, nullptr, info.get());
  EXPECT_TRUE(answersAPing()) << daemon->output();
  EXPECT_EQ(livePids(kind()), before);
  EXPECT_THAT(daemon->output(), HasSubstr("a service list that is no dictionary: ignored"));
  EXPECT_THAT(daemon->output(), HasSubstr("is neither a boolean nor \"Restart\": ignored"));
  EXPECT_THAT(daemon->output(), HasSubstr("there is no service un?known to start")) << "one line, whatever the name is";
  EXPECT_THAT(daemon->output(), HasSubstr("there is no service unknown to restart"));
}

TEST_F(MervanedTest, AConfigurationThatCannotBeReadEndsNothingAndIsReadWhenMended) {
  install(kind(), kProgram, true);
  const std::string path = test::scratchHome() + "/Library/Application Support/Lumisphere/LumisphereConfig.plist";
  const auto daemon = start();
  ASSERT_TRUE(hasInstances(kind(), 1)) << daemon->output();
  setEnabled(kind(), false);
  const std::string good = test::readFile(path);
  test::writeFile(path, "<plist><dict><key>broken");
  signalDaemon(kTovanPrefsChangedNotification, nullptr);
  EXPECT_TRUE(daemon->prints("(" + path + ")"));
  EXPECT_TRUE(answersAPing());
  EXPECT_EQ(livePids(kind()).size(), 1U) << "a damaged file ends no service";
  EXPECT_EQ(test::readFile(path), "<plist><dict><key>broken");
  test::writeFile(path, good);
  syncServices(nullptr);
  EXPECT_TRUE(hasInstances(kind(), 0)) << daemon->output();
}

TEST_F(MervanedTest, ARegistrationThatCannotBeWrittenIsAFailure) {
  const std::string path = test::scratchHome() + "/Library/Application Support/Lumisphere/LumispherePID.plist";
  test::makeFolders(std::filesystem::path(path).parent_path());
  test::writeFile(path, "<plist><dict><key>broken");
  const test::CommandResult result = test::runCommand(kDaemon, {});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("(" + path + ")"));
  EXPECT_EQ(test::readFile(path), "<plist><dict><key>broken");
}

TEST_F(MervanedTest, StartDaemonBringsItUpDetachedWithItsStreamsSet) {
  const std::string path = test::scratchFolder("streams") + "/daemon.log";
  tovan::CTovanConfigFile config;
  config.stdoutPath = stringOf(path);
  config.flush();
  ASSERT_NO_THROW(startDaemon());
  ASSERT_TRUE(isDaemonRunning());
  const pid_t pid = test::registeredPids(daemonKey()).front();
  EXPECT_EQ(std::filesystem::read_symlink("/proc/" + std::to_string(pid) + "/fd/0"), "/dev/null");
  EXPECT_NE(::getsid(pid), ::getsid(0));
  EXPECT_TRUE(
      runLoopUntil([&] { return test::exists(path) && test::readFile(path).find("started") != std::string::npos; }));
  EXPECT_NO_THROW(startDaemon()) << "it runs already";
  EXPECT_THAT(test::registeredPids(daemonKey()), ElementsAre(pid));
  ::kill(pid, SIGTERM);
  EXPECT_TRUE(runLoopUntil([&] { return !isAlive(pid); })) << test::readFile(path);
  EXPECT_FALSE(isDaemonRunning());
}

TEST_F(MervanedTest, HelpAndVersionAreResultsAndAWrongCommandLineIsStatusTwo) {
  const test::CommandResult help = test::runCommand(kDaemon, {"--help"});
  EXPECT_EQ(help.status, 0);
  for (const char* const option : {"--restart-delay", "--restart-delay-limit", "--stop-limit", "--cancel-limit",
                                   "--client-check", "--storage-limit"}) {
    EXPECT_THAT(help.out, HasSubstr(option));
  }
  const test::CommandResult version = test::runCommand(kDaemon, {"--version"});
  EXPECT_EQ(version.status, 0);
  EXPECT_THAT(version.out, HasSubstr("TovanCore-303"));
  for (const Arguments& arguments : std::vector<Arguments>{{"--frobnicate"},
                                                           {"word"},
                                                           {"--stop-limit"},
                                                           {"--stop-limit", "-1"},
                                                           {"--client-check", "0"},
                                                           {"--restart-delay", "soon"}}) {
    const test::CommandResult result = test::runCommand(kDaemon, arguments);
    EXPECT_EQ(result.status, 2) << arguments.front();
    EXPECT_NE(result.err, "");
    EXPECT_FALSE(isDaemonRunning());
  }
}

}  // namespace
