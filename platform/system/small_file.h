// small_file.h: reading the small text files of the system, such as those in /proc and /etc.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace platform {

// Up to `limit` bytes from the beginning of a file, whose path is relative to the open directory `folder` (AT_FDCWD for
// the current one); nothing when it cannot be opened or read. Never waits: a FIFO reads as empty.
std::optional<std::string> readSmallFile(int folder, const char* path, std::size_t limit);

}  // namespace platform
