// service_test.h: what the tests of the service functions share: an empty home, and a look at what is installed.
#pragma once

#include "tests/control/service_bundle.h"
#include "tests/launch/configuration.h"

#include <tovan/service_cache_file.h>
#include <tovan/service_installation.h>

#include <plinth/string.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>

namespace test {

class ServiceTest : public ::testing::Test {
 protected:
  ServiceTest() { std::filesystem::remove_all(scratchHome() + "/Library"); }

  static constexpr const char* kKind = "servicecontroller:com.brant.test";

  static plinth::CStringRef name(const std::string& text) { return plinth::CSTR(text); }

  ServiceBundle bundle(const std::string& fileName = "Test.bundle") const {
    ServiceBundle made;
    made.path = scratchFolder("bundles") + "/" + fileName;
    return made;
  }
  static std::string launchAgent(const std::string& more = "") {
    return "<key>LaunchHint</key><string>launchd.LaunchAgent.User</string>" + more;
  }
  static std::string version(int number) {
    return "<key>Version</key><integer>" + std::to_string(number) + "</integer>";
  }
  static std::string instances(int number) {
    return "<key>Instances</key><integer>" + std::to_string(number) + "</integer>";
  }

  static bool install(const ServiceBundle& made) { return installService(made.url().get()); }
  static bool installAs(const std::string& key, const ServiceBundle& made) {
    return installServiceWithName(name(key)->getStringRef(), made.url().get());
  }

  // The entry of that name; a default one, and a failure, when there is none.
  static tovan::CServiceCacheEntry entry(const std::string& key) {
    tovan::CServiceCacheEntry found;
    EXPECT_TRUE(tovan::CServiceCacheFile().get(name(key)->getStringRef(), found)) << "no entry of the name " << key;
    return found;
  }
  static std::string configuration() { return exists(configurationPath()) ? readFile(configurationPath()) : "none"; }

  static std::string agentsFolder() { return scratchHome() + "/Library/LaunchAgents"; }
  static std::string agentPath(const std::string& label) { return agentsFolder() + "/" + label + ".plist"; }
  // The names of everything in the folder of the launch agents.
  static std::set<std::string> agents() {
    std::set<std::string> names;
    if (!exists(agentsFolder())) return names;
    for (const auto& file : std::filesystem::directory_iterator(agentsFolder())) names.insert(file.path().filename());
    return names;
  }
};

inline std::string textOf(CFStringRef text) { return text != nullptr ? plinth::CSTR(text)->str() : "null"; }

}  // namespace test
