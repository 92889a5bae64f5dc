#include <gtest/gtest.h>
#include <plinth/exception.h>
#include <plinth/input_output_stream.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <string>

#include "tests/foundation/plinth_text.h"
#include "tests/support/scratch_home.h"

namespace {

using namespace plinth;
using Mode = CInputOutputStream::Mode;
using Origin = CInputOutputStream::Origin;
using test::messageOf;

CURLRef urlOf(const std::string& path) { return makeShared<CURL>(CSTR(path), kCFURLPOSIXPathStyle, false); }

class CInputOutputStreamTest : public testing::Test {
 protected:
  CInputOutputStreamRef open(Mode mode, mode_t permission = 0644) {
    return CInputOutputStream::NewInputOutput(urlOf(path_), mode, permission);
  }
  std::string messagePath() const { return "(" + path_ + ")"; }
  std::string content() const { return test::readFile(path_); }

  const std::string folder_ = test::scratchFolder("stream");
  // A name with everything that a careless path would trip over.
  const std::string path_ = folder_ + "/a file \"x\" #1?%20 caf\u00e9\n";
};

std::string readAll(const CInputOutputStreamRef& stream, std::size_t most = 1000) {
  CBuffer buffer;
  stream->read(buffer, most);
  return {reinterpret_cast<const char*>(buffer.data()), buffer.size()};
}

TEST_F(CInputOutputStreamTest, ReadsAFile) {
  test::writeFile(path_, "hello");
  const CInputOutputStreamRef stream = open(Mode::read);
  EXPECT_TRUE(stream->isOpen());
  EXPECT_EQ(stream->getMode(), Mode::read);
  EXPECT_EQ(test::text(stream->getURL()->getFileSystemPath()), path_);
  EXPECT_EQ(stream->size(), 5);
  EXPECT_EQ(readAll(stream, 2), "he");
  EXPECT_EQ(stream->tell(), 2);
  char bytes[8] = {};
  EXPECT_EQ(stream->read(bytes, sizeof bytes), 3u);
  EXPECT_STREQ(bytes, "llo");
  EXPECT_EQ(stream->read(bytes, sizeof bytes), 0u);
  EXPECT_EQ(readAll(stream), "");
}

TEST_F(CInputOutputStreamTest, ReadsChunksUpToTheExactEnd) {
  test::writeFile(path_, std::string(8192 * 2 + 1, 'x'));
  const CInputOutputStreamRef stream = open(Mode::read);
  CBuffer buffer;
  EXPECT_EQ(stream->read(buffer, 8192), 8192u);
  EXPECT_EQ(stream->read(buffer, 8192), 8192u);
  EXPECT_EQ(stream->read(buffer, 8192), 1u);
  EXPECT_EQ(buffer.size(), 1u);
  EXPECT_EQ(stream->read(buffer, 8192), 0u);
}

TEST_F(CInputOutputStreamTest, WriteEmptiesTheFile) {
  test::writeFile(path_, "old content");
  const CInputOutputStreamRef stream = open(Mode::write);
  EXPECT_EQ(content(), "");
  stream->write("new", 3);
  stream->write(CBuffer("er", 2));
  EXPECT_EQ(content(), "newer");
}

TEST_F(CInputOutputStreamTest, ReadWriteKeepsWhatTheFileHolds) {
  test::writeFile(path_, "abcdef");
  const CInputOutputStreamRef stream = open(Mode::readWrite);
  EXPECT_EQ(readAll(stream, 2), "ab");
  stream->write("XY", 2);
  EXPECT_EQ(readAll(stream), "ef");
  EXPECT_EQ(content(), "abXYef");
}

TEST_F(CInputOutputStreamTest, AppendWritesToTheEndWhereverThatIs) {
  test::writeFile(path_, "one");
  const CInputOutputStreamRef first = open(Mode::append);
  const CInputOutputStreamRef second = open(Mode::append);
  first->write(" two", 4);
  second->write(" three", 6);
  first->seek(0);
  first->write(" four", 5);
  EXPECT_EQ(content(), "one two three four");
}

TEST_F(CInputOutputStreamTest, CreateExclusiveMakesAFileOnlyOnce) {
  const CInputOutputStreamRef stream = open(Mode::createExclusive);
  stream->write("x", 1);
  stream->seek(0);
  EXPECT_EQ(readAll(stream), "x");
  EXPECT_EQ(messageOf<CFileException>([&] { open(Mode::createExclusive); }),
            "CInputOutputStream::NewInputOutput" + messagePath() + ": can't open file, error = File exists");
}

TEST_F(CInputOutputStreamTest, CreateExclusiveDoesNotFollowALink) {
  std::filesystem::create_symlink(folder_ + "/target", path_);
  messageOf<CFileException>([&] { open(Mode::createExclusive); });
  EXPECT_FALSE(test::exists(folder_ + "/target"));
}

TEST_F(CInputOutputStreamTest, ANewFileGetsThePermissionLessTheUmask) {
  const mode_t old = ::umask(027);
  for (const Mode mode : {Mode::write, Mode::readWrite, Mode::append, Mode::createExclusive}) {
    std::filesystem::remove(path_);
    open(mode, 0666);
    struct stat status;
    EXPECT_EQ(::stat(path_.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640u);
  }
  ::umask(old);
}

TEST_F(CInputOutputStreamTest, SeeksFromTheStartThePositionAndTheEnd) {
  test::writeFile(path_, "0123456789");
  const CInputOutputStreamRef stream = open(Mode::read);
  EXPECT_EQ(stream->seek(4), 4);
  EXPECT_EQ(stream->seek(3, Origin::current), 7);
  EXPECT_EQ(readAll(stream, 1), "7");
  EXPECT_EQ(stream->seek(-2, Origin::end), 8);
  EXPECT_EQ(readAll(stream), "89");
  EXPECT_EQ(stream->seek(100), 100);
  EXPECT_EQ(readAll(stream), "");
}

TEST_F(CInputOutputStreamTest, ASeekBeforeTheStartIsAnError) {
  test::writeFile(path_, "0123456789");
  const CInputOutputStreamRef stream = open(Mode::read);
  stream->seek(3);
  EXPECT_EQ(messageOf<CIOException>([&] { stream->seek(-1); }),
            "CInputOutputStream::seek" + messagePath() + ": can't seek in file, error = Invalid argument");
  messageOf<CIOException>([&] { stream->seek(INT64_MIN, Origin::current); });
  messageOf<CIOException>([&] { stream->seek(INT64_MAX, Origin::end); });
  EXPECT_EQ(stream->tell(), 3);
}

TEST_F(CInputOutputStreamTest, TruncatesAndFillsUpWithZeros) {
  const CInputOutputStreamRef stream = open(Mode::readWrite);
  stream->write("abcdef", 6);
  stream->truncate(2);
  EXPECT_EQ(stream->size(), 2);
  EXPECT_EQ(stream->tell(), 6);
  stream->truncate(4);
  EXPECT_EQ(content(), std::string("ab\0\0", 4));
  EXPECT_EQ(messageOf<CIOException>([&] { stream->truncate(-1); }),
            "CInputOutputStream::truncate" + messagePath() + ": can't truncate file, error = Invalid argument");
}

TEST_F(CInputOutputStreamTest, FlushesFilesAndDevices) {
  const CInputOutputStreamRef stream = open(Mode::write);
  stream->write("x", 1);
  EXPECT_NO_THROW(stream->flush());
  const CInputOutputStreamRef device = CInputOutputStream::NewInputOutput(urlOf("/dev/null"), Mode::readWrite);
  device->write("x", 1);
  EXPECT_NO_THROW(device->flush());
  EXPECT_EQ(readAll(device), "");
}

TEST_F(CInputOutputStreamTest, EveryOperationOnAClosedStreamIsAnError) {
  const CInputOutputStreamRef stream = open(Mode::readWrite);
  stream->close();
  stream->close();
  EXPECT_FALSE(stream->isOpen());
  char byte = 0;
  const std::string reason = ", error = Bad file descriptor";
  EXPECT_EQ(messageOf<CIOException>([&] { stream->read(&byte, 1); }),
            "CInputOutputStream::read" + messagePath() + ": can't read file" + reason);
  EXPECT_EQ(messageOf<CIOException>([&] { stream->write(&byte, 1); }),
            "CInputOutputStream::write" + messagePath() + ": can't write file" + reason);
  EXPECT_EQ(messageOf<CIOException>([&] { stream->size(); }),
            "CInputOutputStream::size" + messagePath() + ": can't get size of file" + reason);
  EXPECT_EQ(messageOf<CIOException>([&] { stream->flush(); }),
            "CInputOutputStream::flush" + messagePath() + ": can't flush file" + reason);
  messageOf<CIOException>([&] { stream->seek(0); });
  messageOf<CIOException>([&] { stream->tell(); });
  messageOf<CIOException>([&] { stream->truncate(0); });
}

TEST_F(CInputOutputStreamTest, WritingToAReadStreamIsAnErrorWithItsErrno) {
  test::writeFile(path_, "x");
  const CInputOutputStreamRef stream = open(Mode::read);
  try {
    stream->write("y", 1);
    ADD_FAILURE() << "nothing was thrown";
  } catch (const CIOException& exception) {
    EXPECT_EQ(exception.getCode(), EBADF);
    EXPECT_EQ(exception.getKind(), ExceptionKind::io);
  }
  EXPECT_EQ(content(), "x");
}

TEST_F(CInputOutputStreamTest, AFailedReadEmptiesTheBuffer) {
  const CInputOutputStreamRef stream = open(Mode::append);
  CBuffer buffer("old", 3);
  messageOf<CIOException>([&] { stream->read(buffer, 10); });
  EXPECT_TRUE(buffer.isEmpty());
}

TEST_F(CInputOutputStreamTest, AFullDeviceIsAnError) {
  const CInputOutputStreamRef stream = CInputOutputStream::NewInputOutput(urlOf("/dev/full"), Mode::readWrite);
  EXPECT_EQ(messageOf<CIOException>([&] { stream->write("x", 1); }),
            "CInputOutputStream::write(/dev/full): can't write file, error = No space left on device");
}

TEST_F(CInputOutputStreamTest, AWriteBeyondTheFileSizeLimitIsAnErrorAndKeepsWhatFits) {
  const CInputOutputStreamRef stream = open(Mode::write);
  const auto oldHandler = std::signal(SIGXFSZ, SIG_IGN);
  struct rlimit old;
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &old), 0);
  const struct rlimit tight = {4, old.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &tight), 0);
  const std::string message = messageOf<CIOException>([&] { stream->write("abcdefgh", 8); });
  ::setrlimit(RLIMIT_FSIZE, &old);
  std::signal(SIGXFSZ, oldHandler);
  EXPECT_EQ(message, "CInputOutputStream::write" + messagePath() + ": can't write file, error = File too large");
  EXPECT_EQ(content(), "abcd");
}

