// The logger that all parts of a process share.
#include <atomic>
#include <thread>
#include <vector>

#include "tests/logging/fixed_clock.h"
#include "tests/logging/service_log.h"

namespace {

using namespace test;
using tovan::CTovanGlobalLogger;
using tovan::endl;

class GlobalLoggerTest : public ServiceLogTest {
 protected:
  GlobalLoggerTest() { CTovanGlobalLogger::setLogger(nullptr); }
  ~GlobalLoggerTest() override { CTovanGlobalLogger::setLogger(nullptr); }

  FixedClock clock_{kMoment, kQuarter};
};

TEST_F(GlobalLoggerTest, TheFirstUseMakesOneOnStandardError) {
  EXPECT_EQ(standardErrorOf([] {
              CTovanGlobalLogger::log(3) << "a" << endl;
              CTovanGlobalLogger::serviceLog(1) << "b" << endl;
              CTovanGlobalLogger::log(4) << "c" << endl;
              CTovanGlobalLogger::serviceLog(4) << "d" << endl;
            }),
            record("a") + record("b", "1"));
  EXPECT_EQ(text(CTovanGlobalLogger::getLogger()->logPath()), "/dev/stderr");
  EXPECT_EQ(messageOf<plinth::CParamException>(
                [] { CTovanGlobalLogger::getLogger()->startupLogging(CSTR("/nowhere"), false); }),
            "Logging started already");
}

TEST_F(GlobalLoggerTest, ItHasTheLevelOfTheFirstEntry) {
  configureLevel("first", 5);
  configureLevel("second", 7);
  EXPECT_EQ(standardErrorOf([] { EXPECT_EQ(CTovanGlobalLogger::getLogger()->logLevel(), 5u); }),
            record("Setting log level = 5", "5"));
}

TEST_F(GlobalLoggerTest, EveryUseGivesTheSame) {
  const CTovanLoggerRef logger = CTovanGlobalLogger::getLogger();
  ASSERT_FALSE(logger.isNull());
  EXPECT_TRUE(logger.isSame(CTovanGlobalLogger::getLogger()));
  EXPECT_EQ(&CTovanGlobalLogger::log(3), &logger->log(3));
  EXPECT_EQ(&CTovanGlobalLogger::serviceLog(4), &logger->log(4));
}

TEST_F(GlobalLoggerTest, ThreadsThatUseItFirstAtTheSameTimeGetTheSame) {
  for (int round = 0; round < 50; ++round) {
    CTovanGlobalLogger::setLogger(nullptr);
    std::vector<CTovanLoggerRef> found(4);
    std::atomic<int> waiting{4};
    std::vector<std::thread> threads;
    for (CTovanLoggerRef& mine : found) {
      threads.emplace_back([&] {
        --waiting;
        while (waiting > 0) continue;
        mine = CTovanGlobalLogger::getLogger();
      });
    }
    for (std::thread& thread : threads) thread.join();
    for (const CTovanLoggerRef& one : found) {
      EXPECT_FALSE(one.isNull());
      EXPECT_TRUE(one.isSame(found[0]));
    }
  }
}

TEST_F(GlobalLoggerTest, ALoggerThatIsSetIsTheCurrentOne) {
  MemoryLog log;
  CTovanGlobalLogger::setLogger(log.logger);
  EXPECT_TRUE(CTovanGlobalLogger::getLogger().isSame(log.logger));
  CTovanGlobalLogger::log(3) << "a\n";
  CTovanGlobalLogger::serviceLog(2) << "b\n";
  EXPECT_EQ(log.taken(), record("a") + record("b", "2"));
}

class Watched : public CTovanLogger {
 public:
  explicit Watched(std::atomic<bool>& gone) : gone_(gone) {}
  ~Watched() override { gone_ = true; }

