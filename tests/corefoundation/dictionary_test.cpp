#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <map>
#include <random>

#include "tests/corefoundation/value_support.h"

namespace {

using values::descriptionOf;
using values::Held;
using values::integer;
using values::string;
using values::textOf;

Held<CFMutableDictionaryRef> emptyDictionary() {
  return CFDictionaryCreateMutable(nullptr, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
}

const void* pointer(std::uintptr_t value) { return reinterpret_cast<const void*>(value); }

// The keys in the order in which they are given, with a blank between.
std::string keysOf(CFDictionaryRef dictionary) {
  std::vector<const void*> keys(static_cast<std::size_t>(CFDictionaryGetCount(dictionary)));
  CFDictionaryGetKeysAndValues(dictionary, keys.data(), nullptr);
  std::string text;
  for (const void* key : keys) text += (text.empty() ? "" : " ") + textOf(static_cast<CFStringRef>(key));
  return text;
}

TEST(CFDictionaryTest, RetainsKeysAndValuesAndReleasesThemWithItself) {
  const auto key = string("key");
  const auto value = string("value");
  {
    const void* keys[] = {key};
    const void* contents[] = {value};
    const Held<CFDictionaryRef> dictionary(CFDictionaryCreate(
        nullptr, keys, contents, 1, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
    EXPECT_EQ(CFGetTypeID(dictionary), CFDictionaryGetTypeID());
    EXPECT_EQ(CFGetRetainCount(dictionary), 1);
    EXPECT_EQ(CFGetRetainCount(key), 2);
    EXPECT_EQ(CFGetRetainCount(value), 2);
    EXPECT_EQ(CFDictionaryGetValue(dictionary, CFSTR("key")), value.get());
    EXPECT_EQ(CFGetRetainCount(value), 2);
  }
  EXPECT_EQ(CFGetRetainCount(key), 1);
  EXPECT_EQ(CFGetRetainCount(value), 1);
}

TEST(CFDictionaryTest, RefusesWhatItCannotHold) {
  const auto value = string("value");
  const void* keys[] = {CFSTR("a"), nullptr};
  const void* contents[] = {value, value};
  const void* noContents[] = {value, nullptr};
  const auto create = [](const void** keyList, const void** valueList, CFIndex count) {
    return CFDictionaryCreate(nullptr, keyList, valueList, count, &kCFTypeDictionaryKeyCallBacks,
                              &kCFTypeDictionaryValueCallBacks);
  };
  EXPECT_EQ(create(keys, contents, -1), nullptr);
  EXPECT_EQ(create(keys, contents, 2), nullptr);
  EXPECT_EQ(create(contents, noContents, 2), nullptr);
  EXPECT_EQ(create(nullptr, contents, 1), nullptr);
  EXPECT_EQ(create(keys, nullptr, 1), nullptr);
  EXPECT_EQ(CFGetRetainCount(value), 1);
  EXPECT_EQ(CFDictionaryCreateCopy(nullptr, nullptr), nullptr);
  EXPECT_EQ(CFDictionaryCreateMutableCopy(nullptr, 0, nullptr), nullptr);
  EXPECT_EQ(CFDictionaryGetCount(nullptr), 0);
  EXPECT_EQ(CFDictionaryGetValue(nullptr, CFSTR("a")), nullptr);
}

TEST(CFDictionaryTest, OfEqualKeysTheLastValueCountsAndTheFirstPlace) {
  const void* keys[] = {CFSTR("a"), CFSTR("b"), CFSTR("a")};
  const auto one = integer(1000);
  const auto two = integer(2000);
  const auto three = integer(3000);
  const void* contents[] = {one, two, three};
  const Held<CFDictionaryRef> dictionary(
      CFDictionaryCreate(nullptr, keys, contents, 3, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
  EXPECT_EQ(descriptionOf(dictionary), R"({"a" = 3000, "b" = 2000})");
  EXPECT_EQ(CFGetRetainCount(one), 1);
  EXPECT_EQ(CFGetRetainCount(three), 2);
}

TEST(CFDictionaryTest, AddSetReplaceAndRemoveDifferAsTheirNamesSay) {
  const auto dictionary = emptyDictionary();
  CFDictionaryAddValue(dictionary, CFSTR("a"), integer(1));
  CFDictionaryAddValue(dictionary, CFSTR("a"), integer(2));
  EXPECT_EQ(descriptionOf(dictionary), R"({"a" = 1})");
  CFDictionaryReplaceValue(dictionary, CFSTR("b"), integer(2));
  EXPECT_EQ(descriptionOf(dictionary), R"({"a" = 1})");
  CFDictionaryReplaceValue(dictionary, CFSTR("a"), integer(3));
  CFDictionarySetValue(dictionary, CFSTR("b"), integer(4));
  CFDictionarySetValue(dictionary, CFSTR("a"), integer(5));
  EXPECT_EQ(descriptionOf(dictionary), R"({"a" = 5, "b" = 4})");
  CFDictionaryRemoveValue(dictionary, CFSTR("a"));
  CFDictionaryRemoveValue(dictionary, CFSTR("a"));
  EXPECT_EQ(descriptionOf(dictionary), R"({"b" = 4})");
  CFDictionaryRemoveAllValues(dictionary);
  EXPECT_EQ(CFDictionaryGetCount(dictionary), 0);
  EXPECT_FALSE(CFDictionaryContainsKey(dictionary, CFSTR("b")));
  CFDictionarySetValue(dictionary, CFSTR("c"), integer(6));
  EXPECT_EQ(descriptionOf(dictionary), R"({"c" = 6})");
}

TEST(CFDictionaryTest, LookingUpTellsAbsentFromPresent) {
  const auto dictionary = emptyDictionary();
  const auto value = integer(1000);
  CFDictionarySetValue(dictionary, CFSTR("a"), value);
  CFDictionarySetValue(dictionary, CFSTR("b"), value);
  EXPECT_EQ(CFDictionaryGetCountOfKey(dictionary, CFSTR("a")), 1);
  EXPECT_EQ(CFDictionaryGetCountOfKey(dictionary, CFSTR("z")), 0);
  EXPECT_EQ(CFDictionaryGetCountOfValue(dictionary, values::real(1000.0)), 2);
  EXPECT_TRUE(CFDictionaryContainsKey(dictionary, string("b")));
  EXPECT_TRUE(CFDictionaryContainsValue(dictionary, integer(1000)));
  EXPECT_FALSE(CFDictionaryContainsValue(dictionary, integer(1)));
  EXPECT_FALSE(CFDictionaryContainsKey(dictionary, nullptr));
  EXPECT_EQ(CFDictionaryGetValue(dictionary, CFSTR("z")), nullptr);
  const void* found = &found;
  EXPECT_FALSE(CFDictionaryGetValueIfPresent(dictionary, CFSTR("z"), &found));
  EXPECT_EQ(found, static_cast<const void*>(&found)) << "nothing may be stored for an absent key";
  EXPECT_TRUE(CFDictionaryGetValueIfPresent(dictionary, CFSTR("a"), &found));
  EXPECT_EQ(found, value.get());
  EXPECT_TRUE(CFDictionaryGetValueIfPresent(dictionary, CFSTR("a"), nullptr));
}

TEST(CFDictionaryTest, KeepsTheOrderInWhichKeysWereFirstAdded) {
  const auto dictionary = emptyDictionary();
  std::string expected;
  for (int i = 0; i < 40; ++i) {
    const std::string key = "k" + std::to_string(i * 7919 % 40);
    CFDictionarySetValue(dictionary, string(key), integer(i));
    expected += (expected.empty() ? "" : " ") + key;
  }
  EXPECT_EQ(keysOf(dictionary), expected);
  CFDictionarySetValue(dictionary, CFSTR("k0"), CFSTR("replaced"));
  EXPECT_EQ(keysOf(dictionary), expected);
  const Held<CFDictionaryRef> copy(CFDictionaryCreateCopy(nullptr, dictionary));
  EXPECT_EQ(keysOf(copy), expected);
  const Held<CFMutableDictionaryRef> changing(CFDictionaryCreateMutableCopy(nullptr, 0, copy));
  EXPECT_EQ(keysOf(changing), expected);
  CFDictionaryRemoveValue(changing, CFSTR("k0"));
  CFDictionarySetValue(changing, CFSTR("k0"), integer(1));
  EXPECT_EQ(keysOf(changing), expected.substr(3) + " k0");
}

TEST(CFDictionaryTest, GivesKeysAndValuesAndAppliesInOrder) {
  const auto dictionary = emptyDictionary();
  for (const char* const key : {"one", "gone", "two", "three"}) {
    CFDictionarySetValue(dictionary, string(key), string(std::string("v-") + key));
  }
  CFDictionaryRemoveValue(dictionary, CFSTR("gone"));
  const void* keys[4] = {};
  const void* contents[4] = {};
  CFDictionaryGetKeysAndValues(dictionary, keys, contents);
  EXPECT_EQ(textOf(static_cast<CFStringRef>(keys[1])), "two");
  EXPECT_EQ(textOf(static_cast<CFStringRef>(contents[2])), "v-three");
  EXPECT_EQ(keys[3], nullptr);
  EXPECT_EQ(contents[3], nullptr);
  std::string seen;
  CFDictionaryApplyFunction(
      dictionary,
      [](const void* key, const void* value, void* context) {
        *static_cast<std::string*>(context) +=
            textOf(static_cast<CFStringRef>(key)) + "=" + textOf(static_cast<CFStringRef>(value)) + ";";
      },
      &seen);
  EXPECT_EQ(seen, "one=v-one;two=v-two;three=v-three;");
}

TEST(CFDictionaryTest, ReplacingAndRemovingReleaseExactlyWhatGoes) {
  const auto key = string("key");
  const auto sameKey = string("key");
  const auto first = string("first");
  const auto second = string("second");
  const auto dictionary = emptyDictionary();
  CFDictionarySetValue(dictionary, key, first);
  CFDictionarySetValue(dictionary, sameKey, second);
  EXPECT_EQ(CFGetRetainCount(key), 2) << "the key that is there stays";
  EXPECT_EQ(CFGetRetainCount(sameKey), 1);
  EXPECT_EQ(CFGetRetainCount(first), 1);
  CFDictionarySetValue(dictionary, sameKey, second);
  EXPECT_EQ(CFGetRetainCount(second), 2) << "a value put in its own place must survive";
  CFDictionaryAddValue(dictionary, sameKey, first);
  EXPECT_EQ(CFGetRetainCount(first), 1);
  CFDictionaryRemoveValue(dictionary, sameKey);
  EXPECT_EQ(CFGetRetainCount(key), 1);
  EXPECT_EQ(CFGetRetainCount(second), 1);
  CFDictionarySetValue(dictionary, key, first);
  CFDictionaryRemoveAllValues(dictionary);
  EXPECT_EQ(CFGetRetainCount(key), 1);
  EXPECT_EQ(CFGetRetainCount(first), 1);
}

TEST(CFDictionaryTest, NullsAndImmutableDictionariesDoNotChange) {
  const auto dictionary = emptyDictionary();
  CFDictionarySetValue(dictionary, nullptr, CFSTR("v"));
  CFDictionarySetValue(dictionary, CFSTR("k"), nullptr);
  CFDictionaryAddValue(dictionary, CFSTR("k"), nullptr);
  EXPECT_EQ(CFDictionaryGetCount(dictionary), 0);
  CFDictionarySetValue(dictionary, CFSTR("k"), CFSTR("v"));
  CFDictionaryReplaceValue(dictionary, CFSTR("k"), nullptr);
  CFDictionaryRemoveValue(dictionary, nullptr);
  const Held<CFDictionaryRef> copy(CFDictionaryCreateCopy(nullptr, dictionary));
  const CFMutableDictionaryRef forced = const_cast<CFMutableDictionaryRef>(copy.get());
  CFDictionarySetValue(forced, CFSTR("k"), CFSTR("other"));
  CFDictionaryAddValue(forced, CFSTR("k2"), CFSTR("v"));
  CFDictionaryReplaceValue(forced, CFSTR("k"), CFSTR("other"));
  CFDictionaryRemoveValue(forced, CFSTR("k"));
  CFDictionaryRemoveAllValues(forced);
  EXPECT_EQ(descriptionOf(copy), R"({"k" = "v"})");
  EXPECT_EQ(descriptionOf(dictionary), R"({"k" = "v"})");
}

TEST(CFDictionaryTest, CopyOfAnImmutableDictionaryIsTheSameObject) {
  const Held<CFDictionaryRef> original(CFDictionaryCreate(nullptr, nullptr, nullptr, 0, &kCFTypeDictionaryKeyCallBacks,
                                                          &kCFTypeDictionaryValueCallBacks));
  const Held<CFDictionaryRef> copy(CFDictionaryCreateCopy(nullptr, original));
  EXPECT_EQ(copy.get(), original.get());
  EXPECT_EQ(CFGetRetainCount(original), 2);
}

TEST(CFDictionaryTest, CopiesOfAMutableDictionaryStandAlone) {
  const auto value = string("value");
  const auto dictionary = emptyDictionary();
  CFDictionarySetValue(dictionary, CFSTR("k"), value);
  const Held<CFDictionaryRef> copy(CFDictionaryCreateCopy(nullptr, dictionary));
  const Held<CFMutableDictionaryRef> changing(CFDictionaryCreateMutableCopy(nullptr, 0, dictionary));
  EXPECT_EQ(CFGetRetainCount(value), 4);
  CFDictionaryRemoveAllValues(dictionary);
  EXPECT_EQ(CFGetRetainCount(value), 3);
  EXPECT_EQ(CFDictionaryGetValue(copy, CFSTR("k")), value.get());
  EXPECT_EQ(CFDictionaryGetValue(changing, CFSTR("k")), value.get());
}

TEST(CFDictionaryTest, CopiesMutableStringKeysWhenAskedTo) {
  const Held<CFMutableStringRef> key(CFStringCreateMutableCopy(nullptr, 0, CFSTR("key")));
  const Held<CFMutableDictionaryRef> dictionary(
      CFDictionaryCreateMutable(nullptr, 0, &kCFCopyStringDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
  CFDictionarySetValue(dictionary, key, integer(1));
  CFStringAppend(key, CFSTR(" changed"));
  EXPECT_EQ(CFGetRetainCount(key), 1);
  EXPECT_TRUE(CFDictionaryContainsKey(dictionary, CFSTR("key")));
  EXPECT_FALSE(CFDictionaryContainsKey(dictionary, key));
  const auto plain = emptyDictionary();
  CFDictionarySetValue(plain, CFSTR("key"), integer(1));
  EXPECT_TRUE(CFEqual(plain, dictionary));
}

TEST(CFDictionaryTest, KeysMayBeOfAnyKind) {
  const auto dictionary = emptyDictionary();
  const void* list[] = {CFSTR("x")};
  const Held<CFArrayRef> array(CFArrayCreate(nullptr, list, 1, &kCFTypeArrayCallBacks));
  CFDictionarySetValue(dictionary, integer(1), CFSTR("number"));
  CFDictionarySetValue(dictionary, kCFBooleanTrue, CFSTR("boolean"));
  CFDictionarySetValue(dictionary, array, CFSTR("array"));
  EXPECT_TRUE(CFEqual(CFDictionaryGetValue(dictionary, values::real(1.0)), CFSTR("number")));
  EXPECT_TRUE(CFEqual(CFDictionaryGetValue(dictionary, kCFBooleanTrue), CFSTR("boolean")));
  const Held<CFArrayRef> sameArray(CFArrayCreate(nullptr, list, 1, &kCFTypeArrayCallBacks));
  EXPECT_TRUE(CFEqual(CFDictionaryGetValue(dictionary, sameArray), CFSTR("array")));
}

TEST(CFDictionaryTest, WithoutCallbacksGoesByPointersAndHoldsNull) {
  const Held<CFMutableDictionaryRef> dictionary(CFDictionaryCreateMutable(nullptr, 0, nullptr, nullptr));
  CFDictionarySetValue(dictionary, nullptr, pointer(1));
  CFDictionarySetValue(dictionary, pointer(32), nullptr);
  EXPECT_EQ(CFDictionaryGetValue(dictionary, nullptr), pointer(1));
  EXPECT_TRUE(CFDictionaryContainsKey(dictionary, pointer(32)));
  EXPECT_EQ(CFDictionaryGetValue(dictionary, pointer(32)), nullptr);
  EXPECT_TRUE(CFDictionaryContainsValue(dictionary, nullptr));
  EXPECT_EQ(descriptionOf(dictionary), "{0x0 = 0x1, 0x20 = 0x0}");
}

// Callbacks of a client's own: keys and values are C strings, kept as copies; the hash is a poor one.
int copiesAlive = 0;
const void* keepCopy(CFAllocatorRef, const void* text) {
  ++copiesAlive;
  return strdup(static_cast<const char*>(text));
}
void freeCopy(CFAllocatorRef, const void* text) {
  --copiesAlive;
  std::free(const_cast<void*>(text));
}
CFStringRef describe(const void* text) {
  return CFStringCreateWithCString(nullptr, static_cast<const char*>(text), kCFStringEncodingUTF8);
}
Boolean sameText(const void* left, const void* right) {
  return std::strcmp(static_cast<const char*>(left), static_cast<const char*>(right)) == 0;
}
CFHashCode poorHash(const void* text) { return std::strlen(static_cast<const char*>(text)); }

TEST(CFDictionaryTest, CallbacksOfAClientAreCopiedAndUsed) {
  copiesAlive = 0;
  {
    Held<CFMutableDictionaryRef> dictionary;
    {
      CFDictionaryKeyCallBacks keys{0, keepCopy, freeCopy, describe, sameText, poorHash};
      CFDictionaryValueCallBacks contents{0, keepCopy, freeCopy, describe, sameText};
      dictionary = Held<CFMutableDictionaryRef>(CFDictionaryCreateMutable(nullptr, 0, &keys, &contents));
      std::memset(&keys, 0xff, sizeof keys);
      std::memset(&contents, 0xff, sizeof contents);
    }
    for (int i = 0; i < 50; ++i) {
      CFDictionarySetValue(dictionary, ("key" + std::to_string(i)).c_str(), std::to_string(i).c_str());
    }
    EXPECT_EQ(copiesAlive, 100);
    CFDictionarySetValue(dictionary, "key7", "seven");
    EXPECT_EQ(copiesAlive, 100);
    EXPECT_STREQ(static_cast<const char*>(CFDictionaryGetValue(dictionary, "key7")), "seven");
    EXPECT_STREQ(static_cast<const char*>(CFDictionaryGetValue(dictionary, "key49")), "49");
    const Held<CFDictionaryRef> copy(CFDictionaryCreateCopy(nullptr, dictionary));
    EXPECT_EQ(copiesAlive, 200);
    EXPECT_TRUE(CFEqual(copy, dictionary));
    EXPECT_EQ(CFHash(copy), CFHash(dictionary));
    EXPECT_EQ(descriptionOf(copy).substr(0, 22), "{key0 = 0, key1 = 1, k");
    CFDictionaryRemoveValue(dictionary, "key7");
    EXPECT_EQ(copiesAlive, 198);
    EXPECT_FALSE(CFEqual(copy, dictionary));
  }
  EXPECT_EQ(copiesAlive, 0);
}

TEST(CFDictionaryTest, EqualityAndHashGoByContentAndNotByOrder) {
  const auto one = emptyDictionary();
  const auto other = emptyDictionary();
  for (int i = 0; i < 30; ++i) {
    CFDictionarySetValue(one, string("k" + std::to_string(i)), integer(i));
    CFDictionarySetValue(other, string("k" + std::to_string(29 - i)), integer(29 - i));
  }
  EXPECT_TRUE(CFEqual(one, other));
  EXPECT_EQ(CFHash(one), CFHash(other));
  CFDictionarySetValue(other, CFSTR("k3"), integer(99));
  EXPECT_FALSE(CFEqual(one, other));
  CFDictionarySetValue(other, CFSTR("k3"), integer(3));
  CFDictionaryRemoveValue(other, CFSTR("k4"));
  EXPECT_FALSE(CFEqual(one, other));
  CFDictionarySetValue(other, CFSTR("elsewhere"), integer(4));
  EXPECT_FALSE(CFEqual(one, other));
}

TEST(CFDictionaryTest, HoldsAHundredThousandKeys) {
  constexpr int count = 100'000;
  const Held<CFMutableDictionaryRef> dictionary(CFDictionaryCreateMutable(
      nullptr, PTRDIFF_MAX, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
  std::vector<Held<CFStringRef>> keys;
  for (int i = 0; i < count; ++i) {
    keys.push_back(string("key " + std::to_string(i)));
    CFDictionarySetValue(dictionary, keys.back(), integer(i));
  }
  EXPECT_EQ(CFDictionaryGetCount(dictionary), count);
  const Held<CFDictionaryRef> whole(CFDictionaryCreateCopy(nullptr, dictionary));
  for (int i = 0; i < count; i += 2) CFDictionaryRemoveValue(dictionary, keys[static_cast<std::size_t>(i)]);
  EXPECT_EQ(CFDictionaryGetCount(dictionary), count / 2);
  for (int i = 0; i < count; ++i) {
    const void* const found = CFDictionaryGetValue(dictionary, keys[static_cast<std::size_t>(i)]);
    if (i % 2 == 0) {
      ASSERT_EQ(found, nullptr) << i;
    } else {
      ASSERT_TRUE(CFEqual(found, integer(i))) << i;
    }
    ASSERT_TRUE(CFEqual(CFDictionaryGetValue(whole, keys[static_cast<std::size_t>(i)]), integer(i))) << i;
  }
  for (int i = 1; i < count; i += 2) CFDictionaryRemoveValue(dictionary, keys[static_cast<std::size_t>(i)]);
  EXPECT_EQ(CFDictionaryGetCount(dictionary), 0);
  EXPECT_EQ(CFGetRetainCount(keys[0]), 2) << "only the copy holds the key";
}

// Adding and removing for ever must neither grow the table nor fill it up with what is gone.
TEST(CFDictionaryTest, AddingAndRemovingInTurnsGoesOnForEver) {
  const auto dictionary = emptyDictionary();
  for (int i = 0; i < 20; ++i) CFDictionarySetValue(dictionary, integer(100'000 + i), CFSTR("stays"));
  for (int i = 0; i < 200'000; ++i) {
    const auto key = integer(i % 1000);
    CFDictionarySetValue(dictionary, key, CFSTR("goes"));
    CFDictionaryRemoveValue(dictionary, key);
    ASSERT_FALSE(CFDictionaryContainsKey(dictionary, key));
  }
  EXPECT_EQ(CFDictionaryGetCount(dictionary), 20);
  for (int i = 0; i < 20; ++i) EXPECT_TRUE(CFDictionaryContainsKey(dictionary, integer(100'000 + i)));
}

TEST(CFDictionaryTest, RandomChangesAgreeWithAPlainMap) {
  std::mt19937 random(9);
  for (const unsigned keyCount : {6u, 12u, 200u}) {
    const auto dictionary = emptyDictionary();
    std::map<int, int> expected;
    std::vector<int> order;
    for (int round = 0; round < 4000; ++round) {
      const int key = static_cast<int>(random() % keyCount);
      const int value = static_cast<int>(random() % 1000);
      const bool present = expected.contains(key);
      switch (random() % 5) {
        case 0:
          CFDictionaryAddValue(dictionary, integer(key), integer(value));
          if (!present) order.push_back(key);
          expected.try_emplace(key, value);
          break;
        case 1:
          CFDictionarySetValue(dictionary, integer(key), integer(value));
          if (!present) order.push_back(key);
          expected[key] = value;
          break;
        case 2:
          CFDictionaryReplaceValue(dictionary, integer(key), integer(value));
          if (present) expected[key] = value;
          break;
        default:
          CFDictionaryRemoveValue(dictionary, integer(key));
          expected.erase(key);
          std::erase(order, key);
          break;
      }
      std::string text;
      for (const int each : order) {
        text += (text.empty() ? "" : ", ") + std::to_string(each) + " = " + std::to_string(expected[each]);
      }
      ASSERT_EQ(descriptionOf(dictionary), "{" + text + "}") << keyCount << " keys, round " << round;
      ASSERT_EQ(CFDictionaryContainsKey(dictionary, integer(key)), expected.contains(key));
    }
  }
}

// A value whose release reaches back into the dictionary it came from.
CFMutableDictionaryRef reentered = nullptr;
TEST(CFDictionaryTest, AReleaseMayCallBackIntoTheDictionary) {
  const CFDictionaryValueCallBacks callBacks{
      0, nullptr, [](CFAllocatorRef, const void* value) { CFDictionarySetValue(reentered, value, pointer(1)); },
      nullptr, nullptr};
  const Held<CFMutableDictionaryRef> dictionary(CFDictionaryCreateMutable(nullptr, 0, nullptr, &callBacks));
  reentered = dictionary;
  for (std::uintptr_t i = 0; i < 30; ++i) CFDictionarySetValue(dictionary, pointer(i), pointer(1000 + i));
  CFDictionaryRemoveAllValues(dictionary);
  EXPECT_EQ(CFDictionaryGetCount(dictionary), 30);
  for (std::uintptr_t i = 0; i < 30; ++i) EXPECT_EQ(CFDictionaryGetValue(dictionary, pointer(1000 + i)), pointer(1));
  CFDictionaryRemoveValue(dictionary, pointer(1000));
  EXPECT_EQ(CFDictionaryGetCount(dictionary), 30) << "one pair went, and its release added one";
  reentered = nullptr;
}

}  // namespace
