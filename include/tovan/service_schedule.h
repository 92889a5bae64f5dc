// service_schedule.h: CServiceSchedule, when in the week a service is on line.
//
//   const auto schedule = plinth::makeShared<CServiceSchedule>();      // on line all week
//   schedule->setScheduleType(6, CServiceSchedule::kOff);              // not on Saturdays
//   schedule->setScheduleType(1, CServiceSchedule::kOnBetween);        // on Mondays from 09:00 to 17:00 only
//   schedule->setTimeFrom(1, 9, 0, 0);
//   schedule->setTimeTo(1, 17, 0, 0);
//   if (schedule->isOnLine()) ...
//   CFAbsoluteTime next = schedule->nextTransition();
//
// Each day of the week has a type and a window, which begins at its time-from and ends before its time-to. A window
// that begins when it ends, or later, holds no moment; none reaches over midnight, so one night takes a window on each
// of two days. Days are numbered from 0, Sunday, to 6, Saturday. Times of day are seconds since midnight as clocks show
// them, 0 to 86400, or hours, minutes and seconds to 24:00:00, the end of the day. A moment is an absolute time:
// seconds since 2001-01-01 00:00:00 GMT.
//
// Time zone. The schedule follows the clocks of the system time zone (CFTimeZoneCopySystem), whatever they do:
// - A time of day that clocks skip, as they do when daylight-saving time begins, moves to the next one that they show:
//   where 03:00 follows 01:59:59, a window from 02:30 begins at 03:00, and one from 02:10 to 02:40 does not take place.
// - A time of day that clocks show twice, as they do when daylight-saving time ends, counts at its first when a moment
//   is asked for: toAbsoluteTime() gives the first 02:30. Whether the service is on line is read off the clock in both
//   passes: where 02:00 follows 02:59:59, a window from 02:30 begins at the first 02:30, is left when clocks go back to
//   02:00, and begins again at the second 02:30. Each of the three is a change that nextTransition() finds.
//
// Dictionary. What a service's preferences carry: day names ("Sunday" to "Saturday") as keys, each with a dictionary of
// "type" ("On", "Off", "OnBetween" or "OffBetween"), "timeFrom" and "timeTo" (numbers, seconds since midnight).
// docs/schedule.md describes it.
//
// Failures. Arguments out of range throw plinth::CParamException (type 1) with the texts below; nothing is changed
// then.
//
// Threads. Any number of threads may ask one schedule while none changes it.
#pragma once

#include <plinth/shared_cf_ref.h>
#include <plinth/shared_object.h>
#include <tovan/export.h>

#include <CoreFoundation/CFDate.h>
#include <CoreFoundation/CFDictionary.h>

#include <array>
#include <atomic>
#include <cstdint>

namespace tovan {

class TOVAN_EXPORT CServiceSchedule : public plinth::CSharedObject {
 public:
  static constexpr std::uint32_t kDays = 7;
  static constexpr std::uint32_t kSecondsOfDay = 86400;

  // The types of a day.
  enum : std::uint32_t {
    kOn = 0,          // on line all day
    kOff = 1,         // off line all day
    kOnBetween = 2,   // on line in the window only
    kOffBetween = 3,  // off line in the window only
  };

  // The defaults, then fromDict() of the dictionary unless it is null. Throws as that does.
  explicit CServiceSchedule(CFDictionaryRef dictionary = nullptr);
  CServiceSchedule(const CServiceSchedule&) = delete;
  CServiceSchedule& operator=(const CServiceSchedule&) = delete;
  ~CServiceSchedule() override;

  // Back to the defaults: every day kOn, with the whole day as its window.
  void init();

  // The defaults, then each day that the dictionary has a dictionary for; other keys are passed over. A type that is
  // none of the four, to the letter, leaves kOn. A time is taken when it is a number from 0 to below 86400, a fraction
  // of a second dropped; any other leaves the default. So 86400 comes from no dictionary, on purpose: it is the default
  // of the time-to. Throws "CServiceSchedule::fromDict: null dict" for null and "CServiceSchedule::fromDict: dict -
  // invalid type" for an object that is in truth no dictionary.
  void fromDict(CFDictionaryRef dictionary);
  // A new dictionary of what differs from the defaults, or an empty holder when nothing does. A time-from of 0 and a
  // time-to of 0 or 86400 are not written, on purpose, and so a time-to of 0 comes back as 86400, and a time-from of
  // 86400, which is written, comes back as 0. Windows that hold a moment come back as they were.
  plinth::CSharedCFRef<CFMutableDictionaryRef> toDict() const;

  // One of the types above.
  // "CServiceSchedule::scheduleType: invalid day"
  std::uint32_t scheduleType(std::uint32_t day) const;
  // "CServiceSchedule::setScheduleType: invalid day", "CServiceSchedule::setScheduleType: invalid schedule type"
  void setScheduleType(std::uint32_t day, std::uint32_t type);

