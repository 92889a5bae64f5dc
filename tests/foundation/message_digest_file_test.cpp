// Digests of files: their pieces, and what can be wrong with a file.
#include <gtest/gtest.h>
#include <plinth/exception.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/foundation/message_digest_support.h"
#include "tests/foundation/plinth_text.h"
#include "tests/support/notification_log.h"

namespace {

using namespace plinth;
using namespace test;

class MessageDigestFileTest : public testing::Test {
 protected:
  std::vector<std::uint64_t> stepsOf(std::size_t size) const {
    writeFile(path_, std::string(size, 'x'));
    std::vector<std::uint64_t> steps;
    const CMessageDigest digest(fileURL(path_), 2, [&](std::uint64_t bytes) { steps.push_back(bytes); });
    EXPECT_EQ(digest.hexText()->str(), digestOfBytes(std::string(size, 'x'), 2)) << size;
    return steps;
  }
  // What must be thrown for the path, and nothing else.
  template <class Exception>
  std::string thrownFor(const std::string& path) const {
    return messageOf<Exception>([&] { digestOfFile(path, 2); });
  }

  const std::string folder_ = scratchFolder("digest");
  // A name with everything that a careless path would trip over.
  const std::string path_ = folder_ + "/-a file \"x\" #1?%20 caf\u00e9\n";
};

TEST_F(MessageDigestFileTest, IsReadInPiecesOf8192Bytes) {
  using Steps = std::vector<std::uint64_t>;
  EXPECT_EQ(stepsOf(0), Steps{});
  EXPECT_EQ(stepsOf(1), Steps{1});
  EXPECT_EQ(stepsOf(8191), Steps{8191});
  EXPECT_EQ(stepsOf(8192), Steps{8192});
  EXPECT_EQ(stepsOf(8193), (Steps{8192, 8193}));
  EXPECT_EQ(stepsOf(20000), (Steps{8192, 16384, 20000}));
}

TEST_F(MessageDigestFileTest, OfAnyLengthTakesNoMoreMemory) {
  writeFile(path_, "");
  std::filesystem::resize_file(path_, std::uintmax_t{64} << 20U);  // sparse
  EXPECT_EQ(digestOfFile("/dev/null", 4), "da39a3ee5e6b4b0d3255bfef95601890afd80709");
  rusage before{};
  rusage after{};
  ::getrusage(RUSAGE_SELF, &before);
  EXPECT_EQ(digestOfFile(path_, 4), "44fac4bedde4df04b9572ac665d3ac2c5cd00c7d");
  ::getrusage(RUSAGE_SELF, &after);
  EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 8 * 1024) << "kilobytes";
}

TEST_F(MessageDigestFileTest, ASymbolicLinkIsFollowed) {
  writeFile(path_, "abc");
  std::filesystem::create_symlink(path_, folder_ + "/link");
  EXPECT_EQ(digestOfFile(folder_ + "/link", 2), "900150983cd24fb0d6963f7d28e17f72");
}

TEST_F(MessageDigestFileTest, AMissingFileSaysSo) {
  EXPECT_EQ(thrownFor<CFileException>(path_),
            "CInputOutputStream::NewInputOutput(" + path_ + "): can't open file, error = No such file or directory");
}

TEST_F(MessageDigestFileTest, WhatIsNoFileIsRefusedAtOnce) {
  const std::string fifo = folder_ + "/fifo";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  EXPECT_NE(thrownFor<CFileException>(folder_).find("Is a directory"), std::string::npos);
  EXPECT_NE(thrownFor<CFileException>(fifo).find("it is a FIFO"), std::string::npos);
  std::filesystem::create_symlink("loop", folder_ + "/loop");
  EXPECT_NE(thrownFor<CFileException>(folder_ + "/loop").find("Too many levels of symbolic links"), std::string::npos);
  const CSharedCFRef<CFURLRef> web(CFURLCreateWithString(kCFAllocatorDefault, CFSTR("http://example.com/x"), nullptr));
  EXPECT_NE(messageOf<CParamException>([&] { CMessageDigest(makeShared<CURL>(web.get()), 2); }).find("names no file"),
            std::string::npos);
}

TEST_F(MessageDigestFileTest, AFailedReadIsReported) {
  EXPECT_EQ(thrownFor<CIOException>("/proc/self/mem"),
            "CInputOutputStream::read(/proc/self/mem): can't read file, error = Input/output error");
}

TEST_F(MessageDigestFileTest, AFileThatIsCutOffWhileItIsReadCountsAsFarAsItWent) {
  writeFile(path_, std::string(100000, 'x'));
  const CMessageDigest digest(fileURL(path_), 2, [&](std::uint64_t bytes) {
    if (bytes == 8192) std::filesystem::resize_file(path_, 8192);
  });
  EXPECT_EQ(digest.hexText()->str(), digestOfBytes(std::string(8192, 'x'), 2));
}

TEST_F(MessageDigestFileTest, AFailureLeavesNoResult) {
  writeFile(path_, "abc");
  CMessageDigest digest(fileURL(path_), 2);
  EXPECT_EQ(digest.hexText()->str(), "900150983cd24fb0d6963f7d28e17f72");
  std::filesystem::remove(path_);
  EXPECT_THROW(digest.digest(), CFileException);
  EXPECT_TRUE(digest.result().isNull());
  EXPECT_EQ(digest.hexText()->str(), "");
  writeFile(path_, "");
  digest.digest();
  EXPECT_EQ(digest.hexText()->str(), "d41d8cd98f00b204e9800998ecf8427e");
}

TEST_F(MessageDigestFileTest, WhatTheProgressThrowsEndsTheComputation) {
  struct Enough {};
  writeFile(path_, std::string(100000, 'x'));
  int calls = 0;
  const auto stopping = [&](std::uint64_t) {
    if (++calls == 3) throw Enough();
  };
  EXPECT_THROW(CMessageDigest(fileURL(path_), 2, stopping), Enough);
  EXPECT_EQ(calls, 3);
}

// The limit holds for what is opened from then on.
TEST_F(MessageDigestFileTest, WithoutDescriptorsItFailsAndWorksAgainWithThem) {
  writeFile(path_, "abc");
  EXPECT_EQ(inChild([this] {
              rlimit limit{};
              ::getrlimit(RLIMIT_NOFILE, &limit);
              const rlimit none = {0, limit.rlim_max};
              if (::setrlimit(RLIMIT_NOFILE, &none) != 0) return 1;
              int failures = 0;
              for (int i = 0; i < 1000; ++i) {
                try {
                  digestOfFile(path_, 2);
                } catch (const CException&) {  // the file's, or the algorithm's where libcrypto cannot be loaded
                  ++failures;
                }
              }
              if (failures != 1000) return 2;
              ::setrlimit(RLIMIT_NOFILE, &limit);
              const int lowest = ::dup(0);
              const bool works = digestOfFile(path_, 2) == "900150983cd24fb0d6963f7d28e17f72";
              return works && lowest < 20 ? 0 : 3;
            }),
            0);
}

}  // namespace
