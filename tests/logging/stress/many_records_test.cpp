// Many threads and one log: no record is lost, none is interleaved with another.
#include <plinth/mutex.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <thread>
#include <vector>

#include "tests/logging/log_support.h"
#include "tests/logging/xml_judge.h"

namespace {

using namespace test;
using tovan::CTovanGlobalLogger;
using tovan::endl;

#if defined(TOVAN_SANITIZED)
constexpr int kRecords = 2000;  // the same paths, at the pace of a sanitizer
#else
constexpr int kRecords = 100000;
#endif
constexpr int kThreads = 8;

void runTogether(int count, const std::function<void(int)>& work) {
  std::vector<std::thread> threads;
  for (int i = 0; i < count; ++i) threads.emplace_back([&, i] { work(i); });
  for (std::thread& thread : threads) thread.join();
}

// Reads a log record by record, in the form " THREAD NUMBER ".
class RecordCounter {
 public:
  explicit RecordCounter(const std::string& path) : log_(path, std::ios::binary) {
    parser_ = XML_ParserCreate("UTF-8");
    XML_SetUserData(parser_, this);
    XML_SetStartElementHandler(parser_, [](void* data, const XML_Char* name, const XML_Char** attributes) {
      if (std::string_view(name) == "log") static_cast<RecordCounter*>(data)->count(attributes);
    });
  }
  ~RecordCounter() { XML_ParserFree(parser_); }
  RecordCounter(const RecordCounter&) = delete;
  RecordCounter& operator=(const RecordCounter&) = delete;

  // How many records each thread has, all in their order; the error of the first that is not.
  std::string read() {
    std::string piece(1 << 20, '\0');
    bool good = true;
    while (good && log_.read(piece.data(), static_cast<std::streamsize>(piece.size())).gcount() > 0) {
      good = XML_Parse(parser_, piece.data(), static_cast<int>(log_.gcount()), XML_FALSE) == XML_STATUS_OK;
    }
    good = good && XML_Parse(parser_, "</logs>", 7, XML_TRUE) == XML_STATUS_OK;
    if (!good) error_ += XML_ErrorString(XML_GetErrorCode(parser_));
    return error_;
  }
  std::array<int, kThreads> counts{};

 private:
  void count(const XML_Char** attributes) {
    std::string message;
    for (; *attributes != nullptr; attributes += 2) {
      if (std::string_view(attributes[0]) == "msg") message = attributes[1];
    }
    int thread = -1, number = -1;
    const int fields = std::sscanf(message.c_str(), "%d %d", &thread, &number);
    if (fields != 2 || thread < 0 || thread >= kThreads ||
        message != std::to_string(thread) + " " + std::to_string(number) + " of a thread") {
      if (error_.empty()) error_ = "odd record: " + message;
      return;
    }
    int& next = counts[static_cast<std::size_t>(thread)];
    if (number != next && error_.empty()) error_ = "out of order: " + message;
    ++next;
  }

