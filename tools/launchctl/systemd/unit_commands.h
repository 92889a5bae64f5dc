// unit_commands.h: what the units of the systemd back end run. Each gets the job's record, a property list beside the
// unit, so that no argument, variable or path has to pass through the unit's own syntax.
#pragma once

#include <string>

namespace launchctl {

// ExecStart: takes up the job's folder, streams and environment and becomes its program. Returns only on failure, with
// 127, the reason on standard error (the journal).
int becomeJob(const std::string& record);
// ExecStopPost: writes how the job ended, in the words of systemd.exec(5)'s $EXIT_CODE and $EXIT_STATUS, into a file.
int recordExit(const std::string& file);
// The watch beside a path unit, which can only ever start something: keeps the service unit running while the record's
// PathState holds and stopped while it does not. Ends on SIGTERM only; 1 on failure.
int watchTrigger(const std::string& unit, const std::string& record);

}  // namespace launchctl
