// Zone files that are broken, and the way from local time to moments, below the public interface.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>

#include "platform/corefoundation/date.h"
#include "platform/corefoundation/time_zone.h"
#include "tests/support/scratch_home.h"

namespace {

std::optional<cf::Zone> zoneIn(const std::string& bytes) {
  return cf::Zone::fromTZif({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
}

std::string fileOf(const std::string& name) { return test::readFile("/usr/share/zoneinfo/" + name); }

// The first moment that shows the local time, found by going through all stretches around it; for a local time that
// is skipped, by the offset before the change.
std::int64_t momentByGoingThrough(const cf::Zone& zone, std::int64_t local) {
  cf::ZoneSegment before = zone.segmentAt(local - 30 * 3600);
  for (cf::ZoneSegment segment = before;; segment = zone.segmentAt(segment.end)) {
    const std::int64_t moment = local - segment.offset;
    if (moment >= segment.begin && moment < segment.end) return moment;
    if (segment.begin > local + 30 * 3600 || segment.end == cf::kEndOfTime) break;
  }
  for (cf::ZoneSegment segment = before;; segment = zone.segmentAt(segment.end)) {
    const cf::ZoneSegment next = zone.segmentAt(segment.end);
    if (local - segment.offset >= segment.end && local - next.offset < next.begin) return local - segment.offset;
  }
}

// Any answer is good as long as it is one and the stretches fit together.
void exercise(const cf::Zone& zone) {
  for (const std::int64_t time :
       {std::int64_t{-60'000'000'000}, std::int64_t{-2'000'000'000}, std::int64_t{0}, std::int64_t{1'700'000'000},
        std::int64_t{9'000'000'000}, std::int64_t{60'000'000'000'000'000}, cf::kBeginningOfTime + 100'000}) {
    const cf::ZoneSegment segment = zone.segmentAt(time);
    ASSERT_LE(segment.begin, time);
    ASSERT_GT(segment.end, time);
    ASSERT_LT(std::abs(segment.offset), 26 * 3600);
    ASSERT_LT(segment.abbreviation.size(), 1000u);
    if (time > -70'000'000'000) {
      const std::int64_t moment = zone.momentOfLocalTime(time);
      ASSERT_LT(std::abs(moment - time), 26 * 3600);
    }
  }
}

TEST(TZifReaderTest, TruncatedAnywhereIsRefused) {
  for (const char* const name : {"Europe/Vienna", "Asia/Kathmandu", "UTC"}) {
    const std::string whole = fileOf(name);
    ASSERT_TRUE(zoneIn(whole)) << name;
    for (std::size_t length = 0; length < whole.size(); ++length) {
      EXPECT_FALSE(zoneIn(whole.substr(0, length))) << name << " cut to " << length << " bytes";
    }
  }
}

TEST(TZifReaderTest, AnySingleBitFlippedIsRefusedOrHarmless) {
  const std::string whole = fileOf("Europe/Vienna");
  int refused = 0;
  for (std::size_t bit = 0; bit < whole.size() * 8; ++bit) {
    std::string bytes = whole;
    bytes[bit / 8] = static_cast<char>(bytes[bit / 8] ^ 1 << bit % 8);
    const std::optional<cf::Zone> zone = zoneIn(bytes);
    if (zone) {
      ASSERT_NO_FATAL_FAILURE(exercise(*zone)) << "bit " << bit;
    } else {
      ++refused;
    }
  }
  EXPECT_GT(refused, 500);
}

TEST(TZifReaderTest, RandomBytesAreRefusedOrHarmless) {
  std::mt19937 random(6);
  const std::string whole = fileOf("Europe/Vienna");
  for (int round = 0; round < 20'000; ++round) {
    std::string bytes = whole;
    for (int i = 0; i < 5; ++i) bytes[4 + random() % (bytes.size() - 4)] = static_cast<char>(random());
    const std::optional<cf::Zone> zone = zoneIn(bytes);
    if (zone) {
      ASSERT_NO_FATAL_FAILURE(exercise(*zone)) << "round " << round;
    }
  }
}

TEST(PosixZoneTest, RandomTextsAreRefusedOrHarmless) {
  std::mt19937 random(8);
  constexpr std::string_view pieces[] = {"CET", "-1", "CEST", ",", "M3.5.0", "M10.5.0/3", "J60", "/", "<",         ">",
                                         "+11", "-",  ":30",  "5", "0",      "\0",        "M",   ".", "9999999999"};
  int accepted = 0;
  for (int round = 0; round < 200'000; ++round) {
    std::string text;
    for (std::size_t i = random() % 7; i > 0; --i) text += pieces[random() % std::size(pieces)];
    std::optional<cf::PosixZone> rules = cf::PosixZone::parse(text);
    if (!rules) continue;
    ++accepted;
    ASSERT_NO_FATAL_FAILURE(exercise(cf::Zone::following(std::move(*rules)))) << text;
  }
  EXPECT_GT(accepted, 100);
}

TEST(ZoneTest, StretchesFollowOneAnotherWithoutAGap) {
  for (const char* const name : {"Europe/Vienna", "Australia/Lord_Howe", "America/Santiago", "Africa/Casablanca"}) {
    const std::optional<cf::Zone> zone = zoneIn(fileOf(name));
    ASSERT_TRUE(zone) << name;
    cf::ZoneSegment segment = zone->segmentAt(-10'000'000'000);
    while (segment.end < 8'000'000'000) {
      const cf::ZoneSegment next = zone->segmentAt(segment.end);
      ASSERT_EQ(next.begin, segment.end) << name;
      ASSERT_GT(next.end, next.begin) << name;
      segment = next;
    }
  }
}

TEST(ZoneTest, TheMomentOfALocalTimeIsTheFirstThatShowsIt) {
  std::mt19937_64 random(12);
  for (const char* const name : {"Europe/Vienna", "Australia/Lord_Howe", "Pacific/Apia", "Africa/Casablanca",
                                 "America/St_Johns", "Asia/Manila"}) {
    const std::optional<cf::Zone> zone = zoneIn(fileOf(name));
    ASSERT_TRUE(zone) << name;
    cf::ZoneSegment segment = zone->segmentAt(-5'000'000'000);
    while (segment.end < 4'000'000'000) {
      // Around each change, where it matters.
      for (int round = 0; round < 20; ++round) {
        const std::int64_t local =
            segment.end + segment.offset + std::uniform_int_distribution<std::int64_t>(-8000, 8000)(random);
        ASSERT_EQ(zone->momentOfLocalTime(local), momentByGoingThrough(*zone, local)) << name << ' ' << local;
      }
      segment = zone->segmentAt(segment.end);
    }
  }
}

TEST(CalendarTest, DaysAndDatesLeadToEachOtherOverTwoCycles) {
  std::int64_t days = cf::daysFromCivil(-410, 1, 1);
  for (std::int64_t year = -410; year <= 410; ++year) {
    for (int month = 1; month <= 12; ++month) {
      for (int day = 1; day <= cf::daysInMonth(year, month); ++day, ++days) {
        ASSERT_EQ(cf::daysFromCivil(year, month, day), days) << year << '-' << month << '-' << day;
        const cf::CivilDay back = cf::civilFromDays(days);
        ASSERT_TRUE(back.year == year && back.month == month && back.day == day) << days;
      }
    }
  }
}

}  // namespace
