// What stays mounted of earlier runs of the daemon, and what is none of the daemon's business.
#include <memory>

#include "tests/tools/integration/storage_host.h"

namespace {

using nlohmann::json;
using test::CommandResult;
using test::runLoopUntil;
using test::RunningProgram;
using testing::HasSubstr;
using testing::Not;

// In a mount namespace of its own, where the stand-in really mounts something.
class StorageLeftOverTest : public test::StorageHost {
 protected:
  std::string mountBody() const override {
    return "for last; do :; done\ncase $* in\n"
           "-f*) exec /bin/umount \"$last\";;\n*) /bin/mount -t tmpfs none \"$last\";;\nesac\n[ ! -e '" +
           work() + "/fail late' ] || exit 32\n";
  }
  void SetUp() override {
    if (test::runCommand("/usr/bin/unshare", {"--mount", "true"}).status != 0) GTEST_SKIP() << "no mount namespaces";
    StorageHost::SetUp();
    namespace_ = std::make_unique<RunningProgram>(
        "/usr/bin/unshare", Arguments{"--mount", "--propagation", "private", "/bin/sleep", "600"});
    const std::string mine = "/proc/self/ns/mnt";
    const std::string theirs = "/proc/" + std::to_string(namespace_->pid()) + "/ns/mnt";
    ASSERT_TRUE(runLoopUntil([&] {
      std::error_code none;
      return std::filesystem::read_symlink(mine, none) != std::filesystem::read_symlink(theirs, none);
    }));
    startInside();
  }
  void TearDown() override {
    if (IsSkipped()) return;
    StorageHost::TearDown();
    namespace_.reset();
  }
  void startInside() {
    launchDaemon("/usr/bin/nsenter",
                 {"--mount=/proc/" + std::to_string(namespace_->pid()) + "/ns/mnt", kDaemon, "--client-check", "0.1"});
  }
  // Of a person.
  void inside(Arguments command) const {
    command.insert(command.begin(), "--mount=/proc/" + std::to_string(namespace_->pid()) + "/ns/mnt");
    const CommandResult result = test::runCommand("/usr/bin/nsenter", command);
    EXPECT_EQ(result.status, 0) << result.err;
  }
  static std::string recordFile() { return configFolder() + "/LumisphereMounts.plist"; }

 private:
  std::unique_ptr<RunningProgram> namespace_;
};

TEST_F(StorageLeftOverTest, AMountThatAKilledDaemonLeavesIsShownAndTakenDownByOneUnmount) {
  storageSucceeds({"mount", "host:/a", folder("a")});
  EXPECT_EQ(onlyMount()["mounted"], true);
  killDaemon();
  startInside();
  const json mount = onlyMount();
  EXPECT_EQ(mount["leftOver"], true);
  EXPECT_EQ(mount["mounted"], true);
  EXPECT_EQ(mount["url"], "nfs://host/a");
  const CommandResult other = storage({"mount", "other:/b", folder("a")});
  EXPECT_EQ(other.status, 1);
  EXPECT_THAT(other.err, HasSubstr("[" + folder("a") + "] has [nfs://host/a] mounted from an earlier run"));
  storageSucceeds({"unmount", folder("a")});
  EXPECT_TRUE(list()["mounts"].empty());
}

TEST_F(StorageLeftOverTest, AMountThatIsLeftOverIsTakenOverByWhoMountsTheSameThere) {
  storageSucceeds({"mount", "host:/a", folder("a")});
  killDaemon();
  startInside();
  const std::string before = calls();
  storageSucceeds({"mount", "host:/a", folder("a")});
  EXPECT_EQ(calls(), before);
  const json mount = onlyMount();
  EXPECT_EQ(mount["leftOver"], false);
  EXPECT_EQ(mount["references"], 1);
  storageSucceeds({"unmount", folder("a")});
  EXPECT_EQ(calls(), before + "-f -- " + folder("a") + " \n");
}

TEST_F(StorageLeftOverTest, TheEndUnmountsWhatAnEarlierRunLeft) {
  storageSucceeds({"mount", "host:/a", folder("a")});
  killDaemon();
  startInside();
  EXPECT_EQ(daemonProcess().end(), 0) << daemonProcess().output();
  EXPECT_THAT(calls(), HasSubstr("-f -- " + folder("a") + " \n"));
}

TEST_F(StorageLeftOverTest, AnUnmountThatFailsLeavesTheMountToBeTriedAgain) {
  storageSucceeds({"mount", "host:/a", folder("a")});
  set("fail");
  const CommandResult result = storage({"unmount", folder("a")});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("command [/sbin/umount " + folder("a") + "] failed, error = 32"));
  EXPECT_EQ(onlyMount()["leftOver"], true);
  unset("fail");
  storageSucceeds({"unmount", folder("a")});
  EXPECT_TRUE(list()["mounts"].empty());
}

