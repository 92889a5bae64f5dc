#include "platform/system/file_system.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "tests/support/scratch_home.h"

namespace {

using platform::fileSystemFacts;
using platform::internal::formatName;

TEST(FileSystemTest, NamesTypeAndPlaceOfTheMount) {
  const auto facts = fileSystemFacts("/proc/self/status");
  ASSERT_TRUE(facts);
  EXPECT_EQ(facts->type, "proc");
  EXPECT_EQ(facts->mountPoint, "/proc");
  EXPECT_TRUE(facts->isLocal);
}

TEST(FileSystemTest, TakesRelativePathsFromTheWorkingFolder) {
  ASSERT_EQ(::chdir("/proc/self"), 0);
  const auto facts = fileSystemFacts("./../self//status");
  ASSERT_TRUE(facts);
  EXPECT_EQ(facts->type, "proc");
}

TEST(FileSystemTest, KnowsTheRoot) {
  for (const char* const root : {"/", "//", "/..", "/proc/.."}) {
    const auto facts = fileSystemFacts(root);
    ASSERT_TRUE(facts) << root;
    EXPECT_EQ(facts->mountPoint, "/") << root;
  }
}

TEST(FileSystemTest, OfNoPathIsAnError) {
  for (const auto& [path, error] : {std::pair<std::string, int>{"", ENOENT},
                                    {"/no/such/path", ENOENT},
                                    {std::string("/proc\0x", 7), EINVAL},
                                    {"/proc/version/x", ENOTDIR}}) {
    errno = 0;
    EXPECT_FALSE(fileSystemFacts(path)) << path;
    EXPECT_EQ(errno, error) << path;
  }
}

TEST(FileSystemTest, MountPointsAreExactPaths) {
  EXPECT_TRUE(platform::isMountPoint("/proc"));
  EXPECT_FALSE(platform::isMountPoint("/proc/self"));
  EXPECT_FALSE(platform::isMountPoint(""));
}

TEST(FileSystemTest, ExFATIsToldFromItsOwnNameOnTheDevice) {
  const std::string folder = test::scratchFolder("device");
  test::writeFile(folder + "/exfat",
                  "\xEB\x76\x90"
                  "EXFAT   rest");
  test::writeFile(folder + "/ntfs",
                  "\xEB\x52\x90"
                  "NTFS    rest");
  test::writeFile(folder + "/short",
                  "\xEB\x76\x90"
                  "EXFAT");
  EXPECT_EQ(formatName("fuseblk", folder + "/exfat"), "exfat");
  for (const char* const other : {"/ntfs", "/short", "/missing"}) {
    EXPECT_EQ(formatName("fuseblk", folder + other), "fuseblk") << other;
  }
  EXPECT_EQ(formatName("ext4", folder + "/exfat"), "ext4");
}

TEST(FileSystemTest, AFIFOInTheDevicesPlaceIsNotWaitedFor) {
  const std::string fifo = test::scratchFolder("fifo") + "/fifo";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  EXPECT_EQ(formatName("fuseblk", fifo), "fuseblk");
}

}  // namespace
