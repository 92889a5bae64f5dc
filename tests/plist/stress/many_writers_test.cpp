// Sixteen processes, a hundred thousand flushes each: no update is lost, ever.
#include <sys/wait.h>

#include <filesystem>
#include <thread>

#include "tests/plist/plist_support.h"

namespace {

using namespace test;

#if defined(TOVAN_SANITIZED)
constexpr int kFlushes = 2000;  // the same paths, at the pace of a sanitizer
#else
constexpr int kFlushes = 100000;
#endif

int numberIn(CFDictionaryRef dictionary, CFStringRef key) {
  const CFTypeRef value = CFDictionaryGetValue(dictionary, key);
  int found = 0;
  if (value != nullptr) CFNumberGetValue(static_cast<CFNumberRef>(value), kCFNumberSInt32Type, &found);
  return found;
}

// Each flush is a section merge that counts on what it finds in the file: a counter of its own, which nobody else may
// touch, and one that all share.
class Counter : public tovan::CPropertyListBasicFile {
 public:
  Counter(const std::string& path, int name)
      : CPropertyListBasicFile(str(path).get()), own_(str("own" + std::to_string(name))) {}

  // Gives false when its own counter is not what it wrote last.
  bool flush() {
    bool intact = true;
    flushSection([&](CFMutableDictionaryRef document) {
      intact = numberIn(document, own_.get()) == count_;
      ++count_;
      CFDictionarySetValue(document, own_.get(), number(count_).get());
      CFDictionarySetValue(document, CFSTR("all"), number(numberIn(document, CFSTR("all")) + 1).get());
    });
    return intact;
  }
  bool flushMany(int flushes) {
    bool intact = true;
    for (int i = 0; i < flushes; ++i) intact = flush() && intact;
    return intact;
  }

 private:
  CSharedCFRef<CFStringRef> own_;
  int count_ = 0;
};

class ManyWritersTest : public ::testing::Test {
 protected:
  const std::string path = scratchFolder("writers") + "/file.plist";

  void expectCounts(int writers, int flushes) const {
    const tovan::CPropertyListBasicFile file(str(path).get());
    const CSharedCFRef<CFDictionaryRef> document = file.toPropertyList();
    EXPECT_EQ(numberIn(document.get(), CFSTR("all")), writers * flushes) << "updates were lost";
    for (int i = 0; i < writers; ++i) {
      EXPECT_EQ(numberIn(document.get(), str("own" + std::to_string(i)).get()), flushes) << "writer " << i;
    }
  }
};

TEST_F(ManyWritersTest, SixteenProcessesLoseNoUpdate) {
  constexpr int kWriters = 16;
  std::vector<pid_t> children;
  for (int i = 0; i < kWriters; ++i) {
    children.push_back(::fork());
    if (children.back() != 0) continue;
    bool intact = false;
    const std::string thrown = thrownBy([&] { intact = Counter(path, i).flushMany(kFlushes); });
    ::_exit(intact && thrown == "nothing" ? 0 : 1);
  }
  for (const pid_t child : children) {
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0) << "a writer failed, or found its section changed";
  }
  expectCounts(kWriters, kFlushes);
}

TEST_F(ManyWritersTest, ThreadsWithObjectsOfTheirOwnLoseNoUpdate) {
  constexpr int kWriters = 8;
  std::vector<std::thread> threads;
  std::vector<char> intact(kWriters, 0);
  for (int i = 0; i < kWriters; ++i) {
    threads.emplace_back([&, i] { intact[static_cast<std::size_t>(i)] = Counter(path, i).flushMany(kFlushes / 10); });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(std::count(intact.begin(), intact.end(), 1), kWriters);
  expectCounts(kWriters, kFlushes / 10);
}

TEST_F(ManyWritersTest, ReadersNeverSeeAHalfWrittenFile) {
  // Two documents of very different lengths; whatever is read is one of them.
  const CSharedCFRef<CFDictionaryRef> lists[] = {dict("<key>a</key><string>" + std::string(40000, 'x') + "</string>"),
                                                 dict("<key>a</key><string>y</string>")};
  tovan::CPropertyListBasicFile(str(path).get()).writePropertyList(lists[0].get());
  std::atomic<bool> over{false};
  std::thread writer([&] {
    const tovan::CPropertyListBasicFile file(str(path).get());
    for (int n = 0; n < kFlushes / 20; ++n) file.writePropertyList(lists[n % 2].get());
    over = true;
  });
  int reads = 0;
  std::string failure = "nothing";
  while (!over && failure == "nothing") {
    failure = thrownBy([&] {
      const tovan::CPropertyListBasicFile file(str(path).get());
      const CSharedCFRef<CFDictionaryRef> seen = file.toPropertyList();
      EXPECT_TRUE(CFEqual(seen.get(), lists[0].get()) || CFEqual(seen.get(), lists[1].get()));
      ++reads;
    });
  }
  writer.join();
  EXPECT_EQ(failure, "nothing");
  EXPECT_GT(reads, 10);
}

}  // namespace
