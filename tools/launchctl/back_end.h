// back_end.h: what runs the jobs of a user. There are two: the host of this system's own (embedded/) and the systemd
// user manager (systemd/). Both keep these rules, and one suite of tests runs over both:
//
// - A job with PathState runs while a path is as asked and is started again whatever its exit, not sooner than the
//   throttle interval; when none is any more it is ended and stays down, loaded. SuccessfulExit and RunAtLoad do not
//   count for it.
// - Ending is SIGTERM to all its processes, and SIGKILL to those that are left after ExitTimeOut.
// - One label is one job, and one job is one process (with what it starts), whatever becomes of clients and host.
//
// Every operation throws Failure when the host or manager cannot be reached or refuses. One thread.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/launchctl/job_description.h"
#include "tools/launchctl/job_status.h"

namespace launchctl {

// What load() takes: the checked description, the absolute path of its file, and the environment of the loader.
struct JobToLoad {
  JobDescription description;
  std::string file;
  std::map<std::string, std::string> environment;
  std::string program;  // the absolute path of the program
};

class BackEnd {
 public:
  virtual ~BackEnd() = default;
  BackEnd(const BackEnd&) = delete;
  BackEnd& operator=(const BackEnd&) = delete;

  // False when a job of that label is loaded already; it is left as it is.
  virtual bool load(const JobToLoad& job) = 0;
  // Ends the job, waits until it has ended, and forgets it. False when it is not loaded.
  virtual bool unload(const std::string& label) = 0;
  // Starts a job that does not run. False when it is not loaded. Failure when it has PathState and no path is as asked.
  virtual bool start(const std::string& label) = 0;
  // Ends the job's process and waits until it has ended; whether it comes back is decided as after any exit. False when
  // it is not loaded.
  virtual bool stop(const std::string& label) = 0;
  // All loaded jobs, sorted by label.
  virtual std::vector<JobStatus> list() = 0;
  // Nothing when the job is not loaded.
  virtual std::optional<JobStatus> status(const std::string& label) = 0;

 protected:
  BackEnd() = default;
};

// The back end of this user on this host: $TOVAN_LAUNCHD when it says "systemd" or "embedded" (Failure for any other
// value); else the embedded one while it has jobs; else systemd when the user's manager answers and reads the units of
// this home; else the embedded one.
std::unique_ptr<BackEnd> chooseBackEnd();

}  // namespace launchctl
