// A log in a file: its content and its life.
#include <fcntl.h>
#include <sys/prctl.h>

#include <filesystem>

#include "tests/logging/golden.h"
#include "tests/logging/log_file_support.h"
#include "tests/logging/xml_judge.h"

namespace {

using namespace test;
using tovan::endl;
using CMark = CTovanLogger::CMark;

TEST_F(LogFileTest, TwoSessionsAreByteForByteWhatTheFormatSays) {
  {
    const CTovanLoggerRef logger = started();
    logger->log(3) << "plain" << endl;
    logger->log(1) << "it's at "
                   << "level " << 1 << endl;
    logger->log(4) << "filtered" << endl;
    logger->setLogLevel(5);
    logger->log(4) << "14 < 20, gr\u00fcn\n";
    logger->log(3) << "gr\u00fcn, two\nlines\n\n";
    logger->log(3) << CMark(CTovanLogger::kMarkKindBegin, CSTR("transcode"), CSTR("<film> & \"sound\""), CSTR("17"));
    logger->log(3) << "pending " << 7 << " " << 2.5 << " " << true << " " << static_cast<const char*>(nullptr);
    logger->log(3) << CMark(CTovanLogger::kMarkKindMark, nullptr, nullptr, nullptr);
    logger->log(3) << CMark(CTovanLogger::kMarkKindEnd, CSTR("transcode"), nullptr, nullptr);
  }
  clock_.set(kMoment + 86400, 500'000'000);
  { started()->log(3) << tovan::CTimeStamp() << "again\n"; }
  EXPECT_EQ(readFile(path_), golden("two_sessions.log"));
  EXPECT_EQ(judgedLog(readFile(path_)).error, "");
}

TEST_F(LogFileTest, AnEmptyFileGetsTheHeaderAndTheBeginOfTheSession) {
  const CTovanLoggerRef logger = started();
  EXPECT_EQ(readFile(path_), header("logging_tests") + sessionMark("begin")) << "flushed at once";
  EXPECT_EQ(logger->log(3).kind(), CTovanLogger::kStreamKindFile);
  EXPECT_EQ(text(logger->logPath()), path_);
}

TEST_F(LogFileTest, AFileThatExistsAndIsEmptyGetsTheHeader) {
  writeFile(path_, "");
  { started(); }
  EXPECT_EQ(readFile(path_), header("logging_tests") + sessionMark("begin") + sessionMark("end"));
}

TEST_F(LogFileTest, AFileThatHoldsDataGetsNoOtherHeader) {
  writeFile(path_, "old content");
  { started(); }
  EXPECT_EQ(readFile(path_), "old content" + sessionMark("begin") + sessionMark("end"));
}

TEST_F(LogFileTest, ATruncatedFileGetsTheHeaderAgain) {
  { started()->log(3) << "first\n"; }
  { started(true)->log(3) << "second\n"; }
  EXPECT_EQ(readFile(path_), header("logging_tests") + sessionMark("begin") + record("second") + sessionMark("end"));
}

TEST_F(LogFileTest, TheEndTagIsNeverInTheFile) {
  { started()->log(3) << "a\n"; }
  EXPECT_EQ(readFile(path_).find("</logs>"), std::string::npos);
}

TEST_F(LogFileTest, EveryRecordIsInTheFileWhenItsOperatorReturns) {
  const CTovanLoggerRef logger = started();
  const std::string before = readFile(path_);
  logger->log(3) << "a\n";
  EXPECT_EQ(readFile(path_), before + record("a"));
  logger->log(3) << "b" << endl;
  EXPECT_EQ(readFile(path_), before + record("a") + record("b"));
}

// Somebody else may append, or empty the file: the next record goes to its end.
TEST_F(LogFileTest, RecordsGoToTheEndOfTheFile) {
  const CTovanLoggerRef logger = started();
  std::filesystem::resize_file(path_, 0);
  logger->log(3) << "a\n";
  EXPECT_EQ(readFile(path_), record("a"));
}

TEST_F(LogFileTest, TheProcessNameIsMadeSafe) {
  char name[16] = {};
  ASSERT_EQ(::prctl(PR_GET_NAME, name), 0);
  ASSERT_EQ(::prctl(PR_SET_NAME, "a<b\"c&'d>"), 0);
  { started(); }
  ASSERT_EQ(::prctl(PR_SET_NAME, "\xFF\x01"), 0);
  { started(folder_ + "/other.log"); }
  ::prctl(PR_SET_NAME, name);
  const XMLDocument document = judgedLog(readFile(path_));
  ASSERT_EQ(document.error, "") << readFile(path_);
  EXPECT_EQ(document.elements[0].order(), "tms tmt pnm");
  EXPECT_EQ(document.elements[0]["pnm"], "a<b\"c&'d>");
  EXPECT_EQ(judgedLog(readFile(folder_ + "/other.log")).error, "") << readFile(folder_ + "/other.log");
}

TEST_F(LogFileTest, AProcessWithoutANameIsUnknown) {
  char name[16] = {};
  ASSERT_EQ(::prctl(PR_GET_NAME, name), 0);
  ASSERT_EQ(::prctl(PR_SET_NAME, ""), 0);
  { started(); }
  ::prctl(PR_SET_NAME, name);
  EXPECT_EQ(judgedLog(readFile(path_)).elements.at(0)["pnm"], "unknown");
}

TEST_F(LogFileTest, StandardErrorGetsNeitherHeaderNorMarks) {
  for (const bool truncate : {false, true}) {
    EXPECT_EQ(standardErrorOf([&] {
                const CTovanLoggerRef logger = started("/dev/stderr", truncate);
                EXPECT_EQ(logger->log(3).kind(), CTovanLogger::kStreamKindConsole);
                EXPECT_EQ(text(logger->logPath()), "/dev/stderr");
                logger->log(3) << "a" << endl;
              }),
              record("a"));
  }
}

TEST_F(LogFileTest, TheFileIsClosedWithItsLogger) {
  const auto descriptors = [] {
    std::size_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) ++count;
    return count;
  };
  { started(); }
  const std::size_t before = descriptors();
  for (int i = 0; i < 10; ++i) started();
  EXPECT_EQ(descriptors(), before);
}

TEST_F(LogFileTest, AChildProgramDoesNotInheritTheFile) {
  const CTovanLoggerRef logger = started();
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code gone;
    if (std::filesystem::read_symlink(entry, gone) != path_) continue;
    EXPECT_NE(::fcntl(std::stoi(entry.path().filename().string()), F_GETFD) & FD_CLOEXEC, 0);
  }
}

TEST_F(LogFileTest, AMessageThatWasNotEndedIsNotWritten) {
  { started()->log(3) << "never ended"; }
  EXPECT_EQ(readFile(path_), header("logging_tests") + sessionMark("begin") + sessionMark("end"));
}

}  // namespace
