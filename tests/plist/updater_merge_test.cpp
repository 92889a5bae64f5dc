// The merge of the files.
#include <gmock/gmock.h>
#include <sys/resource.h>

#include "tests/plist/updater_support.h"

namespace {

using namespace test;
using testing::ElementsAre;
using testing::IsEmpty;
using tovan::TovanConfigUpdater;

class UpdaterMergeTest : public UpdaterTest {
 protected:
  const std::string merging = "Mervane daemon needs to merge the lumisphere config file " + user;

  static std::string settings(const std::string& a, const std::string& b) {
    return "<key>s</key><dict><key>a</key><string>" + a + "</string><key>b</key><string>" + b + "</string></dict>";
  }
  const std::string failing = "Exception caught while copying/merging the lumisphere config file : ";

  // The three files before a merge, and that a failed one left the two as they were.
  void writeFiles() const {
    writeFile(previous, configuration("1.0", settings("old", "old")));
    writeFile(user, configuration("1.1", settings("mine", "old")));
    writeFile(master, configuration("1.2", settings("new", "new")));
  }
  void expectFilesAsTheyWere() const {
    EXPECT_EQ(readFile(previous), configuration("1.0", settings("old", "old")));
    EXPECT_EQ(readFile(user), configuration("1.1", settings("mine", "old")));
  }
  std::string userSettings() const { return describe(sectionOfFile(user, "s")); }
  std::string userVersion() const { return describe(sectionOfFile(user, "Version")); }
};

TEST_F(UpdaterMergeTest, NewerDefaultsAreMergedAndBecomeThePreviousOnes) {
  writeFile(previous, configuration("1.0", settings("old", "old")));
  writeFile(user, configuration("1.0", settings("mine", "old") + "<key>own</key><true/>"));
  writeFile(master, configuration("1.10", settings("new", "new") + "<key>added</key><string>x</string>"));
  EXPECT_EQ(updater.nextStep(), TovanConfigUpdater::Step::merge);
  EXPECT_TRUE(run());
  EXPECT_THAT(lines(), ElementsAre(merging));
  EXPECT_EQ(userSettings(), "{a: \"mine\", b: \"new\"}");
  EXPECT_EQ(userVersion(), "\"1.10\"");
  EXPECT_EQ(describe(sectionOfFile(user, "own")), "true");
  EXPECT_EQ(describe(sectionOfFile(user, "added")), "\"x\"");
  EXPECT_EQ(readFile(previous), readFile(master));
  EXPECT_EQ(modeOf(user), 0600U);

  // The next merge starts from the defaults just applied.
  writeFile(master, configuration("1.11", settings("newest", "newest")));
  EXPECT_TRUE(run());
  EXPECT_EQ(userSettings(), "{a: \"mine\", b: \"newest\"}");
  EXPECT_EQ(describe(sectionOfFile(user, "added")), "\"x\"") << "what is no default any more stays";
}

TEST_F(UpdaterMergeTest, WithoutARecordOfEarlierDefaultsEveryValueTakesTheNewDefault) {
  writeFile(user, configuration("1.0", settings("mine", "mine")));
  writeFile(master, configuration("1.1", settings("new", "mine")));
  EXPECT_TRUE(run());
  EXPECT_EQ(userSettings(), "{a: \"new\", b: \"mine\"}");
  EXPECT_EQ(readFile(previous), readFile(master));
  EXPECT_EQ(modeOf(previous), 0600U);
}

TEST_F(UpdaterMergeTest, WithoutAChangeTheUsersValuesAreTheRecordOfEarlierDefaults) {
  writeFile(user, configuration("1.0", settings("x", "y")));
  writeFile(master, configuration("1.0", settings("x", "y")));
  updater.mergeLumisphereConfigFile();
  EXPECT_EQ(readFile(previous), readFile(user));
  EXPECT_EQ(modeOf(previous), 0600U);
}

TEST_F(UpdaterMergeTest, TheSameVersionIsNotMergedAndNothingIsWritten) {
  writeFile(previous, configuration("1.1", settings("old", "old")));
  writeFile(user, configuration("1.1", settings("old", "old")));
  writeFile(master, configuration("1.1", settings("new", "new")));
  const auto before = std::filesystem::last_write_time(user);
  const auto previousBefore = std::filesystem::last_write_time(previous);
  EXPECT_TRUE(run());
  EXPECT_THAT(lines(), IsEmpty());
  EXPECT_EQ(readFile(user), configuration("1.1", settings("old", "old")));
  EXPECT_EQ(readFile(previous), configuration("1.1", settings("old", "old")));
  EXPECT_EQ(std::filesystem::last_write_time(user), before);
  EXPECT_EQ(std::filesystem::last_write_time(previous), previousBefore);
}

TEST_F(UpdaterMergeTest, AChangeOfTheVersionAloneIsWritten) {
  writeFile(previous, configuration("1.0", settings("x", "y")));
  writeFile(user, configuration("1.0", settings("x", "y")));
  writeFile(master, configuration("1.1", settings("x", "y")));
  EXPECT_TRUE(run());
  EXPECT_EQ(userVersion(), "\"1.1\"");
  EXPECT_EQ(readFile(previous), readFile(master));
}

TEST_F(UpdaterMergeTest, AVersionThatTheUserChangedFollowsAllTheSame) {
  writeFile(previous, configuration("1.0"));
  writeFile(user, configuration("0.5"));
  writeFile(master, configuration("1.1"));
  EXPECT_TRUE(run());
  EXPECT_EQ(userVersion(), "\"1.1\"");
}

TEST_F(UpdaterMergeTest, TwoAbsentVersionsAreEqual) {
  writeFile(previous, configuration("", settings("x", "y")));
  writeFile(user, configuration("", settings("x", "y")));
  writeFile(master, configuration("", settings("x", "y")));
  const std::string before = readFile(previous);
  const auto time = std::filesystem::last_write_time(user);
  updater.mergeLumisphereConfigFile();
  EXPECT_EQ(userVersion(), "null");
  EXPECT_EQ(readFile(previous), before);
  EXPECT_EQ(std::filesystem::last_write_time(user), time);
}

TEST_F(UpdaterMergeTest, AnAbsentVersionBecomesTheMasters) {
  writeFile(user, configuration(""));
  writeFile(master, configuration("1.1"));
  const auto plan = updater.planMerge();
  EXPECT_TRUE(run());
  EXPECT_EQ(userVersion(), "\"1.1\"");
  const auto version = std::find_if(plan.begin(), plan.end(), [](const tovan::SettingMerge& step) {
    return step.path.size() == 1 && CFEqual(step.path[0].get(), CFSTR("Version"));
  });
  ASSERT_NE(version, plan.end());
  EXPECT_EQ(version->outcome, tovan::MergeOutcome::added);
}

TEST_F(UpdaterMergeTest, PreviousDefaultsThatCannotBeReadLeaveTheFileAlone) {
  writeFile(previous, "garbage");
  writeFile(user, configuration("1.0", settings("x", "y")));
  writeFile(master, configuration("1.1", settings("new", "new")));
  EXPECT_FALSE(run());
  EXPECT_THAT(lines().back(), testing::HasSubstr("](" + previous + "): CFPropertyListCreateFromXMLData() failed"));
  EXPECT_EQ(readFile(user), configuration("1.0", settings("x", "y")));
  EXPECT_EQ(readFile(previous), "garbage");
}

// ---- What changes between the judgement and the merge

TEST_F(UpdaterMergeTest, ShippedDefaultsThatGoAwayMeanwhileLeaveEverythingAsItIs) {
  writeFiles();
  EXPECT_FALSE(runWith([&] { std::filesystem::remove(master); }));
  EXPECT_THAT(lines(), ElementsAre(merging, failing + "TovanConfigUpdater: file \"" + master + "\" not found"));
  expectFilesAsTheyWere();
}

TEST_F(UpdaterMergeTest, ShippedDefaultsThatAreEmptiedMeanwhileLeaveEverythingAsItIs) {
  writeFiles();
  EXPECT_FALSE(runWith([&] { writeFile(master, ""); }));
  EXPECT_THAT(lines(), ElementsAre(merging, failing + "TovanConfigUpdater: file \"" + master + "\" is empty"));
  expectFilesAsTheyWere();
}

TEST_F(UpdaterMergeTest, EmptyShippedDefaultsAreAFailureAndNoVersion) {
  writeFiles();
  writeFile(master, "");
  const std::string empty = "TovanConfigUpdater: file \"" + master + "\" is empty";
  EXPECT_FALSE(run());
  EXPECT_THAT(lines(), ElementsAre(failing + empty));
  EXPECT_EQ(thrownBy([&] { updater.mergeLumisphereConfigFile(); }), "4: " + empty);
  EXPECT_EQ(thrownBy([&] { updater.planMerge(); }), "4: " + empty);
  expectFilesAsTheyWere();
}

TEST_F(UpdaterMergeTest, WhatAnotherUpdaterMergedMeanwhileIsNotTakenBack) {
  writeFiles();
  const std::string newer = configuration("1.10", settings("mine", "newest"));
  EXPECT_TRUE(runWith([&] {
    writeFile(user, newer);
    std::filesystem::remove(previous);
  }));
  EXPECT_THAT(lines(), ElementsAre(merging));
  EXPECT_EQ(readFile(user), newer);
  EXPECT_FALSE(exists(previous)) << "nor is a record of earlier defaults made of it";
}

TEST_F(UpdaterMergeTest, AFileThatGoesAwayMeanwhileIsCreated) {
  writeFiles();
  EXPECT_TRUE(runWith([&] { writeFile(user, ""); }));
  EXPECT_TRUE(updater.lumisphereConfigFileContentsValid());
  EXPECT_EQ(userSettings(), "{a: \"new\", b: \"new\"}");
}

// ---- Failures

TEST_F(UpdaterMergeTest, AMergeThatCannotBeWrittenLeavesThePreviousDefaultsAsTheyWere) {
  const auto filler = [](const std::string& key, std::size_t length) {
    return "<key>" + key + "</key><string>" + std::string(length, 'x') + "</string>";
  };
  const std::string yours = configuration("1.0", settings("mine", "old") + filler("own", 50000));
  writeFile(previous, configuration("1.0", settings("old", "old")));
  writeFile(user, yours);
  writeFile(master, configuration("1.1", settings("new", "new") + filler("added", 20000)));
  struct rlimit old;
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &old), 0);
  struct rlimit low = old;
  low.rlim_cur = 60000;  // the new defaults alone would fit
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &low), 0);
  const bool isDone = run();
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &old), 0);
  EXPECT_FALSE(isDone);
  ASSERT_THAT(lines(), testing::SizeIs(2));
  EXPECT_THAT(lines()[1], testing::EndsWith("](" + user + "): can't write file, error = File too large"));
  EXPECT_EQ(readFile(user), yours);
  EXPECT_EQ(readFile(previous), configuration("1.0", settings("old", "old")));
  EXPECT_TRUE(run()) << "with room it is made up for";
  EXPECT_EQ(userSettings(), "{a: \"mine\", b: \"new\"}");
  EXPECT_EQ(readFile(previous), readFile(master));
}

TEST_F(UpdaterMergeTest, SectionsThatNobodyKnowsAreCarriedThrough) {
  const std::string unknown = "<key>unknown</key><array><dict><key>deep</key><data>AAH/</data></dict></array>";
  writeFile(user, configuration("1.0", unknown));
  writeFile(master, configuration("1.1"));
  const std::string before = describe(sectionOfFile(user, "unknown"));
  EXPECT_TRUE(run());
  EXPECT_EQ(describe(sectionOfFile(user, "unknown")), before);
}

}  // namespace
