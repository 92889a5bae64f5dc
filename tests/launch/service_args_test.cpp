// CServiceUtil::buildServiceArgs, row by row.
#include <tovan/service_util.h>

#include "tests/launch/configuration.h"
#include "tests/launch/thrown.h"

#include <tovan/constants.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using plinth::CNullPointerException;
using plinth::CStringRef;
using test::thrownBy;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using tovan::CServiceCacheEntry;
using tovan::CServiceConfigEntry;
using tovan::CServiceUtil;

using Words = std::vector<std::string>;

constexpr const char* kKind = "servicecontroller:com.brant.test";

std::string text(const std::string& key, const std::string& value) {
  return "<key>" + key + "</key><string>" + value + "</string>";
}
std::string flag(const std::string& key) { return "<key>" + key + "</key><true/>"; }
std::string number(const std::string& key, int value) {
  return "<key>" + key + "</key><integer>" + std::to_string(value) + "</integer>";
}

std::string section(const std::string& cluster) {
  const bool isNamed = cluster.find("ServerName") != std::string::npos;
  return "<key>mervaneconfig</key><dict>" + (isNamed ? "" : text("ServerName", "Server")) + cluster + "</dict>";
}

Words argsOf(const CServiceCacheEntry& entry, const CServiceConfigEntry& config, long instance) {
  Words words;
  for (const CStringRef& word : CServiceUtil::buildServiceArgs(entry, config, instance)) words.push_back(word->str());
  return words;
}

struct Row {
  const char* what;
  std::string cluster;  // in "mervaneconfig"; without a server name there, "Server" is added
  std::string kind;
  std::string entry;   // in the cache entry, beside the path "/x"
  std::string config;  // in the configuration entry
  const char* name;    // of the configuration entry
  long instance;
  Words expected;  // behind the path
};

std::string hosts(const std::string& list) {
  return "<key>UserPrefs</key><dict><key>HostList</key>" + list + "</dict>";
}

std::vector<Row> displayNameRows() {
  const std::string twoHosts = hosts("<array><dict>" + text("HostName", "one") + "</dict><dict>" +
                                     text("HostName", "zwei ü") + "</dict></array>");
  return {
      {"the server's name", "", kKind, "", "", "id", 0, {"-idx", "0", "-name", "Server", "-id", "id"}},
      {"instance 1 is number 2", "", kKind, "", "", "id", 1, {"-idx", "1", "-name", "Server 2", "-id", "id"}},
      {"instance 2 is number 3", "", kKind, "", "", "id", 2, {"-idx", "2", "-name", "Server 3", "-id", "id"}},
      {"a negative instance has no number",
       "",
       kKind,
       twoHosts,
       "",
       "id",
       -1,
       {"-idx", "-1", "-name", "Server", "-id", "id"}},
      {"the host of instance 0", "", kKind, twoHosts, "", "id", 0, {"-idx", "0", "-name", "Server (one)", "-id", "id"}},
      {"the host of instance 1",
       "",
       kKind,
       twoHosts,
       "",
       "id",
       1,
       {"-idx", "1", "-name", "Server 2 (zwei ü)", "-id", "id"}},
      {"no host for an instance behind the list",
       "",
       kKind,
       twoHosts,
       "",
       "id",
       2,
       {"-idx", "2", "-name", "Server 3", "-id", "id"}},
      {"a host list that is no array",
       "",
       kKind,
       hosts("<string>one</string>"),
       "",
       "id",
       0,
       {"-idx", "0", "-name", "Server", "-id", "id"}},
      {"a host that is no dictionary",
       "",
       kKind,
       hosts("<array><string>one</string></array>"),
       "",
       "id",
       0,
       {"-idx", "0", "-name", "Server", "-id", "id"}},
      {"a host without a name",
       "",
       kKind,
       hosts("<array><dict/></array>"),
       "",
       "id",
       0,
       {"-idx", "0", "-name", "Server", "-id", "id"}},
      {"a host whose name is a number",
       "",
       kKind,
       hosts("<array><dict>" + number("HostName", 1) + "</dict></array>"),
       "",
       "id",
       0,
       {"-idx", "0", "-name", "Server", "-id", "id"}},
      {"a name with blanks, quotes and a newline stays one word",
       text("ServerName", "a 'b' \"c\"\nd $(e)"),
       kKind,
       "",
       "",
       "id",
       0,
       {"-idx", "0", "-name", "a 'b' \"c\"\nd $(e)", "-id", "id"}},
  };
}

