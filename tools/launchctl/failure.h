// failure.h: what ends an operation: a text for standard error, without the program's name in front.
#pragma once

#include <cerrno>
#include <stdexcept>
#include <string>
#include <system_error>

namespace launchctl {

class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The system's words for an errno value.
inline std::string systemReason(int error) { return std::generic_category().message(error); }

// A failed system call: "WHAT: REASON". Reads errno first thing.
inline Failure systemFailure(const std::string& what, int error = errno) {
  return Failure(what + ": " + systemReason(error));
}

}  // namespace launchctl
