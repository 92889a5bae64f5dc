// The defaults file that ships in the cluster framework.
#include <tovan/constants.h>
#include <tovan/service_cache_file.h>
#include <tovan/tovan_config_file.h>
#include <tovan/tovan_config_updater.h>

#include <set>
#include <sstream>

#include "tests/plist/plist_support.h"

namespace {

using namespace test;
using tovan::CServiceCacheEntry;
using tovan::CTovanConfigFile;

const std::string kShipped =
    TOVAN_BUILD_DIR "/lib/tovan/Frameworks/Mervane.framework/Resources/LumisphereConfig.plist.default";

// Those that have no default that suits every host.
const std::set<std::string> kWithoutDefault = {"StdoutPath", "StdoutServicePath", "ServerName", "ServerPassword"};

TEST(ShippedDefaultsTest, EverySettingOfTheDaemonIsThereWithTheLibrarysDefault) {
  const auto section = sectionOfFile(kShipped, "mervaneconfig");
  ASSERT_FALSE(section.isNull());
  const auto stored = static_cast<CFDictionaryRef>(section.get());
  const CTovanConfigFile file(str(kShipped).get());
  CFIndex count = 0;
  for (const tovan::SettingDescription& setting : CTovanConfigFile::settings()) {
    const std::string key = utf8(setting.key);
    EXPECT_EQ(CFDictionaryContainsKey(stored, setting.key) != 0, !kWithoutDefault.contains(key)) << key;
    if (kWithoutDefault.contains(key)) continue;
    ++count;
    EXPECT_EQ(describe(file.copySetting(setting.key)), describe(tovan::copySettingDefault(setting))) << key;
  }
  EXPECT_EQ(CFDictionaryGetCount(stored), count) << "it has keys that nobody reads";
}

TEST(ShippedDefaultsTest, TheTwoRequiredServicesAreCompleteAndDisabled) {
  const tovan::CServiceCacheFile file(str(kShipped).get());
  for (const char* const kind :
       {tovan::TovanCorePrivate::kClusterAdminServiceKind, tovan::TovanCorePrivate::kTranscoderServiceKind}) {
    CServiceCacheEntry entry;
    ASSERT_TRUE(file.get(str(kind).get(), entry)) << kind;
    EXPECT_FALSE(entry.enabled);
    EXPECT_FALSE(entry.sharePref);
    EXPECT_GE(entry.instances, 1);
    EXPECT_NE(entry.displayName(), nullptr);
    entry.updateRuntimeServicePath();
    EXPECT_EQ(::access(utf8(entry.path()).c_str(), X_OK), 0) << "there is no program " << utf8(entry.path());
    EXPECT_TRUE(exists(utf8(entry.bundlePath()) + "/Contents/Info.plist"));
    // What the library writes of it is what is shipped, so that the first flush changes nothing but the count.
    const auto section = sectionOfFile(kShipped, "mervaneservices");
    const auto shipped = CSharedCFRef<CFMutableDictionaryRef>(
        CFDictionaryCreateMutableCopy(nullptr, 0,
                                      static_cast<CFDictionaryRef>(CFDictionaryGetValue(
                                          static_cast<CFDictionaryRef>(section.get()), str(kind).get()))));
    CServiceCacheEntry stored;
    ASSERT_TRUE(file.get(str(kind).get(), stored));
    const auto written = stored.toDict();
    CFDictionaryRemoveValue(shipped.get(), CFSTR("Instances"));
    CFDictionaryRemoveValue(written.get(), CFSTR("Instances"));
    EXPECT_EQ(describe(written), describe(shipped));
  }
}

TEST(ShippedDefaultsTest, TheWeightsOfTheProcessorTypesAreThere) {
  const auto section = sectionOfFile(kShipped, "hostperfscore");
  ASSERT_FALSE(section.isNull());
  const auto types = static_cast<CFDictionaryRef>(
      CFDictionaryGetValue(static_cast<CFDictionaryRef>(section.get()), CFSTR("CPUTypes")));
  ASSERT_NE(types, nullptr);
  EXPECT_EQ(describe(CFDictionaryGetValue(types, CFSTR("Current"))), "\"RuntimeCheck\"");
  for (const char* const type : {"Default", "Intel X86", "Intel Core", "Intel Core Xeon", "Intel Core 2"}) {
    const CFTypeRef weight = CFDictionaryGetValue(types, str(type).get());
    ASSERT_TRUE(weight != nullptr && CFGetTypeID(weight) == CFNumberGetTypeID()) << type;
    EXPECT_TRUE(CFNumberIsFloatType(static_cast<CFNumberRef>(weight))) << type;
    double value = 0;
    CFNumberGetValue(static_cast<CFNumberRef>(weight), kCFNumberDoubleType, &value);
    EXPECT_GT(value, 0) << type;
  }
}

TEST(ShippedDefaultsTest, TheyAreValidThemselves) {
  std::ostringstream reported;
  const std::string folder = scratchFolder("valid");
  const tovan::TovanConfigUpdater updater(
      reported, {plinth::CSTR(kShipped), plinth::CSTR(folder + "/p"), plinth::CSTR(kShipped)});
  EXPECT_EQ(updater.contentsProblem(), std::nullopt);
  EXPECT_EQ(describe(sectionOfFile(kShipped, "Version")), "\"1.1\"");
}

}  // namespace
