// frame.h: requests and replies between launchctl and its host: the length in four bytes, the most significant first,
// then a property list in XML. messages.h names the members.
#pragma once

#include <optional>
#include <string>

#include "tools/launchctl/property_list.h"

namespace launchctl {

inline constexpr std::size_t kLargestFrame = std::size_t{16} << 20U;

std::string frame(const Dictionary& list);

// Puts frames together from the bytes that arrive.
class FrameReader {
 public:
  void append(const char* bytes, std::size_t count) { buffer_.append(bytes, count); }
  // The next whole frame's list, if there is one. Failure for a length beyond kLargestFrame and for a list that cannot
  // be read: nothing sensible follows.
  std::optional<Dictionary> next();

 private:
  std::string buffer_;
};

}  // namespace launchctl
