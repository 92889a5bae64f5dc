#include "platform/system/file_codes.h"

#include "tests/support/scratch_home.h"

#include <gtest/gtest.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <string>

namespace {

using platform::FileCodes;
using platform::fileCodes;
using platform::setFileCodes;

constexpr const char* kAttribute = "user.tovan.finder-info";

void expectCodes(const std::string& path, std::uint32_t type, std::uint32_t creator) {
  const FileCodes codes = fileCodes(path);
  EXPECT_EQ(codes.type, type) << path;
  EXPECT_EQ(codes.creator, creator) << path;
}

class FileCodesTest : public testing::Test {
 protected:
  void SetUp() override {
    test::writeFile(path_, "content");
    if (::setxattr(path_.c_str(), "user.tovan.probe", "x", 1, 0) != 0) {
      ASSERT_EQ(errno, ENOTSUP);
      EXPECT_FALSE(setFileCodes(path_, {1, 2}));
      EXPECT_EQ(errno, ENOTSUP);
      GTEST_SKIP() << "the temporary folder's file system has no such attributes";
    }
  }
  const std::string path_ = test::scratchFolder("codes") + "/with blank";
};

TEST_F(FileCodesTest, AreKeptWithTheFile) {
  expectCodes(path_, 0, 0);
  ASSERT_TRUE(setFileCodes(path_, {0x4D6F6F56, 0x54564F44}));
  expectCodes(path_, 0x4D6F6F56, 0x54564F44);
  ASSERT_TRUE(setFileCodes(path_, {0xFFFFFFFF, 0}));
  expectCodes(path_, 0xFFFFFFFF, 0);
  EXPECT_EQ(test::readFile(path_), "content");
}

TEST_F(FileCodesTest, AreStoredMostSignificantByteFirst) {
  ASSERT_TRUE(setFileCodes(path_, {0x4D6F6F56, 0x54564F44}));
  char bytes[16];
  ASSERT_EQ(::getxattr(path_.c_str(), kAttribute, bytes, sizeof bytes), 8);
  EXPECT_EQ(std::string(bytes, 8), "MooVTVOD");
}

TEST_F(FileCodesTest, OfZeroTakeTheAttributeAway) {
  ASSERT_TRUE(setFileCodes(path_, {1, 2}));
  ASSERT_TRUE(setFileCodes(path_, {0, 0}));
  EXPECT_EQ(::getxattr(path_.c_str(), kAttribute, nullptr, 0), -1);
  EXPECT_TRUE(setFileCodes(path_, {0, 0})) << "there is none to take away";
}

TEST_F(FileCodesTest, OfAnotherLengthAreNone) {
  for (const std::string& bytes : {std::string("MooVTVO"), std::string("MooVTVODx"), std::string()}) {
    ASSERT_EQ(::setxattr(path_.c_str(), kAttribute, bytes.data(), bytes.size(), 0), 0);
    expectCodes(path_, 0, 0);
  }
}

TEST_F(FileCodesTest, AreThoseOfTheFileBehindALink) {
  const std::string link = path_ + " link";
  ASSERT_EQ(::symlink(path_.c_str(), link.c_str()), 0);
  ASSERT_TRUE(setFileCodes(link, {3, 4}));
  expectCodes(path_, 3, 4);
}

TEST_F(FileCodesTest, AreNoneForAMissingFile) {
  expectCodes(path_ + " missing", 0, 0);
  EXPECT_FALSE(setFileCodes(path_ + " missing", {1, 2}));
  EXPECT_EQ(errno, ENOENT);
  EXPECT_FALSE(setFileCodes(path_ + " missing", {0, 0}));
}

}  // namespace
