#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <thread>

#include "tests/corefoundation/value_support.h"

namespace {

using values::descriptionOf;
using values::Held;
using values::integer;
using values::string;
using values::textOfOwned;

TEST(CFBaseTest, RetainAndReleaseCountReferences) {
  const auto object = string("counted");
  EXPECT_EQ(CFGetRetainCount(object), 1);
  EXPECT_EQ(CFRetain(object), object.get());
  EXPECT_EQ(CFGetRetainCount(object), 2);
  CFRelease(object);
  EXPECT_EQ(CFGetRetainCount(object), 1);
}

TEST(CFBaseTest, ConstantObjectsAreNeverCounted) {
  for (const CFTypeRef object : std::initializer_list<CFTypeRef>{kCFBooleanTrue, CFSTR("constant"), kCFNumberNaN}) {
    CFRetain(object);
    EXPECT_EQ(CFGetRetainCount(object), INTPTR_MAX);
    CFRelease(object);
    CFRelease(object);
    EXPECT_EQ(CFGetRetainCount(object), INTPTR_MAX);
  }
}

TEST(CFBaseTest, NullIsTakenEverywhere) {
  EXPECT_EQ(CFRetain(nullptr), nullptr);
  CFRelease(nullptr);
  EXPECT_EQ(CFGetRetainCount(nullptr), 0);
  EXPECT_EQ(CFGetTypeID(nullptr), 0u);
  EXPECT_EQ(CFHash(nullptr), 0u);
  EXPECT_TRUE(CFEqual(nullptr, nullptr));
  EXPECT_FALSE(CFEqual(nullptr, kCFBooleanTrue));
  EXPECT_FALSE(CFEqual(kCFBooleanTrue, nullptr));
  EXPECT_EQ(descriptionOf(nullptr), "(null)");
  EXPECT_EQ(CFCopyTypeIDDescription(0), nullptr);
}

TEST(CFBaseTest, ObjectsOfDifferentKindsAreNeverEqual) {
  const auto one = integer(1);
  EXPECT_FALSE(CFEqual(one, kCFBooleanTrue));
  EXPECT_FALSE(CFEqual(one, CFSTR("1")));
}

TEST(CFBaseTest, KindsHaveNames) {
  EXPECT_EQ(textOfOwned(CFCopyTypeIDDescription(CFArrayGetTypeID())), "CFArray");
  EXPECT_EQ(textOfOwned(CFCopyTypeIDDescription(CFBooleanGetTypeID())), "CFBoolean");
  EXPECT_EQ(textOfOwned(CFCopyTypeIDDescription(CFDataGetTypeID())), "CFData");
  EXPECT_EQ(textOfOwned(CFCopyTypeIDDescription(CFDateGetTypeID())), "CFDate");
  EXPECT_EQ(textOfOwned(CFCopyTypeIDDescription(CFDictionaryGetTypeID())), "CFDictionary");
  EXPECT_EQ(textOfOwned(CFCopyTypeIDDescription(CFErrorGetTypeID())), "CFError");
  EXPECT_EQ(textOfOwned(CFCopyTypeIDDescription(CFNumberGetTypeID())), "CFNumber");
  EXPECT_EQ(textOfOwned(CFCopyTypeIDDescription(CFTimeZoneGetTypeID())), "CFTimeZone");
  EXPECT_EQ(textOfOwned(CFCopyTypeIDDescription(CFUUIDGetTypeID())), "CFUUID");
  EXPECT_EQ(textOfOwned(CFCopyTypeIDDescription(CFGetTypeID(kCFAllocatorNull))), "CFAllocator");
}

TEST(CFBaseTest, AnObjectWithoutADescriptionOfItsOwnShowsItsKindAndAddress) {
  EXPECT_EQ(descriptionOf(kCFAllocatorNull).substr(0, 15), "<CFAllocator 0x");
}

TEST(CFBaseTest, ContainersAreDescribedWithWhatTheyHold) {
  const auto three = integer(3);
  const void* inner[] = {CFSTR("a \"b\" \\"), three, kCFBooleanFalse};
  const Held<CFArrayRef> array(CFArrayCreate(nullptr, inner, 3, &kCFTypeArrayCallBacks));
  const Held<CFArrayRef> empty(CFArrayCreate(nullptr, nullptr, 0, &kCFTypeArrayCallBacks));
  const void* keys[] = {CFSTR("list"), CFSTR("none")};
  const void* contents[] = {array, empty};
  const Held<CFDictionaryRef> dictionary(
      CFDictionaryCreate(nullptr, keys, contents, 2, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
  EXPECT_EQ(descriptionOf(dictionary), R"({"list" = ("a \"b\" \\", 3, false), "none" = ()})");
  const Held<CFMutableDictionaryRef> nothing(CFDictionaryCreateMutable(nullptr, 0, nullptr, nullptr));
  EXPECT_EQ(descriptionOf(nothing), "{}");
}

// An array in an array, and so on.
Held<CFTypeRef> nestedArrays(int depth, const void* innermost) {
  Held<CFTypeRef> object(CFRetain(innermost));
  for (int i = 0; i < depth; ++i) {
    const void* const inside = object;
    object = Held<CFTypeRef>(CFArrayCreate(nullptr, const_cast<const void**>(&inside), 1, &kCFTypeArrayCallBacks));
  }
  return object;
}

constexpr int kDeep = 1'000'000;

TEST(CFBaseTest, AMillionNestedArraysAreReleasedComparedAndDescribed) {
  const auto leaf = string("leaf");
  {
    const auto deep = nestedArrays(kDeep, leaf);
    const auto same = nestedArrays(kDeep, leaf);
    const auto other = nestedArrays(kDeep, kCFBooleanTrue);
    EXPECT_EQ(CFGetRetainCount(leaf), 3);
    EXPECT_TRUE(CFEqual(deep, same));
    EXPECT_EQ(CFHash(deep), CFHash(same));
    EXPECT_FALSE(CFEqual(deep, other));
    EXPECT_EQ(descriptionOf(deep), std::string(32, '(') + "..." + std::string(32, ')'));
  }
  EXPECT_EQ(CFGetRetainCount(leaf), 1) << "the innermost object was not released with the million around it";
}

TEST(CFBaseTest, AMillionNestedMutableDictionariesAreReleased) {
  const auto leaf = string("leaf");
  {
    Held<CFTypeRef> object(CFRetain(leaf));
    for (int i = 0; i < kDeep; ++i) {
      Held<CFMutableDictionaryRef> outer(
          CFDictionaryCreateMutable(nullptr, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
      CFDictionarySetValue(outer, CFSTR("in"), object);
      object = Held<CFTypeRef>(CFRetain(outer));
    }
    EXPECT_EQ(CFGetRetainCount(leaf), 2);
  }
  EXPECT_EQ(CFGetRetainCount(leaf), 1);
}

TEST(CFBaseTest, AMillionErrorsThatCauseOneAnotherAreReleasedAndCompared) {
  const auto build = [] {
    Held<CFErrorRef> error(CFErrorCreate(nullptr, kCFErrorDomainPOSIX, 1, nullptr));
    for (int i = 0; i < kDeep; ++i) {
      const void* const keys[] = {kCFErrorUnderlyingErrorKey};
      const void* const causes[] = {error};
      error =
          Held<CFErrorRef>(CFErrorCreateWithUserInfoKeysAndValues(nullptr, kCFErrorDomainPOSIX, 2, keys, causes, 1));
    }
    return error;
  };
  const auto one = build();
  const auto other = build();
  EXPECT_TRUE(CFEqual(one, other));
}

TEST(CFBaseTest, ManyThreadsMayShareOneObject) {
  const auto object = string("shared");
  constexpr int threads = 4;
  constexpr int rounds = 100'000;
  {
    std::vector<std::jthread> workers;
    for (int i = 0; i < threads; ++i) {
      workers.emplace_back([&] {
        for (int round = 0; round < rounds; ++round) {
          CFRetain(object);
          CFRelease(object);
        }
      });
    }
  }
  EXPECT_EQ(CFGetRetainCount(object), 1);
}

// The last reference may go in any thread; whoever drops it destroys an object that the others have written to.
TEST(CFBaseTest, TheLastOfSeveralThreadsDestroysTheObject) {
  const auto leaf = string("leaf");
  for (int round = 0; round < 2000; ++round) {
    const CFMutableArrayRef array = CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks);
    CFArrayAppendValue(array, leaf);
    CFRetain(array);
    std::jthread other([array] { CFRelease(array); });
    CFRelease(array);
  }
  EXPECT_EQ(CFGetRetainCount(leaf), 1);
}

}  // namespace
