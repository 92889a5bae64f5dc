// The exports file in every state in which it may be found, and paths in every form.
#include "tests/storage/publisher_support.h"

#include <gmock/gmock.h>
#include <sys/resource.h>

#include <cctype>
#include <random>

namespace {

using namespace test;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class PublisherFileTest : public PublisherTest {
 protected:
  std::vector<std::string> lines() const {
    Lines read;
    publisher_->readExportFile(read);
    return textsOf(read);
  }
  // The failure of writing two lines, and the console's words about it.
  std::string failureOfWriting() const {
    std::string text;
    const std::string console = consoleOf([&] {
      text = thrown([&] { publisher_->writeExportFile(linesOf({"/srv/a", "/srv/b"})); });
    });
    const std::string head = "CNFSSharedStoragePublisher::writeExportFile(";
    const std::size_t at = console.find(head);
    return text + " | " + (at == std::string::npos ? "no line" : console.substr(at + head.size()));
  }
  std::string expectedFailure(const std::string& reason) const {
    return std::string(kNotWritten) + " | " + exports_ + "): " + reason + "\n";
  }
  std::string expectedUnreadable(const std::string& reason) const {
    return "CNFSSharedStoragePublisher::readExportFile(): couldn't read file \"" + exports_ + "\", error = " + reason;
  }
  // Neither publishing nor giving back does anything but throw this.
  void expectUnusable(const std::string& text) {
    EXPECT_EQ(thrown([&] { publish(folder_); }), text);
    EXPECT_EQ(thrown([&] { unpublish(folder_); }), text);
    EXPECT_EQ(thrown([&] { publisher_->cleanExports(); }), text);
    EXPECT_FALSE(exists(folder_)) << "the folder is made";
    EXPECT_THAT(publisher_->getPublishedMap(), IsEmpty());
  }
  const std::string folder_ = root_ + "/folder";
};

TEST_F(PublisherFileTest, TheDefaultIsTheSystems) {
  // Only reading, so that the administrator's file is safe from this test.
  const auto other = plinth::makeShared<tovan::CNFSSharedStoragePublisher>();
  Lines read;
  EXPECT_EQ(thrown([&] { other->readExportFile(read); }), "nothing");
  std::string text;
  for (const auto& line : read) text += line->str() + "\n";
  std::string system = exists("/etc/exports") ? readFile("/etc/exports") : "";
  if (!system.empty() && system.back() != '\n') system += '\n';
  EXPECT_EQ(text, system);
  EXPECT_EQ(thrown([&] { other->setExportsFilePath(nullptr); }), "Error: path is null!");
}

TEST_F(PublisherFileTest, AMissingOrEmptyFileHasNoLines) {
  EXPECT_THAT(lines(), IsEmpty());
  EXPECT_FALSE(exists(exports_));
  setFile("");
  EXPECT_THAT(lines(), IsEmpty());
  setFile("\n");
  EXPECT_THAT(lines(), ElementsAre(""));
}

TEST_F(PublisherFileTest, ReadingReplacesWhatTheVectorHeld) {
  setFile("/srv/a\n");
  Lines read = linesOf({"old", "older"});
  publisher_->readExportFile(read);
  EXPECT_THAT(textsOf(read), ElementsAre("/srv/a"));
}

TEST_F(PublisherFileTest, LinesAreSplitAtLineFeedsAlone) {
  setFile("/srv/a\r\n\n \t\n/srv/b\x0B\x0C\xE2\x80\xA8/srv/c\n/srv/last");
  EXPECT_THAT(lines(), ElementsAre("/srv/a\r", "", " \t", "/srv/b\x0B\x0C\xE2\x80\xA8/srv/c", "/srv/last"));
}

TEST_F(PublisherFileTest, WritingGivesEveryLineItsLineFeed) {
  publisher_->writeExportFile(linesOf({"/srv/a", "", "# \xC3\xA9"}));
  EXPECT_EQ(file(), "/srv/a\n\n# \xC3\xA9\n");
  publisher_->writeExportFile({});
  EXPECT_EQ(file(), "");
  EXPECT_THAT(beside(), ElementsAre("exports"));
}

TEST_F(PublisherFileTest, ALastLineWithoutItsLineFeedGetsOne) {
  setFile("/srv/www *(ro)");
  publish(folder_);
  EXPECT_EQ(file(), "/srv/www *(ro)\n" + folder_ + "\n");
}

TEST_F(PublisherFileTest, APublishedFoldersLineWithoutItsLineFeedGetsOne) {
  setFile("/srv/www *(ro)\n" + folder_);
  publish(folder_);
  EXPECT_EQ(file(), "/srv/www *(ro)\n" + folder_ + "\n");
}

TEST_F(PublisherFileTest, ForeignBytesSurviveUntouched) {
  const std::string foreign[] = {"/srv/a *(ro)\r\n\r\n# CRLF\r\n",
                                 "\xEF\xBB\xBF/srv/byte-order-mark\n",
                                 std::string("/srv/\0nul\0\n\0\n\xC3\xA9\0\n", 17),
                                 "/srv/latin\xE9\xFF 1\n\xC0\xAF\n\xED\xA0\x80\xED\xB0\x80\n\x80\n",
                                 "\xF0\x9F\x98\x80 \xF0\x9F\x98 \xED\xB2\x80\n",
                                 std::string("\xFF\xFE/\0s\0r\0v\0\n\0\n", 13),
                                 "   \n\t\n#\n\n\n"};
  for (const std::string& text : foreign) {
    setFile(text);
    publish(folder_);
    EXPECT_EQ(file(), text + folder_ + "\n");
    publish(root_ + "/other");
    publisher_->cleanExports();
    unpublish(folder_);
    unpublish(root_ + "/other");
    EXPECT_EQ(file(), text);
  }
}

TEST_F(PublisherFileTest, RandomBytesSurviveUntouched) {
  std::mt19937 random(7);
  for (int round = 0; round < 25; ++round) {
    std::string text;
    for (std::size_t left = random() % 1500; left > 0; --left) {
      const auto byte = static_cast<char>(random() & 0xFF);
      text += byte == '\\' ? '\n' : byte;
    }
    text += '\n';
    setFile(text);
    Lines read;
    publisher_->readExportFile(read);
    publisher_->writeExportFile(read);
    ASSERT_EQ(file(), text) << "round " << round;
    publish(folder_);
    ASSERT_EQ(file(), text + folder_ + "\n") << "round " << round;
    unpublish(folder_);
    ASSERT_EQ(file(), text) << "round " << round;
  }
}

TEST_F(PublisherFileTest, AByteThatIsNotUTF8IsHalfAPair) {
  setFile("a\xFFz\n");
  Lines read;
  publisher_->readExportFile(read);
  ASSERT_EQ(read.size(), 1U);
  EXPECT_EQ(read[0]->getLength(), 3);
  EXPECT_EQ((*read[0])[1], 0xDCFF);
}

TEST_F(PublisherFileTest, AnOwnLineInAFileOfOtherLineEndsIsForeign) {
  setFile(folder_ + "\r\n");
  publish(folder_);
  EXPECT_EQ(file(), folder_ + "\r\n" + folder_ + "\n") << "the first exports no folder";
  unpublish(folder_);
  EXPECT_EQ(file(), folder_ + "\r\n");
}

TEST_F(PublisherFileTest, WhatIsNoSingleLineIsNotWritten) {
  setFile("/srv/old\n");
  std::string text;
  EXPECT_THAT(consoleOf([&] { text = thrown([&] {
                                publisher_->writeExportFile(linesOf({"/srv/a", "b\nc"}));
                              }); }),
              HasSubstr("writeExportFile(" + exports_ + "): a line holds a line feed\n"));
  EXPECT_EQ(text, kNotWritten);
  EXPECT_THAT(consoleOf([&] { text = thrown([&] { publisher_->writeExportFile({nullptr}); }); }),
              HasSubstr("writeExportFile(" + exports_ + "): a line is missing\n"));
  EXPECT_EQ(text, kNotWritten);
  EXPECT_EQ(file(), "/srv/old\n");
}

TEST_F(PublisherFileTest, PermissionsStayAndANewFileCanBeReadByAll) {
  mode_t former = ::umask(0);
  publish(folder_);
  ::umask(former);
  EXPECT_EQ(modeOf(exports_), "644");
  ASSERT_EQ(::chmod(exports_.c_str(), 0640), 0);
  unpublish(folder_);
  EXPECT_EQ(modeOf(exports_), "640");
  ASSERT_EQ(::unlink(exports_.c_str()), 0);
  former = ::umask(077);
  publish(root_ + "/other");
  ::umask(former);
  EXPECT_EQ(modeOf(exports_), "600");
}

TEST_F(PublisherFileTest, TheOwnerStays) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root, to give a file away";
  setFile("");
  ASSERT_EQ(::chown(exports_.c_str(), 65534, 65533), 0);
  publish(folder_);
  struct stat facts {};
  ASSERT_EQ(::stat(exports_.c_str(), &facts), 0);
  EXPECT_EQ(facts.st_uid, 65534U);
  EXPECT_EQ(facts.st_gid, 65533U);
}

