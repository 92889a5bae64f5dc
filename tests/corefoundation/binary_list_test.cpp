#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include "tests/support/property_list_support.h"

using test::canonical;
using test::Held;
using test::parse;
using test::Parsed;
using ::testing::HasSubstr;

namespace {

std::string raw(std::initializer_list<int> bytes) {
  std::string result;
  for (const int byte : bytes) result += static_cast<char>(byte);
  return result;
}

std::string bigEndian(std::uint64_t value) {
  std::string result;
  for (int shift = 56; shift >= 0; shift -= 8) result += static_cast<char>(value >> shift & 0xFF);
  return result;
}

// A binary list of these objects; references and offsets have one byte, the first object is the root.
std::string binary(const std::vector<std::string>& objects) {
  std::string list = "bplist00", table;
  for (const std::string& object : objects) {
    table += static_cast<char>(list.size());
    list += object;
  }
  const std::size_t tableAt = list.size();
  return list + table + std::string(6, '\0') + raw({1, 1}) + bigEndian(objects.size()) + bigEndian(0) +
         bigEndian(tableAt);
}

std::string read(const std::vector<std::string>& objects) {
  const Parsed parsed = parse(binary(objects));
  return parsed.list ? canonical(parsed.list.get()) : parsed.error;
}

TEST(BinaryListTest, EveryKindIsRead) {
  EXPECT_EQ(read({raw({0x08})}), "F");
  EXPECT_EQ(read({raw({0x09})}), "T");
  EXPECT_EQ(read({raw({0x10, 0xFF})}), "i255");
  EXPECT_EQ(read({raw({0x11, 0x01, 0x00})}), "i256");
  EXPECT_EQ(read({raw({0x12, 0xFF, 0xFF, 0xFF, 0xFF})}), "i4294967295");
  EXPECT_EQ(read({raw({0x13}) + bigEndian(UINT64_MAX)}), "i-1");
  EXPECT_EQ(read({raw({0x13}) + bigEndian(std::uint64_t{1} << 63)}), "i-9223372036854775808");
  EXPECT_EQ(read({raw({0x14}) + bigEndian(0) + bigEndian(UINT64_MAX)}), "i18446744073709551615");
  EXPECT_EQ(read({raw({0x14}) + bigEndian(0) + bigEndian(5)}), "i5");
  EXPECT_EQ(read({raw({0x22, 0x3F, 0x80, 0, 0})}), "r" + std::to_string(std::bit_cast<std::uint64_t>(1.0)));
  EXPECT_EQ(read({raw({0x23}) + bigEndian(std::bit_cast<std::uint64_t>(0.1))}),
            "r" + std::to_string(std::bit_cast<std::uint64_t>(0.1)));
  EXPECT_EQ(read({raw({0x42, 0x00, 0xFF})}), "d00ff");
  EXPECT_EQ(read({raw({0x40})}), "d");
  EXPECT_EQ(read({raw({0x50})}), "s");
  EXPECT_EQ(read({raw({0x53}) + "abc"}), "s616263");
  EXPECT_EQ(read({raw({0x63, 0x00, 0xE9, 0xD8, 0x3D, 0xDE, 0x00})}), canonical(test::string("é😀").get()));
  EXPECT_EQ(read({raw({0x5F, 0x10, 0x11}) + std::string(17, 'x')}),
            canonical(test::string(std::string(17, 'x')).get()));
  EXPECT_EQ(read({raw({0xA2, 1, 2}), raw({0x09}), raw({0xA0})}), "[T,[],]");
  EXPECT_EQ(read({raw({0xD2, 1, 2, 3, 1}), raw({0x51, 'a'}), raw({0x51, 'b'}), raw({0xD0})}), "{s61:{},s62:s61,}");
}

TEST(BinaryListTest, DatesKeepTheirFractionAndTheirRange) {
  for (const double at : {0.0, -0.5, 0.123456789, 1e11, -6e10}) {
    const Parsed parsed = parse(binary({raw({0x33}) + bigEndian(std::bit_cast<std::uint64_t>(at))}));
    ASSERT_TRUE(parsed.list) << at << ": " << parsed.error;
    EXPECT_EQ(CFDateGetAbsoluteTime(static_cast<CFDateRef>(parsed.list.get())), at);
  }
}

TEST(BinaryListTest, UnsoundListsAreErrorsThatNameTheObject) {
  const struct {
    std::vector<std::string> objects;
    const char* error;
  } cases[] = {
      {{raw({0x00})}, "There is an object that is no property-list kind at object 0, byte 8,"},
      {{raw({0x0F})}, "There is an object that is no property-list kind"},
      {{raw({0x70})}, "There is an object of unknown kind"},
      {{raw({0xF0})}, "There is an object of unknown kind"},
      {{raw({0x80, 0x01})}, "There is a kind that only archives have"},
      {{raw({0xC1, 1}), raw({0x09})}, "There is a kind that only archives have"},
      {{raw({0x15})}, "There is a number of an unknown size"},
      {{raw({0x21, 0, 0})}, "There is a number of an unknown size"},
      {{raw({0x32, 0, 0, 0, 0})}, "There is a number of an unknown size"},
      {{raw({0x13, 0, 0})}, "An object reaches beyond the others"},
      {{raw({0x14}) + bigEndian(1) + bigEndian(0)}, "An integer needs more than 64 bits"},
      {{raw({0x55}) + "ab"}, "An object reaches beyond the others"},
      {{raw({0x62, 0, 'a', 0})}, "An object reaches beyond the others"},
      {{raw({0x4F, 0x13}) + bigEndian(UINT64_MAX)}, "An object reaches beyond the others"},
      {{raw({0xAF, 0x13}) + bigEndian(UINT64_MAX)}, "An object reaches beyond the others"},
      {{raw({0xDF, 0x13}) + bigEndian(UINT64_MAX / 2 + 1)}, "An object reaches beyond the others"},
      {{raw({0x5F})}, "A size is missing"},
      {{raw({0x5F, 0x33}) + bigEndian(0)}, "A size is missing"},
      {{raw({0x51, 0x80})}, "There is a byte that is not ASCII in an ASCII string"},
      {{raw({0x51, 0x00})}, "There is a NUL inside a string"},
      {{raw({0x61, 0x00, 0x00})}, "There is a NUL inside a string"},
      {{raw({0x61, 0xD8, 0x00})}, "There is half of a surrogate pair"},
      {{raw({0x62, 0xDC, 0x00, 0xD8, 0x00})}, "There is half of a surrogate pair"},
      {{raw({0xA1, 9})}, "A reference leads to none of the objects"},
      {{raw({0xA1, 0})}, "A container holds itself"},
      {{raw({0xA1, 1}), raw({0xA1, 0})}, "A container holds itself at object 0, byte 8,"},
      {{raw({0xD1, 1, 1}), raw({0x09})}, "A key is no string at object 0, byte 8, in the binary property list"},
  };
  for (const auto& [objects, error] : cases) {
    const Parsed parsed = parse(binary(objects));
    EXPECT_FALSE(parsed.list) << error;
    EXPECT_THAT(parsed.error, HasSubstr(error));
    EXPECT_EQ(parsed.code, 3840) << error;
  }
}

TEST(BinaryListTest, TrailersAreChecked) {
  const std::string sound = binary({raw({0x09})});
  const std::size_t trailer = sound.size() - 32;
  const auto with = [&](std::size_t at, int byte) {
    std::string changed = sound;
    changed[trailer + at] = static_cast<char>(byte);
    return parse(changed).error;
  };
  EXPECT_THAT(with(6, 0), HasSubstr("sizes of offsets and references"));
  EXPECT_THAT(with(7, 9), HasSubstr("sizes of offsets and references"));
  EXPECT_THAT(with(8, 0xFF), HasSubstr("The table of offsets does not fit"));
  EXPECT_THAT(with(15, 0), HasSubstr("The table of offsets does not fit"));
  EXPECT_THAT(with(15, 2), HasSubstr("The table of offsets does not fit"));
  EXPECT_THAT(with(23, 1), HasSubstr("The root is none of the objects"));
  EXPECT_THAT(with(24, 0xFF), HasSubstr("The table of offsets does not fit"));
  EXPECT_THAT(with(31, 8), HasSubstr("The table of offsets does not fit"));
  EXPECT_THAT(parse("bplist00").error, HasSubstr("There are too few bytes"));
  EXPECT_EQ(parse("bplist15" + std::string(40, '\0')).code, kCFPropertyListReadUnknownVersionError);
  std::string outside = sound;
  outside[trailer - 1] = 0x70;
  EXPECT_THAT(parse(outside).error, HasSubstr("An offset lies outside of the objects"));
}

TEST(BinaryListTest, ListsThatSharingMakesHugeAreRefused) {
  std::vector<std::string> objects;
  for (int i = 1; i <= 40; ++i) objects.push_back(raw({0xA4, i, i, i, i}));
  objects.push_back(raw({0x09}));
  EXPECT_THAT(read(objects), HasSubstr("Shared objects make the list too large"));
}

TEST(BinaryListTest, SharedLeavesAndContainersAreRead) {
  EXPECT_EQ(read({raw({0xA3, 1, 1, 2}), raw({0xA2, 2, 2}), raw({0x51, 'a'})}), "[[s61,s61,],[s61,s61,],s61,]");
}

TEST(BinaryListTest, DepthIsLimited) {
  const auto nested = [](int depth) {
    std::string list = "bplist00", table;
    for (int i = 0; i < depth; ++i) {
      table += raw({static_cast<int>(list.size() >> 8), static_cast<int>(list.size() & 0xFF)});
      list += i + 1 == depth ? raw({0xA0}) : raw({0xA1, (i + 1) >> 8, (i + 1) & 0xFF});
    }
    const std::size_t tableAt = list.size();
    return list + table + std::string(6, '\0') + raw({2, 2}) + bigEndian(static_cast<std::uint64_t>(depth)) +
           bigEndian(0) + bigEndian(tableAt);
  };
  const Parsed deepest = parse(nested(512));
  EXPECT_TRUE(deepest.list) << deepest.error;
  EXPECT_THAT(parse(nested(513)).error, HasSubstr("More than 512 containers inside one another"));
  EXPECT_THAT(parse(nested(20000)).error, HasSubstr("More than 512 containers inside one another"));
}

TEST(BinaryListTest, RandomListsAreWrittenAndReadBackTheSame) {
  for (std::uint32_t seed = 1000; seed < 1100; ++seed) {
    const Held<CFPropertyListRef> list = test::ListMaker(seed).make(150);
    const test::Written written = test::write(list.get(), kCFPropertyListBinaryFormat_v1_0);
    const Parsed parsed = parse(written.bytes);
    ASSERT_TRUE(parsed.list) << "seed " << seed << ": " << written.error << parsed.error;
    ASSERT_TRUE(CFEqual(parsed.list.get(), list.get())) << "seed " << seed;
  }
}

TEST(BinaryListTest, EveryKindIsWritten) {
  const std::string xml =
      "<dict><key>i</key><integer>-5</integer><key>u</key><integer>18446744073709551615</integer><key>r</key>"
      "<real>0.1</real><key>n</key><real>nan</real><key>f</key><real>-inf</real><key>t</key><true/><key>d</key>"
      "<date>4001-01-01T00:00:00Z</date><key>b</key><data>AAEC</data><key>s</key><string>a&#13;b</string></dict>";
  const Parsed list = parse(xml);
  const test::Written written = test::write(list.list.get(), kCFPropertyListBinaryFormat_v1_0);
  ASSERT_TRUE(written.bytes.starts_with("bplist00")) << written.error;
  EXPECT_EQ(canonical(parse(written.bytes).list.get()), canonical(list.list.get()));
}

TEST(BinaryListTest, EveryTruncationAndFlippedBitIsAnErrorOrAList) {
  const std::string whole = test::write(test::ListMaker(21).make(40).get(), kCFPropertyListBinaryFormat_v1_0).bytes;
  for (std::size_t length = 0; length < whole.size(); ++length) {
    const Parsed parsed = parse(whole.substr(0, length));
    ASSERT_TRUE(parsed.list || !parsed.error.empty()) << "cut to " << length << " bytes";
  }
  std::size_t errors = 0, lists = 0;
  for (std::size_t bit = 0; bit < whole.size() * 8; ++bit) {
    std::string flipped = whole;
    flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ 1 << bit % 8);
    const Parsed parsed = parse(flipped);
    ASSERT_NE(static_cast<bool>(parsed.list), !parsed.error.empty()) << "bit " << bit;
    ++(parsed.list ? lists : errors);
  }
  EXPECT_GT(errors, 0u);
  EXPECT_GT(lists, 0u);
}

}  // namespace
