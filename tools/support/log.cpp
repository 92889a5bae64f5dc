#include "tools/support/log.h"

#include <errno.h>
#include <tovan/time_stamp.h>
#include <unistd.h>

namespace tools {

void logLine(const std::string& text) {
  std::string line = std::string(tovan::CTimeStamp().getText()) + " " + program_invocation_short_name + "[" +
                     std::to_string(::getpid()) + "]: ";
  for (const char c : text) line += static_cast<unsigned char>(c) < 0x20 || c == 0x7F ? '?' : c;
  line += '\n';
  // There is nobody to tell when this fails.
  [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, line.data(), line.size());
}

}  // namespace tools
