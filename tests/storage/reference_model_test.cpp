// Random publishing and giving back against a plain model: counts are never negative, and an entry goes exactly when
// its last reference does.
#include <tovan/shared_storage_entries.h>

#include "tests/storage/reference_model.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace {

using test::Model;
using test::Quiet;
using test::textOf;

class ReferenceModelTest : public ::testing::TestWithParam<unsigned> {
 protected:
  std::mt19937 random_{GetParam()};
  tovan::CSharedStoragePublishedMap map_;
  std::map<std::string, Model> models_;

  unsigned below(unsigned limit) { return static_cast<unsigned>(random_() % limit); }

  void take(const std::string& path, const std::string& client, int pid) {
    const auto name = test::str(client);
    const auto found = map_.find(path);
    if (found != map_.end()) {
      found->second.addReference(name.get(), pid);
    } else {
      map_.emplace(path, tovan::CSharedStoragePublishedEntry(name.get(), test::str(path).get(), pid));
    }
    models_[path].add(client, pid);
  }
  void giveBack(const std::string& path, const std::string& client, int pid) {
    const auto found = map_.find(path);
    ASSERT_NE(found, map_.end());
    models_[path].giveBack(client, pid);
    const std::int32_t left = found->second.deleteReference(test::str(client).get(), pid);
    ASSERT_EQ(left, models_[path].live);
    ASSERT_GE(left, 0);
    if (left == 0) map_.erase(found);
    if (models_[path].live == 0) models_.erase(path);
  }
};

// Few folders, clients and processes meet often.
TEST_P(ReferenceModelTest, EntryGoesExactlyWhenItsLastReferenceDoes) {
  constexpr int kSteps = 200000;  // a million with five seeds
  int gone = 0;
  int mostTicks = 0;
  const Quiet quiet;
  for (int step = 0; step < kSteps && !HasFatalFailure(); ++step) {
    const std::string path = "/folder" + std::to_string(below(4));
    const std::string client = "client" + std::to_string(below(3));
    const int pid = below(4) == 0 ? -1 : static_cast<int>(100 + below(3));
    if (map_.count(path) == 0 || below(100) < 30) {
      take(path, client, pid == -1 ? 100 : pid);
    } else if (below(20) == 0) {
      map_.find(path)->second.deleteReferences(pid);  // there are clients: nothing goes
    } else {
      giveBack(path, client, pid);
      if (map_.count(path) == 0) ++gone;
    }
    ASSERT_EQ(map_.count(path), models_.count(path)) << "step " << step << ", " << path;
    if (map_.count(path) == 0) continue;
    mostTicks = std::max(mostTicks, models_[path].ticks);
    ASSERT_EQ(textOf(map_.find(path)->second), models_[path].text()) << "step " << step << ", " << path;
  }
  EXPECT_GT(gone, 100) << "hardly an entry came to its end";
  EXPECT_GT(mostTicks, 1) << "hardly a tick was given back";
}

INSTANTIATE_TEST_SUITE_P(Seeds, ReferenceModelTest, ::testing::Values(1U, 2U, 3U, 4U, 5U));

}  // namespace
