#include "platform/system/small_file.h"

#include "platform/system/descriptor.h"

namespace platform {

std::optional<std::string> readSmallFile(int folder, const char* path, std::size_t limit) {
  const Descriptor file(::openat(folder, path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  if (!file) return std::nullopt;
  std::string content(limit, '\0');
  std::size_t used = 0;
  while (used < limit) {
    const ssize_t count = ::read(file.get(), content.data() + used, limit - used);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return std::nullopt;
    if (count == 0) break;
    used += static_cast<std::size_t>(count);
  }
  content.resize(used);
  return content;
}

}  // namespace platform
