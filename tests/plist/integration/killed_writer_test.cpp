// A writer that is killed at any system call leaves the old document or the new one, complete.
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <map>

#include "tests/plist/plist_support.h"

namespace {

using namespace test;
using tovan::CPropertyListBasicFile;

// The system call that stands at both ends of what is looked at; nothing else here makes it.
void mark() { ::syscall(SYS_getsid, 0); }

// A file object that was made before, so that only the flush lies between the marks.
class Writer : public CPropertyListBasicFile {
 public:
  using CPropertyListBasicFile::CPropertyListBasicFile;
  void flush(const std::string& value) const {
    const CSharedCFRef<CFStringRef> text = str(value);
    mark();
    flushSection([&text](CFMutableDictionaryRef document) { CFDictionarySetValue(document, CFSTR("a"), text.get()); });
    mark();
  }
};

[[noreturn]] void runTracedWriter(const std::string& path, const std::string& value) {
  const Writer writer(str(path).get());
  ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
  ::raise(SIGSTOP);
  writer.flush(value);
  ::_exit(0);
}

std::uint64_t callNumber(pid_t child) {
  __ptrace_syscall_info info = {};
  ::ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof info, &info);
  return info.op == PTRACE_SYSCALL_INFO_ENTRY ? info.entry.nr : UINT64_MAX;
}

// Kills the writer at its stop number `last`; every system call has two stops, before and after it. False when the
// flush was over before.
bool killAtStop(const std::string& path, const std::string& value, int last) {
  const pid_t child = ::fork();
  if (child == 0) runTracedWriter(path, value);
  int status = 0;
  EXPECT_EQ(::waitpid(child, &status, 0), child);
  ::ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
  int marks = 0;
  int stops = -1;  // the end of the first mark itself
  for (;;) {
    ::ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    if (WIFEXITED(status) || WIFSIGNALED(status)) return false;
    if (WSTOPSIG(status) != (SIGTRAP | 0x80)) continue;
    if (callNumber(child) == SYS_getsid) ++marks;
    const bool isOver = marks == 2;
    if (marks == 1) ++stops;
    if (!isOver && stops < last) continue;
    ::kill(child, SIGKILL);
    ::waitpid(child, &status, 0);
    return !isOver;
  }
}

class KilledWriterTest : public ::testing::Test {
 protected:
  const std::string path = scratchFolder("killed") + "/file.plist";

  void put(const std::string& value) const {
    writeFile(path, document("<key>a</key><string>" + value + "</string><key>other</key><integer>1</integer>"));
  }
  // What a reader finds after each kill, counted.
  std::map<std::string, int> found;
  int tails = 0;

  template <class Prepare>
  void killEverywhere(const std::string& value, Prepare prepare) {
    for (int stop = 1;; ++stop) {
      ASSERT_LT(stop, 1000) << "the flush never ends";
      prepare();
      const bool killed = killAtStop(path, value, stop);
      CPropertyListBasicFile reader(str(path).get());
      const std::string seen = describe(reader.toPropertyList());
      ++found[seen.size() > 100 ? seen.substr(0, 8) + "..." + std::to_string(seen.size()) : seen];
      const std::string content = exists(path) ? readFile(path) : "";
      const std::size_t end = content.find("</plist>\n");
      if (end != std::string::npos && end + 9 != content.size()) ++tails;
      if (!killed) break;
    }
  }
};

TEST_F(KilledWriterTest, AShorterDocumentOverALongerOne) {
  const std::string old(3000, 'o');
  killEverywhere("new", [&] { put(old); });
  const std::string oldSeen = "{a: \"ooo..." + std::to_string(old.size() + 17);
  EXPECT_EQ(found.size(), 2U) << ::testing::PrintToString(found);
  EXPECT_GT(found[oldSeen], 10) << ::testing::PrintToString(found);
  EXPECT_GT(found["{a: \"new\", other: 1}"], 2) << ::testing::PrintToString(found);
  EXPECT_GE(tails, 1) << "a kill between write and truncation leaves a tail";
}

TEST_F(KilledWriterTest, ALongerDocumentOverAShorterOne) {
  const std::string value(30000, 'n');
  killEverywhere(value, [&] { put("old"); });
  const std::string newSeen = "{a: \"nnn..." + std::to_string(value.size() + 17);
  EXPECT_EQ(found.size(), 2U) << ::testing::PrintToString(found);
  EXPECT_GT(found["{a: \"old\", other: 1}"], 10) << ::testing::PrintToString(found);
  EXPECT_GT(found[newSeen], 2) << ::testing::PrintToString(found);
}

TEST_F(KilledWriterTest, TheFirstDocumentOfAFile) {
  killEverywhere("new", [&] { std::filesystem::remove(path); });
  EXPECT_EQ(found.size(), 2U) << ::testing::PrintToString(found);
  EXPECT_GT(found["{}"], 4) << ::testing::PrintToString(found);
  EXPECT_GT(found["{a: \"new\"}"], 2) << ::testing::PrintToString(found);
}

}  // namespace
