// What people and programs see of a record, and which records they want to see.
#include "tools/tovanctl/log_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

#include "tools/tovanctl/exit_code.h"
#include "tools/tovanctl/log_filter.h"

namespace {

using testing::HasSubstr;
using tovanctl::LogFilter;
using tovanctl::LogPattern;
using tovanctl::LogPlace;
using tovanctl::LogRecord;
using tovanctl::logRecordJson;
using tovanctl::LogRecordKind;
using tovanctl::logRecordText;
using tovanctl::withoutPercentEscapes;

LogRecord message(const std::string& text, std::uint32_t level = 3) {
  LogRecord record;
  record.time = 352821909.25;
  record.pid = 4711;
  record.level = level;
  record.message = text;
  return record;
}

LogRecord mark() {
  LogRecord record = message("film.mov");
  record.kind = LogRecordKind::mark;
  record.markKind = "end";
  record.what = "job";
  record.requestID = "r7";
  return record;
}

class LogTextTest : public testing::Test {
 protected:
  void SetUp() override {
    ::setenv("TZ", "UTC", 1);
    ::tzset();
  }
  void TearDown() override {
    ::unsetenv("TZ");
    ::tzset();
  }
};

TEST_F(LogTextTest, AMessageIsTimeProcessLevelAndText) {
  EXPECT_EQ(logRecordText(message("text", 1), nullptr, false), "2012-03-07 14:05:09.250     4711   1  text\n");
}

TEST_F(LogTextTest, FurtherLinesOfAMessageBeginBelowTheFirst) {
  EXPECT_EQ(logRecordText(message("one\ntwo"), nullptr, false),
            "2012-03-07 14:05:09.250     4711   3  one\n                                      two\n");
}

TEST_F(LogTextTest, ControlCharactersDoNotReachTheTerminal) {
  const std::string text = logRecordText(message("a\x1b[2Jb\x7F\r\u009B31m\tc \u00A0\u00FC"), nullptr, false);
  EXPECT_THAT(text, HasSubstr("a?[2Jb???31m\tc \u00A0\u00FC\n"));
}

TEST_F(LogTextTest, ColoursAreForLevelsAndMarksAndOnlyWhenAskedFor) {
  EXPECT_THAT(logRecordText(message("text", 1), nullptr, true), HasSubstr("\x1b[31mtext\x1b[0m\n"));
  EXPECT_THAT(logRecordText(message("text", 2), nullptr, true), HasSubstr("\x1b[33mtext\x1b[0m\n"));
  EXPECT_THAT(logRecordText(message("text", 3), nullptr, true), HasSubstr("  text\n"));
  EXPECT_THAT(logRecordText(mark(), nullptr, true), HasSubstr("\x1b[32mend job"));
}

TEST_F(LogTextTest, AMarkSaysWhatAndWhoAndHowLong) {
  EXPECT_THAT(logRecordText(mark(), nullptr, false), HasSubstr("   -  end job: film.mov [request r7]\n"));
  LogPlace place;
  place.depth = 2;
  place.duration = 0.02;
  EXPECT_THAT(logRecordText(mark(), &place, false), HasSubstr("   -      end job: film.mov [request r7] (0.020 s)\n"));
  LogRecord plain = mark();
  plain.markKind = plain.requestID = plain.message = "";
  EXPECT_THAT(logRecordText(plain, nullptr, false), HasSubstr("   -  mark job\n"));
}

TEST_F(LogTextTest, AnElementWithoutAMomentHasDashes) {
  LogRecord element;
  element.kind = LogRecordKind::element;
  element.message = "<state/>";
  EXPECT_EQ(logRecordText(element, nullptr, false), "-----------------------        -   -  <state/>\n");
}

TEST_F(LogTextTest, JsonHasEveryMember) {
  EXPECT_EQ(logRecordJson(message("text", 5), nullptr).dump(),
            R"({"kind":"message","time":"2012-03-07T14:05:09.250Z","absoluteTime":352821909.25,"pid":4711,"level":5,)"
            R"("message":"text"})");
  LogPlace place;
  place.depth = 1;
  place.duration = 0.0204;
  EXPECT_EQ(logRecordJson(mark(), &place).dump(),
            R"({"kind":"mark","time":"2012-03-07T14:05:09.250Z","absoluteTime":352821909.25,"pid":4711,"mark":"end",)"
            R"("what":"job","requestID":"r7","message":"film.mov","depth":1,"duration":0.02})");
  LogRecord odd = message("a");
  odd.others = {{"b", "c"}};
  EXPECT_EQ(logRecordJson(odd, nullptr)["otherAttributes"].dump(), R"({"b":"c"})");
}

TEST_F(LogTextTest, PercentEscapesAreResolvedWhereThatMakesText) {
  EXPECT_EQ(withoutPercentEscapes("14 %3C 20 %c3%bc%0A"), "14 < 20 \u00FC\n");
  EXPECT_EQ(withoutPercentEscapes("100 % of %zz, %4"), "100 % of %zz, %4");
  EXPECT_EQ(withoutPercentEscapes("%3C and %FF"), "%3C and %FF") << "no UTF-8";
  EXPECT_EQ(withoutPercentEscapes("%ED%A0%80"), "%ED%A0%80") << "a surrogate";
  EXPECT_EQ(withoutPercentEscapes("%C0%80 %F4%90%80%80 %E0%80%80"), "%C0%80 %F4%90%80%80 %E0%80%80");
  EXPECT_EQ(withoutPercentEscapes("%3"), "%3");
  EXPECT_EQ(withoutPercentEscapes("%41"), "A");
}

TEST_F(LogTextTest, LevelsAndTimesLimitWhatIsTaken) {
  LogFilter filter;
  EXPECT_TRUE(filter.takes(message("a", 9)));
  filter.level = 3;
  EXPECT_TRUE(filter.takes(message("a", 3)));
  EXPECT_FALSE(filter.takes(message("a", 4)));
  EXPECT_TRUE(filter.takes(mark())) << "a mark counts as 3";
  filter.level = 2;
  EXPECT_FALSE(filter.takes(mark()));
  filter = {};
  filter.since = 352821909.25;
  filter.until = 352821909.25;
  EXPECT_TRUE(filter.takes(message("a"))) << "both are included";
  filter.since = 352821909.251;
  filter.until.reset();
  EXPECT_FALSE(filter.takes(message("a")));
  filter = {};
  filter.until = 352821909.249;
  EXPECT_FALSE(filter.takes(message("a")));
  LogRecord timeless;
  timeless.kind = LogRecordKind::element;
  EXPECT_FALSE(filter.takes(timeless));
  EXPECT_TRUE(LogFilter().takes(timeless));
}

TEST_F(LogTextTest, APatternIsLookedForInEveryText) {
  LogFilter filter;
  filter.pattern = LogPattern("--grep", "^film\\.(mov|avi)$");
  EXPECT_TRUE(filter.takes(mark()));
  EXPECT_FALSE(filter.takes(message("a film.mov")));
  filter.pattern = LogPattern("--grep", "^job$");
  EXPECT_TRUE(filter.takes(mark()));
  filter.pattern = LogPattern("--grep", "^r[0-9]$");
  EXPECT_TRUE(filter.takes(mark()));
  filter.pattern = LogPattern("--grep", "a+b");
  EXPECT_TRUE(filter.takes(message(std::string(1000000, 'a') + "b"))) << "long texts are no danger";
}

TEST_F(LogTextTest, ABadPatternIsAUsageError) {
  try {
    const LogPattern pattern("--grep", "(");
    FAIL() << "taken";
  } catch (const tovanctl::CommandError& error) {
    EXPECT_EQ(error.code(), tovanctl::kUsage);
    EXPECT_THAT(error.what(), HasSubstr("--grep: \"(\" is no regular expression: "));
  }
}

}  // namespace
