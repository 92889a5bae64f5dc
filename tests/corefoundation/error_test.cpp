#include <gtest/gtest.h>

#include <cerrno>

#include "tests/corefoundation/value_support.h"

namespace {

using values::descriptionOf;
using values::Held;
using values::string;
using values::textOf;
using values::textOfOwned;

Held<CFErrorRef> errorWith(CFErrorDomain domain, CFIndex code,
                           std::initializer_list<std::pair<CFStringRef, CFTypeRef>> userInfo) {
  std::vector<const void*> keys;
  std::vector<const void*> contents;
  for (const auto& [key, value] : userInfo) {
    keys.push_back(key);
    contents.push_back(value);
  }
  return CFErrorCreateWithUserInfoKeysAndValues(nullptr, domain, code, keys.data(), contents.data(),
                                                static_cast<CFIndex>(keys.size()));
}

TEST(CFErrorTest, KeepsDomainCodeAndUserInfo) {
  const auto path = string("/a/path");
  {
    const auto error = errorWith(kCFErrorDomainCocoa, 3840, {{kCFErrorFilePathKey, path}});
    EXPECT_EQ(CFGetTypeID(error), CFErrorGetTypeID());
    EXPECT_EQ(CFGetRetainCount(error), 1);
    EXPECT_TRUE(CFEqual(CFErrorGetDomain(error), kCFErrorDomainCocoa));
    EXPECT_EQ(CFErrorGetCode(error), 3840);
    EXPECT_EQ(CFGetRetainCount(path), 2);
    const Held<CFDictionaryRef> userInfo(CFErrorCopyUserInfo(error));
    EXPECT_EQ(CFDictionaryGetValue(userInfo, kCFErrorFilePathKey), path.get());
  }
  EXPECT_EQ(CFGetRetainCount(path), 1);
}

TEST(CFErrorTest, CopiesTheUserInfo) {
  const Held<CFMutableDictionaryRef> changing(
      CFDictionaryCreateMutable(nullptr, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
  CFDictionarySetValue(changing, kCFErrorLocalizedDescriptionKey, CFSTR("It failed."));
  const Held<CFErrorRef> error(CFErrorCreate(nullptr, kCFErrorDomainCocoa, 1, changing));
  CFDictionaryRemoveAllValues(changing);
  EXPECT_EQ(descriptionOf(error), "It failed.");
  const Held<CFErrorRef> bare(CFErrorCreate(nullptr, kCFErrorDomainCocoa, 1, nullptr));
  const Held<CFDictionaryRef> userInfo(CFErrorCopyUserInfo(bare));
  ASSERT_NE(userInfo.get(), nullptr);
  EXPECT_EQ(CFDictionaryGetCount(userInfo), 0);
}

TEST(CFErrorTest, TheLocalizedDescriptionIsWhatPeopleRead) {
  const auto error = errorWith(kCFErrorDomainPOSIX, ENOENT,
                               {{kCFErrorLocalizedDescriptionKey, CFSTR("The list is broken in line 3.")},
                                {kCFErrorLocalizedFailureReasonKey, CFSTR("A tag is missing.")}});
  EXPECT_EQ(textOfOwned(CFErrorCopyDescription(error)), "The list is broken in line 3.");
  EXPECT_EQ(textOfOwned(CFErrorCopyFailureReason(error)), "A tag is missing.");
  EXPECT_EQ(descriptionOf(error), "The list is broken in line 3.");
  const Held<CFStringRef> formatted(CFStringCreateWithFormat(nullptr, nullptr, CFSTR("error = %@"), error.get()));
  EXPECT_EQ(textOf(formatted), "error = The list is broken in line 3.");
}

TEST(CFErrorTest, WithoutADescriptionTheReasonIsTold) {
  const auto withReason =
      errorWith(kCFErrorDomainCocoa, 4, {{kCFErrorLocalizedFailureReasonKey, CFSTR("The disk is full.")}});
  EXPECT_EQ(descriptionOf(withReason), "The operation couldn't be completed. The disk is full.");
  const auto system = errorWith(kCFErrorDomainPOSIX, ENOENT, {});
  EXPECT_EQ(descriptionOf(system), "The operation couldn't be completed. No such file or directory");
  EXPECT_EQ(textOfOwned(CFErrorCopyFailureReason(system)), "No such file or directory");
}

TEST(CFErrorTest, WithoutAReasonDomainAndCodeAreTold) {
  EXPECT_EQ(descriptionOf(errorWith(CFSTR("com.brant.mervane"), -5, {})),
            "The operation couldn't be completed. (com.brant.mervane error -5.)");
  EXPECT_EQ(descriptionOf(errorWith(CFSTR("d"), 5, {{kCFErrorDescriptionKey, CFSTR("the tape tore")}})),
            "The operation couldn't be completed. (d error 5 - the tape tore.)");
  EXPECT_EQ(textOfOwned(CFErrorCopyFailureReason(errorWith(CFSTR("d"), 5, {}))), "(null)");
  for (const CFIndex code : {CFIndex{0}, CFIndex{-1}, CFIndex{99999}, CFIndex{1} << 32}) {
    EXPECT_EQ(CFErrorCopyFailureReason(errorWith(kCFErrorDomainPOSIX, code, {})), nullptr) << code;
  }
}

TEST(CFErrorTest, UserInfoOfTheWrongKindIsNotTakenForText) {
  const auto error = errorWith(CFSTR("d"), 1,
                               {{kCFErrorLocalizedDescriptionKey, kCFBooleanTrue},
                                {kCFErrorLocalizedFailureReasonKey, kCFBooleanTrue},
                                {kCFErrorDescriptionKey, kCFBooleanTrue}});
  EXPECT_EQ(descriptionOf(error), "The operation couldn't be completed. (d error 1.)");
}

TEST(CFErrorTest, RefusesToBeWithoutADomain) {
  EXPECT_EQ(CFErrorCreate(nullptr, nullptr, 1, nullptr), nullptr);
  EXPECT_EQ(CFErrorCreateWithUserInfoKeysAndValues(nullptr, nullptr, 1, nullptr, nullptr, 0), nullptr);
  EXPECT_EQ(CFErrorCreateWithUserInfoKeysAndValues(nullptr, CFSTR("d"), 1, nullptr, nullptr, 1), nullptr);
  EXPECT_EQ(CFErrorGetDomain(nullptr), nullptr);
  EXPECT_EQ(CFErrorGetCode(nullptr), 0);
  EXPECT_EQ(CFErrorCopyUserInfo(nullptr), nullptr);
  EXPECT_EQ(CFErrorCopyDescription(nullptr), nullptr);
  EXPECT_EQ(CFErrorCopyFailureReason(nullptr), nullptr);
}

TEST(CFErrorTest, IsEqualByDomainCodeAndUserInfo) {
  const auto one = errorWith(CFSTR("d"), 1, {{kCFErrorFilePathKey, CFSTR("/x")}});
  EXPECT_TRUE(CFEqual(one, errorWith(string("d"), 1, {{kCFErrorFilePathKey, CFSTR("/x")}})));
  EXPECT_EQ(CFHash(one), CFHash(errorWith(string("d"), 1, {})));
  EXPECT_FALSE(CFEqual(one, errorWith(CFSTR("e"), 1, {{kCFErrorFilePathKey, CFSTR("/x")}})));
  EXPECT_FALSE(CFEqual(one, errorWith(CFSTR("d"), 2, {{kCFErrorFilePathKey, CFSTR("/x")}})));
  EXPECT_FALSE(CFEqual(one, errorWith(CFSTR("d"), 1, {{kCFErrorFilePathKey, CFSTR("/y")}})));
}

TEST(CFErrorTest, KeysAndDomainsAllDiffer) {
  const CFStringRef names[] = {kCFErrorDomainPOSIX,
                               kCFErrorDomainOSStatus,
                               kCFErrorDomainCocoa,
                               kCFErrorLocalizedDescriptionKey,
                               kCFErrorLocalizedFailureReasonKey,
                               kCFErrorDescriptionKey,
                               kCFErrorFilePathKey,
                               kCFErrorURLKey,
                               kCFErrorUnderlyingErrorKey};
  for (const CFStringRef& one : names) {
    for (const CFStringRef& other : names) {
      EXPECT_EQ(&one == &other, static_cast<bool>(CFEqual(one, other))) << textOf(one);
    }
  }
}

}  // namespace
