// The whole way: a client asks the daemon's side over the bus, which exports and mounts with the real tools.
#include <tovan/nfs_shared_storage.h>
#include <unistd.h>

#include "tests/nfs/real_nfs.h"
#include "tests/support/private_bus.h"

namespace nfs {
namespace {

using tovan::CNFSSharedStorage;

class RealClientTest : public RealNfsTest {
 protected:
  // What the client's checks after a subscription said.
  std::string subscribeByClient(const std::string& published, const std::string& mountPoint) {
    testing::internal::CaptureStderr();
    client_->subscribe(urlOf(published), plinth::CSTR(mountPoint), plinth::CSTR("app"), 0);
    return testing::internal::GetCapturedStderr();
  }
  void unsubscribeByClient(const std::string& published, const std::string& mountPoint) {
    client_->unsubscribe(urlOf(published), plinth::CSTR(mountPoint), plinth::CSTR("app"), 0);
    EXPECT_EQ(mountAt(mountPoint).type, "");
  }

  const test::PrivateBus bus_;
  const tovan::ISharedStorageRef server_ =
      CNFSSharedStorage::NewServer(publisher_, subscriber_, CNFSSharedStorage::kNotificationRPC);
  const tovan::ISharedStorageRef client_ = CNFSSharedStorage::NewClient(CNFSSharedStorage::kNotificationRPC);
};

TEST_F(RealClientTest, AClientPublishesMountsAndChecksTheInformationFile) {
  const std::string published = folder("shared");
  client_->publish(test::folderURL(published), plinth::CSTR("app"), 0);
  EXPECT_TRUE(test::runLoopUntil([] { return served().size() == 1; })) << watcher_->output();
  test::writeFile(published + "/file", "by way of the daemon");

  EXPECT_EQ(subscribeByClient(published, mountPoint()), "");
  EXPECT_EQ(mountAt(mountPoint()).type, "nfs");
  EXPECT_EQ(test::readFile(mountPoint() + "/file"), "by way of the daemon");
  ASSERT_EQ(::unlink((published + "/.mervane.plist").c_str()), 0);
  const std::string said = subscribeByClient(published, mountPoint("second"));
  EXPECT_NE(said.find("info file " + mountPoint("second") + "/.mervane.plist not accessible!"), std::string::npos)
      << said;
  EXPECT_EQ(said.find("still local"), std::string::npos) << said;

  unsubscribeByClient(published, mountPoint("second"));
  unsubscribeByClient(published, mountPoint());
  client_->unpublish(test::folderURL(published), plinth::CSTR("app"), 0);
  EXPECT_TRUE(test::runLoopUntil([] { return served().empty(); })) << watcher_->output();
}

TEST_F(RealClientTest, AMountThatIsRefusedReachesTheClientAsTheSameFailure) {
  try {
    client_->subscribe(urlOf(folder("nothing")), plinth::CSTR(mountPoint()), plinth::CSTR("app"), 0);
    ADD_FAILURE() << "nothing was thrown";
  } catch (const plinth::CException& failure) {
    EXPECT_EQ(static_cast<std::uint32_t>(failure.getKind()), 0xFE010C00U);
    EXPECT_EQ("1/12 " + std::string(failure.what()), mountFailed(folder("nothing")));
  }
  EXPECT_TRUE(subscriber_->getSubscribedMap().empty());
}

}  // namespace
}  // namespace nfs
