#include <tovan/launchctl_plist.h>

#include "tests/launch/configuration.h"
#include "tests/launch/lists.h"
#include "tests/launch/thrown.h"

#include <tovan/framework_location.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <limits>
#include <string>
#include <vector>

namespace {

using plinth::CNullPointerException;
using plinth::CParamException;
using plinth::CSTR;
using plinth::CStringRef;
using test::cacheEntry;
using test::dict;
using test::isDict;
using test::isList;
using test::thrownBy;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using tovan::CLaunchCtlPList;
using tovan::CServiceCacheEntry;

constexpr const char* kKind = "servicecontroller:com.brant.mervane.executor";
constexpr const char* kNoList = "Error: plistData() is null!";
constexpr const char* kNoCopy = "Error: plistDict.getObjectRef() is null!";
constexpr const char* kNoDictionary = "Job description is not a dictionary";

CServiceCacheEntry agent(const std::string& kind, const std::string& entries = "") {
  return cacheEntry(kind, "<key>LaunchHint</key><string>launchd.LaunchAgent.User</string>" + entries);
}

std::vector<std::string> textsOf(const std::vector<CStringRef>& strings) {
  std::vector<std::string> texts;
  for (const CStringRef& string : strings) texts.push_back(string->str());
  return texts;
}

class CLaunchCtlPListTest : public ::testing::Test {
 protected:
  CLaunchCtlPListTest() { test::writeConfiguration(""); }
  CLaunchCtlPList job_{nullptr};

