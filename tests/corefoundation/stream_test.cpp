#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "tests/support/property_list_support.h"
#include "tests/support/scratch_home.h"

using test::Held;

namespace {

Held<CFURLRef> url(const std::string& path, bool directory = false) {
  return Held<CFURLRef>(CFURLCreateFromFileSystemRepresentation(nullptr, reinterpret_cast<const UInt8*>(path.data()),
                                                                static_cast<CFIndex>(path.size()), directory));
}

Held<CFReadStreamRef> reader(const std::string& path) {
  return Held<CFReadStreamRef>(CFReadStreamCreateWithFile(nullptr, url(path).get()));
}

Held<CFWriteStreamRef> writer(const std::string& path) {
  return Held<CFWriteStreamRef>(CFWriteStreamCreateWithFile(nullptr, url(path).get()));
}

CFIndex write(const Held<CFWriteStreamRef>& stream, const std::string& bytes) {
  return CFWriteStreamWrite(stream.get(), reinterpret_cast<const UInt8*>(bytes.data()),
                            static_cast<CFIndex>(bytes.size()));
}

std::string readAll(const Held<CFReadStreamRef>& stream, CFIndex piece) {
  std::string result;
  std::string buffer(static_cast<std::size_t>(piece), '\0');
  for (;;) {
    const CFIndex count = CFReadStreamRead(stream.get(), reinterpret_cast<UInt8*>(buffer.data()), piece);
    if (count <= 0) return result + (count < 0 ? "(error)" : "");
    result.append(buffer, 0, static_cast<std::size_t>(count));
  }
}

// The descriptors of this process that lead to the path, and whether each is close-on-exec.
int openDescriptors(const std::string& path, bool& allCloseOnExec) {
  int count = 0;
  allCloseOnExec = true;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code ignored;
    if (std::filesystem::read_symlink(entry.path(), ignored) != path) continue;
    ++count;
    const int flags = ::fcntl(std::stoi(entry.path().filename().string()), F_GETFD);
    allCloseOnExec = allCloseOnExec && (flags & FD_CLOEXEC) != 0;
  }
  return count;
}

class StreamTest : public ::testing::Test {
 protected:
  const std::string folder = test::scratchFolder("stream");
  const std::string path = folder + "/a file with blanks é.txt";
};

TEST_F(StreamTest, AFileIsWrittenAndReadBack) {
  const Held<CFWriteStreamRef> out = writer(path);
  EXPECT_EQ(CFWriteStreamGetStatus(out.get()), kCFStreamStatusNotOpen);
  EXPECT_EQ(write(out, "too early"), -1);
  EXPECT_FALSE(CFWriteStreamCanAcceptBytes(out.get()));
  EXPECT_EQ(CFWriteStreamGetStatus(out.get()), kCFStreamStatusNotOpen);
  ASSERT_TRUE(CFWriteStreamOpen(out.get()));
  EXPECT_FALSE(CFWriteStreamOpen(out.get())) << "opened twice";
  EXPECT_EQ(CFWriteStreamGetStatus(out.get()), kCFStreamStatusOpen);
  EXPECT_TRUE(CFWriteStreamCanAcceptBytes(out.get()));
  EXPECT_EQ(write(out, "hello "), 6);
  EXPECT_EQ(write(out, ""), 0);
  EXPECT_EQ(write(out, "world"), 5);
  CFWriteStreamClose(out.get());
  EXPECT_EQ(CFWriteStreamGetStatus(out.get()), kCFStreamStatusClosed);
  EXPECT_EQ(write(out, "too late"), -1);

  const Held<CFReadStreamRef> in = reader(path);
  UInt8 byte = 0;
  EXPECT_EQ(CFReadStreamRead(in.get(), &byte, 1), -1);
  EXPECT_FALSE(CFReadStreamHasBytesAvailable(in.get()));
  ASSERT_TRUE(CFReadStreamOpen(in.get()));
  EXPECT_TRUE(CFReadStreamHasBytesAvailable(in.get()));
  EXPECT_EQ(readAll(in, 4), "hello world");
  EXPECT_EQ(CFReadStreamGetStatus(in.get()), kCFStreamStatusAtEnd);
  EXPECT_FALSE(CFReadStreamHasBytesAvailable(in.get()));
  EXPECT_EQ(CFReadStreamRead(in.get(), &byte, 1), 0) << "at the end";
  CFReadStreamClose(in.get());
  EXPECT_EQ(CFReadStreamGetStatus(in.get()), kCFStreamStatusClosed);
  EXPECT_EQ(CFReadStreamCopyError(in.get()), nullptr);
}

