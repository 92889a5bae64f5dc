// schedule_support.h: schedules of a test, the system time zone for one test, and moments by name.
#pragma once

#include <gtest/gtest.h>
#include <tovan/service_schedule.h>

#include <CoreFoundation/CFTimeZone.h>

#include <time.h>

#include <cstdint>
#include <cstdlib>
#include <string>

namespace test {

using tovan::CServiceSchedule;
using tovan::CServiceScheduleRef;

enum Day : std::uint32_t { sunday, monday, tuesday, wednesday, thursday, friday, saturday };

inline std::uint32_t clockTime(std::uint32_t hours, std::uint32_t minutes, std::uint32_t seconds = 0) {
  return (hours * 60 + minutes) * 60 + seconds;
}

inline CServiceScheduleRef newSchedule() { return plinth::makeShared<CServiceSchedule>(); }

// Every day of that type.
inline CServiceScheduleRef scheduleOf(std::uint32_t type) {
  const CServiceScheduleRef schedule = newSchedule();
  for (std::uint32_t day = 0; day < CServiceSchedule::kDays; ++day) schedule->setScheduleType(day, type);
  return schedule;
}

inline void setDay(const CServiceScheduleRef& schedule, std::uint32_t day, std::uint32_t type, std::uint32_t from,
                   std::uint32_t to) {
  schedule->setScheduleType(day, type);
  schedule->setTimeFrom(day, from);
  schedule->setTimeTo(day, to);
}

inline void setZone(const char* zone) {
  ::setenv("TZ", zone, 1);
  ::tzset();
  CFTimeZoneResetSystem();
}

// Each test begins in UTC.
class ScheduleTest : public ::testing::Test {
 protected:
  void SetUp() override { setZone("UTC"); }
  void TearDown() override { setZone("UTC"); }
};

// A moment by its date and time in GMT, in seconds since 2001.
inline CFAbsoluteTime gmt(int year, int month, int day, int hour = 0, int minute = 0, int second = 0) {
  std::tm date{};
  date.tm_year = year - 1900;
  date.tm_mon = month - 1;
  date.tm_mday = day;
  date.tm_hour = hour;
  date.tm_min = minute;
  date.tm_sec = second;
  return static_cast<CFAbsoluteTime>(::timegm(&date) - 978307200);
}

// "0 02:30:00", the day and the time that a schedule says clocks show.
inline std::string shownAt(const CServiceSchedule& schedule, CFAbsoluteTime at) {
  std::uint32_t day = 99, hours = 99, minutes = 99, seconds = 99;
  schedule.fromAbsoluteTime(at, day, hours, minutes, seconds);
  char text[64];
  std::snprintf(text, sizeof text, "%u %02u:%02u:%02u", day, hours, minutes, seconds);
  return text;
}

}  // namespace test
