#include "platform/system/home.h"

#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <vector>

namespace platform {
namespace {

std::string absolutePathIn(const char* variable) {
  const char* const value = std::getenv(variable);
  return value != nullptr && value[0] == '/' ? value : "";
}

std::string passwordEntryHome(uid_t user) {
  std::vector<char> buffer(1024);
  passwd entry;
  passwd* found = nullptr;
  int failure;
  while ((failure = ::getpwuid_r(user, &entry, buffer.data(), buffer.size(), &found)) == ERANGE || failure == EINTR) {
    if (failure == ERANGE) buffer.resize(buffer.size() * 2);
  }
  return found != nullptr && found->pw_dir != nullptr && found->pw_dir[0] == '/' ? found->pw_dir : "";
}

std::string withoutSlashesAtEnd(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

}  // namespace

std::string homeDirectory() {
  std::string home = absolutePathIn("HOME");
  if (home.empty()) home = passwordEntryHome(::geteuid());
  return withoutSlashesAtEnd(std::move(home));
}

std::string temporaryDirectory() {
  std::string path = absolutePathIn("TMPDIR");
  path = withoutSlashesAtEnd(path.empty() ? "/tmp" : std::move(path));
  return path == "/" ? path : path + "/";
}

}  // namespace platform
