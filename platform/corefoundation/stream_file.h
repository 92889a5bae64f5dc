// stream_file.h: the file below a stream: a descriptor on a regular file, close-on-exec.
#pragma once

#include <CoreFoundation/CFURL.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace cf {

class StreamFile {
 public:
  StreamFile() = default;
  ~StreamFile() { static_cast<void>(close()); }
  StreamFile(const StreamFile&) = delete;
  StreamFile& operator=(const StreamFile&) = delete;

  // 0 or errno; EISDIR for a folder, EINVAL for anything else that is no regular file. Never blocks on a FIFO.
  int openForReading(const std::string& path);
  // Creates the file when it is missing; leaves its content alone when `append` is set, else empties it.
  int openForWriting(const std::string& path, bool append);
  // 0 or errno: the system may report a failed write as late as this.
  int close();

  // The count of bytes, or -1 with `problem` set to errno. Interrupted calls are taken up again.
  std::ptrdiff_t read(std::uint8_t* to, std::size_t count, int& problem);
  std::ptrdiff_t write(const std::uint8_t* from, std::size_t count, int& problem);

 private:
  int open(const std::string& path, int flags);

  int descriptor_ = -1;
};

// The path of a file URL, or nothing.
std::optional<std::string> pathOfFileURL(CFURLRef url);

}  // namespace cf
