#include "platform/system/user_database.h"

#include <grp.h>
#include <pwd.h>

#include <algorithm>
#include <cerrno>

namespace platform {
namespace {

std::string textOf(const char* text) { return text != nullptr ? text : ""; }

// The sources of the database report an unknown user in many ways; these tell that there was no answer.
bool isExhaustion(int error) { return error == EMFILE || error == ENFILE || error == ENOMEM; }

}  // namespace

std::optional<UserEntry> findUser(uid_t user) {
  std::vector<char> buffer(1024);
  passwd entry;
  passwd* found = nullptr;
  int failure;
  while ((failure = ::getpwuid_r(user, &entry, buffer.data(), buffer.size(), &found)) == ERANGE || failure == EINTR) {
    if (failure == ERANGE) buffer.resize(buffer.size() * 2);
  }
  errno = isExhaustion(failure) ? failure : 0;
  if (found == nullptr) return std::nullopt;
  return UserEntry{textOf(found->pw_name), textOf(found->pw_dir), found->pw_gid};
}

std::vector<gid_t> groupsOf(const UserEntry& user) {
  std::vector<gid_t> groups(16);
  for (;;) {
    int count = static_cast<int>(groups.size());
    const int result = ::getgrouplist(user.name.c_str(), user.group, groups.data(), &count);
    if (result >= 0) {
      groups.resize(static_cast<std::size_t>(count));
      return groups;
    }
    // The count is what it takes; should it not have grown, the list did meanwhile.
    groups.resize(std::max(static_cast<std::size_t>(count), groups.size() * 2));
  }
}

}  // namespace platform