TEST_F(CInputOutputStreamTest, AMissingFileIsAnErrorWithItsErrno) {
  try {
    open(Mode::read);
    ADD_FAILURE() << "nothing was thrown";
  } catch (const CFileException& exception) {
    EXPECT_EQ(exception.getCode(), ENOENT);
    EXPECT_EQ(exception.what(), "CInputOutputStream::NewInputOutput" + messagePath() +
                                    ": can't open file, error = No such file or directory");
  }
  EXPECT_FALSE(test::exists(path_));
}

TEST_F(CInputOutputStreamTest, AFolderIsNoFile) {
  for (const Mode mode : {Mode::read, Mode::write, Mode::readWrite, Mode::append}) {
    EXPECT_EQ(messageOf<CFileException>([&] { CInputOutputStream::NewInputOutput(urlOf(folder_), mode); }),
              "CInputOutputStream::NewInputOutput(" + folder_ + "): can't open file, error = Is a directory");
  }
}

TEST_F(CInputOutputStreamTest, AFIFONeverMakesTheCallWait) {
  ASSERT_EQ(::mkfifo(path_.c_str(), 0600), 0);
  for (const Mode mode : {Mode::read, Mode::write, Mode::readWrite, Mode::append}) {
    messageOf<CFileException>([&] { open(mode); });
  }
  EXPECT_EQ(messageOf<CFileException>([&] { open(Mode::read); }),
            "CInputOutputStream::NewInputOutput" + messagePath() + ": can't open file, error = it is a FIFO");
}

