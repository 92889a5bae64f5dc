#include <tovan/constants.h>
#include <tovan/tovan_config_file.h>

#include <filesystem>

#include "platform/system/host.h"
#include "tests/plist/plist_support.h"

namespace {

using namespace test;
using tovan::CTovanConfigFile;

class TovanConfigFileTest : public ::testing::Test {
 protected:
  const std::string path = scratchFolder("config") + "/config.plist";
  const CSharedCFRef<CFStringRef> cfPath = str(path);

  void writeSection(const std::string& body) const {
    writeFile(path, document("<key>mervaneconfig</key><dict>" + body + "</dict>"));
  }
  std::string writtenSection() const { return describe(sectionOfFile(path, "mervaneconfig")); }
  // What a fresh object, changed by `change`, writes.
  template <class Change>
  std::string writtenAfter(Change change) const {
    CTovanConfigFile file(cfPath.get());
    change(file);
    return describe(file.toPropertyList());
  }
};

// The section of a file that nobody configured, with `extra` in front.
std::string plainSection(const std::string& extra = "") {
  return "{" + extra +
         "DNSDomain: \"\", DaemonEnabled: true, LogToFile: false, RequirePassword: false, ServerName: \"" +
         platform::machineName() + "\", SharingEnabled: false, SharingType: 0}";
}

TEST_F(TovanConfigFileTest, AFileWithoutTheSectionGivesTheDefaults) {
  CTovanConfigFile file(cfPath.get());
  EXPECT_TRUE(file.stdoutPath.isNull());
  EXPECT_TRUE(file.stdoutServicePath.isNull());
  EXPECT_TRUE(file.daemonEnabled);
  EXPECT_EQ(file.daemonPort, 2189);
  EXPECT_TRUE(file.launchContentAgent);
  EXPECT_FALSE(file.sharingEnabled);
  EXPECT_EQ(file.sharingType, 0);
  EXPECT_FALSE(file.logToFile);
  EXPECT_FALSE(file.requirePassword);
  EXPECT_EQ(describe(file.serverPassword), "\"\"");
  EXPECT_EQ(utf8(file.serverName.get()), platform::machineName());
  EXPECT_EQ(file.advertising, 3);
  EXPECT_EQ(utf8(file.networkConnection.get()), "allinterfaces");
  EXPECT_TRUE(file.allowVistrelAds);
  EXPECT_TRUE(file.allowRemoteAds);
  EXPECT_EQ(describe(file.dnsDomain), "\"\"");
  EXPECT_FALSE(file.useDNSDomain);
  EXPECT_FALSE(file.usePortRange);
  EXPECT_EQ(file.portRangeStart, 0);
  EXPECT_EQ(file.portRangePorts, 0);
  EXPECT_FALSE(exists(path));
}

TEST_F(TovanConfigFileTest, TheDefaultsWriteFewKeys) {
  CTovanConfigFile file(cfPath.get());
  file.flush();
  EXPECT_EQ(describeFile(path), "{mervaneconfig: " + plainSection() + "}");
}

// One row of the table: the key, a value that is not the default, and what a fresh file then holds.
struct Row {
  const char* key;
  std::string body;       // the value in the file
  std::string described;  // the value as described
};

const std::vector<Row>& changedRows() {
  static const std::vector<Row> rows = {
      {"StdoutPath", "<string>/tmp/o u t</string>", "\"/tmp/o u t\""},
      {"StdoutServicePath", "<string>/tmp/s</string>", "\"/tmp/s\""},
      {"DaemonEnabled", "<false/>", "false"},
      {"DaemonPort", "<integer>4711</integer>", "4711"},
      {"LaunchContentAgent", "<false/>", "false"},
      {"SharingEnabled", "<true/>", "true"},
      {"SharingType", "<integer>-2</integer>", "-2"},
      {"LogToFile", "<true/>", "true"},
      {"RequirePassword", "<true/>", "true"},
      {"ServerPassword", "<string>s&amp;cret</string>", "\"s&cret\""},
      {"ServerName", "<string>Büro \"1\"</string>", "\"Büro \"1\"\""},
      {"Advertising", "<string>DN</string>", "\"DN\""},
      {"NetworkConnection", "<string>eth0</string>", "\"eth0\""},
      {"AllowVistrelAds", "<false/>", "false"},
      {"AllowRemoteAds", "<false/>", "false"},
      {"DNSDomain", "<string>example.org</string>", "\"example.org\""},
      {"UseDNSDomain", "<true/>", "true"},
      {"UsePortRange", "<true/>", "true"},
      {"PortRangeStart", "<integer>5000</integer>", "5000"},
      {"PortRangePorts", "<integer>16</integer>", "16"},
  };
  return rows;
}

TEST_F(TovanConfigFileTest, EveryRowIsReadAndWrittenBack) {
  ASSERT_EQ(changedRows().size(), CTovanConfigFile::settings().size());
  for (std::size_t i = 0; i < changedRows().size(); ++i) {
    const Row& row = changedRows()[i];
    EXPECT_EQ(utf8(CTovanConfigFile::settings()[i].key), row.key) << "the rows are in the order of the members";
    // The password is kept only while one is required.
    const std::string condition = std::string(row.key) == "ServerPassword" ? "<key>RequirePassword</key><true/>" : "";
    writeSection("<key>" + std::string(row.key) + "</key>" + row.body + condition);
    CTovanConfigFile file(cfPath.get());
    EXPECT_EQ(describe(file.copySetting(str(row.key).get())), row.described) << row.key;
    file.flush();
    const CSharedCFRef<CFTypeRef> section = sectionOfFile(path, "mervaneconfig");
    EXPECT_EQ(describe(CFDictionaryGetValue(static_cast<CFDictionaryRef>(section.get()), str(row.key).get())),
              row.described)
        << row.key << " in " << describe(section);
    EXPECT_EQ(describe(CTovanConfigFile(cfPath.get()).copySetting(str(row.key).get())), row.described) << row.key;
  }
}

TEST_F(TovanConfigFileTest, EveryRowReadsAsItsDefaultWhenTheTypeIsWrong) {
  for (const Row& row : changedRows()) {
    for (const std::string wrong : {"<date>2001-01-01T00:00:00Z</date>", "<array/>", "<real>0.5</real>"}) {
      writeSection("<key>" + std::string(row.key) + "</key>" + wrong);
      CTovanConfigFile file(cfPath.get());
      const tovan::SettingDescription* const setting =
          tovan::findSetting(CTovanConfigFile::settings(), str(row.key).get());
      ASSERT_NE(setting, nullptr) << row.key;
      EXPECT_EQ(describe(file.copySetting(setting->key)), describe(tovan::copySettingDefault(*setting)))
          << row.key << " = " << wrong;
    }
  }
}

TEST_F(TovanConfigFileTest, TheMembersAreWhatTheKeysSay) {
  std::string all;
  for (const Row& row : changedRows()) all += "<key>" + std::string(row.key) + "</key>" + row.body;
  writeSection(all);
  CTovanConfigFile file(cfPath.get());
  EXPECT_EQ(utf8(file.stdoutPath.get()), "/tmp/o u t");
  EXPECT_EQ(utf8(file.stdoutServicePath.get()), "/tmp/s");
  EXPECT_FALSE(file.daemonEnabled);
  EXPECT_EQ(file.daemonPort, 4711);
  EXPECT_FALSE(file.launchContentAgent);
  EXPECT_TRUE(file.sharingEnabled);
  EXPECT_EQ(file.sharingType, -2);
  EXPECT_TRUE(file.logToFile);
  EXPECT_TRUE(file.requirePassword);
  EXPECT_EQ(utf8(file.serverPassword.get()), "s&cret");
  EXPECT_EQ(utf8(file.serverName.get()), "Büro \"1\"");
  EXPECT_EQ(file.advertising, 1);
  EXPECT_EQ(utf8(file.networkConnection.get()), "eth0");
  EXPECT_FALSE(file.allowVistrelAds);
  EXPECT_FALSE(file.allowRemoteAds);
  EXPECT_EQ(utf8(file.dnsDomain.get()), "example.org");
  EXPECT_TRUE(file.useDNSDomain);
  EXPECT_TRUE(file.usePortRange);
  EXPECT_EQ(file.portRangeStart, 5000);
  EXPECT_EQ(file.portRangePorts, 16);
}

TEST_F(TovanConfigFileTest, SettingsAtTheirDefaultAreLeftOut) {
  const auto unchanged = [](CTovanConfigFile&) {};
  EXPECT_EQ(writtenAfter(unchanged), plainSection());
  EXPECT_EQ(writtenAfter([](CTovanConfigFile& file) { file.daemonPort = 2189; }), plainSection());
  EXPECT_EQ(writtenAfter([](CTovanConfigFile& file) { file.advertising = 3; }), plainSection());
  EXPECT_EQ(writtenAfter([](CTovanConfigFile& file) { file.networkConnection = str("allinterfaces"); }),
            plainSection());
  EXPECT_EQ(writtenAfter([](CTovanConfigFile& file) { file.networkConnection = nullptr; }), plainSection());
}

TEST_F(TovanConfigFileTest, WhatIsNullIsNotWrittenWhereTheRuleSaysSo) {
  EXPECT_EQ(writtenAfter([](CTovanConfigFile& file) { file.serverName = nullptr; }).find("ServerName"),
            std::string::npos);
  EXPECT_EQ(writtenAfter([](CTovanConfigFile& file) { file.dnsDomain = nullptr; }).find("DNSDomain"),
            std::string::npos);
}

TEST_F(TovanConfigFileTest, AdvertisingIsAWordInTheFile) {
  EXPECT_EQ(writtenAfter([](CTovanConfigFile& file) { file.advertising = 1; }), plainSection("Advertising: \"DN\", "));
  EXPECT_EQ(writtenAfter([](CTovanConfigFile& file) { file.advertising = 2; }), plainSection("Advertising: \"MC\", "));
  EXPECT_EQ(writtenAfter([](CTovanConfigFile& file) { file.advertising = 7; }), plainSection())
      << "a code without a word";
  for (const auto& [word, code] : std::vector<std::pair<std::string, int>>{
           {"DN", 1}, {"MC", 2}, {"RV", 3}, {"rv", 3}, {"dn", 3}, {"", 3}, {"DN ", 3}}) {
    writeSection("<key>Advertising</key><string>" + word + "</string>");
    EXPECT_EQ(CTovanConfigFile(cfPath.get()).advertising, code) << "\"" << word << "\"";
  }
}

TEST_F(TovanConfigFileTest, AnUnknownAdvertisingLeavesTheCodeAsItWas) {
  CTovanConfigFile file(cfPath.get());
  file.advertising = 1;
  file.fromPropertyList(dict("<key>Advertising</key><string>xx</string>").get());
  EXPECT_EQ(file.advertising, 1);
}

TEST_F(TovanConfigFileTest, APasswordIsLostWhileNoneIsRequired) {
  writeSection("<key>RequirePassword</key><true/><key>ServerPassword</key><string>secret</string>");
  CTovanConfigFile file(cfPath.get());
  file.flush();
  EXPECT_NE(writtenSection().find("ServerPassword: \"secret\""), std::string::npos) << writtenSection();
  file.requirePassword = false;
  file.flush();
  EXPECT_EQ(writtenSection().find("ServerPassword"), std::string::npos) << writtenSection();
  file.refresh();
  EXPECT_EQ(describe(file.serverPassword), "\"\"");
}

TEST_F(TovanConfigFileTest, AnUnsetPasswordIsWrittenAsTheEmptyString) {
  const std::string written = writtenAfter([](CTovanConfigFile& file) {
    file.requirePassword = true;
    file.serverPassword = nullptr;
  });
  EXPECT_NE(written.find("ServerPassword: \"\""), std::string::npos) << written;
}

TEST_F(TovanConfigFileTest, APortOfNoughtReadsAsTheDefaultAndIsNotWrittenBack) {
  writeSection("<key>DaemonPort</key><integer>0</integer>");
  CTovanConfigFile file(cfPath.get());
  EXPECT_EQ(file.daemonPort, 2189);
  file.flush();
  EXPECT_EQ(writtenSection(), plainSection());
}

TEST_F(TovanConfigFileTest, NumbersThatAreNo32BitIntegersReadAsTheDefault) {
  for (const std::string value :
       {"<integer>4294967296</integer>", "<integer>-2147483649</integer>", "<integer>18446744073709551615</integer>",
        "<real>80.5</real>", "<string>80</string>", "<true/>"}) {
    writeSection("<key>DaemonPort</key>" + value);
    EXPECT_EQ(CTovanConfigFile(cfPath.get()).daemonPort, 2189) << value;
  }
  writeSection("<key>DaemonPort</key><real>80.0</real>");
  EXPECT_EQ(CTovanConfigFile(cfPath.get()).daemonPort, 80);
}

TEST_F(TovanConfigFileTest, AnEmptyServerNameReadsAsTheComputersName) {
  writeSection("<key>ServerName</key><string></string>");
  EXPECT_EQ(utf8(CTovanConfigFile(cfPath.get()).serverName.get()), platform::machineName());
}

TEST_F(TovanConfigFileTest, InitRefreshPutsTheMembersBackButForTheStandardOutputPaths) {
  std::string all;
  for (const Row& row : changedRows()) all += "<key>" + std::string(row.key) + "</key>" + row.body;
  writeSection(all);
  CTovanConfigFile file(cfPath.get());
  file.initRefresh();
  EXPECT_EQ(utf8(file.stdoutPath.get()), "/tmp/o u t");
  EXPECT_EQ(utf8(file.stdoutServicePath.get()), "/tmp/s");
  EXPECT_TRUE(file.daemonEnabled);
  EXPECT_EQ(file.daemonPort, 0);
  EXPECT_TRUE(file.launchContentAgent);
  EXPECT_FALSE(file.sharingEnabled);
  EXPECT_EQ(file.sharingType, 0);
  EXPECT_FALSE(file.logToFile);
  EXPECT_FALSE(file.requirePassword);
  EXPECT_TRUE(file.serverPassword.isNull());
  EXPECT_TRUE(file.serverName.isNull());
  EXPECT_EQ(file.advertising, 3);
  EXPECT_TRUE(file.networkConnection.isNull());
  EXPECT_TRUE(file.allowVistrelAds);
  EXPECT_TRUE(file.allowRemoteAds);
  EXPECT_TRUE(file.dnsDomain.isNull());
  EXPECT_FALSE(file.useDNSDomain);
  EXPECT_FALSE(file.usePortRange);
  EXPECT_EQ(file.portRangeStart, 0);
  EXPECT_EQ(file.portRangePorts, 0);
}

TEST_F(TovanConfigFileTest, ARefreshForgetsWhatTheFileNoLongerSays) {
  writeSection("<key>StdoutPath</key><string>/tmp/o</string><key>DaemonPort</key><integer>80</integer>");
  CTovanConfigFile file(cfPath.get());
  writeSection("");
  EXPECT_TRUE(file.refresh());
  EXPECT_EQ(file.daemonPort, 2189);
  EXPECT_EQ(utf8(file.stdoutPath.get()), "/tmp/o") << "the standard-output paths stay";
}

TEST_F(TovanConfigFileTest, FromPropertyListChangesOnlyTheKeysThatArePresent) {
  CTovanConfigFile file(cfPath.get());
  file.sharingType = 4;
  file.fromPropertyList(dict("<key>PortRangeStart</key><integer>6000</integer>").get());
  EXPECT_EQ(file.sharingType, 4);
  EXPECT_EQ(file.portRangeStart, 6000);
  EXPECT_EQ(thrownBy([&] { file.fromPropertyList(nullptr); }),
            "4: CPropertyListBasicFile::fromPropertyList[" + pid() + "](): propertyList is NULL");
}

TEST_F(TovanConfigFileTest, AfterARefreshTheDocumentInMemoryIsTheSection) {
  writeFile(path, document("<key>Version</key><string>9</string><key>other</key><true/>"
                           "<key>mervaneconfig</key><dict><key>SharingType</key><integer>2</integer></dict>"));
  CTovanConfigFile file(cfPath.get());
  EXPECT_EQ(describe(static_cast<tovan::CPropertyListBasicFile&>(file).toPropertyList()), "{SharingType: 2}");
  EXPECT_EQ(utf8(file.fileVersion()), "1.0") << "the section has no version of its own";
}

TEST_F(TovanConfigFileTest, AFlushKeepsAllOtherSectionsAndUnknownRootKeys) {
  writeFile(path, document("<key>Version</key><string>9</string><key>other</key><true/>"
                           "<key>mervaneconfig</key><dict><key>Unknown</key><integer>2</integer></dict>"));
  CTovanConfigFile file(cfPath.get());
  file.flush();
  EXPECT_EQ(describeFile(path), "{Version: \"9\", mervaneconfig: " + plainSection() + ", other: true}");
}

TEST_F(TovanConfigFileTest, AFlushUnderAHeldLockWritesTheSectionAsTheWholeFile) {
  writeFile(path, document("<key>other</key><true/><key>mervaneconfig</key><dict><key>SharingType</key>"
                           "<integer>2</integer></dict>"));
  CTovanConfigFile file(cfPath.get());
  ASSERT_TRUE(file.lockForRW());
  file.refresh();
  file.flush();
  ASSERT_TRUE(file.unlock());
  const std::string section = plainSection();
  const std::string written = section.substr(0, section.size() - 2) + "2}";
  EXPECT_EQ(describeFile(path), "{SharingType: 2, mervaneconfig: " + written + "}");
}

TEST_F(TovanConfigFileTest, ASectionOfAnotherTypeReadsAsAbsent) {
  writeFile(path, document("<key>mervaneconfig</key><string>oops</string>"));
  CTovanConfigFile file(cfPath.get());
  EXPECT_EQ(file.daemonPort, 2189);
}

TEST_F(TovanConfigFileTest, TheDefaultPathIsInTheUsersHome) {
  const std::string shared = scratchHome() + "/Library/Application Support/Lumisphere/LumisphereConfig.plist";
  std::filesystem::remove(shared);
  CTovanConfigFile file;
  EXPECT_EQ(utf8(file.filePath()), shared);
  EXPECT_EQ(utf8(CTovanConfigFile(CFSTR("~/x.plist")).filePath()), scratchHome() + "/x.plist");
  file.sharingType = 5;
  file.flush();
  EXPECT_EQ(CTovanConfigFile().sharingType, 5);
  std::filesystem::remove(shared);
}

TEST_F(TovanConfigFileTest, TheConstantsAreWhatTheTableSays) {
  EXPECT_EQ(utf8(CTovanConfigFile::sAllInterfacesValue), "allinterfaces");
  EXPECT_EQ(tovan::TovanCorePrivate::kTovanDaemonPortNumber, 2189);
}

// ---- By key --------------------------------------------------------------------------------------------------------

TEST_F(TovanConfigFileTest, SettingsAreSetByKey) {
  CTovanConfigFile file(cfPath.get());
  file.setSetting(CFSTR("DaemonPort"), number(99).get());
  file.setSetting(CFSTR("DaemonEnabled"), kCFBooleanFalse);
  file.setSetting(CFSTR("ServerName"), CFSTR("desk"));
  file.setSetting(CFSTR("Advertising"), CFSTR("MC"));
  EXPECT_EQ(file.daemonPort, 99);
  EXPECT_FALSE(file.daemonEnabled);
  EXPECT_EQ(utf8(file.serverName.get()), "desk");
  EXPECT_EQ(file.advertising, 2);
  EXPECT_EQ(describe(file.copySetting(CFSTR("Advertising"))), "\"MC\"");
}

TEST_F(TovanConfigFileTest, NullPutsASettingBackToItsDefault) {
  writeSection(
      "<key>StdoutPath</key><string>/tmp/o</string><key>DaemonPort</key><integer>80</integer>"
      "<key>ServerName</key><string>desk</string><key>Advertising</key><string>DN</string>");
  CTovanConfigFile file(cfPath.get());
  for (const tovan::SettingDescription& setting : CTovanConfigFile::settings()) {
    file.setSetting(setting.key, nullptr);
    EXPECT_EQ(describe(file.copySetting(setting.key)), describe(tovan::copySettingDefault(setting)))
        << utf8(setting.key);
  }
  EXPECT_EQ(describe(file.toPropertyList()), plainSection());
}

TEST_F(TovanConfigFileTest, UnknownKeysAndWrongTypesAreRefusedByName) {
  CTovanConfigFile file(cfPath.get());
  EXPECT_EQ(thrownBy([&] { file.setSetting(CFSTR("DeamonPort"), number(1).get()); }),
            "1: CTovanConfigFile::setSetting: there is no setting \"DeamonPort\"");
  const auto refused = [&](CFStringRef key, CFTypeRef value) { return thrownBy([&] { file.setSetting(key, value); }); };
  const std::string start = "1: CTovanConfigFile::setSetting: the setting ";
  EXPECT_EQ(refused(CFSTR("DaemonPort"), CFSTR("80")),
            start + "\"DaemonPort\" takes a 32-bit integer, not the string \"80\"");
  EXPECT_EQ(refused(CFSTR("DaemonPort"), number(1LL << 40).get()),
            start + "\"DaemonPort\" takes a 32-bit integer, not the number 1099511627776");
  EXPECT_EQ(refused(CFSTR("DaemonEnabled"), number(1).get()),
            start + "\"DaemonEnabled\" takes a boolean, not the number 1");
  EXPECT_EQ(refused(CFSTR("Advertising"), CFSTR("rv")),
            start + "\"Advertising\" takes one of DN, MC, RV, not the string \"rv\"");
  EXPECT_EQ(refused(CFSTR("ServerName"), kCFBooleanTrue),
            start + "\"ServerName\" takes a string, not the boolean true");
  EXPECT_EQ(refused(CFSTR("ServerName"), dict("").get()), start + "\"ServerName\" takes a string, not a dictionary");
  EXPECT_EQ(refused(CFSTR("ServerName"), parsed("<plist><array/></plist>").get()),
            start + "\"ServerName\" takes a string, not an array");
  EXPECT_NE(refused(CFSTR("ServerName"), parsed("<plist><date>2001-01-01T00:00:00Z</date></plist>").get())
                .find("takes a string, not the value 2001-01-01"),
            std::string::npos);
  EXPECT_EQ(describe(file.toPropertyList()), plainSection()) << "nothing was changed";
  EXPECT_TRUE(file.copySetting(CFSTR("DeamonPort")).isNull());
}

}  // namespace
