// Which processes hold something of the storage, and which of them have ended.
#include "tools/mervaned/holders.h"

#include <CoreFoundation/CoreFoundation.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/sched.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <tovan/cf_util.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace {

using mervaned::Holder;
using mervaned::holdersInTable;
using mervaned::HolderWatch;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using tovan::CFUtil;

// A child that does nothing until it is ended.
class Sleeper {
 public:
  explicit Sleeper(pid_t number = 0) {
    clone_args arguments{};
    arguments.exit_signal = SIGCHLD;
    if (number != 0) {
      arguments.set_tid = reinterpret_cast<std::uint64_t>(&number);
      arguments.set_tid_size = 1;
    }
    pid_ = static_cast<pid_t>(::syscall(SYS_clone3, &arguments, sizeof arguments));
    if (pid_ != 0) return;
    for (;;) ::pause();
  }
  ~Sleeper() { end(); }
  Sleeper(const Sleeper&) = delete;
  Sleeper& operator=(const Sleeper&) = delete;

  pid_t pid() const { return pid_; }
  // Leaves nothing of the process.
  void end() {
    if (pid_ <= 0) return;
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
    pid_ = 0;
  }

 private:
  pid_t pid_ = 0;
};

auto isHolder(const std::string& client, std::int32_t pid, std::int32_t count) {
  return testing::AllOf(testing::Field(&Holder::client, client), testing::Field(&Holder::pid, pid),
                        testing::Field(&Holder::count, count));
}

TEST(HoldersTest, AProcessThatHoldsSeveralTimesIsOneHolder) {
  const plinth::CSharedCFRef<CFMutableDictionaryRef> clients(CFUtil::CFDictMakeMutable());
  const auto add = [&clients](CFStringRef client, const std::vector<std::int32_t>& pids) {
    const plinth::CSharedCFRef<CFMutableArrayRef> list(
        CFArrayCreateMutable(kCFAllocatorDefault, 0, &kCFTypeArrayCallBacks));
    for (const std::int32_t pid : pids) {
      const plinth::CSharedCFRef<CFNumberRef> number(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt32Type, &pid));
      CFArrayAppendValue(list.get(), number.get());
    }
    CFDictionarySetValue(clients.get(), client, list.get());
  };
  EXPECT_THAT(holdersInTable(clients.get()), IsEmpty());
  add(CFSTR("one"), {7, 8, 7, -1, 7});
  EXPECT_THAT(holdersInTable(clients.get()),
              ElementsAre(isHolder("one", 7, 3), isHolder("one", 8, 1), isHolder("one", -1, 1)));
  // The same number under another name is another holder.
  add(CFSTR("two"), {7});
  EXPECT_THAT(holdersInTable(clients.get()), UnorderedElementsAre(isHolder("one", 7, 3), isHolder("one", 8, 1),
                                                                  isHolder("one", -1, 1), isHolder("two", 7, 1)));
}

TEST(HolderWatchTest, AHolderThatEndsIsTold) {
  HolderWatch watch;
  Sleeper holder, other;
  const pid_t pid = holder.pid();
  watch.note(pid);
  watch.note(other.pid());
  EXPECT_FALSE(watch.isGone(pid));
  EXPECT_THAT(watch.newlyGone({pid, other.pid()}), IsEmpty());
  holder.end();
  EXPECT_TRUE(watch.isGone(pid));
  EXPECT_FALSE(watch.isGone(other.pid()));
  EXPECT_THAT(watch.newlyGone({pid, other.pid()}), ElementsAre(pid));
}

TEST(HolderWatchTest, EachIsToldOnce) {
  HolderWatch watch;
  Sleeper holder;
  const pid_t pid = holder.pid();
  watch.note(pid);
  watch.note(pid);
  holder.end();
  EXPECT_THAT(watch.newlyGone({pid}), ElementsAre(pid));
  EXPECT_THAT(watch.newlyGone({pid}), IsEmpty());
  EXPECT_TRUE(watch.isGone(pid)) << "who was told is gone all the same";
}