TEST_F(StreamTest, WritingTruncatesAndAppendingDoesNot) {
  test::writeFile(path, "a long old content");
  {
    const Held<CFWriteStreamRef> out = writer(path);
    ASSERT_TRUE(CFWriteStreamOpen(out.get()));
    write(out, "new");
  }  // releasing closes
  EXPECT_EQ(test::readFile(path), "new");
  const Held<CFWriteStreamRef> out = writer(path);
  EXPECT_TRUE(CFWriteStreamSetProperty(out.get(), kCFStreamPropertyAppendToFile, kCFBooleanTrue));
  EXPECT_EQ(CFWriteStreamCopyProperty(out.get(), kCFStreamPropertyAppendToFile), kCFBooleanTrue);
  ASSERT_TRUE(CFWriteStreamOpen(out.get()));
  EXPECT_FALSE(CFWriteStreamSetProperty(out.get(), kCFStreamPropertyAppendToFile, kCFBooleanFalse)) << "too late";
  write(out, "er");
  CFWriteStreamClose(out.get());
  EXPECT_EQ(test::readFile(path), "newer");
}

TEST_F(StreamTest, NewFilesHaveTheUsualMode) {
  const mode_t old = ::umask(027);
  const Held<CFWriteStreamRef> out = writer(path);
  const bool opened = CFWriteStreamOpen(out.get());
  ::umask(old);
  ASSERT_TRUE(opened);
  struct stat facts {};
  ASSERT_EQ(::stat(path.c_str(), &facts), 0);
  EXPECT_EQ(facts.st_mode & 07777, 0640u);
}

TEST_F(StreamTest, DescriptorsAreCloseOnExecAndClosed) {
  bool closeOnExec = false;
  {
    const Held<CFWriteStreamRef> out = writer(path);
    ASSERT_TRUE(CFWriteStreamOpen(out.get()));
    const Held<CFReadStreamRef> in = reader(path);
    ASSERT_TRUE(CFReadStreamOpen(in.get()));
    EXPECT_EQ(openDescriptors(path, closeOnExec), 2);
    EXPECT_TRUE(closeOnExec);
  }
  EXPECT_EQ(openDescriptors(path, closeOnExec), 0);
}

