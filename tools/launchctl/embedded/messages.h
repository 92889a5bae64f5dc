// messages.h: the members of requests and replies between launchctl and launchd-host, and of the host's state file.
#pragma once

namespace launchctl::message {

// Requests: Verb, and Label for all but load; a list without one is of all jobs. A load carries Job (the description as
// it was read), File, Program (its absolute path) and Environment.
inline constexpr const char* kVerb = "Verb";
inline constexpr const char* kLoad = "load";
inline constexpr const char* kUnload = "unload";
inline constexpr const char* kStart = "start";
inline constexpr const char* kStop = "stop";
inline constexpr const char* kList = "list";
inline constexpr const char* kLabel = "Label";
inline constexpr const char* kJob = "Job";
inline constexpr const char* kFile = "File";
inline constexpr const char* kProgram = "Program";
inline constexpr const char* kEnvironment = "Environment";

// Replies: Result, with Text for a failure and Jobs (as `list -x` prints them) for a list. "waiting" announces that
// the result follows within Seconds, 0 for any time.
inline constexpr const char* kResult = "Result";
inline constexpr const char* kDone = "done";
inline constexpr const char* kAlready = "already";
inline constexpr const char* kUnknown = "unknown";
inline constexpr const char* kFailed = "failed";
inline constexpr const char* kWaiting = "waiting";
inline constexpr const char* kText = "Text";
inline constexpr const char* kJobs = "Jobs";
inline constexpr const char* kSeconds = "Seconds";

// The state file: Boot and Jobs, each with the members of a load and of what runs.
inline constexpr const char* kBoot = "Boot";
inline constexpr const char* kProcess = "Process";
inline constexpr const char* kStartTime = "StartTime";
inline constexpr const char* kEnded = "Ended";  // of the process: what it started is being ended
inline constexpr const char* kLastExitStatus = "LastExitStatus";
inline constexpr const char* kProblem = "LaunchProblem";
inline constexpr const char* kUnloading = "Unloading";

}  // namespace launchctl::message
