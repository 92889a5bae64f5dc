#include <tovan/constants.h>
#include <tovan/service_config_file.h>

#include "tests/plist/plist_support.h"

namespace {

using namespace test;
using tovan::CServiceConfigEntry;
using tovan::CServiceConfigFile;

const char* const kEntry =
    "<key>akey</key><string>a</string><key>ckey</key><string>c</string><key>cpkey</key><string>p</string>"
    "<key>config</key><dict><key>cancelJobs</key><true/></dict>";

TEST(ServiceConfigEntryTest, ANewEntryIsEmpty) {
  const CServiceConfigEntry entry;
  EXPECT_EQ(entry.name(), nullptr);
  EXPECT_EQ(entry.accessKey(), nullptr);
  EXPECT_EQ(entry.captureKey(), nullptr);
  EXPECT_EQ(entry.capturePermKey(), nullptr);
  EXPECT_EQ(entry.config(), nullptr);
  EXPECT_EQ(describe(entry.toDict()), "{}");
  EXPECT_EQ(utf8(CServiceConfigEntry(CFSTR("n"), nullptr).name()), "n");
}

TEST(ServiceConfigEntryTest, EveryKeyIsReadAndWritten) {
  const CServiceConfigEntry entry(CFSTR("n"), dict(kEntry).get());
  EXPECT_EQ(utf8(entry.accessKey()), "a");
  EXPECT_EQ(utf8(entry.captureKey()), "c");
  EXPECT_EQ(utf8(entry.capturePermKey()), "p");
  EXPECT_EQ(describe(entry.config()), "{cancelJobs: true}");
  EXPECT_EQ(describe(entry.toDict()), describe(dict(kEntry)));
}

TEST(ServiceConfigEntryTest, TheKeysAreTheExportedConstants) {
  const auto settings = CServiceConfigEntry::settings();
  ASSERT_EQ(settings.size(), 4U);
  EXPECT_TRUE(CFEqual(settings[0].key, tovan::TovanCorePrivate::kDictKeyAccessKey));
  EXPECT_TRUE(CFEqual(settings[1].key, tovan::TovanCorePrivate::kDictKeyCaptureKey));
  EXPECT_TRUE(CFEqual(settings[2].key, tovan::TovanCorePrivate::kDictKeyCapturePermKey));
  EXPECT_TRUE(CFEqual(settings[3].key, tovan::TovanCorePrivate::kDictKeyConfig));
}

TEST(ServiceConfigEntryTest, AMissingKeySetsItsFieldToNull) {
  CServiceConfigEntry entry(CFSTR("n"), dict(kEntry).get());
  entry.fromDict(dict("<key>ckey</key><string>x</string>").get());
  EXPECT_EQ(describe(entry.toDict()), "{ckey: \"x\"}");
  EXPECT_EQ(utf8(entry.name()), "n");
  entry.fromDict(nullptr);
  EXPECT_EQ(describe(entry.toDict()), "{}");
}

TEST(ServiceConfigEntryTest, ValuesOfAnyTypeAreKeptAsFound) {
  const CServiceConfigEntry entry(CFSTR("n"),
                                  dict("<key>akey</key><integer>5</integer><key>config</key><string>s</string>").get());
  EXPECT_EQ(entry.accessKey(), nullptr) << "it is no string";
  EXPECT_EQ(describe(entry.toDict()), "{akey: 5, config: \"s\"}");
}

TEST(ServiceConfigEntryTest, TheSettersReplaceAndNullClears) {
  CServiceConfigEntry entry(CFSTR("n"), dict(kEntry).get());
  entry.setAccessKey(CFSTR("1"));
  entry.setCaptureKey(CFSTR("2"));
  entry.setCapturePermKey(CFSTR("3"));
  entry.setConfig(number(4).get());
  EXPECT_EQ(describe(entry.toDict()), "{akey: \"1\", ckey: \"2\", config: 4, cpkey: \"3\"}");
  entry.setAccessKey(nullptr);
  entry.setCaptureKey(nullptr);
  entry.setCapturePermKey(nullptr);
  entry.setConfig(nullptr);
  EXPECT_EQ(describe(entry.toDict()), "{}");
}

TEST(ServiceConfigEntryTest, ACopyIsAValueOfItsOwn) {
  const CServiceConfigEntry entry(CFSTR("n"), dict(kEntry).get());
  CServiceConfigEntry copy = entry;
  copy.setConfig(nullptr);
  EXPECT_EQ(describe(entry.toDict()), describe(dict(kEntry)));
  EXPECT_EQ(utf8(copy.name()), "n");
}

class ServiceConfigFileTest : public ::testing::Test {
 protected:
  const std::string path = scratchFolder("service") + "/config.plist";
  const CSharedCFRef<CFStringRef> cfPath = str(path);

