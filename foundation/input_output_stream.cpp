#include <plinth/exception.h>
#include <plinth/input_output_stream.h>

#include "platform/system/descriptor.h"
#include "platform/system/error_text.h"

#include <climits>
#include <string>
#include <utility>

namespace plinth {
namespace {

using Mode = CInputOutputStream::Mode;

int openFlags(Mode mode) {
  switch (mode) {
    case Mode::read:
      return O_RDONLY;
    case Mode::write:
      return O_WRONLY | O_CREAT | O_TRUNC;
    case Mode::readWrite:
      return O_RDWR | O_CREAT;
    case Mode::append:
      return O_WRONLY | O_CREAT | O_APPEND;
    case Mode::createExclusive:
      return O_RDWR | O_CREAT | O_EXCL;
  }
  throw CParamException("CInputOutputStream::NewInputOutput: no such mode: %d", static_cast<int>(mode));
}

[[noreturn]] void failOpen(const char* path, int error, const std::string& reason) {
  throw CFileException(error, "CInputOutputStream::NewInputOutput(%s): can't open file, error = %s", path,
                       reason.c_str());
}

// The path of a file URL in the bytes that the kernel takes.
std::string pathOf(const CURLRef& url) {
  UInt8 path[PATH_MAX];
  // A relative URL has no scheme of its own and is resolved against its base.
  const CSharedCFRef<CFURLRef> absolute(CFURLCopyAbsoluteURL(url->getURLRef()));
  const CSharedCFRef<CFStringRef> absoluteScheme(CFURLCopyScheme(absolute.get()));
  if (absoluteScheme.isNull() ||
      CFStringCompare(absoluteScheme.get(), CFSTR("file"), kCFCompareCaseInsensitive) != kCFCompareEqualTo ||
      !CFURLGetFileSystemRepresentation(absolute.get(), true, path, sizeof path)) {
    throw CParamException("CInputOutputStream::NewInputOutput(%s): the URL names no file",
                          url->getString()->getUTF8Ptr());
  }
  return reinterpret_cast<const char*>(path);
}

// Non-blocking until it is known what has been opened: opening a FIFO would wait for its other end.
platform::Descriptor openFile(const char* path, Mode mode, mode_t permission) {
  platform::Descriptor file = platform::Descriptor::open(path, openFlags(mode) | O_NONBLOCK | O_NOCTTY, permission);
  if (!file) failOpen(path, errno, platform::errorText(errno));
  struct stat status;
  if (::fstat(file.get(), &status) != 0) failOpen(path, errno, platform::errorText(errno));
  if (S_ISDIR(status.st_mode)) failOpen(path, EISDIR, platform::errorText(EISDIR));
  if (S_ISFIFO(status.st_mode)) failOpen(path, ENXIO, "it is a FIFO");
  const int flags = ::fcntl(file.get(), F_GETFL);
  if (flags < 0 || ::fcntl(file.get(), F_SETFL, flags & ~O_NONBLOCK) != 0) {
    failOpen(path, errno, platform::errorText(errno));
  }
  return file;
}

}  // namespace

CInputOutputStreamRef CInputOutputStream::NewInputOutput(const CURLRef& url, Mode mode, mode_t permission) {
  if (url.isNull()) throw CNullPointerException("Error: url is null!");
  const std::string path = pathOf(url);
  platform::Descriptor file = openFile(path.c_str(), mode, permission);
  // The stream's URL is its own: parameters that the caller sets later do not show.
  CInputOutputStreamRef stream(new CInputOutputStream(makeShared<CURL>(url->getURLRef()), path, mode));
  stream->descriptor_ = file.release();
  return stream;
}

CInputOutputStream::CInputOutputStream(const CURLRef& url, const std::string& path, Mode mode)
    : url_(url), path_(path), mode_(mode) {}

CInputOutputStream::~CInputOutputStream() { const platform::Descriptor closing(std::exchange(descriptor_, -1)); }

void CInputOutputStream::fail(const char* operation, const char* action, int error) const {
  throw CIOException(error, "CInputOutputStream::%s(%s): can't %s, error = %s", operation, path_.c_str(), action,
                     platform::errorText(error).c_str());
}

std::size_t CInputOutputStream::read(void* bytes, std::size_t size) {
  std::size_t done = 0;
  while (done < size) {
    const ssize_t count = ::read(descriptor_, static_cast<char*>(bytes) + done, size - done);
    if (count == 0) break;
    if (count < 0) {
      if (errno == EINTR) continue;
      fail("read", "read file", errno);
    }
    done += static_cast<std::size_t>(count);
  }
  return done;
}

std::size_t CInputOutputStream::read(CBuffer& buffer, std::size_t size) {
  buffer.resize(size);
  std::size_t count = 0;
  try {
    count = read(buffer.data(), size);
  } catch (const CException&) {
    buffer.clear();
    throw;
  }
  buffer.resize(count);
  return count;
}

void CInputOutputStream::write(const void* bytes, std::size_t size) {
  std::size_t done = 0;
  while (done < size) {
    const ssize_t count = ::write(descriptor_, static_cast<const char*>(bytes) + done, size - done);
    if (count < 0) {
      if (errno == EINTR) continue;
      fail("write", "write file", errno);
    }
    done += static_cast<std::size_t>(count);
  }
}

void CInputOutputStream::write(const CBuffer& buffer) { write(buffer.data(), buffer.size()); }

std::int64_t CInputOutputStream::seek(std::int64_t offset, Origin origin) {
  const int whence = origin == Origin::start ? SEEK_SET : origin == Origin::current ? SEEK_CUR : SEEK_END;
  const off_t position = ::lseek(descriptor_, offset, whence);
  if (position < 0) fail("seek", "seek in file", errno);
  return position;
}

std::int64_t CInputOutputStream::tell() { return seek(0, Origin::current); }

std::int64_t CInputOutputStream::size() {
  struct stat status;
  if (::fstat(descriptor_, &status) != 0) fail("size", "get size of file", errno);
  return status.st_size;
}

void CInputOutputStream::truncate(std::int64_t size) {
  int result;
  do {
    result = ::ftruncate(descriptor_, size);
  } while (result != 0 && errno == EINTR);
  if (result != 0) fail("truncate", "truncate file", errno);
}

void CInputOutputStream::flush() {
  int result;
  do {
    result = ::fsync(descriptor_);
  } while (result != 0 && errno == EINTR);
  // Devices, and file systems that are read only, have nothing to wait for.
  if (result != 0 && errno != EINVAL && errno != EROFS && errno != ENOTSUP) fail("flush", "flush file", errno);
}

void CInputOutputStream::close() {
  if (!isOpen()) return;
  // After EINTR the descriptor is gone all the same.
  if (::close(std::exchange(descriptor_, -1)) != 0 && errno != EINTR) fail("close", "close file", errno);
}

}  // namespace plinth
