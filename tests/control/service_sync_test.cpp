// Bringing services in line with their "Enabled" flags.
#include "tests/control/control_test.h"

#include <tovan/launchctl_plist.h>
#include <tovan/service_control.h>

namespace {

using plinth::CParamException;
using test::exists;
using test::isDict;
using test::onlyOne;
using test::SeenNotification;
using test::thrownBy;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class ServiceSyncTest : public test::ControlTest {
 protected:
  static void sync(const std::vector<std::string>& names) { syncServices(array(names).get()); }
  void expectPostedWithoutUserInfo() {
    const SeenNotification seen = onlyOne(notifications_.take());
    EXPECT_EQ(seen.name, "MervanePrefsChangedNotification2");
    EXPECT_EQ(seen.object, "com.brant.mervane.prefpane");
    EXPECT_FALSE(seen.userInfo) << test::xmlOf(seen.userInfo.get());
  }

  test::StubLaunchctl launchctl_;
  test::NotificationRecorder notifications_;
};

TEST_F(ServiceSyncTest, NullAsksTheDaemonToReadItsPreferences) {
  syncServices(nullptr);
  expectPostedWithoutUserInfo();
}

TEST_F(ServiceSyncTest, EmptyArrayIsAsNull) {
  sync({});
  expectPostedWithoutUserInfo();
}

TEST_F(ServiceSyncTest, UnknownNameIsPostedWithoutUserInfo) {
  sync({"servicecontroller:nobody"});
  expectPostedWithoutUserInfo();
  EXPECT_THAT(launchctl_.calls(), IsEmpty());
}

TEST_F(ServiceSyncTest, WhatIsNoStringIsSkipped) {
  syncServices(arrayOfOthers().get());
  expectPostedWithoutUserInfo();
}

TEST_F(ServiceSyncTest, DaemonsServicesAreListedWithTheirFlags) {
  installService("a:on", version(1), true);
  installService("a:off", version(1), false);
  const auto mixed = plinth::CSharedCFRef<CFMutableArrayRef>(
      CFArrayCreateMutableCopy(kCFAllocatorDefault, 0, array({"a:on", "a:nobody", "a:off"}).get()));
  CFArrayInsertValueAtIndex(mixed.get(), 1, kCFBooleanTrue);
  syncServices(mixed.get());
  const SeenNotification seen = onlyOne(notifications_.take());
  EXPECT_EQ(seen.name, "MervanePrefsChangedNotification2");
  EXPECT_EQ(seen.object, "com.brant.mervane.prefpane");
  EXPECT_TRUE(
      isDict("<key>serviceList</key><dict><key>a:on</key><true/><key>a:off</key><false/></dict>", seen.userInfo.get()));
  EXPECT_THAT(launchctl_.calls(), IsEmpty()) << "they are not launchd's";
}

TEST_F(ServiceSyncTest, EnabledAgentGetsItsTriggersAndJobs) {
  installAgent(2);
  sync({kAgent});
  for (const int i : {0, 1}) {
    EXPECT_TRUE(exists(trigger(i))) << trigger(i);
    EXPECT_TRUE(launchctl_.isLoaded(label(i)));
  }
  EXPECT_THAT(launchctl_.calls(),
              ElementsAre("list -x " + label(0), "load " + job(0), "list -x " + label(1), "load " + job(1)));
  expectPostedWithoutUserInfo();
}

TEST_F(ServiceSyncTest, TriggerIsTheOneThatTheJobWaitsFor) {
  installAgent(1);
  sync({kAgent});
  const tovan::CLaunchCtlPList description(plinth::CSTR(job(0)));
  EXPECT_THAT(test::xmlOf(description.plistData()), HasSubstr("<key>" + trigger(0) + "</key>"));
  EXPECT_TRUE(exists(trigger(0)));
}

TEST_F(ServiceSyncTest, LoadedJobIsNotLoadedTwice) {
  installAgent(2);
  launchctl_.setLoaded(label(0));
  sync({kAgent});
  EXPECT_THAT(launchctl_.calls(), ElementsAre("list -x " + label(0), "list -x " + label(1), "load " + job(1)));
  EXPECT_TRUE(exists(trigger(0)));
  sync({kAgent});
  EXPECT_EQ(launchctl_.calls().size(), 5U) << "a second time only looks";
}

TEST_F(ServiceSyncTest, DisabledAgentLosesThreeTriggersAndThreeJobs) {
  installAgent(3);
  sync({kAgent});
  ASSERT_TRUE(disableService(name(kAgent)->getStringRef()));
  sync({kAgent});
  for (const int i : {0, 1, 2}) {
    EXPECT_FALSE(exists(trigger(i))) << trigger(i);
    EXPECT_FALSE(launchctl_.isLoaded(label(i))) << label(i);
  }
}

TEST_F(ServiceSyncTest, DisabledAgentUnloadsOnlyWhatIsLoaded) {
  installAgent(2, false);
  launchctl_.setLoaded(label(1));
  sync({kAgent});
  EXPECT_THAT(launchctl_.calls(), ElementsAre("list -x " + label(0), "list -x " + label(1), "unload " + job(1)));
}

TEST_F(ServiceSyncTest, AgentsAndDaemonsServicesTogether) {
  installAgent(1);
  installService("a:on", version(1));
  sync({kAgent, "a:on"});
  EXPECT_TRUE(launchctl_.isLoaded(label(0)));
  EXPECT_TRUE(isDict("<key>serviceList</key><dict><key>a:on</key><true/></dict>",
                     onlyOne(notifications_.take()).userInfo.get()))
      << "agents are not the daemon's";
}

TEST_F(ServiceSyncTest, AgentWithoutInstancesHasNothingToLoad) {
  installAgent(0);
  sync({kAgent});
  EXPECT_THAT(launchctl_.calls(), IsEmpty());
  expectPostedWithoutUserInfo();
}

TEST_F(ServiceSyncTest, LabelIsTheOneInTheJobDescription) {
  installAgent(1);
  tovan::CLaunchCtlPList description(plinth::CSTR(job(0)));
  description.setLabel(plinth::CSTR(kLabel + "-renamed"));
  description.flush();
  launchctl_.setLoaded(kLabel + "-renamed");
  sync({kAgent});
  EXPECT_THAT(launchctl_.calls(), ElementsAre("list -x " + kLabel + "-renamed"));
  EXPECT_TRUE(exists("/tmp/" + kLabel + "-renamed.launchagent." + std::to_string(::geteuid())));
}

TEST_F(ServiceSyncTest, RefusedLoadIsRaisedShownAndNothingIsPosted) {
  installAgent(2);
  launchctl_.refuse("load");
  const std::string console = consoleOf(
      [&] { EXPECT_EQ(thrownBy<CParamException>([&] { sync({kAgent}); }), "CLaunchCtlTask exited with error = 1"); });
  EXPECT_THAT(console, HasSubstr("launchctl load " + job(0) + " failed: launchctl: no load today"));
  EXPECT_THAT(notifications_.take(), IsEmpty());
  EXPECT_TRUE(exists(trigger(0))) << "the trigger comes before the job";
  EXPECT_FALSE(exists(trigger(1))) << "the first failure ends it";
}

TEST_F(ServiceSyncTest, RefusedUnloadIsRaisedAndTheTriggerIsGone) {
  installAgent(1);
  sync({kAgent});
  ASSERT_TRUE(disableService(name(kAgent)->getStringRef()));
  launchctl_.refuse("unload");
  const std::string console = consoleOf(
      [&] { EXPECT_EQ(thrownBy<CParamException>([&] { sync({kAgent}); }), "CLaunchCtlTask exited with error = 1"); });
  EXPECT_THAT(console, HasSubstr("launchctl unload " + job(0) + " failed: launchctl: no unload today"));
  EXPECT_FALSE(exists(trigger(0)));
}

TEST_F(ServiceSyncTest, RefusedListingReadsAsNotLoaded) {
  installAgent(1);
  launchctl_.setLoaded(label(0));
  launchctl_.refuse("list");
  sync({kAgent});
  EXPECT_THAT(launchctl_.calls(), ElementsAre("list -x " + label(0), "load " + job(0)));
}

TEST_F(ServiceSyncTest, MissingToolIsRaised) {
  installAgent(1);
  std::filesystem::remove(launchctl_.folder() + "/launchctl");
  consoleOf([&] { EXPECT_THROW(sync({kAgent}), plinth::CException); });
  EXPECT_THAT(notifications_.take(), IsEmpty());
}

TEST_F(ServiceSyncTest, ToolThatPrintsAMegabyteInFrontOfTheListingIsUnderstood) {
  installAgent(1);
  launchctl_.writeScript(
      "i=0; line=$(printf '%0100d' 0)\n"
      "while [ $i -lt 10486 ]; do echo \"$line\"; i=$((i+1)); done\n"
      "[ \"$1\" = list ] || exit 7\n"
      "echo '<plist version=\"1.0\"><dict><key>Label</key><string>" +
      label(0) + "</string></dict></plist>'\n");
  sync({kAgent});
  EXPECT_TRUE(exists(trigger(0)));
}

TEST_F(ServiceSyncTest, MissingDescriptionOfADisabledAgentStillLosesItsTrigger) {
  installAgent(1);
  sync({kAgent});
  ASSERT_TRUE(disableService(name(kAgent)->getStringRef()));
  std::filesystem::remove(job(0));
  sync({kAgent});
  EXPECT_FALSE(exists(trigger(0)));
  EXPECT_FALSE(launchctl_.isLoaded(label(0)));
}

TEST_F(ServiceSyncTest, GarbageDescriptionIsAnErrorThatNamesTheFile) {
  installAgent(1);
  test::writeFile(job(0), "garbage");
  EXPECT_THAT(thrownBy<CParamException>([&] { sync({kAgent}); }),
              ::testing::StartsWith("Couldn't read property list from file " + job(0) + ", error = "));
  EXPECT_THAT(launchctl_.calls(), IsEmpty());
  EXPECT_THAT(notifications_.take(), IsEmpty());
}

TEST_F(ServiceSyncTest, DescriptionWithoutALabelIsAnErrorThatNamesTheFile) {
  installAgent(1);
  for (const std::string entries : {"", "<key>Label</key><string></string>", "<key>Label</key><true/>"}) {
    test::writeFile(job(0), test::document("<dict>" + entries + "</dict>"));
    EXPECT_EQ(thrownBy<CParamException>([&] { sync({kAgent}); }),
              "Launch-agent property list " + job(0) + " has no label")
        << entries;
  }
  EXPECT_THAT(launchctl_.calls(), IsEmpty());
}

TEST_F(ServiceSyncTest, TriggerThatIsAFolderOrALinkIsLeftAlone) {
  installAgent(2);
  std::filesystem::create_directory(trigger(0));
  const std::string target = test::scratchHome() + "/target";
  std::filesystem::create_symlink(target, trigger(1));
  sync({kAgent});
  EXPECT_TRUE(launchctl_.isLoaded(label(0)));
  EXPECT_FALSE(exists(target)) << "nothing is written elsewhere";
  ASSERT_TRUE(disableService(name(kAgent)->getStringRef()));
  EXPECT_EQ(
      thrownBy<CParamException>([&] { sync({kAgent}); }),
      "CLaunchCtlPList::removeTriggerFile: failed to remove trigger file " + trigger(0) + ", error = Is a directory");
}

TEST_F(ServiceSyncTest, UnsupportedLaunchHintIsAnError) {
  installService("a:daemon", "<key>LaunchHint</key><string>launchd.LaunchDaemon</string>" + instances(0));
  auto changed = entry("a:daemon");
  changed.instances = 1;
  tovan::CServiceCacheFile file;
  file.put(changed);
  file.flush();
  EXPECT_EQ(thrownBy<CParamException>([&] { sync({"a:daemon"}); }),
            "Unsupported service launch hint: launchd.LaunchDaemon");
}

TEST_F(ServiceSyncTest, UnreadableConfigurationIsRaised) {
  test::makeFolders(test::configurationFolder());
  test::writeFile(test::configurationPath(), "<plist>");
  consoleOf([&] { EXPECT_THROW(sync({"a:b"}), plinth::CException); });
  EXPECT_THAT(notifications_.take(), IsEmpty());
}

}  // namespace
