#include <tovan/task2.h>

#include "tests/launch/task_support.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <thread>

namespace {

using test::TextList;
using tovan::CArgsBuilder;
using tovan::CTask2;
using tovan::CTask2Ref;

std::string outputOf(CTask2& task) {
  const plinth::CStringRef output = task.getTaskOutput();
  return output.isNull() ? "an empty holder" : output->str();
}

std::string printedBy(const std::string& command, int expectedCode = 0) {
  CTask2 task("/bin/sh", TextList{"-c", command});
  EXPECT_EQ(task.launch(), 0U);
  const std::string output = outputOf(task);
  EXPECT_EQ(task.waitForTask(), expectedCode);
  return output;
}

TEST(CTask2Test, KeepsStandardOutputAndErrorInTheirOrder) {
  EXPECT_EQ(printedBy("echo one; echo two >&2; echo three"), "one\ntwo\nthree\n");
  EXPECT_EQ(printedBy("printf 'no newline'; exit 3", 3), "no newline");
  EXPECT_EQ(printedBy("exit 0"), "");
}

TEST(CTask2Test, TakesArgumentsFromABuilder) {
  CArgsBuilder arguments(0);
  arguments.addArg("%s|%s");
  arguments.addArg("a b");
  arguments.addArg("c");
  CTask2 task("/usr/bin/printf", arguments);
  ASSERT_EQ(task.launch(), 0U);
  EXPECT_EQ(outputOf(task), "a b|c");
}

TEST(CTask2Test, TheEnvironmentIsTheUsers) {
  const passwd* const entry = ::getpwuid(::geteuid());
  CTask2 task("/usr/bin/env", nullptr);
  ASSERT_EQ(task.launch(), 0U);
  EXPECT_EQ(outputOf(task),
            std::string("HOME=") + entry->pw_dir + "\nLOGNAME=" + entry->pw_name + "\nUSER=" + entry->pw_name + "\n");
  EXPECT_EQ(task.shell(), nullptr);
}

TEST(CTask2Test, ThereIsNoOutputBeforeALaunchAndWithoutATerminal) {
  CTask2 task("/bin/echo", TextList{"text"});
  EXPECT_TRUE(task.getTaskOutput().isNull());
  ASSERT_EQ(task.launch(), 0U);
  EXPECT_EQ(task.waitForTask(), 0);
  task.closeTerminal();
  task.closeTerminal();
  EXPECT_TRUE(task.getTaskOutput().isNull());
}

TEST(CTask2Test, OutputIsThereAfterTheEndAndOnlyOnce) {
  CTask2 task("/bin/echo", TextList{"text"});
  ASSERT_EQ(task.launch(), 0U);
  EXPECT_EQ(task.waitForTask(), 0);
  EXPECT_EQ(outputOf(task), "text\n");
  EXPECT_EQ(outputOf(task), "");
}

TEST(CTask2Test, AMegabyteIsReadWhole) {
  const std::string output = printedBy("i=0; while [ $i -lt 1024 ]; do printf '%01023d\\n' $i; i=$((i+1)); done");
  ASSERT_EQ(output.size(), 1024U * 1024U);
  EXPECT_EQ(output.substr(output.size() - 5), "1023\n");
}

TEST(CTask2Test, CharactersAcrossTheReadSizeStayWhole) {
  // 497 bytes and then three-byte characters: each read of 498 bytes would end within one.
  EXPECT_EQ(printedBy("printf '%0497d' 0; printf '\\342\\202\\254\\342\\202\\254'"),
            std::string(497, '0') + "\u20ac\u20ac");
}

TEST(CTask2Test, BytesThatAreNotUTF8AreMarkedAndNothingIsLost) {
  EXPECT_EQ(printedBy("printf 'a\\377b\\n'; echo rest"), "a\ufffdb\nrest\n");
  EXPECT_EQ(printedBy("printf 'a\\000b\\n'; echo rest"), std::string("a\0b\nrest\n", 9));
}

TEST(CTask2Test, TheInputIsTheControllingTerminalOfASession) {
  EXPECT_EQ(printedBy("test -t 0 && test ! -t 1 && test ! -t 2 && echo yes"), "yes\n");
  EXPECT_EQ(printedBy("echo said > /dev/tty && echo opened"), "opened\n");
  EXPECT_EQ(printedBy("set -- $(cat /proc/$$/stat); [ $6 = $$ ] && [ $7 != 0 ] && echo leads"), "leads\n");
}

TEST(CTask2Test, TheTerminalDoesNotMarkErrors) {
  const std::string settings = printedBy("stty -a");
  EXPECT_NE(settings.find("-parmrk"), std::string::npos) << settings;
}

TEST(CTask2Test, OtherDescriptorsStayOpenInTheChild) {
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  ASSERT_EQ(::dup2(ends[1], 77), 77);
  EXPECT_EQ(printedBy("test -e /proc/$$/fd/77 && echo open"), "open\n");
  std::set<int> inherited{0, 1, 2};
  for (int descriptor = 3; descriptor < 1024; ++descriptor) {
    if (const int flags = ::fcntl(descriptor, F_GETFD); flags >= 0 && (flags & FD_CLOEXEC) == 0) {
      inherited.insert(descriptor);
    }
  }
  std::istringstream listed(printedBy("ls /proc/$$/fd; true"));
  EXPECT_EQ(std::set<int>(std::istream_iterator<int>(listed), {}), inherited) << "the task's own are closed";
  for (const int descriptor : {ends[0], ends[1], 77}) ::close(descriptor);
}

TEST(CTask2Test, CanBeLaunchedAgain) {
  CTask2 task("/bin/sh", TextList{"-c", "echo first"});
  ASSERT_EQ(task.launch(), 0U);
  EXPECT_EQ(task.waitForTask(), 0);
  task.setArgs(TextList{"-c", "echo second"});
  ASSERT_EQ(task.launch(), 0U);
  EXPECT_EQ(outputOf(task), "second\n");
  EXPECT_EQ(task.waitForTask(), 0);
}

TEST(CTask2Test, WorksWithoutStandardStreams) {
  const std::string said = test::inAnotherProcess([]() -> std::string {
    for (const int descriptor : {0, 1, 2}) ::close(descriptor);
    return printedBy("test -t 0 && echo out; echo err >&2");
  });
  EXPECT_EQ(said, "out\nerr\n");
}

TEST(CTask2Test, TheDestructorWaits) {
  const std::string file = test::scratchFolder("waits") + "/done";
  {
    CTask2 task("/bin/sh", TextList{"-c", "sleep 0.2; echo > " + file});
    ASSERT_EQ(task.launch(), 0U);
  }
  EXPECT_TRUE(test::exists(file));
}

TEST(CTask2Test, IsASharedObject) {
  CTask2Ref task = plinth::makeShared<CTask2>("/bin/echo", TextList{"shared"});
  const CTask2Ref second = task;
  ASSERT_EQ(task->launch(), 0U);
  task = nullptr;
  EXPECT_EQ(outputOf(*second), "shared\n");
}

TEST(CTask2Test, OutputEndsWhenTheLastHolderOfThePipeDoes) {
  const std::string fifo = test::scratchFolder("grandchild") + "/go";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  CTask2 task("/bin/sh", TextList{"-c", "trap '' HUP; (read line < " + fifo + "; echo grandchild) & echo child"});
  ASSERT_EQ(task.launch(), 0U);
  EXPECT_EQ(task.waitForTask(), 0);
  std::string output;
  std::thread reader([&] { output = outputOf(task); });
  // There is a reader only when the grandchild, which outlives the child, has come that far.
  int go = -1;
  EXPECT_TRUE(test::comesTrue([&] { return (go = ::open(fifo.c_str(), O_WRONLY | O_CLOEXEC | O_NONBLOCK)) >= 0; }));
  EXPECT_EQ(::write(go, "\n", 1), 1);
  ::close(go);
  reader.join();
  EXPECT_EQ(output, "child\ngrandchild\n");
}

TEST(CTask2Test, ASiblingDoesNotHoldThePipe) {
  CTask2 first("/bin/cat", nullptr);
  ASSERT_EQ(first.launch(), 0U);
  CTask2 second("/bin/echo", TextList{"quick"});
  ASSERT_EQ(second.launch(), 0U);
  EXPECT_EQ(outputOf(second), "quick\n");
  first.terminate();
  EXPECT_EQ(first.waitForTask(), SIGTERM);
}

TEST(CTask2Test, ClosingTheTerminalHangsUp) {
  CTask2 task("/bin/sleep", TextList{"60"});
  ASSERT_EQ(task.launch(), 0U);
  // The child has its terminal when it is the program.
  ASSERT_TRUE(test::comesTrue(
      [&] { return test::readFile("/proc/" + std::to_string(task.processID()) + "/comm") == "sleep\n"; }));
  task.closeTerminal();
  EXPECT_EQ(task.waitForTask(), SIGHUP);
}

TEST(CTask2Test, LeavesNoDescriptorsBehind) {
  const int before = test::countOfOwn("fd");
  for (int round = 0; round < 20; ++round) {
    CTask2 task("/bin/echo", TextList{"text"});
    ASSERT_EQ(task.launch(), 0U);
    if (round % 2 == 0) {
      EXPECT_EQ(outputOf(task), "text\n");
    }
  }
  EXPECT_EQ(test::countOfOwn("fd"), before);
}

}  // namespace
