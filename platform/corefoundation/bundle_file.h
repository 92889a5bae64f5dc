// bundle_file.h: reading the small files of a bundle, none of which can be trusted to be what its name says.
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <optional>
#include <string>

namespace cf {

// What of a file's state tells that it is still the one that was read. A missing file has a state too.
struct FileStamp {
  bool present = false;
  dev_t device = 0;
  ino_t inode = 0;
  off_t size = 0;
  timespec modified{};
  timespec changed{};

  static FileStamp of(const struct stat& status) noexcept;
  // Follows symbolic links.
  static FileStamp of(const std::string& path) noexcept;
  bool operator==(const FileStamp& other) const noexcept;

  // Whether the file has been left alone for long enough, as seen now, that a later change must show in its times: the
  // kernel's clock for these advances in steps of some milliseconds.
  bool isSettled() const noexcept;
};

// A larger Info.plist or string table is taken for an attack.
constexpr std::size_t kBundleFileLimit = std::size_t{16} * 1024 * 1024;

// The whole content of a regular file of at most kBundleFileLimit bytes; nothing for anything else, such as a FIFO or a
// directory, which is neither opened for long nor waited for. `stamp` (may be null) receives the state of the file
// before it was read, missing or not.
std::optional<std::string> readBundleFile(const std::string& path, FileStamp* stamp);

bool pathExists(const std::string& path) noexcept;
bool isDirectory(const std::string& path) noexcept;
// A regular file that this process may execute.
bool isExecutableFile(const std::string& path) noexcept;

}  // namespace cf
