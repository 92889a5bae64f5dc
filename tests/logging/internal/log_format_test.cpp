#include "logging/log_format.h"

#include <CoreFoundation/CFTimeZone.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>

#include "foundation/milliseconds.h"

namespace {

class LogFormatTest : public ::testing::Test {
 protected:
  void SetUp() override {
    setenv("TZ", "UTC", 1);
    CFTimeZoneResetSystem();
  }
};

std::string printed(double seconds) {
  char text[64];
  std::snprintf(text, sizeof text, "%.3f", seconds);
  return text;
}

// The head of a record in the plainest way.
std::string plainHead(CFAbsoluteTime time, unsigned int level) {
  const tovan::CTimeStamp moment(time);
  std::string head = "<log tms=\"" + printed(moment.getAbsoluteTime()) + "\" tmt=\"" + moment.getText() + "\" pid=\"" +
                     std::to_string(::getpid()) + "\"";
  if (level != 3) head += " lvl=\"" + std::to_string(level) + "\"";
  return head + " msg=\"";
}

TEST_F(LogFormatTest, SecondsAreRoundedAsPrintfRoundsThem) {
  std::mt19937_64 random(2001);
  std::uniform_real_distribution<double> seconds(0, 2e9);
  std::uniform_int_distribution<std::int64_t> milliseconds(0, 2'000'000'000'000);
  const auto check = [](double time) {
    ASSERT_EQ(tovan::secondsText(tovan::CTimeStamp(time)), printed(time)) << std::hexfloat << time;
  };
  for (int i = 0; i < 100000; ++i) {
    check(seconds(random));
    // Beside a half millisecond, where the product alone misleads.
    const double half = (static_cast<double>(milliseconds(random)) + 0.5) / 1000.0;
    check(half);
    check(std::nextafter(half, 0));
    check(std::nextafter(half, 1e12));
  }
  for (const double tie : {0.0625, 0.1875, 0.3125, 352821909.0625, 352821909.1875}) check(tie);
}

TEST_F(LogFormatTest, ANegativeTimeIsRoundedAsPrintfRoundsIt) {
  for (const double seconds : {-0.25, -978307200.0625, -1.0005, -59.9996}) {
    EXPECT_EQ(tovan::roundedMilliseconds(seconds), -tovan::roundedMilliseconds(-seconds));
  }
  EXPECT_EQ(tovan::roundedMilliseconds(-59.9996), -60000);
}

TEST_F(LogFormatTest, AHeadIsTheSameWhetherItsSecondWasMadeBefore) {
  tovan::RecordHeads heads;
  std::mt19937_64 random(2001);
  std::uniform_int_distribution<int> step(0, 700);
  double time = 352821900;
  for (int i = 0; i < 5000; ++i, time += step(random) / 1000.0 + 0.0004) {
    const auto level = static_cast<unsigned int>(i % 5);
    std::string text = "before ";
    heads.append(text, time, level);
    ASSERT_EQ(text, "before " + plainHead(time, level));
  }
}

TEST_F(LogFormatTest, TimeMayGoBack) {
  tovan::RecordHeads heads;
  for (const double time : {352821909.25, 352821908.75, 59.9996, 59.9994, 352821909.5, 0.0}) {
    std::string text;
    heads.append(text, time, 3);
    EXPECT_EQ(text, plainHead(time, 3));
  }
}

TEST_F(LogFormatTest, TheMinuteMovesOnInBothTexts) {
  tovan::RecordHeads heads;
  std::string text;
  heads.append(text, 59.9996, 3);
  EXPECT_EQ(text.substr(0, 50), "<log tms=\"60.000\" tmt=\"01/01/2001 00:01:00.000\" pi");
}

TEST_F(LogFormatTest, AChildOfAForkHasItsOwnIdInTheHeads) {
  tovan::RecordHeads heads;
  std::string text;
  heads.append(text, 352821909.25, 3);
  EXPECT_EXIT(
      {
        std::string childs;
        heads.append(childs, 352821909.5, 3);
        std::_Exit(childs == plainHead(352821909.5, 3) ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
}

}  // namespace
