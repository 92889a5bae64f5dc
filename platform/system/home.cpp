#include "platform/system/home.h"

#include "platform/system/user_database.h"

#include <unistd.h>

#include <cstdlib>
#include <optional>
#include <utility>

namespace platform {
namespace {

std::string absolutePathIn(const char* variable) {
  const char* const value = std::getenv(variable);
  return value != nullptr && value[0] == '/' ? value : "";
}

std::string passwordEntryHome(uid_t user) {
  const std::optional<UserEntry> entry = findUser(user);
  return entry && entry->home.rfind('/', 0) == 0 ? entry->home : "";
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
