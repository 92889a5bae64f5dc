// golden.h: files of tests/logging/golden, which hold what the format is byte for byte.
#pragma once

#include <unistd.h>

#include <string>

#include "tests/support/scratch_home.h"

namespace test {

// The file's content, with this process's id in the place of every @PID@.
inline std::string golden(const std::string& name) {
  std::string content = readFile(TOVAN_SOURCE_DIR "/tests/logging/golden/" + name);
  const std::string place = "@PID@";
  for (std::size_t at = 0; (at = content.find(place, at)) != std::string::npos;) {
    content.replace(at, place.size(), std::to_string(::getpid()));
  }
  return content;
}

}  // namespace test
