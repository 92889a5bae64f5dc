// A schedule against brute force: the C library says what clocks show at every minute, a plain model says what that
// means, and a scan finds the transitions. In a usual week and in those around every change of the clocks.
#include <tovan/service_schedule.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <random>
#include <string>
#include <vector>

#include "tests/logging/fixed_clock.h"
#include "tests/plist/schedule_support.h"

namespace {

using namespace test;

constexpr std::int64_t kEpoch = 978307200;  // 2001-01-01 as seconds since 1970
constexpr int kMinutesOfWeek = 7 * 24 * 60;

struct Zone {
  const char* name;
  std::size_t changesOfClocks;  // in 2026
};
void PrintTo(const Zone& zone, std::ostream* out) { *out << zone.name; }

std::tm localTime(CFAbsoluteTime at) {
  const auto time = static_cast<std::time_t>(at) + kEpoch;
  std::tm local{};
  ::localtime_r(&time, &local);
  return local;
}

// What clocks show, counted on from some day: the same count stands for the same date and time.
std::int64_t shownCount(CFAbsoluteTime at) {
  std::tm local = localTime(at);
  return ::timegm(&local);
}

// The moments of 2026 at which the C library's clocks jump.
std::vector<CFAbsoluteTime> changesOfClocks() {
  std::vector<CFAbsoluteTime> changes;
  for (CFAbsoluteTime at = gmt(2026, 1, 1); at < gmt(2027, 1, 1); at += 900) {
    if (localTime(at).tm_gmtoff != localTime(at - 900).tm_gmtoff) changes.push_back(at);
  }
  return changes;
}

// What the types and windows of a week mean, said in the shortest way.
struct Model {
  std::array<std::uint32_t, 7> types{}, from{}, to{};

  bool isOnLine(const std::tm& shown) const {
    const auto day = static_cast<std::size_t>(shown.tm_wday);
    const auto time = static_cast<std::uint32_t>(shown.tm_hour * 3600 + shown.tm_min * 60 + shown.tm_sec);
    const bool isInside = from[day] <= time && time < to[day];
    const std::array<bool, 4> byType = {true, false, isInside, !isInside};
    return byType[types[day]];
  }

  CServiceScheduleRef schedule() const {
    CServiceScheduleRef made = newSchedule();
    for (std::uint32_t day = 0; day < 7; ++day) setDay(made, day, types[day], from[day], to[day]);
    return made;
  }
};

// Windows of whole minutes; many edges lie where clocks jump.
Model randomModel(std::mt19937& random) {
  const auto upTo = [&random](std::uint32_t most) {
    return std::uniform_int_distribution<std::uint32_t>(0, most)(random);
  };
  const auto edge = [&upTo] { return upTo(2) == 0 ? upTo(1440) * 60 : clockTime(1, 0) + upTo(12) * 15 * 60; };
  Model model;
  for (std::size_t day = 0; day < 7; ++day) {
    model.types[day] = upTo(7) < 2 ? upTo(1) : 2 + upTo(1);
    model.from[day] = upTo(5) == 0 ? 0 : edge();
    model.to[day] = upTo(5) == 0 ? 86400 : edge();
  }
  return model;
}

class ServiceScheduleScanTest : public testing::TestWithParam<Zone> {
 protected:
  void SetUp() override { setZone(GetParam().name); }
  void TearDown() override { setZone("UTC"); }

