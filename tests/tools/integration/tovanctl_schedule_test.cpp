// tovanctl schedule: what it shows, draws, changes and refuses.
#include <expat.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tovan/service_cache_file.h>
#include <tovan/service_schedule.h>

#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/plist/plist_support.h"
#include "tests/plist/schedule_support.h"
#include "tests/support/command.h"
#include "tests/support/scratch_home.h"
#include "tests/tools/integration/running_program.h"

namespace {

using nlohmann::json;
using test::CommandResult;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

const std::string kService = "servicecontroller:com.example.transcoder";

// A service in an empty home; clocks are those of Berlin.
class TovanctlScheduleTest : public testing::Test {
 protected:
  void SetUp() override {
    std::filesystem::remove_all(test::scratchHome() + "/Library");
    test::setZone("Europe/Berlin");
    ::setenv("LC_ALL", "C", 1);
    storePreferences("");
  }
  void TearDown() override {
    ::unsetenv("LC_ALL");
    test::setZone("UTC");
  }

  // The user's preferences, as the text inside their <dict>; none for the empty text.
  static void storePreferences(const std::string& body) {
    tovan::CServiceCacheFile cache;
    tovan::CServiceCacheEntry entry(test::str(kService).get(), nullptr);
    entry.setDisplayName(CFSTR("Transcoder <&> \"Mönch\""));
    if (!body.empty()) entry.setUserPrefs(test::dict(body).get());
    cache.put(entry);
    cache.flush();
  }
  static void storeSchedule(const std::string& body) {
    storePreferences("<key>Schedule</key><dict>" + body + "</dict><key>StdoutPath</key><string>/tmp/out</string>");
  }
  static std::string storedPreferences() {
    const tovan::CServiceCacheFile cache;
    tovan::CServiceCacheEntry entry;
    EXPECT_TRUE(cache.get(test::str(kService).get(), entry));
    return test::describe(entry.userPrefs());
  }
  static std::string configPath() {
    return test::scratchHome() + "/Library/Application Support/Lumisphere/LumisphereConfig.plist";
  }

  static CommandResult schedule(const std::string& verb, std::vector<std::string> arguments = {},
                                const std::string& service = kService) {
    arguments.insert(arguments.begin(), {"schedule", verb, service});
    return test::runCommand("tovanctl", arguments);
  }
  static std::string printed(const std::string& verb, const std::vector<std::string>& arguments = {}) {
    const CommandResult result = schedule(verb, arguments);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.err, "");
    return result.out;
  }
  static json document(const std::string& verb, std::vector<std::string> arguments = {}) {
    arguments.emplace_back("--json");
    const std::string out = printed(verb, arguments);
    json parsed = json::parse(out, nullptr, false);
    EXPECT_FALSE(parsed.is_discarded()) << out;
    EXPECT_EQ(parsed.value("schema", 0), 1) << out;
    EXPECT_EQ(parsed.value("service", ""), kService);
    EXPECT_EQ(parsed.value("timeZone", ""), "Europe/Berlin");
    return parsed;
  }
  // "Monday OnBetween 32400-61200" for each day that is not on line all day.
  static std::vector<std::string> week() {
    std::vector<std::string> found;
    const json shown = document("show");
    for (const json& day : shown["days"]) {
      const std::string text = day["day"].get<std::string>() + " " + day["type"].get<std::string>() + " " +
                               day["timeFrom"].dump() + "-" + day["timeTo"].dump();
      if (!text.ends_with(" On 0-86400")) found.push_back(text);
    }
    return found;
  }
};

std::string day(const std::string& name, const std::string& body) {
  return "<key>" + name + "</key><dict>" + body + "</dict>";
}
std::string window(const std::string& type, int from, int to) {
  return "<key>type</key><string>" + type + "</string><key>timeFrom</key><integer>" + std::to_string(from) +
         "</integer><key>timeTo</key><integer>" + std::to_string(to) + "</integer>";
}