std::vector<Row> identityRows() {
  const std::string key = text("CaptureKey", "cap");
  const Words start = {"-idx", "0", "-name", "Server"};
  return {
      {"the configuration's name and key",
       "",
       kKind,
       key,
       text("ckey", "own"),
       "id",
       0,
       {"-idx", "0", "-name", "Server", "-id", "id", "-ck", "own"}},
      {"the configuration's key is not numbered",
       "",
       kKind,
       key,
       text("ckey", "own"),
       "id",
       2,
       {"-idx", "2", "-name", "Server 3", "-id", "id", "-ck", "own"}},
      {"the entry's key stands in",
       "",
       kKind,
       key,
       "",
       "id",
       0,
       {"-idx", "0", "-name", "Server", "-id", "id", "-ck", "cap"}},
      {"the entry's key stands in for an empty one",
       "",
       kKind,
       key,
       text("ckey", ""),
       "id",
       0,
       {"-idx", "0", "-name", "Server", "-id", "id", "-ck", "cap"}},
      {"the entry's key is not numbered beside an identifier",
       "",
       kKind,
       key,
       "",
       "id",
       2,
       {"-idx", "2", "-name", "Server 3", "-id", "id", "-ck", "cap"}},
      {"the entry's key is the identifier too",
       "",
       kKind,
       key,
       "",
       "",
       0,
       {"-idx", "0", "-name", "Server", "-id", "cap", "-ck", "cap"}},
      {"both are numbered from instance 1 on",
       "",
       kKind,
       key,
       "",
       "",
       1,
       {"-idx", "1", "-name", "Server 2", "-id", "cap-2", "-ck", "cap-2"}},
      {"instance 2 is number 3 in both",
       "",
       kKind,
       key,
       "",
       "",
       2,
       {"-idx", "2", "-name", "Server 3", "-id", "cap-3", "-ck", "cap-3"}},
      {"a negative instance is not numbered",
       "",
       kKind,
       key,
       "",
       "",
       -2,
       {"-idx", "-2", "-name", "Server", "-id", "cap", "-ck", "cap"}},
      {"an empty identifier beside an own key stays out",
       "",
       kKind,
       key,
       text("ckey", "own"),
       "",
       1,
       {"-idx", "1", "-name", "Server 2", "-ck", "own"}},
      {"an empty entry's key gives an empty identifier, which stays out",
       "",
       kKind,
       text("CaptureKey", ""),
       "",
       "",
       1,
       {"-idx", "1", "-name", "Server 2"}},
      {"the configuration's other keys play no part",
       "",
       kKind,
       "",
       text("akey", "a") + text("cpkey", "c"),
       "id",
       0,
       {"-idx", "0", "-name", "Server", "-id", "id"}},
  };
}

std::vector<Row> accessRows() {
  const std::string password = text("ServerPassword", "secret word");
  const std::string shared = flag("SharingEnabled") + flag("RequirePassword") + password;
  const std::string cluster = "jobcontroller:com.brant.mervane.cluster.admin";
  const std::string keys = text("CaptureKey", "cap");
  return {
      {"the password of a shared cluster that requires one",
       shared,
       kKind,
       "",
       "",
       "id",
       0,
       {"-idx", "0", "-name", "Server", "-id", "id", "-ak", "secret word"}},
      {"no password without sharing",
       flag("RequirePassword") + password,
       kKind,
       "",
       "",
       "id",
       0,
       {"-idx", "0", "-name", "Server", "-id", "id"}},
      {"no password when none is required",
       flag("SharingEnabled") + password,
       kKind,
       "",
       "",
       "id",
       0,
       {"-idx", "0", "-name", "Server", "-id", "id"}},
      {"an empty password stays out",
       flag("SharingEnabled") + flag("RequirePassword"),
       kKind,
       "",
       "",
       "id",
       0,
       {"-idx", "0", "-name", "Server", "-id", "id"}},
      {"the password comes before the capture key",
       shared,
       kKind,
       keys,
       "",
       "id",
       0,
       {"-idx", "0", "-name", "Server", "-id", "id", "-ak", "secret word", "-ck", "cap"}},
      {"local advertising without an own key passes none",
       shared,
       kKind,
       flag("LocalAds"),
       text("ckey", "own"),
       "id",
       0,
       {"-l", "-idx", "0", "-name", "Server", "-id", "id"}},
      {"an empty own key is none",
       shared,
       kKind,
       flag("LocalAds") + text("CaptureKey", ""),
       text("ckey", "own"),
       "id",
       0,
       {"-l", "-idx", "0", "-name", "Server", "-id", "id"}},
      {"local advertising with an own key passes both",
       shared,
       kKind,
       flag("LocalAds") + keys,
       text("ckey", "own"),
       "id",
       0,
       {"-l", "-idx", "0", "-name", "Server", "-id", "id", "-ak", "secret word", "-ck", "own"}},
      {"the cluster's own service always passes keys",
       shared,
       cluster,
       flag("LocalAds"),
       text("ckey", "own"),
       "id",
       0,
       {"-l", "-idx", "0", "-name", "Server", "-id", "id", "-ak", "secret word", "-ck", "own"}},
  };
}

