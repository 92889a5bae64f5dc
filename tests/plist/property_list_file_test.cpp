#include <tovan/property_list_file.h>

#include "tests/plist/plist_support.h"

namespace {

using namespace test;

// The smallest entry there can be: a name and one number.
class Entry {
 public:
  Entry() = default;
  Entry(CFStringRef name, CFDictionaryRef dictionary) : name_(CSharedCFRef<CFStringRef>::retaining(name)) {
    if (dictionary == nullptr) return;
    const CFTypeRef value = CFDictionaryGetValue(dictionary, CFSTR("value"));
    if (value != nullptr) CFNumberGetValue(static_cast<CFNumberRef>(value), kCFNumberSInt32Type, &value_);
  }
  Entry(const std::string& name, int value) : name_(str(name)), value_(value) {}

  CFStringRef name() const { return name_.get(); }
  int value() const { return value_; }
  CSharedCFRef<CFMutableDictionaryRef> toDict() const {
    const CSharedCFRef<CFMutableDictionaryRef> result = CFDictionaryCreateMutable(
        kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
    CFDictionarySetValue(result.get(), CFSTR("value"), number(value_).get());
    return result;
  }

 private:
  CSharedCFRef<CFStringRef> name_;
  int value_ = 0;
};

using File = tovan::CPropertyListFile<Entry>;

std::string entry(const std::string& name, int value) {
  return "<key>" + name + "</key><dict><key>value</key><integer>" + std::to_string(value) + "</integer></dict>";
}

std::string orderList(const std::string& names) { return "<key>_orderList</key><array>" + names + "</array>"; }

// "a=1 b=2", in list order.
std::string entriesOf(const File& file) {
  std::vector<Entry> entries;
  file.get(entries, 0);
  std::string text;
  for (const Entry& each : entries) {
    text += (text.empty() ? "" : " ") + utf8(each.name()) + "=" + std::to_string(each.value());
  }
  return text;
}

class PropertyListFileTest : public ::testing::Test {
 protected:
  const CSharedCFRef<CFStringRef> path = str(scratchFolder("entries") + "/file.plist");
  File ordered{path.get(), true};
  File unordered{path.get(), false};
};

TEST_F(PropertyListFileTest, WithKeepOrderTheOrderListGivesTheOrder) {
  ordered.fromPropertyList(
      dict(entry("a", 1) + entry("b", 2) + orderList("<string>b</string><string>a</string>")).get());
  EXPECT_EQ(entriesOf(ordered), "b=2 a=1");
}

TEST_F(PropertyListFileTest, WithKeepOrderButWithoutAnOrderListEverythingIsLoaded) {
  ordered.fromPropertyList(dict(entry("a", 1) + entry("b", 2)).get());
  EXPECT_EQ(entriesOf(ordered), "a=1 b=2");
}

TEST_F(PropertyListFileTest, AnEmptyOrderListLoadsNothing) {
  ordered.fromPropertyList(dict(entry("a", 1) + orderList("")).get());
  EXPECT_EQ(entriesOf(ordered), "");
}

TEST_F(PropertyListFileTest, AnEntryMissingFromTheOrderListDisappears) {
  ordered.fromPropertyList(dict(entry("a", 1) + entry("b", 2) + entry("c", 3) +
                                orderList("<string>c</string><string>missing</string><string>a</string>"))
                               .get());
  EXPECT_EQ(entriesOf(ordered), "c=3 a=1");
  EXPECT_EQ(describe(ordered.toPropertyList()), "{_orderList: [\"c\", \"a\"], a: {value: 1}, c: {value: 3}}");
}

TEST_F(PropertyListFileTest, ARepeatedNameKeepsItsFirstPlace) {
  ordered.fromPropertyList(dict(entry("a", 1) + entry("b", 2) +
                                orderList("<string>b</string><string>a</string><string>b</string><integer>1</integer>"))
                               .get());
  EXPECT_EQ(entriesOf(ordered), "b=2 a=1");
}

TEST_F(PropertyListFileTest, AnOrderListThatIsNoListIsPassedOver) {
  ordered.fromPropertyList(dict(entry("a", 1) + "<key>_orderList</key><string>a</string>").get());
  EXPECT_EQ(entriesOf(ordered), "a=1");
}

TEST_F(PropertyListFileTest, WithoutKeepOrderTheOrderListIsNeitherReadNorWritten) {
  unordered.fromPropertyList(
      dict(entry("a", 1) + entry("b", 2) + orderList("<string>b</string><string>a</string>")).get());
  EXPECT_EQ(entriesOf(unordered), "a=1 b=2");
  EXPECT_EQ(describe(unordered.toPropertyList()), "{a: {value: 1}, b: {value: 2}}");
}

TEST_F(PropertyListFileTest, ValuesThatAreNoDictionariesAreSkipped) {
  unordered.fromPropertyList(dict("<key>n</key><integer>5</integer>" + entry("a", 1) + "<key>s</key><string/>").get());
  EXPECT_EQ(entriesOf(unordered), "a=1");
}

TEST_F(PropertyListFileTest, LoadingReplacesTheEntriesAndTheDocument) {
  unordered.put(Entry("old", 9));
  unordered.fromPropertyList(dict("<key>Version</key><string>4</string>" + entry("a", 1)).get());
  EXPECT_EQ(entriesOf(unordered), "a=1");
  EXPECT_EQ(describe(static_cast<tovan::CPropertyListBasicFile&>(unordered).toPropertyList()),
            "{Version: \"4\", a: {value: 1}}");
  EXPECT_EQ(utf8(unordered.fileVersion()), "4");
}

TEST_F(PropertyListFileTest, ASectionOfAnotherTypeChangesNothing) {
  unordered.put(Entry("a", 1));
  unordered.fromPropertyList(nullptr);
  unordered.fromPropertyList(static_cast<CFDictionaryRef>(static_cast<CFTypeRef>(CFSTR("text"))));
  EXPECT_EQ(entriesOf(unordered), "a=1");
}

TEST_F(PropertyListFileTest, TheDocumentItselfMayBeLoaded) {
  const auto& base = static_cast<tovan::CPropertyListBasicFile&>(unordered);
  unordered.fromPropertyList(dict(entry("a", 1)).get());
  unordered.fromPropertyList(base.toPropertyList().get());
  EXPECT_EQ(entriesOf(unordered), "a=1");
}

TEST_F(PropertyListFileTest, TwoEntriesMakeAnOrderListAndOneMakesNone) {
  ordered.put(Entry("b", 2));
  EXPECT_EQ(describe(ordered.toPropertyList()), "{b: {value: 2}}");
  ordered.put(Entry("a", 1));
  EXPECT_EQ(describe(ordered.toPropertyList()), "{_orderList: [\"b\", \"a\"], a: {value: 1}, b: {value: 2}}");
  EXPECT_TRUE(ordered.remove(CFSTR("b")));
  EXPECT_EQ(describe(ordered.toPropertyList()), "{a: {value: 1}}");
  EXPECT_TRUE(ordered.remove(CFSTR("a")));
  EXPECT_EQ(describe(ordered.toPropertyList()), "{}");
}

TEST_F(PropertyListFileTest, EntriesWithoutANameAreLeftOut) {
  ordered.put(Entry());
  ordered.put(Entry("a", 1));
  ordered.put(Entry("b", 2));
  EXPECT_EQ(describe(ordered.toPropertyList()), "{_orderList: [\"a\", \"b\"], a: {value: 1}, b: {value: 2}}");
}

TEST_F(PropertyListFileTest, PutReplacesInPlaceOrAppends) {
  unordered.put(Entry("a", 1));
  unordered.put(Entry("b", 2));
  unordered.put(Entry("a", 3));
  EXPECT_EQ(entriesOf(unordered), "a=3 b=2");
}

TEST_F(PropertyListFileTest, NamesThatDifferInCaseOrInNormalisationAreTwo) {
  unordered.put(Entry("name", 1));
  unordered.put(Entry("Name", 2));
  unordered.put(Entry("\u00e9", 3));
  unordered.put(Entry("e\u0301", 4));
  EXPECT_EQ(entriesOf(unordered), "name=1 Name=2 \u00e9=3 e\u0301=4");
}

TEST_F(PropertyListFileTest, PutAtIndexOverwritesAppendsOrRefuses) {
  unordered.put(Entry("a", 1));
  EXPECT_TRUE(unordered.putAtIndex(0, Entry("b", 2)));
  EXPECT_EQ(entriesOf(unordered), "b=2");
  EXPECT_TRUE(unordered.putAtIndex(1, Entry("b", 3))) << "uniqueness is the caller's business";
  EXPECT_EQ(entriesOf(unordered), "b=2 b=3");
  EXPECT_FALSE(unordered.putAtIndex(3, Entry("c", 4)));
  EXPECT_FALSE(unordered.putAtIndex(-1, Entry("c", 4)));
  EXPECT_EQ(entriesOf(unordered), "b=2 b=3");
}

TEST_F(PropertyListFileTest, GetAtIndexCopiesOrLeavesAlone) {
  unordered.put(Entry("a", 1));
  Entry found("before", 7);
  EXPECT_FALSE(unordered.getAtIndex(1, found));
  EXPECT_FALSE(unordered.getAtIndex(-1, found));
  EXPECT_EQ(utf8(found.name()), "before");
  EXPECT_TRUE(unordered.getAtIndex(0, found));
  EXPECT_EQ(utf8(found.name()) + std::to_string(found.value()), "a1");
}

TEST_F(PropertyListFileTest, GetByNameTakesTheFirst) {
  unordered.put(Entry("a", 1));
  unordered.putAtIndex(1, Entry("a", 2));
  Entry found;
  EXPECT_TRUE(unordered.get(CFSTR("a"), found));
  EXPECT_EQ(found.value(), 1);
  EXPECT_FALSE(unordered.get(CFSTR("A"), found));
  EXPECT_EQ(found.value(), 1);
}

TEST_F(PropertyListFileTest, GetManyAppendsAndFillsUp) {
  unordered.put(Entry("a", 1));
  unordered.put(Entry("b", 2));
  std::vector<Entry> entries = {Entry("mine", 0)};
  unordered.get(entries, 5);
  ASSERT_EQ(entries.size(), 6U);
  EXPECT_EQ(utf8(entries[0].name()), "mine");
  EXPECT_EQ(utf8(entries[2].name()), "b");
  EXPECT_EQ(entries[3].name(), nullptr);
  EXPECT_EQ(entries[5].name(), nullptr);
  entries.clear();
  unordered.get(entries, 1);
  ASSERT_EQ(entries.size(), 1U);
  EXPECT_EQ(utf8(entries[0].name()), "a");
  entries.clear();
  unordered.get(entries, 0);
  EXPECT_EQ(entries.size(), 2U);
}

TEST_F(PropertyListFileTest, RemoveKeepsTheOrderOfTheOthers) {
  for (const char* const name : {"a", "b", "c"}) unordered.put(Entry(name, 0));
  EXPECT_FALSE(unordered.remove(CFSTR("unknown")));
  EXPECT_EQ(entriesOf(unordered), "a=0 b=0 c=0");
  EXPECT_TRUE(unordered.remove(CFSTR("b")));
  EXPECT_EQ(entriesOf(unordered), "a=0 c=0");
}

TEST_F(PropertyListFileTest, EntriesStayInMemoryUntilADerivedFlush) {
  unordered.put(Entry("a", 1));
  EXPECT_FALSE(exists(utf8(path.get())));
}

TEST_F(PropertyListFileTest, AHundredThousandOrderedEntriesLoadInNoTime) {
  const CSharedCFRef<CFMutableDictionaryRef> section = CFDictionaryCreateMutable(
      kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
  const CSharedCFRef<CFMutableArrayRef> order = CFArrayCreateMutable(kCFAllocatorDefault, 0, &kCFTypeArrayCallBacks);
  const CSharedCFRef<CFMutableDictionaryRef> empty = Entry("", 0).toDict();
  for (int i = 0; i < 100000; ++i) {
    const CSharedCFRef<CFStringRef> name = str(std::to_string(i));
    CFDictionarySetValue(section.get(), name.get(), empty.get());
    CFArrayAppendValue(order.get(), name.get());
  }
  CFDictionarySetValue(section.get(), CFSTR("_orderList"), order.get());
  ordered.fromPropertyList(section.get());  // a search through the list for each would run into the time limit
  Entry last;
  EXPECT_TRUE(ordered.getAtIndex(99999, last));
  EXPECT_EQ(utf8(last.name()), "99999");
}

}  // namespace
