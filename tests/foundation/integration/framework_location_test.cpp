// Where the frameworks are found depends on where the library was loaded from. This program therefore runs itself again
// as a probe, with the library taken from a tree that the test has laid out, and looks at what the functions answer
// there.
#include <tovan/framework_location.h>

#include "tests/support/command.h"
#include "tests/support/scratch_home.h"

#include <plinth/shared_cf_ref.h>

#include <CoreFoundation/CoreFoundation.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>

namespace {

namespace files = std::filesystem;
using plinth::CSharedCFRef;

constexpr char kProbeVariable[] = "TOVAN_FRAMEWORK_LOCATION_PROBE";
constexpr char kNothing[] = "(null)";

std::string text(CFStringRef string) {
  return string != nullptr ? CFStringGetCStringPtr(string, kCFStringEncodingUTF8) : kNothing;
}
std::string path(CFURLRef url) {
  if (url == nullptr) return kNothing;
  const CSharedCFRef<CFStringRef> copied = CFURLCopyFileSystemPath(url, kCFURLPOSIXPathStyle);
  return text(copied.get());
}

// What every function of the header answers.
using Answers = std::map<std::string, std::string>;

Answers answers() {
  // The outputs begin as something else than null.
  CFURLRef urls[2] = {reinterpret_cast<CFURLRef>(kCFBooleanTrue), reinterpret_cast<CFURLRef>(kCFBooleanTrue)};
  CFStringRef kinds[2] = {CFSTR("left alone"), CFSTR("left alone")};
  getLumisphereServiceBundleURLs(&urls[0], &urls[1]);
  getLumisphereServiceBundleIDs(&kinds[0], &kinds[1]);
  const CSharedCFRef<CFURLRef> jobControllerURL = urls[0], transcoderURL = urls[1];
  const CSharedCFRef<CFStringRef> jobControllerKind = kinds[0], transcoderKind = kinds[1];
  const CSharedCFRef<CFURLRef> mervane = getMervaneFrameworkURL(), lumisphere = getLumisphereFrameworkURL();
  return {{"mervane", path(mervane.get())},
          {"lumisphere", path(lumisphere.get())},
          {"job controller", path(jobControllerURL.get())},
          {"transcoder", path(transcoderURL.get())},
          {"job controller's kind", text(jobControllerKind.get())},
          {"transcoder's kind", text(transcoderKind.get())}};
}

const bool wasProbe = [] {
  if (std::getenv(kProbeVariable) == nullptr) return false;
  for (const auto& [question, answer] : answers()) std::printf("%s=%s\n", question.c_str(), answer.c_str());
  std::exit(0);
}();

const Answers kNothingFound = {{"mervane", kNothing},
                               {"lumisphere", kNothing},
                               {"job controller", kNothing},
                               {"transcoder", kNothing},
                               {"job controller's kind", kNothing},
                               {"transcoder's kind", kNothing}};

// An information dictionary with the value, a property-list element, under "MervaneServiceKind".
std::string information(const std::string& kindElement) {
  const std::string kind = kindElement.empty() ? "" : "<key>MervaneServiceKind</key>" + kindElement;
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?><plist version=\"1.0\"><dict>" + kind + "</dict></plist>\n";
}

void makeServiceBundle(const std::string& bundle, const std::string& kindElement) {
  test::makeFolders(bundle + "/Contents");
  test::writeFile(bundle + "/Contents/Info.plist", information(kindElement));
}

// The library's framework as it was built.
const std::string kBuiltCore =
    TOVAN_BUILD_DIR "/lib/tovan/Frameworks/Mervane.framework/Versions/A/Frameworks/TovanCore.framework";

void copyCore(const std::string& framework) {
  test::makeFolders(files::path(framework).parent_path());
  files::copy(kBuiltCore, framework, files::copy_options::recursive | files::copy_options::copy_symlinks);
}

// The answers of a process that has the library from this framework.
Answers answersFrom(const std::string& framework) {
  const std::string libraries = test::scratchFolder("libraries");
  files::create_symlink(framework + "/Versions/A/TovanCore", libraries + "/libTovanCore.so");
  files::create_symlink(TOVAN_BUILD_DIR "/lib/libTovanPlatform.so", libraries + "/libTovanPlatform.so");
  const test::CommandResult result = test::runCommand(
      "/usr/bin/env",
      {"LD_LIBRARY_PATH=" + libraries, std::string(kProbeVariable) + "=1", files::read_symlink("/proc/self/exe")});
  EXPECT_EQ(result.status, 0) << result.err;
  Answers found;
  for (std::string rest = result.out; !rest.empty();) {
    const std::string line = rest.substr(0, rest.find('\n'));
    rest.erase(0, line.size() + 1);
    found[line.substr(0, line.find('='))] = line.substr(line.find('=') + 1);
  }
  return found;
}

// A "Frameworks" folder with everything in its place.
class FrameworkLocationTest : public ::testing::Test {
 protected:
  void SetUp() override {
    copyCore(core_);
    makeServiceBundle(jobController_, "<string>jobcontroller:com.brant.test</string>");
    makeServiceBundle(transcoder_, "<string>servicecontroller:com.brant.test</string>");
  }
  Answers everything() const {
    return {{"mervane", mervane_},
            {"lumisphere", lumisphere_},
            {"job controller", jobController_},
            {"transcoder", transcoder_},
            {"job controller's kind", "jobcontroller:com.brant.test"},
            {"transcoder's kind", "servicecontroller:com.brant.test"}};
  }
  // What is found when the application framework is not there.
  Answers onlyMervane() const {
    Answers expected = kNothingFound;
    expected["mervane"] = mervane_;
    return expected;
  }