TEST_F(PublisherFileTest, AProtectedFileIsLeftAloneWhereItsFolderIsOpen) {
  const std::string open = place_ + "/open";
  makeFolders(open);
  ASSERT_EQ(::chmod(open.c_str(), 0777), 0);
  writeFile(open + "/exports", "/srv/old\n");
  // Root's file is another's for the one who writes; one's own is protected by its mode.
  ASSERT_EQ(::chmod((open + "/exports").c_str(), ::geteuid() == 0 ? 0644 : 0444), 0);
  useExportsFile(open + "/exports");
  std::string text;
  withoutWritePermission(place_, [&] { text = failureOfWriting(); });
  EXPECT_EQ(text, std::string(kNotWritten) + " | " + open + "/exports): Permission denied\n");
  EXPECT_EQ(readFile(open + "/exports"), "/srv/old\n");
}

TEST_F(PublisherFileTest, AFolderThatMayNotBeWrittenLeavesTheFile) {
  setFile("/srv/old\n");
  ASSERT_EQ(::chmod(exports_.c_str(), 0666), 0);
  std::string text;
  withoutWritePermission(place_, [&] { text = failureOfWriting(); });
  EXPECT_EQ(text, expectedFailure("Permission denied"));
  EXPECT_EQ(file(), "/srv/old\n");
}

