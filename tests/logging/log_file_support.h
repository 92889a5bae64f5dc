// log_file_support.h: a log in a file of one test's own.
#pragma once

#include <sys/stat.h>

#include <string>

#include "tests/logging/fixed_clock.h"
#include "tests/logging/log_support.h"

namespace test {

class LogFileTest : public ::testing::Test {
 protected:
  ~LogFileTest() override { ::umask(022); }

  CTovanLoggerRef started(bool truncate = false) const { return started(path_, truncate); }
  static CTovanLoggerRef started(const std::string& path, bool truncate = false) {
    CTovanLoggerRef logger(new CTovanLogger());
    logger->startupLogging(CSTR(path), truncate);
    return logger;
  }
  static std::string refusal(const std::string& path) {
    return "CTovanLogger::startupLogging[" + pid() + "]: failed to open log file " + path +
           ". Logging to stderr instead. The file likely already exists with prohibitive permissions - try deleting "
           "it.\n";
  }
  // The start-up fails, and what is logged goes to standard error.
  static void expectRefused(const std::string& path) {
    EXPECT_EQ(standardErrorOf([&] {
                const CTovanLoggerRef logger = started(path);
                EXPECT_EQ(logger->log(3).kind(), CTovanLogger::kStreamKindConsole);
                logger->log(3) << "a" << tovan::endl;
                EXPECT_EQ(messageOf<plinth::CParamException>([&] { logger->startupLogging(CSTR(path + "2"), false); }),
                          "Logging started already");
                EXPECT_NE(logger->logDataAsString().find("Not logging to file."), std::string::npos);
              }),
              refusal(path) + record("a"));
    EXPECT_FALSE(exists(path + "2"));
  }
  static mode_t modeOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777;
  }

  const std::string folder_ = scratchFolder("log");
  const std::string path_ = folder_ + "/service.log";
  FixedClock clock_{kMoment, kQuarter};
};

}  // namespace test
