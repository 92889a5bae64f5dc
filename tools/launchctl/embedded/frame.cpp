#include "tools/launchctl/embedded/frame.h"

#include <cstdint>

#include "tools/launchctl/failure.h"

namespace launchctl {
namespace {

constexpr std::size_t kHead = 4;

}  // namespace

std::string frame(const Dictionary& list) {
  const std::string body = xml(list.get());
  if (body.size() > kLargestFrame) throw Failure("the message is larger than 16 MiB");
  std::string bytes;
  for (unsigned int shift = 32; shift != 0;) {
    shift -= 8;
    bytes += static_cast<char>(body.size() >> shift & 0xffU);
  }
  return bytes + body;
}

std::optional<Dictionary> FrameReader::next() {
  if (buffer_.size() < kHead) return std::nullopt;
  std::size_t length = 0;
  for (std::size_t index = 0; index < kHead; ++index)
    length = length << 8U | static_cast<unsigned char>(buffer_[index]);
  if (length > kLargestFrame) throw Failure("a message of " + std::to_string(length) + " bytes");
  if (buffer_.size() < kHead + length) return std::nullopt;
  const Dictionary list = parseDictionary(buffer_.substr(kHead, length));
  buffer_.erase(0, kHead + length);
  return list;
}

}  // namespace launchctl
