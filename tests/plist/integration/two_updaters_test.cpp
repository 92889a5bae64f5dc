// Updaters of several processes at once, and beside writers: nothing is lost.
#include <gmock/gmock.h>
#include <tovan/service_cache_file.h>
#include <tovan/service_config_file.h>

#include "tests/plist/running_together.h"
#include "tests/plist/updater_support.h"

namespace {

using namespace test;
using testing::IsEmpty;
using tovan::TovanConfigUpdater;

class TwoUpdatersTest : public UpdaterTest {
 protected:
  static std::string settings(const std::string& a, const std::string& b) {
    return "<key>s</key><dict><key>a</key><string>" + a + "</string><key>b</key><string>" + b + "</string></dict>";
  }
  // An updater that has to succeed, in whatever process it runs.
  std::function<void()> updating() const {
    return [this] {
      std::ostringstream lines;
      if (!TovanConfigUpdater(lines, paths()).run()) throw plinth::CUnknownException("%s", lines.str().c_str());
    };
  }
  // Writes sections of its own, one after the other, each with a flush that takes the lock.
  std::function<void()> writing(const std::string& name) const {
    return [this, name] {
      for (int i = 0; i < kSections; ++i) {
        tovan::CServiceConfigFile file(str(name + std::to_string(i)).get(), str(user).get());
        tovan::CServiceConfigEntry entry(CFSTR("entry"), nullptr);
        file.put(entry);
        file.flush();
      }
    };
  }
  void expectSections(const std::string& name, const std::string& text) const {
    for (int i = 0; i < kSections; ++i) {
      EXPECT_THAT(text, testing::HasSubstr(name + std::to_string(i) + ": {entry: {}}")) << "lost";
    }
  }
  static constexpr int kSections = 5;
};

TEST_F(TwoUpdatersTest, AFreshFileIsCreatedOnceAndWhole) {
  writeFile(master, configuration("1.1", settings("x", "y")));
  for (int round = 0; round < 50; ++round) {
    std::filesystem::remove(user);
    std::filesystem::remove(previous);
    runTogether({updating(), updating(), updating(), updating()});
    ASSERT_EQ(readFile(user), readFile(master)) << "round " << round;
    ASSERT_EQ(readFile(previous), readFile(master)) << "round " << round;
    ASSERT_THAT(keptCopies(), IsEmpty()) << "round " << round;
  }
}

TEST_F(TwoUpdatersTest, AMergeTakesPlaceOnceAndLeavesWritersTheirChanges) {
  writeFile(master, configuration("1.10", settings("new", "new")));
  for (int round = 0; round < 30; ++round) {
    writeFile(user, configuration("1.9", settings("mine", "old")));
    writeFile(previous, configuration("1.9", settings("old", "old")));
    runTogether({updating(), writing("w"), updating(), writing("v")});
    ASSERT_EQ(describe(sectionOfFile(user, "s")), "{a: \"mine\", b: \"new\"}") << "round " << round;
    ASSERT_EQ(describe(sectionOfFile(user, "Version")), "\"1.10\"") << "round " << round;
    ASSERT_EQ(readFile(previous), readFile(master)) << "round " << round;
    const std::string sections = describe(sectionOfFile(user, "serviceconfig"));
    expectSections("w", sections);
    expectSections("v", sections);
    ASSERT_THAT(keptCopies(), IsEmpty()) << "round " << round;
  }
}

// Without a record of earlier defaults the one that comes first makes it, under the lock: the second does not take the
// merged values for it.
TEST_F(TwoUpdatersTest, TheFirstRecordOfEarlierDefaultsIsMadeOnce) {
  writeFile(master, configuration("1.1", settings("new", "new")));
  for (int round = 0; round < 30; ++round) {
    writeFile(user, configuration("1.0", settings("old", "old")));
    std::filesystem::remove(previous);
    runTogether({updating(), updating(), updating()});
    ASSERT_EQ(describe(sectionOfFile(user, "s")), "{a: \"new\", b: \"new\"}") << "round " << round;
    ASSERT_EQ(readFile(previous), readFile(master)) << "round " << round;
  }
}

// A writer that finds no file makes an incomplete one, which an updater replaces: what was written is in the file or in
// the copy that is kept of it.
TEST_F(TwoUpdatersTest, WhatAWriterPutsIntoAFreshFileIsThereOrKept) {
  writeFile(master, configuration("1.1"));
  int kept = 0;
  for (int round = 0; round < 30; ++round) {
    for (const std::string& copy : keptCopies()) std::filesystem::remove(copy);
    std::filesystem::remove(user);
    std::filesystem::remove(previous);
    runTogether({updating(), writing("w"), updating()});
    ASSERT_TRUE(updater.lumisphereConfigFileContentsValid()) << "round " << round;
    std::string everything = describeFile(user);
    for (const std::string& copy : keptCopies()) everything += describeFile(copy);
    expectSections("w", everything);
    kept += keptCopies().empty() ? 0 : 1;
  }
  RecordProperty("rounds with a copy", kept);
}

// The file is judged again under its lock, so a file that was put right in time is left alone.
TEST_F(TwoUpdatersTest, NoFileIsReplacedThatIsValidByThen) {
  writeFile(master, configuration("1.1"));
  const std::string valid = configuration("1.1", "<key>precious</key><true/>");
  const std::string invalid = document("<key>incomplete</key><true/>");
  writeFile(user, valid);
  const auto together = [&] {
    runTogether({[&] {
                   const CSharedCFRef<CFStringRef> path = str(user);
                   const auto lists = {parsed(invalid), parsed(valid)};
                   tovan::CPropertyListBasicFile file(path.get());
                   for (int i = 0; i < 3000; ++i) {
                     for (const auto& list : lists) file.writePropertyList(static_cast<CFDictionaryRef>(list.get()));
                   }
                 },
                 [&] {
                   for (int i = 0; i < 1500; ++i) updating()();
                 },
                 [&] {
                   for (int i = 0; i < 1500; ++i) updating()();
                 }});
  };
  // A file that is invalid when it is judged and under the lock too is replaced, so the judging took place.
  for (int round = 0; round < 50 && keptCopies().empty(); ++round) together();
  EXPECT_THAT(keptCopies(), testing::Not(IsEmpty()));
  for (const std::string& copy : keptCopies()) {
    ASSERT_EQ(describeFile(copy), "{incomplete: true}") << "a valid file was replaced";
  }
  EXPECT_EQ(describeFile(user), describe(parsed(valid)));
}

}  // namespace
