// The two times of a record, in zones that make it hard.
#include <CoreFoundation/CFTimeZone.h>

#include <cstdlib>
#include <random>

#include "tests/logging/fixed_clock.h"
#include "tests/logging/log_support.h"
#include "tests/logging/xml_judge.h"

namespace {

using namespace test;

class LogTimeTest : public ::testing::Test {
 protected:
  ~LogTimeTest() override { setZone("UTC"); }

  static void setZone(const char* zone) {
    ::setenv("TZ", zone, 1);
    CFTimeZoneResetSystem();
  }
  // Both times of a record that is written at the moment, from 2001 on.
  std::string at(std::int64_t seconds, std::int64_t nanoseconds = 0) {
    clock_.set(seconds, nanoseconds);
    log_.log() << "x\n";
    const XMLDocument document = judged(log_.taken());
    if (!document.error.empty()) return document.error;
    return document.elements.at(0)["tms"] + " " + document.elements[0]["tmt"];
  }

  FixedClock clock_{0};
  MemoryLog log_;
};

TEST_F(LogTimeTest, BothTimesAreOfTheSameMoment) {
  setZone("UTC");
  EXPECT_EQ(at(0), "0.000 01/01/2001 00:00:00.000");
  EXPECT_EQ(at(352821909, 250'000'000), "352821909.250 03/07/2012 14:05:09.250");
  EXPECT_EQ(at(730857599, 999'000'000), "730857599.999 02/28/2024 23:59:59.999");
  EXPECT_EQ(at(730857600), "730857600.000 02/29/2024 00:00:00.000");
}

TEST_F(LogTimeTest, AMomentBefore2001IsNegative) {
  setZone("UTC");
  EXPECT_EQ(at(-3600), "-3600.000 12/31/2000 23:00:00.000");
  EXPECT_EQ(at(-1, 750'000'000), "-0.250 12/31/2000 23:59:59.750");
  EXPECT_EQ(at(-978307200 + 1), "-978307199.000 01/01/1970 00:00:01.000");
}

TEST_F(LogTimeTest, TheSecondsNeverReadSixty) {
  setZone("UTC");
  EXPECT_EQ(at(352821959, 999'400'000), "352821959.999 03/07/2012 14:05:59.999");
  EXPECT_EQ(at(352821959, 999'600'000), "352821960.000 03/07/2012 14:06:00.000");
  EXPECT_EQ(at(352821959, 999'999'999), "352821960.000 03/07/2012 14:06:00.000");
  EXPECT_EQ(at(757382399, 999'700'000), "757382400.000 01/01/2025 00:00:00.000");
}

TEST_F(LogTimeTest, TheTextFollowsDaylightSavingForward) {
  setZone("Europe/Berlin");
  EXPECT_EQ(at(733539599, 999'000'000), "733539599.999 03/31/2024 01:59:59.999");
  EXPECT_EQ(at(733539600), "733539600.000 03/31/2024 03:00:00.000");
  EXPECT_EQ(at(733539599, 999'900'000), "733539600.000 03/31/2024 03:00:00.000");
  setZone("America/New_York");
  EXPECT_EQ(at(731746799), "731746799.000 03/10/2024 01:59:59.000");
  EXPECT_EQ(at(731746800), "731746800.000 03/10/2024 03:00:00.000");
}

TEST_F(LogTimeTest, TheTextFollowsDaylightSavingBack) {
  setZone("Europe/Berlin");
  EXPECT_EQ(at(751683599, 999'000'000), "751683599.999 10/27/2024 02:59:59.999");
  EXPECT_EQ(at(751683600), "751683600.000 10/27/2024 02:00:00.000");
  EXPECT_EQ(at(751687200), "751687200.000 10/27/2024 03:00:00.000");
  EXPECT_EQ(at(751683599), "751683599.000 10/27/2024 02:59:59.000") << "a clock that is set back";
}

TEST_F(LogTimeTest, AHalfHourOfDaylightSaving) {
  setZone("Australia/Lord_Howe");
  // 2024-04-06 15:00 GMT, when 02:00 becomes 01:30, and 2024-10-05 15:30 GMT, when 02:00 becomes 02:30.
  EXPECT_EQ(at(734108399), "734108399.000 04/07/2024 01:59:59.000");
  EXPECT_EQ(at(734108400), "734108400.000 04/07/2024 01:30:00.000");
  EXPECT_EQ(at(749835000 - 1), "749834999.000 10/06/2024 01:59:59.000");
  EXPECT_EQ(at(749835000), "749835000.000 10/06/2024 02:30:00.000");
}

TEST_F(LogTimeTest, OffsetsThatAreNoWholeHours) {
  setZone("Asia/Kathmandu");
  EXPECT_EQ(at(0), "0.000 01/01/2001 05:45:00.000");
  EXPECT_EQ(at(352821909, 250'000'000), "352821909.250 03/07/2012 19:50:09.250");
  setZone("Pacific/Chatham");
  // 13:45 ahead in summer, 12:45 from 2024-04-06 14:00 GMT on, when 03:45 becomes 02:45.
  EXPECT_EQ(at(734104799), "734104799.000 04/07/2024 03:44:59.000");
  EXPECT_EQ(at(734104800), "734104800.000 04/07/2024 02:45:00.000");
  EXPECT_EQ(at(749224799), "749224799.000 09/29/2024 02:44:59.000");
  EXPECT_EQ(at(749224800), "749224800.000 09/29/2024 03:45:00.000");
}

TEST_F(LogTimeTest, TheDayIsThatOfTheZone) {
  setZone("Pacific/Kiritimati");
  EXPECT_EQ(at(757382400 - 14 * 3600), "757332000.000 01/01/2025 00:00:00.000");
  setZone("Pacific/Pago_Pago");
  EXPECT_EQ(at(757382400), "757382400.000 12/31/2024 13:00:00.000");
}

// The oracle is the C library's own conversion.
TEST_F(LogTimeTest, ARandomMomentHasTheTextOfItsZone) {
  std::mt19937_64 random(7);
  for (const char* const zone : {"Europe/Berlin", "Asia/Kathmandu", "Australia/Lord_Howe", "Pacific/Chatham",
                                 "America/St_Johns", "Africa/Casablanca", "UTC"}) {
    setZone(zone);
    ::tzset();
    for (int i = 0; i < 2000; ++i) {
      const std::int64_t second = static_cast<std::int64_t>(random() % 1'150'000'000);
      const auto millisecond = static_cast<std::int64_t>(random() % 1000);
      const time_t unixTime = static_cast<time_t>(second + 978307200);
      tm local{};
      ::localtime_r(&unixTime, &local);
      char expected[96];
      std::snprintf(expected, sizeof expected, "%lld.%03d %02d/%02d/%04d %02d:%02d:%02d.%03d",
                    static_cast<long long>(second), static_cast<int>(millisecond), local.tm_mon + 1, local.tm_mday,
                    local.tm_year + 1900, local.tm_hour, local.tm_min, local.tm_sec, static_cast<int>(millisecond));
      ASSERT_EQ(at(second, millisecond * 1'000'000), expected) << zone;
    }
  }
}

// Rounding is the same in both texts, wherever the moment lies between two milliseconds.
TEST_F(LogTimeTest, BothTimesAgreeOnTheMillisecond) {
  setZone("UTC");
  std::mt19937_64 random(8);
  for (int i = 0; i < 20000; ++i) {
    const std::string both = at(800'000'000 + static_cast<std::int64_t>(random() % 1000),
                                static_cast<std::int64_t>(random() % 1'000'000'000));
    ASSERT_EQ(both.substr(9, 4), both.substr(both.size() - 4)) << both;
  }
  for (const std::int64_t nanoseconds :
       {62'500'000, 187'500'000, 312'500'000, 937'500'000, 500'000, 1'500'000, 999'500'000}) {
    const std::string both = at(800'000'000, nanoseconds);
    EXPECT_EQ(both.substr(9, 4), both.substr(both.size() - 4)) << both;
  }
}

// What printf makes of the exact value, the halves between two milliseconds included.
TEST_F(LogTimeTest, TheSecondsAreRoundedAsPrintfRoundsThem) {
  setZone("UTC");
  std::mt19937_64 random(9);
  for (int i = 0; i < 20000; ++i) {
    const auto second = static_cast<std::int64_t>(random() % 1'500'000'000);
    const std::int64_t sixteenth = 62'500'000;
    const auto nanosecond = i % 2 == 0 ? static_cast<std::int64_t>(random() % 1'000'000'000)
                                       : static_cast<std::int64_t>(random() % 16) * sixteenth;
    char expected[48];
    std::snprintf(expected, sizeof expected, "%.3f",
                  static_cast<double>(second) + static_cast<double>(nanosecond) * 1e-9);
    const std::string both = at(second, nanosecond);
    ASSERT_EQ(both.substr(0, both.find(' ')), expected) << nanosecond;
  }
}

// A mark takes its times the same way.
TEST_F(LogTimeTest, MarksHaveTheSameTimes) {
  setZone("Asia/Kathmandu");
  clock_.set(352821959, 999'600'000);
  log_.log() << CTovanLogger::CMark(CTovanLogger::kMarkKindMark, nullptr, nullptr, nullptr);
  EXPECT_EQ(log_.taken(), R"(<mrk tms="352821960.000" tmt="03/07/2012 19:51:00.000" pid=")" + pid() + "\"/>\n");
}

}  // namespace
