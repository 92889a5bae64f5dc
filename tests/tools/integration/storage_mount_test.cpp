// Mounting through the daemon: commands that succeed, fail and hang.
#include <plinth/exception.h>
#include <tovan/constants.h>
#include <tovan/dn_shared_storage_client.h>
#include <tovan/notifications.h>

#include <chrono>
#include <fstream>

#include "tests/tools/integration/storage_host.h"

namespace {

using nlohmann::json;
using test::CommandResult;
using test::NotificationLog;
using test::runLoopUntil;
using test::RunningProgram;
using testing::HasSubstr;

const std::string kTovanctl = TOVAN_BUILD_DIR "/bin/tovanctl";

double secondsSince(std::chrono::steady_clock::time_point began) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count();
}

class StorageMountTest : public test::StorageHost {
 protected:
  bool isCalled(const std::string& words) const {
    return runLoopUntil([&] { return calls().find(words) != std::string::npos; });
  }
  // Seconds from a ping to its answer.
  static double ping() {
    NotificationLog log;
    log.observe(tovan::TovanNotification::kTovanDaemonRunningNotification, tovan::TovanNotification::kTovanDaemonID);
    const auto began = std::chrono::steady_clock::now();
    pingDaemon();
    EXPECT_TRUE(log.await(1));
    return secondsSince(began);
  }
  // As for a file that is a link to itself: then the daemon cannot list its storage.
  static void makeListingFail() {
    std::filesystem::remove(exportsFile());
    std::filesystem::create_symlink(exportsFile(), exportsFile());
    EXPECT_THAT(storage({"list"}).err, HasSubstr("the daemon cannot list its storage"));
  }
  // Whether a signal was sent to a process that did not handle it yet.
  static bool isPending(int signal, pid_t pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);) {
      if (line.rfind("ShdPnd:", 0) == 0 && (std::stoull(line.substr(7), nullptr, 16) >> (signal - 1) & 1U) != 0)
        return true;
    }
    return false;
  }
  RunningProgram startMounting(const std::string& name) const {
    return {kTovanctl, {"storage", "mount", "host:/" + name, folder(name)}};
  }
};

TEST_F(StorageMountTest, TwoClientsHaveOneMountThatGoesWithTheLastOfThem) {
  startDaemon();
  const std::string path = folder("mount point");
  const CommandResult result = storageSucceeds({"mount", "host:/a folder", path, "--client", "one"});
  EXPECT_EQ(result.out, "mounted " + path + " from nfs://host/a%20folder for one\n");
  EXPECT_THAT(result.err, HasSubstr("is not a mount point, although the mount command succeeded"));
  EXPECT_THAT(calls(), HasSubstr(" host:/a folder " + path));
  const std::string once = calls();
  storageSucceeds({"mount", "host:/a folder", path, "--client", "two"});
  EXPECT_EQ(calls(), once);
  EXPECT_EQ(onlyMount()["references"], 2);
  storageSucceeds({"unmount", path, "--client", "one"});
  EXPECT_EQ(calls(), once);
  storageSucceeds({"unmount", "host:/a folder", path, "--client", "two"});
  EXPECT_EQ(calls(), once + "-f -- " + path + " \n");
  EXPECT_TRUE(list()["mounts"].empty());
}

TEST_F(StorageMountTest, WhatNobodyMountedThroughTheDaemonIsNotUnmounted) {
  startDaemon();
  const CommandResult result = storage({"unmount", folder("others")});
  EXPECT_EQ(result.status, 3);
  EXPECT_THAT(result.err, HasSubstr("is no mount of the daemon's"));
  EXPECT_EQ(calls(), "");
}

TEST_F(StorageMountTest, AMountThatFailsLeavesNothing) {
  startDaemon();
  set("fail");
  const CommandResult result = storage({"mount", "host:/a", folder("a")});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("command [/sbin/mount host:/a] failed, error = 32"));
  EXPECT_TRUE(list()["mounts"].empty());
  EXPECT_THAT(test::readFile(configFolder() + "/LumisphereMounts.plist"), testing::Not(HasSubstr(folder("a"))));
}

TEST_F(StorageMountTest, WhileAMountHangsThePingIsAnsweredAndTheStorageSaysWhatItDoes) {
  startDaemon();
  set("hang");
  RunningProgram mounting = startMounting("a");
  ASSERT_TRUE(isCalled("host:/a"));
  EXPECT_LT(ping(), 10);
  const CommandResult listing = storage({"list", "--timeout", "4"});
  EXPECT_EQ(listing.status, 5) << listing.out;
  EXPECT_THAT(listing.err, HasSubstr("no answer within 4 s while listing the storage"));
  EXPECT_THAT(listing.err, HasSubstr("the daemon has been mounting nfs://host/a on " + folder("a") + " for "));
  EXPECT_FALSE(mounting.hasEnded());
  unset("hang");
  EXPECT_EQ(mounting.waitForEnd(), 0) << mounting.output();
  EXPECT_EQ(onlyMount()["path"], folder("a"));
}

