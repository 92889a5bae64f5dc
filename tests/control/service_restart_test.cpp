// Requests for restarts, of the daemon and of services.
#include "tests/control/control_test.h"

#include <tovan/daemon_control.h>
#include <tovan/service_control.h>

namespace {

using test::isDict;
using test::onlyOne;
using test::SeenNotification;
using ::testing::IsEmpty;

constexpr const char* kJobController = "jobcontroller:com.brant.lumisphere.cluster.admin";

class RestartTest : public test::ControlTest {
 protected:
  void expectDaemonRequest(const std::string& cancelJobs) {
    const SeenNotification seen = onlyOne(notifications_.take());
    EXPECT_EQ(seen.name, "MervaneDaemonRestartNotification2");
    EXPECT_EQ(seen.object, "mervaneprefs");
    EXPECT_TRUE(isDict("<key>cancelJobs</key>" + cancelJobs, seen.userInfo.get()));
  }
  static std::string request(const std::string& kind) {
    return "<key>serviceType</key><string>" + kind + "</string><key>uid</key><integer>" + std::to_string(::geteuid()) +
           "</integer>";
  }
  static void expectServiceRequest(const SeenNotification& seen, const std::string& entries) {
    EXPECT_EQ(seen.name, "MervaneServiceRestartNotification2");
    EXPECT_EQ(seen.object, "null");
    EXPECT_TRUE(isDict(entries, seen.userInfo.get()));
  }

  test::NotificationRecorder notifications_;
};

TEST_F(RestartTest, DaemonIsAskedToRestart) {
  restartDaemon(true);
  expectDaemonRequest("<true/>");
  restartDaemon(false);
  expectDaemonRequest("<false/>");
}

TEST_F(RestartTest, StoppingPostsExactlyWhatRestartingDoes) {
  stopDaemon(true);
  expectDaemonRequest("<true/>");
  stopDaemon(false);
  expectDaemonRequest("<false/>");
}

TEST_F(RestartTest, ServicesAreListedForRestart) {
  restartServices(array({"a:b", "not installed"}).get());
  const SeenNotification seen = onlyOne(notifications_.take());
  EXPECT_EQ(seen.name, "MervanePrefsChangedNotification2");
  EXPECT_EQ(seen.object, "com.brant.mervane.prefpane");
  EXPECT_TRUE(
      isDict("<key>serviceList</key><dict><key>a:b</key><string>Restart</string><key>not installed</key>"
             "<string>Restart</string></dict>",
             seen.userInfo.get()));
}

TEST_F(RestartTest, NoServicesPostNothing) {
  restartServices(nullptr);
  restartServices(array({}).get());
  EXPECT_THAT(notifications_.take(), IsEmpty());
}

TEST_F(RestartTest, ArrayWithoutStringsIsPostedWithoutUserInfo) {
  restartServices(arrayOfOthers().get());
  const SeenNotification seen = onlyOne(notifications_.take());
  EXPECT_EQ(seen.name, "MervanePrefsChangedNotification2");
  EXPECT_FALSE(seen.userInfo);
}

TEST_F(RestartTest, JobControllersRequestSaysWhetherJobsEnd) {
  restartMervaneJCService(true);
  expectServiceRequest(onlyOne(notifications_.take()), request(kJobController) + "<key>cancelJobs</key><true/>");
  restartMervaneJCService(false);
  expectServiceRequest(onlyOne(notifications_.take()), request(kJobController) + "<key>cancelJobs</key><false/>");
}

TEST_F(RestartTest, OtherServicesRequestDoesNot) {
  restartMervaneService(CFSTR("servicecontroller:com.brant.test"));
  expectServiceRequest(onlyOne(notifications_.take()), request("servicecontroller:com.brant.test"));
}

TEST_F(RestartTest, NullKindIsLeftOut) {
  restartMervaneService(nullptr);
  expectServiceRequest(onlyOne(notifications_.take()),
                       "<key>uid</key><integer>" + std::to_string(::geteuid()) + "</integer>");
}

TEST_F(RestartTest, AllServicesAreAskedForInOrder) {
  restartMervaneServices(true);
  const auto seen = notifications_.take();
  ASSERT_EQ(seen.size(), 5U);
  expectServiceRequest(seen[0], request(kJobController) + "<key>cancelJobs</key><true/>");
  expectServiceRequest(seen[1], request("servicecontroller:com.brant.klarn.transcoder.klarn"));
  expectServiceRequest(seen[2], request("servicecontroller:com.brant.klarn.transcoderx"));
  expectServiceRequest(seen[3], request("requestprocessor:com.brant.lumisphere.contentcontroller"));
  expectServiceRequest(seen[4], request("contentcontroller:com.brant.mervane.contentagent"));
}

}  // namespace
