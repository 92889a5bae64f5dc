// The library's exports file is read as the library writes it, and nothing else makes an export.
#include "tools/exports/library_lines.h"

#include <gtest/gtest.h>
#include <plinth/string.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tools/exports/path_text.h"

namespace {

using exports::LibraryLines;
using exports::readLibraryLines;

const std::vector<std::string>& hostilePaths() {
  static const std::vector<std::string> kPaths = {"/srv/plain",
                                                  "/srv/a folder",
                                                  "/srv/ leading and trailing ",
                                                  "/srv/tab\there",
                                                  "/srv/double\"quote",
                                                  "/srv/single'quote",
                                                  "/srv/line\nfeed",
                                                  "/srv/two\n\nfeeds\n",
                                                  "/srv/quoted'\n'feed",
                                                  "/srv/#hash",
                                                  "/srv/back\\slash",
                                                  "/srv/back\\\nslash",
                                                  "/srv/\\040octal",
                                                  "/srv/-dash",
                                                  "/srv/$(reboot)`x`",
                                                  "/srv/*(rw)",
                                                  "/srv/a,b=c(d)",
                                                  "/srv/carriage\rreturn",
                                                  "/srv/\x01\x7f",
                                                  "/srv/\xc3\xbcml\xc3\xa4ut \xe2\x82\xac \xf0\x9f\x98\x80",
                                                  "/srv/0123abcd-89ef0123/shared"};
  return kPaths;
}

std::string lineFor(const std::string& path) { return plinth::CSTR(path)->shellEscapedFilename()->str() + "\n"; }

std::vector<std::string> pathsOf(const LibraryLines& lines) {
  std::vector<std::string> paths;
  for (const auto& folder : lines.folders) paths.push_back(folder.path);
  return paths;
}

std::string linesOfAllPaths() {
  std::string text;
  for (const std::string& path : hostilePaths()) text += lineFor(path);
  return text;
}

TEST(LibraryLinesTest, EveryPathThatTheLibraryEscapesComesBackAsItWas) {
  for (const std::string& path : hostilePaths()) {
    const LibraryLines lines = readLibraryLines(lineFor(path));
    EXPECT_TRUE(lines.problems.empty()) << exports::octalText(path) << ": " << lines.problems.front().text;
    EXPECT_EQ(pathsOf(lines), std::vector<std::string>{path});
  }
  EXPECT_EQ(pathsOf(readLibraryLines(linesOfAllPaths())), hostilePaths());
}

TEST(LibraryLinesTest, EveryAsciiCharacterInAPathComesBack) {
  for (char character = 1; character > 0 && character < 127; ++character) {
    if (character == '/' || character == '.') continue;
    const std::string path = std::string("/srv/") + character + "x" + character;
    EXPECT_EQ(pathsOf(readLibraryLines(lineFor(path))), std::vector<std::string>{path}) << static_cast<int>(character);
  }
}

TEST(LibraryLinesTest, AFileThatIsCutOffAnywhereNamesNoFolderThatTheWholeDoesNot) {
  const std::string whole = linesOfAllPaths();
  for (std::size_t length = 0; length < whole.size(); ++length) {
    for (const std::string& path : pathsOf(readLibraryLines(whole.substr(0, length)))) {
      EXPECT_NE(std::find(hostilePaths().begin(), hostilePaths().end(), path), hostilePaths().end())
          << exports::octalText(path) << " after " << length << " bytes";
    }
  }
}

TEST(LibraryLinesTest, LinesAreCountedThroughQuotedLineFeeds) {
  const LibraryLines lines = readLibraryLines(lineFor("/srv/a\n\nb") + "# comment\n\n" + lineFor("/srv/c") + "bad\n");
  ASSERT_EQ(lines.folders.size(), 2U);
  EXPECT_EQ(lines.folders[0].line, 1U);
  EXPECT_EQ(lines.folders[1].line, 6U);
  ASSERT_EQ(lines.problems.size(), 1U);
  EXPECT_EQ(lines.problems[0].line, 7U);
}

TEST(LibraryLinesTest, ADamagedLineIsReportedAndTheNextOneIsRead) {
  struct Case {
    std::string line;
    std::string words;
  };
  const std::vector<Case> cases = {{"/srv/a folder", "something follows the path"},
                                   {"/srv/a host(rw)", "something follows the path"},
                                   {"/srv/a *(rw,no_root_squash)", "something follows the path"},
                                   {"/srv/a\t", "something follows the path"},
                                   {" /srv/a", "something follows the path"},
                                   {"/srv/a\r", "\"\\015\" stands there without a backslash"},
                                   {"/srv/$x", "\"\\044\" stands there without a backslash"},
                                   {"\"/srv/a\"", "\"\\042\" stands there without a backslash"},
                                   {"/srv/a\\", "a backslash ends the line"},
                                   {"/srv/a\\b", "a backslash stands before \"b\""},
                                   {"/srv/a\\040b", "a backslash stands before \"0\""},
                                   {"'/srv/a'", "a single quote holds something else"},
                                   {"/srv/a'", "a single quote holds something else"},
                                   {std::string("/srv/a\0b", 8), "it holds a NUL character"},
                                   {"/srv/\xff", "it is not UTF-8"},
                                   {"/srv/\xc0\xaf", "it is not UTF-8"},
                                   {"/srv/\xed\xa0\x80", "it is not UTF-8"},
                                   {"srv/a", "it is not an absolute path"},
                                   {"-ro", "it is not an absolute path"},
                                   {"/", "it is the root of all folders"},
                                   {"///", "it is the root of all folders"},
                                   {"/srv/..", "its path holds"},
                                   {"/srv/./a", "its path holds"},
                                   {"/../srv", "its path holds"}};
  for (const Case& one : cases) {
    const LibraryLines lines = readLibraryLines("/srv/before\n" + one.line + "\n/srv/after\n");
    EXPECT_EQ(pathsOf(lines), (std::vector<std::string>{"/srv/before", "/srv/after"})) << exports::octalText(one.line);
    ASSERT_EQ(lines.problems.size(), 1U) << exports::octalText(one.line);
    EXPECT_EQ(lines.problems[0].line, 2U);
    EXPECT_NE(lines.problems[0].text.find(one.words), std::string::npos) << lines.problems[0].text;
  }
}

TEST(LibraryLinesTest, ALastLineWithoutItsEndIsAProblem) {
  const LibraryLines lines = readLibraryLines("/srv/cluster\n/srv/clu");
  EXPECT_EQ(pathsOf(lines), std::vector<std::string>{"/srv/cluster"});
  ASSERT_EQ(lines.problems.size(), 1U);
  EXPECT_NE(lines.problems[0].text.find("has no end"), std::string::npos);
}

TEST(LibraryLinesTest, APathStandsOnceHoweverOftenAndWithHoweverManySlashesItIsNamed) {
  EXPECT_EQ(pathsOf(readLibraryLines("/srv/a\n/srv/a\n//srv//a/\n")), std::vector<std::string>{"/srv/a"});
}

TEST(LibraryLinesTest, AnEmptyFileHasNothing) {
  const LibraryLines lines = readLibraryLines("");
  EXPECT_TRUE(lines.folders.empty());
  EXPECT_TRUE(lines.problems.empty());
}

}  // namespace