TEST_F(CInputOutputStreamTest, RefusesURLsThatNameNoFile) {
  EXPECT_EQ(messageOf<CNullPointerException>([] { CInputOutputStream::NewInputOutput(nullptr, Mode::read); }),
            "Error: url is null!");
  const CSharedCFRef<CFURLRef> remote(
      CFURLCreateWithString(kCFAllocatorDefault, CFSTR("nfs://host/etc/passwd"), nullptr));
  EXPECT_EQ(messageOf<CParamException>(
                [&] { CInputOutputStream::NewInputOutput(makeShared<CURL>(remote.get()), Mode::read); }),
            "CInputOutputStream::NewInputOutput(nfs://host/etc/passwd): the URL names no file");
  EXPECT_EQ(messageOf<CParamException>([&] { open(static_cast<Mode>(42)); }),
            "CInputOutputStream::NewInputOutput: no such mode: 42");
}

TEST_F(CInputOutputStreamTest, OpensAPathWhoseBytesAreNotUTF8) {
  const std::string path = folder_ + "/caf\xE9";
  test::writeFile(path, "x");
  const CSharedCFRef<CFURLRef> url(CFURLCreateFromFileSystemRepresentation(
      kCFAllocatorDefault, reinterpret_cast<const UInt8*>(path.data()), static_cast<CFIndex>(path.size()), false));
  EXPECT_EQ(readAll(CInputOutputStream::NewInputOutput(makeShared<CURL>(url.get()), Mode::read)), "x");
}

TEST_F(CInputOutputStreamTest, TheDescriptorIsClosedOnExecAndWithTheStream) {
  test::writeFile(path_, "x");
  const int next = ::dup(0);
  ::close(next);
  {
    const CInputOutputStreamRef stream = open(Mode::read);
    EXPECT_EQ(::fcntl(next, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    EXPECT_EQ(::fcntl(next, F_GETFL) & O_NONBLOCK, 0);
  }
  EXPECT_EQ(::fcntl(next, F_GETFD), -1) << "the descriptor is still open";
}

}  // namespace
