#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>

#include <cstdlib>

#include "platform/system/tool_lookup.h"
#include "tests/tools/integration/running_program.h"
#include "tests/tools/mount/mount_testing.h"

namespace {

using Arguments = std::vector<std::string>;

const std::string kMount = test::kAdapters + "mount";
const std::string kUmount = test::kAdapters + "umount";
const Arguments kMedia = {"-o", "soft,intr,locallocks", "host:/srv/media", "/mnt/media"};

// Whether a process lives that the stub wrote the id of.
bool isAlive(const std::string& pidFile) { return ::kill(std::atoi(test::readFile(pidFile).c_str()), 0) == 0; }

bool appears(const std::string& path) {
  return test::runLoopUntil([&] { return test::exists(path); });
}

TEST(MountAdapterTest, TheToolLookUpFindsBoth) {
  for (const std::string name : {"mount", "umount"}) {
    if (test::exists("/sbin/" + name)) GTEST_SKIP() << "this host has /sbin/" << name;
    EXPECT_EQ(platform::toolPath("/sbin/" + name), std::filesystem::canonical(test::kAdapters + name).string());
  }
}

TEST(MountAdapterTest, TheHostsMountGetsItsOwnWords) {
  const test::StubHostTool stub;
  const test::CommandResult result = test::runCommand(kMount, kMedia);
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(stub.call(),
            (Arguments{"-t", "nfs", "-o", "vers=3,soft,nolock,retry=0", "--", "host:/srv/media", "/mnt/media"}));
}

TEST(MountAdapterTest, TheEnvironmentChoosesVersionFour) {
  const test::StubHostTool stub;
  const test::ScopedVariable version("TOVAN_NFS_VERSION", "4.1");
  EXPECT_EQ(test::runCommand(kMount, kMedia).status, 0);
  EXPECT_EQ(stub.call().at(3), "vers=4.1,soft,retry=0");
}

TEST(MountAdapterTest, TheLibrarysEnvironmentReachesTheAdapter) {
  const test::ScopedVariable version("TOVAN_NFS_VERSION", "4.1");
  EXPECT_THAT(platform::toolEnvironment("/sbin/mount", kMount), testing::Contains("TOVAN_NFS_VERSION=4.1"));
}

TEST(MountAdapterTest, HostilePathsArriveAsTheyAre) {
  const test::StubHostTool stub;
  const std::string path =
      "/a  b\n$(touch " + stub.folder() + "/ran)`touch " + stub.folder() + "/ran`;'\"\\*\xFF -o exec";
  EXPECT_EQ(test::runCommand(kMount, {"host:" + path, path}).status, 0);
  EXPECT_EQ(stub.call(), (Arguments{"-t", "nfs", "-o", "vers=3,retry=0", "--", "host:" + path, path}));
  EXPECT_EQ(test::runCommand(kUmount, {"-f", path}).status, 0);
  EXPECT_EQ(stub.call(), (Arguments{"-f", "--", path}));
  EXPECT_FALSE(test::exists(stub.folder() + "/ran"));
}

TEST(MountAdapterTest, WhatItDoesNotTakeNeverReachesTheHost) {
  const test::StubHostTool stub;
  const test::CommandResult mount = test::runCommand(kMount, {"-o", "soft,suid", "host:/a", "/b"});
  EXPECT_EQ(mount.status, 125);
  EXPECT_EQ(mount.err, "mount: unknown option \"suid\"\nusage: mount [-o OPTIONS] HOST:/PATH FOLDER\n");
  const test::CommandResult umount = test::runCommand(kUmount, {"-l", "/b"});
  EXPECT_EQ(umount.status, 125);
  EXPECT_EQ(umount.err, "umount: wrong arguments\nusage: umount -f FOLDER\n");
  EXPECT_EQ(test::runCommand(kMount, {}).status, 125);
  EXPECT_FALSE(stub.wasCalled());
}

TEST(MountAdapterTest, StatusAndMessagesAreTheHosts) {
  const test::StubHostTool stub("echo said; echo complained >&2; exit 32");
  for (const auto& [program, arguments] : {std::pair(kMount, kMedia), std::pair(kUmount, Arguments{"-f", "/mnt"})}) {
    const test::CommandResult result = test::runCommand(program, arguments);
    EXPECT_EQ(result.status, 32);
    EXPECT_EQ(result.out, "said\n");
    EXPECT_EQ(result.err, "complained\n");
  }
}

TEST(MountAdapterTest, ADeathBySignalIsAnExitCode) {
  const test::StubHostTool stub("kill -KILL $$");
  test::RunningProgram mount(kMount, kMedia);
  siginfo_t end{};
  ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(mount.pid()), &end, WEXITED | WNOWAIT), 0);
  EXPECT_EQ(end.si_code, CLD_EXITED);
  EXPECT_EQ(end.si_status, 128 + SIGKILL);
}

