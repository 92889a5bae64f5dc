// Encodings, both ways.
#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <cstring>

#include "tests/corefoundation/string_testing.h"

using namespace strings;

namespace {

std::string bytes(std::string_view text) { return std::string(text); }

String decoded(std::string_view source, CFStringEncoding encoding, bool external = false) {
  return String(CFStringCreateWithBytes(nullptr, reinterpret_cast<const UInt8*>(source.data()),
                                        static_cast<CFIndex>(source.size()), encoding, external));
}

constexpr std::array kEncodings = {
    CFStringEncoding{kCFStringEncodingMacRoman}, CFStringEncoding{kCFStringEncodingISOLatin1},
    CFStringEncoding{kCFStringEncodingASCII},    CFStringEncoding{kCFStringEncodingUTF8},
    CFStringEncoding{kCFStringEncodingUTF16},    CFStringEncoding{kCFStringEncodingUTF16BE},
    CFStringEncoding{kCFStringEncodingUTF16LE},  CFStringEncoding{kCFStringEncodingUTF32},
    CFStringEncoding{kCFStringEncodingUTF32BE},  CFStringEncoding{kCFStringEncodingUTF32LE}};

TEST(StringEncodingTest, TheDocumentedEncodingsAreAvailable) {
  for (const CFStringEncoding encoding : kEncodings) EXPECT_TRUE(CFStringIsEncodingAvailable(encoding)) << encoding;
  EXPECT_FALSE(CFStringIsEncodingAvailable(kCFStringEncodingInvalidId));
  EXPECT_FALSE(CFStringIsEncodingAvailable(0x0A01));
  EXPECT_EQ(CFStringGetSystemEncoding(), CFStringEncoding{kCFStringEncodingUTF8});
}

TEST(StringEncodingTest, EveryCharacterOfAnEncodingComesBack) {
  for (const CFStringEncoding encoding : kEncodings) {
    for (const bool external : {false, true}) {
      int kept = 0;
      for (std::uint32_t point = 0; point <= 0x10FFFF; point += point < 0x3000 ? 1 : 0x3F) {
        if (point >= 0xD800 && point <= 0xDFFF) continue;
        const std::string utf32 = {static_cast<char>(point), static_cast<char>(point >> 8),
                                   static_cast<char>(point >> 16), '\0'};
        const String string = decoded(utf32, kCFStringEncodingUTF32LE);
        ASSERT_TRUE(string) << point;
        CFIndex used = 0;
        UInt8 buffer[8];
        const CFIndex length = CFStringGetLength(string.get());
        const CFIndex converted =
            CFStringGetBytes(string.get(), whole(string.get()), encoding, 0, external, buffer, 8, &used);
        if (converted == 0) continue;
        ASSERT_EQ(converted, length) << point;
        const String back(CFStringCreateWithBytes(nullptr, buffer, used, encoding, external));
        const bool isMark =
            external && point == 0xFEFF && encoding != kCFStringEncodingUTF16 && encoding != kCFStringEncodingUTF32;
        ASSERT_EQ(utf8(back), isMark ? "" : utf8(string)) << encoding << " U+" << std::hex << point;
        ++kept;
      }
      const bool small = encoding == kCFStringEncodingASCII;
      const bool bytewise = encoding == kCFStringEncodingMacRoman || encoding == kCFStringEncodingISOLatin1;
      // In steps of 0x3F the walk meets few of the characters of Mac OS Roman above U+3000.
      EXPECT_GE(kept, small ? 128 : bytewise ? 253 : 28000) << encoding;
      EXPECT_LE(kept, small ? 128 : bytewise ? 256 : 0x10FFFF) << encoding;
    }
  }
}

TEST(StringEncodingTest, EveryByteOfTheByteEncodingsIsOneCharacter) {
  for (const CFStringEncoding encoding :
       {CFStringEncoding{kCFStringEncodingMacRoman}, CFStringEncoding{kCFStringEncodingISOLatin1}}) {
    std::string all;
    for (int byte = 0; byte < 256; ++byte) all.push_back(static_cast<char>(byte));
    const String string = decoded(all, encoding);
    ASSERT_TRUE(string);
    EXPECT_EQ(CFStringGetLength(string.get()), 256);
    EXPECT_EQ(bytesOf(string.get(), encoding), all);
  }
}

TEST(StringEncodingTest, KnownBytesOfMacRoman) {
  EXPECT_EQ(utf8(decoded("\x8E\x8F\xDB\xF0\xDE\xA5\xD5", kCFStringEncodingMacRoman)), "éè€\uF8FFﬁ•’");
  EXPECT_EQ(bytesOf(CFSTR("Größe Ω"), kCFStringEncodingMacRoman),
            "Gr\x9A\xA7"
            "e \xBD");
}

TEST(StringEncodingTest, KnownBytesOfUTF16AndUTF32) {
  const CFStringRef text = CFSTR("a\u20AC\U0001F389");
  EXPECT_EQ(bytesOf(text, kCFStringEncodingUTF16BE), bytes({"\0a\x20\xAC\xD8\x3C\xDF\x89", 8}));
  EXPECT_EQ(bytesOf(text, kCFStringEncodingUTF16LE), bytes({"a\0\xAC\x20\x3C\xD8\x89\xDF", 8}));
  EXPECT_EQ(bytesOf(text, kCFStringEncodingUTF32BE), bytes({"\0\0\0a\0\0\x20\xAC\0\x01\xF3\x89", 12}));
  EXPECT_EQ(bytesOf(text, kCFStringEncodingUTF32LE), bytes({"a\0\0\0\xAC\x20\0\0\x89\xF3\x01\0", 12}));
}

TEST(StringEncodingTest, AByteOrderMarkDecidesTheOrder) {
  EXPECT_EQ(utf8(decoded({"\xFE\xFF\0a", 4}, kCFStringEncodingUTF16, true)), "a");
  EXPECT_EQ(utf8(decoded({"\xFF\xFE"
                          "a\0",
                          4},
                         kCFStringEncodingUTF16, true)),
            "a");
  EXPECT_EQ(utf8(decoded({"\0\0\xFE\xFF\0\0\0a", 8}, kCFStringEncodingUTF32, true)), "a");
  EXPECT_EQ(utf8(decoded({"\xFF\xFE\0\0a\0\0\0", 8}, kCFStringEncodingUTF32, true)), "a");
  EXPECT_EQ(utf8(decoded({"\xFE\xFF\0a", 4}, kCFStringEncodingUTF16BE, true)), "a");
  EXPECT_EQ(utf8(decoded("\xEF\xBB\xBF"
                         "a",
                         kCFStringEncodingUTF8, true)),
            "a");
}

TEST(StringEncodingTest, AMarkInBytesThatAreNotExternalIsACharacter) {
  EXPECT_EQ(utf8(decoded("\xEF\xBB\xBF"
                         "a",
                         kCFStringEncodingUTF8, false)),
            "\xEF\xBB\xBF"
            "a");
  EXPECT_EQ(utf8(decoded({"\xFE\xFF\0a", 4}, kCFStringEncodingUTF16BE, false)),
            "\xEF\xBB\xBF"
            "a");
}

TEST(StringEncodingTest, TheExternalFormBeginsWithAMarkWhereTheOrderIsOpen) {
  const std::string utf16 = bytesOf(CFSTR("a"), kCFStringEncodingUTF16, true);
  EXPECT_TRUE(utf16 == bytes({"\xFF\xFE"
                              "a\0",
                              4}) ||
              utf16 == bytes({"\xFE\xFF\0a", 4}));
  const std::string utf32 = bytesOf(CFSTR("a"), kCFStringEncodingUTF32, true);
  EXPECT_TRUE(utf32 == bytes({"\xFF\xFE\0\0a\0\0\0", 8}) || utf32 == bytes({"\0\0\xFE\xFF\0\0\0a", 8}));
  EXPECT_EQ(bytesOf(CFSTR("a"), kCFStringEncodingUTF16BE, true), bytes({"\0a", 2}));
  EXPECT_EQ(bytesOf(CFSTR("a"), kCFStringEncodingUTF8, true), "a");
}

TEST(StringEncodingTest, BytesOutsideAnEncodingAreRefused) {
  EXPECT_FALSE(decoded("\x80", kCFStringEncodingASCII));
  EXPECT_FALSE(decoded("abc", kCFStringEncodingUTF16)) << "an odd number of bytes";
  EXPECT_FALSE(decoded("abcde", kCFStringEncodingUTF32)) << "not a multiple of four";
  EXPECT_FALSE(decoded({"\0\x11\0\0", 4}, kCFStringEncodingUTF32BE)) << "beyond U+10FFFF";
  EXPECT_FALSE(decoded({"\0\0\xD8\0", 4}, kCFStringEncodingUTF32BE)) << "a surrogate";
  EXPECT_FALSE(decoded("a", 0x0A01)) << "an unknown encoding";
  EXPECT_FALSE(decoded("\xFF", kCFStringEncodingUTF8, true));
}

TEST(StringEncodingTest, UTF16BytesMayHoldLoneSurrogates) {
  const String string = decoded({"\xD8\x3C\0a\xDF\x89", 6}, kCFStringEncodingUTF16BE);
  ASSERT_TRUE(string);
  EXPECT_EQ(unitsOf(string.get()), (std::u16string{0xD83C, u'a', 0xDF89}));
  EXPECT_EQ(bytesOf(string.get(), kCFStringEncodingUTF16BE), bytes({"\xD8\x3C\0a\xDF\x89", 6}));
  EXPECT_EQ(bytesOf(string.get(), kCFStringEncodingUTF8), "?a?");
  EXPECT_EQ(bytesOf(string.get(), kCFStringEncodingUTF32BE), bytes({"\0\0\0?\0\0\0a\0\0\0?", 12}));
}

// ---- CFStringGetBytes

struct Converted {
  CFIndex units;
  std::string bytes;
};

Converted convert(CFStringRef string, CFRange range, CFStringEncoding encoding, UInt8 lossByte, CFIndex room) {
  std::string buffer(static_cast<std::size_t>(room) + 1, '#');
  CFIndex used = -1;
  const CFIndex units =
      CFStringGetBytes(string, range, encoding, lossByte, false, reinterpret_cast<UInt8*>(buffer.data()), room, &used);
  EXPECT_EQ(buffer.back(), '#') << "written beyond the buffer";
  return {units, buffer.substr(0, static_cast<std::size_t>(used))};
}

TEST(StringGetBytesTest, StopsWhereTheBufferIsFullAtAWholeCharacter) {
  const CFStringRef text = CFSTR("a\u20AC\U0001F389z");
  const struct {
    CFIndex room;
    CFIndex units;
    const char* bytes;
  } rows[] = {{0, 0, ""},   {1, 1, "a"},   {3, 1, "a"},    {4, 2, "a€"},
              {7, 2, "a€"}, {8, 4, "a€🎉"}, {9, 5, "a€🎉z"}, {99, 5, "a€🎉z"}};
  for (const auto& row : rows) {
    const Converted result = convert(text, CFRangeMake(0, 5), kCFStringEncodingUTF8, 0, row.room);
    EXPECT_EQ(result.units, row.units) << row.room;
    EXPECT_EQ(result.bytes, row.bytes) << row.room;
  }
}

TEST(StringGetBytesTest, StopsBeforeACharacterThatTheEncodingLacks) {
  const Converted result = convert(CFSTR("ab\u20AC"
                                         "c"),
                                   CFRangeMake(0, 4), kCFStringEncodingISOLatin1, 0, 99);
  EXPECT_EQ(result.units, 2);
  EXPECT_EQ(result.bytes, "ab");
}

TEST(StringGetBytesTest, PutsTheLossByteForACharacterThatTheEncodingLacks) {
  const Converted result = convert(CFSTR("a\u20AC\U0001F389z"), CFRangeMake(0, 5), kCFStringEncodingASCII, '?', 99);
  EXPECT_EQ(result.units, 5);
  EXPECT_EQ(result.bytes, "a??z");
  EXPECT_EQ(convert(CFSTR("\u20AC"), CFRangeMake(0, 1), kCFStringEncodingISOLatin1, 0xBF, 9).bytes, "\xBF");
}

TEST(StringGetBytesTest, HalfAPairIsLostInUTF8AndKeptInUTF16) {
  const CFStringRef text = CFSTR("\U0001F389z");
  EXPECT_EQ(convert(text, CFRangeMake(0, 1), kCFStringEncodingUTF8, '?', 9).bytes, "?");
  EXPECT_EQ(convert(text, CFRangeMake(1, 2), kCFStringEncodingUTF8, '?', 9).bytes, "?z");
  EXPECT_EQ(convert(text, CFRangeMake(1, 2), kCFStringEncodingUTF8, 0, 9).units, 0);
  EXPECT_EQ(convert(text, CFRangeMake(0, 1), kCFStringEncodingUTF16BE, 0, 9).bytes, "\xD8\x3C");
  EXPECT_EQ(convert(text, CFRangeMake(1, 1), kCFStringEncodingUTF16BE, 0, 9).bytes, "\xDF\x89");
}

TEST(StringGetBytesTest, CountsWithoutABuffer) {
  CFIndex used = -1;
  EXPECT_EQ(CFStringGetBytes(CFSTR("a\u20AC"), CFRangeMake(0, 2), kCFStringEncodingUTF8, 0, false, nullptr, 0, &used),
            2);
  EXPECT_EQ(used, 4);
  EXPECT_EQ(CFStringGetBytes(CFSTR("a\u20AC"), CFRangeMake(0, 2), kCFStringEncodingUTF16, 0, true, nullptr, 0, &used),
            2);
  EXPECT_EQ(used, 6) << "the mark counts as bytes, not as a converted unit";
  EXPECT_EQ(CFStringGetBytes(CFSTR("a"), CFRangeMake(0, 1), kCFStringEncodingUTF8, 0, false, nullptr, 0, nullptr), 1);
}

TEST(StringGetBytesTest, OfABadRangeOrEncodingIsNothing) {
  EXPECT_EQ(convert(CFSTR("abc"), CFRangeMake(5, 5), kCFStringEncodingUTF8, 0, 9).units, 0);
  EXPECT_EQ(convert(CFSTR("abc"), CFRangeMake(-5, 2), kCFStringEncodingUTF8, 0, 9).units, 0);
  EXPECT_EQ(convert(CFSTR("abc"), CFRangeMake(1, 99), kCFStringEncodingUTF8, 0, 9).bytes, "bc");
  EXPECT_EQ(convert(CFSTR("abc"), CFRangeMake(0, 3), 0x0A01, 0, 9).units, 0);
  EXPECT_EQ(convert(nullptr, CFRangeMake(0, 3), kCFStringEncodingUTF8, 0, 9).units, 0);
}

// ---- C strings

TEST(StringCStringTest, FitsExactly) {
  char buffer[8];
  EXPECT_TRUE(CFStringGetCString(CFSTR("a\u20AC"), buffer, 5, kCFStringEncodingUTF8));
  EXPECT_STREQ(buffer, "a€");
  EXPECT_FALSE(CFStringGetCString(CFSTR("a\u20AC"), buffer, 4, kCFStringEncodingUTF8));
  EXPECT_STREQ(buffer, "");
  EXPECT_TRUE(CFStringGetCString(CFSTR(""), buffer, 1, kCFStringEncodingUTF8));
  EXPECT_FALSE(CFStringGetCString(CFSTR(""), buffer, 0, kCFStringEncodingUTF8));
  EXPECT_FALSE(CFStringGetCString(CFSTR("a"), nullptr, 8, kCFStringEncodingUTF8));
}

TEST(StringCStringTest, IsRefusedWhereTheEncodingLacksACharacter) {
  char buffer[8] = "before";
  EXPECT_FALSE(CFStringGetCString(CFSTR("\u20AC"), buffer, 8, kCFStringEncodingISOLatin1));
  EXPECT_STREQ(buffer, "");
  EXPECT_TRUE(CFStringGetCString(CFSTR("\u00E9"), buffer, 8, kCFStringEncodingISOLatin1));
  EXPECT_STREQ(buffer, "\xE9");
  EXPECT_FALSE(CFStringGetCString(CFSTR("a"), buffer, 8, kCFStringEncodingUTF16)) << "not an encoding of bytes";
  EXPECT_EQ(CFStringCreateWithCString(nullptr, "a", kCFStringEncodingUTF16), nullptr);
}

TEST(StringCStringTest, PointerIsThereWhereTheBytesAreTheSame) {
  const String plain = fromUTF8("plain");
  for (const CFStringEncoding encoding : kEncodings) {
    const char* const pointer = CFStringGetCStringPtr(plain.get(), encoding);
    const bool bytewise = CFStringGetMaximumSizeForEncoding(1, encoding) == 1 || encoding == kCFStringEncodingUTF8;
    EXPECT_EQ(pointer != nullptr, bytewise) << encoding;
    EXPECT_STREQ(pointer, bytewise ? "plain" : nullptr) << encoding;
  }
  const String mixed = fromUTF8("gr\xC3\xBCn");
  EXPECT_STREQ(CFStringGetCStringPtr(mixed.get(), kCFStringEncodingUTF8), "gr\xC3\xBCn");
  EXPECT_EQ(CFStringGetCStringPtr(mixed.get(), kCFStringEncodingASCII), nullptr);
  EXPECT_EQ(CFStringGetCStringPtr(mixed.get(), kCFStringEncodingISOLatin1), nullptr);
  EXPECT_EQ(CFStringGetCStringPtr(fromUnits(std::u16string(1, char16_t{0xD83C})).get(), kCFStringEncodingUTF8),
            nullptr);
  EXPECT_EQ(CFStringGetCStringPtr(nullptr, kCFStringEncodingUTF8), nullptr);
  const MutableString changing(CFStringCreateMutable(nullptr, 0));
  EXPECT_STREQ(CFStringGetCStringPtr(changing.get(), kCFStringEncodingUTF8), "");
  CFStringAppend(changing.get(), CFSTR("text"));
  EXPECT_STREQ(CFStringGetCStringPtr(changing.get(), kCFStringEncodingUTF8), "text");
}

TEST(StringCStringTest, WithoutCopyGivesTheTextBackByItsDeallocator) {
  char local[] = "stays mine";
  const String first(CFStringCreateWithCStringNoCopy(nullptr, local, kCFStringEncodingUTF8, kCFAllocatorNull));
  local[0] = 'S';
  EXPECT_EQ(utf8(first), "stays mine");
  // The sanitizers find it if this is freed twice or not at all.
  char* const given = ::strdup("given away");
  const String second(CFStringCreateWithCStringNoCopy(nullptr, given, kCFStringEncodingUTF8, kCFAllocatorDefault));
  EXPECT_EQ(utf8(second), "given away");
  char* const unreadable = ::strdup("\xFF");
  EXPECT_EQ(CFStringCreateWithCStringNoCopy(nullptr, unreadable, kCFStringEncodingUTF8, kCFAllocatorDefault), nullptr);
  std::free(unreadable);
}

// ---- Data and paths

TEST(StringExternalRepresentationTest, ComesBackFromEveryEncoding) {
  const CFStringRef text = CFSTR("caf\u00E9 \u00DF");
  for (const CFStringEncoding encoding : kEncodings) {
    const plinth::CSharedCFRef<CFDataRef> data(CFStringCreateExternalRepresentation(nullptr, text, encoding, 0));
    if (encoding == kCFStringEncodingASCII) {
      EXPECT_FALSE(data) << "ASCII lacks the accent";
      continue;
    }
    ASSERT_TRUE(data) << encoding;
    EXPECT_EQ(utf8(String(CFStringCreateFromExternalRepresentation(nullptr, data.get(), encoding))), "café ß");
  }
  const plinth::CSharedCFRef<CFDataRef> lossy(
      CFStringCreateExternalRepresentation(nullptr, text, kCFStringEncodingASCII, '.'));
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(CFDataGetBytePtr(lossy.get())), 6), "caf. .");
  const plinth::CSharedCFRef<CFDataRef> empty(
      CFStringCreateExternalRepresentation(nullptr, CFSTR(""), kCFStringEncodingUTF8, 0));
  EXPECT_EQ(CFDataGetLength(empty.get()), 0);
  EXPECT_EQ(CFStringCreateExternalRepresentation(nullptr, nullptr, kCFStringEncodingUTF8, 0), nullptr);
  EXPECT_EQ(CFStringCreateExternalRepresentation(nullptr, text, 0x0A01, 0), nullptr);
  EXPECT_EQ(CFStringCreateFromExternalRepresentation(nullptr, nullptr, kCFStringEncodingUTF8), nullptr);
}