// What Expat says about a document, and all of its text.
struct XmlJudgement {
  std::string problem;
  std::string text;
  int rectangles = 0;
};
XmlJudgement judged(const std::string& document) {
  XmlJudgement judgement;
  const std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)> parser(XML_ParserCreate(nullptr), XML_ParserFree);
  XML_SetUserData(parser.get(), &judgement);
  XML_SetElementHandler(
      parser.get(),
      [](void* data, const XML_Char* name, const XML_Char**) {
        static_cast<XmlJudgement*>(data)->text += "|";
        static_cast<XmlJudgement*>(data)->rectangles += std::string(name) == "rect";
      },
      [](void* data, const XML_Char*) { static_cast<XmlJudgement*>(data)->text += "|"; });
  XML_SetCharacterDataHandler(parser.get(), [](void* data, const XML_Char* text, int length) {
    static_cast<XmlJudgement*>(data)->text.append(text, static_cast<std::size_t>(length));
  });
  if (XML_Parse(parser.get(), document.data(), static_cast<int>(document.size()), 1) != XML_STATUS_OK) {
    judgement.problem = XML_ErrorString(XML_GetErrorCode(parser.get()));
  }
  return judgement;
}

TEST_F(TovanctlScheduleTest, AServiceWithoutAScheduleIsAlwaysOnLine) {
  EXPECT_THAT(printed("show"), StartsWith(kService + "\nalways on line\n168 h of a week on line; times are those of "
                                                     "Europe/Berlin\n\n"));
  const json shown = document("show");
  EXPECT_EQ(shown["constant"], true);
  EXPECT_EQ(shown["onLine"], true);
  EXPECT_EQ(shown["nextTransition"], nullptr);
  EXPECT_EQ(shown["secondsOnLine"], 604800);
  EXPECT_EQ(shown["days"][0]["day"], "Sunday");
  EXPECT_EQ(shown["days"][6]["onLine"], json::parse(R"([{"from": 0, "to": 86400}])"));
}

TEST_F(TovanctlScheduleTest, DaysAreGivenByNameRangeListAndGroup) {
  const struct {
    std::string days;
    std::string named;  // the first letters, from Sunday on
  } cases[] = {{"monday", ".M....."},  {"Mon", ".M....."},         {"wedn", "...W..."},       {"mon-fri", ".MTWTF."},
               {"fri-mon", "SM...FS"}, {"sat,sun", "S.....S"},     {"weekdays", ".MTWTF."},   {"weekend", "S.....S"},
               {"ALL", "SMTWTFS"},     {"mon,wed-thu", ".M.WT.."}, {"tue-tue,tue", "..T...."}};
  for (const auto& one : cases) {
    storePreferences("");
    printed("set", {one.days, "off"});
    std::string named;
    const json shown = document("show");
    for (const json& each : shown["days"]) {
      named += each["type"] == "Off" ? each["day"].get<std::string>()[0] : '.';
    }
    EXPECT_EQ(named, one.named) << one.days;
  }
}

TEST_F(TovanctlScheduleTest, SetSaysWhatADayIsNow) {
  EXPECT_EQ(printed("set", {"mon-tue", "on", "9:00-17:00"}),
            kService + ": Monday is now on line 09:00-17:00\n" + kService + ": Tuesday is now on line 09:00-17:00\n");
  EXPECT_EQ(printed("set", {"wed", "off", "12:00-12:30:15"}),
            kService + ": Wednesday is now off line 12:00-12:30:15\n");
  EXPECT_EQ(printed("set", {"thu", "on", "22:30-24:00"}), kService + ": Thursday is now on line 22:30-24:00\n");
  EXPECT_EQ(printed("set", {"fri", "off"}), kService + ": Friday is now off line all day\n");
  EXPECT_EQ(printed("set", {"sat", "on", "00:00-24:00"}), kService + ": Saturday is now on line all day\n");
  EXPECT_THAT(week(), testing::ElementsAre("Monday OnBetween 32400-61200", "Tuesday OnBetween 32400-61200",
                                           "Wednesday OffBetween 43200-45015", "Thursday OnBetween 81000-86400",
                                           "Friday Off 0-86400", "Saturday OnBetween 0-86400"));
}

TEST_F(TovanctlScheduleTest, TheScheduleLiesInTheUsersPreferencesAndGoesWithItsLastDay) {
  storePreferences("<key>LogLevel</key><integer>5</integer>");
  printed("set", {"monday", "on", "09:00-17:00"});
  EXPECT_EQ(storedPreferences(),
            "{LogLevel: 5, Schedule: {Monday: {timeFrom: 32400, timeTo: 61200, type: \"OnBetween\"}}}");
  printed("set", {"monday", "on"});
  EXPECT_EQ(storedPreferences(), "{LogLevel: 5}");
  storePreferences("");
  printed("set", {"all", "on"});
  EXPECT_EQ(storedPreferences(), "{}") << "what the registry writes without preferences";
}