TEST_F(StreamTest, WhatIsNoFileIsADefinedErrorAndDoesNotBlock) {
  const std::string fifo = folder + "/fifo", socketPath = folder + "/socket";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  const int server = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  ASSERT_LT(socketPath.size(), sizeof address.sun_path);
  std::strcpy(address.sun_path, socketPath.c_str());
  ASSERT_EQ(::bind(server, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  const struct {
    std::string path;
    int reading;
    int writing;
  } cases[] = {{folder, EISDIR, EISDIR},
               {fifo, EINVAL, EINVAL},
               {socketPath, EINVAL, EINVAL},
               {"/dev/null", EINVAL, EINVAL},
               {folder + "/no", ENOENT, 0},
               {folder + "/missing/file", ENOENT, ENOENT},
               {"/dev/null/file", ENOTDIR, ENOTDIR}};
  for (const auto& [where, reading, writing] : cases) {
    const Held<CFReadStreamRef> in = reader(where);
    EXPECT_FALSE(CFReadStreamOpen(in.get())) << where;
    EXPECT_EQ(CFReadStreamGetStatus(in.get()), kCFStreamStatusError) << where;
    EXPECT_EQ(CFReadStreamGetError(in.get()).domain, kCFStreamErrorDomainPOSIX) << where;
    EXPECT_EQ(CFReadStreamGetError(in.get()).error, reading) << where;
    const Held<CFErrorRef> error(CFReadStreamCopyError(in.get()));
    ASSERT_TRUE(error) << where;
    EXPECT_EQ(CFErrorGetCode(error.get()), reading) << where;
    EXPECT_TRUE(CFEqual(CFErrorGetDomain(error.get()), kCFErrorDomainPOSIX)) << where;

    const Held<CFWriteStreamRef> out = writer(where);
    EXPECT_EQ(CFWriteStreamOpen(out.get()), writing == 0) << where;
    EXPECT_EQ(CFWriteStreamGetError(out.get()).error, writing) << where;
  }
  ::close(server);
}

TEST_F(StreamTest, AFIFOWithAReaderGetsNothing) {
  const std::string fifo = folder + "/fifo";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  const int end = ::open(fifo.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  const Held<CFWriteStreamRef> out = writer(fifo);
  EXPECT_FALSE(CFWriteStreamOpen(out.get()));
  EXPECT_EQ(CFWriteStreamGetError(out.get()).error, EINVAL);
  ::close(end);
}

TEST_F(StreamTest, OnlyFileURLsMakeStreams) {
  const Held<CFURLRef> web(CFURLCreateWithString(nullptr, CFSTR("http://example.org/a"), nullptr));
  EXPECT_EQ(CFReadStreamCreateWithFile(nullptr, web.get()), nullptr);
  EXPECT_EQ(CFWriteStreamCreateWithFile(nullptr, web.get()), nullptr);
  EXPECT_EQ(CFReadStreamCreateWithFile(nullptr, nullptr), nullptr);
}

TEST_F(StreamTest, AFullDeviceIsAnErrorOfTheStream) {
  // The file-size limit stands in for a full disk: a short write first, then the error.
  const auto oldHandler = ::signal(SIGXFSZ, SIG_IGN);
  rlimit old{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &old), 0);
  rlimit small = old;
  small.rlim_cur = 1000;
  const Held<CFWriteStreamRef> out = writer(path);
  ASSERT_TRUE(CFWriteStreamOpen(out.get()));
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
  const CFIndex first = write(out, std::string(1500, 'x'));
  const CFIndex second = write(out, std::string(500, 'x'));
  ::setrlimit(RLIMIT_FSIZE, &old);
  ::signal(SIGXFSZ, oldHandler);
  EXPECT_EQ(first, 1000);
  EXPECT_EQ(second, -1);
  EXPECT_EQ(CFWriteStreamGetStatus(out.get()), kCFStreamStatusError);
  EXPECT_EQ(CFWriteStreamGetError(out.get()).domain, kCFStreamErrorDomainPOSIX);
  EXPECT_EQ(CFWriteStreamGetError(out.get()).error, EFBIG);
  EXPECT_FALSE(CFWriteStreamCanAcceptBytes(out.get()));
  EXPECT_EQ(write(out, "more"), -1);
}

TEST_F(StreamTest, AListOnAFullDeviceIsAnErrorWithTheCause) {
  const auto oldHandler = ::signal(SIGXFSZ, SIG_IGN);
  rlimit old{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &old), 0);
  rlimit small = old;
  small.rlim_cur = 100;
  const Held<CFWriteStreamRef> out = writer(path);
  ASSERT_TRUE(CFWriteStreamOpen(out.get()));
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
  Held<CFErrorRef> error;
  const CFIndex written = CFPropertyListWrite(CFSTR("text"), out.get(), kCFPropertyListXMLFormat_v1_0, 0, error.out());
  ::setrlimit(RLIMIT_FSIZE, &old);
  ::signal(SIGXFSZ, oldHandler);
  EXPECT_EQ(written, 0);
  ASSERT_TRUE(error);
  EXPECT_EQ(CFErrorGetCode(error.get()), kCFPropertyListWriteStreamError);
  const Held<CFDictionaryRef> information(CFErrorCopyUserInfo(error.get()));
  const auto* const cause =
      static_cast<CFErrorRef>(CFDictionaryGetValue(information.get(), kCFErrorUnderlyingErrorKey));
  ASSERT_NE(cause, nullptr);
  EXPECT_EQ(CFErrorGetCode(cause), EFBIG);
}

TEST_F(StreamTest, MemoryIsReadInPieces) {
  const std::string bytes = "0123456789";
  const Held<CFReadStreamRef> in(
      CFReadStreamCreateWithBytesNoCopy(nullptr, reinterpret_cast<const UInt8*>(bytes.data()), 10, kCFAllocatorNull));
  ASSERT_TRUE(CFReadStreamOpen(in.get()));
  UInt8 buffer[4];
  EXPECT_EQ(CFReadStreamRead(in.get(), buffer, 4), 4);
  CFIndex count = -1;
  const UInt8* const ahead = CFReadStreamGetBuffer(in.get(), 3, &count);
  EXPECT_EQ(count, 3);
  EXPECT_EQ(ahead, reinterpret_cast<const UInt8*>(bytes.data()) + 4);
  EXPECT_TRUE(CFReadStreamHasBytesAvailable(in.get()));
  EXPECT_EQ(readAll(in, 100), "789");
  EXPECT_FALSE(CFReadStreamHasBytesAvailable(in.get()));
  EXPECT_EQ(CFReadStreamGetStatus(in.get()), kCFStreamStatusAtEnd);
  EXPECT_EQ(CFReadStreamGetBuffer(in.get(), 0, &count), nullptr);
  EXPECT_EQ(CFReadStreamRead(in.get(), nullptr, 1), -1);
  EXPECT_EQ(CFReadStreamRead(in.get(), buffer, -1), -1);
}

TEST_F(StreamTest, BytesHandedOverAreFreed) {
  auto* const bytes = static_cast<UInt8*>(std::malloc(3));
  ASSERT_NE(bytes, nullptr);
  std::memcpy(bytes, "abc", 3);
  const Held<CFReadStreamRef> in(CFReadStreamCreateWithBytesNoCopy(nullptr, bytes, 3, kCFAllocatorDefault));
  ASSERT_TRUE(CFReadStreamOpen(in.get()));
  EXPECT_EQ(readAll(in, 2), "abc");
  EXPECT_EQ(CFReadStreamCreateWithBytesNoCopy(nullptr, nullptr, 1, kCFAllocatorNull), nullptr);
}

TEST_F(StreamTest, GrowingMemoryKeepsWhatItTook) {
  const Held<CFWriteStreamRef> out(CFWriteStreamCreateWithAllocatedBuffers(nullptr, nullptr));
  ASSERT_TRUE(CFWriteStreamOpen(out.get()));
  std::string expected;
  for (int i = 0; i < 1000; ++i) {
    write(out, std::to_string(i) + ",");
    expected += std::to_string(i) + ",";
  }
  CFWriteStreamClose(out.get());
  const Held<CFTypeRef> data(CFWriteStreamCopyProperty(out.get(), kCFStreamPropertyDataWritten));
  EXPECT_EQ(test::bytes(static_cast<CFDataRef>(data.get())), expected);
  EXPECT_EQ(CFWriteStreamCopyProperty(out.get(), kCFStreamPropertyAppendToFile), nullptr);
  EXPECT_FALSE(CFWriteStreamSetProperty(out.get(), kCFStreamPropertyDataWritten, nullptr));
}

TEST_F(StreamTest, AFixedBufferFillsUpAndThenRefuses) {
  std::array<UInt8, 6> buffer{};
  const Held<CFWriteStreamRef> out(CFWriteStreamCreateWithBuffer(nullptr, buffer.data(), 5));
  ASSERT_TRUE(CFWriteStreamOpen(out.get()));
  EXPECT_EQ(write(out, "abc"), 3);
  EXPECT_EQ(write(out, "defg"), 2);
  EXPECT_FALSE(CFWriteStreamCanAcceptBytes(out.get()));
  EXPECT_EQ(write(out, "h"), -1);
  EXPECT_EQ(CFWriteStreamGetError(out.get()).error, ENOMEM);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(buffer.data()), 5), "abcde");
  EXPECT_EQ(buffer[5], 0);
}

TEST_F(StreamTest, StreamsAreKindsOfTheirOwn) {
  const Held<CFReadStreamRef> in = reader(path);
  const Held<CFWriteStreamRef> out = writer(path);
  EXPECT_EQ(CFGetTypeID(in.get()), CFReadStreamGetTypeID());
  EXPECT_EQ(CFGetTypeID(out.get()), CFWriteStreamGetTypeID());
  EXPECT_NE(CFReadStreamGetTypeID(), CFWriteStreamGetTypeID());
  EXPECT_EQ(CFReadStreamCopyProperty(in.get(), kCFStreamPropertyDataWritten), nullptr);
  EXPECT_FALSE(CFReadStreamSetProperty(in.get(), kCFStreamPropertyAppendToFile, kCFBooleanTrue));
}

}  // namespace
