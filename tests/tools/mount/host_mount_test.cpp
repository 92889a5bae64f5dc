// The adapters on the host's own mount and umount.
#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <fstream>
#include <utility>

#include "tests/tools/integration/running_program.h"
#include "tests/tools/mount/mount_testing.h"

namespace {

using testing::HasSubstr;

constexpr decltype(statfs::f_type) kTmpfs = 0x01021994;

bool isTmpfs(const std::string& path) {
  struct statfs answer {};
  return ::statfs(path.c_str(), &answer) == 0 && answer.f_type == kTmpfs;
}

// A socket on the loop-back address: its port is taken, so that nobody else gets it.
class LoopbackSocket {
 public:
  explicit LoopbackSocket(std::uint16_t port = 0) : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    EXPECT_EQ(::bind(socket_, reinterpret_cast<sockaddr*>(&address), size), 0) << std::strerror(errno);
    EXPECT_EQ(::getsockname(socket_, reinterpret_cast<sockaddr*>(&address), &size), 0);
    port_ = ntohs(address.sin_port);
  }
  ~LoopbackSocket() {
    ::close(connection_);
    ::close(socket_);
  }
  LoopbackSocket(const LoopbackSocket&) = delete;
  LoopbackSocket& operator=(const LoopbackSocket&) = delete;

  std::string port() const { return std::to_string(port_); }
  // Whether somebody came and asked something, within some time.
  bool isAsked() {
    EXPECT_EQ(::listen(socket_, 8), 0);
    if (!isReadable(socket_)) return false;
    connection_ = ::accept4(socket_, nullptr, nullptr, SOCK_CLOEXEC);
    return isReadable(connection_);
  }
  // Whether the other side has closed what it asked on; what it asked is read.
  bool isLeft() const {
    char text[4096];
    while (isReadable(connection_)) {
      if (::read(connection_, text, sizeof text) <= 0) return true;
    }
    return false;
  }

 private:
  static bool isReadable(int descriptor) {
    pollfd wait{descriptor, POLLIN, 0};
    return ::poll(&wait, 1, 10000) == 1;
  }

  int socket_;
  int connection_ = -1;
  std::uint16_t port_ = 0;
};

// A network of its own for this test process, with nothing but the loop-back device.
bool haveOwnNetwork() {
  if (::unshare(CLONE_NEWNET) != 0) return false;
  const int any = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  ifreq device{};
  std::strcpy(device.ifr_name, "lo");
  device.ifr_flags = IFF_UP;
  const bool isUp = ::ioctl(any, SIOCSIFFLAGS, &device) == 0;
  ::close(any);
  return isUp;
}

// Mounts of its own for this test process, which only root may have.
class HostMountTest : public testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "only root mounts";
    if (::unshare(CLONE_NEWNS) != 0) GTEST_SKIP() << "no mount namespace: " << std::strerror(errno);
    ASSERT_EQ(::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr), 0) << std::strerror(errno);
  }

  static std::string mountedTmpfs(const std::string& path) {
    test::makeFolders(path);
    const test::CommandResult result = test::runCommand("/usr/bin/mount", {"-t", "tmpfs", "--", "none", path});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(isTmpfs(path));
    return path;
  }
  static test::CommandResult umount(const std::string& path) {
    return test::runCommand(test::kAdapters + "umount", {"-f", path});
  }
};

TEST_F(HostMountTest, UnmountsWhateverTheNameIs) {
  for (const std::string name :
       {"plain", "two words", "-f", "$(reboot)", "quote\"'d", "two\nlines", "\xFF", "LABEL=a"}) {
    const std::string path = mountedTmpfs(test::scratchFolder("mounts") + "/" + name);
    const test::CommandResult result = umount(path);
    EXPECT_EQ(result.status, 0) << path << ": " << result.err;
    EXPECT_FALSE(isTmpfs(path)) << path;
  }
}

TEST_F(HostMountTest, ABusyMountStaysAndIsReported) {
  const std::string path = mountedTmpfs(test::scratchFolder("mounts") + "/busy");
  {
    std::ofstream open(path + "/open");
    ASSERT_TRUE(open.good());
    const test::CommandResult result = umount(path);
    EXPECT_EQ(result.status, 32);
    EXPECT_THAT(result.err, HasSubstr(path));
    EXPECT_TRUE(isTmpfs(path));
  }
  EXPECT_EQ(umount(path).status, 0);
}

TEST_F(HostMountTest, AFolderThatIsNotMountedIsReported) {
  const std::string folder = test::scratchFolder("folder");
  const test::CommandResult result = umount(folder);
  EXPECT_EQ(result.status, 32);
  EXPECT_THAT(result.err, HasSubstr(folder));
}

// Without "retry=0" it would go on for two minutes.
TEST_F(HostMountTest, AServerThatIsNotThereFailsSoon) {
  if (!haveOwnNetwork()) GTEST_SKIP() << "no network namespace: " << std::strerror(errno);
  const std::string folder = test::scratchFolder("folder");
  const LoopbackSocket closed;
  const std::string ports = "port=" + closed.port() + ",mountport=" + closed.port() + ",";
  for (const auto& [version, options] : {std::pair("3", ports), {"4.2", ports}, {"3", ""}}) {
    const test::ScopedVariable chosen("TOVAN_NFS_VERSION", version);
    const auto start = std::chrono::steady_clock::now();
    const test::CommandResult result = test::runCommand(
        test::kAdapters + "mount", {"-o", options + "soft,intr,locallocks", "127.0.0.1:/none", folder});
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20)) << version << options;
    EXPECT_EQ(result.status, 32) << result.err;
    EXPECT_THAT(result.err, HasSubstr("mount")) << version << options;
    EXPECT_THAT(result.err, testing::Not(HasSubstr("usage"))) << version << options;
  }
}

// A server that takes the connection and says nothing: the host's own helper is in the middle of asking it.
TEST_F(HostMountTest, AMountThatHangsIsEndedWhole) {
  if (!test::exists("/sbin/mount.nfs")) GTEST_SKIP() << "this host has no mount.nfs";
  if (!haveOwnNetwork()) GTEST_SKIP() << "no network namespace: " << std::strerror(errno);
  LoopbackSocket portMap(111);
  test::RunningProgram mount(test::kAdapters + "mount",
                             {"-o", "soft,intr,locallocks", "127.0.0.1:/none", test::scratchFolder("folder")});
  ASSERT_TRUE(portMap.isAsked()) << mount.output();
  EXPECT_FALSE(mount.hasEnded()) << mount.output();
  EXPECT_EQ(mount.end(SIGTERM), 128 + SIGTERM) << mount.output();
  EXPECT_TRUE(portMap.isLeft());
}

}  // namespace
