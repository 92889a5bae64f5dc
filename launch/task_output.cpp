#include "launch/task_output.h"

#include <cerrno>
#include <cstring>

namespace tovan {

using plinth::CSTR;
using plinth::CString;
using plinth::CStringRef;

namespace {

constexpr std::size_t kLongestRead = 498;

// Appends the rest of a line, or its next part; false at the end.
bool appendLine(std::FILE* stream, std::string& bytes) {
  char line[kLongestRead];
  std::size_t size = 0;
  while (size < sizeof line) {
    const int byte = ::getc_unlocked(stream);
    if (byte == EOF) break;
    line[size++] = static_cast<char>(byte);
    if (byte == '\n') break;
  }
  bytes.append(line, size);
  return size > 0;
}

}  // namespace

CStringRef readOutput(std::FILE* stream) {
  std::string bytes;
  for (;;) {
    errno = 0;
    if (appendLine(stream, bytes)) continue;
    if (!std::ferror(stream) || errno != EINTR) break;
    std::clearerr(stream);
  }
  return textFromBytes(bytes);
}

CStringRef textFromBytes(const std::string& bytes) {
  if (CStringRef text = CSTR(bytes)) return text;
  CStringRef text = plinth::makeShared<CString>();
  for (std::size_t start = 0; start < bytes.size();) {
    const char* const part = bytes.c_str() + start;
    text->append(CString::sprintf("%s", part));
    start += std::strlen(part);
    if (start < bytes.size()) text->append(CSTR(std::string(1, '\0')));
    ++start;
  }
  return text;
}

}  // namespace tovan