TEST_F(PublisherFileTest, AMissingFolderIsNamed) {
  useExportsFile(place_ + "/none/exports");
  EXPECT_EQ(failureOfWriting(),
            std::string(kNotWritten) + " | " + place_ + "/none/exports): No such file or directory\n");
}

TEST_F(PublisherFileTest, AFailureCarriesItsErrorAndType) {
  useExportsFile(place_ + "/none/exports");
  consoleOf([&] {
    try {
      publisher_->writeExportFile({});
      ADD_FAILURE() << "nothing was thrown";
    } catch (const plinth::CException& exception) {
      EXPECT_EQ(exception.getType(), 255);
      EXPECT_EQ(exception.getCode(), ENOENT);
    }
  });
  useExportsFile(place_);
  Lines read;
  try {
    publisher_->readExportFile(read);
    ADD_FAILURE() << "nothing was thrown";
  } catch (const plinth::CNSException& exception) {
    EXPECT_EQ(exception.getKind(), plinth::ExceptionKind::foundation);
    EXPECT_EQ(exception.getCode(), EINVAL);
  }
}

TEST_F(PublisherFileTest, AFileThatMayNotBeReadIsNotTakenForEmpty) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root, to become somebody else";
  setFile("/srv/old\n");
  ASSERT_EQ(::chmod(exports_.c_str(), 0600), 0);
  withoutWritePermission(place_, [&] { expectUnusable(expectedUnreadable("Permission denied")); });
  EXPECT_EQ(file(), "/srv/old\n");
}

