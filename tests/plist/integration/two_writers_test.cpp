// Processes that write different sections of one file, its first creation included.
#include <tovan/service_cache_file.h>
#include <tovan/service_config_file.h>
#include <tovan/service_pid_file.h>
#include <tovan/tovan_config_file.h>

#include <sys/wait.h>

#include <filesystem>
#include <functional>

#include "tests/plist/plist_support.h"

namespace {

using namespace test;

class TwoWritersTest : public ::testing::Test {
 protected:
  const std::string path = scratchFolder("writers") + "/config.plist";
  const CSharedCFRef<CFStringRef> cfPath = str(path);

  // Runs all of them at once, each in a process of its own.
  static void runTogether(const std::vector<std::function<void()>>& writers) {
    int start[2];
    ASSERT_EQ(::pipe(start), 0);
    std::vector<pid_t> children;
    for (const auto& writer : writers) {
      children.push_back(::fork());
      if (children.back() != 0) continue;
      ::close(start[1]);
      char nothing;
      while (::read(start[0], &nothing, 1) > 0) continue;  // until the parent closes its end
      ::_exit(thrownBy(writer) == "nothing" ? 0 : 1);
    }
    ::close(start[0]);
    ::close(start[1]);
    for (const pid_t child : children) {
      int status = -1;
      EXPECT_EQ(::waitpid(child, &status, 0), child);
      EXPECT_EQ(status, 0) << "a writer failed";
    }
  }
};

TEST_F(TwoWritersTest, SectionsOfAFreshFileAllSurvive) {
  for (int round = 0; round < 100; ++round) {
    std::filesystem::remove(path);
    runTogether({[this] { tovan::CTovanConfigFile(cfPath.get()).flush(); },
                 [this] { tovan::CServiceCacheFile(cfPath.get()).flush(); },
                 [this] { tovan::CServiceConfigFile(CFSTR("s"), cfPath.get()).flush(); },
                 [this] { tovan::CServiceConfigFile(CFSTR("t"), cfPath.get()).flush(); }});
    EXPECT_FALSE(sectionOfFile(path, "mervaneconfig").isNull()) << "round " << round;
    EXPECT_EQ(describe(sectionOfFile(path, "mervaneservices")), "{}") << "round " << round;
    EXPECT_EQ(describe(sectionOfFile(path, "serviceconfig")), "{s: {}, t: {}}") << "round " << round;
  }
}

TEST_F(TwoWritersTest, ProcessesThatRegisterAtTheSameTimeAllEndUpInTheFile) {
  for (int round = 0; round < 50; ++round) {
    std::filesystem::remove(path);
    const pid_t parent = ::getpid();
    const auto registering = [&](pid_t pid) {
      return [this, pid] {
        tovan::CServicePIDFile(CFSTR("k"), cfPath.get()).setProcessAttributes(pid, CFSTR("kind"), nullptr, nullptr);
      };
    };
    runTogether({registering(parent), registering(::getppid()), registering(1)});
    const std::string written = describe(sectionOfFile(path, "attributes"));
    EXPECT_NE(written.find(std::to_string(parent) + ": {Kind: \"kind\"}"), std::string::npos) << written;
    EXPECT_NE(written.find(std::to_string(::getppid()) + ": {Kind: \"kind\"}"), std::string::npos) << written;
  }
}

}  // namespace
