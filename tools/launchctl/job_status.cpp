#include "tools/launchctl/job_status.h"

#include <sys/wait.h>

namespace launchctl {

Dictionary listOfStatus(const JobStatus& status) {
  ListBuilder list;
  list.set("Label", status.label);
  if (status.pid) list.set("PID", std::int64_t{*status.pid});
  list.set("LastExitStatus", std::int64_t{status.lastExitStatus});
  list.set("HasEnded", status.hasEnded);
  list.set("Program", status.program);
  list.set("ProgramArguments", status.arguments);
  list.set("JobDescription", status.file);
  if (!status.problem.empty()) list.set("LaunchProblem", status.problem);
  return list.list();
}

JobStatus statusOfList(CFDictionaryRef list) {
  JobStatus status;
  status.label = stringOf(list, "Label").value_or("");
  if (const auto pid = integerOf(list, "PID")) status.pid = static_cast<pid_t>(*pid);
  status.lastExitStatus = static_cast<int>(integerOf(list, "LastExitStatus").value_or(0));
  status.hasEnded = boolOf(list, "HasEnded");
  status.program = stringOf(list, "Program").value_or("");
  status.arguments = stringsOf(list, "ProgramArguments");
  status.file = stringOf(list, "JobDescription").value_or("");
  status.problem = stringOf(list, "LaunchProblem").value_or("");
  return status;
}

std::string exitColumn(int lastExitStatus) {
  if (lastExitStatus == kExitUnknown) return "?";
  return std::to_string(WIFSIGNALED(lastExitStatus) ? -WTERMSIG(lastExitStatus) : WEXITSTATUS(lastExitStatus));
}

}  // namespace launchctl