TEST_F(PublisherFileTest, WhatIsNoRegularFileIsRefusedAtOnce) {
  ASSERT_EQ(::mkfifo(exports_.c_str(), 0666), 0);
  expectUnusable(expectedUnreadable("it is not a regular file"));
  EXPECT_EQ(failureOfWriting(), expectedFailure("it is not a regular file"));
  ASSERT_EQ(::unlink(exports_.c_str()), 0);
  ASSERT_EQ(::mkdir(exports_.c_str(), 0777), 0);
  expectUnusable(expectedUnreadable("it is not a regular file"));
  EXPECT_EQ(failureOfWriting(), expectedFailure("it is not a regular file"));
  EXPECT_THAT(beside(), ElementsAre("exports"));
}

TEST_F(PublisherFileTest, APathThatHoldsNULNamesNoFile) {
  useExportsFile(place_);
  const std::string path = exports_ + std::string("\0x", 2);
  publisher_->setExportsFilePath(CSTR(path));
  EXPECT_EQ(thrown([&] { publisher_->writeExportFile({}); }), kNotWritten);
  EXPECT_THAT(beside(), IsEmpty());
}

TEST_F(PublisherFileTest, ALinkIsFollowedAndStays) {
  makeFolders(place_ + "/real");
  writeFile(place_ + "/real/exports", "/srv/old\n");
  ASSERT_EQ(::symlink("real/exports", exports_.c_str()), 0);
  publish(folder_);
  EXPECT_EQ(readFile(place_ + "/real/exports"), "/srv/old\n" + folder_ + "\n");
  struct stat facts {};
  ASSERT_EQ(::lstat(exports_.c_str(), &facts), 0);
  EXPECT_TRUE(S_ISLNK(facts.st_mode));
}

TEST_F(PublisherFileTest, ALinkThatLeadsNowhereIsRefused) {
  ASSERT_EQ(::symlink("nowhere", exports_.c_str()), 0);
  expectUnusable(expectedUnreadable("it is a link that leads nowhere"));
  EXPECT_EQ(failureOfWriting(), expectedFailure("it is a link that leads nowhere"));
  ASSERT_EQ(::unlink(exports_.c_str()), 0);
  ASSERT_EQ(::symlink("exports", exports_.c_str()), 0);
  expectUnusable(expectedUnreadable("Too many levels of symbolic links"));
  EXPECT_FALSE(exists(place_ + "/nowhere"));
}

TEST_F(PublisherFileTest, AHugeFileIsUsedUpToItsLimitAndNotReadBeyond) {
  constexpr std::size_t kLimit = std::size_t{8} << 20U;
  std::string text;
  const std::string line = "/srv/" + std::string(94, 'x') + "\n";
  while (text.size() + line.size() <= kLimit - folder_.size() - 1) text += line;
  setFile(text);
  publish(folder_);
  EXPECT_TRUE(file() == text + folder_ + "\n");
  std::string failure;
  EXPECT_THAT(consoleOf([&] { failure = thrown([&] { publish(root_ + "/" + std::string(200, 'y')); }); }),
              HasSubstr("it is larger than 8 MiB"));
  EXPECT_EQ(failure, kNotWritten);
  EXPECT_TRUE(file() == text + folder_ + "\n");
  unpublish(folder_);
  EXPECT_TRUE(file() == text);

  ASSERT_EQ(::truncate(exports_.c_str(), off_t{1} << 40U), 0) << "a terabyte that takes no room";
  EXPECT_EQ(thrown([&] { publish(folder_); }), expectedUnreadable("it is larger than 8 MiB"));
}

TEST_F(PublisherFileTest, AFullDiskLeavesTheOldFile) {
  if (!useMemory("size=64k")) GTEST_SKIP() << "needs root, to mount a small file system";
  std::string old;
  while (old.size() < 34000) old += "/srv/foreign *(ro)\n";
  setFile(old);
  std::string failure;
  const std::string console = consoleOf([&] { failure = thrown([&] { publish(folder_); }); });
  EXPECT_EQ(failure, kNotWritten);
  EXPECT_THAT(console, HasSubstr("): No space left on device\n"));
  EXPECT_EQ(file(), old);
  EXPECT_THAT(beside(), ElementsAre("exports")) << "what was begun is removed";
  EXPECT_THAT(publisher_->getPublishedMap(), IsEmpty());

  setFile("/srv/foreign *(ro)\n");
  publish(folder_);
  EXPECT_EQ(file(), "/srv/foreign *(ro)\n" + folder_ + "\n") << "where there is room it works again";
}

