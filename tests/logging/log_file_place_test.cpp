// The mode of a log's file, and what else may stand in its place.
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstring>

#include "tests/logging/log_file_support.h"

namespace {

using namespace test;

class LogFilePlaceTest : public LogFileTest {};

TEST_F(LogFilePlaceTest, ANewFileHasItsModeWhateverTheUmask) {
  for (const mode_t mask : {0u, 022u, 077u, 0777u}) {
    ::umask(mask);
    const std::string path = folder_ + "/" + std::to_string(mask);
    { started(path); }
    EXPECT_EQ(modeOf(path), 0644u) << mask;
    EXPECT_EQ(::umask(022), mask) << "restored";
  }
}

TEST_F(LogFilePlaceTest, AFileKeepsTheModeThatItHas) {
  writeFile(path_, "");
  ASSERT_EQ(::chmod(path_.c_str(), 0600), 0);
  { started(); }
  EXPECT_EQ(modeOf(path_), 0600u);
}

TEST_F(LogFilePlaceTest, AFileInNoFolderIsRefused) { expectRefused(folder_ + "/none/service.log"); }

TEST_F(LogFilePlaceTest, APercentSignInAPathIsNoFormat) {
  expectRefused(folder_ + "/%s%n%@/service.log");
  { started(folder_ + "/%s%n%@.log"); }
  EXPECT_TRUE(exists(folder_ + "/%s%n%@.log"));
}

TEST_F(LogFilePlaceTest, AFolderInItsPlaceIsRefused) {
  makeFolders(path_);
  expectRefused(path_);
}

TEST_F(LogFilePlaceTest, TheUmaskIsRestoredWhenTheFileIsRefused) {
  ::umask(027);
  expectRefused(folder_ + "/none/service.log");
  EXPECT_EQ(::umask(022), 027u);
}

TEST_F(LogFilePlaceTest, AFIFOInItsPlaceIsNeitherWaitedForNorWritten) {
  ASSERT_EQ(::mkfifo(path_.c_str(), 0600), 0);
  expectRefused(path_);
  const int reader = ::open(path_.c_str(), O_RDONLY | O_NONBLOCK);
  ASSERT_GE(reader, 0);
  expectRefused(path_);
  char byte = 0;
  EXPECT_EQ(::read(reader, &byte, 1), 0) << "nothing is in the FIFO";
  ::close(reader);
}

TEST_F(LogFilePlaceTest, ASymbolicLinkInItsPlaceIsNotFollowed) {
  const std::string target = folder_ + "/target";
  ASSERT_EQ(::symlink(target.c_str(), path_.c_str()), 0);
  expectRefused(path_);
  EXPECT_FALSE(exists(target));
  writeFile(target, "content");
  expectRefused(path_);
  {
    standardErrorOf([&] { started(true); });
  }
  EXPECT_EQ(readFile(target), "content") << "neither appended to nor emptied";
}

TEST_F(LogFilePlaceTest, ASocketInItsPlaceIsRefused) {
  const std::string path = scratchHome() + "/s.log";
  ::unlink(path.c_str());
  const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  ASSERT_LT(path.size(), sizeof address.sun_path);
  std::strcpy(address.sun_path, path.c_str());
  ASSERT_EQ(::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  expectRefused(path);
  ::close(socket);
}

}  // namespace
