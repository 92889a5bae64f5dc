#include <gmock/gmock.h>

#include "tests/plist/updater_support.h"

namespace {

using namespace test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using tovan::TovanConfigUpdater;
using Step = TovanConfigUpdater::Step;

class TovanConfigUpdaterTest : public UpdaterTest {
 protected:
  const std::string copying = "Mervane daemon needs to copy the lumisphere config file " + user;
  const std::string merging = "Mervane daemon needs to merge the lumisphere config file " + user;
  const std::string failing = "Exception caught while copying/merging the lumisphere config file : ";

  std::string missingText(const std::string& path) const {
    return "TovanConfigUpdater: file \"" + path + "\" not found";
  }

  // The user's file has these contents and is to be replaced; what it says of the copy that it kept.
  std::string reasonForReplacing(const std::string& contents) {
    writeFile(master, configuration("1.1"));
    writeFile(user, contents);
    reported.str("");
    EXPECT_TRUE(run());
    EXPECT_EQ(readFile(user), readFile(master));
    const std::vector<std::string> said = lines();
    const std::vector<std::string> kept = keptCopies();
    if (kept.size() != 1 || said.size() < 2) return "no copy was kept";
    EXPECT_EQ(readFile(kept[0]), contents);
    EXPECT_EQ(said[said.size() - 2], copying + " (invalid contents)");
    const std::string begin = "Mervane daemon keeps the former lumisphere config file as " + kept[0] + " (";
    EXPECT_THAT(said.back(), testing::StartsWith(begin));
    std::filesystem::remove(kept[0]);
    return said.back().substr(begin.size(), said.back().size() - begin.size() - 1);
  }
};

// ---- A missing file

TEST_F(TovanConfigUpdaterTest, AMissingFileIsCreatedFromTheShippedDefaults) {
  writeFile(master, configuration("1.1", "<key>other</key><string>x</string>"));
  EXPECT_TRUE(updater.needCopyLumisphereConfigFile());
  EXPECT_EQ(updater.nextStep(), Step::create);
  EXPECT_TRUE(run());
  EXPECT_EQ(readFile(user), readFile(master));
  EXPECT_EQ(readFile(previous), readFile(master));
  EXPECT_EQ(modeOf(user), 0600U);
  EXPECT_EQ(modeOf(previous), 0600U);
  EXPECT_THAT(lines(), ElementsAre(copying));
  EXPECT_FALSE(updater.needCopyLumisphereConfigFile());
  EXPECT_EQ(updater.nextStep(), Step::nothing);
}

TEST_F(TovanConfigUpdaterTest, WithoutAMasterFileNothingIsCreated) {
  EXPECT_FALSE(run());
  EXPECT_THAT(lines(), ElementsAre(copying, failing + missingText(master)));
  EXPECT_FALSE(exists(user));
  EXPECT_FALSE(exists(previous));
  EXPECT_EQ(thrownBy([&] { updater.copyLumisphereConfigFile(); }), "4: " + missingText(master));
  EXPECT_EQ(thrownBy([&] { updater.createLumisphereConfigFile(); }), "4: " + missingText(master));
}

TEST_F(TovanConfigUpdaterTest, AMasterFileThatIsGarbageCreatesNothing) {
  writeFile(master, "garbage");
  EXPECT_FALSE(run());
  ASSERT_THAT(lines(), SizeIs(2));
  EXPECT_THAT(lines()[1], testing::StartsWith(failing + "CPropertyListBasicFile::refresh[" + pid() + "](" + master +
                                              "): CFPropertyListCreateFromXMLData() failed, error = "));
  EXPECT_FALSE(exists(user));
  EXPECT_FALSE(exists(previous));
}

TEST_F(TovanConfigUpdaterTest, AnEmptyMasterFileCreatesNothing) {
  writeFile(master, "");
  EXPECT_FALSE(run());
  EXPECT_THAT(lines(), ElementsAre(copying, failing + "TovanConfigUpdater: file \"" + master + "\" is empty"));
  EXPECT_FALSE(exists(user));
}

TEST_F(TovanConfigUpdaterTest, FilesThatWereOpenToOthersAreClosed) {
  writeFile(master, configuration("1.1"));
  writeFile(user, configuration("1.0"));
  writeFile(previous, configuration("1.0"));
  ASSERT_EQ(::chmod(user.c_str(), 0644), 0);
  ASSERT_EQ(::chmod(previous.c_str(), 0666), 0);
  EXPECT_TRUE(run());
  EXPECT_THAT(lines(), ElementsAre(merging));
  EXPECT_EQ(modeOf(user), 0600U);
  EXPECT_EQ(modeOf(previous), 0600U);
}

TEST_F(TovanConfigUpdaterTest, AFileOpenToOthersIsClosedHoweverTheDefaultsComeIntoIt) {
  writeFile(master, configuration("1.1"));
  ASSERT_EQ(::chmod(master.c_str(), 0644), 0);
  const auto open = [&](const std::string& contents) {
    writeFile(user, contents);
    writeFile(previous, contents);
    ASSERT_EQ(::chmod(user.c_str(), 0644), 0);
    ASSERT_EQ(::chmod(previous.c_str(), 0644), 0);
  };
  const auto expectClosed = [&](const char* how) {
    EXPECT_EQ(readFile(user), readFile(master)) << how;
    EXPECT_EQ(modeOf(user), 0600U) << how;
    EXPECT_EQ(modeOf(previous), 0600U) << how;
  };
  open("");
  EXPECT_TRUE(updater.createLumisphereConfigFile());
  expectClosed("created");
  open("invalid");
  EXPECT_TRUE(run());
  expectClosed("replaced");
  open(configuration("9.0"));
  updater.copyLumisphereConfigFile();
  expectClosed("copied");
}

TEST_F(TovanConfigUpdaterTest, CopyingReplacesWhateverIsThere) {
  writeFile(master, configuration("1.1"));
  writeFile(user, configuration("9.0"));
  updater.copyLumisphereConfigFile();
  EXPECT_EQ(readFile(user), readFile(master));
  EXPECT_EQ(readFile(previous), readFile(master));
}

TEST_F(TovanConfigUpdaterTest, CreatingLeavesAFileAloneThatIsThereByThen) {
  writeFile(master, configuration("1.1"));
  writeFile(user, configuration("1.0"));
  EXPECT_FALSE(updater.createLumisphereConfigFile());
  EXPECT_EQ(readFile(user), configuration("1.0"));
  EXPECT_FALSE(exists(previous));
  writeFile(user, "");
  EXPECT_TRUE(updater.createLumisphereConfigFile());
  EXPECT_EQ(readFile(user), configuration("1.1"));
}

// ---- Contents

TEST_F(TovanConfigUpdaterTest, ContentsThatCannotBeReadAreReplacedAndKept) {
  const std::string reason = reasonForReplacing("<plist><dict><key>broken");
  EXPECT_THAT(reason, HasSubstr("CFPropertyListCreateFromXMLData() failed, error = "));
  ASSERT_THAT(lines(), SizeIs(3));
  EXPECT_THAT(lines()[0],
              testing::StartsWith("Exception caught while checking contents of the lumisphere config file : "
                                  "CPropertyListBasicFile::refresh[" +
                                  pid() + "](" + user + "): CFPropertyListCreateFromXMLData() failed, error = "));
  EXPECT_EQ(readFile(previous), readFile(master));
}

TEST_F(TovanConfigUpdaterTest, ContentsWithoutTheRequiredServicesAreReplacedAndKept) {
  const std::string admin = "jobcontroller:com.brant.mervane.cluster.admin";
  const std::string transcoder = "servicecontroller:com.brant.klarn.transcoderx";
  const auto entry = [](const std::string& name) {
    return "<key>" + name + "</key><dict>" + serviceEntry() + "</dict>";
  };
  const auto with = [](const std::string& entries) {
    return document("<key>mervaneservices</key><dict>" + entries + "</dict>");
  };
  EXPECT_EQ(reasonForReplacing(document("")), "fewer than two services are installed");
  EXPECT_EQ(reasonForReplacing(with(entry(admin))), "fewer than two services are installed");
  EXPECT_EQ(reasonForReplacing(with(entry(admin) + entry("other:service"))),
            "the required service " + transcoder + " is not installed");
  EXPECT_EQ(reasonForReplacing(with(entry(transcoder) + entry("other:service"))),
            "the required service " + admin + " is not installed");
  EXPECT_EQ(reasonForReplacing(document("<key>mervaneservices</key><string>none</string>")),
            "fewer than two services are installed");
}

TEST_F(TovanConfigUpdaterTest, RequiredServicesWithoutSensibleFieldsAreReplacedAndKept) {
  const std::string admin = "the service jobcontroller:com.brant.mervane.cluster.admin";
  const std::string transcoder = "the service servicecontroller:com.brant.klarn.transcoderx";
  EXPECT_EQ(reasonForReplacing(document(services(""))), admin + " has no \"Path\"");
  EXPECT_EQ(reasonForReplacing(document(services("<key>Path</key><integer>1</integer>"))), admin + " has no \"Path\"");
  EXPECT_EQ(reasonForReplacing(document(services(serviceEntry(), serviceEntry("bin/x")))),
            "the \"Path\" of " + transcoder + " is no absolute path of a file: bin/x");
  EXPECT_EQ(reasonForReplacing(document(services(serviceEntry("/opt/")))),
            "the \"Path\" of " + admin + " is no absolute path of a file: /opt/");
  EXPECT_EQ(reasonForReplacing(
                document(services("<key>Path</key><string>/x</string><key>UserID</key><integer>-2</integer>"))),
            "the \"UserID\" of " + admin + " is -2");
}

TEST_F(TovanConfigUpdaterTest, ValidContentsAreLeftAlone) {
  for (const std::string& body :
       {services(), services(serviceEntry("file:///opt/x"), "<key>Path</key><string>/x</string>"),
        services() + "<key>mervaneconfig</key><string>of another type</string>"}) {
    writeFile(user, document(body));
    EXPECT_TRUE(updater.lumisphereConfigFileContentsValid()) << body;
    EXPECT_EQ(updater.contentsProblem(), std::nullopt);
  }
  EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(TovanConfigUpdaterTest, AMissingFileHasNoValidContents) {
  EXPECT_FALSE(updater.lumisphereConfigFileContentsValid());
  EXPECT_FALSE(exists(user));
}

TEST_F(TovanConfigUpdaterTest, TheCopyIsNamedByTheDateAndForItsOwnerOnly) {
  writeFile(master, configuration("1.1"));
  writeFile(user, "first");
  EXPECT_TRUE(run());
  writeFile(user, "second");
  EXPECT_TRUE(run());
  writeFile(user, "third");
  EXPECT_TRUE(run());
  std::vector<std::string> contents;
  for (const std::string& copy : keptCopies()) {
    contents.push_back(readFile(copy));
    EXPECT_EQ(modeOf(copy), 0600U);
    EXPECT_THAT(
        copy.substr(user.size()),
        testing::MatchesRegex(R"(\.20[0-9][0-9]-[0-9][0-9]-[0-9][0-9]-[0-9][0-9][0-9][0-9][0-9][0-9](-[0-9])?)"));
  }
  EXPECT_THAT(contents, testing::UnorderedElementsAre("first", "second", "third"));
}

TEST_F(TovanConfigUpdaterTest, AnEmptyFileIsReplacedWithoutACopy) {
  writeFile(master, configuration("1.1"));
  writeFile(user, "");
  EXPECT_TRUE(run());
  EXPECT_EQ(readFile(user), readFile(master));
  EXPECT_THAT(lines(), ElementsAre(copying + " (invalid contents)"));
  EXPECT_THAT(keptCopies(), IsEmpty());
}

TEST_F(TovanConfigUpdaterTest, ShippedDefaultsThatAreNotValidThemselvesLeaveNoHeapOfCopies) {
  writeFile(master, document(""));
  EXPECT_TRUE(run());
  EXPECT_TRUE(run());
  EXPECT_TRUE(run());
  EXPECT_THAT(lines(), ElementsAre(copying, copying + " (invalid contents)", copying + " (invalid contents)"));
  EXPECT_THAT(keptCopies(), IsEmpty());
  EXPECT_EQ(readFile(user), document(""));
}

TEST_F(TovanConfigUpdaterTest, InvalidContentsStayWhenThereIsNothingToReplaceThemBy) {
  writeFile(user, "broken");
  EXPECT_FALSE(run());
  EXPECT_EQ(lines().back(), failing + missingText(master));
  writeFile(master, "garbage");
  EXPECT_FALSE(run());
  EXPECT_EQ(readFile(user), "broken");
  EXPECT_THAT(keptCopies(), IsEmpty());
}

TEST_F(TovanConfigUpdaterTest, AReplacementThatFailsLeavesTheFileAndNoHeapOfCopies) {
  writeFile(master, configuration("1.1"));
  writeFile(user, document(""));
  ASSERT_EQ(::mkdir(previous.c_str(), 0700), 0);
  for (int start = 0; start < 3; ++start) {
    reported.str("");
    EXPECT_FALSE(run());
    EXPECT_THAT(lines(),
                ElementsAre(copying + " (invalid contents)", failing + "TovanConfigUpdater::copyFile: open() on file " +
                                                                 previous + " failed, error = Is a directory"));
    EXPECT_EQ(readFile(user), document(""));
    EXPECT_THAT(keptCopies(), IsEmpty());
  }
}

// ---- Versions

TEST_F(TovanConfigUpdaterTest, VersionsAreComparedAsNumbers) {
  const auto needed = [&](const std::string& yours, const std::string& shipped) {
    writeFile(user, configuration(yours));
    writeFile(master, configuration(shipped));
    return updater.needMergeLumisphereConfigFile();
  };
  EXPECT_TRUE(needed("1.9", "1.10"));
  EXPECT_FALSE(needed("1.10", "1.9"));
  EXPECT_TRUE(needed("9.9", "10.2"));
  EXPECT_FALSE(needed("1.1", "1.1"));
  EXPECT_FALSE(needed("2.0", "1.1"));
  EXPECT_TRUE(needed("", "1.1")) << "an absent version is 1.0";
  EXPECT_FALSE(needed("1.0", ""));
  EXPECT_FALSE(needed("", ""));
  EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(TovanConfigUpdaterTest, WithoutAUsersFileTheQuestionFails) {
  writeFile(master, configuration("1.1"));
  EXPECT_EQ(thrownBy([&] { updater.needMergeLumisphereConfigFile(); }), "4: " + missingText(user));
  EXPECT_EQ(thrownBy([&] { updater.mergeLumisphereConfigFile(); }), "4: " + missingText(user));
  EXPECT_EQ(thrownBy([&] { updater.planMerge(); }), "4: " + missingText(user));
  EXPECT_FALSE(exists(user));
}

TEST_F(TovanConfigUpdaterTest, WithoutAMasterFileNothingIsMergedWhichIsReported) {
  writeFile(user, configuration("1.0"));
  EXPECT_TRUE(run());
  EXPECT_THAT(lines(), ElementsAre("Mervane daemon can't find the master config file " + master));
  EXPECT_EQ(readFile(user), configuration("1.0"));
  EXPECT_EQ(thrownBy([&] { updater.mergeLumisphereConfigFile(); }), "4: " + missingText(master));
  EXPECT_FALSE(exists(previous));
}

TEST_F(TovanConfigUpdaterTest, AMasterFileThatIsGarbageLeavesAValidFileAlone) {
  writeFile(user, configuration("1.0"));
  writeFile(master, "<plist><dict>");
  EXPECT_FALSE(run());
  EXPECT_THAT(lines(), ElementsAre(testing::StartsWith(failing + "CPropertyListBasicFile::refresh[")));
  EXPECT_EQ(readFile(user), configuration("1.0"));
}

TEST_F(TovanConfigUpdaterTest, ANullVersionEqualsANullVersionOnly) {
  EXPECT_TRUE(TovanConfigUpdater::isEqual(nullptr, nullptr));
  EXPECT_FALSE(TovanConfigUpdater::isEqual(nullptr, CFSTR("1.0")));
  EXPECT_FALSE(TovanConfigUpdater::isEqual(CFSTR("1.0"), nullptr));
  EXPECT_TRUE(TovanConfigUpdater::isEqual(CFSTR("1.0"), str("1.0").get()));
  EXPECT_FALSE(TovanConfigUpdater::isEqual(CFSTR("1.0"), CFSTR("1.00")));
}

// ---- Reports

TEST_F(TovanConfigUpdaterTest, AStreamThatFailsKeepsNothingFromBeingDone) {
  writeFile(master, configuration("1.1"));
  reported.exceptions(std::ios::badbit | std::ios::failbit);
  EXPECT_THROW(reported.setstate(std::ios::badbit), std::ios_base::failure);
  EXPECT_TRUE(run());
  EXPECT_EQ(readFile(user), readFile(master));
}

TEST_F(TovanConfigUpdaterTest, ADirectoryInTheFilesPlaceIsReported) {
  writeFile(master, configuration("1.1"));
  makeFolders(user);
  EXPECT_FALSE(run());
  EXPECT_THAT(lines().back(), testing::AllOf(testing::StartsWith(failing), HasSubstr(user)));
}

}  // namespace
