// Several processes, one file.
#include <signal.h>
#include <sys/wait.h>

#include <functional>
#include <map>
#include <vector>

#include "tests/logging/log_support.h"
#include "tests/logging/xml_judge.h"
#include "tests/support/notification_log.h"

namespace {

using namespace test;
using tovan::endl;

class LogProcessesTest : public ::testing::Test {
 protected:
  CTovanLoggerRef started() const {
    CTovanLoggerRef logger(new CTovanLogger());
    logger->startupLogging(CSTR(path_), false);
    return logger;
  }
  // Lets that many processes do the work at the same time, each with its number from 0 on.
  static void runTogether(int count, const std::function<void(int)>& work) {
    int start[2];
    ASSERT_EQ(::pipe(start), 0);
    std::vector<pid_t> children;
    for (int number = 0; number < count; ++number) {
      children.push_back(::fork());
      if (children.back() != 0) continue;
      ::close(start[1]);
      char nothing;
      while (::read(start[0], &nothing, 1) > 0) continue;  // until the parent closes its end
      work(number);
      ::_exit(0);
    }
    ::close(start[0]);
    ::close(start[1]);
    for (const pid_t child : children) {
      int status = -1;
      EXPECT_EQ(::waitpid(child, &status, 0), child);
      EXPECT_EQ(status, 0);
    }
  }
  XMLDocument document() const {
    const std::string content = readFile(path_);
    XMLDocument found = judgedLog(content);
    EXPECT_EQ(found.error, "");
    return found;
  }

  const std::string path_ = scratchFolder("log") + "/service.log";
};

TEST_F(LogProcessesTest, FourProcessesThatAppendLoseNothing) {
  constexpr int kProcesses = 4, kRecords = 5000;
  { started(); }
  runTogether(kProcesses, [&](int number) {
    const CTovanLoggerRef logger = started();
    for (int i = 0; i < kRecords; ++i) logger->log(3) << number << ' ' << i << endl;
  });
  std::map<std::string, int> next;
  std::map<std::string, std::string> numbers;
  for (const XMLElement& record : document().named("log")) {
    const std::string message = record["msg"];
    const std::string number = message.substr(0, message.find(' '));
    EXPECT_EQ(message, number + " " + std::to_string(next[number]++));
    EXPECT_EQ(numbers.emplace(number, record["pid"]).first->second, record["pid"]) << "a process has one id";
  }
  EXPECT_EQ(next.size(), static_cast<std::size_t>(kProcesses));
  for (const auto& [number, count] : next) EXPECT_EQ(count, kRecords) << number;
  EXPECT_EQ(document().named("mrk").size(), 2u + 2 * kProcesses);
}

// A record much longer than any buffer is still written in one piece.
TEST_F(LogProcessesTest, LongRecordsOfFourProcessesAreNotInterleaved) {
  constexpr int kProcesses = 4, kRecords = 100;
  { started(); }
  runTogether(kProcesses, [&](int number) {
    const CTovanLoggerRef logger = started();
    const std::string message(50000 + static_cast<std::size_t>(number), static_cast<char>('a' + number));
    for (int i = 0; i < kRecords; ++i) logger->log(3) << message.c_str() << endl;
  });
  int counts[kProcesses] = {};
  for (const XMLElement& record : document().named("log")) {
    const std::string message = record["msg"];
    const int number = message.at(0) - 'a';
    ASSERT_EQ(message, std::string(50000 + static_cast<std::size_t>(number), message[0]));
    ++counts[number];
  }
  for (const int count : counts) EXPECT_EQ(count, kRecords);
}

TEST_F(LogProcessesTest, AChildsRecordsCarryItsOwnIdAndTheParentsItsOwn) {
  const CTovanLoggerRef logger = started();
  logger->log(3) << "parent" << endl;
  const pid_t child = ::fork();
  if (child == 0) {
    logger->log(3) << "child" << endl;
    logger->log(3) << CTovanLogger::CMark(CTovanLogger::kMarkKindMark, CSTR("child mark"), nullptr, nullptr);
    const std::string reply = CTovanLogger::logErrorDataAsString(CTovanLogger::kLogErrorServiceDown);
    ::_exit(reply.find("pid=\"" + pid() + "\"") != std::string::npos ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0) << "the error document has the child's id";
  logger->log(3) << "parent again" << endl;
  const XMLDocument log = document();
  const std::vector<XMLElement> records = log.named("log");
  ASSERT_EQ(records.size(), 3u);
  EXPECT_EQ(records[0]["pid"], pid());
  EXPECT_EQ(records[1]["pid"], std::to_string(child));
  EXPECT_EQ(records[2]["pid"], pid());
  EXPECT_EQ(log.named("mrk").back()["pid"], std::to_string(child));
}

TEST_F(LogProcessesTest, AGrandchildHasItsOwnIdToo) {
  const CTovanLoggerRef logger = started();
  EXPECT_EQ(inChild([&] {
              return inChild([&] {
                logger->log(3) << "grandchild " << static_cast<int>(::getpid()) << endl;
                return 0;
              });
            }),
            0);
  const std::vector<XMLElement> records = document().named("log");
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0]["msg"], "grandchild " + records[0]["pid"]);
}

// A message that the parent has begun is in both: each ends its own.
TEST_F(LogProcessesTest, AMessageThatHasBegunKeepsTheIdOfItsFirstPiece) {
  const CTovanLoggerRef logger = started();
  logger->log(3) << "begun";
  EXPECT_EQ(inChild([&] {
              logger->log(3) << " child" << endl;
              return 0;
            }),
            0);
  logger->log(3) << " parent" << endl;
  const std::vector<XMLElement> records = document().named("log");
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records[0]["msg"], "begun child");
  EXPECT_EQ(records[1]["msg"], "begun parent");
  EXPECT_EQ(records[1]["pid"], pid());
}

TEST_F(LogProcessesTest, AKilledProcessLeavesWholeRecordsAndTheNextSessionAppends) {
  const pid_t child = ::fork();
  if (child == 0) {
    const CTovanLoggerRef logger = started();
    for (;;) logger->log(3) << "some record" << endl;
  }
  ASSERT_TRUE(runLoopUntil([&] { return exists(path_) && readFile(path_).size() > 100000; }));
  ::kill(child, SIGKILL);
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  std::string content = readFile(path_);
  const std::size_t whole = content.rfind('\n') + 1;
  const XMLDocument before = judgedLog(content.substr(0, whole));
  EXPECT_EQ(before.error, "");
  EXPECT_LT(content.size() - whole, 200u) << "at most a torn last line";
  EXPECT_EQ(before.named("mrk").size(), 1u) << "the end of the session is not marked";
  { started(); }
  const std::string after = readFile(path_);
  EXPECT_EQ(after.substr(0, content.size()), content);
  EXPECT_EQ(judged("<logs>" + after.substr(content.size()) + "</logs>").named("mrk").size(), 2u);
}

TEST_F(LogProcessesTest, ProcessesThatStartAFreshLogAtTheSameTimeWriteOneHeader) {
  for (int round = 0; round < 50; ++round) {
    ::unlink(path_.c_str());
    runTogether(4, [&](int) { started()->log(3) << "a" << endl; });
    const XMLDocument log = document();
    ASSERT_EQ(log.named("logs").size(), 1u) << "round " << round;
    ASSERT_EQ(log.named("log").size(), 4u);
  }
}

}  // namespace
