// The level changes, by notifications that really arrive, while threads log.
#include <tovan/notifications.h>

#include <atomic>
#include <thread>
#include <vector>

#include "tests/logging/service_log.h"
#include "tests/logging/xml_judge.h"
#include "tests/support/notification_log.h"

namespace {

using namespace test;
using tovan::endl;
using tovan::TovanNotification::kPrefExternalID;
using tovan::TovanNotification::kTovanPrefsChangedNotification;

class LevelChangeTest : public ServiceLogTest {};

TEST_F(LevelChangeTest, TheLevelChangesUnderLoadAndNoRecordIsLost) {
  constexpr int kThreads = 4, kChanges = 20;
  std::atomic<bool> over{false};
  std::atomic<std::size_t> always{0}, sometimes{0};
  {
    const CTovanLoggerRef logger = started("s");
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
      threads.emplace_back([&] {
        while (!over) {
          logger->log(3) << "always\n";
          ++always;
          logger->log(5) << "sometimes\n";
          ++sometimes;
          std::this_thread::yield();
        }
      });
    }
    for (int change = 0; change < kChanges; ++change) {
      const unsigned int level = change % 2 == 0 ? 5 : 3;
      configureLevel("s", static_cast<int>(level));
      sendNotification(kTovanPrefsChangedNotification, kPrefExternalID, nullptr);
      EXPECT_TRUE(runLoopUntil([&] { return logger->logLevel() == level; })) << "change " << change;
    }
    over = true;
    for (std::thread& thread : threads) thread.join();
  }
  const XMLDocument document = judgedLog(log("s.log"));
  ASSERT_EQ(document.error, "");
  std::size_t foundAlways = 0, foundSometimes = 0;
  std::vector<std::string> levels;
  for (const XMLElement& record : document.named("log")) {
    const std::string message = record["msg"];
    if (message == "always") {
      ++foundAlways;
    } else if (message == "sometimes") {
      ++foundSometimes;
    } else {
      levels.push_back(message);
    }
  }
  EXPECT_EQ(foundAlways, always);
  EXPECT_LE(foundSometimes, sometimes);
  ASSERT_EQ(levels.size(), static_cast<std::size_t>(kChanges));
  for (std::size_t i = 0; i < levels.size(); ++i) {
    EXPECT_EQ(levels[i], i % 2 == 0 ? "Setting log level = 5" : "Setting log level = 3");
  }
}

// What an administrator's program does: it is another process that changes the file and posts.
TEST_F(LevelChangeTest, AnotherProcessChangesTheLevel) {
  const CTovanLoggerRef logger = started("s", 2);
  EXPECT_EQ(inChild([] {
              configureLevel("s", 3, 7);
              sendNotification(kTovanPrefsChangedNotification, kPrefExternalID, nullptr);
              return 0;
            }),
            0);
  EXPECT_TRUE(runLoopUntil([&] { return logger->logLevel() == 7; }));
  EXPECT_EQ(plain(log("s-2.log")),
            "<mrk kind=\"begin\" what=\"log-session\"/>\n<log lvl=\"7\" msg=\"Setting log level = 7\"/>\n");
}

TEST_F(LevelChangeTest, ABusThatGoesAndComesBackIsHeardAgain) {
  const CTovanLoggerRef logger = started("s");
  bus_.kill();
  logger->log(3) << "without a bus" << endl;
  bus_.restart();
  configureLevel("s", 6);
  EXPECT_TRUE(runLoopUntil([&] {
    sendNotification(kTovanPrefsChangedNotification, kPrefExternalID, nullptr);
    return logger->logLevel() == 6;
  }));
}

}  // namespace
