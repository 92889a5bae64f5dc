// Lists that other readers and writers make and read: Python's plistlib, in a process of its own, and libplist.
#include <gtest/gtest.h>
#include <plist/plist.h>

#include <cstdio>
#include <cstdlib>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/property_list_support.h"
#include "tests/support/scratch_home.h"

using test::canonical;
using test::Held;
using test::parse;
using test::Parsed;

namespace {

constexpr int kLists = 200;

// The lines that the judge prints.
std::vector<std::string> judge(const std::string& arguments) {
  const std::string command =
      "python3 '" TOVAN_SOURCE_DIR "/tests/corefoundation/integration/plist_judge.py' " + arguments + " 2>&1";
  std::vector<std::string> lines;
  FILE* const pipe = ::popen(command.c_str(), "r");
  EXPECT_NE(pipe, nullptr);
  std::string output;
  char piece[65536];
  for (std::size_t count; (count = std::fread(piece, 1, sizeof piece, pipe)) > 0;) output.append(piece, count);
  EXPECT_EQ(::pclose(pipe), 0) << output;
  std::istringstream stream(output);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

// Lists of ours as libplist reads them, written again by libplist.
std::string throughLibplist(const std::string& list, bool binary) {
  plist_t read = nullptr;
  plist_from_memory(list.data(), static_cast<std::uint32_t>(list.size()), &read);
  if (read == nullptr) return "libplist refused the list";
  char* written = nullptr;
  std::uint32_t length = 0;
  if (binary) {
    plist_to_bin(read, &written, &length);
  } else {
    plist_to_xml(read, &written, &length);
  }
  plist_free(read);
  const std::string result(written, length);
  std::free(written);
  return result;
}

TEST(PropertyListInteroperabilityTest, PlistlibReadsWhatWeWrite) {
  const std::string folder = test::scratchFolder("plistlib");
  for (const CFPropertyListFormat format : {kCFPropertyListXMLFormat_v1_0, kCFPropertyListBinaryFormat_v1_0}) {
    std::string paths;
    std::vector<std::string> expected;
    for (std::uint32_t seed = 0; seed < kLists; ++seed) {
      const Held<CFPropertyListRef> list = test::ListMaker(seed).make(120);
      const std::string path = folder + "/" + std::to_string(seed) + ".plist";
      test::writeFile(path, test::write(list.get(), format).bytes);
      paths += " '" + path + "'";
      expected.push_back(canonical(list.get()));
    }
    const std::vector<std::string> seen = judge("read" + paths);
    ASSERT_EQ(seen.size(), expected.size());
    for (std::size_t i = 0; i < seen.size(); ++i) ASSERT_EQ(seen[i], expected[i]) << "seed " << i;
  }
}

TEST(PropertyListInteroperabilityTest, WeReadWhatPlistlibWrites) {
  const std::string folder = test::scratchFolder("plistlib");
  const std::vector<std::string> expected = judge("make '" + folder + "' 42 " + std::to_string(kLists));
  ASSERT_EQ(expected.size(), static_cast<std::size_t>(kLists));
  for (int i = 0; i < kLists; ++i) {
    for (const char* suffix : {".xml", ".bin"}) {
      const Parsed parsed = parse(test::readFile(folder + "/" + std::to_string(i) + suffix));
      ASSERT_TRUE(parsed.list) << i << suffix << ": " << parsed.error;
      ASSERT_EQ(canonical(parsed.list.get()), expected[static_cast<std::size_t>(i)]) << i << suffix;
    }
  }
}

TEST(PropertyListInteroperabilityTest, OurDocumentsAreThoseOfPlistlibByteForByte) {
  const std::string folder = test::scratchFolder("plistlib");
  judge("make '" + folder + "' 7 " + std::to_string(kLists));
  int same = 0;
  for (int i = 0; i < kLists; ++i) {
    const std::string theirs = test::readFile(folder + "/" + std::to_string(i) + ".xml");
    // Reals are the one thing that both write in digits of their own.
    if (theirs.find("<real>") != std::string::npos) continue;
    ASSERT_EQ(test::write(parse(theirs).list.get()).bytes, theirs) << "list " << i;
    ++same;
  }
  EXPECT_GT(same, 10);
}

TEST(PropertyListInteroperabilityTest, LibplistReadsAndWritesOurListsToTheSameValues) {
  for (std::uint32_t seed = 0; seed < kLists; ++seed) {
    const Held<CFPropertyListRef> list = test::ListMaker(seed).make(120);
    const std::string expected = canonical(list.get());
    for (const CFPropertyListFormat format : {kCFPropertyListXMLFormat_v1_0, kCFPropertyListBinaryFormat_v1_0}) {
      const Parsed binary = parse(throughLibplist(test::write(list.get(), format).bytes, true));
      ASSERT_EQ(canonical(binary.list.get()), expected) << "seed " << seed << ", " << binary.error;
    }
  }
}

TEST(PropertyListInteroperabilityTest, WeReadTheXMLThatLibplistWrites) {
  // libplist writes years below 1000 with fewer than four digits, which is no date.
  const std::regex shortYear("<date>[0-9]{1,3}-");
  int compared = 0;
  for (std::uint32_t seed = 0; seed < kLists; ++seed) {
    const Held<CFPropertyListRef> list = test::ListMaker(seed).make(120);
    const std::string theirs = throughLibplist(test::write(list.get()).bytes, false);
    if (std::regex_search(theirs, shortYear)) continue;
    const Parsed parsed = parse(theirs);
    ASSERT_EQ(canonical(parsed.list.get()), canonical(list.get())) << "seed " << seed << ", " << parsed.error;
    ++compared;
  }
  EXPECT_GT(compared, kLists / 20);
}

TEST(PropertyListInteroperabilityTest, LibplistAgreesWhereBothTakeAListWithAFlippedBit) {
  const std::string whole = test::write(test::ListMaker(11).make(40).get()).bytes;
  const std::regex octal("<integer>-?0[0-9]");
  int compared = 0, different = 0;
  std::string firstDifference;
  for (std::size_t bit = 0; bit < whole.size() * 8; ++bit) {
    std::string flipped = whole;
    flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ 1 << bit % 8);
    const Parsed ours = parse(flipped);
    // libplist keeps carriage returns and takes integers with a leading zero for octal ones.
    if (!ours.list || flipped.find('\r') != std::string::npos || std::regex_search(flipped, octal)) continue;
    const std::string again = throughLibplist(flipped, true);
    if (!again.starts_with("bplist")) continue;
    ++compared;
    if (canonical(parse(again).list.get()) == canonical(ours.list.get())) continue;
    ++different;
    if (firstDifference.empty()) firstDifference = "bit " + std::to_string(bit) + ":\n" + flipped;
  }
  EXPECT_GT(compared, 1000);
  EXPECT_EQ(different, 0) << firstDifference;
}

}  // namespace