 private:
  std::atomic<bool>& gone_;
};

TEST_F(GlobalLoggerTest, TheFormerLoggerLosesTheGlobalReference) {
  std::atomic<bool> gone{false};
  CTovanGlobalLogger::setLogger(plinth::makeShared<Watched>(gone));
  EXPECT_FALSE(gone) << "the global reference keeps it";
  CTovanGlobalLogger::setLogger(plinth::makeShared<CTovanLogger>());
  EXPECT_TRUE(gone);
}

TEST_F(GlobalLoggerTest, SettingTheCurrentOneAgainKeepsIt) {
  std::atomic<bool> gone{false};
  CTovanGlobalLogger::setLogger(plinth::makeShared<Watched>(gone));
  CTovanGlobalLogger::setLogger(CTovanGlobalLogger::getLogger());
  EXPECT_FALSE(gone);
  CTovanGlobalLogger::setLogger(nullptr);
  EXPECT_TRUE(gone);
}

TEST_F(GlobalLoggerTest, AnEmptyHolderClearsItAndTheNextUseMakesAnother) {
  std::atomic<bool> gone{false};
  CTovanGlobalLogger::setLogger(plinth::makeShared<Watched>(gone));
  CTovanGlobalLogger::setLogger(nullptr);
  EXPECT_TRUE(gone);
  EXPECT_FALSE(CTovanGlobalLogger::getLogger().isNull());
}

TEST_F(GlobalLoggerTest, AReferenceKeepsALoggerThatIsReplaced) {
  std::ostringstream out;
  std::atomic<bool> gone{false};
  {
    const plinth::CSharedObjectRef<Watched> watched(new Watched(gone));
    watched->startupLogging(OStreamRef(new OStream(CTovanLogger::kStreamKindConsole, out, nullptr)));
    CTovanGlobalLogger::setLogger(watched);
  }
  std::atomic<bool> has{false}, replaced{false};
  std::thread holder([&] {
    const CTovanLoggerRef mine = CTovanGlobalLogger::getLogger();
    has = true;
    while (!replaced) std::this_thread::yield();
    EXPECT_FALSE(gone);
    mine->log(3) << "still here\n";
  });
  while (!has) std::this_thread::yield();
  CTovanGlobalLogger::setLogger(nullptr);
  replaced = true;
  holder.join();
  EXPECT_EQ(out.str(), record("still here"));
  EXPECT_TRUE(gone);
}

// The stream of log() has no reference on the logger, which may be replaced before the message is written.
TEST_F(GlobalLoggerTest, AStreamOfALoggerThatIsGoneDiscards) {
  std::ostringstream out;
  {
    const CTovanLoggerRef logger(new CTovanLogger());
    logger->startupLogging(OStreamRef(new OStream(CTovanLogger::kStreamKindConsole, out, nullptr)));
    CTovanGlobalLogger::setLogger(logger);
  }
  OStream& stream = CTovanGlobalLogger::log(3);
  CTovanGlobalLogger::setLogger(nullptr);
  stream << "late\n";
  EXPECT_EQ(out.str(), "");
}

TEST_F(GlobalLoggerTest, AStartUpThatThrowsPassesItsExceptionOnAndHoldsNoLock) {
  const std::string folder = home_ + "/Library/Application Support/Lumisphere";
  makeFolders(folder);
  writeFile(folder + "/LumisphereConfig.plist", "<plist version=\"1.0\"><dict><key>");
  standardErrorOf([] {
    EXPECT_THROW(CTovanGlobalLogger::getLogger(), plinth::CException);
    // The logger was made; it is there for the next call, of another thread too.
    std::thread([] { EXPECT_EQ(CTovanGlobalLogger::getLogger()->logLevel(), 3u); }).join();
  });
}

TEST_F(GlobalLoggerTest, ALoggerOnAFileEndsItsSessionWhenItIsReplaced) {
  const std::string path = home_ + "/global.log";
  {
    const CTovanLoggerRef logger(new CTovanLogger());
    logger->startupLogging(CSTR(path), false);
    CTovanGlobalLogger::setLogger(logger);
  }
  CTovanGlobalLogger::log(3) << "a\n";
  CTovanGlobalLogger::setLogger(nullptr);
  EXPECT_EQ(readFile(path), header("logging_tests") + sessionMark("begin") + record("a") + sessionMark("end"));
}

}  // namespace
