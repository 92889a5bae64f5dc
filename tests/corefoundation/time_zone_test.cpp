#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <limits>
#include <random>
#include <thread>

#include "tests/corefoundation/value_support.h"
#include "tests/support/scratch_home.h"

namespace {

using values::descriptionOf;
using values::Held;
using values::string;
using values::textOf;
using values::textOfOwned;

Held<CFTimeZoneRef> zone(std::string_view name, bool tryAbbreviation = false) {
  return CFTimeZoneCreateWithName(nullptr, string(name), tryAbbreviation);
}

// A time by the C library's count.
CFAbsoluteTime since1970(double seconds) { return seconds - kCFAbsoluteTimeIntervalSince1970; }

CFAbsoluteTime utc(SInt32 year, int month, int day, int hour = 0, int minute = 0, int second = 0) {
  return CFGregorianDateGetAbsoluteTime(
      {year, static_cast<SInt8>(month), static_cast<SInt8>(day), static_cast<SInt8>(hour), static_cast<SInt8>(minute),
       static_cast<double>(second)},
      nullptr);
}

// Sets TZ for one test, for this system's look-up and for the C library.
class Environment {
 public:
  Environment(const char* name, const char* value) : name_(name) {
    if (const char* const old = std::getenv(name)) old_ = old;
    had_ = std::getenv(name) != nullptr;
    set(value);
  }
  Environment(const Environment&) = delete;
  Environment& operator=(const Environment&) = delete;
  ~Environment() { set(had_ ? old_.c_str() : nullptr); }

