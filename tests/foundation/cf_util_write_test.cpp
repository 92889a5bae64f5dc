#include <tovan/cf_util.h>

#include "tests/support/scratch_home.h"

#include <plinth/shared_cf_ref.h>

#include <CoreFoundation/CoreFoundation.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

namespace {

using plinth::CSharedCFRef;
using tovan::CFUtil;

CSharedCFRef<CFDataRef> data(const std::string& bytes) {
  return CFDataCreate(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(bytes.data()),
                      static_cast<CFIndex>(bytes.size()));
}

CSharedCFRef<CFURLRef> fileURL(const std::string& path) {
  return CFURLCreateFromFileSystemRepresentation(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(path.data()),
                                                 static_cast<CFIndex>(path.size()), false);
}

bool writeTo(const std::string& path, const std::string& bytes, bool atomically) {
  return CFUtil::CFDataWriteToURL(data(bytes).get(), fileURL(path).get(), atomically);
}

struct stat factsOf(const std::string& path) {
  struct stat facts {};
  EXPECT_EQ(stat(path.c_str(), &facts), 0) << path;
  return facts;
}
mode_t modeOf(const std::string& path) { return factsOf(path).st_mode & 07777; }
ino_t inodeOf(const std::string& path) { return factsOf(path).st_ino; }

std::vector<std::string> namesIn(const std::string& folder) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) names.push_back(entry.path().filename());
  return names;
}

// Runs the body in a child of its own, whose exit status tells whether it held.
template <class Body>
bool holdsInChild(Body body) {
  const pid_t child = fork();
  if (child == 0) _exit(body() ? 0 : 1);
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status)) << "ended by signal " << WTERMSIG(status);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

bool limitFileSize(rlim_t bytes) {
  const rlimit limit{bytes, bytes};
  return setrlimit(RLIMIT_FSIZE, &limit) == 0;
}

// Both ways of writing.
class WriteToURLTest : public ::testing::TestWithParam<bool> {
 protected:
  bool write(const std::string& path, const std::string& bytes) { return writeTo(path, bytes, GetParam()); }
  const std::string folder_ = test::scratchFolder("write");
  const std::string path_ = folder_ + "/a file \xC3\xA9 100%";
};
INSTANTIATE_TEST_SUITE_P(, WriteToURLTest, ::testing::Bool(),
                         [](const auto& each) { return each.param ? "Atomically" : "InPlace"; });

TEST_P(WriteToURLTest, ANewFileHoldsTheBytes) {
  const std::string bytes("\0binary\n\xFF", 9);
  EXPECT_TRUE(write(path_, bytes));
  EXPECT_EQ(test::readFile(path_), bytes);
  EXPECT_EQ(namesIn(folder_).size(), 1u);
}

TEST_P(WriteToURLTest, ANewFileHasThePermissionsOfTheMask) {
  EXPECT_TRUE(holdsInChild([&] {
    umask(027);
    return write(path_, "x");
  }));
  EXPECT_EQ(modeOf(path_), 0640u);
}

TEST_P(WriteToURLTest, ShorterContentLeavesNoTail) {
  test::writeFile(path_, std::string(100000, 'o'));
  EXPECT_TRUE(write(path_, "new"));
  EXPECT_EQ(test::readFile(path_), "new");
  EXPECT_EQ(namesIn(folder_).size(), 1u);
}

TEST_P(WriteToURLTest, NoBytesMakeAnEmptyFile) {
  test::writeFile(path_, "old");
  EXPECT_TRUE(write(path_, ""));
  EXPECT_EQ(test::readFile(path_), "");
}

TEST_P(WriteToURLTest, AReplacedFileKeepsItsPermissions) {
  test::writeFile(path_, "old");
  ASSERT_EQ(chmod(path_.c_str(), 0604), 0);
  EXPECT_TRUE(write(path_, "new"));
  EXPECT_EQ(modeOf(path_), 0604u);
  EXPECT_EQ(test::readFile(path_), "new");
}

TEST_P(WriteToURLTest, ASymbolicLinkIsFollowed) {
  const std::string target = folder_ + "/target";
  test::writeFile(target, "old");
  ASSERT_EQ(symlink("target", path_.c_str()), 0);
  EXPECT_TRUE(write(path_, "new"));
  EXPECT_TRUE(std::filesystem::is_symlink(path_));
  EXPECT_EQ(test::readFile(target), "new");
}

