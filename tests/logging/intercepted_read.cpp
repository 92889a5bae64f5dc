// The libraries' reads go through these definitions, which the dynamic linker takes before the C library's.
#include "tests/logging/intercepted_read.h"

#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <utility>

namespace {

thread_local test::InterceptedRead* current = nullptr;

}  // namespace

extern "C" [[gnu::visibility("default")]] ssize_t read(int descriptor, void* bytes, size_t count) {
  test::InterceptedRead::beforeRead(descriptor);
  return ::syscall(SYS_read, descriptor, bytes, count);
}

extern "C" [[gnu::visibility("default")]] ssize_t pread(int descriptor, void* bytes, size_t count, off_t offset) {
  test::InterceptedRead::beforeRead(descriptor);
  return ::syscall(SYS_pread64, descriptor, bytes, count, offset);
}

extern "C" [[gnu::visibility("default")]] ssize_t pread64(int descriptor, void* bytes, size_t count, off64_t offset) {
  test::InterceptedRead::beforeRead(descriptor);
  return ::syscall(SYS_pread64, descriptor, bytes, count, offset);
}

extern "C" [[gnu::visibility("default")]] ssize_t readv(int descriptor, const iovec* pieces, int count) {
  test::InterceptedRead::beforeRead(descriptor);
  return ::syscall(SYS_readv, descriptor, pieces, count);
}

namespace test {

InterceptedRead::InterceptedRead(const std::string& path, const std::function<void()>& action)
    : path_(path), action_(action) {
  current = this;
}
InterceptedRead::~InterceptedRead() { current = nullptr; }

void InterceptedRead::beforeRead(int descriptor) {
  if (current == nullptr || current->count_ != 0) return;
  struct stat read {
  }, named{};
  if (::fstat(descriptor, &read) != 0 || ::stat(current->path_.c_str(), &named) != 0) return;
  if (read.st_dev != named.st_dev || read.st_ino != named.st_ino) return;
  ++current->count_;
  current->action_();
}

}  // namespace test
