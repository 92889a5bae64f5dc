// A write that does not fit is an error, and changes nothing.
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>

#include "platform/system/locked_file.h"
#include "tests/plist/plist_support.h"

namespace {

using namespace test;
using tovan::CPropertyListBasicFile;

CSharedCFRef<CFDictionaryRef> listOf(char letter, std::size_t length) {
  return dict("<key>a</key><string>" + std::string(length, letter) + "</string>");
}

// So many bytes at most in a file that this process writes, as long as the object lives.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) {
    EXPECT_EQ(::getrlimit(RLIMIT_FSIZE, &before_), 0);
    const struct rlimit low = {bytes, before_.rlim_max};
    EXPECT_EQ(::setrlimit(RLIMIT_FSIZE, &low), 0);
  }
  ~FileSizeLimit() { EXPECT_EQ(::setrlimit(RLIMIT_FSIZE, &before_), 0); }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;

 private:
  struct rlimit before_ {};
};

class NoRoomTest : public ::testing::Test {
 protected:
  const std::string folder = scratchFolder("room");
  const std::string path = folder + "/file.plist";

  // A small file system of this process alone; it goes with the process.
  bool mountSmall() const {
    return ::unshare(CLONE_NEWNS) == 0 && ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           ::mount("tmpfs", folder.c_str(), "tmpfs", 0, "size=128k") == 0;
  }
  std::string failureOf(const CPropertyListBasicFile& file, CFDictionaryRef list) const {
    std::string thrown;
    consoleOf([&] { thrown = thrownBy([&] { file.writePropertyList(list); }); });
    return thrown;
  }
  std::string expected(const std::string& reason) const {
    return "4: CPropertyListBasicFile::writePropertyList[" + pid() + "](" + path +
           "): can't write file, error = " + reason;
  }
};

TEST_F(NoRoomTest, AFullDiskLeavesEveryByte) {
  if (!mountSmall()) GTEST_SKIP() << "needs root, to mount a small file system";
  CPropertyListBasicFile file(str(path).get());
  file.writePropertyList(listOf('o', 50000).get());
  const std::string before = readFile(path);
  struct stat old;
  ASSERT_EQ(::stat(path.c_str(), &old), 0);

  EXPECT_EQ(failureOf(file, listOf('n', 200000).get()), expected("No space left on device"));
  EXPECT_EQ(readFile(path), before);
  struct stat now;
  ASSERT_EQ(::stat(path.c_str(), &now), 0);
  EXPECT_EQ(now.st_blocks, old.st_blocks) << "what the attempt reserved is given back";

  file.writePropertyList(listOf('n', 40000).get());
  EXPECT_LT(readFile(path).size(), before.size());
  file.writePropertyList(listOf('n', 100000).get());
  EXPECT_GT(readFile(path).size(), 100000U) << "the space that was freed can be used";
}

TEST_F(NoRoomTest, AFirstDocumentThatDoesNotFitLeavesAnEmptyFile) {
  if (!mountSmall()) GTEST_SKIP() << "needs root, to mount a small file system";
  const CPropertyListBasicFile file(str(path).get());
  EXPECT_EQ(failureOf(file, listOf('n', 200000).get()), expected("No space left on device"));
  EXPECT_EQ(readFile(path), "");
  EXPECT_EQ(describe(CPropertyListBasicFile(str(path).get()).toPropertyList()), "{}");
}

TEST_F(NoRoomTest, AFileSizeLimitIsAnErrorAndNoSignal) {
  const CPropertyListBasicFile file(str(path).get());
  file.writePropertyList(listOf('o', 50000).get());
  const std::string before = readFile(path);
  std::string thrown, small;
  {
    const FileSizeLimit limit(60000);
    thrown = failureOf(file, listOf('n', 70000).get());
    small = failureOf(file, listOf('n', 55000).get());
  }
  EXPECT_EQ(thrown, expected("File too large"));
  EXPECT_EQ(small, "nothing") << "below the limit there is room";
  EXPECT_GT(readFile(path).size(), before.size());
}

TEST_F(NoRoomTest, AFileSizeLimitBelowTheOldDocumentLeavesIt) {
  const CPropertyListBasicFile file(str(path).get());
  file.writePropertyList(listOf('o', 50000).get());
  const std::string before = readFile(path);
  std::string thrown;
  {
    const FileSizeLimit limit(10000);
    thrown = failureOf(file, listOf('n', 20000).get());
  }
  EXPECT_EQ(thrown, expected("File too large"));
  EXPECT_EQ(readFile(path), before);
}

TEST_F(NoRoomTest, ReservingKeepsSizeAndContent) {
  writeFile(path, "content");
  const platform::Descriptor file = platform::openLocked(path.c_str(), platform::FileLock::exclusive);
  ASSERT_TRUE(file);
  EXPECT_TRUE(platform::reserveSpace(file.get(), 100000));
  EXPECT_EQ(readFile(path), "content");
  struct stat status;
  ASSERT_EQ(::fstat(file.get(), &status), 0);
  EXPECT_GE(status.st_blocks * 512, 100000);
}

TEST_F(NoRoomTest, WhatCannotReserveIsLeftToTheWrite) {
  const platform::Descriptor null = platform::Descriptor::open("/dev/null", O_RDWR);
  EXPECT_TRUE(platform::reserveSpace(null.get(), 100000)) << "a device has nothing to reserve";
  const platform::Descriptor reading = platform::Descriptor::open("/proc/self/exe", O_RDONLY);
  EXPECT_FALSE(platform::reserveSpace(reading.get(), 100)) << "a file that is open for reading cannot be written";
  EXPECT_EQ(errno, EBADF);
  EXPECT_FALSE(platform::reserveSpace(-1, 100));
  EXPECT_EQ(errno, EBADF);
}

}  // namespace
