#include <tovan/framework_location.h>
#include <tovan/service_cache_file.h>

#include <climits>

#include "platform/system/processors.h"
#include "tests/plist/plist_support.h"

namespace {

using namespace test;
using tovan::CServiceCacheEntry;

CServiceCacheEntry entryOf(const std::string& body) { return CServiceCacheEntry(CFSTR("n"), dict(body).get()); }

// What an entry writes that nobody configured.
const char* const kPlain =
    "{DetachDaemon: false, Enabled: false, ExplicitSyncOnly: false, Instances: 0, LocalAds: false, Logging: false, "
    "SharePref: false, UserID: -1, UserPrefs: {}, Visible: false}";

TEST(ServiceCacheEntryTest, ANewEntryHoldsTheDefaults) {
  const CServiceCacheEntry entry;
  bool found = false;
  EXPECT_FALSE(entry.sharePref);
  EXPECT_EQ(entry.name(), nullptr);
  EXPECT_EQ(entry.networkName(), nullptr);
  EXPECT_EQ(entry.displayName(), nullptr);
  EXPECT_EQ(entry.description(), nullptr);
  EXPECT_EQ(entry.executable(), nullptr);
  EXPECT_EQ(entry.path(), nullptr);
  EXPECT_EQ(entry.bundlePath(), nullptr);
  EXPECT_EQ(entry.captureKey(), nullptr);
  EXPECT_EQ(entry.userPrefs(), nullptr);
  EXPECT_EQ(entry.version, 0);
  EXPECT_FALSE(entry.perUserService);
  EXPECT_EQ(entry.userID, -1);
  EXPECT_EQ(entry.userIDs(), nullptr);
  EXPECT_EQ(entry.instances, 0);
  EXPECT_FALSE(entry.enabled);
  EXPECT_FALSE(entry.explicitSyncOnly);
  EXPECT_FALSE(entry.detachDaemon);
  EXPECT_FALSE(entry.localAds);
  EXPECT_EQ(entry.stdoutPath(), nullptr);
  EXPECT_FALSE(entry.logging);
  EXPECT_EQ(entry.logLevel(false, found), 3);
  EXPECT_FALSE(entry.truncateLog(false, found));
  EXPECT_FALSE(entry.visible);
  EXPECT_EQ(entry.advertising, 0);
  EXPECT_EQ(entry.launchHint(), nullptr);
  EXPECT_EQ(describe(entry.toDict()), kPlain);
  EXPECT_EQ(utf8(CServiceCacheEntry(CFSTR("n"), nullptr).name()), "n");
  EXPECT_EQ(describe(entryOf("").toDict()), kPlain);
}

struct Row {
  const char* key;
  std::string body;
  std::string described;
};

const std::vector<Row>& changedRows() {
  static const std::vector<Row> rows = {
      {"SharePref", "<true/>", "true"},
      {"NetworkName", "<string>net</string>", "\"net\""},
      {"DisplayName", "<string>Größe</string>", "\"Größe\""},
      {"Description", "<string></string>", "\"\""},
      {"Executable", "<string>tool</string>", "\"tool\""},
      {"Path", "<string>/p</string>", "\"/p\""},
      {"BundlePath", "<string>/b</string>", "\"/b\""},
      {"CaptureKey", "<string>c</string>", "\"c\""},
      {"UserPrefs", "<dict><key>HostList</key><array/></dict>", "{HostList: []}"},
      {"Version", "<integer>5000000000</integer>", "5000000000"},
      {"PerUserService", "<true/>", "true"},
      {"UserID", "<integer>501</integer>", "501"},
      {"UserIDs", "<array><integer>501</integer></array>", "[501]"},
      {"Instances", "<integer>3</integer>", "3"},
      {"Enabled", "<true/>", "true"},
      {"ExplicitSyncOnly", "<true/>", "true"},
      {"DetachDaemon", "<true/>", "true"},
      {"LocalAds", "<true/>", "true"},
      {"StdoutPath", "<string>/o</string>", "\"/o\""},
      {"Logging", "<true/>", "true"},
      {"LogLevel", "<integer>7</integer>", "7"},
      {"TruncateLog", "<true/>", "true"},
      {"Visible", "<true/>", "true"},
      {"Advertising", "<integer>2</integer>", "2"},
      {"LaunchHint", "<string>launchd.LaunchAgent.User</string>", "\"launchd.LaunchAgent.User\""},
  };
  return rows;
}

bool isInUserPrefs(const Row& row) { return std::string(row.key) == "StdoutPath"; }

std::string bodyOf(const Row& row, const std::string& value) {
  const std::string pair = "<key>" + std::string(row.key) + "</key>" + value;
  return isInUserPrefs(row) ? "<key>UserPrefs</key><dict>" + pair + "</dict>" : pair;
}

TEST(ServiceCacheEntryTest, EveryRowIsReadAndWrittenBack) {
  ASSERT_EQ(changedRows().size(), CServiceCacheEntry::settings().size());
  for (std::size_t i = 0; i < changedRows().size(); ++i) {
    const Row& row = changedRows()[i];
    EXPECT_EQ(utf8(CServiceCacheEntry::settings()[i].key), row.key) << "the rows are in the order of the fields";
    const CServiceCacheEntry entry = entryOf(bodyOf(row, row.body));
    EXPECT_EQ(describe(entry.copySetting(str(row.key).get())), row.described) << row.key;
    const std::string written = describe(entry.toDict());
    EXPECT_NE(written.find(std::string(row.key) + ": " + row.described), std::string::npos) << written;
    const CServiceCacheEntry again(CFSTR("n"), entry.toDict().get());
    EXPECT_EQ(describe(again.toDict()), written) << row.key;
  }
}

TEST(ServiceCacheEntryTest, EveryRowReadsAsItsDefaultWhenTheTypeIsWrong) {
  for (const Row& row : changedRows()) {
    for (const std::string wrong : {"<date>2001-01-01T00:00:00Z</date>", "<real>0.5</real>"}) {
      const CServiceCacheEntry entry = entryOf(bodyOf(row, wrong));
      EXPECT_EQ(describe(entry.copySetting(str(row.key).get())),
                describe(CServiceCacheEntry().copySetting(str(row.key).get())))
          << row.key << " = " << wrong;
    }
  }
}

TEST(ServiceCacheEntryTest, TheFieldsAreWhatTheKeysSay) {
  std::string all = "<key>UserPrefs</key><dict><key>StdoutPath</key><string>/o</string></dict>";
  for (const Row& row : changedRows()) {
    if (!isInUserPrefs(row) && std::string(row.key) != "UserPrefs") all += bodyOf(row, row.body);
  }
  const CServiceCacheEntry entry = entryOf(all);
  bool found = false;
  EXPECT_TRUE(entry.sharePref);
  EXPECT_EQ(utf8(entry.networkName()), "net");
  EXPECT_EQ(utf8(entry.displayName()), "Größe");
  EXPECT_EQ(utf8(entry.description()), "");
  EXPECT_EQ(utf8(entry.executable()), "tool");
  EXPECT_EQ(utf8(entry.path()), "/p");
  EXPECT_EQ(utf8(entry.bundlePath()), "/b");
  EXPECT_EQ(utf8(entry.captureKey()), "c");
  EXPECT_EQ(describe(entry.userPrefs()), "{StdoutPath: \"/o\"}");
  EXPECT_EQ(entry.version, 5000000000);
  EXPECT_TRUE(entry.perUserService);
  EXPECT_EQ(entry.userID, 501);
  EXPECT_EQ(describe(entry.userIDs()), "[501]");
  EXPECT_EQ(entry.instances, 3);
  EXPECT_TRUE(entry.enabled);
  EXPECT_TRUE(entry.explicitSyncOnly);
  EXPECT_TRUE(entry.detachDaemon);
  EXPECT_TRUE(entry.localAds);
  EXPECT_EQ(utf8(entry.stdoutPath()), "/o");
  EXPECT_TRUE(entry.logging);
  EXPECT_EQ(entry.logLevel(false, found), 7);
  EXPECT_TRUE(entry.truncateLog(false, found));
  EXPECT_TRUE(entry.visible);
  EXPECT_EQ(entry.advertising, 2);
  EXPECT_EQ(utf8(entry.launchHint()), "launchd.LaunchAgent.User");
}

TEST(ServiceCacheEntryTest, SettingsAtTheirDefaultAreLeftOut) {
  EXPECT_EQ(describe(entryOf("<key>Version</key><integer>0</integer><key>PerUserService</key><false/>"
                             "<key>LogLevel</key><integer>3</integer><key>TruncateLog</key><false/>"
                             "<key>Advertising</key><integer>0</integer><key>LaunchHint</key><string></string>")
                         .toDict()),
            kPlain);
}

TEST(ServiceCacheEntryTest, FromDictSetsEveryFieldButTheName) {
  CServiceCacheEntry entry(CFSTR("n"), nullptr);
  for (const Row& row : changedRows()) entry.fromDict(dict(bodyOf(row, row.body)).get());
  entry.fromDict(nullptr);
  EXPECT_EQ(describe(entry.toDict()), kPlain);
  EXPECT_EQ(utf8(entry.name()), "n");
}

TEST(ServiceCacheEntryTest, TheSettersReplaceAndNullClears) {
  CServiceCacheEntry entry;
  entry.setNetworkName(CFSTR("1"));
  entry.setDisplayName(CFSTR("2"));
  entry.setDescription(CFSTR("3"));
  entry.setExecutable(CFSTR("4"));
  entry.setPath(CFSTR("5"));
  entry.setBundlePath(CFSTR("6"));
  entry.setCaptureKey(CFSTR("7"));
  entry.setLaunchHint(CFSTR("8"));
  entry.setUserIDs(static_cast<CFArrayRef>(parsed("<plist><array><integer>9</integer></array></plist>").get()));
  entry.setUserPrefs(dict("<key>a</key><true/>").get());
  EXPECT_EQ(describe(entry.toDict()),
            "{BundlePath: \"6\", CaptureKey: \"7\", Description: \"3\", DetachDaemon: false, DisplayName: \"2\", "
            "Enabled: false, Executable: \"4\", ExplicitSyncOnly: false, Instances: 0, LaunchHint: \"8\", LocalAds: "
            "false, Logging: false, NetworkName: \"1\", Path: \"5\", SharePref: false, UserID: -1, UserIDs: [9], "
            "UserPrefs: {a: true}, Visible: false}");
  entry.setNetworkName(nullptr);
  entry.setDisplayName(nullptr);
  entry.setDescription(nullptr);
  entry.setExecutable(nullptr);
  entry.setPath(nullptr);
  entry.setBundlePath(nullptr);
  entry.setCaptureKey(nullptr);
  entry.setLaunchHint(nullptr);
  entry.setUserIDs(nullptr);
  entry.setUserPrefs(nullptr);
  EXPECT_EQ(describe(entry.toDict()), kPlain);
}

TEST(ServiceCacheEntryTest, TheStandardOutputPathLiesInTheUserPreferences) {
  CServiceCacheEntry entry;
  entry.setStdoutPath(CFSTR("/o"));
  EXPECT_EQ(entry.userPrefs(), nullptr) << "the preferences in memory are left alone";
  EXPECT_NE(describe(entry.toDict()).find("UserPrefs: {StdoutPath: \"/o\"}"), std::string::npos);
  const CServiceCacheEntry again(CFSTR("n"), entry.toDict().get());
  EXPECT_EQ(utf8(again.stdoutPath()), "/o");
}

TEST(ServiceCacheEntryTest, AnEmptyStandardOutputPathIsNotWrittenAndNotRead) {
  CServiceCacheEntry entry;
  entry.setStdoutPath(CFSTR(""));
  EXPECT_EQ(describe(entry.toDict()), kPlain);
  EXPECT_EQ(entryOf("<key>UserPrefs</key><dict><key>StdoutPath</key><string/></dict>").stdoutPath(), nullptr);
}

TEST(ServiceCacheEntryTest, AStandardOutputPathThatIsClearedDoesNotComeBack) {
  const CSharedCFRef<CFDictionaryRef> prefs = dict("<key>StdoutPath</key><string>/o</string><key>a</key><true/>");
  for (const CFStringRef cleared : {CFStringRef{nullptr}, CFSTR("")}) {
    CServiceCacheEntry entry;
    entry.setUserPrefs(prefs.get());
    entry.setStdoutPath(cleared);
    EXPECT_NE(describe(entry.toDict()).find("UserPrefs: {a: true}"), std::string::npos) << describe(entry.toDict());
  }
  EXPECT_EQ(describe(prefs), "{StdoutPath: \"/o\", a: true}") << "a container is never changed in place";
}

TEST(ServiceCacheEntryTest, ACopyIsAValueOfItsOwn) {
  const CServiceCacheEntry entry = entryOf("<key>Path</key><string>/p</string><key>Enabled</key><true/>");
  CServiceCacheEntry copy = entry;
  copy.setPath(nullptr);
  copy.enabled = false;
  copy.setLogLevel(9, true);
  EXPECT_EQ(utf8(entry.path()), "/p");
  EXPECT_TRUE(entry.enabled);
  EXPECT_EQ(entry.userPrefs(), nullptr);
  EXPECT_EQ(utf8(copy.name()), "n");
}

// ---- Instances -----------------------------------------------------------------------------------------------------

class InstanceCountTest : public ::testing::Test {
 protected:
  ~InstanceCountTest() override { platform::setProcessorCountForTesting(0); }
};

TEST_F(InstanceCountTest, ANegativeCountIsOnePerThatManyProcessorsAndAtLeastOne) {
  platform::setProcessorCountForTesting(8);
  for (const auto& [stored, real] : std::vector<std::pair<int, int>>{{0, 0},
                                                                     {1, 1},
                                                                     {5, 5},
                                                                     {INT_MAX, INT_MAX},
                                                                     {-1, 8},
                                                                     {-2, 4},
                                                                     {-3, 2},
                                                                     {-8, 1},
                                                                     {-9, 1},
                                                                     {-16, 1},
                                                                     {-INT_MAX, 1},
                                                                     {INT_MIN, 1}}) {
    EXPECT_EQ(CServiceCacheEntry::ConvertToRealInstanceCount(stored), real) << stored;
  }
}

TEST_F(InstanceCountTest, TheCountIsConvertedOnReadingAndWrittenConverted) {
  platform::setProcessorCountForTesting(8);
  const CServiceCacheEntry entry = entryOf("<key>Instances</key><integer>-2</integer>");
  EXPECT_EQ(entry.instances, 4);
  platform::setProcessorCountForTesting(2);
  EXPECT_NE(describe(entry.toDict()).find("Instances: 4"), std::string::npos) << "this host's count stays";
  EXPECT_EQ(entryOf("<key>Instances</key><integer>-16</integer>").instances, 1);
}

TEST_F(InstanceCountTest, ASettingIsConvertedToo) {
  platform::setProcessorCountForTesting(8);
  CServiceCacheEntry entry;
  entry.setSetting(CFSTR("Instances"), number(-4).get());
  EXPECT_EQ(entry.instances, 2);
}

// ---- The two-level settings ----------------------------------------------------------------------------------------

std::string levelOf(const CServiceCacheEntry& entry, bool inUserPrefs) {
  bool found = false;
  const int level = entry.logLevel(inUserPrefs, found);
  return std::to_string(level) + (found ? " found" : " not found");
}

std::string truncationOf(const CServiceCacheEntry& entry, bool inUserPrefs) {
  bool found = false;
  const bool value = entry.truncateLog(inUserPrefs, found);
  return std::string(value ? "true" : "false") + (found ? " found" : " not found");
}

TEST(LogLevelTest, TheEntrysOwnLevelIsAlwaysFound) {
  CServiceCacheEntry entry;
  EXPECT_EQ(levelOf(entry, false), "3 found");
  entry.setLogLevel(5, false);
  EXPECT_EQ(levelOf(entry, false), "5 found");
  EXPECT_EQ(levelOf(entry, true), "3 not found");
  EXPECT_EQ(entry.userPrefs(), nullptr);
}

TEST(LogLevelTest, TheUsersLevelIsAnOverrideInThePreferences) {
  CServiceCacheEntry entry;
  entry.setLogLevel(5, true);
  EXPECT_EQ(levelOf(entry, true), "5 found");
  EXPECT_EQ(levelOf(entry, false), "3 found");
  EXPECT_EQ(describe(entry.userPrefs()), "{LogLevel: 5}");
}

TEST(LogLevelTest, ThreeWithoutPreferencesCreatesNothing) {
  CServiceCacheEntry entry;
  entry.setLogLevel(3, true);
  EXPECT_EQ(entry.userPrefs(), nullptr);
  entry.setLogLevel(7, false);
  entry.setLogLevel(3, true);
  EXPECT_EQ(entry.userPrefs(), nullptr) << "not even over an entry's level of its own";
}

TEST(LogLevelTest, ThreeOverThreeDropsTheOverride) {
  CServiceCacheEntry entry;
  entry.setLogLevel(5, true);
  entry.setLogLevel(3, true);
  EXPECT_EQ(describe(entry.userPrefs()), "{}");
  EXPECT_EQ(levelOf(entry, true), "3 not found");
}

TEST(LogLevelTest, ThreeOverAnotherLevelIsStored) {
  CServiceCacheEntry entry;
  entry.setLogLevel(5, true);
  entry.setLogLevel(7, false);
  entry.setLogLevel(3, true);
  EXPECT_EQ(describe(entry.userPrefs()), "{LogLevel: 3}");
  EXPECT_EQ(levelOf(entry, true), "3 found");
}

TEST(LogLevelTest, AnOverrideThatIsNoNumberDoesNotCount) {
  CServiceCacheEntry entry;
  entry.setUserPrefs(dict("<key>LogLevel</key><string>5</string>").get());
  EXPECT_EQ(levelOf(entry, true), "3 not found");
}

TEST(LogLevelTest, PreferencesThatOthersHoldAreNotChanged) {
  const CSharedCFRef<CFDictionaryRef> prefs = dict("<key>a</key><true/>");
  CServiceCacheEntry entry;
  entry.setUserPrefs(prefs.get());
  entry.setLogLevel(5, true);
  EXPECT_EQ(describe(prefs), "{a: true}");
  EXPECT_EQ(describe(entry.userPrefs()), "{LogLevel: 5, a: true}");
}

TEST(TruncateLogTest, TheEntrysOwnFlagIsAlwaysFound) {
  CServiceCacheEntry entry;
  EXPECT_EQ(truncationOf(entry, false), "false found");
  entry.setTruncateLog(true, false);
  EXPECT_EQ(truncationOf(entry, false), "true found");
  EXPECT_EQ(truncationOf(entry, true), "false not found");
}

TEST(TruncateLogTest, FalseWithoutPreferencesCreatesNothing) {
  CServiceCacheEntry entry;
  entry.setTruncateLog(false, true);
  EXPECT_EQ(entry.userPrefs(), nullptr);
}

TEST(TruncateLogTest, AFalseOverrideOverAFalseFlagIsStored) {
  CServiceCacheEntry entry;
  entry.setUserPrefs(dict("").get());
  entry.setTruncateLog(false, true);
  EXPECT_EQ(describe(entry.userPrefs()), "{TruncateLog: false}");
  EXPECT_EQ(truncationOf(entry, true), "false found");
}

TEST(TruncateLogTest, TrueOverTrueDropsTheOverride) {
  CServiceCacheEntry entry;
  entry.setTruncateLog(true, true);
  EXPECT_EQ(describe(entry.userPrefs()), "{TruncateLog: true}");
  EXPECT_EQ(truncationOf(entry, true), "true found");
  entry.setTruncateLog(true, false);
  entry.setTruncateLog(true, true);
  EXPECT_EQ(describe(entry.userPrefs()), "{}");
  EXPECT_EQ(truncationOf(entry, true), "false not found");
}

TEST(TruncateLogTest, AFalseOverrideOverATrueFlagIsStored) {
  CServiceCacheEntry entry;
  entry.setTruncateLog(true, false);
  entry.setUserPrefs(dict("<key>TruncateLog</key><true/>").get());
  entry.setTruncateLog(false, true);
  EXPECT_EQ(describe(entry.userPrefs()), "{TruncateLog: false}");
}

TEST(TruncateLogTest, AnOverrideThatIsNoBooleanDoesNotCount) {
  CServiceCacheEntry entry;
  entry.setUserPrefs(dict("<key>TruncateLog</key><integer>1</integer>").get());
  EXPECT_EQ(truncationOf(entry, true), "false not found");
}

// ---- By key --------------------------------------------------------------------------------------------------------

TEST(ServiceCacheEntryTest, SettingsAreSetByKeyAndPutBackByNull) {
  CServiceCacheEntry entry;
  for (const Row& row : changedRows()) {
    const CSharedCFRef<CFDictionaryRef> given = dict("<key>v</key>" + row.body);
    entry.setSetting(str(row.key).get(), CFDictionaryGetValue(given.get(), CFSTR("v")));
    EXPECT_EQ(describe(entry.copySetting(str(row.key).get())), row.described) << row.key;
  }
  for (const Row& row : changedRows()) entry.setSetting(str(row.key).get(), nullptr);
  EXPECT_EQ(describe(entry.toDict()), kPlain);
}

TEST(ServiceCacheEntryTest, UnknownKeysAndWrongTypesAreRefusedByName) {
  CServiceCacheEntry entry;
  EXPECT_EQ(thrownBy([&] { entry.setSetting(CFSTR("instances"), number(1).get()); }),
            "1: CServiceCacheEntry::setSetting: there is no setting \"instances\"");
  EXPECT_EQ(thrownBy([&] { entry.setSetting(CFSTR("Instances"), CFSTR("4")); }),
            "1: CServiceCacheEntry::setSetting: the setting \"Instances\" takes a 32-bit integer, not the string "
            "\"4\"");
  EXPECT_EQ(thrownBy([&] { entry.setSetting(CFSTR("UserIDs"), CFSTR("4")); }),
            "1: CServiceCacheEntry::setSetting: the setting \"UserIDs\" takes an array, not the string \"4\"");
  EXPECT_EQ(describe(entry.toDict()), kPlain);
  EXPECT_TRUE(entry.copySetting(CFSTR("instances")).isNull());
}

// ---- Runtime paths -------------------------------------------------------------------------------------------------

TEST(RuntimeServicePathTest, PathsInAFrameworkAreReRootedWhereItLiesNow) {
  const CSharedCFRef<CFURLRef> mervane = getMervaneFrameworkURL();
  const CSharedCFRef<CFURLRef> lumisphere = getLumisphereFrameworkURL();
  ASSERT_FALSE(mervane.isNull());
  ASSERT_FALSE(lumisphere.isNull());
  const auto parent = [](const CSharedCFRef<CFURLRef>& url) {
    const std::string path =
        utf8(CSharedCFRef<CFStringRef>(CFURLCopyFileSystemPath(url.get(), kCFURLPOSIXPathStyle)).get());
    return path.substr(0, path.rfind('/') + 1);
  };
  CServiceCacheEntry entry;
  entry.setPath(CFSTR("/old/Mervane.framework/Resources/to ol"));
  entry.setBundlePath(CFSTR("/old/Lumisphere.framework/Resources/X.bundle"));
  entry.updateRuntimeServicePath();
  EXPECT_EQ(utf8(entry.path()), parent(mervane) + "Mervane.framework/Resources/to ol");
  EXPECT_EQ(utf8(entry.bundlePath()), parent(lumisphere) + "Lumisphere.framework/Resources/X.bundle");
  entry.setPath(CFSTR("file:///old/Mervane.framework/Resources/to%20ol"));
  entry.updateRuntimeServicePath();
  EXPECT_EQ(utf8(entry.path()), parent(mervane) + "Mervane.framework/Resources/to ol");
}

TEST(RuntimeServicePathTest, OtherPathsStay) {
  CServiceCacheEntry entry;
  entry.updateRuntimeServicePath();
  EXPECT_EQ(entry.path(), nullptr);
  entry.setPath(CFSTR("/usr/bin/tool"));
  entry.setBundlePath(CFSTR("file:///opt/my%20bundle"));
  entry.updateRuntimeServicePath();
  EXPECT_EQ(utf8(entry.path()), "/usr/bin/tool");
  EXPECT_EQ(utf8(entry.bundlePath()), "file:///opt/my%20bundle");
}

}  // namespace