  // The weeks that are looked at begin there: a usual one, and one with each change in its middle.
  static std::vector<CFAbsoluteTime> weeks() {
    std::vector<CFAbsoluteTime> begins = {gmt(2026, 6, 10)};
    const std::vector<CFAbsoluteTime> changes = changesOfClocks();
    EXPECT_EQ(changes.size(), GetParam().changesOfClocks) << "the zone's rules are not the expected ones";
    for (const CFAbsoluteTime change : changes) begins.push_back(change - 3 * 86400);
    return begins;
  }
};

TEST_P(ServiceScheduleScanTest, EveryMinuteShowsWhatTheCLibraryShows) {
  const CServiceScheduleRef schedule = newSchedule();
  for (const CFAbsoluteTime week : weeks()) {
    for (int minute = 0; minute < kMinutesOfWeek; ++minute) {
      const CFAbsoluteTime at = week + minute * 60 + 59;
      const std::tm shown = localTime(at);
      std::uint32_t day = 99, hours = 99, minutes = 99, seconds = 99;
      schedule->fromAbsoluteTime(at, day, hours, minutes, seconds);
      ASSERT_TRUE(static_cast<int>(day) == shown.tm_wday && static_cast<int>(hours) == shown.tm_hour &&
                  static_cast<int>(minutes) == shown.tm_min && static_cast<int>(seconds) == shown.tm_sec)
          << shownAt(*schedule, at) << " at " << at;
    }
  }
}

TEST_P(ServiceScheduleScanTest, EveryMinuteIsOnLineAsTheModelSays) {
  std::mt19937 random(27);
  for (const CFAbsoluteTime week : weeks()) {
    for (int round = 0; round < 12; ++round) {
      const Model model = randomModel(random);
      const CServiceScheduleRef schedule = model.schedule();
      for (int minute = 0; minute < kMinutesOfWeek; ++minute) {
        const CFAbsoluteTime at = week + minute * 60;
        ASSERT_EQ(schedule->isOnLine(at), model.isOnLine(localTime(at))) << shownAt(*schedule, at) << " at " << at;
      }
    }
  }
}

TEST_P(ServiceScheduleScanTest, TheNextTransitionIsTheOneThatAScanFinds) {
  std::mt19937 random(1940);
  std::size_t changes = 0;
  for (const CFAbsoluteTime week : weeks()) {
    for (int round = 0; round < 3; ++round) {
      const Model model = randomModel(random);
      const CServiceScheduleRef schedule = model.schedule();
      // Backwards, from four weeks on: the last change seen is the next one of every minute before it.
      CFAbsoluteTime next = schedule->distantFuture();
      bool stateBehind = model.isOnLine(localTime(week + 4.0 * kMinutesOfWeek * 60));
      for (int minute = 4 * kMinutesOfWeek; minute-- > 0;) {
        const CFAbsoluteTime at = week + minute * 60;
        const bool state = model.isOnLine(localTime(at));
        if (state != stateBehind) {
          next = at + 60;
          ++changes;
          ASSERT_EQ(schedule->nextTransition(next - 0.25), next) << shownAt(*schedule, next);
        }
        stateBehind = state;
        if (minute < kMinutesOfWeek) {
          ASSERT_EQ(schedule->nextTransition(at), next) << shownAt(*schedule, at) << " at " << at;
        }
      }
    }
  }
  EXPECT_GT(changes, 50U) << "the scan saw hardly any transitions";
}

TEST_P(ServiceScheduleScanTest, ADayAndTimeIsTheMomentThatAScanFinds) {
  const CServiceScheduleRef schedule = newSchedule();
  for (const CFAbsoluteTime week : weeks()) {
    // The highest count that clocks have shown so far, minute by minute: what is skipped, and the first of what is
    // shown twice, lie where it first reaches a count.
    const CFAbsoluteTime begin = week - 9 * 86400;
    std::vector<std::int64_t> reached;
    for (int minute = 0; minute < 4 * kMinutesOfWeek; ++minute) {
      const std::int64_t shown = shownCount(begin + minute * 60);
      reached.push_back(reached.empty() ? shown : std::max(reached.back(), shown));
    }
    const std::int64_t midnight = reached.front() - reached.front() % 86400;
    for (const double hoursIn : {0.0, 50.0, 70.25, 71.75, 72.0, 72.5, 73.0, 100.0}) {
      const CFAbsoluteTime now = week + hoursIn * 3600;
      const FixedClock clock(static_cast<std::int64_t>(now), 750'000'000);
      for (std::int64_t quarter = 0; quarter < 7 * 96; ++quarter) {
        CFAbsoluteTime expected = begin;
        for (std::int64_t wanted = midnight + quarter * 900; expected < now || wanted < reached.front();
             wanted += 7 * 86400) {
          expected = begin + static_cast<double>(std::ranges::lower_bound(reached, wanted) - reached.begin()) * 60;
        }
        const auto day =
            static_cast<std::uint32_t>((midnight / 86400 + quarter / 96 + 4) % 7);  // 1970 began on a Thursday
        const auto minutes = static_cast<std::uint32_t>(quarter % 96 * 15);
        ASSERT_EQ(schedule->toAbsoluteTime(day, minutes / 60, minutes % 60, 0), expected)
            << "day " << day << ", minute " << minutes << ", asked at " << shownAt(*schedule, now);
      }
    }
  }
}

TEST_P(ServiceScheduleScanTest, EdgesLieAtTheirSecond) {
  const CServiceScheduleRef schedule = scheduleOf(CServiceSchedule::kOff);
  setDay(schedule, wednesday, CServiceSchedule::kOnBetween, clockTime(9, 8, 7), clockTime(17, 6, 5));
  const CFAbsoluteTime begin = schedule->nextTransition(gmt(2026, 6, 10) - 2 * 86400);
  const CFAbsoluteTime end = schedule->nextTransition(begin);
  EXPECT_EQ(shownAt(*schedule, begin), "3 09:08:07");
  EXPECT_EQ(end - begin, clockTime(17, 6, 5) - clockTime(9, 8, 7));
  for (const CFAbsoluteTime edge : {begin, end}) {
    for (int second = -60; second < 60; ++second) {
      ASSERT_EQ(schedule->isOnLine(edge + second), (second >= 0) == (edge == begin)) << second;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Zones, ServiceScheduleScanTest,
                         testing::Values(Zone{"Europe/Berlin", 2}, Zone{"America/New_York", 2},
                                         Zone{"Australia/Lord_Howe", 2}, Zone{"Asia/Kolkata", 0}, Zone{"UTC", 0}),
                         [](const testing::TestParamInfo<Zone>& one) {
                           std::string name = one.param.name;
                           std::ranges::replace(name, '/', '_');
                           return name;
                         });

}  // namespace
