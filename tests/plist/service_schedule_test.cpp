// The fields of a schedule, its dictionary, and whether it is on line at a time of the week.
#include <tovan/service_schedule.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <barrier>
#include <limits>
#include <thread>
#include <vector>

#include "tests/plist/plist_support.h"
#include "tests/plist/schedule_support.h"

namespace {

using namespace test;

class CServiceScheduleTest : public ScheduleTest {};

constexpr std::uint32_t kOn = CServiceSchedule::kOn;
constexpr std::uint32_t kOff = CServiceSchedule::kOff;
constexpr std::uint32_t kOnBetween = CServiceSchedule::kOnBetween;
constexpr std::uint32_t kOffBetween = CServiceSchedule::kOffBetween;
constexpr std::uint32_t kMost = std::numeric_limits<std::uint32_t>::max();

CServiceScheduleRef fromText(const std::string& body) { return plinth::makeShared<CServiceSchedule>(dict(body).get()); }

// "OnBetween 32400-61200" of a day.
std::string dayText(const CServiceScheduleRef& schedule, std::uint32_t day) {
  static const char* const kNames[] = {"On", "Off", "OnBetween", "OffBetween"};
  std::uint32_t from = 99, to = 99;
  schedule->timeFrom(day, from);
  schedule->timeTo(day, to);
  return std::string(kNames[schedule->scheduleType(day)]) + " " + std::to_string(from) + "-" + std::to_string(to);
}

void expectDefaults(const CServiceScheduleRef& schedule) {
  for (std::uint32_t day = 0; day < 7; ++day) EXPECT_EQ(dayText(schedule, day), "On 0-86400") << day;
}

std::string dayBody(const std::string& day, const std::string& body) {
  return "<key>" + day + "</key><dict>" + body + "</dict>";
}
std::string type(const std::string& name) { return "<key>type</key><string>" + name + "</string>"; }
std::string time(const std::string& key, const std::string& value) { return "<key>" + key + "</key>" + value; }
std::string integer(const std::string& digits) { return "<integer>" + digits + "</integer>"; }

TEST_F(CServiceScheduleTest, ANewScheduleIsOnLineAllWeek) {
  const CServiceScheduleRef schedule = newSchedule();
  expectDefaults(schedule);
  EXPECT_TRUE(schedule->isConstantSchedule());
  EXPECT_TRUE(schedule->isOnLine());
}

TEST_F(CServiceScheduleTest, InitGoesBackToTheDefaults) {
  const CServiceScheduleRef schedule = scheduleOf(kOffBetween);
  for (std::uint32_t day = 0; day < 7; ++day) setDay(schedule, day, kOffBetween, 1, 2);
  EXPECT_FALSE(schedule->isConstantSchedule());
  schedule->init();
  expectDefaults(schedule);
  EXPECT_TRUE(schedule->isConstantSchedule());
}

TEST_F(CServiceScheduleTest, AnEmptyDictionaryIsOnLineAllWeekAndWritesNone) {
  const CServiceScheduleRef schedule = fromText("");
  expectDefaults(schedule);
  EXPECT_TRUE(schedule->toDict().isNull());
}

TEST_F(CServiceScheduleTest, ANullDictionaryOfTheConstructorGivesTheDefaults) {
  expectDefaults(plinth::makeShared<CServiceSchedule>(nullptr));
}

TEST_F(CServiceScheduleTest, ADictionaryReadsEveryDayAndType) {
  const CServiceScheduleRef schedule = fromText(
      dayBody("Sunday", type("On")) + dayBody("Monday", type("Off")) +
      dayBody("Tuesday", type("OnBetween") + time("timeFrom", integer("32400")) + time("timeTo", integer("61200"))) +
      dayBody("Wednesday", type("OffBetween") + time("timeFrom", integer("1")) + time("timeTo", integer("86399"))) +
      dayBody("Thursday", time("timeTo", integer("5"))) + dayBody("Friday", time("timeFrom", integer("6"))) +
      dayBody("Saturday", ""));
  EXPECT_EQ(dayText(schedule, sunday), "On 0-86400");
  EXPECT_EQ(dayText(schedule, monday), "Off 0-86400");
  EXPECT_EQ(dayText(schedule, tuesday), "OnBetween 32400-61200");
  EXPECT_EQ(dayText(schedule, wednesday), "OffBetween 1-86399");
  EXPECT_EQ(dayText(schedule, thursday), "On 0-5");
  EXPECT_EQ(dayText(schedule, friday), "On 6-86400");
  EXPECT_EQ(dayText(schedule, saturday), "On 0-86400");
}

TEST_F(CServiceScheduleTest, TimesOfADictionaryAreBelowAWholeDay) {
  const struct {
    const char* value;
    const char* read;  // of both times, over their defaults
  } cases[] = {
      {"<integer>0</integer>", "On 0-0"},
      {"<integer>86399</integer>", "On 86399-86399"},
      {"<integer>86400</integer>", "On 0-86400"},
      {"<integer>90000</integer>", "On 0-86400"},
      {"<integer>-1</integer>", "On 0-86400"},
      {"<integer>4294967301</integer>", "On 0-86400"},  // 5 in 32 bits
      {"<integer>-4294967291</integer>", "On 0-86400"},
      {"<integer>18446744073709551615</integer>", "On 0-86400"},
      {"<real>61200</real>", "On 61200-61200"},
      {"<real>61200.75</real>", "On 61200-61200"},
      {"<real>86399.99</real>", "On 86399-86399"},
      {"<real>-0.5</real>", "On 0-86400"},
      {"<real>nan</real>", "On 0-86400"},
      {"<real>+infinity</real>", "On 0-86400"},
      {"<string>61200</string>", "On 0-86400"},
      {"<true/>", "On 0-86400"},
  };
  for (const auto& one : cases) {
    const CServiceScheduleRef schedule =
        fromText(dayBody("Monday", time("timeFrom", one.value) + time("timeTo", one.value)));
    EXPECT_EQ(dayText(schedule, monday), one.read) << one.value;
  }
}

TEST_F(CServiceScheduleTest, ATypeIsMatchedToTheLetter) {
  for (const char* const name : {"on", "OFF", "onBetween", "OnBetween ", "", "2", "Offbetween"}) {
    EXPECT_EQ(fromText(dayBody("Friday", type(name)))->scheduleType(friday), kOn) << name;
  }
  EXPECT_EQ(fromText(dayBody("Friday", time("type", integer("1"))))->scheduleType(friday), kOn) << "a number";
}

TEST_F(CServiceScheduleTest, DaysThatAreMissingOrNoDictionariesKeepTheDefaults) {
  expectDefaults(fromText("<key>Monday</key><string>Off</string><key>Tuesday</key><array/><key>monday</key><dict>" +
                          type("Off") + "</dict><key>Version</key><integer>1</integer>"));
}

TEST_F(CServiceScheduleTest, FromDictBeginsWithTheDefaults) {
  const CServiceScheduleRef schedule = scheduleOf(kOff);
  schedule->setTimeFrom(monday, 1);
  schedule->fromDict(dict(dayBody("Sunday", type("OffBetween"))).get());
  EXPECT_EQ(dayText(schedule, sunday), "OffBetween 0-86400");
  EXPECT_EQ(dayText(schedule, monday), "On 0-86400");
}

TEST_F(CServiceScheduleTest, FromDictRefusesNullAndWhatIsNoDictionary) {
  const CServiceScheduleRef schedule = scheduleOf(kOff);
  EXPECT_EQ(thrownBy([&] { schedule->fromDict(nullptr); }), "1: CServiceSchedule::fromDict: null dict");
  const auto wrong = reinterpret_cast<CFDictionaryRef>(CFSTR("Monday"));
  EXPECT_EQ(thrownBy([&] { schedule->fromDict(wrong); }), "1: CServiceSchedule::fromDict: dict - invalid type");
  EXPECT_EQ(thrownBy([&] { CServiceSchedule made(wrong); }), "1: CServiceSchedule::fromDict: dict - invalid type");
  EXPECT_EQ(schedule->scheduleType(saturday), kOff) << "nothing is changed by what is refused";
}

TEST_F(CServiceScheduleTest, ToDictWritesWhatDiffersFromTheDefaults) {
  const CServiceScheduleRef schedule = newSchedule();
  setDay(schedule, monday, kOnBetween, clockTime(9, 0), clockTime(17, 0));
  setDay(schedule, tuesday, kOff, 0, 86400);
  setDay(schedule, wednesday, kOffBetween, 0, 60);
  setDay(schedule, thursday, kOn, 60, 86400);
  setDay(schedule, friday, kOn, 0, 60);
  EXPECT_EQ(describe(schedule->toDict()),
            "{Friday: {timeTo: 60, type: \"On\"}, Monday: {timeFrom: 32400, timeTo: 61200, type: \"OnBetween\"}, "
            "Thursday: {timeFrom: 60, type: \"On\"}, Tuesday: {type: \"Off\"}, "
            "Wednesday: {timeTo: 60, type: \"OffBetween\"}}");
}

TEST_F(CServiceScheduleTest, ATimeToOfZeroIsNotWrittenAndATimeFromOfAWholeDayIs) {
  const CServiceScheduleRef schedule = newSchedule();
  setDay(schedule, monday, kOn, 0, 0);
  EXPECT_TRUE(schedule->toDict().isNull());
  setDay(schedule, monday, kOnBetween, 86400, 0);
  EXPECT_EQ(describe(schedule->toDict()), "{Monday: {timeFrom: 86400, type: \"OnBetween\"}}");
  const CServiceScheduleRef again = plinth::makeShared<CServiceSchedule>(schedule->toDict().get());
  EXPECT_EQ(dayText(again, monday), "OnBetween 0-86400");
}

TEST_F(CServiceScheduleTest, EveryWindowThatHoldsAMomentComesBackFromItsDictionary) {
  for (const std::uint32_t from : {0U, 1U, 43200U, 86398U, 86399U}) {
    for (const std::uint32_t to : {1U, 2U, 43201U, 86399U, 86400U}) {
      if (from >= to) continue;
      for (const std::uint32_t code : {kOn, kOff, kOnBetween, kOffBetween}) {
        const CServiceScheduleRef schedule = newSchedule();
        setDay(schedule, saturday, code, from, to);
        const CServiceScheduleRef again = plinth::makeShared<CServiceSchedule>(schedule->toDict().get());
        EXPECT_EQ(dayText(again, saturday), dayText(schedule, saturday));
      }
    }
  }
}

TEST_F(CServiceScheduleTest, TimesReadAsSecondsAndAsHoursMinutesAndSeconds) {
  const CServiceScheduleRef schedule = newSchedule();
  schedule->setTimeFrom(monday, 9, 8, 7);
  schedule->setTimeTo(monday, 24, 0, 0);
  std::uint32_t hours = 99, minutes = 99, seconds = 99;
  schedule->timeFrom(monday, seconds);
  EXPECT_EQ(seconds, 32887U);
  schedule->timeFrom(monday, hours, minutes, seconds);
  EXPECT_THAT((std::vector{hours, minutes, seconds}), testing::ElementsAre(9, 8, 7));
  schedule->timeTo(monday, seconds);
  EXPECT_EQ(seconds, 86400U);
  schedule->timeTo(monday, hours, minutes, seconds);
  EXPECT_THAT((std::vector{hours, minutes, seconds}), testing::ElementsAre(24, 0, 0));
}

TEST_F(CServiceScheduleTest, ArgumentsAreCheckedInOrderAndNothingIsChangedByWhatIsRefused) {
  const CServiceScheduleRef schedule = newSchedule();
  CServiceSchedule& it = *schedule;
  std::uint32_t out = 0;
  const struct {
    std::string message;
    std::function<void()> call;
  } cases[] = {
      {"scheduleType: invalid day", [&] { it.scheduleType(7); }},
      {"scheduleType: invalid day", [&] { it.scheduleType(kMost); }},
      {"setScheduleType: invalid day", [&] { it.setScheduleType(7, 4); }},
      {"setScheduleType: invalid schedule type", [&] { it.setScheduleType(6, 4); }},
      {"setScheduleType: invalid schedule type", [&] { it.setScheduleType(0, kMost); }},
      {"timeFrom: invalid day", [&] { it.timeFrom(7, out); }},
      {"timeFrom: invalid day", [&] { it.timeFrom(7, out, out, out); }},
      {"timeTo: invalid day", [&] { it.timeTo(7, out); }},
      {"timeTo: invalid day", [&] { it.timeTo(7, out, out, out); }},
      {"setTimeFrom: invalid day", [&] { it.setTimeFrom(7, 86401); }},
      {"setTimeFrom: invalid seconds", [&] { it.setTimeFrom(6, 86401); }},
      {"setTimeFrom: invalid seconds", [&] { it.setTimeFrom(6, kMost); }},
      {"setTimeTo: invalid day", [&] { it.setTimeTo(7, 86401); }},
      {"setTimeTo: invalid seconds", [&] { it.setTimeTo(6, 86401); }},
      {"setTimeFrom: invalid day", [&] { it.setTimeFrom(7, 25, 60, 60); }},
      {"setTimeFrom: invalid hours", [&] { it.setTimeFrom(6, 25, 60, 60); }},
      {"setTimeFrom: invalid hours", [&] { it.setTimeFrom(6, 24, 0, 1); }},
      {"setTimeFrom: invalid hours", [&] { it.setTimeFrom(6, 24, 1, 0); }},
      {"setTimeFrom: invalid hours", [&] { it.setTimeFrom(6, kMost, 0, 0); }},
      {"setTimeFrom: invalid minutes", [&] { it.setTimeFrom(6, 23, 60, 60); }},
      {"setTimeFrom: invalid seconds", [&] { it.setTimeFrom(6, 23, 59, 60); }},
      {"setTimeTo: invalid day", [&] { it.setTimeTo(7, 25, 60, 60); }},
      {"setTimeTo: invalid hours", [&] { it.setTimeTo(6, 25, 60, 60); }},
      {"setTimeTo: invalid hours", [&] { it.setTimeTo(6, 24, 0, 1); }},
      {"setTimeTo: invalid minutes", [&] { it.setTimeTo(6, 23, 60, 60); }},
      {"setTimeTo: invalid seconds", [&] { it.setTimeTo(6, 23, 59, 60); }},
      {"isOnLine: invalid day", [&] { it.isOnLine(7, 25, 60, 60); }},
      {"isOnLine: invalid hours", [&] { it.isOnLine(6, 24, 0, 1); }},
      {"isOnLine: invalid minutes", [&] { it.isOnLine(6, 23, 60, 60); }},
      {"isOnLine: invalid seconds", [&] { it.isOnLine(6, 23, 59, 60); }},
      {"isConstantSchedule: invalid day", [&] { it.isConstantSchedule(7); }},
      {"toAbsoluteTime: invalid day", [&] { it.toAbsoluteTime(7, 25, 60, 60); }},
      {"toAbsoluteTime: invalid hours", [&] { it.toAbsoluteTime(6, 25, 60, 60); }},
      {"toAbsoluteTime: invalid minutes", [&] { it.toAbsoluteTime(6, 23, 60, 60); }},
      {"toAbsoluteTime: invalid seconds", [&] { it.toAbsoluteTime(6, 23, 59, 60); }},
  };
  for (const auto& one : cases) EXPECT_EQ(thrownBy(one.call), "1: CServiceSchedule::" + one.message);
  expectDefaults(schedule);
  EXPECT_TRUE(schedule->isConstantSchedule());
}

TEST_F(CServiceScheduleTest, SettersTakeTheEndOfTheDay) {
  const CServiceScheduleRef schedule = newSchedule();
  EXPECT_EQ(thrownBy([&] { schedule->setTimeFrom(monday, 86400); }), "nothing");
  EXPECT_EQ(thrownBy([&] { schedule->setTimeTo(tuesday, 86400); }), "nothing");
  EXPECT_EQ(thrownBy([&] { schedule->setTimeFrom(wednesday, 24, 0, 0); }), "nothing");
  EXPECT_EQ(thrownBy([&] { schedule->setTimeTo(thursday, 24, 0, 0); }), "nothing");
  EXPECT_EQ(dayText(schedule, monday), "On 86400-86400");
  EXPECT_EQ(dayText(schedule, wednesday), "On 86400-86400");
}

TEST_F(CServiceScheduleTest, AWindowIncludesItsBeginningAndNotItsEnd) {
  const CServiceScheduleRef schedule = newSchedule();
  for (const std::uint32_t code : {kOnBetween, kOffBetween}) {
    const bool inside = code == kOnBetween;
    setDay(schedule, monday, code, clockTime(9, 0), clockTime(17, 0));
    EXPECT_EQ(schedule->isOnLine(monday, 0, 0, 0), !inside);
    EXPECT_EQ(schedule->isOnLine(monday, 8, 59, 59), !inside);
    EXPECT_EQ(schedule->isOnLine(monday, 9, 0, 0), inside);
    EXPECT_EQ(schedule->isOnLine(monday, 16, 59, 59), inside);
    EXPECT_EQ(schedule->isOnLine(monday, 17, 0, 0), !inside);
    EXPECT_EQ(schedule->isOnLine(monday, 23, 59, 59), !inside);
  }
}

TEST_F(CServiceScheduleTest, OnAndOffTakeNoNoticeOfTheWindow) {
  const CServiceScheduleRef schedule = newSchedule();
  setDay(schedule, monday, kOn, clockTime(9, 0), clockTime(17, 0));
  setDay(schedule, tuesday, kOff, clockTime(9, 0), clockTime(17, 0));
  for (const std::uint32_t hour : {0U, 9U, 12U, 17U, 23U}) {
    EXPECT_TRUE(schedule->isOnLine(monday, hour, 0, 0));
    EXPECT_FALSE(schedule->isOnLine(tuesday, hour, 0, 0));
  }
}

TEST_F(CServiceScheduleTest, AWindowOfTheWholeDayIsOnOrOffThroughout) {
  const CServiceScheduleRef schedule = scheduleOf(kOff);
  schedule->setScheduleType(monday, kOffBetween);
  schedule->setScheduleType(tuesday, kOnBetween);
  for (const std::uint32_t hour : {0U, 12U, 23U, 24U}) {
    EXPECT_FALSE(schedule->isOnLine(monday, hour, 0, 0));
    EXPECT_TRUE(schedule->isOnLine(tuesday, hour, 0, 0)) << "24:00:00 too, although Wednesday is off line";
  }
  schedule->setScheduleType(tuesday, kOff);
  EXPECT_TRUE(schedule->isConstantSchedule());
  EXPECT_FALSE(schedule->isOnLine());
}

TEST_F(CServiceScheduleTest, AWindowThatBeginsWhenItEndsOrLaterHoldsNoMoment) {
  const CServiceScheduleRef schedule = newSchedule();
  for (const auto& [from, to] :
       std::vector<std::pair<std::uint32_t, std::uint32_t>>{{0, 0},
                                                            {clockTime(9, 0), clockTime(9, 0)},
                                                            {clockTime(22, 0), clockTime(6, 0)},
                                                            {86400, 0},
                                                            {86400, 86400}}) {
    setDay(schedule, monday, kOnBetween, from, to);
    setDay(schedule, tuesday, kOffBetween, from, to);
    for (std::uint32_t hour = 0; hour < 24; ++hour) {
      EXPECT_FALSE(schedule->isOnLine(monday, hour, 0, 0)) << from << "-" << to << " at " << hour;
      EXPECT_TRUE(schedule->isOnLine(tuesday, hour, 0, 0)) << from << "-" << to << " at " << hour;
    }
  }
}

TEST_F(CServiceScheduleTest, TheEndOfADayAsksTheNextDay) {
  const CServiceScheduleRef schedule = scheduleOf(kOff);
  setDay(schedule, friday, kOnBetween, clockTime(9, 0), 86400);
  EXPECT_TRUE(schedule->isOnLine(friday, 23, 59, 59));
  EXPECT_FALSE(schedule->isOnLine(friday, 24, 0, 0));
  setDay(schedule, saturday, kOnBetween, 0, 1);
  EXPECT_TRUE(schedule->isOnLine(friday, 24, 0, 0)) << "Saturday's window holds its 00:00:00";
  EXPECT_FALSE(schedule->isOnLine(saturday, 24, 0, 0)) << "Saturday asks Sunday";
  schedule->setScheduleType(sunday, kOn);
  EXPECT_TRUE(schedule->isOnLine(saturday, 24, 0, 0));
  setDay(schedule, sunday, kOffBetween, 0, 1);
  EXPECT_FALSE(schedule->isOnLine(saturday, 24, 0, 0));
  setDay(schedule, sunday, kOffBetween, 86400, 86400);
  EXPECT_TRUE(schedule->isOnLine(saturday, 24, 0, 0));
}

TEST_F(CServiceScheduleTest, TheEndOfADayOfOneStateAnswersForThatDay) {
  const CServiceScheduleRef schedule = scheduleOf(kOff);
  schedule->setScheduleType(monday, kOn);
  EXPECT_TRUE(schedule->isOnLine(monday, 24, 0, 0));
  EXPECT_FALSE(schedule->isOnLine(sunday, 24, 0, 0));
}

TEST_F(CServiceScheduleTest, AScheduleIsConstantWhenEveryDayIsFixedAndAllAgree) {
  const CServiceScheduleRef schedule = newSchedule();
  schedule->setScheduleType(wednesday, kOnBetween);
  EXPECT_TRUE(schedule->isConstantSchedule()) << "the whole day as a window";
  schedule->setScheduleType(sunday, kOnBetween);
  EXPECT_TRUE(schedule->isConstantSchedule());
  EXPECT_TRUE(schedule->isOnLine());
  schedule->setScheduleType(wednesday, kOffBetween);
  EXPECT_FALSE(schedule->isConstantSchedule()) << "fixed, but disagrees";
  for (std::uint32_t day = 0; day < 7; ++day) schedule->setScheduleType(day, day == wednesday ? kOffBetween : kOff);
  EXPECT_TRUE(schedule->isConstantSchedule());
  EXPECT_FALSE(schedule->isOnLine());
  schedule->setScheduleType(sunday, kOffBetween);
  EXPECT_TRUE(schedule->isConstantSchedule());
  EXPECT_FALSE(schedule->isOnLine());
  setDay(schedule, wednesday, kOnBetween, 0, 0);
  EXPECT_FALSE(schedule->isConstantSchedule()) << "off line all week, but not by its types";
}

TEST_F(CServiceScheduleTest, ADayIsFixedWithoutAWindowOrWithTheWholeDayAsOne) {
  const CServiceScheduleRef schedule = newSchedule();
  for (const std::uint32_t code : {kOn, kOff}) {
    setDay(schedule, monday, code, 5, 6);
    EXPECT_TRUE(schedule->isConstantSchedule(monday));
  }
  for (const std::uint32_t code : {kOnBetween, kOffBetween}) {
    setDay(schedule, monday, code, 0, 86400);
    EXPECT_TRUE(schedule->isConstantSchedule(monday));
    setDay(schedule, monday, code, 0, 86399);
    EXPECT_FALSE(schedule->isConstantSchedule(monday));
    setDay(schedule, monday, code, 1, 86400);
    EXPECT_FALSE(schedule->isConstantSchedule(monday));
  }
}

TEST_F(CServiceScheduleTest, EverySetterEndsWhatIsKeptAboutTheSchedule) {
  const CServiceScheduleRef schedule = newSchedule();
  const auto isConstant = [&schedule] { return schedule->isConstantSchedule(); };
  EXPECT_TRUE(isConstant());
  schedule->setScheduleType(monday, kOnBetween);
  EXPECT_TRUE(isConstant());
  schedule->setTimeFrom(monday, 1);
  EXPECT_FALSE(isConstant());
  schedule->setTimeFrom(monday, 0, 0, 0);
  EXPECT_TRUE(isConstant());
  schedule->setTimeTo(monday, 1);
  EXPECT_FALSE(isConstant());
  schedule->setTimeTo(monday, 24, 0, 0);
  EXPECT_TRUE(isConstant());
  schedule->setScheduleType(monday, kOffBetween);
  EXPECT_FALSE(isConstant());
  schedule->init();
  EXPECT_TRUE(isConstant());
  schedule->fromDict(dict(dayBody("Monday", type("Off"))).get());
  EXPECT_FALSE(isConstant());
  schedule->fromDict(dict("").get());
  EXPECT_TRUE(isConstant());
}

TEST_F(CServiceScheduleTest, ManyThreadsMayAskOneSchedule) {
  constexpr int kRounds = 200;
  // The first question to a schedule is the one that is answered by computing: each round has a schedule of its own,
  // and all threads ask it at once.
  std::vector<CServiceScheduleRef> schedules;
  for (int i = 0; i < kRounds; ++i) {
    schedules.push_back(newSchedule());
    schedules.back()->setScheduleType(monday, kOff);
  }
  std::vector<int> wrong(4);
  std::barrier together(static_cast<std::ptrdiff_t>(wrong.size()));
  std::vector<std::thread> threads;
  for (int& count : wrong) {
    threads.emplace_back([&schedules, &together, &count] {
      for (const CServiceScheduleRef& schedule : schedules) {
        together.arrive_and_wait();
        count += schedule->isConstantSchedule() || schedule->isOnLine(monday, 1, 2, 3);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(wrong, testing::Each(0));
}

TEST_F(CServiceScheduleTest, HoldersShareOneSchedule) {
  const CServiceScheduleRef schedule = newSchedule();
  const CServiceScheduleRef other =
      schedule;  // NOLINT(performance-unnecessary-copy-initialization): the copy is the test
  other->setScheduleType(monday, kOff);
  EXPECT_EQ(schedule->scheduleType(monday), kOff);
  EXPECT_EQ(schedule->GetRetainCount(), 2);
}

}  // namespace
