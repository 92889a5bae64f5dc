// Instances beyond the configured ones.
#include "tests/control/control_test.h"

#include "platform/system/processors.h"

#include <tovan/dynamic_instances.h>
#include <tovan/launchctl_plist.h>

#include <limits>
#include <set>

namespace {

using plinth::CParamException;
using test::exists;
using test::thrownBy;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class DynamicInstancesTest : public test::ControlTest {
 protected:
  ~DynamicInstancesTest() override { platform::setProcessorCountForTesting(0); }

  // The service with the job descriptions of its configured instances taken away.
  void installBare(const std::string& description) {
    installService(kAgent, description + "<key>CaptureKey</key><string>cap</string>");
    std::filesystem::remove_all(agentsFolder());
  }
  static std::string installed(const std::string& key, unsigned int index) {
    const plinth::CSharedCFRef<CFStringRef> identifier(installDynamicServiceInstance(name(key)->getStringRef(), index));
    return test::textOf(identifier.get());
  }
  std::set<std::string> files(const std::vector<int>& instances) const {
    std::set<std::string> names;
    for (const int instance : instances) names.insert(label(instance) + ".plist");
    return names;
  }
  std::string argumentAfter(int instance, const std::string& option) const {
    const auto arguments = tovan::CLaunchCtlPList(plinth::CSTR(job(instance))).getProgramArguments();
    for (std::size_t i = 0; i + 1 < arguments.size(); ++i) {
      if (arguments[i]->str() == option) return arguments[i + 1]->str();
    }
    return "none";
  }
  CFStringRef agent() const { return agentName_->getStringRef(); }

  test::StubLaunchctl launchctl_;

 private:
  const plinth::CStringRef agentName_ = name(kAgent);
};

TEST_F(DynamicInstancesTest, FirstOneIsBehindTheConfiguredOnes) {
  installBare(launchAgent(instances(2)));
  EXPECT_EQ(installed(kAgent, 0), "cap-3");
  EXPECT_EQ(agents(), files({2}));
  EXPECT_EQ(argumentAfter(2, "-idx"), "2");
  EXPECT_EQ(argumentAfter(2, "-id"), "cap-3");
}

TEST_F(DynamicInstancesTest, IndexCountsFromTheEndOfTheConfiguredOnes) {
  installBare(launchAgent(instances(2)));
  EXPECT_EQ(installed(kAgent, 5), "cap-8");
  EXPECT_EQ(agents(), files({7}));
  EXPECT_EQ(argumentAfter(7, "-idx"), "7");
}

TEST_F(DynamicInstancesTest, CountByProcessorsIsTheRealOne) {
  platform::setProcessorCountForTesting(8);
  installBare(launchAgent(instances(-4)));
  EXPECT_EQ(installed(kAgent, 0), "cap-3");
  EXPECT_EQ(agents(), files({2}));
}

TEST_F(DynamicInstancesTest, WithoutConfiguredOnesTheyBeginAtZero) {
  installBare(launchAgent(instances(0)));
  EXPECT_EQ(installed(kAgent, 0), "cap");
  EXPECT_EQ(agents(), files({0}));
}

TEST_F(DynamicInstancesTest, IdentifierIsTheOneInTheJobDescription) {
  installService(kAgent, launchAgent(instances(1)));
  const std::string identifier = installed(kAgent, 0);
  EXPECT_EQ(identifier.size(), 36U) << "a fresh UUID: " << identifier;
  EXPECT_EQ(argumentAfter(1, "-id"), identifier);
}

TEST_F(DynamicInstancesTest, BlockOfDescriptionsIsWritten) {
  installBare(launchAgent(instances(2)));
  installDynamicServiceInstances(agent(), 3);
  EXPECT_EQ(agents(), files({2, 3, 4}));
  EXPECT_THAT(launchctl_.calls(), IsEmpty()) << "installing starts nothing";
  EXPECT_FALSE(exists(trigger(2)));
}

TEST_F(DynamicInstancesTest, NoneOfThemIsNothing) {
  installBare(launchAgent(instances(2)));
  installDynamicServiceInstances(agent(), 0);
  syncDynamicServiceInstances(agent(), 0, true);
  EXPECT_THAT(agents(), IsEmpty());
  EXPECT_THAT(launchctl_.calls(), IsEmpty());
}

TEST_F(DynamicInstancesTest, DamagedDescriptionIsReplaced) {
  installBare(launchAgent(instances(1)));
  test::makeFolders(agentsFolder());
  test::writeFile(job(1), "garbage");
  EXPECT_EQ(installed(kAgent, 0), "cap-2");
  EXPECT_EQ(argumentAfter(1, "-id"), "cap-2");
}

TEST_F(DynamicInstancesTest, BlockIsSwitchedOnAndOff) {
  installBare(launchAgent(instances(2)));
  installDynamicServiceInstances(agent(), 2);
  syncDynamicServiceInstances(agent(), 2, true);
  EXPECT_THAT(launchctl_.calls(),
              ElementsAre("list -x " + label(2), "load " + job(2), "list -x " + label(3), "load " + job(3)));
  for (const int i : {2, 3}) EXPECT_TRUE(exists(trigger(i)));
  EXPECT_FALSE(exists(trigger(0))) << "the configured ones are left alone";
  syncDynamicServiceInstances(agent(), 2, false);
  for (const int i : {2, 3}) {
    EXPECT_FALSE(exists(trigger(i)));
    EXPECT_FALSE(launchctl_.isLoaded(label(i)));
    EXPECT_TRUE(exists(job(i))) << "the description stays";
  }
}

TEST_F(DynamicInstancesTest, OneIsSwitchedOnAndOffWhateverTheServicesFlag) {
  installBare(launchAgent(instances(1)));
  ASSERT_TRUE(disableService(agent()));
  installed(kAgent, 1);
  syncDynamicServiceInstance(agent(), 1, true);
  EXPECT_TRUE(exists(trigger(2)));
  EXPECT_TRUE(launchctl_.isLoaded(label(2)));
  syncDynamicServiceInstance(agent(), 1, true);
  EXPECT_THAT(launchctl_.calls(), ElementsAre("list -x " + label(2), "load " + job(2), "list -x " + label(2)))
      << "a loaded job is not loaded twice";
  syncDynamicServiceInstance(agent(), 1, false);
  EXPECT_FALSE(exists(trigger(2)));
  EXPECT_FALSE(launchctl_.isLoaded(label(2)));
}

TEST_F(DynamicInstancesTest, OtherServicesHaveNone) {
  installService("a:daemons", instances(2));
  for (const std::string key : {"a:daemons", "a:nobody"}) {
    const auto held = name(key);
    installDynamicServiceInstances(held->getStringRef(), 2);
    syncDynamicServiceInstances(held->getStringRef(), 2, true);
    syncDynamicServiceInstance(held->getStringRef(), 0, true);
    EXPECT_EQ(installed(key, 0), "null") << key;
  }
  installDynamicServiceInstances(nullptr, 2);
  syncDynamicServiceInstances(nullptr, 2, true);
  syncDynamicServiceInstance(nullptr, 0, true);
  EXPECT_EQ(installDynamicServiceInstance(nullptr, 0), nullptr);
  EXPECT_FALSE(exists(agentsFolder()));
  EXPECT_THAT(launchctl_.calls(), IsEmpty());
}

TEST_F(DynamicInstancesTest, LaunchHintIsThatOfLaunchdByItsPrefixAlone) {
  installService("a:near", "<key>LaunchHint</key><string>Launchd.LaunchAgent.User</string>" + instances(1));
  EXPECT_EQ(installed("a:near", 0), "null");
  installService("a:other", "<key>LaunchHint</key><string>launchd.LaunchDaemon</string>" + instances(0));
  EXPECT_EQ(thrownBy<CParamException>([] { installed("a:other", 0); }),
            "Unsupported service launch hint: launchd.LaunchDaemon");
}

TEST_F(DynamicInstancesTest, NumbersThatNoInstanceHasAreRefusedBeforeAnythingIsWritten) {
  installBare(launchAgent(instances(2)));
  constexpr unsigned int kMost = std::numeric_limits<unsigned int>::max();
  const std::string message = "Instance number of service " + kAgent + " out of range";
  EXPECT_EQ(thrownBy<CParamException>([this] { installDynamicServiceInstances(agent(), kMost); }), message);
  EXPECT_EQ(thrownBy<CParamException>([this] { syncDynamicServiceInstances(agent(), kMost, true); }), message);
  EXPECT_EQ(thrownBy<CParamException>([this] { installDynamicServiceInstance(agent(), kMost - 2); }), message);
  EXPECT_EQ(thrownBy<CParamException>([this] { syncDynamicServiceInstance(agent(), kMost - 2, true); }), message);
  EXPECT_THAT(agents(), IsEmpty());
  EXPECT_EQ(installed(kAgent, kMost - 3), "cap-4294967295") << "the last one there is";
}

TEST_F(DynamicInstancesTest, RefusalOfTheToolIsRaised) {
  installBare(launchAgent(instances(1)));
  installDynamicServiceInstances(agent(), 1);
  launchctl_.refuse("load");
  consoleOf([this] {
    EXPECT_EQ(thrownBy<CParamException>([this] { syncDynamicServiceInstance(agent(), 0, true); }),
              "CLaunchCtlTask exited with error = 1");
  });
}

}  // namespace
