// append_file.h: AppendFile, a file that is written at its end only, and into which other processes may write as well.
//
// Writing one record in one call keeps it in one piece among those of other writers. An object is written into by one
// thread at a time.
#pragma once

#include "platform/system/descriptor.h"
#include "platform/system/export.h"

#include <sys/types.h>

#include <string>
#include <string_view>

namespace platform {

class PLATFORM_EXPORT AppendFile {
 public:
  // Whether the folder that a file lies in may be a symbolic link. The folders above it always may.
  enum class FolderLink { allowed, refused };

  // None: everything fails with EBADF.
  AppendFile() noexcept = default;

  // Opens the file, or makes it with permissions 0666 less the process's mask. Nothing is waited for, and only a
  // regular file is opened: not a symbolic link (ELOOP), nor what else may stand at the path (EINVAL, ENXIO, EISDIR).
  // Below "/dev/" a device that is not a disk is opened too, and a link is followed to whatever it leads to but a disk.
  // Empty, with errno, on failure.
  static AppendFile open(const std::string& path, FolderLink folder) noexcept;
  // Whatever is this process's standard error at the moment of each write. A standard error that is closed, a pipe or
  // socket that nobody reads or a terminal that is gone swallows what is written.
  static AppendFile standardError() noexcept;

  explicit operator bool() const noexcept { return isStandardError_ || file_; }
  bool isRegular() const noexcept { return isRegular_; }
  // Where the next write goes: the end of a regular file. -1 when there is no such number.
  off_t position() const noexcept;
  // Empties a regular file, and does nothing to others. False, with errno, on failure.
  bool truncate() noexcept;
  // Writes all of it; false, with errno, on failure, when a part may have been written. No signal is raised by a limit
  // of the file size that was set when the file was opened, nor by a pipe that nobody reads.
  bool write(std::string_view bytes) noexcept;

  // Keeps others that take a turn as well away from a regular file for a scope. One who does not give it back is waited
  // for a second at most.
  class Turn {
   public:
    explicit Turn(const AppendFile& file) noexcept;
    ~Turn();
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

   private:
    int descriptor_;
  };

 private:
  bool writeAll(std::string_view bytes) noexcept;

  Descriptor file_;
  bool isStandardError_ = false;
  bool isRegular_ = false;
  bool mayRaiseSignals_ = true;
};

}  // namespace platform
