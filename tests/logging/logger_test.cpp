// A logger on standard error or on a stream of the caller's: levels, start-ups, the end.
#include "tests/logging/fixed_clock.h"
#include "tests/logging/log_support.h"

namespace {

using namespace test;
using plinth::CParamException;
using tovan::endl;

constexpr const char* kStarted = "Logging started already";

class LoggerTest : public ::testing::Test {
 protected:
  OStreamRef stream(CTovanLogger::StreamKind kind, const char* path = "") {
    return OStreamRef(new OStream(kind, out_, CSTR(path)));
  }

  FixedClock clock_{kMoment, kQuarter};
  std::ostringstream out_;
};

TEST_F(LoggerTest, ANewLoggerWritesNothingAndHasLevelThree) {
  EXPECT_EQ(standardErrorOf([] {
              const CTovanLoggerRef logger(new CTovanLogger());
              EXPECT_EQ(logger->logLevel(), 3u);
              EXPECT_EQ(text(logger->logPath()), "/dev/stderr");
              EXPECT_EQ(text(logger->serviceName()), "");
              EXPECT_EQ(logger->log(3).kind(), CTovanLogger::kStreamKindConsole);
            }),
            "");
}

TEST_F(LoggerTest, ANewLoggerWritesToStandardError) {
  EXPECT_EQ(standardErrorOf([] {
              const CTovanLoggerRef logger(new CTovanLogger());
              logger->log(3) << "a" << endl;
              logger->log(1) << "b" << endl;
              logger->log(4) << "c" << endl;
            }),
            record("a") + record("b", "1"));
}

TEST_F(LoggerTest, AMessageIsWrittenUpToTheCurrentLevel) {
  MemoryLog log;
  OStream& null = log.log(4);
  EXPECT_EQ(null.kind(), CTovanLogger::kStreamKindNull);
  EXPECT_EQ(null.level(), 4u);
  null << "four\n";
  EXPECT_EQ(log.taken(), "");
  EXPECT_EQ(log.log(3).kind(), CTovanLogger::kStreamKindConsole);
  EXPECT_EQ(log.log(2).level(), 2u);
  log.log(3) << "three\n";
  log.log(1) << "one\n";
  log.log(0) << "zero\n";
  log.log(0xFFFFFFFF) << "most\n";
  EXPECT_EQ(log.taken(), record("three") + record("one", "1") + record("zero", "0"));
}

TEST_F(LoggerTest, ALargerLevelLetsMoreThrough) {
  MemoryLog log;
  log.logger->setLogLevel(5);
  log.taken();
  for (const unsigned int level : {3u, 4u, 5u, 6u}) log.log(level) << level << "\n";
  EXPECT_EQ(log.taken(), record("3") + record("4", "4") + record("5", "5"));
  log.logger->setLogLevel(0);
  log.taken();
  log.log(1) << "one\n";
  log.log(0) << "zero\n";
  EXPECT_EQ(log.taken(), record("zero", "0"));
  log.logger->setLogLevel(0xFFFFFFFF);
  EXPECT_EQ(log.taken(), record("Setting log level = 4294967295", "4294967295"));
  log.log(0xFFFFFFFE) << "x\n";
  EXPECT_EQ(log.taken(), record("x", "4294967294"));
}

TEST_F(LoggerTest, ANewLevelIsWrittenAtThatLevel) {
  MemoryLog log;
  log.logger->setLogLevel(3);
  EXPECT_EQ(log.taken(), "") << "the current one";
  log.logger->setLogLevel(5);
  EXPECT_EQ(log.taken(), record("Setting log level = 5", "5"));
  EXPECT_EQ(log.logger->logLevel(), 5u);
  log.logger->setLogLevel(5);
  EXPECT_EQ(log.taken(), "");
  log.logger->setLogLevel(1);
  EXPECT_EQ(log.taken(), record("Setting log level = 1", "1"));
  log.logger->setLogLevel(3);
  EXPECT_EQ(log.taken(), record("Setting log level = 3"));
}

TEST_F(LoggerTest, AConsoleStreamGetsNeitherHeaderNorMarks) {
  {
    const CTovanLoggerRef logger(new CTovanLogger());
    logger->startupLogging(stream(CTovanLogger::kStreamKindConsole, "/not/kept"));
    logger->log(3) << "a\n";
    EXPECT_EQ(text(logger->logPath()), "");
  }
  EXPECT_EQ(out_.str(), record("a"));
}

TEST_F(LoggerTest, AFileStreamGetsHeaderAndMarks) {
  {
    const CTovanLoggerRef logger(new CTovanLogger());
    logger->startupLogging(stream(CTovanLogger::kStreamKindFile, "/some/path"));
    EXPECT_EQ(out_.str(), header("logging_tests") + sessionMark("begin"));
    EXPECT_EQ(text(logger->logPath()), "/some/path");
    EXPECT_EQ(logger->log(3).kind(), CTovanLogger::kStreamKindFile);
    logger->log(3) << "a\n";
  }
  EXPECT_EQ(out_.str(), header("logging_tests") + sessionMark("begin") + record("a") + sessionMark("end"));
}

TEST_F(LoggerTest, AFileStreamThatIsNotAtItsBeginningGetsNoHeader) {
  out_ << "before\n";
  { CTovanLoggerRef(new CTovanLogger())->startupLogging(stream(CTovanLogger::kStreamKindFile)); }
  EXPECT_EQ(out_.str(), "before\n" + sessionMark("begin") + sessionMark("end"));
}

TEST_F(LoggerTest, ANullStreamIsTakenOverAsItIs) {
  {
    const CTovanLoggerRef logger(new CTovanLogger());
    logger->startupLogging(stream(CTovanLogger::kStreamKindNull));
    EXPECT_EQ(logger->log(3).kind(), CTovanLogger::kStreamKindNull);
    logger->log(3) << "a\n";
  }
  EXPECT_EQ(out_.str(), "");
}

TEST_F(LoggerTest, ALoggerIsStartedOnce) {
  const std::string other = scratchFolder("other") + "/other.log";
  {
    const CTovanLoggerRef logger(new CTovanLogger());
    logger->startupLogging(stream(CTovanLogger::kStreamKindFile, "/some/path"));
    EXPECT_EQ(messageOf<CParamException>([&] { logger->startupLogging(true, CSTR("service"), 0); }), kStarted);
    EXPECT_EQ(messageOf<CParamException>([&] { logger->startupLogging(false, nullptr, 0); }), kStarted);
    EXPECT_EQ(messageOf<CParamException>([&] { logger->startupLogging(CSTR(other), true); }), kStarted);
    std::ostringstream unused;
    EXPECT_EQ(messageOf<CParamException>([&] {
                logger->startupLogging(OStreamRef(new OStream(CTovanLogger::kStreamKindConsole, unused, nullptr)));
              }),
              kStarted);
    logger->log(3) << "a\n";
    EXPECT_EQ(unused.str(), "");
    EXPECT_EQ(text(logger->logPath()), "/some/path");
    EXPECT_EQ(text(logger->serviceName()), "");
  }
  EXPECT_EQ(out_.str(), header("logging_tests") + sessionMark("begin") + record("a") + sessionMark("end"));
  EXPECT_FALSE(exists(other));
  EXPECT_FALSE(exists(scratchHome() + "/Library/Logs/Lumisphere/service.log"));
}

TEST_F(LoggerTest, NullPathsAndStreamsAreRefused) {
  const CTovanLoggerRef logger(new CTovanLogger());
  EXPECT_EQ(messageOf<plinth::CNullPointerException>([&] { logger->startupLogging(plinth::CStringRef(), false); }),
            "Error: path is null!");
  EXPECT_EQ(messageOf<plinth::CNullPointerException>([&] { logger->startupLogging(OStreamRef()); }),
            "Error: stream is null!");
}

// Subclasses hook into the virtual operations.
class HookedLogger : public CTovanLogger {
 public:
  explicit HookedLogger(const std::ostringstream* out = nullptr) : out_(out) {}
  void startupLogging(const plinth::CStringRef& path, bool truncate) override {
    calls += "path " + text(path) + (truncate ? " truncate " : " append ");
    CTovanLogger::startupLogging(path, truncate);
  }
  using CTovanLogger::startupLogging;
  OStream& log(unsigned int level) const override {
    calls += "log " + std::to_string(level) + " ";
    return CTovanLogger::log(level);
  }
  mutable std::string calls;
  std::string atInit;

