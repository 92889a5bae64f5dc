// What a child calls between fork and exec is bound when the library is loaded, not looked up by every child anew.
#include <gtest/gtest.h>

#include <set>
#include <sstream>
#include <string>

#include "tests/support/command.h"

namespace {

// The functions that a library looks up with their first call. Names come as NAME@VERSION or bare.
std::set<std::string> boundLate(const std::string& library) {
  const test::CommandResult listing = test::runCommand("/usr/bin/readelf", {"-rW", library});
  EXPECT_EQ(listing.status, 0) << listing.err;
  std::set<std::string> names;
  std::istringstream lines(listing.out);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream fields(line);
    std::string offset, info, type, value, name;
    fields >> offset >> info >> type >> value >> name;
    if (type.find("_JUMP_SLO") != std::string::npos) names.insert(name.substr(0, name.find('@')));
  }
  return names;
}

void expectBoundEarly(const std::string& library, const std::set<std::string>& functions) {
  const std::set<std::string> late = boundLate(library);
  EXPECT_GT(late.size(), 20U) << library << ": what others call is looked up late, or this does not see it";
  for (const std::string& function : functions) EXPECT_EQ(late.count(function), 0U) << function << " in " << library;
}

TEST(BindingTest, NothingIsLookedUpBetweenForkAndExec) {
  expectBoundEarly(TOVAN_BUILD_DIR "/lib/libTovanCore.so",
                   {"execve", "_exit", "dup2", "ioctl", "setsid", "setuid", "seteuid", "setgid", "setgroups",
                    "_ZN8platform20closeDescriptorsFromEi", "_ZNK8platform14BlockedSignals14releaseInChildEv"});
  expectBoundEarly(TOVAN_BUILD_DIR "/lib/libTovanPlatform.so",
                   {"close_range", "close", "getrlimit", "sigaction", "pthread_sigmask"});
}

}  // namespace
