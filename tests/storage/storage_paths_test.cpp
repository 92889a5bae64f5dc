// Questions about paths, and making folders.
#include <tovan/shared_storage_utils.h>

#include <sys/resource.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <vector>

#include "tests/storage/storage_support.h"

namespace {

using namespace test;
using Utils = tovan::CSharedStorageUtils;

class StoragePathsTest : public ::testing::Test {
 protected:
  const std::string folder_ = Utils::normalizedPath(CSTR(scratchFolder("paths")))->str();
  std::string in(const std::string& name) const { return folder_ + "/" + name; }
};

TEST_F(StoragePathsTest, ExistsFollowsLinks) {
  writeFile(in("file"), "");
  ASSERT_EQ(::symlink("nowhere", in("dangling").c_str()), 0);
  EXPECT_TRUE(Utils::pathExists(CSTR(in("file"))));
  EXPECT_FALSE(Utils::pathExists(CSTR(in("dangling"))));
  EXPECT_FALSE(Utils::pathExists(nullptr));
  EXPECT_FALSE(Utils::pathExists(CSTR(in("file") + std::string("\0behind", 7))));
}

TEST_F(StoragePathsTest, IsDirectoryTellsFoldersFromFiles) {
  writeFile(in("file"), "");
  EXPECT_TRUE(Utils::pathIsDirectory(CSTR(folder_)));
  EXPECT_FALSE(Utils::pathIsDirectory(CSTR(in("file"))));
}

TEST_F(StoragePathsTest, IsDirectoryThrowsForAMissingPath) {
  const std::string missing = in("100% missing");
  EXPECT_EQ(thrown([&] { Utils::pathIsDirectory(CSTR(missing)); }), "3/2 Non-existent path = [" + missing + "]");
  EXPECT_EQ(thrown([&] { Utils::pathIsDirectory(nullptr); }), "3/2 Non-existent path = []");
}

TEST_F(StoragePathsTest, ReadableAndWritableAreTheCallersRights) {
  writeFile(in("file"), "");
  EXPECT_TRUE(Utils::pathIsReadable(CSTR(in("file"))));
  EXPECT_TRUE(Utils::pathIsWritable(CSTR(in("file"))));
  EXPECT_TRUE(Utils::pathIsRW(CSTR(in("file"))));
  for (const auto& none : {CSTR(in("missing")), CStringRef()}) {
    EXPECT_FALSE(Utils::pathIsReadable(none));
    EXPECT_FALSE(Utils::pathIsWritable(none));
    EXPECT_FALSE(Utils::pathIsRW(none));
  }
  EXPECT_TRUE(Utils::pathIsReadable(CSTR("/proc/version")));
}

TEST_F(StoragePathsTest, NormalizedPathResolvesLinks) {
  makeFolders(in("real"));
  ASSERT_EQ(::symlink("real", in("link").c_str()), 0);
  EXPECT_EQ(Utils::normalizedPath(CSTR(in("link/../link/.")))->str(), in("real"));
}

TEST_F(StoragePathsTest, NormalizedPathNamesTheErrorNumber) {
  const std::string missing = in("missing");
  EXPECT_EQ(thrown([&] { Utils::normalizedPath(CSTR(missing)); }),
            "5/12 Couldn't get realpath for file: " + missing + " (errno = " + std::to_string(ENOENT) + ")");
  ASSERT_EQ(::symlink("circle", in("circle").c_str()), 0);
  EXPECT_EQ(thrown([&] { Utils::normalizedPath(CSTR(in("circle"))); }),
            "5/12 Couldn't get realpath for file: " + in("circle") + " (errno = " + std::to_string(ELOOP) + ")");
  EXPECT_EQ(thrown([&] { Utils::normalizedPath(nullptr); }).substr(0, 39), "5/12 Couldn't get realpath for file:  (");
}

TEST_F(StoragePathsTest, NormalizedURLKeepsNamesThatDoNotExistYet) {
  makeFolders(in("real"));
  ASSERT_EQ(::symlink("real", in("link").c_str()), 0);
  EXPECT_EQ(pathOf(Utils::normalizedURL(folderURL(in("link/new/folder")))), in("real/new/folder"));
  EXPECT_EQ(pathOf(Utils::normalizedURL(folderURL("/"))), "/");
  EXPECT_EQ(pathOf(Utils::normalizedURL(folderURL("/missing here"))), "/missing here");
}

TEST_F(StoragePathsTest, NormalizedURLKnowsFolders) {
  EXPECT_TRUE(CFURLHasDirectoryPath(Utils::normalizedURL(fileURL(folder_))->getURLRef()));
  writeFile(in("file"), "");
  EXPECT_FALSE(CFURLHasDirectoryPath(Utils::normalizedURL(fileURL(in("file")))->getURLRef()));
}

TEST_F(StoragePathsTest, NormalizedURLRefusesWhatCannotBeFollowed) {
  ASSERT_EQ(::symlink("nowhere", in("dangling").c_str()), 0);
  EXPECT_EQ(thrown([&] { Utils::normalizedURL(folderURL(in("dangling"))); }),
            "5/12 Couldn't get realpath for file: " + in("dangling") + " (errno = " + std::to_string(ENOENT) + ")");
  writeFile(in("file"), "");
  EXPECT_EQ(thrown([&] { Utils::normalizedURL(folderURL(in("file/below"))); }),
            "5/12 Couldn't get realpath for file: " + in("file/below") + " (errno = " + std::to_string(ENOTDIR) + ")");
  EXPECT_EQ(thrown([] { Utils::normalizedURL(nullptr); }), "Error: url is null!");
  EXPECT_EQ(thrown([] { Utils::normalizedURL(urlOf("file:///tmp/%FF")); }).substr(0, 37),
            "5/12 Couldn't get realpath for file: ");
}

TEST_F(StoragePathsTest, NormalizedURLLeavesRemoteOnesAlone) {
  EXPECT_EQ(Utils::normalizedURL(urlOf("nfs://host/../x"))->getString()->str(), "nfs://host/../x");
  EXPECT_EQ(Utils::normalizedURL(urlOf("file://host/tmp/../x"))->getString()->str(), "file://host/tmp/../x");
}

TEST_F(StoragePathsTest, NormalizedURLTakesPathsFromTheCurrentFolder) {
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(folder_);
  EXPECT_EQ(pathOf(Utils::normalizedURL(fileURL("movie.mov"))), in("movie.mov"));
  EXPECT_EQ(pathOf(Utils::normalizedURL(fileURL("missing/movie.mov"))), in("missing/movie.mov"));
  EXPECT_EQ(pathOf(Utils::normalizedURL(fileURL("movie.mov")->copyWithoutLastPathComponent())), folder_);
  std::filesystem::current_path(before);
}

TEST_F(StoragePathsTest, FolderContentsAreSorted) {
  for (const char* const name : kHostileNames) writeFile(in(name), "");
  writeFile(in("\xFFnot utf-8"), "");
  writeFile(in(".hidden"), "");
  std::vector<std::string> expected(std::begin(kHostileNames), std::end(kHostileNames));
  expected.emplace_back(".hidden");
  std::sort(expected.begin(), expected.end());
  std::vector<std::string> names;
  for (const CStringRef& name : Utils::getDirContents(CSTR(folder_))) names.push_back(name->str());
  EXPECT_EQ(names, expected);
}

TEST_F(StoragePathsTest, FolderContentsOfSomethingElseAreRefused) {
  writeFile(in("file"), "");
  EXPECT_EQ(thrown([&] { Utils::getDirContents(CSTR(in("file"))); }), "3/6 Path [" + in("file") + "] not a directory");
  EXPECT_EQ(thrown([&] { Utils::getDirContents(CSTR(in("no"))); }), "3/2 Non-existent path = [" + in("no") + "]");
}

TEST_F(StoragePathsTest, FolderContentsWithoutDescriptorsNameTheReason) {
  rlimit former{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &former), 0);
  rlimit none = former;
  none.rlim_cur = 0;
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
  const std::string text = thrown([&] { Utils::getDirContents(CSTR(folder_)); });
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &former), 0);
  EXPECT_EQ(text, "5/12 [" + std::to_string(::getpid()) + "] CSharedStorageUtils::getDirContents(): opendir(" +
                      folder_ + ") failed: Too many open files");
}