  std::ifstream log_;
  XML_Parser parser_;
  std::string error_;
};

class ManyRecordsTest : public ::testing::Test {
 protected:
  CTovanLoggerRef started() const { return started(path_); }
  static CTovanLoggerRef started(const std::string& path) {
    CTovanLoggerRef logger(new CTovanLogger());
    logger->startupLogging(CSTR(path), false);
    return logger;
  }
  const std::string path_ = scratchFolder("log") + "/service.log";
};

TEST_F(ManyRecordsTest, EightThreadsLoseAndInterleaveNothing) {
  {
    const CTovanLoggerRef logger = started();
    runTogether(kThreads, [&](int thread) {
      for (int i = 0; i < kRecords; ++i) {
        logger->log(3) << (std::to_string(thread) + " " + std::to_string(i) + " of a thread\n").c_str();
      }
    });
  }
  RecordCounter counter(path_);
  EXPECT_EQ(counter.read(), "");
  for (const int count : counter.counts) EXPECT_EQ(count, kRecords);
}

// A thread that holds the stream's mutex writes several pieces as one message.
TEST_F(ManyRecordsTest, MessagesInPiecesUnderTheStreamsMutexAreNotInterleaved) {
  {
    const CTovanLoggerRef logger = started();
    runTogether(kThreads, [&](int thread) {
      for (int i = 0; i < kRecords / 10; ++i) {
        OStream& stream = logger->log(3);
        const plinth::CAutoMutex whole(stream.mutex());
        stream << thread << " " << i << " of a thread" << endl;
      }
    });
  }
  RecordCounter counter(path_);
  EXPECT_EQ(counter.read(), "");
  for (const int count : counter.counts) EXPECT_EQ(count, kRecords / 10);
}

// Records longer than a page: the kernel makes the file grow page by page while one is written.
TEST_F(ManyRecordsTest, RepliesTakenUnderLoadAreDocuments) {
  const std::string message = std::string(20000, 'x') + "\n";
  const std::string end = "\"/>\n</logs>\n";
  std::size_t replies = 0, torn = 0;
  for (int round = 0; round < 50; ++round) {
    const CTovanLoggerRef logger = started(path_ + "-" + std::to_string(round));
    std::atomic<int> working{2};
    std::thread asking([&] {
      for (; working > 0; ++replies) torn += !logger->logDataAsString().ends_with(end);
    });
    runTogether(2, [&](int) {
      for (int i = 0; i < 100; ++i) logger->log(3) << message.c_str();
      --working;
    });
    asking.join();
    const XMLDocument document = judged(logger->logDataAsString());
    EXPECT_EQ(document.error, "");
    EXPECT_EQ(document.named("log").size(), 200u);
  }
  EXPECT_GT(replies, 50u);
  EXPECT_EQ(torn, 0u) << "of " << replies << " replies end within a record";
}

TEST_F(ManyRecordsTest, LevelsSetByManyThreadsAreAllWritten) {
  const CTovanLoggerRef logger = started();
  runTogether(kThreads, [&](int thread) {
    for (int i = 0; i < kRecords / 100; ++i) {
      logger->setLogLevel(static_cast<unsigned int>((thread + i) % 5));
      logger->log(0) << "always\n";
    }
  });
  const XMLDocument document = judgedLog(readFile(path_));
  ASSERT_EQ(document.error, "");
  int always = 0;
  std::string last = "Setting log level = 3";
  for (const XMLElement& record : document.named("log")) {
    const std::string message = record["msg"];
    always += message == "always";
    if (message != "always") last = message;
  }
  EXPECT_EQ(always, kThreads * (kRecords / 100));
  EXPECT_EQ(last, "Setting log level = " + std::to_string(logger->logLevel()));
}

TEST_F(ManyRecordsTest, OfManyStartUpsAtOnceOneWins) {
  for (int round = 0; round < 200; ++round) {
    const std::string path = path_ + "-" + std::to_string(round);
    std::atomic<int> refused{0};
    {
      const CTovanLoggerRef logger(new CTovanLogger());
      runTogether(4, [&](int) {
        try {
          logger->startupLogging(CSTR(path), false);
        } catch (const plinth::CParamException&) {
          ++refused;
        }
      });
    }
    EXPECT_EQ(refused, 3);
    ASSERT_EQ(judgedLog(readFile(path)).named("mrk").size(), 2u);
  }
}

// Whoever has a reference writes into the logger that it got, whatever is set meanwhile.
TEST_F(ManyRecordsTest, TheGlobalLoggerIsReplacedUnderLoad) {
  const std::string paths[] = {path_ + "-0", path_ + "-1"};
  std::atomic<int> working{4};
  CTovanGlobalLogger::setLogger(started(paths[0]));
  std::thread replacing([&] {
    for (int i = 1; working > 0; ++i) CTovanGlobalLogger::setLogger(started(paths[i % 2]));
  });
  runTogether(4, [&](int) {
    for (int i = 0; i < kRecords / 10; ++i) CTovanGlobalLogger::getLogger()->log(3) << "x\n";
    --working;
  });
  replacing.join();
  CTovanGlobalLogger::setLogger(nullptr);
  std::size_t found = 0;
  for (const std::string& path : paths) {
    const XMLDocument document = judgedLog(readFile(path));
    EXPECT_EQ(document.error, "");
    found += document.named("log").size();
  }
  EXPECT_EQ(found, static_cast<std::size_t>(4 * (kRecords / 10)));
}

// A stream of log() may outlive its logger: then it discards, and that is all.
TEST_F(ManyRecordsTest, TheGlobalStreamIsUsedWhileLoggersGo) {
  const std::string paths[] = {path_ + "-0", path_ + "-1"};
  std::atomic<int> working{4};
  CTovanGlobalLogger::setLogger(started(paths[0]));
  std::thread replacing([&] {
    for (int i = 1; working > 0; ++i) CTovanGlobalLogger::setLogger(started(paths[i % 2]));
  });
  runTogether(4, [&](int) {
    for (int i = 0; i < kRecords / 10; ++i) {
      CTovanGlobalLogger::log(3) << "x\n";
      CTovanGlobalLogger::serviceLog(4) << "y\n";
    }
    --working;
  });
  replacing.join();
  CTovanGlobalLogger::setLogger(nullptr);
  for (const std::string& path : paths) {
    const XMLDocument document = judgedLog(readFile(path));
    EXPECT_EQ(document.error, "");
    for (const XMLElement& record : document.named("log")) ASSERT_EQ(record["msg"], "x");
  }
}

}  // namespace
