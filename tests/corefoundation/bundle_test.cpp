// Bundles: layouts, information dictionaries, executables and identity.
#include "tests/corefoundation/bundle_support.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

namespace {

using test::auxiliary;
using test::bundleAt;
using test::entry;
using test::executable;
using test::fileURL;
using test::Held;
using test::infoPlist;
using test::pathOfOwned;
using test::put;
using test::putExecutable;
using test::string;
using test::textOf;
using test::textOfOwned;
using test::url;
using test::value;

TEST(CFBundleTest, IsMadeOfAnyDirectory) {
  const std::string folder = test::scratchFolder("plain folder");
  const auto bundle = bundleAt(folder);
  ASSERT_TRUE(bundle);
  EXPECT_EQ(CFGetTypeID(bundle.get()), CFBundleGetTypeID());
  EXPECT_EQ(textOfOwned(CFBundleCopyBundleURL(bundle.get())), textOf(fileURL(folder, true).get()));
  EXPECT_EQ(CFBundleGetInfoDictionary(bundle.get()), nullptr);
  EXPECT_EQ(CFBundleGetIdentifier(bundle.get()), nullptr);
  EXPECT_EQ(CFBundleGetDevelopmentRegion(bundle.get()), nullptr);
  EXPECT_EQ(value(bundle.get(), "CFBundleName"), "(null)");
  EXPECT_EQ(executable(bundle.get()), "(null)");
  EXPECT_EQ(pathOfOwned(CFBundleCopyPrivateFrameworksURL(bundle.get())), "(null)");
  EXPECT_EQ(pathOfOwned(CFBundleCopyResourcesDirectoryURL(bundle.get())), folder);
  EXPECT_EQ(textOfOwned(CFCopyDescription(bundle.get())), "CFBundle <" + folder + ">");
}

TEST(CFBundleTest, IsNotMadeOfAnythingElse) {
  const std::string folder = test::scratchFolder("nothing");
  put(folder + "/file", "");
  EXPECT_FALSE(bundleAt(folder + "/file"));
  EXPECT_FALSE(bundleAt(folder + "/missing.bundle"));
  EXPECT_EQ(CFBundleCreate(kCFAllocatorDefault, nullptr), nullptr);
  EXPECT_EQ(CFBundleCreate(kCFAllocatorDefault, reinterpret_cast<CFURLRef>(CFSTR("/tmp"))), nullptr);
  for (const char* const text : {"http://host/tmp", "file://elsewhere/tmp", "mailto:x", "http:/tmp"}) {
    EXPECT_EQ(CFBundleCreate(kCFAllocatorDefault, url(text).get()), nullptr) << text;
  }
}

TEST(CFBundleTest, IsMadeOfARelativeURLToo) {
  const std::string folder = test::scratchFolder("relative");
  test::makeFolders(folder + "/x y.bundle");
  const auto base = fileURL(folder, true);
  const Held<CFBundleRef> bundle(CFBundleCreate(kCFAllocatorDefault, fileURL("x y.bundle", true, base.get()).get()));
  ASSERT_TRUE(bundle);
  EXPECT_EQ(pathOfOwned(CFBundleCopyBundleURL(bundle.get())), folder + "/x y.bundle");
}

TEST(CFBundleTest, AnswersNullToWhatIsNoBundle) {
  CFBundleRef const none = nullptr;
  EXPECT_EQ(CFBundleGetInfoDictionary(none), nullptr);
  EXPECT_EQ(CFBundleGetValueForInfoDictionaryKey(none, CFSTR("a")), nullptr);
  EXPECT_EQ(CFBundleGetIdentifier(none), nullptr);
  EXPECT_EQ(CFBundleCopyBundleURL(none), nullptr);
  EXPECT_EQ(CFBundleCopyExecutableURL(none), nullptr);
  EXPECT_EQ(CFBundleCopyAuxiliaryExecutableURL(none, CFSTR("a")), nullptr);
  EXPECT_EQ(CFBundleCopyResourcesDirectoryURL(none), nullptr);
  EXPECT_EQ(CFBundleCopyResourceURL(none, CFSTR("a"), nullptr, nullptr), nullptr);
  EXPECT_EQ(CFBundleGetBundleWithIdentifier(nullptr), nullptr);
  EXPECT_EQ(textOfOwned(CFBundleCopyLocalizedString(none, CFSTR("k"), nullptr, nullptr)), "k");
}

struct Layout {
  const char* name;
  std::string bundle;       // the directory's name
  std::string info;         // in it
  std::string executables;  // the folder in it, with a slash, or empty
  std::string resources;
  std::string frameworks;
};

void PrintTo(const Layout& layout, std::ostream* out) { *out << layout.name; }

class CFBundleLayoutTest : public testing::TestWithParam<Layout> {
 protected:
  void SetUp() override {
    root_ = test::scratchFolder("layout") + "/" + GetParam().bundle;
    test::makeFolders(root_);
    if (GetParam().bundle.ends_with(".framework") && GetParam().info.starts_with("Versions")) {
      test::makeFolders(root_ + "/Versions/B/Resources");
      std::filesystem::create_symlink("B", root_ + "/Versions/Current");
      std::filesystem::create_symlink("Versions/Current/Resources", root_ + "/Resources");
    }
  }
  std::string in(const std::string& path) const { return root_ + "/" + path; }