TEST_F(StoragePathsTest, MakeDirMakesTheFoldersAboveAndSetsTheMode) {
  const mode_t former = ::umask(027);
  Utils::makeDir(CSTR(in("a/b/c/")), 0777);
  ::umask(former);
  EXPECT_EQ(modeOf(in("a/b/c")), "777");
  EXPECT_EQ(modeOf(in("a/b")), "750");
}

TEST_F(StoragePathsTest, MakeDirLeavesAFolderAsItIs) {
  ASSERT_EQ(::mkdir(in("there").c_str(), 0700), 0);
  Utils::makeDir(CSTR(in("there")), 0777);
  EXPECT_EQ(modeOf(in("there")), "700");
}

TEST_F(StoragePathsTest, MakeDirMakesHostileNames) {
  for (const char* const name : kHostileNames) {
    Utils::makeDir(CSTR(in(name) + "/" + name), 0755);
    EXPECT_EQ(modeOf(in(name) + "/" + name), "755") << name;
  }
}

TEST_F(StoragePathsTest, MakeDirRefusesAFileInItsPlace) {
  writeFile(in("file"), "");
  EXPECT_EQ(thrown([&] { Utils::makeDir(CSTR(in("file")), 0777); }), "3/6 Path [" + in("file") + "] not a directory");
}

TEST_F(StoragePathsTest, MakeDirSaysWhatIsNotThereAfterwards) {
  ASSERT_EQ(::symlink("nowhere", in("dangling").c_str()), 0);
  EXPECT_EQ(thrown([&] { Utils::makeDir(CSTR(in("dangling")), 0777); }),
            "3/6 path not present: [" + in("dangling") + "]");
}

TEST_F(StoragePathsTest, MakeDirNamesTheFolderAndTheReason) {
  writeFile(in("file"), "");
  EXPECT_EQ(thrown([&] { Utils::makeDir(CSTR(in("file/below")), 0777); }),
            "3/6 The folder \"" + in("file/below") + "\" could not be created: Not a directory");
  EXPECT_EQ(thrown([] { Utils::makeDir(nullptr, 0777); }),
            "3/6 The folder \"\" could not be created: No such file or directory");
}

TEST_F(StoragePathsTest, MakeDirNamesTheFolderThatMayNotBeWrittenInto) {
  std::string text;
  withoutWritePermission(folder_, [&] { text = thrown([&] { Utils::makeDir(CSTR(in("a/b")), 0777); }); });
  EXPECT_EQ(text, "3/5 The folder \"" + folder_ + "\" cannot be used: this user may not write into it.");
}

}  // namespace
