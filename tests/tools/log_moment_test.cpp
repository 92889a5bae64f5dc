// Moments of a log, from and for people.
#include "tools/tovanctl/log_moment.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

#include "tools/tovanctl/exit_code.h"

namespace {

using testing::HasSubstr;
using tovanctl::durationText;
using tovanctl::logMomentText;
using tovanctl::logMomentUniversal;
using tovanctl::parseLogMoment;

constexpr double kNow = 817741509.25;  // 2026-11-30 14:05:09.250 GMT

class LogMomentTest : public testing::Test {
 protected:
  void SetUp() override { use("UTC"); }
  void TearDown() override {
    ::unsetenv("TZ");
    ::tzset();
  }
  static void use(const char* zone) {
    ::setenv("TZ", zone, 1);
    ::tzset();
  }
  static double parse(const std::string& text) { return parseLogMoment("--since", text, kNow); }
};

TEST_F(LogMomentTest, ADayAClockTimeAndBothAreTaken) {
  EXPECT_EQ(logMomentText(parse("2026-11-21")), "2026-11-21 00:00:00.000");
  EXPECT_EQ(logMomentText(parse("2026-11-21 14:05")), "2026-11-21 14:05:00.000");
  EXPECT_EQ(logMomentText(parse("2026-11-21 14:05:09")), "2026-11-21 14:05:09.000");
  EXPECT_EQ(logMomentText(parse("2026-11-21T14:05:09")), "2026-11-21 14:05:09.000");
  EXPECT_EQ(logMomentText(parse("14:05")), logMomentText(kNow).substr(0, 10) + " 14:05:00.000");
  EXPECT_EQ(logMomentText(parse("23:59:58")), logMomentText(kNow).substr(0, 10) + " 23:59:58.000");
  EXPECT_EQ(logMomentText(parse("2028-02-29")), "2028-02-29 00:00:00.000");
}

TEST_F(LogMomentTest, TimesAgoAreTaken) {
  EXPECT_DOUBLE_EQ(parse("-30s"), kNow - 30);
  EXPECT_DOUBLE_EQ(parse("-10m"), kNow - 600);
  EXPECT_DOUBLE_EQ(parse("-2h"), kNow - 7200);
  EXPECT_DOUBLE_EQ(parse("-1d"), kNow - 86400);
  EXPECT_DOUBLE_EQ(parse("-0m"), kNow);
}

TEST_F(LogMomentTest, LocalTimesAreThoseOfTheZone) {
  use("Asia/Kathmandu");  // 5:45 ahead
  EXPECT_EQ(logMomentUniversal(parse("2026-11-21 05:45")), "2026-11-21T00:00:00.000Z");
  use("Europe/Berlin");
  EXPECT_EQ(logMomentUniversal(parse("2026-07-01 12:00")), "2026-07-01T10:00:00.000Z");
  EXPECT_EQ(logMomentUniversal(parse("2026-12-01 12:00")), "2026-12-01T11:00:00.000Z");
}

TEST_F(LogMomentTest, WhatIsNoTimeIsAUsageErrorThatNamesTheForms) {
  for (const char* const text : {"",
                                 "now",
                                 "2026",
                                 "2026-13-01",
                                 "2026-02-29",
                                 "2026-11-00",
                                 "0000-01-01",
                                 "2026-11-21 ",
                                 "2026-11-21 24:00",
                                 "2026-11-21 14:60",
                                 "2026-11-21 14:05:60",
                                 "2026-11-21 14",
                                 "2026-11-21 14:05:09.2",
                                 "14",
                                 "24:00",
                                 "14:5",
                                 "-",
                                 "-m",
                                 "-10",
                                 "-10x",
                                 "-10m ",
                                 "--10m",
                                 "- 10m",
                                 "10m",
                                 "-1.5h",
                                 "2026/11/21",
                                 "21-11-2026",
                                 "٢٠٢٦-١١-٢١"}) {
    try {
      parse(text);
      FAIL() << "taken: " << text;
    } catch (const tovanctl::CommandError& error) {
      EXPECT_EQ(error.code(), tovanctl::kUsage);
      EXPECT_THAT(error.what(), HasSubstr("--since: \"" + std::string(text) + "\" is no time"));
      EXPECT_THAT(error.what(), HasSubstr("\"2026-11-21 14:05\""));
      EXPECT_THAT(error.what(), HasSubstr("\"-10m\""));
    }
  }
}

TEST_F(LogMomentTest, TextsAreThoseOfTheMomentRoundedToTheMillisecond) {
  EXPECT_EQ(logMomentText(352821909.25), "2012-03-07 14:05:09.250");
  EXPECT_EQ(logMomentText(352821909.9996), "2012-03-07 14:05:10.000");
  EXPECT_EQ(logMomentText(-0.001), "2000-12-31 23:59:59.999");
  EXPECT_EQ(logMomentText(-0.0004), "2001-01-01 00:00:00.000");
  EXPECT_EQ(logMomentUniversal(-62135596800.0 - 978307200.0), "0001-01-01T00:00:00.000Z");
}

TEST_F(LogMomentTest, DurationsHaveTheUnitsTheyNeed) {
  EXPECT_EQ(durationText(0), "0.000 s");
  EXPECT_EQ(durationText(0.0204), "0.020 s");
  EXPECT_EQ(durationText(59.9996), "1 min 00.000 s");
  EXPECT_EQ(durationText(185.25), "3 min 05.250 s");
  EXPECT_EQ(durationText(7385.25), "2 h 03 min 05.250 s");
  EXPECT_EQ(durationText(-1.5), "-1.500 s");
  EXPECT_EQ(durationText(-0.0001), "0.000 s");
}

}  // namespace
