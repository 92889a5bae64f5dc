#include "logging/file_stream.h"

#include <string_view>
#include <utility>

namespace tovan {

CTovanLogger::FileStream::FileStream(platform::AppendFile file) : std::ostream(nullptr), buffer_(std::move(file)) {
  rdbuf(&buffer_);
}

CTovanLogger::FileStream::~FileStream() = default;

std::streamsize CTovanLogger::FileStream::Buffer::xsputn(const char* bytes, std::streamsize count) {
  return file_.write({bytes, static_cast<std::size_t>(count)}) ? count : 0;
}

CTovanLogger::FileStream::Buffer::int_type CTovanLogger::FileStream::Buffer::overflow(int_type character) {
  if (traits_type::eq_int_type(character, traits_type::eof())) return traits_type::not_eof(character);
  const char byte = traits_type::to_char_type(character);
  return file_.write({&byte, 1}) ? character : traits_type::eof();
}

// Only where the next piece goes can be asked for; it cannot be changed.
CTovanLogger::FileStream::Buffer::pos_type CTovanLogger::FileStream::Buffer::seekoff(off_type offset,
                                                                                     std::ios_base::seekdir from,
                                                                                     std::ios_base::openmode) {
  return offset == 0 && from != std::ios_base::beg ? pos_type(file_.position()) : pos_type(off_type(-1));
}

}  // namespace tovan