 protected:
  void initLogging() override {
    calls += "init ";
    if (out_ != nullptr) atInit = out_->str();
  }

 private:
  const std::ostringstream* out_;
};

TEST_F(LoggerTest, TheHookIsCalledAtTheEndOfAStartUp) {
  const plinth::CSharedObjectRef<HookedLogger> logger(new HookedLogger(&out_));
  logger->startupLogging(stream(CTovanLogger::kStreamKindFile));
  EXPECT_EQ(logger->calls, "init ");
  EXPECT_EQ(logger->atInit, header("logging_tests") + sessionMark("begin"));
  EXPECT_THROW(logger->startupLogging(stream(CTovanLogger::kStreamKindFile)), CParamException);
  EXPECT_EQ(logger->calls, "init ");
}

TEST_F(LoggerTest, TheHookIsNotCalledWhenTheFileCannotBeOpened) {
  const plinth::CSharedObjectRef<HookedLogger> logger(new HookedLogger());
  const std::string folder = scratchFolder("folder");
  standardErrorOf([&] { logger->startupLogging(CSTR(folder), false); });
  EXPECT_EQ(logger->calls, "path " + folder + " append ");
}

TEST_F(LoggerTest, ANewLevelGoesThroughTheVirtualLog) {
  const plinth::CSharedObjectRef<HookedLogger> logger(new HookedLogger());
  logger->startupLogging(stream(CTovanLogger::kStreamKindConsole));
  logger->calls.clear();
  logger->setLogLevel(6);
  EXPECT_EQ(logger->calls, "log 6 ");
}

TEST_F(LoggerTest, TheStreamOfAMessageBelongsToTheLogger) {
  MemoryLog log;
  EXPECT_EQ(&log.log(3), &log.log(1));
  EXPECT_EQ(&log.log(4), &log.log(9));
  EXPECT_NE(&log.log(3), &log.log(4));
}

TEST_F(LoggerTest, AStreamThatOutlivesItsLoggerDiscards) {
  std::ostringstream out;
  OStreamRef kept;
  {
    const CTovanLoggerRef logger(new CTovanLogger());
    logger->startupLogging(OStreamRef(new OStream(CTovanLogger::kStreamKindConsole, out, nullptr)));
    kept = OStreamRef::retaining(&logger->log(3));
    *kept << "a\n";
  }
  *kept << "b\n";
  EXPECT_EQ(out.str(), record("a"));
}

}  // namespace
