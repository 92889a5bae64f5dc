#include <CoreFoundation/CFBundle.h>
#include <gtest/gtest.h>
#include <plinth/exception.h>
#include <plinth/string_utilities.h>
#include <plinth/url.h>

#include <string>

#include "tests/foundation/plinth_text.h"
#include "tests/support/scratch_home.h"

namespace {

using namespace plinth;

// A flat bundle with one English strings table.
CSharedCFRef<CFBundleRef> newBundle() {
  const std::string folder = test::scratchFolder("Example") + "/Example.bundle";
  test::makeFolders(folder + "/Contents/Resources/en.lproj");
  test::writeFile(folder + "/Contents/Info.plist",
                  "<plist version=\"1.0\"><dict><key>CFBundleIdentifier</key><string>com.example.strings</string>"
                  "<key>CFBundleDevelopmentRegion</key><string>en</string></dict></plist>\n");
  test::writeFile(
      folder + "/Contents/Resources/en.lproj/Localizable.strings",
      "/* greeting */\n\"greeting\" = \"Good \\\"day\\\", caf\u00e9\";\n\"format\" = \"Path [%@] gone\";\n");
  const CURLRef url = makeShared<CURL>(CSTR(folder), kCFURLPOSIXPathStyle, true);
  return CFBundleCreate(kCFAllocatorDefault, url->getURLRef());
}

TEST(StringUtilitiesTest, GivesTheTextForAKeyOfTheBundlesTable) {
  const CSharedCFRef<CFBundleRef> bundle = newBundle();
  ASSERT_TRUE(bundle);
  EXPECT_EQ(test::text(StringUtilities::localizedString(bundle.get(), CSTR("greeting"))), "Good \"day\", caf\u00e9");
  EXPECT_EQ(test::text(StringUtilities::localizedString(bundle.get(), CSTR("format"))), "Path [%@] gone");
}

TEST(StringUtilitiesTest, AKeyThatTheTableLacksStandsForItself) {
  const CSharedCFRef<CFBundleRef> bundle = newBundle();
  EXPECT_EQ(test::text(StringUtilities::localizedString(bundle.get(), CSTR("absent"))), "absent");
}

TEST(StringUtilitiesTest, RefusesEmptyArguments) {
  EXPECT_EQ(test::messageOf<CNullPointerException>([] { StringUtilities::localizedString(nullptr, CSTR("key")); }),
            "Error: bundle is null!");
  EXPECT_EQ(
      test::messageOf<CNullPointerException>([] { StringUtilities::localizedString(newBundle().get(), nullptr); }),
      "Error: key is null!");
}

}  // namespace