  std::string root_;
};

TEST_P(CFBundleLayoutTest, FindsEverything) {
  const Layout& layout = GetParam();
  put(in(layout.info), infoPlist(entry("CFBundleExecutable", "main program") + entry("CFBundleIdentifier", "com.x.y") +
                                 entry("CFBundleDevelopmentRegion", "de") + entry("Grüße", "<![CDATA[a&b]]>")));
  putExecutable(in(layout.executables + "main program"));
  putExecutable(in(layout.executables + "helper"));
  put(in(layout.resources + "/icon.png"), "x");
  test::makeFolders(in(layout.frameworks));

  const auto bundle = bundleAt(root_);
  ASSERT_TRUE(bundle);
  EXPECT_EQ(textOf(CFBundleGetIdentifier(bundle.get())), "com.x.y");
  EXPECT_EQ(textOf(CFBundleGetDevelopmentRegion(bundle.get())), "de");
  EXPECT_EQ(value(bundle.get(), "Grüße"), "a&b");
  EXPECT_EQ(CFDictionaryGetCount(CFBundleGetInfoDictionary(bundle.get())), 4);
  EXPECT_EQ(executable(bundle.get()), in(layout.executables + "main program"));
  EXPECT_EQ(auxiliary(bundle.get(), "helper"), in(layout.executables + "helper"));
  EXPECT_EQ(auxiliary(bundle.get(), "missing"), "(null)");
  EXPECT_EQ(pathOfOwned(CFBundleCopyResourcesDirectoryURL(bundle.get())), in(layout.resources));
  EXPECT_EQ(pathOfOwned(CFBundleCopyPrivateFrameworksURL(bundle.get())), in(layout.frameworks));
  EXPECT_EQ(pathOfOwned(CFBundleCopyResourceURL(bundle.get(), CFSTR("icon"), CFSTR("png"), nullptr)),
            in(layout.resources + "/icon.png"));
  EXPECT_EQ(pathOfOwned(CFBundleCopyBundleURL(bundle.get())), root_);
}

TEST_P(CFBundleLayoutTest, TakesTheBundlesNameForTheExecutablesWithoutADictionaryEntry) {
  put(in(GetParam().info), infoPlist(entry("CFBundleName", "Something Else")));
  putExecutable(in(GetParam().executables + "A 'b'.c é"));
  EXPECT_EQ(executable(bundleAt(root_).get()), in(GetParam().executables + "A 'b'.c é"));
}

TEST_P(CFBundleLayoutTest, TakesAnExecutableOfTheWrongTypeForNone) {
  put(in(GetParam().info), infoPlist("<key>CFBundleExecutable</key><integer>7</integer>"
                                     "<key>CFBundleIdentifier</key><array/>"
                                     "<key>CFBundleDevelopmentRegion</key><true/>"));
  putExecutable(in(GetParam().executables + "A 'b'.c é"));
  const auto bundle = bundleAt(root_);
  EXPECT_EQ(executable(bundle.get()), in(GetParam().executables + "A 'b'.c é"));
  EXPECT_EQ(CFBundleGetIdentifier(bundle.get()), nullptr);
  EXPECT_EQ(CFBundleGetDevelopmentRegion(bundle.get()), nullptr);
  EXPECT_EQ(value(bundle.get(), "CFBundleExecutable"), "(not a string)");
}

TEST_P(CFBundleLayoutTest, TakesOnlyAnExecutableRegularFile) {
  put(in(GetParam().info), infoPlist(entry("CFBundleExecutable", "program")));
  const std::string program = in(GetParam().executables + "program");
  const auto bundle = bundleAt(root_);
  EXPECT_EQ(executable(bundle.get()), "(null)") << "missing";
  put(program, "text");
  ASSERT_EQ(::chmod(program.c_str(), 0644), 0);
  EXPECT_EQ(executable(bundle.get()), "(null)") << "not executable";
  ASSERT_EQ(::chmod(program.c_str(), 0755), 0);
  EXPECT_EQ(executable(bundle.get()), program);
  ASSERT_EQ(::unlink(program.c_str()), 0);
  test::makeFolders(program);
  EXPECT_EQ(executable(bundle.get()), "(null)") << "a directory";
  ASSERT_EQ(::rmdir(program.c_str()), 0);
  ASSERT_EQ(::mkfifo(program.c_str(), 0755), 0);
  EXPECT_EQ(executable(bundle.get()), "(null)") << "a FIFO";
}

TEST_P(CFBundleLayoutTest, NeverLeavesTheBundleForAnExecutable) {
  const std::string inside = in(GetParam().executables);
  putExecutable(inside + "program");
  putExecutable(root_ + "/../outside");
  putExecutable(inside + "folder/nested");
  const std::string up = std::filesystem::relative(root_ + "/../outside", inside).string();
  for (const std::string& name :
       std::vector<std::string>{up, "../outside", "./program", "folder/nested", "/bin/sh", "..", ".", "", "program/"}) {
    put(in(GetParam().info), infoPlist(entry("CFBundleExecutable", name)));
    const auto bundle = bundleAt(root_);
    ASSERT_EQ(value(bundle.get(), "CFBundleExecutable"), name);
    EXPECT_EQ(executable(bundle.get()), "(null)") << name;
    EXPECT_EQ(auxiliary(bundle.get(), name), "(null)") << name;
  }
}

INSTANTIATE_TEST_SUITE_P(
    , CFBundleLayoutTest,
    testing::Values(
        Layout{"Contents", "A 'b'.c é.bundle", "Contents/Info.plist", "Contents/Linux/", "Contents/Resources",
               "Contents/Frameworks"},
        Layout{"Framework", "A 'b'.c é.framework", "Versions/Current/Resources/Info.plist", "Versions/Current/",
               "Versions/Current/Resources", "Versions/Current/Frameworks"},
        Layout{"FrameworkResources", "A 'b'.c é.framework", "Versions/Current/Resources/Info.plist",
               "Versions/Current/Resources/", "Versions/Current/Resources", "Versions/Current/Frameworks"},
        Layout{"UnversionedFramework", "A 'b'.c é.framework", "Resources/Info.plist", "", "Resources", "Frameworks"},
        Layout{"Flat", "A 'b'.c é.bundle", "Info.plist", "", "Resources", "Frameworks"},
        Layout{"FlatResources", "A 'b'.c é.bundle", "Resources/Info.plist", "Resources/", "Resources", "Frameworks"}),
    [](const auto& layout) { return std::string(layout.param.name); });

class CFBundleInfoTest : public testing::Test {
 protected:
  void SetUp() override { test::makeFolders(root_ + "/Contents"); }
  void expectNoDictionary(const std::string& why) {
    const auto bundle = bundleAt(root_);
    ASSERT_TRUE(bundle) << why;
    EXPECT_EQ(CFBundleGetInfoDictionary(bundle.get()), nullptr) << why;
  }

