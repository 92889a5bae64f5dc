#include <tovan/time_stamp.h>

#include <plinth/shared_cf_ref.h>

#include <CoreFoundation/CoreFoundation.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

using tovan::CTimeStamp;

// The system time zone for one test.
class TimeStampTest : public ::testing::Test {
 protected:
  void TearDown() override { setZone("UTC"); }
  static void setZone(const char* zone) {
    setenv("TZ", zone, 1);
    CFTimeZoneResetSystem();
  }
};

std::string textOf(CFAbsoluteTime time) { return CTimeStamp(time).getText(); }

TEST_F(TimeStampTest, TheTextIsMonthDayYearAndTheTimeWithMilliseconds) {
  setZone("UTC");
  EXPECT_EQ(textOf(0.0), "01/01/2001 00:00:00.000");
  EXPECT_EQ(textOf(352821909.25), "03/07/2012 14:05:09.250");
  EXPECT_EQ(textOf(86399.999), "01/01/2001 23:59:59.999");
}

TEST_F(TimeStampTest, LeapDaysAndEndsOfYearsAreRight) {
  setZone("UTC");
  EXPECT_EQ(textOf(730857599.5), "02/28/2024 23:59:59.500");
  EXPECT_EQ(textOf(730857600.0), "02/29/2024 00:00:00.000");
  EXPECT_EQ(textOf(757382399.0), "12/31/2024 23:59:59.000");
  EXPECT_EQ(textOf(757382400.0), "01/01/2025 00:00:00.000");
}

TEST_F(TimeStampTest, TheTimeIsThatOfTheSystemZone) {
  setZone("Asia/Kolkata");
  EXPECT_EQ(textOf(1000.0), "01/01/2001 05:46:40.000");
  setZone("America/New_York");
  EXPECT_EQ(textOf(2000.0), "12/31/2000 19:33:20.000");
}

TEST_F(TimeStampTest, TheTimeFollowsDaylightSaving) {
  setZone("Europe/Berlin");
  // 2024-03-31 01:00 GMT, when 02:00 becomes 03:00, and 2024-10-27 01:00 GMT, when 03:00 becomes 02:00.
  EXPECT_EQ(textOf(733539599.0), "03/31/2024 01:59:59.000");
  EXPECT_EQ(textOf(733539600.0), "03/31/2024 03:00:00.000");
  EXPECT_EQ(textOf(751683599.0), "10/27/2024 02:59:59.000");
  EXPECT_EQ(textOf(751683600.0), "10/27/2024 02:00:00.000");
}

TEST_F(TimeStampTest, TheSecondsNeverReadSixty) {
  setZone("UTC");
  EXPECT_EQ(textOf(59.9994), "01/01/2001 00:00:59.999");
  EXPECT_EQ(textOf(59.9996), "01/01/2001 00:01:00.000");
  EXPECT_EQ(textOf(3599.9999), "01/01/2001 01:00:00.000");
  EXPECT_EQ(textOf(31535999.9999), "01/01/2002 00:00:00.000");
}

TEST_F(TimeStampTest, TheMomentKeepsItsFullPrecision) {
  const CFAbsoluteTime time = 352821909.12345678;
  EXPECT_EQ(CTimeStamp(time).getAbsoluteTime(), time);
  EXPECT_EQ(CTimeStamp(59.9996).getAbsoluteTime(), 59.9996);
}

TEST_F(TimeStampTest, ANegativeTimeIsTheCurrentTime) {
  for (const CFAbsoluteTime time :
       {-1.0, -0.001, -1e300, -std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN()}) {
    const CFAbsoluteTime before = CFAbsoluteTimeGetCurrent();
    const CTimeStamp stamp(time);
    const CFAbsoluteTime after = CFAbsoluteTimeGetCurrent();
    EXPECT_GE(stamp.getAbsoluteTime(), before) << time;
    EXPECT_LE(stamp.getAbsoluteTime(), after) << time;
    EXPECT_EQ(stamp.getText(), textOf(stamp.getAbsoluteTime())) << time;
  }
}

TEST_F(TimeStampTest, NoArgumentIsTheCurrentTime) {
  const CFAbsoluteTime before = CFAbsoluteTimeGetCurrent();
  const CTimeStamp stamp;
  EXPECT_GE(stamp.getAbsoluteTime(), before);
  EXPECT_LE(stamp.getAbsoluteTime(), CFAbsoluteTimeGetCurrent());
}

TEST_F(TimeStampTest, AMomentBeyondTheYear9999HasTheTextOfItsEnd) {
  setZone("UTC");
  EXPECT_EQ(textOf(252423993599.0), "12/31/9999 23:59:59.000");
  for (const CFAbsoluteTime time : {252423993599.9999, 252423993600.0, 1e18, std::numeric_limits<double>::max(),
                                    std::numeric_limits<double>::infinity()}) {
    EXPECT_EQ(textOf(time), "12/31/9999 23:59:59.999") << time;
  }
  setZone("Pacific/Kiritimati");
  EXPECT_EQ(textOf(252423990000.5), "12/31/9999 23:59:59.500");
}

TEST_F(TimeStampTest, ARandomMomentHasTheTextOfItsGregorianDate) {
  setZone("Europe/Berlin");
  const plinth::CSharedCFRef<CFTimeZoneRef> zone = CFTimeZoneCopySystem();
  std::mt19937_64 random(20010101);
  std::uniform_int_distribution<std::int64_t> milliseconds(0, 3'000'000'000'000);
  for (int i = 0; i < 20000; ++i) {
    const std::int64_t count = milliseconds(random);
    const auto date = CFAbsoluteTimeGetGregorianDate(static_cast<double>(count / 1000), zone.get());
    std::array<char, 64> expected{};
    std::snprintf(expected.data(), expected.size(), "%02d/%02d/%04d %02d:%02d:%06.3lf", date.month, date.day,
                  static_cast<int>(date.year), date.hour, date.minute,
                  date.second + static_cast<double>(count % 1000) / 1000.0);
    ASSERT_EQ(textOf(static_cast<double>(count) / 1000.0), expected.data()) << count << " ms";
  }
}

TEST_F(TimeStampTest, StampsOfOneSecondAgreeWithThoseMadeAlone) {
  setZone("UTC");
  for (const char* expected : {"01/01/2001 00:00:07.001", "01/01/2001 00:00:07.999", "01/01/2001 00:00:06.999"}) {
    const double time = std::atof(expected + 17);
    EXPECT_EQ(textOf(time), expected);
  }
}

TEST_F(TimeStampTest, ThreadsDoNotDisturbOneAnother) {
  setZone("UTC");
  std::vector<std::thread> threads;
  std::array<int, 4> wrong{};
  for (std::size_t index = 0; index < wrong.size(); ++index) {
    threads.emplace_back([index, &wrong] {
      const double start = static_cast<double>(index) * 10;
      const std::string first = "01/01/2001 00:00:" + std::string(index == 0 ? "0" : "") + std::to_string(index * 10);
      for (int i = 0; i < 5000; ++i) {
        wrong[index] += textOf(start + 0.125) != first + ".125";
        textOf(start + 100 + i);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(wrong, ::testing::Each(0));
}

TEST_F(TimeStampTest, ACopyHasATextOfItsOwn) {
  setZone("UTC");
  CTimeStamp copy(5.0);
  {
    const CTimeStamp original(352821909.25);
    copy = original;
  }
  EXPECT_STREQ(copy.getText(), "03/07/2012 14:05:09.250");
}

}  // namespace
