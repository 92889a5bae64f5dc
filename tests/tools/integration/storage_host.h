// storage_host.h: a host of one test's own whose daemon publishes and mounts, with a stand-in for the host's mount.
#pragma once

#include <tovan/daemon_control.h>

#include <memory>

#include "tests/tools/integration/tovanctl_host.h"

namespace test {

// The stand-in notes its arguments, a call a line; it fails while the file "fail" is there, and hangs while "hang" is.
class StorageHost : public TovanctlHost {
 protected:
  const std::string kDaemon = TOVAN_BUILD_DIR "/lib/tovan/Frameworks/Mervane.framework/Resources/mervaned";

  void SetUp() override {
    TovanctlHost::SetUp();
    work_ = scratchFolder("storage");
    writeFile(work_ + "/host-tool", "#!/bin/sh\nprintf '%s ' \"$@\" >> '" + work_ + "/calls'\necho >> '" + work_ +
                                        "/calls'\nwhile [ -e '" + work_ + "/hang' ]; do sleep 0.05; done\n[ ! -e '" +
                                        work_ + "/fail' ] || exit 32\n" + mountBody());
    ::chmod((work_ + "/host-tool").c_str(), 0755);
    ::setenv("TOVAN_HOST_MOUNT", (work_ + "/host-tool").c_str(), 1);
    ::setenv("TOVAN_HOST_UMOUNT", (work_ + "/host-tool").c_str(), 1);
  }
  void TearDown() override {
    unset("hang");
    daemon_.reset();
    TovanctlHost::TearDown();
    ::unsetenv("TOVAN_HOST_MOUNT");
    ::unsetenv("TOVAN_HOST_UMOUNT");
  }
  virtual std::string mountBody() const { return ""; }

  // A daemon that looks after its holders often.
  void startDaemon(const Arguments& more = {}) {
    Arguments arguments = {"--client-check", "0.1"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    launchDaemon(kDaemon, arguments);
  }
  void launchDaemon(const std::string& program, const Arguments& arguments) {
    daemon_ = std::make_unique<RunningProgram>(program, arguments);
    ASSERT_TRUE(runLoopUntil([this] { return isDaemonRunning() || daemon_->hasEnded(); }));
    ASSERT_TRUE(isDaemonRunning()) << daemon_->output();
  }
  void killDaemon() { EXPECT_EQ(daemon_->end(SIGKILL), 128 + SIGKILL); }
  RunningProgram& daemonProcess() const { return *daemon_; }

  static CommandResult storage(Arguments arguments) {
    arguments.insert(arguments.begin(), "storage");
    return tovanctl(arguments);
  }
  static CommandResult storageSucceeds(const Arguments& arguments) {
    CommandResult result = storage(arguments);
    EXPECT_EQ(result.status, 0) << result.out << result.err;
    return result;
  }
  static nlohmann::json list() { return document(storageSucceeds({"list", "--json"}).out); }
  static nlohmann::json onlyExport() {
    const nlohmann::json listing = list();
    EXPECT_EQ(listing["exports"].size(), 1U) << listing.dump(2);
    return listing["exports"].empty() ? nlohmann::json() : listing["exports"][0];
  }
  static nlohmann::json onlyMount() {
    const nlohmann::json listing = list();
    EXPECT_EQ(listing["mounts"].size(), 1U) << listing.dump(2);
    return listing["mounts"].empty() ? nlohmann::json() : listing["mounts"][0];
  }
  static nlohmann::json holder(const std::string& client, const nlohmann::json& pid, const std::string& process,
                               int count) {
    return {{"client", client}, {"pid", pid}, {"process", process}, {"count", count}};
  }

  static std::string configFolder() { return scratchHome() + "/Library/Application Support/Lumisphere"; }
  static std::string exportsFile() { return configFolder() + "/exports"; }
  static std::string published() { return readFile(exportsFile()); }
  static std::string daemonLog() { return readFile(scratchHome() + "/Library/Logs/Lumisphere/mervaned.log"); }

  const std::string& work() const { return work_; }
  std::string folder(const std::string& name) const { return work_ + "/" + name; }
  void set(const std::string& name) const { writeFile(work_ + "/" + name, ""); }
  void unset(const std::string& name) const { std::filesystem::remove(work_ + "/" + name); }
  std::string calls() const { return exists(work_ + "/calls") ? readFile(work_ + "/calls") : ""; }
  // Whether a stand-in runs.
  bool isToolRunning() const {
    std::error_code gone;
    for (const auto& process : std::filesystem::directory_iterator("/proc", gone)) {
      std::ifstream file(process.path() / "cmdline");
      std::string line;
      if (std::getline(file, line) && line.find(work_ + "/host-tool") != std::string::npos) return true;
    }
    return false;
  }

 private:
  std::string work_;
  std::unique_ptr<RunningProgram> daemon_;
};

}  // namespace test