  const std::string root_ = test::scratchFolder("the t\xC3\xA4st 100%25 #");
  const std::string frameworks_ = root_ + "/Frameworks";
  const std::string mervane_ = frameworks_ + "/Mervane.framework";
  const std::string core_ = mervane_ + "/Versions/A/Frameworks/TovanCore.framework";
  const std::string lumisphere_ = frameworks_ + "/Lumisphere.framework";
  const std::string jobController_ = lumisphere_ + "/Resources/LumisphereJobController.bundle";
  const std::string transcoder_ = lumisphere_ + "/Resources/LumisphereTranscoder.bundle";
};

TEST_F(FrameworkLocationTest, EverythingInItsPlaceIsFound) { EXPECT_EQ(answersFrom(core_), everything()); }

TEST_F(FrameworkLocationTest, AMissingApplicationFrameworkIsNullAndItsBundlesWithIt) {
  files::remove_all(lumisphere_);
  EXPECT_EQ(answersFrom(core_), onlyMervane());
}

TEST_F(FrameworkLocationTest, AMissingBundleIsNullAndTheOtherIsFound) {
  files::remove_all(jobController_);
  Answers expected = everything();
  expected["job controller"] = expected["job controller's kind"] = kNothing;
  EXPECT_EQ(answersFrom(core_), expected);
}

TEST_F(FrameworkLocationTest, TheParentOfTheClusterFrameworkMustBeNamedFrameworks) {
  files::rename(frameworks_, root_ + "/Libraries");
  EXPECT_EQ(answersFrom(root_ + "/Libraries/Mervane.framework/Versions/A/Frameworks/TovanCore.framework"),
            kNothingFound);
}

TEST_F(FrameworkLocationTest, TheClusterFrameworkMustHaveItsName) {
  files::rename(mervane_, frameworks_ + "/Other.framework");
  EXPECT_EQ(answersFrom(frameworks_ + "/Other.framework/Versions/A/Frameworks/TovanCore.framework"), kNothingFound);
}

TEST_F(FrameworkLocationTest, ALibraryNearerThanFourLevelsIsNotInIt) {
  const std::string core = mervane_ + "/Versions/Frameworks/TovanCore.framework";
  copyCore(core);
  EXPECT_EQ(answersFrom(core), kNothingFound);
}

TEST_F(FrameworkLocationTest, ALibraryFurtherThanFourLevelsIsNotInIt) {
  const std::string core = mervane_ + "/Versions/A/Frameworks/Inner/TovanCore.framework";
  copyCore(core);
  EXPECT_EQ(answersFrom(core), kNothingFound);
}

TEST_F(FrameworkLocationTest, ALibraryInNoBundleFindsNothing) {
  files::remove_all(core_ + "/Versions/A/Resources");
  EXPECT_EQ(answersFrom(core_), kNothingFound);
}

TEST_F(FrameworkLocationTest, ALinkInFrontOfTheLibrarysBundleIsResolved) {
  const std::string link = test::scratchFolder("link") + "/elsewhere";
  files::create_directory_symlink(root_, link);
  EXPECT_EQ(answersFrom(link + "/Frameworks/Mervane.framework/Versions/A/Frameworks/TovanCore.framework"),
            everything());
}

TEST_F(FrameworkLocationTest, TheNamesAreThoseBehindTheLinks) {
  // A link of the right name and place does not make up for what it leads to.
  const std::string outside = root_ + "/Libraries";
  test::makeFolders(outside);
  files::rename(mervane_, outside + "/Mervane.framework");
  files::create_directory_symlink(outside + "/Mervane.framework", mervane_);
  EXPECT_EQ(answersFrom(core_), kNothingFound);
}

TEST_F(FrameworkLocationTest, ALinkedApplicationFrameworkBesideItIsTaken) {
  files::rename(lumisphere_, root_ + "/Moved.framework");
  files::create_directory_symlink(root_ + "/Moved.framework", lumisphere_);
  EXPECT_EQ(answersFrom(core_), everything());
}

TEST_F(FrameworkLocationTest, ABundleWhoseKindIsANumberIsFoundButHasNone) {
  makeServiceBundle(transcoder_, "<integer>7</integer>");
  Answers expected = everything();
  expected["transcoder's kind"] = kNothing;
  EXPECT_EQ(answersFrom(core_), expected);
}

TEST_F(FrameworkLocationTest, ABundleWithoutAnInformationDictionaryIsFoundButHasNoKind) {
  files::remove_all(jobController_ + "/Contents");
  Answers expected = everything();
  expected["job controller's kind"] = kNothing;
  EXPECT_EQ(answersFrom(core_), expected);
}

TEST(FrameworkLocationInTheBuildTest, TheFrameworksOfTheBuildAreFound) {
  const std::string frameworks = files::canonical(TOVAN_BUILD_DIR "/lib/tovan/Frameworks");
  const Answers found = answers();
  EXPECT_EQ(found.at("mervane"), frameworks + "/Mervane.framework");
  EXPECT_EQ(found.at("lumisphere"), frameworks + "/Lumisphere.framework");
}

TEST(FrameworkLocationInTheBuildTest, TheCallerOwnsWhatItGets) {
  for (auto* const function : {getMervaneFrameworkURL, getLumisphereFrameworkURL}) {
    const CSharedCFRef<CFURLRef> url = function();
    ASSERT_TRUE(url);
    EXPECT_EQ(CFGetRetainCount(url.get()), 1);
  }
}

class ServiceKindTest : public ::testing::Test {
 protected:
  // The kind that a bundle of its own declares with this element.
  static std::string kindOf(const std::string& element) {
    const std::string bundlePath = test::scratchFolder("kind") + "/Service.bundle";
    makeServiceBundle(bundlePath, element);
    const CSharedCFRef<CFURLRef> url =
        CFURLCreateFromFileSystemRepresentation(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(bundlePath.data()),
                                                static_cast<CFIndex>(bundlePath.size()), true);
    const CSharedCFRef<CFBundleRef> bundle = CFBundleCreate(kCFAllocatorDefault, url.get());
    EXPECT_TRUE(bundle);
    return text(getServiceKindFromBundle(bundle.get()));
  }
};

TEST_F(ServiceKindTest, AStringIsTheKind) {
  EXPECT_EQ(kindOf("<string>jobcontroller:com.brant.test</string>"), "jobcontroller:com.brant.test");
}

TEST_F(ServiceKindTest, AnythingElseIsNull) {
  for (const char* element : {"", "<integer>7</integer>", "<true/>", "<array><string>x</string></array>",
                              "<dict><key>x</key><string>y</string></dict>", "<data>eA==</data>"}) {
    EXPECT_EQ(kindOf(element), kNothing) << element;
  }
}

TEST_F(ServiceKindTest, ANullBundleIsNull) { EXPECT_EQ(getServiceKindFromBundle(nullptr), nullptr); }

}  // namespace
