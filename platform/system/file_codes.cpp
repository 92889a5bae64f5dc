#include "platform/system/file_codes.h"

#include <sys/xattr.h>

#include <cerrno>

namespace platform {
namespace {

constexpr const char* kAttribute = "user.tovan.finder-info";
constexpr std::size_t kSize = 8;

std::uint32_t decode(const unsigned char* bytes) noexcept {
  return std::uint32_t{bytes[0]} << 24 | std::uint32_t{bytes[1]} << 16 | std::uint32_t{bytes[2]} << 8 | bytes[3];
}

void encode(std::uint32_t code, unsigned char* bytes) noexcept {
  for (int i = 0; i < 4; ++i) bytes[i] = static_cast<unsigned char>(code >> (24 - 8 * i));
}

}  // namespace

FileCodes fileCodes(const std::string& path) noexcept {
  unsigned char bytes[kSize];
  if (::getxattr(path.c_str(), kAttribute, bytes, sizeof bytes) != static_cast<ssize_t>(kSize)) return {};
  return {decode(bytes), decode(bytes + 4)};
}

bool setFileCodes(const std::string& path, FileCodes codes) noexcept {
  if (codes.type == 0 && codes.creator == 0) {
    return ::removexattr(path.c_str(), kAttribute) == 0 || errno == ENODATA;
  }
  unsigned char bytes[kSize];
  encode(codes.type, bytes);
  encode(codes.creator, bytes + 4);
  return ::setxattr(path.c_str(), kAttribute, bytes, sizeof bytes, 0) == 0;
}

}  // namespace platform