  void set(const std::string& entries) { job_.setPListData(dict(entries).get()); }
};

TEST_F(CLaunchCtlPListTest, GenericServiceIsTheTemplate) {
  EXPECT_TRUE(
      isDict("<key>Label</key><string></string><key>RunAtLoad</key><false/>"
             "<key>KeepAlive</key><dict><key>SuccessfulExit</key><true/></dict>"
             "<key>ExitTimeOut</key><integer>30</integer><key>ProgramArguments</key><array/>",
             CLaunchCtlPList::plistDataForGenericService().get()));
}

TEST_F(CLaunchCtlPListTest, ReadsItsFile) {
  const std::string path = test::scratchFolder("jobs") + "/job.plist";
  test::writeFile(path, test::document("<dict><key>Label</key><string>a.b</string></dict>"));
  EXPECT_EQ(CLaunchCtlPList(CSTR(path)).getLabel()->str(), "a.b");
  test::writeFile(path, "damaged");
  EXPECT_THROW(CLaunchCtlPList{CSTR(path)}, CParamException);
}

TEST_F(CLaunchCtlPListTest, GettersOfAnEmptyJobGiveNothing) {
  EXPECT_TRUE(job_.getLabel().isNull());
  EXPECT_THAT(job_.getProgramArguments(), IsEmpty());
  EXPECT_FALSE(job_.getRunAtLoad());
  EXPECT_TRUE(job_.getTransientTriggerFilePath(true).isNull());
  EXPECT_TRUE(job_.getPersistentTriggerFilePath(true).isNull());
}

TEST_F(CLaunchCtlPListTest, GettersPassOverValuesOfTheWrongType) {
  set("<key>Label</key><integer>1</integer><key>ProgramArguments</key><string>a</string>"
      "<key>RunAtLoad</key><string>true</string>");
  EXPECT_TRUE(job_.getLabel().isNull());
  EXPECT_THAT(job_.getProgramArguments(), IsEmpty());
  EXPECT_FALSE(job_.getRunAtLoad());
  set("<key>ProgramArguments</key><array><string>a</string><integer>1</integer><string>b</string></array>");
  EXPECT_THAT(textsOf(job_.getProgramArguments()), ElementsAre("a", "b"));
  job_.setPListData(test::list("<array/>").get());
  EXPECT_TRUE(job_.getLabel().isNull());
  EXPECT_THAT(job_.getProgramArguments(), IsEmpty());
}

TEST_F(CLaunchCtlPListTest, SettersNeedAList) {
  EXPECT_EQ(thrownBy<CNullPointerException>([&] { job_.setLabel(CSTR("a")); }), kNoList);
  EXPECT_EQ(thrownBy<CNullPointerException>([&] { job_.setLabelForService(agent(kKind), 0); }), kNoList);
  EXPECT_EQ(thrownBy<CNullPointerException>([&] { job_.setProgramArguments({}); }), kNoList);
  EXPECT_EQ(thrownBy<CNullPointerException>([&] { job_.setRunAtLoad(true); }), kNoCopy);
  EXPECT_EQ(thrownBy<CNullPointerException>([&] { job_.setRunAtLoad(false); }), kNoCopy);
  EXPECT_EQ(thrownBy<CNullPointerException>([&] { job_.addKeepAlivePathState(CSTR("/x"), true); }), kNoCopy);
}

TEST_F(CLaunchCtlPListTest, SettersNeedADictionary) {
  job_.setPListData(test::list("<array/>").get());
  EXPECT_EQ(thrownBy<CParamException>([&] { job_.setLabel(CSTR("a")); }), kNoDictionary);
  EXPECT_EQ(thrownBy<CParamException>([&] { job_.setProgramArguments({}); }), kNoDictionary);
  EXPECT_EQ(thrownBy<CParamException>([&] { job_.setRunAtLoad(false); }), kNoDictionary);
  EXPECT_EQ(thrownBy<CParamException>([&] { job_.addKeepAlivePathState(CSTR("/x"), true); }), kNoDictionary);
  EXPECT_TRUE(isList("<array/>", job_.plistData()));
}

TEST_F(CLaunchCtlPListTest, SetsTheLabelAndKeepsEverythingElse) {
  set("<key>Label</key><string>old</string><key>other</key><true/>");
  job_.setLabel(CSTR("ä b"));
  EXPECT_EQ(job_.getLabel()->str(), "ä b");
  EXPECT_TRUE(isDict("<key>Label</key><string>ä b</string><key>other</key><true/>", job_.plistData()));
}

TEST_F(CLaunchCtlPListTest, NullLabelIsStoredAsTheEmptyString) {
  set("");
  job_.setLabel(nullptr);
  EXPECT_TRUE(isDict("<key>Label</key><string></string>", job_.plistData()));
  EXPECT_EQ(job_.getLabel()->str(), "");
}

TEST_F(CLaunchCtlPListTest, LabelIsTheIdentifierAndFromInstanceOneOnANumber) {
  set("");
  const struct {
    const char* kind;
    unsigned int instance;
    const char* label;
  } cases[] = {{kKind, 0, "com.brant.mervane.executor"},
               {kKind, 1, "com.brant.mervane.executor-2"},
               {kKind, 2, "com.brant.mervane.executor-3"},
               {kKind, std::numeric_limits<unsigned int>::max(), "com.brant.mervane.executor-4294967296"},
               {"a:b:c", 0, "b:c"},
               {":b", 0, "b"},
               {"a:ä b\n日本", 1, "ä b\n日本-2"},
               {"a:..", 0, ".."}};
  for (const auto& one : cases) {
    job_.setLabelForService(agent(one.kind), one.instance);
    EXPECT_EQ(job_.getLabel()->str(), one.label) << one.kind << ", instance " << one.instance;
  }
}

TEST_F(CLaunchCtlPListTest, KindWithoutAColonHasNoLabel) {
  set("");
  for (const char* kind : {"com.brant.executor", ""}) {
    const std::string expected = std::string("Can't find service family in service kind ") + kind;
    EXPECT_EQ(thrownBy<CParamException>([&] { job_.setLabelForService(agent(kind), 0); }), expected);
    EXPECT_EQ(thrownBy<CParamException>([&] { CLaunchCtlPList::plistFilePathForService(agent(kind), 0); }), expected);
    EXPECT_EQ(thrownBy<CParamException>([&] { CLaunchCtlPList::plistDataForService(agent(kind), 0); }), expected);
  }
  EXPECT_EQ(thrownBy<CParamException>([&] { job_.setLabelForService(CServiceCacheEntry(), 0); }),
            "Can't find service family in service kind ");
}

TEST_F(CLaunchCtlPListTest, IdentifierThatIsNoFileNameIsRefused) {
  set("");
  for (const char* kind : {"a:", "a:../../x", "a:/etc/x", "a:b/c"}) {
    const std::string expected = std::string("Invalid service identifier in service kind ") + kind;
    EXPECT_EQ(thrownBy<CParamException>([&] { job_.setLabelForService(agent(kind), 1); }), expected);
    EXPECT_EQ(thrownBy<CParamException>([&] { CLaunchCtlPList::plistFilePathForService(agent(kind), 0); }), expected);
    EXPECT_EQ(thrownBy<CParamException>([&] { CLaunchCtlPList::expandedPListFilePathForService(agent(kind), 0); }),
              expected);
  }
  const UniChar withNul[] = {'a', ':', 'b', 0, 'c'};
  const plinth::CSharedCFRef<CFStringRef> kind(CFStringCreateWithCharacters(kCFAllocatorDefault, withNul, 5));
  EXPECT_THROW(job_.setLabelForService(CServiceCacheEntry(kind.get(), nullptr), 0), CParamException);
}

TEST_F(CLaunchCtlPListTest, SetsProgramArgumentsInOrder) {
  set("<key>ProgramArguments</key><array><string>old</string></array><key>other</key><true/>");
  job_.setProgramArguments({CSTR("/a b"), nullptr, CSTR(""), CSTR("-x\n<&>'\""), CSTR("日本")});
  EXPECT_THAT(textsOf(job_.getProgramArguments()), ElementsAre("/a b", "", "-x\n<&>'\"", "日本"));
  EXPECT_TRUE(
      isDict("<key>ProgramArguments</key><array><string>/a b</string><string></string>"
             "<string>-x\n&lt;&amp;&gt;'\"</string><string>日本</string></array><key>other</key><true/>",
             job_.plistData()));
}

TEST_F(CLaunchCtlPListTest, ArgumentThatXMLCannotCarryIsRefused) {
  set("");
  EXPECT_EQ(thrownBy<CParamException>([&] { job_.setProgramArguments({CSTR("\x01")}); }),
            "Property list not valid xml format");
}

TEST_F(CLaunchCtlPListTest, ProgramArgumentsOfAServiceUseItsConfigurationByInstance) {
  const auto entryOf = [](const std::string& name) {
    return "<key>" + name + "</key><dict><key>ckey</key><string>key of " + name + "</string></dict>";
  };
  test::writeConfiguration(
      "<key>mervaneconfig</key><dict><key>ServerName</key><string>S</string></dict>"
      "<key>serviceconfig</key><dict><key>" +
      std::string(kKind) + "</key><dict>" + entryOf("one") + entryOf("two") +
      "<key>_orderList</key><array><string>two</string><string>one</string></array></dict></dict>");
  const CServiceCacheEntry entry = agent(kKind, "<key>Path</key><string>/x</string>");
  set("");
  job_.setProgramArgumentsForService(entry, 0);
  EXPECT_THAT(textsOf(job_.getProgramArguments()),
              ElementsAre("/x", "-idx", "0", "-name", "S", "-id", "two", "-ck", "key of two"));
  job_.setProgramArgumentsForService(entry, 1);
  EXPECT_THAT(textsOf(job_.getProgramArguments()),
              ElementsAre("/x", "-idx", "1", "-name", "S 2", "-id", "one", "-ck", "key of one"));
  job_.setProgramArgumentsForService(agent(kKind,
                                           "<key>Path</key><string>/x</string>"
                                           "<key>CaptureKey</key><string>cap</string>"),
                                     2);
  EXPECT_THAT(textsOf(job_.getProgramArguments()),
              ElementsAre("/x", "-idx", "2", "-name", "S 3", "-id", "cap-3", "-ck", "cap-3"))
      << "an instance without a configuration entry has an empty one";
}

TEST_F(CLaunchCtlPListTest, ProgramArgumentsUseThePathWhereTheFrameworkLiesNow) {
  const plinth::CSharedCFRef<CFURLRef> url(getLumisphereFrameworkURL());
  ASSERT_TRUE(url) << "the frameworks of the build are not there";
  const plinth::CSharedCFRef<CFStringRef> path(CFURLCopyFileSystemPath(url.get(), kCFURLPOSIXPathStyle));
  const std::string inside = "/Versions/A/Resources/LumisphereTranscoder.bundle/Contents/Linux/LumisphereTranscoder";
  const std::string present = CSTR(path.get())->str() + inside;
  ASSERT_TRUE(test::exists(present)) << present;
  set("");
  job_.setProgramArgumentsForService(
      agent(kKind, "<key>Path</key><string>/moved/Lumisphere.framework" + inside + "</string>"), 0);
  EXPECT_EQ(textsOf(job_.getProgramArguments()).front(), present);
}

TEST_F(CLaunchCtlPListTest, ProgramArgumentsOfAServiceWithoutAPathAreAnError) {
  set("");
  EXPECT_EQ(thrownBy<CNullPointerException>([&] { job_.setProgramArgumentsForService(agent(kKind), 0); }),
            "Error: path is null!");
}

TEST_F(CLaunchCtlPListTest, RunAtLoadTrueReplacesTheConditions) {
  set("<key>KeepAlive</key><dict><key>SuccessfulExit</key><true/></dict><key>RunAtLoad</key><false/>");
  job_.setRunAtLoad(true);
  EXPECT_TRUE(job_.getRunAtLoad());
  EXPECT_TRUE(isDict("<key>KeepAlive</key><true/><key>RunAtLoad</key><true/>", job_.plistData()));
}

TEST_F(CLaunchCtlPListTest, RunAtLoadFalseRemovesTheKeyAndKeepsTheConditions) {
  set("<key>KeepAlive</key><dict><key>SuccessfulExit</key><true/></dict><key>RunAtLoad</key><true/>");
  job_.setRunAtLoad(false);
  EXPECT_FALSE(job_.getRunAtLoad());
  EXPECT_TRUE(isDict("<key>KeepAlive</key><dict><key>SuccessfulExit</key><true/></dict>", job_.plistData()));
}

TEST_F(CLaunchCtlPListTest, KeepAlivePathStateIsAddedBesideTheOtherConditions) {
  set("<key>KeepAlive</key><dict><key>SuccessfulExit</key><true/></dict>");
  job_.addKeepAlivePathState(CSTR("/a b"), true);
  job_.addKeepAlivePathState(CSTR("/c"), false);
  job_.addKeepAlivePathState(CSTR("/a b"), false);
  EXPECT_TRUE(
      isDict("<key>KeepAlive</key><dict><key>SuccessfulExit</key><true/><key>PathState</key><dict>"
             "<key>/a b</key><false/><key>/c</key><false/></dict></dict>",
             job_.plistData()));
}

TEST_F(CLaunchCtlPListTest, KeepAlivePathStateMakesWhatIsMissing) {
  set("");
  job_.addKeepAlivePathState(CSTR("/a"), true);
  EXPECT_TRUE(isDict("<key>KeepAlive</key><dict><key>PathState</key><dict><key>/a</key><true/></dict></dict>",
                     job_.plistData()));
}

TEST_F(CLaunchCtlPListTest, KeepAliveThatIsNoDictionaryIsAnError) {
  set("<key>KeepAlive</key><dict/>");
  job_.setRunAtLoad(true);
  EXPECT_EQ(thrownBy<CParamException>([&] { job_.addKeepAlivePathState(CSTR("/a"), true); }),
            "Invalid \"KeepAlive\" dictionary");
  set("<key>KeepAlive</key><dict><key>PathState</key><array/></dict>");
  EXPECT_EQ(thrownBy<CParamException>([&] { job_.addKeepAlivePathState(CSTR("/a"), true); }),
            "Invalid \"PathState\" dictionary");
  EXPECT_EQ(thrownBy<CNullPointerException>([&] { job_.addKeepAlivePathState(nullptr, true); }),
            "Error: path is null!");
}

TEST_F(CLaunchCtlPListTest, TriggerPathsCarryTheLabel) {
  set("<key>Label</key><string>com.x ä</string>");
  EXPECT_EQ(job_.getTransientTriggerFilePath(false)->str(), "/tmp/com.x ä.launchagent");
  EXPECT_EQ(job_.getTransientTriggerFilePath(true)->str(), "/tmp/com.x ä.launchagent." + std::to_string(::geteuid()));
  EXPECT_EQ(job_.getPersistentTriggerFilePath(true)->str(),
            test::scratchHome() + "/Library/LaunchAgents/com.x ä.launchagent");
  EXPECT_TRUE(job_.getPersistentTriggerFilePath(false).isNull());
}

TEST_F(CLaunchCtlPListTest, LabelThatLeadsElsewhereHasNoTriggerPath) {
  set("<key>Label</key><string>../home/x</string>");
  EXPECT_EQ(thrownBy<CParamException>([&] { job_.getTransientTriggerFilePath(true); }), "Invalid label ../home/x");
  EXPECT_EQ(thrownBy<CParamException>([&] { job_.getPersistentTriggerFilePath(true); }), "Invalid label ../home/x");
}

TEST_F(CLaunchCtlPListTest, FilePathBeginsWithTheTildeAndCanBeExpanded) {
  EXPECT_EQ(CLaunchCtlPList::plistFilePathForService(agent(kKind), 0)->str(),
            "~/Library/LaunchAgents/com.brant.mervane.executor.plist");
  EXPECT_EQ(CLaunchCtlPList::plistFilePathForService(agent(kKind), 2)->str(),
            "~/Library/LaunchAgents/com.brant.mervane.executor-3.plist");
  EXPECT_EQ(CLaunchCtlPList::expandedPListFilePathForService(agent(kKind), 1)->str(),
            test::scratchHome() + "/Library/LaunchAgents/com.brant.mervane.executor-2.plist");
}

TEST_F(CLaunchCtlPListTest, OtherLaunchHintsHaveNoFile) {
  const auto hint = [](const std::string& text) {
    return cacheEntry(kKind, "<key>LaunchHint</key><string>" + text + "</string>");
  };
  for (const std::string text : {"launchd.LaunchAgent", "launchd.LaunchDaemon.User", "LAUNCHD.LAUNCHAGENT.USER"}) {
    EXPECT_EQ(thrownBy<CParamException>([&] { CLaunchCtlPList::plistFilePathForService(hint(text), 0); }),
              "Unsupported service launch hint: " + text);
  }
  for (const CServiceCacheEntry& entry : {hint(""), cacheEntry(kKind, "")}) {
    EXPECT_EQ(thrownBy<CParamException>([&] { CLaunchCtlPList::plistFilePathForService(entry, 0); }),
              "Unsupported service launch hint: ");
  }
  EXPECT_EQ(thrownBy<CParamException>([&] { CLaunchCtlPList::plistFilePathForService(cacheEntry("none", ""), 0); }),
            "Unsupported service launch hint: ")
      << "the hint is looked at before the kind";
}

TEST_F(CLaunchCtlPListTest, JobDescriptionOfAService) {
  test::writeConfiguration("<key>mervaneconfig</key><dict><key>ServerName</key><string>S</string></dict>");
  const CServiceCacheEntry entry = agent(kKind,
                                         "<key>Path</key><string>/a b/x</string>"
                                         "<key>CaptureKey</key><string>cap</string>");
  const std::string uid = std::to_string(::geteuid());
  EXPECT_TRUE(
      isDict("<key>Label</key><string>com.brant.mervane.executor-2</string>"
             "<key>KeepAlive</key><dict><key>SuccessfulExit</key><true/><key>PathState</key><dict>"
             "<key>/tmp/com.brant.mervane.executor-2.launchagent." +
                 uid +
                 "</key><true/></dict></dict>"
                 "<key>ExitTimeOut</key><integer>30</integer>"
                 "<key>ProgramArguments</key><array><string>/a b/x</string><string>-idx</string><string>1</string>"
                 "<string>-name</string><string>S 2</string><string>-id</string><string>cap-2</string>"
                 "<string>-ck</string><string>cap-2</string></array>",
             CLaunchCtlPList::plistDataForService(entry, 1).get()));
  EXPECT_FALSE(test::exists(test::scratchHome() + "/Library/LaunchAgents")) << "describing a job writes nothing";
}

}  // namespace
