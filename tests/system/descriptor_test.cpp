#include "platform/system/descriptor.h"

#include "tests/support/scratch_home.h"

#include <gtest/gtest.h>

#include <string>
#include <type_traits>
#include <utility>

namespace {

using platform::Descriptor;

bool isOpen(int number) { return ::fcntl(number, F_GETFD) >= 0; }

TEST(DescriptorTest, IsEmptyAtFirst) {
  const Descriptor none;
  EXPECT_FALSE(none);
  EXPECT_EQ(none.get(), -1);
  static_assert(!std::is_copy_constructible_v<Descriptor> && !std::is_copy_assignable_v<Descriptor>);
}

TEST(DescriptorTest, OpensWithCloseOnExecAndClosesWithItsScope) {
  int number = -1;
  {
    const Descriptor file = Descriptor::open("/dev/null", O_RDONLY);
    ASSERT_TRUE(file);
    number = file.get();
    EXPECT_EQ(::fcntl(number, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
  }
  EXPECT_FALSE(isOpen(number));
}

TEST(DescriptorTest, CreatesWithTheModeGiven) {
  const std::string path = test::scratchFolder("descriptor") + "/file";
  ::umask(022);
  ASSERT_TRUE(Descriptor::open(path.c_str(), O_WRONLY | O_CREAT, 0666));
  struct stat status;
  ASSERT_EQ(::stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777u, 0644u);
}

TEST(DescriptorTest, IsEmptyWithTheReasonWhenOpeningFails) {
  const Descriptor file = Descriptor::open("/missing/file", O_RDONLY);
  EXPECT_FALSE(file);
  EXPECT_EQ(errno, ENOENT);
}

TEST(DescriptorTest, DuplicatesWithCloseOnExec) {
  const Descriptor file = Descriptor::open("/dev/null", O_RDONLY);
  const Descriptor second = file.duplicate();
  ASSERT_TRUE(second);
  EXPECT_NE(second.get(), file.get());
  EXPECT_EQ(::fcntl(second.get(), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
  EXPECT_FALSE(Descriptor().duplicate());
  EXPECT_EQ(errno, EBADF);
}

TEST(DescriptorTest, MovesItsNumber) {
  Descriptor first = Descriptor::open("/dev/null", O_RDONLY);
  const int number = first.get();
  Descriptor second = std::move(first);
  EXPECT_EQ(second.get(), number);
  Descriptor third = Descriptor::open("/dev/null", O_RDONLY);
  const int replaced = third.get();
  third = std::move(second);
  EXPECT_EQ(third.get(), number);
  EXPECT_FALSE(isOpen(replaced));
  Descriptor& same = third;
  third = std::move(same);
  EXPECT_TRUE(isOpen(number)) << "moved to itself";
}

TEST(DescriptorTest, ReleasesWithoutClosing) {
  Descriptor file = Descriptor::open("/dev/null", O_RDONLY);
  const int number = file.release();
  EXPECT_FALSE(file);
  ASSERT_TRUE(isOpen(number));
  ::close(number);
}

TEST(DescriptorTest, ResetKeepsErrnoAndItsOwnNumber) {
  Descriptor file = Descriptor::open("/dev/null", O_RDONLY);
  const int number = file.get();
  file.reset(number);
  EXPECT_TRUE(isOpen(number));
  errno = ENOTTY;
  file.reset();
  EXPECT_EQ(errno, ENOTTY);
  EXPECT_FALSE(isOpen(number));
  EXPECT_FALSE(file);
}

}  // namespace
