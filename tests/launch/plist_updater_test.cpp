// The list in memory: what is taken, compared and merged. The file is plist_updater_file_test.cpp's.
#include <tovan/plist_updater.h>

#include "tests/launch/lists.h"
#include "tests/launch/thrown.h"
#include "tests/support/scratch_home.h"

#include <CoreFoundation/CFArray.h>
#include <CoreFoundation/CFDictionary.h>

#include <gtest/gtest.h>

#include <string>

namespace {

using plinth::CNullPointerException;
using plinth::CParamException;
using plinth::CSharedCFRef;
using plinth::CSTR;
using plinth::CStringRef;
using test::dict;
using test::isDict;
using test::isList;
using test::thrownBy;
using tovan::CPListUpdater;

// A property list cannot hold a URL.
CSharedCFRef<CFMutableArrayRef> invalidList() {
  CSharedCFRef<CFMutableArrayRef> array(CFArrayCreateMutable(kCFAllocatorDefault, 0, &kCFTypeArrayCallBacks));
  const CSharedCFRef<CFURLRef> url(CFURLCreateWithString(kCFAllocatorDefault, CFSTR("http://localhost/"), nullptr));
  CFArrayAppendValue(array.get(), url.get());
  return array;
}

constexpr const char* kInvalid = "Property list not valid xml format";

std::string version(const std::string& text) { return "<key>Version</key><string>" + text + "</string>"; }

TEST(CPListUpdaterTest, WithoutAPathThereIsNoListAndNoFile) {
  CPListUpdater updater(nullptr);
  EXPECT_TRUE(updater.filePath().isNull());
  EXPECT_EQ(updater.plistData(), nullptr);
  EXPECT_FALSE(updater.fileExists());
  EXPECT_FALSE(updater.parentDirExists());
  updater.refresh();
  EXPECT_EQ(updater.plistData(), nullptr);
}

TEST(CPListUpdaterTest, IsCountedLikeEverySharedObject) {
  const tovan::CPListUpdaterRef first = plinth::makeShared<CPListUpdater>(nullptr);
  const tovan::CPListUpdaterRef second = first;
  EXPECT_EQ(first->GetRetainCount(), 2);
}

TEST(CPListUpdaterTest, HoldsACopyOfWhatItIsGiven) {
  CPListUpdater updater(nullptr);
  const CSharedCFRef<CFMutableDictionaryRef> given(CFDictionaryCreateMutable(
      kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
  CFDictionarySetValue(given.get(), CFSTR("a"), CFSTR("before"));
  updater.setPListData(given.get());
  CFDictionarySetValue(given.get(), CFSTR("a"), CFSTR("after"));
  EXPECT_TRUE(isDict("<key>a</key><string>before</string>", updater.plistData()));
}

TEST(CPListUpdaterTest, SettingNullDropsTheList) {
  CPListUpdater updater(nullptr);
  updater.setPListData(dict("").get());
  EXPECT_NE(updater.plistData(), nullptr);
  updater.setPListData(nullptr);
  EXPECT_EQ(updater.plistData(), nullptr);
}

TEST(CPListUpdaterTest, SettingAnInvalidListFailsAndLeavesNone) {
  CPListUpdater updater(nullptr);
  updater.setPListData(dict("").get());
  EXPECT_EQ(thrownBy<CParamException>([&] { updater.setPListData(invalidList().get()); }), kInvalid);
  EXPECT_EQ(updater.plistData(), nullptr);
}

TEST(CPListUpdaterTest, TextThatXMLCannotCarryIsInvalid) {
  const CSharedCFRef<CFMutableArrayRef> array(CFArrayCreateMutable(kCFAllocatorDefault, 0, &kCFTypeArrayCallBacks));
  CFArrayAppendValue(array.get(), CSTR("bell \x07")->getStringRef());
  CPListUpdater updater(nullptr);
  EXPECT_EQ(thrownBy<CParamException>([&] { updater.setPListData(array.get()); }), kInvalid);
}

TEST(CPListUpdaterTest, MayBeGivenItsOwnList) {
  CPListUpdater updater(nullptr);
  updater.setPListData(dict(version("1")).get());
  updater.setPListData(updater.plistData());
  EXPECT_TRUE(isDict(version("1"), updater.plistData()));
  updater.merge(updater.plistData());
  EXPECT_TRUE(isDict(version("1"), updater.plistData()));
}

TEST(CPListUpdaterTest, NeedsAMergeExactlyForAHigherVersion) {
  const struct {
    const char* current;
    const char* given;
    bool needed;
  } cases[] = {{"1", "2", true},      {"2", "2", false},      {"3", "2", false},  {"9.9", "10.2", true},
               {"1.9", "1.10", true}, {"1.10", "1.9", false}, {"", "1", true},    {"1", "", false},
               {"1.0", "1.0", false}, {"1", "1.0", true},     {"2a", "2b", true}, {"10", "9", false}};
  for (const auto& one : cases) {
    CPListUpdater updater(nullptr);
    updater.setPListData(dict(version(one.current)).get());
    EXPECT_EQ(updater.needMerge(dict(version(one.given)).get()), one.needed)
        << "from \"" << one.current << "\" to \"" << one.given << "\"";
  }
}

TEST(CPListUpdaterTest, NeedsAMergeWhenAVersionIsMissing) {
  CPListUpdater updater(nullptr);
  EXPECT_TRUE(updater.needMerge(dict(version("1")).get())) << "without a current list";
  updater.setPListData(dict("").get());
  EXPECT_TRUE(updater.needMerge(dict(version("1")).get())) << "without a current version";
  updater.setPListData(dict(version("5")).get());
  EXPECT_TRUE(updater.needMerge(dict("").get())) << "without a new version";
  EXPECT_TRUE(updater.needMerge(dict("<key>Version</key><integer>4</integer>").get())) << "with a number as version";
  EXPECT_TRUE(updater.needMerge(test::list("<array/>").get())) << "with an array as root";
  EXPECT_TRUE(updater.needMerge(nullptr)) << "with no list";
}

TEST(CPListUpdaterTest, MergeIntoNothingTakesTheList) {
  CPListUpdater updater(nullptr);
  updater.merge(dict("<key>a</key><true/>").get());
  EXPECT_TRUE(isDict("<key>a</key><true/>", updater.plistData()));
}

TEST(CPListUpdaterTest, MergeGivesTheUnionWithNewValuesWinning) {
  CPListUpdater updater(nullptr);
  updater.setPListData(dict(version("2") +
                            "<key>only old</key><integer>1</integer><key>both</key><string>old</string>"
                            "<key>same</key><string>same</string><key>type</key><string>1</string>"
                            "<key>inner</key><dict><key>a</key><string>old</string><key>b</key><true/></dict>"
                            "<key>array</key><array><string>1</string><string>2</string></array>")
                           .get());
  updater.merge(dict(version("3") + "<key>only new</key><real>2.5</real><key>both</key><string>new</string>"
                                    "<key>same</key><string>same</string><key>type</key><integer>1</integer>"
                                    "<key>inner</key><dict><key>a</key><string>new</string><key>c</key><false/></dict>"
                                    "<key>array</key><array><string>3</string></array>")
                    .get());
  EXPECT_TRUE(isDict(version("3") +
                         "<key>only old</key><integer>1</integer><key>only new</key><real>2.5</real>"
                         "<key>both</key><string>new</string><key>same</key><string>same</string>"
                         "<key>type</key><integer>1</integer><key>array</key><array><string>3</string></array>"
                         "<key>inner</key><dict><key>a</key><string>new</string><key>b</key><true/>"
                         "<key>c</key><false/></dict>",
                     updater.plistData()));
}

TEST(CPListUpdaterTest, MergeOfAnotherRootReplacesTheListWhole) {
  CPListUpdater updater(nullptr);
  updater.setPListData(test::list("<array><true/></array>").get());
  updater.merge(dict("<key>a</key><true/>").get());
  EXPECT_TRUE(isDict("<key>a</key><true/>", updater.plistData()));
  updater.merge(test::list("<string>x</string>").get());
  EXPECT_TRUE(isList("<string>x</string>", updater.plistData()));
}

TEST(CPListUpdaterTest, MergeRefusesNullAndInvalidLists) {
  CPListUpdater updater(nullptr);
  updater.setPListData(dict(version("1")).get());
  EXPECT_EQ(thrownBy<CNullPointerException>([&] { updater.merge(nullptr); }), "Error: plistData is null!");
  EXPECT_EQ(thrownBy<CParamException>([&] { updater.merge(invalidList().get()); }), kInvalid);
  EXPECT_TRUE(isDict(version("1"), updater.plistData())) << "the list stays";
}

// The dictionary that the three-way merge leaves in target.
test::List merged(const std::string& target, const char* previous, const std::string& source) {
  const CPListUpdater updater(nullptr);
  const CSharedCFRef<CFMutableDictionaryRef> copy(
      CFDictionaryCreateMutableCopy(kCFAllocatorDefault, 0, test::asDictionary(dict(target)).get()));
  const auto before = previous != nullptr ? test::asDictionary(dict(previous)) : nullptr;
  updater.merge(copy.get(), before.get(), test::asDictionary(dict(source)).get());
  return CFPropertyListCreateDeepCopy(kCFAllocatorDefault, copy.get(), kCFPropertyListImmutable);
}

TEST(CPListUpdaterTest, ThreeWayMergeKeepsAValueThatEqualsThePreviousOne) {
  const std::string a1 = "<key>a</key><string>1</string>";
  const std::string a2 = "<key>a</key><string>2</string>";
  EXPECT_TRUE(isDict(a1, merged(a1, a1.c_str(), a2).get()));
}

TEST(CPListUpdaterTest, ThreeWayMergeReplacesEveryOtherValue) {
  const std::string a1 = "<key>a</key><string>1</string>";
  const std::string a2 = "<key>a</key><string>2</string>";
  EXPECT_TRUE(isDict(a2, merged(a1, nullptr, a2).get())) << "without a previous list";
  EXPECT_TRUE(isDict(a2, merged(a1, "", a2).get())) << "without a previous value";
  EXPECT_TRUE(isDict(a2, merged(a1, "<key>a</key><string>3</string>", a2).get())) << "with another previous value";
  EXPECT_TRUE(isDict(a2, merged(a1, "<key>a</key><integer>1</integer>", a2).get())) << "with one of another type";
  EXPECT_TRUE(isDict(a2, merged(a1, a2.c_str(), a2).get())) << "with the new value as the previous one";
}

TEST(CPListUpdaterTest, ThreeWayMergeTakesANewKeyAndANewTypeInAnyCase) {
  EXPECT_TRUE(isDict("<key>a</key><true/>", merged("", "<key>a</key><false/>", "<key>a</key><true/>").get()));
  EXPECT_TRUE(isDict("<key>a</key><integer>1</integer>",
                     merged("<key>a</key><true/>", "<key>a</key><true/>", "<key>a</key><integer>1</integer>").get()));
}

TEST(CPListUpdaterTest, ThreeWayMergeGoesIntoDictionariesWithTheirPreviousOnes) {
  const auto inner = [](const std::string& a, const std::string& b) {
    return "<key>d</key><dict><key>a</key><string>" + a + "</string><key>b</key><string>" + b + "</string></dict>";
  };
  EXPECT_TRUE(isDict(inner("1", "new"), merged(inner("1", "2"), inner("1", "x").c_str(), inner("new", "new")).get()));
  EXPECT_TRUE(
      isDict(inner("new", "new"), merged(inner("1", "2"), "<key>d</key><string>1</string>", inner("new", "new")).get()))
      << "a previous value that is no dictionary is none";
}

TEST(CPListUpdaterTest, UpdatesFromTextRefuseWhatIsNoList) {
  CPListUpdater updater(nullptr);
  EXPECT_EQ(thrownBy<CNullPointerException>([&] { updater.updateIfNeeded(CStringRef()); }),
            "Error: plistString is null!");
  EXPECT_EQ(thrownBy<CNullPointerException>([&] { updater.updateIfNeeded(CSTR("")); }), "Error: xmlData is null!");
  const std::string message = thrownBy<CParamException>([&] { updater.updateIfNeeded(CSTR("<plist><dict>")); });
  const std::string start = "Couldn't create property list from xml data, error = ";
  EXPECT_EQ(message.substr(0, start.size()), start);
  EXPECT_GT(message.size(), start.size()) << "the parser's words are missing";
  EXPECT_EQ(updater.plistData(), nullptr);
}

TEST(CPListUpdaterTest, UpdatesRefuseNullAndInvalidLists) {
  CPListUpdater updater(nullptr);
  EXPECT_EQ(thrownBy<CNullPointerException>([&] { updater.updateIfNeeded(static_cast<CFPropertyListRef>(nullptr)); }),
            "Error: plistData is null!");
  EXPECT_EQ(thrownBy<CParamException>([&] { updater.updateIfNeeded(invalidList().get()); }), kInvalid);
}

TEST(CPListUpdaterTest, UpdateWithoutAPathMergesAndThenFails) {
  CPListUpdater updater(nullptr);
  EXPECT_EQ(thrownBy<CNullPointerException>([&] { updater.updateIfNeeded(dict("").get()); }),
            "Error: filePath is null!");
  EXPECT_TRUE(isDict("", updater.plistData()));
}

}  // namespace
