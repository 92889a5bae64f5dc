// A child program gets none of the library's descriptors, and so none of its locks.
#include <tovan/tovan_config_file.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/wait.h>

#include <filesystem>

#include "tests/plist/plist_support.h"

namespace {

using namespace test;

class InheritedDescriptorTest : public ::testing::Test {
 protected:
  const std::string folder = scratchFolder("inherited");
  const std::string path = folder + "/config.plist";

  // What /bin/ls, as a child of this process, says about its own descriptors.
  std::string descriptorsOfChild() const {
    const std::string listing = folder + "/listing";
    const pid_t child = ::fork();
    if (child == 0) {
      const int output = ::open(listing.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
      ::dup2(output, STDOUT_FILENO);
      ::execl("/bin/ls", "ls", "-l", "/proc/self/fd", static_cast<char*>(nullptr));
      ::_exit(127);
    }
    int status = -1;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0) << "ls failed";
    return readFile(listing);
  }
};

TEST_F(InheritedDescriptorTest, NoLockReachesAChildProgram) {
  writeFile(path, document(""));
  tovan::CTovanConfigFile file(str(path).get());
  for (const bool writing : {false, true}) {
    ASSERT_TRUE(writing ? file.lockForRW() : file.lockForRead());
    const std::string seen = descriptorsOfChild();
    EXPECT_NE(seen.find("listing"), std::string::npos) << "the check sees what is inherited: " << seen;
    EXPECT_EQ(seen.find("config.plist"), std::string::npos) << seen;
    ASSERT_TRUE(file.unlock());
  }
}

TEST_F(InheritedDescriptorTest, NoDescriptorIsLeftOpenByAnyOperation) {
  const auto count = [] {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return std::distance(begin(all), end(all));
  };
  const auto before = count();
  for (int i = 0; i < 20; ++i) {
    tovan::CTovanConfigFile file(str(path).get());
    file.flush();
    file.lockForRead();
    file.unlock();
    file.lockForRW();
    file.refresh();
    file.flush();
    writeFile(path, "garbage");
    consoleOf([&] { thrownBy([&] { file.refresh(); }); });
    std::filesystem::remove(path);
  }
  EXPECT_EQ(count(), before);
}

}  // namespace