  const std::string root_ = test::scratchFolder("info") + "/x.bundle";
  const std::string info_ = root_ + "/Contents/Info.plist";
};

TEST_F(CFBundleInfoTest, IsNoneForWhatIsNoDictionary) {
  expectNoDictionary("missing");
  const std::vector<std::string> contents = {"",
                                             "text",
                                             "<plist version=\"1.0\"><array/></plist>",
                                             "<plist version=\"1.0\"><string>x</string></plist>",
                                             "<plist version=\"1.0\"><dict><key>a</key></dict></plist>",
                                             "<plist version=\"1.0\"><dict><key>a</key><string>",
                                             "bplist00\xFF\xFF",
                                             "{ a = b; }",
                                             std::string("\0\0\0\0", 4)};
  for (const std::string& content : contents) {
    put(info_, content);
    expectNoDictionary(content);
  }
}

TEST_F(CFBundleInfoTest, NeverWaitsForAFIFO) {
  ASSERT_EQ(::mkfifo(info_.c_str(), 0666), 0);
  expectNoDictionary("a FIFO without a writer");
}

TEST_F(CFBundleInfoTest, IsNoneForDirectoriesDevicesAndDanglingLinks) {
  test::makeFolders(info_);
  expectNoDictionary("a directory");
  ASSERT_EQ(::rmdir(info_.c_str()), 0);
  std::filesystem::create_symlink("/dev/zero", info_);
  expectNoDictionary("an endless device");
  ASSERT_EQ(::unlink(info_.c_str()), 0);
  std::filesystem::create_symlink("/missing", info_);
  expectNoDictionary("a dangling link");
  ASSERT_EQ(::unlink(info_.c_str()), 0);
  std::filesystem::create_symlink("Info.plist", info_);
  expectNoDictionary("a link to itself");
}

TEST_F(CFBundleInfoTest, IsNoneForAFileAboveTheLimit) {
  const std::size_t limit = 16 * 1024 * 1024;
  std::string content = infoPlist(entry("a", "b"));
  content.resize(limit, ' ');
  put(info_, content);
  EXPECT_EQ(value(bundleAt(root_).get(), "a"), "b") << "at the limit";
  put(info_, content + " ");
  expectNoDictionary("one byte above");
  ASSERT_EQ(::truncate(info_.c_str(), off_t{1} << 40), 0);
  expectNoDictionary("a terabyte with holes");
}

TEST_F(CFBundleInfoTest, IsReadThroughALink) {
  put(root_ + "/elsewhere.plist", infoPlist(entry("a", "b")));
  std::filesystem::create_symlink("../elsewhere.plist", info_);
  EXPECT_EQ(value(bundleAt(root_).get(), "a"), "b");
}

TEST_F(CFBundleInfoTest, GivesTheSameObjectWhileTheFileStays) {
  put(info_, infoPlist(entry("a", "1")));
  const auto first = bundleAt(root_);
  const auto second = bundleAt(root_ + "/");
  EXPECT_EQ(first.get(), second.get());
  put(info_, infoPlist(entry("a", "1")));
  EXPECT_EQ(bundleAt(root_).get(), first.get()) << "written again with the same content";
}

TEST_F(CFBundleInfoTest, IsReadAgainWhenTheFileChanges) {
  put(info_, infoPlist(entry("a", "1")));
  auto old = bundleAt(root_);
  for (int round = 2; round < 100; ++round) {
    // The length stays, and the time often does: the clock of the file system is coarser than this loop.
    const std::string now = std::to_string(round % 10);
    put(info_, infoPlist(entry("a", now)));
    auto fresh = bundleAt(root_);
    ASSERT_NE(fresh.get(), old.get());
    ASSERT_EQ(value(fresh.get(), "a"), now);
    ASSERT_EQ(value(old.get(), "a"), std::to_string((round - 1) % 10)) << "the old picture stays";
    old = std::move(fresh);
  }
}

TEST_F(CFBundleInfoTest, ComesAndGoesWithItsFile) {
  const auto none = bundleAt(root_);
  EXPECT_EQ(CFBundleGetInfoDictionary(none.get()), nullptr);
  put(info_, infoPlist(entry("a", "1")));
  EXPECT_EQ(value(bundleAt(root_).get(), "a"), "1");
  ASSERT_EQ(::unlink(info_.c_str()), 0);
  expectNoDictionary("taken away");
  put(root_ + "/Info.plist", infoPlist(entry("a", "flat")));
  std::filesystem::remove_all(root_ + "/Contents");
  EXPECT_EQ(value(bundleAt(root_).get(), "a"), "flat") << "another layout";
}

TEST(CFBundleFindingTest, KeepsThePathAsItWasReached) {
  const std::string folder = test::scratchFolder("reached");
  putExecutable(folder + "/real/F.framework/Versions/A/F");
  std::filesystem::create_symlink("A", folder + "/real/F.framework/Versions/Current");
  std::filesystem::create_symlink("real", folder + "/link");
  const auto bundle = bundleAt(folder + "/link/F.framework");
  EXPECT_EQ(pathOfOwned(CFBundleCopyBundleURL(bundle.get())), folder + "/link/F.framework");
  EXPECT_EQ(executable(bundle.get()), folder + "/link/F.framework/Versions/Current/F");
}

TEST(CFBundleFindingTest, FindsABundleMadeBeforeByItsIdentifier) {
  const std::string root = test::scratchFolder("identified") + "/x.bundle";
  EXPECT_EQ(CFBundleGetBundleWithIdentifier(CFSTR("com.test.identified")), nullptr);
  put(root + "/Info.plist", infoPlist(entry("CFBundleIdentifier", "com.test.identified")));
  EXPECT_EQ(CFBundleGetBundleWithIdentifier(CFSTR("com.test.identified")), nullptr) << "not made yet";
  auto bundle = bundleAt(root);
  CFBundleRef const found = CFBundleGetBundleWithIdentifier(CFSTR("com.test.identified"));
  EXPECT_EQ(found, bundle.get());
  bundle.reset();
  put(root + "/Info.plist", infoPlist(entry("CFBundleIdentifier", "com.test.other")));
  const auto fresh = bundleAt(root);
  EXPECT_EQ(CFBundleGetBundleWithIdentifier(CFSTR("com.test.other")), fresh.get());
  EXPECT_EQ(CFBundleGetBundleWithIdentifier(CFSTR("com.test.identified")), nullptr);
  EXPECT_EQ(textOf(CFBundleGetIdentifier(found)), "com.test.identified") << "what was given out stays";
  EXPECT_EQ(CFBundleGetBundleWithIdentifier(CFSTR("com.test.Other")), nullptr) << "letter case counts";
}

TEST(CFBundleFindingTest, ListsEveryBundle) {
  const std::string folder = test::scratchFolder("listed");
  test::makeFolders(folder + "/a.bundle");
  const CFArrayRef before = CFBundleGetAllBundles();
  const CFIndex count = CFArrayGetCount(before);
  EXPECT_EQ(CFBundleGetAllBundles(), before) << "nothing has changed";
  const auto bundle = bundleAt(folder + "/a.bundle");
  const CFArrayRef after = CFBundleGetAllBundles();
  const CFRange all = CFRangeMake(0, CFArrayGetCount(after));
  EXPECT_EQ(all.length, count + 1);
  EXPECT_TRUE(CFArrayContainsValue(after, all, bundle.get()));
  EXPECT_TRUE(CFArrayContainsValue(after, all, CFBundleGetMainBundle()));
  EXPECT_EQ(CFArrayGetCount(before), count) << "the old picture stays";
}

TEST(CFBundleFindingTest, TakesTheProgramsDirectoryForTheMainBundleOfAPlainProgram) {
  CFBundleRef const bundle = CFBundleGetMainBundle();
  ASSERT_NE(bundle, nullptr);
  EXPECT_EQ(CFBundleGetMainBundle(), bundle);
  const std::string program = std::filesystem::canonical("/proc/self/exe").string();
  EXPECT_EQ(executable(bundle), program);
  EXPECT_EQ(pathOfOwned(CFBundleCopyBundleURL(bundle)), std::filesystem::path(program).parent_path().string());
}

}  // namespace
