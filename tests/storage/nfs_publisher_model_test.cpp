// Random publishing and giving back by many clients and processes against a plain model, with clients that are killed,
// editors and restarts of the publisher in between: the map, the counts and every line of the file are what the model
// says.
#include "tests/storage/publisher_support.h"
#include "tests/storage/reference_model.h"

#include <chrono>
#include <map>
#include <random>

namespace {

using namespace test;

class PublisherModelTest : public PublisherTest, public ::testing::WithParamInterface<unsigned> {
 protected:
  void SetUp() override {
    useMemory();
    setFile("# the administrator's\n/srv/www *(ro)\n\n");
    lines_ = {"# the administrator's", "/srv/www *(ro)", ""};
    start();
  }
  unsigned below(unsigned limit) { return static_cast<unsigned>(random_() % limit); }
  std::string somePath() { return root_ + "/f " + std::to_string(below(6)); }
  static const char* someClient(unsigned number) {
    constexpr const char* kClients[] = {"app", "jobs", "agent one", "\xC3\xA9"};
    return kClients[number % 4];
  }
  void start() {
    publisherNow_ = plinth::makeShared<OpenPublisher>();
    publisherNow_->setExportsFilePath(CSTR(exports_));
    entries_.clear();
  }
  static std::string escaped(const std::string& path) { return CSTR(path)->shellEscapedFilename()->str(); }
  auto lineOf(const std::string& path) { return std::find(lines_.begin(), lines_.end(), escaped(path)); }
  bool hasLine(const std::string& path) { return lineOf(path) != lines_.end(); }

  void publishOne(const std::string& path, const char* client, int pid) {
    publisherNow_->publish(folderURL(path), CSTR(client), pid);
    if (!hasLine(path)) {
      entries_.erase(path);
      lines_.push_back(escaped(path));
    }
    entries_[path].add(client, pid);
  }
  // By anybody, whether they hold anything or not.
  void giveBackOne(const std::string& path, const char* client, int pid) {
    const bool isKnown = entries_.count(path) != 0;
    const std::string answer = thrown([&] { publisherNow_->unpublish(folderURL(path), CSTR(client), pid); });
    if (!isKnown && !hasLine(path)) {
      ASSERT_EQ(answer, "3/2 entry [" + path + "] not present in publishedMap");
      return;
    }
    ASSERT_EQ(answer, "nothing");
    if (isKnown) entries_[path].giveBack(client, pid);
    if (isKnown && entries_[path].live != 0) return;
    entries_.erase(path);
    if (hasLine(path)) lines_.erase(lineOf(path));
  }
  // Somebody takes a line off, or adds one of their own.
  void edit() {
    const std::string path = somePath();
    if (hasLine(path)) {
      lines_.erase(lineOf(path));
    } else {
      lines_.insert(lines_.begin() + below(static_cast<unsigned>(lines_.size()) + 1),
                    below(2) == 0 ? escaped(path) : "/srv/other" + std::to_string(below(3)) + " *(ro)");
    }
    if (lines_.size() > 12) lines_.erase(std::remove(lines_.begin(), lines_.end(), "/srv/other0 *(ro)"), lines_.end());
    setFile(fileOfModel());
  }
  std::string fileOfModel() const {
    std::string text;
    for (const std::string& line : lines_) text += line + "\n";
    return text;
  }
  void step() {
    const unsigned choice = below(100);
    const std::string path = somePath();
    const char* const client = someClient(below(4));
    const int pid = 100 + static_cast<int>(below(3));
    if (choice < 40) {
      publishOne(path, client, pid);
    } else if (choice < 88) {
      giveBackOne(path, client, below(4) == 0 ? -1 : pid);
    } else if (choice < 94) {
      publisherNow_->processTerminated(pid);  // killed: its clients keep what they hold
    } else if (choice < 98) {
      edit();
    } else if (choice == 98) {
      start();
    } else {
      publisherNow_->cleanExports();  // none of these lines is the system's own by its name
    }
  }
  // Empty when all is as the model says.
  std::string difference() const {
    if (file() != fileOfModel()) return "the file is\n" + file() + "instead of\n" + fileOfModel();
    const auto map = publisherNow_->getPublishedMap();
    if (map.size() != entries_.size()) return std::to_string(map.size()) + " entries";
    for (const auto& [path, model] : entries_) {
      const auto found = map.find(path);
      if (found == map.end()) return "no entry for " + path;
      if (textOf(found->second) != model.text()) return textOf(found->second) + " instead of " + model.text();
    }
    return {};
  }

  std::mt19937 random_{GetParam()};
  plinth::CSharedObjectRef<OpenPublisher> publisherNow_;
  std::map<std::string, Model> entries_;
  std::vector<std::string> lines_;
};

TEST_P(PublisherModelTest, MapCountsAndLinesAreTheModels) {
  using Clock = std::chrono::steady_clock;
  constexpr int kFewest = 200;
  const auto end = Clock::now() + std::chrono::milliseconds(900);
  const Quiet quiet;
  int steps = 0;
  for (; steps < kFewest || Clock::now() < end; ++steps) {
    step();
    const std::string wrong = difference();
    ASSERT_TRUE(wrong.empty() && !HasFatalFailure()) << "seed " << GetParam() << ", step " << steps << ": " << wrong;
  }
  RecordProperty("steps", steps);
}

INSTANTIATE_TEST_SUITE_P(Seeds, PublisherModelTest, ::testing::Values(1U, 2U, 3U));

}  // namespace
