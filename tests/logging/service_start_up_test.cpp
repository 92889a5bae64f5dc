// The start-up of a service: where its log goes, and at what level.
#include <sys/stat.h>

#include "tests/logging/fixed_clock.h"
#include "tests/logging/service_log.h"

namespace {

using namespace test;
using tovan::CServiceCacheEntry;
using tovan::endl;

mode_t modeOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
  return status.st_mode & 07777;
}

class ServiceStartUpTest : public ServiceLogTest {
 protected:
  ~ServiceStartUpTest() override { ::umask(022); }
  FixedClock clock_{kMoment, kQuarter};
};

TEST_F(ServiceStartUpTest, TheFileIsNamedAfterServiceAndInstance) {
  const CTovanLoggerRef first = started("transcoder");
  const CTovanLoggerRef second = started("transcoder", 2);
  const CTovanLoggerRef eighth = started("transcoder", 7);
  EXPECT_EQ(log("transcoder.log"), header("logging_tests") + sessionMark("begin"));
  EXPECT_EQ(log("transcoder-2.log"), header("logging_tests") + sessionMark("begin"));
  EXPECT_EQ(log("transcoder-7.log"), header("logging_tests") + sessionMark("begin"));
  EXPECT_EQ(text(eighth->serviceName()), "transcoder");
}

TEST_F(ServiceStartUpTest, AServiceKindIsAName) {
  const std::string kind = "servicecontroller:com.brant.klarn.transcoder.klarn";
  const CTovanLoggerRef logger = started(kind, 1);
  EXPECT_TRUE(exists(folder_ + "/" + kind + "-1.log"));
}

TEST_F(ServiceStartUpTest, APercentSignInANameIsNoFormat) {
  { started("%s%n%@"); }
  EXPECT_TRUE(exists(folder_ + "/%s%n%@.log"));
}

// The path is handed to the start-up by path, with the folder's own slash and the one that joins: deliberate.
class PathRecorder : public CTovanLogger {
 public:
  using CTovanLogger::startupLogging;
  void startupLogging(const plinth::CStringRef& path, bool truncate) override {
    calls += text(path) + (truncate ? " truncate\n" : " append\n");
    CTovanLogger::startupLogging(path, truncate);
  }
  std::string calls;
};

TEST_F(ServiceStartUpTest, ThePathHasTwoSlashes) {
  const plinth::CSharedObjectRef<PathRecorder> logger(new PathRecorder());
  logger->startupLogging(true, CSTR("transcoder"), 2);
  EXPECT_EQ(logger->calls, folder_ + "//transcoder-2.log append\n");
  EXPECT_EQ(text(logger->logPath()), folder_ + "//transcoder-2.log");
}

TEST_F(ServiceStartUpTest, WithoutAFileStandardErrorIsStarted) {
  const plinth::CSharedObjectRef<PathRecorder> logger(new PathRecorder());
  EXPECT_EQ(standardErrorOf([&] {
              logger->startupLogging(false, CSTR("transcoder"), 2);
              logger->log(3) << "a" << endl;
            }),
            record("a"));
  EXPECT_EQ(logger->calls, "/dev/stderr append\n");
  EXPECT_EQ(text(logger->serviceName()), "") << "kept for a file only";
  EXPECT_FALSE(exists(folder_));
}

TEST_F(ServiceStartUpTest, TheFolderIsOfTheUserAlone) {
  for (const mode_t mask : {0u, 022u, 077u, 0777u}) {
    ASSERT_EQ(::system(("rm -rf " + folder_).c_str()), 0);
    ::umask(mask);
    { started("s"); }
    EXPECT_EQ(::umask(022), mask) << "restored";
    EXPECT_EQ(modeOf(folder_), 0700u) << mask;
    EXPECT_EQ(modeOf(folder_ + "/s.log"), 0644u) << mask;
  }
}

TEST_F(ServiceStartUpTest, AFolderThatIsThereGetsTheMode) {
  makeFolders(folder_);
  ASSERT_EQ(::chmod(folder_.c_str(), 0755), 0);
  { started("s"); }
  EXPECT_EQ(modeOf(folder_), 0700u);
}

TEST_F(ServiceStartUpTest, AHomeWithoutAnyOfItsFoldersGetsThem) {
  ASSERT_EQ(::system(("rm -r " + home_ + "/Library").c_str()), 0);
  { started("s"); }
  EXPECT_EQ(log("s.log"), header("logging_tests") + sessionMark("begin") + sessionMark("end"));
  for (const char* const folder : {"/Library", "/Library/Logs", "/Library/Logs/Lumisphere"}) {
    EXPECT_EQ(modeOf(home_ + folder), 0700u) << folder;
  }
}

TEST_F(ServiceStartUpTest, TheFoldersAboveKeepTheirModes) {
  ASSERT_EQ(::chmod((home_ + "/Library/Logs").c_str(), 0755), 0);
  { started("s"); }
  EXPECT_EQ(modeOf(home_ + "/Library/Logs"), 0755u);
}

TEST_F(ServiceStartUpTest, AFolderThatCannotBeMadeLeavesTheLogOnStandardError) {
  ASSERT_EQ(::system(("rmdir " + home_ + "/Library/Logs").c_str()), 0);
  writeFile(home_ + "/Library/Logs", "");
  EXPECT_EQ(standardErrorOf([&] { started("s")->log(3) << "a" << endl; }),
            "CTovanLogger::startupLogging[" + pid() + "]: failed to open log file " + folder_ +
                "//s.log. Logging to stderr instead. The file likely already exists with prohibitive permissions - try "
                "deleting it.\n" +
                record("a"));
}

