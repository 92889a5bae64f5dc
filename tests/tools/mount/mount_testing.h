// mount_testing.h: the adapters of the build, on a host tool that only notes how it was called.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/command.h"
#include "tests/support/scratch_home.h"

namespace test {

inline const std::string kAdapters = TOVAN_BUILD_DIR "/lib/tovan/bin/";

// An environment variable for as long as the object lives.
class ScopedVariable {
 public:
  ScopedVariable(const char* name, const std::string& value) : name_(name) { ::setenv(name, value.c_str(), 1); }
  ~ScopedVariable() { ::unsetenv(name_); }
  ScopedVariable(const ScopedVariable&) = delete;
  ScopedVariable& operator=(const ScopedVariable&) = delete;

 private:
  const char* name_;
};

// Stands in for the host's mount and umount. It notes its arguments, then does what the body says.
class StubHostTool {
 public:
  explicit StubHostTool(const std::string& body = "") {
    writeFile(path(), "#!/bin/sh\nprintf '%s\\0' \"$@\" > '" + folder_ + "/call'\n" + body + "\n");
    std::filesystem::permissions(path(), std::filesystem::perms{0755});
  }

  const std::string& folder() const { return folder_; }
  std::string path() const { return folder_ + "/host-tool"; }
  bool wasCalled() const { return exists(folder_ + "/call"); }
  // The arguments of the last call.
  std::vector<std::string> call() const {
    std::vector<std::string> arguments;
    std::istringstream log(readFile(folder_ + "/call"));
    for (std::string argument; std::getline(log, argument, '\0');) arguments.push_back(argument);
    return arguments;
  }

 private:
  const std::string folder_ = scratchFolder("host tool");
  const ScopedVariable mount_{"TOVAN_HOST_MOUNT", folder_ + "/host-tool"};
  const ScopedVariable umount_{"TOVAN_HOST_UMOUNT", folder_ + "/host-tool"};
};

}  // namespace test