TEST_F(StorageMountTest, CtrlCLeavesTheWaitAndTheDaemonGoesOn) {
  startDaemon();
  set("hang");
  RunningProgram mounting = startMounting("a");
  ASSERT_TRUE(isCalled("host:/a"));
  EXPECT_EQ(mounting.end(SIGINT), 1);
  EXPECT_THAT(mounting.output(), HasSubstr("interrupted while mounting nfs://host/a on " + folder("a")));
  unset("hang");
  EXPECT_EQ(onlyMount()["path"], folder("a"));
}

TEST_F(StorageMountTest, ADaemonThatIsKilledEndsTheWait) {
  startDaemon();
  set("hang");
  RunningProgram mounting = startMounting("a");
  ASSERT_TRUE(isCalled("host:/a"));
  killDaemon();
  EXPECT_EQ(mounting.waitForEnd(), 6) << mounting.output();
  EXPECT_THAT(mounting.output(), HasSubstr("the daemon ended while mounting"));
}

TEST_F(StorageMountTest, AMountThatHangsDoesNotDelayTheEnd) {
  startDaemon();
  set("hang");
  RunningProgram mounting = startMounting("a");
  ASSERT_TRUE(isCalled("host:/a"));
  EXPECT_EQ(daemonProcess().end(), 0) << daemonProcess().output();
  EXPECT_THAT(daemonProcess().output(), testing::Not(HasSubstr("given up")));
  EXPECT_NE(mounting.waitForEnd(), 0) << mounting.output();
  EXPECT_TRUE(runLoopUntil([this] { return !isToolRunning(); }));
}

TEST_F(StorageMountTest, TheEndUnmountsAndAnUnmountThatHangsIsGivenUp) {
  startDaemon({"--storage-limit", "2"});
  for (const char* const name : {"a", "b"}) storageSucceeds({"mount", std::string("host:/") + name, folder(name)});
  storageSucceeds({"publish", folder("c")});
  set("hang");
  daemonProcess().signal(SIGTERM);
  ASSERT_TRUE(isCalled("-f -- "));
  EXPECT_EQ(daemonProcess().waitForEnd(), 0) << daemonProcess().output();
  EXPECT_THAT(daemonProcess().output(), HasSubstr("the storage does not end: given up"));
  EXPECT_EQ(published(), "") << "the exports go first";
  EXPECT_TRUE(runLoopUntil([this] { return !isToolRunning(); }));
}

TEST_F(StorageMountTest, TheOrderlyEndUnmountsEverything) {
  startDaemon();
  for (const char* const name : {"a", "b"}) storageSucceeds({"mount", std::string("host:/") + name, folder(name)});
  EXPECT_EQ(daemonProcess().end(), 0) << daemonProcess().output();
  for (const char* const name : {"a", "b"}) EXPECT_THAT(calls(), HasSubstr("-f -- " + folder(name) + " \n"));
  EXPECT_THAT(test::readFile(configFolder() + "/LumisphereMounts.plist"), testing::Not(HasSubstr(work())));
}

TEST_F(StorageMountTest, ARestartKeepsTheMounts) {
  startDaemon();
  storageSucceeds({"mount", "host:/a", folder("a")});
  NotificationLog log;
  log.observe(tovan::TovanNotification::kTovanDaemonStartedNotification, nullptr);
  restartDaemon(false);
  ASSERT_TRUE(log.await(1)) << daemonProcess().output();
  EXPECT_THAT(calls(), testing::Not(HasSubstr("-f -- ")));
  EXPECT_THAT(test::readFile(configFolder() + "/LumisphereMounts.plist"), HasSubstr(folder("a")));
}

TEST_F(StorageMountTest, ASecondSignalDoesNotWaitForAnUnmount) {
  startDaemon({"--storage-limit", "3600"});
  storageSucceeds({"mount", "host:/a", folder("a")});
  set("hang");
  daemonProcess().signal(SIGTERM);
  ASSERT_TRUE(isCalled("-f -- "));
  EXPECT_EQ(daemonProcess().end(), 0) << daemonProcess().output();
  EXPECT_THAT(daemonProcess().output(), HasSubstr("asked to end again"));
}

