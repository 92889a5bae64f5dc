// descriptor.h: the owner of one file descriptor. Everything that is opened here is close-on-exec.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace launchctl {

class Descriptor {
 public:
  Descriptor() noexcept = default;
  // Takes over a descriptor; a negative one stands for none.
  explicit Descriptor(int taken) noexcept : number_(taken) {}
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    if (this != &other) reset(std::exchange(other.number_, -1));
    return *this;
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() { reset(); }

  int get() const noexcept { return number_; }
  explicit operator bool() const noexcept { return number_ >= 0; }

  // Closes what is held, keeping errno.
  void reset(int taken = -1) noexcept {
    const int old = std::exchange(number_, taken);
    if (old < 0) return;
    const int saved = errno;
    ::close(old);
    errno = saved;
  }

 private:
  int number_ = -1;
};

}  // namespace launchctl
