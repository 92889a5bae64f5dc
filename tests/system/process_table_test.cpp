#include "platform/system/process_table.h"

#include "tests/support/scratch_home.h"
#include "tests/system/child_process.h"

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

namespace {

using platform::findProcess;
using platform::processName;
using test::ChildProcess;

std::string nameOf(pid_t id) { return processName(id).value_or("(none)"); }

// The id that is found, or 0.
pid_t idOf(const std::string& name) {
  pid_t id = 0;
  return findProcess(name, ::geteuid(), id) ? id : 0;
}

class ProcessTableTest : public testing::Test {
 protected:
  // A program of that name, which sleeps.
  std::string program(const std::string& name) const {
    std::filesystem::copy_file("/bin/sleep", folder_ + "/" + name);
    return folder_ + "/" + name;
  }
  std::string script(const std::string& name) const {
    const std::string path = folder_ + "/" + name;
    test::writeFile(path, "#!/bin/sh -u\nsleep 600 &\ntrap 'kill $!' EXIT\nwait\n");
    EXPECT_EQ(::chmod(path.c_str(), 0755), 0);
    return path;
  }

  const std::string folder_ = test::scratchFolder("programs");
};

TEST_F(ProcessTableTest, FindsProgramsUnderTheirWholeName) {
  for (const std::string& name : std::vector<std::string>{
           "tovan-short", "exactly15bytes_", "sixteen_bytes_16", "LumisphereJobController-of-a-long-name",
           "with blanks and more of them", "paren) R 1 (x", "(a) b) S 2 3 4 5 (c", "line\nbreak", "ends\n",
           "grün-日本語-und-noch-länger", "100%d'\"\\$(x)"}) {
    const ChildProcess child(program(name), {name, "600"});
    EXPECT_EQ(nameOf(child.id()), name);
    EXPECT_EQ(idOf(name), child.id()) << name;
  }
}

TEST_F(ProcessTableTest, FindsAProgramByItsFilesNameWhateverItsFirstArgument) {
  const std::string name = "LumisphereTranscoder-of-a-long-name";
  const ChildProcess child(program(name), {"something else", "600"});
  EXPECT_EQ(nameOf(child.id()), name);
  EXPECT_EQ(idOf(name), child.id());
}

TEST_F(ProcessTableTest, FindsAProgramStartedThroughALinkUnderTheLinksName) {
  const std::string link = folder_ + "/a-link-of-a-long-name-to-it";
  std::filesystem::create_symlink(program("a-link-of-a-long-name-target"), link);
  const ChildProcess child(link, {link, "600"});
  EXPECT_EQ(nameOf(child.id()), "a-link-of-a-long-name-to-it");
}

TEST_F(ProcessTableTest, FindsAProgramWhoseFileIsGone) {
  const std::string path = program("a-program-that-was-deleted");
  const ChildProcess child(path, {"x", "600"});
  ASSERT_EQ(::unlink(path.c_str()), 0);
  EXPECT_EQ(nameOf(child.id()), "a-program-that-was-deleted");
}

TEST_F(ProcessTableTest, FindsScriptsUnderTheirOwnName) {
  for (const char* const name : {"script.sh", "a-script-of-a-very-long-name.sh"}) {
    const std::string path = script(name);
    const ChildProcess child(path, {path}, [] { ::setpgid(0, 0); });
    EXPECT_EQ(nameOf(child.id()), name);
    EXPECT_EQ(idOf(name), child.id());
    ::kill(-child.id(), SIGTERM);
  }
}

TEST_F(ProcessTableTest, FindsARenamedProcessUnderItsNewName) {
  const ChildProcess small([] { ::prctl(PR_SET_NAME, "tovan-renamed"); });
  EXPECT_EQ(nameOf(small.id()), "tovan-renamed");
  EXPECT_EQ(idOf("tovan-renamed"), small.id());
  const ChildProcess full([] { ::prctl(PR_SET_NAME, "tovan-renamed-x-and-more"); });
  EXPECT_EQ(nameOf(full.id()), "tovan-renamed-x") << "the kernel keeps no more, and nothing completes it";
}

TEST_F(ProcessTableTest, NeverMatchesAPartOfAName) {
  const std::string name = "tovan-part-of-a-long-name";
  const ChildProcess child(program(name), {name, "600"});
  ASSERT_EQ(idOf(name), child.id());
  for (const char* const other : {"tovan-part-of-a-long-nam", "tovan-part-of-a-long-name2", "tovan-part-of-a",
                                  "ovan-part-of-a-long-name", "tovan-part-of-A-long-name", "tovan", ""}) {
    EXPECT_EQ(idOf(other), 0) << other;
  }
  EXPECT_EQ(idOf(folder_ + "/" + name), 0) << "a path is no name";
}

TEST_F(ProcessTableTest, TellsUsersApart) {
  const ChildProcess own(program("tovan-own-user"), {"tovan-own-user", "600"});
  pid_t id = 12345;
  EXPECT_FALSE(findProcess("tovan-own-user", ::geteuid() + 1, id));
  EXPECT_EQ(id, 12345) << "untouched";
  if (::geteuid() != 0) GTEST_SKIP() << "only root can become somebody else";
  const std::string other = program("tovan-other-user-long-name");
  for (const std::string& path : {test::scratchHome(), folder_, other}) {
    std::filesystem::permissions(path, std::filesystem::perms::group_exec | std::filesystem::perms::others_exec,
                                 std::filesystem::perm_options::add);
  }
  const ChildProcess theirs(other, {"tovan-other-user-long-name", "600"},
                            [] { EXPECT_EQ(::setresuid(65534, 65534, 65534), 0); });
  EXPECT_TRUE(findProcess("tovan-other-user-long-name", 65534, id));
  EXPECT_EQ(id, theirs.id());
  EXPECT_EQ(idOf("tovan-other-user-long-name"), 0);
}

TEST_F(ProcessTableTest, GivesTheLowestOfSeveral) {
  const std::string path = program("tovan-several");
  const ChildProcess first(path, {"tovan-several", "600"});
  const ChildProcess second(path, {"tovan-several", "600"});
  EXPECT_EQ(idOf("tovan-several"), std::min(first.id(), second.id()));
}

TEST_F(ProcessTableTest, DoesNotCountZombies) {
  ChildProcess child(program("tovan-zombie-with-a-long-name"), {"tovan-zombie-with-a-long-name", "600"});
  const pid_t id = child.id();
  ASSERT_EQ(idOf("tovan-zombie-with-a-long-name"), id);
  child.becomeZombie();
  ASSERT_EQ(::kill(id, 0), 0) << "the zombie is still there";
  EXPECT_EQ(nameOf(id), "(none)");
  EXPECT_EQ(idOf("tovan-zombie-with-a-long-name"), 0);
  EXPECT_EQ(idOf("tovan-zombie-wi"), 0);
  child.reap();
  EXPECT_EQ(nameOf(id), "(none)");
}

TEST_F(ProcessTableTest, HasNoNameForWhatIsNoProcess) {
  EXPECT_EQ(nameOf(0), "(none)");
  EXPECT_EQ(nameOf(-1), "(none)");
  EXPECT_EQ(nameOf(-::getpid()), "(none)");
  EXPECT_EQ(nameOf(2147483647), "(none)");
  EXPECT_NE(nameOf(::getpid()), "(none)");
}

TEST_F(ProcessTableTest, HasNoNameForAThread) {
  std::atomic<pid_t> thread{0};
  std::atomic<bool> done{false};
  std::thread other([&] {
    thread = static_cast<pid_t>(::syscall(SYS_gettid));
    thread.notify_all();
    done.wait(false);
  });
  thread.wait(0);
  EXPECT_EQ(nameOf(thread), "(none)");
  done = true;
  done.notify_all();
  other.join();
}

TEST_F(ProcessTableTest, SurvivesProcessesThatComeAndGo) {
  const std::string stays = "tovan-stays-among-those-that-go";
  const ChildProcess child(program(stays), {stays, "600"});
  std::atomic<bool> done{false};
  std::thread churn([&] {
    while (!done) ChildProcess([] {});
  });
  for (int round = 0; round < 100; ++round) {
    ASSERT_EQ(idOf(stays), child.id()) << "round " << round;
    ASSERT_EQ(idOf("tovan-never-there"), 0);
  }
  done = true;
  churn.join();
}

}  // namespace
