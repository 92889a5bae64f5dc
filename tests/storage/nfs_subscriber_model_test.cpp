// Random operations against a plain model of who holds which mount.
#include <algorithm>
#include <map>
#include <random>
#include <set>
#include <vector>

#include "tests/storage/nfs_subscriber_support.h"

namespace {

using namespace test;

// What is mounted, and commands that fail when told to. A mount point may be mounted on more than once.
class Host : public tovan::CNFSSharedStorageSubscriber {
 public:
  void _subscribe(const CURLRef&, const CStringRef& mountPath) override {
    if (fails) throw tovan::ISharedStorageException(tovan::kSharedStorageExceptionExchange, 12, "no mount");
    ++mounted[mountPath->str()];
  }
  void _unsubscribe(const CURLRef&, const CStringRef& mountPath) override {
    if (fails) throw tovan::ISharedStorageException(tovan::kSharedStorageExceptionExchange, 12, "no unmount");
    if (--mounted[mountPath->str()] <= 0) mounted.erase(mountPath->str());
  }

  bool fails = false;
  std::map<std::string, int> mounted;
};

// The references of each mount point by client: the process ids.
using Holders = std::map<std::string, std::vector<long>>;
using Model = std::map<std::string, Holders>;

std::string textOfModel(const Model& model) {
  std::string text;
  for (const auto& [mountPoint, holders] : model) {
    std::size_t count = 0;
    for (const auto& [client, pids] : holders) count += pids.size();
    text += mountPoint + " " + std::to_string(count) + " ";
  }
  return text;
}

class NFSSubscriberModelTest : public ::testing::TestWithParam<unsigned> {
 protected:
  std::size_t below(std::size_t limit) { return random_() % limit; }
  std::string anyMountPoint() { return mnt_ + "/" + std::to_string(below(4)); }
  std::string anyClient() { return "client" + std::to_string(below(3)); }
  long anyPid() { return 100 + static_cast<long>(below(3)); }

  // Whether it threw.
  template <class Action>
  bool fails(Action&& action) {
    return thrown(action) != "nothing";
  }

  void subscribe() {
    const std::string mountPoint = anyMountPoint();
    const std::string client = anyClient();
    const long pid = anyPid();
    const bool isNew = model_.count(mountPoint) == 0;
    const bool failed = fails([&] { host_->subscribe(urlOf("nfs://host/srv"), CSTR(mountPoint), CSTR(client), pid); });
    ASSERT_EQ(failed, isNew && host_->fails);
    if (failed) return;
    model_[mountPoint][client].push_back(pid);
    if (isNew) ++mounted_[mountPoint];
  }

  void unsubscribe() {
    const std::string mountPoint = anyMountPoint();
    const std::string client = anyClient();
    const long pid = anyPid();
    bool unmounts = true;
    if (const auto entry = model_.find(mountPoint); entry != model_.end()) {
      std::vector<long>& pids = entry->second[client];
      if (const auto held = std::find(pids.begin(), pids.end(), pid); held != pids.end()) pids.erase(held);
      if (pids.empty()) entry->second.erase(client);
      unmounts = entry->second.empty();
      if (unmounts) model_.erase(entry);
    }
    const bool failed = fails([&] { host_->unsubscribe(CURLRef(), CSTR(mountPoint), CSTR(client), pid); });
    ASSERT_EQ(failed, unmounts && host_->fails);
    if (unmounts && !failed) unmount(mountPoint);
  }

  void clean() {
    const bool failed = fails([&] { host_->cleanMounts(); });
    ASSERT_EQ(failed, host_->fails && !model_.empty());
    for (const auto& [mountPoint, holders] : model_) {
      if (!failed) unmount(mountPoint);
    }
    model_.clear();
  }

  void unmount(const std::string& mountPoint) {
    if (--mounted_[mountPoint] <= 0) mounted_.erase(mountPoint);
  }

  const std::string mnt_ = scratchFolder("mnt");
  const plinth::CSharedObjectRef<Host> host_ = plinth::makeShared<Host>();
  Model model_;
  std::map<std::string, int> mounted_;
  std::mt19937 random_{GetParam()};
};

TEST_P(NFSSubscriberModelTest, WhatIsHeldAndMountedIsWhatTheModelSays) {
  constexpr int kSteps = 10000;
  int failures = 0;
  testing::internal::CaptureStderr();  // a line for each reference that nobody held
  for (int step = 0; step < kSteps && !HasFatalFailure(); ++step) {
    host_->fails = below(5) == 0;
    failures += host_->fails ? 1 : 0;
    const std::size_t choice = below(100);
    if (choice < 45) {
      subscribe();
    } else if (choice < 98) {
      unsubscribe();
    } else if (choice < 99) {
      clean();
    } else {
      host_->processTerminated(anyPid());  // every entry has clients: nothing goes
    }
    ASSERT_EQ(textOf(host_->getSubscribedMap()), textOfModel(model_)) << "step " << step;
    ASSERT_EQ(host_->mounted, mounted_) << "step " << step;
  }
  testing::internal::GetCapturedStderr();
  EXPECT_GT(failures, kSteps / 10);
}

INSTANTIATE_TEST_SUITE_P(Seeds, NFSSubscriberModelTest, ::testing::Values(1U, 2U, 3U));

// The same with real commands, which keep a file for each mount and fail while a file says so. After a failure or not,
// an entry without a mount there is none.
TEST(NFSSubscriberCommandsModelTest, EveryEntryIsMounted) {
  const StubMounts tools;
  const std::string mnt = scratchFolder("mnt");
  const std::string table = scratchFolder("mounted");
  const std::string fail = "[ -e \"$here/fail\" ] && exit 32\n";
  tools.makeTool("mount", fail + "[ -e \"" + table + "/${4##*/}\" ] && exit 16; : > \"" + table + "/${4##*/}\"");
  tools.makeTool("umount", fail + "[ -e \"" + table + "/${2##*/}\" ] || exit 22; rm \"" + table + "/${2##*/}\"");
  const auto subscriber = plinth::makeShared<tovan::CNFSSharedStorageSubscriber>();
  std::mt19937 random(7);
  int failures = 0;
  testing::internal::CaptureStderr();
  for (int step = 0; step < 400; ++step) {
    if (random() % 4 == 0) {
      writeFile(tools.folder() + "/fail", "");
    } else {
      std::filesystem::remove(tools.folder() + "/fail");
    }
    const CStringRef mountPoint = CSTR(mnt + "/" + std::to_string(random() % 3));
    const CStringRef client = CSTR("client" + std::to_string(random() % 2));
    const bool isMount = random() % 3 == 0;
    const std::string failure = thrown([&] {
      isMount ? subscriber->subscribe(urlOf("nfs://host/srv"), mountPoint, client, 1)
              : subscriber->unsubscribe(CURLRef(), mountPoint, client, 1);
    });
    failures += failure != "nothing" ? 1 : 0;
    for (const auto& [key, entry] : subscriber->getSubscribedMap()) {
      ASSERT_GT(entry.refCount(), 0) << "step " << step;
      ASSERT_TRUE(exists(table + key.substr(key.rfind('/'))))
          << key << " is not mounted, step " << step << ", " << failure;
    }
  }
  std::filesystem::remove(tools.folder() + "/fail");
  subscriber->cleanMounts();
  testing::internal::GetCapturedStderr();
  EXPECT_GT(failures, 40);
  EXPECT_TRUE(subscriber->getSubscribedMap().empty());
}

}  // namespace
