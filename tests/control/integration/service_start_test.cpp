// Bringing up the daemon and the services together.
#include "tests/control/integration/framework_probe.h"

#include <filesystem>
#include <string>
#include <vector>

namespace {

using test::isDict;
using test::onlyOne;
using test::ProbeResult;
using test::SeenNotification;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::StartsWith;

class ServiceStartTest : public test::FrameworkTest {
 protected:
  void installBoth() {
    makeServiceBundles(kJobController, kAgent);
    installService(kJobController, version(1));
    installAgent(1);
  }
  std::string missingDaemon(const std::string& function, const std::string& services) const {
    return "] \nTovanConfig::" + function + " failed, exception = Couldn't launch mervane daemon with path " +
           daemonPath_ + ", error = No such file or directory.\nServices for " + services +
           " couldn't be launched. This is most likely caused by the mervaned daemon not running. Please check the "
           "log for any clues.\n";
  }
  static void expectServiceList(const SeenNotification& seen) {
    EXPECT_EQ(seen.name, "MervanePrefsChangedNotification2");
    EXPECT_TRUE(isDict("<key>serviceList</key><dict><key>" + std::string(kJobController) + "</key><true/></dict>",
                       seen.userInfo.get()));
  }
  static void expectBare(const SeenNotification& seen) {
    EXPECT_EQ(seen.name, "MervanePrefsChangedNotification2");
    EXPECT_EQ(seen.object, "com.brant.mervane.prefpane");
    EXPECT_FALSE(seen.userInfo) << test::xmlOf(seen.userInfo.get());
  }

  static constexpr const char* kJobController = "jobcontroller:com.brant.test";
  test::NotificationRecorder notifications_;
};

TEST_F(ServiceStartTest, StartMervaneServicesRegistersTheCallerAndStartsTheDaemon) {
  makeDaemon();
  const ProbeResult result = probe("startMervaneServices");
  EXPECT_THAT(result.out, StartsWith("returned\nrunning: 1, "));
  EXPECT_THAT(result.out, HasSubstr("client: 1"));
  EXPECT_EQ(result.err, "");
  EXPECT_THAT(notifications_.take(), IsEmpty());
}

TEST_F(ServiceStartTest, StartMervaneServicesReportsAFailureOnTheConsole) {
  const ProbeResult result = probe("startMervaneServices");
  EXPECT_THAT(result.out, StartsWith("returned\n"));
  EXPECT_THAT(result.err, EndsWith(missingDaemon("startMervaneServices", "this computer")));
  EXPECT_THAT(result.out, HasSubstr("client: 1")) << "it was registered before";
}

TEST_F(ServiceStartTest, FolderThatCannotBeMadeStartsNothing) {
  makeDaemon();
  test::writeFile(test::scratchHome() + "/Library", "");
  const ProbeResult result = probe("startMervaneServices");
  EXPECT_THAT(result.err,
              HasSubstr("] \nTovanConfig::startMervaneServices failed, exception = Couldn't create directory "
                        "\"" +
                        test::configurationFolder() + "/\", error = Not a directory.\nServices for "));
  EXPECT_THAT(launched(), IsEmpty());
  std::filesystem::remove(test::scratchHome() + "/Library");
}

TEST_F(ServiceStartTest, StartLumisphereServicesBringsUpDaemonAndBothServices) {
  makeDaemon();
  installBoth();
  const ProbeResult result = probe("startLumisphereServices");
  EXPECT_THAT(result.out, StartsWith("returned\nrunning: 1, "));
  EXPECT_THAT(result.out, HasSubstr("client: 1"));
  EXPECT_EQ(result.err, "");
  EXPECT_TRUE(test::exists(trigger(0)));
  EXPECT_THAT(launchctl_.calls(), ElementsAre("list -x " + label(0), "load " + job(0)));
  const auto seen = notifications_.take();
  ASSERT_THAT(seen, SizeIs(2));
  expectServiceList(seen[0]);
  expectBare(seen[1]);
}

TEST_F(ServiceStartTest, WithoutBothBundlesStartLumisphereServicesOnlyTellsTheDaemon) {
  makeDaemon();
  installBoth();
  std::filesystem::remove_all(frameworks_ + "/Lumisphere.framework/Resources/LumisphereTranscoder.bundle");
  const ProbeResult result = probe("startLumisphereServices");
  EXPECT_THAT(result.out, StartsWith("returned\nrunning: 0, "));
  EXPECT_THAT(result.out, HasSubstr("client: 0"));
  EXPECT_EQ(result.err, "");
  EXPECT_THAT(launchctl_.calls(), IsEmpty());
  EXPECT_THAT(launched(), IsEmpty());
  expectBare(onlyOne(notifications_.take()));
}

TEST_F(ServiceStartTest, StartLumisphereServicesReportsAFailureOnceAndStillTellsTheDaemon) {
  installBoth();
  const ProbeResult result = probe("startLumisphereServices");
  EXPECT_THAT(result.out, StartsWith("returned\n"));
  const std::string expected = missingDaemon("startLumisphereServices", "\"This Computer\"");
  EXPECT_THAT(result.err, EndsWith(expected));
  EXPECT_EQ(result.err.find("TovanConfig::"), result.err.rfind("TovanConfig::")) << "said once";
  EXPECT_THAT(launchctl_.calls(), IsEmpty()) << "without a daemon nothing is synchronised";
  expectBare(onlyOne(notifications_.take()));
}

TEST_F(ServiceStartTest, SyncLumisphereServicesSynchronisesTheTwo) {
  installBoth();
  EXPECT_THAT(probe("syncLumisphereServices").out, StartsWith("returned\nrunning: 0, "));
  EXPECT_TRUE(launchctl_.isLoaded(label(0)));
  expectServiceList(onlyOne(notifications_.take()));
}

TEST_F(ServiceStartTest, SyncLumisphereServicesDoesNothingWithoutBothBundles) {
  installBoth();
  std::filesystem::remove_all(frameworks_ + "/Lumisphere.framework/Resources/LumisphereJobController.bundle");
  EXPECT_THAT(probe("syncLumisphereServices").out, StartsWith("returned\n"));
  EXPECT_THAT(launchctl_.calls(), IsEmpty());
  EXPECT_THAT(notifications_.take(), IsEmpty());
}

TEST_F(ServiceStartTest, SyncLumisphereServicesReportsAFailureOnTheConsole) {
  installBoth();
  launchctl_.refuse("load");
  const ProbeResult result = probe("syncLumisphereServices");
  EXPECT_THAT(result.out, StartsWith("returned\n"));
  EXPECT_THAT(result.err,
              EndsWith("] TovanConfig::syncLumisphereServices failed, exception = CLaunchCtlTask exited with error = "
                       "1.\n"));
  EXPECT_THAT(notifications_.take(), IsEmpty());
}

}  // namespace
