// user_database.h: what the system knows of a user. Safe from any thread, not in the child of a fork.
#pragma once

#include "platform/system/export.h"

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace platform {

struct UserEntry {
  std::string name;
  std::string home;
  gid_t group;  // the primary one
};

// The user's password entry; nothing for an unknown user. errno is then 0, or says that the database could not be read:
// EMFILE, ENFILE or ENOMEM.
PLATFORM_EXPORT std::optional<UserEntry> findUser(uid_t user);

// The groups that a login of the user has: the primary one and those that list the name.
PLATFORM_EXPORT std::vector<gid_t> groupsOf(const UserEntry& user);

}  // namespace platform
