// The job descriptions that installing a launch agent writes.
#include "tests/control/service_test.h"
#include "tests/launch/thrown.h"

#include "platform/system/processors.h"

#include <tovan/launchctl_plist.h>

#include <plinth/exception.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

namespace {

using plinth::CParamException;
using plinth::CSTR;
using test::exists;
using test::ServiceBundle;
using test::thrownBy;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class LaunchAgentInstallationTest : public test::ServiceTest {
 protected:
  ~LaunchAgentInstallationTest() override { platform::setProcessorCountForTesting(0); }

  ServiceBundle agentBundle(const std::string& description) const {
    ServiceBundle made = bundle();
    made.description = launchAgent(description);
    made.write();
    return made;
  }
  static std::vector<std::string> argumentsOf(const std::string& label) {
    std::vector<std::string> words;
    for (const auto& word : tovan::CLaunchCtlPList(CSTR(agentPath(label))).getProgramArguments()) {
      words.push_back(word->str());
    }
    return words;
  }
  static void expectProcessorsGive(int processors, int instanceCount, std::size_t files) {
    std::filesystem::remove_all(test::scratchHome() + "/Library");
    platform::setProcessorCountForTesting(processors);
    ServiceBundle made;
    made.path = test::scratchFolder("bundles") + "/Test.bundle";
    made.description = launchAgent(instances(instanceCount));
    made.write();
    EXPECT_TRUE(install(made));
    EXPECT_THAT(agents(), SizeIs(files)) << instanceCount << " instances on " << processors << " processors";
    EXPECT_EQ(entry(kKind).instances, static_cast<std::int32_t>(files));
  }
};

TEST_F(LaunchAgentInstallationTest, WritesOneDescriptionPerInstance) {
  EXPECT_TRUE(install(agentBundle(instances(3))));
  EXPECT_THAT(agents(), ElementsAre("com.brant.test-2.plist", "com.brant.test-3.plist", "com.brant.test.plist"));
}

TEST_F(LaunchAgentInstallationTest, DescriptionIsThatOfTheServicesInstance) {
  test::writeConfiguration("<key>mervaneconfig</key><dict><key>ServerName</key><string>S</string></dict>");
  const ServiceBundle made = agentBundle(instances(2) + "<key>CaptureKey</key><string>cap</string>");
  EXPECT_TRUE(install(made));
  EXPECT_THAT(argumentsOf("com.brant.test"),
              ElementsAre(made.executablePath(), "-idx", "0", "-name", "S", "-id", "cap", "-ck", "cap"));
  const std::string trigger = "/tmp/com.brant.test-2.launchagent." + std::to_string(::geteuid());
  EXPECT_TRUE(test::isDict(
      "<key>Label</key><string>com.brant.test-2</string><key>ExitTimeOut</key><integer>30</integer>"
      "<key>KeepAlive</key><dict><key>SuccessfulExit</key><true/><key>PathState</key><dict><key>" +
          trigger + "</key><true/></dict></dict><key>ProgramArguments</key><array><string>" + made.executablePath() +
          "</string><string>-idx</string><string>1</string><string>-name</string><string>S 2</string>"
          "<string>-id</string><string>cap-2</string><string>-ck</string><string>cap-2</string></array>",
      test::listFromText(test::readFile(agentPath("com.brant.test-2"))).get()));
  EXPECT_FALSE(exists(trigger)) << "installing starts nothing";
}

TEST_F(LaunchAgentInstallationTest, MakesTheFolderForAllToRead) {
  const mode_t before = ::umask(077);
  EXPECT_TRUE(install(agentBundle(instances(1))));
  ::umask(before);
  struct stat info {};
  ASSERT_EQ(::stat(agentsFolder().c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777u, 0755u);
}

TEST_F(LaunchAgentInstallationTest, NegativeCountIsOneInstancePerSoManyProcessors) {
  expectProcessorsGive(8, -2, 4);
  expectProcessorsGive(8, -16, 1);
  expectProcessorsGive(8, -1, 8);
  expectProcessorsGive(7, -2, 3);
}

TEST_F(LaunchAgentInstallationTest, NoInstancesNoDescriptions) {
  EXPECT_TRUE(install(agentBundle("")));
  EXPECT_FALSE(exists(agentsFolder()));
}

TEST_F(LaunchAgentInstallationTest, OtherLaunchHintsWriteNone) {
  ServiceBundle made = bundle();
  made.description = "<key>LaunchHint</key><string>daemon</string>" + instances(2);
  made.write();
  EXPECT_TRUE(install(made));
  EXPECT_FALSE(exists(agentsFolder()));
}

TEST_F(LaunchAgentInstallationTest, ReinstallingWritesTheDescriptionsAgain) {
  const ServiceBundle made = agentBundle(instances(2) + "<key>CaptureKey</key><string>cap</string>");
  ASSERT_TRUE(install(made));
  const std::string first = test::readFile(agentPath("com.brant.test"));
  const std::string cache = configuration();
  test::writeFile(agentPath("com.brant.test"), test::document("<dict><key>mine</key><true/></dict>"));
  std::filesystem::remove(agentPath("com.brant.test-2"));
  EXPECT_FALSE(install(made));
  EXPECT_EQ(test::readFile(agentPath("com.brant.test")), first) << "the old entries are not merged";
  EXPECT_TRUE(exists(agentPath("com.brant.test-2")));
  EXPECT_EQ(configuration(), cache);
}

TEST_F(LaunchAgentInstallationTest, ReinstallingMendsADamagedDescription) {
  const ServiceBundle made = agentBundle(instances(1) + "<key>CaptureKey</key><string>cap</string>");
  ASSERT_TRUE(install(made));
  const std::string first = test::readFile(agentPath("com.brant.test"));
  test::writeFile(agentPath("com.brant.test"), first.substr(0, first.size() / 2));
  EXPECT_FALSE(install(made));
  EXPECT_EQ(test::readFile(agentPath("com.brant.test")), first);
}

TEST_F(LaunchAgentInstallationTest, ReinstallingUsesTheUsersNumberOfInstances) {
  const ServiceBundle made = agentBundle(instances(1));
  ASSERT_TRUE(install(made));
  auto changed = entry(kKind);
  changed.instances = 3;
  tovan::CServiceCacheFile file;
  file.put(changed);
  file.flush();
  EXPECT_FALSE(install(made));
  EXPECT_THAT(agents(), SizeIs(3));
  EXPECT_EQ(entry(kKind).instances, 3);
}

TEST_F(LaunchAgentInstallationTest, FewerInstancesLeaveTheOtherDescriptions) {
  ServiceBundle made = agentBundle(version(1) + instances(3));
  ASSERT_TRUE(install(made));
  ASSERT_TRUE(removeService(name(kKind)->getStringRef()));
  EXPECT_THAT(agents(), SizeIs(3)) << "removing leaves the descriptions";
  made.description = launchAgent(version(1) + instances(1));
  made.write();
  EXPECT_TRUE(install(made));
  EXPECT_THAT(agents(), SizeIs(3));
}

TEST_F(LaunchAgentInstallationTest, PathsOfEveryKindArriveAsOneArgument) {
  ServiceBundle made = bundle("a b\n'\"$(x)<&>ä日本.bundle");
  made.description = launchAgent(instances(1));
  made.executable = "work er";
  made.write();
  EXPECT_TRUE(install(made));
  ASSERT_THAT(argumentsOf("com.brant.test"), ::testing::Not(IsEmpty()));
  EXPECT_EQ(argumentsOf("com.brant.test").front(), made.executablePath());
}

TEST_F(LaunchAgentInstallationTest, NameWithAColonLabelsTheDescriptions) {
  EXPECT_TRUE(installAs("x:com.brant.other", agentBundle(instances(1))));
  EXPECT_THAT(agents(), ElementsAre("com.brant.other.plist"));
}

TEST_F(LaunchAgentInstallationTest, NameWithoutAColonIsAnErrorAfterTheEntryWasWritten) {
  const ServiceBundle made = agentBundle(instances(1));
  EXPECT_EQ(thrownBy<CParamException>([&] { installAs("plain", made); }),
            "Can't find service family in service kind plain");
  EXPECT_TRUE(serviceInstalled(CFSTR("plain")));
  EXPECT_FALSE(exists(agentsFolder()));
}

TEST_F(LaunchAgentInstallationTest, NameThatLeadsOutOfTheFolderIsAnError) {
  const ServiceBundle made = agentBundle(instances(1));
  EXPECT_EQ(thrownBy<CParamException>([&] { installAs("a:../../escaped", made); }),
            "Invalid service identifier in service kind a:../../escaped");
  EXPECT_FALSE(exists(test::scratchHome() + "/escaped.plist"));
  EXPECT_FALSE(exists(agentsFolder()));
}

TEST_F(LaunchAgentInstallationTest, LaunchdHintThatIsNoUserAgentIsAnErrorAfterTheEntryWasWritten) {
  ServiceBundle made = bundle();
  made.description = "<key>LaunchHint</key><string>launchd.LaunchDaemon</string>" + instances(1);
  made.write();
  EXPECT_EQ(thrownBy<CParamException>([&] { install(made); }), "Unsupported service launch hint: launchd.LaunchDaemon");
  EXPECT_TRUE(serviceInstalled(name(kKind)->getStringRef()));
  made.description = "<key>LaunchHint</key><string>launchd.LaunchDaemon</string>" + instances(0) + version(2);
  std::filesystem::remove_all(test::scratchHome() + "/Library");
  made.write();
  EXPECT_TRUE(install(made)) << "without instances there is nothing to describe";
}

TEST_F(LaunchAgentInstallationTest, FolderThatIsAFileIsAnError) {
  test::makeFolders(test::scratchHome() + "/Library");
  test::writeFile(agentsFolder(), "");
  EXPECT_THAT(
      thrownBy<CParamException>([&] { install(agentBundle(instances(1))); }),
      ::testing::StartsWith("Couldn't open write stream to file " + agentPath("com.brant.test") + ", error = "));
  EXPECT_TRUE(serviceInstalled(name(kKind)->getStringRef()));
}

TEST_F(LaunchAgentInstallationTest, DescriptionThatIsAFolderIsAnError) {
  test::makeFolders(agentPath("com.brant.test"));
  EXPECT_EQ(thrownBy<CParamException>([&] { install(agentBundle(instances(1))); }),
            "Couldn't open write stream to file " + agentPath("com.brant.test") + ", error = 21");
}

}  // namespace
