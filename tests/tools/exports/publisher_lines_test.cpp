// What the library's publisher writes is read back here as exactly the path that was published.
#include <gtest/gtest.h>
#include <plinth/exception.h>
#include <plinth/string.h>
#include <plinth/url.h>
#include <tovan/nfs_shared_storage_publisher.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/scratch_home.h"
#include "tools/exports/library_lines.h"
#include "tools/exports/path_text.h"

namespace {

using exports::LibraryLines;
using exports::readLibraryLines;
using plinth::CSTR;

class PublisherLinesReadBackTest : public ::testing::Test {
 protected:
  PublisherLinesReadBackTest() { publisher_->setExportsFilePath(CSTR(exports_)); }

  static plinth::CURLRef url(const std::string& path) {
    return plinth::makeShared<plinth::CURL>(CSTR(path), kCFURLPOSIXPathStyle, true);
  }
  // False when the path is refused, which must leave the file as it was.
  bool publish(const std::string& path) {
    const std::string before = test::exists(exports_) ? test::readFile(exports_) : "";
    try {
      publisher_->publish(url(path), CSTR("app"), 1);
      return true;
    } catch (const plinth::CException&) {
      EXPECT_EQ(test::exists(exports_) ? test::readFile(exports_) : "", before) << exports::octalText(path);
      return false;
    }
  }
  std::vector<std::string> readBack() const {
    const LibraryLines lines = readLibraryLines(test::readFile(exports_));
    for (const auto& problem : lines.problems) ADD_FAILURE() << "line " << problem.line << ": " << problem.text;
    std::vector<std::string> paths;
    for (const auto& folder : lines.folders) paths.push_back(folder.path);
    return paths;
  }

  const std::string root_ = std::filesystem::canonical(test::scratchFolder("published")).string();
  const std::string exports_ = test::scratchFolder("etc") + "/exports";
  const tovan::CNFSSharedStoragePublisherRef publisher_ = plinth::makeShared<tovan::CNFSSharedStoragePublisher>();
};

TEST_F(PublisherLinesReadBackTest, EveryPathComesBackAsItIsOrIsRefused) {
  std::vector<std::string> names = {" leading and trailing ",
                                    "-ro",
                                    "$(reboot)`x`",
                                    "*(rw,no_root_squash)",
                                    "#comment",
                                    "\\040octal",
                                    "ends in a backslash\\",
                                    "quoted'\n'feed",
                                    "\xc3\xbcml\xc3\xa4ut \xe2\x82\xac \xf0\x9f\x98\x80",
                                    "0123abcd-89ef0123/shared",
                                    "movies/.mvsubexp",
                                    "film-backup",
                                    "film"};
  for (char character = 1; character < 127; ++character) {
    if (character != '/') names.push_back(std::string("a") + character + character + "b" + character);
  }
  std::vector<std::string> published;
  for (const std::string& name : names) {
    const std::string path = root_ + "/" + name;
    const bool isPublished = publish(path);
    EXPECT_EQ(isPublished, name.find('\n') == std::string::npos) << exports::octalText(name);
    if (isPublished) published.push_back(path);
  }
  EXPECT_EQ(readBack(), published);

  while (published.size() > 1) {
    publisher_->unpublish(url(published.front()), CSTR("app"), 1);
    published.erase(published.begin());
    if (published.size() % 16 != 1) continue;
    EXPECT_EQ(readBack(), published);
  }
}

TEST_F(PublisherLinesReadBackTest, WhatTheReaderRefusesIsRefusedBeforehand) {
  for (const char* const path : {"/", "//", "/srv/..", "/srv/./a", "/../srv", "//srv//a", "srv", "", "/srv/a\nb"}) {
    const bool isReadable = exports::reasonAgainstPath(path).empty() && exports::withoutIdleSlashes(path) == path &&
                            std::string(path).find('\n') == std::string::npos;
    ASSERT_FALSE(isReadable) << path;
    EXPECT_THROW(publisher_->_publish(CSTR(path), {}), plinth::CException) << path;
  }
  EXPECT_FALSE(test::exists(exports_));
}

TEST_F(PublisherLinesReadBackTest, AFolderIsReadBackAmongForeignLines) {
  test::writeFile(exports_, "# comment\n\n/srv/www");
  ASSERT_TRUE(publish(root_ + "/a folder"));
  EXPECT_EQ(readBack(), (std::vector<std::string>{"/srv/www", root_ + "/a folder"}));
  test::writeFile(exports_, "/srv/goes on \\\n");
  ASSERT_TRUE(publish(root_ + "/a folder"));
  const LibraryLines lines = readLibraryLines(test::readFile(exports_));
  ASSERT_EQ(lines.folders.size(), 1U);
  EXPECT_EQ(lines.folders[0].path, root_ + "/a folder");
}

}  // namespace
