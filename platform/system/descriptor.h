// descriptor.h: Descriptor, the owner of one file descriptor.
//
// Descriptors of this library never reach a child: every way in sets close-on-exec atomically. An object belongs to
// one thread at a time.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <utility>

namespace platform {

class Descriptor {
 public:
  Descriptor() noexcept = default;
  // Takes over a descriptor that was opened with close-on-exec; a negative one stands for none.
  explicit Descriptor(int taken) noexcept : number_(taken) {}
  Descriptor(Descriptor&& other) noexcept : number_(other.release()) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    if (this != &other) reset(other.release());
    return *this;
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() { reset(); }

  // open(2) with close-on-exec, begun again when a signal interrupts it. On failure the result is empty and errno says
  // why.
  static Descriptor open(const char* path, int flags, mode_t mode = 0) noexcept {
    int number;
    do {
      number = ::open(path, flags | O_CLOEXEC, mode);
    } while (number < 0 && errno == EINTR);
    return Descriptor(number);
  }
  // A second descriptor of the same open file, close-on-exec as well. Empty, with errno, on failure.
  Descriptor duplicate() const noexcept { return Descriptor(::fcntl(number_, F_DUPFD_CLOEXEC, 0)); }

  // -1 when there is none.
  int get() const noexcept { return number_; }
  explicit operator bool() const noexcept { return number_ >= 0; }

  // Hands the descriptor to the caller, who closes it.
  [[nodiscard]] int release() noexcept { return std::exchange(number_, -1); }

  // Closes what is held, keeping errno, and takes over another one. A failing close is not reported: whoever needs to
  // know that data has arrived calls fsync first. It is not repeated after EINTR, as the number is free by then.
  void reset(int taken = -1) noexcept {
    const int old = std::exchange(number_, taken);
    if (old < 0 || old == taken) return;
    const int saved = errno;
    ::close(old);
    errno = saved;
  }

 private:
  int number_ = -1;
};

// write(2) until all is written, begun again when a signal interrupts it; false, with errno, on failure.
inline bool writeAll(const Descriptor& file, const void* bytes, std::size_t count) noexcept {
  for (const char* next = static_cast<const char*>(bytes); count > 0;) {
    const ssize_t written = ::write(file.get(), next, count);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    next += written;
    count -= static_cast<std::size_t>(written);
  }
  return true;
}

}  // namespace platform