TEST_F(TovanctlScheduleTest, SetLeavesWhatItDoesNotKnow) {
  storeSchedule(day("Monday", window("Off", 1, 2) + "<key>why</key><string>maintenance</string>") +
                day("Tuesday", "<key>type</key><string>maybe</string>") + "<key>Note</key><true/>");
  EXPECT_EQ(schedule("set", {"monday", "on", "09:00-17:00"}).status, 0);
  EXPECT_EQ(storedPreferences(),
            "{Schedule: {Monday: {timeFrom: 32400, timeTo: 61200, type: \"OnBetween\", why: \"maintenance\"}, "
            "Note: true, Tuesday: {type: \"maybe\"}}, StdoutPath: \"/tmp/out\"}");
  EXPECT_EQ(schedule("set", {"mon-tue", "on"}).status, 0);
  EXPECT_EQ(storedPreferences(), "{Schedule: {Monday: {why: \"maintenance\"}, Note: true}, StdoutPath: \"/tmp/out\"}");
}

TEST_F(TovanctlScheduleTest, SetRefusesWhatIsNoDayStateOrWindow) {
  const std::string before = test::readFile(configPath());
  const struct {
    std::vector<std::string> arguments;
    std::string message;
  } cases[] = {
      {{"mnday", "off"},
       "no day called \"mnday\"; did you mean \"monday\"? (days are given as \"monday\", \"mon-fri\""},
      {{"mo", "off"}, "no day called \"mo\""},
      {{"", "off"}, "no day called \"\""},
      {{"mon-", "off"}, "no day called \"\""},
      {{"mon-wed-fri", "off"}, "no day called \"mon-wed-fri\""},
      {{"mon", "of"}, "\"of\" is no state of a service; it takes \"on\" or \"off\""},
      {{"mon", "on", "9-17"}, "\"9-17\" is no window of a day; one looks like \"09:00-17:00\""},
      {{"mon", "on", "09:00"}, "\"09:00\" is no window"},
      {{"mon", "on", "09:00-24:01"}, "\"09:00-24:01\" is no window"},
      {{"mon", "on", "24:00:01-24:00"}, "\"24:00:01-24:00\" is no window"},
      {{"mon", "on", "09:60-17:00"}, "\"09:60-17:00\" is no window"},
      {{"mon", "on", "09:00-17:00:60"}, "\"09:00-17:00:60\" is no window"},
      {{"mon", "on", "09:00-1 7:00"}, "\"09:00-1 7:00\" is no window"},
      {{"mon", "on", "009:00-17:00"}, "\"009:00-17:00\" is no window"},
      {{"mon", "on", "09:00-17:00-18:00"}, "\"09:00-17:00-18:00\" is no window"},
      {{"mon", "on", "09:00-09:00"}, "the window \"09:00-09:00\" ends where it begins, and so holds no moment"},
      {{"mon", "on", "22:00-06:00"},
       "the window \"22:00-06:00\" ends before it begins; none reaches over midnight: give 22:00-24:00 on the first "
       "day, "
       "and 00:00-06:00 on the day after"},
      {{"mon", "on", "22:00-0:00"},
       "the window \"22:00-0:00\" ends before it begins; none reaches over midnight: give 22:00-24:00 on the first "
       "day\n"},
  };
  for (const auto& one : cases) {
    const CommandResult result = schedule("set", one.arguments);
    EXPECT_EQ(result.status, 2) << one.message;
    EXPECT_THAT(result.err, StartsWith("tovanctl: "));
    EXPECT_THAT(result.err, HasSubstr(one.message));
    EXPECT_EQ(result.out, "");
  }
  EXPECT_EQ(test::readFile(configPath()), before);
}

TEST_F(TovanctlScheduleTest, AnUnknownServiceGetsASuggestion) {
  for (const std::vector<std::string>& verb :
       std::vector<std::vector<std::string>>{{"show"}, {"set", "mon", "off"}, {"next"}, {"at"}}) {
    const CommandResult result =
        schedule(verb[0], {verb.begin() + 1, verb.end()}, "servicecontroler:com.example.transcoder");
    EXPECT_EQ(result.status, 3) << verb[0];
    EXPECT_THAT(result.err, HasSubstr("did you mean \"" + kService + "\"?"));
  }
}