TEST_F(StorageMountTest, AHolderKeepsTheMountUntilItsSignalAndUnmountsThen) {
  startDaemon();
  RunningProgram holder(kTovanctl, {"storage", "mount", "host:/a", folder("a"), "--hold", "--json"});
  ASSERT_TRUE(holder.prints("\"operation\":\"mount\"")) << holder.output();
  EXPECT_EQ(onlyMount()["holders"], json::array({StorageHost::holder("tovanctl", holder.pid(), "alive", 1)}));
  EXPECT_EQ(holder.end(SIGINT), 0) << holder.output();
  EXPECT_THAT(holder.output(), HasSubstr("\"operation\":\"unmount\""));
  EXPECT_THAT(calls(), HasSubstr("-f -- " + folder("a") + " \n"));
}

TEST_F(StorageMountTest, AHolderWhoseSignalComesWhileItMountsGivesBackAllTheSame) {
  startDaemon();
  set("hang");
  RunningProgram holder(kTovanctl, {"storage", "mount", "host:/a", folder("a"), "--hold"});
  ASSERT_TRUE(isCalled("host:/a"));
  holder.signal(SIGTERM);
  ASSERT_TRUE(runLoopUntil([&holder] { return !isPending(SIGTERM, holder.pid()); })) << "the signal did not arrive";
  unset("hang");
  EXPECT_EQ(holder.waitForEnd(), 0) << holder.output();
  EXPECT_TRUE(list()["mounts"].empty());
  EXPECT_THAT(calls(), HasSubstr("-f -- " + folder("a") + " \n"));
}

TEST_F(StorageMountTest, OnATerminalAWaitShowsHowLongItHasBeenAndWhatTheDaemonDoes) {
  if (!test::exists("/usr/bin/script")) GTEST_SKIP() << "no terminal to be had";
  startDaemon();
  set("hang");
  RunningProgram mounting("/usr/bin/script",
                          {"-qec", kTovanctl + " storage mount host:/a '" + folder("a") + "'", "/dev/null"});
  EXPECT_TRUE(mounting.prints("mounting nfs://host/a on " + folder("a") + ", 1 s")) << mounting.output();
  EXPECT_TRUE(mounting.prints("; the daemon has been mounting nfs://host/a on " + folder("a") + " for "));
  unset("hang");
  EXPECT_EQ(mounting.waitForEnd(), 0) << mounting.output();
  EXPECT_THAT(mounting.output(), HasSubstr("mounted " + folder("a") + " from nfs://host/a"));
}

TEST_F(StorageMountTest, AMountIsDoneAlsoWhenTheListingAfterItFails) {
  startDaemon();
  makeListingFail();
  const CommandResult result = storageSucceeds({"mount", "host:/a", folder("a")});
  EXPECT_EQ(result.out, "mounted " + folder("a") + " from nfs://host/a for tovanctl\n");
  EXPECT_THAT(result.err, HasSubstr("the mount command succeeded; whether " + folder("a") +
                                    " is a mount point cannot be seen: the daemon cannot list its storage"));
}

TEST_F(StorageMountTest, AHolderHoldsOnWhenTheListingFails) {
  startDaemon();
  makeListingFail();
  RunningProgram holder(kTovanctl, {"storage", "mount", "host:/a", folder("a"), "--hold"});
  ASSERT_TRUE(holder.prints("mounted " + folder("a") + " from nfs://host/a")) << holder.output();
  EXPECT_EQ(holder.end(SIGINT), 0) << holder.output();
  EXPECT_THAT(calls(), HasSubstr("-f -- " + folder("a") + " \n"));
}

TEST_F(StorageMountTest, AMountPointWithAControlCharacterIsRefusedBeforeAnythingIsDone) {
  startDaemon();
  const auto client = plinth::makeShared<tovan::CDNSharedStorageClient>();
  const plinth::CSharedCFRef<CFURLRef> source(
      CFURLCreateWithString(kCFAllocatorDefault, CFSTR("nfs://host/a"), nullptr));
  const auto url = plinth::makeShared<plinth::CURL>(source.get());
  for (const std::string name : {"a\tb", "a\nb", "a\x7F"}) {
    try {
      client->subscribe(url, plinth::CSTR(folder(name)), plinth::CSTR("one"), 0);
      FAIL() << "mounted";
    } catch (const plinth::CException& refused) {
      std::string shown = folder(name);
      shown[work().size() + 2] = '?';
      EXPECT_THAT(refused.what(), HasSubstr("the mount point [" + shown + "] holds a control character, number " +
                                            std::to_string(static_cast<int>(name[1])) + ", at byte " +
                                            std::to_string(work().size() + 3)));
    }
    EXPECT_FALSE(test::exists(folder(name)));
  }
  EXPECT_EQ(calls(), "");
}

}  // namespace
