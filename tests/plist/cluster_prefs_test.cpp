#include <tovan/cluster_prefs.h>

#include "tests/plist/plist_support.h"

namespace {

using namespace test;
using tovan::CClusterPrefs;

std::string roundTrip(const std::string& body) {
  CClusterPrefs prefs;
  prefs.fromDict(dict(body).get());
  return describe(prefs.toDict());
}

// What new preferences write, with `extra` in front.
std::string plain(const std::string& extra = "", const std::string& behind = "") {
  return "{" + extra + "Local: false, " + behind + "Shared: false, StatusInterval: 5}";
}

TEST(ClusterPrefsTest, NewPreferencesHoldTheDefaults) {
  const CClusterPrefs prefs;
  EXPECT_EQ(prefs.cluster(), nullptr);
  EXPECT_EQ(prefs.name(), nullptr);
  EXPECT_EQ(prefs.storage(), nullptr);
  EXPECT_FALSE(prefs.privateStorage);
  EXPECT_TRUE(prefs.publishedStorage);
  EXPECT_EQ(prefs.storageCleanupThreshold, -1);
  EXPECT_EQ(prefs.statusInterval, 5);
  EXPECT_EQ(prefs.maxActiveTargets, -1);
  EXPECT_EQ(prefs.maxActiveSegments, -1);
  EXPECT_FALSE(prefs.local);
  EXPECT_FALSE(prefs.shared);
  EXPECT_FALSE(prefs.unmanagedServices);
  EXPECT_EQ(prefs.unmanagedMultiCaptureThreshold, 0);
  EXPECT_EQ(describe(prefs.toDict()), plain());
}

const char* const kEveryKey =
    "<key>Cluster</key><array><string>host</string></array><key>Name</key><string>n</string>"
    "<key>Storage</key><string>/s</string><key>PrivateStorage</key><true/><key>PublishedStorage</key><false/>"
    "<key>StorageCleanupThreshold</key><integer>90</integer><key>StatusInterval</key><integer>9</integer>"
    "<key>MaxActiveTargets</key><integer>0</integer><key>MaxActiveSegments</key><integer>5000000000</integer>"
    "<key>Local</key><true/><key>Shared</key><true/><key>UnmanagedServices</key><true/>"
    "<key>UnmanagedMultiCaptureThreshold</key><integer>2</integer>";

TEST(ClusterPrefsTest, EveryKeyIsReadIntoItsField) {
  CClusterPrefs prefs;
  prefs.fromDict(dict(kEveryKey).get());
  EXPECT_EQ(describe(prefs.cluster()), "[\"host\"]");
  EXPECT_EQ(utf8(prefs.name()), "n");
  EXPECT_EQ(utf8(prefs.storage()), "/s");
  EXPECT_TRUE(prefs.privateStorage);
  EXPECT_FALSE(prefs.publishedStorage);
  EXPECT_EQ(prefs.storageCleanupThreshold, 90);
  EXPECT_EQ(prefs.statusInterval, 9);
  EXPECT_EQ(prefs.maxActiveTargets, 0);
  EXPECT_EQ(prefs.maxActiveSegments, 5000000000);
  EXPECT_TRUE(prefs.local);
  EXPECT_TRUE(prefs.shared);
  EXPECT_TRUE(prefs.unmanagedServices);
  EXPECT_EQ(prefs.unmanagedMultiCaptureThreshold, 2);
}

TEST(ClusterPrefsTest, EveryKeyIsWrittenBack) { EXPECT_EQ(roundTrip(kEveryKey), describe(dict(kEveryKey))); }

TEST(ClusterPrefsTest, AbsentKeysAndWrongTypesGiveTheDefaultsAgain) {
  CClusterPrefs prefs;
  prefs.fromDict(dict(kEveryKey).get());
  prefs.fromDict(dict("").get());
  EXPECT_EQ(describe(prefs.toDict()), plain());
  prefs.fromDict(dict(kEveryKey).get());
  prefs.fromDict(nullptr);
  EXPECT_EQ(describe(prefs.toDict()), plain());
  for (const tovan::SettingDescription& setting : CClusterPrefs::settings()) {
    EXPECT_EQ(roundTrip("<key>" + utf8(setting.key) + "</key><date>2001-01-01T00:00:00Z</date>"), plain())
        << utf8(setting.key);
  }
}

TEST(ClusterPrefsTest, SettingsAtTheirDefaultAreRemoved) {
  EXPECT_EQ(roundTrip("<key>PrivateStorage</key><false/>"), plain());
  EXPECT_EQ(roundTrip("<key>PublishedStorage</key><true/>"), plain());
  EXPECT_EQ(roundTrip("<key>StorageCleanupThreshold</key><integer>-1</integer>"), plain());
  EXPECT_EQ(roundTrip("<key>MaxActiveTargets</key><integer>-1</integer>"), plain());
  EXPECT_EQ(roundTrip("<key>MaxActiveTargets</key><integer>-7</integer>"), plain());
  EXPECT_EQ(roundTrip("<key>MaxActiveSegments</key><integer>-7</integer>"), plain());
  EXPECT_EQ(roundTrip("<key>UnmanagedServices</key><false/>"), plain());
  EXPECT_EQ(roundTrip("<key>UnmanagedMultiCaptureThreshold</key><integer>0</integer>"), plain());
}

TEST(ClusterPrefsTest, ACleanupThresholdOtherThanMinusOneIsKeptEvenWhenNegative) {
  EXPECT_EQ(roundTrip("<key>StorageCleanupThreshold</key><integer>-2</integer>"),
            "{Local: false, Shared: false, StatusInterval: 5, StorageCleanupThreshold: -2}");
}

TEST(ClusterPrefsTest, UnknownKeysSurvive) {
  EXPECT_EQ(roundTrip("<key>Extra</key><array><true/></array>"), plain("Extra: [true], "));
}

TEST(ClusterPrefsTest, ALimitThatIsLiftedRemovesItsKey) {
  CClusterPrefs prefs;
  prefs.fromDict(dict("<key>MaxActiveTargets</key><integer>3</integer><key>Extra</key><true/>").get());
  prefs.maxActiveTargets = -1;
  EXPECT_EQ(describe(prefs.toDict()), plain("Extra: true, "));
}

TEST(ClusterPrefsTest, TheSettersReplaceAndNullClears) {
  CClusterPrefs prefs;
  prefs.fromDict(dict(kEveryKey).get());
  prefs.setName(CFSTR("other"));
  EXPECT_EQ(utf8(prefs.name()), "other");
  prefs.setName(nullptr);
  prefs.setStorage(nullptr);
  prefs.setCluster(nullptr);
  const std::string written = describe(prefs.toDict());
  EXPECT_EQ(written.find("Name"), std::string::npos) << written;
  EXPECT_EQ(written.find("\"/s\""), std::string::npos) << written;
  EXPECT_EQ(written.find("Cluster: "), std::string::npos) << written;
}

TEST(ClusterPrefsTest, TheDictionaryThatWasReadIsNotChanged) {
  const CSharedCFRef<CFDictionaryRef> given = dict("<key>Name</key><string>n</string>");
  CClusterPrefs prefs;
  prefs.fromDict(given.get());
  prefs.setName(CFSTR("other"));
  prefs.toDict();
  EXPECT_EQ(describe(given), "{Name: \"n\"}");
}

TEST(ClusterPrefsTest, ACopyIsAValueOfItsOwn) {
  CClusterPrefs prefs;
  prefs.fromDict(dict(kEveryKey).get());
  CClusterPrefs copy = prefs;
  copy.setName(CFSTR("copy"));
  copy.statusInterval = 1;
  EXPECT_EQ(describe(prefs.toDict()), describe(dict(kEveryKey)));
  prefs = copy;
  EXPECT_EQ(utf8(prefs.name()), "copy");
}

}  // namespace
