#include "tools/tovanctl/schedule_store.h"

#include <plinth/exception.h>
#include <tovan/cf_util.h>

#include <array>

#include "tools/tovanctl/exit_code.h"
#include "tools/tovanctl/file_change.h"
#include "tools/tovanctl/services.h"
#include "tools/tovanctl/values.h"

namespace tovanctl {
namespace {

using plinth::CSharedCFRef;
using tovan::CFUtil;
using tovan::CServiceCacheEntry;
using tovan::CServiceCacheFile;
using tovan::CServiceSchedule;
using tovan::CServiceScheduleRef;
using MutableDictionary = CSharedCFRef<CFMutableDictionaryRef>;

CFStringRef scheduleKey() { return CFSTR("Schedule"); }

const std::array<const char*, 3> kDayKeys = {"type", "timeFrom", "timeTo"};

CFTypeRef valueIn(CFDictionaryRef dictionary, CFStringRef key) {
  return dictionary == nullptr ? nullptr : CFDictionaryGetValue(dictionary, key);
}

CFDictionaryRef dictionaryIn(CFDictionaryRef dictionary, CFStringRef key) {
  const CFTypeRef found = valueIn(dictionary, key);
  const bool is = found != nullptr && CFGetTypeID(found) == CFDictionaryGetTypeID();
  return is ? static_cast<CFDictionaryRef>(found) : nullptr;
}

MutableDictionary changeableCopy(CFDictionaryRef dictionary) {
  return MutableDictionary(dictionary == nullptr ? CFUtil::CFDictMakeMutable()
                                                 : CFUtil::CFDictMakeMutableCopy(dictionary));
}

std::string shownValue(CFTypeRef value) { return json(value).dump(-1, ' ', false, Json::error_handler_t::replace); }

// A day's dictionary with the schedule's three keys as they are in `made`, which is null for a day at its defaults.
// Other keys stay. Empty when nothing is left to be said.
MutableDictionary mergedDay(CFDictionaryRef stored, CFDictionaryRef made) {
  MutableDictionary day = changeableCopy(stored);
  for (const char* const key : kDayKeys)
    CFUtil::CFDictSet(day.get(), string(key).get(), valueIn(made, string(key).get()));
  return day;
}

void storeDays(CServiceCacheEntry& entry, const CServiceSchedule& schedule, const std::vector<std::uint32_t>& days) {
  const CSharedCFRef<CFDictionaryRef> made = schedule.toDict();
  const CFDictionaryRef stored = dictionaryIn(entry.userPrefs(), scheduleKey());
  const MutableDictionary week = changeableCopy(stored);
  for (const std::uint32_t day : days) {
    const CSharedCFRef<CFStringRef> name = string(kDayNames[day]);
    const MutableDictionary merged = mergedDay(dictionaryIn(stored, name.get()), dictionaryIn(made.get(), name.get()));
    CFUtil::CFDictSet(week.get(), name.get(), CFDictionaryGetCount(merged.get()) == 0 ? nullptr : merged.get());
  }
  const bool isEmpty = CFDictionaryGetCount(week.get()) == 0;
  if (isEmpty && entry.userPrefs() == nullptr) return;
  const MutableDictionary preferences = changeableCopy(entry.userPrefs());
  CFUtil::CFDictSet(preferences.get(), scheduleKey(), isEmpty ? nullptr : week.get());
  entry.setUserPrefs(preferences.get());
}

// Appends a sentence when the value is there and would not be taken.
void judge(std::vector<std::string>& found, const std::string& day, CFDictionaryRef entry, const char* key,
           const std::string& wanted, bool isTaken) {
  const CFTypeRef value = valueIn(entry, string(key).get());
  if (value == nullptr || isTaken) return;
  found.push_back("the \"" + std::string(key) + "\" of " + day + " is " + shownValue(value) + ", not " + wanted +
                  ", and reads as its default");
}

void judgeDay(std::vector<std::string>& found, const std::string& day, CFDictionaryRef entry) {
  const std::string type = cell(valueIn(entry, CFSTR("type")));
  const bool isType = type == "On" || type == "Off" || type == "OnBetween" || type == "OffBetween";
  judge(found, day, entry, "type", "\"On\", \"Off\", \"OnBetween\" or \"OffBetween\"", isType);
  for (const char* const key : {"timeFrom", "timeTo"}) {
    double seconds = -1;
    const bool isNumber = CFUtil::CFDictGetDouble(entry, string(key).get(), seconds);
    const bool isTaken = isNumber && seconds >= 0 && seconds < CServiceSchedule::kSecondsOfDay;
    judge(found, day, entry, key, "a number from 0 to 86399", isTaken);
  }
}

}  // namespace

CServiceScheduleRef scheduleOf(const CServiceCacheEntry& entry) {
  const CFTypeRef stored = valueIn(entry.userPrefs(), scheduleKey());
  try {
    return plinth::makeShared<CServiceSchedule>(static_cast<CFDictionaryRef>(stored));
  } catch (const plinth::CParamException& error) {
    throw CommandError(kFailed, "the \"Schedule\" in the user's preferences of \"" + text(entry.name()) +
                                    "\" cannot be used, it is " + shownValue(stored) + ": " + error.what());
  }
}

std::vector<std::string> ignoredParts(const CServiceCacheEntry& entry) {
  std::vector<std::string> found;
  const CFDictionaryRef week = dictionaryIn(entry.userPrefs(), scheduleKey());
  CFIndex known = 0;
  for (const char* const name : kDayNames) {
    const CFTypeRef day = valueIn(week, string(name).get());
    if (day == nullptr) continue;
    ++known;
    if (CFGetTypeID(day) == CFDictionaryGetTypeID()) {
      judgeDay(found, name, static_cast<CFDictionaryRef>(day));
    } else {
      found.push_back(std::string(name) + " is " + shownValue(day) + ", no dictionary, and reads as on line all day");
    }
  }
  const CFIndex others = week == nullptr ? 0 : CFDictionaryGetCount(week) - known;
  if (others != 0) found.push_back(std::to_string(others) + " of its keys are no names of days, and count for nothing");
  return found;
}

CServiceScheduleRef changeSchedule(const std::string& service, const std::vector<std::uint32_t>& days,
                                   const DayRule& rule) {
  CServiceCacheFile cache;
  scheduleOf(serviceOfName(cache, service));  // locking would make the file
  beginChange(cache);
  CServiceCacheEntry entry = serviceOfName(cache, service);
  CServiceScheduleRef schedule = scheduleOf(entry);
  for (const std::uint32_t day : days) {
    schedule->setScheduleType(day, rule.type);
    schedule->setTimeFrom(day, rule.window.from);
    schedule->setTimeTo(day, rule.window.to);
  }
  storeDays(entry, *schedule, days);
  cache.put(entry);
  cache.flush();
  return schedule;
}

}  // namespace tovanctl
