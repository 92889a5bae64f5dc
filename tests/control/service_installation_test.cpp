// Installing and removing; job descriptions are launch_agent_installation_test.cpp's.
#include "tests/control/service_test.h"
#include "tests/launch/thrown.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <string>

extern "C" int countOfRefusals(void);

namespace {

using test::exists;
using test::ServiceBundle;
using test::textOf;

class ServiceInstallationTest : public test::ServiceTest {
 protected:
  // Installing the bundle gives false and creates nothing.
  static void expectNothingInstalled(const ServiceBundle& made) {
    EXPECT_FALSE(install(made));
    EXPECT_FALSE(installAs("some:name", made));
    EXPECT_EQ(configuration(), "none");
    EXPECT_FALSE(exists(agentsFolder()));
  }
};

TEST_F(ServiceInstallationTest, RecordsTheServiceUnderItsKind) {
  ServiceBundle made = bundle();
  made.description =
      "<key>DisplayName</key><string>A Test</string><key>Logging</key><true/>" + version(7) + instances(3);
  made.write();
  EXPECT_TRUE(install(made));
  const auto installed = entry(kKind);
  EXPECT_EQ(textOf(installed.displayName()), "A Test");
  EXPECT_TRUE(installed.logging);
  EXPECT_EQ(installed.version, 7);
  EXPECT_EQ(installed.instances, 3);
  EXPECT_FALSE(installed.enabled);
  EXPECT_EQ(textOf(installed.bundlePath()), made.path);
  EXPECT_EQ(textOf(installed.path()), made.executablePath());
  EXPECT_FALSE(exists(agentsFolder())) << "launchd does not start this service";
}

TEST_F(ServiceInstallationTest, RecordsTheServiceUnderTheNameThatIsGiven) {
  const ServiceBundle made = bundle();
  made.write();
  EXPECT_TRUE(installAs("my name ä", made));
  EXPECT_TRUE(serviceInstalled(name("my name ä")->getStringRef()));
  EXPECT_FALSE(serviceInstalled(name(kKind)->getStringRef()));
  EXPECT_TRUE(install(made));
  EXPECT_TRUE(serviceInstalled(name(kKind)->getStringRef()));
}

TEST_F(ServiceInstallationTest, KeepsEverythingElseInTheFile) {
  test::writeConfiguration(
      "<key>Version</key><string>1.5</string><key>other</key><dict><key>a</key><true/></dict>"
      "<key>mervaneservices</key><dict><key>b:c</key><dict><key>Path</key><string>/b</string>"
      "</dict></dict>");
  const ServiceBundle made = bundle();
  made.write();
  EXPECT_TRUE(install(made));
  EXPECT_EQ(textOf(entry("b:c").path()), "/b");
  const auto file = test::asDictionary(test::listFromText(configuration()));
  EXPECT_TRUE(test::isDict("<key>a</key><true/>", CFDictionaryGetValue(file.get(), CFSTR("other"))));
  EXPECT_TRUE(test::isList("<string>1.5</string>", CFDictionaryGetValue(file.get(), CFSTR("Version"))));
}

TEST_F(ServiceInstallationTest, TakesTheAuxiliaryExecutableThatTheDescriptionNames) {
  ServiceBundle made = bundle();
  made.description += "<key>Executable</key><string>helper ä</string>";
  made.write();
  expectNothingInstalled(made);
  made.writeExecutable("helper ä");
  EXPECT_TRUE(install(made));
  EXPECT_EQ(textOf(entry(kKind).path()), made.executablePath("helper ä"));
}

TEST_F(ServiceInstallationTest, AnEmptyExecutableNamesTheMainOne) {
  ServiceBundle made = bundle();
  made.description += "<key>Executable</key><string></string>";
  made.write();
  EXPECT_TRUE(install(made));
  EXPECT_EQ(textOf(entry(kKind).path()), made.executablePath());
}

TEST_F(ServiceInstallationTest, PathsMayHoldAnything) {
  for (const std::string fileName : {"a b.bundle", "a\nb.bundle", "'\"$(x)`.bundle", "ä日本.bundle", "100%41.bundle"}) {
    std::filesystem::remove_all(test::scratchHome() + "/Library");
    const ServiceBundle made = bundle(fileName);
    made.write();
    EXPECT_TRUE(install(made)) << fileName;
    EXPECT_EQ(textOf(entry(kKind).bundlePath()), made.path);
    EXPECT_EQ(textOf(entry(kKind).path()), made.executablePath());
  }
}

TEST_F(ServiceInstallationTest, ARelativeURLGivesAbsolutePaths) {
  const ServiceBundle made = bundle();
  made.write();
  const auto base = std::filesystem::path(made.path).parent_path().string() + "/";
  const plinth::CSharedCFRef<CFURLRef> folder(
      CFURLCreateWithFileSystemPath(kCFAllocatorDefault, name(base)->getStringRef(), kCFURLPOSIXPathStyle, true));
  const plinth::CSharedCFRef<CFURLRef> relative(CFURLCreateWithFileSystemPathRelativeToBase(
      kCFAllocatorDefault, CFSTR("Test.bundle"), kCFURLPOSIXPathStyle, true, folder.get()));
  EXPECT_TRUE(installService(relative.get()));
  EXPECT_EQ(textOf(entry(kKind).bundlePath()), made.path);
  EXPECT_EQ(textOf(entry(kKind).path()), made.executablePath());
}

TEST_F(ServiceInstallationTest, NoURLNoBundleNothing) {
  EXPECT_FALSE(installService(nullptr));
  EXPECT_FALSE(installServiceWithName(CFSTR("a:b"), nullptr));
  EXPECT_FALSE(removeServiceByPath(nullptr));
  const plinth::CSharedCFRef<CFURLRef> web(
      CFURLCreateWithString(kCFAllocatorDefault, CFSTR("http://localhost/x"), nullptr));
  EXPECT_FALSE(installService(web.get()));
  expectNothingInstalled(bundle("Missing.bundle"));
}

TEST_F(ServiceInstallationTest, MissingArgumentsGiveFalseFromCToo) {
  EXPECT_EQ(countOfRefusals(), 10);
  EXPECT_EQ(configuration(), "none");
}

TEST_F(ServiceInstallationTest, BundleWithoutInformation) {
  const ServiceBundle made = bundle();
  made.writeExecutable("worker");
  expectNothingInstalled(made);
  test::writeFile(made.contents() + "/Info.plist", "damaged");
  expectNothingInstalled(made);
}

TEST_F(ServiceInstallationTest, BundleWithoutAKind) {
  ServiceBundle made = bundle();
  made.kind.clear();
  made.write();
  expectNothingInstalled(made);
  made.extra = "<key>MervaneServiceKind</key><integer>1</integer>";
  made.write();
  expectNothingInstalled(made);
  EXPECT_FALSE(removeServiceByPath(made.url().get()));
}

TEST_F(ServiceInstallationTest, BundleWithoutADescription) {
  const ServiceBundle made = bundle();
  made.writeExecutable("worker");
  const std::string information =
      "<key>MervaneServiceKind</key><string>a:b</string>"
      "<key>CFBundleExecutable</key><string>worker</string>";
  for (const char* description : {"", "<key>MervaneServiceConfig</key><string>x</string>",
                                  "<key>MervaneServiceConfig</key><array><dict/></array>"}) {
    made.writeInformation(information + description);
    expectNothingInstalled(made);
  }
  made.writeInformation(information + "<key>MervaneServiceConfig</key><dict/>");
  EXPECT_TRUE(install(made)) << "an empty description is one";
}

TEST_F(ServiceInstallationTest, BundleWithoutAnExecutable) {
  ServiceBundle made = bundle();
  made.write();
  std::filesystem::permissions(made.executablePath(), std::filesystem::perms{0644});
  expectNothingInstalled(made);
  std::filesystem::remove(made.executablePath());
  expectNothingInstalled(made);
  made.executable.clear();
  made.write();
  expectNothingInstalled(made);
}

TEST_F(ServiceInstallationTest, DescriptionWithWrongTypesTakesTheDefaults) {
  ServiceBundle made = bundle();
  made.description =
      "<key>Version</key><string>x</string><key>Executable</key><integer>1</integer>"
      "<key>LaunchHint</key><array/><key>Instances</key><dict/><key>Path</key><true/>";
  made.write();
  EXPECT_TRUE(install(made));
  const auto installed = entry(kKind);
  EXPECT_EQ(installed.version, 0);
  EXPECT_EQ(installed.instances, 0);
  EXPECT_EQ(textOf(installed.launchHint()), "null");
  EXPECT_EQ(textOf(installed.path()), made.executablePath());
}

TEST_F(ServiceInstallationTest, ReinstallingAnUnchangedBundleChangesNothing) {
  ServiceBundle made = bundle();
  made.description = version(2) + instances(2);
  made.write();
  ASSERT_TRUE(install(made));
  auto changed = entry(kKind);
  changed.instances = 5;
  tovan::CServiceCacheFile file;
  file.put(changed);
  file.flush();
  const std::string before = configuration();
  EXPECT_FALSE(install(made));
  EXPECT_EQ(configuration(), before);
  made.description = version(1) + instances(9);
  made.write();
  EXPECT_FALSE(install(made)) << "a lower version";
  EXPECT_EQ(configuration(), before);
}

TEST_F(ServiceInstallationTest, ANewerVersionReplacesTheEntryAndKeepsTheInstances) {
  ServiceBundle made = bundle();
  made.description = version(9) + instances(2) + "<key>DisplayName</key><string>old</string>";
  made.write();
  ASSERT_TRUE(install(made));
  made.description = version(10) + instances(7);
  made.write();
  EXPECT_TRUE(install(made));
  EXPECT_EQ(entry(kKind).version, 10);
  EXPECT_EQ(entry(kKind).instances, 2);
  EXPECT_EQ(textOf(entry(kKind).displayName()), "null") << "nothing else is kept";
}

TEST_F(ServiceInstallationTest, AnotherPathReplacesTheEntryWhateverItsVersion) {
  ServiceBundle first = bundle();
  first.description = version(5) + instances(2);
  first.write();
  ServiceBundle second = bundle();
  second.description = version(1) + instances(7);
  second.write();
  ASSERT_TRUE(install(first));
  EXPECT_TRUE(install(second));
  EXPECT_EQ(textOf(entry(kKind).path()), second.executablePath());
  EXPECT_EQ(entry(kKind).version, 1);
  EXPECT_EQ(entry(kKind).instances, 2);
}

TEST_F(ServiceInstallationTest, AnEntryWithoutAPathIsReplaced) {
  test::writeConfiguration("<key>mervaneservices</key><dict><key>" + std::string(kKind) + "</key><dict>" + version(9) +
                           "</dict></dict>");
  const ServiceBundle made = bundle();
  made.write();
  EXPECT_TRUE(install(made));
  EXPECT_EQ(textOf(entry(kKind).path()), made.executablePath());
}

TEST_F(ServiceInstallationTest, ZeroOldInstancesAreNotKept) {
  ServiceBundle made = bundle();
  made.description = version(1) + instances(0);
  made.write();
  ASSERT_TRUE(install(made));
  made.description = version(2) + instances(4);
  made.write();
  EXPECT_TRUE(install(made));
  EXPECT_EQ(entry(kKind).instances, 4);
}

TEST_F(ServiceInstallationTest, RemovesByName) {
  const ServiceBundle made = bundle();
  made.write();
  ASSERT_TRUE(install(made));
  ASSERT_TRUE(installAs("other:name", made));
  EXPECT_TRUE(removeService(name(kKind)->getStringRef()));
  EXPECT_FALSE(serviceInstalled(name(kKind)->getStringRef()));
  EXPECT_TRUE(serviceInstalled(CFSTR("other:name")));
  const std::string before = configuration();
  EXPECT_FALSE(removeService(name(kKind)->getStringRef()));
  EXPECT_FALSE(removeService(nullptr));
  EXPECT_EQ(configuration(), before);
}

TEST_F(ServiceInstallationTest, RemovesByTheBundlesKindOnly) {
  const ServiceBundle made = bundle();
  made.write();
  ASSERT_TRUE(installAs("other:name", made));
  EXPECT_FALSE(removeServiceByPath(made.url().get()));
  ASSERT_TRUE(install(made));
  EXPECT_TRUE(removeServiceByPath(made.url().get()));
  EXPECT_FALSE(serviceInstalled(name(kKind)->getStringRef()));
  EXPECT_TRUE(serviceInstalled(CFSTR("other:name")));
  EXPECT_FALSE(removeServiceByPath(bundle("Missing.bundle").url().get()));
}

TEST_F(ServiceInstallationTest, RemovingNothingCreatesNothing) {
  EXPECT_FALSE(removeService(CFSTR("a:b")));
  EXPECT_EQ(configuration(), "none");
}

TEST_F(ServiceInstallationTest, AnUnreadableConfigurationIsRaisedAndStays) {
  test::writeConfiguration("");
  test::writeFile(test::configurationPath(), "damaged");
  const ServiceBundle made = bundle();
  made.write();
  EXPECT_THROW(install(made), plinth::CException);
  EXPECT_THROW(removeService(CFSTR("a:b")), plinth::CException);
  EXPECT_THROW(serviceInstalled(CFSTR("a:b")), plinth::CException);
  EXPECT_THROW(enableService(CFSTR("a:b")), plinth::CException);
  EXPECT_THROW(serviceEnabled(CFSTR("a:b")), plinth::CException);
  EXPECT_EQ(configuration(), "damaged");
}

}  // namespace