TEST(MountAdapterTest, AHostToolThatCannotBeRunIsNamed) {
  const std::string folder = test::scratchFolder("tools");
  {
    const test::ScopedVariable tool("TOVAN_HOST_MOUNT", folder + "/missing");
    const test::CommandResult result = test::runCommand(kMount, kMedia);
    EXPECT_EQ(result.status, 127);
    EXPECT_EQ(result.err, "mount: " + folder + "/missing: No such file or directory\n");
  }
  test::writeFile(folder + "/text", "no program");
  const test::ScopedVariable tool("TOVAN_HOST_MOUNT", folder + "/text");
  const test::CommandResult result = test::runCommand(kMount, kMedia);
  EXPECT_EQ(result.status, 126);
  EXPECT_EQ(result.err, "mount: " + folder + "/text: Permission denied\n");
}

TEST(MountAdapterTest, TheVariableNamesAnotherProgramByItsWholePath) {
  {
    const test::ScopedVariable itself("TOVAN_HOST_MOUNT", kMount);
    const test::CommandResult result = test::runCommand(kMount, kMedia);
    EXPECT_EQ(result.status, 125);
    EXPECT_EQ(result.err, "mount: TOVAN_HOST_MOUNT names this program itself\n");
  }
  const test::ScopedVariable relative("TOVAN_HOST_MOUNT", "mount");
  EXPECT_EQ(test::runCommand(kMount, kMedia).err, "mount: TOVAN_HOST_MOUNT is no absolute path\n");
}

// The host's tool leaves the work to a helper, which must not go on when the command was given up.
TEST(MountAdapterTest, BeingEndedEndsTheHelperToo) {
  const test::StubHostTool stub(
      "sleep 1000 & echo $! > \"${0%/*}/helper.new\"; mv \"${0%/*}/helper.new\" \"${0%/*}/helper\"; wait");
  const std::string helper = stub.folder() + "/helper";
  test::RunningProgram mount(kMount, kMedia);
  ASSERT_TRUE(appears(helper)) << mount.output();
  ASSERT_TRUE(isAlive(helper));
  EXPECT_EQ(mount.end(SIGTERM), 128 + SIGTERM);
  EXPECT_FALSE(isAlive(helper));
}

TEST(MountAdapterTest, AHelperThatWillNotEndIsKilled) {
  const test::StubHostTool stub(
      "trap '' TERM; sleep 1000 & trap - TERM; echo $! > \"${0%/*}/helper.new\"; mv \"${0%/*}/helper.new\" "
      "\"${0%/*}/helper\"; wait");
  const std::string helper = stub.folder() + "/helper";
  test::RunningProgram mount(kMount, kMedia);
  ASSERT_TRUE(appears(helper)) << mount.output();
  EXPECT_EQ(mount.end(SIGTERM), 128 + SIGTERM);
  EXPECT_FALSE(isAlive(helper));
}

// Whoever kills the adapter outright still takes the host's tool along.
TEST(MountAdapterTest, TheToolDiesWithTheAdapter) {
  const test::StubHostTool stub(
      "echo $$ > \"${0%/*}/tool.new\"; mv \"${0%/*}/tool.new\" \"${0%/*}/tool\"; exec sleep 1000");
  const std::string tool = stub.folder() + "/tool";
  test::RunningProgram mount(kMount, kMedia);
  ASSERT_TRUE(appears(tool)) << mount.output();
  // The orphan comes to this process, which collects it.
  ASSERT_EQ(::prctl(PR_SET_CHILD_SUBREAPER, 1), 0);
  const pid_t pid = std::atoi(test::readFile(tool).c_str());
  EXPECT_EQ(mount.end(SIGKILL), 128 + SIGKILL);
  int status = 0;
  const bool hasEnded = test::runLoopUntil([&] { return ::waitpid(pid, &status, WNOHANG) == pid; });
  EXPECT_TRUE(hasEnded && WIFSIGNALED(status));
  if (!hasEnded) ::kill(pid, SIGKILL);
  ::prctl(PR_SET_CHILD_SUBREAPER, 0);
}

// A caller that ignores the end of its children hands that down.
TEST(MountAdapterTest, TheStatusComesThroughAnIgnoredSigchld) {
  const test::StubHostTool stub("exit 32");
  const std::string status = stub.folder() + "/status";
  const std::string script = "trap '' CHLD; '" + kMount + "' host:/a /b; echo $? > '" + status + "'";
  test::runCommand("/bin/bash", {"-c", script});
  EXPECT_EQ(test::readFile(status), "32\n");
}

}  // namespace
