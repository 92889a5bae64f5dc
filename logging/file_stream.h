// file_stream.h: CTovanLogger::FileStream, the standard output stream of a log file.
#pragma once

#include <tovan/logger.h>

#include "platform/system/append_file.h"

#include <ostream>
#include <streambuf>
#include <string_view>

namespace tovan {

// Hands each piece on as it comes, so that a record that is written in one piece is one in the file. Its position is
// the end of the file from the start.
class CTovanLogger::FileStream final : public std::ostream {
 public:
  explicit FileStream(platform::AppendFile file);
  ~FileStream() override;

  const platform::AppendFile& file() const noexcept { return buffer_.file_; }
  // What write() and flush() do, without their ceremony. A stream that has failed takes nothing.
  void put(std::string_view bytes) {
    if (good() && !buffer_.file_.write(bytes)) setstate(badbit);
  }
  bool truncate() noexcept { return buffer_.file_.truncate(); }

 private:
  class Buffer final : public std::streambuf {
   public:
    explicit Buffer(platform::AppendFile file) : file_(std::move(file)) {}

   protected:
    std::streamsize xsputn(const char* bytes, std::streamsize count) override;
    int_type overflow(int_type character) override;
    pos_type seekoff(off_type offset, std::ios_base::seekdir from, std::ios_base::openmode which) override;

   private:
    friend class FileStream;
    platform::AppendFile file_;
  };

  Buffer buffer_;
};

}  // namespace tovan
