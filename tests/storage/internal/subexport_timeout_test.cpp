// CSharedStorageUtils: publishing one file when nobody answers. The standard time-out is made short here.
#include <CoreFoundation/CFBundle.h>
#include <tovan/shared_storage_utils.h>

#include "storage/request_timeout.h"
#include "tests/storage/storage_support.h"
#include "tests/support/private_bus.h"

namespace {

using namespace test;
using Utils = tovan::CSharedStorageUtils;

const std::string kFramework =
    TOVAN_BUILD_DIR "/lib/tovan/Frameworks/Mervane.framework/Versions/A/Frameworks/TovanCore.framework";

class SubexportTimeoutTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(bundle_) << "no bundle at " << kFramework;
    tovan::internal::setStandardRequestTimeout(0);
    writeFile(folder_ + "/movie.mov", "content");
  }
  void TearDown() override { tovan::internal::setStandardRequestTimeout(-1); }
  std::string subexportURL() const { return folderURL(folder_ + "/.mvsubexp")->getString()->str(); }

  const plinth::CSharedCFRef<CFBundleRef> bundle_{
      CFBundleCreate(kCFAllocatorDefault, folderURL(kFramework)->getURLRef())};
  const PrivateBus bus_;
  const std::string folder_ = Utils::normalizedPath(CSTR(scratchFolder("published")))->str();
};

TEST_F(SubexportTimeoutTest, WithoutAServerTheLinkGoesAgain) {
  EXPECT_EQ(
      thrown([&] { Utils::beginSubexport(fileURL(folder_ + "/movie.mov")); }),
      "3/12 The storage \"" + subexportURL() + "\" could not be published: the cluster daemon did not answer in time.");
  EXPECT_FALSE(exists(folder_ + "/.mvsubexp/movie.mov"));
  EXPECT_EQ(readFile(folder_ + "/movie.mov"), "content");
}

TEST_F(SubexportTimeoutTest, WithoutAServerTheEndTakesTheFileOutOfReach) {
  makeFolders(folder_ + "/.mvsubexp");
  const std::string link = folder_ + "/.mvsubexp/movie.mov";
  std::filesystem::create_hard_link(folder_ + "/movie.mov", link);
  EXPECT_EQ(
      thrown([&] { Utils::endSubexport(fileURL(link), true); }),
      "3/12 The storage \"" + subexportURL() + "\" could not be taken off: the cluster daemon did not answer in time.");
  EXPECT_FALSE(exists(link));
  EXPECT_EQ(readFile(folder_ + "/movie.mov"), "content");
}

}  // namespace