TEST_F(TovanctlScheduleTest, AScheduleThatIsNoDictionaryIsAFailureAndStays) {
  storePreferences("<key>Schedule</key><string>weekdays</string>");
  const std::string before = test::readFile(configPath());
  for (const std::vector<std::string>& verb :
       std::vector<std::vector<std::string>>{{"show"}, {"set", "mon", "off"}, {"next"}, {"at"}}) {
    const CommandResult result = schedule(verb[0], {verb.begin() + 1, verb.end()});
    EXPECT_EQ(result.status, 1) << verb[0];
    EXPECT_EQ(result.err,
              "tovanctl: the \"Schedule\" in the user's preferences of \"" + kService +
                  "\" cannot be used, it is \"weekdays\": CServiceSchedule::fromDict: dict - invalid type\n");
    EXPECT_EQ(result.out, "");
  }
  EXPECT_EQ(test::readFile(configPath()), before);
}

TEST_F(TovanctlScheduleTest, WhatOfAScheduleCountsForNothingIsSaid) {
  storeSchedule(day("Monday",
                    "<key>type</key><string>on</string><key>timeFrom</key><integer>-1</integer>"
                    "<key>timeTo</key><string>17:00</string>") +
                day("Wednesday", "<key>type</key><integer>1</integer><key>timeTo</key><integer>86400</integer>") +
                day("Friday", window("OffBetween", 0, 86399)) +
                "<key>Tuesday</key><string>Off</string><key>x</key><true/>");
  const CommandResult result = schedule("show");
  EXPECT_EQ(result.status, 0);
  const std::string start = "tovanctl: in the schedule of \"" + kService + "\" ";
  EXPECT_EQ(
      result.err,
      start +
          "the \"type\" of Monday is \"on\", not \"On\", \"Off\", \"OnBetween\" or \"OffBetween\", and reads as "
          "its default\n" +
          start + "the \"timeFrom\" of Monday is -1, not a number from 0 to 86399, and reads as its default\n" + start +
          "the \"timeTo\" of Monday is \"17:00\", not a number from 0 to 86399, and reads as its default\n" + start +
          "Tuesday is \"Off\", no dictionary, and reads as on line all day\n" + start +
          "the \"type\" of Wednesday is 1, not \"On\", \"Off\", \"OnBetween\" or \"OffBetween\", and reads as its "
          "default\n" +
          start + "the \"timeTo\" of Wednesday is 86400, not a number from 0 to 86399, and reads as its default\n" +
          start + "1 of its keys are no names of days, and count for nothing\n");
}

TEST_F(TovanctlScheduleTest, AWeekIsDrawnAsStripsOfHalfHours) {
  storeSchedule(day("Monday", window("OnBetween", 32400, 61200)) + day("Tuesday", window("Off", 0, 0)) +
                day("Wednesday", window("OffBetween", 43200, 45000)) + day("Thursday", window("OnBetween", 60, 120)) +
                day("Friday", window("OffBetween", 1, 86399)) + day("Saturday", window("OnBetween", 79200, 21600)));
  std::string out = printed("show");
  EXPECT_THAT(out, HasSubstr("> ")) << "today is marked";
  const std::size_t mark = out.find("> ");
  out.replace(mark, 2, "  ");
  const std::string strips =
      "            0     3     6     9     12    15    18    21    24\n"
      "  Monday    ..................################..............  on line 09:00-17:00\n"
      "  Tuesday   ................................................  off line all day\n"
      "  Wednesday ########################.#######################  off line 12:00-12:30\n"
      "  Thursday  +...............................................  on line 00:01-00:02\n"
      "  Friday    +..............................................+  off line 00:00:01-23:59:59\n"
      "  Saturday  ................................................  off line all day\n"
      "  Sunday    ################################################  on line all day\n"
      "\n"
      "            # on line   + part of the half hour   . off line   > today\n";
  EXPECT_THAT(out,
              testing::EndsWith("\n55 h 31 min 2 s of a week on line; times are those of Europe/Berlin\n\n" + strips));
  ::setenv("LC_ALL", "de_AT.utf8", 1);
  EXPECT_THAT(printed("show"), HasSubstr("··················████████████████··············  on line 09:00-17:00\n"));
}