TEST(StringEncodingTest, TheMaximumSizeIsEnoughAndNotMore) {
  EXPECT_EQ(CFStringGetMaximumSizeForEncoding(10, kCFStringEncodingUTF8), 30);
  EXPECT_EQ(CFStringGetMaximumSizeForEncoding(10, kCFStringEncodingASCII), 10);
  EXPECT_EQ(CFStringGetMaximumSizeForEncoding(10, kCFStringEncodingUTF16), 20);
  EXPECT_EQ(CFStringGetMaximumSizeForEncoding(10, kCFStringEncodingUTF32BE), 40);
  EXPECT_EQ(CFStringGetMaximumSizeForEncoding(0, kCFStringEncodingUTF8), 0);
  EXPECT_EQ(CFStringGetMaximumSizeForEncoding(INTPTR_MAX, kCFStringEncodingUTF8), kCFNotFound);
  EXPECT_EQ(CFStringGetMaximumSizeForEncoding(-1, kCFStringEncodingUTF8), kCFNotFound);
  EXPECT_EQ(CFStringGetMaximumSizeForEncoding(1, 0x0A01), kCFNotFound);
}

TEST(StringFileSystemTest, PathsAreUTF8) {
  const String path(CFStringCreateWithFileSystemRepresentation(nullptr, "/tmp/gr\xC3\xBC \"n\n"));
  EXPECT_EQ(utf8(path), "/tmp/gr\xC3\xBC \"n\n");
  const CFIndex size = CFStringGetMaximumSizeOfFileSystemRepresentation(path.get());
  std::string buffer(static_cast<std::size_t>(size), '#');
  EXPECT_TRUE(CFStringGetFileSystemRepresentation(path.get(), buffer.data(), size));
  EXPECT_STREQ(buffer.c_str(), "/tmp/gr\xC3\xBC \"n\n");
  EXPECT_FALSE(CFStringGetFileSystemRepresentation(path.get(), buffer.data(), 5));
  EXPECT_STREQ(buffer.c_str(), "");
  EXPECT_FALSE(CFStringGetFileSystemRepresentation(CFSTR("/a\0b"), buffer.data(), size));
  EXPECT_EQ(CFStringCreateWithFileSystemRepresentation(nullptr, nullptr), nullptr);
  EXPECT_EQ(CFStringCreateWithFileSystemRepresentation(nullptr, "/\xFF"), nullptr);
  EXPECT_EQ(CFStringGetMaximumSizeOfFileSystemRepresentation(CFSTR("")), 1);
}

}  // namespace