TEST_F(ServiceStartUpTest, AServiceThatEndsMarksTheEnd) {
  { started("s")->log(3) << "a\n"; }
  EXPECT_EQ(log("s.log"), header("logging_tests") + sessionMark("begin") + record("a") + sessionMark("end"));
}

TEST_F(ServiceStartUpTest, TheLevelIsThatOfTheEntry) {
  configureLevel("first", 7);
  configureLevel("s", 5);
  const CTovanLoggerRef logger = started("s");
  EXPECT_EQ(logger->logLevel(), 5u);
  logger->log(5) << "a\n";
  logger->log(6) << "b\n";
  EXPECT_EQ(log("s.log"), header("logging_tests") + sessionMark("begin") + record("a", "5"));
}

// A log in a file has its level before it is opened; standard error is told of it.
TEST_F(ServiceStartUpTest, TheLevelIsWrittenToStandardErrorOnly) {
  configureLevel("s", 5);
  EXPECT_EQ(standardErrorOf([] { started("s", 0, false); }), record("Setting log level = 5", "5"));
  EXPECT_EQ(standardErrorOf([] { started("s"); }), "");
  EXPECT_EQ(log("s.log"), header("logging_tests") + sessionMark("begin") + sessionMark("end"));
}

TEST_F(ServiceStartUpTest, TheUsersLevelGoesBeforeTheEntrys) {
  configureLevel("s", 5, 1);
  EXPECT_EQ(started("s")->logLevel(), 1u);
}

TEST_F(ServiceStartUpTest, WithoutAnEntryTheFirstOneCounts) {
  configureLevel("first", 7, 6);
  configureLevel("second", 5);
  EXPECT_EQ(started("s")->logLevel(), 6u);
  std::string written = standardErrorOf([&] { EXPECT_EQ(started("", 0, false)->logLevel(), 6u); });
  EXPECT_EQ(written, record("Setting log level = 6", "6"));
}

TEST_F(ServiceStartUpTest, WithoutAnyEntryTheLevelIsThree) {
  EXPECT_EQ(started("s")->logLevel(), 3u);
  EXPECT_EQ(log("s.log"), header("logging_tests") + sessionMark("begin") + sessionMark("end"))
      << "no record of the level";
}

TEST_F(ServiceStartUpTest, TruncationIsThatOfTheEntry) {
  const auto contentAfter = [&](bool own, std::optional<bool> user) {
    configure("s", [&](CServiceCacheEntry& entry) {
      entry.setUserPrefs(nullptr);
      entry.setTruncateLog(own, false);
      if (user) {
        const void* key = CFSTR("TruncateLog");
        const void* value = *user ? kCFBooleanTrue : kCFBooleanFalse;
        const plinth::CSharedCFRef<CFDictionaryRef> preferences(CFDictionaryCreate(
            nullptr, &key, &value, 1, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
        entry.setUserPrefs(preferences.get());
      }
    });
    makeFolders(folder_);
    writeFile(folder_ + "/s.log", "old");
    { started("s"); }
    return log("s.log");
  };
  const std::string session = sessionMark("begin") + sessionMark("end");
  EXPECT_EQ(contentAfter(false, std::nullopt), "old" + session);
  EXPECT_EQ(contentAfter(true, std::nullopt), header("logging_tests") + session);
  EXPECT_EQ(contentAfter(false, true), header("logging_tests") + session) << "the user's";
  EXPECT_EQ(contentAfter(true, false), "old" + session) << "the user's";
}

TEST_F(ServiceStartUpTest, TheTruncationOfTheFirstEntryCountsForOthers) {
  configure("first", [](CServiceCacheEntry& entry) { entry.setTruncateLog(true, false); });
  makeFolders(folder_);
  writeFile(folder_ + "/s.log", "old");
  { started("s"); }
  EXPECT_EQ(log("s.log"), header("logging_tests") + sessionMark("begin") + sessionMark("end"));
}

TEST_F(ServiceStartUpTest, ASecondStartUpOfAServiceThrowsAndLeavesTheFirst) {
  configureLevel("other", 7);
  const CTovanLoggerRef logger = started("s");
  logger->setLogLevel(4);
  EXPECT_EQ(messageOf<plinth::CParamException>([&] { logger->startupLogging(true, CSTR("other"), 0); }),
            "Logging started already");
  EXPECT_EQ(logger->logLevel(), 4u);
  EXPECT_EQ(text(logger->serviceName()), "s");
  EXPECT_FALSE(exists(folder_ + "/other.log"));
}

TEST_F(ServiceStartUpTest, ALogFolderThatIsALinkIsNotFollowed) {
  const std::string elsewhere = scratchFolder("elsewhere");
  ASSERT_EQ(::chmod(elsewhere.c_str(), 0755), 0);
  ASSERT_EQ(::symlink(elsewhere.c_str(), folder_.c_str()), 0);
  EXPECT_NE(standardErrorOf([&] { started("s"); }).find("failed to open log file"), std::string::npos);
  EXPECT_FALSE(exists(elsewhere + "/s.log"));
  EXPECT_EQ(modeOf(elsewhere), 0755u) << "its mode is left alone";
}

}  // namespace
