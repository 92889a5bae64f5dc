// bus_descriptor.h: the owner of one file descriptor, for the sockets and locks of the bus.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace cf {

class BusDescriptor {
 public:
  BusDescriptor() noexcept = default;
  // Takes over a close-on-exec descriptor; a negative one stands for none.
  explicit BusDescriptor(int taken) noexcept : number_(taken) {}
  BusDescriptor(BusDescriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  BusDescriptor& operator=(BusDescriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }
  BusDescriptor(const BusDescriptor&) = delete;
  BusDescriptor& operator=(const BusDescriptor&) = delete;
  // Keeps errno.
  ~BusDescriptor() {
    const int saved = errno;
    if (number_ >= 0) ::close(number_);
    errno = saved;
  }

  int get() const noexcept { return number_; }
  explicit operator bool() const noexcept { return number_ >= 0; }

 private:
  int number_ = -1;
};

}  // namespace cf
