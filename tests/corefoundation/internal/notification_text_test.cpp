#include <gtest/gtest.h>

#include <CoreFoundation/CFString.h>

#include <string>

#include "platform/corefoundation/notification_center_rule.h"
#include "platform/corefoundation/notification_center_text.h"

namespace {

using cf::BusText;
using cf::Owned;

Owned<CFStringRef> fromUnits(const std::u16string& units) {
  return Owned<CFStringRef>(CFStringCreateWithCharacters(nullptr, reinterpret_cast<const UniChar*>(units.data()),
                                                         static_cast<CFIndex>(units.size())));
}

TEST(NotificationTextTest, OrdinaryTextStaysAsItIs) {
  for (const char* const text : {"", "plain", "MervaneStatusNotification2", "grüße 日本 🎬", "\x1b\x01\n\t\\'\""}) {
    const Owned<CFStringRef> string(CFStringCreateWithCString(nullptr, text, kCFStringEncodingUTF8));
    EXPECT_STREQ(BusText(string.get()).cString(), text);
    const Owned<CFStringRef> back = cf::stringFromBusText(text);
    ASSERT_TRUE(back) << text;
    EXPECT_TRUE(CFEqual(back.get(), string.get())) << text;
  }
}

TEST(NotificationTextTest, WhatTheBusCannotCarryIsWrittenAsDigits) {
  EXPECT_STREQ(BusText(fromUnits(std::u16string(u"a\0b", 3)).get()).cString(),
               "a\x1a"
               "000000"
               "b");
  EXPECT_STREQ(BusText(fromUnits(u"\x1a").get()).cString(),
               "\x1a"
               "00001a");
  const char16_t lone[] = {0xD83D, u'x', 0xDE00, 0};
  EXPECT_STREQ(BusText(fromUnits(lone).get()).cString(),
               "\x1a"
               "00d83d"
               "x"
               "\x1a"
               "00de00");
  const char16_t none[] = {0xFDD0, 0xFFFE, 0xD83F, 0xDFFF, 0};
  EXPECT_STREQ(BusText(fromUnits(none).get()).cString(),
               "\x1a"
               "00fdd0"
               "\x1a"
               "00fffe"
               "\x1a"
               "01ffff");
}

// Every code unit there is, alone and before and behind others.
TEST(NotificationTextTest, EveryCodeUnitComesBack) {
  for (unsigned unit = 0; unit <= 0xFFFF; ++unit) {
    const char16_t text[] = {static_cast<char16_t>(unit), u'-', static_cast<char16_t>(unit), 0};
    const Owned<CFStringRef> string = fromUnits(std::u16string(text, 3));
    const BusText written(string.get());
    const Owned<CFStringRef> back = cf::stringFromBusText(written.cString());
    ASSERT_TRUE(back) << std::hex << unit;
    ASSERT_TRUE(CFEqual(back.get(), string.get())) << std::hex << unit;
  }
}

TEST(NotificationTextTest, WhatNobodyWritesIsRefused) {
  for (const char* const text : {"\x1a",
                                 "\x1a"
                                 "00000",
                                 "\x1a"
                                 "00000g",
                                 "\x1a"
                                 "000041",
                                 "\x1a"
                                 "00001A",
                                 "\x1a"
                                 "110000",
                                 "\x1a"
                                 "ffffff",
                                 "ok\x1a"
                                 "0000"}) {
    EXPECT_FALSE(cf::stringFromBusText(text)) << text;
  }
}

constexpr const char* kAll =
    "type='signal',path='/com/brant/mervane/DistributedNotifications1',"
    "interface='com.brant.mervane.DistributedNotifications1',member='Posted'";

TEST(NotificationRuleTest, NullObservesAll) {
  EXPECT_EQ(cf::notificationRule(nullptr, nullptr), kAll);
  EXPECT_EQ(cf::notificationRule(CFSTR("N2"), nullptr), std::string(kAll) + ",arg0='N2'");
  EXPECT_EQ(cf::notificationRule(nullptr, CFSTR("")), std::string(kAll) + ",arg1=''");
  EXPECT_EQ(cf::notificationRule(CFSTR("N2"), CFSTR("o")), std::string(kAll) + ",arg0='N2',arg1='o'");
}

TEST(NotificationRuleTest, ApostrophesStandOutsideTheQuotes) {
  EXPECT_EQ(cf::notificationRule(CFSTR("it's"), nullptr), std::string(kAll) + ",arg0='it'\\''s'");
}

TEST(NotificationRuleTest, NoRuleIsLongerThanTheBusTakes) {
  const std::string text(2000, 'x');
  const Owned<CFStringRef> longText(CFStringCreateWithCString(nullptr, text.c_str(), kCFStringEncodingUTF8));
  EXPECT_EQ(cf::notificationRule(CFSTR("N2"), longText.get()), std::string(kAll) + ",arg0='N2'");
  EXPECT_EQ(cf::notificationRule(longText.get(), CFSTR("o")), std::string(kAll) + ",arg1='o'");
  EXPECT_EQ(cf::notificationRule(longText.get(), longText.get()), kAll);
  for (std::size_t size = 800; size < 1000; ++size) {
    const Owned<CFStringRef> name(
        CFStringCreateWithCString(nullptr, std::string(size, 'n').c_str(), kCFStringEncodingUTF8));
    EXPECT_LE(cf::notificationRule(name.get(), nullptr).size(), 1024U) << size;
  }
}

}  // namespace
