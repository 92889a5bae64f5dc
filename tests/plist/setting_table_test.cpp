// The tables of settings, and the page that prints them.
#include <tovan/cluster_prefs.h>
#include <tovan/service_cache_file.h>
#include <tovan/service_config_file.h>
#include <tovan/tovan_config_file.h>

#include "tests/plist/plist_support.h"

namespace {

using namespace test;
using tovan::SettingDescription;
using tovan::SettingList;

std::string cell(const std::string& text) { return "`" + text + "`"; }

// The table as docs/config-file.md prints it.
std::string tableOf(SettingList settings) {
  std::string table = "| Key | Type | Default | Written | Meaning |\n|---|---|---|---|---|\n";
  for (const SettingDescription& setting : settings) {
    std::string key = utf8(setting.key);
    if (setting.container != nullptr) key = utf8(setting.container) + " / " + key;
    table += "| " + cell(key) + " | " + settingTypeText(setting) + " | " + settingDefaultText(setting) + " | " +
             settingWrittenText(setting) + " | " + setting.description + " |\n";
  }
  return table;
}

std::string printedTable(const std::string& className) {
  const std::string page = readFile(TOVAN_SOURCE_DIR "/docs/config-file.md");
  const std::string mark = "<!-- table: " + className + " -->\n";
  const std::size_t start = page.find(mark);
  if (start == std::string::npos) return "no table of " + className;
  const std::size_t end = page.find("<!-- end -->", start);
  return page.substr(start + mark.size(), end - start - mark.size());
}

TEST(SettingTableTest, ThePagePrintsTheTablesOfTheCode) {
  EXPECT_EQ(printedTable("CTovanConfigFile"), tableOf(tovan::CTovanConfigFile::settings()));
  EXPECT_EQ(printedTable("CServiceCacheEntry"), tableOf(tovan::CServiceCacheEntry::settings()));
  EXPECT_EQ(printedTable("CServiceConfigEntry"), tableOf(tovan::CServiceConfigEntry::settings()));
  EXPECT_EQ(printedTable("CClusterPrefs"), tableOf(tovan::CClusterPrefs::settings()));
}

TEST(SettingTableTest, ThePagesExampleIsAFileThatTheLibraryReads) {
  const std::string page = readFile(TOVAN_SOURCE_DIR "/docs/config-file.md");
  const std::size_t start = page.find("```xml\n") + 7;
  const std::string path = scratchFolder("example") + "/config.plist";
  writeFile(path, page.substr(start, page.find("```", start) - start));
  const CSharedCFRef<CFStringRef> cfPath = str(path);
  EXPECT_EQ(utf8(tovan::CTovanConfigFile(cfPath.get()).serverName.get()), "desk");
  tovan::CServiceCacheEntry service;
  ASSERT_TRUE(tovan::CServiceCacheFile(cfPath.get()).getAtIndex(0, service));
  EXPECT_EQ(utf8(service.stdoutPath()), "/tmp/transcoder.out");
  EXPECT_EQ(service.instances, 2);
  tovan::CServiceConfigEntry instance;
  ASSERT_TRUE(tovan::CServiceConfigFile(service.name(), cfPath.get()).getAtIndex(1, instance));
  EXPECT_EQ(utf8(instance.captureKey()), "c2");
}

TEST(SettingTableTest, TextsSayWhatARowMeans) {
  const SettingList settings = tovan::CTovanConfigFile::settings();
  const auto texts = [settings](CFStringRef key) {
    const SettingDescription* const setting = findSetting(settings, key);
    if (setting == nullptr) return std::string("no setting");
    return settingTypeText(*setting) + " / " + settingDefaultText(*setting) + " / " + settingWrittenText(*setting);
  };
  EXPECT_EQ(texts(CFSTR("StdoutPath")), "string / none / when set");
  EXPECT_EQ(texts(CFSTR("DaemonEnabled")), "boolean / true / always");
  EXPECT_EQ(texts(CFSTR("DaemonPort")), "32-bit integer / 2189 / when it differs from the default");
  EXPECT_EQ(texts(CFSTR("ServerPassword")), "string / the empty string / when RequirePassword is true");
  EXPECT_EQ(texts(CFSTR("ServerName")), "string / the computer's name / when set");
  EXPECT_EQ(texts(CFSTR("Advertising")), "one of DN, MC, RV / RV / when it differs from the default");
  EXPECT_EQ(texts(CFSTR("NetworkConnection")), "string / allinterfaces / when it differs from the default");
  EXPECT_EQ(texts(CFSTR("daemonport")), "no setting") << "keys are compared exactly";
  EXPECT_EQ(tovan::settingTypeText({.type = tovan::SettingType::any}), "any value");
  EXPECT_EQ(tovan::settingTypeText({.type = tovan::SettingType::array}), "array");
  EXPECT_EQ(tovan::settingTypeText({.type = tovan::SettingType::dictionary}), "dictionary");
  EXPECT_EQ(tovan::settingTypeText({.type = tovan::SettingType::int64}), "64-bit integer");
  EXPECT_EQ(tovan::settingWrittenText({.written = tovan::SettingWritten::whenNotEmpty}), "when not empty");
  EXPECT_EQ(tovan::settingWrittenText({.written = tovan::SettingWritten::whenNotNegative}), "when 0 or more");
}

TEST(SettingTableTest, EveryRowHasAKeyOfItsOwnAndOneLineForPeople) {
  for (const SettingList settings : {tovan::CTovanConfigFile::settings(), tovan::CServiceCacheEntry::settings(),
                                     tovan::CServiceConfigEntry::settings(), tovan::CClusterPrefs::settings()}) {
    for (const SettingDescription& setting : settings) {
      EXPECT_EQ(findSetting(settings, setting.key), &setting) << utf8(setting.key);
      const std::string description = setting.description;
      EXPECT_GT(description.size(), 10U) << utf8(setting.key);
      EXPECT_EQ(description.find('\n'), std::string::npos) << utf8(setting.key);
    }
  }
}

}  // namespace
