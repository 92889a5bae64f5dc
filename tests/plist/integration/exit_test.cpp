// Process exit lets a flush that has begun come to its end, and starts no other.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <thread>

#include "platform/system/exit_gate.h"
#include "tests/plist/plist_support.h"

namespace {

using namespace test;
using tovan::CPropertyListBasicFile;

// Runs `body`, which ends its process, in a child; its exit status, or -1 when it hung.
template <class Body>
int statusOf(Body body) {
  const pid_t child = ::fork();
  if (child == 0) {
    body();
    ::_exit(99);
  }
  for (int waited = 0; waited < 60000; ++waited) {
    int status = 0;
    if (::waitpid(child, &status, WNOHANG) == child) return WIFEXITED(status) ? WEXITSTATUS(status) : -2;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  ::kill(child, SIGKILL);
  ::waitpid(child, nullptr, 0);
  return -1;
}

using ExitFunction = void (*)(int);

class ExitTest : public ::testing::TestWithParam<ExitFunction> {};

// One document of the two that the threads write by turns: long, so that its write takes a while.
CSharedCFRef<CFDictionaryRef> listOf(char letter, std::size_t length) {
  return dict("<key>a</key><string>" + std::string(length, letter) + "</string>");
}

TEST_P(ExitTest, FilesThatThreadsAreFlushingAreComplete) {
  constexpr int kFiles = 4;
  constexpr int kRounds = 40;
  const std::string folder = scratchFolder("exit");
  const auto pathOf = [&](int file) { return folder + "/" + std::to_string(file) + ".plist"; };
  for (int round = 0; round < kRounds; ++round) {
    const int status = statusOf([&] {
      std::atomic<int> flushes{0};
      for (int i = 0; i < kFiles; ++i) {
        std::thread([&, i] {
          CPropertyListBasicFile file(str(pathOf(i)).get());
          const CSharedCFRef<CFDictionaryRef> lists[] = {listOf('x', 1000000), listOf('y', 500000)};
          for (int n = 0;; ++n) {
            file.writePropertyList(lists[n % 2].get());
            ++flushes;
          }
        }).detach();
      }
      while (flushes < kFiles + round) std::this_thread::yield();
      GetParam()(7);
    });
    ASSERT_EQ(status, 7) << "round " << round;
    for (int i = 0; i < kFiles; ++i) {
      if (!exists(pathOf(i))) continue;  // that thread had not begun
      const std::string content = readFile(pathOf(i));
      if (content.empty()) continue;  // created, and not begun
      const std::size_t end = content.find("</plist>\n");
      ASSERT_NE(end, std::string::npos) << "round " << round << ": file " << i << " was torn";
      ASSERT_EQ(end + 9, content.size()) << "round " << round << ": file " << i << " was not truncated";
    }
  }
}

TEST_P(ExitTest, ExitWaitsForAHold) {
  const std::string marker = scratchFolder("exit") + "/marker";
  const int status = statusOf([&] {
    std::atomic<bool> held{false};
    std::thread([&] {
      const platform::ExitHold hold(-1);
      held = true;
      std::this_thread::sleep_for(std::chrono::milliseconds(100));  // the exit is under way by then
      writeFile(marker, "done");
    }).detach();
    while (!held) std::this_thread::yield();
    GetParam()(7);
  });
  EXPECT_EQ(status, 7);
  EXPECT_TRUE(exists(marker));
}

TEST_P(ExitTest, NoHoldIsGrantedOnceTheProcessIsEndingAndTheLockIsGivenUp) {
  const std::string path = scratchFolder("exit") + "/file";
  const std::string verdict = path + ".verdict";
  const int status = statusOf([&] {
    const int locked = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    const int other = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
    ::flock(locked, LOCK_EX);
    std::atomic<bool> held{false};
    std::atomic<bool> granted{true};
    std::thread([&] {
      const platform::ExitHold hold(-1);
      held = true;
      // The other thread has the lock until it is sent to sleep.
      while (::flock(other, LOCK_EX | LOCK_NB) != 0) std::this_thread::yield();
      const bool before = granted.exchange(false);
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      writeFile(verdict, before && !granted ? "refused" : "granted");
    }).detach();
    std::thread([&] {
      for (;;) {
        const platform::ExitHold hold(locked);
        granted = true;
      }
    }).detach();
    while (!held) std::this_thread::yield();
    GetParam()(7);
  });
  EXPECT_EQ(status, 7);
  EXPECT_EQ(readFile(verdict), "refused");
}

INSTANTIATE_TEST_SUITE_P(, ExitTest, ::testing::Values(ExitFunction{std::exit}, ExitFunction{std::quick_exit}),
                         [](const auto& kind) { return kind.index == 0 ? "Exit" : "QuickExit"; });

TEST(ExitGateTest, TheThreadThatEndsTheProcessMayStillFlush) {
  const std::string path = scratchFolder("exit") + "/file.plist";
  static std::string late;
  late = path;
  const int status = statusOf([] {
    { const platform::ExitHold first(-1); }
    std::atexit([] { CPropertyListBasicFile(str(late).get()).writePropertyList(dict("").get()); });
    std::exit(7);
  });
  EXPECT_EQ(status, 7);
  EXPECT_EQ(describeFile(path), "{}");
}

TEST(ExitGateTest, AChildOfForkDoesNotWaitForItsParentsHolds) {
  std::atomic<bool> held{false};
  std::atomic<bool> over{false};
  std::thread holder([&] {
    const platform::ExitHold hold(-1);
    held = true;
    while (!over) std::this_thread::yield();
  });
  while (!held) std::this_thread::yield();
  const int status = statusOf([] { std::exit(7); });
  over = true;
  holder.join();
  EXPECT_EQ(status, 7);
}

TEST(ExitGateTest, ExitInTheMiddleOfAHoldOfTheSameThreadDoesNotHang) {
  EXPECT_EQ(statusOf([] {
              const platform::ExitHold hold(-1);
              std::exit(7);
            }),
            7);
}

}  // namespace
