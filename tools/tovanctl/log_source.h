// log_source.h: which file holds the log that somebody asks for.
#pragma once

#include <cstdint>
#include <string>

#include "tools/tovanctl/log_options.h"

namespace tovanctl {

struct LogSource {
  std::string path;
  // What to say when the file is not there: what makes it come; empty for a file that was named itself.
  std::string hint;
  bool isNamed = false;  // by its path: it may be a pipe, and "-" is standard input
};

// The log of an instance of a service, or of the daemon under the name kDaemonName: where the logger of that process
// writes, whether it does or not. A service that was removed counts as long as its log is there. Otherwise
// CommandError(kUnknownName), with the nearest name.
LogSource logOfService(const std::string& service, std::uint32_t instance);
// The file that the options name. CommandError(kUsage) when they name none, or both a service and a file.
LogSource sourceOf(const LogOptions& options);

// An open file, closed with the object. Move-only.
class LogFile {
 public:
  LogFile() = default;
  explicit LogFile(int descriptor) : descriptor_(descriptor) {}
  LogFile(LogFile&& other) noexcept;
  LogFile& operator=(LogFile&& other) noexcept;
  LogFile(const LogFile&) = delete;
  LogFile& operator=(const LogFile&) = delete;
  ~LogFile();

  explicit operator bool() const { return descriptor_ >= 0; }
  int descriptor() const { return descriptor_; }

 private:
  int descriptor_ = -1;
};

// Opens it for reading; never waits for a pipe's other side, unless the file was named itself. Nothing, with errno
// ENOENT, when there is none. CommandError(kFailed), naming the path, when it cannot be opened or is no file.
LogFile openLog(const LogSource& source);

}  // namespace tovanctl
