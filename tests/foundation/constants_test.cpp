#include <tovan/constants.h>

#include <CoreFoundation/CoreFoundation.h>
#include <gtest/gtest.h>

#include <cstring>
#include <ostream>
#include <set>
#include <string>

namespace constants = tovan::TovanCorePrivate;

namespace {

std::string text(CFStringRef string) {
  const char* const bytes = CFStringGetCStringPtr(string, kCFStringEncodingUTF8);
  return bytes != nullptr ? bytes : "(no bytes)";
}

// What a client's static initialiser sees, which runs before main().
const std::string keySeenBeforeMain = text(constants::kDictKeyServiceKind);
const std::string pathSeenBeforeMain = constants::kTovanConfigFilePath;
const std::int32_t portSeenBeforeMain = constants::kTovanDaemonPortNumber;

struct CConstant {
  const char* name;
  const char* value;
  const char* expected;
};
struct CFConstant {
  const char* name;
  CFStringRef value;
  const char* expected;
};
void PrintTo(const CConstant& constant, std::ostream* out) { *out << constant.name; }
void PrintTo(const CFConstant& constant, std::ostream* out) { *out << constant.name; }

// Each name occurs once as code and once as text, so that a failure tells which.
#define CONSTANT(name, expected) \
  { #name, constants::name, expected }

const CConstant kCConstants[] = {
    CONSTANT(kLoopbackAddress, "127.0.0.1"),
    CONSTANT(kTovanConfigFilePath, "~/Library/Application Support/Lumisphere/LumisphereConfig.plist"),
    CONSTANT(kTovanLogFilePath, "~/Library/Logs/Lumisphere/"),
    CONSTANT(kClusterAdminServiceDesc, "Mervane Cluster Admin"),
    CONSTANT(kClusterAdminServiceKind, "jobcontroller:com.brant.mervane.cluster.admin"),
    CONSTANT(kClusterUserServiceKind, "jobcontroller:com.brant.mervane.cluster.user"),
    CONSTANT(kContentControllerServiceKind, "requestprocessor:com.brant.mervane.contentcontroller"),
    CONSTANT(kExecutorServiceKind, "servicecontroller:com.brant.mervane.executor"),
    CONSTANT(kTranscoderServiceKind, "servicecontroller:com.brant.klarn.transcoderx"),
    CONSTANT(kContentAgentServiceKind, "contentcontroller:com.brant.mervane.contentagent"),
    CONSTANT(kKlarnClusterAdminServiceKind, "jobcontroller:com.brant.lumisphere.cluster.admin"),
    CONSTANT(kKlarnContentControllerServiceKind, "requestprocessor:com.brant.lumisphere.contentcontroller"),
    CONSTANT(kKlarnTranscoderServiceKind, "servicecontroller:com.brant.klarn.transcoder.klarn"),
};

const CFConstant kCFConstants[] = {
    CONSTANT(kClusterServiceKind, "jobcontroller:com.brant.mervane.cluster.admin"),
    CONSTANT(kClusterServiceDesc, "Mervane Cluster Admin"),
    CONSTANT(kTovanConfigPath, "~/Library/Application Support/Lumisphere/"),
    CONSTANT(kTovanClusterStorageExportsFilePath, "~/Library/Application Support/Lumisphere/exports"),
    CONSTANT(kTovanClusterStorageMountPath, "/Users/Shared/Library/Application Support/Lumisphere/Storage/"),
    CONSTANT(kTovanClusterStorageSubPath, "shared"),
    CONSTANT(kTovanClusterSubexpSubPath, "subexp"),
    CONSTANT(kTovanSpooledJobsSubPath, "jobs"),
    CONSTANT(kTovanJobResultsSubPath, "shared/results"),
    CONSTANT(kTovanLocalClusterStoragePath, "/tmp/mervane"),
    CONSTANT(kTovanDefaultClusterStoragePath, "~/Library/Application Support/Lumisphere/Storage/"),
    CONSTANT(kTovanFileCachePath, "~/Library/Application Support/Lumisphere/Cache"),
    CONSTANT(kTovanPIDFilePath, "~/Library/Application Support/Lumisphere/LumispherePID.plist"),
    CONSTANT(kServiceCacheFilePath, "~/Library/Application Support/Lumisphere/LumisphereConfig.plist"),
    CONSTANT(kServiceConfigFilePath, "~/Library/Application Support/Lumisphere/LumisphereConfig.plist"),
    CONSTANT(kHostPerfScoreFilePath, "~/Library/Application Support/Lumisphere/LumisphereConfig.plist"),
    CONSTANT(kRadHostsFilePath, "~/Library/Application Support/Lumisphere/LumisphereConfig.plist"),
    CONSTANT(kTovanClusterJobCacheFilePath,
             "~/Library/Application Support/Lumisphere/jobcontroller:com.brant.mervane.cluster.jobcache.db"),
    CONSTANT(kTovanClusterJobCacheUserFilePath,
             "~/Library/Application Support/Lumisphere/jobcontroller:com.brant.lumisphere.cluster.jobcache.db"),
    CONSTANT(kTovanITTConverterJobCacheFilePath,
             "~/Library/Application Support/Lumisphere/com.brant.lumisphere.LKCaptionSubtitleProcessor.jobcache.db"),
    CONSTANT(kEmptyString, ""),
    CONSTANT(kDictKeyAdd, "add"),
    CONSTANT(kDictKeyRemove, "remove"),
    CONSTANT(kDictKeyReplace, "replace"),
    CONSTANT(kDictKeyUpdate, "update"),
    CONSTANT(kDictKeyMerge, "merge"),
    CONSTANT(kDictKeyClear, "clear"),
    CONSTANT(kDictKeyKind, "kind"),
    CONSTANT(kDictKeySubkind, "subkind"),
    CONSTANT(kDictKeyName, "name"),
    CONSTANT(kDictKeyUniqueID, "uniqueID"),
    CONSTANT(kDictKeyUserID, "uid"),
    CONSTANT(kDictKeyProcessID, "pid"),
    CONSTANT(kDictKeyAccessKey, "akey"),
    CONSTANT(kDictKeyCaptureKey, "ckey"),
    CONSTANT(kDictKeyCapturePermKey, "cpkey"),
    CONSTANT(kDictKeyEnabled, "enabled"),
    CONSTANT(kDictKeyPrefs, "prefs"),
    CONSTANT(kDictKeyConfig, "config"),
    CONSTANT(kDictKeyLogging, "logging"),
    CONSTANT(kDictKeyDelay, "delay"),
    CONSTANT(kDictKeyHeadless, "headless"),
    CONSTANT(kDictKeyServiceType, "serviceType"),
    CONSTANT(kDictKeyServiceConfigEntry, "serviceConfigEntry"),
    CONSTANT(kDictKeyServiceInstance, "serviceInstance"),
    CONSTANT(kDictKeyServiceKind, "service"),
    CONSTANT(kDictKeyServiceList, "serviceList"),
    CONSTANT(kDictKeyCancelJobs, "cancelJobs"),
    CONSTANT(kDictKeyStorage, "storage"),
    CONSTANT(kDictKeyTaskPtr, "taskPtr"),
};

#undef CONSTANT

class CConstantTest : public ::testing::TestWithParam<CConstant> {};
TEST_P(CConstantTest, HasItsValue) { EXPECT_STREQ(GetParam().value, GetParam().expected) << GetParam().name; }
INSTANTIATE_TEST_SUITE_P(Every, CConstantTest, ::testing::ValuesIn(kCConstants),
                         [](const auto& each) { return std::string(each.param.name); });

class CFConstantTest : public ::testing::TestWithParam<CFConstant> {};
TEST_P(CFConstantTest, HasItsValue) {
  ASSERT_NE(GetParam().value, nullptr);
  EXPECT_EQ(CFGetTypeID(GetParam().value), CFStringGetTypeID());
  EXPECT_EQ(text(GetParam().value), GetParam().expected);
  EXPECT_EQ(CFStringGetLength(GetParam().value), static_cast<CFIndex>(std::strlen(GetParam().expected)));
}
TEST_P(CFConstantTest, IsNeverCounted) {
  const CFIndex before = CFGetRetainCount(GetParam().value);
  CFRelease(GetParam().value);
  CFRelease(GetParam().value);
  EXPECT_EQ(CFGetRetainCount(GetParam().value), before);
  EXPECT_EQ(CFRetain(GetParam().value), GetParam().value);
  EXPECT_EQ(CFGetRetainCount(GetParam().value), before);
}
INSTANTIATE_TEST_SUITE_P(Every, CFConstantTest, ::testing::ValuesIn(kCFConstants),
                         [](const auto& each) { return std::string(each.param.name); });

TEST(ConstantsTest, TheDaemonListensOnPort2189) { EXPECT_EQ(constants::kTovanDaemonPortNumber, 2189); }

TEST(ConstantsTest, TheInstallPathIsAnAbsoluteFolderWithItsSlash) {
  const std::string path = constants::kTovanFrameworksInstallPath;
  ASSERT_FALSE(path.empty());
  EXPECT_EQ(path.front(), '/') << path;
  EXPECT_EQ(path.back(), '/') << path;
}

TEST(ConstantsTest, TheServiceKindIsNotTheKind) {
  EXPECT_EQ(text(constants::kDictKeyServiceKind), "service");
  EXPECT_EQ(text(constants::kDictKeyKind), "kind");
}

TEST(ConstantsTest, TheSectionsOfTheConfigurationFileShareItsPath) {
  for (CFStringRef path : {constants::kServiceCacheFilePath, constants::kServiceConfigFilePath,
                           constants::kHostPerfScoreFilePath, constants::kRadHostsFilePath}) {
    EXPECT_EQ(text(path), constants::kTovanConfigFilePath);
    EXPECT_TRUE(CFEqual(path, constants::kServiceCacheFilePath)) << text(path);
  }
}

TEST(ConstantsTest, ThePairsOfTheTwoFormsAreEqual) {
  EXPECT_EQ(text(constants::kClusterServiceKind), constants::kClusterAdminServiceKind);
  EXPECT_EQ(text(constants::kClusterServiceDesc), constants::kClusterAdminServiceDesc);
}

TEST(ConstantsTest, NoTwoDictionaryKeysAreEqual) {
  std::set<std::string> seen;
  for (const CFConstant& constant : kCFConstants) {
    if (std::strncmp(constant.name, "kDictKey", 8) != 0) continue;
    EXPECT_TRUE(seen.insert(text(constant.value)).second) << constant.name << " is \"" << text(constant.value) << "\"";
  }
  EXPECT_EQ(seen.size(), 29u);
}

TEST(ConstantsTest, AStaticInitialiserOfAClientMayReadThem) {
  EXPECT_EQ(keySeenBeforeMain, "service");
  EXPECT_EQ(pathSeenBeforeMain, "~/Library/Application Support/Lumisphere/LumisphereConfig.plist");
  EXPECT_EQ(portSeenBeforeMain, 2189);
}

TEST(ConstantsTest, AKeyFindsAValueStoredUnderAStringOfItsCharacters) {
  const CFStringRef key = CFStringCreateWithCString(kCFAllocatorDefault, "service", kCFStringEncodingUTF8);
  const CFMutableDictionaryRef dictionary = CFDictionaryCreateMutable(
      kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
  CFDictionarySetValue(dictionary, key, kCFBooleanTrue);
  EXPECT_EQ(CFDictionaryGetValue(dictionary, constants::kDictKeyServiceKind), kCFBooleanTrue);
  EXPECT_EQ(CFDictionaryGetValue(dictionary, constants::kDictKeyKind), nullptr);
  CFRelease(dictionary);
  CFRelease(key);
}

}  // namespace