TEST_P(WriteToURLTest, ALoopOfSymbolicLinksFailsAndStays) {
  ASSERT_EQ(symlink(path_.c_str(), path_.c_str()), 0);
  EXPECT_FALSE(write(path_, "new"));
  EXPECT_TRUE(std::filesystem::is_symlink(path_));
  EXPECT_EQ(namesIn(folder_).size(), 1u);
}

TEST_P(WriteToURLTest, AFolderInTheFilesPlaceFailsAndStays) {
  test::makeFolders(path_);
  EXPECT_FALSE(write(path_, "new"));
  EXPECT_TRUE(std::filesystem::is_directory(path_));
  EXPECT_EQ(namesIn(folder_).size(), 1u);
}

TEST_P(WriteToURLTest, AFIFOThatNobodyReadsFailsAtOnceAndStays) {
  ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
  EXPECT_FALSE(write(path_, "new"));
  EXPECT_TRUE(std::filesystem::is_fifo(path_));
  EXPECT_EQ(namesIn(folder_).size(), 1u);
}

TEST_P(WriteToURLTest, AMissingFolderFails) { EXPECT_FALSE(write(folder_ + "/none/file", "new")); }

TEST_P(WriteToURLTest, AFileSizeLimitFailsWithTheOldContentWhole) {
  const std::string old(1000, 'o');
  test::writeFile(path_, old);
  EXPECT_TRUE(holdsInChild([&] { return limitFileSize(4096) && !write(path_, std::string(10000, 'n')); }));
  EXPECT_EQ(test::readFile(path_), old);
  EXPECT_EQ(namesIn(folder_).size(), 1u);
}

TEST_P(WriteToURLTest, AFailedNewFileLeavesNothingBehind) {
  EXPECT_TRUE(holdsInChild([&] { return limitFileSize(4096) && !write(path_, std::string(10000, 'n')); }));
  EXPECT_TRUE(namesIn(folder_).empty());
}

TEST_P(WriteToURLTest, NullDataOrURLFails) {
  EXPECT_FALSE(CFUtil::CFDataWriteToURL(nullptr, fileURL(path_).get(), GetParam()));
  EXPECT_FALSE(CFUtil::CFDataWriteToURL(data("x").get(), nullptr, GetParam()));
  EXPECT_FALSE(test::exists(path_));
}

TEST_P(WriteToURLTest, AURLWithoutAPathFails) {
  const CSharedCFRef<CFURLRef> url =
      CFURLCreateWithString(kCFAllocatorDefault, CFSTR("mailto:someone@example.com"), nullptr);
  ASSERT_TRUE(url);
  EXPECT_FALSE(CFUtil::CFDataWriteToURL(data("x").get(), url.get(), GetParam()));
}

TEST(WriteToURLInPlaceTest, KeepsTheFileThatOthersHaveOpen) {
  const std::string path = test::scratchFolder("write") + "/file";
  test::writeFile(path, "old");
  const ino_t before = inodeOf(path);
  EXPECT_TRUE(writeTo(path, "new", false));
  EXPECT_EQ(inodeOf(path), before);
}

TEST(WriteToURLAtomicallyTest, AReaderSeesTheOldContentOrTheNewNeverAMixture) {
  const std::string path = test::scratchFolder("write") + "/file";
  const std::string contents[] = {std::string(20000, 'a'), std::string(15000, 'b')};
  ASSERT_TRUE(writeTo(path, contents[0], true));
  std::atomic<bool> done{false};
  bool allWritten = true;
  std::thread writer([&] {
    for (std::size_t i = 1; i <= 300; ++i) allWritten = writeTo(path, contents[i % 2], true) && allWritten;
    done = true;
  });
  int mixtures = 0;
  while (!done) {
    const std::string seen = test::readFile(path);
    if (seen != contents[0] && seen != contents[1]) ++mixtures;
  }
  writer.join();
  EXPECT_TRUE(allWritten);
  EXPECT_EQ(mixtures, 0);
}

}  // namespace