TEST_F(PublisherFileTest, AFailedUnpublishCanBeRepeated) {
  publish(folder_);
  const std::string old = file();
  publisher_->before = [this] { useExportsFile(place_ + "/none/exports"); };
  consoleOf(
      [&] { EXPECT_EQ(thrown([&] { publisher_->_unpublish(CSTR(folder_), linesOf({folder_})); }), kNotWritten); });
  useExportsFile(exports_);
  publisher_->before = [] { throw plinth::CIOException("not now"); };
  EXPECT_EQ(thrown([&] { unpublish(folder_); }), "not now");
  EXPECT_EQ(file(), old);
  publisher_->before = [] {};
  unpublish(folder_);
  EXPECT_EQ(file(), "");
}

TEST_F(PublisherFileTest, AFileSizeLimitIsAnErrorAndNoSignal) {
  setFile("/srv/old\n");
  rlimit former{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &former), 0);
  rlimit small = former;
  small.rlim_cur = 12;
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
  const std::string text = thrown([&] { publisher_->writeExportFile(linesOf({"/srv/a", "/srv/b"})); });
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &former), 0);
  EXPECT_EQ(text, kNotWritten);
  EXPECT_EQ(file(), "/srv/old\n");
  EXPECT_THAT(beside(), ElementsAre("exports"));
}

TEST_F(PublisherFileTest, EveryPathMakesOneLineOrIsRefused) {
  setFile("/srv/foreign *(ro)\n");
  std::vector<std::string> names(std::begin(kHostileNames), std::end(kHostileNames));
  for (char character = 1; character > 0; ++character) {
    const bool isPlain = std::isalnum(static_cast<unsigned char>(character)) != 0 && character != 'a';
    if (character != '/' && !isPlain) names.push_back(std::string(1, character) + "x" + character);
    if (character == 127) break;
  }
  for (const std::string& name : names) {
    const std::string path = root_ + "/" + name;
    if (name.find('\n') != std::string::npos) {
      EXPECT_EQ(thrown([&] { publish(path); }), "3/0 Path [" + path + "] can't be published: it holds a line feed");
      EXPECT_FALSE(exists(path)) << "the folder is made";
      EXPECT_EQ(thrown([&] { unpublish(path); }), "3/2 entry [" + path + "] not present in publishedMap");
      EXPECT_EQ(thrown([&] { publisher_->_publish(CSTR(path), {}); }),
                "3/0 Path [" + path + "] can't be published: it holds a line feed");
    } else {
      publish(path);
      EXPECT_EQ(lines().size(), 2U) << name;
      EXPECT_EQ(find(lines(), path), 1) << name;
      unpublish(path);
    }
    EXPECT_EQ(file(), "/srv/foreign *(ro)\n") << name;
  }
}

TEST_F(PublisherFileTest, PathsThatWouldNotComeBackAreRefused) {
  const auto refused = [&](const std::string& path, const std::string& reason) {
    const std::string expected = "3/0 Path [" + path + "] can't be published: " + reason;
    EXPECT_EQ(thrown([&] { publisher_->_publish(CSTR(path), {}); }), expected);
    const CURLRef url = folderURL(path);
    if (pathOf(url) != path) return;  // the URL has made another path of it
    EXPECT_EQ(thrown([&] { publisher_->publish(url, CSTR("app"), 1); }), expected);
  };
  refused("/", "it is the root folder");
  refused("srv/a", "it is not absolute");
  for (const char* const path : {"/srv//a", "/srv/./a", "/srv/../a", "/srv/..", "/srv/.", "//srv", "/../srv"}) {
    refused(path, "it holds an empty, \".\" or \"..\" component");
  }
  EXPECT_EQ(thrown([&] { publisher_->_publish(nullptr, {}); }), "3/0 Path [] can't be published: it is not absolute");
  EXPECT_FALSE(exists(exports_));
}

}  // namespace
