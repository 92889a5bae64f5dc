// A log that has no room: the stream error, and the process goes on.
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <cerrno>

#include "tests/logging/log_support.h"
#include "tests/logging/xml_judge.h"
#include "tests/support/failing_system_call.h"
#include "tests/support/notification_log.h"

namespace {

using namespace test;
using tovan::endl;

constexpr const char* kStreamError = "CTovanLogger::OStream stream error: exception flags = 0";

class LogRoomTest : public ::testing::Test {
 protected:
  CTovanLoggerRef started(const std::string& path) const {
    CTovanLoggerRef logger(new CTovanLogger());
    logger->startupLogging(CSTR(path), false);
    return logger;
  }
  // A small file system of this process alone; it goes with the process.
  bool mountSmall() const {
    return ::unshare(CLONE_NEWNS) == 0 && ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           ::mount("tmpfs", folder_.c_str(), "tmpfs", 0, "size=64k") == 0;
  }
  // Logs until it throws, and gives the message; "nothing" after so many records.
  static std::string logUntilItThrows(CTovanLogger& logger, int records) {
    try {
      for (int i = 0; i < records; ++i) logger.log(3) << "record number " << i << endl;
    } catch (const plinth::CException& failure) {
      EXPECT_EQ(failure.getType(), plinth::kExceptionTypeStream);
      return failure.what();
    }
    return "nothing";
  }
  // All but a torn last line is a log.
  void expectWholeRecords() const {
    const std::string content = readFile(path_);
    EXPECT_GT(content.size(), 10000u);
    EXPECT_EQ(judgedLog(content.substr(0, content.rfind('\n') + 1)).error, "");
  }

  const std::string folder_ = scratchFolder("room");
  const std::string path_ = folder_ + "/service.log";
};

TEST_F(LogRoomTest, AFullDiskIsTheStreamError) {
  if (!mountSmall()) GTEST_SKIP() << "needs root, to mount a small file system";
  {
    const CTovanLoggerRef logger = started(path_);
    EXPECT_EQ(logUntilItThrows(*logger, 2000), kStreamError);
    EXPECT_EQ(logUntilItThrows(*logger, 1), kStreamError) << "it stays so";
    EXPECT_EQ(messageOf<plinth::CException>([&] {
                logger->log(3) << CTovanLogger::CMark(CTovanLogger::kMarkKindMark, CSTR("m"), nullptr, nullptr);
              }),
              kStreamError);
    logger->log(4) << "filtered" << endl;
    expectWholeRecords();
    EXPECT_EQ(judged(CTovanLogger::logErrorDataAsString(CTovanLogger::kLogErrorGeneral)).error, "");
  }
  expectWholeRecords();
}

TEST_F(LogRoomTest, ALogThatIsStartedOnAFullDiskThrowsNothingButTheStreamError) {
  if (!mountSmall()) GTEST_SKIP() << "needs root, to mount a small file system";
  const CTovanLoggerRef filling = started(folder_ + "/other.log");
  logUntilItThrows(*filling, 2000);
  const CTovanLoggerRef logger(new CTovanLogger());
  try {
    logger->startupLogging(CSTR(path_), false);
  } catch (const plinth::CException& failure) {
    EXPECT_STREQ(failure.what(), kStreamError);
  }
  EXPECT_EQ(logUntilItThrows(*logger, 2), kStreamError);
}

TEST_F(LogRoomTest, AFileSizeLimitOfTheProcessIsTheStreamErrorAndNoSignal) {
  EXPECT_EQ(inChild([&] {
              const struct rlimit low = {20000, 20000};
              if (::setrlimit(RLIMIT_FSIZE, &low) != 0) return 1;
              const CTovanLoggerRef logger = started(path_);
              if (logUntilItThrows(*logger, 2000) != kStreamError) return 2;
              return 7;
            }),
            7);
  expectWholeRecords();
}

TEST_F(LogRoomTest, AFileThatCannotBeEmptiedIsLeftAlone) {
  writeFile(path_, "content");
  EXPECT_EQ(inChild([&] {
              if (!makeFtruncateFail(EIO)) return 1;
              const CTovanLoggerRef logger(new CTovanLogger());
              const std::string said = standardErrorOf([&] { logger->startupLogging(CSTR(path_), true); });
              return said.find("failed to open log file " + path_) != std::string::npos ? 7 : 2;
            }),
            7);
  EXPECT_EQ(readFile(path_), "content");
}

// A limit that comes later brings its signal, which is the program's own business; one that ignores it gets the error.
TEST_F(LogRoomTest, ALaterFileSizeLimitIsTheStreamError) {
  const auto formerHandler = ::signal(SIGXFSZ, SIG_IGN);
  const CTovanLoggerRef logger = started(path_);
  struct rlimit old;
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &old), 0);
  struct rlimit low = old;
  low.rlim_cur = 20000;
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &low), 0);
  const std::string thrown = logUntilItThrows(*logger, 2000);
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &old), 0);
  ::signal(SIGXFSZ, formerHandler);
  EXPECT_EQ(thrown, kStreamError);
  expectWholeRecords();
}

TEST_F(LogRoomTest, AStandardErrorThatNobodyReadsDoesNotEndTheProcess) {
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    ::dup2(ends[1], 2);
    ::close(ends[0]);
    ::close(ends[1]);
    const CTovanLoggerRef logger = started("/dev/stderr");
    logger->log(3) << "a" << endl;
    logger->log(3) << "b" << endl;
    ::_exit(7);
  }
  ::close(ends[0]);
  ::close(ends[1]);
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 7) << "status " << status;
}

}  // namespace
