// Processes that write different sections of one file, its first creation included.
#include <tovan/host_perf_score_file.h>
#include <tovan/service_cache_file.h>
#include <tovan/service_config_file.h>
#include <tovan/service_pid_file.h>
#include <tovan/tovan_config_file.h>

#include <filesystem>

#include "tests/plist/plist_support.h"
#include "tests/plist/running_together.h"

namespace {

using namespace test;

class TwoWritersTest : public ::testing::Test {
 protected:
  const std::string path = scratchFolder("writers") + "/config.plist";
  const CSharedCFRef<CFStringRef> cfPath = str(path);
};

TEST_F(TwoWritersTest, SectionsOfAFreshFileAllSurvive) {
  for (int round = 0; round < 100; ++round) {
    std::filesystem::remove(path);
    runTogether({[this] { tovan::CTovanConfigFile(cfPath.get()).flush(); },
                 [this] { tovan::CServiceCacheFile(cfPath.get()).flush(); },
                 [this] { tovan::CHostPerfScoreFile(cfPath.get()).flush(); },
                 [this] { tovan::CServiceConfigFile(CFSTR("s"), cfPath.get()).flush(); },
                 [this] { tovan::CServiceConfigFile(CFSTR("t"), cfPath.get()).flush(); }});
    EXPECT_FALSE(sectionOfFile(path, "mervaneconfig").isNull()) << "round " << round;
    EXPECT_EQ(describe(sectionOfFile(path, "mervaneservices")), "{}") << "round " << round;
    EXPECT_EQ(describe(sectionOfFile(path, "hostperfscore")), "{}") << "round " << round;
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
