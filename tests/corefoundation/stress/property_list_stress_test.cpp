#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/property_list_support.h"

using test::canonical;
using test::Held;
using test::parse;
using test::Parsed;

namespace {

using Clock = std::chrono::steady_clock;

// Work that grows with the square of the input would take hours for these.
void expectQuick(const char* what, const std::string& input, bool accepted) {
  const auto begin = Clock::now();
  const Parsed parsed = parse(input);
  const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin);
  EXPECT_EQ(static_cast<bool>(parsed.list), accepted) << what << ": " << parsed.error;
  EXPECT_LT(took.count(), 20000) << what << ", ms";
}

std::string repeated(const std::string& piece, std::size_t bytes) {
  std::string result;
  result.reserve(bytes + piece.size());
  while (result.size() < bytes) result += piece;
  return result;
}

TEST(PropertyListStressTest, TwentyMegabytesOfAnythingAreQuick) {
  constexpr std::size_t kSize = 20000000;
  expectQuick("arrays", "<array>" + repeated("<array/>", kSize) + "</array>", true);
  expectQuick("open arrays", repeated("<array>", kSize), false);
  expectQuick("text", "<string>" + repeated("x", kSize) + "</string>", true);
  expectQuick("references", "<string>" + repeated("&lt;", kSize) + "</string>", true);
  expectQuick("sections", "<string>" + repeated("<![CDATA[]]>", kSize) + "</string>", true);
  expectQuick("comments", repeated("<!---->", kSize) + "<true/>", true);
  expectQuick("an open comment", "<!--" + repeated("- ", kSize), false);
  expectQuick("instructions", repeated("<?a?>", kSize) + "<true/>", true);
  expectQuick("blanks", repeated(" ", kSize) + "<true/>", true);
  expectQuick("lines", repeated("\n", kSize), false);
  expectQuick("equal keys", "<dict>" + repeated("<key>a</key><true/>", kSize) + "</dict>", true);
  expectQuick("ampersands", "<string>" + repeated("&", kSize), false);
  expectQuick("attributes", "<true " + repeated("a='' ", kSize) + "/>", false);
  expectQuick("one name", "<" + repeated("a", kSize), false);
  expectQuick("digits", "<integer>" + repeated("0", kSize) + "</integer>", true);
  expectQuick("digits of a real", "<real>0." + repeated("1", kSize) + "</real>", true);
  expectQuick("data", "<data>" + repeated("AAAA\n", kSize) + "</data>", true);
}

TEST(PropertyListStressTest, AMillionDifferentKeysAreQuick) {
  std::string input = "<dict>";
  for (int i = 0; i < 1000000; ++i) input += "<key>" + std::to_string(i) + "</key><true/>";
  expectQuick("keys", input + "</dict>", true);
}

__extension__ typedef unsigned __int128 Wide;

std::uint64_t mix(std::uint64_t a, std::uint64_t b) {
  const Wide product = static_cast<Wide>(a) * b;
  return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
}

TEST(PropertyListStressTest, KeysMadeToCollideAreQuick) {
  // Of these keys the second eight bytes would wipe out what a hash without a secret had made of the first eight, so
  // that all hashes would be one.
  constexpr std::uint64_t kFirst = 0x9E3779B97F4A7C15u, kSecond = 0x6A09E667F3BCC909u;
  std::string input = "<dict>";
  int keys = 0;
  for (std::uint64_t number = 0; keys < 60000; ++number) {
    std::string key(24, 'k');
    for (std::size_t i = 0; i < 8; ++i) key[i] = static_cast<char>('a' + (number >> 4 * i & 15));
    std::uint64_t block = 0;
    std::memcpy(&block, key.data(), sizeof block);
    const std::uint64_t wiping = mix((24 * kFirst ^ kSecond) ^ block, kFirst);
    std::memcpy(key.data() + 8, &wiping, sizeof wiping);
    if (!std::all_of(key.begin(), key.end(), [](char c) { return c > ' ' && c < 0x7F && c != '<' && c != '&'; })) {
      continue;
    }
    ++keys;
    input += "<key>" + key + "</key><true/>";
  }
  expectQuick("keys", input + "</dict>", true);
}

TEST(PropertyListStressTest, MemoryStaysWithinASmallMultipleOfTheInput) {
  constexpr std::size_t kSize = 20000000;
  const std::string input = "<array>" + repeated("<dict/>", kSize);  // never closed
  const auto residentBytes = [] {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    return static_cast<std::size_t>(usage.ru_maxrss) * 1024;
  };
  const std::size_t before = residentBytes();
  EXPECT_FALSE(parse(input).list);
  EXPECT_LT(residentBytes() - before, 30 * kSize);
}

TEST(PropertyListStressTest, ThreadsReadAndWriteAtTheSameTime) {
  const Held<CFPropertyListRef> shared = test::ListMaker(99).make(300);
  const std::string expected = test::write(shared.get()).bytes;
  std::vector<std::thread> threads;
  std::vector<int> wrong(4, 0);
  for (std::size_t number = 0; number < wrong.size(); ++number) {
    threads.emplace_back([&, number] {
      for (int i = 0; i < 200; ++i) {
        const Parsed parsed = parse(expected);
        if (test::write(parsed.list.get()).bytes != expected) ++wrong[number];
        if (test::write(shared.get()).bytes != expected) ++wrong[number];
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (const int count : wrong) EXPECT_EQ(count, 0);
}

}  // namespace
