// service_schedule_check.h: what an argument of CServiceSchedule must be; the messages name its function.
#pragma once

#include <plinth/exception.h>
#include <tovan/service_schedule.h>

#include <cstdint>

namespace tovan {

inline void checkScheduleDay(const char* function, std::uint32_t day) {
  if (day >= CServiceSchedule::kDays) throw plinth::CParamException("CServiceSchedule::%s: invalid day", function);
}

// The day first, then the time: 24:00:00 at most.
inline void checkScheduleTime(const char* function, std::uint32_t day, std::uint32_t hours, std::uint32_t minutes,
                              std::uint32_t seconds) {
  checkScheduleDay(function, day);
  if (hours > 24 || (hours == 24 && (minutes != 0 || seconds != 0))) {
    throw plinth::CParamException("CServiceSchedule::%s: invalid hours", function);
  }
  if (minutes >= 60) throw plinth::CParamException("CServiceSchedule::%s: invalid minutes", function);
  if (seconds >= 60) throw plinth::CParamException("CServiceSchedule::%s: invalid seconds", function);
}

// Seconds since midnight.
inline std::uint32_t scheduleSeconds(std::uint32_t hours, std::uint32_t minutes, std::uint32_t seconds) noexcept {
  return (hours * 60 + minutes) * 60 + seconds;
}

inline void splitScheduleSeconds(std::uint32_t time, std::uint32_t& hours, std::uint32_t& minutes,
                                 std::uint32_t& seconds) noexcept {
  hours = time / 3600;
  minutes = time / 60 % 60;
  seconds = time % 60;
}

}  // namespace tovan