TEST(HolderWatchTest, WhoEndedWithoutAnybodyWaitingForItIsGone) {
  HolderWatch watch;
  Sleeper holder;
  watch.note(holder.pid());
  ASSERT_EQ(::kill(holder.pid(), SIGKILL), 0);
  siginfo_t ended{};
  ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(holder.pid()), &ended, WEXITED | WNOWAIT), 0);
  EXPECT_TRUE(watch.isGone(holder.pid()));
}

TEST(HolderWatchTest, WhoWasGoneWhenItWasNotedIsTold) {
  HolderWatch watch;
  Sleeper holder;
  const pid_t pid = holder.pid();
  holder.end();
  watch.note(pid);
  EXPECT_TRUE(watch.isGone(pid));
  EXPECT_THAT(watch.newlyGone({pid}), ElementsAre(pid));
}

TEST(HolderWatchTest, WhoHoldsNothingAnyMoreIsForgotten) {
  HolderWatch watch;
  Sleeper holder;
  const pid_t pid = holder.pid();
  watch.note(pid);
  EXPECT_THAT(watch.newlyGone({}), IsEmpty());
  holder.end();
  EXPECT_THAT(watch.newlyGone({pid}), IsEmpty()) << "nobody noted it again";
}

TEST(HolderWatchTest, NumbersThatNameNoProcessArePassedOver) {
  HolderWatch watch;
  for (const std::int32_t pid : {-1, 0, -2147483647}) {
    watch.note(pid);
    EXPECT_FALSE(watch.isGone(pid)) << pid;
    EXPECT_THAT(watch.newlyGone({pid}), IsEmpty()) << pid;
  }
}

// Only who is allowed to choose a number can show it.
TEST(HolderWatchTest, AProcessThatGotTheNumberOfAHolderIsNotTheHolder) {
  HolderWatch watch;
  Sleeper holder;
  const pid_t pid = holder.pid();
  watch.note(pid);
  holder.end();
  Sleeper stranger(pid);
  if (stranger.pid() != pid) GTEST_SKIP() << "this process may not choose a process id: " << std::strerror(errno);
  EXPECT_TRUE(watch.isGone(pid));
  EXPECT_THAT(watch.newlyGone({pid}), ElementsAre(pid));
  // The stranger takes a reference of its own, and is one that lives.
  watch.note(pid);
  EXPECT_FALSE(watch.isGone(pid));
  EXPECT_THAT(watch.newlyGone({pid}), IsEmpty());
  stranger.end();
  EXPECT_THAT(watch.newlyGone({pid}), ElementsAre(pid));
}

TEST(HolderWatchTest, WithoutDescriptorsTheNumberAloneMustDo) {
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
  Sleeper holder;
  const pid_t pid = holder.pid();
  HolderWatch watch;
  const rlimit none{0, before.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
  watch.note(pid);
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
  EXPECT_FALSE(watch.isGone(pid));
  holder.end();
  EXPECT_TRUE(watch.isGone(pid));
  EXPECT_THAT(watch.newlyGone({pid}), ElementsAre(pid));
}

// The number of descriptors that this process has open.
std::size_t openDescriptors() {
  std::size_t count = 0;
  for (int number = 0; number < 1024; ++number) count += ::fcntl(number, F_GETFD) != -1 ? 1 : 0;
  return count;
}

TEST(HolderWatchTest, ManyHoldersDoNotTakeAllDescriptors) {
  constexpr std::size_t kHolders = 300;
  const std::size_t before = openDescriptors();
  {
    std::vector<std::unique_ptr<Sleeper>> holders;
    std::set<std::int32_t> pids;
    HolderWatch watch;
    for (std::size_t i = 0; i < kHolders; ++i) {
      holders.push_back(std::make_unique<Sleeper>());
      ASSERT_GT(holders.back()->pid(), 0);
      pids.insert(holders.back()->pid());
      watch.note(holders.back()->pid());
    }
    EXPECT_EQ(openDescriptors(), before + 256);
    EXPECT_THAT(watch.newlyGone(pids), IsEmpty());
    holders.clear();
    EXPECT_EQ(watch.newlyGone(pids).size(), kHolders) << "also those beyond the handles";
    EXPECT_THAT(watch.newlyGone({}), IsEmpty());
    EXPECT_EQ(openDescriptors(), before) << "who holds nothing takes no descriptor";
  }
  EXPECT_EQ(openDescriptors(), before);
}

}  // namespace