  CServiceConfigFile open(const char* service) const { return CServiceConfigFile(str(service).get(), cfPath.get()); }
};

TEST_F(ServiceConfigFileTest, AServiceWithNothingInTheFileHasNoEntries) {
  const CServiceConfigFile file = open("a");
  CServiceConfigEntry entry;
  EXPECT_FALSE(file.getAtIndex(0, entry));
  EXPECT_EQ(utf8(file.serviceName()), "a");
  EXPECT_FALSE(exists(path));
}

TEST_F(ServiceConfigFileTest, EntriesKeepTheirOrder) {
  CServiceConfigFile file = open("service");
  file.put(CServiceConfigEntry(CFSTR("z"), nullptr));
  file.put(CServiceConfigEntry(CFSTR("a"), dict(kEntry).get()));
  file.flush();
  EXPECT_EQ(describeFile(path),
            "{serviceconfig: {service: {_orderList: [\"z\", \"a\"], a: " + describe(dict(kEntry)) + ", z: {}}}}");
  const CServiceConfigFile again = open("service");
  std::vector<CServiceConfigEntry> entries;
  again.get(entries, 0);
  ASSERT_EQ(entries.size(), 2U);
  EXPECT_EQ(utf8(entries[0].name()), "z");
  EXPECT_EQ(utf8(entries[1].name()), "a");
  EXPECT_EQ(entries[0].config(), nullptr);
}

TEST_F(ServiceConfigFileTest, AfterRemovingOneOfTwoThereIsNoOrderList) {
  CServiceConfigFile file = open("service");
  file.put(CServiceConfigEntry(CFSTR("z"), nullptr));
  file.put(CServiceConfigEntry(CFSTR("a"), nullptr));
  file.flush();
  EXPECT_TRUE(file.remove(CFSTR("z")));
  file.flush();
  EXPECT_EQ(describeFile(path), "{serviceconfig: {service: {a: {}}}}");
}

TEST_F(ServiceConfigFileTest, FlushingOneServiceKeepsTheOthersAndAllOtherSections) {
  writeFile(path, document("<key>mervaneconfig</key><dict><key>SharingType</key><integer>1</integer></dict>"
                           "<key>serviceconfig</key><dict><key>other</key><dict><key>e</key><dict><key>unknown</key>"
                           "<real>0.5</real></dict></dict></dict>"));
  CServiceConfigFile file = open("service");
  file.put(CServiceConfigEntry(CFSTR("n"), nullptr));
  file.flush();
  EXPECT_EQ(describeFile(path),
            "{mervaneconfig: {SharingType: 1}, serviceconfig: {other: {e: {unknown: 0.500000}}, "
            "service: {n: {}}}}");
}

TEST_F(ServiceConfigFileTest, ARefreshAfterTheServiceWentKeepsTheEntriesInMemory) {
  CServiceConfigFile file = open("service");
  file.put(CServiceConfigEntry(CFSTR("n"), nullptr));
  file.flush();
  for (const std::string body : {"", "<key>serviceconfig</key><dict/>", "<key>serviceconfig</key><string/>",
                                 "<key>serviceconfig</key><dict><key>service</key><true/></dict>"}) {
    writeFile(path, document(body));
    EXPECT_TRUE(file.refresh());
    CServiceConfigEntry entry;
    EXPECT_TRUE(file.get(CFSTR("n"), entry)) << body;
  }
}

TEST_F(ServiceConfigFileTest, ASwitchOfTheWholeServiceIsChangedInEntryNought) {
  CServiceConfigFile file = open("service");
  file.put(CServiceConfigEntry(CFSTR("n"), dict(kEntry).get()));
  file.flush();
  CServiceConfigFile later = open("service");
  CServiceConfigEntry entry;
  ASSERT_TRUE(later.getAtIndex(0, entry));
  const CSharedCFRef<CFMutableDictionaryRef> config =
      CFDictionaryCreateMutableCopy(kCFAllocatorDefault, 0, static_cast<CFDictionaryRef>(entry.config()));
  CFDictionarySetValue(config.get(), tovan::TovanCorePrivate::kDictKeyCancelJobs, kCFBooleanFalse);
  entry.setConfig(config.get());
  ASSERT_TRUE(later.putAtIndex(0, entry));
  later.flush();
  EXPECT_EQ(describeFile(path),
            "{serviceconfig: {service: {n: {akey: \"a\", ckey: \"c\", config: {cancelJobs: false}, "
            "cpkey: \"p\"}}}}");
}

TEST_F(ServiceConfigFileTest, AFlushUnderAHeldLockIsBasedOnTheSectionInMemory) {
  writeFile(path, document("<key>other</key><true/><key>serviceconfig</key><dict><key>service</key><dict><key>n</key>"
                           "<dict/></dict></dict>"));
  CServiceConfigFile file = open("service");
  ASSERT_TRUE(file.lockForRW());
  file.refresh();
  file.flush();
  file.unlock();
  EXPECT_EQ(describeFile(path), "{n: {}, serviceconfig: {service: {n: {}}}}");
}

TEST_F(ServiceConfigFileTest, TheNameIsACopyAndTheDefaultPathTheSharedFile) {
  const CSharedCFRef<CFMutableStringRef> name = CFStringCreateMutableCopy(kCFAllocatorDefault, 0, CFSTR("service"));
  const CServiceConfigFile file(name.get());
  CFStringAppend(name.get(), CFSTR("x"));
  EXPECT_EQ(utf8(file.serviceName()), "service");
  EXPECT_EQ(utf8(file.filePath()), scratchHome() + "/Library/Application Support/Lumisphere/LumisphereConfig.plist");
}

}  // namespace
