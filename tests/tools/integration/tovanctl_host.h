// tovanctl_host.h: a host of one test's own on which tovanctl runs things: a scratch home, a private bus, a job host,
// and services whose names no other test has.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/command.h"
#include "tests/support/private_bus.h"
#include "tests/tools/integration/running_program.h"

namespace test {

// Whether it runs; one that has ended and waits to be collected does not.
inline bool isRunning(pid_t pid) {
  std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
  std::string line;
  std::getline(stat, line);
  const std::size_t state = line.rfind(") ");
  return pid > 0 && state != std::string::npos && line[state + 2] != 'Z' && line[state + 2] != 'X';
}

class TovanctlHost : public testing::Test {
 protected:
  using Arguments = std::vector<std::string>;

  // Trigger files lie in /tmp, so a label of a real service would be everybody's.
  const std::string identifier = "com.example.tovanctl" + std::to_string(::getpid());
  const std::string agent = "servicecontroller:" + identifier + ".agent";
  const std::string own = "jobcontroller:" + identifier + ".own";  // the daemon's own
  const std::string resources = TOVAN_BUILD_DIR "/lib/tovan/Frameworks/Lumisphere.framework/Resources/";

  void SetUp() override {
    std::filesystem::remove_all(scratchHome() + "/Library");
    char pattern[] = "/tmp/tovan-test-jobs-XXXXXX";
    ASSERT_NE(::mkdtemp(pattern), nullptr);
    folder_ = pattern;
    ::setenv("TOVAN_LAUNCHD", "embedded", 1);
    ::setenv("TOVAN_LAUNCHD_FOLDER", (folder_ + "/launchd").c_str(), 1);
    useOwnBus();
  }
  // After a test has named other places for it.
  void useOwnBus() const {
    ::setenv("DBUS_SESSION_BUS_ADDRESS", bus_.address().c_str(), 1);
    ::setenv("TOVAN_BUS_FOLDER", (folder_ + "/bus").c_str(), 1);
  }

  void TearDown() override {
    const CommandResult down = tovanctl({"down"});
    EXPECT_EQ(down.status, 0) << down.out << down.err;
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
    for (const char* const name : {"TOVAN_LAUNCHD", "TOVAN_LAUNCHD_FOLDER", "TOVAN_BUS_FOLDER"}) ::unsetenv(name);
  }

  static CommandResult tovanctl(const Arguments& arguments) { return runCommand("tovanctl", arguments); }

  static CommandResult succeeding(const Arguments& arguments) {
    const CommandResult result = tovanctl(arguments);
    EXPECT_EQ(result.status, 0) << result.out << result.err;
    return result;
  }

  static nlohmann::json document(const std::string& output) {
    nlohmann::json parsed = nlohmann::json::parse(output, nullptr, false);
    EXPECT_FALSE(parsed.is_discarded()) << output;
    EXPECT_EQ(parsed.value("schema", 0), 1) << output;
    return parsed;
  }
  static nlohmann::json status() { return document(succeeding({"status", "--json"}).out); }

  // A service that launchd starts, and one of the daemon's; both disabled.
  void installAgent(int instances = 1) const { install("LumisphereTranscoder.bundle", agent, instances); }
  void installOwn(int instances = 1) const { install("LumisphereJobController.bundle", own, instances); }

  nlohmann::json service(const std::string& name) const {
    const nlohmann::json host = status();
    for (const nlohmann::json& one : host["services"]) {
      if (one["name"] == name) return one;
    }
    ADD_FAILURE() << name << " is not in the status";
    return {};
  }
  // The processes of a service's instances, in their order; 0 for one that does not run.
  std::vector<pid_t> pids(const std::string& name) const {
    const nlohmann::json wanted = service(name);
    std::vector<pid_t> found;
    for (const nlohmann::json& instance : wanted["instances"]) {
      found.push_back(instance["pid"].is_null() ? 0 : instance["pid"].get<pid_t>());
    }
    return found;
  }
  static pid_t daemon() {
    const nlohmann::json pid = status()["daemon"]["pid"];
    return pid.is_null() ? 0 : pid.get<pid_t>();
  }

  const std::string& folder() const { return folder_; }

 private:
  void install(const std::string& bundle, const std::string& name, int instances) const {
    succeeding({"service", "install", resources + bundle, "--name", name});
    succeeding({"service", "set", name, "Instances", std::to_string(instances)});
    succeeding({"service", "install", resources + bundle, "--name", name});  // writes the job descriptions
  }

  PrivateBus bus_;
  std::string folder_;
};

}  // namespace test
