// The sample services as their starters and their observers meet them: real processes, a scratch home, a private bus.
#include <gmock/gmock.h>
#include <tovan/cf_util.h>
#include <tovan/constants.h>
#include <tovan/notifications.h>
#include <tovan/tovan_config_file.h>

#include <cstdlib>
#include <filesystem>
#include <memory>

#include "tests/support/command.h"
#include "tests/support/private_bus.h"
#include "tests/tools/integration/running_program.h"

namespace {

using namespace tovan::TovanCorePrivate;
using namespace tovan::TovanNotification;
using plinth::CSharedCFRef;
using test::NotificationLog;
using test::RunningProgram;
using testing::HasSubstr;
using testing::UnorderedElementsAre;
using tovan::CFUtil;

const std::string kResources = TOVAN_BUILD_DIR "/lib/tovan/Frameworks/Lumisphere.framework/Resources/";
const std::string kTranscoder = kResources + "LumisphereTranscoder.bundle/Contents/Linux/LumisphereTranscoder";
const std::string kJobController = kResources + "LumisphereJobController.bundle/Contents/Linux/LumisphereJobController";

const std::string kTranscoderName = "servicecontroller:com.brant.klarn.transcoder.klarn";

CFStringRef transcoderKind() { return CFSTR("servicecontroller:com.brant.klarn.transcoder.klarn"); }
CFStringRef jobControllerKind() { return CFSTR("jobcontroller:com.brant.lumisphere.cluster.admin"); }

std::string textAt(CFDictionaryRef dictionary, CFStringRef key) {
  CFStringRef value = nullptr;
  if (!CFUtil::CFDictGetString(dictionary, key, value)) return "(none)";
  char text[256];
  return CFStringGetCString(value, text, sizeof text, kCFStringEncodingUTF8) ? text : "(long)";
}

int numberAt(CFDictionaryRef dictionary, CFStringRef key) {
  std::int32_t value = 0;
  return CFUtil::CFDictGetInt(dictionary, key, value) ? value : -1;
}

class SampleServiceTest : public testing::Test {
 protected:
  void SetUp() override { std::filesystem::remove_all(test::scratchHome() + "/Library"); }

  static bool isRegistered(const RunningProgram& service, CFStringRef kind = transcoderKind()) {
    const auto pids = test::registeredPids(kind);
    return std::find(pids.begin(), pids.end(), service.pid()) != pids.end() && test::isDescribed(service.pid());
  }
  static bool comesUp(const RunningProgram& service, CFStringRef kind = transcoderKind()) {
    return test::runLoopUntil([&] { return isRegistered(service, kind); });
  }

  // The log of an instance of the transcoder.
  static std::string logPath(int instance) {
    return test::scratchHome() + "/Library/Logs/Lumisphere/" + kTranscoderName +
           (instance == 0 ? "" : "-" + std::to_string(instance)) + ".log";
  }
  // Whether the text is in it, within some time.
  static bool logs(const std::string& text, int instance) {
    const std::string path = logPath(instance);
    return test::runLoopUntil(
        [&] { return test::exists(path) && test::readFile(path).find(text) != std::string::npos; });
  }

