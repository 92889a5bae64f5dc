// Enabling, disabling, resetting, and whether a service runs.
#include "tests/control/service_test.h"

#include <tovan/service_pid_file.h>

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

namespace {

class ServiceEnablingTest : public test::ServiceTest {
 protected:
  void installTwo() {
    test::ServiceBundle made = bundle();
    made.description = version(1) + instances(2) + "<key>LogLevel</key><integer>4</integer>";
    made.write();
    ASSERT_TRUE(install(made));
    ASSERT_TRUE(installAs("other:name", made));
  }
};

TEST_F(ServiceEnablingTest, SwitchesTheFlagOfOneServiceAndNothingElse) {
  installTwo();
  const std::string disabled = configuration();
  EXPECT_FALSE(serviceEnabled(CFSTR("other:name")));
  EXPECT_TRUE(enableService(CFSTR("other:name")));
  EXPECT_TRUE(serviceEnabled(CFSTR("other:name")));
  EXPECT_FALSE(serviceEnabled(name(kKind)->getStringRef()));
  EXPECT_TRUE(enableService(CFSTR("other:name"))) << "again";
  EXPECT_TRUE(disableService(CFSTR("other:name")));
  EXPECT_FALSE(serviceEnabled(CFSTR("other:name")));
  EXPECT_TRUE(CFEqual(test::listFromText(configuration()).get(), test::listFromText(disabled).get()));
}

TEST_F(ServiceEnablingTest, ResettingAndDisablingLeaveIdenticalFiles) {
  installTwo();
  ASSERT_TRUE(enableService(CFSTR("other:name")));
  const std::string enabled = configuration();
  EXPECT_TRUE(disableService(CFSTR("other:name")));
  const std::string afterDisabling = configuration();
  test::writeFile(test::configurationPath(), enabled);
  EXPECT_TRUE(resetServiceEntry(CFSTR("other:name")));
  EXPECT_EQ(configuration(), afterDisabling);
  EXPECT_FALSE(serviceEnabled(CFSTR("other:name")));
}

TEST_F(ServiceEnablingTest, AnUnknownNameIsFalseAndCreatesNothing) {
  EXPECT_FALSE(enableService(CFSTR("a:b")));
  EXPECT_FALSE(disableService(CFSTR("a:b")));
  EXPECT_FALSE(resetServiceEntry(CFSTR("a:b")));
  EXPECT_FALSE(serviceInstalled(CFSTR("a:b")));
  EXPECT_FALSE(serviceEnabled(CFSTR("a:b")));
  EXPECT_EQ(configuration(), "none");
  installTwo();
  const std::string before = configuration();
  EXPECT_FALSE(enableService(CFSTR("a:b")));
  EXPECT_FALSE(enableService(CFSTR("Other:name"))) << "case counts";
  EXPECT_EQ(configuration(), before);
}

TEST_F(ServiceEnablingTest, ANullNameIsFalse) {
  installTwo();
  const std::string before = configuration();
  EXPECT_FALSE(enableService(nullptr));
  EXPECT_FALSE(disableService(nullptr));
  EXPECT_FALSE(resetServiceEntry(nullptr));
  EXPECT_FALSE(serviceInstalled(nullptr));
  EXPECT_FALSE(serviceEnabled(nullptr));
  EXPECT_FALSE(isServiceRunning(nullptr));
  EXPECT_EQ(configuration(), before);
}

TEST_F(ServiceEnablingTest, EveryOtherSectionSurvives) {
  test::writeConfiguration(
      "<key>Version</key><string>1.5</string><key>other</key><dict><key>a</key><true/></dict>"
      "<key>mervaneservices</key><dict><key>b:c</key><dict><key>Path</key><string>/b</string>"
      "</dict></dict>");
  EXPECT_TRUE(enableService(CFSTR("b:c")));
  const auto file = test::asDictionary(test::listFromText(configuration()));
  EXPECT_EQ(CFDictionaryGetCount(file.get()), 3);
  EXPECT_TRUE(test::isDict("<key>a</key><true/>", CFDictionaryGetValue(file.get(), CFSTR("other"))));
  EXPECT_TRUE(test::isList("<string>1.5</string>", CFDictionaryGetValue(file.get(), CFSTR("Version"))));
  EXPECT_TRUE(removeService(CFSTR("b:c")));
  const auto emptied = test::asDictionary(test::listFromText(configuration()));
  EXPECT_EQ(CFDictionaryGetCount(emptied.get()), 3);
  EXPECT_TRUE(test::isDict("", CFDictionaryGetValue(emptied.get(), CFSTR("mervaneservices"))));
}

class ServiceRunningTest : public test::ServiceTest {
 protected:
  static void registerPids(const std::string& array) {
    test::writeConfiguration("");
    test::writeFile(test::configurationFolder() + "/LumispherePID.plist",
                    test::document("<dict><key>a:b</key>" + array + "</dict>"));
  }
  static std::string array(const std::vector<long long>& pids) {
    std::string text = "<array>";
    for (const long long pid : pids) text += "<integer>" + std::to_string(pid) + "</integer>";
    return text + "</array>";
  }
  // A process id that was alive and is not any more.
  static pid_t deadPid() {
    const pid_t child = ::fork();
    if (child == 0) ::_exit(0);
    EXPECT_EQ(::waitpid(child, nullptr, 0), child);
    return child;
  }
};

TEST_F(ServiceRunningTest, OneLiveProcessIsEnough) {
  registerPids(array({::getpid()}));
  EXPECT_TRUE(isServiceRunning(CFSTR("a:b")));
  registerPids(array({deadPid(), ::getpid()}));
  EXPECT_TRUE(isServiceRunning(CFSTR("a:b")));
  EXPECT_FALSE(isServiceRunning(CFSTR("b:c"))) << "processes of another name";
}

TEST_F(ServiceRunningTest, NoLiveProcessIsNotRunning) {
  EXPECT_FALSE(isServiceRunning(CFSTR("a:b"))) << "without a file";
  EXPECT_FALSE(test::exists(test::configurationFolder())) << "asking creates nothing";
  registerPids(array({}));
  EXPECT_FALSE(isServiceRunning(CFSTR("a:b")));
  registerPids(array({deadPid()}));
  EXPECT_FALSE(isServiceRunning(CFSTR("a:b")));
}

TEST_F(ServiceRunningTest, NumbersThatAreNoProcessAreNotAskedFor) {
  // 0 and -1 would address this test's own group and every process there is, all of them alive.
  for (const long long pid : {0LL, -1LL, -static_cast<long long>(::getpgrp()), 2147483647LL, 4294967297LL}) {
    registerPids(array({pid}));
    EXPECT_FALSE(isServiceRunning(CFSTR("a:b"))) << pid;
  }
}

TEST_F(ServiceRunningTest, WrongTypesAreNotRunning) {
  for (const char* value : {"<string>1</string>", "<dict/>", "<array><string>1</string><true/></array>"}) {
    registerPids(value);
    EXPECT_FALSE(isServiceRunning(CFSTR("a:b"))) << value;
  }
}

TEST_F(ServiceRunningTest, AFileThatCannotBeReadIsNotRunning) {
  registerPids(array({::getpid()}));
  test::writeFile(test::configurationFolder() + "/LumispherePID.plist", "damaged");
  EXPECT_FALSE(isServiceRunning(CFSTR("a:b")));
}

}  // namespace
