#include <tovan/args_builder.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

namespace {

using plinth::CSharedCFRef;
using plinth::CSTR;
using plinth::CStringRef;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using tovan::CArgsBuilder;

static_assert(!std::is_copy_constructible_v<CArgsBuilder> && !std::is_copy_assignable_v<CArgsBuilder>);

// The entries up to the null pointer; a failure when that does not come where size() says.
std::vector<std::string> entriesOf(const CArgsBuilder& builder) {
  char* const* const array = builder.getArgs();
  std::vector<std::string> entries;
  for (int i = 0; i < builder.size(); ++i) {
    if (array[i] == nullptr) {
      ADD_FAILURE() << "null entry at " << i << " of " << builder.size();
      return entries;
    }
    entries.emplace_back(array[i]);
  }
  EXPECT_EQ(array[builder.size()], nullptr) << "no null pointer behind the last of " << builder.size() << " entries";
  return entries;
}

TEST(CArgsBuilderTest, NewBuilderIsEmptyAndNullTerminated) {
  const CArgsBuilder builder(3);
  EXPECT_EQ(builder.capacity(), 3);
  EXPECT_EQ(builder.size(), 0);
  EXPECT_THAT(entriesOf(builder), IsEmpty());
}

TEST(CArgsBuilderTest, NegativeCapacityIsNone) {
  CArgsBuilder builder(-5);
  EXPECT_EQ(builder.capacity(), 0);
  builder.addArg("a");
  EXPECT_THAT(entriesOf(builder), ElementsAre("a"));
}

TEST(CArgsBuilderTest, CapacityGrowsFromZeroToOneTwoFourEight) {
  CArgsBuilder builder(0);
  EXPECT_THAT(entriesOf(builder), IsEmpty());
  const int expected[] = {1, 2, 4, 4, 8, 8, 8, 8, 16};
  std::vector<std::string> added;
  for (const int capacity : expected) {
    added.push_back("entry " + std::to_string(added.size()));
    builder.addArg(added.back().c_str());
    EXPECT_EQ(builder.capacity(), capacity) << "with " << builder.size() << " entries";
    EXPECT_EQ(entriesOf(builder), added);
  }
}

TEST(CArgsBuilderTest, ArrayGrowsOnlyWhenItIsFull) {
  CArgsBuilder builder(3);
  for (const char* text : {"a", "b", "c"}) builder.addArg(text);
  EXPECT_EQ(builder.capacity(), 3);
  builder.addArg("d");
  EXPECT_EQ(builder.capacity(), 6);
  EXPECT_THAT(entriesOf(builder), ElementsAre("a", "b", "c", "d"));
}

TEST(CArgsBuilderTest, EntriesAreCopies) {
  CArgsBuilder builder(1);
  char text[] = "before";
  builder.addArg(text);
  std::strcpy(text, "after!");
  EXPECT_THAT(entriesOf(builder), ElementsAre("before"));
}

TEST(CArgsBuilderTest, NullTextAddsNothing) {
  CArgsBuilder builder(1);
  builder.addArg(nullptr);
  EXPECT_THAT(entriesOf(builder), IsEmpty());
}

TEST(CArgsBuilderTest, EmptyTextIsAnEntry) {
  CArgsBuilder builder(1);
  builder.addArg("");
  EXPECT_THAT(entriesOf(builder), ElementsAre(""));
}

TEST(CArgsBuilderTest, AddsEachStringOfANullTerminatedList) {
  CArgsBuilder builder(0);
  const char* const list[] = {"a", "b b", "c", nullptr};
  builder.addArgs(list);
  EXPECT_THAT(entriesOf(builder), ElementsAre("a", "b b", "c"));
  builder.addArgs(static_cast<const char* const*>(nullptr));
  EXPECT_EQ(builder.size(), 3);
}

TEST(CArgsBuilderTest, AddsAtMostTheGivenNumberOfStrings) {
  const char* const list[] = {"a", "b", "c", nullptr};
  CArgsBuilder two(0);
  two.addArgs(2, list);
  EXPECT_THAT(entriesOf(two), ElementsAre("a", "b"));
  CArgsBuilder none(0);
  none.addArgs(0, list);
  none.addArgs(7, nullptr);
  EXPECT_THAT(entriesOf(none), IsEmpty());
}

TEST(CArgsBuilderTest, StopsEarlyAtANullEntry) {
  const char* const list[] = {"a", nullptr, "c"};
  CArgsBuilder builder(0);
  builder.addArgs(2, list);
  EXPECT_THAT(entriesOf(builder), ElementsAre("a"));
}

TEST(CArgsBuilderTest, MayBeGivenItsOwnEntries) {
  CArgsBuilder builder(2);
  builder.addArg("a");
  builder.addArg("b");
  builder.addArgs(builder.getArgs());
  EXPECT_THAT(entriesOf(builder), ElementsAre("a", "b", "a", "b"));
  builder.addArg(builder.getArgs()[1]);
  EXPECT_THAT(entriesOf(builder), ElementsAre("a", "b", "a", "b", "b"));
}

TEST(CArgsBuilderTest, AddsStringsAndPassesOverEmptyHolders) {
  CArgsBuilder builder(0);
  builder.addArgs(std::vector<CStringRef>{CSTR("ä b"), nullptr, CSTR(""), CSTR("日本")});
  EXPECT_THAT(entriesOf(builder), ElementsAre("ä b", "", "日本"));
}

TEST(CArgsBuilderTest, ClearKeepsTheCapacity) {
  CArgsBuilder builder(0);
  for (const char* text : {"a", "b", "c"}) builder.addArg(text);
  builder.clear();
  EXPECT_EQ(builder.capacity(), 4);
  EXPECT_THAT(entriesOf(builder), IsEmpty());
  builder.addArg("d");
  EXPECT_EQ(builder.capacity(), 4);
  EXPECT_THAT(entriesOf(builder), ElementsAre("d"));
}

TEST(CArgsBuilderTest, FindsAnEntryByItsWholeName) {
  CArgsBuilder builder(0);
  const char* const environment[] = {"HOMEDIR=x", "HOME", "HOME=/Users/x", "HOME=second", "EMPTY=", nullptr};
  builder.addArgs(environment);
  EXPECT_EQ(builder.findArg("HOME"), 2);
  EXPECT_EQ(builder.findArg("HOMEDIR"), 0);
  EXPECT_EQ(builder.findArg("EMPTY"), 4);
  EXPECT_EQ(builder.findArg("HOM"), -1);
  EXPECT_EQ(builder.findArg("home"), -1);
  EXPECT_EQ(builder.findArg(""), -1);
  EXPECT_EQ(builder.findArg(nullptr), -1);
  EXPECT_EQ(CArgsBuilder(4).findArg("HOME"), -1);
}

TEST(CArgsBuilderTest, ReplacesAnEntryInPlace) {
  CArgsBuilder builder(0);
  for (const char* text : {"a", "b", "c"}) builder.addArg(text);
  builder.replaceArg(1, "a longer text");
  EXPECT_THAT(entriesOf(builder), ElementsAre("a", "a longer text", "c"));
  builder.replaceArg(1, builder.getArgs()[1]);
  builder.replaceArg(0, builder.getArgs()[2]);
  EXPECT_THAT(entriesOf(builder), ElementsAre("c", "a longer text", "c"));
}

TEST(CArgsBuilderTest, ReplacingOutsideTheEntriesChangesNothing) {
  CArgsBuilder builder(8);
  for (const char* text : {"a", "b", "c"}) builder.addArg(text);
  for (const int index : {5, 3, -1, -2147483647 - 1, 2147483647}) builder.replaceArg(index, "x");
  builder.replaceArg(0, nullptr);
  EXPECT_THAT(entriesOf(builder), ElementsAre("a", "b", "c"));
}

TEST(CArgsBuilderTest, ConvertsToTheArrayItself) {
  CArgsBuilder builder(0);
  builder.addArg("a");
  const char* const* const constant = builder;
  char* const* const plain = builder;
  EXPECT_EQ(constant, builder.getArgs());
  EXPECT_EQ(plain, builder.getArgs());
}

TEST(CArgsBuilderTest, ConvertsToOneStringJoinedByBlanks) {
  CArgsBuilder builder(0);
  EXPECT_TRUE(static_cast<CStringRef>(builder).isNull());
  builder.addArg("a");
  EXPECT_EQ(static_cast<CStringRef>(builder)->str(), "a");
  for (const char* text : {"b", "", "c"}) builder.addArg(text);
  const CStringRef joined = builder;
  EXPECT_EQ(joined->str(), "a b  c");
}

TEST(CArgsBuilderTest, ConvertsToAVectorInOrder) {
  CArgsBuilder builder(0);
  EXPECT_THAT(static_cast<std::vector<CStringRef>>(builder), IsEmpty());
  for (const char* text : {"b", "", "ä"}) builder.addArg(text);
  const std::vector<CStringRef> texts = builder;
  ASSERT_EQ(texts.size(), 3u);
  EXPECT_EQ(texts[0]->str() + "|" + texts[1]->str() + "|" + texts[2]->str(), "b||ä");
}

TEST(CArgsBuilderTest, ConvertsToAnArrayOfStringsInOrder) {
  CArgsBuilder builder(0);
  EXPECT_EQ(CFArrayGetCount(static_cast<CSharedCFRef<CFArrayRef>>(builder).get()), 0);
  for (const char* text : {"b", "日本"}) builder.addArg(text);
  const CSharedCFRef<CFArrayRef> array = builder;
  ASSERT_EQ(CFArrayGetCount(array.get()), 2);
  EXPECT_TRUE(CFEqual(CFArrayGetValueAtIndex(array.get(), 0), CFSTR("b")));
  EXPECT_TRUE(CFEqual(CFArrayGetValueAtIndex(array.get(), 1), CSTR("日本")->getStringRef()));
}

TEST(CArgsBuilderTest, AnEntryThatIsNotUTF8KeepsItsPlaceInTheConversions) {
  CArgsBuilder builder(0);
  for (const char* text : {"a", "\xE4\xFF", "c"}) builder.addArg(text);
  EXPECT_THAT(entriesOf(builder), ElementsAre("a", "\xE4\xFF", "c"));
  EXPECT_EQ(static_cast<CStringRef>(builder)->str(), "a äÿ c");
  EXPECT_EQ(static_cast<std::vector<CStringRef>>(builder).size(), 3u);
  EXPECT_EQ(CFArrayGetCount(static_cast<CSharedCFRef<CFArrayRef>>(builder).get()), 3);
}

TEST(CArgsBuilderTest, HoldsTenThousandEntries) {
  CArgsBuilder builder(0);
  for (int i = 0; i < 10000; ++i) builder.addArg(std::to_string(i).c_str());
  EXPECT_EQ(builder.size(), 10000);
  EXPECT_EQ(builder.capacity(), 16384);
  EXPECT_STREQ(builder.getArgs()[9999], "9999");
  EXPECT_EQ(builder.getArgs()[10000], nullptr);
}

TEST(CArgsBuilderTest, ServesAsArgumentsAndEnvironmentOfAProgram) {
  CArgsBuilder arguments(0);
  const char* const words[] = {"sh", "-c",        "test \"$1\" = 'two words' && test \"$NAME\" = \"a'b\" && exit 7",
                               "sh", "two words", nullptr};
  arguments.addArgs(words);
  CArgsBuilder environment(0);
  environment.addArg("NAME=a'b");
  const pid_t child = ::fork();
  if (child == 0) {
    ::execve("/bin/sh", arguments, environment);
    ::_exit(99);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status)) << "status " << status;
  EXPECT_EQ(WEXITSTATUS(status), 7);
}

}  // namespace