  // The window, in seconds since midnight or as clocks show it; 86400 is 24:00:00.
  // "CServiceSchedule::timeFrom: invalid day"
  void timeFrom(std::uint32_t day, std::uint32_t& seconds) const;
  void timeFrom(std::uint32_t day, std::uint32_t& hours, std::uint32_t& minutes, std::uint32_t& seconds) const;
  // "CServiceSchedule::timeTo: invalid day"
  void timeTo(std::uint32_t day, std::uint32_t& seconds) const;
  void timeTo(std::uint32_t day, std::uint32_t& hours, std::uint32_t& minutes, std::uint32_t& seconds) const;

  // Checked in this order: the day, the hours (to 24, and 24:00:00 only), the minutes and the seconds (below 60; above
  // 86400 when they are all there is).
  // "CServiceSchedule::setTimeFrom: invalid day", "... invalid hours", "... invalid minutes", "... invalid seconds"
  void setTimeFrom(std::uint32_t day, std::uint32_t seconds);
  void setTimeFrom(std::uint32_t day, std::uint32_t hours, std::uint32_t minutes, std::uint32_t seconds);
  // "CServiceSchedule::setTimeTo: invalid day", "... invalid hours", "... invalid minutes", "... invalid seconds"
  void setTimeTo(std::uint32_t day, std::uint32_t seconds);
  void setTimeTo(std::uint32_t day, std::uint32_t hours, std::uint32_t minutes, std::uint32_t seconds);

  // Whether the service is on line when clocks show that time. 24:00:00 asks the next day's 00:00:00 (Saturday's asks
  // Sunday's), unless the day has one state throughout (isConstantSchedule(day)) and so answers for itself; this is
  // deliberate. "CServiceSchedule::isOnLine: invalid day", and "invalid hours", "invalid minutes", "invalid seconds" as
  // in the setters.
  bool isOnLine(std::uint32_t day, std::uint32_t hours, std::uint32_t minutes, std::uint32_t seconds) const;
  // At a moment: what fromAbsoluteTime() gives for it decides.
  bool isOnLine(CFAbsoluteTime at) const;
  // Now.
  bool isOnLine() const;

  // Whether the state is the same all week by the types: every day is kOn, kOff or has the whole day as its window, and
  // all of them agree. Days whose window holds no moment do not count as such, though their state never changes either.
  // The answer is kept until the schedule is next changed.
  bool isConstantSchedule() const;
  // Whether a day has one state throughout in the same sense. "CServiceSchedule::isConstantSchedule: invalid day"
  bool isConstantSchedule(std::uint32_t day) const;

  // The first whole second after a moment (or after now) at which isOnLine() differs from what it is at that moment.
  // distantFuture() when there is none: for a constant schedule, for one whose windows hold no moment, and for a moment
  // that is no number or as far from 2001 as distantFuture() is. The search looks a week ahead, and where a change of
  // the clocks took that week's only transition away, one week more.
  CFAbsoluteTime nextTransition() const;
  CFAbsoluteTime nextTransition(CFAbsoluteTime at) const;
  // The next transition after now as clocks will show it. False, and the variables as they were, when there is none.
  bool nextTransition(std::uint32_t& day, std::uint32_t& hours, std::uint32_t& minutes, std::uint32_t& seconds) const;

  // The first moment, from the beginning of the current second on, that clocks show as that day and time: within a
  // week, but for a time that clocks skip or show twice in it (see "Time zone"). 24:00:00 is the next day's 00:00:00.
  // "CServiceSchedule::toAbsoluteTime: invalid day", and "invalid hours", "invalid minutes", "invalid seconds" as in
  // the setters.
  CFAbsoluteTime toAbsoluteTime(std::uint32_t day, std::uint32_t hours, std::uint32_t minutes,
                                std::uint32_t seconds) const;
  // The day of the week and the time of day that clocks show at a moment, its fraction of a second dropped. Never
  // 24:00:00.
  void fromAbsoluteTime(CFAbsoluteTime at, std::uint32_t& day, std::uint32_t& hours, std::uint32_t& minutes,
                        std::uint32_t& seconds) const;
  // 4001-01-01 00:00:00 GMT: what stands for "never".
  CFAbsoluteTime distantFuture() const;

 private:
  using PerDay = std::array<std::uint32_t, kDays>;

  void readDay(std::uint32_t day, CFDictionaryRef entry);
  plinth::CSharedCFRef<CFMutableDictionaryRef> dayAsDict(std::uint32_t day) const;
  void setTime(PerDay& times, const char* function, std::uint32_t day, std::uint32_t seconds);
  bool isOnLineAt(std::uint32_t day, std::uint32_t time) const;
  bool findConstant() const;
  void changed() noexcept;

  PerDay types_;
  PerDay timesFrom_;
  PerDay timesTo_;
  // What isConstantSchedule() found; the second says whether the first holds.
  mutable std::atomic<bool> isConstant_;
  mutable std::atomic<bool> isConstantKnown_;
};

using CServiceScheduleRef = plinth::CSharedObjectRef<CServiceSchedule>;

}  // namespace tovan
