// whole_file.h: reading a file that is trusted with no more than so much memory.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <string>

#include "tools/launchctl/failure.h"

namespace launchctl {

// All that is left to read. Failure, with the path in front, when it cannot be read or is larger.
inline std::string readWhole(const std::string& path, int descriptor, std::size_t mebibytes) {
  std::string content;
  char buffer[16384];
  for (;;) {
    const ssize_t count = ::read(descriptor, buffer, sizeof buffer);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) throw systemFailure(path + ": cannot read it");
    if (count == 0) return content;
    content.append(buffer, static_cast<std::size_t>(count));
    if (content.size() > mebibytes << 20U) {
      throw Failure(path + ": refused: it is larger than " + std::to_string(mebibytes) + " MiB");
    }
  }
}

}  // namespace launchctl