TEST_F(TovanctlScheduleTest, TheStretchesOnLineAreThoseOfTheSchedule) {
  const std::vector<std::pair<int, int>> windows = {{0, 0},     {0, 1},         {1, 1},         {86399, 86399},
                                                    {1, 86399}, {79200, 21600}, {32400, 61200}, {0, 86400}};
  for (const char* const type : {"On", "Off", "OnBetween", "OffBetween"}) {
    for (const auto& [from, to] : windows) {
      storeSchedule(day("Monday", window(type, from, to)));
      const CommandResult shown = schedule("show", {"--json"});
      const json monday = json::parse(shown.out)["days"][1];
      const tovan::CServiceSchedule stored(test::dict(day("Monday", window(type, from, to))).get());
      const auto isInside = [&monday](int time) {
        return std::any_of(monday["onLine"].begin(), monday["onLine"].end(),
                           [time](const json& span) { return span["from"] <= time && time < span["to"]; });
      };
      for (const int edge : {0, from, to, 43200, 86399}) {
        for (const int time : {edge - 1, edge, edge + 1}) {
          if (time < 0 || time >= 86400) continue;
          const auto at = static_cast<std::uint32_t>(time);
          EXPECT_EQ(isInside(time), stored.isOnLine(1, at / 3600, at / 60 % 60, at % 60))
              << type << " " << from << "-" << to << " at " << time;
        }
      }
      int count = 0;
      for (const json& span : monday["onLine"]) count += span["to"].get<int>() - span["from"].get<int>();
      EXPECT_EQ(monday["secondsOnLine"], count);
    }
  }
}

TEST_F(TovanctlScheduleTest, NextListsTenTransitions) {
  printed("set", {"weekdays", "on", "09:00-17:00"});
  printed("set", {"weekend", "off"});
  EXPECT_THAT(printed("next", {"--from", "2026-11-21 12:00"}),
              StartsWith("TIME                         IN        THE SERVICE GOES\n"
                         "Mon 2026-11-23 09:00:00 CET  1 d 21 h  on line\n"
                         "Mon 2026-11-23 17:00:00 CET  2 d 05 h  off line\n"));
  const json listed = document("next", {"--from", "2026-11-21 12:00"});
  ASSERT_EQ(listed["transitions"].size(), 10U);
  EXPECT_EQ(listed["from"]["onLine"], false);
  EXPECT_EQ(listed["transitions"][9],
            json::parse(R"({"time": "2026-11-27T16:00:00.000Z", "absoluteTime": 817488000.0, "onLine": false,
                            "local": "2026-11-27 17:00:00", "zone": "CET", "day": "Friday"})"));
  EXPECT_EQ(document("next", {"--from", "now", "--count", "3"})["transitions"].size(), 3U);
  EXPECT_EQ(schedule("next", {"--count", "0"}).status, 2);
}

TEST_F(TovanctlScheduleTest, NextFollowsTheClocksThroughTheirChange) {
  printed("set", {"all", "off"});
  printed("set", {"sunday", "on", "02:30-05:00"});
  const CommandResult back = schedule("next", {"--from", "2026-10-24", "--count", "4"});
  EXPECT_EQ(back.out,
            "TIME                          IN        THE SERVICE GOES\n"
            "Sun 2026-10-25 02:30:00 CEST  1 d 02 h  on line\n"
            "Sun 2026-10-25 02:00:00 CET   1 d 03 h  off line\n"
            "Sun 2026-10-25 02:30:00 CET   1 d 03 h  on line\n"
            "Sun 2026-10-25 05:00:00 CET   1 d 06 h  off line\n");
  const CommandResult forward = schedule("next", {"--from", "2026-03-28", "--count", "1"});
  EXPECT_THAT(forward.out, HasSubstr("Sun 2026-03-29 03:00:00 CEST  1 d 02 h  on line\n"));
}

TEST_F(TovanctlScheduleTest, NextOfAScheduleWithoutTransitionsSaysSo) {
  EXPECT_EQ(printed("next"), kService + ": always on line, without a transition\n");
  printed("set", {"all", "off"});
  EXPECT_EQ(printed("next"), kService + ": always off line, without a transition\n");
  EXPECT_TRUE(document("next")["transitions"].empty());
}

