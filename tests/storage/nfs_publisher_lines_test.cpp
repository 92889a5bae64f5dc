// Which line of the exports file exports a path, and which lines are the system's own.
#include "tests/storage/publisher_support.h"

#include <gmock/gmock.h>

namespace {

using namespace test;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

class PublisherLinesTest : public PublisherTest {
 protected:
  const std::string folder_ = root_ + "/folder";
};

TEST_F(PublisherLinesTest, APathIsFoundByItsEscapedForm) {
  EXPECT_EQ(find({"# /srv/a b", "/srv/a\\ b", "/srv/a\\ b"}, "/srv/a b"), 1);
  EXPECT_EQ(find({"/srv/a b"}, "/srv/a b"), -1);
  EXPECT_EQ(find({}, "/srv/a"), -1);
  EXPECT_EQ(find({"", "/srv", " /srv/a", "\"/srv/a\"", "/SRV/A"}, "/srv/a"), -1);
}

TEST_F(PublisherLinesTest, ABlankOrTabEndsThePath) {
  EXPECT_EQ(find({"/srv/a host(rw)"}, "/srv/a"), 0);
  EXPECT_EQ(find({"/srv/a\t-ro"}, "/srv/a"), 0);
  for (const char* const other :
       {"/srv/ab", "/srv/a/b", "/srv/a\\ b", "/srv/a\\\\", "/srv/a\r", "/srv/a#x", "/srv/a,b"}) {
    EXPECT_EQ(find({other}, "/srv/a"), -1) << other;
  }
}

TEST_F(PublisherLinesTest, SevenMoreCharactersMatchUnlessAllLinesAreOurs) {
  for (const char* const line : {"/srv/a/shared", "/srv/a-backup", "/srv/a\xC3\xA9\xC3\xA9/1234"}) {
    publisher_->setAllLinesAreOurs(false);
    EXPECT_EQ(find({line}, "/srv/a"), 0) << line;
    publisher_->setAllLinesAreOurs(true);
    EXPECT_EQ(find({line}, "/srv/a"), -1) << line;
  }
  publisher_->setAllLinesAreOurs(false);
  EXPECT_EQ(find({"/srv/a/share", "/srv/a/shared2"}, "/srv/a"), -1) << "six and eight";
  publisher_->setAllLinesAreOurs(true);
  EXPECT_EQ(find({"/srv/a", "/srv/b -ro"}, "/srv/b"), 1) << "the other matches stay";
}

TEST_F(PublisherLinesTest, TheBestMatchIsTakenWhereverItStands) {
  EXPECT_EQ(find({"/srv/a/shared", "/srv/a -ro", "/srv/a"}, "/srv/a"), 2);
  EXPECT_EQ(find({"/srv/a/shared", "/srv/a -ro"}, "/srv/a"), 1);
  EXPECT_EQ(find({"/srv/a-backup", "/srv/a/shared"}, "/srv/a"), 0) << "the first of equals";
}

TEST_F(PublisherLinesTest, ALineThatContinuesAnotherIsNone) {
  EXPECT_EQ(find({"/srv/x \\", "/srv/a"}, "/srv/a"), -1);
  EXPECT_EQ(find({"/srv/x \\", "\\", "/srv/a", "/srv/a"}, "/srv/a"), 3);
  EXPECT_EQ(find({"/srv/x\\\\", "/srv/a"}, "/srv/a"), 1) << "an escaped backslash ends its line";
  EXPECT_EQ(find({"/srv/a \\", "host(rw)"}, "/srv/a"), 0);
}

TEST_F(PublisherLinesTest, HoldingAStorageFoldersNamesMakesALineOurs) {
  EXPECT_TRUE(isOwn("/srv/0123abcd-89ef0123/shared"));
  EXPECT_TRUE(isOwn("/0123ABCD-89EF0123/shared"));
  EXPECT_TRUE(isOwn("/srv/0123abcd-89ef0123/shared -ro"));
  EXPECT_TRUE(isOwn("/srv/0123abcd-89ef0123/sharedness"));
  EXPECT_TRUE(isOwn("/shared/x/shared/0123abcd-89ef0123/shared")) << "not the first of them";
  EXPECT_TRUE(isOwn("# /srv/0123abcd-89ef0123/shared"));
  EXPECT_TRUE(isOwn("/srv/my\\ disk/0123abcd-89ef0123/shared"));
}

TEST_F(PublisherLinesTest, OneWrongDigitMakesALineForeign) {
  const std::string name = "/0123abcd-89ef0123";
  EXPECT_TRUE(isOwn(name + "/shared"));
  for (std::size_t place = 0; place < name.size(); ++place) {
    std::string other = name;
    other[place] = 'g';
    EXPECT_FALSE(isOwn(other + "/shared")) << other;
  }
  for (const char* const line :
       {"", "/shared", "123abcd-89ef0123/shared", "0123abcd-89ef0123/shared", "/0123abcd-89ef0123/Shared",
        "/0123abcd-89ef01234/shared", "/00123abcd-89ef0123/shared", "/0123abcd-89ef0123//shared", "/srv/export"}) {
    EXPECT_FALSE(isOwn(line)) << line;
  }
}

TEST_F(PublisherLinesTest, ASubexportIsOurs) {
  EXPECT_TRUE(isOwn("/srv/movies/.mvsubexp"));
  EXPECT_TRUE(isOwn("/.mvsubexp/below -ro"));
  EXPECT_FALSE(isOwn("/srv/movies.mvsubexp"));
}

TEST_F(PublisherLinesTest, EveryLineButAnEmptyOneIsOursWhenAllAre) {
  publisher_->setAllLinesAreOurs(true);
  EXPECT_TRUE(isOwn("/srv/export"));
  EXPECT_TRUE(isOwn("# a comment"));
  EXPECT_FALSE(isOwn(""));
  EXPECT_FALSE(publisher_->isMervaneExportEntry(nullptr));
}

TEST_F(PublisherLinesTest, CleaningRemovesOwnLinesAlone) {
  setFile(
      "# first\n/srv/0123abcd-89ef0123/shared\n\n/srv/www *(ro)\n/srv/x/.mvsubexp\n/srv/0123abcg-89ef0123/shared\n");
  publisher_->cleanExports();
  EXPECT_EQ(file(), "# first\n\n/srv/www *(ro)\n/srv/0123abcg-89ef0123/shared\n");
  publisher_->setAllLinesAreOurs(true);
  publisher_->cleanExports();
  EXPECT_EQ(file(), "\n");
}

TEST_F(PublisherLinesTest, CleaningLeavesTheMapAndAFileWithoutOwnLines) {
  publish(folder_);
  setFile("/srv/www *(ro)");
  publisher_->cleanExports();
  EXPECT_EQ(file(), "/srv/www *(ro)") << "not even a line feed is added";
  EXPECT_EQ(countOf(folder_), 1);
  ASSERT_EQ(::unlink(exports_.c_str()), 0);
  publisher_->cleanExports();
  EXPECT_FALSE(exists(exports_));
}

TEST_F(PublisherLinesTest, CleaningTakesAnEntryWhole) {
  setFile("/srv/0123abcd-89ef0123/shared \\\n host1 \\\n host2\n/srv/www \\\n /srv/0123abcd-89ef0123/shared\n");
  publisher_->cleanExports();
  EXPECT_EQ(file(), "/srv/www \\\n /srv/0123abcd-89ef0123/shared\n");
}

TEST_F(PublisherLinesTest, UnpublishingTakesAnEntryWholeAndNoOther) {
  setFile("/srv/www \\\n" + folder_ + "\n" + folder_ + " \\\n 192.0.2.1\n/srv/last\n");
  unpublish(folder_);
  EXPECT_EQ(file(), "/srv/www \\\n" + folder_ + "\n/srv/last\n");
}

TEST_F(PublisherLinesTest, NothingIsAppendedToAnEntryThatGoesOn) {
  setFile("/srv/www \\\n");
  publish(folder_);
  EXPECT_EQ(file(), "/srv/www \\\n\n" + folder_ + "\n");
  unpublish(folder_);
  publish(folder_);
  EXPECT_EQ(file(), "/srv/www \\\n\n" + folder_ + "\n") << "one empty line is enough";
}

TEST_F(PublisherLinesTest, APathThatEndsInABackslashTakesNoOtherIn) {
  publish(root_ + "/back\\");
  publish(folder_);
  EXPECT_EQ(file(), root_ + "/back\\\\\n" + folder_ + "\n");
  unpublish(root_ + "/back\\");
  EXPECT_EQ(file(), folder_ + "\n");
}

TEST_F(PublisherLinesTest, NeighboursDoNotStandForOneAnother) {
  publish(root_ + "/film-backup");
  publish(root_ + "/film");
  EXPECT_EQ(file(), root_ + "/film-backup\n" + root_ + "/film\n");
  unpublish(root_ + "/film");
  EXPECT_EQ(file(), root_ + "/film-backup\n");
  EXPECT_EQ(thrown([&] { unpublish(root_ + "/film"); }), "3/2 entry [" + root_ + "/film] not present in publishedMap");
}

TEST_F(PublisherLinesTest, TheSharedFolderInsideStandsForItsParentUnlessItIsPublishedItself) {
  setFile(folder_ + "/shared\n");
  publish(folder_);
  EXPECT_EQ(file(), folder_ + "/shared\n") << "it stands for the folder";
  unpublish(folder_);
  EXPECT_EQ(file(), "");

  publish(folder_ + "/shared");
  publish(folder_);
  EXPECT_EQ(file(), folder_ + "/shared\n" + folder_ + "\n");
  unpublish(folder_);
  EXPECT_EQ(file(), folder_ + "/shared\n") << "somebody else's export stays";

  publisher_->setAllLinesAreOurs(true);
  publish(folder_);
  EXPECT_EQ(file(), folder_ + "/shared\n" + folder_ + "\n");
}

TEST_F(PublisherLinesTest, ALineWithHostsCountsAndGoes) {
  setFile(folder_ + " 192.0.2.1(rw)\n");
  publish(folder_);
  EXPECT_EQ(file(), folder_ + " 192.0.2.1(rw)\n");
  unpublish(folder_);
  EXPECT_EQ(file(), "");
}

TEST_F(PublisherLinesTest, TheLineAloneGoesBeforeOneWithHosts) {
  setFile(folder_ + " 192.0.2.1(rw)\n" + folder_ + "\n");
  unpublish(folder_);
  EXPECT_EQ(file(), folder_ + " 192.0.2.1(rw)\n");
}

TEST_F(PublisherLinesTest, EqualLinesGoTogether) {
  setFile(folder_ + "\n/srv/b\n" + folder_ + "\n" + folder_ + "\n");
  unpublish(folder_);
  EXPECT_EQ(file(), "/srv/b\n");
}

TEST_F(PublisherLinesTest, SeveralPathsGoAtOnce) {
  publisher_->_unpublish(Lines{CSTR("/srv/a"), CSTR("/srv/c d"), CSTR("/srv/none")},
                         linesOf({"/srv/a", "/srv/b", "/srv/c\\ d", "/srv/b", "/srv/a"}));
  EXPECT_EQ(file(), "/srv/b\n/srv/b\n");
  publisher_->_unpublish(Lines{CSTR("/srv/none")}, linesOf({"/srv/x"}));
  EXPECT_EQ(file(), "/srv/b\n/srv/b\n") << "nothing to take off, nothing written";
}

TEST_F(PublisherLinesTest, TheEscapedFormIsThatOfAShellWord) {
  EXPECT_EQ(publisher_->escapedFilePath(CSTR("/srv/a b'$"))->str(), "/srv/a\\ b\\'\\$");
  EXPECT_EQ(publisher_->escapedFilePath(nullptr)->str(), "''");
}

TEST_F(PublisherLinesTest, TellingTheServerDoesNothing) {
  setFile("/srv/a\n");
  publisher_->updateNFSDaemons();
  EXPECT_EQ(file(), "/srv/a\n");
  EXPECT_THAT(beside(), ElementsAre("exports"));
}

}  // namespace