 private:
  void set(const char* value) {
    if (value != nullptr) {
      setenv(name_, value, 1);
    } else {
      unsetenv(name_);
    }
    tzset();
    CFTimeZoneResetSystem();
  }
  const char* name_;
  std::string old_;
  bool had_ = false;
};

std::string nameOf(CFTimeZoneRef timeZone) { return textOf(CFTimeZoneGetName(timeZone)); }

TEST(CFTimeZoneTest, FixedOffsetsHaveNamesAndNoSummer) {
  const auto fixed = [](double seconds) {
    return Held<CFTimeZoneRef>(CFTimeZoneCreateWithTimeIntervalFromGMT(nullptr, seconds));
  };
  EXPECT_EQ(nameOf(fixed(0)), "GMT");
  EXPECT_EQ(nameOf(fixed(7200)), "GMT+0200");
  EXPECT_EQ(nameOf(fixed(-12600)), "GMT-0330");
  EXPECT_EQ(nameOf(fixed(30)), "GMT+000030");
  EXPECT_EQ(nameOf(fixed(3599.6)), "GMT+0100");
  EXPECT_EQ(CFTimeZoneGetSecondsFromGMT(fixed(-12600), 0), -12600);
  EXPECT_FALSE(CFTimeZoneIsDaylightSavingTime(fixed(7200), 0));
  EXPECT_EQ(textOfOwned(CFTimeZoneCopyAbbreviation(fixed(7200), 0)), "GMT+0200");
  EXPECT_EQ(CFGetTypeID(fixed(1)), CFTimeZoneGetTypeID());
  EXPECT_EQ(CFGetRetainCount(fixed(1)), 1);
  EXPECT_EQ(fixed(86400).get(), nullptr);
  EXPECT_EQ(fixed(-86400).get(), nullptr);
  EXPECT_EQ(fixed(std::numeric_limits<double>::quiet_NaN()).get(), nullptr);
  EXPECT_EQ(fixed(std::numeric_limits<double>::infinity()).get(), nullptr);
}

TEST(CFTimeZoneTest, NullIsGMT) {
  EXPECT_EQ(CFTimeZoneGetSecondsFromGMT(nullptr, 0), 0);
  EXPECT_FALSE(CFTimeZoneIsDaylightSavingTime(nullptr, 0));
  EXPECT_EQ(CFTimeZoneGetName(nullptr), nullptr);
  EXPECT_EQ(CFTimeZoneCopyAbbreviation(nullptr, 0), nullptr);
  EXPECT_EQ(CFTimeZoneCreateWithName(nullptr, nullptr, true), nullptr);
}

struct Expected {
  const char* name;
  CFAbsoluteTime at;
  int seconds;
  bool summer;
  const char* abbreviation;
};

TEST(CFTimeZoneTest, KnowsWhatClocksShowAroundTheWorld) {
  const Expected table[] = {
      {"Europe/Vienna", utc(2026, 1, 15), 3600, false, "CET"},
      {"Europe/Vienna", utc(2026, 7, 15), 7200, true, "CEST"},
      {"Europe/Vienna", utc(2026, 3, 29, 0, 59, 59), 3600, false, "CET"},
      {"Europe/Vienna", utc(2026, 3, 29, 1), 7200, true, "CEST"},
      {"Europe/Vienna", utc(2026, 10, 25, 0, 59, 59), 7200, true, "CEST"},
      {"Europe/Vienna", utc(2026, 10, 25, 1), 3600, false, "CET"},
      {"Europe/Vienna", utc(2400, 7, 1), 7200, true, "CEST"},
      {"America/New_York", utc(2026, 3, 8, 6, 59, 59), -18000, false, "EST"},
      {"America/New_York", utc(2026, 3, 8, 7), -14400, true, "EDT"},
      {"Australia/Sydney", utc(2026, 1, 15), 39600, true, "AEDT"},
      {"Australia/Sydney", utc(2026, 7, 15), 36000, false, "AEST"},
      {"Australia/Sydney", utc(2026, 4, 4, 15, 59, 59), 39600, true, "AEDT"},
      {"Australia/Sydney", utc(2026, 4, 4, 16), 36000, false, "AEST"},
      {"Australia/Sydney", utc(2026, 10, 3, 16), 39600, true, "AEDT"},
      {"Australia/Lord_Howe", utc(2026, 1, 15), 39600, true, "+11"},
      {"Australia/Lord_Howe", utc(2026, 7, 15), 37800, false, "+1030"},
      {"Asia/Kathmandu", utc(2026, 1, 1), 20700, false, "+0545"},
      {"Asia/Kathmandu", utc(1985, 12, 31), 19800, false, "+0530"},
      {"Asia/Kolkata", utc(2026, 1, 1), 19800, false, "IST"},
      {"Pacific/Kiritimati", utc(2026, 1, 1), 50400, false, "+14"},
      {"Pacific/Apia", utc(2011, 12, 30, 9, 59, 59), -36000, true, "-10"},
      {"Pacific/Apia", utc(2011, 12, 30, 10), 50400, true, "+14"},
      {"America/Santiago", utc(2060, 1, 15), -10800, true, "-03"},
      {"UTC", utc(2026, 7, 1), 0, false, "UTC"},
  };
  for (const Expected& row : table) {
    const auto timeZone = zone(row.name);
    ASSERT_NE(timeZone.get(), nullptr) << row.name << "; is tzdata installed?";
    const std::string where = std::string(row.name) + " " + std::to_string(row.at);
    EXPECT_EQ(nameOf(timeZone), row.name);
    EXPECT_EQ(CFTimeZoneGetSecondsFromGMT(timeZone, row.at), row.seconds) << where;
    EXPECT_EQ(static_cast<bool>(CFTimeZoneIsDaylightSavingTime(timeZone, row.at)), row.summer) << where;
    EXPECT_EQ(textOfOwned(CFTimeZoneCopyAbbreviation(timeZone, row.at)), row.abbreviation) << where;
  }
}

// What localtime_r says of a moment, beside what the system's zone says.
void expectAgreement(std::time_t time) {
  std::tm expected{};
  ASSERT_NE(localtime_r(&time, &expected), nullptr);
  const Held<CFTimeZoneRef> timeZone(CFTimeZoneCopySystem());
  const CFAbsoluteTime at = since1970(static_cast<double>(time));
  const CFGregorianDate date = CFAbsoluteTimeGetGregorianDate(at, timeZone);
  ASSERT_EQ(CFTimeZoneGetSecondsFromGMT(timeZone, at), expected.tm_gmtoff) << time;
  ASSERT_EQ(static_cast<bool>(CFTimeZoneIsDaylightSavingTime(timeZone, at)), expected.tm_isdst > 0) << time;
  ASSERT_EQ(textOfOwned(CFTimeZoneCopyAbbreviation(timeZone, at)), expected.tm_zone) << time;
  ASSERT_EQ(date.year, expected.tm_year + 1900) << time;
  ASSERT_EQ(date.month, expected.tm_mon + 1) << time;
  ASSERT_EQ(date.day, expected.tm_mday) << time;
  ASSERT_EQ(date.hour, expected.tm_hour) << time;
  ASSERT_EQ(date.minute, expected.tm_min) << time;
  ASSERT_EQ(static_cast<int>(date.second), expected.tm_sec) << time;
  // The way back is the same moment, or an earlier one at which clocks showed the same.
  const CFAbsoluteTime back = CFGregorianDateGetAbsoluteTime(date, timeZone);
  ASSERT_LE(back, at) << time;
  if (back != at) {
    const CFGregorianDate again = CFAbsoluteTimeGetGregorianDate(back, timeZone);
    ASSERT_EQ(std::memcmp(&date, &again, offsetof(CFGregorianDate, minute) + 1), 0) << time;
    ASSERT_LE(at - back, 25 * 3600) << time;
  }
}

TEST(CFTimeZoneTest, AgreesWithTheCLibraryOnRandomTimesInEveryZone) {
  std::mt19937_64 random(2);
  std::vector<std::string> names;
  const std::filesystem::path folder = "/usr/share/zoneinfo";
  for (auto entry = std::filesystem::recursive_directory_iterator(folder);
       entry != std::filesystem::recursive_directory_iterator(); ++entry) {
    const std::string name = std::filesystem::relative(entry->path(), folder);
    if (entry->is_directory() && (name == "right" || name == "posix")) entry.disable_recursion_pending();
    if (entry->is_regular_file() && test::readFile(entry->path()).substr(0, 4) == "TZif") names.push_back(name);
  }
  ASSERT_GT(names.size(), 200u) << "is tzdata installed?";
  for (const std::string& name : names) {
    SCOPED_TRACE(name);
    const Environment environment("TZ", name.c_str());
    ASSERT_EQ(nameOf(Held<CFTimeZoneRef>(CFTimeZoneCopySystem())), name);
    for (int round = 0; round < 40; ++round) {
      // 1850 to 2500, and mostly the years of many changes.
      const std::int64_t end = round % 4 == 0 ? 16'000'000'000 : 2'500'000'000;
      ASSERT_NO_FATAL_FAILURE(
          expectAgreement(std::uniform_int_distribution<std::int64_t>(-3'786'000'000, end)(random)));
    }
  }
}

TEST(CFTimeZoneTest, AgreesWithTheCLibraryOnPosixTexts) {
  std::mt19937_64 random(3);
  for (const char* const text :
       {"CET-1CEST,M3.5.0,M10.5.0/3", "EST5EDT,M3.2.0,M11.1.0", "<+1030>-10:30<+11>-11,M10.1.0,M4.1.0",
        "NZST-12NZDT,M9.5.0,M4.1.0/3", "IST-1GMT0,M10.5.0,M3.5.0/1", "XYZ3", "<-03>3", "AAA-5:45",
        "EST5EDT4:30,J60/1:30,J300/22:15:30", "ABC-1DEF,59/2,300", "UTC0", ":CET-1CEST,M3.5.0,M10.5.0/3",
        "<-02>2<-01>,M3.5.0/-1,M10.5.0/0"}) {
    SCOPED_TRACE(text);
    const Environment environment("TZ", text);
    ASSERT_EQ(nameOf(Held<CFTimeZoneRef>(CFTimeZoneCopySystem())), text[0] == ':' ? text + 1 : text);
    for (int round = 0; round < 1000; ++round) {
      ASSERT_NO_FATAL_FAILURE(expectAgreement(std::uniform_int_distribution<std::int64_t>(0, 8'000'000'000)(random)));
    }
  }
}

TEST(CFTimeZoneTest, APosixTextMayKeepSummerAllTheYear) {
  const Environment environment("TZ", "XXX3EDT4,0/0,J365/23");
  const Held<CFTimeZoneRef> timeZone(CFTimeZoneCopySystem());
  for (int month = 1; month <= 12; ++month) {
    for (const int day : {1, 28}) {
      const CFAbsoluteTime at = utc(2027, month, day, 3);
      EXPECT_EQ(CFTimeZoneGetSecondsFromGMT(timeZone, at), -14400) << month << ' ' << day;
      EXPECT_TRUE(CFTimeZoneIsDaylightSavingTime(timeZone, at)) << month << ' ' << day;
    }
  }
}

TEST(CFTimeZoneTest, ATextThatIsNoZoneIsGMT) {
  for (const char* const text : {"",
                                 ":",
                                 "nowhere/land",
                                 "../../etc/passwd",
                                 "/etc/passwd",
                                 "/dev/zero",
                                 "/",
                                 "AB3",
                                 "ABC",
                                 "ABC3D",
                                 "ABC25",
                                 "ABC3DEF,M13.1.0,M3.1.0",
                                 "ABC3DEF,M1.6.0,M3.1.0",
                                 "ABC3DEF,M1.1.7,M3.1.0",
                                 "ABC3DEF,M1.1.0",
                                 "ABC3DEF,M1.1.0,M3.1.0x",
                                 "ABC3DEF,J0,J1",
                                 "ABC3DEF,366,1",
                                 "<AB3",
                                 "ABC3:60",
                                 "ABC3:00:60",
                                 "ABC3DEF,M1.1.0/168,M3.1.0",
                                 "ABC99999999999999999999",
                                 "-1",
                                 "ABC--1"}) {
    const Environment environment("TZ", text);
    const Held<CFTimeZoneRef> timeZone(CFTimeZoneCopySystem());
    EXPECT_EQ(nameOf(timeZone), "GMT") << text;
    EXPECT_EQ(CFTimeZoneGetSecondsFromGMT(timeZone, 0), 0) << text;
  }
}

TEST(CFTimeZoneTest, TheSystemZoneIsKeptUntilItIsReset) {
  const Environment environment("TZ", "Europe/Vienna");
  const Held<CFTimeZoneRef> first(CFTimeZoneCopySystem());
  setenv("TZ", "Asia/Kathmandu", 1);
  const Held<CFTimeZoneRef> second(CFTimeZoneCopySystem());
  EXPECT_EQ(first.get(), second.get());
  CFTimeZoneResetSystem();
  const Held<CFTimeZoneRef> third(CFTimeZoneCopySystem());
  EXPECT_EQ(nameOf(third), "Asia/Kathmandu");
  EXPECT_EQ(nameOf(first), "Europe/Vienna") << "who holds the old zone keeps it";
}

TEST(CFTimeZoneTest, WithoutTZTheHostsFileCounts) {
  const Environment environment("TZ", nullptr);
  const Held<CFTimeZoneRef> timeZone(CFTimeZoneCopySystem());
  ASSERT_NE(timeZone.get(), nullptr);
  EXPECT_NE(nameOf(timeZone), "");
  for (int round = 0; round < 50; ++round) expectAgreement(round * 40'000'000);
}

TEST(CFTimeZoneTest, TheDefaultIsTheSystemsUntilItIsSet) {
  const Environment environment("TZ", "Europe/Vienna");
  EXPECT_EQ(nameOf(Held<CFTimeZoneRef>(CFTimeZoneCopyDefault())), "Europe/Vienna");
  const auto tokyo = zone("Asia/Tokyo");
  CFTimeZoneSetDefault(tokyo);
  EXPECT_EQ(CFGetRetainCount(tokyo), 2);
  EXPECT_EQ(nameOf(Held<CFTimeZoneRef>(CFTimeZoneCopyDefault())), "Asia/Tokyo");
  EXPECT_EQ(nameOf(Held<CFTimeZoneRef>(CFTimeZoneCopySystem())), "Europe/Vienna");
  CFTimeZoneSetDefault(tokyo);
  EXPECT_EQ(CFGetRetainCount(tokyo), 2);
  CFTimeZoneSetDefault(nullptr);
  EXPECT_EQ(CFGetRetainCount(tokyo), 1);
  EXPECT_EQ(nameOf(Held<CFTimeZoneRef>(CFTimeZoneCopyDefault())), "Europe/Vienna");
}

TEST(CFTimeZoneTest, NamesThatAreNoneGiveNull) {
  for (const std::string& name :
       {std::string(), std::string("Nowhere"), std::string("/etc/localtime"), std::string("../zoneinfo/UTC"),
        std::string("Europe/../UTC"), std::string("Europe"), std::string("UTC\0x", 5), std::string("zone.tab"),
        std::string("GMT+2"), std::string(10'000, 'x')}) {
    EXPECT_EQ(zone(name).get(), nullptr) << name.substr(0, 40);
  }
}

TEST(CFTimeZoneTest, AbbreviationsOfOffsetsAreTakenOnRequest) {
  const std::pair<const char*, int> offsets[] = {{"GMT+2", 7200},      {"GMT-0330", -12600}, {"GMT+5:30", 19800},
                                                 {"GMT+05:45", 20700}, {"GMT-11", -39600},   {"GMT+130", 5400}};
  for (const auto& [name, seconds] : offsets) {
    const auto timeZone = zone(name, true);
    ASSERT_NE(timeZone.get(), nullptr) << name;
    EXPECT_EQ(CFTimeZoneGetSecondsFromGMT(timeZone, 0), seconds) << name;
  }
  for (const char* const name : {"GMT+", "GMT", "GMT+24", "GMT+0060", "GMT+12345", "GMT+1:2", "GMT+:30", "GMT+1x",
                                 "UTC+1", "GMT+1:234", "GMT+1::30"}) {
    const auto timeZone = zone(name, true);
    if (std::string_view(name) == "GMT") continue;
    EXPECT_EQ(timeZone.get(), nullptr) << name;
  }
}

TEST(CFTimeZoneTest, ZonesAreEqualByNameAndRules) {
  const auto vienna = zone("Europe/Vienna");
  const auto again = zone("Europe/Vienna");
  EXPECT_NE(vienna.get(), again.get());
  EXPECT_TRUE(CFEqual(vienna, again));
  EXPECT_EQ(CFHash(vienna), CFHash(again));
  EXPECT_FALSE(CFEqual(vienna, zone("Europe/Paris")));
  EXPECT_EQ(descriptionOf(vienna), "Europe/Vienna");
}

TEST(CFTimeZoneTest, GMTAndUTCNeedNoZoneFolder) {
  const Environment environment("TZDIR", test::scratchFolder("no-zones").c_str());
  EXPECT_NE(zone("GMT").get(), nullptr);
  EXPECT_NE(zone("UTC").get(), nullptr);
  EXPECT_EQ(zone("Europe/Vienna").get(), nullptr);
}

// A zone folder of the test's own, with one file "Zone" in it.
class ZoneFileTest : public testing::Test {
 protected:
  // The zone that the bytes make; null when they are refused.
  Held<CFTimeZoneRef> zoneOf(const std::string& bytes) {
    test::writeFile(folder_ + "/Zone", bytes);
    return zone("Zone");
  }

  const std::string folder_ = test::scratchFolder("zones");
  const Environment environment_{"TZDIR", folder_.c_str()};
  const std::string vienna_ = test::readFile("/usr/share/zoneinfo/Europe/Vienna");
};

// A file of one block of 32-bit times: two changes between "AAA" (0 seconds) and "BBB" (an hour ahead, summer).
std::string firstVersionFile() {
  std::string bytes = "TZif" + std::string(16, '\0');
  const auto number = [&](std::uint32_t value) {
    for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(value >> shift & 0xff);
  };
  for (const std::uint32_t count : {0u, 0u, 0u, 2u, 2u, 8u}) number(count);
  number(static_cast<std::uint32_t>(-1000));
  number(1000);
  bytes += std::string("\1\0", 2);
  number(0);
  bytes += std::string("\0\0", 2);
  number(3600);
  bytes += std::string("\1\4", 2);
  return bytes + std::string("AAA\0BBB\0", 8);
}

TEST_F(ZoneFileTest, TheFirstVersionIsReadToo) {
  const auto timeZone = zoneOf(firstVersionFile());
  ASSERT_NE(timeZone.get(), nullptr);
  EXPECT_EQ(CFTimeZoneGetSecondsFromGMT(timeZone, since1970(-1001)), 0);
  EXPECT_EQ(CFTimeZoneGetSecondsFromGMT(timeZone, since1970(-1000)), 3600);
  EXPECT_EQ(CFTimeZoneGetSecondsFromGMT(timeZone, since1970(999.5)), 3600);
  EXPECT_TRUE(CFTimeZoneIsDaylightSavingTime(timeZone, since1970(0)));
  EXPECT_EQ(textOfOwned(CFTimeZoneCopyAbbreviation(timeZone, since1970(0))), "BBB");
  EXPECT_EQ(CFTimeZoneGetSecondsFromGMT(timeZone, since1970(1000)), 0);
  EXPECT_EQ(CFTimeZoneGetSecondsFromGMT(timeZone, since1970(1e10)), 0);
}

TEST_F(ZoneFileTest, CountsThatLieAreRefused) {
  for (std::size_t field = 0; field < 6; ++field) {
    for (const char* const value : {"\xff\xff\xff\xff", "\x7f\xff\xff\xff", "\x00\x00\x01\x01"}) {
      std::string bytes = firstVersionFile();
      bytes.replace(20 + field * 4, 4, std::string(value, 4));
      EXPECT_EQ(zoneOf(bytes).get(), nullptr) << "count " << field;
    }
  }
  std::string leapSeconds = firstVersionFile() + std::string(8, '\0');
  leapSeconds[20 + 2 * 4 + 3] = 1;
  EXPECT_EQ(zoneOf(leapSeconds).get(), nullptr) << "absolute times count no leap seconds";
}

TEST_F(ZoneFileTest, OnlyARegularFileOfReasonableSizeIsRead) {
  ASSERT_EQ(mkfifo((folder_ + "/Pipe").c_str(), 0600), 0);
  EXPECT_EQ(zone("Pipe").get(), nullptr);
  EXPECT_EQ(zoneOf(vienna_ + std::string(2 << 20, '\0')).get(), nullptr);
}

TEST(CFTimeZoneTest, ThreadsMayAskWhileTheSystemZoneIsReset) {
  const Environment environment("TZ", "Europe/Vienna");
  std::vector<std::jthread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([i] {
      for (int round = 0; round < 300; ++round) {
        if (i == 0) CFTimeZoneResetSystem();
        const Held<CFTimeZoneRef> timeZone(CFTimeZoneCopyDefault());
        ASSERT_EQ(CFTimeZoneGetSecondsFromGMT(timeZone, utc(2026, 7, 1)), 7200);
      }
    });
  }
}

}  // namespace
