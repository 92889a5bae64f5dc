// The subscriber on the mount and umount of this port. Where the host would ask a server, its mount binds the server's
// folder, which is one of this host.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <tovan/nfs_shared_storage_subscriber.h>

#include <cerrno>
#include <cstring>
#include <fstream>

#include "platform/system/file_system.h"
#include "tests/storage/storage_support.h"
#include "tests/tools/mount/mount_testing.h"

namespace {

using namespace test;

class NFSSubscriberMountTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (exists("/sbin/mount")) GTEST_SKIP() << "this host has a /sbin/mount of its own";
    if (::geteuid() != 0) GTEST_SKIP() << "only root mounts";
    if (::unshare(CLONE_NEWNS) != 0) GTEST_SKIP() << "no mount namespace: " << std::strerror(errno);
    ASSERT_EQ(::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr), 0) << std::strerror(errno);
    // mount -t nfs -o OPTIONS -- HOST:/PATH FOLDER
    writeFile(binder_,
              "#!/bin/sh\nprintf '%s' \"$4\" > \"${0%/*}/options\"\n"
              "exec /usr/bin/mount --bind -- \"${6#*:}\" \"$7\"\n");
    std::filesystem::permissions(binder_, std::filesystem::perms{0755});
    makeFolders(published_);
    writeFile(published_ + "/file", "content");
  }

  void subscribe(const std::string& query = "") {
    const CURLRef url = urlOf("nfs://host/" + query)->copyAndReplaceComponents({}, {}, CSTR(published_), {});
    subscriber_->subscribe(url, CSTR(mountPoint_), CSTR("client"), 1);
  }
  void unsubscribe() { subscriber_->unsubscribe(CURLRef(), CSTR(mountPoint_), CSTR("client"), 1); }
  bool isMounted() const { return platform::isMountPoint(mountPoint_); }

  const std::string tools_ = scratchFolder("host tools");
  const std::string binder_ = tools_ + "/mount";
  const std::string folder_ = std::filesystem::canonical(scratchFolder("a host"));
  const std::string published_ = folder_ + "/its 'published', folder";
  const std::string mountPoint_ = folder_ + "/mounted -o here\nand there";
  const tovan::CNFSSharedStorageSubscriberRef subscriber_ = plinth::makeShared<tovan::CNFSSharedStorageSubscriber>();
};

TEST_F(NFSSubscriberMountTest, FilesAreReadAndWrittenThroughTheMount) {
  const ScopedVariable tool("TOVAN_HOST_MOUNT", binder_);
  subscribe("?port=2049");
  EXPECT_EQ(readFile(tools_ + "/options"), "vers=3,port=2049,mountport=2049,proto=tcp,soft,nolock,retry=0");
  EXPECT_TRUE(isMounted());
  EXPECT_EQ(readFile(mountPoint_ + "/file"), "content");
  writeFile(mountPoint_ + "/new", "written");
  EXPECT_EQ(readFile(published_ + "/new"), "written");
  unsubscribe();
  EXPECT_FALSE(isMounted());
  EXPECT_FALSE(exists(mountPoint_ + "/file"));
}

// What publishing a single file says of a server without a port of its own.
TEST_F(NFSSubscriberMountTest, ThePortMinusOneIsNone) {
  const ScopedVariable tool("TOVAN_HOST_MOUNT", binder_);
  subscribe("?port=-1");
  EXPECT_EQ(readFile(tools_ + "/options"), "vers=3,soft,nolock,retry=0");
  EXPECT_TRUE(isMounted());
  subscriber_->cleanMounts();
  EXPECT_FALSE(isMounted());
}

TEST_F(NFSSubscriberMountTest, TwoReferencesAreOneMount) {
  const ScopedVariable tool("TOVAN_HOST_MOUNT", binder_);
  subscribe();
  subscribe();
  unsubscribe();
  EXPECT_TRUE(isMounted());
  unsubscribe();
  EXPECT_FALSE(isMounted());
}

TEST_F(NFSSubscriberMountTest, ABusyMountStaysUntilAnotherCall) {
  const ScopedVariable tool("TOVAN_HOST_MOUNT", binder_);
  subscribe();
  {
    std::ifstream open(mountPoint_ + "/file");
    ASSERT_TRUE(open.good());
    EXPECT_EQ(thrown([&] { unsubscribe(); }),
              "1/12 CNFSSharedStorage::_unsubscribe: command [/sbin/umount " + mountPoint_ + "] failed, error = 32");
    EXPECT_TRUE(isMounted());
  }
  unsubscribe();
  EXPECT_FALSE(isMounted());
}

TEST_F(NFSSubscriberMountTest, AMountLeftOverFromAnEarlierRunIsTakenDown) {
  const ScopedVariable tool("TOVAN_HOST_MOUNT", binder_);
  subscribe();
  const auto later = plinth::makeShared<tovan::CNFSSharedStorageSubscriber>();
  later->unsubscribe(CURLRef(), CSTR(mountPoint_), CSTR("client"), 1);
  EXPECT_FALSE(isMounted());
}

// The host's own mount, and a port at which nobody answers.
TEST_F(NFSSubscriberMountTest, AServerThatIsNotThereIsReported) {
  const int taken = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  ASSERT_EQ(::bind(taken, reinterpret_cast<sockaddr*>(&address), size), 0);
  ASSERT_EQ(::getsockname(taken, reinterpret_cast<sockaddr*>(&address), &size), 0);
  const CURLRef url = urlOf("nfs://127.0.0.1/none?port=" + std::to_string(ntohs(address.sin_port)));
  EXPECT_EQ(thrown([&] { subscriber_->subscribe(url, CSTR(mountPoint_), CSTR("client"), 1); }),
            "1/12 CNFSSharedStorage::_subscribe: command [/sbin/mount 127.0.0.1:/none] failed, error = 32");
  ::close(taken);
  EXPECT_FALSE(isMounted());
  EXPECT_TRUE(subscriber_->getSubscribedMap().empty());
}

}  // namespace
