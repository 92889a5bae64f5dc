#include "platform/system/error_text.h"

#include <cerrno>
#include <cstring>

namespace platform {
namespace {

// strerror_r gives a text (GNU) or a result beside the buffer (POSIX), by the library's settings: take either.
[[maybe_unused]] const char* textOf(const char* text, const char*) { return text; }
[[maybe_unused]] const char* textOf(int, const char* buffer) { return buffer; }

}  // namespace

std::string errorText(int errnoValue) {
  const int saved = errno;
  char buffer[256] = "Unknown error";
  std::string text = textOf(::strerror_r(errnoValue, buffer, sizeof buffer), buffer);
  errno = saved;
  return text;
}

}  // namespace platform