TEST_F(StorageLeftOverTest, WhatOthersMountedInItsPlaceIsNeitherShownNorTakenDown) {
  for (const char* const name : {"a", "b"}) storageSucceeds({"mount", std::string("host:/") + name, folder(name)});
  killDaemon();
  inside({"/bin/umount", folder("a")});
  inside({"/bin/mount", "-t", "tmpfs", "somebody", folder("a")});
  inside({"/bin/umount", folder("b")});
  inside({"/bin/mount", "-t", "ramfs", "none", folder("b")});
  startInside();
  EXPECT_TRUE(list()["mounts"].empty());
  EXPECT_THAT(test::readFile(recordFile()), Not(HasSubstr(work())));
  EXPECT_EQ(daemonProcess().end(), 0) << daemonProcess().output();
  EXPECT_THAT(calls(), Not(HasSubstr("-f -- ")));
}

TEST_F(StorageLeftOverTest, WhatOthersMountedInItsPlaceWhileTheDaemonRunsIsNotTakenOver) {
  storageSucceeds({"mount", "host:/a", folder("a")});
  killDaemon();
  startInside();
  inside({"/bin/umount", folder("a")});
  inside({"/bin/mount", "-t", "tmpfs", "somebody", folder("a")});
  EXPECT_TRUE(list()["mounts"].empty());
  const std::string before = calls();
  storageSucceeds({"mount", "host:/a", folder("a")});
  EXPECT_THAT(calls().substr(before.size()), HasSubstr(" host:/a " + folder("a")));
  EXPECT_EQ(onlyMount()["references"], 1);
}

TEST_F(StorageLeftOverTest, WhatIsGoneIsForgotten) {
  storageSucceeds({"mount", "host:/a", folder("a")});
  killDaemon();
  inside({"/bin/umount", folder("a")});
  startInside();
  EXPECT_TRUE(list()["mounts"].empty());
  EXPECT_THAT(test::readFile(recordFile()), Not(HasSubstr(work())));
}

TEST_F(StorageLeftOverTest, AMountThatWasNotSeenWhenItWasMadeMustBeOneOverNFS) {
  EXPECT_EQ(daemonProcess().end(), 0) << daemonProcess().output();
  std::filesystem::create_directories(folder("a"));
  inside({"/bin/mount", "-t", "tmpfs", "host:/a", folder("a")});
  const auto entry = [this](const std::string& name) {
    return "<key>" + folder(name) + "</key><string>nfs://host/" + name + "</string>";
  };
  test::writeFile(recordFile(), R"(<?xml version="1.0" encoding="UTF-8"?><plist version="1.0"><dict><key>mounts</key>)"
                                "<dict>" +
                                    entry("a") + entry("b") + "</dict></dict></plist>");
  startInside();
  EXPECT_TRUE(list()["mounts"].empty());
  EXPECT_THAT(test::readFile(recordFile()), Not(HasSubstr(folder("a"))));
  EXPECT_THAT(test::readFile(recordFile()), HasSubstr(folder("b"))) << "its command may still be under way";
}

TEST_F(StorageLeftOverTest, AMountThatIsThereAlthoughItsCommandFailedIsLeftOverAndCanBeTakenOver) {
  set("fail late");
  EXPECT_EQ(storage({"mount", "host:/a", folder("a")}).status, 1);
  EXPECT_EQ(onlyMount()["leftOver"], true);
  EXPECT_THAT(daemonProcess().output(),
              HasSubstr("nfs://host/a is mounted on " + folder("a") + ", although mounting it failed"));
  unset("fail late");
  const std::string before = calls();
  storageSucceeds({"mount", "host:/a", folder("a")});
  EXPECT_EQ(calls(), before);
  EXPECT_EQ(onlyMount()["leftOver"], false);
}

TEST_F(StorageLeftOverTest, AMountThatFailsWhereOthersMountedIsNotTheDaemons) {
  std::filesystem::create_directories(folder("a"));
  inside({"/bin/mount", "-t", "tmpfs", "none", folder("a")});
  set("fail");
  EXPECT_EQ(storage({"mount", "host:/a", folder("a")}).status, 1);
  EXPECT_TRUE(list()["mounts"].empty());
  EXPECT_THAT(test::readFile(recordFile()), Not(HasSubstr(folder("a"))));
}

TEST_F(StorageLeftOverTest, TheEndTakesInnerMountsDownFirst) {
  for (const char* const name : {"a", "a/b"}) storageSucceeds({"mount", std::string("host:/") + name, folder(name)});
  killDaemon();
  startInside();
  EXPECT_EQ(daemonProcess().end(), 0) << daemonProcess().output();
  EXPECT_THAT(calls(), HasSubstr("-f -- " + folder("a/b") + " \n-f -- " + folder("a") + " \n"));
}

TEST_F(StorageLeftOverTest, AMountPointBeyondASymbolicLinkIsKnownByWhereTheLinkLed) {
  std::filesystem::create_directories(folder("real"));
  std::filesystem::create_directory_symlink(folder("real"), folder("link"));
  storageSucceeds({"mount", "host:/a", folder("link/a")});
  EXPECT_EQ(onlyMount()["mounted"], true);
  killDaemon();
  startInside();
  EXPECT_EQ(onlyMount()["path"], folder("link/a"));
  EXPECT_EQ(onlyMount()["leftOver"], true);
}

}  // namespace