std::vector<Row> optionRows() {
  const Words tail = {"-idx", "0", "-name", "Server", "-id", "id"};
  const auto with = [&tail](Words front) {
    front.insert(front.end(), tail.begin(), tail.end());
    return front;
  };
  return {
      {"detached", "", kKind, flag("DetachDaemon"), "", "id", 0, with({"-d"})},
      {"logging", "", kKind, flag("Logging"), "", "id", 0, with({"-v"})},
      {"logging of the cluster", flag("LogToFile"), kKind, "", "", "id", 0, with({"-v"})},
      {"logging of both is said once", flag("LogToFile"), kKind, flag("Logging"), "", "id", 0, with({"-v"})},
      {"advertising 1", "", kKind, number("Advertising", 1), "", "id", 0, with({"-adv", "dn"})},
      {"advertising 2", "", kKind, number("Advertising", 2), "", "id", 0, with({"-adv", "mc"})},
      {"advertising 3", "", kKind, number("Advertising", 3), "", "id", 0, with({"-adv", "rv"})},
      {"any other advertising", "", kKind, number("Advertising", -7), "", "id", 0, with({"-adv", "rv"})},
      {"the cluster's advertising plays no part", text("Advertising", "DN"), kKind, "", "", "id", 0, with({})},
      {"per user",
       "",
       kKind,
       flag("PerUserService"),
       "",
       "id",
       0,
       {"-idx", "0", "-name", "Server", "-id", "id", "-pu"}},
      {"everything, in order",
       flag("SharingEnabled") + flag("RequirePassword") + text("ServerPassword", "pw"),
       kKind,
       flag("DetachDaemon") + flag("LocalAds") + flag("Logging") + number("Advertising", 2) +
           text("CaptureKey", "cap") + flag("PerUserService"),
       "",
       "",
       3,
       {"-d", "-l", "-v", "-adv", "mc", "-idx", "3", "-name", "Server 4", "-id", "cap-4", "-ak", "pw", "-ck", "cap-4",
        "-pu"}},
  };
}

void check(const std::vector<Row>& rows) {
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    test::writeConfiguration(section(row.cluster));
    Words expected = {"/x"};
    expected.insert(expected.end(), row.expected.begin(), row.expected.end());
    EXPECT_THAT(argsOf(test::cacheEntry(row.kind, text("Path", "/x") + row.entry),
                       test::configEntry(row.name, row.config), row.instance),
                ElementsAreArray(expected));
  }
}

TEST(BuildServiceArgsTest, DisplayName) { check(displayNameRows()); }
TEST(BuildServiceArgsTest, IdentifierAndCaptureKey) { check(identityRows()); }
TEST(BuildServiceArgsTest, AccessKeyAndWhetherKeysArePassed) { check(accessRows()); }
TEST(BuildServiceArgsTest, OptionsAndTheirOrder) { check(optionRows()); }

TEST(BuildServiceArgsTest, PlainServiceWithLogging) {
  test::writeConfiguration(section(""));
  EXPECT_THAT(argsOf(test::cacheEntry(kKind, text("Path", "/x") + flag("Logging")), test::configEntry("name", ""), 0),
              ElementsAre("/x", "-v", "-idx", "0", "-name", "Server", "-id", "name"));
}

