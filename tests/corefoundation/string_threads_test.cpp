// Strings read, hashed, retained and made by several threads at once. ThreadSanitizer is the sharper judge here.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

#include "tests/corefoundation/string_testing.h"

using namespace strings;

namespace {

constexpr int kThreads = 8;

// Runs the work in all threads, which begin together.
void together(const std::function<void(int)>& work) {
  std::atomic<int> waiting = kThreads;
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&, i] {
      --waiting;
      while (waiting != 0) std::this_thread::yield();
      work(i);
    });
  }
  for (std::thread& thread : threads) thread.join();
}

TEST(StringThreadsTest, OneStringIsReadAndHashedByAll) {
  std::u16string units;
  for (int i = 0; i < 500; ++i) units += u"a\u00E9\U0001F389z";
  for (int round = 0; round < 20; ++round) {
    const String string = fromUnits(units);
    const String plain = fromUTF8("a plain key");
    const CFHashCode expected = CFHash(fromUnits(units).get());
    std::atomic<int> failures = 0;
    together([&](int thread) {
      if (CFHash(string.get()) != expected) ++failures;
      if (CFHash(plain.get()) != CFHash(CFSTR("a plain key"))) ++failures;
      std::size_t index = static_cast<std::size_t>(thread) * 97;
      for (int i = 0; i < 500; ++i, index = (index + 331) % units.size()) {
        if (CFStringGetCharacterAtIndex(string.get(), static_cast<CFIndex>(index)) != units[index]) ++failures;
      }
      CFRetain(string.get());
      const String part(CFStringCreateWithSubstring(nullptr, string.get(), CFRangeMake(thread + 3, 100)));
      if (unitsOf(part.get()) != units.substr(static_cast<std::size_t>(thread) + 3, 100)) ++failures;
      if (!CFStringHasPrefix(string.get(), CFSTR("a\u00E9"))) ++failures;
      CFRelease(string.get());
    });
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(CFGetRetainCount(string.get()), 1);
  }
}

TEST(StringThreadsTest, TheLastOfAllReleasesDestroysOnce) {
  for (int round = 0; round < 200; ++round) {
    const CFStringRef string = String(fromUTF8("shared by all")).take();
    for (int i = 1; i < kThreads; ++i) CFRetain(string);
    together([string](int) { CFRelease(string); });
  }
}

TEST(StringThreadsTest, ConstantsByCallAreOneObjectForAll) {
  std::vector<std::vector<CFStringRef>> found(kThreads);
  together([&found](int thread) {
    for (int i = 0; i < 200; ++i) {
      found[static_cast<std::size_t>(thread)].push_back(CFStringGetConstant(("constant " + std::to_string(i)).c_str()));
    }
  });
  for (int thread = 1; thread < kThreads; ++thread) EXPECT_EQ(found[static_cast<std::size_t>(thread)], found[0]);
}

TEST(StringThreadsTest, FormatsDoNotDisturbEachOther) {
  std::atomic<int> failures = 0;
  together([&failures](int thread) {
    for (int i = 0; i < 300; ++i) {
      const String text(CFStringCreateWithFormat(nullptr, nullptr, CFSTR("%d %.3f %@"), thread, i / 8.0, CFSTR("x")));
      char expected[64];
      std::snprintf(expected, sizeof expected, "%d %.3f x", thread, i / 8.0);
      if (utf8(text) != expected) ++failures;
    }
  });
  EXPECT_EQ(failures, 0);
}

}  // namespace
