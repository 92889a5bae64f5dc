// The get-log reply: the file with its end tag, or a document that says why there is none.
#include <fcntl.h>
#include <sys/stat.h>

#include <filesystem>

#include "tests/logging/fixed_clock.h"
#include "tests/logging/golden.h"
#include "tests/logging/intercepted_read.h"
#include "tests/logging/log_support.h"
#include "tests/logging/xml_judge.h"

namespace {

using namespace test;

class LogReplyTest : public ::testing::Test {
 protected:
  // A logger whose file is the one at path_, which it does not itself write.
  CTovanLoggerRef onFile() {
    CTovanLoggerRef logger(new CTovanLogger());
    logger->startupLogging(OStreamRef(new OStream(CTovanLogger::kStreamKindFile, unused_, CSTR(path_))));
    return logger;
  }
  // The reply to a file of the length.
  std::string replyTo(std::size_t length) {
    writeFile(path_, content(length));
    return onFile()->logDataAsString();
  }
  static std::string content(std::size_t length) {
    std::string bytes(length, '\0');
    for (std::size_t i = 0; i < length; ++i) bytes[i] = static_cast<char>(i * 7 + i / 256);
    return bytes;
  }

  const std::string path_ = scratchFolder("reply") + "/service.log";
  std::ostringstream unused_;
  FixedClock clock_{kMoment, kQuarter};
};

TEST_F(LogReplyTest, TheReplyIsTheFileWithItsEndTag) {
  const CTovanLoggerRef logger(new CTovanLogger());
  logger->startupLogging(CSTR(path_), false);
  logger->log(3) << "a < b\n";
  const std::string reply = logger->logDataAsString();
  EXPECT_EQ(reply, header("logging_tests") + sessionMark("begin") + record("a %3C b") + "</logs>\n");
  EXPECT_EQ(judged(reply).error, "");
  EXPECT_EQ(readFile(path_) + "</logs>\n", reply) << "the file stays open";
}

TEST_F(LogReplyTest, SixHundredBytesAreReturnedWhole) { EXPECT_EQ(replyTo(600), content(600) + "</logs>\n"); }

TEST_F(LogReplyTest, EveryLengthAroundAPieceIsReturnedWhole) {
  for (const std::size_t length : {1u, 88u, 255u, 256u, 257u, 511u, 512u, 513u, 8191u, 8192u, 8193u, 1000000u}) {
    EXPECT_TRUE(replyTo(length) == content(length) + "</logs>\n") << length;
  }
}

TEST_F(LogReplyTest, AnEmptyFileGivesAnEmptyReply) { EXPECT_EQ(replyTo(0), ""); }

TEST_F(LogReplyTest, AFileThatIsGoneGivesAnEmptyReply) {
  EXPECT_EQ(onFile()->logDataAsString(), "");
  const CTovanLoggerRef logger(new CTovanLogger());
  logger->startupLogging(CSTR(path_), false);
  std::filesystem::remove(path_);
  EXPECT_EQ(logger->logDataAsString(), "");
}

TEST_F(LogReplyTest, WhatIsNoFileAnyMoreGivesAnEmptyReplyAndIsNotWaitedFor) {
  const CTovanLoggerRef logger = onFile();
  ASSERT_EQ(::mkfifo(path_.c_str(), 0600), 0);
  EXPECT_EQ(logger->logDataAsString(), "");
  std::filesystem::remove(path_);
  makeFolders(path_);
  EXPECT_EQ(logger->logDataAsString(), "");
}

TEST_F(LogReplyTest, TextThatIsAppendedMeanwhileIsNotIncluded) {
  writeFile(path_, content(600));
  const CTovanLoggerRef logger = onFile();
  const InterceptedRead appending(path_, [&] {
    const int file = ::open(path_.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
    EXPECT_EQ(::write(file, "appended", 8), 8);
    ::close(file);
  });
  EXPECT_EQ(logger->logDataAsString(), content(600) + "</logs>\n");
  EXPECT_EQ(appending.count(), 1) << "the reply read the file another way";
  EXPECT_EQ(readFile(path_), content(600) + "appended");
}

TEST_F(LogReplyTest, AFileThatIsCutMeanwhileIsReturnedAsFarAsItGoes) {
  writeFile(path_, content(600));
  const CTovanLoggerRef logger = onFile();
  const InterceptedRead cutting(path_, [&] { std::filesystem::resize_file(path_, 300); });
  const std::string reply = logger->logDataAsString();
  EXPECT_EQ(cutting.count(), 1) << "the reply read the file another way";
  EXPECT_EQ(reply, content(300) + "</logs>\n");
}

TEST_F(LogReplyTest, AFileThatIsEmptiedMeanwhileGivesAnEmptyReply) {
  writeFile(path_, content(600));
  const CTovanLoggerRef logger = onFile();
  const InterceptedRead emptying(path_, [&] { std::filesystem::resize_file(path_, 0); });
  EXPECT_EQ(logger->logDataAsString(), "");
  EXPECT_EQ(emptying.count(), 1) << "the reply read the file another way";
}

TEST_F(LogReplyTest, WithoutAFileTheReplySaysSo) {
  const CTovanLoggerRef fresh(new CTovanLogger());
  EXPECT_EQ(fresh->logDataAsString(), golden("error_3.xml"));
  MemoryLog console;
  EXPECT_EQ(console.logger->logDataAsString(), golden("error_3.xml"));
  EXPECT_EQ(console.taken(), "") << "nothing is logged";
  const CTovanLoggerRef standardError(new CTovanLogger());
  standardErrorOf([&] { standardError->startupLogging(CSTR("/dev/stderr"), false); });
  EXPECT_EQ(standardError->logDataAsString(), golden("error_3.xml"));
}

TEST_F(LogReplyTest, EveryErrorHasItsDocument) {
  for (const int kind : {0, 1, 2, 3, 4, 5}) {
    const std::string reply = CTovanLogger::logErrorDataAsString(static_cast<CTovanLogger::LogErrorKind>(kind));
    EXPECT_EQ(reply, golden("error_" + std::to_string(kind) + ".xml"));
    const XMLDocument document = judged(reply);
    ASSERT_EQ(document.error, "");
    EXPECT_EQ(document.elements.at(1).order(), "tms tmt pid kind sub what avail msg");
  }
}

TEST_F(LogReplyTest, AnUnknownErrorIsAGeneralOne) {
  for (const int kind : {9, -1, 6, 1000000}) {
    EXPECT_EQ(CTovanLogger::logErrorDataAsString(static_cast<CTovanLogger::LogErrorKind>(kind)), golden("error_5.xml"))
        << kind;
  }
}

}  // namespace
