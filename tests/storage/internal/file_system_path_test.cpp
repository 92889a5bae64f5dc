#include "storage/file_system_path.h"

#include "tests/support/scratch_home.h"

#include <tovan/shared_storage.h>
#include <tovan/shared_storage_exception.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace {

using plinth::CSTR;
using tovan::ISharedStorageException;
using tovan::resolvedPath;

std::string refusal(const plinth::CStringRef& path) {
  try {
    resolvedPath(path);
  } catch (const ISharedStorageException& exception) {
    EXPECT_EQ(static_cast<std::uint32_t>(exception.getCode()), 0xFE050C00U);
    return exception.getMessage()->str();
  }
  return "nothing";
}

TEST(ResolvedPathTest, FollowsLinksAndRelativeParts) {
  const std::string folder = test::scratchFolder("real");
  const std::string links = test::scratchFolder("links");
  std::filesystem::create_directory_symlink(folder, links + "/one");
  EXPECT_EQ(resolvedPath(CSTR(links + "/../" + std::filesystem::path(links).filename().string() + "/one/."))->str(),
            folder);
}

TEST(ResolvedPathTest, SaysWhichPathItCouldNotResolveAndWhy) {
  const std::string file = test::scratchFolder("plain") + "/file";
  test::writeFile(file, "");
  EXPECT_EQ(refusal(CSTR(file + "/below")), "Couldn't get realpath for file: " + file + "/below (errno = 20)");
  EXPECT_EQ(refusal(CSTR(file + "%@%s")), "Couldn't get realpath for file: " + file + "%@%s (errno = 2)");
  EXPECT_EQ(refusal(nullptr), "Couldn't get realpath for file:  (errno = 22)");
}

TEST(ResolvedPathTest, FolderWhoseNameIsNoTextIsRefused) {
  const std::string folder = test::scratchFolder("bytes");
  std::filesystem::create_directory(folder + "/\xff");
  std::filesystem::create_directory_symlink(folder + "/\xff", folder + "/link");
  EXPECT_EQ(refusal(CSTR(folder + "/link")), "Couldn't get realpath for file: " + folder + "/link (errno = 84)");
}

// This program holds the library's objects and does not load the library.
TEST(StorageTextsWithoutAFrameworkTest, MissingBundleIsAnError) {
  for (int attempt = 0; attempt < 2; ++attempt) {
    try {
      tovan::ISharedStorage::localizedStringForKey(CSTR("ExFATExportNotSupported"));
      FAIL() << "a text came from nowhere";
    } catch (const ISharedStorageException& exception) {
      EXPECT_EQ(exception.getMessage()->str(), "TovanCore.framework not found");
      EXPECT_EQ(static_cast<std::uint32_t>(exception.getCode()), 0xFE050200U);
    }
  }
}

}  // namespace
