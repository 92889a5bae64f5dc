// Whatever is logged, the file with its end tag and every reply are XML.
#include "tests/logging/log_support.h"
#include "tests/logging/message_maker.h"
#include "tests/logging/xml_judge.h"

namespace {

using namespace test;

class LogFuzzTest : public ::testing::Test {
 protected:
  const std::string path_ = scratchFolder("log") + "/service.log";
};

TEST_F(LogFuzzTest, MessagesOfAnyBytesMakeAWellFormedFile) {
  MessageMaker maker(20120307);
  std::size_t expected = 0;
  const CTovanLoggerRef logger(new CTovanLogger());
  logger->startupLogging(CSTR(path_), false);
  for (int i = 0; i < 50000; ++i) {
    const std::string message = maker.make();
    logger->log(static_cast<unsigned int>(i) % 4) << std::string_view(message) << "\n";
    expected += message.find_first_not_of('\n') != std::string::npos;
  }
  const XMLDocument file = judgedLog(readFile(path_));
  ASSERT_EQ(file.error, "");
  EXPECT_EQ(judged(logger->logDataAsString()).elements.size(), file.elements.size());
  const std::vector<XMLElement> records = file.named("log");
  EXPECT_GE(records.size(), expected) << "a message that ends in newlines before its last piece is two";
  for (const XMLElement& record : records) {
    ASSERT_EQ(record["pid"], pid());
    ASSERT_NE(record["msg"], "(absent)");
  }
}

TEST_F(LogFuzzTest, PiecesOfAnyBytesMakeWellFormedRecords) {
  MessageMaker maker(1);
  MemoryLog log;
  for (int i = 0; i < 20000; ++i) {
    log.log() << maker.make().c_str() << i << CSTR(maker.make()) << maker.make().c_str();
    log.log() << "\n";
    const std::string written = log.taken();
    ASSERT_EQ(judged("<logs>" + written + "</logs>").error, "") << written;
  }
}

TEST_F(LogFuzzTest, MarksOfAnyTextsAreWellFormed) {
  MessageMaker maker(2);
  MemoryLog log;
  for (int i = 0; i < 20000; ++i) {
    const plinth::CStringRef what = CSTR(maker.make());  // an empty holder when it is no UTF-8
    log.log() << CTovanLogger::CMark(CTovanLogger::kMarkKindBegin, what, CSTR(maker.make()), CSTR(maker.make()));
    const std::string written = log.taken();
    ASSERT_EQ(judged(written).error, "") << written;
    ASSERT_EQ(written.find('\n'), written.size() - 1) << written;
  }
}

// An attribute that the record has already would be there twice: such a message is escaped, although it parses alone.
TEST_F(LogFuzzTest, AMessageCannotRepeatAnAttributeOfItsRecord) {
  for (const std::string name : {"tms", "tmt", "pid", "msg"}) {
    MemoryLog log;
    log.log(1) << ("a\" " + name + "=\"b\n").c_str();
    const XMLDocument document = judged(log.taken());
    ASSERT_EQ(document.error, "") << name;
    EXPECT_EQ(document.elements.at(0)["msg"], "a%22 " + name + "=%22b");
    EXPECT_EQ(document.elements[0]["pid"], pid());
  }
}

}  // namespace
