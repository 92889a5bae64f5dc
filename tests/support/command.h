// command.h: running a program of the build and looking at what it did.
#pragma once

#include <string>
#include <vector>

namespace test {

struct CommandResult {
  int status = -1;  // exit status; 128 + signal when a signal ended it
  std::string out;
  std::string err;
};

// Runs a program (an absolute path, or a name of the build's bin folder) with the arguments, its input empty, and
// waits.
CommandResult runCommand(const std::string& program, const std::vector<std::string>& arguments);

}  // namespace test