  test::PrivateBus bus_;
};

TEST_F(SampleServiceTest, AnUnusableCommandLineIsNamedAndEndsWithStatusTwo) {
  const struct {
    std::vector<std::string> arguments;
    std::string message;
  } cases[] = {
      {{"-x"}, "unknown option \"-x\""},
      {{"word"}, "unknown option \"word\""},
      {{"-idx"}, "-idx needs a value"},
      {{"-idx", "-1"}, "-idx takes a number from 0 on, not \"-1\""},
      {{"-idx", "1x"}, "-idx takes a number from 0 on, not \"1x\""},
      {{"-idx", ""}, "-idx takes a number from 0 on, not \"\""},
      {{"-idx", "99999999999"}, "-idx takes a number from 0 on"},
      {{"-adv", "tv"}, "-adv takes dn, mc or rv, not \"tv\""},
      {{"-name"}, "-name needs a value"},
      {{"-id"}, "-id needs a value"},
      {{"-ak"}, "-ak needs a value"},
      {{"-v", "-ck"}, "-ck needs a value"},
  };
  for (const auto& one : cases) {
    const test::CommandResult result = test::runCommand(kTranscoder, one.arguments);
    EXPECT_EQ(result.status, 2) << one.message;
    EXPECT_THAT(result.err, HasSubstr(one.message));
    EXPECT_TRUE(test::registeredPids(transcoderKind()).empty());
  }
}

TEST_F(SampleServiceTest, EveryOptionOfACommandLineIsTakenAndStartUpAndStopAreAnnounced) {
  NotificationLog log;
  log.observe(kTovanServiceStartupNotification, transcoderKind());
  log.observe(kTovanServiceStoppedNotification, transcoderKind());
  for (const char* const advertising : {"dn", "mc", "rv"}) {
    log.all.clear();
    RunningProgram service(kTranscoder, {"-d", "-l", "-v", "-adv", advertising, "-idx", "4", "-name", "Render Höst 5",
                                         "-id", "transcode-5", "-ak", "secret", "-ck", "transcode-5", "-pu"});
    ASSERT_TRUE(log.await(1)) << service.output();
    const CFDictionaryRef started = log.all[0].userInfo.get();
    EXPECT_EQ(log.all[0].name, "MervaneServiceStartupNotification2");
    EXPECT_EQ(log.all[0].objectText(), "servicecontroller:com.brant.klarn.transcoder.klarn");
    EXPECT_EQ(textAt(started, kDictKeyServiceKind), "servicecontroller:com.brant.klarn.transcoder.klarn");
    EXPECT_EQ(numberAt(started, kDictKeyServiceInstance), 4);
    EXPECT_EQ(numberAt(started, kDictKeyProcessID), service.pid());
    EXPECT_EQ(numberAt(started, kDictKeyUserID), static_cast<int>(::geteuid()));
    EXPECT_EQ(textAt(started, kDictKeyUniqueID), "transcode-5");
    EXPECT_EQ(textAt(started, kDictKeyName), "Render Höst 5");
    bool logs = false;
    EXPECT_TRUE(CFUtil::CFDictGetBoolean(started, kDictKeyLogging, logs) && logs);
    EXPECT_FALSE(CFDictionaryContainsKey(started, kDictKeyAccessKey)) << "keys are nobody else's business";
    EXPECT_FALSE(CFDictionaryContainsKey(started, kDictKeyCaptureKey)) << "keys are nobody else's business";
    EXPECT_EQ(::getsid(service.pid()), service.pid()) << "-d leaves the starter's session";
    EXPECT_EQ(service.end(), 0) << service.output();
    EXPECT_EQ(service.output(), "");
    ASSERT_TRUE(log.await(2)) << log.text();
    EXPECT_EQ(log.all[1].name, "MervaneServiceStoppedNotification2");
    EXPECT_EQ(numberAt(log.all[1].userInfo.get(), kDictKeyProcessID), service.pid());
  }
}

TEST_F(SampleServiceTest, WithoutOptionsItIsInstanceZeroInItsStartersSessionAndSaysNothing) {
  NotificationLog log;
  log.observe(kTovanServiceStartupNotification, nullptr);
  RunningProgram service(kJobController, {});
  ASSERT_TRUE(log.await(1)) << service.output();
  EXPECT_EQ(log.all[0].objectText(), "jobcontroller:com.brant.lumisphere.cluster.admin");
  EXPECT_EQ(numberAt(log.all[0].userInfo.get(), kDictKeyServiceInstance), 0);
  EXPECT_FALSE(CFDictionaryContainsKey(log.all[0].userInfo.get(), kDictKeyUniqueID));
  EXPECT_EQ(::getsid(service.pid()), ::getsid(0));
  EXPECT_EQ(service.end(), 0);
  EXPECT_EQ(service.output(), "");
}

TEST_F(SampleServiceTest, ThreeInstancesThatStartTogetherAllStandInThePidFile) {
  for (int round = 0; round < 5; ++round) {
    RunningProgram first(kTranscoder, {"-idx", "0"}), second(kTranscoder, {"-idx", "1"}),
        third(kTranscoder, {"-idx", "2"});
    ASSERT_TRUE(comesUp(first) && comesUp(second) && comesUp(third)) << first.output() << second.output();
    EXPECT_THAT(test::registeredPids(transcoderKind()), UnorderedElementsAre(first.pid(), second.pid(), third.pid()));
    EXPECT_EQ(second.end(), 0);
    EXPECT_THAT(test::registeredPids(transcoderKind()), UnorderedElementsAre(first.pid(), third.pid()));
    EXPECT_FALSE(test::isDescribed(second.pid()));
    EXPECT_TRUE(isRegistered(first) && isRegistered(third)) << "an end takes nobody else's entries";
    first.signal(SIGTERM);
    third.signal(SIGINT);
    EXPECT_EQ(first.waitForEnd(), 0);
    EXPECT_EQ(third.waitForEnd(), 0);
    EXPECT_TRUE(test::registeredPids(transcoderKind()).empty());
  }
}

TEST_F(SampleServiceTest, ItRegistersItsKindNameAndVersionAndClearsAwayTheDead) {
  const pid_t dead = test::deadPid();
  tovan::CServicePIDFile(transcoderKind()).put({dead});
  RunningProgram service(kTranscoder, {});
  ASSERT_TRUE(comesUp(service));
  EXPECT_THAT(test::registeredPids(transcoderKind()), testing::ElementsAre(service.pid()));
  tovan::CServicePIDFile file(transcoderKind());
  CSharedCFRef<CFStringRef> kind, name, version;
  ASSERT_TRUE(file.processAttributes(service.pid(), kind, name, version));
  EXPECT_TRUE(CFEqual(kind.get(), transcoderKind()));
  EXPECT_TRUE(CFEqual(name.get(), CFSTR("LumisphereTranscoder")));
  EXPECT_TRUE(version && CFStringGetLength(version.get()) > 0);
}

TEST_F(SampleServiceTest, AStatusRequestIsAnsweredByThoseItMeans) {
  RunningProgram first(kTranscoder, {"-idx", "0", "-id", "one"}), second(kTranscoder, {"-idx", "1"});
  RunningProgram other(kJobController, {"-idx", "0"});
  ASSERT_TRUE(comesUp(first) && comesUp(second) && comesUp(other, jobControllerKind()));
  NotificationLog log;
  log.observe(kTovanServiceStatusNotification, nullptr);
  // Each service answers requests in their order: when all have answered the second one, which means everybody, the
  // answers to the first are complete.
  const auto answersTo = [&log](CFDictionaryRef request, std::size_t expected) {
    log.all.clear();
    sendNotification(kTovanServiceRequestStatusNotification, nullptr, request);
    EXPECT_TRUE(log.await(expected)) << log.text();
    sendNotification(kTovanServiceRequestStatusNotification, nullptr, nullptr);
    EXPECT_TRUE(log.await(expected + 3)) << log.text();
    std::vector<int> pids;
    for (const auto& answer : log.all) pids.push_back(numberAt(answer.userInfo.get(), kDictKeyProcessID));
    return pids;
  };
  const auto timesAsked = [](const std::vector<int>& pids, pid_t pid) {
    return static_cast<int>(std::count(pids.begin(), pids.end(), pid)) - 1;  // one is the answer to the second request
  };
  const CSharedCFRef<CFMutableDictionaryRef> request(CFUtil::CFDictMakeMutable());
  std::vector<int> pids = answersTo(request.get(), 3);
  EXPECT_EQ(pids.size(), 6U);
  CFUtil::CFDictSetString(request.get(), kDictKeyServiceKind, transcoderKind());
  pids = answersTo(request.get(), 2);
  EXPECT_EQ(timesAsked(pids, first.pid()) + timesAsked(pids, second.pid()), 2);
  EXPECT_EQ(timesAsked(pids, other.pid()), 0);
  CFUtil::CFDictSetInt(request.get(), kDictKeyServiceInstance, 0);
  pids = answersTo(request.get(), 1);
  EXPECT_EQ(timesAsked(pids, first.pid()), 1);
  EXPECT_EQ(timesAsked(pids, second.pid()) + timesAsked(pids, other.pid()), 0);
  CFDictionaryRemoveAllValues(request.get());
  CFUtil::CFDictSetInt(request.get(), kDictKeyProcessID, second.pid());
  pids = answersTo(request.get(), 1);
  EXPECT_EQ(timesAsked(pids, second.pid()), 1);
  CFUtil::CFDictSetInt(request.get(), kDictKeyUserID, static_cast<std::int32_t>(::geteuid()) + 1);
  EXPECT_EQ(answersTo(request.get(), 0).size(), 3U) << "another user's request";
  CFDictionaryRemoveAllValues(request.get());
  CFUtil::CFDictSetInt(request.get(), kDictKeyServiceKind, 7);
  EXPECT_EQ(answersTo(request.get(), 0).size(), 3U) << "a kind that is no string means nobody";
}

TEST_F(SampleServiceTest, AStatusReplySaysHowLongTheServiceRuns) {
  RunningProgram service(kTranscoder, {"-idx", "2"});
  ASSERT_TRUE(comesUp(service));
  NotificationLog log;
  log.observe(kTovanServiceStatusNotification, transcoderKind());
  const auto uptime = [&] {
    log.all.clear();
    sendNotification(kTovanServiceRequestStatusNotification, nullptr, nullptr);
    double seconds = -1;
    if (log.await(1)) CFUtil::CFDictGetDouble(log.all[0].userInfo.get(), CFSTR("uptime"), seconds);
    return seconds;
  };
  const double before = uptime();
  EXPECT_GE(before, 0);
  EXPECT_TRUE(test::runLoopUntil([&] { return uptime() > before; }));
}

TEST_F(SampleServiceTest, ItsStreamsAreWhatTheClusterConfigurationSaysAndHaveTheLogWhenItsFileCannotBeHad) {
  const std::string path = test::scratchFolder("streams") + "/service.out";
  test::writeFile(path, "before\n");
  tovan::CTovanConfigFile config;
  config.stdoutPath = CFStringCreateWithCString(kCFAllocatorDefault, path.c_str(), kCFStringEncodingUTF8);
  config.flush();
  test::makeFolders(logPath(3));  // a folder where the file should be
  RunningProgram service(kTranscoder, {"-v", "-idx", "3"});
  ASSERT_TRUE(comesUp(service));
  EXPECT_EQ(std::filesystem::read_symlink("/proc/" + std::to_string(service.pid()) + "/fd/0"), "/dev/null");
  EXPECT_TRUE(
      test::runLoopUntil([&] { return test::readFile(path).find("\"instance 3 started\"") != std::string::npos; }));
  EXPECT_THAT(test::readFile(path), testing::StartsWith("before\nCTovanLogger::startupLogging["));
  EXPECT_EQ(service.end(), 0);
  EXPECT_EQ(service.output(), "");
}

TEST_F(SampleServiceTest, ItLogsItsLifeFromTheBeginningOfTheSessionToItsEnd) {
  RunningProgram service(kTranscoder, {"-v", "-idx", "4", "-name", "Render <Host>", "-ak", "secret"});
  ASSERT_TRUE(logs("msg=\"instance 4 started\"", 4)) << service.output();
  EXPECT_EQ(service.end(), 0);
  const std::string log = test::readFile(logPath(4));
  const std::string pid = "pid=\"" + std::to_string(service.pid()) + "\" ";
  std::size_t at = 0;
  for (const std::string& part :
       {pid + "kind=\"begin\" what=\"log-session\"/>", std::string("msg=\"LumisphereTranscoder "),
        std::string("msg=\"options: instance 4, name 'Render %3CHost%3E', an access key\""),
        pid + "kind=\"begin\" what=\"service\" msg=\"servicecontroller:com.brant.klarn.transcoder.klarn\"/>",
        std::string("msg=\"instance 4 started\""), std::string("msg=\"asked to end\""),
        std::string("msg=\"instance 4 ends\""), pid + "kind=\"end\" what=\"service\"/>",
        pid + "kind=\"end\" what=\"log-session\"/>"}) {
    at = log.find(part, at);
    ASSERT_NE(at, std::string::npos) << part << "\nis missing or misplaced in\n" << log;
  }
  EXPECT_THAT(log, testing::EndsWith("what=\"log-session\"/>\n"));
  EXPECT_THAT(log, testing::Not(HasSubstr("secret"))) << "keys are nobody else's business";
}

TEST_F(SampleServiceTest, WithoutLoggingThereIsNoLog) {
  RunningProgram service(kTranscoder, {});
  ASSERT_TRUE(comesUp(service));
  EXPECT_EQ(service.end(), 0);
  EXPECT_FALSE(test::exists(test::scratchHome() + "/Library/Logs"));
}

TEST_F(SampleServiceTest, ItTakesANewLogLevelWhileItRuns) {
  ASSERT_EQ(test::runCommand("tovanctl", {"service", "install"}).status, 0);
  RunningProgram service(kTranscoder, {"-v"});
  ASSERT_TRUE(logs("msg=\"instance 0 started\"", 0)) << service.output();
  const test::CommandResult level = test::runCommand("tovanctl", {"log", "level", kTranscoderName, "4"});
  ASSERT_EQ(level.status, 0) << level.err;
  EXPECT_TRUE(logs("lvl=\"4\" msg=\"Setting log level = 4\"", 0));
  sendNotification(kTovanServiceRequestStatusNotification, nullptr, nullptr);
  EXPECT_TRUE(logs("kind=\"end\" what=\"status-reply\"", 0)) << "a detail, which the usual level leaves out";
  ASSERT_EQ(test::runCommand("tovanctl", {"log", "level", kTranscoderName, "--reset"}).status, 0);
  EXPECT_TRUE(logs("msg=\"Setting log level = 3\"", 0));
}

TEST_F(SampleServiceTest, InstalledUnderAnotherNameOnlyItLogsUnderThat) {
  const std::string bundle = kResources + "LumisphereTranscoder.bundle";
  // A configuration of one's own: the shipped defaults have the transcoder under its kind.
  const std::string path = test::scratchHome() + "/Library/Application Support/Lumisphere/LumisphereConfig.plist";
  test::makeFolders(std::filesystem::path(path).parent_path());
  test::writeFile(path, "<plist version=\"1.0\"><dict/></plist>");
  ASSERT_EQ(test::runCommand("tovanctl", {"service", "install", bundle, "--name", "mine:com.example"}).status, 0);
  RunningProgram service(kTranscoder, {"-v", "-idx", "1"});
  EXPECT_TRUE(test::runLoopUntil([] {
    return test::exists(test::scratchHome() + "/Library/Logs/Lumisphere/mine:com.example-1.log");
  })) << service.output();
  EXPECT_FALSE(test::exists(logPath(1)));
}

TEST_F(SampleServiceTest, AConfigurationThatCannotBeReadDoesNotKeepItFromLogging) {
  const std::string path = test::scratchHome() + "/Library/Application Support/Lumisphere/LumisphereConfig.plist";
  test::makeFolders(std::filesystem::path(path).parent_path());
  test::writeFile(path, "<plist><dict><key>broken");
  RunningProgram service(kTranscoder, {"-v"});
  EXPECT_TRUE(logs("msg=\"instance 0 started\"", 0));
  EXPECT_THAT(service.output(), HasSubstr("the log is not set up as configured: "));
  EXPECT_EQ(service.end(), 0);
  EXPECT_THAT(test::readFile(logPath(0)), testing::EndsWith("kind=\"end\" what=\"log-session\"/>\n"));
}

TEST_F(SampleServiceTest, AProgramOutsideABundleSaysThatItHasNoKind) {
  const std::string copy = test::scratchFolder("plain") + "/LumisphereTranscoder";
  std::filesystem::copy_file(kTranscoder, copy);
  ::setenv("LD_LIBRARY_PATH", TOVAN_BUILD_DIR "/lib", 1);
  const test::CommandResult result = test::runCommand(copy, {});
  ::unsetenv("LD_LIBRARY_PATH");
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("this program lies in no bundle that declares a service kind"));
}

TEST_F(SampleServiceTest, APidFileThatCannotBeReadIsNamedAndLeftAlone) {
  const std::string path = test::scratchHome() + "/Library/Application Support/Lumisphere/LumispherePID.plist";
  test::makeFolders(std::filesystem::path(path).parent_path());
  test::writeFile(path, "<plist><dict><key>broken");
  const test::CommandResult result = test::runCommand(kTranscoder, {});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("(" + path + ")"));
  EXPECT_EQ(test::readFile(path), "<plist><dict><key>broken");
}

TEST_F(SampleServiceTest, ABusThatComesBackHasTheServiceAgain) {
  RunningProgram service(kTranscoder, {});
  ASSERT_TRUE(comesUp(service));
  NotificationLog log;
  log.observe(kTovanServiceStatusNotification, nullptr);
  bus_.restart();
  EXPECT_TRUE(test::runLoopUntil([&] {
    if (log.all.empty()) sendNotification(kTovanServiceRequestStatusNotification, nullptr, nullptr);
    return !log.all.empty();
  })) << service.output();
  EXPECT_EQ(service.end(), 0);
}

}  // namespace
