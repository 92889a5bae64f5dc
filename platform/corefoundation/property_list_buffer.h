// property_list_buffer.h: the bytes of a list while it is written: one block that grows by doubling and becomes the
// data object without a copy.
#pragma once

#include "platform/corefoundation/data.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>

namespace cf {

class ListBuffer {
 public:
  ListBuffer() = default;
  ~ListBuffer() { std::free(block_); }
  ListBuffer(const ListBuffer&) = delete;
  ListBuffer& operator=(const ListBuffer&) = delete;

  std::size_t size() const { return size_; }

  // Room for at least `count` bytes behind the last; `advanceTo` says how far it was filled.
  char* room(std::size_t count) {
    if (capacity_ - size_ < count) grow(count);
    return block_ + size_;
  }
  void advanceTo(const char* end) { size_ = static_cast<std::size_t>(end - block_); }

  void append(std::string_view text) {
    std::memcpy(room(text.size()), text.data(), text.size());
    size_ += text.size();
  }

  // The buffer is empty afterwards. The caller owns the data.
  CFDataRef takeData() {
    if (char* const smaller = static_cast<char*>(std::realloc(block_, size_ == 0 ? 1 : size_)); smaller != nullptr) {
      block_ = smaller;
      capacity_ = size_;
    }
    const CFDataRef data = createDataTaking(reinterpret_cast<std::uint8_t*>(block_), static_cast<CFIndex>(size_));
    block_ = nullptr;
    size_ = capacity_ = 0;
    return data;
  }

 private:
  void grow(std::size_t count) {
    std::size_t wanted = capacity_ == 0 ? 4096 : capacity_ * 2;
    while (wanted - size_ < count) wanted *= 2;
    char* const larger = static_cast<char*>(std::realloc(block_, wanted));
    if (larger == nullptr) throw std::bad_alloc();
    block_ = larger;
    capacity_ = wanted;
  }

  char* block_ = nullptr;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
};

}  // namespace cf
