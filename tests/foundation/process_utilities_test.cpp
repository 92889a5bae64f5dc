#include <gtest/gtest.h>
#include <plinth/process_utilities.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <filesystem>
#include <string>

#include "tests/foundation/plinth_text.h"
#include "tests/support/scratch_home.h"

namespace {

using namespace plinth;

// A process of a name that no other has: a copy of sleep(1), ended and collected when the test is over.
class NamedProcess {
 public:
  explicit NamedProcess(const std::string& name) {
    const std::string program = test::scratchFolder("bin") + "/" + name;
    std::filesystem::copy_file("/bin/sleep", program);
    pid_ = ::fork();
    if (pid_ == 0) {
      ::execl(program.c_str(), program.c_str(), "300", static_cast<char*>(nullptr));
      ::_exit(127);
    }
    // The child has its own name from the moment of its execve on.
    while (test::text(ProcessUtilities::FindProcessNameForProcess(pid_)) != name &&
           ::waitpid(pid_, nullptr, WNOHANG) == 0) {
    }
  }
  NamedProcess(const NamedProcess&) = delete;
  NamedProcess& operator=(const NamedProcess&) = delete;
  ~NamedProcess() {
    kill();
    ::waitpid(pid_, nullptr, 0);
  }
  void kill() const { ::kill(pid_, SIGKILL); }
  pid_t pid() const { return pid_; }

 private:
  pid_t pid_;
};

TEST(ProcessUtilitiesTest, FindsAProcessByItsNameAndUser) {
  const std::string name = "a-rather-long-name-of-" + std::to_string(::getpid());
  const NamedProcess process(name);
  pid_t found = -5;
  EXPECT_TRUE(ProcessUtilities::FindProcessWithName(CSTR(name), found, ::geteuid()));
  EXPECT_EQ(found, process.pid());
  EXPECT_EQ(test::text(ProcessUtilities::FindProcessNameForProcess(process.pid())), name);
}

TEST(ProcessUtilitiesTest, AProcessOfAnotherUserOrNameIsNotFound) {
  const std::string name = "named-" + std::to_string(::getpid());
  const NamedProcess process(name);
  pid_t found = -5;
  EXPECT_FALSE(ProcessUtilities::FindProcessWithName(CSTR(name), found, ::geteuid() + 12345));
  EXPECT_FALSE(ProcessUtilities::FindProcessWithName(CSTR(name + "x"), found, ::geteuid()));
  EXPECT_FALSE(ProcessUtilities::FindProcessWithName(CSTR(name.substr(1)), found, ::geteuid()));
  EXPECT_EQ(found, -5);
}

TEST(ProcessUtilitiesTest, AProcessThatEndedIsNotFoundEvenBeforeItIsCollected) {
  const std::string name = "ended-" + std::to_string(::getpid());
  const NamedProcess process(name);
  process.kill();
  siginfo_t info;
  ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(process.pid()), &info, WEXITED | WNOWAIT), 0);
  pid_t found = -5;
  EXPECT_FALSE(ProcessUtilities::FindProcessWithName(CSTR(name), found, ::geteuid()));
  EXPECT_TRUE(ProcessUtilities::FindProcessNameForProcess(process.pid()).isNull());
  EXPECT_EQ(found, -5);
}

TEST(ProcessUtilitiesTest, NoNameFindsNothing) {
  pid_t found = -5;
  EXPECT_FALSE(ProcessUtilities::FindProcessWithName(nullptr, found, ::geteuid()));
  EXPECT_FALSE(ProcessUtilities::FindProcessWithName(CSTR(""), found, ::geteuid()));
  EXPECT_EQ(found, -5);
}

TEST(ProcessUtilitiesTest, NumbersThatAreNoProcessHaveNoName) {
  for (const pid_t pid : {0, -1, INT_MIN, INT_MAX}) {
    EXPECT_TRUE(ProcessUtilities::FindProcessNameForProcess(pid).isNull()) << pid;
  }
}

}  // namespace
