// control_test.h: an empty home with a bus, a launchctl and services of its own.
#pragma once

#include "tests/control/notification_recorder.h"
#include "tests/control/service_test.h"
#include "tests/control/stub_launchctl.h"
#include "tests/launch/thrown.h"
#include "tests/support/private_bus.h"

#include <plinth/exception.h>
#include <plinth/shared_cf_ref.h>

#include <CoreFoundation/CFArray.h>
#include <CoreFoundation/CFNumber.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace test {

// Job names and trigger files are seen by the whole host, so these carry the number of this process.
class ControlTest : public ServiceTest {
 protected:
  ~ControlTest() override {
    for (const auto& file : std::filesystem::directory_iterator("/tmp")) {
      if (file.path().filename().string().starts_with(kLabel + ".") ||
          file.path().filename().string().starts_with(kLabel + "-")) {
        std::filesystem::remove_all(file.path());
      }
    }
  }

  const std::string kLabel = "com.brant.test" + std::to_string(::getpid());
  const std::string kAgent = "servicecontroller:" + kLabel;

  // The label, the job description and the trigger file of an instance of the service kAgent.
  std::string label(int instance) const { return instance == 0 ? kLabel : kLabel + "-" + std::to_string(instance + 1); }
  std::string job(int instance) const { return agentPath(label(instance)); }
  std::string trigger(int instance) const {
    return "/tmp/" + label(instance) + ".launchagent." + std::to_string(::geteuid());
  }

  // Installs a service under a name, with these entries besides, and switches it on or off.
  void installService(const std::string& key, const std::string& description, bool enabled = true) const {
    ServiceBundle made = bundle();
    made.description = description;
    made.write();
    ASSERT_TRUE(installAs(key, made));
    if (enabled) {
      ASSERT_TRUE(enableService(name(key)->getStringRef()));
    }
  }
  void installAgent(int count, bool enabled = true) const {
    installService(kAgent, launchAgent(instances(count)), enabled);
  }

  static plinth::CSharedCFRef<CFArrayRef> array(const std::vector<std::string>& texts) {
    const plinth::CSharedCFRef<CFMutableArrayRef> made =
        CFArrayCreateMutable(kCFAllocatorDefault, 0, &kCFTypeArrayCallBacks);
    for (const std::string& text : texts) CFArrayAppendValue(made.get(), name(text)->getStringRef());
    return made;
  }
  // Only things that are no strings.
  static plinth::CSharedCFRef<CFArrayRef> arrayOfOthers() {
    const void* values[] = {kCFBooleanTrue, kCFBooleanFalse};
    return CFArrayCreate(kCFAllocatorDefault, values, 2, &kCFTypeArrayCallBacks);
  }

  // What an action writes to standard error.
  static std::string consoleOf(const std::function<void()>& action) {
    ::testing::internal::CaptureStderr();
    action();
    return ::testing::internal::GetCapturedStderr();
  }

  static std::string pidPath() { return configurationFolder() + "/LumispherePID.plist"; }
  static void writePIDFile(const std::string& entries) {
    makeFolders(configurationFolder());
    writeFile(pidPath(), document("<dict>" + entries + "</dict>"));
  }

  PrivateBus bus_;
};

// The one notification that was seen; a default one, and a failure, when there were more or fewer.
inline SeenNotification onlyOne(const std::vector<SeenNotification>& seen) {
  EXPECT_EQ(seen.size(), 1U) << "notifications";
  return seen.size() == 1 ? seen.front() : SeenNotification{};
}

}  // namespace test