TEST_F(TovanctlScheduleTest, AtSaysWhetherAServiceIsOnLineAtAMoment) {
  printed("set", {"weekdays", "on", "09:00-17:00"});
  EXPECT_EQ(printed("at", {"2026-11-20 16:59:59"}),
            "Fri 2026-11-20 16:59:59 CET: on line until Fri 2026-11-20 17:00:00 CET, for 1 s\n");
  EXPECT_EQ(printed("at", {"2026-11-20T17:00"}),
            "Fri 2026-11-20 17:00:00 CET: off line until Sat 2026-11-21 00:00:00 CET, for 7 h 00 min\n");
  EXPECT_EQ(printed("at", {"2026-11-21"}),
            "Sat 2026-11-21 00:00:00 CET: on line until Mon 2026-11-23 00:00:00 CET, for 2 d 00 h\n");
  const json at = document("at", {"2026-11-20 08:00"});
  EXPECT_EQ(at["at"]["time"], "2026-11-20T07:00:00.000Z");
  EXPECT_EQ(at["at"]["local"], "2026-11-20 08:00:00");
  EXPECT_EQ(at["onLine"], false);
  EXPECT_EQ(at["nextTransition"]["local"], "2026-11-20 09:00:00");
  EXPECT_EQ(at["nextTransition"]["onLine"], true);
}

TEST_F(TovanctlScheduleTest, AtTakesADayOfTheWeekATimeOfTodayAndATimeFromNow) {
  printed("set", {"mon", "on", "09:00-17:00"});
  for (const std::vector<std::string>& given :
       std::vector<std::vector<std::string>>{{"monday", "10:00"}, {"mon 10:00:00"}, {"Monday", "10:00"}}) {
    const json at = document("at", given);
    EXPECT_EQ(at["at"]["day"], "Monday");
    EXPECT_THAT(at["at"]["local"].get<std::string>(), testing::EndsWith(" 10:00:00"));
    EXPECT_GE(at["at"]["absoluteTime"].get<double>(), CFAbsoluteTimeGetCurrent() - 60);
    EXPECT_EQ(at["onLine"], true);
  }
  EXPECT_THAT(document("at", {"14:05"})["at"]["local"].get<std::string>(), testing::EndsWith(" 14:05:00"));
  const double now = CFAbsoluteTimeGetCurrent();
  for (const auto& [given, away] : std::vector<std::pair<std::vector<std::string>, double>>{
           {{}, 0}, {{"now"}, 0}, {{"+90s"}, 90}, {{"+2h"}, 7200}, {{"+3d"}, 259200}}) {
    EXPECT_NEAR(document("at", given)["at"]["absoluteTime"].get<double>(), now + away, 60);
  }
  EXPECT_THAT(printed("at", {"--", "-30m"}), HasSubstr("line until "));
  EXPECT_NEAR(document("next", {"--from", "-30m"})["from"]["absoluteTime"].get<double>(), now - 1800, 60);
}

TEST_F(TovanctlScheduleTest, ATimeThatClocksSkipOrShowTwiceIsTheOneThatTheScheduleTakes) {
  EXPECT_EQ(document("at", {"2026-03-29 02:30"})["at"]["local"], "2026-03-29 03:00:00");
  EXPECT_EQ(document("at", {"2026-03-29 01:59:59"})["at"]["local"], "2026-03-29 01:59:59");
  EXPECT_EQ(document("at", {"2026-03-29 03:00:01"})["at"]["local"], "2026-03-29 03:00:01");
  const json twice = document("at", {"2026-10-25 02:30"});
  EXPECT_EQ(twice["at"]["time"], "2026-10-25T00:30:00.000Z");
  EXPECT_EQ(twice["at"]["zone"], "CEST");
}

TEST_F(TovanctlScheduleTest, WhatIsNoTimeIsRefused) {
  for (const std::string& given :
       std::vector<std::string>{"tomorrow", "2026-02-29", "25:00", "monday 25:00", "mon-fri 10:00", "moonday 10:00",
                                "+2x", "+", "monday", "monday 2026-11-20", ""}) {
    const CommandResult at = schedule("at", {given});
    EXPECT_EQ(at.status, 2) << given;
    EXPECT_THAT(at.err, AllOf(HasSubstr("TIME: \"" + given), HasSubstr("is no time; it takes \"now\"")));
    const CommandResult next = schedule("next", {"--from=" + given});
    EXPECT_EQ(next.status, 2) << given;
  }
}

