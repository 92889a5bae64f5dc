// systemctl.h: the user's manager, asked through `systemctl --user`, run as a child with its arguments one by one.
#pragma once

#include <string>
#include <vector>

namespace launchctl {

// Where the session's sockets lie: $XDG_RUNTIME_DIR, else /run/user/UID.
std::string runtimeFolder();
// The user's own units: $XDG_CONFIG_HOME/systemd/user, else ~/.config/systemd/user.
std::string unitFolder();

// Whether the user has a manager that answers; whether it reads the units of unitFolder().
bool managerAnswers();
bool managerReads(const std::string& folder);

// What it prints. Failure, with its own words, when it fails or is not done after the seconds.
std::string systemctl(const std::vector<std::string>& arguments, double seconds = 30);

}  // namespace launchctl
