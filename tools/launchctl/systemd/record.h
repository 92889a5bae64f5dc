// record.h: the record of a job under systemd: a property list beside its units with the members of a load request
// (embedded/messages.h), and the file with its last exit status.
#pragma once

#include <optional>
#include <string>

#include "tools/launchctl/back_end.h"

namespace launchctl {

std::string recordText(const JobToLoad& job);
// Failure when it is missing or damaged.
JobToLoad readRecord(const std::string& path);

// The wait(2) status that a file of recordExit() holds; nothing when there is none.
std::optional<int> readExit(const std::string& path);
// From $EXIT_CODE and $EXIT_STATUS; kExitUnknown for what they do not say.
int exitStatusOf(const std::string& code, const std::string& status);

// Puts a file in place in one step. Failure leaves the old one.
void writeFile(const std::string& path, const std::string& content);

}  // namespace launchctl