TEST_F(TovanctlScheduleTest, TheWeekIsDrawnAsAWellFormedPicture) {
  printed("set", {"weekdays", "on", "09:00-17:00"});
  printed("set", {"wed", "off", "12:00-13:30"});
  printed("set", {"thu", "off", "01:00-23:00"});
  printed("set", {"sat", "on", "23:15-24:00"});
  printed("set", {"sun", "off"});
  const std::string path = test::scratchFolder("picture") + "/week.svg";
  const CommandResult result = schedule("show", {"--svg", path});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "tovanctl: the picture is in " + path + "\n");
  EXPECT_THAT(result.out, HasSubstr(" Monday    ..")) << "the strips are shown all the same";
  const std::string svg = test::readFile(path);
  const XmlJudgement judgement = judged(svg);
  EXPECT_EQ(judgement.problem, "");
  for (const char* const label :
       {"|Transcoder <&> \"Mönch\"|", "|servicecontroller:com.example.transcoder|", "|times of Europe/Berlin|",
        "|Monday|", "|Sunday|", "|00:00|", "|24:00|", "|09:00–17:00|", "|00:00–12:00|", "|13:30–24:00|",
        "|off line 01:00–23:00|", "|23:15–24:00|", "|off line all day|", "|8 h|", "|22 h 30 min|", "|on line|",
        "|off line|", "|Thursday, 00:00–01:00: on line|", "49 h 15 min of 168 h|"}) {
    EXPECT_THAT(judgement.text, HasSubstr(label));
  }
  EXPECT_EQ(judgement.rectangles, 7 + 1 + 7 + 8 + 2) << "ends of bars, sheet, days, stretches on line, legend";
}

TEST_F(TovanctlScheduleTest, APictureGoesToStandardOutputAlone) {
  const std::string svg = printed("show", {"--svg", "-"});
  EXPECT_THAT(svg, AllOf(StartsWith("<?xml "), testing::EndsWith("</svg>\n")));
  EXPECT_EQ(judged(svg).problem, "");
  EXPECT_THAT(svg, AllOf(HasSubstr("on line now, and always"), HasSubstr(">all day<")));
}

TEST_F(TovanctlScheduleTest, ATitleThatIsTooLongIsCutBetweenCharacters) {
  std::string name;
  for (int i = 0; i < 60; ++i) name += "日";
  tovan::CServiceCacheFile cache;
  tovan::CServiceCacheEntry entry(test::str(kService).get(), nullptr);
  entry.setDisplayName(test::str(name).get());
  cache.put(entry);
  cache.flush();
  const XmlJudgement judgement = judged(printed("show", {"--svg", "-"}));
  EXPECT_EQ(judgement.problem, "");
  EXPECT_THAT(judgement.text, HasSubstr("日…|"));
  EXPECT_THAT(judgement.text, Not(HasSubstr(name + "|servicecontroller")));
}

TEST_F(TovanctlScheduleTest, APictureThatCannotBeWrittenIsAFailure) {
  const CommandResult nowhere = schedule("show", {"--svg", "/nowhere/week.svg"});
  EXPECT_EQ(nowhere.status, 1);
  EXPECT_EQ(nowhere.err, "tovanctl: cannot write the picture \"/nowhere/week.svg\": No such file or directory\n");
  const CommandResult full = schedule("show", {"--svg", "/dev/full"});
  EXPECT_EQ(full.status, 1);
  EXPECT_EQ(full.err, "tovanctl: cannot write the picture \"/dev/full\": No space left on device\n");
}

TEST_F(TovanctlScheduleTest, ProgramsThatSetDaysAtOnceLoseNothing) {
  std::vector<std::unique_ptr<test::RunningProgram>> programs;
  for (const char* const name : {"sun", "mon", "tue", "wed", "thu", "fri", "sat"}) {
    programs.push_back(std::make_unique<test::RunningProgram>(
        TOVAN_BUILD_DIR "/bin/tovanctl", std::vector<std::string>{"schedule", "set", kService, name, "off"}));
  }
  for (const auto& program : programs) ASSERT_EQ(program->waitForEnd(), 0) << program->output();
  EXPECT_EQ(week().size(), 7U);
}

TEST_F(TovanctlScheduleTest, LookingWritesNothing) {
  std::filesystem::remove_all(test::scratchHome() + "/Library");
  for (const char* const verb : {"show", "next", "at"}) EXPECT_EQ(schedule(verb).status, 3);
  EXPECT_EQ(schedule("set", {"mon", "off"}).status, 3);
  EXPECT_FALSE(std::filesystem::exists(configPath()));
}

}  // namespace
