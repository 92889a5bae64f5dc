// The fields of a schedule and its dictionary; service_schedule_time.cpp answers the questions about time.
#include <tovan/service_schedule.h>

#include <tovan/cf_util.h>

#include <CoreFoundation/CFString.h>

#include "plist/dictionary_in.h"
#include "plist/service_schedule_check.h"

namespace tovan {

using plinth::CParamException;
using plinth::CSharedCFRef;

namespace {

using Names = std::array<CFStringRef, CServiceSchedule::kDays>;
constexpr Names kDayNames = {CFSTR("Sunday"),   CFSTR("Monday"), CFSTR("Tuesday"), CFSTR("Wednesday"),
                             CFSTR("Thursday"), CFSTR("Friday"), CFSTR("Saturday")};
// In the order of their codes.
constexpr std::array<CFStringRef, 4> kTypeNames = {CFSTR("On"), CFSTR("Off"), CFSTR("OnBetween"), CFSTR("OffBetween")};

CFStringRef typeKey() { return CFSTR("type"); }
CFStringRef timeFromKey() { return CFSTR("timeFrom"); }
CFStringRef timeToKey() { return CFSTR("timeTo"); }

// Leaves the time alone unless the number is one. In floating point, so that no number wraps into the range.
void readTime(CFDictionaryRef entry, CFStringRef key, std::uint32_t& time) {
  double seconds = 0;
  const bool is = CFUtil::CFDictGetDouble(entry, key, seconds) && seconds >= 0;
  if (is && seconds < CServiceSchedule::kSecondsOfDay) time = static_cast<std::uint32_t>(seconds);
}

}  // namespace

CServiceSchedule::CServiceSchedule(CFDictionaryRef dictionary) {
  init();
  if (dictionary != nullptr) fromDict(dictionary);
}

CServiceSchedule::~CServiceSchedule() = default;

void CServiceSchedule::init() {
  types_.fill(kOn);
  timesFrom_.fill(0);
  timesTo_.fill(kSecondsOfDay);
  changed();
}

void CServiceSchedule::changed() noexcept { isConstantKnown_.store(false, std::memory_order_relaxed); }

void CServiceSchedule::fromDict(CFDictionaryRef dictionary) {
  if (dictionary == nullptr) throw CParamException("CServiceSchedule::fromDict: null dict");
  if (CFGetTypeID(dictionary) != CFDictionaryGetTypeID()) {
    throw CParamException("CServiceSchedule::fromDict: dict - invalid type");
  }
  init();
  for (std::uint32_t day = 0; day < kDays; ++day) {
    const CFDictionaryRef entry = dictionaryIn(dictionary, kDayNames[day]);
    if (entry != nullptr) readDay(day, entry);
  }
}

void CServiceSchedule::readDay(std::uint32_t day, CFDictionaryRef entry) {
  CFStringRef name = nullptr;
  CFUtil::CFDictGetString(entry, typeKey(), name);
  for (std::uint32_t type = 0; name != nullptr && type < kTypeNames.size(); ++type) {
    if (CFEqual(name, kTypeNames[type])) types_[day] = type;
  }
  readTime(entry, timeFromKey(), timesFrom_[day]);
  readTime(entry, timeToKey(), timesTo_[day]);
}

CSharedCFRef<CFMutableDictionaryRef> CServiceSchedule::toDict() const {
  CSharedCFRef<CFMutableDictionaryRef> dictionary(CFUtil::CFDictMakeMutable());
  for (std::uint32_t day = 0; day < kDays; ++day) {
    CFUtil::CFDictSet(dictionary.get(), kDayNames[day], dayAsDict(day).get());
  }
  if (CFDictionaryGetCount(dictionary.get()) == 0) return nullptr;
  return dictionary;
}

// An empty holder for a day at its defaults.
CSharedCFRef<CFMutableDictionaryRef> CServiceSchedule::dayAsDict(std::uint32_t day) const {
  const bool writesFrom = timesFrom_[day] != 0;
  const bool writesTo = timesTo_[day] != 0 && timesTo_[day] != kSecondsOfDay;  // not 0 either, deliberately
  if (types_[day] == kOn && !writesFrom && !writesTo) return nullptr;
  CSharedCFRef<CFMutableDictionaryRef> entry(CFUtil::CFDictMakeMutable());
  CFUtil::CFDictSetString(entry.get(), typeKey(), kTypeNames[types_[day]]);
  if (writesFrom) CFUtil::CFDictSetInt(entry.get(), timeFromKey(), static_cast<std::int32_t>(timesFrom_[day]));
  if (writesTo) CFUtil::CFDictSetInt(entry.get(), timeToKey(), static_cast<std::int32_t>(timesTo_[day]));
  return entry;
}

std::uint32_t CServiceSchedule::scheduleType(std::uint32_t day) const {
  checkScheduleDay("scheduleType", day);
  return types_[day];
}

void CServiceSchedule::setScheduleType(std::uint32_t day, std::uint32_t type) {
  checkScheduleDay("setScheduleType", day);
  if (type >= kTypeNames.size()) throw CParamException("CServiceSchedule::setScheduleType: invalid schedule type");
  types_[day] = type;
  changed();
}

void CServiceSchedule::timeFrom(std::uint32_t day, std::uint32_t& seconds) const {
  checkScheduleDay("timeFrom", day);
  seconds = timesFrom_[day];
}

void CServiceSchedule::timeFrom(std::uint32_t day, std::uint32_t& hours, std::uint32_t& minutes,
                                std::uint32_t& seconds) const {
  checkScheduleDay("timeFrom", day);
  splitScheduleSeconds(timesFrom_[day], hours, minutes, seconds);
}

void CServiceSchedule::timeTo(std::uint32_t day, std::uint32_t& seconds) const {
  checkScheduleDay("timeTo", day);
  seconds = timesTo_[day];
}

void CServiceSchedule::timeTo(std::uint32_t day, std::uint32_t& hours, std::uint32_t& minutes,
                              std::uint32_t& seconds) const {
  checkScheduleDay("timeTo", day);
  splitScheduleSeconds(timesTo_[day], hours, minutes, seconds);
}

void CServiceSchedule::setTime(PerDay& times, const char* function, std::uint32_t day, std::uint32_t seconds) {
  checkScheduleDay(function, day);
  if (seconds > kSecondsOfDay) throw CParamException("CServiceSchedule::%s: invalid seconds", function);
  times[day] = seconds;
  changed();
}

void CServiceSchedule::setTimeFrom(std::uint32_t day, std::uint32_t seconds) {
  setTime(timesFrom_, "setTimeFrom", day, seconds);
}

void CServiceSchedule::setTimeTo(std::uint32_t day, std::uint32_t seconds) {
  setTime(timesTo_, "setTimeTo", day, seconds);
}

void CServiceSchedule::setTimeFrom(std::uint32_t day, std::uint32_t hours, std::uint32_t minutes,
                                   std::uint32_t seconds) {
  checkScheduleTime("setTimeFrom", day, hours, minutes, seconds);
  setTimeFrom(day, scheduleSeconds(hours, minutes, seconds));
}

void CServiceSchedule::setTimeTo(std::uint32_t day, std::uint32_t hours, std::uint32_t minutes, std::uint32_t seconds) {
  checkScheduleTime("setTimeTo", day, hours, minutes, seconds);
  setTimeTo(day, scheduleSeconds(hours, minutes, seconds));
}

}  // namespace tovan
