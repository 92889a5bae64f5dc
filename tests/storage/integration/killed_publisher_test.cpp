// A publisher that is killed at any system call leaves the old exports file or the new one, and the next run goes on
// from there.
#include "tests/storage/publisher_support.h"
#include "tests/support/kill_at_call.h"

#include <map>

namespace {

using namespace test;

class KilledPublisherTest : public PublisherTest {
 protected:
  void SetUp() override { useMemory(); }

  const std::string folder_ = root_ + "/folder";
  const std::string foreign_ = "# the administrator's\n/srv/www *(ro)";
  const std::string without_ = foreign_ + "\n";
  const std::string with_ = without_ + folder_ + "\n";
  std::map<std::string, int> found_;

  template <class Prepare, class Work, class Continue>
  void killEverywhere(Prepare prepare, Work work, Continue goOn) {
    for (int stop = 1;; ++stop) {
      ASSERT_LT(stop, 2000) << "it never ends";
      prepare();
      const bool isKilled = killAtCall(
          stop, [] {}, work);
      ++found_[file()];
      goOn();
      if (!isKilled) return;
    }
  }
};

TEST_F(KilledPublisherTest, PublishingLeavesTheOldFileOrTheNewOne) {
  killEverywhere(
      [&] {
        setFile(foreign_);
        std::filesystem::remove_all(folder_);
      },
      [&] { publish(folder_); },
      [&] {
        const auto next = plinth::makeShared<OpenPublisher>();
        next->setExportsFilePath(CSTR(exports_));
        next->publish(folderURL(folder_), CSTR("app"), 1);
        ASSERT_EQ(file(), with_) << "the next run";
      });
  EXPECT_EQ(found_.size(), 2U) << ::testing::PrintToString(found_);
  EXPECT_GT(found_[foreign_], 20) << ::testing::PrintToString(found_);
  EXPECT_GE(found_[with_], 2) << ::testing::PrintToString(found_);
}

TEST_F(KilledPublisherTest, UnpublishingLeavesTheOldFileOrTheNewOne) {
  makeFolders(folder_);
  killEverywhere([&] { setFile(with_); }, [&] { unpublish(folder_); },
                 [&] {
                   const auto next = plinth::makeShared<OpenPublisher>();
                   next->setExportsFilePath(CSTR(exports_));
                   const std::string before = file();
                   const std::string answer = thrown([&] { next->unpublish(folderURL(folder_), CSTR("app"), 1); });
                   ASSERT_EQ(answer == "nothing", before == with_) << answer;
                   ASSERT_EQ(file(), without_) << "the next run";
                 });
  EXPECT_EQ(found_.size(), 2U) << ::testing::PrintToString(found_);
  EXPECT_GT(found_[with_], 10) << ::testing::PrintToString(found_);
  EXPECT_GE(found_[without_], 2) << ::testing::PrintToString(found_);
}

}  // namespace