TEST(BuildServiceArgsTest, ServiceWithoutAnyNameGetsAFreshIdentifierEachTime) {
  test::writeConfiguration(section(""));
  const CServiceCacheEntry entry = test::cacheEntry(kKind, text("Path", "/x"));
  const Words first = argsOf(entry, CServiceConfigEntry(), 0);
  ASSERT_EQ(first.size(), 7u);
  EXPECT_EQ(first[5], "-id");
  EXPECT_THAT(first[6], ::testing::MatchesRegex("[0-9A-F]+-[0-9A-F]+-[0-9A-F]+-[0-9A-F]+-[0-9A-F]+"));
  EXPECT_EQ(first[6].size(), 36u);
  EXPECT_NE(argsOf(entry, CServiceConfigEntry(), 0)[6], first[6]);
}

TEST(BuildServiceArgsTest, ConfigurationEntryWithoutANameTakesTheEntrysKey) {
  test::writeConfiguration(section(""));
  const CServiceCacheEntry entry = test::cacheEntry(kKind, text("Path", "/x") + text("CaptureKey", "cap"));
  EXPECT_THAT(argsOf(entry, CServiceConfigEntry(), 2),
              ElementsAre("/x", "-idx", "2", "-name", "Server 3", "-id", "cap-3", "-ck", "cap-3"));
}

TEST(BuildServiceArgsTest, PathIsTakenAsItIs) {
  test::writeConfiguration(section(""));
  for (const std::string path : {"/a b/c'd\"e\nf", "/ä/日本", "relative", "/x/file://y", "FILE:///x"}) {
    EXPECT_EQ(argsOf(test::cacheEntry(kKind, text("Path", path)), test::configEntry("id", ""), 0).front(), path);
  }
}

TEST(BuildServiceArgsTest, FileURLBecomesItsPath) {
  test::writeConfiguration(section(""));
  const CServiceCacheEntry entry = test::cacheEntry(kKind, text("Path", "file:///a%20b/%C3%A4"));
  EXPECT_EQ(argsOf(entry, test::configEntry("id", ""), 0).front(), "/a b/ä");
}

TEST(BuildServiceArgsTest, MissingPathIsAnError) {
  test::writeConfiguration(section(""));
  for (const std::string& entry : {std::string(), text("Path", "file:///a b"), number("Path", 1)}) {
    EXPECT_EQ(
        thrownBy<CNullPointerException>([&] { argsOf(test::cacheEntry(kKind, entry), CServiceConfigEntry(), 0); }),
        "Error: path is null!")
        << "for " << entry;
  }
}

TEST(BuildServiceArgsTest, MissingConfigurationFileGivesTheComputersName) {
  std::filesystem::remove_all(test::scratchHome() + "/Library");
  const Words words = argsOf(test::cacheEntry(kKind, text("Path", "/x")), test::configEntry("id", ""), 0);
  ASSERT_GE(words.size(), 5u);
  EXPECT_THAT(Words(words.begin(), words.begin() + 3), ElementsAre("/x", "-idx", "0"));
  EXPECT_FALSE(test::exists(test::configurationPath()));
}

TEST(BuildServiceArgsTest, UnreadableConfigurationFileIsTheFileLayersError) {
  test::writeConfiguration("");
  test::writeFile(test::configurationPath(), "damaged");
  EXPECT_THROW(argsOf(test::cacheEntry(kKind, text("Path", "/x")), CServiceConfigEntry(), 0), plinth::CException);
}

TEST(LaunchFlagTest, LaunchHintThatBeginsWithLaunchdIsLaunchds) {
  const auto flagOf = [](const std::string& hint) {
    return CServiceUtil::launchFlagForService(test::cacheEntry(kKind, hint));
  };
  EXPECT_EQ(flagOf(text("LaunchHint", "launchd.LaunchAgent.User")), 2);
  EXPECT_EQ(flagOf(text("LaunchHint", "launchd.")), 2);
  EXPECT_EQ(flagOf(text("LaunchHint", "launchd.other")), 2);
  EXPECT_EQ(flagOf(text("LaunchHint", "launchd")), 1);
  EXPECT_EQ(flagOf(text("LaunchHint", "Launchd.LaunchAgent.User")), 1);
  EXPECT_EQ(flagOf(text("LaunchHint", " launchd.")), 1);
  EXPECT_EQ(flagOf(text("LaunchHint", "")), 1);
  EXPECT_EQ(flagOf(number("LaunchHint", 1)), 1);
  EXPECT_EQ(flagOf(""), 1);
}

}  // namespace
