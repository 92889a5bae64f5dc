// Several at once: editors and other publishers at the same exports file.
#include "platform/system/descriptor.h"
#include "tests/storage/publisher_support.h"

#include <gmock/gmock.h>
#include <sys/file.h>
#include <sys/wait.h>

#include <fstream>
#include <set>
#include <sstream>

namespace {

using namespace test;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class PublisherWritersTest : public PublisherTest {
 protected:
  const std::string folder_ = root_ + "/folder";
  // Lets somebody do something, once, between the moment at which the file was read and that at which it is written.
  void meanwhile(std::function<void()> action) {
    publisher_->before = [this, action = std::move(action)] {
      if (publisher_->publishes + publisher_->unpublishes == 1) action();
    };
  }
};

TEST_F(PublisherWritersTest, WhatAnEditorWroteMeanwhileSurvivesAPublish) {
  setFile("/srv/old\n");
  meanwhile([&] { setFile("/srv/edited *(ro)\n# new\n"); });
  publish(folder_);
  EXPECT_EQ(file(), "/srv/edited *(ro)\n# new\n" + folder_ + "\n");
  EXPECT_EQ(publisher_->publishes, 2) << "the change was made anew";
  EXPECT_EQ(countOf(folder_), 1);
}

TEST_F(PublisherWritersTest, WhatAnEditorWroteMeanwhileSurvivesAnUnpublish) {
  setFile("/srv/old\n" + folder_ + "\n/srv/last\n");
  meanwhile([&] { setFile("/srv/edited\n" + folder_ + "\n"); });
  unpublish(folder_);
  EXPECT_EQ(file(), "/srv/edited\n");
  EXPECT_EQ(publisher_->unpublishes, 2);
}

TEST_F(PublisherWritersTest, SomebodyElsesLineForTheSameFolderIsNotRepeated) {
  meanwhile([&] { setFile(folder_ + "\n"); });
  publish(folder_);
  EXPECT_EQ(file(), folder_ + "\n");
}

TEST_F(PublisherWritersTest, ALineThatGoesMeanwhileIsNotMissed) {
  setFile("/srv/a\n" + folder_ + "\n");
  meanwhile([&] { setFile("/srv/a\n"); });
  unpublish(folder_);
  EXPECT_EQ(file(), "/srv/a\n");
}

TEST_F(PublisherWritersTest, AFileThatGoesMeanwhileIsWrittenAfresh) {
  setFile("/srv/a\n");
  meanwhile([&] { ASSERT_EQ(::unlink(exports_.c_str()), 0); });
  publish(folder_);
  EXPECT_EQ(file(), folder_ + "\n");
}

TEST_F(PublisherWritersTest, AFolderInItsPlaceMeanwhileIsAFailure) {
  setFile("/srv/a\n");
  meanwhile([&] {
    ASSERT_EQ(::unlink(exports_.c_str()), 0);
    ASSERT_EQ(::mkdir(exports_.c_str(), 0777), 0);
  });
  consoleOf([&] { EXPECT_EQ(thrown([&] { publish(folder_); }), kNotWritten); });
  EXPECT_THAT(publisher_->getPublishedMap(), IsEmpty());
}

TEST_F(PublisherWritersTest, AFileThatNeverStandsStillIsAFailureAndKeepsWhatWasWritten) {
  int edits = 0;
  publisher_->before = [&] { setFile("/srv/edit" + std::to_string(++edits) + "\n"); };
  std::string text;
  EXPECT_THAT(consoleOf([&] { text = thrown([&] { publish(folder_); }); }),
              HasSubstr("writeExportFile(" + exports_ + "): others change it all the time\n"));
  EXPECT_EQ(text, kNotWritten);
  EXPECT_GT(edits, 10);
  EXPECT_EQ(file(), "/srv/edit" + std::to_string(edits) + "\n");
  EXPECT_THAT(publisher_->getPublishedMap(), IsEmpty());
}

TEST_F(PublisherWritersTest, OthersStayAwayFromReadingToWriting) {
  const platform::Descriptor other = platform::Descriptor::open(place_.c_str(), O_RDONLY | O_DIRECTORY);
  int refusals = 0;
  publisher_->before = [&] {
    refusals += ::flock(other.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK ? 1 : 0;
  };
  publish(folder_);
  unpublish(folder_);
  EXPECT_EQ(refusals, 2);
  EXPECT_EQ(::flock(other.get(), LOCK_EX | LOCK_NB), 0) << "the turn is given back";
}

TEST_F(PublisherWritersTest, OneWhoNeverGivesTheTurnBackHoldsNobodyUp) {
  const platform::Descriptor other = platform::Descriptor::open(place_.c_str(), O_RDONLY | O_DIRECTORY);
  ASSERT_EQ(::flock(other.get(), LOCK_EX), 0);
  publish(folder_);
  EXPECT_EQ(file(), folder_ + "\n");
}

TEST_F(PublisherWritersTest, PublishersOfSeveralProcessesLoseNothing) {
  constexpr int kProcesses = 4;
  constexpr int kFolders = 15;
  setFile("# the administrator's\n");
  std::vector<pid_t> children;
  for (int process = 0; process < kProcesses; ++process) {
    children.push_back(::fork());
    if (children.back() != 0) continue;
    const std::string mine = root_ + "/" + std::to_string(process) + " ";
    for (int folder = 0; folder < kFolders; ++folder) {
      publish(mine + std::to_string(folder));
      if (folder % 2 != 0) unpublish(mine + std::to_string(folder));
    }
    ::_exit(0);
  }
  for (const pid_t child : children) {
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
  }
  std::set<std::string> expected = {"# the administrator's"};
  for (int process = 0; process < kProcesses; ++process) {
    for (int folder = 0; folder < kFolders; folder += 2) {
      expected.insert(root_ + "/" + std::to_string(process) + "\\ " + std::to_string(folder));
    }
  }
  std::set<std::string> seen;
  std::istringstream text(file());
  for (std::string line; std::getline(text, line);) EXPECT_TRUE(seen.insert(line).second) << "twice: " << line;
  EXPECT_EQ(seen, expected);
}

}  // namespace
